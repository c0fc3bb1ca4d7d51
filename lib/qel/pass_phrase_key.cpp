#include "decoded.h"

#include <algorithm>
#include <cstring>

#include <lib/memory.h>
#include <toolkit/md2.h>
#include <toolkit/md5.h>
#include <toolkit/traces.h>

namespace {

constexpr uint32_t digest_size = 16; // of MD2 and MD5 alike
constexpr uint32_t des_key_size = 8;
constexpr uint32_t des3_key_size = 24;
constexpr uint32_t iv_size = 8;

const uint8_t *bytes_of(const char *text) {
    return reinterpret_cast<const uint8_t *>(text);
}

// Whatever is empty or 0 would leave a key that some of the others have no part in.
bool is_complete(const PassPhraseKeyInput &input) {
    return input.salt != nullptr && input.salt_length != 0 && input.salt_length % 2 == 0 &&
           input.pass_phrase != nullptr && *input.pass_phrase != '\0' && input.iteration_count != 0;
}

// Halves that are equal would start two equal chains.
void part_halves(uint8_t *salt, uint32_t half) {
    if (std::memcmp(salt, salt + half, half) == 0)
        std::reverse(salt, salt + half);
}

// PBKDF1 of PKCS#5, with a digest of the toolkit.
template <class State, void (*init)(State *), void (*update)(State *, const uint8_t *, std::size_t),
          void (*final)(State *, uint8_t *)>
void derive(const char *pass_phrase, const QelPBEParameter &parameter, uint8_t *digest) {
    State state;
    init(&state);
    update(&state, bytes_of(pass_phrase), std::strlen(pass_phrase));
    update(&state, parameter.salt.value, parameter.salt.length);
    final(&state, digest);
    for (uint32_t i = 1; i < parameter.iterationCount; ++i) {
        init(&state);
        update(&state, digest, digest_size);
        final(&state, digest);
    }
}

using Derivation = void(const char *pass_phrase, const QelPBEParameter &parameter, uint8_t *digest);
constexpr Derivation *derive_with_md2 =
    derive<toolkit::Md2, toolkit::md2_init, toolkit::md2_update, toolkit::md2_final>;
constexpr Derivation *derive_with_md5 =
    derive<toolkit::Md5, toolkit::md5_init, toolkit::md5_update, toolkit::md5_final>;

bool is(const QelAlgId *algorithm, const QelOid *oid) {
    int difference = 0;
    return __qel_cmp_oid(algorithm->algorithm, oid, &difference) == QEL_OK && difference == 0;
}

Derivation *find_derivation(const QelAlgId *algorithm) {
    if (is(algorithm, QEL_PbeWithMD2AndDES_CBC_OID))
        return derive_with_md2;
    return is(algorithm, QEL_PbeWithMD5AndDES_CBC_OID) ? derive_with_md5 : nullptr;
}

// The initialisation vector as the parameters of DES-CBC.
QelStatus copy_iv(QelContext *context, uint8_t *iv, QelOctetString **parameters_out) {
    const QelOctetString octets = {iv_size, iv};
    qel::SecretArray<iv_size + 2> encoding;
    uint8_t *out = encoding.bytes;
    uint32_t length = sizeof encoding.bytes;
    const QelStatus status =
        __qel_asn1_encode(context, &octets, QEL_PDU_OctetString, &out, &length);
    if (status != QEL_OK)
        return status;
    const QelOctetString encoded = {length, encoding.bytes};
    return __qel_copy_ostr(parameters_out, &encoded);
}

} // namespace

QelStatus __qel_gen_des3_key_from_pwd(QelContext *context, PassPhraseKeyInput *input, uint8_t **key,
                                      uint32_t *key_length, uint8_t **iv, uint32_t *iv_length) {
    const toolkit::TracesWiped traces;
    if (key == nullptr || key_length == nullptr || iv == nullptr || iv_length == nullptr)
        return QEL_ERR_BAD_PARAM;
    *key = nullptr;
    *key_length = 0;
    *iv = nullptr;
    *iv_length = 0;
    if (context == nullptr || input == nullptr || !is_complete(*input))
        return QEL_ERR_BAD_PARAM;
    const uint32_t half = input->salt_length / 2;
    part_halves(input->salt, half);
    qel::SecretBytes made_key = qel::allocate_secret(des3_key_size);
    qel::SecretBytes made_iv = qel::allocate_secret(iv_size);
    if (made_key == nullptr || made_iv == nullptr)
        return QEL_ERR_NO_MEMORY;

    // The ends of both chains, one behind the other, are the key and the vector.
    qel::SecretArray<des3_key_size + iv_size> derived;
    static_assert(sizeof derived.bytes == 2 * toolkit::md5_digest_size);
    toolkit::md5_chains(input->salt, half, bytes_of(input->pass_phrase),
                        std::strlen(input->pass_phrase), input->iteration_count, derived.bytes);
    std::memcpy(made_key.get(), derived.bytes, des3_key_size);
    std::memcpy(made_iv.get(), derived.bytes + des3_key_size, iv_size);
    *key = made_key.release();
    *key_length = des3_key_size;
    *iv = made_iv.release();
    *iv_length = iv_size;
    return QEL_OK;
}

QelStatus __qel_gen_des_key_from_pwd(QelContext *context, const QelAlgId *algorithm,
                                     const char *pass_phrase, uint8_t **key,
                                     QelOctetString **parameters) {
    const toolkit::TracesWiped traces;
    if (key == nullptr || parameters == nullptr)
        return QEL_ERR_BAD_PARAM;
    *key = nullptr;
    *parameters = nullptr;
    if (context == nullptr || algorithm == nullptr || pass_phrase == nullptr)
        return QEL_ERR_BAD_PARAM;
    Derivation *const derivation = find_derivation(algorithm);
    if (derivation == nullptr || algorithm->parameters == nullptr)
        return QEL_ERR_BAD_PARAM;
    const qel::Decoded<QelPBEParameter> parameter = qel::decode_pbe_parameter(context, algorithm);
    if (parameter == nullptr)
        return QEL_ERR_ASN1_DECODE;
    if (parameter->iterationCount == 0 || (*pass_phrase == '\0' && parameter->salt.length == 0))
        return QEL_ERR_BAD_PARAM;
    qel::SecretBytes made_key = qel::allocate_secret(des_key_size);
    if (made_key == nullptr)
        return QEL_ERR_NO_MEMORY;

    qel::SecretArray<digest_size> derived;
    derivation(pass_phrase, *parameter, derived.bytes);
    std::memcpy(made_key.get(), derived.bytes, des_key_size);
    for (uint32_t i = 1; i < des_key_size; i += 2)
        made_key.get()[i] &= 0x0F; // what the export policy allows of a DES key
    const QelStatus status = copy_iv(context, derived.bytes + des_key_size, parameters);
    if (status != QEL_OK)
        return status;
    *key = made_key.release();
    return QEL_OK;
}
