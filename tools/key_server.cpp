#include "key_server.h"

#include "key_package.h"
#include "text.h"
#include "texts.h"
#include "wrap.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <netconfig.h>
#include <pwd.h>
#include <set>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <rpc/rpcb_clnt.h>

namespace tool {
namespace {

constexpr const char *server_user = "qelserv";

// What a refusal of the server means.
struct VerdictRow {
    qelserv_status verdict;
    Exit exit;
    QelStatus status;
    Text why, next;
};
constexpr VerdictRow verdicts[] = {
    {QELSERV_NO_KEY, Exit::no_key, QEL_ERR_NO_ENTRY, Text::no_such_key, Text::see_status},
    {QELSERV_DENIED, Exit::permission, QEL_ERR_LOGOUT, Text::anothers_key,
     Text::super_user_for_others},
    {QELSERV_BAD_ARGUMENT, Exit::input, QEL_ERR_LOGIN, Text::server_makes_no_sense,
     Text::check_versions},
    {QELSERV_BAD_PACKAGE, Exit::input, QEL_ERR_LOGIN, Text::server_refuses_package,
     Text::verify_package},
    {QELSERV_BAD_KEY, Exit::input, QEL_ERR_LOGIN, Text::not_the_registered_key,
     Text::log_out_to_replace},
    {QELSERV_USAGE, Exit::permission, QEL_ERR_LOGIN, Text::package_not_for_use,
     Text::leave_usage_out},
    {QELSERV_LIMIT, Exit::no, QEL_ERR_LOGIN, Text::too_many_keys, Text::log_out_of_unneeded},
    {QELSERV_NOT_LOGGED_IN, Exit::no_key, QEL_ERR_NOT_LOGGED_IN, Text::no_key_of_user,
     Text::log_in_first},
    {QELSERV_KEY_EXISTS, Exit::no, QEL_ERR_ENTRY_EXISTS, Text::logged_in_already,
     Text::log_out_first},
};

Failure verdict_failure(qelserv_status verdict, const std::string &what) {
    for (const VerdictRow &row : verdicts)
        if (row.verdict == verdict)
            return {row.exit, what, text_of(row.why), text_of(row.next), row.status};
    return {Exit::server, what, text_of(Text::server_failed, {std::to_string(verdict)}),
            text_of(Text::see_log), QEL_ERR_LOGIN};
}

Failure call_failure(clnt_stat status, const std::string &what) {
    return {Exit::server, what, text_of(Text::call_failed, {clnt_sperrno(status)}),
            text_of(Text::check_server_runs), QEL_ERR_SERV_CONNECT};
}

// A value that an XDR routine releases.
template <class T> struct Answer {
    explicit Answer(bool_t (*routine)(XDR *, T *))
        : routine_(reinterpret_cast<xdrproc_t>(routine)) {}
    ~Answer() { xdr_free(routine_, &value); }
    Answer(const Answer &) = delete;
    Answer &operator=(const Answer &) = delete;

    T value{};

private:
    xdrproc_t routine_;
};

qelserv_bytes as_bytes(std::span<const uint8_t> bytes) {
    return {static_cast<uint32_t>(bytes.size()), const_cast<uint8_t *>(bytes.data())};
}

char *as_text(const std::string &text) {
    return const_cast<char *>(text.c_str());
}

struct CloseConfiguration {
    void operator()(void *configuration) const { endnetconfig(configuration); }
};

// All that rpcbind maps. Should it end meanwhile, this program does not.
void read_rows(rpcblist **rows_out) {
    const auto before = std::signal(SIGPIPE, SIG_IGN);
    const std::unique_ptr<void, CloseConfiguration> configuration(setnetconfig());
    while (const netconfig *entry = configuration ? getnetconfig(configuration.get()) : nullptr)
        if (*rows_out == nullptr && std::strcmp(entry->nc_protofmly, NC_LOOPBACK) == 0)
            *rows_out = rpcb_getmaps(entry, "localhost");
    std::signal(SIGPIPE, before);
}

// Whether a row's owner, as rpcbind tells it, may speak for the key server.
bool may_register(const std::string &owner) {
    const passwd *server = getpwnam(server_user);
    return owner == "superuser" || owner == std::to_string(geteuid()) ||
           (server != nullptr && owner == std::to_string(server->pw_uid));
}

// The library has looked who listens. Another user can still have led us to some other program of
// root's: who registered this socket must be trusted, too.
void check_registration(CLIENT *client) {
    int descriptor = -1;
    sockaddr_un peer = {};
    socklen_t size = sizeof peer - 1;
    if (clnt_control(client, CLGET_FD, reinterpret_cast<char *>(&descriptor)) &&
        getpeername(descriptor, reinterpret_cast<sockaddr *>(&peer), &size) == 0) {
        Answer<rpcblist_ptr> rows(xdr_rpcblist_ptr);
        read_rows(&rows.value);
        for (const rpcblist *at = rows.value; at != nullptr; at = at->rpcb_next)
            if (at->rpcb_map.r_prog == QELSERV_PROG && may_register(at->rpcb_map.r_owner) &&
                std::strcmp(at->rpcb_map.r_addr, peer.sun_path) == 0)
                return;
    }
    throw Failure{Exit::server, text_of(Text::cannot_trust_server),
                  text_of(Text::another_registered), text_of(Text::tell_administrator)};
}

} // namespace

KeyServer::KeyServer() {
    const QelStatus status = __qel_get_client_handle(&client_);
    if (status != QEL_OK)
        throw library_failure(QEL_ERR_SERV_CONNECT, text_of(Text::cannot_reach_server));
    try {
        check_registration(client_);
    } catch (const Failure &) {
        clnt_destroy(client_);
        throw;
    }
}

KeyServer::~KeyServer() {
    clnt_destroy(client_);
}

std::vector<KeyEntry> KeyServer::stat(uid_t uid) const {
    Answer<qelserv_keystatp> answer(xdr_qelserv_keystatp);
    const std::string any;
    const clnt_stat status = qelserv_statkey_1(
        {static_cast<int32_t>(uid), as_text(any), as_text(any), 0}, &answer.value, client_);
    if (status != RPC_SUCCESS)
        throw call_failure(status, text_of(Text::cannot_ask_server));
    std::vector<KeyEntry> entries;
    for (const qelserv_keystat *at = answer.value; at != nullptr; at = at->next) {
        if (at->status != QELSERV_OK && at->status != QELSERV_LOCKED)
            continue;
        entries.push_back({uid, at->keyid, at->hostaddr, static_cast<uint32_t>(at->usage),
                           at->status == QELSERV_LOCKED, static_cast<uint32_t>(at->flags),
                           at->stamp});
    }
    return entries;
}

std::vector<KeyEntry> KeyServer::entries(uid_t uid) const {
    if (uid != geteuid() && geteuid() != 0)
        throw verdict_failure(QELSERV_DENIED, text_of(Text::cannot_ask_for_others));
    return stat(uid);
}

std::vector<KeyEntry> KeyServer::all_entries() const {
    Answer<qelserv_keylistp> answer(xdr_qelserv_keylistp);
    const std::string what = text_of(Text::cannot_ask_for_all);
    const clnt_stat status = qelserv_listkey_1({-1, 0}, &answer.value, client_);
    if (status != RPC_SUCCESS)
        throw call_failure(status, what);
    std::set<uid_t> users;
    for (const qelserv_keylist *at = answer.value; at != nullptr; at = at->next) {
        if (at->status == QELSERV_DENIED)
            throw verdict_failure(at->status, what);
        users.insert(static_cast<uid_t>(at->uid));
    }
    std::vector<KeyEntry> entries;
    for (const uid_t user : users) {
        std::vector<KeyEntry> own = stat(user);
        std::move(own.begin(), own.end(), std::back_inserter(entries));
    }
    return entries;
}

void KeyServer::set_key(const qelserv_keyinfo &argument, const std::string &what) const {
    qelserv_status verdict = QELSERV_OK;
    const clnt_stat status = qelserv_setkey_1(argument, &verdict, client_);
    if (status != RPC_SUCCESS)
        throw call_failure(status, what);
    if (verdict != QELSERV_OK)
        throw verdict_failure(verdict, what);
}

void KeyServer::log_in(const KeyEntry &entry, std::span<const uint8_t> private_key,
                       std::span<const uint8_t> package) const {
    set_key({as_text(entry.id), nullptr, as_text(entry.host),
             static_cast<int32_t>(entry.seconds_left), static_cast<int32_t>(entry.usage),
             as_bytes(private_key), as_bytes({}), as_bytes(package)},
            text_of(Text::cannot_log_in_with_key, {in_quotes(entry.id)}));
}

void KeyServer::log_out(const KeyEntry &entry, int what) const {
    uid_list user = {static_cast<int32_t>(entry.uid), nullptr};
    set_key({as_text(entry.id), &user, as_text(entry.host), what, 0, {}, {}, {}},
            text_of(what == QELSERV_LOCK ? Text::cannot_lock : Text::cannot_log_out));
}

const KeyEntry &choose_entry(const Arguments &arguments, const std::vector<KeyEntry> &entries) {
    const std::string id = arguments.value("id");
    std::vector<const KeyEntry *> fitting;
    std::string ids;
    for (const KeyEntry &entry : entries) {
        if (!id.empty() && entry.id != id)
            continue;
        fitting.push_back(&entry);
        ids += (ids.empty() ? "" : ", ") + in_quotes(entry.id);
    }
    if (entries.empty())
        throw library_failure(QEL_ERR_NOT_LOGGED_IN, text_of(Text::no_key_at_server),
                              text_of(Text::log_in_first));
    if (fitting.empty())
        throw Failure{Exit::no_key, text_of(Text::key_not_at_server, {in_quotes(id)}),
                      text_of(Text::not_logged_in_with_it), text_of(Text::log_in_first),
                      QEL_ERR_NOT_LOGGED_IN};
    if (fitting.size() == 1)
        return *fitting.front();
    const std::string usual = id.empty() ? default_package_id : id;
    for (const KeyEntry *entry : fitting)
        if (entry->id == usual && entry->host == default_host)
            return *entry;
    arguments.misuse(text_of(Text::several_keys, {ids}));
}

namespace {

UsableKey key_in_file(const Arguments &arguments, uint32_t use) {
    const std::string path = arguments.value("key");
    UsableKey usable = {std::make_unique<Context>(), {}, display_name(path)};
    usable.key = read_private_key(*usable.context, arguments, path, use);
    return usable;
}

} // namespace

UsableKey usable_key(const Arguments &arguments, uint32_t use) {
    if (arguments.has("key"))
        return key_in_file(arguments, use);
    for (const char *option : {"passin", "max-iterations"})
        if (arguments.has(option))
            arguments.misuse(text_of(Text::goes_with_key, {option}));
    const std::vector<KeyEntry> entries = KeyServer().entries(geteuid());
    const KeyEntry &entry = choose_entry(arguments, entries);
    const std::string what = text_of(Text::cannot_use_key_at_server, {in_quotes(entry.id)});
    if (entry.locked)
        throw Failure{Exit::no_key, what, text_of(Text::key_is_locked),
                      text_of(Text::login_unlocks)};
    // The server makes no signatures with a key for decryption.
    use = use != any_use ? use : USAGE_SIGN;
    if (entry.usage != USAGE_SIGN_ENCRYPT && entry.usage != use)
        throw Failure{Exit::permission, what,
                      text_of(Text::usage_is, {usage_text(entry.usage), usage_text(use)}),
                      text_of(Text::use_another_key)};
    return {std::make_unique<Context>(entry.id, entry.host),
            {},
            text_of(Text::key_at_server, {in_quotes(entry.id)})};
}

Decoded<QelKeyPkg> registered_package(const UsableKey &key) {
    QelItemList *list = nullptr;
    uint32_t count = 0;
    const QelStatus status = __qel_get_qelserv_keypkg(*key.context, nullptr, &list, &count);
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::no_package_of, {key.where}));
    auto package = decode<QelKeyPkg>(
        *key.context, {static_cast<const uint8_t *>(list->data), list->length}, QEL_PDU_KeyPkg);
    __qel_free_item_list(&list);
    return package;
}

unsigned modulus_bytes(const UsableKey &key) {
    if (!key.key.octets.empty())
        return modulus_bytes(*key.context, key.key, key.where);
    const auto package = registered_package(key);
    return package ? (rsa_numbers(package->pubKeyInfo).bits + 7) / 8 : 0;
}

} // namespace tool
