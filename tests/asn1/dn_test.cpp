#include "support/arguments.h"
#include "support/asn1.h"
#include "support/made.h"

#include <openssl/objects.h>
#include <openssl/x509.h>

#include <qel/qelp.h>

#include <algorithm>
#include <random>
#include <sstream>

namespace {

using OwnedName = qel::Record<QelName, qel_free_dn>;

struct Assertion {
    std::string keyword;
    std::string value;
    int rdn; // number of its component in the record, from 0
};
using Assertions = std::vector<Assertion>;

struct AttributeOfLibcrypto {
    const char *keyword;
    int nid;
    int type;
};

const AttributeOfLibcrypto attributes[] = {
    {"CN", NID_commonName, V_ASN1_T61STRING},
    {"SERIAL", NID_serialNumber, V_ASN1_PRINTABLESTRING},
    {"C", NID_countryName, V_ASN1_PRINTABLESTRING},
    {"L", NID_localityName, V_ASN1_T61STRING},
    {"O", NID_organizationName, V_ASN1_T61STRING},
    {"OU", NID_organizationalUnitName, V_ASN1_T61STRING},
    {"ST", NID_stateOrProvinceName, V_ASN1_T61STRING},
    {"STREET", NID_streetAddress, V_ASN1_T61STRING},
    {"EM", NID_pkcs9_emailAddress, V_ASN1_IA5STRING},
};

const AttributeOfLibcrypto &attribute(const std::string &keyword) {
    return *std::find_if(std::begin(attributes), std::end(attributes),
                         [&](const auto &row) { return row.keyword == keyword; });
}

struct FreeX509Name {
    void operator()(X509_NAME *name) const { X509_NAME_free(name); }
};

// The DER encoding of a name from an unrelated library.
Bytes der_of(const Assertions &assertions) {
    const std::unique_ptr<X509_NAME, FreeX509Name> name(X509_NAME_new());
    int last = -1;
    for (const Assertion &a : assertions) {
        const AttributeOfLibcrypto &row = attribute(a.keyword);
        EXPECT_EQ(X509_NAME_add_entry_by_NID(
                      name.get(), row.nid, row.type,
                      reinterpret_cast<const unsigned char *>(a.value.data()),
                      static_cast<int>(a.value.size()), -1, a.rdn == last ? -1 : 0),
                  1);
        last = a.rdn;
    }
    unsigned char *der = nullptr;
    const int size = i2d_X509_NAME(name.get(), &der);
    const Bytes bytes(der, der + size);
    OPENSSL_free(der);
    return bytes;
}

std::string capitals(std::string text) {
    for (char &c : text) {
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 32);
    }
    return text;
}

class Names : public testing::Test {
protected:
    Asn1Context asn1;
    QelContext *context = asn1.get();

    QelStatus read(const std::string &text, OwnedName *name) {
        auto *made = reinterpret_cast<QelName *>(1);
        const QelStatus status = qel_str2dn(context, text.c_str(), &made);
        EXPECT_EQ(made != nullptr, status == QEL_OK);
        name->reset(made);
        return status;
    }

    Made write(const QelName *name, int mode = 1) {
        return made_by([&](char **text) {
            return mode == 1 ? qel_dn2str(context, name, text)
                             : __qel_dn2str(context, name, mode, text);
        });
    }

    Made normalize(const std::string &from, int mode = 1) {
        return made_by(
            [&](char **text) { return __qel_normalize_DN(context, from.c_str(), mode, text); });
    }

    Bytes encode(const QelName *name) { return asn1.encode(name, QEL_PDU_Name); }
    auto decode(const Bytes &der) { return asn1.decode<QelName>(der, QEL_PDU_Name); }
};

// ---- Reading ------------------------------------------------------------------------------------

Assertions assertions_of(const std::string &notation) {
    Assertions assertions;
    std::istringstream components(notation);
    int rdn = 0;
    for (std::string component; std::getline(components, component, '|'); ++rdn) {
        std::istringstream pieces(component);
        for (std::string piece; std::getline(pieces, piece, '&');) {
            const std::size_t colon = piece.find(':');
            assertions.push_back({piece.substr(0, colon), piece.substr(colon + 1), rdn});
        }
    }
    return assertions;
}

