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

inline std::size_t fixed_window_scratch(const Power &job) {
    const std::size_t entries = std::size_t{1} << window_width(job.exponent_bits);
    return (entries + 1) * job.modulus->size + product_scratch(job.modulus->size);
}

// Kernel gives multiply, square and read, as Arithmetic and read_table have them.
template <class Kernel> void fixed_window_power(const Power &job, bn::Limb *scratch) {
    const Modulus &m = *job.modulus;
    const std::size_t size = m.size;
    const unsigned width = window_width(job.exponent_bits);
    const std::size_t entries = std::size_t{1} << width;
    bn::Pieces pieces{scratch};
    bn::Limb *const table = pieces.take(entries * size);
    bn::Limb *const factor = pieces.take(size);
    bn::Limb *const product = pieces.take(product_scratch(size));

    montgomery_one(table, m, product);
    bn::copy(table + size, job.base, size);
    for (std::size_t entry = 2; entry < entries; ++entry)
        if (entry % 2 == 0)
            Kernel::square(table + entry * size, table + entry / 2 * size, m, product);
        else
            Kernel::multiply(table + entry * size, table + (entry - 1) * size, table + size, m,
                             product);

    bn::Limb *const power = job.result;
    std::size_t at = (job.exponent_bits - 1) / width * width;
    Kernel::read(power, table, entries, size,
                 window_at(job.exponent, job.exponent_bits, at, width));
    while (at > 0) {
        at -= width;
        for (unsigned i = 0; i < width; ++i)
            Kernel::square(power, power, m, product);
        Kernel::read(factor, table, entries, size,
                     window_at(job.exponent, job.exponent_bits, at, width));
        Kernel::multiply(power, power, factor, m, product);
    }
}

} // namespace toolkit

#endif
