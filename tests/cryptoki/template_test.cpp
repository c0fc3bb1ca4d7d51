#include "cryptoki/token.h"
#include "support/arguments.h"

#include <cryptoki/template.h>
#include <gmock/gmock.h>
#include <util/toolkit_binding.h>

#include <cstring>

namespace {

using testing::ElementsAre;
using toolkit::A_RSA_CRT_KEY;
using toolkit::A_RSA_KEY;
using toolkit::ITEM;

// An attribute as plain values; integers in host order.
using Entry = std::pair<uint32_t, Bytes>;
using Entries = std::vector<Entry>;

Bytes number(uint32_t value) {
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

Bytes bytes_of_item(const ITEM &item) {
    return {item.data, item.data + item.len};
}

Entries entries_of(const CK_ATTRIBUTE *attributes, uint32_t count) {
    Entries entries;
    for (uint32_t i = 0; i < count; ++i) {
        const auto *value = static_cast<const uint8_t *>(attributes[i].value);
        entries.emplace_back(attributes[i].type, Bytes(value, value + attributes[i].value_length));
    }
    return entries;
}

OwnedTemplate template_of(const Entries &entries) {
    auto *attributes =
        static_cast<CK_ATTRIBUTE *>(std::calloc(entries.size(), sizeof(CK_ATTRIBUTE)));
    for (uint32_t i = 0; i < entries.size(); ++i) {
        const Bytes &value = entries[i].second;
        void *copy = std::malloc(value.size());
        std::memcpy(copy, value.data(), value.size());
        attributes[i] = {entries[i].first, copy, length_of(value)};
    }
    return own_template(attributes, static_cast<uint32_t>(entries.size()));
}

const RsaKey &key() {
    return RsaKey::of_512_bits();
}

Entries public_entries() {
    return {{CKA_CLASS, number(CKO_PUBLIC_KEY)},
            {CKA_KEY_TYPE, number(CKK_RSA)},
            {CKA_MODULUS, key().modulus()},
            {CKA_PUBLIC_EXPONENT, key().public_exponent()}};
}

Entries private_entries() {
    return {{CKA_CLASS, number(CKO_PRIVATE_KEY)},
            {CKA_KEY_TYPE, number(CKK_RSA)},
            {CKA_MODULUS, key().modulus()},
            {CKA_PUBLIC_EXPONENT, key().public_exponent()},
            {CKA_PRIVATE_EXPONENT, key().private_exponent()},
            {CKA_PRIME_1, key().prime1()},
            {CKA_PRIME_2, key().prime2()},
            {CKA_EXPONENT_1, key().exponent1()},
            {CKA_EXPONENT_2, key().exponent2()},
            {CKA_COEFFICIENT, key().coefficient()}};
}

Entries secret_entries() {
    return {{CKA_CLASS, number(CKO_SECRET_KEY)},
            {CKA_KEY_TYPE, number(CKK_RC4)},
            {CKA_VALUE, from_hex("0123456789")}};
}

// ---- Every conversion from a template, as a function that gives its result as bytes

using Convert = CK_RV (*)(const CK_ATTRIBUTE *, uint32_t, std::vector<Bytes> *);

template <auto convert>
CK_RV to_encoding(const CK_ATTRIBUTE *attributes, uint32_t count, std::vector<Bytes> *result) {
    uint8_t *ber = reinterpret_cast<uint8_t *>(1);
    uint32_t length = 99;
    const CK_RV status = convert(attributes, count, &ber, &length);
    if (status != CKR_OK) {
        EXPECT_EQ(ber, nullptr);
        EXPECT_EQ(length, 0u);
        return status;
    }
    result->assign({Bytes(ber, ber + length)});
    std::free(ber);
    return status;
}

template <auto convert, auto release, class Key, auto... items>
CK_RV to_record(const CK_ATTRIBUTE *attributes, uint32_t count, std::vector<Bytes> *result) {
    auto *key = reinterpret_cast<Key *>(1);
    const CK_RV status = convert(attributes, count, &key);
    EXPECT_EQ(key != nullptr, status == CKR_OK);
    if (status == CKR_OK)
        result->assign({bytes_of_item(items(*key))...});
    release(&key);
    return status;
}

constexpr Convert to_crt_key =
    to_record<template_2_RsaCrtKey, free_A_RSA_CRT_KEY, A_RSA_CRT_KEY,
              [](const A_RSA_CRT_KEY &key) { return key.modulus; },
              [](const A_RSA_CRT_KEY &key) { return key.prime[0]; },
              [](const A_RSA_CRT_KEY &key) { return key.prime[1]; },
              [](const A_RSA_CRT_KEY &key) { return key.primeExponent[0]; },
              [](const A_RSA_CRT_KEY &key) { return key.primeExponent[1]; },
              [](const A_RSA_CRT_KEY &key) { return key.coefficient; }>;
constexpr Convert to_rsa_key = to_record<template_2_RsaKey, free_A_RSA_KEY, A_RSA_KEY,
                                         [](const A_RSA_KEY &key) { return key.modulus; },
                                         [](const A_RSA_KEY &key) { return key.exponent; }>;
constexpr Convert to_key_item =
    to_record<template_2_KeyItem, free_ITEM, ITEM, [](const ITEM &item) { return item; }>;
constexpr Convert to_public_encoding = to_encoding<template_2_subjectPublicKeyInfoBer>;
constexpr Convert to_private_encoding = to_encoding<template_2_privateKeyInfoBer>;

TEST(Template, KeysOfAnotherLibraryConvertThereAndBack) {
    CK_ATTRIBUTE *attributes = nullptr;
    uint32_t count = 0;
    std::vector<Bytes> back;

    const Bytes private_info = key().private_key_info();
    ASSERT_EQ(privateKeyInfoBer_2_template(private_info.data(), length_of(private_info),
                                           &attributes, &count),
              CKR_OK);
    const OwnedTemplate owned_private = own_template(attributes, count);
    EXPECT_EQ(entries_of(attributes, count), private_entries());
    EXPECT_EQ(to_private_encoding(attributes, count, &back), CKR_OK);
    EXPECT_THAT(back, ElementsAre(private_info));
    EXPECT_EQ(to_crt_key(attributes, count, &back), CKR_OK);
    EXPECT_THAT(back, ElementsAre(key().modulus(), key().prime1(), key().prime2(),
                                  key().exponent1(), key().exponent2(), key().coefficient()));
    EXPECT_EQ(to_rsa_key(attributes, count, &back), CKR_OK);
    EXPECT_THAT(back, ElementsAre(key().modulus(), key().private_exponent()));

    const Bytes public_info = key().public_key_info();
    ASSERT_EQ(subjectPublicKeyInfoBer_2_template(public_info.data(), length_of(public_info),
                                                 &attributes, &count),
              CKR_OK);
    const OwnedTemplate owned_public = own_template(attributes, count);
    EXPECT_EQ(entries_of(attributes, count), public_entries());
    EXPECT_EQ(to_public_encoding(attributes, count, &back), CKR_OK);
    EXPECT_THAT(back, ElementsAre(public_info));
    EXPECT_EQ(to_rsa_key(attributes, count, &back), CKR_OK);
    EXPECT_THAT(back, ElementsAre(key().modulus(), key().public_exponent()));
}

TEST(Template, SecretKeys) {
    const struct {
        const char *why;
        uint32_t key_type;
        uint32_t length;
        CK_RV result;
    } rows[] = {
        {"RC2", CKK_RC2, 5, CKR_OK},
        {"RC4", CKK_RC4, 1, CKR_OK},
        {"DES", CKK_DES, 8, CKR_OK},
        {"DES with two keys", CKK_DES2, 16, CKR_OK},
        {"DES with three keys", CKK_DES3, 24, CKR_OK},
        {"RSA is no secret key", CKK_RSA, 8, CKR_DATA_INVALID},
        {"before the first secret key type", 0x10, 8, CKR_DATA_INVALID},
        {"after the last", 0x16, 8, CKR_DATA_INVALID},
        {"no octets", CKK_RC4, 0, CKR_DATA_INVALID},
    };
    const Bytes octets = from_hex("000102030405060708090a0b0c0d0e0f1011121314151617");
    for (const auto &c : rows) {
        SCOPED_TRACE(c.why);
        CK_ATTRIBUTE *attributes = nullptr;
        uint32_t count = 0;
        ASSERT_EQ(secretKey_2_template(octets.data(), c.length, c.key_type, &attributes, &count),
                  c.result);
        if (c.result != CKR_OK) {
            EXPECT_EQ(attributes, nullptr);
            continue;
        }
        const OwnedTemplate owned = own_template(attributes, count);
        const Bytes value(octets.begin(), octets.begin() + c.length);
        EXPECT_EQ(entries_of(attributes, count), (Entries{{CKA_CLASS, number(CKO_SECRET_KEY)},
                                                          {CKA_KEY_TYPE, number(c.key_type)},
                                                          {CKA_VALUE, value}}));
        std::vector<Bytes> back;
        EXPECT_EQ(to_key_item(attributes, count, &back), CKR_OK);
        EXPECT_THAT(back, ElementsAre(value));
    }
}

Entries with(Entries entries, uint32_t type, Bytes value) {
    for (Entry &entry : entries)
        if (entry.first == type)
            entry.second = std::move(value);
    return entries;
}

Entries without(Entries entries, uint32_t type) {
    std::erase_if(entries, [type](const Entry &entry) { return entry.first == type; });
    return entries;
}

CK_RV result_of(Convert convert, const Entries &entries) {
    const OwnedTemplate made = template_of(entries);
    std::vector<Bytes> result;
    return convert(made.get(), static_cast<uint32_t>(entries.size()), &result);
}

// Without any one of the entries a conversion fails, but for those that are spare to it.
TEST(Template, EveryNeededAttributeIsMissed) {
    const std::vector<uint32_t> none;
    const struct {
        const char *why;
        Convert convert;
        Entries entries;
        std::vector<uint32_t> spare;
    } cases[] = {
        {"SubjectPublicKeyInfo", to_public_encoding, public_entries(), none},
        {"PrivateKeyInfo", to_private_encoding, private_entries(), none},
        {"remainder form",
         to_crt_key,
         private_entries(),
         {CKA_PUBLIC_EXPONENT, CKA_PRIVATE_EXPONENT}},
        {"public numbers", to_rsa_key, public_entries(), none},
        {"private numbers",
         to_rsa_key,
         private_entries(),
         {CKA_PUBLIC_EXPONENT, CKA_PRIME_1, CKA_PRIME_2, CKA_EXPONENT_1, CKA_EXPONENT_2,
          CKA_COEFFICIENT}},
        {"secret key", to_key_item, secret_entries(), none},
    };
    for (const auto &c : cases)
        for (const Entry &entry : c.entries) {
            const uint32_t type = entry.first;
            SCOPED_TRACE(std::string(c.why) + " without " + std::to_string(type));
            const bool spare = std::count(c.spare.begin(), c.spare.end(), type) != 0;
            EXPECT_EQ(result_of(c.convert, without(c.entries, type)),
                      spare ? CKR_OK : CKR_ATTRIBUTE_TYPE_INVALID);
        }
}

TEST(Template, ClassThenKeyTypeThenNumbers) {
    const struct {
        const char *why;
        Convert convert;
        Entries entries;
        CK_RV result = CKR_DATA_INVALID;
    } cases[] = {
        {"public key for SubjectPublicKeyInfo", to_public_encoding, private_entries()},
        {"private key for PrivateKeyInfo", to_private_encoding, public_entries()},
        {"private key for the remainder form", to_crt_key, public_entries()},
        {"a secret key has no RSA numbers", to_rsa_key, secret_entries()},
        {"an RSA key is no secret key", to_key_item, private_entries()},
        {"class 1 is below both RSA classes", to_rsa_key,
         with(public_entries(), CKA_CLASS, number(1))},
        {"RSA wants key type RSA", to_rsa_key,
         with(public_entries(), CKA_KEY_TYPE, number(CKK_DES))},
        {"a secret key wants a secret key type", to_key_item,
         with(secret_entries(), CKA_KEY_TYPE, number(CKK_RSA))},
        {"an integer is 4 bytes", to_rsa_key, with(public_entries(), CKA_CLASS, from_hex("02"))},
        {"wrong class is seen before missing key type", to_crt_key,
         without(public_entries(), CKA_KEY_TYPE)},
        {"wrong key type is seen before missing numbers", to_crt_key,
         without(with(private_entries(), CKA_KEY_TYPE, number(CKK_RC4)), CKA_MODULUS)},
        {"missing key type is seen before missing numbers", to_crt_key,
         without(without(private_entries(), CKA_KEY_TYPE), CKA_MODULUS),
         CKR_ATTRIBUTE_TYPE_INVALID},
        {"numbers that the toolkit refuses", to_public_encoding,
         with(public_entries(), CKA_MODULUS, from_hex("0f"))},
    };
    for (const auto &c : cases)
        EXPECT_EQ(result_of(c.convert, c.entries), c.result) << c.why;
}

TEST(Template, NullAndEmptyArguments) {
    std::vector<Bytes> result;
    const OwnedTemplate made = template_of(public_entries());
    for (const Convert convert :
         {to_public_encoding, to_private_encoding, to_crt_key, to_rsa_key, to_key_item}) {
        EXPECT_EQ(convert(nullptr, 4, &result), CKR_DATA_INVALID);
        EXPECT_EQ(convert(made.get(), 0, &result), CKR_DATA_INVALID);
    }
    uint8_t octet = 1;
    CK_ATTRIBUTE attribute = {};
    EXPECT_EQ(bundle_attr(0x7FFFFFFF, &octet, 1, &attribute), CKR_OK);
    EXPECT_EQ(bundle_attr(0x80000000, &octet, 1, &attribute), CKR_DATA_INVALID);
    each_missing(CKR_DATA_INVALID, bundle_attr, {1}, CKA_VALUE, &octet, 1, &attribute);
    EXPECT_EQ(store_attr_in_template(nullptr, 0, &attribute), CKR_DATA_INVALID);
    attribute.type = 0x80000000;
    EXPECT_EQ(get_attr_from_template(made.get(), 4, &attribute), CKR_DATA_INVALID);
    ITEM item = {};
    EXPECT_EQ(get_item_from_template(made.get(), 4, 0x80000000, &item), CKR_DATA_INVALID);
    EXPECT_EQ(read_item_from_template(made.get(), 4, 0x80000000, &item), CKR_DATA_INVALID);
    EXPECT_EQ(read_item_from_template(made.get(), 4, CKA_MODULUS, nullptr), CKR_DATA_INVALID);
    CK_ATTRIBUTE *attributes = nullptr;
    uint32_t count = 0;
    CK_OBJECT empty = {nullptr, 0};
    EXPECT_EQ(hKey_2_template(nullptr, &attributes, &count), CKR_KEY_HANDLE_INVALID);
    EXPECT_EQ(hKey_2_template(&empty, &attributes, &count), CKR_KEY_HANDLE_INVALID);
}

TEST(Template, FirstEntryOfATypeIsTaken) {
    Entries entries = secret_entries();
    entries.push_back({CKA_VALUE, from_hex("ff")});
    const OwnedTemplate made = template_of(entries);
    std::vector<Bytes> result;
    EXPECT_EQ(to_key_item(made.get(), 4, &result), CKR_OK);
    EXPECT_THAT(result, ElementsAre(from_hex("0123456789")));
}

} // namespace
