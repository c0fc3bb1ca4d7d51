// rsa_key.cpp: what the encoding of an RSA key tells about it.

#include <cstring>

#include <lib/memory.h>
#include <qel/qelp.h>
#include <toolkit/toolkit.h>
#include <toolkit/traces.h>

using namespace toolkit;

namespace {

struct DestroyKey {
    void operator()(KeyObject *object) const { B_DestroyKeyObject(&object); }
};
using OwnedKey = std::unique_ptr<KeyObject, DestroyKey>;

// Reads an encoded key as a record, which belongs to *object.
template <class T>
bool read_key(B_KEY_INFO_TYPE from, const uint8_t *encoding, uint32_t length, B_KEY_INFO_TYPE to,
              OwnedKey *object, const T **record_out) {
    const ITEM item = {const_cast<uint8_t *>(encoding), length};
    B_KEY_OBJ created = nullptr;
    POINTER record = nullptr;
    if (B_CreateKeyObject(&created) != BE_OK)
        return false;
    object->reset(created);
    if (B_SetKeyInfo(created, from, &item) != BE_OK || B_GetKeyInfo(&record, created, to) != BE_OK)
        return false;
    *record_out = static_cast<const T *>(record);
    return true;
}

// The key within the structure that names its algorithm: rsaEncryption, whatever it came with.
QelStatus encode_key(QelContext *context, int kind, const uint8_t *key, uint32_t length,
                     qel::SecretBytes *encoding_out, uint32_t *length_out) {
    auto *const algorithm = const_cast<QelAlgId *>(QEL_RSA_ENCR_AID);
    auto *const bytes = const_cast<uint8_t *>(key);
    const QelKeyInfo public_info = {algorithm, {length * 8, bytes}};
    QelPrivateKeyInfo private_info = {};
    private_info.privateKeyAlgorithm = algorithm;
    private_info.privateKey = {length, bytes};
    uint8_t *encoding = nullptr;
    const QelStatus status =
        kind == QEL_RSA_PUBLIC
            ? __qel_asn1_encode(context, &public_info, QEL_PDU_SubjectPublicKeyInfo, &encoding,
                                length_out)
            : __qel_asn1_encode(context, &private_info, QEL_PDU_PrivateKeyInfo, &encoding,
                                length_out);
    *encoding_out = qel::SecretBytes(encoding, qel::ZeroAndFree{*length_out});
    return status;
}

bool read_modulus_length(int kind, const uint8_t *encoding, uint32_t length, uint32_t *size_out) {
    OwnedKey object;
    if (kind == QEL_RSA_PUBLIC) {
        const A_RSA_KEY *numbers = nullptr;
        if (!read_key(KI_RSAPublicBER, encoding, length, KI_RSAPublic, &object, &numbers))
            return false;
        *size_out = numbers->modulus.len;
        return true;
    }
    const A_PKCS_RSA_PRIVATE_KEY *numbers = nullptr;
    if (!read_key(KI_PKCS_RSAPrivateBER, encoding, length, KI_PKCS_RSAPrivate, &object, &numbers))
        return false;
    *size_out = numbers->modulus.len;
    return true;
}

qel::Owned<uint8_t> copy_of(const ITEM &number) {
    qel::Owned<uint8_t> copy(qel::allocate_bytes(number.len));
    if (copy != nullptr)
        std::memcpy(copy.get(), number.data, number.len);
    return copy;
}

} // namespace

QelStatus __qel_get_rsa_keysize(QelContext *context, int kind, const uint8_t *key,
                                uint32_t key_length, uint32_t *size_out) {
    const toolkit::TracesWiped traces;
    constexpr uint32_t most_bytes = UINT32_MAX / 8; // a bit string counts bits
    if (size_out != nullptr)
        *size_out = 0;
    if (context == nullptr || (kind != QEL_RSA_PUBLIC && kind != QEL_RSA_PRIVATE) ||
        key == nullptr || key_length == 0 || key_length > most_bytes || size_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    qel::SecretBytes encoding;
    uint32_t length = 0;
    if (encode_key(context, kind, key, key_length, &encoding, &length) != QEL_OK ||
        !read_modulus_length(kind, encoding.get(), length, size_out))
        return QEL_ERR_BAD_KEY;
    return QEL_OK;
}

QelStatus __qel_get_rsa_pubkey_components(const uint8_t *key, uint32_t key_length,
                                          uint8_t **modulus, uint32_t *modulus_length,
                                          uint8_t **exponent, uint32_t *exponent_length) {
    if (key == nullptr || key_length == 0 || modulus == nullptr || modulus_length == nullptr ||
        exponent == nullptr || exponent_length == nullptr)
        return QEL_ERR_BAD_PARAM;
    *modulus = nullptr;
    *modulus_length = 0;
    *exponent = nullptr;
    *exponent_length = 0;
    OwnedKey object;
    const A_RSA_KEY *numbers = nullptr;
    if (!read_key(KI_RSAPublicBER, key, key_length, KI_RSAPublic, &object, &numbers))
        return QEL_ERR_BAD_KEY;
    qel::Owned<uint8_t> n = copy_of(numbers->modulus);
    qel::Owned<uint8_t> e = copy_of(numbers->exponent);
    if (n == nullptr || e == nullptr)
        return QEL_ERR_NO_MEMORY;
    *modulus = n.release();
    *modulus_length = numbers->modulus.len;
    *exponent = e.release();
    *exponent_length = numbers->exponent.len;
    return QEL_OK;
}
