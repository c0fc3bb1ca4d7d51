// qel sign, qel verify
#include "armour.h"
#include "command.h"
#include "credential.h"
#include "key_server.h"
#include "pass_phrase.h"
#include "text.h"
#include "texts.h"

namespace tool {
namespace {

Bytes sign_file(const Context &context, const std::string &path, const PrivateKey &key,
                const Algorithm &algorithm) {
    uint8_t *signature = nullptr;
    uint32_t length = 0;
    const auto step = [&](std::span<const uint8_t> data, uint32_t mode) {
        const bool last = mode != QEL_MODE_UPDATE;
        const QelStatus status =
            qel_sign(context, data.data(), static_cast<uint32_t>(data.size()), mode, key.algorithm,
                     key.data(), key.size(), *algorithm.signature, last ? &signature : nullptr,
                     last ? &length : nullptr);
        if (status != QEL_OK)
            throw library_failure(status, text_of(Text::cannot_sign, {display_name(path)}));
    };
    bool fed = false;
    each_block(path, [&](std::span<const uint8_t> block) {
        step(block, QEL_MODE_UPDATE);
        fed = true;
    });
    if (fed)
        step({}, QEL_MODE_FINAL);
    else
        step(algorithm.digest_of_nothing, QEL_MODE_DIGEST);
    const LibraryBytes owner(signature);
    return Bytes(signature, signature + length);
}

QelStatus verify_file(const Context &context, const std::string &path, const RsaKey &key,
                      const Bytes &signature, const Algorithm &algorithm) {
    const auto step = [&](std::span<const uint8_t> data, uint32_t mode) {
        return qel_verify(context, data.data(), static_cast<uint32_t>(data.size()), mode,
                          key.algorithm, &key.parameters, key.bits, *algorithm.signature,
                          signature.data(), static_cast<uint32_t>(signature.size()));
    };
    bool fed = false;
    each_block(path, [&](std::span<const uint8_t> block) {
        const QelStatus status = step(block, QEL_MODE_UPDATE);
        if (status != QEL_OK)
            throw library_failure(status, text_of(Text::cannot_verify, {display_name(path)}));
        fed = true;
    });
    return fed ? step({}, QEL_MODE_FINAL) : step(algorithm.digest_of_nothing, QEL_MODE_DIGEST);
}

// What an item is that cannot be a raw signature.
std::optional<Text> other_than_signature(const Context &context, const Item &item) {
    if (is_secret(context, item))
        return Text::a_private_key;
    constexpr struct {
        int pdu;
        Text name;
    } rows[] = {
        {QEL_PDU_Certificate, Text::a_certificate},
        {QEL_PDU_SubjectPublicKeyInfo, Text::a_public_key},
        {QEL_PDU_ContentInfo, Text::a_message},
    };
    for (const auto &row : rows)
        if (decode<void>(context, item.bytes, row.pdu))
            return row.name;
    return std::nullopt;
}

// The first item that may be a signature: a certificate may stand before it.
Bytes read_signature(const Context &context, const std::string &path) {
    const Input input = read_input(path);
    std::optional<Text> other;
    for (const Item &item : input.items) {
        if (!item.problem.empty())
            throw bad_item(input, item, text_of(Text::the_signature), QEL_ERR_FROM_RFC1421);
        const std::optional<Text> what = other_than_signature(context, item);
        if (!what)
            return item.bytes;
        other = other ? other : what;
    }
    throw Failure{Exit::input, text_of(Text::no_signature_found, {display_name(path)}),
                  other ? text_of(Text::holds, {text_of(*other)}) : "",
                  text_of(Text::give_signature)};
}

} // namespace

Exit run_sign(const Arguments &arguments) {
    const std::string path = arguments.operand_or_stdin();
    const std::string output = arguments.value("output", "-");
    arguments.check_stdin_once({path, arguments.value("key"), phrase_path(arguments, "passin")});
    const bool armor = arguments.has("armor");
    if (output == "-" && !armor && !arguments.json())
        refuse_terminal(arguments.command().name, text_of(Text::binary_or_armor));

    const Algorithm &algorithm = algorithm_named(arguments.value("algorithm", "md5"));
    const UsableKey key = usable_key(arguments, USAGE_SIGN);
    const Bytes signature = sign_file(*key.context, path, key.key, algorithm);

    const bool to_json = arguments.json() && output == "-";
    if (!to_json && armor)
        write_file(output, armoured(signature, raw_signature_label));
    else if (!to_json)
        write_file(output, signature);
    if (arguments.json()) {
        Json json = arguments.report();
        json["file"] = utf8_or_latin1(path);
        json["algorithm"] = algorithm.signature_name;
        json["output"] = to_json ? Json(nullptr) : Json(utf8_or_latin1(output));
        json["signature"] = hex(signature);
        put_json(json);
    }
    return Exit::yes;
}

Exit run_verify(const Arguments &arguments) {
    if (arguments.has("key") == arguments.has("cert"))
        arguments.misuse(text_of(Text::one_of_key_and_cert));
    const std::string path = arguments.operand_or_stdin();
    const std::string source = arguments.value(arguments.has("key") ? "key" : "cert");
    arguments.check_stdin_once({path, source, arguments.value("signature")});

    const Algorithm &algorithm = algorithm_named(arguments.value("algorithm", "md5"));
    const Context context;
    const PublicKey key = read_public_key(
        context, source, arguments.has("key") ? KeySource::key : KeySource::certificate);
    const RsaKey rsa = as_rsa_key(key.key());
    const Bytes signature = read_signature(context, arguments.value("signature"));
    const QelStatus status = verify_file(context, path, rsa, signature, algorithm);
    const Exit exit = verdict_exit(status);
    const std::string weakness = small_exponent_note(key.key());
    if (!weakness.empty())
        warn(key.where + ": " + weakness);

    if (arguments.json()) {
        Json json = arguments.report();
        json["file"] = utf8_or_latin1(path);
        json["verified"] = exit == Exit::yes;
        json["algorithm"] = algorithm.signature_name;
        json["key_bits"] = rsa_numbers(key.key()).bits;
        json["key_exponent"] = exponent_json(key.key());
        json["notes"] = Json::array();
        for (const std::string &note : {rsa.note, weakness})
            if (!note.empty())
                json["notes"].push_back(note);
        json["status"] = status_json(status);
        put_json(json);
        return exit;
    }
    if (!rsa.note.empty())
        warn(key.where + ": " + rsa.note);
    put((exit == Exit::yes
             ? text_of(Text::verified_by, {display_name(path), algorithm.signature_name})
             : text_of(Text::not_verified, {display_name(path), status_words(status)})) +
        "\n");
    if (exit != Exit::yes)
        print_failure(arguments.command().name,
                      library_failure(status, text_of(Text::signature_under,
                                                      {display_name(arguments.value("signature")),
                                                       key.where})));
    return exit;
}

} // namespace tool
