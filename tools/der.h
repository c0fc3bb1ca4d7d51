// der.h: one element of BER after the other, with one bounds check.
#ifndef TOOLS_DER_H
#define TOOLS_DER_H

#include <cstdint>
#include <span>

namespace tool {

struct Element {
    uint8_t tag = 0;
    std::span<const uint8_t> contents;
};

// Takes the element that bytes begin with off them. False where there is none of a one-byte tag and
// definite length.
inline bool take_element(std::span<const uint8_t> &bytes, Element &element) {
    if (bytes.size() < 2 || (bytes[0] & 0x1f) == 0x1f)
        return false;
    std::size_t header = 2;
    uint64_t length = bytes[1];
    if (length >= 0x80) {
        const std::size_t count = bytes[1] & 0x7f;
        if (count == 0 || count > 4 || bytes.size() < 2 + count)
            return false;
        length = 0;
        for (std::size_t i = 0; i < count; ++i)
            length = length << 8 | bytes[2 + i];
        header += count;
    }
    if (length > bytes.size() - header)
        return false;
    element = {bytes[0], bytes.subspan(header, static_cast<std::size_t>(length))};
    bytes = bytes.subspan(header + static_cast<std::size_t>(length));
    return true;
}

} // namespace tool

#endif
