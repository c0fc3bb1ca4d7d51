// words.h: an XDR encoder of the tests' own (RFC 4506), for what the protocol must look like.
#ifndef TESTS_QELLOGIN_WORDS_H
#define TESTS_QELLOGIN_WORDS_H

#include "support/files.h"

struct Words {
    Bytes bytes;

    Words &word(uint32_t value) {
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes.push_back(static_cast<uint8_t>(value >> shift));
        return *this;
    }
    Words &text(const std::string &value) {
        word(static_cast<uint32_t>(value.size()));
        bytes.insert(bytes.end(), value.begin(), value.end());
        bytes.resize((bytes.size() + 3) / 4 * 4);
        return *this;
    }
    // A word for each byte.
    Words &array(const Bytes &value) {
        word(static_cast<uint32_t>(value.size()));
        for (const uint8_t byte : value)
            word(byte);
        return *this;
    }
    // As opaque data would be: what this protocol does not have.
    Words &packed(const Bytes &value) { return text(text_of(value)); }
};

#endif
