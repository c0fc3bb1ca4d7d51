// records.h: records for tests, with every optional part there, and their contents as text.
//
// full_... makes a new record that the caller releases; the values it holds can be encoded.
// describe writes out everything below a record, lists in their order, so that two records with the
// same description are deep copies of one another.
#ifndef TESTS_SUPPORT_RECORDS_H
#define TESTS_SUPPORT_RECORDS_H

#include "support/files.h"

#include <lib/memory.h>
#include <qel/qelp.h>

#include <string>
#include <vector>

namespace records {

using OwnedCert = qel::Record<QelCert, qel_free_cert>;
using OwnedName = qel::Record<QelName, qel_free_dn>;
using OwnedKeyPkg = qel::Record<QelKeyPkg, qel_free_keypkg>;
using OwnedTrustedKey = qel::Record<QelTrustedKey, __qel_free_trusted_key>;

// Heap copies of plain values, as records own them.
template <class T> T *heap(const T &value) {
    return new (std::malloc(sizeof(T))) T(value);
}
uint8_t *heap_bytes(const Bytes &bytes);
char *heap_text(const std::string &text);
QelOctetString octets(const Bytes &bytes);
QelBitString bits(uint32_t length, const Bytes &bytes);
QelOid oid(const std::vector<uint32_t> &components);
QelAlgId algid(const std::vector<uint32_t> &components, const Bytes &parameters);

// A list in the order of its elements, which it takes over.
template <class Node, class Element> Node *list(const std::vector<Element *> &elements) {
    Node *first = nullptr;
    for (auto element = elements.rbegin(); element != elements.rend(); ++element)
        first = heap(Node{first, *element});
    return first;
}

QelOctetString *full_ostr();
QelBitString *full_bstr(); // 21 bits
QelOid *full_oid();
QelSerial *full_serial();
QelUTCTime *full_time();
QelValidity *full_validity();
QelAlgId *full_algid();
QelKeyInfo *full_keyinfo();
QelAva *full_ava();
QelRdn *full_rdn();        // two assertions
QelRdnSeq *full_rdn_seq(); // three RDNs
QelName *full_name();
QelAttrValue *full_attr_value(); // two values
QelAttribute *full_attribute();
QelExtension *full_extension();
QelExtensions *full_extensions(); // one critical, one not
QelCert *full_cert();
QelCertPair *full_cert_pair();
QelCertReq *full_certreq();
QelEncryptedPrivateKeyInfo *full_encrypted_private_key_info();
QelTrustedKey *full_trusted_key();
QelKeyPkg *full_keypkg(); // two trusted keys; no attributes, which nobody would release
QelDigestInfo *full_digest_info();
QelContentInfo *full_content_info();
QelIssuerAndSerial *full_issuer_and_serial();
QelRcptInfo *full_rcpt_info();
QelRcptInfos *full_rcpt_infos(); // two
QelItemList *full_item_list();   // two

std::string describe(const QelOctetString &record);
std::string describe(const QelBitString &record);
std::string describe(const QelOid &record);
std::string describe(const QelSerial &record);
std::string describe(const QelUTCTime &record);
std::string describe(const QelValidity &record);
std::string describe(const QelAlgId &record);
std::string describe(const QelKeyInfo &record);
std::string describe(const QelAva &record);
std::string describe(const QelRdn &record);    // the whole list
std::string describe(const QelRdnSeq &record); // the whole list
std::string describe(const QelName &record);
std::string describe(const QelExtension &record);
std::string describe(const QelExtensions &record); // the whole list
std::string describe(const QelCert &record);
std::string describe(const QelEncryptedPrivateKeyInfo &record);
std::string describe(const QelTrustedKey &record);

} // namespace records

#endif
