// nis_map.h: how a store lies in a NIS map, which ctxexport writes and the NIS back end reads.
//
// A NIS record, key and value together, has room for 1024 bytes, so that a text is cut into parts: the
// record of the key itself is "HASH,PARTS,BEGINNING", and those of the key with "+1", "+2", ... behind
// it are the rest. HASH is that of the whole text in hexadecimal digits: parts of an older map that are
// met while a new one takes its place do not fit together.
//
//   key                              words of the text, with commas between them
//   e AREA / NAME                    NAME, and the identifiers of the entry's attributes
//   a AREA / NAME / IDENTIFIER       NAME, identifier, syntax, values
//   i AREA / IDENTIFIER / HASH       the names that have a value with this hash
//   n AREA / NUMBER                  "more" or "end", and some names; the numbers begin with 0
//
// AREA is u, h or g. In keys, bytes of names and identifiers other than letters, digits, '.', '_', '-'
// and '@' stand as %XX; what would be longer than 200 bytes is * and its hash. In texts, a byte string is
// 'x' and its base 64 (RFC 4648) without padding, an identifier the digit of its format and base 64.
// Nothing contains what would mean something to makedbm. Hashes are SipHash-2-4 under the key 0; they
// find records, and what is found is compared.
#ifndef XFN_NIS_MAP_H
#define XFN_NIS_MAP_H

#include "siphash.h"
#include "store.h"

#include <cstdio>

namespace xfn {

constexpr char nis_map[] = "dsv_org.ctx";
constexpr char nis_separator = ',';        // makedbm would drop blanks at both ends of a record
constexpr std::size_t nis_part_size = 512; // of the text, in one record
constexpr std::size_t nis_max_parts = 32768;
constexpr std::size_t nis_max_escaped = 200;

inline uint64_t nis_hash(std::string_view bytes) {
    return SipHash(0, 0).add(bytes).finish();
}

constexpr char nis_area(Area area) {
    return area == Area::users ? 'u' : area == Area::hosts ? 'h' : 'g';
}

// A key, put together piece by piece.
struct NisKey {
    char text[512] = {}; // NUL-terminated
    std::size_t size = 0;

    NisKey(char kind, Area area) {
        add(kind);
        add(nis_area(area));
    }
    NisKey &piece(std::string_view bytes);
    NisKey &number(uint64_t value) { return print("/%llu", value); }
    NisKey &hash(uint64_t value) { return print("/%016llx", value); }
    NisKey part(std::size_t value) const { return NisKey(*this).print("+%llu", value); }
    std::string_view view() const { return {text, size}; }

private:
    void add(char byte) {
        text[size++] = byte;
        text[size] = '\0';
    }
    NisKey &print(const char *format, unsigned long long value) {
        size +=
            static_cast<std::size_t>(std::snprintf(text + size, sizeof text - size, format, value));
        return *this;
    }
};

static_assert(2 * (nis_max_escaped + 3) + 32 < sizeof NisKey::text); // two pieces and a number

inline NisKey &NisKey::piece(std::string_view bytes) {
    constexpr char digits[] = "0123456789abcdef";
    add('/');
    const std::size_t begin = size;
    for (const char byte : bytes) {
        const bool plain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                           (byte >= '0' && byte <= '9') || byte == '.' || byte == '_' ||
                           byte == '-' || byte == '@';
        if (size - begin > nis_max_escaped - 3) {
            size = begin - 1;
            return print("/*%016llx", nis_hash(bytes));
        }
        const auto value = static_cast<uint8_t>(byte);
        if (plain) {
            add(byte);
        } else {
            add('%');
            add(digits[value >> 4]);
            add(digits[value & 15]);
        }
    }
    return *this;
}

inline NisKey entry_key(EntryName name) {
    return NisKey('e', name.area).piece(name.text);
}
inline NisKey attribute_key(EntryName name, const FN_identifier_t &identifier) {
    return NisKey('a', name.area).piece(name.text).piece(view(identifier));
}
inline NisKey index_key(Area area, const FN_identifier_t &identifier, std::string_view value) {
    return NisKey('i', area).piece(view(identifier)).hash(nis_hash(value));
}
inline NisKey names_key(Area area, uint64_t number) {
    return NisKey('n', area).number(number);
}

} // namespace xfn

#endif
