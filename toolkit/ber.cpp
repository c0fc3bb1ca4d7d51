#include "ber.h"

#include <cstring>

namespace toolkit {
namespace {

constexpr uint8_t constructed = 0x20;
constexpr uint8_t high_tag_number = 0x1f;
constexpr uint8_t indefinite = 0x80;
constexpr int max_depth = 16; // of indefinite lengths inside one another

bool read_header(BerReader *reader, uint8_t *tag, bool *ends_later, std::size_t *length) {
    if (reader->left < 2)
        return false;
    *tag = reader->at[0];
    const uint8_t first = reader->at[1];
    reader->at += 2;
    reader->left -= 2;
    *ends_later = first == indefinite;
    *length = first;
    if (first <= indefinite)
        return (*tag & high_tag_number) != high_tag_number &&
               (!*ends_later || (*tag & constructed) != 0);
    std::size_t value = 0;
    for (unsigned count = first & 0x7f; count != 0; --count) {
        if (reader->left == 0 || value > (SIZE_MAX >> 8))
            return false;
        value = value << 8 | *reader->at++;
        --reader->left;
    }
    *length = value;
    return (*tag & high_tag_number) != high_tag_number;
}

bool read_any(BerReader *reader, uint8_t *tag, BerReader *contents, int depth);

// Walks to the end-of-contents octets that close an indefinite length.
bool read_to_end_of_contents(BerReader *reader, BerReader *contents, int depth) {
    if (depth == 0)
        return false;
    contents->at = reader->at;
    for (;;) {
        if (reader->left >= 2 && reader->at[0] == 0 && reader->at[1] == 0) {
            contents->left = static_cast<std::size_t>(reader->at - contents->at);
            reader->at += 2;
            reader->left -= 2;
            return true;
        }
        uint8_t tag;
        BerReader skipped;
        if (!read_any(reader, &tag, &skipped, depth - 1))
            return false;
    }
}

bool read_any(BerReader *reader, uint8_t *tag, BerReader *contents, int depth) {
    bool ends_later;
    std::size_t length;
    if (!read_header(reader, tag, &ends_later, &length))
        return false;
    if (ends_later)
        return read_to_end_of_contents(reader, contents, depth);
    if (length > reader->left)
        return false;
    *contents = {reader->at, length};
    reader->at += length;
    reader->left -= length;
    return true;
}

} // namespace

bool ber_next_is(const BerReader *reader, uint8_t tag) {
    return reader->left != 0 && reader->at[0] == tag;
}

bool ber_read(BerReader *reader, uint8_t tag, BerReader *contents) {
    uint8_t found;
    return read_any(reader, &found, contents, max_depth) && found == tag;
}

bool ber_read_magnitude(BerReader *reader, ITEM *number) {
    BerReader contents;
    if (!ber_read(reader, ber_integer, &contents) || contents.left == 0 ||
        contents.left > UINT32_MAX)
        return false;
    if (contents.left > 1 && contents.at[0] == 0 && (contents.at[1] & 0x80) == 0)
        return false;
    *number = without_leading_zeros(
        {const_cast<uint8_t *>(contents.at), static_cast<uint32_t>(contents.left)});
    return true;
}

bool ber_read_unsigned(BerReader *reader, ITEM *number) {
    BerReader ahead = *reader;
    BerReader contents;
    if (!ber_read(&ahead, ber_integer, &contents) || contents.left == 0 ||
        (contents.at[0] & 0x80) != 0)
        return false;
    return ber_read_magnitude(reader, number);
}

bool ber_read_small(BerReader *reader, uint32_t *number) {
    ITEM item;
    if (!ber_read_unsigned(reader, &item) || item.len > sizeof *number)
        return false;
    *number = 0;
    for (uint32_t i = 0; i < item.len; ++i)
        *number = *number << 8 | item.data[i];
    return true;
}

bool ber_read_octets(BerReader *reader, uint8_t *octets, std::size_t size) {
    BerReader contents;
    if (!ber_read(reader, ber_octet_string, &contents) || contents.left != size)
        return false;
    std::memcpy(octets, contents.at, size);
    return true;
}

bool ber_read_oid(BerReader *reader, const Oid &oid) {
    BerReader contents;
    return ber_read(reader, ber_oid, &contents) && contents.left == oid.size &&
           std::memcmp(contents.at, oid.bytes, oid.size) == 0;
}

bool ber_read_null_or_nothing(BerReader *reader) {
    BerReader contents;
    return reader->left == 0 || (ber_read(reader, ber_null, &contents) && contents.left == 0);
}

void ber_write_bytes(BerWriter *writer, const uint8_t *bytes, std::size_t size) {
    if (writer->end == nullptr) {
        writer->used += size;
        return;
    }
    if (writer->failed || size > writer->capacity - writer->used) {
        writer->failed = true;
        return;
    }
    writer->used += size;
    if (size != 0)
        std::memcpy(writer->end - writer->used, bytes, size);
}

void ber_write_header(BerWriter *writer, uint8_t tag, std::size_t mark) {
    const std::size_t length = writer->used - mark;
    uint8_t header[2 + sizeof length];
    std::size_t start = sizeof header;
    if (length < indefinite) {
        header[--start] = static_cast<uint8_t>(length);
    } else {
        for (std::size_t rest = length; rest != 0; rest >>= 8)
            header[--start] = static_cast<uint8_t>(rest);
        const std::size_t octets = sizeof header - start;
        header[--start] = static_cast<uint8_t>(indefinite | octets);
    }
    header[--start] = tag;
    ber_write_bytes(writer, header + start, sizeof header - start);
}

void ber_write_unsigned(BerWriter *writer, const ITEM &number) {
    constexpr uint8_t zero = 0;
    const std::size_t mark = writer->used;
    const ITEM digits = without_leading_zeros(number);
    ber_write_bytes(writer, digits.data, digits.len);
    if (digits.len == 0 || (digits.data[0] & 0x80) != 0)
        ber_write_bytes(writer, &zero, 1);
    ber_write_header(writer, ber_integer, mark);
}

void ber_write_small(BerWriter *writer, uint32_t number) {
    uint8_t bytes[4] = {static_cast<uint8_t>(number >> 24), static_cast<uint8_t>(number >> 16),
                        static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)};
    ber_write_unsigned(writer, {bytes, sizeof bytes});
}

void ber_write_octets(BerWriter *writer, const uint8_t *octets, std::size_t size) {
    const std::size_t mark = writer->used;
    ber_write_bytes(writer, octets, size);
    ber_write_header(writer, ber_octet_string, mark);
}

void ber_write_oid(BerWriter *writer, const Oid &oid) {
    const std::size_t mark = writer->used;
    ber_write_bytes(writer, oid.bytes, oid.size);
    ber_write_header(writer, ber_oid, mark);
}

void ber_write_null(BerWriter *writer) {
    ber_write_header(writer, ber_null, writer->used);
}

ITEM without_leading_zeros(const ITEM &number) {
    ITEM digits = number;
    while (digits.len != 0 && digits.data[0] == 0) {
        ++digits.data;
        --digits.len;
    }
    return digits;
}

} // namespace toolkit
