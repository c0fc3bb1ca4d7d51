/*
 * cryptoki.h: the in-process token, in the style of PKCS#11 version 1. It keeps nothing between
 * sessions: a session is a work record for one operation at a time, an object is an attribute
 * template that the caller built. Handles are pointers. Every function returns a CKR_ value.
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
    uint32_t type;       /* CKA_...; the top bit must be clear */
    void *value;         /* heap storage, owned by the template */
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

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
