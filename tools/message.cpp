// qel message sign, verify, show
#include "armour.h"
#include "certificate_text.h"
#include "command.h"
#include "key_server.h"
#include "pass_phrase.h"
#include "repository.h"
#include "signed_message.h"
#include "text.h"
#include "texts.h"

namespace tool {
namespace {

constexpr const char *message_label = "PKCS7";

// ---- Signing -----------------------------------------------------------------------------------

Bytes sign_bytes(const UsableKey &key, std::span<const uint8_t> content,
                 const Algorithm &algorithm) {
    const std::span<const uint8_t> data =
        content.empty() ? std::span<const uint8_t>(algorithm.digest_of_nothing) : content;
    uint8_t *signature = nullptr;
    uint32_t length = 0;
    const QelStatus status =
        qel_sign(*key.context, data.data(), static_cast<uint32_t>(data.size()),
                 content.empty() ? QEL_MODE_DIGEST : QEL_MODE_FINAL, key.key.algorithm,
                 key.key.data(), key.key.size(), *algorithm.signature, &signature, &length);
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_sign_with, {key.where}));
    const LibraryBytes owner(signature);
    return Bytes(signature, signature + length);
}

// The message with the certificates that the user gives.
Bytes sign_with_certificates(const Arguments &arguments, const UsableKey &key, const Bytes &content,
                             const Algorithm &algorithm) {
    std::vector<Certificate> certificates;
    for (const std::string &path : arguments.values("cert"))
        for (Certificate &certificate : read_certificates(*key.context, path))
            certificates.push_back(std::move(certificate));
    std::vector<const QelCert *> records;
    for (const Certificate &certificate : certificates)
        records.push_back(certificate.record.get());
    const Bytes signature = sign_bytes(key, content, algorithm);
    const Bytes message = make_message(*key.context, content, algorithm, signature, records);

    // Proved before it leaves: the certificate is the key's.
    const RsaKey rsa = as_rsa_key(records[0]->pubKeyInfo);
    const std::span<const uint8_t> data =
        content.empty() ? std::span<const uint8_t>(algorithm.digest_of_nothing)
                        : std::span<const uint8_t>(content);
    const QelStatus status = qel_verify(
        *key.context, data.data(), static_cast<uint32_t>(data.size()),
        content.empty() ? QEL_MODE_DIGEST : QEL_MODE_FINAL, rsa.algorithm, &rsa.parameters,
        rsa.bits, *algorithm.signature, signature.data(), static_cast<uint32_t>(signature.size()));
    if (status != QEL_OK)
        throw Failure{Exit::input, text_of(Text::cannot_sign_with, {key.where}),
                      text_of(Text::certificate_not_of_key, {certificates[0].where}),
                      text_of(Text::signers_certificate_first), status};
    return message;
}

// The message with the user's own certificates, which the library finds.
Bytes sign_with_own_certificates(const Arguments &arguments, const UsableKey &key,
                                 const Bytes &content, const Algorithm &algorithm) {
    if (content.empty())
        arguments.misuse(text_of(Text::empty_needs_cert));
    const std::vector<std::string> trusted = arguments.values("trusted");
    const std::vector<const char *> names = name_list(trusted);
    uint8_t *message = nullptr;
    uint32_t length = 0;
    const QelStatus status = __qel_create_pkcs7_signedData(
        *key.context, content.data(), static_cast<uint32_t>(content.size()), key.key.algorithm,
        key.key.data(), key.key.size(), *algorithm.signature, nullptr,
        trusted.empty() ? nullptr : names.data(), 0, &message, &length);
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_make_message),
                              text_of(Text::own_certificates));
    const LibraryBytes owner(message);
    return Bytes(message, message + length);
}

} // namespace

Exit run_message_sign(const Arguments &arguments) {
    const std::string path = arguments.operand_or_stdin();
    const std::string output = arguments.value("output", "-");
    std::vector<std::string> inputs = arguments.values("cert");
    inputs.insert(inputs.end(), {path, arguments.value("key"), phrase_path(arguments, "passin")});
    arguments.check_stdin_once(inputs);
    const bool armor = arguments.has("armor");
    if (output == "-" && !armor && !arguments.json())
        refuse_terminal(arguments.command().name, text_of(Text::binary_or_armor));
    const Algorithm &algorithm = algorithm_named(arguments.value("algorithm", "md5"));
    const Bytes content = read_whole(path);
    const UsableKey key = usable_key(arguments, USAGE_SIGN);
    const Bytes message = arguments.has("cert")
                              ? sign_with_certificates(arguments, key, content, algorithm)
                              : sign_with_own_certificates(arguments, key, content, algorithm);
    const bool to_json = arguments.json() && output == "-";
    if (!to_json)
        write_file(output, armor ? armoured(message, message_label) : message);
    if (arguments.json()) {
        Json json = arguments.report();
        json["file"] = utf8_or_latin1(path);
        json["key"] = utf8_or_latin1(key.where);
        json["algorithm"] = algorithm.signature_name;
        json["output"] = to_json ? Json(nullptr) : Json(utf8_or_latin1(output));
        if (to_json)
            json["hex"] = hex(message);
        put_json(json);
    }
    return Exit::yes;
}

