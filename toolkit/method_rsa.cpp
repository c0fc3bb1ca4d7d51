#include "objects.h"

#include <toolkit/rsa.h>

namespace toolkit {
namespace {

constexpr RsaNumber public_numbers[] = {rsa_modulus, rsa_public_exponent};
constexpr RsaNumber private_numbers[] = {rsa_modulus, rsa_private_exponent};
constexpr RsaNumber crt_numbers[] = {rsa_modulus,    rsa_prime_1,    rsa_prime_2,
                                     rsa_exponent_1, rsa_exponent_2, rsa_coefficient};

int make_public(void **key_out, const KeyObject &key) {
    if (!rsa_has(key, public_numbers))
        return BE_KEY_OPERATION_UNKNOWN;
    RsaPublic *made = nullptr;
    const int error =
        rsa_public_new(&made, {key.number[rsa_modulus], key.number[rsa_public_exponent]});
    *key_out = made;
    return error;
}

int make_crt(RsaPrivate **key_out, const KeyObject &key) {
    const A_RSA_CRT_KEY numbers = {key.number[rsa_modulus],
                                   {key.number[rsa_prime_1], key.number[rsa_prime_2]},
                                   {key.number[rsa_exponent_1], key.number[rsa_exponent_2]},
                                   key.number[rsa_coefficient]};
    return rsa_private_new(key_out, numbers, key.number[rsa_public_exponent]);
}

int make_private(void **key_out, const KeyObject &key) {
    RsaPrivate *made = nullptr;
    int error = BE_KEY_OPERATION_UNKNOWN;
    if (rsa_has(key, crt_numbers))
        error = make_crt(&made, key);
    else if (rsa_has(key, private_numbers))
        error = rsa_private_new(&made, {key.number[rsa_modulus], key.number[rsa_private_exponent]});
    *key_out = made;
    return error;
}

void release_public(void *key) {
    rsa_public_free(static_cast<RsaPublic *>(key));
}

void release_private(void *key) {
    rsa_private_free(static_cast<RsaPrivate *>(key));
}

uint32_t public_size(const void *key) {
    return rsa_public_size(static_cast<const RsaPublic *>(key));
}

uint32_t private_size(const void *key) {
    return rsa_private_size(static_cast<const RsaPrivate *>(key));
}

int apply_public(const void *key, const uint8_t *in, uint8_t *out) {
    return rsa_public_apply(static_cast<const RsaPublic *>(key), in, out);
}

int apply_private(const void *key, const uint8_t *in, uint8_t *out) {
    return rsa_private_apply(static_cast<const RsaPrivate *>(key), in, out);
}

constexpr RsaMethod rsa_public = {make_public, release_public, public_size, apply_public};
constexpr RsaMethod rsa_crt = {make_private, release_private, private_size, apply_private};

} // namespace

constexpr AlgorithmMethod AM_RSA_ENCRYPT = {.provides = Primitive::rsa_encrypt, .rsa = &rsa_public};
constexpr AlgorithmMethod AM_RSA_DECRYPT = {.provides = Primitive::rsa_decrypt, .rsa = &rsa_public};
constexpr AlgorithmMethod AM_RSA_CRT_ENCRYPT = {.provides = Primitive::rsa_crt_encrypt,
                                                .rsa = &rsa_crt};
constexpr AlgorithmMethod AM_RSA_CRT_DECRYPT = {.provides = Primitive::rsa_crt_decrypt,
                                                .rsa = &rsa_crt};

} // namespace toolkit
