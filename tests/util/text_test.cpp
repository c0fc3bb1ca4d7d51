#include "support/fault.h"
#include "support/files.h"

#include <qel/qelp.h>

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

namespace {

struct FormatCase {
    const char *reason;
    size_t size;
    const char *text;
    int result;
    const char *written; // null: nothing
};

const FormatCase kFormatCases[] = {
    {"no room at all", 0, "x", 1, nullptr},
    {"a size beyond 31 bits", 0x80000000u, "x", 1, nullptr},
    {"the largest size", 0x7FFFFFFF, "x", 0, "x"},
    {"room for the NUL alone", 1, "x", 0, ""},
    {"cut to fit", 4, "abcdef", 0, "abc"},
    {"a just fit", 4, "abc", 0, "abc"},
};

TEST(Text, BoundedFormatting) {
    for (const FormatCase &row : kFormatCases) {
        SCOPED_TRACE(row.reason);
        char buffer[8];
        std::memset(buffer, '#', sizeof buffer);
        EXPECT_EQ(__qel_snprintf(buffer, row.size, "%s", row.text), row.result);
        const std::string expected = row.written != nullptr ? row.written : "";
        const std::size_t touched = row.written != nullptr ? expected.size() + 1 : 0;
        EXPECT_EQ(std::string(buffer, expected.size()), expected);
        EXPECT_TRUE(touched == 0 || buffer[touched - 1] == '\0');
        for (std::size_t i = touched; i < sizeof buffer; ++i)
            EXPECT_EQ(buffer[i], '#') << i;
    }
    EXPECT_EQ(__qel_snprintf(nullptr, 4, "x"), 1);
}

TEST(Text, FormattingThatFails) {
    char buffer[8] = "#######";
    EXPECT_EQ(__qel_snprintf(buffer, sizeof buffer, "%ls", L"\x110000"), 1);
    EXPECT_STREQ(buffer, "");
}

struct UpCase {
    const char *reason;
    const char *text;
    int mode;
    QelStatus status;
    const char *result;
};

const UpCase kUpCases[] = {
    {"mode 1 escapes commas", "cn=a,b", 1, QEL_OK, "CN=A\\,B"},
    {"mode 2 does not", "cn=a,b", 2, QEL_OK, "CN=A,B"},
    {"an escaped comma is escaped again", "a\\,b", 1, QEL_OK, "A\\\\,B"},
    {"commas only", ",,,", 1, QEL_OK, "\\,\\,\\,"},
    {"the ends of the alphabet", "`az{@AZ[", 1, QEL_OK, "`AZ{@AZ["},
    {"other letters stay", "\xe4\xc3\xa4", 2, QEL_OK, "\xe4\xc3\xa4"},
    {"mode 0", "a", 0, QEL_ERR_BAD_PARAM, nullptr},
    {"mode 3", "a", 3, QEL_ERR_BAD_PARAM, nullptr},
    {"an empty string", "", 1, QEL_ERR_BAD_PARAM, nullptr},
    {"a null string", nullptr, 1, QEL_ERR_BAD_PARAM, nullptr},
};

TEST(Text, UpperCase) {
    for (const UpCase &row : kUpCases) {
        SCOPED_TRACE(row.reason);
        char unset[] = "unset";
        char *result = unset;
        EXPECT_EQ(__qel_str_up(row.text, row.mode, &result), row.status);
        EXPECT_STREQ(result, row.result);
        std::free(result);
    }
    EXPECT_EQ(__qel_str_up("a", 1, nullptr), QEL_ERR_BAD_PARAM);
    fault::each_allocation([] {
        char *result = nullptr;
        const QelStatus status = __qel_str_up("a,b", 1, &result);
        EXPECT_EQ(status, fault::met() ? QEL_ERR_NO_MEMORY : QEL_OK);
        EXPECT_EQ(result == nullptr, fault::met());
        std::free(result);
    });
}

// Changes the working folder for one test.
class FileNames : public testing::Test {
protected:
    void SetUp() override { before = std::filesystem::current_path(); }
    void TearDown() override { std::filesystem::current_path(before); }
    std::filesystem::path before;
    TemporaryFolder folder;
};

std::string absolute(const char *name) {
    char *result = nullptr;
    EXPECT_EQ(__qel_get_fname(name, &result), QEL_OK);
    const std::string text = result != nullptr ? result : "";
    std::free(result);
    return text;
}

TEST_F(FileNames, AreMadeAbsolute) {
    std::filesystem::current_path("/tmp");
    EXPECT_EQ(absolute("x"), "/tmp/x");
    EXPECT_EQ(absolute("../x"), "/tmp/../x");
    EXPECT_EQ(absolute("/a/b"), "/a/b");
    EXPECT_EQ(absolute(""), "/tmp/");
    std::filesystem::current_path("/");
    EXPECT_EQ(absolute("x"), "//x");
}

TEST_F(FileNames, WorkingFoldersThatCannotBeNamed) {
    char unset[] = "unset";
    char *result = unset;
    const std::string gone = folder.path("gone");
    std::filesystem::create_directory(gone);
    std::filesystem::current_path(gone);
    std::filesystem::remove(gone);
    EXPECT_EQ(__qel_get_fname("x", &result), QEL_ERR_GENERAL);
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(absolute("/x"), "/x"); // does not ask

    const std::string component(200, 'd');
    std::string deep = folder.path("deep");
    for (int i = 0; i < 6; ++i)
        deep += '/' + component;
    std::filesystem::create_directories(deep);
    std::filesystem::current_path(deep);
    EXPECT_EQ(__qel_get_fname("x", &result), QEL_ERR_GENERAL); // more than 1024 bytes
}

TEST_F(FileNames, NullArgumentsAndNoMemory) {
    char unset[] = "unset";
    char *result = unset;
    EXPECT_EQ(__qel_get_fname(nullptr, &result), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(__qel_get_fname("x", nullptr), QEL_ERR_BAD_PARAM);
    for (const char *name : {"/a", "a"})
        fault::each_allocation([&] {
            char *path = nullptr;
            const QelStatus status = __qel_get_fname(name, &path);
            EXPECT_EQ(status, fault::met() ? QEL_ERR_NO_MEMORY : QEL_OK);
            EXPECT_EQ(path == nullptr, fault::met());
            std::free(path);
        });
}

struct DecimalCase {
    int32_t number;
    const char *text;
};

const DecimalCase kDecimalCases[] = {
    {0, "0"},
    {7, "7"},
    {-1, "-1"},
    {10, "10"},
    {-305, "-305"},
    {123456789, "123456789"},
    {INT32_MAX, "2147483647"},
    {INT32_MIN, "-2147483648"},
};

TEST(Text, DecimalDigits) {
    for (const DecimalCase &row : kDecimalCases) {
        char text[13];
        std::memset(text, '#', sizeof text);
        __qel_itoa(row.number, text);
        EXPECT_STREQ(text, row.text);
        EXPECT_EQ(text[12], '#');
    }
    __qel_itoa(1, nullptr);
}

} // namespace
