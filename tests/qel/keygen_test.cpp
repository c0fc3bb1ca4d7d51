#include "qel/signer.h"
#include "support/fault.h"

#include <functional>
#include <set>

namespace {

// What a generation hands out.
struct Made {
    QelStatus status = QEL_OK;
    uint8_t *key = nullptr;
    QelOctetString *parameters = nullptr;

    Made() = default;
    Made(const Made &) = delete;
    Made &operator=(const Made &) = delete;
    ~Made() {
        free(key);
        __qel_free_ostr(&parameters);
    }
    bool handed_out() const { return key != nullptr || parameters != nullptr; }
    std::string parameters_text() const {
        return parameters != nullptr ? to_hex(parameters->value, parameters->length) : "none";
    }
};

struct Generator {
    const char *name;
    std::function<QelStatus(QelContext *, uint8_t **, QelOctetString **)> call;
    uint32_t length;
    uint8_t odd_positions;  // the bits that bytes there may have
    const char *parameters; // their encoding, up to the initialisation vector
};

const Generator generators[] = {
    {"DES", qel_gen_des_key, 8, 0x0f, "0408"},
    {"RC2, 40 effective bits",
     [](QelContext *context, uint8_t **key, QelOctetString **parameters) {
         return qel_gen_rc2_key(context, 5, 40, key, parameters);
     },
     5, 0xff, "300e020200a00408"},
    {"RC2, a key longer than may encrypt",
     [](QelContext *context, uint8_t **key, QelOctetString **parameters) {
         return qel_gen_rc2_key(context, 70000, 1, key, parameters);
     },
     70000, 0xff, "300d0201560408"},
    {"RC4",
     [](QelContext *context, uint8_t **key, QelOctetString **parameters) {
         *parameters = nullptr;
         return qel_gen_rc4_key(context, 5, key);
     },
     5, 0xff, nullptr},
};

TEST(SymmetricKeys, AreNewEachTime) {
    const TestContext context;
    for (const Generator &g : generators) {
        SCOPED_TRACE(g.name);
        std::set<Bytes> keys;
        std::set<std::string> parameters;
        Bytes seen(g.length);
        for (int i = 0; i < 64; ++i) {
            Made made;
            uint8_t not_ours[1] = {};
            made.key = not_ours; // is overwritten, not written to
            ASSERT_EQ(g.call(context, &made.key, &made.parameters), QEL_OK);
            ASSERT_NE(made.key, not_ours);
            keys.insert(Bytes(made.key, made.key + g.length));
            parameters.insert(made.parameters_text());
            for (uint32_t at = 0; at < g.length; ++at)
                seen[at] |= made.key[at];
        }
        EXPECT_EQ(keys.size(), 64u);
        Bytes all(g.length, 0xff);
        for (uint32_t at = 1; at < g.length; at += 2)
            all[at] = g.odd_positions;
        EXPECT_EQ(seen, all) << "the bits that were ever 1";
        if (g.parameters == nullptr)
            continue;
        EXPECT_EQ(parameters.size(), 64u) << "a new vector each time";
        for (const std::string &text : parameters) {
            EXPECT_EQ(text.substr(0, text.size() - 16), g.parameters);
        }
    }
}

TEST(SymmetricKeys, Refusals) {
    const TestContext context;
    Made made;
    const auto refused = QEL_ERR_BAD_PARAM;
    each_missing(refused, qel_gen_des_key, {}, context, &made.key, &made.parameters);
    each_missing(refused, qel_gen_rc2_key, {}, context, 5, 41, &made.key, &made.parameters);
    each_missing(refused, qel_gen_rc4_key, {}, context, 5, &made.key);
    EXPECT_EQ(qel_gen_rc2_key(context, 5, 41, &made.key, &made.parameters), QEL_ERR_EXPORT);
    EXPECT_EQ(qel_gen_des3_key(context, &made.key, &made.parameters), QEL_ERR_EXPORT);
    EXPECT_EQ(qel_gen_des3_key(nullptr, nullptr, nullptr), QEL_ERR_EXPORT);
    EXPECT_FALSE(made.handed_out());
}

// The key is there when the vector cannot be drawn, and is not handed out alone.
TEST(SymmetricKeys, Faults) {
    const TestContext context;
    for (const Generator &g : generators) {
        SCOPED_TRACE(g.name);
        for (const std::size_t draw : {1u, 2u}) {
            Made made;
            fault::fail(fault::Call::read, draw);
            const QelStatus status = g.call(context, &made.key, &made.parameters);
            EXPECT_EQ(status, fault::clear(fault::Call::read) ? QEL_ERR_RANDOM : QEL_OK);
            EXPECT_EQ(made.handed_out(), status == QEL_OK);
        }
        fault::each_allocation([&] {
            Made made;
            const QelStatus status = g.call(context, &made.key, &made.parameters);
            const std::set<QelStatus> expected = {QEL_ERR_NO_MEMORY, QEL_ERR_GENERAL,
                                                  QEL_ERR_ASN1_ENCODE, QEL_ERR_ASN1_DECODE};
            EXPECT_EQ(expected.contains(status), fault::met()) << status;
            EXPECT_EQ(status != QEL_OK, fault::met());
            EXPECT_EQ(made.handed_out(), status == QEL_OK);
        });
    }
}

// ---- RSA key pairs

const Bytes f4 = from_hex("010001");

struct Pair {
    uint8_t *public_key = nullptr;
    uint32_t public_bits = 0;
    uint8_t *private_key = nullptr;
    uint32_t private_length = 0;

