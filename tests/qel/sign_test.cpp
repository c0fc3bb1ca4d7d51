#include "qel/signer.h"
#include "support/fault.h"

#include <set>

namespace {

struct SignatureAlgorithm {
    const QelAlgId *const *algorithm;
    Bytes (*digest)(const Bytes &);
    Bytes (*digest_info)(const Bytes &);
};

const SignatureAlgorithm algorithms[] = {
    {&QEL_MD2WithRSAEncryption_AID, md2, md2_digest_info},
    {&QEL_MD5WithRSAEncryption_AID, md5, md5_digest_info},
};

class SignTest : public testing::Test {
protected:
    static const RsaKey &rsa() { return RsaKey::of_1024_bits(); }

    TestContext context;
    SignerKey key{rsa()};
    const Bytes text = bytes_of("Sign me, with one hand or with two.");
    uint8_t *out = nullptr;
    uint32_t length = 0;
};

TEST_F(SignTest, EqualsAnotherLibraryInAllModes) {
    for (const SignatureAlgorithm &a : algorithms) {
        const QelAlgId *algorithm = *a.algorithm;
        const Bytes expected = rsa().sign(a.digest_info(a.digest(text)));
        EXPECT_EQ(key.signature(context, text, QEL_MODE_FINAL, algorithm), expected);
        EXPECT_EQ(key.signature(context, a.digest(text), QEL_MODE_DIGEST, algorithm), expected);
        for (const bool last_without_data : {false, true}) {
            const std::size_t half = text.size() / 2;
            const Bytes first(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(half));
            Bytes rest(text.begin() + static_cast<std::ptrdiff_t>(half), text.end());
            EXPECT_EQ(key.sign(context, first, QEL_MODE_UPDATE, algorithm, nullptr, nullptr),
                      QEL_OK);
            if (last_without_data) {
                // Only the first update has to name the algorithm.
                EXPECT_EQ(key.sign(context, rest, QEL_MODE_UPDATE, nullptr, nullptr, nullptr),
                          QEL_OK);
                rest.clear();
            }
            EXPECT_EQ(key.signature(context, rest, QEL_MODE_FINAL, nullptr), expected);
            EXPECT_TRUE(context.idle());
        }
    }
    EXPECT_EQ(rsa().sign_md5(md5(text)), rsa().sign(md5_digest_info(md5(text))))
        << "the oracle's own DigestInfo";
}

TEST_F(SignTest, CallersBuffer) {
    uint8_t buffer[130] = {};
    const struct {
        const char *why;
        uint32_t mode;
        uint32_t capacity;
        QelStatus status;
    } cases[] = {
        {"one byte short", QEL_MODE_FINAL, 127, QEL_ERR_BUFFER_SIZE},
        {"just enough", QEL_MODE_FINAL, 128, QEL_OK},
        {"more than enough", QEL_MODE_FINAL, 130, QEL_OK},
        {"a buffer without capacity", QEL_MODE_FINAL, 0, QEL_ERR_BAD_PARAM},
        {"which for a digest is one that is too short", QEL_MODE_DIGEST, 0, QEL_ERR_BUFFER_SIZE},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.why);
        out = buffer;
        length = c.capacity;
        const Bytes data = c.mode == QEL_MODE_DIGEST ? md5(text) : text;
        EXPECT_EQ(key.sign(context, data, c.mode, QEL_MD5WithRSAEncryption_AID, &out, &length),
                  c.status);
        EXPECT_EQ(out, buffer);
        EXPECT_EQ(length, c.status == QEL_OK ? 128 : c.capacity);
        EXPECT_EQ(context.idle(), c.mode == QEL_MODE_FINAL);
    }
    EXPECT_EQ(Bytes(buffer, buffer + 128), rsa().sign_md5(md5(text)));
}

TEST_F(SignTest, BadParameters) {
    const QelAlgId *const rsa_id = QEL_RSA_ENCR_AID, *const with_md5 = QEL_MD5WithRSAEncryption_AID;
    const uint8_t *const bytes = key.private_bytes.data();
    const uint32_t size = length_of(key.private_bytes);
    for (const uint32_t mode : {QEL_MODE_FINAL, QEL_MODE_DIGEST})
        each_missing(QEL_ERR_BAD_PARAM, qel_sign, {}, context, text.data(), 16, mode, rsa_id, bytes,
                     size, with_md5, &out, &length);
    const struct {
        const char *why;
        Bytes data;
        uint32_t mode;
        uint32_t capacity;
    } cases[] = {
        {"mode 4", text, 4, 0},
        {"no data", {}, QEL_MODE_FINAL, 0},
        {"no data in an update", {}, QEL_MODE_UPDATE, 0},
        {"no digest", {}, QEL_MODE_DIGEST, 0},
        {"a digest one byte short", Bytes(15), QEL_MODE_DIGEST, 0},
        {"a digest one byte long", Bytes(17), QEL_MODE_DIGEST, 0},
        {"a capacity without a buffer", text, QEL_MODE_FINAL, 128},
    };
    for (const auto &c : cases) {
        length = c.capacity;
        EXPECT_EQ(key.sign(context, c.data, c.mode, with_md5, &out, &length), QEL_ERR_BAD_PARAM)
            << c.why;
        EXPECT_TRUE(context.idle()) << c.why;
    }
    length = 0;
    const auto sign_with = [&](const QelAlgId *key_algorithm, uint32_t key_length) {
        return qel_sign(context, text.data(), length_of(text), QEL_MODE_FINAL, key_algorithm,
                        nullptr, key_length, with_md5, &out, &length);
    };
    EXPECT_EQ(sign_with(rsa_id, 0), QEL_ERR_BAD_PARAM) << "the key algorithm alone";
    EXPECT_EQ(sign_with(nullptr, size), QEL_ERR_BAD_PARAM) << "the key length alone";
    EXPECT_EQ(out, nullptr);
    EXPECT_TRUE(context.idle());
}

