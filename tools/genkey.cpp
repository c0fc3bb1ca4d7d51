// qel genkey, qel random
#include "cipher.h"
#include "command.h"
#include "export_policy.h"
#include "text.h"
#include "texts.h"

#include <algorithm>
#include <charconv>

namespace tool {
namespace {

constexpr std::size_t random_piece = std::size_t{32} << 10;

struct ReleaseOctets {
    void operator()(QelOctetString *record) const { __qel_free_ostr(&record); }
};

} // namespace

Cipher generate_key(const Context &context, const CipherRow &row, std::size_t size,
                    unsigned effective_bits) {
    uint8_t *key = nullptr;
    QelOctetString *parameters = nullptr;
    const auto length = static_cast<uint32_t>(size);
    const QelStatus status =
        row.kind == CipherKind::rc2
            ? qel_gen_rc2_key(context, length, effective_bits, &key, &parameters)
        : row.kind == CipherKind::rc4  ? qel_gen_rc4_key(context, length, &key)
        : row.kind == CipherKind::des3 ? qel_gen_des3_key(context, &key, &parameters)
                                       : qel_gen_des_key(context, &key, &parameters);
    const std::unique_ptr<QelOctetString, ReleaseOctets> owner(parameters);
    if (status != QEL_OK)
        throw policy_failure(status, text_of(Text::cannot_make_key, {row.text}),
                             cipher_rule(row, {}, effective_bits));
    Cipher cipher;
    cipher.row = &row;
    cipher.key.assign(key, key + size);
    explicit_bzero(key, size);
    std::free(key);
    if (parameters != nullptr)
        take_parameters(context, cipher, {parameters->value, parameters->length},
                        text_of(Text::parameters_just_made));
    return cipher;
}

Exit run_genkey(const Arguments &arguments) {
    const std::string &name = arguments.operands()[0];
    if (name != "des" && name != "rc2" && name != "rc4" && name != "des3")
        arguments.misuse(text_of(Text::keys_are_made_for, {in_quotes(name)}));
    const CipherRow &row = cipher_named(name);
    const std::string output = arguments.value("output"), side = arguments.value("parameters-out");
    if (arguments.has("effective-bits") && row.kind != CipherKind::rc2)
        arguments.misuse(text_of(Text::bits_for_rc2));
    if (!side.empty() && row.block == 1)
        arguments.misuse(text_of(Text::rc4_no_parameters));
    if (output == "-" && (side == "-" || arguments.json()))
        arguments.misuse(text_of(Text::output_takes_one));
    if (output == "-")
        refuse_terminal(arguments.command().name, text_of(Text::keys_not_printed));
    const auto size =
        static_cast<std::size_t>(arguments.number("bytes", row.usual, row.least, row.most));
    const auto bits = static_cast<unsigned>(
        arguments.number("effective-bits", most_effective_bits, 1, most_parameter_bits));

    const Context context;
    const Cipher cipher = generate_key(context, row, size, bits);
    const PolicyRule rule = cipher_rule(row, cipher.key, cipher.effective_bits);
    if (!rule.broken.empty())
        warn(text_of(Text::will_refuse_key, {rule.broken}));
    write_key_file(output, cipher.key, arguments);
    if (!side.empty())
        write_file(side, cipher.parameters, {.force = arguments.has("force")});
    if (arguments.json()) {
        Json json = arguments.report();
        json["algorithm"] = row.text;
        json["key_bytes"] = size;
        json["effective_bits"] = row.kind == CipherKind::rc2 ? Json(bits) : Json(nullptr);
        json["output"] = utf8_or_latin1(output);
        json["parameters"] =
            cipher.parameters.empty() ? Json(nullptr) : Json(hex(cipher.parameters));
        put_json(json);
    }
    return Exit::yes;
}

Exit run_random(const Arguments &arguments) {
    const std::string &text = arguments.operands()[0];
    uint64_t count = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), count);
    if (read.ec != std::errc() || read.ptr != text.data() + text.size() || count == 0)
        arguments.misuse(text_of(Text::number_of_bytes_needed, {in_quotes(text)}));
    const std::string output = arguments.value("output", "-");
    const bool digits = arguments.has("hex");
    if (arguments.json() && output == "-" && count > random_piece)
        arguments.misuse(text_of(Text::too_many_for_json));
    if (output == "-" && !digits && !arguments.json())
        refuse_terminal(arguments.command().name, text_of(Text::binary_or_hex));

    Json json = arguments.report();
    json["bytes"] = count;
    if (arguments.json() && output == "-") {
        json["hex"] = hex(random_bytes(static_cast<std::size_t>(count)));
        put_json(json);
        return Exit::yes;
    }
    Output file(output, {.secret = true, .force = arguments.has("force")});
    for (uint64_t left = count; left != 0;) {
        const auto piece = static_cast<std::size_t>(std::min<uint64_t>(left, random_piece));
        left -= piece;
        const Bytes bytes = random_bytes(piece);
        if (!digits) {
            file.write(bytes);
            continue;
        }
        const Bytes line = hex_line(bytes);
        file.write(std::span(line).first(line.size() - (left != 0 ? 1 : 0)));
    }
    file.finish();
    if (arguments.json()) {
        json["output"] = utf8_or_latin1(output);
        put_json(json);
    }
    return Exit::yes;
}

} // namespace tool