    Pair() = default;
    Pair(const Pair &) = delete;
    Pair &operator=(const Pair &) = delete;
    ~Pair() {
        free(public_key);
        free(private_key);
    }
    QelStatus generate(QelContext *context, uint32_t bits, const Bytes &exponent) {
        const QelRsaKeypairParams parameters = {
            bits, {length_of(exponent), const_cast<uint8_t *>(exponent.data())}};
        testing::internal::CaptureStderr(); // the spinner
        const QelStatus status = qel_gen_rsa_keypair(context, &parameters, &public_key,
                                                     &public_bits, &private_key, &private_length);
        testing::internal::GetCapturedStderr();
        return status;
    }
    bool handed_out() const {
        return public_key != nullptr || private_key != nullptr || public_bits != 0 ||
               private_length != 0;
    }
};

RsaKey key_of(const Pair &pair) {
    return RsaKey(Bytes(pair.private_key, pair.private_key + pair.private_length));
}

TEST(RsaKeyPair, PassesAnotherLibrarysCheck) {
    const TestContext context;
    const struct {
        uint32_t bits;
        Bytes exponent;
    } cases[] = {
        {512, f4}, {512, from_hex("03")}, {512, from_hex("0000010001")}, {511, f4}, {256, f4}};
    for (const auto &c : cases) {
        SCOPED_TRACE(std::to_string(c.bits) + " bits, e " + to_hex(c.exponent));
        Pair pair;
        ASSERT_EQ(pair.generate(context, c.bits, c.exponent), QEL_OK);
        const RsaKey key = key_of(pair);
        EXPECT_TRUE(key.is_sound());
        EXPECT_EQ(key.bits(), c.bits);
        EXPECT_EQ(pair.public_bits % 8, 0u);
        EXPECT_EQ(Bytes(pair.public_key, pair.public_key + pair.public_bits / 8), key.public_key());
    }
}

// A generator that repeats itself, or a modulus that falls short now and then.
TEST(RsaKeyPair, NoTwoShareAPrime) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    constexpr std::size_t count = 40;
#else
    constexpr std::size_t count = 1000;
#endif
    const TestContext context;
    std::set<Bytes> primes;
    for (std::size_t i = 0; i < count; ++i) {
        Pair pair;
        ASSERT_EQ(pair.generate(context, 512, f4), QEL_OK);
        const RsaKey key = key_of(pair);
        ASSERT_EQ(key.bits(), 512u);
        primes.insert(key.prime1());
        primes.insert(key.prime2());
    }
    EXPECT_EQ(primes.size(), 2 * count);
}

TEST(RsaKeyPair, Refusals) {
    const TestContext context;
    Pair pair;
    const QelRsaKeypairParams good = {512, {3, const_cast<uint8_t *>(f4.data())}};
    const QelRsaKeypairParams no_exponent = {513, {3, nullptr}}, empty = {513, {0, nullptr}};
    for (const QelRsaKeypairParams *bad : {&no_exponent, &empty})
        EXPECT_EQ(qel_gen_rsa_keypair(context, bad, &pair.public_key, &pair.public_bits,
                                      &pair.private_key, &pair.private_length),
                  QEL_ERR_BAD_PARAM);
    each_missing(QEL_ERR_BAD_PARAM, qel_gen_rsa_keypair, {}, context, &good, &pair.public_key,
                 &pair.public_bits, &pair.private_key, &pair.private_length);
    EXPECT_FALSE(pair.handed_out());
    const struct {
        const char *why;
        uint32_t bits;
        Bytes exponent;
        QelStatus status;
    } values[] = {
        {"513 bits, before the exponent is looked at", 513, from_hex("02"), QEL_ERR_EXPORT},
        {"an even exponent", 512, from_hex("02"), QEL_ERR_KEYGEN},
        {"an exponent of 1", 512, from_hex("01"), QEL_ERR_KEYGEN},
        {"an exponent as long as the modulus", 512, Bytes(64, 0xff), QEL_ERR_KEYGEN},
        {"255 bits", 255, f4, QEL_ERR_KEYGEN},
    };
    for (const auto &c : values) {
        EXPECT_EQ(pair.generate(context, c.bits, c.exponent), c.status) << c.why;
        EXPECT_FALSE(pair.handed_out()) << c.why;
    }
    fault::fail(fault::Call::open, 1);
    EXPECT_EQ(pair.generate(context, 512, f4), QEL_ERR_KEYGEN) << "no randomness";
    EXPECT_TRUE(fault::clear(fault::Call::open));
}

TEST(RsaKeyPair, EachAllocation) {
    const TestContext context;
    std::set<QelStatus> seen;
    fault::each_allocation([&] {
        Pair pair;
        const QelStatus status = pair.generate(context, 256, f4);
        seen.insert(status);
        EXPECT_EQ(status == QEL_OK, !fault::met());
        EXPECT_EQ(pair.handed_out(), status == QEL_OK);
    });
    EXPECT_EQ(seen,
              (std::set<QelStatus>{QEL_OK, QEL_ERR_GENERAL, QEL_ERR_KEYGEN, QEL_ERR_BAD_KEY}));
}

} // namespace
