// operation.h: whose the token session of a context is. Digests and ciphers share it.
#ifndef QEL_OPERATION_H
#define QEL_OPERATION_H

#include <cryptoki/session.h>
#include <lib/context.h>

namespace qel {

// An encryption or decryption is under way. Digests run without a mechanism on record.
inline bool cipher_under_way(const QelContext *context) {
    return context->session != nullptr && context->session->mechanism != 0;
}

inline bool digest_under_way(const QelContext *context) {
    return context->session != nullptr && context->session->mechanism == 0;
}

} // namespace qel

#endif
