#include "operation.h"
#include "signature.h"

namespace {

uint32_t mechanism_of(const QelAlgId *digest) {
    return digest == QEL_MD2_AID ? CKM_MD2 : CKM_MD5;
}

void end_digest(QelContext *context) {
    context->digest_algorithm = nullptr;
    if (qel::cipher_under_way(context))
        return;
    C_CloseSession(context->session);
    context->session = nullptr;
    context->multi_part = 0;
}

QelStatus start_digest(QelContext *context, uint32_t mode, const QelAlgId *digest,
                       const QelOctetString *parameters) {
    CK_MECHANISM mechanism = {mechanism_of(digest), nullptr, 0};
    if (parameters != nullptr) {
        mechanism.parameter = parameters->value;
        mechanism.parameter_length = parameters->length;
    }
    if (mode == QEL_MODE_UPDATE)
        context->multi_part = 1;
    context->digest_algorithm = digest;
    if (C_OpenSession(0, 0, nullptr, nullNotify, &context->session) != CKR_OK)
        return QEL_ERR_GENERAL;
    if (C_DigestInit(context->session, &mechanism) != CKR_OK)
        return QEL_ERR_DIGEST;
    return QEL_OK;
}

CK_RV finish_in_token(QelContext *context, const uint8_t *data, uint32_t length, uint8_t *out,
                      uint32_t *length_out) {
    if (data == nullptr)
        return C_DigestFinal(context->session, out, length_out);
    if (context->multi_part == 0)
        return C_Digest(context->session, data, length, out, length_out);
    const CK_RV result = C_DigestUpdate(context->session, data, length);
    if (result != CKR_OK)
        return result;
    return C_DigestFinal(context->session, out, length_out);
}

QelStatus finish_digest(QelContext *context, const uint8_t *data, uint32_t length, uint8_t **digest,
                        uint32_t *digest_length) {
    if (context->digest_algorithm == nullptr)
        return QEL_ERR_UNSUPPORTED_ALG;
    qel::Owned<uint8_t> allocated;
    if (*digest != nullptr) {
        if (*digest_length < qel::digest_size)
            return QEL_ERR_BUFFER_SIZE;
    } else {
        allocated.reset(qel::allocate_bytes(qel::digest_size));
        if (allocated == nullptr)
            return QEL_ERR_NO_MEMORY;
    }
    uint8_t *out = allocated != nullptr ? allocated.get() : *digest;
    uint32_t written = 0;
    if (finish_in_token(context, data, length, out, &written) != CKR_OK)
        return QEL_ERR_DIGEST;
    *digest_length = written;
    if (allocated != nullptr)
        *digest = allocated.release();
    return QEL_OK;
}

QelStatus run_digest(QelContext *context, const uint8_t *data, uint32_t length, uint32_t mode,
                     const QelAlgId *algorithm, uint8_t **digest, uint32_t *digest_length) {
    const QelAlgId *found = nullptr;
    QelStatus status = qel::find_digest(algorithm, &found);
    if (status == QEL_OK && context->session == nullptr)
        status = start_digest(context, mode, found, algorithm->parameters);
    if (status != QEL_OK)
        return status;
    if (mode == QEL_MODE_FINAL)
        return finish_digest(context, data, length, digest, digest_length);
    return C_DigestUpdate(context->session, data, length) == CKR_OK ? QEL_OK : QEL_ERR_DIGEST;
}

} // namespace

void qel::end_operation(QelContext *context) {
    end_digest(context);
    context->signature_algorithm = nullptr;
}

QelStatus qel_digest(QelContext *context, const uint8_t *data, uint32_t length, uint32_t mode,
                     const QelAlgId *algorithm, uint8_t **digest, uint32_t *digest_length) {
    if (context == nullptr || algorithm == nullptr || (data == nullptr) != (length == 0))
        return QEL_ERR_BAD_PARAM;
    if (mode != QEL_MODE_UPDATE && mode != QEL_MODE_FINAL)
        return QEL_ERR_BAD_PARAM;
    if (mode == QEL_MODE_FINAL && (digest == nullptr || digest_length == nullptr))
        return QEL_ERR_BAD_PARAM;
    if (data == nullptr && (mode == QEL_MODE_UPDATE || context->multi_part == 0))
        return QEL_ERR_BAD_PARAM;
    const QelStatus status =
        run_digest(context, data, length, mode, algorithm, digest, digest_length);
    if (mode == QEL_MODE_FINAL || status != QEL_OK)
        end_digest(context);
    return status;
}
