// qel keygen and qel keypkg, with OpenSSL's command line as the oracle for the keys.
#include "support/terminal.h"
#include "tools/packages.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <csignal>

#include <qel/qelp.h>

namespace {

constexpr const char *right_phrase = "correct horse battery staple";

// A folder with pass phrases, keys made by OpenSSL, and one key package.
class KeyPkg : public Packages {
protected:
    static void SetUpTestSuite() {
        umask(0);
        for (const auto &[name, text] :
             {std::pair("phrase", std::string(right_phrase) + "\n"),
              {"other", std::string("another phrase")},
              {"wrong", std::string("correct horse battery stapler\n")},
              {"empty", std::string("\n")},
              {"open", std::string(right_phrase)},
              {"long", std::string(101, 'x')},
              {"both", std::string(right_phrase) + "\r\nanother phrase\r\n"}})
            write_secret(name, bytes_of(text));
        chmod(path("open").c_str(), 0640);
        for (const std::string bits : {"512", "1024", "2048"})
            oracle("genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:" + bits + " -out $" + bits);
        oracle("pkcs8 -topk8 -nocrypt -in $1024 -outform DER -out $1024.der");
        make("alice.KEYPKG", "alice");
    }

    // A new package of few iterations, so that tests are quick.
    static void make(const std::string &file, const std::string &id, const std::string &more = "") {
        make_package(file, "CN=Alice,O=Acme,C=US", "--id " + id + " " + more);
    }
    static Json shown(const std::string &file) {
        const Ran ran = run("keypkg show --json $" + file);
        EXPECT_EQ(ran.exit, 0) << ran.err;
        return ran.json()["packages"][0];
    }
    static int opens(const std::string &file, const std::string &name,
                     const std::string &more = "") {
        return run("keypkg verify --passin file:$" + name + " $" + file + " " + more).exit;
    }
    static unsigned mode_of(const std::string &name) {
        struct stat about = {};
        EXPECT_EQ(stat(path(name).c_str(), &about), 0);
        return about.st_mode & 0777;
    }
};

// ---- Making ------------------------------------------------------------------------------------

TEST_F(KeyPkg, NewPackageHoldsWhatWasAskedForAndAKeyThatTheOracleAccepts) {
    oracle("req -x509 -md5 -key $1024 -subj /CN=Root -out $root.pem");
    const struct {
        const char *reason, *words;
        int bits;
        const char *exponent, *usage;
        std::size_t trusted;
    } rows[] = {
        {"defaults", "", 512, "65537", "both", 0},
        {"smallest key and exponent", "-b 360 -e 3", 360, "3", "both", 0},
        {"odd size, for signing", "-b 511 --usage sign", 511, "65537", "sign", 0},
        {"for decryption", "--usage decrypt", 512, "65537", "decrypt", 0},
        {"two files of trusted keys",
         "--trust $root.pem --trust " QEL_SOURCE "/tests/vectors/armour/01.pem", 512, "65537",
         "both", 2},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        unlink(path("new.KEYPKG").c_str());
        make("new.KEYPKG", "id_1", row.words);
        EXPECT_EQ(mode_of("new.KEYPKG"), 0600U);
        EXPECT_TRUE(text("new.KEYPKG").starts_with("-----BEGIN KEYPKG-----\n"));

        const Json package = shown("new.KEYPKG");
        EXPECT_EQ(package["id"], "id_1");
        EXPECT_EQ(package["owner"], "CN=Alice, O=Acme, C=US");
        EXPECT_EQ(package["usage"], row.usage);
        EXPECT_EQ(package["public_key"]["bits"], row.bits);
        EXPECT_EQ(package["public_key"]["exponent"], row.exponent);
        EXPECT_EQ(package["private_key"]["iterations"], 1000);
        EXPECT_EQ(package["private_key"]["salt_length"], 8);
        EXPECT_EQ(package["trusted_keys"].size(), row.trusted);
        EXPECT_EQ(package["signature"]["verified"], true);
        EXPECT_EQ(package["signature"]["algorithm"], "md5WithRSAEncryption");

        EXPECT_EQ(opens("new.KEYPKG", "phrase"), 0);
        EXPECT_EQ(opens("new.KEYPKG", "wrong"), 6);
        must("keypkg export --unencrypted --force -o $new.p8 --passin file:$phrase $new.KEYPKG");
        const Ran checked = oracle("pkey -inform DER -in $new.p8 -check -noout -text");
        EXPECT_TRUE(holds(checked.out, "valid")) << checked.out;
        EXPECT_TRUE(holds(checked.out, "(" + std::to_string(row.bits) + " bit")) << checked.out;
    }
}

TEST_F(KeyPkg, SaltsAndKeysDifferAndDefaultWorkIsMeasured) {
    const Ran ran = run("keygen --owner CN=Alice --passin file:$phrase --json -o $measured.KEYPKG");
    ASSERT_EQ(ran.exit, 0) << ran.err;
    const Json package = ran.json()["package"];
    EXPECT_EQ(package["id"], "default_keyid");
    EXPECT_GE(package["private_key"]["iterations"], 100000);
    EXPECT_LE(package["private_key"]["iterations"], 10000000);
    EXPECT_EQ(opens("measured.KEYPKG", "phrase"), 0);
    make("twin.KEYPKG", "alice");
    EXPECT_NE(shown("twin.KEYPKG")["public_key"]["md5_fingerprint"],
              shown("alice.KEYPKG")["public_key"]["md5_fingerprint"]);
}

TEST_F(KeyPkg, KeysOfTheOracleGoInAndComeOutUnchanged) {
    oracle("rsa -traditional -in $1024 -out $pkcs1.pem");
    oracle("rsa -traditional -in $1024 -outform DER -out $pkcs1.der");
    for (const std::string name : {"512", "1024", "2048", "1024.der", "pkcs1.pem", "pkcs1.der"}) {
        SCOPED_TRACE(name);
        chmod(path(name).c_str(), 0600);
        must("keypkg import --owner CN=Import --iterations 1000 --passin file:$phrase --force "
             "-o $in.KEYPKG $" +
             name);
        for (const std::string form : {"der", "pem"}) {
            unlink(path("out").c_str());
            const Ran out = run("keypkg export --unencrypted --passin file:$phrase --form " + form +
                                " -o $out $in.KEYPKG");
            EXPECT_EQ(out.exit, 0) << out.err;
            EXPECT_TRUE(holds(out.err, "no pass phrase protects it")) << out.err;
            EXPECT_EQ(out.out, "");
            EXPECT_EQ(mode_of("out"), 0600U);
            EXPECT_EQ(oracle("pkey -inform " + form + " -in $out").out,
                      openssl({"pkey", "-in", path(name)}).out);
        }
    }
}

TEST_F(KeyPkg, PrivateKeysThatCannotBecomePackagesAreRefused) {
    oracle("genpkey -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out $ec.pem");
    Bytes spoiled = read_file(path("1024.der"));
    write_secret("cut.der", Bytes(spoiled.begin(), spoiled.end() - 1));
    spoiled[spoiled.size() - 3] ^= 1; // in the CRT coefficient
    write_secret("spoiled.der", spoiled);
    const struct {
        const char *reason;
        std::string key;
        const char *told;
    } rows[] = {
        {"another kind of key", "$ec.pem", "no RSA key"},
        {"cut", "$cut.der", "cannot read a private key"},
        {"numbers that do not fit", "$spoiled.der", ""},
        {"encrypted", vector_path("pkcs8/pkcs8v1_rsa_md5_des1.der"), "pbeWithMD5AndDES-CBC"},
        {"a key package", "$alice.KEYPKG", "in a key package already"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        const Ran ran = run("keypkg import --owner CN=A --iterations 1000 --passin file:$phrase "
                            "-o $none.KEYPKG " +
                            row.key);
        EXPECT_EQ(ran.exit, 3) << ran.err;
        EXPECT_TRUE(holds(ran.out + ran.err, row.told)) << ran.out << ran.err;
        EXPECT_FALSE(exists("none.KEYPKG"));
    }
}

// ---- Refusals ----------------------------------------------------------------------------------

// alice.KEYPKG with another number of iterations, signed again by its key.
Bytes with_iterations(const Bytes &armoured_package, const Bytes &key_info, uint32_t iterations) {
    QelContext *context = nullptr;
    EXPECT_EQ(__qel_init(&context, nullptr, nullptr), QEL_OK);
    std::string text = text_of(armoured_package);
    text = text.substr(23, text.find("-----END") - 23);
    uint8_t *der = nullptr, *encoded = nullptr;
    uint32_t length = 0, encoded_length = 0;
    __qel_rfc1421_2_binary(text.data(), static_cast<uint32_t>(text.size()), &der, &length);
    void *package_value = nullptr, *key_value = nullptr, *pbe_value = nullptr;
    EXPECT_EQ(__qel_asn1_decode(context, der, length, QEL_PDU_KeyPkg, &package_value), QEL_OK);
    EXPECT_EQ(__qel_asn1_decode(context, key_info.data(), static_cast<uint32_t>(key_info.size()),
                                QEL_PDU_PrivateKeyInfo, &key_value),
              QEL_OK);
    auto *package = static_cast<QelKeyPkg *>(package_value);
    const auto *key = static_cast<QelPrivateKeyInfo *>(key_value);
    QelOctetString *parameters = package->encrPrivKeyInfo->encryptionAlgorithm->parameters;
    EXPECT_EQ(__qel_asn1_decode(context, parameters->value, parameters->length,
                                QEL_PDU_PBEParameter, &pbe_value),
              QEL_OK);
    static_cast<QelPBEParameter *>(pbe_value)->iterationCount = iterations;
    std::free(parameters->value);
    *parameters = {0, nullptr};
    EXPECT_EQ(__qel_asn1_encode(context, pbe_value, QEL_PDU_PBEParameter, &parameters->value,
                                &parameters->length),
              QEL_OK);
    EXPECT_EQ(__qel_sign_keypkg(context, package, key->privateKeyAlgorithm, key->privateKey.value,
                                key->privateKey.length, nullptr),
              QEL_OK);
    EXPECT_EQ(__qel_asn1_encode(context, package, QEL_PDU_KeyPkg, &encoded, &encoded_length),
              QEL_OK);
    const Bytes result(encoded, encoded + encoded_length);
    for (uint8_t *block : {der, encoded})
        std::free(block);
    __qel_asn1_free(context, package_value, QEL_PDU_KeyPkg);
    __qel_asn1_free(context, key_value, QEL_PDU_PrivateKeyInfo);
    __qel_asn1_free(context, pbe_value, QEL_PDU_PBEParameter);
    qel_end(context);
    return result;
}

TEST_F(KeyPkg, EachRefusalHasItsStatusAndItsReason) {
    setenv("QEL_TEST_EMPTY", "", 1);
    Bytes damaged = contents("alice.KEYPKG");
    auto digit = damaged.end() - 36; // in the signature, before the END line
    while (!std::isalnum(*digit))
        --digit;
    *digit = *digit == 'A' ? 'B' : 'A';
    write_secret("damaged.KEYPKG", damaged);
    must("keypkg export --unencrypted -o $alice.p8 --passin file:$phrase $alice.KEYPKG");
    write_secret("costly.KEYPKG",
                 with_iterations(contents("alice.KEYPKG"), contents("alice.p8"), 0xFFFFFFFF));
    const struct {
        const char *reason;
        const char *words; // $name is a file of the folder
        int exit;
        const char *told;
    } rows[] = {
        {"wrong pass phrase", "keypkg verify --passin file:$wrong $alice.KEYPKG", 6, "wrong"},
        {"empty pass phrase", "keypkg verify --passin file:$empty $alice.KEYPKG", 6, "empty"},
        {"file open to others", "keypkg verify --passin file:$open $alice.KEYPKG", 9, "0640"},
        {"no such file", "keypkg verify --passin file:$no $alice.KEYPKG", 3, "No such file"},
        {"no such variable", "keypkg verify --passin env:QEL_TEST_ABSENT $alice.KEYPKG", 3,
         "no variable"},
        {"empty variable", "keypkg verify --passin env:QEL_TEST_EMPTY $alice.KEYPKG", 6, "empty"},
        {"descriptor that is not open", "keypkg verify --passin fd:77 $alice.KEYPKG", 3,
         "descriptor 77"},
        {"no kind of source", "keypkg verify --passin pass:secret $alice.KEYPKG", 2, "fd:N"},
        {"no number", "keypkg verify --passin fd:x $alice.KEYPKG", 2, "fd:N"},
        {"standard input twice", "keypkg verify --passin fd:0 -", 2, "standard input"},
        {"batch, and a prompt", "keypkg verify --batch --passin prompt $alice.KEYPKG", 2,
         "'--passin fd:N'"},
        {"batch, and no source", "keygen --owner CN=A -o $none.KEYPKG --batch", 2,
         "'--passin fd:N'"},
        {"batch, and no source for the new phrase",
         "keypkg passwd --batch --passin file:$phrase $alice.KEYPKG", 2, "'--new-passin fd:N'"},
        {"new phrase longer than can be typed",
         "keygen --owner CN=A -o $none.KEYPKG --passin file:$long", 3, "100"},
        {"no such identifier", "keypkg verify --id bob $alice.KEYPKG", 4, "it holds 'alice'"},
        {"not a key package", "keypkg verify " QEL_SOURCE "/tests/vectors/armour/01.pem", 3,
         "key package"},
        {"damaged, looked at", "keypkg verify $damaged.KEYPKG", 1, "NOT"},
        {"damaged, unlocked",
         "keypkg passwd --passin file:$phrase --new-passin file:$other $damaged.KEYPKG", 3,
         "cannot unlock"},
        {"work for hours", "keypkg verify --passin file:$phrase $costly.KEYPKG", 3,
         "--max-iterations 4294967295"},
        {"more work than allowed",
         "keypkg verify --passin file:$phrase --max-iterations 999 $alice.KEYPKG", 3,
         "more than 999"},
        {"longer than the export policy allows",
         "keygen --owner CN=A -o $none.KEYPKG --passin file:$phrase -b 513", 9, "status 53"},
        {"too short to sign", "keygen --owner CN=A -o $none.KEYPKG -b 359", 2, "from 360"},
        {"even exponent", "keygen --owner CN=A -o $none.KEYPKG -e 4", 2, "odd"},
        {"identifier that is not ASCII",
         "keygen --owner CN=A -o $none.KEYPKG --batch --id \xc3\xa4", 2, ""},
        {"impossible owner", "keygen --owner Alice -o $none.KEYPKG --passin file:$phrase", 3,
         "Equals missing"},
        {"export without consent", "keypkg export -o x $alice.KEYPKG", 2, "--unencrypted"},
        {"export of both keys", "keypkg export --public --unencrypted -o x $alice.KEYPKG", 2,
         "--public"},
        {"export to standard output",
         "keypkg export --unencrypted --passin file:$phrase -o - $alice.KEYPKG", 2,
         "file of its own"},
        {"export to what is no file",
         "keypkg export --unencrypted --passin file:$phrase -o /dev/full $alice.KEYPKG", 2,
         "file of its own"},
        {"file that is there", "keygen --owner CN=A --passin file:$phrase -o $alice.KEYPKG", 7,
         "exists"},
        {"file that is there, which passwd does not add to",
         "keypkg passwd --passin file:$phrase --new-passin file:$other -o $phrase $alice.KEYPKG", 7,
         "'--output', or '--force'"},
        {"same identifier added",
         "keygen --owner CN=A --passin file:$phrase -o $alice.KEYPKG --add --id alice "
         "--iterations 1000",
         7, "'alice' already"},
        {"no such folder",
         "keygen --owner CN=A --passin file:$phrase -o $no/such --iterations 1000", 7,
         "No such file"},
    };
    const Bytes before = contents("alice.KEYPKG");
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        const auto begin = std::chrono::steady_clock::now();
        const Ran ran = run(row.words);
        EXPECT_EQ(ran.exit, row.exit) << ran.err;
        EXPECT_TRUE(holds(ran.out + ran.err, row.told)) << ran.out << ran.err;
        EXPECT_FALSE(holds(ran.out + ran.err, right_phrase));
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
        EXPECT_FALSE(exists("none.KEYPKG"));
        EXPECT_EQ(contents("alice.KEYPKG"), before);
    }
}

TEST_F(KeyPkg, SourcesOfPassPhrasesGiveTheSamePhrase) {
    setenv("QEL_TEST_PHRASE", right_phrase, 1);
    How how = {.input = bytes_of(std::string(right_phrase) + "\nnot read")};
    EXPECT_EQ(run("keypkg verify --passin fd:0 $alice.KEYPKG", how).exit, 0);
    EXPECT_EQ(run("keypkg verify --passin env:QEL_TEST_PHRASE $alice.KEYPKG").exit, 0);
    how.input = contents("alice.KEYPKG");
    EXPECT_EQ(run("keypkg verify --passin file:$phrase -", how).exit, 0);
    // Without a terminal there is no prompt, and standard input is not taken for one.
    how.input = bytes_of(std::string(right_phrase) + "\n");
    const Ran ran = run_program(
        words_of("setsid -w " QEL_TOOL " keypkg verify --passin prompt $alice.KEYPKG"), how);
    EXPECT_EQ(ran.exit, 2) << ran.err;
    EXPECT_TRUE(holds(ran.err, "no terminal")) << ran.err;
}

TEST_F(KeyPkg, UnlockedKeyServesTheCommandsThatItsUsageAllows) {
    for (const std::string usage : {"sign", "decrypt"}) {
        make(usage + ".KEYPKG", "only", "--usage " + usage);
        for (const std::string form : {"der", "pem"})
            must("keypkg export --public --form " + form + " -o $" + usage + "." + form + " $" +
                 usage + ".KEYPKG");
    }
    EXPECT_EQ(run("keypkg export --public --json -o - $sign.KEYPKG").json()["hex"],
              to_hex(contents("sign.der")));
    write_secret("session.key", from_hex("0102030405"));
    must("wrap -t $decrypt.der -o $wrapped $session.key");
    must("encrypt -t $decrypt.pem -o $data.p7 $phrase");
    const std::string sign = "sign -o $made.sig $phrase",
                      unwrap = "unwrap --force -o $unwrapped $wrapped",
                      decrypt = "decrypt -o $data.out $data.p7";
    const struct {
        std::string words;
        const char *package, *source;
        int exit;
    } rows[] = {
        {sign, "sign", "phrase", 0},    {sign, "sign", "wrong", 6},
        {sign, "decrypt", "phrase", 9}, {unwrap, "decrypt", "phrase", 0},
        {unwrap, "sign", "phrase", 9},  {decrypt, "decrypt", "phrase", 0},
        {decrypt, "sign", "phrase", 9},
    };
    for (const auto &row : rows)
        EXPECT_EQ(
            run(row.words + " -k $" + row.package + ".KEYPKG --passin file:$" + row.source).exit,
            row.exit)
            << row.words << " with " << row.package;
    oracle("dgst -md5 -verify $sign.pem -signature $made.sig $phrase");
    EXPECT_EQ(contents("unwrapped"), contents("session.key"));
    EXPECT_EQ(contents("data.out"), contents("phrase"));
}

TEST_F(KeyPkg, NothingThatIsPrintedHoldsTheKey) {
    must("keypkg export --unencrypted -o $shown.p8 --passin file:$phrase $alice.KEYPKG");
    const std::string key = to_hex(contents("shown.p8"));
    const std::string tail = key.substr(key.size() - 64); // in the CRT coefficient
    for (const std::string option : {"--batch", "--full", "--json"}) {
        const Ran shown = run("keypkg show " + option + " $alice.KEYPKG");
        EXPECT_EQ(shown.exit, 0) << shown.err;
        EXPECT_FALSE(holds(shown.out, tail));
        EXPECT_EQ(holds(shown.out, "\n  Private key: Not displayed\n"), option == "--full");
        EXPECT_TRUE(holds(shown.out, "pbeWithMD5AndDES3-CBC")) << shown.out;
    }
}

// ---- Changing ----------------------------------------------------------------------------------

TEST_F(KeyPkg, NewPhraseOpensAndTheOtherContentsOfTheFileStay) {
    make("several.KEYPKG", "first");
    make("several.KEYPKG", "second", "--add");
    write_secret("several.KEYPKG", bytes_of("A heading.\n" + text("several.KEYPKG") +
                                            "The end, without a line feed"));
    make("several.KEYPKG", "third", "--add");
    const std::string before = text("several.KEYPKG");
    const Ran unsaid = run("keypkg verify $several.KEYPKG");
    EXPECT_EQ(unsaid.exit, 2);
    EXPECT_TRUE(holds(unsaid.err, "'first', 'second', 'third'")) << unsaid.err;

    const Ran ran = run("keypkg passwd --id second --passin fd:0 --new-passin fd:0 $several.KEYPKG",
                        {.input = contents("both")});
    ASSERT_EQ(ran.exit, 0) << ran.err;
    EXPECT_EQ(opens("several.KEYPKG", "other", "--id second"), 0);
    EXPECT_EQ(opens("several.KEYPKG", "phrase", "--id second"), 6);
    const std::string after = text("several.KEYPKG");
    ASSERT_EQ(after.size(), before.size());
    const std::size_t second = before.find("-----BEGIN KEYPKG-----", 40);
    const std::size_t behind = before.find("The end");
    EXPECT_EQ(after.substr(0, second), before.substr(0, second));
    EXPECT_EQ(after.substr(behind), before.substr(behind));
    EXPECT_NE(after, before);

    // A new package in the place of the second: the others still open.
    make("several.KEYPKG", "second", "--add --force");
    for (const std::string id : {"first", "second", "third"})
        EXPECT_EQ(opens("several.KEYPKG", "phrase", "--id " + id), 0) << id;
}

TEST_F(KeyPkg, FormOfTheFileIsKept) {
    must("dearmor -o $form.der $alice.KEYPKG");
    must("keypkg passwd --passin file:$phrase --new-passin file:$other $form.der");
    EXPECT_EQ(contents("form.der")[0], 0x30);
    EXPECT_EQ(opens("form.der", "other"), 0);
    // From standard input, to standard output.
    const Ran ran = run("keypkg passwd --passin file:$other --new-passin file:$phrase -o - -",
                        {.input = contents("form.der")});
    EXPECT_EQ(ran.exit, 0) << ran.err;
    write_secret("from-stdout", bytes_of(ran.out));
    EXPECT_EQ(opens("from-stdout", "phrase"), 0);
}

pid_t start(std::vector<std::string> words) {
    const pid_t child = fork();
    if (child != 0)
        return child;
    How how;
    words.insert(words.begin(), QEL_TOOL);
    become(words, how, "/dev/null", "/dev/null", "/dev/null");
}

TEST_F(KeyPkg, ChangesAtTheSameTimeDoNotUndoEachOther) {
    make("shared.KEYPKG", "left");
    make("shared.KEYPKG", "right", "--add");
    for (int round = 0; round < 10; ++round) {
        const std::string from = round % 2 == 0 ? "phrase" : "other";
        const std::string to = round % 2 == 0 ? "other" : "phrase";
        const auto change = [&](const std::string &id) {
            return start(words_of("keypkg passwd --id " + id + " --passin file:$" + from +
                                  " --new-passin file:$" + to + " $shared.KEYPKG"));
        };
        const pid_t children[] = {change("left"), change("right")};
        for (const pid_t child : children) {
            int status = 0;
            waitpid(child, &status, 0);
            EXPECT_EQ(status, 0);
        }
        EXPECT_EQ(opens("shared.KEYPKG", to, "--id left"), 0);
        EXPECT_EQ(opens("shared.KEYPKG", to, "--id right"), 0);
    }
}

TEST_F(KeyPkg, KilledAtAnyMomentTheFileIsTheOldOneOrTheNewOne) {
    make("killed.KEYPKG", "alice");
    const auto change = [&](const std::string &from, const std::string &to) {
        return words_of("keypkg passwd --passin file:$" + from + " --new-passin file:$" + to +
                        " $killed.KEYPKG");
    };
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(qel(change("phrase", "other")).exit, 0);
    const auto whole = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - begin);
    const char *present = "other";
    int changed = 0, killed = 0;
    constexpr int rounds = 40;
    for (int round = 0; round < rounds; ++round) {
        const char *next = present == std::string("other") ? "phrase" : "other";
        const pid_t child = start(change(present, next));
        usleep(static_cast<useconds_t>(whole.count() * (round + 1) / rounds));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        killed += WIFSIGNALED(status) ? 1 : 0;
        const int old_opens = opens("killed.KEYPKG", present);
        if (old_opens == 0)
            continue;
        ASSERT_EQ(old_opens, 6) << round;
        ASSERT_EQ(opens("killed.KEYPKG", next), 0) << round;
        present = next;
        ++changed;
    }
    RecordProperty("killed", killed);
    RecordProperty("changed", changed);
    EXPECT_GT(killed, 0);
}

