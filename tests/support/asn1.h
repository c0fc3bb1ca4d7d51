// asn1.h: a context with nothing but an ASN.1 environment, and owners of decoded values.
#ifndef TESTS_SUPPORT_ASN1_H
#define TESTS_SUPPORT_ASN1_H

#include "support/files.h"

#include <lib/context.h>
#include <qel/qelp.h>

#include <cstdlib>
#include <memory>

struct FreeAsn1Value {
    QelContext *context = nullptr;
    int pdu = 0;
    void operator()(void *value) const { __qel_asn1_free(context, value, pdu); }
};
template <class Record> using Asn1Value = std::unique_ptr<Record, FreeAsn1Value>;

// The decoded value; null when it is refused, with the status in *status.
template <class Record = void>
Asn1Value<Record> asn1_decode(QelContext *context, const Bytes &encoding, int pdu,
                              QelStatus *status = nullptr) {
    static const uint8_t nothing = 0;
    void *value = nullptr;
    const QelStatus result =
        __qel_asn1_decode(context, encoding.empty() ? &nothing : encoding.data(),
                          static_cast<uint32_t>(encoding.size()), pdu, &value);
    if (status != nullptr)
        *status = result;
    return {static_cast<Record *>(value), {context, pdu}};
}

// The encoding, in a buffer that the library allocated; empty when it is refused.
inline Bytes asn1_encode(QelContext *context, const void *value, int pdu,
                         QelStatus *status = nullptr) {
    uint8_t *buffer = nullptr;
    uint32_t length = 0;
    const QelStatus result = __qel_asn1_encode(context, value, pdu, &buffer, &length);
    if (status != nullptr)
        *status = result;
    Bytes encoding(buffer, buffer + length);
    std::free(buffer);
    return encoding;
}

class Asn1Context {
public:
    Asn1Context() {
        if (__qel_init_asn1(&context_) != QEL_OK)
            std::abort();
    }
    ~Asn1Context() { __qel_end_asn1(&context_); }
    Asn1Context(const Asn1Context &) = delete;
    Asn1Context &operator=(const Asn1Context &) = delete;
    QelContext *get() { return &context_; }

    template <class Record = void>
    Asn1Value<Record> decode(const Bytes &encoding, int pdu, QelStatus *status = nullptr) {
        return asn1_decode<Record>(&context_, encoding, pdu, status);
    }
    Bytes encode(const void *value, int pdu, QelStatus *status = nullptr) {
        return asn1_encode(&context_, value, pdu, status);
    }

private:
    QelContext context_ = {};
};

#endif
