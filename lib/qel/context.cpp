#include <qel/qelp.h>

#include <arpa/inet.h>
#include <cstring>

#include "catalogue.h"
#include <lib/context.h>
#include <lib/memory.h>
#include <qel/qelserv.h>
#include <toolkit/toolkit.h>
#include <util/host.h>

namespace {

constexpr const char *default_directory = "/etc/qel/certs";
constexpr const char *default_key_identifier = "default_keyid";
constexpr const char *default_address = "0.0.0.0";

QelStatus copy_string(char **copy_out, const char *string) {
    *copy_out = strdup(string);
    return *copy_out != nullptr ? QEL_OK : QEL_ERR_NO_MEMORY;
}

// A dotted address is kept as it was given, a name becomes its first address.
QelStatus copy_address(char **copy_out, const char *host) {
    if (host == nullptr)
        return copy_string(copy_out, default_address);
    if (inet_addr(host) != INADDR_NONE)
        return copy_string(copy_out, host);
    in_addr address;
    if (!qel::resolve_host(host, &address))
        return QEL_ERR_BAD_PARAM;
    return copy_string(copy_out, inet_ntoa(address));
}

} // namespace

QelStatus __qel_init(QelContext **context_out, const char *keyid, const char *host) {
    if (context_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *context_out = nullptr;
    if (keyid == nullptr || *keyid == '\0')
        keyid = default_key_identifier;

    qel::OwnedContext context(qel::allocate<QelContext>());
    if (context == nullptr)
        return QEL_ERR_NO_MEMORY;
    QelStatus status = copy_string(&context->certificate_directory, default_directory);
    if (status == QEL_OK)
        status = copy_string(&context->key_identifier, keyid);
    if (status == QEL_OK)
        status = copy_address(&context->host_address, host);
    if (status == QEL_OK)
        status = __qel_init_asn1(context.get());
    if (status != QEL_OK)
        return status;
    context->catalogue = qel::open_catalogue();
    *context_out = context.release();
    return QEL_OK;
}

QelStatus qel_init(QelContext **context_out, const char *keyid, const char *host) {
    QelStatus status = __qel_init(context_out, keyid, host);
    if (status != QEL_OK)
        return status;
    CLIENT *client = nullptr;
    status = __qel_get_client_handle(&client);
    (*context_out)->key_server = client;
    if (status == QEL_OK)
        return QEL_OK;
    qel_end(*context_out);
    *context_out = nullptr;
    return QEL_ERR_GENERAL;
}

QelStatus qel_end(QelContext *context) {
    if (context == nullptr)
        return QEL_ERR_BAD_PARAM;
    std::free(context->certificate_directory);
    std::free(context->spare_string);
    std::free(context->key_identifier);
    std::free(context->host_address);
    __qel_end_asn1(context);
    qel::close_catalogue(context->catalogue);
    if (context->key_agreement != nullptr) {
        auto agreement = static_cast<toolkit::B_ALGORITHM_OBJ>(context->key_agreement);
        toolkit::B_DestroyAlgorithmObject(&agreement);
    }
    if (context->session != nullptr)
        C_CloseSession(context->session);
    if (context->key_server != nullptr)
        clnt_destroy(static_cast<CLIENT *>(context->key_server));
    std::free(context);
    return QEL_OK;
}
