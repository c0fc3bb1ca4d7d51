#include <toolkit/traces.h>

#include <cstdint>
#include <string.h>

namespace toolkit {
namespace {

constexpr int depth = 16384;

// The instructions are chosen at run time, so the compiler must not know of them. It keeps nothing
// in the registers that only AVX-512 has.
void zero_vector_registers() {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx"))
        asm volatile("vzeroall"
                     :
                     :
                     : "xmm0", "xmm1", "xmm2", "xmm3", "xmm4", "xmm5", "xmm6", "xmm7", "xmm8",
                       "xmm9", "xmm10", "xmm11", "xmm12", "xmm13", "xmm14", "xmm15");
    if (__builtin_cpu_supports("avx512f"))
        asm volatile(".irp n, 16,17,18,19,20,21,22,23,24,25,26,27,28,29,30,31\n\t"
                     "vpxord %%zmm\\n, %%zmm\\n, %%zmm\\n\n\t"
                     ".endr" ::);
#elif defined(__i386__)
    if (__builtin_cpu_supports("avx"))
        asm volatile("vzeroall");
#endif
}

} // namespace

[[gnu::noinline]] void wipe_traces() {
    uint8_t room[depth];
    explicit_bzero(room, sizeof room);
    zero_vector_registers();
}

} // namespace toolkit
