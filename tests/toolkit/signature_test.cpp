// Signatures: against libcrypto, and forged blocks, each of them a block that lenient readers took.
#include "objects.h"
#include "support/digests.h"

namespace toolkit {
namespace {

const Bytes message = bytes_of("the message that is signed");

const Bytes md2_header = from_hex("3020 300c 06082a864886f70d0202 0500 0410");
const Bytes md5_header = from_hex("3020 300c 06082a864886f70d0205 0500 0410");

class Signatures : public testing::Test {
protected:
    const Key_ private_key{sample_private_key(), KI_PKCS_RSAPrivateBER};
    const Key_ public_key{sample_public_key(), KI_RSAPublicBER};

    Bytes sign(B_INFO_TYPE type, B_KEY_INFO_TYPE form = KI_PKCS_RSAPrivate) {
        POINTER numbers = nullptr;
        EXPECT_EQ(B_GetKeyInfo(&numbers, private_key, form), BE_OK);
        const Key_ key(form, numbers);
        const Algorithm_ object(type);
        EXPECT_EQ(begin(Step::sign, object, key), BE_OK);
        Bytes signature;
        EXPECT_EQ(feed(Step::sign, object, message, &signature), BE_OK);
        return signature;
    }

    // The private-key operation on a block as it stands.
    Bytes seal(const Bytes &block) {
        const Algorithm_ object(AI_RSAPrivate);
        EXPECT_EQ(begin(Step::encrypt, object, private_key), BE_OK);
        Bytes sealed;
        EXPECT_EQ(feed(Step::encrypt, object, block, &sealed), BE_OK);
        return sealed;
    }

