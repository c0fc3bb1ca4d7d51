#include "qel/signer.h"
#include "support/fault.h"
#include "support/keypkg.h"

#include <set>

namespace {

class VerifyTest : public testing::Test {
protected:
    static const RsaKey &rsa() { return RsaKey::of_1024_bits(); }

    TestContext context;
    SignerKey key{rsa()};
    const QelAlgId *const with_md5 = QEL_MD5WithRSAEncryption_AID;
    const QelAlgId *const with_md2 = QEL_MD2WithRSAEncryption_AID;
    const Bytes text = bytes_of("Verify me, whole or in parts.");
    const Bytes good = rsa().sign_md5(md5(text));
};

TEST_F(VerifyTest, SignaturesOfAnotherLibraryInAllModes) {
    const struct {
        const QelAlgId *algorithm;
        Bytes digest;
        Bytes signature;
    } cases[] = {
        {with_md2, md2(text), rsa().sign(md2_digest_info(md2(text)))},
        {with_md5, md5(text), good},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(key.verify(context, text, QEL_MODE_FINAL, c.algorithm, c.signature), QEL_OK);
        EXPECT_EQ(key.verify(context, c.digest, QEL_MODE_DIGEST, c.algorithm, c.signature), QEL_OK);
        EXPECT_TRUE(context.idle());
        for (const std::size_t held_back : {std::size_t{1}, std::size_t{0}}) {
            for (std::size_t i = 0; i < text.size() - held_back; ++i)
                ASSERT_EQ(key.verify(context, Bytes(1, text[i]), QEL_MODE_UPDATE, c.algorithm,
                                     c.signature),
                          QEL_OK);
            const Bytes last(text.end() - static_cast<std::ptrdiff_t>(held_back), text.end());
            EXPECT_EQ(key.verify(context, last, QEL_MODE_FINAL, c.algorithm, c.signature), QEL_OK);
            EXPECT_TRUE(context.idle());
        }
    }
}

TEST_F(VerifyTest, WhatIsNotSigned) {
    Bytes other_text = text;
    other_text[0] ^= 1;
    SignerKey other_key{RsaKey::of_512_bits()};
    const RsaKey same_size(1024);
    SignerKey key_of_same_size{same_size};
    const Bytes digest = md5(text);
    const struct {
        const char *why;
        const SignerKey &key;
        Bytes data;
        uint32_t mode;
        const QelAlgId *algorithm;
        Bytes signature;
        QelStatus status = QEL_ERR_VERIFY;
    } cases[] = {
        {"another text", key, other_text, 2, with_md5, good},
        {"another digest", key, md5(other_text), 3, with_md5, good},
        {"another algorithm", key, text, 2, with_md2, good},
        {"a key of another length", other_key, text, 2, with_md5, good},
        {"another key", key_of_same_size, text, 2, with_md5, good},
        {"a byte more", key, text, 2, with_md5, good + Bytes{0}},
        {"the bare digest, signed", key, text, 2, with_md5, rsa().sign(digest), QEL_OK},
        {"the bare digest without its last byte, signed", key, text, 2, with_md5,
         rsa().sign(Bytes(digest.begin(), digest.end() - 1))},
        {"the text itself, signed", key, text, 2, with_md5, rsa().sign(text)},
        {"garbage behind the DigestInfo", key, text, 2, with_md5,
         rsa().sign(md5_digest_info(digest) + Bytes(20, 0))},
        {"a digest alone cannot tell its algorithm", key, digest, 3, with_md2, good, QEL_OK},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(c.key.verify(context, c.data, c.mode, c.algorithm, c.signature), c.status)
            << c.why;
        EXPECT_TRUE(context.idle()) << c.why;
    }
}

TEST_F(VerifyTest, NoSpoiledSignatureIsGood) {
    each_spoiled(good, [&](const Bytes &bad, const std::string &what) {
        EXPECT_EQ(key.verify(context, text, QEL_MODE_FINAL, with_md5, bad),
                  bad.empty() ? QEL_ERR_BAD_PARAM : QEL_ERR_VERIFY)
            << what;
    });
}

TEST_F(VerifyTest, BadParameters) {
    TestOid<4> unknown = {{1, 2, 3, 4}};
    each_missing(QEL_ERR_BAD_PARAM, qel_verify, {}, context, text.data(), length_of(text),
                 QEL_MODE_FINAL, QEL_RSA_ENCR_OID, QEL_RSA_ENCR_AID->parameters, &key.bits,
                 with_md5, good.data(), length_of(good));
    const struct {
        const char *why;
        Bytes data;
        uint32_t mode;
        const QelAlgId *algorithm;
        Bytes signature;
    } cases[] = {
        {"mode 4", text, 4, with_md5, good},
        {"no data", {}, QEL_MODE_FINAL, with_md5, good},
        {"no signature even in an update", text, QEL_MODE_UPDATE, with_md5, {}},
        {"an algorithm that nobody knows", text, QEL_MODE_FINAL, &unknown.algorithm, good},
        {"a digest algorithm", text, QEL_MODE_FINAL, QEL_MD5_AID, good},
        {"a key algorithm", text, QEL_MODE_FINAL, QEL_RSA_ENCR_AID, good},
        {"a digest one byte short", Bytes(15), QEL_MODE_DIGEST, with_md5, good},
        {"a digest one byte long", Bytes(17), QEL_MODE_DIGEST, with_md5, good},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(key.verify(context, c.data, c.mode, c.algorithm, c.signature), QEL_ERR_BAD_PARAM)
            << c.why;
        EXPECT_TRUE(context.idle()) << c.why;
    }
    // A later call needs the algorithm as the first one did; an update without it ends nothing.
    ASSERT_EQ(key.verify(context, text, QEL_MODE_UPDATE, with_md5, good), QEL_OK);
    EXPECT_EQ(key.verify(context, text, QEL_MODE_UPDATE, QEL_MD5_AID, good), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(key.verify(context, {}, QEL_MODE_FINAL, nullptr, good), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(key.verify(context, {}, QEL_MODE_FINAL, with_md5, good), QEL_OK);
}

TEST_F(VerifyTest, KeysAndAlgorithmsThatAreRefused) {
    TestOid<5> old_rsa = {{2, 5, 8, 1, 1}};
    TestOid<6> old_md5_rsa = {{1, 3, 14, 3, 2, 3}};
    Bytes cut = key.public_bytes;
    cut.pop_back();
    QelBitString cut_bits = {length_of(cut) * 8, cut.data()};
    QelBitString no_bits = {0, nullptr};
    const struct {
        const char *why;
        const QelOid *key_algorithm;
        const QelBitString *key_bits;
        const QelAlgId *algorithm;
        QelStatus status;
    } cases[] = {
        {"a key under the older name of RSA", &old_rsa.oid, &key.bits, with_md5, QEL_ERR_KEY_TYPE},
        {"a key without its last byte", QEL_RSA_ENCR_OID, &cut_bits, with_md5, QEL_ERR_BAD_KEY},
        {"an empty key", QEL_RSA_ENCR_OID, &no_bits, with_md5, QEL_ERR_BAD_KEY},
        {"a signature algorithm that is not offered", QEL_RSA_ENCR_OID, &key.bits,
         &old_md5_rsa.algorithm, QEL_ERR_UNSUPPORTED_ALG},
        {"which is seen before the key", &old_rsa.oid, &key.bits, &old_md5_rsa.algorithm,
         QEL_ERR_UNSUPPORTED_ALG},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(qel_verify(context, text.data(), length_of(text), QEL_MODE_FINAL, c.key_algorithm,
                             QEL_RSA_ENCR_AID->parameters, c.key_bits, c.algorithm, good.data(),
                             length_of(good)),
                  c.status)
            << c.why;
        EXPECT_TRUE(context.idle()) << c.why;
    }
}

// Nothing of a verification that failed may get into the next one.
TEST_F(VerifyTest, AFailureEndsTheVerification) {
    for (const bool without_data : {true, false}) {
        ASSERT_EQ(key.verify(context, text, QEL_MODE_UPDATE, with_md5, good), QEL_OK);
        EXPECT_EQ(without_data ? key.verify(context, {}, QEL_MODE_UPDATE, with_md5, good)
                               : key.verify(context, text, QEL_MODE_FINAL, QEL_MD5_AID, good),
                  QEL_ERR_BAD_PARAM);
        EXPECT_TRUE(context.idle());
        EXPECT_EQ(key.verify(context, text, QEL_MODE_FINAL, with_md5, good), QEL_OK);
    }
}

TEST_F(VerifyTest, EachAllocation) {
    const std::set<QelStatus> failures = {QEL_ERR_DIGEST, QEL_ERR_BAD_KEY, QEL_ERR_GENERAL,
                                          QEL_ERR_VERIFY};
    fault::each_allocation([&] {
        const QelStatus status = key.verify(context, text, QEL_MODE_FINAL, with_md5, good);
        EXPECT_TRUE(fault::met() ? failures.contains(status) : status == QEL_OK) << status;
        EXPECT_TRUE(context.idle());
    });
}

// ---- Signed structures

using OwnedCertReq = qel::Record<QelCertReq, __qel_free_certreq>;

class StructureTest : public VerifyTest {
protected:
    template <class Record> Record *decoded(const std::string &name, int pdu) {
        return context.decode<Record>(vector_file(name), pdu).release();
    }
};

TEST_F(StructureTest, RequestsOfOthersVerify) {
    // These leave out the attributes, which PKCS#10 does not allow.
    const std::set<std::string> without_attributes = {"pkcs10/ca-req.der", "pkcs10/pca-req.der",
                                                      "pkcs10/s1024req.der", "pkcs10/s512-req.der"};
    for (const std::string &name : vector_names("pkcs10")) {
        if (without_attributes.contains(name))
            continue;
        SCOPED_TRACE(name);
        auto *request = decoded<QelCertReq>(name, QEL_PDU_CertificationRequest);
        ASSERT_NE(request, nullptr);
        const OwnedCertReq owned(request);
        EXPECT_EQ(__qel_verify_certreq(context, request, request->pubKeyInfo), QEL_OK);
        EXPECT_EQ(__qel_verify_certreq(context, request, &key.info), QEL_ERR_VERIFY);
        request->subject->rdns->rdn->ava->value->value[2] ^= 1;
        EXPECT_EQ(__qel_verify_certreq(context, request, request->pubKeyInfo), QEL_ERR_VERIFY);
    }
}

TEST_F(StructureTest, BrowserRequestsOfOthersVerify) {
    for (const std::string &name : vector_names("spkac")) {
        if (!name.ends_with(".der"))
            continue;
        SCOPED_TRACE(name);
        auto *request = decoded<QelNetscapeCertReq>(name, QEL_PDU_SignedPublicKeyAndChallenge);
        ASSERT_NE(request, nullptr);
        EXPECT_EQ(__qel_verify_netscape_certreq(context, request, request->spki), QEL_OK);
        EXPECT_EQ(__qel_verify_netscape_certreq(context, request, &key.info), QEL_ERR_VERIFY);
        __qel_free_netscape_certreq(context, request);
    }
}

TEST_F(StructureTest, ARequestIsSignedAnew) {
    auto *request = decoded<QelCertReq>("pkcs10/testreq.der", QEL_PDU_CertificationRequest);
    ASSERT_NE(request, nullptr);
    const OwnedCertReq owned(request);
    const uint32_t size = length_of(key.private_bytes);
    const uint8_t *bytes = key.private_bytes.data();
    // Null means the algorithm that the request names, which is MD5.
    ASSERT_EQ(__qel_sign_certreq(context, request, QEL_RSA_ENCR_AID, bytes, size, nullptr), QEL_OK);
    EXPECT_EQ(request->signature.length, 1024u) << "in bits";
    EXPECT_EQ(__qel_verify_certreq(context, request, &key.info), QEL_OK);
    ASSERT_EQ(__qel_sign_certreq(context, request, QEL_RSA_ENCR_AID, bytes, size, with_md2),
              QEL_OK);
    EXPECT_EQ(__qel_verify_certreq(context, request, &key.info), QEL_OK)
        << "what the request names counts, since it is verified by that";

    // The old signature is gone even if there is no new one.
    EXPECT_EQ(__qel_sign_certreq(context, request, QEL_RSA_ENCR_AID, bytes, size - 1, nullptr),
              QEL_ERR_BAD_KEY);
    EXPECT_EQ(request->signature.value, nullptr);
    EXPECT_EQ(request->signature.length, 0u);
}

class KeyPkgTest : public StructureTest {
protected:
    QelStatus sign(const QelAlgId *algorithm) {
        return __qel_sign_keypkg(context, package.get(), QEL_RSA_ENCR_AID, key.private_bytes.data(),
                                 length_of(key.private_bytes), algorithm);
    }
    QelStatus return_digest(const QelKeyPkg *of, uint8_t **info, uint32_t *length) {
        return qel_verify_keypkg_return_digest(context, of, &key.info, info, length);
    }

    Asn1Value<QelKeyPkg> package =
        context.decode<QelKeyPkg>(test_key_package(rsa()).encoding(), QEL_PDU_KeyPkg);
};

TEST_F(KeyPkgTest, SignedAndVerifiedWithItsDigest) {
    for (const uint32_t digest : {2, 4}) { // with MD2 and with MD5
        package->algorithm->algorithm->value[6] = digest;
        ASSERT_EQ(sign(nullptr), QEL_OK);
        EXPECT_EQ(__qel_verify_keypkg(context, package.get(), &key.info), QEL_OK);
        const Bytes signed_part = context.encode(package.get(), QEL_PDU_KeyPkgInfo);
        uint8_t *info = nullptr;
        uint32_t length = 0;
        ASSERT_EQ(return_digest(package.get(), &info, &length), QEL_OK);
        EXPECT_EQ(Bytes(info, info + length), digest == 4 ? md5_digest_info(md5(signed_part))
                                                          : md2_digest_info(md2(signed_part)));
        free(info);
    }
}

TEST_F(KeyPkgTest, Failures) {
    uint8_t unchanged = 0, *info = &unchanged;
    uint32_t length = 99;
    each_missing(QEL_ERR_BAD_PARAM, qel_verify_keypkg_return_digest, {}, context, package.get(),
                 &key.info, &info, &length);
    each_missing(QEL_ERR_BAD_PARAM, __qel_verify_keypkg, {}, context, package.get(), &key.info);
    info = &unchanged;
    EXPECT_EQ(return_digest(nullptr, &info, &length), QEL_ERR_BAD_PARAM);
    EXPECT_TRUE(info == nullptr && length == 0);
    package->usage = USAGE_ENCRYPT;
    EXPECT_EQ(return_digest(package.get(), &info, &length), QEL_ERR_VERIFY);
    EXPECT_EQ(info, nullptr);
    package->signature.length = 0;
    EXPECT_EQ(__qel_verify_keypkg(context, package.get(), &key.info), QEL_ERR_BAD_PARAM)
        << "not signed yet";
    qel_free_dn(&package->owner);
    EXPECT_EQ(__qel_verify_keypkg(context, package.get(), &key.info), QEL_ERR_ASN1_ENCODE);
    EXPECT_EQ(sign(nullptr), QEL_ERR_ASN1_ENCODE);
}

} // namespace
