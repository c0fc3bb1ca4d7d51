#include "support/arguments.h"
#include "support/made.h"
#include "support/process.h"

#include <qel/qelp.h>

#include <csignal>
#include <filesystem>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

const uint8_t *bytes(const std::string &text) {
    return reinterpret_cast<const uint8_t *>(text.data());
}

uint32_t size(const std::string &text) {
    return static_cast<uint32_t>(text.size());
}

// ---- Lines --------------------------------------------------------------------------------------

const std::string a64(64, 'a'), b64(64, 'b');

Made formatted(const std::string &data, uint32_t indent, uint32_t width) {
    return made_by([&](char **text, uint32_t *length) {
        const QelStatus status =
            __qel_format_output(bytes(data), size(data), indent, width, text, length);
        EXPECT_TRUE(status != QEL_OK || (*text)[*length] == 0) << "spare byte";
        return status;
    });
}

TEST(Layout, lines_and_prefixes) {
    const struct {
        const char *reason;
        std::string data;
        uint32_t indent, width;
        std::string text;
    } rows[] = {
        {"no layout", a64 + b64, 0, 0, a64 + b64},
        {"two full lines", a64 + b64, 0, 64, a64 + "\n" + b64},
        {"one full line", a64, 0, 64, a64},
        {"a character more", a64 + "c", 0, 64, a64 + "\nc"},
        {"a wide line", "abc", 0, 0xffffffff, "abc"},
        {"each character", "abc", 0, 1, "a\nb\nc"},
        {"the least indent", "abc", 1, 2, " 0xab\n 0xc"},
        {"every line has its prefix", "abcdef", 2, 2, "  0xab\n  0xcd\n  0xef"},
        {"an indent alone", "abc", 3, 0, "   0xabc"},
        {"zero bytes are characters", std::string("\0\0\0", 3), 0, 2, std::string("\0\0\n\0", 4)},
    };
    for (const auto &row : rows)
        EXPECT_EQ(formatted(row.data, row.indent, row.width), Made(QEL_OK, row.text)) << row.reason;
    each_allocation_of(
        [](char **text, uint32_t *length) {
            return __qel_format_output(bytes(a64), 64, 0, 0, text, length);
        },
        a64);
}

TEST(Layout, refuses_bad_arguments_and_impossible_lengths) {
    auto *text = reinterpret_cast<char *>(1);
    uint32_t length = 77;
    each_missing(QEL_ERR_BAD_PARAM, __qel_format_output, {3, 4}, bytes(a64), 1, 0, 0, &text,
                 &length);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(length, 0U);
    for (const uint32_t indent : {0xffffffffU, 0xfffffffdU, 0x80000000U})
        EXPECT_EQ(__qel_format_output(bytes(a64), 64, indent, 1, &text, &length),
                  QEL_ERR_NO_MEMORY);
    // None of these bytes is read. The length of the result is a little above 2^64.
    EXPECT_EQ(__qel_format_output(bytes(a64), 0xfffffffe, 0xffffffff, 1, &text, &length),
              QEL_ERR_NO_MEMORY);
    EXPECT_EQ(__qel_format_output(bytes(a64), 0xffffffff, 0xfffffffe, 1, &text, &length),
              QEL_ERR_NO_MEMORY);
    EXPECT_EQ(text, nullptr);
}

// ---- Files --------------------------------------------------------------------------------------

class OutputFile : public ::testing::Test {
protected:
    TemporaryFolder folder;
    const std::string out = folder.path("out");
    std::string got() const { return text_of(read_file(out)); }
};

