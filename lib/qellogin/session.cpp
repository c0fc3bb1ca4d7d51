#include <qellogin/session.h>

#include <netconfig.h>
#include <pwd.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <lib/context.h>
#include <lib/memory.h>
#include <qel/qelp.h>
#include <qel/qelserv.h>
#include <toolkit/traces.h>

#include "pipe_signal.h"

namespace {

constexpr std::size_t name_size = 256;
constexpr std::size_t user_size = 1024;
constexpr const char *server_user = "qelserv";
constexpr timeval time_to_send = {12, 0};

CLIENT *client_of(const QelContext *context) {
    return static_cast<CLIENT *>(context->key_server);
}

// Every call reads the host's name first, though none sends it.
bool host_has_name(char *name) {
    return gethostname(name, name_size) == 0;
}

QelStatus check_connection(const QelContext *context) {
    char name[name_size];
    if (!host_has_name(name))
        return QEL_ERR_GENERAL;
    return context->key_server != nullptr ? QEL_OK : QEL_ERR_SERV_CONNECT;
}

QelStatus uid_of(const char *name, uid_t *uid_out) {
    passwd entry;
    passwd *found = nullptr;
    char work[user_size];
    if (getpwnam_r(name, &entry, work, sizeof work, &found) != 0 || found == nullptr)
        return QEL_ERR_UNKNOWN_USER;
    *uid_out = found->pw_uid;
    return QEL_OK;
}

// rpcbind lets any user register a server of his own while the key server is not there. Who listens at
// the other end is who called listen(): root, also where the service manager or the server before it
// gave up its rights made the socket, or the server's user. A server of the caller's own wins nothing.
bool is_trusted(int connection) {
    ucred peer = {};
    socklen_t size = sizeof peer;
    if (getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return false;
    uid_t server = 0;
    if (peer.uid == 0 || peer.uid == geteuid() ||
        (uid_of(server_user, &server) == QEL_OK && peer.uid == server))
        return true;
    syslog(LOG_WARNING, "qel: user %u answers in place of the key server", peer.uid);
    return false;
}

// A connection that may be used. libtirpc waits no longer than it is told for an answer, and for ever
// until a server takes what is sent: what was sent in part it tries once more.
bool make_usable(CLIENT *client) {
    int connection = -1;
    return clnt_control(client, CLGET_FD, reinterpret_cast<char *>(&connection)) &&
           is_trusted(connection) &&
           setsockopt(connection, SOL_SOCKET, SO_SNDTIMEO, &time_to_send, sizeof time_to_send) == 0;
}

// Walks the network configuration for a loopback transport of these semantics that reaches the server.
// After the last walk without one the configuration stays open.
QelStatus connect_by(unsigned semantics, bool last, const char *host, CLIENT **client_out) {
    void *configuration = setnetconfig();
    if (configuration == nullptr)
        return QEL_ERR_GENERAL;
    while (netconfig *entry = getnetconfig(configuration)) {
        if (std::strcmp(entry->nc_protofmly, NC_LOOPBACK) != 0 || entry->nc_semantics != semantics)
            continue;
        *client_out = clnt_tp_create(host, QELSERV_PROG, QELSERV_VERS, entry);
        if (*client_out == nullptr)
            continue;
        if (!make_usable(*client_out)) {
            clnt_destroy(*client_out);
            *client_out = nullptr;
            continue;
        }
        endnetconfig(configuration);
        return QEL_OK;
    }
    if (!last)
        endnetconfig(configuration);
    return QEL_ERR_SERV_CONNECT;
}

// A result of the server's, released by its XDR routine. The first element is there before the call.
template <class Element, bool_t (*routine)(XDR *, Element **)> class Result {
public:
    Result() : element_(qel::allocate<Element>()), place_(element_) {}
    Result(const Result &) = delete;
    Result &operator=(const Result &) = delete;
    ~Result() {
        if (place_ == nullptr) // the server sent no element
            std::free(element_);
        xdr_free(reinterpret_cast<xdrproc_t>(routine), &place_);
    }

    bool allocated() const { return element_ != nullptr; }
    Element **place() { return &place_; }
    Element *first() { return place_; }

private:
    Element *element_;
    Element *place_;
};

struct WipedCryptData {
    Result<qelserv_cryptdata, xdr_qelserv_cryptdatap> result;
    ~WipedCryptData() {
        if (result.first() != nullptr && result.first()->data.value != nullptr)
            explicit_bzero(result.first()->data.value, result.first()->data.length);
    }
};

// What differs between signing and unwrapping.
struct CryptProcedure {
    clnt_stat (*call)(qelserv_cryptinfo, qelserv_cryptdatap *, CLIENT *);
    QelStatus refusal;
};

constexpr CryptProcedure signing = {qelserv_sign_1, QEL_ERR_SERV_SIGN};
constexpr CryptProcedure unwrapping = {qelserv_decrypt_1, QEL_ERR_SERV_DECRYPT};

QelStatus hand_over(qelserv_bytes *from, uint8_t **result, uint32_t *result_length) {
    if (*result == nullptr) {
        *result = from->value;
        *result_length = from->length;
        *from = {};
        return QEL_OK;
    }
    if (*result_length < from->length)
        return QEL_ERR_BAD_PARAM;
    if (from->length != 0)
        std::memcpy(*result, from->value, from->length);
    *result_length = from->length;
    return QEL_OK;
}

QelStatus ask(const CryptProcedure &procedure, QelContext *context, const uint8_t *data,
              const uint32_t *length, const QelAlgId *algorithm, uint8_t **result,
              uint32_t *result_length) {
    if (context == nullptr || data == nullptr || length == nullptr || algorithm == nullptr ||
        result == nullptr || result_length == nullptr)
        return QEL_ERR_BAD_PARAM;
    QelStatus status = check_connection(context);
    if (status != QEL_OK)
        return status;
    uint8_t *encoding = nullptr;
    uint32_t encoding_length = 0;
    status = __qel_asn1_encode(context, algorithm, QEL_PDU_AlgID, &encoding, &encoding_length);
    if (status != QEL_OK)
        return status;
    const qel::Owned<uint8_t> owned(encoding);
    WipedCryptData answer;
    if (!answer.result.allocated())
        return QEL_ERR_NO_MEMORY;
    const qelserv_cryptinfo argument = {QELSERV_OK,
                                        0,
                                        0,
                                        context->key_identifier,
                                        context->host_address,
                                        {encoding_length, encoding},
                                        {*length, const_cast<uint8_t *>(data)}};
    if (procedure.call(argument, answer.result.place(), client_of(context)) != RPC_SUCCESS ||
        answer.result.first() == nullptr || answer.result.first()->status != QELSERV_OK)
        return procedure.refusal;
    return hand_over(&answer.result.first()->data, result, result_length);
}

// Moves the elements' bytes into a list of items. On failure what was moved is released.
QelStatus take_packages(qelserv_keypkglist *element, QelItemList **list_out, uint32_t *count_out) {
    QelItemList *list = nullptr;
    QelItemList **end = &list;
    uint32_t count = 0;
    for (; element != nullptr; element = element->next) {
        *end = qel::allocate<QelItemList>();
        if (*end == nullptr) {
            __qel_free_item_list(&list);
            return QEL_ERR_NO_MEMORY;
        }
        (*end)->data = element->keypkg.value;
        (*end)->length = element->keypkg.length;
        element->keypkg = {};
        end = &(*end)->next;
        ++count;
    }
    *list_out = list;
    *count_out = count;
    return QEL_OK;
}

bool is_address(const char *name) {
    return std::strchr(name, '.') != nullptr && *name >= '0' && *name <= '9';
}

QelStatus find_user(const char *name, uid_t *uid_out) {
    if (is_address(name)) {
        *uid_out = getuid();
        return QEL_OK;
    }
    return uid_of(name, uid_out);
}

} // namespace

QelStatus __qel_get_client_handle(CLIENT **client_out) {
    if (client_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *client_out = nullptr;
    char host[name_size];
    if (!host_has_name(host))
        return QEL_ERR_GENERAL;
    const WithoutPipeSignal quiet; // rpcbind may go as well
    const QelStatus status = connect_by(NC_TPI_COTS, false, host, client_out);
    return status == QEL_ERR_SERV_CONNECT ? connect_by(NC_TPI_COTS_ORD, true, host, client_out)
                                          : status;
}

QelStatus __qel_rpc_stat(QelContext *context) {
    if (context == nullptr)
        return QEL_ERR_BAD_PARAM;
    const QelStatus status = check_connection(context);
    if (status != QEL_OK)
        return status;
    Result<qelserv_keystat, xdr_qelserv_keystatp> answer;
    if (!answer.allocated())
        return QEL_ERR_NO_MEMORY;
    const qelserv_statinfo argument = {0, context->key_identifier, context->host_address, 0};
    if (qelserv_statkey_1(argument, answer.place(), client_of(context)) != RPC_SUCCESS)
        return QEL_ERR_SERV_STAT;
    const bool absent =
        answer.first() != nullptr && answer.first()->status == QELSERV_NOT_LOGGED_IN;
    return absent ? QEL_ERR_NOT_LOGGED_IN : QEL_OK;
}

QelStatus __qel_save_key_under_uid(QelContext *context, uid_list *uids, int32_t usage,
                                   int32_t flags, const uint8_t *key, uint32_t key_length,
                                   const uint8_t *cert, uint32_t cert_length,
                                   const uint8_t *package, uint32_t package_length) {
    const toolkit::TracesWiped traces;
    if (context == nullptr || (cert != nullptr && key == nullptr) ||
        (key == nullptr) != (key_length == 0) || (package == nullptr) != (package_length == 0))
        return QEL_ERR_BAD_PARAM;
    if (check_connection(context) != QEL_OK)
        return QEL_ERR_GENERAL;
    const qelserv_keyinfo argument = {
        context->key_identifier,
        uids,
        context->host_address,
        flags,
        usage,
        {key_length, const_cast<uint8_t *>(key)},
        {cert != nullptr ? cert_length : 0, const_cast<uint8_t *>(cert)},
        {package_length, const_cast<uint8_t *>(package)}};
    qelserv_status verdict = QELSERV_OK;
    if (qelserv_setkey_1(argument, &verdict, client_of(context)) != RPC_SUCCESS) {
        syslog(LOG_ERR, "qel: RPC setkey failed during login");
        return QEL_ERR_LOGIN;
    }
    if (verdict == QELSERV_OK)
        return QEL_OK;
    return verdict == QELSERV_KEY_EXISTS ? QEL_ERR_ENTRY_EXISTS : QEL_ERR_LOGIN;
}

QelStatus save_keypkg_with_qelserv(QelContext *context, const QelKeyPkg *package) {
    if (context == nullptr || package == nullptr)
        return QEL_ERR_BAD_PARAM;
    uint8_t *encoding = nullptr;
    uint32_t length = 0;
    const QelStatus status =
        __qel_asn1_encode(context, package, QEL_PDU_KeyPkg, &encoding, &length);
    if (status != QEL_OK)
        return status;
    const qel::Owned<uint8_t> owned(encoding);
    return __qel_save_key_under_uid(context, nullptr, static_cast<int32_t>(package->usage), 0,
                                    nullptr, 0, nullptr, 0, encoding, length);
}

QelStatus withdraw_key_from_qelserv(QelContext *context, const char *name) {
    if (context == nullptr || name == nullptr)
        return QEL_ERR_BAD_PARAM;
    uid_t uid = 0;
    const QelStatus status = find_user(name, &uid);
    if (status != QEL_OK)
        return status;
    uid_list user = {static_cast<int32_t>(uid), nullptr};
    __qel_save_key_under_uid(context, &user, 0, 0, nullptr, 0, nullptr, 0, nullptr, 0);
    return QEL_OK;
}

QelStatus __qel_get_qelserv_keypkg(QelContext *context, const char *, QelItemList **list_out,
                                   uint32_t *count_out) {
    if (context == nullptr || list_out == nullptr || count_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *list_out = nullptr;
    *count_out = 0;
    const QelStatus status = check_connection(context);
    if (status != QEL_OK)
        return status;
    Result<qelserv_keypkglist, xdr_qelserv_keypkglistp> answer;
    if (!answer.allocated())
        return QEL_ERR_NO_MEMORY;
    const qelserv_keypkginfo argument = {context->key_identifier, context->host_address};
    if (qelserv_getkeypkg_1(argument, answer.place(), client_of(context)) != RPC_SUCCESS ||
        answer.first() == nullptr)
        return QEL_ERR_GENERAL;
    switch (answer.first()->status) {
    case QELSERV_OK:
        return take_packages(answer.first(), list_out, count_out);
    case QELSERV_NO_KEY:
    case QELSERV_NOT_LOGGED_IN:
        return QEL_ERR_NOT_LOGGED_IN;
    default:
        return QEL_ERR_NO_KEYPKG;
    }
}

QelStatus rpc_sign(QelContext *context, const uint8_t *data, const uint32_t *length,
                   const QelAlgId *algorithm, uint8_t **result, uint32_t *result_length) {
    return ask(signing, context, data, length, algorithm, result, result_length);
}

QelStatus rpc_unwrap(QelContext *context, const uint8_t *data, const uint32_t *length,
                     const QelAlgId *algorithm, uint8_t **result, uint32_t *result_length) {
    return ask(unwrapping, context, data, length, algorithm, result, result_length);
}
