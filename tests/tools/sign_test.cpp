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
        const std::string key = path("key.pem");
        const std::vector<std::string> made[] = {
            {"pkcs8", "-topk8", "-nocrypt", "-in", key, "-outform", "DER", "-out", path("key.der")},
            {"rsa", "-traditional", "-in", key, "-out", path("pkcs1.pem")},
            {"rsa", "-traditional", "-in", key, "-outform", "DER", "-out", path("pkcs1.der")},
            {"pkey", "-in", key, "-pubout", "-out", path("public.pem")},
            {"pkey", "-in", key, "-pubout", "-outform", "DER", "-out", path("public.der")},
            {"rsa", "-in", key, "-RSAPublicKey_out", "-out", path("rsa.pem")},
            {"rsa", "-in", key, "-RSAPublicKey_out", "-outform", "DER", "-out", path("rsa.der")},
            {"req", "-x509", "-md5", "-key", key, "-subj", "/CN=Signer", "-out", path("cert.pem")},
            {"pkey", "-in", path("other.pem"), "-pubout", "-out", path("other-public.pem")},
        };
        for (const auto &words : made)
            openssl(words);
        oracle_signs("key.pem", "good.sig", "data");
        for (const char *name : {"key.pem", "key.der", "pkcs1.pem", "pkcs1.der"})
            chmod(path(name).c_str(), 0600);
    }
    static void make_key(const std::string &name, const std::string &exponent) {
        openssl({"genpkey", "-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:1024", "-pkeyopt",
                 "rsa_keygen_pubexp:" + exponent, "-out", path(name)});
    }
    static void oracle_signs(const char *key, const char *signature, const char *data) {
        openssl({"dgst", "-md5", "-sign", path(key), "-out", path(signature), path(data)});
    }
    static void oracle_verifies(const char *signature, const char *data) {
        openssl({"dgst", "-md5", "-verify", path("public.pem"), "-signature", path(signature),
                 path(data)});
    }
    static std::vector<std::string> verify_words(const char *data, const char *signature,
                                                 const char *key) {
        return {"verify", "-s", path(signature), "-k", path(key), path(data)};
    }
    static std::vector<std::string> sign_words(const std::string &key) {
        return {"sign", "-k", path(key), "-o", path("made.sig"), path("data")};
    }
};

TEST_F(Sign, SignaturesAreTheOraclesWhateverTheSize) {
    for (const std::size_t size : {0U, 1U, 63U, 64U, 262144U, 262145U, 1000000U}) {
        SCOPED_TRACE(size);
        write_file(path("sized"), sample(size));
        oracle_signs("key.pem", "oracle.sig", "sized");
        const Ran ran = qel({"sign", "-k", path("key.der"), "-o", path("ours.sig"), path("sized")});
        EXPECT_EQ(ran.exit, 0) << ran.err;
        EXPECT_EQ(ran.err, "");
        EXPECT_EQ(to_hex(read_file(path("ours.sig"))), to_hex(read_file(path("oracle.sig"))));
        oracle_verifies("ours.sig", "sized");
        EXPECT_EQ(qel(verify_words("sized", "oracle.sig", "public.pem")).exit, 0);
    }
}

TEST_F(Sign, EveryFormOfAKeyMakesTheSameSignature) {
    write_file(path("around.pem"),
               bytes_of("Subject: my key\n\n" + text_of(read_file(path("cert.pem"))) + "then\r\n" +
                        text_of(read_file(path("key.pem"))) + "and more\n"));
    chmod(path("around.pem").c_str(), 0600);
    for (const char *key : {"key.pem", "key.der", "pkcs1.pem", "pkcs1.der", "around.pem"}) {
        const Ran ran = qel(sign_words(key));
        EXPECT_EQ(ran.exit, 0) << key << ran.err;
        EXPECT_EQ(read_file(path("made.sig")), read_file(path("good.sig"))) << key;
    }
    EXPECT_EQ(qel({"sign", "-k", "-", path("data")}, {.input = read_file(path("key.pem"))}).out,
              text_of(read_file(path("good.sig"))));
}

TEST_F(Sign, EveryFormOfPublicKeyAndSignatureVerifies) {
    const Ran armour = qel({"sign", "-k", path("key.der"), "--armor", path("data")});
    EXPECT_EQ(armour.exit, 0) << armour.err;
    write_file(path("armoured.sig"), bytes_of(armour.out));
    write_file(path("behind.sig"), bytes_of(text_of(read_file(path("cert.pem"))) + armour.out));
    for (const char *signature : {"good.sig", "armoured.sig", "behind.sig"}) {
        for (const auto &[option, key] : {std::pair("-k", "public.pem"),
                                          {"-k", "public.der"},
                                          {"-k", "rsa.pem"},
                                          {"-k", "rsa.der"},
                                          {"-c", "cert.pem"}}) {
            const Ran ran = qel({"verify", "-s", path(signature), option, path(key), path("data")});
            EXPECT_EQ(ran.exit, 0) << signature << key << ran.err;
            EXPECT_TRUE(holds(ran.out, ": verified, md5WithRSAEncryption")) << ran.out;
        }
    }
    EXPECT_EQ(qel({"dearmor", "--json", path("rsa.pem")}).exit, 0) << "it is no private key";
    const Ran json = qel({"verify", "--json", "-s", path("good.sig"), "-k", path("public.der")},
                         {.input = read_file(path("data"))});
    EXPECT_EQ(json.exit, 0);
    EXPECT_EQ(json.json()["verified"], true);
    EXPECT_EQ(json.json()["key_bits"], 1024);
    EXPECT_EQ(qel({"sign", "--json", "-k", path("key.der"), path("data")}).json()["signature"],
              to_hex(read_file(path("good.sig"))));
}

