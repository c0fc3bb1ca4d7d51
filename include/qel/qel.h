/*
 * qel.h: the public interface of libqel.
 *
 * What holds everywhere:
 *  - Functions return a status: 0 (QEL_OK) or one of the QEL_ERR_ numbers below. Nothing is thrown;
 *    nothing is printed, but by the functions that say so.
 *  - A null or out-of-range argument is QEL_ERR_BAD_PARAM, a failed allocation QEL_ERR_NO_MEMORY.
 *  - Results come back through pointer arguments, which are cleared first and set only on success;
 *    nothing half-made is handed out. Output bytes are not cleared but left as they are.
 *  - Output bytes: where *buffer is not null it is the caller's buffer and *length its capacity
 *    (too small: QEL_ERR_BUFFER_SIZE). Where *buffer is null the library allocates, and the caller
 *    frees with free(). *length becomes the number of bytes written.
 *  - A context serves one thread at a time; different contexts may be used in parallel.
 */
#ifndef QEL_QEL_H
#define QEL_QEL_H

#include <qel/oids.h>
#include <qel/records.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

typedef uint32_t QelStatus;
typedef struct QelContext QelContext;

enum {
    QEL_OK = 0,
    QEL_ERR_BUFFER_SIZE = 1,
    QEL_ERR_NO_MEMORY = 2,
    QEL_ERR_FILE_FORMAT = 3,
    QEL_ERR_NO_FILE = 4,
    QEL_ERR_FILE_IO = 5,
    QEL_ERR_BAD_PASSWORD = 6,
    QEL_ERR_UNKNOWN_USER = 7,
    QEL_ERR_UNSUPPORTED_ALG = 8,
    QEL_ERR_ASN1_ENCODE = 9,
    QEL_ERR_ASN1_DECODE = 10,
    QEL_ERR_BAD_KEY = 11,
    QEL_ERR_KEYGEN = 12,
    QEL_ERR_ENCRYPT = 13,
    QEL_ERR_DECRYPT = 14,
    QEL_ERR_SIGN = 15,
    QEL_ERR_VERIFY = 16,
    QEL_ERR_DIGEST = 17,
    QEL_ERR_OUTPUT = 18,
    QEL_ERR_GENERAL = 19,
    QEL_ERR_UNSUPPORTED_ATTR = 20,
    QEL_ERR_LOGIN = 21,
    QEL_ERR_LOGOUT = 22,
    QEL_ERR_NO_ENTRY = 23,
    QEL_ERR_ENTRY_EXISTS = 24,
    QEL_ERR_SERV_DECRYPT = 25,
    QEL_ERR_SERV_SIGN = 26,
    QEL_ERR_NOT_LOGGED_IN = 27,
    QEL_ERR_SERV_CONNECT = 28,
    QEL_ERR_NO_KEYPKG = 29,
    QEL_ERR_KEY_EXPIRED = 30,
    QEL_ERR_ISSUER_NOT_TRUSTED = 31,
    QEL_ERR_BAD_PARAM = 32,
    QEL_ERR_TO_RFC1421 = 33,
    QEL_ERR_FROM_RFC1421 = 34,
    QEL_ERR_RANDOM = 35,
    QEL_ERR_XFN = 36,
    QEL_ERR_NO_CHAIN = 37,
    QEL_ERR_DN_NO_EQUALS = 38,
    QEL_ERR_DN_NO_TYPE = 39,
    QEL_ERR_DN_NO_VALUE = 40,
    QEL_ERR_NO_CERT = 41,
    QEL_ERR_NO_DN = 42,
    QEL_ERR_CRITICAL_EXT = 43,
    QEL_ERR_ASN1_INIT = 44,
    QEL_ERR_WRAP = 45,
    QEL_ERR_UNWRAP = 46,
    QEL_ERR_KEY_TYPE = 47,
    QEL_ERR_DH_PHASE1 = 48,
    QEL_ERR_DH_PHASE2 = 49,
    QEL_ERR_DOUBLE_ENCRYPT = 50,
    QEL_ERR_SERV_UPDATE = 51,
    QEL_ERR_SERV_STAT = 52,
    QEL_ERR_EXPORT = 53,
    QEL_ERR_TKEY_EXPIRED = 54,
    QEL_ERR_OPEN_FILE = 55
};

