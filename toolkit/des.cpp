// Encryption and the portable decryption look up in tables by secret values: timing through the
// data cache is not hidden. The vector versions of decryption are constant-time.
#include <toolkit/des.h>
#include <toolkit/implementations.h>

#include "cpu.h"
#include "des_avx512.h"
#include "des_tables.h"

#include <array>
#include <cstring>
#include <iterator>
#include <string.h>

namespace toolkit {

namespace {

using des::contract;
using des::expand;

// ---- Rounds

// For each byte of an expanded half: the S-box, P and the expansion for the next round.
constexpr auto round_table = [] {
    std::array<std::array<uint64_t, 64>, 8> table{};
    for (unsigned byte = 0; byte < 8; ++byte) {
        const unsigned box = des::box_of_byte[byte];
        for (unsigned six = 0; six < 64; ++six) {
            const uint32_t outputs = des::s_box(box, six) << (28 - 4 * box);
            uint32_t permuted = 0;
            for (unsigned i = 0; i < 32; ++i)
                permuted |= (outputs >> (32 - des::p[i]) & 1) << (31 - i);
            table[byte][six] = expand(permuted);
        }
    }
    return table;
}();

// Keeps the compiler from reordering a sum of exclusive ors, what is in it so far being one term,
// and from moving halves to vector registers and back.
inline uint64_t term(uint64_t sum) {
#if defined(__x86_64__)
    asm("" : "+r"(sum));
#endif
    return sum;
}

// half ^ f(mixed), mixed being the other half and the key. Two chains of look-ups, each begun with
// what is known first.
[[gnu::always_inline]] inline uint64_t round_function(uint64_t mixed, uint64_t half) {
    const uint64_t low = mixed >> 16, middle = mixed >> 32, high = mixed >> 48;
    uint64_t a = term(half ^ round_table[0][static_cast<uint8_t>(mixed)]);
    uint64_t b = term(round_table[2][static_cast<uint8_t>(low)]);
    a = term(a ^ round_table[1][static_cast<uint8_t>(mixed >> 8)]);
    b = term(b ^ round_table[3][static_cast<uint8_t>(low >> 8)]);
    a = term(a ^ round_table[4][static_cast<uint8_t>(middle)]);
    b = term(b ^ round_table[6][static_cast<uint8_t>(high)]);
    a = term(a ^ round_table[5][static_cast<uint8_t>(middle >> 8)]);
    b = term(b ^ round_table[7][static_cast<uint8_t>(high >> 8)]);
    return a ^ b;
}

// A block after the initial permutation, both halves expanded. Chaining works on this form: a
// permutation of bits commutes with exclusive or, so neither permutation is in the chain.
struct Block {
    uint64_t left, right;
};

Block operator^(const Block &a, const Block &b) {
    return {term(a.left ^ b.left), term(a.right ^ b.right)};
}

// Sixteen rounds of blocks side by side, and the exchange of halves at the end. Each half carries
// the key of the round that it enters next; see DesKey.
template <bool decrypt, int count>
[[gnu::always_inline]] inline void run_rounds(const DesKey &key, Block *blocks) {
    const auto entry = [&](int i) { return key.rounds[decrypt ? 17 - i : i]; };
#pragma GCC unroll 2
    for (int n = 0; n < count; ++n)
        blocks[n] = {blocks[n].left ^ entry(1), blocks[n].right ^ entry(0)};
#pragma GCC unroll 8
    for (int i = 0; i < 16; i += 2) {
#pragma GCC unroll 2
        for (int n = 0; n < count; ++n) {
            Block &block = blocks[n];
            block.left = round_function(block.right, block.left);
            block.right = round_function(block.left, block.right ^ entry(i + 2));
            block.left ^= entry(i + 3);
        }
    }
#pragma GCC unroll 2
    for (int n = 0; n < count; ++n)
        blocks[n] = {blocks[n].right, blocks[n].left};
}

template <bool decrypt> [[gnu::noinline]] Block run_one(const DesKey &key, Block block) {
    run_rounds<decrypt, 1>(key, &block);
    return block;
}

template <bool decrypt> [[gnu::noinline]] void run_two(const DesKey &key, Block blocks[2]) {
    run_rounds<decrypt, 2>(key, blocks);
}

// ---- Permutations

void exchange(uint32_t &a, uint32_t &b, int shift, uint32_t mask) {
    const uint32_t change = (a >> shift ^ b) & mask;
    b ^= change;
    a ^= change << shift;
}

uint32_t load_be(const uint8_t *bytes) {
    uint32_t word;
    std::memcpy(&word, bytes, sizeof word);
    if constexpr (std::endian::native == std::endian::little)
        word = __builtin_bswap32(word);
    return word;
}

void store_be(uint8_t *bytes, uint32_t word) {
    if constexpr (std::endian::native == std::endian::little)
        word = __builtin_bswap32(word);
    std::memcpy(bytes, &word, sizeof word);
}

Block load(const uint8_t *bytes) {
    uint32_t left = load_be(bytes), right = load_be(bytes + 4);
    exchange(left, right, 4, 0x0f0f0f0f);
    exchange(left, right, 16, 0x0000ffff);
    exchange(right, left, 2, 0x33333333);
    exchange(right, left, 8, 0x00ff00ff);
    exchange(left, right, 1, 0x55555555);
    return {expand(left), expand(right)};
}

void store(uint8_t *bytes, const Block &block) {
    uint32_t left = contract(block.left), right = contract(block.right);
    exchange(left, right, 1, 0x55555555);
    exchange(right, left, 8, 0x00ff00ff);
    exchange(right, left, 2, 0x33333333);
    exchange(left, right, 16, 0x0000ffff);
    exchange(left, right, 4, 0x0f0f0f0f);
    store_be(bytes, left);
    store_be(bytes + 4, right);
}

// ---- Chaining

Block run_passes(const DesPasses &passes, Block block) {
    for (int i = 0; i < passes.count; ++i)
        block = passes.pass[i].decrypt ? run_one<true>(*passes.pass[i].key, block)
                                       : run_one<false>(*passes.pass[i].key, block);
    return block;
}

void run_passes_two(const DesPasses &passes, Block blocks[2]) {
    for (int i = 0; i < passes.count; ++i) {
        if (passes.pass[i].decrypt)
            run_two<true>(*passes.pass[i].key, blocks);
        else
            run_two<false>(*passes.pass[i].key, blocks);
    }
}

void cbc_encrypt(const DesPasses &passes, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                 std::size_t blocks) {
    const Block before = load(passes.before), after = load(passes.after);
    const Block between = before ^ after;
    Block chain = load(iv) ^ after;
    for (; blocks != 0; --blocks, in += des_block_size, out += des_block_size) {
        chain = run_passes(passes, load(in) ^ between ^ chain);
        store(out, chain ^ after);
    }
    store(iv, chain ^ after);
}

// Blocks in pairs: their look-ups do not wait for each other.
void cbc_decrypt(const DesPasses &passes, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                 std::size_t blocks) {
    const Block before = load(passes.before), after = load(passes.after);
    Block chain = load(iv);
    for (; blocks >= 2; blocks -= 2, in += 2 * des_block_size, out += 2 * des_block_size) {
        const Block first = load(in), second = load(in + des_block_size);
        Block pair[2] = {first ^ before, second ^ before};
        run_passes_two(passes, pair);
        store(out, pair[0] ^ after ^ chain);
        store(out + des_block_size, pair[1] ^ after ^ first);
        chain = second;
    }
    if (blocks != 0) {
        const Block last = load(in);
        store(out, run_passes(passes, last ^ before) ^ after ^ chain);
        chain = last;
    }
    store(iv, chain);
}

// ---- Key schedule

uint32_t rotate28(uint32_t half, int count) {
    return (half << count | half >> (28 - count)) & 0x0fffffff;
}

} // namespace

// All rounds take the same bits of their halves: one bit is placed in all of them at a time.
void des_set_key(DesKey *schedule, const uint8_t key[8]) {
    uint32_t c = 0, d = 0;
    for (int i = 0; i < 28; ++i) {
        c = c << 1 | (key[(des::pc1[i] - 1) / 8] >> (7 - (des::pc1[i] - 1) % 8) & 1);
        d = d << 1 | (key[(des::pc1[i + 28] - 1) / 8] >> (7 - (des::pc1[i + 28] - 1) % 8) & 1);
    }
    constexpr int count = 16;
    uint32_t halves[2][count], keys[2][count] = {}; // C and D; bytes 0 to 3 and 4 to 7
    for (int round = 0; round < count; ++round) {
        halves[0][round] = c = rotate28(c, des::shifts[round]);
        halves[1][round] = d = rotate28(d, des::shifts[round]);
    }
    for (int byte = 0; byte < 8; ++byte)
        for (int i = 0; i < 6; ++i) {
            const int from = des::pc2[6 * des::box_of_byte[byte] + i] - 1;
            const int right = 27 - from % 28, left = 8 * (byte % 4) + 5 - i;
            for (int round = 0; round < count; ++round)
                keys[byte / 4][round] |= (halves[from / 28][round] >> right & 1) << left;
        }
    uint64_t rounds[count];
    for (int round = 0; round < count; ++round)
        rounds[round] = keys[0][round] | static_cast<uint64_t>(keys[1][round]) << 32;
    schedule->rounds[0] = rounds[0];
    schedule->rounds[1] = rounds[1];
    for (int i = 2; i < count; ++i)
        schedule->rounds[i] = rounds[i - 2] ^ rounds[i];
    schedule->rounds[16] = rounds[14];
    schedule->rounds[17] = rounds[15];
    explicit_bzero(halves, sizeof halves);
    explicit_bzero(keys, sizeof keys);
    explicit_bzero(rounds, sizeof rounds);
}

void des_ede3_set_key(DesEde3Key *schedule, const uint8_t key[24]) {
    for (int i = 0; i < 3; ++i)
        des_set_key(&schedule->key[i], key + 8 * i);
}

void desx_set_key(DesxKey *schedule, const uint8_t des[8], const uint8_t pre[8],
                  const uint8_t post[8]) {
    des_set_key(&schedule->des, des);
    std::memcpy(schedule->pre, pre, sizeof schedule->pre);
    std::memcpy(schedule->post, post, sizeof schedule->post);
}

// ---- The ciphers

namespace {

constexpr uint8_t nothing[8] = {};

DesPasses des_passes(const DesKey *key, bool decrypt) {
    return {1, {{key, decrypt}}, nothing, nothing};
}

DesPasses ede3_passes(const DesEde3Key *key, bool decrypt) {
    const DesKey *const k = key->key;
    if (decrypt)
        return {3, {{&k[2], true}, {&k[1], false}, {&k[0], true}}, nothing, nothing};
    return {3, {{&k[0], false}, {&k[1], true}, {&k[2], false}}, nothing, nothing};
}

DesPasses desx_passes(const DesxKey *key, bool decrypt) {
    if (decrypt)
        return {1, {{&key->des, true}}, key->post, key->pre};
    return {1, {{&key->des, false}}, key->pre, key->post};
}

void fastest_cbc_decrypt(const DesPasses &passes, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                         std::size_t blocks) {
    const DesDecryption *row = des_decryptions;
    while (blocks < row->least_blocks || !row->available())
        ++row;
    row->cbc_decrypt(passes, iv, in, out, blocks);
}

bool always() {
    return true;
}

} // namespace

const DesDecryption des_decryptions[] = {
#if TOOLKIT_HAS_X86_VECTORS
    {"AVX-512", has_avx512, 4, des_cbc_decrypt_avx512},
#endif
    {"portable", always, 0, cbc_decrypt},
};
const std::size_t des_decryption_count = std::size(des_decryptions);

void des_cbc_encrypt(const DesKey *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                     std::size_t blocks) {
    cbc_encrypt(des_passes(key, false), iv, in, out, blocks);
}

void des_cbc_decrypt(const DesKey *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                     std::size_t blocks) {
    fastest_cbc_decrypt(des_passes(key, true), iv, in, out, blocks);
}

void des_ede3_cbc_encrypt(const DesEde3Key *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                          std::size_t blocks) {
    cbc_encrypt(ede3_passes(key, false), iv, in, out, blocks);
}

void des_ede3_cbc_decrypt(const DesEde3Key *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                          std::size_t blocks) {
    fastest_cbc_decrypt(ede3_passes(key, true), iv, in, out, blocks);
}

void desx_cbc_encrypt(const DesxKey *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                      std::size_t blocks) {
    cbc_encrypt(desx_passes(key, false), iv, in, out, blocks);
}

void desx_cbc_decrypt(const DesxKey *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                      std::size_t blocks) {
    fastest_cbc_decrypt(desx_passes(key, true), iv, in, out, blocks);
}

} // namespace toolkit
