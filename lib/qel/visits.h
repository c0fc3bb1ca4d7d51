// visits.h: the certificates that a search for a chain has been at. Certificates may certify one another in
// circles; what comes of one does not depend on the way that led to it.
#ifndef QEL_VISITS_H
#define QEL_VISITS_H

#include <lib/memory.h>
#include <qel/qelp.h>

namespace qel {

struct Visit {
    Visit *next;
    uint8_t *encoding; // or null
    uint32_t length;
    // As long as it is not known it is QEL_ERR_NO_CHAIN: to meet the certificate again above itself
    // leads nowhere.
    QelStatus outcome;
};

class Visits {
public:
    Visits() = default;
    Visits(const Visits &) = delete;
    Visits &operator=(const Visits &) = delete;
    ~Visits();

    // The visit to a certificate, *is_new when there was none before. Certificates are the same when their
    // encodings are; one that has none is new each time, and no key will verify it. Null: no memory.
    Visit *visit(QelContext *context, const QelCert *certificate, bool *is_new);

private:
    Visit *first_ = nullptr;
};

} // namespace qel

#endif
