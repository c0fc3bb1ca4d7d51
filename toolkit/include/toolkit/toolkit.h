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
//  - Info and key records are copied in by a Set call. A Get call hands out a record that belongs
//    to the object: read it before the object is changed or destroyed, do not free it.
//  - Integers are unsigned, big-endian; a leading zero octet is allowed going in, none comes out.
//  - Output capacity that is too small gives BE_OUTPUT_LEN and writes nothing.
//  - Update calls may hold bytes back (a cipher block, a base-64 group, an RSA block) until Final.
//  - Whatever is secret is zeroed before its memory is freed.
#ifndef TOOLKIT_TOOLKIT_H
#define TOOLKIT_TOOLKIT_H

#include <cstddef>
#include <cstdint>

namespace toolkit {

// ---- Errors

enum Error : int {
    BE_OK = 0,
    BE_ALGORITHM_ALREADY_SET,
    BE_ALGORITHM_INFO,            // an info record that is null or holds a bad value
    BE_ALGORITHM_NOT_INITIALIZED, // an update or final without its init
    BE_ALGORITHM_NOT_SET,
    BE_ALGORITHM_OBJ,         // a null algorithm object
    BE_ALG_OPERATION_UNKNOWN, // this algorithm cannot be put to this use
    BE_ALLOC,
    BE_CANCEL, // the surrender function asked to stop
    BE_DATA,   // bad input: encoding, characters, range
    BE_INPUT_LEN,
    BE_KEY_ALREADY_SET,
    BE_KEY_INFO,
    BE_KEY_LEN,
    BE_KEY_NOT_SET,
    BE_KEY_OBJ,
    BE_KEY_OPERATION_UNKNOWN, // the key object cannot give this key-info type
    BE_METHOD_NOT_IN_CHOOSER,
    BE_MODULUS_LEN,
    BE_NOT_SUPPORTED, // an algorithm whose definition was never published
    BE_OUTPUT_LEN,
    BE_PADDING, // a block that does not open: padding, block type, DigestInfo
    BE_RANDOM_NOT_INITIALIZED,
    BE_RANDOM_OBJ,
    BE_SIGNATURE, // a signature that does not verify
    BE_INTERNAL,
};

// ---- Records

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
    void *reserved; // null
};

// ---- Objects

struct AlgorithmObject;
struct KeyObject;
using B_ALGORITHM_OBJ = AlgorithmObject *;
using B_KEY_OBJ = KeyObject *;

struct AlgorithmInfoType; // AI_...
struct KeyInfoType;       // KI_...
struct AlgorithmMethod;   // AM_...

using B_INFO_TYPE = const AlgorithmInfoType *;
using B_KEY_INFO_TYPE = const KeyInfoType *;
// A null-terminated array of methods; an Init takes the first that serves its algorithm and use.
using B_ALGORITHM_CHOOSER = const AlgorithmMethod *const *;

// A new, empty object. BE_ALGORITHM_OBJ or BE_KEY_OBJ: object is null; BE_ALLOC.
int B_CreateAlgorithmObject(B_ALGORITHM_OBJ *object);
int B_CreateKeyObject(B_KEY_OBJ *object);
// Zeroes and frees the object with every record read from it, and nulls the handle. A null handle
// is ignored.
void B_DestroyAlgorithmObject(B_ALGORITHM_OBJ *object);
void B_DestroyKeyObject(B_KEY_OBJ *object);

// Binds an empty object to one algorithm. info is the record of the table below; types without one
// take any pointer and do not look at it. A failure leaves the object empty.
// BE_ALGORITHM_OBJ; BE_ALGORITHM_ALREADY_SET; BE_ALGORITHM_INFO: a null type or a bad record;
// BE_DATA: an encoding that is malformed or names another algorithm; BE_ALLOC.
int B_SetAlgorithmInfo(B_ALGORITHM_OBJ object, B_INFO_TYPE type, POINTER info);
// Reads the info back through any type of the same algorithm (so DES_CBCPadIV8 as DES_CBCPadBER);
// *info is null for a type without a record. BE_ALGORITHM_OBJ; BE_ALGORITHM_NOT_SET;
// BE_ALGORITHM_INFO: another algorithm's type, or a value that the type cannot express;
// BE_NOT_SUPPORTED; BE_ALLOC.
int B_GetAlgorithmInfo(POINTER *info, B_ALGORITHM_OBJ object, B_INFO_TYPE type);

