#include "cryptoki/token.h"
#include "support/fault.h"

#include <cstring>

namespace {

const Bytes secret = from_hex("0123456789");

// The attributes of a secret key: class, key type, value.
class ObjectTest : public testing::Test {
protected:
    OwnedSession session = open_session();
    TestObject object = secret_object(secret, CKK_RC4);
};

TEST(Session, Handles) {
    EXPECT_EQ(C_OpenSession(0, 0, nullptr, nullptr, nullptr), CKR_DATA_INVALID);
    EXPECT_EQ(C_CloseSession(nullptr), CKR_SESSION_HANDLE_INVALID);
    int application = 0;
    CK_SESSION_HANDLE session = nullptr;
    EXPECT_EQ(C_OpenSession(99, 99, &application, nullptr, &session), CKR_OK);
    ASSERT_NE(session, nullptr);
    EXPECT_EQ(C_CloseSession(session), CKR_OK);
    EXPECT_EQ(nullNotify(), CKR_OK);
}

// A session that could not be had is no failure of its own: whoever uses it meets one.
TEST(Session, OutOfMemoryIsNotReported) {
    auto *session = reinterpret_cast<CK_SESSION_HANDLE>(1);
    fault::fail(fault::Call::allocate, 1);
    EXPECT_EQ(C_OpenSession(0, 0, nullptr, nullptr, &session), CKR_OK);
    EXPECT_TRUE(fault::clear(fault::Call::allocate));
    EXPECT_EQ(session, nullptr);
}

TEST_F(ObjectTest, CreateRefuses) {
    CK_OBJECT_HANDLE made = nullptr;
    CK_ATTRIBUTE *attributes = object->attributes;
    const struct {
        const char *why;
        CK_SESSION_HANDLE session;
        CK_ATTRIBUTE *attributes;
        uint32_t count;
        CK_RV result;
    } cases[] = {
        {"session before template", nullptr, nullptr, 0, CKR_SESSION_HANDLE_INVALID},
        {"no template", session.get(), nullptr, 3, CKR_TEMPLATE_INCOMPLETE},
        {"no attributes", session.get(), attributes, 0, CKR_TEMPLATE_INCOMPLETE},
    };
    for (const auto &c : cases)
        EXPECT_EQ(C_CreateObject(c.session, c.attributes, c.count, &made), c.result) << c.why;
    fault::fail(fault::Call::allocate, 1);
    EXPECT_EQ(C_CreateObject(session.get(), attributes, 3, &made), CKR_HOST_MEMORY);
    EXPECT_TRUE(fault::clear(fault::Call::allocate));
    EXPECT_EQ(made, nullptr);
}

TEST_F(ObjectTest, DestroyRefuses) {
    CK_OBJECT no_template = {nullptr, 3};
    CK_OBJECT no_attributes = {object->attributes, 0};
    EXPECT_EQ(C_DestroyObject(nullptr, nullptr), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(C_DestroyObject(session.get(), nullptr), CKR_OBJECT_HANDLE_INVALID);
    EXPECT_EQ(C_DestroyObject(session.get(), &no_template), CKR_OBJECT_HANDLE_INVALID);
    EXPECT_EQ(C_DestroyObject(session.get(), &no_attributes), CKR_OBJECT_HANDLE_INVALID);
}

TEST_F(ObjectTest, GetAttributeValue) {
    uint8_t buffer[16];
    CK_OBJECT empty = {nullptr, 0};
    CK_ATTRIBUTE any = {CKA_VALUE, nullptr, 0};
    EXPECT_EQ(C_GetAttributeValue(nullptr, nullptr, nullptr, 0), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(C_GetAttributeValue(session.get(), nullptr, nullptr, 0), CKR_OBJECT_HANDLE_INVALID);
    EXPECT_EQ(C_GetAttributeValue(session.get(), &empty, &any, 1), CKR_OBJECT_HANDLE_INVALID);
    EXPECT_EQ(C_GetAttributeValue(session.get(), object.get(), nullptr, 1),
              CKR_ATTRIBUTE_TYPE_INVALID);
    EXPECT_EQ(C_GetAttributeValue(session.get(), object.get(), &any, 0),
              CKR_ATTRIBUTE_TYPE_INVALID);
    const struct {
        const char *why;
        uint32_t type;
        void *value;
        uint32_t length;
        CK_RV result;
        uint32_t length_after;
    } cases[] = {
        {"a type that the object lacks", CKA_MODULUS, nullptr, 7, CKR_ATTRIBUTE_TYPE_INVALID, 7},
        {"a type with its top bit set", 0x80000000, nullptr, 7, CKR_DATA_INVALID, 7},
        {"a null value asks for the length", CKA_VALUE, nullptr, 99, CKR_OK, 5},
        {"one byte too short", CKA_VALUE, buffer, 4, CKR_DATA_INVALID, 4},
        {"one byte too long", CKA_VALUE, buffer, 6, CKR_DATA_INVALID, 6},
        {"the exact length", CKA_VALUE, buffer, 5, CKR_OK, 5},
    };
    for (const auto &c : cases) {
        CK_ATTRIBUTE wanted = {c.type, c.value, c.length};
        EXPECT_EQ(C_GetAttributeValue(session.get(), object.get(), &wanted, 1), c.result) << c.why;
        EXPECT_EQ(wanted.value_length, c.length_after) << c.why;
    }
    EXPECT_EQ(Bytes(buffer, buffer + 5), secret);
}

TEST_F(ObjectTest, EntriesBeforeAMissStayFilled) {
    uint32_t object_class = 0;
    uint8_t value[5] = {};
    CK_ATTRIBUTE wanted[] = {{CKA_CLASS, &object_class, sizeof object_class},
                             {CKA_MODULUS, nullptr, 0},
                             {CKA_VALUE, value, sizeof value}};
    EXPECT_EQ(C_GetAttributeValue(session.get(), object.get(), wanted, 3),
              CKR_ATTRIBUTE_TYPE_INVALID);
    EXPECT_EQ(object_class, uint32_t{CKO_SECRET_KEY});
    EXPECT_EQ(value[0] | value[4], 0);
}

} // namespace
