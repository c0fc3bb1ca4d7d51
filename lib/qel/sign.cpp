#include "signature.h"

#include <qellogin/session.h>
#include <toolkit/traces.h>

namespace {

using qel::Owned;
using qel::SignerKey;

QelStatus sign_in_token(OwnedTemplate key, const uint8_t *data, uint32_t length, uint8_t *signature,
                        uint32_t *signature_length) {
    OwnedSession session;
    const QelStatus status = qel::open_session(&session);
    if (status != QEL_OK)
        return status;
    OwnedObject object;
    if (make_object(session.get(), std::move(key), &object) != CKR_OK)
        return QEL_ERR_GENERAL;
    const CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};
    if (C_SignInit(session.get(), &mechanism, object.get()) != CKR_OK ||
        C_Sign(session.get(), data, length, signature, signature_length) != CKR_OK)
        return QEL_ERR_SIGN;
    return QEL_OK;
}

QelStatus __qel_sign1(QelContext *context, const uint8_t *data, uint32_t length,
                      const SignerKey &key, const QelAlgId *signature_algorithm,
                      uint8_t **signature, uint32_t *signature_length) {
    QelStatus status = qel::check_key_algorithm(key.algorithm->algorithm);
    if (status != QEL_OK)
        return status;
    OwnedTemplate attributes;
    status = qel::make_template(context, key, &attributes);
    if (status != QEL_OK)
        return status;
    uint32_t modulus_length = 0;
    status = qel::get_modulus_length(attributes, &modulus_length);
    if (status != QEL_OK)
        return status;
    if (signature_algorithm != QEL_RSA_ENCR_AID)
        return QEL_ERR_UNSUPPORTED_ALG;

    Owned<uint8_t> allocated;
    if (*signature != nullptr) {
        if (*signature_length < modulus_length)
            return QEL_ERR_BUFFER_SIZE;
    } else {
        allocated.reset(qel::allocate_bytes(modulus_length));
        if (allocated == nullptr)
            return QEL_ERR_NO_MEMORY;
    }
    uint8_t *out = allocated != nullptr ? allocated.get() : *signature;
    uint32_t written = 0;
    status = sign_in_token(std::move(attributes), data, length, out, &written);
    if (status != QEL_OK)
        return status;
    *signature_length = written;
    if (allocated != nullptr)
        *signature = allocated.release();
    return QEL_OK;
}

QelStatus sign_digest(QelContext *context, const QelAlgId *digest_algorithm, uint8_t *digest,
                      const SignerKey &key, uint8_t **signature, uint32_t *signature_length) {
    QelDigestInfo info = {};
    info.digestAlgorithm = const_cast<QelAlgId *>(digest_algorithm);
    info.digest = {qel::digest_size, digest};
    Owned<uint8_t> encoding;
    uint32_t length = 0;
    const QelStatus status = qel::encode(context, &info, QEL_PDU_DigestInfo, &encoding, &length);
    if (status != QEL_OK)
        return status;
    if (!key.given())
        return rpc_sign(context, encoding.get(), &length, context->signature_algorithm, signature,
                        signature_length);
    return __qel_sign1(context, encoding.get(), length, key, context->signature_algorithm,
                       signature, signature_length);
}

QelStatus sign_part(QelContext *context, const uint8_t *data, uint32_t length, uint32_t mode,
                    const SignerKey &key, uint8_t **signature, uint32_t *signature_length) {
    // The end of the digest clears the stored algorithm.
    const QelAlgId *digest_algorithm = context->digest_algorithm;
    uint8_t digest[qel::digest_size];
    const QelStatus status = qel::digest_part(context, data, length, mode, digest);
    if (status != QEL_OK || mode == QEL_MODE_UPDATE)
        return status;
    return sign_digest(context, digest_algorithm, digest, key, signature, signature_length);
}

bool output_is_bad(uint32_t mode, uint8_t *const *signature, const uint32_t *signature_length) {
    if (mode == QEL_MODE_UPDATE)
        return false;
    if (signature == nullptr || signature_length == nullptr)
        return true;
    return mode == QEL_MODE_FINAL && (*signature == nullptr) != (*signature_length == 0);
}

