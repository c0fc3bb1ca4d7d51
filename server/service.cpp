#include "service.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <utility>

#include "keys.h"

namespace {

constexpr uid_t super_user = 0;
constexpr int32_t everybody = -1;

View view(const qelserv_bytes &bytes) {
    return {bytes.value, bytes.length};
}

template <class T> T *make() {
    auto *made = static_cast<T *>(std::calloc(1, sizeof(T)));
    if (made == nullptr)
        throw std::bad_alloc();
    return made;
}

qelserv_bytes copy(View bytes) {
    if (bytes.empty())
        return {};
    auto *made = static_cast<uint8_t *>(std::malloc(bytes.size()));
    if (made == nullptr)
        throw std::bad_alloc();
    std::copy(bytes.begin(), bytes.end(), made);
    return {static_cast<uint32_t>(bytes.size()), made};
}

char *copy(const std::string &text) {
    char *made = strdup(text.c_str());
    if (made == nullptr)
        throw std::bad_alloc();
    return made;
}

// A list under construction, in the order of addition.
template <class Element, bool_t (*routine)(XDR *, Element **)> class List {
public:
    List() = default;
    List(const List &) = delete;
    List &operator=(const List &) = delete;
    ~List() { xdr_free(reinterpret_cast<xdrproc_t>(routine), &first_); }

    Element *add() {
        *end_ = make<Element>();
        Element *added = *end_;
        end_ = &added->next;
        return added;
    }
    bool empty() const { return first_ == nullptr; }
    Element *release() { return std::exchange(first_, nullptr); }

private:
    Element *first_ = nullptr;
    Element **end_ = &first_;
};

bool matches(const EntryName &name, const char *keyid, const char *hostaddr) {
    return (*keyid == '\0' || name.keyid == keyid) &&
           (*hostaddr == '\0' || name.hostaddr == hostaddr);
}

int32_t seconds_left(const Entry &entry, Instant now) {
    if (!entry.end)
        return 0;
    const auto left = std::chrono::ceil<std::chrono::seconds>(*entry.end - now).count();
    return static_cast<int32_t>(std::clamp<int64_t>(left, 1, INT32_MAX));
}

bool is_usage(int usage) {
    return usage == USAGE_SIGN_ENCRYPT || usage == USAGE_SIGN || usage == USAGE_ENCRYPT;
}

qelserv_cryptdata *answer(qelserv_status status, const SecretBytes &data) {
    struct Free {
        void operator()(qelserv_cryptdata *block) const { std::free(block); }
    };
    std::unique_ptr<qelserv_cryptdata, Free> made(make<qelserv_cryptdata>());
    made->status = status;
    if (status == QELSERV_OK)
        made->data = copy(data);
    return made.release();
}

void log_refusal(const Caller &caller, const char *what, qelserv_status status, const char *keyid) {
    if (status != QELSERV_OK)
        log_call(caller, what, keyid);
}

// An operation with an entry's private key, which a locked entry has not.
auto with_key(qelserv_status (*operation)(const SecretBytes &, View, SecretBytes *)) {
    return [operation](const Entry &entry, View data, SecretBytes *result) {
        return entry.locked() ? qelserv_status{QELSERV_LOCKED}
                              : operation(entry.private_key, data, result);
    };
}

} // namespace

uint32_t Service::lifetime(int32_t asked) const {
    const uint32_t wanted = asked > 0 ? static_cast<uint32_t>(asked) : limits_.default_lifetime;
    const uint32_t longest = limits_.longest_lifetime;
    return longest != 0 && (wanted == 0 || wanted > longest) ? longest : wanted;
}

void Service::set_end(Entry *entry, int32_t asked) {
    entry->end.reset();
    const uint32_t seconds = lifetime(asked);
    if (seconds == 0)
        return;
    entry->end = BootClock::now() + std::chrono::seconds(seconds);
    if (!next_end_ || *entry->end < *next_end_)
        next_end_ = entry->end;
}

qelserv_status Service::set_key(const Caller &caller, const qelserv_keyinfo &argument) {
    const bool registers = argument.uids == nullptr;
    const qelserv_status status =
        registers ? register_key(caller, argument) : drop_keys(caller, argument);
    const char *done = registers                        ? "registered"
                       : argument.flags == QELSERV_LOCK ? "locked"
                                                        : "withdrawn";
    const char *refused = registers ? "registration refused" : "withdrawal refused";
    log_call(caller, status == QELSERV_OK ? done : refused, argument.keyid);
    return status;
}