// ---- Verifying ---------------------------------------------------------------------------------

namespace {

// What was found out about one signer.
struct SignerVerdict {
    QelStatus status = QEL_OK;
    std::string signer;             // a name; safe to print, as the others are
    std::string why, expired;       // or empty
    std::vector<std::string> chain; // subjects
    std::vector<std::string> notes;
    Bytes content;
};

Charset charset_of(const Arguments &arguments) {
    return arguments.json() ? Charset::utf8 : Charset::terminal;
}

std::string take_text(char *text, Charset charset) {
    const LibraryBytes owner(reinterpret_cast<uint8_t *>(text));
    return text != nullptr ? printable(utf8_or_latin1(text), charset) : "";
}

std::vector<std::string> subjects(const std::vector<Certificate> &chain, Charset charset) {
    std::vector<std::string> names;
    for (const Certificate &certificate : chain)
        names.push_back(name_text(certificate.record->subject, charset));
    return names;
}

// The library's own operation.
SignerVerdict verify_plain(const Arguments &arguments, QelContext *context,
                           const SignedMessage &message, const TrustedKeys *trusted) {
    const std::vector<std::string> allowed = arguments.values("allowed");
    const std::vector<const char *> names = name_list(allowed);
    uint8_t *data = nullptr;
    uint32_t length = 0;
    char *signer = nullptr;
    QelCert *chain = nullptr, *expired = nullptr;
    int count = 0;
    SignerVerdict verdict;
    verdict.status = __qel_verify_pkcs7_signedData(
        context, message.bytes.data(), static_cast<uint32_t>(message.bytes.size()),
        trusted != nullptr ? trusted->list() : nullptr, allowed.empty() ? nullptr : names.data(), 0,
        &data, &length, &signer, &chain, &count, &expired);
    const LibraryBytes owner(data);
    verdict.content.assign(data, data + length);
    const Charset charset = charset_of(arguments);
    const std::string capitals = take_text(signer, charset);
    verdict.chain =
        subjects(certificates_from(context, chain, count, text_of(Text::the_chain)), charset);
    verdict.signer = verdict.chain.empty() ? capitals : verdict.chain[0];
    if (expired != nullptr)
        verdict.expired = name_text(expired->subject, charset);
    qel_free_cert(&expired);
    return verdict;
}

// The same checks for one signer of a message that the library's operation does not know.
SignerVerdict verify_one(const Arguments &arguments, QelContext *context,
                         const SignedMessage &message, const QelSignerInfo &signer,
                         const TrustedKeys &trusted, const Bytes &content) {
    const Charset charset = charset_of(arguments);
    SignerVerdict verdict;
    const QelCert *certificate = certificate_of(context, message, signer);
    if (certificate == nullptr) {
        verdict.signer = text_of(Text::signer_by_number,
                                 {hex({signer.issuerAndSerialNumber->serial.value,
                                       signer.issuerAndSerialNumber->serial.length}),
                                  name_text(signer.issuerAndSerialNumber->issuer, charset)});
        verdict.status = QEL_ERR_NO_CERT;
        verdict.why = text_of(Text::lacks_signers_certificate);
        return verdict;
    }
    verdict.signer = name_text(certificate->subject, charset);
    const QelStatus signature =
        verify_signer(context, message, signer, *certificate, content, verdict.why);
    if (signature != QEL_OK) {
        verdict.status = signature;
        return verdict;
    }
    if (__qel_is_trusted_key(context, trusted.list(), certificate) == QEL_OK)
        return verdict;
    const std::vector<const QelCert *> chain = chain_in(context, message, certificate);
    const ChainVerdict found =
        chain.size() > 1
            ? verify_chain(context, chain, trusted, charset)
            : establish_chain(context, certificate, trusted, arguments.values("allowed"), charset);
    verdict.status = found.status;
    verdict.expired = found.expired;
    verdict.chain = subjects(found.chain, charset);
    if (chain.size() > 1)
        for (const QelCert *link : chain)
            verdict.chain.push_back(name_text(link->subject, charset));
    return verdict;
}

// Those of the user's own key package, where --trust gives none.
void add_own_trusted_keys(QelContext *context, TrustedKeys &trusted) {
    QelKeyPkg *package = nullptr;
    const QelStatus status = qel_get_keypkg(context, nullptr, &package);
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::no_own_package),
                              text_of(Text::log_in_or_trust));
    const Decoded<QelKeyPkg> owner(package, ReleasePdu{context, QEL_PDU_KeyPkg});
    trusted.add_keys_of(*package);
    if (trusted.list() == nullptr)
        throw Failure{Exit::no, text_of(Text::cannot_tell_trust), text_of(Text::own_list_is_empty),
                      text_of(Text::add_keys_or_trust)};
}

