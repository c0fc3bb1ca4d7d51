#include <cryptoki/return_values.h>

#include <gtest/gtest.h>

#include <string>

namespace {

std::string printed(CK_RV value) {
    testing::internal::CaptureStderr();
    const int written = print_CK_RV(value);
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(written, static_cast<int>(text.size()));
    return text;
}

std::string hexadecimal(CK_RV value) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%x", static_cast<unsigned>(value));
    return digits;
}

TEST(ReturnValues, EveryRowIsInOrderAndIsPrintedWithItsText) {
    std::size_t row = 1;
    for (; return_values[row].value != 0; ++row) {
        const ReturnValue &entry = return_values[row];
        EXPECT_GT(entry.value, return_values[row - 1].value);
        EXPECT_EQ(printed(entry.value),
                  std::string(entry.text) + " (" + hexadecimal(entry.value) + ")\n");
    }
    EXPECT_EQ(row, 58u);
    EXPECT_STREQ(return_values[row].text, "Unknown return code");
}

TEST(ReturnValues, Print) {
    const struct {
        const char *why;
        CK_RV value;
        const char *text;
    } rows[] = {
        {"success has no number", CKR_OK, "function has completed successfully\n"},
        {"the first after success", 1, "function should be canceled (1)\n"},
        {"a number in two digits", 0xB3, "session handle is invalid (b3)\n"},
        {"a text that programs know with its misspelling", 0x102,
         "the user's PIN has not been intialized (102)\n"},
        {"the last", 0x115, "wrapping key type is inconsistent with mechanism (115)\n"},
        {"a gap near the start", 5, "Unrecognized error code (5)\n"},
        {"a gap near the end", 0x111, "Unrecognized error code (111)\n"},
        {"behind the last", 0x116, "Unrecognized error code (116)\n"},
        {"the largest", 0xFFFFFFFF, "Unrecognized error code (ffffffff)\n"},
    };
    for (const auto &c : rows)
        EXPECT_EQ(printed(c.value), c.text) << c.why;
}

} // namespace
