#include "key_server.h"

#include "key_package.h"
#include "text.h"
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
constexpr const char *log_in_first = "Log in with 'qel login'.";

// What a refusal of the server means.
struct VerdictRow {
    qelserv_status verdict;
    Exit exit;
    QelStatus status;
    const char *why;
    const char *next;
};
constexpr VerdictRow verdicts[] = {
    {QELSERV_NO_KEY, Exit::no_key, QEL_ERR_NO_ENTRY, "the key server holds no such key",
     "'qel status' shows which it holds."},
    {QELSERV_DENIED, Exit::permission, QEL_ERR_LOGOUT, "the key is another user's",
     "Only the super-user does that for others."},
    {QELSERV_BAD_ARGUMENT, Exit::input, QEL_ERR_LOGIN, "the key server cannot make sense of it",
     "Check that server and command are of the same version."},
    {QELSERV_BAD_PACKAGE, Exit::input, QEL_ERR_LOGIN,
     "the key server cannot use the key package, or its signature is not good",
     "'qel keypkg verify' says what it is worth."},
    {QELSERV_BAD_KEY, Exit::input, QEL_ERR_LOGIN,
     "the key is not the one that is registered under this name",
     "Log out first, if it is to take the other's place."},
    {QELSERV_USAGE, Exit::permission, QEL_ERR_LOGIN, "the key package is not for this use",
     "Leave '--usage' out."},
    {QELSERV_LIMIT, Exit::no, QEL_ERR_LOGIN, "the key server holds as many keys as it takes",
     "Log out with those that are not needed."},
    {QELSERV_NOT_LOGGED_IN, Exit::no_key, QEL_ERR_NOT_LOGGED_IN,
     "the key server holds no key of this user", log_in_first},
    {QELSERV_KEY_EXISTS, Exit::no, QEL_ERR_ENTRY_EXISTS, "you are logged in with it already",
     "Log out first, if it is to change."},
};

Failure verdict_failure(qelserv_status verdict, const std::string &what) {
    for (const VerdictRow &row : verdicts)
        if (row.verdict == verdict)
            return {row.exit, what, row.why, row.next, row.status};
    return {Exit::server, what, "the key server failed (" + std::to_string(verdict) + ")",
            "The system log may say why.", QEL_ERR_LOGIN};
}

Failure call_failure(clnt_stat status, const std::string &what) {
    return {Exit::server, what, std::string("the call failed: ") + clnt_sperrno(status),
            "Check that the key server runs.", QEL_ERR_SERV_CONNECT};
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
    throw Failure{Exit::server, "cannot trust the key server",
                  "another user has registered what answers in its place",
                  "Tell whoever administers this host."};
}

} // namespace

KeyServer::KeyServer() {
    const QelStatus status = __qel_get_client_handle(&client_);
    if (status != QEL_OK)
        throw library_failure(QEL_ERR_SERV_CONNECT, "cannot reach the key server");
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
        throw call_failure(status, "cannot ask the key server for keys");
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
        throw verdict_failure(QELSERV_DENIED, "cannot ask for the keys of another user");
    return stat(uid);
}

std::vector<KeyEntry> KeyServer::all_entries() const {
    Answer<qelserv_keylistp> answer(xdr_qelserv_keylistp);
    const std::string what = "cannot ask for everybody's keys";
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
            "cannot log in with key " + in_quotes(entry.id));
}

void KeyServer::log_out(const KeyEntry &entry, int what) const {
    uid_list user = {static_cast<int32_t>(entry.uid), nullptr};
    set_key({as_text(entry.id), &user, as_text(entry.host), what, 0, {}, {}, {}},
            what == QELSERV_LOCK ? "cannot lock keys" : "cannot log out");
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
        throw library_failure(QEL_ERR_NOT_LOGGED_IN, "cannot find a key at the key server",
                              log_in_first);
    if (fitting.empty())
        throw Failure{Exit::no_key, "cannot find key " + in_quotes(id) + " at the key server",
                      "you are not logged in with it", log_in_first, QEL_ERR_NOT_LOGGED_IN};
    if (fitting.size() == 1)
        return *fitting.front();
    const std::string usual = id.empty() ? default_package_id : id;
    for (const KeyEntry *entry : fitting)
        if (entry->id == usual && entry->host == default_host)
            return *entry;
    arguments.misuse("you are logged in with several keys: choose with '--id' from " + ids);
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
            arguments.misuse(std::string("'--") + option + "' goes with '--key'");
    const std::vector<KeyEntry> entries = KeyServer().entries(geteuid());
    const KeyEntry &entry = choose_entry(arguments, entries);
    const std::string what = "cannot use key " + in_quotes(entry.id) + " at the key server";
    if (entry.locked)
        throw Failure{Exit::no_key, what, "it is locked", "'qel login' unlocks it."};
    // The server makes no signatures with a key for decryption.
    use = use != any_use ? use : USAGE_SIGN;
    if (entry.usage != USAGE_SIGN_ENCRYPT && entry.usage != use)
        throw Failure{Exit::permission, what,
                      "its usage is " + usage_text(entry.usage) + ", not " + usage_text(use),
                      "Use another key."};
    return {std::make_unique<Context>(entry.id, entry.host),
            {},
            "key " + in_quotes(entry.id) + " at the key server"};
}

Decoded<QelKeyPkg> registered_package(const UsableKey &key) {
    QelItemList *list = nullptr;
    uint32_t count = 0;
    const QelStatus status = __qel_get_qelserv_keypkg(*key.context, nullptr, &list, &count);
    if (status != QEL_OK)
        throw library_failure(status, "cannot get the key package of " + key.where);
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
