// /etc/fn.conf.

#include "config.h"
#include "naming.h"

namespace {

struct Case {
    const char *why;
    std::string text;
    bool good;
    unsigned initial;
    const char *files;
};

const char *const usual = "sqlite:/var/fn/dsv_org.db";

} // namespace

TEST(Config, Lines) {
    const std::string long_path = "files sqlite:/" + std::string(xfn::max_location - 8, 'x');
    const Case cases[] = {
        {"an empty file", "", true, 3, usual},
        {"comments, blanks, empty lines", "# a\n\n \t# b\n", true, 3, usual},
        {"a location", "files sqlite:/a\n", true, 3, "sqlite:/a"},
        {"no line end, tabs, a comment", "\tfiles\t sqlite:/a #x", true, 3, "sqlite:/a"},
        {"lines of another system", "files sqlite:/a\r\n", true, 3, "sqlite:/a"},
        {"'#' inside a word", "files sqlite:/a#b", true, 3, "sqlite:/a#b"},
        {"the default", "default nisplus\nnisplus none:\n", true, 1, usual},
        {"as long as can be", long_path, true, 3, nullptr},
        {"too long", long_path + "x", false, 0, nullptr},
        {"an unknown back end", "ldap sqlite:/a", false, 0, nullptr},
        {"an unknown scheme", "files mysql:/a", false, 0, nullptr},
        {"a relative path", "files sqlite:a", false, 0, nullptr},
        {"no location", "files", false, 0, nullptr},
        {"a word too many", "files sqlite:/a b", false, 0, nullptr},
        {"twice", "files sqlite:/a\nfiles sqlite:/a\n", false, 0, nullptr},
        {"the default twice", "default nis\ndefault nis\n", false, 0, nullptr},
        {"an unknown default", "default x", false, 0, nullptr},
        {"a zero byte", std::string("files sqlite:/a\0b", 17), false, 0, nullptr},
        {"rest behind a location without", "nis nis:x", false, 0, nullptr},
    };
    for (const Case &row : cases) {
        SCOPED_TRACE(row.why);
        xfn::Config config;
        EXPECT_EQ(xfn::parse_config(row.text, &config), row.good);
        if (!row.good)
            continue;
        EXPECT_EQ(config.initial, row.initial);
        if (row.files != nullptr) {
            EXPECT_STREQ(config.locations[FN_NS_FILES - 1], row.files);
        }
    }
}

TEST(Config, DecidesWhatServes) {
    const TemporaryFolder folder;
    const std::string path = folder.path("fn.conf");
    const struct {
        const char *why, *text; // null: no file
        unsigned back_end, code;
    } cases[] = {
        {"no file, files", nullptr, FN_NS_FILES, FN_SUCCESS},
        {"no file, the default", nullptr, 0, FN_SUCCESS},
        {"NIS+ is not there", nullptr, FN_NS_NISPLUS, FN_E_CTX_UNAVAILABLE},
        {"another default", "default nisplus", 0, FN_E_CTX_UNAVAILABLE},
        {"no such back end", "", 4, FN_E_CTX_UNAVAILABLE},
        {"malformed", "files", FN_NS_FILES, FN_E_CONFIGURATION_ERROR},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.why);
        if (row.text != nullptr)
            write_file(path, bytes_of(row.text));
        naming::Status status;
        const naming::Context context(xfn::initial_context(path.c_str(), row.back_end, status));
        EXPECT_EQ(status.code(), row.code);
        EXPECT_EQ(context != nullptr, row.code == FN_SUCCESS);
    }
    write_file(path, Bytes(64 * 1024 + 1, '\n'));
    naming::Status status;
    EXPECT_EQ(xfn::initial_context(path.c_str(), 0, status), nullptr);
    EXPECT_EQ(status.code(), FN_E_CONFIGURATION_ERROR);
}
