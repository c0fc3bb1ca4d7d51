#include <cryptoki/generate.h>
#include <cryptoki/session.h>
#include <cryptoki/template.h>

#include <cstring>

#include <lib/memory.h>
#include <util/toolkit_binding.h>

using namespace toolkit;

namespace {

// A symmetric mechanism. The algorithm's info is the initialisation vector, except for RC2, whose
// effective key bits stand before it.
struct CipherMechanism {
    uint32_t number;
    const B_INFO_TYPE *algorithm;
    const B_KEY_INFO_TYPE *key;
    uint32_t key_length;       // 0 for any
    uint32_t parameter_length; // at least; 0 for no parameter
    CK_RV algorithm_refused;
};

constexpr uint32_t iv_length = 8;

constexpr CipherMechanism cipher_mechanisms[] = {
    {CKM_RC2_CBC, &AI_RC2_CBCPad, &KI_Item, 0, sizeof(CK_RC2_CBC_PARAMS), CKR_MECHANISM_INVALID},
    {CKM_RC4, &AI_RC4, &KI_Item, 0, 0, CKR_MECHANISM_INVALID},
    {CKM_DES_CBC, &AI_DES_CBCPadIV8, &KI_DES8, 8, iv_length, CKR_MECHANISM_PARAM_INVALID},
    {CKM_DES3_CBC, &AI_DES_EDE3_CBCPadIV8, &KI_24Byte, 24, iv_length, CKR_MECHANISM_PARAM_INVALID},
};

const CipherMechanism *find_cipher(uint32_t number) {
    for (const CipherMechanism &row : cipher_mechanisms)
        if (row.number == number)
            return &row;
    return nullptr;
}

CK_RV check_init(CK_SESSION_HANDLE session, const CK_MECHANISM *mechanism, CK_OBJECT_HANDLE key) {
    if (session == nullptr)
        return CKR_SESSION_HANDLE_INVALID;
    if (key == nullptr)
        return CKR_KEY_HANDLE_INVALID;
    if (mechanism == nullptr)
        return CKR_MECHANISM_INVALID;
    const CipherMechanism *cipher = find_cipher(mechanism->mechanism);
    if (cipher == nullptr)
        return mechanism->mechanism == CKM_RSA_PKCS ? CKR_OK : CKR_MECHANISM_INVALID;
    if (cipher->parameter_length != 0 &&
        (mechanism->parameter == nullptr || mechanism->parameter_length < cipher->parameter_length))
        return CKR_MECHANISM_PARAM_INVALID;
    return CKR_OK;
}

// RC2's parameter is copied out because callers may hold it at any address.
CK_RV set_cipher(B_ALGORITHM_OBJ algorithm, const CipherMechanism &cipher,
                 const CK_MECHANISM &mechanism) {
    int error = 0;
    if (cipher.number == CKM_RC2_CBC) {
        CK_RC2_CBC_PARAMS given;
        std::memcpy(&given, mechanism.parameter, sizeof given);
        const A_RC2_CBC_PARAMS info = {given.effective_bits, given.iv};
        error = B_SetAlgorithmInfo(algorithm, *cipher.algorithm, &info);
    } else {
        error = B_SetAlgorithmInfo(algorithm, *cipher.algorithm, mechanism.parameter);
    }
    return error != 0 ? cipher.algorithm_refused : CK_RV{CKR_OK};
}

CK_RV set_secret_key(CK_SESSION_HANDLE session, const CipherMechanism &cipher,
                     const CK_MECHANISM &mechanism, const CK_ATTRIBUTE *attributes,
                     uint32_t count) {
    ITEM *octets = nullptr;
    const CK_RV result = template_2_KeyItem(attributes, count, &octets);
    if (result != CKR_OK)
        return result;
    const qel::Record<ITEM, free_ITEM> owned(octets);
    // KI_Item takes the item, the fixed lengths take the octets themselves.
    const POINTER info = cipher.key_length == 0 ? static_cast<POINTER>(octets) : octets->data;
    if (cipher.key_length != 0 && octets->len != cipher.key_length)
        return CKR_KEY_HANDLE_INVALID;
    // Where both are bad, RC2 answers for its algorithm and the others for their key.
    const CK_RV set = set_cipher(session->algorithm, cipher, mechanism);
    if (cipher.number == CKM_RC2_CBC && set != CKR_OK)
        return set;
    if (B_SetKeyInfo(session->key, *cipher.key, info) != 0)
        return CKR_KEY_HANDLE_INVALID;
    return set;
}

CK_RV set_rsa_encryption_key(CK_SESSION_HANDLE session, const CK_ATTRIBUTE *attributes,
                             uint32_t count) {
    const CK_RV result = set_rsa_public_key(session, attributes, count);
    if (result != CKR_OK)
        return result;
    if (B_SetAlgorithmInfo(session->algorithm, AI_PKCS_RSAPublic, nullptr) != 0)
        return CKR_MECHANISM_INVALID;
    return gen_random_alg(session);
}

CK_RV set_rsa_decryption_key(CK_SESSION_HANDLE session, const CK_ATTRIBUTE *attributes,
                             uint32_t count) {
    const CK_RV result = set_rsa_private_key(session, attributes, count);
    if (result != CKR_OK)
        return result;
    if (B_SetAlgorithmInfo(session->algorithm, AI_PKCS_RSAPrivate, nullptr) != 0)
        return CKR_MECHANISM_INVALID;
    return CKR_OK;
}

using SetRsaKey = CK_RV (*)(CK_SESSION_HANDLE, const CK_ATTRIBUTE *, uint32_t);
using Init = int (*)(B_ALGORITHM_OBJ, B_KEY_OBJ, B_ALGORITHM_CHOOSER, const SurrenderContext *);

CK_RV set_operation(CK_SESSION_HANDLE session, const CK_MECHANISM &mechanism, CK_OBJECT_HANDLE key,
                    SetRsaKey set_rsa_key, Init init) {
    CK_ATTRIBUTE *attributes = nullptr;
    uint32_t count = 0;
    CK_RV result = hKey_2_template(key, &attributes, &count);
    if (result != CKR_OK)
        return result;
    const CipherMechanism *cipher = find_cipher(mechanism.mechanism);
    result = cipher == nullptr ? set_rsa_key(session, attributes, count)
                               : set_secret_key(session, *cipher, mechanism, attributes, count);
    if (result != CKR_OK)
        return result;
    if (init(session->algorithm, session->key, chooser, nullptr) != 0)
        return CKR_MECHANISM_INVALID;
    session->mechanism = mechanism.mechanism;
    return CKR_OK;
}

CK_RV init_cipher(CK_SESSION_HANDLE session, const CK_MECHANISM *mechanism, CK_OBJECT_HANDLE key,
                  SetRsaKey set_rsa_key, Init init) {
    CK_RV result = check_init(session, mechanism, key);
    if (result != CKR_OK)
        return result;
    result = start_keyed_operation(session);
    if (result != CKR_OK)
        return result;
    result = set_operation(session, *mechanism, key, set_rsa_key, init);
    if (result != CKR_OK)
        end_operation(session);
    return result;
}

CK_RV check_data(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length,
                 const uint8_t *out, const uint32_t *length_out) {
    if (session == nullptr)
        return CKR_SESSION_HANDLE_INVALID;
    if (data == nullptr || length == 0 || out == nullptr || length_out == nullptr)
        return CKR_DATA_INVALID;
    if (session->algorithm == nullptr || session->key == nullptr)
        return CKR_OPERATION_NOT_INITIALIZED;
    return CKR_OK;
}

// A part of a longer text. An update may hand out what earlier ones held back.
CK_RV check_part(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length,
                 const uint8_t *out, const uint32_t *length_out) {
    const CK_RV result = check_data(session, data, length, out, length_out);
    if (result != CKR_OK)
        return result;
    if (session->mechanism == CKM_RSA_PKCS)
        return CKR_DATA_INVALID;
    session->capacity = length + 24;
    return CKR_OK;
}

// With the public exponent, where the template has it, the toolkit sees every damage to the key.
int set_private_numbers(B_KEY_OBJ object, const CK_ATTRIBUTE *attributes, uint32_t count,
                        const A_RSA_CRT_KEY &key) {
    ITEM public_exponent = {}, private_exponent = {};
    if (get_item_from_template(attributes, count, CKA_PUBLIC_EXPONENT, &public_exponent) !=
            CKR_OK ||
        get_item_from_template(attributes, count, CKA_PRIVATE_EXPONENT, &private_exponent) !=
            CKR_OK)
        return B_SetKeyInfo(object, KI_RSA_CRT, &key);
    const A_PKCS_RSA_PRIVATE_KEY numbers = {key.modulus,
                                            public_exponent,
                                            private_exponent,
                                            {key.prime[0], key.prime[1]},
                                            {key.primeExponent[0], key.primeExponent[1]},
                                            key.coefficient};
    return B_SetKeyInfo(object, KI_PKCS_RSAPrivate, &numbers);
}

} // namespace

