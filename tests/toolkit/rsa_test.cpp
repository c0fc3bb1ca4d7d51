// The RSA operations, against libcrypto's numbers.
#define OPENSSL_SUPPRESS_DEPRECATED
#include "big_numbers.h"
#include "support/fault.h"

#include <openssl/objects.h>
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

enum Form { with_exponent, crt_alone, without_primes };
const char *const form_names[] = {"with the public exponent", "CRT numbers alone",
                                  "private exponent alone"};

int private_new(RsaPrivate **key, RsaNumbers &numbers, Form form) {
    const A_RSA_KEY plain = {item(numbers.n), item(numbers.d)};
    if (form == without_primes)
        return rsa_private_new(key, plain);
    return rsa_private_new(key, numbers.private_key(),
                           form == with_exponent ? item(numbers.e) : ITEM{});
}

PrivateKey prepare_private(RsaNumbers numbers, int expected = BE_OK, Form form = with_exponent) {
    RsaPrivate *key = reinterpret_cast<RsaPrivate *>(1);
    EXPECT_EQ(private_new(&key, numbers, form), expected) << form_names[form];
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

// One operation on inputs of each kind, in place; what is not below the modulus is refused.
template <class Apply>
void check_operation(const RsaNumbers &numbers, const Number &exponent, Apply apply) {
    const Number n = number(numbers.n);
    for (const Number &input : inputs(n)) {
        Bytes block = bytes_of(input, numbers.n.size());
        ASSERT_EQ(apply(block.data()), BE_OK);
        EXPECT_EQ(to_hex(block), to_hex(bytes_of(power(input, exponent, n), numbers.n.size())));
    }
    Bytes above = numbers.n, untouched = above;
    EXPECT_EQ(apply(above.data()), BE_DATA);
    EXPECT_EQ(above, untouched);
}

void check_public(const RsaNumbers &numbers) {
    const PublicKey key = prepare_public(numbers);
    ASSERT_NE(key, nullptr);
    ASSERT_EQ(rsa_public_size(key.get()), numbers.n.size());
    check_operation(numbers, number(numbers.e),
                    [&](uint8_t *block) { return rsa_public_apply(key.get(), block, block); });
}

void check_private(const RsaNumbers &numbers, Form form) {
    SCOPED_TRACE(form_names[form]);
    const PrivateKey key = prepare_private(numbers, BE_OK, form);
    ASSERT_NE(key, nullptr);
    ASSERT_EQ(rsa_private_size(key.get()), numbers.n.size());
    check_operation(numbers, number(numbers.d),
                    [&](uint8_t *block) { return rsa_private_apply(key.get(), block, block); });
}

TEST(Rsa, OperationsAgreeAtEverySize) {
    const struct {
        const char *why;
        int p_bits, q_bits;
        bool one_short;
        const char *e;  // decimal; null: a random one
        int e_bits = 0; // of that
    } rows[] = {
        {"the least modulus", 128, 128, false, "65537"},
        {"export-grade keys", 256, 256, false, "65537"},
        {"one bit short of the octet", 256, 256, true, "3"},
        {"half an octet short", 254, 254, false, "15"},
        {"a whole octet more", 260, 260, false, "65537"},
        {"a limb more than it seems", 257, 256, false, "3"},
        {"limbs that are no power of two", 339, 339, false, "3"},
        {"bits that fill no limb", 500, 500, false, "65537"},
        {"one bit short of the limb", 512, 512, true, "5"},
        {"one limb count, one implementation's step", 512, 512, false, "65537"},
        {"primes of unequal length", 300, 212, false, "65537"},
        {"the second prime is longer", 200, 400, false, "17"},
        {"one short prime", 64, 448, false, "65537"},
        {"three halves of a step", 768, 768, false, "65537"},
        {"the ordinary key", 1024, 1024, false, "65537"},
        {"a small unusual exponent", 256, 256, false, "11"},
        {"an exponent above 32 bits", 256, 256, false, "4294967311"},
        {"an exponent longer than one prime", 20, 492, false, "4294967311"},
        {"a usual exponent longer than one prime", 12, 500, false, "65537"},
        // No one number is then the public exponent modulo both p - 1 and q - 1.
        {"the least modulus, a long exponent", 128, 128, false, nullptr, 255},
        {"an exponent as long as the primes", 256, 256, false, nullptr, 256},
        {"nearly as long as the modulus", 256, 256, false, nullptr, 500},
        {"longer than one prime", 200, 312, false, nullptr, 300},
        {"as long as the modulus", 512, 512, false, nullptr, 1023},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        const RsaNumbers numbers = new_rsa_numbers(
            row.p_bits, row.q_bits, row.e != nullptr ? decimal(row.e) : random_odd(row.e_bits),
            row.one_short);
        with_each_arithmetic([&] {
            check_public(numbers);
            for (const Form form : {with_exponent, crt_alone, without_primes})
                check_private(numbers, form);
        });
        if (HasFailure())
            return;
    }
}

// The primes of RFC 3526 and RFC 7919 save the making of long ones.
TEST(Rsa, LongKeys) {
    const Number f4 = number(65537);
    DH *const dh = DH_new_by_nid(NID_ffdhe8192);
    const Number ffdhe(BN_dup(DH_get0_p(dh)));
    DH_free(dh);
    const Number modp8192(BN_get_rfc3526_prime_8192(nullptr));
    const Number modp6144(BN_get_rfc3526_prime_6144(nullptr));
    const Number modp4096(BN_get_rfc3526_prime_4096(nullptr));
    const Number modp2048(BN_get_rfc3526_prime_2048(nullptr));
    const struct {
        const char *why;
        const Number &p, &q;
    } rows[] = {{"the longest modulus", ffdhe, modp8192},
                {"unequal long primes", modp6144, modp2048},
                {"the second is longer", modp2048, modp4096}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        const RsaNumbers numbers = rsa_numbers(row.p, row.q, f4);
        const Number n = number(numbers.n);
        with_each_arithmetic([&] {
            const PrivateKey key = prepare_private(numbers);
            const PublicKey public_key = prepare_public(numbers);
            const Bytes block = bytes_of(random_below(n), numbers.n.size());
            Bytes there(block.size()), back(block.size());
            ASSERT_EQ(rsa_private_apply(key.get(), block.data(), there.data()), BE_OK);
            ASSERT_EQ(rsa_public_apply(public_key.get(), there.data(), back.data()), BE_OK);
            EXPECT_EQ(to_hex(back), to_hex(block));
            const Number expected = power(number(block), f4, n);
            ASSERT_EQ(rsa_public_apply(public_key.get(), block.data(), there.data()), BE_OK);
            EXPECT_EQ(to_hex(there), to_hex(bytes_of(expected, block.size())));
        });
    }
}

// Any odd modulus serves the public operation.
TEST(Rsa, PublicExponentsOfEveryLength) {
    const Number n = random_odd(1000);
    for (const char *e :
         {"3", "15", "65537", "4294967297", "340282366920938463463374607431768211457"}) {
        SCOPED_TRACE(e);
        RsaNumbers numbers;
        numbers.n = bytes_of(n);
        numbers.e = bytes_of(decimal(e));
        with_each_arithmetic([&] { check_public(numbers); });
    }
    RsaNumbers numbers;
    numbers.n = bytes_of(n);
    numbers.e = bytes_of(less(n, 2));
    with_each_arithmetic([&] { check_public(numbers); });

    // A long modulus takes a short exponent only.
    numbers.n = bytes_of(random_odd(4097));
    numbers.e = bytes_of(decimal("18446744073709551615"));
    with_each_arithmetic([&] { check_public(numbers); });
    numbers.e = bytes_of(decimal("18446744073709551617"));
    prepare_public(numbers, BE_KEY_INFO);
}

// The blinding is squared after each use and replaced after some.
TEST(Rsa, ManyOperationsWithOneKey) {
    const RsaNumbers numbers = new_rsa_numbers(256, 256, number(3));
    const Number n = number(numbers.n), d = number(numbers.d);
    for (const Form form : {with_exponent, without_primes}) {
        const PrivateKey key = prepare_private(numbers, BE_OK, form);
        for (int i = 0; i < 100; ++i) {
            const Number input = random_below(n);
            Bytes block = bytes_of(input, 64);
            ASSERT_EQ(rsa_private_apply(key.get(), block.data(), block.data()), BE_OK);
            ASSERT_EQ(to_hex(block), to_hex(bytes_of(power(input, d, n), 64))) << i;
        }
    }
}

struct NumberCase {
    const char *why;
    int expected;
    std::function<void(RsaNumbers &)> change;
};

void even(Bytes &number) {
    number.back() &= 0xfe;
}

// clang-format off
const NumberCase kBadPublicNumbers[] = {
    {"no modulus", BE_MODULUS_LEN, [](RsaNumbers &k) { k.n.clear(); }},
    {"a modulus of zeros", BE_MODULUS_LEN, [](RsaNumbers &k) { k.n.assign(64, 0); }},
    {"255 bits", BE_MODULUS_LEN, [](RsaNumbers &k) { k.n = bytes_of(random_odd(255)); }},
    {"16385 bits", BE_MODULUS_LEN, [](RsaNumbers &k) { k.n = bytes_of(random_odd(16385)); }},
    {"an even modulus", BE_KEY_INFO, [](RsaNumbers &k) { even(k.n); }},
    {"no exponent", BE_KEY_INFO, [](RsaNumbers &k) { k.e.clear(); }},
    {"exponent 0", BE_KEY_INFO, [](RsaNumbers &k) { k.e = {0}; }},
    {"exponent 1", BE_KEY_INFO, [](RsaNumbers &k) { k.e = {0, 1}; }},
    {"an even exponent", BE_KEY_INFO, [](RsaNumbers &k) { k.e = {1, 0, 0}; }},
    {"the modulus as exponent", BE_KEY_INFO, [](RsaNumbers &k) { k.e = k.n; }},
    {"a longer exponent", BE_KEY_INFO, [](RsaNumbers &k) { k.e.assign(65, 1); }},
};
// clang-format on

TEST(Rsa, PublicNumbersThatMakeNoKey) {
    const RsaNumbers good = new_rsa_numbers(256, 256, number(65537));
    for (const NumberCase &row : kBadPublicNumbers) {
        SCOPED_TRACE(row.why);
        RsaNumbers bad = good;
        row.change(bad);
        prepare_public(bad, row.expected);
    }
}

// clang-format off
const NumberCase kBadPrivateNumbers[] = {
    {"no modulus", BE_MODULUS_LEN, [](RsaNumbers &k) { k.n.clear(); }},
    {"an even modulus", BE_KEY_INFO, [](RsaNumbers &k) { even(k.n); }},
    {"no first prime", BE_KEY_INFO, [](RsaNumbers &k) { k.p.clear(); }},
    {"no second exponent", BE_KEY_INFO, [](RsaNumbers &k) { k.dq.clear(); }},
    {"no coefficient", BE_KEY_INFO, [](RsaNumbers &k) { k.coefficient.clear(); }},
    {"prime 1", BE_KEY_INFO, [](RsaNumbers &k) { k.p = {1}; k.q = k.n; }},
    {"primes that are swapped alone", BE_KEY_INFO, [](RsaNumbers &k) { k.p.swap(k.q); }},
    {"exponents that are swapped", BE_KEY_INFO, [](RsaNumbers &k) { k.dp.swap(k.dq); }},
    {"one prime twice", BE_KEY_INFO, [](RsaNumbers &k) { k.q = k.p; k.n = bytes_of(product(number(k.p), number(k.p))); }},
    {"an exponent that is not reduced", BE_KEY_INFO, [](RsaNumbers &k) { k.dp = k.d; }},
    {"a coefficient that is not reduced", BE_KEY_INFO, [](RsaNumbers &k) {
         Number sum = number(k.coefficient);
         BN_add(sum.get(), sum.get(), number(k.p).get());
         k.coefficient = bytes_of(sum);
     }},
    {"exponents of 1", BE_KEY_INFO, [](RsaNumbers &k) { k.e = k.dp = k.dq = {1}; }},
    {"one exponent of 1", BE_KEY_INFO, [](RsaNumbers &k) { k.dp = {1}; }},
    {"another usual public exponent", BE_KEY_INFO, [](RsaNumbers &k) { k.e = {3}; }},
    {"another long public exponent", BE_KEY_INFO, [](RsaNumbers &k) { k.e = k.d; }},
    {"an even public exponent", BE_KEY_INFO, [](RsaNumbers &k) { even(k.e); }},
    {"a public exponent of 0", BE_KEY_INFO, [](RsaNumbers &k) { k.e = {0}; }},
    {"a public exponent longer than the modulus", BE_KEY_INFO, [](RsaNumbers &k) { k.e = bytes_of(product(number(k.p), product(number(k.q), number(3)))); }},
};
// clang-format on

// clang-format off
const NumberCase kBadPlainNumbers[] = {
    {"no modulus", BE_MODULUS_LEN, [](RsaNumbers &k) { k.n.clear(); }},
    {"an even modulus", BE_KEY_INFO, [](RsaNumbers &k) { even(k.n); }},
    {"no exponent", BE_KEY_INFO, [](RsaNumbers &k) { k.d.clear(); }},
    {"an even exponent", BE_KEY_INFO, [](RsaNumbers &k) { even(k.d); }},
    {"exponent 1", BE_KEY_INFO, [](RsaNumbers &k) { k.d = {1}; }},
    {"the modulus as exponent", BE_KEY_INFO, [](RsaNumbers &k) { k.d = k.n; }},
};
// clang-format on

TEST(Rsa, PrivateNumbersThatMakeNoKey) {
    const RsaNumbers good = new_rsa_numbers(256, 256, number(65537));
    for (const NumberCase &row : kBadPrivateNumbers) {
        SCOPED_TRACE(row.why);
        RsaNumbers bad = good;
        row.change(bad);
        prepare_private(bad, row.expected);
    }
    for (const NumberCase &row : kBadPlainNumbers) {
        SCOPED_TRACE(row.why);
        RsaNumbers bad = good;
        row.change(bad);
        prepare_private(bad, row.expected, without_primes);
    }
}

// No bit of the numbers may be wrong: a signature with one of them tells the primes.
TEST(Rsa, DamagedNumbersGiveNoResult) {
    for (const char *e : {"65537", "340282366920938463463374607431768211457"}) {
        SCOPED_TRACE(e);
        const RsaNumbers good = new_rsa_numbers(128, 128, decimal(e));
        for (Bytes RsaNumbers::*part :
             {&RsaNumbers::n, &RsaNumbers::e, &RsaNumbers::p, &RsaNumbers::q, &RsaNumbers::dp,
              &RsaNumbers::dq, &RsaNumbers::coefficient})
            each_spoiled(good.*part, [&](const Bytes &spoiled, const std::string &what) {
                if (part == &RsaNumbers::e && spoiled.empty())
                    return; // it is not given
                RsaNumbers bad = good;
                bad.*part = spoiled;
                RsaPrivate *key = nullptr;
                const int error = private_new(&key, bad, with_exponent);
                EXPECT_TRUE(error == BE_KEY_INFO || error == BE_MODULUS_LEN)
                    << what << ": " << error;
                EXPECT_EQ(key, nullptr);
            });
    }
}

// Numbers that fit each other, but of a "prime" that is none: the check of the result sees it.
TEST(Rsa, CompositePrimesGiveNoResult) {
    const Number p = product(random_prime(120), random_prime(136)), q = random_prime(256);
    for (const Number &e : {number(65537), random_prime(500)}) {
        const PrivateKey key = prepare_private(rsa_numbers(p, q, e));
        ASSERT_NE(key, nullptr);
        Bytes block(64, 2), before = block;
        EXPECT_EQ(rsa_private_apply(key.get(), block.data(), block.data()), BE_INTERNAL);
        EXPECT_EQ(block, before);
    }
}

TEST(Rsa, NoBlindingNoResult) {
    const PrivateKey key = prepare_private(new_rsa_numbers(256, 256, number(65537)));
    Bytes block(64, 2), before = block;
    fault::fail_always(fault::Call::getrandom);
    EXPECT_EQ(rsa_private_apply(key.get(), block.data(), block.data()), BE_RANDOM_OBJ);
    EXPECT_TRUE(fault::clear(fault::Call::getrandom));
    EXPECT_EQ(block, before);
    EXPECT_EQ(rsa_private_apply(key.get(), block.data(), block.data()), BE_OK);
}

TEST(Rsa, PrivateKeysAreZeroedBeforeTheyAreFreed) {
    RsaNumbers numbers = new_rsa_numbers(512, 512, number(3));
    RsaNumbers damaged = numbers;
    damaged.dp[7] ^= 1;
    const A_RSA_CRT_KEY good = numbers.private_key(), bad = damaged.private_key();
    const ITEM e = item(numbers.e);
    uint8_t block[128] = {1};
    with_each_arithmetic([&] {
        const FreedBlocksAreZero watch;
        RsaPrivate *key = nullptr;
        EXPECT_EQ(rsa_private_new(&key, bad, e), BE_KEY_INFO);
        EXPECT_EQ(rsa_private_new(&key, good, e), BE_OK);
        EXPECT_EQ(rsa_private_apply(key, block, block), BE_OK);
        rsa_private_free(key);
    });
}

} // namespace
