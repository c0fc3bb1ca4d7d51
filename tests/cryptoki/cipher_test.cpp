#include "cryptoki/token.h"
#include "support/arguments.h"
#include "support/fault.h"

#include <cstring>

namespace {

const Bytes iv = from_hex("0f1e2d3c4b5a6978");

Bytes rc2_parameter(uint32_t bits, const Bytes &vector) {
    CK_RC2_CBC_PARAMS parameter = {bits, {}};
    std::memcpy(parameter.iv, vector.data(), sizeof parameter.iv);
    const auto *bytes = reinterpret_cast<const uint8_t *>(&parameter);
    return {bytes, bytes + sizeof parameter};
}

using Single = CK_RV (*)(CK_SESSION_HANDLE, const uint8_t *, uint32_t, uint8_t *, uint32_t *);
using Final = CK_RV (*)(CK_SESSION_HANDLE, uint8_t *, uint32_t *);

// ---- What an Init refuses, in which order

class InitTest : public testing::Test {
protected:
    OwnedSession session = open_session();
    TestObject des_key = secret_object(from_hex("0123456789abcdef"), CKK_DES);
    TestObject short_key = secret_object(from_hex("01234567"), CKK_DES);
    TestObject long_key = secret_object(from_hex("0123456789abcdef01"), CKK_DES);
    TestObject rsa_public = public_object(RsaKey::of_512_bits());
    TestObject rsa_private = private_object(RsaKey::of_512_bits());
    CK_OBJECT empty = {nullptr, 0};
    Bytes rc2 = rc2_parameter(40, iv);
    Bytes rc2_no_bits = rc2_parameter(0, iv);
};

TEST_F(InitTest, Refusals) {
    for (const auto init : {C_EncryptInit, C_DecryptInit}) { // session, then key, then mechanism
        EXPECT_EQ(init(nullptr, nullptr, nullptr), CKR_SESSION_HANDLE_INVALID);
        EXPECT_EQ(init(session.get(), nullptr, nullptr), CKR_KEY_HANDLE_INVALID);
        EXPECT_EQ(init(session.get(), nullptr, &empty), CKR_MECHANISM_INVALID);
    }
    const struct {
        const char *why;
        CK_OBJECT_HANDLE key;
        uint32_t number;
        const Bytes *parameter;
        uint32_t parameter_length;
        CK_RV result;
        bool decryption_only = false;
    } cases[] = {
        {"a digest is no cipher", &empty, CKM_MD5, nullptr, 0, CKR_MECHANISM_INVALID},
        {"DES without padding has a number of its own", &empty, 0x121, nullptr, 0,
         CKR_MECHANISM_INVALID},
        {"parameter before the key's template", &empty, CKM_DES_CBC, nullptr, 8,
         CKR_MECHANISM_PARAM_INVALID},
        {"a parameter without length", &empty, CKM_DES_CBC, &iv, 0, CKR_MECHANISM_PARAM_INVALID},
        {"an initialisation vector one byte short", &empty, CKM_DES3_CBC, &iv, 7,
         CKR_MECHANISM_PARAM_INVALID},
        {"RC2 without a parameter", &empty, CKM_RC2_CBC, nullptr, 0, CKR_MECHANISM_PARAM_INVALID},
        {"RC2 with the vector alone", &empty, CKM_RC2_CBC, &iv, 8, CKR_MECHANISM_PARAM_INVALID},
        {"an object without template", &empty, CKM_DES_CBC, &iv, 8, CKR_KEY_HANDLE_INVALID},
        {"RC4 needs no parameter, but a key", &empty, CKM_RC4, nullptr, 0, CKR_KEY_HANDLE_INVALID},
        {"RSA needs an RSA key", des_key.get(), CKM_RSA_PKCS, nullptr, 0, CKR_DATA_INVALID},
        {"RSA decryption needs a private key", rsa_public.get(), CKM_RSA_PKCS, nullptr, 0,
         CKR_DATA_INVALID, true},
        {"DES needs a secret key", rsa_private.get(), CKM_DES_CBC, &iv, 8, CKR_DATA_INVALID},
        {"a DES key of 4 bytes", short_key.get(), CKM_DES_CBC, &iv, 8, CKR_KEY_HANDLE_INVALID},
        {"a DES key of 9 bytes", long_key.get(), CKM_DES_CBC, &iv, 8, CKR_KEY_HANDLE_INVALID},
        {"a DES key for triple DES", des_key.get(), CKM_DES3_CBC, &iv, 8, CKR_KEY_HANDLE_INVALID},
        {"RC2 with no effective bits", des_key.get(), CKM_RC2_CBC, &rc2_no_bits, 12,
         CKR_MECHANISM_INVALID},
        {"the type of a secret key does not matter", des_key.get(), CKM_RC2_CBC, &rc2, 12, CKR_OK},
    };
    for (const auto &c : cases) {
        CK_MECHANISM record = {c.number, nullptr, c.parameter_length};
        if (c.parameter != nullptr)
            record.parameter = const_cast<uint8_t *>(c.parameter->data());
        if (!c.decryption_only) {
            EXPECT_EQ(C_EncryptInit(session.get(), &record, c.key), c.result) << c.why;
        }
        EXPECT_EQ(C_DecryptInit(session.get(), &record, c.key), c.result) << c.why;
    }
}

TEST_F(InitTest, RefusedArgumentsLeaveTheOperationAndFailuresEndIt) {
    const CK_MECHANISM mechanism = {CKM_RC4, nullptr, 0};
    const uint8_t text[] = {1, 2, 3};
    uint8_t out[3];
    uint32_t length = 0;
    ASSERT_EQ(C_EncryptInit(session.get(), &mechanism, des_key.get()), CKR_OK);
    ASSERT_EQ(C_EncryptInit(session.get(), nullptr, des_key.get()), CKR_MECHANISM_INVALID);
    EXPECT_EQ(C_Encrypt(session.get(), text, 3, out, &length), CKR_OK);
    ASSERT_EQ(C_EncryptInit(session.get(), &mechanism, &empty), CKR_KEY_HANDLE_INVALID);
    EXPECT_EQ(C_Encrypt(session.get(), text, 3, out, &length), CKR_OPERATION_NOT_INITIALIZED);
}

// ---- What the other calls refuse

class DataTest : public InitTest {
protected:
    void init(uint32_t number, CK_OBJECT_HANDLE key, bool encrypt) {
        const CK_MECHANISM mechanism = {number, const_cast<uint8_t *>(iv.data()), 8};
        ASSERT_EQ(encrypt ? C_EncryptInit(session.get(), &mechanism, key)
                          : C_DecryptInit(session.get(), &mechanism, key),
                  CKR_OK);
    }

