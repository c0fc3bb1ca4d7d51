// prime.h: random primes.
#ifndef TOOLKIT_PRIME_H
#define TOOLKIT_PRIME_H

#include "bignum.h"

#include <toolkit/random.h>
#include <toolkit/toolkit.h>

namespace toolkit {

struct PrimeRequest {
    std::size_t bits; // exactly; at least 64
    const RandomSource &random;
    const SurrenderContext *surrender;
};

constexpr std::size_t prime_size(std::size_t bits) {
    return bn::limbs_for_bits(bits + 1);
}

// A random prime p with its two highest bits set and p = 3 modulo 4, in prime_size(bits) limbs. No
// factor below 2000 of the odd number `coprime` (public; null: any) divides p - 1.
// BE_ALLOC, BE_CANCEL, BE_RANDOM_OBJ.
int random_prime(bn::Limb *prime, const PrimeRequest &request, const bn::Limb *coprime,
                 std::size_t coprime_size);

// A random q, of one bit less than asked for, such that q and 2 q + 1 are prime.
int random_safe_prime_half(bn::Limb *half, const PrimeRequest &request);

// A prime of the form k q + 1 with its highest bit set, k even and random. q has q_bits bits, the
// highest two set, in prime_size(q_bits) limbs; request.bits - q_bits is at least 32.
int random_prime_above(bn::Limb *prime, const PrimeRequest &request, const bn::Limb *q,
                       std::size_t q_bits);

} // namespace toolkit

#endif
