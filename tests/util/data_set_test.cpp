#include "support/files.h"

#include <qel/qelp.h>

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <pwd.h>
#include <sys/stat.h>

namespace {

// The user database of the test.
std::string home = "/nowhere";
bool is_known = true;

} // namespace

extern "C" int getpwuid_r(uid_t uid, struct passwd *entry, char *work, size_t size,
                          struct passwd **found) {
    *found = nullptr;
    EXPECT_EQ(uid, getuid());
    if (!is_known)
        return 0;
    const std::string name = "alice";
    if (size < name.size() + home.size() + 2)
        return ERANGE;
    entry->pw_name = std::strcpy(work, name.c_str());
    entry->pw_dir = std::strcpy(work + name.size() + 1, home.c_str());
    *found = entry;
    return 0;
}

namespace {

class DataSet : public ::testing::Test {
protected:
    TemporaryFolder folder;
    const std::string out = folder.path("set");
    std::string got() const { return text_of(read_file(out)); }
};

QelDataSetItem item(const std::string &data) {
    return {reinterpret_cast<uint8_t *>(const_cast<char *>(data.data())),
            static_cast<uint32_t>(data.size())};
}

TEST_F(DataSet, items_stand_between_markers) {
    const struct {
        const char *reason;
        int kind, form;
        std::string begin, body, end; // what is written for "abc"
    } rows[] = {
        {"a certificate", 1, 2, "-----BEGIN CERTIFICATE-----\n", "YWJj\n",
         "-----END CERTIFICATE-----\n"},
        {"a key package", 2, 2, "-----BEGIN KEYPKG-----\n", "YWJj\n", "-----END KEYPKG-----\n"},
        {"in digits", 2, 3, "-----BEGIN KEYPKG-----\n", "616263\n", "-----END KEYPKG-----\n"},
        {"raw", 2, 1, "-----BEGIN KEYPKG-----\n", "abc\n", "-----END KEYPKG-----\n"},
        {"no kind, no markers", 0, 2, "", "YWJj\n", ""},
        {"both kinds are none", 3, 2, "", "YWJj\n", ""},
        {"a marker type that is no kind", 4, 2, "", "YWJj\n", ""},
    };
    const std::string data = "abc";
    const QelDataSetItem twice[] = {item(data), item(data)};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        const std::string appended = row.begin + row.body + row.end;
        const std::string first = row.begin + row.body + (row.form == 1 ? "" : "\n") + row.end;
        std::filesystem::remove(out);
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(__qel_dump_append_and_delimit(row.kind, out.c_str(), row.form, twice->data,
                                                    twice->length),
                      QEL_OK);
        EXPECT_EQ(got(), appended + appended);
        EXPECT_EQ(__qel_dump_data_set(row.kind, out.c_str(), row.form, 2, twice), QEL_OK);
        EXPECT_EQ(got(), first + appended);
    }
}

TEST_F(DataSet, lines_have_64_characters) {
    const std::string data(49, 'a');
    std::string line;
    while (line.size() < 64)
        line += "YWFh";
    const QelDataSetItem whole = item(data);
    EXPECT_EQ(__qel_dump_data_set(0, out.c_str(), 2, 1, &whole), QEL_OK);
    EXPECT_EQ(__qel_dump_append_and_delimit(0, out.c_str(), 2, whole.data, whole.length), QEL_OK);
    EXPECT_EQ(got(), line + "\nYQ==\n\n" + line + "\nYQ==\n");
}

TEST_F(DataSet, removed_items_are_left_out) {
    const struct {
        const char *reason;
        std::vector<std::string> items;
        std::string text; // "": the file is deleted
    } rows[] = {
        {"one stays", {"a"}, "YQ==\n\n"},
        {"the first is removed", {"", "b", "c"}, "Yg==\n\nYw==\n"},
        {"the second is removed", {"a", "", "c"}, "YQ==\n\nYw==\n"},
        {"the last is removed", {"a", ""}, "YQ==\n\n"},
        {"one is removed", {""}, ""},
        {"all are removed", {"", ""}, ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        std::vector<QelDataSetItem> items;
        for (const std::string &data : row.items)
            items.push_back(item(data));
        write_file(out, bytes_of("what the file held before"));
        EXPECT_EQ(__qel_dump_data_set(0, out.c_str(), 2, static_cast<uint32_t>(items.size()),
                                      items.data()),
                  QEL_OK);
        ASSERT_EQ(std::filesystem::exists(out), !row.text.empty());
        EXPECT_EQ(row.text.empty() ? "" : got(), row.text);
    }
    const QelDataSetItem removed = {nullptr, 0};
    EXPECT_EQ(__qel_dump_data_set(0, folder.path("none").c_str(), 2, 1, &removed), QEL_ERR_GENERAL);
}

TEST_F(DataSet, without_items_nothing_happens) {
    const QelDataSetItem items[] = {{nullptr, 1}, {nullptr, 0}};
    write_file(out, bytes_of("kept"));
    EXPECT_EQ(__qel_dump_data_set(1, out.c_str(), 2, 0, items), QEL_OK);
    EXPECT_EQ(__qel_dump_data_set(1, out.c_str(), 2, 5, nullptr), QEL_OK);
    EXPECT_EQ(__qel_dump_data_set(1, out.c_str(), 2, 2, items), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(got(), "kept");
}

TEST_F(DataSet, without_a_name_it_is_the_hidden_file_of_the_user) {
    home = std::filesystem::path(out).parent_path();
    const std::string hidden = folder.path(".alice.KEYPKG");
    const std::string data = "abc";
    const QelDataSetItem there = item(data);
    const QelDataSetItem removed = {nullptr, 0};
    for (const char *name : {static_cast<const char *>(nullptr), ""}) {
        EXPECT_EQ(__qel_dump_data_set(0, name, 2, 1, &there), QEL_OK);
        EXPECT_EQ(text_of(read_file(hidden)), "YWJj\n\n");
        EXPECT_EQ(__qel_dump_data_set(0, name, 2, 1, &removed), QEL_OK);
        EXPECT_FALSE(std::filesystem::exists(hidden));
        EXPECT_EQ(__qel_dump_data_set(0, name, 2, 1, &removed), QEL_ERR_GENERAL);
    }
    home = std::string(2000, '/');
    EXPECT_EQ(__qel_dump_data_set(0, nullptr, 2, 1, &there), QEL_ERR_UNKNOWN_USER);
    is_known = false;
    EXPECT_EQ(__qel_dump_data_set(0, nullptr, 2, 1, &there), QEL_ERR_UNKNOWN_USER);
    EXPECT_EQ(__qel_dump_data_set(0, nullptr, 2, 0, &there), QEL_OK);
    is_known = true;
}

} // namespace
