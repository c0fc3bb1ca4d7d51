// signed_data.cpp: messages of type signedData (PKCS#7) with one signer and the data inside.

#include "cert_array.h"
#include "chain.h"
#include "decoded.h"
#include "message_certs.h"
#include "signature.h"

#include <cstring>

#include <toolkit/traces.h>

namespace {

using qel::CertArray;
using qel::Decoded;
using qel::Owned;

constexpr int32_t signed_data_version = 1;
constexpr int32_t signer_info_version = 1;

// An ASN.1 environment of its own: flags and rules of the caller's context neither count nor change.
struct Encoder {
    QelContext context = {};

    Encoder() = default;
    Encoder(const Encoder &) = delete;
    Encoder &operator=(const Encoder &) = delete;
    ~Encoder() { __qel_end_asn1(&context); }
};

// Where the caller has no buffer, the length is a result only.
void clear_length(uint8_t *const *buffer, uint32_t *length) {
    if (buffer != nullptr && *buffer == nullptr && length != nullptr)
        *length = 0;
}

// Gives bytes to the caller, in its buffer if there is one.
QelStatus hand_over(Owned<uint8_t> bytes, uint32_t length, uint8_t **buffer,
                    uint32_t *buffer_length) {
    if (*buffer == nullptr) {
        *buffer = bytes.release();
    } else {
        if (*buffer_length < length)
            return QEL_ERR_BUFFER_SIZE;
        std::memcpy(*buffer, bytes.get(), length);
    }
    *buffer_length = length;
    return QEL_OK;
}

bool equal_oids(const QelOid *a, const QelOid *b) {
    int difference = 1;
    return __qel_cmp_oid(a, b, &difference) == QEL_OK && difference == 0;
}

Decoded<QelKeyPkg> owned(QelContext *context, QelKeyPkg *package) {
    return {package, {context, QEL_PDU_KeyPkg}};
}

// ---- Creation -----------------------------------------------------------------------------------

// Whose certificate it is, and the certificates that go with it.
struct Signer {
    CertArray found;
    const QelCert *certificate = nullptr; // the caller's, or one of those found
    CertArray chain;
};

// The first certificate of the user's name that has the public key of the user's key package.
QelStatus find_own_certificate(QelContext *context, Signer *signer) {
    QelKeyPkg *record = nullptr;
    QelStatus status = qel_get_keypkg(context, nullptr, &record);
    const Decoded<QelKeyPkg> package = owned(context, record);
    if (status != QEL_OK)
        return status;
    char *text = nullptr;
    status = qel_dn2str(context, package->owner, &text);
    const Owned<char> name(text);
    if (status != QEL_OK)
        return status;
    QelCert *records = nullptr;
    int count = 0;
    status = qel_get_cert(context, name.get(), &records, &count);
    signer->found.reset(records, count);
    if (status != QEL_OK)
        return status;
    for (const QelCert &certificate : signer->found.certs()) {
        int difference = 0;
        status = __qel_cmp_keyinfo(certificate.pubKeyInfo, package->pubKeyInfo, &difference);
        if (status != QEL_OK)
            return status;
        if (difference == 0) {
            signer->certificate = &certificate;
            return QEL_OK;
        }
    }
    return QEL_ERR_NO_CERT;
}

QelStatus find_signer(QelContext *context, const QelCert *given, const char *const *trusted_names,
                      int flag, Signer *signer) {
    signer->certificate = given;
    if (given == nullptr) {
        const QelStatus status = find_own_certificate(context, signer);
        if (status != QEL_OK)
            return status;
    }
    QelCert *records = nullptr;
    int count = 0;
    const QelStatus status =
        qel_get_cert_chain(context, signer->certificate, trusted_names, flag, &records, &count);
    signer->chain.reset(records, count);
    return status;
}

// A certificate as its DER encoding has it, over which its issuer signed: in a record the members of a
// set may stand in any order. The caller owns the new record.
QelStatus copy_canonical(QelContext *context, const QelCert *certificate, QelCert **copy_out) {
    Owned<uint8_t> encoding;
    uint32_t length = 0;
    const QelStatus status =
        qel::encode(context, certificate, QEL_PDU_Certificate, &encoding, &length);
    if (status != QEL_OK)
        return status;
    void *copy = nullptr;
    const QelStatus decoded =
        __qel_asn1_decode(context, encoding.get(), length, QEL_PDU_Certificate, &copy);
    *copy_out = static_cast<QelCert *>(copy);
    return decoded;
}

QelStatus copy_canonical(QelContext *context, const CertArray &chain, CertArray *copies) {
    if (chain.count() == 0)
        return QEL_OK;
    QelStatus status = copies->make(chain.certs().size());
    for (const QelCert &certificate : chain.certs()) {
        QelCert *copy = nullptr;
        if (status == QEL_OK)
            status = copy_canonical(context, &certificate, &copy);
        if (status == QEL_OK)
            copies->add(copy);
    }
    return status;
}

struct CertElement {
    QelCertChoices node;
    QelCertChoice choice;
};

// The certificates of a chain as elements of a message; they remain the chain's.
QelStatus wrap_certs(const CertArray &chain, Owned<CertElement> *elements_out) {
    const std::size_t count = chain.certs().size();
    if (count == 0)
        return QEL_OK;
    auto *elements = static_cast<CertElement *>(std::calloc(count, sizeof(CertElement)));
    elements_out->reset(elements);
    if (elements == nullptr)
        return QEL_ERR_NO_MEMORY;
    for (std::size_t i = 0; i < count; ++i) {
        elements[i].choice.choice = QEL_CERT_PLAIN;
        elements[i].choice.u.cert = const_cast<QelCert *>(&chain.certs()[i]);
        elements[i].node.cert = &elements[i].choice;
        elements[i].node.next = i + 1 < count ? &elements[i + 1].node : nullptr;
    }
    return QEL_OK;
}

// The SignedData around encoded content. Sets keep the order of their elements, which for the
// certificates is that of the chain.
QelStatus encode_signed_data(QelContext *context, const QelOctetString &content,
                             const Signer &signer, const QelAlgId *digest,
                             const QelOctetString &signature, Owned<uint8_t> *encoding_out,
                             uint32_t *length_out) {
    CertArray chain;
    QelStatus status = copy_canonical(context, signer.chain, &chain);
    if (status != QEL_OK)
        return status;
    QelCert *copy = nullptr;
    status = copy_canonical(context, signer.certificate, &copy);
    const qel::Record<QelCert, qel_free_cert> certificate(copy);
    if (status != QEL_OK)
        return status;
    Owned<CertElement> elements;
    status = wrap_certs(chain, &elements);
    if (status != QEL_OK)
        return status;
    QelContentInfo inner = {const_cast<QelOid *>(data_OID), const_cast<QelOctetString *>(&content)};
    QelIssuerAndSerial identity = {certificate->issuer, certificate->serial};
    QelSignerInfo info = {};
    info.version = signer_info_version;
    info.issuerAndSerialNumber = &identity;
    info.digestAlgorithm = const_cast<QelAlgId *>(digest);
    info.digestEncryptionAlgorithm = certificate->pubKeyInfo->algorithm;
    info.encryptedDigest = signature;
    QelSignerInfos signers = {nullptr, &info};
    QelAlgIds digests = {nullptr, const_cast<QelAlgId *>(digest)};
    QelSignedData data = {};
    data.version = signed_data_version;
    data.digestAlgorithms = &digests;
    data.contentInfo = &inner;
    data.certs = elements != nullptr ? &elements->node : nullptr;
    data.signerInfos = &signers;
    return qel::encode(context, &data, QEL_PDU_SignedData, encoding_out, length_out);
}

// The whole message. Each encoding is released as soon as the next one holds it.
QelStatus encode_message(const uint8_t *data, uint32_t length, const Signer &signer,
                         const QelAlgId *digest, const QelOctetString &signature,
                         Owned<uint8_t> *message_out, uint32_t *length_out) {
    Encoder encoder;
    QelStatus status = __qel_init_asn1(&encoder.context);
    if (status != QEL_OK)
        return status;
    const QelOctetString octets = {length, const_cast<uint8_t *>(data)};
    Owned<uint8_t> content, signed_data;
    uint32_t size = 0;
    status = qel::encode(&encoder.context, &octets, QEL_PDU_PkcsData, &content, &size);
    if (status != QEL_OK)
        return status;
    status = encode_signed_data(&encoder.context, {size, content.get()}, signer, digest, signature,
                                &signed_data, &size);
    content.reset();
    if (status != QEL_OK)
        return status;
    QelOctetString inside = {size, signed_data.get()};
    const QelContentInfo message = {const_cast<QelOid *>(signedData_OID), &inside};
    __qel_set_encoding_flags_indefinite(&encoder.context);
    return qel::encode(&encoder.context, &message, QEL_PDU_ContentInfo, message_out, length_out);
}

// ---- Verification -------------------------------------------------------------------------------

template <class T>
QelStatus decode(QelContext *context, const QelOctetString &encoding, int pdu,
                 Decoded<T> *value_out) {
    void *value = nullptr;
    const QelStatus status =
        __qel_asn1_decode(context, encoding.value, encoding.length, pdu, &value);
    if (status == QEL_OK)
        *value_out = {static_cast<T *>(value), {context, pdu}};
    return status;
}

QelStatus open_message(QelContext *context, const QelOctetString &message,
                       Decoded<QelSignedData> *signed_data_out) {
    Decoded<QelContentInfo> outer;
    QelStatus status = decode(context, message, QEL_PDU_ContentInfo, &outer);
    if (status != QEL_OK)
        return status;
    if (!equal_oids(outer->contentType, signedData_OID) || outer->content == nullptr)
        return QEL_ERR_BAD_PARAM;
    status = decode(context, *outer->content, QEL_PDU_SignedData, signed_data_out);
    if (status != QEL_OK)
        return status;
    const QelContentInfo *inner = (*signed_data_out)->contentInfo;
    return equal_oids(inner->contentType, data_OID) ? QEL_OK : QEL_ERR_BAD_PARAM;
}

// What a message must be verified by, and what it turns out to be.
struct Verification {
    QelContext *context;
    const QelTrustedKeys *trusted_keys;
    const char *const *allowed_names;
    int reserved;

