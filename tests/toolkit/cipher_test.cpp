// Ciphers as objects: against libcrypto, padding and lengths; recoding; generators.
#include "cbc.h"
#include "objects.h"

#include <toolkit/random.h>

namespace toolkit {
namespace {

const Bytes iv = from_hex("0123456789abcdef");

Bytes padded(Bytes message) {
    const auto padding = static_cast<uint8_t>(8 - message.size() % 8);
    message.insert(message.end(), padding, padding);
    return message;
}

Bytes encrypt(B_INFO_TYPE type, POINTER info, const Bytes &key_bytes, const Bytes &message) {
    const Key_ key(key_bytes);
    const Algorithm_ object(type, info);
    EXPECT_EQ(error_name(begin(Step::encrypt, object, key)), "BE_OK");
    Bytes out;
    EXPECT_EQ(error_name(feed(Step::encrypt, object, message, &out)), "BE_OK");
    return out;
}

TEST(Ciphers, AgreeWithLibcrypto) {
    const A_RC2_CBC_PARAMS rc2_40 = {40, iv.data()}, rc2_128 = {128, iv.data()};
    const struct {
        const char *peer;
        B_INFO_TYPE padded, plain;
        POINTER info;
        std::size_t key_size;
        unsigned rc2_bits;
    } rows[] = {
        {"DES-CBC", AI_DES_CBCPadIV8, AI_DES_CBC_IV8, iv.data(), 8, 0},
        {"DES-EDE3-CBC", AI_DES_EDE3_CBCPadIV8, AI_DES_EDE3_CBC_IV8, iv.data(), 24, 0},
        {"DESX-CBC", AI_DESX_CBCPadIV8, AI_DESX_CBC_IV8, iv.data(), 24, 0},
        {"RC2-CBC", AI_RC2_CBCPad, AI_RC2_CBC, &rc2_40, 16, 40},
        {"RC2-CBC", AI_RC2_CBCPad, AI_RC2_CBC, &rc2_128, 16, 128},
        {"RC4", AI_RC4, AI_RC4, nullptr, 16, 0},
    };
    Samples samples;
    for (const auto &row : rows)
        for (const std::size_t size : {0u, 1u, 7u, 8u, 9u, 64u, 1000u}) {
            SCOPED_TRACE(row.peer + std::to_string(size));
            const Bytes message = samples.bytes(size), key = samples.bytes(row.key_size);
            const Bytes whole = padded(message);
            const Bytes expected = peer_encrypted(
                row.peer, row.rc2_bits != 0 ? rc2_key(row.rc2_bits, key) : key, iv, whole);
            EXPECT_EQ(encrypt(row.plain, row.info, key, whole), expected);
            if (row.padded != AI_RC4) {
                EXPECT_EQ(encrypt(row.padded, row.info, key, message), expected);
            }
        }
}

// Every last block there is, by its last byte and by the byte that differs from it.
TEST(Ciphers, TakeNoPaddingButTheRightOne) {
    const Bytes key_bytes = from_hex("0011223344556677");
    const Key_ key(key_bytes);
    const Algorithm_ object(AI_DES_CBCPadIV8, iv.data());
    ASSERT_EQ(begin(Step::decrypt, object, key), BE_OK);
    for (unsigned last = 0; last < 256; ++last) {
        for (std::size_t wrong = 0; wrong < 8; ++wrong) { // 7: none
            Bytes plain(16, static_cast<uint8_t>(last));
            if (wrong != 7)
                plain[8 + wrong] ^= 0x10;
            const bool good = last >= 1 && last <= 8 && (wrong == 7 || wrong < 8 - last);
            Bytes result;
            const Bytes cipher = encrypt(AI_DES_CBC_IV8, iv.data(), key_bytes, plain);
            const int error = feed(Step::decrypt, object, cipher, &result);
            ASSERT_EQ(error_name(error), good ? "BE_OK" : "BE_PADDING") << last << " " << wrong;
            if (good) {
                plain.resize(16 - last);
                ASSERT_EQ(to_hex(result), to_hex(plain));
            }
        }
    }
}

TEST(Ciphers, NeedWholeBlocksWhereNothingPads) {
    const Key_ key(from_hex("0011223344556677"));
    const Algorithm_ pad(AI_DES_CBCPadIV8, iv.data()), plain(AI_DES_CBC_IV8, iv.data());
    const struct {
        const char *reason;
        const Algorithm_ &object;
        Step step;
        std::size_t size;
        const char *expected;
    } cases[] = {
        {"a part of a block", plain, Step::encrypt, 9, "BE_INPUT_LEN"},
        {"a part of a block", plain, Step::decrypt, 15, "BE_INPUT_LEN"},
        {"nothing at all", plain, Step::encrypt, 0, "BE_OK"},
        {"nothing at all", plain, Step::decrypt, 0, "BE_OK"},
        {"a part of a block", pad, Step::decrypt, 9, "BE_INPUT_LEN"},
        {"nothing, where at least the padding must be", pad, Step::decrypt, 0, "BE_INPUT_LEN"},
    };
    for (const auto &row : cases) {
        Bytes out;
        ASSERT_EQ(begin(row.step, row.object, key), BE_OK);
        for (int again = 0; again < 2; ++again) // the failure ends the message, not the use
            EXPECT_EQ(error_name(feed(row.step, row.object, Bytes(row.size), &out)), row.expected)
                << row.reason;
    }
}

TEST(Ciphers, TakeKeysOfTheirLengthsOnly) {
    const A_RC2_CBC_PARAMS rc2 = {64, iv.data()};
    const struct {
        B_INFO_TYPE type;
        POINTER info;
        std::size_t least, most;
    } cases[] = {
        {AI_DES_CBCPadIV8, iv.data(), 8, 8},
        {AI_DES_EDE3_CBCPadIV8, iv.data(), 24, 24},
        {AI_DESX_CBCPadIV8, iv.data(), 24, 24},
        {AI_RC2_CBCPad, &rc2, 1, 128},
        {AI_RC4, nullptr, 1, 256},
    };
    for (const auto &row : cases) {
        for (std::size_t size = 0; size < 300; ++size) {
            const Key_ key(Bytes(size, 0x5a));
            const Algorithm_ object(row.type, row.info);
            const bool good = size >= row.least && size <= row.most;
            for (const Step step : {Step::encrypt, Step::decrypt})
                ASSERT_EQ(error_name(begin(step, object, key)), good ? "BE_OK" : "BE_KEY_LEN")
                    << size;
        }
    }
}

// RSA on a block.

class RsaObjects : public testing::Test {
protected:
    const Key_ private_key{sample_private_key(), KI_PKCS_RSAPrivateBER};
    const Key_ public_key{sample_public_key(), KI_RSAPublicBER};
    const Random_ random;
    Bytes out;

