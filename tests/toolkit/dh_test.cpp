// Diffie-Hellman, against libcrypto's numbers.
#include "big_numbers.h"
#include "support/fault.h"

#include <toolkit/dh.h>

using namespace toolkit;

namespace {

struct FreeGroup {
    void operator()(DhGroup *group) const { dh_group_free(group); }
};
using Group = std::unique_ptr<DhGroup, FreeGroup>;

Group new_group(Bytes prime, Bytes base, uint32_t exponent_bits, int expected = BE_OK) {
    DhGroup *group = reinterpret_cast<DhGroup *>(1);
    EXPECT_EQ(dh_group_new(&group, item(prime), item(base), exponent_bits), expected);
    EXPECT_EQ(group != nullptr, expected == BE_OK);
    return Group(group);
}

struct GroupCase {
    const char *why;
    int bits;
    uint32_t exponent_bits, private_bits;
};

// The modulus need not be prime for the arithmetic to be checked.
const GroupCase kGroupCases[] = {
    {"the least prime, exponents of its length", 256, 0, 255},
    {"the usual export-grade prime", 512, 0, 511},
    {"exponents of a whole octet", 512, 160, 160},
    {"one bit more than an octet", 513, 161, 161},
    {"a length of no whole limb", 1000, 250, 250},
    {"the longest exponent", 1024, 1023, 1023},
    {"a one-bit exponent", 512, 1, 1},
    {"a long prime", 4096, 256, 256},
    {"the longest prime", 16384, 64, 64},
};

void check_group(const GroupCase &row, const Number &prime) {
    const std::size_t size = static_cast<std::size_t>(row.bits + 7) / 8;
    const Number base = number(5);
    const Group group = new_group(bytes_of(prime), bytes_of(base), row.exponent_bits);
    ASSERT_NE(group, nullptr);
    ASSERT_EQ(dh_group_size(group.get()), size);
    ASSERT_EQ(dh_private_size(group.get()), (row.private_bits + 7) / 8);
    Bytes secret(dh_private_size(group.get())), value(size), agreed(size);
    ASSERT_EQ(dh_generate(group.get(), secret.data(), value.data(), system_random()), BE_OK);
    const Number exponent = number(secret);
    EXPECT_EQ(BN_num_bits(exponent.get()), static_cast<int>(row.private_bits));
    EXPECT_EQ(to_hex(value), to_hex(bytes_of(power(base, exponent, prime), size)));
    // The other side is libcrypto's; its value may come with leading zeros.
    const Number other = random_below(prime), sent = power(base, other, prime);
    const Bytes peer = bytes_of(sent, size + 3);
    ASSERT_EQ(dh_agree(group.get(), secret.data(), peer.data(), static_cast<uint32_t>(peer.size()),
                       agreed.data()),
              BE_OK);
    EXPECT_EQ(to_hex(agreed), to_hex(bytes_of(power(number(value), other, prime), size)));
}

TEST(Dh, BothSidesAgreeAtEverySize) {
    for (const GroupCase &row : kGroupCases) {
        SCOPED_TRACE(row.why);
        const Number prime = random_odd(row.bits);
        with_each_arithmetic([&] { check_group(row, prime); });
        if (HasFailure())
            return;
    }
}

TEST(Dh, PeerValuesOfNoUseAreRefused) {
    const Number prime = random_odd(512), top = less(prime, 1), above = number();
    BN_add(above.get(), prime.get(), BN_value_one());
    const Group group = new_group(bytes_of(prime), {2}, 0);
    Bytes secret(dh_private_size(group.get()), 0x55), agreed(64);
    const std::pair<const char *, Bytes> rows[] = {{"nothing at all", {}},
                                                   {"zero", {0}},
                                                   {"one", {0, 1}},
                                                   {"the prime less one", bytes_of(top)},
                                                   {"the prime", bytes_of(prime)},
                                                   {"above the prime", bytes_of(above)},
                                                   {"far above it", Bytes(80, 0xff)}};
    for (const auto &[why, peer] : rows) {
        SCOPED_TRACE(why);
        EXPECT_EQ(dh_agree(group.get(), secret.data(), peer.data(),
                           static_cast<uint32_t>(peer.size()), agreed.data()),
                  BE_DATA);
    }
    for (const Number &peer : {number(2), less(prime, 2)}) {
        const Bytes bytes = bytes_of(peer);
        EXPECT_EQ(dh_agree(group.get(), secret.data(), bytes.data(),
                           static_cast<uint32_t>(bytes.size()), agreed.data()),
                  BE_OK);
    }
}

TEST(Dh, BadParametersAreRefused) {
    const Bytes prime = bytes_of(random_odd(512));
    Bytes even = prime;
    even.back() ^= 1;
    Bytes below = prime;
    below.back() ^= 1; // the prime less one
    const struct {
        const char *why;
        Bytes prime, base;
        uint32_t exponent_bits;
        int expected;
    } rows[] = {
        {"no prime", {}, {2}, 0, BE_MODULUS_LEN},
        {"zeros only", Bytes(64), {2}, 0, BE_MODULUS_LEN},
        {"a short prime", bytes_of(random_odd(255)), {2}, 0, BE_MODULUS_LEN},
        {"a long prime", bytes_of(random_odd(16385)), {2}, 0, BE_MODULUS_LEN},
        {"an even prime", even, {2}, 0, BE_ALGORITHM_INFO},
        {"exponents as long as the prime", prime, {2}, 512, BE_ALGORITHM_INFO},
        {"no base", prime, {}, 0, BE_ALGORITHM_INFO},
        {"base 1", prime, {1}, 0, BE_ALGORITHM_INFO},
        {"base -1", prime, below, 0, BE_ALGORITHM_INFO},
        {"a base that is the prime", prime, prime, 0, BE_ALGORITHM_INFO},
        {"a base longer than the prime", prime, Bytes(65, 1), 0, BE_ALGORITHM_INFO},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        new_group(row.prime, row.base, row.exponent_bits, row.expected);
    }
}

TEST(Dh, NothingComesOutWithoutRandomNumbers) {
    const Group group = new_group(bytes_of(random_odd(512)), {2}, 0);
    Bytes secret(dh_private_size(group.get()), 0x55), value(64);
    const RandomSource none = {[](void *, uint8_t *, std::size_t) { return false; }, nullptr};
    EXPECT_EQ(dh_generate(group.get(), secret.data(), value.data(), none), BE_RANDOM_OBJ);
    EXPECT_EQ(secret, Bytes(secret.size()));
}

TEST(Dh, NothingOfASecretIsLeftBehind) {
    const Group group = new_group(bytes_of(random_odd(1024)), {2}, 0);
    uint8_t secret[128], value[128], agreed[128];
    const FreedBlocksAreZero watch;
    EXPECT_EQ(dh_generate(group.get(), secret, value, system_random()), BE_OK);
    EXPECT_EQ(dh_agree(group.get(), secret, value, sizeof value, agreed), BE_OK);
}

TEST(DhParameters, HaveASubgroupOfPrimeOrder) {
    const struct {
        const char *why;
        uint32_t prime_bits, exponent_bits, subgroup_bits;
    } rows[] = {
        {"a subgroup of the exponent's length", 512, 200, 200},
        {"never a small subgroup", 300, 40, 160},
        {"a safe prime, asked for", 256, 255, 255},
        {"a safe prime for want of room", 256, 230, 255},
        {"just room enough", 256, 224, 224},
        {"a safe prime by default", 256, 0, 255},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        ITEM prime_item = {}, base_item = {};
        ASSERT_EQ(dh_generate_parameters(&prime_item, &base_item, row.prime_bits, row.exponent_bits,
                                         system_random(), nullptr),
                  BE_OK);
        const Number prime = number(Bytes(prime_item.data, prime_item.data + prime_item.len));
        const Number base = number(Bytes(base_item.data, base_item.data + base_item.len));
        free(prime_item.data);
        free(base_item.data);
        EXPECT_EQ(BN_num_bits(prime.get()), static_cast<int>(row.prime_bits));
        EXPECT_EQ(BN_check_prime(prime.get(), bn_context(), nullptr), 1);
        EXPECT_FALSE(BN_is_one(base.get()));
        if (row.subgroup_bits == row.prime_bits - 1) {
            Number half(BN_dup(prime.get()));
            BN_rshift1(half.get(), half.get());
            EXPECT_EQ(BN_check_prime(half.get(), bn_context(), nullptr), 1);
            EXPECT_TRUE(BN_is_one(power(base, half, prime).get()));
        }
    }
}

TEST(DhParameters, StopAndFailCleanly) {
    ITEM prime = {}, base = {};
    const SurrenderContext stop = {[](void *) -> int32_t { return 1; }, nullptr, nullptr};
    EXPECT_EQ(dh_generate_parameters(&prime, &base, 512, 0, system_random(), &stop), BE_CANCEL);
    const struct {
        const char *why;
        uint32_t prime_bits, exponent_bits;
    } rows[] = {{"a short prime", 255, 100},
                {"a long prime", 16385, 100},
                {"exponents as long as the prime", 256, 256}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(dh_generate_parameters(&prime, &base, row.prime_bits, row.exponent_bits,
                                         system_random(), nullptr),
                  BE_ALGORITHM_INFO);
    }
    EXPECT_EQ(prime.data, nullptr);
    EXPECT_EQ(base.data, nullptr);
}

TEST(DhParameters, EveryAllocationMayFail) {
    for (const uint32_t exponent_bits : {160u, 255u})
        fault::each_allocation([&] {
            ITEM prime = {}, base = {};
            const int error =
                dh_generate_parameters(&prime, &base, 256, exponent_bits, system_random(), nullptr);
            EXPECT_EQ(error, fault::met() ? BE_ALLOC : BE_OK);
            EXPECT_EQ(prime.data == nullptr, fault::met());
            EXPECT_EQ(base.data == nullptr, fault::met());
            free(prime.data);
            free(base.data);
        });
}

} // namespace
