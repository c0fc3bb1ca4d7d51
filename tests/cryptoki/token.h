// token.h: sessions and objects for the token's tests.
#ifndef TESTS_CRYPTOKI_TOKEN_H
#define TESTS_CRYPTOKI_TOKEN_H

#include "support/files.h"
#include "support/rsa_key.h"

#include <cryptoki/session.h>
#include <cryptoki/template.h>
#include <gtest/gtest.h>

#include <utility>

inline OwnedSession open_session() {
    CK_SESSION_HANDLE session = nullptr;
    EXPECT_EQ(C_OpenSession(0, 0, nullptr, nullNotify, &session), CKR_OK);
    return OwnedSession(session);
}

// Any session will do to destroy an object.
struct DestroyTestObject {
    void operator()(CK_OBJECT *object) const {
        CK_SESSION any = {};
        EXPECT_EQ(C_DestroyObject(&any, object), CKR_OK);
    }
};
using TestObject = std::unique_ptr<CK_OBJECT, DestroyTestObject>;

inline TestObject object_of(CK_ATTRIBUTE *attributes, uint32_t count) {
    const OwnedSession session = open_session();
    CK_OBJECT_HANDLE object = nullptr;
    EXPECT_EQ(C_CreateObject(session.get(), attributes, count, &object), CKR_OK);
    return TestObject(object);
}

template <auto convert> TestObject object_of(const Bytes &ber) {
    CK_ATTRIBUTE *attributes = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(convert(ber.data(), static_cast<uint32_t>(ber.size()), &attributes, &count), CKR_OK);
    return object_of(attributes, count);
}

inline TestObject private_object(const RsaKey &key) {
    return object_of<privateKeyInfoBer_2_template>(key.private_key_info());
}

inline TestObject public_object(const RsaKey &key) {
    return object_of<subjectPublicKeyInfoBer_2_template>(key.public_key_info());
}

inline TestObject secret_object(const Bytes &octets, uint32_t key_type) {
    CK_ATTRIBUTE *attributes = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(secretKey_2_template(octets.data(), static_cast<uint32_t>(octets.size()), key_type,
                                   &attributes, &count),
              CKR_OK);
    return object_of(attributes, count);
}

#endif
