#include "support/fault.h"
#include "support/names.h"

using namespace records;

namespace {

constexpr int unset = 12345;

struct OidCase {
    const char *reason;
    std::vector<uint32_t> a;
    std::vector<uint32_t> b;
    int result;
};

const OidCase kOidCases[] = {
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

TEST(Compare, ObjectIdentifiers) {
    for (const OidCase &row : kOidCases) {
        SCOPED_TRACE(row.reason);
        QelOid a = oid(row.a), b = oid(row.b);
        int result = unset;
        EXPECT_EQ(__qel_cmp_oid(&a, &b, &result), QEL_OK);
        EXPECT_EQ(result, row.result);
        __qel_free2_oid(&a);
        __qel_free2_oid(&b);
    }
}

struct AlgIdCase {
    const char *reason;
    std::vector<uint32_t> a_oid;
    const char *a_parameters; // hexadecimal, or null
    std::vector<uint32_t> b_oid;
    const char *b_parameters;
    int sign;
};

const AlgIdCase kAlgIdCases[] = {
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

QelAlgId *algid_of(const std::vector<uint32_t> &components, const char *parameters) {
    return heap(QelAlgId{heap(oid(components)),
                         parameters != nullptr ? heap(octets(from_hex(parameters))) : nullptr});
}

int sign(int value) {
    return (value > 0) - (value < 0);
}

TEST(Compare, AlgorithmIdentifiersAndKeysThatNameThem) {
    for (const AlgIdCase &row : kAlgIdCases) {
        SCOPED_TRACE(row.reason);
        QelKeyInfo a = {algid_of(row.a_oid, row.a_parameters), bits(8, {0x01})};
        QelKeyInfo b = {algid_of(row.b_oid, row.b_parameters), bits(8, {0x01})};
        int result = unset;
        EXPECT_EQ(__qel_cmp_algid(a.algorithm, b.algorithm, &result), QEL_OK);
        EXPECT_EQ(sign(result), row.sign);
        EXPECT_EQ(__qel_cmp_keyinfo(&a, &b, &result), QEL_OK);
        EXPECT_EQ(result, row.sign != 0 ? 1 : 0);

        a.pubKey.value[0] = 0x00;
        EXPECT_EQ(__qel_cmp_keyinfo(&a, &b, &result), QEL_OK);
        EXPECT_EQ(sign(result), row.sign != 0 ? 1 : -1);
        __qel_free2_keyinfo(&a);
        __qel_free2_keyinfo(&b);
    }
}

struct BitCase {
    const char *reason;
    uint32_t a_length;
    Bytes a;
    uint32_t b_length;
    Bytes b;
    int sign;
};

const BitCase kBitCases[] = {
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

TEST(Compare, BitStrings) {
    for (const BitCase &row : kBitCases) {
        SCOPED_TRACE(row.reason);
        QelBitString a = bits(row.a_length, row.a), b = bits(row.b_length, row.b);
        int result = unset;
        EXPECT_EQ(__qel_cmp_bstr(&a, &b, &result), QEL_OK);
        EXPECT_EQ(sign(result), row.sign);
        __qel_free2_bstr(&a);
        __qel_free2_bstr(&b);
    }
}

struct SerialCase {
    const char *reason;
    Bytes a;
    Bytes b;
    int sign;
};

const SerialCase kSerialCases[] = {
    {"equal", {0x01, 0x02}, {0x01, 0x02}, 0},
    {"a sign byte makes another number", {0x00, 0x01}, {0x01}, 1},
    {"lengths decide before bytes", {0x01}, {0x00, 0x01}, 1},
    {"greater", {0xFF}, {0x01}, 1},
    {"smaller", {0x01}, {0xFF}, -1},
    {"a last byte differs", {0x01, 0x02}, {0x01, 0x03}, -1},
    {"both empty", {}, {}, 0},
};

TEST(Compare, SerialNumbers) {
    for (const SerialCase &row : kSerialCases) {
        SCOPED_TRACE(row.reason);
        QelSerial a = {static_cast<uint16_t>(row.a.size()), heap_bytes(row.a)};
        QelSerial b = {static_cast<uint16_t>(row.b.size()), heap_bytes(row.b)};
        int result = unset;
        EXPECT_EQ(__qel_cmp_serial(&a, &b, &result), QEL_OK);
        EXPECT_EQ(sign(result), row.sign);
        __qel_free2_serial(&a);
        __qel_free2_serial(&b);
    }
}

template <class T>
void check_nulls(T *(*make)(), void (*release)(T **),
                 QelStatus (*compare)(const T *, const T *, int *)) {
    T *value = make();
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
    release(&value);
}

TEST(Compare, Nulls) {
    check_nulls(full_oid, __qel_free_oid, __qel_cmp_oid);
    check_nulls(full_algid, __qel_free_algid, __qel_cmp_algid);
    check_nulls(full_keyinfo, __qel_free_keyinfo, __qel_cmp_keyinfo);
    check_nulls(full_serial, __qel_free_serial, __qel_cmp_serial);
    check_nulls(full_bstr, __qel_free_bstr, __qel_cmp_bstr);
}

TEST(Compare, RecordsThatCountValuesTheyHaveNotAreRefused) {
    QelOid *good = full_oid();
    const QelOid bad_oid = {1, nullptr};
    const QelBitString bad_bits = {8, nullptr};
    const QelSerial bad_serial = {1, nullptr};
    QelOctetString bad_parameters = {2, nullptr};
    const QelAlgId bad_algid = {good, &bad_parameters};
    int result = unset;
    EXPECT_EQ(__qel_cmp_oid(&bad_oid, good, &result), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_cmp_oid(good, &bad_oid, &result), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_cmp_bstr(&bad_bits, &bad_bits, &result), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_cmp_serial(&bad_serial, &bad_serial, &result), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_cmp_algid(&bad_algid, &bad_algid, &result), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(result, unset);
    __qel_free_oid(&good);
}

using CompareNames = NamesTest;

struct NameCase {
    const char *reason;
    const char *a;
    const char *b;
    bool equal;
};

const NameCase kNameCases[] = {
    {"the same", "CN=Alice, O=Example, C=US", "CN=Alice, O=Example, C=US", true},
    {"letters of either case", "CN=Alice", "cn=alice", true},
    {"blanks are no part of a name", "CN=Alice,O=Example", " CN = Alice ,  O=Example", true},
    {"the order of RDNs counts", "CN=A, O=B", "O=B, CN=A", false},
    {"the order of assertions in an RDN does not", "CN=A + OU=B", "OU=B + CN=A", true},
    {"one RDN more", "CN=A", "CN=A, O=B", false},
    {"types count", "O=A", "OU=A", false},
    {"one RDN of two assertions is not two RDNs", "CN=A + OU=B", "CN=A, OU=B", false},
};

TEST_F(CompareNames, ByTheirPrintableForm) {
    for (const NameCase &row : kNameCases) {
        SCOPED_TRACE(row.reason);
        const OwnedName a = name(row.a), b = name(row.b);
        int result = unset;
        EXPECT_EQ(__qel_cmp_dn(context.get(), a.get(), b.get(), &result), QEL_OK);
        EXPECT_EQ(result == 0, row.equal);
    }
}

TEST_F(CompareNames, Nulls) {
    const OwnedName a = name("CN=A");
    int result = unset;
    EXPECT_EQ(__qel_cmp_dn(nullptr, a.get(), a.get(), &result), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_cmp_dn(nullptr, nullptr, nullptr, &result), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_cmp_dn(context.get(), a.get(), a.get(), nullptr), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(result, unset);
    EXPECT_EQ(__qel_cmp_dn(context.get(), nullptr, nullptr, &result), QEL_OK);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(__qel_cmp_dn(context.get(), a.get(), nullptr, &result), QEL_OK);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(__qel_cmp_dn(context.get(), nullptr, a.get(), &result), QEL_OK);
    EXPECT_EQ(result, 1);
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