TEST_F(SignTest, Failures) {
    TestOid<4> old_rsa = {{2, 5, 8, 1}};
    TestOid<6> old_md5_rsa = {{1, 3, 14, 3, 2, 3}};
    Bytes cut = key.private_bytes;
    cut.pop_back();
    const QelAlgId *const rsa_id = QEL_RSA_ENCR_AID, *const with_md5 = QEL_MD5WithRSAEncryption_AID;
    const Bytes &good = key.private_bytes, none;
    const struct {
        const char *why;
        const QelAlgId *key_algorithm;
        const Bytes &key;
        const QelAlgId *algorithm;
        QelStatus status;
    } cases[] = {
        {"under its older name", rsa_id, good, &old_md5_rsa.algorithm, QEL_ERR_UNSUPPORTED_ALG},
        {"a digest is no signature", rsa_id, good, QEL_MD5_AID, QEL_ERR_UNSUPPORTED_ALG},
        {"a key of another algorithm", &old_rsa.algorithm, good, with_md5, QEL_ERR_KEY_TYPE},
        {"a key without its last byte", rsa_id, cut, with_md5, QEL_ERR_BAD_KEY},
        {"a public key", rsa_id, key.public_bytes, with_md5, QEL_ERR_BAD_KEY},
        {"no key and no key server", nullptr, none, with_md5, QEL_ERR_SERV_CONNECT},
    };
    for (const auto &c : cases) {
        for (const uint32_t mode : {QEL_MODE_FINAL, QEL_MODE_DIGEST}) {
            const Bytes data = mode == QEL_MODE_DIGEST ? md5(text) : text;
            EXPECT_EQ(qel_sign(context, data.data(), length_of(data), mode, c.key_algorithm,
                               c.key.empty() ? nullptr : c.key.data(), length_of(c.key),
                               c.algorithm, &out, &length),
                      c.status)
                << c.why;
            EXPECT_EQ(out, nullptr) << c.why;
            EXPECT_TRUE(context.idle() || mode == QEL_MODE_DIGEST) << c.why;
        }
    }
}

// A signed digest leaves its algorithms stored, so that the next call may leave them out; whoever
// names others gets them all the same.
TEST_F(SignTest, AfterADigestOnly) {
    key.signature(context, md2(text), QEL_MODE_DIGEST, QEL_MD2WithRSAEncryption_AID);
    EXPECT_EQ(key.signature(context, text, QEL_MODE_FINAL, nullptr),
              rsa().sign(md2_digest_info(md2(text))));
    EXPECT_TRUE(context.idle());
    key.signature(context, md2(text), QEL_MODE_DIGEST, QEL_MD2WithRSAEncryption_AID);
    EXPECT_EQ(key.signature(context, text, QEL_MODE_FINAL, QEL_MD5WithRSAEncryption_AID),
              rsa().sign_md5(md5(text)));
}

// Nothing of a signature that failed may get into the next one.
TEST_F(SignTest, AnUpdateWithoutDataEndsTheSignature) {
    const QelAlgId *const with_md2 = QEL_MD2WithRSAEncryption_AID;
    ASSERT_EQ(key.sign(context, text, QEL_MODE_UPDATE, with_md2, &out, &length), QEL_OK);
    EXPECT_EQ(key.sign(context, {}, QEL_MODE_UPDATE, with_md2, &out, &length), QEL_ERR_BAD_PARAM);
    EXPECT_TRUE(context.idle());
    EXPECT_EQ(key.signature(context, text, QEL_MODE_FINAL, QEL_MD5WithRSAEncryption_AID),
              rsa().sign_md5(md5(text)));
}

TEST_F(SignTest, EachAllocation) {
    const std::set<QelStatus> failures = {QEL_ERR_NO_MEMORY, QEL_ERR_DIGEST,  QEL_ERR_ASN1_ENCODE,
                                          QEL_ERR_BAD_KEY,   QEL_ERR_GENERAL, QEL_ERR_SIGN};
    fault::each_allocation([&] {
        out = nullptr;
        length = 0;
        const QelStatus status =
            key.sign(context, text, QEL_MODE_FINAL, QEL_MD5WithRSAEncryption_AID, &out, &length);
        EXPECT_TRUE(fault::met() ? failures.contains(status) : status == QEL_OK) << status;
        EXPECT_EQ(out == nullptr, fault::met());
        EXPECT_EQ(length == 0, fault::met());
        EXPECT_TRUE(context.idle());
        free(out);
    });
}

} // namespace
