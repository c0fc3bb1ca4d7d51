// qel dh start, qel dh finish
#include "cipher.h"
#include "command.h"
#include "der.h"
#include "text.h"
#include "texts.h"

#include <algorithm>
#include <bit>

namespace tool {
namespace {

constexpr unsigned least_bits = 256, most_bits = 512; // of a prime
constexpr std::size_t least_seed = 32;                // bytes
constexpr uint8_t tag_integer = 0x02, tag_sequence = 0x30;

uint32_t agreement_arcs[] = {1, 2, 840, 113549, 1, 3, 1};
const QelOid agreement = {7, agreement_arcs}; // dhKeyAgreement (PKCS#3)

unsigned bits_of(const Bytes &number) {
    return number.empty() ? 0
                          : static_cast<unsigned>(8 * (number.size() - 1)) +
                                static_cast<unsigned>(std::bit_width(number.front()));
}

// The next INTEGER, which must not be negative, without its leading zeros.
bool take_number(std::span<const uint8_t> &bytes, Bytes &number) {
    Element element;
    if (!take_element(bytes, element) || element.tag != tag_integer || element.contents.empty() ||
        element.contents.front() >= 0x80)
        return false;
    const auto first = std::ranges::find_if(element.contents, [](uint8_t b) { return b != 0; });
    number.assign(first, element.contents.end());
    return true;
}

// PKCS#3: SEQUENCE { prime INTEGER, base INTEGER, privateValueLength INTEGER OPTIONAL }
struct Group {
    Bytes prime, base, encoding;
    unsigned exponent_bits = 0;

    bool read(std::span<const uint8_t> bytes) {
        encoding.assign(bytes.begin(), bytes.end());
        Element sequence;
        Bytes length;
        if (!take_element(bytes, sequence) || sequence.tag != tag_sequence || !bytes.empty() ||
            !take_number(sequence.contents, prime) || !take_number(sequence.contents, base))
            return false;
        exponent_bits = bits_of(prime) - 1;
        if (sequence.contents.empty())
            return true;
        if (!take_number(sequence.contents, length) || !sequence.contents.empty() ||
            length.size() > 2 || length.empty())
            return false;
        exponent_bits = 0;
        for (const uint8_t byte : length)
            exponent_bits = exponent_bits << 8 | byte;
        return exponent_bits < bits_of(prime);
    }
};

const Item &only_item(const Input &input, Text what) {
    const Item &item = input.items.front();
    if (!item.problem.empty())
        throw Failure{Exit::input,
                      text_of(Text::cannot_read_from, {text_of(what), input.name_of(item)}),
                      item.problem, text_of(Text::get_text_again)};
    return item;
}

Group read_group(const std::string &path) {
    const Input input = read_input(path);
    Group group;
    const std::string what = text_of(Text::cannot_use_parameters_in, {display_name(path)});
    if (!group.read(only_item(input, Text::dh_parameters).bytes))
        throw Failure{Exit::input, what, text_of(Text::no_dh_parameter),
                      text_of(Text::give_dh_parameters)};
    const unsigned bits = bits_of(group.prime);
    if (bits < least_bits || bits > most_bits)
        throw Failure{Exit::input, what, text_of(Text::prime_bits, {std::to_string(bits)}),
                      text_of(Text::agree_on_others)};
    return group;
}

std::size_t seed_size(const Group &group) {
    return std::max<std::size_t>(least_seed, group.exponent_bits / 8 + 1);
}

// Begins, or begins again, the agreement that the seed stands for. The public value.
Bytes start(const Context &context, const Group &group, const Bytes &seed) {
    Bytes value(group.prime.size());
    const QelStatus status = __qel_dh_part1(
        context, group.exponent_bits, static_cast<uint32_t>(group.prime.size()), group.prime.data(),
        static_cast<uint32_t>(group.base.size()), group.base.data(), seed.data(),
        static_cast<uint32_t>(seed.size()), value.data(), static_cast<uint32_t>(value.size()));
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_begin_agreement));
    return value;
}

// SubjectPublicKeyInfo, as other programs have public values.
Bytes public_key_info(const Context &context, Group &group, const Bytes &value) {
    Bytes number(value), encoded;
    number.insert(number.begin(), 0);
    while (number.size() > 1 && number[0] == 0 && number[1] < 0x80)
        number.erase(number.begin());
    append_element(encoded, tag_integer, number);
    QelOctetString parameters = {static_cast<uint32_t>(group.encoding.size()),
                                 group.encoding.data()};
    QelAlgId algorithm = {const_cast<QelOid *>(&agreement), &parameters};
    const QelKeyInfo info = {&algorithm,
                             {static_cast<uint32_t>(8 * encoded.size()), encoded.data()}};
    return encode(context, &info, QEL_PDU_SubjectPublicKeyInfo, text_of(Text::a_public_value));
}

