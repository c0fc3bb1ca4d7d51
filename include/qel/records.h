/*
 * records.h: the in-memory records of the credential infrastructure.
 *
 * A record's layout follows its ASN.1 type; the codec reads and writes exactly these records.
 *
 * Ownership. Every pointer inside a record owns what it points to, except pointers to the shared
 * constants of oids.h, which must never reach a free function. Records, lists and bytes come from
 * the malloc family, zero-filled.
 *
 * Presence. An absent optional pointer is null. Where a record starts with a mask, the mask and not
 * the pointer decides about the fields whose bit is named beside them; __qel_asn1_encode first sets
 * the bits of what certificates, key packages and signed data have. A field with a default value
 * is encoded when its bit is set or its value is not the default; a decoder sets the bit when the
 * field was there, so that what a signer wrote comes back byte for byte.
 *
 * Lists are singly linked nodes of two words: next node, element. A null list is empty.
 * Strings are NUL-terminated; an encoded string that holds a NUL is refused by the decoder.
 * Lengths count bytes, those of bit strings count bits; the first bit is the top bit of byte 0.
 */
#ifndef QEL_RECORDS_H
#define QEL_RECORDS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Scalars and strings ---------------------------------------------------------------------- */

/* OCTET STRING; also an encoded value whose type is open (ANY), tag and length included. */
typedef struct QelOctetString {
    uint32_t length;
    uint8_t *value;
} QelOctetString;

/* BIT STRING; length in bits. */
typedef struct QelBitString {
    uint32_t length;
    uint8_t *value;
} QelBitString;

typedef QelBitString QelUid;

/* OBJECT IDENTIFIER: count components, the first two not combined. */
typedef struct QelOid {
    uint16_t count;
    uint32_t *value;
} QelOid;

/* Certificate serial number: the big-endian content octets of the INTEGER, sign bit included. */
typedef struct QelSerial {
    uint16_t length;
    uint8_t *value;
} QelSerial;

/*
 * UTCTime. year counts from 1900 (a value below 69 read from an encoding means 2000 plus it), month
 * from 1. utc is 1 for a time in UTC ("Z"), else mindiff is the offset from UTC in minutes.
 */
typedef struct QelUTCTime {
    int16_t year;
    int16_t month;
    int16_t day;
    int16_t hour;
    int16_t minute;
    int16_t second;
    int16_t millisec;
    int16_t mindiff;
    uint8_t utc;
} QelUTCTime;

typedef struct QelValidity {
    QelUTCTime *notBefore;
    QelUTCTime *notAfter;
} QelValidity;

typedef struct QelAlgId {
    QelOid *algorithm;
    QelOctetString *parameters; /* encoded, or null */
} QelAlgId;

/* SubjectPublicKeyInfo (X.509). */
typedef struct QelKeyInfo {
    QelAlgId *algorithm;
    QelBitString pubKey;
} QelKeyInfo;

/* ---- Names ------------------------------------------------------------------------------------ */

typedef struct QelAva {
    QelOid *type;
    QelOctetString *value; /* encoded */
} QelAva;

/* A relative distinguished name: the first of its assertions' nodes. */
typedef struct QelRdn {
    struct QelRdn *next;
    QelAva *ava;
} QelRdn;

typedef struct QelRdnSeq {
    struct QelRdnSeq *next;
    QelRdn *rdn;
} QelRdnSeq;

#define QEL_NAME_RDN_SEQUENCE 1

typedef struct QelName {
    uint16_t choice; /* QEL_NAME_RDN_SEQUENCE, the only form */
    QelRdnSeq *rdns;
} QelName;

/* ---- Attributes and extensions ---------------------------------------------------------------- */

typedef struct QelAttrValue {
    struct QelAttrValue *next;
    QelOctetString *value; /* encoded */
} QelAttrValue;

typedef struct QelAttribute {
    QelOid *type;
    QelAttrValue *values;
} QelAttribute;

typedef struct QelAttributes {
    struct QelAttributes *next;
    QelAttribute *attribute;
} QelAttributes;

#define QEL_EXTENSION_CRITICAL 0x80 /* mask: critical was given */

typedef struct QelExtension {
    uint8_t mask;
    QelOid *extnId;
    uint8_t critical; /* 0 or 1 */
    QelOctetString extnValue;
} QelExtension;

typedef struct QelExtensions {
    struct QelExtensions *next;
    QelExtension *extension;
} QelExtensions;

/* ---- Certificates and revocation lists (X.509) ------------------------------------------------ */

#define QEL_CERT_VERSION    0x80 /* mask: version was given */
#define QEL_CERT_EXTENSIONS 0x40 /* mask: extensions are there */

