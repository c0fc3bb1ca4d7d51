#include "credential.h"

#include "der.h"
#include "status.h"
#include "text.h"
#include "texts.h"

#include <algorithm>
#include <iterator>

namespace tool {
namespace {

constexpr Algorithm algorithms[] = {
    {"md2",
     &QEL_MD2_AID,
     &QEL_MD2WithRSAEncryption_AID,
     "md2WithRSAEncryption",
     {0x83, 0x50, 0xe5, 0xa3, 0xe2, 0x4c, 0x15, 0x3d, 0xf2, 0x27, 0x5c, 0x9f, 0x80, 0x69, 0x27,
      0x73}},
    {"md5",
     &QEL_MD5_AID,
     &QEL_MD5WithRSAEncryption_AID,
     "md5WithRSAEncryption",
     {0xd4, 0x1d, 0x8c, 0xd9, 0x8f, 0x00, 0xb2, 0x04, 0xe9, 0x80, 0x09, 0x98, 0xec, 0xf8, 0x42,
      0x7e}},
};

bool contains(const std::string &text, const char *part) {
    return text.find(part) != text.npos;
}

bool certificate_label(const std::string &label) {
    return contains(label, "CERTIFICATE") && !contains(label, "REQUEST") &&
           !contains(label, "PAIR");
}

// "it holds CERTIFICATE, RSA PRIVATE KEY"
std::string labels_of(const Input &input) {
    std::string labels;
    for (const Item &item : input.items)
        labels += (labels.empty() ? "" : ", ") + escaped(item.label);
    return labels.empty() ? "" : text_of(Text::holds, {labels});
}

template <class T>
Decoded<T> decode_item(QelContext *context, const Item &item, int pdu, QelStatus *status) {
    *status = QEL_ERR_ASN1_DECODE;
    if (!item.problem.empty())
        return {nullptr, ReleasePdu{context, pdu}};
    return decode<T>(context, item.bytes, pdu, status);
}

bool decodes(QelContext *context, const Item &item, int pdu) {
    QelStatus status;
    return decode_item<void>(context, item, pdu, &status) != nullptr;
}

// Whether the validity of a certificate holds a GeneralizedTime, which dates from 2050 on take and
// X.509 of the library's time does not have.
bool has_generalized_time(std::span<const uint8_t> bytes) {
    Element certificate, info, part, time;
    if (!take_element(bytes, certificate) || !take_element(certificate.contents, info))
        return false;
    // The version, which may be left out, serial number, algorithm and issuer; then the validity.
    const unsigned before = !info.contents.empty() && info.contents[0] == 0xa0 ? 4 : 3;
    for (unsigned i = 0; i <= before; ++i)
        if (!take_element(info.contents, part))
            return false;
    while (take_element(part.contents, time))
        if (time.tag == 0x18)
            return true;
    return false;
}

// What can be seen of bytes that did not decode, or empty.
std::string decoding_hint(std::span<const uint8_t> bytes) {
    Header header;
    if (!read_header(bytes, header) || header.tag != 0x30 || header.indefinite)
        return "";
    const std::size_t there = bytes.size() - header.size;
    if (header.length > there)
        return text_of(Text::is_cut, {std::to_string(header.length - there)});
    if (header.length < there)
        return text_of(Text::more_follows, {std::to_string(there - header.length)});
    return has_generalized_time(bytes) ? text_of(Text::generalized_time) : "";
}

// An RSAPublicKey (PKCS#1) is two integers; a SubjectPublicKeyInfo is put around it.
Bytes in_key_info(std::span<const uint8_t> key) {
    constexpr uint8_t rsa_encryption[] = {0x30, 0x0d, 0x06, 0x09, 0x2a, 0x86, 0x48, 0x86,
                                          0xf7, 0x0d, 0x01, 0x01, 0x01, 0x05, 0x00};
    std::span<const uint8_t> rest = key;
    Element sequence, modulus, exponent;
    if (!take_element(rest, sequence) || !rest.empty() || sequence.tag != 0x30 ||
        !take_element(sequence.contents, modulus) || modulus.tag != 0x02 ||
        !take_element(sequence.contents, exponent) || exponent.tag != 0x02 ||
        !sequence.contents.empty())
        return {};
    Bytes bits = {0}, contents(std::begin(rsa_encryption), std::end(rsa_encryption)), info;
    bits.insert(bits.end(), key.begin(), key.end());
    append_element(contents, 0x03, bits);
    append_element(info, 0x30, contents);
    return info;
}

// Why no public key was found, where the reason can be told.
std::string what_it_is_instead(QelContext *context, const Input &input) {
    for (const Item &item : input.items) {
        if (decodes(context, item, QEL_PDU_Certificate))
            return text_of(Text::give_as_certificate);
        if (decodes(context, item, QEL_PDU_SubjectPublicKeyInfo))
            return text_of(Text::give_as_key);
        if (decodes(context, item, QEL_PDU_PrivateKeyInfo) || contains(item.label, "PRIVATE KEY"))
            return text_of(Text::public_key_needed);
    }
    return input.armoured ? labels_of(input) : "";
}

} // namespace

Context::Context() {
    const QelStatus status = __qel_init(&context_, nullptr, nullptr);
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_set_up_library));
}

