#include "qel/signer.h"
#include "support/ber.h"
#include "support/fault.h"
#include "support/secrets.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <random>

namespace {

using testing::IsEmpty;

Bytes part(const Bytes &bytes, std::size_t from, std::size_t to) {
    return {bytes.begin() + static_cast<std::ptrdiff_t>(from),
            bytes.begin() + static_cast<std::ptrdiff_t>(to)};
}

// What the library derives, worked out by OpenSSL's MD5.
Bytes chain(Bytes digest, const Bytes &phrase, uint32_t count) {
    for (; count != 0; --count)
        digest = md5(digest + phrase);
    return digest;
}

struct Derived {
    QelStatus status;
    Bytes salt; // as the call left it
    Bytes key;
    Bytes iv;
};

// The triple-DES key and its vector; nothing is left where the derivation fails.
Derived derive(QelContext *context, Bytes salt, std::string phrase, uint32_t count) {
    PassPhraseKeyInput input = {salt.data(), length_of(salt), phrase.data(), count};
    uint8_t *key = salt.data(), *iv = salt.data();
    uint32_t key_length = 99, iv_length = 99;
    const QelStatus status =
        __qel_gen_des3_key_from_pwd(context, &input, &key, &key_length, &iv, &iv_length);
    EXPECT_EQ(key != nullptr, status == QEL_OK);
    EXPECT_EQ(iv != nullptr, status == QEL_OK);
    Derived derived = {status, salt, Bytes(key, key + key_length), Bytes(iv, iv + iv_length)};
    free(key);
    free(iv);
    return derived;
}

TEST(PassPhraseKey, TripleDes) {
    const TestContext context;
    const struct {
        const char *why;
        const char *salt;
        const char *phrase;
        uint32_t count;
        const char *first, *second; // what the chains start from
    } cases[] = {
        {"the usual", "0102030405060708", "correct horse", 1000, "01020304", "05060708"},
        {"one iteration", "0102030405060708", "correct horse", 1, "01020304", "05060708"},
        {"two iterations", "0102030405060708", "correct horse", 2, "01020304", "05060708"},
        {"equal halves: the first is reversed", "0102030401020304", "phrase", 3, "04030201",
         "01020304"},
        {"halves that are the reverse of each other", "0102030404030201", "phrase", 3, "01020304",
         "04030201"},
        {"halves that differ in the last byte", "0102030401020305", "phrase", 3, "01020304",
         "01020305"},
        {"equal halves of odd size", "0a0b0c0a0b0c", "phrase", 3, "0c0b0a", "0a0b0c"},
        {"equal halves that read the same from behind", "010201010201", "phrase", 3, "010201",
         "010201"},
        {"two bytes", "0102", "phrase", 3, "01", "02"},
        {"two equal bytes", "0101", "phrase", 3, "01", "01"},
        {"bytes above 7 bits", "80ff00fe80ff00ff", "\xe4\xf6\xfc\xff", 3, "80ff00fe", "80ff00ff"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.why);
        const Bytes phrase = bytes_of(c.phrase);
        const Bytes expected =
            chain(from_hex(c.first), phrase, c.count) + chain(from_hex(c.second), phrase, c.count);
        const Derived derived = derive(context, from_hex(c.salt), c.phrase, c.count);
        EXPECT_EQ(derived.status, QEL_OK);
        EXPECT_EQ(to_hex(derived.key), to_hex(part(expected, 0, 24)));
        EXPECT_EQ(to_hex(derived.iv), to_hex(part(expected, 24, 32)));
        EXPECT_EQ(to_hex(derived.salt), std::string(c.first) + c.second) << "the caller's salt";
    }
}

// A digest, the phrase and the padding fill one block up to 39 characters, two up to 103; what the
// chain starts from may be of any size.
TEST(PassPhraseKey, TripleDesOfAnySize) {
    const TestContext context;
    std::mt19937 random(1);
    const auto bytes = [&random](std::size_t size) {
        Bytes made(size);
        std::generate(made.begin(), made.end(), [&] { return 1 + random() % 255; });
        return made;
    };
    for (std::size_t length = 1; length < 240; ++length) {
        const std::size_t half = 1 + random() % 130;
        const uint32_t count = 1 + random() % 4;
        const Bytes salt = bytes(2 * half - 1) + Bytes{0};
        const Bytes phrase = bytes(length);
        const Derived derived = derive(context, salt, text_of(phrase), count);
        ASSERT_EQ(derived.status, QEL_OK);
        EXPECT_EQ(to_hex(derived.key + derived.iv),
                  to_hex(chain(part(salt, 0, half), phrase, count) +
                         chain(part(salt, half, 2 * half), phrase, count)))
            << length << " characters, halves of " << half << ", count " << count;
    }
}

TEST(PassPhraseKey, TripleDesRefusals) {
    const TestContext context;
    const Bytes salt = from_hex("0102030401020304");
    Bytes given = salt;
    char phrase[] = "phrase", nothing[] = "";
    PassPhraseKeyInput good = {given.data(), 8, phrase, 1};
    uint8_t *key = given.data(), *iv = given.data();
    uint32_t key_length = 99, iv_length = 99;
    each_missing(QEL_ERR_BAD_PARAM, __qel_gen_des3_key_from_pwd, {}, context, &good, &key,
                 &key_length, &iv, &iv_length);
    const struct {
        const char *why;
        PassPhraseKeyInput input;
    } cases[] = {
        {"no salt", {nullptr, 8, phrase, 1}},
        {"an empty salt", {given.data(), 0, phrase, 1}},
        {"a salt of one byte", {given.data(), 1, phrase, 1}},
        {"a salt of odd length", {given.data(), 7, phrase, 1}},
        {"no pass phrase", {given.data(), 8, nullptr, 1}},
        {"an empty pass phrase", {given.data(), 8, nothing, 1}},
        {"no iteration: the key would be the salt", {given.data(), 8, phrase, 0}},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.why);
        PassPhraseKeyInput input = c.input;
        key = iv = given.data();
        key_length = iv_length = 99;
        EXPECT_EQ(__qel_gen_des3_key_from_pwd(context, &input, &key, &key_length, &iv, &iv_length),
                  QEL_ERR_BAD_PARAM);
        EXPECT_EQ(given, salt) << "what is refused changes no salt";
        EXPECT_TRUE(key == nullptr && iv == nullptr && key_length + iv_length == 0);
    }
}

