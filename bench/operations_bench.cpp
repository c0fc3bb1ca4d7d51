// Operations as a caller sees them, from the key as it is kept: sign and verify, MD5 and RSA over
// 1 KiB; wrap and unwrap, RSA over a key of 16 bytes; a new key pair; encrypt and decrypt in one
// call, with keys that may be exported.
#include "bench.h"
#include "keys.h"

#include <gnutls/abstract.h>
#include <openssl/rsa.h>
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

// ---- Wrapping ----

void wrap(const Key &key, const Bytes &secret) {
    uint8_t *wrapped = nullptr;
    uint32_t size = 0;
    require(vfeqjfkkj(key.context, secret.data(), static_cast<uint32_t>(secret.size()), QEL_RC4_AID,
                      &key.public_key->pubKey, key.public_key->algorithm->parameters,
                      key.public_key->algorithm, &wrapped, &size) == QEL_OK,
            "wrap");
    std::free(wrapped);
}

void unwrap(const Key &key, const Bytes &wrapped, Bytes &out) {
    uint8_t *buffer = out.data();
    uint32_t size = static_cast<uint32_t>(out.size());
    require(qel_unwrap_key(key.context, wrapped.data(), static_cast<uint32_t>(wrapped.size()),
                           key.private_key->privateKeyAlgorithm, key.private_key->privateKey.value,
                           key.private_key->privateKey.length, QEL_RSA_ENCR_AID, &buffer,
                           &size) == QEL_OK,
            "unwrap");
}

using Init = int (*)(EVP_PKEY_CTX *);
using Apply = int (*)(EVP_PKEY_CTX *, unsigned char *, size_t *, const unsigned char *, size_t);

void openssl_rsa(EVP_PKEY *key, Init init, Apply apply, const Bytes &in, Bytes &out) {
    EVP_PKEY_CTX *context = EVP_PKEY_CTX_new(key, nullptr);
    std::size_t size = out.size();
    require(init(context) == 1 && EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING) == 1 &&
                apply(context, out.data(), &size, in.data(), in.size()) == 1,
            "openssl wrapping");
    EVP_PKEY_CTX_free(context);
}

void wrapping(unsigned bits, const std::string &size) {
    const Key key = decoded(bench_key(bits));
    EVP_PKEY *other = bench_key(bits).openssl;
    const Bytes secret = sample(16);
    Bytes wrapped(bits / 8), out(bits / 8);
    openssl_rsa(other, EVP_PKEY_encrypt_init, EVP_PKEY_encrypt, secret, wrapped);
    row("wrap" + size + "qel", 0, [key, secret] { wrap(key, secret); });
    row("wrap" + size + "openssl", 0, [other, secret, out]() mutable {
        openssl_rsa(other, EVP_PKEY_encrypt_init, EVP_PKEY_encrypt, secret, out);
    });
    row("unwrap" + size + "qel", 0, [key, wrapped, out]() mutable { unwrap(key, wrapped, out); });
    row("unwrap" + size + "openssl", 0, [other, wrapped, out]() mutable {
        openssl_rsa(other, EVP_PKEY_decrypt_init, EVP_PKEY_decrypt, wrapped, out);
    });
}

// ---- Key pairs ----

void key_pairs() {
    const Key key = decoded(bench_key(512));
    row("keypair/512/qel", 0, [context = key.context] {
        uint8_t f4[] = {1, 0, 1};
        const QelRsaKeypairParams parameters = {512, {sizeof f4, f4}};
        uint8_t *public_key = nullptr, *private_key = nullptr;
        uint32_t bits = 0, length = 0;
        require(qel_gen_rsa_keypair(context, &parameters, &public_key, &bits, &private_key,
                                    &length) == QEL_OK,
                "key pair");
        std::free(public_key);
        std::free(private_key);
    });
    row("keypair/512/openssl", 0, [] { EVP_PKEY_free(EVP_RSA_gen(512)); });
}

// ---- Encryption ----

struct BenchCipher {
    const char *name;
    const QelOid *oid;
    Bytes key;
    Bytes parameters;
    const char *openssl_name;
};

