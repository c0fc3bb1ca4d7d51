// rc2_params.cpp: the parameters of RC2 in CBC mode (RFC 2268): effective key size and
// initialisation vector, to and from the encoding that an algorithm identifier carries.

#include <lib/memory.h>
#include <qel/qelp.h>
#include <toolkit/toolkit.h>

using namespace toolkit;

namespace {

struct DestroyAlgorithm {
    void operator()(AlgorithmObject *object) const { B_DestroyAlgorithmObject(&object); }
};
using OwnedAlgorithm = std::unique_ptr<AlgorithmObject, DestroyAlgorithm>;
using OwnedAlgId = qel::Record<QelAlgId, __qel_free_algid>;
using OwnedOctetString = qel::Record<QelOctetString, __qel_free_ostr>;

// Sets an algorithm object from info and reads its info back as another type. *converted belongs to
// *object.
template <class T>
QelStatus convert_info(B_INFO_TYPE from, POINTER info, B_INFO_TYPE to, OwnedAlgorithm *object,
                       const T **converted) {
    B_ALGORITHM_OBJ made = nullptr;
    if (B_CreateAlgorithmObject(&made) != 0)
        return QEL_ERR_NO_MEMORY;
    object->reset(made);
    POINTER result = nullptr;
    int error = B_SetAlgorithmInfo(made, from, info);
    if (error == 0)
        error = B_GetAlgorithmInfo(&result, made, to);
    if (error != 0)
        return error == BE_ALLOC ? QEL_ERR_NO_MEMORY : QEL_ERR_BAD_PARAM;
    *converted = static_cast<const T *>(result);
    return QEL_OK;
}

} // namespace

QelStatus __qel_encode_rc2_params_cpkit(QelContext *context, const uint8_t *iv,
                                        uint32_t effective_bits, QelOctetString **out) {
    if (out != nullptr)
        *out = nullptr;
    if (context == nullptr || iv == nullptr || effective_bits == 0 || out == nullptr)
        return QEL_ERR_BAD_PARAM;

    const A_RC2_CBC_PARAMS info = {effective_bits, iv};
    OwnedAlgorithm object;
    const ITEM *encoding = nullptr;
    if (const QelStatus status =
            convert_info(AI_RC2_CBCPad, &info, AI_RC2_CBCPadBER, &object, &encoding);
        status != QEL_OK)
        return status;
    void *decoded = nullptr;
    if (const QelStatus status =
            __qel_asn1_decode(context, encoding->data, encoding->len, QEL_PDU_AlgID, &decoded);
        status != QEL_OK)
        return status;
    const OwnedAlgId algorithm(static_cast<QelAlgId *>(decoded));
    if (algorithm->parameters == nullptr)
        return QEL_ERR_BAD_PARAM;

    const QelOctetString &parameters = *algorithm->parameters;
    OwnedOctetString copy(qel::allocate<QelOctetString>());
    if (!copy)
        return QEL_ERR_NO_MEMORY;
    copy->value = qel::allocate_bytes(parameters.length);
    if (copy->value == nullptr)
        return QEL_ERR_NO_MEMORY;
    std::memcpy(copy->value, parameters.value, parameters.length);
    copy->length = parameters.length;
    *out = copy.release();
    return QEL_OK;
}

QelStatus __qel_get_effective_keysize(QelContext *context, const QelOctetString *params,
                                      uint32_t *out_bits) {
    if (out_bits != nullptr)
        *out_bits = 0;
    if (context == nullptr || params == nullptr || out_bits == nullptr)
        return QEL_ERR_BAD_PARAM;

    const QelAlgId algorithm = {const_cast<QelOid *>(QEL_RC2_CBC_OID),
                                const_cast<QelOctetString *>(params)};
    uint8_t *bytes = nullptr;
    uint32_t length = 0;
    if (const QelStatus status =
            __qel_asn1_encode(context, &algorithm, QEL_PDU_AlgID, &bytes, &length);
        status != QEL_OK)
        return status;
    const qel::Owned<uint8_t> encoding(bytes);
    const ITEM item = {bytes, length};
    OwnedAlgorithm object;
    const A_RC2_CBC_PARAMS *info = nullptr;
    if (const QelStatus status =
            convert_info(AI_RC2_CBCPadBER, &item, AI_RC2_CBCPad, &object, &info);
        status != QEL_OK)
        return status;
    *out_bits = info->effectiveKeyBits;
    return QEL_OK;
}