    Decoded<QelSignedData> signed_data = {};
    qel::MessageCerts message_certs = {}; // of signed_data
    qel::ChainFindings findings = {};
    CertArray chain = {}; // where it had to be searched
    qel::Record<QelCert, qel_free_cert> expired = {};
    Decoded<QelOctetString> content = {};

    // A certificate outside its validity does not end the verification.
    QelStatus note_expiry(QelStatus status, QelCert *certificate) {
        expired.reset(certificate);
        findings.expired = certificate;
        return status == QEL_ERR_KEY_EXPIRED ? QelStatus{QEL_OK} : status;
    }
};

QelStatus verify_single(Verification *v) {
    const QelCert *certificate = v->message_certs.chain().data();
    if (v->findings.test_trust(v->context, v->trusted_keys, certificate) == QEL_OK)
        return QEL_OK;
    QelCert *records = nullptr;
    QelCert *expired = nullptr;
    int count = 0;
    const QelStatus status =
        qel_verify_cert_est_chain(v->context, certificate, v->trusted_keys, v->allowed_names,
                                  v->reserved, &expired, &records, &count);
    v->chain.reset(records, count);
    return v->note_expiry(status, expired);
}

QelStatus verify_several(Verification *v) {
    QelStatus status = v->message_certs.order(v->context);
    if (status != QEL_OK)
        return status;
    const std::span<const QelCert> chain = v->message_certs.without_rounds();
    QelCert *expired = nullptr;
    status = qel_verify_cert_chain(v->context, chain.data(), static_cast<int>(chain.size()),
                                   v->trusted_keys, &expired);
    return v->note_expiry(status, expired);
}

// Of the signers only the first counts, and the key is that of the end of the chain, whatever issuer
// and serial number say.
QelStatus verify_signature(Verification *v) {
    const QelSignedData &signed_data = *v->signed_data;
    if (signed_data.signerInfos == nullptr)
        return QEL_ERR_BAD_PARAM;
    const QelSignerInfo &signer = *signed_data.signerInfos->signer;
    int difference = 1;
    QelStatus status =
        __qel_cmp_algid(signer.digestEncryptionAlgorithm, QEL_RSA_ENCR_AID, &difference);
    if (status != QEL_OK)
        return status;
    const QelAlgId *digest = nullptr;
    if (difference != 0 || qel::find_digest(signer.digestAlgorithm, &digest) != QEL_OK ||
        signed_data.contentInfo->content == nullptr)
        return QEL_ERR_BAD_PARAM;
    status = decode(v->context, *signed_data.contentInfo->content, QEL_PDU_PkcsData, &v->content);
    if (status != QEL_OK)
        return status;
    const QelKeyInfo &key = *v->message_certs.chain()[0].pubKeyInfo;
    const QelAlgId *algorithm =
        digest == QEL_MD2_AID ? QEL_MD2WithRSAEncryption_AID : QEL_MD5WithRSAEncryption_AID;
    const uint8_t *data = v->content->length != 0 ? v->content->value : nullptr;
    return qel_verify(v->context, data, v->content->length, QEL_MODE_FINAL,
                      key.algorithm->algorithm, key.algorithm->parameters, &key.pubKey, algorithm,
                      signer.encryptedDigest.value, signer.encryptedDigest.length);
}

QelStatus verify_message(Verification *v, const QelOctetString &message) {
    QelStatus status = open_message(v->context, message, &v->signed_data);
    if (status == QEL_OK)
        status = v->message_certs.take(v->signed_data->certs);
    if (status == QEL_OK)
        status = v->message_certs.chain().size() == 1 ? verify_single(v) : verify_several(v);
    return status == QEL_OK ? verify_signature(v) : status;
}

// Copies the chain of the message, unless one was searched.
QelStatus complete_chain(Verification *v) {
    if (v->chain.count() != 0)
        return QEL_OK;
    const std::span<const QelCert> chain = v->message_certs.chain();
    QelStatus status = v->chain.make(chain.size());
    for (std::size_t i = 0; i < chain.size() && status == QEL_OK; ++i)
        status = v->chain.add_copy(&chain[i]);
    return status;
}

// The data, out of the decoded content.
QelStatus hand_over_content(QelOctetString *content, uint8_t **data, uint32_t *data_length) {
    Owned<uint8_t> bytes(std::exchange(content->value, nullptr));
    return hand_over(std::move(bytes), std::exchange(content->length, 0), data, data_length);
}

} // namespace

