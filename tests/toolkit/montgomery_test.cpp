// Big-number arithmetic against libcrypto, every implementation through the same rows.
#include "big_numbers.h"

#include "../../toolkit/prime.h"

using namespace toolkit;
using bn::Limb;

namespace {

// A modulus prepared for one implementation, with room for what the tests call.
struct Ring {
    Number m;
    std::size_t size;
    std::vector<Limb> limbs, r_squared, scratch;
    Modulus modulus;

    explicit Ring(const Number &number) : m(BN_dup(number.get())) {
        const auto bits = static_cast<std::size_t>(BN_num_bits(m.get()));
        size = best_arithmetic()->padded_size(bn::limbs_for_bits(bits));
        limbs = load(m);
        r_squared.resize(best_arithmetic()->constants_size(size, bits));
        scratch.resize(3 * size + product_scratch(size));
        modulus_init(&modulus, best_arithmetic(), limbs.data(), size, bits, r_squared.data(),
                     scratch.data());
    }
    std::vector<Limb> load(const Number &number) const {
        std::vector<Limb> out(size);
        const Bytes bytes = bytes_of(number);
        EXPECT_TRUE(bn::load(out.data(), size, bytes.data(), bytes.size()));
        return out;
    }
    Number store(const std::vector<Limb> &limbs_in) const {
        Bytes bytes(size * bn::limb_bytes);
        bn::store(bytes.data(), bytes.size(), limbs_in.data(), size);
        return number(bytes);
    }
    // a * R mod m
    Number entered(const Number &a) const {
        Number r = number(1);
        BN_lshift(r.get(), r.get(), static_cast<int>(size * bn::limb_bits));
        return remainder(product(a, r), m);
    }
};

void expect_equal(const Number &found, const Number &expected, const char *what) {
    EXPECT_EQ(BN_cmp(found.get(), expected.get()), 0)
        << what << "\n found    " << to_hex(bytes_of(found)) << "\n expected "
        << to_hex(bytes_of(expected));
}

// Numbers that carry through everything, borrow through everything, or are ordinary.
std::vector<Number> operands(const Number &m) {
    std::vector<Number> all;
    all.push_back(number(0));
    all.push_back(number(1));
    all.push_back(less(m, 1));
    Number ones = number(1);
    BN_lshift(ones.get(), ones.get(), BN_num_bits(m.get()) - 1);
    BN_sub_word(ones.get(), 1);
    all.push_back(std::move(ones));
    all.push_back(random_below(m));
    all.push_back(random_below(m));
    return all;
}

void check_products(const Number &m) {
    Ring ring(m);
    const Number r_inverse = inverse(ring.entered(number(1)), m);
    std::vector<Limb> out(ring.size);
    for (const Number &a : operands(m)) {
        const std::vector<Limb> a_limbs = ring.load(a);
        montgomery_square(out.data(), a_limbs.data(), ring.modulus, ring.scratch.data());
        expect_equal(ring.store(out), remainder(product(product(a, a), r_inverse), m), "square");
        for (const Number &b : operands(m)) {
            out = ring.load(b);
            montgomery_multiply(out.data(), a_limbs.data(), out.data(), ring.modulus,
                                ring.scratch.data());
            expect_equal(ring.store(out), remainder(product(product(a, b), r_inverse), m),
                         "product");
        }
    }
    // The first factor may be anything that fits.
    std::vector<Limb> all_ones(ring.size, ~Limb(0));
    const Number b = less(m, 1);
    montgomery_multiply(out.data(), all_ones.data(), ring.load(b).data(), ring.modulus,
                        ring.scratch.data());
    expect_equal(ring.store(out),
                 remainder(product(product(ring.store(all_ones), b), r_inverse), m),
                 "product above the modulus");
}

// Two powers, one by one and side by side.
void check_power(Ring *const (&rings)[2], const Number (&base)[2], const Number (&exponent)[2],
                 std::size_t exponent_bits) {
    Power jobs[2];
    std::vector<Limb> bases[2], results[2], exponents[2];
    for (int i = 0; i < 2; ++i) {
        bases[i] = rings[i]->load(rings[i]->entered(base[i]));
        results[i].resize(rings[i]->size);
        exponents[i].resize(bn::limbs_for_bits(exponent_bits));
        const Bytes bytes = bytes_of(exponent[i]);
        bn::load(exponents[i].data(), exponents[i].size(), bytes.data(), bytes.size());
        jobs[i] = {&rings[i]->modulus, results[i].data(), bases[i].data(), exponents[i].data(),
                   exponent_bits};
    }
    for (const std::size_t count : {1, 2}) {
        // The scratch is of its exact size, so that a sanitizer sees a write past it.
        std::vector<Limb> scratch(best_arithmetic()->power_scratch(jobs, count));
        best_arithmetic()->power(jobs, count, scratch.data());
        for (std::size_t i = 0; i < count; ++i)
            expect_equal(rings[i]->store(results[i]),
                         rings[i]->entered(power(base[i], exponent[i], rings[i]->m)), "power");
    }
}

// Exponents with windows of every value, all bits set, or hardly any.
void check_powers(const Number &m, int exponent_bits, int other_bits) {
    Ring ring(m), other(random_odd(other_bits));
    Ring *const rings[2] = {&ring, &other};
    for (int kind = 0; kind < 3; ++kind) {
        Number e[2];
        for (Number &each : e) {
            each = number(kind == 1 ? 1 : 0);
            if (kind == 0)
                BN_rand(each.get(), exponent_bits, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY);
            if (kind == 2)
                for (int i = 0; i < exponent_bits; ++i)
                    BN_set_bit(each.get(), i);
        }
        const Number base[2] = {random_below(ring.m), random_below(other.m)};
        check_power(rings, base, e, static_cast<std::size_t>(exponent_bits));
    }
    const Number small[2] = {number(3), number(2)};
    for (const Number &a : operands(m))
        check_power(rings, {Number(BN_dup(a.get())), less(other.m, 1)}, small, 2);
}

TEST(Montgomery, AgreesWithLibcryptoAtEverySize) {
    std::vector<int> sizes = {65,   128,  192,  500,  508,  511,  512,  513,  575,
                              576,  577,  640,  768,  1000, 1023, 1024, 1025, 1536,
                              2047, 2048, 2049, 2390, 2391, 3072, 4096, 8189, 16384};
    for (int bits = 250; bits <= 300; ++bits)
        sizes.push_back(bits);
    for (const int bits : sizes) {
        SCOPED_TRACE(std::to_string(bits) + " bits");
        Number all_ones = number(1);
        BN_lshift(all_ones.get(), all_ones.get(), bits);
        BN_sub_word(all_ones.get(), 1);
        Number least = number(1);
        BN_set_bit(least.get(), bits - 1);
        const Number moduli[] = {random_odd(bits), std::move(all_ones), std::move(least)};
        for (const Number &m : moduli)
            with_each_arithmetic([&] {
                check_products(m);
                check_powers(m, bits > 3000 ? 70 : bits > 600 ? 400 : bits, bits);
            });
        if (HasFailure())
            return;
    }
}

TEST(Montgomery, PowersOfEveryExponentLength) {
    const Number m = random_odd(512);
    for (int bits = 1; bits <= 140; ++bits) {
        SCOPED_TRACE(std::to_string(bits) + " exponent bits");
        // Beside a modulus of the same size, and of another.
        with_each_arithmetic([&] { check_powers(m, bits, bits % 8 == 0 ? 200 : 512); });
        if (HasFailure())
            return;
    }
}

TEST(Bignum, InverseAgreesWithLibcrypto) {
    for (const int bits : {2, 3, 31, 61, 62, 63, 64, 65, 124, 160, 256, 310, 511, 512, 1024, 2048})
        for (int round = 0; round < (bits > 600 ? 4 : 40); ++round) {
            SCOPED_TRACE(std::to_string(bits) + " bits");
            const Number m = random_odd(bits);
            Number a = round == 0 ? number(1) : round == 1 ? less(m, 1) : random_below(m);
            const Number expected = BN_is_zero(a.get()) ? Number() : inverse(a, m);
            const std::size_t count = bn::limbs_for_bits(static_cast<std::size_t>(bits));
            std::vector<Limb> a_limbs(count), m_limbs(count), out(count);
            std::vector<Limb> scratch(bn::inverse_scratch(count));
            const Bytes a_bytes = bytes_of(a), m_bytes = bytes_of(m);
            bn::load(a_limbs.data(), count, a_bytes.data(), a_bytes.size());
            bn::load(m_limbs.data(), count, m_bytes.data(), m_bytes.size());
            const Limb found = bn::inverse(out.data(), a_limbs.data(), m_limbs.data(), count,
                                           static_cast<std::size_t>(bits), scratch.data());
            ASSERT_EQ(found != 0, expected != nullptr);
            Bytes bytes(count * bn::limb_bytes);
            bn::store(bytes.data(), bytes.size(), out.data(), count);
            if (expected != nullptr)
                expect_equal(number(bytes), expected, "inverse");
        }
}

TEST(Prime, SearchFindsPrimesOfItsForm) {
    // 3 * 5 * 1009: no prime found may be 1 modulo one of them.
    const Limb coprime = 15135;
    const PrimeRequest request = {256, system_random(), nullptr};
    for (int i = 0; i < 20; ++i) {
        Limb prime[prime_size(256)];
        ASSERT_EQ(random_prime(prime, request, &coprime, 1), BE_OK);
        Bytes bytes(sizeof prime);
        bn::store(bytes.data(), bytes.size(), prime, prime_size(256));
        const Number p = number(bytes);
        EXPECT_EQ(BN_check_prime(p.get(), bn_context(), nullptr), 1);
        EXPECT_EQ(BN_num_bits(p.get()), 256);
        for (const unsigned long factor : {3ul, 5ul, 1009ul})
            EXPECT_NE(BN_mod_word(p.get(), factor), 1u) << factor;
    }
}

} // namespace