// ---- PKCS#5 with DES

struct DesKey {
    QelStatus status;
    Bytes key;
    Bytes parameters;
};

DesKey derive_des(QelContext *context, const QelOid *oid, const Bytes &parameters,
                  const std::string &phrase) {
    QelOctetString encoded = {length_of(parameters), const_cast<uint8_t *>(parameters.data())};
    const QelAlgId algorithm = {const_cast<QelOid *>(oid), parameters.empty() ? nullptr : &encoded};
    uint8_t *key = encoded.value;
    QelOctetString *iv = &encoded;
    DesKey derived = {
        __qel_gen_des_key_from_pwd(context, &algorithm, phrase.c_str(), &key, &iv), {}, {}};
    EXPECT_EQ(key != nullptr, derived.status == QEL_OK);
    EXPECT_EQ(iv != nullptr, derived.status == QEL_OK);
    if (key != nullptr)
        derived.key = Bytes(key, key + 8);
    if (iv != nullptr)
        derived.parameters = Bytes(iv->value, iv->value + iv->length);
    free(key);
    __qel_free_ostr(&iv);
    return derived;
}

TEST(PassPhraseKey, Des) {
    const TestContext context;
    const struct {
        const char *why;
        const char *phrase;
        const char *salt;
        uint8_t count;
    } cases[] = {
        {"the usual", "password", "0102030405060708", 100},
        {"one iteration", "password", "0102030405060708", 1},
        {"no pass phrase but a salt", "", "0102030405060708", 2},
        {"no salt but a pass phrase", "password", "", 2},
        {"more than a block", "a pass phrase that nobody would care to type in twice a day",
         "0102030405060708", 3},
    };
    for (const auto &c : cases) {
        for (const bool with_md2 : {false, true}) {
            SCOPED_TRACE(std::string(c.why) + (with_md2 ? ", MD2" : ", MD5"));
            Bytes digest = bytes_of(c.phrase) + from_hex(c.salt);
            for (int i = 0; i < c.count; ++i)
                digest = with_md2 ? md2(digest) : md5(digest);
            Bytes key = part(digest, 0, 8);
            for (const std::size_t odd : {1, 3, 5, 7})
                key[odd] %= 16;
            const DesKey derived = derive_des(
                context, with_md2 ? QEL_PbeWithMD2AndDES_CBC_OID : QEL_PbeWithMD5AndDES_CBC_OID,
                tlv(0x30, tlv(0x04, from_hex(c.salt)) + tlv(0x02, Bytes{c.count})), c.phrase);
            EXPECT_EQ(derived.status, QEL_OK);
            EXPECT_EQ(to_hex(derived.key), to_hex(key));
            EXPECT_EQ(to_hex(derived.parameters), "0408" + to_hex(part(digest, 8, 16)));
        }
    }
}

