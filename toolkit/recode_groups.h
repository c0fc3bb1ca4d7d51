// recode_groups.h: the inner loops of recode.cpp. The vector versions leave what is shorter than a
// vector to the portable ones.
#ifndef TOOLKIT_RECODE_GROUPS_H
#define TOOLKIT_RECODE_GROUPS_H

#include "cpu.h"

#include <cstddef>
#include <cstdint>

namespace toolkit {

// Whole groups of three bytes. Returns how many bytes were read.
std::size_t recode_encode_portable(uint8_t *out, const uint8_t *in, std::size_t size);
// Whole groups of four characters, up to the first that has anything but characters of the
// alphabet. Returns how many characters were read. The rest of the room that out has for size
// characters may be overwritten.
std::size_t recode_decode_portable(uint8_t *out, const uint8_t *in, std::size_t size);

#if TOOLKIT_HAS_X86_VECTORS
std::size_t recode_encode_avx2(uint8_t *out, const uint8_t *in, std::size_t size);
std::size_t recode_decode_avx2(uint8_t *out, const uint8_t *in, std::size_t size);
std::size_t recode_encode_avx512(uint8_t *out, const uint8_t *in, std::size_t size);
std::size_t recode_decode_avx512(uint8_t *out, const uint8_t *in, std::size_t size);
#endif

} // namespace toolkit

#endif
