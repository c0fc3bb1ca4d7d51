#include "certificate_text.h"

#include "account.h"
#include "text.h"
#include "texts.h"

namespace tool {
namespace {

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

std::string offset_note(const QelValidity *validity) {
    return text_of(Text::without_offset,
                   {time_text(validity->notBefore, false), time_text(validity->notAfter, false)});
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

std::vector<std::string> certificate_notes(const Context &context, const Certificate &certificate) {
    std::vector<std::string> notes;
    for (const std::string &note :
         {small_exponent_note(certificate.record->pubKeyInfo), encoding_note(context, certificate)})
        if (!note.empty())
            notes.push_back(note);
    return notes;
}

std::string name_lines(const Context &context, const char *label, const QelName *name) {
    std::string text = line(std::string(label) + ", library", library_name(context, name));
    for (const auto &rdn : name_values(name))
        for (const NameValue &value : rdn)
            text += "    " + value.type + " " + value.string_type + " " +
                    (value.readable ? in_quotes(value.text) : value.text) + "\n";
    return text;
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

Json algorithm_json(const QelAlgId *algorithm) {
    const char *name = algorithm != nullptr ? oid_name(algorithm->algorithm) : nullptr;
    Json json;
    json["id"] = oid_text(algorithm != nullptr ? algorithm->algorithm : nullptr);
    json["name"] = name != nullptr ? Json(name) : Json(nullptr);
    return json;
}

// What --full adds, in the order of full_certificate_text.
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

// The fields of a certificate of which the library gives no account.
std::string own_account(const QelCert &cert) {
    std::string text = line("Version", version_text(cert.version));
    const RsaNumbers rsa = rsa_numbers(cert.pubKeyInfo);
    text += rsa.bits != 0 ? line("Modulus", rsa.modulus)
                          : line("Key bits", bits_text(cert.pubKeyInfo->pubKey));
    for (const QelExtensions *node = cert.extensions; node != nullptr; node = node->next)
        text += line("Extension", extension_text(*node->extension));
    text += line("Algorithm, inner", algorithm_text(cert.signature));
    return text + line("Signature bits", bits_text(cert.sigBits));
}

} // namespace

std::string validity_text(const QelValidity *validity) {
    if (validity == nullptr)
        return "not given";
    return time_text(validity->notBefore) + " to " + time_text(validity->notAfter) + " (" +
           validity_words(validity) + ")";
}

std::string encoding_note(const Context &context, const Certificate &certificate) {
    return encoding_note(context, certificate.record.get(), QEL_PDU_Certificate, certificate.bytes,
                         text_of(Text::the_certificate));
}

std::string certificate_text(const Context &context, const Certificate &certificate) {
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

std::string full_certificate_text(const Context &context, const Certificate &certificate) {
    const QelCert &cert = *certificate.record;
    std::string text = certificate_text(context, certificate);
    text +=
        line("MD2 fingerprint", fingerprint(context, certificate.bytes, algorithm_named("md2")));
    text +=
        name_lines(context, "Subject", cert.subject) + name_lines(context, "Issuer", cert.issuer);
    if (cert.issuerUID != nullptr)
        text += line("Issuer id", bits_text(*cert.issuerUID));
    if (cert.subjectUID != nullptr)
        text += line("Subject id", bits_text(*cert.subjectUID));
    try {
        return text + cert_account(context, cert);
    } catch (const Failure &failure) {
        return text + line("Library's account", "none (" + failure.why + ")") + own_account(cert);
    }
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

} // namespace tool
