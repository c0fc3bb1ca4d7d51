// recode.h: the printable encoding of RFC 1113 and RFC 1421 (base 64).
//
// The encoder writes one unbroken run of characters. The decoder passes over white space (blank,
// tab, CR, LF) anywhere, keeps a partial group between calls, and refuses every other character
// outside the alphabet, padding anywhere but at the end, anything after it, and pad bits that are
// not zero. Neither direction takes place in the buffer of its input.
#ifndef TOOLKIT_RECODE_H
#define TOOLKIT_RECODE_H

#include <cstddef>
#include <cstdint>

namespace toolkit {

struct RecodeEncoder {
    uint8_t held[3];
    unsigned count;
};

void recode_encode_init(RecodeEncoder *encoder);
// Encodes what can be encoded in whole groups of three bytes, and holds the rest. Returns the
// number of characters written.
std::size_t recode_encode_update(RecodeEncoder *encoder, uint8_t *out, const uint8_t *in,
                                 std::size_t size);
// Exact number of characters that an update with this many bytes writes.
std::size_t recode_encode_size(const RecodeEncoder *encoder, std::size_t size);
// Writes the last group, padded: 0 or 4 characters, the number returned. The encoder starts afresh.
std::size_t recode_encode_final(RecodeEncoder *encoder, uint8_t *out);

struct RecodeDecoder {
    uint32_t bits;    // of the characters of the group so far, six each
    unsigned count;   // of characters, 4 when padding has ended the text
    unsigned padding; // '=' seen so far
};

void recode_decode_init(RecodeDecoder *decoder);
// Writes at most (held + size) / 4 * 3 bytes. False at the first bad character; what was written
// before it is to be thrown away. All of the room named may be written to.
bool recode_decode_update(RecodeDecoder *decoder, uint8_t *out, std::size_t *out_size,
                          const uint8_t *in, std::size_t size);
// False when a group was left unfinished. The decoder starts afresh.
bool recode_decode_final(RecodeDecoder *decoder);

} // namespace toolkit

#endif