const struct {
    const char *reason;
    std::string text;
    std::string name; // components of the record, "CN:A&OU:B|C:US"
} read_cases[] = {
    {"the last component is the record's first", "cn=alice, o=acme, c=us", "C:us|O:acme|CN:alice"},
    {"one component", "CN=Alice", "CN:Alice"},
    {"a comma at the end", "CN=A,O=B,", "O:B|CN:A"},
    {"a comma and white space at the end", "CN=A,O=B, \t\n", "O:B|CN:A"},
    {"every keyword, in either case", "CN=a,serial=b,C=us,l=c,O=d,ou=e,sT=f,STREET=g,em=h@i",
     "EM:h@i|STREET:g|ST:f|OU:e|O:d|L:c|C:us|SERIAL:b|CN:a"},
    {"several assertions", "CN=A+OU=B,C=US", "C:US|CN:A&OU:B"},
    {"white space around everything", " \t cn \n = \r A \v+ \f ou=B  ,  C = US ", "C:US|CN:A&OU:B"},
    {"a run of white space inside is one blank", "CN=A \t\n B", "CN:A B"},
    {"quotes are blanks", "CN=\"Alice  Brown\"", "CN:Alice Brown"},
    {"quotes do not keep a comma", "CN=\"A,O=B\"", "O:B|CN:A"},
    {"an escaped comma", "O=Brown\\, Jones, C=GB", "C:GB|O:Brown, Jones"},
    {"an escaped comma takes blanks and tabs away", "O=Brown \t \\,Jones", "O:Brown,Jones"},
    {"but no other white space", "O=Brown\n\\,Jones", "O:Brown ,Jones"},
    {"escaped commas in a row", "CN=a\\,\\, \\,b,C=US", "C:US|CN:a,,,b"},
    {"an escaped comma at the end", "CN=a\\,", "CN:a,"},
    {"an escaped comma, then one at the end", "CN=a\\,,", "CN:a,"},
    {"of two backslashes one stays", "CN=a\\\\,b", "CN:a\\,b"},
    {"a backslash alone stays", "CN=a\\b\\ ,C=US", "C:US|CN:a\\b\\"},
    {"only the first = separates", "CN=a=b", "CN:a=b"},
    {"a value of blanks alone", "CN= ", "CN:"},
    {"the same keyword twice", "OU=a,OU=b", "OU:b|OU:a"},
    {"bytes outside ASCII", "CN=Andr\xe9\xa0", "CN:Andr\xe9\xa0"},
    {"the limit counts the tidied value", "CN= " + std::string(64, 'x') + "  ",
     "CN:" + std::string(64, 'x')},
};

TEST_F(Names, read) {
    for (const auto &row : read_cases) {
        SCOPED_TRACE(row.reason);
        OwnedName name;
        EXPECT_EQ(read(row.text, &name), QEL_OK);
        if (name) {
            EXPECT_EQ(to_hex(encode(name.get())), to_hex(der_of(assertions_of(row.name))));
        }
    }
}

struct RefusedCase {
    const char *reason;
    std::string text;
    QelStatus status;
};

const RefusedCase refused_cases[] = {
    {"nothing", "", QEL_ERR_DN_NO_EQUALS},
    {"white space", "  ", QEL_ERR_DN_NO_EQUALS},
    {"no equals sign", "CN", QEL_ERR_DN_NO_EQUALS},
    {"no keyword", "=abc", QEL_ERR_DN_NO_TYPE},
    {"a blank keyword", " =abc", QEL_ERR_UNSUPPORTED_ATTR},
    {"no value", "CN=", QEL_ERR_DN_NO_VALUE},
    {"no value in the middle", "CN=,C=US", QEL_ERR_DN_NO_VALUE},
    {"an unknown keyword", "X=1", QEL_ERR_UNSUPPORTED_ATTR},
    {"the keyword is judged before the value", "X=", QEL_ERR_UNSUPPORTED_ATTR},
    {"the beginning of a keyword", "STREE=a", QEL_ERR_UNSUPPORTED_ATTR},
    {"more than a keyword", "CNN=a", QEL_ERR_UNSUPPORTED_ATTR},
    {"white space inside a keyword", "S T=a", QEL_ERR_UNSUPPORTED_ATTR},
    {"a comma alone", ",", QEL_ERR_BAD_PARAM},
    {"a comma at the beginning", ",CN=A", QEL_ERR_BAD_PARAM},
    {"a comma at the beginning is judged after the last component", ",CN=A,X=1",
     QEL_ERR_UNSUPPORTED_ATTR},
    {"but before the first", ",X=1,C=US", QEL_ERR_BAD_PARAM},
    {"two commas", "CN=A,,C=US", QEL_ERR_DN_NO_EQUALS},
    {"two commas at the end", "CN=A,,", QEL_ERR_DN_NO_EQUALS},
    {"an escaped comma does not begin the string", "\\,CN=A", QEL_ERR_UNSUPPORTED_ATTR},
    {"a plus sign at the beginning", "+CN=A", QEL_ERR_BAD_PARAM},
    {"a plus sign at the beginning of the last", "CN=A, +C=US", QEL_ERR_BAD_PARAM},
    {"a blank before it in the middle", "CN=A, +OU=B,C=US", QEL_ERR_DN_NO_EQUALS},
    {"a plus sign at the beginning in the middle", "CN=A,+OU=B,C=US", QEL_ERR_BAD_PARAM},
    {"a plus sign at the end", "CN=A+", QEL_ERR_DN_NO_EQUALS},
    {"two plus signs", "CN=A++OU=B", QEL_ERR_DN_NO_EQUALS},
    {"a plus sign cannot be escaped", "CN=A\\+B", QEL_ERR_DN_NO_EQUALS},
    {"the last component is judged first", "CN,C=USA", QEL_ERR_BAD_PARAM},
    {"the first assertion is judged first", "CN+X=1", QEL_ERR_DN_NO_EQUALS},
    {"C of one character", "C=U", QEL_ERR_BAD_PARAM},
    {"C of a blank", "C= ", QEL_ERR_BAD_PARAM},
};

