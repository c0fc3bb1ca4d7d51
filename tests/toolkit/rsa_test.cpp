// The RSA operations, against libcrypto's numbers.
#include "big_numbers.h"
#include "support/fault.h"

#include <toolkit/rsa.h>

using namespace toolkit;

namespace {

struct FreeKey {
    void operator()(RsaPublic *key) const { rsa_public_free(key); }
    void operator()(RsaPrivate *key) const { rsa_private_free(key); }
};
using PublicKey = std::unique_ptr<RsaPublic, FreeKey>;
using PrivateKey = std::unique_ptr<RsaPrivate, FreeKey>;

PublicKey prepare_public(RsaNumbers numbers, int expected = BE_OK) {
    RsaPublic *key = reinterpret_cast<RsaPublic *>(1);
    EXPECT_EQ(rsa_public_new(&key, numbers.public_key()), expected);
    EXPECT_EQ(key != nullptr, expected == BE_OK);
    return PublicKey(key);
}

PrivateKey prepare_private(RsaNumbers numbers, int expected = BE_OK) {
    RsaPrivate *key = reinterpret_cast<RsaPrivate *>(1);
    EXPECT_EQ(rsa_private_new(&key, numbers.private_key()), expected);
    EXPECT_EQ(key != nullptr, expected == BE_OK);
    return PrivateKey(key);
}

// Inputs where mistakes live: the ends of the range, and a random number.
std::vector<Number> inputs(const Number &n) {
    std::vector<Number> all;
    for (unsigned long value : {0ul, 1ul, 2ul})
        all.push_back(number(value));
    all.push_back(less(n, 1));
    all.push_back(less(n, 2));
    all.push_back(random_below(n));
    return all;
}

void check_public(const RsaNumbers &numbers) {
    const PublicKey key = prepare_public(numbers);
    ASSERT_NE(key, nullptr);
    ASSERT_EQ(rsa_public_size(key.get()), numbers.n.size());
    const Number n = number(numbers.n), e = number(numbers.e);
    for (const Number &input : inputs(n)) {
        Bytes block = bytes_of(input, numbers.n.size());
        ASSERT_EQ(rsa_public_apply(key.get(), block.data(), block.data()), BE_OK);
        EXPECT_EQ(to_hex(block), to_hex(bytes_of(power(input, e, n), numbers.n.size())));
    }
    Bytes above = numbers.n, untouched = above;
    EXPECT_EQ(rsa_public_apply(key.get(), above.data(), above.data()), BE_DATA);
    EXPECT_EQ(above, untouched);
}

void check_private(const RsaNumbers &numbers) {
    const PrivateKey key = prepare_private(numbers);
    ASSERT_NE(key, nullptr);
    ASSERT_EQ(rsa_private_size(key.get()), numbers.n.size());
    const Number n = number(numbers.n), d = number(numbers.d);
    for (const Number &input : inputs(n)) {
        Bytes block = bytes_of(input, numbers.n.size());
        ASSERT_EQ(rsa_private_apply(key.get(), block.data(), block.data()), BE_OK);
        EXPECT_EQ(to_hex(block), to_hex(bytes_of(power(input, d, n), numbers.n.size())));
    }
    Bytes above = numbers.n, untouched = above;
    EXPECT_EQ(rsa_private_apply(key.get(), above.data(), above.data()), BE_DATA);
    EXPECT_EQ(above, untouched);
}

struct SizeCase {
    const char *why;
    int p_bits, q_bits;
    bool one_short;
    unsigned long e;
};

const SizeCase kSizeCases[] = {
    {"the least modulus", 128, 128, false, 65537},
    {"export-grade keys", 256, 256, false, 65537},
    {"one bit short of the octet", 256, 256, true, 3},
    {"half an octet short", 254, 254, false, 15},
    {"a whole octet more", 260, 260, false, 65537},
    {"a limb more than it seems", 257, 256, false, 3},
    {"limbs that are no power of two", 339, 339, false, 3},
    {"bits that fill no limb", 500, 500, false, 65537},
    {"one bit short of the limb", 512, 512, true, 5},
    {"one limb count, one implementation's step", 512, 512, false, 65537},
    {"primes of unequal length", 300, 212, false, 65537},
    {"the second prime is longer", 200, 400, false, 17},
    {"one short prime", 64, 448, false, 65537},
    {"three halves of a step", 768, 768, false, 65537},
    {"the ordinary key", 1024, 1024, false, 65537},
    {"a small unusual exponent", 256, 256, false, 11},
    {"an exponent above 32 bits", 256, 256, false, 0x100000000ful},
};

TEST(Rsa, OperationsAgreeAtEverySize) {
    for (const SizeCase &row : kSizeCases) {
        SCOPED_TRACE(row.why);
        const RsaNumbers numbers =
            new_rsa_numbers(row.p_bits, row.q_bits, number(row.e), row.one_short);
        with_each_arithmetic([&] {
            check_public(numbers);
            check_private(numbers);
        });
        if (HasFailure())
            return;
    }
}

} // namespace
