#include <asn1/object_ids.h>
#include <qel/qelp.h>

#include "support/arguments.h"
#include "support/records.h"

#include <gtest/gtest.h>

namespace {

constexpr uint32_t unknown = 0xFFFFFFFF;

// Written out again, because order and every number are behaviour.
const struct {
    const char *oid;
    const char *name;
    uint32_t AlgType;
    uint32_t ParmType;
    uint32_t exportKeySize;
} kAlgorithms[] = {
    {"2.5.8.1.1", "rsa (512)", 1, 1, 512},
    {"1.2.840.113549.1.1.1", "rsaEncryption (512)", 1, 3, 512},
    {"1.3.14.7.2.3.1", "md2WithRSA", 3, 3, 0},
    {"1.3.14.3.2.3", "md5WithRSA", 3, 3, 0},
    {"1.2.840.113549.1.1.2", "md2WithRSAEncryption", 3, 3, 0},
    {"1.2.840.113549.1.1.4", "md5WithRSAEncryption", 3, 3, 0},
    {"1.3.14.3.2.7", "des_exp", 0, 2, 40},
    {"1.2.840.113549.3.2", "rc2_exp", 0, 4, 40},
    {"1.2.840.113549.3.4", "rc4_exp", 0, 3, 40},
    {"1.2.840.113549.2.2", "md2", 2, 3, 0},
    {"1.2.840.113549.2.5", "md5", 2, 3, 0},
};

TEST(Registry, AlgorithmsInTheirOrderAreFoundByIdentifierAndByName) {
    const QelAlgListEntry *list = nullptr;
    ASSERT_EQ(qel_get_alglist(&list), QEL_OK);
    for (const auto &row : kAlgorithms) {
        SCOPED_TRACE(row.name);
        ASSERT_NE(list->oid, nullptr);
        EXPECT_EQ(records::describe(*list->oid), row.oid);
        EXPECT_STREQ(list->name, row.name);
        EXPECT_EQ(list->AlgType, row.AlgType);
        EXPECT_EQ(list->ParmType, row.ParmType);
        EXPECT_EQ(list->exportKeySize, row.exportKeySize);

        QelOid *copy = nullptr;
        ASSERT_EQ(__qel_copy_oid(&copy, list->oid), QEL_OK);
        const char *name = nullptr;
        uint32_t type = unknown, parameters = unknown, size = unknown;
        const QelOid *oid = nullptr;
        EXPECT_EQ(__qel_alg2name(copy, &name), QEL_OK);
        EXPECT_STREQ(name, row.name);
        EXPECT_EQ(__qel_alg2AlgType(copy, &type), QEL_OK);
        EXPECT_EQ(type, row.AlgType);
        EXPECT_EQ(__qel_alg2ParmType(copy, &parameters), QEL_OK);
        EXPECT_EQ(parameters, row.ParmType);
        EXPECT_EQ(__qel_name2alg(row.name, &oid), QEL_OK);
        EXPECT_EQ(oid, list->oid);
        EXPECT_EQ(__qel_algname2ExportKeySize(row.name, &size), QEL_OK);
        EXPECT_EQ(size, row.exportKeySize);
        __qel_free_oid(&copy);
        ++list;
    }
    EXPECT_EQ(list->oid, nullptr);
}

TEST(Registry, IdentifiersAreComparedByValue) {
    const struct {
        const char *reason;
        const QelOid *oid;
        const char *name; // null: in no row
    } rows[] = {
        {"RC2 is found in its export row", QEL_RC2_CBC_OID, "rc2_exp"},
        {"RC4 is found in its export row", QEL_RC4_OID, "rc4_exp"},
        {"DES in CBC mode has an export row only", QEL_DES_CBC_OID, "des_exp"},
        {"DES in ECB mode has no row", QEL_DES_ECB_OID, nullptr},
        {"triple DES has no row", QEL_DES3_CBC_OID, nullptr},
        {"MD4 has no row", QEL_MD4_OID, nullptr},
    };
    for (const auto &row : rows) {
        const char *name = "not asked";
        uint32_t type = 77, parameters = 77;
        EXPECT_EQ(__qel_alg2name(row.oid, &name), QEL_OK);
        EXPECT_STREQ(name, row.name);
        EXPECT_EQ(__qel_alg2AlgType(row.oid, &type), QEL_OK);
        EXPECT_EQ(type == unknown, row.name == nullptr);
        EXPECT_EQ(__qel_alg2ParmType(row.oid, &parameters), QEL_OK);
        EXPECT_EQ(parameters == unknown, row.name == nullptr);
    }
}

TEST(Registry, UnknownNames) {
    for (const char *name : {"MD5", "md", "md55", "", "rc4", "CN"}) {
        SCOPED_TRACE(name);
        const QelOid *oid = QEL_MD5_OID;
        uint32_t size = 77;
        EXPECT_EQ(__qel_name2alg(name, &oid), QEL_OK);
        EXPECT_EQ(oid, nullptr);
        EXPECT_EQ(__qel_algname2ExportKeySize(name, &size), QEL_OK);
        EXPECT_EQ(size, 0u);
    }
}

TEST(Registry, AttributeTypes) {
    const std::pair<const QelOid *, const char *> rows[] = {
        {commonName_OID, "CN"},
        {serial_OID, "SERIAL"},
        {countryName_OID, "C"},
        {locality_OID, "L"},
        {state_OID, "ST"},
        {streetAddress_OID, "STREET"},
        {orgname_OID, "O"},
        {orgunit_OID, "OU"},
        {description_OID, nullptr},
        {emailAddress_OID, "EM"},
        {unstructuredName_OID, "unstructuredName"},
        {contentType_OID, "contentType"},
        {messageDigest_OID, "messageDigest"},
        {signingTime_OID, "signingTime"},
        {countersignature_OID, "countersignature"},
        {challengePassword_OID, "challengePassword"},
        {unstructuredAddress_OID, "unstructuredAddress"},
        {extendedCertificateAttributes_OID, "extendedCertificateAttributes"},
        {QEL_MD5_OID, nullptr},
    };
    for (const auto &[oid, expected] : rows) {
        const char *name = "not asked";
        EXPECT_EQ(__qel_attrtype2name(oid, &name), QEL_OK);
        EXPECT_STREQ(name, expected);
    }
}

TEST(Registry, NullArguments) {
    const char *name = nullptr;
    uint32_t number = 0;
    const QelOid *oid = nullptr;
    const QelAlgListEntry *list = nullptr;
    const auto refused = QEL_ERR_BAD_PARAM;
    each_missing(refused, qel_get_alglist, {}, &list);
    each_missing(refused, __qel_alg2name, {}, QEL_MD5_OID, &name);
    each_missing(refused, __qel_alg2AlgType, {}, QEL_MD5_OID, &number);
    each_missing(refused, __qel_alg2ParmType, {}, QEL_MD5_OID, &number);
    each_missing(refused, __qel_name2alg, {}, "md5", &oid);
    each_missing(refused, __qel_algname2ExportKeySize, {}, "md5", &number);
    each_missing(refused, __qel_attrtype2name, {}, commonName_OID, &name);
}

} // namespace
