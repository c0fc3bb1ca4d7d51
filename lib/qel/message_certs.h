// message_certs.h: the certificates that come with a message, which stand there in any order.
#ifndef QEL_MESSAGE_CERTS_H
#define QEL_MESSAGE_CERTS_H

#include <span>

#include <lib/memory.h>
#include <qel/qelp.h>

namespace qel {

class MessageCerts {
public:
    // Borrows the certificates of a message. QEL_ERR_BAD_PARAM: none, or one of another kind.
    // QEL_ERR_NO_MEMORY.
    QelStatus take(const QelCertChoices *certs);

    // Puts several into the order of a chain: last the top, which is the first whose issuer is the
    // subject of no other; before each, the first but the top that names it as its issuer.
    // QEL_ERR_BAD_PARAM: there is no top, or none to go on with. What __qel_cmp_dn returns;
    // QEL_ERR_NO_MEMORY.
    QelStatus order(QelContext *context);

    // In the order of the message, or after order() in that of the chain. What the records point to
    // is the message's.
    std::span<const QelCert> chain() const { return {certs_.get(), count_}; }

    // The chain for its verification. One certificate may be in many places of it, which a message can
    // make as costly as it likes: here it is in two at most, and what comes of the chain is the same.
    std::span<const QelCert> without_rounds() const { return chain().subspan(repeated_); }

private:
    Owned<QelCert> certs_;
    std::size_t count_ = 0;
    std::size_t repeated_ = 0; // how many places at the end of the chain are whole rounds
};

} // namespace qel

#endif
