// Big-number arithmetic: Knuth, The Art of Computer Programming 2, 4.3.1, without branches on data.
#include "bignum.h"

namespace toolkit::bn {

bool load(Limb *out, std::size_t count, const uint8_t *octets, std::size_t size) {
    set_small(out, count, 0);
    Limb beyond = 0;
    for (std::size_t i = 0; i < size; ++i) {
        const Limb octet = octets[size - 1 - i];
        if (i < count * limb_bytes)
            out[i / limb_bytes] |= octet << (8 * (i % limb_bytes));
        else
            beyond |= octet;
    }
    return beyond == 0;
}

void store(uint8_t *octets, std::size_t size, const Limb *a, std::size_t count) {
    for (std::size_t i = 0; i < size; ++i)
        octets[size - 1 - i] =
            i < count * limb_bytes
                ? static_cast<uint8_t>(a[i / limb_bytes] >> (8 * (i % limb_bytes)))
                : uint8_t{0};
}

Limb is_zero(const Limb *a, std::size_t count) {
    Limb any = 0;
    for (std::size_t i = 0; i < count; ++i)
        any |= a[i];
    return mask_if_zero(any);
}

Limb is_equal(const Limb *a, const Limb *b, std::size_t count) {
    Limb different = 0;
    for (std::size_t i = 0; i < count; ++i)
        different |= a[i] ^ b[i];
    return mask_if_zero(different);
}

Limb is_less(const Limb *a, const Limb *b, std::size_t count) {
    Limb borrow = 0;
    for (std::size_t i = 0; i < count; ++i)
        borrow = static_cast<Limb>((Wide{a[i]} - b[i] - borrow) >> limb_bits) & 1;
    return mask_of_bit(borrow);
}

void select(Limb *out, Limb mask, const Limb *yes, const Limb *no, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i)
        out[i] = choose(mask, yes[i], no[i]);
}

void swap_if(Limb mask, Limb *a, Limb *b, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
        const Limb change = (a[i] ^ b[i]) & mask;
        a[i] ^= change;
        b[i] ^= change;
    }
}

std::size_t length_in_bits(const Limb *a, std::size_t count) {
    while (count > 0 && a[count - 1] == 0)
        --count;
    std::size_t bits = count * limb_bits;
    while (bits > 0 && bit(a, bits - 1) == 0)
        --bits;
    return bits;
}

void set_small(Limb *out, std::size_t count, Limb value) {
    memset(out, 0, count * limb_bytes);
    if (count != 0)
        out[0] = value;
}

Limb add(Limb *out, const Limb *a, const Limb *b, std::size_t count) {
    Wide sum = 0;
    for (std::size_t i = 0; i < count; ++i) {
        sum += Wide{a[i]} + b[i];
        out[i] = static_cast<Limb>(sum);
        sum >>= limb_bits;
    }
    return static_cast<Limb>(sum);
}

Limb subtract(Limb *out, const Limb *a, const Limb *b, std::size_t count) {
    Limb borrow = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const Wide difference = Wide{a[i]} - b[i] - borrow;
        out[i] = static_cast<Limb>(difference);
        borrow = static_cast<Limb>(difference >> limb_bits) & 1;
    }
    return borrow;
}

Limb add_if(Limb mask, Limb *out, const Limb *a, const Limb *b, std::size_t count) {
    Wide sum = 0;
    for (std::size_t i = 0; i < count; ++i) {
        sum += Wide{a[i]} + (b[i] & mask);
        out[i] = static_cast<Limb>(sum);
        sum >>= limb_bits;
    }
    return static_cast<Limb>(sum);
}

Limb subtract_if(Limb mask, Limb *out, const Limb *a, const Limb *b, std::size_t count) {
    Limb borrow = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const Wide difference = Wide{a[i]} - (b[i] & mask) - borrow;
        out[i] = static_cast<Limb>(difference);
        borrow = static_cast<Limb>(difference >> limb_bits) & 1;
    }
    return borrow;
}

Limb add_small(Limb *a, std::size_t count, Limb value) {
    for (std::size_t i = 0; i < count; ++i) {
        const Wide sum = Wide{a[i]} + value;
        a[i] = static_cast<Limb>(sum);
        value = static_cast<Limb>(sum >> limb_bits);
    }
    return value;
}

