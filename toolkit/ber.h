// ber.h: the toolkit's own reader and writer of the few ASN.1 types that it knows (X.690).
//
// The reader takes definite lengths in any form and indefinite ones; strings must be in one piece,
// as every standard behind these types has them, and integers must be in their shortest form and
// not negative. The writer writes DER. Neither allocates.
#ifndef TOOLKIT_BER_H
#define TOOLKIT_BER_H

#include <toolkit/toolkit.h>

#include <cstddef>
#include <cstdint>

namespace toolkit {

// The contents octets of an object identifier; size 0 stands for none.
struct Oid {
    uint8_t size;
    uint8_t bytes[9];
};

enum BerTag : uint8_t {
    ber_integer = 0x02,
    ber_bit_string = 0x03,
    ber_octet_string = 0x04,
    ber_null = 0x05,
    ber_oid = 0x06,
    ber_sequence = 0x30,
    ber_context_0 = 0xa0, // [0], constructed
};

// What is left to read. Bytes stay where they are: what is read points into them.
struct BerReader {
    const uint8_t *at;
    std::size_t left;
};

// All of these move on behind the element and return true, or return false on anything else.
bool ber_read(BerReader *reader, uint8_t tag, BerReader *contents);
bool ber_read_unsigned(BerReader *reader, ITEM *number); // without leading zeros
// The same, but a set sign bit belongs to the number.
bool ber_read_magnitude(BerReader *reader, ITEM *number);
bool ber_read_small(BerReader *reader, uint32_t *number);                   // below 2^32
bool ber_read_octets(BerReader *reader, uint8_t *octets, std::size_t size); // of exactly this size
bool ber_read_oid(BerReader *reader, const Oid &oid);                       // exactly this one
bool ber_read_null_or_nothing(BerReader *reader);
// Whether the next element has this tag.
bool ber_next_is(const BerReader *reader, uint8_t tag);

inline BerReader ber_reader(const ITEM &item) {
    return {item.data, item.len};
}

// Writes backwards, from the end of a buffer towards its start: contents come before their header,
// and the last component first. Without a buffer it counts. A write that does not fit is
// remembered.
struct BerWriter {
    uint8_t *end; // of the buffer, or null
    std::size_t capacity;
    std::size_t used;
    bool failed;
};

void ber_write_bytes(BerWriter *writer, const uint8_t *bytes, std::size_t size);
// The header of an element whose contents are all that was written since used was mark.
void ber_write_header(BerWriter *writer, uint8_t tag, std::size_t mark);
void ber_write_unsigned(BerWriter *writer, const ITEM &number);
void ber_write_small(BerWriter *writer, uint32_t number);
void ber_write_octets(BerWriter *writer, const uint8_t *octets, std::size_t size);
void ber_write_oid(BerWriter *writer, const Oid &oid);
void ber_write_null(BerWriter *writer);

// A big-endian number without its leading zeros; zero has no bytes left.
ITEM without_leading_zeros(const ITEM &number);

} // namespace toolkit

#endif
