// cpu.h: what the processor at hand can do. The system's support for the wide registers is
// included.
#ifndef TOOLKIT_CPU_H
#define TOOLKIT_CPU_H

#if defined(__x86_64__)
#define TOOLKIT_HAS_X86_VECTORS 1

// Functions that use these instructions carry the attribute, and nothing else in their file does:
// no instruction of theirs may run before available() said so.
#define TOOLKIT_AVX2   [[gnu::target("avx2")]]
#define TOOLKIT_AVX512 [[gnu::target("avx512f,avx512bw,avx512vl,avx512vbmi,avx512vbmi2,gfni")]]

#include <atomic>
#include <cstdint>

namespace toolkit {

// A fact about the processor, asked for once. Threads that ask at the same time find the same.
class CpuFact {
public:
    template <class Ask> bool get(Ask ask) {
        int8_t known = known_.load(std::memory_order_relaxed);
        if (known == 0) {
            known = ask() ? 1 : -1;
            known_.store(known, std::memory_order_relaxed);
        }
        return known > 0;
    }

private:
    std::atomic<int8_t> known_{0};
};

inline constinit CpuFact cpu_avx2, cpu_avx512;

inline bool has_avx2() {
    return cpu_avx2.get([] { return __builtin_cpu_supports("avx2") != 0; });
}

// AVX-512 with byte permutations: Intel since Ice Lake, AMD since Zen 4.
inline bool has_avx512() {
    return cpu_avx512.get([] {
        return __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl") &&
               __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("avx512vbmi2") &&
               __builtin_cpu_supports("gfni");
    });
}

} // namespace toolkit
#endif

#endif
