// Names and their attributes in a store of their own.

#include "naming.h"

#include "siphash.h"
#include "support/fault.h"

#include <algorithm>
#include <chrono>

using naming::attribute;
using naming::name_of;
using naming::Store;
using naming::Values;
using naming::word;

namespace {

const std::string kDn = "onc_distinguished_name", kCerts = "onc_certificates";

Values code(unsigned status) {
    return {"status " + std::to_string(status)};
}

} // namespace

TEST(SipHash, PublishedVector) {
    std::string input;
    for (char byte = 0; byte < 15; ++byte)
        input += byte;
    EXPECT_EQ(xfn::SipHash(0x0706050403020100, 0x0f0e0d0c0b0a0908).add(input).finish(),
              0xa129ca6149be45e5u);
}

TEST(Context, NamesResolve) {
    const Store store;
    EXPECT_EQ(store.create("user/alice"), FN_SUCCESS);
    const struct {
        const char *why, *name;
        unsigned code;
        const char *remaining;
    } cases[] = {
        {"the initial context", "", FN_SUCCESS, nullptr},
        {"users", "user", FN_SUCCESS, nullptr},
        {"hosts", "host", FN_SUCCESS, nullptr},
        {"a user", "user/alice", FN_SUCCESS, nullptr},
        {"a user that is not there", "user/bob", FN_E_NAME_NOT_FOUND, "bob"},
        {"users are no hosts", "host/alice", FN_E_NAME_NOT_FOUND, "alice"},
        {"another word", "printer/x", FN_E_NAME_NOT_FOUND, "printer/x"},
        {"below an entry", "user/alice/x", FN_E_NOT_A_CONTEXT, "x"},
        {"below an entry that is not there", "user/bob/x", FN_E_NAME_NOT_FOUND, "bob/x"},
        {"an empty component", "user/", FN_E_ILLEGAL_NAME, "/"},
        {"an empty component in front", "/user", FN_E_ILLEGAL_NAME, "/user"},
        {"a global name that is not there", ".../C=US/O=x", FN_E_NAME_NOT_FOUND, ".../C=US/O=x"},
        {"an empty component in a global name", ".../url=http://x", FN_E_NAME_NOT_FOUND,
         ".../url=http://x"},
        {"nothing behind the dots", "...", FN_E_NAME_NOT_FOUND, "..."},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.why);
        naming::Status status;
        const xfn::Reference ref(
            fn_ctx_lookup(store.initial.get(), name_of(row.name).get(), status));
        EXPECT_EQ(status.code(), row.code);
        EXPECT_EQ(ref != nullptr, row.code == FN_SUCCESS);
        const xfn::String rest(
            fn_string_from_composite_name(fn_status_remaining_name(status), nullptr));
        EXPECT_EQ(rest == nullptr ? "" : std::string(xfn::view(rest.get())),
                  row.remaining == nullptr ? "" : row.remaining);
    }
    EXPECT_EQ(fn_status_remaining_name(nullptr), nullptr);
    EXPECT_EQ(fn_status_resolved_name(nullptr), nullptr);
}

