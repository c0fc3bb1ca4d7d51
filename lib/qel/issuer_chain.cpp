// issuer_chain.cpp: the chain of issuers above a certificate, out of the naming service.

#include "cert_array.h"
#include "visits.h"

namespace {

// More than any hierarchy of authorities has; a longer chain was made to exhaust the stack.
constexpr int longest_chain = 1000;

// More than any store has above one certificate: the issuers of all steps of the way are in memory.
constexpr std::size_t most_issuers = 10000;

struct Search {
    QelContext *context;
    const char *const *trusted_names; // or null
    qel::Visits visits = {};
    std::size_t issuer_count = 0; // fetched until now
};

QelStatus climb(Search *search, const QelCert *certificate, int depth, qel::CertArray *chain);

QelStatus try_issuer(Search *search, const QelCert *certificate, const QelCert *issuer, int depth,
                     qel::CertArray *chain) {
    QelStatus status = qel_verify_cert(search->context, certificate, issuer->pubKeyInfo);
    if (status != QEL_OK)
        return status;
    if (search->trusted_names != nullptr) {
        status = __qel_find_dn_in_list(search->trusted_names, certificate->subject);
        if (status != QEL_ERR_NO_ENTRY)
            return status; // QEL_OK: the chain ends here
    }
    return climb(search, issuer, depth + 1, chain);
}

// The chain above a certificate: that of the first of its issuers which has one.
QelStatus find_issuer(Search *search, const QelCert *certificate, int depth,
                      qel::CertArray *chain) {
    if (search->issuer_count >= most_issuers)
        return QEL_ERR_NO_CHAIN;
    char *name = nullptr;
    QelStatus status = qel_dn2str(search->context, certificate->issuer, &name);
    const qel::Owned<char> owned_name(name);
    if (status != QEL_OK)
        return status;
    QelCert *records = nullptr;
    int count = 0;
    status = qel_get_cert(search->context, name, &records, &count);
    qel::CertArray issuers;
    issuers.reset(records, count);
    search->issuer_count += issuers.certs().size();
    if (status != QEL_OK)
        return status;
    status = QEL_ERR_NO_CHAIN;
    for (const QelCert &issuer : issuers.certs()) {
        status = try_issuer(search, certificate, &issuer, depth, chain);
        if (status == QEL_OK || status == QEL_ERR_NO_MEMORY)
            break;
    }
    return status;
}

QelStatus check_self_signed(const Search *search, const QelCert *certificate) {
    if (search->trusted_names != nullptr) {
        const QelStatus status = __qel_find_dn_in_list(search->trusted_names, certificate->subject);
        if (status == QEL_ERR_NO_ENTRY)
            return QEL_ERR_VERIFY;
        if (status != QEL_OK)
            return status;
    }
    return qel_verify_cert(search->context, certificate, certificate->pubKeyInfo);
}

QelStatus climb_from(Search *search, const QelCert *certificate, int depth, qel::CertArray *chain) {
    int difference = 0;
    QelStatus status =
        __qel_cmp_dn(search->context, certificate->subject, certificate->issuer, &difference);
    if (status != QEL_OK)
        return status;
    status = difference != 0 ? find_issuer(search, certificate, depth, chain)
                             : check_self_signed(search, certificate);
    if (status != QEL_OK)
        return status;
    QelCert *longer = nullptr;
    int count = 0;
    status =
        __qel_append_cert_to_chain(certificate, chain->records(), chain->count(), &longer, &count);
    if (status == QEL_OK)
        chain->reset(longer, count);
    return status;
}

// The chain that begins with a certificate; chain is empty, and stays so on failure.
QelStatus climb(Search *search, const QelCert *certificate, int depth, qel::CertArray *chain) {
    if (depth > longest_chain)
        return QEL_ERR_NO_CHAIN;
    bool is_new = false;
    qel::Visit *visit = search->visits.visit(search->context, certificate, &is_new);
    if (visit == nullptr)
        return QEL_ERR_NO_MEMORY;
    if (!is_new)
        return visit->outcome;
    visit->outcome = climb_from(search, certificate, depth, chain);
    if (visit->outcome != QEL_OK)
        chain->reset(nullptr, 0);
    return visit->outcome;
}

} // namespace

QelStatus qel_get_cert_chain(QelContext *context, const QelCert *certificate,
                             const char *const *trusted_names, int, QelCert **chain_out,
                             int *count_out) {
    if (chain_out == nullptr || count_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *chain_out = nullptr;
    *count_out = 0;
    if (context == nullptr || certificate == nullptr)
        return QEL_ERR_BAD_PARAM;
    Search search = {context, trusted_names};
    qel::CertArray chain;
    const QelStatus status = climb(&search, certificate, 1, &chain);
    if (status == QEL_OK)
        chain.hand_over(chain_out, count_out);
    return status;
}
