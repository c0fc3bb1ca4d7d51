// object_ids.h: the library's object identifiers and algorithm identifiers as constant data.
//
// qel::record holds the records, so that constant tables can point to them; a global name is a
// pointer to its record. The names below are the library's own; oids.h declares the exported ones.
#ifndef ASN1_OBJECT_IDS_H
#define ASN1_OBJECT_IDS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include <qel/oids.h>

namespace qel::record {

// The text of an object identifier as a template argument.
template <std::size_t size> struct Dotted {
    char text[size] = {};

    consteval Dotted(const char (&literal)[size]) { std::copy_n(literal, size, text); }
    consteval std::size_t count() const { return 1 + std::count(text, text + size, '.'); }
};

template <Dotted dotted> struct Components {
    uint32_t value[dotted.count()] = {};

    consteval Components() {
        std::size_t at = 0;
        for (const char *c = dotted.text; *c != '\0'; ++c) {
            if (*c == '.')
                ++at;
            else
                value[at] = value[at] * 10 + static_cast<uint32_t>(*c - '0');
        }
    }
};

template <Dotted dotted> inline constexpr Components<dotted> components;

// A record's pointers are not const, because most records own what they point to; these do not.
template <Dotted dotted>
inline constexpr QelOid oid = {dotted.count(), const_cast<uint32_t *>(components<dotted>.value)};

inline constexpr uint8_t null_encoding[] = {0x05, 0x00};
inline constexpr QelOctetString Null_Parm = {2, const_cast<uint8_t *>(null_encoding)};

consteval QelAlgId with_null_parameters(const QelOid &algorithm) {
    return {const_cast<QelOid *>(&algorithm), const_cast<QelOctetString *>(&Null_Parm)};
}

// clang-format off
inline constexpr QelOid
    // Digests
    QEL_MD2_OID                         = oid<"1.2.840.113549.2.2">,
    QEL_MD4_OID                         = oid<"1.2.840.113549.2.4">,
    QEL_MD5_OID                         = oid<"1.2.840.113549.2.5">,
    QEL_SHA_1_OID                       = oid<"1.3.14.3.2.18">,

    // Public keys and signatures
    QEL_RSA_OID                         = oid<"2.5.8.1.1">,
    QEL_RSA_ENCR_OID                    = oid<"1.2.840.113549.1.1.1">,
    QEL_MD2WithRsa_OID                  = oid<"1.3.14.7.2.3.1">,
    QEL_MD5WithRsa_OID                  = oid<"1.3.14.3.2.3">,
    QEL_MD2WithRSAEncryption_OID        = oid<"1.2.840.113549.1.1.2">,
    QEL_MD5WithRSAEncryption_OID        = oid<"1.2.840.113549.1.1.4">,

    // Ciphers; those of export strength are records of their own
    QEL_DES_ECB_OID                     = oid<"1.3.14.3.2.6">,
    QEL_DES_CBC_OID                     = oid<"1.3.14.3.2.7">,
    QEL_DES3_CBC_OID                    = oid<"1.2.840.113549.3.7">,
    QEL_DES_MAC_OID                     = oid<"1.3.14.3.2.10">,
    QEL_RC2_CBC_OID                     = oid<"1.2.840.113549.3.2">,
    QEL_RC2_CBC_EXP_OID                 = oid<"1.2.840.113549.3.2">,
    QEL_RC4_OID                         = oid<"1.2.840.113549.3.4">,
    QEL_RC4_EXP_OID                     = oid<"1.2.840.113549.3.4">,

    // Encryption by pass phrase (PKCS#5)
    QEL_PbeWithMD2AndDES_CBC_OID        = oid<"1.2.840.113549.1.5.1">,
    QEL_PbeWithMD5AndDES_CBC_OID        = oid<"1.2.840.113549.1.5.3">,

    // Attribute types of names (X.520)
    commonName_OID                      = oid<"2.5.4.3">,
    serial_OID                          = oid<"2.5.4.5">,
    countryName_OID                     = oid<"2.5.4.6">,
    locality_OID                        = oid<"2.5.4.7">,
    state_OID                           = oid<"2.5.4.8">,
    streetAddress_OID                   = oid<"2.5.4.9">,
    orgname_OID                         = oid<"2.5.4.10">,
    orgunit_OID                         = oid<"2.5.4.11">,
    description_OID                     = oid<"2.5.4.13">,

