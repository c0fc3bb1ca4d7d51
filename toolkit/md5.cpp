#include <toolkit/md5.h>

#include <bit>
#include <cstring>
#include <string.h>

namespace toolkit {

namespace {

constexpr std::size_t block_size = 64;

uint32_t load_le(const uint8_t *bytes) {
    uint32_t word;
    std::memcpy(&word, bytes, sizeof word);
    if constexpr (std::endian::native == std::endian::big)
        word = __builtin_bswap32(word);
    return word;
}

void store_le(uint8_t *bytes, uint32_t word) {
    if constexpr (std::endian::native == std::endian::big)
        word = __builtin_bswap32(word);
    std::memcpy(bytes, &word, sizeof word);
}

void finish(uint32_t &a, uint32_t b, int shift) {
    a = b + std::rotl(a, shift);
}

void round1(uint32_t &a, uint32_t b, uint32_t c, uint32_t d, uint32_t w, int shift, uint32_t k) {
    a += w + k;
    a += d ^ (b & (c ^ d));
    finish(a, b, shift);
}

// (b & d) | (c & ~d) as a sum: its half without b is ready before b is.
void round2(uint32_t &a, uint32_t b, uint32_t c, uint32_t d, uint32_t w, int shift, uint32_t k) {
    a += w + k + (c & ~d);
    a += b & d;
    finish(a, b, shift);
}

void round3(uint32_t &a, uint32_t b, uint32_t c, uint32_t d, uint32_t w, int shift, uint32_t k) {
    a += w + k;
    a += b ^ (c ^ d);
    finish(a, b, shift);
}

void round4(uint32_t &a, uint32_t b, uint32_t c, uint32_t d, uint32_t w, int shift, uint32_t k) {
    a += w + k;
    a += c ^ (b | ~d);
    finish(a, b, shift);
}

// The steps are one chain of dependent operations, of 5, 4, 4 and 5 each in the four rounds;
// nothing but a, b, c and d goes from block to block.
void take_blocks(uint32_t state[4], const uint8_t *data, std::size_t blocks) {
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
    uint32_t w[16];
    for (; blocks != 0; --blocks, data += block_size) {
        for (int i = 0; i < 16; ++i)
            w[i] = load_le(data + 4 * i);
        const uint32_t a_before = a, b_before = b, c_before = c, d_before = d;

        round1(a, b, c, d, w[0], 7, 0xd76aa478);
        round1(d, a, b, c, w[1], 12, 0xe8c7b756);
        round1(c, d, a, b, w[2], 17, 0x242070db);
        round1(b, c, d, a, w[3], 22, 0xc1bdceee);
        round1(a, b, c, d, w[4], 7, 0xf57c0faf);
        round1(d, a, b, c, w[5], 12, 0x4787c62a);
        round1(c, d, a, b, w[6], 17, 0xa8304613);
        round1(b, c, d, a, w[7], 22, 0xfd469501);
        round1(a, b, c, d, w[8], 7, 0x698098d8);
        round1(d, a, b, c, w[9], 12, 0x8b44f7af);
        round1(c, d, a, b, w[10], 17, 0xffff5bb1);
        round1(b, c, d, a, w[11], 22, 0x895cd7be);
        round1(a, b, c, d, w[12], 7, 0x6b901122);
        round1(d, a, b, c, w[13], 12, 0xfd987193);
        round1(c, d, a, b, w[14], 17, 0xa679438e);
        round1(b, c, d, a, w[15], 22, 0x49b40821);
        round2(a, b, c, d, w[1], 5, 0xf61e2562);
        round2(d, a, b, c, w[6], 9, 0xc040b340);
        round2(c, d, a, b, w[11], 14, 0x265e5a51);
        round2(b, c, d, a, w[0], 20, 0xe9b6c7aa);
        round2(a, b, c, d, w[5], 5, 0xd62f105d);
        round2(d, a, b, c, w[10], 9, 0x02441453);
        round2(c, d, a, b, w[15], 14, 0xd8a1e681);
        round2(b, c, d, a, w[4], 20, 0xe7d3fbc8);
        round2(a, b, c, d, w[9], 5, 0x21e1cde6);
        round2(d, a, b, c, w[14], 9, 0xc33707d6);
        round2(c, d, a, b, w[3], 14, 0xf4d50d87);
        round2(b, c, d, a, w[8], 20, 0x455a14ed);
        round2(a, b, c, d, w[13], 5, 0xa9e3e905);
        round2(d, a, b, c, w[2], 9, 0xfcefa3f8);
        round2(c, d, a, b, w[7], 14, 0x676f02d9);
        round2(b, c, d, a, w[12], 20, 0x8d2a4c8a);
        round3(a, b, c, d, w[5], 4, 0xfffa3942);
        round3(d, a, b, c, w[8], 11, 0x8771f681);
        round3(c, d, a, b, w[11], 16, 0x6d9d6122);
        round3(b, c, d, a, w[14], 23, 0xfde5380c);
        round3(a, b, c, d, w[1], 4, 0xa4beea44);
        round3(d, a, b, c, w[4], 11, 0x4bdecfa9);
        round3(c, d, a, b, w[7], 16, 0xf6bb4b60);
        round3(b, c, d, a, w[10], 23, 0xbebfbc70);
        round3(a, b, c, d, w[13], 4, 0x289b7ec6);
        round3(d, a, b, c, w[0], 11, 0xeaa127fa);
        round3(c, d, a, b, w[3], 16, 0xd4ef3085);
        round3(b, c, d, a, w[6], 23, 0x04881d05);
        round3(a, b, c, d, w[9], 4, 0xd9d4d039);
        round3(d, a, b, c, w[12], 11, 0xe6db99e5);
        round3(c, d, a, b, w[15], 16, 0x1fa27cf8);
        round3(b, c, d, a, w[2], 23, 0xc4ac5665);
        round4(a, b, c, d, w[0], 6, 0xf4292244);
        round4(d, a, b, c, w[7], 10, 0x432aff97);
        round4(c, d, a, b, w[14], 15, 0xab9423a7);
        round4(b, c, d, a, w[5], 21, 0xfc93a039);
        round4(a, b, c, d, w[12], 6, 0x655b59c3);
        round4(d, a, b, c, w[3], 10, 0x8f0ccc92);
        round4(c, d, a, b, w[10], 15, 0xffeff47d);
        round4(b, c, d, a, w[1], 21, 0x85845dd1);
        round4(a, b, c, d, w[8], 6, 0x6fa87e4f);
        round4(d, a, b, c, w[15], 10, 0xfe2ce6e0);
        round4(c, d, a, b, w[6], 15, 0xa3014314);
        round4(b, c, d, a, w[13], 21, 0x4e0811a1);
        round4(a, b, c, d, w[4], 6, 0xf7537e82);
        round4(d, a, b, c, w[11], 10, 0xbd3af235);
        round4(c, d, a, b, w[2], 15, 0x2ad7d2bb);
        round4(b, c, d, a, w[9], 21, 0xeb86d391);

        a += a_before;
        b += b_before;
        c += c_before;
        d += d_before;
    }
    state[0] = a;
    state[1] = b;
    state[2] = c;
    state[3] = d;
    explicit_bzero(w, sizeof w); // a pass phrase or a seed may have gone through
}

} // namespace

void md5_init(Md5 *md5) {
    constexpr uint32_t start[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    std::memcpy(md5->state, start, sizeof start);
    md5->length = 0;
}

void md5_update(Md5 *md5, const uint8_t *data, std::size_t size) {
    if (size == 0)
        return;
    const std::size_t held = md5->length % block_size;
    md5->length += size;
    if (held != 0) {
        const std::size_t room = block_size - held;
        const std::size_t taken = size < room ? size : room;
        std::memcpy(md5->block + held, data, taken);
        data += taken;
        size -= taken;
        if (taken < room)
            return;
        take_blocks(md5->state, md5->block, 1);
    }
    take_blocks(md5->state, data, size / block_size);
    if (size % block_size != 0)
        std::memcpy(md5->block, data + size / block_size * block_size, size % block_size);
}

void md5_final(Md5 *md5, uint8_t *digest) {
    constexpr std::size_t length_at = block_size - 8;
    std::size_t held = md5->length % block_size;
    md5->block[held++] = 0x80;
    if (held > length_at) {
        std::memset(md5->block + held, 0, block_size - held);
        take_blocks(md5->state, md5->block, 1);
        held = 0;
    }
    std::memset(md5->block + held, 0, length_at - held);
    const uint64_t bits = md5->length * 8; // modulo 2^64, as the standard has it
    store_le(md5->block + length_at, static_cast<uint32_t>(bits));
    store_le(md5->block + length_at + 4, static_cast<uint32_t>(bits >> 32));
    take_blocks(md5->state, md5->block, 1);
    for (int i = 0; i < 4; ++i)
        store_le(digest + 4 * i, md5->state[i]);
    explicit_bzero(md5, sizeof *md5);
}

} // namespace toolkit
