#include "qel/oracle.h"
#include "support/fault.h"
#include "support/secrets.h"

#include <cryptoki/session.h>

#include <algorithm>

namespace {

using Core = decltype(kvdsaivqa);

const Bytes iv = from_hex("0f1e2d3c4b5a6978");
const Bytes iv_parameters = from_hex("04080f1e2d3c4b5a6978");
const Bytes des_key = from_hex("0123456789abcdef");
const Bytes des3_key = from_hex("0123456789abcdeffedcba987654321089abcdef01234567");
const Bytes short_key = from_hex("1122334455");
const Bytes long_key = from_hex("00112233445566778899aabbccddeeff");
// RC2-CBCParameter: version 160 stands for 40 effective bits, 120 for 64.
const Bytes rc2_of_40 = from_hex("300e020200a004080f1e2d3c4b5a6978");
const Bytes rc2_of_64 = from_hex("300d02017804080f1e2d3c4b5a6978");

const TestCipher ciphers[] = {
    {"DES", QEL_DES_CBC_OID, des_key, iv_parameters, iv, "DES-CBC"},
    {"triple DES", QEL_DES3_CBC_OID, des3_key, iv_parameters, iv, "DES-EDE3-CBC"},
    {"RC2 with a version", QEL_RC2_CBC_OID, short_key, rc2_of_40, iv, "RC2-CBC", 40},
    {"RC2 with the vector alone", QEL_RC2_CBC_OID, short_key, iv_parameters, iv, "RC2-CBC", 32},
    {"RC2 with a long key", QEL_RC2_CBC_EXP_OID, long_key, rc2_of_40, iv, "RC2-CBC", 40},
    {"RC4", QEL_RC4_OID, short_key, {}, {}, "RC4"},
    {"RC4 with a long key", QEL_RC4_EXP_OID, long_key, {}, {}, "RC4"},
};

const TestCipher &des = ciphers[0];
const TestCipher &rc2 = ciphers[2];
const TestCipher &rc4 = ciphers[5];

class CipherTest : public testing::Test {
protected:
    // Output into a block of exactly so many bytes, or with 0 into one of the library's.
    QelStatus run(Core *core, const TestCipher &cipher, const Bytes &data, uint32_t mode,
                  std::size_t room, Bytes *result) {
        const TestAlgorithm algorithm(cipher);
        const qel::Owned<uint8_t> buffer(room != 0 ? qel::allocate_bytes(room) : nullptr);
        uint8_t *out = buffer.get();
        auto length = static_cast<uint32_t>(room);
        const QelStatus status =
            core(context, data.empty() ? nullptr : data.data(), length_of(data), mode, algorithm,
                 cipher.key.data(), length_of(cipher.key), algorithm, &out, &length);
        if (status == QEL_OK) {
            EXPECT_TRUE(room == 0 || out == buffer.get());
            result->insert(result->end(), out, out + length);
        } else {
            EXPECT_TRUE(out == buffer.get() && length == room) << "a failure changes no output";
        }
        if (room == 0)
            free(out);
        return status;
    }

    // In a new buffer, or in the place of the data.
    Bytes whole(Core *core, const TestCipher &cipher, const Bytes &data, bool in_place) {
        const TestAlgorithm algorithm(cipher);
        Bytes buffer = data;
        buffer.resize(data.size() + (core == kvdsaivqa && !cipher.stream() ? 8 : 0));
        uint8_t *out = in_place ? buffer.data() : nullptr;
        uint32_t length = in_place ? length_of(buffer) : 0;
        EXPECT_EQ(core(context, buffer.data(), length_of(data), QEL_MODE_FINAL, algorithm,
                       cipher.key.data(), length_of(cipher.key), algorithm, &out, &length),
                  QEL_OK);
        EXPECT_TRUE(context.idle());
        const Bytes result(out, out + length);
        if (!in_place)
            free(out);
        return result;
    }

