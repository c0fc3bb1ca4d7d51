// qel cert verify
#include "certificate_text.h"
#include "command.h"
#include "text.h"
#include "texts.h"
#include "trusted.h"

namespace tool {
namespace {

// What was found out about a certificate's signature.
struct Verdict {
    const PublicKey *issuer = nullptr; // whose key was used; null for the certificate's own
    QelStatus status = QEL_OK;
    bool yes = false;
    std::vector<std::string> notes;
    std::string unsupported; // why the library knows no such signature, or empty
};

// The signature over the certificate information, and nothing else.
QelStatus verify_signature(const Context &context, const QelCert &cert, const QelKeyInfo *key,
                           std::vector<std::string> &notes) {
    const RsaKey rsa = as_rsa_key(key);
    if (!rsa.note.empty())
        notes.push_back(rsa.note);
    return signature_status(context, cert, rsa);
}

bool signature_is_good(QelStatus status) {
    return status == QEL_OK || status == QEL_ERR_KEY_EXPIRED;
}

bool names_differ(const Context &context, const QelName *a, const QelName *b) {
    int difference = 0;
    return __qel_cmp_dn(context, a, b, &difference) == QEL_OK && difference != 0;
}

// What is odd about a certificate and the key that it is checked with, whatever the verdict.
std::vector<std::string> oddities(const Context &context, const Certificate &certificate,
                                  const PublicKey *issuer) {
    const QelCert &cert = *certificate.record;
    std::vector<std::string> notes;
    const bool own = issuer == nullptr;
    const bool certified = !own && issuer->certificate.record != nullptr;
    if (own && names_differ(context, cert.issuer, cert.subject))
        notes.push_back(text_of(Text::not_self_signed));
    if (certified && names_differ(context, cert.issuer, issuer->certificate.record->subject))
        notes.push_back(text_of(Text::another_issuer, {issuer->where}));
    int difference = 0;
    if (__qel_cmp_algid(cert.signature, cert.algorithm, &difference) == QEL_OK && difference != 0)
        notes.push_back(text_of(Text::algorithms_differ));
    if (const std::string note = encoding_note(context, certificate); !note.empty())
        notes.push_back(note);
    return notes;
}

Verdict judge(const Arguments &arguments, const Context &context, const Certificate &certificate,
              const PublicKey *issuer) {
    const QelCert &cert = *certificate.record;
    Verdict verdict;
    verdict.issuer = issuer;
    verdict.notes = oddities(context, certificate, issuer);
    const QelKeyInfo *key = issuer != nullptr ? issuer->key() : cert.pubKeyInfo;
    if (arguments.has("signature-only")) {
        verdict.status = verify_signature(context, cert, key, verdict.notes);
        verdict.notes.push_back(text_of(Text::only_signature_checked));
    } else {
        verdict.status = qel_verify_cert(context, &cert, key);
    }
    verdict.yes = verdict.status == QEL_OK;
    if (verdict.status == QEL_ERR_BAD_PARAM || verdict.status == QEL_ERR_UNSUPPORTED_ALG)
        verdict.unsupported = unsupported_signature(cert.algorithm);
    if (verdict.status == QEL_ERR_KEY_EXPIRED) {
        verdict.notes.push_back(
            text_of(Text::signature_good_validity, {validity_text(cert.validity)}));
        verdict.yes = arguments.has("allow-expired");
    }
    return verdict;
}

// The verdict under the first issuer's key whose signature it is, or else under the first one.
// Certificates of others than the named issuer are tried only where there is nothing else.
Verdict judge_by(const Arguments &arguments, const Context &context, const Certificate &certificate,
                 const std::vector<PublicKey> &issuers) {
    std::vector<const PublicKey *> fitting;
    for (const PublicKey &issuer : issuers)
        if (!issuer.certificate.record ||
            !names_differ(context, certificate.record->issuer, issuer.certificate.record->subject))
            fitting.push_back(&issuer);
    if (fitting.empty())
        fitting.push_back(issuers.empty() ? nullptr : &issuers.front());
    Verdict first = judge(arguments, context, certificate, fitting.front());
    for (std::size_t i = 1; i < fitting.size() && !signature_is_good(first.status); ++i) {
        Verdict next = judge(arguments, context, certificate, fitting[i]);
        if (signature_is_good(next.status))
            return next;
    }
    return first;
}

void print_verdict(const Arguments &arguments, const Verdict &verdict, const std::string &where) {
    const std::string status = status_words(verdict.status);
    const std::string key = verdict.issuer != nullptr
                                ? text_of(Text::key_of, {verdict.issuer->where})
                                : text_of(Text::its_own_key);
    const Text words = !verdict.yes               ? Text::not_verified_with
                       : verdict.status != QEL_OK ? Text::verified_though_expired
                                                  : Text::verified_with;
    put(text_of(words, {where, key, status}) + "\n");
    for (const std::string &note : verdict.notes)
        put("  " + note + "\n");
    const StatusRow *row = find_status(verdict.status);
    if (!verdict.unsupported.empty())
        print_failure(arguments.command().name, {Exit::no, verdict.unsupported, "", ""});
    else if (!verdict.yes && row != nullptr)
        print_failure(arguments.command().name, {Exit::no, meaning_of(*row), "", advice_of(*row)});
}

} // namespace

// ---- up to a trusted key -----------------------------------------------------------------------

namespace {

std::string chain_text(const Arguments &arguments, const ChainVerdict &verdict,
                       const std::string &where) {
    const bool good = verdict.good(arguments.has("allow-expired"));
    const Text words = !good                      ? Text::not_verified
                       : verdict.status != QEL_OK ? Text::verified_to_trusted_though
                                                  : Text::verified_to_trusted;
    std::string text = text_of(words, {where, status_words(verdict.status)}) + "\n";
    if (!verdict.expired.empty())
        text += "  " + text_of(Text::outside_validity, {verdict.expired}) + "\n";
    for (const Certificate &link : verdict.chain)
        text += "  " + text_of(Text::chain_link, {name_text(link.record->subject)}) + "\n";
    return text;
}

Json chain_json(const Arguments &arguments, const ChainVerdict &verdict) {
    Json json = arguments.report();
    json["verified"] = verdict.good(arguments.has("allow-expired"));
    json["status"] = status_json(verdict.status);
    json["expired"] = verdict.expired.empty() ? Json(nullptr) : Json(verdict.expired);
    json["chain"] = Json::array();
    for (const Certificate &link : verdict.chain)
        json["chain"].push_back(name_text(link.record->subject, Charset::utf8));
    return json;
}

// The certificates of all files, in order.
std::vector<Certificate> all_certificates(const Context &context, const Arguments &arguments) {
    std::vector<Certificate> all;
    for (const std::string &path : arguments.operands())
        for (Certificate &certificate : read_certificates(context, path))
            all.push_back(std::move(certificate));
    return all;
}

Exit verify_to_trusted_key(const Arguments &arguments) {
    if (arguments.has("chain") == arguments.has("establish"))
        arguments.misuse(text_of(Text::exclude_each_other));
    if (!arguments.has("trust"))
        arguments.misuse(text_of(Text::name_trust));
    for (const char *option : {"issuer", "signature-only"})
        if (arguments.has(option))
            arguments.misuse(text_of(Text::excluded_by_chain, {option}));
    if (arguments.has("allowed") && arguments.has("chain"))
        arguments.misuse(text_of(Text::needs_option, {"allowed", "establish"}));
    if (arguments.operands().size() > 1 && arguments.has("establish"))
        arguments.misuse(text_of(Text::establish_takes_one));
    std::vector<std::string> inputs = arguments.operands();
    for (const std::string &path : arguments.values("trust"))
        inputs.push_back(path);
    arguments.check_stdin_once(inputs);
    const Context context;
    const std::vector<Certificate> certificates = all_certificates(context, arguments);
    TrustedKeys trusted(context);
    for (const std::string &path : arguments.values("trust"))
        trusted.add_file(path);
    const std::vector<std::string> allowed = arguments.values("allowed");
    std::vector<const QelCert *> chain;
    for (const Certificate &certificate : certificates)
        chain.push_back(certificate.record.get());

    const bool supplied = arguments.has("chain");
    const Charset charset = arguments.json() ? Charset::utf8 : Charset::terminal;
    const ChainVerdict verdict =
        supplied ? verify_chain(context, chain, trusted, charset)
                 : establish_chain(context, chain[0], trusted, allowed, charset);
    std::vector<std::string> lines;
    if (arguments.has("explain"))
        lines = supplied ? explain_chain(context, chain, trusted)
                         : explain_search(context, chain[0], trusted, allowed);
    if (!supplied && certificates.size() > 1)
        lines.push_back(text_of(Text::only_first_of, {std::to_string(certificates.size())}));
    if (arguments.json()) {
        Json json = chain_json(arguments, verdict);
        json["explanation"] = lines;
        put_json(json);
    } else {
        put(chain_text(arguments, verdict, certificates[0].where));
        for (const std::string &line : lines)
            put("  " + line + "\n");
    }
    return verdict.good(arguments.has("allow-expired")) ? Exit::yes : verdict_exit(verdict.status);
}

} // namespace

Exit run_cert_verify(const Arguments &arguments) {
    if (arguments.has("chain") || arguments.has("establish"))
        return verify_to_trusted_key(arguments);
    for (const char *option : {"trust", "allowed", "explain"})
        if (arguments.has(option))
            arguments.misuse(text_of(Text::needs_chain_or_establish, {option}));
    if (arguments.operands().size() > 1)
        arguments.misuse(text_of(Text::several_files_chain));
    const std::string path = arguments.operands()[0];
    arguments.check_stdin_once({path, arguments.value("issuer")});
    const Context context;
    const std::vector<Certificate> certificates = read_certificates(context, path);
    const Certificate &subject = certificates.front();
    std::vector<PublicKey> issuers;
    if (arguments.has("issuer"))
        issuers = read_public_keys(context, arguments.value("issuer"), KeySource::either);
    Verdict verdict = judge_by(arguments, context, subject, issuers);
    if (certificates.size() > 1)
        verdict.notes.push_back(
            text_of(Text::only_first_of, {std::to_string(certificates.size())}));
    const QelKeyInfo *key =
        verdict.issuer != nullptr ? verdict.issuer->key() : subject.record->pubKeyInfo;
    const std::string weakness = small_exponent_note(key);
    if (!weakness.empty())
        warn(weakness);
    if (arguments.json()) {
        for (const std::string &note : {weakness, verdict.unsupported})
            if (!note.empty())
                verdict.notes.push_back(note);
        Json json = arguments.report();
        json["file"] = utf8_or_latin1(path);
        json["verified"] = verdict.yes;
        json["signature_only"] = arguments.has("signature-only");
        json["subject"] = name_text(subject.record->subject, Charset::utf8);
        json["issuer"] = name_text(subject.record->issuer, Charset::utf8);
        json["validity"] = validity_json(subject.record->validity);
        json["key_from"] = verdict.issuer != nullptr ? Json(verdict.issuer->where) : Json(nullptr);
        json["key_exponent"] = exponent_json(key);
        json["status"] = status_json(verdict.status);
        json["notes"] = verdict.notes;
        put_json(json);
    } else {
        print_verdict(arguments, verdict, subject.where);
    }
    return verdict.yes ? Exit::yes : verdict_exit(verdict.status);
}

} // namespace tool
