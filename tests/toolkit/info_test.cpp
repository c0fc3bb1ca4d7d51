// Algorithm infos: encodings and texts in both directions, and what is refused.
#include "objects.h"
#include "support/ber.h"

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

// Of an encoding, or of a text.
int set(B_ALGORITHM_OBJ object, B_INFO_TYPE type, const Bytes &encoding) {
    const ITEM item = item_of(encoding);
    return B_SetAlgorithmInfo(object, type, &item);
}
int set(B_ALGORITHM_OBJ object, B_INFO_TYPE type, const char *text) {
    return B_SetAlgorithmInfo(object, type, text);
}

// Identifiers of algorithms, parameters, and the encodings of both together.
const std::string des = "2b0e030207", des3 = "2a864886f70d0307", desx = "2a864886f70d0306",
                  rc2 = "2a864886f70d0302", rc4 = "2a864886f70d0304", md2 = "2a864886f70d0202",
                  md5 = "2a864886f70d0205", pkcs1 = "2a864886f70d0101", dh = "2a864886f70d010301",
                  pkcs5 = "2a864886f70d0105";
const std::string null = "0500", octets = "0408 0123456789abcdef";

Bytes encoded(const std::string &identifier, const std::string &parameters) {
    return ber("30{06{" + identifier + "}" + parameters + "}");
}

