// No block that is freed may still hold a piece of a key.
#include "cryptoki/token.h"
#include "qel/signer.h"
#include "support/fault.h"

#include <cryptoki/generate.h>

#include <algorithm>
#include <string>

namespace {

constexpr std::size_t window = 8;
std::vector<std::pair<std::string, Bytes>> secrets;
std::vector<std::string> found;

// Whether a piece of the secret, window bytes long and aligned to that in it, is in the block.
bool holds_piece(const uint8_t *block, std::size_t size, const Bytes &secret) {
    for (std::size_t at = 0; at + window <= secret.size(); at += window) {
        const auto piece = secret.begin() + static_cast<std::ptrdiff_t>(at);
        if (std::search(block, block + size, piece, piece + window) != block + size)
            return true;
    }
    return false;
}

void look_into(const unsigned char *block, std::size_t size) {
    for (const auto &[name, bytes] : secrets)
        if (holds_piece(block, size, bytes))
            found.push_back(name);
}

class WipeTest : public testing::Test {
protected:
    // As it is written, and as the arithmetic holds it, least significant byte first.
    void watch(const std::string &name, const Bytes &bytes) {
        secrets.emplace_back(name, bytes);
        secrets.emplace_back(name + " reversed", Bytes(bytes.rbegin(), bytes.rend()));
    }
    void watch(const RsaKey &key) {
        watch("d", key.private_exponent());
        watch("p", key.prime1());
        watch("q", key.prime2());
        watch("d mod (p - 1)", key.exponent1());
        watch("d mod (q - 1)", key.exponent2());
        watch("1/q mod p", key.coefficient());
    }
    void SetUp() override { fault::watch_free(look_into); }
    void TearDown() override {
        fault::watch_free(nullptr);
        EXPECT_EQ(found, std::vector<std::string>());
        secrets.clear();
        found.clear();
    }

    OwnedSession session = open_session();
    const RsaKey &rsa = RsaKey::of_512_bits();
    uint8_t out[128] = {};
    uint32_t length = 0;
};

TEST_F(WipeTest, TheHookSees) {
    const Bytes secret = from_hex("00112233445566778899aabbccddeeff");
    watch("secret", secret);
    CK_ATTRIBUTE attribute = {CKA_VALUE, nullptr, 0};
    toolkit::ITEM item = {const_cast<uint8_t *>(secret.data()), length_of(secret)};
    ASSERT_EQ(store_item_in_template(&item, CKA_VALUE, &attribute, 0), CKR_OK);
    free(attribute.value);
    EXPECT_EQ(found, std::vector<std::string>{"secret"});
    found.clear();
}

TEST_F(WipeTest, Objects) {
    watch(rsa);
    const Bytes octets = from_hex("0f1e2d3c4b5a69788796a5b4c3d2e1f1");
    watch("secret key", octets);
    private_object(rsa).reset();
    secret_object(octets, CKK_RC4).reset();
}

TEST_F(WipeTest, PrivateKeyInfoThereAndBack) {
    const TestObject key = private_object(rsa);
    watch(rsa);
    uint8_t *ber = nullptr;
    ASSERT_EQ(template_2_privateKeyInfoBer(key->attributes, key->count, &ber, &length), CKR_OK);
    explicit_bzero(ber, length);
    free(ber);
}

TEST_F(WipeTest, Operations) {
    const Bytes octets = from_hex("8877665544332211");
    const TestObject private_key = private_object(rsa);
    const TestObject des_key = secret_object(octets, CKK_DES);
    const TestObject public_key = public_object(rsa);
    watch(rsa);
    watch("DES key", octets);
    const CK_MECHANISM rsa_mechanism = {CKM_RSA_PKCS, nullptr, 0};
    const CK_MECHANISM des = {CKM_DES_CBC, out, 8};
    ASSERT_EQ(C_SignInit(session.get(), &rsa_mechanism, private_key.get()), CKR_OK);
    ASSERT_EQ(C_Sign(session.get(), out, 16, out, &length), CKR_OK);
    ASSERT_EQ(C_DecryptInit(session.get(), &rsa_mechanism, private_key.get()), CKR_OK);
    const Bytes wrapped = rsa.encrypt(octets);
    ASSERT_EQ(C_Decrypt(session.get(), wrapped.data(), length_of(wrapped), out, &length), CKR_OK);
    ASSERT_EQ(Bytes(out, out + length), octets);
    ASSERT_EQ(
        C_WrapKey(session.get(), &rsa_mechanism, public_key.get(), des_key.get(), out, &length),
        CKR_OK);
    ASSERT_EQ(C_EncryptInit(session.get(), &des, des_key.get()), CKR_OK);
    ASSERT_EQ(C_Encrypt(session.get(), out, 16, out, &length), CKR_OK);
    session.reset();
}

TEST_F(WipeTest, SeedsOfTheGenerator) {
    ASSERT_EQ(gen_random_alg(session.get()), CKR_OK);
    watch("first seed", Bytes(session->seed, session->seed + session->seed_length));
    ASSERT_EQ(gen_random_alg(session.get()), CKR_OK);
    watch("second seed", Bytes(session->seed, session->seed + session->seed_length));
    session.reset();
}

TEST_F(WipeTest, Signing) {
    const TestContext context;
    const SignerKey key(rsa);
    watch(rsa);
    EXPECT_EQ(key.signature(context, bytes_of("text"), QEL_MODE_FINAL, QEL_MD5WithRSAEncryption_AID)
                  .size(),
              64u);
}

} // namespace
