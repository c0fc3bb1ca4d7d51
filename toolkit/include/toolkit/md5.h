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

} // namespace toolkit

#endif
