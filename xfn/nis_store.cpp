// nis_store.cpp: the entries that a NIS domain publishes, to be read. See nis_map.h.

#include "nis_map.h"
#include "store.h"

#include <rpcsvc/ypclnt.h>
#include <unistd.h>

namespace {

using xfn::Area;
using xfn::Attribute;
using xfn::EntryName;
using xfn::NamePage;
using xfn::NisKey;
using xfn::Store;
using xfn::view;

// ---- Texts -----------------------------------------------------------------------------------------

constexpr unsigned attempts = 4; // while a new map takes the place of an old one

unsigned code_of(int error) {
    switch (error) {
    case 0:
        return FN_SUCCESS;
    case YPERR_KEY:
        return FN_E_NAME_NOT_FOUND;
    case YPERR_RESRC:
        return FN_E_INSUFFICIENT_RESOURCES;
    case YPERR_RPC:
        return FN_E_COMMUNICATION_FAILURE;
    default: // no domain, no server, no such map
        return FN_E_CTX_UNAVAILABLE;
    }
}

unsigned match(const NisKey &key, qel::Owned<char> *value, std::string_view *bytes) {
    char domain[256] = {};
    if (getdomainname(domain, sizeof domain - 1) != 0 || domain[0] == '\0' ||
        std::strcmp(domain, "(none)") == 0)
        return FN_E_CTX_UNAVAILABLE;
    char *found = nullptr;
    int length = 0;
    const int error =
        yp_match(domain, xfn::nis_map, key.text, static_cast<int>(key.size), &found, &length);
    if (error != 0)
        return code_of(error);
    value->reset(found);
    *bytes = {found, static_cast<std::size_t>(length)};
    return FN_SUCCESS;
}

// Takes the next word off a text; empty at its end.
std::string_view take_word(std::string_view *text) {
    const std::size_t end = text->find(xfn::nis_separator);
    const std::size_t size = end != std::string_view::npos ? end : text->size();
    const std::string_view word(text->data(), size);
    text->remove_prefix(end != std::string_view::npos ? size + 1 : size);
    return word;
}

bool read_number(std::string_view word, int base, uint64_t *number) {
    char digits[24] = {};
    if (word.empty() || word.size() >= sizeof digits)
        return false;
    std::memcpy(digits, word.data(), word.size());
    char *end = nullptr;
    *number = std::strtoull(digits, &end, base);
    return *end == '\0';
}

struct Text {
    qel::Owned<char> bytes;
    std::size_t size = 0;
    std::string_view view() const { return {bytes.get(), size}; }

    bool append(std::string_view more, std::size_t room) {
        if (size + more.size() > room)
            return false;
        std::memcpy(bytes.get() + size, more.data(), more.size());
        size += more.size();
        return true;
    }
};

// One attempt at a text. *fits is false where the parts are not of one text.
unsigned fetch_parts(const NisKey &key, Text *text, bool *fits) {
    qel::Owned<char> value;
    std::string_view rest;
    if (const unsigned code = match(key, &value, &rest); code != FN_SUCCESS)
        return code;
    uint64_t hash = 0, parts = 0;
    *fits = false;
    if (!read_number(take_word(&rest), 16, &hash) || !read_number(take_word(&rest), 10, &parts) ||
        parts > xfn::nis_max_parts || rest.size() > xfn::nis_part_size)
        return FN_SUCCESS;
    const std::size_t room = static_cast<std::size_t>(parts + 1) * xfn::nis_part_size;
    text->size = 0;
    text->bytes.reset(static_cast<char *>(std::malloc(room)));
    if (text->bytes == nullptr)
        return FN_E_INSUFFICIENT_RESOURCES;
    text->append(rest, room);
    for (std::size_t i = 1; i <= parts; ++i) {
        const unsigned code = match(key.part(i), &value, &rest);
        if (code != FN_SUCCESS && code != FN_E_NAME_NOT_FOUND)
            return code;
        if (code == FN_E_NAME_NOT_FOUND || !text->append(rest, room))
            return FN_SUCCESS;
    }
    *fits = xfn::nis_hash(text->view()) == hash;
    return FN_SUCCESS;
}

// FN_E_NAME_NOT_FOUND: no such key.
unsigned fetch(const NisKey &key, Text *text) {
    for (unsigned i = 0; i < attempts; ++i) {
        bool fits = false;
        const unsigned code = fetch_parts(key, text, &fits);
        if (code != FN_SUCCESS || fits)
            return code;
    }
    return FN_E_CTX_UNAVAILABLE;
}

// ---- Words -----------------------------------------------------------------------------------------

int sextet(char byte) {
    if (byte >= 'A' && byte <= 'Z')
        return byte - 'A';
    if (byte >= 'a' && byte <= 'z')
        return byte - 'a' + 26;
    if (byte >= '0' && byte <= '9')
        return byte - '0' + 52;
    return byte == '+' ? 62 : byte == '/' ? 63 : -1;
}

// Bytes of a word behind its first character, with a zero behind them. Of a word that is no base 64
// nothing is left.
struct Bytes {
    qel::Owned<char> bytes;
    std::size_t size = 0;
    bool good = false; // else malformed, or without bytes if memory ran out
    std::string_view view() const { return {bytes.get(), size}; }

