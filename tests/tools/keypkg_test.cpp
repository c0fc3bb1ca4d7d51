// qel keygen and qel keypkg, with OpenSSL's command line as the oracle for the keys.
#include "support/terminal.h"
#include "tools/run.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <csignal>
#include <sys/stat.h>

#include <qel/qelp.h>

namespace {

constexpr const char *right_phrase = "correct horse battery staple";

// A folder with pass phrases, keys made by OpenSSL, and one key package.
class KeyPkg : public SharedFolder {
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
        for (const char *bits : {"512", "1024", "2048"})
            openssl({"genpkey", "-algorithm", "RSA", "-pkeyopt",
                     std::string("rsa_keygen_bits:") + bits, "-out", path(bits)});
        openssl({"pkcs8", "-topk8", "-nocrypt", "-in", path("1024"), "-outform", "DER", "-out",
                 path("1024.der")});
        make("alice.KEYPKG", "alice");
    }
    static void write_secret(const std::string &name, const Bytes &contents) {
        write_file(path(name), contents);
        chmod(path(name).c_str(), 0600);
    }
    static std::string phrase(const char *name = "phrase") { return "file:" + path(name); }

    // A new package of few iterations, so that tests are quick.
    static Ran make(const std::string &file, const std::string &id,
                    const std::vector<std::string> &more = {}) {
        std::vector<std::string> words = {"keygen", "--owner",  "CN=Alice, O=Acme, C=US",
                                          "--id",   id,         "--iterations",
                                          "1000",   "--passin", phrase(),
                                          "-o",     path(file)};
        words.insert(words.end(), more.begin(), more.end());
        const Ran ran = qel(words);
        EXPECT_EQ(ran.exit, 0) << ran.err;
        return ran;
    }
    static Json shown(const std::string &file, std::size_t index = 0) {
        const Ran ran = qel({"keypkg", "show", "--json", path(file)});
        EXPECT_EQ(ran.exit, 0) << ran.err;
        return ran.json()["packages"][index];
    }
    static int opens(const std::string &file, const char *name,
                     const std::vector<std::string> &more = {}) {
        std::vector<std::string> words = {"keypkg", "verify", "--passin", phrase(name), path(file)};
        words.insert(words.end(), more.begin(), more.end());
        return qel(words).exit;
    }
};

// ---- Making ------------------------------------------------------------------------------------

TEST_F(KeyPkg, NewPackageHoldsWhatWasAskedForAndAKeyThatTheOracleAccepts) {
    openssl({"req", "-x509", "-md5", "-key", path("1024"), "-subj", "/CN=Root", "-out",
             path("root.pem")});
    const struct {
        const char *reason;
        std::vector<std::string> words;
        int bits;
        const char *exponent, *usage;
        std::size_t trusted;
    } rows[] = {
        {"defaults", {}, 512, "65537", "both", 0},
        {"smallest key and exponent", split("-b 360 -e 3"), 360, "3", "both", 0},
        {"odd size, for signing", split("-b 511 --usage sign"), 511, "65537", "sign", 0},
        {"for decryption", {"--usage", "decrypt"}, 512, "65537", "decrypt", 0},
        {"two files of trusted keys",
         {"--trust", path("root.pem"), "--trust", vector_path("armour/01.pem")},
         512,
         "65537",
         "both",
         2},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        const std::string file = path("new.KEYPKG");
        unlink(file.c_str());
        make("new.KEYPKG", "id 1", row.words);
        struct stat about;
        ASSERT_EQ(stat(file.c_str(), &about), 0);
        EXPECT_EQ(about.st_mode & 0777, 0600U);
        EXPECT_TRUE(text_of(read_file(file)).starts_with("-----BEGIN KEYPKG-----\n"));

        const Json package = shown("new.KEYPKG");
        EXPECT_EQ(package["id"], "id 1");
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
        const Ran exported = qel({"keypkg", "export", "--unencrypted", "--force", "-o",
                                  path("new.p8"), "--passin", phrase(), file});
        EXPECT_EQ(exported.exit, 0) << exported.err;
        const Ran checked = openssl({"pkey", "-inform", "DER", "-in", path("new.p8"), "-check"});
        EXPECT_TRUE(holds(checked.out, "valid")) << checked.out;
        const Ran text =
            openssl({"rsa", "-inform", "DER", "-in", path("new.p8"), "-noout", "-text"});
        EXPECT_TRUE(holds(text.out, "(" + std::to_string(row.bits) + " bit")) << text.out;
    }
}

