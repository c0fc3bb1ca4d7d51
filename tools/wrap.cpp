// qel wrap, qel unwrap, and what encryption needs of them
#include "wrap.h"

#include "cipher.h"
#include "command.h"
#include "export_policy.h"
#include "key_package.h"
#include "key_server.h"
#include "pass_phrase.h"
#include "text.h"
#include "texts.h"

#include <algorithm>

namespace tool {
namespace {

constexpr unsigned pkcs1_overhead = 11; // bytes of a block of type 2 that are not the key's

// The library says of a key that is too long no more than that it could not be wrapped.
Failure wrap_failure(QelStatus status, std::string what, const QelKeyInfo *recipient,
                     std::size_t size) {
    Failure failure = library_failure(status, std::move(what));
    const unsigned modulus = (rsa_numbers(recipient).bits + 7) / 8;
    if (status == QEL_ERR_WRAP && size + pkcs1_overhead > modulus) {
        failure.exit = Exit::input;
        failure.why += text_of(Text::key_too_long_for_modulus,
                               {std::to_string(size), std::to_string(modulus),
                                std::to_string(modulus - std::min(modulus, pkcs1_overhead))});
        failure.next = text_of(Text::check_session_key);
    }
    return failure;
}

void warn_of(const PublicKey &recipient, const RsaKey &rsa) {
    if (!rsa.note.empty())
        warn(recipient.where + ": " + rsa.note);
    if (!recipient.certificate.record)
        return;
    const std::string state = validity_state(recipient.certificate.record->validity);
    if (state != "valid")
        warn(state == "unknown"
                 ? text_of(Text::certificate_in_unknown, {recipient.where})
                 : text_of(
                       Text::certificate_in_is,
                       {recipient.where, validity_words(recipient.certificate.record->validity)}));
}

} // namespace

Bytes wrap_key(const Context &context, std::span<const uint8_t> key, const PublicKey &recipient) {
    const RsaKey rsa = as_rsa_key(recipient.key());
    warn_of(recipient, rsa);
    QelAlgId algorithm = {const_cast<QelOid *>(rsa.algorithm),
                          const_cast<QelOctetString *>(&rsa.parameters)};
    uint8_t *wrapped = nullptr;
    uint32_t length = 0;
    const QelStatus status =
        vfeqjfkkj(context, key.data(), static_cast<uint32_t>(key.size()), QEL_RC4_AID, rsa.bits,
                  &rsa.parameters, &algorithm, &wrapped, &length);
    if (status != QEL_OK)
        throw wrap_failure(status, text_of(Text::cannot_wrap, {recipient.where}), recipient.key(),
                           key.size());
    const LibraryBytes owner(wrapped);
    return Bytes(wrapped, wrapped + length);
}

namespace {

const StoredPackage &for_encryption(const std::vector<StoredPackage> &packages,
                                    const std::string &path) {
    for (const StoredPackage &package : packages)
        if (package.record->usage != USAGE_SIGN)
            return package;
    throw Failure{Exit::permission, text_of(Text::cannot_encrypt_for, {display_name(path)}),
                  text_of(Text::usage_is_sign), text_of(Text::ask_for_decrypt_package)};
}

} // namespace

PublicKey read_recipient(const Context &context, const std::string &path) {
    const Input input = read_input(path); // once: it may be a pipe
    const std::vector<StoredPackage> packages = packages_of(context, input);
    if (packages.empty())
        return std::move(public_keys_of(context, input, KeySource::either).front());
    const StoredPackage &package = for_encryption(packages, path);
    const QelStatus status = signature_status(context, package);
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_use_package_in, {package.where}));
    const Bytes key = encode(context, package.record->pubKeyInfo, QEL_PDU_SubjectPublicKeyInfo,
                             text_of(Text::a_public_key));
    return {package.where, decode<QelKeyInfo>(context, key, QEL_PDU_SubjectPublicKeyInfo), {}};
}

unsigned modulus_bytes(const Context &context, const PrivateKey &key, const std::string &where) {
    uint32_t size = 0;
    const QelStatus status = __qel_get_rsa_keysize(context, QEL_RSA_PRIVATE, key.octets.data(),
                                                   static_cast<uint32_t>(key.octets.size()), &size);
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_use_private_key, {where}));
    return size;
}

Bytes unwrap_key(const Context &context, std::span<const uint8_t> wrapped, const PrivateKey &key,
                 QelStatus &status) {
    uint8_t *bytes = nullptr;
    uint32_t length = 0;
    status =
        qel_unwrap_key(context, wrapped.data(), static_cast<uint32_t>(wrapped.size()),
                       key.algorithm, key.data(), key.size(), QEL_RSA_ENCR_AID, &bytes, &length);
    if (status != QEL_OK)
        return {};
    const Bytes result(bytes, bytes + length);
    explicit_bzero(bytes, length);
    std::free(bytes);
    return result;
}

// ---- Recipients --------------------------------------------------------------------------------

