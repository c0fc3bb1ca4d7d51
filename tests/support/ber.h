// ber.h: encodings written by hand.
#ifndef TESTS_SUPPORT_BER_H
#define TESTS_SUPPORT_BER_H

#include "support/files.h"

#include <string>

// The length octets of DER.
inline Bytes der_length(std::size_t length) {
    if (length < 0x80)
        return {static_cast<uint8_t>(length)};
    Bytes octets;
    for (; length != 0; length >>= 8)
        octets.insert(octets.begin(), static_cast<uint8_t>(length));
    octets.insert(octets.begin(), static_cast<uint8_t>(0x80 | octets.size()));
    return octets;
}

// Hexadecimal digits, in which {...} stands for its length and then its contents, and '...' for
// characters: ber("30{ 13{'US'} 0500 }").
inline Bytes ber(const std::string &text, std::size_t &at, bool inside) {
    Bytes bytes;
    std::string digits;
    const auto add = [&bytes](const Bytes &more) {
        bytes.insert(bytes.end(), more.begin(), more.end());
    };
    for (; at < text.size(); ++at) {
        const char next = text[at];
        if (next != '{' && next != '}' && next != '\'') {
            digits += next;
            continue;
        }
        add(from_hex(digits));
        digits.clear();
        if (next == '}' && inside)
            return bytes;
        if (next == '\'') {
            for (++at; at < text.size() && text[at] != '\''; ++at)
                bytes.push_back(static_cast<uint8_t>(text[at]));
        } else {
            const Bytes contents = ber(text, ++at, true);
            add(der_length(contents.size()));
            add(contents);
        }
    }
    add(from_hex(digits));
    return bytes;
}

inline Bytes ber(const std::string &text) {
    std::size_t at = 0;
    return ber(text, at, false);
}

inline Bytes repeated(const std::string &text, std::size_t count) {
    const Bytes once = ber(text);
    Bytes bytes;
    bytes.reserve(once.size() * count);
    for (; count != 0; --count)
        bytes.insert(bytes.end(), once.begin(), once.end());
    return bytes;
}

inline Bytes tlv(uint8_t identifier, const Bytes &contents) {
    return Bytes{identifier} + der_length(contents.size()) + contents;
}

#endif
