// toolkit.h: the cryptographic toolkit's interface.
//
// Callers never touch an algorithm's state. They create an algorithm object, give it an
// algorithm-info type with its info record, give a key object a key-info type with its key record,
// initialise the algorithm for one use with a chooser (which methods may serve), feed data, and
// destroy both objects:
//
//     B_CreateAlgorithmObject  B_SetAlgorithmInfo  B_..Init  B_..Update*  B_..Final  B_Destroy..
//
// What holds everywhere:
//  - Functions return 0 or one of the BE_ errors. An output length is 0 after a failure.
//  - Info and key records are copied in by a Set call. A Get call hands out a record that belongs to
//    the object: read it before the object is changed or destroyed, do not free it.
//  - Integers are unsigned, big-endian; a leading zero octet is allowed going in, none comes out.
//  - Output capacity that is too small gives BE_OUTPUT_LEN and writes nothing.
//  - Update calls may hold bytes back (a cipher block, a base-64 group, an RSA block) until Final.
//  - Whatever is secret is zeroed before its memory is freed.
#ifndef TOOLKIT_TOOLKIT_H
#define TOOLKIT_TOOLKIT_H

#include <cstddef>
#include <cstdint>

namespace toolkit {

// ---- Errors --------------------------------------------------------------------------------------

enum Error : int {
    BE_OK = 0,
    BE_ALGORITHM_ALREADY_SET,
    BE_ALGORITHM_INFO,             // an info record that is null or holds a bad value
    BE_ALGORITHM_NOT_INITIALIZED,  // an update or final without its init
    BE_ALGORITHM_NOT_SET,
    BE_ALGORITHM_OBJ,              // a null algorithm object
    BE_ALG_OPERATION_UNKNOWN,      // this algorithm cannot be put to this use
    BE_ALLOC,
    BE_CANCEL,                     // the surrender function asked to stop
    BE_DATA,                       // bad input: encoding, characters, range
    BE_INPUT_LEN,
    BE_KEY_ALREADY_SET,
    BE_KEY_INFO,
    BE_KEY_LEN,
    BE_KEY_NOT_SET,
    BE_KEY_OBJ,
    BE_KEY_OPERATION_UNKNOWN,      // the key object cannot give this key-info type
    BE_METHOD_NOT_IN_CHOOSER,
    BE_MODULUS_LEN,
    BE_NOT_SUPPORTED,              // an algorithm whose definition was never published
    BE_OUTPUT_LEN,
    BE_PADDING,                    // a block that does not open: padding, block type, DigestInfo
    BE_RANDOM_NOT_INITIALIZED,
    BE_RANDOM_OBJ,
    BE_SIGNATURE,                  // a signature that does not verify
    BE_INTERNAL,
};

// ---- Records -------------------------------------------------------------------------------------

using POINTER = const void *;

struct ITEM {
    uint8_t *data;
    uint32_t len;
};

struct A_RSA_KEY {
    ITEM modulus;
    ITEM exponent;
};

struct A_RSA_CRT_KEY {
    ITEM modulus;
    ITEM prime[2];
    ITEM primeExponent[2];
    ITEM coefficient;
};

// The numbers of a PKCS#1 RSAPrivateKey.
struct A_PKCS_RSA_PRIVATE_KEY {
    ITEM modulus;
    ITEM publicExponent;
    ITEM privateExponent;
    ITEM prime[2];
    ITEM primeExponent[2];
    ITEM coefficient;
};

// Progress of a long operation: surrender(handle) is called now and then; 0 means go on.
struct SurrenderContext {
    int32_t (*surrender)(void *handle);
    void *handle;
    void *reserved;  // null
};

// ---- Objects -------------------------------------------------------------------------------------

struct AlgorithmObject;
struct KeyObject;
using B_ALGORITHM_OBJ = AlgorithmObject *;
using B_KEY_OBJ = KeyObject *;

struct AlgorithmInfoType;  // AI_...
struct KeyInfoType;        // KI_...
struct AlgorithmMethod;    // AM_...

using B_INFO_TYPE = const AlgorithmInfoType *;
using B_KEY_INFO_TYPE = const KeyInfoType *;
// A null-terminated array of methods; an Init takes the first that serves its algorithm and use.
using B_ALGORITHM_CHOOSER = const AlgorithmMethod *const *;

int B_CreateAlgorithmObject(B_ALGORITHM_OBJ *object);
void B_DestroyAlgorithmObject(B_ALGORITHM_OBJ *object);  // nulls the handle; null is ignored
int B_CreateKeyObject(B_KEY_OBJ *object);
void B_DestroyKeyObject(B_KEY_OBJ *object);

int B_SetAlgorithmInfo(B_ALGORITHM_OBJ object, B_INFO_TYPE type, POINTER info);
int B_GetAlgorithmInfo(POINTER *info, B_ALGORITHM_OBJ object, B_INFO_TYPE type);
int B_SetKeyInfo(B_KEY_OBJ object, B_KEY_INFO_TYPE type, POINTER info);
int B_GetKeyInfo(POINTER *info, B_KEY_OBJ object, B_KEY_INFO_TYPE type);

// ---- Uses ----------------------------------------------------------------------------------------

int B_EncryptInit(B_ALGORITHM_OBJ object, B_KEY_OBJ key, B_ALGORITHM_CHOOSER chooser,
                  const SurrenderContext *surrender);
int B_EncryptUpdate(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                    uint32_t maxOutputLen, const uint8_t *input, uint32_t inputLen,
                    B_ALGORITHM_OBJ random, const SurrenderContext *surrender);
int B_EncryptFinal(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                   uint32_t maxOutputLen, B_ALGORITHM_OBJ random,
                   const SurrenderContext *surrender);

int B_DecryptInit(B_ALGORITHM_OBJ object, B_KEY_OBJ key, B_ALGORITHM_CHOOSER chooser,
                  const SurrenderContext *surrender);
int B_DecryptUpdate(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                    uint32_t maxOutputLen, const uint8_t *input, uint32_t inputLen,
                    B_ALGORITHM_OBJ random, const SurrenderContext *surrender);
int B_DecryptFinal(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                   uint32_t maxOutputLen, B_ALGORITHM_OBJ random,
                   const SurrenderContext *surrender);

int B_DigestInit(B_ALGORITHM_OBJ object, B_KEY_OBJ key, B_ALGORITHM_CHOOSER chooser,
                 const SurrenderContext *surrender);
int B_DigestUpdate(B_ALGORITHM_OBJ object, const uint8_t *input, uint32_t inputLen,
                   const SurrenderContext *surrender);
int B_DigestFinal(B_ALGORITHM_OBJ object, uint8_t *digest, uint32_t *digestLen,
                  uint32_t maxDigestLen, const SurrenderContext *surrender);

int B_SignInit(B_ALGORITHM_OBJ object, B_KEY_OBJ key, B_ALGORITHM_CHOOSER chooser,
               const SurrenderContext *surrender);
int B_SignUpdate(B_ALGORITHM_OBJ object, const uint8_t *input, uint32_t inputLen,
                 const SurrenderContext *surrender);
int B_SignFinal(B_ALGORITHM_OBJ object, uint8_t *signature, uint32_t *signatureLen,
                uint32_t maxSignatureLen, B_ALGORITHM_OBJ random,
                const SurrenderContext *surrender);

int B_VerifyInit(B_ALGORITHM_OBJ object, B_KEY_OBJ key, B_ALGORITHM_CHOOSER chooser,
                 const SurrenderContext *surrender);
int B_VerifyUpdate(B_ALGORITHM_OBJ object, const uint8_t *input, uint32_t inputLen,
                   const SurrenderContext *surrender);
int B_VerifyFinal(B_ALGORITHM_OBJ object, const uint8_t *signature, uint32_t signatureLen,
                  B_ALGORITHM_OBJ random, const SurrenderContext *surrender);

int B_RandomInit(B_ALGORITHM_OBJ object, B_ALGORITHM_CHOOSER chooser,
                 const SurrenderContext *surrender);
int B_RandomUpdate(B_ALGORITHM_OBJ object, const uint8_t *input, uint32_t inputLen,
                   const SurrenderContext *surrender);
int B_GenerateRandomBytes(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t outputLen,
                          const SurrenderContext *surrender);

int B_GenerateInit(B_ALGORITHM_OBJ object, B_ALGORITHM_CHOOSER chooser,
                   const SurrenderContext *surrender);
int B_GenerateKeypair(B_ALGORITHM_OBJ object, B_KEY_OBJ publicKey, B_KEY_OBJ privateKey,
                      B_ALGORITHM_OBJ random, const SurrenderContext *surrender);
int B_GenerateParameters(B_ALGORITHM_OBJ object, B_ALGORITHM_OBJ result, B_ALGORITHM_OBJ random,
                         const SurrenderContext *surrender);

int B_KeyAgreeInit(B_ALGORITHM_OBJ object, B_KEY_OBJ key, B_ALGORITHM_CHOOSER chooser,
                   const SurrenderContext *surrender);
int B_KeyAgreePhase1(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                     uint32_t maxOutputLen, B_ALGORITHM_OBJ random,
                     const SurrenderContext *surrender);
int B_KeyAgreePhase2(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                     uint32_t maxOutputLen, const uint8_t *input, uint32_t inputLen,
                     const SurrenderContext *surrender);

int B_EncodeInit(B_ALGORITHM_OBJ object);
int B_EncodeUpdate(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                   uint32_t maxOutputLen, const uint8_t *input, uint32_t inputLen);
int B_EncodeFinal(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                  uint32_t maxOutputLen);
int B_DecodeInit(B_ALGORITHM_OBJ object);
int B_DecodeUpdate(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                   uint32_t maxOutputLen, const uint8_t *input, uint32_t inputLen);
int B_DecodeFinal(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                  uint32_t maxOutputLen);

// DigestInfo (PKCS#1): the encoding of { algorithm, digest }, where algorithm is an encoded
// AlgorithmIdentifier's object identifier contents; see each function in digest_info.h.

// ---- Algorithm infos ------------------------------------------------------------------------------

struct A_RC2_CBC_PARAMS {  // also "Rc2CbcParams"
    uint32_t effectiveKeyBits;
    const uint8_t *iv;  // 8 bytes
};
using Rc2CbcParams = A_RC2_CBC_PARAMS;

struct A_PBE_PARAMS {
    const uint8_t *salt;  // 8 bytes
    uint32_t iterationCount;
};

struct A_RC2_PBE_PARAMS {
    uint32_t effectiveKeyBits;
    const uint8_t *salt;  // 8 bytes
    uint32_t iterationCount;
};

struct A_RSA_KEY_GEN_PARAMS {
    uint32_t modulusBits;
    ITEM publicExponent;
};

struct A_DH_KEY_AGREE_PARAMS {
    ITEM prime;
    ITEM base;
    uint32_t exponentBits;
};

struct A_DH_PARAM_GEN_PARAMS {
    uint32_t primeBits;
    uint32_t exponentBits;
};

struct A_SECRET_SHARING_PARAMS {
    uint32_t threshold;
};

// One row each: what info record the type takes, and what its algorithm is.
extern const B_INFO_TYPE AI_DES_CBC_IV8, AI_DES_CBCPadIV8, AI_DES_CBCPadBER, AI_DES_CBCPadPEM,
    AI_DES_EDE3_CBC_IV8, AI_DES_EDE3_CBCPadIV8, AI_DES_EDE3_CBCPadBER, AI_DESX_CBC_IV8,
    AI_DESX_CBCPadIV8, AI_DESX_CBCPadBER, AI_RC2_CBC, AI_RC2_CBCPad, AI_RC2_CBCPadBER,
    AI_RC2_CBCPadPEM, AI_RC4, AI_RC4_BER, AI_RC4WithMAC, AI_RC4WithMAC_BER, AI_MD, AI_MD2,
    AI_MD2_BER, AI_MD2_PEM, AI_MD5, AI_MD5_BER, AI_MD5_PEM, AI_MAC, AI_MD2Random, AI_MD5Random,
    AI_MD2WithRSAEncryption, AI_MD2WithRSAEncryptionBER, AI_MD5WithRSAEncryption,
    AI_MD5WithRSAEncryptionBER, AI_MD2WithDES_CBCPad, AI_MD2WithDES_CBCPadBER,
    AI_MD5WithDES_CBCPad, AI_MD5WithDES_CBCPadBER, AI_MD2WithRC2_CBCPad, AI_MD2WithRC2_CBCPadBER,
    AI_MD5WithRC2_CBCPad, AI_MD5WithRC2_CBCPadBER, AI_MD5WithXOR, AI_MD5WithXOR_BER,
    AI_PKCS_RSAPrivate, AI_PKCS_RSAPrivateBER, AI_PKCS_RSAPrivatePEM, AI_PKCS_RSAPublic,
    AI_PKCS_RSAPublicBER, AI_PKCS_RSAPublicPEM, AI_RSAPrivate, AI_RSAPublic, AI_RSAKeyGen,
    AI_DHKeyAgree, AI_DHKeyAgreeBER, AI_DHParamGen, AI_RFC1113Recode, AI_BSSecretSharing;

extern const B_KEY_INFO_TYPE KI_Item, KI_8Byte, KI_DES8, KI_24Byte, KI_DESX, KI_RSAPublic,
    KI_RSAPublicBER, KI_RSAPrivate, KI_RSA_CRT, KI_PKCS_RSAPrivate, KI_PKCS_RSAPrivateBER;

extern const AlgorithmMethod AM_RSA_KEY_GEN, AM_MD2_RANDOM, AM_MD5_RANDOM, AM_MD2, AM_MD5,
    AM_RSA_ENCRYPT, AM_RSA_DECRYPT, AM_RSA_CRT_ENCRYPT, AM_RSA_CRT_DECRYPT, AM_DES_CBC_ENCRYPT,
    AM_DES_CBC_DECRYPT, AM_DES_EDE3_CBC_ENCRYPT, AM_DES_EDE3_CBC_DECRYPT, AM_RC2_CBC_ENCRYPT,
    AM_RC2_CBC_DECRYPT, AM_RC4_ENCRYPT, AM_RC4_DECRYPT, AM_DH_KEY_AGREE, AM_DH_PARAM_GEN,
    AM_DESX_CBC_ENCRYPT, AM_DESX_CBC_DECRYPT, AM_RC4_WITH_MAC_ENCRYPT, AM_RC4_WITH_MAC_DECRYPT,
    AM_MAC, AM_MD;

}  // namespace toolkit

#endif
