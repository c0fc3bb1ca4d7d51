/*
 * cryptoki.h: the in-process token, in the style of PKCS#11 version 1.
 *
 * It keeps nothing between sessions: a session is a work record for one operation at a time, an
 * object is an attribute template that the caller built. Handles are pointers; a session and its
 * objects belong to one thread at a time.
 *
 * What holds everywhere:
 *  - Every function returns a CKR_ value: CKR_OK, or a failure. CKR_DATA_INVALID stands for any bad
 *    argument, not for bad data alone; CKR_SESSION_HANDLE_INVALID for a null session; any failure
 *    of an update or a final is CKR_OPERATION_NOT_INITIALIZED, as is one without its Init.
 *  - Lengths count bytes. *length_out receives the number of bytes written; what it held before is
 *    not read. Room for output is the caller's to provide: each function says how much.
 *  - An Init replaces the operation in its session; one that fails leaves none, unless it was refused
 *    for an argument that is null, unknown or too short. The operation then serves any number of
 *    calls until another Init, or the end of the session.
 */
#ifndef QEL_CRYPTOKI_H
#define QEL_CRYPTOKI_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

typedef uint32_t CK_RV;
typedef uint32_t CK_ULONG;
typedef uint8_t CK_BYTE;
typedef struct CK_SESSION *CK_SESSION_HANDLE;
typedef struct CK_OBJECT *CK_OBJECT_HANDLE;

/* A notification callback; C_OpenSession takes one and never calls it. */
typedef CK_RV (*CK_NOTIFY)(void);

typedef struct CK_ATTRIBUTE {
    uint32_t type;         /* CKA_...; the top bit must be clear */
    void *value;           /* heap storage, owned by the template */
    uint32_t value_length; /* bytes */
} CK_ATTRIBUTE;

typedef struct CK_MECHANISM {
    uint32_t mechanism; /* CKM_... */
    void *parameter;
    uint32_t parameter_length; /* bytes */
} CK_MECHANISM;

/* The parameter of CKM_RC2_CBC. */
typedef struct CK_RC2_CBC_PARAMS {
    uint32_t effective_bits;
    uint8_t iv[8];
} CK_RC2_CBC_PARAMS;

/* ---- Constants ------------------------------------------------------------------------------- */

/* Attribute types. Class, key type and modulus bits are 4-byte integers in host order, the others
 * octets; those of RSA are unsigned big-endian numbers. */
enum {
    CKA_CLASS = 0x000,            /* CKO_... */
    CKA_VALUE = 0x011,            /* of a secret key */
    CKA_KEY_TYPE = 0x100,         /* CKK_... */
    CKA_MODULUS = 0x120,          /* n */
    CKA_MODULUS_BITS = 0x121,     /* bits in n, for key generation */
    CKA_PUBLIC_EXPONENT = 0x122,  /* e */
    CKA_PRIVATE_EXPONENT = 0x123, /* d */
    CKA_PRIME_1 = 0x124,          /* p */
    CKA_PRIME_2 = 0x125,          /* q */
    CKA_EXPONENT_1 = 0x126,       /* d mod (p - 1) */
    CKA_EXPONENT_2 = 0x127,       /* d mod (q - 1) */
    CKA_COEFFICIENT = 0x128       /* 1/q mod p */
};

/* Object classes. */
enum { CKO_PUBLIC_KEY = 2, CKO_PRIVATE_KEY = 3, CKO_SECRET_KEY = 4 };

/* Key types. All but CKK_RSA are secret keys. */
enum {
    CKK_RSA = 0x00,
    CKK_RC2 = 0x11,
    CKK_RC4 = 0x12,
    CKK_DES = 0x13,
    CKK_DES2 = 0x14,
    CKK_DES3 = 0x15
};

/* Mechanisms. The block ciphers always pad (PKCS#5). */
enum {
    CKM_RSA_PKCS_KEY_PAIR_GEN = 0x000,
    CKM_RSA_PKCS = 0x001, /* PKCS#1 v1.5; no parameter */
    CKM_RC2_CBC = 0x102,  /* parameter: CK_RC2_CBC_PARAMS */
    CKM_RC4 = 0x111,      /* no parameter */
    CKM_DES_CBC = 0x122,  /* parameter: the 8 bytes of the initialisation vector */
    CKM_DES3_CBC = 0x133, /* likewise */
    CKM_MD2 = 0x200,
    CKM_MD5 = 0x210
};

