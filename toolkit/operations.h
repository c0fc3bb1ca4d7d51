// operations.h: the functions that operation rows are made of, by family.
#ifndef TOOLKIT_OPERATIONS_H
#define TOOLKIT_OPERATIONS_H

#include "objects.h"

namespace toolkit {

// ---- cipher.cpp: block ciphers in CBC mode, and key streams

// Readies a cipher with these key bytes and the IV. BE_KEY_LEN, BE_ALLOC.
int start_cipher(AlgorithmObject *object, const CipherMethod &method, const uint8_t *key,
                 uint32_t key_size, uint32_t effective_bits, const uint8_t iv[8]);
int init_cipher(AlgorithmObject *object, const Start &start);
int update_cipher(AlgorithmObject *object, Input input,
                  Output *output); // but for padded decryption
int update_padded_decryption(AlgorithmObject *object, Input input, Output *output);
int finish_cipher(AlgorithmObject *object, Output *output, AlgorithmObject *random);
int finish_padded_encryption(AlgorithmObject *object, Output *output, AlgorithmObject *random);
int finish_padded_decryption(AlgorithmObject *object, Output *output, AlgorithmObject *random);

// ---- pbe.cpp: password-based encryption (PKCS#5 v1.5)

// methods[0] digests, methods[1] is the cipher; the rest is the padded cipher's.
int init_pbe(AlgorithmObject *object, const Start &start);
// PBKDF1: 16 bytes into output. BE_CANCEL, BE_ALLOC.
int pbkdf1(uint8_t output[digest_size], const DigestMethod &digest, Input password, Input salt,
           uint32_t iterations, const SurrenderContext *surrender);

// ---- digest.cpp

int init_digest(AlgorithmObject *object, const Start &start);
int init_generic_digest(AlgorithmObject *object, const Start &start);
int update_digest(AlgorithmObject *object, Input input, Output *output);
int finish_digest(AlgorithmObject *object, Output *output, AlgorithmObject *random);

// ---- rsa_cipher.cpp: RSA on one block

int init_rsa(AlgorithmObject *object, const Start &start);
int update_rsa(AlgorithmObject *object, Input input, Output *output);         // up to a block
int update_rsa_padding(AlgorithmObject *object, Input input, Output *output); // less PKCS#1's part
int finish_rsa_raw(AlgorithmObject *object, Output *output, AlgorithmObject *random);
int finish_rsa_pad_type1(AlgorithmObject *object, Output *output, AlgorithmObject *random);
int finish_rsa_pad_type2(AlgorithmObject *object, Output *output, AlgorithmObject *random);
int finish_rsa_open_type1(AlgorithmObject *object, Output *output, AlgorithmObject *random);
int finish_rsa_open_type2(AlgorithmObject *object, Output *output, AlgorithmObject *random);

// ---- signature.cpp: a digest (methods[0]) signed with RSA (methods[1])

int init_signature(AlgorithmObject *object, const Start &start);
int update_signature(AlgorithmObject *object, Input input, Output *output);
int finish_signing(AlgorithmObject *object, Output *output, AlgorithmObject *random);
int verify_signature(AlgorithmObject *object, Input signature);

// ---- digest_info.cpp

// Writes SEQUENCE { SEQUENCE { algorithm, NULL }, digest }.
void write_digest_info(BerWriter *writer, const Oid &algorithm, const uint8_t digest[digest_size]);

// ---- generator.cpp

int init_md2_random(AlgorithmObject *object, const Start &start);
int init_md5_random(AlgorithmObject *object, const Start &start);
int update_random(AlgorithmObject *object, Input input, Output *output);

// ---- recoding.cpp

int init_encoding(AlgorithmObject *object, const Start &start);
int update_encoding(AlgorithmObject *object, Input input, Output *output);
int finish_encoding(AlgorithmObject *object, Output *output, AlgorithmObject *random);
int init_decoding(AlgorithmObject *object, const Start &start);
int update_decoding(AlgorithmObject *object, Input input, Output *output);
int finish_decoding(AlgorithmObject *object, Output *output, AlgorithmObject *random);

} // namespace toolkit

#endif
