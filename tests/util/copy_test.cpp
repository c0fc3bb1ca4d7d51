#include "record_kinds.h"
#include "support/asn1.h"
#include "support/fault.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace records;

namespace {

template <class T> bool is_clear(const T &record) {
    const T clear = {};
    return std::memcmp(&record, &clear, sizeof record) == 0;
}

template <class T> T spoiled() {
    T record;
    std::memset(static_cast<void *>(&record), 0xAA, sizeof record);
    return record;
}

TEST(Copy, EqualsItsSourceAndSharesNothingWithIt) {
    each_copied_kind([]<class T>(const Kind<T> &kind) {
        SCOPED_TRACE(kind.name);
        T *source = kind.make();
        const std::string expected = describe(*source);
        T *copy = nullptr;
        EXPECT_EQ(kind.copy(&copy, source), QEL_OK);
        T filled = spoiled<T>();
        if (kind.copy2 != nullptr) {
            EXPECT_EQ(kind.copy2(&filled, source), QEL_OK);
        }
        EXPECT_EQ(describe(*source), expected);

        kind.free(&source);
        EXPECT_EQ(describe(*copy), expected);
        kind.free(&copy);
        if (kind.copy2 == nullptr)
            return;
        EXPECT_EQ(describe(filled), expected);
        if (kind.free2 != nullptr)
            kind.free2(&filled);
    });
}

TEST(Copy, IsWholeOrNotAtAllWhenMemoryRunsOut) {
    each_copied_kind([]<class T>(const Kind<T> &kind) {
        SCOPED_TRACE(kind.name);
        T *source = kind.make();
        const std::string expected = describe(*source);
        fault::each_allocation([&] {
            T *copy = source;
            const QelStatus status = kind.copy(&copy, source);
            EXPECT_EQ(status, fault::met() ? QEL_ERR_NO_MEMORY : QEL_OK);
            EXPECT_EQ(copy == nullptr, fault::met());
            kind.free(&copy);
        });
        if (kind.copy2 != nullptr && kind.free2 != nullptr)
            fault::each_allocation([&] {
                T target = spoiled<T>();
                const QelStatus status = kind.copy2(&target, source);
                EXPECT_EQ(status, fault::met() ? QEL_ERR_NO_MEMORY : QEL_OK);
                EXPECT_EQ(is_clear(target), fault::met());
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

// What a certificate's copy says about a certificate with one thing changed.
struct CertCase {
    const char *reason;
    void (*change)(QelCert &cert);
    QelStatus status;
};

const CertCase kCertCases[] = {
    {"an optional identifier may be absent", [](QelCert &c) { __qel_free_uid(&c.issuerUID); },
     QEL_OK},
    {"parameters may be absent", [](QelCert &c) { __qel_free_ostr(&c.signature->parameters); },
     QEL_OK},
    {"a name may be empty", [](QelCert &c) { __qel_free_rdn_seq(&c.issuer->rdns); }, QEL_OK},
    {"an empty list of extensions is there",
     [](QelCert &c) { __qel_free_v3_cert_extensions(&c.extensions); }, QEL_OK},
    {"no signature yet", [](QelCert &c) { __qel_free2_bstr(&c.sigBits); }, QEL_OK},
    {"a key of no bits, with bytes", [](QelCert &c) { c.pubKeyInfo->pubKey.length = 0; }, QEL_OK},
    {"a required name is missing", [](QelCert &c) { qel_free_dn(&c.subject); }, QEL_ERR_BAD_PARAM},
    {"a required time is missing", [](QelCert &c) { free_time(&c.validity->notAfter); },
     QEL_ERR_BAD_PARAM},
    {"an RDN without assertions", [](QelCert &c) { __qel_free_rdn(&c.issuer->rdns->rdn); },
     QEL_ERR_BAD_PARAM},
    {"an assertion without a value",
     [](QelCert &c) { __qel_free_ostr(&c.issuer->rdns->rdn->ava->value); }, QEL_ERR_BAD_PARAM},
    {"parameters without bytes", [](QelCert &c) { __qel_free2_ostr(c.algorithm->parameters); },
     QEL_ERR_BAD_PARAM},
    {"an extension value without bytes",
     [](QelCert &c) { __qel_free2_ostr(&c.extensions->extension->extnValue); }, QEL_ERR_BAD_PARAM},
    {"a signature that counts bits it has not",
     [](QelCert &c) {
         __qel_free2_bstr(&c.sigBits);
         c.sigBits.length = 1;
     },
     QEL_ERR_GENERAL},
    {"a serial number that counts bytes it has not",
     [](QelCert &c) {
         __qel_free2_serial(&c.serial);
         c.serial.length = 1;
     },
     QEL_ERR_GENERAL},
    {"an identifier that counts components it has not",
     [](QelCert &c) {
         __qel_free2_oid(c.algorithm->algorithm);
         c.algorithm->algorithm->count = 1;
     },
     QEL_ERR_GENERAL},
};

TEST(Copy, OfCertificatesWithPartsMissing) {
    for (const CertCase &row : kCertCases) {
        SCOPED_TRACE(row.reason);
        OwnedCert source(full_cert());
        row.change(*source);
        QelCert *copy = nullptr;
        EXPECT_EQ(__qel_copy_cert(&copy, source.get()), row.status);
        EXPECT_EQ(copy != nullptr, row.status == QEL_OK);
        if (copy != nullptr) {
            EXPECT_EQ(describe(*copy), describe(*source));
        }
        qel_free_cert(&copy);
    }
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

TEST(Copy, OptionalPartsOfTrustedKeys) {
    OwnedTrustedKey source(full_trusted_key());
    qel_free_dn(&source->issuer);
    __qel_free_validity(&source->validity);
    __qel_free_ostr(&source->serial);
    QelTrustedKey *copy = nullptr;
    EXPECT_EQ(__qel_copy_tkey(&copy, source.get()), QEL_OK);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(describe(*copy), describe(*source));
    __qel_free_trusted_key(&copy);
}

TEST(Copy, BitsAreRoundedUpToBytes) {
    for (const uint32_t length : {1u, 7u, 8u, 9u, 16u, 17u}) {
        QelBitString source = bits(length, Bytes((length + 7) / 8, 0xC3)); // of its exact size
        QelBitString *copy = nullptr;
        EXPECT_EQ(__qel_copy_bstr(&copy, &source), QEL_OK);
        EXPECT_EQ(describe(*copy), describe(source)) << length;
        __qel_free_bstr(&copy);
        __qel_free2_bstr(&source);
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
