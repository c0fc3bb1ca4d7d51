#include "support/arguments.h"
#include "support/made.h"
#include "support/samples.h"

#include <util/hex.h>

#include <qel/qelp.h>

namespace {

Made read(const char *text) {
    return made_by([&](uint8_t **bytes, uint32_t *length) {
        const QelStatus status = __qel_hex_2_binary(text, bytes, length);
        EXPECT_TRUE(status != QEL_OK || (*bytes)[*length] == 0) << "spare byte";
        return status;
    });
}

TEST(Hex, reads_digits) {
    const struct {
        const char *reason;
        const char *text;
        Bytes bytes; // none: refused
    } rows[] = {
        {"digits of either case", "0aFf", {0x0a, 0xff}},
        {"first and last digit of each run", "09afAF", {0x09, 0xaf, 0xaf}},
        {"an odd count gains a leading 0", "abc", {0x0a, 0xbc}},
        {"a single digit", "7", {0x07}},
        {"zero bytes are kept", "000000", {0, 0, 0}},
        {"a prefix", "0xFF", {0xff}},
        {"a prefix and an odd count", "0x123", {0x01, 0x23}},
        {"0 alone is a digit, no prefix", "0", {0x00}},
        {"a prefix with nothing behind", "0x", {}},
        {"nothing at all", "", {}},
        {"a capital X is no prefix", "0XFF", {}},
        {"a second prefix is a bad digit", "0x0x1", {}},
        {"a bad last digit", "0g", {}},
        {"neighbour below 0", "/1", {}},
        {"neighbour above 9", ":1", {}},
        {"neighbour below A", "@1", {}},
        {"neighbour above F", "G1", {}},
        {"neighbour below a", "`1", {}},
        {"a blank between digits", "0a ff", {}},
        {"a character with its top bit set", "\xb0\xb1", {}},
    };
    for (const auto &row : rows)
        EXPECT_EQ(read(row.text),
                  Made(row.bytes.empty() ? QEL_ERR_BAD_PARAM : QEL_OK, text_of(row.bytes)))
            << row.reason;
}

TEST(Hex, what_is_written_reads_back) {
    Samples samples;
    for (uint32_t length = 1; length < 300; ++length) {
        const Bytes bytes = samples.bytes(length);
        const Made made =
            made_by([&](char **text) { return binary_2_hex(bytes.data(), length, text); });
        ASSERT_EQ(made, Made(QEL_OK, to_hex(bytes)));
        ASSERT_EQ(read(made.second.c_str()), Made(QEL_OK, text_of(bytes)));
    }
}

TEST(Hex, refuses_missing_arguments_and_impossible_lengths) {
    const uint8_t byte = 0;
    char *text = reinterpret_cast<char *>(1);
    each_missing(QEL_ERR_BAD_PARAM, binary_2_hex, {}, &byte, 1, &text);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(binary_2_hex(&byte, 0x80000000, &text), QEL_ERR_NO_MEMORY);
    uint8_t *bytes = nullptr;
    uint32_t length = 0;
    each_missing(QEL_ERR_BAD_PARAM, __qel_hex_2_binary, {}, "00", &bytes, &length);
}

TEST(Hex, reports_a_failed_allocation) {
    each_allocation_of(
        [](uint8_t **bytes, uint32_t *length) { return __qel_hex_2_binary("616", bytes, length); },
        "\x06\x16");
    each_allocation_of(
        [](char **text) { return binary_2_hex(reinterpret_cast<const uint8_t *>("a"), 1, text); },
        "61");
    each_allocation_of([](char **digits) { return __qel_parse_hex("0x1", 3, digits); }, "1");
}

TEST(Hex, takes_digits_out_of_text) {
    const struct {
        const char *reason;
        std::string text;
        const char *digits; // null: refused
    } rows[] = {
        {"prefixes, a blank, a line feed", "0x1f 0x2e\n", "1f2e"},
        {"digits of either case stay as they are", "aAfF09", "aAfF09"},
        {"hashes and zero bytes", std::string("#1#\0", 4) + "2", "12"},
        {"a prefix inside a number", "10x2", "12"},
        {"a 0 at the end is a digit", "10", "10"},
        {"a 0 before a prefix is a digit", "00x1", "01"},
        {"a letter that is no digit", "1g", nullptr},
        {"an x without a 0", "1x", nullptr},
        {"a second x", "0xx1", nullptr},
        {"a capital X", "0X1", nullptr},
        {"a blank in a prefix", "0 x1", nullptr},
        {"a tab", "1\t2", nullptr},
        {"a carriage return", "1\r\n", nullptr},
        {"a character with its top bit set", "\xb1", nullptr},
        {"prefixes alone", "0x 0x", nullptr},
        {"separators alone", "# \n", nullptr},
        {"nothing", "", nullptr},
    };
    const auto digits_of = [](const char *text, std::size_t size) {
        return made_by([&](char **digits) {
            return __qel_parse_hex(text, static_cast<uint32_t>(size), digits);
        });
    };
    for (const auto &row : rows) {
        // In memory of its exact size, so that a sanitizer sees what is read behind it.
        const Bytes text = bytes_of(row.text);
        EXPECT_EQ(
            digits_of(text.empty() ? "" : reinterpret_cast<const char *>(text.data()), text.size()),
            row.digits != nullptr ? Made(QEL_OK, row.digits) : Made(QEL_ERR_BAD_PARAM, ""))
            << row.reason;
    }
    EXPECT_EQ(digits_of("10x", 2), Made(QEL_OK, "10")) << "the x is behind the text";
    char *digits = nullptr;
    each_missing(QEL_ERR_BAD_PARAM, __qel_parse_hex, {}, "1", 1, &digits);
}

} // namespace