// Signs the signed part of a structure anew.
QelStatus sign_structure(QelContext *context, const void *structure, int signed_part,
                         const SignerKey &key, const QelAlgId *signature_algorithm,
                         QelBitString *signature) {
    __qel_free2_bstr(signature);
    Owned<uint8_t> encoding;
    uint32_t length = 0;
    QelStatus status = qel::encode(context, structure, signed_part, &encoding, &length);
    if (status != QEL_OK)
        return status;
    uint8_t *bytes = nullptr;
    uint32_t bytes_length = 0;
    status = qel_sign(context, encoding.get(), length, QEL_MODE_FINAL, key.algorithm, key.bytes,
                      key.length, signature_algorithm, &bytes, &bytes_length);
    if (status != QEL_OK)
        return status;
    *signature = {bytes_length * 8, bytes};
    return QEL_OK;
}

// The algorithm that the structure names, by which it is going to be verified, or what was given.
const QelAlgId *either(const QelAlgId *own, const QelAlgId *given) {
    return own != nullptr ? own : given;
}

} // namespace

QelStatus qel::sign_digest_info(QelContext *context, const uint8_t *data, uint32_t length,
                                const SignerKey &key, uint8_t **signature,
                                uint32_t *signature_length) {
    return __qel_sign1(context, data, length, key, QEL_RSA_ENCR_AID, signature, signature_length);
}

QelStatus qel_sign(QelContext *context, const uint8_t *data, uint32_t length, uint32_t mode,
                   const QelAlgId *key_algorithm, const uint8_t *key_bytes, uint32_t key_length,
                   const QelAlgId *signature_algorithm, uint8_t **signature,
                   uint32_t *signature_length) {
    const toolkit::TracesWiped traces;
    const SignerKey key = {key_algorithm, key_bytes, key_length};
    if (context == nullptr || mode < QEL_MODE_UPDATE || mode > QEL_MODE_DIGEST)
        return QEL_ERR_BAD_PARAM;
    if (signature_algorithm == nullptr &&
        (context->digest_algorithm == nullptr || context->signature_algorithm == nullptr))
        return QEL_ERR_BAD_PARAM;
    if ((data == nullptr) != (length == 0) || key.half_given() ||
        output_is_bad(mode, signature, signature_length))
        return QEL_ERR_BAD_PARAM;
    if (mode == QEL_MODE_DIGEST && length != qel::digest_size)
        return QEL_ERR_BAD_PARAM;
    QelStatus status = qel::store_algorithms(context, signature_algorithm);
    if (status == QEL_OK)
        status = sign_part(context, data, length, mode, key, signature, signature_length);
    // A digest that was given leaves the algorithms stored.
    if (mode == QEL_MODE_FINAL || (mode == QEL_MODE_UPDATE && status != QEL_OK))
        qel::end_operation(context);
    return status;
}

QelStatus __qel_sign_certreq(QelContext *context, QelCertReq *request,
                             const QelAlgId *key_algorithm, const uint8_t *key_bytes,
                             uint32_t key_length, const QelAlgId *signature_algorithm) {
    if (context == nullptr || request == nullptr)
        return QEL_ERR_BAD_PARAM;
    return sign_structure(context, request, QEL_PDU_CertificationRequestInfo,
                          {key_algorithm, key_bytes, key_length},
                          either(request->algorithm, signature_algorithm), &request->signature);
}

QelStatus __qel_sign_cert(QelContext *context, QelCert *certificate, const QelAlgId *key_algorithm,
                          const uint8_t *key_bytes, uint32_t key_length,
                          const QelAlgId *signature_algorithm) {
    if (context == nullptr || certificate == nullptr)
        return QEL_ERR_BAD_PARAM;
    return sign_structure(
        context, certificate, QEL_PDU_CertificateInfo, {key_algorithm, key_bytes, key_length},
        either(certificate->algorithm, signature_algorithm), &certificate->sigBits);
}

QelStatus __qel_sign_keypkg(QelContext *context, QelKeyPkg *key_package,
                            const QelAlgId *key_algorithm, const uint8_t *key_bytes,
                            uint32_t key_length, const QelAlgId *signature_algorithm) {
    if (context == nullptr || key_package == nullptr)
        return QEL_ERR_BAD_PARAM;
    return sign_structure(
        context, key_package, QEL_PDU_KeyPkgInfo, {key_algorithm, key_bytes, key_length},
        either(key_package->algorithm, signature_algorithm), &key_package->signature);
}
