#include "account.h"

#include "der.h"
#include "texts.h"

#include <algorithm>

namespace tool {
namespace {

// Texts out of a record, beside the names, may hold anything.
void check_line(const char *text) {
    const std::string_view all = text != nullptr ? text : "";
    if (std::any_of(all.begin(), all.end(), [](unsigned char c) { return c < ' '; }))
        throw Failure{Exit::input, text_of(Text::the_account), text_of(Text::control_characters),
                      ""};
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
    return printable_lines(library_text("it", print));
}

constexpr int full = 1;
constexpr uint32_t indent = 2;

// Values of attributes, of which some are printed.
void check_attributes(const QelAttributes *list) {
    for (; list != nullptr; list = list->next)
        for (const QelAttrValue *node = list->attribute->values; node != nullptr;
             node = node->next) {
            std::span<const uint8_t> rest(node->value->value, node->value->length);
            Element element;
            if (take_element(rest, element) && (element.tag & 0x20) == 0)
                check_line(std::string(element.contents.begin(), element.contents.end()).c_str());
        }
}

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

std::string trusted_key_account(QelContext *context, const QelTrustedKey &key) {
    check_names(context, {key.owner, key.issuer});
    return account([&](FILE *stream) {
        return __qel_fprint_trusted_key(context, stream, &key, full, indent);
    });
}

std::string request_account(QelContext *context, const Request &request) {
    if (request.browser) {
        check_line(request.browser->challenge);
        return account([&](FILE *stream) {
            return __qel_fprint_netscape_certreq(context, stream, request.browser.get(), full,
                                                 indent);
        });
    }
    check_names(context, {request.subject()});
    check_attributes(request.pkcs10->attributes);
    return account([&](FILE *stream) {
        return __qel_fprint_certreq(context, stream, request.pkcs10.get(), full, indent);
    });
}

std::string account_or_reason(const std::function<std::string()> &account) {
    try {
        return account();
    } catch (const Failure &failure) {
        return line("Library's account", "none (" + failure.why + ")");
    }
}

} // namespace tool