/* ---- Context and statuses ---------------------------------------------------------------------- */

/*
 * A context holds what an application's use of the library keeps between calls: where certificates
 * live, the default key identifier, the host's address, the ASN.1 environment, the message
 * catalogue, and the state of operations that take several calls. A context runs at most one such
 * operation of each kind at a time.
 */

/*
 * qel_init makes a context that is connected to the key server of this host; without one there is no
 * context. The caller ends it with qel_end.
 *   keyid  the default key identifier; null or "": "default_keyid".
 *   host   the host's IPv4 address. A dotted one is kept as it stands, a name becomes its first
 *          address; null: "0.0.0.0".
 * QEL_ERR_BAD_PARAM: a null context_out, or a name that cannot be resolved. QEL_ERR_NO_MEMORY.
 * QEL_ERR_ASN1_INIT: the ASN.1 runtime refused its tables. QEL_ERR_GENERAL: no key server is
 * registered on this host, or what answers is none; the host's name or its network configuration
 * cannot be read.
 */
QelStatus qel_init(QelContext **context_out, const char *keyid, const char *host);

/*
 * qel_end releases a context with everything it owns: its strings, ASN.1 environment and catalogue,
 * a key agreement between its two phases, the token session, and the connection to the key server.
 * QEL_ERR_BAD_PARAM for null.
 */
QelStatus qel_end(QelContext *context);

/*
 * qel_strerror gives the text for a status, in the user's language where the message catalogue
 * "qelcat" has it (set 2; message code + 1, or 100 for numbers that are no status), else in English.
 *   context  whose catalogue to use; null: the catalogue that the environment names at present.
 *   code     any number.
 * The text is never null and is not the caller's to free. It stays valid as long as the context, or
 * without a context for good. Threads may call this at the same time, with the same context too.
 */
const char *qel_strerror(const QelContext *context, QelStatus code);

/* ---- Algorithms -------------------------------------------------------------------------------- */

/* Kinds of algorithm. */
enum { QEL_ALG_CIPHER = 0, QEL_ALG_PUBKEY = 1, QEL_ALG_DIGEST = 2, QEL_ALG_SIGNATURE = 3 };

/* What the parameters of an algorithm identifier are. */
enum {
    QEL_PARM_NONE = 0,    /* absent */
    QEL_PARM_KEYSIZE = 1, /* INTEGER, the key size in bits */
    QEL_PARM_IV = 2,      /* OCTET STRING, a DES initialisation vector */
    QEL_PARM_NULL = 3,    /* NULL */
    QEL_PARM_RC2 = 4      /* RC2-CBCParameter (RFC 2268) */
};

typedef struct QelAlgListEntry {
    const QelOid *oid;      /* null in the closing row */
    const char *name;       /* such as "md5WithRSAEncryption" */
    uint32_t AlgType;       /* QEL_ALG_... */
    uint32_t ParmType;      /* QEL_PARM_... */
    uint32_t exportKeySize; /* bits; 0 for no limit */
} QelAlgListEntry;

/*
 * qel_get_alglist gives the table of supported algorithms, which ends with a row whose oid is null.
 * The table is constant and shared; nobody frees it. QEL_ERR_BAD_PARAM for null.
 */
QelStatus qel_get_alglist(const QelAlgListEntry **list_out);

/* ---- Names ------------------------------------------------------------------------------------- */

/*
 * A printable name is a list of components joined by commas, the most specific first, such as
 * "CN=Alice, O=Acme, C=US". A component is one or more assertions, "keyword=value", joined by '+'.
 *
 *   keyword  attribute (X.520, PKCS#9)   value is a       characters
 *   CN       commonName                  T61String        up to 64
 *   SERIAL   serialNumber                PrintableString  up to 64
 *   C        countryName                 PrintableString  2
 *   L        localityName                T61String        up to 128
 *   O        organizationName            T61String        up to 64
 *   OU       organizationalUnitName      T61String        up to 64
 *   ST       stateOrProvinceName         T61String        up to 128
 *   STREET   streetAddress               T61String        up to 128
 *   EM       emailAddress                IA5String        any number
 *
 * Reading takes keywords in either case, passes over white space around keywords and values, and
 * takes a run of it inside a value for one blank. A comma inside a value stands behind a backslash;
 * blanks and tabs before the backslash vanish. A '+' cannot be escaped. Double quotes read as
 * blanks. A comma may end the text.
 *
 * Writing gives capital letters (a to z only) and single blanks, "CN=ALICE + OU=B, C=US", and
 * accepts PrintableString where T61String is written. The text reads back as the same name, but for
 * the case of letters, unless a value is empty, longer than names allow, in characters outside its
 * type's alphabet, ends with a backslash, or holds a '+', a '"', a blank before a comma, or white
 * space that reading drops. A PrintableString may read back as a T61String.
 */