/* Return values. */
enum {
    CKR_OK = 0x000,
    CKR_CANCEL = 0x001,
    CKR_HOST_MEMORY = 0x002,
    CKR_SLOT_ID_INVALID = 0x003,
    CKR_FLAGS_INVALID = 0x004,
    CKR_ATTRIBUTE_READ_ONLY = 0x010,
    CKR_ATTRIBUTE_SENSITIVE = 0x011,
    CKR_ATTRIBUTE_TYPE_INVALID = 0x012,
    CKR_ATTRIBUTE_VALUE_INVALID = 0x013,
    CKR_DATA_INVALID = 0x020,
    CKR_DATA_LEN_RANGE = 0x021,
    CKR_DEVICE_ERROR = 0x030,
    CKR_DEVICE_MEMORY = 0x031,
    CKR_DEVICE_REMOVED = 0x032,
    CKR_ENCRYPTED_DATA_INVALID = 0x040,
    CKR_ENCRYPTED_DATA_LEN_RANGE = 0x041,
    CKR_FUNCTION_CANCELED = 0x050,
    CKR_FUNCTION_NOT_PARALLEL = 0x051,
    CKR_FUNCTION_PARALLEL = 0x052,
    CKR_KEY_HANDLE_INVALID = 0x060,
    CKR_KEY_SENSITIVE = 0x061,
    CKR_KEY_SIZE_RANGE = 0x062,
    CKR_KEY_TYPE_INCONSISTENT = 0x063,
    CKR_MECHANISM_INVALID = 0x070,
    CKR_MECHANISM_PARAM_INVALID = 0x071,
    CKR_OBJECT_CLASS_INCONSISTENT = 0x080,
    CKR_OBJECT_CLASS_INVALID = 0x081,
    CKR_OBJECT_HANDLE_INVALID = 0x082,
    CKR_OPERATION_ACTIVE = 0x090,
    CKR_OPERATION_NOT_INITIALIZED = 0x091,
    CKR_PIN_INCORRECT = 0x0A0,
    CKR_PIN_INVALID = 0x0A1,
    CKR_PIN_LEN_RANGE = 0x0A2,
    CKR_SESSION_CLOSED = 0x0B0,
    CKR_SESSION_COUNT = 0x0B1,
    CKR_SESSION_EXCLUSIVE_EXISTS = 0x0B2,
    CKR_SESSION_HANDLE_INVALID = 0x0B3,
    CKR_SESSION_PARALLEL_NOT_SUPPORTED = 0x0B4,
    CKR_SESSION_READ_ONLY = 0x0B5,
    CKR_SIGNATURE_INVALID = 0x0C0,
    CKR_SIGNATURE_LEN_RANGE = 0x0C1,
    CKR_TEMPLATE_INCOMPLETE = 0x0D0,
    CKR_TEMPLATE_INCONSISTENT = 0x0D1,
    CKR_TOKEN_NOT_PRESENT = 0x0E0,
    CKR_TOKEN_NOT_RECOGNIZED = 0x0E1,
    CKR_TOKEN_WRITE_PROTECTED = 0x0E2,
    CKR_UNWRAPPING_KEY_HANDLE_INVALID = 0x0F0,
    CKR_UNWRAPPING_KEY_SIZE_RANGE = 0x0F1,
    CKR_UNWRAPPING_KEY_TYPE_INCONSISTENT = 0x0F2,
    CKR_USER_ALREADY_LOGGED_IN = 0x100,
    CKR_USER_NOT_LOGGED_IN = 0x101,
    CKR_USER_PIN_NOT_INITIALIZED = 0x102,
    CKR_USER_TYPE_INVALID = 0x103,
    CKR_WRAPPED_KEY_INVALID = 0x110,
    CKR_WRAPPED_KEY_LEN_RANGE = 0x112,
    CKR_WRAPPING_KEY_HANDLE_INVALID = 0x113,
    CKR_WRAPPING_KEY_SIZE_RANGE = 0x114,
    CKR_WRAPPING_KEY_TYPE_INCONSISTENT = 0x115
};

/* ---- Sessions and objects -------------------------------------------------------------------- */

/*
 * C_OpenSession makes an empty session; C_CloseSession ends it. The first four arguments are not
 * looked at. When memory runs out, CKR_OK comes back with a null session, which every other
 * function then refuses.
 * CKR_DATA_INVALID: a null session_out.
 */
CK_RV C_OpenSession(uint32_t slot, uint32_t flags, void *application, CK_NOTIFY notify,
                    CK_SESSION_HANDLE *session_out);

/* C_CloseSession wipes and releases all that the session holds. Objects are not the session's. */
CK_RV C_CloseSession(CK_SESSION_HANDLE session);

/*
 * C_CreateObject makes an object of count attributes (1 or more). The array and every value in it
 * must be heap storage; after success they belong to the object.
 * CKR_TEMPLATE_INCOMPLETE: no attributes. CKR_HOST_MEMORY.
 */
