#include "support/arguments.h"
#include "support/asn1.h"
#include "support/ber.h"
#include "support/fault.h"
#include "support/rsa_key.h"

#include <gtest/gtest.h>

namespace {

class RsaKeyTest : public testing::Test {
protected:
    QelStatus size_of(int kind, const Bytes &key, uint32_t *size_out) {
        return __qel_get_rsa_keysize(context.get(), kind, key.data(), length_of(key), size_out);
    }

    static const RsaKey &rsa() { return RsaKey::of_512_bits(); }
    Asn1Context context;
    uint32_t size = 77;
};

TEST_F(RsaKeyTest, SizeInBytes) {
    static const RsaKey of_521_bits(521), of_528_bits(528);
    for (const RsaKey *key : {&rsa(), &of_521_bits, &of_528_bits, &RsaKey::of_1024_bits()}) {
        EXPECT_EQ(size_of(QEL_RSA_PUBLIC, key->public_key(), &size), QEL_OK);
        EXPECT_EQ(size, key->size());
        EXPECT_EQ(size_of(QEL_RSA_PRIVATE, key->private_key(), &size), QEL_OK);
        EXPECT_EQ(size, key->size());
    }
}

TEST_F(RsaKeyTest, SizeRefusals) {
    const Bytes public_key = rsa().public_key(), private_key = rsa().private_key();
    Bytes cut = private_key, with_more = public_key;
    cut.pop_back();
    with_more.push_back(0);
    const struct {
        const char *why;
        int kind;
        Bytes key;
        QelStatus status;
    } cases[] = {
        {"kind 3", 3, private_key, QEL_ERR_BAD_PARAM},
        {"an empty key", QEL_RSA_PUBLIC, {}, QEL_ERR_BAD_PARAM},
        {"a private key as a public one", QEL_RSA_PUBLIC, private_key, QEL_ERR_BAD_KEY},
        {"a public key as a private one", QEL_RSA_PRIVATE, public_key, QEL_ERR_BAD_KEY},
        {"a key without its last byte", QEL_RSA_PRIVATE, cut, QEL_ERR_BAD_KEY},
        {"a key with a byte behind it", QEL_RSA_PUBLIC, with_more, QEL_ERR_BAD_KEY},
        {"a whole SubjectPublicKeyInfo", QEL_RSA_PUBLIC, rsa().public_key_info(), QEL_ERR_BAD_KEY},
        {"a whole PrivateKeyInfo", QEL_RSA_PRIVATE, rsa().private_key_info(), QEL_ERR_BAD_KEY},
    };
    for (const auto &c : cases) {
        size = 77;
        EXPECT_EQ(size_of(c.kind, c.key, &size), c.status) << c.why;
        EXPECT_EQ(size, 0u) << c.why;
    }
    const uint8_t *bytes = public_key.data();
    each_missing(QEL_ERR_BAD_PARAM, __qel_get_rsa_keysize, {}, context.get(), QEL_RSA_PUBLIC, bytes,
                 1, &size);
    EXPECT_EQ(__qel_get_rsa_keysize(context.get(), QEL_RSA_PUBLIC, bytes, 1u << 29, &size),
              QEL_ERR_BAD_PARAM)
        << "so many bytes that their bits cannot be counted; none is read";
}

// The two numbers of a public key, released at the end.
struct Components {
    uint8_t *modulus = nullptr;
    uint32_t modulus_length = 77;
    uint8_t *exponent = nullptr;
    uint32_t exponent_length = 77;

    Components() = default;
    Components(const Components &) = delete;
    Components &operator=(const Components &) = delete;
    ~Components() {
        free(modulus);
        free(exponent);
    }
    QelStatus read(const Bytes &key) {
        return __qel_get_rsa_pubkey_components(key.data(), length_of(key), &modulus,
                                               &modulus_length, &exponent, &exponent_length);
    }
    bool empty() const {
        return modulus == nullptr && exponent == nullptr && modulus_length == 0 &&
               exponent_length == 0;
    }
};

TEST(RsaComponents, AreTheTwoNumbers) {
    const RsaKey &rsa = RsaKey::of_1024_bits();
    Components of;
    ASSERT_EQ(of.read(rsa.public_key_info()), QEL_OK);
    EXPECT_EQ(Bytes(of.modulus, of.modulus + of.modulus_length), rsa.modulus());
    EXPECT_EQ(Bytes(of.exponent, of.exponent + of.exponent_length), rsa.public_exponent());
}

TEST(RsaComponents, Refusals) {
    const Bytes good = RsaKey::of_512_bits().public_key_info();
    each_spoiled(good, [&](const Bytes &spoiled, const std::string &what) {
        if (spoiled.empty())
            return;
        Components of;
        const QelStatus status = of.read(spoiled);
        EXPECT_TRUE(status == QEL_OK || (status == QEL_ERR_BAD_KEY && of.empty())) << what;
        EXPECT_TRUE(status != QEL_OK || spoiled.size() == good.size()) << what;
    });
    uint8_t *number = nullptr;
    uint32_t length = 0;
    const uint8_t *bytes = good.data();
    const auto read = __qel_get_rsa_pubkey_components;
    each_missing(QEL_ERR_BAD_PARAM, read, {}, bytes, 1, &number, &length, &number, &length);
}

TEST_F(RsaKeyTest, EachAllocation) {
    const Bytes public_key_info = rsa().public_key_info(), private_key = rsa().private_key();
    fault::each_allocation([&] {
        Components of;
        const QelStatus status = of.read(public_key_info);
        EXPECT_EQ(status == QEL_ERR_NO_MEMORY || status == QEL_ERR_BAD_KEY, fault::met()) << status;
        EXPECT_EQ(of.empty(), fault::met());
    });
    fault::each_allocation([&] {
        const QelStatus status = size_of(QEL_RSA_PRIVATE, private_key, &size);
        EXPECT_EQ(status, fault::met() ? QEL_ERR_BAD_KEY : QEL_OK);
        EXPECT_EQ(size, fault::met() ? 0u : 64u);
    });
}

} // namespace
