#include "qel/oracle.h"
#include "support/fault.h"

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

    Bytes whole(Core *core, const TestCipher &cipher, const Bytes &data, bool own_buffer) {
        Bytes result;
        const bool grows = core == kvdsaivqa && !cipher.stream();
        EXPECT_EQ(run(core, cipher, data, QEL_MODE_FINAL,
                      own_buffer ? data.size() + (grows ? 8 : 0) : 0, &result),
                  QEL_OK);
        EXPECT_TRUE(context.idle());
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
            const bool own_buffer = size % 2 != 0;
            EXPECT_EQ(whole(kdlsdkspd, cipher, encrypted, own_buffer), text);
            EXPECT_EQ(in_parts(kdlsdkspd, cipher, encrypted, 30), text);
            if (size != 0) { // nothing can only be decrypted
                EXPECT_EQ(whole(kvdsaivqa, cipher, text, own_buffer), encrypted);
                EXPECT_EQ(in_parts(kvdsaivqa, cipher, text, 30), encrypted);
            }
        }
    }
}

TEST_F(CipherTest, LongTexts) {
    const Bytes text = random_bytes(random, 1 << 20);
    for (const TestCipher &cipher : ciphers) {
        SCOPED_TRACE(cipher.name);
        const Bytes encrypted = openssl_crypt(cipher, true, text);
        EXPECT_EQ(whole(kvdsaivqa, cipher, text, true), encrypted);
        EXPECT_EQ(whole(kdlsdkspd, cipher, encrypted, false), text);
        EXPECT_EQ(in_parts(kvdsaivqa, cipher, text, 100000), encrypted);
        EXPECT_EQ(in_parts(kdlsdkspd, cipher, encrypted, 100000), text);
    }
}

} // namespace
