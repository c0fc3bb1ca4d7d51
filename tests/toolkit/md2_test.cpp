#include "digests.h"
#include "support/vectors.h"

#include <nettle/md2.h>
// The peer renames its functions by macros that would catch ours.
#undef md2_init
#undef md2_update

#include <toolkit/md2.h>

#include <sstream>

using namespace toolkit;

namespace {

Bytes peer(const Bytes &data) {
    md2_ctx context;
    Bytes result(16);
    nettle_md2_init(&context);
    nettle_md2_update(&context, data.size(), data.data());
    nettle_md2_digest(&context, 16, result.data());
    return result;
}

const Digest md2 = {"MD2", digest<Md2, md2_init, md2_update, md2_final>, peer};

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
        EXPECT_EQ(digest_hex(md2, bytes_of(message)), line.substr(line.find("= ") + 2)) << message;
    }
    EXPECT_EQ(cases, 7);
}

TEST(Md2, PeerOnRandomInput) {
    check_digest_peer(md2);
}
