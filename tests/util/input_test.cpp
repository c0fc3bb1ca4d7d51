#include "support/made.h"
#include "support/process.h"
#include "support/secrets.h"

#include <qel/qelp.h>

#include <filesystem>
#include <sys/stat.h>

namespace {

class Input : public ::testing::Test {
protected:
    TemporaryFolder folder;
    const std::string in = folder.path("in");
};

// What is read has a spare zero byte behind it.
Made read_with(const std::function<QelStatus(uint8_t **, uint32_t *)> &reader) {
    return made_by([&](uint8_t **bytes, uint32_t *length) {
        const QelStatus status = reader(bytes, length);
        EXPECT_TRUE(status != QEL_OK || (*bytes)[*length] == 0) << "spare byte";
        return status;
    });
}

Made read_input(const char *name, int form) {
    return read_with([&](uint8_t **bytes, uint32_t *length) {
        return __qel_read_input(name, form, bytes, length);
    });
}

Made read_ostr_file(const char *name) {
    return read_with([&](uint8_t **bytes, uint32_t *length) {
        return __qel_read_ostr_file(name, bytes, length);
    });
}

Bytes sample(std::size_t size) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<uint8_t>(i * i / 7 + 1);
    return bytes;
}

TEST_F(Input, files_of_every_size_around_a_chunk) {
    for (const std::size_t size : {0, 1, 1023, 1024, 1025, 2048, 3073, 3074, 100000, 5000000}) {
        write_file(in, sample(size));
        EXPECT_TRUE(read_ostr_file(in.c_str()) == Made(QEL_OK, text_of(sample(size)))) << size;
    }
}

TEST_F(Input, no_name_is_standard_input) {
    const std::string text = text_of(sample(20000));
    for (const char *name : {static_cast<const char *>(nullptr), ""}) {
        EXPECT_TRUE(with_input(text, [&] { return read_ostr_file(name); }) == Made(QEL_OK, text));
        EXPECT_EQ(with_input("6 1", [&] { return read_input(name, 3); }), Made(QEL_OK, "a"));
    }
}

TEST_F(Input, forms) {
    const struct {
        const char *reason;
        int form;
        std::string text;
        Made made;
    } rows[] = {
        {"raw", 1, "YQ==\n", {QEL_OK, "YQ==\n"}},
        {"nothing, raw", 1, "", {QEL_OK, ""}},
        {"any other form is raw", 0, "YQ==\n", {QEL_OK, "YQ==\n"}},
        {"also beyond the last", 4, "0x61", {QEL_OK, "0x61"}},
        {"armour in lines", 2, "YWJj\nYQ==\n", {QEL_OK, "abca"}},
        {"armour with markers", 2, "-----BEGIN X-----\nYQ==\n", {QEL_ERR_FROM_RFC1421, ""}},
        {"no armour", 2, "", {QEL_ERR_BAD_PARAM, ""}},
        {"digits in lines with prefixes", 3, "  0x61\n  0x62\n", {QEL_OK, "ab"}},
        {"an odd number of digits",
         3,
         "261",
         {QEL_OK, "\x02"
                  "a"}},
        {"a character that is no digit", 3, "61g", {QEL_ERR_BAD_PARAM, ""}},
        {"no digits", 3, "", {QEL_ERR_BAD_PARAM, ""}},
    };
    for (const auto &row : rows) {
        write_file(in, bytes_of(row.text));
        EXPECT_EQ(read_input(in.c_str(), row.form), row.made) << row.reason;
    }
}