CK_RV C_CreateObject(CK_SESSION_HANDLE session, CK_ATTRIBUTE *attributes, uint32_t count,
                     CK_OBJECT_HANDLE *object_out);

/*
 * C_DestroyObject zeroes and frees the object's values, but for those of length 0, its array of
 * attributes, and the object.
 * CKR_OBJECT_HANDLE_INVALID: no object, or one without attributes.
 */
CK_RV C_DestroyObject(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object);

/*
 * C_GetAttributeValue fills count entries of the caller's array from the object, by type, in order.
 * An entry with a null value receives the length alone; any other must bring a buffer whose length
 * is the value's exactly. Entries before one that fails stay filled.
 * CKR_OBJECT_HANDLE_INVALID: no object, or one without attributes. CKR_ATTRIBUTE_TYPE_INVALID: no
 * entries, or a type that the object lacks. CKR_DATA_INVALID: another length, or a type whose top
 * bit is set.
 */
CK_RV C_GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                          CK_ATTRIBUTE *attributes, uint32_t count);

/* ---- Encryption and decryption --------------------------------------------------------------- */

/*
 * Set up encryption with CKM_RSA_PKCS, CKM_RC2_CBC, CKM_RC4, CKM_DES_CBC or CKM_DES3_CBC.
 *   key  for RSA: to encrypt, a public or private key; to decrypt, a private key with its primes.
 *        Otherwise a secret key of any type: 8 bytes for DES, 24 for triple DES.
 * CKR_KEY_HANDLE_INVALID: no key, one without attributes, or of the wrong size.
 * CKR_MECHANISM_INVALID: no mechanism, none of the five, or a key that it cannot use.
 * CKR_MECHANISM_PARAM_INVALID: a parameter that is missing or too short.
 * CKR_ATTRIBUTE_TYPE_INVALID, CKR_DATA_INVALID: a key that lacks an attribute, or of another class
 * or type. Seeding for RSA encryption: CKR_DEVICE_ERROR, CKR_HOST_MEMORY, CKR_DATA_INVALID.
 */
CK_RV C_EncryptInit(CK_SESSION_HANDLE session, const CK_MECHANISM *mechanism, CK_OBJECT_HANDLE key);
CK_RV C_DecryptInit(CK_SESSION_HANDLE session, const CK_MECHANISM *mechanism, CK_OBJECT_HANDLE key);

/*
 * Encrypt or decrypt data in one call. Room in out: with RSA the length of the modulus; to encrypt
 * with a block cipher length + 8; otherwise length.
 * C_Encrypt with RSA takes at most 11 bytes less than the modulus has (CKR_DATA_LEN_RANGE);
 * C_Decrypt takes as many as the modulus has (CKR_DATA_INVALID).
 */
CK_RV C_Encrypt(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length, uint8_t *out,
                uint32_t *length_out);
CK_RV C_Decrypt(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length, uint8_t *out,
                uint32_t *length_out);

/*
 * The same in parts, for all but RSA (CKR_DATA_INVALID). Room in out: length + 24 for an update, 8
 * for a final. A null out or length_out is CKR_DATA_INVALID, but for C_EncryptFinal
 * CKR_OPERATION_NOT_INITIALIZED.
 */
CK_RV C_EncryptUpdate(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length, uint8_t *out,
                      uint32_t *length_out);
CK_RV C_EncryptFinal(CK_SESSION_HANDLE session, uint8_t *out, uint32_t *length_out);
CK_RV C_DecryptUpdate(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length, uint8_t *out,
                      uint32_t *length_out);
CK_RV C_DecryptFinal(CK_SESSION_HANDLE session, uint8_t *out, uint32_t *length_out);

/* ---- Digests --------------------------------------------------------------------------------- */

/*
 * C_DigestInit sets up CKM_MD2 (RFC 1319) or CKM_MD5 (RFC 1321); C_Digest digests data in one call,
 * C_DigestUpdate and C_DigestFinal in parts. Room in out: 16 bytes. Data and out are looked at
 * before the session.
 * CKR_MECHANISM_INVALID: no mechanism, or neither of the two. CKR_DATA_INVALID: no data, no output.
 */
CK_RV C_DigestInit(CK_SESSION_HANDLE session, const CK_MECHANISM *mechanism);
CK_RV C_Digest(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length, uint8_t *out,
               uint32_t *length_out);
CK_RV C_DigestUpdate(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length);
CK_RV C_DigestFinal(CK_SESSION_HANDLE session, uint8_t *out, uint32_t *length_out);

/* ---- Signatures ------------------------------------------------------------------------------ */

