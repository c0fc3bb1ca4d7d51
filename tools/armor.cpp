// qel armor, qel dearmor
#include "armour.h"
#include "command.h"
#include "credential.h"
#include "text.h"

#include <charconv>
#include <iterator>

namespace tool {
namespace {

struct TypeRow {
    const char *name;
    const char *label; // between "-----BEGIN " and "-----"
    int pdu;           // which type auto tries, or 0
    bool secret;
};

constexpr TypeRow kTypes[] = {
    {"certificate", "CERTIFICATE", QEL_PDU_Certificate, false},
    {"keypkg", "KEYPKG", QEL_PDU_KeyPkg, true},
    {"request", "NEW CERTIFICATE REQUEST", QEL_PDU_CertificationRequest, false},
    {"signature", "DIGITAL SIGNATURE", 0, false},
    {"signature-and-data", "DIGITAL SIGNATURE AND DATA SIGNED", 0, false},
    {"encrypted-data", "ENCRYPTED DATA", 0, false},
    {"encryption-info", "ENCRYPTION INFO", 0, false},
    {"encryption-info-and-data", "ENCRYPTION INFO AND ENCRYPTED DATA", 0, false},
    {"none", "", 0, false},
};

const TypeRow &type_named(const std::string &name) {
    for (const TypeRow &row : kTypes)
        if (name == row.name)
            return row;
    return *std::prev(std::end(kTypes));
}

const TypeRow &type_of(const Bytes &bytes) {
    const Context context;
    for (const TypeRow &row : kTypes)
        if (row.pdu != 0 && decode<void>(context, bytes, row.pdu))
            return row;
    return type_named("none");
}

bool secret_label(const std::string &label) {
    return label.find("PRIVATE KEY") != label.npos || label == "KEYPKG";
}

} // namespace

std::string armour_lines(std::span<const uint8_t> bytes) {
    constexpr std::size_t line = 64;
    if (bytes.empty())
        return "";
    char *text = nullptr;
    uint32_t length = 0;
    const QelStatus status =
        __qel_binary_2_rfc1421(bytes.data(), static_cast<uint32_t>(bytes.size()), &text, &length);
    if (status != QEL_OK)
        throw library_failure(status, "cannot armour the bytes");
    const std::unique_ptr<char, FreeBlock> owner(text);
    const std::string_view characters(text, length);
    std::string lines;
    for (std::size_t at = 0; at < characters.size(); at += line)
        lines.append(characters.substr(at, line)).append("\n");
    return lines;
}

std::string armoured(std::span<const uint8_t> bytes, const std::string &label) {
    const std::string lines = armour_lines(bytes);
    return label.empty()
               ? lines
               : "-----BEGIN " + label + "-----\n" + lines + "-----END " + label + "-----\n";
}

Exit run_armor(const Arguments &arguments) {
    const std::string path = arguments.operand_or_stdin();
    const std::string wanted = arguments.value("type", "auto");
    const Bytes bytes = read_whole(path);
    if (bytes.empty())
        throw Failure{Exit::input, "cannot armour " + display_name(path), "it is empty", ""};
    const TypeRow &type = wanted == "auto" ? type_of(bytes) : type_named(wanted);
    const std::string text = armoured(bytes, type.label);
    if (arguments.has("output"))
        write_file(arguments.value("output"), bytes_of(text),
                   {type.secret, arguments.has("force")});
    if (arguments.json()) {
        Json json = arguments.report();
        json["type"] = type.name;
        json["output"] = arguments.has("output") ? Json(arguments.value("output")) : Json(nullptr);
        if (!arguments.has("output") && !type.secret)
            json["armor"] = text;
        put_json(json);
    } else if (!arguments.has("output")) {
        put(text);
    }
    return Exit::yes;
}

// ---- dearmor
// --------------------------------------------------------------------------------------

namespace {

const Item &chosen_item(const Arguments &arguments, const Input &input) {
    const std::string text = arguments.value("block", "0");
    std::size_t number = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    if (read.ec != std::errc() || read.ptr != text.data() + text.size() ||
        (arguments.has("block") && number == 0))
        arguments.misuse("option '--block' takes a number from 1 on, not " + in_quotes(text));
    if (number > input.items.size())
        throw Failure{
            Exit::input,
            "cannot find block " + std::to_string(number) + " in " + display_name(input.path),
            "it holds " + std::to_string(input.items.size()), "'qel dearmor --list' names them."};
    if (number == 0 && input.items.size() > 1)
        arguments.misuse(display_name(input.path) + " holds " + std::to_string(input.items.size()) +
                         " blocks: choose one with '--block', or name them with '--list'");
    return input.items[number != 0 ? number - 1 : 0];
}

Json item_json(const Item &item, std::size_t number) {
    Json json;
    json["block"] = number;
    json["label"] = utf8_or_latin1(item.label);
    json["line"] = item.line;
    json["bytes"] = item.bytes.size();
    json["problem"] = item.problem.empty() ? Json(nullptr) : Json(item.problem);
    return json;
}

Exit list_items(const Arguments &arguments, const Input &input) {
    Json json = arguments.report();
    json["blocks"] = Json::array();
    std::size_t number = 0;
    for (const Item &item : input.items) {
        json["blocks"].push_back(item_json(item, ++number));
        if (!arguments.json())
            put(std::to_string(number) + "  line " + std::to_string(item.line) + "  " +
                (item.problem.empty() ? std::to_string(item.bytes.size()) + " bytes"
                                      : item.problem) +
                "  " + escaped(item.label) + "\n");
    }
    if (arguments.json())
        put_json(json);
    return Exit::yes;
}

} // namespace

Exit run_dearmor(const Arguments &arguments) {
    const Input input = read_input(arguments.operand_or_stdin());
    const bool bare = !input.armoured && !input.decoded;
    if (bare)
        throw Failure{Exit::input, "cannot find armour in " + display_name(input.path),
                      "it has no BEGIN line and is not base 64",
                      "Check that it is the right file."};
    if (arguments.has("list"))
        return list_items(arguments, input);
    const Item &item = chosen_item(arguments, input);
    if (!item.problem.empty())
        throw Failure{Exit::input, "cannot decode " + input.name_of(item), item.problem,
                      "Get the text again; mail programs may have changed it."};
    const bool secret = secret_label(item.label);
    const std::string path = arguments.value("output", "-");
    if (path == "-" && !arguments.json())
        refuse_terminal(arguments.command().name, "give '--output FILE'");
    if (path != "-" || !arguments.json())
        write_file(path, item.bytes, {secret, arguments.has("force")});
    if (arguments.json()) {
        Json json = arguments.report();
        json["output"] = path != "-" ? Json(path) : Json(nullptr);
        json["item"] = item_json(item, static_cast<std::size_t>(&item - input.items.data()) + 1);
        if (path == "-" && !secret)
            json["hex"] = hex(item.bytes);
        put_json(json);
    }
    return Exit::yes;
}

} // namespace tool
