// rc2_avx512.h: a row of rc2_decryptions; see rc2_avx512.cpp.
#ifndef TOOLKIT_RC2_AVX512_H
#define TOOLKIT_RC2_AVX512_H

#include <toolkit/rc2.h>

namespace toolkit {

void rc2_cbc_decrypt_avx512(const Rc2Key &key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                            std::size_t blocks);

} // namespace toolkit

#endif
