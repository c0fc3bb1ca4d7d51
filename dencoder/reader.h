// reader.h: reads BER identifiers, lengths and contents, from memory or through a window on a file.
//
// Every access is checked in need(), against the innermost enclosing element and against the
// window. Offsets are 32 bits wide, so that at <= limit <= 2^32 - 1 holds and no sum of the two
// wraps.
#ifndef DENCODER_READER_H
#define DENCODER_READER_H

#include "environment.h"

namespace dencoder {

// Most that need() and take() can be asked for.
constexpr uint32_t window_size = 64 * 1024;

struct Reader {
    const uint8_t *window = nullptr; // the bytes at [start, filled)
    uint32_t start = 0;
    uint32_t filled = 0;
    uint32_t at = 0;
    uint32_t limit = 0;      // end of the enclosing element, or of the nearest of known length
    bool indefinite = false; // the enclosing element ends with two zero octets
    struct FileInput *file = nullptr; // null: all input is in the window
};

inline void read_memory(Reader &reader, const uint8_t *bytes, uint32_t length) {
    reader = {.window = bytes, .filled = length, .limit = length};
}

// What stands in front of a value's contents.
struct Header {
    uint32_t start;     // offset of its first octet
    uint32_t length;    // of the contents, unless indefinite
    uint8_t identifier; // its first octet
    bool indefinite;
    bool constructed() const { return (identifier & 0x20) != 0; }
    uint8_t tag() const { return identifier & 0xdf; }
};

enum class Read { good, malformed, too_deep, file_error };

// Records what went wrong while reading; true if nothing did.
bool done(OssEnvironment &environment, const Reader &reader, Read outcome);

// Brings the octets from at on into the window.
Read refill(Reader &reader, uint32_t count);

inline Read need(Reader &reader, uint32_t count) {
    if (count > reader.limit - reader.at)
        return Read::malformed;
    return reader.at + count <= reader.filled ? Read::good : refill(reader, count);
}

// The next octet, after need().
inline const uint8_t *peek(const Reader &reader) {
    return reader.window + (reader.at - reader.start);
}

// Goes back, or over octets that are known to be there.
void seek(Reader &reader, uint32_t offset);

Read read_header(Reader &reader, Header &header);
// Goes over a value whose header has been read. Linear, and without recursion.
Read skip(Reader &reader, const Header &header);
// Copies count octets, any number, to memory or to a file.
Read copy(Reader &reader, uint8_t *target, uint32_t count);
Read copy_to_file(Reader &reader, int descriptor, uint32_t count);

// X.690 8.3.2: the first nine bits of an INTEGER are not all alike.
inline bool is_minimal(const uint8_t *contents, uint32_t length) {
    return length < 2 || (contents[0] != 0 && contents[0] != 0xff) ||
           (contents[0] ^ contents[1]) >= 0x80;
}

// The enclosing element's bounds, put aside while inside another.
struct Scope {
    uint32_t limit;
    bool indefinite;
};

// Goes into a constructed value whose header has been read.
inline Scope enter(Reader &reader, const Header &header) {
    const Scope outer = {reader.limit, reader.indefinite};
    reader.indefinite = header.indefinite;
    if (!header.indefinite)
        reader.limit = reader.at + header.length;
    return outer;
}

// Whether the enclosing element has more to come. A missing end shows in leave().
Read has_more(Reader &reader, bool &more);
// Goes out again, over the end of the element, which must have come.
Read leave(Reader &reader, const Scope &outer);

} // namespace dencoder

#endif