    Bytes in_parts(Core *core, const TestCipher &cipher, const Bytes &data, std::size_t largest) {
        Bytes result;
        for (std::size_t at = 0; at < data.size();) {
            const std::size_t size = std::min(data.size() - at, 1 + random() % largest);
            const Bytes part(&data[at], &data[at] + size);
            at += size;
            const bool last = at == data.size() && random() % 2 == 0;
            const uint32_t mode = last ? QEL_MODE_FINAL : QEL_MODE_UPDATE;
            // A final call that is the first too stands for itself, and may write less.
            EXPECT_EQ(run(core, cipher, part, mode, random() % 2 != 0 ? size + 24 : 0, &result),
                      QEL_OK);
        }
        if (!context.idle()) {
            EXPECT_EQ(run(core, cipher, {}, QEL_MODE_FINAL, random() % 2 != 0 ? 8 : 0, &result),
                      QEL_OK);
        }
        EXPECT_TRUE(context.idle());
        return result;
    }

    TestContext context;
    std::mt19937 random{1};
};

TEST_F(CipherTest, AgreesWithAnotherLibraryBothWays) {
    for (const TestCipher &cipher : ciphers) {
        for (std::size_t size = 0; size <= 130; ++size) {
            SCOPED_TRACE(testing::Message() << cipher.name << ", " << size << " bytes");
            const Bytes text = random_bytes(random, size);
            const Bytes encrypted = openssl_crypt(cipher, true, text);
            ASSERT_EQ(encrypted.size(), cipher.encrypted_size(size));
            if (encrypted.empty())
                continue;
            EXPECT_EQ(in_parts(kdlsdkspd, cipher, encrypted, 30), text);
            for (const bool in_place : {false, true})
                EXPECT_EQ(whole(kdlsdkspd, cipher, encrypted, in_place), text);
            if (size == 0) // nothing can only be decrypted
                continue;
            EXPECT_EQ(in_parts(kvdsaivqa, cipher, text, 30), encrypted);
            for (const bool in_place : {false, true})
                EXPECT_EQ(whole(kvdsaivqa, cipher, text, in_place), encrypted);
        }
    }
}

TEST_F(CipherTest, TripleDesInOneCall) {
    const TestCipher &des3 = ciphers[1];
    const Bytes text = random_bytes(random, 100);
    const Bytes encrypted = openssl_crypt(des3, true, text);
    const struct {
        const char *why;
        decltype(aksksfdq) *crypt;
        const Bytes &data;
        uint32_t key_length, iv_length, room;
        QelStatus status;
        Bytes result = {};
    } cases[] = {
        {"encryption", aksksfdq, text, 24, 8, 0, QEL_OK, encrypted},
        {"into a buffer", aksksfdq, text, 24, 8, 108, QEL_OK, encrypted},
        {"one byte short", aksksfdq, text, 24, 8, 107, QEL_ERR_BUFFER_SIZE},
        {"decryption", glhrahhi, encrypted, 24, 8, 0, QEL_OK, text},
        {"of what is not encrypted", glhrahhi, text, 24, 8, 0, QEL_ERR_DECRYPT},
        {"two keys", aksksfdq, text, 16, 8, 0, QEL_ERR_BAD_PARAM},
        {"a long vector", glhrahhi, encrypted, 24, 9, 0, QEL_ERR_BAD_PARAM},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.why);
        Bytes buffer(c.room);
        uint8_t *out = c.room != 0 ? buffer.data() : nullptr;
        uint32_t length = c.room;
        EXPECT_EQ(c.crypt(context, c.data.data(), length_of(c.data), des3.key.data(), c.key_length,
                          iv.data(), c.iv_length, &out, &length),
                  c.status);
        if (c.status == QEL_OK) {
            EXPECT_EQ(Bytes(out, out + length), c.result);
        }
        EXPECT_TRUE(context.idle());
        if (c.room == 0)
            free(out);
    }
    uint8_t *out = nullptr;
    uint32_t length = 0;
    for (auto *crypt : {aksksfdq, glhrahhi})
        each_missing(QEL_ERR_BAD_PARAM, crypt, {}, context, text.data(), length_of(text),
                     des3.key.data(), 24, iv.data(), 8, &out, &length);
}

// ---- What is refused

TestCipher with_key(TestCipher cipher, const Bytes &key) {
    cipher.key = key;
    return cipher;
}

TestCipher with_vector(TestCipher cipher, const char *parameters) {
    cipher.parameters = from_hex(parameters);
    return cipher;
}