TEST_F(Sign, SmallExponentsAreWarnedOf) {
    for (const auto &[exponent, warned] :
         {std::pair("3", true), {"65535", true}, {"65537", false}}) {
        SCOPED_TRACE(exponent);
        make_key("small.pem", exponent);
        openssl({"pkey", "-in", path("small.pem"), "-pubout", "-out", path("small.pub")});
        oracle_signs("small.pem", "small.sig", "data");
        const std::string told = std::string("public exponent ") + exponent + ":";
        auto words = verify_words("data", "small.sig", "small.pub");
        const Ran plain = qel(words);
        EXPECT_EQ(plain.exit, 0) << plain.err;
        EXPECT_EQ(holds(plain.err, told), warned) << plain.err;
        words.push_back("--json");
        const Json json = qel(words).json();
        EXPECT_EQ(json["key_exponent"], exponent);
        EXPECT_EQ(holds(json["notes"].dump(), told), warned) << json;
    }
}

TEST_F(Sign, WhatDoesNotBelongTogetherIsRefused) {
    Bytes data = read_file(path("data")), signature = read_file(path("good.sig"));
    data[299999] ^= 1;
    write_file(path("changed"), data);
    write_file(path("nothing"), {});
    signature[64] ^= 0x10;
    write_file(path("flipped.sig"), signature);
    signature[64] ^= 0x10;
    signature.pop_back();
    write_file(path("cut.sig"), signature);
    EXPECT_EQ(
        qel({"sign", "-a", "md2", "-k", path("key.der"), "-o", path("md2.sig"), path("data")}).exit,
        0);
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
        auto words = verify_words(row.data, row.signature, row.key);
        words.insert(words.end(), {"-a", row.algorithm});
        const Ran ran = qel(words);
        EXPECT_EQ(ran.exit, row.exit) << ran.err;
        EXPECT_EQ(holds(ran.out, ": NOT verified: status 16 QEL_ERR_VERIFY"), row.exit != 0)
            << ran.out;
        words.push_back("--json");
        const Ran told = qel(words);
        EXPECT_EQ(told.exit, row.exit);
        EXPECT_EQ(told.json()["verified"], row.exit == 0);
        EXPECT_EQ(told.json()["status"]["number"], row.exit == 0 ? 0 : 16);
    }
}

TEST_F(Sign, KeyUnderTheOldIdentifierVerifiesAndIsSaid) {
    // rsaEncryption with NULL becomes 2.5.8.1.1 with a key size; the outer length (81 xx) follows.
    Bytes key = read_file(path("public.der"));
    const Bytes encryption = from_hex("300d06092a864886f70d0101010500");
    const Bytes annex = from_hex("300a060455080101 02020400");
    const auto found = std::search(key.begin(), key.end(), encryption.begin(), encryption.end());
    ASSERT_NE(found, key.end());
    key.insert(key.erase(found, found + static_cast<long>(encryption.size())), annex.begin(),
               annex.end());
    key[2] = static_cast<uint8_t>(key.size() - 3);
    write_file(path("annex.der"), key);
    const Ran ran = qel(verify_words("data", "good.sig", "annex.der"));
    EXPECT_EQ(ran.exit, 0) << ran.err;
    EXPECT_TRUE(holds(ran.err, "2.5.8.1.1")) << ran.err;
}

TEST_F(Sign, EncryptedKeysAreRefusedWithTheReason) {
    openssl({"rsa", "-traditional", "-aes128", "-passout", "pass:x", "-in", path("key.pem"), "-out",
             path("headers.pem")});
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
    write_file(path("open.der"), read_file(path("key.der")));
    for (const auto &[mode, warned] :
         {std::pair(0600, false), {0400, false}, {0640, true}, {0604, true}}) {
        chmod(path("open.der").c_str(), static_cast<mode_t>(mode));
        const Ran ran = qel(sign_words("open.der"));
        EXPECT_EQ(ran.exit, 0) << ran.err;
        EXPECT_EQ(holds(ran.err, "open to others"), warned) << std::oct << mode;
    }
    chmod(path("public.pem").c_str(), 0644);
    EXPECT_FALSE(holds(qel(sign_words("public.pem")).err, "open to others")) << "no private key";
}

TEST_F(Sign, OutputThatCannotBeWrittenIsStatusSeven) {
    const std::string good = path("data");
    const Ran full = qel({"sign", "-k", path("key.der"), "-o", "/dev/full", good});
    EXPECT_EQ(full.exit, 7);
    EXPECT_TRUE(holds(full.err, "'/dev/full': No space left")) << full.err;
    EXPECT_EQ(qel({"sign", "-k", path("key.der"), "-o", path("no/such"), good}).exit, 7);
    EXPECT_EQ(qel({"sign", "-k", path("key.der"), good}, {.output_file = "/dev/full"}).exit, 7);
}

TEST_F(Sign, LargeFilesTakeLittleMemory) {
    const std::string large = path("large");
    write_file(large, bytes_of("a beginning"));
    constexpr long size = 100L << 20;
    ASSERT_EQ(truncate(large.c_str(), size), 0);
    const Ran signing = qel({"sign", "-k", path("key.der"), "-o", path("large.sig"), large});
    EXPECT_EQ(signing.exit, 0) << signing.err;
    oracle_verifies("large.sig", "large");
    const Ran verifying = qel(verify_words("large", "large.sig", "public.pem"));
    EXPECT_EQ(verifying.exit, 0) << verifying.err;
    RecordProperty("signing_peak_kib", static_cast<int>(signing.peak_kib));
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LT(signing.peak_kib, 32 << 10);
    EXPECT_LT(verifying.peak_kib, 32 << 10);
#endif
    unlink(large.c_str());
}

} // namespace