// Gives an empty key object its key. A failure leaves the object empty.
// BE_KEY_OBJ; BE_KEY_ALREADY_SET; BE_KEY_INFO: a null type or record, or numbers that make no key;
// BE_MODULUS_LEN: a modulus below 256 or above 16384 bits; BE_DATA: a malformed encoding or one of
// another kind of key; BE_ALLOC.
int B_SetKeyInfo(B_KEY_OBJ object, B_KEY_INFO_TYPE type, POINTER info);
// BE_KEY_OBJ; BE_KEY_NOT_SET; BE_KEY_INFO: a null argument; BE_KEY_OPERATION_UNKNOWN: the key has
// not what the type needs; BE_ALLOC.
int B_GetKeyInfo(POINTER *info, B_KEY_OBJ object, B_KEY_INFO_TYPE type);

// ---- Uses
//
// An Init ends whatever the object did before (zeroing its state) and readies it for one use. It
// fails, and leaves the object in no use, with
//     BE_ALGORITHM_OBJ, BE_ALGORITHM_NOT_SET
//     BE_ALG_OPERATION_UNKNOWN   the algorithm has no such use
//     BE_NOT_SUPPORTED           its definition was never published
//     BE_METHOD_NOT_IN_CHOOSER   the chooser is null or lacks a method; an algorithm made of two
//                                (MD5 with RSA) needs the methods of both
//     BE_KEY_OBJ, BE_KEY_NOT_SET, BE_KEY_OPERATION_UNKNOWN, BE_KEY_LEN, BE_KEY_INFO, BE_MODULUS_LEN
//                                a key that is missing or does not suit
//     BE_ALGORITHM_INFO          parameters that make no Diffie-Hellman group
//     BE_CANCEL                  the surrender function stopped a password's derivation
//     BE_ALLOC
// Nothing in the object refers to the key, the chooser or the surrender context after an Init.
//
// Update and Final fail with BE_ALGORITHM_OBJ, and with BE_ALGORITHM_NOT_INITIALIZED unless the
// Init of their use succeeded. After a failed Update the message stands as it stood before. Final
// begins the next message with the same key and the same start (IV, key stream), whether it
// succeeded or not; only BE_OUTPUT_LEN and the errors of the random object leave all as it is, to
// be tried again. The surrender context may be null; it is asked during key, parameter and password
// work alone.

// Encryption and decryption.
//   output    may be the input itself, or overlap it anyhow; an update writes whole blocks, at most
//             inputLen plus one block less one byte.
//             Where AI_PKCS_RSAPrivate opens a block, bad or good, zeros fill what the longest data
//             would take.
//   random    an algorithm object in random use, for RSA public-key encryption (block type 2)
//             and for secret sharing; elsewhere null will do.
// BE_OUTPUT_LEN. BE_INPUT_LEN: at Final, ciphertext, or plaintext without padding, that is no
// multiple of the block; with RSA, more than a block holds, or less where a block is opened.
// BE_PADDING: a block that does not open. BE_DATA: an RSA block not below the modulus, shares that
// contradict each other. BE_RANDOM_OBJ, BE_RANDOM_NOT_INITIALIZED. BE_ALLOC.
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

// Digests: 16 bytes. key is not looked at.
int B_DigestInit(B_ALGORITHM_OBJ object, B_KEY_OBJ key, B_ALGORITHM_CHOOSER chooser,
                 const SurrenderContext *surrender);
int B_DigestUpdate(B_ALGORITHM_OBJ object, const uint8_t *input, uint32_t inputLen,
                   const SurrenderContext *surrender);
int B_DigestFinal(B_ALGORITHM_OBJ object, uint8_t *digest, uint32_t *digestLen,
                  uint32_t maxDigestLen, const SurrenderContext *surrender);

