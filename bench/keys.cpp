#include "keys.h"

#include <map>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

namespace {

Bytes number(EVP_PKEY *key, const char *name) {
    BIGNUM *value = nullptr;
    require(EVP_PKEY_get_bn_param(key, name, &value) == 1, name);
    Bytes bytes(static_cast<std::size_t>(BN_num_bytes(value)));
    BN_bn2bin(value, bytes.data());
    BN_clear_free(value);
    return bytes;
}

template <class Object, class Encode> Bytes encoded(Object *object, Encode encode) {
    uint8_t *der = nullptr;
    const int size = encode(object, &der);
    require(size > 0, "encoding a key");
    Bytes bytes(der, der + size);
    OPENSSL_free(der);
    return bytes;
}

BenchKey make(unsigned bits) {
    BenchKey key;
    key.openssl = EVP_RSA_gen(bits);
    require(key.openssl != nullptr, "making an RSA key");
    key.modulus = number(key.openssl, OSSL_PKEY_PARAM_RSA_N);
    key.exponent = number(key.openssl, OSSL_PKEY_PARAM_RSA_E);
    key.private_exponent = number(key.openssl, OSSL_PKEY_PARAM_RSA_D);
    key.prime[0] = number(key.openssl, OSSL_PKEY_PARAM_RSA_FACTOR1);
    key.prime[1] = number(key.openssl, OSSL_PKEY_PARAM_RSA_FACTOR2);
    key.prime_exponent[0] = number(key.openssl, OSSL_PKEY_PARAM_RSA_EXPONENT1);
    key.prime_exponent[1] = number(key.openssl, OSSL_PKEY_PARAM_RSA_EXPONENT2);
    key.coefficient = number(key.openssl, OSSL_PKEY_PARAM_RSA_COEFFICIENT1);
    key.spki = encoded(key.openssl, i2d_PUBKEY);
    key.pkcs1 = encoded(key.openssl, i2d_PrivateKey);
    PKCS8_PRIV_KEY_INFO *info = EVP_PKEY2PKCS8(key.openssl);
    key.pkcs8 = encoded(info, i2d_PKCS8_PRIV_KEY_INFO);
    PKCS8_PRIV_KEY_INFO_free(info);
    return key;
}

toolkit::ITEM item(const Bytes &bytes) {
    return {const_cast<uint8_t *>(bytes.data()), static_cast<uint32_t>(bytes.size())};
}

} // namespace

toolkit::A_RSA_KEY BenchKey::public_numbers() const {
    return {item(modulus), item(exponent)};
}

toolkit::A_RSA_CRT_KEY BenchKey::private_numbers() const {
    return {item(modulus),
            {item(prime[0]), item(prime[1])},
            {item(prime_exponent[0]), item(prime_exponent[1])},
            item(coefficient)};
}

const BenchKey &bench_key(unsigned bits) {
    static std::map<unsigned, BenchKey> keys;
    const auto found = keys.find(bits);
    return found != keys.end() ? found->second : keys.emplace(bits, make(bits)).first->second;
}
