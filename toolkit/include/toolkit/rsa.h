// rsa.h: the RSA primitives (PKCS#1 v1.5) on prepared keys.
//
// Numbers are big-endian octets, leading zeros allowed. A modulus has 256 to 16384 bits and is odd.
// "size" of a key is the length of its modulus in bytes, without leading zeros; blocks in and out
// have exactly that many bytes. Preparing a key copies its numbers into one block of memory and
// computes what every use would compute again; using it allocates nothing.
//
// Private operations are blinded and run in time that depends on the public exponent and on the
// lengths of the key's numbers alone. With the primes they use the Chinese remainder form and check
// the result against the public operation before it is handed out: a result that fails the check is
// BE_INTERNAL and leaves nothing behind. Blinding draws on the system.
#ifndef TOOLKIT_RSA_H
#define TOOLKIT_RSA_H

#include <toolkit/random.h>
#include <toolkit/toolkit.h>

namespace toolkit {

struct RsaPublic;
struct RsaPrivate;

// Prepares a public key, to be released by rsa_public_free. Any number of threads may use it at
// once.
//   numbers  the modulus; an odd exponent above 1 and below the modulus.
// BE_MODULUS_LEN: a modulus out of range. BE_KEY_INFO: numbers that make no key. BE_ALLOC.
int rsa_public_new(RsaPublic **key_out, const A_RSA_KEY &numbers);
void rsa_public_free(RsaPublic *key);
uint32_t rsa_public_size(const RsaPublic *key);
// out = in ^ e mod n, in time that depends on e and the modulus alone. in and out may be the same.
// BE_DATA: in is not below n; out is left alone.
int rsa_public_apply(const RsaPublic *key, const uint8_t *in, uint8_t *out);

// Prepares a private key, to be released by rsa_private_free, which zeroes it. A key serves one
// thread at a time: it keeps its blinding and its working memory.
//   numbers  modulus; two odd primes, in either order and of any lengths; their exponents, reduced;
//            coefficient = 1 / prime[1] mod prime[0], reduced.
//   public_exponent  odd, above 1, no longer than the modulus; no data: not known. It is recovered
//            then, and when it is not shorter than both primes a damaged primeExponent passes for
//            that of another public exponent; so give it where it is known.
// BE_MODULUS_LEN: a modulus out of range. BE_KEY_INFO: numbers that do not belong together, which a
// damaged key's do not: a result made with them would tell the primes. BE_ALLOC.
int rsa_private_new(RsaPrivate **key_out, const A_RSA_CRT_KEY &numbers,
                    const ITEM &public_exponent);
// The same of the modulus and the private exponent (odd, above 1, below the modulus) where the
// primes are not known. An operation takes about four times as long, and its result is not checked.
int rsa_private_new(RsaPrivate **key_out, const A_RSA_KEY &numbers);
void rsa_private_free(RsaPrivate *key);
uint32_t rsa_private_size(const RsaPrivate *key);
// out = in ^ d mod n. in and out may be the same; out is left alone when it fails.
// BE_DATA: in is not below n. BE_RANDOM_OBJ: the system gives no random numbers. BE_INTERNAL: the
// result was wrong, by a fault or because a "prime" is none.
int rsa_private_apply(const RsaPrivate *key, const uint8_t *in, uint8_t *out);

// Generates a key. Both primes have their top two bits set, so that the modulus has its full
// length; the first is the greater one; they differ in the upper half of their bits; they are 3
// modulo 4, and prime with an error below 2^-100. The private exponent is the inverse of e modulo
// (p - 1)(q - 1).
//   key_out       each ITEM allocated by malloc; rsa_key_free zeroes and frees them.
//   modulus_bits  256 to 16384.
//   exponent      odd, above 1, of fewer bits than the modulus.
//   surrender     asked before each candidate is tested; may be null.
// BE_ALGORITHM_INFO: size or exponent out of range. BE_CANCEL: surrender said stop. BE_RANDOM_OBJ:
// random failed, or repeats itself. BE_ALLOC.
int rsa_generate(A_PKCS_RSA_PRIVATE_KEY *key_out, uint32_t modulus_bits, const ITEM &exponent,
                 const RandomSource &random, const SurrenderContext *surrender);
// Whether both are in range.
bool rsa_can_generate(uint32_t modulus_bits, const ITEM &exponent);
// Null is ignored.
void rsa_key_free(A_PKCS_RSA_PRIVATE_KEY *key);

} // namespace toolkit

#endif
