// md5.h: the MD5 message digest (RFC 1321). Its time depends on the length alone.
#ifndef TOOLKIT_MD5_H
#define TOOLKIT_MD5_H

#include <cstddef>
#include <cstdint>

namespace toolkit {

constexpr std::size_t md5_digest_size = 16;

struct Md5 {
    uint32_t state[4];
    uint64_t length;   // bytes taken so far
    uint8_t block[64]; // the first length % 64 bytes of it
};

void md5_init(Md5 *md5);
// data: size bytes in any split; may be null when size is 0.
void md5_update(Md5 *md5, const uint8_t *data, std::size_t size);
// Writes 16 bytes to digest and zeroes the state.
void md5_final(Md5 *md5, uint8_t *digest);

// Two chains of digests, D = MD5(D followed by tail) count times, 1 or more. The steps of a chain
// wait for one another, so that the second fills the gaps of the first and costs next to nothing.
//   starts   the first D of either chain, one behind the other, start_size bytes each.
//   digests  receives the last D of either chain, 32 bytes; must not overlap the others.
void md5_chains(const uint8_t *starts, std::size_t start_size, const uint8_t *tail,
                std::size_t tail_size, uint32_t count, uint8_t *digests);

} // namespace toolkit

#endif
