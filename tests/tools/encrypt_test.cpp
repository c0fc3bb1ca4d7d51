// qel encrypt, decrypt, wrap and unwrap, with OpenSSL's command line as the oracle both ways.
#include "tools/run.h"

#include <sys/stat.h>

namespace {

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
    static void make_person(const std::string &name, const std::string &bits) {
        const std::string key = "$" + name + ".pem";
        openssl(
            words_of("genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:" + bits + " -out " + key));
        openssl(words_of("req -x509 -md5 -key " + key + " -subj /O=Acme/CN=" + name + " -out $" +
                         name + ".cert"));
        openssl(words_of("pkey -in " + key + " -pubout -out $" + name + ".pub"));
        chmod(path(name + ".pem").c_str(), 0600);
    }
    static void key_file(const char *name, const char *digits) {
        write_file(path(name), from_hex(digits));
        chmod(path(name).c_str(), 0600);
    }
    static Bytes key_of(const CipherCase &cipher) {
        return contents(std::string(cipher.name) + ".key");
    }

    static void succeeds(const std::string &line, const How &how = {}) {
        const Ran ran = run(line, how);
        EXPECT_EQ(ran.exit, 0) << line << ran.err;
        EXPECT_EQ(ran.err, "");
    }
    // The same with a pipe as standard input, which has no size beforehand.
    static Ran piped(const std::string &file, const std::string &line) {
        std::vector<std::string> words = words_of(line);
        words.insert(words.begin(), {"bash", "-c", "cat \"$0\" | \"$@\"", path(file), QEL_TOOL});
        return run_program(words);
    }
    static void oracle(const std::string &line, const std::string &more = "") {
        openssl(words_of(line + " -provider legacy -provider default " + more));
    }
    // An output that is there already keeps its contents when the command fails.
    static void fails(const char *reason, const std::string &line, int exit,
                      const std::string &told) {
        SCOPED_TRACE(reason);
        write_file(path("kept"), bytes_of("kept"));
        const Ran ran = run(line + " -o $kept");
        EXPECT_EQ(ran.exit, exit) << ran.err;
        EXPECT_TRUE(holds(ran.err, told)) << ran.err;
        EXPECT_EQ(text("kept"), "kept");
        const Ran listed = run_program({"find", path(""), "-name", "kept.*"});
        EXPECT_EQ(listed.out, "") << "a temporary file is left";
    }
};

TEST_F(Encrypt, ContainersAreTheOraclesWhateverTheSize) {
    for (const CipherCase &cipher : ciphers) {
        const std::string key = "$" + std::string(cipher.name) + ".key";
        const std::string how = " -k " + key + " -a " + cipher.name;
        const std::string digits = to_hex(key_of(cipher));
        for (const std::size_t size : {0U, 1U, 8U, 63U, 64U, 65U, 65536U, 1U << 20}) {
            SCOPED_TRACE(cipher.name + (" " + std::to_string(size)));
            const Bytes data = sample(size);
            write_file(path("sized"), data);
            succeeds("encrypt" + how + " -o $ours $sized");
            const Ran pipe = piped("sized", "encrypt" + how + " -");
            EXPECT_EQ(pipe.exit, 0) << pipe.err;
            write_file(path("indefinite"), bytes_of(pipe.out));
            oracle("cms -EncryptedData_encrypt -binary -outform DER -in $sized -out $theirs "
                   "-secretkey " +
                   digits + " " + cipher.oracle);
            for (const std::string file : {"ours", "indefinite"}) {
                oracle("cms -EncryptedData_decrypt -binary -inform DER -out $opened -secretkey " +
                       digits + " -in $" + file);
                EXPECT_EQ(contents("opened"), data) << file;
            }
            for (const std::string file : {"ours", "indefinite", "theirs"}) {
                succeeds("decrypt -k " + key + " -o $opened $" + file);
                EXPECT_EQ(contents("opened"), data) << file;
                EXPECT_EQ(piped(file, "decrypt -k " + key).out, text_of(data)) << file;
            }
        }
    }
}

TEST_F(Encrypt, KnownSizesAreDerAndPipesAreIndefinite) {
    succeeds("encrypt -k $des.key --iv a1a2a3a4a5a6a7a8 -o $der $data");
    const Ran listed = openssl(words_of("asn1parse -inform DER -in $der"));
    EXPECT_FALSE(holds(listed.out, "l=inf"));
    succeeds("encrypt -k $des.key --iv a1a2a3a4a5a6a7a8 -o $redirected",
             {.input = contents("data")});
    EXPECT_EQ(contents("redirected"), contents("der"));
    const Ran pipe = piped("data", "encrypt -k $des.key --iv a1a2a3a4a5a6a7a8");
    EXPECT_EQ(to_hex(bytes_of(pipe.out.substr(0, 2))), "3080");
}