TEST(AlgorithmInfos, AreTheSameAlgorithmInEachForm) {
    const struct {
        const char *reason;
        B_INFO_TYPE type;
        Bytes encoding;
        B_INFO_TYPE record_type = nullptr;
        std::string record = "nothing";
        B_INFO_TYPE text_type = nullptr;
        const char *text = nullptr;
    } cases[] = {
        {"desCBC", AI_DES_CBCPadBER, encoded(des, octets), AI_DES_CBCPadIV8, iv_hex,
         AI_DES_CBCPadPEM, "DES-CBC,0123456789ABCDEF"},
        {"DES-EDE3-CBC", AI_DES_EDE3_CBCPadBER, encoded(des3, octets), AI_DES_EDE3_CBCPadIV8,
         iv_hex},
        {"DESX-CBC", AI_DESX_CBCPadBER, encoded(desx, octets), AI_DESX_CBCPadIV8, iv_hex},
        {"rc2CBC, 40 bits", AI_RC2_CBCPadBER, encoded(rc2, "30{0202 00a0" + octets + "}"),
         AI_RC2_CBCPad, "40 " + iv_hex, AI_RC2_CBCPadPEM, "RC2-CBC,40,0123456789ABCDEF"},
        {"rc2CBC, 64 bits", AI_RC2_CBCPadBER, encoded(rc2, "30{0201 78" + octets + "}"),
         AI_RC2_CBCPad, "64 " + iv_hex, AI_RC2_CBCPadPEM, "RC2-CBC,64,0123456789ABCDEF"},
        {"rc2CBC, 128 bits", AI_RC2_CBCPadBER, encoded(rc2, "30{0201 3a" + octets + "}"),
         AI_RC2_CBCPad, "128 " + iv_hex},
        {"rc2CBC, as many bits as its version says", AI_RC2_CBCPadBER,
         encoded(rc2, "30{0202 0400" + octets + "}"), AI_RC2_CBCPad, "1024 " + iv_hex,
         AI_RC2_CBCPadPEM, "RC2-CBC,1024,0123456789ABCDEF"},
        {"rc4", AI_RC4_BER, encoded(rc4, null), AI_RC4},
        {"md2", AI_MD2_BER, encoded(md2, null), AI_MD2, "nothing", AI_MD2_PEM, "RSA-MD2"},
        {"md5", AI_MD5_BER, encoded(md5, null), AI_MD5, "nothing", AI_MD5_PEM, "RSA-MD5"},
        {"rsaEncryption, public", AI_PKCS_RSAPublicBER, encoded(pkcs1 + "01", null),
         AI_PKCS_RSAPublic, "nothing", AI_PKCS_RSAPublicPEM, "RSA"},
        {"rsaEncryption, private", AI_PKCS_RSAPrivateBER, encoded(pkcs1 + "01", null),
         AI_PKCS_RSAPrivate, "nothing", AI_PKCS_RSAPrivatePEM, "RSA"},
        {"md2WithRSAEncryption", AI_MD2WithRSAEncryptionBER, encoded(pkcs1 + "02", null),
         AI_MD2WithRSAEncryption},
        {"md5WithRSAEncryption", AI_MD5WithRSAEncryptionBER, encoded(pkcs1 + "04", null),
         AI_MD5WithRSAEncryption},
        {"pbeWithMD2AndDES-CBC", AI_MD2WithDES_CBCPadBER,
         encoded(pkcs5 + "01", "30{" + octets + "0202 0400}"), AI_MD2WithDES_CBCPad,
         iv_hex + " 1024"},
        {"pbeWithMD5AndDES-CBC", AI_MD5WithDES_CBCPadBER,
         encoded(pkcs5 + "03", "30{" + octets + "0203 00ffff}"), AI_MD5WithDES_CBCPad,
         iv_hex + " 65535"},
        {"pbeWithMD2AndRC2-CBC", AI_MD2WithRC2_CBCPadBER,
         encoded(pkcs5 + "04", "30{" + octets + "0201 01}"), AI_MD2WithRC2_CBCPad,
         "64 " + iv_hex + " 1"},
        {"pbeWithMD5AndRC2-CBC", AI_MD5WithRC2_CBCPadBER,
         encoded(pkcs5 + "06", "30{" + octets + "0205 00ffffffff}"), AI_MD5WithRC2_CBCPad,
         "64 " + iv_hex + " 4294967295"},
        {"dhKeyAgreement, with a length", AI_DHKeyAgreeBER,
         encoded(dh, "30{0202 00b3 0201 05 0201 07}")},
        {"dhKeyAgreement, without", AI_DHKeyAgreeBER, encoded(dh, "30{0202 00b3 0201 05}")},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.reason);
        const Algorithm_ object;
        ASSERT_EQ(error_name(set(object, row.type, row.encoding)), "BE_OK");
        EXPECT_EQ(read(object, row.type), to_hex(row.encoding));
        if (row.record_type != nullptr) {
            EXPECT_EQ(read(object, row.record_type), row.record);
        }
        if (row.text == nullptr)
            continue;
        EXPECT_EQ(read(object, row.text_type), row.text);
        const Algorithm_ from_text;
        ASSERT_EQ(error_name(set(from_text, row.text_type, row.text)), "BE_OK");
        EXPECT_EQ(read(from_text, row.type), to_hex(row.encoding));
    }
}

TEST(AlgorithmInfos, AreReadInOtherFormsToo) {
    const struct {
        const char *reason;
        B_INFO_TYPE type;
        Bytes encoding;
        B_INFO_TYPE as;
        const char *expected;
    } cases[] = {
        {"a bare IV means 32 bits", AI_RC2_CBCPadBER, encoded(rc2, octets), AI_RC2_CBCPad,
         "32 0123456789abcdef"},
        {"no parameters for NULL", AI_MD5_BER, encoded(md5, ""), AI_MD5_BER,
         "300c06082a864886f70d02050500"},
        {"indefinite lengths", AI_RC2_CBCPadBER,
         ber("3080 06{" + rc2 + "} 3080 0202 00a0" + octets + "0000 0000"), AI_RC2_CBCPad,
         "40 0123456789abcdef"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.reason);
        const Algorithm_ object;
        ASSERT_EQ(error_name(set(object, row.type, row.encoding)), "BE_OK");
        EXPECT_EQ(read(object, row.as), row.expected);
    }
    const Algorithm_ object;
    ASSERT_EQ(error_name(set(object, AI_DES_CBCPadPEM, "DES-CBC,0123456789abcdEF")), "BE_OK");
    EXPECT_EQ(read(object, AI_DES_CBCPadIV8), iv_hex) << "digits of either case";
}

