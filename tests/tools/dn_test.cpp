// qel dn
#include "tools/run.h"

namespace {

TEST(Dn, NamesAreNormalisedOrRefusedWithTheReason) {
    const struct {
        const char *reason;
        const char *name;
        int exit;
        const char *told; // standard output, or part of standard error
    } rows[] = {
        {"small letters and blanks", "cn = alice ,o=acme,  c=us", 0, "CN=ALICE, O=ACME, C=US\n"},
        {"a comma kept by a backslash", "O=Brown\\, Jones, C=GB", 0, "O=BROWN\\, JONES, C=GB\n"},
        {"two parts of one level", "CN=A+OU=B", 0, "CN=A + OU=B\n"},
        {"no equals sign", "CN", 3, "status 38 QEL_ERR_DN_NO_EQUALS"},
        {"no type", "=abc", 3, "status 39 QEL_ERR_DN_NO_TYPE"},
        {"no value", "CN=", 3, "status 40 QEL_ERR_DN_NO_VALUE"},
        {"unknown type", "X=1", 3, "status 20 QEL_ERR_UNSUPPORTED_ATTR"},
        {"a country of three letters", "C=USA", 3, "status 32 QEL_ERR_BAD_PARAM"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        const Ran ran = qel({"dn", row.name});
        EXPECT_EQ(ran.exit, row.exit);
        if (row.exit == 0) {
            EXPECT_EQ(ran.out, row.told);
            // What was printed is a name that reads back to the same.
            EXPECT_EQ(qel({"dn", ran.out.substr(0, ran.out.size() - 1)}).out, ran.out);
        } else {
            EXPECT_EQ(ran.out, "");
            EXPECT_TRUE(holds(ran.err, row.told)) << ran.err;
            const std::string status = std::string(row.told).substr(7, 2);
            EXPECT_EQ(qel({"explain", "--json", status}).json()["statuses"][0]["exit_status"], 3);
        }
    }
}

TEST(Dn, EncodingIsTheOracles) {
    const TemporaryFolder folder;
    const std::string path = folder.path("name.der");
    const Ran ran = qel({"dn", "--der", "CN=Alice,C=US"});
    EXPECT_EQ(ran.exit, 0) << ran.err;
    EXPECT_EQ(qel({"dn", "-o", path, "CN=Alice,C=US"}).exit, 0);
    EXPECT_EQ(ran.out, to_hex(read_file(path)) + "\n");
    const std::string parsed = openssl({"asn1parse", "-inform", "DER", "-in", path}).out;
    EXPECT_LT(parsed.find("countryName"), parsed.find("PRINTABLESTRING"));
    EXPECT_LT(parsed.find("PRINTABLESTRING"), parsed.find("commonName"));
    EXPECT_TRUE(holds(parsed, ":Alice")) << parsed;
}

TEST(Dn, OneBadNameDoesNotSpoilTheOthers) {
    const Ran ran = qel({"dn", "--json", "CN=A", "CN", "O=B"});
    EXPECT_EQ(ran.exit, 3);
    const Json names = ran.json()["names"];
    ASSERT_EQ(names.size(), 3U);
    EXPECT_EQ(names[0]["normalised"], "CN=A");
    EXPECT_EQ(names[1]["error"]["status"]["number"], 38);
    EXPECT_EQ(names[2]["normalised"], "O=B");
}

} // namespace
