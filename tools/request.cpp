// qel request new, show, verify
#include "request.h"

#include "account.h"
#include "armour.h"
#include "command.h"
#include "der.h"
#include "key_package.h"
#include "text.h"
#include "texts.h"

#include <algorithm>
#include <cstring>

namespace tool {

// ---- Reading -----------------------------------------------------------------------------------

Input read_request_input(const std::string &path) {
    constexpr std::string_view name = "SPKAC=";
    Bytes contents = read_whole(path);
    for (auto at = contents.begin(); at != contents.end();) {
        const auto end = std::find(at, contents.end(), '\n');
        if (end - at > static_cast<std::ptrdiff_t>(name.size()) &&
            std::equal(name.begin(), name.end(), at))
            return parse_input(path, Bytes(at + name.size(), end));
        at = end == contents.end() ? end : end + 1;
    }
    return parse_input(path, std::move(contents));
}

namespace {

// Whether bytes are a PKCS#10 request but for the attributes, which some programs leave out where
// there are none.
bool lacks_attributes(std::span<const uint8_t> bytes) {
    constexpr uint8_t integer = 0x02, bit_string = 0x03, sequence = 0x30;
    const auto are = [](std::span<const uint8_t> rest, std::initializer_list<uint8_t> tags) {
        Element element;
        for (const uint8_t tag : tags)
            if (!take_element(rest, element) || element.tag != tag)
                return false;
        return rest.empty();
    };
    Element request, info;
    if (!take_element(bytes, request) || !bytes.empty() || request.tag != sequence ||
        !are(request.contents, {sequence, sequence, bit_string}) ||
        !take_element(request.contents, info))
        return false;
    return are(info.contents, {integer, sequence, sequence});
}

Failure bad_request(const Input &input, const Item &item, QelStatus status) {
    Failure failure = bad_item(input, item, text_of(Text::a_request), status);
    if (lacks_attributes(item.bytes)) {
        failure.why += text_of(Text::lacks_attributes);
        failure.next = text_of(Text::request_with_attributes);
    }
    return failure;
}

} // namespace

std::vector<Request> requests_of(QelContext *context, const Input &input) {
    std::vector<Request> requests;
    for (const Item &item : input.items) {
        QelStatus status = QEL_ERR_ASN1_DECODE;
        Request request = {input.name_of(item), item.bytes, {}, {}};
        if (item.problem.empty()) {
            request.pkcs10 =
                decode<QelCertReq>(context, item.bytes, QEL_PDU_CertificationRequest, &status);
            request.browser = decode<QelNetscapeCertReq>(context, item.bytes,
                                                         QEL_PDU_SignedPublicKeyAndChallenge);
        }
        if (request.pkcs10 || request.browser)
            requests.push_back(std::move(request));
        else if (item.label.find("REQUEST") != item.label.npos || lacks_attributes(item.bytes))
            throw bad_request(input, item, status);
    }
    return requests;
}

std::vector<Request> read_requests(QelContext *context, const std::string &path) {
    const Input input = read_request_input(path);
    std::vector<Request> requests = requests_of(context, input);
    if (requests.empty() && !input.armoured)
        throw bad_request(input, input.items.front(), QEL_ERR_ASN1_DECODE);
    if (requests.empty())
        throw Failure{Exit::input,
                      text_of(Text::cannot_find_in, {text_of(Text::a_request), display_name(path)}),
                      text_of(Text::holds_other_things), text_of(Text::list_blocks)};
    return requests;
}

QelStatus signature_status(QelContext *context, const Request &request) {
    return request.pkcs10
               ? __qel_verify_certreq(context, request.pkcs10.get(), request.key())
               : __qel_verify_netscape_certreq(context, request.browser.get(), request.key());
}

std::vector<std::string> request_notes(QelContext *context, const Request &request) {
    std::vector<std::string> notes;
    const void *record = request.pkcs10.get();
    if (record == nullptr)
        record = request.browser.get();
    const int pdu =
        request.pkcs10 ? QEL_PDU_CertificationRequest : QEL_PDU_SignedPublicKeyAndChallenge;
    for (const std::string &note :
         {small_exponent_note(request.key()), unsupported_signature(request.algorithm()),
          encoding_note(context, record, pdu, request.bytes, text_of(Text::the_request))})
        if (!note.empty())
            notes.push_back(note);
    return notes;
}

// ---- The owner of a key ------------------------------------------------------------------------

KeyOwner key_owner(const Arguments &arguments, UsableKey key) {
    KeyOwner owner = {std::move(key), {}, {}, {}};
    if (owner.key.key.octets.empty())
        owner.registered = registered_package(owner.key);
    else
        owner.own_key = public_key_of(*owner.key.context, owner.key.key);
    if (!owner.registered && !owner.own_key)
        throw Failure{Exit::input, text_of(Text::cannot_use, {owner.key.where}),
                      text_of(Text::holds_no_rsa_key), text_of(Text::give_rsa_key)};
    if (arguments.has("subject"))
        owner.subject =
            read_name(*owner.key.context, arguments.value("subject"), text_of(Text::subjects_name));
    else if (owner.package() == nullptr)
        arguments.misuse(text_of(Text::subject_is_needed, {owner.key.where}));
    return owner;
}

// ---- request new -------------------------------------------------------------------------------

namespace {

// A challenge password (PKCS#9), encoded: a PrintableString where its characters allow that.
Bytes encoded_challenge(QelContext *context, const PassPhrase &phrase) {
    QelChallengePassword challenge = {QEL_CHALLENGE_PRINTABLE, {const_cast<char *>(phrase.text())}};
    const std::string_view text = phrase.text();
    if (!std::all_of(text.begin(), text.end(), [](char c) {
            return std::isalnum(static_cast<unsigned char>(c)) != 0 ||
                   std::strchr(" '()+,-./:=?", c) != nullptr;
        }))
        challenge.choice = QEL_CHALLENGE_T61;
    return encode(context, &challenge, QEL_PDU_ChallengePassword,
                  text_of(Text::challenge_password));
}

// The request in DER, signed and verified again.
Bytes make_request(const KeyOwner &owner, const Algorithm &algorithm,
                   const PassPhraseSource *challenge) {
    QelContext *context = *owner.key.context;
    QelCertReq request = {};
    request.subject = owner.name();
    request.pubKeyInfo = owner.public_key();
    request.algorithm = const_cast<QelAlgId *>(*algorithm.signature);

    QelOctetString octets;
    QelAttrValue value = {nullptr, &octets};
    QelAttribute attribute = {const_cast<QelOid *>(challengePassword_OID), &value};
    QelAttributes attributes = {nullptr, &attribute};
    Bytes password;
    if (challenge != nullptr) {
        password = encoded_challenge(context, challenge->read());
        octets = {static_cast<uint32_t>(password.size()), password.data()};
        request.attributes = &attributes;
    }

    const PrivateKey &key = owner.key.key;
    QelStatus status = __qel_sign_certreq(context, &request, key.algorithm, key.data(), key.size(),
                                          *algorithm.signature);
    const LibraryBytes signature(request.signature.value);
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_sign_request, {owner.key.where}));
    status = __qel_verify_certreq(context, &request, request.pubKeyInfo);
    if (status != QEL_OK)
        throw Failure{Exit::input, text_of(Text::cannot_make_request, {owner.key.where}),
                      text_of(Text::numbers_do_not_belong), text_of(Text::get_key_from_source),
                      status};
    return encode(context, &request, QEL_PDU_CertificationRequest, text_of(Text::the_request));
}

} // namespace

