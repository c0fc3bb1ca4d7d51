// rc4.h: the RC4 stream cipher (RFC 6229 has its vectors).
#ifndef TOOLKIT_RC4_H
#define TOOLKIT_RC4_H

#include <cstddef>
#include <cstdint>

namespace toolkit {

// Key stream state: secret, to be zeroed by its owner.
struct Rc4 {
    uint8_t state[256];
    uint8_t x; // the place that the next byte of key stream begins with
    uint8_t y;
};

// key: 1 to 256 bytes. False when size is out of range.
bool rc4_set_key(Rc4 *rc4, const uint8_t *key, std::size_t size);
// Encrypts or decrypts size bytes, going on where the call before ended. in and out may be the same
// buffer, but must not overlap otherwise. Timing depends on the key stream.
void rc4_crypt(Rc4 *rc4, const uint8_t *in, uint8_t *out, std::size_t size);

} // namespace toolkit

#endif
