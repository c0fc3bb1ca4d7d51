// qel trust: the list of trusted keys in a key package.
#include "tools/packages.h"

#include <set>

namespace {

class Trust : public Packages {
protected:
    static void SetUpTestSuite() {
        Packages::SetUpTestSuite();
        write_secret("wrong", bytes_of("another phrase\n"));
        for (const char *name : {"red", "blue"}) {
            const std::string key = std::string(name) + ".key";
            openssl({"genpkey", "-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:512", "-out",
                     path(key)});
            chmod(path(key).c_str(), 0600);
            must("issue --self -k $" + key + " -s CN=Root,O=" + name + " --serial 0" +
                 (name[0] == 'r' ? "1" : "2") + " -l $log -o $" + name + ".pem");
        }
    }
    // Two packages in one file, of which the first trusts the keys of words.
    void SetUp() override {
        unlink(path("me.KEYPKG").c_str());
        make_package("me.KEYPKG", "CN=Me", "--id one --trust $red.pem");
        make_package("me.KEYPKG", "CN=Me", "--id two --add");
    }
    static Json package(std::size_t index) {
        return run("keypkg show --json $me.KEYPKG").json()["packages"][index];
    }
    static Json list() {
        return run("trust list --json --id one $me.KEYPKG").json()["trusted_keys"];
    }
};

TEST_F(Trust, ListChangesAndNothingElse) {
    const struct {
        const char *words;
        std::vector<const char *> owners;
    } steps[] = {
        {"add --cert $blue.pem", {"CN=Root, O=blue", "CN=Root, O=red"}},
        {"delete --issuer cn=root,o=red --serial 01", {"CN=Root, O=blue"}},
        {"delete --subject CN=Root,O=blue", {}},
        {"add --cert $red.pem --cert $blue.pem", {"CN=Root, O=blue", "CN=Root, O=red"}},
        {"delete --subject CN=Root,O=blue --issuer CN=Root,O=red --serial 1", {}},
    };
    Json before = package(0);
    const Json other = package(1);
    before.erase("trusted_keys");
    for (const auto &step : steps) {
        SCOPED_TRACE(step.words);
        const Ran ran =
            run(std::string("trust ") + step.words + " --id one --passin file:$phrase $me.KEYPKG");
        ASSERT_EQ(ran.exit, 0) << ran.err;
        const Json trusted = list();
        std::multiset<std::string> owners;
        for (const Json &key : trusted)
            owners.insert(key["owner"]);
        EXPECT_EQ(owners, std::multiset<std::string>(step.owners.begin(), step.owners.end()));
        Json after = package(0);
        after.erase("trusted_keys");
        EXPECT_EQ(after, before);
        EXPECT_EQ(package(1), other);
        EXPECT_EQ(run("keypkg verify --id one --passin file:$phrase $me.KEYPKG").exit, 0);
    }
}

TEST_F(Trust, KeyIsThatOfItsCertificate) {
    const Json key = list()[0];
    const Json cert = run("cert show --json $red.pem").json()["certificates"][0];
    EXPECT_EQ(key["owner"], cert["subject"]);
    EXPECT_EQ(key["issuer"], cert["issuer"]);
    EXPECT_EQ(key["serial"], cert["serial"]);
    EXPECT_EQ(key["validity"], cert["validity"]);
    const Ran plain = run("trust list --id one --full $me.KEYPKG");
    EXPECT_TRUE(holds(plain.out, "certificate 01 of CN=Root, O=red")) << plain.out;
    EXPECT_TRUE(holds(plain.out, "  Issuer: CN=ROOT, O=RED\n")) << plain.out;
}

TEST_F(Trust, RefusalsLeaveTheFileAsItIs) {
    const struct {
        const char *reason, *words;
        int exit;
        const char *told;
    } rows[] = {
        {"trusted already", "add --id one --cert $red.pem", 1, "trusted already"},
        {"one of two trusted already", "add --id one --cert $blue.pem --cert $red.pem", 1, "'"},
        {"no certificate", "add --id one --cert $red.key", 3, "certificate"},
        {"of nobody", "delete --id one --subject CN=Nobody", 1, "cannot find"},
        {"another serial number", "delete --id one --issuer CN=Root,O=red --serial 02", 1,
         "cannot find"},
        {"an empty list", "delete --id two --subject CN=Root,O=red", 1, "cannot find"},
        {"nothing named", "delete --id one", 2, "'--subject'"},
        {"half of a certificate", "delete --id one --issuer CN=Root,O=red", 2, "go together"},
        {"which package", "add --cert $blue.pem", 2, "'--id'"},
        {"a wrong pass phrase", "add --id one --cert $blue.pem --passin file:$wrong", 6, "wrong"},
    };
    const std::string before = text("me.KEYPKG");
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        std::string line = std::string("trust ") + row.words;
        if (!holds(line, "--passin"))
            line += " --passin file:$phrase";
        const Ran ran = run(line + " $me.KEYPKG");
        EXPECT_EQ(ran.exit, row.exit) << ran.err;
        EXPECT_TRUE(holds(ran.err, row.told)) << ran.err;
        EXPECT_EQ(text("me.KEYPKG"), before);
    }
}

} // namespace
