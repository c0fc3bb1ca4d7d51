#include "support/files.h"

#include <gtest/gtest.h>
#include <nettle/des.h>
#include <util/weak_key.h>

namespace {

// With a key of these patterns each half of the key schedule is all 0, all 1, or alternates, and
// reading it backwards exchanges the two patterns.
Bytes key_of_patterns(unsigned first, unsigned second) {
    constexpr uint8_t patterns[2][4] = {{0x01, 0x1f, 0xe0, 0xfe}, {0x01, 0x0e, 0xf1, 0xfe}};
    Bytes key(8);
    for (unsigned i = 0; i < 8; ++i)
        key[i] = patterns[i / 4][i % 2 == 0 ? first : second];
    return key;
}

Bytes encrypted(const Bytes &key, const Bytes &block) {
    des_ctx context;
    des_set_key(&context, key.data()); // says that the key is weak, and takes it all the same
    Bytes result(8);
    des_encrypt(&context, 8, result.data(), block.data());
    return result;
}

TEST(WeakKey, AreThoseThatAnotherKeyUndoes) {
    const Bytes block = bytes_of("a block.");
    for (unsigned first = 0; first < 4; ++first) {
        for (unsigned second = 0; second < 4; ++second) {
            const Bytes key = key_of_patterns(first, second);
            SCOPED_TRACE(to_hex(key));
            EXPECT_EQ(encrypted(key_of_patterns(second, first), encrypted(key, block)), block);
            EXPECT_EQ(is_good_des_key(key.data()), 0);
            // Other parity is another key, and so is any other bit.
            for (unsigned bit = 0; bit < 64; ++bit) {
                Bytes other = key;
                other[bit / 8] = static_cast<uint8_t>(other[bit / 8] ^ 1u << bit % 8);
                EXPECT_EQ(is_good_des_key(other.data()), 1) << bit;
            }
        }
    }
}

} // namespace
