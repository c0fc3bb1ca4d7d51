#include <asn1/object_ids.h>

#include "support/records.h"

#include <gtest/gtest.h>
#include <openssl/objects.h>

namespace {

// The dotted text that libcrypto gives for one of its own identifiers.
std::string text_of_nid(int nid) {
    char text[100];
    OBJ_obj2txt(text, sizeof text, OBJ_nid2obj(nid), 1);
    return text;
}

struct KnownCase {
    const char *name;
    const QelOid *oid;
    int nid;
};

#define ROW(oid, nid)                                                                              \
    { #oid, oid, nid }

const KnownCase kKnownCases[] = {
    ROW(QEL_MD2_OID, NID_md2),
    ROW(QEL_MD4_OID, NID_md4),
    ROW(QEL_MD5_OID, NID_md5),
    ROW(QEL_SHA_1_OID, NID_sha),
    ROW(QEL_RSA_OID, NID_rsa),
    ROW(QEL_RSA_ENCR_OID, NID_rsaEncryption),
    ROW(QEL_MD5WithRsa_OID, NID_md5WithRSA),
    ROW(QEL_MD2WithRSAEncryption_OID, NID_md2WithRSAEncryption),
    ROW(QEL_MD5WithRSAEncryption_OID, NID_md5WithRSAEncryption),
    ROW(QEL_DES_ECB_OID, NID_des_ecb),
    ROW(QEL_DES_CBC_OID, NID_des_cbc),
    ROW(QEL_DES3_CBC_OID, NID_des_ede3_cbc),
    ROW(QEL_RC2_CBC_OID, NID_rc2_cbc),
    ROW(QEL_RC2_CBC_EXP_OID, NID_rc2_cbc),
    ROW(QEL_RC4_OID, NID_rc4),
    ROW(QEL_RC4_EXP_OID, NID_rc4),
    ROW(QEL_PbeWithMD2AndDES_CBC_OID, NID_pbeWithMD2AndDES_CBC),
    ROW(QEL_PbeWithMD5AndDES_CBC_OID, NID_pbeWithMD5AndDES_CBC),
    ROW(commonName_OID, NID_commonName),
    ROW(serial_OID, NID_serialNumber),
    ROW(countryName_OID, NID_countryName),
    ROW(locality_OID, NID_localityName),
    ROW(state_OID, NID_stateOrProvinceName),
    ROW(streetAddress_OID, NID_streetAddress),
    ROW(orgname_OID, NID_organizationName),
    ROW(orgunit_OID, NID_organizationalUnitName),
    ROW(description_OID, NID_description),
    ROW(emailAddress_OID, NID_pkcs9_emailAddress),
    ROW(unstructuredName_OID, NID_pkcs9_unstructuredName),
    ROW(contentType_OID, NID_pkcs9_contentType),
    ROW(messageDigest_OID, NID_pkcs9_messageDigest),
    ROW(signingTime_OID, NID_pkcs9_signingTime),
    ROW(countersignature_OID, NID_pkcs9_countersignature),
    ROW(challengePassword_OID, NID_pkcs9_challengePassword),
    ROW(unstructuredAddress_OID, NID_pkcs9_unstructuredAddress),
    ROW(extendedCertificateAttributes_OID, NID_pkcs9_extCertAttributes),
    ROW(data_OID, NID_pkcs7_data),
    ROW(signedData_OID, NID_pkcs7_signed),
    ROW(envelopedData_OID, NID_pkcs7_enveloped),
    ROW(signedAndEnvelopedData_OID, NID_pkcs7_signedAndEnveloped),
    ROW(digestedData_OID, NID_pkcs7_digest),
    ROW(encryptedData_OID, NID_pkcs7_encrypted),
};

TEST(ObjectIds, AgreeWithLibcrypto) {
    for (const KnownCase &row : kKnownCases)
        EXPECT_EQ(records::describe(*row.oid), text_of_nid(row.nid)) << row.name;
}

TEST(ObjectIds, UnknownToLibcrypto) {
    EXPECT_EQ(records::describe(*QEL_DES_MAC_OID), "1.3.14.3.2.10");
    EXPECT_EQ(records::describe(*QEL_MD2WithRsa_OID), "1.3.14.7.2.3.1");

    const QelOid &protection = *QEL_PbeWithMD5AndDES3_CBC_OID; // an arc of some enterprise
    ASSERT_EQ(protection.count, 10);
    EXPECT_NE(protection.value[6], 0u);
    const std::string enterprise = std::to_string(protection.value[6]);
    EXPECT_EQ(records::describe(protection), "1.3.6.1.4.1." + enterprise + ".2.19.1");
}

TEST(ObjectIds, ExportCiphersAreRecordsOfTheirOwn) {
    EXPECT_NE(QEL_RC2_CBC_EXP_OID, QEL_RC2_CBC_OID);
    EXPECT_NE(QEL_RC4_EXP_OID, QEL_RC4_OID);
}

TEST(ObjectIds, AlgorithmIdentifiersHaveNullParameters) {
    const struct {
        const char *name;
        const QelAlgId *aid;
        const QelOid *algorithm;
    } rows[] = {
        ROW(QEL_MD2WithRSAEncryption_AID, QEL_MD2WithRSAEncryption_OID),
        ROW(QEL_MD5WithRSAEncryption_AID, QEL_MD5WithRSAEncryption_OID),
        ROW(QEL_MD2_AID, QEL_MD2_OID),
        ROW(QEL_MD4_AID, QEL_MD4_OID),
        ROW(QEL_MD5_AID, QEL_MD5_OID),
        ROW(QEL_RC4_AID, QEL_RC4_OID),
        ROW(QEL_RSA_ENCR_AID, QEL_RSA_ENCR_OID),
    };
    for (const auto &row : rows) {
        EXPECT_EQ(row.aid->algorithm, row.algorithm) << row.name;
        EXPECT_EQ(records::describe(*row.aid->parameters), "2:0500") << row.name;
    }
}

} // namespace