TEST(AlgorithmInfos, RefuseWhatIsMalformed) {
    const struct {
        const char *reason;
        B_INFO_TYPE type;
        Bytes encoding;
        const char *expected = "BE_DATA";
    } encodings[] = {
        {"another algorithm", AI_DES_CBCPadBER, encoded(des3, octets)},
        {"an IV of 7 bytes", AI_DES_CBCPadBER, encoded(des, "0407 0123456789abcd")},
        {"an IV of 9 bytes", AI_DES_CBCPadBER, encoded(des, "0409 0123456789abcdef00")},
        {"no IV", AI_DES_CBCPadBER, encoded(des, "")},
        {"bytes behind the IV", AI_DES_CBCPadBER, encoded(des, octets + null)},
        {"bytes behind the whole", AI_DES_CBCPadBER, encoded(des, octets) + Bytes{0}},
        {"a version that stands for no size", AI_RC2_CBCPadBER,
         encoded(rc2, "30{0202 0401" + octets + "}")},
        {"a version of 33 bits", AI_RC2_CBCPadBER,
         encoded(rc2, "30{0205 0100000040" + octets + "}")},
        {"no version", AI_RC2_CBCPadBER, encoded(rc2, "30{" + octets + "}")},
        {"parameters for rc4", AI_RC4_BER, encoded(rc4, "0201 01")},
        {"a salt of 7 bytes", AI_MD5WithDES_CBCPadBER,
         encoded(pkcs5 + "03", "30{0407 0123456789abcd 0201 01}")},
        {"no iterations", AI_MD5WithDES_CBCPadBER,
         encoded(pkcs5 + "03", "30{" + octets + "0201 00}"), "BE_ALGORITHM_INFO"},
        {"a prime of 0", AI_DHKeyAgreeBER, encoded(dh, "30{0201 00 0201 05}"), "BE_ALGORITHM_INFO"},
        {"an empty sequence", AI_MD5_BER, ber("3000")},
    };
    const struct {
        const char *reason;
        B_INFO_TYPE type;
        const char *text;
    } texts[] = {
        {"another name", AI_DES_CBCPadPEM, "DES-EDE,0123456789ABCDEF"},
        {"no comma", AI_DES_CBCPadPEM, "DES-CBC0123456789ABCDEF"},
        {"the name alone", AI_DES_CBCPadPEM, "DES-CBC"},
        {"15 digits", AI_DES_CBCPadPEM, "DES-CBC,0123456789ABCDE"},
        {"17 digits", AI_DES_CBCPadPEM, "DES-CBC,0123456789ABCDEF0"},
        {"a character that is no digit", AI_DES_CBCPadPEM, "DES-CBC,0123456789ABCDEG"},
        {"no size", AI_RC2_CBCPadPEM, "RC2-CBC,,0123456789ABCDEF"},
        {"a size of 0", AI_RC2_CBCPadPEM, "RC2-CBC,0,0123456789ABCDEF"},
        {"a size with a leading 0", AI_RC2_CBCPadPEM, "RC2-CBC,040,0123456789ABCDEF"},
        {"a size of 1025", AI_RC2_CBCPadPEM, "RC2-CBC,1025,0123456789ABCDEF"},
        {"a size beyond 32 bits", AI_RC2_CBCPadPEM, "RC2-CBC,4294967336,0123456789ABCDEF"},
        {"something behind a name that has no parameters", AI_MD5_PEM, "RSA-MD5,"},
        {"a name cut short", AI_MD5_PEM, "RSA-MD"},
    };
    const auto expect_unset = [](const Algorithm_ &object, int error, const char *expected,
                                 const char *reason) {
        EXPECT_EQ(error_name(error), expected) << reason;
        EXPECT_EQ(read(object, AI_MD5), "BE_ALGORITHM_NOT_SET") << reason;
    };
    for (const auto &row : encodings) {
        const Algorithm_ object;
        expect_unset(object, set(object, row.type, row.encoding), row.expected, row.reason);
    }
    for (const auto &row : texts) {
        const Algorithm_ object;
        expect_unset(object, set(object, row.type, row.text), "BE_DATA", row.reason);
    }
}