qelserv_status Service::register_key(const Caller &caller, const qelserv_keyinfo &argument) {
    int usage = 0;
    if (argument.flags < 0 || !is_usage(argument.usage) || *argument.keyid == '\0')
        return QELSERV_BAD_ARGUMENT;
    if (check_package(view(argument.keypkg), &usage) != QELSERV_OK || !is_usage(usage))
        return QELSERV_BAD_PACKAGE;
    if (usage != USAGE_SIGN_ENCRYPT && usage != argument.usage)
        return QELSERV_USAGE;
    EntryName name = {caller.uid, argument.keyid, argument.hostaddr};
    expire();
    Entry *present = vault_.find(name, BootClock::now());
    if (argument.privkey.length == 0)
        return present != nullptr ? replace_package(present, argument, present->usage)
                                  : QELSERV_NOT_LOGGED_IN;
    if (present != nullptr)
        return unlock(present, argument);
    if (vault_.count(caller.uid) >= limits_.entries_per_user ||
        !has_room_for(argument.keypkg.length))
        return QELSERV_LIMIT;
    Entry entry;
    const qelserv_status status =
        open_private_key(view(argument.keypkg), view(argument.privkey), &entry.private_key);
    if (status != QELSERV_OK)
        return status;
    const View package = view(argument.keypkg);
    entry.package.assign(package.begin(), package.end());
    entry.usage = argument.usage;
    entry.registered = static_cast<uint32_t>(std::time(nullptr));
    set_end(&entry, argument.flags);
    vault_.put(std::move(name), std::move(entry));
    return QELSERV_OK;
}

bool Service::has_room_for(std::size_t package) const {
    std::size_t used = 0;
    for (const auto &[name, entry] : vault_.entries())
        used += entry.package.size();
    return package <= limits_.bytes - std::min(used, limits_.bytes);
}

// The entry's new usage is within what is allowed. Any process of the user can replace the package,
// without the pass phrase, so that the usage can then become narrower only.
qelserv_status Service::replace_package(Entry *entry, const qelserv_keyinfo &argument,
                                        int allowed) {
    const View package = view(argument.keypkg);
    if (!have_same_public_key(entry->package, package))
        return QELSERV_BAD_KEY;
    if (package.size() > entry->package.size() &&
        !has_room_for(package.size() - entry->package.size()))
        return QELSERV_LIMIT;
    const int usage = argument.usage == USAGE_SIGN_ENCRYPT ? allowed : argument.usage;
    if (allowed != USAGE_SIGN_ENCRYPT && allowed != usage)
        return QELSERV_USAGE;
    Bytes(package.begin(), package.end()).swap(entry->package);
    entry->usage = usage;
    return QELSERV_OK;
}

// Back comes the private key of a locked entry, and with it a life-time of its own.
qelserv_status Service::unlock(Entry *entry, const qelserv_keyinfo &argument) {
    if (!entry->locked())
        return QELSERV_KEY_EXISTS;
    SecretBytes key;
    qelserv_status status = open_private_key(view(argument.keypkg), view(argument.privkey), &key);
    if (status == QELSERV_OK)
        status = replace_package(entry, argument, USAGE_SIGN_ENCRYPT);
    if (status != QELSERV_OK)
        return status;
    entry->private_key = std::move(key);
    set_end(entry, argument.flags);
    return QELSERV_OK;
}

qelserv_status Service::drop_keys(const Caller &caller, const qelserv_keyinfo &argument) {
    if (argument.flags < QELSERV_WITHDRAW || argument.flags > QELSERV_WITHDRAW_ALL)
        return QELSERV_BAD_ARGUMENT;
    for (const uid_list *user = argument.uids; user != nullptr; user = user->next) {
        if (caller.uid != super_user && static_cast<uid_t>(user->uid) != caller.uid)
            return QELSERV_DENIED;
    }
    std::size_t count = 0;
    for (const uid_list *user = argument.uids; user != nullptr; user = user->next) {
        const uid_t uid = static_cast<uid_t>(user->uid);
        if (argument.flags == QELSERV_LOCK)
            count += vault_.lock_all(uid);
        else if (argument.flags == QELSERV_WITHDRAW_ALL)
            count += vault_.withdraw_all(uid);
        else
            count += vault_.withdraw({uid, argument.keyid, argument.hostaddr}) ? 1 : 0;
    }
    return count != 0 ? QELSERV_OK : QELSERV_NO_KEY;
}

qelserv_keylist *Service::list_keys(const Caller &caller, const qelserv_listinfo &argument) const {
    List<qelserv_keylist, xdr_qelserv_keylistp> list;
    const Instant now = BootClock::now();
    const bool all = argument.uid == everybody;
    if (caller.uid != super_user && (all || static_cast<uid_t>(argument.uid) != caller.uid)) {
        log_call(caller, "list refused", "");
        qelserv_keylist *refusal = list.add();
        refusal->keyid = copy(std::string());
        refusal->hostaddr = copy(std::string());
        refusal->status = QELSERV_DENIED;
        return list.release();
    }
    for (const auto &[name, entry] : vault_.entries()) {
        if (has_ended(entry, now) || (!all && name.uid != static_cast<uid_t>(argument.uid)))
            continue;
        qelserv_keylist *element = list.add();
        element->keyid = copy(name.keyid);
        element->hostaddr = copy(name.hostaddr);
        element->uid = static_cast<int32_t>(name.uid);
        element->status = entry.locked() ? QELSERV_LOCKED : QELSERV_OK;
    }
    return list.release();
}

