// pkcs1.h: PKCS#1 v1.5 block formatting.
//
//     type 1 (private-key operation)   00 01 FF .. FF 00 data
//     type 2 (public-key operation)    00 02 nonzero random 00 data
//
// with at least 8 padding bytes, so that data has at most size - 11 bytes.
#ifndef TOOLKIT_PKCS1_H
#define TOOLKIT_PKCS1_H

#include <toolkit/random.h>
#include <toolkit/toolkit.h>

namespace toolkit {

constexpr uint32_t pkcs1_overhead = 11;

// Fill a block of size bytes around length bytes of data. Padding of type 2 is drawn from random,
// again for each octet that is zero. BE_INPUT_LEN: the data do not fit. BE_RANDOM_OBJ: random
// failed; the block is zeroed.
int pkcs1_pad_type1(uint8_t *block, uint32_t size, const uint8_t *data, uint32_t length);
int pkcs1_pad_type2(uint8_t *block, uint32_t size, const uint8_t *data, uint32_t length,
                    const RandomSource &random);

// Where the data of a block begin; they reach to its end. BE_PADDING: a block that is not as above,
// whatever is wrong with it; *start_out is 0. Type 1 blocks are public.
int pkcs1_open_type1(const uint8_t *block, uint32_t size, uint32_t *start_out);
// Type 2 blocks are secret: time does not depend on their contents, only the one verdict does.
int pkcs1_open_type2(const uint8_t *block, uint32_t size, uint32_t *start_out);

} // namespace toolkit

#endif
