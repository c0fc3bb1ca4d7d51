// repositories.h: a user database, a naming service and a key server in the memory of the test
// program, in the place of the real ones. What they stand for is replaced at link time, so that one
// source of a program includes this.
#ifndef TESTS_QEL_REPOSITORIES_H
#define TESTS_QEL_REPOSITORIES_H

#include "qel/signer.h"

#include <lib/memory.h>
#include <qel/qelserv.h>
#include <util/naming.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <optional>
#include <pwd.h>
#include <unistd.h>

// ---- Users: alice calls

struct Users {
    bool caller_is_known = true;
    std::string home = "/nowhere";
};
inline Users users;

extern "C" int getpwuid_r(uid_t, struct passwd *entry, char *work, size_t size,
                          struct passwd **found) {
    *found = nullptr;
    if (!users.caller_is_known || size < users.home.size() + 7)
        return 0;
    entry->pw_name = std::strcpy(work, "alice");
    entry->pw_dir = std::strcpy(work + 6, users.home.c_str());
    *found = entry;
    return 0;
}

extern "C" int getpwnam_r(const char *name, struct passwd *entry, char *, size_t,
                          struct passwd **found) {
    *found = std::strcmp(name, "alice") == 0 ? entry : nullptr;
    entry->pw_uid = 4711;
    return 0;
}

// ---- Naming service

struct NamingEntry {
    std::string dn;
    std::vector<Bytes> certificates, packages;
};

struct NamingService {
    std::map<std::string, NamingEntry> entries;
    QelStatus failure = QEL_OK; // of every call
    std::size_t reads = 0;
};
inline NamingService naming;

inline QelStatus naming_list(const std::vector<Bytes> &values, QelStatus when_empty,
                             QelItemList **list_out, uint32_t *count_out) {
    *list_out = nullptr;
    *count_out = 0;
    if (values.empty())
        return when_empty;
    QelItemList **end = list_out;
    for (const Bytes &value : values) {
        *end = qel::allocate<QelItemList>();
        auto *bytes = qel::allocate_bytes(value.size() + 1);
        if (*end == nullptr || bytes == nullptr) {
            std::free(bytes);
            __qel_free_item_list(list_out);
            return QEL_ERR_NO_MEMORY;
        }
        std::copy(value.begin(), value.end(), bytes);
        (*end)->data = bytes;
        (*end)->length = value.size();
        end = &(*end)->next;
        ++*count_out;
    }
    return QEL_OK;
}

inline QelStatus naming_read(const char *name, std::vector<Bytes> NamingEntry::*values,
                             QelStatus when_empty, QelItemList **list_out, uint32_t *count_out) {
    *list_out = nullptr;
    ++naming.reads;
    if (naming.failure != QEL_OK)
        return naming.failure;
    const auto entry = naming.entries.find(name);
    return entry == naming.entries.end()
               ? QelStatus{QEL_ERR_UNKNOWN_USER}
               : naming_list(entry->second.*values, when_empty, list_out, count_out);
}

inline QelStatus naming_remove(const char *name, std::vector<Bytes> NamingEntry::*values,
                               const uint8_t *value, uint32_t length) {
    if (naming.failure != QEL_OK)
        return naming.failure;
    std::vector<Bytes> &all = naming.entries[name].*values;
    if (value == nullptr)
        all.clear();
    std::erase(all, Bytes(value, value + length));
    return QEL_OK;
}

QelStatus dsv_get_keys_given_user_name(const char *name, QelItemList **list_out,
                                       uint32_t *count_out) {
    return naming_read(name, &NamingEntry::packages, QEL_ERR_NO_KEYPKG, list_out, count_out);
}

QelStatus dsv_get_certs_given_user_name(const char *name, QelItemList **list_out,
                                        uint32_t *count_out) {
    return naming_read(name, &NamingEntry::certificates, QEL_ERR_NO_CERT, list_out, count_out);
}

extern "C" QelStatus __dsv_get_dn_name_given_user_name(const char *name, QelItemList **list_out,
                                                       uint32_t *count_out) {
    *list_out = nullptr;
    ++naming.reads;
    if (naming.failure != QEL_OK)
        return naming.failure;
    const std::string dn = std::strncmp(name, ".../", 4) == 0 ? name : naming.entries[name].dn;
    return naming_list(dn.empty() ? std::vector<Bytes>() : std::vector<Bytes>{bytes_of(dn)},
                       QEL_ERR_NO_DN, list_out, count_out);
}

extern "C" QelStatus __dsv_get_user_name_given_cn_name(const char *dn, char **name_out) {
    *name_out = nullptr;
    if (naming.failure != QEL_OK)
        return naming.failure;
    for (const auto &[name, entry] : naming.entries)
        if (entry.dn == dn) {
            *name_out = strdup(name.c_str());
            return *name_out != nullptr ? QEL_OK : QEL_ERR_NO_MEMORY;
        }
    return QEL_ERR_UNKNOWN_USER;
}