    // Attribute types of PKCS#9
    emailAddress_OID                    = oid<"1.2.840.113549.1.9.1">,
    unstructuredName_OID                = oid<"1.2.840.113549.1.9.2">,
    contentType_OID                     = oid<"1.2.840.113549.1.9.3">,
    messageDigest_OID                   = oid<"1.2.840.113549.1.9.4">,
    signingTime_OID                     = oid<"1.2.840.113549.1.9.5">,
    countersignature_OID                = oid<"1.2.840.113549.1.9.6">,
    challengePassword_OID               = oid<"1.2.840.113549.1.9.7">,
    unstructuredAddress_OID             = oid<"1.2.840.113549.1.9.8">,
    extendedCertificateAttributes_OID   = oid<"1.2.840.113549.1.9.9">,

    // Content types of PKCS#7
    data_OID                            = oid<"1.2.840.113549.1.7.1">,
    signedData_OID                      = oid<"1.2.840.113549.1.7.2">,
    envelopedData_OID                   = oid<"1.2.840.113549.1.7.3">,
    signedAndEnvelopedData_OID          = oid<"1.2.840.113549.1.7.4">,
    digestedData_OID                    = oid<"1.2.840.113549.1.7.5">,
    encryptedData_OID                   = oid<"1.2.840.113549.1.7.6">;

inline constexpr QelAlgId
    QEL_MD2WithRSAEncryption_AID        = with_null_parameters(QEL_MD2WithRSAEncryption_OID),
    QEL_MD5WithRSAEncryption_AID        = with_null_parameters(QEL_MD5WithRSAEncryption_OID),
    QEL_MD2_AID                         = with_null_parameters(QEL_MD2_OID),
    QEL_MD4_AID                         = with_null_parameters(QEL_MD4_OID),
    QEL_MD5_AID                         = with_null_parameters(QEL_MD5_OID),
    QEL_RC4_AID                         = with_null_parameters(QEL_RC4_OID),
    QEL_RSA_ENCR_AID                    = with_null_parameters(QEL_RSA_ENCR_OID);
// clang-format on

// Key-package protection: 1.3.6.1.4.1.E.2.19.1 with the enterprise number E of this build.
extern const QelOid QEL_PbeWithMD5AndDES3_CBC_OID;

} // namespace qel::record

inline constexpr const QelOid *QEL_MD2_OID = &qel::record::QEL_MD2_OID;
inline constexpr const QelOid *QEL_MD4_OID = &qel::record::QEL_MD4_OID;
inline constexpr const QelOid *QEL_MD5_OID = &qel::record::QEL_MD5_OID;
inline constexpr const QelOid *QEL_SHA_1_OID = &qel::record::QEL_SHA_1_OID;
inline constexpr const QelOid *QEL_MD2WithRsa_OID = &qel::record::QEL_MD2WithRsa_OID;
inline constexpr const QelOid *QEL_MD5WithRsa_OID = &qel::record::QEL_MD5WithRsa_OID;
inline constexpr const QelOid *QEL_DES_ECB_OID = &qel::record::QEL_DES_ECB_OID;
inline constexpr const QelOid *QEL_DES_MAC_OID = &qel::record::QEL_DES_MAC_OID;

inline constexpr const QelOid *commonName_OID = &qel::record::commonName_OID;
inline constexpr const QelOid *serial_OID = &qel::record::serial_OID;
inline constexpr const QelOid *countryName_OID = &qel::record::countryName_OID;
inline constexpr const QelOid *locality_OID = &qel::record::locality_OID;
inline constexpr const QelOid *state_OID = &qel::record::state_OID;
inline constexpr const QelOid *streetAddress_OID = &qel::record::streetAddress_OID;
inline constexpr const QelOid *orgname_OID = &qel::record::orgname_OID;
inline constexpr const QelOid *orgunit_OID = &qel::record::orgunit_OID;
inline constexpr const QelOid *description_OID = &qel::record::description_OID;

inline constexpr const QelOid *emailAddress_OID = &qel::record::emailAddress_OID;
inline constexpr const QelOid *unstructuredName_OID = &qel::record::unstructuredName_OID;
inline constexpr const QelOid *contentType_OID = &qel::record::contentType_OID;
inline constexpr const QelOid *messageDigest_OID = &qel::record::messageDigest_OID;
inline constexpr const QelOid *signingTime_OID = &qel::record::signingTime_OID;
inline constexpr const QelOid *countersignature_OID = &qel::record::countersignature_OID;
inline constexpr const QelOid *unstructuredAddress_OID = &qel::record::unstructuredAddress_OID;
inline constexpr const QelOid *extendedCertificateAttributes_OID =
    &qel::record::extendedCertificateAttributes_OID;

inline constexpr const QelOid *signedAndEnvelopedData_OID =
    &qel::record::signedAndEnvelopedData_OID;
inline constexpr const QelOid *digestedData_OID = &qel::record::digestedData_OID;

inline constexpr const QelAlgId *QEL_MD4_AID = &qel::record::QEL_MD4_AID;

#endif
