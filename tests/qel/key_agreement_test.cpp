#include "qel/signer.h"
#include "support/fault.h"
#include "support/numbers.h"

#include <functional>

namespace {

// A prime p of 512 bits for which (p - 1) / 2 is prime too.
const Bytes &prime_512() {
    static const Bytes prime =
        from_hex("eb2425d2bb372a6c3cca8dcc962ddeb7f40b97c3b371bcb95a4d79eb42ea49a9"
                 "e616d893e530e88c282ff92ce1f66f94dc4b4cb93c772b7163273891792be47b");
    return prime;
}

struct Part1 {
    uint32_t exponent_bits = 160;
    Bytes prime = prime_512();
    Bytes base = from_hex("02");
    Bytes seed = Bytes(64, 0x21);
    Bytes value = Bytes(64);

    QelStatus run(QelContext *context) {
        return __qel_dh_part1(context, exponent_bits, length_of(prime), data(prime),
                              length_of(base), data(base), data(seed), length_of(seed),
                              const_cast<uint8_t *>(data(value)), length_of(value));
    }
    static const uint8_t *data(const Bytes &bytes) {
        return bytes.empty() ? nullptr : bytes.data();
    }
};

QelStatus part2(QelContext *context, const Bytes &other, Bytes *secret) {
    uint32_t length = 77;
    const QelStatus status = __qel_dh_part2(context, secret->data(), &length, length_of(*secret),
                                            other.data(), length_of(other));
    EXPECT_EQ(length, status == QEL_OK ? length_of(prime_512()) : 0);
    return status;
}

TEST(KeyAgreement, AnotherLibraryAgrees) {
    const Number prime = number(prime_512()), exponent = random_below(prime);
    const Bytes other_value = bytes_of(power(number(2), exponent, prime), 64);
    for (const uint32_t exponent_bits : {0u, 1u, 160u, 511u}) {
        SCOPED_TRACE(exponent_bits);
        const TestContext context;
        Part1 part1;
        part1.exponent_bits = exponent_bits;
        ASSERT_EQ(part1.run(context), QEL_OK);
        Bytes secret(64);
        // The same secret again, for the agreement stays.
        for (int i = 0; i < 2; ++i) {
            ASSERT_EQ(part2(context, other_value, &secret), QEL_OK);
            EXPECT_EQ(secret, bytes_of(power(number(part1.value), exponent, prime), 64));
        }
    }
}

TEST(KeyAgreement, TwoContextsAgree) {
    const TestContext alice, bob;
    Part1 a, b;
    b.seed[63] ^= 1;
    ASSERT_EQ(a.run(alice), QEL_OK);
    ASSERT_EQ(b.run(bob), QEL_OK);
    EXPECT_NE(a.value, b.value) << "the whole seed counts";
    Bytes of_alice(64), of_bob(70);
    ASSERT_EQ(part2(alice, b.value, &of_alice), QEL_OK);
    ASSERT_EQ(part2(bob, a.value, &of_bob), QEL_OK);
    of_bob.resize(64);
    EXPECT_EQ(of_alice, of_bob);
}

TEST(KeyAgreement, RefusalsOfPart1) {
    const struct {
        const char *why;
        std::function<void(Part1 &)> change;
        QelStatus status;
    } cases[] = {
        {"no prime", [](Part1 &p) { p.prime = {}; }, QEL_ERR_BAD_PARAM},
        {"no seed", [](Part1 &p) { p.seed = {}; }, QEL_ERR_BAD_PARAM},
        {"no buffer", [](Part1 &p) { p.value = {}; }, QEL_ERR_BAD_PARAM},
        {"a seed as long as the exponent", [](Part1 &p) { p.seed.resize(20); }, QEL_ERR_BAD_PARAM},
        {"a prime of 65 bytes", [](Part1 &p) { p.prime.insert(p.prime.begin(), 1); },
         QEL_ERR_BAD_PARAM},
        {"no base", [](Part1 &p) { p.base = {}; }, QEL_ERR_DH_PHASE1},
        {"a base of 1", [](Part1 &p) { p.base = {1}; }, QEL_ERR_DH_PHASE1},
        {"an even prime", [](Part1 &p) { p.prime.back() ^= 1; }, QEL_ERR_DH_PHASE1},
        {"an exponent as long as the prime",
         [](Part1 &p) { p.exponent_bits = 512, p.seed = Bytes(65); }, QEL_ERR_DH_PHASE1},
        {"a buffer one byte short", [](Part1 &p) { p.value.resize(63); }, QEL_ERR_DH_PHASE1},
        {"nothing wrong, on the same context", [](Part1 &) {}, QEL_OK},
        {"a seed one byte longer than the exponent, on a context in use",
         [](Part1 &p) { p.seed.resize(21); }, QEL_ERR_BAD_PARAM},
    };
    const TestContext context;
    for (const auto &c : cases) {
        Part1 part1;
        c.change(part1);
        EXPECT_EQ(part1.run(context), c.status) << c.why;
    }
    Part1 good;
    EXPECT_EQ(good.run(nullptr), QEL_ERR_BAD_PARAM);
    good.seed.resize(21);
    const TestContext other;
    EXPECT_EQ(good.run(other), QEL_OK) << "a seed one byte longer than the exponent";
}

TEST(KeyAgreement, RefusalsOfPart2) {
    const TestContext context;
    Bytes secret(64);
    Part1 part1;
    EXPECT_EQ(part2(context, Bytes(64, 2), &secret), QEL_ERR_BAD_PARAM) << "no agreement yet";
    ASSERT_EQ(part1.run(context), QEL_OK);
    uint32_t length = 0;
    const uint8_t other[] = {2};
    each_missing(QEL_ERR_BAD_PARAM, __qel_dh_part2, {4}, context, secret.data(), &length, 64, other,
                 1);
    Bytes prime_less_1 = prime_512(), prime_less_2 = prime_512();
    prime_less_1.back() ^= 1;
    prime_less_2.back() = static_cast<uint8_t>(prime_less_2.back() - 2);
    const struct {
        const char *why;
        Bytes value;
        std::size_t capacity;
        QelStatus status;
    } cases[] = {
        {"0", {0}, 64, QEL_ERR_DH_PHASE2},
        {"1", {1}, 64, QEL_ERR_DH_PHASE2},
        {"the prime less 1, which has order 2", prime_less_1, 64, QEL_ERR_DH_PHASE2},
        {"the prime", prime_512(), 64, QEL_ERR_DH_PHASE2},
        {"a buffer one byte short", prime_less_2, 63, QEL_ERR_DH_PHASE2},
        {"the prime less 2, after all those", prime_less_2, 64, QEL_OK},
        {"2, with a leading zero", {0, 2}, 64, QEL_OK},
    };
    for (const auto &c : cases) {
        secret.assign(c.capacity, 0);
        EXPECT_EQ(part2(context, c.value, &secret), c.status) << c.why;
        EXPECT_EQ(secret == Bytes(c.capacity, 0), c.status != QEL_OK) << c.why;
    }
}

TEST(KeyAgreement, EachAllocation) {
    const TestContext context;
    Part1 part1;
    fault::each_allocation([&] {
        const QelStatus status = part1.run(context);
        EXPECT_EQ(status, fault::met() ? QEL_ERR_DH_PHASE1 : QEL_OK);
        EXPECT_EQ(context->key_agreement == nullptr, fault::met());
    });
    Bytes secret(64);
    fault::each_allocation([&] {
        const QelStatus status = part2(context, part1.value, &secret);
        EXPECT_EQ(status, fault::met() ? QEL_ERR_DH_PHASE2 : QEL_OK);
    });
}

} // namespace
