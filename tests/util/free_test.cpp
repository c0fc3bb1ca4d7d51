#include "record_kinds.h"
#include "support/secrets.h"

#include <gtest/gtest.h>

using namespace records;

namespace {

// That all contents are released shows in a run that looks for leaks.
TEST(Free, ReleasesEverythingAndNullsThePointer) {
    const auto check = []<class T>(const Kind<T> &kind) {
        SCOPED_TRACE(kind.name);
        T *record = kind.make();
        kind.free(&record);
        EXPECT_EQ(record, nullptr);
        if (kind.free != reinterpret_cast<void (*)(T **)>(free_time)) {
            kind.free(&record);
            kind.free(nullptr);
        }
        if (kind.free2 == nullptr)
            return;
        record = kind.make();
        kind.free2(record);
        EXPECT_TRUE(is_clear(*record));
        kind.free2(record);
        kind.free2(nullptr);
        std::free(record);
    };
    each_kind(check);
}

TEST(Free, HalfMadeRecords) {
    each_kind([]<class T>(const Kind<T> &kind) {
        T *empty = qel::allocate<T>();
        kind.free(&empty);
    });
}

TEST(Free, TheMaskDecidesAboutExtensions) {
    QelCert *cert = full_cert();
    QelExtensions *left = cert->extensions;
    const std::string expected = describe(*left);
    cert->mask = QEL_CERT_VERSION;
    qel_free_cert(&cert);
    EXPECT_EQ(describe(*left), expected);
    __qel_free_v3_cert_extensions(&left);

    QelTrustedKey *key = full_trusted_key();
    left = key->extensions;
    key->mask = static_cast<uint8_t>(~QEL_TKEY_EXTENSIONS);
    __qel_free_trusted_key(&key);
    EXPECT_EQ(describe(*left), expected);
    __qel_free_v3_cert_extensions(&left);
}

TEST(Free, AttributesOfAKeyPackageStay) {
    QelKeyPkg *package = full_keypkg();
    QelAttribute *attribute = full_attribute();
    const std::string expected = describe(*attribute->type);
    QelAttributes attributes = {nullptr, attribute};
    package->mask |= QEL_KEYPKG_ATTRS;
    package->keypkgAttrs = &attributes;
    qel_free_keypkg(&package);
    EXPECT_EQ(attributes.attribute, attribute);
    EXPECT_EQ(describe(*attribute->type), expected);
    __qel_free_attribute(&attribute);
}

TEST(Free, CertificateLists) {
    auto *array = static_cast<QelCert *>(std::calloc(2, sizeof(QelCert)));
    for (int i = 0; i < 2; ++i) {
        QelCert *cert = full_cert();
        array[i] = *cert;
        std::free(cert);
    }
    const std::string expected = describe(array[1]);
    QelCert *const before = array;
    for (const int count : {0, -1}) {
        qel_free_cert_list(&array, count);
        ASSERT_EQ(array, before) << count;
        EXPECT_EQ(describe(array[1]), expected) << count;
    }
    qel_free_cert_list(&array, 2);
    EXPECT_EQ(array, nullptr);
    qel_free_cert_list(&array, 2);
    qel_free_cert_list(nullptr, 2);
}

TEST(Free, BytesOfOctetStringsAreWiped) {
    QelOctetString *record = heap(octets(bytes_of("a secret")));
    QelDigestInfo *digest_info = full_digest_info();
    const QelOctetString &digest = digest_info->digest;
    SecretWatch watch;
    watch.add("octets", bytes_of("a secret"));
    watch.add("digest", Bytes(digest.value, digest.value + digest.length));
    __qel_free_ostr(&record);
    __qel_free_digest_info(&digest_info);
    EXPECT_TRUE(watch.take_found().empty());
}

} // namespace
