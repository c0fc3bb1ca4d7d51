#include "objects.h"

#include <toolkit/des.h>
#include <toolkit/rc2.h>
#include <toolkit/rc4.h>

namespace toolkit {
namespace {

template <class Key, void (*crypt)(const Key *, uint8_t *, const uint8_t *, uint8_t *, std::size_t)>
void cbc(void *schedule, uint8_t *iv, const uint8_t *in, uint8_t *out, std::size_t blocks) {
    crypt(static_cast<const Key *>(schedule), iv, in, out, blocks);
}

bool set_des_key(void *schedule, const uint8_t *key, uint32_t, uint32_t) {
    des_set_key(static_cast<DesKey *>(schedule), key);
    return true;
}

bool set_des_ede3_key(void *schedule, const uint8_t *key, uint32_t, uint32_t) {
    des_ede3_set_key(static_cast<DesEde3Key *>(schedule), key);
    return true;
}

bool set_desx_key(void *schedule, const uint8_t *key, uint32_t, uint32_t) {
    desx_set_key(static_cast<DesxKey *>(schedule), key, key + 8, key + 16);
    return true;
}

bool set_rc2_key(void *schedule, const uint8_t *key, uint32_t size, uint32_t effective_bits) {
    return rc2_set_key(static_cast<Rc2Key *>(schedule), key, size, effective_bits);
}

bool set_rc4_key(void *schedule, const uint8_t *key, uint32_t size, uint32_t) {
    return rc4_set_key(static_cast<Rc4 *>(schedule), key, size);
}

void crypt_rc4(void *schedule, uint8_t *, const uint8_t *in, uint8_t *out, std::size_t size) {
    rc4_crypt(static_cast<Rc4 *>(schedule), in, out, size);
}

template <class Key, auto crypt>
constexpr CipherMethod des_family(uint32_t key_size, decltype(CipherMethod::set_key) set_key) {
    return {des_block_size, key_size, key_size, sizeof(Key), set_key, cbc<Key, crypt>};
}

constexpr CipherMethod des_encrypt = des_family<DesKey, des_cbc_encrypt>(8, set_des_key);
constexpr CipherMethod des_decrypt = des_family<DesKey, des_cbc_decrypt>(8, set_des_key);
constexpr CipherMethod ede3_encrypt =
    des_family<DesEde3Key, des_ede3_cbc_encrypt>(24, set_des_ede3_key);
constexpr CipherMethod ede3_decrypt =
    des_family<DesEde3Key, des_ede3_cbc_decrypt>(24, set_des_ede3_key);
constexpr CipherMethod desx_encrypt = des_family<DesxKey, desx_cbc_encrypt>(24, set_desx_key);
constexpr CipherMethod desx_decrypt = des_family<DesxKey, desx_cbc_decrypt>(24, set_desx_key);
constexpr CipherMethod rc2_encrypt = {rc2_block_size, 1,           128,
                                      sizeof(Rc2Key), set_rc2_key, cbc<Rc2Key, rc2_cbc_encrypt>};
constexpr CipherMethod rc2_decrypt = {rc2_block_size, 1,           128,
                                      sizeof(Rc2Key), set_rc2_key, cbc<Rc2Key, rc2_cbc_decrypt>};
constexpr CipherMethod rc4 = {1, 1, 256, sizeof(Rc4), set_rc4_key, crypt_rc4};

constexpr AlgorithmMethod row(Primitive primitive, const CipherMethod &cipher) {
    return {.provides = primitive, .cipher = &cipher};
}

} // namespace

using P = Primitive;
// clang-format off
constexpr AlgorithmMethod AM_DES_CBC_ENCRYPT      = row(P::des_cbc_encrypt,      des_encrypt);
constexpr AlgorithmMethod AM_DES_CBC_DECRYPT      = row(P::des_cbc_decrypt,      des_decrypt);
constexpr AlgorithmMethod AM_DES_EDE3_CBC_ENCRYPT = row(P::des_ede3_cbc_encrypt, ede3_encrypt);
constexpr AlgorithmMethod AM_DES_EDE3_CBC_DECRYPT = row(P::des_ede3_cbc_decrypt, ede3_decrypt);
constexpr AlgorithmMethod AM_DESX_CBC_ENCRYPT     = row(P::desx_cbc_encrypt,     desx_encrypt);
constexpr AlgorithmMethod AM_DESX_CBC_DECRYPT     = row(P::desx_cbc_decrypt,     desx_decrypt);
constexpr AlgorithmMethod AM_RC2_CBC_ENCRYPT      = row(P::rc2_cbc_encrypt,      rc2_encrypt);
constexpr AlgorithmMethod AM_RC2_CBC_DECRYPT      = row(P::rc2_cbc_decrypt,      rc2_decrypt);
constexpr AlgorithmMethod AM_RC4_ENCRYPT          = row(P::rc4_encrypt,          rc4);
constexpr AlgorithmMethod AM_RC4_DECRYPT          = row(P::rc4_decrypt,          rc4);

// Never published: no operation needs them.
constexpr AlgorithmMethod AM_RC4_WITH_MAC_ENCRYPT = {.provides = Primitive::rc4_with_mac_encrypt};
constexpr AlgorithmMethod AM_RC4_WITH_MAC_DECRYPT = {.provides = Primitive::rc4_with_mac_decrypt};
constexpr AlgorithmMethod AM_MAC                  = {.provides = Primitive::mac};
// clang-format on

} // namespace toolkit
