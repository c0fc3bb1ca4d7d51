#include <cryptoki/session.h>

#include <util/toolkit_binding.h>

using namespace toolkit;

namespace {

struct DigestMechanism {
    uint32_t number;
    const B_INFO_TYPE *algorithm;
};

constexpr DigestMechanism digest_mechanisms[] = {
    {CKM_MD2, &AI_MD2},
    {CKM_MD5, &AI_MD5},
};

constexpr uint32_t digest_length = 16;
constexpr uint32_t longest_digest = 0xFFFF;

const DigestMechanism *find_digest(const CK_MECHANISM *mechanism) {
    if (mechanism != nullptr)
        for (const DigestMechanism &row : digest_mechanisms)
            if (row.number == mechanism->mechanism)
                return &row;
    return nullptr;
}

} // namespace

CK_RV C_DigestInit(CK_SESSION_HANDLE session, const CK_MECHANISM *mechanism) {
    if (session == nullptr)
        return CKR_SESSION_HANDLE_INVALID;
    const DigestMechanism *digest = find_digest(mechanism);
    if (digest == nullptr)
        return CKR_MECHANISM_INVALID;
    const CK_RV result = start_operation(session);
    if (result != CKR_OK)
        return result;
    session->capacity = digest_length;
    if (B_SetAlgorithmInfo(session->algorithm, *digest->algorithm, nullptr) != 0 ||
        B_DigestInit(session->algorithm, nullptr, chooser, nullptr) != 0) {
        B_DestroyAlgorithmObject(&session->algorithm);
        return CKR_MECHANISM_INVALID;
    }
    return CKR_OK;
}

CK_RV C_Digest(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length, uint8_t *out,
               uint32_t *length_out) {
    if (data == nullptr || length == 0 || out == nullptr || length_out == nullptr)
        return CKR_DATA_INVALID;
    const CK_RV result = C_DigestUpdate(session, data, length);
    if (result != CKR_OK)
        return result;
    return C_DigestFinal(session, out, length_out);
}

CK_RV C_DigestUpdate(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length) {
    if (data == nullptr || length == 0)
        return CKR_DATA_INVALID;
    if (session == nullptr)
        return CKR_SESSION_HANDLE_INVALID;
    if (B_DigestUpdate(session->algorithm, data, length, nullptr) != 0)
        return CKR_OPERATION_NOT_INITIALIZED;
    return CKR_OK;
}

CK_RV C_DigestFinal(CK_SESSION_HANDLE session, uint8_t *out, uint32_t *length_out) {
    if (out == nullptr || length_out == nullptr)
        return CKR_DATA_INVALID;
    if (session == nullptr)
        return CKR_SESSION_HANDLE_INVALID;
    uint32_t written = 0;
    if (B_DigestFinal(session->algorithm, out, &written, session->capacity, nullptr) != 0)
        return CKR_OPERATION_NOT_INITIALIZED;
    if (written > longest_digest)
        return CKR_DATA_LEN_RANGE;
    *length_out = written;
    return CKR_OK;
}
