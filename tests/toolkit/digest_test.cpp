// MD2 and MD5: published vectors, and other libraries on random input.
#include "support/digests.h"
#include "support/samples.h"
#include "support/vectors.h"

#include <nettle/md5.h>
// The peer renames its functions by macros that would catch ours.
#undef md5_init
#undef md5_update

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <toolkit/md2.h>
#include <toolkit/md5.h>

using namespace toolkit;

namespace {

// Digests pieces one by one, and checks that nothing of the data is left in the state.
template <class State, void (*init)(State *), void (*update)(State *, const uint8_t *, std::size_t),
          void (*final)(State *, uint8_t *)>
Bytes digest(const Bytes &data, const std::vector<std::size_t> &pieces) {
    State state;
    init(&state);
    update(&state, nullptr, 0);
    const uint8_t *next = data.data();
    for (const std::size_t size : pieces) {
        update(&state, next, size);
        next += size;
    }
    Bytes result(16);
    final(&state, result.data());
    const auto *left = reinterpret_cast<const uint8_t *>(&state);
    EXPECT_TRUE(std::all_of(left, left + sizeof state, [](uint8_t byte) { return byte == 0; }));
    return result;
}

struct Digest {
    const char *name;
    Bytes (*digest)(const Bytes &data, const std::vector<std::size_t> &pieces);
    Bytes (*peer)(const Bytes &data);
};

std::string digest_hex(const Digest &algorithm, const Bytes &data) {
    return to_hex(algorithm.digest(data, {data.size()}));
}

// Every length around the block boundaries, in one piece and in random pieces.
void check_digest_peer(const Digest &algorithm) {
    Samples samples;
    for (const std::size_t length : sample_lengths()) {
        const Bytes data = samples.bytes(length);
        const std::string expected = to_hex(algorithm.peer(data));
        EXPECT_EQ(digest_hex(algorithm, data), expected) << length;
        EXPECT_EQ(to_hex(algorithm.digest(data, samples.pieces(length))), expected)
            << "in pieces " << length;
    }
}

const Digest our_md2 = {"MD2", digest<Md2, md2_init, md2_update, md2_final>, md2};
const Digest our_md5 = {"MD5", digest<Md5, md5_init, md5_update, md5_final>, md5};

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
        EXPECT_EQ(digest_hex(our_md2, bytes_of(message)), line.substr(line.find("= ") + 2))
            << message;
    }
    EXPECT_EQ(cases, 7);
}

TEST(Md5, Rfc1321) {
    int cases = 0;
    for (VectorCase &vector : vector_cases("published/hash/rfc-1321.txt")) {
        Bytes message = vector.bytes("Msg");
        message.resize(vector.number("Len") / 8);
        EXPECT_EQ(digest_hex(our_md5, message), vector.text("MD")) << vector.line;
        ++cases;
    }
    EXPECT_EQ(cases, 7);
}

TEST(Digest, PeersOnRandomInput) {
    check_digest_peer(our_md2);
    check_digest_peer(our_md5);
}

// The length in bits passes 2^32 at 512 MiB: a carry that was lost would show only here.
TEST(Md5, LengthBeyond32Bits) {
    const Bytes chunk = Samples().bytes(1 << 20);
    Md5 state;
    md5_ctx peer;
    md5_init(&state);
    nettle_md5_init(&peer);
    for (int i = 0; i < 513; ++i) {
        md5_update(&state, chunk.data(), chunk.size());
        nettle_md5_update(&peer, chunk.size(), chunk.data());
    }
    Bytes result(16), expected(16);
    md5_final(&state, result.data());
    nettle_md5_digest(&peer, 16, expected.data());
    EXPECT_EQ(to_hex(result), to_hex(expected));
}
