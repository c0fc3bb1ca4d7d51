// Signed messages byte for byte, and what chains they bring. What OpenSSL makes of them, and we of its
// own, is in tests/tools/message_test.cpp.
#include "qel/world.h"
#include "support/ber.h"

#include <gnutls/abstract.h>
#include <gnutls/pkcs7.h>

#include <algorithm>
#include <set>

namespace {

using namespace world;

const Bytes text = bytes_of("Attack at dawn.\r\n");

struct Results {
    uint8_t *data = nullptr;
    uint32_t length = 0;
    char *name = nullptr;
    QelCert *chain = nullptr;
    int count = 0;
    QelCert *expired = nullptr;

    Results() = default;
    Results(const Results &) = delete;
    Results &operator=(const Results &) = delete;
    ~Results() { clear(); }
    void clear() {
        free(std::exchange(data, nullptr));
        free(std::exchange(name, nullptr));
        qel_free_cert_list(&chain, count);
        qel_free_cert(&expired);
        length = 0;
        count = 0;
    }
    bool none() const {
        return data == nullptr && length == 0 && name == nullptr && chain == nullptr &&
               count == 0 && expired == nullptr;
    }
    Bytes bytes() const { return Bytes(data, data + length); }
};

class SignedData : public testing::Test {
protected:
    ~SignedData() override {
        store.clear();
        package = nullptr;
    }
    QelStatus try_to_create(const Bytes &data, const SignerKey &key, const QelAlgId *algorithm,
                            const QelCert *signer, Bytes *made) {
        uint8_t *message = nullptr;
        uint32_t length = 0;
        const QelStatus status = __qel_create_pkcs7_signedData(
            context, data.data(), length_of(data), QEL_RSA_ENCR_AID, key.private_bytes.data(),
            length_of(key.private_bytes), algorithm, signer, nullptr, 0, &message, &length);
        EXPECT_EQ(message != nullptr, status == QEL_OK);
        EXPECT_EQ(length != 0, status == QEL_OK);
        EXPECT_TRUE(context.idle());
        made->assign(message, message + length);
        free(message);
        return status;
    }
    Bytes create(const Bytes &data, const SignerKey &key, const QelAlgId *algorithm,
                 const QelCert *signer) {
        Bytes made;
        EXPECT_EQ(try_to_create(data, key, algorithm, signer, &made), QEL_OK);
        return made;
    }
    QelStatus verify(const Bytes &message, const QelTrustedKeys *trusted, Results *out,
                     const char *const *allowed = nullptr) {
        out->clear();
        return __qel_verify_pkcs7_signedData(context, message.data(), length_of(message), trusted,
                                             allowed, 0, &out->data, &out->length, &out->name,
                                             &out->chain, &out->count, &out->expired);
    }
    // The message of the first key in a chain of certificates, which stand in it as they are given.
    Bytes message_with(const std::string &descriptions) {
        std::vector<OwnedCert> owners;
        for (const std::string &one : words(descriptions))
            owners.push_back(certificate(context, one));
        const Bytes plain = create(text, key_of("L"), QEL_MD5WithRSAEncryption_AID,
                                   certificate(context, "L<L").get());
        return changed(plain, [&](QelSignedData *data) {
            QelCertChoices *list = nullptr;
            for (auto owner = owners.rbegin(); owner != owners.rend(); ++owner) {
                auto *choice = records::heap(QelCertChoice{QEL_CERT_PLAIN, {owner->release()}});
                list = records::heap(QelCertChoices{list, choice});
            }
            std::swap(data->certs, list);
            for (QelCertChoices *node = list; node != nullptr;) {
                qel_free_cert(&node->cert->u.cert);
                free(node->cert);
                free(std::exchange(node, node->next));
            }
        });
    }
    // A message whose SignedData was changed.
    Bytes changed(const Bytes &message, const std::function<void(QelSignedData *)> &change) {
        const auto outer = context.decode<QelContentInfo>(message, QEL_PDU_ContentInfo);
        const Bytes inside(outer->content->value, outer->content->value + outer->content->length);
        const auto data = context.decode<QelSignedData>(inside, QEL_PDU_SignedData);
        change(data.get());
        const Bytes encoding = context.encode(data.get(), QEL_PDU_SignedData);
        return tlv(0x30, ber("06{2a864886f70d010702}") + tlv(0xa0, encoding));
    }
    TestContext context;
    Results results;
};

// The message, byte for byte.
TEST_F(SignedData, Layout) {
    const QelAlgId *const with_md2 = QEL_MD2WithRSAEncryption_AID, *const with_md5 =
                                                                       QEL_MD5WithRSAEncryption_AID;
    const struct {
        const char *why;
        const QelAlgId *algorithm;
        const char *digest;
        const QelAlgId *by;
    } cases[] = {
        {"MD2 where nothing is said", nullptr, "30{06{2a864886f70d0202}0500}", with_md2},
        {"MD2", with_md2, "30{06{2a864886f70d0202}0500}", with_md2},
        {"MD5", with_md5, "30{06{2a864886f70d0205}0500}", with_md5},
    };
    fill_store(context, "A<R R<R");
    const OwnedCert signer = certificate(context, "L<A");
    qel_free_dn(&signer->subject); // in the record, the members of a set stand as they were written
    ASSERT_EQ(qel_str2dn(context, "CN=Longer + OU=B", &signer->subject), QEL_OK);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.why);
        Bytes certificates = context.encode(signer.get(), QEL_PDU_Certificate);
        for (const auto &[name, list] : store)
            certificates = certificates + context.encode(list[0].get(), QEL_PDU_Certificate);
        const Bytes digest = ber(c.digest);
        const Bytes signature = key_of("L").signature(context, text, QEL_MODE_FINAL, c.by);
        const Bytes identity =
            tlv(0x30, context.encode(signer->issuer, QEL_PDU_Name) +
                          tlv(0x02, Bytes(signer->serial.value,
                                          signer->serial.value + signer->serial.length)));
        const Bytes info =
            tlv(0x30, ber("020101") + identity + digest + ber("30{06{2a864886f70d010101}0500}") +
                          tlv(0x04, signature));
        const Bytes signed_data =
            tlv(0x30, ber("020101") + tlv(0x31, digest) +
                          tlv(0x30, ber("06{2a864886f70d010701}") + tlv(0xa0, tlv(0x04, text))) +
                          tlv(0xa0, certificates) + tlv(0x31, info));
        const Bytes expected =
            from_hex("308006092a864886f70d010702a080") + signed_data + from_hex("00000000");
        EXPECT_EQ(to_hex(create(text, key_of("L"), c.algorithm, signer.get())), to_hex(expected));
    }
    // The flag on the caller's context does not matter, and no flag stays there.
    const Bytes before = create(text, key_of("L"), nullptr, signer.get());
    EXPECT_EQ(context.encode(signer->pubKeyInfo, QEL_PDU_SubjectPublicKeyInfo)[1] & 0x80, 0);
    __qel_set_encoding_flags_indefinite(context);
    EXPECT_EQ(create(text, key_of("L"), nullptr, signer.get()), before);
}