Context::Context(const std::string &key_id) {
    const QelStatus status = __qel_init(&context_, key_id.c_str(), nullptr);
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_set_up_library));
}

Context::Context(const std::string &key_id, const std::string &host) {
    const QelStatus status = qel_init(&context_, key_id.c_str(), host.c_str());
    if (status == QEL_ERR_GENERAL)
        throw library_failure(QEL_ERR_SERV_CONNECT, text_of(Text::cannot_reach_server));
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_set_up_library));
}

const Algorithm &algorithm_named(const std::string &name) {
    return algorithms[name == "md2" ? 0 : 1];
}

Bytes encode(QelContext *context, const void *value, int pdu, const std::string &what) {
    uint8_t *buffer = nullptr;
    uint32_t length = 0;
    const QelStatus status = __qel_asn1_encode(context, value, pdu, &buffer, &length);
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_encode, {what}));
    const Bytes bytes(buffer, buffer + length);
    explicit_bzero(buffer, length);
    std::free(buffer);
    return bytes;
}

std::string encoding_note(QelContext *context, const void *record, int pdu, const Bytes &bytes,
                          const std::string &what) {
    try {
        if (encode(context, record, pdu, what) == bytes)
            return "";
        return text_of(Text::not_the_encoding, {what});
    } catch (const Failure &failure) {
        return text_of(Text::cannot_encode_again, {what, failure.why});
    }
}

std::string library_text(const std::string &what, const std::function<QelStatus(FILE *)> &print) {
    char *text = nullptr;
    std::size_t size = 0;
    FILE *stream = open_memstream(&text, &size);
    if (stream == nullptr)
        throw std::bad_alloc();
    const QelStatus status = print(stream);
    const int closed = std::fclose(stream);
    const std::unique_ptr<char, FreeBlock> owner(text);
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_print, {what}));
    if (closed != 0)
        throw std::bad_alloc();
    return {text, size};
}

Name read_name(QelContext *context, const std::string &text, const std::string &what) {
    QelName *name = nullptr;
    const QelStatus status = qel_str2dn(context, text.c_str(), &name);
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_read_named, {what, in_quotes(text)}));
    return Name(name);
}

std::string unsupported_signature(const QelAlgId *algorithm) {
    for (const QelOid *known : {QEL_MD2WithRSAEncryption_OID, QEL_MD5WithRSAEncryption_OID}) {
        int difference = 1;
        __qel_cmp_oid(algorithm->algorithm, known, &difference);
        if (difference == 0)
            return "";
    }
    return text_of(Text::algorithm_unsupported, {algorithm_text(algorithm)});
}

Failure bad_item(const Input &input, const Item &item, const std::string &what, QelStatus status) {
    const std::string name = text_of(Text::cannot_read_from, {what, input.name_of(item)});
    if (!item.problem.empty())
        return {Exit::input, name, item.problem, text_of(Text::get_text_again)};
    Failure failure = library_failure(status, name);
    if (status == QEL_ERR_ASN1_DECODE)
        failure.why += decoding_hint(item.bytes);
    return failure;
}

std::vector<Certificate> read_certificates(QelContext *context, const std::string &path,
                                           std::vector<Failure> *unreadable) {
    return certificates_of(context, read_input(path), unreadable);
}

std::vector<Certificate> certificates_of(QelContext *context, const Input &input,
                                         std::vector<Failure> *unreadable) {
    std::vector<Certificate> certificates;
    std::vector<Failure> failures;
    for (const Item &item : input.items) {
        QelStatus status;
        auto record = decode_item<QelCert>(context, item, QEL_PDU_Certificate, &status);
        if (record)
            certificates.push_back({input.name_of(item), std::move(record), item.bytes});
        else if (!input.armoured || certificate_label(item.label))
            failures.push_back(bad_item(input, item, text_of(Text::a_certificate), status));
    }
    if (!failures.empty() && (unreadable == nullptr || certificates.empty()))
        throw failures.front();
    if (unreadable != nullptr)
        *unreadable = std::move(failures);
    if (certificates.empty())
        throw Failure{
            Exit::input,
            text_of(Text::cannot_find_in, {text_of(Text::a_certificate), display_name(input.path)}),
            labels_of(input), text_of(Text::give_certificate)};
    return certificates;
}