TEST_F(KeyPkg, SaltsAndKeysDifferAndDefaultWorkIsMeasured) {
    const Ran ran = qel({"keygen", "--owner", "CN=Alice", "--passin", phrase(), "--json", "-o",
                         path("measured.KEYPKG")});
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
    openssl({"rsa", "-traditional", "-in", path("1024"), "-out", path("pkcs1.pem")});
    openssl(
        {"rsa", "-traditional", "-in", path("1024"), "-outform", "DER", "-out", path("pkcs1.der")});
    for (const char *name : {"512", "1024", "2048", "1024.der", "pkcs1.pem", "pkcs1.der"}) {
        SCOPED_TRACE(name);
        chmod(path(name).c_str(), 0600);
        const Ran in = qel({"keypkg", "import", "--owner", "CN=Import", "--iterations", "1000",
                            "--passin", phrase(), "--force", "-o", path("in.KEYPKG"), path(name)});
        EXPECT_EQ(in.exit, 0) << in.err;
        for (const auto &[form, option] : {std::pair("der", "DER"), {"pem", "PEM"}}) {
            const std::string file = path(std::string("out.") + form);
            unlink(file.c_str());
            const Ran out = qel({"keypkg", "export", "--unencrypted", "--form", form, "-o", file,
                                 "--passin", phrase(), path("in.KEYPKG")});
            EXPECT_EQ(out.exit, 0) << out.err;
            EXPECT_TRUE(holds(out.err, "no pass phrase protects it")) << out.err;
            EXPECT_EQ(out.out, "");
            struct stat about;
            ASSERT_EQ(stat(file.c_str(), &about), 0);
            EXPECT_EQ(about.st_mode & 0777, 0600U);
            EXPECT_EQ(openssl({"pkey", "-inform", option, "-in", file}).out,
                      openssl({"pkey", "-in", path(name)}).out);
        }
    }
}