Limb subtract_small(Limb *a, std::size_t count, Limb value) {
    for (std::size_t i = 0; i < count; ++i) {
        const Wide difference = Wide{a[i]} - value;
        a[i] = static_cast<Limb>(difference);
        value = static_cast<Limb>(difference >> limb_bits) & 1;
    }
    return value;
}

Limb multiply_small(Limb *out, const Limb *a, std::size_t count, Limb factor) {
    Limb carry = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const Wide product = Wide{a[i]} * factor + carry;
        out[i] = static_cast<Limb>(product);
        carry = static_cast<Limb>(product >> limb_bits);
    }
    return carry;
}

Limb multiply_add(Limb *out, const Limb *a, std::size_t count, Limb factor) {
    Limb carry = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const Wide product = Wide{a[i]} * factor + out[i] + carry;
        out[i] = static_cast<Limb>(product);
        carry = static_cast<Limb>(product >> limb_bits);
    }
    return carry;
}

void multiply(Limb *out, const Limb *a, std::size_t a_count, const Limb *b, std::size_t b_count) {
    out[a_count] = multiply_small(out, a, a_count, b[0]);
    for (std::size_t i = 1; i < b_count; ++i)
        out[a_count + i] = multiply_add(out + i, a, a_count, b[i]);
}

void multiply_low(Limb *out, const Limb *a, const Limb *b, std::size_t count) {
    multiply_small(out, a, count, b[0]);
    for (std::size_t i = 1; i < count; ++i)
        multiply_add(out + i, a, count - i, b[i]);
}

void shift_right(Limb *a, std::size_t count, unsigned shift) {
    for (std::size_t i = 0; i < count; ++i) {
        const Limb above = i + 1 < count ? a[i + 1] : 0;
        a[i] = a[i] >> shift | above << (limb_bits - shift);
    }
}

void add_modulo(Limb *out, const Limb *a, const Limb *b, const Limb *m, std::size_t count) {
    const Limb carry = add(out, a, b, count);
    const Limb below = is_less(out, m, count);
    subtract_if(~below | mask_of_bit(carry), out, out, m, count);
}

void subtract_modulo(Limb *out, const Limb *a, const Limb *b, const Limb *m, std::size_t count) {
    const Limb borrow = subtract(out, a, b, count);
    add_if(mask_of_bit(borrow), out, out, m, count);
}

void remainder_small_quotient(Limb *a, const Limb *m, std::size_t count, unsigned quotient_bits,
                              Limb *scratch) {
    for (unsigned shift = quotient_bits; shift-- > 0;) {
        for (std::size_t i = 0; i <= count; ++i) {
            const Limb low = i > 0 && shift > 0 ? m[i - 1] >> (limb_bits - shift) : 0;
            scratch[i] = low | (i < count ? m[i] << shift : 0);
        }
        subtract_if(~is_less(a, scratch, count + 1), a, a, scratch, count + 1);
    }
}

void remainder(Limb *out, const Limb *m, std::size_t count, const uint8_t *octets,
               std::size_t size) {
    set_small(out, count, 0);
    for (std::size_t i = 0; i < 8 * size; ++i) {
        const Limb carry = add(out, out, out, count);
        out[0] |= octets[i / 8] >> (7 - i % 8) & 1;
        subtract_if(~is_less(out, m, count) | mask_of_bit(carry), out, out, m, count);
    }
}

void inverse_of_power_of_two(Limb *out, const Limb *odd, std::size_t count, Limb *scratch) {
    set_small(out, count, inverse_of_limb(odd[0]));
    for (std::size_t known = 1; known < count;) {
        // Newton: out * (2 - odd * out) is right in twice as many limbs.
        known = 2 * known < count ? 2 * known : count;
        multiply_low(scratch, odd, out, known);
        for (std::size_t i = 0; i < known; ++i)
            scratch[i] = ~scratch[i]; // -x - 1
        add_small(scratch, known, 3);
        multiply_low(scratch + count, out, scratch, known);
        copy(out, scratch + count, known);
    }
}

// ---- Inversion

