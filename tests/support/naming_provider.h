// naming_provider.h: a naming provider of the test's own, in memory, for programs that include this
// once. It stands in for libxfn and fails when told to.
#ifndef TESTS_SUPPORT_NAMING_PROVIDER_H
#define TESTS_SUPPORT_NAMING_PROVIDER_H

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <xfn/xfn.h>

namespace provider {

struct Stored {
    std::string syntax;
    std::vector<std::string> values;
    unsigned version = 0;
};
using StoredEntry = std::map<std::string, Stored>;

// By context ("user", "host", "" for the initial one), name and attribute.
inline std::map<std::string, std::map<std::string, StoredEntry>> store;
// By function, or "function context" of those that work on a context: the status code that it fails
// with. FN_SUCCESS: it gives null all the same.
inline std::map<std::string, unsigned> failures;
// Called before an attribute is written, as if by another writer.
inline std::function<void()> before_modify;
// What was written last: "operation context/name attribute syntax".
inline std::string written;
// "back end, authoritative; " of each initial context asked for.
inline std::string initial;

inline void write(const std::string &context, const std::string &name, const std::string &attribute,
                  const std::vector<std::string> &values) {
    static unsigned version = 0;
    store[context][name][attribute] = {"", values, ++version};
}

inline void reset() {
    store.clear();
    failures.clear();
    before_modify = nullptr;
    written.clear();
}

} // namespace provider

struct FN_ctx {
    std::string path;
};
struct FN_ref {
    std::string path;
};
struct FN_string {
    std::string text;
};
struct FN_composite_name {
    std::string text;
};
struct FN_status {
    unsigned code = FN_SUCCESS;
};
struct FN_attribute {
    std::string identifier, syntax;
    std::vector<std::string> values;
    std::vector<FN_attrvalue_t> shown;
    unsigned version = 0; // as read; 0: made
    std::optional<unsigned> expected;
};
struct FN_attrset {
    std::vector<FN_attribute> attributes;
};
struct FN_searchlist {
    std::string path;
    std::vector<std::string> names;
};

namespace provider {

// Whether this call fails. Every function that gives an object allocates, so that it can fail there.
inline bool fails(const char *function, const std::string &context, FN_status_t *status,
                  bool allocates) {
    unsigned code = FN_SUCCESS;
    bool failing = false;
    for (const std::string &key : {std::string(function), function + (" " + context)})
        if (const auto planned = failures.find(key); planned != failures.end()) {
            failing = true;
            code = planned->second;
        }
    if (allocates && !failing) {
        void *block = std::malloc(1);
        failing = block == nullptr;
        code = failing ? FN_E_INSUFFICIENT_RESOURCES : FN_SUCCESS;
        std::free(block);
    }
    if (status != nullptr)
        status->code = code;
    return failing;
}

inline std::string text_of(const FN_identifier_t *identifier) {
    return {static_cast<const char *>(identifier->contents), identifier->length};
}

inline std::string bytes_of(const FN_attrvalue_t *value) {
    return {static_cast<const char *>(value->contents), value->length};
}

inline StoredEntry *find(const FN_ctx_t *context, const FN_composite_name_t *name) {
    auto &names = store[context->path];
    const auto found = names.find(name->text);
    return found == names.end() ? nullptr : &found->second;
}

template <class T> T *failed_with(FN_status_t *status, unsigned code) {
    status->code = code;
    return nullptr;
}

} // namespace provider

