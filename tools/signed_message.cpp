#include "signed_message.h"

#include "der.h"
#include "text.h"
#include "texts.h"

#include <algorithm>

namespace tool {
namespace {

// PKCS#9.
constexpr uint32_t content_type_arcs[] = {1, 2, 840, 113549, 1, 9, 3};
constexpr uint32_t message_digest_arcs[] = {1, 2, 840, 113549, 1, 9, 4};

bool is_oid(const QelOid *oid, std::span<const uint32_t> arcs) {
    return oid != nullptr &&
           std::equal(oid->value, oid->value + oid->count, arcs.begin(), arcs.end());
}

bool same_oid(const QelOid *a, const QelOid *b) {
    int difference = 1;
    return __qel_cmp_oid(a, b, &difference) == QEL_OK && difference == 0;
}

// The signed message in an item, or null.
Decoded<QelSignedData> signed_data_in(QelContext *context, const Item &item) {
    const auto outer = decode<QelContentInfo>(context, item.bytes, QEL_PDU_ContentInfo);
    if (!outer || !same_oid(outer->contentType, signedData_OID) || outer->content == nullptr)
        return {};
    return decode<QelSignedData>(context, {outer->content->value, outer->content->length},
                                 QEL_PDU_SignedData);
}

void take_content(QelContext *context, SignedMessage &message) {
    const QelContentInfo &inner = *message.data->contentInfo;
    message.has_content = inner.content != nullptr;
    if (!message.has_content)
        return;
    const auto octets = decode<QelOctetString>(
        context, {inner.content->value, inner.content->length}, QEL_PDU_OctetString);
    if (!octets)
        throw library_failure(QEL_ERR_ASN1_DECODE,
                              text_of(Text::cannot_read_content, {message.where}),
                              text_of(Text::octets_only));
    message.content.assign(octets->value, octets->value + octets->length);
}

// An OBJECT IDENTIFIER in DER: what an algorithm identifier without parameters holds.
Bytes encoded_oid(QelContext *context, QelOid *oid) {
    const QelAlgId holder = {oid, nullptr};
    const Bytes bytes = encode(context, &holder, QEL_PDU_AlgID, text_of(Text::object_identifier));
    std::span<const uint8_t> rest = bytes;
    Element outer;
    if (!take_element(rest, outer))
        throw library_failure(QEL_ERR_ASN1_ENCODE,
                              text_of(Text::cannot_encode, {text_of(Text::object_identifier)}));
    return Bytes(outer.contents.begin(), outer.contents.end());
}

// SET OF, its elements in the order of DER.
Bytes encoded_set(std::vector<Bytes> elements) {
    std::sort(elements.begin(), elements.end());
    Bytes contents, set;
    for (const Bytes &element : elements)
        contents.insert(contents.end(), element.begin(), element.end());
    append_element(set, 0x31, contents);
    return set;
}

// The attributes as a SET OF in DER: that is what is signed, not the field with its context tag.
Bytes encoded_attributes(QelContext *context, const QelAttributes *attributes) {
    std::vector<Bytes> all;
    for (const QelAttributes *node = attributes; node != nullptr; node = node->next) {
        std::vector<Bytes> values;
        for (const QelAttrValue *value = node->attribute->values; value != nullptr;
             value = value->next)
            values.emplace_back(value->value->value, value->value->value + value->value->length);
        Bytes contents = encoded_oid(context, node->attribute->type), attribute;
        const Bytes set = encoded_set(std::move(values));
        contents.insert(contents.end(), set.begin(), set.end());
        append_element(attribute, 0x30, contents);
        all.push_back(std::move(attribute));
    }
    return encoded_set(std::move(all));
}

// The one value of an attribute that is there exactly once (RFC 2315, 9.2), or nothing.
std::optional<std::span<const uint8_t>> only_value(const QelAttributes *attributes,
                                                   std::span<const uint32_t> type) {
    const QelAttribute *found = nullptr;
    for (const QelAttributes *node = attributes; node != nullptr; node = node->next) {
        if (!is_oid(node->attribute->type, type))
            continue;
        if (found != nullptr)
            return std::nullopt;
        found = node->attribute;
    }
    if (found == nullptr || found->values == nullptr || found->values->next != nullptr)
        return std::nullopt;
    return std::span<const uint8_t>(found->values->value->value, found->values->value->length);
}

Bytes digest_of(QelContext *context, std::span<const uint8_t> content, const Algorithm &algorithm) {
    if (content.empty())
        return Bytes(algorithm.digest_of_nothing.begin(), algorithm.digest_of_nothing.end());
    Bytes digest(16);
    uint8_t *place = digest.data();
    uint32_t length = 16;
    const QelStatus status =
        qel_digest(context, content.data(), static_cast<uint32_t>(content.size()), QEL_MODE_FINAL,
                   *algorithm.digest, &place, &length);
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_digest_content));
    return digest;
}

