#include "cryptoki/token.h"
#include "support/fault.h"
#include "support/secrets.h"

#include <cryptoki/generate.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/time.h>

namespace {

const CK_MECHANISM generation = {CKM_RSA_PKCS_KEY_PAIR_GEN, nullptr, 0};
const CK_MECHANISM rsa_mechanism = {CKM_RSA_PKCS, nullptr, 0};

// ---- Random bytes

class RandomTest : public testing::Test {
protected:
    OwnedSession session = open_session();
    Bytes buffer = Bytes(64);
    CK_RV generate() { return C_GenerateRandom(session.get(), buffer.data(), length_of(buffer)); }
};

TEST_F(RandomTest, Refusals) {
    EXPECT_EQ(C_GenerateRandom(nullptr, nullptr, 0), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(C_GenerateRandom(session.get(), nullptr, 64), CKR_DATA_INVALID);
    EXPECT_EQ(C_GenerateRandom(session.get(), buffer.data(), 0), CKR_DATA_INVALID);
}

TEST_F(RandomTest, FaultsOfTheDevice) {
    const struct {
        const char *why;
        fault::Call call;
        int error;
        CK_RV result;
    } cases[] = {
        {"an open that is interrupted is tried again", fault::Call::open, EINTR, CKR_OK},
        {"a read that is interrupted is tried again", fault::Call::read, EINTR, CKR_OK},
        {"a close that is interrupted is tried again", fault::Call::close, EINTR, CKR_OK},
        {"no such device", fault::Call::open, ENOENT, CKR_DEVICE_ERROR},
        {"a read that fails", fault::Call::read, EIO, CKR_DEVICE_ERROR},
        {"a close that fails", fault::Call::close, EIO, CKR_DEVICE_ERROR},
    };
    for (const auto &c : cases) {
        fault::fail(c.call, 1, c.error);
        EXPECT_EQ(generate(), c.result) << c.why;
        EXPECT_TRUE(fault::clear(c.call)) << c.why;
    }
}

// Long reads are cut short by signals; the buffer is filled to its end all the same.
TEST_F(RandomTest, ReadsThatSignalsCutShort) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
    const itimerval every_millisecond = {{0, 1000}, {0, 1000}};
    ASSERT_EQ(setitimer(ITIMER_REAL, &every_millisecond, nullptr), 0);
    buffer.assign(4 << 20, 0);
    const CK_RV result = generate();
    const itimerval never = {};
    ASSERT_EQ(setitimer(ITIMER_REAL, &never, nullptr), 0);
    EXPECT_EQ(result, CKR_OK);
    const Bytes end(buffer.end() - 32, buffer.end());
    EXPECT_NE(end, Bytes(32, 0));
}

TEST_F(RandomTest, TheGeneratorIsReplacedAndKeptOnFailure) {
    ASSERT_EQ(gen_random_alg(session.get()), CKR_OK);
    EXPECT_EQ(session->seed_length, 256u);
    const Bytes first(session->seed, session->seed + 256);
    const auto *random = session->random;
    fault::fail(fault::Call::open, 1);
    EXPECT_EQ(gen_random_alg(session.get()), CKR_DEVICE_ERROR);
    fault::clear(fault::Call::open);
    EXPECT_EQ(session->random, random);
    ASSERT_EQ(gen_random_alg(session.get()), CKR_OK);
    EXPECT_NE(Bytes(session->seed, session->seed + 256), first);
    fault::each_allocation([&] {
        const CK_RV result = gen_random_alg(session.get());
        EXPECT_EQ(result == CKR_OK, !fault::met());
    });
}

TEST_F(RandomTest, SeedsAreZeroedBeforeTheyAreFreed) {
    SecretWatch watch;
    for (const char *name : {"first seed", "second seed"}) {
        ASSERT_EQ(gen_random_alg(session.get()), CKR_OK);
        watch.add(name, Bytes(session->seed, session->seed + session->seed_length));
    }
    session.reset();
    EXPECT_TRUE(watch.take_found().empty());
}

// ---- Key pairs

struct PublicTemplate {
    uint32_t bits;
    Bytes exponent;
    CK_ATTRIBUTE attributes[2] = {{CKA_MODULUS_BITS, &bits, sizeof bits},
                                  {CKA_PUBLIC_EXPONENT, exponent.data(), length_of(exponent)}};
};

struct KeyPair {
    TestObject private_key;
    TestObject public_key;
};

CK_RV generate_pair(CK_SESSION_HANDLE session, const PublicTemplate &parameters, KeyPair *pair) {
    CK_OBJECT_HANDLE private_key = nullptr;
    CK_OBJECT_HANDLE public_key = nullptr;
    testing::internal::CaptureStderr();
    const CK_RV result = C_GenerateKeyPair(session, &generation, parameters.attributes, 2, nullptr,
                                           0, &private_key, &public_key);
    testing::internal::GetCapturedStderr();
    pair->private_key.reset(private_key);
    pair->public_key.reset(public_key);
    return result;
}

TEST(KeyPair, Refusals) {
    const OwnedSession session = open_session();
    const PublicTemplate good = {512, from_hex("010001")};
    const CK_ATTRIBUTE short_integer[] = {{CKA_MODULUS_BITS, good.attributes[0].value, 2},
                                          good.attributes[1]};
    const CK_ATTRIBUTE even_exponent[] = {good.attributes[0],
                                          {CKA_PUBLIC_EXPONENT, const_cast<char *>("\x04"), 1}};
    CK_OBJECT_HANDLE private_key = nullptr;
    CK_OBJECT_HANDLE public_key = nullptr;
    const struct {
        const char *why;
        CK_SESSION_HANDLE session;
        const CK_MECHANISM *mechanism;
        const CK_ATTRIBUTE *attributes;
        uint32_t count;
        CK_RV result;
    } cases[] = {
        {"session before template", nullptr, nullptr, nullptr, 0, CKR_SESSION_HANDLE_INVALID},
        {"template before mechanism", session.get(), nullptr, nullptr, 2, CKR_TEMPLATE_INCOMPLETE},
        {"no attributes", session.get(), nullptr, good.attributes, 0, CKR_TEMPLATE_INCOMPLETE},
        {"no mechanism", session.get(), nullptr, good.attributes, 2, CKR_MECHANISM_INVALID},
        {"RSA encryption generates nothing", session.get(), &rsa_mechanism, good.attributes, 2,
         CKR_MECHANISM_INVALID},
        {"no size", session.get(), &generation, good.attributes + 1, 1, CKR_ATTRIBUTE_TYPE_INVALID},
        {"no exponent", session.get(), &generation, good.attributes, 1, CKR_ATTRIBUTE_TYPE_INVALID},
        {"a size of two bytes", session.get(), &generation, short_integer, 2, CKR_DATA_INVALID},
        {"an even exponent", session.get(), &generation, even_exponent, 2,
         CKR_MECHANISM_PARAM_INVALID},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(C_GenerateKeyPair(c.session, c.mechanism, c.attributes, c.count, nullptr, 0,
                                    &private_key, &public_key),
                  c.result)
            << c.why;
        EXPECT_EQ(private_key, nullptr);
        EXPECT_EQ(public_key, nullptr);
    }
    EXPECT_EQ(C_GenerateKeyPair(session.get(), &generation, good.attributes, 2, nullptr, 0,
                                &private_key, nullptr),
              CKR_DATA_INVALID);
    KeyPair pair;
    fault::fail(fault::Call::open, 1);
    EXPECT_EQ(generate_pair(session.get(), good, &pair), CKR_DEVICE_ERROR);
    fault::clear(fault::Call::open);
}

// ---- Wrapping

TEST(Wrap, Refusals) {
    const OwnedSession session = open_session();
    const TestObject rsa = public_object(RsaKey::of_512_bits());
    const TestObject secret = secret_object(from_hex("0123456789"), CKK_RC4);
    const TestObject too_long = secret_object(Bytes(54, 1), CKK_RC4);
    const CK_MECHANISM des = {CKM_DES_CBC, nullptr, 0};
    CK_OBJECT empty = {nullptr, 0};
    uint8_t out[64];
    uint32_t length = 0;
    // In the order of the arguments.
    EXPECT_EQ(C_WrapKey(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
              CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(C_WrapKey(session.get(), &des, nullptr, nullptr, nullptr, nullptr),
              CKR_MECHANISM_INVALID);
    EXPECT_EQ(C_WrapKey(session.get(), &rsa_mechanism, nullptr, nullptr, nullptr, nullptr),
              CKR_WRAPPING_KEY_HANDLE_INVALID);
    EXPECT_EQ(C_WrapKey(session.get(), &rsa_mechanism, &empty, nullptr, nullptr, nullptr),
              CKR_KEY_HANDLE_INVALID);
    EXPECT_EQ(C_WrapKey(session.get(), &rsa_mechanism, &empty, &empty, nullptr, &length),
              CKR_DATA_INVALID);
    EXPECT_EQ(C_WrapKey(session.get(), &rsa_mechanism, &empty, &empty, out, nullptr),
              CKR_DATA_INVALID);
    const struct {
        const char *why;
        CK_OBJECT_HANDLE wrapping, key;
        CK_RV result;
    } cases[] = {
        {"a key without template", &empty, &empty, CKR_KEY_HANDLE_INVALID},
        {"a key that is not secret", &empty, rsa.get(), CKR_DATA_INVALID},
        {"a wrapping key without template", &empty, secret.get(), CKR_KEY_HANDLE_INVALID},
        {"a wrapping key that is not RSA", secret.get(), secret.get(), CKR_DATA_INVALID},
        {"a key longer than the modulus takes", rsa.get(), too_long.get(), CKR_DATA_LEN_RANGE},
    };
    for (const auto &c : cases)
        EXPECT_EQ(C_WrapKey(session.get(), &rsa_mechanism, c.wrapping, c.key, out, &length),
                  c.result)
            << c.why;
}

} // namespace
