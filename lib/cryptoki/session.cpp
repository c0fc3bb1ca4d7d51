#include <cryptoki/session.h>

#include <lib/memory.h>

CK_RV nullNotify() {
    return CKR_OK;
}

CK_RV C_OpenSession(uint32_t, uint32_t, void *, CK_NOTIFY, CK_SESSION_HANDLE *session_out) {
    if (session_out == nullptr)
        return CKR_DATA_INVALID;
    *session_out = qel::allocate<CK_SESSION>();
    return CKR_OK;
}

CK_RV C_CloseSession(CK_SESSION_HANDLE session) {
    if (session == nullptr)
        return CKR_SESSION_HANDLE_INVALID;
    end_operation(session);
    forget_random(session);
    std::free(session);
    return CKR_OK;
}

void end_operation(CK_SESSION_HANDLE session) {
    toolkit::B_DestroyAlgorithmObject(&session->algorithm);
    toolkit::B_DestroyKeyObject(&session->key);
}

void forget_random(CK_SESSION_HANDLE session) {
    toolkit::B_DestroyAlgorithmObject(&session->random);
    if (session->seed != nullptr)
        explicit_bzero(session->seed, session->seed_length);
    std::free(session->seed);
    session->seed = nullptr;
    session->seed_length = 0;
}

// A digest has no key and leaves the session's key object as it is.
CK_RV start_operation(CK_SESSION_HANDLE session) {
    toolkit::B_DestroyAlgorithmObject(&session->algorithm);
    if (toolkit::B_CreateAlgorithmObject(&session->algorithm) != 0)
        return CKR_SESSION_HANDLE_INVALID;
    return CKR_OK;
}

CK_RV start_keyed_operation(CK_SESSION_HANDLE session) {
    end_operation(session);
    if (toolkit::B_CreateAlgorithmObject(&session->algorithm) != 0)
        return CKR_SESSION_HANDLE_INVALID;
    if (toolkit::B_CreateKeyObject(&session->key) != 0) {
        end_operation(session);
        return CKR_SESSION_HANDLE_INVALID;
    }
    return CKR_OK;
}
