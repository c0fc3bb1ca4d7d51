#include "trusted.h"

#include "certificate_text.h"
#include "key_package.h"
#include "repository.h"
#include "text.h"
#include "texts.h"

namespace tool {
namespace {

// A library's array of certificates, released when it goes.
struct CertArray {
    QelCert *first = nullptr;
    int count = 0;
    CertArray() = default;
    CertArray(const CertArray &) = delete;
    CertArray &operator=(const CertArray &) = delete;
    ~CertArray() { qel_free_cert_list(&first, count); }
};

std::string subject_of(const QelCert *certificate) {
    return in_quotes(name_text(certificate->subject));
}

// Whether the certificate is a trusted key: one text of two, the status as the last of their values.
std::string trust_words(QelContext *context, const QelCert *certificate, const TrustedKeys &trusted,
                        Text yes, Text no, std::vector<std::string> values) {
    const QelStatus status = __qel_is_trusted_key(context, trusted.list(), certificate);
    values.push_back(status_words(status));
    return text_of(status == QEL_OK ? yes : no, values);
}

std::string trust_line(QelContext *context, const QelCert *certificate,
                       const TrustedKeys &trusted) {
    return trust_words(context, certificate, trusted, Text::is_trusted, Text::is_not_trusted,
                       {subject_of(certificate)});
}

std::string signature_words(QelStatus status) {
    return status == QEL_OK ? text_of(Text::signature_good) : status_words(status);
}

// An array of certificates side by side, as the library takes a chain; the records stay the
// caller's.
std::vector<QelCert> side_by_side(const std::vector<const QelCert *> &chain) {
    std::vector<QelCert> array;
    for (const QelCert *certificate : chain)
        array.push_back(*certificate);
    return array;
}

std::string taken_subject(QelCert *expired, Charset charset) {
    if (expired == nullptr)
        return "";
    const std::string subject = name_text(expired->subject, charset);
    qel_free_cert(&expired);
    return subject;
}

} // namespace

TrustedKeys::~TrustedKeys() {
    while (list_ != nullptr) {
        QelTrustedKeys *const node = list_;
        list_ = node->next;
        __qel_free_trusted_key(&node->key);
        std::free(node);
    }
}

void TrustedKeys::add(const QelTrustedKey &key) {
    const QelStatus status = __qel_add_trusted_key(context_, &key, &list_);
    if (status != QEL_OK && status != QEL_ERR_ENTRY_EXISTS)
        throw library_failure(status, text_of(Text::cannot_take_trusted_key));
}

void TrustedKeys::add_keys_of(const QelKeyPkg &package) {
    for (const QelTrustedKeys *node = package.tKeys; node != nullptr; node = node->next)
        add(*node->key);
}

void TrustedKeys::add_file(const std::string &path) {
    const Input input = read_input(path);
    const std::vector<StoredPackage> packages = packages_of(context_, input);
    for (const StoredPackage &package : packages) {
        const QelStatus status = signature_status(context_, package);
        if (status != QEL_OK)
            throw library_failure(status, text_of(Text::signature_of_package_in, {package.where}));
        add_keys_of(*package.record);
    }
    if (list_ == nullptr && !packages.empty())
        throw Failure{Exit::no, text_of(Text::cannot_take_trusted_keys, {display_name(path)}),
                      text_of(Text::list_is_empty), text_of(Text::add_keys_or_file)};
    if (!packages.empty())
        return;
    for (const Certificate &certificate : certificates_of(context_, input)) {
        const QelCert &cert = *certificate.record;
        QelOctetString serial = {cert.serial.length, cert.serial.value};
        QelTrustedKey key = {};
        key.owner = cert.subject;
        key.pubKeyInfo = cert.pubKeyInfo;
        key.issuer = cert.issuer;
        key.validity = cert.validity;
        key.serial = &serial;
        add(key);
    }
}

bool same_name(QelContext *context, const QelName *a, const QelName *b) {
    int difference = 1;
    return __qel_cmp_dn(context, a, b, &difference) == QEL_OK && difference == 0;
}

ChainVerdict verify_chain(QelContext *context, const std::vector<const QelCert *> &chain,
                          const TrustedKeys &trusted, Charset charset) {
    const std::vector<QelCert> array = side_by_side(chain);
    QelCert *expired = nullptr;
    ChainVerdict verdict;
    verdict.status = qel_verify_cert_chain(context, array.data(), static_cast<int>(array.size()),
                                           trusted.list(), &expired);
    verdict.expired = taken_subject(expired, charset);
    return verdict;
}

ChainVerdict establish_chain(QelContext *context, const QelCert *certificate,
                             const TrustedKeys &trusted, const std::vector<std::string> &allowed,
                             Charset charset) {
    const std::vector<const char *> names = name_list(allowed);
    QelCert *expired = nullptr, *chain = nullptr;
    int count = 0;
    ChainVerdict verdict;
    verdict.status = qel_verify_cert_est_chain(context, certificate, trusted.list(),
                                               allowed.empty() ? nullptr : names.data(), 0,
                                               &expired, &chain, &count);
    verdict.expired = taken_subject(expired, charset);
    verdict.chain = certificates_from(context, chain, count, text_of(Text::the_chain));
    return verdict;
}

std::vector<std::string> explain_chain(QelContext *context,
                                       const std::vector<const QelCert *> &chain,
                                       const TrustedKeys &trusted) {
    std::vector<std::string> lines;
    if (chain.size() == 1)
        return {trust_words(context, chain[0], trusted, Text::alone_trusted,
                            Text::alone_not_trusted, {subject_of(chain[0])})};
    for (std::size_t i = 1; i < chain.size(); ++i) {
        const QelStatus status = qel_verify_cert(context, chain[i - 1], chain[i]->pubKeyInfo);
        lines.push_back(text_of(Text::under_key_of, {subject_of(chain[i - 1]), subject_of(chain[i]),
                                                     signature_words(status)}));
        if (status != QEL_OK && status != QEL_ERR_KEY_EXPIRED)
            return lines;
        lines.push_back(trust_line(context, chain[i], trusted));
        if (__qel_is_trusted_key(context, trusted.list(), chain[i]) == QEL_OK)
            return lines;
    }
    return lines;
}

namespace {

// Goes the library's way through the naming service, to tell what it meets. The store may lead in
// circles, so neither the depth nor the number of lines grows without end.
class Search {
public:
    Search(QelContext *context, const TrustedKeys &trusted, const std::vector<std::string> &allowed)
        : context_(context), trusted_(trusted), names_(name_list(allowed)),
          limited_(!allowed.empty()) {}

