// Look-ups depend on the key stream: timing through the data cache is not hidden.
#include <toolkit/rc4.h>

#include <bit>
#include <cstring>

namespace toolkit {

namespace {

// Where the key stream stands: the place x that comes next, the byte there, and y.
struct Position {
    uint8_t x, at_x, y;
};

// The byte in the place after x is read before x and y are exchanged. The exchange changes it only
// if y is that place: a branch that is almost never taken, where a load that waits for the stores
// would cost most of the time.
[[gnu::always_inline]] inline uint8_t exchange(uint8_t *state, Position *at) {
    const uint8_t next = static_cast<uint8_t>(at->x + 1);
    uint8_t at_next = state[next];
    const uint8_t at_y = state[at->y];
    state[at->x] = at_y;
    state[at->y] = at->at_x;
    const uint8_t sum = static_cast<uint8_t>(at->at_x + at_y);
    if (__builtin_expect(at->y == next, 0)) {
        at_next = at->at_x;
        asm volatile("" : "+r"(at_next)); // a conditional move would be in every byte's way
    }
    at->x = next;
    at->at_x = at_next;
    return sum;
}

[[gnu::always_inline]] inline uint8_t stream_byte(uint8_t *state, Position *at) {
    at->y = static_cast<uint8_t>(at->y + at->at_x);
    const uint8_t place = exchange(state, at);
    return state[place];
}

} // namespace

bool rc4_set_key(Rc4 *rc4, const uint8_t *key, std::size_t size) {
    if (size < 1 || size > 256)
        return false;
    uint8_t *const state = rc4->state;
    for (unsigned i = 0; i < 256; ++i)
        state[i] = static_cast<uint8_t>(i);
    Position at = {0, 0, 0};
    std::size_t from = 0;
    for (int i = 0; i < 256; ++i) {
        at.y = static_cast<uint8_t>(at.y + at.at_x + key[from]);
        if (++from == size)
            from = 0;
        exchange(state, &at);
    }
    rc4->x = 1;
    rc4->y = 0;
    return true;
}

void rc4_crypt(Rc4 *rc4, const uint8_t *in, uint8_t *out, std::size_t size) {
    uint8_t *const state = rc4->state;
    Position at = {rc4->x, state[rc4->x], rc4->y};
    for (; size >= 8; in += 8, out += 8, size -= 8) {
        uint64_t stream = 0;
#pragma GCC unroll 8
        for (int i = 0; i < 8; ++i)
            stream |= static_cast<uint64_t>(stream_byte(state, &at)) << (8 * i);
        if constexpr (std::endian::native == std::endian::big)
            stream = __builtin_bswap64(stream);
        uint64_t data;
        std::memcpy(&data, in, 8);
        data ^= stream;
        std::memcpy(out, &data, 8);
    }
    for (; size != 0; --size)
        *out++ = *in++ ^ stream_byte(state, &at);
    rc4->x = at.x;
    rc4->y = at.y;
}

} // namespace toolkit
