#include "token_key.h"

#include <lib/memory.h>
#include <qellogin/session.h>
#include <toolkit/traces.h>

namespace {

using qel::PrivateKey;
using qel::PublicKey;

const CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};

// A symmetric key as an object of the token. The token asks for a kind, but wraps all alike.
QelStatus make_secret_object(CK_SESSION_HANDLE session, const uint8_t *key, uint32_t length,
                             OwnedObject *object_out) {
    CK_ATTRIBUTE *attributes = nullptr;
    uint32_t count = 0;
    if (secretKey_2_template(key, length, CKK_RC2, &attributes, &count) != CKR_OK)
        return QEL_ERR_BAD_KEY;
    if (make_object(session, own_template(attributes, count), object_out) != CKR_OK)
        return QEL_ERR_GENERAL;
    return QEL_OK;
}

QelStatus wrap_in_token(OwnedTemplate public_key, uint32_t modulus_length, const uint8_t *key,
                        uint32_t key_length, uint8_t **wrapped, uint32_t *wrapped_length) {
    OwnedSession session;
    QelStatus status = qel::open_session(&session);
    if (status != QEL_OK)
        return status;
    OwnedObject public_object;
    if (make_object(session.get(), std::move(public_key), &public_object) != CKR_OK)
        return QEL_ERR_GENERAL;
    OwnedObject secret_object;
    status = make_secret_object(session.get(), key, key_length, &secret_object);
    if (status != QEL_OK)
        return status;
    qel::Owned<uint8_t> out(qel::allocate_bytes(modulus_length));
    if (out == nullptr)
        return QEL_ERR_NO_MEMORY;
    uint32_t written = 0;
    if (C_WrapKey(session.get(), &mechanism, public_object.get(), secret_object.get(), out.get(),
                  &written) != CKR_OK)
        return QEL_ERR_WRAP;
    *wrapped = out.release();
    *wrapped_length = written;
    return QEL_OK;
}

QelStatus decrypt_in_token(OwnedTemplate private_key, const uint8_t *wrapped, uint32_t length,
                           uint8_t *out, uint32_t *written) {
    OwnedSession session;
    const QelStatus status = qel::open_session(&session);
    if (status != QEL_OK)
        return status;
    OwnedObject object;
    if (make_object(session.get(), std::move(private_key), &object) != CKR_OK)
        return QEL_ERR_GENERAL;
    // One status for whatever is wrong with a block: telling more would help to open others.
    if (C_DecryptInit(session.get(), &mechanism, object.get()) != CKR_OK ||
        C_Decrypt(session.get(), wrapped, length, out, written) != CKR_OK)
        return QEL_ERR_UNWRAP;
    return QEL_OK;
}

QelStatus check_private_key(QelContext *context, const PrivateKey &key) {
    constexpr uint32_t most_modulus_bytes = 512; // bytes, unlike the bits of generated keys
    uint32_t size = 0;
    const QelStatus status =
        __qel_get_rsa_keysize(context, QEL_RSA_PRIVATE, key.bytes, key.length, &size);
    if (status != QEL_OK)
        return status;
    if (size > most_modulus_bytes)
        return QEL_ERR_EXPORT;
    return qel::check_key_algorithm(key.algorithm->algorithm);
}

QelStatus make_private_template(QelContext *context, const PrivateKey &key, uint32_t block_length,
                                OwnedTemplate *template_out) {
    QelStatus status = qel::make_template(context, key, template_out);
    if (status != QEL_OK)
        return status;
    uint32_t modulus_length = 0;
    status = qel::get_modulus_length(*template_out, &modulus_length);
    if (status != QEL_OK)
        return status;
    return block_length == modulus_length ? QEL_OK : QEL_ERR_BAD_PARAM;
}

QelStatus check_wrapping_algorithm(const QelAlgId *algorithm) {
    const QelStatus status = qel::check_key_algorithm(algorithm->algorithm);
    if (status == QEL_ERR_KEY_TYPE)
        return QEL_ERR_UNSUPPORTED_ALG;
    return status;
}