TEST_F(KeyPkg, FullDiskLeavesTheOldPackage) {
    make("full.KEYPKG", "alice");
    const Bytes before = contents("full.KEYPKG");
    std::vector<std::string> words =
        words_of("keypkg passwd --passin file:$phrase --new-passin file:$other $full.KEYPKG");
    words.insert(words.begin(), {"bash", "-c", "trap '' XFSZ; ulimit -f 0; exec \"$@\" 2>/dev/null",
                                 "bash", QEL_TOOL});
    EXPECT_EQ(run_program(words).exit, 7);
    EXPECT_EQ(contents("full.KEYPKG"), before);
}

TEST_F(KeyPkg, OwnFileIsInTheHomeFolderAndAHiddenOneServesWhereThereIsNoOther) {
    write_file(path("passwd"), bytes_of("alice:x:0:0::" + path("home") + ":/bin/sh\n"));
    mkdir(path("home").c_str(), 0700);
    // As the one user of a host of its own.
    const auto at_home = [](const std::string &line) {
        std::vector<std::string> words = words_of(line);
        words.insert(words.begin(),
                     {"unshare", "-rm", "bash", "-c",
                      "mount --bind \"$0\" /etc/passwd && exec \"$@\"", path("passwd"), QEL_TOOL});
        return run_program(words);
    };
    if (at_home("--version").exit != 0)
        GTEST_SKIP() << "this host lets nobody have another /etc/passwd";
    const std::string own = path("home/alice.KEYPKG"), hidden = path("home/.alice.KEYPKG");
    const Ran made =
        at_home("keygen --owner CN=Alice --iterations 1000 --passin file:$phrase --id own");
    EXPECT_EQ(made.exit, 0) << made.err;
    const auto shown_id = [&] {
        const Ran ran = at_home("keypkg show --json");
        return ran.exit == 0 ? ran.json()["packages"][0]["id"].get<std::string>() : ran.err;
    };
    EXPECT_EQ(shown_id(), "own");
    ASSERT_EQ(rename(own.c_str(), hidden.c_str()), 0);
    EXPECT_EQ(shown_id(), "own");
    make("home/alice.KEYPKG", "visible");
    EXPECT_EQ(shown_id(), "visible");
    ASSERT_EQ(unlink(own.c_str()) + unlink(hidden.c_str()), 0);
    const Ran none = at_home("keypkg show");
    EXPECT_EQ(none.exit, 4);
    EXPECT_TRUE(holds(none.err, "'qel keygen' makes one")) << none.err;
}

