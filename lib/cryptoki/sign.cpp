#include <cryptoki/session.h>
#include <cryptoki/template.h>

#include <cstring>

#include <lib/context.h>
#include <lib/memory.h>
#include <qel/qelp.h>
#include <util/toolkit_binding.h>

using namespace toolkit;

namespace {

struct EndAsn1 {
    void operator()(QelContext *context) const { __qel_end_asn1(context); }
};

CK_RV check_init(CK_SESSION_HANDLE session, const CK_MECHANISM *mechanism, CK_OBJECT_HANDLE key) {
    if (session == nullptr)
        return CKR_SESSION_HANDLE_INVALID;
    if (mechanism == nullptr || mechanism->mechanism != CKM_RSA_PKCS)
        return CKR_MECHANISM_INVALID;
    if (key == nullptr)
        return CKR_KEY_HANDLE_INVALID;
    return CKR_OK;
}

CK_RV set_signing(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key) {
    CK_ATTRIBUTE *attributes = nullptr;
    uint32_t count = 0;
    if (B_SetAlgorithmInfo(session->algorithm, AI_PKCS_RSAPrivate, nullptr) != 0)
        return CKR_MECHANISM_INVALID;
    CK_RV result = hKey_2_template(key, &attributes, &count);
    if (result != CKR_OK)
        return result;
    result = set_rsa_private_key(session, attributes, count);
    if (result != CKR_OK)
        return result;
    if (B_EncryptInit(session->algorithm, session->key, chooser, nullptr) != 0)
        return CKR_MECHANISM_INVALID;
    session->mechanism = CKM_RSA_PKCS;
    return CKR_OK;
}

CK_RV set_verification(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE key) {
    CK_ATTRIBUTE *attributes = nullptr;
    uint32_t count = 0;
    if (B_SetAlgorithmInfo(session->algorithm, AI_PKCS_RSAPublic, nullptr) != 0)
        return CKR_MECHANISM_INVALID;
    CK_RV result = hKey_2_template(key, &attributes, &count);
    if (result != CKR_OK)
        return result;
    result = set_rsa_public_key(session, attributes, count);
    if (result != CKR_OK)
        return result;
    if (B_DecryptInit(session->algorithm, session->key, chooser, nullptr) != 0)
        return CKR_MECHANISM_INVALID;
    session->mechanism = CKM_RSA_PKCS;
    return CKR_OK;
}

using SetOperation = CK_RV (*)(CK_SESSION_HANDLE, CK_OBJECT_HANDLE);

CK_RV init_signature(CK_SESSION_HANDLE session, const CK_MECHANISM *mechanism, CK_OBJECT_HANDLE key,
                     SetOperation set) {
    CK_RV result = check_init(session, mechanism, key);
    if (result != CKR_OK)
        return result;
    result = start_keyed_operation(session);
    if (result != CKR_OK)
        return result;
    result = set(session, key);
    if (result != CKR_OK)
        end_operation(session);
    return result;
}

bool begins_with(const uint8_t *block, uint32_t block_length, const uint8_t *data,
                 uint32_t length) {
    return length <= block_length && std::memcmp(block, data, length) == 0;
}

// Whether the opened block is an encoded DigestInfo whose digest begins with data. The decoder
// refuses bytes behind the value. Decoding needs no more of a context than its ASN.1 environment.
CK_RV compare_digest_info(const uint8_t *block, uint32_t block_length, const uint8_t *data,
                          uint32_t length) {
    QelContext context = {};
    if (__qel_init_asn1(&context) != QEL_OK)
        return CKR_DEVICE_ERROR;
    const std::unique_ptr<QelContext, EndAsn1> owned(&context);
    void *decoded = nullptr;
    if (__qel_asn1_decode(&context, block, block_length, QEL_PDU_DigestInfo, &decoded) != QEL_OK)
        return CKR_SIGNATURE_INVALID;
    auto *info = static_cast<QelDigestInfo *>(decoded);
    const bool equal = begins_with(info->digest.value, info->digest.length, data, length);
    __qel_free_digest_info(&info);
    return equal ? CKR_OK : CKR_SIGNATURE_INVALID;
}

} // namespace

CK_RV C_SignInit(CK_SESSION_HANDLE session, const CK_MECHANISM *mechanism, CK_OBJECT_HANDLE key) {
    return init_signature(session, mechanism, key, set_signing);
}

CK_RV C_Sign(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length, uint8_t *out,
             uint32_t *length_out) {
    if (session == nullptr)
        return CKR_SESSION_HANDLE_INVALID;
    if (data == nullptr || length == 0 || out == nullptr || length_out == nullptr)
        return CKR_DATA_INVALID;
    if (session->algorithm == nullptr || session->key == nullptr)
        return CKR_OPERATION_NOT_INITIALIZED;
    if (session->mechanism != CKM_RSA_PKCS)
        return CKR_MECHANISM_INVALID;
    const CK_RV result = check_rsa_data(session, length);
    if (result != CKR_OK)
        return result;
    return encrypt_all(session, data, length, out, length_out);
}

CK_RV C_VerifyInit(CK_SESSION_HANDLE session, const CK_MECHANISM *mechanism, CK_OBJECT_HANDLE key) {
    return init_signature(session, mechanism, key, set_verification);
}

CK_RV C_Verify(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length,
               const uint8_t *signature, uint32_t signature_length) {
    if (data == nullptr || length == 0 || signature == nullptr || signature_length == 0)
        return CKR_DATA_INVALID;
    if (session == nullptr)
        return CKR_SESSION_HANDLE_INVALID;
    if (session->algorithm == nullptr || session->key == nullptr)
        return CKR_OPERATION_NOT_INITIALIZED;
    if (session->mechanism != CKM_RSA_PKCS)
        return CKR_OK;
    if (session->capacity == 0)
        return CKR_SESSION_HANDLE_INVALID;
    if (signature_length != session->capacity)
        return CKR_DATA_INVALID;
    const qel::SecretBytes block = qel::allocate_secret(session->capacity);
    if (block == nullptr)
        return CKR_HOST_MEMORY;
    uint32_t block_length = 0;
    const CK_RV result =
        decrypt_all(session, signature, signature_length, block.get(), &block_length);
    if (result != CKR_OK)
        return result;
    if (begins_with(block.get(), block_length, data, length))
        return CKR_OK;
    return compare_digest_info(block.get(), block_length, data, length);
}

CK_RV C_SignUpdate(CK_SESSION_HANDLE, const uint8_t *, uint32_t) {
    return CKR_DATA_INVALID;
}

CK_RV C_SignFinal(CK_SESSION_HANDLE, uint8_t *, uint32_t *) {
    return CKR_DATA_INVALID;
}

CK_RV C_VerifyUpdate(CK_SESSION_HANDLE, const uint8_t *, uint32_t) {
    return CKR_DATA_INVALID;
}

CK_RV C_VerifyFinal(CK_SESSION_HANDLE, const uint8_t *, uint32_t) {
    return CKR_DATA_INVALID;
}
