#include "support/samples.h"
#include "support/vectors.h"

#include <toolkit/rc4.h>

#include <gtest/gtest.h>
#include <nettle/arcfour.h>

using namespace toolkit;

namespace {

Bytes crypt(const Bytes &key, const Bytes &data) {
    Rc4 rc4;
    Bytes result(data.size());
    EXPECT_TRUE(rc4_set_key(&rc4, key.data(), key.size()));
    rc4_crypt(&rc4, data.data(), result.data(), data.size());
    return result;
}

} // namespace

// RFC 6229 and the older vectors give pieces of the key stream at offsets up to 4096 and beyond.
TEST(Rc4, Rfc6229) {
    const char *const files[] = {"arc4.txt",         "rfc-6229-40.txt", "rfc-6229-56.txt",
                                 "rfc-6229-64.txt",  "rfc-6229-80.txt", "rfc-6229-128.txt",
                                 "rfc-6229-192.txt", "rfc-6229-256.txt"};
    for (const char *file : files) {
        int cases = 0;
        for (VectorCase &vector : vector_cases(std::string("published/cipher/") + file)) {
            if (!vector.has("KEY"))
                continue;
            const Bytes plain = vector.bytes("PLAINTEXT");
            Bytes data(vector.number("OFFSET"));
            data.insert(data.end(), plain.begin(), plain.end());
            const Bytes result = crypt(vector.bytes("KEY"), data);
            EXPECT_EQ(to_hex(result.data() + result.size() - plain.size(), plain.size()),
                      vector.text("CIPHERTEXT"))
                << file << " " << vector.line;
            ++cases;
        }
        EXPECT_GE(cases, 34) << file;
    }
}

TEST(Rc4, KeySizes) {
    const Bytes key(257, 7);
    Rc4 rc4;
    for (const std::size_t size : {0u, 1u, 256u, 257u})
        EXPECT_EQ(rc4_set_key(&rc4, key.data(), size), size >= 1 && size <= 256) << size;
}

// Random keys, lengths and split points; the data start at any alignment, and the output takes the
// input's place every other time.
TEST(Rc4, PeerOnRandomInput) {
    Samples samples;
    for (const std::size_t length : sample_lengths()) {
        const Bytes key = samples.bytes(1 + samples.below(256));
        const std::size_t shift = samples.below(16);
        Bytes data = samples.bytes(shift + length);
        arcfour_ctx peer;
        Bytes expected(length);
        nettle_arcfour_set_key(&peer, key.size(), key.data());
        nettle_arcfour_crypt(&peer, length, expected.data(), data.data() + shift);

        Rc4 rc4;
        Bytes apart(length);
        ASSERT_TRUE(rc4_set_key(&rc4, key.data(), key.size()));
        uint8_t *in = data.data() + shift;
        uint8_t *const start = length % 2 != 0 ? in : apart.data();
        uint8_t *out = start;
        for (const std::size_t size : samples.pieces(length)) {
            rc4_crypt(&rc4, in, out, size);
            in += size;
            out += size;
        }
        EXPECT_EQ(to_hex(start, length), to_hex(expected)) << length;
    }
}
