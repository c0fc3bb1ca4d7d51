/*
 * oids.h: constant object identifiers and algorithm identifiers.
 *
 * Each variable points to a shared constant record. Compare by value (__qel_cmp_oid), never by
 * address; never free one, nor store one in a record that is going to be freed.
 */
#ifndef QEL_OIDS_H
#define QEL_OIDS_H

#include <qel/records.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

extern const QelOid *const QEL_RSA_OID;                  /* 2.5.8.1.1 */
extern const QelOid *const QEL_RSA_ENCR_OID;             /* 1.2.840.113549.1.1.1 */
extern const QelOid *const QEL_MD2WithRSAEncryption_OID; /* 1.2.840.113549.1.1.2 */
extern const QelOid *const QEL_MD5WithRSAEncryption_OID; /* 1.2.840.113549.1.1.4 */
extern const QelOid *const QEL_DES_CBC_OID;              /* 1.3.14.3.2.7 */
extern const QelOid *const QEL_DES3_CBC_OID;             /* 1.2.840.113549.3.7 */
extern const QelOid *const QEL_RC2_CBC_OID;              /* 1.2.840.113549.3.2 */
extern const QelOid *const QEL_RC2_CBC_EXP_OID;          /* 1.2.840.113549.3.2, another record */
extern const QelOid *const QEL_RC4_OID;                  /* 1.2.840.113549.3.4 */
extern const QelOid *const QEL_RC4_EXP_OID;              /* 1.2.840.113549.3.4, another record */

extern const QelOid *const QEL_PbeWithMD2AndDES_CBC_OID;  /* 1.2.840.113549.1.5.1 */
extern const QelOid *const QEL_PbeWithMD5AndDES_CBC_OID;  /* 1.2.840.113549.1.5.3 */
extern const QelOid *const QEL_PbeWithMD5AndDES3_CBC_OID; /* 1.3.6.1.4.1.E.2.19.1 */

extern const QelOid *const challengePassword_OID; /* 1.2.840.113549.1.9.7 */
extern const QelOid *const data_OID;              /* 1.2.840.113549.1.7.1 */
extern const QelOid *const signedData_OID;        /* 1.2.840.113549.1.7.2 */
extern const QelOid *const envelopedData_OID;     /* 1.2.840.113549.1.7.3 */
extern const QelOid *const encryptedData_OID;     /* 1.2.840.113549.1.7.6 */

/* Algorithm identifiers, each with NULL parameters (05 00). */
extern const QelAlgId *const QEL_MD2WithRSAEncryption_AID;
extern const QelAlgId *const QEL_MD5WithRSAEncryption_AID;
extern const QelAlgId *const QEL_MD2_AID;
extern const QelAlgId *const QEL_MD5_AID;
extern const QelAlgId *const QEL_RC4_AID;
extern const QelAlgId *const QEL_RSA_ENCR_AID;

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