qelserv_keystat *Service::stat_keys(const Caller &caller, const qelserv_statinfo &argument) const {
    List<qelserv_keystat, xdr_qelserv_keystatp> list;
    const Instant now = BootClock::now();
    const bool other = caller.uid == super_user && argument.uid != 0;
    const uid_t uid = other ? static_cast<uid_t>(argument.uid) : caller.uid;
    for (const auto &[name, entry] : vault_.entries()) {
        if (name.uid != uid || has_ended(entry, now) ||
            !matches(name, argument.keyid, argument.hostaddr))
            continue;
        qelserv_keystat *element = list.add();
        element->keyid = copy(name.keyid);
        element->hostaddr = copy(name.hostaddr);
        element->status = entry.locked() ? QELSERV_LOCKED : QELSERV_OK;
        element->flags = seconds_left(entry, now);
        element->usage = entry.usage;
        element->stamp = entry.registered;
    }
    if (list.empty()) {
        qelserv_keystat *none = list.add();
        none->keyid = copy(std::string(argument.keyid));
        none->hostaddr = copy(std::string(argument.hostaddr));
        none->status = QELSERV_NOT_LOGGED_IN;
    }
    return list.release();
}

qelserv_status Service::find_usable(const Caller &caller, const qelserv_cryptinfo &argument,
                                    int use, const Entry **entry_out) {
    if (!is_rsa_encryption(view(argument.algid)))
        return QELSERV_BAD_ARGUMENT;
    const Entry *entry =
        vault_.find({caller.uid, argument.keyid, argument.hostaddr}, BootClock::now());
    if (entry == nullptr)
        return QELSERV_NOT_LOGGED_IN;
    if (entry->usage != USAGE_SIGN_ENCRYPT && entry->usage != use)
        return QELSERV_USAGE;
    *entry_out = entry;
    return QELSERV_OK;
}

// Answers with what operation makes of the data; refused is the line of the log when nothing comes of it.
template <class Operation>
qelserv_cryptdata *Service::work_with_entry(const Caller &caller, const qelserv_cryptinfo &argument,
                                            int use, const char *refused, Operation operation) {
    const Entry *entry = nullptr;
    SecretBytes result;
    qelserv_status status = find_usable(caller, argument, use, &entry);
    if (status == QELSERV_OK)
        status = operation(*entry, view(argument.data), &result);
    log_refusal(caller, refused, status, argument.keyid);
    return answer(status, result);
}

qelserv_cryptdata *Service::sign(const Caller &caller, const qelserv_cryptinfo &argument) {
    return work_with_entry(caller, argument, USAGE_SIGN, "signature refused", with_key(::sign));
}

qelserv_cryptdata *Service::decrypt(const Caller &caller, const qelserv_cryptinfo &argument) {
    return work_with_entry(caller, argument, USAGE_ENCRYPT, "decryption refused",
                           with_key(::decrypt));
}

qelserv_cryptdata *Service::encrypt(const Caller &caller, const qelserv_cryptinfo &argument) {
    return work_with_entry(caller, argument, USAGE_ENCRYPT, "encryption refused",
                           [](const Entry &entry, View data, SecretBytes *block) {
                               return ::encrypt(entry.package, data, block);
                           });
}

qelserv_keypkglist *Service::get_packages(const Caller &caller,
                                          const qelserv_keypkginfo &argument) const {
    List<qelserv_keypkglist, xdr_qelserv_keypkglistp> list;
    const Instant now = BootClock::now();
    for (const auto &[name, entry] : vault_.entries()) {
        if (name.uid == caller.uid && !has_ended(entry, now) &&
            matches(name, argument.keyid, argument.hostaddr)) {
            qelserv_keypkglist *element = list.add();
            element->keypkg = copy(entry.package);
        }
    }
    if (list.empty())
        list.add()->status = QELSERV_NOT_LOGGED_IN;
    return list.release();
}

std::optional<Instant> Service::expire() {
    const Instant now = BootClock::now();
    if (!next_end_ || now < *next_end_)
        return next_end_;
    vault_.expire(now, [](const EntryName &name) {
        log_call({name.uid, 0}, "expired", name.keyid);
    });
    next_end_ = vault_.next_end();
    return next_end_;
}
