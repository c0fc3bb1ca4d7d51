/*
 * context.h: the library context, for the library's own folders. Applications see only its name.
 */
#ifndef LIB_CONTEXT_H
#define LIB_CONTEXT_H

#include <memory>
#include <nl_types.h>

#include <qel/cryptoki.h>
#include <qel/qel.h>

/* What one application's use of the library keeps between calls: thirteen machine words. */
struct QelContext {
    char *certificate_directory;
    char *spare_string; /* released by qel_end, set by nobody */
    char *key_identifier;
    char *host_address;        /* dotted IPv4 */
    CK_SESSION_HANDLE session; /* token session of a multi-part digest or cipher */
    void *spare_word;
    const QelAlgId *signature_algorithm; /* of the multi-part signature under way */
    const QelAlgId *digest_algorithm;    /* of the multi-part digest under way */
    void *asn1;                          /* ASN.1 environment, made by __qel_init_asn1 */
    void *key_agreement;                 /* Diffie-Hellman object between its two phases */
    nl_catd catalogue;
    uintptr_t multi_part; /* 1 between the first and the final call of a multi-part operation */
    void *key_server;     /* RPC client handle */
};

static_assert(sizeof(QelContext) == 13 * sizeof(void *));

namespace qel {

struct EndContext {
    void operator()(QelContext *context) const { qel_end(context); }
};

// A private context, for a function that was given none.
using OwnedContext = std::unique_ptr<QelContext, EndContext>;

} // namespace qel

#endif
