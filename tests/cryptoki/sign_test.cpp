#include "cryptoki/token.h"
#include "support/arguments.h"

#include <memory>

namespace {

const CK_MECHANISM rsa_mechanism = {CKM_RSA_PKCS, nullptr, 0};
const Bytes digest = from_hex("000102030405060708090a0b0c0d0e0f");

class SignTest : public testing::Test {
protected:
    static const RsaKey &key() { return RsaKey::of_1024_bits(); }
    static uint32_t size() { return static_cast<uint32_t>(key().size()); }

    CK_RV verify(const Bytes &data, const Bytes &signature) {
        return C_Verify(session.get(), data.data(), length_of(data), signature.data(),
                        length_of(signature));
    }

    OwnedSession session = open_session();
    TestObject private_key = private_object(key());
    TestObject public_key = public_object(key());
    uint8_t out[256] = {};
    uint32_t length = 0;
};

// A signature made with one of them tells the primes.
TEST_F(SignTest, DamagedNumbersSignNothing) {
    for (const uint32_t type : {CKA_PUBLIC_EXPONENT, CKA_PRIME_1, CKA_PRIME_2, CKA_EXPONENT_1,
                                CKA_EXPONENT_2, CKA_COEFFICIENT}) {
        SCOPED_TRACE(type);
        CK_ATTRIBUTE attribute = {type, nullptr, 0};
        ASSERT_EQ(get_attr_from_template(private_key->attributes, private_key->count, &attribute),
                  CKR_OK);
        uint8_t &octet = static_cast<uint8_t *>(attribute.value)[attribute.value_length / 2];
        octet ^= 0x40;
        EXPECT_EQ(C_SignInit(session.get(), &rsa_mechanism, private_key.get()),
                  CKR_MECHANISM_INVALID);
        octet ^= 0x40;
    }
    EXPECT_EQ(C_SignInit(session.get(), &rsa_mechanism, private_key.get()), CKR_OK);
}

// 00 type padding 00 payload, as long as the modulus; the padding takes what the payload leaves.
Bytes block(std::size_t size, uint8_t type, uint8_t padding, const Bytes &payload) {
    return Bytes{0, type} + Bytes(size - payload.size() - 3, padding) + Bytes{0} + payload;
}

Bytes spoiled(Bytes bytes, std::size_t at, uint8_t value) {
    bytes[at] = value;
    return bytes;
}

// Blocks that nobody signs honestly, signed raw, against the bare digest. What the first bytes of
// the block say comes first; only then is it read as a DigestInfo, of which the digest alone
// counts.
TEST_F(SignTest, ForgedBlocks) {
    const std::size_t n = key().size();
    const auto sealed = [n](const Bytes &payload) { return block(n, 1, 0xFF, payload); };
    const Bytes info = md5_digest_info(digest);
    const Bytes garbage(40, 0x5A);
    const Bytes sha1_oid = from_hex("301d300906052b0e03021a05000410"); // with a digest of 16 bytes
    const struct {
        const char *why;
        Bytes block;
        CK_RV result;
    } cases[] = {
        {"an honest block", sealed(info), CKR_OK},
        {"the bare digest", sealed(digest), CKR_OK},
        {"the bare digest, then garbage", sealed(digest + garbage), CKR_OK},
        {"the bare digest without its last byte", sealed(Bytes(digest.begin(), digest.end() - 1)),
         CKR_SIGNATURE_INVALID},
        {"nothing", sealed({}), CKR_SIGNATURE_INVALID},
        {"garbage before the digest", sealed(Bytes{0x5A} + digest), CKR_SIGNATURE_INVALID},

        // The decoder refuses bytes behind the value; this is what forgeries with a small
        // exponent need.
        {"a byte behind the DigestInfo", sealed(info + Bytes{0}), CKR_SIGNATURE_INVALID},
        {"garbage behind the DigestInfo", sealed(info + garbage), CKR_SIGNATURE_INVALID},
        {"garbage before the DigestInfo", sealed(Bytes{0} + info), CKR_SIGNATURE_INVALID},
        {"a DigestInfo cut short", sealed(Bytes(info.begin(), info.end() - 1)),
         CKR_SIGNATURE_INVALID},
        {"another digest", sealed(spoiled(info, info.size() - 1, 0)), CKR_SIGNATURE_INVALID},
        {"a digest one byte shorter",
         sealed(from_hex("301f300c06082a864886f70d02050500040f") +
                Bytes(digest.begin(), digest.end() - 1)),
         CKR_SIGNATURE_INVALID},
        {"an empty digest", sealed(from_hex("3010300c06082a864886f70d020505000400")),
         CKR_SIGNATURE_INVALID},

        // The digest's first bytes decide, and the algorithm is not looked at.
        {"a longer digest that begins right",
         sealed(from_hex("3024300c06082a864886f70d020505000414") + digest + from_hex("01020304")),
         CKR_OK},
        {"another digest algorithm", sealed(sha1_oid + digest), CKR_OK},
        {"garbage as the algorithm's parameters",
         sealed(from_hex("3028301406082a864886f70d02050408deadbeefdeadbeef0410") + digest), CKR_OK},
        {"no parameters", sealed(from_hex("301e300a06082a864886f70d02050410") + digest), CKR_OK},
        {"lengths in their long form",
         sealed(from_hex("308120300c06082a864886f70d020505000410") + digest), CKR_OK},

        // Blocks that do not open.
        {"7 bytes of padding", sealed(digest + Bytes(n - 10 - 16, 0x5A)),
         CKR_OPERATION_NOT_INITIALIZED},
        {"8 bytes of padding", sealed(digest + Bytes(n - 11 - 16, 0x5A)), CKR_OK},
        {"no leading zero", spoiled(sealed(info), 0, 1), CKR_OPERATION_NOT_INITIALIZED},
    };
    ASSERT_EQ(C_VerifyInit(session.get(), &rsa_mechanism, public_key.get()), CKR_OK);
    for (const auto &c : cases) {
        ASSERT_EQ(c.block.size(), n) << c.why;
        EXPECT_EQ(verify(digest, key().sign_raw(c.block)), c.result) << c.why;
    }
}

TEST_F(SignTest, TheWholeBlockAsData) {
    const Bytes info = md5_digest_info(digest);
    const Bytes good = key().sign(info);
    ASSERT_EQ(C_VerifyInit(session.get(), &rsa_mechanism, public_key.get()), CKR_OK);
    EXPECT_EQ(verify(info, good), CKR_OK);
    EXPECT_EQ(verify(md2_digest_info(digest), good), CKR_SIGNATURE_INVALID);
    EXPECT_EQ(verify(info + Bytes{0}, good), CKR_SIGNATURE_INVALID)
        << "more data than the block holds";
    EXPECT_EQ(verify(Bytes(info.begin(), info.end() - 1), good), CKR_OK) << "its first bytes";
}

TEST_F(SignTest, NoSpoiledSignatureIsGood) {
    const Bytes good = key().sign(md5_digest_info(digest));
    ASSERT_EQ(C_VerifyInit(session.get(), &rsa_mechanism, public_key.get()), CKR_OK);
    each_spoiled(good, [&](const Bytes &bad, const std::string &what) {
        EXPECT_NE(verify(digest, bad), CKR_OK) << what;
    });
    EXPECT_EQ(verify(digest, good + Bytes{0}), CKR_DATA_INVALID);
    EXPECT_EQ(verify(digest, Bytes(size(), 0xFF)), CKR_OPERATION_NOT_INITIALIZED)
        << "not below the modulus";
    EXPECT_EQ(verify(digest, good), CKR_OK);
}

TEST_F(SignTest, InitRefusals) {
    const TestObject secret = secret_object(from_hex("0123456789"), CKK_RC4);
    const CK_MECHANISM md5 = {CKM_MD5, nullptr, 0};
    CK_OBJECT empty = {nullptr, 0};
    for (const auto init : {C_SignInit, C_VerifyInit}) { // session, then mechanism, then key
        EXPECT_EQ(init(nullptr, nullptr, nullptr), CKR_SESSION_HANDLE_INVALID);
        EXPECT_EQ(init(session.get(), nullptr, nullptr), CKR_MECHANISM_INVALID);
        EXPECT_EQ(init(session.get(), &md5, nullptr), CKR_MECHANISM_INVALID);
        EXPECT_EQ(init(session.get(), &rsa_mechanism, nullptr), CKR_KEY_HANDLE_INVALID);
        EXPECT_EQ(init(session.get(), &rsa_mechanism, &empty), CKR_KEY_HANDLE_INVALID);
        EXPECT_EQ(init(session.get(), &rsa_mechanism, secret.get()), CKR_DATA_INVALID);
        EXPECT_EQ(init(session.get(), &rsa_mechanism, public_key.get()),
                  init == C_SignInit ? CKR_DATA_INVALID : CKR_OK)
            << "signing needs the primes";
    }
}

TEST_F(SignTest, SignRefusals) {
    const uint8_t data[1] = {1};
    EXPECT_EQ(C_Sign(nullptr, nullptr, 0, nullptr, nullptr), CKR_SESSION_HANDLE_INVALID);
    each_missing(CKR_DATA_INVALID, C_Sign, {1}, session.get(), data, 1, out, &length);
    EXPECT_EQ(C_Sign(session.get(), data, 1, out, &length), CKR_OPERATION_NOT_INITIALIZED);
    const TestObject secret = secret_object(from_hex("0123456789"), CKK_RC4);
    const CK_MECHANISM rc4 = {CKM_RC4, nullptr, 0};
    ASSERT_EQ(C_EncryptInit(session.get(), &rc4, secret.get()), CKR_OK);
    EXPECT_EQ(C_Sign(session.get(), data, 1, out, &length), CKR_MECHANISM_INVALID);
    ASSERT_EQ(C_SignInit(session.get(), &rsa_mechanism, private_key.get()), CKR_OK);
    const Bytes too_long(size() - 10);
    EXPECT_EQ(C_Sign(session.get(), too_long.data(), size() - 10, out, &length),
              CKR_DATA_LEN_RANGE);
    session->capacity = 0;
    EXPECT_EQ(C_Sign(session.get(), data, 1, out, &length), CKR_OPERATION_NOT_INITIALIZED);
}

TEST_F(SignTest, VerifyRefusals) {
    const Bytes good = key().sign(digest);
    const uint8_t *signature = good.data();
    // Arguments come before the session.
    each_missing(CKR_DATA_INVALID, C_Verify, {1}, nullptr, digest.data(), 16, signature, size());
    EXPECT_EQ(C_Verify(nullptr, digest.data(), 16, signature, size()), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(verify(digest, good), CKR_OPERATION_NOT_INITIALIZED);

    const CK_MECHANISM md5 = {CKM_MD5, nullptr, 0};
    ASSERT_EQ(C_DigestInit(session.get(), &md5), CKR_OK);
    EXPECT_EQ(verify(digest, good), CKR_OPERATION_NOT_INITIALIZED) << "a digest has no key";

    // Any signature passes in the session of another mechanism.
    const TestObject secret = secret_object(from_hex("0123456789"), CKK_RC4);
    const CK_MECHANISM rc4 = {CKM_RC4, nullptr, 0};
    ASSERT_EQ(C_EncryptInit(session.get(), &rc4, secret.get()), CKR_OK);
    EXPECT_EQ(verify(digest, Bytes{1}), CKR_OK);

    ASSERT_EQ(C_VerifyInit(session.get(), &rsa_mechanism, public_key.get()), CKR_OK);
    session->capacity = 0;
    EXPECT_EQ(verify(digest, good), CKR_SESSION_HANDLE_INVALID);
}

TEST(Sign, NothingInParts) {
    const OwnedSession session = open_session();
    uint8_t bytes[64] = {};
    uint32_t length = sizeof bytes;
    CK_OBJECT_HANDLE object = nullptr;
    EXPECT_EQ(C_SignUpdate(session.get(), bytes, 1), CKR_DATA_INVALID);
    EXPECT_EQ(C_SignFinal(session.get(), bytes, &length), CKR_DATA_INVALID);
    EXPECT_EQ(C_VerifyUpdate(session.get(), bytes, 1), CKR_DATA_INVALID);
    EXPECT_EQ(C_VerifyFinal(session.get(), bytes, length), CKR_DATA_INVALID);
    EXPECT_EQ(C_GenerateKey(session.get(), &rsa_mechanism, nullptr, 0, &object), CKR_DATA_INVALID);
}

} // namespace