/*
 * C_SignInit sets up CKM_RSA_PKCS with a private key that has its primes, C_Sign signs: the PKCS#1
 * private-key operation on data as they stand, usually an encoded DigestInfo. Room in out: the
 * length of the modulus.
 * CKR_MECHANISM_INVALID, CKR_KEY_HANDLE_INVALID, CKR_ATTRIBUTE_TYPE_INVALID, CKR_DATA_INVALID: as
 * for C_DecryptInit. CKR_DATA_LEN_RANGE: data longer than the modulus length less 11.
 */
CK_RV C_SignInit(CK_SESSION_HANDLE session, const CK_MECHANISM *mechanism, CK_OBJECT_HANDLE key);
CK_RV C_Sign(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length, uint8_t *out,
             uint32_t *length_out);

/*
 * C_VerifyInit sets up CKM_RSA_PKCS with a public key (or a private one's modulus and exponent),
 * C_Verify checks a signature. It is good when the opened block begins with data, or else is an
 * encoded DigestInfo whose digest begins with data: so data may be all that was signed or the bare
 * digest. Data and signature are looked at before the session; in a session whose operation with a
 * key is not of CKM_RSA_PKCS any signature passes.
 * CKR_SIGNATURE_INVALID: the block says something else. CKR_OPERATION_NOT_INITIALIZED: also a block
 * that does not open. CKR_DATA_INVALID: also a signature of another length than the modulus.
 * CKR_HOST_MEMORY, CKR_DEVICE_ERROR: memory ran out.
 */
CK_RV C_VerifyInit(CK_SESSION_HANDLE session, const CK_MECHANISM *mechanism, CK_OBJECT_HANDLE key);
CK_RV C_Verify(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length,
               const uint8_t *signature, uint32_t signature_length);

/* There are no signatures in parts: CKR_DATA_INVALID, whatever the arguments. */
CK_RV C_SignUpdate(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length);
CK_RV C_SignFinal(CK_SESSION_HANDLE session, uint8_t *out, uint32_t *length_out);
CK_RV C_VerifyUpdate(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length);
CK_RV C_VerifyFinal(CK_SESSION_HANDLE session, const uint8_t *signature, uint32_t signature_length);

/* ---- Keys and random bytes ------------------------------------------------------------------- */

/* There is no generation of secret keys: CKR_DATA_INVALID, whatever the arguments. */
CK_RV C_GenerateKey(CK_SESSION_HANDLE session, const CK_MECHANISM *mechanism,
                    const CK_ATTRIBUTE *attributes, uint32_t count, CK_OBJECT_HANDLE *key_out);

/*
 * C_GenerateKeyPair makes an RSA key pair (CKM_RSA_PKCS_KEY_PAIR_GEN), showing progress on standard
 * error.
 *   public_attributes   holds CKA_MODULUS_BITS and CKA_PUBLIC_EXPONENT, which has no default.
 *   private_attributes  not looked at.
 *   private_key_out     comes first; the caller destroys both objects.
 * CKR_TEMPLATE_INCOMPLETE: no public attributes. CKR_MECHANISM_INVALID: another mechanism, or the
 * generation failed. CKR_ATTRIBUTE_TYPE_INVALID: a missing attribute. CKR_MECHANISM_PARAM_INVALID:
 * a size or exponent that is refused. CKR_DEVICE_ERROR: no randomness. CKR_TEMPLATE_INCONSISTENT:
 * the new key cannot be read. CKR_DATA_INVALID, CKR_HOST_MEMORY.
 */
CK_RV C_GenerateKeyPair(CK_SESSION_HANDLE session, const CK_MECHANISM *mechanism,
                        const CK_ATTRIBUTE *public_attributes, uint32_t public_count,
                        const CK_ATTRIBUTE *private_attributes, uint32_t private_count,
                        CK_OBJECT_HANDLE *private_key_out, CK_OBJECT_HANDLE *public_key_out);

/*
 * C_WrapKey encrypts the octets of a secret key under an RSA key (CKM_RSA_PKCS). Room in out: the
 * length of the modulus.
 * CKR_WRAPPING_KEY_HANDLE_INVALID: no wrapping key. CKR_KEY_HANDLE_INVALID: no key. Else what
 * C_EncryptInit and C_Encrypt return.
 */
CK_RV C_WrapKey(CK_SESSION_HANDLE session, const CK_MECHANISM *mechanism,
                CK_OBJECT_HANDLE wrapping_key, CK_OBJECT_HANDLE key, uint8_t *out,
                uint32_t *length_out);

/*
 * C_GenerateRandom fills buffer with length bytes of /dev/random.
 * CKR_DEVICE_ERROR: it cannot be opened, read to that length, or closed.
 */
CK_RV C_GenerateRandom(CK_SESSION_HANDLE session, uint8_t *buffer, uint32_t length);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
