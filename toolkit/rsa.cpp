// RSA (PKCS#1 v1.5, section 8.1 and 9: the exponentiation) on prepared keys.
#include <toolkit/rsa.h>

#include "montgomery.h"

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

// ---- Public keys --------------------------------------------------------------------------------

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
    if (!exponent.odd() || exponent.bits() < 2 || exponent.bits() > modulus.bits())
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

// ---- Private keys -------------------------------------------------------------------------------

namespace {

// What the key keeps for one of its primes.
struct Prime {
    Modulus modulus;
    Limb *exponent; // of the private operation, modulo the prime less one
    // In Montgomery form: r ^ e and 1 / r for a random r.
    Limb *blind, *unblind;
};

// How often a blinding pair serves, squared after each use.
constexpr unsigned blinding_uses = 32;

} // namespace

struct RsaPrivate {
    uint32_t size;
    std::size_t block_size; // bytes
    Modulus n;
    Prime prime[2];
    Limb *coefficient; // 1 / prime[1] mod prime[0]
    Limb *exponent;    // the public exponent
    std::size_t exponent_bits;
    mutable unsigned blindings_left;
    // For one operation at a time: the numbers of rsa_private_apply and room for what it calls.
    Limb *work, *input, *message, *check, *residue[2];
    std::size_t scratch_size; // limbs, work first
};

