#include "chain.h"

#include "cert_array.h"
#include "signature.h"

namespace {

// No extension is understood here, so that a critical one must be refused (X.509).
bool has_critical_extension(const QelCert *certificate) {
    for (const QelExtensions *node = certificate->extensions; node != nullptr; node = node->next)
        if (node->extension != nullptr && node->extension->critical != 0)
            return true;
    return false;
}

// The validity alone; trust takes the place of a signature.
QelStatus check_single(QelContext *context, const QelCert *certificate,
                       const QelTrustedKeys *trusted_keys, qel::ChainFindings *findings) {
    const QelStatus status = __qel_is_current(certificate->validity);
    if (status == QEL_ERR_KEY_EXPIRED)
        findings->expired = certificate;
    else if (status != QEL_OK)
        return status;
    return findings->test_trust(context, trusted_keys, certificate);
}

// Verifies each certificate with the next one's key, up to the first that is trusted.
QelStatus climb(QelContext *context, std::span<const QelCert> chain,
                const QelTrustedKeys *trusted_keys, qel::ChainFindings *findings) {
    for (std::size_t i = 1; i < chain.size(); ++i) {
        const QelStatus status = qel_verify_cert(context, &chain[i - 1], chain[i].pubKeyInfo);
        if (status != QEL_OK && status != QEL_ERR_KEY_EXPIRED)
            return status;
        if (status == QEL_ERR_KEY_EXPIRED && findings->expired == nullptr)
            findings->expired = &chain[i - 1];
        if (findings->test_trust(context, trusted_keys, &chain[i]) == QEL_OK)
            return QEL_OK;
    }
    return QEL_ERR_ISSUER_NOT_TRUSTED;
}

} // namespace

QelStatus qel::ChainFindings::test_trust(QelContext *context, const QelTrustedKeys *trusted_keys,
                                         const QelCert *certificate) {
    const QelStatus status = __qel_is_trusted_key(context, trusted_keys, certificate);
    if (status == QEL_ERR_TKEY_EXPIRED)
        trusted_key_expired = true;
    return status;
}

QelStatus qel::ChainFindings::conclude(QelStatus status, QelCert **expired_certificate) const {
    if (status == QEL_OK && expired != nullptr && expired_certificate != nullptr)
        status = __qel_copy_cert(expired_certificate, expired);
    if (status != QEL_OK && trusted_key_expired)
        return QEL_ERR_TKEY_EXPIRED;
    if (status == QEL_OK && expired != nullptr)
        return QEL_ERR_KEY_EXPIRED;
    return status;
}

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

QelStatus qel_verify_cert_chain(QelContext *context, const QelCert *chain, int count,
                                const QelTrustedKeys *trusted_keys, QelCert **expired_certificate) {
    if (expired_certificate != nullptr)
        *expired_certificate = nullptr;
    if (context == nullptr || chain == nullptr || count <= 0 || trusted_keys == nullptr)
        return QEL_ERR_BAD_PARAM;
    qel::ChainFindings findings;
    const QelStatus status = count == 1 ? check_single(context, chain, trusted_keys, &findings)
                                        : climb(context, {chain, static_cast<std::size_t>(count)},
                                                trusted_keys, &findings);
    return findings.conclude(status, expired_certificate);
}

QelStatus __qel_append_cert_to_chain(const QelCert *certificate, const QelCert *chain, int count,
                                     QelCert **new_chain, int *new_count) {
    if (new_chain == nullptr || new_count == nullptr)
        return QEL_ERR_BAD_PARAM;
    *new_chain = nullptr;
    *new_count = 0;
    if (certificate == nullptr || count < 0 || (chain == nullptr) != (count == 0))
        return QEL_ERR_BAD_PARAM;
    qel::CertArray longer;
    QelStatus status = longer.make(std::size_t{1} + static_cast<std::size_t>(count));
    if (status == QEL_OK)
        status = longer.add_copy(certificate);
    for (int k = 0; k < count && status == QEL_OK; ++k)
        status = longer.add_copy(chain + k);
    if (status == QEL_OK)
        longer.hand_over(new_chain, new_count);
    return status;
}
