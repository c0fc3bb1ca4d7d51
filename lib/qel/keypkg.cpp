#include "decoded.h"
#include "signature.h"

#include <cstring>

#include <toolkit/traces.h>

namespace {

using qel::Decoded;
using qel::Owned;

struct DerivedKey {
    qel::SecretBytes key, iv;
    uint32_t key_length = 0, iv_length = 0;
};

// The parameter belongs to the caller; its salt changes where its halves are equal.
QelStatus derive_key(QelContext *context, QelPBEParameter *parameter, const char *pass_phrase,
                     DerivedKey *derived) {
    PassPhraseKeyInput input = {parameter->salt.value, parameter->salt.length,
                                const_cast<char *>(pass_phrase), parameter->iterationCount};
    uint8_t *key = nullptr;
    uint8_t *iv = nullptr;
    const QelStatus status = __qel_gen_des3_key_from_pwd(
        context, &input, &key, &derived->key_length, &iv, &derived->iv_length);
    derived->key = qel::SecretBytes(key, qel::ZeroAndFree{derived->key_length});
    derived->iv = qel::SecretBytes(iv, qel::ZeroAndFree{derived->iv_length});
    return status;
}

Decoded<QelKeyPkg> decode_keypkg(QelContext *context, const uint8_t *data, uint32_t length) {
    return qel::decode<QelKeyPkg>(context, data, length, QEL_PDU_KeyPkg);
}

// The algorithm's identifier is not looked at: the cipher is always triple DES.
QelStatus decrypt_private_key(QelContext *context, const QelEncryptedPrivateKeyInfo &encrypted,
                              const char *pass_phrase, qel::SecretBytes *private_key_der) {
    const Decoded<QelPBEParameter> parameter =
        qel::decode_pbe_parameter(context, encrypted.encryptionAlgorithm);
    if (parameter == nullptr)
        return QEL_ERR_ASN1_DECODE;
    DerivedKey derived;
    QelStatus status = derive_key(context, parameter.get(), pass_phrase, &derived);
    if (status != QEL_OK)
        return status;
    uint8_t *plaintext = nullptr;
    uint32_t length = 0;
    status = glhrahhi(context, encrypted.encryptedData.value, encrypted.encryptedData.length,
                      derived.key.get(), derived.key_length, derived.iv.get(), derived.iv_length,
                      &plaintext, &length);
    *private_key_der = qel::SecretBytes(plaintext, qel::ZeroAndFree{length});
    return status;
}

// PKCS#1 v1.5 signs the same text always to the same signature: the key that makes the package's
// signature anew is the one that made it. The public key in the package must agree as well.
QelStatus prove_private_key(QelContext *context, const QelKeyPkg *package,
                            const qel::SignerKey &key) {
    uint8_t *encoding = nullptr;
    uint32_t encoding_length = 0;
    QelStatus status = qel_verify_keypkg_return_digest(context, package, package->pubKeyInfo,
                                                       &encoding, &encoding_length);
    if (status != QEL_OK)
        return status;
    const Owned<uint8_t> digest_info(encoding);
    uint8_t *bytes = nullptr;
    uint32_t length = 0;
    status = qel::sign_digest_info(context, encoding, encoding_length, key, &bytes, &length);
    if (status != QEL_OK)
        return status;
    const Owned<uint8_t> signature(bytes);
    if (length != package->signature.length / 8 ||
        std::memcmp(bytes, package->signature.value, length) != 0)
        return QEL_ERR_VERIFY;
    return QEL_OK;
}

Decoded<QelPrivateKeyInfo> decode_private_key(QelContext *context, const uint8_t *data,
                                              uint32_t length) {
    return qel::decode<QelPrivateKeyInfo>(context, data, length, QEL_PDU_PrivateKeyInfo);
}

qel::SignerKey signer_of(const QelPrivateKeyInfo &info) {
    return {info.privateKeyAlgorithm, info.privateKey.value, info.privateKey.length};
}

QelStatus encrypt_private_key(QelContext *context, const QelAlgId *algorithm,
                              const char *pass_phrase, const uint8_t *private_key_der,
                              uint32_t private_key_length, Owned<uint8_t> *ciphertext,
                              uint32_t *length) {
    const Decoded<QelPBEParameter> parameter = qel::decode_pbe_parameter(context, algorithm);
    if (parameter == nullptr)
        return QEL_ERR_ASN1_DECODE;
    DerivedKey derived;
    if (derive_key(context, parameter.get(), pass_phrase, &derived) != QEL_OK)
        return QEL_ERR_KEYGEN;
    uint8_t *encrypted = nullptr;
    *length = 0;
    const QelStatus status =
        aksksfdq(context, private_key_der, private_key_length, derived.key.get(),
                 derived.key_length, derived.iv.get(), derived.iv_length, &encrypted, length);
    ciphertext->reset(encrypted);
    return status == QEL_OK ? QEL_OK : QEL_ERR_ENCRYPT;
}

bool is_md5_with_rsa(const QelAlgId *algorithm) {
    const QelAlgId *digest = nullptr;
    return algorithm != nullptr && qel::find_signature_digest(algorithm, &digest) == QEL_OK &&
           digest == QEL_MD5_AID;
}

// Gives the package its new ciphertext, algorithm and signature at once, or none of them.
QelStatus sign_with_ciphertext(QelContext *context, QelKeyPkg *package, const qel::SignerKey &key,
                               Owned<uint8_t> ciphertext, uint32_t length) {
    qel::Record<QelAlgId, __qel_free_algid> algorithm;
    if (!is_md5_with_rsa(package->algorithm)) {
        QelAlgId *copy = nullptr;
        const QelStatus status = __qel_copy_algid(&copy, QEL_MD5WithRSAEncryption_AID);
        if (status != QEL_OK)
            return status;
        algorithm.reset(copy);
    }
    QelEncryptedPrivateKeyInfo encrypted = {package->encrPrivKeyInfo->encryptionAlgorithm,
                                            {length, ciphertext.get()}};
    QelKeyPkg changed = *package;
    changed.encrPrivKeyInfo = &encrypted;
    if (algorithm != nullptr)
        changed.algorithm = algorithm.get();
    changed.signature = {};
    if (__qel_sign_keypkg(context, &changed, key.algorithm, key.bytes, key.length, nullptr) !=
        QEL_OK)
        return QEL_ERR_SIGN;

    QelOctetString *data = &package->encrPrivKeyInfo->encryptedData;
    std::free(data->value);
    *data = {length, ciphertext.release()};
    if (algorithm != nullptr) {
        __qel_free_algid(&package->algorithm);
        package->algorithm = algorithm.release();
    }
    __qel_free2_bstr(&package->signature);
    package->signature = changed.signature;
    return QEL_OK;
}

} // namespace

