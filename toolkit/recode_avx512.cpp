// Base 64 with AVX-512: the alphabet and its inverse are tables in registers, as in W. Mula and
// D. Lemire, "Base64 encoding and decoding at almost the speed of a memory copy".
#include "avx512.h"
#include "recode_groups.h"

#if TOOLKIT_HAS_X86_VECTORS

#include <array>

namespace toolkit {

namespace {

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr uint8_t bad = 0x80;

constexpr auto values = [] {
    std::array<uint8_t, 128> table{};
    table.fill(bad);
    for (uint8_t i = 0; i < 64; ++i)
        table[static_cast<uint8_t>(alphabet[i])] = i;
    return table;
}();

// A group of three bytes becomes the four bytes 1 0 2 1: every six bits then lie within a word.
constexpr auto spread = [] {
    std::array<uint8_t, 64> order{};
    for (uint8_t group = 0; group < 16; ++group) {
        const uint8_t places[4] = {1, 0, 2, 1};
        for (uint8_t i = 0; i < 4; ++i)
            order[4 * group + i] = static_cast<uint8_t>(3 * group + places[i]);
    }
    return order;
}();

// Three bytes of each group of four, the most significant first.
constexpr auto packed = [] {
    std::array<uint8_t, 64> order{};
    for (uint8_t group = 0; group < 16; ++group)
        for (uint8_t i = 0; i < 3; ++i)
            order[3 * group + i] = static_cast<uint8_t>(4 * group + 2 - i);
    return order;
}();

TOOLKIT_AVX512 __mmask64 first(std::size_t count) {
    return count >= 64 ? ~__mmask64{0} : (__mmask64{1} << count) - 1;
}

} // namespace

TOOLKIT_AVX512 std::size_t recode_encode_avx512(uint8_t *out, const uint8_t *in, std::size_t size) {
    const __m512i order = _mm512_loadu_si512(spread.data());
    const __m512i letters = _mm512_loadu_si512(alphabet);
    // Where each character's six bits begin, in the two groups of a word.
    const __m512i shifts = _mm512_set1_epi64(0x3036242a1016040a);
    const std::size_t whole = size / 3 * 3;
    for (std::size_t done = 0; done < whole; done += 48, out += 64) {
        const std::size_t count = whole - done < 48 ? whole - done : 48;
        const __m512i bytes = _mm512_maskz_loadu_epi8(first(count), in + done);
        const __m512i sixes =
            _mm512_multishift_epi64_epi8(shifts, _mm512_permutexvar_epi8(order, bytes));
        _mm512_mask_storeu_epi8(out, first(count / 3 * 4), _mm512_permutexvar_epi8(sixes, letters));
    }
    return whole;
}

TOOLKIT_AVX512 std::size_t recode_decode_avx512(uint8_t *out, const uint8_t *in, std::size_t size) {
    const __m512i low = _mm512_loadu_si512(values.data());
    const __m512i high = _mm512_loadu_si512(values.data() + 64);
    const __m512i order = _mm512_loadu_si512(packed.data());
    const std::size_t whole = size / 4 * 4;
    std::size_t done = 0;
    while (done < whole) {
        std::size_t count = whole - done < 64 ? whole - done : 64;
        const __mmask64 wanted = first(count);
        const __m512i characters = _mm512_maskz_loadu_epi8(wanted, in + done);
        const __m512i sixes = _mm512_permutex2var_epi8(low, characters, high);
        const __mmask64 refused = _mm512_mask_test_epi8_mask(
            wanted, _mm512_or_si512(sixes, characters), _mm512_set1_epi8(static_cast<char>(bad)));
        if (refused != 0)
            count = static_cast<std::size_t>(__builtin_ctzll(refused)) / 4 * 4;
        const __m512i twelves = _mm512_maddubs_epi16(sixes, _mm512_set1_epi32(0x01400140));
        const __m512i groups = _mm512_madd_epi16(twelves, _mm512_set1_epi32(0x00011000));
        _mm512_mask_storeu_epi8(out, first(count / 4 * 3), _mm512_permutexvar_epi8(order, groups));
        out += count / 4 * 3;
        done += count;
        if (refused != 0)
            break;
    }
    return done;
}

} // namespace toolkit

#endif