/*
 * Reads a printable name.
 *   name_out  a new name, whose first component is the last of the string; the caller frees it
 *             (qel_free_dn).
 * QEL_ERR_BAD_PARAM: also a comma that begins the string, a '+' that begins a component, or a value
 * of a wrong length. QEL_ERR_DN_NO_EQUALS, QEL_ERR_DN_NO_TYPE, QEL_ERR_DN_NO_VALUE: an assertion
 * without '=', nothing before it, nothing behind it. QEL_ERR_UNSUPPORTED_ATTR: an unknown keyword.
 * QEL_ERR_ASN1_ENCODE: characters that the value's type has not. QEL_ERR_NO_MEMORY.
 */
QelStatus qel_str2dn(QelContext *context, const char *string, QelName **name_out);

/*
 * Writes a name, with a backslash before each comma in a value. A name without components is "".
 *   string_out  a new string; the caller frees it.
 * QEL_ERR_BAD_PARAM: also a component without assertions, an assertion without value, or an empty
 * one. QEL_ERR_UNSUPPORTED_ATTR: an attribute that is not in the table. QEL_ERR_ASN1_DECODE: a
 * value of another type than the table's. QEL_ERR_NO_MEMORY.
 */
QelStatus qel_dn2str(QelContext *context, const QelName *name, char **string_out);

/* ---- Releasing records -------------------------------------------------------------------------- */

/*
 * Each releases a record with everything it owns and nulls the caller's pointer; a null argument or
 * a null pointer is ignored. Bytes of octet strings are zeroed first. The mask decides whether
 * extensions are there: with its bit clear they are left alone. The keypkgAttrs of a key package are
 * left to whoever set them.
 */
void qel_free_dn(QelName **name);
void qel_free_keypkg(QelKeyPkg **keypkg);
void qel_free_cert(QelCert **cert);

/*
 * qel_free_cert_list releases an array of certificates that lie one after another, as a whole, and
 * nulls the pointer.
 *   count  number of certificates; with 0 or less nothing happens.
 */
void qel_free_cert_list(QelCert **array, int count);

/* ---- Digest, sign, verify ----------------------------------------------------------------------- */

/*
 * MD2 (RFC 1319) and MD5 (RFC 1321) digests of 16 bytes; RSA signatures over their DigestInfo
 * (PKCS#1 v1.5), named md2WithRSAEncryption and md5WithRSAEncryption.
 *
 * Data come in one call of mode QEL_MODE_FINAL, or in any number of calls of mode QEL_MODE_UPDATE
 * and a last one of QEL_MODE_FINAL, whose data may be none (null, 0). With QEL_MODE_DIGEST, for
 * signatures only, data are the 16 bytes of the digest itself. The context holds what is under way:
 * one digest, signature, verification or cipher at a time. It ends with the final call and with any
 * failure, but a call that is refused for its arguments (QEL_ERR_BAD_PARAM) leaves it as it is. An
 * update without data is refused; within a signature or verification it is a failure that ends it.
 */
enum { QEL_MODE_UPDATE = 1, QEL_MODE_FINAL = 2, QEL_MODE_DIGEST = 3 };

/*
 * qel_digest digests data.
 *   mode       QEL_MODE_UPDATE or QEL_MODE_FINAL.
 *   algorithm  md2 or md5. After the first update it is checked, but changes nothing.
 *   digest     output bytes, 16; looked at in the final call only.
 * QEL_ERR_UNSUPPORTED_ALG: another algorithm. QEL_ERR_BUFFER_SIZE. QEL_ERR_NO_MEMORY.
 * QEL_ERR_DIGEST: the token failed, for lack of memory or because an encryption is under way.
 */