const uint8_t iv[8] = {0, 1, 2, 3, 4, 5, 6, 7};
const BenchCipher ciphers[] = {
    {"des",
     QEL_DES_CBC_OID,
     {0xF0, 1, 0xF2, 3, 0xF4, 5, 0xF6, 7},
     {4, 8, 0, 1, 2, 3, 4, 5, 6, 7},
     "DES-CBC"},
    {"rc2",
     QEL_RC2_CBC_OID,
     {0xF0, 0xF1, 0xF2, 0xF3, 0xF4},
     {0x30, 14, 2, 2, 0, 160, 4, 8, 0, 1, 2, 3, 4, 5, 6, 7},
     "RC2-40-CBC"}, // 40 effective bits
    {"rc4", QEL_RC4_OID, {0xF0, 0xF1, 0xF2, 0xF3, 0xF4}, {}, "RC4-40"},
};

// Encrypts or decrypts into out, and gives the number of bytes there.
uint32_t crypt(decltype(qel_encrypt) *operation, QelContext *context, const BenchCipher &cipher,
               const Bytes &data, Bytes &out) {
    QelOctetString parameters = {static_cast<uint32_t>(cipher.parameters.size()),
                                 const_cast<uint8_t *>(cipher.parameters.data())};
    const QelAlgId algorithm = {const_cast<QelOid *>(cipher.oid),
                                cipher.parameters.empty() ? nullptr : &parameters};
    uint8_t *to = out.data();
    uint32_t size = static_cast<uint32_t>(out.size());
    require(operation(context, data.data(), static_cast<uint32_t>(data.size()), QEL_MODE_FINAL,
                      &algorithm, cipher.key.data(), static_cast<uint32_t>(cipher.key.size()),
                      &algorithm, &to, &size) == QEL_OK,
            cipher.name);
    return size;
}

void cipher_rows(const BenchCipher &cipher, bool encrypt, std::size_t size) {
    QelContext *context = nullptr;
    require(__qel_init(&context, nullptr, nullptr) == QEL_OK, "context");
    Bytes data = sample(size);
    if (!encrypt) { // of another text, lest it be what an encryption has just made
        data[0] ^= 1;
        Bytes encrypted(size + 8);
        encrypted.resize(crypt(kvdsaivqa, context, cipher, data, encrypted));
        data = encrypted;
    }
    const std::string name = std::string(encrypt ? "encrypt-" : "decrypt-") + cipher.name + "/" +
                             std::to_string(size) + "/";
    row(name + "qel", size, [=, &cipher, out = Bytes(size + 8)]() mutable {
        crypt(encrypt ? qel_encrypt : qel_decrypt, context, cipher, data, out);
    });
    EVP_CIPHER *fetched = EVP_CIPHER_fetch(nullptr, cipher.openssl_name, nullptr);
    require(fetched != nullptr, cipher.openssl_name);
    row(name + "openssl", size, [=, &cipher, out = Bytes(size + 16)]() mutable {
        EVP_CIPHER_CTX *evp = EVP_CIPHER_CTX_new();
        int first = 0, last = 0;
        require(EVP_CipherInit_ex(evp, fetched, nullptr, cipher.key.data(), iv, encrypt) == 1 &&
                    EVP_CipherUpdate(evp, out.data(), &first, data.data(),
                                     static_cast<int>(data.size())) == 1 &&
                    EVP_CipherFinal_ex(evp, out.data() + first, &last) == 1,
                cipher.openssl_name);
        EVP_CIPHER_CTX_free(evp);
    });
}

} // namespace

void register_operations() {
    for (const BenchCipher &cipher : ciphers)
        for (const bool encrypt : {true, false})
            for (const std::size_t size : message_sizes)
                cipher_rows(cipher, encrypt, size);
    for (const unsigned bits : {512u, 1024u, 2048u}) {
        const std::string size = "/" + std::to_string(bits) + "/";
        ours(bits, size);
        openssl(bits, size);
        gnutls(bits, size);
    }
    for (const unsigned bits : {512u, 1024u})
        wrapping(bits, "/" + std::to_string(bits) + "/");
    key_pairs();
}
