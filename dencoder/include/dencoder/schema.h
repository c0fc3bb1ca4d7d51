// schema.h: the rows of a control table, and the constexpr functions that write them.
//
// A type is a row: what kind it is, its universal tag, the record that holds its values, and its
// components. A component is a row in a type: name, tagging, type, place in the record, presence.
// Compile time checks that each component's member has the type's record.
//
// How values lie in memory:
//   BOOLEAN           uint8_t, 0 or 1
//   INTEGER           int32_t or uint32_t, as its range says; or its content octets, counted
//   OCTET STRING, ANY counted bytes (an open type with tag and length)
//   BIT STRING        counted bits
//   OBJECT IDENTIFIER counted components, the first two apart
//   character strings NUL-terminated; always reached through a pointer
//   SEQUENCE          a struct; if it keeps a presence mask, that is a uint8_t at its start
//   SEQUENCE OF, SET OF  a pointer to the first of linked nodes {next, element}
//   CHOICE            a struct that starts with the number, from 1, of the alternative (uint16_t)
// A member may hold a component itself or, being a pointer, own it.
#ifndef DENCODER_SCHEMA_H
#define DENCODER_SCHEMA_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

struct OssEnvironment;

namespace dencoder {

// ---- Records of the basic types -----------------------------------------------------------------

// They stand for every record of the same layout, whatever its name.
struct [[gnu::may_alias]] CountedBytes { // of bit strings, length counts bits
    uint32_t length;
    uint8_t *value;
};

struct [[gnu::may_alias]] ShortCountedBytes {
    uint16_t length;
    uint8_t *value;
};

struct [[gnu::may_alias]] Identifier {
    uint16_t count;
    uint32_t *value;
};

struct [[gnu::may_alias]] Time {
    int16_t year; // since 1900; read from an encoding, its two digits
    int16_t month;
    int16_t day;
    int16_t hour;
    int16_t minute;
    int16_t second;
    int16_t millisec;
    int16_t mindiff; // minutes from UTC, unless utc
    uint8_t utc;
};

struct [[gnu::may_alias]] Node {
    Node *next;
    void *element;
};

// A record of the same layout as one of the above.
template <class Record, class Basic>
concept LaidOutAs = sizeof(Record) == sizeof(Basic) &&
                    alignof(Record) == alignof(Basic) && std::is_standard_layout_v<Record>;

// ---- Rows ---------------------------------------------------------------------------------------

enum class Kind : uint8_t {
    boolean,
    integer,
    big_integer,       // CountedBytes
    short_big_integer, // ShortCountedBytes
    bit_string,
    octet_string,
    object_identifier,
    character_string,
    utc_time,
    any,
    sequence,
    sequence_of,
    set_of,
    choice
};

enum class Alphabet : uint8_t { all, ascii, printable };

struct Component;

struct Type {
    const char *name = nullptr;
    Kind kind{};
    uint8_t tag = 0;      // identifier octet, without the constructed bit; 0: has none of its own
    uint16_t size = 0;    // of the record
    bool in_file = false; // the octets are in a file, the record's bytes are a handle
    Alphabet alphabet = Alphabet::all;
    int64_t lowest = 0, highest = 0;            // of an integer
    std::span<const Component> components = {}; // a list's is its element, in the node
};

// The type of values that a Record holds. Lists: Record is the pointer to the first node.
template <class Record> struct TypeFor : Type {};

struct Tag {
    enum Mode : uint8_t { none, implicit_mode, explicit_mode };
    Mode mode = none;
    uint8_t octet = 0; // identifier octet, without the constructed bit
};

enum class Presence : uint8_t { required, optional, defaulted };

struct Component {
    const char *name = nullptr;
    const Type *type = nullptr;
    uint16_t offset = 0;
    bool owned = false; // the member is a pointer to the record
    Tag tag = {};
    Presence presence{};
    uint8_t mask_bit = 0;
    int32_t default_value = 0;
};

struct ControlTable {
    const char *name;
    void (*link)(OssEnvironment *environment); // calls the ossLink... functions it needs
    std::span<const Type *const> pdus;         // PDU 1 first
};

// ---- Writing types ------------------------------------------------------------------------------

namespace universal {
constexpr uint8_t boolean = 1, integer = 2, bit_string = 3, octet_string = 4, object_identifier = 6,
                  sequence = 16, set = 17, printable_string = 19, t61_string = 20, ia5_string = 22,
                  utc_time = 23;
}

constexpr TypeFor<uint8_t> boolean(const char *name) {
    return {{.name = name, .kind = Kind::boolean, .tag = universal::boolean, .size = 1}};
}

template <class Integer> constexpr TypeFor<Integer> integer(const char *name) {
    static_assert(sizeof(Integer) == 4);
    return {{.name = name,
             .kind = Kind::integer,
             .tag = universal::integer,
             .size = sizeof(Integer),
             .lowest = std::is_signed_v<Integer> ? INT32_MIN : 0,
             .highest = std::is_signed_v<Integer> ? INT32_MAX : int64_t{UINT32_MAX}}};
}

template <class Record> constexpr TypeFor<Record> big_integer(const char *name) {
    constexpr bool counted_short = sizeof(Record::length) == sizeof(ShortCountedBytes::length);
    static_assert(LaidOutAs<Record, CountedBytes> && offsetof(Record, value) == sizeof(void *));
    return {{.name = name,
             .kind = counted_short ? Kind::short_big_integer : Kind::big_integer,
             .tag = universal::integer,
             .size = sizeof(Record)}};
}

template <class Record>
constexpr TypeFor<Record> counted_bytes(const char *name, Kind kind, uint8_t tag, bool in_file) {
    static_assert(LaidOutAs<Record, CountedBytes> && sizeof(Record::length) == sizeof(uint32_t) &&
                  offsetof(Record, value) == offsetof(CountedBytes, value));
    return {{.name = name, .kind = kind, .tag = tag, .size = sizeof(Record), .in_file = in_file}};
}

template <class Record> constexpr TypeFor<Record> bit_string(const char *name) {
    return counted_bytes<Record>(name, Kind::bit_string, universal::bit_string, false);
}

template <class Record> constexpr TypeFor<Record> octet_string(const char *name) {
    return counted_bytes<Record>(name, Kind::octet_string, universal::octet_string, false);
}

template <class Record> constexpr TypeFor<Record> octet_string_in_file(const char *name) {
    return counted_bytes<Record>(name, Kind::octet_string, universal::octet_string, true);
}

template <class Record> constexpr TypeFor<Record> any(const char *name) {
    return counted_bytes<Record>(name, Kind::any, 0, false);
}

template <class Record> constexpr TypeFor<Record> any_in_file(const char *name) {
    return counted_bytes<Record>(name, Kind::any, 0, true);
}

template <class Record> constexpr TypeFor<Record> object_identifier(const char *name) {
    static_assert(LaidOutAs<Record, Identifier>);
    return {{.name = name,
             .kind = Kind::object_identifier,
             .tag = universal::object_identifier,
             .size = sizeof(Record)}};
}

template <class Record> constexpr TypeFor<Record> utc_time(const char *name) {
    static_assert(LaidOutAs<Record, Time> && offsetof(Record, utc) == offsetof(Time, utc));
    return {
        {.name = name, .kind = Kind::utc_time, .tag = universal::utc_time, .size = sizeof(Record)}};
}

constexpr TypeFor<char> character_string(const char *name, uint8_t tag, Alphabet alphabet) {
    return {{.name = name,
             .kind = Kind::character_string,
             .tag = tag,
             .size = sizeof(char),
             .alphabet = alphabet}};
}

template <class Record>
constexpr TypeFor<Record> sequence(const char *name, std::span<const Component> components) {
    return {{.name = name,
             .kind = Kind::sequence,
             .tag = universal::sequence,
             .size = sizeof(Record),
             .components = components}};
}

template <class Record>
constexpr TypeFor<Record> choice(const char *name, std::span<const Component> alternatives) {
    static_assert(offsetof(Record, choice) == 0 && sizeof(Record::choice) == sizeof(uint16_t));
    return {
        {.name = name, .kind = Kind::choice, .size = sizeof(Record), .components = alternatives}};
}

template <class ListNode>
constexpr TypeFor<ListNode *> list(const char *name, Kind kind, uint8_t tag,
                                   std::span<const Component, 1> element) {
    static_assert(LaidOutAs<ListNode, Node> && offsetof(ListNode, next) == 0);
    return {{.name = name,
             .kind = kind,
             .tag = tag,
             .size = sizeof(ListNode *),
             .components = element}};
}

template <class ListNode>
constexpr TypeFor<ListNode *> sequence_of(const char *name, std::span<const Component, 1> element) {
    return list<ListNode>(name, Kind::sequence_of, universal::sequence, element);
}

template <class ListNode>
constexpr TypeFor<ListNode *> set_of(const char *name, std::span<const Component, 1> element) {
    return list<ListNode>(name, Kind::set_of, universal::set, element);
}

// ---- Writing components -------------------------------------------------------------------------

// A member of a record: DENCODER_FIELD(QelCert, serial).
template <class Member> struct Field { std::size_t offset; };
#define DENCODER_FIELD(record, member)                                                             \
    (::dencoder::Field<decltype(static_cast<record *>(nullptr)->member)>{offsetof(record, member)})

// A component whose members lie in the same record as those of the type around it.
template <class Record> constexpr Field<Record> same_record() {
    return {0};
}

constexpr Tag implicit_tag(uint8_t number) {
    return {Tag::implicit_mode, static_cast<uint8_t>(0x80 | number)};
}

constexpr Tag explicit_tag(uint8_t number) {
    return {Tag::explicit_mode, static_cast<uint8_t>(0x80 | number)};
}

template <class Record, class Member>
constexpr Component required(const char *name, Tag tag, const TypeFor<Record> &type,
                             Field<Member> field) {
    constexpr bool owned = std::is_same_v<Member, Record *>;
    static_assert(owned || std::is_same_v<Member, Record>,
                  "the member is not of the type's record");
    static_assert(owned || !std::is_same_v<Record, char>, "a string is reached through a pointer");
    return {.name = name,
            .type = &type,
            .offset = static_cast<uint16_t>(field.offset),
            .owned = owned,
            .tag = tag};
}

template <class Record, class Member>
constexpr Component required(const char *name, const TypeFor<Record> &type, Field<Member> field) {
    return required(name, Tag{}, type, field);
}

// Present when its mask bit says so; without one, when its pointer is not null.
template <class Record, class Member>
constexpr Component optional(const char *name, Tag tag, const TypeFor<Record> &type,
                             Field<Member> field, uint8_t mask_bit = 0) {
    static_assert(std::is_pointer_v<Member>, "an optional member is a pointer");
    Component component = required(name, tag, type, field);
    component.presence = Presence::optional;
    component.mask_bit = mask_bit;
    return component;
}

template <class Record, class Member>
constexpr Component optional(const char *name, const TypeFor<Record> &type, Field<Member> field,
                             uint8_t mask_bit = 0) {
    return optional(name, Tag{}, type, field, mask_bit);
}

// An integer or boolean that is left out while it has its default; mask_bit: it was given anyway.
template <class Record>
constexpr Component defaulted(const char *name, Tag tag, const TypeFor<Record> &type,
                              Field<Record> field, uint8_t mask_bit, int32_t default_value) {
    Component component = required(name, tag, type, field);
    component.presence = Presence::defaulted;
    component.mask_bit = mask_bit;
    component.default_value = default_value;
    return component;
}

} // namespace dencoder

#endif