TEST_F(OutputFile, forms_and_layout) {
    const struct {
        const char *reason;
        int form;
        std::string data;
        uint32_t indent, width;
        const char *text; // without the line feed that files get
    } rows[] = {
        // "a" is YQ== and 61.
        {"raw", 1, "a", 0, 0, "a"},
        {"raw bytes get no layout", 1, "abc", 3, 2, "abc"},
        {"no raw bytes", 1, "", 0, 0, ""},
        {"armour", 2, "a", 0, 0, "YQ=="},
        {"armour in lines", 2, "abcd", 0, 3, "YWJ\njZA\n=="},
        {"armour with a prefix", 2, "abcd", 1, 3, " 0xYWJ\n 0xjZA\n 0x=="},
        {"digits", 3, "a\xff", 0, 0, "61ff"},
        {"digits in lines", 3, "abc", 0, 4, "6162\n63"},
        {"digits with a prefix", 3, "abc", 2, 4, "  0x6162\n  0x63"},
        {"digits with a prefix on one line", 3, "abc", 2, 0, "  0x616263"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        const std::string line_end = row.form == QEL_FORM_RAW ? "" : "\n";
        write_file(out, bytes_of("longer than anything that will be written"));
        EXPECT_EQ(__qel_dump_output(out.c_str(), row.form, bytes(row.data), size(row.data),
                                    row.indent, row.width),
                  QEL_OK);
        EXPECT_EQ(got(), row.text + line_end);

        FILE *stream = std::fopen(out.c_str(), "w");
        EXPECT_EQ(__qel_fdump_output(stream, row.form, bytes(row.data), size(row.data), row.indent,
                                     row.width),
                  QEL_OK);
        EXPECT_EQ(std::fputs("!", stream), 1) << "the stream is open";
        std::fclose(stream);
        EXPECT_EQ(got(), row.text + std::string("!"));
    }
}

TEST_F(OutputFile, appending) {
    const std::string data(49, 'a'); // 68 characters of armour, 98 digits
    EXPECT_EQ(__qel_dump_append(out.c_str(), QEL_FORM_RAW, bytes(data), 1), QEL_OK);
    EXPECT_EQ(__qel_dump_append(out.c_str(), QEL_FORM_ARMOUR, bytes(data), 49), QEL_OK);
    EXPECT_EQ(__qel_dump_append(out.c_str(), QEL_FORM_HEX, bytes(data), 33), QEL_OK);
    std::string armour, digits;
    for (int i = 0; i < 16; ++i) {
        armour += "YWFh";
        digits += "6161";
    }
    EXPECT_EQ(got(), "a" + armour + "\nYQ==\n" + digits + "\n61\n");
}

TEST_F(OutputFile, refuses_bad_arguments_and_leaves_the_file) {
    write_file(out, bytes_of("kept"));
    const auto *data = bytes(a64);
    const char *name = out.c_str();
    for (const QelStatus status : {
             __qel_dump_output(name, QEL_FORM_RAW, nullptr, 1, 0, 0),
             __qel_dump_output(name, QEL_FORM_HEX, data, 0, 0, 0),
             __qel_dump_output(name, QEL_FORM_ARMOUR, data, 0, 0, 64),
             __qel_dump_output(name, 0, data, 1, 0, 0),
             __qel_dump_output(name, 4, data, 1, 0, 0),
             __qel_dump_append(name, QEL_FORM_HEX, nullptr, 1),
             __qel_dump_append_and_delimit(1, name, 4, data, 1),
             __qel_fdump_output(nullptr, QEL_FORM_RAW, data, 1, 0, 0),
             __qel_fdump_output(stdout, 4, data, 1, 0, 0),
         })
        EXPECT_EQ(status, QEL_ERR_BAD_PARAM);
    const std::string nowhere = out + "/file";
    EXPECT_EQ(__qel_dump_output(nowhere.c_str(), QEL_FORM_HEX, data, 0, 0, 0), QEL_ERR_OPEN_FILE);
    EXPECT_EQ(__qel_dump_append_and_delimit(1, nullptr, 1, data, 1), QEL_ERR_NO_FILE);
    EXPECT_EQ(__qel_dump_append_and_delimit(1, "", 1, data, 1), QEL_ERR_NO_FILE);
    EXPECT_EQ(got(), "kept");
}

// What every function that makes a file must do.
struct Writer {
    const char *name;
    std::function<QelStatus(const char *)> write;
};

const QelDataSetItem items[] = {{const_cast<uint8_t *>(bytes(a64)), 64},
                                {const_cast<uint8_t *>(bytes(b64)), 64}};

const Writer writers[] = {
    {"dump_output",
     [](const char *file) { return __qel_dump_output(file, 2, bytes(a64), 64, 0, 64); }},
    {"dump_append", [](const char *file) { return __qel_dump_append(file, 2, bytes(a64), 64); }},
    {"dump_append_and_delimit",
     [](const char *file) { return __qel_dump_append_and_delimit(1, file, 2, bytes(a64), 64); }},
    {"dump_data_set", [](const char *file) { return __qel_dump_data_set(1, file, 2, 2, items); }},
};

// For its owner alone, whatever the mask; but it keeps the mode that it has.
TEST_F(OutputFile, modes) {
    for (const Writer &writer : writers) {
        SCOPED_TRACE(writer.name);
        std::filesystem::remove(out);
        const mode_t mask = umask(0);
        EXPECT_EQ(writer.write(out.c_str()), QEL_OK);
        umask(mask);
        EXPECT_EQ(std::filesystem::status(out).permissions(), std::filesystem::perms(0600));
        chmod(out.c_str(), 0644);
        EXPECT_EQ(writer.write(out.c_str()), QEL_OK);
        EXPECT_EQ(std::filesystem::status(out).permissions(), std::filesystem::perms(0644));
    }
}

TEST_F(OutputFile, reports_what_the_system_refuses) {
    using fault::Call;
    const NoDescriptorIsLeft watch;
    for (const Writer &writer : writers) {
        SCOPED_TRACE(writer.name);
        EXPECT_EQ(writer.write(folder.path("").c_str()), QEL_ERR_OPEN_FILE) << "a folder";
        EXPECT_EQ(writer.write(folder.path("no/file").c_str()), QEL_ERR_OPEN_FILE);
        EXPECT_EQ(writer.write("/dev/full"), QEL_ERR_FILE_IO);
        const struct {
            Call call;
            QelStatus status;
        } faults[] = {{Call::open, QEL_ERR_OPEN_FILE},
                      {Call::write, QEL_ERR_FILE_IO},
                      {Call::close, QEL_ERR_FILE_IO}};
        for (const auto &fault : faults) {
            fault::fail(fault.call, 1);
            EXPECT_EQ(writer.write(out.c_str()), fault.status);
            EXPECT_TRUE(fault::clear(fault.call));
        }
        fault::fail(Call::write, 1, EINTR);
        EXPECT_EQ(writer.write(out.c_str()), QEL_OK) << "an interrupted write is made again";
        EXPECT_TRUE(fault::clear(Call::write));

        in_child([&] { // half of it fits
            signal(SIGXFSZ, SIG_IGN);
            std::filesystem::remove(out);
            const rlimit limit = {50, 50};
            setrlimit(RLIMIT_FSIZE, &limit);
            EXPECT_EQ(writer.write(out.c_str()), QEL_ERR_FILE_IO);
            EXPECT_EQ(std::filesystem::file_size(out), 50U);
        });
        in_child([&] { // a file of another user
            write_file(out, {});
            chmod(out.c_str(), 0);
            chmod(std::filesystem::path(out).parent_path().c_str(), 0755);
            ASSERT_TRUE(geteuid() != 0 || setuid(65534) == 0);
            EXPECT_EQ(writer.write(out.c_str()), QEL_ERR_OPEN_FILE);
        });
        std::filesystem::remove(out);
    }
}

TEST_F(OutputFile, each_failed_allocation_leaves_the_file) {
    for (const Writer &writer : writers) {
        SCOPED_TRACE(writer.name);
        fault::each_allocation([&] {
            write_file(out, bytes_of("kept"));
            const QelStatus status = writer.write(out.c_str());
            EXPECT_EQ(status, fault::met() ? QEL_ERR_NO_MEMORY : QEL_OK);
            EXPECT_EQ(got() == "kept", fault::met());
        });
    }
}

TEST_F(OutputFile, a_full_stream_is_reported) {
    FILE *full = std::fopen("/dev/full", "w");
    std::setvbuf(full, nullptr, _IONBF, 0);
    EXPECT_EQ(__qel_fdump_output(full, QEL_FORM_HEX, bytes(a64), 64, 0, 0), QEL_ERR_FILE_IO);
    std::fclose(full);
}

TEST_F(OutputFile, no_name_is_standard_output_which_stays_open) {
    for (const char *name : {static_cast<const char *>(nullptr), ""}) {
        const std::string written = output_of([&] {
            EXPECT_EQ(__qel_dump_output(name, QEL_FORM_HEX, bytes("a"), 1, 0, 0), QEL_OK);
            EXPECT_EQ(__qel_dump_append(name, QEL_FORM_RAW, bytes("b"), 1), QEL_OK);
        });
        EXPECT_EQ(written, "61\nb");
    }
}

} // namespace
