// Diffie-Hellman key agreement (PKCS#3).
#include <toolkit/dh.h>

#include "montgomery.h"
#include "prime.h"

namespace toolkit {

using bn::Limb;

struct DhGroup {
    uint32_t size; // of the prime, bytes
    uint32_t exponent_bits;
    Modulus p;
    Limb *base; // in Montgomery form
};

namespace {

constexpr std::size_t least_prime_bits = 256;
constexpr std::size_t most_prime_bits = 16384;
constexpr std::size_t most_limbs = bn::limbs_for_bits(most_prime_bits);

std::size_t bits_of(const ITEM &number) {
    if (number.data == nullptr)
        return 0;
    std::size_t bits = 8 * std::size_t{number.len};
    while (bits != 0 && (number.data[number.len - (bits + 7) / 8] >> (bits - 1) % 8 & 1) == 0)
        --bits;
    return bits;
}

// Above 1 and below m - 1; such values are no base and no public value.
bool in_range(const Limb *a, const Modulus &m) {
    Limb above_one[most_limbs], rest = 0;
    bn::copy(above_one, a, m.size);
    rest = bn::subtract_small(above_one, m.size, 2);
    Limb next[most_limbs];
    bn::copy(next, a, m.size);
    rest |= bn::add_small(next, m.size, 1);
    return rest == 0 && bn::is_less(next, m.m, m.size) != 0;
}

// out = base ^ exponent as octets; base in Montgomery form, exponent as dh_private_size octets.
int raise(const DhGroup *group, const Limb *base, const uint8_t *exponent, uint8_t *out) {
    const std::size_t size = group->p.size;
    const std::size_t exponent_size = bn::limbs_for_bits(group->exponent_bits);
    const std::size_t product = size + product_scratch(size);
    Power power = {&group->p, nullptr, base, nullptr, group->exponent_bits};
    std::size_t work_size = group->p.arithmetic->power_scratch(&power, 1);
    work_size = work_size > product ? work_size : product;
    const bn::Secret limbs = bn::allocate_limbs(size + exponent_size + work_size);
    if (limbs == nullptr)
        return BE_ALLOC;
    bn::Pieces pieces{limbs.get()};
    Limb *const value = pieces.take(exponent_size);
    power.exponent = value;
    power.result = pieces.take(size);
    bn::load(value, exponent_size, exponent, dh_private_size(group));
    group->p.arithmetic->power(&power, 1, pieces.next);
    montgomery_leave(power.result, power.result, group->p, pieces.next);
    bn::store(out, group->size, power.result, size);
    return BE_OK;
}

} // namespace

int dh_group_new(DhGroup **group_out, const ITEM &prime, const ITEM &base, uint32_t exponent_bits) {
    *group_out = nullptr;
    const std::size_t bits = bits_of(prime);
    if (bits < least_prime_bits || bits > most_prime_bits)
        return BE_MODULUS_LEN;
    if (exponent_bits == 0)
        exponent_bits = static_cast<uint32_t>(bits - 1);
    if ((prime.data[prime.len - 1] & 1) == 0 || exponent_bits >= bits || bits_of(base) > bits)
        return BE_ALGORITHM_INFO;
    const std::size_t size = best_arithmetic()->padded_size(bn::limbs_for_bits(bits));
    const std::size_t constants = best_arithmetic()->constants_size(size, bits);
    auto *const group =
        static_cast<DhGroup *>(malloc(sizeof(DhGroup) + (2 * size + constants) * bn::limb_bytes));
    if (group == nullptr)
        return BE_ALLOC;
    Handle<DhGroup, dh_group_free> owner(group);
    bn::Pieces pieces{reinterpret_cast<Limb *>(group + 1)};
    Limb *const p = pieces.take(size), *const r_squared = pieces.take(constants);
    group->base = pieces.take(size);
    group->size = static_cast<uint32_t>((bits + 7) / 8);
    group->exponent_bits = exponent_bits;
    bn::load(p, size, prime.data, prime.len);
    bn::load(group->base, size, base.data, base.len);
    Limb scratch[2 * most_limbs + 1 + product_scratch(most_limbs)];
    modulus_init(&group->p, best_arithmetic(), p, size, bits, r_squared, scratch);
    if (!in_range(group->base, group->p))
        return BE_ALGORITHM_INFO;
    montgomery_multiply(group->base, group->base, r_squared, group->p, scratch);
    *group_out = owner.release();
    return BE_OK;
}

void dh_group_free(DhGroup *group) {
    free(group);
}

uint32_t dh_group_size(const DhGroup *group) {
    return group->size;
}

uint32_t dh_private_size(const DhGroup *group) {
    return (group->exponent_bits + 7) / 8;
}

int dh_generate(const DhGroup *group, uint8_t *private_out, uint8_t *public_out,
                const RandomSource &random) {
    const uint32_t size = dh_private_size(group);
    const unsigned top = (group->exponent_bits - 1) % 8;
    int error = random.fill(random.state, private_out, size) ? BE_OK : BE_RANDOM_OBJ;
    if (error == BE_OK) {
        private_out[0] = static_cast<uint8_t>((private_out[0] & ((1u << top) - 1)) | 1u << top);
        error = raise(group, group->base, private_out, public_out);
    }
    if (error != BE_OK)
        explicit_bzero(private_out, size);
    return error;
}

int dh_agree(const DhGroup *group, const uint8_t *private_value, const uint8_t *peer,
             uint32_t peer_size, uint8_t *secret_out) {
    const Modulus &p = group->p;
    Limb base[most_limbs], scratch[product_scratch(most_limbs)];
    if (!bn::load(base, p.size, peer, peer_size) || !in_range(base, p))
        return BE_DATA;
    montgomery_multiply(base, base, p.r_squared, p, scratch);
    return raise(group, base, private_value, secret_out);
}

namespace {

bool put(ITEM *item, const Limb *a, std::size_t count) {
    const std::size_t size = (bn::length_in_bits(a, count) + 7) / 8;
    item->data = static_cast<uint8_t *>(malloc(size));
    item->len = item->data != nullptr ? static_cast<uint32_t>(size) : 0;
    if (item->data != nullptr)
        bn::store(item->data, size, a, count);
    return item->data != nullptr;
}

// The least h ^ ((p - 1) / q) that is not 1: its order is q. All of this is public.
int find_base(Limb *base, const Limb *prime, std::size_t bits, const Limb *q, std::size_t q_size) {
    const std::size_t limbs = bn::limbs_for_bits(bits);
    const std::size_t size = best_arithmetic()->padded_size(limbs);
    const std::size_t constants = best_arithmetic()->constants_size(size, bits);
    const bn::Secret room = bn::allocate_limbs(7 * size + constants + product_scratch(size));
    if (room == nullptr)
        return BE_ALLOC;
    bn::Pieces pieces{room.get()};
    Limb *const m = pieces.take(size), *const r_squared = pieces.take(constants);
    Limb *const h = pieces.take(size), *const factor = pieces.take(size);
    Limb *const divisor = pieces.take(size), *const power = pieces.take(size);
    Limb *const scratch = pieces.next;
    Modulus modulus;
    bn::copy(m, prime, limbs);
    modulus_init(&modulus, best_arithmetic(), m, size, bits, r_squared, scratch);
    // (p - 1) / q, which is exact.
    bn::copy(divisor, q, q_size < limbs ? q_size : limbs);
    bn::inverse_of_power_of_two(h, divisor, limbs, scratch);
    bn::copy(power, m, limbs);
    power[0] ^= 1;
    bn::multiply_low(factor, power, h, limbs);
    const std::size_t factor_bits = bn::length_in_bits(factor, limbs);
    bn::Limb least = 2;
    for (;; ++least) {
        bn::set_small(h, size, least);
        montgomery_multiply(h, h, r_squared, modulus, scratch);
        bn::copy(power, h, size);
        for (std::size_t at = factor_bits - 1; at-- > 0;) {
            montgomery_square(power, power, modulus, scratch);
            if (bn::bit(factor, at))
                montgomery_multiply(power, power, h, modulus, scratch);
        }
        montgomery_leave(power, power, modulus, scratch);
        if (in_range(power, modulus))
            break;
    }
    bn::copy(base, power, limbs);
    return BE_OK;
}

} // namespace

int dh_generate_parameters(ITEM *prime_out, ITEM *base_out, uint32_t prime_bits,
                           uint32_t exponent_bits, const RandomSource &random,
                           const SurrenderContext *surrender) {
    *prime_out = *base_out = {};
    if (prime_bits < least_prime_bits || prime_bits > most_prime_bits ||
        exponent_bits >= prime_bits)
        return BE_ALGORITHM_INFO;
    if (exponent_bits == 0)
        exponent_bits = prime_bits - 1;
    // No subgroup shorter than 160 bits; too little room above it means a safe prime.
    std::size_t q_bits = exponent_bits > 160 ? exponent_bits : 160;
    const bool safe = prime_bits - q_bits < 32;
    q_bits = safe ? prime_bits - 1 : q_bits;

    const std::size_t size = prime_size(prime_bits), q_size = prime_size(q_bits);
    const bn::Secret limbs = bn::allocate_limbs(3 * size);
    if (limbs == nullptr)
        return BE_ALLOC;
    bn::Pieces pieces{limbs.get()};
    Limb *const q = pieces.take(size), *const p = pieces.take(size), *const g = pieces.take(size);
    const PrimeRequest whole = {prime_bits, random, surrender};
    const PrimeRequest part = {q_bits, random, surrender};
    if (const int error =
            safe ? random_safe_prime_half(q, whole) : random_prime(q, part, nullptr, 0))
        return error;
    if (safe) {
        bn::add(p, q, q, size);
        p[0] |= 1;
    } else if (const int error = random_prime_above(p, whole, q, q_bits)) {
        return error;
    }
    if (const int error = find_base(g, p, prime_bits, q, q_size))
        return error;
    if (put(prime_out, p, size) && put(base_out, g, size))
        return BE_OK;
    free(prime_out->data);
    free(base_out->data);
    *prime_out = *base_out = {};
    return BE_ALLOC;
}

} // namespace toolkit
