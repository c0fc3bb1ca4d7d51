#include "keys.h"

#include <algorithm>
#include <new>

#include <qel/qelp.h>

namespace {

// An RSAPublicKey, in bytes: of 1600 bits, and then some for the exponent.
constexpr uint32_t longest_public_key = 320;

struct EndContext {
    void operator()(QelContext *context) const { qel_end(context); }
};
using Context = std::unique_ptr<QelContext, EndContext>;

// A context of its own for each call: nothing of one user's call is left for the next.
Context make_context() {
    QelContext *context = nullptr;
    if (__qel_init(&context, nullptr, nullptr) != QEL_OK)
        throw std::bad_alloc();
    return Context(context);
}

struct FreeRecord {
    QelContext *context;
    int pdu;
    void operator()(void *record) const { __qel_asn1_free(context, record, pdu); }
};
template <class T> using Decoded = std::unique_ptr<T, FreeRecord>;

template <class T> Decoded<T> decode(QelContext *context, View der, int pdu) {
    void *record = nullptr;
    if (der.empty() || __qel_asn1_decode(context, der.data(), static_cast<uint32_t>(der.size()),
                                         pdu, &record) != QEL_OK)
        record = nullptr;
    return Decoded<T>(static_cast<T *>(record), FreeRecord{context, pdu});
}

Decoded<QelKeyPkg> decode_package(QelContext *context, View package) {
    return decode<QelKeyPkg>(context, package, QEL_PDU_KeyPkg);
}

bool encodes_as(QelContext *context, const void *record, int pdu, View der) {
    uint8_t *bytes = nullptr;
    uint32_t length = 0;
    if (__qel_asn1_encode(context, record, pdu, &bytes, &length) != QEL_OK)
        return false;
    const LibraryBytes owned(bytes, FreeLibraryBytes{length});
    return std::equal(der.begin(), der.end(), bytes, bytes + length);
}

qelserv_status hand_out(QelStatus status, uint8_t *bytes, uint32_t length, SecretBytes *out) {
    const LibraryBytes owned(bytes, FreeLibraryBytes{length});
    if (status == QEL_ERR_NO_MEMORY)
        throw std::bad_alloc();
    if (status != QEL_OK)
        return QELSERV_FAILED;
    out->assign(bytes, bytes + length);
    return QELSERV_OK;
}

constexpr uint32_t digest_size = 16; // of MD2 and MD5 alike

// The signature algorithm whose digest identifier this is, with its parameters; null for another.
const QelAlgId *signature_algorithm_of(const QelAlgId *digest) {
    const struct {
        const QelAlgId *digest, *signature;
    } rows[] = {
        {QEL_MD5_AID, QEL_MD5WithRSAEncryption_AID},
        {QEL_MD2_AID, QEL_MD2WithRSAEncryption_AID},
    };
    for (const auto &row : rows) {
        int difference = 1;
        if (__qel_cmp_algid(digest, row.digest, &difference) == QEL_OK && difference == 0)
            return row.signature;
    }
    return nullptr;
}

} // namespace

qelserv_status check_package(View package, int *usage_out) {
    const Context context = make_context();
    // The work of a verification grows with the cube of the key's length, which its maker chooses.
    const auto unverified = decode_package(context.get(), package);
    if (unverified == nullptr || unverified->pubKeyInfo->pubKey.length > 8 * longest_public_key)
        return QELSERV_BAD_PACKAGE;
    QelKeyPkg *decoded = nullptr;
    if (__qel_verify_keypkg_sig(context.get(), package.data(),
                                static_cast<uint32_t>(package.size()), &decoded) != QEL_OK)
        return QELSERV_BAD_PACKAGE;
    *usage_out = static_cast<int>(decoded->usage);
    qel_free_keypkg(&decoded);
    return QELSERV_OK;
}

qelserv_status open_private_key(View package, View private_key_info, SecretBytes *key_out) {
    const Context context = make_context();
    const auto info =
        decode<QelPrivateKeyInfo>(context.get(), private_key_info, QEL_PDU_PrivateKeyInfo);
    if (info == nullptr)
        return QELSERV_BAD_KEY;
    uint8_t *algorithm = nullptr;
    uint32_t algorithm_length = 0;
    if (__qel_asn1_encode(context.get(), info->privateKeyAlgorithm, QEL_PDU_AlgID, &algorithm,
                          &algorithm_length) != QEL_OK)
        return QELSERV_BAD_KEY;
    const LibraryBytes owned(algorithm, FreeLibraryBytes{algorithm_length});
    const QelOctetString &key = info->privateKey;
    if (__qel_validate_keypkg_with_privkey(context.get(), package.data(),
                                           static_cast<uint32_t>(package.size()), key.value,
                                           key.length, algorithm, algorithm_length) != QEL_OK)
        return QELSERV_BAD_KEY;
    key_out->assign(key.value, key.value + key.length);
    return QELSERV_OK;
}

