#include <qel/qelp.h>

#include <cstdlib>
#include <cstring>

#include <lib/memory.h>

namespace {

// A copy of count values, unless there are none and no array either. The lengths of records come
// from outside: one that counts values which are not there must not be believed.
template <class T> QelStatus copy_array(T **copy_out, const T *source, std::size_t count) {
    if (source == nullptr && count == 0)
        return QEL_OK;
    if (source == nullptr)
        return QEL_ERR_GENERAL;
    *copy_out = static_cast<T *>(std::calloc(count != 0 ? count : 1, sizeof(T)));
    if (*copy_out == nullptr)
        return QEL_ERR_NO_MEMORY;
    std::memcpy(*copy_out, source, count * sizeof(T));
    return QEL_OK;
}

// Whether there is something to copy; octet strings and assertions must have their value.
template <class T> bool copyable(const T *source) {
    return source != nullptr;
}
bool copyable(const QelOctetString *source) {
    return source != nullptr && source->value != nullptr;
}
bool copyable(const QelAva *source) {
    return source != nullptr && source->value != nullptr;
}

// __qel_copy_: a new record, filled by __qel_copy2_.
template <class T>
QelStatus copy_new(T **result_out, const T *source, QelStatus (*copy2)(T *, const T *)) {
    if (result_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *result_out = nullptr;
    if (!copyable(source))
        return QEL_ERR_BAD_PARAM;
    qel::Owned<T> record(qel::allocate<T>());
    if (record == nullptr)
        return QEL_ERR_NO_MEMORY;
    const QelStatus status = copy2(record.get(), source);
    if (status == QEL_OK)
        *result_out = record.release();
    return status;
}

// __qel_copy2_: fill copies the fields in order into the cleared target, up to the first failure;
// what it had copied by then is released here.
template <class T>
QelStatus copy_into(T *target, const T *source, QelStatus (*fill)(T &, const T &),
                    void (*free2)(T *)) {
    if (target == nullptr)
        return QEL_ERR_BAD_PARAM;
    std::memset(target, 0, sizeof *target);
    if (!copyable(source))
        return QEL_ERR_BAD_PARAM;
    const QelStatus status = fill(*target, *source);
    if (status != QEL_OK)
        free2(target);
    return status;
}

// Copies a field that may be absent.
template <class T>
QelStatus copy_present(T **copy_out, const T *source, QelStatus (*copy)(T **, const T *)) {
    if (source == nullptr)
        return QEL_OK;
    return copy(copy_out, source);
}

// Copies a list in its order; an empty one is copied as empty. On failure the nodes made so far
// stay in the list for the caller to release.
template <class Node, class Element>
QelStatus fill_list(Node **copy_out, const Node *source, Element *Node::*element,
                    QelStatus (*copy)(Element **, const Element *)) {
    for (Node **end = copy_out; source != nullptr; source = source->next, end = &(*end)->next) {
        *end = qel::allocate<Node>();
        if (*end == nullptr)
            return QEL_ERR_NO_MEMORY;
        const QelStatus status = copy(&((*end)->*element), source->*element);
        if (status != QEL_OK)
            return status;
    }
    return QEL_OK;
}

// A copy of a list that has at least one node, whole or not at all.
template <class Node, class Element>
QelStatus copy_list(Node **result_out, const Node *source, Element *Node::*element,
                    QelStatus (*copy)(Element **, const Element *), void (*free_list)(Node **)) {
    if (result_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *result_out = nullptr;
    if (source == nullptr)
        return QEL_ERR_BAD_PARAM;
    const QelStatus status = fill_list(result_out, source, element, copy);
    if (status != QEL_OK)
        free_list(result_out);
    return status;
}

QelStatus fill_extensions(QelExtensions **copy_out, const QelExtensions *source) {
    return fill_list(copy_out, source, &QelExtensions::extension, __qel_copy_v3_cert_extension);
}

std::size_t bytes_for(uint32_t bits) {
    return bits / 8 + (bits % 8 != 0);
}

QelStatus fill_ostr(QelOctetString &target, const QelOctetString &source) {
    target.length = source.length;
    return copy_array(&target.value, source.value, source.length);
}

QelStatus fill_bstr(QelBitString &target, const QelBitString &source) {
    target.length = source.length;
    return copy_array(&target.value, source.value, bytes_for(source.length));
}

QelStatus fill_oid(QelOid &target, const QelOid &source) {
    target.count = source.count;
    return copy_array(&target.value, source.value, source.count);
}

QelStatus fill_serial(QelSerial &target, const QelSerial &source) {
    target.length = source.length;
    return copy_array(&target.value, source.value, source.length);
}

QelStatus fill_validity(QelValidity &target, const QelValidity &source) {
    QelStatus status = __qel_copy_UTCTime(&target.notBefore, source.notBefore);
    if (status == QEL_OK)
        status = __qel_copy_UTCTime(&target.notAfter, source.notAfter);
    return status;
}

QelStatus fill_algid(QelAlgId &target, const QelAlgId &source) {
    QelStatus status = __qel_copy_oid(&target.algorithm, source.algorithm);
    if (status == QEL_OK)
        status = copy_present(&target.parameters, source.parameters, __qel_copy_ostr);
    return status;
}

QelStatus fill_keyinfo(QelKeyInfo &target, const QelKeyInfo &source) {
    QelStatus status = __qel_copy_algid(&target.algorithm, source.algorithm);
    if (status == QEL_OK)
        status = __qel_copy2_bstr(&target.pubKey, &source.pubKey);
    return status;
}

QelStatus fill_ava(QelAva &target, const QelAva &source) {
    QelStatus status = __qel_copy_oid(&target.type, source.type);
    if (status == QEL_OK)
        status = __qel_copy_ostr(&target.value, source.value);
    return status;
}

QelStatus fill_dn(QelName &target, const QelName &source) {
    target.choice = source.choice;
    return fill_list(&target.rdns, source.rdns, &QelRdnSeq::rdn, __qel_copy_rdn);
}

QelStatus fill_extension(QelExtension &target, const QelExtension &source) {
    target.mask = source.mask;
    target.critical = source.critical;
    QelStatus status = __qel_copy_oid(&target.extnId, source.extnId);
    if (status == QEL_OK)
        status = __qel_copy2_ostr(&target.extnValue, &source.extnValue);
    return status;
}

QelStatus fill_cert(QelCert &target, const QelCert &source) {
    target.mask = source.mask;
    target.version = source.version;
    QelStatus status = __qel_copy2_serial(&target.serial, &source.serial);
    if (status == QEL_OK)
        status = __qel_copy_algid(&target.signature, source.signature);
    if (status == QEL_OK)
        status = __qel_copy_dn(&target.issuer, source.issuer);
    if (status == QEL_OK)
        status = __qel_copy_validity(&target.validity, source.validity);
    if (status == QEL_OK)
        status = __qel_copy_dn(&target.subject, source.subject);
    if (status == QEL_OK)
        status = __qel_copy_keyinfo(&target.pubKeyInfo, source.pubKeyInfo);
    if (status == QEL_OK)
        status = copy_present(&target.issuerUID, source.issuerUID, __qel_copy_uid);
    if (status == QEL_OK)
        status = copy_present(&target.subjectUID, source.subjectUID, __qel_copy_uid);
    if (status == QEL_OK && (source.mask & QEL_CERT_EXTENSIONS) != 0)
        status = fill_extensions(&target.extensions, source.extensions);
    if (status == QEL_OK)
        status = __qel_copy_algid(&target.algorithm, source.algorithm);
    if (status == QEL_OK)
        status = __qel_copy2_bstr(&target.sigBits, &source.sigBits);
    return status;
}

QelStatus fill_trusted_key(QelTrustedKey &target, const QelTrustedKey &source) {
    target.mask = source.mask;
    QelStatus status = __qel_copy_dn(&target.owner, source.owner);
    if (status == QEL_OK)
        status = __qel_copy_keyinfo(&target.pubKeyInfo, source.pubKeyInfo);
    if (status == QEL_OK)
        status = copy_present(&target.issuer, source.issuer, __qel_copy_dn);
    if (status == QEL_OK)
        status = copy_present(&target.validity, source.validity, __qel_copy_validity);
    if (status == QEL_OK)
        status = copy_present(&target.serial, source.serial, __qel_copy_ostr);
    if (status == QEL_OK && (source.mask & QEL_TKEY_EXTENSIONS) != 0)
        status = fill_extensions(&target.extensions, source.extensions);
    return status;
}

QelStatus fill_encrypted_private_key_info(QelEncryptedPrivateKeyInfo &target,
                                          const QelEncryptedPrivateKeyInfo &source) {
    QelStatus status = __qel_copy_algid(&target.encryptionAlgorithm, source.encryptionAlgorithm);
    if (status == QEL_OK)
        status = __qel_copy2_ostr(&target.encryptedData, &source.encryptedData);
    return status;
}

} // namespace

// Scalars and strings

QelStatus __qel_copy2_ostr(QelOctetString *target, const QelOctetString *source) {
    return copy_into(target, source, fill_ostr, __qel_free2_ostr);
}

QelStatus __qel_copy_ostr(QelOctetString **result_out, const QelOctetString *source) {
    return copy_new(result_out, source, __qel_copy2_ostr);
}

QelStatus __qel_copy2_bstr(QelBitString *target, const QelBitString *source) {
    return copy_into(target, source, fill_bstr, __qel_free2_bstr);
}

QelStatus __qel_copy_bstr(QelBitString **result_out, const QelBitString *source) {
    return copy_new(result_out, source, __qel_copy2_bstr);
}

QelStatus __qel_copy2_uid(QelUid *target, const QelUid *source) {
    return __qel_copy2_bstr(target, source);
}

QelStatus __qel_copy_uid(QelUid **result_out, const QelUid *source) {
    return __qel_copy_bstr(result_out, source);
}

QelStatus __qel_copy2_oid(QelOid *target, const QelOid *source) {
    return copy_into(target, source, fill_oid, __qel_free2_oid);
}

QelStatus __qel_copy_oid(QelOid **result_out, const QelOid *source) {
    return copy_new(result_out, source, __qel_copy2_oid);
}

QelStatus __qel_copy2_serial(QelSerial *target, const QelSerial *source) {
    return copy_into(target, source, fill_serial, __qel_free2_serial);
}

QelStatus __qel_copy_serial(QelSerial **result_out, const QelSerial *source) {
    return copy_new(result_out, source, __qel_copy2_serial);
}

QelStatus __qel_copy2_UTCTime(QelUTCTime *target, const QelUTCTime *source) {
    if (target == nullptr)
        return QEL_ERR_BAD_PARAM;
    std::memset(target, 0, sizeof *target); // the record's padding, too
    if (source == nullptr)
        return QEL_ERR_BAD_PARAM;
    *target = *source;
    return QEL_OK;
}

QelStatus __qel_copy_UTCTime(QelUTCTime **result_out, const QelUTCTime *source) {
    return copy_new(result_out, source, __qel_copy2_UTCTime);
}

QelStatus __qel_copy2_validity(QelValidity *target, const QelValidity *source) {
    return copy_into(target, source, fill_validity, __qel_free2_validity);
}

QelStatus __qel_copy_validity(QelValidity **result_out, const QelValidity *source) {
    return copy_new(result_out, source, __qel_copy2_validity);
}

QelStatus __qel_copy2_algid(QelAlgId *target, const QelAlgId *source) {
    return copy_into(target, source, fill_algid, __qel_free2_algid);
}

QelStatus __qel_copy_algid(QelAlgId **result_out, const QelAlgId *source) {
    return copy_new(result_out, source, __qel_copy2_algid);
}

QelStatus __qel_copy2_keyinfo(QelKeyInfo *target, const QelKeyInfo *source) {
    return copy_into(target, source, fill_keyinfo, __qel_free2_keyinfo);
}

QelStatus __qel_copy_keyinfo(QelKeyInfo **result_out, const QelKeyInfo *source) {
    return copy_new(result_out, source, __qel_copy2_keyinfo);
}

// Names

QelStatus __qel_copy_ava(QelAva **result_out, const QelAva *source) {
    return copy_new(
        result_out, source, +[](QelAva *target, const QelAva *from) {
            return copy_into(target, from, fill_ava, __qel_free2_ava);
        });
}

QelStatus __qel_copy_rdn(QelRdn **result_out, const QelRdn *source) {
    return copy_list(result_out, source, &QelRdn::ava, __qel_copy_ava, __qel_free_rdn);
}

QelStatus __qel_copy2_dn(QelName *target, const QelName *source) {
    return copy_into(target, source, fill_dn, __qel_free2_dn);
}

QelStatus __qel_copy_dn(QelName **result_out, const QelName *source) {
    return copy_new(result_out, source, __qel_copy2_dn);
}

// Extensions

QelStatus __qel_copy2_v3_extension(QelExtension *target, const QelExtension *source) {
    return copy_into(target, source, fill_extension, __qel_free2_v3_extension);
}

QelStatus __qel_copy_v3_cert_extension(QelExtension **result_out, const QelExtension *source) {
    return copy_new(result_out, source, __qel_copy2_v3_extension);
}

QelStatus __qel_copy_v3_cert_extensions(QelExtensions **result_out, const QelExtensions *source) {
    return copy_list(result_out, source, &QelExtensions::extension, __qel_copy_v3_cert_extension,
                     __qel_free_v3_cert_extensions);
}

// Certificates and keys

QelStatus __qel_copy2_cert(QelCert *target, const QelCert *source) {
    return copy_into(target, source, fill_cert, __qel_free2_cert);
}

QelStatus __qel_copy_cert(QelCert **result_out, const QelCert *source) {
    return copy_new(result_out, source, __qel_copy2_cert);
}

QelStatus __qel_copy2_trusted_key(QelTrustedKey *target, const QelTrustedKey *source) {
    return copy_into(target, source, fill_trusted_key, __qel_free2_trusted_key);
}

QelStatus __qel_copy_tkey(QelTrustedKey **result_out, const QelTrustedKey *source) {
    return copy_new(result_out, source, __qel_copy2_trusted_key);
}

QelStatus __qel_copy2_encrypted_private_key_info(QelEncryptedPrivateKeyInfo *target,
                                                 const QelEncryptedPrivateKeyInfo *source) {
    return copy_into(target, source, fill_encrypted_private_key_info,
                     __qel_free2_encrypted_private_key_info);
}

QelStatus __qel_copy_encrypted_private_key_info(QelEncryptedPrivateKeyInfo **result_out,
                                                const QelEncryptedPrivateKeyInfo *source) {
    return copy_new(result_out, source, __qel_copy2_encrypted_private_key_info);
}
