// Secret sharing: any threshold of the shares give the secret back, and only well-formed ones.
#include "objects.h"
#include "support/samples.h"

#include <numeric>

namespace toolkit {
namespace {

// The shares are of these lengths.
Bytes join(uint32_t threshold, const Bytes &shares, const std::vector<std::size_t> &lengths,
           std::string *status) {
    const A_SECRET_SHARING_PARAMS params = {threshold, 255};
    const Algorithm_ object(AI_BSSecretSharing, &params);
    EXPECT_EQ(begin(Step::decrypt, object, nullptr), BE_OK);
    Bytes secret;
    *status = error_name(feed(Step::decrypt, object, shares, lengths, nullptr, &secret));
    return secret;
}

TEST(SecretSharing, AnyThresholdOfTheSharesGiveTheSecretBack) {
    Samples samples;
    const struct {
        uint32_t threshold, shares;
    } cases[] = {{1, 1}, {1, 5}, {2, 2}, {2, 3}, {3, 7}, {5, 5}, {20, 255}, {255, 255}};
    for (const auto &row : cases) {
        SCOPED_TRACE(std::to_string(row.threshold) + " of " + std::to_string(row.shares));
        const A_SECRET_SHARING_PARAMS params = {row.threshold, row.shares};
        const Algorithm_ object(AI_BSSecretSharing, &params);
        const Random_ random;
        ASSERT_EQ(B_EncryptInit(object, nullptr, every_method, nullptr), BE_OK);
        for (const std::size_t size : {1u, 16u, 33u}) {
            const Bytes secret = samples.bytes(size);
            Bytes shares;
            ASSERT_EQ(error_name(feed(Step::encrypt, object, secret, samples.pieces(size), random,
                                      &shares, 40000)),
                      "BE_OK");
            ASSERT_EQ(shares.size(), row.shares * (size + 1));
            std::vector<uint32_t> order(row.shares);
            std::iota(order.begin(), order.end(), 0);
            for (int trial = 0; trial < 5; ++trial) {
                Bytes chosen;
                for (uint32_t i = 0; i < row.threshold; ++i) {
                    std::swap(order[i], order[i + samples.below(row.shares - i)]);
                    const auto at =
                        shares.begin() + static_cast<std::ptrdiff_t>(order[i] * (size + 1));
                    ASSERT_EQ(*at, order[i] + 1);
                    chosen.insert(chosen.end(), at, at + static_cast<std::ptrdiff_t>(size + 1));
                }
                std::string status;
                const std::vector<std::size_t> lengths(row.threshold, size + 1);
                ASSERT_EQ(to_hex(join(row.threshold, chosen, lengths, &status)), to_hex(secret));
            }
        }
    }
}

// By hand: with the secret s and the coefficient a, the share at x is s + a x; 80 times 2 is 1B.
TEST(SecretSharing, TakesSharesOfTheFormDescribed) {
    const struct {
        const char *reason;
        uint32_t threshold;
        const char *shares;
        std::vector<std::size_t> lengths;
        const char *expected;
    } cases[] = {
        {"reduction by the field's polynomial", 2, "01 80  02 1b", {2, 2}, "00"},
        {"the other order", 2, "02 1b  01 80", {2, 2}, "00"},
        {"a secret that is not 0", 2, "01 d7  02 4c", {2, 2}, "57"},
        {"high share numbers", 2, "ff ff  fe fe", {2, 2}, "00"},
        {"a threshold of 1", 1, "09 616263", {4}, "616263"},
        {"a share number of 0", 2, "00 80  02 1b", {2, 2}, "BE_DATA"},
        {"the same share twice", 2, "02 80  02 80", {2, 2}, "BE_DATA"},
        {"empty inputs between", 2, "01 80  02 1b", {0, 2, 0, 2, 0}, "00"},
        {"one share too few", 2, "01 80", {2}, "BE_INPUT_LEN"},
        {"one share too many", 2, "01 80  02 1b  03 9b", {2, 2, 2}, "BE_INPUT_LEN"},
        {"two shares in one input", 2, "01 80  02 1b", {4}, "BE_INPUT_LEN"},
        {"a longer share", 2, "01 80  02 1b 00", {2, 3}, "BE_INPUT_LEN"},
        {"a shorter share", 2, "01 80 00  02 1b", {3, 2}, "BE_INPUT_LEN"},
        {"shares without contents", 2, "01 02", {1, 1}, "BE_INPUT_LEN"},
        {"nothing", 2, "", {}, "BE_INPUT_LEN"},
    };
    for (const auto &row : cases) {
        std::string status;
        const Bytes secret = join(row.threshold, from_hex(row.shares), row.lengths, &status);
        EXPECT_EQ(status == "BE_OK" ? to_hex(secret) : status, row.expected) << row.reason;
    }
}

TEST(SecretSharing, NeedsRandomnessAndASecretInRange) {
    const A_SECRET_SHARING_PARAMS params = {2, 3};
    const Algorithm_ object(AI_BSSecretSharing, &params);
    const Random_ random;
    Bytes out;
    ASSERT_EQ(B_EncryptInit(object, nullptr, every_method, nullptr), BE_OK);
    EXPECT_EQ(error_name(feed(Step::encrypt, object, {}, {}, random, &out)), "BE_INPUT_LEN");
    EXPECT_EQ(
        error_name(feed(Step::encrypt, object, Bytes(16384), {1, 16383}, random, &out, 49155)),
        "BE_OK");
    EXPECT_EQ(error_name(feed(Step::encrypt, object, Bytes(16385), {1, 16384}, random, &out)),
              "BE_INPUT_LEN");
    EXPECT_EQ(error_name(feed(Step::encrypt, object, Bytes(4), {4}, nullptr, &out)),
              "BE_RANDOM_OBJ");
}

} // namespace
} // namespace toolkit
