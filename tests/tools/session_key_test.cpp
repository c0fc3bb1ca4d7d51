// qel genkey, random and dh, with OpenSSL's command line as the oracle of key agreements.
#include "tools/run.h"

#include <algorithm>
#include <cmath>
#include <sys/stat.h>

namespace {

mode_t mode_of(const std::string &path) {
    struct stat about;
    return stat(path.c_str(), &about) == 0 ? about.st_mode & 0777 : 0;
}

// What a person at a terminal sees: standard output and standard error together, and the status.
Ran at_terminal(const std::vector<std::string> &words) {
    std::string line = QEL_TOOL;
    for (const std::string &word : words)
        line += " " + word;
    return run_program({"script", "-qec", line, "/dev/null"});
}

// ---- Keys and random bytes ---------------------------------------------------------------------

TEST(Genkey, KeysAreSecretFilesThatThePolicyAccepts) {
    const TemporaryFolder folder;
    const std::string key = folder.path("key"), parameters = folder.path("parameters");
    write_file(folder.path("data"), bytes_of("data"));
    const mode_t mask = umask(0);
    for (const auto &[name, size] : {std::pair("des", 8U), {"rc2", 5U}, {"rc4", 5U}}) {
        SCOPED_TRACE(name);
        const Ran made = qel({"genkey", name, "--force", "--out", key});
        EXPECT_EQ(made.exit, 0) << made.err;
        EXPECT_EQ(made.out + made.err, "");
        const Bytes first = read_file(key);
        EXPECT_EQ(first.size(), size);
        EXPECT_EQ(mode_of(key), 0600U);
        const Ran used = qel({"encrypt", "-k", key, "-a", name, folder.path("data")});
        EXPECT_EQ(used.exit, 0) << used.err;

        const Ran again = qel({"genkey", name, "-o", key});
        EXPECT_EQ(again.exit, 7);
        EXPECT_TRUE(holds(again.err, "--force")) << again.err;
        EXPECT_EQ(read_file(key), first);
        EXPECT_EQ(qel({"genkey", name, "--hex", "--force", "-o", key}).exit, 0);
        const std::string digits = text_of(read_file(key));
        EXPECT_EQ(digits.size(), 2 * size + 1);
        EXPECT_NE(digits, to_hex(first) + "\n");
    }
    umask(mask);
    EXPECT_EQ(qel({"genkey", "rc2", "-o", folder.path("rc2"), "-p", parameters}).exit, 0);
    EXPECT_EQ(to_hex(read_file(parameters)).substr(0, 16), "300e020200a00408");
    const Ran json = qel({"genkey", "--json", "des", "-o", folder.path("des")});
    EXPECT_EQ(json.json()["key_bytes"], 8);
    EXPECT_EQ(json.json()["parameters"].get<std::string>().substr(0, 4), "0408");
    EXPECT_FALSE(holds(json.out, to_hex(read_file(folder.path("des")))));
}

TEST(Genkey, KeysBeyondThePolicyAreWarnedOf) {
    const TemporaryFolder folder;
    const Ran ran = qel({"genkey", "rc4", "--bytes", "16", "-o", folder.path("key")});
    EXPECT_EQ(ran.exit, 0);
    EXPECT_TRUE(holds(ran.err, "will refuse this key: the key has 16 bytes")) << ran.err;
    EXPECT_EQ(read_file(folder.path("key")).size(), 16U);
    const Ran refused =
        qel({"genkey", "rc2", "--effective-bits", "41", "-o", folder.path("other")});
    EXPECT_EQ(refused.exit, 9);
    EXPECT_TRUE(holds(refused.err, "status 53") && holds(refused.err, "41 effective"))
        << refused.err;
    const Ran triple = qel({"genkey", "des3", "-o", folder.path("other")});
    EXPECT_EQ(triple.exit, 9);
    EXPECT_TRUE(holds(triple.err, "status 53") && holds(triple.err, "triple DES")) << triple.err;
    EXPECT_NE(access(folder.path("other").c_str(), F_OK), 0);
}

TEST(Genkey, NothingSecretOrBinaryGoesToATerminal) {
    const TemporaryFolder folder;
    const std::vector<std::vector<std::string>> rows = {
        split("genkey des -o -"),
        {"random", "16"},
        {"encrypt", "-k", folder.path("key"), QEL_TOOL},
        {"wrap", "-t", folder.path("key"), QEL_TOOL},
        {"unwrap", "-k", folder.path("key"), "-o", "-", QEL_TOOL},
    };
    for (const auto &words : rows) {
        const Ran ran = at_terminal(words);
        EXPECT_EQ(ran.exit, 2) << words[0];
        EXPECT_TRUE(holds(ran.out, "standard output is a terminal")) << ran.out;
    }
    const Ran by_name = at_terminal(split("genkey des -o /dev/tty"));
    EXPECT_EQ(by_name.exit, 7);
    EXPECT_TRUE(holds(by_name.out, "secrets are not printed")) << by_name.out;
    EXPECT_EQ(at_terminal({"random", "2", "--hex"}).out.size(), 6U);
}

TEST(Random, ThereAreAsManyBytesAsWereAskedFor) {
    const TemporaryFolder folder;
    for (const std::size_t count : {1U, 32768U, 32769U, 65535U, 65536U, 200001U}) {
        const std::string text = std::to_string(count), file = folder.path(text);
        EXPECT_EQ(qel({"random", text, "-o", file}).exit, 0);
        const Bytes bytes = read_file(file);
        EXPECT_EQ(bytes.size(), count);
        EXPECT_EQ(mode_of(file), 0600U);
        const std::string digits = qel({"random", text, "--hex"}).out;
        EXPECT_EQ(digits.size(), 2 * count + 1);
        EXPECT_EQ(std::count(digits.begin(), digits.end(), '\n'), 1);
        if (count < 1000)
            continue;
        // All values occur about as often as they should, to 6 standard deviations.
        std::vector<double> seen(256);
        for (const uint8_t byte : bytes)
            ++seen[byte];
        const double mean = static_cast<double>(count) / 256;
        for (const double times : seen)
            EXPECT_NEAR(times, mean, 6 * std::sqrt(mean)) << count;
        EXPECT_EQ(std::search(bytes.begin() + 16, bytes.end(), bytes.begin(), bytes.begin() + 16),
                  bytes.end());
    }
    EXPECT_EQ(qel({"random", "3", "--json"}).json()["hex"].get<std::string>().size(), 6U);
    for (const char *bad : {"0", "-1", "1x", "99999999999999999999"})
        EXPECT_EQ(qel({"random", "--", bad}).exit, 2) << bad;
}

// ---- Key agreement -----------------------------------------------------------------------------

class Dh : public SharedFolder {
protected:
    static void SetUpTestSuite() {
        oracle("dhparam -out $group.pem 512");
        oracle("dhparam -in $group.pem -outform DER -out $group");
        oracle("genpkey -paramfile $group.pem -out $their.pem");
        oracle("pkey -in $their.pem -pubout -out $their.pub");
        const Ran ran = start("group.pem", "our");
        EXPECT_EQ(ran.exit, 0) << ran.err;
        EXPECT_EQ(ran.err, "");
    }
    static Ran start(const std::string &group, const std::string &side,
                     const std::string &more = "") {
        return run("dh start --parameters $" + group + " --seed-out $" + side +
                   ".seed --public-out $" + side + ".pub " + more);
    }
    static Ran finish(const std::string &group, const std::string &seed, const std::string &peer) {
        unlink(path("secret").c_str());
        return run("dh finish --parameters $" + group + " --seed $" + seed + " --peer $" + peer +
                   " --out $secret");
    }
};

TEST_F(Dh, SecretsAreTheOracles) {
    oracle("pkeyutl -derive -inkey $their.pem -peerkey $our.pub -keyform PEM -peerform DER "
           "-pkeyopt dh_pad:1 -out $theirs");
    const Bytes theirs = contents("theirs");
    ASSERT_EQ(theirs.size(), 64U);
    for (const char *group : {"group.pem", "group"}) {
        const Ran ran = finish(group, "our.seed", "their.pub");
        EXPECT_EQ(ran.exit, 0) << ran.err;
        EXPECT_EQ(ran.out + ran.err, "");
        EXPECT_EQ(to_hex(contents("secret")), to_hex(theirs));
        EXPECT_EQ(mode_of(path("secret")), 0600U);
    }
    EXPECT_EQ(mode_of(path("our.seed")), 0600U);
    EXPECT_EQ(start("group.pem", "our").exit, 7) << "the seed is there";
}

TEST_F(Dh, TwoOfOurOwnAgreeThroughEitherForm) {
    EXPECT_EQ(start("group", "a", "--raw").exit, 0);
    EXPECT_EQ(start("group", "b").exit, 0);
    EXPECT_EQ(contents("a.pub").size(), 64U);
    EXPECT_NE(contents("a.seed"), contents("b.seed"));
    EXPECT_EQ(finish("group", "a.seed", "b.pub").exit, 0);
    const Bytes secret = contents("secret");
    EXPECT_EQ(finish("group", "b.seed", "a.pub").exit, 0);
    EXPECT_EQ(contents("secret"), secret);
    EXPECT_EQ(finish("group", "a.seed", "our.pub").exit, 0);
    EXPECT_NE(contents("secret"), secret);
}

TEST_F(Dh, WhatDoesNotFitIsRefused) {
    Bytes prime = contents("group"); // 30 len, 02 41 00, the prime
    ASSERT_EQ(to_hex(prime.data() + 2, 3), "024100");
    prime = Bytes(prime.begin() + 5, prime.begin() + 69);
    Bytes less = prime;
    less.back() ^= 1;
    write_file(path("p-1"), less);
    write_file(path("p"), prime);
    write_file(path("0"), Bytes(64, 0));
    write_file(path("1"), from_hex(std::string(126, '0') + "01"));
    write_file(path("63"), Bytes(63, 1));
    write_file(path("65"), Bytes(65, 1));
    write_file(path("short.seed"), Bytes(10, 1));
    chmod(path("short.seed").c_str(), 0600);
    oracle("dhparam -out $other 512");
    oracle("genpkey -paramfile $other -out $other.pem");
    oracle("pkey -in $other.pem -pubout -out $other.pub");
    oracle("dhparam -dsaparam -out $x9.42 512");
    write_file(path("long"), from_hex("308187 028181 00 " + to_hex(Bytes(128, 0xff)) + "020102"));
    oracle("genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:512 -out $rsa.pem");
    oracle("pkey -in $rsa.pem -pubout -out $rsa.pub");
    const struct {
        const char *reason;
        const char *group, *seed, *peer;
        const char *told;
    } rows[] = {
        {"public value 0", "group", "our.seed", "0", "status 49 QEL_ERR_DH_PHASE2"},
        {"public value 1", "group", "our.seed", "1", "status 49"},
        {"public value p-1", "group", "our.seed", "p-1", "status 49"},
        {"public value p", "group", "our.seed", "p", "status 49"},
        {"public value too long", "group", "our.seed", "65", "not the 64 of the prime"},
        {"public value too short", "group", "our.seed", "63", "has 63 bytes"},
        {"public value of another group", "group", "our.seed", "other.pub", "other parameters"},
        {"public key of RSA", "group", "our.seed", "rsa.pub", "rsaEncryption"},
        {"seed of another size", "group", "short.seed", "their.pub", "it has 10 bytes"},
        {"prime too long", "long", "our.seed", "their.pub", "1024 bits"},
        {"parameters of X9.42", "x9.42", "our.seed", "their.pub", "no DHParameter"},
        {"no parameters at all", "their.pub", "our.seed", "their.pub", "no DHParameter"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        const Ran ran = finish(row.group, row.seed, row.peer);
        EXPECT_EQ(ran.exit, 3) << ran.err;
        EXPECT_TRUE(holds(ran.err, row.told)) << ran.err;
        EXPECT_FALSE(exists("secret"));
    }
    write_file(path("even"), patched(contents("group"), prime, less));
    const Ran even = start("even", "even");
    EXPECT_EQ(even.exit, 3);
    EXPECT_TRUE(holds(even.err, "status 48 QEL_ERR_DH_PHASE1")) << even.err;
    EXPECT_FALSE(exists("even.seed"));
    EXPECT_EQ(run("dh start -p $group -s $new.seed -o $").exit, 7);
    EXPECT_FALSE(exists("new.seed")) << "a seed without its public value";
}

} // namespace
