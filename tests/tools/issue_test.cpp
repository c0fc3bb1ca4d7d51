// qel issue, with OpenSSL's command line as the oracle.
#include "tools/packages.h"

#include <algorithm>
#include <set>
#include <thread>

#define SPKAC QEL_SOURCE "/tests/vectors/spkac/ruby-mozilla.txt"

namespace {

class Issue : public Packages {
protected:
    static void SetUpTestSuite() {
        Packages::SetUpTestSuite();
        make_package("ca.KEYPKG", "CN=Root,O=Acme,C=US");
        make_package("alice.KEYPKG", "CN=Alice,O=Acme,C=US");
        must("issue --self -k $ca.KEYPKG --passin file:$phrase --ca -l $ca.log -o $ca.pem");
        must("request new -k $alice.KEYPKG --passin file:$phrase -o $alice.req");
        must("keypkg export --public --form pem -o $alice.pub $alice.KEYPKG");
        openssl({"genpkey", "-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:512", "-out",
                 path("key.pem")});
        chmod(path("key.pem").c_str(), 0600);
        for (const char *digest : {"md5", "sha256"})
            oracle("req -new -key $key.pem -subj /CN=Oracle -" + std::string(digest) + " -out $" +
                   digest + ".req");
    }
    static std::string command(const std::string &more) {
        return "issue -k $ca.KEYPKG -c $ca.pem --passin file:$phrase -l $log " + more;
    }
    static std::string oracle_text(const std::string &file) {
        return oracle("x509 -noout -text -nameopt RFC2253 -in $" + file).out;
    }
    static std::size_t count(const std::string &text, const std::string &part) {
        std::size_t number = 0;
        for (std::size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1))
            ++number;
        return number;
    }
};