// Signatures (PKCS#1: a type 1 block of the DigestInfo), as long as the modulus. Signing takes any
// private key, verification any key with a public exponent.
// BE_MODULUS_LEN at Init: the block has no room for the DigestInfo (less than 353 bits).
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
// BE_SIGNATURE: the opened block is not, byte for byte, the one that signing makes; a signature of
// another length than the modulus is among them.
int B_VerifyFinal(B_ALGORITHM_OBJ object, const uint8_t *signature, uint32_t signatureLen,
                  B_ALGORITHM_OBJ random, const SurrenderContext *surrender);

// Random bytes. Every RandomUpdate adds to the seed; bytes are asked for after the first that was
// not empty (BE_RANDOM_NOT_INITIALIZED before).
int B_RandomInit(B_ALGORITHM_OBJ object, B_ALGORITHM_CHOOSER chooser,
                 const SurrenderContext *surrender);
int B_RandomUpdate(B_ALGORITHM_OBJ object, const uint8_t *input, uint32_t inputLen,
                   const SurrenderContext *surrender);
int B_GenerateRandomBytes(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t outputLen,
                          const SurrenderContext *surrender);

// Generation of an RSA key pair into two empty key objects (the private one gives every RSA type,
// the public one KI_RSAPublic and KI_RSAPublicBER), or of Diffie-Hellman parameters into an empty
// algorithm object, which becomes one of AI_DHKeyAgree. A failure leaves them empty.
// BE_RANDOM_OBJ (it gave the same bytes again and again, too), BE_RANDOM_NOT_INITIALIZED,
// BE_KEY_OBJ, BE_KEY_ALREADY_SET, BE_ALGORITHM_ALREADY_SET, BE_ALG_OPERATION_UNKNOWN: the object
// generates the other thing; BE_CANCEL; BE_ALLOC.
int B_GenerateInit(B_ALGORITHM_OBJ object, B_ALGORITHM_CHOOSER chooser,
                   const SurrenderContext *surrender);
int B_GenerateKeypair(B_ALGORITHM_OBJ object, B_KEY_OBJ publicKey, B_KEY_OBJ privateKey,
                      B_ALGORITHM_OBJ random, const SurrenderContext *surrender);
int B_GenerateParameters(B_ALGORITHM_OBJ object, B_ALGORITHM_OBJ result, B_ALGORITHM_OBJ random,
                         const SurrenderContext *surrender);

// Key agreement (PKCS#3). Phase 1 makes a private value and writes the public one, phase 2 takes
// the other side's public value and writes the secret, both as long as the prime. Phase 2 may be
// repeated; a new phase 1 makes a new private value. key is not looked at.
// BE_ALGORITHM_NOT_INITIALIZED: phase 2 before phase 1; BE_DATA: a public value out of range;
// BE_OUTPUT_LEN; BE_RANDOM_OBJ, BE_RANDOM_NOT_INITIALIZED.
int B_KeyAgreeInit(B_ALGORITHM_OBJ object, B_KEY_OBJ key, B_ALGORITHM_CHOOSER chooser,
                   const SurrenderContext *surrender);
int B_KeyAgreePhase1(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                     uint32_t maxOutputLen, B_ALGORITHM_OBJ random,
                     const SurrenderContext *surrender);
int B_KeyAgreePhase2(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                     uint32_t maxOutputLen, const uint8_t *input, uint32_t inputLen,
                     const SurrenderContext *surrender);

// Recoding of bytes to printable characters and back (RFC 1113, base 64); see recode.h for what the
// decoder passes over and refuses. Output and input must not overlap. BE_OUTPUT_LEN. BE_DATA: bad
// characters, or at Final an unfinished group; the use is over then, and only an Init begins it
// anew.
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

// DigestInfo (PKCS#1): SEQUENCE { digestAlgorithm AlgorithmIdentifier, digest OCTET STRING }.
//   algorithmID   an encoded AlgorithmIdentifier, as AI_MD2_BER and AI_MD5_BER give it; any
//                 algorithm will do.
// Encoding writes DER. BE_OUTPUT_LEN; BE_ALGORITHM_INFO: a null or malformed algorithmID;
// BE_INPUT_LEN: a null digest with a length.
int B_EncodeDigestInfo(uint8_t *digestInfo, uint32_t *digestInfoLen, uint32_t maxDigestInfoLen,
                       const ITEM *algorithmID, const uint8_t *digest, uint32_t digestLen);
