#include "signature.h"

namespace {

// No extension is understood here, so that a critical one must be refused (X.509).
bool has_critical_extension(const QelCert *certificate) {
    for (const QelExtensions *node = certificate->extensions; node != nullptr; node = node->next)
        if (node->extension != nullptr && node->extension->critical != 0)
            return true;
    return false;
}

} // namespace

QelStatus qel_verify_cert(QelContext *context, const QelCert *certificate,
                          const QelKeyInfo *issuer_key) {
    constexpr int32_t version_3 = 2;
    if (context == nullptr || certificate == nullptr || issuer_key == nullptr ||
        issuer_key->algorithm == nullptr)
        return QEL_ERR_BAD_PARAM;
    if (certificate->version == version_3 && has_critical_extension(certificate))
        return QEL_ERR_CRITICAL_EXT;
    qel::Owned<uint8_t> encoding;
    uint32_t length = 0;
    QelStatus status =
        qel::encode(context, certificate, QEL_PDU_CertificateInfo, &encoding, &length);
    if (status != QEL_OK)
        return status;
    const QelStatus currency = __qel_is_current(certificate->validity);
    if (currency != QEL_OK && currency != QEL_ERR_KEY_EXPIRED)
        return currency;
    status = qel_verify(context, encoding.get(), length, QEL_MODE_FINAL,
                        issuer_key->algorithm->algorithm, issuer_key->algorithm->parameters,
                        &issuer_key->pubKey, certificate->algorithm, certificate->sigBits.value,
                        certificate->sigBits.length / 8);
    return status != QEL_OK ? status : currency;
}
