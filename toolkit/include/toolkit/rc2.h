// rc2.h: RC2 (RFC 2268) in CBC mode. For iv, in and out, and for timing, see des.h; the
// key schedule looks up by secrets too.
#ifndef TOOLKIT_RC2_H
#define TOOLKIT_RC2_H

#include <cstddef>
#include <cstdint>

namespace toolkit {

constexpr std::size_t rc2_block_size = 8;

// A key schedule: secret, to be zeroed by its owner.
struct Rc2Key {
    uint16_t words[64];
};

// key: 1 to 128 bytes; effective_bits: 1 to 1024. False when either is out of range.
bool rc2_set_key(Rc2Key *schedule, const uint8_t *key, std::size_t size, unsigned effective_bits);
void rc2_cbc_encrypt(const Rc2Key *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                     std::size_t blocks);
void rc2_cbc_decrypt(const Rc2Key *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                     std::size_t blocks);

// The number that stands for an effective key size in RC2-CBC parameters (RFC 2268 section 6), and
// back. 0 for a size that is not 1 to 1024, and for a version of none. Version 0 stands for 93
// bits.
uint32_t rc2_version_from_bits(uint32_t effective_bits);
uint32_t rc2_bits_from_version(uint32_t version);

} // namespace toolkit

#endif