// Decoding points algorithmID and digest into digestInfo, which must be one DigestInfo and nothing
// behind it. BE_DATA.
int B_DecodeDigestInfo(ITEM *algorithmID, ITEM *digest, const uint8_t *digestInfo,
                       uint32_t digestInfoLen);

// ---- Algorithm infos

struct A_RC2_CBC_PARAMS {      // also "Rc2CbcParams"
    uint32_t effectiveKeyBits; // 1 to 1024
    const uint8_t *iv;         // 8 bytes
};
using Rc2CbcParams = A_RC2_CBC_PARAMS;

struct A_PBE_PARAMS {
    const uint8_t *salt;     // 8 bytes
    uint32_t iterationCount; // not 0
};

struct A_RC2_PBE_PARAMS {
    uint32_t effectiveKeyBits; // 1 to 1024; the BER form means 64 and can say no other
    const uint8_t *salt;       // 8 bytes
    uint32_t iterationCount;   // not 0
};

struct A_RSA_KEY_GEN_PARAMS {
    uint32_t modulusBits; // 256 to 16384
    ITEM publicExponent;  // odd, above 1, of fewer bits than the modulus
};

struct A_DH_KEY_AGREE_PARAMS {
    ITEM prime;
    ITEM base;
    uint32_t exponentBits; // 0: as long as the prime allows
};

struct A_DH_PARAM_GEN_PARAMS {
    uint32_t primeBits;
    uint32_t exponentBits;
};

struct A_SECRET_SHARING_PARAMS {
    uint32_t threshold; // how many shares give the secret back, 1 to shares
    uint32_t shares;    // how many shares are made, up to 255
};