QelStatus qel_digest(QelContext *context, const uint8_t *data, uint32_t length, uint32_t mode,
                     const QelAlgId *algorithm, uint8_t **digest, uint32_t *digest_length);

/*
 * qel_sign signs data: with the given private key, or where there is none (null, null, 0) through
 * the key server with the key of the user who is logged in.
 *   key_algorithm        rsaEncryption; key_bytes and key_length: the private key as it stands in a
 *                        PrivateKeyInfo (PKCS#8).
 *   signature_algorithm  md2WithRSAEncryption or md5WithRSAEncryption. Null, or looked at no more,
 *                        after the first update.
 *   signature            output bytes, as many as the modulus has; not looked at in an update. In
 *                        a final call *signature_length must be 0 if *signature is null, and only
 *                        then.
 * QEL_ERR_UNSUPPORTED_ALG: another algorithm. QEL_ERR_KEY_TYPE: a key that is not RSA.
 * QEL_ERR_BAD_KEY: a key that cannot be read. QEL_ERR_BUFFER_SIZE. QEL_ERR_SIGN: a modulus too
 * short for the DigestInfo, or the token failed. QEL_ERR_SERV_CONNECT: no key server.
 * QEL_ERR_SERV_SIGN: it refused; its signature is longer than the caller's buffer:
 * QEL_ERR_BAD_PARAM. QEL_ERR_ASN1_ENCODE, QEL_ERR_GENERAL, QEL_ERR_NO_MEMORY; what
 * qel_digest returns.
 */
QelStatus qel_sign(QelContext *context, const uint8_t *data, uint32_t length, uint32_t mode,
                   const QelAlgId *key_algorithm, const uint8_t *key_bytes, uint32_t key_length,
                   const QelAlgId *signature_algorithm, uint8_t **signature,
                   uint32_t *signature_length);

/*
 * qel_verify checks a signature over data. Every argument but data is given in every call, updates
 * included.
 *   key_algorithm        rsaEncryption; key_parameters: its parameters as encoded; key_bits: the
 *                        public key as it stands in a SubjectPublicKeyInfo (X.509).
 *   signature_algorithm  md2WithRSAEncryption or md5WithRSAEncryption; after the first update its
 *                        kind is checked and no more.
 *   signature_length     bytes, as many as the modulus has.
 * A signature is good when its block holds a DigestInfo with this digest, whatever algorithm that
 * names, or begins with the bare digest.
 * QEL_ERR_VERIFY: the signature is not good, or the token failed. QEL_ERR_BAD_PARAM: also an
 * algorithm that is no signature algorithm. QEL_ERR_UNSUPPORTED_ALG: one that is not offered.
 * QEL_ERR_KEY_TYPE: a key that is not RSA. QEL_ERR_BAD_KEY: a key that cannot be read.
 * QEL_ERR_GENERAL; what qel_digest returns.
 */
QelStatus qel_verify(QelContext *context, const uint8_t *data, uint32_t length, uint32_t mode,
                     const QelOid *key_algorithm, const QelOctetString *key_parameters,
                     const QelBitString *key_bits, const QelAlgId *signature_algorithm,
                     const uint8_t *signature, uint32_t signature_length);

/*
 * qel_verify_cert checks one certificate with its issuer's public key: the signature, and whether
 * the present lies within the validity.
 * QEL_ERR_KEY_EXPIRED: the signature is good, but the validity does not cover the present.
 * QEL_ERR_CRITICAL_EXT: a version 3 certificate with any critical extension, as none is understood.
 * QEL_ERR_ASN1_ENCODE: a record that is incomplete. QEL_ERR_GENERAL: the clock cannot be read; what
 * qel_verify returns.
 */
QelStatus qel_verify_cert(QelContext *context, const QelCert *certificate,
                          const QelKeyInfo *issuer_key);

/*
 * qel_verify_keypkg_return_digest checks the signature of a key package with the public key, and
 * hands back the encoded DigestInfo (PKCS#1) of its signed part, always in a new buffer.
 * What __qel_verify_keypkg and qel_digest return.
 */
QelStatus qel_verify_keypkg_return_digest(QelContext *context, const QelKeyPkg *key_package,
                                          const QelKeyInfo *public_key, uint8_t **digest_info,
                                          uint32_t *digest_info_length);