// Why authenticated attributes do not speak for this content, or empty.
std::string attributes_fault(QelContext *context, const SignedMessage &message,
                             const QelSignerInfo &signer, const Bytes &digest) {
    const auto type = only_value(signer.authenticatedAttributes, content_type_arcs);
    const Bytes expected = encoded_oid(context, message.data->contentInfo->contentType);
    if (!type || !std::equal(type->begin(), type->end(), expected.begin(), expected.end()))
        return text_of(Text::attributes_other_type);
    const auto value = only_value(signer.authenticatedAttributes, message_digest_arcs);
    Bytes octets;
    append_element(octets, 0x04, digest);
    if (!value || !std::equal(value->begin(), value->end(), octets.begin(), octets.end()))
        return text_of(Text::attributes_other_digest);
    return "";
}

const Algorithm *digest_algorithm(const QelSignerInfo &signer) {
    for (const char *name : {"md5", "md2"})
        if (same_oid(signer.digestAlgorithm->algorithm, (*algorithm_named(name).digest)->algorithm))
            return &algorithm_named(name);
    return nullptr;
}

} // namespace

SignedMessage read_message(QelContext *context, const std::string &path) {
    const Input input = read_input(path);
    SignedMessage message;
    for (const Item &item : input.items) {
        if (!item.problem.empty())
            throw bad_item(input, item, text_of(Text::the_message), QEL_ERR_FROM_RFC1421);
        message.data = signed_data_in(context, item);
        if (!message.data)
            continue;
        message.where = input.name_of(item);
        message.bytes = item.bytes;
        break;
    }
    if (!message.data)
        throw Failure{
            Exit::input,
            text_of(Text::cannot_find_in, {text_of(Text::a_signed_message), display_name(path)}),
            text_of(Text::nothing_is_signed), text_of(Text::give_message)};
    take_content(context, message);
    for (const QelCertChoices *node = message.data->certs; node != nullptr; node = node->next)
        if (node->cert->choice == QEL_CERT_PLAIN)
            message.certificates.push_back(node->cert->u.cert);
    for (const QelSignerInfos *node = message.data->signerInfos; node != nullptr; node = node->next)
        message.signers.push_back(node->signer);
    return message;
}

bool is_plain(const SignedMessage &message) {
    return !message.content.empty() && message.signers.size() == 1 &&
           message.signers[0]->authenticatedAttributes == nullptr;
}

const QelCert *certificate_of(QelContext *context, const SignedMessage &message,
                              const QelSignerInfo &signer) {
    for (const QelCert *certificate : message.certificates) {
        int difference = 1;
        if (same_name(context, certificate->issuer, signer.issuerAndSerialNumber->issuer) &&
            __qel_cmp_serial(&certificate->serial, &signer.issuerAndSerialNumber->serial,
                             &difference) == QEL_OK &&
            difference == 0)
            return certificate;
    }
    return nullptr;
}

