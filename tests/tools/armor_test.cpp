// qel armor and qel dearmor
#include "tools/run.h"

#include <filesystem>
#include <sys/stat.h>

namespace {

TEST(Armor, IsTheOraclesAndComesBack) {
    const TemporaryFolder folder;
    for (const char *name :
         {"certs/md5/root-agency-96.der", "certs/md2/commercenet-test-cert-95.der"}) {
        const std::string path = vector_path(name);
        const Ran ran = qel({"armor", path});
        EXPECT_EQ(ran.exit, 0) << ran.err;
        EXPECT_EQ(ran.out, openssl({"x509", "-inform", "DER", "-in", path}).out);
        for (const std::string &text : {ran.out, qel({"armor", "-t", "none", path}).out})
            EXPECT_EQ(qel({"dearmor"}, {.input = bytes_of(text)}).out, text_of(read_file(path)));
    }
}

TEST(Armor, TypeChoosesTheMarkerLines) {
    const struct {
        const char *type;
        const char *label;
    } rows[] = {
        {"certificate", "CERTIFICATE"},
        {"keypkg", "KEYPKG"},
        {"request", "NEW CERTIFICATE REQUEST"},
        {"signature", "DIGITAL SIGNATURE"},
        {"signature-and-data", "DIGITAL SIGNATURE AND DATA SIGNED"},
        {"encrypted-data", "ENCRYPTED DATA"},
        {"encryption-info", "ENCRYPTION INFO"},
        {"encryption-info-and-data", "ENCRYPTION INFO AND ENCRYPTED DATA"},
    };
    const How how = {.input = Bytes(100, 0xa5)};
    for (const auto &row : rows) {
        const std::string out = qel({"armor", "-t", row.type}, how).out;
        const std::string label = std::string(row.label) + "-----\n";
        EXPECT_EQ(out.substr(0, 11 + label.size()), "-----BEGIN " + label);
        EXPECT_TRUE(out.ends_with("\n-----END " + label)) << out;
    }
    EXPECT_FALSE(holds(qel({"armor"}, how).out, "-----")); // auto: it is nothing known
    EXPECT_TRUE(holds(qel({"armor", vector_path("pkcs10/testreq.der")}).out, "BEGIN NEW CERTIF"));
}

TEST(Armor, LinesAndPaddingAtTheirBoundaries) {
    for (const std::size_t size : {1U, 2U, 3U, 47U, 48U, 49U, 96U, 200000U}) {
        const How how = {.input = Bytes(size, 0x5a)};
        const std::string out = qel({"armor", "-t", "none"}, how).out;
        const std::size_t digits = (size + 2) / 3 * 4;
        EXPECT_EQ(out.size(), digits + (digits + 63) / 64) << size;
        for (std::size_t at = 64; at < out.size(); at += 65)
            ASSERT_EQ(out[at], '\n') << size;
        EXPECT_EQ(qel({"dearmor"}, {.input = bytes_of(out)}).out, text_of(how.input)) << size;
    }
}

TEST(Dearmor, FindsBlocksWhereverTheyStand) {
    const TemporaryFolder folder;
    const std::string path = folder.path("mail");
    const std::string certificate = text_of(vector_file("armour/01.pem"));
    std::string crlf;
    for (const char c : certificate)
        crlf += c == '\n' ? "\r\n" : std::string(1, c);
    write_file(path, bytes_of("From: someone\n-----not a marker-----\n" + certificate + "--\n" +
                              "\xef\xbb\xbf" + crlf + "-----BEGIN X-----\nAAAA\n-----END Y-----\n" +
                              "-----BEGIN Z-----\nAAAA\n" + certificate + "-----BEGIN W-----\n"));
    const Json blocks = qel({"dearmor", "--list", "--json", path}).json()["blocks"];
    ASSERT_EQ(blocks.size(), 6U);
    EXPECT_EQ(blocks[0]["line"], 3);
    EXPECT_EQ(blocks[2]["label"], "X");
    EXPECT_EQ(blocks[2]["problem"], "its END line is another's");
    EXPECT_EQ(blocks[3]["problem"], "its END line is missing");
    EXPECT_EQ(blocks[5]["problem"], "its END line is missing");
    for (const int good : {0, 1, 4})
        EXPECT_EQ(blocks[good]["problem"], nullptr);

    const Ran several = qel({"dearmor", path});
    EXPECT_EQ(several.exit, 2);
    EXPECT_TRUE(holds(several.err, "6 blocks")) << several.err;
    const Ran first = qel({"dearmor", "-b", "1", path}), second = qel({"dearmor", "-b", "2", path});
    EXPECT_EQ(first.exit, 0) << first.err;
    EXPECT_EQ(first.out, second.out);
    EXPECT_EQ(qel({"dearmor", "-b", "3", path}).exit, 3);
    EXPECT_EQ(qel({"dearmor", "-b", "7", path}).exit, 3);
}

TEST(Dearmor, PrivateKeysAreKeptPrivateAndNotOverwritten) {
    const TemporaryFolder folder;
    const std::string key = vector_path("pkcs8/unenc-rsa-pkcs8.pem"), out = folder.path("key.der");
    umask(0);
    EXPECT_EQ(qel({"dearmor", "-o", out, key}).exit, 0);
    umask(022);
    struct stat about;
    ASSERT_EQ(stat(out.c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 0777, 0600U);
    const Bytes good = read_file(out);

    write_file(out, bytes_of("precious"));
    chmod(out.c_str(), 0644);
    const Ran refused = qel({"dearmor", "-o", out, key});
    EXPECT_EQ(refused.exit, 7);
    EXPECT_TRUE(holds(refused.err, "--force")) << refused.err;
    EXPECT_EQ(text_of(read_file(out)), "precious");
    EXPECT_EQ(qel({"dearmor", "--force", "-o", out, key}).exit, 0);
    EXPECT_EQ(read_file(out), good);
    ASSERT_EQ(stat(out.c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 0777, 0600U);
}

TEST(Armor, KeysAreNotInJsonWhichSaysSo) {
    const std::string key = vector_path("pkcs8/unenc-rsa-pkcs8.pem");
    const std::string encrypted = vector_path("pkcs8/pkcs8v1_rsa_md5_des1.der");
    const std::vector<std::string> rows[] = {
        {"armor", "--json", encrypted},
        {"dearmor", "--json", key},
        {"asn1", "--json", "PrivateKeyInfo", "-e", "ber", key},
    };
    for (const auto &words : rows) {
        const Ran ran = qel(words);
        EXPECT_EQ(ran.exit, 2) << words[0];
        EXPECT_TRUE(holds(ran.json()["error"]["what"], "give '--output FILE'")) << ran.out;
        EXPECT_LT(ran.out.size(), 400U) << "no key in it";
    }
}

TEST(Dearmor, AKeyIsNotLostToOtherOutput) {
    const TemporaryFolder folder;
    const std::string certificate = vector_path("armour/testx509.pem"), out = folder.path("kept");
    for (const char *key : {"pkcs8/unenc-rsa-pkcs8.pem", "pkcs8/pkcs8v1_rsa_md5_des1.der"}) {
        const Bytes good = vector_file(key);
        write_file(out, good);
        EXPECT_EQ(qel({"dearmor", "-o", out, certificate}).exit, 7) << key;
        EXPECT_EQ(read_file(out), good) << key;
    }
    EXPECT_EQ(qel({"dearmor", "--force", "-o", out, certificate}).exit, 0);
    EXPECT_EQ(qel({"dearmor", "-o", out, certificate}).exit, 0) << "a certificate may be replaced";
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path("")), {}), 1)
        << "nothing is left beside it";
}

} // namespace