CK_RV set_rsa_public_key(CK_SESSION_HANDLE session, const CK_ATTRIBUTE *attributes,
                         uint32_t count) {
    A_RSA_KEY *key = nullptr;
    const CK_RV result = template_2_RsaKey(attributes, count, &key);
    if (result != CKR_OK)
        return result;
    const qel::Record<A_RSA_KEY, free_A_RSA_KEY> owned(key);
    if (B_SetKeyInfo(session->key, KI_RSAPublic, key) != 0)
        return CKR_KEY_HANDLE_INVALID;
    session->capacity = key->modulus.len;
    return CKR_OK;
}

CK_RV set_rsa_private_key(CK_SESSION_HANDLE session, const CK_ATTRIBUTE *attributes,
                          uint32_t count) {
    A_RSA_CRT_KEY *key = nullptr;
    const CK_RV result = template_2_RsaCrtKey(attributes, count, &key);
    if (result != CKR_OK)
        return result;
    const qel::Record<A_RSA_CRT_KEY, free_A_RSA_CRT_KEY> owned(key);
    if (set_private_numbers(session->key, attributes, count, *key) != 0)
        return CKR_KEY_HANDLE_INVALID;
    session->capacity = key->modulus.len;
    return CKR_OK;
}

CK_RV C_EncryptInit(CK_SESSION_HANDLE session, const CK_MECHANISM *mechanism,
                    CK_OBJECT_HANDLE key) {
    return init_cipher(session, mechanism, key, set_rsa_encryption_key, B_EncryptInit);
}