TEST_F(Issue, CertificatesAreWhatWasAskedForAndVerify) {
    const struct {
        const char *reason, *words;
        std::vector<const char *> told; // by the oracle
        const char *not_told = "critical";
        int verified = 0;
        bool md2 = false; // which the oracle has not
    } rows[] = {
        {"version 1",
         "$alice.req",
         {"Version: 1 ", "Issuer: CN=Root,O=Acme,C=US\n", "Subject: CN=Alice,O=Acme,C=US\n",
          "md5WithRSAEncryption"},
         "X509v3"},
        {"another name", "$alice.req -s CN=Bob --form pem", {"Subject: CN=Bob\n"}},
        {"an authority",
         "$alice.req --ca --key-usage keyCertSign --key-usage cRLSign",
         {"Version: 3 ", "CA:TRUE", "Certificate Sign, CRL Sign\n"}},
        {"usages, and not an authority",
         "$alice.req --key-usage dataEncipherment --key-usage digitalSignature",
         {"Digital Signature, Data Encipherment\n"},
         "CA:"},
        {"critical, which our own verification refuses",
         "$alice.req --ca --critical",
         {"Basic Constraints: critical", "CA:TRUE"},
         "Key Usage",
         43},
        {"a day's validity in days to come",
         "$alice.req --not-before 2040-02-29 --days 1",
         {"Not Before: Feb 29 00:00:00 2040 GMT", "Not After : Mar  1 00:00:00 2040 GMT"},
         "critical",
         30},
        {"the last moment",
         "$alice.req --not-before 2049-12-30T23:59:59Z --days 1",
         {"Not After : Dec 31 23:59:59 2049 GMT"},
         "critical",
         30},
        {"a serial number", "$alice.req --serial 0x1234", {"Serial Number: 4660 (0x1234)"}},
        {"one with its top bit set", "$alice.req --serial ff", {"Serial Number: 255 (0xff)"}},
        {"MD2", "$alice.req -a md2", {"md2WithRSAEncryption"}, "X509v3", 0, true},
        {"a browser's request", SPKAC " -s CN=Browser", {"Subject: CN=Browser\n"}},
        {"a bare public key", "$alice.pub -s CN=Bare", {"Subject: CN=Bare\n"}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        const Ran ran = run(command(std::string("--force -o $new.pem ") + row.words));
        ASSERT_EQ(ran.exit, 0) << ran.err;
        const std::string seen = oracle_text("new.pem");
        for (const char *told : row.told)
            EXPECT_TRUE(holds(seen, told)) << seen;
        EXPECT_FALSE(holds(seen, row.not_told)) << seen;
        const Ran ours = run("cert verify --json $new.pem -i $ca.pem");
        EXPECT_EQ(ours.json()["status"]["number"], row.verified);
        if (row.verified != 30 && !row.md2) {
            oracle("verify -auth_level 0 -CAfile $ca.pem $new.pem");
        }
    }
    EXPECT_EQ(count(text("log"), "++++\n"), std::size(rows));
    EXPECT_EQ(run("cert verify $ca.pem").exit, 0);
    oracle("verify -auth_level 0 -CAfile $ca.pem $ca.pem");
}

TEST_F(Issue, SelfSignedOnesAreForTheAuthoritysOwnKey) {
    must("request new -k $ca.KEYPKG --passin file:$phrase -s CN=Again -o $ca.req");
    const std::string own = "issue --self -k $ca.KEYPKG --passin file:$phrase -l $self.log ";
    must(own + "-s CN=Other -o $other.pem");
    must(own + "-o $again.pem $ca.req");
    must("issue --self -k $key.pem -l $self.log -s CN=Bare -o $bare.pem");
    for (const auto &[file, name] :
         {std::pair("other", "Other"), {"again", "Again"}, {"bare", "Bare"}}) {
        EXPECT_EQ(run(std::string("cert verify $") + file + ".pem").exit, 0);
        EXPECT_EQ(count(oracle_text(std::string(file) + ".pem"), std::string("CN=") + name), 2U);
    }
    const Ran foreign = run(own + "-o $foreign.pem $alice.req");
    EXPECT_EQ(foreign.exit, 3);
    EXPECT_TRUE(holds(foreign.err, "another key")) << foreign.err;
    EXPECT_FALSE(exists("foreign.pem"));
}

TEST_F(Issue, RefusalsSayWhyAndIssueNothing) {
    must("request new --form der -k $alice.KEYPKG --passin file:$phrase -o $spoiled.req");
    Bytes spoiled = contents("spoiled.req");
    spoiled.back() ^= 1; // in the signature
    write_file(path("spoiled.req"), spoiled);
    write_file(path("two.req"), bytes_of(text("alice.req") + text("md5.req")));
    write_file(path("there.pem"), bytes_of("something"));
    const auto named = [](const std::string &file, const std::string &subject) {
        auto words = words_of("req -new -md5 -key $key.pem -out $" + file);
        words.insert(words.end(), {"-config", path("names.cnf"), "-subj", subject});
        openssl(words);
    };
    write_file(path("names.cnf"), bytes_of("[req]\nstring_mask = nombstr\n"
                                           "distinguished_name = name\n[name]\n"));
    named("nobody.req", "/");
    named("plus.req", "/CN=Bob \\+ O=Acme");
    named("blank.req", "/CN=Bob ");
    named("line.req", "/CN=Bob\nIssuer: CN=Root");
    named("given.req", "/GN=Bob");
    must("issue --self -k $key.pem -s CN=Root -l $key.log -o $key.crt");
    must("issue -k $ca.KEYPKG -c $ca.pem --passin file:$phrase -l $log --serial 0abc --force "
         "-o $abc.pem $alice.req");
    const struct {
        const char *reason, *words;
        int exit;
        const char *told;
    } rows[] = {
        {"a bad signature", "$spoiled.req", 1, "its signature is not good"},
        {"a digest that is not known", "$sha256.req", 1, "sha256WithRSAEncryption"},
        {"several requests", "$two.req", 3, "several"},
        {"no request", "$ca.pem", 3, "certificate"},
        {"one without attributes", QEL_SOURCE "/tests/vectors/pkcs10/ca-req.der", 3,
         "attributes is missing"},
        {"a name in UTF-8", "$md5.req", 3, "--subject"},
        {"a request of nobody", "$nobody.req", 3, "it is empty"},
        {"a name that reads as another", "$plus.req", 3, "another name"},
        {"a name like another's", "$blank.req", 3, "another name"},
        {"a name of two lines", "$line.req", 3, "name"},
        {"an attribute that is not known", "$given.req", 3, "--subject"},
        {"a browser names nobody", SPKAC, 2, "'--subject' is needed"},
        {"a serial number of the log", "$alice.req --serial 0x000abc", 1, "the log has one"},
        {"no serial number", "$alice.req --serial 12x", 2, "--serial"},
        {"a long serial number", "$alice.req --serial 800000000000000000000000000000000000000000",
         2, "--serial"},
        {"another authority's certificate", "$alice.req -c $key.crt", 3, "belong together"},
        {"whose signature", "$alice.req --self", 2, "one of '--cert'"},
        {"no days", "$alice.req --days 0", 2, "from 1"},
        {"no such day", "$alice.req --not-before 2026-02-30", 2, "--not-before"},
        {"beyond UTCTime", "$alice.req --not-before 2049-12-31 --days 1", 2, "2049"},
        {"nothing to be critical", "$alice.req --critical", 2, "--critical"},
        {"a file that is there", "$alice.req -o $there.pem", 7, "exists"},
        {"no such folder", "$alice.req -o $no/such.pem", 7, "No such file"},
        {"no log", "$alice.req -l $no/such.log", 7, "cannot lock the log"},
        {"a log that keeps nothing", "$alice.req -l /dev/null", 7, "it is no file"},
        {"a wrong pass phrase", "$alice.req --passin file:$names.cnf", 9, "open to others"},
    };
    const std::string log = text("log");
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        std::string line = row.words;
        for (const char *given : {" -k $ca.KEYPKG", " -c $ca.pem", " -l $log", " -o $none.pem",
                                  " --passin file:$phrase"})
            if (!holds(line, std::string(given).substr(0, std::string(given).find(' ', 1) + 1)))
                line += given;
        const Ran ran = run("issue " + line);
        EXPECT_EQ(ran.exit, row.exit) << ran.err;
        EXPECT_TRUE(holds(ran.err, row.told)) << ran.err;
        EXPECT_FALSE(exists("none.pem"));
        EXPECT_TRUE(text("log") == log);
    }
    EXPECT_EQ(text("there.pem"), "something");
}