/* ---- Certificate chains --------------------------------------------------------------------------- */

/*
 * A chain is an array of certificates, each but the last issued by the one behind it. It is good when
 * it ends at a trusted key: one whose owner and public key are a certificate's subject and public key
 * (QelTrustedKeys, see __qel_add_trusted_key).
 *
 * QEL_ERR_KEY_EXPIRED is a qualified success: all signatures are good and a trusted key was found, but
 * the validity of some certificate does not cover the present. QEL_ERR_TKEY_EXPIRED stands for any
 * failure when the key of some certificate on the way is a trusted one that has expired.
 */

/*
 * qel_verify_cert_chain verifies a chain that the caller has: each certificate with the key of the one
 * behind it, up to the first of these that is trusted, behind which nothing is looked at. A chain of
 * one is good when that certificate is trusted itself; its signature is not verified.
 *   chain                count certificates, 1 or more; the first is the one in question.
 *   trusted_keys         at least one.
 *   expired_certificate  null, or receives a copy of the first certificate that is not current, if
 *                        the status is QEL_ERR_KEY_EXPIRED; the caller frees it (qel_free_cert).
 * QEL_ERR_KEY_EXPIRED, QEL_ERR_TKEY_EXPIRED. QEL_ERR_ISSUER_NOT_TRUSTED: no certificate is trusted, or
 * there are but names that cannot be compared. What qel_verify_cert returns, and for a chain of one
 * __qel_is_trusted_key. QEL_ERR_NO_MEMORY.
 */
QelStatus qel_verify_cert_chain(QelContext *context, const QelCert *chain, int count,
                                const QelTrustedKeys *trusted_keys, QelCert **expired_certificate);

/*
 * qel_verify_cert_est_chain searches the naming service for a chain above a certificate. It takes the
 * certificates of the issuer's name (qel_get_cert) in the order in which they come, verifies the
 * certificate with the key of each, ends at one that is trusted, and otherwise goes on from it in the
 * same way before it takes the next. One whose key does not verify the certificate ends the whole
 * search. A self-signed certificate must verify with its own key and be trusted.
 *
 * The search goes on from a certificate only once, so that certificates that certify one another in
 * circles end it, and asks for no more issuers when it has got 10000. The length of a chain has no
 * other limit.
 *
 *   trusted_keys         at least one.
 *   allowed_names        null, or the printable names (see qel_str2dn; a null or empty string ends
 *                        them) of those at whom the chain may end. Others are not looked up among the
 *                        trusted keys, but lead on to their issuers.
 *   reserved             has no meaning.
 *   expired_certificate  as above; the first of the chain.
 *   chain, chain_count   a new array: the certificate and those that lead from it to the trusted key,
 *                        without the certificate of that key itself, but with a self-signed
 *                        certificate from which the search went on. There also with
 *                        QEL_ERR_KEY_EXPIRED. The caller frees it (qel_free_cert_list).
 * QEL_ERR_KEY_EXPIRED, QEL_ERR_TKEY_EXPIRED. QEL_ERR_NO_CHAIN: nothing but circles, a
 * self-signed certificate whose name is not allowed, or 10,000 issuers without an end.
 * QEL_ERR_UNKNOWN_USER, QEL_ERR_NO_CERT: nobody in the naming service has an issuer's name, or who has
 * it has no certificate. QEL_ERR_ISSUER_NOT_TRUSTED: a self-signed certificate that is not trusted.
 * QEL_ERR_BAD_PARAM: also allowed_names without a name.
 * What qel_verify_cert, qel_get_cert, __qel_find_dn_in_list and __qel_cmp_dn return: the failure that
 * ended the search, or the one that was met last. QEL_ERR_NO_MEMORY.
 */
QelStatus qel_verify_cert_est_chain(QelContext *context, const QelCert *certificate,
                                    const QelTrustedKeys *trusted_keys,
                                    const char *const *allowed_names, int reserved,
                                    QelCert **expired_certificate, QelCert **chain,
                                    int *chain_count);

/* ---- Certificates and key packages in their repositories ------------------------------------------ */

