#include "token_key.h"

#include <lib/memory.h>

namespace qel {

QelStatus check_key_algorithm(const QelOid *algorithm) {
    int difference = 0;
    const QelStatus status = __qel_cmp_oid(algorithm, QEL_RSA_ENCR_OID, &difference);
    if (status != QEL_OK)
        return status;
    return difference == 0 ? QEL_OK : QEL_ERR_KEY_TYPE;
}

QelStatus make_template(QelContext *context, const PrivateKey &key, OwnedTemplate *template_out) {
    QelPrivateKeyInfo info = {};
    info.privateKeyAlgorithm = const_cast<QelAlgId *>(key.algorithm);
    info.privateKey = {key.length, const_cast<uint8_t *>(key.bytes)};
    uint8_t *encoding = nullptr;
    uint32_t length = 0;
    if (__qel_asn1_encode(context, &info, QEL_PDU_PrivateKeyInfo, &encoding, &length) != QEL_OK)
        return QEL_ERR_BAD_KEY;
    const SecretBytes owned(encoding, ZeroAndFree{length});
    CK_ATTRIBUTE *attributes = nullptr;
    uint32_t count = 0;
    if (privateKeyInfoBer_2_template(encoding, length, &attributes, &count) != CKR_OK)
        return QEL_ERR_BAD_KEY;
    *template_out = own_template(attributes, count);
    return QEL_OK;
}

QelStatus make_template(QelContext *context, const PublicKey &key, OwnedTemplate *template_out) {
    QelAlgId algorithm = {const_cast<QelOid *>(key.algorithm),
                          const_cast<QelOctetString *>(key.parameters)};
    const QelKeyInfo info = {&algorithm, *key.bits};
    uint8_t *encoding = nullptr;
    uint32_t length = 0;
    if (__qel_asn1_encode(context, &info, QEL_PDU_SubjectPublicKeyInfo, &encoding, &length) !=
        QEL_OK)
        return QEL_ERR_BAD_KEY;
    const Owned<uint8_t> owned(encoding);
    CK_ATTRIBUTE *attributes = nullptr;
    uint32_t count = 0;
    if (subjectPublicKeyInfoBer_2_template(encoding, length, &attributes, &count) != CKR_OK)
        return QEL_ERR_BAD_KEY;
    *template_out = own_template(attributes, count);
    return QEL_OK;
}

QelStatus get_modulus_length(const OwnedTemplate &key, uint32_t *length_out) {
    toolkit::ITEM modulus = {};
    if (get_item_from_template(key.get(), static_cast<uint32_t>(key.get_deleter().count),
                               CKA_MODULUS, &modulus) != CKR_OK)
        return QEL_ERR_BAD_KEY;
    *length_out = modulus.len;
    return QEL_OK;
}

QelStatus open_session(OwnedSession *session_out) {
    CK_SESSION_HANDLE session = nullptr;
    if (C_OpenSession(0, 0, nullptr, nullNotify, &session) != CKR_OK || session == nullptr)
        return QEL_ERR_GENERAL;
    session_out->reset(session);
    return QEL_OK;
}

} // namespace qel