std::vector<SignerVerdict> verify_all(const Arguments &arguments, const Context &context,
                                      const SignedMessage &message) {
    const bool given = arguments.has("trust");
    TrustedKeys trusted(context);
    for (const std::string &path : arguments.values("trust"))
        trusted.add_file(path);
    if (is_plain(message) && !arguments.has("content")) {
        SignerVerdict verdict =
            verify_plain(arguments, context, message, given ? &trusted : nullptr);
        if (verdict.status == QEL_ERR_BAD_PARAM && !given) // a list without keys, perhaps
            add_own_trusted_keys(context, trusted);
        return {std::move(verdict)};
    }

    if (!given)
        add_own_trusted_keys(context, trusted);
    if (message.has_content == arguments.has("content"))
        throw Failure{Exit::usage, text_of(Text::cannot_verify, {message.where}),
                      text_of(message.has_content ? Text::content_inside : Text::content_outside),
                      text_of(message.has_content ? Text::leave_content_out : Text::name_content)};
    const Bytes content =
        message.has_content ? message.content : read_whole(arguments.value("content"));
    std::vector<SignerVerdict> verdicts;
    for (const QelSignerInfo *signer : message.signers) {
        verdicts.push_back(verify_one(arguments, context, message, *signer, trusted, content));
        verdicts.back().content = content;
        if (signer->authenticatedAttributes != nullptr)
            verdicts.back().notes.push_back(text_of(Text::attributes_are_signed));
    }
    if (verdicts.empty())
        throw Failure{Exit::no, text_of(Text::is_not_signed, {message.where}),
                      text_of(Text::no_signer), text_of(Text::certificates_only)};
    for (SignerVerdict &verdict : verdicts)
        verdict.notes.push_back(text_of(Text::verified_step_by_step));
    return verdicts;
}

bool is_good(const Arguments &arguments, const SignerVerdict &verdict) {
    return verdict.status == QEL_OK ||
           (arguments.has("allow-expired") && verdict.status == QEL_ERR_KEY_EXPIRED);
}

std::string verdict_text(const Arguments &arguments, const SignerVerdict &verdict,
                         const std::string &where) {
    const std::string why = verdict.why.empty() ? status_words(verdict.status) : verdict.why;
    const bool good = is_good(arguments, verdict);
    std::string text = verdict.signer.empty()
                           ? text_of(good ? Text::verified : Text::not_verified, {where, why})
                           : text_of(good ? Text::verified_signed_by : Text::not_verified_signed_by,
                                     {where, verdict.signer, why});
    text += "\n";
    for (const std::string &link : verdict.chain)
        text += "  " + text_of(Text::chain_link, {link}) + "\n";
    if (!verdict.expired.empty())
        text += "  " + text_of(Text::outside_validity, {verdict.expired}) + "\n";
    for (const std::string &note : verdict.notes)
        text += "  " + note + "\n";
    return text;
}

Json verdict_json(const Arguments &arguments, const SignerVerdict &verdict) {
    Json json;
    json["verified"] = is_good(arguments, verdict);
    json["signer"] = verdict.signer;
    json["status"] = status_json(verdict.status);
    json["why"] = verdict.why.empty() ? Json(nullptr) : Json(verdict.why);
    json["chain"] = verdict.chain;
    json["expired"] = verdict.expired.empty() ? Json(nullptr) : Json(verdict.expired);
    json["notes"] = verdict.notes;
    return json;
}

} // namespace