/*
 * Each is an operation of store.h on one repository, with that operation's statuses.
 *
 *   function        repository                                  see
 *   qel_get_keypkg  the key server                              __qel_get_keypkg
 *   qel_set_keypkg  the naming service, with the key server     __qel_set_keypkg
 *                   kept in step
 *   qel_get_cert    the naming service                          __qel_get_cert
 *   qel_set_cert    the naming service                          __qel_set_cert
 */

/*
 * qel_get_keypkg gives the caller's registered key package with the context's identifier.
 *   name         not looked at.
 *   package_out  a new record; the caller frees it (qel_free_keypkg).
 * QEL_ERR_NO_KEYPKG: there is none. QEL_ERR_NOT_LOGGED_IN. QEL_ERR_SERV_CONNECT. QEL_ERR_GENERAL.
 */
QelStatus qel_get_keypkg(QelContext *context, const char *name, QelKeyPkg **package_out);

/*
 * qel_set_keypkg stores a key package.
 *   name  the entry; null: that of the caller's login name.
 */
QelStatus qel_set_keypkg(QelContext *context, const char *name, const QelKeyPkg *package);

/*
 * qel_get_cert gives all certificates of a subject.
 *   subject           a printable name, see qel_str2dn.
 *   certificates_out  a new array of *count_out records; the caller frees it (qel_free_cert_list).
 */
QelStatus qel_get_cert(QelContext *context, const char *subject, QelCert **certificates_out,
                       int *count_out);

/*
 * qel_set_cert adds a certificate to an entry.
 *   name  the entry; null: that of the caller's login name.
 */
QelStatus qel_set_cert(QelContext *context, const char *name, const QelCert *certificate);

/*
 * qel_get_cert_chain collects the issuers of a certificate from the naming service, each verified with
 * the key of the next, up to a self-signed one, or to a certificate with a name that is trusted. That
 * its keys are trusted is not looked at. Of several certificates of an issuer the first that leads to
 * an end is taken.
 *   trusted_names  printable names, ended by null; null: every name is trusted.
 *   flag           not used.
 *   chain_out      a new array of *count_out records that begins with a copy of the certificate; the
 *                  caller frees it (qel_free_cert_list).
 * QEL_ERR_VERIFY: a signature is not good, or a self-signed certificate's name is not trusted.
 * QEL_ERR_KEY_EXPIRED: a validity does not cover the present. QEL_ERR_NO_CHAIN: issuers in a circle, a
 * chain of more than 1000, or more than 10000 issuers to choose from. What qel_verify_cert,
 * qel_get_cert and __qel_find_dn_in_list return; of several failures the last.
 */
QelStatus qel_get_cert_chain(QelContext *context, const QelCert *certificate,
                             const char *const *trusted_names, int flag, QelCert **chain_out,
                             int *count_out);

/* ---- Encryption ---------------------------------------------------------------------------------- */

/*
 * DES (FIPS 46-3) and RC2 (RFC 2268) in CBC mode with the padding of PKCS#5, and RC4. A text grows
 * by 1 to 8 bytes where it is padded; with RC4 it keeps its length.
 *
 *   algorithm  parameters of its identifier                             key, bytes
 *   DES-CBC    OCTET STRING, the initialisation vector of 8 bytes       8
 *   RC2-CBC    RC2-CBCParameter: the vector alone, which means 32       1 to 5
 *              effective bits, or a version for up to 40 and the vector
 *   RC4        not looked at                                            1 to 5
 *
 * Data come in one call, or in several by the modes and the rules of digests, with which encryption
 * and decryption share the context: one operation is under way at a time, and a call for another
 * kind fails. What the calls give makes up the text, one behind the other; an update may give fewer
 * bytes than it takes, or none.
 *
 * The export policy stands before both. It refuses
 *  - with QEL_ERR_DOUBLE_ENCRYPT, data of more than 64 bytes whose first 64 are those of the last
 *    output of more than 64 bytes that either made, in any context of the process. They are kept
 *    masked. To compare them the mask is taken off, and it stays off until the next long output or
 *    the next comparison, which puts it on: so of the calls with long data that follow such an
 *    output, whether they succeed or not, the first, the third and so on are held against it;
 *  - with QEL_ERR_EXPORT, in the first call of an operation: triple DES as algorithm, a key for
 *    RC2-CBC or RC4 of more than 5 bytes, and a key for DES-CBC with a byte above 0x0F at position
 *    1, 3, 5 or 7, counted from 0.
 * A refused call does not reach an operation under way, which goes on.
 */

