// montgomery.h: arithmetic modulo an odd number in Montgomery form (P. Montgomery, "Modular
// multiplication without trial division", 1985).
//
// A modulus of `size` limbs has R = 2^(size * limb_bits); the Montgomery form of x is x R mod m. An
// Arithmetic is one implementation of the operations that take the time; which one serves is
// decided once, by what the processor can do. All of them take time that depends on sizes alone.
#ifndef TOOLKIT_MONTGOMERY_H
#define TOOLKIT_MONTGOMERY_H

#include "bignum.h"

namespace toolkit {

struct Arithmetic;

struct Modulus {
    const Arithmetic *arithmetic;
    std::size_t size; // limbs
    std::size_t bits;
    bn::Limb negative_inverse; // -1 / m modulo 2^limb_bits
    bn::Limb *m;
    bn::Limb *r_squared; // R^2 mod m, and behind it what else the implementation keeps
};

// result = base ^ exponent mod m. base and result are in Montgomery form, size limbs each, and may
// be the same. The exponent's bits above exponent_bits are not looked at; the time is that of
// exponent_bits, which is public.
struct Power {
    const Modulus *modulus;
    bn::Limb *result;
    const bn::Limb *base;
    const bn::Limb *exponent;
    std::size_t exponent_bits;
};

struct Arithmetic {
    const char *name;
    bool (*works_here)();
    // The least size that a modulus of this many limbs may be given.
    std::size_t (*padded_size)(std::size_t limbs);
    // Limbs that the constants of a modulus take, and how they are made once R^2 is there.
    std::size_t (*constants_size)(std::size_t size, std::size_t bits);
    void (*prepare)(Modulus *modulus, bn::Limb *scratch);
    // out = a b / R mod m, below m. a is below R, b below m; all may overlap. scratch:
    // product_scratch.
    void (*multiply)(bn::Limb *out, const bn::Limb *a, const bn::Limb *b, const Modulus &m,
                     bn::Limb *scratch);
    void (*square)(bn::Limb *out, const bn::Limb *a, const Modulus &m, bn::Limb *scratch);
    // One or two powers, two faster than one after the other where the implementation can.
    std::size_t (*power_scratch)(const Power *jobs, std::size_t count);
    void (*power)(const Power *jobs, std::size_t count, bn::Limb *scratch);
    // out = base ^ exponent mod m, neither in Montgomery form, for an odd public exponent above 1:
    // takes time by its value. base is below m; no overlap. The scratch is never more than 4 *
    // size + product_scratch(size) limbs.
    std::size_t (*public_power_scratch)(const Modulus &m);
    void (*public_power)(bn::Limb *out, const bn::Limb *base, const bn::Limb *exponent,
                         std::size_t exponent_bits, const Modulus &m, bn::Limb *scratch);
};

// Room for a product of two numbers and for what its making takes.
constexpr std::size_t product_scratch(std::size_t size) {
    return 4 * size + 16;
}

extern const Arithmetic portable_arithmetic;
#if defined(__x86_64__) && defined(__LP64__) && !defined(TOOLKIT_SMALL_LIMBS)
#define TOOLKIT_MULX 1
extern const Arithmetic mulx_arithmetic, ifma_arithmetic;
#endif

// Every implementation of this build, null-terminated, the best last.
extern const Arithmetic *const all_arithmetics[];
// The best that works here, or what prefer_arithmetic chose: tests and benchmarks compare them.
const Arithmetic *best_arithmetic();
void prefer_arithmetic(const Arithmetic *arithmetic); // null: the best

// m: the number, odd and above 1, of its padded size; r_squared: room for constants_size limbs.
// Both stay the caller's and must outlive the modulus. scratch: 2 * size + 1 +
// product_scratch(size) limbs.
void modulus_init(Modulus *modulus, const Arithmetic *arithmetic, bn::Limb *m, std::size_t size,
                  std::size_t bits, bn::Limb *r_squared, bn::Limb *scratch);

inline void montgomery_multiply(bn::Limb *out, const bn::Limb *a, const bn::Limb *b,
                                const Modulus &m, bn::Limb *scratch) {
    m.arithmetic->multiply(out, a, b, m, scratch);
}
inline void montgomery_square(bn::Limb *out, const bn::Limb *a, const Modulus &m,
                              bn::Limb *scratch) {
    m.arithmetic->square(out, a, m, scratch);
}
// R mod m: the Montgomery form of 1. scratch: product_scratch(size) limbs.
void montgomery_one(bn::Limb *out, const Modulus &m, bn::Limb *scratch);
// Out of Montgomery form. scratch: size + product_scratch(size) limbs.
void montgomery_leave(bn::Limb *out, const bn::Limb *a, const Modulus &m, bn::Limb *scratch);
// The Montgomery form of a number of any count of limbs; no overlap.
// scratch: size + product_scratch(size) limbs.
void montgomery_enter(bn::Limb *out, const bn::Limb *a, std::size_t count, const Modulus &m,
                      bn::Limb *scratch);
// Arithmetic's public_power by its own products. scratch: limb_public_power_scratch(m) limbs.
std::size_t limb_public_power_scratch(const Modulus &m);
void limb_public_power(bn::Limb *out, const bn::Limb *base, const bn::Limb *exponent,
                       std::size_t exponent_bits, const Modulus &m, bn::Limb *scratch);

} // namespace toolkit

#endif
