// qel encrypt, decrypt, wrap and unwrap, with OpenSSL's command line as the oracle both ways.
#include "tools/run.h"

#include <sys/stat.h>

namespace {

Bytes joined(Bytes a, const Bytes &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

struct CipherCase {
    const char *name;
    const char *oracle; // what OpenSSL calls it
};

const CipherCase ciphers[] = {
    {"des", "-des-cbc"},
    {"rc2", "-rc2-40-cbc"},
    {"rc4", "-rc4-40"},
};
const char *const iv = "a1a2a3a4a5a6a7a8";

class Encrypt : public SharedFolder {
protected:
    static void SetUpTestSuite() {
        for (const char *name : {"alice", "bob", "eve"})
            make_person(name, "1024");
        make_person("short", "512");
        const time_t made = time(nullptr); // from the next second on the certificates are valid
        while (time(nullptr) == made)
            usleep(20000);
        key_file("des.key", "010203040506070f");
        key_file("rc2.key", "0102030405");
        key_file("rc4.key", "f1f2f3f4f5");
        write_file(path("data"), sample(1000));
    }
    static void make_person(const std::string &name, const char *bits) {
        const std::string key = path(name + ".pem");
        openssl({"genpkey", "-algorithm", "RSA", "-pkeyopt", std::string("rsa_keygen_bits:") + bits,
                 "-out", key});
        openssl({"req", "-x509", "-md5", "-key", key, "-subj", "/O=Acme/CN=" + name, "-out",
                 path(name + ".cert")});
        openssl({"pkey", "-in", key, "-pubout", "-out", path(name + ".pub")});
        chmod(key.c_str(), 0600);
    }
    static void key_file(const char *name, const char *digits) {
        write_file(path(name), from_hex(digits));
        chmod(path(name).c_str(), 0600);
    }
    static Bytes key_of(const CipherCase &cipher) {
        return contents(std::string(cipher.name) + ".key");
    }

    // Runs the command with the words; $name stands for the file of that name in the folder.
    static std::vector<std::string> expanded(std::vector<std::string> words) {
        for (std::string &word : words)
            if (word[0] == '$')
                word = path(word.substr(1));
        return words;
    }
    static Ran run(std::vector<std::string> words, const How &how = {}) {
        return qel(expanded(std::move(words)), how);
    }
    static void succeeds(std::vector<std::string> words, const How &how = {}) {
        const Ran ran = run(std::move(words), how);
        EXPECT_EQ(ran.exit, 0) << ran.err;
        EXPECT_EQ(ran.err, "");
    }
    // The same with a pipe as standard input, which has no size beforehand.
    static Ran piped(const std::string &file, std::vector<std::string> words) {
        words = expanded(std::move(words));
        words.insert(words.begin(), {"bash", "-c", "cat \"$0\" | \"$@\"", path(file), QEL_TOOL});
        return run_program(words);
    }
    static void oracle(std::vector<std::string> words) {
        words = expanded(std::move(words));
        words.insert(words.end(), {"-provider", "legacy", "-provider", "default"});
        openssl(words);
    }
    // An output that is there already keeps its contents when the command fails.
    static void fails(const char *reason, std::vector<std::string> words, int exit,
                      const std::string &told) {
        SCOPED_TRACE(reason);
        write_file(path("kept"), bytes_of("kept"));
        words.insert(words.end(), {"-o", "$kept"});
        const Ran ran = run(words);
        EXPECT_EQ(ran.exit, exit) << ran.err;
        EXPECT_TRUE(holds(ran.err, told)) << ran.err;
        EXPECT_EQ(text_of(contents("kept")), "kept");
        const Ran listed = run_program({"find", path(""), "-name", "kept.*"});
        EXPECT_EQ(listed.out, "") << "a temporary file is left";
    }
};

TEST_F(Encrypt, ContainersAreTheOraclesWhateverTheSize) {
    for (const CipherCase &cipher : ciphers) {
        const std::string key = "$" + std::string(cipher.name) + ".key";
        const std::string digits = to_hex(key_of(cipher));
        for (const std::size_t size : {0U, 1U, 8U, 63U, 64U, 65U, 65536U, 1U << 20}) {
            SCOPED_TRACE(cipher.name + (" " + std::to_string(size)));
            const Bytes data = sample(size);
            write_file(path("sized"), data);
            succeeds({"encrypt", "-k", key, "-a", cipher.name, "-o", "$ours", "$sized"});
            const Ran pipe = piped("sized", {"encrypt", "-k", key, "-a", cipher.name, "-"});
            EXPECT_EQ(pipe.exit, 0) << pipe.err;
            write_file(path("indefinite"), bytes_of(pipe.out));
            oracle({"cms", "-EncryptedData_encrypt", "-binary", "-outform", "DER", cipher.oracle,
                    "-secretkey", digits, "-in", "$sized", "-out", "$theirs"});
            for (const char *file : {"ours", "indefinite"}) {
                oracle({"cms", "-EncryptedData_decrypt", "-binary", "-inform", "DER", "-secretkey",
                        digits, "-in", path(file), "-out", "$opened"});
                EXPECT_EQ(contents("opened"), data) << file;
            }
            for (const char *file : {"ours", "indefinite", "theirs"}) {
                succeeds({"decrypt", "-k", key, "-o", "$opened", path(file)});
                EXPECT_EQ(contents("opened"), data) << file;
                EXPECT_EQ(piped(file, {"decrypt", "-k", key}).out, text_of(data)) << file;
            }
        }
    }
}

TEST_F(Encrypt, KnownSizesAreDerAndPipesAreIndefinite) {
    succeeds(split("encrypt -k $des.key --iv a1a2a3a4a5a6a7a8 -o $der $data"));
    const Ran listed = openssl({"asn1parse", "-inform", "DER", "-in", path("der")});
    EXPECT_FALSE(holds(listed.out, "l=inf"));
    succeeds(split("encrypt -k $des.key --iv a1a2a3a4a5a6a7a8 -o $redirected"),
             {.input = contents("data")});
    EXPECT_EQ(contents("redirected"), contents("der"));
    const Ran pipe = piped("data", split("encrypt -k $des.key --iv a1a2a3a4a5a6a7a8"));
    EXPECT_EQ(to_hex(bytes_of(pipe.out.substr(0, 2))), "3080");
}

TEST_F(Encrypt, EnvelopesOpenForEveryRecipientAndNobodyElse) {
    for (const CipherCase &cipher : ciphers) {
        SCOPED_TRACE(cipher.name);
        const std::vector<std::string> words = {"encrypt",     "-a",          cipher.name,
                                                "-t",          "$short.cert", "-t",
                                                "$alice.cert", "-t",          "$bob.pub"};
        auto to_file = words;
        to_file.insert(to_file.end(), {"-o", "$ours", "$data"});
        succeeds(to_file);
        write_file(path("indefinite"), bytes_of(piped("data", words).out));
        for (const char *file : {"ours", "indefinite"}) {
            SCOPED_TRACE(file);
            oracle({"smime", "-decrypt", "-binary", "-inform", "DER", "-in", path(file), "-inkey",
                    "$alice.pem", "-recip", "$alice.cert", "-out", "$opened"});
            EXPECT_EQ(contents("opened"), contents("data"));
            oracle({"cms", "-decrypt", "-binary", "-inform", "DER", "-in", path(file), "-inkey",
                    "$bob.pem", "-out", "$opened"});
            EXPECT_EQ(contents("opened"), contents("data"));
            for (const char *name : {"alice", "bob", "short"})
                succeeds({"decrypt", "-k", path(name + std::string(".pem")), "-o", "$opened",
                          path(file)});
            succeeds(
                {"decrypt", "-k", "$alice.pem", "-c", "$alice.cert", "-o", "$opened", path(file)});
            EXPECT_EQ(contents("opened"), contents("data"));
            fails("a key of the same size", {"decrypt", "-k", "$eve.pem", path(file)}, 3,
                  "status 46");
            fails("the certificate of no recipient",
                  {"decrypt", "-k", "$eve.pem", "-c", "$eve.cert", path(file)}, 4, "for others");
        }
    }
    succeeds(split("encrypt -t $short.cert -o $ours $data"));
    fails("a key of another size", split("decrypt -k $eve.pem $ours"), 4, "size");
}

TEST_F(Encrypt, EnvelopesOfTheOracleOpen) {
    const struct {
        const char *reason;
        std::vector<std::string> words;
    } rows[] = {
        {"DER", {"smime", "-outform", "DER"}},
        {"armour", {"smime", "-outform", "PEM"}},
        {"indefinite lengths", split("cms -outform DER -stream")},
        {"armour around indefinite lengths", split("cms -outform PEM -stream")},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        auto words = row.words;
        words.insert(words.end(),
                     {"-encrypt", "-binary", "-rc2-40", "-in", "$data", "-out", "$theirs"});
        words = expanded(words);
        words.insert(words.end(), {"-provider", "legacy", "-provider", "default"});
        words.insert(words.end(), {path("bob.cert"), path("alice.cert")});
        openssl(words);
        for (const char *name : {"alice", "bob"}) {
            succeeds({"decrypt", "-k", path(name + std::string(".pem")), "-c",
                      path(name + std::string(".cert")), "-o", "$opened", "$theirs"});
            EXPECT_EQ(contents("opened"), contents("data"));
        }
        EXPECT_EQ(piped("theirs", split("decrypt -k $alice.pem")).out, text_of(contents("data")));
    }
}

TEST_F(Encrypt, BareCiphertextIsTheOracles) {
    write_file(path("hex.key"), bytes_of("0102 0304 05\n"));
    chmod(path("hex.key").c_str(), 0600);
    for (const CipherCase &cipher : ciphers) {
        const bool block = std::string(cipher.name) != "rc4";
        const std::string key = "$" + std::string(cipher.name) + ".key";
        for (const std::size_t size : {0U, 1U, 8U, 1000U, 200000U}) {
            SCOPED_TRACE(cipher.name + (" " + std::to_string(size)));
            const Bytes data = sample(size);
            write_file(path("sized"), data);
            std::vector<std::string> theirs = {"enc", cipher.oracle, "-K",   to_hex(key_of(cipher)),
                                               "-in", "$sized",      "-out", "$theirs"};
            std::vector<std::string> ours = {"encrypt", "--raw", "-a",    cipher.name, "-k",
                                             key,       "-o",    "$ours", "$sized"};
            if (block) {
                theirs.insert(theirs.end(), {"-iv", iv});
                ours.insert(ours.end(), {"--iv", iv});
            }
            oracle(theirs);
            succeeds(ours);
            EXPECT_EQ(contents("ours"), contents("theirs"));
            ours.front() = "decrypt";
            *(ours.end() - (block ? 3 : 1)) = "$theirs";
            succeeds(ours);
            EXPECT_EQ(contents("ours"), data);
        }
    }
    succeeds(split("encrypt --raw -a rc2 -k $rc2.key --iv a1a2a3a4a5a6a7a8 -o $a $data"));
    succeeds(split("encrypt --raw -a rc2 -k $hex.key --key-hex --iv a1a2a3a4a5a6a7a8 -o $b $data"));
    EXPECT_EQ(contents("a"), contents("b"));
    write_file(path("rc2.par"), from_hex("300e 020200a0 0408 a1a2a3a4a5a6a7a8"));
    succeeds(split("encrypt --raw -a rc2 -k $rc2.key -p $rc2.par -o $b $data"));
    EXPECT_EQ(contents("a"), contents("b"));
}

TEST_F(Encrypt, WhatCannotBeDecryptedLeavesTheOutputAlone) {
    succeeds(split("encrypt -k $des.key --iv a1a2a3a4a5a6a7a8 -o $good $data"));
    const Bytes good = contents("good");
    Bytes flipped = good;
    flipped[flipped.size() - 9] ^= 0x80; // what stands before the last block changes the padding
    write_file(path("flipped"), flipped);
    write_file(path("longer"), joined(good, {0}));
    write_file(path("cut"), Bytes(good.begin(), good.end() - 8));
    write_file(path("text"), bytes_of("no container\n"));
    write_file(path("nothing"), {});
    key_file("wrong.key", "010203040506070b"); // that it ends in bad padding is seen here
    key_file("seven.key", "01020304050607");
    oracle(split("cms -EncryptedData_encrypt -binary -outform DER -aes128 -secretkey "
                 "000102030405060708090a0b0c0d0e0f -in $data -out $aes"));
    const struct {
        const char *reason;
        std::vector<std::string> words;
        int exit;
        const char *told;
    } rows[] = {
        {"wrong key", split("-k $wrong.key $good"), 3, "status 14 QEL_ERR_DECRYPT"},
        {"changed ciphertext", split("-k $des.key $flipped"), 3, "status 14"},
        {"a byte behind the end", split("-k $des.key $longer"), 3, "something follows"},
        {"cut", split("-k $des.key $cut"), 3, "is cut after"},
        {"neither BER nor armour", split("-k $des.key $text"), 3, "neither BER nor armour"},
        {"empty file", split("-k $des.key $nothing"), 3, "cut after 0 bytes"},
        {"another type of PKCS#7's family", split("-k $des.key $alice.cert"), 3, "status 10"},
        {"key of another size", split("-k $seven.key $good"), 3, "it has 7 bytes"},
        {"key that is no hexadecimal", split("-k $data --key-hex $good"), 3, "hexadecimal"},
        {"empty key", split("-k $nothing $good"), 3, "empty"},
        {"algorithm of another time", split("-k $des.key $aes"), 3, "2.16.840.1.101.3.4.1.2"},
        {"no such input", split("-k $des.key $absent"), 3, "No such file"},
        {"no such key", split("-k $absent $good"), 3, "No such file"},
        {"bare ciphertext that is no whole block",
         split("--raw -a des --iv a1a2a3a4a5a6a7a8 -k $des.key $seven.key"), 3, "status 14"},
        {"no ciphertext at all", split("--raw -a des --iv a1a2a3a4a5a6a7a8 -k $des.key $nothing"),
         3, "status 14"},
        {"parameters of another cipher", split("--raw -a rc2 -p $des.key -k $rc2.key $good"), 3,
         "parameters"},
    };
    for (const auto &row : rows) {
        auto words = row.words;
        words.insert(words.begin(), "decrypt");
        fails(row.reason, words, row.exit, row.told);
    }
}

TEST_F(Encrypt, EverySpoiledContainerIsRefusedOrHarmless) {
    write_file(path("one"), {0x61});
    const std::vector<std::string> words = split("encrypt -k $des.key --iv a1a2a3a4a5a6a7a8");
    const auto try_one = [&](const Bytes &spoiled, bool cut, const std::string &what) {
        SCOPED_TRACE(what);
        write_file(path("spoiled"), spoiled);
        unlink(path("made").c_str());
        const Ran ran = run(split("decrypt -k $des.key -o $made $spoiled"));
        EXPECT_EQ(access(path("made").c_str(), F_OK) == 0, ran.exit == 0);
        EXPECT_TRUE(ran.exit == 3 || (!cut && (ran.exit == 0 || ran.exit == 4))) << ran.err;
    };
    const Bytes definite = bytes_of(run(words, {.input = contents("one")}).out);
    ASSERT_GT(definite.size(), 50U);
    each_spoiled(definite, [&](const Bytes &spoiled, const std::string &what) {
        try_one(spoiled, spoiled.size() < definite.size(), what);
    });
    const Bytes indefinite = bytes_of(piped("one", words).out);
    ASSERT_GT(indefinite.size(), definite.size());
    for (std::size_t size = 0; size < indefinite.size(); ++size)
        try_one(Bytes(indefinite.begin(), indefinite.begin() + static_cast<long>(size)), true,
                "indefinite lengths, cut to " + std::to_string(size));
}

TEST_F(Encrypt, RefusalsOfTheExportPolicyNameTheRule) {
    const Bytes plain = sample(65536);
    write_file(path("plain"), plain);
    succeeds(split("encrypt --raw -k $des.key --iv a1a2a3a4a5a6a7a8 -o $once $plain"));
    const Bytes once = contents("once");
    write_file(path("again"), joined(plain, Bytes(once.begin(), once.begin() + 65)));
    key_file("odd1.key", "0110010101010101");
    key_file("odd7.key", "ffffffffffffffff");
    key_file("six.key", "010203040506");
    oracle(split("cms -EncryptedData_encrypt -binary -outform DER -des3 -secretkey "
                 "0102030405060708090a0b0c0d0e0f101112131415161718 -in $data -out $triple"));
    key_file("triple.key", "0102030405060708090a0b0c0d0e0f101112131415161718");
    const struct {
        const char *reason;
        std::vector<std::string> words;
        const char *told;
    } rows[] = {
        {"DES byte 1", split("encrypt -k $odd1.key $data"), "position 1 is above 0F"},
        {"DES, all ones", split("encrypt -k $odd7.key $data"), "position 1 is above 0F"},
        {"long RC2 key", split("encrypt -a rc2 -k $six.key $data"), "has 6 bytes; RC2"},
        {"long RC4 key", split("encrypt -a rc4 -k $six.key $data"), "has 6 bytes; RC4"},
        {"effective bits", split("encrypt -a rc2 --effective-bits 41 -k $rc2.key $data"),
         "have 41 effective key bits"},
        {"effective bits of what is read",
         split("decrypt --raw -a rc2 --effective-bits 64 --iv a1a2a3a4a5a6a7a8 -k $rc2.key $data"),
         "have 64 effective key bits"},
        {"effective bits of a session key",
         split("encrypt -a rc2 --effective-bits 64 -t $alice.pub $data"), "effective key bits"},
        {"triple DES", split("decrypt -k $triple.key $triple"), "triple DES"},
        {"the last output again", split("encrypt --raw -k $des.key --iv a1a2a3a4a5a6a7a8 $again"),
         "status 50 QEL_ERR_DOUBLE_ENCRYPT"},
    };
    for (const auto &row : rows)
        fails(row.reason, row.words, 9, row.told);
    const Json error = run(split("encrypt --json -k $odd1.key -o $kept $data")).json()["error"];
    EXPECT_EQ(error["status"]["number"], 53);
    EXPECT_TRUE(holds(error["next_step"], "qel genkey des"));
}

TEST_F(Encrypt, WhatIsWrittenIsForItsOwner) {
    write_file(path("plain"), sample(10));
    const mode_t mask = umask(0);
    succeeds(split("encrypt -k $des.key -o $secret.p7 $plain"));
    succeeds(split("decrypt -k $des.key -o $private.out $secret.p7"));
    umask(mask);
    struct stat about;
    ASSERT_EQ(stat(path("private.out").c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 0777, 0600U);
    ASSERT_EQ(stat(path("secret.p7").c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 0777, 0666U);
    chmod(path("private.out").c_str(), 0644); // a file that is there keeps the mode it was given
    succeeds(split("decrypt -k $des.key -o $private.out $secret.p7"));
    ASSERT_EQ(stat(path("private.out").c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 0777, 0644U);

    for (const auto &[mode, warned] : {std::pair(0600, false), {0640, true}, {0604, true}}) {
        write_file(path("read.key"), contents("des.key"));
        chmod(path("read.key").c_str(), static_cast<mode_t>(mode));
        const Ran ran = run(split("encrypt -k $read.key -o $secret.p7 $plain"));
        EXPECT_EQ(ran.exit, 0);
        EXPECT_EQ(holds(ran.err, "open to others"), warned) << ran.err;
    }
    const Bytes key = contents("alice.pem");
    EXPECT_EQ(run(split("encrypt -k $des.key -o $alice.pem $plain")).exit, 7);
    EXPECT_EQ(contents("alice.pem"), key);
}

TEST_F(Encrypt, NothingHalfMadeIsLeftWhenASignalEndsIt) {
    for (const char *signal : {"TERM", "INT", "HUP"}) {
        SCOPED_TRACE(signal);
        // The command waits for the rest of its input while the signal comes.
        const std::string script =
            "trap - INT; exec 3< <(head -c 100000 /dev/zero; sleep 2); "
            "env --default-signal=INT \"$0\" encrypt -k \"$1\" -o \"$2\" <&3 & "
            "for i in {1..500}; do ls \"$2\".* >/dev/null 2>&1 && break; sleep 0.02; done; "
            "kill -$3 $!; wait $!; echo $?; ls \"$2\"*";
        const Ran ran =
            run_program({"bash", "-c", script, QEL_TOOL, path("des.key"), path("half"), signal});
        EXPECT_EQ(ran.out, signal == std::string("TERM")  ? "143\n"
                           : signal == std::string("INT") ? "130\n"
                                                          : "129\n")
            << ran.err;
    }
}

TEST_F(Encrypt, JsonTellsWhatWasDone) {
    const Json made =
        run(split("encrypt --json -a rc2 -t $alice.cert -t $bob.pub -o $ours $data")).json();
    EXPECT_EQ(made["container"], "EnvelopedData");
    EXPECT_EQ(made["algorithm"]["name"], "RC2-CBC");
    EXPECT_EQ(made["algorithm"]["effective_bits"], 40);
    EXPECT_EQ(made["bytes_in"], 1000);
    EXPECT_EQ(made["bytes_out"], contents("ours").size());
    ASSERT_EQ(made["recipients"].size(), 2U);
    EXPECT_EQ(made["recipients"][0]["subject"], "CN=alice, O=Acme");
    EXPECT_TRUE(made["recipients"][1]["subject"].is_null());
    const Json opened = run(split("decrypt --json -k $bob.pem -o $opened $ours")).json();
    EXPECT_EQ(opened["bytes_out"], 1000);
    EXPECT_EQ(opened["algorithm"], made["algorithm"]);
}

TEST_F(Encrypt, KeyPackagesAreRecipients) {
    for (const auto &[name, text] : {std::pair("phrase", "a phrase"), {"wrong", "another"}}) {
        write_file(path(name), bytes_of(text));
        chmod(path(name).c_str(), 0600);
    }
    const std::string right = "file:" + path("phrase"), wrong = "file:" + path("wrong");
    for (const char *usage : {"decrypt", "sign"}) {
        const Ran made =
            run({"keygen", "--owner", "CN=Carol", "--usage", usage, "--iterations", "1000",
                 "--passin", right, "-o", path(usage + std::string(".KEYPKG"))});
        ASSERT_EQ(made.exit, 0) << made.err;
    }
    const auto piped_to = [](const char *package, const char *output) { // read once
        return run_program({"bash", "-c", "\"$0\" encrypt -t <(cat \"$1\") -o \"$2\" \"$3\"",
                            QEL_TOOL, path(package), path(output), path("data")});
    };
    EXPECT_EQ(piped_to("decrypt.KEYPKG", "ours").exit, 0);
    EXPECT_EQ(piped_to("bob.cert", "absent").exit, 0);
    unlink(path("absent").c_str());
    fails("a recipient that could not decrypt", split("encrypt -t $sign.KEYPKG $data"), 9,
          "usage of its key is sign");
    const std::vector<std::string> words = split("decrypt --batch -k $decrypt.KEYPKG");
    auto opens = words;
    opens.insert(opens.end(), {"--passin", right, "-o", "$opened", "$ours"});
    succeeds(opens);
    EXPECT_EQ(contents("opened"), contents("data"));
    succeeds(split("wrap -t $decrypt.KEYPKG -o $wrapped $des.key"));
    succeeds({"unwrap", "-k", "$decrypt.KEYPKG", "--passin", right, "--force", "-o", "$session",
              "$wrapped"});
    EXPECT_EQ(contents("session"), contents("des.key"));

    Bytes damaged = contents("decrypt.KEYPKG");
    damaged[damaged.size() / 2] ^= 1;
    write_file(path("damaged"), damaged);
    auto refused = words;
    refused.push_back("$ours");
    fails("a prompt that is forbidden", refused, 2, "--batch");
    refused.insert(refused.end(), {"--passin", wrong});
    fails("a wrong pass phrase", refused, 6, "pass phrase is wrong");
    fails("a key for signatures", {"decrypt", "-k", "$sign.KEYPKG", "--passin", right, "$ours"}, 9,
          "its usage is sign");
    EXPECT_NE(run(split("encrypt -t $damaged -o $absent $data")).exit, 0);
    EXPECT_NE(access(path("absent").c_str(), F_OK), 0);
}

TEST_F(Encrypt, LargeFilesTakeLittleMemory) {
    write_file(path("large"), bytes_of("a beginning"));
    ASSERT_EQ(truncate(path("large").c_str(), 100L << 20), 0);
    const Ran there = run(split("encrypt -k $des.key -o $large.p7 $large"));
    EXPECT_EQ(there.exit, 0) << there.err;
    const Ran back = run(split("decrypt -k $des.key -o $large.out $large.p7"));
    EXPECT_EQ(back.exit, 0) << back.err;
    EXPECT_EQ(run_program({"cmp", path("large"), path("large.out")}).exit, 0);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(there.peak_kib, 32 << 10);
    EXPECT_LT(back.peak_kib, 32 << 10);
#endif
    for (const char *name : {"large", "large.p7", "large.out"})
        unlink(path(name).c_str());
}

// ---- wrap, unwrap ------------------------------------------------------------------------------

TEST_F(Encrypt, WrappedKeysAreTheOracles) {
    for (const char *recipient : {"alice", "short"}) {
        const std::string name = recipient;
        for (const char *form : {".pub", ".cert"}) {
            SCOPED_TRACE(name + form);
            succeeds({"wrap", "-t", path(name + form), "-o", "$wrapped", "$des.key"});
            oracle({"pkeyutl", "-decrypt", "-inkey", path(name + ".pem"), "-in", "$wrapped", "-out",
                    "$opened"});
            EXPECT_EQ(contents("opened"), contents("des.key"));
        }
        oracle({"pkeyutl", "-encrypt", "-pubin", "-inkey", path(name + ".pub"), "-in", "$des.key",
                "-out", "$theirs"});
        for (const char *wrapped : {"wrapped", "theirs"}) {
            unlink(path("session").c_str());
            succeeds({"unwrap", "-k", path(name + ".pem"), "-o", "$session", path(wrapped)});
            EXPECT_EQ(contents("session"), contents("des.key"));
        }
    }
    succeeds(split("unwrap -k $short.pem --hex -o $session.hex $wrapped"));
    EXPECT_EQ(text_of(contents("session.hex")), to_hex(contents("des.key")) + "\n");
}

TEST_F(Encrypt, KeysThatCannotBeWrappedOrUnwrappedTellWhy) {
    succeeds(split("wrap -t $alice.pub -o $wrapped $des.key"));
    Bytes spoiled = contents("wrapped");
    spoiled[100] ^= 4;
    write_file(path("spoiled"), spoiled);
    spoiled.pop_back();
    write_file(path("cut"), spoiled);
    write_file(path("117"), sample(117));
    write_file(path("118"), sample(118));
    openssl({"genpkey", "-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256", "-out",
             path("ec.pem")});
    openssl({"pkey", "-in", path("ec.pem"), "-pubout", "-out", path("ec.pub")});
    openssl({"genpkey", "-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:4104", "-out",
             path("long.pem")});
    for (const char *name : {"117", "118", "ec.pem", "long.pem"})
        chmod(path(name).c_str(), 0600);
    succeeds(split("wrap -t $alice.pub -o $full $117"));
    const struct {
        const char *reason;
        std::vector<std::string> words;
        int exit;
        const char *told;
    } rows[] = {
        {"a bit", split("unwrap -k $alice.pem $spoiled"), 3, "status 46 QEL_ERR_UNWRAP"},
        {"another key", split("unwrap -k $eve.pem $wrapped"), 3, "status 46"},
        {"a byte too few", split("unwrap -k $alice.pem $cut"), 3, "has 127 bytes"},
        {"a modulus beyond 512 bytes", split("unwrap -k $long.pem $wrapped"), 9,
         "modulus has 513 bytes"},
        {"no RSA key", split("wrap -t $ec.pub $des.key"), 3, "status 47"},
        {"no RSA private key", split("unwrap -k $ec.pem $wrapped"), 3, "private key"},
        {"a byte too much for the modulus", split("wrap -t $alice.pub $118"), 3,
         "has 118 bytes, and a modulus of 128 has room for 117"},
    };
    for (const auto &row : rows) {
        auto words = row.words;
        if (words[0] == "unwrap")
            words.push_back("--force"); // or the output that is there would be the reason
        fails(row.reason, words, row.exit, row.told);
    }
}

} // namespace