TEST(AlgorithmInfos, RefuseRecordsOutOfRange) {
    const A_RC2_CBC_PARAMS rc2_0 = {0, iv.data()}, rc2_1025 = {1025, iv.data()},
                           rc2_no_iv = {40, nullptr};
    const A_PBE_PARAMS pbe_no_salt = {nullptr, 1}, pbe_0 = {iv.data(), 0};
    const A_RC2_PBE_PARAMS rc2_pbe_0 = {0, iv.data(), 1}, rc2_pbe_1025 = {1025, iv.data(), 1};
    uint8_t three = 3;
    const A_RSA_KEY_GEN_PARAMS rsa_255 = {255, {&three, 1}}; // others: rsa_keygen_test
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
    const std::pair<B_INFO_TYPE, Bytes> encodings[] = {
        {AI_RC2_CBCPadBER, encoded(rc2, "30{0202 00a0" + octets + "}")},
        {AI_MD5WithDES_CBCPadBER, encoded(pkcs5 + "03", "30{" + octets + "0202 0400}")},
        {AI_DHKeyAgreeBER, encoded(dh, "30{0202 00b3 0201 05 0201 07}")},
        {AI_RC2_CBCPadBER, ber("3080 06{" + rc2 + "} 3080 0202 00a0" + octets + "0000 0000")},
    };
    for (const auto &[type, good] : encodings)
        each_spoiled(good, [type = type, size = good.size()](const Bytes &spoiled,
                                                             const std::string &what) {
            const Algorithm_ object;
            const std::string status = error_name(set(object, type, spoiled));
            EXPECT_TRUE(status == "BE_OK" || status == "BE_DATA" || status == "BE_ALGORITHM_INFO")
                << what << ": " << status;
            if (status == "BE_OK") {
                EXPECT_EQ(spoiled.size(), size) << what;
            }
        });
}

// Indefinite lengths inside one another are read to a depth and no deeper.
TEST(AlgorithmInfos, BoundNesting) {
    for (const std::size_t depth : {4u, 40u, 5000000u}) {
        const Bytes nested = repeated("3080", depth) + repeated("0000", depth);
        const Algorithm_ object;
        EXPECT_EQ(error_name(set(object, AI_MD5_BER, nested)), "BE_DATA");
    }
}

// DigestInfo.

TEST(DigestInfo, IsWrittenAndRead) {
    const Bytes identifier = encoded(md5, null),
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
    const std::string algorithm = "30{06{" + md5 + "} 0500}";
    const std::pair<const char *, std::string> cases[] = {
        {"nothing", ""},
        {"no digest", "30{" + algorithm + "}"},
        {"bytes behind the whole", "30{" + algorithm + "0402 aabb} 00"},
        {"bytes behind the digest", "30{" + algorithm + "0402 aabb 0500}"},
        {"a digest that ends outside", "30{" + algorithm + "0402 aa}"},
        {"a digest that is no octet string", "30{" + algorithm + "0302 aabb}"},
        {"no identifier in the algorithm", "30{30{0500} 0402 aabb}"},
    };
    for (const auto &[reason, encoding] : cases) {
        const Bytes bytes = ber(encoding);
        ITEM found, digest;
        EXPECT_EQ(error_name(B_DecodeDigestInfo(&found, &digest, bytes.data(),
                                                static_cast<uint32_t>(bytes.size()))),
                  "BE_DATA")
            << reason;
        EXPECT_EQ(digest.data, nullptr) << reason;
    }
}

} // namespace
} // namespace toolkit
