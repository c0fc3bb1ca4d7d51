// RSA key generation (PKCS#1 v1.5, section 6; FIPS 186-4, B.3.3 for the distance of the primes).
#include <toolkit/rsa.h>

#include "ber.h"
#include "montgomery.h"
#include "prime.h"

#include <bit>

namespace toolkit {

using bn::Limb;

namespace {

// Room for everything about one key: `size` limbs hold the modulus, `half` each prime.
struct Workspace {
    std::size_t half, size;
    bn::Secret limbs;
    Limb *p, *q, *n, *order, *d, *dp, *dq, *coefficient, *e, *work;
    Modulus e_modulus;
};

// The exponent as a modulus: the private exponents are found by the inverse of an order modulo e.
bool new_workspace(Workspace *space, std::size_t bits, const ITEM &exponent) {
    const std::size_t half = prime_size((bits + 1) / 2), size = 2 * half;
    const std::size_t work_size = 3 * size + bn::inverse_scratch(size) + product_scratch(size);
    space->half = half;
    space->size = size;
    space->limbs = bn::allocate_limbs(5 * half + 5 * size + work_size);
    if (space->limbs == nullptr)
        return false;
    bn::Pieces pieces{space->limbs.get()};
    for (Limb **piece : {&space->p, &space->q, &space->dp, &space->dq, &space->coefficient})
        *piece = pieces.take(half);
    for (Limb **piece : {&space->n, &space->order, &space->d, &space->e})
        *piece = pieces.take(size);
    Limb *const r_squared = pieces.take(size);
    space->work = pieces.take(work_size);
    bn::load(space->e, size, exponent.data, exponent.len);
    const std::size_t e_bits = bn::length_in_bits(space->e, size);
    modulus_init(&space->e_modulus, &portable_arithmetic, space->e, bn::limbs_for_bits(e_bits),
                 e_bits, r_squared, space->work);
    return true;
}

// out = 1 / e modulo an order prime to it: e out = 1 + k order with k = -1 / order mod e. The mask
// says whether the order is prime to e.
Limb private_exponent(Limb *out, const Limb *order, std::size_t count, const Workspace &space) {
    const Modulus &e = space.e_modulus;
    bn::Pieces pieces{space.work};
    Limb *const residue = pieces.take(space.size), *const k = pieces.take(space.size);
    Limb *const product = pieces.take(space.size);
    Limb *const scratch = pieces.next;
    montgomery_enter(residue, order, count, e, scratch);
    const Limb found = bn::inverse(k, residue, e.m, e.size, e.bits, scratch);
    montgomery_multiply(k, k, e.r_squared, e, scratch);
    bn::subtract(k, e.m, k, e.size);
    if (e.size < count)
        bn::set_small(k + e.size, count - e.size, 0);
    bn::multiply_low(product, k, order, count);
    bn::add_small(product, count, 1);
    bn::inverse_of_power_of_two(residue, e.m, count, scratch);
    bn::multiply_low(out, product, residue, count);
    return found;
}

// A prime whose order is prime to e, with its private exponent.
int prime_and_exponent(Limb *prime, Limb *exponent, const PrimeRequest &request,
                       const Workspace &space) {
    const std::size_t half = space.half;
    Limb found = 0;
    while (found == 0) {
        bn::set_small(prime, half, 0);
        if (const int error = random_prime(prime, request, space.e, space.e_modulus.size))
            return error;
        bn::copy(space.order, prime, half);
        space.order[0] ^= 1;
        found = private_exponent(exponent, space.order, half, space);
    }
    return BE_OK;
}

// Puts the greater prime first. False when they differ by less than half their length.
bool order_primes(const Workspace &space, std::size_t bits) {
    const std::size_t half = space.half, upper = bn::limbs_for_bits(bits / 2);
    const Limb swap = bn::is_less(space.p, space.q, half);
    bn::swap_if(swap, space.p, space.q, half);
    bn::swap_if(swap, space.dp, space.dq, half);
    bn::subtract(space.work, space.p, space.q, half);
    return bn::is_zero(space.work + upper, half - upper) == 0;
}

int make_numbers(const Workspace &space, std::size_t bits, const RandomSource &random,
                 const SurrenderContext *surrender) {
    const std::size_t half = space.half, size = space.size;
    const PrimeRequest for_p = {(bits + 1) / 2, random, surrender};
    const PrimeRequest for_q = {bits / 2, random, surrender};
    if (const int error = prime_and_exponent(space.p, space.dp, for_p, space))
        return error;
    int tries = 0;
    do {
        if (++tries > 8) // the generator repeats itself
            return BE_RANDOM_OBJ;
        if (const int error = prime_and_exponent(space.q, space.dq, for_q, space))
            return error;
    } while (!order_primes(space, for_q.bits));
    bn::multiply(space.n, space.p, half, space.q, half);
    // (p - 1) (q - 1) = n - p - q + 1
    bn::copy(space.order, space.n, size);
    Limb borrow = bn::subtract(space.order, space.order, space.p, half);
    bn::subtract_small(space.order + half, half, borrow);
    borrow = bn::subtract(space.order, space.order, space.q, half);
    bn::subtract_small(space.order + half, half, borrow);
    bn::add_small(space.order, size, 1);
    if ((private_exponent(space.d, space.order, size, space) &
         bn::inverse(space.coefficient, space.q, space.p, half, for_p.bits, space.work)) == 0)
        return BE_INTERNAL;
    return BE_OK;
}

// A number without leading zeros in memory of its own.
bool put(ITEM *item, const Limb *a, std::size_t count) {
    const std::size_t size = (bn::length_in_bits(a, count) + 7) / 8;
    item->data = static_cast<uint8_t *>(malloc(size));
    if (item->data == nullptr)
        return false;
    item->len = static_cast<uint32_t>(size);
    bn::store(item->data, size, a, count);
    return true;
}

} // namespace

bool rsa_can_generate(uint32_t modulus_bits, const ITEM &exponent) {
    if (exponent.data == nullptr)
        return false;
    const ITEM e = without_leading_zeros(exponent);
    if (modulus_bits < 256 || modulus_bits > 16384 || e.len == 0 || e.len > modulus_bits / 8 + 1)
        return false;
    const auto bits = 8 * (e.len - 1) + static_cast<uint32_t>(std::bit_width(e.data[0]));
    return bits > 1 && bits < modulus_bits && (e.data[e.len - 1] & 1) != 0;
}

int rsa_generate(A_PKCS_RSA_PRIVATE_KEY *key_out, uint32_t modulus_bits, const ITEM &exponent,
                 const RandomSource &random, const SurrenderContext *surrender) {
    *key_out = {};
    if (!rsa_can_generate(modulus_bits, exponent))
        return BE_ALGORITHM_INFO;
    Workspace space = {};
    if (!new_workspace(&space, modulus_bits, without_leading_zeros(exponent)))
        return BE_ALLOC;
    if (const int error = make_numbers(space, modulus_bits, random, surrender))
        return error;
    A_PKCS_RSA_PRIVATE_KEY key = {};
    const bool complete =
        put(&key.modulus, space.n, space.size) && put(&key.publicExponent, space.e, space.size) &&
        put(&key.privateExponent, space.d, space.size) && put(&key.prime[0], space.p, space.half) &&
        put(&key.prime[1], space.q, space.half) &&
        put(&key.primeExponent[0], space.dp, space.half) &&
        put(&key.primeExponent[1], space.dq, space.half) &&
        put(&key.coefficient, space.coefficient, space.half);
    if (!complete) {
        rsa_key_free(&key);
        return BE_ALLOC;
    }
    *key_out = key;
    return BE_OK;
}

void rsa_key_free(A_PKCS_RSA_PRIVATE_KEY *key) {
    if (key == nullptr)
        return;
    for (ITEM *item :
         {&key->modulus, &key->publicExponent, &key->privateExponent, &key->prime[0],
          &key->prime[1], &key->primeExponent[0], &key->primeExponent[1], &key->coefficient}) {
        if (item->data != nullptr)
            explicit_bzero(item->data, item->len);
        free(item->data);
        *item = {};
    }
}

} // namespace toolkit
