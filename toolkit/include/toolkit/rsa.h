// rsa.h: the RSA primitives (PKCS#1 v1.5) on prepared keys.
//
// Numbers are big-endian octets. A modulus has 256 to 16384 bits and is odd; a public exponent is odd
// and larger than 1, of any length up to the modulus. "size" of a key is the length of its modulus in
// bytes, without leading zeros; blocks in and out have exactly that many bytes.
//
// Private operations are blinded, run in time that depends on the key's size alone, use the Chinese
// remainder form, and check the result against the public operation before it is handed out: a
// result that fails the check is BE_INTERNAL and leaves nothing behind. Blinding draws on the system.
#ifndef TOOLKIT_RSA_H
#define TOOLKIT_RSA_H

#include <toolkit/random.h>
#include <toolkit/toolkit.h>

namespace toolkit {

struct RsaPublic;
struct RsaPrivate;

// BE_KEY_INFO: numbers that make no key; BE_MODULUS_LEN: a modulus out of range; BE_ALLOC.
int rsa_public_new(RsaPublic **key_out, const A_RSA_KEY &numbers);
void rsa_public_free(RsaPublic *key);
uint32_t rsa_public_size(const RsaPublic *key);
// out = in ^ e mod n. BE_DATA: in is not below n. in and out may be the same.
int rsa_public_apply(const RsaPublic *key, const uint8_t *in, uint8_t *out);

int rsa_private_new(RsaPrivate **key_out, const A_RSA_CRT_KEY &numbers);
void rsa_private_free(RsaPrivate *key);
uint32_t rsa_private_size(const RsaPrivate *key);
int rsa_private_apply(const RsaPrivate *key, const uint8_t *in, uint8_t *out);

// Key generation. modulus_bits 256 to 16384, of full length; both primes have their top two bits
// set, differ in their upper half, and are prime to the exponent. The numbers are allocated into
// key_out, each ITEM by malloc; rsa_key_free zeroes and frees them.
// BE_ALGORITHM_INFO: size or exponent out of range; BE_CANCEL; BE_ALLOC; BE_RANDOM_OBJ.
int rsa_generate(A_PKCS_RSA_PRIVATE_KEY *key_out, uint32_t modulus_bits, const ITEM &exponent,
                 const RandomSource &random, const SurrenderContext *surrender);
void rsa_key_free(A_PKCS_RSA_PRIVATE_KEY *key);

} // namespace toolkit

#endif
