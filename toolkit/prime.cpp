// Random primes: an arithmetic progression from a random start, a sieve of small primes, and
// Miller-Rabin (FIPS 186-4, C.3.1).
//
// All candidates are 3 modulo 4, so that one power settles a round. What the sieve says of a
// candidate is told by time, its residues are not: they are compared without branches.
#include "prime.h"

#include "montgomery.h"

#include <array>

namespace toolkit {

using bn::Limb;

namespace {

// ---- Small primes

constexpr uint32_t small_limit = 1 << 13;
constexpr std::size_t small_count = 1027;

struct SmallPrimes {
    std::array<uint16_t, small_count> prime;
    std::array<uint32_t, small_count> reciprocal; // 2^32 / prime, rounded down
};

constexpr SmallPrimes make_small_primes() {
    SmallPrimes table = {};
    std::array<bool, small_limit> composite = {};
    std::size_t count = 0;
    for (uint32_t n = 3; n < small_limit; n += 2) {
        if (composite[n])
            continue;
        table.prime[count] = static_cast<uint16_t>(n);
        table.reciprocal[count++] = static_cast<uint32_t>((uint64_t{1} << 32) / n);
        for (uint32_t multiple = n * n; multiple < small_limit; multiple += 2 * n)
            composite[multiple] = true;
    }
    return table;
}

constexpr SmallPrimes small = make_small_primes();
static_assert(small.prime[small_count - 1] == 8191);

// A modulus that costs more to test is worth sifting longer.
std::size_t sieve_length(std::size_t bits) {
    return bits <= 256 ? 320 : bits <= 512 ? 512 : small_count;
}

// residue[i] = a mod small.prime[i]
void small_residues(uint16_t *residue, std::size_t primes, const Limb *a, std::size_t size) {
    memset(residue, 0, primes * sizeof *residue);
    for (std::size_t chunk = size * bn::limb_bytes / 2; chunk-- > 0;) {
        const std::size_t bit = 16 * chunk;
        const uint32_t next = static_cast<uint16_t>(a[bit / bn::limb_bits] >> bit % bn::limb_bits);
        for (std::size_t i = 0; i < primes; ++i) {
            const uint32_t p = small.prime[i];
            const uint32_t value = uint32_t{residue[i]} << 16 | next;
            const auto quotient =
                static_cast<uint32_t>(uint64_t{value} * small.reciprocal[i] >> 32);
            const uint32_t less = value - quotient * p - p; // below p, or negative
            residue[i] = static_cast<uint16_t>(less + (p & (0 - (less >> 31))));
        }
    }
}

// ---- The search

struct Progression {
    Limb *candidate;  // the start; then the prime
    const Limb *step; // a multiple of 4
    std::size_t size; // limbs of both, room for one bit more than bits
    std::size_t bits;
    std::size_t most; // steps
    bool safe;        // twice the candidate and 1 must be prime too
};

struct Sieve {
    std::size_t primes;
    uint16_t residue[small_count], step[small_count];
    uint16_t unwanted[small_count]; // a second residue that rules a candidate out; 0: none
};
using SecretSieve = std::unique_ptr<Sieve, ZeroAndFree>;

SecretSieve allocate_sieve(std::size_t bits) {
    auto *const sieve = static_cast<Sieve *>(calloc(1, sizeof(Sieve)));
    if (sieve != nullptr)
        sieve->primes = sieve_length(bits);
    return SecretSieve(sieve, ZeroAndFree{sizeof(Sieve)});
}

bool sieve_passes(const Sieve &sieve) {
    uint16_t hits = 0;
    for (std::size_t i = 0; i < sieve.primes; ++i)
        hits = static_cast<uint16_t>(hits | (sieve.residue[i] == 0) |
                                     (sieve.residue[i] == sieve.unwanted[i]));
    return hits == 0;
}

void sieve_advance(Sieve &sieve) {
    for (std::size_t i = 0; i < sieve.primes; ++i) {
        const uint16_t p = small.prime[i];
        const auto less = static_cast<uint16_t>(sieve.residue[i] + sieve.step[i] - p);
        sieve.residue[i] = static_cast<uint16_t>(less + (p & (0 - (less >> 15))));
    }
}

// For a random odd candidate of this many bits, rounds that leave an error below 2^-100 (Damgard,
// Landrock and Pomerance, "Average case error estimates for the strong probable prime test").
unsigned miller_rabin_rounds(std::size_t bits) {
    constexpr struct {
        std::size_t bits;
        unsigned rounds;
    } table[] = {{2048, 2}, {1280, 3}, {1024, 4}, {768, 5},  {640, 6},  {512, 8},
                 {448, 9},  {384, 11}, {320, 13}, {256, 17}, {192, 23}, {128, 30}};
    for (const auto &row : table)
        if (bits >= row.bits)
            return row.rounds;
    return 44;
}

// Room for testing one candidate after the other.
struct Tester {
    std::size_t size;
    bn::Secret limbs;
    Limb *m, *r_squared, *exponent, *base, *one, *work;
};

Power test_power(const Tester &tester, const Modulus &m) {
    return {&m, tester.base, tester.base, tester.exponent, m.bits - 1};
}

bool new_tester(Tester *tester, std::size_t bits) {
    const std::size_t size = best_arithmetic()->padded_size(bn::limbs_for_bits(bits));
    Modulus m = {};
    m.arithmetic = best_arithmetic();
    m.size = size;
    m.bits = bits;
    const Power power = test_power(*tester, m);
    std::size_t work = m.arithmetic->power_scratch(&power, 1);
    const std::size_t least_work = 2 * size + 1 + product_scratch(size);
    work = work > least_work ? work : least_work;
    const std::size_t constants = m.arithmetic->constants_size(size, bits);
    tester->size = size;
    tester->limbs = bn::allocate_limbs(4 * size + constants + work);
    if (tester->limbs == nullptr)
        return false;
    bn::Pieces pieces{tester->limbs.get()};
    for (Limb **piece : {&tester->m, &tester->exponent, &tester->base, &tester->one})
        *piece = pieces.take(size);
    tester->r_squared = pieces.take(constants);
    tester->work = pieces.take(work);
    return true;
}

// BE_OK: passed; BE_DATA: composite. candidate = 3 modulo 4.
int miller_rabin(const Tester &tester, const Limb *candidate, std::size_t bits, unsigned rounds,
                 const RandomSource &random) {
    const std::size_t size = tester.size, limbs = bn::limbs_for_bits(bits);
    SecretRecord<Modulus> modulus; // it tells the candidate's low limb
    Modulus &m = modulus.record;
    bn::set_small(tester.m, size, 0);
    bn::copy(tester.m, candidate, limbs);
    modulus_init(&m, best_arithmetic(), tester.m, size, bits, tester.r_squared, tester.work);
    bn::copy(tester.exponent, tester.m, size);
    bn::shift_right(tester.exponent, size, 1);
    montgomery_one(tester.one, m, tester.work);
    while (rounds-- > 0) {
        if (!random.fill(random.state, reinterpret_cast<uint8_t *>(tester.base),
                         size * bn::limb_bytes))
            return BE_RANDOM_OBJ;
        montgomery_multiply(tester.base, tester.base, m.r_squared, m, tester.work);
        const Power power = test_power(tester, m);
        m.arithmetic->power(&power, 1, tester.work);
        const Limb is_one = bn::is_equal(tester.base, tester.one, size);
        bn::add_modulo(tester.base, tester.base, tester.one, m.m, size);
        if ((is_one | bn::is_zero(tester.base, size)) == 0)
            return BE_DATA;
    }
    return BE_OK;
}

bool cancelled(const SurrenderContext *surrender) {
    return surrender != nullptr && surrender->surrender != nullptr &&
           surrender->surrender(surrender->handle) != 0;
}

// BE_OK: the candidate (and its double and one, when asked for) is prime; BE_DATA: it is not.
int test_candidate(const Progression &progression, const Tester &tester, const Tester &twice,
                   Limb *twice_and_one, const PrimeRequest &request) {
    const std::size_t bits = progression.bits;
    const unsigned rounds = miller_rabin_rounds(bits);
    if (!progression.safe)
        return miller_rabin(tester, progression.candidate, bits, rounds, request.random);
    bn::add(twice_and_one, progression.candidate, progression.candidate, progression.size);
    twice_and_one[0] |= 1;
    // One round each before the many.
    for (const unsigned now : {1u, rounds}) {
        if (const int error =
                miller_rabin(tester, progression.candidate, bits, now, request.random))
            return error;
        if (const int error = miller_rabin(twice, twice_and_one, bits + 1, now, request.random))
            return error;
    }
    return BE_OK;
}

// BE_DATA: the progression ran out.
int search(const Progression &progression, Sieve &sieve, const PrimeRequest &request) {
    const std::size_t size = progression.size, bits = progression.bits;
    Tester tester = {}, twice = {};
    const bn::Secret twice_and_one = bn::allocate_limbs(size);
    if (twice_and_one == nullptr || !new_tester(&tester, bits) ||
        (progression.safe && !new_tester(&twice, bits + 1)))
        return BE_ALLOC;
    small_residues(sieve.residue, sieve.primes, progression.candidate, size);
    small_residues(sieve.step, sieve.primes, progression.step, size);
    for (std::size_t steps = 0; steps < progression.most; ++steps) {
        if (sieve_passes(sieve)) {
            if (cancelled(request.surrender))
                return BE_CANCEL;
            const int error =
                test_candidate(progression, tester, twice, twice_and_one.get(), request);
            if (error != BE_DATA)
                return error;
        }
        bn::add(progression.candidate, progression.candidate, progression.step, size);
        if (bn::bit(progression.candidate, bits) != 0)
            return BE_DATA;
        sieve_advance(sieve);
    }
    return BE_DATA;
}

// A random number of exactly this many bits, the highest two set, its low two bits as given.
bool random_start(Limb *out, std::size_t size, std::size_t bits, Limb low_bits,
                  const RandomSource &random) {
    const std::size_t limbs = bn::limbs_for_bits(bits);
    bn::set_small(out, size, 0);
    if (!random.fill(random.state, reinterpret_cast<uint8_t *>(out), limbs * bn::limb_bytes))
        return false;
    out[limbs - 1] &= ~Limb(0) >> (limbs * bn::limb_bits - bits);
    for (std::size_t top = bits - 2; top < bits; ++top)
        out[top / bn::limb_bits] |= Limb(1) << top % bn::limb_bits;
    out[0] = (out[0] & ~Limb(3)) | low_bits;
    return true;
}

// A generator that leads nowhere so often does not generate.
constexpr int most_starts = 64;

// Primes of `bits` bits, from new starts until one of them leads to one.
int search_from_random(Limb *prime, const PrimeRequest &request, std::size_t bits, bool safe,
                       Sieve &sieve) {
    const std::size_t size = prime_size(bits);
    const bn::Secret step = bn::allocate_limbs(size);
    if (step == nullptr)
        return BE_ALLOC;
    step.get()[0] = 4;
    const Progression progression = {prime, step.get(), size, bits, bits * (safe ? bits : 8), safe};
    for (int tries = 0; tries < most_starts; ++tries) {
        if (!random_start(prime, size, bits, 3, request.random))
            return BE_RANDOM_OBJ;
        const int error = search(progression, sieve, request);
        if (error != BE_DATA)
            return error;
    }
    return BE_RANDOM_OBJ;
}

} // namespace

int random_prime(Limb *prime, const PrimeRequest &request, const Limb *coprime,
                 std::size_t coprime_size) {
    const SecretSieve sieve = allocate_sieve(request.bits);
    if (sieve == nullptr)
        return BE_ALLOC;
    if (coprime != nullptr) {
        small_residues(sieve->residue, sieve->primes, coprime, coprime_size);
        for (std::size_t i = 0; i < sieve->primes; ++i)
            sieve->unwanted[i] = sieve->residue[i] == 0;
    }
    return search_from_random(prime, request, request.bits, false, *sieve);
}

int random_safe_prime_half(Limb *half, const PrimeRequest &request) {
    const SecretSieve sieve = allocate_sieve(4 * request.bits);
    if (sieve == nullptr)
        return BE_ALLOC;
    for (std::size_t i = 0; i < sieve->primes; ++i)
        sieve->unwanted[i] = small.prime[i] / 2;
    return search_from_random(half, request, request.bits - 1, true, *sieve);
}

int random_prime_above(Limb *prime, const PrimeRequest &request, const Limb *q,
                       std::size_t q_bits) {
    const std::size_t size = prime_size(request.bits), q_size = prime_size(q_bits);
    const std::size_t factor_bits = request.bits - q_bits, factor_size = prime_size(factor_bits);
    const SecretSieve sieve = allocate_sieve(request.bits);
    const bn::Secret step = bn::allocate_limbs(size + 1), factor = bn::allocate_limbs(factor_size);
    const bn::Secret multiple = bn::allocate_limbs(factor_size + q_size);
    if (sieve == nullptr || step == nullptr || factor == nullptr || multiple == nullptr)
        return BE_ALLOC;
    step.get()[q_size] = bn::multiply_small(step.get(), q, q_size, 4);
    const Progression progression = {prime,        step.get(),       size,
                                     request.bits, 8 * request.bits, false};
    for (int tries = 0; tries < most_starts; ++tries) {
        // With k = 2 modulo 4 the prime is 3 modulo 4; two high bits each keep the length.
        if (!random_start(factor.get(), factor_size, factor_bits, 2, request.random))
            return BE_RANDOM_OBJ;
        bn::multiply(multiple.get(), factor.get(), factor_size, q, q_size);
        bn::copy(prime, multiple.get(), size);
        bn::add_small(prime, size, 1);
        const int error = search(progression, *sieve, request);
        if (error != BE_DATA)
            return error;
    }
    return BE_RANDOM_OBJ;
}

} // namespace toolkit
