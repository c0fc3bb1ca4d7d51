// qel dn
#include "command.h"
#include "credential.h"
#include "text.h"
#include "texts.h"

namespace tool {
namespace {

struct Parsed {
    std::string normalised;
    Bytes der;
};

Parsed parse_name(const Context &context, const std::string &text) {
    const std::string what = text_of(Text::name_called, {in_quotes(text)});
    const Name name = read_name(context, text, text_of(Text::the_name));
    char *string = nullptr;
    const QelStatus status = qel_dn2str(context, name.get(), &string);
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_read_name, {in_quotes(text)}));
    const std::unique_ptr<char, FreeBlock> owner(string);
    return {string, encode(context, name.get(), QEL_PDU_Name, what)};
}

} // namespace

Exit run_dn(const Arguments &arguments) {
    if (arguments.has("output") && arguments.operands().size() > 1)
        arguments.misuse(text_of(Text::output_takes_one_name));
    Outcome outcome(arguments.command());
    Json json = arguments.report();
    json["names"] = Json::array();
    for (const std::string &text : arguments.operands()) {
        Json one;
        one["input"] = utf8_or_latin1(text);
        try {
            const Context context;
            const Parsed name = parse_name(context, text);
            one["normalised"] = utf8_or_latin1(name.normalised);
            one["der"] = hex(name.der);
            if (arguments.has("output"))
                write_file(arguments.value("output"), name.der);
            else if (!arguments.json())
                put((arguments.has("der") ? hex(name.der) : printable(name.normalised)) + "\n");
        } catch (const OutputLost &) {
            throw;
        } catch (const Failure &failure) {
            one["error"] = failure_json(failure);
            outcome.fail(failure);
        }
        json["names"].push_back(one);
    }
    if (arguments.json())
        put_json(json);
    return outcome.exit();
}

} // namespace tool
