// qel sign and qel verify, with OpenSSL's command line as the oracle both ways.
#include "tools/run.h"

#include <sys/stat.h>

namespace {

// An RSA key in all the forms in which people have keys.
class Sign : public SharedFolder {
protected:
    static void SetUpTestSuite() {
        make_key("key.pem", "65537");
        make_key("other.pem", "65537");
        write_file(path("data"), sample(300000));
        for (const char *line : {"pkcs8 -topk8 -nocrypt -in $key.pem -outform DER -out $key.der",
                                 "rsa -traditional -in $key.pem -out $pkcs1.pem",
                                 "rsa -traditional -in $key.pem -outform DER -out $pkcs1.der",
                                 "pkey -in $key.pem -pubout -out $public.pem",
                                 "pkey -in $key.pem -pubout -outform DER -out $public.der",
                                 "rsa -in $key.pem -RSAPublicKey_out -out $rsa.pem",
                                 "rsa -in $key.pem -RSAPublicKey_out -outform DER -out $rsa.der",
                                 "req -x509 -md5 -key $key.pem -subj /CN=Signer -out $cert.pem",
                                 "pkey -in $other.pem -pubout -out $other-public.pem"})
            oracle(line);
        oracle_signs("key.pem", "good.sig", "data");
        for (const char *name : {"key.pem", "key.der", "pkcs1.pem", "pkcs1.der"})
            chmod(path(name).c_str(), 0600);
    }
    static void make_key(const std::string &name, const std::string &exponent) {
        oracle("genpkey -algorithm RSA -pkeyopt rsa_keygen_bits:1024 -pkeyopt rsa_keygen_pubexp:" +
               exponent + " -out $" + name);
    }
    static void oracle_signs(const std::string &key, const std::string &signature,
                             const std::string &data) {
        oracle("dgst -md5 -sign $" + key + " -out $" + signature + " $" + data);
    }
    static void oracle_verifies(const std::string &signature, const std::string &data) {
        oracle("dgst -md5 -verify $public.pem -signature $" + signature + " $" + data);
    }
    static std::string verify_line(const std::string &data, const std::string &signature,
                                   const std::string &key) {
        return "verify -s $" + signature + " -k $" + key + " $" + data;
    }
};

TEST_F(Sign, SignaturesAreTheOraclesWhateverTheSize) {
    for (const std::size_t size : {0U, 1U, 63U, 64U, 262144U, 262145U, 1000000U}) {
        SCOPED_TRACE(size);
        write_file(path("sized"), sample(size));
        oracle_signs("key.pem", "oracle.sig", "sized");
        const Ran ran = run("sign -k $key.der -o $ours.sig $sized");
        EXPECT_EQ(ran.exit, 0) << ran.err;
        EXPECT_EQ(ran.err, "");
        EXPECT_EQ(to_hex(contents("ours.sig")), to_hex(contents("oracle.sig")));
        oracle_verifies("ours.sig", "sized");
        must(verify_line("sized", "oracle.sig", "public.pem"));
    }
}

TEST_F(Sign, EveryFormOfAKeyMakesTheSameSignature) {
    write_file(path("around.pem"), bytes_of("Subject: my key\n\n" + text("cert.pem") + "then\r\n" +
                                            text("key.pem") + "and more\n"));
    chmod(path("around.pem").c_str(), 0600);
    for (const std::string key : {"key.pem", "key.der", "pkcs1.pem", "pkcs1.der", "around.pem"}) {
        must("sign -o $made.sig $data -k $" + key);
        EXPECT_EQ(contents("made.sig"), contents("good.sig")) << key;
    }
    EXPECT_EQ(run("sign -k - $data", {.input = contents("key.pem")}).out, text("good.sig"));
}

TEST_F(Sign, EveryFormOfPublicKeyAndSignatureVerifies) {
    const Ran armour = run("sign -k $key.der --armor $data");
    EXPECT_EQ(armour.exit, 0) << armour.err;
    write_file(path("armoured.sig"), bytes_of(armour.out));
    write_file(path("behind.sig"), bytes_of(text("cert.pem") + armour.out));
    for (const std::string signature : {"good.sig", "armoured.sig", "behind.sig"})
        for (const std::string key :
             {"-k $public.pem", "-k $public.der", "-k $rsa.pem", "-k $rsa.der", "-c $cert.pem"}) {
            const Ran ran = run("verify -s $" + signature + " " + key + " $data");
            EXPECT_EQ(ran.exit, 0) << signature << key << ran.err;
            EXPECT_TRUE(holds(ran.out, ": verified, md5WithRSAEncryption")) << ran.out;
        }
    EXPECT_EQ(run("dearmor --json $rsa.pem").exit, 0) << "it is no private key";
    const Ran json = run("verify --json -s $good.sig -k $public.der", {.input = contents("data")});
    EXPECT_EQ(json.exit, 0);
    EXPECT_EQ(json.json()["verified"], true);
    EXPECT_EQ(json.json()["key_bits"], 1024);
    EXPECT_EQ(run("sign --json -k $key.der $data").json()["signature"],
              to_hex(contents("good.sig")));
}

TEST_F(Sign, SmallExponentsAreWarnedOf) {
    for (const auto &[exponent, warned] :
         {std::pair("3", true), {"65535", true}, {"65537", false}}) {
        SCOPED_TRACE(exponent);
        make_key("small.pem", exponent);
        oracle("pkey -in $small.pem -pubout -out $small.pub");
        oracle_signs("small.pem", "small.sig", "data");
        const std::string told = std::string("public exponent ") + exponent + ":";
        const std::string line = verify_line("data", "small.sig", "small.pub");
        const Ran plain = run(line);
        EXPECT_EQ(plain.exit, 0) << plain.err;
        EXPECT_EQ(holds(plain.err, told), warned) << plain.err;
        const Json json = run(line + " --json").json();
        EXPECT_EQ(json["key_exponent"], exponent);
        EXPECT_EQ(holds(json["notes"].dump(), told), warned) << json;
    }
}

TEST_F(Sign, WhatDoesNotBelongTogetherIsRefused) {
    Bytes data = contents("data"), signature = contents("good.sig");
    data[299999] ^= 1;
    write_file(path("changed"), data);
    write_file(path("nothing"), {});
    signature[64] ^= 0x10;
    write_file(path("flipped.sig"), signature);
    signature[64] ^= 0x10;
    signature.pop_back();
    write_file(path("cut.sig"), signature);
    must("sign -a md2 -k $key.der -o $md2.sig $data");
    const struct {
        const char *reason;
        const char *data, *signature, *key, *algorithm;
        int exit;
    } rows[] = {
        {"all is well", "data", "good.sig", "public.pem", "md5", 0},
        {"a bit of the data's last byte", "changed", "good.sig", "public.pem", "md5", 1},
        {"no data at all", "nothing", "good.sig", "public.pem", "md5", 1},
        {"a bit of the signature", "data", "flipped.sig", "public.pem", "md5", 1},
        {"a signature that is cut", "data", "cut.sig", "public.pem", "md5", 1},
        {"another key", "data", "good.sig", "other-public.pem", "md5", 1},
        {"another algorithm", "data", "good.sig", "public.pem", "md2", 1},
        {"MD2 is well", "data", "md2.sig", "public.pem", "md2", 0},
        {"MD2 taken for MD5", "data", "md2.sig", "public.pem", "md5", 1},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        const std::string line =
            verify_line(row.data, row.signature, row.key) + " -a " + row.algorithm;
        const Ran ran = run(line);
        EXPECT_EQ(ran.exit, row.exit) << ran.err;
        EXPECT_EQ(holds(ran.out, ": NOT verified: status 16 QEL_ERR_VERIFY"), row.exit != 0)
            << ran.out;
        const Ran told = run(line + " --json");
        EXPECT_EQ(told.exit, row.exit);
        EXPECT_EQ(told.json()["verified"], row.exit == 0);
        EXPECT_EQ(told.json()["status"]["number"], row.exit == 0 ? 0 : 16);
    }
}

TEST_F(Sign, KeyUnderTheOldIdentifierVerifiesAndIsSaid) {
    // rsaEncryption with NULL becomes 2.5.8.1.1 with a key size; the outer length (81 xx) follows.
    Bytes key = contents("public.der");
    const Bytes encryption = from_hex("300d06092a864886f70d0101010500");
    const Bytes annex = from_hex("300a060455080101 02020400");
    const auto found = std::search(key.begin(), key.end(), encryption.begin(), encryption.end());
    ASSERT_NE(found, key.end());
    key.insert(key.erase(found, found + static_cast<long>(encryption.size())), annex.begin(),
               annex.end());
    key[2] = static_cast<uint8_t>(key.size() - 3);
    write_file(path("annex.der"), key);
    const Ran ran = run(verify_line("data", "good.sig", "annex.der"));
    EXPECT_EQ(ran.exit, 0) << ran.err;
    EXPECT_TRUE(holds(ran.err, "2.5.8.1.1")) << ran.err;
}

TEST_F(Sign, EncryptedKeysAreRefusedWithTheReason) {
    oracle("rsa -traditional -aes128 -passout pass:x -in $key.pem -out $headers.pem");
    const struct {
        const char *reason;
        std::string key;
        const char *told;
    } rows[] = {
        {"PKCS#8", vector_path("pkcs8/pkcs8v1_rsa_md5_des1.der"), "pbeWithMD5AndDES-CBC"},
        {"PKCS#8, armoured", vector_path("pkcs8/pkcs8-pbes1-des-md5.pem"), "pbeWithMD5AndDES-CBC"},
        {"RFC 1421 header lines", path("headers.pem"), "header lines"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        const Ran ran = qel({"sign", "-k", row.key, path("data")});
        EXPECT_EQ(ran.exit, 3);
        EXPECT_EQ(ran.out, "");
        EXPECT_TRUE(holds(ran.err, "encrypted") && holds(ran.err, row.told)) << ran.err;
        EXPECT_TRUE(holds(ran.err, "unencrypted PKCS#8")) << ran.err;
    }
}

TEST_F(Sign, KeyThatOthersCanReadIsWarnedOf) {
    write_file(path("open.der"), contents("key.der"));
    for (const auto &[mode, warned] :
         {std::pair(0600, false), {0400, false}, {0640, true}, {0604, true}}) {
        chmod(path("open.der").c_str(), static_cast<mode_t>(mode));
        const Ran ran = run("sign -k $open.der -o $made.sig $data");
        EXPECT_EQ(ran.exit, 0) << ran.err;
        EXPECT_EQ(holds(ran.err, "open to others"), warned) << std::oct << mode;
    }
    chmod(path("public.pem").c_str(), 0644);
    EXPECT_FALSE(holds(run("sign -k $public.pem -o $made.sig $data").err, "open to others"))
        << "no private key";
}

TEST_F(Sign, OutputThatCannotBeWrittenIsStatusSeven) {
    const Ran full = run("sign -k $key.der -o /dev/full $data");
    EXPECT_EQ(full.exit, 7);
    EXPECT_TRUE(holds(full.err, "'/dev/full': No space left")) << full.err;
    EXPECT_EQ(run("sign -k $key.der -o $no/such $data").exit, 7);
    EXPECT_EQ(run("sign -k $key.der $data", {.output_file = "/dev/full"}).exit, 7);
}

TEST_F(Sign, LargeFilesTakeLittleMemory) {
    const std::string large = path("large");
    write_file(large, bytes_of("a beginning"));
    constexpr long size = 100L << 20;
    ASSERT_EQ(truncate(large.c_str(), size), 0);
    const Ran signing = run("sign -k $key.der -o $large.sig $large");
    EXPECT_EQ(signing.exit, 0) << signing.err;
    oracle_verifies("large.sig", "large");
    const Ran verifying = run(verify_line("large", "large.sig", "public.pem"));
    EXPECT_EQ(verifying.exit, 0) << verifying.err;
    RecordProperty("signing_peak_kib", static_cast<int>(signing.peak_kib));
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(signing.peak_kib, 32 << 10);
    EXPECT_LT(verifying.peak_kib, 32 << 10);
#endif
    unlink(large.c_str());
}

} // namespace
