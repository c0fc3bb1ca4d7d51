// qel armor, qel dearmor
#include "armour.h"
#include "command.h"
#include "credential.h"
#include "text.h"
#include "texts.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <iterator>

namespace tool {
namespace {

struct TypeRow {
    const char *name;
    const char *label; // between "-----BEGIN " and "-----"
    int pdu;           // which type auto tries, or 0
};

constexpr TypeRow types[] = {
    {"certificate", "CERTIFICATE", QEL_PDU_Certificate},
    {"keypkg", "KEYPKG", QEL_PDU_KeyPkg},
    {"request", "NEW CERTIFICATE REQUEST", QEL_PDU_CertificationRequest},
    {"signature", "DIGITAL SIGNATURE", 0},
    {"signature-and-data", "DIGITAL SIGNATURE AND DATA SIGNED", 0},
    {"encrypted-data", "ENCRYPTED DATA", 0},
    {"encryption-info", "ENCRYPTION INFO", 0},
    {"encryption-info-and-data", "ENCRYPTION INFO AND ENCRYPTED DATA", 0},
    {"none", "", 0},
};

const TypeRow &type_named(const std::string &name) {
    for (const TypeRow &row : types)
        if (name == row.name)
            return row;
    return *std::prev(std::end(types));
}

const TypeRow &type_of(const Context &context, const Bytes &bytes) {
    for (const TypeRow &row : types)
        if (row.pdu != 0 && decode<void>(context, bytes, row.pdu))
            return row;
    return type_named("none");
}

// Armour is put around text that is armour already only where no type is promised of it.
void refuse_armour(const std::string &path, const Bytes &bytes) {
    const Input input = parse_input(path, bytes);
    if (!input.armoured)
        return;
    const Item &item = input.items.front();
    throw Failure{Exit::input, text_of(Text::cannot_armour, {display_name(path)}),
                  text_of(Text::armoured_already, {escaped(item.label), std::to_string(item.line)}),
                  text_of(Text::dearmor_or_none)};
}

} // namespace

Bytes armoured(std::span<const uint8_t> bytes, const std::string &label) {
    constexpr std::size_t line = 64;
    char *digits = nullptr;
    uint32_t length = 0;
    const QelStatus status =
        __qel_binary_2_rfc1421(bytes.data(), static_cast<uint32_t>(bytes.size()), &digits, &length);
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_armour_bytes));
    Bytes text;
    text.reserve(length + length / line + 2 * label.size() + 64);
    const auto add = [&](std::string_view piece) {
        text.insert(text.end(), piece.begin(), piece.end());
    };
    if (!label.empty())
        add("-----BEGIN " + label + "-----\n");
    for (std::string_view rest(digits, length); !rest.empty();) {
        add(rest.substr(0, line));
        add("\n");
        rest.remove_prefix(std::min(line, rest.size()));
    }
    if (!label.empty())
        add("-----END " + label + "-----\n");
    explicit_bzero(digits, length);
    std::free(digits);
    return text;
}

Exit run_armor(const Arguments &arguments) {
    const std::string path = arguments.operand_or_stdin();
    const std::string output = arguments.value("output", "-");
    const std::string wanted = arguments.value("type", "auto");
    const Bytes bytes = read_whole(path);
    if (bytes.empty())
        throw Failure{Exit::input, text_of(Text::cannot_armour, {display_name(path)}),
                      text_of(Text::file_is_empty), ""};
    if (wanted != "none")
        refuse_armour(path, bytes);
    const Context context;
    const TypeRow &type = wanted == "auto" ? type_of(context, bytes) : type_named(wanted);
    const bool secret = holds_private_key(context, bytes);
    arguments.check_output(output, false, secret);
    const Bytes text = armoured(bytes, type.label);
    const bool to_json = arguments.json() && output == "-";
    if (!to_json)
        write_file(output, text, {secret, arguments.has("force")});
    if (arguments.json()) {
        Json json = arguments.report();
        json["type"] = type.name;
        json["output"] = to_json ? Json(nullptr) : Json(utf8_or_latin1(output));
        if (to_json)
            json["armor"] = std::string(text.begin(), text.end());
        put_json(json);
    }
    return Exit::yes;
}

// ---- dearmor -----------------------------------------------------------------------------------

namespace {

const Item &chosen_item(const Arguments &arguments, const Input &input) {
    const std::string text = arguments.value("block", "0");
    std::size_t number = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    if (read.ec != std::errc() || read.ptr != text.data() + text.size() ||
        (arguments.has("block") && number == 0))
        arguments.misuse(text_of(Text::block_takes, {in_quotes(text)}));
    if (number > input.items.size())
        throw Failure{
            Exit::input,
            text_of(Text::no_such_block, {std::to_string(number), display_name(input.path)}),
            text_of(Text::holds, {std::to_string(input.items.size())}), text_of(Text::list_blocks)};
    if (number == 0 && input.items.size() > 1)
        arguments.misuse(text_of(Text::several_blocks,
                                 {display_name(input.path), std::to_string(input.items.size())}));
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
        throw Failure{Exit::input, text_of(Text::no_armour_in, {display_name(input.path)}),
                      text_of(Text::no_begin_line), text_of(Text::check_right_file)};
    if (arguments.has("list"))
        return list_items(arguments, input);
    const Item &item = chosen_item(arguments, input);
    if (!item.problem.empty())
        throw Failure{Exit::input, text_of(Text::cannot_decode, {input.name_of(item)}),
                      item.problem, text_of(Text::text_changed_by_mail)};
    const Context context;
    const bool secret = is_secret(context, item);
    const std::string path = arguments.value("output", "-");
    arguments.check_output(path, true, secret);
    if (path != "-" || !arguments.json())
        write_file(path, item.bytes, {secret, arguments.has("force")});
    if (arguments.json()) {
        Json json = arguments.report();
        json["output"] = path != "-" ? Json(utf8_or_latin1(path)) : Json(nullptr);
        json["item"] = item_json(item, static_cast<std::size_t>(&item - input.items.data()) + 1);
        if (path == "-")
            json["hex"] = hex(item.bytes);
        put_json(json);
    }
    return Exit::yes;
}

} // namespace tool