QelStatus unwrap_with_key(QelContext *context, const uint8_t *wrapped, uint32_t wrapped_length,
                          const PrivateKey &private_key, const QelAlgId *wrapping_algorithm,
                          uint8_t **key, uint32_t *key_length) {
    OwnedTemplate attributes;
    QelStatus status = check_private_key(context, private_key);
    if (status == QEL_OK)
        status = make_private_template(context, private_key, wrapped_length, &attributes);
    if (status == QEL_OK)
        status = check_wrapping_algorithm(wrapping_algorithm);
    if (status != QEL_OK)
        return status;

    qel::SecretBytes allocated;
    if (*key != nullptr) {
        if (*key_length < wrapped_length)
            return QEL_ERR_BUFFER_SIZE;
    } else {
        allocated = qel::allocate_secret(wrapped_length);
        if (allocated == nullptr)
            return QEL_ERR_NO_MEMORY;
    }
    uint8_t *out = allocated != nullptr ? allocated.get() : *key;
    uint32_t written = 0;
    status = decrypt_in_token(std::move(attributes), wrapped, wrapped_length, out, &written);
    if (status != QEL_OK)
        return status;
    *key_length = written;
    if (allocated != nullptr)
        *key = allocated.release();
    return QEL_OK;
}

} // namespace

QelStatus qel_wrap_key(QelContext *, const uint8_t *, uint32_t, const QelAlgId *,
                       const QelBitString *, const QelOctetString *, const QelAlgId *, uint8_t **,
                       uint32_t *) {
    return QEL_ERR_EXPORT;
}

QelStatus vfeqjfkkj(QelContext *context, const uint8_t *key, uint32_t key_length,
                    const QelAlgId *key_algorithm, const QelBitString *public_key_bits,
                    const QelOctetString *public_key_parameters,
                    const QelAlgId *public_key_algorithm, uint8_t **wrapped,
                    uint32_t *wrapped_length) {
    const toolkit::TracesWiped traces;
    if (wrapped != nullptr)
        *wrapped = nullptr;
    if (wrapped_length != nullptr)
        *wrapped_length = 0;
    if (context == nullptr || key == nullptr || key_length == 0 || key_algorithm == nullptr ||
        public_key_bits == nullptr || public_key_parameters == nullptr ||
        public_key_algorithm == nullptr || wrapped == nullptr || wrapped_length == nullptr)
        return QEL_ERR_BAD_PARAM;
    QelStatus status = qel::check_key_algorithm(public_key_algorithm->algorithm);
    if (status != QEL_OK)
        return status;
    const PublicKey public_key = {public_key_algorithm->algorithm, public_key_parameters,
                                  public_key_bits};
    OwnedTemplate attributes;
    uint32_t modulus_length = 0;
    status = qel::make_template(context, public_key, &attributes);
    if (status == QEL_OK)
        status = qel::get_modulus_length(attributes, &modulus_length);
    if (status != QEL_OK)
        return status;
    return wrap_in_token(std::move(attributes), modulus_length, key, key_length, wrapped,
                         wrapped_length);
}

QelStatus qel_unwrap_key(QelContext *context, const uint8_t *wrapped, uint32_t wrapped_length,
                         const QelAlgId *private_key_algorithm, const uint8_t *private_key,
                         uint32_t private_key_length, const QelAlgId *wrapping_algorithm,
                         uint8_t **key, uint32_t *key_length) {
    const toolkit::TracesWiped traces;
    const PrivateKey own_key = {private_key_algorithm, private_key, private_key_length};
    if (context == nullptr || wrapped == nullptr || wrapped_length == 0 ||
        wrapping_algorithm == nullptr || key == nullptr || key_length == nullptr ||
        own_key.half_given())
        return QEL_ERR_BAD_PARAM;
    if (*key == nullptr)
        *key_length = 0;
    if (!own_key.given())
        return rpc_unwrap(context, wrapped, &wrapped_length, wrapping_algorithm, key, key_length);
    return unwrap_with_key(context, wrapped, wrapped_length, own_key, wrapping_algorithm, key,
                           key_length);
}
