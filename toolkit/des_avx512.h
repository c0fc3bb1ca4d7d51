// des_avx512.h: a row of des_decryptions; see des_avx512.cpp.
#ifndef TOOLKIT_DES_AVX512_H
#define TOOLKIT_DES_AVX512_H

#include <toolkit/implementations.h>

namespace toolkit {

void des_cbc_decrypt_avx512(const DesPasses &passes, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                            std::size_t blocks);

} // namespace toolkit

#endif