Exit run_request_new(const Arguments &arguments) {
    const std::string output = arguments.value("output", "-");
    const bool pem = arguments.value("form", "pem") == "pem";
    arguments.check_output(output, !pem, false);
    refuse_existing(output, arguments.has("force"));
    arguments.check_stdin_once({arguments.value("key"), phrase_path(arguments, "passin"),
                                phrase_path(arguments, "challenge")});
    std::optional<PassPhraseSource> challenge;
    if (arguments.has("challenge"))
        challenge.emplace(arguments, "challenge", QEL_PHRASE_NEW);

    const KeyOwner owner = key_owner(arguments, usable_key(arguments, any_use));
    const Algorithm &algorithm = algorithm_named(arguments.value("algorithm", "md5"));
    const Bytes request = make_request(owner, algorithm, challenge ? &*challenge : nullptr);
    const bool to_json = arguments.json() && output == "-";
    // A challenge password stands in the request as it is.
    if (!to_json)
        write_file(
            output, pem ? armoured(request, request_label) : request,
            {.force = arguments.has("force"), .fresh = true, .owner_only = challenge.has_value()});
    if (arguments.json()) {
        Json json = arguments.report();
        json["output"] = to_json ? Json(nullptr) : Json(utf8_or_latin1(output));
        json["subject"] = name_text(owner.name(), Charset::utf8);
        json["algorithm"] = algorithm.signature_name;
        json["challenge_password"] = challenge.has_value();
        if (to_json)
            json["hex"] = hex(request);
        put_json(json);
    } else if (output != "-") {
        put(text_of(Text::request_made,
                    {display_name(output), name_text(owner.name()), algorithm.signature_name}) +
            "\n");
    }
    return Exit::yes;
}

// ---- request show ------------------------------------------------------------------------------