std::vector<const QelCert *> chain_in(QelContext *context, const SignedMessage &message,
                                      const QelCert *certificate) {
    std::vector<const QelCert *> chain;
    while (certificate != nullptr) {
        chain.push_back(certificate);
        const QelCert *next = nullptr;
        for (const QelCert *candidate : message.certificates)
            if (next == nullptr && same_name(context, candidate->subject, certificate->issuer) &&
                std::find(chain.begin(), chain.end(), candidate) == chain.end())
                next = candidate;
        certificate = next;
    }
    return chain;
}

QelStatus verify_signer(QelContext *context, const SignedMessage &message,
                        const QelSignerInfo &signer, const QelCert &certificate,
                        std::span<const uint8_t> content, std::string &why) {
    const Algorithm *algorithm = digest_algorithm(signer);
    if (algorithm == nullptr) {
        why = text_of(Text::digest_unsupported, {algorithm_text(signer.digestAlgorithm)});
        return QEL_ERR_UNSUPPORTED_ALG;
    }
    Bytes digest = digest_of(context, content, *algorithm);
    if (signer.authenticatedAttributes != nullptr) {
        why = attributes_fault(context, message, signer, digest);
        if (!why.empty())
            return QEL_ERR_VERIFY;
        digest = digest_of(context, encoded_attributes(context, signer.authenticatedAttributes),
                           *algorithm);
    }
    const RsaKey key = as_rsa_key(certificate.pubKeyInfo);
    return qel_verify(context, digest.data(), static_cast<uint32_t>(digest.size()), QEL_MODE_DIGEST,
                      key.algorithm, &key.parameters, key.bits, *algorithm->signature,
                      signer.encryptedDigest.value, signer.encryptedDigest.length);
}

Bytes make_message(QelContext *context, std::span<const uint8_t> content,
                   const Algorithm &algorithm, std::span<const uint8_t> signature,
                   const std::vector<const QelCert *> &certificates) {
    // The records below borrow: nothing in them is released but what encode returns.
    const auto octets = [](std::span<const uint8_t> bytes) {
        return QelOctetString{static_cast<uint32_t>(bytes.size()),
                              const_cast<uint8_t *>(bytes.data())};
    };
    const QelOctetString data = octets(content);
    const Bytes inner = encode(context, &data, QEL_PDU_OctetString, text_of(Text::the_content));
    QelOctetString inner_octets = octets(inner);
    QelContentInfo content_info = {const_cast<QelOid *>(data_OID), &inner_octets};
    QelAlgIds digests = {nullptr, const_cast<QelAlgId *>(*algorithm.digest)};

    std::vector<QelCertChoice> choices(certificates.size());
    std::vector<QelCertChoices> nodes(certificates.size());
    for (std::size_t i = 0; i < certificates.size(); ++i) {
        choices[i].choice = QEL_CERT_PLAIN;
        choices[i].u.cert = const_cast<QelCert *>(certificates[i]);
        nodes[i] = {i + 1 < nodes.size() ? &nodes[i + 1] : nullptr, &choices[i]};
    }
    QelIssuerAndSerial who = {certificates[0]->issuer, certificates[0]->serial};
    QelSignerInfo signer = {};
    signer.version = 1;
    signer.issuerAndSerialNumber = &who;
    signer.digestAlgorithm = const_cast<QelAlgId *>(*algorithm.digest);
    signer.digestEncryptionAlgorithm = certificates[0]->pubKeyInfo->algorithm;
    signer.encryptedDigest = octets(signature);
    QelSignerInfos signers = {nullptr, &signer};

    QelSignedData signed_data = {};
    signed_data.mask = QEL_SIGNED_CERTS;
    signed_data.version = 1;
    signed_data.digestAlgorithms = &digests;
    signed_data.contentInfo = &content_info;
    signed_data.certs = nodes.data();
    signed_data.signerInfos = &signers;
    const Bytes body =
        encode(context, &signed_data, QEL_PDU_SignedData, text_of(Text::the_signed_data));
    QelOctetString body_octets = octets(body);
    const QelContentInfo outer = {const_cast<QelOid *>(signedData_OID), &body_octets};
    return encode(context, &outer, QEL_PDU_ContentInfo, text_of(Text::the_message));
}

} // namespace tool