TEST_F(Names, refused) {
    for (const RefusedCase &row : refused_cases) {
        OwnedName name;
        EXPECT_EQ(read(row.text, &name), row.status) << row.reason;
    }
}

TEST_F(Names, values_have_limits) {
    const struct {
        const char *keyword;
        std::size_t limit;
    } rows[] = {
        {"CN", 64}, {"SERIAL", 64}, {"L", 128},      {"O", 64},
        {"OU", 64}, {"ST", 128},    {"STREET", 128}, {"C", 2},
    };
    OwnedName name;
    for (const auto &row : rows) {
        const std::string text = row.keyword + std::string("=") + std::string(row.limit, 'x');
        EXPECT_EQ(read(text, &name), QEL_OK) << row.keyword;
        EXPECT_EQ(read(text + "x", &name), QEL_ERR_BAD_PARAM) << row.keyword;
    }
}

// A million characters: whatever is not linear here does not end.
TEST_F(Names, hostile_strings_are_read_in_linear_time) {
    const auto repeated = [](const std::string &prefix, const std::string &part) {
        std::string text = prefix;
        while (text.size() < 1000000)
            text += part;
        return text;
    };
    const RefusedCase hostile_cases[] = {
        {"escaped commas", repeated("EM=", "\\,"), QEL_OK},
        {"blanks before escaped commas", repeated("EM=", "    \\,"), QEL_OK},
        {"components", repeated("CN=a", ",CN=a"), QEL_OK},
        {"escaped commas between components", repeated("CN=a", "\\,,CN=a"), QEL_OK},
        {"assertions", repeated("CN=a", "+CN=a"), QEL_OK},
        {"quotes", repeated("EM=a", "\""), QEL_OK},
        {"white space", repeated("EM=a", " b"), QEL_OK},
        {"commas", repeated("", ","), QEL_ERR_DN_NO_EQUALS},
        {"plus signs", repeated("CN=a", "+"), QEL_ERR_DN_NO_EQUALS},
        {"backslashes", repeated("CN=", "\\"), QEL_ERR_BAD_PARAM},
        {"escaped commas behind a bad end", repeated("EM=a", "\\,") + ",X", QEL_ERR_DN_NO_EQUALS},
    };
    for (const RefusedCase &row : hostile_cases) {
        SCOPED_TRACE(row.reason);
        OwnedName name;
        EXPECT_EQ(read(row.text, &name), row.status);
        if (name) {
            EXPECT_EQ(write(name.get()).first, QEL_OK);
        }
    }
}

// ---- Writing ------------------------------------------------------------------------------------

TEST_F(Names, values_of_other_types) {
    const struct {
        const char *reason;
        const char *name; // DER
        Made made;
    } rows[] = {
        {"no component", "3000", {QEL_OK, ""}},
        {"a component without assertions", "30023100", {QEL_ERR_BAD_PARAM, ""}},
        {"a PrintableString for a T61String", "300c310a3008060355040313 0141", {QEL_OK, "CN=A"}},
        {"a T61String for a PrintableString",
         "300d310b300906035504061402 5553",
         {QEL_ERR_ASN1_DECODE, ""}},
        {"a UTF8String", "300c310a30080603550403 0c0141", {QEL_ERR_ASN1_DECODE, ""}},
        {"an empty value", "300b3109300706035504031400", {QEL_ERR_BAD_PARAM, ""}},
        {"none of the nine types", "300c310a3008060355040d140141", {QEL_ERR_UNSUPPORTED_ATTR, ""}},
        {"a value with a NUL", "300d310b30090603550403140241 00", {QEL_ERR_ASN1_DECODE, ""}},
    };
    for (const auto &row : rows) {
        const auto name = decode(from_hex(row.name));
        ASSERT_TRUE(name) << row.reason;
        EXPECT_EQ(write(name.get()), row.made) << row.reason;
    }
}

