// ctxexport: writes all entries of the files back end as lines for makedbm, for a NIS master.

#include "command.h"
#include "config.h"
#include "nis_map.h"
#include "store.h"

#include <cstdio>
#include <set>

namespace {

using xfn::Area;
using xfn::EntryName;
using xfn::NisKey;

constexpr char help[] =
    "usage: ctxexport\n"
    "Writes all entries of the naming database to standard output, as lines for makedbm(8):\n"
    "  ctxexport | makedbm -i - /var/yp/$(domainname)/dsv_org.ctx\n\n"
    "  --help      show this and end\n"
    "  --version   show the version and end";

constexpr std::size_t names_in_page = 64;
const std::string separator(1, xfn::nis_separator);

// ---- Texts -----------------------------------------------------------------------------------------

std::string base64(std::string_view bytes) {
    constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    uint32_t held = 0;
    unsigned bits = 0;
    for (const char byte : bytes) {
        held = held << 8 | static_cast<uint8_t>(byte);
        for (bits += 8; bits >= 6; bits -= 6)
            text += alphabet[held >> (bits - 6) & 63];
    }
    if (bits != 0)
        text += alphabet[held << (6 - bits) & 63];
    return text;
}

std::string word(std::string_view bytes) {
    return "x" + base64(bytes);
}
std::string word(const FN_identifier_t &id) {
    return static_cast<char>('0' + id.format) + base64(xfn::view(id));
}

void put_line(const NisKey &key, const std::string &value) {
    std::printf("%s %s\n", key.text, value.c_str());
}

// The keys of what was written: a hash that stands for two names would hide one of them.
std::set<std::string, std::less<>> keys;

void put(const NisKey &key, const std::string &text) {
    const std::size_t parts = text.empty() ? 0 : (text.size() - 1) / xfn::nis_part_size;
    if (parts > xfn::nis_max_parts)
        throw Failure(malformed, std::string("too long for a NIS map: ") + key.text);
    if (!keys.emplace(key.view()).second)
        throw Failure(malformed, std::string("two entries have the same key: ") + key.text);
    char head[32];
    std::snprintf(head, sizeof head, "%016llx,%zu,",
                  static_cast<unsigned long long>(xfn::nis_hash(text)), parts);
    put_line(key, head + text.substr(0, xfn::nis_part_size));
    for (std::size_t i = 1; i <= parts; ++i)
        put_line(key.part(i), text.substr(i * xfn::nis_part_size, xfn::nis_part_size));
}

// ---- Entries ---------------------------------------------------------------------------------------

struct Export {
    xfn::Store *store;
    Area area;
    std::map<std::string, std::set<std::string>> index; // by key: words of names
    std::map<std::string, NisKey> index_keys;
    std::vector<std::string> names; // words

    void add_attribute(EntryName name, const FN_attribute_t *attribute);
    void add_entry(std::string_view name);
    void put_index() const;
    void put_names() const;
    void run();
};

void Export::add_attribute(EntryName name, const FN_attribute_t *attribute) {
    std::string text = word(name.text) + separator + word(attribute->identifier) + separator +
                       word(attribute->syntax);
    for (const FN_attrvalue_t &value : attribute->values) {
        text += separator + word(xfn::view(value));
        const NisKey key = index_key(area, attribute->identifier, xfn::view(value));
        index_keys.emplace(key.text, key);
        index[key.text].insert(word(name.text));
    }
    put(attribute_key(name, attribute->identifier), text);
}

void Export::add_entry(std::string_view text) {
    const EntryName name = {area, text};
    xfn::AttributeSet attributes;
    const unsigned code = store->operations->get(store, name, nullptr, &attributes);
    if (code == FN_E_NAME_NOT_FOUND)
        return; // removed meanwhile
    if (code != FN_SUCCESS)
        fail_with_code("cannot read an entry", code);
    std::string entry = word(text);
    for (const FN_attribute_t *attribute : attributes->attributes) {
        entry += separator + word(attribute->identifier);
        add_attribute(name, attribute);
    }
    put(entry_key(name), entry);
    names.push_back(word(text));
}

void Export::put_index() const {
    for (const auto &[key, found] : index) {
        std::string text;
        for (const std::string &name : found)
            text += (text.empty() ? "" : separator) + name;
        put(index_keys.at(key), text);
    }
}

void Export::put_names() const {
    std::size_t at = 0;
    for (uint64_t page = 0; at < names.size() || page == 0; ++page) {
        std::string text;
        for (std::size_t i = 0; i < names_in_page && at < names.size(); ++i)
            text += separator + names[at++];
        put(names_key(area, page), (at < names.size() ? "more" : "end") + text);
    }
}

void Export::run() {
    xfn::NamePage page;
    xfn::String cursor;
    do {
        const unsigned code = store->operations->list(store, area, cursor.get(), &page);
        if (code != FN_SUCCESS)
            fail_with_code("cannot list the entries", code);
        for (const FN_string_t *name : page.names)
            add_entry(xfn::view(name));
        cursor = std::move(page.cursor);
    } while (cursor != nullptr);
    put_index();
    put_names();
}

void run(const CommandLine &line) {
    if (!line.arguments.empty())
        throw Failure(usage, "unexpected argument: " + line.arguments[0]);
    xfn::Config config;
    unsigned code = xfn::read_config(xfn::config_path, &config);
    if (code != FN_SUCCESS)
        fail_with_code(xfn::config_path, code);
    xfn::SharedStore *shared = nullptr;
    code = xfn::use_store(config.locations[FN_NS_FILES - 1], &shared);
    if (code != FN_SUCCESS)
        fail_with_code(config.locations[FN_NS_FILES - 1], code);
    for (const Area area : {Area::global, Area::users, Area::hosts})
        Export{shared->store, area, {}, {}, {}}.run();
    xfn::release_store(shared);
}

} // namespace

int main(int argc, char **argv) {
    return run_command({"ctxexport", "", help, run}, argc, argv);
}
