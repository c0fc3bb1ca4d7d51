#include "support/arguments.h"
#include "support/fault.h"
#include "support/files.h"

#include <util/hex.h>

#include <gtest/gtest.h>

#include <lib/memory.h>
#include <qel/qelp.h>

#include <random>

namespace {

struct HexCase {
    const char *reason;
    const char *text;
    QelStatus status;
    Bytes bytes;
};

const HexCase hex_cases[] = {
    {"digits of either case", "0aFf", QEL_OK, {0x0a, 0xff}},
    {"first and last digit of each run", "09afAF", QEL_OK, {0x09, 0xaf, 0xaf}},
    {"an odd count gains a leading 0", "abc", QEL_OK, {0x0a, 0xbc}},
    {"a single digit", "7", QEL_OK, {0x07}},
    {"zero bytes are kept", "000000", QEL_OK, {0, 0, 0}},
    {"a prefix", "0xFF", QEL_OK, {0xff}},
    {"a prefix and an odd count", "0x123", QEL_OK, {0x01, 0x23}},
    {"0 alone is a digit, no prefix", "0", QEL_OK, {0x00}},
    {"a prefix with nothing behind", "0x", QEL_ERR_BAD_PARAM, {}},
    {"nothing at all", "", QEL_ERR_BAD_PARAM, {}},
    {"a capital X is no prefix", "0XFF", QEL_ERR_BAD_PARAM, {}},
    {"a second prefix is a bad digit", "0x0x1", QEL_ERR_BAD_PARAM, {}},
    {"a bad last digit", "0g", QEL_ERR_BAD_PARAM, {}},
    {"neighbour below 0", "/1", QEL_ERR_BAD_PARAM, {}},
    {"neighbour above 9", ":1", QEL_ERR_BAD_PARAM, {}},
    {"neighbour below A", "@1", QEL_ERR_BAD_PARAM, {}},
    {"neighbour above F", "G1", QEL_ERR_BAD_PARAM, {}},
    {"neighbour below a", "`1", QEL_ERR_BAD_PARAM, {}},
    {"a blank between digits", "0a ff", QEL_ERR_BAD_PARAM, {}},
    {"a sign", "-1", QEL_ERR_BAD_PARAM, {}},
    {"a character with its top bit set", "\xb0\xb1", QEL_ERR_BAD_PARAM, {}},
};

TEST(Hex, reads_digits) {
    for (const HexCase &row : hex_cases) {
        SCOPED_TRACE(row.reason);
        auto *bytes = reinterpret_cast<uint8_t *>(1);
        uint32_t length = 77;
        EXPECT_EQ(__qel_hex_2_binary(row.text, &bytes, &length), row.status);
        const qel::Owned<uint8_t> owner(bytes);
        ASSERT_EQ(bytes != nullptr, row.status == QEL_OK);
        ASSERT_EQ(length, row.bytes.size());
        if (bytes != nullptr) {
            EXPECT_EQ(Bytes(bytes, bytes + length), row.bytes);
            EXPECT_EQ(bytes[length], 0) << "spare byte";
        }
    }
}

TEST(Hex, what_is_written_reads_back) {
    std::mt19937 random(1);
    for (uint32_t length = 1; length < 300; ++length) {
        Bytes bytes(length);
        for (uint8_t &byte : bytes)
            byte = static_cast<uint8_t>(random());
        char *text = nullptr;
        ASSERT_EQ(binary_2_hex(bytes.data(), length, &text), QEL_OK);
        const qel::Owned<char> text_owner(text);
        ASSERT_EQ(std::string(text), to_hex(bytes));
        uint8_t *back = nullptr;
        uint32_t back_length = 0;
        ASSERT_EQ(__qel_hex_2_binary(text, &back, &back_length), QEL_OK);
        const qel::Owned<uint8_t> back_owner(back);
        ASSERT_EQ(Bytes(back, back + back_length), bytes);
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
    fault::each_allocation([] {
        uint8_t *bytes = nullptr;
        uint32_t length = 0;
        const QelStatus read = __qel_hex_2_binary("abc", &bytes, &length);
        const qel::Owned<uint8_t> bytes_owner(bytes);
        char *text = nullptr;
        const QelStatus written = binary_2_hex(reinterpret_cast<const uint8_t *>("a"), 1, &text);
        const qel::Owned<char> text_owner(text);
        char *digits = nullptr;
        const QelStatus cleaned = __qel_parse_hex("0x1", 3, &digits);
        const qel::Owned<char> digits_owner(digits);
        EXPECT_EQ(cleaned, digits != nullptr ? QEL_OK : QEL_ERR_NO_MEMORY);
        EXPECT_EQ(read, bytes != nullptr ? QEL_OK : QEL_ERR_NO_MEMORY);
        EXPECT_EQ(written, text != nullptr ? QEL_OK : QEL_ERR_NO_MEMORY);
        EXPECT_EQ(read == QEL_OK && written == QEL_OK && cleaned == QEL_OK, !fault::met());
    });
}

struct CleanCase {
    const char *reason;
    std::string text;
    const char *digits; // null: QEL_ERR_BAD_PARAM
};

const CleanCase clean_cases[] = {
    {"prefixes, a blank, a line feed", "0x1f 0x2e\n", "1f2e"},
    {"digits of either case stay as they are", "aAfF09", "aAfF09"},
    {"hashes and zero bytes", std::string("#1#\0", 4) + "2", "12"},
    {"a prefix inside a number", "10x2", "12"},
    {"a 0 at the end is a digit", "10", "10"},
    {"a 0 before a prefix is a digit", "00x1", "01"},
    {"an odd number", "0x123", "123"},
    {"a letter that is no digit", "1g", nullptr},
    {"an x without a 0", "1x", nullptr},
    {"a second x", "0xx1", nullptr},
    {"a capital X", "0X1", nullptr},
    {"a blank in a prefix", "0 x1", nullptr},
    {"a tab", "1\t2", nullptr},
    {"a carriage return", "1\r\n", nullptr},
    {"a sign", "-1", nullptr},
    {"a character with its top bit set", "\xb1", nullptr},
    {"prefixes alone", "0x 0x", nullptr},
    {"separators alone", "# \n", nullptr},
    {"nothing", "", nullptr},
};

TEST(Hex, takes_digits_out_of_text) {
    for (const CleanCase &row : clean_cases) {
        SCOPED_TRACE(row.reason);
        // In memory of its exact size, so that a sanitizer sees what is read behind it.
        const Bytes text = bytes_of(row.text);
        auto *digits = reinterpret_cast<char *>(1);
        const QelStatus status =
            __qel_parse_hex(text.empty() ? "" : reinterpret_cast<const char *>(text.data()),
                            static_cast<uint32_t>(text.size()), &digits);
        const qel::Owned<char> owner(digits);
        EXPECT_EQ(status, row.digits != nullptr ? QEL_OK : QEL_ERR_BAD_PARAM);
        ASSERT_EQ(digits != nullptr, row.digits != nullptr);
        EXPECT_STREQ(digits, row.digits);
    }
    char *digits = nullptr;
    EXPECT_EQ(__qel_parse_hex("10x", 2, &digits), QEL_OK) << "the x is behind the text";
    EXPECT_STREQ(digits, "10");
    std::free(digits);
    each_missing(QEL_ERR_BAD_PARAM, __qel_parse_hex, {}, "1", 1, &digits);
}

} // namespace