// What each type takes as its info record, what it is, and its uses:
//
//   (none)                   the info pointer is not looked at, and reads back as null
//   8-byte IV                a pointer to 8 bytes
//   BER                      an ITEM: an AlgorithmIdentifier, written as DER
//   PEM                      NUL-terminated text in the manner of RFC 1423
//
//   encrypt, decrypt
//   AI_DES_CBC_IV8           8-byte IV    DES (FIPS 46-3) in CBC mode, input a multiple of 8 bytes
//   AI_DES_CBCPadIV8         8-byte IV    the same with PKCS#5 padding, as all "Pad" types
//   AI_DES_CBCPadBER         BER          1.3.14.3.2.7
//   AI_DES_CBCPadPEM         PEM          "DES-CBC,0123456789ABCDEF"
//   AI_DES_EDE3_CBC_IV8      8-byte IV    triple DES with three keys
//   AI_DES_EDE3_CBCPadIV8    8-byte IV
//   AI_DES_EDE3_CBCPadBER    BER          1.2.840.113549.3.7
//   AI_DESX_CBC_IV8          8-byte IV    DESX
//   AI_DESX_CBCPadIV8        8-byte IV
//   AI_DESX_CBCPadBER        BER          1.2.840.113549.3.6
//   AI_RC2_CBC               A_RC2_CBC_PARAMS  RC2 (RFC 2268); keys of 1 to 128 bytes
//   AI_RC2_CBCPad            A_RC2_CBC_PARAMS
//   AI_RC2_CBCPadBER         BER          1.2.840.113549.3.2; a bare IV means 32 effective bits
//   AI_RC2_CBCPadPEM         PEM          "RC2-CBC,40,0123456789ABCDEF": effective bits, IV
//   AI_RC4                   (none)       RC4; keys of 1 to 256 bytes
//   AI_RC4_BER               BER          1.2.840.113549.3.4
//   AI_RSAPublic             (none)       RSA with the public key on one block, no formatting
//   AI_RSAPrivate            (none)       and with the private key
//   AI_PKCS_RSAPublic        (none)       PKCS#1: encrypt makes type 2 blocks, decrypt opens type 1
//   AI_PKCS_RSAPublicBER     BER          1.2.840.113549.1.1.1
//   AI_PKCS_RSAPublicPEM     PEM          "RSA"
//   AI_PKCS_RSAPrivate       (none)       PKCS#1: encrypt makes type 1 blocks, decrypt opens type 2
//   AI_PKCS_RSAPrivateBER    BER          1.2.840.113549.1.1.1
//   AI_PKCS_RSAPrivatePEM    PEM          "RSA"
//   AI_MD2WithDES_CBCPad     A_PBE_PARAMS      PKCS#5 v1.5; the key is the password, as KI_Item
//   AI_MD2WithDES_CBCPadBER  BER               1.2.840.113549.1.5.1
//   AI_MD5WithDES_CBCPad     A_PBE_PARAMS
//   AI_MD5WithDES_CBCPadBER  BER               1.2.840.113549.1.5.3
//   AI_MD2WithRC2_CBCPad     A_RC2_PBE_PARAMS
//   AI_MD2WithRC2_CBCPadBER  BER               1.2.840.113549.1.5.4
//   AI_MD5WithRC2_CBCPad     A_RC2_PBE_PARAMS
//   AI_MD5WithRC2_CBCPadBER  BER               1.2.840.113549.1.5.6
//   AI_BSSecretSharing       A_SECRET_SHARING_PARAMS  no key; see below
//
//   digest
//   AI_MD2, AI_MD5           (none)       MD2 (RFC 1319), MD5 (RFC 1321)
//   AI_MD2_BER, AI_MD5_BER   BER          1.2.840.113549.2.2, 1.2.840.113549.2.5
//   AI_MD2_PEM, AI_MD5_PEM   PEM          "RSA-MD2", "RSA-MD5"
//   AI_MD                    B_INFO_TYPE  the digest that the given type (any of the six) names
//
//   sign, verify
//   AI_MD2WithRSAEncryption, AI_MD2WithRSAEncryptionBER   (none), BER   1.2.840.113549.1.1.2
//   AI_MD5WithRSAEncryption, AI_MD5WithRSAEncryptionBER   (none), BER   1.2.840.113549.1.1.4
//
//   others
//   AI_MD2Random, AI_MD5Random  (none)                 random; see random.h
//   AI_RSAKeyGen             A_RSA_KEY_GEN_PARAMS      generate a key pair
//   AI_DHParamGen            A_DH_PARAM_GEN_PARAMS     generate parameters
//   AI_DHKeyAgree            A_DH_KEY_AGREE_PARAMS     key agreement
//   AI_DHKeyAgreeBER         BER                       1.2.840.113549.1.3.1
//   AI_RFC1113Recode         (none)                    encode, decode
//
//   never published: any info is taken, every Init fails with BE_NOT_SUPPORTED
//   AI_RC4WithMAC, AI_RC4WithMAC_BER, AI_MAC, AI_MD5WithXOR, AI_MD5WithXOR_BER
//
// Secret sharing is Shamir's (CACM 22, 1979) over the field of 256 elements with the polynomial
// x^8 + x^4 + x^3 + x + 1, one polynomial for each byte of the secret. A share is its number (1 to
// 255) and then one byte for each of the secret. Encryption takes the secret, up to 16384 bytes, in
// its updates and writes all shares, one behind the other, at Final; decryption takes threshold
// shares, in any order, one in each update, and writes the secret at Final. BE_INPUT_LEN: a longer
// secret, or none; a share too many (the update), or too few (Final); shares of different lengths.
// Shares carry no check: wrong ones give a wrong secret.
extern const B_INFO_TYPE AI_DES_CBC_IV8, AI_DES_CBCPadIV8, AI_DES_CBCPadBER, AI_DES_CBCPadPEM,
    AI_DES_EDE3_CBC_IV8, AI_DES_EDE3_CBCPadIV8, AI_DES_EDE3_CBCPadBER, AI_DESX_CBC_IV8,
    AI_DESX_CBCPadIV8, AI_DESX_CBCPadBER, AI_RC2_CBC, AI_RC2_CBCPad, AI_RC2_CBCPadBER,
    AI_RC2_CBCPadPEM, AI_RC4, AI_RC4_BER, AI_RC4WithMAC, AI_RC4WithMAC_BER, AI_MD, AI_MD2,
    AI_MD2_BER, AI_MD2_PEM, AI_MD5, AI_MD5_BER, AI_MD5_PEM, AI_MAC, AI_MD2Random, AI_MD5Random,
    AI_MD2WithRSAEncryption, AI_MD2WithRSAEncryptionBER, AI_MD5WithRSAEncryption,
    AI_MD5WithRSAEncryptionBER, AI_MD2WithDES_CBCPad, AI_MD2WithDES_CBCPadBER, AI_MD5WithDES_CBCPad,
    AI_MD5WithDES_CBCPadBER, AI_MD2WithRC2_CBCPad, AI_MD2WithRC2_CBCPadBER, AI_MD5WithRC2_CBCPad,
    AI_MD5WithRC2_CBCPadBER, AI_MD5WithXOR, AI_MD5WithXOR_BER, AI_PKCS_RSAPrivate,
    AI_PKCS_RSAPrivateBER, AI_PKCS_RSAPrivatePEM, AI_PKCS_RSAPublic, AI_PKCS_RSAPublicBER,
    AI_PKCS_RSAPublicPEM, AI_RSAPrivate, AI_RSAPublic, AI_RSAKeyGen, AI_DHKeyAgree,
    AI_DHKeyAgreeBER, AI_DHParamGen, AI_RFC1113Recode, AI_BSSecretSharing;

