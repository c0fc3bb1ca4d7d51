#include <cryptoki/generate.h>
#include <cryptoki/template.h>

#include <cstring>
#include <ctime>

#include <lib/memory.h>
#include <util/toolkit_binding.h>

using namespace toolkit;

namespace {

CK_RV read_parameters(const CK_ATTRIBUTE *attributes, uint32_t count,
                      A_RSA_KEY_GEN_PARAMS *parameters) {
    ITEM bits = {};
    CK_RV result = get_item_from_template(attributes, count, CKA_MODULUS_BITS, &bits);
    if (result != CKR_OK)
        return result;
    if (bits.len != sizeof parameters->modulusBits)
        return CKR_DATA_INVALID;
    std::memcpy(&parameters->modulusBits, bits.data, sizeof parameters->modulusBits);
    return get_item_from_template(attributes, count, CKA_PUBLIC_EXPONENT,
                                  &parameters->publicExponent);
}

CK_RV make_private_object(CK_SESSION_HANDLE session, B_KEY_OBJ key, OwnedObject *object_out) {
    POINTER numbers = nullptr;
    CK_ATTRIBUTE *attributes = nullptr;
    uint32_t count = 0;
    if (B_GetKeyInfo(&numbers, key, KI_PKCS_RSAPrivate) != 0)
        return CKR_TEMPLATE_INCONSISTENT;
    const CK_RV result = pkcsRsaPrivate_2_PkcsRsaPrivateTemplate(
        static_cast<const A_PKCS_RSA_PRIVATE_KEY *>(numbers), &attributes, &count);
    if (result != CKR_OK)
        return result;
    return make_object(session, own_template(attributes, count), object_out);
}

CK_RV make_public_object(CK_SESSION_HANDLE session, B_KEY_OBJ key, OwnedObject *object_out) {
    POINTER numbers = nullptr;
    CK_ATTRIBUTE *attributes = nullptr;
    uint32_t count = 0;
    if (B_GetKeyInfo(&numbers, key, KI_RSAPublic) != 0)
        return CKR_TEMPLATE_INCONSISTENT;
    const CK_RV result =
        rsaKey_2_RsaKeyTemplate(static_cast<const A_RSA_KEY *>(numbers), &attributes, &count);
    if (result != CKR_OK)
        return result;
    return make_object(session, own_template(attributes, count), object_out);
}

} // namespace

CK_RV C_GenerateKey(CK_SESSION_HANDLE, const CK_MECHANISM *, const CK_ATTRIBUTE *, uint32_t,
                    CK_OBJECT_HANDLE *) {
    return CKR_DATA_INVALID;
}

CK_RV C_GenerateKeyPair(CK_SESSION_HANDLE session, const CK_MECHANISM *mechanism,
                        const CK_ATTRIBUTE *public_attributes, uint32_t public_count,
                        const CK_ATTRIBUTE *, uint32_t, CK_OBJECT_HANDLE *private_key_out,
                        CK_OBJECT_HANDLE *public_key_out) {
    if (session == nullptr)
        return CKR_SESSION_HANDLE_INVALID;
    if (public_attributes == nullptr || public_count == 0)
        return CKR_TEMPLATE_INCOMPLETE;
    if (mechanism == nullptr || mechanism->mechanism != CKM_RSA_PKCS_KEY_PAIR_GEN)
        return CKR_MECHANISM_INVALID;
    if (private_key_out == nullptr || public_key_out == nullptr)
        return CKR_DATA_INVALID;
    *private_key_out = nullptr;
    *public_key_out = nullptr;

    A_RSA_KEY_GEN_PARAMS parameters = {};
    CK_RV result = read_parameters(public_attributes, public_count, &parameters);
    if (result != CKR_OK)
        return result;
    B_KEY_OBJ public_key = nullptr;
    B_KEY_OBJ private_key = nullptr;
    result = rsa_createkey(session, &parameters, &public_key, &private_key);
    if (result != CKR_OK)
        return result;
    const OwnedKey owned_public(public_key);
    const OwnedKey owned_private(private_key);

    OwnedObject private_object;
    OwnedObject public_object;
    result = make_private_object(session, private_key, &private_object);
    if (result == CKR_OK)
        result = make_public_object(session, public_key, &public_object);
    if (result != CKR_OK)
        return result;
    *private_key_out = private_object.release();
    *public_key_out = public_object.release();
    return CKR_OK;
}

CK_RV rsa_createkey(CK_SESSION_HANDLE session, const A_RSA_KEY_GEN_PARAMS *parameters,
                    B_KEY_OBJ *public_key_out, B_KEY_OBJ *private_key_out) {
    B_ALGORITHM_OBJ algorithm = nullptr;
    if (B_CreateAlgorithmObject(&algorithm) != 0)
        return CKR_MECHANISM_PARAM_INVALID;
    const OwnedAlgorithm owned(algorithm);
    if (B_SetAlgorithmInfo(algorithm, AI_RSAKeyGen, parameters) != 0)
        return CKR_MECHANISM_PARAM_INVALID;
    const CK_RV result = gen_random_alg(session);
    if (result != CKR_OK)
        return result;

    B_KEY_OBJ created = nullptr;
    if (B_CreateKeyObject(&created) != 0)
        return CKR_MECHANISM_INVALID;
    OwnedKey public_key(created);
    if (B_CreateKeyObject(&created) != 0)
        return CKR_MECHANISM_INVALID;
    OwnedKey private_key(created);

    auto last_step = static_cast<int32_t>(std::time(nullptr));
    const SurrenderContext surrender = {GenKeySurrenderFunction, &last_step, nullptr};
    if (B_GenerateInit(algorithm, chooser, nullptr) != 0 ||
        B_GenerateKeypair(algorithm, public_key.get(), private_key.get(), session->random,
                          &surrender) != 0)
        return CKR_MECHANISM_INVALID;
    *public_key_out = public_key.release();
    *private_key_out = private_key.release();
    return CKR_OK;
}