// Records that no codec makes.
TEST_F(Names, incomplete_records_are_refused) {
    uint8_t encoded[] = {0x14, 0x01, 'A'};
    uint32_t common_name[] = {2, 5, 4, 3};
    QelOid type = {4, common_name};
    QelOctetString value = {3, encoded};
    QelAva ava = {&type, &value};
    QelRdn rdn = {nullptr, &ava};
    QelRdnSeq node = {nullptr, &rdn};
    QelName name = {QEL_NAME_RDN_SEQUENCE, &node};
    const Made refused(QEL_ERR_BAD_PARAM, "");
    ASSERT_EQ(write(&name), Made(QEL_OK, "CN=A"));
    EXPECT_EQ(write(&name, 0), refused);
    EXPECT_EQ(write(&name, 3), refused);
    EXPECT_EQ(write(nullptr), refused);
    EXPECT_EQ(__qel_dn2str(context, &name, 1, nullptr), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(made_by([&](char **text) { return __qel_dn2str(nullptr, &name, 1, text); }), refused);
    name.choice = 2;
    EXPECT_EQ(write(&name), refused);
    name.choice = QEL_NAME_RDN_SEQUENCE;
    value.length = 0;
    EXPECT_EQ(write(&name), refused);
    ava.value = nullptr;
    EXPECT_EQ(write(&name), refused);
    ava.value = &value;
    value.length = 3;
    ava.type = nullptr;
    EXPECT_EQ(write(&name), Made(QEL_ERR_UNSUPPORTED_ATTR, ""));
    rdn.ava = nullptr;
    EXPECT_EQ(write(&name), refused);
}

TEST_F(Names, spoiled_encodings_give_a_status) {
    const Bytes good = der_of(assertions_of("C:US|O:a,b|CN:c&OU:d"));
    each_spoiled(good, [&](const Bytes &spoiled, const std::string &what) {
        const auto name = decode(spoiled);
        if (name == nullptr)
            return;
        const QelStatus status = write(name.get()).first;
        EXPECT_TRUE(status == QEL_OK || status == QEL_ERR_BAD_PARAM ||
                    status == QEL_ERR_UNSUPPORTED_ATTR || status == QEL_ERR_ASN1_DECODE)
            << what << ": " << status;
    });
}

// ---- Random names -------------------------------------------------------------------------------

class RandomNames : public Names {
protected:
    std::mt19937 random{23};

    std::size_t below(std::size_t limit) { return random() % limit; }

    // A value that the printable form can express.
    std::string value(const AttributeOfLibcrypto &row) {
        const std::string printable = "abcXYZ019'()-./:?";
        const std::string any = printable + ",=*@_\\\x7f";
        if (std::string(row.keyword) == "C")
            return {printable[below(6)], printable[below(6)]};
        std::string text(1, 'v');
        const std::size_t length = below(60);
        while (text.size() < length) {
            const std::string &set = row.type == V_ASN1_PRINTABLESTRING ? printable : any;
            const char c = set[below(set.size())];
            text += below(5) == 0 && c != ',' ? std::string(" ") + c : std::string(1, c);
        }
        text.resize(std::min<std::size_t>(text.size(), 59));
        return text + "w";
    }

    Assertions name() {
        Assertions assertions;
        const int components = static_cast<int>(1 + below(6));
        for (int rdn = 0; rdn < components; ++rdn) {
            const std::size_t first = below(std::size(attributes));
            const std::size_t count = below(4) == 0 ? 3 : 1;
            for (std::size_t i = 0; i < count; ++i) { // of different types
                const auto &row = attributes[(first + i) % std::size(attributes)];
                assertions.push_back({row.keyword, value(row), rdn});
            }
        }
        return assertions;
    }
};

TEST_F(RandomNames, read_back_as_they_were_but_for_case) {
    for (int round = 0; round < 1000; ++round) {
        Assertions assertions = name();
        const auto record = decode(der_of(assertions));
        ASSERT_TRUE(record);
        const auto [status, text] = write(record.get());
        ASSERT_EQ(status, QEL_OK);
        OwnedName back;
        ASSERT_EQ(read(text, &back), QEL_OK) << text;
        for (Assertion &assertion : assertions)
            assertion.value = capitals(assertion.value);
        ASSERT_EQ(to_hex(encode(back.get())), to_hex(der_of(assertions))) << text;

        int difference = 1;
        EXPECT_EQ(__qel_cmp_dn(context, record.get(), back.get(), &difference), QEL_OK);
        EXPECT_EQ(difference, 0) << text;
    }
}

TEST_F(Names, normalized) {
    const struct {
        const char *reason;
        const char *from;
        int mode;
        Made made;
    } rows[] = {
        {"blanks and case", "cn = alice ,o=acme", 1, {QEL_OK, "CN=ALICE, O=ACME"}},
        {"assertions in the order of DER", "OU=BB + CN=A", 1, {QEL_OK, "CN=A + OU=BB"}},
        {"of one length, by type", "OU=A + CN=B", 1, {QEL_OK, "CN=B + OU=A"}},
        {"an escaped comma", "O=a\\,b", 1, {QEL_OK, "O=A\\,B"}},
        {"a bare comma", "O=a\\,b", 2, {QEL_OK, "O=A,B"}},
        {"another mode", "O=a", 3, {QEL_ERR_BAD_PARAM, ""}},
        {"a failure to read", "O", 1, {QEL_ERR_DN_NO_EQUALS, ""}},
        {"a failure to read is told before a bad mode", "O", 3, {QEL_ERR_DN_NO_EQUALS, ""}},
        {"an empty value has no printable form", "O= ", 1, {QEL_ERR_BAD_PARAM, ""}},
    };
    for (const auto &row : rows)
        EXPECT_EQ(normalize(row.from, row.mode), row.made) << row.reason;
}

TEST_F(RandomNames, normalizing_twice_changes_nothing_more) {
    const std::string parts[] = {",",       "+",    "=", " ", "\t",  "\"",   "\\,", "CN=",  ",o=",
                                 ", OU = ", "+em=", "a", "B", "c d", "\xe9", "X=",  "C=us,"};
    int read_well = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string text = below(3) != 0 ? "cn=x" : "";
        for (std::size_t i = below(12); i > 0; --i)
            text += parts[below(std::size(parts))];
        const auto [status, once] = normalize(text);
        if (status != QEL_OK) {
            const QelStatus known[] = {QEL_ERR_BAD_PARAM,        QEL_ERR_DN_NO_EQUALS,
                                       QEL_ERR_DN_NO_TYPE,       QEL_ERR_DN_NO_VALUE,
                                       QEL_ERR_UNSUPPORTED_ATTR, QEL_ERR_ASN1_ENCODE};
            ASSERT_NE(std::find(std::begin(known), std::end(known), status), std::end(known))
                << status << " for " << text;
            continue;
        }
        ++read_well;
        // The order of assertions of one type follows their bytes, which capitals may change once.
        const auto [again, twice] = normalize(once);
        ASSERT_EQ(again, QEL_OK) << text;
        ASSERT_EQ(normalize(twice), Made(QEL_OK, twice)) << text;
        if (text.find('+') == text.npos) {
            ASSERT_EQ(twice, once) << text;
        }
    }
    EXPECT_GT(read_well, 1000);
}

// ---- Failures -----------------------------------------------------------------------------------

TEST_F(Names, missing_arguments) {
    auto *name = reinterpret_cast<QelName *>(1);
    auto *text = reinterpret_cast<char *>(1);
    each_missing(QEL_ERR_BAD_PARAM, qel_str2dn, {}, context, "CN=A", &name);
    each_missing(QEL_ERR_BAD_PARAM, __qel_normalize_DN, {}, context, "CN=A", 1, &text);
    EXPECT_TRUE(name == nullptr && text == nullptr);
}

// The codec reports memory that it lacks as a failure of its own.
TEST_F(Names, failed_allocations) {
    fault::each_allocation([&] {
        const auto [status, text] = normalize("CN=a\\,b + OU=c, EM=d, C=US");
        EXPECT_EQ(text, fault::met() ? "" : "OU=C + CN=A\\,B, EM=D, C=US");
        EXPECT_TRUE(fault::met() ? status == QEL_ERR_NO_MEMORY || status == QEL_ERR_ASN1_ENCODE ||
                                       status == QEL_ERR_ASN1_DECODE
                                 : status == QEL_OK)
            << status;
    });
}

} // namespace
