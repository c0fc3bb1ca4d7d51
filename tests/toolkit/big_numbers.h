// big_numbers.h: RSA keys as numbers, and each implementation of the arithmetic.
#ifndef TESTS_TOOLKIT_BIG_NUMBERS_H
#define TESTS_TOOLKIT_BIG_NUMBERS_H

#include "../../toolkit/montgomery.h"
#include "support/numbers.h"
#include "zeroed.h"

#include <gtest/gtest.h>
#include <openssl/dh.h>
#include <toolkit/random.h>
#include <toolkit/toolkit.h>

#include <cstring>

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
