// hex.h: bytes as hexadecimal text. The way back, __qel_hex_2_binary, is in qelp.h.
#ifndef UTIL_HEX_H
#define UTIL_HEX_H

#include <qel/qel.h>

// binary_2_hex writes two lower-case digits for each byte, without prefix or separators.
//   text_out  a new NUL-terminated string of 2 x length digits; the caller frees it.
// QEL_ERR_BAD_PARAM: a null argument or length 0. QEL_ERR_NO_MEMORY.
QelStatus binary_2_hex(const uint8_t *bytes, uint32_t length, char **text_out);

#endif
