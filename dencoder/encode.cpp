// encode.cpp: BER and DER encoding (X.690) of records, by walking the control table twice: first
// everything is checked and measured, then written. The lengths of constructed values are kept in
// the order in which they are come upon.
#include "file.h"

#include <algorithm>

namespace dencoder {
namespace {

// Where octets go: a block of the right size, or a window on a file.
struct Writer {
    uint8_t *begin;
    uint8_t *at;
    uint8_t *end;
    int descriptor; // -1: memory
    bool failed;    // from the first failure on, everything is dropped
};

// A value inside a SET OF.
struct Element {
    uint32_t offset;
    uint32_t length;
};

struct Encoder {
    OssEnvironment &environment;
    bool der;
    bool indefinite;
    const MarkedFile *target; // the file to be written, or null
    uint32_t *lengths;
    uint32_t length_count = 0, length_capacity = lengths_at_hand;
    uint32_t next_length = 0;
    OwnedBytes more_lengths = {};
    bool reads_files = false;
    uint32_t largest_set = 0, longest_set = 0; // to be sorted: octets, elements
    OwnedBytes sorting = {};
    Writer writer = {};
};

bool bad_value(Encoder &encoder, const char *reason) {
    return fail(encoder.environment, OSS_BAD_VALUE, reason);
}

// ---- Measuring ----------------------------------------------------------------------------------

constexpr unsigned length_size(uint64_t length) {
    return length < 0x80        ? 1
           : length <= 0xff     ? 2
           : length <= 0xffff   ? 3
           : length <= 0xffffff ? 4
                                : 5;
}

constexpr uint64_t primitive_size(uint64_t length) {
    return 1 + length_size(length) + length;
}

uint64_t constructed_size(const Encoder &encoder, uint64_t length) {
    return encoder.indefinite ? length + 4 : primitive_size(length);
}

bool grow_lengths(Encoder &encoder) {
    const std::size_t size = sizeof(uint32_t) * encoder.length_capacity;
    OwnedBytes larger =
        encoder.length_capacity <= UINT32_MAX / 8 ? allocate_bytes(2 * size) : nullptr;
    if (!larger)
        return fail(encoder.environment, OSS_NO_MEMORY, "out of memory");
    memcpy(larger.get(), encoder.lengths, size);
    encoder.more_lengths = std::move(larger);
    encoder.lengths = reinterpret_cast<uint32_t *>(encoder.more_lengths.get());
    encoder.length_capacity *= 2;
    return true;
}

// The place for the length of a constructed value that begins here.
bool begin_length(Encoder &encoder, uint32_t &place) {
    if (encoder.length_count == encoder.length_capacity && !grow_lengths(encoder))
        return false;
    place = encoder.length_count++;
    return true;
}

bool end_length(Encoder &encoder, uint32_t place, uint64_t length, uint64_t &size) {
    if (length > UINT32_MAX)
        return fail(encoder.environment, OSS_TOO_LARGE, "more than 4 GiB");
    encoder.lengths[place] = static_cast<uint32_t>(length);
    size += constructed_size(encoder, length);
    return true;
}

constexpr uint32_t integer_length(int64_t number) {
    uint32_t length = 1;
    for (; number < -0x80 || number > 0x7f; number >>= 8)
        ++length;
    return length;
}

// The octets of a big integer without those that X.690 8.3.2 forbids.
CountedBytes minimal_octets(const Type &type, const void *record) {
    CountedBytes octets;
    if (type.kind == Kind::short_big_integer) {
        const ShortCountedBytes &bytes = *static_cast<const ShortCountedBytes *>(record);
        octets = {bytes.length, bytes.value};
    } else {
        octets = *static_cast<const CountedBytes *>(record);
    }
    while (octets.value != nullptr && !is_minimal(octets.value, octets.length)) {
        ++octets.value;
        --octets.length;
    }
    return octets;
}

constexpr uint32_t arc_length(uint64_t arc) {
    uint32_t length = 1;
    while ((arc >>= 7) != 0)
        ++length;
    return length;
}

uint64_t first_arc(const Identifier &identifier) {
    return uint64_t{40} * identifier.value[0] + identifier.value[1];
}

// Length of the contents, or 0 for what is no identifier.
uint32_t identifier_length(const Identifier &identifier) {
    if (identifier.count < 2 || identifier.value == nullptr || identifier.value[0] > 2 ||
        (identifier.value[0] < 2 && identifier.value[1] >= 40))
        return 0;
    uint32_t length = arc_length(first_arc(identifier));
    for (uint32_t i = 2; i < identifier.count; ++i)
        length += arc_length(identifier.value[i]);
    return length;
}

constexpr uint32_t longest_time = 17;

bool is_within(int number, int lowest, int highest) {
    return number >= lowest && number <= highest;
}

uint8_t *put_two_digits(uint8_t *at, int number) {
    *at++ = static_cast<uint8_t>('0' + number / 10);
    *at++ = static_cast<uint8_t>('0' + number % 10);
    return at;
}

// YYMMDDhhmmssZ, or with +hhmm or -hhmm; the length, or 0 for what is no time. Years reach from
// 1969 to 2068, as two digits mean them; 2001 may be held as 1 or as 101.
uint32_t time_text(const Time &time, uint8_t *text) {
    constexpr int minutes_per_day = 24 * 60;
    if (!is_within(time.year, 0, 168) || !is_within(time.month, 1, 12) ||
        !is_within(time.day, 1, 31) || !is_within(time.hour, 0, 24) ||
        !is_within(time.minute, 0, 59) || !is_within(time.second, 0, 59) ||
        (time.utc == 0 && !is_within(time.mindiff, 1 - minutes_per_day, minutes_per_day - 1)))
        return 0;
    uint8_t *at = text;
    for (const int number : {time.year % 100, int{time.month}, int{time.day}, int{time.hour},
                             int{time.minute}, int{time.second}})
        at = put_two_digits(at, number);
    if (time.utc != 0) {
        *at++ = 'Z';
    } else {
        const int minutes = time.mindiff < 0 ? -time.mindiff : time.mindiff;
        *at++ = time.mindiff < 0 ? '-' : '+';
        at = put_two_digits(put_two_digits(at, minutes / 60), minutes % 60);
    }
    return static_cast<uint32_t>(at - text);
}

constexpr uint32_t bytes_of_bits(uint32_t bits) {
    return bits / 8 + (bits % 8 != 0);
}

bool measure_value(Encoder &encoder, const Type &type, const void *record, uint64_t &size);

bool measure_component(Encoder &encoder, const Component &component, const void *record,
                       uint64_t &size) {
    const void *held = held_record(record, component);
    if (held == nullptr) {
        bad_value(encoder, "a required component is missing");
        return fail_inside(encoder.environment, component.name);
    }
    bool good = false;
    if (component.tag.mode == Tag::explicit_mode) {
        uint32_t place = 0;
        uint64_t length = 0;
        good = begin_length(encoder, place) &&
               measure_value(encoder, *component.type, held, length) &&
               end_length(encoder, place, length, size);
    } else {
        good = measure_value(encoder, *component.type, held, size);
    }
    return good || fail_inside(encoder.environment, component.name);
}

bool measure_components(Encoder &encoder, const Type &type, const void *record, uint64_t &size) {
    for (const Component &component : type.components)
        if (is_present(record, component) && !measure_component(encoder, component, record, size))
            return false;
    return true;
}

bool measure_elements(Encoder &encoder, const Type &type, const void *record, uint64_t &size) {
    uint32_t count = 0;
    for (const Node *node = load<const Node *>(record); node != nullptr; node = node->next) {
        if (!measure_component(encoder, type.components[0], node, size))
            return false;
        ++count;
    }
    if (encoder.der && type.kind == Kind::set_of && count > 1 && size <= UINT32_MAX) {
        encoder.largest_set = std::max(encoder.largest_set, static_cast<uint32_t>(size));
        encoder.longest_set = std::max(encoder.longest_set, count);
    }
    return true;
}

bool measure_constructed(Encoder &encoder, const Type &type, const void *record, uint64_t &size) {
    uint32_t place = 0;
    uint64_t length = 0;
    if (!begin_length(encoder, place))
        return false;
    const bool good = type.kind == Kind::sequence
                          ? measure_components(encoder, type, record, length)
                          : measure_elements(encoder, type, record, length);
    return good && end_length(encoder, place, length, size);
}

// An open type must hold exactly one value, or what is written could not be read.
bool measure_any(Encoder &encoder, Reader &reader, uint64_t &size) {
    Header header;
    const bool whole = read_header(reader, header) == Read::good &&
                       skip(reader, header) == Read::good && reader.at == reader.limit;
    size += reader.limit;
    return whole || bad_value(encoder, "an open type that holds no encoded value");
}

bool open_content(Encoder &encoder, const CountedBytes &record, FileInput &file, Reader &reader) {
    const MarkedFile *marked = find_marked(encoder.environment, record.value);
    if (marked == nullptr)
        return bad_value(encoder, "contents that are no marked file");
    if (encoder.target != nullptr && is_same_file(*marked, *encoder.target))
        return bad_value(encoder, "contents in the file that is to be written");
    return read_file(encoder.environment, *marked, file, reader);
}

bool measure_file(Encoder &encoder, const Type &type, const CountedBytes &record, uint64_t &size) {
    FileInput file;
    Reader reader;
    if (!open_content(encoder, record, file, reader))
        return false;
    encoder.reads_files = true;
    if (type.kind == Kind::any)
        return measure_any(encoder, reader, size);
    size += primitive_size(reader.limit);
    return true;
}

bool measure_bytes(Encoder &encoder, const Type &type, const CountedBytes &record, uint64_t &size) {
    if (type.in_file)
        return measure_file(encoder, type, record, size);
    if (record.value == nullptr && record.length != 0)
        return bad_value(encoder, "a length without octets");
    if (type.kind == Kind::any) {
        Reader reader;
        read_memory(reader, record.value, record.length);
        return measure_any(encoder, reader, size);
    }
    size += primitive_size(
        type.kind == Kind::bit_string ? 1 + uint64_t{bytes_of_bits(record.length)} : record.length);
    return true;
}

bool measure_characters(Encoder &encoder, const Type &type, const char *text, uint64_t &size) {
    const std::size_t length = strlen(text);
    if (length > UINT32_MAX)
        return fail(encoder.environment, OSS_TOO_LARGE, "more than 4 GiB");
    const CheckFunction check = encoder.environment.check;
    if (check != nullptr && !check(type.alphabet, reinterpret_cast<const uint8_t *>(text),
                                   static_cast<uint32_t>(length), Direction::encoding))
        return bad_value(encoder, "a character that the string's type does not have");
    size += primitive_size(length);
    return true;
}

// Adds the size of a whole value, identifier and length included.
bool measure_value(Encoder &encoder, const Type &type, const void *record, uint64_t &size) {
    uint8_t text[longest_time];
    uint32_t length = 0;
    switch (type.kind) {
    case Kind::boolean:
        length = 1;
        break;
    case Kind::integer:
        length = integer_length(number_in(type, record));
        break;
    case Kind::big_integer:
    case Kind::short_big_integer: {
        const CountedBytes octets = minimal_octets(type, record);
        length = octets.value != nullptr ? octets.length : 0;
        break;
    }
    case Kind::object_identifier:
        length = identifier_length(*static_cast<const Identifier *>(record));
        break;
    case Kind::utc_time:
        length = time_text(*static_cast<const Time *>(record), text);
        break;
    case Kind::bit_string:
    case Kind::octet_string:
    case Kind::any:
        return measure_bytes(encoder, type, *static_cast<const CountedBytes *>(record), size);
    case Kind::character_string:
        return measure_characters(encoder, type, static_cast<const char *>(record), size);
    case Kind::choice: {
        const Component *alternative = chosen(type, record);
        return alternative != nullptr ? measure_component(encoder, *alternative, record, size)
                                      : bad_value(encoder, "a choice of no alternative");
    }
    case Kind::sequence:
    case Kind::sequence_of:
    case Kind::set_of:
        return measure_constructed(encoder, type, record, size);
    }
    size += primitive_size(length);
    return length != 0 || bad_value(encoder, "no number, time or identifier");
}

// ---- Writing ------------------------------------------------------------------------------------

void flush(Writer &writer) {
    if (writer.descriptor < 0 || !write_all(writer.descriptor, writer.begin,
                                            static_cast<std::size_t>(writer.at - writer.begin)))
        writer.failed = true;
    writer.at = writer.begin;
}

// Octets that fit without a flush, at least one unless the writer has failed.
std::size_t room(Writer &writer) {
    if (writer.at == writer.end)
        flush(writer);
    return writer.failed ? 0 : static_cast<std::size_t>(writer.end - writer.at);
}

void put(Writer &writer, const uint8_t *bytes, std::size_t size) {
    while (size != 0) {
        const std::size_t part = std::min(size, room(writer));
        if (part == 0)
            return;
        memcpy(writer.at, bytes, part);
        writer.at += part;
        bytes += part;
        size -= part;
    }
}

void put(Writer &writer, uint8_t octet) {
    put(writer, &octet, 1);
}

void put_header(Writer &writer, uint8_t identifier, uint32_t length) {
    uint8_t header[6] = {identifier};
    const unsigned size = length_size(length);
    header[1] = static_cast<uint8_t>(size == 1 ? length : 0x80 | (size - 1));
    for (unsigned i = size; i > 1; --i, length >>= 8)
        header[i] = static_cast<uint8_t>(length);
    put(writer, header, 1 + size);
}

// The length was measured in the first walk.
void begin_constructed(Encoder &encoder, uint8_t tag) {
    const uint32_t length = encoder.lengths[encoder.next_length++];
    const uint8_t identifier = tag | 0x20;
    if (!encoder.indefinite)
        return put_header(encoder.writer, identifier, length);
    put(encoder.writer, identifier);
    put(encoder.writer, 0x80);
}

void end_constructed(Encoder &encoder) {
    constexpr uint8_t end_of_contents[2] = {};
    if (encoder.indefinite)
        put(encoder.writer, end_of_contents, sizeof end_of_contents);
}

void write_integer(Writer &writer, uint8_t tag, int64_t number) {
    const uint32_t length = integer_length(number);
    put_header(writer, tag, length);
    for (uint32_t i = length; i-- > 0;)
        put(writer, static_cast<uint8_t>(number >> (8 * i)));
}

void write_arc(Writer &writer, uint64_t arc) {
    for (uint32_t i = arc_length(arc); i-- > 0;)
        put(writer, static_cast<uint8_t>((i != 0 ? 0x80 : 0) | (arc >> (7 * i) & 0x7f)));
}

void write_identifier(Writer &writer, uint8_t tag, const Identifier &identifier) {
    put_header(writer, tag, identifier_length(identifier));
    write_arc(writer, first_arc(identifier));
    for (uint32_t i = 2; i < identifier.count; ++i)
        write_arc(writer, identifier.value[i]);
}

void write_bits(Writer &writer, uint8_t tag, const CountedBytes &bits) {
    const uint32_t size = bytes_of_bits(bits.length);
    const unsigned unused = size * 8 - bits.length;
    put_header(writer, tag, size + 1);
    put(writer, static_cast<uint8_t>(unused));
    if (size == 0)
        return;
    put(writer, bits.value, size - 1);
    put(writer, static_cast<uint8_t>(bits.value[size - 1] >> unused << unused));
}

// The file may have changed since it was measured; it must still fill the room that it was given.
void write_file(Encoder &encoder, const Type &type, uint8_t tag, const CountedBytes &record) {
    FileInput file;
    Reader reader;
    Writer &writer = encoder.writer;
    if (!open_content(encoder, record, file, reader)) {
        writer.failed = true;
        return;
    }
    if (type.kind == Kind::octet_string)
        put_header(writer, tag, reader.limit);
    while (reader.at != reader.limit) {
        const uint32_t part =
            static_cast<uint32_t>(std::min<std::size_t>(reader.limit - reader.at, room(writer)));
        if (part == 0 || copy(reader, writer.at, part) != Read::good) {
            writer.failed = true;
            return;
        }
        writer.at += part;
    }
}

void write_bytes(Encoder &encoder, const Type &type, uint8_t tag, const CountedBytes &bytes) {
    if (type.in_file)
        return write_file(encoder, type, tag, bytes);
    if (type.kind != Kind::any)
        put_header(encoder.writer, tag, bytes.length);
    put(encoder.writer, bytes.value, bytes.length);
}

// ---- SET OF under DER (X.690 11.6) --------------------------------------------------------------

// One block: where the elements are, a copy of them, and room to write them before they go to a
// file.
bool prepare_sorting(Encoder &encoder) {
    const uint64_t size = uint64_t{encoder.longest_set} * sizeof(Element) +
                          uint64_t{encoder.largest_set} * (encoder.target != nullptr ? 2 : 1);
    if (encoder.longest_set == 0)
        return true;
    if (size <= SIZE_MAX / 2)
        encoder.sorting = allocate_bytes(static_cast<std::size_t>(size));
    return encoder.sorting || fail(encoder.environment, OSS_NO_MEMORY, "out of memory");
}

uint32_t find_elements(const uint8_t *set, uint32_t size, Element *elements) {
    Reader reader;
    read_memory(reader, set, size);
    uint32_t count = 0;
    Header header;
    while (reader.at != size && read_header(reader, header) == Read::good &&
           skip(reader, header) == Read::good)
        elements[count++] = {header.start, reader.at - header.start};
    return count;
}

void sort_set(Encoder &encoder, uint8_t *set, uint32_t size) {
    Element *elements = reinterpret_cast<Element *>(encoder.sorting.get());
    uint8_t *sorted = encoder.sorting.get() + sizeof(Element) * encoder.longest_set;
    const uint32_t count = find_elements(set, size, elements);
    // No encoding is the beginning of another, so that comparing the shorter length decides.
    const auto before = [set](const Element &a, const Element &b) {
        return memcmp(set + a.offset, set + b.offset, std::min(a.length, b.length)) < 0;
    };
    if (std::is_sorted(elements, elements + count, before))
        return;
    std::sort(elements, elements + count, before);
    uint8_t *at = sorted;
    for (uint32_t i = 0; i < count; ++i) {
        memcpy(at, set + elements[i].offset, elements[i].length);
        at += elements[i].length;
    }
    memcpy(set, sorted, size);
}

void write_component(Encoder &encoder, const Component &component, const void *record);

void write_nodes(Encoder &encoder, const Component &element, const Node *node) {
    for (; node != nullptr; node = node->next)
        write_component(encoder, element, node);
}

void write_sorted(Encoder &encoder, const Component &element, const Node *first) {
    const Writer outer = encoder.writer;
    if (outer.descriptor >= 0) {
        uint8_t *room =
            encoder.sorting.get() + sizeof(Element) * encoder.longest_set + encoder.largest_set;
        encoder.writer = {room, room, room + encoder.largest_set, -1, outer.failed};
    }
    uint8_t *start = encoder.writer.at;
    write_nodes(encoder, element, first);
    const uint32_t size = static_cast<uint32_t>(encoder.writer.at - start);
    if (!encoder.writer.failed)
        sort_set(encoder, start, size);
    if (outer.descriptor >= 0) {
        const bool failed = encoder.writer.failed;
        encoder.writer = outer;
        encoder.writer.failed = failed;
        put(encoder.writer, start, size);
    }
}

void write_list(Encoder &encoder, const Type &type, const void *record) {
    const Node *first = load<const Node *>(record);
    if (encoder.der && type.kind == Kind::set_of && first != nullptr && first->next != nullptr)
        write_sorted(encoder, type.components[0], first);
    else
        write_nodes(encoder, type.components[0], first);
}

// ---- Writing values -----------------------------------------------------------------------------

void write_value(Encoder &encoder, const Type &type, uint8_t tag, const void *record) {
    Writer &writer = encoder.writer;
    switch (type.kind) {
    case Kind::boolean:
        put_header(writer, tag, 1);
        put(writer, number_in(type, record) != 0 ? 0xff : 0);
        break;
    case Kind::integer:
        write_integer(writer, tag, number_in(type, record));
        break;
    case Kind::big_integer:
    case Kind::short_big_integer: {
        const CountedBytes octets = minimal_octets(type, record);
        put_header(writer, tag, octets.length);
        put(writer, octets.value, octets.length);
        break;
    }
    case Kind::object_identifier:
        write_identifier(writer, tag, *static_cast<const Identifier *>(record));
        break;
    case Kind::utc_time: {
        uint8_t text[longest_time];
        const uint32_t length = time_text(*static_cast<const Time *>(record), text);
        put_header(writer, tag, length);
        put(writer, text, length);
        break;
    }
    case Kind::bit_string:
        write_bits(writer, tag, *static_cast<const CountedBytes *>(record));
        break;
    case Kind::octet_string:
    case Kind::any:
        write_bytes(encoder, type, tag, *static_cast<const CountedBytes *>(record));
        break;
    case Kind::character_string: {
        const std::size_t length = strlen(static_cast<const char *>(record));
        put_header(writer, tag, static_cast<uint32_t>(length));
        put(writer, static_cast<const uint8_t *>(record), length);
        break;
    }
    case Kind::choice:
        write_component(encoder, *chosen(type, record), record);
        break;
    case Kind::sequence:
        begin_constructed(encoder, tag);
        for (const Component &component : type.components)
            if (is_present(record, component))
                write_component(encoder, component, record);
        end_constructed(encoder);
        break;
    case Kind::sequence_of:
    case Kind::set_of:
        begin_constructed(encoder, tag);
        write_list(encoder, type, record);
        end_constructed(encoder);
        break;
    }
}

void write_component(Encoder &encoder, const Component &component, const void *record) {
    const Type &type = *component.type;
    const void *held = held_record(record, component);
    if (component.tag.mode != Tag::explicit_mode)
        return write_value(encoder, type,
                           component.tag.mode == Tag::none ? type.tag : component.tag.octet, held);
    begin_constructed(encoder, component.tag.octet);
    write_value(encoder, type, type.tag, held);
    end_constructed(encoder);
}

// ---- Where the encoding goes --------------------------------------------------------------------

OssStatus write_failure(Encoder &encoder) {
    if (encoder.environment.failure.status == OSS_DONE)
        fail(encoder.environment, OSS_FILE_ERROR,
             "a marked file cannot be read or written, or has changed meanwhile");
    return encoder.environment.failure.status;
}

// Contents that come from files may fail to come, so that the caller's buffer is filled only when
// all has been read.
OssStatus encode_to_memory(Encoder &encoder, const Type &type, const void *value, uint32_t size,
                           OssBuf &output) {
    if (output.value != nullptr && output.length < size) {
        fail(encoder.environment, OSS_SMALL_BUFFER, "the buffer is too small");
        return OSS_SMALL_BUFFER;
    }
    OwnedBytes block;
    uint8_t *target = output.value;
    if (target == nullptr || encoder.reads_files) {
        block = allocate_bytes(size);
        target = block.get();
    }
    if (target == nullptr) {
        fail(encoder.environment, OSS_NO_MEMORY, "out of memory");
        return OSS_NO_MEMORY;
    }
    encoder.writer = {target, target, target + size, -1, false};
    write_value(encoder, type, type.tag, value);
    if (encoder.writer.failed || encoder.writer.at != encoder.writer.end)
        return write_failure(encoder);
    if (output.value == nullptr)
        output.value = block.release();
    else if (block)
        memcpy(output.value, target, size);
    output.length = size;
    return OSS_DONE;
}

OssStatus encode_to_file(Encoder &encoder, const Type &type, const void *value, uint32_t size,
                         OssBuf &output) {
    FileDescriptor file;
    OwnedBytes window = allocate_bytes(window_size);
    if (!window) {
        fail(encoder.environment, OSS_NO_MEMORY, "out of memory");
        return OSS_NO_MEMORY;
    }
    if (!open_for_writing(encoder.environment, *encoder.target, file))
        return encoder.environment.failure.status;
    encoder.writer = {window.get(), window.get(), window.get() + window_size, file.number(), false};
    write_value(encoder, type, type.tag, value);
    if (!encoder.writer.failed)
        flush(encoder.writer);
    if (!end_writing(file, !encoder.writer.failed, size))
        return write_failure(encoder);
    output.length = size;
    return OSS_DONE;
}

} // namespace

OssStatus encode(OssEnvironment &environment, const Type &type, const void *value, bool der,
                 OssBuf &output) {
    Encoder encoder = {.environment = environment,
                       .der = der,
                       .indefinite = !der && (environment.encoding_flags & OSS_INDEFINITE) != 0,
                       .target = find_marked(environment, output.value),
                       .lengths = environment.lengths};
    uint64_t size = 0;
    if (!measure_value(encoder, type, value, size) || !prepare_sorting(encoder))
        return environment.failure.status;
    if (size > UINT32_MAX) {
        fail(environment, OSS_TOO_LARGE, "more than 4 GiB");
        return OSS_TOO_LARGE;
    }
    const uint32_t length = static_cast<uint32_t>(size);
    return encoder.target != nullptr ? encode_to_file(encoder, type, value, length, output)
                                     : encode_to_memory(encoder, type, value, length, output);
}

} // namespace dencoder
