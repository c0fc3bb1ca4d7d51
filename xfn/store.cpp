// store.cpp: what all naming stores share: who may change what, bounds, the operations on attributes,
// and the stores that are open in this process.

#include "store.h"

#include <cerrno>
#include <pthread.h>
#include <pwd.h>
#include <unistd.h>

namespace xfn {

// ---- Checks ---------------------------------------------------------------------------------------

namespace {

// Whether the host knows this user, and under which number.
unsigned find_user(const char *login_name, bool *found, uid_t *uid) {
    constexpr std::size_t smallest = 1024, largest = 1 << 20;
    for (std::size_t size = smallest; size <= largest; size *= 2) {
        const qel::Owned<char> buffer(static_cast<char *>(std::malloc(size)));
        if (buffer == nullptr)
            return FN_E_INSUFFICIENT_RESOURCES;
        passwd record;
        passwd *result = nullptr;
        const int error = getpwnam_r(login_name, &record, buffer.get(), size, &result);
        if (error == ERANGE)
            continue;
        *found = result != nullptr;
        if (*found)
            *uid = record.pw_uid;
        // Several numbers say that there is no such user.
        const bool unknown = error == 0 || error == ENOENT || error == ESRCH;
        return unknown ? FN_SUCCESS : FN_E_CTX_UNAVAILABLE;
    }
    return FN_E_CTX_UNAVAILABLE;
}

} // namespace

unsigned may_change(EntryName name, uid_t actor) {
    if (actor == 0)
        return FN_SUCCESS;
    if (name.area != Area::users)
        return FN_E_CTX_NO_PERMISSION;
    const String login_name(make_string(name.text));
    if (login_name == nullptr)
        return FN_E_INSUFFICIENT_RESOURCES;
    bool found = false;
    uid_t uid = 0;
    if (const unsigned code = find_user(login_name->bytes, &found, &uid); code != FN_SUCCESS)
        return code;
    return found && uid == actor ? FN_SUCCESS : FN_E_CTX_NO_PERMISSION;
}

unsigned check_name(EntryName name) {
    const bool good = !name.text.empty() && name.text.size() <= max_name &&
                      std::memchr(name.text.data(), '\0', name.text.size()) == nullptr;
    return good ? FN_SUCCESS : FN_E_ILLEGAL_NAME;
}

unsigned check_attribute(const FN_attribute_t *attribute) {
    if (attribute->identifier.length == 0 || attribute->identifier.length > max_identifier ||
        attribute->syntax.length > max_identifier)
        return FN_E_INVALID_ATTR_IDENTIFIER;
    if (attribute->values.count > max_values)
        return FN_E_TOO_MANY_ATTR_VALUES;
    std::size_t bytes = 0;
    for (const FN_attrvalue_t &value : attribute->values) {
        if (value.length > max_value)
            return FN_E_INVALID_ATTR_VALUE;
        bytes += value.length; // at most max_values * max_value: 2^30
    }
    return bytes <= max_attribute_bytes ? FN_SUCCESS : FN_E_INSUFFICIENT_RESOURCES;
}

// ---- Operations on attributes ---------------------------------------------------------------------

namespace {

bool add_values(FN_attribute_t *to, const FN_attribute_t *from) {
    for (const FN_attrvalue_t &value : from->values)
        if (!fn_attribute_add(to, &value, 0))
            return false;
    return true;
}

// Copies what is there, or else begins an attribute without values.
bool begin_result(const FN_attribute_t *attribute, const FN_attribute_t *stored,
                  Attribute *result) {
    result->reset(stored != nullptr
                      ? fn_attribute_copy(stored)
                      : fn_attribute_create(&attribute->identifier, &attribute->syntax));
    return *result != nullptr;
}

unsigned compute(unsigned operation, const FN_attribute_t *attribute, const FN_attribute_t *stored,
                 Attribute *result) {
    switch (operation) {
    case FN_ATTR_OP_ADD_EXCLUSIVE:
        if (stored != nullptr)
            return FN_E_ATTR_IN_USE;
        [[fallthrough]];
    case FN_ATTR_OP_ADD:
        if (!begin_result(attribute, nullptr, result) || !add_values(result->get(), attribute))
            return FN_E_INSUFFICIENT_RESOURCES;
        return FN_SUCCESS;
    case FN_ATTR_OP_REMOVE:
        return FN_SUCCESS;
    case FN_ATTR_OP_ADD_VALUES:
        if (!begin_result(attribute, stored, result) || !add_values(result->get(), attribute))
            return FN_E_INSUFFICIENT_RESOURCES;
        return FN_SUCCESS;
    case FN_ATTR_OP_REMOVE_VALUES:
        if (stored == nullptr)
            return FN_SUCCESS;
        if (!begin_result(attribute, stored, result))
            return FN_E_INSUFFICIENT_RESOURCES;
        for (const FN_attrvalue_t &value : attribute->values)
            fn_attribute_remove(result->get(), &value);
        if ((*result)->values.count == 0)
            result->reset();
        return FN_SUCCESS;
    default:
        return FN_E_OPERATION_NOT_SUPPORTED;
    }
}

} // namespace

unsigned apply(unsigned operation, const FN_attribute_t *attribute, const FN_attribute_t *stored,
               Attribute *result) {
    result->reset();
    if (const unsigned code = check_attribute(attribute); code != FN_SUCCESS)
        return code;
    if (attribute->guarded && attribute->expected != (stored != nullptr ? stored->version : 0))
        return FN_E_ATTR_CHANGED;
    unsigned code = compute(operation, attribute, stored, result);
    if (code == FN_SUCCESS && *result != nullptr)
        code = check_attribute(result->get());
    if (code != FN_SUCCESS)
        result->reset();
    return code;
}

void NamePage::clear() {
    for (FN_string_t *name : names)
        fn_string_destroy(name);
    std::free(names.items);
    names = {};
    cursor.reset();
}

// ---- Kinds of stores ------------------------------------------------------------------------------

namespace {

bool is_absolute_path(const char *rest) {
    return rest[0] == '/';
}

bool is_empty(const char *rest) {
    return rest[0] == '\0';
}

unsigned open_nothing(const char *, Store **) {
    return FN_E_CTX_UNAVAILABLE;
}

constexpr StoreKind kinds[] = {
    {"sqlite", is_absolute_path, open_sqlite_store},
    {"nis", is_empty, open_nis_store}, // the map of the host's NIS domain
    {"none", is_empty, open_nothing},  // a back end that the host does not have
};

} // namespace

const StoreKind *kind_of_location(const char *location) {
    for (const StoreKind &kind : kinds) {
        const std::size_t size = std::strlen(kind.scheme);
        if (std::strncmp(location, kind.scheme, size) == 0 && location[size] == ':')
            return kind.well_formed(location + size + 1) ? &kind : nullptr;
    }
    return nullptr;
}

// ---- The stores of this process -------------------------------------------------------------------

namespace {

pthread_mutex_t registry_lock = PTHREAD_MUTEX_INITIALIZER;
SharedStore *registry = nullptr;

struct RegistryLocked {
    RegistryLocked() { pthread_mutex_lock(&registry_lock); }
    ~RegistryLocked() { pthread_mutex_unlock(&registry_lock); }
    RegistryLocked(const RegistryLocked &) = delete;
    RegistryLocked &operator=(const RegistryLocked &) = delete;
};

void before_fork() {
    pthread_mutex_lock(&registry_lock);
    for (SharedStore *shared = registry; shared != nullptr; shared = shared->next)
        shared->store->operations->before_fork(shared->store);
}

void after_fork() {
    for (SharedStore *shared = registry; shared != nullptr; shared = shared->next)
        shared->store->operations->after_fork(shared->store);
    pthread_mutex_unlock(&registry_lock);
}

pthread_once_t fork_handlers = PTHREAD_ONCE_INIT;
bool are_forks_handled = false;

void handle_forks() {
    are_forks_handled = pthread_atfork(before_fork, after_fork, after_fork) == 0;
}

struct CloseStore {
    void operator()(SharedStore *shared) const {
        for (Store *store : {shared->store, shared->remote})
            if (store != nullptr)
                store->operations->close(store);
        std::free(shared->location);
        std::free(shared);
    }
};

} // namespace

unsigned use_store(const char *location, SharedStore **shared_out) {
    *shared_out = nullptr;
    pthread_once(&fork_handlers, handle_forks);
    if (!are_forks_handled)
        return FN_E_INSUFFICIENT_RESOURCES;
    const RegistryLocked locked;
    for (SharedStore *shared = registry; shared != nullptr; shared = shared->next) {
        if (std::strcmp(shared->location, location) == 0) {
            ++shared->users;
            *shared_out = shared;
            return FN_SUCCESS;
        }
    }
    const StoreKind *kind = kind_of_location(location);
    if (kind == nullptr)
        return FN_E_CONFIGURATION_ERROR;
    std::unique_ptr<SharedStore, CloseStore> shared(qel::allocate<SharedStore>());
    if (shared == nullptr || (shared->location = strdup(location)) == nullptr)
        return FN_E_INSUFFICIENT_RESOURCES;
    const char *rest = location + std::strlen(kind->scheme) + 1;
    unsigned code = kind->open(rest, &shared->store);
    if (code == FN_SUCCESS)
        code = open_remote_store(location, &shared->remote);
    if (code != FN_SUCCESS)
        return code;
    shared->users = 1;
    shared->next = registry;
    registry = *shared_out = shared.release();
    return FN_SUCCESS;
}

SharedStore *use_again(SharedStore *shared) {
    const RegistryLocked locked;
    ++shared->users;
    return shared;
}

void release_store(SharedStore *shared) {
    if (shared == nullptr)
        return;
    const RegistryLocked locked;
    if (--shared->users != 0)
        return;
    SharedStore **link = &registry;
    while (*link != shared)
        link = &(*link)->next;
    *link = shared->next;
    CloseStore()(shared);
}

Store *changing_store(const SharedStore *shared) {
    return shared->store->operations->writable(shared->store) ? shared->store : shared->remote;
}

} // namespace xfn