TEST_F(CipherTest, Failures) {
    const TestCipher md5 = {"MD5", QEL_MD5_AID->algorithm, short_key, {}, {}, nullptr};
    const Bytes text = bytes_of("sixteen bytes...");
    const TestCipher &des3 = ciphers[1];
    const struct {
        const char *why;
        TestCipher cipher;
        QelStatus encryption;
        QelStatus decryption = encryption;
    } cases[] = {
        {"a DES key of 7 bytes", with_key(des, Bytes(7)), QEL_ERR_BAD_PARAM},
        {"a DES key of 9 bytes", with_key(des, Bytes(9)), QEL_ERR_BAD_PARAM},
        {"two keys for triple DES", with_key(des3, Bytes(16)), QEL_ERR_BAD_PARAM},
        {"no key", with_key(des, {}), QEL_ERR_BAD_PARAM},
        {"a longer RC2 key than there is", with_key(rc2, Bytes(129)), QEL_ERR_ENCRYPT,
         QEL_ERR_DECRYPT},
        {"a longer RC4 key than there is", with_key(rc4, Bytes(257)), QEL_ERR_ENCRYPT,
         QEL_ERR_DECRYPT},
        {"no parameters", with_vector(des, ""), QEL_ERR_BAD_PARAM},
        {"a number as vector", with_vector(des, "020100"), QEL_ERR_ASN1_DECODE},
        {"bytes behind the vector", with_vector(des, "0408010203040506070800"),
         QEL_ERR_ASN1_DECODE},
        {"a short vector", with_vector(des, "040701020304050607"), QEL_ERR_BAD_PARAM},
        {"a long vector", with_vector(des, "0409010203040506070809"), QEL_ERR_BAD_PARAM},
        {"RC2 without parameters", with_vector(rc2, ""), QEL_ERR_BAD_PARAM},
        {"neither form of RC2's", with_vector(rc2, "0500"), QEL_ERR_ASN1_DECODE},
        {"a short vector alone", with_vector(rc2, "040701020304050607"), QEL_ERR_BAD_PARAM},
        {"a short vector with a version", with_vector(rc2, "300d020200a0040701020304050607"),
         QEL_ERR_BAD_PARAM},
        {"64 effective bits", with_vector(rc2, "300d02017804080102030405060708"), QEL_ERR_EXPORT},
        {"41 effective bits", with_vector(rc2, "300d02016804080102030405060708"), QEL_ERR_EXPORT},
        {"1024 effective bits", with_vector(rc2, "300e0202040004080102030405060708"),
         QEL_ERR_EXPORT},
        {"a version that means no bits", with_vector(rc2, "300e020200bd04080102030405060708"),
         QEL_ERR_BAD_PARAM},
        {"a digest algorithm", md5, QEL_ERR_UNSUPPORTED_ALG},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.why);
        Bytes result;
        EXPECT_EQ(run(kvdsaivqa, c.cipher, text, QEL_MODE_FINAL, 0, &result), c.encryption);
        EXPECT_TRUE(context.idle());
        EXPECT_EQ(run(kdlsdkspd, c.cipher, text, QEL_MODE_FINAL, 0, &result), c.decryption);
        EXPECT_TRUE(context.idle());
    }
}

TEST_F(CipherTest, Room) {
    const uint32_t update = QEL_MODE_UPDATE, final = QEL_MODE_FINAL;
    const struct {
        const char *why;
        const TestCipher &cipher;
        uint32_t mode;
        std::size_t size, room;
        QelStatus encryption, decryption;
    } cases[] = {
        {"none for padding", des, final, 16, 23, QEL_ERR_BUFFER_SIZE, QEL_ERR_DECRYPT},
        {"less than the data", des, final, 16, 15, QEL_ERR_BUFFER_SIZE, QEL_ERR_BUFFER_SIZE},
        {"less than RC4's data", rc4, final, 16, 15, QEL_ERR_BUFFER_SIZE, QEL_ERR_BUFFER_SIZE},
        {"none for an update", des, update, 16, 39, QEL_ERR_BUFFER_SIZE, QEL_ERR_BUFFER_SIZE},
        {"for less than a block", des, final, 7, 0, QEL_OK, QEL_ERR_DECRYPT},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.why);
        Bytes result;
        EXPECT_EQ(run(kvdsaivqa, c.cipher, Bytes(c.size, 'a'), c.mode, c.room, &result),
                  c.encryption);
        EXPECT_EQ(run(kdlsdkspd, c.cipher, Bytes(c.size, 'a'), c.mode, c.room, &result),
                  c.decryption);
        EXPECT_TRUE(context.idle());
    }
}

