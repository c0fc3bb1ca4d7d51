// signed_message.h: PKCS#7 signed data (RFC 2315), for what the library's own operations do not
// know: messages with authenticated attributes, without their content, or of several signers.
#ifndef TOOLS_SIGNED_MESSAGE_H
#define TOOLS_SIGNED_MESSAGE_H

#include "trusted.h"

#include <optional>
#include <string>
#include <vector>

namespace tool {

struct SignedMessage {
    std::string where; // file, and block where there are several; safe to print
    Bytes bytes;
    Decoded<QelSignedData> data;
    bool has_content = false;
    Bytes content; // octets, where the message has its content and this is data
    std::vector<const QelCert *> certificates;
    std::vector<const QelSignerInfo *> signers;
};

// The first signed message in a file, DER, BER or armoured. Throws Failure where there is none.
SignedMessage read_message(QelContext *context, const std::string &path);

// Whether the library's own operation can verify the message: one signer without authenticated
// attributes, and content inside that is not empty.
bool is_plain(const SignedMessage &message);

// The certificate that a signer names by issuer and serial number; null if the message has it not.
const QelCert *certificate_of(QelContext *context, const SignedMessage &message,
                              const QelSignerInfo &signer);

// A certificate and its issuers among those of the message, each once.
std::vector<const QelCert *> chain_in(QelContext *context, const SignedMessage &message,
                                      const QelCert *certificate);

// Whether a signer's signature is good: with authenticated attributes, that they name this content
// type and the digest of this content, and that they are what is signed; else over the content.
//   why  is set where the library has no status that says it.
QelStatus verify_signer(QelContext *context, const SignedMessage &message,
                        const QelSignerInfo &signer, const QelCert &certificate,
                        std::span<const uint8_t> content, std::string &why);

// A message that carries its content and the given certificates, signed by the first of them, as the
// library makes it.
//   signature  over the content, by the key of the first certificate.
Bytes make_message(QelContext *context, std::span<const uint8_t> content,
                   const Algorithm &algorithm, std::span<const uint8_t> signature,
                   const std::vector<const QelCert *> &certificates);

} // namespace tool

#endif
