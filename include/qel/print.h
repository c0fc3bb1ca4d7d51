/*
 * print.h: credentials as text for people. Private to the family, as qelp.h is; the rules at the top
 * of qel.h hold here too.
 *
 * Each function writes an account of a record to a stream and leaves the record, and what is under
 * way in the context, as they are. Lines begin with indent blanks and end with a line feed. Names are
 * written as __qel_dn2str does in mode 2, times as __qel_printable_time does in the local time zone,
 * bytes as hexadecimal digits after "0x" (__qel_fdump_output). Text out of a record goes to the
 * stream as it stands: a caller that writes to a terminal takes control characters out first.
 *
 *   full    not 0: signatures, and the numbers of public keys, are written too.
 *   indent  how many blanks.
 *
 * Printing ends with the first step that fails; what was written until then stays written. Statuses
 * of all: QEL_ERR_BAD_PARAM for a null argument, a part that is missing, or one without contents.
 * QEL_ERR_FILE_IO: the stream refuses; what it holds back may fail later. What __qel_dn2str,
 * __qel_printable_time, the codec and qel_digest return: a name with an attribute that has no keyword
 * is QEL_ERR_UNSUPPORTED_ATTR. QEL_ERR_NO_MEMORY.
 */
#ifndef QEL_PRINT_H
#define QEL_PRINT_H

#include <stdio.h>

#include <qel/qel.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/*
 * FPRINTF writes indent blanks and formatted text. Returns the number of characters of the text
 * (fprintf), or a negative number: a null argument, or the stream refuses.
 */
int FPRINTF(FILE *stream, uint32_t indent, const char *format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;

/* __qel_print does the same if quiet is 0, and otherwise writes nothing. */
QelStatus __qel_print(FILE *stream, int quiet, uint32_t indent, const char *format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 4, 5)))
#endif
    ;

/* ---- Parts of credentials ------------------------------------------------------------------------- */

/*
 * An object identifier in dotted form, without a line feed. Components of 2^31 and more come out
 * negative.
 */
QelStatus __qel_fprint_oid(QelContext *context, FILE *stream, const QelOid *oid, uint32_t indent);

/*
 * An algorithm and its parameters, by the kind that the registry knows it has (__qel_alg2ParmType),
 * 4 blanks further in. The line of parameters ends without a line feed, and without a word, for
 * initialisation vectors and parameters of RC2. QEL_ERR_ASN1_DECODE: a key size that is no INTEGER.
 */
QelStatus __qel_fprint_algid(QelContext *context, FILE *stream, const QelAlgId *algorithm,
                             uint32_t indent);

/* Both times of a validity period. */
QelStatus __qel_fprint_validity(QelContext *context, FILE *stream, const QelValidity *validity,
                                uint32_t indent);

/* A list of extensions, numbered from 1; and one of them. */
QelStatus __qel_fprint_v3_cert_extensions(QelContext *context, FILE *stream,
                                          const QelExtensions *extensions, uint32_t indent);
QelStatus __qel_fprint_v3_cert_extension(QelContext *context, FILE *stream,
                                         const QelExtension *extension, uint32_t indent);

/*
 * A public key: its algorithm and, if full, its bits, or modulus and public exponent of an RSA key.
 * QEL_ERR_BAD_KEY: an RSA key that cannot be read.
 */
QelStatus __qel_fprint_keyinfo(QelContext *context, FILE *stream, const QelKeyInfo *key, int full,
                               uint32_t indent);

/*
 * An attribute. Only the values of challengePassword (PKCS#9) are shown; their decoded copies are
 * zeroed. One of a type without a name (__qel_attrtype2name) ends without a line feed.
 */
QelStatus __qel_fprint_attribute(QelContext *context, FILE *stream, const QelAttribute *attribute,
                                 uint32_t indent);

/* ---- Credentials ---------------------------------------------------------------------------------- */

/*
 * A certificate, with the MD5 fingerprints of its signed part and of the whole. Extensions are
 * written for version 3 alone (whose number is 2).
 */
QelStatus __qel_fprint_cert(QelContext *context, FILE *stream, const QelCert *certificate, int full,
                            uint32_t indent);

/* What a log of issued certificates keeps of one, and when; a rule of plus signs ends the entry. */
QelStatus __qel_fprint_cert_log(QelContext *context, FILE *stream, const QelCert *certificate,
                                uint32_t indent);

/*
 * A key package, but for its private key. QEL_ERR_BAD_PARAM: also a usage of 0.
 */
QelStatus __qel_fprint_keypkg(QelContext *context, FILE *stream, const QelKeyPkg *key_package,
                              int full, uint32_t indent);

/* The usage of a key package (USAGE_...); nothing for a number that is none, but 0 is refused. */
QelStatus __qel_fprint_keypkg_usage(QelContext *context, FILE *stream, uint32_t usage,
                                    uint32_t indent);

/* A trusted key, with what is there of issuer, serial number, validity and extensions. */
QelStatus __qel_fprint_trusted_key(QelContext *context, FILE *stream,
                                   const QelTrustedKey *trusted_key, int full, uint32_t indent);

/*
 * A certification request (PKCS#10), and a browser's signed public key and challenge. The signature
 * is always written.
 */
QelStatus __qel_fprint_certreq(QelContext *context, FILE *stream, const QelCertReq *request,
                               int full, uint32_t indent);
QelStatus __qel_fprint_netscape_certreq(QelContext *context, FILE *stream,
                                        const QelNetscapeCertReq *request, int full,
                                        uint32_t indent);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
