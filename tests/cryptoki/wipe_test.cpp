// No block that is freed may still hold a piece of a key.
#include "cryptoki/token.h"
#include "qel/signer.h"
#include "support/secrets.h"

#include <cryptoki/generate.h>
#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class WipeTest : public testing::Test {
protected:
    void TearDown() override { EXPECT_THAT(watch.take_found(), IsEmpty()); }

    SecretWatch watch;
    OwnedSession session = open_session();
    const RsaKey &rsa = RsaKey::of_512_bits();
    uint8_t out[128] = {};
    uint32_t length = 0;
};

TEST_F(WipeTest, TheHookSees) {
    const Bytes secret = from_hex("00112233445566778899aabbccddeeff");
    watch.add("secret", secret);
    CK_ATTRIBUTE attribute = {CKA_VALUE, nullptr, 0};
    toolkit::ITEM item = {const_cast<uint8_t *>(secret.data()), length_of(secret)};
    ASSERT_EQ(store_item_in_template(&item, CKA_VALUE, &attribute, 0), CKR_OK);
    free(attribute.value);
    EXPECT_THAT(watch.take_found(), ElementsAre("secret"));
}

TEST_F(WipeTest, Objects) {
    watch.add(rsa);
    const Bytes octets = from_hex("0f1e2d3c4b5a69788796a5b4c3d2e1f1");
    watch.add("secret key", octets);
    private_object(rsa).reset();
    secret_object(octets, CKK_RC4).reset();
}

TEST_F(WipeTest, SeedsOfTheGenerator) {
    ASSERT_EQ(gen_random_alg(session.get()), CKR_OK);
    watch.add("first seed", Bytes(session->seed, session->seed + session->seed_length));
    ASSERT_EQ(gen_random_alg(session.get()), CKR_OK);
    watch.add("second seed", Bytes(session->seed, session->seed + session->seed_length));
    session.reset();
}

TEST_F(WipeTest, Signing) {
    const TestContext context;
    const SignerKey key(rsa);
    watch.add(rsa);
    EXPECT_EQ(key.signature(context, bytes_of("text"), QEL_MODE_FINAL, QEL_MD5WithRSAEncryption_AID)
                  .size(),
              64u);
}

TEST_F(WipeTest, WrappingAndUnwrapping) {
    const TestContext context;
    const SignerKey key(rsa);
    const Bytes secret = from_hex("8899aabbccddeeff0123456789abcdef");
    const Bytes by_another = rsa.encrypt(secret);
    watch.add(rsa);
    watch.add("wrapped key", secret);
    uint8_t *wrapped = nullptr, *unwrapped = nullptr;
    ASSERT_EQ(vfeqjfkkj(context, secret.data(), length_of(secret), QEL_RC4_AID, &key.bits,
                        QEL_RSA_ENCR_AID->parameters, QEL_RSA_ENCR_AID, &wrapped, &length),
              QEL_OK);
    free(wrapped);
    ASSERT_EQ(qel_unwrap_key(context, by_another.data(), length_of(by_another), QEL_RSA_ENCR_AID,
                             key.private_bytes.data(), length_of(key.private_bytes),
                             QEL_RSA_ENCR_AID, &unwrapped, &length),
              QEL_OK);
    EXPECT_EQ(Bytes(unwrapped, unwrapped + length), secret);
    explicit_bzero(unwrapped, length);
    free(unwrapped);
}

} // namespace
