// dh.h: Diffie-Hellman key agreement (PKCS#3).
//
// The prime is odd, 256 to 16384 bits; numbers are big-endian octets; "size" is the prime's length in
// bytes. Exponentiation with the private value runs in time that depends on sizes alone.
#ifndef TOOLKIT_DH_H
#define TOOLKIT_DH_H

#include <toolkit/random.h>
#include <toolkit/toolkit.h>

namespace toolkit {

struct DhGroup;

// exponent_bits 0 means the prime's length less one. BE_ALGORITHM_INFO, BE_MODULUS_LEN, BE_ALLOC.
int dh_group_new(DhGroup **group_out, const ITEM &prime, const ITEM &base, uint32_t exponent_bits);
void dh_group_free(DhGroup *group);
uint32_t dh_group_size(const DhGroup *group);
uint32_t dh_private_size(const DhGroup *group);

// Makes a private value of exactly the group's exponent length (top bit set) and its public value.
// private_out: dh_private_size bytes, secret; public_out: dh_group_size bytes. BE_RANDOM_OBJ.
int dh_generate(const DhGroup *group, uint8_t *private_out, uint8_t *public_out,
                const RandomSource &random);
// secret_out: dh_group_size bytes. BE_DATA: a peer value of 0, 1, prime - 1 or above.
int dh_agree(const DhGroup *group, const uint8_t *private_value, const uint8_t *peer,
             uint32_t peer_size, uint8_t *secret_out);

// A prime of exactly prime_bits with (prime - 1) / 2 divisible by a prime of at least exponent_bits
// bits, and a base of large order. Both ITEMs are allocated by malloc. BE_CANCEL, BE_ALLOC,
// BE_ALGORITHM_INFO.
int dh_generate_parameters(ITEM *prime_out, ITEM *base_out, uint32_t prime_bits,
                           uint32_t exponent_bits, const RandomSource &random,
                           const SurrenderContext *surrender);

} // namespace toolkit

#endif
