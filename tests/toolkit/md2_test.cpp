#include "digests.h"
#include "support/vectors.h"

#include <toolkit/md2.h>

#include <sstream>

using namespace toolkit;

namespace {

const Digest ours = {"MD2", digest<Md2, md2_init, md2_update, md2_final>, md2};

} // namespace

TEST(Md2, Rfc1319) {
    std::istringstream lines(text_of(vector_file("published/hash/rfc1319-md2.txt")));
    std::string line;
    int cases = 0;
    while (std::getline(lines, line)) {
        const std::size_t open = line.find('"'), close = line.rfind('"');
        if (line.compare(0, 3, "MD2") != 0 || open == close)
            continue;
        ++cases;
        const std::string message = line.substr(open + 1, close - open - 1);
        EXPECT_EQ(digest_hex(ours, bytes_of(message)), line.substr(line.find("= ") + 2)) << message;
    }
    EXPECT_EQ(cases, 7);
}

TEST(Md2, PeerOnRandomInput) {
    check_digest_peer(ours);
}
