#include <toolkit/rc4.h>

#include <utility>

namespace toolkit {

bool rc4_set_key(Rc4 *rc4, const uint8_t *key, std::size_t size) {
    if (size < 1 || size > 256)
        return false;
    for (unsigned i = 0; i < 256; ++i)
        rc4->state[i] = i;
    unsigned j = 0;
    for (unsigned i = 0, k = 0; i < 256; ++i) {
        j = (j + rc4->state[i] + key[k]) & 0xff;
        std::swap(rc4->state[i], rc4->state[j]);
        k = k + 1 == size ? 0 : k + 1;
    }
    rc4->x = rc4->y = 0;
    return true;
}

void rc4_crypt(Rc4 *rc4, const uint8_t *in, uint8_t *out, std::size_t size) {
    uint32_t *const state = rc4->state;
    uint8_t x = static_cast<uint8_t>(rc4->x), y = static_cast<uint8_t>(rc4->y);
    for (std::size_t i = 0; i < size; ++i) {
        const uint32_t at_x = state[++x];
        y = static_cast<uint8_t>(y + at_x);
        const uint32_t at_y = state[y];
        state[x] = at_y;
        state[y] = at_x;
        out[i] = static_cast<uint8_t>(in[i] ^ state[(at_x + at_y) & 0xff]);
    }
    rc4->x = x;
    rc4->y = y;
}

} // namespace toolkit