/* Certificate. Everything before algorithm is the signed part (CertificateInfo). */
typedef struct QelCert {
    uint8_t mask;
    int32_t version; /* 0 is version 1 */
    QelSerial serial;
    QelAlgId *signature;
    QelName *issuer;
    QelValidity *validity;
    QelName *subject;
    QelKeyInfo *pubKeyInfo;
    QelUid *issuerUID;
    QelUid *subjectUID;
    QelExtensions *extensions;
    QelAlgId *algorithm;
    QelBitString sigBits;
} QelCert;

typedef struct QelCertPair {
    QelCert *forward;
    QelCert *reverse;
} QelCertPair;

typedef struct QelCrlEntry {
    QelSerial userCertificate;
    QelUTCTime *revocationDate;
} QelCrlEntry;

typedef struct QelCrlEntries {
    struct QelCrlEntries *next;
    QelCrlEntry *entry;
} QelCrlEntries;

#define QEL_CRL_ENTRIES 0x80 /* mask: revokedCertificates is there */

/* A revocation list, in its X.509 form (nextUpdate may be null) and in its PKCS#7 form (may not). */
typedef struct QelCrl {
    uint8_t mask;
    QelAlgId *signature;
    QelName *issuer;
    QelUTCTime *thisUpdate;
    QelUTCTime *nextUpdate;
    QelCrlEntries *revokedCertificates;
    QelAlgId *algorithm;
    QelBitString sigBits;
} QelCrl;

/* ---- Private keys (PKCS#8, PKCS#5) and algorithm parameters ----------------------------------- */

#define QEL_PRIVKEY_ATTRIBUTES 0x80 /* mask: attributes are there */

typedef struct QelPrivateKeyInfo {
    uint8_t mask;
    int32_t version;
    QelAlgId *privateKeyAlgorithm;
    QelOctetString privateKey; /* secret: the RSA numbers in their own encoding */
    QelAttributes *attributes;
} QelPrivateKeyInfo;

typedef struct QelEncryptedPrivateKeyInfo {
    QelAlgId *encryptionAlgorithm;
    QelOctetString encryptedData;
} QelEncryptedPrivateKeyInfo;

typedef struct QelPBEParameter {
    QelOctetString salt;
    uint32_t iterationCount;
} QelPBEParameter;

#define QEL_RC2_IV       1
#define QEL_RC2_SEQUENCE 2

typedef struct QelRC2CBCParameter {
    uint16_t choice;
    union {
        QelOctetString iv; /* QEL_RC2_IV */
        struct {
            int32_t version; /* encodes the effective key size (RFC 2268) */
            QelOctetString iv;
        } sequence; /* QEL_RC2_SEQUENCE */
    } u;
} QelRC2CBCParameter;

typedef struct QelDigestInfo {
    QelAlgId *digestAlgorithm;
    QelOctetString digest;
} QelDigestInfo;

/* ---- Character strings with a choice of type --------------------------------------------------- */

#define QEL_CIG_T61       1
#define QEL_CIG_PRINTABLE 2

/* CaseIgnoreString (X.520). */
typedef struct QelCaseIgnoreString {
    uint16_t choice;
    union {
        char *t61String;
        char *printableString;
    } u;
} QelCaseIgnoreString;

#define QEL_CHALLENGE_PRINTABLE 1
#define QEL_CHALLENGE_T61       2

/* ChallengePassword (PKCS#9). */
typedef struct QelChallengePassword {
    uint16_t choice;
    union {
        char *printableString;
        char *t61String;
    } u;
} QelChallengePassword;

/* ---- Key packages ------------------------------------------------------------------------------ */

#define QEL_TKEY_EXTENSIONS 0x80 /* mask: extensions are there */

typedef struct QelTrustedKey {
    uint8_t mask;
    QelName *owner;
    QelKeyInfo *pubKeyInfo;
    QelName *issuer;
    QelValidity *validity;
    QelOctetString *serial; /* content octets of the INTEGER */
    QelExtensions *extensions;
} QelTrustedKey;

typedef struct QelTrustedKeys {
    struct QelTrustedKeys *next;
    QelTrustedKey *key;
} QelTrustedKeys;

#define USAGE_SIGN_ENCRYPT 1
#define USAGE_SIGN         2
#define USAGE_ENCRYPT      4

#define QEL_KEYPKG_ATTRS 0x80 /* mask: keypkgAttrs is there */
#define QEL_KEYPKG_TKEYS 0x40 /* mask: tKeys is there */

/* Key package. Everything before algorithm is the signed part (KeyPkgInfo). */
typedef struct QelKeyPkg {
    uint8_t mask;
    char *version;
    char *keypkgId;
    QelName *owner;
    QelKeyInfo *pubKeyInfo;
    QelEncryptedPrivateKeyInfo *encrPrivKeyInfo;
    QelAttributes *keypkgAttrs;
    uint32_t usage; /* USAGE_... */
    QelTrustedKeys *tKeys;
    QelAlgId *algorithm;
    QelBitString signature;
} QelKeyPkg;