TEST_F(Encrypt, EnvelopesOpenForEveryRecipientAndNobodyElse) {
    for (const CipherCase &cipher : ciphers) {
        SCOPED_TRACE(cipher.name);
        const std::string line =
            std::string("encrypt -t $short.cert -t $alice.cert -t $bob.pub -a ") + cipher.name;
        succeeds(line + " -o $ours $data");
        write_file(path("indefinite"), bytes_of(piped("data", line).out));
        for (const std::string file : {"$ours", "$indefinite"}) {
            SCOPED_TRACE(file);
            oracle("smime -decrypt -binary -inform DER -inkey $alice.pem -recip $alice.cert "
                   "-out $opened -in " +
                   file);
            EXPECT_EQ(contents("opened"), contents("data"));
            oracle("cms -decrypt -binary -inform DER -inkey $bob.pem -out $opened -in " + file);
            EXPECT_EQ(contents("opened"), contents("data"));
            for (const std::string key :
                 {"$alice.pem", "$bob.pem", "$short.pem", "$alice.pem -c $alice.cert"}) {
                succeeds("decrypt -k " + key + " -o $opened " + file);
                EXPECT_EQ(contents("opened"), contents("data")) << key;
            }
            fails("a key of the same size", "decrypt -k $eve.pem " + file, 3, "status 46");
            fails("the certificate of no recipient", "decrypt -k $eve.pem -c $eve.cert " + file, 4,
                  "for others");
        }
    }
    succeeds("encrypt -t $short.cert -o $ours $data");
    fails("a key of another size", "decrypt -k $eve.pem $ours", 4, "size");
}

TEST_F(Encrypt, EnvelopesOfTheOracleOpen) {
    for (const std::string form : {"smime -outform DER", "smime -outform PEM",
                                   "cms -outform DER -stream", "cms -outform PEM -stream"}) {
        SCOPED_TRACE(form);
        oracle(form + " -encrypt -binary -rc2-40 -in $data -out $theirs", "$bob.cert $alice.cert");
        for (const std::string name : {"$alice", "$bob"}) {
            succeeds("decrypt -k " + name + ".pem -c " + name + ".cert -o $opened $theirs");
            EXPECT_EQ(contents("opened"), contents("data"));
        }
        EXPECT_EQ(piped("theirs", "decrypt -k $alice.pem").out, text("data"));
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
            const std::string line = " --raw -a " + std::string(cipher.name) + " -k " + key +
                                     (block ? std::string(" --iv ") + iv : "");
            oracle(std::string("enc -in $sized -out $theirs ") + cipher.oracle + " -K " +
                   to_hex(key_of(cipher)) + (block ? std::string(" -iv ") + iv : ""));
            succeeds("encrypt" + line + " -o $ours $sized");
            EXPECT_EQ(contents("ours"), contents("theirs"));
            succeeds("decrypt" + line + " -o $ours $theirs");
            EXPECT_EQ(contents("ours"), data);
        }
    }
    succeeds("encrypt --raw -a rc2 -k $rc2.key --iv a1a2a3a4a5a6a7a8 -o $a $data");
    succeeds("encrypt --raw -a rc2 -k $hex.key --key-hex --iv a1a2a3a4a5a6a7a8 -o $b $data");
    EXPECT_EQ(contents("a"), contents("b"));
    write_file(path("rc2.par"), from_hex("300e 020200a0 0408 a1a2a3a4a5a6a7a8"));
    succeeds("encrypt --raw -a rc2 -k $rc2.key -p $rc2.par -o $b $data");
    EXPECT_EQ(contents("a"), contents("b"));
}