    explicit Bytes(std::string_view word) {
        if (word.empty() || (word.size() - 1) % 4 == 1)
            return;
        bytes.reset(static_cast<char *>(std::malloc(word.size())));
        if (bytes == nullptr)
            return;
        uint32_t held = 0;
        unsigned bits = 0;
        for (std::size_t i = 1; i < word.size(); ++i) {
            const int value = sextet(word[i]);
            if (value < 0)
                return;
            held = held << 6 | static_cast<uint32_t>(value);
            bits += 6;
            if (bits >= 8) {
                bits -= 8;
                bytes.get()[size++] = static_cast<char>(held >> bits);
            }
        }
        bytes.get()[size] = '\0';
        good = true;
    }
    unsigned code() const {
        return good               ? unsigned{FN_SUCCESS}
               : bytes == nullptr ? unsigned{FN_E_INSUFFICIENT_RESOURCES}
                                  : unsigned{FN_E_CTX_UNAVAILABLE};
    }
};

struct Identifier {
    Bytes bytes;
    FN_identifier_t id;
    explicit Identifier(std::string_view word)
        : bytes(word), id{word.empty() ? 0 : static_cast<unsigned>(word[0] - '0'), bytes.size,
                          bytes.bytes.get()} {}
};

// Texts begin with the name, since a key may hold its hash only.
unsigned check_owner(std::string_view *text, EntryName name) {
    const Bytes owner(take_word(text));
    if (!owner.good)
        return owner.code();
    return owner.view() == name.text ? FN_SUCCESS : FN_E_NAME_NOT_FOUND;
}

unsigned fetch_entry(EntryName name, Text *text, std::string_view *identifiers) {
    if (const unsigned code = check_name(name); code != FN_SUCCESS)
        return code;
    if (const unsigned code = fetch(entry_key(name), text); code != FN_SUCCESS)
        return code;
    *identifiers = text->view();
    return check_owner(identifiers, name);
}

unsigned read_values(std::string_view text, FN_attribute_t *attribute) {
    while (!text.empty()) {
        const Bytes value(take_word(&text));
        if (!value.good)
            return value.code();
        if (!xfn::append_value(attribute, value.view()))
            return FN_E_INSUFFICIENT_RESOURCES;
    }
    return FN_SUCCESS;
}

// FN_E_NAME_NOT_FOUND: no such attribute.
unsigned fetch_attribute(EntryName name, const FN_identifier_t &wanted, Attribute *attribute) {
    Text fetched;
    if (const unsigned code = fetch(attribute_key(name, wanted), &fetched); code != FN_SUCCESS)
        return code;
    std::string_view text = fetched.view();
    if (const unsigned code = check_owner(&text, name); code != FN_SUCCESS)
        return code;
    const Identifier identifier(take_word(&text)), syntax(take_word(&text));
    if (!identifier.bytes.good || !syntax.bytes.good)
        return FN_E_CTX_UNAVAILABLE;
    if (!xfn::equal(identifier.id, wanted))
        return FN_E_NAME_NOT_FOUND;
    attribute->reset(fn_attribute_create(&identifier.id, &syntax.id));
    if (*attribute == nullptr)
        return FN_E_INSUFFICIENT_RESOURCES;
    (*attribute)->version = 1; // it does not change under this store's hands
    return read_values(text, attribute->get());
}

// ---- Operations ------------------------------------------------------------------------------------

unsigned add_attribute(EntryName name, const FN_identifier_t &identifier, FN_attrset_t *set) {
    Attribute attribute;
    const unsigned code = fetch_attribute(name, identifier, &attribute);
    if (code != FN_SUCCESS)
        return code == FN_E_NAME_NOT_FOUND ? unsigned{FN_SUCCESS} : code;
    return xfn::move_into(set, &attribute) ? FN_SUCCESS : FN_E_INSUFFICIENT_RESOURCES;
}

unsigned lookup(Store *, EntryName name) {
    Text text;
    std::string_view identifiers;
    return fetch_entry(name, &text, &identifiers);
}

unsigned get_wanted(EntryName name, const FN_attrset_t *wanted, FN_attrset_t *set) {
    if (const unsigned code = check_name(name); code != FN_SUCCESS)
        return code;
    for (const FN_attribute_t *attribute : wanted->attributes) {
        const unsigned code = add_attribute(name, attribute->identifier, set);
        if (code != FN_SUCCESS)
            return code;
    }
    // Who has an attribute is there.
    return set->attributes.count != 0 ? unsigned{FN_SUCCESS} : lookup(nullptr, name);
}

unsigned get_all(EntryName name, FN_attrset_t *set) {
    Text text;
    std::string_view identifiers;
    if (const unsigned code = fetch_entry(name, &text, &identifiers); code != FN_SUCCESS)
        return code;
    while (!identifiers.empty()) {
        const Identifier identifier(take_word(&identifiers));
        if (!identifier.bytes.good)
            return identifier.bytes.code();
        const unsigned code = add_attribute(name, identifier.id, set);
        if (code != FN_SUCCESS)
            return code;
    }
    return FN_SUCCESS;
}

unsigned get(Store *, EntryName name, const FN_attrset_t *wanted, xfn::AttributeSet *found) {
    xfn::AttributeSet set(fn_attrset_create());
    if (set == nullptr)
        return FN_E_INSUFFICIENT_RESOURCES;
    const unsigned code =
        wanted != nullptr ? get_wanted(name, wanted, set.get()) : get_all(name, set.get());
    if (code == FN_SUCCESS)
        *found = std::move(set);
    return code;
}

bool matches(const FN_attrset_t *found, const FN_attrset_t *wanted) {
    for (const FN_attribute_t *attribute : wanted->attributes) {
        const FN_attribute_t *there = fn_attrset_get(found, &attribute->identifier);
        if (there == nullptr)
            return false;
        for (const FN_attrvalue_t &value : attribute->values)
            if (!xfn::has_value(there, view(value)))
                return false;
    }
    return true;
}

// Adds those of the names that match, or all for null.
unsigned add_names(Area area, std::string_view names, const FN_attrset_t *wanted, NamePage *page) {
    while (!names.empty()) {
        const Bytes name(take_word(&names));
        if (!name.good)
            return name.code();
        if (wanted != nullptr) {
            xfn::AttributeSet found;
            const unsigned code = get(nullptr, {area, name.view()}, wanted, &found);
            if (code == FN_E_NAME_NOT_FOUND)
                continue; // gone, with the map that named it
            if (code != FN_SUCCESS)
                return code;
            if (!matches(found.get(), wanted))
                continue;
        }
        xfn::String copy(xfn::make_string(name.view()));
        if (copy == nullptr || !page->names.append(copy.get()))
            return FN_E_INSUFFICIENT_RESOURCES;
        copy.release();
    }
    return FN_SUCCESS;
}

// One page of the names of an area, of which the cursor is the number.
unsigned walk_page(Area area, uint64_t number, const FN_attrset_t *wanted, NamePage *page,
                   bool *is_last) {
    Text text;
    const unsigned code = fetch(names_key(area, number), &text);
    if (code != FN_SUCCESS)
        return code == FN_E_NAME_NOT_FOUND ? unsigned{FN_E_CTX_UNAVAILABLE} : code;
    std::string_view names = text.view();
    *is_last = take_word(&names) != "more";
    return add_names(area, names, wanted, page);
}

unsigned walk(Area area, const FN_attrset_t *wanted, const FN_string_t *cursor, NamePage *page) {
    uint64_t number = 0;
    if (cursor != nullptr && !read_number(xfn::view(cursor), 10, &number))
        return FN_E_UNSPECIFIED_ERROR;
    bool is_last = false;
    do {
        const unsigned code = walk_page(area, number++, wanted, page, &is_last);
        if (code != FN_SUCCESS)
            return code;
    } while (!is_last && page->names.count == 0);
    if (is_last)
        return FN_SUCCESS;
    char next[24];
    std::snprintf(next, sizeof next, "%llu", static_cast<unsigned long long>(number));
    page->cursor.reset(xfn::make_string(next));
    return page->cursor != nullptr ? FN_SUCCESS : FN_E_INSUFFICIENT_RESOURCES;
}

const FN_attribute_t *first_with_value(const FN_attrset_t *set) {
    for (const FN_attribute_t *attribute : set->attributes)
        if (attribute->values.count != 0)
            return attribute;
    return nullptr;
}

// A value leads to its names by the index; where only attributes have to be there, all are looked at.
unsigned find(Area area, const FN_attrset_t *wanted, const FN_string_t *cursor, NamePage *page) {
    const FN_attribute_t *attribute = first_with_value(wanted);
    if (attribute == nullptr)
        return walk(area, wanted, cursor, page);
    Text text;
    const unsigned code =
        fetch(index_key(area, attribute->identifier, view(attribute->values.items[0])), &text);
    if (code != FN_SUCCESS)
        return code == FN_E_NAME_NOT_FOUND ? unsigned{FN_SUCCESS} : code;
    return add_names(area, text.view(), wanted, page);
}

// The names of an area, those that match or all for null. The cursor may be the page's.
unsigned fill(Area area, const FN_attrset_t *wanted, const FN_string_t *cursor, NamePage *page) {
    const xfn::String from(fn_string_copy(cursor));
    page->clear();
    if (cursor != nullptr && from == nullptr)
        return FN_E_INSUFFICIENT_RESOURCES;
    const unsigned code = wanted != nullptr ? find(area, wanted, from.get(), page)
                                            : walk(area, nullptr, from.get(), page);
    if (code != FN_SUCCESS)
        page->clear();
    return code;
}

unsigned list(Store *, Area area, const FN_string_t *cursor, NamePage *page) {
    return fill(area, nullptr, cursor, page);
}

unsigned search(Store *, Area area, const FN_attrset_t *wanted, const FN_string_t *cursor,
                NamePage *page) {
    return fill(area, wanted, cursor, page);
}

// Maps are made at the domain's master, from its own store.
unsigned create(Store *, EntryName, uid_t) {
    return FN_E_OPERATION_NOT_SUPPORTED;
}
unsigned destroy(Store *, EntryName, uid_t) {
    return FN_E_OPERATION_NOT_SUPPORTED;
}
unsigned modify(Store *, EntryName, unsigned, const FN_attribute_t *, uid_t) {
    return FN_E_OPERATION_NOT_SUPPORTED;
}
bool writable(Store *) {
    return true; // nobody else could change it either
}
void nothing(Store *) {}

constexpr xfn::StoreOperations operations = {lookup, create,   destroy, get,     modify, list,
                                             search, writable, nothing, nothing, nothing};
Store the_store = {&operations};

} // namespace

unsigned xfn::open_nis_store(const char *, Store **store) {
    *store = &the_store;
    return FN_SUCCESS;
}