void Recipients::add(const Context &context, std::span<const uint8_t> key, PublicKey recipient) {
    Member &member = members_.emplace_back();
    member.wrapped = wrap_key(context, key, recipient);
    member.key = std::move(recipient);
    if (const QelCert *certificate = member.key.certificate.record.get()) {
        member.who = {certificate->issuer, certificate->serial};
    } else {
        const Bytes encoding = encode(context, member.key.key(), QEL_PDU_SubjectPublicKeyInfo,
                                      text_of(Text::a_public_key));
        const std::string digits = fingerprint(context, encoding, algorithm_named("md5"));
        member.serial = *from_hex(bytes_of("00" + digits)); // positive
        if (member.serial[1] < 0x80)
            member.serial.erase(member.serial.begin());
        member.no_name = {QEL_NAME_RDN_SEQUENCE, nullptr};
        member.who = {&member.no_name,
                      {static_cast<uint16_t>(member.serial.size()), member.serial.data()}};
    }
    member.info = {0,
                   &member.who,
                   const_cast<QelAlgId *>(QEL_RSA_ENCR_AID),
                   {static_cast<uint32_t>(member.wrapped.size()), member.wrapped.data()}};
    nodes_.push_back({nullptr, &member.info});
    if (nodes_.size() > 1)
        nodes_[nodes_.size() - 2].next = &nodes_.back();
}

Json Recipients::names() const {
    Json names = Json::array();
    for (const Member &member : members_) {
        const QelCert *certificate = member.key.certificate.record.get();
        Json one;
        one["subject"] = certificate != nullptr
                             ? Json(name_text(certificate->subject, Charset::utf8))
                             : Json(nullptr);
        one["issuer"] = certificate != nullptr ? Json(name_text(certificate->issuer, Charset::utf8))
                                               : Json(nullptr);
        one["serial"] = hex({member.who.serial.value, member.who.serial.length});
        names.push_back(one);
    }
    return names;
}

bool is_recipient(const Context &context, const QelRcptInfo &info, const QelCert &certificate) {
    const QelIssuerAndSerial &who = *info.issuerAndSerialNumber;
    return std::ranges::equal(std::span(who.serial.value, who.serial.length),
                              std::span(certificate.serial.value, certificate.serial.length)) &&
           encode(context, who.issuer, QEL_PDU_Name, text_of(Text::a_name)) ==
               encode(context, certificate.issuer, QEL_PDU_Name, text_of(Text::a_name));
}

// ---- Commands ----------------------------------------------------------------------------------

Exit run_wrap(const Arguments &arguments) {
    const std::string path = arguments.operand_or_stdin();
    const std::string output = arguments.value("output", "-");
    arguments.check_stdin_once({path, arguments.value("to")});
    if (output == "-" && !arguments.json())
        refuse_terminal(arguments.command().name, text_of(Text::binary));

    const Context context;
    const PublicKey recipient = read_recipient(context, arguments.value("to"));
    const Bytes key = read_key_file(path, arguments.has("key-hex"));
    const Bytes wrapped = wrap_key(context, key, recipient);
    const bool to_json = arguments.json() && output == "-";
    if (!to_json)
        write_file(output, wrapped, {.force = arguments.has("force")});
    if (arguments.json()) {
        Json json = arguments.report();
        json["file"] = utf8_or_latin1(path);
        json["key_bytes"] = key.size();
        json["output"] = to_json ? Json(nullptr) : Json(utf8_or_latin1(output));
        json["wrapped"] = hex(wrapped);
        put_json(json);
    }
    return Exit::yes;
}

namespace {

Failure unwrap_failure(QelStatus status, const std::string &path, unsigned modulus) {
    const std::string what = text_of(Text::cannot_unwrap, {display_name(path)});
    if (status == QEL_ERR_UNWRAP || status == QEL_ERR_SERV_DECRYPT)
        return library_failure(status, what, text_of(Text::check_wrapped_for_key));
    return policy_failure(status, what, unwrapping_modulus_rule(modulus));
}

} // namespace

Exit run_unwrap(const Arguments &arguments) {
    const std::string path = arguments.operand_or_stdin();
    const std::string output = arguments.value("output");
    arguments.check_stdin_once({path, arguments.value("key"), phrase_path(arguments, "passin")});
    if (output == "-" && arguments.json())
        arguments.misuse(text_of(Text::key_not_as_json));
    if (output == "-")
        refuse_terminal(arguments.command().name, text_of(Text::keys_not_printed));

    const UsableKey private_key = usable_key(arguments, USAGE_ENCRYPT);
    const unsigned modulus = modulus_bytes(private_key);
    const Bytes wrapped = read_whole(path);
    if (wrapped.size() != modulus && modulus <= most_unwrap_bytes)
        throw Failure{Exit::input, text_of(Text::cannot_unwrap, {display_name(path)}),
                      text_of(Text::wrapped_key_size,
                              {std::to_string(wrapped.size()), std::to_string(modulus)}),
                      text_of(Text::right_file_not_armour)};
    QelStatus status = QEL_OK;
    const Bytes key = unwrap_key(*private_key.context, wrapped, private_key.key, status);
    if (status != QEL_OK)
        throw unwrap_failure(status, path, modulus);
    write_key_file(output, key, arguments);
    if (arguments.json()) {
        Json json = arguments.report();
        json["file"] = utf8_or_latin1(path);
        json["key_bytes"] = key.size();
        json["output"] = utf8_or_latin1(output);
        put_json(json);
    }
    return Exit::yes;
}

} // namespace tool
