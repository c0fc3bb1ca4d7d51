#include "record_kinds.h"
#include "support/asn1.h"
#include "support/fault.h"

#include <gtest/gtest.h>

using namespace records;

namespace {

template <class T> T spoiled() {
    T record;
    std::memset(static_cast<void *>(&record), 0xAA, sizeof record);
    return record;
}

// The copies are released before the source is looked at again: they share nothing with it.
TEST(Copy, EqualsItsSourceOrIsNotThereWhenMemoryRunsOut) {
    each_copied_kind([]<class T>(const Kind<T> &kind) {
        SCOPED_TRACE(kind.name);
        T *source = kind.make();
        const std::string expected = describe(*source);
        fault::each_allocation([&] {
            T *copy = source;
            const QelStatus status = kind.copy(&copy, source);
            EXPECT_EQ(status, fault::met() ? QEL_ERR_NO_MEMORY : QEL_OK);
            ASSERT_EQ(copy == nullptr, fault::met());
            EXPECT_TRUE(copy == nullptr || describe(*copy) == expected);
            kind.free(&copy);
        });
        if (kind.copy2 != nullptr)
            fault::each_allocation([&] {
                T target = spoiled<T>();
                const QelStatus status = kind.copy2(&target, source);
                EXPECT_EQ(status, fault::met() ? QEL_ERR_NO_MEMORY : QEL_OK);
                ASSERT_EQ(is_clear(target), fault::met());
                EXPECT_TRUE(fault::met() || describe(target) == expected);
                if (kind.free2 != nullptr)
                    kind.free2(&target);
            });
        EXPECT_EQ(describe(*source), expected);
        kind.free(&source);
    });
}

TEST(Copy, OfNothingClearsTheTarget) {
    each_copied_kind([]<class T>(const Kind<T> &kind) {
        SCOPED_TRACE(kind.name);
        T *source = kind.make();
        EXPECT_EQ(kind.copy(nullptr, source), QEL_ERR_BAD_PARAM);
        T *copy = source;
        EXPECT_EQ(kind.copy(&copy, nullptr), QEL_ERR_BAD_PARAM);
        EXPECT_EQ(copy, nullptr);
        if (kind.copy2 != nullptr) {
            EXPECT_EQ(kind.copy2(nullptr, source), QEL_ERR_BAD_PARAM);
            T target = spoiled<T>();
            EXPECT_EQ(kind.copy2(&target, nullptr), QEL_ERR_BAD_PARAM);
            EXPECT_TRUE(is_clear(target));
        }
        kind.free(&source);
    });
}

// The status of copying, and what the copy holds.
template <class T>
std::pair<QelStatus, std::string> copied(QelStatus (*copy)(T **, const T *), void (*release)(T **),
                                         const T &source) {
    T *made = nullptr;
    const QelStatus status = copy(&made, &source);
    EXPECT_EQ(made != nullptr, status == QEL_OK);
    const std::string text = made != nullptr ? describe(*made) : "";
    release(&made);
    return {status, text};
}

// What a certificate's copy says about a certificate with one thing changed.
TEST(Copy, OfCertificatesWithPartsMissing) {
    const struct {
        const char *reason;
        QelStatus status;
        void (*change)(QelCert &cert);
    } rows[] = {
        {"an optional identifier may be absent", QEL_OK,
         [](QelCert &c) { __qel_free_uid(&c.issuerUID); }},
        {"parameters may be absent", QEL_OK,
         [](QelCert &c) { __qel_free_ostr(&c.signature->parameters); }},
        {"a name may be empty", QEL_OK, [](QelCert &c) { __qel_free_rdn_seq(&c.issuer->rdns); }},
        {"an empty list of extensions is there", QEL_OK,
         [](QelCert &c) { __qel_free_v3_cert_extensions(&c.extensions); }},
        {"no signature yet", QEL_OK, [](QelCert &c) { __qel_free2_bstr(&c.sigBits); }},
        {"a key of no bits, with bytes", QEL_OK,
         [](QelCert &c) { c.pubKeyInfo->pubKey.length = 0; }},
        {"a required name is missing", QEL_ERR_BAD_PARAM,
         [](QelCert &c) { qel_free_dn(&c.subject); }},
        {"a required time is missing", QEL_ERR_BAD_PARAM,
         [](QelCert &c) { free_time(&c.validity->notAfter); }},
        {"an RDN without assertions", QEL_ERR_BAD_PARAM,
         [](QelCert &c) { __qel_free_rdn(&c.issuer->rdns->rdn); }},
        {"an assertion without a value", QEL_ERR_BAD_PARAM,
         [](QelCert &c) { __qel_free_ostr(&c.issuer->rdns->rdn->ava->value); }},
        {"parameters without bytes", QEL_ERR_BAD_PARAM,
         [](QelCert &c) { __qel_free2_ostr(c.algorithm->parameters); }},
        {"an extension value without bytes", QEL_ERR_BAD_PARAM,
         [](QelCert &c) { __qel_free2_ostr(&c.extensions->extension->extnValue); }},
        {"a signature that counts bits it has not", QEL_ERR_GENERAL,
         [](QelCert &c) {
             __qel_free2_bstr(&c.sigBits);
             c.sigBits.length = 1;
         }},
        {"a serial number that counts bytes it has not", QEL_ERR_GENERAL,
         [](QelCert &c) {
             __qel_free2_serial(&c.serial);
             c.serial.length = 1;
         }},
        {"an identifier that counts components it has not", QEL_ERR_GENERAL,
         [](QelCert &c) {
             __qel_free2_oid(c.algorithm->algorithm);
             c.algorithm->algorithm->count = 1;
         }},
    };
    for (const auto &row : rows) {
        const OwnedCert source(full_cert());
        row.change(*source);
        const auto [status, text] = copied(__qel_copy_cert, qel_free_cert, *source);
        EXPECT_EQ(status, row.status) << row.reason;
        EXPECT_EQ(text, status == QEL_OK ? describe(*source) : "") << row.reason;
    }
}

TEST(Copy, OptionalPartsOfTrustedKeys) {
    const OwnedTrustedKey source(full_trusted_key());
    qel_free_dn(&source->issuer);
    __qel_free_validity(&source->validity);
    __qel_free_ostr(&source->serial);
    EXPECT_EQ(copied(__qel_copy_tkey, __qel_free_trusted_key, *source),
              std::pair(QelStatus{QEL_OK}, describe(*source)));
}

TEST(Copy, TheMaskDecidesAboutExtensions) {
    OwnedCert cert(full_cert());
    cert->mask = QEL_CERT_VERSION;
    QelCert *cert_copy = nullptr;
    EXPECT_EQ(__qel_copy_cert(&cert_copy, cert.get()), QEL_OK);
    EXPECT_EQ(cert_copy->extensions, nullptr);
    EXPECT_EQ(cert_copy->mask, QEL_CERT_VERSION);
    qel_free_cert(&cert_copy);
    cert->mask |= QEL_CERT_EXTENSIONS;

    OwnedTrustedKey key(full_trusted_key());
    key->mask = 0;
    QelTrustedKey *key_copy = nullptr;
    EXPECT_EQ(__qel_copy_tkey(&key_copy, key.get()), QEL_OK);
    EXPECT_EQ(key_copy->extensions, nullptr);
    __qel_free_trusted_key(&key_copy);
    key->mask = QEL_TKEY_EXTENSIONS;
}

TEST(Copy, BitsAreRoundedUpToBytes) {
    for (const uint32_t length : {1u, 7u, 8u, 9u, 16u, 17u}) {
        const qel::Record<QelBitString, __qel_free_bstr> source(
            heap(bits(length, Bytes((length + 7) / 8, 0xC3)))); // of its exact size
        EXPECT_EQ(copied(__qel_copy_bstr, __qel_free_bstr, *source),
                  std::pair(QelStatus{QEL_OK}, describe(*source)));
    }
}

TEST(Copy, AMissingValueIsNoticedBeforeMemoryIsAskedFor) {
    const QelOctetString empty = {5, nullptr};
    const QelAva without_value = {nullptr, nullptr};
    QelOctetString *ostr = nullptr;
    QelAva *ava = nullptr;
    fault::fail_always(fault::Call::allocate);
    const QelStatus ostr_status = __qel_copy_ostr(&ostr, &empty);
    const QelStatus ava_status = __qel_copy_ava(&ava, &without_value);
    fault::clear(fault::Call::allocate);
    EXPECT_EQ(ostr_status, QEL_ERR_BAD_PARAM);
    EXPECT_EQ(ava_status, QEL_ERR_BAD_PARAM);
}

TEST(Copy, AnOctetStringOfNoBytesKeepsAPointer) {
    QelOctetString source = {0, heap_bytes({1})};
    QelOctetString *copy = nullptr;
    EXPECT_EQ(__qel_copy_ostr(&copy, &source), QEL_OK);
    EXPECT_EQ(copy->length, 0u);
    EXPECT_NE(copy->value, nullptr); // so that the copy can be copied
    __qel_free_ostr(&copy);
    __qel_free2_ostr(&source);
}

TEST(Copy, LongListsDoNotExhaustTheStack) {
    OwnedName source(heap(QelName{QEL_NAME_RDN_SEQUENCE, nullptr}));
    for (int i = 0; i < 200'000; ++i)
        source->rdns = heap(QelRdnSeq{source->rdns, list<QelRdn, QelAva>({full_ava()})});
    QelName *copy = nullptr;
    EXPECT_EQ(__qel_copy_dn(&copy, source.get()), QEL_OK);
    int count = 0;
    for (const QelRdnSeq *node = copy->rdns; node != nullptr; node = node->next)
        ++count;
    EXPECT_EQ(count, 200'000);
    qel_free_dn(&copy);
}

// Real certificates: a copy encodes as its source does, and what the decoder made is released by the
// functions for records.
TEST(Copy, OfDecodedCertificates) {
    Asn1Context context;
    int copied = 0;
    for (const std::string &name : vector_names("certs")) {
        SCOPED_TRACE(name);
        OwnedCert source(context.decode<QelCert>(vector_file(name), QEL_PDU_Certificate).release());
        if (source == nullptr)
            continue; // not of this schema
        const Bytes expected = context.encode(source.get(), QEL_PDU_Certificate);
        EXPECT_FALSE(expected.empty());
        QelCert *copy = nullptr;
        ASSERT_EQ(__qel_copy_cert(&copy, source.get()), QEL_OK);
        source.reset();
        EXPECT_EQ(context.encode(copy, QEL_PDU_Certificate), expected);
        qel_free_cert(&copy);
        ++copied;
    }
    EXPECT_GT(copied, 100);
}

} // namespace