    std::string verify(B_INFO_TYPE type, const Bytes &data, const Bytes &signature) {
        const Algorithm_ object(type);
        EXPECT_EQ(B_VerifyInit(object, public_key, every_method, nullptr), BE_OK);
        EXPECT_EQ(B_VerifyUpdate(object, data.data(), static_cast<uint32_t>(data.size()), nullptr),
                  BE_OK);
        return error_name(B_VerifyFinal(object, signature.data(),
                                        static_cast<uint32_t>(signature.size()), nullptr, nullptr));
    }
};

// 00 type FF .. FF 00 contents, of 128 bytes.
Bytes block_of(const Bytes &contents, uint8_t type = 1) {
    Bytes block = {0, type};
    block.resize(128 - contents.size() - 1, 0xff);
    block.push_back(0);
    return block + contents;
}

TEST_F(Signatures, AreThoseOfLibcrypto) {
    const Bytes expected = RsaKey::of_1024_bits().sign_md5(md5(message));
    for (const B_KEY_INFO_TYPE form : {KI_PKCS_RSAPrivate, KI_RSA_CRT, KI_RSAPrivate})
        EXPECT_EQ(to_hex(sign(AI_MD5WithRSAEncryption, form)), to_hex(expected));
    EXPECT_EQ(verify(AI_MD5WithRSAEncryption, message, expected), "BE_OK");
    // MD2 is not in libcrypto: the block is spelled out.
    EXPECT_EQ(to_hex(sign(AI_MD2WithRSAEncryption)),
              to_hex(seal(block_of(md2_header + md2(message)))));
}

TEST_F(Signatures, VerifyForTheirMessageAndAlgorithmOnly) {
    const Bytes md2 = sign(AI_MD2WithRSAEncryption), md5 = sign(AI_MD5WithRSAEncryption);
    EXPECT_EQ(verify(AI_MD2WithRSAEncryption, message, md2), "BE_OK");
    EXPECT_EQ(verify(AI_MD5WithRSAEncryption, message, md5), "BE_OK");
    EXPECT_EQ(verify(AI_MD5WithRSAEncryption, message, md2), "BE_SIGNATURE");
    EXPECT_EQ(verify(AI_MD2WithRSAEncryption, message, md5), "BE_SIGNATURE");
    EXPECT_EQ(verify(AI_MD5WithRSAEncryption, message + Bytes{0}, md5), "BE_SIGNATURE");
    EXPECT_EQ(verify(AI_MD5WithRSAEncryption, message, Bytes{0} + md5), "BE_SIGNATURE");
    EXPECT_EQ(verify(AI_MD5WithRSAEncryption, message, md5 + Bytes{0}), "BE_SIGNATURE");
    EXPECT_EQ(verify(AI_MD5WithRSAEncryption, message, Bytes(128, 0xff)), "BE_SIGNATURE");
    each_spoiled(md5, [&](const Bytes &spoiled, const std::string &what) {
        ASSERT_EQ(verify(AI_MD5WithRSAEncryption, message, spoiled), "BE_SIGNATURE") << what;
    });
}

TEST_F(Signatures, AreRefusedWhenForged) {
    const Bytes digest = md5(message), info = md5_header + digest;
    Bytes late_zero = block_of(info);
    late_zero[40] = 0;
    const Bytes garbage(60, 0x5a);
    Bytes short_padding = Bytes{0, 1} + Bytes(8, 0xff) + Bytes{0} + info;
    short_padding.resize(128, 0x5a); // garbage behind the DigestInfo
    Bytes inside = from_hex("305c 300c 06082a864886f70d0205 0500 0410") + digest + garbage;
    const Bytes parameters =
        from_hex("305c 3048 06082a864886f70d0205 043c") + garbage + from_hex("0410") + digest;
    const struct {
        const char *reason;
        Bytes block;
    } cases[] = {
        {"garbage behind the DigestInfo, padding cut short", short_padding},
        {"garbage inside the DigestInfo, behind the digest", block_of(inside)},
        {"garbage as the algorithm's parameters", block_of(parameters)},
        {"no parameters at all",
         block_of(from_hex("301e 300a 06082a864886f70d0205 0410") + digest)},
        {"a DigestInfo with long lengths",
         block_of(from_hex("308120 300c 06082a864886f70d0205 0500 0410") + digest)},
        {"a DigestInfo of indefinite length", block_of(from_hex("3080 300c 06082a864886f70d0205 "
                                                                "0500 0410") +
                                                       digest + Bytes{0, 0})},
        {"the bare digest", block_of(digest)},
        {"a zero that ends the padding early", late_zero},
        {"block type 2", block_of(info, 2)},
        {"another algorithm's name on this digest",
         block_of(from_hex("3020 300c 06082a864886f70d0202 0500 0410") + digest)},
        {"another digest", block_of(md5_header + md5(garbage))},
    };
    EXPECT_EQ(verify(AI_MD5WithRSAEncryption, message, seal(block_of(info))), "BE_OK");
    for (const auto &row : cases) {
        ASSERT_EQ(row.block.size(), 128u) << row.reason;
        EXPECT_EQ(verify(AI_MD5WithRSAEncryption, message, seal(row.block)), "BE_SIGNATURE")
            << row.reason;
    }
    for (std::size_t i = 0; i < 128 - digest.size(); ++i) {
        Bytes block = block_of(info);
        block[i] ^= 1;
        ASSERT_EQ(verify(AI_MD5WithRSAEncryption, message, seal(block)), "BE_SIGNATURE")
            << "byte " << i;
    }
}

// The same key serves message after message, whatever became of the one before.
TEST_F(Signatures, BeginAnewAfterEachFinal) {
    const Bytes good = sign(AI_MD5WithRSAEncryption);
    const Algorithm_ object(AI_MD5WithRSAEncryption);
    ASSERT_EQ(B_VerifyInit(object, public_key, every_method, nullptr), BE_OK);
    for (const bool spoil : {false, true, false, true, true, false}) {
        Bytes signature = good;
        signature[100] ^= spoil ? 1 : 0;
        ASSERT_EQ(
            B_VerifyUpdate(object, message.data(), static_cast<uint32_t>(message.size()), nullptr),
            BE_OK);
        EXPECT_EQ(error_name(B_VerifyFinal(object, signature.data(), 128, nullptr, nullptr)),
                  spoil ? "BE_SIGNATURE" : "BE_OK");
    }
}

TEST(SignatureKeys, MustHaveRoomForTheDigestInfo) {
    // PKCS#1 leaves 11 bytes of a block to the padding; the DigestInfo has 34.
    for (const uint32_t bits : {352u, 353u}) { // 44 bytes, 45 bytes
        SCOPED_TRACE(bits);
        uint8_t exponent[] = {1, 0, 1};
        const A_RSA_KEY_GEN_PARAMS params = {bits, {exponent, sizeof exponent}};
        const Algorithm_ generation(AI_RSAKeyGen, &params), object(AI_MD5WithRSAEncryption);
        const Key_ public_key, private_key;
        const Random_ random;
        ASSERT_EQ(B_GenerateInit(generation, every_method, nullptr), BE_OK);
        ASSERT_EQ(
            error_name(B_GenerateKeypair(generation, public_key, private_key, random, nullptr)),
            "BE_OK");
        const char *expected = bits == 352 ? "BE_MODULUS_LEN" : "BE_OK";
        EXPECT_EQ(error_name(B_SignInit(object, private_key, every_method, nullptr)), expected);
        EXPECT_EQ(error_name(B_VerifyInit(object, public_key, every_method, nullptr)), expected);
    }
}

} // namespace
} // namespace toolkit
