// bignum.h: arithmetic on vectors of limbs, least significant limb first.
//
// A vector is a pointer and a count of limbs that the caller knows; nothing here allocates. Values
// are taken to be secret: no branch or index depends on them, only on counts. The few functions
// that are for public values say so. Results may overlap operands only where they start at the same
// limb.
//
// A truth value of secrets is a mask: all ones for yes, zero for no.
#ifndef TOOLKIT_BIGNUM_H
#define TOOLKIT_BIGNUM_H

#include "memory.h"

namespace toolkit::bn {

#if defined(__SIZEOF_INT128__) && !defined(TOOLKIT_SMALL_LIMBS)
using Limb = uint64_t;
using SignedLimb = int64_t;
__extension__ typedef unsigned __int128 Wide;
__extension__ typedef __int128 SignedWide;
#else
using Limb = uint32_t;
using SignedLimb = int32_t;
using Wide = uint64_t;
using SignedWide = int64_t;
#endif

constexpr std::size_t limb_bytes = sizeof(Limb);
constexpr std::size_t limb_bits = 8 * limb_bytes;

constexpr std::size_t limbs_for_bits(std::size_t bits) {
    return (bits + limb_bits - 1) / limb_bits;
}

// Keeps the compiler from learning that a value is a truth value and making a branch of it.
inline Limb hidden(Limb value) {
    __asm__("" : "+r"(value));
    return value;
}

// bit is 0 or 1.
inline Limb mask_of_bit(Limb bit) {
    return hidden(Limb(0) - bit);
}
inline Limb mask_if_zero(Limb value) {
    return mask_of_bit((~value & (value - 1)) >> (limb_bits - 1));
}
inline Limb mask_if_equal(Limb a, Limb b) {
    return mask_if_zero(a ^ b);
}
inline Limb choose(Limb mask, Limb yes, Limb no) {
    return (yes & mask) | (no & ~mask);
}

// ---- Octets

// Big-endian octets into count limbs. False when the number does not fit (that alone is told).
bool load(Limb *out, std::size_t count, const uint8_t *octets, std::size_t size);
// The low size octets of a number.
void store(uint8_t *octets, std::size_t size, const Limb *a, std::size_t count);

// ---- Comparison and choice

Limb is_zero(const Limb *a, std::size_t count);
Limb is_equal(const Limb *a, const Limb *b, std::size_t count);
Limb is_less(const Limb *a, const Limb *b, std::size_t count);
// out = mask ? yes : no
void select(Limb *out, Limb mask, const Limb *yes, const Limb *no, std::size_t count);
void swap_if(Limb mask, Limb *a, Limb *b, std::size_t count);
// Length in bits; takes time by the value, so it is for numbers whose length is public.
std::size_t length_in_bits(const Limb *a, std::size_t count);
inline Limb bit(const Limb *a, std::size_t index) {
    return a[index / limb_bits] >> (index % limb_bits) & 1;
}

// ---- Arithmetic

void set_small(Limb *out, std::size_t count, Limb value);
inline void copy(Limb *out, const Limb *a, std::size_t count) {
    memmove(out, a, count * limb_bytes);
}
// Each returns the carry or borrow out, 0 or 1 (multiplications: the top limb).
Limb add(Limb *out, const Limb *a, const Limb *b, std::size_t count);
Limb subtract(Limb *out, const Limb *a, const Limb *b, std::size_t count);
Limb add_if(Limb mask, Limb *out, const Limb *a, const Limb *b, std::size_t count);
Limb subtract_if(Limb mask, Limb *out, const Limb *a, const Limb *b, std::size_t count);
Limb add_small(Limb *a, std::size_t count, Limb value);
Limb subtract_small(Limb *a, std::size_t count, Limb value);
Limb multiply_small(Limb *out, const Limb *a, std::size_t count, Limb factor);
// out (count limbs) += a * factor
Limb multiply_add(Limb *out, const Limb *a, std::size_t count, Limb factor);
// out has a_count + b_count limbs and overlaps neither operand.
void multiply(Limb *out, const Limb *a, std::size_t a_count, const Limb *b, std::size_t b_count);
// out (count limbs) = the low count limbs of a * b; no overlap.
void multiply_low(Limb *out, const Limb *a, const Limb *b, std::size_t count);
// a >>= shift, 0 < shift < limb_bits
void shift_right(Limb *a, std::size_t count, unsigned shift);

// a and b below m; out below m.
void add_modulo(Limb *out, const Limb *a, const Limb *b, const Limb *m, std::size_t count);
void subtract_modulo(Limb *out, const Limb *a, const Limb *b, const Limb *m, std::size_t count);
// a (count + 1 limbs) mod m, by shifting and subtracting; a is below m << quotient_bits, where
// quotient_bits <= limb_bits. The remainder is left in a.
void remainder_small_quotient(Limb *a, const Limb *m, std::size_t count, unsigned quotient_bits,
                              Limb *scratch);
// out = a number in big-endian octets mod m, bit by bit; any m above 1.
void remainder(Limb *out, const Limb *m, std::size_t count, const uint8_t *octets,
               std::size_t size);

// The inverse of an odd number modulo 2^limb_bits.
constexpr Limb inverse_of_limb(Limb odd) {
    Limb inverse = odd * 3 ^ 2; // right in 5 bits; each step doubles them
    for (int step = 0; step < 4; ++step)
        inverse *= 2 - odd * inverse;
    return inverse;
}
// out = 1 / odd modulo 2^(count * limb_bits). scratch: 2 * count limbs.
void inverse_of_power_of_two(Limb *out, const Limb *odd, std::size_t count, Limb *scratch);

// out = 1 / a mod m in count limbs, m odd; a and m are below 2^bits. The mask says whether there is
// one; out is meaningless when there is none. scratch: inverse_scratch(count) limbs.
//
// The division steps of Bernstein and Yang ("Fast constant-time gcd computation and modular
// inversion", 2019): their number is fixed by bits, so nothing is told about a or m.
constexpr std::size_t inverse_scratch(std::size_t count) {
    return 5 * (count + count / 15 + 3);
}
Limb inverse(Limb *out, const Limb *a, const Limb *m, std::size_t count, std::size_t bits,
             Limb *scratch);

// ---- Storage

using Secret = std::unique_ptr<Limb, ZeroAndFree>;

inline Secret allocate_limbs(std::size_t count) {
    return Secret(static_cast<Limb *>(std::calloc(count + 1, limb_bytes)),
                  ZeroAndFree{count * limb_bytes});
}

// Hands out consecutive pieces of a block of limbs.
struct Pieces {
    Limb *next;
    Limb *take(std::size_t count) {
        Limb *const piece = next;
        next += count;
        return piece;
    }
};

} // namespace toolkit::bn

#endif