TEST_F(SignedData, CreationArguments) {
    const SignerKey &key = key_of("L");
    const OwnedCert signer = certificate(context, "L<L");
    uint8_t *message = nullptr;
    uint32_t length = 0;
    const char *const names[] = {"CN=X", nullptr};
    each_missing(QEL_ERR_BAD_PARAM, __qel_create_pkcs7_signedData, {7, 8, 9, 10}, context,
                 text.data(), length_of(text), QEL_RSA_ENCR_AID, key.private_bytes.data(),
                 length_of(key.private_bytes), nullptr, signer.get(), names, 5, &message, &length);
    EXPECT_EQ(message, nullptr);
    const auto call = [&](const QelAlgId *algorithm, bool server) {
        return __qel_create_pkcs7_signedData(
            context, text.data(), length_of(text), server ? nullptr : QEL_RSA_ENCR_AID,
            server ? nullptr : key.private_bytes.data(), server ? 0 : length_of(key.private_bytes),
            algorithm, signer.get(), names, 5, &message, &length);
    };
    EXPECT_EQ(call(QEL_MD5_AID, false), QEL_ERR_UNSUPPORTED_ALG);
    EXPECT_EQ(call(nullptr, true), QEL_ERR_SERV_CONNECT) << "the key server is to sign";
    Bytes buffer(4096);
    message = buffer.data();
    length = length_of(buffer);
    EXPECT_EQ(call(nullptr, false), QEL_OK);
    EXPECT_EQ(asked_names, names);
    EXPECT_EQ(asked_flag, 5);
    EXPECT_EQ(message, buffer.data());
    const uint32_t exact = length;
    EXPECT_EQ(call(nullptr, false), QEL_OK) << "exactly as large";
    length = exact - 1;
    EXPECT_EQ(call(nullptr, false), QEL_ERR_BUFFER_SIZE);
    EXPECT_EQ(length, exact - 1);
    QelCert incomplete = *signer;
    incomplete.pubKeyInfo = nullptr;
    Bytes none;
    EXPECT_EQ(try_to_create(text, key, nullptr, &incomplete, &none), QEL_ERR_BAD_PARAM);
}