Exit run_message_verify(const Arguments &arguments) {
    const std::string path = arguments.operand_or_stdin();
    std::vector<std::string> inputs = arguments.values("trust");
    inputs.insert(inputs.end(), {path, arguments.value("content")});
    arguments.check_stdin_once(inputs);
    const std::string output = arguments.value("output");
    if (output == "-" && arguments.json())
        arguments.misuse(text_of(Text::no_room_beside_json));
    const bool connected = !arguments.has("trust");
    const Context context =
        connected ? Context(arguments.value("id", default_package_id), default_host) : Context();
    const SignedMessage message = read_message(context, path);
    const std::vector<SignerVerdict> verdicts = verify_all(arguments, context, message);

    Exit exit = Exit::yes;
    for (const SignerVerdict &verdict : verdicts)
        if (!is_good(arguments, verdict) && exit == Exit::yes)
            exit = verdict_exit(verdict.status);
    if (exit == Exit::yes && arguments.has("output"))
        write_file(output, verdicts[0].content);
    if (arguments.json()) {
        Json json = arguments.report();
        json["file"] = utf8_or_latin1(path);
        json["verified"] = exit == Exit::yes;
        json["signers"] = Json::array();
        for (const SignerVerdict &verdict : verdicts)
            json["signers"].push_back(verdict_json(arguments, verdict));
        put_json(json);
        return exit;
    }
    for (const SignerVerdict &verdict : verdicts)
        if (output == "-")
            say(verdict_text(arguments, verdict, message.where));
        else
            put(verdict_text(arguments, verdict, message.where));
    return exit;
}

// ---- Showing -----------------------------------------------------------------------------------

namespace {

std::string attribute_names(const QelAttributes *attributes) {
    std::string text;
    for (const QelAttributes *node = attributes; node != nullptr; node = node->next) {
        const char *name = oid_name(node->attribute->type);
        text += (text.empty() ? "" : ", ") +
                (name != nullptr ? std::string(name) : oid_text(node->attribute->type));
    }
    return text;
}

std::string signer_text(const QelSignerInfo &signer) {
    std::string text = "  Signer:            " + name_text(signer.issuerAndSerialNumber->issuer) +
                       ", serial number " +
                       hex({signer.issuerAndSerialNumber->serial.value,
                            signer.issuerAndSerialNumber->serial.length}) +
                       "\n  Algorithms:        " + algorithm_text(signer.digestAlgorithm) + ", " +
                       algorithm_text(signer.digestEncryptionAlgorithm) + "\n";
    if (signer.authenticatedAttributes != nullptr)
        text += "  Signed attributes: " + attribute_names(signer.authenticatedAttributes) + "\n";
    return text;
}

Json signer_json(const QelSignerInfo &signer) {
    Json json;
    json["issuer"] = name_text(signer.issuerAndSerialNumber->issuer, Charset::utf8);
    json["serial"] = hex(
        {signer.issuerAndSerialNumber->serial.value, signer.issuerAndSerialNumber->serial.length});
    json["digest_algorithm"] = algorithm_text(signer.digestAlgorithm);
    json["signature_algorithm"] = algorithm_text(signer.digestEncryptionAlgorithm);
    json["authenticated_attributes"] = attribute_names(signer.authenticatedAttributes);
    json["signature"] = hex({signer.encryptedDigest.value, signer.encryptedDigest.length});
    return json;
}

std::string content_text(const SignedMessage &message) {
    const QelOid *type = message.data->contentInfo->contentType;
    const char *name = oid_name(type);
    return (name != nullptr ? std::string(name) : oid_text(type)) + ", " +
           (message.has_content ? std::to_string(message.content.size()) + " bytes"
                                : "not in the message");
}

} // namespace

Exit run_message_show(const Arguments &arguments) {
    const std::string path = arguments.operand_or_stdin();
    const std::string output = arguments.value("output");
    if (output == "-" && arguments.json())
        arguments.misuse(text_of(Text::no_room_beside_json));
    const Context context;
    const SignedMessage message = read_message(context, path);
    if (arguments.has("output"))
        write_file(output, message.content);
    Json json = arguments.report();
    json["file"] = utf8_or_latin1(path);
    json["content"] = content_text(message);
    json["signers"] = Json::array();
    json["certificates"] = Json::array();
    std::string text = message.where + ": signed message, not verified\n  Content:           " +
                       content_text(message) + "\n";
    for (const QelSignerInfo *signer : message.signers) {
        json["signers"].push_back(signer_json(*signer));
        text += signer_text(*signer);
    }
    for (const QelCert *record : message.certificates) {
        Certificate certificate;
        certificate.bytes =
            encode(context, record, QEL_PDU_Certificate, text_of(Text::a_certificate));
        certificate.record = decode<QelCert>(context, certificate.bytes, QEL_PDU_Certificate);
        json["certificates"].push_back(
            certificate_json(context, certificate, arguments.has("full")));
        text +=
            "Certificate:\n" + (arguments.has("full") ? full_certificate_text(context, certificate)
                                                      : certificate_text(context, certificate));
    }
    if (arguments.json())
        put_json(json);
    else if (output == "-")
        say(text);
    else
        put(text);
    return Exit::yes;
}

} // namespace tool
