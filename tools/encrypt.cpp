// qel encrypt, qel decrypt
#include "cipher.h"
#include "command.h"
#include "encrypted_content.h"
#include "export_policy.h"
#include "key_server.h"
#include "pass_phrase.h"
#include "text.h"
#include "wrap.h"

namespace tool {
namespace {

constexpr std::size_t block_size = std::size_t{64} << 10;

void check_data_output(const Arguments &arguments, const std::string &output) {
    if (output == "-" && arguments.json())
        arguments.misuse("standard output takes the data or the JSON; give '--output FILE'");
}

unsigned effective_bits(const Arguments &arguments) {
    return static_cast<unsigned>(
        arguments.number("effective-bits", most_effective_bits, 1, most_parameter_bits));
}

Bytes iv_given(const Arguments &arguments) {
    const std::string text = arguments.value("iv");
    std::optional<Bytes> iv = from_hex(bytes_of(text));
    if (!iv || iv->size() != iv_bytes)
        arguments.misuse("option '--iv' takes 16 hexadecimal digits, not " + in_quotes(text));
    return std::move(*iv);
}

// The parameters that the command line has or stands for.
void set_parameters(const Arguments &arguments, const Context &context, Cipher &cipher,
                    bool random_iv) {
    const bool rc2 = cipher.row->kind == CipherKind::rc2;
    const bool file = arguments.has("parameters");
    if (arguments.has("effective-bits") && (!rc2 || file))
        arguments.misuse(rc2 ? "the parameters have the effective bits; leave "
                               "'--effective-bits' away"
                             : "'--effective-bits' is for rc2 only");
    if (cipher.row->block == 1) {
        if (file || arguments.has("iv"))
            arguments.misuse("rc4 has neither parameters nor an initialisation vector");
        return;
    }
    if (file && arguments.has("iv"))
        arguments.misuse("the parameters have the initialisation vector; leave '--iv' away");
    if (file) {
        const std::string path = arguments.value("parameters");
        return take_parameters(context, cipher, read_whole(path), display_name(path));
    }
    if (!random_iv && !arguments.has("iv"))
        arguments.misuse("bare ciphertext needs '--iv' or '--parameters'");
    const Bytes iv = arguments.has("iv") ? iv_given(arguments) : random_bytes(iv_bytes);
    const unsigned bits = effective_bits(arguments);
    take_parameters(context, cipher, encode_parameters(context, *cipher.row, iv, bits),
                    "the command line");
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
        arguments.misuse("one of '--key' and '--to' is needed, and not both");
    for (const char *option : {"raw", "key-hex", "iv", "parameters"})
        if (to && arguments.has(option))
            arguments.misuse(std::string("'--") + option +
                             "' does not go with '--to', which makes a key and its parameters");
    std::vector<std::string> paths = arguments.values("to");
    for (const char *option : {"key", "parameters"})
        paths.push_back(arguments.value(option));
    paths.push_back(arguments.operand_or_stdin());
    arguments.check_stdin_once(paths);
}

Cipher cipher_for(const Arguments &arguments, const Context &context, Recipients &recipients) {
    const CipherRow &row = cipher_named(arguments.value("algorithm", "des"));
    if (arguments.has("effective-bits") && row.kind != CipherKind::rc2)
        arguments.misuse("'--effective-bits' is for rc2 only");
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
        refuse_terminal(arguments.command().name, "the result is binary; give '--output FILE'");

    const Context context;
    Recipients recipients;
    const Cipher cipher = arguments.has("to") ? cipher_for(arguments, context, recipients)
                                              : cipher_given(arguments, context, !raw);
    const std::string what = "cannot encrypt " + display_name(path);
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
        throw Failure{Exit::input, what, "the file changed its size while it was read",
                      "Try again when nothing writes to it."};
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
            arguments.misuse(std::string("'--") + option +
                             "' goes with '--raw'; the container says it itself");
    if (raw && !arguments.has("algorithm"))
        arguments.misuse("bare ciphertext needs '--algorithm'");
    if (raw && !arguments.has("key"))
        arguments.misuse("bare ciphertext needs '--key'");
    if (raw && arguments.has("cert"))
        arguments.misuse("'--cert' does not go with '--raw'");
    arguments.check_stdin_once({arguments.operand_or_stdin(), arguments.value("key"),
                                arguments.value("parameters"), arguments.value("cert"),
                                phrase_path(arguments, "passin")});
}

// One text for all that can be wrong with a wrapped key of the right size, so that it does not tell
// apart what RSA decryption made of it.
Failure not_opened(const std::string &what) {
    return library_failure(QEL_ERR_UNWRAP, what,
                           "Check that the private key is a recipient's, and the data undamaged.");
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
                      certificate ? "it is for others than the certificate's subject"
                                  : "none of its recipients has a key of this private key's size",
                      "Give the private key of a recipient."};
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
        throw Failure{
            Exit::input, what,
            status_words(QEL_ERR_UNSUPPORTED_ALG) + " (" + algorithm_text(algorithm) + ")",
            "Have the data encrypted with DES-CBC, RC2-CBC or RC4.", QEL_ERR_UNSUPPORTED_ALG};
    if (const QelOctetString *parameters = algorithm->parameters)
        take_parameters(context, cipher, {parameters->value, parameters->length}, "the container");
    else
        take_parameters(context, cipher, {}, "the container");
    if (reader.enveloped() != nullptr) {
        cipher.key = session_key(arguments, context, *reader.enveloped(), *cipher.row, what);
        return cipher;
    }
    if (arguments.has("cert"))
        warn("the data have no recipients; '--cert' does nothing");
    if (!arguments.has("key"))
        arguments.misuse("the data have no recipients: '--key' must name the session key");
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
    const std::string what = "cannot decrypt " + display_name(path);
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