QelStatus __qel_create_pkcs7_signedData(QelContext *context, const uint8_t *data, uint32_t length,
                                        const QelAlgId *key_algorithm, const uint8_t *key,
                                        uint32_t key_length, const QelAlgId *signature_algorithm,
                                        const QelCert *signer_certificate,
                                        const char *const *trusted_names, int flag,
                                        uint8_t **message, uint32_t *message_length) {
    const toolkit::TracesWiped traces;
    clear_length(message, message_length);
    if (context == nullptr || data == nullptr || length == 0 || message == nullptr ||
        message_length == nullptr)
        return QEL_ERR_BAD_PARAM;
    if (signature_algorithm == nullptr)
        signature_algorithm = QEL_MD2WithRSAEncryption_AID;
    const QelAlgId *digest = nullptr;
    QelStatus status = qel::find_signature_digest(signature_algorithm, &digest);
    if (status != QEL_OK)
        return status;
    uint8_t *bytes = nullptr;
    uint32_t bytes_length = 0;
    status = qel_sign(context, data, length, QEL_MODE_FINAL, key_algorithm, key, key_length,
                      signature_algorithm, &bytes, &bytes_length);
    const Owned<uint8_t> signature(bytes);
    if (status != QEL_OK)
        return status;
    Signer signer;
    status = find_signer(context, signer_certificate, trusted_names, flag, &signer);
    if (status != QEL_OK)
        return status;
    Owned<uint8_t> encoding;
    uint32_t size = 0;
    status = encode_message(data, length, signer, digest, {bytes_length, signature.get()},
                            &encoding, &size);
    if (status != QEL_OK)
        return status;
    return hand_over(std::move(encoding), size, message, message_length);
}

