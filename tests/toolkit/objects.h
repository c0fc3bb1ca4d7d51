// objects.h: owners and drivers for the tests of the toolkit's objects.
#ifndef TESTS_TOOLKIT_OBJECTS_H
#define TESTS_TOOLKIT_OBJECTS_H

#include "support/fault.h"
#include "support/rsa_key.h"
#include "zeroed.h"

#include <gtest/gtest.h>
#include <toolkit/toolkit.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace toolkit {

inline ITEM item_of(const Bytes &bytes) {
    return {const_cast<uint8_t *>(bytes.data()), static_cast<uint32_t>(bytes.size())};
}

inline Bytes bytes_of_item(const ITEM &item) {
    return Bytes(item.data, item.data + item.len);
}

inline std::string error_name(int error) {
    // clang-format off
    constexpr const char *names[] = {
        "BE_OK", "BE_ALGORITHM_ALREADY_SET", "BE_ALGORITHM_INFO", "BE_ALGORITHM_NOT_INITIALIZED",
        "BE_ALGORITHM_NOT_SET", "BE_ALGORITHM_OBJ", "BE_ALG_OPERATION_UNKNOWN", "BE_ALLOC",
        "BE_CANCEL", "BE_DATA", "BE_INPUT_LEN", "BE_KEY_ALREADY_SET", "BE_KEY_INFO", "BE_KEY_LEN",
        "BE_KEY_NOT_SET", "BE_KEY_OBJ", "BE_KEY_OPERATION_UNKNOWN", "BE_METHOD_NOT_IN_CHOOSER",
        "BE_MODULUS_LEN", "BE_NOT_SUPPORTED", "BE_OUTPUT_LEN", "BE_PADDING",
        "BE_RANDOM_NOT_INITIALIZED", "BE_RANDOM_OBJ", "BE_SIGNATURE", "BE_INTERNAL"};
    // clang-format on
    return error >= 0 && error <= BE_INTERNAL ? names[error] : std::to_string(error);
}

// What calls answer, made one after the other.
struct Answer {
    const char *reason;
    int error;
    const char *expected;
};

inline void expect_answers(std::initializer_list<Answer> answers) {
    for (const Answer &answer : answers)
        EXPECT_EQ(error_name(answer.error), answer.expected) << answer.reason;
}

// Every method there is.
// clang-format off
inline const AlgorithmMethod *const every_method[] = {
    &AM_RSA_KEY_GEN, &AM_MD2_RANDOM, &AM_MD5_RANDOM, &AM_MD2, &AM_MD5, &AM_RSA_ENCRYPT,
    &AM_RSA_DECRYPT, &AM_RSA_CRT_ENCRYPT, &AM_RSA_CRT_DECRYPT, &AM_DES_CBC_ENCRYPT,
    &AM_DES_CBC_DECRYPT, &AM_DES_EDE3_CBC_ENCRYPT, &AM_DES_EDE3_CBC_DECRYPT, &AM_RC2_CBC_ENCRYPT,
    &AM_RC2_CBC_DECRYPT, &AM_RC4_ENCRYPT, &AM_RC4_DECRYPT, &AM_DH_KEY_AGREE, &AM_DH_PARAM_GEN,
    &AM_DESX_CBC_ENCRYPT, &AM_DESX_CBC_DECRYPT, &AM_RC4_WITH_MAC_ENCRYPT,
    &AM_RC4_WITH_MAC_DECRYPT, &AM_MAC, &AM_MD, nullptr};
// clang-format on

// An algorithm object; what is set at its making must succeed.
class Algorithm_ {
public:
    Algorithm_() { EXPECT_EQ(B_CreateAlgorithmObject(&object_), BE_OK); }
    explicit Algorithm_(B_INFO_TYPE type, POINTER info = nullptr) : Algorithm_() {
        EXPECT_EQ(error_name(B_SetAlgorithmInfo(object_, type, info)), "BE_OK");
    }
    Algorithm_(const Algorithm_ &) = delete;
    Algorithm_ &operator=(const Algorithm_ &) = delete;
    ~Algorithm_() { B_DestroyAlgorithmObject(&object_); }
    operator B_ALGORITHM_OBJ() const { return object_; }

private:
    B_ALGORITHM_OBJ object_ = nullptr;
};

class Key_ {
public:
    Key_() { EXPECT_EQ(B_CreateKeyObject(&object_), BE_OK); }
    Key_(B_KEY_INFO_TYPE type, POINTER info) : Key_() {
        EXPECT_EQ(error_name(B_SetKeyInfo(object_, type, info)), "BE_OK");
    }
    explicit Key_(const Bytes &bytes, B_KEY_INFO_TYPE type = KI_Item) : Key_() {
        const ITEM item = item_of(bytes);
        EXPECT_EQ(error_name(B_SetKeyInfo(object_, type, &item)), "BE_OK");
    }
    Key_(const Key_ &) = delete;
    Key_ &operator=(const Key_ &) = delete;
    ~Key_() { B_DestroyKeyObject(&object_); }
    operator B_KEY_OBJ() const { return object_; }

private:
    B_KEY_OBJ object_ = nullptr;
};

