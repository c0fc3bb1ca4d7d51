#include <qel/qelp.h>

#include <cstdlib>
#include <cstring>
#include <string.h>

namespace {

template <class T> void free_block(T **block) {
    std::free(*block);
    *block = nullptr;
}

// Releases a record with what it owns and nulls the pointer to it.
template <class T> void free_record(T **record, void (*free2)(T *)) {
    if (record == nullptr || *record == nullptr)
        return;
    free2(*record);
    free_block(record);
}

// Releases a list node by node, each element before its node.
template <class Node, class Element>
void free_list(Node **first, Element *Node::*element, void (*free_element)(Element **)) {
    if (first == nullptr)
        return;
    while (*first != nullptr) {
        Node *node = *first;
        *first = node->next;
        free_element(&(node->*element));
        std::free(node);
    }
}

// Releases what the first node of a list owns: its element and the nodes behind it.
template <class Node, class Element>
void free2_list(Node *first, Element *Node::*element, void (*free_element)(Element **)) {
    if (first == nullptr)
        return;
    free_element(&(first->*element));
    free_list(&first->next, element, free_element);
    std::memset(first, 0, sizeof *first);
}

void free_trusted_keys(QelTrustedKeys **first) {
    free_list(first, &QelTrustedKeys::key, __qel_free_trusted_key);
}

void free_attributes(QelAttributes **first) {
    free_list(first, &QelAttributes::attribute, __qel_free_attribute);
}

} // namespace

// Scalars and strings

void __qel_free2_ostr(QelOctetString *record) {
    if (record == nullptr)
        return;
    if (record->value != nullptr)
        explicit_bzero(record->value, record->length);
    std::free(record->value);
    std::memset(record, 0, sizeof *record);
}

void __qel_free_ostr(QelOctetString **record) {
    free_record(record, __qel_free2_ostr);
}

void __qel_free2_bstr(QelBitString *record) {
    if (record == nullptr)
        return;
    std::free(record->value);
    std::memset(record, 0, sizeof *record);
}

void __qel_free_bstr(QelBitString **record) {
    free_record(record, __qel_free2_bstr);
}

void __qel_free2_uid(QelUid *record) {
    __qel_free2_bstr(record);
}

void __qel_free_uid(QelUid **record) {
    __qel_free_bstr(record);
}

void __qel_free2_oid(QelOid *record) {
    if (record == nullptr)
        return;
    std::free(record->value);
    std::memset(record, 0, sizeof *record);
}

void __qel_free_oid(QelOid **record) {
    free_record(record, __qel_free2_oid);
}

void __qel_free2_serial(QelSerial *record) {
    if (record == nullptr)
        return;
    std::free(record->value);
    std::memset(record, 0, sizeof *record);
}

void __qel_free_serial(QelSerial **record) {
    free_record(record, __qel_free2_serial);
}

void __qel_free2_validity(QelValidity *record) {
    if (record == nullptr)
        return;
    free_block(&record->notBefore);
    free_block(&record->notAfter);
}

void __qel_free_validity(QelValidity **record) {
    free_record(record, __qel_free2_validity);
}

void __qel_free2_algid(QelAlgId *record) {
    if (record == nullptr)
        return;
    __qel_free_oid(&record->algorithm);
    __qel_free_ostr(&record->parameters);
}

void __qel_free_algid(QelAlgId **record) {
    free_record(record, __qel_free2_algid);
}

void __qel_free2_keyinfo(QelKeyInfo *record) {
    if (record == nullptr)
        return;
    __qel_free_algid(&record->algorithm);
    __qel_free2_bstr(&record->pubKey);
}

void __qel_free_keyinfo(QelKeyInfo **record) {
    free_record(record, __qel_free2_keyinfo);
}

// Names

void __qel_free2_ava(QelAva *record) {
    if (record == nullptr)
        return;
    __qel_free_oid(&record->type);
    __qel_free_ostr(&record->value);
}

void __qel_free_ava(QelAva **record) {
    free_record(record, __qel_free2_ava);
}