TEST_F(SignedData, OwnCertificateOfTheStore) {
    const struct {
        const char *why;
        const char *package;
        const char *store;
        QelStatus status;
        const char *chain = "";
    } cases[] = {
        {"not logged in", "", "L<L", QEL_ERR_NOT_LOGGED_IN},
        {"no certificate of that name", "L", "A<A", QEL_ERR_UNKNOWN_USER},
        {"none with that key", "L", "L2<L2 L3<A", QEL_ERR_NO_CERT},
        {"the first with that key", "L", "L2<L2 L<A L<B A<A B<B", QEL_OK, "L A"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.why);
        package.reset(*c.package != '\0' ? new Package{c.package, ""} : nullptr);
        fill_store(context, c.store);
        Bytes message;
        EXPECT_EQ(try_to_create(text, key_of("L"), nullptr, nullptr, &message), c.status);
        if (c.status != QEL_OK)
            continue;
        EXPECT_EQ(verify(message, TrustedKeys(context, "A").list, &results), QEL_OK);
        EXPECT_EQ(ids_of(context, results.chain, results.count), c.chain);
    }
}

TEST_F(SignedData, Verdicts) {
    const struct {
        const char *why;
        const char *certificates; // in the message
        const char *store;
        const char *trusted;
        const char *allowed;
        QelStatus status;
        const char *chain = "";
        const char *expired = "";
    } cases[] = {
        {"one, trusted, and nothing more is checked", "L<A!-+", "", "L", "A", QEL_OK, "L"},
        {"one, not trusted", "L<L", "", "A", "", QEL_ERR_ISSUER_NOT_TRUSTED},
        {"one with an issuer in the store", "L<A", "A<R R<R", "R", "", QEL_OK, "L A"},
        {"one with an issuer who is not allowed", "L<A", "A<R R<R", "R", "A", QEL_ERR_NO_CHAIN},
        {"one that has expired", "L<A-", "A<R R<R", "R", "", QEL_ERR_KEY_EXPIRED, "L A", "L"},
        {"one whose trusted key has expired", "L<L", "", "L-", "", QEL_ERR_TKEY_EXPIRED},
        {"the same, with an issuer who is trusted", "L<R", "R<R", "L- R", "", QEL_OK, "L"},
        {"a failure with it", "L<A", "", "L-", "", QEL_ERR_TKEY_EXPIRED},
        {"one, without a chain", "L<A", "", "A", "", QEL_ERR_UNKNOWN_USER},
        {"two", "L<A A<A", "", "A", "", QEL_OK, "L A"},
        {"names that differ in case and type", "A<A= L<a", "", "A", "", QEL_OK, "L A"},
        {"the store is not asked", "L<A A<R", "R<R", "R", "", QEL_ERR_ISSUER_NOT_TRUSTED},
        {"nor who is allowed", "L<A A<A", "", "A", "X", QEL_OK, "L A"},
        {"the end is not tested", "L<A A<A", "", "L", "", QEL_ERR_ISSUER_NOT_TRUSTED},
        {"an expired end", "L<A- A<A", "", "A", "", QEL_ERR_KEY_EXPIRED, "L A", "L"},
        {"an expired trusted key", "L<A A<A", "", "A-", "", QEL_ERR_TKEY_EXPIRED},
        {"a bad signature in the chain", "L<A! A<A", "", "A", "", QEL_ERR_VERIFY},
        {"five in any order", "C<D L<A D<E A<B B<C", "", "D", "", QEL_OK, "L A B C D"},
        {"the end is another's", "A<B B<B", "", "B", "", QEL_ERR_VERIFY},
        {"a circle", "L<A A<L", "", "A", "", QEL_ERR_BAD_PARAM},
        {"a circle below the top", "L<A A<L B<B", "", "B", "", QEL_ERR_BAD_PARAM},
        {"one to which nothing leads", "L<A A<A B<C", "", "A", "", QEL_ERR_BAD_PARAM},
        {"a fork: the first in the message goes on", "L<A X<A A<A", "", "A", "", QEL_ERR_BAD_PARAM},
        {"the top twice", "L<A A<A A<A", "", "A", "", QEL_ERR_BAD_PARAM},
        {"self-signed in the middle is placed again", "A<R A<A L<A R<R", "", "R", "",
         QEL_ERR_VERIFY},
        {"no certificate", "", "", "A", "", QEL_ERR_BAD_PARAM},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.why);
        fill_store(context, c.store);
        const Bytes message = message_with(c.certificates);
        const TrustedKeys trusted(context, c.trusted);
        EXPECT_EQ(verify(message, trusted.list, &results, Names(c.allowed).get()), c.status);
        EXPECT_EQ(ids_of(context, results.chain, results.count), c.chain);
        EXPECT_EQ(ids_of(context, results.expired, results.expired != nullptr), c.expired);
        if (c.status == QEL_OK || c.status == QEL_ERR_KEY_EXPIRED) {
            EXPECT_EQ(results.bytes(), text);
            EXPECT_STREQ(results.name, "CN=L, O=WORLD");
        } else {
            EXPECT_TRUE(results.none());
        }
        EXPECT_TRUE(context.idle());
    }
}

