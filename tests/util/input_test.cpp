#include "support/fault.h"
#include "support/files.h"
#include "support/process.h"
#include "support/secrets.h"

#include <qel/qelp.h>

#include <gtest/gtest.h>

#include <lib/memory.h>

#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class Input : public ::testing::Test {
protected:
    TemporaryFolder folder;
    const std::string in = folder.path("in");
};

// Status, and what was read followed by its spare zero byte, which must be there.
struct Outcome {
    QelStatus status;
    Bytes bytes;
};

Outcome read_with(const std::function<QelStatus(uint8_t **, uint32_t *)> &reader) {
    auto *bytes = reinterpret_cast<uint8_t *>(1);
    uint32_t length = 77;
    const QelStatus status = reader(&bytes, &length);
    const qel::Owned<uint8_t> owner(bytes);
    EXPECT_EQ(bytes != nullptr, status == QEL_OK);
    if (bytes == nullptr) {
        EXPECT_EQ(length, 0U);
        return {status, {}};
    }
    EXPECT_EQ(bytes[length], 0) << "spare byte";
    return {status, Bytes(bytes, bytes + length)};
}

Outcome read_input(const char *name, int form) {
    return read_with([&](uint8_t **bytes, uint32_t *length) {
        return __qel_read_input(name, form, bytes, length);
    });
}

Outcome read_ostr_file(const char *name) {
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
        SCOPED_TRACE(size);
        const Bytes bytes = sample(size);
        write_file(in, bytes);
        const Outcome got = read_ostr_file(in.c_str());
        EXPECT_EQ(got.status, QEL_OK);
        EXPECT_TRUE(got.bytes == bytes);
    }
}

TEST_F(Input, no_name_is_standard_input) {
    const Bytes bytes = sample(20000);
    for (const char *name : {static_cast<const char *>(nullptr), ""}) {
        const Outcome got = with_input(text_of(bytes), [&] { return read_ostr_file(name); });
        EXPECT_EQ(got.status, QEL_OK);
        EXPECT_TRUE(got.bytes == bytes);
        EXPECT_EQ(with_input("6 1", [&] { return read_input(name, 3); }).bytes, bytes_of("a"));
    }
}

struct FormCase {
    const char *reason;
    int form;
    std::string text;
    QelStatus status;
    std::string result;
};

const FormCase form_cases[] = {
    {"raw", 1, "YQ==\n", QEL_OK, "YQ==\n"},
    {"nothing, raw", 1, "", QEL_OK, ""},
    {"any other form is raw", 0, "YQ==\n", QEL_OK, "YQ==\n"},
    {"also beyond the last", 4, "0x61", QEL_OK, "0x61"},
    {"armour in lines", 2, "YWJj\nYQ==\n", QEL_OK, "abca"},
    {"armour with markers", 2, "-----BEGIN KEYPKG-----\nYQ==\n", QEL_ERR_FROM_RFC1421, ""},
    {"no armour", 2, "", QEL_ERR_BAD_PARAM, ""},
    {"digits in lines with prefixes", 3, "  0x61\n  0x62\n", QEL_OK, "ab"},
    {"an odd number of digits", 3, "161", QEL_OK,
     "\x01"
     "a"},
    {"a character that is no digit", 3, "61g", QEL_ERR_BAD_PARAM, ""},
    {"no digits", 3, "", QEL_ERR_BAD_PARAM, ""},
};

TEST_F(Input, forms) {
    for (const FormCase &row : form_cases) {
        SCOPED_TRACE(row.reason);
        write_file(in, bytes_of(row.text));
        const Outcome got = read_input(in.c_str(), row.form);
        EXPECT_EQ(got.status, row.status);
        EXPECT_EQ(text_of(got.bytes), row.result);
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
                EXPECT_TRUE(read_input(in.c_str(), form).bytes == bytes);
            }
            std::filesystem::remove(in);
            ASSERT_EQ(__qel_dump_append(in.c_str(), form, bytes.data(), length), QEL_OK);
            EXPECT_TRUE(read_input(in.c_str(), form).bytes == bytes);
        }
    }
}

TEST_F(Input, reports_what_the_system_refuses) {
    uint8_t *bytes = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(__qel_read_ostr_file(in.c_str(), nullptr, &length), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(__qel_read_input(in.c_str(), 1, &bytes, nullptr), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(read_input(in.c_str(), 2).status, QEL_ERR_NO_FILE);
    EXPECT_EQ(read_ostr_file((in + "/file").c_str()).status, QEL_ERR_NO_FILE);
    EXPECT_EQ(read_ostr_file(folder.path("").c_str()).status, QEL_ERR_FILE_IO) << "a folder";
    write_file(in, sample(3000));
    EXPECT_EQ(read_ostr_file((in + "/file").c_str()).status, QEL_ERR_OPEN_FILE);
    const int lowest = dup(STDIN_FILENO);
    close(lowest);
    fault::fail(fault::Call::open, 1);
    EXPECT_EQ(read_ostr_file(in.c_str()).status, QEL_ERR_OPEN_FILE);
    for (const std::size_t nth : {1, 2, 4}) {
        fault::fail(fault::Call::read, nth);
        EXPECT_EQ(read_ostr_file(in.c_str()).status, QEL_ERR_FILE_IO);
        EXPECT_TRUE(fault::clear(fault::Call::read));
        fault::fail(fault::Call::read, nth, EINTR);
        EXPECT_TRUE(read_ostr_file(in.c_str()).bytes == sample(3000));
        EXPECT_TRUE(fault::clear(fault::Call::read));
    }
    const int next = dup(STDIN_FILENO);
    close(next);
    EXPECT_EQ(next, lowest) << "a descriptor is open";
    in_child([&] { // a file of another user
        chmod(in.c_str(), 0);
        chmod(std::filesystem::path(in).parent_path().c_str(), 0755);
        ASSERT_TRUE(geteuid() != 0 || setuid(65534) == 0);
        EXPECT_EQ(read_ostr_file(in.c_str()).status, QEL_ERR_OPEN_FILE);
    });
}

TEST_F(Input, reports_a_failed_allocation) {
    for (const int form : {QEL_FORM_RAW, QEL_FORM_ARMOUR, QEL_FORM_HEX}) {
        write_file(in, Bytes(4000, 'a'));
        fault::each_allocation([&] {
            const Outcome got = read_input(in.c_str(), form);
            EXPECT_EQ(got.status, fault::met() ? QEL_ERR_NO_MEMORY : QEL_OK);
        });
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