TEST_F(Input, reads_what_was_written) {
    for (const int form : {QEL_FORM_RAW, QEL_FORM_ARMOUR, QEL_FORM_HEX}) {
        for (const std::size_t size : {1, 48, 49, 5000}) {
            SCOPED_TRACE(size);
            const Bytes bytes = sample(size);
            const auto length = static_cast<uint32_t>(size);
            for (const uint32_t width : {0, 1, 3, 64}) {
                // Only digits can be told from an indent.
                const uint32_t indent = form == QEL_FORM_HEX ? width : 0;
                ASSERT_EQ(__qel_dump_output(in.c_str(), form, bytes.data(), length, indent, width),
                          QEL_OK);
                EXPECT_TRUE(read_input(in.c_str(), form) == Made(QEL_OK, text_of(bytes)));
            }
            std::filesystem::remove(in);
            ASSERT_EQ(__qel_dump_append(in.c_str(), form, bytes.data(), length), QEL_OK);
            EXPECT_TRUE(read_input(in.c_str(), form) == Made(QEL_OK, text_of(bytes)));
        }
    }
}

TEST_F(Input, reports_what_the_system_refuses) {
    uint8_t *bytes = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(__qel_read_ostr_file(in.c_str(), nullptr, &length), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_read_input(in.c_str(), 1, &bytes, nullptr), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(read_input(in.c_str(), 2).first, QEL_ERR_NO_FILE);
    EXPECT_EQ(read_ostr_file((in + "/file").c_str()).first, QEL_ERR_NO_FILE);
    EXPECT_EQ(read_ostr_file(folder.path("").c_str()).first, QEL_ERR_FILE_IO) << "a folder";
    write_file(in, sample(3000));
    EXPECT_EQ(read_ostr_file((in + "/file").c_str()).first, QEL_ERR_OPEN_FILE);
    const NoDescriptorIsLeft watch;
    fault::fail(fault::Call::open, 1);
    EXPECT_EQ(read_ostr_file(in.c_str()).first, QEL_ERR_OPEN_FILE);
    for (const std::size_t nth : {1, 2, 4}) {
        fault::fail(fault::Call::read, nth);
        EXPECT_EQ(read_ostr_file(in.c_str()).first, QEL_ERR_FILE_IO);
        EXPECT_TRUE(fault::clear(fault::Call::read));
        fault::fail(fault::Call::read, nth, EINTR);
        EXPECT_TRUE(read_ostr_file(in.c_str()) == Made(QEL_OK, text_of(sample(3000))));
        EXPECT_TRUE(fault::clear(fault::Call::read));
    }
    in_child([&] { // a file of another user
        chmod(in.c_str(), 0);
        chmod(std::filesystem::path(in).parent_path().c_str(), 0755);
        ASSERT_TRUE(geteuid() != 0 || setuid(65534) == 0);
        EXPECT_EQ(read_ostr_file(in.c_str()).first, QEL_ERR_OPEN_FILE);
    });
}

TEST_F(Input, reports_a_failed_allocation) {
    for (const int form : {QEL_FORM_RAW, QEL_FORM_ARMOUR, QEL_FORM_HEX}) {
        write_file(in, Bytes(4000, 'a'));
        each_allocation_of(
            [&](uint8_t **bytes, uint32_t *length) {
                return __qel_read_input(in.c_str(), form, bytes, length);
            },
            read_input(in.c_str(), form).second);
    }
}

// What is read may be a private key: nothing of it is left in memory that is given back.
TEST_F(Input, outgrown_and_converted_copies_are_zeroed) {
    std::string text;
    while (text.size() < 5000)
        text += "5ec2e75ec2e7";
    write_file(in, bytes_of(text));
    SecretWatch watch;
    watch.add("text", bytes_of(text.substr(0, 12)));
    for (const int form : {QEL_FORM_RAW, QEL_FORM_ARMOUR, QEL_FORM_HEX}) {
        uint8_t *bytes = nullptr;
        uint32_t length = 0;
        EXPECT_EQ(__qel_read_input(in.c_str(), form, &bytes, &length), QEL_OK);
        EXPECT_TRUE(watch.take_found().empty()) << form;
        std::free(bytes);
        EXPECT_EQ(watch.take_found().empty(), form != QEL_FORM_RAW) << "it is looked for";
    }
}

} // namespace
