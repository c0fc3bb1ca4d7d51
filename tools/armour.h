// armour.h: writing printable armour.
#ifndef TOOLS_ARMOUR_H
#define TOOLS_ARMOUR_H

#include <cstdint>
#include <span>
#include <string>

namespace tool {

// Base 64 of bytes in lines of 64 characters, each ended by a new line. Pieces of a longer whole
// must be multiples of 48 bytes, but for the last.
std::string armour_lines(std::span<const uint8_t> bytes);

// The same between marker lines; without them where label is empty.
std::string armoured(std::span<const uint8_t> bytes, const std::string &label);

// What a raw signature stands under. "DIGITAL SIGNATURE" would promise PKCS#7 signed data.
constexpr const char *kRawSignatureLabel = "RAW SIGNATURE";

} // namespace tool

#endif
