// qel explain
#include "command.h"
#include "text.h"
#include "texts.h"

namespace tool {
namespace {

Json row_json(const StatusRow &row) {
    Json json = status_json(row.status);
    json["meaning"] = row.meaning;
    json["advice"] = row.advice;
    json["exit_status"] = static_cast<int>(row.exit);
    json["verification_exit_status"] = static_cast<int>(verdict_exit(row.status));
    return json;
}

std::string row_text(const StatusRow &row) {
    const auto digits = [](Exit exit) { return std::to_string(static_cast<int>(exit)); };
    const Exit verdict = verdict_exit(row.status);
    return status_words(row.status) + "\n  " + meaning_of(row) + "\n  " + advice_of(row) + "\n  " +
           (verdict == row.exit
                ? text_of(Text::exits_with, {digits(row.exit)})
                : text_of(Text::exits_with_verdict, {digits(row.exit), digits(verdict)})) +
           "\n";
}

} // namespace

Exit run_explain(const Arguments &arguments) {
    Outcome outcome(arguments.command());
    Json json = arguments.report();
    json["statuses"] = Json::array();
    json["unknown"] = Json::array();
    const auto tell = [&](const StatusRow &row, const std::string &text) {
        json["statuses"].push_back(row_json(row));
        if (!arguments.json())
            put(text);
    };
    if (arguments.operands().empty())
        for (const StatusRow &row : status_table())
            tell(row, status_words(row.status) + "\n");
    for (const std::string &code : arguments.operands()) {
        if (const StatusRow *row = find_status(code)) {
            tell(*row, row_text(*row));
            continue;
        }
        json["unknown"].push_back(utf8_or_latin1(code));
        outcome.fail({Exit::no, text_of(Text::no_such_status, {in_quotes(code)}), "",
                      text_of(Text::lists_statuses)});
    }
    if (arguments.json())
        put_json(json);
    return outcome.exit();
}

} // namespace tool
