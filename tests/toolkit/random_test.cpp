#include "support/digests.h"
#include "support/fault.h"
#include "support/samples.h"

#include <toolkit/random.h>

#include <gtest/gtest.h>
#include <openssl/bn.h>

#include <sys/time.h>

#include <algorithm>
#include <csignal>

using namespace toolkit;

namespace {

Bytes digest(RandomDigest which, const Bytes &data) {
    return which == RandomDigest::md2 ? md2(data) : md5(data);
}

// The generator once more, on the peer's big numbers.
class Model {
public:
    explicit Model(RandomDigest which) : which_(which), state_(BN_new()) {}
    ~Model() { BN_free(state_); }
    Model(const Model &) = delete;
    Model &operator=(const Model &) = delete;

    void seed(const Bytes &seed) {
        BIGNUM *const addend = BN_bin2bn(digest(which_, seed).data(), 16, nullptr);
        BN_add(state_, state_, addend);
        BN_free(addend);
        wrap();
    }
    Bytes block() {
        Bytes bytes(16);
        BN_bn2binpad(state_, bytes.data(), 16);
        BN_add_word(state_, 1);
        wrap();
        return digest(which_, bytes);
    }

private:
    void wrap() {
        if (BN_num_bits(state_) > 128)
            BN_mask_bits(state_, 128);
    }
    RandomDigest which_;
    BIGNUM *state_;
};

} // namespace

TEST(DigestRandom, FollowsItsModel) {
    Samples samples;
    for (const RandomDigest which : {RandomDigest::md2, RandomDigest::md5}) {
        DigestRandom random;
        Model model(which);
        digest_random_init(&random, which);
        for (int round = 0; round < 50; ++round) {
            const Bytes seed = samples.bytes(samples.below(40));
            digest_random_seed(&random, seed.data(), seed.size());
            model.seed(seed);
            Bytes result(samples.below(100)), expected;
            while (expected.size() < result.size()) {
                const Bytes block = model.block();
                expected.insert(expected.end(), block.begin(), block.end());
            }
            expected.resize(result.size());
            uint8_t *next = result.data();
            for (const std::size_t size : samples.pieces(result.size())) {
                digest_random_bytes(&random, next, size);
                next += size;
            }
            EXPECT_EQ(to_hex(result), to_hex(expected)) << round;
        }
    }
}

// A state of 2^128 - 1 becomes 0: the carry runs through all sixteen bytes.
TEST(DigestRandom, StateWraps) {
    DigestRandom random;
    digest_random_init(&random, RandomDigest::md5);
    std::fill(std::begin(random.state), std::end(random.state), 0xff);
    Bytes result(32), zero(16);
    digest_random_source(&random).fill(&random, result.data(), result.size());
    EXPECT_EQ(to_hex(result.data() + 16, 16), to_hex(digest(RandomDigest::md5, zero)));
}

TEST(SystemRandom, FillsAllAndReportsFailure) {
    const RandomSource source = system_random();
    for (const std::size_t size : {0, 1, 16, 255, 257, 100000}) {
        Bytes first(size), second(size);
        ASSERT_TRUE(source.fill(source.state, first.data(), size));
        ASSERT_TRUE(source.fill(source.state, second.data(), size));
        if (size < 16)
            continue;
        EXPECT_NE(first, second);
        // Bytes left as they were would be a run of zeros at the end.
        EXPECT_FALSE(std::all_of(first.end() - 12, first.end(), [](uint8_t b) { return b == 0; }));
    }
    uint8_t bytes[16];
    fault::fail(fault::Call::getrandom, 1);
    EXPECT_FALSE(source.fill(source.state, bytes, sizeof bytes));
    EXPECT_TRUE(fault::clear(fault::Call::getrandom));
}

// Signals cut a long request short: the rest must still be asked for.
TEST(SystemRandom, SignalsInterruptNothing) {
    std::signal(SIGALRM, [](int) {});
    const itimerval often = {{0, 200}, {0, 200}}, never = {};
    setitimer(ITIMER_REAL, &often, nullptr);
    Bytes bytes(std::size_t{8} << 20);
    const RandomSource source = system_random();
    const bool filled = source.fill(source.state, bytes.data(), bytes.size());
    setitimer(ITIMER_REAL, &never, nullptr);
    ASSERT_TRUE(filled);
    for (std::size_t page = 0; page < bytes.size(); page += 4096)
        ASSERT_NE(to_hex(bytes.data() + page, 16), std::string(32, '0')) << page;
}
