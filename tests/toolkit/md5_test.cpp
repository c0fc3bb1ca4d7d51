#include "digests.h"
#include "support/vectors.h"

#include <nettle/md5.h>
// The peer renames its functions by macros that would catch ours.
#undef md5_init
#undef md5_update

#include <toolkit/md5.h>

using namespace toolkit;

namespace {

const Digest ours = {"MD5", digest<Md5, md5_init, md5_update, md5_final>, md5};

} // namespace

TEST(Md5, Rfc1321) {
    int cases = 0;
    for (VectorCase &vector : vector_cases("published/hash/rfc-1321.txt")) {
        Bytes message = vector.bytes("Msg");
        message.resize(vector.number("Len") / 8);
        EXPECT_EQ(digest_hex(ours, message), vector.text("MD")) << vector.line;
        ++cases;
    }
    EXPECT_EQ(cases, 7);
}

TEST(Md5, PeerOnRandomInput) {
    check_digest_peer(ours);
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
