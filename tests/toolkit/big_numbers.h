// big_numbers.h: libcrypto's big numbers as the oracle of the public-key tests.
#ifndef TESTS_TOOLKIT_BIG_NUMBERS_H
#define TESTS_TOOLKIT_BIG_NUMBERS_H

#include "../../toolkit/montgomery.h"
#include "support/files.h"
#include "zeroed.h"

#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/dh.h>
#include <toolkit/random.h>
#include <toolkit/toolkit.h>

#include <algorithm>
#include <cstring>
#include <string>

struct FreeNumber {
    void operator()(BIGNUM *number) const { BN_clear_free(number); }
};
using Number = std::unique_ptr<BIGNUM, FreeNumber>;

inline BN_CTX *context() {
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
    BN_mul(result.get(), a.get(), b.get(), context());
    return result;
}
inline Number less(const Number &a, unsigned long value) {
    Number result(BN_dup(a.get()));
    BN_sub_word(result.get(), value);
    return result;
}
inline Number remainder(const Number &a, const Number &m) {
    Number result = number();
    BN_nnmod(result.get(), a.get(), m.get(), context());
    return result;
}
inline Number power(const Number &base, const Number &exponent, const Number &m) {
    Number result = number();
    BN_mod_exp(result.get(), base.get(), exponent.get(), m.get(), context());
    return result;
}
// Null when there is none.
inline Number inverse(const Number &a, const Number &m) {
    return Number(BN_mod_inverse(nullptr, a.get(), m.get(), context()));
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

inline toolkit::ITEM item(Bytes &bytes) {
    return {bytes.data(), static_cast<uint32_t>(bytes.size())};
}

// An RSA key's numbers as octets, with the toolkit's records over them.
struct RsaNumbers {
    Bytes n, e, d, p, q, dp, dq, coefficient;

    toolkit::A_RSA_KEY public_key() { return {item(n), item(e)}; }
    toolkit::A_RSA_CRT_KEY private_key() {
        return {item(n), {item(p), item(q)}, {item(dp), item(dq)}, item(coefficient)};
    }
};

inline RsaNumbers rsa_numbers(const Number &p, const Number &q, const Number &e) {
    const Number p1 = less(p, 1), q1 = less(q, 1), d = inverse(e, product(p1, q1));
    return {bytes_of(product(p, q)),
            bytes_of(e),
            bytes_of(d),
            bytes_of(p),
            bytes_of(q),
            bytes_of(remainder(d, p1)),
            bytes_of(remainder(d, q1)),
            bytes_of(inverse(q, p))};
}

// A prime whose second highest bit may be clear, unlike those of BN_generate_prime_ex.
inline Number random_prime(int bits) {
    for (;;) {
        Number candidate = random_odd(bits);
        if (BN_check_prime(candidate.get(), context(), nullptr) == 1)
            return candidate;
    }
}

// A fresh key whose modulus has exactly p_bits + q_bits bits, or one less when short is set.
inline RsaNumbers new_rsa_numbers(int p_bits, int q_bits, const Number &e, bool one_short = false) {
    for (;;) {
        const Number p = random_prime(p_bits), q = random_prime(q_bits);
        const Number n = product(p, q);
        if (inverse(e, product(less(p, 1), less(q, 1))) != nullptr &&
            BN_num_bits(n.get()) == p_bits + q_bits - (one_short ? 1 : 0) &&
            BN_cmp(p.get(), q.get()) != 0)
            return rsa_numbers(p, q, e);
    }
}

// Runs a test once with each implementation of the arithmetic that works on this machine.
inline void with_each_arithmetic(const std::function<void()> &test) {
    for (const toolkit::Arithmetic *const *each = toolkit::all_arithmetics; *each; ++each) {
        if (!(*each)->works_here())
            continue;
        SCOPED_TRACE((*each)->name);
        toolkit::prefer_arithmetic(*each);
        test();
        toolkit::prefer_arithmetic(nullptr);
        if (::testing::Test::HasFailure())
            return;
    }
}

#endif
