#include "qel/world.h"
#include "support/ber.h"

#include <gnutls/abstract.h>
#include <gnutls/pkcs7.h>
#include <openssl/bio.h>
#include <openssl/pkcs7.h>

#include <algorithm>
#include <set>

namespace {

using namespace world;

const Bytes text = bytes_of("Attack at dawn.\r\n");

template <class T, void (*release)(T *)> struct FreeWith {
    void operator()(T *value) const { release(value); }
};
using OpensslCert = std::unique_ptr<X509, FreeWith<X509, X509_free>>;
using OpensslMessage = std::unique_ptr<PKCS7, FreeWith<PKCS7, PKCS7_free>>;
using OpensslKey = std::unique_ptr<EVP_PKEY, FreeWith<EVP_PKEY, EVP_PKEY_free>>;
using Bio = std::unique_ptr<BIO, FreeWith<BIO, BIO_free_all>>;

Bytes contents(BIO *bio) {
    char *data = nullptr;
    const long size = BIO_get_mem_data(bio, &data);
    return Bytes(data, data + size);
}

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
    Bytes create(const Bytes &data, const SignerKey &key, const QelAlgId *algorithm,
                 const QelCert *signer, QelStatus expected = QEL_OK) {
        uint8_t *message = nullptr;
        uint32_t length = 0;
        EXPECT_EQ(__qel_create_pkcs7_signedData(context, data.data(), length_of(data),
                                                QEL_RSA_ENCR_AID, key.private_bytes.data(),
                                                length_of(key.private_bytes), algorithm, signer,
                                                nullptr, 0, &message, &length),
                  expected);
        const Bytes made(message, message + length);
        free(message);
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
    // The other library's view of a record and of a key.
    OpensslCert openssl_cert(const QelCert &certificate) {
        const Bytes encoding = context.encode(&certificate, QEL_PDU_Certificate);
        const unsigned char *at = encoding.data();
        return OpensslCert(d2i_X509(nullptr, &at, static_cast<long>(encoding.size())));
    }
    static OpensslKey openssl_key(const SignerKey &key) {
        const unsigned char *at = key.private_bytes.data();
        return OpensslKey(d2i_PrivateKey(EVP_PKEY_RSA, nullptr, &at,
                                         static_cast<long>(key.private_bytes.size())));
    }

    TestContext context;
    Results results;
};

// The message, byte for byte.
TEST_F(SignedData, Layout) {
    const struct {
        const char *why;
        const QelAlgId *algorithm;
        const char *digest;
        const QelAlgId *by;
    } cases[] = {
        {"MD2 where nothing is said", nullptr, "30{06{2a864886f70d0202}0500}",
         QEL_MD2WithRSAEncryption_AID},
        {"MD2", QEL_MD2WithRSAEncryption_AID, "30{06{2a864886f70d0202}0500}",
         QEL_MD2WithRSAEncryption_AID},
        {"MD5", QEL_MD5WithRSAEncryption_AID, "30{06{2a864886f70d0205}0500}",
         QEL_MD5WithRSAEncryption_AID},
    };
    fill_store(context, "A<R R<R");
    const OwnedCert signer = certificate(context, "L<A");
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
    create(text, key, nullptr, &incomplete, QEL_ERR_BAD_PARAM);
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
        const Bytes message = create(text, key_of("L"), nullptr, nullptr, c.status);
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
        {"two, the other way round", "A<A L<A", "", "A", "", QEL_OK, "L A"},
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

TEST_F(SignedData, OtherForms) {
    const Bytes good = message_with("L<L");
    const auto other = [](QelOid *oid) { oid->value[oid->count - 1] = 99; };
    const struct {
        const char *why;
        std::function<void(QelSignedData *)> change;
        QelStatus status;
    } cases[] = {
        {"nothing changed", [](QelSignedData *) {}, QEL_OK},
        {"another content type", [&](QelSignedData *d) { other(d->contentInfo->contentType); },
         QEL_ERR_BAD_PARAM},
        {"no content", [](QelSignedData *d) { __qel_free_ostr(&d->contentInfo->content); },
         QEL_ERR_BAD_PARAM},
        {"content that is no octet string",
         [](QelSignedData *d) { d->contentInfo->content->value[0] = 0x0c; }, QEL_ERR_ASN1_DECODE},
        {"empty content",
         [](QelSignedData *d) {
             d->contentInfo->content->length = 2;
             d->contentInfo->content->value[1] = 0;
         },
         QEL_ERR_BAD_PARAM},
        {"other content", [](QelSignedData *d) { d->contentInfo->content->value[2] ^= 1; },
         QEL_ERR_VERIFY},
        {"another signature",
         [](QelSignedData *d) { d->signerInfos->signer->encryptedDigest.value[9] ^= 1; },
         QEL_ERR_VERIFY},
        {"no signer",
         [](QelSignedData *d) {
             __qel_free_issuer_and_serial(&d->signerInfos->signer->issuerAndSerialNumber);
             __qel_free_algid(&d->signerInfos->signer->digestAlgorithm);
             __qel_free_algid(&d->signerInfos->signer->digestEncryptionAlgorithm);
             __qel_free2_ostr(&d->signerInfos->signer->encryptedDigest);
             free(d->signerInfos->signer);
             free(std::exchange(d->signerInfos, nullptr));
         },
         QEL_ERR_BAD_PARAM},
        {"another public-key algorithm",
         [&](QelSignedData *d) {
             other(d->signerInfos->signer->digestEncryptionAlgorithm->algorithm);
         },
         QEL_ERR_BAD_PARAM},
        {"rsaEncryption without parameters",
         [](QelSignedData *d) {
             __qel_free_ostr(&d->signerInfos->signer->digestEncryptionAlgorithm->parameters);
         },
         QEL_ERR_BAD_PARAM},
        {"another digest",
         [&](QelSignedData *d) { other(d->signerInfos->signer->digestAlgorithm->algorithm); },
         QEL_ERR_BAD_PARAM},
        {"MD2 where it was MD5",
         [](QelSignedData *d) { d->signerInfos->signer->digestAlgorithm->algorithm->value[5] = 2; },
         QEL_ERR_VERIFY},
        {"MD5 without parameters",
         [](QelSignedData *d) {
             __qel_free_ostr(&d->signerInfos->signer->digestAlgorithm->parameters);
         },
         QEL_OK},
        {"another issuer and serial number",
         [](QelSignedData *d) {
             d->signerInfos->signer->issuerAndSerialNumber->serial.value[3] ^= 1;
         },
         QEL_OK},
        {"another set of digests",
         [&](QelSignedData *d) { other(d->digestAlgorithms->algid->algorithm); }, QEL_OK},
        {"another version", [](QelSignedData *d) { d->version = 7; }, QEL_OK},
        {"a certificate of PKCS#6",
         [](QelSignedData *d) {
             auto *extended = records::heap(QelExtendedCert{});
             extended->certificate = d->certs->cert->u.cert;
             extended->signatureAlgorithm = copy_of(QEL_MD5WithRSAEncryption_AID);
             extended->signature = records::bits(8, {1});
             d->certs->cert->choice = QEL_CERT_EXTENDED;
             d->certs->cert->u.extendedCert = extended;
         },
         QEL_ERR_BAD_PARAM},
    };
    const TrustedKeys trusted(context, "L");
    for (const auto &c : cases) {
        EXPECT_EQ(verify(changed(good, c.change), trusted.list, &results), c.status) << c.why;
        EXPECT_EQ(results.none(), c.status != QEL_OK) << c.why;
    }
    const Bytes inside = tlv(0x30, {});
    EXPECT_EQ(verify(tlv(0x30, ber("06{2a864886f70d010703}") + tlv(0xa0, inside)), trusted.list,
                     &results),
              QEL_ERR_BAD_PARAM)
        << "another type of message";
    EXPECT_EQ(verify(ber("30{06{2a864886f70d010702}}"), trusted.list, &results), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(verify(tlv(0x30, ber("06{2a864886f70d010702}") + tlv(0xa0, inside)), trusted.list,
                     &results),
              QEL_ERR_ASN1_DECODE);
    EXPECT_EQ(verify(good + Bytes{0}, trusted.list, &results), QEL_ERR_ASN1_DECODE);
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

// ---- The other libraries ------------------------------------------------------------------------

// Keys and certificates that other libraries agree to use.
struct Peers {
    explicit Peers(const TestContext &context)
        : root(issue(context, "CN=Root, C=US", root_key, "CN=Root, C=US", root_key)),
          signer(issue(context, "CN=Signer, C=US", key, "CN=Root, C=US", root_key)) {
        trusted.add(context, "CN=Root, C=US", root_key.info, false);
        store.clear();
        OwnedCert copy;
        QelCert *record = nullptr;
        EXPECT_EQ(__qel_copy_cert(&record, root.get()), QEL_OK);
        store["CN=ROOT, C=US"].push_back(OwnedCert(record));
    }
    SignerKey root_key{RsaKey(1024)}, key{RsaKey::of_1024_bits()};
    OwnedCert root, signer;
    TrustedKeys trusted;
};

void openssl_reads(const Bytes &message, const Bytes &data, int certificates) {
    const unsigned char *at = message.data();
    const OpensslMessage read(d2i_PKCS7(nullptr, &at, static_cast<long>(message.size())));
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(sk_X509_num(read->d.sign->cert), certificates);
    const Bio out(BIO_new(BIO_s_mem()));
    EXPECT_EQ(PKCS7_verify(read.get(), nullptr, nullptr, nullptr, out.get(), PKCS7_NOVERIFY), 1);
    EXPECT_EQ(contents(out.get()), data);
}

void gnutls_reads(const Bytes &message, const Bytes &signer, const Bytes &data) {
    gnutls_pkcs7_t read;
    gnutls_x509_crt_t certificate;
    ASSERT_EQ(gnutls_pkcs7_init(&read), 0);
    ASSERT_EQ(gnutls_x509_crt_init(&certificate), 0);
    const auto datum = [](const Bytes &bytes) {
        return gnutls_datum_t{const_cast<uint8_t *>(bytes.data()), length_of(bytes)};
    };
    const gnutls_datum_t encoding = datum(message), cert = datum(signer);
    ASSERT_EQ(gnutls_pkcs7_import(read, &encoding, GNUTLS_X509_FMT_DER), 0);
    ASSERT_EQ(gnutls_x509_crt_import(certificate, &cert, GNUTLS_X509_FMT_DER), 0);
    EXPECT_EQ(gnutls_pkcs7_get_crt_count(read), 2);
    EXPECT_EQ(gnutls_pkcs7_verify_direct(read, certificate, 0, nullptr, GNUTLS_VERIFY_ALLOW_BROKEN),
              0);
    gnutls_datum_t content = {};
    EXPECT_EQ(gnutls_pkcs7_get_embedded_data(read, 0, &content), 0);
    EXPECT_EQ(Bytes(content.data, content.data + content.size), data);
    gnutls_free(content.data);
    gnutls_pkcs7_deinit(read);
    gnutls_x509_crt_deinit(certificate);
}

TEST_F(SignedData, OthersReadOurs) {
    const Peers peers(context);
    for (const std::size_t size : {1u, 127u, 128u, 70000u}) {
        SCOPED_TRACE(size);
        const Bytes data(size, 'x');
        const Bytes message =
            create(data, peers.key, QEL_MD5WithRSAEncryption_AID, peers.signer.get());
        openssl_reads(message, data, 2);
        gnutls_reads(message, context.encode(peers.signer.get(), QEL_PDU_Certificate), data);
        EXPECT_EQ(verify(message, peers.trusted.list, &results), QEL_OK);
        EXPECT_EQ(results.bytes(), data);
    }
}

// A message of OpenSSL's, with definite lengths or streamed.
Bytes openssl_message(X509 *signer, EVP_PKEY *key, const std::vector<X509 *> &others,
                      const Bytes &data, bool streamed) {
    const int flags = PKCS7_BINARY | PKCS7_NOATTR | PKCS7_PARTIAL | (streamed ? PKCS7_STREAM : 0);
    const Bio in(BIO_new_mem_buf(data.data(), static_cast<int>(data.size())));
    const Bio out(BIO_new(BIO_s_mem()));
    STACK_OF(X509) *stack = sk_X509_new_null();
    for (X509 *other : others)
        sk_X509_push(stack, other);
    const OpensslMessage made(PKCS7_sign(nullptr, nullptr, stack, in.get(), flags));
    sk_X509_free(stack);
    EXPECT_NE(PKCS7_sign_add_signer(made.get(), signer, key, EVP_md5(), flags), nullptr);
    if (streamed) {
        EXPECT_EQ(i2d_PKCS7_bio_stream(out.get(), made.get(), in.get(), flags), 1);
    } else {
        EXPECT_EQ(PKCS7_final(made.get(), in.get(), flags), 1);
        EXPECT_EQ(i2d_PKCS7_bio(out.get(), made.get()), 1);
    }
    return contents(out.get());
}

TEST_F(SignedData, WeReadOthers) {
    const Peers peers(context);
    const OpensslCert signer = openssl_cert(*peers.signer), root = openssl_cert(*peers.root);
    const OpensslKey key = openssl_key(peers.key);
    for (const bool streamed : {false, true}) {
        for (const std::size_t size : {1u, 5000u, 100000u}) {
            SCOPED_TRACE(std::to_string(size) + (streamed ? " streamed" : ""));
            const Bytes data(size, 'y');
            for (const bool with_root : {false, true}) {
                const std::vector<X509 *> others =
                    with_root ? std::vector<X509 *>{root.get()} : std::vector<X509 *>{};
                const Bytes message =
                    openssl_message(signer.get(), key.get(), others, data, streamed);
                EXPECT_EQ(verify(message, peers.trusted.list, &results), QEL_OK);
                EXPECT_EQ(results.bytes(), data);
                EXPECT_EQ(results.count, with_root ? 2 : 1);
            }
        }
    }
}

TEST_F(SignedData, LargeContent) {
    const Peers peers(context);
    const Bytes data(std::size_t{64} << 20, 'z');
    const Bytes message = create(data, peers.key, QEL_MD5WithRSAEncryption_AID, peers.signer.get());
    EXPECT_EQ(verify(message, peers.trusted.list, &results), QEL_OK);
    EXPECT_TRUE(results.length == data.size() &&
                std::memcmp(results.data, data.data(), data.size()) == 0);
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
    const SignerKey &key = key_of("L");
    const TrustedKeys trusted(context, "A");
    Bytes message, single;
    fault::each_allocation([&] {
        uint8_t *made = nullptr;
        uint32_t length = 0;
        const QelStatus status = __qel_create_pkcs7_signedData(
            context, text.data(), length_of(text), QEL_RSA_ENCR_AID, key.private_bytes.data(),
            length_of(key.private_bytes), nullptr, signer.get(), nullptr, 0, &made, &length);
        EXPECT_EQ(status == QEL_OK, !fault::met()) << status;
        EXPECT_EQ(made != nullptr, status == QEL_OK);
        EXPECT_EQ(length != 0, status == QEL_OK);
        if (status == QEL_OK)
            message.assign(made, made + length);
        free(made);
        EXPECT_TRUE(context.idle());
    });
    single = message_with("L<A-");
    for (const Bytes &each : {message, single}) {
        fault::each_allocation([&] {
            Results r;
            const QelStatus status = __qel_verify_pkcs7_signedData(
                context, each.data(), length_of(each), trusted.list, nullptr, 0, &r.data, &r.length,
                &r.name, &r.chain, &r.count, &r.expired);
            EXPECT_NE(status, QEL_OK);
            // A single certificate that cannot be compared with a trusted key is looked up.
            EXPECT_TRUE(fault::met() || status == QEL_ERR_KEY_EXPIRED) << status;
            EXPECT_EQ(r.none(), status != QEL_ERR_KEY_EXPIRED);
            EXPECT_TRUE(context.idle());
        });
    }
}

} // namespace
