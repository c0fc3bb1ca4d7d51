#include "support/records.h"

#include <cstring>
#include <numeric>

namespace records {
namespace {

const std::vector<uint32_t> common_name = {2, 5, 4, 3};
const std::vector<uint32_t> country = {2, 5, 4, 6};
const std::vector<uint32_t> organisation = {2, 5, 4, 10};
const std::vector<uint32_t> md5_with_rsa = {1, 2, 840, 113549, 1, 1, 4};
const std::vector<uint32_t> rsa = {1, 2, 840, 113549, 1, 1, 1};
const Bytes null_parameters = {0x05, 0x00};

// A PrintableString in its encoding.
Bytes printable(const std::string &text) {
    return bytes_of(std::string{0x13, static_cast<char>(text.size())} + text);
}

QelAva *ava(const std::vector<uint32_t> &type, const std::string &text) {
    return heap(QelAva{heap(oid(type)), heap(octets(printable(text)))});
}

QelSerial serial(const Bytes &bytes) {
    return {static_cast<uint16_t>(bytes.size()), heap_bytes(bytes)};
}

Bytes counting(std::size_t size) {
    Bytes result(size);
    std::iota(result.begin(), result.end(), uint8_t{1});
    return result;
}

QelExtension *extension(const std::vector<uint32_t> &type, bool critical, const Bytes &value) {
    const uint8_t mask = critical ? QEL_EXTENSION_CRITICAL : 0;
    return heap(QelExtension{mask, heap(oid(type)), critical, octets(value)});
}

} // namespace

uint8_t *heap_bytes(const Bytes &bytes) {
    auto *copy = static_cast<uint8_t *>(std::malloc(bytes.size()));
    std::copy(bytes.begin(), bytes.end(), copy);
    return copy;
}

char *heap_text(const std::string &text) {
    return strdup(text.c_str());
}

QelOctetString octets(const Bytes &bytes) {
    return {static_cast<uint32_t>(bytes.size()), heap_bytes(bytes)};
}

QelBitString bits(uint32_t length, const Bytes &bytes) {
    return {length, heap_bytes(bytes)};
}

QelOid oid(const std::vector<uint32_t> &components) {
    const std::size_t size = components.size() * sizeof(uint32_t);
    auto *copy = static_cast<uint32_t *>(std::malloc(size));
    std::copy(components.begin(), components.end(), copy);
    return {static_cast<uint16_t>(components.size()), copy};
}

QelAlgId algid(const std::vector<uint32_t> &components, const Bytes &parameters) {
    return {heap(oid(components)), heap(octets(parameters))};
}

QelOctetString *full_ostr() {
    return heap(octets(counting(5)));
}

QelBitString *full_bstr() {
    return heap(bits(21, {0xA5, 0x5A, 0xF8}));
}

QelOid *full_oid() {
    return heap(oid(md5_with_rsa));
}

QelSerial *full_serial() {
    return heap(serial({0x00, 0xFF, 0x01}));
}

QelUTCTime *full_time() {
    return heap(QelUTCTime{96, 12, 31, 23, 59, 58, 0, -90, 0});
}

QelValidity *full_validity() {
    return heap(QelValidity{full_time(), heap(QelUTCTime{149, 1, 2, 3, 4, 5, 0, 0, 1})});
}

QelAlgId *full_algid() {
    return heap(algid(md5_with_rsa, null_parameters));
}

QelKeyInfo *full_keyinfo() {
    return heap(QelKeyInfo{heap(algid(rsa, null_parameters)), bits(76, counting(10))});
}

QelAva *full_ava() {
    return ava(common_name, "Alice");
}

QelRdn *full_rdn() {
    return list<QelRdn, QelAva>({ava(common_name, "Alice"), ava({2, 5, 4, 11}, "Tests")});
}

QelRdnSeq *full_rdn_seq() {
    return list<QelRdnSeq, QelRdn>({list<QelRdn, QelAva>({ava(country, "US")}),
                                    list<QelRdn, QelAva>({ava(organisation, "Example")}),
                                    full_rdn()});
}

QelName *full_name() {
    return heap(QelName{QEL_NAME_RDN_SEQUENCE, full_rdn_seq()});
}

QelAttrValue *full_attr_value() {
    return list<QelAttrValue, QelOctetString>(
        {heap(octets(printable("one"))), heap(octets(printable("two")))});
}

QelAttribute *full_attribute() {
    return heap(QelAttribute{heap(oid({1, 2, 840, 113549, 1, 9, 2})), full_attr_value()});
}

QelExtension *full_extension() {
    return extension({2, 5, 29, 19}, true, from_hex("30030101ff"));
}

QelExtensions *full_extensions() {
    return list<QelExtensions, QelExtension>(
        {full_extension(), extension({2, 5, 29, 14}, false, from_hex("0402abcd"))});
}

QelCert *full_cert() {
    QelCert cert = {};
    cert.mask = QEL_CERT_VERSION | QEL_CERT_EXTENSIONS;
    cert.version = 2;
    cert.serial = serial({0x00, 0xFF, 0x01});
    cert.signature = full_algid();
    cert.issuer = full_name();
    cert.validity = full_validity();
    cert.subject = full_name();
    cert.pubKeyInfo = full_keyinfo();
    cert.issuerUID = full_bstr();
    cert.subjectUID = heap(bits(3, {0xA0}));
    cert.extensions = full_extensions();
    cert.algorithm = full_algid();
    cert.sigBits = bits(512, counting(64));
    return heap(cert);
}

QelCertPair *full_cert_pair() {
    return heap(QelCertPair{full_cert(), full_cert()});
}

QelCertReq *full_certreq() {
    QelCertReq request = {};
    request.subject = full_name();
    request.pubKeyInfo = full_keyinfo();
    request.attributes = list<QelAttributes, QelAttribute>({full_attribute(), full_attribute()});
    request.algorithm = full_algid();
    request.signature = bits(512, counting(64));
    return heap(request);
}

QelEncryptedPrivateKeyInfo *full_encrypted_private_key_info() {
    const Bytes parameters = from_hex("300d 0408 0001020304050607 020101");
    return heap(QelEncryptedPrivateKeyInfo{heap(algid({1, 2, 840, 113549, 1, 5, 3}, parameters)),
                                           octets(counting(32))});
}

QelTrustedKey *full_trusted_key() {
    QelTrustedKey key = {};
    key.mask = QEL_TKEY_EXTENSIONS;
    key.owner = full_name();
    key.pubKeyInfo = full_keyinfo();
    key.issuer = full_name();
    key.validity = full_validity();
    key.serial = heap(octets({0x12, 0x34}));
    key.extensions = full_extensions();
    return heap(key);
}

QelKeyPkg *full_keypkg() {
    QelKeyPkg package = {};
    package.mask = QEL_KEYPKG_TKEYS;
    package.version = heap_text("1.0");
    package.keypkgId = heap_text("default_keyid");
    package.owner = full_name();
    package.pubKeyInfo = full_keyinfo();
    package.encrPrivKeyInfo = full_encrypted_private_key_info();
    package.usage = USAGE_SIGN_ENCRYPT;
    package.tKeys = list<QelTrustedKeys, QelTrustedKey>({full_trusted_key(), full_trusted_key()});
    package.algorithm = full_algid();
    package.signature = bits(512, counting(64));
    return heap(package);
}

QelDigestInfo *full_digest_info() {
    return heap(QelDigestInfo{heap(algid({1, 2, 840, 113549, 2, 5}, null_parameters)),
                              octets(counting(16))});
}

QelContentInfo *full_content_info() {
    return heap(QelContentInfo{heap(oid({1, 2, 840, 113549, 1, 7, 1})),
                               heap(octets(from_hex("0403616263")))});
}

QelIssuerAndSerial *full_issuer_and_serial() {
    return heap(QelIssuerAndSerial{full_name(), serial({0x7F})});
}

QelRcptInfo *full_rcpt_info() {
    return heap(QelRcptInfo{0, full_issuer_and_serial(), heap(algid(rsa, null_parameters)),
                            octets(counting(64))});
}

QelRcptInfos *full_rcpt_infos() {
    return list<QelRcptInfos, QelRcptInfo>({full_rcpt_info(), full_rcpt_info()});
}

QelItemList *full_item_list() {
    auto *second = heap(QelItemList{heap_text("second"), 0, nullptr});
    return heap(QelItemList{heap_text("first"), 0, second});
}

// ---- Descriptions

namespace {

template <class T> std::string describe(const T *record) {
    return record != nullptr ? records::describe(*record) : "null";
}

template <class Node, class Element>
std::string describe_list(const Node *node, Element *Node::*element) {
    std::string result = "[";
    for (; node != nullptr; node = node->next)
        result += ' ' + describe(node->*element);
    return result + " ]";
}

std::string fields(std::initializer_list<std::string> texts) {
    std::string result = "{";
    for (const std::string &text : texts)
        result += ' ' + text;
    return result + " }";
}

std::string describe_bytes(uint32_t length, const uint8_t *value, std::size_t size) {
    return std::to_string(length) + ':' + (value != nullptr ? to_hex(value, size) : "null");
}

} // namespace

std::string describe(const QelOctetString &record) {
    return describe_bytes(record.length, record.value, record.length);
}

std::string describe(const QelBitString &record) {
    return describe_bytes(record.length, record.value, (record.length + 7) / 8);
}

std::string describe(const QelOid &record) {
    std::string result;
    for (std::size_t i = 0; i < record.count; ++i)
        result += (i != 0 ? "." : "") + std::to_string(record.value[i]);
    return result;
}

std::string describe(const QelSerial &record) {
    return describe_bytes(record.length, record.value, record.length);
}

std::string describe(const QelUTCTime &record) {
    std::string result;
    for (const int field : {int{record.year}, int{record.month}, int{record.day}, int{record.hour},
                            int{record.minute}, int{record.second}, int{record.millisec},
                            int{record.mindiff}, int{record.utc}})
        result += std::to_string(field) + ' ';
    return result;
}

std::string describe(const QelValidity &record) {
    return fields({describe(record.notBefore), describe(record.notAfter)});
}

std::string describe(const QelAlgId &record) {
    return fields({describe(record.algorithm), describe(record.parameters)});
}

std::string describe(const QelKeyInfo &record) {
    return fields({describe(record.algorithm), describe(record.pubKey)});
}

std::string describe(const QelAva &record) {
    return fields({describe(record.type), describe(record.value)});
}

std::string describe(const QelRdn &record) {
    return describe_list(&record, &QelRdn::ava);
}

std::string describe(const QelRdnSeq &record) {
    return describe_list(&record, &QelRdnSeq::rdn);
}

std::string describe(const QelName &record) {
    return fields({std::to_string(record.choice), describe_list(record.rdns, &QelRdnSeq::rdn)});
}

std::string describe(const QelExtension &record) {
    return fields({std::to_string(record.mask), describe(record.extnId),
                   std::to_string(record.critical), describe(record.extnValue)});
}

std::string describe(const QelExtensions &record) {
    return describe_list(&record, &QelExtensions::extension);
}

std::string describe(const QelCert &record) {
    return fields({std::to_string(record.mask), std::to_string(record.version),
                   describe(record.serial), describe(record.signature), describe(record.issuer),
                   describe(record.validity), describe(record.subject), describe(record.pubKeyInfo),
                   describe(record.issuerUID), describe(record.subjectUID),
                   describe(record.extensions), describe(record.algorithm),
                   describe(record.sigBits)});
}

std::string describe(const QelEncryptedPrivateKeyInfo &record) {
    return fields({describe(record.encryptionAlgorithm), describe(record.encryptedData)});
}

std::string describe(const QelTrustedKey &record) {
    return fields({std::to_string(record.mask), describe(record.owner), describe(record.pubKeyInfo),
                   describe(record.issuer), describe(record.validity), describe(record.serial),
                   describe(record.extensions)});
}

} // namespace records
