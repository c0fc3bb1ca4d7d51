// PKCS#1 v1.5 block formatting (RFC 2313, section 8.1; section 9.4 in reverse).
#include <toolkit/pkcs1.h>

#include "bignum.h"

#include <cstring>

namespace toolkit {

using bn::Limb;

namespace {

// 00 type padding 00 data; the padding is left to the caller. Null when the data do not fit.
uint8_t *frame(uint8_t *block, uint32_t size, uint8_t type, const uint8_t *data, uint32_t length) {
    if (size < pkcs1_overhead || length > size - pkcs1_overhead)
        return nullptr;
    if (length != 0)
        memmove(block + size - length, data, length);
    block[0] = 0;
    block[1] = type;
    block[size - length - 1] = 0;
    return block + 2;
}

} // namespace

int pkcs1_pad_type1(uint8_t *block, uint32_t size, const uint8_t *data, uint32_t length) {
    uint8_t *const padding = frame(block, size, 1, data, length);
    if (padding == nullptr)
        return BE_INPUT_LEN;
    memset(padding, 0xff, size - length - 3);
    return BE_OK;
}

int pkcs1_pad_type2(uint8_t *block, uint32_t size, const uint8_t *data, uint32_t length,
                    const RandomSource &random) {
    uint8_t *const padding = frame(block, size, 2, data, length);
    if (padding == nullptr)
        return BE_INPUT_LEN;
    // A zero octet is replaced by drawing again: the octets that stay are uniform over 1 to 255.
    const uint32_t wanted = size - length - 3;
    for (uint32_t filled = 0; filled < wanted;) {
        if (!random.fill(random.state, padding + filled, wanted - filled)) {
            explicit_bzero(block, size);
            return BE_RANDOM_OBJ;
        }
        for (uint32_t at = filled; at < wanted; ++at)
            if (padding[at] != 0)
                padding[filled++] = padding[at];
    }
    return BE_OK;
}

int pkcs1_open_type1(const uint8_t *block, uint32_t size, uint32_t *start_out) {
    *start_out = 0;
    if (size < pkcs1_overhead || block[0] != 0 || block[1] != 1)
        return BE_PADDING;
    uint32_t at = 2;
    while (at < size && block[at] == 0xff)
        ++at;
    if (at < pkcs1_overhead - 1 || at == size || block[at] != 0)
        return BE_PADDING;
    *start_out = at + 1;
    return BE_OK;
}

int pkcs1_open_type2(const uint8_t *block, uint32_t size, uint32_t *start_out) {
    *start_out = 0;
    if (size < pkcs1_overhead)
        return BE_PADDING;
    const Limb typed = bn::mask_if_zero(block[0]) & bn::mask_if_equal(block[1], 2);
    Limb zero_at = 0, searching = ~Limb(0);
    for (uint32_t at = 2; at < size; ++at) {
        const Limb here = bn::mask_if_zero(block[at]) & searching;
        zero_at |= at & here;
        searching &= ~here;
    }
    // Too short a padding leaves zero_at below its least place, no zero at all leaves it 0.
    const Limb least = pkcs1_overhead - 1;
    const Limb too_short = bn::mask_of_bit((zero_at - least) >> (bn::limb_bits - 1));
    const Limb good = typed & ~too_short;
    *start_out = static_cast<uint32_t>((zero_at + 1) & good);
    return static_cast<int>(~good & BE_PADDING);
}

} // namespace toolkit
