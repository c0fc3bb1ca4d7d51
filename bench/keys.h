// keys.h: RSA keys for the rows, the same for every library.
#ifndef BENCH_KEYS_H
#define BENCH_KEYS_H

#include "bench.h"

#include <openssl/evp.h>
#include <toolkit/toolkit.h>

struct BenchKey {
    EVP_PKEY *openssl;
    Bytes pkcs8; // PrivateKeyInfo
    Bytes pkcs1; // RSAPrivateKey
    Bytes spki;  // SubjectPublicKeyInfo
    Bytes modulus, exponent, prime[2], prime_exponent[2], coefficient, private_exponent;

    toolkit::A_RSA_KEY public_numbers() const;
    toolkit::A_RSA_CRT_KEY private_numbers() const;
};

// Made once for each size.
const BenchKey &bench_key(unsigned bits);

#endif
