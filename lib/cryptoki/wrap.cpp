#include <cryptoki/session.h>
#include <cryptoki/template.h>

#include <lib/memory.h>
#include <util/toolkit_binding.h>

CK_RV C_WrapKey(CK_SESSION_HANDLE session, const CK_MECHANISM *mechanism,
                CK_OBJECT_HANDLE wrapping_key, CK_OBJECT_HANDLE key, uint8_t *out,
                uint32_t *length_out) {
    if (session == nullptr)
        return CKR_SESSION_HANDLE_INVALID;
    if (mechanism == nullptr || mechanism->mechanism != CKM_RSA_PKCS)
        return CKR_MECHANISM_INVALID;
    if (wrapping_key == nullptr)
        return CKR_WRAPPING_KEY_HANDLE_INVALID;
    if (key == nullptr)
        return CKR_KEY_HANDLE_INVALID;
    if (out == nullptr || length_out == nullptr)
        return CKR_DATA_INVALID;

    CK_ATTRIBUTE *attributes = nullptr;
    uint32_t count = 0;
    CK_RV result = hKey_2_template(key, &attributes, &count);
    if (result != CKR_OK)
        return result;
    toolkit::ITEM *octets = nullptr;
    result = template_2_KeyItem(attributes, count, &octets);
    if (result != CKR_OK)
        return result;
    const qel::Record<toolkit::ITEM, free_ITEM> owned(octets);
    result = C_EncryptInit(session, mechanism, wrapping_key);
    if (result != CKR_OK)
        return result;
    return C_Encrypt(session, octets->data, octets->len, out, length_out);
}
