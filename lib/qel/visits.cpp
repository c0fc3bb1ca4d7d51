#include "visits.h"

#include <cstring>
#include <utility>

#include "signature.h"

qel::Visits::~Visits() {
    while (first_ != nullptr) {
        Visit *visit = std::exchange(first_, first_->next);
        std::free(visit->encoding);
        std::free(visit);
    }
}

qel::Visit *qel::Visits::visit(QelContext *context, const QelCert *certificate, bool *is_new) {
    Owned<uint8_t> encoding;
    uint32_t length = 0;
    if (encode(context, certificate, QEL_PDU_Certificate, &encoding, &length) == QEL_ERR_NO_MEMORY)
        return nullptr;
    *is_new = false;
    for (Visit *visit = first_; visit != nullptr && length != 0; visit = visit->next)
        if (visit->length == length && std::memcmp(visit->encoding, encoding.get(), length) == 0)
            return visit;
    auto *visit = allocate<Visit>();
    if (visit == nullptr)
        return nullptr;
    *is_new = true;
    *visit = {first_, encoding.release(), length, QEL_ERR_NO_CHAIN};
    return first_ = visit;
}
