#include "support/fault.h"
#include "support/names.h"

using namespace records;

namespace {

constexpr int unset = 12345;

// The result of a comparison that succeeds.
template <class T>
int compared(QelStatus (*compare)(const T *, const T *, int *), const T &a, const T &b) {
    int result = unset;
    EXPECT_EQ(compare(&a, &b, &result), QEL_OK);
    return result;
}

int sign(int value) {
    return (value > 0) - (value < 0);
}

using Components = std::vector<uint32_t>;

// Records over values that live longer.
QelOid oid_over(const Components &components) {
    return {static_cast<uint16_t>(components.size()), const_cast<uint32_t *>(components.data())};
}
QelOctetString octets_over(const Bytes &bytes) {
    return {static_cast<uint32_t>(bytes.size()), const_cast<uint8_t *>(bytes.data())};
}
QelBitString bits_over(uint32_t length, const Bytes &bytes) {
    return {length, const_cast<uint8_t *>(bytes.data())};
}
QelSerial serial_over(const Bytes &bytes) {
    return {static_cast<uint16_t>(bytes.size()), const_cast<uint8_t *>(bytes.data())};
}

TEST(Compare, ObjectIdentifiers) {
    const struct {
        const char *reason;
        Components a, b;
        int result;
    } rows[] = {
        {"equal", {2, 5, 4, 3}, {2, 5, 4, 3}, 0},
        {"the shorter is smaller", {1, 2, 840}, {1, 2, 840, 113549}, -1},
        {"the longer is greater", {1, 2, 840, 113549}, {1, 2, 840}, 1},
        {"the first difference decides", {1, 3, 1}, {1, 2, 9}, 1},
        {"the first difference decides before the length", {1, 2, 9, 9}, {1, 3}, -1},
        {"components have no sign", {1, 0x80000000}, {1, 1}, 1},
        {"a difference of 2^31", {0}, {0xFFFFFFFF}, -1},
        {"both empty", {}, {}, 0},
        {"empty is smaller", {}, {0}, -1},
    };
    for (const auto &row : rows)
        EXPECT_EQ(compared(__qel_cmp_oid, oid_over(row.a), oid_over(row.b)), row.result)
            << row.reason;
}

TEST(Compare, AlgorithmIdentifiersAndKeysThatNameThem) {
    const struct {
        const char *reason;
        Components a_oid;
        const char *a_parameters; // hexadecimal, or null
        Components b_oid;
        const char *b_parameters;
        int sign;
    } rows[] = {
        {"equal", {1, 2}, "0500", {1, 2}, "0500", 0},
        {"without parameters", {1, 2}, nullptr, {1, 2}, nullptr, 0},
        {"NULL and absent differ", {1, 2}, "0500", {1, 2}, nullptr, 1},
        {"absent and NULL differ", {1, 2}, nullptr, {1, 2}, "0500", 1},
        {"lengths differ", {1, 2}, "05", {1, 2}, "0500", 1},
        {"bytes differ upwards", {1, 2}, "0501", {1, 2}, "0500", 1},
        {"bytes differ downwards", {1, 2}, "0500", {1, 2}, "0580", -1},
        {"identifiers have no order here", {1, 2}, "0500", {1, 3}, "0500", 1},
        {"an identifier that is greater", {1, 3}, "0500", {1, 2}, "0500", 1},
    };
    struct Key {
        Bytes parameter_bytes;
        QelOid oid;
        QelOctetString parameters = octets_over(parameter_bytes);
        QelAlgId algorithm;

        Key(const Components &components, const char *hex)
            : parameter_bytes(from_hex(hex != nullptr ? hex : "")),
              oid(oid_over(components)), algorithm{&oid, hex != nullptr ? &parameters : nullptr} {}
        QelKeyInfo with_bits(const Bytes &bits) { return {&algorithm, bits_over(8, bits)}; }
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        Key a(row.a_oid, row.a_parameters), b(row.b_oid, row.b_parameters);
        const Bytes low = {0}, high = {1};
        EXPECT_EQ(sign(compared(__qel_cmp_algid, a.algorithm, b.algorithm)), row.sign);
        EXPECT_EQ(compared(__qel_cmp_keyinfo, a.with_bits(high), b.with_bits(high)),
                  row.sign != 0 ? 1 : 0);
        EXPECT_EQ(sign(compared(__qel_cmp_keyinfo, a.with_bits(low), b.with_bits(high))),
                  row.sign != 0 ? 1 : -1);
    }
}

TEST(Compare, BitStrings) {
    const struct {
        const char *reason;
        uint32_t a_length;
        Bytes a;
        uint32_t b_length;
        Bytes b;
        int sign;
    } rows[] = {
        {"equal", 16, {0xAB, 0xCD}, 16, {0xAB, 0xCD}, 0},
        {"unused bits do not count", 12, {0xAB, 0xC0}, 12, {0xAB, 0xCF}, 0},
        {"the last used bit counts", 12, {0xAB, 0xC0}, 12, {0xAB, 0xD0}, 1},
        {"a difference in the last bits has no order", 12, {0xAB, 0x10}, 12, {0xAB, 0xF0}, 1},
        {"a single bit", 1, {0x80}, 1, {0xFF}, 0},
        {"a single bit differs", 1, {0x80}, 1, {0x7F}, 1},
        {"whole bytes are ordered", 16, {0x01, 0x00}, 16, {0x02, 0x00}, -1},
        {"whole bytes are ordered without sign", 12, {0x80, 0x00}, 12, {0x7F, 0x00}, 1},
        {"whole bytes decide before the last bits", 12, {0x01, 0xF0}, 12, {0x02, 0x00}, -1},
        {"lengths differ", 8, {0x00}, 9, {0x00, 0x00}, 1},
        {"lengths differ, the other way", 9, {0x00, 0x00}, 8, {0x00}, 1},
        {"no bits", 0, {}, 0, {}, 0},
    };
    for (const auto &row : rows)
        EXPECT_EQ(sign(compared(__qel_cmp_bstr, bits_over(row.a_length, row.a),
                                bits_over(row.b_length, row.b))),
                  row.sign)
            << row.reason;
}

TEST(Compare, SerialNumbers) {
    const struct {
        const char *reason;
        Bytes a, b;
        int sign;
    } rows[] = {
        {"equal", {0x01, 0x02}, {0x01, 0x02}, 0},
        {"a sign byte makes another number", {0x00, 0x01}, {0x01}, 1},
        {"lengths decide before bytes", {0x01}, {0x00, 0x01}, 1},
        {"greater", {0xFF}, {0x01}, 1},
        {"smaller", {0x01}, {0xFF}, -1},
        {"a last byte differs", {0x01, 0x02}, {0x01, 0x03}, -1},
        {"both empty", {}, {}, 0},
    };
    for (const auto &row : rows)
        EXPECT_EQ(sign(compared(__qel_cmp_serial, serial_over(row.a), serial_over(row.b))),
                  row.sign)
            << row.reason;
}

// Two nulls are equal, and one null differs from everything.
template <class Compare, class T> void check_nulls(const Compare &compare, const T *value) {
    int result = unset;
    EXPECT_EQ(compare(value, value, nullptr), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(compare(nullptr, nullptr, nullptr), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(compare(nullptr, nullptr, &result), QEL_OK);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(compare(value, nullptr, &result), QEL_OK);
    EXPECT_EQ(result, 1);
    result = unset;
    EXPECT_EQ(compare(nullptr, value, &result), QEL_OK);
    EXPECT_EQ(result, 1);
}

TEST(Compare, Nulls) {
    const OwnedCert cert(full_cert());
    check_nulls(__qel_cmp_oid, cert->algorithm->algorithm);
    check_nulls(__qel_cmp_algid, cert->algorithm);
    check_nulls(__qel_cmp_keyinfo, cert->pubKeyInfo);
    check_nulls(__qel_cmp_serial, &cert->serial);
    check_nulls(__qel_cmp_bstr, &cert->sigBits);
}

TEST(Compare, RecordsThatCountValuesTheyHaveNotAreRefused) {
    const Components components = {1, 2};
    QelOid good = oid_over(components);
    const QelOid bad_oid = {1, nullptr};
    const QelBitString bad_bits = {8, nullptr};
    const QelSerial bad_serial = {1, nullptr};
    QelOctetString bad_parameters = {2, nullptr};
    const QelAlgId bad_algid = {&good, &bad_parameters};
    int result = unset;
    EXPECT_EQ(__qel_cmp_oid(&bad_oid, &good, &result), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_cmp_oid(&good, &bad_oid, &result), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_cmp_bstr(&bad_bits, &bad_bits, &result), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_cmp_serial(&bad_serial, &bad_serial, &result), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_cmp_algid(&bad_algid, &bad_algid, &result), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(result, unset);
}

using CompareNames = NamesTest;

TEST_F(CompareNames, ByTheirPrintableForm) {
    const struct {
        const char *reason;
        const char *a, *b;
        bool equal;
    } rows[] = {
        {"the same", "CN=Alice, O=Example, C=US", "CN=Alice, O=Example, C=US", true},
        {"letters of either case", "CN=Alice", "cn=alice", true},
        {"the order of RDNs counts", "CN=A, O=B", "O=B, CN=A", false},
        {"the order of assertions in an RDN does not", "CN=A + OU=B", "OU=B + CN=A", true},
        {"one RDN more", "CN=A", "CN=A, O=B", false},
        {"types count", "O=A", "OU=A", false},
        {"one RDN of two assertions is not two RDNs", "CN=A + OU=B", "CN=A, OU=B", false},
    };
    for (const auto &row : rows) {
        const OwnedName a = name(row.a), b = name(row.b);
        int result = unset;
        EXPECT_EQ(__qel_cmp_dn(context.get(), a.get(), b.get(), &result), QEL_OK);
        EXPECT_EQ(result == 0, row.equal) << row.reason;
    }
}

TEST_F(CompareNames, Nulls) {
    const OwnedName a = name("CN=A");
    int result = unset;
    EXPECT_EQ(__qel_cmp_dn(nullptr, a.get(), a.get(), &result), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_cmp_dn(nullptr, nullptr, nullptr, &result), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(result, unset);
    check_nulls([&](const QelName *x, const QelName *y,
                    int *difference) { return __qel_cmp_dn(context.get(), x, y, difference); },
                a.get());
}

TEST_F(CompareNames, FailuresLeaveTheResultUnset) {
    const OwnedName good = name("CN=A");
    const QelName unknown_form = {QEL_NAME_RDN_SEQUENCE + 1, nullptr};
    int result = unset;
    EXPECT_EQ(__qel_cmp_dn(context.get(), good.get(), &unknown_form, &result), QEL_ERR_ASN1_ENCODE);
    EXPECT_EQ(__qel_cmp_dn(context.get(), &unknown_form, good.get(), &result), QEL_ERR_ASN1_ENCODE);
    EXPECT_EQ(result, unset);

    fault::each_allocation([&] {
        int difference = unset;
        const QelStatus status = __qel_cmp_dn(context.get(), good.get(), good.get(), &difference);
        EXPECT_EQ(status == QEL_OK, !fault::met()) << status;
        EXPECT_EQ(difference, fault::met() ? unset : 0);
    });
}

} // namespace
