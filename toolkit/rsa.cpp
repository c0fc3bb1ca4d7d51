// RSA (PKCS#1 v1.5, section 8.1 and 9: the exponentiation) on prepared keys.
#include <toolkit/rsa.h>

#include "montgomery.h"

#include <span>

namespace toolkit {

using bn::Limb;

namespace {

constexpr std::size_t least_modulus_bits = 256;
constexpr std::size_t most_modulus_bits = 16384;
constexpr std::size_t most_limbs = bn::limbs_for_bits(most_modulus_bits);

// A number as it came, without its leading zeros. Its length is public.
struct Number {
    const uint8_t *octets;
    std::size_t size;

    explicit Number(const ITEM &item) : octets(item.data), size(item.data ? item.len : 0) {
        while (size != 0 && octets[0] == 0) {
            ++octets;
            --size;
        }
    }
    std::size_t bits() const {
        std::size_t unused = 0;
        while (size != 0 && unused < 7 && octets[0] >> (7 - unused) == 0)
            ++unused;
        return 8 * size - unused;
    }
    bool odd() const { return size != 0 && (octets[size - 1] & 1) != 0; }
};

int check_modulus(const Number &modulus) {
    if (modulus.size > most_modulus_bits / 8 || modulus.bits() < least_modulus_bits)
        return BE_MODULUS_LEN;
    return modulus.odd() ? BE_OK : BE_KEY_INFO;
}

std::size_t padded_size(const Number &number) {
    return best_arithmetic()->padded_size(bn::limbs_for_bits(number.bits()));
}

// Limbs begin on a cache line.
constexpr std::size_t alignment = 64;
Limb *aligned(void *block) {
    const auto address = reinterpret_cast<uintptr_t>(block);
    return static_cast<Limb *>(block) + (-address % alignment) / bn::limb_bytes;
}

std::size_t greater(std::size_t a, std::size_t b) {
    return a > b ? a : b;
}

} // namespace

// ---- Public keys

// Above this length of the modulus the public exponent has at most so many bits: whoever makes a key
// and a certificate could otherwise keep each of its verifiers busy for seconds.
constexpr std::size_t free_modulus_bits = 4096, most_exponent_bits = 64;

struct RsaPublic {
    uint32_t size;
    Modulus n;
    const Limb *exponent;
    std::size_t exponent_bits;
};

int rsa_public_new(RsaPublic **key_out, const A_RSA_KEY &numbers) {
    *key_out = nullptr;
    const Number modulus(numbers.modulus), exponent(numbers.exponent);
    if (const int error = check_modulus(modulus))
        return error;
    if (!exponent.odd() || exponent.bits() < 2 || exponent.bits() > modulus.bits() ||
        (modulus.bits() > free_modulus_bits && exponent.bits() > most_exponent_bits))
        return BE_KEY_INFO;
    const std::size_t size = padded_size(modulus);
    const std::size_t constants = best_arithmetic()->constants_size(size, modulus.bits());
    auto *const key = static_cast<RsaPublic *>(
        malloc(sizeof(RsaPublic) + alignment + (2 * size + constants) * bn::limb_bytes));
    if (key == nullptr)
        return BE_ALLOC;
    Handle<RsaPublic, rsa_public_free> owner(key);
    bn::Pieces pieces{aligned(key + 1)};
    Limb *const n = pieces.take(size), *const r_squared = pieces.take(constants);
    Limb *const e = pieces.take(size);
    bn::load(n, size, modulus.octets, modulus.size);
    bn::load(e, size, exponent.octets, exponent.size);
    if (!bn::is_less(e, n, size))
        return BE_KEY_INFO;
    Limb scratch[2 * most_limbs + 1 + product_scratch(most_limbs)];
    modulus_init(&key->n, best_arithmetic(), n, size, modulus.bits(), r_squared, scratch);
    key->size = static_cast<uint32_t>(modulus.size);
    key->exponent = e;
    key->exponent_bits = exponent.bits();
    *key_out = owner.release();
    return BE_OK;
}

void rsa_public_free(RsaPublic *key) {
    free(key);
}

uint32_t rsa_public_size(const RsaPublic *key) {
    return key->size;
}

int rsa_public_apply(const RsaPublic *key, const uint8_t *in, uint8_t *out) {
    const std::size_t size = key->n.size;
    Limb limbs[4 * most_limbs + product_scratch(most_limbs)];
    bn::Pieces pieces{limbs};
    Limb *const base = pieces.take(size), *const power = pieces.take(size);
    Limb *const scratch = pieces.take(key->n.arithmetic->public_power_scratch(key->n));
    bn::load(base, size, in, key->size);
    const bool in_range = bn::is_less(base, key->n.m, size) != 0;
    if (in_range) {
        key->n.arithmetic->public_power(power, base, key->exponent, key->exponent_bits, key->n,
                                        scratch);
        bn::store(out, key->size, power, size);
    }
    // What is encrypted is secret.
    explicit_bzero(limbs, static_cast<std::size_t>(pieces.next - limbs) * bn::limb_bytes);
    return in_range ? BE_OK : BE_DATA;
}

// ---- Private keys

namespace {

// What the key keeps for one of its primes, or for the modulus when the primes are not known. The
// order is the prime less one.
struct Factor {
    Modulus modulus;
    Limb *exponent;        // of the private operation, modulo the order
    Limb *public_exponent; // modulo the order; kept when it is long
    // In Montgomery form, for a random r: r ^ e and 1 / r, or r and 1 / r ^ d when e is not short.
    Limb *blind, *unblind;
};

// How often a blinding pair serves, squared after each use.
constexpr unsigned blinding_uses = 32;

} // namespace

struct RsaPrivate {
    uint32_t size;
    std::size_t block_size; // bytes
    Modulus n;
    int factors; // 2, or 1: the modulus itself
    Factor factor[2];
    Limb *coefficient; // 1 / the second prime mod the first
    Limb *exponent;    // the public exponent where it is short: where one number serves both primes
    std::size_t exponent_bits; // 0: it is long, or not known
    mutable unsigned blindings_left;
    // For one operation at a time: the numbers of rsa_private_apply and room for what it calls.
    Limb *work, *input, *message, *check, *residue[2];
    std::size_t scratch_size; // limbs, work first
};

namespace {

struct PrivateNumbers {
    Number modulus;
    int factors;
    Number factor[2], exponent[2], coefficient, public_exponent;
};

// An exponent of 1 is the identity: its result would tell the prime.
bool is_exponent(const Number &number) {
    return number.odd() && number.bits() > 1;
}

int check_numbers(const PrivateNumbers &numbers) {
    if (const int error = check_modulus(numbers.modulus))
        return error;
    const std::size_t bits = numbers.modulus.bits();
    if (numbers.factors == 1)
        return is_exponent(numbers.exponent[0]) ? BE_OK : BE_KEY_INFO;
    std::size_t sum = 0;
    for (int i = 0; i < 2; ++i) {
        if (!numbers.factor[i].odd() || numbers.factor[i].bits() < 2 ||
            numbers.factor[i].bits() >= bits || !is_exponent(numbers.exponent[i]))
            return BE_KEY_INFO;
        sum += numbers.factor[i].bits();
    }
    const Number &given = numbers.public_exponent;
    const bool exponent_fits =
        given.octets == nullptr || (is_exponent(given) && given.bits() <= bits);
    return exponent_fits && (sum == bits || sum == bits + 1) ? BE_OK : BE_KEY_INFO;
}

// numbers[i] = numbers[i] ^ exponent for each factor, in time by the lengths of the factors.
void power_each(const RsaPrivate *key, Limb *const (&numbers)[2], Limb *Factor::*exponent) {
    Power powers[2];
    for (int i = 0; i < key->factors; ++i) {
        const Factor &factor = key->factor[i];
        powers[i] = {&factor.modulus, numbers[i], numbers[i], factor.*exponent,
                     factor.modulus.bits};
    }
    key->n.arithmetic->power(powers, static_cast<std::size_t>(key->factors), key->work);
}

std::size_t power_each_scratch(const RsaPrivate *key) {
    Power powers[2];
    for (int i = 0; i < key->factors; ++i) {
        const Modulus &modulus = key->factor[i].modulus;
        powers[i] = {&modulus, nullptr, nullptr, nullptr, modulus.bits};
    }
    return key->n.arithmetic->power_scratch(powers, static_cast<std::size_t>(key->factors));
}

// Limbs for whatever is called while the key is prepared or used.
std::size_t work_size(const RsaPrivate *key) {
    const std::size_t n = key->n.size;
    const std::size_t longer = greater(key->factor[0].modulus.size, key->factor[1].modulus.size);
    std::size_t size =
        greater(power_each_scratch(key), key->n.arithmetic->public_power_scratch(key->n));
    size = greater(size, 2 * n + 1 + product_scratch(n));
    return greater(size,
                   4 * longer + greater(bn::inverse_scratch(longer), product_scratch(longer)));
}

// Lays the key's numbers out behind base, or only counts their limbs when base is null.
std::size_t lay_out(RsaPrivate *key, Limb *base) {
    const std::size_t n = key->n.size;
    const std::size_t size[2] = {key->factor[0].modulus.size, key->factor[1].modulus.size};
    std::size_t used = 0;
    const auto take = [&](std::size_t count) {
        Limb *const piece = base != nullptr ? base + used : nullptr;
        used += count;
        return piece;
    };
    key->work = take(work_size(key));
    key->input = take(n);
    key->check = take(n);
    key->message = take(greater(n, 2 * greater(size[0], size[1])));
    key->residue[0] = take(size[0]);
    key->residue[1] = take(size[1]);
    key->scratch_size = used;
    key->n.m = take(n);
    key->n.r_squared = take(key->n.arithmetic->constants_size(n, key->n.bits));
    key->coefficient = take(size[0]);
    key->exponent = take(greater(size[0], size[1]));
    for (int i = 0; i < key->factors; ++i) {
        Factor &factor = key->factor[i];
        Modulus &modulus = factor.modulus;
        modulus.m = take(size[i]);
        modulus.r_squared = take(key->n.arithmetic->constants_size(size[i], modulus.bits));
        factor.exponent = take(size[i]);
        factor.public_exponent = take(size[i]);
        factor.blind = take(size[i]);
        factor.unblind = take(size[i]);
    }
    return used;
}

void prepare_modulus(Modulus *modulus, const Number &number, Limb *work) {
    bn::load(modulus->m, modulus->size, number.octets, number.size);
    modulus_init(modulus, best_arithmetic(), modulus->m, modulus->size, number.bits(),
                 modulus->r_squared, work);
}

bool primes_make_modulus(const RsaPrivate *key) {
    const Modulus &n = key->n, &p = key->factor[0].modulus, &q = key->factor[1].modulus;
    bn::multiply(key->message, p.m, p.size, q.m, q.size);
    const std::size_t both = p.size + q.size < n.size ? p.size + q.size : n.size;
    return (bn::is_equal(key->message, n.m, both) &
            bn::is_zero(key->message + both, p.size + q.size - both) &
            bn::is_zero(n.m + both, n.size - both)) != 0;
}

bool coefficient_is_inverse(const RsaPrivate *key) {
    const Modulus &p = key->factor[0].modulus, &q = key->factor[1].modulus;
    bn::Pieces pieces{key->work};
    Limb *const product = pieces.take(p.size);
    Limb *const scratch = pieces.take(p.size + product_scratch(p.size));
    montgomery_enter(product, q.m, q.size, p, scratch);
    montgomery_multiply(product, key->coefficient, product, p, scratch);
    product[0] ^= 1;
    return (bn::is_less(key->coefficient, p.m, p.size) & bn::is_zero(product, p.size)) != 0;
}

void copy_order(Limb *order, const Factor &factor) {
    bn::copy(order, factor.modulus.m, factor.modulus.size);
    order[0] ^= 1;
}

// Whether e times the factor's exponent is 1 modulo the order, for an e below 2^17.
Limb exponents_match(const Factor &factor, Limb e, Limb *work) {
    const std::size_t size = factor.modulus.size;
    bn::Pieces pieces{work};
    Limb *const order = pieces.take(size), *const product = pieces.take(size + 1);
    Limb *const scratch = pieces.take(size + 1);
    copy_order(order, factor);
    product[size] = bn::multiply_small(product, factor.exponent, size, e);
    bn::remainder_small_quotient(product, order, size, 17, scratch);
    product[0] ^= 1;
    return bn::is_zero(product, size + 1);
}

// public_exponent = 1 / exponent modulo the order, which is even: by the inverse of the order
// modulo the exponent, which is odd, for e d = 1 + k order.
Limb invert_exponent(const Factor &factor, Limb *work) {
    const std::size_t size = factor.modulus.size;
    bn::Pieces pieces{work};
    Limb *const order = pieces.take(size), *const k = pieces.take(size);
    Limb *const product = pieces.take(size), *const inverse = pieces.take(size);
    Limb *const scratch = pieces.next;
    copy_order(order, factor);
    const Limb found = bn::inverse(k, order, factor.exponent, size, factor.modulus.bits, scratch);
    bn::subtract(k, factor.exponent, k, size);
    bn::multiply_low(product, k, order, size);
    bn::add_small(product, size, 1);
    bn::inverse_of_power_of_two(inverse, factor.exponent, size, scratch);
    bn::multiply_low(factor.public_exponent, product, inverse, size);
    return found;
}

Limb is_public_exponent(const Factor &factor, const Number &e, Limb *work) {
    const std::size_t size = factor.modulus.size;
    bn::Pieces pieces{work};
    Limb *const order = pieces.take(size), *const reduced = pieces.take(size);
    copy_order(order, factor);
    bn::remainder(reduced, order, size, e.octets, e.size);
    return bn::is_equal(reduced, factor.public_exponent, size);
}

constexpr std::size_t small_exponent_bits = 17;

// The exponent below 2^17, 0 for none: the one given, or one of those in use.
Limb small_exponent(const RsaPrivate *key, const Number &given) {
    constexpr Limb usual[] = {65537, 3, 17, 5, 7, 15, 257};
    Limb e = 0;
    for (std::size_t i = 0; i < given.size; ++i)
        e = e << 8 | given.octets[i];
    const std::span<const Limb> candidates =
        given.size != 0 ? std::span<const Limb>(&e, 1) : std::span<const Limb>(usual);
    for (const Limb candidate : candidates)
        if ((exponents_match(key->factor[0], candidate, key->work) &
             exponents_match(key->factor[1], candidate, key->work)) != 0)
            return candidate;
    return 0;
}

// An exponent that is the same number modulo both orders is itself that number.
bool find_long_exponent(RsaPrivate *key, const Number &given) {
    const Factor &p = key->factor[0], &q = key->factor[1];
    const std::size_t size = greater(p.modulus.size, q.modulus.size);
    if ((invert_exponent(p, key->work) & invert_exponent(q, key->work)) == 0)
        return false;
    if (given.size != 0 &&
        (is_public_exponent(p, given, key->work) & is_public_exponent(q, given, key->work)) == 0)
        return false;
    Limb *const e = key->exponent, *const other = key->message;
    bn::set_small(e, size, 0);
    bn::set_small(other, size, 0);
    bn::copy(e, p.public_exponent, p.modulus.size);
    bn::copy(other, q.public_exponent, q.modulus.size);
    if (bn::is_equal(e, other, size) != 0)
        key->exponent_bits = bn::length_in_bits(e, size);
    return true;
}

// Finds the public exponent, given or not.
bool find_exponent(RsaPrivate *key, const Number &given) {
    const bool is_small = given.size != 0 && given.bits() <= small_exponent_bits;
    const Limb e = given.size == 0 || is_small ? small_exponent(key, given) : 0;
    if (e == 0)
        return !is_small && find_long_exponent(key, given);
    bn::set_small(key->exponent, greater(key->factor[0].modulus.size, key->factor[1].modulus.size),
                  e);
    key->exponent_bits = bn::length_in_bits(key->exponent, 1);
    return true;
}

bool fill_numbers(RsaPrivate *key, const PrivateNumbers &numbers) {
    prepare_modulus(&key->n, numbers.modulus, key->work);
    for (int i = 0; i < key->factors; ++i) {
        Factor &factor = key->factor[i];
        prepare_modulus(&factor.modulus, numbers.factor[i], key->work);
        if (!bn::load(factor.exponent, factor.modulus.size, numbers.exponent[i].octets,
                      numbers.exponent[i].size) ||
            !bn::is_less(factor.exponent, factor.modulus.m, factor.modulus.size))
            return false;
    }
    return bn::load(key->coefficient, key->factor[0].modulus.size, numbers.coefficient.octets,
                    numbers.coefficient.size);
}

bool numbers_belong_together(RsaPrivate *key, const PrivateNumbers &numbers) {
    return key->factors == 1 || (primes_make_modulus(key) && coefficient_is_inverse(key) &&
                                 find_exponent(key, numbers.public_exponent));
}

int private_new(RsaPrivate **key_out, const PrivateNumbers &from) {
    *key_out = nullptr;
    if (const int error = check_numbers(from))
        return error;
    RsaPrivate plan = {};
    plan.n.arithmetic = best_arithmetic();
    plan.n.size = padded_size(from.modulus);
    plan.n.bits = from.modulus.bits();
    plan.factors = from.factors;
    for (int i = 0; i < from.factors; ++i) {
        plan.factor[i].modulus.size = padded_size(from.factor[i]);
        plan.factor[i].modulus.bits = from.factor[i].bits();
    }
    plan.block_size = sizeof(RsaPrivate) + alignment + lay_out(&plan, nullptr) * bn::limb_bytes;
    auto *const key = static_cast<RsaPrivate *>(malloc(plan.block_size));
    if (key == nullptr)
        return BE_ALLOC;
    *key = plan;
    lay_out(key, aligned(key + 1));
    key->size = static_cast<uint32_t>(from.modulus.size);
    Handle<RsaPrivate, rsa_private_free> owner(key);
    if (!fill_numbers(key, from) || !numbers_belong_together(key, from))
        return BE_KEY_INFO;
    explicit_bzero(key->work, key->scratch_size * bn::limb_bytes);
    *key_out = owner.release();
    return BE_OK;
}

} // namespace

int rsa_private_new(RsaPrivate **key_out, const A_RSA_CRT_KEY &numbers,
                    const ITEM &public_exponent) {
    return private_new(key_out,
                       {Number(numbers.modulus),
                        2,
                        {Number(numbers.prime[0]), Number(numbers.prime[1])},
                        {Number(numbers.primeExponent[0]), Number(numbers.primeExponent[1])},
                        Number(numbers.coefficient),
                        Number(public_exponent)});
}

int rsa_private_new(RsaPrivate **key_out, const A_RSA_KEY &numbers) {
    const Number none(ITEM{}), modulus(numbers.modulus), exponent(numbers.exponent);
    return private_new(key_out, {modulus, 1, {modulus, none}, {exponent, none}, none, none});
}

void rsa_private_free(RsaPrivate *key) {
    if (key == nullptr)
        return;
    explicit_bzero(key, key->block_size);
    free(key);
}

uint32_t rsa_private_size(const RsaPrivate *key) {
    return key->size;
}

namespace {

// out = base ^ e in Montgomery form; base stays.
void raise_to_public(Limb *out, const Limb *base, const RsaPrivate *key, const Modulus &m,
                     Limb *scratch) {
    bn::copy(out, base, m.size);
    for (std::size_t at = key->exponent_bits - 1; at-- > 0;) {
        montgomery_square(out, out, m, scratch);
        if (bn::bit(key->exponent, at))
            montgomery_multiply(out, out, base, m, scratch);
    }
}

// A fresh random r for one factor. The mask says whether it has an inverse.
Limb new_blinding(const RsaPrivate *key, const Factor &factor) {
    const Modulus &m = factor.modulus;
    bn::Pieces pieces{key->work};
    Limb *const random = pieces.take(m.size), *const scratch = pieces.next;
    bn::copy(random, factor.blind, m.size);
    montgomery_multiply(random, random, m.r_squared, m, scratch);
    const Limb found = bn::inverse(factor.unblind, random, m.m, m.size, m.bits, scratch);
    // The inverse of r R is 1 / r R, and twice a factor of R short.
    montgomery_multiply(factor.unblind, factor.unblind, m.r_squared, m, scratch);
    montgomery_multiply(factor.unblind, factor.unblind, m.r_squared, m, scratch);
    if (key->exponent_bits != 0)
        raise_to_public(factor.blind, random, key, m, scratch);
    else
        bn::copy(factor.blind, random, m.size);
    return found;
}

int renew_blinding(const RsaPrivate *key) {
    const RandomSource random = system_random();
    // A prime so short that a random number is a multiple of it again and again is not supported.
    for (int tries = 0; tries < 128; ++tries) {
        Limb found = ~Limb(0);
        for (int i = 0; i < key->factors; ++i) {
            const Factor &factor = key->factor[i];
            if (!random.fill(random.state, reinterpret_cast<uint8_t *>(factor.blind),
                             factor.modulus.size * bn::limb_bytes))
                return BE_RANDOM_OBJ;
            found &= new_blinding(key, factor);
        }
        if (found != 0) {
            if (key->exponent_bits == 0)
                power_each(key, {key->factor[0].unblind, key->factor[1].unblind},
                           &Factor::exponent);
            key->blindings_left = blinding_uses;
            return BE_OK;
        }
    }
    return BE_INTERNAL;
}

void square_blinding(const RsaPrivate *key) {
    for (int i = 0; i < key->factors; ++i) {
        const Factor &factor = key->factor[i];
        montgomery_square(factor.blind, factor.blind, factor.modulus, key->work);
        montgomery_square(factor.unblind, factor.unblind, factor.modulus, key->work);
    }
}

// residue[i] = input ^ d modulo each factor, in Montgomery form.
void powers_of_input(const RsaPrivate *key) {
    for (int i = 0; i < key->factors; ++i) {
        const Factor &factor = key->factor[i];
        montgomery_enter(key->residue[i], key->input, key->n.size, factor.modulus, key->work);
        montgomery_multiply(key->residue[i], key->residue[i], factor.blind, factor.modulus,
                            key->work);
    }
    power_each(key, key->residue, &Factor::exponent);
    for (int i = 0; i < key->factors; ++i) {
        const Factor &factor = key->factor[i];
        montgomery_multiply(key->residue[i], key->residue[i], factor.unblind, factor.modulus,
                            key->work);
    }
}

// Garner: message = m2 + q ((m1 - m2) / q mod p).
void recombine(const RsaPrivate *key) {
    const Modulus &p = key->factor[0].modulus, &q = key->factor[1].modulus;
    bn::Pieces pieces{key->work};
    Limb *const m2 = pieces.take(q.size), *const h = pieces.take(p.size);
    Limb *const scratch = pieces.next;
    montgomery_leave(m2, key->residue[1], q, scratch);
    montgomery_enter(h, m2, q.size, p, scratch);
    bn::subtract_modulo(h, key->residue[0], h, p.m, p.size);
    montgomery_multiply(h, key->coefficient, h, p, scratch);
    bn::multiply(key->message, q.m, q.size, h, p.size);
    const Limb carry = bn::add(key->message, key->message, m2, q.size);
    bn::add_small(key->message + q.size, p.size, carry);
    for (std::size_t i = p.size + q.size; i < key->n.size; ++i)
        key->message[i] = 0;
}

// message ^ e is the input modulo each prime.
bool message_is_right_by_primes(const RsaPrivate *key) {
    for (int i = 0; i < key->factors; ++i)
        montgomery_enter(key->residue[i], key->message, key->n.size, key->factor[i].modulus,
                         key->work);
    power_each(key, key->residue, &Factor::public_exponent);
    Limb right = ~Limb(0);
    for (int i = 0; i < key->factors; ++i) {
        const Modulus &modulus = key->factor[i].modulus;
        montgomery_enter(key->check, key->input, key->n.size, modulus, key->work);
        right &= bn::is_equal(key->check, key->residue[i], modulus.size);
    }
    return right != 0;
}

bool message_is_right(const RsaPrivate *key) {
    if (key->exponent_bits == 0)
        return message_is_right_by_primes(key);
    key->n.arithmetic->public_power(key->check, key->message, key->exponent, key->exponent_bits,
                                    key->n, key->work);
    return bn::is_equal(key->check, key->input, key->n.size) != 0;
}

int apply_in_work(const RsaPrivate *key, const uint8_t *in, uint8_t *out) {
    bn::load(key->input, key->n.size, in, key->size);
    if (!bn::is_less(key->input, key->n.m, key->n.size))
        return BE_DATA;
    if (key->blindings_left == 0) {
        if (const int error = renew_blinding(key))
            return error;
    } else {
        square_blinding(key);
    }
    --key->blindings_left;
    powers_of_input(key);
    if (key->factors == 2) {
        recombine(key);
        if (!message_is_right(key))
            return BE_INTERNAL;
    } else {
        montgomery_leave(key->message, key->residue[0], key->n, key->work);
    }
    bn::store(out, key->size, key->message, key->n.size);
    return BE_OK;
}

} // namespace

int rsa_private_apply(const RsaPrivate *key, const uint8_t *in, uint8_t *out) {
    const int error = apply_in_work(key, in, out);
    if (error != BE_OK)
        key->blindings_left = 0;
    explicit_bzero(key->work, key->scratch_size * bn::limb_bytes);
    return error;
}

} // namespace toolkit
