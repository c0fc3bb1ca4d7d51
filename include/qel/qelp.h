/*
 * qelp.h: functions that the family's own programs share. They are exported, in the private symbol
 * version, and may change with the family. The rules at the top of qel.h hold here too.
 */
#ifndef QEL_QELP_H
#define QEL_QELP_H

#include <stddef.h>
#include <stdio.h>
#include <time.h>

#include <qel/qel.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* ---- Context and small utilities ---------------------------------------------------------------- */

QelStatus __qel_init(QelContext **context_out, const char *keyid, const char *host);

int __qel_snprintf(char *buffer, size_t size, const char *format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;
QelStatus __qel_str_up(const char *string, int mode, char **result_out);
QelStatus __qel_get_fname(const char *name, char **result_out);
char *__qel_getIPaddress(void);
QelStatus __qel_strs2dns(const char *const *strings, QelName **names_out, int *count_out);
QelStatus __qel_find_dn_in_list(const char *const *strings, const QelName *name);

/* ---- Algorithm registry ------------------------------------------------------------------------- */

QelStatus __qel_alg2name(const QelOid *oid, const char **name_out);
QelStatus __qel_alg2AlgType(const QelOid *oid, uint32_t *type_out);
QelStatus __qel_alg2ParmType(const QelOid *oid, uint32_t *type_out);
QelStatus __qel_name2alg(const char *name, const QelOid **oid_out);
QelStatus __qel_algname2ExportKeySize(const char *name, uint32_t *size_out);
QelStatus __qel_attrtype2name(const QelOid *oid, const char **name_out);

/* ---- ASN.1 -------------------------------------------------------------------------------------- */

/* The PDUs of the schema. Each decodes into, and is encoded from, the record named beside it. */
enum {
    QEL_PDU_Name = 1,                        /* QelName */
    QEL_PDU_CIG = 2,                         /* QelCaseIgnoreString */
    QEL_PDU_PT = 3,                          /* char[] */
    QEL_PDU_CertificatePair = 4,             /* QelCertPair */
    QEL_PDU_CertificateInfo = 5,             /* QelCert, its signed part */
    QEL_PDU_Certificate = 6,                 /* QelCert */
    QEL_PDU_OctetString = 7,                 /* QelOctetString */
    QEL_PDU_BitString = 8,                   /* QelBitString */
    QEL_PDU_CertificateVersion = 9,          /* int32_t */
    QEL_PDU_SubjectPublicKeyInfo = 10,       /* QelKeyInfo */
    QEL_PDU_AlgID = 11,                      /* QelAlgId */
    QEL_PDU_CertificateList = 12,            /* QelCrl */
    QEL_PDU_RC2_CBCParameter = 13,           /* QelRC2CBCParameter */
    QEL_PDU_INT = 14,                        /* int32_t */
    QEL_PDU_KeyPkgInfo = 15,                 /* QelKeyPkg, its signed part */
    QEL_PDU_KeyPkg = 16,                     /* QelKeyPkg */
    QEL_PDU_QelServKeyInfo = 17,             /* QelServKeyInfo */
    QEL_PDU_DigestInfo = 18,                 /* QelDigestInfo */
    QEL_PDU_CertificateRevocationListInfo = 19, /* QelCrl, its signed part */
    QEL_PDU_PBEParameter = 20,               /* QelPBEParameter */
    QEL_PDU_ContentInfo = 21,                /* QelContentInfo */
    QEL_PDU_ContentInfoFm = 22,              /* QelContentInfo, content in a marked file */
    QEL_PDU_EnvelopedData = 23,              /* QelEnvelopedData */
    QEL_PDU_EncryptedData = 24,              /* QelEncryptedData */
    QEL_PDU_SignedData = 25,                 /* QelSignedData */
    QEL_PDU_SignedDataFm = 26,               /* QelSignedData, content in a marked file */
    QEL_PDU_PkcsData = 27,                   /* QelOctetString */
    QEL_PDU_PkcsDataFm = 28,                 /* QelOctetString in a marked file */
    QEL_PDU_PrivateKeyInfo = 29,             /* QelPrivateKeyInfo */
    QEL_PDU_EncryptedPrivateKeyInfo = 30,    /* QelEncryptedPrivateKeyInfo */
    QEL_PDU_CertificationRequestInfo = 31,   /* QelCertReq, its signed part */
    QEL_PDU_CertificationRequest = 32,       /* QelCertReq */
    QEL_PDU_ChallengePassword = 33,          /* QelChallengePassword */
    QEL_PDU_EmailAddress = 34,               /* char[] */
    QEL_PDU_PublicKeyAndChallenge = 35,      /* QelNetscapeCertReq, its signed part */
    QEL_PDU_SignedPublicKeyAndChallenge = 36 /* QelNetscapeCertReq */
};

QelStatus __qel_init_asn1(QelContext *context);
QelStatus __qel_end_asn1(QelContext *context);
QelStatus __qel_asn1_encode(QelContext *context, const void *value, int pdu, uint8_t **buffer,
                            uint32_t *length);
QelStatus __qel_asn1_decode(QelContext *context, const uint8_t *data, uint32_t length, int pdu,
                            void **value_out);
QelStatus __qel_mark_oss_file(QelContext *context, const char *file_name, void **marked_out);
QelStatus __qel_unmark_oss_file(QelContext *context, void *marked, void **result_out);
QelStatus __qel_set_encoding_flags_indefinite(QelContext *context);
QelStatus __qel_set_decoding_flags_debugpdu(QelContext *context);

/* Any PDU by number, for programs that show or rewrite values of every type. */
const char *__qel_asn1_pdu_name(int pdu);
QelStatus __qel_asn1_print(QelContext *context, FILE *stream, const void *value, int pdu);
void __qel_asn1_free(QelContext *context, void *value, int pdu);

void __qel_free_keyinfo_pdu(QelContext *context, QelKeyInfo *value);
void __qel_free_rc2_cbc_params_pdu(QelContext *context, QelRC2CBCParameter *value);
void __qel_free_pbe_paramater_pdu(QelContext *context, QelPBEParameter *value);
void __qel_free_content_info_fm_pdu(QelContext *context, QelContentInfo *value);
void __qel_free_envdata_pdu(QelContext *context, QelEnvelopedData *value);
void __qel_free_encrdata_pdu(QelContext *context, QelEncryptedData *value);
void __qel_free_sigdata_fm_pdu(QelContext *context, QelSignedData *value);
void __qel_free_pkcsdata_pdu(QelContext *context, QelOctetString *value);
void __qel_free_pkcsdata_fm_pdu(QelContext *context, QelOctetString *value);
void __qel_free_private_key_info_pdu(QelContext *context, QelPrivateKeyInfo *value);
void __qel_free_netscape_certreq(QelContext *context, QelNetscapeCertReq *value);

/* ---- Names -------------------------------------------------------------------------------------- */

QelStatus __qel_dn2str(QelContext *context, const QelName *name, int mode, char **string_out);
QelStatus __qel_normalize_DN(QelContext *context, const char *string, int mode, char **string_out);

/* ---- Copying records ---------------------------------------------------------------------------- */

QelStatus __qel_copy_ostr(QelOctetString **result_out, const QelOctetString *source);
QelStatus __qel_copy_bstr(QelBitString **result_out, const QelBitString *source);
QelStatus __qel_copy_uid(QelUid **result_out, const QelUid *source);
QelStatus __qel_copy_oid(QelOid **result_out, const QelOid *source);
QelStatus __qel_copy_serial(QelSerial **result_out, const QelSerial *source);
QelStatus __qel_copy_UTCTime(QelUTCTime **result_out, const QelUTCTime *source);
QelStatus __qel_copy_validity(QelValidity **result_out, const QelValidity *source);
QelStatus __qel_copy_algid(QelAlgId **result_out, const QelAlgId *source);
QelStatus __qel_copy_keyinfo(QelKeyInfo **result_out, const QelKeyInfo *source);
QelStatus __qel_copy_dn(QelName **result_out, const QelName *source);
QelStatus __qel_copy_rdn(QelRdn **result_out, const QelRdn *source);
QelStatus __qel_copy_ava(QelAva **result_out, const QelAva *source);
QelStatus __qel_copy_cert(QelCert **result_out, const QelCert *source);
QelStatus __qel_copy_tkey(QelTrustedKey **result_out, const QelTrustedKey *source);
QelStatus __qel_copy_encrypted_private_key_info(QelEncryptedPrivateKeyInfo **result_out,
                                                const QelEncryptedPrivateKeyInfo *source);
QelStatus __qel_copy_v3_cert_extension(QelExtension **result_out, const QelExtension *source);
QelStatus __qel_copy_v3_cert_extensions(QelExtensions **result_out, const QelExtensions *source);

QelStatus __qel_copy2_ostr(QelOctetString *target, const QelOctetString *source);
QelStatus __qel_copy2_bstr(QelBitString *target, const QelBitString *source);
QelStatus __qel_copy2_uid(QelUid *target, const QelUid *source);
QelStatus __qel_copy2_oid(QelOid *target, const QelOid *source);
QelStatus __qel_copy2_serial(QelSerial *target, const QelSerial *source);
QelStatus __qel_copy2_UTCTime(QelUTCTime *target, const QelUTCTime *source);
QelStatus __qel_copy2_validity(QelValidity *target, const QelValidity *source);
QelStatus __qel_copy2_algid(QelAlgId *target, const QelAlgId *source);
QelStatus __qel_copy2_keyinfo(QelKeyInfo *target, const QelKeyInfo *source);
QelStatus __qel_copy2_dn(QelName *target, const QelName *source);
QelStatus __qel_copy2_cert(QelCert *target, const QelCert *source);
QelStatus __qel_copy2_trusted_key(QelTrustedKey *target, const QelTrustedKey *source);
QelStatus __qel_copy2_encrypted_private_key_info(QelEncryptedPrivateKeyInfo *target,
                                                 const QelEncryptedPrivateKeyInfo *source);
QelStatus __qel_copy2_v3_extension(QelExtension *target, const QelExtension *source);

/* ---- Releasing records -------------------------------------------------------------------------- */

void __qel_free_ostr(QelOctetString **record);
void __qel_free_bstr(QelBitString **record);
void __qel_free_uid(QelUid **record);
void __qel_free_oid(QelOid **record);
void __qel_free_serial(QelSerial **record);
void __qel_free_validity(QelValidity **record);
void __qel_free_algid(QelAlgId **record);
void __qel_free_keyinfo(QelKeyInfo **record);
void __qel_free_rdn(QelRdn **record);
void __qel_free_rdn_seq(QelRdnSeq **record);
void __qel_free_ava(QelAva **record);
void __qel_free_attribute(QelAttribute **record);
void __qel_free_attr_value(QelAttrValue **record);
void __qel_free_v3_extension(QelExtension **record);
void __qel_free_v3_cert_extensions(QelExtensions **record);
void __qel_free_certreq(QelCertReq **record);
void __qel_free_cert_pair(QelCertPair **record);
void __qel_free_trusted_key(QelTrustedKey **record);
void __qel_free_digest_info(QelDigestInfo **record);
void __qel_free_encrypted_private_key_info(QelEncryptedPrivateKeyInfo **record);
void __qel_free_pkcs_content_info(QelContentInfo **record);
void __qel_free_issuer_and_serial(QelIssuerAndSerial **record);
void __qel_free_rcpt_info(QelRcptInfo **record);
void __qel_free_rcpt_infos(QelRcptInfos **record);
void __qel_free_item_list(QelItemList **record);

void __qel_free2_ostr(QelOctetString *record);
void __qel_free2_bstr(QelBitString *record);
void __qel_free2_uid(QelUid *record);
void __qel_free2_oid(QelOid *record);
void __qel_free2_serial(QelSerial *record);
void __qel_free2_validity(QelValidity *record);
void __qel_free2_algid(QelAlgId *record);
void __qel_free2_keyinfo(QelKeyInfo *record);
void __qel_free2_dn(QelName *record);
void __qel_free2_ava(QelAva *record);
void __qel_free2_attribute(QelAttribute *record);
void __qel_free2_v3_extension(QelExtension *record);
void __qel_free2_cert(QelCert *record);
void __qel_free2_certreq(QelCertReq *record);
void __qel_free2_cert_pair(QelCertPair *record);
void __qel_free2_trusted_key(QelTrustedKey *record);
void __qel_free2_keypkg(QelKeyPkg *record);
void __qel_free2_digest_info(QelDigestInfo *record);
void __qel_free2_encrypted_private_key_info(QelEncryptedPrivateKeyInfo *record);
void __qel_free2_pkcs_content_info(QelContentInfo *record);
void __qel_free2_issuer_and_serial(QelIssuerAndSerial *record);
void __qel_free2_rcpt_info(QelRcptInfo *record);

/* ---- Comparing records -------------------------------------------------------------------------- */

QelStatus __qel_cmp_oid(const QelOid *a, const QelOid *b, int *result_out);
QelStatus __qel_cmp_algid(const QelAlgId *a, const QelAlgId *b, int *result_out);
QelStatus __qel_cmp_keyinfo(const QelKeyInfo *a, const QelKeyInfo *b, int *result_out);
QelStatus __qel_cmp_serial(const QelSerial *a, const QelSerial *b, int *result_out);
QelStatus __qel_cmp_bstr(const QelBitString *a, const QelBitString *b, int *result_out);
QelStatus __qel_cmp_dn(QelContext *context, const QelName *a, const QelName *b, int *result_out);

/* ---- Printable armour and hexadecimal ----------------------------------------------------------- */

/* Marker kinds of armoured text (__qel_add_linewraps). */
enum {
    QEL_ARMOUR_NONE = 0,
    QEL_ARMOUR_CERTIFICATE = 1,
    QEL_ARMOUR_KEYPKG = 2,
    QEL_ARMOUR_SIGNATURE = 4,
    QEL_ARMOUR_SIGNATURE_AND_DATA = 8,
    QEL_ARMOUR_ENCRYPTED_DATA = 16,
    QEL_ARMOUR_ENCRYPTION_INFO = 32,
    QEL_ARMOUR_ENCRYPTION_INFO_AND_DATA = 64
};

QelStatus __qel_binary_2_rfc1421(const uint8_t *bytes, uint32_t length, char **text_out,
                                 uint32_t *text_length_out);
QelStatus __qel_rfc1421_2_binary(const char *text, uint32_t length, uint8_t **bytes_out,
                                 uint32_t *bytes_length_out);
QelStatus __qel_binary_2_rfc1421_files(const char *input_name, const char *output_name,
                                       int open_flags);
QelStatus __qel_rfc1421_2_binary_files(const char *input_name, const char *output_name,
                                       int open_flags);
QelStatus __qel_add_linewraps(int type, const char *input_name, const char *output_name,
                              int open_flags);
QelStatus __qel_hex_2_binary(const char *text, uint8_t **bytes_out, uint32_t *length_out);

/* ---- Times and serial numbers ------------------------------------------------------------------- */

QelStatus __qel_set_validity(int unit, int32_t count, QelValidity **validity_out);
QelStatus __qel_is_current(const QelValidity *validity);
QelStatus __qel_get_current_time(char **text_out);
QelStatus __qel_printable_time(const QelUTCTime *utctime, char **text_out);
QelStatus __qel_gen_serial(QelContext *context, uint8_t **serial_bytes_out,
                           uint16_t *serial_length_out);

/* ---- RC2 parameters ----------------------------------------------------------------------------- */

QelStatus __qel_encode_rc2_params_cpkit(QelContext *context, const uint8_t *iv,
                                        uint32_t effective_bits, QelOctetString **out);
QelStatus __qel_get_effective_keysize(QelContext *context, const QelOctetString *params,
                                      uint32_t *out_bits);

/* ---- Signed structures -------------------------------------------------------------------------- */

QelStatus __qel_sign_certreq(QelContext *context, QelCertReq *request,
                             const QelAlgId *key_algorithm, const uint8_t *key_bytes,
                             uint32_t key_length, const QelAlgId *signature_algorithm);
QelStatus __qel_sign_cert(QelContext *context, QelCert *certificate,
                          const QelAlgId *key_algorithm, const uint8_t *key_bytes,
                          uint32_t key_length, const QelAlgId *signature_algorithm);
QelStatus __qel_sign_keypkg(QelContext *context, QelKeyPkg *key_package,
                            const QelAlgId *key_algorithm, const uint8_t *key_bytes,
                            uint32_t key_length, const QelAlgId *signature_algorithm);
QelStatus __qel_verify_certreq(QelContext *context, const QelCertReq *request,
                               const QelKeyInfo *public_key);
QelStatus __qel_verify_netscape_certreq(QelContext *context, const QelNetscapeCertReq *request,
                                        const QelKeyInfo *public_key);
QelStatus __qel_verify_keypkg(QelContext *context, const QelKeyPkg *key_package,
                              const QelKeyInfo *public_key);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