TEST_F(KeyPkg, PrivateKeysThatCannotBecomePackagesAreRefused) {
    openssl({"genpkey", "-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256", "-out",
             path("ec.pem")});
    Bytes spoiled = read_file(path("1024.der"));
    write_secret("cut.der", Bytes(spoiled.begin(), spoiled.end() - 1));
    spoiled[spoiled.size() - 3] ^= 1; // in the CRT coefficient
    write_secret("spoiled.der", spoiled);
    const struct {
        const char *reason;
        std::string key;
        const char *told;
    } rows[] = {
        {"another kind of key", path("ec.pem"), "no RSA key"},
        {"cut", path("cut.der"), "cannot read a private key"},
        {"numbers that do not fit", path("spoiled.der"), ""},
        {"encrypted", vector_path("pkcs8/pkcs8v1_rsa_md5_des1.der"), "pbeWithMD5AndDES-CBC"},
        {"a key package", path("alice.KEYPKG"), "in a key package already"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        const Ran ran = qel({"keypkg", "import", "--owner", "CN=A", "--iterations", "1000",
                             "--passin", phrase(), "-o", path("none.KEYPKG"), row.key});
        EXPECT_EQ(ran.exit, 3) << ran.err;
        EXPECT_TRUE(holds(ran.out + ran.err, row.told)) << ran.out << ran.err;
        EXPECT_NE(access(path("none.KEYPKG").c_str(), F_OK), 0);
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
    const std::string alice = path("alice.KEYPKG");
    setenv("QEL_TEST_EMPTY", "", 1);
    ASSERT_EQ(qel({"keypkg", "export", "--unencrypted", "-o", path("alice.p8"), "--passin",
                   phrase(), alice})
                  .exit,
              0);
    Bytes damaged = read_file(alice);
    auto digit = damaged.end() - 36; // in the signature, before the END line
    while (!std::isalnum(*digit))
        --digit;
    *digit = *digit == 'A' ? 'B' : 'A';
    write_secret("damaged.KEYPKG", damaged);
    write_secret("costly.KEYPKG",
                 with_iterations(read_file(alice), read_file(path("alice.p8")), 0xFFFFFFFF));
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
    const Bytes before = read_file(alice);
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        std::vector<std::string> words = split(row.words);
        for (std::string &word : words)
            if (const std::size_t at = word.find('$'); at != word.npos)
                word = word.substr(0, at) + path(word.substr(at + 1));
        const auto begin = std::chrono::steady_clock::now();
        const Ran ran = qel(words);
        EXPECT_EQ(ran.exit, row.exit) << ran.err;
        EXPECT_TRUE(holds(ran.out + ran.err, row.told)) << ran.out << ran.err;
        EXPECT_FALSE(holds(ran.out + ran.err, right_phrase));
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
        EXPECT_NE(access(path("none.KEYPKG").c_str(), F_OK), 0);
        EXPECT_EQ(read_file(alice), before);
    }
}

TEST_F(KeyPkg, SourcesOfPassPhrasesGiveTheSamePhrase) {
    setenv("QEL_TEST_PHRASE", right_phrase, 1);
    How how;
    how.input = bytes_of(std::string(right_phrase) + "\nnot read");
    const std::string file = path("alice.KEYPKG");
    EXPECT_EQ(qel({"keypkg", "verify", "--passin", "fd:0", file}, how).exit, 0);
    EXPECT_EQ(qel({"keypkg", "verify", "--passin", "env:QEL_TEST_PHRASE", file}).exit, 0);
    how.input = read_file(file);
    EXPECT_EQ(qel({"keypkg", "verify", "--passin", phrase(), "-"}, how).exit, 0);
    // Without a terminal there is no prompt, and standard input is not taken for one.
    how.input = bytes_of(std::string(right_phrase) + "\n");
    const Ran ran = run_program(
        {"setsid", "-w", QEL_TOOL, "keypkg", "verify", "--passin", "prompt", file}, how);
    EXPECT_EQ(ran.exit, 2) << ran.err;
    EXPECT_TRUE(holds(ran.err, "no terminal")) << ran.err;
}

TEST_F(KeyPkg, UnlockedKeyServesTheCommandsThatItsUsageAllows) {
    make("sign.KEYPKG", "only", {"--usage", "sign"});
    make("decrypt.KEYPKG", "only", {"--usage", "decrypt"});
    const std::string data = path("phrase"), key = path("session.key");
    write_secret("session.key", from_hex("0102030405"));
    const auto run = [&](std::vector<std::string> words, const char *package, const char *source) {
        words.insert(words.end(), {"-k", path(package), "--passin", phrase(source)});
        return qel(words);
    };
    for (const char *form : {"der", "pem"})
        for (const char *package : {"sign", "decrypt"}) {
            const Ran ran = qel({"keypkg", "export", "--public", "--form", form, "-o",
                                 path(std::string(package) + "." + form),
                                 path(std::string(package) + ".KEYPKG")});
            ASSERT_EQ(ran.exit, 0) << ran.err;
        }
    EXPECT_EQ(qel({"keypkg", "export", "--public", "--json", "-o", "-", path("sign.KEYPKG")})
                  .json()["hex"],
              to_hex(read_file(path("sign.der"))));
    const std::vector<std::string> sign = {"sign", "-o", path("made.sig"), data};
    ASSERT_EQ(run(sign, "sign.KEYPKG", "phrase").exit, 0);
    openssl({"dgst", "-md5", "-verify", path("sign.pem"), "-signature", path("made.sig"), data});
    EXPECT_EQ(run(sign, "sign.KEYPKG", "wrong").exit, 6);
    EXPECT_EQ(run(sign, "decrypt.KEYPKG", "phrase").exit, 9);

    ASSERT_EQ(qel({"wrap", "-t", path("decrypt.der"), "-o", path("wrapped"), key}).exit, 0);
    const std::vector<std::string> unwrap = {"unwrap", "--force", "-o", path("unwrapped"),
                                             path("wrapped")};
    EXPECT_EQ(run(unwrap, "decrypt.KEYPKG", "phrase").exit, 0);
    EXPECT_EQ(read_file(path("unwrapped")), read_file(key));
    EXPECT_EQ(run(unwrap, "sign.KEYPKG", "phrase").exit, 9);

    ASSERT_EQ(qel({"encrypt", "-t", path("decrypt.pem"), "-o", path("data.p7"), data}).exit, 0);
    const std::vector<std::string> decrypt = {"decrypt", "-o", path("data.out"), path("data.p7")};
    EXPECT_EQ(run(decrypt, "decrypt.KEYPKG", "phrase").exit, 0);
    EXPECT_EQ(read_file(path("data.out")), read_file(data));
    EXPECT_EQ(run(decrypt, "sign.KEYPKG", "phrase").exit, 9);
}

TEST_F(KeyPkg, NothingThatIsPrintedHoldsTheKey) {
    const std::string file = path("alice.KEYPKG");
    unlink(path("shown.p8").c_str());
    ASSERT_EQ(qel({"keypkg", "export", "--unencrypted", "-o", path("shown.p8"), "--passin",
                   phrase(), file})
                  .exit,
              0);
    const std::string key = to_hex(read_file(path("shown.p8")));
    const std::string tail = key.substr(key.size() - 64); // in the CRT coefficient
    for (const std::string option : {"--batch", "--full", "--json"}) {
        const Ran shown = qel({"keypkg", "show", option, file});
        EXPECT_EQ(shown.exit, 0) << shown.err;
        EXPECT_FALSE(holds(shown.out, tail));
        EXPECT_EQ(holds(shown.out, "\n  Private key: Not displayed\n"), option == "--full");
        EXPECT_TRUE(holds(shown.out, "pbeWithMD5AndDES3-CBC")) << shown.out;
    }
}

// ---- Changing ----------------------------------------------------------------------------------

TEST_F(KeyPkg, NewPhraseOpensAndTheOtherContentsOfTheFileStay) {
    make("several.KEYPKG", "first");
    make("several.KEYPKG", "second", {"--add"});
    write_secret("several.KEYPKG",
                 bytes_of("A heading.\n" + text_of(read_file(path("several.KEYPKG"))) +
                          "The end, without a line feed"));
    make("several.KEYPKG", "third", {"--add"});
    const std::string before = text_of(read_file(path("several.KEYPKG")));
    const Ran unsaid = qel({"keypkg", "verify", path("several.KEYPKG")});
    EXPECT_EQ(unsaid.exit, 2);
    EXPECT_TRUE(holds(unsaid.err, "'first', 'second', 'third'")) << unsaid.err;

    How how;
    how.input = read_file(path("both"));
    const Ran ran = qel({"keypkg", "passwd", "--id", "second", "--passin", "fd:0", "--new-passin",
                         "fd:0", path("several.KEYPKG")},
                        how);
    ASSERT_EQ(ran.exit, 0) << ran.err;
    EXPECT_EQ(opens("several.KEYPKG", "other", {"--id", "second"}), 0);
    EXPECT_EQ(opens("several.KEYPKG", "phrase", {"--id", "second"}), 6);
    const std::string after = text_of(read_file(path("several.KEYPKG")));
    ASSERT_EQ(after.size(), before.size());
    const std::size_t second = before.find("-----BEGIN KEYPKG-----", 40);
    const std::size_t behind = before.find("The end");
    EXPECT_EQ(after.substr(0, second), before.substr(0, second));
    EXPECT_EQ(after.substr(behind), before.substr(behind));
    EXPECT_NE(after, before);

    // A new package in the place of the second: the others still open.
    make("several.KEYPKG", "second", {"--add", "--force"});
    for (const char *id : {"first", "second", "third"})
        EXPECT_EQ(opens("several.KEYPKG", "phrase", {"--id", id}), 0) << id;
}

TEST_F(KeyPkg, FormOfTheFileIsKept) {
    ASSERT_EQ(qel({"dearmor", "-o", path("form.der"), path("alice.KEYPKG")}).exit, 0);
    ASSERT_EQ(qel({"keypkg", "passwd", "--passin", phrase(), "--new-passin", phrase("other"),
                   path("form.der")})
                  .exit,
              0);
    EXPECT_EQ(read_file(path("form.der"))[0], 0x30);
    EXPECT_EQ(opens("form.der", "other"), 0);
    // From standard input, to standard output.
    How how;
    how.input = read_file(path("form.der"));
    const Ran ran = qel(
        {"keypkg", "passwd", "--passin", phrase("other"), "--new-passin", phrase(), "-o", "-", "-"},
        how);
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
    make("shared.KEYPKG", "right", {"--add"});
    for (int round = 0; round < 10; ++round) {
        const char *from = round % 2 == 0 ? "phrase" : "other";
        const char *to = round % 2 == 0 ? "other" : "phrase";
        const auto change = [&](const char *id) {
            return start({"keypkg", "passwd", "--id", id, "--passin", phrase(from), "--new-passin",
                          phrase(to), path("shared.KEYPKG")});
        };
        const pid_t children[] = {change("left"), change("right")};
        for (const pid_t child : children) {
            int status = 0;
            waitpid(child, &status, 0);
            EXPECT_EQ(status, 0);
        }
        EXPECT_EQ(opens("shared.KEYPKG", to, {"--id", "left"}), 0);
        EXPECT_EQ(opens("shared.KEYPKG", to, {"--id", "right"}), 0);
    }
}

TEST_F(KeyPkg, KilledAtAnyMomentTheFileIsTheOldOneOrTheNewOne) {
    make("killed.KEYPKG", "alice");
    const auto change = [&](const char *from, const char *to) {
        return std::vector<std::string>{
            "keypkg",       "passwd",   "--passin",           phrase(from),
            "--new-passin", phrase(to), path("killed.KEYPKG")};
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
    const Bytes before = read_file(path("full.KEYPKG"));
    const Ran ran = run_program({"bash", "-c", "trap '' XFSZ; ulimit -f 0; exec \"$@\" 2>/dev/null",
                                 "bash", QEL_TOOL, "keypkg", "passwd", "--passin", phrase(),
                                 "--new-passin", phrase("other"), path("full.KEYPKG")});
    EXPECT_EQ(ran.exit, 7);
    EXPECT_EQ(read_file(path("full.KEYPKG")), before);
}

TEST_F(KeyPkg, OwnFileIsInTheHomeFolderAndAHiddenOneServesWhereThereIsNoOther) {
    write_file(path("passwd"), bytes_of("alice:x:0:0::" + path("home") + ":/bin/sh\n"));
    mkdir(path("home").c_str(), 0700);
    // As the one user of a host of its own.
    const auto at_home = [](std::vector<std::string> words) {
        const std::vector<std::string> host = {
            "unshare",      "-rm",   "bash", "-c", "mount --bind \"$0\" /etc/passwd && exec \"$@\"",
            path("passwd"), QEL_TOOL};
        words.insert(words.begin(), host.begin(), host.end());
        return run_program(words);
    };
    if (at_home({"--version"}).exit != 0)
        GTEST_SKIP() << "this host lets nobody have another /etc/passwd";
    const std::string own = path("home/alice.KEYPKG"), hidden = path("home/.alice.KEYPKG");
    const Ran made = at_home({"keygen", "--owner", "CN=Alice", "--iterations", "1000", "--passin",
                              phrase(), "--id", "own"});
    EXPECT_EQ(made.exit, 0) << made.err;
    const auto shown_id = [&] {
        const Ran ran = at_home({"keypkg", "show", "--json"});
        return ran.exit == 0 ? ran.json()["packages"][0]["id"].get<std::string>() : ran.err;
    };
    EXPECT_EQ(shown_id(), "own");
    ASSERT_EQ(rename(own.c_str(), hidden.c_str()), 0);
    EXPECT_EQ(shown_id(), "own");
    make("home/alice.KEYPKG", "visible");
    EXPECT_EQ(shown_id(), "visible");
    ASSERT_EQ(unlink(own.c_str()) + unlink(hidden.c_str()), 0);
    const Ran none = at_home({"keypkg", "show"});
    EXPECT_EQ(none.exit, 4);
    EXPECT_TRUE(holds(none.err, "'qel keygen' makes one")) << none.err;
}

// ---- At a terminal -----------------------------------------------------------------------------

struct Entry {
    const char *prompt, *typed;
};

TEST_F(KeyPkg, PromptsAskOnceAndShowNothing) {
    const std::string made = path("typed.KEYPKG");
    const std::vector<std::string> keygen = {"keygen", "--owner", "CN=A", "--iterations",
                                             "1000",   "-o",      made};
    const std::vector<std::string> verify = {"keypkg", "verify", "--passin", "prompt", made};
    constexpr const char *fresh = "qel: Enter your NEW key package password: ";
    constexpr const char *again = "qel: Reenter your NEW key package password: ";
    constexpr const char *own = "qel: Enter your own key package password: ";
    const struct {
        const char *reason;
        std::vector<std::string> words;
        std::vector<Entry> entries;
        int exit;
        const char *shown;
    } rows[] = {
        {"entries that differ", keygen, {{fresh, "a"}, {again, "b"}}, 6, "different passwords"},
        {"an empty entry", keygen, {{fresh, ""}}, 6, "no pass phrase"},
        {"a new phrase twice",
         keygen,
         {{fresh, right_phrase}, {again, right_phrase}},
         0,
         "rsaEncryption"},
        {"a wrong one is not asked for again", verify, {{own, "a"}}, 6, "phrase is wrong"},
        {"the right one", verify, {{own, right_phrase}}, 0, "unlocked"},
        {"a wrong one from a file leads to no prompt",
         {"keypkg", "verify", "--passin", phrase("wrong"), made},
         {},
         6,
         "phrase is wrong"},
        {"an old one, and a new one twice",
         {"keypkg", "passwd", made},
         {{"qel: Enter your OLD key package password: ", right_phrase},
          {fresh, "another phrase"},
          {again, "another phrase"}},
         0,
         "pass phrase changed"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        TerminalSession terminal([&row] {
            std::vector<std::string> words = row.words;
            words.insert(words.begin(), QEL_TOOL);
            become(words);
        });
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