/*
 * qel_encrypt encrypts, qel_decrypt decrypts.
 *   data           null and 0 only in the final call of several.
 *   mode           QEL_MODE_UPDATE or QEL_MODE_FINAL.
 *   key_algorithm  the same as algorithm; its parameters are not looked at. The algorithms and the
 *                  key are needed, and looked at, in the first call only.
 *   output         output bytes of this call; may be data itself. *output_length must be 0 if
 *                  *output is null, and only then. A caller's buffer has room for the data in a
 *                  single call, and for 8 bytes of padding in an encryption with a block cipher; in
 *                  a call of several for 24 bytes more than the data, or without data for 8. A
 *                  decryption that fails may have written anything there.
 * QEL_ERR_DOUBLE_ENCRYPT. QEL_ERR_EXPORT: also parameters of RC2 for more than 40 effective bits.
 * QEL_ERR_BAD_PARAM: also a key for another algorithm, a key or a vector of a wrong length, missing
 * parameters. QEL_ERR_UNSUPPORTED_ALG: another algorithm. QEL_ERR_ASN1_DECODE: parameters that
 * cannot be read. QEL_ERR_BUFFER_SIZE. QEL_ERR_ENCRYPT: the token failed, or another operation is
 * under way. QEL_ERR_DECRYPT: likewise, or the text does not end as a padded one: a wrong key, or
 * data that were altered or cut. QEL_ERR_BAD_KEY, QEL_ERR_GENERAL, QEL_ERR_ASN1_ENCODE,
 * QEL_ERR_NO_MEMORY: no memory.
 */
QelStatus qel_encrypt(QelContext *context, const uint8_t *data, uint32_t length, uint32_t mode,
                      const QelAlgId *key_algorithm, const uint8_t *key, uint32_t key_length,
                      const QelAlgId *algorithm, uint8_t **output, uint32_t *output_length);
QelStatus qel_decrypt(QelContext *context, const uint8_t *data, uint32_t length, uint32_t mode,
                      const QelAlgId *key_algorithm, const uint8_t *key, uint32_t key_length,
                      const QelAlgId *algorithm, uint8_t **output, uint32_t *output_length);

/* ---- Key wrapping -------------------------------------------------------------------------------- */

/*
 * A symmetric key travels as a PKCS#1 v1.5 block (type 2) under its recipient's RSA public key, as
 * long as the modulus. It is wrapped by vfeqjfkkj (qelp.h).
 */

/* qel_wrap_key wraps nothing: QEL_ERR_EXPORT, whatever the arguments. No argument is looked at. */
QelStatus qel_wrap_key(QelContext *context, const uint8_t *key, uint32_t key_length,
                       const QelAlgId *key_algorithm, const QelBitString *public_key_bits,
                       const QelOctetString *public_key_parameters,
                       const QelAlgId *public_key_algorithm, uint8_t **wrapped,
                       uint32_t *wrapped_length);

/*
 * qel_unwrap_key recovers a wrapped key: with the given private key, or where there is none (null,
 * null, 0) through the key server with the key of the user who is logged in.
 *   wrapped                as many bytes as the modulus has.
 *   private_key_algorithm  rsaEncryption; private_key and private_key_length: the private key as it
 *                          stands in a PrivateKeyInfo (PKCS#8).
 *   wrapping_algorithm     rsaEncryption.
 *   key                    output bytes: room for as many as the modulus has is asked for, though the
 *                          key is shorter by 11 or more; zeros may fill the rest, and all of the
 *                          caller's buffer after a failure. Zero a new buffer before free(). Through
 *                          the key server there must be room for the key alone, else
 *                          QEL_ERR_BAD_PARAM.
 * QEL_ERR_UNWRAP: the block does not open. This is one status and takes one time, whatever is wrong
 * inside; show it to no one who may send blocks. QEL_ERR_BAD_PARAM: also a block of another length.
 * QEL_ERR_EXPORT: a modulus above 512 bytes. QEL_ERR_BAD_KEY: a key that cannot be read.
 * QEL_ERR_KEY_TYPE: a key that is not RSA. QEL_ERR_UNSUPPORTED_ALG: another wrapping algorithm.
 * QEL_ERR_BUFFER_SIZE. QEL_ERR_SERV_CONNECT: no key server. QEL_ERR_SERV_DECRYPT: it refused.
 * QEL_ERR_GENERAL, QEL_ERR_NO_MEMORY.
 */
