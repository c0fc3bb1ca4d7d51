// generate.h: the session's random generator, and RSA keys as objects of the toolkit.
#ifndef CRYPTOKI_GENERATE_H
#define CRYPTOKI_GENERATE_H

#include <cryptoki/session.h>

// Gives the session a random generator seeded with 256 bytes of C_GenerateRandom.
// CKR_HOST_MEMORY; CKR_DEVICE_ERROR: no randomness; CKR_DATA_INVALID: the toolkit refused.
CK_RV gen_random_alg(CK_SESSION_HANDLE session);

// Generates an RSA key pair; the caller destroys both key objects. Seeds the session's generator.
// CKR_MECHANISM_PARAM_INVALID: parameters that the toolkit refuses; CKR_MECHANISM_INVALID: the
// generation failed; what gen_random_alg returns.
CK_RV rsa_createkey(CK_SESSION_HANDLE session, const toolkit::A_RSA_KEY_GEN_PARAMS *parameters,
                    toolkit::B_KEY_OBJ *public_key_out, toolkit::B_KEY_OBJ *private_key_out);

#endif
