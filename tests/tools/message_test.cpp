// qel message and qel cert verify --chain, with OpenSSL's command line as the oracle.
#include "tools/packages.h"

namespace {

// An authority, one below it, and Alice below that.
class Message : public Packages {
protected:
    static void SetUpTestSuite() {
        Packages::SetUpTestSuite();
        make_package("ca.KEYPKG", "CN=Authority,O=Acme");
        make_package("middle.KEYPKG", "CN=Middle,O=Acme");
        make_package("alice.KEYPKG", "CN=Alice,O=Acme");
        issue("--self -k $ca.KEYPKG -o $ca.pem");
        certify("middle", "ca", "--ca");
        certify("alice", "middle");
        make_package("stranger.KEYPKG", "CN=Stranger");
        issue("--self -k $stranger.KEYPKG -o $stranger.pem");
        for (const char *name : {"alice", "ca"}) {
            const std::string p8 = std::string("$") + name + ".p8";
            must(std::string("keypkg export --unencrypted --form pem --passin file:$phrase -o ") +
                 p8 + " $" + name + ".KEYPKG");
        }
        write_file(path("report"), sample(5000));
        write_file(path("nothing"), {});
        write_file(path("bundle.pem"), bytes_of(text("middle.pem") + text("ca.pem")));
        sleep(1); // a certificate is not valid yet in the second in which it was made
    }
    static void issue(const std::string &words) {
        must("issue -l $log --passin file:$phrase " + words);
    }
    static void certify(const std::string &who, const std::string &by, const char *more = "") {
        must("request new --passin file:$phrase -k $" + who + ".KEYPKG -o $" + who + ".req");
        issue("-k $" + by + ".KEYPKG -c $" + by + ".pem -o $" + who + ".pem $" + who + ".req " +
              more);
    }
    static constexpr const char *sign =
        "message sign -k $alice.KEYPKG --passin file:$phrase -c $alice.pem -c $bundle.pem ";
};

TEST_F(Message, OursAreVerifiedByTheOracleAndByOurselves) {
    const struct {
        const char *reason, *words, *content;
        bool md2 = false; // which the oracle has not
    } rows[] = {
        {"DER", "", "report"},
        {"armour", "--armor", "report"},
        {"nothing", "", "nothing"},
        {"MD2", "-a md2", "report", true},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        must(std::string(sign) + row.words + " -o $m.p7 $" + row.content);
        const Ran ours = run("message verify --json --trust $ca.pem -o $out $m.p7");
        EXPECT_EQ(ours.exit, 0) << ours.err;
        EXPECT_EQ(ours.json()["signers"][0]["chain"].size(), 3U) << ours.out;
        EXPECT_EQ(contents("out"), contents(row.content));
        if (row.md2)
            continue;
        if (holds(row.words, "--armor"))
            must("dearmor -o $m.der $m.p7");
        else
            write_file(path("m.der"), contents("m.p7"));
        oracle("smime -verify -binary -inform DER -in $m.der -CAfile $ca.pem "
               "-purpose any -auth_level 0 -out $oracle");
        EXPECT_EQ(contents("oracle"), contents(row.content));
    }
}

TEST_F(Message, TheOraclesAreVerified) {
    const struct {
        const char *reason, *words, *verify;
    } rows[] = {
        {"as the library knows them", "-nodetach -noattr", ""},
        {"with authenticated attributes", "-nodetach", ""},
        {"in pieces, with indefinite lengths", "-nodetach -noattr -stream", ""},
        {"detached", "-noattr", "--content $report"},
        {"detached, with attributes", "", "--content $report"},
        {"two signers", "-nodetach -signer $ca.pem -inkey $ca.p8", ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        oracle(std::string("smime -sign -binary -md md5 -outform DER -in $report "
                           "-certfile $bundle.pem -out $m.p7 -signer $alice.pem "
                           "-inkey $alice.p8 ") +
               row.words);
        const std::string verify = std::string("message verify --trust $ca.pem ") + row.verify;
        const Ran good = run(verify + " -o $out $m.p7");
        EXPECT_EQ(good.exit, 0) << good.out << good.err;
        EXPECT_TRUE(holds(good.out, "signed by 'CN=Alice, O=Acme'")) << good.out;
        EXPECT_EQ(contents("out"), contents("report"));
        unlink(path("out").c_str());
        const Ran strange = run("message verify --trust $stranger.pem " + std::string(row.verify) +
                                " -o $out $m.p7");
        EXPECT_EQ(strange.exit, 1) << strange.out << strange.err;
        EXPECT_FALSE(exists("out"));
    }
}

TEST_F(Message, EveryChangeIsNoticed) {
    for (const char *words : {"-nodetach -noattr", "-nodetach"}) {
        oracle(std::string("smime -sign -binary -md md5 -outform DER -in $report "
                           "-certfile $bundle.pem -out $m.p7 -signer $alice.pem "
                           "-inkey $alice.p8 ") +
               words);
        const Bytes good = contents("m.p7");
        for (std::size_t i = 7; i < good.size(); i += good.size() / 60) {
            Bytes bad = good;
            bad[i] ^= 1;
            write_file(path("bad.p7"), bad);
            const Ran ran = run("message verify --trust $ca.pem -o $out $bad.p7");
            // What nobody signs may change: numbers of versions, algorithms beside the signature.
            if (ran.exit == 0)
                EXPECT_EQ(contents("out"), contents("report")) << "octet " << i;
            else
                EXPECT_TRUE(ran.exit == 1 || ran.exit == 3 || ran.exit == 8) << i << ran.err;
        }
    }
}

TEST_F(Message, RefusalsSayWhy) {
    oracle("smime -sign -binary -md md5 -outform DER -in $report -certfile $bundle.pem "
           "-out $detached.p7 -signer $alice.pem -inkey $alice.p8");
    oracle("smime -sign -binary -md sha256 -nodetach -outform DER -in $report "
           "-certfile $bundle.pem -out $sha.p7 -signer $alice.pem -inkey $alice.p8");
    oracle("smime -sign -binary -md md5 -nodetach -nocerts -outform DER -in $report "
           "-out $bare.p7 -signer $alice.pem -inkey $alice.p8");
    must(std::string(sign) + "-o $m.p7 $report");
    const struct {
        const char *words;
        int exit;
        const char *told;
    } rows[] = {
        {"message verify --trust $ca.pem $detached.p7", 2, "does not hold what is signed"},
        {"message verify --trust $ca.pem --content $nothing $detached.p7", 1, "another digest"},
        {"message verify --trust $ca.pem --content $report $m.p7", 2, "has its content inside"},
        {"message verify --trust $ca.pem $sha.p7", 1, "only MD2 and MD5"},
        {"message verify --trust $ca.pem $bare.p7", 1, "does not hold the signer's certificate"},
        {"message verify --trust $ca.pem $ca.pem", 3, "cannot find a signed message"},
        {"message verify --trust $alice.KEYPKG $m.p7", 1, "the list of its key package is empty"},
        {"message sign -k $alice.KEYPKG --passin file:$phrase -c $ca.pem -o $x $report", 3,
         "is not that of the key"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.words);
        const Ran ran = run(row.words);
        EXPECT_EQ(ran.exit, row.exit) << ran.out << ran.err;
        EXPECT_TRUE(holds(ran.out + ran.err, row.told)) << ran.out << ran.err;
    }
    EXPECT_FALSE(exists("x"));
}

TEST_F(Message, StandardStreamsServeOnePurpose) {
    must(std::string(sign) + "-o $m.p7 $report");
    const struct {
        const char *words, *input;
        int exit;
        const char *told;
    } rows[] = {
        {"cert verify --chain --trust - $alice.pem $bundle.pem", "ca.pem", 0, "verified, up to"},
        {"cert verify --chain --trust - -", "ca.pem", 2, "one of the files"},
        {"message verify --trust - -", "m.p7", 2, "one of the files"},
        {"message sign -k $alice.KEYPKG --passin file:$phrase -c - -", "alice.pem", 2,
         "one of the files"},
        {"message show --json -o - $m.p7", "nothing", 2, "beside JSON"},
        {"cert get --repo file --json -o - $ca.pem", "nothing", 2, "beside JSON"},
        {"keypkg list --repo file -", "alice.KEYPKG", 0, "CN=Alice"},
        {"cert set --repo file --to - $ca.pem", "nothing", 2, "name the file"},
        {"keypkg remove --repo file -", "alice.KEYPKG", 2, "name the file"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.words);
        const Ran ran = run(row.words, {.input = contents(row.input)});
        EXPECT_EQ(ran.exit, row.exit) << ran.out << ran.err;
        EXPECT_TRUE(holds(ran.out + ran.err, row.told)) << ran.out << ran.err;
    }
    const Ran content = run("message show -o - $m.p7");
    EXPECT_EQ(bytes_of(content.out), contents("report"));
    EXPECT_TRUE(holds(content.err, "not verified")) << content.err;
    EXPECT_EQ(run("keypkg get --repo file -o - $alice.KEYPKG").out, text("alice.KEYPKG"));
}

TEST_F(Message, AFileOfCertificatesGoesAndNoOther) {
    write_file(path("both"), bytes_of(text("ca.pem") + text("alice.KEYPKG")));
    write_file(path("old.pem"), contents("bundle.pem"));
    const struct {
        const char *file;
        int exit;
        const char *told;
        bool stays;
    } rows[] = {
        {"alice.KEYPKG", 3, "cannot find a certificate", true},
        {"both", 7, "key package, which would be lost", true},
        {"absent", 3, "cannot open", false},
        {"old.pem", 0, "no longer in", false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.file);
        const Ran ran = run(std::string("cert remove --all --repo file $") + row.file);
        EXPECT_EQ(ran.exit, row.exit);
        EXPECT_TRUE(holds(ran.out + ran.err, row.told)) << ran.out << ran.err;
        EXPECT_EQ(exists(row.file), row.stays);
    }
}

TEST_F(Message, ShowsWhoSigned) {
    must(std::string(sign) + "-o $m.p7 $report");
    const Ran shown = run("message show $m.p7");
    for (const char *part : {"not verified", "5000 bytes", "CN=Middle, O=Acme", "md5"})
        EXPECT_TRUE(holds(shown.out, part)) << shown.out;
    const Json json = run("message show --json $m.p7").json();
    EXPECT_EQ(json["certificates"].size(), 3U);
    EXPECT_EQ(json["signers"][0]["issuer"], "CN=Middle, O=Acme");
}

TEST_F(Message, ChainsAreVerifiedUpToATrustedKey) {
    const struct {
        const char *words;
        int exit;
        const char *told;
    } rows[] = {
        {"--chain --trust $ca.pem $alice.pem $middle.pem $ca.pem", 0, "verified, up to"},
        {"--chain --trust $ca.pem $alice.pem $bundle.pem", 0, "verified, up to"},
        {"--chain --trust $middle.pem $alice.pem $bundle.pem", 0, "verified, up to"},
        {"--chain --trust $ca.pem $ca.pem", 0, "verified, up to"},
        {"--chain --trust $ca.pem $alice.pem $middle.pem", 1, "QEL_ERR_ISSUER_NOT_TRUSTED"},
        {"--chain --explain --trust $ca.pem $alice.pem $ca.pem", 1,
         "'CN=Alice, O=Acme' under the key of 'CN=Authority, O=Acme': status 16"},
        {"--chain --explain --trust $stranger.pem $alice.pem $bundle.pem", 1,
         "'CN=Middle, O=Acme' is no trusted key: status 31"},
        {"--chain $alice.pem", 2, "--trust"},
        {"--chain --issuer $ca.pem --trust $ca.pem $alice.pem", 2, "'--issuer' does not go"},
        {"--chain --allowed CN=X --trust $ca.pem $alice.pem", 2, "needs '--establish'"},
        {"--establish --trust $ca.pem $alice.pem $middle.pem", 2, "one certificate"},
        {"--trust $ca.pem $alice.pem", 2, "'--chain' or '--establish'"},
        {"$alice.pem $middle.pem", 2, "give '--chain'"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.words);
        const Ran ran = run(std::string("cert verify ") + row.words);
        EXPECT_EQ(ran.exit, row.exit) << ran.out << ran.err;
        EXPECT_TRUE(holds(ran.out + ran.err, row.told)) << ran.out << ran.err;
    }
}

} // namespace
