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

// A word of each of two blocks that are taken side by side.
struct Pair {
    uint32_t first, second;

    Pair() = default;
    Pair(uint32_t left, uint32_t right) : first(left), second(right) {}
    explicit(false) Pair(uint32_t both) : first(both), second(both) {}
    Pair &operator+=(Pair other) { return *this = *this + other; }

    friend Pair operator+(Pair a, Pair b) { return {a.first + b.first, a.second + b.second}; }
    friend Pair operator&(Pair a, Pair b) { return {a.first & b.first, a.second & b.second}; }
    friend Pair operator|(Pair a, Pair b) { return {a.first | b.first, a.second | b.second}; }
    friend Pair operator^(Pair a, Pair b) { return {a.first ^ b.first, a.second ^ b.second}; }
    friend Pair operator~(Pair a) { return {~a.first, ~a.second}; }
};

uint32_t rotate(uint32_t word, int shift) {
    return std::rotl(word, shift);
}

Pair rotate(Pair pair, int shift) {
    return {std::rotl(pair.first, shift), std::rotl(pair.second, shift)};
}

template <class Word> void finish(Word &a, Word b, int shift) {
    a = b + rotate(a, shift);
}

template <class Word> void round1(Word &a, Word b, Word c, Word d, Word w, int shift, uint32_t k) {
    a += w + k;
    a += d ^ (b & (c ^ d));
    finish(a, b, shift);
}

// (b & d) | (c & ~d) as a sum: its half without b is ready before b is.
template <class Word> void round2(Word &a, Word b, Word c, Word d, Word w, int shift, uint32_t k) {
    a += w + k + (c & ~d);
    a += b & d;
    finish(a, b, shift);
}

template <class Word> void round3(Word &a, Word b, Word c, Word d, Word w, int shift, uint32_t k) {
    a += w + k;
    a += b ^ (c ^ d);
    finish(a, b, shift);
}

template <class Word> void round4(Word &a, Word b, Word c, Word d, Word w, int shift, uint32_t k) {
    a += w + k;
    a += c ^ (b | ~d);
    finish(a, b, shift);
}

// The steps are one chain of dependent operations, of 5, 4, 4 and 5 each in the four rounds.
template <class Word>
[[gnu::always_inline]] inline void take_words(Word &a, Word &b, Word &c, Word &d,
                                              const Word w[16]) {
    const Word a_before = a, b_before = b, c_before = c, d_before = d;

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

// Nothing but a, b, c and d goes from block to block.
void take_blocks(uint32_t state[4], const uint8_t *data, std::size_t blocks) {
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
    uint32_t w[16];
    for (; blocks != 0; --blocks, data += block_size) {
        for (int i = 0; i < 16; ++i)
            w[i] = load_le(data + 4 * i);
        take_words(a, b, c, d, w);
    }
    state[0] = a;
    state[1] = b;
    state[2] = c;
    state[3] = d;
    explicit_bzero(w, sizeof w); // a pass phrase or a seed may have gone through
}

constexpr uint32_t start[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
constexpr std::size_t length_at = block_size - 8; // of the length in the last block

void digest_of_two(const uint8_t *data, std::size_t size, const uint8_t *tail,
                   std::size_t tail_size, uint8_t *digest) {
    Md5 md5;
    md5_init(&md5);
    md5_update(&md5, data, size);
    md5_update(&md5, tail, tail_size);
    md5_final(&md5, digest);
}

// Both chains go on, where a digest and the tail fill one block: of that block only the digest's
// four words change, and they need not become bytes in between.
void iterate_in_one_block(uint8_t *digests, const uint8_t *tail, std::size_t tail_size,
                          uint32_t count) {
    uint8_t block[block_size] = {};
    std::size_t held = md5_digest_size;
    for (std::size_t i = 0; i < tail_size; ++i)
        block[held++] = tail[i];
    block[held] = 0x80;
    store_le(block + length_at, static_cast<uint32_t>(held * 8));

    Pair w[16];
    for (int i = 0; i < 4; ++i)
        w[i] = {load_le(digests + 4 * i), load_le(digests + md5_digest_size + 4 * i)};
    for (int i = 4; i < 16; ++i)
        w[i] = load_le(block + 4 * i);
    for (; count != 0; --count) {
        Pair a = start[0], b = start[1], c = start[2], d = start[3];
        take_words(a, b, c, d, w);
        w[0] = a;
        w[1] = b;
        w[2] = c;
        w[3] = d;
    }
    for (int i = 0; i < 4; ++i) {
        store_le(digests + 4 * i, w[i].first);
        store_le(digests + md5_digest_size + 4 * i, w[i].second);
    }
    explicit_bzero(w, sizeof w);
    explicit_bzero(block, sizeof block);
}

} // namespace

void md5_init(Md5 *md5) {
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

void md5_chains(const uint8_t *starts, std::size_t start_size, const uint8_t *tail,
                std::size_t tail_size, uint32_t count, uint8_t *digests) {
    uint8_t *const second = digests + md5_digest_size;
    digest_of_two(starts, start_size, tail, tail_size, digests);
    digest_of_two(starts + start_size, start_size, tail, tail_size, second);
    if (md5_digest_size + tail_size < length_at) {
        iterate_in_one_block(digests, tail, tail_size, count - 1);
        return;
    }
    for (uint32_t i = 1; i < count; ++i) {
        digest_of_two(digests, md5_digest_size, tail, tail_size, digests);
        digest_of_two(second, md5_digest_size, tail, tail_size, second);
    }
}

} // namespace toolkit