// ---- Key infos

struct A_DESX_KEY {
    const uint8_t *key;            // 8 bytes
    const uint8_t *inputWhitener;  // 8 bytes
    const uint8_t *outputWhitener; // 8 bytes
};

// Secret keys are bytes: each of these types reads what any other has set, if the length is right.
//   KI_Item                an ITEM of any length: RC2 and RC4 keys, passwords
//   KI_8Byte               a pointer to 8 bytes
//   KI_DES8                the same; reads back with odd parity, which DES itself ignores
//   KI_24Byte              a pointer to 24 bytes
//   KI_DESX                A_DESX_KEY; as bytes, the three follow one another in that order
// RSA keys are numbers: a type reads every key that has the numbers which it names.
//   KI_RSAPublic           A_RSA_KEY: modulus and public exponent (odd, above 1)
//   KI_RSAPublicBER        an ITEM: SubjectPublicKeyInfo (X.509) of rsaEncryption; the algorithm
//                          2.5.8.1.1 of X.509's annex is read too
//   KI_RSAPrivate          A_RSA_KEY: modulus and private exponent
//                          (operations take about four times as long, with no check of results)
//   KI_RSA_CRT             A_RSA_CRT_KEY
//   KI_PKCS_RSAPrivate     A_PKCS_RSA_PRIVATE_KEY: all eight numbers
//   KI_PKCS_RSAPrivateBER  an ITEM: PrivateKeyInfo (PKCS#8) of rsaEncryption; attributes are passed
//                          over and not kept
// Encodings are read as BER with definite or indefinite lengths (strings in one piece, integers in
// their shortest form), and written as DER.
extern const B_KEY_INFO_TYPE KI_Item, KI_8Byte, KI_DES8, KI_24Byte, KI_DESX, KI_RSAPublic,
    KI_RSAPublicBER, KI_RSAPrivate, KI_RSA_CRT, KI_PKCS_RSAPrivate, KI_PKCS_RSAPrivateBER;

// ---- Methods

// RSA_ENCRYPT and RSA_DECRYPT are the public key's, RSA_CRT_ENCRYPT and RSA_CRT_DECRYPT the private
// key's. AM_MD is the generic digest, which needs the digest's own method too.
extern const AlgorithmMethod AM_RSA_KEY_GEN, AM_MD2_RANDOM, AM_MD5_RANDOM, AM_MD2, AM_MD5,
    AM_RSA_ENCRYPT, AM_RSA_DECRYPT, AM_RSA_CRT_ENCRYPT, AM_RSA_CRT_DECRYPT, AM_DES_CBC_ENCRYPT,
    AM_DES_CBC_DECRYPT, AM_DES_EDE3_CBC_ENCRYPT, AM_DES_EDE3_CBC_DECRYPT, AM_RC2_CBC_ENCRYPT,
    AM_RC2_CBC_DECRYPT, AM_RC4_ENCRYPT, AM_RC4_DECRYPT, AM_DH_KEY_AGREE, AM_DH_PARAM_GEN,
    AM_DESX_CBC_ENCRYPT, AM_DESX_CBC_DECRYPT, AM_RC4_WITH_MAC_ENCRYPT, AM_RC4_WITH_MAC_DECRYPT,
    AM_MAC, AM_MD;

} // namespace toolkit

#endif
