#include "operations.h"

namespace toolkit {
namespace {

// Whether the item is one AlgorithmIdentifier, of whatever algorithm.
bool is_algorithm_identifier(BerReader reader) {
    BerReader fields, oid;
    return ber_read(&reader, ber_sequence, &fields) && reader.left == 0 &&
           ber_read(&fields, ber_oid, &oid) && oid.left != 0;
}

} // namespace

void write_digest_info(BerWriter *writer, const Oid &algorithm, const uint8_t digest[digest_size]) {
    ber_write_octets(writer, digest, digest_size);
    const std::size_t mark = writer->used;
    ber_write_null(writer);
    ber_write_oid(writer, algorithm);
    ber_write_header(writer, ber_sequence, mark);
    ber_write_header(writer, ber_sequence, 0);
}

int B_EncodeDigestInfo(uint8_t *digestInfo, uint32_t *digestInfoLen, uint32_t maxDigestInfoLen,
                       const ITEM *algorithmID, const uint8_t *digest, uint32_t digestLen) {
    if (digestInfoLen == nullptr)
        return BE_OUTPUT_LEN;
    *digestInfoLen = 0;
    if (algorithmID == nullptr || algorithmID->data == nullptr ||
        !is_algorithm_identifier(ber_reader(*algorithmID)))
        return BE_ALGORITHM_INFO;
    if (digest == nullptr && digestLen != 0)
        return BE_INPUT_LEN;
    const auto write = [&](BerWriter *writer) {
        ber_write_octets(writer, digest, digestLen);
        ber_write_bytes(writer, algorithmID->data, algorithmID->len);
        ber_write_header(writer, ber_sequence, 0);
    };
    BerWriter counter = {};
    write(&counter);
    if (digestInfo == nullptr || counter.used > maxDigestInfoLen)
        return BE_OUTPUT_LEN;
    BerWriter writer = {digestInfo + counter.used, counter.used, 0, false};
    write(&writer);
    *digestInfoLen = static_cast<uint32_t>(counter.used);
    return writer.failed ? BE_INTERNAL : BE_OK;
}

int B_DecodeDigestInfo(ITEM *algorithmID, ITEM *digest, const uint8_t *digestInfo,
                       uint32_t digestInfoLen) {
    if (algorithmID == nullptr || digest == nullptr)
        return BE_DATA;
    *algorithmID = {};
    *digest = {};
    if (digestInfo == nullptr)
        return BE_DATA;
    BerReader reader = {digestInfo, digestInfoLen};
    BerReader fields, algorithm, octets;
    if (!ber_read(&reader, ber_sequence, &fields) || reader.left != 0)
        return BE_DATA;
    const uint8_t *start = fields.at;
    if (!ber_read(&fields, ber_sequence, &algorithm))
        return BE_DATA;
    const BerReader identifier = {start, static_cast<std::size_t>(fields.at - start)};
    if (!is_algorithm_identifier(identifier) || !ber_read(&fields, ber_octet_string, &octets) ||
        fields.left != 0)
        return BE_DATA;
    *algorithmID = {const_cast<uint8_t *>(identifier.at), static_cast<uint32_t>(identifier.left)};
    *digest = {const_cast<uint8_t *>(octets.at), static_cast<uint32_t>(octets.left)};
    return BE_OK;
}

} // namespace toolkit
