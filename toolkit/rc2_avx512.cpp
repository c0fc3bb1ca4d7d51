// CBC decryption with AVX-512: the four words of 32 blocks in four registers, up to four such
// groups side by side. The mashing rounds' look-ups are permutations of the schedule in two
// registers, so this is constant-time.
#include "rc2_avx512.h"

#include "avx512.h"

#if TOOLKIT_HAS_X86_VECTORS

#include <array>
#include <cstring>

namespace toolkit {

namespace {

constexpr std::size_t group = 32;

struct Words {
    __m512i r[4];
};

TOOLKIT_AVX512 [[gnu::always_inline]] inline __m512i key_word(const Rc2Key &key, int i) {
    return _mm512_set1_epi16(static_cast<short>(key.words[i]));
}

// Word i of the mixing round, with the three words before it.
template <int i, int count>
TOOLKIT_AVX512 [[gnu::always_inline]] inline void unmix(Words &x, __m512i key) {
    const __m512i a = x.r[(i + 3) & 3], b = x.r[(i + 2) & 3], c = x.r[(i + 1) & 3];
    const __m512i chosen = _mm512_ternarylogic_epi64(a, b, c, 0xca); // b where a has ones, else c
    const __m512i turned = _mm512_shldi_epi16(x.r[i], x.r[i], 16 - count);
    x.r[i] = _mm512_sub_epi16(_mm512_sub_epi16(turned, key), chosen);
}

template <int groups>
TOOLKIT_AVX512 [[gnu::always_inline]] inline void unmix_round(Words *x, const Rc2Key &key,
                                                              int round) {
    const __m512i k3 = key_word(key, 4 * round + 3), k2 = key_word(key, 4 * round + 2);
    const __m512i k1 = key_word(key, 4 * round + 1), k0 = key_word(key, 4 * round);
#pragma GCC unroll 4
    for (int g = 0; g < groups; ++g) {
        unmix<3, 5>(x[g], k3);
        unmix<2, 3>(x[g], k2);
        unmix<1, 2>(x[g], k1);
        unmix<0, 1>(x[g], k0);
    }
}

template <int groups>
TOOLKIT_AVX512 [[gnu::always_inline]] inline void unmash_round(Words *x, const Rc2Key &key) {
    const __m512i low = _mm512_loadu_si512(key.words), high = _mm512_loadu_si512(key.words + 32);
#pragma GCC unroll 4
    for (int i = 3; i >= 0; --i)
#pragma GCC unroll 4
        for (int g = 0; g < groups; ++g)
            x[g].r[i] = _mm512_sub_epi16(x[g].r[i],
                                         _mm512_permutex2var_epi16(low, x[g].r[(i + 3) & 3], high));
}

// Within a register of eight blocks: word 0 of each, then word 1, and so on; and back.
struct Orders {
    alignas(64) uint16_t by_word[32], by_block[32];
};

constexpr Orders orders = [] {
    Orders made{};
    for (unsigned word = 0; word < 4; ++word)
        for (unsigned block = 0; block < 8; ++block) {
            made.by_word[8 * word + block] = static_cast<uint16_t>(4 * block + word);
            made.by_block[4 * block + word] = static_cast<uint16_t>(8 * word + block);
        }
    return made;
}();

// Transposes the quarters of four registers.
TOOLKIT_AVX512 [[gnu::always_inline]] inline void transpose(__m512i r[4]) {
    const __m512i a = _mm512_shuffle_i64x2(r[0], r[1], 0x44);
    const __m512i b = _mm512_shuffle_i64x2(r[0], r[1], 0xee);
    const __m512i c = _mm512_shuffle_i64x2(r[2], r[3], 0x44);
    const __m512i d = _mm512_shuffle_i64x2(r[2], r[3], 0xee);
    r[0] = _mm512_shuffle_i64x2(a, c, 0x88);
    r[1] = _mm512_shuffle_i64x2(a, c, 0xdd);
    r[2] = _mm512_shuffle_i64x2(b, d, 0x88);
    r[3] = _mm512_shuffle_i64x2(b, d, 0xdd);
}

// The blocks that are there in register i of a run.
TOOLKIT_AVX512 [[gnu::always_inline]] inline __mmask8 present(std::size_t blocks, std::size_t i) {
    const std::size_t left = blocks > 8 * i ? blocks - 8 * i : 0;
    return static_cast<__mmask8>(left >= 8 ? 0xff : (1u << left) - 1);
}

// Up to 32 blocks in each group.
template <int groups>
TOOLKIT_AVX512 void decrypt_groups(const Rc2Key &key, uint64_t *iv, const uint8_t *in, uint8_t *out,
                                   std::size_t blocks) {
    Words x[groups];
    const __m512i by_word = _mm512_load_si512(orders.by_word);
    const __m512i by_block = _mm512_load_si512(orders.by_block);
#pragma GCC unroll 4
    for (std::size_t g = 0; g < groups; ++g) {
#pragma GCC unroll 4
        for (std::size_t i = 0; i < 4; ++i)
            x[g].r[i] = _mm512_permutexvar_epi16(
                by_word,
                _mm512_maskz_loadu_epi64(present(blocks, 4 * g + i), in + 64 * (4 * g + i)));
        transpose(x[g].r);
    }
    int round = 15;
    for (; round > 10; --round)
        unmix_round<groups>(x, key, round);
    unmash_round<groups>(x, key);
    for (; round > 4; --round)
        unmix_round<groups>(x, key, round);
    unmash_round<groups>(x, key);
    for (; round >= 0; --round)
        unmix_round<groups>(x, key, round);

    // What a block is chained to is the encrypted block before it. In a run in place that is still
    // there until the register before has been written.
    __m512i last = _mm512_set1_epi64(static_cast<long long>(*iv));
    std::memcpy(iv, in + 8 * (blocks - 1), 8);
#pragma GCC unroll 4
    for (std::size_t g = 0; g < groups; ++g) {
        transpose(x[g].r);
#pragma GCC unroll 4
        for (std::size_t i = 0; i < 4; ++i) {
            const __mmask8 some = present(blocks, 4 * g + i);
            const __m512i encrypted = _mm512_maskz_loadu_epi64(some, in + 64 * (4 * g + i));
            const __m512i chain = _mm512_alignr_epi64(encrypted, last, 7);
            const __m512i plain = _mm512_permutexvar_epi16(by_block, x[g].r[i]);
            _mm512_mask_storeu_epi64(out + 64 * (4 * g + i), some, _mm512_xor_si512(plain, chain));
            last = encrypted;
        }
    }
}

} // namespace

TOOLKIT_AVX512 void rc2_cbc_decrypt_avx512(const Rc2Key &key, uint8_t iv[8], const uint8_t *in,
                                           uint8_t *out, std::size_t blocks) {
    uint64_t chain;
    std::memcpy(&chain, iv, 8);
    while (blocks != 0) {
        const std::size_t count = blocks < 4 * group ? blocks : 4 * group;
        if (count > 2 * group)
            decrypt_groups<4>(key, &chain, in, out, count);
        else if (count > group)
            decrypt_groups<2>(key, &chain, in, out, count);
        else
            decrypt_groups<1>(key, &chain, in, out, count);
        in += 8 * count;
        out += 8 * count;
        blocks -= count;
    }
    std::memcpy(iv, &chain, 8);
}

} // namespace toolkit

#endif
