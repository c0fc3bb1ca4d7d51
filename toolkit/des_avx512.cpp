// CBC decryption with AVX-512: 64 blocks at a time, a byte of each block in each register.
//
// A register holds the input of one S-box for 64 blocks, so a byte permutation looks 64 of them up
// in the S-box's table. The table gives all of the six bits that the S-box contributes to the next
// round's inputs (two of its four output bits go to two S-boxes each). An input gathers its six
// bits from six S-boxes; the order of bits within the inputs is chosen so that each S-box gives,
// and each input takes, one bit in each of six places. So what an input takes is put together by
// masks alone.
//
// Nothing depends on key or data but the contents of registers: this is constant-time.
#include <toolkit/implementations.h>

#include "avx512.h"
#include "des_avx512.h"
#include "des_tables.h"

#if TOOLKIT_HAS_X86_VECTORS

#include <array>
#include <cstring>
#include <string.h>

namespace toolkit {

namespace {

// ---- The order of bits

// Bit n of a half (1 to 32) as bit i (0 to 5, the first the most significant) of the input of box.
constexpr unsigned expanded_bit(unsigned box, unsigned i) {
    return (4 * box + i + 31) % 32 + 1;
}

// The S-box whose output is bit n of what a round adds, and which of its four outputs.
constexpr unsigned source_box(unsigned n) {
    return (des::p[n - 1] - 1) / 4u;
}
constexpr unsigned source_output(unsigned n) {
    return (des::p[n - 1] - 1) % 4u;
}

struct Layout {
    uint8_t bit_at[8][6];    // which bit i of the input of a box is in each place
    uint8_t source_at[8][6]; // and which box it comes from
};

// A set of S-boxes to inputs, one to one, over bits that have no place yet; found by augmenting
// paths.
struct Matching {
    bool placed[8][6] = {}; // bits of inputs that have their place
    int bit_of_box[8];      // the bit of each input that this matching takes
    int box_of_source[8];