TEST_F(Encrypt, WhatCannotBeDecryptedLeavesTheOutputAlone) {
    succeeds("encrypt -k $des.key --iv a1a2a3a4a5a6a7a8 -o $good $data");
    const Bytes good = contents("good");
    Bytes flipped = good;
    flipped[flipped.size() - 9] ^= 0x80; // what stands before the last block changes the padding
    write_file(path("flipped"), flipped);
    write_file(path("longer"), good + Bytes{0});
    write_file(path("cut"), Bytes(good.begin(), good.end() - 8));
    write_file(path("text"), bytes_of("no container\n"));
    write_file(path("nothing"), {});
    key_file("wrong.key", "010203040506070b"); // that it ends in bad padding is seen here
    key_file("seven.key", "01020304050607");
    oracle("cms -EncryptedData_encrypt -binary -outform DER -aes128 -secretkey "
           "000102030405060708090a0b0c0d0e0f -in $data -out $aes");
    const struct {
        const char *reason, *words;
        int exit;
        const char *told;
    } rows[] = {
        {"wrong key", "-k $wrong.key $good", 3, "status 14 QEL_ERR_DECRYPT"},
        {"changed ciphertext", "-k $des.key $flipped", 3, "status 14"},
        {"a byte behind the end", "-k $des.key $longer", 3, "something follows"},
        {"cut", "-k $des.key $cut", 3, "is cut after"},
        {"neither BER nor armour", "-k $des.key $text", 3, "neither BER nor armour"},
        {"empty file", "-k $des.key $nothing", 3, "cut after 0 bytes"},
        {"another type of PKCS#7's family", "-k $des.key $alice.cert", 3, "status 10"},
        {"key of another size", "-k $seven.key $good", 3, "it has 7 bytes"},
        {"key that is no hexadecimal", "-k $data --key-hex $good", 3, "hexadecimal"},
        {"empty key", "-k $nothing $good", 3, "empty"},
        {"algorithm of another time", "-k $des.key $aes", 3, "2.16.840.1.101.3.4.1.2"},
        {"no such input", "-k $des.key $absent", 3, "No such file"},
        {"no such key", "-k $absent $good", 3, "No such file"},
        {"bare ciphertext that is no whole block",
         "--raw -a des --iv a1a2a3a4a5a6a7a8 -k $des.key $seven.key", 3, "status 14"},
        {"no ciphertext at all", "--raw -a des --iv a1a2a3a4a5a6a7a8 -k $des.key $nothing", 3,
         "status 14"},
        {"parameters of another cipher", "--raw -a rc2 -p $des.key -k $rc2.key $good", 3,
         "parameters"},
    };
    for (const auto &row : rows)
        fails(row.reason, std::string("decrypt ") + row.words, row.exit, row.told);
}

TEST_F(Encrypt, EverySpoiledContainerIsRefusedOrHarmless) {
    write_file(path("one"), {0x61});
    const std::string line = "encrypt -k $des.key --iv a1a2a3a4a5a6a7a8";
    const auto try_one = [&](const Bytes &spoiled, bool cut, const std::string &what) {
        SCOPED_TRACE(what);
        write_file(path("spoiled"), spoiled);
        unlink(path("made").c_str());
        const Ran ran = run("decrypt -k $des.key -o $made $spoiled");
        EXPECT_EQ(access(path("made").c_str(), F_OK) == 0, ran.exit == 0);
        EXPECT_TRUE(ran.exit == 3 || (!cut && (ran.exit == 0 || ran.exit == 4))) << ran.err;
    };
    const Bytes definite = bytes_of(run(line, {.input = contents("one")}).out);
    ASSERT_GT(definite.size(), 50U);
    each_spoiled(definite, [&](const Bytes &spoiled, const std::string &what) {
        try_one(spoiled, spoiled.size() < definite.size(), what);
    });
    const Bytes indefinite = bytes_of(piped("one", line).out);
    ASSERT_GT(indefinite.size(), definite.size());
    for (std::size_t size = 0; size < indefinite.size(); ++size)
        try_one(Bytes(indefinite.begin(), indefinite.begin() + static_cast<long>(size)), true,
                "indefinite lengths, cut to " + std::to_string(size));
}

TEST_F(Encrypt, RefusalsOfTheExportPolicyNameTheRule) {
    const Bytes plain = sample(65536);
    write_file(path("plain"), plain);
    succeeds("encrypt --raw -k $des.key --iv a1a2a3a4a5a6a7a8 -o $once $plain");
    const Bytes once = contents("once");
    write_file(path("again"), plain + Bytes(once.begin(), once.begin() + 65));
    key_file("odd1.key", "0110010101010101");
    key_file("odd7.key", "ffffffffffffffff");
    key_file("six.key", "010203040506");
    oracle("cms -EncryptedData_encrypt -binary -outform DER -des3 -secretkey "
           "0102030405060708090a0b0c0d0e0f101112131415161718 -in $data -out $triple");
    key_file("triple.key", "0102030405060708090a0b0c0d0e0f101112131415161718");
    const struct {
        const char *reason, *words, *told;
    } rows[] = {
        {"DES byte 1", "encrypt -k $odd1.key $data", "position 1 is above 0F"},
        {"DES, all ones", "encrypt -k $odd7.key $data", "position 1 is above 0F"},
        {"long RC2 key", "encrypt -a rc2 -k $six.key $data", "has 6 bytes; RC2"},
        {"long RC4 key", "encrypt -a rc4 -k $six.key $data", "has 6 bytes; RC4"},
        {"effective bits", "encrypt -a rc2 --effective-bits 41 -k $rc2.key $data",
         "have 41 effective key bits"},
        {"effective bits of what is read",
         "decrypt --raw -a rc2 --effective-bits 64 --iv a1a2a3a4a5a6a7a8 -k $rc2.key $data",
         "have 64 effective key bits"},
        {"effective bits of a session key",
         "encrypt -a rc2 --effective-bits 64 -t $alice.pub $data", "effective key bits"},
        {"triple DES", "decrypt -k $triple.key $triple", "triple DES"},
        {"the last output again", "encrypt --raw -k $des.key --iv a1a2a3a4a5a6a7a8 $again",
         "status 50 QEL_ERR_DOUBLE_ENCRYPT"},
    };
    for (const auto &row : rows)
        fails(row.reason, row.words, 9, row.told);
    const Json error = run("encrypt --json -k $odd1.key -o $kept $data").json()["error"];
    EXPECT_EQ(error["status"]["number"], 53);
    EXPECT_TRUE(holds(error["next_step"], "qel genkey des"));
}

