// dh.h: Diffie-Hellman key agreement (PKCS#3).
//
// The prime is odd, 256 to 16384 bits; numbers are big-endian octets; "size" is the prime's length
// in bytes. Exponentiation with the private value runs in time that depends on sizes alone.
#ifndef TOOLKIT_DH_H
#define TOOLKIT_DH_H

#include <toolkit/random.h>
#include <toolkit/toolkit.h>

namespace toolkit {

struct DhGroup;

// A group, to be released by dh_group_free (null is ignored); any number of threads may use it at
// once. That the prime is one is the caller's word.
//   base           above 1, below prime - 1.
//   exponent_bits  length of private values, below the prime's; 0: the prime's length less one.
// BE_MODULUS_LEN: a prime out of range. BE_ALGORITHM_INFO: an even prime, a base or length out of
// range. BE_ALLOC.
int dh_group_new(DhGroup **group_out, const ITEM &prime, const ITEM &base, uint32_t exponent_bits);
void dh_group_free(DhGroup *group);
uint32_t dh_group_size(const DhGroup *group);
uint32_t dh_private_size(const DhGroup *group);

// Makes a private value of exactly the group's exponent length (top bit set) and its public value.
//   private_out  dh_private_size bytes, secret; zeroed on failure.
//   public_out   dh_group_size bytes.
// BE_RANDOM_OBJ: random failed. BE_ALLOC.
int dh_generate(const DhGroup *group, uint8_t *private_out, uint8_t *public_out,
                const RandomSource &random);
// The secret shared with the peer: peer ^ private_value mod prime.
//   private_value  dh_private_size bytes, as dh_generate made them.
//   peer           the peer's public value, of any length; leading zeros are allowed.
//   secret_out     dh_group_size bytes.
// BE_DATA: a peer value of 0, 1, prime - 1 or above. BE_ALLOC.
int dh_agree(const DhGroup *group, const uint8_t *private_value, const uint8_t *peer,
             uint32_t peer_size, uint8_t *secret_out);

// Generates a prime p of exactly prime_bits and a base of prime order q, where q divides (p - 1) /
// 2 and has at least exponent_bits bits, and 160; where those leave less than 32 bits between
// them, q is (p - 1) / 2 itself, which takes long for long primes.
//   prime_out, base_out  allocated by malloc; left empty on failure.
//   exponent_bits        below prime_bits; 0: prime_bits less one.
//   surrender            asked before each candidate is tested; may be null.
// BE_ALGORITHM_INFO: a length out of range. BE_CANCEL, BE_RANDOM_OBJ, BE_ALLOC.
int dh_generate_parameters(ITEM *prime_out, ITEM *base_out, uint32_t prime_bits,
                           uint32_t exponent_bits, const RandomSource &random,
                           const SurrenderContext *surrender);

} // namespace toolkit

#endif