namespace {

bool take_public_key(QelContext *context, const Item &item, KeySource source, PublicKey &key,
                     QelStatus *status) {
    if (source != KeySource::key) {
        auto record = decode_item<QelCert>(context, item, QEL_PDU_Certificate, status);
        if (record) {
            key.certificate = {key.where, std::move(record), item.bytes};
            return true;
        }
    }
    if (source == KeySource::certificate)
        return false;
    key.info = decode_item<QelKeyInfo>(context, item, QEL_PDU_SubjectPublicKeyInfo, status);
    if (!key.info && item.problem.empty())
        key.info =
            decode<QelKeyInfo>(context, in_key_info(item.bytes), QEL_PDU_SubjectPublicKeyInfo);
    return key.info != nullptr;
}

} // namespace

std::vector<PublicKey> public_keys_of(QelContext *context, const Input &input, KeySource source) {
    QelStatus status = QEL_ERR_ASN1_DECODE;
    std::vector<PublicKey> keys;
    for (const Item &item : input.items) {
        PublicKey key;
        key.where = input.name_of(item);
        if (take_public_key(context, item, source, key, &status))
            keys.push_back(std::move(key));
    }
    if (!keys.empty())
        return keys;
    const std::string wanted =
        text_of(source == KeySource::certificate ? Text::a_certificate : Text::a_public_key);
    const std::string instead = what_it_is_instead(context, input);
    if (instead.empty())
        throw bad_item(input, input.items.front(), wanted, status);
    throw Failure{Exit::input, text_of(Text::cannot_find_in, {wanted, display_name(input.path)}),
                  instead, text_of(Text::give_public_key)};
}

std::vector<PublicKey> read_public_keys(QelContext *context, const std::string &path,
                                        KeySource source) {
    return public_keys_of(context, read_input(path), source);
}

PublicKey read_public_key(QelContext *context, const std::string &path, KeySource source) {
    return std::move(read_public_keys(context, path, source).front());
}

RsaKey as_rsa_key(const QelKeyInfo *key) {
    static uint8_t null_parameters[] = {0x05, 0x00};
    RsaKey rsa = {key->algorithm->algorithm, {2, null_parameters}, &key->pubKey, ""};
    int annex = 1, encryption = 1;
    __qel_cmp_oid(key->algorithm->algorithm, QEL_RSA_OID, &annex);
    __qel_cmp_oid(key->algorithm->algorithm, QEL_RSA_ENCR_OID, &encryption);
    const QelOctetString *parameters = key->algorithm->parameters;
    if (annex == 0) {
        rsa.algorithm = QEL_RSA_ENCR_OID;
        rsa.note = text_of(Text::old_identifier);
    } else if (encryption == 0 && parameters == nullptr) {
        rsa.note = text_of(Text::lacks_null_parameters);
    } else if (parameters != nullptr) {
        rsa.parameters = *parameters;
    }
    return rsa;
}

QelStatus signature_status(QelContext *context, const QelCert &cert, const RsaKey &key) {
    const Bytes info =
        encode(context, &cert, QEL_PDU_CertificateInfo, text_of(Text::certificates_content));
    return qel_verify(context, info.data(), static_cast<uint32_t>(info.size()), QEL_MODE_FINAL,
                      key.algorithm, &key.parameters, key.bits, cert.algorithm, cert.sigBits.value,
                      cert.sigBits.length / 8);
}

// ---- Private keys ------------------------------------------------------------------------------

namespace {

// A bare RSAPrivateKey (PKCS#1) begins with its version and the modulus; in PKCS#8 an
// AlgorithmIdentifier follows the version, and an RSAPublicKey has no version.
bool is_rsa_private_key(std::span<const uint8_t> bytes) {
    Element sequence, version, next;
    return take_element(bytes, sequence) && bytes.empty() && sequence.tag == 0x30 &&
           take_element(sequence.contents, version) && version.tag == 0x02 &&
           version.contents.size() == 1 && take_element(sequence.contents, next) &&
           next.tag == 0x02;
}

Failure encrypted_key(const std::string &where, const std::string &how) {
    return {Exit::input, text_of(Text::cannot_use_private_key, {where}),
            text_of(Text::key_is_encrypted, {how}), text_of(Text::decrypt_key)};
}

bool take_private_key(QelContext *context, const Input &input, const Item &item, PrivateKey &key) {
    QelStatus status;
    key.record = decode_item<QelPrivateKeyInfo>(context, item, QEL_PDU_PrivateKeyInfo, &status);
    if (key.record) {
        QelOctetString &octets = key.record->privateKey;
        if (octets.length == 0)
            throw Failure{Exit::input, text_of(Text::cannot_use_private_key, {input.name_of(item)}),
                          text_of(Text::holds_no_key), text_of(Text::get_key_again)};
        key.octets.assign(octets.value, octets.value + octets.length);
        explicit_bzero(octets.value, octets.length);
        key.algorithm = key.record->privateKeyAlgorithm;
        return true;
    }
    if (item.encrypted)
        throw encrypted_key(input.name_of(item), text_of(Text::header_says_so));
    if (item.problem.empty() && is_rsa_private_key(item.bytes)) {
        key.octets = item.bytes;
        key.algorithm = QEL_RSA_ENCR_AID;
        return true;
    }
    const auto encrypted = decode_item<QelEncryptedPrivateKeyInfo>(
        context, item, QEL_PDU_EncryptedPrivateKeyInfo, &status);
    if (encrypted && encrypted->encryptionAlgorithm != nullptr)
        throw encrypted_key(input.name_of(item), algorithm_text(encrypted->encryptionAlgorithm));
    return false;
}

} // namespace

