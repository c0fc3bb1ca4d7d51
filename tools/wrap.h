// wrap.h: session keys under RSA keys (PKCS#1 key transport), and the recipients of EnvelopedData.
#ifndef TOOLS_WRAP_H
#define TOOLS_WRAP_H

#include "credential.h"

#include <deque>
#include <span>
#include <string>

namespace tool {

// The key, encrypted under a public key. Says what there is to say about the key or its certificate.
Bytes wrap_key(const Context &context, std::span<const uint8_t> key, const PublicKey &recipient);

// Who keys are wrapped for: the public key of a certificate, of a key package whose signature is
// good, or a bare one.
PublicKey read_recipient(const Context &context, const std::string &path);

// The modulus of a private key, in bytes.
unsigned modulus_bytes(const Context &context, const PrivateKey &key, const std::string &where);

// The key inside, or the library's status and no bytes. The status does not tell why a key of the
// right size does not open it.
Bytes unwrap_key(const Context &context, std::span<const uint8_t> wrapped, const PrivateKey &key,
                 QelStatus &status);

// Recipients with their wrapped keys, as the records that EnvelopedData is encoded from.
class Recipients {
public:
    Recipients() = default;
    Recipients(const Recipients &) = delete;
    Recipients &operator=(const Recipients &) = delete;

    // Wraps the key for a recipient. A bare public key stands under an empty issuer, with its own
    // MD5 digest as serial number.
    void add(const Context &context, std::span<const uint8_t> key, PublicKey recipient);
    QelRcptInfos *list() { return nodes_.empty() ? nullptr : &nodes_.front(); }
    Json names() const;

private:
    struct Member {
        PublicKey key;
        Bytes serial, wrapped;
        QelName no_name;
        QelIssuerAndSerial who;
        QelRcptInfo info;
    };
    std::deque<Member> members_; // where a member stays in its place
    std::deque<QelRcptInfos> nodes_;
};

// Whether a recipient is the subject of a certificate.
bool is_recipient(const Context &context, const QelRcptInfo &info, const QelCert &certificate);

} // namespace tool

#endif
