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

// Gives a context to another operation while this lives, then puts back what was under way.
class SetAside {
public:
    explicit SetAside(QelContext *context)
        : context_(context), session_(context->session),
          digest_algorithm_(context->digest_algorithm), multi_part_(context->multi_part) {
        context->session = nullptr;
        context->multi_part = 0;
    }
    ~SetAside() {
        context_->session = session_;
        context_->digest_algorithm = digest_algorithm_;
        context_->multi_part = multi_part_;
    }
    SetAside(const SetAside &) = delete;
    SetAside &operator=(const SetAside &) = delete;

private:
    QelContext *context_;
    CK_SESSION_HANDLE session_;
    const QelAlgId *digest_algorithm_;
    uintptr_t multi_part_;
};

} // namespace qel

#endif
