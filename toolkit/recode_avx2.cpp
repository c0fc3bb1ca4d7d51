// Base 64 with AVX2: characters by ranges, since its shuffles look up sixteen values only. The
// method is that of W. Mula and D. Lemire, "Faster Base64 Encoding and Decoding Using AVX2
// Instructions".
#include "recode_groups.h"

#if TOOLKIT_HAS_X86_VECTORS

#include <immintrin.h>

namespace toolkit {

namespace {

// Both halves of a vector alike.
#define BOTH(...) _mm256_setr_epi8(__VA_ARGS__, __VA_ARGS__)

// Half bytes h and l make a character h l outside the alphabet exactly when a class of h is one of
// l.
struct Classes {
    alignas(16) uint8_t of_high[16], of_low[16];
};

constexpr bool in_alphabet(unsigned c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
           c == '/';
}

// High halves that go with the same low halves share a class: there are five.
constexpr Classes classes = [] {
    Classes table{};
    unsigned rows[16] = {}, count = 0;
    for (unsigned high = 0; high < 16; ++high) {
        unsigned refused = 0;
        for (unsigned low = 0; low < 16; ++low)
            refused |= static_cast<unsigned>(!in_alphabet(16 * high + low)) << low;
        unsigned row = 0;
        while (row < count && rows[row] != refused)
            ++row;
        if (row == count)
            rows[count++] = refused;
        table.of_high[high] = static_cast<uint8_t>(1 << row);
        for (unsigned low = 0; low < 16; ++low)
            table.of_low[low] |= static_cast<uint8_t>((refused >> low & 1) << row);
    }
    return table;
}();

TOOLKIT_AVX2 __m256i both(const uint8_t half[16]) {
    return _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i *>(half)));
}

// Six bits to their character: what is added depends on the range alone. Ranges get numbers: 26..51
// is 0, 52..61 are 1..10, 62 is 11, 63 is 12, 0..25 is 13.
TOOLKIT_AVX2 __m256i letters(__m256i sixes) {
    const __m256i above = _mm256_subs_epu8(sixes, _mm256_set1_epi8(51));
    const __m256i capital = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), sixes);
    const __m256i range = _mm256_or_si256(above, _mm256_and_si256(capital, _mm256_set1_epi8(13)));
    const __m256i offsets =
        BOTH('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
             '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
    return _mm256_add_epi8(sixes, _mm256_shuffle_epi8(offsets, range));
}

} // namespace

TOOLKIT_AVX2 std::size_t recode_encode_avx2(uint8_t *out, const uint8_t *in, std::size_t size) {
    const __m256i spread = BOTH(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10);
    std::size_t done = 0;
    for (; size - done >= 28; done += 24, out += 32) { // the second load takes four bytes too many
        const __m128i front = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + done));
        const __m128i back = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + done + 12));
        const __m256i words = _mm256_shuffle_epi8(_mm256_set_m128i(back, front), spread);
        // The first and third six bits move down, the second and fourth up, each by a product.
        const __m256i odd = _mm256_mulhi_epu16(
            _mm256_and_si256(words, _mm256_set1_epi32(0x0fc0fc00)), _mm256_set1_epi32(0x04000040));
        const __m256i even = _mm256_mullo_epi16(
            _mm256_and_si256(words, _mm256_set1_epi32(0x003f03f0)), _mm256_set1_epi32(0x01000010));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), letters(_mm256_or_si256(odd, even)));
    }
    return done + recode_encode_portable(out, in + done, size - done);
}

TOOLKIT_AVX2 std::size_t recode_decode_avx2(uint8_t *out, const uint8_t *in, std::size_t size) {
    const __m256i low_classes = both(classes.of_low), high_classes = both(classes.of_high);
    // What to add, by the high half, which '/' counts as one less.
    const __m256i offsets = BOTH(0, 63 - '/', 62 - '+', 52 - '0', -'A', -'A', 26 - 'a', 26 - 'a', 0,
                                 0, 0, 0, 0, 0, 0, 0);
    const __m256i packed = BOTH(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
    std::size_t done = 0;
    for (; size - done >= 48; done += 32, out += 24) { // eight bytes too many are written
        const __m256i characters = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(in + done));
        const __m256i high =
            _mm256_and_si256(_mm256_srli_epi32(characters, 4), _mm256_set1_epi8(0x0f));
        const __m256i low = _mm256_and_si256(characters, _mm256_set1_epi8(0x0f));
        if (!_mm256_testz_si256(_mm256_shuffle_epi8(low_classes, low),
                                _mm256_shuffle_epi8(high_classes, high)))
            break;
        const __m256i slash = _mm256_cmpeq_epi8(characters, _mm256_set1_epi8('/'));
        const __m256i sixes =
            _mm256_add_epi8(characters, _mm256_shuffle_epi8(offsets, _mm256_add_epi8(high, slash)));
        const __m256i twelves = _mm256_maddubs_epi16(sixes, _mm256_set1_epi32(0x01400140));
        const __m256i groups = _mm256_madd_epi16(twelves, _mm256_set1_epi32(0x00011000));
        const __m256i bytes = _mm256_permutevar8x32_epi32(
            _mm256_shuffle_epi8(groups, packed), _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), bytes);
    }
    return done + recode_decode_portable(out, in + done, size - done);
}

} // namespace toolkit

#endif
