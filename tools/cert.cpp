// qel cert show, qel cert verify
#include "command.h"
#include "credential.h"
#include "text.h"

#include <algorithm>

namespace tool {
namespace {

std::string line(const std::string &label, const std::string &value) {
    std::string text = "  " + label + (label.empty() ? "" : ":");
    text.resize(std::max<std::size_t>(text.size() + 1, 21), ' ');
    return text + value + "\n";
}

std::string serial_text(const QelSerial &serial) {
    return hex({serial.value, serial.length});
}

std::string bits_text(const QelBitString &bits) {
    return hex({bits.value, (bits.length + std::size_t{7}) / 8});
}

std::string version_text(int32_t version) {
    return version >= 0 && version <= 2 ? std::to_string(version + 1)
                                        : "unknown (encoded as " + std::to_string(version) + ")";
}

std::string key_text(const QelKeyInfo *key) {
    const RsaNumbers rsa = rsa_numbers(key);
    std::string text = key != nullptr ? algorithm_text(key->algorithm) : "(none)";
    if (rsa.bits != 0)
        text += ", " + std::to_string(rsa.bits) + " bits, exponent " + exponent_text(rsa);
    return text;
}

std::string validity_text(const QelValidity *validity) {
    if (validity == nullptr)
        return "not given";
    return time_text(validity->notBefore) + " to " + time_text(validity->notAfter) + " (" +
           validity_state(validity) + ")";
}

std::string offset_note(const QelValidity *validity) {
    return "the library takes it as " + time_text(validity->notBefore, false) + " to " +
           time_text(validity->notAfter, false) + ", without the offset";
}

std::string extension_text(const QelExtension &extension) {
    const char *name = oid_name(extension.extnId);
    return oid_text(extension.extnId) + (name != nullptr ? std::string(" ") + name : "") +
           (extension.critical != 0 ? ", critical" : "") + ": " +
           hex({extension.extnValue.value, extension.extnValue.length});
}

std::size_t count_critical(const QelCert &cert, std::size_t &all) {
    std::size_t critical = 0;
    all = 0;
    for (const QelExtensions *node = cert.extensions; node != nullptr; node = node->next) {
        ++all;
        critical += node->extension->critical != 0 ? 1 : 0;
    }
    return critical;
}

// Says where the library, which signs and verifies what it encodes, sees other bytes than were read.
std::string encoding_note(const Context &context, const Certificate &certificate) {
    try {
        const Bytes encoded =
            encode(context, certificate.record.get(), QEL_PDU_Certificate, "the certificate");
        if (encoded == certificate.bytes)
            return "";
        return "the bytes are not the DER encoding of the certificate, over which the library "
               "checks the signature";
    } catch (const Failure &failure) {
        return "the library cannot encode the certificate again: " + failure.why;
    }
}

std::vector<std::string> certificate_notes(const Context &context, const Certificate &certificate) {
    std::vector<std::string> notes;
    for (const std::string &note :
         {small_exponent_note(certificate.record->pubKeyInfo), encoding_note(context, certificate)})
        if (!note.empty())
            notes.push_back(note);
    return notes;
}

std::string short_text(const Context &context, const Certificate &certificate) {
    const QelCert &cert = *certificate.record;
    std::string text =
        line("Subject", name_text(cert.subject)) + line("Issuer", name_text(cert.issuer)) +
        line("Serial", serial_text(cert.serial)) + line("Validity", validity_text(cert.validity));
    if (has_offset(cert.validity))
        text += line("", offset_note(cert.validity));
    text +=
        line("Key", key_text(cert.pubKeyInfo)) + line("Signature", algorithm_text(cert.algorithm));
    std::size_t all;
    if (const std::size_t critical = count_critical(cert, all); critical != 0)
        text += line("Extensions", std::to_string(all) + ", of which " + std::to_string(critical) +
                                       " critical (the library refuses such a certificate)");
    for (const std::string &note : certificate_notes(context, certificate))
        text += line("Note", note);
    return text +
           line("MD5 fingerprint", fingerprint(context, certificate.bytes, algorithm_named("md5")));
}

std::string name_lines(const Context &context, const char *label, const QelName *name) {
    std::string text = line(std::string(label) + ", library", library_name(context, name));
    for (const auto &rdn : name_values(name))
        for (const NameValue &value : rdn)
            text += "    " + value.type + " " + value.string_type + " " +
                    (value.readable ? in_quotes(value.text) : value.text) + "\n";
    return text;
}

std::string full_text(const Context &context, const Certificate &certificate) {
    const QelCert &cert = *certificate.record;
    std::string text = short_text(context, certificate);
    text +=
        line("MD2 fingerprint", fingerprint(context, certificate.bytes, algorithm_named("md2")));
    text += line("Version", version_text(cert.version));
    text +=
        name_lines(context, "Subject", cert.subject) + name_lines(context, "Issuer", cert.issuer);
    const RsaNumbers rsa = rsa_numbers(cert.pubKeyInfo);
    text += rsa.bits != 0 ? line("Modulus", rsa.modulus)
                          : line("Key bits", bits_text(cert.pubKeyInfo->pubKey));
    if (cert.issuerUID != nullptr)
        text += line("Issuer id", bits_text(*cert.issuerUID));
    if (cert.subjectUID != nullptr)
        text += line("Subject id", bits_text(*cert.subjectUID));
    for (const QelExtensions *node = cert.extensions; node != nullptr; node = node->next)
        text += line("Extension", extension_text(*node->extension));
    text += line("Algorithm, inner", algorithm_text(cert.signature));
    return text + line("Signature bits", bits_text(cert.sigBits));
}

Json extensions_json(const QelCert &cert) {
    Json list = Json::array();
    for (const QelExtensions *node = cert.extensions; node != nullptr; node = node->next) {
        const QelExtension &extension = *node->extension;
        const char *name = oid_name(extension.extnId);
        Json one;
        one["id"] = oid_text(extension.extnId);
        one["name"] = name != nullptr ? Json(name) : Json(nullptr);
        one["critical"] = extension.critical != 0;
        one["value"] = hex({extension.extnValue.value, extension.extnValue.length});
        list.push_back(one);
    }
    return list;
}

Json validity_json(const QelValidity *validity) {
    Json json;
    json["not_before"] = time_text(validity->notBefore);
    json["not_after"] = time_text(validity->notAfter);
    json["state"] = validity_state(validity);
    if (has_offset(validity)) {
        json["library_not_before"] = time_text(validity->notBefore, false);
        json["library_not_after"] = time_text(validity->notAfter, false);
    }
    return json;
}

Json algorithm_json(const QelAlgId *algorithm) {
    const char *name = algorithm != nullptr ? oid_name(algorithm->algorithm) : nullptr;
    Json json;
    json["id"] = oid_text(algorithm != nullptr ? algorithm->algorithm : nullptr);
    json["name"] = name != nullptr ? Json(name) : Json(nullptr);
    return json;
}

// What --full adds, in the order of full_text.
void add_full_json(const Context &context, const Certificate &certificate, Json &json) {
    const QelCert &cert = *certificate.record;
    const auto unique_id = [](const QelUid *id) {
        return id != nullptr ? Json(bits_text(*id)) : Json(nullptr);
    };
    json["md2_fingerprint"] = fingerprint(context, certificate.bytes, algorithm_named("md2"));
    if (const RsaNumbers rsa = rsa_numbers(cert.pubKeyInfo); rsa.bits != 0)
        json["public_key"]["modulus"] = rsa.modulus;
    json["public_key"]["encoded"] = bits_text(cert.pubKeyInfo->pubKey);
    json["issuer_unique_id"] = unique_id(cert.issuerUID);
    json["subject_unique_id"] = unique_id(cert.subjectUID);
    json["inner_algorithm"] = algorithm_json(cert.signature);
    json["signature"] = bits_text(cert.sigBits);
    json["der"] = hex(certificate.bytes);
}

Json certificate_json(const Context &context, const Certificate &certificate, bool full) {
    const QelCert &cert = *certificate.record;
    const RsaNumbers rsa = rsa_numbers(cert.pubKeyInfo);
    Json json;
    json["version"] = int64_t{cert.version} + 1;
    json["serial"] = serial_text(cert.serial);
    json["subject"] = name_text(cert.subject, Charset::utf8);
    json["issuer"] = name_text(cert.issuer, Charset::utf8);
    json["subject_name"] = name_json(context, cert.subject);
    json["issuer_name"] = name_json(context, cert.issuer);
    json["validity"] = validity_json(cert.validity);
    json["public_key"] = algorithm_json(cert.pubKeyInfo->algorithm);
    if (rsa.bits != 0) {
        json["public_key"]["bits"] = rsa.bits;
        json["public_key"]["exponent"] = exponent_text(rsa);
    }
    json["signature_algorithm"] = algorithm_json(cert.algorithm);
    json["md5_fingerprint"] = fingerprint(context, certificate.bytes, algorithm_named("md5"));
    json["extensions"] = extensions_json(cert);
    json["notes"] = certificate_notes(context, certificate);
    if (full)
        add_full_json(context, certificate, json);
    return json;
}

// Shows what can be read of a file, and returns what cannot.
std::vector<Failure> show(const Arguments &arguments, const std::string &path, Json &list) {
    const Context context;
    const bool full = arguments.has("full");
    std::vector<Failure> unreadable;
    for (const Certificate &certificate : read_certificates(context, path, &unreadable)) {
        if (arguments.json()) {
            Json one;
            one["file"] = utf8_or_latin1(path);
            one.update(certificate_json(context, certificate, full));
            list.push_back(one);
        } else {
            put(certificate.where + ":\n" +
                (full ? full_text(context, certificate) : short_text(context, certificate)));
        }
    }
    return unreadable;
}

} // namespace

Exit run_cert_show(const Arguments &arguments) {
    const std::vector<std::string> paths = arguments.operands_or_stdin();
    arguments.check_stdin_once(paths);
    Outcome outcome(arguments.command());
    Json json = arguments.report();
    json["certificates"] = Json::array();
    json["errors"] = Json::array();
    for (const std::string &path : paths) {
        std::vector<Failure> failures;
        try {
            failures = show(arguments, path, json["certificates"]);
        } catch (const OutputLost &) {
            throw;
        } catch (const Failure &failure) {
            failures = {failure};
        }
        for (const Failure &failure : failures) {
            Json error = failure_json(failure);
            error["file"] = utf8_or_latin1(path);
            json["errors"].push_back(error);
            outcome.fail(failure);
        }
    }
    if (arguments.json())
        put_json(json);
    return outcome.exit();
}

// ---- cert verify -------------------------------------------------------------------------------

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
    const Bytes info = encode(context, &cert, QEL_PDU_CertificateInfo, "the certificate's content");
    const RsaKey rsa = as_rsa_key(key);
    if (!rsa.note.empty())
        notes.push_back(rsa.note);
    return qel_verify(context, info.data(), static_cast<uint32_t>(info.size()), QEL_MODE_FINAL,
                      rsa.algorithm, &rsa.parameters, rsa.bits, cert.algorithm, cert.sigBits.value,
                      cert.sigBits.length / 8);
}

