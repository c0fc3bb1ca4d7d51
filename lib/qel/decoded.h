// decoded.h: values that were decoded, and their release.
#ifndef QEL_DECODED_H
#define QEL_DECODED_H

#include <cstdint>
#include <memory>

#include <qel/qelp.h>

namespace qel {

struct FreeDecoded {
    QelContext *context = nullptr;
    int pdu = 0;
    void operator()(void *value) const { __qel_asn1_free(context, value, pdu); }
};

// A value as the decoder made it, every part its own and zeroed when it goes.
template <class T> using Decoded = std::unique_ptr<T, FreeDecoded>;

// Null when it cannot be decoded; data may be null.
template <class T>
Decoded<T> decode(QelContext *context, const uint8_t *data, uint32_t length, int pdu) {
    void *value = nullptr;
    if (__qel_asn1_decode(context, data, length, pdu, &value) != QEL_OK)
        value = nullptr;
    return {static_cast<T *>(value), {context, pdu}};
}

// The parameters of password-based encryption (PKCS#5); null when there are none, or others.
inline Decoded<QelPBEParameter> decode_pbe_parameter(QelContext *context,
                                                     const QelAlgId *algorithm) {
    const QelOctetString *parameters = algorithm->parameters;
    if (parameters == nullptr)
        return {};
    return decode<QelPBEParameter>(context, parameters->value, parameters->length,
                                   QEL_PDU_PBEParameter);
}

} // namespace qel

#endif
