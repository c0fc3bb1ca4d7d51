// qel asn1
#include "command.h"
#include "credential.h"
#include "text.h"
#include "texts.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <strings.h>

namespace tool {
namespace {

constexpr int first_pdu = QEL_PDU_Name;
constexpr int last_pdu = QEL_PDU_SignedPublicKeyAndChallenge;

// How a type is treated apart from the others.
struct Peculiarity {
    int pdu;
    bool der;     // the library encodes it under DER whatever it was told
    bool in_file; // its content goes through a file that a program names: refused here
    bool secret;  // a key or key package
};

constexpr Peculiarity peculiar[] = {
    {QEL_PDU_Name, true, false, false},
    {QEL_PDU_CertificateInfo, true, false, false},
    {QEL_PDU_Certificate, true, false, false},
    {QEL_PDU_KeyPkgInfo, true, false, true},
    {QEL_PDU_KeyPkg, false, false, true},
    {QEL_PDU_QelServKeyInfo, false, false, true},
    {QEL_PDU_DigestInfo, true, false, false},
    {QEL_PDU_ContentInfoFm, false, true, false},
    {QEL_PDU_SignedDataFm, false, true, false},
    {QEL_PDU_PkcsDataFm, false, true, false},
    {QEL_PDU_PrivateKeyInfo, false, false, true},
    {QEL_PDU_EncryptedPrivateKeyInfo, false, false, true},
    {QEL_PDU_CertificationRequestInfo, true, false, false},
};

Peculiarity peculiarity(int pdu) {
    for (const Peculiarity &row : peculiar)
        if (row.pdu == pdu)
            return row;
    return {pdu, false, false, false};
}

std::string pdu_name(int pdu) {
    const char *name = __qel_asn1_pdu_name(pdu);
    return name != nullptr ? name : "";
}

// The type of the same value that has its content in it: the name without "Fm".
std::string whole_type(int pdu) {
    const std::string name = pdu_name(pdu);
    return name.substr(0, name.size() - 2);
}

int find_pdu(const Arguments &arguments, const std::string &text) {
    int number = 0;
    const char *const end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, number);
    if (read.ec == std::errc() && read.ptr == end && number >= first_pdu && number <= last_pdu)
        return number;
    for (int pdu = first_pdu; pdu <= last_pdu; ++pdu)
        if (strcasecmp(pdu_name(pdu).c_str(), text.c_str()) == 0)
            return pdu;
    arguments.misuse(text_of(Text::unknown_type, {in_quotes(text)}));
}

Exit list_types(const Arguments &arguments) {
    Json json = arguments.report();
    json["types"] = Json::array();
    for (int pdu = first_pdu; pdu <= last_pdu; ++pdu) {
        Json one;
        one["number"] = pdu;
        one["name"] = pdu_name(pdu);
        one["refused"] = peculiarity(pdu).in_file;
        json["types"].push_back(one);
        if (!arguments.json())
            put((pdu < 10 ? " " : "") + std::to_string(pdu) + "  " + pdu_name(pdu) +
                (peculiarity(pdu).in_file ? text_of(Text::type_refused, {whole_type(pdu)}) + "\n"
                                          : "\n"));
    }
    if (arguments.json())
        put_json(json);
    return Exit::yes;
}

// The secret octets of a value, which are printed as if they were none.
std::vector<QelOctetString *> secrets_of(void *value, int pdu) {
    switch (pdu) {
    case QEL_PDU_KeyPkgInfo:
    case QEL_PDU_KeyPkg:
        return {&static_cast<QelKeyPkg *>(value)->encrPrivKeyInfo->encryptedData};
    case QEL_PDU_QelServKeyInfo:
        return {&static_cast<QelServKeyInfo *>(value)->privKey,
                &static_cast<QelServKeyInfo *>(value)->keypkg};
    case QEL_PDU_PrivateKeyInfo:
        return {&static_cast<QelPrivateKeyInfo *>(value)->privateKey};
    case QEL_PDU_EncryptedPrivateKeyInfo:
        return {&static_cast<QelEncryptedPrivateKeyInfo *>(value)->encryptedData};
    default:
        return {};
    }
}

// What the library prints of a value.
std::string listing(const Context &context, const void *value, int pdu) {
    return library_text(text_of(Text::the_value, {pdu_name(pdu)}), [&](FILE *stream) {
        return __qel_asn1_print(context, stream, value, pdu);
    });
}

Exit print_value(const Arguments &arguments, const Context &context, void *value, int pdu) {
    std::vector<QelOctetString> hidden;
    for (QelOctetString *secret : secrets_of(value, pdu)) {
        hidden.push_back(*secret);
        secret->length = 0;
    }
    const std::string text = listing(context, value, pdu);
    for (std::size_t i = 0; i < hidden.size(); ++i) {
        *secrets_of(value, pdu)[i] = hidden[i];
        explicit_bzero(hidden[i].value, hidden[i].length);
    }
    if (!hidden.empty())
        warn(text_of(Text::private_key_left_out));
    if (!arguments.json()) {
        put(printable_lines(text));
        return Exit::yes;
    }
    Json json = arguments.report();
    json["type"] = pdu_name(pdu);
    json["number"] = pdu;
    json["secret_left_out"] = !hidden.empty();
    json["text"] = utf8_or_latin1(text);
    put_json(json);
    return Exit::yes;
}

// The library decides by type whether it encodes under DER or BER.
void check_rules(const Arguments &arguments, int pdu) {
    const std::string rules = arguments.value("encode");
    const bool der = peculiarity(pdu).der;
    if (der && rules == "indefinite")
        arguments.misuse(text_of(Text::always_der, {pdu_name(pdu)}));
    if (!der && rules == "der")
        arguments.misuse(text_of(Text::always_ber, {pdu_name(pdu)}));
}

Exit encode_value(const Arguments &arguments, const Context &context, const void *value, int pdu) {
    const std::string rules = arguments.value("encode");
    const bool secret = peculiarity(pdu).secret;
    const std::string path = arguments.value("output", "-");
    arguments.check_output(path, true, secret);
    if (rules == "indefinite")
        __qel_set_encoding_flags_indefinite(context);
    const Bytes bytes = encode(context, value, pdu, text_of(Text::the_value, {pdu_name(pdu)}));
    if (path != "-" || !arguments.json())
        write_file(path, bytes, {secret, arguments.has("force")});
    if (arguments.json()) {
        Json json = arguments.report();
        json["type"] = pdu_name(pdu);
        json["number"] = pdu;
        json["rules"] = rules;
        json["output"] = path != "-" ? Json(utf8_or_latin1(path)) : Json(nullptr);
        json["bytes"] = bytes.size();
        if (path == "-")
            json["hex"] = hex(bytes);
        put_json(json);
    }
    return Exit::yes;
}

// Under another type's name a private key would be printed with all that is in it.
void refuse_private_key(const Context &context, const Input &input, const Item &item, int pdu) {
    if (!peculiarity(pdu).secret && is_secret(context, item))
        throw Failure{Exit::input,
                      text_of(Text::cannot_take_for, {input.name_of(item), pdu_name(pdu)}),
                      text_of(Text::is_private_key), text_of(Text::give_its_own_type)};
}

Decoded<void> read_value(const Context &context, const Input &input, int pdu) {
    QelStatus status = QEL_ERR_ASN1_DECODE;
    for (const Item &item : input.items) {
        if (!item.problem.empty())
            continue;
        auto value = decode<void>(context, item.bytes, pdu, &status);
        if (!value)
            continue;
        refuse_private_key(context, input, item, pdu);
        return value;
    }
    throw bad_item(input, input.items.front(), pdu_name(pdu), status);
}

} // namespace

Exit run_asn1(const Arguments &arguments) {
    if (arguments.has("list")) {
        if (!arguments.operands().empty())
            arguments.misuse(text_of(Text::list_takes_no_type));
        return list_types(arguments);
    }
    if (arguments.operands().empty())
        arguments.misuse(text_of(Text::type_is_needed));
    if (arguments.has("output") && !arguments.has("encode"))
        arguments.misuse(text_of(Text::output_goes_with_encode));
    const int pdu = find_pdu(arguments, arguments.operands()[0]);
    if (peculiarity(pdu).in_file)
        arguments.misuse(text_of(Text::content_in_programs_file, {pdu_name(pdu), whole_type(pdu)}));
    check_rules(arguments, pdu);
    const Context context;
    const Input input = read_input(arguments.operand_or_stdin(1));
    const Decoded<void> value = read_value(context, input, pdu);
    return arguments.has("encode") ? encode_value(arguments, context, value.get(), pdu)
                                   : print_value(arguments, context, value.get(), pdu);
}

} // namespace tool
