#include "texts.h"

#include "text.h"

namespace tool {
namespace {

constexpr const char *english_of(Text text) {
    switch (text) {
#define TEXT(number, name, english)                                                                \
    case Text::name:                                                                               \
        return english;
#include "texts.inc"
#undef TEXT
    }
    return "";
}

} // namespace

std::string text_of(Text text, const std::vector<std::string> &values) {
    const std::string pattern =
        in_users_language(MessageSet::words, static_cast<int>(text), english_of(text));
    std::string result;
    for (std::size_t at = 0; at < pattern.size(); ++at) {
        const bool placeholder = pattern[at] == '{' && at + 2 < pattern.size() &&
                                 pattern[at + 1] >= '1' && pattern[at + 2] == '}';
        const auto index = placeholder ? static_cast<std::size_t>(pattern[at + 1] - '1') : 0;
        if (placeholder && index < values.size()) {
            result += values[index];
            at += 2;
        } else {
            result += pattern[at];
        }
    }
    return result;
}

} // namespace tool
