#include "message_certs.h"

#include <algorithm>
#include <cstring>

#include <asn1/dn.h>

namespace {

// The form in which names are equal when their strings are: it has no letters in lower case.
constexpr int escaped = 1;

// A certificate in the order of the message, and its names as they are compared.
struct Row {
    const QelCert *certificate;
    char *subject;
    char *issuer;
    std::size_t from_top; // its first place in the chain; 0: none, or the top
};

using NameOfRow = char *Row::*;

// Rows sorted by one of the names, rows of the same name in their own order. A message may hold any
// number of certificates: to compare each with each would take too long.
class Index {
public:
    QelStatus make(std::span<const Row> rows, NameOfRow name) {
        name_ = name;
        count_ = rows.size();
        rows_.reset(static_cast<const Row **>(std::calloc(count_, sizeof(const Row *))));
        if (rows_ == nullptr)
            return QEL_ERR_NO_MEMORY;
        for (std::size_t i = 0; i < count_; ++i)
            rows_.get()[i] = &rows[i];
        std::sort(rows_.get(), rows_.get() + count_, [name](const Row *a, const Row *b) {
            const int order = std::strcmp(a->*name, b->*name);
            return order != 0 ? order < 0 : a < b;
        });
        return QEL_OK;
    }
    // The first row with that name, but for one; null when there is none.
    const Row *find(const char *wanted, const Row *except) const {
        const Row *const *end = rows_.get() + count_;
        const Row *const *at = std::lower_bound(rows_.get(), rows_.get() + count_, wanted,
                                                [this](const Row *row, const char *text) {
                                                    return std::strcmp(row->*name_, text) < 0;
                                                });
        if (at != end && *at == except)
            ++at;
        return at != end && std::strcmp((*at)->*name_, wanted) == 0 ? *at : nullptr;
    }

private:
    NameOfRow name_ = nullptr;
    qel::Owned<const Row *> rows_;
    std::size_t count_ = 0;
};

class Rows {
public:
    Rows() = default;
    Rows(const Rows &) = delete;
    Rows &operator=(const Rows &) = delete;
    ~Rows() {
        for (std::size_t i = 0; i < count_; ++i) {
            std::free(rows_.get()[i].subject);
            std::free(rows_.get()[i].issuer);
        }
    }
    QelStatus make(QelContext *context, std::span<const QelCert> certs) {
        rows_.reset(static_cast<Row *>(std::calloc(certs.size(), sizeof(Row))));
        if (rows_ == nullptr)
            return QEL_ERR_NO_MEMORY;
        for (const QelCert &certificate : certs) {
            Row &row = rows_.get()[count_++];
            row.certificate = &certificate;
            QelStatus status = normalise_dn(context, certificate.subject, escaped, &row.subject);
            if (status == QEL_OK)
                status = normalise_dn(context, certificate.issuer, escaped, &row.issuer);
            if (status != QEL_OK)
                return status;
        }
        return QEL_OK;
    }
    std::span<const Row> all() const { return {rows_.get(), count_}; }
    Row &at(const Row *row) { return rows_.get()[row - rows_.get()]; }

private:
    qel::Owned<Row> rows_;
    std::size_t count_ = 0;
};

const Row *find_top(const Rows &rows, const Index &by_subject) {
    for (const Row &row : rows.all())
        if (by_subject.find(row.issuer, &row) == nullptr)
            return &row;
    return nullptr;
}

} // namespace

QelStatus qel::MessageCerts::take(const QelCertChoices *certs) {
    std::size_t count = 0;
    for (const QelCertChoices *node = certs; node != nullptr; node = node->next, ++count)
        if (node->cert->choice != QEL_CERT_PLAIN)
            return QEL_ERR_BAD_PARAM;
    if (count == 0 || count > INT32_MAX)
        return QEL_ERR_BAD_PARAM;
    certs_.reset(static_cast<QelCert *>(std::calloc(count, sizeof(QelCert))));
    if (certs_ == nullptr)
        return QEL_ERR_NO_MEMORY;
    for (const QelCertChoices *node = certs; node != nullptr; node = node->next)
        certs_.get()[count_++] = *node->cert->u.cert;
    return QEL_OK;
}

QelStatus qel::MessageCerts::order(QelContext *context) {
    Rows rows;
    Index by_subject, by_issuer;
    QelStatus status = rows.make(context, chain());
    if (status == QEL_OK)
        status = by_subject.make(rows.all(), &Row::subject);
    if (status == QEL_OK)
        status = by_issuer.make(rows.all(), &Row::issuer);
    if (status != QEL_OK)
        return status;
    Owned<QelCert> ordered(static_cast<QelCert *>(std::calloc(count_, sizeof(QelCert))));
    if (ordered == nullptr)
        return QEL_ERR_NO_MEMORY;

    const Row *const top = find_top(rows, by_subject);
    const Row *placed = top;
    std::size_t period = 0;
    for (std::size_t i = 0; i < count_; ++i) {
        if (placed == nullptr)
            return QEL_ERR_BAD_PARAM;
        ordered.get()[count_ - 1 - i] = *placed->certificate;
        std::size_t &first = rows.at(placed).from_top;
        if (first == 0) {
            first = i;
        } else if (period == 0) {
            // Below here are the same again and again, in rounds of which whole ones can be left out.
            period = i - first;
            repeated_ = (count_ - 1 - i) / period * period;
        }
        placed = by_issuer.find(placed->subject, top);
    }
    certs_ = std::move(ordered);
    return QEL_OK;
}