PrivateKey read_private_key(QelContext *context, const Input &input) {
    PrivateKey key;
    for (const Item &item : input.items) {
        if (!take_private_key(context, input, item, key))
            continue;
        warn_if_open_to_others(input.path);
        return key;
    }
    const Item &first = input.items.front();
    if (input.armoured && first.problem.empty())
        throw Failure{
            Exit::input,
            text_of(Text::cannot_find_in, {text_of(Text::a_private_key), display_name(input.path)}),
            labels_of(input), text_of(Text::give_private_key)};
    throw bad_item(input, first, text_of(Text::a_private_key), QEL_ERR_ASN1_DECODE);
}

Bytes public_part(std::span<const uint8_t> private_key) {
    Element sequence, version, number;
    Bytes numbers, key;
    if (!take_element(private_key, sequence) || !take_element(sequence.contents, version))
        return {};
    for (int i = 0; i < 2; ++i) {
        if (!take_element(sequence.contents, number) || number.tag != 0x02)
            return {};
        append_element(numbers, number.tag, number.contents);
    }
    append_element(key, 0x30, numbers);
    return key;
}

Decoded<QelKeyInfo> public_key_of(QelContext *context, const PrivateKey &key) {
    int difference = 1;
    __qel_cmp_oid(key.algorithm->algorithm, QEL_RSA_ENCR_OID, &difference);
    const Bytes info = difference == 0 ? in_key_info(public_part(key.octets)) : Bytes();
    return decode<QelKeyInfo>(context, info, QEL_PDU_SubjectPublicKeyInfo);
}

bool holds_private_key(QelContext *context, std::span<const uint8_t> bytes) {
    if (is_rsa_private_key(bytes))
        return true;
    if (const auto key = decode<QelPrivateKeyInfo>(context, bytes, QEL_PDU_PrivateKeyInfo)) {
        explicit_bzero(key->privateKey.value, key->privateKey.length);
        return true;
    }
    if (const auto held = decode<QelServKeyInfo>(context, bytes, QEL_PDU_QelServKeyInfo)) {
        explicit_bzero(held->privKey.value, held->privKey.length);
        return true;
    }
    if (decode<void>(context, bytes, QEL_PDU_KeyPkg) ||
        decode<void>(context, bytes, QEL_PDU_KeyPkgInfo))
        return true;
    // A DigestInfo has the same shape; the algorithm and the size tell them apart.
    constexpr uint32_t longest_digest = 64;
    const auto encrypted =
        decode<QelEncryptedPrivateKeyInfo>(context, bytes, QEL_PDU_EncryptedPrivateKeyInfo);
    if (!encrypted)
        return false;
    const QelOid *algorithm = encrypted->encryptionAlgorithm->algorithm;
    int difference = 1;
    __qel_cmp_oid(algorithm, QEL_PbeWithMD5AndDES3_CBC_OID, &difference);
    const std::string dots = oid_text(algorithm);
    return difference == 0 || encrypted->encryptedData.length > longest_digest ||
           dots.starts_with("1.2.840.113549.1.5.") ||  // PKCS#5
           dots.starts_with("1.2.840.113549.1.12.1."); // PKCS#12
}

bool is_secret(QelContext *context, const Item &item) {
    return item.encrypted || contains(item.label, "PRIVATE KEY") || item.label == "KEYPKG" ||
           holds_private_key(context, item.bytes);
}

std::string fingerprint(QelContext *context, std::span<const uint8_t> bytes,
                        const Algorithm &algorithm) {
    uint8_t *digest = nullptr;
    uint32_t length = 0;
    const QelStatus status = qel_digest(context, bytes.data(), static_cast<uint32_t>(bytes.size()),
                                        QEL_MODE_FINAL, *algorithm.digest, &digest, &length);
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_fingerprint));
    const LibraryBytes owner(digest);
    return hex({digest, length});
}

} // namespace tool