TEST(Context, ReferencesLeadBack) {
    const Store store;
    for (const char *name : {"user/alice", "host/alice", ".../C=US/O=x"}) {
        ASSERT_EQ(store.create(name), FN_SUCCESS);
        ASSERT_EQ(store.write(name, "where", {name}), FN_SUCCESS);
    }
    for (const char *name : {"user/alice", "host/alice", ".../C=US/O=x"}) {
        const naming::Context context = store.context(name);
        naming::Status status;
        const FN_identifier_t id = word("where");
        const xfn::Attribute found(fn_attr_get(context.get(), name_of("").get(), &id, 0, status));
        ASSERT_EQ(status.code(), FN_SUCCESS);
        EXPECT_EQ(naming::values_of(found.get()), Values{name});
    }
    // A spoiled address is refused, or leads somewhere; it crashes nothing.
    naming::Status status;
    const xfn::Reference good(
        fn_ctx_lookup(store.initial.get(), name_of("user/alice").get(), status));
    void *position = nullptr;
    const FN_ref_addr_t *address = fn_ref_first(good.get(), &position);
    const auto *data = static_cast<const uint8_t *>(fn_ref_addr_data(address));
    each_spoiled({data, data + fn_ref_addr_length(address)},
                 [&](const Bytes &spoiled, const std::string &) {
                     const xfn::Reference ref(fn_ref_create(fn_ref_type(good.get())));
                     const xfn::Address bad(fn_ref_addr_create(fn_ref_addr_type(address),
                                                               spoiled.size(), spoiled.data()));
                     fn_ref_append_addr(ref.get(), bad.get());
                     const naming::Context context(fn_ctx_handle_from_ref(ref.get(), 1, status));
                     EXPECT_EQ(context != nullptr, status.code() == FN_SUCCESS);
                 });
    const xfn::Reference empty(fn_ref_create(fn_ref_type(good.get())));
    EXPECT_EQ(fn_ctx_handle_from_ref(empty.get(), 1, status), nullptr);
    EXPECT_EQ(status.code(), FN_E_NO_SUPPORTED_ADDRESS);
}

TEST(Context, EntriesComeAndGo) {
    const Store store;
    EXPECT_EQ(store.destroy("user/alice"), FN_SUCCESS) << "without a file";
    EXPECT_EQ(store.list("user"), Values());
    EXPECT_EQ(store.create("user/alice"), FN_SUCCESS);
    EXPECT_EQ(store.create("user/alice"), FN_E_NAME_IN_USE);
    EXPECT_EQ(store.create("user"), FN_E_NAME_IN_USE);
    EXPECT_EQ(store.create("printer"), FN_E_NAME_NOT_FOUND);
    EXPECT_EQ(store.destroy("user"), FN_E_OPERATION_NOT_SUPPORTED);
    EXPECT_EQ(store.write("user/alice", kDn, {"cn=a"}), FN_SUCCESS);
    EXPECT_EQ(store.destroy("user/alice"), FN_SUCCESS);
    EXPECT_EQ(store.create("user/alice"), FN_SUCCESS);
    EXPECT_EQ(store.get("user/alice", kDn), code(FN_E_NO_SUCH_ATTRIBUTE)) << "of the old entry";
    EXPECT_EQ(store.search("user", {{kDn, {"cn=a"}}}), Values());
    EXPECT_EQ(store.create(".../x"), FN_SUCCESS);
    EXPECT_EQ(store.list(""), (Values{"user", "host", ".../x"}));
    EXPECT_EQ(store.list("user/alice"), code(FN_E_NOT_A_CONTEXT));
    EXPECT_EQ(store.list("user/bob"), code(FN_E_NAME_NOT_FOUND));
}

