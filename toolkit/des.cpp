#include <toolkit/des.h>

#include "des_tables.h"

#include <array>
#include <cstring>
#include <string.h>

namespace toolkit {

namespace {

using des::contract;
using des::expand;

// ---- Rounds
// --------------------------------------------------------------------------------------

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

uint64_t look_up(unsigned byte, uint64_t mixed) {
    return round_table[byte][static_cast<uint8_t>(mixed >> (8 * byte))];
}

uint64_t round_function(uint64_t mixed) {
    return ((look_up(0, mixed) ^ look_up(1, mixed)) ^ (look_up(2, mixed) ^ look_up(3, mixed))) ^
           ((look_up(4, mixed) ^ look_up(5, mixed)) ^ (look_up(6, mixed) ^ look_up(7, mixed)));
}

// A block after the initial permutation, both halves expanded. Chaining works on this form: a
// permutation of bits commutes with exclusive or, so neither permutation is in the chain.
struct Block {
    uint64_t left, right;
};

Block operator^(const Block &a, const Block &b) {
    return {a.left ^ b.left, a.right ^ b.right};
}

enum class Direction { encrypt, decrypt };

// Sixteen rounds and the exchange of halves at the end.
template <Direction direction> Block crypt(const DesKey &key, Block block) {
    for (int i = 0; i < 16; i += 2) {
        const int first = direction == Direction::encrypt ? i : 15 - i;
        const int second = direction == Direction::encrypt ? i + 1 : 14 - i;
        block.left ^= round_function(block.right ^ key.rounds[first]);
        block.right ^= round_function(block.left ^ key.rounds[second]);
    }
    return {block.right, block.left};
}

// ---- Permutations
// --------------------------------------------------------------------------------

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
// ------------------------------------------------------------------------------------

Block encrypt(const DesKey &key, const Block &block) {
    return crypt<Direction::encrypt>(key, block);
}
Block decrypt(const DesKey &key, const Block &block) {
    return crypt<Direction::decrypt>(key, block);
}

Block encrypt(const DesEde3Key &key, const Block &block) {
    return encrypt(key.key[2], decrypt(key.key[1], encrypt(key.key[0], block)));
}
Block decrypt(const DesEde3Key &key, const Block &block) {
    return decrypt(key.key[0], encrypt(key.key[1], decrypt(key.key[2], block)));
}

Block encrypt(const DesxKey &key, const Block &block) {
    return encrypt(key.des, block ^ load(key.pre)) ^ load(key.post);
}
Block decrypt(const DesxKey &key, const Block &block) {
    return decrypt(key.des, block ^ load(key.post)) ^ load(key.pre);
}

template <class Key>
void cbc_encrypt(const Key &key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                 std::size_t blocks) {
    Block chain = load(iv);
    for (; blocks != 0; --blocks, in += des_block_size, out += des_block_size) {
        chain = encrypt(key, load(in) ^ chain);
        store(out, chain);
    }
    store(iv, chain);
}

template <class Key>
void cbc_decrypt(const Key &key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                 std::size_t blocks) {
    Block chain = load(iv);
    for (; blocks != 0; --blocks, in += des_block_size, out += des_block_size) {
        const Block next = load(in);
        store(out, decrypt(key, next) ^ chain);
        chain = next;
    }
    store(iv, chain);
}

// ---- Key schedule
// --------------------------------------------------------------------------------

uint32_t rotate28(uint32_t half, int count) {
    return (half << count | half >> (28 - count)) & 0x0fffffff;
}

} // namespace

void des_set_key(DesKey *schedule, const uint8_t key[8]) {
    uint32_t c = 0, d = 0;
    for (int i = 0; i < 28; ++i) {
        c = c << 1 | (key[(des::pc1[i] - 1) / 8] >> (7 - (des::pc1[i] - 1) % 8) & 1);
        d = d << 1 | (key[(des::pc1[i + 28] - 1) / 8] >> (7 - (des::pc1[i + 28] - 1) % 8) & 1);
    }
    for (int round = 0; round < 16; ++round) {
        c = rotate28(c, des::shifts[round]);
        d = rotate28(d, des::shifts[round]);
        const uint64_t cd = static_cast<uint64_t>(c) << 28 | d;
        uint64_t bytes = 0;
        for (int byte = 0; byte < 8; ++byte) {
            unsigned six = 0;
            for (int i = 0; i < 6; ++i)
                six = six << 1 | (cd >> (56 - des::pc2[6 * des::box_of_byte[byte] + i]) & 1);
            bytes |= static_cast<uint64_t>(six) << (8 * byte);
        }
        schedule->rounds[round] = bytes;
    }
}

void des_cbc_encrypt(const DesKey *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                     std::size_t blocks) {
    cbc_encrypt(*key, iv, in, out, blocks);
}

void des_cbc_decrypt(const DesKey *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                     std::size_t blocks) {
    cbc_decrypt(*key, iv, in, out, blocks);
}

void des_ede3_set_key(DesEde3Key *schedule, const uint8_t key[24]) {
    for (int i = 0; i < 3; ++i)
        des_set_key(&schedule->key[i], key + 8 * i);
}

void des_ede3_cbc_encrypt(const DesEde3Key *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                          std::size_t blocks) {
    cbc_encrypt(*key, iv, in, out, blocks);
}

void des_ede3_cbc_decrypt(const DesEde3Key *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                          std::size_t blocks) {
    cbc_decrypt(*key, iv, in, out, blocks);
}

void desx_set_key(DesxKey *schedule, const uint8_t des[8], const uint8_t pre[8],
                  const uint8_t post[8]) {
    des_set_key(&schedule->des, des);
    std::memcpy(schedule->pre, pre, sizeof schedule->pre);
    std::memcpy(schedule->post, post, sizeof schedule->post);
}

void desx_cbc_encrypt(const DesxKey *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                      std::size_t blocks) {
    cbc_encrypt(*key, iv, in, out, blocks);
}

void desx_cbc_decrypt(const DesxKey *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                      std::size_t blocks) {
    cbc_decrypt(*key, iv, in, out, blocks);
}

} // namespace toolkit
