// words.h: an XDR encoder of the tests' own (RFC 4506), for what the protocol must look like.
#ifndef TESTS_QELLOGIN_WORDS_H
#define TESTS_QELLOGIN_WORDS_H

#include "support/files.h"

struct Words {
    Bytes bytes;

    Words() = default;
    // A number is a word, text a string, bytes an array with a word for each of them.
    template <class... Values>
    requires(sizeof...(Values) != 0) explicit Words(const Values &...values) { (add(values), ...); }

    Words &add(uint32_t value) {
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes.push_back(static_cast<uint8_t>(value >> shift));
        return *this;
    }
    Words &add(int value) { return add(static_cast<uint32_t>(value)); }
    Words &add(const std::string &value) {
        add(static_cast<uint32_t>(value.size()));
        bytes.insert(bytes.end(), value.begin(), value.end());
        bytes.resize((bytes.size() + 3) / 4 * 4);
        return *this;
    }
    Words &add(const Bytes &value) {
        add(static_cast<uint32_t>(value.size()));
        for (const uint8_t byte : value)
            add(uint32_t{byte});
        return *this;
    }
    Words &add(const Words &more) {
        bytes.insert(bytes.end(), more.bytes.begin(), more.bytes.end());
        return *this;
    }
    // As opaque data would be: what this protocol does not have.
    Words &packed(const Bytes &value) { return add(text_of(value)); }
};

#endif