// A seeded generator.
class Random_ : public Algorithm_ {
public:
    Random_() : Algorithm_(AI_MD5Random) {
        const Bytes seed = bytes_of("a seed for tests");
        EXPECT_EQ(B_RandomInit(*this, every_method, nullptr), BE_OK);
        EXPECT_EQ(B_RandomUpdate(*this, seed.data(), static_cast<uint32_t>(seed.size()), nullptr),
                  BE_OK);
    }
};

// A 1024-bit key: its private encoding and its public one.
inline const Bytes &sample_private_key() {
    static const Bytes key = RsaKey::of_1024_bits().private_key_info();
    return key;
}

inline const Bytes &sample_public_key() {
    static const Bytes key = RsaKey::of_1024_bits().public_key_info();
    return key;
}

// ---- A use from beginning to end ---------------------------------------------------------------

enum class Step { encrypt, decrypt, digest, sign, encode, decode };

inline int begin(Step run, B_ALGORITHM_OBJ object, B_KEY_OBJ key,
                 B_ALGORITHM_CHOOSER chooser = every_method) {
    switch (run) {
    case Step::encrypt:
        return B_EncryptInit(object, key, chooser, nullptr);
    case Step::decrypt:
        return B_DecryptInit(object, key, chooser, nullptr);
    case Step::digest:
        return B_DigestInit(object, key, chooser, nullptr);
    case Step::sign:
        return B_SignInit(object, key, chooser, nullptr);
    case Step::encode:
        return B_EncodeInit(object);
    case Step::decode:
        return B_DecodeInit(object);
    }
    return BE_INTERNAL;
}

inline int update(Step run, B_ALGORITHM_OBJ object, uint8_t *out, uint32_t *size, uint32_t room,
                  const uint8_t *in, uint32_t in_size, B_ALGORITHM_OBJ random) {
    *size = 0;
    switch (run) {
    case Step::encrypt:
        return B_EncryptUpdate(object, out, size, room, in, in_size, random, nullptr);
    case Step::decrypt:
        return B_DecryptUpdate(object, out, size, room, in, in_size, random, nullptr);
    case Step::digest:
        return B_DigestUpdate(object, in, in_size, nullptr);
    case Step::sign:
        return B_SignUpdate(object, in, in_size, nullptr);
    case Step::encode:
        return B_EncodeUpdate(object, out, size, room, in, in_size);
    case Step::decode:
        return B_DecodeUpdate(object, out, size, room, in, in_size);
    }
    return BE_INTERNAL;
}

inline int finish(Step run, B_ALGORITHM_OBJ object, uint8_t *out, uint32_t *size, uint32_t room,
                  B_ALGORITHM_OBJ random) {
    switch (run) {
    case Step::encrypt:
        return B_EncryptFinal(object, out, size, room, random, nullptr);
    case Step::decrypt:
        return B_DecryptFinal(object, out, size, room, random, nullptr);
    case Step::digest:
        return B_DigestFinal(object, out, size, room, nullptr);
    case Step::sign:
        return B_SignFinal(object, out, size, room, random, nullptr);
    case Step::encode:
        return B_EncodeFinal(object, out, size, room);
    case Step::decode:
        return B_DecodeFinal(object, out, size, room);
    }
    return BE_INTERNAL;
}

// Feeds a message in pieces to an object that has begun; each call has exactly the room of `room`
// more bytes than its input. The first failure ends it.
inline int feed(Step run, B_ALGORITHM_OBJ object, const Bytes &message,
                const std::vector<std::size_t> &pieces, B_ALGORITHM_OBJ random, Bytes *result,
                std::size_t room = 4096) {
    result->clear();
    std::size_t at = 0;
    for (const std::size_t piece : pieces) {
        // Input and output of exact size, so that a sanitizer sees a step beyond.
        const Bytes in(message.begin() + static_cast<std::ptrdiff_t>(at),
                       message.begin() + static_cast<std::ptrdiff_t>(at + piece));
        Bytes out(piece + room);
        uint32_t size = 0;
        const int error = update(run, object, out.data(), &size, static_cast<uint32_t>(out.size()),
                                 in.data(), static_cast<uint32_t>(piece), random);
        if (error != BE_OK)
            return error;
        result->insert(result->end(), out.begin(), out.begin() + size);
        at += piece;
    }
    Bytes out(room);
    uint32_t size = 0;
    const int error =
        finish(run, object, out.data(), &size, static_cast<uint32_t>(out.size()), random);
    if (error == BE_OK)
        result->insert(result->end(), out.begin(), out.begin() + size);
    return error;
}

// The whole message in one piece.
inline int feed(Step run, B_ALGORITHM_OBJ object, const Bytes &message, Bytes *result,
                B_ALGORITHM_OBJ random = nullptr) {
    return feed(run, object, message, {message.size()}, random, result);
}

} // namespace toolkit

#endif
