// chain_search.cpp: the search for a chain that leads from a certificate to a trusted key.
//
// It is a walk in depth, from a certificate to each of its issuers in turn. Levels lie on the heap,
// not on the stack, since how deep they go is for the store to say.

#include "cert_array.h"
#include "chain.h"
#include "visits.h"

#include <new>

namespace {

// More than any store has above one certificate: who makes more wants to keep the search busy, or
// to fill the memory with the issuers of all levels of the path.
constexpr std::size_t most_issuers = 10000;

// A certificate on the path, and its issuers.
struct Level {
    Level *below = nullptr;
    Level *above = nullptr;
    const QelCert *certificate = nullptr; // the caller's, or one of the issuers below
    qel::Visit *visit = nullptr;
    bool expired = false;
    qel::CertArray issuers;
    int next = 0; // the issuer to try next
};

enum class State { searching, found, stopped };

struct Search {
    QelContext *context;
    const QelTrustedKeys *trusted_keys;
    const char *const *allowed_names; // or null
    State state = State::searching;
    qel::ChainFindings findings;
    Level *bottom = nullptr;
    Level *top = nullptr;
    std::size_t depth = 0;
    qel::Visits visits;
    std::size_t issuer_count = 0; // fetched until now

    Search(QelContext *given_context, const QelTrustedKeys *keys, const char *const *names)
        : context(given_context), trusted_keys(keys), allowed_names(names) {}
    Search(const Search &) = delete;
    Search &operator=(const Search &) = delete;
    ~Search() {
        while (top != nullptr)
            pop();
    }

    QelStatus stop(QelStatus status) {
        state = State::stopped;
        return status;
    }
    bool push(const QelCert *certificate, qel::Visit *visit) {
        void *block = std::malloc(sizeof(Level));
        if (block == nullptr)
            return false;
        auto *level = new (block) Level;
        level->below = top;
        level->certificate = certificate;
        level->visit = visit;
        (top != nullptr ? top->above : bottom) = level;
        top = level;
        ++depth;
        return true;
    }
    void pop() {
        Level *level = std::exchange(top, top->below);
        (top != nullptr ? top->above : bottom) = nullptr;
        level->~Level();
        std::free(level);
        --depth;
    }
};

QelStatus fetch_issuers(Search *search, Level *level) {
    if (search->issuer_count >= most_issuers)
        return search->stop(QEL_ERR_NO_CHAIN);
    char *text = nullptr;
    QelStatus status = qel_dn2str(search->context, level->certificate->issuer, &text);
    const qel::Owned<char> name(text);
    if (status != QEL_OK)
        return status;
    QelCert *records = nullptr;
    int count = 0;
    status = qel_get_cert(search->context, name.get(), &records, &count);
    level->issuers.reset(records, count);
    search->issuer_count += level->issuers.certs().size();
    if (status == QEL_OK)
        return QEL_ERR_NO_CHAIN; // where there are none
    return status;
}

QelStatus verify(const Search &search, Level *level, const QelKeyInfo *issuer_key) {
    const QelStatus status = qel_verify_cert(search.context, level->certificate, issuer_key);
    if (status != QEL_ERR_KEY_EXPIRED)
        return status;
    level->expired = true;
    return QEL_OK;
}

// Whether a chain may end at a certificate. QEL_ERR_NO_ENTRY: it may not.
QelStatus is_allowed(const Search &search, const QelCert *certificate) {
    if (search.allowed_names == nullptr)
        return QEL_OK;
    return __qel_find_dn_in_list(search.allowed_names, certificate->subject);
}

QelStatus test_trust(Search *search, const QelCert *certificate) {
    const QelStatus status =
        search->findings.test_trust(search->context, search->trusted_keys, certificate);
    if (status == QEL_OK)
        search->state = State::found;
    return status;
}

QelStatus check_self_signed(Search *search, Level *level) {
    QelStatus status = is_allowed(*search, level->certificate);
    if (status == QEL_ERR_NO_ENTRY)
        return QEL_ERR_NO_CHAIN;
    if (status != QEL_OK)
        return search->stop(status);
    status = verify(*search, level, level->certificate->pubKeyInfo);
    return status == QEL_OK ? test_trust(search, level->certificate) : status;
}

// Goes on from a certificate, unless the search has been there. The status is what came of it as long
// as none of its issuers has been tried.
QelStatus open_level(Search *search, const QelCert *certificate) {
    bool is_new = false;
    qel::Visit *visit = search->visits.visit(search->context, certificate, &is_new);
    if (visit != nullptr && !is_new)
        return visit->outcome;
    if (visit == nullptr || !search->push(certificate, visit))
        return search->stop(QEL_ERR_NO_MEMORY);

    int difference = 0;
    const QelStatus status =
        __qel_cmp_dn(search->context, certificate->issuer, certificate->subject, &difference);
    if (status != QEL_OK)
        return status;
    return difference != 0 ? fetch_issuers(search, search->top)
                           : check_self_signed(search, search->top);
}

// An issuer whose key does not verify the certificate ends the search, whatever others there are.
QelStatus try_issuer(Search *search, Level *level, const QelCert *issuer) {
    QelStatus status = verify(*search, level, issuer->pubKeyInfo);
    if (status != QEL_OK)
        return search->stop(status);
    status = is_allowed(*search, issuer);
    if (status != QEL_OK && status != QEL_ERR_NO_ENTRY)
        return search->stop(status);
    if (status == QEL_OK && test_trust(search, issuer) == QEL_OK)
        return QEL_OK;
    return open_level(search, issuer);
}

// The search from a certificate to the first trusted key. What lies on the path when one is found is
// the chain.
QelStatus run(Search *search, const QelCert *certificate) {
    QelStatus status = open_level(search, certificate);
    while (search->state == State::searching && search->top != nullptr) {
        Level *level = search->top;
        if (status == QEL_ERR_NO_MEMORY)
            return status;
        if (level->next < level->issuers.count()) {
            status = try_issuer(search, level, level->issuers.records() + level->next++);
        } else {
            level->visit->outcome = status;
            search->pop();
        }
    }
    return status;
}

QelStatus copy_path(Search *search, qel::CertArray *chain) {
    QelStatus status = chain->make(search->depth);
    for (const Level *level = search->bottom; level != nullptr && status == QEL_OK;
         level = level->above) {
        status = chain->add_copy(level->certificate);
        if (level->expired && search->findings.expired == nullptr)
            search->findings.expired = level->certificate;
    }
    return status;
}

} // namespace

QelStatus qel_verify_cert_est_chain(QelContext *context, const QelCert *certificate,
                                    const QelTrustedKeys *trusted_keys,
                                    const char *const *allowed_names, int,
                                    QelCert **expired_certificate, QelCert **chain,
                                    int *chain_count) {
    if (expired_certificate != nullptr)
        *expired_certificate = nullptr;
    if (chain != nullptr)
        *chain = nullptr;
    if (chain_count != nullptr)
        *chain_count = 0;
    if (context == nullptr || certificate == nullptr || trusted_keys == nullptr ||
        chain == nullptr || chain_count == nullptr)
        return QEL_ERR_BAD_PARAM;
    Search search(context, trusted_keys, allowed_names);
    qel::CertArray path;
    QelStatus status = run(&search, certificate);
    if (status == QEL_OK)
        status = copy_path(&search, &path);
    status = search.findings.conclude(status, expired_certificate);
    if (status == QEL_OK || status == QEL_ERR_KEY_EXPIRED)
        path.hand_over(chain, chain_count);
    return status;
}