TEST_F(SignedData, EveryOrderOfFour) {
    std::vector<std::string> order = {"A<B", "B<C", "C<C", "L<A"};
    const TrustedKeys trusted(context, "C");
    do {
        const std::string all = order[0] + " " + order[1] + " " + order[2] + " " + order[3];
        EXPECT_EQ(verify(message_with(all), trusted.list, &results), QEL_OK) << all;
        EXPECT_EQ(ids_of(context, results.chain, results.count), "L A B C") << all;
    } while (std::next_permutation(order.begin(), order.end()));
}

void take_signers(QelSignedData *data, QelSignerInfo *signer) {
    __qel_free_issuer_and_serial(&signer->issuerAndSerialNumber);
    __qel_free_algid(&signer->digestAlgorithm);
    __qel_free_algid(&signer->digestEncryptionAlgorithm);
    __qel_free2_ostr(&signer->encryptedDigest);
    free(signer);
    free(std::exchange(data->signerInfos, nullptr));
}

// A certificate of PKCS#6 around the first one.
void extend_certificate(QelSignedData *data, QelSignerInfo *) {
    QelCertChoice *first = data->certs->cert;
    auto *extended = records::heap(QelExtendedCert{});
    extended->certificate = first->u.cert;
    extended->signatureAlgorithm = copy_of(QEL_MD5WithRSAEncryption_AID);
    extended->signature = records::bits(8, {1});
    first->choice = QEL_CERT_EXTENDED;
    first->u.extendedCert = extended;
}

