// hex.cpp: bytes as hexadecimal text, and back.

#include <util/hex.h>

#include <lib/memory.h>
#include <qel/qelp.h>
#include <toolkit/traces.h>

namespace {

// The value of a digit of either case; -1 for every other character.
int digit_value(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Walks over the digits of cleaned-up text and hands each to use. False: another character.
template <class Use> bool for_each_digit(const char *text, uint32_t length, Use use) {
    for (uint32_t i = 0; i < length; ++i) {
        const char c = text[i];
        if (c == '\n' || c == ' ' || c == '\0' || c == '#')
            continue;
        if (c == '0' && length - i > 1 && text[i + 1] == 'x') {
            ++i;
            continue;
        }
        if (digit_value(c) < 0)
            return false;
        use(c);
    }
    return true;
}

} // namespace

QelStatus binary_2_hex(const uint8_t *bytes, uint32_t length, char **text_out) {
    if (text_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *text_out = nullptr;
    if (bytes == nullptr || length == 0)
        return QEL_ERR_BAD_PARAM;
    if (length > (UINT32_MAX - 1) / 2)
        return QEL_ERR_NO_MEMORY;

    qel::Owned<uint8_t> text(qel::allocate_bytes(std::size_t{length} * 2 + 1));
    if (!text)
        return QEL_ERR_NO_MEMORY;
    static constexpr char digits[] = "0123456789abcdef";
    for (std::size_t i = 0; i < length; ++i) {
        text.get()[2 * i] = static_cast<uint8_t>(digits[bytes[i] >> 4]);
        text.get()[2 * i + 1] = static_cast<uint8_t>(digits[bytes[i] & 15]);
    }
    *text_out = reinterpret_cast<char *>(text.release());
    return QEL_OK;
}

QelStatus __qel_hex_2_binary(const char *text, uint8_t **bytes_out, uint32_t *length_out) {
    const toolkit::TracesWiped traces;
    if (bytes_out != nullptr)
        *bytes_out = nullptr;
    if (length_out != nullptr)
        *length_out = 0;
    if (text == nullptr || bytes_out == nullptr || length_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    if (text[0] == '0' && text[1] == 'x')
        text += 2;
    const std::size_t digits = std::strlen(text);
    if (digits == 0)
        return QEL_ERR_BAD_PARAM;
    const std::size_t length = digits / 2 + digits % 2;
    if (length >= UINT32_MAX)
        return QEL_ERR_NO_MEMORY;

    qel::SecretBytes bytes = qel::allocate_secret(length + 1);
    if (!bytes)
        return QEL_ERR_NO_MEMORY;
    // Nibbles are counted from the end, so that an odd number of digits gains a 0 in front.
    std::size_t nibble = digits % 2;
    for (const char *c = text; *c != '\0'; ++c, ++nibble) {
        const int value = digit_value(*c);
        if (value < 0)
            return QEL_ERR_BAD_PARAM;
        uint8_t &byte = bytes.get()[nibble / 2];
        byte = static_cast<uint8_t>(byte << 4 | value);
    }
    *bytes_out = bytes.release();
    *length_out = static_cast<uint32_t>(length);
    return QEL_OK;
}

QelStatus __qel_parse_hex(const char *text, uint32_t length, char **digits_out) {
    if (digits_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *digits_out = nullptr;
    std::size_t count = 0;
    if (text == nullptr || !for_each_digit(text, length, [&](char) { ++count; }) || count == 0)
        return QEL_ERR_BAD_PARAM;
    auto *digits = static_cast<char *>(std::malloc(count + 1));
    if (digits == nullptr)
        return QEL_ERR_NO_MEMORY;
    char *to = digits;
    for_each_digit(text, length, [&](char c) { *to++ = c; });
    *to = '\0';
    *digits_out = digits;
    return QEL_OK;
}
