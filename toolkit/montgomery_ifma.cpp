// Montgomery arithmetic for x86-64 processors with AVX-512 IFMA, whose 52-bit multiply-add works on
// eight digits at a time: for powers modulo numbers of about 500 to 4100 bits.
//
// Numbers are digits of 52 bits, R = 2^(52 * digits). Instead of m the loop reduces modulo a
// multiple M of it that is -1 modulo 2^52: then the quotient digit is the lowest digit itself, and
// taking M = 2^52 N - 1 times it away is a shift by one digit and N times it added. M has 52 bits
// more than m. With two bits yet to spare (see digits_for) products stay below 2^(bits + 53)
// without a comparison, and the step back to limbs reduces them modulo m.
#include "montgomery.h"

#ifdef TOOLKIT_MULX

#include "montgomery_power.h"
#include "montgomery_x86.h"

#include <immintrin.h>

#if !defined(__clang__)
// What the compiler's own intrinsics leave undefined on purpose.
#pragma GCC diagnostic ignored "-Wuninitialized"
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

namespace toolkit {

using bn::Limb;

namespace {

// GCC before 14 puts vectors at the wrong alignment when the address sanitizer moves them off the
// stack.
#if defined(__SANITIZE_ADDRESS__) && !defined(__clang__)
#define WITH_IFMA __attribute__((target("avx512f,avx512ifma"), no_sanitize("address")))
#else
#define WITH_IFMA __attribute__((target("avx512f,avx512ifma")))
#endif

constexpr std::size_t digit_bits = 52;
constexpr Limb digit_mask = (Limb(1) << digit_bits) - 1;
constexpr std::size_t lanes = 8;
constexpr std::size_t most_vectors = 10;

// R is at least 2^(bits + 54).
std::size_t digits_for(const Modulus &m) {
    return (m.bits + 54 + digit_bits - 1) / digit_bits;
}
std::size_t vectors_for(const Modulus &m) {
    return (digits_for(m) + lanes - 1) / lanes;
}
// Limbs that hold a number's digits.
std::size_t width_for(const Modulus &m) {
    return lanes * vectors_for(m);
}

// Shorter moduli are better served by MULX, longer ones do not fit.
bool serves(const Modulus &m) {
    return m.size >= 8 && vectors_for(m) <= most_vectors;
}

// What a modulus keeps behind R^2 mod m, in digits.
struct Constants {
    const Limb *n, *enter_form, *enter, *leave;