TEST_F(SignedData, OtherForms) {
    using D = QelSignedData;
    using S = QelSignerInfo;
    const Bytes good = message_with("L<L");
    const auto other = [](QelOid *oid) { oid->value[oid->count - 1] = 99; };
    const auto empty = [](D *d, S *) {
        d->contentInfo->content->length = 2;
        d->contentInfo->content->value[1] = 0;
    };
    constexpr QelStatus refused = QEL_ERR_BAD_PARAM;
    const struct {
        const char *why;
        std::function<void(D *, S *)> change;
        QelStatus status;
    } cases[] = {
        {"nothing changed", [](D *, S *) {}, QEL_OK},
        {"another content type", [&](D *d, S *) { other(d->contentInfo->contentType); }, refused},
        {"no content", [](D *d, S *) { __qel_free_ostr(&d->contentInfo->content); }, refused},
        {"content that is no octet string",
         [](D *d, S *) { d->contentInfo->content->value[0] = 0x0c; }, QEL_ERR_ASN1_DECODE},
        {"empty content", empty, refused},
        {"other content", [](D *d, S *) { d->contentInfo->content->value[2] ^= 1; },
         QEL_ERR_VERIFY},
        {"another signature", [](D *, S *s) { s->encryptedDigest.value[9] ^= 1; }, QEL_ERR_VERIFY},
        {"no signer", take_signers, refused},
        {"another public-key algorithm",
         [&](D *, S *s) { other(s->digestEncryptionAlgorithm->algorithm); }, refused},
        {"rsaEncryption without parameters",
         [](D *, S *s) { __qel_free_ostr(&s->digestEncryptionAlgorithm->parameters); }, refused},
        {"another digest", [&](D *, S *s) { other(s->digestAlgorithm->algorithm); }, refused},
        {"MD2 where it was MD5", [](D *, S *s) { s->digestAlgorithm->algorithm->value[5] = 2; },
         QEL_ERR_VERIFY},
        {"MD5 without parameters",
         [](D *, S *s) { __qel_free_ostr(&s->digestAlgorithm->parameters); }, QEL_OK},
        {"another issuer and serial number",
         [](D *, S *s) { s->issuerAndSerialNumber->serial.value[3] ^= 1; }, QEL_OK},
        {"another set of digests", [&](D *d, S *) { other(d->digestAlgorithms->algid->algorithm); },
         QEL_OK},
        {"another version", [](D *d, S *) { d->version = 7; }, QEL_OK},
        {"a certificate of PKCS#6", extend_certificate, refused},
    };
    const TrustedKeys trusted(context, "L");
    for (const auto &c : cases) {
        const Bytes message =
            changed(good, [&](D *data) { c.change(data, data->signerInfos->signer); });
        EXPECT_EQ(verify(message, trusted.list, &results), c.status) << c.why;
        EXPECT_EQ(results.none(), c.status != QEL_OK) << c.why;
    }
    const struct {
        const char *why;
        Bytes message;
        QelStatus status;
    } others[] = {
        {"another type", ber("30{06{2a864886f70d010703} a0{3000}}"), refused},
        {"no contents", ber("30{06{2a864886f70d010702}}"), refused},
        {"empty contents", ber("30{06{2a864886f70d010702} a0{3000}}"), QEL_ERR_ASN1_DECODE},
        {"a byte behind it", good + Bytes{0}, QEL_ERR_ASN1_DECODE},
    };
    for (const auto &c : others)
        EXPECT_EQ(verify(c.message, trusted.list, &results), c.status) << c.why;
    // A failure behind an expired trusted key of the signer.
    fill_store(context, "R<R");
    const Bytes bad = changed(message_with("L<R"), [](QelSignedData *d) {
        d->signerInfos->signer->encryptedDigest.value[9] ^= 1;
    });
    EXPECT_EQ(verify(bad, TrustedKeys(context, "R").list, &results), QEL_ERR_VERIFY);
    EXPECT_EQ(verify(bad, TrustedKeys(context, "R L-").list, &results), QEL_ERR_TKEY_EXPIRED);
}

TEST_F(SignedData, VerificationArguments) {
    const Bytes message = message_with("L<A- A<A");
    const TrustedKeys trusted(context, "A");
    Results r;
    each_missing(QEL_ERR_BAD_PARAM, __qel_verify_pkcs7_signedData, {4, 5, 6, 12}, context,
                 message.data(), length_of(message), trusted.list, nullptr, 0, &r.data, &r.length,
                 &r.name, &r.chain, &r.count, &r.expired);
    Bytes buffer(text.size());
    uint8_t *data = buffer.data();
    for (const uint32_t capacity : {length_of(text), length_of(text) - 1}) {
        uint32_t length = capacity;
        const bool fits = capacity == length_of(text);
        EXPECT_EQ(__qel_verify_pkcs7_signedData(context, message.data(), length_of(message),
                                                trusted.list, nullptr, 0, &data, &length, &r.name,
                                                nullptr, nullptr, nullptr),
                  fits ? QEL_ERR_KEY_EXPIRED : QEL_ERR_BUFFER_SIZE);
        EXPECT_EQ(length, capacity);
        EXPECT_EQ(r.name != nullptr, fits);
        EXPECT_EQ(buffer, text);
        free(std::exchange(r.name, nullptr));
    }
    EXPECT_EQ(verify(message, nullptr, &results), QEL_ERR_NOT_LOGGED_IN);
    package.reset(new Package{"X", "A"});
    EXPECT_EQ(verify(message, nullptr, &results), QEL_ERR_KEY_EXPIRED) << "the user's trusted keys";
    package.reset(new Package{"X", ""});
    EXPECT_EQ(verify(message, nullptr, &results), QEL_ERR_BAD_PARAM) << "who has none";
}