extern "C" {

FN_status_t *fn_status_create() {
    return provider::fails("fn_status_create", "", nullptr, true) ? nullptr : new FN_status;
}
void fn_status_destroy(FN_status_t *status) {
    delete status;
}
unsigned fn_status_code(const FN_status_t *status) {
    return status->code;
}

const unsigned char *fn_string_str(const FN_string_t *string, unsigned *) {
    return reinterpret_cast<const unsigned char *>(string->text.c_str());
}
void fn_string_destroy(FN_string_t *string) {
    delete string;
}

FN_composite_name_t *fn_composite_name_from_str(const unsigned char *text) {
    if (*text == '"' || provider::fails("fn_composite_name_from_str", "", nullptr, true))
        return nullptr;
    return new FN_composite_name{reinterpret_cast<const char *>(text)};
}
void fn_composite_name_destroy(FN_composite_name_t *name) {
    delete name;
}

void fn_ref_destroy(FN_ref_t *reference) {
    delete reference;
}

FN_attribute_t *fn_attribute_create(const FN_identifier_t *identifier,
                                    const FN_identifier_t *syntax) {
    if (provider::fails("fn_attribute_create", "", nullptr, true))
        return nullptr;
    auto *made = new FN_attribute;
    made->identifier = provider::text_of(identifier);
    made->syntax = provider::text_of(syntax);
    return made;
}
void fn_attribute_destroy(FN_attribute_t *attribute) {
    delete attribute;
}
unsigned fn_attribute_valuecount(const FN_attribute_t *attribute) {
    return static_cast<unsigned>(attribute->values.size());
}
const FN_attrvalue_t *fn_attribute_next(const FN_attribute_t *attribute, void **place) {
    auto *const whole = const_cast<FN_attribute_t *>(attribute);
    const auto index = reinterpret_cast<std::size_t>(*place);
    if (index == whole->values.size())
        return nullptr;
    *place = reinterpret_cast<void *>(index + 1);
    whole->shown.resize(whole->values.size());
    whole->shown[index] = {whole->values[index].size(), whole->values[index].data()};
    if (whole->values[index].empty())
        whole->shown[index].contents = nullptr;
    return &whole->shown[index];
}
const FN_attrvalue_t *fn_attribute_first(const FN_attribute_t *attribute, void **place) {
    *place = nullptr;
    return fn_attribute_next(attribute, place);
}
int fn_attribute_add(FN_attribute_t *attribute, const FN_attrvalue_t *value, unsigned) {
    if (provider::fails("fn_attribute_add", "", nullptr, true))
        return 0;
    auto &values = attribute->values;
    if (std::find(values.begin(), values.end(), provider::bytes_of(value)) == values.end())
        values.push_back(provider::bytes_of(value));
    return 1;
}
int fn_attribute_remove(FN_attribute_t *attribute, const FN_attrvalue_t *value) {
    if (provider::fails("fn_attribute_remove", "", nullptr, true))
        return 0;
    std::erase(attribute->values, provider::bytes_of(value));
    return 1;
}
void fn_attribute_expect(FN_attribute_t *attribute, const FN_attribute_t *found) {
    attribute->expected = found == nullptr ? 0 : found->version;
}

FN_attrset_t *fn_attrset_create() {
    return provider::fails("fn_attrset_create", "", nullptr, true) ? nullptr : new FN_attrset;
}
void fn_attrset_destroy(FN_attrset_t *set) {
    delete set;
}
int fn_attrset_add(FN_attrset_t *set, const FN_attribute_t *attribute, unsigned) {
    if (provider::fails("fn_attrset_add", "", nullptr, true))
        return 0;
    set->attributes.push_back(*attribute);
    return 1;
}

FN_ctx_t *_fn_ctx_handle_from_initial_with_ns(unsigned back_end, unsigned authoritative,
                                              FN_status_t *status) {
    provider::initial += std::to_string(back_end) + ", " + std::to_string(authoritative) + "; ";
    if (provider::fails("_fn_ctx_handle_from_initial_with_ns", "", status, true))
        return nullptr;
    return new FN_ctx{""};
}
FN_ref_t *fn_ctx_lookup(FN_ctx_t *context, const FN_composite_name_t *name, FN_status_t *status) {
    if (provider::fails("fn_ctx_lookup", context->path, status, true))
        return nullptr;
    const bool fixed = context->path.empty() && (name->text == "user" || name->text == "host");
    if (!fixed && provider::find(context, name) == nullptr)
        return provider::failed_with<FN_ref_t>(status, FN_E_NAME_NOT_FOUND);
    return new FN_ref{name->text};
}
FN_ctx_t *fn_ctx_handle_from_ref(const FN_ref_t *reference, unsigned, FN_status_t *status) {
    if (provider::fails("fn_ctx_handle_from_ref", reference->path, status, true))
        return nullptr;
    return new FN_ctx{reference->path};
}
FN_ref_t *fn_ctx_create_subcontext(FN_ctx_t *context, const FN_composite_name_t *name,
                                   FN_status_t *status) {
    if (provider::fails("fn_ctx_create_subcontext", context->path, status, true))
        return nullptr;
    provider::store[context->path][name->text];
    return new FN_ref{name->text};
}

FN_attribute_t *fn_attr_get(FN_ctx_t *context, const FN_composite_name_t *name,
                            const FN_identifier_t *identifier, unsigned follow_link,
                            FN_status_t *status) {
    if (provider::fails("fn_attr_get", context->path, status, true))
        return nullptr;
    const provider::StoredEntry *entry = provider::find(context, name);
    if (follow_link != 1)
        return provider::failed_with<FN_attribute_t>(status, FN_E_UNSPECIFIED_ERROR);
    if (entry == nullptr)
        return provider::failed_with<FN_attribute_t>(status, FN_E_NAME_NOT_FOUND);
    const auto found = entry->find(provider::text_of(identifier));
    if (found == entry->end())
        return provider::failed_with<FN_attribute_t>(status, FN_E_NO_SUCH_ATTRIBUTE);
    return new FN_attribute{found->first, found->second.syntax,  found->second.values,
                            {},           found->second.version, {}};
}
int fn_attr_modify(FN_ctx_t *context, const FN_composite_name_t *name, unsigned operation,
                   const FN_attribute_t *attribute, unsigned follow_link, FN_status_t *status) {
    if (provider::before_modify)
        provider::before_modify();
    provider::written = std::to_string(operation) + " " + context->path + "/" + name->text + " " +
                        attribute->identifier + " " + attribute->syntax;
    if (provider::fails("fn_attr_modify", context->path, status, true))
        return 0;
    status->code = FN_E_NAME_NOT_FOUND;
    provider::StoredEntry *entry = provider::find(context, name);
    if (entry == nullptr && context->path.empty())
        entry = &provider::store[""][name->text];
    if (entry == nullptr || follow_link != 1)
        return 0;
    const auto present = entry->find(attribute->identifier);
    const unsigned version = present == entry->end() ? 0 : present->second.version;
    status->code = FN_E_ATTR_CHANGED;
    if (attribute->expected.has_value() && *attribute->expected != version)
        return 0;
    status->code = FN_SUCCESS;
    std::vector<std::string> values = attribute->values;
    if (operation == FN_ATTR_OP_ADD_VALUES || operation == FN_ATTR_OP_REMOVE_VALUES) {
        values = (*entry)[attribute->identifier].values;
        for (const std::string &value : attribute->values)
            std::erase(values, value);
        if (operation == FN_ATTR_OP_ADD_VALUES)
            values.insert(values.end(), attribute->values.begin(), attribute->values.end());
    }
    if (operation == FN_ATTR_OP_REMOVE || values.empty())
        entry->erase(attribute->identifier);
    else
        provider::write(context->path, name->text, attribute->identifier, values);
    return 1;
}

FN_searchlist_t *prelim_fn_attr_search(FN_ctx_t *context, const FN_composite_name_t *name,
                                       const FN_attrset_t *match, unsigned,
                                       const FN_attrset_t *wanted, FN_status_t *status) {
    if (provider::fails("prelim_fn_attr_search", context->path, status, true))
        return nullptr;
    if (!name->text.empty() || match->attributes.size() != 1 || wanted == nullptr)
        return provider::failed_with<FN_searchlist_t>(status, FN_E_UNSPECIFIED_ERROR);
    const FN_attribute &asked = match->attributes[0];
    auto *hits = new FN_searchlist{context->path, {}};
    for (const auto &[holder, entry] : provider::store[context->path])
        if (const auto held = entry.find(asked.identifier); held != entry.end())
            for (const std::string &value : held->second.values)
                if (value == asked.values.at(0))
                    hits->names.insert(hits->names.begin(), holder);
    return hits;
}
FN_string_t *prelim_fn_searchlist_next(FN_searchlist_t *list, FN_ref_t **, FN_attrset_t **,
                                       FN_status_t *status) {
    if (provider::fails("prelim_fn_searchlist_next", list->path, status, true) ||
        list->names.empty())
        return nullptr;
    auto *name = new FN_string{list->names.back()};
    list->names.pop_back();
    return name;
}
void prelim_fn_searchlist_destroy(FN_searchlist_t *list) {
    delete list;
}

} // extern "C"

#endif
