// texts.h: the words of the commands, in the user's language.
#ifndef TOOLS_TEXTS_H
#define TOOLS_TEXTS_H

#include <string>
#include <vector>

namespace tool {

// Every text is a row of texts.inc.
enum class Text {
#define TEXT(number, name, english) name = number,
#include "texts.inc"
#undef TEXT
};

// The text, in English where the catalogue lacks it. {1} stands for the first of values, and so on;
// what stands in a value stays as it is.
std::string text_of(Text text, const std::vector<std::string> &values = {});

} // namespace tool

#endif