void gnutls_reads(const Bytes &message, const Bytes &signer, const Bytes &data) {
    const auto datum = [](const Bytes &bytes) {
        return gnutls_datum_t{const_cast<uint8_t *>(bytes.data()), length_of(bytes)};
    };
    const gnutls_datum_t encoding = datum(message), signer_encoding = datum(signer);
    gnutls_pkcs7_t read;
    gnutls_x509_crt_t certificate;
    ASSERT_EQ(gnutls_pkcs7_init(&read), 0);
    ASSERT_EQ(gnutls_x509_crt_init(&certificate), 0);
    ASSERT_EQ(gnutls_pkcs7_import(read, &encoding, GNUTLS_X509_FMT_DER), 0);
    ASSERT_EQ(gnutls_x509_crt_import(certificate, &signer_encoding, GNUTLS_X509_FMT_DER), 0);
    EXPECT_EQ(gnutls_pkcs7_get_crt_count(read), 1);
    EXPECT_EQ(gnutls_pkcs7_verify_direct(read, certificate, 0, nullptr, GNUTLS_VERIFY_ALLOW_BROKEN),
              0);
    gnutls_datum_t content = {};
    EXPECT_EQ(gnutls_pkcs7_get_embedded_data(read, 0, &content), 0);
    EXPECT_EQ(Bytes(content.data, content.data + content.size), data);
    gnutls_free(content.data);
    gnutls_pkcs7_deinit(read);
    gnutls_x509_crt_deinit(certificate);
}

TEST_F(SignedData, ContentOfAnySize) {
    const OwnedCert signer = certificate(context, "L<L");
    const TrustedKeys trusted(context, "L");
    for (const std::size_t size : {std::size_t{1}, std::size_t{127}, std::size_t{128},
                                   std::size_t{70000}, std::size_t{64} << 20}) {
        const Bytes data(size, 'x');
        const Bytes message = create(data, key_of("L"), QEL_MD5WithRSAEncryption_AID, signer.get());
        EXPECT_EQ(verify(message, trusted.list, &results), QEL_OK) << size;
        EXPECT_TRUE(results.length == size && std::memcmp(results.data, data.data(), size) == 0);
        gnutls_reads(message, context.encode(signer.get(), QEL_PDU_Certificate), data);
    }
}

// Messages found in the world, none of which is current.
TEST_F(SignedData, RealMessages) {
    const struct {
        const char *file;
        const char *trusted; // a certificate
        QelStatus status;
        const char *signer = nullptr;
        std::size_t size = 0;
        int count = 0;
    } cases[] = {
        {"nss-pkcs7bday.ber", "md2/example-organization-92", QEL_ERR_KEY_EXPIRED,
         "CN=TEST USER 1, O=EXAMPLE ORGANIZATION, C=US", 346, 2},
        {"openssl-pkcs7-1.p7", "md2/test-user-1-92", QEL_OK,
         "CN=TEST USER 1, O=EXAMPLE ORGANIZATION, C=US", 25, 1},
        {"imc-10.p7", "md2/public-policy-authority-95", QEL_ERR_KEY_EXPIRED,
         "EM=ARJUN@CONNECTSOFT.COM", 757, 2},
        {"imc-18.p7", "md2/public-policy-authority-95", QEL_ERR_KEY_EXPIRED,
         "EM=BLAKER@DEMING.COM, L=INTERNET", 360, 2},
        {"imc-18.p7", "md2/example-organization-92", QEL_ERR_ISSUER_NOT_TRUSTED},
        {"nss-pkcs7cnet.ber", "md2/public-policy-authority-95", QEL_ERR_ISSUER_NOT_TRUSTED},
        {"bc-SignedMSPkcs7.p7", "md2/example-organization-92", QEL_ERR_BAD_PARAM},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.file);
        const auto anchor = context.decode<QelCert>(
            vector_file(std::string("certs/") + c.trusted + ".der"), QEL_PDU_Certificate);
        ASSERT_NE(anchor, nullptr);
        TrustedKeys trusted;
        trusted.add(context, subject_of(context, *anchor), *anchor->pubKeyInfo, false);
        EXPECT_EQ(verify(vector_file(std::string("pkcs7/") + c.file), trusted.list, &results),
                  c.status);
        EXPECT_STREQ(results.name, c.signer);
        EXPECT_EQ(results.length, c.size);
        EXPECT_EQ(results.count, c.count);
    }
}

