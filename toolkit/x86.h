// x86.h: what an x86 processor, and the operating system on it, can do.
#ifndef TOOLKIT_X86_H
#define TOOLKIT_X86_H

#include <cpuid.h>
#include <cstdint>

namespace toolkit {

// Bits of CPUID leaf 7, register EBX.
constexpr uint32_t x86_avx2 = 1u << 5, x86_bmi2 = 1u << 8, x86_avx512f = 1u << 16,
                   x86_adx = 1u << 19, x86_avx512ifma = 1u << 21, x86_avx512vl = 1u << 31;

// CPUID is slow on virtual machines: ask once and remember.
inline bool x86_has(uint32_t features) {
    constexpr uint32_t osxsave = 1u << 27;
    uint32_t a, b, c, d;
    if (__get_cpuid(1, &a, &b, &c, &d) == 0 || (c & osxsave) == 0 ||
        __get_cpuid_count(7, 0, &a, &b, &c, &d) == 0 || (b & features) != features)
        return false;
    // Which registers the operating system saves: SSE and AVX; opmasks and the AVX-512 parts.
    uint32_t saved, high;
    __asm__("xgetbv" : "=a"(saved), "=d"(high) : "c"(0));
    const uint32_t needed = (features & x86_avx512f) != 0 ? 0xe6 : 0x06;
    return (saved & needed) == needed;
}

} // namespace toolkit

#endif