    explicit Constants(const Modulus &m) {
        bn::Pieces pieces{m.r_squared + m.size};
        const std::size_t width = width_for(m);
        n = pieces.take(width);
        enter_form = pieces.take(width); // times this: from Montgomery form of limbs to ours
        enter = pieces.take(width);      // times this: into our Montgomery form
        leave = pieces.take(width);      // times this: out of ours, into that of limbs
    }
};

void to_digits(Limb *digits, std::size_t width, const Limb *a, std::size_t limbs) {
    for (std::size_t i = 0; i < width; ++i) {
        const std::size_t at = i * digit_bits, limb = at / bn::limb_bits,
                          shift = at % bn::limb_bits;
        Limb digit = limb < limbs ? a[limb] >> shift : 0;
        if (shift > bn::limb_bits - digit_bits && limb + 1 < limbs)
            digit |= a[limb + 1] << (bn::limb_bits - shift);
        digits[i] = digit & digit_mask;
    }
}

void from_digits(Limb *a, std::size_t limbs, const Limb *digits, std::size_t width) {
    bn::set_small(a, limbs, 0);
    for (std::size_t i = 0; i < width; ++i) {
        const std::size_t at = i * digit_bits, limb = at / bn::limb_bits,
                          shift = at % bn::limb_bits;
        if (limb < limbs)
            a[limb] |= digits[i] << shift;
        if (shift > bn::limb_bits - digit_bits && limb + 1 < limbs)
            a[limb + 1] |= digits[i] >> (bn::limb_bits - shift);
    }
}

// ---- Products

WITH_IFMA inline __m512i load(const Limb *at) {
    return _mm512_loadu_si512(at);
}

// Carries make each digit 52 bits again. A first pass leaves at most one to carry into each digit;
// where digits of all ones pass carries on is an addition of masks.
template <std::size_t vectors> WITH_IFMA inline void normalise(Limb *out, __m512i *sum) {
    const __m512i mask = _mm512_set1_epi64(digit_mask), zero = _mm512_setzero_si512();
    bn::Wide full = 0, over = 0;
    __m512i below = zero;
    for (std::size_t v = 0; v < vectors; ++v) {
        const __m512i carry = _mm512_srli_epi64(sum[v], digit_bits);
        sum[v] = _mm512_add_epi64(_mm512_and_si512(sum[v], mask),
                                  _mm512_alignr_epi64(carry, below, lanes - 1));
        below = carry;
        over |= bn::Wide{_mm512_cmpgt_epu64_mask(sum[v], mask)} << (lanes * v);
        full |= bn::Wide{_mm512_cmpeq_epi64_mask(sum[v], mask)} << (lanes * v);
    }
    const bn::Wide carried = (over + over + full) ^ full;
    for (std::size_t v = 0; v < vectors; ++v) {
        const auto more = static_cast<__mmask8>(carried >> (lanes * v));
        const __m512i one_more = _mm512_maskz_set1_epi64(more, 1);
        _mm512_storeu_si512(out + lanes * v,
                            _mm512_and_si512(_mm512_add_epi64(sum[v], one_more), mask));
    }
}

// A product's operands; out may be one of them.
struct Product {
    Limb *out;
    const Limb *a, *b, *n;
};

// out = a b / R modulo M, for `count` independent products side by side.
template <std::size_t vectors, std::size_t count>
WITH_IFMA inline void multiply(const Product *products, std::size_t digits) {
    const __m512i zero = _mm512_setzero_si512();
    __m512i a[count][vectors], n[count][vectors], sum[count][vectors], quotient[count];
    for (std::size_t i = 0; i < count; ++i) {
        const __m512i first = _mm512_set1_epi64(static_cast<long long>(products[i].b[0]));
        quotient[i] = zero;
#pragma GCC unroll 10
        for (std::size_t v = 0; v < vectors; ++v) {
            a[i][v] = load(products[i].a + lanes * v);
            n[i][v] = load(products[i].n + lanes * v);
            sum[i][v] = _mm512_madd52lo_epu64(zero, a[i][v], first);
        }
    }
    for (std::size_t digit = 0; digit < digits; ++digit) {
#pragma GCC unroll 2
        for (std::size_t i = 0; i < count; ++i) {
            const Limb *const b = products[i].b + digit;
            const __m512i factor = _mm512_set1_epi64(static_cast<long long>(b[0]));
            // Past the last digit there is none, but the shift.
            const __m512i next =
                digit + 1 < digits ? _mm512_set1_epi64(static_cast<long long>(b[1])) : zero;
            const __m512i before = quotient[i];
            quotient[i] = _mm512_broadcastq_epi64(_mm512_castsi512_si128(sum[i][0]));
            __m512i carry = _mm512_maskz_srli_epi64(1, sum[i][0], digit_bits);
#pragma GCC unroll 10
            for (std::size_t v = 0; v < vectors; ++v) {
                // High halves, the quotient's from the digit before: their places are one up.
                __m512i high = _mm512_madd52hi_epu64(zero, a[i][v], factor);
                high = _mm512_madd52hi_epu64(high, n[i][v], before);
                if (v == 0)
                    high = _mm512_add_epi64(high, carry);
                __m512i shifted =
                    _mm512_alignr_epi64(v + 1 < vectors ? sum[i][v + 1] : zero, sum[i][v], 1);
                shifted = _mm512_madd52lo_epu64(shifted, a[i][v], next);
                sum[i][v] =
                    _mm512_add_epi64(shifted, _mm512_madd52lo_epu64(high, n[i][v], quotient[i]));
            }
        }
    }
    for (std::size_t i = 0; i < count; ++i) {
        __m512i below = zero;
        for (std::size_t v = 0; v < vectors; ++v) {
            const __m512i high = _mm512_madd52hi_epu64(zero, n[i][v], quotient[i]);
            sum[i][v] = _mm512_add_epi64(sum[i][v], _mm512_alignr_epi64(high, below, lanes - 1));
            below = high;
        }
        normalise<vectors>(products[i].out, sum[i]);
    }
}

// ---- Powers

// out = table[index], reading every entry.
template <std::size_t vectors>
WITH_IFMA void read(Limb *out, const Limb *table, std::size_t entries, Limb index) {
    const __m512i wanted = _mm512_set1_epi64(static_cast<long long>(index));
    const __m512i one = _mm512_set1_epi64(1), ones = _mm512_set1_epi64(-1);
    __m512i entry = _mm512_setzero_si512(), sum[vectors] = {};
    for (std::size_t each = 0; each < entries; ++each, table += lanes * vectors) {
        const __m512i mask = _mm512_maskz_mov_epi64(_mm512_cmpeq_epi64_mask(entry, wanted), ones);
#pragma GCC unroll 10
        for (std::size_t v = 0; v < vectors; ++v)
            sum[v] = _mm512_or_si512(sum[v], _mm512_and_si512(mask, load(table + lanes * v)));
        entry = _mm512_add_epi64(entry, one);
    }
    for (std::size_t v = 0; v < vectors; ++v)
        _mm512_storeu_si512(out + lanes * v, sum[v]);
}

// value (digits, times R of limbs) to limbs below m. scratch: 2 * size + 2 limbs.
void leave_digits(Limb *out, const Limb *value, const Modulus &m, Limb *scratch) {
    from_digits(scratch, 2 * m.size, value, width_for(m));
    mulx_reduce(out, scratch, m);
}

template <std::size_t vectors, std::size_t count>
WITH_IFMA void window_power(const Power *jobs, Limb *scratch) {
    constexpr std::size_t width = lanes * vectors;
    const std::size_t exponent_bits = jobs[0].exponent_bits;
    const std::size_t digits = digits_for(*jobs[0].modulus);
    const unsigned window = window_width(exponent_bits);
    const std::size_t entries = std::size_t{1} << window;
    Limb *table[count], *factor[count], *power[count];
    Product by_base[count], square[count], by_factor[count];
    bn::Pieces pieces{scratch};
    for (std::size_t i = 0; i < count; ++i) {
        const Modulus &m = *jobs[i].modulus;
        const Constants constants(m);
        table[i] = pieces.take(entries * width);
        factor[i] = pieces.take(width);
        power[i] = pieces.take(width);
        // Entries 0 and 1: the forms of 1 and of the base.
        bn::set_small(factor[i], width, 1);
        to_digits(power[i], width, jobs[i].base, m.size);
        const Product one = {table[i], factor[i], constants.enter, constants.n};
        const Product base = {table[i] + width, power[i], constants.enter_form, constants.n};
        multiply<vectors, 1>(&one, digits);
        multiply<vectors, 1>(&base, digits);
        square[i] = {power[i], power[i], power[i], constants.n};
        by_factor[i] = {power[i], power[i], factor[i], constants.n};
    }
    for (std::size_t entry = 2; entry < entries; ++entry) {
        for (std::size_t i = 0; i < count; ++i) {
            Limb *const out = table[i] + entry * width;
            by_base[i] = {out, out - width, table[i] + width, square[i].n};
        }
        multiply<vectors, count>(by_base, digits);
    }
    std::size_t at = (exponent_bits - 1) / window * window;
    for (std::size_t i = 0; i < count; ++i)
        read<vectors>(power[i], table[i], entries,
                      window_at(jobs[i].exponent, exponent_bits, at, window));
    while (at > 0) {
        at -= window;
        for (unsigned each = 0; each < window; ++each)
            multiply<vectors, count>(square, digits);
        for (std::size_t i = 0; i < count; ++i)
            read<vectors>(factor[i], table[i], entries,
                          window_at(jobs[i].exponent, exponent_bits, at, window));
        multiply<vectors, count>(by_factor, digits);
    }
    for (std::size_t i = 0; i < count; ++i) {
        const Modulus &m = *jobs[i].modulus;
        to_digits(factor[i], width, m.r_squared, m.size);
        multiply<vectors, 1>(&by_factor[i], digits);
        leave_digits(jobs[i].result, power[i], m, pieces.next);
    }
}

template <std::size_t vectors>
WITH_IFMA void public_power_of(Limb *out, const Limb *base, const Limb *exponent,
                               std::size_t exponent_bits, const Modulus &m, Limb *scratch) {
    constexpr std::size_t width = lanes * vectors;
    const std::size_t digits = digits_for(m);
    const Constants constants(m);
    bn::Pieces pieces{scratch};
    Limb *const power = pieces.take(width), *const entered = pieces.take(width);
    to_digits(power, width, base, m.size);
    const Product enter = {entered, power, constants.enter, constants.n};
    const Product square = {power, power, power, constants.n};
    const Product by_base = {power, power, entered, constants.n};
    const Product leave = {power, power, constants.leave, constants.n};
    multiply<vectors, 1>(&enter, digits);
    bn::copy(power, entered, width);
    for (std::size_t at = exponent_bits - 1; at-- > 0;) {
        multiply<vectors, 1>(&square, digits);
        if (bn::bit(exponent, at))
            multiply<vectors, 1>(&by_base, digits);
    }
    multiply<vectors, 1>(&leave, digits);
    leave_digits(out, power, m, pieces.next);
}

// ---- By size

using WindowPower = void (*)(const Power *, Limb *);
using PublicPower = void (*)(Limb *, const Limb *, const Limb *, std::size_t, const Modulus &,
                             Limb *);

// Rows by the number of vectors. Beyond four, one product keeps the multipliers busy by itself.
constexpr struct {
    WindowPower one, two;
    PublicPower open;
} by_vectors[most_vectors + 1] = {
    {nullptr, nullptr, nullptr},
    {window_power<1, 1>, window_power<1, 2>, public_power_of<1>},
    {window_power<2, 1>, window_power<2, 2>, public_power_of<2>},
    {window_power<3, 1>, window_power<3, 2>, public_power_of<3>},
    {window_power<4, 1>, window_power<4, 2>, public_power_of<4>},
    {window_power<5, 1>, nullptr, public_power_of<5>},
    {window_power<6, 1>, nullptr, public_power_of<6>},
    {window_power<7, 1>, nullptr, public_power_of<7>},
    {window_power<8, 1>, nullptr, public_power_of<8>},
    {window_power<9, 1>, nullptr, public_power_of<9>},
    {window_power<10, 1>, nullptr, public_power_of<10>},
};

bool side_by_side(const Power *jobs, std::size_t count) {
    return in_step(jobs, count) && digits_for(*jobs[0].modulus) == digits_for(*jobs[1].modulus) &&
           by_vectors[vectors_for(*jobs[0].modulus)].two != nullptr;
}

std::size_t power_scratch(const Power *jobs, std::size_t count) {
    std::size_t most = fixed_window_scratch(jobs, count);
    for (std::size_t i = 0; i < count; ++i) {
        const Modulus &m = *jobs[i].modulus;
        const std::size_t entries = std::size_t{1} << window_width(jobs[i].exponent_bits);
        const std::size_t needed = count * (entries + 2) * width_for(m) + product_scratch(m.size);
        most = needed > most ? needed : most;
    }
    return most;
}

void power(const Power *jobs, std::size_t count, Limb *scratch) {
    bool served = true;
    for (std::size_t i = 0; i < count; ++i)
        served = served && serves(*jobs[i].modulus);
    const bool together = served && side_by_side(jobs, count);
    // Alone, a power of eight limbs waits too long for its digits.
    if (!served || (!together && jobs[0].modulus->size == 8))
        return mulx_power(jobs, count, scratch);
    if (together)
        return by_vectors[vectors_for(*jobs[0].modulus)].two(jobs, scratch);
    for (std::size_t i = 0; i < count; ++i)
        by_vectors[vectors_for(*jobs[i].modulus)].one(jobs + i, scratch);
}

bool serves_public(const Modulus &m) {
    return serves(m) && m.size > 8;
}

std::size_t public_power_scratch(const Modulus &m) {
    return serves_public(m) ? 2 * width_for(m) + product_scratch(m.size)
                            : limb_public_power_scratch(m);
}

void public_power(Limb *out, const Limb *base, const Limb *exponent, std::size_t exponent_bits,
                  const Modulus &m, Limb *scratch) {
    if (!serves_public(m))
        return limb_public_power(out, base, exponent, exponent_bits, m, scratch);
    by_vectors[vectors_for(m)].open(out, base, exponent, exponent_bits, m, scratch);
}

std::size_t constants_size(std::size_t size, std::size_t bits) {
    const Modulus m = {nullptr, size, bits, 0, nullptr, nullptr};
    return serves(m) ? size + 4 * width_for(m) : size;
}

void prepare(Modulus *modulus, Limb *scratch) {
    const Modulus &m = *modulus;
    if (!serves(m))
        return;
    const Constants constants(m);
    const std::size_t width = width_for(m);
    bn::Pieces pieces{scratch};
    Limb *const value = pieces.take(m.size + 1);
    // N = (M + 1) / 2^52 for M = m (-1 / m mod 2^52).
    value[m.size] = bn::multiply_small(value, m.m, m.size, m.negative_inverse & digit_mask);
    bn::add_small(value, m.size + 1, 1);
    bn::shift_right(value, m.size + 1, digit_bits);
    to_digits(const_cast<Limb *>(constants.n), width, value, m.size + 1);
    // With L the R of limbs: L, then R^2 / L, then R^2.
    Limb *const one = pieces.take(m.size);
    montgomery_one(one, m, pieces.next);
    to_digits(const_cast<Limb *>(constants.leave), width, one, m.size);
    const std::size_t l_bits = bn::limb_bits * m.size, r_bits = digit_bits * digits_for(m);
    const bool above = r_bits >= l_bits;
    const std::size_t place = above ? 2 * (r_bits - l_bits) : 2 * r_bits - l_bits;
    bn::set_small(value, m.size, 0);
    value[place / bn::limb_bits] = Limb(1) << place % bn::limb_bits;
    mulx_multiply(value, value, above ? m.r_squared : one, m, pieces.next);
    to_digits(const_cast<Limb *>(constants.enter_form), width, value, m.size);
    mulx_multiply(value, value, m.r_squared, m, pieces.next);
    to_digits(const_cast<Limb *>(constants.enter), width, value, m.size);
}

bool works_here() {
    return mulx_arithmetic.works_here() && x86_has(x86_avx512f | x86_avx512ifma);
}

} // namespace

const Arithmetic ifma_arithmetic = {
    "ifma",  works_here,           mulx_padded_size, constants_size,
    prepare, mulx_multiply,        mulx_square,      power_scratch,
    power,   public_power_scratch, public_power,
};

} // namespace toolkit

#endif
