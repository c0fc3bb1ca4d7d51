#include "signature.h"

namespace {

using qel::Owned;
using qel::PublicKey;

QelStatus verify_in_token(OwnedTemplate key, const uint8_t *digest, const uint8_t *signature,
                          uint32_t signature_length) {
    OwnedSession session;
    const QelStatus status = qel::open_session(&session);
    if (status != QEL_OK)
        return status;
    OwnedObject object;
    if (make_object(session.get(), std::move(key), &object) != CKR_OK)
        return QEL_ERR_GENERAL;
    const CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};
    if (C_VerifyInit(session.get(), &mechanism, object.get()) != CKR_OK ||
        C_Verify(session.get(), digest, qel::digest_size, signature, signature_length) != CKR_OK)
        return QEL_ERR_VERIFY;
    return QEL_OK;
}

QelStatus verify_digest(QelContext *context, const uint8_t *digest, const PublicKey &key,
                        const uint8_t *signature, uint32_t signature_length) {
    QelStatus status = qel::check_key_algorithm(key.algorithm);
    if (status != QEL_OK)
        return status;
    OwnedTemplate attributes;
    status = qel::make_template(context, key, &attributes);
    if (status != QEL_OK)
        return status;
    if (context->signature_algorithm != QEL_RSA_ENCR_AID)
        return QEL_ERR_UNSUPPORTED_ALG;
    return verify_in_token(std::move(attributes), digest, signature, signature_length);
}

QelStatus verify_part(QelContext *context, const uint8_t *data, uint32_t length, uint32_t mode,
                      const PublicKey &key, const uint8_t *signature, uint32_t signature_length) {
    uint8_t digest[qel::digest_size];
    const QelStatus status = qel::digest_part(context, data, length, mode, digest);
    if (status != QEL_OK || mode == QEL_MODE_UPDATE)
        return status;
    return verify_digest(context, digest, key, signature, signature_length);
}

QelStatus check_signature_algorithm(const QelAlgId *algorithm) {
    constexpr uint32_t other_signature = 4; // a kind that no row of the registry has yet
    uint32_t type = 0;
    const QelStatus status = __qel_alg2AlgType(algorithm->algorithm, &type);
    if (status != QEL_OK)
        return status;
    return type == QEL_ALG_SIGNATURE || type == other_signature ? QEL_OK : QEL_ERR_BAD_PARAM;
}

QelStatus verify_encoding(QelContext *context, const uint8_t *encoding, uint32_t length,
                          const QelAlgId *algorithm, const QelBitString &signature,
                          const QelKeyInfo *public_key) {
    if (public_key == nullptr || public_key->algorithm == nullptr)
        return QEL_ERR_BAD_PARAM;
    return qel_verify(context, encoding, length, QEL_MODE_FINAL, public_key->algorithm->algorithm,
                      public_key->algorithm->parameters, &public_key->pubKey, algorithm,
                      signature.value, signature.length / 8);
}

QelStatus verify_structure(QelContext *context, const void *structure, int signed_part,
                           const QelAlgId *algorithm, const QelBitString &signature,
                           const QelKeyInfo *public_key) {
    Owned<uint8_t> encoding;
    uint32_t length = 0;
    const QelStatus status = qel::encode(context, structure, signed_part, &encoding, &length);
    if (status != QEL_OK)
        return status;
    return verify_encoding(context, encoding.get(), length, algorithm, signature, public_key);
}

QelStatus encode_digest_info(QelContext *context, const QelKeyPkg *key_package,
                             Owned<uint8_t> *encoding_out, uint32_t *length_out) {
    Owned<uint8_t> signed_part;
    uint32_t length = 0;
    const QelAlgId *algorithm = nullptr;
    QelStatus status = qel::find_signature_digest(key_package->algorithm, &algorithm);
    if (status == QEL_OK)
        status = qel::encode(context, key_package, QEL_PDU_KeyPkgInfo, &signed_part, &length);
    if (status != QEL_OK)
        return status;
    uint8_t digest[qel::digest_size];
    uint8_t *out = digest;
    uint32_t capacity = sizeof digest;
    status =
        qel_digest(context, signed_part.get(), length, QEL_MODE_FINAL, algorithm, &out, &capacity);
    if (status != QEL_OK)
        return status;
    const QelDigestInfo info = {const_cast<QelAlgId *>(algorithm), {sizeof digest, digest}};
    return qel::encode(context, &info, QEL_PDU_DigestInfo, encoding_out, length_out);
}

} // namespace

