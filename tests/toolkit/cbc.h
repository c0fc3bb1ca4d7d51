// cbc.h: the questions that every block cipher in CBC mode is asked.
#ifndef TESTS_TOOLKIT_CBC_H
#define TESTS_TOOLKIT_CBC_H

#include "samples.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/provider.h>

#include <functional>
#include <span>
#include <string>

constexpr std::size_t cbc_block = 8;

// Takes the iv in and out. The key is set up anew for each run.
using CbcRun = void (*)(const Bytes &key, uint8_t *iv, const uint8_t *in, uint8_t *out,
                        std::size_t blocks);

struct CbcCipher {
    std::string name;
    CbcRun encrypt, decrypt;
};

// libcrypto's CBC encryption (or RC4) by cipher name. rc2_bits is 0 for the other ciphers.
inline void peer_cbc_encrypt(const char *name, const Bytes &key, unsigned rc2_bits, uint8_t *iv,
                             const uint8_t *in, uint8_t *out, std::size_t blocks) {
    static OSSL_PROVIDER *const legacy = OSSL_PROVIDER_load(nullptr, "legacy");
    static OSSL_PROVIDER *const standard = OSSL_PROVIDER_load(nullptr, "default");
    ASSERT_TRUE(legacy != nullptr && standard != nullptr);
    EVP_CIPHER *const cipher = EVP_CIPHER_fetch(nullptr, name, nullptr);
    EVP_CIPHER_CTX *const context = EVP_CIPHER_CTX_new();
    int written = 0;
    ASSERT_EQ(EVP_EncryptInit_ex2(context, cipher, nullptr, nullptr, nullptr), 1);
    EVP_CIPHER_CTX_set_key_length(context, static_cast<int>(key.size()));
    if (rc2_bits != 0)
        EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_SET_RC2_KEY_BITS, static_cast<int>(rc2_bits),
                            nullptr);
    ASSERT_EQ(EVP_EncryptInit_ex2(context, nullptr, key.data(), iv, nullptr), 1);
    EVP_CIPHER_CTX_set_padding(context, 0);
    ASSERT_EQ(EVP_EncryptUpdate(context, out, &written, in, static_cast<int>(8 * blocks)), 1);
    EVP_CIPHER_CTX_free(context);
    EVP_CIPHER_free(cipher);
}

// Equality of long data: a failure names the first difference instead of printing all of it.
inline testing::AssertionResult same_bytes(const Bytes &ours, const Bytes &expected) {
    if (ours == expected)
        return testing::AssertionSuccess();
    std::size_t at = 0;
    while (at < ours.size() && at < expected.size() && ours[at] == expected[at])
        ++at;
    return testing::AssertionFailure()
           << ours.size() << " and " << expected.size() << " bytes, first difference at " << at;
}

inline Bytes cbc_run(CbcRun run, const Bytes &key, Bytes iv, const Bytes &data) {
    Bytes result(data.size());
    run(key, iv.data(), data.data(), result.data(), data.size() / cbc_block);
    return result;
}

// A vector, both ways.
inline void check_cbc(const CbcCipher &cipher, const Bytes &key, const Bytes &iv,
                      const Bytes &plain, const Bytes &encrypted, std::size_t line) {
    EXPECT_EQ(to_hex(cbc_run(cipher.encrypt, key, iv, plain)), to_hex(encrypted))
        << cipher.name << " " << line;
    EXPECT_EQ(to_hex(cbc_run(cipher.decrypt, key, iv, encrypted)), to_hex(plain))
        << cipher.name << " " << line;
}

// An ECB vector, block by block. Many copies of the encrypted block make a long run of CBC, each
// block of which must open to the plain block under the chain: so the implementations for long runs
// meet each vector too.
inline void check_ecb(const CbcCipher &cipher, const Bytes &key, const Bytes &plain,
                      const Bytes &encrypted, std::size_t line) {
    constexpr std::size_t copies = 600;
    const Bytes zero(cbc_block);
    ASSERT_EQ(plain.size(), encrypted.size()) << line;
    for (std::size_t at = 0; at < plain.size(); at += cbc_block) {
        const Bytes p(plain.begin() + long(at), plain.begin() + long(at + cbc_block));
        const Bytes c(encrypted.begin() + long(at), encrypted.begin() + long(at + cbc_block));
        check_cbc(cipher, key, zero, p, c, line);
        Bytes run, expected;
        for (std::size_t i = 0; i < copies; ++i) {
            run.insert(run.end(), c.begin(), c.end());
            for (std::size_t j = 0; j < cbc_block; ++j)
                expected.push_back(i == 0 ? p[j] : p[j] ^ c[j]);
        }
        EXPECT_TRUE(same_bytes(cbc_run(cipher.decrypt, key, zero, run), expected))
            << cipher.name << " " << line;
    }
}

// Data of this many blocks against another implementation: at any alignment, in random pieces, in
// place every other time, the iv carried from piece to piece.
inline void check_cbc_pieces(const std::string &what, CbcRun run, const Bytes &key, const Bytes &iv,
                             const Bytes &data, const Bytes &expected, const Bytes &last_iv,
                             Samples &samples) {
    const std::size_t blocks = data.size() / cbc_block, shift = samples.below(16);
    Bytes input(shift), apart(shift + data.size()), chain = iv;
    input.insert(input.end(), data.begin(), data.end());
    uint8_t *in = input.data() + shift;
    uint8_t *const start = samples.below(2) == 0 ? in : apart.data() + samples.below(shift + 1);
    uint8_t *out = start;
    for (const std::size_t piece : samples.pieces(blocks)) {
        run(key, chain.data(), in, out, piece);
        in += piece * cbc_block;
        out += piece * cbc_block;
    }
    EXPECT_TRUE(same_bytes(Bytes(start, start + data.size()), expected)) << what << " " << blocks;
    EXPECT_EQ(to_hex(chain), to_hex(last_iv)) << what << " " << blocks;
}

// Compares with peer on random keys and data of each number of blocks.
inline void check_cbc_peer(const CbcCipher &cipher, CbcRun peer_encrypt,
                           const std::function<Bytes(Samples &)> &make_key) {
    Samples samples;
    for (const std::size_t blocks : sample_lengths()) {
        if (blocks > 20000)
            continue;
        const Bytes key = make_key(samples), iv = samples.bytes(cbc_block);
        const Bytes plain = samples.bytes(blocks * cbc_block);
        const Bytes encrypted = cbc_run(peer_encrypt, key, iv, plain);
        Bytes last = iv;
        if (blocks != 0)
            last.assign(encrypted.end() - cbc_block, encrypted.end());
        check_cbc_pieces(cipher.name + " encrypt", cipher.encrypt, key, iv, plain, encrypted, last,
                         samples);
        check_cbc_pieces(cipher.name + " decrypt", cipher.decrypt, key, iv, encrypted, plain, last,
                         samples);
        EXPECT_TRUE(same_bytes(cbc_run(cipher.decrypt, key, iv, encrypted), plain))
            << cipher.name << " in one run " << blocks;
    }
}

#endif
