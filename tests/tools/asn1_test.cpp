// qel asn1
#include "tools/run.h"

#include <sstream>

namespace {

TEST(Asn1, TypesAreFoundByNumberAndName) {
    const Json types = qel({"asn1", "--list", "--json"}).json()["types"];
    ASSERT_EQ(types.size(), 36U);
    EXPECT_EQ(types[5]["name"], "Certificate");
    for (const Json &type : types) {
        const std::string name = type["name"];
        EXPECT_EQ(type["refused"], name.ends_with("Fm")) << name;
        EXPECT_EQ(qel({"asn1", name, "absent"}).exit, name.ends_with("Fm") ? 2 : 3) << name;
    }
    EXPECT_TRUE(holds(qel({"asn1", "--list"}).out, "SignedDataFm (refused: give SignedData)\n"));
    const std::string path = vector_path("armour/01.pem");
    const Ran by_name = qel({"asn1", "certificate", path}), by_number = qel({"asn1", "6", path});
    EXPECT_EQ(by_name.exit, 0) << by_name.err;
    EXPECT_FALSE(by_name.out.empty());
    EXPECT_EQ(by_name.out, by_number.out);
    EXPECT_EQ(qel({"asn1", "6"}, {.input = read_file(path)}).out, by_name.out);
}

TEST(Asn1, ValuesOfManyTypesDecodeAndEncodeAgain) {
    const struct {
        const char *type;
        const char *file;
        const char *rules;
        bool same; // the file is in the encoding that the library makes
    } rows[] = {
        {"Certificate", "certs/md5/globalsign-root-ca-98.der", "der", true},
        {"Certificate", "certs/md2/commercenet-test-cert-95.der", "der", true},
        {"CertificationRequest", "pkcs10/testreq.der", "ber", true},
        {"CertificateList", "crl/ICE-crl.der", "ber", true},
        {"ContentInfo", "pkcs7/imc-04.p7", "ber", false},
        {"ContentInfo", "pkcs7/nss-pkcs7bday.ber", "indefinite", false},
        {"SignedPublicKeyAndChallenge", "spkac/privacyidea.der", "ber", true},
    };
    const TemporaryFolder folder;
    const std::string path = folder.path("again");
    for (const auto &row : rows) {
        SCOPED_TRACE(row.file);
        const std::string from = vector_path(row.file);
        const Ran printed = qel({"asn1", row.type, from});
        EXPECT_EQ(printed.exit, 0) << printed.err;
        const Ran encoded = qel({"asn1", row.type, "-e", row.rules, "-o", path, from});
        ASSERT_EQ(encoded.exit, 0) << encoded.err;
        if (row.same) {
            EXPECT_EQ(to_hex(read_file(path)), to_hex(read_file(from)));
        }
        openssl({"asn1parse", "-inform", "DER", "-in", path, "-noout"});
        EXPECT_EQ(qel({"asn1", row.type, path}).out, printed.out);
        EXPECT_EQ(read_file(path)[1] == 0x80, std::string(row.rules) == "indefinite");
    }
    const std::string certificate = vector_path("certs/md5/root-agency-96.der");
    EXPECT_EQ(qel({"asn1", "Certificate", "-e", "indefinite", certificate}).exit, 2);
    EXPECT_EQ(qel({"asn1", "CertificateList", "-e", "der", certificate}).exit, 2);
}

TEST(Asn1, PrivateKeysAreNotPrinted) {
    const std::string key = vector_path("pkcs8/unenc-rsa-pkcs8.pem");
    const std::string secret = to_hex(bytes_of(qel({"dearmor", key}).out));
    ASSERT_GT(secret.size(), 600U);
    // Any eight bytes of the private key in the listing would be a leak.
    const Ran shown = qel({"asn1", "PrivateKeyInfo", key});
    std::string digits;
    for (const char c : shown.out)
        if (isxdigit(static_cast<unsigned char>(c)))
            digits += static_cast<char>(tolower(c));
    for (std::size_t at = 60; at + 16 <= secret.size(); at += 2)
        ASSERT_EQ(digits.find(secret.substr(at, 16)), digits.npos) << at;
    EXPECT_TRUE(holds(shown.err, "left out"));
    for (const char *other : {"pkcs8/pkcs8v1_rsa_md5_des1.der", "pkcs8/pkcs8-pbes1-des-md5.pem"}) {
        const Ran ran = qel({"asn1", "DigestInfo", vector_path(other)}); // of the same shape
        EXPECT_EQ(ran.exit, 3);
        EXPECT_EQ(ran.out, "");
        EXPECT_TRUE(holds(ran.err, "it is a private key")) << ran.err;
    }
    const Bytes digest_info =
        from_hex("3020300c06082a864886f70d020505000410000102030405060708090a0b0c0d0e0f");
    EXPECT_EQ(qel({"asn1", "DigestInfo"}, {.input = digest_info}).exit, 0);
    Bytes too_long = from_hex("3051300c06082a864886f70d020505000441"); // for any digest
    too_long.resize(too_long.size() + 65);
    EXPECT_EQ(qel({"asn1", "DigestInfo"}, {.input = too_long}).exit, 3);
}

TEST(Asn1, SpoiledValuesAreRefusedOrPrintedButNeverCrash) {
    const TemporaryFolder folder;
    const std::string path = folder.path("spoiled");
    const Bytes good = vector_file("pkcs10/testreq.der");
    for (std::size_t at = 0; at < good.size(); at += 7) {
        Bytes spoiled = good;
        spoiled[at] ^= 0x80;
        write_file(path, spoiled);
        const int exit = qel({"asn1", "CertificationRequest", path}).exit;
        EXPECT_TRUE(exit == 0 || exit == 3) << "byte " << at << ": exit " << exit;
    }
}

} // namespace