// ---- At a terminal -----------------------------------------------------------------------------

struct Entry {
    const char *prompt, *typed;
};

TEST_F(KeyPkg, PromptsAskOnceAndShowNothing) {
    const char *const keygen = "keygen --owner CN=A --iterations 1000 -o $typed.KEYPKG",
                      *const verify = "keypkg verify --passin prompt $typed.KEYPKG";
    constexpr const char *fresh = "qel: Enter your NEW key package password: ";
    constexpr const char *again = "qel: Reenter your NEW key package password: ";
    constexpr const char *own = "qel: Enter your own key package password: ";
    constexpr const char *old = "qel: Enter your OLD key package password: ";
    const struct {
        const char *reason, *words;
        std::vector<Entry> entries;
        int exit;
        const char *shown;
    } rows[] = {
        {"entries that differ", keygen, {{fresh, "a"}, {again, "b"}}, 6, "different passwords"},
        {"an empty entry", keygen, {{fresh, ""}}, 6, "no pass phrase"},
        {"a new one", keygen, {{fresh, right_phrase}, {again, right_phrase}}, 0, "rsaEncryption"},
        {"a wrong one is not asked for again", verify, {{own, "a"}}, 6, "phrase is wrong"},
        {"the right one", verify, {{own, right_phrase}}, 0, "unlocked"},
        {"a wrong one from a file leads to no prompt",
         "keypkg verify --passin file:$wrong $typed.KEYPKG",
         {},
         6,
         "phrase is wrong"},
        {"an old one, and a new one twice",
         "keypkg passwd $typed.KEYPKG",
         {{old, right_phrase}, {fresh, "another phrase"}, {again, "another phrase"}},
         0,
         "pass phrase changed"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        TerminalSession terminal(
            [&row] { become(words_of(std::string(QEL_TOOL) + " " + row.words)); });
        for (const Entry &entry : row.entries) {
            terminal.await_prompt(entry.prompt);
            terminal.type(std::string(entry.typed) + "\n");
        }
        const int status = terminal.await_event();
        EXPECT_TRUE(WIFEXITED(status));
        EXPECT_EQ(WEXITSTATUS(status), row.exit);
        const std::string screen = terminal.screen();
        EXPECT_TRUE(holds(screen, row.shown)) << screen;
        EXPECT_FALSE(holds(screen, right_phrase)) << screen;
    }
    EXPECT_EQ(opens("typed.KEYPKG", "other"), 0);
}

} // namespace
