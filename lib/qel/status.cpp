#include <qel/qel.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "catalogue.h"
#include <lib/context.h>

namespace {

// By status. In the catalogue, the text of a status is the message after its number.
constexpr const char *texts[] = {
    "Success",
    "Invalid buffer size",
    "Out of memory",
    "Bad file format",
    "The named file does not exist or is the null pathname",
    "File I/O error",
    "Bad password",
    "Unknown user",
    "Unsupported algorithm",
    "ASN1 Encoding error",
    "ASN1 Decoding error",
    "Bad key material",
    "Key generation error",
    "Encryption error",
    "Decryption error",
    "Signing error",
    "Verification error",
    "Digest error",
    "Error during outputting of data",
    "General QEL failure",
    "Unsupported attribute type",
    "Unable to qellogin",
    "Unable to qellogout",
    "Entry does not exist",
    "Entry already exists",
    "qelserv decryption error",
    "qelserv signing error",
    "User has not done a qellogin",
    "Error connecting to qelserv",
    "Key package not found",
    "Public key has expired or is not currently valid",
    "Issuer not trusted",
    "Invalid function parameter",
    "Conversion from BINARY to RFC1421 format failed",
    "Conversion from RFC1421 to BINARY format failed",
    "Random number generation error",
    "Error reading from or writing to the public repository using XFN",
    "Cannot establish certificate chain",
    "Equals missing in printable name representation",
    "Attribute type missing in printable name encoding",
    "Attribute value missing in printable name encoding",
    "Certificate not found",
    "Distinguished Name not found",
    "Certificate has critical extensions",
    "Cannot initialize compiler-generated encoder/decoder data",
    "Cannot wrap session key",
    "Cannot unwrap session key",
    "Unsupported key type",
    "Cannot complete Diffie-Hellman Phase 1",
    "Cannot complete Diffie-Hellman Phase 2",
    "Cannot double encrypt data",
    "Unable to update key package with qelserv",
    "Unable to stat private key registered with qelserv",
    "Export restriction violated",
    "Trusted public key in key package expired",
    "Cannot open file",
};
static_assert(std::size(texts) == QEL_ERR_OPEN_FILE + 1);

constexpr int message_set = 2;
constexpr int unknown_message = 100;
constexpr const char *unknown_text = "Unknown Error";

// A text that outlives the catalogue it came from; its characters follow the record.
struct KeptText {
    KeptText *next;
    char *text() { return reinterpret_cast<char *>(this + 1); }
};

// Grows only: one entry for each different text that was ever asked for without a context.
constinit std::atomic<KeptText *> kept_texts = nullptr;

const char *keep(const char *text, const char *fallback) {
    KeptText *first = kept_texts.load(std::memory_order_acquire);
    for (KeptText *kept = first; kept != nullptr; kept = kept->next)
        if (std::strcmp(kept->text(), text) == 0)
            return kept->text();

    const std::size_t size = std::strlen(text) + 1;
    auto *kept = static_cast<KeptText *>(std::malloc(sizeof(KeptText) + size));
    if (kept == nullptr)
        return fallback;
    std::memcpy(kept->text(), text, size);
    do
        kept->next = first;
    while (!kept_texts.compare_exchange_weak(first, kept, std::memory_order_acq_rel));
    return kept->text();
}

} // namespace

const char *qel_strerror(const QelContext *context, QelStatus code) {
    const int number = static_cast<int>(code);
    const bool known = number >= 0 && number < static_cast<int>(std::size(texts));
    const int message = known ? number + 1 : unknown_message;
    const char *fallback = known ? texts[number] : unknown_text;

    if (context != nullptr && context->catalogue != qel::no_catalogue)
        return catgets(context->catalogue, message_set, message, fallback);

    const nl_catd catalogue = qel::open_catalogue();
    const char *text = catgets(catalogue, message_set, message, fallback);
    if (text != fallback)
        text = keep(text, fallback);
    qel::close_catalogue(catalogue);
    return text;
}
