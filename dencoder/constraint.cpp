// constraint.cpp: which characters the string types have (X.680 41).
#include "environment.h"

namespace dencoder {
namespace {

bool is_printable(uint8_t character) {
    return (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
           (character >= 'a' && character <= 'z') ||
           (character != 0 && strchr(" '()+,-./:=?", character) != nullptr);
}

} // namespace

// What others encoded is taken with any 7-bit character, because '@', '*' and '_' are common in
// printable strings; what this runtime encodes keeps to the type.
bool check_characters(Alphabet alphabet, const uint8_t *characters, uint32_t length,
                      Direction direction) {
    if (alphabet == Alphabet::all)
        return true;
    const bool strict = alphabet == Alphabet::printable && direction == Direction::encoding;
    for (uint32_t i = 0; i < length; ++i)
        if (characters[i] >= 0x80 || (strict && !is_printable(characters[i])))
            return false;
    return true;
}

} // namespace dencoder
