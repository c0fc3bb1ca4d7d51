// input.h: data that came as text. Files are read by __qel_read_input (qelp.h).
#ifndef UTIL_INPUT_H
#define UTIL_INPUT_H

#include <qel/qel.h>

// The bytes that armour (QEL_FORM_ARMOUR) or hexadecimal text (QEL_FORM_HEX, which is cleaned first)
// stands for.
//   bytes_out  a new buffer with a zero byte behind the bytes; the caller frees it.
// QEL_ERR_BAD_PARAM: another form. What __qel_rfc1421_2_binary or __qel_parse_hex and
// __qel_hex_2_binary return.
QelStatus decode_text(int form, const char *text, uint32_t length, uint8_t **bytes_out,
                      uint32_t *length_out);

#endif
