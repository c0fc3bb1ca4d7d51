// Montgomery arithmetic: what all implementations share, and the portable one.
#include "montgomery.h"

#include "montgomery_power.h"

#include <atomic>

namespace toolkit {

using bn::Limb;
using bn::Wide;

// ---- Portable implementation

namespace {

// Products and reductions of `fixed` limbs that the compiler can unroll; 0: of any size.
template <std::size_t fixed> struct Portable {
    static std::size_t count(const Modulus &m) { return fixed != 0 ? fixed : m.size; }

    static Limb multiply_add(Limb *out, const Limb *a, std::size_t n, Limb factor) {
        Limb carry = 0;
        for (std::size_t i = 0; i < n; ++i) {
            const Wide product = Wide{a[i]} * factor + out[i] + carry;
            out[i] = static_cast<Limb>(product);
            carry = static_cast<Limb>(product >> bn::limb_bits);
        }
        return carry;
    }

    // out = t / R mod m for t (2 * size limbs) below R m; t is used up.
    static void reduce(Limb *out, Limb *t, const Modulus &m) {
        const std::size_t n = count(m);
        Limb top = 0;
        for (std::size_t i = 0; i < n; ++i) {
            const Limb carry = multiply_add(t + i, m.m, n, t[i] * m.negative_inverse);
            const Wide sum = Wide{t[n + i]} + carry + top;
            t[n + i] = static_cast<Limb>(sum);
            top = static_cast<Limb>(sum >> bn::limb_bits);
        }
        const Limb borrow = bn::subtract(t, t + n, m.m, n);
        bn::select(out, bn::mask_of_bit(borrow & ~top), t + n, t, n);
    }

    static void multiply(Limb *out, const Limb *a, const Limb *b, const Modulus &m, Limb *scratch) {
        const std::size_t n = count(m);
        bn::set_small(scratch, n, 0);
        for (std::size_t i = 0; i < n; ++i)
            scratch[n + i] = multiply_add(scratch + i, a, n, b[i]);
        reduce(out, scratch, m);
    }

    static void square(Limb *out, const Limb *a, const Modulus &m, Limb *scratch) {
        const std::size_t n = count(m);
        bn::set_small(scratch, n + 1, 0);
        for (std::size_t i = 0; i + 1 < n; ++i)
            scratch[n + i] = multiply_add(scratch + 2 * i + 1, a + i + 1, n - i - 1, a[i]);
        scratch[2 * n - 1] = 0;
        Limb carry = 0;
        for (std::size_t i = 0; i < n; ++i) {
            const Wide diagonal = Wide{a[i]} * a[i];
            const Limb low = scratch[2 * i], high = scratch[2 * i + 1];
            const Wide first = Wide{low << 1} + static_cast<Limb>(diagonal) + carry;
            scratch[2 * i] = static_cast<Limb>(first);
            const Wide second = Wide{high << 1 | low >> (bn::limb_bits - 1)} +
                                static_cast<Limb>(diagonal >> bn::limb_bits) +
                                static_cast<Limb>(first >> bn::limb_bits);
            scratch[2 * i + 1] = static_cast<Limb>(second);
            carry = static_cast<Limb>(second >> bn::limb_bits) + (high >> (bn::limb_bits - 1));
        }
        reduce(out, scratch, m);
    }

    static void read(Limb *out, const Limb *table, std::size_t entries, std::size_t size,
                     Limb index) {
        read_table(out, table, entries, size, index);
    }
};

void portable_multiply(Limb *out, const Limb *a, const Limb *b, const Modulus &m, Limb *scratch) {
    if (m.size == 4)
        return Portable<4>::multiply(out, a, b, m, scratch);
    if (m.size == 8)
        return Portable<8>::multiply(out, a, b, m, scratch);
    Portable<0>::multiply(out, a, b, m, scratch);
}

void portable_square(Limb *out, const Limb *a, const Modulus &m, Limb *scratch) {
    if (m.size == 4)
        return Portable<4>::square(out, a, m, scratch);
    if (m.size == 8)
        return Portable<8>::square(out, a, m, scratch);
    Portable<0>::square(out, a, m, scratch);
}

} // namespace

const Arithmetic portable_arithmetic = {
    "portable",
    [] { return true; },
    [](std::size_t limbs) { return limbs; },
    [](std::size_t size, std::size_t) { return size; },
    [](Modulus *, Limb *) {},
    portable_multiply,
    portable_square,
    fixed_window_scratch,
    power_by_size<Portable<4>, Portable<8>, Portable<0>>,
    limb_public_power_scratch,
    limb_public_power,
};

// ---- Choice

const Arithmetic *const all_arithmetics[] = {
    &portable_arithmetic,
#ifdef TOOLKIT_MULX
    &mulx_arithmetic,
    &ifma_arithmetic,
#endif
    nullptr,
};

namespace {
std::atomic<const Arithmetic *> chosen{nullptr};
}

const Arithmetic *best_arithmetic() {
    const Arithmetic *best = chosen.load(std::memory_order_relaxed);
    if (best != nullptr)
        return best;
    for (const Arithmetic *const *each = all_arithmetics; *each != nullptr; ++each)
        if ((*each)->works_here())
            best = *each;
    chosen.store(best, std::memory_order_relaxed);
    return best;
}

void prefer_arithmetic(const Arithmetic *arithmetic) {
    chosen.store(arithmetic, std::memory_order_relaxed);
}

// ---- Shared operations

void modulus_init(Modulus *modulus, const Arithmetic *arithmetic, Limb *m, std::size_t size,
                  std::size_t bits, Limb *r_squared, Limb *scratch) {
    *modulus = {arithmetic, size, bits, Limb(0) - bn::inverse_of_limb(m[0]), m, r_squared};
    // 2^(bits - 1) is below m; doublings make it the Montgomery form of 2 to the first bits of
    // r_bits: of as many as cost less than squarings.
    const std::size_t r_bits = size * bn::limb_bits;
    unsigned place = 0;
    while (r_bits >> place > 12)
        ++place;
    bn::set_small(r_squared, size, 0);
    r_squared[(bits - 1) / bn::limb_bits] = Limb(1) << ((bits - 1) % bn::limb_bits);
    for (std::size_t power = bits - 1; power < r_bits + (r_bits >> place); ++power)
        bn::add_modulo(r_squared, r_squared, r_squared, m, size);
    // Squarings and doublings make that the Montgomery form of 2^r_bits.
    while (place-- > 0) {
        arithmetic->square(r_squared, r_squared, *modulus, scratch);
        if (r_bits >> place & 1)
            bn::add_modulo(r_squared, r_squared, r_squared, m, size);
    }
    arithmetic->prepare(modulus, scratch);
}

void montgomery_one(Limb *out, const Modulus &m, Limb *scratch) {
    bn::set_small(out, m.size, 1);
    montgomery_multiply(out, out, m.r_squared, m, scratch);
}

void montgomery_leave(Limb *out, const Limb *a, const Modulus &m, Limb *scratch) {
    bn::set_small(scratch, m.size, 1);
    montgomery_multiply(out, scratch, a, m, scratch + m.size);
}

void montgomery_enter(Limb *out, const Limb *a, std::size_t count, const Modulus &m,
                      Limb *scratch) {
    bn::Pieces pieces{scratch};
    Limb *const piece = pieces.take(m.size);
    Limb *const product = pieces.take(product_scratch(m.size));
    // Horner's rule over pieces of R: a value above m is fine as a first factor.
    std::size_t at = count == 0 ? 0 : (count - 1) / m.size * m.size;
    bn::set_small(piece, m.size, 0);
    bn::copy(piece, a + at, count - at);
    montgomery_multiply(out, piece, m.r_squared, m, product);
    while (at > 0) {
        at -= m.size;
        montgomery_multiply(out, out, m.r_squared, m, product);
        montgomery_multiply(piece, a + at, m.r_squared, m, product);
        bn::add_modulo(out, out, piece, m.m, m.size);
    }
}

std::size_t limb_public_power_scratch(const Modulus &m) {
    return 2 * m.size + product_scratch(m.size);
}

void limb_public_power(Limb *out, const Limb *base, const Limb *exponent, std::size_t exponent_bits,
                       const Modulus &m, Limb *scratch) {
    bn::Pieces pieces{scratch};
    Limb *const power = pieces.take(m.size), *const entered = pieces.take(m.size);
    Limb *const product = pieces.take(product_scratch(m.size));
    montgomery_multiply(entered, base, m.r_squared, m, product);
    bn::copy(power, entered, m.size);
    for (std::size_t at = exponent_bits - 1; at-- > 1;) {
        montgomery_square(power, power, m, product);
        if (bn::bit(exponent, at))
            montgomery_multiply(power, power, entered, m, product);
    }
    montgomery_square(power, power, m, product);
    // The last factor is not in Montgomery form, so neither is the product.
    montgomery_multiply(out, power, base, m, product);
}

} // namespace toolkit
