// decode.cpp: BER decoding (X.690) into records, by walking the control table.
#include "file.h"

namespace dencoder {
namespace {

constexpr unsigned deepest_pieces = 16;       // constructed strings inside constructed strings
constexpr uint32_t longest_identifier = 4096; // octets; none in use comes near
constexpr uint8_t octet_piece = universal::octet_string; // pieces of all strings but bit strings

struct Decoder {
    OssEnvironment &environment;
    Reader reader;
};

bool malformed(Decoder &decoder, const char *reason) {
    return fail(decoder.environment, OSS_MALFORMED, reason, decoder.reader.at);
}

bool no_memory(Decoder &decoder) {
    return fail(decoder.environment, OSS_NO_MEMORY, "out of memory", decoder.reader.at);
}

bool done(Decoder &decoder, Read outcome) {
    return outcome == Read::good || done(decoder.environment, decoder.reader, outcome);
}

bool decode_value(Decoder &decoder, const Type &type, const Header &header, void *record);

// ---- Numbers and times --------------------------------------------------------------------------

// The contents of a short primitive value.
const uint8_t *take(Decoder &decoder, const Header &header, uint32_t longest) {
    if (header.constructed() || header.length == 0 || header.length > longest) {
        malformed(decoder, "contents of a wrong form or length");
        return nullptr;
    }
    if (!done(decoder, need(decoder.reader, header.length)))
        return nullptr;
    const uint8_t *contents = peek(decoder.reader);
    decoder.reader.at += header.length;
    return contents;
}

bool decode_boolean(Decoder &decoder, const Header &header, uint8_t *record) {
    const uint8_t *contents = take(decoder, header, 1);
    if (contents == nullptr)
        return false;
    *record = *contents != 0;
    return true;
}

bool decode_integer(Decoder &decoder, const Type &type, const Header &header, void *record) {
    const uint8_t *contents = take(decoder, header, 5);
    if (contents == nullptr)
        return false;
    if (!is_minimal(contents, header.length))
        return malformed(decoder, "an integer with redundant leading octets");
    int64_t number = contents[0] < 0x80 ? 0 : -1;
    for (uint32_t i = 0; i < header.length; ++i)
        number = number * 256 + contents[i];
    if (number < type.lowest || number > type.highest)
        return malformed(decoder, "an integer out of range");
    store(record, static_cast<uint32_t>(number));
    return true;
}

bool decode_big_integer(Decoder &decoder, const Type &type, const Header &header, void *record) {
    if (header.constructed() || header.length == 0)
        return malformed(decoder, "an integer without contents");
    if (type.kind == Kind::short_big_integer && header.length > UINT16_MAX)
        return malformed(decoder, "an integer out of range");
    OwnedBytes bytes = allocate_bytes(header.length);
    if (!bytes)
        return no_memory(decoder);
    if (!done(decoder, copy(decoder.reader, bytes.get(), header.length)))
        return false;
    if (!is_minimal(bytes.get(), header.length))
        return malformed(decoder, "an integer with redundant leading octets");
    if (type.kind == Kind::short_big_integer)
        *static_cast<ShortCountedBytes *>(record) = {static_cast<uint16_t>(header.length),
                                                     bytes.release()};
    else
        *static_cast<CountedBytes *>(record) = {header.length, bytes.release()};
    return true;
}

// Two decimal digits, or -1.
int two_digits(const uint8_t *text) {
    const unsigned tens = text[0] - unsigned{'0'}, ones = text[1] - unsigned{'0'};
    return tens <= 9 && ones <= 9 ? static_cast<int>(tens * 10 + ones) : -1;
}

// "Z", "+hhmm" or "-hhmm".
bool read_zone(const uint8_t *text, uint32_t length, Time &time) {
    time.utc = length == 1 && text[0] == 'Z';
    if (time.utc != 0)
        return true;
    if (length != 5 || (text[0] != '+' && text[0] != '-'))
        return false;
    const int hours = two_digits(text + 1), minutes = two_digits(text + 3);
    if (hours < 0 || hours > 23 || minutes < 0 || minutes > 59)
        return false;
    const int offset = hours * 60 + minutes;
    time.mindiff = static_cast<int16_t>(text[0] == '-' ? -offset : offset);
    return true;
}

// YYMMDDhhmm[ss](Z|+hhmm|-hhmm). Hour 24 passes: whoever reads the record takes it for the next
// day's 0.
bool read_time(const uint8_t *text, uint32_t length, Time &time) {
    constexpr struct {
        int lowest, highest;
    } ranges[] = {{0, 99}, {1, 12}, {1, 31}, {0, 24}, {0, 59}, {0, 59}};
    int16_t *const fields[] = {&time.year, &time.month,  &time.day,
                               &time.hour, &time.minute, &time.second};
    const bool has_seconds = length == 13 || length == 17;
    const uint32_t count = has_seconds ? 6 : 5;
    if (length < 11)
        return false;
    for (uint32_t i = 0; i < count; ++i) {
        const int number = two_digits(text + 2 * i);
        if (number < ranges[i].lowest || number > ranges[i].highest)
            return false;
        *fields[i] = static_cast<int16_t>(number);
    }
    return read_zone(text + 2 * count, length - 2 * count, time);
}

bool decode_time(Decoder &decoder, const Header &header, Time &time) {
    const uint8_t *contents = take(decoder, header, 17);
    if (contents == nullptr)
        return false;
    return read_time(contents, header.length, time) || malformed(decoder, "no UTC time");
}

// ---- Object identifiers -------------------------------------------------------------------------

// Number of sub-identifiers; 0 if the contents are none of an identifier.
uint32_t count_arcs(const uint8_t *contents, uint32_t length) {
    uint32_t count = 0;
    bool at_start = true;
    for (uint32_t i = 0; i < length; ++i) {
        if (at_start && contents[i] == 0x80)
            return 0;
        at_start = contents[i] < 0x80;
        count += at_start;
    }
    return at_start ? count : 0;
}

// Splits the first sub-identifier in two (X.690 8.19.4); false beyond 32 bits per component.
bool read_arcs(const uint8_t *contents, uint32_t length, uint32_t *arcs) {
    uint64_t number = 0;
    uint32_t count = 0;
    for (uint32_t i = 0; i < length; ++i) {
        if (number > UINT32_MAX)
            return false;
        number = number << 7 | (contents[i] & 0x7f);
        if (contents[i] >= 0x80)
            continue;
        if (count == 0) {
            arcs[count++] = number < 80 ? static_cast<uint32_t>(number / 40) : 2;
            number -= arcs[0] * 40;
        }
        if (number > UINT32_MAX)
            return false;
        arcs[count++] = static_cast<uint32_t>(number);
        number = 0;
    }
    return true;
}

bool decode_identifier(Decoder &decoder, const Header &header, Identifier &identifier) {
    const uint8_t *contents = take(decoder, header, longest_identifier);
    if (contents == nullptr)
        return false;
    const uint32_t count = count_arcs(contents, header.length);
    if (count == 0)
        return malformed(decoder, "an object identifier with a broken component");
    identifier.value = static_cast<uint32_t *>(std::malloc((count + 1) * sizeof(uint32_t)));
    if (identifier.value == nullptr)
        return no_memory(decoder);
    identifier.count = static_cast<uint16_t>(count + 1);
    return read_arcs(contents, header.length, identifier.value) ||
           malformed(decoder, "an object identifier component beyond 32 bits");
}

// ---- Strings ------------------------------------------------------------------------------------

// Where the pieces of a string are collected: nowhere while they are counted, in memory or a file.
struct Pieces {
    uint8_t tag; // of the pieces of a constructed string
    uint8_t *target = nullptr;
    int descriptor = -1;
    uint64_t size = 0;
    uint8_t unused_bits = 0; // at the end of the last piece of a bit string
};

bool collect_piece(Decoder &decoder, const Header &header, Pieces &pieces) {
    uint32_t length = header.length;
    if (pieces.tag == universal::bit_string) {
        if (length == 0 || pieces.unused_bits != 0)
            return malformed(decoder, "a bit string that goes on behind unused bits");
        if (!done(decoder, need(decoder.reader, 1)))
            return false;
        pieces.unused_bits = *peek(decoder.reader);
        ++decoder.reader.at;
        --length;
        if (pieces.unused_bits > (length == 0 ? 0 : 7))
            return malformed(decoder, "a bit string with too many unused bits");
    }
    pieces.size += length;
    if (pieces.descriptor >= 0)
        return done(decoder, copy_to_file(decoder.reader, pieces.descriptor, length));
    if (pieces.target != nullptr)
        return done(decoder, copy(decoder.reader, pieces.target + pieces.size - length, length));
    seek(decoder.reader, decoder.reader.at + length);
    return true;
}

bool collect(Decoder &decoder, const Header &header, Pieces &pieces, unsigned depth) {
    if (!header.constructed())
        return collect_piece(decoder, header, pieces);
    if (depth == deepest_pieces)
        return done(decoder, Read::too_deep);
    const Scope outer = enter(decoder.reader, header);
    for (;;) {
        bool more = false;
        if (!done(decoder, has_more(decoder.reader, more)))
            return false;
        if (!more)
            return done(decoder, leave(decoder.reader, outer));
        Header piece;
        if (!done(decoder, read_header(decoder.reader, piece)))
            return false;
        if (piece.tag() != pieces.tag)
            return malformed(decoder, "a string with a piece of another type");
        if (!collect(decoder, piece, pieces, depth + 1))
            return false;
    }
}

// All octets of a string in a new block, with a zero octet behind them. Pieces are counted before
// they are copied, so that the block is of its final size and no copy of a secret is left behind.
OwnedBytes collect_all(Decoder &decoder, const Header &header, Pieces &pieces) {
    pieces.size = header.length;
    const uint32_t start = decoder.reader.at;
    if (header.constructed()) {
        pieces.size = 0;
        if (!collect(decoder, header, pieces, 0))
            return nullptr;
        seek(decoder.reader, start);
    }
    OwnedBytes bytes = allocate_bytes(static_cast<std::size_t>(pieces.size) + 1);
    if (!bytes) {
        no_memory(decoder);
        return nullptr;
    }
    pieces = {.tag = pieces.tag, .target = bytes.get()};
    if (!collect(decoder, header, pieces, 0))
        return nullptr;
    bytes.get()[pieces.size] = 0;
    return bytes;
}

bool decode_octets(Decoder &decoder, const Header &header, CountedBytes &record) {
    Pieces pieces = {.tag = octet_piece};
    OwnedBytes bytes = collect_all(decoder, header, pieces);
    if (!bytes)
        return false;
    record = {static_cast<uint32_t>(pieces.size), bytes.release()};
    return true;
}

bool decode_bits(Decoder &decoder, const Header &header, CountedBytes &record) {
    Pieces pieces = {.tag = universal::bit_string};
    OwnedBytes bytes = collect_all(decoder, header, pieces);
    if (!bytes)
        return false;
    if (pieces.size > UINT32_MAX / 8)
        return malformed(decoder, "a bit string of more than 2^32 bits");
    record = {static_cast<uint32_t>(pieces.size * 8 - pieces.unused_bits), bytes.release()};
    return true;
}

bool decode_characters(Decoder &decoder, const Type &type, const Header &header, Slot &slot) {
    Pieces pieces = {.tag = octet_piece};
    OwnedBytes bytes = collect_all(decoder, header, pieces);
    if (!bytes)
        return false;
    const uint32_t length = static_cast<uint32_t>(pieces.size);
    if (memchr(bytes.get(), 0, length) != nullptr)
        return malformed(decoder, "a zero character in a string");
    const CheckFunction check = decoder.environment.check;
    if (check != nullptr && !check(type.alphabet, bytes.get(), length, Direction::decoding))
        return malformed(decoder, "a character that the string's type does not have");
    slot = bytes.release();
    return true;
}

// ---- Open types ---------------------------------------------------------------------------------

bool decode_any(Decoder &decoder, const Header &header, CountedBytes &record) {
    if (!done(decoder, skip(decoder.reader, header)))
        return false;
    const uint32_t length = decoder.reader.at - header.start;
    OwnedBytes bytes = allocate_bytes(length);
    if (!bytes)
        return no_memory(decoder);
    seek(decoder.reader, header.start);
    if (!done(decoder, copy(decoder.reader, bytes.get(), length)))
        return false;
    record = {length, bytes.release()};
    return true;
}

// ---- Octets kept in files -----------------------------------------------------------------------

// Streams the octets, or the open type with tag and length, into a new temporary file. The handle
// goes into the record at once, so that whoever frees the record removes the file.
bool decode_to_file(Decoder &decoder, const Type &type, const Header &header,
                    CountedBytes &record) {
    FileDescriptor file;
    MarkedFile *marked = mark_temporary(decoder.environment, file);
    if (marked == nullptr)
        return false;
    record.value = reinterpret_cast<uint8_t *>(marked);
    Pieces pieces = {.tag = octet_piece, .descriptor = file.number()};
    if (type.kind == Kind::any) {
        if (!done(decoder, skip(decoder.reader, header)))
            return false;
        pieces.size = decoder.reader.at - header.start;
        seek(decoder.reader, header.start);
        const uint32_t length = static_cast<uint32_t>(pieces.size);
        if (!done(decoder, copy_to_file(decoder.reader, file.number(), length)))
            return false;
    } else if (!collect(decoder, header, pieces, 0)) {
        return false;
    }
    record.length = static_cast<uint32_t>(pieces.size);
    return file.close() || done(decoder, Read::file_error);
}

// ---- Structures ---------------------------------------------------------------------------------

bool matches(const Component &component, const Header &header);

bool matches(const Type &type, const Header &header) {
    if (type.kind == Kind::any)
        return true;
    if (type.kind != Kind::choice)
        return header.tag() == type.tag;
    for (const Component &alternative : type.components)
        if (matches(alternative, header))
            return true;
    return false;
}

bool matches(const Component &component, const Header &header) {
    return component.tag.mode == Tag::none ? matches(*component.type, header)
                                           : header.tag() == component.tag.octet;
}

// A value in a block of its own.
bool decode_owned(Decoder &decoder, const Type &type, const Header &header, Slot &slot) {
    if (type.kind == Kind::character_string)
        return decode_characters(decoder, type, header, slot);
    slot = allocate_record(type.size);
    return slot != nullptr ? decode_value(decoder, type, header, slot) : no_memory(decoder);
}

bool decode_member(Decoder &decoder, const Component &component, const Header &header,
                   void *record) {
    uint8_t *place = member(record, component);
    return component.owned
               ? decode_owned(decoder, *component.type, header, *reinterpret_cast<Slot *>(place))
               : decode_value(decoder, *component.type, header, place);
}

// A value inside an explicit tag, whose header has been read.
bool decode_tagged(Decoder &decoder, const Component &component, const Header &header,
                   void *record) {
    if (!header.constructed())
        return malformed(decoder, "an explicit tag without a value inside");
    const Scope outer = enter(decoder.reader, header);
    Header inner;
    if (!done(decoder, read_header(decoder.reader, inner)))
        return false;
    if (!matches(*component.type, inner))
        return malformed(decoder, "a value of another type");
    return decode_member(decoder, component, inner, record) &&
           done(decoder, leave(decoder.reader, outer));
}

bool decode_component(Decoder &decoder, const Component &component, const Header &header,
                      void *record) {
    *static_cast<uint8_t *>(record) |= component.mask_bit;
    const bool good = component.tag.mode == Tag::explicit_mode
                          ? decode_tagged(decoder, component, header, record)
                          : decode_member(decoder, component, header, record);
    return good || fail_inside(decoder.environment, component.name);
}

// One header is read ahead, and waits for the component that it belongs to.
bool decode_components(Decoder &decoder, const Type &type, void *record) {
    Header header;
    bool waiting = false;
    for (const Component &component : type.components) {
        bool more = waiting;
        if (!waiting && !done(decoder, has_more(decoder.reader, more)))
            return false;
        if (more && !waiting && !done(decoder, read_header(decoder.reader, header)))
            return false;
        waiting = more && !matches(component, header);
        if (more && !waiting) {
            if (!decode_component(decoder, component, header, record))
                return false;
        } else if (component.presence == Presence::required) {
            malformed(decoder, more ? "another component comes here" : "missing");
            return fail_inside(decoder.environment, component.name);
        }
    }
    return !waiting || malformed(decoder, "a component that does not belong here");
}

bool decode_elements(Decoder &decoder, const Component &element, Slot *link) {
    for (;;) {
        bool more = false;
        Header header;
        if (!done(decoder, has_more(decoder.reader, more)))
            return false;
        if (!more)
            return true;
        if (!done(decoder, read_header(decoder.reader, header)))
            return false;
        if (!matches(element, header))
            return malformed(decoder, "an element of another type");
        Node *node = static_cast<Node *>(allocate_record(sizeof(Node)));
        if (node == nullptr)
            return no_memory(decoder);
        *link = node;
        link = reinterpret_cast<Slot *>(&node->next);
        if (!decode_component(decoder, element, header, node))
            return false;
    }
}

bool decode_constructed(Decoder &decoder, const Type &type, const Header &header, void *record) {
    if (!header.constructed())
        return malformed(decoder, "a structure in primitive form");
    const Scope outer = enter(decoder.reader, header);
    const bool good = type.kind == Kind::sequence ? decode_components(decoder, type, record)
                                                  : decode_elements(decoder, type.components[0],
                                                                    static_cast<Slot *>(record));
    return good && done(decoder, leave(decoder.reader, outer));
}

bool decode_choice(Decoder &decoder, const Type &type, const Header &header, void *record) {
    for (const Component &alternative : type.components) {
        if (!matches(alternative, header))
            continue;
        const std::size_t number = static_cast<std::size_t>(&alternative - &type.components[0]) + 1;
        store(record, static_cast<uint16_t>(number));
        return decode_component(decoder, alternative, header, record);
    }
    return malformed(decoder, "no alternative of the choice");
}

// The header has been read, and its tag is right.
bool decode_value(Decoder &decoder, const Type &type, const Header &header, void *record) {
    if (type.in_file)
        return decode_to_file(decoder, type, header, *static_cast<CountedBytes *>(record));
    switch (type.kind) {
    case Kind::boolean:
        return decode_boolean(decoder, header, static_cast<uint8_t *>(record));
    case Kind::integer:
        return decode_integer(decoder, type, header, record);
    case Kind::big_integer:
    case Kind::short_big_integer:
        return decode_big_integer(decoder, type, header, record);
    case Kind::bit_string:
        return decode_bits(decoder, header, *static_cast<CountedBytes *>(record));
    case Kind::octet_string:
        return decode_octets(decoder, header, *static_cast<CountedBytes *>(record));
    case Kind::object_identifier:
        return decode_identifier(decoder, header, *static_cast<Identifier *>(record));
    case Kind::character_string:
        return decode_characters(decoder, type, header, *static_cast<Slot *>(record));
    case Kind::utc_time:
        return decode_time(decoder, header, *static_cast<Time *>(record));
    case Kind::any:
        return decode_any(decoder, header, *static_cast<CountedBytes *>(record));
    case Kind::choice:
        return decode_choice(decoder, type, header, record);
    case Kind::sequence:
    case Kind::sequence_of:
    case Kind::set_of:
        return decode_constructed(decoder, type, header, record);
    }
    return malformed(decoder, "an unknown kind of type");
}

bool decode_all(Decoder &decoder, const Type &type, Slot &value) {
    Header header;
    if (!done(decoder, read_header(decoder.reader, header)))
        return false;
    if (!matches(type, header))
        return malformed(decoder, "a value of another type");
    if (!decode_owned(decoder, type, header, value))
        return false;
    return decoder.reader.at == decoder.reader.limit ||
           fail(decoder.environment, OSS_LEFT_OVER, "octets behind the value", decoder.reader.at);
}

} // namespace

OssStatus decode(OssEnvironment &environment, const Type &type, const OssBuf &input,
                 void **value_out) {
    Decoder decoder = {environment, {}};
    FileInput file;
    const MarkedFile *marked = find_marked(environment, input.value);
    if (marked == nullptr)
        read_memory(decoder.reader, input.value, input.length);
    else if (!read_file(environment, *marked, file, decoder.reader))
        return environment.failure.status;
    Slot value = nullptr;
    if (!decode_all(decoder, type, value)) {
        free_value(environment, type, value);
        return environment.failure.status;
    }
    *value_out = value;
    return OSS_DONE;
}

} // namespace dencoder