    std::string run(Step step, B_INFO_TYPE type, B_KEY_OBJ key, const Bytes &message,
                    B_ALGORITHM_OBJ generator) {
        const Algorithm_ object(type);
        EXPECT_EQ(error_name(begin(step, object, key)), "BE_OK");
        return error_name(feed(step, object, message, &out, generator));
    }
};

TEST_F(RsaObjects, NeedARandomObjectForTheirType2BlocksAlone) {
    const Bytes message = bytes_of("a message");
    const Algorithm_ unseeded(AI_MD5Random), idle(AI_MD5Random);
    ASSERT_EQ(B_RandomInit(unseeded, every_method, nullptr), BE_OK);
    const auto encrypt_with = [&](B_ALGORITHM_OBJ generator) {
        return run(Step::encrypt, AI_PKCS_RSAPublic, public_key, message, generator);
    };
    EXPECT_EQ(encrypt_with(nullptr), "BE_RANDOM_OBJ");
    EXPECT_EQ(encrypt_with(unseeded), "BE_RANDOM_NOT_INITIALIZED");
    EXPECT_EQ(encrypt_with(idle), "BE_RANDOM_NOT_INITIALIZED");
    EXPECT_EQ(run(Step::encrypt, AI_PKCS_RSAPrivate, private_key, message, nullptr), "BE_OK");
    ASSERT_EQ(encrypt_with(random), "BE_OK");
    const Bytes first = out;
    ASSERT_EQ(encrypt_with(random), "BE_OK");
    EXPECT_NE(to_hex(out), to_hex(first));
    ASSERT_EQ(run(Step::decrypt, AI_PKCS_RSAPrivate, private_key, out, nullptr), "BE_OK");
    EXPECT_EQ(to_hex(out), to_hex(message));
}

TEST_F(RsaObjects, HoldTheirInputToTheBlock) {
    Bytes too_large(128, 0xff), small(128, 0);
    small[127] = 2;
    const auto with_public = [&](Step step, const Bytes &input) {
        return run(step, AI_PKCS_RSAPublic, public_key, input, random);
    };
    const auto with_private = [&](Step step, const Bytes &input) {
        return run(step, AI_PKCS_RSAPrivate, private_key, input, random);
    };
    const auto raw = [&](const Bytes &input) {
        return run(Step::encrypt, AI_RSAPublic, public_key, input, random);
    };
    const struct {
        const char *reason;
        std::string result;
        const char *expected;
    } cases[] = {
        {"as much as fits", with_public(Step::encrypt, Bytes(117)), "BE_OK"},
        {"one byte more", with_public(Step::encrypt, Bytes(118)), "BE_INPUT_LEN"},
        {"as much as fits", with_private(Step::encrypt, Bytes(117)), "BE_OK"},
        {"one byte more", with_private(Step::encrypt, Bytes(118)), "BE_INPUT_LEN"},
        {"nothing", with_public(Step::encrypt, {}), "BE_OK"},
        {"a block less one byte", with_private(Step::decrypt, Bytes(127)), "BE_INPUT_LEN"},
        {"a block and one byte", with_private(Step::decrypt, Bytes(129)), "BE_INPUT_LEN"},
        {"not below the modulus", with_private(Step::decrypt, too_large), "BE_DATA"},
        {"not below the modulus", with_public(Step::decrypt, too_large), "BE_DATA"},
        {"a block that opens to no block", with_private(Step::decrypt, small), "BE_PADDING"},
        {"a block that opens to no block", with_public(Step::decrypt, small), "BE_PADDING"},
        {"a part of a raw block", raw(Bytes(127)), "BE_INPUT_LEN"},
        {"more than a raw block", raw(Bytes(129)), "BE_INPUT_LEN"},
    };
    for (const auto &row : cases)
        EXPECT_EQ(row.result, row.expected) << row.reason;
}

// Too much is refused by the update that brings it, and what came before still stands.
TEST_F(RsaObjects, RefuseThePieceThatIsTooMuch) {
    const struct {
        B_INFO_TYPE type;
        const Key_ &key;
        uint32_t limit;
    } cases[] = {
        {AI_PKCS_RSAPrivate, private_key, 117},
        {AI_RSAPublic, public_key, 128},
    };
    for (const auto &row : cases) {
        const Algorithm_ object(row.type);
        const Bytes message(128, 0x07);
        Bytes whole;
        uint32_t size;
        out.resize(128);
        ASSERT_EQ(begin(Step::encrypt, object, row.key), BE_OK);
        ASSERT_EQ(feed(Step::encrypt, object, Bytes(row.limit, 0x07), &whole), BE_OK);
        const auto add = [&](uint32_t more) {
            return error_name(B_EncryptUpdate(object, out.data(), &size, 128, message.data(), more,
                                              nullptr, nullptr));
        };
        EXPECT_EQ(add(100), "BE_OK");
        EXPECT_EQ(add(row.limit - 99), "BE_INPUT_LEN");
        EXPECT_EQ(add(row.limit - 100), "BE_OK");
        EXPECT_EQ(add(1), "BE_INPUT_LEN");
        ASSERT_EQ(B_EncryptFinal(object, out.data(), &size, 128, nullptr, nullptr), BE_OK);
        EXPECT_EQ(to_hex(out), to_hex(whole));
    }
}

TEST_F(RsaObjects, TakeTheKeyThatTheOperationNeeds) {
    const Key_ empty;
    const Key_ secret(Bytes(8, 1));
    POINTER crt;
    ASSERT_EQ(B_GetKeyInfo(&crt, private_key, KI_RSA_CRT), BE_OK);
    const Key_ crt_key(KI_RSA_CRT, crt);
    const struct {
        const char *reason;
        B_INFO_TYPE type;
        B_KEY_OBJ key;
        const char *expected;
    } cases[] = {
        {"a private key that knows its exponent", AI_PKCS_RSAPublic, private_key, "BE_OK"},
        {"a private key that does not", AI_PKCS_RSAPublic, crt_key, "BE_KEY_OPERATION_UNKNOWN"},
        {"the numbers of the remainder form", AI_PKCS_RSAPrivate, crt_key, "BE_OK"},
        {"a public key", AI_PKCS_RSAPrivate, public_key, "BE_KEY_OPERATION_UNKNOWN"},
        {"a secret key", AI_PKCS_RSAPublic, secret, "BE_KEY_OPERATION_UNKNOWN"},
        {"an empty key", AI_PKCS_RSAPublic, empty, "BE_KEY_NOT_SET"},
        {"no key", AI_PKCS_RSAPublic, nullptr, "BE_KEY_OBJ"},
        {"a public key to sign", AI_MD5WithRSAEncryption, public_key, "BE_KEY_OPERATION_UNKNOWN"},
        {"no key to sign", AI_MD5WithRSAEncryption, nullptr, "BE_KEY_OBJ"},
    };
    for (const auto &row : cases) {
        const Algorithm_ object(row.type);
        const Step step = row.type == AI_MD5WithRSAEncryption ? Step::sign : Step::encrypt;
        EXPECT_EQ(error_name(begin(step, object, row.key)), row.expected) << row.reason;
    }
}

// Recoding.

TEST(Recoding, FitsTheRoomThatTheResultNeeds) {
    const std::string text = " Zm9v\r\n\tYmFy\n\n Zg==  \n";
    const Algorithm_ object(AI_RFC1113Recode);
    const auto length = static_cast<uint32_t>(text.size());
    for (uint32_t room = 0; room <= 7; ++room) {
        ASSERT_EQ(B_DecodeInit(object), BE_OK);
        Bytes out(room);
        uint32_t size = 99;
        const int error = B_DecodeUpdate(object, out.data(), &size, room,
                                         reinterpret_cast<const uint8_t *>(text.data()), length);
        EXPECT_EQ(error_name(error), room < 7 ? "BE_OUTPUT_LEN" : "BE_OK");
        EXPECT_EQ(size, room < 7 ? 0u : 7u);
        if (room == 7) {
            EXPECT_EQ(text_of(out), "foobarf");
            // Blanks behind the end write nothing and need no room.
            EXPECT_EQ(B_DecodeUpdate(object, nullptr, &size, 0, bytes_of(" \n  \n").data(), 5),
                      BE_OK);
            EXPECT_EQ(B_DecodeFinal(object, nullptr, &size, 0), BE_OK);
        }
    }
}

TEST(Recoding, FitsPaddingThatComesInTwoPieces) {
    const Algorithm_ object(AI_RFC1113Recode);
    uint8_t out[1];
    uint32_t size;
    ASSERT_EQ(B_DecodeInit(object), BE_OK);
    ASSERT_EQ(B_DecodeUpdate(object, out, &size, 0, bytes_of("Zg=").data(), 3), BE_OK);
    EXPECT_EQ(B_DecodeUpdate(object, out, &size, 0, bytes_of("=").data(), 1), BE_OUTPUT_LEN);
    ASSERT_EQ(B_DecodeUpdate(object, out, &size, 1, bytes_of("=").data(), 1), BE_OK);
    EXPECT_EQ(size, 1u);
    EXPECT_EQ(out[0], 'f');
}

TEST(Recoding, EndsOnBadData) {
    for (const char *text : {"Zm9*", "Zg==Zg==", "Zg=x", "Zh==", "====", "Zg\0=", "Zm9vZ"}) {
        SCOPED_TRACE(text);
        const Algorithm_ object(AI_RFC1113Recode);
        ASSERT_EQ(B_DecodeInit(object), BE_OK);
        uint8_t out[64];
        uint32_t size;
        int error = B_DecodeUpdate(object, out, &size, 64, reinterpret_cast<const uint8_t *>(text),
                                   static_cast<uint32_t>(std::string(text).size()));
        if (error == BE_OK)
            error = B_DecodeFinal(object, out, &size, 64);
        EXPECT_EQ(error_name(error), "BE_DATA");
        EXPECT_EQ(error_name(B_DecodeUpdate(object, out, &size, 64, out, 0)),
                  "BE_ALGORITHM_NOT_INITIALIZED");
    }
}

TEST(Generators, AreThoseOfTheirDigests) {
    const std::pair<B_INFO_TYPE, RandomDigest> rows[] = {{AI_MD2Random, RandomDigest::md2},
                                                         {AI_MD5Random, RandomDigest::md5}};
    for (const auto &[type, digest] : rows) {
        const Bytes seed = bytes_of("seed");
        Bytes bytes(40), expected(40);
        const Algorithm_ object(type);
        ASSERT_EQ(B_RandomInit(object, every_method, nullptr), BE_OK);
        ASSERT_EQ(B_RandomUpdate(object, seed.data(), 4, nullptr), BE_OK);
        ASSERT_EQ(B_GenerateRandomBytes(object, bytes.data(), 40, nullptr), BE_OK);
        DigestRandom random;
        digest_random_init(&random, digest);
        digest_random_seed(&random, seed.data(), seed.size());
        digest_random_bytes(&random, expected.data(), expected.size());
        EXPECT_EQ(to_hex(bytes), to_hex(expected));
    }
}

} // namespace
} // namespace toolkit
