// oracle.h: symmetric ciphers as records, and another library's results for them.
#ifndef TESTS_QEL_ORACLE_H
#define TESTS_QEL_ORACLE_H

#include "qel/signer.h"

#include <openssl/evp.h>
#include <openssl/provider.h>

#include <memory>
#include <random>

struct TestCipher {
    const char *name;
    const QelOid *oid;
    Bytes key;
    Bytes parameters; // encoded
    Bytes iv;
    const char *other_name;
    int effective_bits = 0; // of RC2

    bool stream() const { return iv.empty(); }
    std::size_t encrypted_size(std::size_t size) const {
        return stream() ? size : size / 8 * 8 + 8;
    }
};

// The cipher's algorithm identifier, which lives as long as this.
class TestAlgorithm {
public:
    explicit TestAlgorithm(const TestCipher &cipher) : bytes_(cipher.parameters) {
        octets_ = {length_of(bytes_), bytes_.data()};
        record_ = {const_cast<QelOid *>(cipher.oid), bytes_.empty() ? nullptr : &octets_};
    }
    TestAlgorithm(const TestAlgorithm &) = delete;
    TestAlgorithm &operator=(const TestAlgorithm &) = delete;
    operator const QelAlgId *() const { return &record_; }

private:
    Bytes bytes_;
    QelOctetString octets_;
    QelAlgId record_;
};

// Encrypts or decrypts with OpenSSL; nothing when the padding is bad.
inline Bytes openssl_crypt(const TestCipher &cipher, bool encrypt, const Bytes &text) {
    static OSSL_PROVIDER *const providers[] = {OSSL_PROVIDER_load(nullptr, "default"),
                                               OSSL_PROVIDER_load(nullptr, "legacy")};
    const std::unique_ptr<EVP_CIPHER, void (*)(EVP_CIPHER *)> fetched(
        EVP_CIPHER_fetch(nullptr, cipher.other_name, nullptr), EVP_CIPHER_free);
    const std::unique_ptr<EVP_CIPHER_CTX, void (*)(EVP_CIPHER_CTX *)> context(EVP_CIPHER_CTX_new(),
                                                                              EVP_CIPHER_CTX_free);
    EXPECT_TRUE(providers[1] != nullptr && fetched != nullptr) << cipher.other_name;
    EXPECT_EQ(EVP_CipherInit_ex(context.get(), fetched.get(), nullptr, nullptr, nullptr, encrypt),
              1);
    EXPECT_EQ(EVP_CIPHER_CTX_set_key_length(context.get(), static_cast<int>(cipher.key.size())), 1);
    if (cipher.effective_bits != 0) {
        EXPECT_EQ(EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_SET_RC2_KEY_BITS,
                                      cipher.effective_bits, nullptr),
                  1);
    }
    EXPECT_EQ(EVP_CipherInit_ex(context.get(), nullptr, nullptr, cipher.key.data(),
                                cipher.stream() ? nullptr : cipher.iv.data(), encrypt),
              1);
    Bytes out(text.size() + 8);
    int first = 0;
    int last = 0;
    EXPECT_EQ(EVP_CipherUpdate(context.get(), out.data(), &first, text.data(),
                               static_cast<int>(text.size())),
              1);
    if (EVP_CipherFinal_ex(context.get(), out.data() + first, &last) != 1)
        return {};
    out.resize(static_cast<std::size_t>(first + last));
    return out;
}

inline Bytes random_bytes(std::mt19937 &random, std::size_t size) {
    Bytes bytes(size);
    for (uint8_t &byte : bytes)
        byte = static_cast<uint8_t>(random());
    return bytes;
}

#endif
