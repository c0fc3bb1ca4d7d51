/*
 * qelp.h: functions that the family's own programs share. They are exported, in the private symbol
 * version, and may change with the family. The rules at the top of qel.h hold here too.
 */
#ifndef QEL_QELP_H
#define QEL_QELP_H

#include <stddef.h>
#include <stdio.h>
#include <time.h>

#include <qel/print.h>
#include <qel/qel.h>
#include <qel/store.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* ---- Context and small utilities ---------------------------------------------------------------- */

/*
 * __qel_init is qel_init without the key server: the context knows none, and none need be there.
 */
QelStatus __qel_init(QelContext **context_out, const char *keyid, const char *host);

/*
 * __qel_snprintf formats into a buffer of size bytes, cutting what does not fit, and ends it with a
 * NUL. Returns 0, or 1 when size is 0 or above 2^31 - 1 or the formatting fails: a flag, no length.
 */
int __qel_snprintf(char *buffer, size_t size, const char *format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;

/*
 * __qel_str_up gives a new string with the letters a to z in capitals and all other bytes as they
 * are. The caller frees it.
 *   mode  1: a backslash is put before every comma; 2: commas stay as they are.
 * QEL_ERR_BAD_PARAM: a null argument, an empty string, another mode. QEL_ERR_NO_MEMORY.
 */
QelStatus __qel_str_up(const char *string, int mode, char **result_out);

/*
 * __qel_get_fname gives a new string with the absolute path of a file: the name itself when it
 * begins with '/', else the working folder, '/' and the name. The caller frees it.
 * QEL_ERR_BAD_PARAM: a null argument. QEL_ERR_GENERAL: the working folder cannot be read, or its
 * name has 1024 bytes or more. QEL_ERR_NO_MEMORY.
 */
QelStatus __qel_get_fname(const char *name, char **result_out);

/*
 * __qel_getIPaddress gives the first IPv4 address of this host in dotted form, in storage that is
 * inet_ntoa's; null when the host's name cannot be read or resolved.
 */
char *__qel_getIPaddress(void);

/*
 * __qel_strs2dns reads printable names (see qel_str2dn) into an array of records.
 *   strings    the names; a null or empty string ends the list.
 *   names_out  a new array of *count_out records. The caller releases each with __qel_free2_dn and
 *              the array with free().
 * QEL_ERR_BAD_PARAM: a null argument or a null first string. A status of __qel_init or qel_str2dn.
 */
QelStatus __qel_strs2dns(const char *const *strings, QelName **names_out, int *count_out);

/*
 * __qel_find_dn_in_list tells whether a list of printable names, as above, holds a name
 * (__qel_cmp_dn). QEL_OK: it does. QEL_ERR_NO_ENTRY: it does not. QEL_ERR_BAD_PARAM: a null
 * argument or a null first string. A status of __qel_strs2dns or __qel_cmp_dn.
 */
QelStatus __qel_find_dn_in_list(const char *const *strings, const QelName *name);

/* ---- Algorithm registry ------------------------------------------------------------------------- */

/*
 * Look-ups in the table of algorithms (qel_get_alglist) and that of attribute types. Identifiers are
 * compared by value, names byte for byte; the first matching row counts. What is found is constant,
 * shared, and not the caller's to free.
 *
 *   function                     gives                                   when nothing is found
 *   __qel_alg2name               the algorithm's name                    null
 *   __qel_alg2AlgType            QEL_ALG_...                             0xFFFFFFFF
 *   __qel_alg2ParmType           QEL_PARM_...                           0xFFFFFFFF
 *   __qel_name2alg               its object identifier                   null
 *   __qel_algname2ExportKeySize  its largest key, bits; 0 for no limit   0
 *   __qel_attrtype2name          the short name, such as "CN"            null
 *
 * QEL_OK, also when nothing is found. QEL_ERR_BAD_PARAM for a null argument.
 */
QelStatus __qel_alg2name(const QelOid *oid, const char **name_out);
QelStatus __qel_alg2AlgType(const QelOid *oid, uint32_t *type_out);
QelStatus __qel_alg2ParmType(const QelOid *oid, uint32_t *type_out);
QelStatus __qel_name2alg(const char *name, const QelOid **oid_out);
QelStatus __qel_algname2ExportKeySize(const char *name, uint32_t *size_out);
QelStatus __qel_attrtype2name(const QelOid *oid, const char **name_out);

/* ---- ASN.1 -------------------------------------------------------------------------------------- */

/*
 * Every value that the system writes or reads in ASN.1 is one of the PDUs below (X.509, PKCS#1, #5 to
 * #10, the library's own), named by number. Each decodes into, and is encoded from, the record named
 * beside it; "signed part" means that the members behind the signed part are left alone. What goes
 * into an OctetString as an encoded value (open type) is passed on byte for byte.
 *
 * The context carries the ASN.1 environment: encoding rules (BER at first), flags, marked files. All
 * functions with a context return QEL_ERR_BAD_PARAM when it has no environment.
 */
enum {
    QEL_PDU_Name = 1,                           /* QelName */
    QEL_PDU_CIG = 2,                            /* QelCaseIgnoreString */
    QEL_PDU_PT = 3,                             /* char[] */
    QEL_PDU_CertificatePair = 4,                /* QelCertPair */
    QEL_PDU_CertificateInfo = 5,                /* QelCert, its signed part */
    QEL_PDU_Certificate = 6,                    /* QelCert */
    QEL_PDU_OctetString = 7,                    /* QelOctetString */
    QEL_PDU_BitString = 8,                      /* QelBitString */
    QEL_PDU_CertificateVersion = 9,             /* int32_t */
    QEL_PDU_SubjectPublicKeyInfo = 10,          /* QelKeyInfo */
    QEL_PDU_AlgID = 11,                         /* QelAlgId */
    QEL_PDU_CertificateList = 12,               /* QelCrl */
    QEL_PDU_RC2_CBCParameter = 13,              /* QelRC2CBCParameter */
    QEL_PDU_INT = 14,                           /* int32_t */
    QEL_PDU_KeyPkgInfo = 15,                    /* QelKeyPkg, its signed part */
    QEL_PDU_KeyPkg = 16,                        /* QelKeyPkg */
    QEL_PDU_QelServKeyInfo = 17,                /* QelServKeyInfo */
    QEL_PDU_DigestInfo = 18,                    /* QelDigestInfo */
    QEL_PDU_CertificateRevocationListInfo = 19, /* QelCrl, its signed part */
    QEL_PDU_PBEParameter = 20,                  /* QelPBEParameter */
    QEL_PDU_ContentInfo = 21,                   /* QelContentInfo */
    QEL_PDU_ContentInfoFm = 22,                 /* QelContentInfo, content in a marked file */
    QEL_PDU_EnvelopedData = 23,                 /* QelEnvelopedData */
    QEL_PDU_EncryptedData = 24,                 /* QelEncryptedData */
    QEL_PDU_SignedData = 25,                    /* QelSignedData */
    QEL_PDU_SignedDataFm = 26,                  /* QelSignedData, content in a marked file */
    QEL_PDU_PkcsData = 27,                      /* QelOctetString */
    QEL_PDU_PkcsDataFm = 28,                    /* QelOctetString in a marked file */
    QEL_PDU_PrivateKeyInfo = 29,                /* QelPrivateKeyInfo */
    QEL_PDU_EncryptedPrivateKeyInfo = 30,       /* QelEncryptedPrivateKeyInfo */
    QEL_PDU_CertificationRequestInfo = 31,      /* QelCertReq, its signed part */
    QEL_PDU_CertificationRequest = 32,          /* QelCertReq */
    QEL_PDU_ChallengePassword = 33,             /* QelChallengePassword */
    QEL_PDU_EmailAddress = 34,                  /* char[] */
    QEL_PDU_PublicKeyAndChallenge = 35,         /* QelNetscapeCertReq, its signed part */
    QEL_PDU_SignedPublicKeyAndChallenge = 36    /* QelNetscapeCertReq */
};

/*
 * __qel_init_asn1 gives a context its ASN.1 environment, and ends the one that it has; __qel_init
 * calls it.
 * QEL_ERR_BAD_PARAM: a null context. QEL_ERR_NO_MEMORY. QEL_ERR_ASN1_INIT: the runtime refuses.
 */
QelStatus __qel_init_asn1(QelContext *context);

/*
 * __qel_end_asn1 ends the environment. Its handles for files end with it, and temporary files of
 * decoded values are removed. Always QEL_OK, also for a null context or one without environment.
 */
QelStatus __qel_end_asn1(QelContext *context);

/*
 * __qel_asn1_encode encodes one value.
 *   value   the PDU's record. Lists that are there get their bit in the presence mask: extensions
 *           (PDUs 5, 6), keypkgAttrs and tKeys (15, 16), certs, crls and both kinds of attributes
 *           of every signer (25, 26). No bit is cleared. Other records are not written to.
 *   buffer, length  by the rule for output bytes, but a buffer that is too small is
 *           QEL_ERR_ASN1_ENCODE. A handle of __qel_mark_oss_file as the buffer: the encoding is
 *           written to that file, whatever it held before. A failure changes neither; it leaves such a file
 *           as it was, or empty where it was the writing that failed.
 * Name, CertificateInfo, Certificate, KeyPkgInfo, DigestInfo and CertificationRequestInfo are always
 * encoded in DER (X.690), but that a default which the record holds as given, and a time's offset, stay
 * as they came: signatures were made over them. The others go by the rules of the environment. Printable strings must keep to
 * their alphabet, IA5 strings to 7 bits; years reach from 1969 to 2068.
 * QEL_ERR_BAD_PARAM: a null argument; no buffer but a length. QEL_ERR_ASN1_ENCODE: anything else.
 */
QelStatus __qel_asn1_encode(QelContext *context, const void *value, int pdu, uint8_t **buffer,
                            uint32_t *length);

/*
 * __qel_asn1_decode decodes one value, in BER or DER, that ends where the data ends.
 *   data       length bytes; or a handle of __qel_mark_oss_file, and the file is read.
 *   value_out  a new record, all of whose parts are separate blocks. It is released with
 *              __qel_asn1_free, or the free function of its kind; one with content in a file only
 *              with __qel_asn1_free or its function of the context (__qel_free_..._fm_pdu).
 * QEL_ERR_BAD_PARAM: a null argument. QEL_ERR_ASN1_DECODE: anything else, missing memory included.
 */
QelStatus __qel_asn1_decode(QelContext *context, const uint8_t *data, uint32_t length, int pdu,
                            void **value_out);

/*
 * __qel_mark_oss_file makes a handle for a file, which need not be there yet. As value of the
 * OctetString that ContentInfoFm, SignedDataFm and PkcsDataFm keep in a file (content of the first
 * two: the encoded content; of the last: the octets), it is where encoding reads the content. Decoding
 * writes content to a new file of mode 0600 in TMPDIR or /tmp, and stores a handle of its own;
 * releasing the record removes that file. Content passes in blocks; below 4 GiB.
 *   marked_out  the handle, which belongs to the context.
 * QEL_ERR_BAD_PARAM: a null argument. QEL_ERR_NO_MEMORY.
 */
QelStatus __qel_mark_oss_file(QelContext *context, const char *file_name, void **marked_out);

/*
 * __qel_unmark_oss_file forgets a handle. The file stays, a temporary one too.
 *   result_out  the file's name, which the caller frees; null for what is no handle of this context.
 * QEL_ERR_BAD_PARAM: a null argument.
 */
QelStatus __qel_unmark_oss_file(QelContext *context, void *marked, void **result_out);

/* Constructed values get indefinite lengths from now on, except under DER. QEL_ERR_BAD_PARAM. */
QelStatus __qel_set_encoding_flags_indefinite(QelContext *context);

/* Every decoded value is printed to standard error from now on, keys and all. QEL_ERR_BAD_PARAM. */
QelStatus __qel_set_decoding_flags_debugpdu(QelContext *context);

/* __qel_asn1_pdu_name gives the name of a PDU's type, or null for a number that is none. */
const char *__qel_asn1_pdu_name(int pdu);

/*
 * __qel_asn1_print writes a value of any PDU, in a form close to ASN.1 value notation.
 * QEL_ERR_BAD_PARAM: a null argument, or no such PDU. QEL_ERR_OUTPUT: the stream reports an error.
 */
QelStatus __qel_asn1_print(QelContext *context, FILE *stream, const void *value, int pdu);

/*
 * __qel_asn1_free releases a value of any PDU; its strings, long integers and open types are zeroed
 * first.
 * Parts with a bit in a presence mask are reached when the bit is set. Nothing happens when the value
 * is null or the context has no environment. The functions below do the same for their PDU.
 */
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
/* SignedPublicKeyAndChallenge. */
void __qel_free_netscape_certreq(QelContext *context, QelNetscapeCertReq *value);

/* ---- Names -------------------------------------------------------------------------------------- */

/*
 * Writes a name as qel_dn2str does, with the same statuses.
 *   mode  1: a backslash before each comma in a value; 2: no backslash, for display.
 */
QelStatus __qel_dn2str(QelContext *context, const QelName *name, int mode, char **string_out);

/*
 * Writes a printable name as __qel_dn2str would write the name that it stands for, its assertions
 * in the order of DER. Strings for the same name give the same result, unless an attribute stands
 * twice in one component in different case: DER orders before the value is capitalised. Statuses: of
 * qel_str2dn and qel_dn2str.
 */
QelStatus __qel_normalize_DN(QelContext *context, const char *string, int mode, char **string_out);

/* ---- Copying records ---------------------------------------------------------------------------- */

/*
 * __qel_copy_X makes a new record, a deep copy of source, which the caller releases with
 * __qel_free_X. __qel_copy2_X fills the caller's record, which need not be initialised, and whose
 * contents the caller releases with __qel_free2_X. A failed copy leaves a null pointer, or a record
 * of zeros. The mask decides whether extensions are copied; __qel_copy_rdn and
 * __qel_copy_v3_cert_extensions copy the list from the given node on.
 *
 * QEL_ERR_BAD_PARAM: a null argument, an octet string without bytes (even of length 0), an assertion
 * without a value, or a required field that is null. QEL_ERR_GENERAL: a record that counts bytes,
 * bits or components but has none. QEL_ERR_NO_MEMORY.
 */
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

/*
 * __qel_free_X releases a record with everything it owns and nulls the caller's pointer.
 * __qel_free2_X releases what the record owns and fills the record itself with zeros. Null is
 * ignored. A list (rdn, rdn_seq, attr_value, v3_cert_extensions, rcpt_infos, item_list) is released
 * from the given node on. Bytes of octet strings are zeroed first, since any may be secret. What
 * qel.h says of masks and key packages holds here.
 */
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
void __qel_free2_rdn(QelRdn *record);
void __qel_free2_rdn_seq(QelRdnSeq *record);
void __qel_free2_ava(QelAva *record);
void __qel_free2_attribute(QelAttribute *record);
void __qel_free2_attr_value(QelAttrValue *record);
void __qel_free2_v3_extension(QelExtension *record);
void __qel_free2_v3_cert_extensions(QelExtensions *record);
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
void __qel_free2_rcpt_infos(QelRcptInfos *record);
void __qel_free2_item_list(QelItemList *record);

/* ---- Comparing records -------------------------------------------------------------------------- */

/*
 * Each stores 0 in *result_out when the values are equal, else another number. Two nulls are equal;
 * a null differs from any value, with result 1.
 *
 *   oid      the order of the first components that differ, -1 or 1; a prefix is smaller.
 *   algid    1 when the object identifiers differ, when only one has parameters, or when these
 *            differ in length; else the order of their bytes (memcmp).
 *   keyinfo  1 when the algorithms differ, else that of the keys as bit strings.
 *   serial   1 when the lengths differ, else the order of the bytes (memcmp).
 *   bstr     1 when the lengths differ, else the order of the whole bytes (memcmp), else 1 when the
 *            bits behind them differ; unused bits do not count.
 *   dn       the order of the printable forms, whatever the case of the letters a to z. Names that
 *            print alike are equal, also where their values hold what the printable form uses between
 *            values: equality does not prove that two names are the same.
 *
 * QEL_ERR_BAD_PARAM: a null result_out or context, or a record that counts values but has none. For
 * names also what encoding, decoding or qel_dn2str returns. *result_out is unset on failure.
 */
QelStatus __qel_cmp_oid(const QelOid *a, const QelOid *b, int *result_out);
QelStatus __qel_cmp_algid(const QelAlgId *a, const QelAlgId *b, int *result_out);
QelStatus __qel_cmp_keyinfo(const QelKeyInfo *a, const QelKeyInfo *b, int *result_out);
QelStatus __qel_cmp_serial(const QelSerial *a, const QelSerial *b, int *result_out);
QelStatus __qel_cmp_bstr(const QelBitString *a, const QelBitString *b, int *result_out);
QelStatus __qel_cmp_dn(QelContext *context, const QelName *a, const QelName *b, int *result_out);

/* ---- Printable armour and hexadecimal ----------------------------------------------------------- */

/*
 * Armoured text is a BEGIN line, the printable encoding of the bytes (base 64 of RFC 1421) in lines
 * of at most 64 characters, and an END line. Encoding, decoding and the lines around it are
 * separate.
 */

/* Marker kinds of armoured text (__qel_add_linewraps). */
enum {
    QEL_ARMOUR_NONE = 0,
    QEL_ARMOUR_CERTIFICATE = 1,
    QEL_ARMOUR_KEYPKG = 2,
    QEL_ARMOUR_SIGNATURE = 4,          /* PKCS#7 signed data without its content */
    QEL_ARMOUR_SIGNATURE_AND_DATA = 8, /* PKCS#7 signed data with its content */
    QEL_ARMOUR_ENCRYPTED_DATA = 16,
    QEL_ARMOUR_ENCRYPTION_INFO = 32, /* recipients and keys without the content */
    QEL_ARMOUR_ENCRYPTION_INFO_AND_DATA = 64
};

/*
 * Encodes length bytes into one unbroken run of characters, padded to a multiple of four.
 *   text_out         a new buffer of 2 x length bytes (4 for a single byte), zero after the
 *                    characters; it need not hold a NUL. The caller frees it.
 *   text_length_out  number of characters.
 * QEL_ERR_BAD_PARAM: also length 0. QEL_ERR_NO_MEMORY: also a length whose double exceeds 32 bits.
 * QEL_ERR_TO_RFC1421: the toolkit refused.
 */
QelStatus __qel_binary_2_rfc1421(const uint8_t *bytes, uint32_t length, char **text_out,
                                 uint32_t *text_length_out);

/*
 * Decodes length characters, which may hold white space but no marker lines.
 *   bytes_out  a new buffer of length + 1 bytes, zero after the result; the caller frees it.
 * QEL_ERR_BAD_PARAM: also length 0. QEL_ERR_NO_MEMORY. QEL_ERR_FROM_RFC1421: a character outside
 * the alphabet, bad padding, or an unfinished group.
 */
QelStatus __qel_rfc1421_2_binary(const char *text, uint32_t length, uint8_t **bytes_out,
                                 uint32_t *bytes_length_out);

/*
 * The three conversions between files take a null or empty name for standard input or output. The
 * output file is opened with open_flags (those of open(2), O_CREAT and O_TRUNC among them) and mode
 * 0600; both are opened before anything is read, so that a file cannot be converted onto itself.
 * Memory is bounded whatever the size of the files. What was written before a failure stays.
 * QEL_ERR_OPEN_FILE: a file cannot be opened. QEL_ERR_FILE_IO: a read, write or close failed, or a
 * write was short. QEL_ERR_NO_MEMORY.
 */

/* Writes the encoding of the input as one line, without markers. QEL_ERR_TO_RFC1421. */
QelStatus __qel_binary_2_rfc1421_files(const char *input_name, const char *output_name,
                                       int open_flags);

/*
 * Writes the bytes that the lines of the input encode, and passes over every line that begins with
 * "-----". A line may have any length. QEL_ERR_FROM_RFC1421: as for __qel_rfc1421_2_binary.
 */
QelStatus __qel_rfc1421_2_binary_files(const char *input_name, const char *output_name,
                                       int open_flags);

/*
 * Writes the BEGIN line of type, the input in lines of 64 characters, and the END line of type. The
 * input is cut afresh in each block of 1024 bytes that is read; a line that already ends with a
 * newline gets no other.
 *   type  QEL_ARMOUR_...; of several bits the first of 64, 32, 1, 2, 4, 8, 16 counts, and without
 *         any of them there are no markers.
 */
QelStatus __qel_add_linewraps(int type, const char *input_name, const char *output_name,
                              int open_flags);

/*
 * Reads hexadecimal digits of either case, after "0x" if that stands in front. An odd number of
 * digits reads as if a 0 stood before them.
 *   bytes_out  a new buffer of *length_out bytes and a spare zero byte; the caller frees it.
 * QEL_ERR_BAD_PARAM: a null argument, no digit, or a character that is none. QEL_ERR_NO_MEMORY.
 */
QelStatus __qel_hex_2_binary(const char *text, uint8_t **bytes_out, uint32_t *length_out);

/* ---- Times and serial numbers ------------------------------------------------------------------- */

/*
 * A new validity period from now to count days later; the caller frees it (__qel_free_validity). It
 * ends with the 32-bit clock, on 2038-01-19 at 03:14:07 UTC, where it would pass that. The number
 * of seconds in count days is a 32-bit product: an exact one up to 24855 days, beyond which it may
 * come out as any shorter time.
 *   unit   1: days.
 *   count  0 or more. A negative one ends in the past, or where its product wraps, anywhere.
 * QEL_ERR_BAD_PARAM: another unit. QEL_ERR_GENERAL: the clock cannot be read. QEL_ERR_NO_MEMORY.
 */
QelStatus __qel_set_validity(int unit, int32_t count, QelValidity **validity_out);

/*
 * Whether a validity period holds now: notBefore < now < notAfter. A null period holds. Times are
 * read as UTC, whatever their offset says.
 * QEL_ERR_KEY_EXPIRED: it does not hold. QEL_ERR_GENERAL: the clock cannot be read.
 * QEL_ERR_BAD_PARAM: a time is missing or has a field out of range. QEL_ERR_NO_MEMORY.
 */
QelStatus __qel_is_current(const QelValidity *validity);

/* The present, as __qel_printable_time writes it. QEL_ERR_GENERAL: the clock cannot be read. */
QelStatus __qel_get_current_time(char **text_out);

/*
 * A time in the form of ctime, in the local time zone, such as "Sun Sep 16 01:03:52 1973".
 *   text_out  24 characters and a NUL; the caller frees it.
 * QEL_ERR_BAD_PARAM: also a field out of range. QEL_ERR_BUFFER_SIZE: a time that the C library
 * cannot convert. QEL_ERR_NO_MEMORY.
 */
QelStatus __qel_printable_time(const QelUTCTime *utctime, char **text_out);

/*
 * A serial number from the monotonic clock: the big-endian nanoseconds, without leading zero bytes.
 * It is unique as long as the host runs. Its first bit may be 1, so that it encodes as a negative
 * INTEGER.
 *   serial_bytes_out  a new buffer; the caller frees it.
 * QEL_ERR_GENERAL: the clock cannot be read. QEL_ERR_NO_MEMORY.
 */
QelStatus __qel_gen_serial(QelContext *context, uint8_t **serial_bytes_out,
                           uint16_t *serial_length_out);

/* ---- RC2 parameters ----------------------------------------------------------------------------- */

/*
 * Encodes the parameters of RC2-CBC (RFC 2268).
 *   iv              8 bytes.
 *   effective_bits  effective key size, 1 to 1024.
 *   out             the encoding, for the parameters of an algorithm identifier; the caller frees
 *                   it (__qel_free_ostr).
 * QEL_ERR_BAD_PARAM: also a size that the toolkit refuses. QEL_ERR_ASN1_DECODE. QEL_ERR_NO_MEMORY.
 */
QelStatus __qel_encode_rc2_params_cpkit(QelContext *context, const uint8_t *iv,
                                        uint32_t effective_bits, QelOctetString **out);

/*
 * The effective key size, in bits, of encoded parameters of RC2-CBC.
 * QEL_ERR_BAD_PARAM: also parameters that the toolkit refuses. QEL_ERR_ASN1_ENCODE.
 * QEL_ERR_NO_MEMORY.
 */
QelStatus __qel_get_effective_keysize(QelContext *context, const QelOctetString *params,
                                      uint32_t *out_bits);

/* ---- Signed structures -------------------------------------------------------------------------- */

/*
 * Each signs or verifies a structure over the DER encoding of its signed part.
 *
 * Signing releases the signature that the structure has, and stores the new one. The key arguments
 * are those of qel_sign. The structure's own algorithm counts, since it is verified by that;
 * signature_algorithm counts, and must be given, where the structure names none.
 * Verifying uses the structure's algorithm and the given public key.
 * QEL_ERR_ASN1_ENCODE: a structure that is incomplete; what qel_sign or qel_verify returns.
 */
QelStatus __qel_sign_certreq(QelContext *context, QelCertReq *request,
                             const QelAlgId *key_algorithm, const uint8_t *key_bytes,
                             uint32_t key_length, const QelAlgId *signature_algorithm);
QelStatus __qel_sign_cert(QelContext *context, QelCert *certificate, const QelAlgId *key_algorithm,
                          const uint8_t *key_bytes, uint32_t key_length,
                          const QelAlgId *signature_algorithm);
QelStatus __qel_sign_keypkg(QelContext *context, QelKeyPkg *key_package,
                            const QelAlgId *key_algorithm, const uint8_t *key_bytes,
                            uint32_t key_length, const QelAlgId *signature_algorithm);
QelStatus __qel_verify_certreq(QelContext *context, const QelCertReq *request,
                               const QelKeyInfo *public_key);
QelStatus __qel_verify_netscape_certreq(QelContext *context, const QelNetscapeCertReq *request,
                                        const QelKeyInfo *public_key);
QelStatus __qel_verify_keypkg(QelContext *context, const QelKeyPkg *key_package,
                              const QelKeyInfo *public_key);

/* ---- Encryption without the export policy --------------------------------------------------------- */

/*
 * kvdsaivqa encrypts and kdlsdkspd decrypts as qel_encrypt and qel_decrypt do, without the policy:
 * keys may be longer (RC2 up to 128 bytes, RC4 up to 256); triple DES in CBC mode is there, with 24
 * bytes of key and the parameters of DES; data are not held against earlier outputs, nor outputs
 * remembered. RC2 keeps to 40 effective bits. What those return, but for QEL_ERR_DOUBLE_ENCRYPT.
 */
QelStatus kvdsaivqa(QelContext *context, const uint8_t *data, uint32_t length, uint32_t mode,
                    const QelAlgId *key_algorithm, const uint8_t *key, uint32_t key_length,
                    const QelAlgId *algorithm, uint8_t **output, uint32_t *output_length);
QelStatus kdlsdkspd(QelContext *context, const uint8_t *data, uint32_t length, uint32_t mode,
                    const QelAlgId *key_algorithm, const uint8_t *key, uint32_t key_length,
                    const QelAlgId *algorithm, uint8_t **output, uint32_t *output_length);

/*
 * Triple DES in CBC mode, in one call and without the policy: aksksfdq encrypts, glhrahhi decrypts.
 * What is under way in the context goes on afterwards as if nothing had been.
 *   key, iv  24 and 8 bytes.
 *   output   as in a single call of kvdsaivqa and kdlsdkspd, and so are the statuses.
 */
QelStatus aksksfdq(QelContext *context, const uint8_t *data, uint32_t length, const uint8_t *key,
                   uint32_t key_length, const uint8_t *iv, uint32_t iv_length, uint8_t **output,
                   uint32_t *output_length);
QelStatus glhrahhi(QelContext *context, const uint8_t *data, uint32_t length, const uint8_t *key,
                   uint32_t key_length, const uint8_t *iv, uint32_t iv_length, uint8_t **output,
                   uint32_t *output_length);

/* ---- Key wrapping and key agreement --------------------------------------------------------------- */

/*
 * vfeqjfkkj wraps a symmetric key under an RSA public key: a PKCS#1 v1.5 block (type 2). Every
 * argument must be given.
 *   key                    1 byte or more, at most 11 fewer than the modulus has.
 *   key_algorithm          what the key is for; it changes nothing.
 *   public_key_algorithm   rsaEncryption; public_key_parameters: its parameters as encoded;
 *                          public_key_bits: the public key as it stands in a SubjectPublicKeyInfo
 *                          (X.509).
 *   wrapped                a new buffer, as long as the modulus; the caller frees it.
 * QEL_ERR_KEY_TYPE: a public key that is not RSA. QEL_ERR_BAD_KEY: one that cannot be read.
 * QEL_ERR_WRAP: a key that is too long, or the token failed, for lack of random bytes or memory.
 * QEL_ERR_GENERAL, QEL_ERR_NO_MEMORY.
 */
QelStatus vfeqjfkkj(QelContext *context, const uint8_t *key, uint32_t key_length,
                    const QelAlgId *key_algorithm, const QelBitString *public_key_bits,
                    const QelOctetString *public_key_parameters,
                    const QelAlgId *public_key_algorithm, uint8_t **wrapped,
                    uint32_t *wrapped_length);

/*
 * Diffie-Hellman (PKCS#3) in two phases, once in the lifetime of a context. Numbers are unsigned,
 * big-endian; all buffers are the caller's.
 *
 * __qel_dh_part1 draws a private value, which stays in the context, and gives the public one.
 *   exponent_bits          length of the private value, below the prime's; 0: one bit less than that.
 *   prime                  256 to 512 bits; that it is one is the caller's word.
 *   base                   above 1, below the prime less one.
 *   seed                   seed_length bytes, more than exponent_bits / 8. The private value comes
 *                          from these alone, by MD5: they must be as secret and as random as it.
 *   public_value           receives as many bytes as the prime has, without its leading zeros, which
 *   public_value_capacity  must not exceed this number.
 * QEL_ERR_BAD_PARAM: also a context that has an agreement, a prime above 64 bytes, a short seed.
 * QEL_ERR_DH_PHASE1: anything else, missing memory included; the context has no agreement then.
 */
QelStatus __qel_dh_part1(QelContext *context, uint32_t exponent_bits, uint32_t prime_length,
                         const uint8_t *prime, uint32_t base_length, const uint8_t *base,
                         const uint8_t *seed, uint32_t seed_length, uint8_t *public_value,
                         uint32_t public_value_capacity);

/*
 * __qel_dh_part2 gives the secret shared with another side. It may be called again, with the same
 * private value.
 *   secret              receives as many bytes as the prime has; at most secret_capacity.
 *   other_public_value  above 1, below the prime less one.
 * QEL_ERR_BAD_PARAM: also a context without an agreement. QEL_ERR_DH_PHASE2: anything else.
 */
QelStatus __qel_dh_part2(QelContext *context, uint8_t *secret, uint32_t *secret_length,
                         uint32_t secret_capacity, const uint8_t *other_public_value,
                         uint32_t other_length);

/* ---- Trusted keys and chains ------------------------------------------------------------------------ */

/*
 * Trusted keys are a list, newest first; null is an empty one. It belongs to whoever added to it, as
 * the tKeys of a key package do. Names are compared as __qel_cmp_dn does, keys as __qel_cmp_keyinfo.
 * The first comparison that fails ends a call with its status: QEL_ERR_UNSUPPORTED_ATTR where a name
 * has an attribute that cannot be printed, QEL_ERR_ASN1_ENCODE, QEL_ERR_ASN1_DECODE,
 * QEL_ERR_NO_MEMORY.
 */

/*
 * __qel_is_trusted_key tells whether the subject of a certificate and its public key are the owner
 * and the public key of an entry that is current (__qel_is_current; one without validity always is).
 * Nothing else of the certificate is looked at.
 * QEL_OK: they are. QEL_ERR_TKEY_EXPIRED: only of entries whose validity does not cover the present.
 * QEL_ERR_ISSUER_NOT_TRUSTED: of none. QEL_ERR_BAD_PARAM: also a certificate without subject or public
 * key, or times out of range in an entry. QEL_ERR_GENERAL: the clock cannot be read.
 */
QelStatus __qel_is_trusted_key(QelContext *context, const QelTrustedKeys *trusted_keys,
                               const QelCert *certificate);

/*
 * __qel_add_trusted_key puts a copy of a key at the head of a list.
 * QEL_ERR_ENTRY_EXISTS: an entry has this owner and this public key, whatever the rest of it.
 * QEL_ERR_BAD_PARAM: also a key without owner or public key. What __qel_copy_tkey returns. The list
 * is as it was after a failure.
 */
QelStatus __qel_add_trusted_key(QelContext *context, const QelTrustedKey *key,
                                QelTrustedKeys **list);

/*
 * __qel_delete_trusted_key removes every entry that has the issuer and the serial number of the
 * template, or its owner, and releases it with its node.
 *   key_template  issuer or owner must be there; what is not, matches nothing.
 * QEL_ERR_NO_ENTRY: there is none, and the list is as it was. QEL_ERR_BAD_PARAM. Entries before the
 * one whose comparison fails have been removed.
 */
QelStatus __qel_delete_trusted_key(QelContext *context, const QelTrustedKey *key_template,
                                   QelTrustedKeys **list);

/*
 * __qel_append_cert_to_chain makes a chain of a certificate and, behind it, the chain of its issuer.
 *   chain, count          the issuer's chain; null and 0: there is none.
 *   new_chain, new_count  a new array of count + 1 copies; the caller frees it (qel_free_cert_list).
 * QEL_ERR_BAD_PARAM: also a chain without count, or the reverse. What __qel_copy_cert returns.
 */
QelStatus __qel_append_cert_to_chain(const QelCert *certificate, const QelCert *chain, int count,
                                     QelCert **new_chain, int *new_count);

/* ---- Signed messages --------------------------------------------------------------------------------- */

/*
 * A signed message is a ContentInfo of type signedData (PKCS#7 version 1.5): the data, one signature
 * over their digest (MD2 or MD5) without signed attributes, and the certificates that lead from the
 * signer to somebody whom the reader trusts.
 */

/*
 * __qel_create_pkcs7_signedData signs data and makes a message of them. The ContentInfo has indefinite
 * lengths, what is in it is DER, but that the certificates stand in the order of the chain.
 *   data                 length bytes, 1 or more.
 *   key_algorithm, key, key_length  the private key, as for qel_sign; null, null, 0: the key server
 *                        signs.
 *   signature_algorithm  md2WithRSAEncryption or md5WithRSAEncryption; null: md2WithRSAEncryption.
 *   signer_certificate   null: the first certificate in the naming service under the owner's name of
 *                        the calling user's key package (qel_get_keypkg) that has its public key.
 *                        Whether it belongs to the key that signs is not looked at.
 *   trusted_names, flag  how far up the certificates go that are sent along, see qel_get_cert_chain.
 *   message              output bytes.
 * QEL_ERR_UNSUPPORTED_ALG: another signature algorithm. QEL_ERR_NO_CERT: no certificate has the key of
 * the key package. QEL_ERR_BUFFER_SIZE. QEL_ERR_ASN1_ENCODE: an incomplete certificate, or a message of
 * 4 GiB. QEL_ERR_NO_MEMORY. What qel_sign, qel_get_keypkg, qel_get_cert, qel_dn2str,
 * __qel_cmp_keyinfo and qel_get_cert_chain return.
 */
QelStatus __qel_create_pkcs7_signedData(QelContext *context, const uint8_t *data, uint32_t length,
                                        const QelAlgId *key_algorithm, const uint8_t *key,
                                        uint32_t key_length, const QelAlgId *signature_algorithm,
                                        const QelCert *signer_certificate,
                                        const char *const *trusted_names, int flag,
                                        uint8_t **message, uint32_t *message_length);

/*
 * __qel_verify_pkcs7_signedData verifies a message, in BER or DER, and gives the data that it holds.
 *
 * A single certificate is the signer's. It is good when it is a trusted key, or else when a chain is
 * found for it (qel_verify_cert_est_chain). Several, in any order, must make up one chain, of which the
 * signer's is the end, and which is verified as it is (qel_verify_cert_chain). The signature must then
 * be the first signer's over the data, by the key of that certificate; the signer's issuer and serial
 * number are not looked at, nor are attributes, which no such signature covers.
 *
 *   message              message_length bytes.
 *   trusted_keys         null: those of the calling user's key package (qel_get_keypkg).
 *   allowed_names, reserved  for qel_verify_cert_est_chain, and for a single certificate only.
 *   data                 output bytes.
 *   signer_name          the subject of the signer's certificate, a new string; the caller frees it.
 *   chain, chain_count   both null, or a new array of the signer's certificate and those behind it; the
 *                        caller frees it (qel_free_cert_list).
 *   expired_certificate  null, or receives a copy of the certificate that is not current, if the
 *                        status is QEL_ERR_KEY_EXPIRED; the caller frees it (qel_free_cert).
 *
 * QEL_ERR_KEY_EXPIRED, with all results: everything is good, but the validity of a certificate does not
 * cover the present. QEL_ERR_TKEY_EXPIRED: any failure where the key of a single certificate is a
 * trusted one that has expired, or one by qel_verify_cert_chain or qel_verify_cert_est_chain.
 * QEL_ERR_BAD_PARAM: also another type of message or content, content that is not there (a detached
 * signature) or empty, no certificate, no signer, certificates that do not make up a chain, or that are
 * of PKCS#6, a signer's algorithm other than rsaEncryption, a digest other than MD2 and MD5, and a key
 * package without trusted keys. QEL_ERR_ASN1_DECODE: not of these forms. QEL_ERR_VERIFY: the data are
 * not what was signed. QEL_ERR_BUFFER_SIZE, with none of the results. QEL_ERR_NO_MEMORY. What
 * qel_verify_cert_chain, qel_verify_cert_est_chain, qel_verify, qel_get_keypkg, qel_dn2str and
 * __qel_cmp_dn return.
 */
QelStatus __qel_verify_pkcs7_signedData(QelContext *context, const uint8_t *message,
                                        uint32_t message_length, const QelTrustedKeys *trusted_keys,
                                        const char *const *allowed_names, int reserved,
                                        uint8_t **data, uint32_t *data_length, char **signer_name,
                                        QelCert **chain, int *chain_count,
                                        QelCert **expired_certificate);

/* ---- RSA keys ------------------------------------------------------------------------------------- */

/* Kinds of key for __qel_get_rsa_keysize. */
enum { QEL_RSA_PUBLIC = 1, QEL_RSA_PRIVATE = 2 };

/*
 * __qel_get_rsa_keysize gives the length of the modulus of an RSA key, in bytes.
 *   kind  QEL_RSA_PUBLIC: key is an RSAPublicKey, as it stands in a SubjectPublicKeyInfo (X.509);
 *         QEL_RSA_PRIVATE: an RSAPrivateKey, as it stands in a PrivateKeyInfo (PKCS#8).
 *   key   key_length bytes, not bits, of either.
 * QEL_ERR_BAD_PARAM: also another kind. QEL_ERR_BAD_KEY: anything else, missing memory included.
 */
QelStatus __qel_get_rsa_keysize(QelContext *context, int kind, const uint8_t *key,
                                uint32_t key_length, uint32_t *size_out);

/*
 * __qel_get_rsa_pubkey_components gives the two numbers of an encoded SubjectPublicKeyInfo of RSA.
 *   modulus, exponent  new buffers, big-endian, without leading zeros; the caller frees them.
 * QEL_ERR_BAD_KEY: an encoding that is refused. QEL_ERR_NO_MEMORY.
 */
QelStatus __qel_get_rsa_pubkey_components(const uint8_t *key, uint32_t key_length,
                                          uint8_t **modulus, uint32_t *modulus_length,
                                          uint8_t **exponent, uint32_t *exponent_length);

/* ---- Key packages ---------------------------------------------------------------------------------- */

/*
 * A key package is a user's credential: the private key (a PrivateKeyInfo, PKCS#8) encrypted with
 * triple DES in CBC mode under a key derived from a pass phrase, the public key, the owner's name,
 * and a signature with that private key over the whole. The salt and the iteration count of the
 * derivation are the parameters of the encryption's algorithm identifier (PBEParameter, PKCS#5);
 * the identifier itself is not looked at.
 *
 * Keys and private keys that come back are secret: the caller zeroes them (explicit_bzero), with
 * the lengths that came with them, before it frees them.
 */

/* What a key is derived from. */
typedef struct PassPhraseKeyInput {
    uint8_t *salt;
    uint32_t salt_length; /* an even number */
    char *pass_phrase;    /* NUL-terminated */
    uint32_t iteration_count;
} PassPhraseKeyInput;

/*
 * Derives the triple-DES key of a key package. Two chains start from the halves of the salt, and go
 * on by D = MD5(D followed by the pass phrase), iteration_count times; the key is the end of the
 * first chain and the first half of the second's, the vector the rest. Parity is not set, and weak
 * keys are not looked for.
 *   input  where both halves of the salt are equal, the bytes of the first are reversed, in this
 *          record, so that the chains differ.
 *   key    a new block of 24 bytes, for the caller to zero and free.
 *   iv     a new block of 8 bytes, likewise.
 * QEL_ERR_BAD_PARAM: also a salt that is empty or of odd length, an empty pass phrase, and an
 * iteration count of 0. QEL_ERR_NO_MEMORY.
 */
QelStatus __qel_gen_des3_key_from_pwd(QelContext *context, PassPhraseKeyInput *input, uint8_t **key,
                                      uint32_t *key_length, uint8_t **iv, uint32_t *iv_length);

/*
 * Derives a DES key as PKCS#5 version 1.5 does, and weakens it as the export policy asks: the bytes
 * 1, 3, 5 and 7 of the key keep only their low four bits.
 *   algorithm    pbeWithMD2AndDES-CBC or pbeWithMD5AndDES-CBC, with its parameters.
 *   pass_phrase  NUL-terminated.
 *   key          a new block of 8 bytes, for the caller to zero and free.
 *   parameters   new parameters of DES-CBC, the derived vector as an encoded OCTET STRING; the
 *                caller frees them (__qel_free_ostr).
 * QEL_ERR_BAD_PARAM: also another algorithm, one without parameters, an iteration count of 0, and a
 * pass phrase and a salt that are both empty. QEL_ERR_ASN1_DECODE: other parameters than these.
 * QEL_ERR_NO_MEMORY.
 */
QelStatus __qel_gen_des_key_from_pwd(QelContext *context, const QelAlgId *algorithm,
                                     const char *pass_phrase, uint8_t **key,
                                     QelOctetString **parameters);

/*
 * Opens a key package with its pass phrase, and proves that the key in it is the package's own: the
 * package's signature verifies with its public key, and the private key makes the same signature.
 * Without that proof nothing is handed out.
 *   package_der      the encoded package, package_length bytes.
 *   pass_phrase      NUL-terminated.
 *   package          a new record; the caller frees it (qel_free_keypkg, or __qel_asn1_free where it
 *                    may have keypkgAttrs).
 *   private_key_der  the PrivateKeyInfo (PKCS#8), DER, in a new block of *private_key_length bytes,
 *                    for the caller to zero and free.
 * A wrong pass phrase is mostly QEL_ERR_DECRYPT, since the padding is wrong; about one in 256 gets
 * past that, and is QEL_ERR_ASN1_DECODE.
 * QEL_ERR_BAD_PARAM: also an empty pass phrase, and a salt or an iteration count that
 * __qel_gen_des3_key_from_pwd refuses. QEL_ERR_ASN1_DECODE: the package, its parameters or the
 * decrypted key cannot be decoded. QEL_ERR_VERIFY: the signature is not that of the public key, or
 * not that of the private key. What glhrahhi, qel_verify_keypkg_return_digest and, for a decrypted
 * key that cannot sign, qel_sign return. QEL_ERR_NO_MEMORY.
 */
QelStatus __qel_validate_keypkg_with_pwd(QelContext *context, const uint8_t *package_der,
                                         uint32_t package_length, const char *pass_phrase,
                                         QelKeyPkg **package, uint8_t **private_key_der,
                                         uint32_t *private_key_length);

/*
 * Proves that a private key is that of an encoded key package, as above.
 *   key_bytes          key_length bytes: the privateKey of a PrivateKeyInfo, an encoded
 *                      RSAPrivateKey.
 *   key_algorithm_der  its algorithm identifier, encoded, key_algorithm_length bytes.
 * QEL_ERR_ASN1_DECODE: the package or the identifier cannot be decoded. QEL_ERR_VERIFY: the
 * signature is not that of the public key, or not that of the private key. What
 * qel_verify_keypkg_return_digest and, for a key that cannot sign, qel_sign return: QEL_ERR_KEY_TYPE
 * for a key that is not RSA, QEL_ERR_BAD_KEY for one that cannot be read.
 */
QelStatus __qel_validate_keypkg_with_privkey(QelContext *context, const uint8_t *package_der,
                                             uint32_t package_length, const uint8_t *key_bytes,
                                             uint32_t key_length, const uint8_t *key_algorithm_der,
                                             uint32_t key_algorithm_length);

/*
 * Decodes a key package, and verifies its signature with its own public key: it is as its owner
 * left it, whoever that may be.
 *   package  a new record; the caller frees it, as above.
 * QEL_ERR_ASN1_DECODE. What __qel_verify_keypkg returns.
 */
QelStatus __qel_verify_keypkg_sig(QelContext *context, const uint8_t *package_der,
                                  uint32_t package_length, QelKeyPkg **package);

/*
 * Encrypts the private key of a package anew, under another pass phrase with the salt and iteration
 * count that the package has, and signs the package anew, by md5WithRSAEncryption whatever it was
 * before. The package takes the new ciphertext, algorithm and signature together: a failure leaves
 * it as it was.
 *   private_key_der  the PrivateKeyInfo, as __qel_validate_keypkg_with_pwd gives it. That it
 *                    belongs to the package is for the caller to know.
 * QEL_ERR_BAD_PARAM: also an encryption algorithm without parameters. QEL_ERR_ASN1_DECODE: other
 * parameters, or a private key that cannot be decoded. QEL_ERR_KEYGEN: no key can be derived, as
 * from an empty pass phrase. QEL_ERR_ENCRYPT. QEL_ERR_SIGN. QEL_ERR_NO_MEMORY.
 */
QelStatus __qel_change_pass_phrase(QelContext *context, const char *new_pass_phrase,
                                   const uint8_t *private_key_der, uint32_t private_key_length,
                                   QelKeyPkg *package);

/* ---- Pass phrases ---------------------------------------------------------------------------------- */

/*
 * A pass phrase is what the user types at the controlling terminal, /dev/tty, while the echo is off.
 * Prompts go to standard error. One thread at a time may use them.
 */

/* Which pass phrase the user is asked for. */
enum {
    QEL_PHRASE_NEW = 1,      /* "your NEW key package password", asked twice */
    QEL_PHRASE_OLD = 2,      /* "your OLD key package password" */
    QEL_PHRASE_OWN = 3,      /* "your own key package password" */
    QEL_PHRASE_PACKAGES = 4, /* "key package password for new key packages" */
    QEL_PHRASE_HOST = 5      /* "host key package password"; any other number: "password" */
};

/*
 * Asks for a pass phrase, once and without a second try: "PROGRAM: Enter TEXT: ", for a new one then
 * "PROGRAM: Reenter TEXT: " and, where the two differ, "PROGRAM: No password or different passwords
 * entered".
 *   program_name  stands before the prompts; null or "": "Enter TEXT: ", but ": Reenter TEXT: ".
 *   kind          QEL_PHRASE_...
 *   phrase_out    a new string of 1 to 100 characters, which the caller zeroes and frees.
 * QEL_ERR_BAD_PARAM: a null phrase_out. QEL_ERR_BAD_PASSWORD: no phrase was typed, the two differ,
 * __qel_getpass returned null.
 */
QelStatus __qel_get_encryption_phrase(const char *program_name, int kind, char **phrase_out);

/*
 * __qel_getpass reads one line from the controlling terminal with the echo off. What was typed before
 * is discarded. A line feed, a carriage return or the end of the file ends the line; of a longer one
 * the first 100 characters count. A line feed goes to standard error behind it.
 *
 * SIGINT, SIGQUIT, SIGTERM and SIGHUP end the reading; the process gets them again once the terminal
 * is as it was and the former handlers are back. When SIGTSTP stops the process it has both in the
 * meantime; afterwards, as after any other stop (SIGCONT), the echo goes off again and the line goes
 * on. A signal that the process ignores stays ignored; SIGINT is never ignored while the phrase is
 * typed.
 *
 * Returns a new string, which the caller zeroes and frees; null without a terminal whose echo can be
 * turned off, or without memory.
 */
char *__qel_getpass(void);

/* ---- Input and output ------------------------------------------------------------------------------- */

/*
 * Where a file name may be null or empty it stands for standard input or output. Files are made with
 * mode 0600 and written in place. A file is opened first and keeps what it holds until all is converted;
 * from then on a failure leaves what was written.
 *
 * QEL_ERR_BAD_PARAM also means no data to convert, or no such form. QEL_ERR_OPEN_FILE: a file cannot
 * be opened. QEL_ERR_FILE_IO: a read, write or close failed, or a write was short.
 * QEL_ERR_TO_RFC1421 and QEL_ERR_FROM_RFC1421: as in "Printable armour and hexadecimal", whose
 * conversions these are.
 */

/* Forms of data outside. */
enum { QEL_FORM_RAW = 1, QEL_FORM_ARMOUR = 2, QEL_FORM_HEX = 3 };

/* Kinds of item between marker lines; any other has none. */
enum { QEL_ITEM_CERTIFICATE = 1, QEL_ITEM_KEYPKG = 2 };

/* A list of certificates. */
typedef struct QelCertList {
    struct QelCertList *next;
    QelCert *cert;
} QelCertList;

/*
 * Lays out text in lines, with line feeds between them.
 *   data        length characters.
 *   indent      0: lines begin with the text. Otherwise with so many blanks and "0x".
 *   line_width  characters of the text in each line; 0: one line.
 *   text_out    a new NUL-terminated string of *text_length_out characters; the caller frees it.
 * QEL_ERR_BAD_PARAM: also length 0. QEL_ERR_NO_MEMORY: also a result of 2^32 characters or more.
 */
QelStatus __qel_format_output(const uint8_t *data, uint32_t length, uint32_t indent,
                              uint32_t line_width, char **text_out, uint32_t *text_length_out);

/*
 * Each writes data in one form. Armour and hexadecimal digits are laid out by __qel_format_output;
 * raw bytes, of which there may be none, are written as they are.
 *
 *   function            to                              indent  width  behind armour and digits
 *   __qel_dump_output   a file, whose contents it ends  any     any    a line feed
 *   __qel_dump_append   the end of a file               0       64     a line feed
 *   __qel_fdump_output  a stream, which it leaves open  any     any    nothing
 *
 * QEL_ERR_BAD_PARAM: also a null stream. QEL_ERR_OPEN_FILE, QEL_ERR_FILE_IO, QEL_ERR_NO_MEMORY,
 * QEL_ERR_TO_RFC1421. What a stream holds back may fail later.
 */
QelStatus __qel_dump_output(const char *file_name, int form, const uint8_t *data, uint32_t length,
                            uint32_t indent, uint32_t line_width);
QelStatus __qel_dump_append(const char *file_name, int form, const uint8_t *data, uint32_t length);
QelStatus __qel_fdump_output(FILE *stream, int form, const uint8_t *data, uint32_t length,
                             uint32_t indent, uint32_t line_width);

/*
 * Appends one item to a data-set file: the BEGIN line, the data in lines of 64, the END line.
 *   kind       QEL_ITEM_..., or another number for an item without those lines.
 *   file_name  not standard output.
 * QEL_ERR_NO_FILE: no name. QEL_ERR_OPEN_FILE, QEL_ERR_FILE_IO, QEL_ERR_NO_MEMORY,
 * QEL_ERR_TO_RFC1421.
 */
QelStatus __qel_dump_append_and_delimit(int kind, const char *file_name, int form,
                                        const uint8_t *data, uint32_t length);

/*
 * Writes a data-set file anew with the items that are not removed, each as above, the first with an
 * empty line before its END line where its text ends with a line feed of its own. When all are
 * removed the file is deleted; without any item nothing happens.
 *   file_name  null or "": .LOGIN.KEYPKG in the home folder of the calling user.
 *   items      item_count of them.
 * QEL_ERR_UNKNOWN_USER: the user has no entry. QEL_ERR_GENERAL: the file cannot be deleted.
 * QEL_ERR_OPEN_FILE, QEL_ERR_FILE_IO, QEL_ERR_NO_MEMORY, QEL_ERR_TO_RFC1421.
 */
QelStatus __qel_dump_data_set(int kind, const char *file_name, int form, uint32_t item_count,
                              const QelDataSetItem *items);

/*
 * Each encodes one credential in DER and writes it to a file, whose contents it ends: armour in lines
 * of 64 between the marker lines of its kind (a request: NEW CERTIFICATE REQUEST).
 *   indent   of __qel_dump_certreq without markers; otherwise not used.
 *   binary   1: the encoding itself, and nothing else.
 *   delimit  0: no marker lines, and lines that begin as __qel_format_output says.
 * QEL_ERR_ASN1_ENCODE: an incomplete record. QEL_ERR_OPEN_FILE, QEL_ERR_FILE_IO, QEL_ERR_NO_MEMORY,
 * QEL_ERR_TO_RFC1421.
 */
QelStatus __qel_dump_keypkg(QelContext *context, const char *file_name, const QelKeyPkg *package,
                            uint32_t indent);
QelStatus __qel_dump_cert(QelContext *context, const char *file_name, const QelCert *certificate,
                          uint32_t indent, int binary);
QelStatus __qel_dump_certreq(QelContext *context, const char *file_name, const QelCertReq *request,
                             uint32_t indent, int delimit);

/*
 * Reads a whole file.
 *   buffer_out  a new buffer of *length_out bytes and a spare zero byte; the caller frees it.
 * QEL_ERR_NO_FILE: there is no such file. QEL_ERR_OPEN_FILE, QEL_ERR_FILE_IO. QEL_ERR_NO_MEMORY:
 * also a file of nearly 4 GiB.
 */
QelStatus __qel_read_ostr_file(const char *file_name, uint8_t **buffer_out, uint32_t *length_out);

/*
 * Reads a whole file and what it stands for.
 *   form        QEL_FORM_ARMOUR: without marker lines. QEL_FORM_HEX: what __qel_parse_hex takes. Any
 *               other: the bytes as they are.
 *   buffer_out  a new buffer of *length_out bytes and a spare zero byte; the caller frees it.
 * QEL_ERR_BAD_PARAM: also text without digits or armour, or a character that is no digit.
 * QEL_ERR_FROM_RFC1421, and the statuses of __qel_read_ostr_file.
 */
QelStatus __qel_read_input(const char *file_name, int form, uint8_t **buffer_out,
                           uint32_t *length_out);

/*
 * Takes the digits out of hexadecimal text: passes over line feeds, blanks, zero bytes, '#', and
 * every "0x".
 *   digits_out  a new string of digits of either case; the caller frees it.
 * QEL_ERR_BAD_PARAM: a null argument, no digit, or another character. QEL_ERR_NO_MEMORY.
 */
QelStatus __qel_parse_hex(const char *text, uint32_t length, char **digits_out);

/*
 * Reads the certificates of a file in their order, as __qel_read_next_cert does, with its statuses
 * and those of __qel_read_ostr_file.
 *   list_out  null for a file without certificates. The caller releases the list with
 *             __qel_free_certlist.
 */
QelStatus __qel_file_2_certlist(QelContext *context, const char *file_name, QelCertList **list_out);

/* Releases a list with its certificates and nulls the pointer; null is ignored. */
void __qel_free_certlist(QelCertList **list);

/*
 * Reads one certificate and steps over it. Line feeds, tabs, blanks and '#' before it are passed
 * over. It is armour that ends before a '#', or armour between marker lines, of which the END line
 * must end with a line feed. Text before a BEGIN marker is passed over on its line, if it begins
 * with '-'.
 *   text, remaining  where to read and how many characters there are; afterwards, those behind the
 *                    certificate.
 *   cert_out         a new record (qel_free_cert), or null when no certificate is left.
 * On failure *remaining is 0. QEL_ERR_BAD_PARAM: also text that is neither. QEL_ERR_FROM_RFC1421,
 * QEL_ERR_ASN1_DECODE, QEL_ERR_NO_MEMORY.
 */
QelStatus __qel_read_next_cert(QelContext *context, const char **text, uint32_t *remaining,
                               QelCert **cert_out);

/* Writes a number in decimal digits, at most 12 bytes with "-" and the NUL. Null is ignored. */
void __qel_itoa(int32_t number, char *text);

/* ---- The naming service ------------------------------------------------------------------------------ */

/*
 * Users and hosts have an entry in the naming service, which holds their distinguished name, their
 * certificates and their key packages. An entry goes by the user's login name, the host's dotted IPv4
 * address, or a full name, which begins with ".../". Where the naming service of this host was never
 * set up, the first use runs the commands that do.
 *
 * QEL_ERR_XFN: the naming service is not there, cannot be set up, or failed.
 */

/*
 * Looks up the distinguished names under which a name is registered; a full name is its own.
 *   list_out  a new list of strings whose NUL length does not count; the caller frees it
 *             (__qel_free_item_list). Null, and count 0, on failure.
 * QEL_ERR_BAD_PARAM: a null argument. QEL_ERR_NO_DN: none is registered, or there is no such entry.
 * QEL_ERR_UNKNOWN_USER: an address of no known host, an empty or malformed name. QEL_ERR_XFN,
 * QEL_ERR_NO_MEMORY.
 */
QelStatus __dsv_get_dn_name_given_user_name(const char *name, QelItemList **list_out,
                                            uint32_t *count_out);

/*
 * Finds the entry that is registered under a distinguished name, among users first, then hosts.
 *   dn        in the form in which it was registered.
 *   name_out  a new string, the login name or the host's dotted address; the caller frees it.
 * QEL_ERR_BAD_PARAM: a null argument. QEL_ERR_UNKNOWN_USER: there is none, or the host has no
 * address. QEL_ERR_NO_DN: the search failed. QEL_ERR_XFN, QEL_ERR_NO_MEMORY.
 */
QelStatus __dsv_get_user_name_given_cn_name(const char *dn, char **name_out);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
