#include "cryptoki/token.h"
#include "support/fault.h"

#include <algorithm>

namespace {

struct Vector {
    uint32_t mechanism;
    const char *text;
    const char *digest;
};

// The test suites of RFC 1319 and RFC 1321.
const Vector vectors[] = {
    {CKM_MD2, "a", "32ec01ec4a6dac72c0ab96fb34c0b5d1"},
    {CKM_MD2, "message digest", "ab4f496bfb2a530b219ff33031fe06b0"},
    {CKM_MD2, "12345678901234567890123456789012345678901234567890123456789012345678901234567890",
     "d5976f79d83d3a0dc9806c3c66f3efd8"},
    {CKM_MD5, "a", "0cc175b9c0f1b6a831c399e269772661"},
    {CKM_MD5, "message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
    {CKM_MD5, "12345678901234567890123456789012345678901234567890123456789012345678901234567890",
     "57edf4a22be3c955ac49da2e2107b67a"},
};

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

TEST_F(DigestTest, PublishedVectorsWholeAndInParts) {
    for (const Vector &v : vectors) {
        SCOPED_TRACE(v.text);
        const Bytes text = bytes_of(v.text);
        ASSERT_EQ(init(v.mechanism), CKR_OK);
        for (int again = 0; again < 2; ++again) {
            length = 0;
            ASSERT_EQ(C_Digest(session.get(), text.data(), length_of(text), out, &length), CKR_OK);
            EXPECT_EQ(to_hex(out, length), v.digest) << "run " << again;
        }
        for (std::size_t start = 0; start < text.size(); start += 7)
            ASSERT_EQ(C_DigestUpdate(
                          session.get(), text.data() + start,
                          static_cast<uint32_t>(std::min<std::size_t>(7, text.size() - start))),
                      CKR_OK);
        ASSERT_EQ(C_DigestFinal(session.get(), out, &length), CKR_OK);
        EXPECT_EQ(to_hex(out, length), v.digest);
    }
}

TEST_F(DigestTest, Refusals) {
    EXPECT_EQ(C_DigestInit(nullptr, nullptr), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(C_DigestInit(session.get(), nullptr), CKR_MECHANISM_INVALID);
    EXPECT_EQ(init(CKM_RSA_PKCS), CKR_MECHANISM_INVALID);
    EXPECT_EQ(init(CKM_MD2 + 1), CKR_MECHANISM_INVALID);

    // Arguments come before the session here, unlike in the other families.
    EXPECT_EQ(C_Digest(nullptr, nullptr, 0, nullptr, nullptr), CKR_DATA_INVALID);
    EXPECT_EQ(C_Digest(nullptr, data, 0, out, &length), CKR_DATA_INVALID);
    EXPECT_EQ(C_Digest(nullptr, data, 1, nullptr, &length), CKR_DATA_INVALID);
    EXPECT_EQ(C_Digest(nullptr, data, 1, out, nullptr), CKR_DATA_INVALID);
    EXPECT_EQ(C_Digest(nullptr, data, 1, out, &length), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(C_DigestUpdate(nullptr, nullptr, 1), CKR_DATA_INVALID);
    EXPECT_EQ(C_DigestUpdate(nullptr, data, 1), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(C_DigestFinal(nullptr, nullptr, &length), CKR_DATA_INVALID);
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

TEST_F(DigestTest, EachAllocation) {
    fault::each_allocation([&] {
        const CK_RV result = init(CKM_MD5);
        EXPECT_EQ(result == CKR_OK, !fault::met());
        EXPECT_EQ(C_Digest(session.get(), data, 1, out, &length),
                  result == CKR_OK ? CKR_OK : CKR_OPERATION_NOT_INITIALIZED);
    });
}

} // namespace
