// naming.h: a naming store in a folder of its own, and short ways to use it.
#ifndef TESTS_XFN_NAMING_H
#define TESTS_XFN_NAMING_H

#include <gtest/gtest.h>

#include "context.h"
#include "support/files.h"

#include <optional>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace naming {

using Values = std::vector<std::string>;

inline FN_identifier_t word(std::string_view text) {
    return {FN_ID_STRING, text.size(), const_cast<char *>(text.data())};
}

inline xfn::CompositeName name_of(const std::string &text) {
    return xfn::CompositeName(
        fn_composite_name_from_str(reinterpret_cast<const unsigned char *>(text.c_str())));
}

// A name of one component, whatever its characters.
inline xfn::CompositeName component(const std::string &text) {
    xfn::CompositeName name(fn_composite_name_create());
    const xfn::String string(
        fn_string_from_str(reinterpret_cast<const unsigned char *>(text.c_str())));
    EXPECT_TRUE(fn_composite_name_append_comp(name.get(), string.get()));
    return name;
}

inline xfn::Attribute attribute(const std::string &id, const Values &values) {
    const std::string syntax = "fn_attr_syntax_binary";
    const FN_identifier_t id_word = word(id), syntax_word = word(syntax);
    xfn::Attribute made(fn_attribute_create(&id_word, &syntax_word));
    for (const std::string &value : values) {
        const FN_attrvalue_t one = {value.size(), const_cast<char *>(value.data())};
        EXPECT_TRUE(fn_attribute_add(made.get(), &one, 0));
    }
    return made;
}

inline Values values_of(const FN_attribute_t *attr) {
    Values values;
    void *position = nullptr;
    for (auto *value = fn_attribute_first(attr, &position); value != nullptr;
         value = fn_attribute_next(attr, &position))
        values.emplace_back(static_cast<const char *>(value->contents), value->length);
    return values;
}

using Context = xfn::Object<FN_ctx_t, fn_ctx_handle_destroy>;

// A status that can be compared.
struct Status {
    FN_status_t *object = fn_status_create();
    Status() = default;
    Status(const Status &) = delete;
    ~Status() { fn_status_destroy(object); }
    operator FN_status_t *() const { return object; }
    unsigned code() const { return fn_status_code(object); }
};

struct Store {
    TemporaryFolder folder;
    std::string config = folder.path("fn.conf");
    std::string file = folder.path("names.db");
    Context initial;

    Store() {
        chmod(folder.path("").c_str(), 0755);
        write_file(config, bytes_of("files sqlite:" + file + "\n"));
        initial = open();
    }
    Context open() const {
        Status status;
        Context context(xfn::initial_context(config.c_str(), FN_NS_FILES, status));
        EXPECT_EQ(status.code(), FN_SUCCESS);
        return context;
    }
    Context context(const std::string &name) const {
        Status status;
        const xfn::Reference ref(fn_ctx_lookup(initial.get(), name_of(name).get(), status));
        EXPECT_EQ(status.code(), FN_SUCCESS);
        return Context(fn_ctx_handle_from_ref(ref.get(), 1, status));
    }

    unsigned create(const xfn::CompositeName &name) const {
        Status status;
        const xfn::Reference ref(fn_ctx_create_subcontext(initial.get(), name.get(), status));
        EXPECT_EQ(ref != nullptr, status.code() == FN_SUCCESS);
        return status.code();
    }
    unsigned create(const std::string &name) const { return create(name_of(name)); }
    unsigned destroy(const std::string &name) const {
        Status status;
        const int done = fn_ctx_destroy_subcontext(initial.get(), name_of(name).get(), status);
        EXPECT_EQ(done == 1, status.code() == FN_SUCCESS);
        return status.code();
    }
    unsigned lookup(const std::string &name) const {
        Status status;
        xfn::Reference(fn_ctx_lookup(initial.get(), name_of(name).get(), status));
        return status.code();
    }
    xfn::Attribute read(const std::string &name, const std::string &id, unsigned *code) const {
        Status status;
        const FN_identifier_t id_word = word(id);
        xfn::Attribute found(fn_attr_get(initial.get(), name_of(name).get(), &id_word, 1, status));
        EXPECT_EQ(found != nullptr, status.code() == FN_SUCCESS);
        *code = status.code();
        return found;
    }
    unsigned write(const std::string &name, const xfn::Attribute &attr,
                   unsigned operation = FN_ATTR_OP_ADD) const {
        Status status;
        const int done =
            fn_attr_modify(initial.get(), name_of(name).get(), operation, attr.get(), 1, status);
        EXPECT_EQ(done == 1, status.code() == FN_SUCCESS);
        return status.code();
    }
    unsigned write(const std::string &name, const std::string &id, const Values &values,
                   unsigned operation = FN_ATTR_OP_ADD) const {
        return write(name, attribute(id, values), operation);
    }
    // The values, or the status as text.
    Values get(const std::string &name, const std::string &id) const {
        unsigned code = 0;
        const xfn::Attribute found = read(name, id, &code);
        return found != nullptr ? values_of(found.get()) : Values{"status " + std::to_string(code)};
    }
    Values list(const std::string &name) const {
        Status status;
        FN_namelist_t *list = fn_ctx_list_names(initial.get(), name_of(name).get(), status);
        Values names;
        for (FN_string_t *one;
             list != nullptr && (one = fn_namelist_next(list, status)) != nullptr;) {
            names.emplace_back(xfn::view(one));
            fn_string_destroy(one);
        }
        fn_namelist_destroy(list);
        if (status.code() != FN_SUCCESS)
            names.push_back("status " + std::to_string(status.code()));
        return names;
    }
    // The names that have these values, in the order of the store.
    Values search(const std::string &name, const std::vector<std::pair<std::string, Values>> &match,
                  const FN_attrset_t *wanted = nullptr) const {
        Status status;
        const xfn::AttributeSet set(fn_attrset_create());
        for (const auto &[id, values] : match)
            EXPECT_TRUE(fn_attrset_add(set.get(), attribute(id, values).get(), 0));
        FN_searchlist_t *list =
            prelim_fn_attr_search(initial.get(), name_of(name).get(), set.get(), 0, wanted, status);
        Values names;
        for (FN_string_t *one;
             list != nullptr &&
             (one = prelim_fn_searchlist_next(list, nullptr, nullptr, status)) != nullptr;) {
            names.emplace_back(xfn::view(one));
            fn_string_destroy(one);
        }
        prelim_fn_searchlist_destroy(list);
        if (status.code() != FN_SUCCESS)
            names.push_back("status " + std::to_string(status.code()));
        return names;
    }
};

} // namespace naming

#endif
