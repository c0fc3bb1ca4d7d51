#include "support/made.h"

#include <qel/qelp.h>

#include <filesystem>

namespace {

TEST(Text, BoundedFormatting) {
    const struct {
        const char *reason;
        size_t size;
        const char *text;
        int result;
        std::string buffer; // of 8 characters, '#' before
    } rows[] = {
        {"no room at all", 0, "x", 1, "########"},
        {"a size beyond 31 bits", 0x80000000u, "x", 1, "########"},
        {"the largest size", 0x7FFFFFFF, "x", 0, {"x\0######", 8}},
        {"room for the NUL alone", 1, "x", 0, {"\0#######", 8}},
        {"cut to fit", 4, "abcdef", 0, {"abc\0####", 8}},
        {"a just fit", 4, "abc", 0, {"abc\0####", 8}},
    };
    for (const auto &row : rows) {
        std::string buffer(8, '#');
        EXPECT_EQ(__qel_snprintf(buffer.data(), row.size, "%s", row.text), row.result)
            << row.reason;
        EXPECT_EQ(buffer, row.buffer) << row.reason;
    }
    EXPECT_EQ(__qel_snprintf(nullptr, 4, "x"), 1);
    char unprintable[8] = "#######";
    EXPECT_EQ(__qel_snprintf(unprintable, sizeof unprintable, "%ls", L"\x110000"), 1);
    EXPECT_STREQ(unprintable, "");
}

TEST(Text, UpperCase) {
    const struct {
        const char *reason;
        const char *text;
        int mode;
        const char *result; // null: refused
    } rows[] = {
        {"mode 1 escapes commas", "cn=a,b", 1, "CN=A\\,B"},
        {"mode 2 does not", "cn=a,b", 2, "CN=A,B"},
        {"an escaped comma is escaped again", "a\\,b", 1, "A\\\\,B"},
        {"commas only", ",,,", 1, "\\,\\,\\,"},
        {"the ends of the alphabet", "`az{@AZ[", 1, "`AZ{@AZ["},
        {"other letters stay", "\xe4\xc3\xa4", 2, "\xe4\xc3\xa4"},
        {"mode 0", "a", 0, nullptr},
        {"mode 3", "a", 3, nullptr},
        {"an empty string", "", 1, nullptr},
        {"a null string", nullptr, 1, nullptr},
    };
    for (const auto &row : rows)
        EXPECT_EQ(made_by([&](char **text) { return __qel_str_up(row.text, row.mode, text); }),
                  row.result != nullptr ? Made(QEL_OK, row.result) : Made(QEL_ERR_BAD_PARAM, ""))
            << row.reason;
    EXPECT_EQ(__qel_str_up("a", 1, nullptr), QEL_ERR_BAD_PARAM);
    each_allocation_of([](char **text) { return __qel_str_up("a,b", 1, text); }, "A\\,B");
}

// Changes the working folder for one test.
class FileNames : public testing::Test {
protected:
    void TearDown() override { std::filesystem::current_path(before); }
    static Made absolute(const char *name) {
        return made_by([&](char **path) { return __qel_get_fname(name, path); });
    }
    const std::filesystem::path before = std::filesystem::current_path();
    TemporaryFolder folder;
};

TEST_F(FileNames, AreMadeAbsolute) {
    std::filesystem::current_path("/tmp");
    EXPECT_EQ(absolute("x"), Made(QEL_OK, "/tmp/x"));
    EXPECT_EQ(absolute("../x"), Made(QEL_OK, "/tmp/../x"));
    EXPECT_EQ(absolute("/a/b"), Made(QEL_OK, "/a/b"));
    EXPECT_EQ(absolute(""), Made(QEL_OK, "/tmp/"));
    std::filesystem::current_path("/");
    EXPECT_EQ(absolute("x"), Made(QEL_OK, "//x"));
    EXPECT_EQ(absolute(nullptr), Made(QEL_ERR_BAD_PARAM, ""));
    EXPECT_EQ(__qel_get_fname("x", nullptr), QEL_ERR_BAD_PARAM);
    each_allocation_of([](char **path) { return __qel_get_fname("/a", path); }, "/a");
    each_allocation_of([](char **path) { return __qel_get_fname("a", path); }, "//a");
}

TEST_F(FileNames, WorkingFoldersThatCannotBeNamed) {
    const std::string gone = folder.path("gone");
    std::filesystem::create_directory(gone);
    std::filesystem::current_path(gone);
    std::filesystem::remove(gone);
    EXPECT_EQ(absolute("x"), Made(QEL_ERR_GENERAL, ""));
    EXPECT_EQ(absolute("/x"), Made(QEL_OK, "/x")); // does not ask

    const std::string component(200, 'd');
    std::string deep = folder.path("deep");
    for (int i = 0; i < 6; ++i)
        deep += '/' + component;
    std::filesystem::create_directories(deep);
    std::filesystem::current_path(deep);
    EXPECT_EQ(absolute("x"), Made(QEL_ERR_GENERAL, "")); // more than 1024 bytes
}

TEST(Text, DecimalDigits) {
    for (const int32_t number : {0, 7, -1, 10, -305, 123456789, INT32_MAX, INT32_MIN}) {
        char text[13];
        std::memset(text, '#', sizeof text);
        __qel_itoa(number, text);
        EXPECT_EQ(text, std::to_string(number));
        EXPECT_EQ(text[12], '#');
    }
    __qel_itoa(1, nullptr);
}

} // namespace
