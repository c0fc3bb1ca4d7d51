// md2.h: the MD2 message digest (RFC 1319). Its look-ups, and so its timing, depend on the data.
#ifndef TOOLKIT_MD2_H
#define TOOLKIT_MD2_H

#include <cstddef>
#include <cstdint>

namespace toolkit {

constexpr std::size_t md2_digest_size = 16;

struct Md2 {
    uint8_t state[16];
    uint8_t checksum[16];
    uint8_t block[16];
    std::size_t held; // bytes in block
};

void md2_init(Md2 *md2);
// data: size bytes in any split; may be null when size is 0.
void md2_update(Md2 *md2, const uint8_t *data, std::size_t size);
// Writes 16 bytes to digest and zeroes the state.
void md2_final(Md2 *md2, uint8_t *digest);

} // namespace toolkit

#endif
