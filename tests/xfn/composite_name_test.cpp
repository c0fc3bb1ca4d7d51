// Composite names between text and components.

#include "naming.h"

#include <random>

using naming::Values;

namespace {

std::optional<Values> components(const std::string &text) {
    const xfn::CompositeName name = naming::name_of(text);
    if (name == nullptr)
        return std::nullopt;
    Values parts;
    void *position = nullptr;
    for (auto *part = fn_composite_name_first(name.get(), &position); part != nullptr;
         part = fn_composite_name_next(name.get(), &position))
        parts.emplace_back(xfn::view(part));
    EXPECT_EQ(fn_composite_name_count(name.get()), parts.size());
    return parts;
}

std::string text_of(const Values &parts) {
    xfn::CompositeName name(fn_composite_name_create());
    for (const std::string &part : parts) {
        const xfn::String string(xfn::make_string(part));
        fn_composite_name_append_comp(name.get(), string.get());
    }
    const xfn::String text(fn_string_from_composite_name(name.get(), nullptr));
    return std::string(xfn::view(text.get()));
}

} // namespace

TEST(CompositeName, Parses) {
    const struct {
        const char *why, *text;
        std::optional<Values> components;
    } cases[] = {
        {"nothing is no component", "", Values{}},
        {"one component", "alice", Values{"alice"}},
        {"a slash separates", "user/alice", Values{"user", "alice"}},
        {"empty in front", "/a", Values{"", "a"}},
        {"empty behind", "a/", Values{"a", ""}},
        {"empty between", "a//b", Values{"a", "", "b"}},
        {"as many empty ones as slashes", "//", Values{"", ""}},
        {"a quoted empty one is one", "''", Values{""}},
        {"a quoted empty one counts beside slashes", "/''", Values{"", ""}},
        {"double quotes hide a slash", "\"a/b\"/c", Values{"a/b", "c"}},
        {"single quotes hide the other quote", "'a\"b'", Values{"a\"b"}},
        {"a quote inside stands for itself", "O'Neill", Values{"O'Neill"}},
        {"an escaped quote in front", "\\'a", Values{"'a"}},
        {"an escaped slash", "a\\/b", Values{"a/b"}},
        {"an escaped backslash", "a\\\\b", Values{"a\\b"}},
        {"a backslash before others", "a\\b", Values{"a\\b"}},
        {"an escaped quote in a quotation", "'a\\'b'", Values{"a'b"}},
        {"the other quote needs none there", "'a\\\"b'", Values{"a\\\"b"}},
        {"a global name", ".../C=US/O=x", Values{"...", "C=US", "O=x"}},
        {"an open quotation", "'a", std::nullopt},
        {"something behind a quotation", "'a'b", std::nullopt},
        {"a backslash at the end", "a\\", std::nullopt},
        {"a backslash at the end of an open quotation", "'a\\", std::nullopt},
        {"the closing quote is escaped", "'a\\'", std::nullopt},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(components(row.text), row.components);
    }
}

TEST(CompositeName, ComesBackFromItsText) {
    std::mt19937 random(1);
    const std::string characters = "/\\\"'ab.";
    for (int round = 0; round < 20000; ++round) {
        Values parts(random() % 4);
        for (std::string &part : parts)
            for (auto left = random() % 5; left != 0; --left)
                part += characters[random() % characters.size()];
        const std::string text = text_of(parts);
        ASSERT_EQ(components(text), parts) << text;
        ASSERT_EQ(text_of(*components(text)), text);
    }
}

TEST(CompositeName, IsWalkedAndSplit) {
    const xfn::CompositeName name = naming::name_of("a/b/c");
    void *position = nullptr;
    EXPECT_EQ(xfn::view(fn_composite_name_last(name.get(), &position)), "c");
    EXPECT_EQ(fn_composite_name_next(name.get(), &position), nullptr);
    EXPECT_EQ(fn_composite_name_next(name.get(), &position), nullptr);
    EXPECT_EQ(xfn::view(fn_composite_name_prev(name.get(), &position)), "c");
    EXPECT_EQ(xfn::view(fn_composite_name_prev(name.get(), &position)), "b");
    const xfn::CompositeName front(fn_composite_name_prefix(name.get(), position)),
        back(fn_composite_name_suffix(name.get(), position));
    EXPECT_TRUE(fn_composite_name_is_equal(front.get(), naming::name_of("a").get(), nullptr));
    EXPECT_TRUE(fn_composite_name_is_equal(back.get(), naming::name_of("b/c").get(), nullptr));
    EXPECT_FALSE(fn_composite_name_is_equal(back.get(), front.get(), nullptr));
    EXPECT_EQ(xfn::view(fn_composite_name_prev(name.get(), &position)), "a");
    EXPECT_EQ(fn_composite_name_prev(name.get(), &position), nullptr);
    EXPECT_EQ(fn_composite_name_prev(name.get(), &position), nullptr);
}
