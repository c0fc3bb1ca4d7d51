// Signed messages, verified with the keys of their own certificates as the trusted ones. What is good
// comes with all its results, what is not with none.
#include "fuzz.h"

// There is no naming service here (replaced at link time).
extern "C" QelStatus __wrap_qel_get_cert(QelContext *, const char *, QelCert **certificates,
                                         int *count) {
    *certificates = nullptr;
    *count = 0;
    return QEL_ERR_UNKNOWN_USER;
}

static void free_keys(QelTrustedKeys *keys) {
    while (keys != nullptr) {
        QelTrustedKeys *node = keys;
        keys = node->next;
        __qel_free_trusted_key(&node->key);
        std::free(node);
    }
}

// The keys of the message's certificates, where it has any.
static QelTrustedKeys *keys_of(const uint8_t *message, uint32_t length) {
    QelTrustedKeys *keys = nullptr;
    void *outer = nullptr, *inner = nullptr;
    if (__qel_asn1_decode(context(), message, length, QEL_PDU_ContentInfo, &outer) != QEL_OK)
        return nullptr;
    const QelOctetString *content = static_cast<QelContentInfo *>(outer)->content;
    if (content != nullptr && __qel_asn1_decode(context(), content->value, content->length,
                                                QEL_PDU_SignedData, &inner) == QEL_OK)
        for (QelCertChoices *node = static_cast<QelSignedData *>(inner)->certs; node != nullptr;
             node = node->next)
            if (node->cert->choice == QEL_CERT_PLAIN) {
                QelTrustedKey key = {};
                key.owner = node->cert->u.cert->subject;
                key.pubKeyInfo = node->cert->u.cert->pubKeyInfo;
                __qel_add_trusted_key(context(), &key, &keys);
            }
    __qel_asn1_free(context(), inner, QEL_PDU_SignedData);
    __qel_asn1_free(context(), outer, QEL_PDU_ContentInfo);
    return keys;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *message, std::size_t size) {
    const auto length = static_cast<uint32_t>(size);
    QelTrustedKeys *keys = keys_of(message, length);
    if (keys == nullptr)
        return 0;
    uint8_t *data = nullptr;
    uint32_t data_length = 0;
    char *name = nullptr;
    QelCert *chain = nullptr, *expired = nullptr;
    int count = 0;
    const QelStatus status =
        __qel_verify_pkcs7_signedData(context(), message, length, keys, nullptr, 0, &data,
                                      &data_length, &name, &chain, &count, &expired);
    const bool good = status == QEL_OK || status == QEL_ERR_KEY_EXPIRED;
    must(good == (data != nullptr) && good == (name != nullptr) && good == (count > 0));
    must((status == QEL_ERR_KEY_EXPIRED) == (expired != nullptr));
    std::free(data);
    std::free(name);
    qel_free_cert_list(&chain, count);
    qel_free_cert(&expired);
    free_keys(keys);
    return 0;
}
