// numbers.h: libcrypto's big numbers as the oracle of the public-key tests.
#ifndef TESTS_SUPPORT_NUMBERS_H
#define TESTS_SUPPORT_NUMBERS_H

#include "support/files.h"

#include <openssl/bn.h>

#include <memory>
#include <string>

struct FreeNumber {
    void operator()(BIGNUM *number) const { BN_clear_free(number); }
};
using Number = std::unique_ptr<BIGNUM, FreeNumber>;

inline BN_CTX *bn_context() {
    static BN_CTX *const shared = BN_CTX_new();
    return shared;
}

inline Number number() {
    return Number(BN_new());
}
inline Number number(const Bytes &bytes) {
    return Number(BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr));
}
inline Number number(uint64_t value) {
    Bytes bytes;
    for (int shift = 56; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<uint8_t>(value >> shift));
    return number(bytes);
}
inline Number decimal(const std::string &digits) {
    BIGNUM *result = nullptr;
    BN_dec2bn(&result, digits.c_str());
    return Number(result);
}

inline Bytes bytes_of(const Number &number) {
    Bytes bytes(static_cast<std::size_t>(BN_num_bytes(number.get())));
    BN_bn2bin(number.get(), bytes.data());
    return bytes;
}
inline Bytes bytes_of(const Number &number, std::size_t size) {
    Bytes bytes(size);
    BN_bn2binpad(number.get(), bytes.data(), static_cast<int>(size));
    return bytes;
}

inline Number product(const Number &a, const Number &b) {
    Number result = number();
    BN_mul(result.get(), a.get(), b.get(), bn_context());
    return result;
}
inline Number less(const Number &a, unsigned long value) {
    Number result(BN_dup(a.get()));
    BN_sub_word(result.get(), value);
    return result;
}
inline Number remainder(const Number &a, const Number &m) {
    Number result = number();
    BN_nnmod(result.get(), a.get(), m.get(), bn_context());
    return result;
}
inline Number power(const Number &base, const Number &exponent, const Number &m) {
    Number result = number();
    BN_mod_exp(result.get(), base.get(), exponent.get(), m.get(), bn_context());
    return result;
}
// Null when there is none.
inline Number inverse(const Number &a, const Number &m) {
    return Number(BN_mod_inverse(nullptr, a.get(), m.get(), bn_context()));
}
inline Number random_below(const Number &m) {
    Number result = number();
    BN_rand_range(result.get(), m.get());
    return result;
}
// Exactly this many bits, odd.
inline Number random_odd(int bits) {
    Number result = number();
    BN_rand(result.get(), bits, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ODD);
    return result;
}

// A prime whose second highest bit may be clear, unlike those of BN_generate_prime_ex.
inline Number random_prime(int bits) {
    for (;;) {
        Number candidate = random_odd(bits);
        if (BN_check_prime(candidate.get(), bn_context(), nullptr) == 1)
            return candidate;
    }
}

#endif
