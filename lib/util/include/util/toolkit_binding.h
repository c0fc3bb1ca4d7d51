// toolkit_binding.h: what the library shares of its use of the cryptographic toolkit: the chooser,
// the release of key records, and the progress callback of key generation.
#ifndef UTIL_TOOLKIT_BINDING_H
#define UTIL_TOOLKIT_BINDING_H

#include <toolkit/toolkit.h>

// The methods that the library links, null-terminated: the chooser argument of every B_...Init.
extern const toolkit::AlgorithmMethod *const chooser[];

// Each free2_ function zeroes and frees what the record owns and clears the record's items, each
// free_ function frees the record too and nulls the caller's pointer. Null is ignored. An ITEM of
// length 0 owns nothing.
void free2_ITEM(toolkit::ITEM *item);
void free_ITEM(toolkit::ITEM **item);
void free2_A_RSA_KEY(toolkit::A_RSA_KEY *key);
void free_A_RSA_KEY(toolkit::A_RSA_KEY **key);
void free2_A_RSA_CRT_KEY(toolkit::A_RSA_CRT_KEY *key);
void free_A_RSA_CRT_KEY(toolkit::A_RSA_CRT_KEY **key);

// A spinner on standard error, at most one step a second, for the surrender context of a key
// generation. handle points to an int32_t that holds the time, in seconds, of the step before; the
// caller sets it to the present. Always 0: go on.
int32_t GenKeySurrenderFunction(void *handle);

#endif