namespace {

struct PrivateNumbers {
    Number modulus, prime[2], exponent[2], coefficient;
};

int check_numbers(const PrivateNumbers &numbers) {
    if (const int error = check_modulus(numbers.modulus))
        return error;
    const std::size_t bits = numbers.modulus.bits();
    std::size_t sum = 0;
    for (int i = 0; i < 2; ++i) {
        if (!numbers.prime[i].odd() || numbers.prime[i].bits() < 2 ||
            numbers.prime[i].bits() >= bits || !numbers.exponent[i].odd())
            return BE_KEY_INFO;
        sum += numbers.prime[i].bits();
    }
    return sum == bits || sum == bits + 1 ? BE_OK : BE_KEY_INFO;
}

Power private_power(const RsaPrivate *key, int i) {
    const Prime &prime = key->prime[i];
    return {&prime.modulus, key->residue[i], key->residue[i], prime.exponent, prime.modulus.bits};
}

// Limbs for whatever is called while the key is prepared or used.
std::size_t work_size(const RsaPrivate *key) {
    const std::size_t n = key->n.size;
    const std::size_t longer = greater(key->prime[0].modulus.size, key->prime[1].modulus.size);
    const Power powers[2] = {private_power(key, 0), private_power(key, 1)};
    std::size_t size = key->n.arithmetic->power_scratch(powers, 2);
    size = greater(size, key->n.arithmetic->public_power_scratch(key->n));
    size = greater(size, 2 * n + 1 + product_scratch(n));
    return greater(size,
                   4 * longer + greater(bn::inverse_scratch(longer), product_scratch(longer)));
}

// Lays the key's numbers out behind base, or only counts their limbs when base is null.
std::size_t lay_out(RsaPrivate *key, Limb *base) {
    const std::size_t n = key->n.size;
    const std::size_t size[2] = {key->prime[0].modulus.size, key->prime[1].modulus.size};
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
    for (int i = 0; i < 2; ++i) {
        Prime &prime = key->prime[i];
        prime.modulus.m = take(size[i]);
        prime.modulus.r_squared =
            take(key->n.arithmetic->constants_size(size[i], prime.modulus.bits));
        prime.exponent = take(size[i]);
        prime.blind = take(size[i]);
        prime.unblind = take(size[i]);
    }
    return used;
}

void prepare_modulus(Modulus *modulus, const Number &number, Limb *work) {
    bn::load(modulus->m, modulus->size, number.octets, number.size);
    modulus_init(modulus, best_arithmetic(), modulus->m, modulus->size, number.bits(),
                 modulus->r_squared, work);
}

bool primes_make_modulus(const RsaPrivate *key) {
    const Modulus &n = key->n, &p = key->prime[0].modulus, &q = key->prime[1].modulus;
    bn::multiply(key->message, p.m, p.size, q.m, q.size);
    const std::size_t both = p.size + q.size < n.size ? p.size + q.size : n.size;
    return (bn::is_equal(key->message, n.m, both) &
            bn::is_zero(key->message + both, p.size + q.size - both) &
            bn::is_zero(n.m + both, n.size - both)) != 0;
}

bool coefficient_is_inverse(const RsaPrivate *key) {
    const Modulus &p = key->prime[0].modulus, &q = key->prime[1].modulus;
    bn::Pieces pieces{key->work};
    Limb *const product = pieces.take(p.size);
    Limb *const scratch = pieces.take(p.size + product_scratch(p.size));
    montgomery_enter(product, q.m, q.size, p, scratch);
    montgomery_multiply(product, key->coefficient, product, p, scratch);
    product[0] ^= 1;
    return (bn::is_less(key->coefficient, p.m, p.size) & bn::is_zero(product, p.size)) != 0;
}

// Whether e times the prime's exponent is 1 modulo the prime less one, for an e below 2^17.
Limb exponents_match(const Prime &prime, Limb e, Limb *work) {
    const std::size_t size = prime.modulus.size;
    bn::Pieces pieces{work};
    Limb *const order = pieces.take(size), *const product = pieces.take(size + 1);
    Limb *const scratch = pieces.take(size + 1);
    bn::copy(order, prime.modulus.m, size);
    order[0] ^= 1;
    product[size] = bn::multiply_small(product, prime.exponent, size, e);
    bn::remainder_small_quotient(product, order, size, 17, scratch);
    product[0] ^= 1;
    return bn::is_zero(product, size + 1);
}

// e = 1 / d mod (p - 1), by the inverse of p - 1 modulo d, which is odd: e d = 1 + k (p - 1).
Limb exponent_of_prime(Limb *e, const Prime &prime, Limb *work) {
    const std::size_t size = prime.modulus.size;
    bn::Pieces pieces{work};
    Limb *const order = pieces.take(size), *const k = pieces.take(size);
    Limb *const product = pieces.take(size), *const inverse = pieces.take(size);
    Limb *const scratch = pieces.next;
    bn::copy(order, prime.modulus.m, size);
    order[0] ^= 1;
    const Limb found = bn::inverse(k, order, prime.exponent, size, prime.modulus.bits, scratch);
    bn::subtract(k, prime.exponent, k, size);
    bn::multiply_low(product, k, order, size);
    bn::add_small(product, size, 1);
    bn::inverse_of_power_of_two(inverse, prime.exponent, size, scratch);
    bn::multiply_low(e, product, inverse, size);
    return found;
}

// Finds the public exponent, which the numbers do not name: first among those in use.
bool recover_exponent(RsaPrivate *key) {
    constexpr Limb usual[] = {65537, 3, 17, 5, 7, 15, 257};
    const std::size_t size = greater(key->prime[0].modulus.size, key->prime[1].modulus.size);
    bn::set_small(key->exponent, size, 0);
    for (const Limb e : usual)
        if ((exponents_match(key->prime[0], e, key->work) &
             exponents_match(key->prime[1], e, key->work)) != 0)
            key->exponent[0] = e;
    if (key->exponent[0] == 0) {
        // No common exponent shorter than the primes: the numbers do not belong together.
        Limb found = ~Limb(0);
        Limb *const each[2] = {key->message, key->message + size};
        bn::set_small(key->message, 2 * size, 0);
        for (int i = 0; i < 2; ++i)
            found &= exponent_of_prime(each[i], key->prime[i], key->work);
        if ((found & bn::is_equal(each[0], each[1], size)) == 0)
            return false;
        bn::copy(key->exponent, each[0], size);
    }
    key->exponent_bits = bn::length_in_bits(key->exponent, size);
    return key->exponent_bits > 1;
}

bool fill_numbers(RsaPrivate *key, const PrivateNumbers &numbers) {
    prepare_modulus(&key->n, numbers.modulus, key->work);
    for (int i = 0; i < 2; ++i) {
        Prime &prime = key->prime[i];
        prepare_modulus(&prime.modulus, numbers.prime[i], key->work);
        if (!bn::load(prime.exponent, prime.modulus.size, numbers.exponent[i].octets,
                      numbers.exponent[i].size) ||
            !bn::is_less(prime.exponent, prime.modulus.m, prime.modulus.size))
            return false;
    }
    return bn::load(key->coefficient, key->prime[0].modulus.size, numbers.coefficient.octets,
                    numbers.coefficient.size);
}

} // namespace