bool have_same_public_key(View package, View other) {
    const Context context = make_context();
    const auto one = decode_package(context.get(), package);
    const auto two = decode_package(context.get(), other);
    int difference = 1;
    return one != nullptr && two != nullptr &&
           __qel_cmp_keyinfo(one->pubKeyInfo, two->pubKeyInfo, &difference) == QEL_OK &&
           difference == 0;
}

qelserv_status sign(const SecretBytes &private_key, View digest_info, SecretBytes *signature_out) {
    const Context context = make_context();
    const auto info = decode<QelDigestInfo>(context.get(), digest_info, QEL_PDU_DigestInfo);
    if (info == nullptr || !encodes_as(context.get(), info.get(), QEL_PDU_DigestInfo, digest_info))
        return QELSERV_BAD_ARGUMENT;
    const QelAlgId *algorithm = signature_algorithm_of(info->digestAlgorithm);
    if (algorithm == nullptr || info->digest.length != digest_size)
        return QELSERV_BAD_ARGUMENT;
    uint8_t *signature = nullptr;
    uint32_t length = 0;
    const QelStatus status =
        qel_sign(context.get(), info->digest.value, info->digest.length, QEL_MODE_DIGEST,
                 QEL_RSA_ENCR_AID, private_key.data(), static_cast<uint32_t>(private_key.size()),
                 algorithm, &signature, &length);
    return hand_out(status, signature, length, signature_out);
}

qelserv_status decrypt(const SecretBytes &private_key, View block, SecretBytes *data_out) {
    if (block.empty())
        return QELSERV_BAD_ARGUMENT;
    const Context context = make_context();
    uint8_t *data = nullptr;
    uint32_t length = 0;
    const QelStatus status =
        qel_unwrap_key(context.get(), block.data(), static_cast<uint32_t>(block.size()),
                       QEL_RSA_ENCR_AID, private_key.data(),
                       static_cast<uint32_t>(private_key.size()), QEL_RSA_ENCR_AID, &data, &length);
    return hand_out(status, data, length, data_out);
}

qelserv_status encrypt(View package, View data, SecretBytes *block_out) {
    if (data.empty())
        return QELSERV_BAD_ARGUMENT;
    const Context context = make_context();
    const auto decoded = decode_package(context.get(), package);
    if (decoded == nullptr)
        return QELSERV_BAD_PACKAGE;
    const QelKeyInfo &key = *decoded->pubKeyInfo;
    const QelOctetString null_parameters = {
        2, const_cast<uint8_t *>(reinterpret_cast<const uint8_t *>("\x05\0"))};
    const QelOctetString *parameters =
        key.algorithm->parameters != nullptr ? key.algorithm->parameters : &null_parameters;
    uint8_t *block = nullptr;
    uint32_t length = 0;
    const QelStatus status =
        vfeqjfkkj(context.get(), data.data(), static_cast<uint32_t>(data.size()), QEL_RC4_AID,
                  &key.pubKey, parameters, key.algorithm, &block, &length);
    return hand_out(status, block, length, block_out);
}

bool is_rsa_encryption(View algorithm) {
    // What every client of ours sends needs no decoding.
    constexpr uint8_t usual[] = {0x30, 0x0d, 0x06, 0x09, 0x2a, 0x86, 0x48, 0x86,
                                 0xf7, 0x0d, 0x01, 0x01, 0x01, 0x05, 0x00};
    if (std::equal(algorithm.begin(), algorithm.end(), std::begin(usual), std::end(usual)))
        return true;
    const Context context = make_context();
    const auto decoded = decode<QelAlgId>(context.get(), algorithm, QEL_PDU_AlgID);
    int difference = 1;
    return decoded != nullptr &&
           __qel_cmp_oid(decoded->algorithm, QEL_RSA_ENCR_OID, &difference) == QEL_OK &&
           difference == 0;
}
