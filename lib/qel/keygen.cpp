#include "decoded.h"
#include "random.h"
#include "token_key.h"

#include <lib/memory.h>
#include <toolkit/traces.h>
#include <util/weak_key.h>

namespace {

using qel::SecretBytes;
using OwnedOctetString = qel::Record<QelOctetString, __qel_free_ostr>;

constexpr uint32_t des_key_size = 8;
constexpr uint32_t iv_size = 8;

// The export policy.
constexpr uint32_t most_rc2_bits = 40;
constexpr uint32_t most_modulus_bits = 512;
constexpr uint8_t odd_position_bits = 0x0f;

QelStatus draw_key(uint32_t length, SecretBytes *key_out) {
    *key_out = qel::allocate_secret(length);
    if (*key_out == nullptr)
        return QEL_ERR_NO_MEMORY;
    return qel::fill_random(key_out->get(), length);
}

QelStatus draw_des_key(SecretBytes *key_out) {
    do {
        const QelStatus status = draw_key(des_key_size, key_out);
        if (status != QEL_OK)
            return status;
        for (uint32_t i = 1; i < des_key_size; i += 2)
            key_out->get()[i] &= odd_position_bits;
    } while (!is_good_des_key(key_out->get()));
    return QEL_OK;
}

// The encoding of a random initialisation vector.
QelStatus draw_iv_parameters(QelContext *context, OwnedOctetString *parameters_out) {
    uint8_t bytes[iv_size];
    QelStatus status = qel::fill_random(bytes, iv_size);
    if (status != QEL_OK)
        return status;
    parameters_out->reset(qel::allocate<QelOctetString>());
    if (*parameters_out == nullptr)
        return QEL_ERR_NO_MEMORY;
    const QelOctetString iv = {iv_size, bytes};
    return __qel_asn1_encode(context, &iv, QEL_PDU_OctetString, &(*parameters_out)->value,
                             &(*parameters_out)->length);
}

QelStatus draw_rc2_parameters(QelContext *context, uint32_t effective_bits,
                              OwnedOctetString *parameters_out) {
    uint8_t iv[iv_size];
    QelStatus status = qel::fill_random(iv, iv_size);
    if (status != QEL_OK)
        return status;
    QelOctetString *parameters = nullptr;
    status = __qel_encode_rc2_params_cpkit(context, iv, effective_bits, &parameters);
    parameters_out->reset(parameters);
    return status;
}

// Both halves of a new RSA key as objects of the token.
struct KeyPair {
    OwnedObject public_key;
    OwnedObject private_key;
};

QelStatus generate(CK_SESSION_HANDLE session, const QelRsaKeypairParams &parameters,
                   KeyPair *pair_out) {
    uint32_t bits = parameters.modulusBits;
    const QelOctetString &exponent = parameters.publicExponent;
    const CK_ATTRIBUTE attributes[] = {{CKA_MODULUS_BITS, &bits, sizeof bits},
                                       {CKA_PUBLIC_EXPONENT, exponent.value, exponent.length}};
    const CK_MECHANISM mechanism = {CKM_RSA_PKCS_KEY_PAIR_GEN, nullptr, 0};
    CK_OBJECT_HANDLE public_key = nullptr;
    CK_OBJECT_HANDLE private_key = nullptr;
    if (C_GenerateKeyPair(session, &mechanism, attributes, 2, nullptr, 0, &private_key,
                          &public_key) != CKR_OK)
        return QEL_ERR_KEYGEN;
    pair_out->public_key = OwnedObject(public_key, DestroyObject{session});
    pair_out->private_key = OwnedObject(private_key, DestroyObject{session});
    return QEL_OK;
}

// The key as it stands in its PrivateKeyInfo (PKCS#8).
QelStatus read_private_key(QelContext *context, CK_OBJECT_HANDLE object, SecretBytes *key_out,
                           uint32_t *length_out) {
    CK_ATTRIBUTE *attributes = nullptr;
    uint32_t count = 0;
    uint8_t *encoding = nullptr;
    uint32_t length = 0;
    if (hKey_2_template(object, &attributes, &count) != CKR_OK ||
        template_2_privateKeyInfoBer(attributes, count, &encoding, &length) != CKR_OK)
        return QEL_ERR_BAD_KEY;
    const SecretBytes owned(encoding, qel::ZeroAndFree{length});
    const auto info =
        qel::decode<QelPrivateKeyInfo>(context, encoding, length, QEL_PDU_PrivateKeyInfo);
    if (info == nullptr)
        return QEL_ERR_BAD_KEY;
    *length_out = info->privateKey.length;
    *key_out = SecretBytes(info->privateKey.value, qel::ZeroAndFree{*length_out});
    info->privateKey = {};
    return QEL_OK;
}

// The key as it stands in its SubjectPublicKeyInfo (X.509).
QelStatus read_public_key(QelContext *context, CK_OBJECT_HANDLE object,
                          qel::Owned<uint8_t> *key_out, uint32_t *bits_out) {
    CK_ATTRIBUTE *attributes = nullptr;
    uint32_t count = 0;
    uint8_t *encoding = nullptr;
    uint32_t length = 0;
    if (hKey_2_template(object, &attributes, &count) != CKR_OK ||
        template_2_subjectPublicKeyInfoBer(attributes, count, &encoding, &length) != CKR_OK)
        return QEL_ERR_BAD_KEY;
    const qel::Owned<uint8_t> owned(encoding);
    const auto info =
        qel::decode<QelKeyInfo>(context, encoding, length, QEL_PDU_SubjectPublicKeyInfo);
    if (info == nullptr)
        return QEL_ERR_BAD_KEY;
    *bits_out = info->pubKey.length;
    key_out->reset(info->pubKey.value);
    info->pubKey = {};
    return QEL_OK;
}

// Nulls the results of a generation. False: one has nowhere to go.
bool clear_outputs(uint8_t **key, QelOctetString **parameters) {
    if (key != nullptr)
        *key = nullptr;
    if (parameters != nullptr)
        *parameters = nullptr;
    return key != nullptr && parameters != nullptr;
}

bool clear_output(uint8_t **key, uint32_t *length) {
    if (key != nullptr)
        *key = nullptr;
    if (length != nullptr)
        *length = 0;
    return key != nullptr && length != nullptr;
}

} // namespace

