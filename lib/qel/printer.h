// printer.h: what the functions of <qel/print.h> write with.
#ifndef QEL_PRINTER_H
#define QEL_PRINTER_H

#include <qel/qelp.h>

namespace qel {

namespace label {

inline constexpr char version[] = "Version";
inline constexpr char subject[] = "Subject";
inline constexpr char issuer[] = "Issuer";
inline constexpr char serial[] = "SerialNumber";
inline constexpr char signature_algorithm[] = "Signature Algorithm";
inline constexpr char info_fingerprint[] = "Certificate Info Fingerprint (MD5)";
inline constexpr char fingerprint[] = "Certificate Fingerprint (MD5)";
inline constexpr char cert_signature[] = "Certificate Signature";
inline constexpr char keypkg_signature[] = "Key Package Signature";
inline constexpr char request_signature[] = "Certificate Request Signature";
inline constexpr char signature_bits[] = "Signature Bitstring";
inline constexpr char extension_id[] = "Extension-ID";
inline constexpr char critical[] = "Critical";
inline constexpr char extension_value[] = "Extension Value";
inline constexpr char validity[] = "Validity";
inline constexpr char not_before[] = "notBefore";
inline constexpr char not_after[] = "notAfter";
inline constexpr char public_key_info[] = "SubjectPublicKeyInfo";
inline constexpr char public_key[] = "subjectPublicKey";
inline constexpr char algorithm[] = "algorithm";
inline constexpr char parameters[] = "parameters";
inline constexpr char keypkg_version[] = "Key Package Version";
inline constexpr char keypkg_id[] = "Key package-ID";
inline constexpr char owner[] = "Owner identity";
inline constexpr char private_key[] = "Private key";
inline constexpr char usage[] = "Key package usage";
inline constexpr char attributes[] = "Attributes";
inline constexpr char attribute_type[] = "Attribute type";
inline constexpr char attribute_values[] = "Attribute value(s)";
inline constexpr char challenge[] = "Challenge";
inline constexpr char creation_time[] = "Certificate Creation Time and Date";

} // namespace label

constexpr uint32_t one_line = 0; // width of a dump that is not cut
constexpr uint32_t dump_width = 64;

// Writes to a stream, at an indent. Remembers its first failure, after which nothing is written: the
// status is asked once at the end.
class Printer {
public:
    // QEL_ERR_BAD_PARAM from the start unless all are given; value is what will be printed.
    Printer(QelContext *context, FILE *stream, const void *value, uint32_t indent);

    QelStatus status() const { return status_; }
    bool failed() const { return status_ != QEL_OK; }

    // Goes on only with a part that is there.
    Printer &need(bool given) { return take(given ? QEL_OK : QEL_ERR_BAD_PARAM); }
    // The outcome of a step.
    Printer &take(QelStatus status);

    // Formatted text, more blanks further in; and where a line has begun already.
    Printer &text(uint32_t more, const char *format, ...) __attribute__((format(printf, 3, 4)));
    Printer &rest(const char *format, ...) __attribute__((format(printf, 2, 3)));

    // "LABEL: NAME".
    Printer &name(const char *label, const QelName *name);
    // Bytes in hexadecimal digits and a line feed; those of a bit string that are whole.
    Printer &dump(uint32_t more, const uint8_t *bytes, uint32_t length, uint32_t width);
    Printer &dump(uint32_t more, const QelBitString &bits);
    // A signature under its label: its algorithm and its bits.
    Printer &signature(const char *label, const QelAlgId *algorithm, const QelBitString &bits);

    // A part that has a function of its own, at this indent or more blanks further in.
    template <class T>
    Printer &part(QelStatus (*print)(QelContext *, FILE *, const T *, uint32_t), const T *value,
                  uint32_t more = 0) {
        return failed() ? *this : take(print(context_, stream_, value, indent_ + more));
    }
    template <class T>
    Printer &part(QelStatus (*print)(QelContext *, FILE *, const T *, int, uint32_t),
                  const T *value, int full, uint32_t more = 0) {
        return failed() ? *this : take(print(context_, stream_, value, full, indent_ + more));
    }

private:
    QelContext *context_;
    FILE *stream_;
    uint32_t indent_;
    QelStatus status_;
};

} // namespace qel

#endif
