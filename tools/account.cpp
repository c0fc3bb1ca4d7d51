#include "account.h"

#include <algorithm>
#include <cerrno>
#include <functional>

namespace tool {
namespace {

const std::string what = "the library's account of it";

// Texts out of a record, beside the names, may hold anything.
void check_line(const char *text) {
    const std::string_view all = text != nullptr ? text : "";
    if (std::any_of(all.begin(), all.end(), [](unsigned char c) { return c < ' '; }))
        throw Failure{Exit::input, what, "a name or text in it holds control characters", ""};
}

void check_names(QelContext *context, const std::vector<const QelName *> &names) {
    for (const QelName *name : names) {
        char *text = nullptr;
        if (name != nullptr && __qel_dn2str(context, name, 2, &text) == QEL_OK) {
            const std::unique_ptr<char, FreeBlock> owner(text);
            check_line(text);
        }
    }
}

std::string account(const std::function<QelStatus(FILE *)> &print) {
    char *text = nullptr;
    std::size_t size = 0;
    FILE *stream = open_memstream(&text, &size);
    if (stream == nullptr)
        throw system_failure(Exit::internal, what, errno);
    QelStatus status = print(stream);
    if (std::fclose(stream) != 0 && status == QEL_OK)
        status = QEL_ERR_NO_MEMORY;
    const std::unique_ptr<char, FreeBlock> owner(text);
    if (status != QEL_OK)
        throw library_failure(status, what);
    return printable_lines({text, size});
}

constexpr int full = 1;
constexpr uint32_t indent = 2;

} // namespace

std::string cert_account(QelContext *context, const QelCert &cert) {
    check_names(context, {cert.subject, cert.issuer});
    return account(
        [&](FILE *stream) { return __qel_fprint_cert(context, stream, &cert, full, indent); });
}

std::string cert_log_entry(QelContext *context, const QelCert &cert) {
    check_names(context, {cert.subject, cert.issuer});
    return account([&](FILE *stream) { return __qel_fprint_cert_log(context, stream, &cert, 0); });
}

std::string keypkg_account(QelContext *context, const QelKeyPkg &package) {
    std::vector<const QelName *> names = {package.owner};
    for (const QelTrustedKeys *node = package.tKeys; node != nullptr; node = node->next)
        names.insert(names.end(), {node->key->owner, node->key->issuer});
    check_names(context, names);
    check_line(package.version);
    check_line(package.keypkgId);
    return account(
        [&](FILE *stream) { return __qel_fprint_keypkg(context, stream, &package, full, indent); });
}

} // namespace tool
