#include "text.h"

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <langinfo.h>
#include <nl_types.h>

namespace tool {
namespace {

bool terminal_shows_utf8 = false;

// The character that begins at text[at]; its size is 0 where the bytes are not well formed.
struct Character {
    uint32_t code;
    std::size_t size;
};

Character character_at(std::string_view text, std::size_t at) {
    const auto byte = [&](std::size_t i) { return static_cast<uint8_t>(text[at + i]); };
    const uint8_t first = byte(0);
    if (first < 0x80)
        return {first, 1};
    const std::size_t size = first >= 0xc2 && first < 0xe0   ? 2
                             : first >= 0xe0 && first < 0xf0 ? 3
                             : first >= 0xf0 && first < 0xf5 ? 4
                                                             : 0;
    if (size == 0 || text.size() - at < size)
        return {first, 0};
    uint32_t code = first & (0x7fU >> size);
    for (std::size_t i = 1; i < size; ++i) {
        if ((byte(i) & 0xc0) != 0x80)
            return {first, 0};
        code = code << 6 | (byte(i) & 0x3fU);
    }
    constexpr uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < least[size] || code > 0x10ffff || (code >= 0xd800 && code < 0xe000))
        return {first, 0};
    return {code, size};
}

struct Range {
    uint32_t first, last;
};

// Controls, and characters that move or hide others.
constexpr Range harmful_ranges[] = {
    {0x0000, 0x001f}, {0x007f, 0x009f}, {0x00ad, 0x00ad}, {0x034f, 0x034f},   {0x061c, 0x061c},
    {0x115f, 0x1160}, {0x17b4, 0x17b5}, {0x180b, 0x180f}, {0x200b, 0x200f},   {0x2028, 0x202e},
    {0x2060, 0x206f}, {0x3164, 0x3164}, {0xe000, 0xf8ff}, {0xfe00, 0xfe0f},   {0xfeff, 0xfeff},
    {0xffa0, 0xffa0}, {0xfff0, 0xfffb}, {0xfffe, 0xffff}, {0x1d173, 0x1d17a}, {0xe0000, 0x10ffff},
};

bool harmful(uint32_t code) {
    for (const Range &range : harmful_ranges)
        if (code >= range.first && code <= range.last)
            return true;
    return false;
}

std::string escape_of(const Character &character) {
    char text[16];
    const bool byte = character.size <= 1;
    std::snprintf(text, sizeof text, byte ? "\\x%02x" : "\\u{%x}", unsigned{character.code});
    return text;
}

std::string escape(std::string_view text, Charset charset, std::string_view doubled,
                   std::string_view kept) {
    const bool ascii = charset == Charset::terminal && !terminal_shows_utf8;
    std::string result;
    for (std::size_t at = 0; at < text.size();) {
        const Character character = character_at(text, at);
        const std::size_t size = character.size != 0 ? character.size : 1;
        if (size == 1 && kept.find(text[at]) != kept.npos)
            result += text[at];
        else if (character.size == 0 || harmful(character.code) ||
                 (ascii && character.code >= 0x80))
            result += escape_of(character);
        else {
            if (size == 1 && doubled.find(text[at]) != doubled.npos)
                result += '\\';
            result += text.substr(at, size);
        }
        at += size;
    }
    return result;
}

void append_utf8(std::string &text, uint32_t code) {
    const auto put = [&](uint32_t byte) { text += static_cast<char>(byte); };
    if (code < 0x80) {
        put(code);
    } else if (code < 0x800) {
        put(0xc0 | code >> 6);
        put(0x80 | (code & 0x3f));
    } else if (code < 0x10000) {
        put(0xe0 | code >> 12);
        put(0x80 | (code >> 6 & 0x3f));
        put(0x80 | (code & 0x3f));
    } else {
        put(0xf0 | code >> 18);
        put(0x80 | (code >> 12 & 0x3f));
        put(0x80 | (code >> 6 & 0x3f));
        put(0x80 | (code & 0x3f));
    }
}

} // namespace

void read_locale() {
    std::setlocale(LC_CTYPE, "");
    std::setlocale(LC_MESSAGES, "");
    terminal_shows_utf8 = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
    // The library goes by LANG alone, its catalogues are in UTF-8, and the C library looks for them
    // below /usr only.
    const char *messages = std::setlocale(LC_MESSAGES, nullptr);
    setenv("LANG", terminal_shows_utf8 && messages != nullptr ? messages : "C", 1);
    setenv("NLSPATH", QEL_LOCALE_FOLDER "/%l/LC_MESSAGES/%N", 0);
}

std::string in_users_language(MessageSet set, int message, const char *otherwise) {
    const int error = errno; // a caller may have yet to tell of it
    const nl_catd catalogue = catopen("qelcat", 0);
    const bool found = catalogue != reinterpret_cast<nl_catd>(-1);
    const std::string text =
        found ? catgets(catalogue, static_cast<int>(set), message, otherwise) : otherwise;
    if (found)
        catclose(catalogue);
    errno = error;
    return text;
}

void speak_english() {
    setenv("LANG", "C", 1);
    std::setlocale(LC_MESSAGES, "C");
}

std::string printable(std::string_view text, Charset charset) {
    return escape(text, charset, "", "");
}

std::string escaped(std::string_view text, Charset charset) {
    return escape(text, charset, "\\", "");
}

std::string in_quotes(std::string_view text) {
    return "'" + escaped(text) + "'";
}

std::string printable_lines(std::string_view text) {
    return escape(text, Charset::terminal, "", "\n\t");
}

bool to_utf8(std::span<const uint8_t> bytes, unsigned width, std::string &utf8_out) {
    utf8_out.clear();
    if (bytes.size() % width != 0)
        return false;
    uint32_t high_surrogate = 0;
    for (std::size_t at = 0; at < bytes.size(); at += width) {
        uint32_t code = 0;
        for (unsigned i = 0; i < width; ++i)
            code = code << 8 | bytes[at + i];
        const bool low = code >= 0xdc00 && code < 0xe000;
        if (code > 0x10ffff || low != (high_surrogate != 0))
            return false;
        if (low)
            code = 0x10000 + ((high_surrogate - 0xd800) << 10) + (code - 0xdc00);
        high_surrogate = 0;
        if (code >= 0xd800 && code < 0xdc00) {
            if (width != 2)
                return false;
            high_surrogate = code;
            continue;
        }
        append_utf8(utf8_out, code);
    }
    return high_surrogate == 0;
}

bool is_utf8(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t size = character_at(text, at).size;
        if (size == 0)
            return false;
        at += size;
    }
    return true;
}

std::string utf8_or_latin1(std::string_view text) {
    if (is_utf8(text))
        return std::string(text);
    std::string utf8;
    to_utf8({reinterpret_cast<const uint8_t *>(text.data()), text.size()}, 1, utf8);
    return utf8;
}

std::string line(const std::string &label, const std::string &value) {
    std::string text = "  " + label + (label.empty() ? "" : ":");
    text.resize(std::max<std::size_t>(text.size() + 1, 21), ' ');
    return text + value + "\n";
}

std::string hex(std::span<const uint8_t> bytes) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

} // namespace tool
