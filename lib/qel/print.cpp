// print.cpp: writing at an indent, and object and algorithm identifiers.

#include <qel/print.h>

#include <algorithm>
#include <cstdarg>

#include "decoded.h"
#include "printer.h"
#include <lib/memory.h>

namespace {

bool write_blanks(FILE *stream, uint32_t count) {
    static constexpr char blanks[] = "                                ";
    while (count != 0) {
        const uint32_t piece = std::min<uint32_t>(count, sizeof blanks - 1);
        if (std::fwrite(blanks, 1, piece, stream) != piece)
            return false;
        count -= piece;
    }
    return true;
}

__attribute__((format(printf, 3, 0))) int write_text(FILE *stream, uint32_t indent,
                                                     const char *format, va_list arguments) {
    if (stream == nullptr || format == nullptr || !write_blanks(stream, indent))
        return -1;
    return std::vfprintf(stream, format, arguments);
}

} // namespace

int FPRINTF(FILE *stream, uint32_t indent, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = write_text(stream, indent, format, arguments);
    va_end(arguments);
    return result;
}

QelStatus __qel_print(FILE *stream, int quiet, uint32_t indent, const char *format, ...) {
    if (stream == nullptr || format == nullptr)
        return QEL_ERR_BAD_PARAM;
    if (quiet != 0)
        return QEL_OK;
    va_list arguments;
    va_start(arguments, format);
    const int result = write_text(stream, indent, format, arguments);
    va_end(arguments);
    return result >= 0 ? QEL_OK : QEL_ERR_FILE_IO;
}

// ---- Printer ------------------------------------------------------------------------------------

namespace qel {

Printer::Printer(QelContext *context, FILE *stream, const void *value, uint32_t indent)
    : context_(context), stream_(stream), indent_(indent),
      status_(context != nullptr && stream != nullptr && value != nullptr ? QEL_OK
                                                                          : QEL_ERR_BAD_PARAM) {}

Printer &Printer::take(QelStatus status) {
    if (!failed())
        status_ = status;
    return *this;
}

Printer &Printer::text(uint32_t more, const char *format, ...) {
    if (failed())
        return *this;
    va_list arguments;
    va_start(arguments, format);
    if (write_text(stream_, indent_ + more, format, arguments) < 0)
        status_ = QEL_ERR_FILE_IO;
    va_end(arguments);
    return *this;
}

Printer &Printer::rest(const char *format, ...) {
    if (failed())
        return *this;
    va_list arguments;
    va_start(arguments, format);
    if (std::vfprintf(stream_, format, arguments) < 0)
        status_ = QEL_ERR_FILE_IO;
    va_end(arguments);
    return *this;
}

Printer &Printer::name(const char *label, const QelName *name) {
    if (failed())
        return *this;
    char *string = nullptr;
    status_ = __qel_dn2str(context_, name, 2, &string);
    const Owned<char> owner(string);
    return text(0, "%s: %s\n", label, string);
}

Printer &Printer::dump(uint32_t more, const uint8_t *bytes, uint32_t length, uint32_t width) {
    if (!failed())
        status_ = __qel_fdump_output(stream_, QEL_FORM_HEX, bytes, length, indent_ + more, width);
    return rest("\n");
}

Printer &Printer::dump(uint32_t more, const QelBitString &bits) {
    return dump(more, bits.value, bits.length / 8, dump_width);
}

Printer &Printer::signature(const char *label, const QelAlgId *algorithm,
                            const QelBitString &bits) {
    text(0, "%s: \n", label).part(__qel_fprint_algid, algorithm);
    return text(4, "%s:\n", label::signature_bits).dump(8, bits);
}

} // namespace qel

// ---- Identifiers --------------------------------------------------------------------------------

QelStatus __qel_fprint_oid(QelContext *context, FILE *stream, const QelOid *oid, uint32_t indent) {
    qel::Printer out(context, stream, oid, indent);
    if (out.failed() || out.need(oid->count != 0 && oid->value != nullptr).failed())
        return out.status();
    out.text(0, "%d", static_cast<int>(oid->value[0]));
    for (uint16_t i = 1; i < oid->count; ++i)
        out.rest(".%d", static_cast<int>(oid->value[i]));
    return out.status();
}

namespace {

QelStatus print_key_size(qel::Printer &out, QelContext *context, const QelOctetString *parameters) {
    if (parameters == nullptr)
        return out.rest("Missing\n").status();
    const auto size =
        qel::decode<int32_t>(context, parameters->value, parameters->length, QEL_PDU_INT);
    if (size == nullptr)
        return parameters->value == nullptr ? QEL_ERR_BAD_PARAM : QEL_ERR_ASN1_DECODE;
    return out.rest("%d (KeySize)\n", *size).status();
}

QelStatus print_parameters(qel::Printer &out, QelContext *context, uint32_t type,
                           const QelOctetString *parameters) {
    switch (type) {
    case UINT32_MAX:
        return out.rest("Unknown parameter type\n").status();
    case QEL_PARM_NONE:
        return out.rest("No parameter\n").status();
    case QEL_PARM_KEYSIZE:
        return print_key_size(out, context, parameters);
    case QEL_PARM_NULL:
        return out.rest("NULL\n").status();
    default:
        return out.status();
    }
}

} // namespace

QelStatus __qel_fprint_algid(QelContext *context, FILE *stream, const QelAlgId *algorithm,
                             uint32_t indent) {
    qel::Printer out(context, stream, algorithm, indent);
    if (out.failed() || out.need(algorithm->algorithm != nullptr).failed())
        return out.status();
    const QelOid *const oid = algorithm->algorithm;
    const char *name = nullptr;
    uint32_t type = UINT32_MAX;
    out.take(__qel_alg2name(oid, &name));
    if (name != nullptr)
        out.take(__qel_alg2ParmType(oid, &type));
    out.text(4, "%s: ", qel::label::algorithm);
    if (!out.failed())
        out.take(__qel_fprint_oid(context, stream, oid, 0));
    if (name == nullptr)
        return out.rest(" (unsupported algorithm)\n").status();
    out.rest("  (%s)\n", name).text(4, "%s: ", qel::label::parameters);
    return out.failed() ? out.status()
                        : print_parameters(out, context, type, algorithm->parameters);
}