namespace {

const char *attribute_name(const QelOid *type) {
    const char *name = nullptr;
    __qel_attrtype2name(type, &name);
    return name != nullptr ? name : oid_name(type);
}

std::string attribute_text(const QelAttribute &attribute) {
    const char *name = attribute_name(attribute.type);
    return oid_text(attribute.type) + (name != nullptr ? std::string(" ") + name : "");
}

std::string request_text(QelContext *context, const Request &request, bool full) {
    const QelStatus status = signature_status(context, request);
    std::string text = request.where + ": " + request.kind() + " request\n";
    if (request.subject() != nullptr)
        text += line("Subject", name_text(request.subject()));
    text += line("Key", key_text(request.key())) +
            line("MD5 fingerprint", key_fingerprint(context, request.key()));
    if (request.browser)
        text += line("Challenge", in_quotes(request.browser->challenge));
    const char *label = "Attributes";
    for (const QelAttributes *node = request.pkcs10 ? request.pkcs10->attributes : nullptr;
         node != nullptr; node = node->next) {
        text += line(label, attribute_text(*node->attribute));
        label = "";
    }
    text += line("Signature",
                 algorithm_text(request.algorithm()) +
                     (status == QEL_OK ? ", good" : ", NOT good: " + status_words(status)));
    for (const std::string &note : request_notes(context, request))
        text += line("Note", note);
    if (full)
        text += account_or_reason([&] { return request_account(context, request); });
    return text;
}

// The values, which may be a password, with --full only.
Json attributes_json(const QelAttributes *attributes, bool full) {
    Json list = Json::array();
    for (const QelAttributes *node = attributes; node != nullptr; node = node->next) {
        const char *name = attribute_name(node->attribute->type);
        Json one;
        one["id"] = oid_text(node->attribute->type);
        one["name"] = name != nullptr ? Json(name) : Json(nullptr);
        if (full)
            one["values"] = Json::array();
        for (const QelAttrValue *value = node->attribute->values; full && value != nullptr;
             value = value->next)
            one["values"].push_back(hex({value->value->value, value->value->length}));
        list.push_back(one);
    }
    return list;
}

Json request_json(QelContext *context, const Request &request, bool full) {
    const QelStatus status = signature_status(context, request);
    Json json;
    json["kind"] = request.kind();
    if (request.pkcs10) {
        json["version"] = int64_t{request.pkcs10->version} + 1;
        json["subject"] = name_text(request.subject(), Charset::utf8);
        json["subject_name"] = name_json(context, request.subject());
        json["attributes"] = attributes_json(request.pkcs10->attributes, full);
    } else {
        json["challenge"] = request.browser->challenge;
    }
    json["public_key"] = key_json(context, request.key());
    json["signature"]["algorithm"] = algorithm_text(request.algorithm());
    json["signature"]["verified"] = status == QEL_OK;
    json["signature"]["status"] = status_json(status);
    json["notes"] = request_notes(context, request);
    if (full)
        json["der"] = hex(request.bytes);
    return json;
}

} // namespace

Exit run_request_show(const Arguments &arguments) {
    const std::string path = arguments.operand_or_stdin();
    const Context context;
    Json json = arguments.report();
    json["file"] = utf8_or_latin1(path);
    json["requests"] = Json::array();
    for (const Request &request : read_requests(context, path))
        if (arguments.json())
            json["requests"].push_back(request_json(context, request, arguments.has("full")));
        else
            put(request_text(context, request, arguments.has("full")));
    if (arguments.json())
        put_json(json);
    return Exit::yes;
}

// ---- request verify ----------------------------------------------------------------------------

Exit run_request_verify(const Arguments &arguments) {
    const std::string path = arguments.operand_or_stdin();
    const Context context;
    Outcome outcome(arguments.command());
    Json json = arguments.report();
    json["file"] = utf8_or_latin1(path);
    json["verified"] = true;
    json["requests"] = Json::array();
    for (const Request &request : read_requests(context, path)) {
        const QelStatus status = signature_status(context, request);
        const std::vector<std::string> notes = request_notes(context, request);
        const bool yes = status == QEL_OK;
        outcome.answer(verdict_exit(status));
        if (arguments.json()) {
            if (!yes)
                json["verified"] = false;
            json["requests"].push_back({{"kind", request.kind()},
                                        {"verified", yes},
                                        {"status", status_json(status)},
                                        {"notes", notes}});
            continue;
        }
        put((yes ? text_of(Text::verified_by, {request.where, algorithm_text(request.algorithm())})
                 : text_of(Text::not_verified, {request.where, status_words(status)})) +
            "\n");
        for (const std::string &note : notes)
            put("  " + note + "\n");
        if (!yes)
            print_failure(
                arguments.command().name,
                library_failure(status, text_of(Text::signature_of_request, {request.where})));
    }
    if (arguments.json())
        put_json(json);
    return outcome.exit();
}

} // namespace tool
