#include <asn1/object_ids.h>

namespace record = qel::record;

#define TEXT_OF(number) #number
#define TEXT(number)    TEXT_OF(number)

constinit const QelOid record::QEL_PbeWithMD5AndDES3_CBC_OID =
    oid<"1.3.6.1.4.1." TEXT(QEL_ENTERPRISE_NUMBER) ".2.19.1">;

constinit const QelOid *const QEL_RSA_OID = &record::QEL_RSA_OID;
constinit const QelOid *const QEL_RSA_ENCR_OID = &record::QEL_RSA_ENCR_OID;
constinit const QelOid *const QEL_MD2WithRSAEncryption_OID = &record::QEL_MD2WithRSAEncryption_OID;
constinit const QelOid *const QEL_MD5WithRSAEncryption_OID = &record::QEL_MD5WithRSAEncryption_OID;
constinit const QelOid *const QEL_DES_CBC_OID = &record::QEL_DES_CBC_OID;
constinit const QelOid *const QEL_DES3_CBC_OID = &record::QEL_DES3_CBC_OID;
constinit const QelOid *const QEL_RC2_CBC_OID = &record::QEL_RC2_CBC_OID;
constinit const QelOid *const QEL_RC2_CBC_EXP_OID = &record::QEL_RC2_CBC_EXP_OID;
constinit const QelOid *const QEL_RC4_OID = &record::QEL_RC4_OID;
constinit const QelOid *const QEL_RC4_EXP_OID = &record::QEL_RC4_EXP_OID;

constinit const QelOid *const QEL_PbeWithMD2AndDES_CBC_OID = &record::QEL_PbeWithMD2AndDES_CBC_OID;
constinit const QelOid *const QEL_PbeWithMD5AndDES_CBC_OID = &record::QEL_PbeWithMD5AndDES_CBC_OID;
constinit const QelOid *const QEL_PbeWithMD5AndDES3_CBC_OID =
    &record::QEL_PbeWithMD5AndDES3_CBC_OID;

constinit const QelOid *const challengePassword_OID = &record::challengePassword_OID;
constinit const QelOid *const data_OID = &record::data_OID;
constinit const QelOid *const signedData_OID = &record::signedData_OID;
constinit const QelOid *const envelopedData_OID = &record::envelopedData_OID;
constinit const QelOid *const encryptedData_OID = &record::encryptedData_OID;

constinit const QelAlgId *const QEL_MD2WithRSAEncryption_AID =
    &record::QEL_MD2WithRSAEncryption_AID;
constinit const QelAlgId *const QEL_MD5WithRSAEncryption_AID =
    &record::QEL_MD5WithRSAEncryption_AID;
constinit const QelAlgId *const QEL_MD2_AID = &record::QEL_MD2_AID;
constinit const QelAlgId *const QEL_MD5_AID = &record::QEL_MD5_AID;
constinit const QelAlgId *const QEL_RC4_AID = &record::QEL_RC4_AID;
constinit const QelAlgId *const QEL_RSA_ENCR_AID = &record::QEL_RSA_ENCR_AID;
