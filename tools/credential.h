// credential.h: the library's records as the commands use them: decoding, keys, certificates, and
// names and times as people read them.
#ifndef TOOLS_CREDENTIAL_H
#define TOOLS_CREDENTIAL_H

#include "input.h"
#include "output.h"
#include "status.h"
#include "text.h"

#include <array>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <qel/qelp.h>

namespace tool {

// A library context of its own for each piece of work.
class Context {
public:
    // Without a key server.
    Context();
    // The same, for key packages of this identifier.
    explicit Context(const std::string &key_id);
    // Connected to the key server of this host, for the key of this identifier and host address.
    Context(const std::string &key_id, const std::string &host);
    ~Context() { qel_end(context_); }
    Context(const Context &) = delete;
    Context &operator=(const Context &) = delete;
    operator QelContext *() const { return context_; }

private:
    QelContext *context_ = nullptr;
};

// Digest and signature algorithm that "md2" or "md5" stands for.
struct Algorithm {
    const char *name;
    const QelAlgId *const *digest;
    const QelAlgId *const *signature;
    const char *signature_name;
    // The library digests no empty input; this is its digest (RFC 1319, RFC 1321: test suites).
    std::array<uint8_t, 16> digest_of_nothing;
};
const Algorithm &algorithm_named(const std::string &name);

// Bytes that the library allocated.
struct FreeBlock {
    void operator()(void *block) const { std::free(block); }
};
using LibraryBytes = std::unique_ptr<uint8_t, FreeBlock>;

// ---- Records -----------------------------------------------------------------------------------

struct ReleasePdu {
    QelContext *context = nullptr;
    int pdu = 0;
    void operator()(void *value) const { __qel_asn1_free(context, value, pdu); }
};
template <class T> using Decoded = std::unique_ptr<T, ReleasePdu>;

// The value, or null and the library's status.
template <class T>
Decoded<T> decode(QelContext *context, std::span<const uint8_t> bytes, int pdu,
                  QelStatus *status = nullptr) {
    void *value = nullptr;
    const QelStatus result =
        __qel_asn1_decode(context, bytes.data(), static_cast<uint32_t>(bytes.size()), pdu, &value);
    if (status != nullptr)
        *status = result;
    return {static_cast<T *>(result == QEL_OK ? value : nullptr), ReleasePdu{context, pdu}};
}

// The encoding of a record. Throws Failure naming what.
Bytes encode(QelContext *context, const void *value, int pdu, const std::string &what);

// Says where the library, which signs and verifies what it encodes, sees other bytes than were read,
// or empty. what is "the certificate".
std::string encoding_note(QelContext *context, const void *record, int pdu, const Bytes &bytes,
                          const std::string &what);

// What a function of the library prints to a stream. It is not safe to print: see printable_lines.
// Throws Failure, naming what, at another status than QEL_OK.
std::string library_text(const std::string &what, const std::function<QelStatus(FILE *)> &print);

// Why what ("a certificate") could not be had from an item that has a problem or gave status; for
// QEL_ERR_ASN1_DECODE also what can be seen of the bytes: that they are cut, that others follow.
Failure bad_item(const Input &input, const Item &item, const std::string &what, QelStatus status);

struct Certificate {
    std::string where; // file, and block where there are several; safe to print
    Decoded<QelCert> record;
    Bytes bytes; // as they were read, which need not be its DER encoding
};
// All certificates of a file, at least one. Blocks that hold something else are passed over. Throws
// Failure at a certificate that cannot be read; but where unreadable is given, the failure goes
// there as long as another certificate can be read.
std::vector<Certificate> read_certificates(QelContext *context, const std::string &path,
                                           std::vector<Failure> *unreadable = nullptr);
// The same of a file that was read.
std::vector<Certificate> certificates_of(QelContext *context, const Input &input,
                                         std::vector<Failure> *unreadable = nullptr);

// A public key, from a SubjectPublicKeyInfo, an RSAPublicKey (PKCS#1) or a certificate.
struct PublicKey {
    std::string where;
    Decoded<QelKeyInfo> info;
    Certificate certificate; // if the key came from one
    const QelKeyInfo *key() const {
        return certificate.record ? certificate.record->pubKeyInfo : info.get();
    }
};
enum class KeySource { key, certificate, either };
// All keys of a file that come from source, at least one, and the first of them.
std::vector<PublicKey> public_keys_of(QelContext *context, const Input &input, KeySource source);
std::vector<PublicKey> read_public_keys(QelContext *context, const std::string &path,
                                        KeySource source);
PublicKey read_public_key(QelContext *context, const std::string &path, KeySource source);

// The parts of an RSA key that qel_verify takes. A key under the identifier of X.509's annex
// (2.5.8.1.1), or without its NULL parameters, has the same bits: note says that it was taken so.
struct RsaKey {
    const QelOid *algorithm;
    QelOctetString parameters;
    const QelBitString *bits;
    std::string note; // or empty
};
RsaKey as_rsa_key(const QelKeyInfo *key);
// The library's verdict on the signature over a certificate, and on nothing else of it.
QelStatus signature_status(QelContext *context, const QelCert &cert, const RsaKey &key);

// A private key for qel_sign and the like; without octets none, which leaves it to the key server.
struct PrivateKey {
    Decoded<QelPrivateKeyInfo> record; // zeroed by whoever lets go of it
    Bytes octets;
    const QelAlgId *algorithm = nullptr;
    Decoded<QelKeyPkg> package; // which it came from, or null
    // As qel_sign and qel_unwrap_key take them: null for none.
    const uint8_t *data() const { return octets.empty() ? nullptr : octets.data(); }
    uint32_t size() const { return static_cast<uint32_t>(octets.size()); }
};
// Warns where the file is open to others.
PrivateKey read_private_key(QelContext *context, const Input &input);

// The RSAPublicKey of an RSAPrivateKey (PKCS#1), which begins with version, modulus and exponent;
// empty where there is none.
Bytes public_part(std::span<const uint8_t> private_key);

// The public key of a private one, or null where that is no RSA key.
Decoded<QelKeyInfo> public_key_of(QelContext *context, const PrivateKey &key);

// Whether bytes are a private key, in PKCS#8, encrypted or not, or PKCS#1, or a key package, or what
// a key server holds of one.
bool holds_private_key(QelContext *context, std::span<const uint8_t> bytes);
// The same of an item, whose label or header lines may say it of bytes that cannot be read.
bool is_secret(QelContext *context, const Item &item);

// ---- What people read --------------------------------------------------------------------------

std::string oid_text(const QelOid *oid);
// The name of an algorithm, attribute type or extension that is known, else null.
const char *oid_name(const QelOid *oid);
// "md5WithRSAEncryption", or dots where the name is not known.
std::string algorithm_text(const QelAlgId *algorithm);

// Why the library knows no such signatures, or empty if it does.
std::string unsupported_signature(const QelAlgId *algorithm);

struct FreeName {
    void operator()(QelName *name) const { qel_free_dn(&name); }
};
using Name = std::unique_ptr<QelName, FreeName>;
// A printable name. Throws Failure naming what ("the subject's name").
Name read_name(QelContext *context, const std::string &text, const std::string &what);

// One attribute of a name.
struct NameValue {
    std::string type;        // dotted
    std::string keyword;     // as in printable names, or the dotted type
    std::string string_type; // "PrintableString"; "BER" for a value that is no character string
    std::string text;        // UTF-8; hexadecimal digits after "#" where it cannot be read
    bool readable = false;
};
std::vector<std::vector<NameValue>> name_values(const QelName *name); // RDNs as they are encoded

// A name in the order of printable names, the last RDN first, in the letters of its owner; every
// attribute and string type is shown. Safe to print.
std::string name_text(const QelName *name, Charset charset = Charset::terminal);
// Every attribute under "rdns", and what the library's own printer says of the name.
Json name_json(QelContext *context, const QelName *name);
// The library's normalised form, safe to print, or why there is none.
std::string library_name(QelContext *context, const QelName *name);

// RFC 3339, in UTC, the offset of the encoded time applied. "not a time (...)" where the fields are
// out of range; offset says whether the library, which ignores offsets, sees another moment.
std::string time_text(const QelUTCTime *time, bool apply_offset = true);
bool has_offset(const QelValidity *validity);

// "valid", "expired", "not yet valid" or "unknown", by the library's own test.
std::string validity_state(const QelValidity *validity);
// The same in the user's language.
std::string validity_words(const QelValidity *validity);

// Size of an RSA modulus in bits and the exponent, or zeroes where the bits are no RSA key.
struct RsaNumbers {
    unsigned bits = 0;
    std::string modulus, exponent; // hexadecimal
};
RsaNumbers rsa_numbers(const QelKeyInfo *key);

// "rsaEncryption, 512 bits, exponent 65537"
std::string key_text(const QelKeyInfo *key);
// The MD5 fingerprint of a SubjectPublicKeyInfo.
std::string key_fingerprint(QelContext *context, const QelKeyInfo *key);
Json key_json(QelContext *context, const QelKeyInfo *key);

// In decimal digits, as people know it, unless it is large.
std::string exponent_text(const RsaNumbers &rsa);
// exponent_text, or null where the key is no RSA key.
Json exponent_json(const QelKeyInfo *key);
// A warning where the public exponent of an RSA key is below 65537, else empty: under the smallest
// ones anybody can make a block that begins with a digest, which the library takes for a signature.
std::string small_exponent_note(const QelKeyInfo *key);

// MD2 or MD5 of bytes, in hexadecimal.
std::string fingerprint(QelContext *context, std::span<const uint8_t> bytes,
                        const Algorithm &algorithm);

} // namespace tool

#endif