    // Whether the search succeeds at this certificate.
    bool visit(const QelCert *certificate, unsigned depth) {
        indent_ = std::string(2 * std::size_t{depth}, ' ');
        if (depth > most_depth || lines.size() > most_lines) {
            say(text_of(Text::and_so_on));
            ended_ = true;
            return false;
        }
        return same_name(context_, certificate->subject, certificate->issuer)
                   ? visit_root(certificate)
                   : visit_issuers(certificate, depth);
    }

    std::vector<std::string> lines;

private:
    static constexpr unsigned most_depth = 32;
    static constexpr std::size_t most_lines = 500;

    void say(const std::string &text) { lines.push_back(indent_ + text); }

    bool is_allowed(const QelName *name) const {
        return !limited_ || __qel_find_dn_in_list(names_.data(), name) == QEL_OK;
    }

    bool visit_root(const QelCert *certificate) {
        if (!is_allowed(certificate->subject)) {
            say(text_of(Text::root_not_among_allowed, {subject_of(certificate)}));
            return false;
        }
        const QelStatus status = qel_verify_cert(context_, certificate, certificate->pubKeyInfo);
        say(trust_words(context_, certificate, trusted_, Text::own_key_trusted,
                        Text::own_key_not_trusted,
                        {subject_of(certificate), signature_words(status)}));
        return (status == QEL_OK || status == QEL_ERR_KEY_EXPIRED) &&
               __qel_is_trusted_key(context_, trusted_.list(), certificate) == QEL_OK;
    }

    bool visit_issuers(const QelCert *certificate, unsigned depth) {
        const std::string issuer = name_text(certificate->issuer);
        char *name = nullptr;
        CertArray found;
        QelStatus status = qel_dn2str(context_, certificate->issuer, &name);
        const LibraryBytes owner(reinterpret_cast<uint8_t *>(name));
        if (status == QEL_OK)
            status = qel_get_cert(context_, name, &found.first, &found.count);
        if (status != QEL_OK) {
            say(text_of(Text::no_certificates_of, {in_quotes(issuer), status_words(status)}));
            return false;
        }
        for (int i = 0; i < found.count; ++i) {
            const QelCert *candidate = &found.first[i];
            indent_ = std::string(2 * std::size_t{depth}, ' ');
            status = qel_verify_cert(context_, certificate, candidate->pubKeyInfo);
            say(text_of(Text::under_candidate,
                        {subject_of(certificate), subject_of(candidate), std::to_string(i + 1),
                         std::to_string(found.count),
                         hex({candidate->serial.value, candidate->serial.length}),
                         signature_words(status)}));
            if (status != QEL_OK && status != QEL_ERR_KEY_EXPIRED) {
                say(text_of(Text::ends_search));
                ended_ = true;
                return false;
            }
            if (is_allowed(candidate->subject)) {
                say(trust_line(context_, candidate, trusted_));
                if (__qel_is_trusted_key(context_, trusted_.list(), candidate) == QEL_OK)
                    return true;
            } else {
                say(text_of(Text::not_among_allowed, {subject_of(candidate)}));
            }
            if (visit(candidate, depth + 1))
                return true;
            if (ended_)
                return false;
        }
        return false;
    }

    QelContext *context_;
    const TrustedKeys &trusted_;
    std::vector<const char *> names_;
    bool limited_;
    bool ended_ = false;
    std::string indent_;
};

} // namespace

std::vector<std::string> explain_search(QelContext *context, const QelCert *certificate,
                                        const TrustedKeys &trusted,
                                        const std::vector<std::string> &allowed) {
    Search search(context, trusted, allowed);
    search.visit(certificate, 0);
    return std::move(search.lines);
}

} // namespace tool