// The other side's public value: a SubjectPublicKeyInfo, or the octets of PKCS#3.
Bytes read_peer(const Context &context, const Group &group, const std::string &path) {
    const Input input = read_input(path);
    const Bytes &bytes = only_item(input, Text::a_public_value).bytes;
    const std::string what = text_of(Text::cannot_use_public_value, {display_name(path)});
    const auto info = decode<QelKeyInfo>(context, bytes, QEL_PDU_SubjectPublicKeyInfo);
    if (!info && bytes.size() != group.prime.size())
        throw Failure{Exit::input, what,
                      text_of(Text::not_of_primes_size,
                              {std::to_string(bytes.size()), std::to_string(group.prime.size())}),
                      text_of(Text::check_right_file)};
    if (!info)
        return bytes;
    int difference = 1;
    __qel_cmp_oid(info->algorithm->algorithm, &agreement, &difference);
    if (difference != 0)
        throw Failure{Exit::input, what,
                      text_of(Text::another_algorithm, {algorithm_text(info->algorithm)}),
                      text_of(Text::check_right_file)};
    Group theirs;
    const QelOctetString *parameters = info->algorithm->parameters;
    if (parameters == nullptr || !theirs.read({parameters->value, parameters->length}) ||
        theirs.prime != group.prime || theirs.base != group.base)
        throw Failure{Exit::input, what, text_of(Text::other_parameters),
                      text_of(Text::same_parameters_needed)};
    Bytes value;
    std::span<const uint8_t> rest(info->pubKey.value, info->pubKey.length / 8);
    if (!take_number(rest, value) || !rest.empty())
        throw Failure{Exit::input, what, text_of(Text::value_is_no_integer),
                      text_of(Text::get_public_value_again)};
    return value;
}

} // namespace

Exit run_dh_start(const Arguments &arguments) {
    const std::string seed_path = arguments.value("seed-out");
    const std::string public_path = arguments.value("public-out", "-");
    if (seed_path == "-")
        arguments.misuse(text_of(Text::seed_is_secret));
    if (public_path == "-" && !arguments.json())
        refuse_terminal(arguments.command().name, text_of(Text::public_value_is_binary));
    const Context context;
    Group group = read_group(arguments.value("parameters"));
    const Bytes seed = random_bytes(seed_size(group));
    const Bytes value = start(context, group, seed);
    Output seed_file(seed_path, {.secret = true, .force = arguments.has("force")});
    seed_file.write(seed);
    const bool to_json = arguments.json() && public_path == "-";
    if (!to_json)
        write_file(public_path,
                   arguments.has("raw") ? value : public_key_info(context, group, value),
                   {.force = arguments.has("force")});
    seed_file.finish(); // there is none without its public value
    if (arguments.json()) {
        Json json = arguments.report();
        json["prime_bits"] = bits_of(group.prime);
        json["exponent_bits"] = group.exponent_bits;
        json["seed"] = utf8_or_latin1(seed_path);
        json["output"] = to_json ? Json(nullptr) : Json(utf8_or_latin1(public_path));
        json["public_value"] = hex(value);
        put_json(json);
    }
    return Exit::yes;
}

Exit run_dh_finish(const Arguments &arguments) {
    const std::string seed_path = arguments.value("seed"), output = arguments.value("output");
    arguments.check_stdin_once({seed_path, arguments.value("peer"), arguments.value("parameters")});
    if (output == "-" && arguments.json())
        arguments.misuse(text_of(Text::secret_not_as_json));
    if (output == "-")
        refuse_terminal(arguments.command().name, text_of(Text::secrets_not_printed));

    const Context context;
    const Group group = read_group(arguments.value("parameters"));
    const Bytes seed = read_key_file(seed_path, false);
    if (seed.size() != seed_size(group))
        throw Failure{Exit::input, text_of(Text::cannot_use_seed, {display_name(seed_path)}),
                      text_of(Text::seed_size,
                              {std::to_string(seed.size()), std::to_string(seed_size(group))}),
                      text_of(Text::seed_of_one_start)};
    const Bytes peer = read_peer(context, group, arguments.value("peer"));
    start(context, group, seed);
    Bytes secret(group.prime.size());
    uint32_t length = 0;
    const QelStatus status =
        __qel_dh_part2(context, secret.data(), &length, static_cast<uint32_t>(secret.size()),
                       peer.data(), static_cast<uint32_t>(peer.size()));
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_finish_agreement,
                                              {display_name(arguments.value("peer"))}));
    write_key_file(output, std::span(secret).first(length), arguments);
    if (arguments.json()) {
        Json json = arguments.report();
        json["prime_bits"] = bits_of(group.prime);
        json["secret_bytes"] = length;
        json["output"] = utf8_or_latin1(output);
        put_json(json);
    }
    return Exit::yes;
}

} // namespace tool
