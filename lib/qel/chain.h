// chain.h: what comes of a chain of certificates.
#ifndef QEL_CHAIN_H
#define QEL_CHAIN_H

#include <qel/qelp.h>

namespace qel {

// What was met on the way up a chain.
struct ChainFindings {
    bool trusted_key_expired = false;
    const QelCert *expired = nullptr; // the first certificate that is not current

    // The trust test of one certificate.
    QelStatus test_trust(QelContext *context, const QelTrustedKeys *trusted_keys,
                         const QelCert *certificate);
    // What status comes to in the end: a failure is put down to an expired trusted key where there
    // was one, success is qualified by an expired certificate, of which the caller gets a copy.
    QelStatus conclude(QelStatus status, QelCert **expired_certificate) const;
};

} // namespace qel

#endif