    constexpr bool augment(unsigned box, bool *seen) {
        for (unsigned i = 0; i < 6; ++i) {
            const unsigned source = source_box(expanded_bit(box, i));
            if (placed[box][i] || seen[source])
                continue;
            seen[source] = true;
            if (box_of_source[source] >= 0 &&
                !augment(static_cast<unsigned>(box_of_source[source]), seen))
                continue;
            box_of_source[source] = static_cast<int>(box);
            bit_of_box[box] = static_cast<int>(i);
            return true;
        }
        return false;
    }
};

// Every S-box has six ways out and every input six bits, so six matchings place all.
constexpr Layout layout = [] {
    Layout found{};
    Matching matching{};
    for (unsigned place = 0; place < 6; ++place) {
        for (unsigned box = 0; box < 8; ++box)
            matching.box_of_source[box] = matching.bit_of_box[box] = -1;
        for (unsigned box = 0; box < 8; ++box) {
            bool seen[8] = {};
            matching.augment(box, seen);
        }
        for (unsigned box = 0; box < 8; ++box) {
            const unsigned i = static_cast<unsigned>(matching.bit_of_box[box]);
            matching.placed[box][i] = true;
            found.bit_at[box][place] = static_cast<uint8_t>(i);
            found.source_at[box][place] = static_cast<uint8_t>(source_box(expanded_bit(box, i)));
        }
    }
    return found;
}();

// Six bits in the order of the standard, from an input in the order of the layout.
constexpr unsigned standard_order(unsigned box, unsigned input) {
    unsigned six = 0;
    for (unsigned place = 0; place < 6; ++place)
        six |= (input >> place & 1) << (5 - layout.bit_at[box][place]);
    return six;
}

struct alignas(64) Tables {
    uint8_t box[8][64];
};

constexpr Tables tables = [] {
    Tables made{};
    for (unsigned box = 0; box < 8; ++box)
        for (unsigned input = 0; input < 64; ++input) {
            const uint32_t outputs = des::s_box(box, standard_order(box, input));
            for (unsigned target = 0; target < 8; ++target)
                for (unsigned place = 0; place < 6; ++place) {
                    if (layout.source_at[target][place] != box)
                        continue;
                    const unsigned n = expanded_bit(target, layout.bit_at[target][place]);
                    made.box[box][input] |=
                        static_cast<uint8_t>((outputs >> (3 - source_output(n)) & 1) << place);
                }
        }
    return made;
}();

// ---- Matrices

// An 8 by 8 matrix of bits for GF2P8AFFINEQB: bit i of a result is the parity of row i with the
// byte.
struct Matrix {
    uint8_t row[8] = {};
    constexpr uint64_t word() const {
        uint64_t word = 0;
        for (int i = 0; i < 8; ++i)
            word |= static_cast<uint64_t>(row[i]) << (8 * (7 - i));
        return word;
    }
};

// Byte q (0 to 3) of a half has bits 8 q + 1 to 8 q + 8, the first the least significant. What it
// contributes to an input:
constexpr uint64_t spread_matrix(unsigned box, unsigned q) {
    Matrix matrix;
    for (unsigned place = 0; place < 6; ++place) {
        const unsigned n = expanded_bit(box, layout.bit_at[box][place]) - 1;
        if (n / 8 == q)
            matrix.row[place] = static_cast<uint8_t>(1 << (n % 8));
    }
    return matrix.word();
}

// The other byte, beside box / 2, that has a bit for an input.
constexpr unsigned neighbour(unsigned box) {
    return (box % 2 == 0 ? box / 2 + 3 : box / 2 + 1) % 4;
}

// And what an input contributes to its byte: the four bits that are its own.
constexpr uint64_t collect_matrix(unsigned box) {
    Matrix matrix;
    for (unsigned place = 0; place < 6; ++place) {
        const unsigned i = layout.bit_at[box][place];
        if (i >= 1 && i <= 4)
            matrix.row[(expanded_bit(box, i) - 1) % 8] = static_cast<uint8_t>(1 << place);
    }
    return matrix.word();
}

// The six bits of a round key for a box, as DesKey has them, in the order of the layout.
constexpr uint64_t key_matrix(unsigned box) {
    Matrix matrix;
    for (unsigned place = 0; place < 6; ++place)
        matrix.row[place] = static_cast<uint8_t>(1 << (5 - layout.bit_at[box][place]));
    return matrix.word();
}

struct Matrices {
    uint64_t from_own[8], from_other[8], collect[8];
    alignas(64) uint64_t key[8];
};

constexpr Matrices matrices = [] {
    Matrices made{};
    for (unsigned box = 0; box < 8; ++box) {
        made.from_own[box] = spread_matrix(box, box / 2);
        made.from_other[box] = spread_matrix(box, neighbour(box));
        made.collect[box] = collect_matrix(box);
        made.key[box] = key_matrix(box);
    }
    return made;
}();

// ---- Rounds

// The inputs of the eight S-boxes, of 64 blocks.
struct Half {
    __m512i box[8];
};

// A schedule with each byte in the order of the layout, the bytes of an entry in the order of
// boxes.
struct Keys {
    uint8_t entry[18][8];
};

TOOLKIT_AVX512 void arrange_keys(const DesKey &key, Keys *keys) {
    // Words of eight bytes for one box, then back to words of one entry.
    std::array<uint8_t, 64> by_box{}, by_entry{};
    for (unsigned entry = 0; entry < 8; ++entry)
        for (unsigned byte = 0; byte < 8; ++byte) {
            by_box[8 * des::box_of_byte[byte] + entry] = static_cast<uint8_t>(8 * entry + byte);
            by_entry[8 * entry + byte] = static_cast<uint8_t>(8 * byte + entry);
        }
    const __m512i to_box = _mm512_loadu_si512(by_box.data());
    const __m512i to_entry = _mm512_loadu_si512(by_entry.data());
    const __m512i reorder = _mm512_load_si512(matrices.key);
    for (int i = 0; i < 18; i += 8) {
        const __mmask8 some = i < 16 ? 0xff : 0x03;
        const __m512i entries = _mm512_maskz_loadu_epi64(some, key.rounds + i);
        const __m512i ordered =
            _mm512_gf2p8affine_epi64_epi8(_mm512_permutexvar_epi8(to_box, entries), reorder, 0);
        _mm512_mask_storeu_epi64(keys->entry[i], some, _mm512_permutexvar_epi8(to_entry, ordered));
    }
}

TOOLKIT_AVX512 [[gnu::always_inline]] inline __m512i key_byte(uint8_t byte) {
    return _mm512_set1_epi8(static_cast<char>(byte));
}

TOOLKIT_AVX512 [[gnu::always_inline]] inline __m512i masked(__m512i given, int place) {
    return _mm512_and_si512(given, _mm512_set1_epi8(static_cast<char>(1 << place)));
}

TOOLKIT_AVX512 [[gnu::always_inline]] inline __m512i add_masked(__m512i to, __m512i given,
                                                                int place) {
    return _mm512_ternarylogic_epi64(to, given, _mm512_set1_epi8(static_cast<char>(1 << place)),
                                     0x78); // to ^ (given & mask)
}

// Adds the round function of one half, and a key, to the other.
TOOLKIT_AVX512 [[gnu::always_inline]] inline void run_round(Half &to, const Half &from,
                                                            const uint8_t key[8]) {
    __m512i given[8];
#pragma GCC unroll 8
    for (int box = 0; box < 8; ++box)
        given[box] = _mm512_permutexvar_epi8(from.box[box], _mm512_load_si512(tables.box[box]));
#pragma GCC unroll 8
    for (int box = 0; box < 8; ++box) {
        const uint8_t(&source)[6] = layout.source_at[box];
        __m512i sum = _mm512_xor_si512(to.box[box], key_byte(key[box]));
        sum = add_masked(add_masked(sum, given[source[0]], 0), given[source[1]], 1);
        const __m512i a = add_masked(masked(given[source[2]], 2), given[source[3]], 3);
        const __m512i b = add_masked(masked(given[source[4]], 4), given[source[5]], 5);
        to.box[box] = _mm512_ternarylogic_epi64(sum, a, b, 0x96); // the sum of all three
    }
}

TOOLKIT_AVX512 [[gnu::always_inline]] inline void add_key(Half &half, const uint8_t key[8]) {
#pragma GCC unroll 8
    for (int box = 0; box < 8; ++box)
        half.box[box] = _mm512_xor_si512(half.box[box], key_byte(key[box]));
}

// The sixteen rounds and the exchange of halves, as run_rounds in des.cpp.
TOOLKIT_AVX512 [[gnu::noinline]] void run_pass(Half &left, Half &right, const Keys &keys,
                                               bool decrypt) {
    const uint8_t(*key)[8] = decrypt ? keys.entry + 17 : keys.entry;
    const std::ptrdiff_t next = decrypt ? -1 : 1;
    Half a = left, b = right;
    add_key(b, key[0]);
    for (int round = 0; round < 16; round += 2) {
        run_round(a, b, key[next]);
        key += 2 * next;
        run_round(b, a, key[0]);
    }
    add_key(a, key[next]);
    left = b;
    right = a;
}

// ---- Blocks

// Transposes the words of eight registers.
TOOLKIT_AVX512 [[gnu::always_inline]] inline void transpose(__m512i row[8]) {
    __m512i a[8], b[8];
#pragma GCC unroll 8
    for (int i = 0; i < 8; i += 2) {
        a[i] = _mm512_unpacklo_epi64(row[i], row[i + 1]);
        a[i + 1] = _mm512_unpackhi_epi64(row[i], row[i + 1]);
    }
#pragma GCC unroll 8
    for (int i = 0; i < 8; i += 4)
#pragma GCC unroll 8
        for (int j = 0; j < 2; ++j) {
            b[i + j] = _mm512_shuffle_i64x2(a[i + j], a[i + j + 2], 0x88);
            b[i + j + 2] = _mm512_shuffle_i64x2(a[i + j], a[i + j + 2], 0xdd);
        }
#pragma GCC unroll 8
    for (int i = 0; i < 4; ++i) {
        row[i] = _mm512_shuffle_i64x2(b[i], b[i + 4], 0x88);
        row[i + 4] = _mm512_shuffle_i64x2(b[i], b[i + 4], 0xdd);
    }
}

// From eight words to eight bytes of each place, and back: the two are the same.
constexpr auto gathered = [] {
    std::array<uint8_t, 64> order{};
    for (uint8_t i = 0; i < 64; ++i)
        order[i] = static_cast<uint8_t>(i % 8 * 8 + i / 8);
    return order;
}();

TOOLKIT_AVX512 [[gnu::always_inline]] inline __m512i apply(uint64_t matrix, __m512i bytes) {
    return _mm512_gf2p8affine_epi64_epi8(bytes, _mm512_set1_epi64(static_cast<long long>(matrix)),
                                         0);
}

// The initial permutation transposes the bits of a block. Here that leaves, in byte j, the bits of
// weight 2^j of the block's bytes from the last to the first: the left half is in bytes 6, 4, 2, 0,
// the right half in bytes 7, 5, 3, 1, the first bit of each the least significant.
TOOLKIT_AVX512 [[gnu::always_inline]] inline void split(__m512i words[8], Half &left, Half &right) {
    const __m512i bits = _mm512_set1_epi64(static_cast<long long>(0x8040201008040201));
    const __m512i order = _mm512_loadu_si512(gathered.data());
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i)
        words[i] = _mm512_permutexvar_epi8(order, _mm512_gf2p8affine_epi64_epi8(bits, words[i], 0));
    transpose(words);
#pragma GCC unroll 8
    for (unsigned box = 0; box < 8; ++box) {
        const unsigned own = 2 * (box / 2), other = 2 * neighbour(box);
        left.box[box] = _mm512_xor_si512(apply(matrices.from_own[box], words[6 - own]),
                                         apply(matrices.from_other[box], words[6 - other]));
        right.box[box] = _mm512_xor_si512(apply(matrices.from_own[box], words[7 - own]),
                                          apply(matrices.from_other[box], words[7 - other]));
    }
}

// The final permutation, from the same form.
TOOLKIT_AVX512 [[gnu::always_inline]] inline void join(const Half &left, const Half &right,
                                                       __m512i words[8]) {
    const __m512i bits = _mm512_set1_epi64(0x0102040810204080);
    const __m512i order = _mm512_loadu_si512(gathered.data());
#pragma GCC unroll 4
    for (unsigned q = 0; q < 4; ++q) {
        const uint64_t *const collect = matrices.collect + 2 * q;
        // Bytes in reverse, as the transposition below wants them.
        words[1 + 2 * q] = _mm512_xor_si512(apply(collect[0], left.box[2 * q]),
                                            apply(collect[1], left.box[2 * q + 1]));
        words[2 * q] = _mm512_xor_si512(apply(collect[0], right.box[2 * q]),
                                        apply(collect[1], right.box[2 * q + 1]));
    }
    transpose(words);
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i)
        words[i] = _mm512_gf2p8affine_epi64_epi8(bits, _mm512_permutexvar_epi8(order, words[i]), 0);
}

