// montgomery_x86.h: what the x86-64 implementations share.
#ifndef TOOLKIT_MONTGOMERY_X86_H
#define TOOLKIT_MONTGOMERY_X86_H

#include "montgomery.h"
#include "x86.h"

namespace toolkit {

// As in Arithmetic.
std::size_t mulx_padded_size(std::size_t limbs);
void mulx_multiply(bn::Limb *out, const bn::Limb *a, const bn::Limb *b, const Modulus &m,
                   bn::Limb *scratch);
void mulx_square(bn::Limb *out, const bn::Limb *a, const Modulus &m, bn::Limb *scratch);
void mulx_power(const Power *jobs, std::size_t count, bn::Limb *scratch);
// out = t / R mod m for t (2 * size limbs, with room for product_scratch) below R m, size above 4;
// t is used up.
void mulx_reduce(bn::Limb *out, bn::Limb *t, const Modulus &m);

} // namespace toolkit

#endif
