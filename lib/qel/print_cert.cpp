// print_cert.cpp: certificates as text for people.

#include <qel/print.h>

#include <iterator>

#include "operation.h"
#include "printer.h"
#include "signature.h"
#include <util/hex.h>

namespace {

namespace label = qel::label;
using qel::Printer;

constexpr const char *version_suffixes[] = {"88", "92", "93 Extended format"};

Printer &print_version(Printer &out, int32_t version) {
    if (version < 0 || version >= static_cast<int32_t>(std::size(version_suffixes)))
        return out.text(0, "%s: v%d (%s)\n", label::version, version,
                        "Unrecognized version number");
    return out.text(0, "%s: v%d (X.509-19%s)\n", label::version, version + 1,
                    version_suffixes[version]);
}

Printer &print_serial(Printer &out, const QelSerial &serial) {
    if (out.failed())
        return out;
    char *digits = nullptr;
    out.take(binary_2_hex(serial.value, serial.length, &digits));
    const qel::Owned<char> owner(digits);
    return out.text(0, "%s: 0x%s\n", label::serial, digits);
}

// The MD5 fingerprint of a certificate or its signed part.
Printer &print_fingerprint(Printer &out, QelContext *context, const char *label,
                           const QelCert *certificate, int pdu) {
    if (out.failed())
        return out;
    QelCert marked = *certificate; // encoding marks extensions as present
    qel::Owned<uint8_t> encoding;
    uint32_t length = 0;
    uint8_t digest[qel::digest_size] = {};
    uint8_t *digest_out = digest;
    uint32_t digest_length = sizeof digest;
    out.take(qel::encode(context, &marked, pdu, &encoding, &length));
    if (!out.failed()) {
        const qel::SetAside under_way(context);
        out.take(qel_digest(context, encoding.get(), length, QEL_MODE_FINAL, QEL_MD5_AID,
                            &digest_out, &digest_length));
    }
    return out.text(0, "%s:\n", label).dump(4, digest, digest_length, qel::one_line);
}

Printer &print_time(Printer &out, const char *format, const char *label, const QelUTCTime *time) {
    if (out.failed())
        return out;
    char *text = nullptr;
    out.take(__qel_printable_time(time, &text));
    const qel::Owned<char> owner(text);
    return out.text(4, format, label, text);
}

} // namespace

QelStatus __qel_fprint_validity(QelContext *context, FILE *stream, const QelValidity *validity,
                                uint32_t indent) {
    Printer out(context, stream, validity, indent);
    if (out.failed() ||
        out.need(validity->notBefore != nullptr && validity->notAfter != nullptr).failed())
        return out.status();
    out.text(0, "%s:\n", label::validity);
    print_time(out, "%s: %s\n", label::not_before, validity->notBefore);
    print_time(out, "%s:  %s\n", label::not_after, validity->notAfter); // the times line up
    return out.status();
}

QelStatus __qel_fprint_v3_cert_extension(QelContext *context, FILE *stream,
                                         const QelExtension *extension, uint32_t indent) {
    Printer out(context, stream, extension, indent);
    if (out.failed() ||
        out.need(extension->extnId != nullptr && extension->extnValue.value != nullptr &&
                 extension->extnValue.length != 0)
            .failed())
        return out.status();
    out.text(0, "%s: ", label::extension_id);
    if (!out.failed())
        out.take(__qel_fprint_oid(context, stream, extension->extnId, 0));
    return out.rest("\n")
        .text(0, "%s: %s\n", label::critical, extension->critical != 0 ? "TRUE" : "FALSE")
        .text(0, "%s:\n", label::extension_value)
        .dump(4, extension->extnValue.value, extension->extnValue.length, qel::one_line)
        .status();
}

QelStatus __qel_fprint_v3_cert_extensions(QelContext *context, FILE *stream,
                                          const QelExtensions *extensions, uint32_t indent) {
    Printer out(context, stream, extensions, indent);
    out.text(0, "V3 Extension Fields:\n");
    int number = 0;
    for (const QelExtensions *node = extensions; node != nullptr && !out.failed();
         node = node->next)
        out.text(0, "- Extension %d:\n", ++number)
            .part(__qel_fprint_v3_cert_extension, node->extension, 4);
    return out.status();
}

QelStatus __qel_fprint_cert(QelContext *context, FILE *stream, const QelCert *certificate, int full,
                            uint32_t indent) {
    Printer out(context, stream, certificate, indent);
    if (out.failed())
        return out.status();
    const QelCert &cert = *certificate;
    print_version(out, cert.version)
        .name(label::subject, cert.subject)
        .part<QelKeyInfo>(__qel_fprint_keyinfo, cert.pubKeyInfo, full)
        .name(label::issuer, cert.issuer);
    print_serial(out, cert.serial)
        .text(0, "%s:\n", label::signature_algorithm)
        .part<QelAlgId>(__qel_fprint_algid, cert.signature)
        .part<QelValidity>(__qel_fprint_validity, cert.validity);
    if (cert.version == 2 && (cert.mask & QEL_CERT_EXTENSIONS) != 0 && cert.extensions != nullptr)
        out.part<QelExtensions>(__qel_fprint_v3_cert_extensions, cert.extensions);
    print_fingerprint(out, context, label::info_fingerprint, certificate, QEL_PDU_CertificateInfo);
    if (full != 0)
        out.signature(label::cert_signature, cert.algorithm, cert.sigBits);
    print_fingerprint(out, context, label::fingerprint, certificate, QEL_PDU_Certificate);
    return out.status();
}

QelStatus __qel_fprint_cert_log(QelContext *context, FILE *stream, const QelCert *certificate,
                                uint32_t indent) {
    Printer out(context, stream, certificate, indent);
    if (out.failed())
        return out.status();
    const QelCert &cert = *certificate;
    char *now = nullptr;
    out.take(__qel_get_current_time(&now));
    const qel::Owned<char> owner(now);
    out.text(0, "%s: %-24.24s\n", label::creation_time, now).name(label::issuer, cert.issuer);
    print_serial(out, cert.serial).name(label::subject, cert.subject);
    print_version(out, cert.version).part<QelValidity>(__qel_fprint_validity, cert.validity);
    print_fingerprint(out, context, label::info_fingerprint, certificate, QEL_PDU_CertificateInfo);
    print_fingerprint(out, context, label::fingerprint, certificate, QEL_PDU_Certificate);
    static constexpr char rule[] = "++++++++++++++++++++++++++++++++++++++++++++++++++++++++++++";
    static_assert(sizeof rule - 1 == 60);
    return out.rest("\n").text(0, "%s\n", rule).status();
}