// ---- Hostile bytes, and no memory ---------------------------------------------------------------

TEST_F(SignedData, SpoiledMessages) {
    const Bytes message = message_with("A<A L<A");
    const TrustedKeys trusted(context, "A");
    std::size_t accepted = 0;
    each_spoiled(message, [&](const Bytes &spoiled, const std::string &what) {
        const QelStatus status = verify(spoiled, trusted.list, &results);
        if (status == QEL_OK || status == QEL_ERR_KEY_EXPIRED) {
            EXPECT_EQ(results.bytes(), text) << what;
            EXPECT_STREQ(results.name, "CN=L, O=WORLD") << what;
            ++accepted;
        } else {
            EXPECT_TRUE(results.none()) << what;
        }
    });
    // Versions, the set of digests, issuer and serial number, what is unused of the top certificate.
    EXPECT_LT(accepted, message.size() * 4);
}

// A message that has nothing but certificates, each the issuer of the one before it.
TEST_F(SignedData, ManyCertificates) {
    const Bytes one = message_with("L<L");
    constexpr std::size_t many = 20000;
    const Bytes message = changed(one, [&](QelSignedData *data) {
        const QelCert *model = data->certs->cert->u.cert;
        for (std::size_t i = 0; i < many; ++i) {
            QelCert *copy = nullptr;
            ASSERT_EQ(__qel_copy_cert(&copy, model), QEL_OK);
            qel_free_dn(&copy->issuer);
            qel_free_dn(&copy->subject);
            copy->subject = parsed(context, "CN=" + std::to_string(i));
            copy->issuer = parsed(context, "CN=" + std::to_string((i + 1) % many));
            auto *choice = records::heap(QelCertChoice{QEL_CERT_PLAIN, {copy}});
            data->certs->next = records::heap(QelCertChoices{data->certs->next, choice});
        }
    });
    EXPECT_EQ(verify(message, TrustedKeys(context, "L").list, &results), QEL_ERR_BAD_PARAM);
}

// A certificate that is placed wherever another is missing is not verified in each place. The clock is
// read for every verification.
TEST_F(SignedData, OneCertificateInManyPlaces) {
    const TrustedKeys trusted(context, "R");
    for (const std::string circle : {"A<R A<A ", "A<R B<A A<B "}) {
        std::string all = "R<R " + circle;
        for (int i = 0; i < 100; ++i)
            all += "X<Y ";
        for (const std::string odd : {"", "X<Y "}) {
            const Bytes message = message_with(all + odd);
            fault::fail(fault::Call::time, 50);
            EXPECT_EQ(verify(message, trusted.list, &results), QEL_ERR_VERIFY) << circle;
            fault::clear(fault::Call::time);
            EXPECT_EQ(verify(message, TrustedKeys(context, "X").list, &results),
                      QEL_ERR_ISSUER_NOT_TRUSTED)
                << circle;
        }
    }
}

TEST_F(SignedData, EachAllocation) {
    fill_store(context, "A<A");
    const OwnedCert signer = certificate(context, "L<A-");
    const TrustedKeys trusted(context, "A");
    Bytes message;
    fault::each_allocation([&] {
        const QelStatus status = try_to_create(text, key_of("L"), nullptr, signer.get(), &message);
        EXPECT_EQ(status == QEL_OK, !fault::met()) << status;
    });
    for (const Bytes &each : {message, message_with("L<A-")}) {
        fault::each_allocation([&] {
            Results r;
            const QelStatus status = verify(each, trusted.list, &r);
            EXPECT_NE(status, QEL_OK);
            // A single certificate that cannot be compared with a trusted key is looked up.
            EXPECT_TRUE(fault::met() || status == QEL_ERR_KEY_EXPIRED) << status;
            EXPECT_EQ(r.none(), status != QEL_ERR_KEY_EXPIRED);
            EXPECT_TRUE(context.idle());
        });
    }
}

} // namespace