// One status, at once or at the end of several calls.
TEST_F(CipherTest, WhatDoesNotDecrypt) {
    const struct {
        const char *why;
        const char *last_block; // in the clear
        std::size_t cut;
        bool other_key;
        QelStatus status;
    } cases[] = {
        {"well made", "6162630505050505", 0, false, QEL_OK},
        {"nothing but padding", "0808080808080808", 0, false, QEL_OK},
        {"no padding", "6162636465666700", 0, false, QEL_ERR_DECRYPT},
        {"more padding than a block", "0909090909090909", 0, false, QEL_ERR_DECRYPT},
        {"a last byte far beyond", "ffffffffffffffff", 0, false, QEL_ERR_DECRYPT},
        {"the first byte of padding altered", "6162630405050505", 0, false, QEL_ERR_DECRYPT},
        {"the last but one", "6162630505050405", 0, false, QEL_ERR_DECRYPT},
        {"a byte cut off", "6162630505050505", 1, false, QEL_ERR_DECRYPT},
        {"a block cut off", "6162630505050505", 8, false, QEL_ERR_DECRYPT},
        {"another key", "6162630505050505", 0, true, QEL_ERR_DECRYPT},
    };
    for (const TestCipher &cipher : ciphers) {
        for (const auto &c : cases) {
            if (cipher.stream())
                continue;
            SCOPED_TRACE(testing::Message() << cipher.name << ", " << c.why);
            // Less the block of padding that the oracle adds.
            Bytes encrypted =
                openssl_crypt(cipher, true, from_hex(std::string(32, '1') + c.last_block));
            encrypted.resize(24 - c.cut);
            TestCipher with = cipher;
            with.key[0] ^= c.other_key ? 2 : 0;
            Bytes result;
            EXPECT_EQ(run(kdlsdkspd, with, encrypted, QEL_MODE_FINAL, 0, &result), c.status);
            EXPECT_TRUE(context.idle());
            EXPECT_EQ(run(kdlsdkspd, with, encrypted, QEL_MODE_UPDATE, 0, &result), QEL_OK);
            EXPECT_EQ(run(kdlsdkspd, with, {}, QEL_MODE_FINAL, 0, &result), c.status);
            EXPECT_TRUE(context.idle());
        }
    }
}

TEST_F(CipherTest, BadParameters) {
    const TestAlgorithm one(rc4), other(des);
    const uint8_t data[16] = {}, key[5] = {};
    uint8_t buffer[64], *none = nullptr, *some = buffer;
    uint32_t zero = 0, size = sizeof buffer;
    for (Core *core : {kvdsaivqa, kdlsdkspd}) {
        const auto call = [&](const uint8_t *text, uint32_t mode, const QelAlgId *key_algorithm,
                              uint8_t **out, uint32_t *length) {
            const QelStatus status = core(context, text, text != nullptr ? 16 : 0, mode,
                                          key_algorithm, key, 5, one, out, length);
            EXPECT_TRUE(context.idle());
            return status;
        };
        each_missing(QEL_ERR_BAD_PARAM, core, {}, context, data, 16, QEL_MODE_FINAL, one, key, 5,
                     one, &none, &zero);
        EXPECT_EQ(call(data, QEL_MODE_DIGEST, one, &none, &zero), QEL_ERR_BAD_PARAM);
        EXPECT_EQ(call(nullptr, QEL_MODE_UPDATE, one, &none, &zero), QEL_ERR_BAD_PARAM);
        EXPECT_EQ(call(nullptr, QEL_MODE_FINAL, one, &none, &zero), QEL_ERR_BAD_PARAM);
        EXPECT_EQ(call(data, QEL_MODE_FINAL, other, &none, &zero), QEL_ERR_BAD_PARAM)
            << "a key for another algorithm";
        EXPECT_EQ(call(data, QEL_MODE_FINAL, one, &none, &size), QEL_ERR_BAD_PARAM);
        EXPECT_EQ(call(data, QEL_MODE_FINAL, one, &some, &zero), QEL_ERR_BAD_PARAM);
    }
}