TEST(Attributes, Operations) {
    const Store store;
    const struct {
        const char *why;
        Values before; // {"-"}: no attribute
        unsigned operation;
        Values values;
        unsigned code;
        Values after;
    } cases[] = {
        {"make", {"-"}, FN_ATTR_OP_ADD, {"b", "a"}, FN_SUCCESS, {"b", "a"}},
        {"replace", {"a", "b"}, FN_ATTR_OP_ADD, {"c", "b"}, FN_SUCCESS, {"c", "b"}},
        {"an equal value once", {"-"}, FN_ATTR_OP_ADD, {"a", "a"}, FN_SUCCESS, {"a"}},
        {"without values", {"a"}, FN_ATTR_OP_ADD, {}, FN_SUCCESS, {}},
        {"only if new", {"-"}, FN_ATTR_OP_ADD_EXCLUSIVE, {"a"}, FN_SUCCESS, {"a"}},
        {"it is not new", {"a"}, FN_ATTR_OP_ADD_EXCLUSIVE, {"b"}, FN_E_ATTR_IN_USE, {"a"}},
        {"remove", {"a", "b"}, FN_ATTR_OP_REMOVE, {"x"}, FN_SUCCESS, {"-"}},
        {"remove nothing", {"-"}, FN_ATTR_OP_REMOVE, {}, FN_SUCCESS, {"-"}},
        {"add values", {"b"}, FN_ATTR_OP_ADD_VALUES, {"a", "b"}, FN_SUCCESS, {"b", "a"}},
        {"add to nothing", {"-"}, FN_ATTR_OP_ADD_VALUES, {"a"}, FN_SUCCESS, {"a"}},
        {"take values",
         {"a", "b", "c"},
         FN_ATTR_OP_REMOVE_VALUES,
         {"b", "x"},
         FN_SUCCESS,
         {"a", "c"}},
        {"take the last", {"a"}, FN_ATTR_OP_REMOVE_VALUES, {"a"}, FN_SUCCESS, {"-"}},
        {"take from nothing", {"-"}, FN_ATTR_OP_REMOVE_VALUES, {"a"}, FN_SUCCESS, {"-"}},
        {"no such operation", {"a"}, 6, {"b"}, FN_E_OPERATION_NOT_SUPPORTED, {"a"}},
        {"no operation", {"a"}, 0, {"b"}, FN_E_OPERATION_NOT_SUPPORTED, {"a"}},
    };
    for (const char *name : {"user/alice", "host/h", ".../C=US/O=x, y"}) {
        ASSERT_EQ(store.create(name), FN_SUCCESS);
        for (const auto &row : cases) {
            SCOPED_TRACE(std::string(row.why) + ": " + name);
            const bool is_there = row.before != Values{"-"};
            ASSERT_EQ(store.write(name, "a", is_there ? row.before : Values(),
                                  is_there ? FN_ATTR_OP_ADD : FN_ATTR_OP_REMOVE),
                      FN_SUCCESS);
            EXPECT_EQ(store.write(name, "a", row.values, row.operation), row.code);
            EXPECT_EQ(store.get(name, "a"),
                      row.after == Values{"-"} ? code(FN_E_NO_SUCH_ATTRIBUTE) : row.after);
        }
    }
}

TEST(Attributes, OfNamesThatAreNotThere) {
    const Store store;
    EXPECT_EQ(store.write("user/alice", "a", {"x"}), FN_E_NAME_NOT_FOUND);
    EXPECT_EQ(store.get("user/alice", "a"), code(FN_E_NAME_NOT_FOUND));
    EXPECT_EQ(store.get("user", "a"), code(FN_E_NO_SUCH_ATTRIBUTE));
    EXPECT_EQ(store.write("user", "a", {"x"}), FN_E_OPERATION_NOT_SUPPORTED);
    // An addition makes a global name; a removal does not.
    EXPECT_EQ(store.write(".../x", "a", {}, FN_ATTR_OP_REMOVE), FN_E_NAME_NOT_FOUND);
    EXPECT_EQ(store.lookup(".../x"), FN_E_NAME_NOT_FOUND);
    EXPECT_EQ(store.write(".../x", "a", {"x"}), FN_SUCCESS);
    EXPECT_EQ(store.get(".../x", "a"), Values{"x"});
    EXPECT_EQ(store.write(".../x", "a", {}, FN_ATTR_OP_REMOVE), FN_SUCCESS);
    EXPECT_EQ(store.get(".../x", "a"), code(FN_E_NO_SUCH_ATTRIBUTE));
}