namespace {

// f, g, d, e are signed numbers of digits of digit_bits bits; all digits but the top one are
// non-negative.
constexpr unsigned digit_bits = limb_bits - 2;
constexpr Limb digit_mask = (Limb(1) << digit_bits) - 1;

// After digit_bits division steps: (f, g) becomes (u f + v g, q f + r g) / 2^digit_bits.
struct Steps {
    SignedLimb u, v, q, r;
};

// digit_bits division steps on the low limbs of f and g. delta counts halves: this is the variant
// that starts at delta = 1/2 and needs fewer steps.
SignedLimb division_steps(SignedLimb delta, Limb f, Limb g, Steps *steps) {
    Limb u = 1, v = 0, q = 0, r = 1;
    for (unsigned i = 0; i < digit_bits; ++i) {
        const Limb odd = hidden(Limb(0) - (g & 1));
        const Limb swap = hidden(static_cast<Limb>(-delta >> (limb_bits - 1))) & odd;
        // g + f when g is odd; g - f and f = g when delta is positive besides.
        const Limb old_f = f, old_u = u, old_v = v;
        f ^= (f ^ g) & swap;
        u ^= (u ^ q) & swap;
        v ^= (v ^ r) & swap;
        g += ((old_f ^ swap) - swap) & odd;
        q += ((old_u ^ swap) - swap) & odd;
        r += ((old_v ^ swap) - swap) & odd;
        delta = static_cast<SignedLimb>((static_cast<Limb>(delta) ^ swap) - swap) + 2;
        g >>= 1;
        u <<= 1;
        v <<= 1;
    }
    *steps = {static_cast<SignedLimb>(u), static_cast<SignedLimb>(v), static_cast<SignedLimb>(q),
              static_cast<SignedLimb>(r)};
    return delta;
}

SignedLimb signed_digit(Limb digit) {
    return static_cast<SignedLimb>(digit);
}

void update_f_g(Limb *f, Limb *g, std::size_t digits, const Steps &s) {
    SignedWide cf = SignedWide{s.u} * signed_digit(f[0]) + SignedWide{s.v} * signed_digit(g[0]);
    SignedWide cg = SignedWide{s.q} * signed_digit(f[0]) + SignedWide{s.r} * signed_digit(g[0]);
    cf >>= digit_bits;
    cg >>= digit_bits;
    for (std::size_t i = 1; i < digits; ++i) {
        cf += SignedWide{s.u} * signed_digit(f[i]) + SignedWide{s.v} * signed_digit(g[i]);
        cg += SignedWide{s.q} * signed_digit(f[i]) + SignedWide{s.r} * signed_digit(g[i]);
        f[i - 1] = static_cast<Limb>(cf) & digit_mask;
        g[i - 1] = static_cast<Limb>(cg) & digit_mask;
        cf >>= digit_bits;
        cg >>= digit_bits;
    }
    f[digits - 1] = static_cast<Limb>(cf);
    g[digits - 1] = static_cast<Limb>(cg);
}

// (d, e) = (u d + v e, q d + r e) / 2^digit_bits modulo m, both kept in (-2m, m).
void update_d_e(Limb *d, Limb *e, const Limb *m, std::size_t digits, Limb m_inverse,
                const Steps &s) {
    const SignedLimb d_sign = signed_digit(d[digits - 1]) >> (limb_bits - 1);
    const SignedLimb e_sign = signed_digit(e[digits - 1]) >> (limb_bits - 1);
    SignedLimb md = (s.u & d_sign) + (s.v & e_sign);
    SignedLimb me = (s.q & d_sign) + (s.r & e_sign);
    SignedWide cd = SignedWide{s.u} * signed_digit(d[0]) + SignedWide{s.v} * signed_digit(e[0]);
    SignedWide ce = SignedWide{s.q} * signed_digit(d[0]) + SignedWide{s.r} * signed_digit(e[0]);
    // The multiple of m that clears the low digit.
    md -= static_cast<SignedLimb>((m_inverse * static_cast<Limb>(cd) + static_cast<Limb>(md)) &
                                  digit_mask);
    me -= static_cast<SignedLimb>((m_inverse * static_cast<Limb>(ce) + static_cast<Limb>(me)) &
                                  digit_mask);
    cd += SignedWide{signed_digit(m[0])} * md;
    ce += SignedWide{signed_digit(m[0])} * me;
    cd >>= digit_bits;
    ce >>= digit_bits;
    for (std::size_t i = 1; i < digits; ++i) {
        cd += SignedWide{s.u} * signed_digit(d[i]) + SignedWide{s.v} * signed_digit(e[i]) +
              SignedWide{signed_digit(m[i])} * md;
        ce += SignedWide{s.q} * signed_digit(d[i]) + SignedWide{s.r} * signed_digit(e[i]) +
              SignedWide{signed_digit(m[i])} * me;
        d[i - 1] = static_cast<Limb>(cd) & digit_mask;
        e[i - 1] = static_cast<Limb>(ce) & digit_mask;
        cd >>= digit_bits;
        ce >>= digit_bits;
    }
    d[digits - 1] = static_cast<Limb>(cd);
    e[digits - 1] = static_cast<Limb>(ce);
}

void to_digits(Limb *digits, std::size_t count, const Limb *a, std::size_t limbs) {
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t at = i * digit_bits, limb = at / limb_bits, shift = at % limb_bits;
        Limb digit = limb < limbs ? a[limb] >> shift : 0;
        if (shift > limb_bits - digit_bits && limb + 1 < limbs)
            digit |= a[limb + 1] << (limb_bits - shift);
        digits[i] = digit & digit_mask;
    }
}

