// print.cpp: values in a form close to ASN.1 value notation (X.680).
#include "environment.h"

namespace dencoder {
namespace {

struct Printer {
    const OssEnvironment &environment;
    FILE *stream;
    unsigned depth;
};

void print_record(Printer &printer, const Type &type, const void *record);

void print_new_line(const Printer &printer) {
    fprintf(printer.stream, "\n%*s", static_cast<int>(2 * printer.depth), "");
}

void print_hex(FILE *stream, const uint8_t *bytes, std::size_t size, const char *end) {
    constexpr char digits[] = "0123456789ABCDEF";
    putc('\'', stream);
    for (std::size_t i = 0; i < size && bytes != nullptr; ++i) {
        putc(digits[bytes[i] >> 4], stream);
        putc(digits[bytes[i] & 15], stream);
    }
    fputs(end, stream);
}

// As a decimal number where 64 bits hold it, else its octets.
void print_big_integer(FILE *stream, const uint8_t *octets, uint32_t length) {
    if (length == 0 || length > sizeof(int64_t) || octets == nullptr)
        return print_hex(stream, octets, length, "'H");
    uint64_t number = octets[0] < 0x80 ? 0 : UINT64_MAX;
    for (uint32_t i = 0; i < length; ++i)
        number = number << 8 | octets[i];
    fprintf(stream, "%lld", static_cast<long long>(number));
}

void print_identifier(FILE *stream, const Identifier &identifier) {
    for (uint32_t i = 0; i < identifier.count && identifier.value != nullptr; ++i)
        fprintf(stream, i == 0 ? "%lu" : ".%lu", static_cast<unsigned long>(identifier.value[i]));
}

// Nothing that a terminal might obey gets through.
void print_text(FILE *stream, const char *text) {
    putc('"', stream);
    for (; *text != 0; ++text) {
        const uint8_t character = static_cast<uint8_t>(*text);
        if (character == '"' || character == '\\')
            fprintf(stream, "\\%c", character);
        else if (character < 0x20 || character > 0x7e)
            fprintf(stream, "\\x%02X", character);
        else
            putc(character, stream);
    }
    putc('"', stream);
}

void print_time(FILE *stream, const Time &time) {
    fprintf(stream, "\"%02d%02d%02d%02d%02d%02d", time.year % 100, time.month, time.day, time.hour,
            time.minute, time.second);
    if (time.utc != 0) {
        fputs("Z\"", stream);
    } else {
        const int minutes = time.mindiff < 0 ? -time.mindiff : time.mindiff;
        fprintf(stream, "%c%02d%02d\"", time.mindiff < 0 ? '-' : '+', minutes / 60, minutes % 60);
    }
}

void print_bytes(const Printer &printer, const Type &type, const CountedBytes &bytes) {
    if (type.in_file) {
        const MarkedFile *marked = find_marked(printer.environment, bytes.value);
        fputs("file ", printer.stream);
        print_text(printer.stream, marked != nullptr ? marked->name : "");
    } else if (type.kind == Kind::big_integer) {
        print_big_integer(printer.stream, bytes.value, bytes.length);
    } else if (type.kind == Kind::bit_string && bytes.length % 8 != 0) {
        print_hex(printer.stream, bytes.value, bytes.length / 8 + 1, "'H");
        fprintf(printer.stream, " (%lu bits)", static_cast<unsigned long>(bytes.length));
    } else {
        const uint32_t size = type.kind == Kind::bit_string ? bytes.length / 8 : bytes.length;
        print_hex(printer.stream, bytes.value, size, "'H");
    }
}

void print_component(Printer &printer, const Component &component, const void *record) {
    if (component.name != nullptr)
        fprintf(printer.stream, "%s ", component.name);
    const void *held = held_record(record, component);
    if (held == nullptr)
        fputs("(missing)", printer.stream);
    else
        print_record(printer, *component.type, held);
}

void print_sequence(Printer &printer, const Type &type, const void *record) {
    bool first = true;
    for (const Component &component : type.components) {
        if (!is_present(record, component))
            continue;
        if (!first)
            putc(',', printer.stream);
        first = false;
        print_new_line(printer);
        print_component(printer, component, record);
    }
}

void print_list(Printer &printer, const Type &type, const void *record) {
    for (const Node *node = load<const Node *>(record); node != nullptr; node = node->next) {
        print_new_line(printer);
        print_component(printer, type.components[0], node);
        if (node->next != nullptr)
            putc(',', printer.stream);
    }
}

void print_constructed(Printer &printer, const Type &type, const void *record) {
    putc('{', printer.stream);
    ++printer.depth;
    if (type.kind == Kind::sequence)
        print_sequence(printer, type, record);
    else
        print_list(printer, type, record);
    --printer.depth;
    print_new_line(printer);
    putc('}', printer.stream);
}

void print_record(Printer &printer, const Type &type, const void *record) {
    switch (type.kind) {
    case Kind::boolean:
        fputs(number_in(type, record) != 0 ? "TRUE" : "FALSE", printer.stream);
        break;
    case Kind::integer:
        fprintf(printer.stream, "%lld", static_cast<long long>(number_in(type, record)));
        break;
    case Kind::short_big_integer: {
        const ShortCountedBytes &bytes = *static_cast<const ShortCountedBytes *>(record);
        print_big_integer(printer.stream, bytes.value, bytes.length);
        break;
    }
    case Kind::big_integer:
    case Kind::bit_string:
    case Kind::octet_string:
    case Kind::any:
        print_bytes(printer, type, *static_cast<const CountedBytes *>(record));
        break;
    case Kind::object_identifier:
        print_identifier(printer.stream, *static_cast<const Identifier *>(record));
        break;
    case Kind::character_string:
        print_text(printer.stream, static_cast<const char *>(record));
        break;
    case Kind::utc_time:
        print_time(printer.stream, *static_cast<const Time *>(record));
        break;
    case Kind::choice:
        if (const Component *alternative = chosen(type, record)) {
            fprintf(printer.stream, "%s : ", alternative->name);
            Component value = *alternative;
            value.name = nullptr;
            print_component(printer, value, record);
        }
        break;
    case Kind::sequence:
    case Kind::sequence_of:
    case Kind::set_of:
        print_constructed(printer, type, record);
        break;
    }
}

} // namespace

bool print_value(OssEnvironment &environment, FILE *stream, const Type &type, const void *record) {
    Printer printer = {environment, stream, 0};
    fprintf(stream, "%s ::= ", type.name);
    print_record(printer, type, record);
    putc('\n', stream);
    return fflush(stream) == 0 && ferror(stream) == 0;
}

} // namespace dencoder
