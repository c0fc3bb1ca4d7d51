// print_request.cpp: certification requests and their attributes as text for people.

#include <qel/print.h>

#include <toolkit/traces.h>

#include "decoded.h"
#include "printer.h"

namespace {

namespace label = qel::label;
using qel::Printer;

bool is_challenge_password(const QelOid *oid) {
    int difference = 1;
    return __qel_cmp_oid(oid, challengePassword_OID, &difference) == QEL_OK && difference == 0;
}

// What is decoded is zeroed when it goes.
Printer &print_password(Printer &out, QelContext *context, const QelOctetString *value) {
    if (out.need(value != nullptr && value->value != nullptr).failed())
        return out;
    const auto password = qel::decode<QelChallengePassword>(context, value->value, value->length,
                                                            QEL_PDU_ChallengePassword);
    if (password == nullptr)
        return out.take(QEL_ERR_ASN1_DECODE);
    return out.rest("%s  ", password->choice == QEL_CHALLENGE_PRINTABLE
                                ? password->u.printableString
                                : password->u.t61String);
}

} // namespace

QelStatus __qel_fprint_attribute(QelContext *context, FILE *stream, const QelAttribute *attribute,
                                 uint32_t indent) {
    const toolkit::TracesWiped traces;
    Printer out(context, stream, attribute, indent);
    if (out.failed() || out.need(attribute->type != nullptr).failed())
        return out.status();
    const char *name = nullptr;
    out.text(0, "%s: ", label::attribute_type);
    if (!out.failed())
        out.take(__qel_fprint_oid(context, stream, attribute->type, 0));
    if (!out.failed())
        out.take(__qel_attrtype2name(attribute->type, &name));
    if (name == nullptr)
        return out.rest("(unknown attribute type)").status();
    out.rest("  (%s)\n", name).text(0, "%s: ", label::attribute_values);
    if (is_challenge_password(attribute->type))
        for (const QelAttrValue *node = attribute->values; node != nullptr && !out.failed();
             node = node->next)
            print_password(out, context, node->value);
    return out.rest("\n").status();
}

QelStatus __qel_fprint_certreq(QelContext *context, FILE *stream, const QelCertReq *request,
                               int full, uint32_t indent) {
    Printer out(context, stream, request, indent);
    if (out.failed())
        return out.status();
    out.text(0, "%s: %d\n", label::version, request->version)
        .name(label::subject, request->subject)
        .text(0, "%s:\n", label::attributes);
    for (const QelAttributes *node = request->attributes; node != nullptr && !out.failed();
         node = node->next)
        out.part<QelAttribute>(__qel_fprint_attribute, node->attribute, 4);
    return out.part<QelKeyInfo>(__qel_fprint_keyinfo, request->pubKeyInfo, full)
        .signature(label::request_signature, request->algorithm, request->signature)
        .status();
}

QelStatus __qel_fprint_netscape_certreq(QelContext *context, FILE *stream,
                                        const QelNetscapeCertReq *request, int full,
                                        uint32_t indent) {
    Printer out(context, stream, request, indent);
    if (out.failed())
        return out.status();
    out.part<QelKeyInfo>(__qel_fprint_keyinfo, request->spki, full);
    if (request->challenge != nullptr)
        out.text(0, "%s: ", label::challenge).rest("%s\n", request->challenge);
    return out.signature(label::request_signature, request->algorithm, request->signature).status();
}