QelStatus qel_gen_des_key(QelContext *context, uint8_t **key, QelOctetString **parameters) {
    const toolkit::TracesWiped traces;
    if (!clear_outputs(key, parameters) || context == nullptr)
        return QEL_ERR_BAD_PARAM;
    SecretBytes made;
    OwnedOctetString made_parameters;
    QelStatus status = draw_des_key(&made);
    if (status == QEL_OK)
        status = draw_iv_parameters(context, &made_parameters);
    if (status != QEL_OK)
        return status;
    *key = made.release();
    *parameters = made_parameters.release();
    return QEL_OK;
}

QelStatus qel_gen_des3_key(QelContext *, uint8_t **key, QelOctetString **parameters) {
    clear_outputs(key, parameters);
    return QEL_ERR_EXPORT;
}

QelStatus qel_gen_rc2_key(QelContext *context, uint32_t key_length, uint32_t effective_bits,
                          uint8_t **key, QelOctetString **parameters) {
    const toolkit::TracesWiped traces;
    if (!clear_outputs(key, parameters) || context == nullptr || key_length == 0 ||
        effective_bits == 0)
        return QEL_ERR_BAD_PARAM;
    if (effective_bits > most_rc2_bits)
        return QEL_ERR_EXPORT;
    SecretBytes made;
    OwnedOctetString made_parameters;
    QelStatus status = draw_key(key_length, &made);
    if (status == QEL_OK)
        status = draw_rc2_parameters(context, effective_bits, &made_parameters);
    if (status != QEL_OK)
        return status;
    *key = made.release();
    *parameters = made_parameters.release();
    return QEL_OK;
}

QelStatus qel_gen_rc4_key(QelContext *context, uint32_t key_length, uint8_t **key) {
    const toolkit::TracesWiped traces;
    if (key != nullptr)
        *key = nullptr;
    if (context == nullptr || key_length == 0 || key == nullptr)
        return QEL_ERR_BAD_PARAM;
    SecretBytes made;
    const QelStatus status = draw_key(key_length, &made);
    if (status == QEL_OK)
        *key = made.release();
    return status;
}

QelStatus qel_gen_rsa_keypair(QelContext *context, const QelRsaKeypairParams *parameters,
                              uint8_t **public_key, uint32_t *public_key_bits,
                              uint8_t **private_key, uint32_t *private_key_length) {
    const toolkit::TracesWiped traces;
    const bool private_has_place = clear_output(private_key, private_key_length);
    if (!clear_output(public_key, public_key_bits) || !private_has_place || context == nullptr ||
        parameters == nullptr || parameters->publicExponent.value == nullptr ||
        parameters->publicExponent.length == 0)
        return QEL_ERR_BAD_PARAM;
    if (parameters->modulusBits > most_modulus_bits)
        return QEL_ERR_EXPORT;
    OwnedSession session;
    KeyPair pair;
    SecretBytes private_bytes;
    qel::Owned<uint8_t> public_bytes;
    uint32_t bits = 0;
    uint32_t length = 0;
    QelStatus status = qel::open_session(&session);
    if (status == QEL_OK)
        status = generate(session.get(), *parameters, &pair);
    if (status == QEL_OK)
        status = read_private_key(context, pair.private_key.get(), &private_bytes, &length);
    if (status == QEL_OK)
        status = read_public_key(context, pair.public_key.get(), &public_bytes, &bits);
    if (status != QEL_OK)
        return status;
    *public_key = public_bytes.release();
    *public_key_bits = bits;
    *private_key = private_bytes.release();
    *private_key_length = length;
    return QEL_OK;
}
