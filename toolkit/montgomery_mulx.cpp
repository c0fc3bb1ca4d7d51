// Montgomery arithmetic for x86-64 processors with BMI2 and ADX (Broadwell, Zen and later): MULX
// leaves the flags alone, ADCX and ADOX carry in one flag each, so that the two halves of the
// products of a row are added in two chains side by side.
#include "montgomery.h"

#ifdef TOOLKIT_MULX

#include "montgomery_power.h"
#include "montgomery_x86.h"

#include <immintrin.h>

namespace toolkit {

using bn::Limb;

namespace {

// ---- Four and eight limbs
//
// A product's limb k is in register k modulo 8 (four limbs) or modulo 9 (eight limbs). Registers:
// rdx the row's factor, rax and rbx a product's halves, rsi the other factor or the modulus.
// Pointers that are needed but once stay in memory: there is no register left for them.

// clang-format off
#define LIMB0 "%%r8"
#define LIMB1 "%%r9"
#define LIMB2 "%%r10"
#define LIMB3 "%%r11"
#define LIMB4 "%%r12"
#define LIMB5 "%%r13"
#define LIMB6 "%%r14"
#define LIMB7 "%%r15"
#define LIMB8 "%%rcx"

// (high, low) += rdx * the limb at offset, each half in its own chain
#define STEP(offset, low, high)                                                                    \
    "mulxq " #offset "(%%rsi), %%rax, %%rbx\n\t"                                                   \
    "adcxq %%rax, " low "\n\t"                                                                     \
    "adoxq %%rbx, " high "\n\t"
// The same where high is still empty and one chain will do; the first of a row begins it.
#define FIRST(offset, low, high) "mulxq " #offset "(%%rsi), " low ", " high "\n\t"
#define CHAIN(add, offset, low, high)                                                              \
    "mulxq " #offset "(%%rsi), %%rax, " high "\n\t" add " %%rax, " low "\n\t"
#define CLEAR(limb) "xorq " limb ", " limb "\n\t" // the flags too
#define CARRY(limb) "adcq $0, " limb "\n\t"

// Adds the square of the limb in rdx to twice (high, low).
#define DIAGONAL(low, high)                                                                        \
    "mulxq %%rdx, %%rax, %%rbx\n\t"                                                                \
    "adcxq " low ", " low "\n\tadoxq %%rax, " low "\n\t"                                           \
    "adcxq " high ", " high "\n\tadoxq %%rbx, " high "\n\t"

#define ROW4(a, b, c, d, e)                                                                        \
    STEP(0, a, b) STEP(8, b, c) STEP(16, c, d) STEP(24, d, e) CARRY(e)
#define MULTIPLY_ROW4(offset, a, b, c, d, e)                                                       \
    "movq " #offset "(%%rdi), %%rdx\n\t" CLEAR(e) ROW4(a, b, c, d, e)
// Clears the lowest limb by a multiple of the modulus.
#define REDUCE_ROW4(a, b, c, d, e)                                                                 \
    "movq " a ", %%rdx\n\timulq %[k], %%rdx\n\t" CLEAR(e) ROW4(a, b, c, d, e)

// Reduces limbs 0 to 7 to %[out]. rsi: the modulus.
#define REDUCE4                                                                                    \
    REDUCE_ROW4(LIMB0, LIMB1, LIMB2, LIMB3, LIMB8)                                                 \
    REDUCE_ROW4(LIMB1, LIMB2, LIMB3, LIMB8, LIMB0)                                                 \
    REDUCE_ROW4(LIMB2, LIMB3, LIMB8, LIMB0, LIMB1)                                                 \
    REDUCE_ROW4(LIMB3, LIMB8, LIMB0, LIMB1, LIMB2)                                                 \
    "xorl %%eax, %%eax\n\t"                                                                        \
    "addq " LIMB8 ", " LIMB4 "\n\t"                                                                \
    "adcq " LIMB0 ", " LIMB5 "\n\t"                                                                \
    "adcq " LIMB1 ", " LIMB6 "\n\t"                                                                \
    "adcq " LIMB2 ", " LIMB7 "\n\t"                                                                \
    CARRY("%%rax")                                                                                 \
    "movq " LIMB4 ", " LIMB8 "\n\t"                                                                \
    "movq " LIMB5 ", " LIMB0 "\n\t"                                                                \
    "movq " LIMB6 ", " LIMB1 "\n\t"                                                                \
    "movq " LIMB7 ", " LIMB2 "\n\t"                                                                \
    "subq 0(%%rsi), " LIMB8 "\n\t"                                                                 \
    "sbbq 8(%%rsi), " LIMB0 "\n\t"                                                                 \
    "sbbq 16(%%rsi), " LIMB1 "\n\t"                                                                \
    "sbbq 24(%%rsi), " LIMB2 "\n\t"                                                                \
    "sbbq $0, %%rax\n\t"                                                                           \
    "movq %[out], %%rdi\n\t"                                                                       \
    "cmovcq " LIMB4 ", " LIMB8 "\n\tmovq " LIMB8 ", 0(%%rdi)\n\t"                                  \
    "cmovcq " LIMB5 ", " LIMB0 "\n\tmovq " LIMB0 ", 8(%%rdi)\n\t"                                  \
    "cmovcq " LIMB6 ", " LIMB1 "\n\tmovq " LIMB1 ", 16(%%rdi)\n\t"                                 \
    "cmovcq " LIMB7 ", " LIMB2 "\n\tmovq " LIMB2 ", 24(%%rdi)\n\t"

// Sanitizers would address a function's variables through a register of their own.
#define ALL_REGISTERS __attribute__((no_sanitize("address", "undefined")))

#define CLOBBERED                                                                                  \
    "rax", "rbx", "rcx", "rdx", "r8", "r9", "r10", "r11", "r12", "r13", "r14", "r15", "cc", "memory"

ALL_REGISTERS
void multiply4(Limb *out, const Limb *a, const Limb *b, const Modulus &m, Limb *) {
    const Limb *const modulus = m.m;
    const Limb k = m.negative_inverse;
    __asm__ volatile(
        "movq 0(%%rdi), %%rdx\n\t"
        FIRST(0, LIMB0, LIMB1)
        CHAIN("addq", 8, LIMB1, LIMB2) CHAIN("adcq", 16, LIMB2, LIMB3)
        CHAIN("adcq", 24, LIMB3, LIMB4) CARRY(LIMB4)
        MULTIPLY_ROW4(8, LIMB1, LIMB2, LIMB3, LIMB4, LIMB5)
        MULTIPLY_ROW4(16, LIMB2, LIMB3, LIMB4, LIMB5, LIMB6)
        MULTIPLY_ROW4(24, LIMB3, LIMB4, LIMB5, LIMB6, LIMB7)
        "movq %[m], %%rsi\n\t"
        REDUCE4
        : "+S"(a), "+D"(b)
        : [m] "m"(modulus), [k] "m"(k), [out] "m"(out)
        : CLOBBERED);
}

ALL_REGISTERS
void square4(Limb *out, const Limb *a, const Modulus &m, Limb *) {
    const Limb *const modulus = m.m;
    const Limb k = m.negative_inverse;
    __asm__ volatile(
        "movq 0(%%rsi), %%rdx\n\t"
        FIRST(8, LIMB1, LIMB2)
        CHAIN("addq", 16, LIMB2, LIMB3) CHAIN("adcq", 24, LIMB3, LIMB4) CARRY(LIMB4)
        "movq 8(%%rsi), %%rdx\n\t" CLEAR(LIMB5)
        STEP(16, LIMB3, LIMB4) STEP(24, LIMB4, LIMB5) CARRY(LIMB5)
        "movq 16(%%rsi), %%rdx\n\t"
        CHAIN("addq", 24, LIMB5, LIMB6) CARRY(LIMB6)
        "movq 0(%%rsi), %%rdx\n\t" CLEAR(LIMB7)
        "mulxq %%rdx, " LIMB0 ", %%rbx\n\t"
        "adcxq " LIMB1 ", " LIMB1 "\n\tadoxq %%rbx, " LIMB1 "\n\t"
        "movq 8(%%rsi), %%rdx\n\t" DIAGONAL(LIMB2, LIMB3)
        "movq 16(%%rsi), %%rdx\n\t" DIAGONAL(LIMB4, LIMB5)
        "movq 24(%%rsi), %%rdx\n\t" DIAGONAL(LIMB6, LIMB7)
        "movq %[m], %%rsi\n\t"
        REDUCE4
        : "+S"(a)
        : [m] "m"(modulus), [k] "m"(k), [out] "m"(out)
        : "rdi", CLOBBERED);
}

#define STORE(limb, offset) "movq " limb ", " #offset "(%%rdi)\n\t"
#define LOAD(limb, offset) "movq " #offset "(%%rdi), " limb "\n\t"

#define ROW8(a, b, c, d, e, f, g, h, i)                                                            \
    CLEAR(i) STEP(0, a, b) STEP(8, b, c) STEP(16, c, d) STEP(24, d, e)                             \
    STEP(32, e, f) STEP(40, f, g) STEP(48, g, h) STEP(56, h, i) CARRY(i)
#define MULTIPLY_ROW8(offset, a, b, c, d, e, f, g, h, i)                                           \
    "movq %[b], %%rdx\n\tmovq " #offset "(%%rdx), %%rdx\n\t"                                       \
    ROW8(a, b, c, d, e, f, g, h, i) STORE(a, offset)
#define REDUCE_ROW8(a, b, c, d, e, f, g, h, i)                                                     \
    "movq " a ", %%rdx\n\timulq %[k], %%rdx\n\t" ROW8(a, b, c, d, e, f, g, h, i)

// Reduces limbs 0 to 7 in registers and 8 to 15 at rdi to %[out].
#define FINISH8(op, limb, offset) op " " #offset "(%%rsi), " limb "\n\t"
#define CHOOSE8(limb, offset)                                                                      \
    "cmovcq " #offset "(%%rdi), " limb "\n\tmovq " limb ", " #offset "(%%rbx)\n\t"
#define REDUCE8                                                                                    \
    "movq %[m], %%rsi\n\t"                                                                         \
    REDUCE_ROW8(LIMB0, LIMB1, LIMB2, LIMB3, LIMB4, LIMB5, LIMB6, LIMB7, LIMB8)                     \
    REDUCE_ROW8(LIMB1, LIMB2, LIMB3, LIMB4, LIMB5, LIMB6, LIMB7, LIMB8, LIMB0)                     \
    REDUCE_ROW8(LIMB2, LIMB3, LIMB4, LIMB5, LIMB6, LIMB7, LIMB8, LIMB0, LIMB1)                     \
    REDUCE_ROW8(LIMB3, LIMB4, LIMB5, LIMB6, LIMB7, LIMB8, LIMB0, LIMB1, LIMB2)                     \
    REDUCE_ROW8(LIMB4, LIMB5, LIMB6, LIMB7, LIMB8, LIMB0, LIMB1, LIMB2, LIMB3)                     \
    REDUCE_ROW8(LIMB5, LIMB6, LIMB7, LIMB8, LIMB0, LIMB1, LIMB2, LIMB3, LIMB4)                     \
    REDUCE_ROW8(LIMB6, LIMB7, LIMB8, LIMB0, LIMB1, LIMB2, LIMB3, LIMB4, LIMB5)                     \
    REDUCE_ROW8(LIMB7, LIMB8, LIMB0, LIMB1, LIMB2, LIMB3, LIMB4, LIMB5, LIMB6)                     \
    "xorl %%eax, %%eax\n\t"                                                                        \
    "addq 64(%%rdi), " LIMB8 "\n\t"                                                                \
    "adcq 72(%%rdi), " LIMB0 "\n\t"                                                                \
    "adcq 80(%%rdi), " LIMB1 "\n\t"                                                                \
    "adcq 88(%%rdi), " LIMB2 "\n\t"                                                                \
    "adcq 96(%%rdi), " LIMB3 "\n\t"                                                                \
    "adcq 104(%%rdi), " LIMB4 "\n\t"                                                               \
    "adcq 112(%%rdi), " LIMB5 "\n\t"                                                               \
    "adcq 120(%%rdi), " LIMB6 "\n\t"                                                               \
    CARRY("%%rax")                                                                                 \
    STORE(LIMB8, 0) STORE(LIMB0, 8) STORE(LIMB1, 16) STORE(LIMB2, 24)                              \
    STORE(LIMB3, 32) STORE(LIMB4, 40) STORE(LIMB5, 48) STORE(LIMB6, 56)                            \
    FINISH8("subq", LIMB8, 0) FINISH8("sbbq", LIMB0, 8) FINISH8("sbbq", LIMB1, 16)                 \
    FINISH8("sbbq", LIMB2, 24) FINISH8("sbbq", LIMB3, 32) FINISH8("sbbq", LIMB4, 40)               \
    FINISH8("sbbq", LIMB5, 48) FINISH8("sbbq", LIMB6, 56)                                          \
    "sbbq $0, %%rax\n\t"                                                                           \
    "movq %[out], %%rbx\n\t"                                                                       \
    CHOOSE8(LIMB8, 0) CHOOSE8(LIMB0, 8) CHOOSE8(LIMB1, 16) CHOOSE8(LIMB2, 24)                      \
    CHOOSE8(LIMB3, 32) CHOOSE8(LIMB4, 40) CHOOSE8(LIMB5, 48) CHOOSE8(LIMB6, 56)

ALL_REGISTERS
void multiply8(Limb *out, const Limb *a, const Limb *b, const Modulus &m, Limb *scratch) {
    const Limb *const modulus = m.m;
    const Limb k = m.negative_inverse;
    __asm__ volatile(
        "movq %[b], %%rdx\n\tmovq 0(%%rdx), %%rdx\n\t"
        FIRST(0, LIMB0, LIMB1)
        CHAIN("addq", 8, LIMB1, LIMB2) CHAIN("adcq", 16, LIMB2, LIMB3)
        CHAIN("adcq", 24, LIMB3, LIMB4) CHAIN("adcq", 32, LIMB4, LIMB5)
        CHAIN("adcq", 40, LIMB5, LIMB6) CHAIN("adcq", 48, LIMB6, LIMB7)
        CHAIN("adcq", 56, LIMB7, LIMB8) CARRY(LIMB8) STORE(LIMB0, 0)
        MULTIPLY_ROW8(8, LIMB1, LIMB2, LIMB3, LIMB4, LIMB5, LIMB6, LIMB7, LIMB8, LIMB0)
        MULTIPLY_ROW8(16, LIMB2, LIMB3, LIMB4, LIMB5, LIMB6, LIMB7, LIMB8, LIMB0, LIMB1)
        MULTIPLY_ROW8(24, LIMB3, LIMB4, LIMB5, LIMB6, LIMB7, LIMB8, LIMB0, LIMB1, LIMB2)
        MULTIPLY_ROW8(32, LIMB4, LIMB5, LIMB6, LIMB7, LIMB8, LIMB0, LIMB1, LIMB2, LIMB3)
        MULTIPLY_ROW8(40, LIMB5, LIMB6, LIMB7, LIMB8, LIMB0, LIMB1, LIMB2, LIMB3, LIMB4)
        MULTIPLY_ROW8(48, LIMB6, LIMB7, LIMB8, LIMB0, LIMB1, LIMB2, LIMB3, LIMB4, LIMB5)
        MULTIPLY_ROW8(56, LIMB7, LIMB8, LIMB0, LIMB1, LIMB2, LIMB3, LIMB4, LIMB5, LIMB6)
        STORE(LIMB8, 64) STORE(LIMB0, 72) STORE(LIMB1, 80) STORE(LIMB2, 88)
        STORE(LIMB3, 96) STORE(LIMB4, 104) STORE(LIMB5, 112) STORE(LIMB6, 120)
        LOAD(LIMB0, 0) LOAD(LIMB1, 8) LOAD(LIMB2, 16) LOAD(LIMB3, 24)
        LOAD(LIMB4, 32) LOAD(LIMB5, 40) LOAD(LIMB6, 48) LOAD(LIMB7, 56)
        REDUCE8
        : "+S"(a)
        : "D"(scratch), [b] "m"(b), [m] "m"(modulus), [k] "m"(k), [out] "m"(out)
        : CLOBBERED);
}

#define SQUARE_ROW8(offset, top) "movq " #offset "(%%rsi), %%rdx\n\t" CLEAR(top)
#define DIAGONAL8(limb, load, low, high) "movq " #limb "(%%rsi), %%rdx\n\t" load DIAGONAL(low, high)
#define HIGH8(limb, low, high)                                                                     \
    "movq " #limb "(%%rsi), %%rdx\n\t" LOAD("%%rcx", low)                                          \
    "mulxq %%rdx, %%rax, %%rbx\n\t"                                                                \
    "adcxq %%rcx, %%rcx\n\tadoxq %%rax, %%rcx\n\t" STORE("%%rcx", low)                             \
    LOAD("%%rcx", high) "adcxq %%rcx, %%rcx\n\tadoxq %%rbx, %%rcx\n\t" STORE("%%rcx", high)

// The square of eight limbs at rsi: limbs 0 to 7 in registers, 8 to 15 at rdi. First the products
// of different limbs, once each, of which two limbs are done after each row; then twice that, and
// the squares of the limbs.
#define SQUARE8                                                                                    \
    "movq 0(%%rsi), %%rdx\n\t"                                                                     \
    FIRST(8, LIMB1, LIMB2)                                                                         \
    CHAIN("addq", 16, LIMB2, LIMB3) CHAIN("adcq", 24, LIMB3, LIMB4)                                \
    CHAIN("adcq", 32, LIMB4, LIMB5) CHAIN("adcq", 40, LIMB5, LIMB6)                                \
    CHAIN("adcq", 48, LIMB6, LIMB7) CHAIN("adcq", 56, LIMB7, LIMB8) CARRY(LIMB8)                   \
    STORE(LIMB1, 8) STORE(LIMB2, 16)                                                               \
    SQUARE_ROW8(8, LIMB0)                                                                          \
    STEP(16, LIMB3, LIMB4) STEP(24, LIMB4, LIMB5) STEP(32, LIMB5, LIMB6)                           \
    STEP(40, LIMB6, LIMB7) STEP(48, LIMB7, LIMB8) STEP(56, LIMB8, LIMB0) CARRY(LIMB0)              \
    STORE(LIMB3, 24) STORE(LIMB4, 32)                                                              \
    SQUARE_ROW8(16, LIMB1)                                                                         \
    STEP(24, LIMB5, LIMB6) STEP(32, LIMB6, LIMB7) STEP(40, LIMB7, LIMB8)                           \
    STEP(48, LIMB8, LIMB0) STEP(56, LIMB0, LIMB1) CARRY(LIMB1)                                     \
    STORE(LIMB5, 40) STORE(LIMB6, 48)                                                              \
    SQUARE_ROW8(24, LIMB2)                                                                         \
    STEP(32, LIMB7, LIMB8) STEP(40, LIMB8, LIMB0) STEP(48, LIMB0, LIMB1)                           \
    STEP(56, LIMB1, LIMB2) CARRY(LIMB2)                                                            \
    STORE(LIMB7, 56) STORE(LIMB8, 64)                                                              \
    SQUARE_ROW8(32, LIMB3)                                                                         \
    STEP(40, LIMB0, LIMB1) STEP(48, LIMB1, LIMB2) STEP(56, LIMB2, LIMB3) CARRY(LIMB3)              \
    STORE(LIMB0, 72) STORE(LIMB1, 80)                                                              \
    SQUARE_ROW8(40, LIMB4)                                                                         \
    STEP(48, LIMB2, LIMB3) STEP(56, LIMB3, LIMB4) CARRY(LIMB4)                                     \
    STORE(LIMB2, 88) STORE(LIMB3, 96)                                                              \
    SQUARE_ROW8(48, LIMB5)                                                                         \
    STEP(56, LIMB4, LIMB5) CARRY(LIMB5)                                                            \
    STORE(LIMB4, 104) STORE(LIMB5, 112)                                                            \
    "movq 0(%%rsi), %%rdx\n\t" LOAD(LIMB1, 8) CLEAR(LIMB8)                                         \
    "mulxq %%rdx, " LIMB0 ", %%rbx\n\t"                                                            \
    "adcxq " LIMB1 ", " LIMB1 "\n\tadoxq %%rbx, " LIMB1 "\n\t"                                     \
    DIAGONAL8(8, LOAD(LIMB2, 16) LOAD(LIMB3, 24), LIMB2, LIMB3)                                    \
    DIAGONAL8(16, LOAD(LIMB4, 32) LOAD(LIMB5, 40), LIMB4, LIMB5)                                   \
    DIAGONAL8(24, LOAD(LIMB6, 48) LOAD(LIMB7, 56), LIMB6, LIMB7)                                   \
    HIGH8(32, 64, 72) HIGH8(40, 80, 88) HIGH8(48, 96, 104)                                         \
    "movq $0, 120(%%rdi)\n\t" HIGH8(56, 112, 120)

ALL_REGISTERS
void square8(Limb *out, const Limb *a, const Modulus &m, Limb *scratch) {
    const Limb *const modulus = m.m;
    const Limb k = m.negative_inverse;
    __asm__ volatile(
        SQUARE8 REDUCE8
        : "+S"(a)
        : "D"(scratch), [m] "m"(modulus), [k] "m"(k), [out] "m"(out)
        : CLOBBERED);
}

// ---- Any multiple of eight limbs
//
// Numbers are blocks of eight limbs; a block's product runs through registers as above.

constexpr std::size_t block = 8;

#define LOAD_AT(pointer, limb, offset) "movq " #offset "(" pointer "), " limb "\n\t"
#define STORE_AT(pointer, limb, offset) "movq " limb ", " #offset "(" pointer ")\n\t"
#define ROW8_PLUS(offset, a, b, c, d, e, f, g, h, i)                                               \
    "movq %[b], %%rdx\n\tmovq " #offset "(%%rdx), %%rdx\n\t" CLEAR(i)                              \
    "adoxq " #offset "(%%rdi), " a "\n\t"                                                          \
    STEP(0, a, b) STEP(8, b, c) STEP(16, c, d) STEP(24, d, e)                                      \
    STEP(32, e, f) STEP(40, f, g) STEP(48, g, h) STEP(56, h, i) CARRY(i) STORE(a, offset)

// The eight limbs of `carried` after eight rows.
#define STORE_CARRIED                                                                              \
    "movq %[carried], %%rdx\n\t"                                                                   \
    STORE_AT("%%rdx", LIMB8, 0) STORE_AT("%%rdx", LIMB0, 8) STORE_AT("%%rdx", LIMB1, 16)           \
    STORE_AT("%%rdx", LIMB2, 24) STORE_AT("%%rdx", LIMB3, 32) STORE_AT("%%rdx", LIMB4, 40)         \
    STORE_AT("%%rdx", LIMB5, 48) STORE_AT("%%rdx", LIMB6, 56)

// (t, carried) = t + carried + a b: the low block to t, the high one to carried.
ALL_REGISTERS
void multiply_block(Limb *t, const Limb *a, const Limb *b, Limb *carried) {
    __asm__ volatile(
        "movq %[carried], %%rdx\n\t"
        LOAD_AT("%%rdx", LIMB0, 0) LOAD_AT("%%rdx", LIMB1, 8) LOAD_AT("%%rdx", LIMB2, 16)
        LOAD_AT("%%rdx", LIMB3, 24) LOAD_AT("%%rdx", LIMB4, 32) LOAD_AT("%%rdx", LIMB5, 40)
        LOAD_AT("%%rdx", LIMB6, 48) LOAD_AT("%%rdx", LIMB7, 56)
        ROW8_PLUS(0, LIMB0, LIMB1, LIMB2, LIMB3, LIMB4, LIMB5, LIMB6, LIMB7, LIMB8)
        ROW8_PLUS(8, LIMB1, LIMB2, LIMB3, LIMB4, LIMB5, LIMB6, LIMB7, LIMB8, LIMB0)
        ROW8_PLUS(16, LIMB2, LIMB3, LIMB4, LIMB5, LIMB6, LIMB7, LIMB8, LIMB0, LIMB1)
        ROW8_PLUS(24, LIMB3, LIMB4, LIMB5, LIMB6, LIMB7, LIMB8, LIMB0, LIMB1, LIMB2)
        ROW8_PLUS(32, LIMB4, LIMB5, LIMB6, LIMB7, LIMB8, LIMB0, LIMB1, LIMB2, LIMB3)
        ROW8_PLUS(40, LIMB5, LIMB6, LIMB7, LIMB8, LIMB0, LIMB1, LIMB2, LIMB3, LIMB4)
        ROW8_PLUS(48, LIMB6, LIMB7, LIMB8, LIMB0, LIMB1, LIMB2, LIMB3, LIMB4, LIMB5)
        ROW8_PLUS(56, LIMB7, LIMB8, LIMB0, LIMB1, LIMB2, LIMB3, LIMB4, LIMB5, LIMB6)
        STORE_CARRIED
        : "+S"(a)
        : "D"(t), [b] "m"(b), [carried] "m"(carried)
        : CLOBBERED);
}

#define QUOTIENT_ROW8(offset, a, b, c, d, e, f, g, h, i)                                           \
    "movq " a ", %%rdx\n\timulq %[k], %%rdx\n\tmovq %%rdx, " #offset "(%%rdi)\n\t"                 \
    ROW8(a, b, c, d, e, f, g, h, i)

// The eight quotient limbs that clear the block at t, in its place, and what the lowest block of
// the modulus times them carries.
ALL_REGISTERS
void quotient_block(Limb *t, const Modulus &m, Limb *carried) {
    const Limb *modulus = m.m;
    const Limb k = m.negative_inverse;
    __asm__ volatile(
        LOAD(LIMB0, 0) LOAD(LIMB1, 8) LOAD(LIMB2, 16) LOAD(LIMB3, 24)
        LOAD(LIMB4, 32) LOAD(LIMB5, 40) LOAD(LIMB6, 48) LOAD(LIMB7, 56)
        QUOTIENT_ROW8(0, LIMB0, LIMB1, LIMB2, LIMB3, LIMB4, LIMB5, LIMB6, LIMB7, LIMB8)
        QUOTIENT_ROW8(8, LIMB1, LIMB2, LIMB3, LIMB4, LIMB5, LIMB6, LIMB7, LIMB8, LIMB0)
        QUOTIENT_ROW8(16, LIMB2, LIMB3, LIMB4, LIMB5, LIMB6, LIMB7, LIMB8, LIMB0, LIMB1)
        QUOTIENT_ROW8(24, LIMB3, LIMB4, LIMB5, LIMB6, LIMB7, LIMB8, LIMB0, LIMB1, LIMB2)
        QUOTIENT_ROW8(32, LIMB4, LIMB5, LIMB6, LIMB7, LIMB8, LIMB0, LIMB1, LIMB2, LIMB3)
        QUOTIENT_ROW8(40, LIMB5, LIMB6, LIMB7, LIMB8, LIMB0, LIMB1, LIMB2, LIMB3, LIMB4)
        QUOTIENT_ROW8(48, LIMB6, LIMB7, LIMB8, LIMB0, LIMB1, LIMB2, LIMB3, LIMB4, LIMB5)
        QUOTIENT_ROW8(56, LIMB7, LIMB8, LIMB0, LIMB1, LIMB2, LIMB3, LIMB4, LIMB5, LIMB6)
        STORE_CARRIED
        : "+S"(modulus)
        : "D"(t), [k] "m"(k), [carried] "m"(carried)
        : CLOBBERED);
}

// t (sixteen limbs) = a ^ 2
ALL_REGISTERS
void square_block(Limb *t, const Limb *a) {
    __asm__ volatile(
        SQUARE8
        STORE(LIMB0, 0) STORE(LIMB1, 8) STORE(LIMB2, 16) STORE(LIMB3, 24)
        STORE(LIMB4, 32) STORE(LIMB5, 40) STORE(LIMB6, 48) STORE(LIMB7, 56)
        : "+S"(a)
        : "D"(t)
        : CLOBBERED);
}

#define DOUBLE_PLUS(offset)                                                                        \
    "movq " #offset "(%[t]), %%rax\n\t"                                                            \
    "adcxq %%rax, %%rax\n\t"                                                                       \
    "adoxq " #offset "(%[s]), %%rax\n\t"                                                           \
    "movq %%rax, " #offset "(%[t])\n\t"

// t = 2 t + s over count limbs, a multiple of four.
void double_and_add(Limb *t, const Limb *s, std::size_t count) {
    std::size_t rounds = count / 4;
    __asm__ volatile(
        "xorl %%eax, %%eax\n"
        "1:\n\t"
        DOUBLE_PLUS(0) DOUBLE_PLUS(8) DOUBLE_PLUS(16) DOUBLE_PLUS(24)
        "leaq 32(%[t]), %[t]\n\t"
        "leaq 32(%[s]), %[s]\n\t"
        "leaq -1(%%rcx), %%rcx\n\t"
        "jrcxz 2f\n\t"
        "jmp 1b\n"
        "2:\n\t"
        : [t] "+r"(t), [s] "+r"(s), "+c"(rounds)
        :
        : "rax", "cc", "memory");
}
// clang-format on

unsigned char add_block(Limb *t, const Limb *a, unsigned char carry) {
    for (std::size_t i = 0; i < block; ++i) {
        unsigned long long sum;
        carry = _addcarry_u64(carry, t[i], a[i], &sum);
        t[i] = sum;
    }
    return carry;
}

// As mulx_reduce.
void reduce(Limb *out, Limb *t, const Modulus &m) {
    const std::size_t n = m.size;
    Limb *const carried = t + 4 * n;
    unsigned char top = 0;
    for (std::size_t j = 0; j < n; j += block) {
        quotient_block(t + j, m, carried);
        for (std::size_t i = block; i < n; i += block)
            multiply_block(t + i + j, m.m + i, t + j, carried);
        top = add_block(t + n + j, carried, top);
    }
    unsigned char borrow = 0;
    for (std::size_t i = 0; i < n; ++i) {
        unsigned long long difference;
        borrow = _subborrow_u64(borrow, t[n + i], m.m[i], &difference);
        t[i] = difference;
    }
    bn::select(out, bn::mask_of_bit(Limb(borrow) & ~Limb(top)), t + n, t, n);
}

void multiply_any(Limb *out, const Limb *a, const Limb *b, const Modulus &m, Limb *scratch) {
    const std::size_t n = m.size;
    bn::set_small(scratch, n, 0);
    for (std::size_t j = 0; j < n; j += block) {
        Limb *const carried = scratch + n + j;
        bn::set_small(carried, block, 0);
        for (std::size_t i = 0; i < n; i += block)
            multiply_block(scratch + i + j, a + i, b + j, carried);
    }
    reduce(out, scratch, m);
}

void square_any(Limb *out, const Limb *a, const Modulus &m, Limb *scratch) {
    const std::size_t n = m.size;
    Limb *const squares = scratch + 2 * n;
    bn::set_small(scratch, 2 * n, 0);
    for (std::size_t j = 0; j < n; j += block) {
        for (std::size_t i = j + block; i < n; i += block)
            multiply_block(scratch + i + j, a + i, a + j, scratch + n + j);
        square_block(squares + 2 * j, a + j);
    }
    double_and_add(scratch, squares, 2 * n);
    reduce(out, scratch, m);
}

// ---- The implementation

bool works_here() {
    return x86_has(x86_bmi2 | x86_adx | x86_avx2);
}

template <auto multiply_function, auto square_function> struct Kernel {
    static void multiply(Limb *out, const Limb *a, const Limb *b, const Modulus &m, Limb *scratch) {
        multiply_function(out, a, b, m, scratch);
    }
    static void square(Limb *out, const Limb *a, const Modulus &m, Limb *scratch) {
        square_function(out, a, m, scratch);
    }
    // Four limbs of every entry at a time.
    __attribute__((target("avx2"))) static void
    read(Limb *out, const Limb *table, std::size_t entries, std::size_t size, Limb index) {
        const __m256i wanted = _mm256_set1_epi64x(static_cast<long long>(index));
        const __m256i one = _mm256_set1_epi64x(1);
        for (std::size_t i = 0; i < size; i += 4) {
            __m256i sum = _mm256_setzero_si256(), entry = _mm256_setzero_si256();
            for (const Limb *at = table + i, *end = at + entries * size; at != end; at += size) {
                const __m256i four = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(at));
                sum =
                    _mm256_or_si256(sum, _mm256_and_si256(four, _mm256_cmpeq_epi64(entry, wanted)));
                entry = _mm256_add_epi64(entry, one);
            }
            _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + i), sum);
        }
    }
};

} // namespace