QelStatus qel_unwrap_key(QelContext *context, const uint8_t *wrapped, uint32_t wrapped_length,
                         const QelAlgId *private_key_algorithm, const uint8_t *private_key,
                         uint32_t private_key_length, const QelAlgId *wrapping_algorithm,
                         uint8_t **key, uint32_t *key_length);

/* ---- Random bytes and keys ----------------------------------------------------------------------- */

/*
 * Everything below comes from /dev/random. Generated keys are always new buffers, whatever the
 * pointers held before; the caller zeroes and frees them. Functions can fail with QEL_ERR_RANDOM
 * (the device cannot be read; of a key pair that is QEL_ERR_KEYGEN), QEL_ERR_GENERAL (no token
 * session) and QEL_ERR_NO_MEMORY.
 */

/*
 * qel_random gives random bytes.
 *   count   1 to 65535.
 *   buffer  *buffer has room for count bytes; or it is null, and becomes a new buffer of count bytes
 *           that the caller frees. After a failure the caller's bytes may be overwritten.
 */
QelStatus qel_random(uint16_t count, uint8_t **buffer);

/*
 * Symmetric keys, with the parameters of the algorithm identifier that they are used with, in their
 * encoding; the caller frees those with __qel_free_ostr, or value and record with free().
 *
 *   qel_gen_des_key   8 bytes. The second, fourth, sixth and eighth have their upper four bits clear,
 *                     as export asks for; none of the 16 weak and semi-weak keys (FIPS 74). There is
 *                     no parity. Parameters of DES-CBC: OCTET STRING, a random IV of 8 bytes.
 *   qel_gen_rc2_key   key_length bytes. Parameters of RC2-CBC (RFC 2268): effective_bits, a random
 *                     IV. QEL_ERR_EXPORT: effective_bits above 40.
 *   qel_gen_rc4_key   key_length bytes; there are no parameters.
 *   qel_gen_des3_key  nothing: QEL_ERR_EXPORT, always.
 *
 * Lengths and bits of 0 are QEL_ERR_BAD_PARAM. qel_encrypt takes RC2 and RC4 keys of up to 5 bytes,
 * but longer ones are made. The encoding of parameters: QEL_ERR_ASN1_ENCODE, and for RC2
 * QEL_ERR_ASN1_DECODE.
 */
QelStatus qel_gen_des_key(QelContext *context, uint8_t **key, QelOctetString **parameters);
QelStatus qel_gen_des3_key(QelContext *context, uint8_t **key, QelOctetString **parameters);
QelStatus qel_gen_rc2_key(QelContext *context, uint32_t key_length, uint32_t effective_bits,
                          uint8_t **key, QelOctetString **parameters);
QelStatus qel_gen_rc4_key(QelContext *context, uint32_t key_length, uint8_t **key);

/* What an RSA key pair is to be. */
typedef struct QelRsaKeypairParams {
    uint32_t modulusBits;          /* 256 to 512 */
    QelOctetString publicExponent; /* unsigned, big-endian; odd, above 1, of fewer bits than it */
} QelRsaKeypairParams;

/*
 * qel_gen_rsa_keypair makes an RSA key pair (PKCS#1), turning a spinner on standard error when it
 * takes more than a second.
 *   public_key   the bits that a SubjectPublicKeyInfo (X.509) holds, which are an RSAPublicKey;
 *                *public_key_bits counts bits, eight for each byte.
 *   private_key  the octets that a PrivateKeyInfo (PKCS#8) holds, which are an RSAPrivateKey;
 *                *private_key_length counts bytes.
 * QEL_ERR_EXPORT: more than 512 bits. QEL_ERR_KEYGEN: a size or exponent that makes no key, or the
 * token failed, for lack of random bytes or memory. QEL_ERR_BAD_KEY: the new key cannot be read.
 */
QelStatus qel_gen_rsa_keypair(QelContext *context, const QelRsaKeypairParams *parameters,
                              uint8_t **public_key, uint32_t *public_key_bits,
                              uint8_t **private_key, uint32_t *private_key_length);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
