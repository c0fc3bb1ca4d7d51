// Key objects: conversions between key-info types, encodings against libcrypto, refusals.
#include "objects.h"
#include "support/ber.h"
#include "support/rsa_key.h"

namespace toolkit {
namespace {

// With an indefinite length.
Bytes open_ended(uint8_t tag, const Bytes &contents) {
    return Bytes{tag, 0x80} + contents + Bytes{0, 0};
}

Bytes integer(const Bytes &digits) {
    return tlv(2, (digits[0] & 0x80) != 0 ? Bytes{0} + digits : digits);
}

// What the object gives for the type, spelled out.
std::string read(B_KEY_OBJ key, B_KEY_INFO_TYPE type) {
    POINTER info;
    if (const int error = B_GetKeyInfo(&info, key, type); error != BE_OK)
        return error_name(error);
    std::string text;
    const auto add = [&](const ITEM *items, int count) {
        for (int i = 0; i < count; ++i)
            text += (i != 0 ? " " : "") + to_hex(bytes_of_item(items[i]));
    };
    if (type == KI_RSAPublic || type == KI_RSAPrivate)
        add(&static_cast<const A_RSA_KEY *>(info)->modulus, 2);
    else if (type == KI_RSA_CRT)
        add(&static_cast<const A_RSA_CRT_KEY *>(info)->modulus, 6);
    else if (type == KI_PKCS_RSAPrivate)
        add(&static_cast<const A_PKCS_RSA_PRIVATE_KEY *>(info)->modulus, 8);
    else if (type == KI_8Byte || type == KI_DES8)
        text = to_hex(static_cast<const uint8_t *>(info), 8);
    else if (type == KI_24Byte)
        text = to_hex(static_cast<const uint8_t *>(info), 24);
    else if (type == KI_DESX) {
        const auto &desx = *static_cast<const A_DESX_KEY *>(info);
        text = to_hex(desx.key, 8) + " " + to_hex(desx.inputWhitener, 8) + " " +
               to_hex(desx.outputWhitener, 8);
    } else
        add(static_cast<const ITEM *>(info), 1);
    return text;
}

std::string joined(const std::vector<Bytes> &numbers, std::initializer_list<std::size_t> which) {
    std::string text;
    for (const std::size_t i : which)
        text += (text.empty() ? "" : " ") + to_hex(numbers[i]);
    return text;
}

TEST(RsaKeys, ConvertAsLibcryptoDoes) {
    for (const unsigned bits : {512u, 513u, 1023u, 1024u, 2048u}) {
        SCOPED_TRACE(bits);
        const RsaKey rsa(bits);
        const Bytes private_ber = rsa.private_key_info(), public_ber = rsa.public_key_info();
        const std::vector<Bytes> numbers = {
            rsa.modulus(), rsa.public_exponent(), rsa.private_exponent(), rsa.prime1(),
            rsa.prime2(),  rsa.exponent1(),       rsa.exponent2(),        rsa.coefficient()};
        const std::string pkcs = joined(numbers, {0, 1, 2, 3, 4, 5, 6, 7});

        const Key_ from_private(private_ber, KI_PKCS_RSAPrivateBER);
        EXPECT_EQ(read(from_private, KI_PKCS_RSAPrivateBER), to_hex(private_ber));
        EXPECT_EQ(read(from_private, KI_PKCS_RSAPrivate), pkcs);
        EXPECT_EQ(read(from_private, KI_RSA_CRT), joined(numbers, {0, 3, 4, 5, 6, 7}));
        EXPECT_EQ(read(from_private, KI_RSAPrivate), joined(numbers, {0, 2}));
        EXPECT_EQ(read(from_private, KI_RSAPublic), joined(numbers, {0, 1}));
        EXPECT_EQ(read(from_private, KI_RSAPublicBER), to_hex(public_ber));
        EXPECT_EQ(read(from_private, KI_Item), "BE_KEY_OPERATION_UNKNOWN");

        const Key_ from_public(public_ber, KI_RSAPublicBER);
        EXPECT_EQ(read(from_public, KI_RSAPublic), joined(numbers, {0, 1}));
        EXPECT_EQ(read(from_public, KI_RSAPublicBER), to_hex(public_ber));
        for (const B_KEY_INFO_TYPE type :
             {KI_RSAPrivate, KI_RSA_CRT, KI_PKCS_RSAPrivate, KI_PKCS_RSAPrivateBER})
            EXPECT_EQ(read(from_public, type), "BE_KEY_OPERATION_UNKNOWN");

        // Records, with a leading zero that must not come back.
        std::vector<Bytes> padded;
        for (const Bytes &digits : numbers)
            padded.push_back(Bytes{0} + digits);
        const auto item = [&](std::size_t i) { return item_of(padded[i]); };
        const A_PKCS_RSA_PRIVATE_KEY record = {
            item(0), item(1), item(2), {item(3), item(4)}, {item(5), item(6)}, item(7)};
        const A_RSA_CRT_KEY crt = {item(0), {item(3), item(4)}, {item(5), item(6)}, item(7)};
        const A_RSA_KEY rsa_private = {item(0), item(2)}, rsa_public = {item(0), item(1)};
        EXPECT_EQ(read(Key_(KI_PKCS_RSAPrivate, &record), KI_PKCS_RSAPrivateBER),
                  to_hex(private_ber));
        EXPECT_EQ(read(Key_(KI_RSAPublic, &rsa_public), KI_RSAPublicBER), to_hex(public_ber));
        EXPECT_EQ(read(Key_(KI_RSA_CRT, &crt), KI_RSA_CRT), joined(numbers, {0, 3, 4, 5, 6, 7}));
        EXPECT_EQ(read(Key_(KI_RSA_CRT, &crt), KI_RSAPublic), "BE_KEY_OPERATION_UNKNOWN");
        EXPECT_EQ(read(Key_(KI_RSAPrivate, &rsa_private), KI_RSAPrivate), joined(numbers, {0, 2}));
        EXPECT_EQ(read(Key_(KI_RSAPrivate, &rsa_private), KI_RSAPublic),
                  "BE_KEY_OPERATION_UNKNOWN");
    }
}

const Bytes rsa_id = from_hex("06 09 2a864886f70d010101");
const Bytes annex_id = from_hex("06 04 55080101");
const Bytes null = from_hex("05 00");
const Bytes modulus = Bytes(31, 0xaa) + Bytes{0xab};
const Bytes exponent = {1, 0, 1};

Bytes public_info(const Bytes &algorithm, const Bytes &key, uint8_t unused_bits = 0) {
    return tlv(0x30, tlv(0x30, algorithm) + tlv(3, Bytes{unused_bits} + key));
}

Bytes public_key(const Bytes &n, const Bytes &e) {
    return tlv(0x30, integer(n) + integer(e));
}

// A number of so many bits, odd.
Bytes odd(std::size_t bits) {
    Bytes digits((bits + 7) / 8, 0x11);
    digits[0] = static_cast<uint8_t>(1u << ((bits - 1) % 8));
    digits.back() |= 1;
    return digits;
}

// How reading an encoding ends.
std::string taken(B_KEY_INFO_TYPE type, const Bytes &encoding) {
    const Key_ key;
    const ITEM item = item_of(encoding);
    return error_name(B_SetKeyInfo(key, type, &item));
}

TEST(RsaKeys, PublicEncodingsThatAreReadAndRefused) {
    const Bytes key = public_key(modulus, exponent), nothing;
    const Bytes good = public_info(rsa_id + null, key);
    const auto info_of = [](const Bytes &bits) { return public_info(rsa_id + null, bits); };
    const auto numbers = [&](const Bytes &n, const Bytes &e) { return info_of(public_key(n, e)); };
    const std::pair<const char *, Bytes> taken_encodings[] = {
        {"as written", good},
        {"no parameters", public_info(rsa_id, key)},
        {"the annex's algorithm, without a size", public_info(annex_id + null, key)},
        {"the annex's algorithm, with a size", public_info(annex_id + integer({1, 0}), key)},
        {"the annex's algorithm, with nothing", public_info(annex_id, key)},
        {"indefinite lengths",
         open_ended(0x30,
                    open_ended(0x30, rsa_id + null) +
                        tlv(3, Bytes{0} + open_ended(0x30, integer(modulus) + integer(exponent))))},
        {"lengths in more bytes than needed", from_hex("30 83 00 00") +
                                                  Bytes{static_cast<uint8_t>(good.size() - 2)} +
                                                  Bytes(good.begin() + 2, good.end())},
        {"a modulus without its leading zero, as certificates of the 1990s have it",
         info_of(tlv(0x30, tlv(2, modulus) + integer(exponent)))},
        {"an exponent of 3", numbers(modulus, {3})},
        {"an exponent as long as the modulus", numbers(modulus, Bytes(31, 0x99) + Bytes{1})},
        {"256 bits", numbers(odd(256), exponent)},
        {"16384 bits", numbers(odd(16384), exponent)},
    };
    for (const auto &[reason, encoding] : taken_encodings)
        EXPECT_EQ(taken(KI_RSAPublicBER, encoding), "BE_OK") << reason;
    const struct {
        const char *reason;
        Bytes encoding;
        const char *error = "BE_DATA";
    } refused[] = {
        {"the annex's algorithm, with more", public_info(annex_id + null + null, key)},
        {"a size for rsaEncryption", public_info(rsa_id + integer({1, 0}), key)},
        {"NULL that holds something", public_info(rsa_id + from_hex("05 01 00"), key)},
        {"another algorithm", public_info(from_hex("06 07 2a8648ce380401") + null, key)},
        {"an identifier one arc longer", public_info(from_hex("06 0a 2a864886f70d01010101"), key)},
        {"unused bits", public_info(rsa_id + null, key, 1)},
        {"an empty bit string", tlv(0x30, tlv(0x30, rsa_id + null) + tlv(3, nothing))},
        {"bytes behind the whole", good + Bytes{0}},
        {"bytes behind the bit string",
         tlv(0x30, tlv(0x30, rsa_id + null) + tlv(3, Bytes{0} + key) + null)},
        {"bytes behind the key", info_of(key + null)},
        {"bytes behind the exponent",
         info_of(tlv(0x30, integer(modulus) + integer(exponent) + null))},
        {"an indefinite length without its end",
         Bytes{0x30, 0x80} + tlv(0x30, rsa_id + null) + tlv(3, Bytes{0} + key)},
        {"a length in more bytes than a size has",
         from_hex("30 8a 01 00 00 00 00 00 00 00 00 40") + Bytes(good.begin() + 2, good.end())},
        {"a bit string in pieces",
         tlv(0x30, tlv(0x30, rsa_id + null) + tlv(0x23, tlv(3, Bytes{0} + key)))},
        {"a negative exponent", info_of(tlv(0x30, integer(modulus) + tlv(2, {0x81})))},
        {"an integer with a zero too many",
         info_of(tlv(0x30, integer(modulus) + tlv(2, Bytes{0} + exponent)))},
        {"an integer of no bytes", info_of(tlv(0x30, integer(modulus) + tlv(2, nothing)))},
        {"a modulus of 0", numbers({0}, {0}), "BE_KEY_INFO"},
        {"an exponent of 0", numbers(modulus, {0}), "BE_KEY_INFO"},
        {"an exponent of 1", numbers(modulus, {1}), "BE_KEY_INFO"},
        {"an even exponent", numbers(modulus, {4}), "BE_KEY_INFO"},
        {"a longer exponent", numbers(modulus, Bytes(32, 0x11) + Bytes{1}), "BE_KEY_INFO"},
        {"an even modulus", numbers(Bytes(32, 0xaa), exponent), "BE_KEY_INFO"},
        {"255 bits", numbers(odd(255), exponent), "BE_MODULUS_LEN"},
        {"16385 bits", numbers(odd(16385), exponent), "BE_MODULUS_LEN"},
    };
    for (const auto &row : refused)
        EXPECT_EQ(taken(KI_RSAPublicBER, row.encoding), row.error) << row.reason;
}

TEST(RsaKeys, PrivateEncodingsThatAreReadAndRefused) {
    Bytes numbers;
    for (int i = 0; i < 8; ++i)
        numbers = numbers + integer(i == 1 ? exponent : modulus);
    const Bytes version = integer({0}), algorithm = tlv(0x30, rsa_id + null);
    const Bytes key = tlv(0x30, version + numbers), good = version + algorithm + tlv(4, key);
    const Bytes attributes = tlv(0xa0, tlv(0x30, rsa_id + tlv(0x31, null)));
    const auto with_key = [&](const Bytes &octets) { return version + algorithm + tlv(4, octets); };
    EXPECT_EQ(taken(KI_PKCS_RSAPrivateBER, tlv(0x30, good)), "BE_OK");
    EXPECT_EQ(taken(KI_PKCS_RSAPrivateBER, tlv(0x30, good + attributes)), "BE_OK");
    const std::pair<const char *, Bytes> refused[] = {
        {"attributes twice", good + attributes + attributes},
        {"something else behind the key", good + null},
        {"another version", integer({1}) + algorithm + tlv(4, key)},
        {"no version", algorithm + tlv(4, key)},
        {"a key with more than two primes",
         with_key(tlv(0x30, integer({1}) + numbers + tlv(0x30, null)))},
        {"a public algorithm", version + tlv(0x30, annex_id + null) + tlv(4, key)},
        {"one number short",
         with_key(tlv(0x30, version + Bytes(numbers.begin(), numbers.end() - 35)))},
        {"bytes behind the key in its octets", with_key(key + null)},
        {"octets in pieces", version + algorithm + tlv(0x24, tlv(4, key))},
    };
    for (const auto &[reason, contents] : refused)
        EXPECT_EQ(taken(KI_PKCS_RSAPrivateBER, tlv(0x30, contents)), "BE_DATA") << reason;
}

// Whatever a spoiled encoding gives, it is a status or a key that can be read.
TEST(RsaKeys, SpoiledEncodingsGiveAStatus) {
    const struct {
        B_KEY_INFO_TYPE type;
        const Bytes &good;
    } encodings[] = {{KI_RSAPublicBER, sample_public_key()},
                     {KI_PKCS_RSAPrivateBER, sample_private_key()}};
    for (const auto &encoding : encodings) {
        std::size_t refused = 0;
        each_spoiled(encoding.good, [&](const Bytes &spoiled, const std::string &what) {
            Key_ key;
            const ITEM item = item_of(spoiled);
            const std::string status = error_name(B_SetKeyInfo(key, encoding.type, &item));
            if (status == "BE_OK") {
                ASSERT_EQ(spoiled.size(), encoding.good.size()) << what;
                ASSERT_NE(read(key, encoding.type).substr(0, 3), "BE_") << what;
            } else {
                ++refused;
                ASSERT_TRUE(status == "BE_DATA" || status == "BE_KEY_INFO" ||
                            status == "BE_MODULUS_LEN")
                    << what << ": " << status;
                ASSERT_EQ(read(key, encoding.type), "BE_KEY_NOT_SET") << what;
            }
        });
        EXPECT_GT(refused, encoding.good.size());
    }
}

TEST(KeyObjects, ReadSecretKeysByLength) {
    const std::string des = "0123456789abcdef", other = "fedcba9876543210";
    const std::string all = des + other + des;
    const auto unknown = "BE_KEY_OPERATION_UNKNOWN";
    const struct {
        const char *reason;
        std::string key, as_8, as_des, as_24, as_desx;
    } cases[] = {
        {"8 bytes of odd parity", des, des, des, unknown, unknown},
        {"8 bytes of even parity", "0022446688aaccee", "0022446688aaccee", "0123456789abcdef",
         unknown, unknown},
        {"7 bytes", "01234567890abc", unknown, unknown, unknown, unknown},
        {"9 bytes", des + "00", unknown, unknown, unknown, unknown},
        {"24 bytes", all, unknown, unknown, all, des + " " + other + " " + des},
        {"no bytes", "", unknown, unknown, unknown, unknown},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.reason);
        const Key_ key(from_hex(row.key));
        EXPECT_EQ(read(key, KI_Item), row.key);
        EXPECT_EQ(read(key, KI_8Byte), row.as_8);
        EXPECT_EQ(read(key, KI_DES8), row.as_des);
        EXPECT_EQ(read(key, KI_24Byte), row.as_24);
        EXPECT_EQ(read(key, KI_DESX), row.as_desx);
        EXPECT_EQ(read(key, KI_RSAPublic), unknown);
    }
    const Bytes bytes = from_hex(all);
    const A_DESX_KEY desx = {bytes.data(), bytes.data() + 8, bytes.data() + 16};
    EXPECT_EQ(read(Key_(KI_DESX, &desx), KI_Item), all);
    EXPECT_EQ(read(Key_(KI_24Byte, bytes.data()), KI_Item), all);
    EXPECT_EQ(read(Key_(KI_8Byte, bytes.data()), KI_DES8), des);
}

TEST(KeyObjects, AnswerMisuseByName) {
    const Bytes bytes(24, 1);
    const ITEM item = item_of(bytes), null_data = {nullptr, 4};
    const A_DESX_KEY half_desx = {bytes.data(), nullptr, bytes.data()};
    const A_RSA_KEY no_exponent = {item, {nullptr, 0}}, null_exponent = {item, {nullptr, 3}};
    Key_ set(KI_Item, &item), empty;
    POINTER info;
    expect_answers({
        {"no object", B_SetKeyInfo(nullptr, KI_Item, &item), "BE_KEY_OBJ"},
        {"no object", B_GetKeyInfo(&info, nullptr, KI_Item), "BE_KEY_OBJ"},
        {"set twice", B_SetKeyInfo(set, KI_Item, &item), "BE_KEY_ALREADY_SET"},
        {"no type", B_SetKeyInfo(empty, nullptr, &item), "BE_KEY_INFO"},
        {"no info", B_SetKeyInfo(empty, KI_Item, nullptr), "BE_KEY_INFO"},
        {"null bytes", B_SetKeyInfo(empty, KI_Item, &null_data), "BE_KEY_INFO"},
        {"null bytes", B_SetKeyInfo(empty, KI_RSAPublicBER, &null_data), "BE_KEY_INFO"},
        {"null bytes", B_SetKeyInfo(empty, KI_PKCS_RSAPrivateBER, &null_data), "BE_KEY_INFO"},
        {"half a key", B_SetKeyInfo(empty, KI_DESX, &half_desx), "BE_KEY_INFO"},
        {"no exponent", B_SetKeyInfo(empty, KI_RSAPublic, &no_exponent), "BE_KEY_INFO"},
        {"null exponent", B_SetKeyInfo(empty, KI_RSAPublic, &null_exponent), "BE_KEY_INFO"},
        {"still empty", B_GetKeyInfo(&info, empty, KI_Item), "BE_KEY_NOT_SET"},
        {"no type", B_GetKeyInfo(&info, set, nullptr), "BE_KEY_INFO"},
        {"no result", B_GetKeyInfo(nullptr, set, KI_Item), "BE_KEY_INFO"},
    });
}

TEST(KeyObjects, LeaveNothingBehindAndReportEachAllocationThatFails) {
    const ITEM private_key = item_of(sample_private_key());
    const Bytes bytes(24, 3);
    const struct {
        B_KEY_INFO_TYPE set;
        POINTER info;
        std::vector<B_KEY_INFO_TYPE> get;
    } rows[] = {
        {KI_PKCS_RSAPrivateBER,
         &private_key,
         {KI_PKCS_RSAPrivate, KI_RSA_CRT, KI_RSAPublic, KI_RSAPublicBER, KI_PKCS_RSAPrivateBER}},
        {KI_8Byte, bytes.data(), {KI_Item, KI_DES8}},
        {KI_24Byte, bytes.data(), {KI_DESX}},
    };
    for (const auto &row : rows) {
        fault::each_allocation([&] {
            B_KEY_OBJ key = nullptr;
            if (B_CreateKeyObject(&key) == BE_ALLOC)
                return;
            const FreedBlocksAreZero watch;
            int error = B_SetKeyInfo(key, row.set, row.info);
            for (const B_KEY_INFO_TYPE type : row.get) {
                POINTER info = nullptr;
                if (error == BE_OK)
                    error = B_GetKeyInfo(&info, key, type);
            }
            B_DestroyKeyObject(&key);
            EXPECT_EQ(error, fault::met() ? BE_ALLOC : BE_OK);
        });
    }
}

} // namespace
} // namespace toolkit
