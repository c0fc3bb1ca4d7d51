// trusted.h: keys that are trusted, and chains of certificates that lead to them.
#ifndef TOOLS_TRUSTED_H
#define TOOLS_TRUSTED_H

#include "command.h"
#include "credential.h"
#include "text.h"

#include <string>
#include <vector>

namespace tool {

// A list of trusted keys for the library.
class TrustedKeys {
public:
    explicit TrustedKeys(QelContext *context) : context_(context) {}
    ~TrustedKeys();
    TrustedKeys(const TrustedKeys &) = delete;
    TrustedKeys &operator=(const TrustedKeys &) = delete;

    // The keys of the certificates in a file, and the trusted keys of the key packages in it. Throws
    // Failure where there is none, or a key package's signature is not good. The file is read once.
    void add_file(const std::string &path);
    // The keys that a key package lists.
    void add_keys_of(const QelKeyPkg &package);

    const QelTrustedKeys *list() const { return list_; }

private:
    void add(const QelTrustedKey &key);

    QelContext *context_;
    QelTrustedKeys *list_ = nullptr;
};

// The library's verdict on a chain.
struct ChainVerdict {
    QelStatus status = QEL_OK;
    std::vector<Certificate> chain; // where the library built one
    std::string expired; // subject of the first certificate outside its validity, or empty

    // Status 30 says that everything is good but the time.
    bool good(bool allow_expired) const {
        return status == QEL_OK || (allow_expired && status == QEL_ERR_KEY_EXPIRED);
    }
};

// A chain that was supplied: each certificate but the last was issued by the next.
//   charset  of the subject in the verdict.
ChainVerdict verify_chain(QelContext *context, const std::vector<const QelCert *> &chain,
                          const TrustedKeys &trusted, Charset charset);
// A chain that the library builds from the naming service.
//   allowed  printable names of the issuers where it may end; none: any.
ChainVerdict establish_chain(QelContext *context, const QelCert *certificate,
                             const TrustedKeys &trusted, const std::vector<std::string> &allowed,
                             Charset charset);

// What the library's search meets, step by step, one line for each certificate that is looked at,
// with the status that it gives; safe to print.
std::vector<std::string> explain_chain(QelContext *context,
                                       const std::vector<const QelCert *> &chain,
                                       const TrustedKeys &trusted);
std::vector<std::string> explain_search(QelContext *context, const QelCert *certificate,
                                        const TrustedKeys &trusted,
                                        const std::vector<std::string> &allowed);

bool same_name(QelContext *context, const QelName *a, const QelName *b);

} // namespace tool

#endif