void from_digits(Limb *a, std::size_t limbs, const Limb *digits, std::size_t count) {
    set_small(a, limbs, 0);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t at = i * digit_bits, limb = at / limb_bits, shift = at % limb_bits;
        if (limb < limbs)
            a[limb] |= digits[i] << shift;
        if (shift > limb_bits - digit_bits && limb + 1 < limbs)
            a[limb + 1] |= digits[i] >> (limb_bits - shift);
    }
}

// a += b & mask, digits made canonical again.
void add_digits_if(Limb *a, const Limb *b, std::size_t digits, Limb mask) {
    SignedLimb carry = 0;
    for (std::size_t i = 0; i < digits; ++i) {
        carry += signed_digit(a[i]) + signed_digit(b[i] & mask);
        a[i] = i + 1 < digits ? static_cast<Limb>(carry) & digit_mask : static_cast<Limb>(carry);
        carry >>= digit_bits;
    }
}

void negate_digits_if(Limb *a, std::size_t digits, Limb mask) {
    SignedLimb carry = 0;
    for (std::size_t i = 0; i < digits; ++i) {
        carry += static_cast<SignedLimb>((a[i] ^ mask) - mask);
        a[i] = i + 1 < digits ? static_cast<Limb>(carry) & digit_mask : static_cast<Limb>(carry);
        carry >>= digit_bits;
    }
}

Limb sign_mask(const Limb *a, std::size_t digits) {
    return hidden(static_cast<Limb>(signed_digit(a[digits - 1]) >> (limb_bits - 1)));
}

} // namespace

Limb inverse(Limb *out, const Limb *a, const Limb *m, std::size_t count, std::size_t bits,
             Limb *scratch) {
    const std::size_t digits = bits < digit_bits ? 2 : bits / digit_bits + 1;
    Pieces pieces{scratch};
    Limb *const f = pieces.take(digits), *const g = pieces.take(digits);
    Limb *const d = pieces.take(digits), *const e = pieces.take(digits);
    Limb *const modulus = pieces.take(digits);
    to_digits(modulus, digits, m, count);
    copy(f, modulus, digits);
    to_digits(g, digits, a, count);
    set_small(d, digits, 0);
    set_small(e, digits, 1);
    const Limb m_inverse = inverse_of_limb(m[0]);
    // Enough for all numbers of this length when delta starts at 1/2.
    const std::size_t steps = (uint64_t{45907} * bits + 26313) / 19929;
    SignedLimb delta = 1;
    SecretRecord<Steps> round;
    for (std::size_t done = 0; done < steps; done += digit_bits) {
        delta = division_steps(delta, f[0] | f[1] << digit_bits, g[0] | g[1] << digit_bits,
                               &round.record);
        update_f_g(f, g, digits, round.record);
        update_d_e(d, e, modulus, digits, m_inverse, round.record);
    }
    // f is now the greatest common divisor or its negative, and d the inverse times f.
    const Limb negative = sign_mask(f, digits);
    negate_digits_if(f, digits, negative);
    f[0] ^= 1;
    const Limb found = is_zero(f, digits);
    add_digits_if(d, modulus, digits, sign_mask(d, digits));
    negate_digits_if(d, digits, negative);
    add_digits_if(d, modulus, digits, sign_mask(d, digits));
    from_digits(out, count, d, digits);
    return found;
}

} // namespace toolkit::bn