CK_RV C_DecryptInit(CK_SESSION_HANDLE session, const CK_MECHANISM *mechanism,
                    CK_OBJECT_HANDLE key) {
    return init_cipher(session, mechanism, key, set_rsa_decryption_key, B_DecryptInit);
}

CK_RV encrypt_all(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length, uint8_t *out,
                  uint32_t *length_out) {
    uint32_t first = 0;
    uint32_t last = 0;
    if (B_EncryptUpdate(session->algorithm, out, &first, session->capacity, data, length,
                        session->random, nullptr) != 0 ||
        B_EncryptFinal(session->algorithm, out + first, &last, session->capacity - first,
                       session->random, nullptr) != 0)
        return CKR_OPERATION_NOT_INITIALIZED;
    *length_out = first + last;
    return CKR_OK;
}

CK_RV decrypt_all(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length, uint8_t *out,
                  uint32_t *length_out) {
    uint32_t first = 0;
    uint32_t last = 0;
    if (B_DecryptUpdate(session->algorithm, out, &first, session->capacity, data, length, nullptr,
                        nullptr) != 0 ||
        B_DecryptFinal(session->algorithm, out + first, &last, session->capacity - first, nullptr,
                       nullptr) != 0)
        return CKR_OPERATION_NOT_INITIALIZED;
    *length_out = first + last;
    return CKR_OK;
}