QelStatus dsv_add_user_certs_and_key_pkg(const char *name, const char *dn,
                                         const uint8_t *certificate, uint32_t certificate_length,
                                         const uint8_t *package, uint32_t package_length) {
    if (naming.failure != QEL_OK)
        return naming.failure;
    NamingEntry &entry = naming.entries[name];
    if (dn != nullptr && !entry.dn.empty() && entry.dn != dn)
        return QEL_ERR_ENTRY_EXISTS;
    if (dn != nullptr)
        entry.dn = dn;
    if (certificate != nullptr)
        entry.certificates.emplace_back(certificate, certificate + certificate_length);
    if (package != nullptr)
        entry.packages.emplace_back(package, package + package_length);
    return QEL_OK;
}

QelStatus dsv_put_key_pkg(const char *name, std::span<const QelDataSetItem>,
                          const QelDataSetItem *old, const uint8_t *value, uint32_t length,
                          bool *overtaken) {
    *overtaken = false;
    if (naming.failure != QEL_OK)
        return naming.failure;
    naming.entries[name].packages.emplace_back(value, value + length);
    return old == nullptr ? QelStatus{QEL_OK}
                          : naming_remove(name, &NamingEntry::packages, old->data, old->length);
}

Attempts::Attempts() : end_(0) {}
bool Attempts::another() {
    return ++count_ > end_;
}

QelStatus dsv_delete_key_pkg(const char *name, const uint8_t *value, uint32_t length) {
    return naming_remove(name, &NamingEntry::packages, value, length);
}

QelStatus dsv_delete_certificates(const char *name, const uint8_t *value, uint32_t length) {
    return naming_remove(name, &NamingEntry::certificates, value, length);
}

// ---- Key server: the calls of <qel/qelserv.h>

struct KeyServer {
    std::vector<Bytes> packages; // of the caller
    clnt_stat stat_outcome = RPC_SUCCESS;
    qelserv_status verdict = QELSERV_OK; // on registering and withdrawing
    std::optional<int> withdrawn;        // the user
};
inline KeyServer key_server;

extern "C" {

clnt_stat qelserv_statkey_1(qelserv_statinfo, qelserv_keystatp *result, CLIENT *) {
    (*result)->status = key_server.packages.empty() ? QELSERV_NOT_LOGGED_IN : QELSERV_OK;
    return key_server.stat_outcome;
}

clnt_stat qelserv_setkey_1(qelserv_keyinfo argument, qelserv_status *result, CLIENT *) {
    *result = key_server.verdict;
    const qelserv_bytes &package = argument.keypkg;
    if (argument.uids != nullptr)
        key_server.withdrawn = argument.uids->uid;
    else if (*result == QELSERV_OK)
        key_server.packages = {Bytes(package.value, package.value + package.length)};
    return RPC_SUCCESS;
}

clnt_stat qelserv_getkeypkg_1(qelserv_keypkginfo, qelserv_keypkglistp *result, CLIENT *) {
    if (key_server.packages.empty())
        (*result)->status = QELSERV_NOT_LOGGED_IN;
    for (const Bytes &package : key_server.packages) {
        auto *bytes = static_cast<uint8_t *>(std::malloc(package.size()));
        if (bytes == nullptr)
            return RPC_CANTDECODERES;
        std::copy(package.begin(), package.end(), bytes);
        (*result)->keypkg = {length_of(package), bytes};
        if (&package == &key_server.packages.back())
            break;
        (*result)->next = qel::allocate<qelserv_keypkglist>();
        if ((*result)->next == nullptr)
            return RPC_CANTDECODERES;
        result = &(*result)->next;
    }
    return RPC_SUCCESS;
}

clnt_stat qelserv_sign_1(qelserv_cryptinfo, qelserv_cryptdatap *, CLIENT *) {
    return RPC_FAILED;
}

clnt_stat qelserv_decrypt_1(qelserv_cryptinfo, qelserv_cryptdatap *, CLIENT *) {
    return RPC_FAILED;
}

} // extern "C"

// ---- All of them, as new, with a context that knows the key server

class RepositoriesTest : public testing::Test {
protected:
    RepositoriesTest() {
        users = {true, folder.path("")};
        naming = {};
        key_server = {};
        context->key_server = &key_server;
    }
    ~RepositoriesTest() override { context->key_server = nullptr; }

    // A data-set file with these items.
    void write_set(const std::string &path, int kind, const std::vector<Bytes> &items) {
        write_file(path, {});
        for (const Bytes &item : items)
            ASSERT_EQ(__qel_dump_append_and_delimit(kind, path.c_str(), QEL_FORM_ARMOUR,
                                                    item.data(), length_of(item)),
                      QEL_OK);
    }

    TemporaryFolder folder;
    TestContext context;
};

#endif