QelStatus __qel_validate_keypkg_with_pwd(QelContext *context, const uint8_t *package_der,
                                         uint32_t package_length, const char *pass_phrase,
                                         QelKeyPkg **package, uint8_t **private_key_der,
                                         uint32_t *private_key_length) {
    const toolkit::TracesWiped traces;
    if (package == nullptr || private_key_der == nullptr || private_key_length == nullptr)
        return QEL_ERR_BAD_PARAM;
    *package = nullptr;
    *private_key_der = nullptr;
    *private_key_length = 0;
    if (context == nullptr || package_der == nullptr || package_length == 0 ||
        pass_phrase == nullptr)
        return QEL_ERR_BAD_PARAM;
    Decoded<QelKeyPkg> decoded = decode_keypkg(context, package_der, package_length);
    if (decoded == nullptr)
        return QEL_ERR_ASN1_DECODE;
    qel::SecretBytes plaintext;
    QelStatus status =
        decrypt_private_key(context, *decoded->encrPrivKeyInfo, pass_phrase, &plaintext);
    if (status != QEL_OK)
        return status;
    const auto length = static_cast<uint32_t>(plaintext.get_deleter().size);
    const Decoded<QelPrivateKeyInfo> info = decode_private_key(context, plaintext.get(), length);
    if (info == nullptr)
        return QEL_ERR_ASN1_DECODE;
    status = prove_private_key(context, decoded.get(), signer_of(*info));
    if (status != QEL_OK)
        return status;
    *package = decoded.release();
    *private_key_der = plaintext.release();
    *private_key_length = length;
    return QEL_OK;
}

QelStatus __qel_validate_keypkg_with_privkey(QelContext *context, const uint8_t *package_der,
                                             uint32_t package_length, const uint8_t *key_bytes,
                                             uint32_t key_length, const uint8_t *key_algorithm_der,
                                             uint32_t key_algorithm_length) {
    const toolkit::TracesWiped traces;
    if (context == nullptr || package_der == nullptr || package_length == 0 ||
        key_bytes == nullptr || key_length == 0 || key_algorithm_der == nullptr ||
        key_algorithm_length == 0)
        return QEL_ERR_BAD_PARAM;
    const Decoded<QelKeyPkg> package = decode_keypkg(context, package_der, package_length);
    if (package == nullptr)
        return QEL_ERR_ASN1_DECODE;
    const Decoded<QelAlgId> algorithm =
        qel::decode<QelAlgId>(context, key_algorithm_der, key_algorithm_length, QEL_PDU_AlgID);
    if (algorithm == nullptr)
        return QEL_ERR_ASN1_DECODE;
    return prove_private_key(context, package.get(), {algorithm.get(), key_bytes, key_length});
}

QelStatus __qel_verify_keypkg_sig(QelContext *context, const uint8_t *package_der,
                                  uint32_t package_length, QelKeyPkg **package) {
    if (package == nullptr)
        return QEL_ERR_BAD_PARAM;
    *package = nullptr;
    if (context == nullptr || package_der == nullptr || package_length == 0)
        return QEL_ERR_BAD_PARAM;
    Decoded<QelKeyPkg> decoded = decode_keypkg(context, package_der, package_length);
    if (decoded == nullptr)
        return QEL_ERR_ASN1_DECODE;
    const QelStatus status = __qel_verify_keypkg(context, decoded.get(), decoded->pubKeyInfo);
    if (status != QEL_OK)
        return status;
    *package = decoded.release();
    return QEL_OK;
}

QelStatus __qel_change_pass_phrase(QelContext *context, const char *new_pass_phrase,
                                   const uint8_t *private_key_der, uint32_t private_key_length,
                                   QelKeyPkg *package) {
    const toolkit::TracesWiped traces;
    if (context == nullptr || new_pass_phrase == nullptr || private_key_der == nullptr ||
        private_key_length == 0 || package == nullptr || package->encrPrivKeyInfo == nullptr)
        return QEL_ERR_BAD_PARAM;
    const QelAlgId *algorithm = package->encrPrivKeyInfo->encryptionAlgorithm;
    if (algorithm == nullptr || algorithm->parameters == nullptr)
        return QEL_ERR_BAD_PARAM;
    Owned<uint8_t> ciphertext;
    uint32_t length = 0;
    const QelStatus status =
        encrypt_private_key(context, algorithm, new_pass_phrase, private_key_der,
                            private_key_length, &ciphertext, &length);
    if (status != QEL_OK)
        return status;
    const Decoded<QelPrivateKeyInfo> info =
        decode_private_key(context, private_key_der, private_key_length);
    if (info == nullptr)
        return QEL_ERR_ASN1_DECODE;
    return sign_with_ciphertext(context, package, signer_of(*info), std::move(ciphertext), length);
}
