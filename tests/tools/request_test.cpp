// qel request, with OpenSSL's command line as the oracle.
#include "tools/packages.h"

namespace {

class Request : public Packages {
protected:
    static void SetUpTestSuite() {
        Packages::SetUpTestSuite();
        make_package("alice.KEYPKG", "CN=Alice,O=Acme,C=US");
        make_package("decrypt.KEYPKG", "CN=Alice", "--usage decrypt");
        openssl({"genpkey", "-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:512", "-out",
                 path("key.pem")});
        openssl({"genpkey", "-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256", "-out",
                 path("ec.pem")});
        for (const char *name : {"key.pem", "ec.pem"})
            chmod(path(name).c_str(), 0600);
        write_secret("challenge", bytes_of("Revoke me, please"));
        write_secret("challenge.t61", bytes_of("Revoke_me!"));
        write_file(path("oracle.cnf"), bytes_of("[req]\n"
                                                "prompt = no\n"
                                                "string_mask = nombstr\n"
                                                "distinguished_name = name\n"
                                                "attributes = attributes\n"
                                                "req_extensions = extensions\n"
                                                "[name]\n"
                                                "C = US\n"
                                                "O = Acme\n"
                                                "CN = Oracle\n"
                                                "[attributes]\n"
                                                "challengePassword = open sesame\n"
                                                "unstructuredName = An optional name\n"
                                                "[extensions]\n"
                                                "subjectAltName = DNS:example.org\n"));
    }
    // A request of the oracle.
    static void ask(const std::string &file, const std::string &words) {
        auto all = words_of("req -new -key $key.pem -out $" + file + " " + words);
        openssl(all);
    }
    static Json shown(const std::string &line) {
        const Ran ran = run("request show --json " + line);
        EXPECT_EQ(ran.exit, 0) << ran.err;
        return ran.json()["requests"][0];
    }
};

TEST_F(Request, NewOnesAreReadByTheOracleAndVerify) {
    const struct {
        const char *reason, *words;
        const char *form, *subject;
        bool md2 = false; // which the oracle has not
        const char *challenge = "";
    } rows[] = {
        {"the owner of a package", "-k $alice.KEYPKG", "PEM", "C=US,O=Acme,CN=Alice"},
        {"another name", "-k $alice.KEYPKG -s CN=Bob+OU=Sales,C=DE", "PEM", "C=DE,CN=Bob+OU=Sales"},
        {"a key for decryption", "-k $decrypt.KEYPKG", "PEM", "CN=Alice"},
        {"DER of a key without package", "-k $key.pem -s CN=Host --form der", "DER", "CN=Host"},
        {"MD2", "-k $key.pem -s CN=Host -a md2", "PEM", "CN=Host", true},
        {"a challenge", "-k $key.pem -s CN=Host --challenge file:$challenge", "PEM", "CN=Host",
         false, ":Revoke me, please\n"},
        {"a challenge in T61", "-k $key.pem -s CN=Host --challenge file:$challenge.t61", "PEM",
         "CN=Host", false, ":Revoke_me!\n"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        unlink(path("new.req").c_str());
        const Ran made =
            run(std::string("request new --passin file:$phrase -o $new.req ") + row.words);
        ASSERT_EQ(made.exit, 0) << made.err;
        std::vector<std::string> words = {
            "req",    "-in",      path("new.req"), "-inform",  row.form,
            "-noout", "-subject", "-text",         "-nameopt", "RFC2253,-dn_rev"};
        if (!row.md2)
            words.emplace_back("-verify");
        const Ran oracle = openssl(words);
        EXPECT_TRUE(holds(oracle.out, std::string("subject=") + row.subject + "\n")) << oracle.out;
        EXPECT_TRUE(holds(oracle.out, row.challenge)) << oracle.out;
        EXPECT_EQ(holds(oracle.out + oracle.err, "self-signature verify OK"), !row.md2);
        EXPECT_EQ(run("request verify $new.req").exit, 0);
        if (row.form == std::string("PEM")) {
            EXPECT_TRUE(text("new.req").starts_with("-----BEGIN NEW CERTIFICATE REQUEST-----\n"));
        }
    }
    struct stat about; // the last one has a challenge password
    ASSERT_EQ(stat(path("new.req").c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 077, 0U);
    EXPECT_FALSE(holds(run("request show --json $new.req").out, "5265766f6b65"));
    EXPECT_TRUE(holds(run("request show --json --full $new.req").out, "5265766f6b65"));
}

TEST_F(Request, OfTheOracleAndOfBrowsersAreReadAndJudged) {
    ask("oracle.req", "-md5 -config $oracle.cnf");
    ask("utf8.req", "-md5 -utf8 -subj /CN=J\xc3\xbcrgen");
    ask("sha.req", "-sha256 -subj /CN=Modern");
    oracle("spkac -key $key.pem -challenge hello -digest md5 -out $spkac.txt");
    write_file(path("two.req"), bytes_of(text("oracle.req") + text("sha.req")));
    const std::string pkcs10 = vector_path("pkcs10/"), spkac = vector_path("spkac/");
    must("armor -t request -o $old.req " + pkcs10 + "ca-req.der");
    const struct {
        const char *reason;
        std::string file;
        int exit;
        const char *kind, *shown;
    } rows[] = {
        {"with attributes", "$oracle.req", 0, "PKCS#10", "CN=Oracle, O=Acme, C=US"},
        {"a name beyond the library's", "$utf8.req", 0, "PKCS#10", "J\xc3\xbcrgen"},
        {"SHA-256", "$sha.req", 1, "PKCS#10", "not supported"},
        {"one good and one not", "$two.req", 1, "PKCS#10", "CN=Modern"},
        {"of the time", pkcs10 + "testreq.der", 0, "PKCS#10", "CN=Eric Young"},
        {"of the time, MD2", pkcs10 + "reqU.der", 0, "PKCS#10", "md2WithRSAEncryption"},
        {"without the attributes field", pkcs10 + "ca-req.der", 3, "", "attributes is missing"},
        {"without it, armoured", "$old.req", 3, "", "attributes is missing"},
        {"the oracle's key and challenge", "$spkac.txt", 0, "browser", "'hello'"},
        {"a browser's", spkac + "ruby-mozilla.der", 0, "browser", "'MozillaIsMyFriend'"},
        {"a browser's, as text", spkac + "ruby-mozilla.txt", 0, "browser", "'MozillaIsMyFriend'"},
        {"no request", vector_path("armour/01.pem"), 3, "", "holds other things"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        const Ran verified = run("request verify --json " + row.file);
        EXPECT_EQ(verified.exit, row.exit) << verified.err;
        EXPECT_EQ(run("request verify " + row.file).exit, row.exit);
        if (row.exit == 3) {
            EXPECT_TRUE(holds(verified.json()["error"]["why"], row.shown)) << verified.out;
            continue;
        }
        EXPECT_EQ(verified.json()["verified"], row.exit == 0);
        EXPECT_EQ(shown(row.file)["kind"], row.kind);
        for (const char *full : {"", "--full "}) {
            const Ran ran = run(std::string("request show ") + full + row.file);
            EXPECT_EQ(ran.exit, 0) << ran.err;
            EXPECT_TRUE(holds(ran.out, row.shown)) << ran.out;
        }
    }
    const Json attributes = shown("$oracle.req")["attributes"];
    EXPECT_EQ(attributes.size(), 3U) << attributes;
    EXPECT_FALSE(holds(run("request show $oracle.req").out, "open sesame"));
    EXPECT_TRUE(holds(run("request show --full $oracle.req").out, "open sesame"));
    EXPECT_TRUE(holds(run("request show --full $utf8.req").out, "status 10"));
}

TEST_F(Request, NoFlippedBitVerifies) {
    must("request new --form der -o $good.req --passin file:$phrase -k $alice.KEYPKG");
    const std::size_t signature = 67; // BIT STRING of 64 bytes; the NULL before it is not signed
    for (const Bytes &good : {contents("good.req"), vector_file("spkac/openssl-spkac-pod.der")}) {
        for (std::size_t bit = 3; bit < good.size() * 8; bit += 17) {
            const std::size_t from_end = good.size() - bit / 8 - signature;
            if (from_end == 1 || from_end == 2)
                continue;
            Bytes flipped = good;
            flipped[bit / 8] ^= static_cast<uint8_t>(1U << bit % 8);
            write_file(path("flipped.req"), flipped);
            const Ran ran = run("request verify $flipped.req");
            EXPECT_TRUE(ran.exit == 1 || ran.exit == 3) << "bit " << bit << ": " << ran.out;
        }
    }
}

TEST_F(Request, RefusalsSayWhyAndWriteNothing) {
    write_file(path("there"), bytes_of("something"));
    const struct {
        const char *reason, *words;
        int exit;
        const char *told;
    } rows[] = {
        {"nobody to name", "-k $key.pem", 2, "'--subject' is needed"},
        {"no name", "-k $key.pem -s Alice", 3, "Equals missing"},
        {"another kind of key", "-k $ec.pem -s CN=A", 3, "no RSA key"},
        {"a file that is there", "-k $key.pem -s CN=A -o $there", 7, "exists"},
        {"a challenge from the terminal, and batch",
         "-k $key.pem -s CN=A --batch --challenge prompt", 2, "--challenge"},
        {"a pass phrase from the terminal, and batch", "-k $alice.KEYPKG --batch", 2, "--passin"},
        {"key and challenge from standard input", "-k - -s CN=A --challenge fd:0", 2, "standard"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        const std::string words = row.words;
        const Ran ran = run("request new " + words + (holds(words, "-o ") ? "" : " -o $none"));
        EXPECT_EQ(ran.exit, row.exit) << ran.err;
        EXPECT_TRUE(holds(ran.err, row.told)) << ran.err;
        EXPECT_FALSE(exists("none"));
    }
    EXPECT_EQ(text("there"), "something");
}

} // namespace