// ---- Beside other operations of the context

class SharedContextTest : public CipherTest {
protected:
    QelStatus digest(const Bytes &data, uint32_t mode) {
        uint8_t *out = digest_bytes;
        uint32_t length = sizeof digest_bytes;
        return qel_digest(context, data.empty() ? nullptr : data.data(), length_of(data), mode,
                          QEL_MD5_AID, &out, &length);
    }
    Bytes digested() const { return {digest_bytes, digest_bytes + 16}; }

    void expect_triple_des_works() {
        uint8_t *out = nullptr;
        uint32_t length = 0;
        EXPECT_EQ(aksksfdq(context, text.data(), length_of(text), des3_key.data(), 24, iv.data(), 8,
                           &out, &length),
                  QEL_OK);
        EXPECT_EQ(Bytes(out, out + length), openssl_crypt(ciphers[1], true, text));
        free(out);
    }

    const Bytes text = bytes_of("a text of more than two blocks");
    const Bytes encrypted = openssl_crypt(des, true, text);
    const Bytes head{text.begin(), text.begin() + 11};
    const Bytes tail{text.begin() + 11, text.end()};
    uint8_t digest_bytes[16] = {};
    Bytes result;
};

TEST_F(SharedContextTest, AnEncryptionGoesOnAfterWhatIsRefusedOrNotItsOwn) {
    ASSERT_EQ(run(kvdsaivqa, des, head, QEL_MODE_UPDATE, 0, &result), QEL_OK);
    EXPECT_EQ(run(kvdsaivqa, des, {}, QEL_MODE_UPDATE, 0, &result), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(digest(text, QEL_MODE_UPDATE), QEL_ERR_DIGEST);
    EXPECT_NE(digest(text, QEL_MODE_FINAL), QEL_OK);
    EXPECT_NE(digest({}, QEL_MODE_FINAL), QEL_OK);
    expect_triple_des_works();
    // From the second call on nobody looks at algorithm and key.
    EXPECT_EQ(run(kvdsaivqa, with_key(rc2, {}), tail, QEL_MODE_UPDATE, 0, &result), QEL_OK);
    EXPECT_EQ(run(kvdsaivqa, des, {}, QEL_MODE_FINAL, 0, &result), QEL_OK);
    EXPECT_EQ(result, encrypted);
    EXPECT_TRUE(context.idle());
}

TEST_F(SharedContextTest, ADigestGoesOnAfterAnEncryptionThatCannotRun) {
    ASSERT_EQ(digest(head, QEL_MODE_UPDATE), QEL_OK);
    EXPECT_EQ(run(kvdsaivqa, des, text, QEL_MODE_UPDATE, 0, &result), QEL_ERR_ENCRYPT);
    EXPECT_EQ(run(kvdsaivqa, des, text, QEL_MODE_FINAL, 0, &result), QEL_ERR_ENCRYPT);
    EXPECT_EQ(run(kdlsdkspd, des, {}, QEL_MODE_FINAL, 0, &result), QEL_ERR_DECRYPT);
    EXPECT_EQ(run(kdlsdkspd, des, encrypted, QEL_MODE_FINAL, 1, &result), QEL_ERR_BUFFER_SIZE);
    expect_triple_des_works();
    EXPECT_EQ(digest(tail, QEL_MODE_FINAL), QEL_OK);
    EXPECT_EQ(digested(), md5(text));
    EXPECT_TRUE(context.idle());
}

// The last update sets the room of a final call without data, a block.
TEST_F(SharedContextTest, AFailureEndsWhatIsUnderWay) {
    const struct {
        const char *why;
        Core *core;
        Bytes data;
        uint32_t mode;
        std::size_t room;
        QelStatus status;
    } cases[] = {
        {"the other direction", kdlsdkspd, head, QEL_MODE_UPDATE, 0, QEL_ERR_DECRYPT},
        {"too little room", kvdsaivqa, head, QEL_MODE_UPDATE, 34, QEL_ERR_BUFFER_SIZE},
        {"no room for the last block", kvdsaivqa, {}, QEL_MODE_FINAL, 7, QEL_ERR_BUFFER_SIZE},
        {"nor any failure", kvdsaivqa, {}, QEL_MODE_FINAL, 8, QEL_OK},
    };
    for (const auto &c : cases) {
        ASSERT_EQ(run(kvdsaivqa, des, text, QEL_MODE_UPDATE, 0, &result), QEL_OK);
        EXPECT_EQ(run(c.core, des, c.data, c.mode, c.room, &result), c.status) << c.why;
        EXPECT_TRUE(context.idle()) << c.why;
        result.clear();
        EXPECT_EQ(run(kvdsaivqa, des, text, QEL_MODE_FINAL, 0, &result), QEL_OK) << c.why;
        EXPECT_EQ(result, encrypted) << c.why;
    }
}

// A signature over a given digest leaves its algorithms in the context.
TEST_F(SharedContextTest, ASignatureAroundAnEncryption) {
    const SignerKey signer(RsaKey::of_512_bits());
    const Bytes by_md5 =
        signer.signature(context, Bytes(16), QEL_MODE_DIGEST, QEL_MD5WithRSAEncryption_AID);
    ASSERT_EQ(run(kvdsaivqa, des, head, QEL_MODE_UPDATE, 0, &result), QEL_OK);
    EXPECT_NE(signer.signature(context, Bytes(16), QEL_MODE_DIGEST, QEL_MD2WithRSAEncryption_AID),
              by_md5);
    EXPECT_EQ(run(kvdsaivqa, des, tail, QEL_MODE_FINAL, 0, &result), QEL_OK);
    EXPECT_EQ(result, encrypted);
    EXPECT_EQ(context->session, nullptr);
}

// ---- Memory

TEST_F(CipherTest, EachAllocation) {
    const Bytes text = bytes_of("sixteen bytes...");
    for (const TestCipher *cipher : {&des, &rc2, &rc4})
        for (Core *core : {kvdsaivqa, kdlsdkspd}) {
            SCOPED_TRACE(cipher->name);
            const Bytes data = core == kvdsaivqa ? text : openssl_crypt(*cipher, true, text);
            const std::set<QelStatus> failures = {
                QEL_ERR_NO_MEMORY,   QEL_ERR_ASN1_DECODE,
                QEL_ERR_ASN1_ENCODE, QEL_ERR_BAD_KEY,
                QEL_ERR_GENERAL,     core == kvdsaivqa ? QEL_ERR_ENCRYPT : QEL_ERR_DECRYPT};
            fault::each_allocation([&] {
                Bytes result;
                for (const uint32_t mode : {QEL_MODE_UPDATE, QEL_MODE_FINAL})
                    if (const QelStatus status = run(core, *cipher, data, mode, 0, &result);
                        status != QEL_OK) {
                        EXPECT_TRUE(fault::met() && failures.contains(status)) << status;
                        EXPECT_TRUE(context.idle());
                        break;
                    }
                if (!context.idle()) // what is left is ended
                    run(core, *cipher, {}, QEL_MODE_FINAL, 0, &result);
            });
        }
}

TEST_F(CipherTest, FreedMemoryHoldsNeitherKeyNorText) {
    const Bytes text = bytes_of("a secret of eight bytes and more");
    for (const TestCipher &cipher : ciphers) {
        SCOPED_TRACE(cipher.name);
        const Bytes encrypted = openssl_crypt(cipher, true, text);
        const TestAlgorithm algorithm(cipher);
        for (const bool cut : {false, true}) {
            uint8_t *out = nullptr;
            uint32_t length = 0;
            SecretWatch watch;
            watch.add("key", cipher.key);
            watch.add("text", text);
            const QelStatus status = kdlsdkspd(
                context, encrypted.data(), length_of(encrypted) - cut, QEL_MODE_FINAL, algorithm,
                cipher.key.data(), length_of(cipher.key), algorithm, &out, &length);
            EXPECT_EQ(watch.take_found(), std::set<std::string>());
            EXPECT_EQ(status == QEL_OK, !cut || cipher.stream());
            free(out);
        }
    }
}

} // namespace
