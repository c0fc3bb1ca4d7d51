// armour.h: writing printable armour.
#ifndef TOOLS_ARMOUR_H
#define TOOLS_ARMOUR_H

#include "input.h"

#include <span>
#include <string>

namespace tool {

// Base 64 of bytes in lines of 64 characters, each ended by a new line, between marker lines;
// without those where label is empty. The text is as secret as the bytes.
Bytes armoured(std::span<const uint8_t> bytes, const std::string &label);

// What a raw signature stands under. "DIGITAL SIGNATURE" would promise PKCS#7 signed data.
constexpr const char *raw_signature_label = "RAW SIGNATURE";

} // namespace tool

#endif
