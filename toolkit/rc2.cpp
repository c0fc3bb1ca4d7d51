// The mashing rounds and the key schedule look up in tables by secret values: timing through the
// data cache is not hidden. The vector version of decryption is constant-time.
#include <toolkit/implementations.h>
#include <toolkit/rc2.h>

#include "cpu.h"
#include "rc2_avx512.h"

#include <array>
#include <bit>
#include <cstring>
#include <iterator>
#include <string.h>

namespace toolkit {

namespace {

// A permutation of 0..255 drawn from the digits of pi (RFC 2268 section 2).
constexpr uint8_t pi_table[256] = {
    0xd9, 0x78, 0xf9, 0xc4, 0x19, 0xdd, 0xb5, 0xed, 0x28, 0xe9, 0xfd, 0x79, 0x4a, 0xa0, 0xd8, 0x9d,
    0xc6, 0x7e, 0x37, 0x83, 0x2b, 0x76, 0x53, 0x8e, 0x62, 0x4c, 0x64, 0x88, 0x44, 0x8b, 0xfb, 0xa2,
    0x17, 0x9a, 0x59, 0xf5, 0x87, 0xb3, 0x4f, 0x13, 0x61, 0x45, 0x6d, 0x8d, 0x09, 0x81, 0x7d, 0x32,
    0xbd, 0x8f, 0x40, 0xeb, 0x86, 0xb7, 0x7b, 0x0b, 0xf0, 0x95, 0x21, 0x22, 0x5c, 0x6b, 0x4e, 0x82,
    0x54, 0xd6, 0x65, 0x93, 0xce, 0x60, 0xb2, 0x1c, 0x73, 0x56, 0xc0, 0x14, 0xa7, 0x8c, 0xf1, 0xdc,
    0x12, 0x75, 0xca, 0x1f, 0x3b, 0xbe, 0xe4, 0xd1, 0x42, 0x3d, 0xd4, 0x30, 0xa3, 0x3c, 0xb6, 0x26,
    0x6f, 0xbf, 0x0e, 0xda, 0x46, 0x69, 0x07, 0x57, 0x27, 0xf2, 0x1d, 0x9b, 0xbc, 0x94, 0x43, 0x03,
    0xf8, 0x11, 0xc7, 0xf6, 0x90, 0xef, 0x3e, 0xe7, 0x06, 0xc3, 0xd5, 0x2f, 0xc8, 0x66, 0x1e, 0xd7,
    0x08, 0xe8, 0xea, 0xde, 0x80, 0x52, 0xee, 0xf7, 0x84, 0xaa, 0x72, 0xac, 0x35, 0x4d, 0x6a, 0x2a,
    0x96, 0x1a, 0xd2, 0x71, 0x5a, 0x15, 0x49, 0x74, 0x4b, 0x9f, 0xd0, 0x5e, 0x04, 0x18, 0xa4, 0xec,
    0xc2, 0xe0, 0x41, 0x6e, 0x0f, 0x51, 0xcb, 0xcc, 0x24, 0x91, 0xaf, 0x50, 0xa1, 0xf4, 0x70, 0x39,
    0x99, 0x7c, 0x3a, 0x85, 0x23, 0xb8, 0xb4, 0x7a, 0xfc, 0x02, 0x36, 0x5b, 0x25, 0x55, 0x97, 0x31,
    0x2d, 0x5d, 0xfa, 0x98, 0xe3, 0x8a, 0x92, 0xae, 0x05, 0xdf, 0x29, 0x10, 0x67, 0x6c, 0xba, 0xc9,
    0xd3, 0x00, 0xe6, 0xcf, 0xe1, 0x9e, 0xa8, 0x2c, 0x63, 0x16, 0x01, 0x3f, 0x58, 0xe2, 0x89, 0xa9,
    0x0d, 0x38, 0x34, 0x1b, 0xab, 0x33, 0xff, 0xb0, 0xbb, 0x48, 0x0c, 0x5f, 0xb9, 0xb1, 0xcd, 0x2e,
    0xc5, 0xf3, 0xdb, 0x47, 0xe5, 0xa5, 0x9c, 0x77, 0x0a, 0xa6, 0x20, 0x68, 0xfe, 0x7f, 0xc1, 0xad,
};

// The version that stands for fewer than 256 effective bits (RFC 2268 section 6).
constexpr uint8_t version_table[256] = {
    0xbd, 0x56, 0xea, 0xf2, 0xa2, 0xf1, 0xac, 0x2a, 0xb0, 0x93, 0xd1, 0x9c, 0x1b, 0x33, 0xfd, 0xd0,
    0x30, 0x04, 0xb6, 0xdc, 0x7d, 0xdf, 0x32, 0x4b, 0xf7, 0xcb, 0x45, 0x9b, 0x31, 0xbb, 0x21, 0x5a,
    0x41, 0x9f, 0xe1, 0xd9, 0x4a, 0x4d, 0x9e, 0xda, 0xa0, 0x68, 0x2c, 0xc3, 0x27, 0x5f, 0x80, 0x36,
    0x3e, 0xee, 0xfb, 0x95, 0x1a, 0xfe, 0xce, 0xa8, 0x34, 0xa9, 0x13, 0xf0, 0xa6, 0x3f, 0xd8, 0x0c,
    0x78, 0x24, 0xaf, 0x23, 0x52, 0xc1, 0x67, 0x17, 0xf5, 0x66, 0x90, 0xe7, 0xe8, 0x07, 0xb8, 0x60,
    0x48, 0xe6, 0x1e, 0x53, 0xf3, 0x92, 0xa4, 0x72, 0x8c, 0x08, 0x15, 0x6e, 0x86, 0x00, 0x84, 0xfa,
    0xf4, 0x7f, 0x8a, 0x42, 0x19, 0xf6, 0xdb, 0xcd, 0x14, 0x8d, 0x50, 0x12, 0xba, 0x3c, 0x06, 0x4e,
    0xec, 0xb3, 0x35, 0x11, 0xa1, 0x88, 0x8e, 0x2b, 0x94, 0x99, 0xb7, 0x71, 0x74, 0xd3, 0xe4, 0xbf,
    0x3a, 0xde, 0x96, 0x0e, 0xbc, 0x0a, 0xed, 0x77, 0xfc, 0x37, 0x6b, 0x03, 0x79, 0x89, 0x62, 0xc6,
    0xd7, 0xc0, 0xd2, 0x7c, 0x6a, 0x8b, 0x22, 0xa3, 0x5b, 0x05, 0x5d, 0x02, 0x75, 0xd5, 0x61, 0xe3,
    0x18, 0x8f, 0x55, 0x51, 0xad, 0x1f, 0x0b, 0x5e, 0x85, 0xe5, 0xc2, 0x57, 0x63, 0xca, 0x3d, 0x6c,
    0xb4, 0xc5, 0xcc, 0x70, 0xb2, 0x91, 0x59, 0x0d, 0x47, 0x20, 0xc8, 0x4f, 0x58, 0xe0, 0x01, 0xe2,
    0x16, 0x38, 0xc4, 0x6f, 0x3b, 0x0f, 0x65, 0x46, 0xbe, 0x7e, 0x2d, 0x7b, 0x82, 0xf9, 0x40, 0xb5,
    0x1d, 0x73, 0xf8, 0xeb, 0x26, 0xc7, 0x87, 0x97, 0x25, 0x54, 0xb1, 0x28, 0xaa, 0x98, 0x9d, 0xa5,
    0x64, 0x6d, 0x7a, 0xd4, 0x10, 0x81, 0x44, 0xef, 0x49, 0xd6, 0xae, 0x2e, 0xdd, 0x76, 0x5c, 0x2f,
    0xa7, 0x1c, 0xc9, 0x09, 0x69, 0x9a, 0x83, 0xcf, 0x29, 0x39, 0xb9, 0xe9, 0x4c, 0xff, 0x43, 0xab,
};

// ---- Rounds

// Keeps the compiler from reordering a sum: what is in it so far is one term.
inline uint32_t term(uint32_t sum) {
    asm("" : "+r"(sum));
    return sum;
}

// The words of a block, in whole registers: what is above their 16 bits is never looked at.
struct Block {
    uint32_t r0, r1, r2, r3;
};

// Rotates the low 16 bits; what is above them in the result is of no account.
template <int count> inline uint32_t rotate(uint32_t word) {
#if defined(__x86_64__) || defined(__i386__)
    asm("rolw %1, %w0" : "+r"(word) : "i"(count) : "cc"); // compilers extend the word each time
    return word;
#else
    return std::rotl(static_cast<uint16_t>(word), count);
#endif
}

// r += key + (a & b) + (~a & c). The word a was made last: everything else comes before it.
template <int count>
[[gnu::always_inline]] inline void mix(uint32_t &r, uint32_t a, uint32_t b, uint32_t c,
                                       uint32_t key) {
    const uint32_t ones = term(a & b), zeros = term(~a & c);
    r = rotate<count>(term(term(r + key) + ones) + zeros);
}

template <int count>
[[gnu::always_inline]] inline void unmix(uint32_t &r, uint32_t a, uint32_t b, uint32_t c,
                                         uint32_t key) {
    r = term(rotate<16 - count>(r) - key - (a & b)) - (~a & c);
}

[[gnu::always_inline]] inline void mix_round(Block &x, const uint16_t *key) {
    mix<1>(x.r0, x.r3, x.r2, x.r1, key[0]);
    mix<2>(x.r1, x.r0, x.r3, x.r2, key[1]);
    mix<3>(x.r2, x.r1, x.r0, x.r3, key[2]);
    mix<5>(x.r3, x.r2, x.r1, x.r0, key[3]);
}

[[gnu::always_inline]] inline void unmix_round(Block &x, const uint16_t *key) {
    unmix<5>(x.r3, x.r2, x.r1, x.r0, key[3]);
    unmix<3>(x.r2, x.r1, x.r0, x.r3, key[2]);
    unmix<2>(x.r1, x.r0, x.r3, x.r2, key[1]);
    unmix<1>(x.r0, x.r3, x.r2, x.r1, key[0]);
}

[[gnu::always_inline]] inline void mash_round(Block &x, const uint16_t *keys) {
    x.r0 += keys[x.r3 & 63];
    x.r1 += keys[x.r0 & 63];
    x.r2 += keys[x.r1 & 63];
    x.r3 += keys[x.r2 & 63];
}

[[gnu::always_inline]] inline void unmash_round(Block &x, const uint16_t *keys) {
    x.r3 -= keys[x.r2 & 63];
    x.r2 -= keys[x.r1 & 63];
    x.r1 -= keys[x.r0 & 63];
    x.r0 -= keys[x.r3 & 63];
}

[[gnu::always_inline]] inline void encrypt(const Rc2Key &key, Block &x) {
#pragma GCC unroll 16
    for (int round = 0; round < 16; ++round) {
        mix_round(x, key.words + 4 * round);
        if (round == 4 || round == 10)
            mash_round(x, key.words);
    }
}

[[gnu::always_inline]] inline void decrypt(const Rc2Key &key, Block &x) {
#pragma GCC unroll 16
    for (int round = 15; round >= 0; --round) {
        unmix_round(x, key.words + 4 * round);
        if (round == 11 || round == 5)
            unmash_round(x, key.words);
    }
}

[[gnu::always_inline]] inline void decrypt_two(const Rc2Key &key, Block &x, Block &y) {
#pragma GCC unroll 16
    for (int round = 15; round >= 0; --round) {
        unmix_round(x, key.words + 4 * round);
        unmix_round(y, key.words + 4 * round);
        if (round == 11 || round == 5) {
            unmash_round(x, key.words);
            unmash_round(y, key.words);
        }
    }
}

// ---- Chaining

Block operator^(const Block &a, const Block &b) {
    return {term(a.r0 ^ b.r0), term(a.r1 ^ b.r1), term(a.r2 ^ b.r2), term(a.r3 ^ b.r3)};
}

uint32_t load_le(const uint8_t *bytes) {
    return bytes[0] | static_cast<uint32_t>(bytes[1]) << 8;
}

void store_le(uint8_t *bytes, uint32_t word) {
    bytes[0] = static_cast<uint8_t>(word);
    bytes[1] = static_cast<uint8_t>(word >> 8);
}

Block load(const uint8_t *bytes) {
    return {load_le(bytes), load_le(bytes + 2), load_le(bytes + 4), load_le(bytes + 6)};
}

void store(uint8_t *bytes, const Block &block) {
    store_le(bytes, block.r0);
    store_le(bytes + 2, block.r1);
    store_le(bytes + 4, block.r2);
    store_le(bytes + 6, block.r3);
}

// Blocks in pairs: their steps do not wait for each other.
void cbc_decrypt(const Rc2Key &key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                 std::size_t blocks) {
    Block chain = load(iv);
    for (; blocks >= 2; blocks -= 2, in += 2 * rc2_block_size, out += 2 * rc2_block_size) {
        Block first = load(in), second = load(in + rc2_block_size);
        decrypt_two(key, first, second);
        first = first ^ chain;
        second = second ^ load(in);
        chain = load(in + rc2_block_size);
        store(out, first);
        store(out + rc2_block_size, second);
    }
    if (blocks != 0) {
        const Block last = load(in);
        Block block = last;
        decrypt(key, block);
        store(out, block ^ chain);
        chain = last;
    }
    store(iv, chain);
}

} // namespace

bool rc2_set_key(Rc2Key *schedule, const uint8_t *key, std::size_t size, unsigned effective_bits) {
    if (size < 1 || size > 128 || effective_bits < 1 || effective_bits > 1024)
        return false;
    uint8_t bytes[128];
    std::memcpy(bytes, key, size);
    for (std::size_t i = size; i < 128; ++i)
        bytes[i] = pi_table[static_cast<uint8_t>(bytes[i - 1] + bytes[i - size])];

    const unsigned effective_bytes = (effective_bits + 7) / 8;
    const unsigned mask = 0xff >> (8 * effective_bytes - effective_bits);
    bytes[128 - effective_bytes] = pi_table[bytes[128 - effective_bytes] & mask];
    for (unsigned i = 128 - effective_bytes; i-- > 0;)
        bytes[i] = pi_table[bytes[i + 1] ^ bytes[i + effective_bytes]];

    for (int i = 0; i < 64; ++i)
        schedule->words[i] = static_cast<uint16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
    explicit_bzero(bytes, sizeof bytes);
    return true;
}

namespace {

bool always() {
    return true;
}

} // namespace

const Rc2Decryption rc2_decryptions[] = {
#if TOOLKIT_HAS_X86_VECTORS
    {"AVX-512", has_avx512, 3, rc2_cbc_decrypt_avx512},
#endif
    {"portable", always, 0, cbc_decrypt},
};
const std::size_t rc2_decryption_count = std::size(rc2_decryptions);

void rc2_cbc_encrypt(const Rc2Key *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                     std::size_t blocks) {
    Block chain = load(iv);
    for (; blocks != 0; --blocks, in += rc2_block_size, out += rc2_block_size) {
        chain = load(in) ^ chain;
        encrypt(*key, chain);
        store(out, chain);
    }
    store(iv, chain);
}

void rc2_cbc_decrypt(const Rc2Key *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                     std::size_t blocks) {
    const Rc2Decryption *row = rc2_decryptions;
    while (blocks < row->least_blocks || !row->available())
        ++row;
    row->cbc_decrypt(*key, iv, in, out, blocks);
}

uint32_t rc2_version_from_bits(uint32_t effective_bits) {
    if (effective_bits < 1 || effective_bits > 1024)
        return 0;
    return effective_bits < 256 ? version_table[effective_bits] : effective_bits;
}

uint32_t rc2_bits_from_version(uint32_t version) {
    if (version >= 256)
        return version <= 1024 ? version : 0;
    uint32_t bits = 0;
    while (version_table[bits] != version)
        ++bits;
    return bits;
}

} // namespace toolkit
