// qel cert show
#include "account.h"
#include "certificate_text.h"
#include "command.h"
#include "text.h"
#include "texts.h"

namespace tool {
namespace {

// Shows what can be read of a file, and returns what cannot.
std::vector<Failure> show(const Arguments &arguments, const std::string &path, Json &list) {
    const Context context;
    const bool full = arguments.has("full");
    std::vector<Failure> unreadable;
    for (const Certificate &certificate : read_certificates(context, path, &unreadable)) {
        if (arguments.json()) {
            Json one;
            one["file"] = utf8_or_latin1(path);
            one.update(certificate_json(context, certificate, full));
            list.push_back(one);
        } else if (arguments.has("log")) {
            try {
                put(cert_log_entry(context, *certificate.record));
            } catch (Failure &failure) {
                failure.what = certificate.where;
                unreadable.push_back(failure);
            }
        } else {
            put(certificate.where + ":\n" +
                (full ? full_certificate_text(context, certificate)
                      : certificate_text(context, certificate)));
        }
    }
    return unreadable;
}

} // namespace

Exit run_cert_show(const Arguments &arguments) {
    const std::vector<std::string> paths = arguments.operands_or_stdin();
    arguments.check_stdin_once(paths);
    if (arguments.has("log") && (arguments.has("full") || arguments.json()))
        arguments.misuse(text_of(Text::full_and_json_excluded));
    Outcome outcome(arguments.command());
    Json json = arguments.report();
    json["certificates"] = Json::array();
    json["errors"] = Json::array();
    for (const std::string &path : paths) {
        std::vector<Failure> failures;
        try {
            failures = show(arguments, path, json["certificates"]);
        } catch (const OutputLost &) {
            throw;
        } catch (const Failure &failure) {
            failures = {failure};
        }
        for (const Failure &failure : failures) {
            Json error = failure_json(failure);
            error["file"] = utf8_or_latin1(path);
            json["errors"].push_back(error);
            outcome.fail(failure);
        }
    }
    if (arguments.json())
        put_json(json);
    return outcome.exit();
}

} // namespace tool