std::size_t mulx_padded_size(std::size_t limbs) {
    return limbs <= 4 ? 4 : (limbs + block - 1) / block * block;
}

void mulx_multiply(Limb *out, const Limb *a, const Limb *b, const Modulus &m, Limb *scratch) {
    if (m.size == 4)
        return multiply4(out, a, b, m, scratch);
    if (m.size == 8)
        return multiply8(out, a, b, m, scratch);
    multiply_any(out, a, b, m, scratch);
}

void mulx_square(Limb *out, const Limb *a, const Modulus &m, Limb *scratch) {
    if (m.size == 4)
        return square4(out, a, m, scratch);
    if (m.size == 8)
        return square8(out, a, m, scratch);
    square_any(out, a, m, scratch);
}

void mulx_reduce(Limb *out, Limb *t, const Modulus &m) {
    reduce(out, t, m);
}

void mulx_power(const Power *jobs, std::size_t count, Limb *scratch) {
    power_by_size<Kernel<multiply4, square4>, Kernel<multiply8, square8>,
                  Kernel<multiply_any, square_any>>(jobs, count, scratch);
}

const Arithmetic mulx_arithmetic = {
    "mulx",
    works_here,
    mulx_padded_size,
    [](std::size_t size, std::size_t) { return size; },
    [](Modulus *, Limb *) {},
    mulx_multiply,
    mulx_square,
    fixed_window_scratch,
    mulx_power,
    limb_public_power_scratch,
    limb_public_power,
};

} // namespace toolkit

#endif