QelStatus __qel_verify_pkcs7_signedData(QelContext *context, const uint8_t *message,
                                        uint32_t message_length, const QelTrustedKeys *trusted_keys,
                                        const char *const *allowed_names, int reserved,
                                        uint8_t **data, uint32_t *data_length, char **signer_name,
                                        QelCert **chain, int *chain_count,
                                        QelCert **expired_certificate) {
    clear_length(data, data_length);
    if (signer_name != nullptr)
        *signer_name = nullptr;
    if (chain != nullptr)
        *chain = nullptr;
    if (chain_count != nullptr)
        *chain_count = 0;
    if (expired_certificate != nullptr)
        *expired_certificate = nullptr;
    if (context == nullptr || message == nullptr || message_length == 0 || data == nullptr ||
        data_length == nullptr || signer_name == nullptr ||
        (chain == nullptr) != (chain_count == nullptr))
        return QEL_ERR_BAD_PARAM;
    Decoded<QelKeyPkg> package;
    if (trusted_keys == nullptr) {
        QelKeyPkg *record = nullptr;
        const QelStatus status = qel_get_keypkg(context, nullptr, &record);
        package = owned(context, record);
        if (status != QEL_OK)
            return status;
        trusted_keys = package->tKeys;
    }
    Verification v = {.context = context,
                      .trusted_keys = trusted_keys,
                      .allowed_names = allowed_names,
                      .reserved = reserved};
    QelStatus status = verify_message(&v, {message_length, const_cast<uint8_t *>(message)});
    if (status == QEL_OK && chain != nullptr)
        status = complete_chain(&v);
    char *name = nullptr;
    if (status == QEL_OK)
        status = qel_dn2str(context, v.message_certs.chain()[0].subject, &name);
    Owned<char> signer(name);
    if (status == QEL_OK)
        status = hand_over_content(v.content.get(), data, data_length);
    status = v.findings.conclude(status, nullptr);
    if (status != QEL_OK && status != QEL_ERR_KEY_EXPIRED)
        return status;
    *signer_name = signer.release();
    if (chain != nullptr)
        v.chain.hand_over(chain, chain_count);
    if (expired_certificate != nullptr)
        *expired_certificate = v.expired.release();
    return status;
}