    uint8_t data[128] = {};
    uint8_t out[160] = {};
    uint32_t length = 0;
};

TEST_F(DataTest, ArgumentsBeforeOperation) {
    for (const Single call : {C_Encrypt, C_Decrypt, C_EncryptUpdate, C_DecryptUpdate}) {
        EXPECT_EQ(call(nullptr, nullptr, 0, nullptr, nullptr), CKR_SESSION_HANDLE_INVALID);
        each_missing(CKR_DATA_INVALID, call, {1}, session.get(), data, 8, out, &length);
        EXPECT_EQ(call(session.get(), data, 8, out, &length), CKR_OPERATION_NOT_INITIALIZED);
    }
}

// The two finals differ in what they say to a null output.
TEST_F(DataTest, Finals) {
    EXPECT_EQ(C_EncryptFinal(nullptr, nullptr, nullptr), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(C_DecryptFinal(nullptr, nullptr, nullptr), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(C_EncryptFinal(session.get(), out, &length), CKR_OPERATION_NOT_INITIALIZED);
    EXPECT_EQ(C_DecryptFinal(session.get(), out, &length), CKR_OPERATION_NOT_INITIALIZED);
    init(CKM_DES_CBC, des_key.get(), true);
    EXPECT_EQ(C_EncryptFinal(session.get(), nullptr, &length), CKR_OPERATION_NOT_INITIALIZED);
    EXPECT_EQ(C_EncryptFinal(session.get(), out, nullptr), CKR_OPERATION_NOT_INITIALIZED);
    init(CKM_DES_CBC, des_key.get(), false);
    EXPECT_EQ(C_DecryptFinal(session.get(), nullptr, &length), CKR_DATA_INVALID);
    EXPECT_EQ(C_DecryptFinal(session.get(), out, nullptr), CKR_DATA_INVALID);
}

// What the toolkit may write: it is set by every call but a final, which has what the last one left.
TEST_F(DataTest, Capacities) {
    init(CKM_DES_CBC, des_key.get(), true);
    EXPECT_EQ(C_EncryptFinal(session.get(), out, &length), CKR_OPERATION_NOT_INITIALIZED)
        << "no room for a block of padding before any other call";
    EXPECT_EQ(C_EncryptUpdate(session.get(), data, 1, out, &length), CKR_OK);
    EXPECT_EQ(session->capacity, 25u);
    EXPECT_EQ(C_EncryptFinal(session.get(), out, &length), CKR_OK);
    EXPECT_EQ(length, 8u);
    EXPECT_EQ(C_Encrypt(session.get(), data, 9, out, &length), CKR_OK);
    EXPECT_EQ(session->capacity, 17u);
    init(CKM_RC4, des_key.get(), true);
    EXPECT_EQ(C_Encrypt(session.get(), data, 9, out, &length), CKR_OK);
    EXPECT_EQ(session->capacity, 9u);
    init(CKM_RC4, des_key.get(), false);
    EXPECT_EQ(C_DecryptUpdate(session.get(), data, 9, out, &length), CKR_OK);
    EXPECT_EQ(session->capacity, 33u);
    EXPECT_EQ(C_Decrypt(session.get(), data, 9, out, &length), CKR_OK);
    EXPECT_EQ(session->capacity, 9u);
    init(CKM_RSA_PKCS, rsa_public.get(), true);
    EXPECT_EQ(session->capacity, 64u);
}

TEST_F(DataTest, RsaLengths) {
    const uint32_t size = static_cast<uint32_t>(RsaKey::of_512_bits().size());
    init(CKM_RSA_PKCS, rsa_public.get(), true);
    EXPECT_EQ(C_Encrypt(session.get(), data, size - 11, out, &length), CKR_OK);
    EXPECT_EQ(length, size);
    EXPECT_EQ(C_Encrypt(session.get(), data, size - 10, out, &length), CKR_DATA_LEN_RANGE);
    EXPECT_EQ(C_EncryptUpdate(session.get(), data, 8, out, &length), CKR_DATA_INVALID);
    EXPECT_EQ(C_EncryptFinal(session.get(), out, &length), CKR_DATA_INVALID);
    init(CKM_RSA_PKCS, rsa_private.get(), false);
    EXPECT_EQ(C_Decrypt(session.get(), data, size - 1, out, &length), CKR_DATA_INVALID);
    EXPECT_EQ(C_Decrypt(session.get(), data, size + 1, out, &length), CKR_DATA_INVALID);
    EXPECT_EQ(C_Decrypt(session.get(), data, size, out, &length), CKR_OPERATION_NOT_INITIALIZED)
        << "a block of zeros does not open";
    EXPECT_EQ(C_DecryptUpdate(session.get(), data, 8, out, &length), CKR_DATA_INVALID);
}

TEST_F(DataTest, BrokenCiphertextAndAfterIt) {
    init(CKM_DES_CBC, des_key.get(), true);
    ASSERT_EQ(C_Encrypt(session.get(), data, 16, out, &length), CKR_OK);
    const Bytes good(out, out + length);
    Bytes bad = good;
    bad[15] ^= 0x80; // the last byte of padding becomes 0x88
    init(CKM_DES_CBC, des_key.get(), false);
    EXPECT_EQ(C_Decrypt(session.get(), bad.data(), 24, out, &length),
              CKR_OPERATION_NOT_INITIALIZED);
    EXPECT_EQ(C_Decrypt(session.get(), good.data(), 23, out, &length),
              CKR_OPERATION_NOT_INITIALIZED);
    EXPECT_EQ(C_Decrypt(session.get(), good.data(), 24, out, &length), CKR_OK);
    EXPECT_EQ(Bytes(out, out + length), Bytes(16, 0));
}

// Lengths whose sum with the room for padding wraps must not be taken for small ones.
TEST_F(DataTest, LengthsThatWrap) {
    init(CKM_DES_CBC, des_key.get(), true);
    EXPECT_EQ(C_Encrypt(session.get(), data, 0xFFFFFFFC, out, &length),
              CKR_OPERATION_NOT_INITIALIZED);
    EXPECT_EQ(C_EncryptUpdate(session.get(), data, 0xFFFFFFF0, out, &length),
              CKR_OPERATION_NOT_INITIALIZED);
}

// ---- Out of memory and out of randomness

TEST_F(InitTest, RsaEncryptionNeedsRandomness) {
    const CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};
    fault::fail(fault::Call::open, 1);
    EXPECT_EQ(C_EncryptInit(session.get(), &mechanism, rsa_public.get()), CKR_DEVICE_ERROR);
    EXPECT_TRUE(fault::clear(fault::Call::open));
}

} // namespace
