// text.h: text from outside, on its way to a terminal, and hexadecimal.
#ifndef TOOLS_TEXT_H
#define TOOLS_TEXT_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace tool {

enum class Charset {
    utf8,
    terminal // what the locale says that a terminal shows; ASCII unless it says UTF-8
};

// Reads the locale from the environment, once, at the start of the program. Texts are told in the
// language of its messages where the terminal shows UTF-8, else in English.
void read_locale();

// The commands' sets of messages in the catalogue.
enum class MessageSet { statuses = 3, words = 4 };
// A message of the user's catalogue, or, where that has none, otherwise.
std::string in_users_language(MessageSet set, int message, const char *otherwise);

// Texts are told in English: what programs read has no language.
void speak_english();

// text so that it can do a terminal no harm and hide nothing from its reader: control characters,
// bytes that are no UTF-8, characters that change direction or are invisible, and characters that
// the charset lacks appear as \xNN or \u{N...}. A new line is a control character too.
std::string printable(std::string_view text, Charset charset = Charset::terminal);

// The same, and a backslash is doubled, so that the reader can tell an escape from its likeness.
std::string escaped(std::string_view text, Charset charset = Charset::terminal);

// 'text', escaped.
std::string in_quotes(std::string_view text);

// Text of several lines that the library made from outside data: new lines and tabs stay.
std::string printable_lines(std::string_view text);

// UTF-8 from characters of one, two or four bytes each, the high byte first (ISO 8859-1, UTF-16,
// UCS-4). False where the bytes are no such characters.
bool to_utf8(std::span<const uint8_t> bytes, unsigned width, std::string &utf8_out);

// Whether all of text is well-formed UTF-8.
bool is_utf8(std::string_view text);
// text itself if it is UTF-8, else its bytes taken for ISO 8859-1.
std::string utf8_or_latin1(std::string_view text);

// A line of what people read about a credential: "  LABEL:   value".
std::string line(const std::string &label, const std::string &value);

std::string hex(std::span<const uint8_t> bytes);

} // namespace tool

#endif
