// qel encrypt, qel decrypt
#include "cipher.h"
#include "command.h"
#include "encrypted_content.h"
#include "export_policy.h"
#include "key_server.h"
#include "pass_phrase.h"
#include "text.h"
#include "texts.h"
#include "wrap.h"

namespace tool {
namespace {

constexpr std::size_t block_size = std::size_t{64} << 10;

void check_data_output(const Arguments &arguments, const std::string &output) {
    if (output == "-" && arguments.json())
        arguments.misuse(text_of(Text::data_or_json));
}

unsigned effective_bits(const Arguments &arguments) {
    return static_cast<unsigned>(
        arguments.number("effective-bits", most_effective_bits, 1, most_parameter_bits));
}

Bytes iv_given(const Arguments &arguments) {
    const std::string text = arguments.value("iv");
    std::optional<Bytes> iv = from_hex(bytes_of(text));
    if (!iv || iv->size() != iv_bytes)
        arguments.misuse(text_of(Text::iv_takes, {in_quotes(text)}));
    return std::move(*iv);
}

// The parameters that the command line has or stands for.
void set_parameters(const Arguments &arguments, const Context &context, Cipher &cipher,
                    bool random_iv) {
    const bool rc2 = cipher.row->kind == CipherKind::rc2;
    const bool file = arguments.has("parameters");
    if (arguments.has("effective-bits") && (!rc2 || file))
        arguments.misuse(rc2 ? text_of(Text::parameters_have_bits) : text_of(Text::bits_for_rc2));
    if (cipher.row->block == 1) {
        if (file || arguments.has("iv"))
            arguments.misuse(text_of(Text::rc4_has_neither));
        return;
    }
    if (file && arguments.has("iv"))
        arguments.misuse(text_of(Text::parameters_have_iv));
    if (file) {
        const std::string path = arguments.value("parameters");
        return take_parameters(context, cipher, read_whole(path), display_name(path));
    }
    if (!random_iv && !arguments.has("iv"))
        arguments.misuse(text_of(Text::bare_needs_iv));
    const Bytes iv = arguments.has("iv") ? iv_given(arguments) : random_bytes(iv_bytes);
    const unsigned bits = effective_bits(arguments);
    take_parameters(context, cipher, encode_parameters(context, *cipher.row, iv, bits),
                    text_of(Text::the_command_line));
}

Cipher cipher_given(const Arguments &arguments, const Context &context, bool random_iv) {
    Cipher cipher;
    cipher.row = &cipher_named(arguments.value("algorithm", "des"));
    set_parameters(arguments, context, cipher, random_iv);
    const std::string path = arguments.value("key");
    cipher.key = read_key_file(path, arguments.has("key-hex"));
    check_key_size(*cipher.row, cipher.key.size(), display_name(path));
    return cipher;
}

Json cipher_json(const Cipher &cipher) {
    Json json;
    json["name"] = cipher.row->text;
    json["effective_bits"] =
        cipher.row->kind == CipherKind::rc2 ? Json(cipher.effective_bits) : Json(nullptr);
    json["parameters"] = cipher.parameters.empty() ? Json(nullptr) : Json(hex(cipher.parameters));
    return json;
}

} // namespace

// ---- Encryption --------------------------------------------------------------------------------

namespace {

void check_encrypt(const Arguments &arguments) {
    const bool to = arguments.has("to");
    if (arguments.has("key") == to)
        arguments.misuse(text_of(Text::key_or_to));
    for (const char *option : {"raw", "key-hex", "iv", "parameters"})
        if (to && arguments.has(option))
            arguments.misuse(text_of(Text::excluded_by_to, {option}));
    std::vector<std::string> paths = arguments.values("to");
    for (const char *option : {"key", "parameters"})
        paths.push_back(arguments.value(option));
    paths.push_back(arguments.operand_or_stdin());
    arguments.check_stdin_once(paths);
}

Cipher cipher_for(const Arguments &arguments, const Context &context, Recipients &recipients) {
    const CipherRow &row = cipher_named(arguments.value("algorithm", "des"));
    if (arguments.has("effective-bits") && row.kind != CipherKind::rc2)
        arguments.misuse(text_of(Text::bits_for_rc2));
    std::vector<PublicKey> keys;
    for (const std::string &path : arguments.values("to"))
        keys.push_back(read_recipient(context, path));
    Cipher cipher = generate_key(context, row, row.usual, effective_bits(arguments));
    for (PublicKey &key : keys)
        recipients.add(context, cipher.key, std::move(key));
    return cipher;
}

} // namespace

Exit run_encrypt(const Arguments &arguments) {
    const std::string path = arguments.operand_or_stdin(), output = arguments.value("output", "-");
    const bool raw = arguments.has("raw");
    check_encrypt(arguments);
    check_data_output(arguments, output);
    if (output == "-")
        refuse_terminal(arguments.command().name, text_of(Text::binary));

    const Context context;
    Recipients recipients;
    const Cipher cipher = arguments.has("to") ? cipher_for(arguments, context, recipients)
                                              : cipher_given(arguments, context, !raw);
    const std::string what = text_of(Text::cannot_encrypt, {display_name(path)});
    Source source(path);
    const std::optional<uint64_t> size = source.size();
    CipherRun run(context, Direction::encrypt, cipher, what);
    Output file(output, {.force = arguments.has("force")});
    std::optional<EncryptedContentWriter> container;
    if (!raw)
        container.emplace(context, file, AlgorithmRecord(cipher).id, recipients.list(),
                          size ? std::optional(CipherRun::encrypted_size(*cipher.row, *size))
                               : std::nullopt);
    const Sink take = [&](std::span<const uint8_t> data) {
        container ? container->add(data) : file.write(data);
    };
    Bytes block(block_size);
    uint64_t total = 0;
    while (const std::size_t count = source.read_into(block)) {
        run.add(std::span(block).first(count), take);
        total += count;
    }
    run.finish(take);
    if (container && !container->finish())
        throw Failure{Exit::input, what, text_of(Text::changed_size),
                      text_of(Text::try_when_quiet)};
    file.finish();
    if (arguments.json()) {
        Json json = arguments.report();
        json["file"] = utf8_or_latin1(path);
        json["output"] = utf8_or_latin1(output);
        json["container"] =
            raw ? Json(nullptr) : Json(recipients.list() ? "EnvelopedData" : "EncryptedData");
        json["algorithm"] = cipher_json(cipher);
        json["recipients"] = recipients.names();
        json["bytes_in"] = total;
        json["bytes_out"] = file.written();
        put_json(json);
    }
    return Exit::yes;
}

// ---- Decryption --------------------------------------------------------------------------------

namespace {

void check_decrypt(const Arguments &arguments) {
    const bool raw = arguments.has("raw");
    for (const char *option : {"algorithm", "iv", "parameters", "effective-bits"})
        if (!raw && arguments.has(option))
            arguments.misuse(text_of(Text::container_says_it, {option}));
    if (raw && !arguments.has("algorithm"))
        arguments.misuse(text_of(Text::bare_needs, {"algorithm"}));
    if (raw && !arguments.has("key"))
        arguments.misuse(text_of(Text::bare_needs, {"key"}));
    if (raw && arguments.has("cert"))
        arguments.misuse(text_of(Text::does_not_go_with, {std::string("cert"), "raw"}));
    arguments.check_stdin_once({arguments.operand_or_stdin(), arguments.value("key"),
                                arguments.value("parameters"), arguments.value("cert"),
                                phrase_path(arguments, "passin")});
}

// One text for all that can be wrong with a wrapped key of the right size, so that it does not tell
// apart what RSA decryption made of it.
Failure not_opened(const std::string &what) {
    return library_failure(QEL_ERR_UNWRAP, what, text_of(Text::private_key_of_recipient));
}

// The recipients whose wrapped key can be for this private key.
std::vector<const QelRcptInfo *> fitting(const Arguments &arguments, const Context &context,
                                         const QelEnvelopedData &enveloped, unsigned modulus,
                                         const std::string &what) {
    std::optional<Certificate> certificate;
    if (arguments.has("cert"))
        certificate = std::move(read_certificates(context, arguments.value("cert")).front());
    std::vector<const QelRcptInfo *> found;
    for (const QelRcptInfos *node = enveloped.recipientInfos; node != nullptr; node = node->next) {
        const QelRcptInfo &info = *node->recipient;
        if (certificate ? is_recipient(context, info, *certificate->record)
                        : info.encryptedKey.length == modulus)
            found.push_back(&info);
    }
    if (found.empty())
        throw Failure{Exit::no_key, what,
                      certificate ? text_of(Text::for_others) : text_of(Text::no_key_of_this_size),
                      text_of(Text::give_recipients_key)};
    return found;
}

// The session key for which the private key is right.
Bytes session_key(const Arguments &arguments, const Context &context,
                  const QelEnvelopedData &enveloped, const CipherRow &row,
                  const std::string &what) {
    const UsableKey private_key = usable_key(arguments, USAGE_ENCRYPT);
    const unsigned modulus = modulus_bytes(private_key);
    for (const QelRcptInfo *info : fitting(arguments, context, enveloped, modulus, what)) {
        QelStatus status = QEL_OK;
        Bytes key =
            unwrap_key(*private_key.context, {info->encryptedKey.value, info->encryptedKey.length},
                       private_key.key, status);
        if (status == QEL_ERR_EXPORT)
            throw policy_failure(status, what, unwrapping_modulus_rule(modulus));
        if (status == QEL_OK && key.size() >= row.least && key.size() <= row.most)
            return key;
        if (status != QEL_OK && status != QEL_ERR_UNWRAP && status != QEL_ERR_BAD_PARAM &&
            status != QEL_ERR_SERV_DECRYPT)
            throw library_failure(status, what);
    }
    throw not_opened(what);
}

// What the container says and the key opens.
Cipher cipher_of(const Arguments &arguments, const Context &context,
                 const EncryptedContentReader &reader, const std::string &what) {
    const QelAlgId *algorithm = reader.algorithm();
    Cipher cipher;
    cipher.row = find_cipher(algorithm->algorithm);
    if (cipher.row == nullptr)
        throw Failure{Exit::input, what,
                      status_words(QEL_ERR_UNSUPPORTED_ALG) + " (" + algorithm_text(algorithm) +
                          ")",
                      text_of(Text::other_cipher), QEL_ERR_UNSUPPORTED_ALG};
    if (const QelOctetString *parameters = algorithm->parameters)
        take_parameters(context, cipher, {parameters->value, parameters->length},
                        text_of(Text::the_container));
    else
        take_parameters(context, cipher, {}, text_of(Text::the_container));
    if (reader.enveloped() != nullptr) {
        cipher.key = session_key(arguments, context, *reader.enveloped(), *cipher.row, what);
        return cipher;
    }
    if (arguments.has("cert"))
        warn(text_of(Text::cert_does_nothing));
    if (!arguments.has("key"))
        arguments.misuse(text_of(Text::key_names_session_key));
    const std::string path = arguments.value("key");
    cipher.key = read_key_file(path, arguments.has("key-hex"));
    check_key_size(*cipher.row, cipher.key.size(), display_name(path));
    return cipher;
}

} // namespace

Exit run_decrypt(const Arguments &arguments) {
    const std::string path = arguments.operand_or_stdin(), output = arguments.value("output", "-");
    check_decrypt(arguments);
    check_data_output(arguments, output);

    const Context context;
    const std::string what = text_of(Text::cannot_decrypt, {display_name(path)});
    Source source(path);
    std::optional<EncryptedContentReader> container;
    if (!arguments.has("raw"))
        container.emplace(context, source, what);
    const Cipher cipher = container ? cipher_of(arguments, context, *container, what)
                                    : cipher_given(arguments, context, false);
    CipherRun run(context, Direction::decrypt, cipher, what);
    Output file(output, {.force = arguments.has("force"), .owner_only = true});
    const Sink take = [&](std::span<const uint8_t> data) { file.write(data); };
    Bytes block(block_size);
    uint64_t total = 0;
    while (const std::size_t count =
               container ? container->read_into(block) : source.read_into(block)) {
        run.add(std::span(block).first(count), take);
        total += count;
    }
    run.finish(take);
    file.finish();
    if (arguments.json()) {
        Json json = arguments.report();
        json["file"] = utf8_or_latin1(path);
        json["output"] = utf8_or_latin1(output);
        json["container"] = !container               ? Json(nullptr)
                            : container->enveloped() ? Json("EnvelopedData")
                                                     : Json("EncryptedData");
        json["algorithm"] = cipher_json(cipher);
        json["bytes_in"] = total;
        json["bytes_out"] = file.written();
        put_json(json);
    }
    return Exit::yes;
}

} // namespace tool