TEST_F(Issue, ManyAtATimeGetSerialNumbersOfTheirOwn) {
    constexpr int number = 8;
    std::vector<std::thread> threads;
    for (int i = 0; i < number; ++i)
        threads.emplace_back([i] {
            EXPECT_EQ(run("issue -k $ca.KEYPKG -c $ca.pem --passin file:$phrase -l $many.log "
                          "$alice.req -o $many." +
                          std::to_string(i))
                          .exit,
                      0);
        });
    for (std::thread &thread : threads)
        thread.join();
    const std::string log = text("many.log");
    EXPECT_EQ(count(log, "Certificate Creation Time and Date: "), std::size_t{number});
    EXPECT_EQ(count(log, "\n" + std::string(60, '+') + "\n"), std::size_t{number});
    std::set<std::string> serials, beginnings; // a clock's would be the same
    for (int i = 0; i < number; ++i) {
        const Json cert =
            run("cert show --json $many." + std::to_string(i)).json()["certificates"][0];
        const std::string serial = cert["serial"], fingerprint = cert["md5_fingerprint"];
        serials.insert(serial);
        beginnings.insert(serial.substr(0, 8));
        EXPECT_EQ(serial.size(), 32U);
        EXPECT_TRUE(holds(log, "SerialNumber: 0x" + serial + "\n")) << log;
        EXPECT_TRUE(holds(log, fingerprint)) << log;
    }
    EXPECT_EQ(serials.size(), std::size_t{number});
    EXPECT_EQ(beginnings.size(), std::size_t{number});
}

TEST_F(Issue, FullDiskLeavesALogOfWholeEntriesAndNoCertificate) {
    Bytes log = bytes_of(text("ca.log"));
    while (log.size() < 8192 - 100)
        log.push_back(log.size() % 70 == 0 ? '\n' : '#'); // the next entry crosses the limit
    write_file(path("full.log"), log);
    const auto words = words_of("-c $ca.pem -k $ca.KEYPKG --passin file:$phrase -l $full.log "
                                "-o $full.pem $alice.req");
    std::string line = "ulimit -f 8; trap '' XFSZ; exec " QEL_TOOL " issue";
    for (const std::string &word : words)
        line += " " + word;
    const Ran ran = run_program({"bash", "-c", line});
    EXPECT_EQ(ran.exit, 7) << ran.err;
    EXPECT_TRUE(holds(ran.err, "cannot write to the log")) << ran.err;
    EXPECT_EQ(contents("full.log"), log);
    EXPECT_FALSE(exists("full.pem"));
}

TEST_F(Issue, JsonTellsAllAndHoldsTheCertificateWhereThereIsNoFile) {
    const Ran ran = run(command("--json $alice.req"));
    ASSERT_EQ(ran.exit, 0) << ran.err;
    const Json json = ran.json();
    EXPECT_EQ(json["subject"], "CN=Alice, O=Acme, C=US");
    EXPECT_EQ(json["version"], 1);
    write_file(path("json.der"), from_hex(json["hex"]));
    const Json cert = run("cert show --json $json.der").json()["certificates"][0];
    EXPECT_EQ(cert["serial"], json["serial"]);
    EXPECT_EQ(cert["md5_fingerprint"], json["md5_fingerprint"]);
    EXPECT_EQ(cert["validity"]["state"], "valid");
    const Ran plain = run(command("$alice.req"));
    EXPECT_TRUE(plain.out.starts_with("-----BEGIN CERTIFICATE-----\n")) << plain.out;
    EXPECT_TRUE(plain.out.ends_with("-----END CERTIFICATE-----\n")) << plain.out;
}

} // namespace
