// token_key.h: keys as callers give them, on their way into the token.
#ifndef QEL_TOKEN_KEY_H
#define QEL_TOKEN_KEY_H

#include <cryptoki/session.h>
#include <cryptoki/template.h>
#include <qel/qelp.h>

namespace qel {

// A private key, as the parts of a PrivateKeyInfo (PKCS#8). All are there or none.
struct PrivateKey {
    const QelAlgId *algorithm;
    const uint8_t *bytes;
    uint32_t length;

    bool given() const { return algorithm != nullptr; }
    bool half_given() const { return given() != (bytes != nullptr) || given() != (length != 0); }
};

// A public key, as the parts of a SubjectPublicKeyInfo (X.509).
struct PublicKey {
    const QelOid *algorithm;
    const QelOctetString *parameters;
    const QelBitString *bits;
};

// QEL_ERR_KEY_TYPE: anything but rsaEncryption.
QelStatus check_key_algorithm(const QelOid *algorithm);

// QEL_ERR_BAD_KEY: a key that cannot be encoded, or that the toolkit refuses.
QelStatus make_template(QelContext *context, const PrivateKey &key, OwnedTemplate *template_out);
QelStatus make_template(QelContext *context, const PublicKey &key, OwnedTemplate *template_out);

// The length of the modulus in bytes. QEL_ERR_BAD_KEY: there is none.
QelStatus get_modulus_length(const OwnedTemplate &key, uint32_t *length_out);

// QEL_ERR_GENERAL.
QelStatus open_session(OwnedSession *session_out);

} // namespace qel

#endif