/* What the key server holds for a logged-in user. */
typedef struct QelServKeyInfo {
    QelAlgId *keyAlgId;
    uint32_t uid;
    uint32_t flags;
    QelOctetString privKey; /* secret */
    char *keypkgId;
    char *hostIP;
    QelOctetString keypkg; /* encoded */
} QelServKeyInfo;

/* ---- Requests ---------------------------------------------------------------------------------- */

/* Certification request (PKCS#10). Everything before algorithm is the signed part. */
typedef struct QelCertReq {
    int32_t version;
    QelName *subject;
    QelKeyInfo *pubKeyInfo;
    QelAttributes *attributes;
    QelAlgId *algorithm;
    QelBitString signature;
} QelCertReq;

/* A browser's signed public key and challenge. Everything before algorithm is the signed part. */
typedef struct QelNetscapeCertReq {
    QelKeyInfo *spki;
    char *challenge;
    QelAlgId *algorithm;
    QelBitString signature;
} QelNetscapeCertReq;

/* ---- PKCS#7 ------------------------------------------------------------------------------------ */

typedef struct QelContentInfo {
    QelOid *contentType;
    QelOctetString *content; /* encoded, or null */
} QelContentInfo;

typedef struct QelIssuerAndSerial {
    QelName *issuer;
    QelSerial serial;
} QelIssuerAndSerial;

typedef struct QelAlgIds {
    struct QelAlgIds *next;
    QelAlgId *algid;
} QelAlgIds;

/* ExtendedCertificate (PKCS#6). */
typedef struct QelExtendedCert {
    int32_t version;
    QelCert *certificate;
    QelAttributes *attributes;
    QelAlgId *signatureAlgorithm;
    QelBitString signature;
} QelExtendedCert;

#define QEL_CERT_PLAIN    1
#define QEL_CERT_EXTENDED 2

typedef struct QelCertChoice {
    uint16_t choice;
    union {
        QelCert *cert;                 /* QEL_CERT_PLAIN */
        QelExtendedCert *extendedCert; /* QEL_CERT_EXTENDED */
    } u;
} QelCertChoice;

typedef struct QelCertChoices {
    struct QelCertChoices *next;
    QelCertChoice *cert;
} QelCertChoices;

typedef struct QelCrls {
    struct QelCrls *next;
    QelCrl *crl;
} QelCrls;

#define QEL_SIGNER_AUTH_ATTRS   0x80 /* mask: authenticatedAttributes are there */
#define QEL_SIGNER_UNAUTH_ATTRS 0x40 /* mask: unauthenticatedAttributes are there */

typedef struct QelSignerInfo {
    uint8_t mask;
    int32_t version;
    QelIssuerAndSerial *issuerAndSerialNumber;
    QelAlgId *digestAlgorithm;
    QelAttributes *authenticatedAttributes;
    QelAlgId *digestEncryptionAlgorithm;
    QelOctetString encryptedDigest;
    QelAttributes *unauthenticatedAttributes;
} QelSignerInfo;

typedef struct QelSignerInfos {
    struct QelSignerInfos *next;
    QelSignerInfo *signer;
} QelSignerInfos;

#define QEL_SIGNED_CERTS 0x80 /* mask: certs is there */
#define QEL_SIGNED_CRLS  0x40 /* mask: crls is there */

typedef struct QelSignedData {
    uint8_t mask;
    int32_t version;
    QelAlgIds *digestAlgorithms;
    QelContentInfo *contentInfo;
    QelCertChoices *certs;
    QelCrls *crls;
    QelSignerInfos *signerInfos;
} QelSignedData;

typedef struct QelRcptInfo {
    int32_t version;
    QelIssuerAndSerial *issuerAndSerialNumber;
    QelAlgId *keyEncryptionAlgorithm;
    QelOctetString encryptedKey;
} QelRcptInfo;

typedef struct QelRcptInfos {
    struct QelRcptInfos *next;
    QelRcptInfo *recipient;
} QelRcptInfos;

typedef struct QelEncryptedContentInfo {
    QelOid *contentType;
    QelAlgId *contentEncryptionAlgorithm;
    QelOctetString *encryptedContent; /* or null */
} QelEncryptedContentInfo;

typedef struct QelEnvelopedData {
    int32_t version;
    QelRcptInfos *recipientInfos;
    QelEncryptedContentInfo *encryptedContentInfo;
} QelEnvelopedData;

typedef struct QelEncryptedData {
    int32_t version;
    QelEncryptedContentInfo *encryptedContentInfo;
} QelEncryptedData;

/* ---- Lists of anything -------------------------------------------------------------------------- */

typedef struct QelItemList {
    void *data;       /* owned, one block */
    uintptr_t length; /* bytes in data, where that is known */
    struct QelItemList *next;
} QelItemList;

#ifdef __cplusplus
}
#endif

#endif
