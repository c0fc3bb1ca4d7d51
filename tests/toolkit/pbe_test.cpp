// Password-based encryption: published derivations, and PKCS#8 files that others made.
#include "objects.h"
#include "support/vectors.h"

#include <openssl/pem.h>
#include <openssl/sha.h>
#include <openssl/x509.h>

namespace toolkit {
namespace {

struct FreeInfo {
    void operator()(X509_SIG *info) const { X509_SIG_free(info); }
};

// The algorithm and the encrypted octets of an EncryptedPrivateKeyInfo, by libcrypto.
void take_apart(const std::string &name, Bytes *algorithm, Bytes *encrypted) {
    const Bytes file = vector_file(name);
    std::unique_ptr<X509_SIG, FreeInfo> info;
    if (name.ends_with(".pem")) {
        BIO *bio = BIO_new_mem_buf(file.data(), static_cast<int>(file.size()));
        info.reset(PEM_read_bio_PKCS8(bio, nullptr, nullptr, nullptr));
        BIO_free(bio);
    } else {
        const uint8_t *at = file.data();
        info.reset(d2i_X509_SIG(nullptr, &at, static_cast<long>(file.size())));
    }
    ASSERT_NE(info, nullptr) << name;
    const X509_ALGOR *identifier;
    const ASN1_OCTET_STRING *octets;
    X509_SIG_get0(info.get(), &identifier, &octets);
    uint8_t *der = nullptr;
    const int size = i2d_X509_ALGOR(identifier, &der);
    algorithm->assign(der, der + size);
    OPENSSL_free(der);
    encrypted->assign(octets->data, octets->data + octets->length);
}

std::string decrypt(B_INFO_TYPE type, const Bytes &algorithm, const std::string &password,
                    const Bytes &encrypted, Bytes *plain) {
    const ITEM item = item_of(algorithm);
    const Algorithm_ object(type, &item);
    const Key_ key(bytes_of(password));
    EXPECT_EQ(begin(Step::decrypt, object, key), BE_OK);
    return error_name(feed(Step::decrypt, object, encrypted, plain));
}

// What SHA-256 of the plain text begins with is recorded with the vectors.
TEST(PasswordBasedEncryption, OpensPrivateKeysOfOthers) {
    const std::string rsa = "1b88fad5138b91a30dfbb3f45fa80e42",
                      dsa = "4da47143c0ba2bdb10cb26ec5c843282",
                      other_rsa = "db5cb82614188031e190dca75c55b283";
    const struct {
        const char *file;
        B_INFO_TYPE type;
        const std::string &digest;
        const char *password = "changeit";
    } cases[] = {
        {"pkcs8/pkcs8v1_rsa_md2_des1.der", AI_MD2WithDES_CBCPadBER, rsa},
        {"pkcs8/pkcs8v1_rsa_md5_des1.der", AI_MD5WithDES_CBCPadBER, rsa},
        {"pkcs8/pkcs8v1_rsa_md2_rc2_64.der", AI_MD2WithRC2_CBCPadBER, rsa},
        {"pkcs8/pkcs8v1_rsa_md5_rc2_64.der", AI_MD5WithRC2_CBCPadBER, rsa},
        {"pkcs8/pkcs8v1_rsa_md5_des1.pem", AI_MD5WithDES_CBCPadBER, rsa},
        {"pkcs8/pkcs8v1_rsa_md2_des1.pem", AI_MD2WithDES_CBCPadBER, rsa},
        {"pkcs8/pkcs8v1_dsa_md5_des1_cbc.der", AI_MD5WithDES_CBCPadBER, dsa},
        {"pkcs8/pkcs8-pbes1-des-md5.pem", AI_MD5WithDES_CBCPadBER, other_rsa, "password"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.file);
        Bytes algorithm, encrypted, plain;
        take_apart(row.file, &algorithm, &encrypted);
        ASSERT_EQ(decrypt(row.type, algorithm, row.password, encrypted, &plain), "BE_OK");
        uint8_t digest[32];
        SHA256(plain.data(), plain.size(), digest);
        EXPECT_EQ(to_hex(digest, 16), row.digest);
        const ITEM item = item_of(plain);
        const Key_ key;
        EXPECT_EQ(error_name(B_SetKeyInfo(key, KI_PKCS_RSAPrivateBER, &item)),
                  &row.digest == &dsa ? "BE_DATA" : "BE_OK");
        EXPECT_NE(decrypt(row.type, algorithm, "Changeit", encrypted, &plain), "BE_OK");
    }
}

// PBKDF1's first 8 bytes are the DES key and the other 8 the IV.
TEST(PasswordBasedEncryption, DerivesWhatIsPublished) {
    std::size_t tried = 0;
    for (VectorCase &vector : vector_cases("published/pbe/openssl-pbkdf1.txt")) {
        if (!vector.has("KDF"))
            continue;
        SCOPED_TRACE(vector.line);
        const auto after = [&](const char *name) {
            const std::string text = vector.text(name);
            return text.substr(text.find(':') + 1);
        };
        const std::string digest = after("Ctrl.digest");
        const Bytes salt = bytes_of(after("Ctrl.salt"));
        if ((digest != "md2" && digest != "md5") || salt.size() != 8)
            continue;
        ++tried;
        const auto iterations = static_cast<uint32_t>(std::stoul(after("Ctrl.iter")));
        const A_PBE_PARAMS params = {salt.data(), iterations};
        const Bytes password = bytes_of(after("Ctrl.pass")), derived = vector.bytes("Output");
        const Algorithm_ pbe(digest == "md2" ? AI_MD2WithDES_CBCPad : AI_MD5WithDES_CBCPad,
                             &params);
        const Algorithm_ des(AI_DES_CBCPadIV8, derived.data() + 8);
        const Key_ pbe_key(password), des_key(KI_8Byte, derived.data());
        ASSERT_EQ(begin(Step::encrypt, pbe, pbe_key), BE_OK);
        ASSERT_EQ(begin(Step::encrypt, des, des_key), BE_OK);
        Bytes by_pbe, by_des;
        ASSERT_EQ(feed(Step::encrypt, pbe, password, &by_pbe), BE_OK);
        ASSERT_EQ(feed(Step::encrypt, des, password, &by_des), BE_OK);
        EXPECT_EQ(to_hex(by_pbe), to_hex(by_des));
    }
    EXPECT_GE(tried, 6u);
}

int32_t stop_at_the_third(void *handle) {
    return ++*static_cast<int *>(handle) == 3 ? 1 : 0;
}

TEST(PasswordBasedEncryption, CanBeStopped) {
    const Bytes salt(8, 1);
    const A_PBE_PARAMS params = {salt.data(), 0xffffffff};
    const Algorithm_ object(AI_MD5WithDES_CBCPad, &params);
    const Key_ key(bytes_of("password"));
    int calls = 0;
    const SurrenderContext surrender = {stop_at_the_third, &calls, nullptr};
    EXPECT_EQ(error_name(B_EncryptInit(object, key, every_method, &surrender)), "BE_CANCEL");
    EXPECT_EQ(calls, 3);
}

} // namespace
} // namespace toolkit