TEST(Attributes, Bounds) {
    const Store store;
    ASSERT_EQ(store.create("user/alice"), FN_SUCCESS);
    Values many(xfn::max_values);
    for (std::size_t i = 0; i < many.size(); ++i)
        many[i] = std::to_string(i);
    EXPECT_EQ(store.write("user/alice", "a", many), FN_SUCCESS);
    EXPECT_EQ(store.get("user/alice", "a"), many);
    EXPECT_EQ(store.write("user/alice", "a", {"x"}, FN_ATTR_OP_ADD_VALUES),
              FN_E_TOO_MANY_ATTR_VALUES);
    EXPECT_EQ(store.get("user/alice", "a"), many);
    const std::string large(xfn::max_value, 'x');
    EXPECT_EQ(store.write("user/alice", "a", {large}), FN_SUCCESS);
    EXPECT_EQ(store.get("user/alice", "a"), Values{large});
    EXPECT_EQ(store.write("user/alice", "a", {large + "x"}), FN_E_INVALID_ATTR_VALUE);
    Values sum;
    for (char first = '0'; first < '5'; ++first)
        sum.push_back(first + large.substr(1));
    EXPECT_EQ(store.write("user/alice", "a", sum), FN_E_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(store.write("user/alice", "", {"x"}), FN_E_INVALID_ATTR_IDENTIFIER);
    EXPECT_EQ(store.write("user/alice", std::string(1025, 'x'), {"x"}),
              FN_E_INVALID_ATTR_IDENTIFIER);
    EXPECT_EQ(store.create("user/" + std::string(xfn::max_name, 'x')), FN_SUCCESS);
    EXPECT_EQ(store.create("user/" + std::string(xfn::max_name + 1, 'x')), FN_E_ILLEGAL_NAME);
    for (std::size_t i = 1; i < xfn::max_attributes; ++i)
        ASSERT_EQ(store.write("user/alice", std::to_string(i), {}), FN_SUCCESS);
    EXPECT_EQ(store.write("user/alice", "one more", {}), FN_E_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(store.write("user/alice", "a", {}), FN_SUCCESS);
}

TEST(Attributes, AwkwardTextsComeBack) {
    const Store store;
    const Values texts = {"a,b=c;d",
                          "per%cent %s %n",
                          "line\nbreak\r\n\ttab",
                          "'quoted' \"twice\"",
                          "'; DROP TABLE entry; --",
                          "back\\slash/and/slash",
                          "gr\xc3\xbc\xc3\x9f \xe2\x82\xac \xf0\x9f\x94\x91",
                          "no utf-8 \xff\xfe\x80",
                          " ",
                          "...",
                          "*",
                          std::string(10000, '%')};
    Values values = texts;
    values.push_back(std::string("zero\0byte\0", 10));
    values.push_back("");
    for (const std::string &text : texts) {
        SCOPED_TRACE(text.substr(0, 40));
        const naming::Context users = store.context("user");
        const xfn::CompositeName name = naming::component(text);
        naming::Status status;
        const xfn::Reference ref(fn_ctx_create_subcontext(users.get(), name.get(), status));
        ASSERT_EQ(status.code(), FN_SUCCESS);
        const std::string id = text.substr(0, 1000);
        Values own = values;
        own.push_back("of " + text);
        ASSERT_TRUE(fn_attr_modify(users.get(), name.get(), FN_ATTR_OP_ADD,
                                   attribute(id, own).get(), 1, status));
        const FN_identifier_t id_word = word(id);
        const xfn::Attribute found(fn_attr_get(users.get(), name.get(), &id_word, 1, status));
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(naming::values_of(found.get()), own);
        EXPECT_EQ(xfn::view(*fn_attribute_syntax(found.get())), "fn_attr_syntax_binary");
        EXPECT_EQ(store.search("user", {{id, {"of " + text}}}), Values{text});
        EXPECT_EQ(store.search("user", {{id, own}}), Values{text});
    }
    Values sorted = texts;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(store.list("user"), sorted);
}

TEST(Attributes, SeveralAtOnce) {
    const Store store;
    ASSERT_EQ(store.create("user/alice"), FN_SUCCESS);
    for (const char *id : {"a", "b", "c"})
        ASSERT_EQ(store.write("user/alice", id, {id}), FN_SUCCESS);
    const auto get = [&](const FN_attrset_t *wanted) {
        naming::Status status;
        FN_multigetlist_t *list =
            fn_attr_multi_get(store.initial.get(), name_of("user/alice").get(), wanted, 1, status);
        Values found;
        for (FN_attribute_t *one; (one = fn_multigetlist_next(list, status)) != nullptr;) {
            found.push_back(naming::values_of(one)[0]);
            fn_attribute_destroy(one);
        }
        fn_multigetlist_destroy(list);
        std::sort(found.begin(), found.end());
        return found;
    };
    const xfn::AttributeSet wanted(fn_attrset_create());
    EXPECT_EQ(get(nullptr), (Values{"a", "b", "c"}));
    EXPECT_EQ(get(wanted.get()), Values());
    for (const char *id : {"c", "x", "a"})
        EXPECT_TRUE(fn_attrset_add(wanted.get(), attribute(id, {}).get(), 1));
    EXPECT_EQ(get(wanted.get()), (Values{"a", "c"}));
    EXPECT_FALSE(fn_attrset_add(wanted.get(), attribute("a", {"new"}).get(), 1));
    EXPECT_TRUE(fn_attrset_add(wanted.get(), attribute("a", {"new"}).get(), 0));
    const FN_identifier_t a = word("a");
    EXPECT_EQ(naming::values_of(fn_attrset_get(wanted.get(), &a)), Values{"new"});
    EXPECT_EQ(fn_attrset_count(wanted.get()), 3u);

    naming::Status status;
    const xfn::AttributeSet ids(
        fn_attr_get_ids(store.initial.get(), name_of("user/alice").get(), 1, status));
    EXPECT_EQ(fn_attrset_count(ids.get()), 3u);
    EXPECT_EQ(fn_attribute_valuecount(fn_attrset_get(ids.get(), &a)), 0u);
}

// ---- Lost updates ---------------------------------------------------------------------------------

TEST(Expectation, LetsOneOfTwoThrough) {
    const Store store;
    ASSERT_EQ(store.create("user/alice"), FN_SUCCESS);
    const auto read = [&] {
        unsigned status = 0;
        return store.read("user/alice", "a", &status);
    };
    const auto write = [&](const xfn::Attribute &attr, const FN_attribute_t *found,
                           unsigned operation = FN_ATTR_OP_ADD) {
        fn_attribute_expect(attr.get(), found);
        return store.write("user/alice", attr, operation);
    };
    const xfn::Attribute first = attribute("a", {"1"}), second = attribute("a", {"2"});
    EXPECT_EQ(write(first, nullptr), FN_SUCCESS) << "there was none";
    EXPECT_EQ(write(second, nullptr), FN_E_ATTR_CHANGED) << "there is one now";
    EXPECT_EQ(write(second, second.get()), FN_E_ATTR_CHANGED) << "it was made, not read";
    EXPECT_EQ(store.get("user/alice", "a"), Values{"1"});

    const xfn::Attribute mine = read(), theirs = read();
    EXPECT_EQ(write(theirs, theirs.get()), FN_SUCCESS);
    EXPECT_EQ(write(mine, mine.get()), FN_E_ATTR_CHANGED) << "even by a write of the same values";
    EXPECT_EQ(write(mine, mine.get(), FN_ATTR_OP_REMOVE), FN_E_ATTR_CHANGED);
    const xfn::Attribute copy(fn_attribute_copy(read().get()));
    EXPECT_EQ(write(copy, copy.get()), FN_SUCCESS) << "a copy was read, too";

    const xfn::Attribute old = read();
    EXPECT_EQ(store.write("user/alice", "a", {}, FN_ATTR_OP_REMOVE), FN_SUCCESS);
    EXPECT_EQ(write(old, old.get(), FN_ATTR_OP_REMOVE), FN_E_ATTR_CHANGED) << "it has gone";
    EXPECT_EQ(store.write("user/alice", "a", {"1"}), FN_SUCCESS);
    EXPECT_EQ(write(old, old.get()), FN_E_ATTR_CHANGED) << "numbers come only once";
    EXPECT_EQ(store.destroy("user/alice"), FN_SUCCESS);
    EXPECT_EQ(store.create("user/alice"), FN_SUCCESS);
    EXPECT_EQ(store.write("user/alice", "a", {"1"}), FN_SUCCESS);
    EXPECT_EQ(write(old, old.get()), FN_E_ATTR_CHANGED) << "also in another entry of the name";
    const xfn::Attribute last = read();
    EXPECT_EQ(write(last, last.get(), FN_ATTR_OP_REMOVE), FN_SUCCESS);
}

// ---- Search ---------------------------------------------------------------------------------------

TEST(Search, Matches) {
    const Store store;
    for (const char *name : {"user/a", "user/b", "user/c", "host/a", ".../x"}) {
        ASSERT_EQ(store.create(name), FN_SUCCESS);
        ASSERT_EQ(store.write(name, "all", {"1", "2"}), FN_SUCCESS);
        ASSERT_EQ(store.write(name, "own", {name}), FN_SUCCESS);
    }
    ASSERT_EQ(store.write("user/b", "some", {}), FN_SUCCESS);
    ASSERT_EQ(store.write("user/c", "some", {"1"}), FN_SUCCESS);
    const struct {
        const char *why, *context;
        std::vector<std::pair<std::string, Values>> match;
        Values names;
    } cases[] = {
        {"all in the context", "user", {{"all", {"1"}}}, {"a", "b", "c"}},
        {"only there", "host", {{"all", {"2"}}}, {"a"}},
        {"global names", "", {{"all", {"1"}}}, {".../x"}},
        {"every value", "user", {{"all", {"1", "2", "3"}}}, {}},
        {"every attribute", "user", {{"all", {"1"}}, {"own", {"user/b"}}}, {"b"}},
        {"one that is not there", "user", {{"own", {"user/b"}}, {"x", {"1"}}}, {}},
        {"the value of another attribute", "user", {{"all", {"user/b"}}}, {}},
        {"without values it must be there", "user", {{"some", {}}}, {"b", "c"}},
        {"both kinds", "user", {{"some", {}}, {"all", {"2"}}}, {"b", "c"}},
        {"nothing to match", "user", {}, {"a", "b", "c"}},
        {"an entry", "user/a", {{"all", {"1"}}}, code(FN_E_NOT_A_CONTEXT)},
        {"a name that is not there", "x", {{"all", {"1"}}}, code(FN_E_NAME_NOT_FOUND)},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(store.search(row.context, row.match), row.names);
    }
}

TEST(Search, GivesReferencesAndAttributes) {
    const Store store;
    ASSERT_EQ(store.create("user/a"), FN_SUCCESS);
    ASSERT_EQ(store.write("user/a", kDn, {"cn=a"}), FN_SUCCESS);
    ASSERT_EQ(store.write("user/a", kCerts, {"der"}), FN_SUCCESS);
    naming::Status status;
    const xfn::AttributeSet wanted(fn_attrset_create()), match(fn_attrset_create());
    fn_attrset_add(wanted.get(), attribute(kCerts, {}).get(), 0);
    fn_attrset_add(match.get(), attribute(kDn, {"cn=a"}).get(), 0);
    FN_searchlist_t *list = prelim_fn_attr_search(store.initial.get(), name_of("user").get(),
                                                  match.get(), 1, wanted.get(), status);
    FN_ref_t *ref = nullptr;
    FN_attrset_t *attributes = nullptr;
    const xfn::String name(prelim_fn_searchlist_next(list, &ref, &attributes, status));
    ASSERT_NE(name, nullptr);
    EXPECT_STREQ(name->bytes, "a");
    const naming::Context context(fn_ctx_handle_from_ref(ref, 1, status));
    EXPECT_NE(context, nullptr);
    ASSERT_EQ(fn_attrset_count(attributes), 1u);
    void *position = nullptr;
    EXPECT_EQ(naming::values_of(fn_attrset_first(attributes, &position)), Values{"der"});
    fn_ref_destroy(ref);
    fn_attrset_destroy(attributes);
    EXPECT_EQ(prelim_fn_searchlist_next(list, &ref, &attributes, status), nullptr);
    EXPECT_EQ(status.code(), FN_SUCCESS);
    EXPECT_EQ(ref, nullptr);
    prelim_fn_searchlist_destroy(list);
}

TEST(Search, GoesOnPageByPage) {
    const Store store;
    constexpr int count = 600; // more than two pages
    Values names;
    for (int i = 0; i < count; ++i) {
        char name[32];
        snprintf(name, sizeof name, "u%03d", i);
        names.push_back(name);
        ASSERT_EQ(store.create("user/" + names.back()), FN_SUCCESS);
        ASSERT_EQ(store.write("user/" + names.back(), "all", {"1"}), FN_SUCCESS);
    }
    EXPECT_EQ(store.list("user"), names);
    EXPECT_EQ(store.search("user", {{"all", {"1"}}}), names);
    EXPECT_EQ(store.search("user", {{"all", {}}}), names);
}

// ---- Faults ---------------------------------------------------------------------------------------

TEST(Faults, EveryAllocation) {
    const Store store;
    ASSERT_EQ(store.create("user/alice"), FN_SUCCESS);
    ASSERT_EQ(store.write("user/alice", kDn, {"cn=a", "cn=b"}), FN_SUCCESS);
    naming::Status status;
    int round = 0;
    fault::each_allocation([&] {
        // What is under way: every object made, a change, a read, a list and a search.
        const std::string name_text = "user/alice", new_text = "user/u" + std::to_string(++round);
        unsigned code = FN_SUCCESS;
        const auto note = [&] {
            if (code == FN_SUCCESS)
                code = status.code();
        };
        const FN_identifier_t id = word(kDn);
        const naming::Context context(
            xfn::initial_context(store.config.c_str(), FN_NS_FILES, status));
        note();
        const xfn::CompositeName name = name_of(name_text), fresh = name_of(new_text),
                                 users = name_of("user");
        if (context == nullptr || name == nullptr || fresh == nullptr || users == nullptr) {
            EXPECT_TRUE(fault::met());
            return;
        }
        const xfn::Reference made(fn_ctx_create_subcontext(context.get(), fresh.get(), status));
        note();
        const xfn::Attribute found(fn_attr_get(context.get(), name.get(), &id, 1, status));
        note();
        if (found != nullptr) {
            EXPECT_EQ(fn_attribute_valuecount(found.get()), 2u);
            fn_attr_modify(context.get(), name.get(), FN_ATTR_OP_ADD, found.get(), 1, status);
            note();
        }
        const xfn::AttributeSet match(fn_attrset_create());
        if (match != nullptr && found != nullptr &&
            fn_attrset_add(match.get(), found.get(), 0) != 0) {
            FN_searchlist_t *list =
                prelim_fn_attr_search(context.get(), users.get(), match.get(), 1, nullptr, status);
            note();
            FN_ref_t *ref = nullptr;
            FN_attrset_t *attributes = nullptr;
            const xfn::String hit(prelim_fn_searchlist_next(list, &ref, &attributes, status));
            if (list != nullptr)
                note();
            EXPECT_EQ(hit != nullptr, ref != nullptr);
            EXPECT_EQ(hit != nullptr, attributes != nullptr);
            fn_ref_destroy(ref);
            fn_attrset_destroy(attributes);
            prelim_fn_searchlist_destroy(list);
        } else {
            EXPECT_TRUE(fault::met());
        }
        if (code != FN_SUCCESS) {
            EXPECT_EQ(code, FN_E_INSUFFICIENT_RESOURCES);
            EXPECT_TRUE(fault::met());
        }
    });
    EXPECT_EQ(store.get("user/alice", kDn), (Values{"cn=a", "cn=b"}));
}