QelStatus qel_verify(QelContext *context, const uint8_t *data, uint32_t length, uint32_t mode,
                     const QelOid *key_algorithm, const QelOctetString *key_parameters,
                     const QelBitString *key_bits, const QelAlgId *signature_algorithm,
                     const uint8_t *signature, uint32_t signature_length) {
    if (context == nullptr || mode < QEL_MODE_UPDATE || mode > QEL_MODE_DIGEST)
        return QEL_ERR_BAD_PARAM;
    if (key_algorithm == nullptr || key_parameters == nullptr || key_bits == nullptr ||
        signature_algorithm == nullptr || signature == nullptr || signature_length == 0)
        return QEL_ERR_BAD_PARAM;
    if ((data == nullptr) != (length == 0) ||
        (mode == QEL_MODE_DIGEST && length != qel::digest_size))
        return QEL_ERR_BAD_PARAM;
    QelStatus status = check_signature_algorithm(signature_algorithm);
    if (status != QEL_OK && mode == QEL_MODE_UPDATE)
        return status; // an operation under way goes on
    if (status == QEL_OK)
        status = qel::store_algorithms(context, signature_algorithm);
    const PublicKey key = {key_algorithm, key_parameters, key_bits};
    if (status == QEL_OK)
        status = verify_part(context, data, length, mode, key, signature, signature_length);
    if (mode != QEL_MODE_UPDATE || status != QEL_OK)
        qel::end_operation(context);
    return status;
}

QelStatus __qel_verify_certreq(QelContext *context, const QelCertReq *request,
                               const QelKeyInfo *public_key) {
    if (context == nullptr || request == nullptr || public_key == nullptr)
        return QEL_ERR_BAD_PARAM;
    return verify_structure(context, request, QEL_PDU_CertificationRequestInfo, request->algorithm,
                            request->signature, public_key);
}

QelStatus __qel_verify_netscape_certreq(QelContext *context, const QelNetscapeCertReq *request,
                                        const QelKeyInfo *public_key) {
    if (context == nullptr || request == nullptr || public_key == nullptr)
        return QEL_ERR_BAD_PARAM;
    return verify_structure(context, request, QEL_PDU_PublicKeyAndChallenge, request->algorithm,
                            request->signature, public_key);
}

QelStatus __qel_verify_keypkg(QelContext *context, const QelKeyPkg *key_package,
                              const QelKeyInfo *public_key) {
    if (context == nullptr || key_package == nullptr || public_key == nullptr)
        return QEL_ERR_BAD_PARAM;
    return verify_structure(context, key_package, QEL_PDU_KeyPkgInfo, key_package->algorithm,
                            key_package->signature, public_key);
}

QelStatus qel_verify_keypkg_return_digest(QelContext *context, const QelKeyPkg *key_package,
                                          const QelKeyInfo *public_key, uint8_t **digest_info,
                                          uint32_t *digest_info_length) {
    if (digest_info == nullptr || digest_info_length == nullptr)
        return QEL_ERR_BAD_PARAM;
    *digest_info = nullptr;
    *digest_info_length = 0;
    QelStatus status = __qel_verify_keypkg(context, key_package, public_key);
    if (status != QEL_OK)
        return status;
    Owned<uint8_t> encoding;
    uint32_t length = 0;
    status = encode_digest_info(context, key_package, &encoding, &length);
    if (status != QEL_OK)
        return status;
    *digest_info = encoding.release();
    *digest_info_length = length;
    return QEL_OK;
}
