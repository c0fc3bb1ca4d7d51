// montgomery_power.h: exponentiation by fixed windows, for an implementation's own multiplication.
#ifndef TOOLKIT_MONTGOMERY_POWER_H
#define TOOLKIT_MONTGOMERY_POWER_H

#include "montgomery.h"

namespace toolkit {

// The width that needs the fewest multiplications.
constexpr unsigned window_width(std::size_t exponent_bits) {
    return exponent_bits > 1500 ? 6 : exponent_bits > 340 ? 5 : exponent_bits > 32 ? 4 : 1;
}

// A window of the exponent that begins at bit `at`, not reaching beyond exponent_bits.
inline bn::Limb window_at(const bn::Limb *exponent, std::size_t exponent_bits, std::size_t at,
                          unsigned width) {
    bn::Limb window = exponent[at / bn::limb_bits] >> (at % bn::limb_bits);
    const std::size_t in_limb = bn::limb_bits - at % bn::limb_bits;
    if (in_limb < width && at + in_limb < exponent_bits)
        window |= exponent[at / bn::limb_bits + 1] << in_limb;
    const std::size_t left = exponent_bits - at;
    return window & ((bn::Limb(1) << (left < width ? left : width)) - 1);
}

// out = table[index], reading every entry.
inline void read_table(bn::Limb *out, const bn::Limb *table, std::size_t entries, std::size_t size,
                       bn::Limb index) {
    bn::set_small(out, size, 0);
    for (std::size_t entry = 0; entry < entries; ++entry, table += size) {
        const bn::Limb mask = bn::mask_if_equal(entry, index);
        for (std::size_t i = 0; i < size; ++i)
            out[i] |= table[i] & mask;
    }
}

constexpr std::size_t most_powers = 2;

// Powers that the same multiplications at the same time make, so that a processor can work on one
// while the other waits for its carries.
inline bool in_step(const Power *jobs, std::size_t count) {
    return count == most_powers && jobs[0].modulus->size == jobs[1].modulus->size &&
           jobs[0].exponent_bits == jobs[1].exponent_bits;
}

inline std::size_t fixed_window_scratch(const Power *jobs, std::size_t count) {
    std::size_t most = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t size = jobs[i].modulus->size;
        const std::size_t entries = std::size_t{1} << window_width(jobs[i].exponent_bits);
        const std::size_t needed = (entries + 1) * size + product_scratch(size);
        most = needed > most ? needed : most;
    }
    return in_step(jobs, count) ? count * most : most;
}

// jobs has `count` powers that are in step, or one. Kernel gives multiply, square and read, as
// Arithmetic and read_table have them.
template <class Kernel, std::size_t count>
void fixed_window_power(const Power *jobs, bn::Limb *scratch) {
    const std::size_t size = jobs[0].modulus->size, exponent_bits = jobs[0].exponent_bits;
    const unsigned width = window_width(exponent_bits);
    const std::size_t entries = std::size_t{1} << width;
    bn::Limb *table[count], *factor[count], *product[count];
    bn::Pieces pieces{scratch};
    for (std::size_t i = 0; i < count; ++i) {
        table[i] = pieces.take(entries * size);
        factor[i] = pieces.take(size);
        product[i] = pieces.take(product_scratch(size));
        montgomery_one(table[i], *jobs[i].modulus, product[i]);
        bn::copy(table[i] + size, jobs[i].base, size);
    }
    for (std::size_t entry = 2; entry < entries; ++entry)
        for (std::size_t i = 0; i < count; ++i) {
            bn::Limb *const out = table[i] + entry * size;
            if (entry % 2 == 0)
                Kernel::square(out, table[i] + entry / 2 * size, *jobs[i].modulus, product[i]);
            else
                Kernel::multiply(out, out - size, table[i] + size, *jobs[i].modulus, product[i]);
        }
    std::size_t at = (exponent_bits - 1) / width * width;
    for (std::size_t i = 0; i < count; ++i)
        Kernel::read(jobs[i].result, table[i], entries, size,
                     window_at(jobs[i].exponent, exponent_bits, at, width));
    while (at > 0) {
        at -= width;
        for (unsigned each = 0; each < width; ++each)
            for (std::size_t i = 0; i < count; ++i)
                Kernel::square(jobs[i].result, jobs[i].result, *jobs[i].modulus, product[i]);
        for (std::size_t i = 0; i < count; ++i)
            Kernel::read(factor[i], table[i], entries, size,
                         window_at(jobs[i].exponent, exponent_bits, at, width));
        for (std::size_t i = 0; i < count; ++i)
            Kernel::multiply(jobs[i].result, jobs[i].result, factor[i], *jobs[i].modulus,
                             product[i]);
    }
}

template <class Kernel>
void fixed_window_powers(const Power *jobs, std::size_t count, bn::Limb *scratch) {
    if (in_step(jobs, count))
        return fixed_window_power<Kernel, most_powers>(jobs, scratch);
    for (std::size_t i = 0; i < count; ++i)
        fixed_window_power<Kernel, 1>(jobs + i, scratch);
}

// One or two powers by the kernel for the size of their moduli.
template <class Kernel4, class Kernel8, class KernelAny>
void power_by_size(const Power *jobs, std::size_t count, bn::Limb *scratch) {
    const std::size_t size = jobs[0].modulus->size;
    if (count == 2 && jobs[1].modulus->size != size) {
        power_by_size<Kernel4, Kernel8, KernelAny>(jobs, 1, scratch);
        return power_by_size<Kernel4, Kernel8, KernelAny>(jobs + 1, 1, scratch);
    }
    if (size == 4)
        return fixed_window_powers<Kernel4>(jobs, count, scratch);
    if (size == 8)
        return fixed_window_powers<Kernel8>(jobs, count, scratch);
    fixed_window_powers<KernelAny>(jobs, count, scratch);
}

} // namespace toolkit

#endif