int rsa_private_new(RsaPrivate **key_out, const A_RSA_CRT_KEY &numbers) {
    *key_out = nullptr;
    const PrivateNumbers from = {
        Number(numbers.modulus),
        {Number(numbers.prime[0]), Number(numbers.prime[1])},
        {Number(numbers.primeExponent[0]), Number(numbers.primeExponent[1])},
        Number(numbers.coefficient)};
    if (const int error = check_numbers(from))
        return error;
    RsaPrivate plan = {};
    plan.n.arithmetic = best_arithmetic();
    plan.n.size = padded_size(from.modulus);
    plan.n.bits = from.modulus.bits();
    for (int i = 0; i < 2; ++i) {
        plan.prime[i].modulus.size = padded_size(from.prime[i]);
        plan.prime[i].modulus.bits = from.prime[i].bits();
    }
    plan.block_size = sizeof(RsaPrivate) + alignment + lay_out(&plan, nullptr) * bn::limb_bytes;
    auto *const key = static_cast<RsaPrivate *>(malloc(plan.block_size));
    if (key == nullptr)
        return BE_ALLOC;
    *key = plan;
    lay_out(key, aligned(key + 1));
    key->size = static_cast<uint32_t>(from.modulus.size);
    Handle<RsaPrivate, rsa_private_free> owner(key);
    if (!fill_numbers(key, from) || !primes_make_modulus(key) || !coefficient_is_inverse(key) ||
        !recover_exponent(key))
        return BE_KEY_INFO;
    explicit_bzero(key->work, key->scratch_size * bn::limb_bytes);
    *key_out = owner.release();
    return BE_OK;
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

// A fresh random r for one prime. The mask says whether it has an inverse.
Limb new_blinding(const RsaPrivate *key, const Prime &prime) {
    const Modulus &m = prime.modulus;
    bn::Pieces pieces{key->work};
    Limb *const random = pieces.take(m.size), *const scratch = pieces.next;
    bn::copy(random, prime.blind, m.size);
    montgomery_multiply(random, random, m.r_squared, m, scratch);
    const Limb found = bn::inverse(prime.unblind, random, m.m, m.size, m.bits, scratch);
    // The inverse of r R is 1 / r R, and twice a factor of R short.
    montgomery_multiply(prime.unblind, prime.unblind, m.r_squared, m, scratch);
    montgomery_multiply(prime.unblind, prime.unblind, m.r_squared, m, scratch);
    raise_to_public(prime.blind, random, key, m, scratch);
    return found;
}

int renew_blinding(const RsaPrivate *key) {
    const RandomSource random = system_random();
    // A prime so short that a random number is a multiple of it again and again is not supported.
    for (int tries = 0; tries < 128; ++tries) {
        Limb found = ~Limb(0);
        for (const Prime &prime : key->prime) {
            if (!random.fill(random.state, reinterpret_cast<uint8_t *>(prime.blind),
                             prime.modulus.size * bn::limb_bytes))
                return BE_RANDOM_OBJ;
            found &= new_blinding(key, prime);
        }
        if (found != 0) {
            key->blindings_left = blinding_uses;
            return BE_OK;
        }
    }
    return BE_INTERNAL;
}

void square_blinding(const RsaPrivate *key) {
    for (const Prime &prime : key->prime) {
        montgomery_square(prime.blind, prime.blind, prime.modulus, key->work);
        montgomery_square(prime.unblind, prime.unblind, prime.modulus, key->work);
    }
}

// residue[i] = input ^ d modulo each prime, in Montgomery form.
void powers_of_input(const RsaPrivate *key) {
    for (int i = 0; i < 2; ++i) {
        const Prime &prime = key->prime[i];
        montgomery_enter(key->residue[i], key->input, key->n.size, prime.modulus, key->work);
        montgomery_multiply(key->residue[i], key->residue[i], prime.blind, prime.modulus,
                            key->work);
    }
    const Power powers[2] = {private_power(key, 0), private_power(key, 1)};
    key->n.arithmetic->power(powers, 2, key->work);
    for (int i = 0; i < 2; ++i) {
        const Prime &prime = key->prime[i];
        montgomery_multiply(key->residue[i], key->residue[i], prime.unblind, prime.modulus,
                            key->work);
    }
}

// Garner: message = m2 + q ((m1 - m2) / q mod p).
void recombine(const RsaPrivate *key) {
    const Modulus &p = key->prime[0].modulus, &q = key->prime[1].modulus;
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

bool message_is_right(const RsaPrivate *key) {
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
    recombine(key);
    if (!message_is_right(key))
        return BE_INTERNAL;
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
