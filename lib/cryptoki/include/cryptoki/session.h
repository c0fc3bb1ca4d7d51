// session.h: what a session and an object are, for the token's own sources and their callers.
#ifndef CRYPTOKI_SESSION_H
#define CRYPTOKI_SESSION_H

#include <memory>

#include <cryptoki/template.h>
#include <qel/cryptoki.h>
#include <toolkit/toolkit.h>

struct CK_SESSION {
    toolkit::B_ALGORITHM_OBJ algorithm; // of the operation in progress, or null
    toolkit::B_ALGORITHM_OBJ random;    // null until gen_random_alg
    toolkit::B_KEY_OBJ key;             // of the operation in progress, or null
    uint32_t capacity;                  // bytes that the next output call may write
    uint32_t mechanism;                 // of the operation in progress, 0 when none
    uint8_t *seed;                      // what random was seeded with: secret, owned
    uint32_t seed_length;
};

struct CK_OBJECT {
    CK_ATTRIBUTE *attributes; // owned, with every value
    uint32_t count;
};

// A notification callback for callers that must pass one; returns 0.
CK_RV nullNotify();

// Destroys the algorithm and key objects of the session's operation.
void end_operation(CK_SESSION_HANDLE session);
// Ends the operation and makes an empty algorithm object in its place. CKR_SESSION_HANDLE_INVALID.
CK_RV start_operation(CK_SESSION_HANDLE session);
// Likewise with an empty key object.
CK_RV start_keyed_operation(CK_SESSION_HANDLE session);
// Destroys the session's random generator and its seed.
void forget_random(CK_SESSION_HANDLE session);

// Sets the session's key object and capacity from an RSA key's template: modulus and exponent, or
// the private key with its primes. What the converter returns; CKR_KEY_HANDLE_INVALID.
CK_RV set_rsa_public_key(CK_SESSION_HANDLE session, const CK_ATTRIBUTE *attributes, uint32_t count);
CK_RV set_rsa_private_key(CK_SESSION_HANDLE session, const CK_ATTRIBUTE *attributes,
                          uint32_t count);

// Whether so many bytes fit into a block. CKR_OPERATION_NOT_INITIALIZED: there is no modulus.
// CKR_DATA_LEN_RANGE.
CK_RV check_rsa_data(CK_SESSION_HANDLE session, uint32_t length);

// One update and the final after it into out, within the session's capacity; *length_out becomes
// the sum of both. CKR_OPERATION_NOT_INITIALIZED.
CK_RV encrypt_all(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length, uint8_t *out,
                  uint32_t *length_out);
CK_RV decrypt_all(CK_SESSION_HANDLE session, const uint8_t *data, uint32_t length, uint8_t *out,
                  uint32_t *length_out);

// Owners of toolkit objects and of a session.
struct DestroyAlgorithmObject {
    void operator()(toolkit::AlgorithmObject *object) const {
        toolkit::B_DestroyAlgorithmObject(&object);
    }
};
using OwnedAlgorithm = std::unique_ptr<toolkit::AlgorithmObject, DestroyAlgorithmObject>;

struct DestroyKeyObject {
    void operator()(toolkit::KeyObject *object) const { toolkit::B_DestroyKeyObject(&object); }
};
using OwnedKey = std::unique_ptr<toolkit::KeyObject, DestroyKeyObject>;

struct CloseSession {
    void operator()(CK_SESSION *session) const { C_CloseSession(session); }
};
using OwnedSession = std::unique_ptr<CK_SESSION, CloseSession>;

struct DestroyObject {
    CK_SESSION_HANDLE session = nullptr;
    void operator()(CK_OBJECT *object) const { C_DestroyObject(session, object); }
};
using OwnedObject = std::unique_ptr<CK_OBJECT, DestroyObject>;

// Makes an object of a template, which is the object's from then on, or released after a failure.
CK_RV make_object(CK_SESSION_HANDLE session, OwnedTemplate attributes, OwnedObject *object_out);

#endif
