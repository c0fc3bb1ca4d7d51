// der.h: one element of BER after the other, with one bounds check.
#ifndef TOOLS_DER_H
#define TOOLS_DER_H

#include <cstdint>
#include <span>

namespace tool {

// Tag and length, as they stand before the contents of an element.
struct Header {
    uint8_t tag = 0;
    bool indefinite = false;
    std::size_t size = 0; // of tag and length
    uint64_t length = 0;  // of the contents, which need not be there
};

// The header that bytes begin with. False where there is none of a one-byte tag.
inline bool read_header(std::span<const uint8_t> bytes, Header &header) {
    if (bytes.size() < 2 || (bytes[0] & 0x1f) == 0x1f)
        return false;
    header = {bytes[0], bytes[1] == 0x80, 2, bytes[1]};
    if (bytes[1] <= 0x80) {
        header.length &= 0x7f;
        return true;
    }
    const std::size_t count = bytes[1] & 0x7f;
    if (count > 4 || bytes.size() < 2 + count)
        return false;
    header.length = 0;
    for (std::size_t i = 0; i < count; ++i)
        header.length = header.length << 8 | bytes[2 + i];
    header.size += count;
    return true;
}

struct Element {
    uint8_t tag = 0;
    std::span<const uint8_t> contents;
};

// Takes the element that bytes begin with off them. False where there is none of a one-byte tag and
// definite length.
inline bool take_element(std::span<const uint8_t> &bytes, Element &element) {
    Header header;
    if (!read_header(bytes, header) || header.indefinite ||
        header.length > bytes.size() - header.size)
        return false;
    const auto length = static_cast<std::size_t>(header.length);
    element = {header.tag, bytes.subspan(header.size, length)};
    bytes = bytes.subspan(header.size + length);
    return true;
}

// Appends tag and length to bytes, a vector, in DER.
template <class Vector> void append_header(Vector &bytes, uint8_t tag, uint64_t length) {
    bytes.push_back(tag);
    unsigned count = 0; // of the bytes of a long length
    while (length >= 0x80 && count < sizeof length && length >> 8 * count != 0)
        ++count;
    if (count != 0)
        bytes.push_back(static_cast<uint8_t>(0x80 | count));
    for (unsigned left = count != 0 ? count : 1; left-- != 0;)
        bytes.push_back(static_cast<uint8_t>(length >> 8 * left));
}

// Appends an element.
template <class Vector>
void append_element(Vector &bytes, uint8_t tag, std::span<const uint8_t> contents) {
    append_header(bytes, tag, contents.size());
    bytes.insert(bytes.end(), contents.begin(), contents.end());
}

} // namespace tool

#endif