void __qel_free2_rdn(QelRdn *record) {
    free2_list(record, &QelRdn::ava, __qel_free_ava);
}

void __qel_free_rdn(QelRdn **record) {
    free_list(record, &QelRdn::ava, __qel_free_ava);
}

void __qel_free2_rdn_seq(QelRdnSeq *record) {
    free2_list(record, &QelRdnSeq::rdn, __qel_free_rdn);
}

void __qel_free_rdn_seq(QelRdnSeq **record) {
    free_list(record, &QelRdnSeq::rdn, __qel_free_rdn);
}

void __qel_free2_dn(QelName *record) {
    if (record == nullptr)
        return;
    __qel_free_rdn_seq(&record->rdns);
    std::memset(record, 0, sizeof *record);
}

void qel_free_dn(QelName **name) {
    free_record(name, __qel_free2_dn);
}

// Attributes and extensions

void __qel_free2_attr_value(QelAttrValue *record) {
    free2_list(record, &QelAttrValue::value, __qel_free_ostr);
}

void __qel_free_attr_value(QelAttrValue **record) {
    free_list(record, &QelAttrValue::value, __qel_free_ostr);
}

void __qel_free2_attribute(QelAttribute *record) {
    if (record == nullptr)
        return;
    __qel_free_oid(&record->type);
    __qel_free_attr_value(&record->values);
}

void __qel_free_attribute(QelAttribute **record) {
    free_record(record, __qel_free2_attribute);
}

void __qel_free2_v3_extension(QelExtension *record) {
    if (record == nullptr)
        return;
    __qel_free_oid(&record->extnId);
    __qel_free2_ostr(&record->extnValue);
    std::memset(record, 0, sizeof *record);
}

void __qel_free_v3_extension(QelExtension **record) {
    free_record(record, __qel_free2_v3_extension);
}

void __qel_free2_v3_cert_extensions(QelExtensions *record) {
    free2_list(record, &QelExtensions::extension, __qel_free_v3_extension);
}

void __qel_free_v3_cert_extensions(QelExtensions **record) {
    free_list(record, &QelExtensions::extension, __qel_free_v3_extension);
}

// Certificates and requests

void __qel_free2_cert(QelCert *record) {
    if (record == nullptr)
        return;
    __qel_free2_serial(&record->serial);
    __qel_free_algid(&record->signature);
    qel_free_dn(&record->issuer);
    __qel_free_validity(&record->validity);
    qel_free_dn(&record->subject);
    __qel_free_keyinfo(&record->pubKeyInfo);
    __qel_free_uid(&record->issuerUID);
    __qel_free_uid(&record->subjectUID);
    if ((record->mask & QEL_CERT_EXTENSIONS) != 0)
        __qel_free_v3_cert_extensions(&record->extensions);
    __qel_free_algid(&record->algorithm);
    __qel_free2_bstr(&record->sigBits);
    std::memset(record, 0, sizeof *record);
}

void qel_free_cert(QelCert **cert) {
    free_record(cert, __qel_free2_cert);
}

void qel_free_cert_list(QelCert **array, int count) {
    if (array == nullptr || *array == nullptr || count <= 0)
        return;
    for (int i = 0; i < count; ++i)
        __qel_free2_cert(*array + i);
    free_block(array);
}

void __qel_free2_cert_pair(QelCertPair *record) {
    if (record == nullptr)
        return;
    qel_free_cert(&record->forward);
    qel_free_cert(&record->reverse);
}

void __qel_free_cert_pair(QelCertPair **record) {
    free_record(record, __qel_free2_cert_pair);
}

void __qel_free2_certreq(QelCertReq *record) {
    if (record == nullptr)
        return;
    qel_free_dn(&record->subject);
    __qel_free_keyinfo(&record->pubKeyInfo);
    free_attributes(&record->attributes);
    __qel_free_algid(&record->algorithm);
    __qel_free2_bstr(&record->signature);
    std::memset(record, 0, sizeof *record);
}

void __qel_free_certreq(QelCertReq **record) {
    free_record(record, __qel_free2_certreq);
}

