// credential_files.cpp: files that hold one credential.

#include <util/output.h>

#include <fcntl.h>

namespace {

constexpr int replace_flags = O_WRONLY | O_CREAT | O_TRUNC;

struct Encoding {
    qel::Owned<uint8_t> bytes;
    uint32_t length = 0;
};

QelStatus encode(QelContext *context, const void *value, int pdu, Encoding *encoding) {
    uint8_t *bytes = nullptr;
    const QelStatus status = __qel_asn1_encode(context, value, pdu, &bytes, &encoding->length);
    encoding->bytes.reset(bytes);
    return status;
}

QelStatus dump_armoured(const char *file_name, const char *begin, const Encoding &encoding,
                        const char *end) {
    Output output;
    output.add_armoured(begin, encoding.bytes.get(), encoding.length, end);
    return output.write_file(file_name, replace_flags);
}

QelStatus dump_armoured(const char *file_name, int type, const Encoding &encoding) {
    const ArmourMarkers *around = armour_markers(type);
    return dump_armoured(file_name, around->begin, encoding, around->end);
}

} // namespace

QelStatus __qel_dump_keypkg(QelContext *context, const char *file_name, const QelKeyPkg *package,
                            uint32_t) {
    Encoding encoding;
    const QelStatus status = encode(context, package, QEL_PDU_KeyPkg, &encoding);
    return status != QEL_OK ? status : dump_armoured(file_name, QEL_ARMOUR_KEYPKG, encoding);
}

QelStatus __qel_dump_cert(QelContext *context, const char *file_name, const QelCert *certificate,
                          uint32_t, int binary) {
    Encoding encoding;
    const QelStatus status = encode(context, certificate, QEL_PDU_Certificate, &encoding);
    if (status != QEL_OK)
        return status;
    if (binary == 1)
        return __qel_dump_output(file_name, QEL_FORM_RAW, encoding.bytes.get(), encoding.length, 0,
                                 0);
    return dump_armoured(file_name, QEL_ARMOUR_CERTIFICATE, encoding);
}

QelStatus __qel_dump_certreq(QelContext *context, const char *file_name, const QelCertReq *request,
                             uint32_t indent, int delimit) {
    Encoding encoding;
    const QelStatus status = encode(context, request, QEL_PDU_CertificationRequest, &encoding);
    if (status != QEL_OK)
        return status;
    if (delimit == 0)
        return __qel_dump_output(file_name, QEL_FORM_ARMOUR, encoding.bytes.get(), encoding.length,
                                 indent, armour_width);
    return dump_armoured(file_name, certificate_request_begin, encoding, certificate_request_end);
}
