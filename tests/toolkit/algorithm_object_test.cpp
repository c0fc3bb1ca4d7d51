// Every algorithm through one driver, by one of its info types, and the rules of objects.
#include "objects.h"
#include "support/fault.h"
#include "support/samples.h"

#include <cstring>

namespace toolkit {
namespace {

constexpr uint8_t iv[8] = {0x12, 0x34, 0x56, 0x78, 0x9a, 0xbc, 0xde, 0xf0};
const A_RC2_CBC_PARAMS rc2_params = {40, iv};
const A_PBE_PARAMS pbe_params = {iv, 3};
const A_RC2_PBE_PARAMS rc2_pbe_params = {64, iv, 3};
const A_SECRET_SHARING_PARAMS sharing_params = {1, 1};

enum class Secret { none, bytes8, bytes24, bytes5, password, rsa_public, rsa_private };

std::unique_ptr<Key_> make_key(Secret secret) {
    const Bytes bytes = from_hex("0123456789abcdef 23456789abcdef01 456789abcdef0123");
    switch (secret) {
    case Secret::none:
        return nullptr;
    case Secret::bytes8:
        return std::make_unique<Key_>(KI_DES8, bytes.data());
    case Secret::bytes24:
        return std::make_unique<Key_>(KI_24Byte, bytes.data());
    case Secret::bytes5:
        return std::make_unique<Key_>(from_hex("0102030405"));
    case Secret::password:
        return std::make_unique<Key_>(bytes_of("a pass phrase"));
    case Secret::rsa_public:
        return std::make_unique<Key_>(sample_public_key(), KI_RSAPublicBER);
    case Secret::rsa_private:
        return std::make_unique<Key_>(sample_private_key(), KI_PKCS_RSAPrivateBER);
    }
    return nullptr;
}

struct Side {
    B_INFO_TYPE type;
    Step run;
    Secret secret;
    std::vector<const AlgorithmMethod *> methods;
};

// A way through the toolkit and, where there is one, the way back.
struct Row {
    const char *name;
    POINTER info;
    Side there;
    Side back;
    std::size_t unit; // message lengths are multiples of it
    std::size_t longest;
    bool random = false; // the result differs each time
};

Row cipher(const char *name, B_INFO_TYPE type, POINTER info, Secret secret,
           std::vector<const AlgorithmMethod *> there, std::vector<const AlgorithmMethod *> back,
           std::size_t unit = 1) {
    return {name,
            info,
            {type, Step::encrypt, secret, std::move(there)},
            {type, Step::decrypt, secret, std::move(back)},
            unit,
            200};
}

Row digest(const char *name, B_INFO_TYPE type, POINTER info,
           std::vector<const AlgorithmMethod *> methods) {
    return {name, info, {type, Step::digest, Secret::none, std::move(methods)}, {}, 1, 200};
}

Row rsa(const char *name, B_INFO_TYPE there, B_INFO_TYPE back, POINTER info, bool with_private,
        std::size_t unit, std::size_t longest) {
    const Side by_public = {with_private ? back : there,
                            with_private ? Step::decrypt : Step::encrypt,
                            Secret::rsa_public,
                            {with_private ? &AM_RSA_DECRYPT : &AM_RSA_ENCRYPT}};
    const Side by_private = {with_private ? there : back,
                             with_private ? Step::encrypt : Step::decrypt,
                             Secret::rsa_private,
                             {with_private ? &AM_RSA_CRT_ENCRYPT : &AM_RSA_CRT_DECRYPT}};
    return {name,
            info,
            with_private ? by_private : by_public,
            with_private ? by_public : by_private,
            unit,
            longest,
            unit == 1 && !with_private};
}

Row signature(const char *name, B_INFO_TYPE type, POINTER info, const AlgorithmMethod *digest) {
    return {name, info, {type, Step::sign, Secret::rsa_private, {digest, &AM_RSA_CRT_ENCRYPT}},
            {},   1,    200};
}

std::vector<Row> rows() {
    using B = Secret;
    const auto des_there = &AM_DES_CBC_ENCRYPT, des_back = &AM_DES_CBC_DECRYPT;
    const auto ede3_there = &AM_DES_EDE3_CBC_ENCRYPT, ede3_back = &AM_DES_EDE3_CBC_DECRYPT;
    const auto desx_there = &AM_DESX_CBC_ENCRYPT, desx_back = &AM_DESX_CBC_DECRYPT;
    const auto rc2_there = &AM_RC2_CBC_ENCRYPT, rc2_back = &AM_RC2_CBC_DECRYPT;
    const auto rc4_there = &AM_RC4_ENCRYPT, rc4_back = &AM_RC4_DECRYPT;
    const auto md2 = &AM_MD2, md5 = &AM_MD5;
    // clang-format off
    return {
        cipher("DES_CBC_IV8",         AI_DES_CBC_IV8,        iv, B::bytes8,  {des_there},  {des_back}, 8),
        cipher("DES_CBCPadIV8",       AI_DES_CBCPadIV8,      iv, B::bytes8,  {des_there},  {des_back}),
        cipher("DES_EDE3_CBC_IV8",    AI_DES_EDE3_CBC_IV8,   iv, B::bytes24, {ede3_there}, {ede3_back}, 8),
        cipher("DES_EDE3_CBCPadIV8",  AI_DES_EDE3_CBCPadIV8, iv, B::bytes24, {ede3_there}, {ede3_back}),
        cipher("DESX_CBC_IV8",        AI_DESX_CBC_IV8,       iv, B::bytes24, {desx_there}, {desx_back}, 8),
        cipher("DESX_CBCPadIV8",      AI_DESX_CBCPadIV8,     iv, B::bytes24, {desx_there}, {desx_back}),
        cipher("RC2_CBC",             AI_RC2_CBC,            &rc2_params, B::bytes5, {rc2_there}, {rc2_back}, 8),
        cipher("RC2_CBCPad",          AI_RC2_CBCPad,         &rc2_params, B::bytes5, {rc2_there}, {rc2_back}),
        cipher("RC4",                 AI_RC4,                nullptr, B::bytes5, {rc4_there}, {rc4_back}),
        cipher("MD2WithDES_CBCPad",    AI_MD2WithDES_CBCPad,    &pbe_params,           B::password, {md2, des_there}, {md2, des_back}),
        cipher("MD5WithDES_CBCPad",    AI_MD5WithDES_CBCPad,    &pbe_params,           B::password, {md5, des_there}, {md5, des_back}),
        cipher("MD2WithRC2_CBCPad",    AI_MD2WithRC2_CBCPad,    &rc2_pbe_params,       B::password, {md2, rc2_there}, {md2, rc2_back}),
        cipher("MD5WithRC2_CBCPad",    AI_MD5WithRC2_CBCPad,    &rc2_pbe_params,       B::password, {md5, rc2_there}, {md5, rc2_back}),
        digest("MD2",     AI_MD2,     nullptr,           {md2}),
        digest("MD5",     AI_MD5,     nullptr,           {md5}),
        digest("MD, naming MD2", AI_MD, AI_MD2,          {&AM_MD, md2}),
        digest("MD, naming MD5", AI_MD, AI_MD5_PEM,      {&AM_MD, md5}),
        rsa("RSAPublic",          AI_RSAPublic,          AI_RSAPrivate,         nullptr, false, 128, 128),
        rsa("RSAPrivate",         AI_RSAPrivate,         AI_RSAPublic,          nullptr, true,  128, 128),
        rsa("PKCS_RSAPublic",     AI_PKCS_RSAPublic,     AI_PKCS_RSAPrivate,    nullptr, false, 1, 117),
        rsa("PKCS_RSAPrivate",    AI_PKCS_RSAPrivate,    AI_PKCS_RSAPublic,     nullptr, true,  1, 117),
        signature("MD2WithRSAEncryption",    AI_MD2WithRSAEncryption,    nullptr, md2),
        signature("MD5WithRSAEncryption",    AI_MD5WithRSAEncryption,    nullptr, md5),
        {"RFC1113Recode", nullptr, {AI_RFC1113Recode, Step::encode, B::none, {}},
                                   {AI_RFC1113Recode, Step::decode, B::none, {}}, 1, 200},
        {"BSSecretSharing", &sharing_params, {AI_BSSecretSharing, Step::encrypt, B::none, {}},
                                             {AI_BSSecretSharing, Step::decrypt, B::none, {}}, 1, 200},
    };
    // clang-format on
}

std::vector<const AlgorithmMethod *> terminated(std::vector<const AlgorithmMethod *> methods) {
    methods.push_back(nullptr);
    return methods;
}

// A message that RSA without formatting can take.
Bytes message_of(const Row &row, Samples &samples, std::size_t size) {
    Bytes message = samples.bytes(size);
    if (row.unit == 128 && size != 0)
        message[0] = 0;
    return message;
}

constexpr uint32_t row_message_size = 44;

class Through {
public:
    Through(const Row &row, const Side &side) : side_(side), key_(make_key(side.secret)) {
        EXPECT_EQ(error_name(B_SetAlgorithmInfo(object_, side.type, row.info)), "BE_OK");
    }
    int begin(const std::vector<const AlgorithmMethod *> &chooser) {
        return toolkit::begin(side_.run, object_, key(), chooser.data());
    }
    int feed(const Bytes &message, const std::vector<std::size_t> &pieces, Bytes *result) {
        return toolkit::feed(side_.run, object_, message, pieces, random_, result);
    }
    B_ALGORITHM_OBJ object() const { return object_; }
    B_ALGORITHM_OBJ random() const { return random_; }
    B_KEY_OBJ key() const { return key_ != nullptr ? static_cast<B_KEY_OBJ>(*key_) : nullptr; }

private:
    const Side &side_;
    Algorithm_ object_;
    std::unique_ptr<Key_> key_;
    Random_ random_;
};

TEST(EveryAlgorithm, GoesThereAndBackWithItsOwnMethodsAndNoOthers) {
    Samples samples;
    for (const Row &row : rows()) {
        SCOPED_TRACE(row.name);
        Through there(row, row.there);
        ASSERT_EQ(error_name(there.begin(terminated(row.there.methods))), "BE_OK");
        std::unique_ptr<Through> back;
        if (row.back.type != nullptr) {
            back = std::make_unique<Through>(row, row.back);
            ASSERT_EQ(error_name(back->begin(terminated(row.back.methods))), "BE_OK");
        }
        for (std::size_t size = row.unit == 1 ? 1 : row.unit; size <= row.longest;
             size += row.unit) {
            SCOPED_TRACE(size);
            const Bytes message = message_of(row, samples, size);
            Bytes whole, pieces, returned;
            // The object is used again and again: Final begins the next message.
            ASSERT_EQ(error_name(there.feed(message, {size}, &whole)), "BE_OK");
            ASSERT_EQ(error_name(there.feed(message, samples.pieces(size), &pieces)), "BE_OK");
            if (!row.random) {
                ASSERT_EQ(to_hex(pieces), to_hex(whole));
            }
            if (back == nullptr)
                continue;
            const auto cuts = row.back.type == AI_BSSecretSharing // each input is a share
                                  ? std::vector{pieces.size()}
                                  : samples.pieces(pieces.size());
            ASSERT_EQ(error_name(back->feed(pieces, cuts, &returned)), "BE_OK");
            ASSERT_EQ(to_hex(returned), to_hex(message));
            ASSERT_EQ(error_name(back->feed(whole, {whole.size()}, &returned)), "BE_OK");
            ASSERT_EQ(to_hex(returned), to_hex(message));
        }
    }
}

TEST(EveryAlgorithm, NeedsEachOfItsMethods) {
    for (const Row &row : rows()) {
        for (const Side &side : {row.there, row.back}) {
            for (const AlgorithmMethod *needed : side.methods) {
                SCOPED_TRACE(row.name);
                Through through(row, side);
                std::vector<const AlgorithmMethod *> others(std::begin(every_method),
                                                            std::end(every_method));
                others.erase(std::find(others.begin(), others.end(), needed));
                EXPECT_EQ(error_name(through.begin(others)), "BE_METHOD_NOT_IN_CHOOSER");
                uint32_t size;
                EXPECT_EQ(
                    error_name(finish(side.run, through.object(), nullptr, &size, 0, nullptr)),
                    "BE_ALGORITHM_NOT_INITIALIZED");
            }
        }
    }
}

TEST(EveryAlgorithm, SeesAnOutputThatIsOneByteShortAndGoesOnWithMore) {
    Samples samples;
    for (const Row &row : rows()) {
        SCOPED_TRACE(row.name);
        Through through(row, row.there);
        ASSERT_EQ(through.begin(terminated(row.there.methods)), BE_OK);
        const Bytes message = message_of(row, samples, row.unit == 128 ? 128 : 40);
        Bytes expected, result;
        ASSERT_EQ(through.feed(message, {message.size()}, &expected), BE_OK);
        const auto expect_room = [&](const auto &call) {
            Bytes enough(4096, 0xee);
            uint32_t needed = 0;
            for (uint32_t room = 0;; ++room) {
                Bytes short_of(room, 0xee);
                short_of.reserve(1);
                const int error = call(short_of.data(), &needed, room);
                if (error == BE_OK) {
                    ASSERT_EQ(needed, room) << "it asked for more room than it needed";
                    result.insert(result.end(), short_of.begin(), short_of.end());
                    return;
                }
                ASSERT_EQ(error_name(error), "BE_OUTPUT_LEN");
                ASSERT_EQ(needed, 0u);
                ASSERT_EQ(to_hex(short_of), to_hex(Bytes(room, 0xee)));
            }
        };
        expect_room([&](uint8_t *out, uint32_t *size, uint32_t room) {
            return update(row.there.run, through.object(), out, size, room, message.data(),
                          static_cast<uint32_t>(message.size()), through.random());
        });
        expect_room([&](uint8_t *out, uint32_t *size, uint32_t room) {
            return finish(row.there.run, through.object(), out, size, room, through.random());
        });
        if (row.random)
            EXPECT_EQ(result.size(), expected.size());
        else
            EXPECT_EQ(to_hex(result), to_hex(expected));
    }
}

// Keys, schedules, chaining values, held-back plaintext, RSA blocks: all zero when they are freed,
// in an ended message, in a broken-off one, and wherever an allocation fails.
TEST(EveryAlgorithm, LeavesNothingBehindAndReportsEachAllocationThatFails) {
    const Bytes message(128, 0x11);
    Bytes out(4096);
    for (const Row &row : rows()) {
        for (const Side &side : {row.there, row.back}) {
            if (side.type == nullptr || side.secret == Secret::rsa_public)
                continue;
            SCOPED_TRACE(row.name);
            const std::vector<const AlgorithmMethod *> chooser = terminated(side.methods);
            const std::unique_ptr<Key_> prepared = make_key(side.secret);
            const B_KEY_OBJ key = prepared != nullptr ? static_cast<B_KEY_OBJ>(*prepared) : nullptr;
            const uint32_t length = row.unit == 128 ? 128 : row_message_size;
            const Random_ random;
            fault::each_allocation([&] {
                B_ALGORITHM_OBJ object = nullptr;
                if (B_CreateAlgorithmObject(&object) == BE_ALLOC)
                    return;
                const FreedBlocksAreZero watch;
                uint32_t size = 0;
                POINTER info = nullptr;
                int error = B_SetAlgorithmInfo(object, side.type, row.info);
                if (error == BE_OK)
                    error = B_GetAlgorithmInfo(&info, object, side.type);
                for (int i = 0; i < 2 && error == BE_OK; ++i) {
                    error = begin(side.run, object, key, chooser.data());
                    if (error == BE_OK) // a message that does not decrypt leaves nothing either
                        update(side.run, object, out.data(), &size, 4096, message.data(), length,
                               random);
                    if (error == BE_OK && i == 0)
                        finish(side.run, object, out.data(), &size, 4096, random);
                }
                B_DestroyAlgorithmObject(&object);
                EXPECT_EQ(error, fault::met() ? BE_ALLOC : BE_OK);
            });
        }
    }
}

TEST(EveryAlgorithm, NeverPublishedIsSettableAndRefusedAtInit) {
    const struct {
        const char *name;
        B_INFO_TYPE type;
    } unpublished[] = {
        {"RC4WithMAC", AI_RC4WithMAC}, {"RC4WithMAC_BER", AI_RC4WithMAC_BER}, {"MAC", AI_MAC},
        {"MD5WithXOR", AI_MD5WithXOR}, {"MD5WithXOR_BER", AI_MD5WithXOR_BER},
    };
    for (const auto &row : unpublished) {
        SCOPED_TRACE(row.name);
        const std::unique_ptr<Key_> key = make_key(Secret::bytes5);
        Algorithm_ object(row.type, &rc2_params);
        for (const Step run :
             {Step::encrypt, Step::decrypt, Step::digest, Step::sign, Step::encode})
            EXPECT_EQ(error_name(begin(run, object, *key, every_method)), "BE_NOT_SUPPORTED");
    }
}

// Objects.

TEST(AlgorithmObject, AnswersMisuseByName) {
    uint8_t out[64];
    uint32_t size = 0;
    Algorithm_ empty, des(AI_DES_CBCPadIV8, iv), random(AI_MD5Random);
    const std::unique_ptr<Key_> key = make_key(Secret::bytes8),
                                short_key = make_key(Secret::bytes5),
                                rsa_key = make_key(Secret::rsa_public);
    Key_ no_key;
    const AlgorithmMethod *const nothing[] = {nullptr};
    POINTER info;
    expect_answers({
        {"no object", B_SetAlgorithmInfo(nullptr, AI_MD5, nullptr), "BE_ALGORITHM_OBJ"},
        {"no object", B_EncryptInit(nullptr, *key, every_method, nullptr), "BE_ALGORITHM_OBJ"},
        {"no type", B_SetAlgorithmInfo(empty, nullptr, nullptr), "BE_ALGORITHM_INFO"},
        {"no info", B_SetAlgorithmInfo(empty, AI_DES_CBCPadIV8, nullptr), "BE_ALGORITHM_INFO"},
        {"set twice", B_SetAlgorithmInfo(des, AI_DES_CBCPadIV8, iv), "BE_ALGORITHM_ALREADY_SET"},
        {"not set", B_EncryptInit(empty, *key, every_method, nullptr), "BE_ALGORITHM_NOT_SET"},
        {"not set", B_GetAlgorithmInfo(&info, empty, AI_MD5), "BE_ALGORITHM_NOT_SET"},
        {"another algorithm's type", B_GetAlgorithmInfo(&info, des, AI_DES_EDE3_CBCPadIV8),
         "BE_ALGORITHM_INFO"},
        {"no such use", B_DigestInit(des, nullptr, every_method, nullptr),
         "BE_ALG_OPERATION_UNKNOWN"},
        {"no chooser", B_EncryptInit(des, *key, nullptr, nullptr), "BE_METHOD_NOT_IN_CHOOSER"},
        {"empty chooser", B_EncryptInit(des, *key, nothing, nullptr), "BE_METHOD_NOT_IN_CHOOSER"},
        {"no key", B_EncryptInit(des, nullptr, every_method, nullptr), "BE_KEY_OBJ"},
        {"empty key", B_EncryptInit(des, no_key, every_method, nullptr), "BE_KEY_NOT_SET"},
        {"key of another length", B_EncryptInit(des, *short_key, every_method, nullptr),
         "BE_KEY_LEN"},
        {"key of another kind", B_EncryptInit(des, *rsa_key, every_method, nullptr),
         "BE_KEY_OPERATION_UNKNOWN"},
        {"update before init", B_EncryptUpdate(des, out, &size, 64, iv, 8, nullptr, nullptr),
         "BE_ALGORITHM_NOT_INITIALIZED"},
        {"init", B_EncryptInit(des, *key, every_method, nullptr), "BE_OK"},
        {"update of another use", B_DecryptUpdate(des, out, &size, 64, iv, 8, nullptr, nullptr),
         "BE_ALGORITHM_NOT_INITIALIZED"},
        {"no input", B_EncryptUpdate(des, out, &size, 64, nullptr, 8, nullptr, nullptr),
         "BE_INPUT_LEN"},
        {"no input of no length",
         B_EncryptUpdate(des, out, &size, 64, nullptr, 0, nullptr, nullptr), "BE_OK"},
        {"no output", B_EncryptUpdate(des, nullptr, &size, 64, iv, 8, nullptr, nullptr),
         "BE_OUTPUT_LEN"},
        {"no output length", B_EncryptUpdate(des, out, nullptr, 64, iv, 8, nullptr, nullptr),
         "BE_OUTPUT_LEN"},
        {"a failed init ends the use", B_EncryptInit(des, nullptr, every_method, nullptr),
         "BE_KEY_OBJ"},
        {"and so", B_EncryptFinal(des, out, &size, 64, nullptr, nullptr),
         "BE_ALGORITHM_NOT_INITIALIZED"},
        {"init", B_EncryptInit(des, *key, every_method, nullptr), "BE_OK"},
        {"an init that finds no method", B_EncryptInit(des, *key, nothing, nullptr),
         "BE_METHOD_NOT_IN_CHOOSER"},
        {"ends it too", B_EncryptFinal(des, out, &size, 64, nullptr, nullptr),
         "BE_ALGORITHM_NOT_INITIALIZED"},
        {"random init", B_RandomInit(random, every_method, nullptr), "BE_OK"},
        {"an empty seed is none", B_RandomUpdate(random, nullptr, 0, nullptr), "BE_OK"},
        {"random bytes before a seed", B_GenerateRandomBytes(random, out, 8, nullptr),
         "BE_RANDOM_NOT_INITIALIZED"},
        {"null outputs", B_CreateAlgorithmObject(nullptr), "BE_ALGORITHM_OBJ"},
        {"null outputs", B_CreateKeyObject(nullptr), "BE_KEY_OBJ"},
    });
    B_DestroyAlgorithmObject(nullptr);
    B_DestroyKeyObject(nullptr);
}

TEST(AlgorithmObject, TakesTheInfoAsItStoodAndIsEmptyAfterABadOne) {
    uint8_t changing[8];
    std::memcpy(changing, iv, 8);
    Algorithm_ object;
    const A_RC2_CBC_PARAMS bad = {0, changing}, good = {128, changing};
    EXPECT_EQ(error_name(B_SetAlgorithmInfo(object, AI_RC2_CBCPad, &bad)), "BE_ALGORITHM_INFO");
    ASSERT_EQ(B_SetAlgorithmInfo(object, AI_RC2_CBCPad, &good), BE_OK);
    std::memset(changing, 0, 8);
    POINTER first, second;
    ASSERT_EQ(B_GetAlgorithmInfo(&first, object, AI_RC2_CBCPad), BE_OK);
    ASSERT_EQ(B_GetAlgorithmInfo(&second, object, AI_RC2_CBCPad), BE_OK);
    EXPECT_EQ(first, second); // the object's own record, not a copy for each call
    EXPECT_EQ(to_hex(static_cast<const A_RC2_CBC_PARAMS *>(first)->iv, 8), to_hex(iv, 8));
}

// Where the output may lie on the input, and in how many pieces.
TEST(Cipher, WorksInPlaceAndAcrossOverlaps) {
    Samples samples;
    for (const Row &row : rows()) {
        if (row.there.run != Step::encrypt || row.longest != 200 ||
            row.there.secret == Secret::none)
            continue;
        SCOPED_TRACE(row.name);
        for (const Side &side : {row.there, row.back}) {
            Through through(row, side);
            ASSERT_EQ(through.begin(terminated(side.methods)), BE_OK);
            Bytes message = samples.bytes(96), expected;
            if (side.run == Step::decrypt) { // make it ciphertext
                Through there(row, row.there);
                ASSERT_EQ(there.begin(terminated(row.there.methods)), BE_OK);
                ASSERT_EQ(there.feed(Bytes(message), {96}, &message), BE_OK);
            }
            ASSERT_EQ(through.feed(message, {message.size()}, &expected), BE_OK);
            for (const int shift : {0, 1, 7, 8, 9, -1, -3, -8, -13}) {
                for (const std::size_t first : {0u, 3u, 8u, 13u, 16u}) {
                    SCOPED_TRACE(shift);
                    Bytes memory(256), result(512);
                    uint32_t total = 0, size = 0;
                    ASSERT_EQ(update(side.run, through.object(), result.data(), &size, 512,
                                     message.data(), static_cast<uint32_t>(first),
                                     through.random()),
                              BE_OK);
                    total += size;
                    const std::size_t rest = message.size() - first;
                    std::copy(message.begin() + static_cast<std::ptrdiff_t>(first), message.end(),
                              memory.begin() + 32);
                    ASSERT_EQ(update(side.run, through.object(), memory.data() + 32 + shift, &size,
                                     128, memory.data() + 32, static_cast<uint32_t>(rest),
                                     through.random()),
                              BE_OK);
                    std::copy_n(memory.data() + 32 + shift, size, result.data() + total);
                    total += size;
                    ASSERT_EQ(finish(side.run, through.object(), result.data() + total, &size, 64,
                                     nullptr),
                              BE_OK);
                    result.resize(total + size);
                    ASSERT_EQ(to_hex(result), to_hex(expected));
                }
            }
        }
    }
}

} // namespace
} // namespace toolkit