TEST_F(Encrypt, WhatIsWrittenIsForItsOwner) {
    write_file(path("plain"), sample(10));
    const mode_t mask = umask(0);
    succeeds("encrypt -k $des.key -o $secret.p7 $plain");
    succeeds("decrypt -k $des.key -o $private.out $secret.p7");
    umask(mask);
    struct stat about;
    ASSERT_EQ(stat(path("private.out").c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 0777, 0600U);
    ASSERT_EQ(stat(path("secret.p7").c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 0777, 0666U);
    chmod(path("private.out").c_str(), 0644); // a file that is there keeps the mode it was given
    succeeds("decrypt -k $des.key -o $private.out $secret.p7");
    ASSERT_EQ(stat(path("private.out").c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 0777, 0644U);

    for (const auto &[mode, warned] : {std::pair(0600, false), {0640, true}, {0604, true}}) {
        write_file(path("read.key"), contents("des.key"));
        chmod(path("read.key").c_str(), static_cast<mode_t>(mode));
        const Ran ran = run("encrypt -k $read.key -o $secret.p7 $plain");
        EXPECT_EQ(ran.exit, 0);
        EXPECT_EQ(holds(ran.err, "open to others"), warned) << ran.err;
    }
    const Bytes key = contents("alice.pem");
    EXPECT_EQ(run("encrypt -k $des.key -o $alice.pem $plain").exit, 7);
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
    const Json made = run("encrypt --json -a rc2 -t $alice.cert -t $bob.pub -o $ours $data").json();
    EXPECT_EQ(made["container"], "EnvelopedData");
    EXPECT_EQ(made["algorithm"]["name"], "RC2-CBC");
    EXPECT_EQ(made["algorithm"]["effective_bits"], 40);
    EXPECT_EQ(made["bytes_in"], 1000);
    EXPECT_EQ(made["bytes_out"], contents("ours").size());
    ASSERT_EQ(made["recipients"].size(), 2U);
    EXPECT_EQ(made["recipients"][0]["subject"], "CN=alice, O=Acme");
    EXPECT_TRUE(made["recipients"][1]["subject"].is_null());
    const Json opened = run("decrypt --json -k $bob.pem -o $opened $ours").json();
    EXPECT_EQ(opened["bytes_out"], 1000);
    EXPECT_EQ(opened["algorithm"], made["algorithm"]);
}

TEST_F(Encrypt, KeyPackagesAreRecipients) {
    for (const auto &[name, phrase] : {std::pair("phrase", "a phrase"), {"wrong", "another"}}) {
        write_file(path(name), bytes_of(phrase));
        chmod(path(name).c_str(), 0600);
    }
    for (const std::string usage : {"decrypt", "sign"})
        must("keygen --owner CN=Carol --iterations 1000 --passin file:$phrase --usage " + usage +
             " -o $" + usage + ".KEYPKG");
    const auto piped_to = [](const char *package, const char *output) { // read once
        return run_program({"bash", "-c", "\"$0\" encrypt -t <(cat \"$1\") -o \"$2\" \"$3\"",
                            QEL_TOOL, path(package), path(output), path("data")});
    };
    EXPECT_EQ(piped_to("decrypt.KEYPKG", "ours").exit, 0);
    EXPECT_EQ(piped_to("bob.cert", "absent").exit, 0);
    unlink(path("absent").c_str());
    fails("a recipient that could not decrypt", "encrypt -t $sign.KEYPKG $data", 9,
          "usage of its key is sign");
    succeeds("decrypt --batch -k $decrypt.KEYPKG --passin file:$phrase -o $opened $ours");
    EXPECT_EQ(contents("opened"), contents("data"));
    succeeds("wrap -t $decrypt.KEYPKG -o $wrapped $des.key");
    succeeds("unwrap -k $decrypt.KEYPKG --passin file:$phrase --force -o $session $wrapped");
    EXPECT_EQ(contents("session"), contents("des.key"));

    Bytes damaged = contents("decrypt.KEYPKG");
    damaged[damaged.size() / 2] ^= 1;
    write_file(path("damaged"), damaged);
    const std::string refused = "decrypt --batch -k $decrypt.KEYPKG $ours";
    fails("a prompt that is forbidden", refused, 2, "--batch");
    fails("a wrong pass phrase", refused + " --passin file:$wrong", 6, "pass phrase is wrong");
    fails("a key for signatures", "decrypt -k $sign.KEYPKG --passin file:$phrase $ours", 9,
          "its usage is sign");
    EXPECT_NE(run("encrypt -t $damaged -o $absent $data").exit, 0);
    EXPECT_NE(access(path("absent").c_str(), F_OK), 0);
}

TEST_F(Encrypt, LargeFilesTakeLittleMemory) {
    write_file(path("large"), bytes_of("a beginning"));
    ASSERT_EQ(truncate(path("large").c_str(), 100L << 20), 0);
    const Ran there = run("encrypt -k $des.key -o $large.p7 $large");
    EXPECT_EQ(there.exit, 0) << there.err;
    const Ran back = run("decrypt -k $des.key -o $large.out $large.p7");
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
    for (const std::string name : {"$alice", "$short"}) {
        for (const std::string form : {".pub", ".cert"}) {
            SCOPED_TRACE(name + form);
            succeeds("wrap -o $wrapped $des.key -t " + name + form);
            oracle("pkeyutl -decrypt -in $wrapped -out $opened -inkey " + name + ".pem");
            EXPECT_EQ(contents("opened"), contents("des.key"));
        }
        oracle("pkeyutl -encrypt -in $des.key -out $theirs -pubin -inkey " + name + ".pub");
        for (const std::string wrapped : {"$wrapped", "$theirs"}) {
            unlink(path("session").c_str());
            succeeds("unwrap -k " + name + ".pem -o $session " + wrapped);
            EXPECT_EQ(contents("session"), contents("des.key"));
        }
    }
    succeeds("unwrap -k $short.pem --hex -o $session.hex $wrapped");
    EXPECT_EQ(text("session.hex"), to_hex(contents("des.key")) + "\n");
}

TEST_F(Encrypt, KeysThatCannotBeWrappedOrUnwrappedTellWhy) {
    succeeds("wrap -t $alice.pub -o $wrapped $des.key");
    Bytes spoiled = contents("wrapped");
    spoiled[100] ^= 4;
    write_file(path("spoiled"), spoiled);
    spoiled.pop_back();
    write_file(path("cut"), spoiled);
    write_file(path("117"), sample(117));
    write_file(path("118"), sample(118));
    oracle("genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out $ec.pem");
    oracle("pkey -in $ec.pem -pubout -out $ec.pub");
    oracle("genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:4104 -out $long.pem");
    for (const char *name : {"117", "118", "ec.pem", "long.pem"})
        chmod(path(name).c_str(), 0600);
    succeeds("wrap -t $alice.pub -o $full $117");
    const struct {
        const char *reason, *words;
        int exit;
        const char *told;
    } rows[] = {
        {"a bit", "unwrap -k $alice.pem $spoiled", 3, "status 46 QEL_ERR_UNWRAP"},
        {"another key", "unwrap -k $eve.pem $wrapped", 3, "status 46"},
        {"a byte too few", "unwrap -k $alice.pem $cut", 3, "has 127 bytes"},
        {"a modulus beyond 512 bytes", "unwrap -k $long.pem $wrapped", 9, "modulus has 513 bytes"},
        {"no RSA key", "wrap -t $ec.pub $des.key", 3, "status 47"},
        {"no RSA private key", "unwrap -k $ec.pem $wrapped", 3, "private key"},
        {"a byte too much for the modulus", "wrap -t $alice.pub $118", 3,
         "has 118 bytes, and a modulus of 128 has room for 117"},
    };
    for (const auto &row : rows) {
        const std::string line = row.words;
        // Without it the output that is there would be the reason.
        fails(row.reason, line + (line.starts_with("unwrap") ? " --force" : ""), row.exit,
              row.told);
    }
}

} // namespace
