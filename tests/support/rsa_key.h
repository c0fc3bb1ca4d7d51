// rsa_key.h: RSA keys made by libcrypto, in every form that the tests want, and its own operations
// with them as the oracle.
#ifndef TESTS_SUPPORT_RSA_KEY_H
#define TESTS_SUPPORT_RSA_KEY_H

#include "support/files.h"

#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <cstdlib>
#include <memory>
#include <string>

class RsaKey {
public:
    explicit RsaKey(unsigned bits, unsigned long exponent = 65537) {
        const Context context(EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr));
        BIGNUM *e = BN_new();
        EVP_PKEY *made = nullptr;
        must(BN_set_word(e, exponent) == 1 && EVP_PKEY_keygen_init(context.get()) == 1 &&
             EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), static_cast<int>(bits)) == 1 &&
             EVP_PKEY_CTX_set1_rsa_keygen_pubexp(context.get(), e) == 1 &&
             EVP_PKEY_keygen(context.get(), &made) == 1);
        BN_free(e);
        key_.reset(made);
    }

    // From an encoded PrivateKeyInfo or RSAPrivateKey.
    explicit RsaKey(const Bytes &encoding) {
        const unsigned char *at = encoding.data();
        key_.reset(d2i_AutoPrivateKey(nullptr, &at, static_cast<long>(encoding.size())));
        must(key_ != nullptr && at == encoding.data() + encoding.size());
    }

    // Whether libcrypto takes the numbers for one key, of prime factors.
    bool is_sound() const {
        const Context context(EVP_PKEY_CTX_new(key_.get(), nullptr));
        return EVP_PKEY_check(context.get()) == 1;
    }
    unsigned bits() const { return static_cast<unsigned>(EVP_PKEY_get_bits(key_.get())); }
    std::size_t size() const { return static_cast<std::size_t>(EVP_PKEY_get_size(key_.get())); }

    // Unsigned big-endian, without leading zeros.
    Bytes modulus() const { return number("n"); }
    Bytes public_exponent() const { return number("e"); }
    Bytes private_exponent() const { return number("d"); }
    Bytes prime1() const { return number("rsa-factor1"); }
    Bytes prime2() const { return number("rsa-factor2"); }
    Bytes exponent1() const { return number("rsa-exponent1"); }
    Bytes exponent2() const { return number("rsa-exponent2"); }
    Bytes coefficient() const { return number("rsa-coefficient1"); }

    // Encodings: PrivateKeyInfo and the RSAPrivateKey in it, SubjectPublicKeyInfo and the
    // RSAPublicKey in it.
    Bytes private_key_info() const {
        PKCS8_PRIV_KEY_INFO *info = EVP_PKEY2PKCS8(key_.get());
        const Bytes encoding = encoded(i2d_PKCS8_PRIV_KEY_INFO, info);
        PKCS8_PRIV_KEY_INFO_free(info);
        return encoding;
    }
    Bytes private_key() const { return encoded(i2d_PrivateKey, key_.get()); }
    Bytes public_key_info() const { return encoded(i2d_PUBKEY, key_.get()); }
    Bytes public_key() const { return encoded(i2d_PublicKey, key_.get()); }

    // The private-key operation: on a type 1 block of data, or on a whole block as it stands.
    Bytes sign(const Bytes &data) const { return private_operation(data, RSA_PKCS1_PADDING); }
    Bytes sign_raw(const Bytes &block) const { return private_operation(block, RSA_NO_PADDING); }
    // The signature of an MD5 digest.
    Bytes sign_md5(const Bytes &digest) const {
        return private_operation(digest, RSA_PKCS1_PADDING, EVP_md5());
    }

    Bytes encrypt(const Bytes &data) const {
        const Context context(EVP_PKEY_CTX_new(key_.get(), nullptr));
        std::size_t length = size();
        Bytes result(length);
        must(EVP_PKEY_encrypt_init(context.get()) == 1 &&
             EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1 &&
             EVP_PKEY_encrypt(context.get(), result.data(), &length, data.data(), data.size()) ==
                 1);
        result.resize(length);
        return result;
    }
    // Empty where the block does not open.
    Bytes decrypt(const Bytes &data) const {
        const Context context(EVP_PKEY_CTX_new(key_.get(), nullptr));
        std::size_t length = size();
        Bytes result(length);
        must(EVP_PKEY_decrypt_init(context.get()) == 1 &&
             EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1);
        if (EVP_PKEY_decrypt(context.get(), result.data(), &length, data.data(), data.size()) != 1)
            length = 0;
        result.resize(length);
        return result;
    }

    // Shared keys, so that a test program makes each size once.
    static const RsaKey &of_512_bits() {
        static const RsaKey key(512);
        return key;
    }
    static const RsaKey &of_1024_bits() {
        static const RsaKey key(1024);
        return key;
    }

private:
    struct FreeContext {
        void operator()(EVP_PKEY_CTX *context) const { EVP_PKEY_CTX_free(context); }
    };
    struct FreeKey {
        void operator()(EVP_PKEY *key) const { EVP_PKEY_free(key); }
    };
    using Context = std::unique_ptr<EVP_PKEY_CTX, FreeContext>;

    static void must(bool done) {
        if (!done)
            std::abort();
    }

    Bytes number(const char *name) const {
        BIGNUM *value = nullptr;
        must(EVP_PKEY_get_bn_param(key_.get(), name, &value) == 1);
        Bytes bytes(static_cast<std::size_t>(BN_num_bytes(value)));
        BN_bn2bin(value, bytes.data());
        BN_clear_free(value);
        return bytes;
    }

    template <class Encoder, class Value> static Bytes encoded(Encoder encoder, Value *value) {
        const int length = encoder(value, nullptr);
        must(length > 0);
        Bytes bytes(static_cast<std::size_t>(length));
        unsigned char *end = bytes.data();
        encoder(value, &end);
        return bytes;
    }

    Bytes private_operation(const Bytes &data, int padding, const EVP_MD *digest = nullptr) const {
        const Context context(EVP_PKEY_CTX_new(key_.get(), nullptr));
        std::size_t length = size();
        Bytes result(length);
        must(EVP_PKEY_sign_init(context.get()) == 1 &&
             EVP_PKEY_CTX_set_rsa_padding(context.get(), padding) == 1 &&
             (digest == nullptr || EVP_PKEY_CTX_set_signature_md(context.get(), digest) == 1) &&
             EVP_PKEY_sign(context.get(), result.data(), &length, data.data(), data.size()) == 1);
        result.resize(length);
        return result;
    }

    std::unique_ptr<EVP_PKEY, FreeKey> key_;
};

inline uint32_t length_of(const Bytes &bytes) {
    return static_cast<uint32_t>(bytes.size());
}

// The encoded DigestInfo (PKCS#1) of a 16-byte digest.
inline Bytes md2_digest_info(const Bytes &digest) {
    return from_hex("3020300c06082a864886f70d020205000410") + digest;
}
inline Bytes md5_digest_info(const Bytes &digest) {
    return from_hex("3020300c06082a864886f70d020505000410") + digest;
}

#endif