bool signature_is_good(QelStatus status) {
    return status == QEL_OK || status == QEL_ERR_KEY_EXPIRED;
}

bool names_differ(const Context &context, const QelName *a, const QelName *b) {
    int difference = 0;
    return __qel_cmp_dn(context, a, b, &difference) == QEL_OK && difference != 0;
}

// Why the library refuses the certificate's signature algorithm, or empty if it knows it.
std::string unsupported_algorithm(const QelCert &cert) {
    for (const QelOid *known : {QEL_MD2WithRSAEncryption_OID, QEL_MD5WithRSAEncryption_OID}) {
        int difference = 1;
        __qel_cmp_oid(cert.algorithm->algorithm, known, &difference);
        if (difference == 0)
            return "";
    }
    return "the signature algorithm " + algorithm_text(cert.algorithm) +
           " is not supported; only MD2 and MD5 with RSA are";
}

// What is odd about a certificate and the key that it is checked with, whatever the verdict.
std::vector<std::string> oddities(const Context &context, const Certificate &certificate,
                                  const PublicKey *issuer) {
    const QelCert &cert = *certificate.record;
    std::vector<std::string> notes;
    const bool own = issuer == nullptr;
    const bool certified = !own && issuer->certificate.record != nullptr;
    if (own && names_differ(context, cert.issuer, cert.subject))
        notes.push_back("the certificate is not self-signed by its names; its issuer's key is "
                        "given with --issuer");
    if (certified && names_differ(context, cert.issuer, issuer->certificate.record->subject))
        notes.push_back("the certificate names another issuer than the subject of " +
                        issuer->where);
    int difference = 0;
    if (__qel_cmp_algid(cert.signature, cert.algorithm, &difference) == QEL_OK && difference != 0)
        notes.push_back("the algorithm beside the signature is not the signed one");
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
        verdict.notes.push_back("validity and extensions were not looked at");
    } else {
        verdict.status = qel_verify_cert(context, &cert, key);
    }
    verdict.yes = verdict.status == QEL_OK;
    if (verdict.status == QEL_ERR_BAD_PARAM || verdict.status == QEL_ERR_UNSUPPORTED_ALG)
        verdict.unsupported = unsupported_algorithm(cert);
    if (verdict.status == QEL_ERR_KEY_EXPIRED) {
        verdict.notes.push_back("the signature is good; the validity is " +
                                validity_text(cert.validity));
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
    const std::string key =
        verdict.issuer != nullptr ? "the key of " + verdict.issuer->where : "its own key";
    if (verdict.yes)
        put(where + ": verified with " + key +
            (verdict.status != QEL_OK ? ", expired certificates allowed (" + status + ")\n"
                                      : "\n"));
    else
        put(where + ": NOT verified with " + key + ": " + status + "\n");
    for (const std::string &note : verdict.notes)
        put("  " + note + "\n");
    const StatusRow *row = find_status(verdict.status);
    if (!verdict.unsupported.empty())
        print_failure(arguments.command().name, {Exit::no, verdict.unsupported, "", ""});
    else if (!verdict.yes && row != nullptr)
        print_failure(arguments.command().name, {Exit::no, row->meaning, "", row->advice});
}

} // namespace

Exit run_cert_verify(const Arguments &arguments) {
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
        verdict.notes.push_back("only the first of " + std::to_string(certificates.size()) +
                                " certificates in the file was looked at");
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
