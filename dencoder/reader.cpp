#include "file.h"

namespace dencoder {
namespace {

constexpr unsigned longest_tag = 5; // octets of a tag number, which has 32 bits at most
constexpr unsigned deepest_indefinite =
    64; // open elements of indefinite length inside an open type

// Tag numbers from 31 on (X.690 8.1.2.4). The schema has none; they occur inside open types.
Read skip_tag_number(Reader &reader) {
    uint32_t number = 0;
    for (unsigned count = 0; count < longest_tag; ++count) {
        if (const Read outcome = need(reader, 1); outcome != Read::good)
            return outcome;
        const uint8_t octet = *peek(reader);
        ++reader.at;
        if ((count == 0 && octet == 0x80) || number > UINT32_MAX >> 7)
            return Read::malformed;
        number = number << 7 | (octet & 0x7f);
        if ((octet & 0x80) == 0)
            return number >= 31 ? Read::good : Read::malformed;
    }
    return Read::malformed;
}

// The long form, of any number of octets that the value does not need.
Read read_long_length(Reader &reader, unsigned count, uint32_t &length) {
    if (const Read outcome = need(reader, count); outcome != Read::good)
        return outcome;
    length = 0;
    for (const uint8_t *octet = peek(reader), *end = octet + count; octet != end; ++octet) {
        if (length > UINT32_MAX >> 8)
            return Read::malformed;
        length = length << 8 | *octet;
    }
    reader.at += count;
    return Read::good;
}

Read read_length(Reader &reader, Header &header) {
    if (const Read outcome = need(reader, 1); outcome != Read::good)
        return outcome;
    const uint8_t first = *peek(reader);
    ++reader.at;
    header.indefinite = first == 0x80;
    header.length = 0;
    if (header.indefinite)
        return header.constructed() ? Read::good : Read::malformed;
    if (first == 0xff)
        return Read::malformed;
    if (first < 0x80) {
        header.length = first;
    } else if (const Read outcome = read_long_length(reader, first & 0x7f, header.length);
               outcome != Read::good) {
        return outcome;
    }
    return header.length <= reader.limit - reader.at ? Read::good : Read::malformed;
}

// Whether the two octets that end an element of indefinite length come next.
Read at_end_mark(Reader &reader, bool &at_end) {
    if (const Read outcome = need(reader, 2); outcome != Read::good)
        return outcome;
    at_end = peek(reader)[0] == 0 && peek(reader)[1] == 0;
    return Read::good;
}

// How many of the next count octets the window holds, at least one.
Read next_part(Reader &reader, uint32_t count, uint32_t &part) {
    if (count > reader.limit - reader.at)
        return Read::malformed;
    if (reader.at >= reader.filled)
        if (const Read outcome = refill(reader, 1); outcome != Read::good)
            return outcome;
    part = reader.filled - reader.at;
    part = part < count ? part : count;
    return Read::good;
}

} // namespace

bool done(OssEnvironment &environment, const Reader &reader, Read outcome) {
    switch (outcome) {
    case Read::good:
        return true;
    case Read::malformed:
        return fail(environment, OSS_MALFORMED, "cut short, or a length that does not fit",
                    reader.at);
    case Read::too_deep:
        return fail(environment, OSS_TOO_DEEP, "nested too deep", reader.at);
    case Read::file_error:
        break;
    }
    return fail(environment, OSS_FILE_ERROR, "a file cannot be read or written", reader.at);
}

void seek(Reader &reader, uint32_t offset) {
    reader.at = offset;
    if (offset < reader.start)
        reader.start = reader.filled = offset;
}

Read read_header(Reader &reader, Header &header) {
    header.start = reader.at;
    if (const Read outcome = need(reader, 2); outcome != Read::good)
        return outcome;
    header.identifier = *peek(reader);
    ++reader.at;
    if (header.tag() == 0)
        return Read::malformed;
    if ((header.identifier & 0x1f) == 0x1f)
        if (const Read outcome = skip_tag_number(reader); outcome != Read::good)
            return outcome;
    return read_length(reader, header);
}

Read skip(Reader &reader, const Header &header) {
    if (!header.indefinite) {
        reader.at += header.length;
        return Read::good;
    }
    for (unsigned open = 1; open != 0;) {
        bool at_end = false;
        if (const Read outcome = at_end_mark(reader, at_end); outcome != Read::good)
            return outcome;
        if (at_end) {
            reader.at += 2;
            --open;
            continue;
        }
        Header inner;
        if (const Read outcome = read_header(reader, inner); outcome != Read::good)
            return outcome;
        if (inner.indefinite && ++open > deepest_indefinite)
            return Read::too_deep;
        reader.at += inner.length;
    }
    return Read::good;
}

Read copy(Reader &reader, uint8_t *target, uint32_t count) {
    for (uint32_t part = 0; count != 0; count -= part, target += part) {
        if (const Read outcome = next_part(reader, count, part); outcome != Read::good)
            return outcome;
        memcpy(target, peek(reader), part);
        reader.at += part;
    }
    return Read::good;
}

Read copy_to_file(Reader &reader, int descriptor, uint32_t count) {
    for (uint32_t part = 0; count != 0; count -= part) {
        if (const Read outcome = next_part(reader, count, part); outcome != Read::good)
            return outcome;
        if (!write_all(descriptor, peek(reader), part))
            return Read::file_error;
        reader.at += part;
    }
    return Read::good;
}

Read has_more(Reader &reader, bool &more) {
    if (!reader.indefinite) {
        more = reader.at != reader.limit;
        return Read::good;
    }
    bool at_end = false;
    const Read outcome = at_end_mark(reader, at_end);
    more = !at_end;
    return outcome;
}

Read leave(Reader &reader, const Scope &outer) {
    bool more = false;
    if (const Read outcome = has_more(reader, more); outcome != Read::good)
        return outcome;
    if (more)
        return Read::malformed;
    reader.at += reader.indefinite ? 2 : 0;
    reader.limit = outer.limit;
    reader.indefinite = outer.indefinite;
    return Read::good;
}

} // namespace dencoder
