#include "signature.h"

#include "operation.h"

#include <cstring>
#include <span>

namespace qel {
namespace {

// An algorithm identifier, and that of the digest which belongs to it.
struct AlgorithmPair {
    const QelAlgId *const *given;
    const QelAlgId *const *digest;
};

constexpr AlgorithmPair digests[] = {
    {&QEL_MD2_AID, &QEL_MD2_AID},
    {&QEL_MD5_AID, &QEL_MD5_AID},
};

constexpr AlgorithmPair signatures[] = {
    {&QEL_MD2WithRSAEncryption_AID, &QEL_MD2_AID},
    {&QEL_MD5WithRSAEncryption_AID, &QEL_MD5_AID},
};

QelStatus find_row(std::span<const AlgorithmPair> rows, const QelAlgId *algorithm,
                   const QelAlgId **digest_out) {
    for (const AlgorithmPair &row : rows) {
        int difference = 0;
        const QelStatus status =
            __qel_cmp_oid(algorithm->algorithm, (*row.given)->algorithm, &difference);
        if (status != QEL_OK)
            return status;
        if (difference == 0) {
            *digest_out = *row.digest;
            return QEL_OK;
        }
    }
    return QEL_ERR_UNSUPPORTED_ALG;
}

bool is_under_way(const QelContext *context) {
    return digest_under_way(context) && context->digest_algorithm != nullptr &&
           context->signature_algorithm != nullptr;
}

} // namespace

QelStatus find_digest(const QelAlgId *algorithm, const QelAlgId **digest_out) {
    return find_row(digests, algorithm, digest_out);
}

QelStatus find_signature_digest(const QelAlgId *algorithm, const QelAlgId **digest_out) {
    return find_row(signatures, algorithm, digest_out);
}

QelStatus store_algorithms(QelContext *context, const QelAlgId *signature_algorithm) {
    if (signature_algorithm == nullptr || is_under_way(context))
        return QEL_OK;
    const QelAlgId *digest = nullptr;
    const QelStatus status = find_signature_digest(signature_algorithm, &digest);
    if (status != QEL_OK)
        return status;
    context->digest_algorithm = digest;
    context->signature_algorithm = QEL_RSA_ENCR_AID;
    return QEL_OK;
}

QelStatus digest_part(QelContext *context, const uint8_t *data, uint32_t length, uint32_t mode,
                      uint8_t *digest) {
    if (mode == QEL_MODE_DIGEST) {
        std::memcpy(digest, data, digest_size);
        return QEL_OK;
    }
    uint32_t capacity = digest_size;
    return qel_digest(context, data, length, mode, context->digest_algorithm, &digest, &capacity);
}

QelStatus encode(QelContext *context, const void *value, int pdu, Owned<uint8_t> *encoding_out,
                 uint32_t *length_out) {
    uint8_t *encoding = nullptr;
    *length_out = 0;
    const QelStatus status = __qel_asn1_encode(context, value, pdu, &encoding, length_out);
    encoding_out->reset(encoding);
    return status;
}

} // namespace qel