// Keys of the credential infrastructure

void __qel_free2_encrypted_private_key_info(QelEncryptedPrivateKeyInfo *record) {
    if (record == nullptr)
        return;
    __qel_free_algid(&record->encryptionAlgorithm);
    __qel_free2_ostr(&record->encryptedData);
}

void __qel_free_encrypted_private_key_info(QelEncryptedPrivateKeyInfo **record) {
    free_record(record, __qel_free2_encrypted_private_key_info);
}

void __qel_free2_trusted_key(QelTrustedKey *record) {
    if (record == nullptr)
        return;
    qel_free_dn(&record->owner);
    __qel_free_keyinfo(&record->pubKeyInfo);
    qel_free_dn(&record->issuer);
    __qel_free_validity(&record->validity);
    __qel_free_ostr(&record->serial);
    if ((record->mask & QEL_TKEY_EXTENSIONS) != 0)
        __qel_free_v3_cert_extensions(&record->extensions);
    std::memset(record, 0, sizeof *record);
}

void __qel_free_trusted_key(QelTrustedKey **record) {
    free_record(record, __qel_free2_trusted_key);
}

// keypkgAttrs stays with whoever set it.
void __qel_free2_keypkg(QelKeyPkg *record) {
    if (record == nullptr)
        return;
    free_block(&record->version);
    free_block(&record->keypkgId);
    qel_free_dn(&record->owner);
    __qel_free_keyinfo(&record->pubKeyInfo);
    __qel_free_encrypted_private_key_info(&record->encrPrivKeyInfo);
    free_trusted_keys(&record->tKeys);
    __qel_free_algid(&record->algorithm);
    __qel_free2_bstr(&record->signature);
    std::memset(record, 0, sizeof *record);
}

void qel_free_keypkg(QelKeyPkg **keypkg) {
    free_record(keypkg, __qel_free2_keypkg);
}

// PKCS#1 and PKCS#7

void __qel_free2_digest_info(QelDigestInfo *record) {
    if (record == nullptr)
        return;
    __qel_free_algid(&record->digestAlgorithm);
    __qel_free2_ostr(&record->digest);
}

void __qel_free_digest_info(QelDigestInfo **record) {
    free_record(record, __qel_free2_digest_info);
}

void __qel_free2_pkcs_content_info(QelContentInfo *record) {
    if (record == nullptr)
        return;
    __qel_free_oid(&record->contentType);
    __qel_free_ostr(&record->content);
}

void __qel_free_pkcs_content_info(QelContentInfo **record) {
    free_record(record, __qel_free2_pkcs_content_info);
}

void __qel_free2_issuer_and_serial(QelIssuerAndSerial *record) {
    if (record == nullptr)
        return;
    qel_free_dn(&record->issuer);
    __qel_free2_serial(&record->serial);
}

void __qel_free_issuer_and_serial(QelIssuerAndSerial **record) {
    free_record(record, __qel_free2_issuer_and_serial);
}

void __qel_free2_rcpt_info(QelRcptInfo *record) {
    if (record == nullptr)
        return;
    __qel_free_issuer_and_serial(&record->issuerAndSerialNumber);
    __qel_free_algid(&record->keyEncryptionAlgorithm);
    __qel_free2_ostr(&record->encryptedKey);
    std::memset(record, 0, sizeof *record);
}

void __qel_free_rcpt_info(QelRcptInfo **record) {
    free_record(record, __qel_free2_rcpt_info);
}

void __qel_free2_rcpt_infos(QelRcptInfos *record) {
    free2_list(record, &QelRcptInfos::recipient, __qel_free_rcpt_info);
}

void __qel_free_rcpt_infos(QelRcptInfos **record) {
    free_list(record, &QelRcptInfos::recipient, __qel_free_rcpt_info);
}

// Lists of anything

void __qel_free2_item_list(QelItemList *record) {
    free2_list(record, &QelItemList::data, free_block<void>);
}

void __qel_free_item_list(QelItemList **record) {
    free_list(record, &QelItemList::data, free_block<void>);
}
