// Generation of keys and parameters, and key agreement, as objects.
#include "objects.h"
#include "support/fault.h"

namespace toolkit {
namespace {

uint8_t f4[] = {0, 1, 0, 1}; // with a leading zero
const A_RSA_KEY_GEN_PARAMS params_512 = {512, {f4, sizeof f4}};

TEST(KeyGeneration, FillsEmptyKeysAsOftenAsAsked) {
    const Algorithm_ object(AI_RSAKeyGen, &params_512);
    const Random_ random;
    ASSERT_EQ(B_GenerateInit(object, every_method, nullptr), BE_OK);
    std::string previous;
    for (int i = 0; i < 2; ++i) {
        const Key_ public_key, private_key;
        ASSERT_EQ(error_name(B_GenerateKeypair(object, public_key, private_key, random, nullptr)),
                  "BE_OK");
        POINTER info;
        ASSERT_EQ(B_GetKeyInfo(&info, public_key, KI_RSAPublicBER), BE_OK);
        const std::string encoding = to_hex(bytes_of_item(*static_cast<const ITEM *>(info)));
        EXPECT_NE(encoding, previous);
        previous = encoding;
        EXPECT_EQ(B_GetKeyInfo(&info, public_key, KI_RSA_CRT), BE_KEY_OPERATION_UNKNOWN);
        EXPECT_EQ(error_name(B_GenerateKeypair(object, public_key, private_key, random, nullptr)),
                  "BE_KEY_ALREADY_SET");
    }
}

// Asks for a stop at the call of this number, from 1.
int32_t stop_when_none_is_left(void *left) {
    return --*static_cast<int *>(left) == 0;
}

TEST(KeyGeneration, ReportsItsProgressAndCanBeStopped) {
    const Algorithm_ object(AI_RSAKeyGen, &params_512);
    const Random_ random;
    const Key_ public_key, private_key;
    ASSERT_EQ(B_GenerateInit(object, every_method, nullptr), BE_OK);
    int left = 0;
    const SurrenderContext surrender = {stop_when_none_is_left, &left, nullptr};
    for (const int nth : {1, 2}) { // each prime asks at least once
        left = nth;
        EXPECT_EQ(
            error_name(B_GenerateKeypair(object, public_key, private_key, random, &surrender)),
            "BE_CANCEL");
        EXPECT_EQ(left, 0) << "the call that says stop is the last";
        POINTER info;
        EXPECT_EQ(B_GetKeyInfo(&info, private_key, KI_RSA_CRT), BE_KEY_NOT_SET);
        EXPECT_EQ(B_GetKeyInfo(&info, public_key, KI_RSAPublic), BE_KEY_NOT_SET);
    }
    EXPECT_EQ(error_name(B_GenerateKeypair(object, public_key, private_key, random, &surrender)),
              "BE_OK");
    EXPECT_LT(left, 0);
}

TEST(KeyGeneration, AnswersMisuseByName) {
    const Algorithm_ object(AI_RSAKeyGen, &params_512), idle(AI_RSAKeyGen, &params_512),
        unseeded(AI_MD5Random), result;
    const Random_ random;
    const Key_ key, other;
    const AlgorithmMethod *const no_method[] = {&AM_MD5, nullptr};
    ASSERT_EQ(B_GenerateInit(object, every_method, nullptr), BE_OK);
    expect_answers({
        {"no init", B_GenerateKeypair(idle, key, other, random, nullptr),
         "BE_ALGORITHM_NOT_INITIALIZED"},
        {"no method", B_GenerateInit(idle, no_method, nullptr), "BE_METHOD_NOT_IN_CHOOSER"},
        {"no key", B_GenerateKeypair(object, nullptr, key, random, nullptr), "BE_KEY_OBJ"},
        {"one key for both", B_GenerateKeypair(object, key, key, random, nullptr), "BE_KEY_OBJ"},
        {"no random object", B_GenerateKeypair(object, key, other, nullptr, nullptr),
         "BE_RANDOM_OBJ"},
        {"no random use", B_GenerateKeypair(object, key, other, unseeded, nullptr),
         "BE_RANDOM_NOT_INITIALIZED"},
        {"the other thing", B_GenerateParameters(object, result, random, nullptr),
         "BE_ALG_OPERATION_UNKNOWN"},
    });
}

TEST(KeyGeneration, ReportsEachAllocationThatFails) {
    const A_RSA_KEY_GEN_PARAMS params = {256, {f4, sizeof f4}};
    const Algorithm_ object(AI_RSAKeyGen, &params);
    const Random_ random;
    fault::each_allocation([&] {
        B_KEY_OBJ public_key = nullptr, private_key = nullptr;
        int error = B_CreateKeyObject(&public_key);
        if (error == BE_OK)
            error = B_CreateKeyObject(&private_key);
        if (error == BE_OK)
            error = B_GenerateInit(object, every_method, nullptr);
        if (error == BE_OK) {
            error = B_GenerateKeypair(object, public_key, private_key, random, nullptr);
            POINTER info;
            if (error != BE_OK) { // neither key is left behind
                EXPECT_EQ(B_GetKeyInfo(&info, public_key, KI_RSAPublic), BE_KEY_NOT_SET);
                EXPECT_EQ(B_GetKeyInfo(&info, private_key, KI_RSAPublic), BE_KEY_NOT_SET);
            }
        }
        EXPECT_EQ(error_name(error), fault::met() ? "BE_ALLOC" : "BE_OK");
        B_DestroyKeyObject(&public_key);
        B_DestroyKeyObject(&private_key);
    });
}

TEST(KeyGeneration, LeavesNothingBehindInMemory) {
    const Algorithm_ object(AI_RSAKeyGen, &params_512);
    const Random_ random;
    const Key_ public_key;
    const FreedBlocksAreZero watch;
    B_KEY_OBJ private_key = nullptr;
    ASSERT_EQ(B_CreateKeyObject(&private_key), BE_OK);
    ASSERT_EQ(B_GenerateInit(object, every_method, nullptr), BE_OK);
    EXPECT_EQ(B_GenerateKeypair(object, public_key, private_key, random, nullptr), BE_OK);
    B_DestroyKeyObject(&private_key);
}

// Key agreement.

// The 768-bit prime of Oakley group 1 (RFC 2409, 6.1).
const Bytes oakley_1 = from_hex("FFFFFFFFFFFFFFFFC90FDAA22168C234C4C6628B80DC1CD129024E088A67CC74"
                                "020BBEA63B139B22514A08798E3404DDEF9519B3CD3A431B302B0A6DF25F1437"
                                "4FE1356D6D51C245E485B576625E7EC6F44C42E9A63A3620FFFFFFFFFFFFFFFF");
const Bytes two = {2};

TEST(KeyAgreement, GivesBothSidesTheSameSecret) {
    const A_DH_KEY_AGREE_PARAMS params = {item_of(oakley_1), item_of(two), 160};
    const Algorithm_ ours(AI_DHKeyAgree, &params);
    POINTER encoding;
    ASSERT_EQ(B_GetAlgorithmInfo(&encoding, ours, AI_DHKeyAgreeBER), BE_OK);
    const Algorithm_ theirs(AI_DHKeyAgreeBER, encoding);
    const Random_ random;
    uint8_t public_1[96], public_2[96], secret_1[96], secret_2[96];
    uint32_t size;
    const auto phase_1 = [&](const Algorithm_ &side, uint8_t *value, uint32_t room,
                             B_ALGORITHM_OBJ generator) {
        return error_name(B_KeyAgreePhase1(side, value, &size, room, generator, nullptr));
    };
    const auto phase_2 = [&](const Algorithm_ &side, uint8_t *secret, uint32_t room,
                             const uint8_t *value, uint32_t length) {
        return error_name(B_KeyAgreePhase2(side, secret, &size, room, value, length, nullptr));
    };
    for (const Algorithm_ *side : {&ours, &theirs})
        ASSERT_EQ(error_name(B_KeyAgreeInit(*side, nullptr, every_method, nullptr)), "BE_OK");
    EXPECT_EQ(phase_2(ours, secret_1, 96, public_2, 96), "BE_ALGORITHM_NOT_INITIALIZED");
    EXPECT_EQ(phase_1(ours, public_1, 96, nullptr), "BE_RANDOM_OBJ");
    EXPECT_EQ(phase_1(ours, public_1, 95, random), "BE_OUTPUT_LEN");
    ASSERT_EQ(phase_1(ours, public_1, 96, random), "BE_OK");
    ASSERT_EQ(size, 96u);
    ASSERT_EQ(phase_1(theirs, public_2, 96, random), "BE_OK");
    EXPECT_NE(to_hex(public_1, 96), to_hex(public_2, 96));
    EXPECT_EQ(phase_2(ours, secret_1, 95, public_2, 96), "BE_OUTPUT_LEN");
    ASSERT_EQ(phase_2(ours, secret_1, 96, public_2, 96), "BE_OK");
    ASSERT_EQ(size, 96u);
    ASSERT_EQ(phase_2(theirs, secret_2, 96, public_1, 96), "BE_OK");
    EXPECT_EQ(to_hex(secret_1, 96), to_hex(secret_2, 96));
    EXPECT_EQ(phase_2(ours, secret_1, 96, two.data(), 0), "BE_DATA");
    EXPECT_EQ(size, 0u);
}

TEST(KeyAgreement, RefusesNumbersThatMakeNoGroup) {
    const Bytes one = {1};
    const A_DH_KEY_AGREE_PARAMS params = {item_of(oakley_1), item_of(one), 0};
    const Algorithm_ object(AI_DHKeyAgree, &params);
    EXPECT_EQ(error_name(B_KeyAgreeInit(object, nullptr, every_method, nullptr)),
              "BE_ALGORITHM_INFO");
}

TEST(ParameterGeneration, MakesAnObjectThatAgrees) {
    const A_DH_PARAM_GEN_PARAMS params = {256, 128};
    const Algorithm_ object(AI_DHParamGen, &params), result;
    const Random_ random;
    ASSERT_EQ(B_GenerateInit(object, every_method, nullptr), BE_OK);
    int left = 1;
    const SurrenderContext stopping = {stop_when_none_is_left, &left, nullptr};
    EXPECT_EQ(error_name(B_GenerateParameters(object, result, random, &stopping)), "BE_CANCEL");
    ASSERT_EQ(error_name(B_GenerateParameters(object, result, random, nullptr)), "BE_OK");
    POINTER info;
    ASSERT_EQ(B_GetAlgorithmInfo(&info, result, AI_DHKeyAgree), BE_OK);
    const auto &made = *static_cast<const A_DH_KEY_AGREE_PARAMS *>(info);
    EXPECT_EQ(made.prime.len, 32u);
    EXPECT_EQ(made.exponentBits, 128u);
    EXPECT_EQ(error_name(B_KeyAgreeInit(result, nullptr, every_method, nullptr)), "BE_OK");
    EXPECT_EQ(error_name(B_GenerateParameters(object, result, random, nullptr)),
              "BE_ALGORITHM_ALREADY_SET");
}

} // namespace
} // namespace toolkit