TEST(PassPhraseKey, DesRefusals) {
    const TestContext context;
    const Bytes good = from_hex("300d 0408 0102030405060708 020102");
    const struct {
        const char *why;
        const QelOid *oid;
        Bytes parameters;
        const char *phrase;
        QelStatus status;
    } cases[] = {
        {"triple DES", QEL_PbeWithMD5AndDES3_CBC_OID, good, "phrase", QEL_ERR_BAD_PARAM},
        {"no identifier", nullptr, good, "phrase", QEL_ERR_BAD_PARAM},
        {"no parameters", QEL_PbeWithMD5AndDES_CBC_OID, {}, "phrase", QEL_ERR_BAD_PARAM},
        {"parameters of another algorithm", QEL_PbeWithMD5AndDES_CBC_OID, from_hex("0500"),
         "phrase", QEL_ERR_ASN1_DECODE},
        {"a negative count", QEL_PbeWithMD5AndDES_CBC_OID, from_hex("3006 0401 01 0201ff"),
         "phrase", QEL_ERR_ASN1_DECODE},
        {"no iteration: the key would be the phrase", QEL_PbeWithMD5AndDES_CBC_OID,
         from_hex("3006 0401 01 020100"), "phrase", QEL_ERR_BAD_PARAM},
        {"nothing to digest", QEL_PbeWithMD5AndDES_CBC_OID, from_hex("3005 0400 020101"), "",
         QEL_ERR_BAD_PARAM},
    };
    for (const auto &c : cases)
        EXPECT_EQ(derive_des(context, c.oid, c.parameters, c.phrase).status, c.status) << c.why;

    QelOctetString encoded = {length_of(good), const_cast<uint8_t *>(good.data())};
    const QelAlgId algorithm = {const_cast<QelOid *>(QEL_PbeWithMD5AndDES_CBC_OID), &encoded};
    uint8_t *key = nullptr;
    QelOctetString *iv = nullptr;
    each_missing(QEL_ERR_BAD_PARAM, __qel_gen_des_key_from_pwd, {}, context, &algorithm, "p", &key,
                 &iv);
}

// ---- Both

TEST(PassPhraseKey, EachAllocation) {
    const TestContext context;
    fault::each_allocation([&] {
        const QelStatus status = derive(context, from_hex("01020304"), "phrase", 2).status;
        EXPECT_EQ(status, fault::met() ? QEL_ERR_NO_MEMORY : QEL_OK);
    });
}

// The key is made before the last allocation, so that one of the failures gives it up.
TEST(PassPhraseKey, EachAllocationOfDesAndNoKeyFreedUnzeroed) {
    const TestContext context;
    const Bytes parameters = from_hex("3006 0401 01 020101");
    const auto derive_it = [&] {
        return derive_des(context, QEL_PbeWithMD5AndDES_CBC_OID, parameters, "phrase");
    };
    const Bytes key = derive_it().key;
    SecretWatch watch;
    watch.add("key", key);
    fault::each_allocation([&] {
        const QelStatus status = derive_it().status;
        EXPECT_EQ(watch.take_found().empty(), fault::met()) << "this test itself frees a key";
        EXPECT_TRUE(fault::met() ? status == QEL_ERR_NO_MEMORY || status == QEL_ERR_ASN1_DECODE
                                 : status == QEL_OK)
            << status;
    });
}

} // namespace
