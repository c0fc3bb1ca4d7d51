// RSA key generation: what a key must be, whichever random numbers it came from.
#define OPENSSL_SUPPRESS_DEPRECATED
#include "big_numbers.h"
#include "support/fault.h"

#include <openssl/rsa.h>
#include <toolkit/rsa.h>

using namespace toolkit;

namespace {

struct GeneratedKey : A_PKCS_RSA_PRIVATE_KEY {
    GeneratedKey() : A_PKCS_RSA_PRIVATE_KEY{} {}
    GeneratedKey(const GeneratedKey &) = delete;
    GeneratedKey &operator=(const GeneratedKey &) = delete;
    ~GeneratedKey() { rsa_key_free(this); }
};

Number number_of(const ITEM &item) {
    return number(Bytes(item.data, item.data + item.len));
}

int generate(GeneratedKey &key, uint32_t bits, Bytes e) {
    return rsa_generate(&key, bits, item(e), system_random(), nullptr);
}

// libcrypto's own examination: primality, the relations of all numbers.
bool libcrypto_accepts(const A_PKCS_RSA_PRIVATE_KEY &key) {
    RSA *rsa = RSA_new();
    const ITEM *const numbers[] = {
        &key.modulus,  &key.publicExponent,   &key.privateExponent,  &key.prime[0],
        &key.prime[1], &key.primeExponent[0], &key.primeExponent[1], &key.coefficient};
    Number each[8];
    for (std::size_t i = 0; i < 8; ++i)
        each[i] = number_of(*numbers[i]);
    RSA_set0_key(rsa, each[0].release(), each[1].release(), each[2].release());
    RSA_set0_factors(rsa, each[3].release(), each[4].release());
    RSA_set0_crt_params(rsa, each[5].release(), each[6].release(), each[7].release());
    const bool accepted = RSA_check_key(rsa) == 1;
    RSA_free(rsa);
    return accepted;
}

void expect_sound(const A_PKCS_RSA_PRIVATE_KEY &key, uint32_t bits, const Bytes &e) {
    EXPECT_TRUE(libcrypto_accepts(key));
    EXPECT_EQ(BN_num_bits(number_of(key.modulus).get()), static_cast<int>(bits));
    EXPECT_EQ(Bytes(key.publicExponent.data, key.publicExponent.data + key.publicExponent.len), e);
    const Number p = number_of(key.prime[0]), q = number_of(key.prime[1]);
    EXPECT_GT(BN_cmp(p.get(), q.get()), 0);
    for (const Number *prime : {&p, &q})
        EXPECT_TRUE(BN_is_bit_set(prime->get(), BN_num_bits(prime->get()) - 2));
    // d is the inverse modulo (p - 1) (q - 1), and reduced.
    const Number order = product(less(p, 1), less(q, 1));
    EXPECT_EQ(BN_cmp(number_of(key.privateExponent).get(), inverse(number(e), order).get()), 0);
}

TEST(RsaGenerate, KeysAreSound) {
    const struct {
        const char *why;
        uint32_t bits;
        Bytes e;
    } rows[] = {
        {"the least key", 256, {1, 0, 1}},
        {"an odd length", 257, {1, 0, 1}},
        {"half the primes are ruled out", 512, {3}},
        {"an exponent that is no prime", 512, {15}},
        {"as long as the primes", 512, Bytes(32, 0xff)},
        {"the longest exponent", 512, Bytes{0x7f} + Bytes(63, 0xff)},
        {"primes of different lengths", 1023, {1, 0, 1}},
        {"an ordinary key", 1024, {1, 0, 1}},
        {"a long key", 2048, {3}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        GeneratedKey key;
        ASSERT_EQ(generate(key, row.bits, row.e), BE_OK);
        expect_sound(key, row.bits, row.e);
    }
}

TEST(RsaGenerate, RefusesBadParameters) {
    const struct {
        const char *why;
        uint32_t bits;
        Bytes e;
    } rows[] = {
        {"a short modulus", 255, {3}},
        {"a long modulus", 16385, {3}},
        {"no exponent", 512, {}},
        {"an exponent of zeros", 512, {0, 0}},
        {"an exponent of 1", 512, {0, 1}},
        {"an even exponent", 512, {1, 0, 0}},
        {"an exponent as long as the modulus", 512, Bytes{0x80} + Bytes(63, 1)},
        {"a longer exponent", 512, Bytes(65, 1)},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        GeneratedKey key;
        EXPECT_EQ(generate(key, row.bits, row.e), BE_ALGORITHM_INFO);
        EXPECT_EQ(key.modulus.data, nullptr);
    }
}

TEST(RsaGenerate, NeedsRandomNumbersThatVary) {
    Bytes e = {1, 0, 1};
    GeneratedKey key;
    const RandomSource none = {[](void *, uint8_t *, std::size_t) { return false; }, nullptr};
    EXPECT_EQ(rsa_generate(&key, 512, item(e), none, nullptr), BE_RANDOM_OBJ);
    const RandomSource constant = {[](void *, uint8_t *output, std::size_t size) {
                                       memset(output, 0x5a, size);
                                       return true;
                                   },
                                   nullptr};
    EXPECT_EQ(rsa_generate(&key, 256, item(e), constant, nullptr), BE_RANDOM_OBJ);
    EXPECT_EQ(key.modulus.data, nullptr);
}

} // namespace
