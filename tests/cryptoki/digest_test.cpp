#include "cryptoki/token.h"
#include "support/arguments.h"

namespace {

class DigestTest : public testing::Test {
protected:
    CK_RV init(uint32_t number) {
        const CK_MECHANISM mechanism = {number, nullptr, 0};
        return C_DigestInit(session.get(), &mechanism);
    }

    OwnedSession session = open_session();
    uint8_t data[1] = {};
    uint8_t out[16] = {};
    uint32_t length = 0;
};

TEST_F(DigestTest, Refusals) {
    EXPECT_EQ(C_DigestInit(nullptr, nullptr), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(C_DigestInit(session.get(), nullptr), CKR_MECHANISM_INVALID);
    EXPECT_EQ(init(CKM_RSA_PKCS), CKR_MECHANISM_INVALID);
    EXPECT_EQ(init(CKM_MD2 + 1), CKR_MECHANISM_INVALID);

    // Arguments come before the session here, unlike in the other families.
    each_missing(CKR_DATA_INVALID, C_Digest, {1}, nullptr, data, 1, out, &length);
    EXPECT_EQ(C_Digest(nullptr, data, 1, out, &length), CKR_SESSION_HANDLE_INVALID);
    each_missing(CKR_DATA_INVALID, C_DigestUpdate, {1}, nullptr, data, 1);
    EXPECT_EQ(C_DigestUpdate(nullptr, data, 1), CKR_SESSION_HANDLE_INVALID);
    each_missing(CKR_DATA_INVALID, C_DigestFinal, {1}, nullptr, out, &length);
    EXPECT_EQ(C_DigestFinal(nullptr, out, &length), CKR_SESSION_HANDLE_INVALID);

    EXPECT_EQ(C_Digest(session.get(), data, 1, out, &length), CKR_OPERATION_NOT_INITIALIZED);
    EXPECT_EQ(C_DigestUpdate(session.get(), data, 1), CKR_OPERATION_NOT_INITIALIZED);
    EXPECT_EQ(C_DigestFinal(session.get(), out, &length), CKR_OPERATION_NOT_INITIALIZED);
}

// A digest takes the place of the cipher's algorithm, whose key stays: the cipher is gone.
TEST_F(DigestTest, EndsACipher) {
    const TestObject key = secret_object(from_hex("0123456789"), CKK_RC4);
    const CK_MECHANISM cipher = {CKM_RC4, nullptr, 0};
    ASSERT_EQ(C_EncryptInit(session.get(), &cipher, key.get()), CKR_OK);
    ASSERT_EQ(init(CKM_MD5), CKR_OK);
    EXPECT_EQ(C_Digest(session.get(), data, 1, out, &length), CKR_OK);
    EXPECT_EQ(C_Encrypt(session.get(), data, 1, out, &length), CKR_OPERATION_NOT_INITIALIZED);
}

} // namespace