CK_RV check_rsa_data(CK_SESSION_HANDLE session, uint32_t length) {
    if (session->capacity == 0)
        return CKR_OPERATION_NOT_INITIALIZED;
    // 00, block type, 8 bytes of padding or more, 00
    if (session->capacity < 11 || length > session->capacity - 11)
        return CKR_DATA_LEN_RANGE;
    return CKR_OK;
}

// Sums below that wrap leave too small a capacity, which the toolkit refuses.

CK_RV C_Encrypt(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length, uint8_t *out,
                uint32_t *length_out) {
    CK_RV result = check_data(session, data, length, out, length_out);
    if (result != CKR_OK)
        return result;
    if (session->mechanism == CKM_RSA_PKCS) {
        result = check_rsa_data(session, length);
        if (result != CKR_OK)
            return result;
    } else {
        session->capacity = session->mechanism == CKM_RC4 ? length : length + 8;
    }
    return encrypt_all(session, data, length, out, length_out);
}

CK_RV C_Decrypt(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length, uint8_t *out,
                uint32_t *length_out) {
    const CK_RV result = check_data(session, data, length, out, length_out);
    if (result != CKR_OK)
        return result;
    if (session->mechanism != CKM_RSA_PKCS)
        session->capacity = length;
    else if (session->capacity == 0)
        return CKR_OPERATION_NOT_INITIALIZED;
    else if (length != session->capacity)
        return CKR_DATA_INVALID;
    return decrypt_all(session, data, length, out, length_out);
}

CK_RV C_EncryptUpdate(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length, uint8_t *out,
                      uint32_t *length_out) {
    const CK_RV result = check_part(session, data, length, out, length_out);
    if (result != CKR_OK)
        return result;
    uint32_t written = 0;
    if (B_EncryptUpdate(session->algorithm, out, &written, session->capacity, data, length,
                        session->random, nullptr) != 0)
        return CKR_OPERATION_NOT_INITIALIZED;
    *length_out = written;
    return CKR_OK;
}

CK_RV C_DecryptUpdate(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length, uint8_t *out,
                      uint32_t *length_out) {
    const CK_RV result = check_part(session, data, length, out, length_out);
    if (result != CKR_OK)
        return result;
    uint32_t written = 0;
    if (B_DecryptUpdate(session->algorithm, out, &written, session->capacity, data, length, nullptr,
                        nullptr) != 0)
        return CKR_OPERATION_NOT_INITIALIZED;
    *length_out = written;
    return CKR_OK;
}

CK_RV C_EncryptFinal(CK_SESSION_HANDLE session, uint8_t *out, uint32_t *length_out) {
    if (session == nullptr)
        return CKR_SESSION_HANDLE_INVALID;
    if (out == nullptr || length_out == nullptr || session->algorithm == nullptr ||
        session->key == nullptr)
        return CKR_OPERATION_NOT_INITIALIZED;
    if (session->mechanism == CKM_RSA_PKCS)
        return CKR_DATA_INVALID;
    uint32_t written = 0;
    if (B_EncryptFinal(session->algorithm, out, &written, session->capacity, session->random,
                       nullptr) != 0)
        return CKR_OPERATION_NOT_INITIALIZED;
    *length_out = written;
    return CKR_OK;
}

CK_RV C_DecryptFinal(CK_SESSION_HANDLE session, uint8_t *out, uint32_t *length_out) {
    if (session == nullptr)
        return CKR_SESSION_HANDLE_INVALID;
    if (out == nullptr || length_out == nullptr)
        return CKR_DATA_INVALID;
    if (session->algorithm == nullptr || session->key == nullptr)
        return CKR_OPERATION_NOT_INITIALIZED;
    if (session->mechanism == CKM_RSA_PKCS)
        return CKR_DATA_INVALID;
    uint32_t written = 0;
    if (B_DecryptFinal(session->algorithm, out, &written, session->capacity, nullptr, nullptr) != 0)
        return CKR_OPERATION_NOT_INITIALIZED;
    *length_out = written;
    return CKR_OK;
}
