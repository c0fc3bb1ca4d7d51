// Algorithm infos: encodings and texts in both directions, and what is refused.
#include "objects.h"

#include <cstring>

namespace toolkit {
namespace {

const Bytes iv = from_hex("0123456789abcdef");
const std::string iv_hex = "0123456789abcdef";

template <class Record> std::string spell(const Record &record);

template <> std::string spell(const A_RC2_CBC_PARAMS &record) {
    return std::to_string(record.effectiveKeyBits) + " " + to_hex(record.iv, 8);
}

template <> std::string spell(const A_PBE_PARAMS &record) {
    return to_hex(record.salt, 8) + " " + std::to_string(record.iterationCount);
}

template <> std::string spell(const A_RC2_PBE_PARAMS &record) {
    return std::to_string(record.effectiveKeyBits) + " " + to_hex(record.salt, 8) + " " +
           std::to_string(record.iterationCount);
}

// What the object gives for the type, spelled out.
std::string read(B_ALGORITHM_OBJ object, B_INFO_TYPE type) {
    POINTER info;
    if (const int error = B_GetAlgorithmInfo(&info, object, type); error != BE_OK)
        return error_name(error);
    if (info == nullptr)
        return "nothing";
    if (type == AI_RC2_CBC || type == AI_RC2_CBCPad)
        return spell(*static_cast<const A_RC2_CBC_PARAMS *>(info));
    if (type == AI_MD2WithDES_CBCPad || type == AI_MD5WithDES_CBCPad)
        return spell(*static_cast<const A_PBE_PARAMS *>(info));
    if (type == AI_MD2WithRC2_CBCPad || type == AI_MD5WithRC2_CBCPad)
        return spell(*static_cast<const A_RC2_PBE_PARAMS *>(info));
    if (type == AI_DES_CBCPadIV8 || type == AI_DES_EDE3_CBCPadIV8 || type == AI_DESX_CBCPadIV8)
        return to_hex(static_cast<const uint8_t *>(info), 8);
    if (type == AI_DES_CBCPadPEM || type == AI_RC2_CBCPadPEM || type == AI_MD2_PEM ||
        type == AI_MD5_PEM || type == AI_PKCS_RSAPublicPEM || type == AI_PKCS_RSAPrivatePEM)
        return static_cast<const char *>(info);
    return to_hex(bytes_of_item(*static_cast<const ITEM *>(info)));
}

// hex is an encoding, or a text where the type is one of texts.
int set(B_ALGORITHM_OBJ object, B_INFO_TYPE type, const std::string &value, bool is_text) {
    if (is_text)
        return B_SetAlgorithmInfo(object, type, value.c_str());
    const Bytes bytes = from_hex(value);
    const ITEM item = item_of(bytes);
    return B_SetAlgorithmInfo(object, type, &item);
}

std::string compact(std::string text) {
    std::erase(text, ' ');
    return text;
}

TEST(AlgorithmInfos, AreTheSameAlgorithmInEachForm) {
    struct Form {
        B_INFO_TYPE type;
        std::string value;
        bool is_text = false;
    };
    const struct {
        const char *reason;
        Form encoding;
        std::vector<Form> others;
    } cases[] = {
        {"desCBC",
         {AI_DES_CBCPadBER, "3011 0605 2b0e030207 0408 0123456789abcdef"},
         {{AI_DES_CBCPadIV8, iv_hex}, {AI_DES_CBCPadPEM, "DES-CBC,0123456789ABCDEF", true}}},
        {"DES-EDE3-CBC",
         {AI_DES_EDE3_CBCPadBER, "3014 0608 2a864886f70d0307 0408 0123456789abcdef"},
         {{AI_DES_EDE3_CBCPadIV8, iv_hex}}},
        {"DESX-CBC",
         {AI_DESX_CBCPadBER, "3014 0608 2a864886f70d0306 0408 0123456789abcdef"},
         {{AI_DESX_CBCPadIV8, iv_hex}}},
        {"rc2CBC, 40 bits",
         {AI_RC2_CBCPadBER, "301a 0608 2a864886f70d0302 300e 0202 00a0 0408 0123456789abcdef"},
         {{AI_RC2_CBCPad, "40 " + iv_hex},
          {AI_RC2_CBCPadPEM, "RC2-CBC,40,0123456789ABCDEF", true}}},
        {"rc2CBC, 64 bits",
         {AI_RC2_CBCPadBER, "3019 0608 2a864886f70d0302 300d 0201 78 0408 0123456789abcdef"},
         {{AI_RC2_CBCPad, "64 " + iv_hex},
          {AI_RC2_CBCPadPEM, "RC2-CBC,64,0123456789ABCDEF", true}}},
        {"rc2CBC, 128 bits",
         {AI_RC2_CBCPadBER, "3019 0608 2a864886f70d0302 300d 0201 3a 0408 0123456789abcdef"},
         {{AI_RC2_CBCPad, "128 " + iv_hex}}},
        {"rc2CBC, as many bits as its version says",
         {AI_RC2_CBCPadBER, "301a 0608 2a864886f70d0302 300e 0202 0400 0408 0123456789abcdef"},
         {{AI_RC2_CBCPad, "1024 " + iv_hex},
          {AI_RC2_CBCPadPEM, "RC2-CBC,1024,0123456789ABCDEF", true}}},
        {"rc4", {AI_RC4_BER, "300c 0608 2a864886f70d0304 0500"}, {{AI_RC4, "nothing"}}},
        {"md2",
         {AI_MD2_BER, "300c 0608 2a864886f70d0202 0500"},
         {{AI_MD2, "nothing"}, {AI_MD2_PEM, "RSA-MD2", true}}},
        {"md5",
         {AI_MD5_BER, "300c 0608 2a864886f70d0205 0500"},
         {{AI_MD5, "nothing"}, {AI_MD5_PEM, "RSA-MD5", true}}},
        {"rsaEncryption, public",
         {AI_PKCS_RSAPublicBER, "300d 0609 2a864886f70d010101 0500"},
         {{AI_PKCS_RSAPublic, "nothing"}, {AI_PKCS_RSAPublicPEM, "RSA", true}}},
        {"rsaEncryption, private",
         {AI_PKCS_RSAPrivateBER, "300d 0609 2a864886f70d010101 0500"},
         {{AI_PKCS_RSAPrivate, "nothing"}, {AI_PKCS_RSAPrivatePEM, "RSA", true}}},
        {"md2WithRSAEncryption",
         {AI_MD2WithRSAEncryptionBER, "300d 0609 2a864886f70d010102 0500"},
         {{AI_MD2WithRSAEncryption, "nothing"}}},
        {"md5WithRSAEncryption",
         {AI_MD5WithRSAEncryptionBER, "300d 0609 2a864886f70d010104 0500"},
         {{AI_MD5WithRSAEncryption, "nothing"}}},
        {"pbeWithMD2AndDES-CBC",
         {AI_MD2WithDES_CBCPadBER,
          "301b 0609 2a864886f70d010501 300e 0408 0123456789abcdef 0202 0400"},
         {{AI_MD2WithDES_CBCPad, iv_hex + " 1024"}}},
        {"pbeWithMD5AndDES-CBC",
         {AI_MD5WithDES_CBCPadBER,
          "301c 0609 2a864886f70d010503 300f 0408 0123456789abcdef 0203 00ffff"},
         {{AI_MD5WithDES_CBCPad, iv_hex + " 65535"}}},
        {"pbeWithMD2AndRC2-CBC",
         {AI_MD2WithRC2_CBCPadBER,
          "301a 0609 2a864886f70d010504 300d 0408 0123456789abcdef 0201 01"},
         {{AI_MD2WithRC2_CBCPad, "64 " + iv_hex + " 1"}}},
        {"pbeWithMD5AndRC2-CBC",
         {AI_MD5WithRC2_CBCPadBER,
          "301e 0609 2a864886f70d010506 3011 0408 0123456789abcdef 0205 00ffffffff"},
         {{AI_MD5WithRC2_CBCPad, "64 " + iv_hex + " 4294967295"}}},
        {"dhKeyAgreement, with a length",
         {AI_DHKeyAgreeBER, "3017 0609 2a864886f70d010301 300a 0202 00b3 0201 05 0201 07"},
         {}},
        {"dhKeyAgreement, without",
         {AI_DHKeyAgreeBER, "3014 0609 2a864886f70d010301 3007 0202 00b3 0201 05"},
         {}},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.reason);
        Algorithm_ object;
        ASSERT_EQ(error_name(set(object, row.encoding.type, row.encoding.value, false)), "BE_OK");
        EXPECT_EQ(read(object, row.encoding.type), compact(row.encoding.value));
        for (const Form &form : row.others) {
            EXPECT_EQ(read(object, form.type), form.value);
            if (!form.is_text)
                continue;
            Algorithm_ from_text;
            ASSERT_EQ(error_name(set(from_text, form.type, form.value, true)), "BE_OK");
            EXPECT_EQ(read(from_text, row.encoding.type), compact(row.encoding.value));
        }
    }
}

TEST(AlgorithmInfos, AreReadInOtherFormsToo) {
    const struct {
        const char *reason;
        B_INFO_TYPE type;
        const char *value;
        bool is_text;
        B_INFO_TYPE as;
        const char *expected;
    } cases[] = {
        {"a bare IV means 32 bits", AI_RC2_CBCPadBER,
         "3014 0608 2a864886f70d0302 0408 0123456789abcdef", false, AI_RC2_CBCPad,
         "32 0123456789abcdef"},
        {"no parameters for NULL", AI_MD5_BER, "300a 0608 2a864886f70d0205", false, AI_MD5_BER,
         "300c06082a864886f70d02050500"},
        {"indefinite lengths", AI_RC2_CBCPadBER,
         "3080 0608 2a864886f70d0302 3080 0202 00a0 0408 0123456789abcdef 0000 0000", false,
         AI_RC2_CBCPad, "40 0123456789abcdef"},
        {"digits of either case", AI_DES_CBCPadPEM, "DES-CBC,0123456789abcdEF", true,
         AI_DES_CBCPadIV8, "0123456789abcdef"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.reason);
        Algorithm_ object;
        ASSERT_EQ(error_name(set(object, row.type, row.value, row.is_text)), "BE_OK");
        EXPECT_EQ(read(object, row.as), row.expected);
    }
}

TEST(AlgorithmInfos, RefuseWhatIsMalformed) {
    const struct {
        const char *reason;
        B_INFO_TYPE type;
        const char *value;
        bool is_text = false;
        const char *expected = "BE_DATA";
    } cases[] = {
        {"another algorithm", AI_DES_CBCPadBER, "3014 0608 2a864886f70d0307 0408 0123456789abcdef"},
        {"an IV of 7 bytes", AI_DES_CBCPadBER, "3010 0605 2b0e030207 0407 0123456789abcd"},
        {"an IV of 9 bytes", AI_DES_CBCPadBER, "3012 0605 2b0e030207 0409 0123456789abcdef00"},
        {"no IV", AI_DES_CBCPadBER, "3007 0605 2b0e030207"},
        {"bytes behind the IV", AI_DES_CBCPadBER,
         "3013 0605 2b0e030207 0408 0123456789abcdef 0500"},
        {"bytes behind the whole", AI_DES_CBCPadBER,
         "3011 0605 2b0e030207 0408 0123456789abcdef 00"},
        {"a version that stands for no size", AI_RC2_CBCPadBER,
         "301a 0608 2a864886f70d0302 300e 0202 0401 0408 0123456789abcdef"},
        {"a version of 33 bits", AI_RC2_CBCPadBER,
         "301d 0608 2a864886f70d0302 3011 0205 0100000040 0408 0123456789abcdef"},
        {"no version", AI_RC2_CBCPadBER, "3016 0608 2a864886f70d0302 300a 0408 0123456789abcdef"},
        {"parameters for rc4", AI_RC4_BER, "300d 0608 2a864886f70d0304 0201 01"},
        {"a salt of 7 bytes", AI_MD5WithDES_CBCPadBER,
         "3019 0609 2a864886f70d010503 300c 0407 0123456789abcd 0201 01"},
        {"no iterations", AI_MD5WithDES_CBCPadBER,
         "301a 0609 2a864886f70d010503 300d 0408 0123456789abcdef 0201 00", false,
         "BE_ALGORITHM_INFO"},
        {"a prime of 0", AI_DHKeyAgreeBER, "3013 0609 2a864886f70d010301 3006 0201 00 0201 05",
         false, "BE_ALGORITHM_INFO"},
        {"an empty sequence", AI_MD5_BER, "3000"},
        {"another name", AI_DES_CBCPadPEM, "DES-EDE,0123456789ABCDEF", true},
        {"no comma", AI_DES_CBCPadPEM, "DES-CBC0123456789ABCDEF", true},
        {"the name alone", AI_DES_CBCPadPEM, "DES-CBC", true},
        {"15 digits", AI_DES_CBCPadPEM, "DES-CBC,0123456789ABCDE", true},
        {"17 digits", AI_DES_CBCPadPEM, "DES-CBC,0123456789ABCDEF0", true},
        {"a character that is no digit", AI_DES_CBCPadPEM, "DES-CBC,0123456789ABCDEG", true},
        {"no size", AI_RC2_CBCPadPEM, "RC2-CBC,,0123456789ABCDEF", true},
        {"a size of 0", AI_RC2_CBCPadPEM, "RC2-CBC,0,0123456789ABCDEF", true},
        {"a size with a leading 0", AI_RC2_CBCPadPEM, "RC2-CBC,040,0123456789ABCDEF", true},
        {"a size of 1025", AI_RC2_CBCPadPEM, "RC2-CBC,1025,0123456789ABCDEF", true},
        {"a size beyond 32 bits", AI_RC2_CBCPadPEM, "RC2-CBC,4294967336,0123456789ABCDEF", true},
        {"something behind a name that has no parameters", AI_MD5_PEM, "RSA-MD5,", true},
        {"a name cut short", AI_MD5_PEM, "RSA-MD", true},
    };
    for (const auto &row : cases) {
        Algorithm_ object;
        EXPECT_EQ(error_name(set(object, row.type, row.value, row.is_text)), row.expected)
            << row.reason;
        EXPECT_EQ(read(object, AI_MD5), "BE_ALGORITHM_NOT_SET") << row.reason;
    }
}

TEST(AlgorithmInfos, RefuseRecordsOutOfRange) {
    const A_RC2_CBC_PARAMS rc2_0 = {0, iv.data()}, rc2_1025 = {1025, iv.data()},
                           rc2_no_iv = {40, nullptr};
    const A_PBE_PARAMS pbe_no_salt = {nullptr, 1}, pbe_0 = {iv.data(), 0};
    const A_RC2_PBE_PARAMS rc2_pbe_0 = {0, iv.data(), 1}, rc2_pbe_1025 = {1025, iv.data(), 1};
    uint8_t three = 3, four = 4;
    uint8_t one = 1, full[64];
    std::fill_n(full, 64, uint8_t{0xff});
    const A_RSA_KEY_GEN_PARAMS rsa_255 = {255, {&three, 1}}, rsa_16385 = {16385, {&three, 1}},
                               rsa_even = {512, {&four, 1}}, rsa_none = {512, {nullptr, 0}},
                               rsa_1 = {512, {&one, 1}}, rsa_long = {512, {full, 64}};
    const A_DH_KEY_AGREE_PARAMS dh_no_base = {{&three, 1}, {nullptr, 0}, 0};
    const A_SECRET_SHARING_PARAMS none_needed = {0, 1}, too_many_needed = {3, 2},
                                  too_many = {2, 256};
    const struct {
        const char *reason;
        B_INFO_TYPE type;
        POINTER info;
    } cases[] = {
        {"0 effective bits", AI_RC2_CBCPad, &rc2_0},
        {"1025 effective bits", AI_RC2_CBC, &rc2_1025},
        {"no IV", AI_RC2_CBCPad, &rc2_no_iv},
        {"no salt", AI_MD5WithDES_CBCPad, &pbe_no_salt},
        {"no iterations", AI_MD5WithDES_CBCPad, &pbe_0},
        {"0 effective bits", AI_MD2WithRC2_CBCPad, &rc2_pbe_0},
        {"1025 effective bits", AI_MD2WithRC2_CBCPad, &rc2_pbe_1025},
        {"255 bits", AI_RSAKeyGen, &rsa_255},
        {"16385 bits", AI_RSAKeyGen, &rsa_16385},
        {"an even exponent", AI_RSAKeyGen, &rsa_even},
        {"exponent 1", AI_RSAKeyGen, &rsa_1},
        {"an exponent as long as the modulus", AI_RSAKeyGen, &rsa_long},
        {"no exponent", AI_RSAKeyGen, &rsa_none},
        {"no base", AI_DHKeyAgree, &dh_no_base},
        {"a digest that is none", AI_MD, AI_RC4},
        {"no digest", AI_MD, nullptr},
        {"a threshold of 0", AI_BSSecretSharing, &none_needed},
        {"more needed than made", AI_BSSecretSharing, &too_many_needed},
        {"256 shares", AI_BSSecretSharing, &too_many},
    };
    for (const auto &row : cases) {
        Algorithm_ object;
        EXPECT_EQ(error_name(B_SetAlgorithmInfo(object, row.type, row.info)), "BE_ALGORITHM_INFO")
            << row.reason;
    }
    // The identifier of PKCS#5 means 64 bits, whatever the object was given.
    const A_RC2_PBE_PARAMS rc2_pbe_40 = {40, iv.data(), 1};
    Algorithm_ object(AI_MD5WithRC2_CBCPad, &rc2_pbe_40);
    EXPECT_EQ(read(object, AI_MD5WithRC2_CBCPadBER), "BE_ALGORITHM_INFO");
}

TEST(AlgorithmInfos, SpoiledEncodingsGiveAStatus) {
    const struct {
        B_INFO_TYPE type;
        const char *value;
    } encodings[] = {
        {AI_RC2_CBCPadBER, "301a 0608 2a864886f70d0302 300e 0202 00a0 0408 0123456789abcdef"},
        {AI_MD5WithDES_CBCPadBER,
         "301b 0609 2a864886f70d010503 300e 0408 0123456789abcdef 0202 0400"},
        {AI_DHKeyAgreeBER, "3017 0609 2a864886f70d010301 300a 0202 00b3 0201 05 0201 07"},
        {AI_RC2_CBCPadBER,
         "3080 0608 2a864886f70d0302 3080 0202 00a0 0408 0123456789abcdef 0000 0000"},
    };
    for (const auto &encoding : encodings) {
        const Bytes good = from_hex(encoding.value);
        each_spoiled(good, [&](const Bytes &spoiled, const std::string &what) {
            Algorithm_ object;
            const ITEM item = item_of(spoiled);
            const std::string status = error_name(B_SetAlgorithmInfo(object, encoding.type, &item));
            EXPECT_TRUE(status == "BE_OK" || status == "BE_DATA" || status == "BE_ALGORITHM_INFO")
                << what << ": " << status;
            if (status == "BE_OK") {
                EXPECT_EQ(spoiled.size(), good.size()) << what;
            }
        });
    }
}

// Indefinite lengths inside one another are read to a depth and no deeper.
TEST(AlgorithmInfos, BoundNesting) {
    for (const std::size_t depth : {4u, 40u, 5000000u}) {
        Bytes nested;
        for (std::size_t i = 0; i < depth; ++i)
            nested.insert(nested.end(), {0x30, 0x80});
        nested.insert(nested.end(), 2 * depth, 0);
        Algorithm_ object;
        const ITEM item = item_of(nested);
        EXPECT_EQ(error_name(B_SetAlgorithmInfo(object, AI_MD5_BER, &item)), "BE_DATA");
    }
}

// DigestInfo.

TEST(DigestInfo, IsWrittenAndRead) {
    const Bytes identifier = from_hex("300c 0608 2a864886f70d0205 0500"),
                digest = from_hex("00112233445566778899aabbccddeeff");
    const std::string expected = "3020300c06082a864886f70d020505000410" + to_hex(digest);
    const ITEM item = item_of(identifier);
    uint8_t out[64] = {};
    uint32_t size = 99;
    EXPECT_EQ(error_name(B_EncodeDigestInfo(out, &size, 33, &item, digest.data(), 16)),
              "BE_OUTPUT_LEN");
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(out[33 - 1], 0);
    ASSERT_EQ(error_name(B_EncodeDigestInfo(out, &size, 34, &item, digest.data(), 16)), "BE_OK");
    EXPECT_EQ(to_hex(out, size), expected);
    ITEM algorithm, found;
    ASSERT_EQ(error_name(B_DecodeDigestInfo(&algorithm, &found, out, size)), "BE_OK");
    EXPECT_EQ(to_hex(bytes_of_item(algorithm)), to_hex(identifier));
    EXPECT_EQ(to_hex(bytes_of_item(found)), to_hex(digest));
    const Bytes broken = from_hex("300c 0608 2a864886f70d02");
    const ITEM broken_item = item_of(broken);
    EXPECT_EQ(error_name(B_EncodeDigestInfo(out, &size, 64, &broken_item, digest.data(), 16)),
              "BE_ALGORITHM_INFO");
    EXPECT_EQ(error_name(B_EncodeDigestInfo(out, &size, 64, &item, nullptr, 16)), "BE_INPUT_LEN");
}

TEST(DigestInfo, RefusesWhatIsNone) {
    const struct {
        const char *reason;
        const char *encoding;
    } cases[] = {
        {"nothing", ""},
        {"no digest", "300e 300c 0608 2a864886f70d0205 0500"},
        {"bytes behind the whole", "3012 300c 0608 2a864886f70d0205 0500 0402 aabb 00"},
        {"bytes behind the digest", "3014 300c 0608 2a864886f70d0205 0500 0402 aabb 0500"},
        {"a digest that ends outside", "3011 300c 0608 2a864886f70d0205 0500 0402 aa"},
        {"a digest that is no octet string", "3012 300c 0608 2a864886f70d0205 0500 0302 aabb"},
        {"no identifier in the algorithm", "3008 3002 0500 0402 aabb"},
    };
    for (const auto &row : cases) {
        const Bytes bytes = from_hex(row.encoding);
        ITEM algorithm, digest;
        EXPECT_EQ(error_name(B_DecodeDigestInfo(&algorithm, &digest, bytes.data(),
                                                static_cast<uint32_t>(bytes.size()))),
                  "BE_DATA")
            << row.reason;
        EXPECT_EQ(digest.data, nullptr) << row.reason;
    }
}

} // namespace
} // namespace toolkit
