// des.h: DES (FIPS 46-3), triple DES (EDE with three keys) and DESX, in CBC mode (FIPS 81).
//
// The CBC functions take whole blocks of 8 bytes. iv holds the chaining value: it is read at the
// start and left ready for the next run of blocks. in and out may be the same buffer, but must not
// overlap otherwise.
//
// Encryption, and decryption of short runs, look up in tables by secrets: their timing is not
// hidden. Longer runs of decryption are constant-time where the processor has AVX-512.
#ifndef TOOLKIT_DES_H
#define TOOLKIT_DES_H

#include <cstddef>
#include <cstdint>

namespace toolkit {

constexpr std::size_t des_block_size = 8;
constexpr std::size_t des_key_size = 8;

// A key schedule: secret, to be zeroed by its owner. The keys of rounds 1 and 2, then for rounds 3
// to 16 what to add to get from the key two rounds before to this one, then the keys of rounds 15
// and 16; a byte of an entry has the six bits for one S-box. Decryption walks it from the end.
struct DesKey {
    uint64_t rounds[18];
};

// The parity bits of key are ignored; weak keys are taken like any other.
void des_set_key(DesKey *schedule, const uint8_t key[8]);
void des_cbc_encrypt(const DesKey *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                     std::size_t blocks);
void des_cbc_decrypt(const DesKey *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                     std::size_t blocks);

// 24 bytes: the key of the first encryption, of the decryption, of the last encryption.
struct DesEde3Key {
    DesKey key[3];
};

void des_ede3_set_key(DesEde3Key *schedule, const uint8_t key[24]);
void des_ede3_cbc_encrypt(const DesEde3Key *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                          std::size_t blocks);
void des_ede3_cbc_decrypt(const DesEde3Key *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                          std::size_t blocks);

// DESX: a block is whitened before and after DES, C = post ^ DES(pre ^ P).
struct DesxKey {
    DesKey des;
    uint8_t pre[8];
    uint8_t post[8];
};

void desx_set_key(DesxKey *schedule, const uint8_t des[8], const uint8_t pre[8],
                  const uint8_t post[8]);
void desx_cbc_encrypt(const DesxKey *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                      std::size_t blocks);
void desx_cbc_decrypt(const DesxKey *key, uint8_t iv[8], const uint8_t *in, uint8_t *out,
                      std::size_t blocks);

} // namespace toolkit

#endif
