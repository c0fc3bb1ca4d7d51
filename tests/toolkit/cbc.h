// cbc.h: the questions that every block cipher in CBC mode is asked.
#ifndef TESTS_TOOLKIT_CBC_H
#define TESTS_TOOLKIT_CBC_H

#include "support/samples.h"

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

// The key of RC2 here: two bytes of effective bits, then the key itself.
inline Bytes rc2_key(unsigned bits, const Bytes &key) {
    return Bytes{static_cast<uint8_t>(bits >> 8), static_cast<uint8_t>(bits)} + key;
}
inline unsigned rc2_bits(const Bytes &key) {
    return static_cast<unsigned>(key[0] << 8 | key[1]);
}

// libcrypto's CBC encryption (or RC4) by cipher name.
inline Bytes peer_encrypted(const std::string &name, const Bytes &key, const Bytes &iv,
                            const Bytes &plain) {
    const std::size_t key_at = name == "RC2-CBC" ? 2 : 0;
    Bytes encrypted(plain.size());
    static OSSL_PROVIDER *const legacy = OSSL_PROVIDER_load(nullptr, "legacy");
    static OSSL_PROVIDER *const standard = OSSL_PROVIDER_load(nullptr, "default");
    EXPECT_TRUE(legacy != nullptr && standard != nullptr);
    EVP_CIPHER *const cipher = EVP_CIPHER_fetch(nullptr, name.c_str(), nullptr);
    EVP_CIPHER_CTX *const context = EVP_CIPHER_CTX_new();
    int written = 0;
    EXPECT_EQ(EVP_EncryptInit_ex2(context, cipher, nullptr, nullptr, nullptr), 1);
    EVP_CIPHER_CTX_set_key_length(context, static_cast<int>(key.size() - key_at));
    if (key_at != 0)
        EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_SET_RC2_KEY_BITS, static_cast<int>(rc2_bits(key)),
                            nullptr);
    EXPECT_EQ(EVP_EncryptInit_ex2(context, nullptr, key.data() + key_at, iv.data(), nullptr), 1);
    EVP_CIPHER_CTX_set_padding(context, 0);
    EXPECT_EQ(EVP_EncryptUpdate(context, encrypted.data(), &written, plain.data(),
                                static_cast<int>(plain.size())),
              1);
    EVP_CIPHER_CTX_free(context);
    EVP_CIPHER_free(cipher);
    return encrypted;
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

// Compares with libcrypto on random keys and data of each number of blocks.
inline void check_cbc_peer(const CbcCipher &cipher, const char *peer,
                           const std::function<Bytes(Samples &)> &make_key) {
    Samples samples;
    for (const std::size_t blocks : sample_lengths()) {
        if (blocks > 20000)
            continue;
        const Bytes key = make_key(samples), iv = samples.bytes(cbc_block);
        const Bytes plain = samples.bytes(blocks * cbc_block);
        const Bytes encrypted = peer_encrypted(peer, key, iv, plain);
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
