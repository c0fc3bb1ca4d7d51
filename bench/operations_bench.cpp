// Sign and verify as a caller sees them: MD5 and RSA over 1 KiB, from the key as it is kept.
#include "bench.h"
#include "keys.h"

#include <gnutls/abstract.h>
#include <qel/qelp.h>

namespace {

struct Key {
    QelContext *context = nullptr;
    QelPrivateKeyInfo *private_key = nullptr;
    QelKeyInfo *public_key = nullptr;
};

Key decoded(const BenchKey &bench) {
    Key key;
    void *value = nullptr;
    require(__qel_init(&key.context, nullptr, nullptr) == QEL_OK, "context");
    require(__qel_asn1_decode(key.context, bench.pkcs8.data(),
                              static_cast<uint32_t>(bench.pkcs8.size()), QEL_PDU_PrivateKeyInfo,
                              &value) == QEL_OK,
            "private key");
    key.private_key = static_cast<QelPrivateKeyInfo *>(value);
    require(__qel_asn1_decode(key.context, bench.spki.data(),
                              static_cast<uint32_t>(bench.spki.size()),
                              QEL_PDU_SubjectPublicKeyInfo, &value) == QEL_OK,
            "public key");
    key.public_key = static_cast<QelKeyInfo *>(value);
    return key;
}

void sign(const Key &key, const Bytes &data, Bytes &signature) {
    uint8_t *out = signature.data();
    uint32_t size = static_cast<uint32_t>(signature.size());
    require(qel_sign(key.context, data.data(), static_cast<uint32_t>(data.size()), QEL_MODE_FINAL,
                     key.private_key->privateKeyAlgorithm, key.private_key->privateKey.value,
                     key.private_key->privateKey.length, QEL_MD5WithRSAEncryption_AID, &out,
                     &size) == QEL_OK,
            "sign");
}

void ours(unsigned bits, const std::string &size) {
    const Key key = decoded(bench_key(bits));
    const Bytes data = sample(1024);
    Bytes signature(bits / 8);
    sign(key, data, signature);
    row("sign" + size + "qel", 0, [key, data, signature]() mutable { sign(key, data, signature); });
    row("verify" + size + "qel", 0, [key, data, signature] {
        require(qel_verify(key.context, data.data(), static_cast<uint32_t>(data.size()),
                           QEL_MODE_FINAL, key.public_key->algorithm->algorithm,
                           key.public_key->algorithm->parameters, &key.public_key->pubKey,
                           QEL_MD5WithRSAEncryption_AID, signature.data(),
                           static_cast<uint32_t>(signature.size())) == QEL_OK,
                "verify");
    });
}

void openssl(unsigned bits, const std::string &size) {
    EVP_PKEY *key = bench_key(bits).openssl;
    const Bytes data = sample(1024);
    Bytes signature(bits / 8);
    const auto sign = [key, data](Bytes &out) {
        EVP_MD_CTX *context = EVP_MD_CTX_new();
        std::size_t length = out.size();
        require(EVP_DigestSignInit(context, nullptr, EVP_md5(), nullptr, key) == 1 &&
                    EVP_DigestSign(context, out.data(), &length, data.data(), data.size()) == 1,
                "openssl sign");
        EVP_MD_CTX_free(context);
    };
    sign(signature);
    row("sign" + size + "openssl", 0, [sign, signature]() mutable { sign(signature); });
    row("verify" + size + "openssl", 0, [key, data, signature] {
        EVP_MD_CTX *context = EVP_MD_CTX_new();
        require(EVP_DigestVerifyInit(context, nullptr, EVP_md5(), nullptr, key) == 1 &&
                    EVP_DigestVerify(context, signature.data(), signature.size(), data.data(),
                                     data.size()) == 1,
                "openssl verify");
        EVP_MD_CTX_free(context);
    });
}

void gnutls(unsigned bits, const std::string &size) {
    const BenchKey &bench = bench_key(bits);
    const Bytes data = sample(1024);
    gnutls_privkey_t private_key;
    gnutls_pubkey_t public_key;
    const gnutls_datum_t pkcs8 = {const_cast<uint8_t *>(bench.pkcs8.data()),
                                  static_cast<unsigned>(bench.pkcs8.size())};
    const gnutls_datum_t message = {const_cast<uint8_t *>(data.data()),
                                    static_cast<unsigned>(data.size())};
    gnutls_privkey_init(&private_key);
    gnutls_pubkey_init(&public_key);
    if (gnutls_privkey_import_x509_raw(private_key, &pkcs8, GNUTLS_X509_FMT_DER, nullptr, 0) != 0 ||
        gnutls_pubkey_import_privkey(public_key, private_key, 0, 0) != 0)
        return;
    gnutls_datum_t signature = {};
    if (gnutls_privkey_sign_data(private_key, GNUTLS_DIG_MD5, 0, &message, &signature) != 0)
        return;
    row("sign" + size + "gnutls", 0, [private_key, data] {
        const gnutls_datum_t in = {const_cast<uint8_t *>(data.data()),
                                   static_cast<unsigned>(data.size())};
        gnutls_datum_t out = {};
        require(gnutls_privkey_sign_data(private_key, GNUTLS_DIG_MD5, 0, &in, &out) == 0,
                "gnutls sign");
        gnutls_free(out.data);
    });
    row("verify" + size + "gnutls", 0, [public_key, data, signature] {
        const gnutls_datum_t in = {const_cast<uint8_t *>(data.data()),
                                   static_cast<unsigned>(data.size())};
        require(gnutls_pubkey_verify_data2(public_key, GNUTLS_SIGN_RSA_MD5,
                                           GNUTLS_VERIFY_ALLOW_BROKEN, &in, &signature) >= 0,
                "gnutls verify");
    });
}

} // namespace

void register_operations() {
    for (const unsigned bits : {512u, 1024u, 2048u}) {
        const std::string size = "/" + std::to_string(bits) + "/";
        ours(bits, size);
        openssl(bits, size);
        gnutls(bits, size);
    }
}