struct Run {
    const DesPasses *passes;
    Keys keys[3];
    uint64_t before, after, chain;
};

// 1 to 64 blocks.
TOOLKIT_AVX512 void decrypt_blocks(Run *run, const uint8_t *in, uint8_t *out, std::size_t blocks) {
    const uint64_t present = ~uint64_t{0} >> (64 - blocks);
    const __m512i before = _mm512_set1_epi64(static_cast<long long>(run->before));
    __m512i words[8];
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i)
        words[i] = _mm512_xor_si512(
            _mm512_maskz_loadu_epi64(static_cast<__mmask8>(present >> (8 * i)), in + 64 * i),
            before);
    Half left, right;
    split(words, left, right);
    for (int i = 0; i < run->passes->count; ++i)
        run_pass(left, right, run->keys[i], run->passes->pass[i].decrypt);
    join(left, right, words);

    // What a block is chained to is the encrypted block before it. In a run in place that is still
    // there until the register before has been written.
    const __m512i after = _mm512_set1_epi64(static_cast<long long>(run->after));
    __m512i last = _mm512_set1_epi64(static_cast<long long>(run->chain));
    std::memcpy(&run->chain, in + 8 * (blocks - 1), 8);
#pragma GCC unroll 8
    for (int i = 0; i < 8; ++i) {
        const __mmask8 some = static_cast<__mmask8>(present >> (8 * i));
        const __m512i encrypted = _mm512_maskz_loadu_epi64(some, in + 64 * i);
        const __m512i chain = _mm512_alignr_epi64(encrypted, last, 7);
        _mm512_mask_storeu_epi64(out + 64 * i, some,
                                 _mm512_ternarylogic_epi64(words[i], chain, after, 0x96));
        last = encrypted;
    }
}

} // namespace

void des_cbc_decrypt_avx512(const DesPasses &passes, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                            std::size_t blocks) {
    Run run;
    run.passes = &passes;
    for (int i = 0; i < passes.count; ++i)
        arrange_keys(*passes.pass[i].key, &run.keys[i]);
    std::memcpy(&run.before, passes.before, 8);
    std::memcpy(&run.after, passes.after, 8);
    std::memcpy(&run.chain, iv, 8);
    while (blocks != 0) {
        const std::size_t count = blocks < 64 ? blocks : 64;
        decrypt_blocks(&run, in, out, count);
        in += 8 * count;
        out += 8 * count;
        blocks -= count;
    }
    std::memcpy(iv, &run.chain, 8);
    explicit_bzero(&run, sizeof run);
}

} // namespace toolkit

#endif
