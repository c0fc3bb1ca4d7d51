// store_host.h: the library's operations on real stores, files, the naming service with its daemon and
// the key server, each call in a context of its own; for tests on a private host.
#ifndef TESTS_QEL_STORE_HOST_H
#define TESTS_QEL_STORE_HOST_H

#include "support/certificate.h"
#include "support/host.h"
#include "support/keypkg.h"
#include "tools/run.h"

#include <qel/store.h>
#include <util/naming.h>

#include <filesystem>
#include <sys/mount.h>
#include <sys/stat.h>

namespace stores {

using namespace std::chrono_literals;
using host::as_user;
using host::has_users;
using host::root;
using host::user;
using Values = std::vector<Bytes>;

inline const char *const subject = "CN=Alice, O=Acme, C=US";
inline const char *const other_subject = "CN=Bob, O=Acme, C=US";

inline const RsaKey &key() {
    return RsaKey::of_512_bits();
}
inline TestKeyPackage package(const std::string &id = "default_keyid") {
    TestKeyPackage made = test_key_package(key());
    made.owner = subject;
    made.id = id;
    return made;
}
inline Bytes certificate(const std::string &of, uint8_t serial = 1,
                         const std::string &issuer = subject) {
    return TestCertificate{of, issuer, &key(), &key(), serial}.encoding();
}
inline Bytes armoured(const Bytes &encoding, int kind) {
    const TemporaryFolder folder;
    const std::string file = folder.path("x");
    EXPECT_EQ(__qel_dump_append_and_delimit(kind, file.c_str(), QEL_FORM_ARMOUR, encoding.data(),
                                            length_of(encoding)),
              QEL_OK);
    return read_file(file);
}

// ---- The operations

struct Library {
    QelContext *context = nullptr;

    explicit Library(bool server = false, const char *id = nullptr) {
        EXPECT_EQ(server ? qel_init(&context, id, "0.0.0.0") : __qel_init(&context, id, nullptr),
                  QEL_OK);
    }
    ~Library() {
        if (context != nullptr)
            qel_end(context);
    }
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;
    operator QelContext *() const { return context; }
};

inline Library for_repository(int repository, const char *id = nullptr) {
    return Library(repository == QEL_REPO_QELSERV || repository == QEL_REPO_DSV_QELSERV, id);
}

inline QelStatus get(int repository, const char *name, const Bytes &expected = {},
                     const char *id = nullptr) {
    const Library library = for_repository(repository, id);
    QelKeyPkg *found = nullptr;
    const QelStatus status = __qel_get_keypkg(library, repository, name, &found);
    const Asn1Value<QelKeyPkg> owner(found, {library, QEL_PDU_KeyPkg});
    if (status == QEL_OK && !expected.empty()) {
        EXPECT_EQ(asn1_encode(library, found, QEL_PDU_KeyPkg), expected);
    }
    return status;
}

inline Values take(QelDataSetItem *items, uint32_t count) {
    Values values;
    for (uint32_t i = 0; i < count; ++i) {
        values.emplace_back(items[i].data, items[i].data + items[i].length);
        std::free(items[i].data);
    }
    std::free(items);
    return values;
}

inline QelStatus get_all(int repository, const char *name, Values *values = nullptr) {
    const Library library = for_repository(repository);
    QelDataSetItem *items = nullptr;
    uint32_t count = 0;
    const QelStatus status = __qel_get_keypkg_data_set(library, repository, name, &items, &count);
    const Values found = take(items, count);
    if (values != nullptr)
        *values = found;
    return status;
}

inline QelStatus set(int repository, const char *name, const Bytes &encoding) {
    const Library decoder;
    const auto record = asn1_decode<QelKeyPkg>(decoder, encoding, QEL_PDU_KeyPkg);
    const Library library = for_repository(repository, record->keypkgId);
    return __qel_set_keypkg(library, repository, name, record.get());
}

inline QelStatus remove(int repository, const char *name, const char *id = nullptr) {
    return __qel_remove_keypkg(for_repository(repository, id), repository, name);
}

inline QelStatus presence(int repository, const char *name, bool expected) {
    int found = -1;
    const QelStatus status = __qel_check_keypkg_presence(for_repository(repository),
                                                         "default_keyid", repository, name, &found);
    EXPECT_EQ(found, status == QEL_OK && expected ? 1 : 0);
    return status;
}

inline QelStatus get_certs(int repository, const char *name, const Values &expected) {
    const Library library;
    QelCert *found = nullptr;
    int count = 0;
    const QelStatus status = __qel_get_cert(library, repository, name, &found, &count);
    Values values;
    for (int i = 0; i < count; ++i)
        values.push_back(asn1_encode(library, found + i, QEL_PDU_Certificate));
    qel_free_cert_list(&found, count);
    EXPECT_EQ(values, status == QEL_OK ? expected : Values());
    return status;
}

inline QelStatus get_all_certs(int repository, const char *name, const Values &expected) {
    QelDataSetItem *items = nullptr;
    uint32_t count = 0;
    const QelStatus status = __qel_get_cert_data_set(Library(), repository, name, &items, &count);
    EXPECT_EQ(take(items, count), status == QEL_OK ? expected : Values());
    return status;
}

inline QelStatus set_cert(int repository, const char *name, const Bytes &encoding) {
    const Library library;
    const auto record = asn1_decode<QelCert>(library, encoding, QEL_PDU_Certificate);
    return __qel_set_cert(library, repository, name, record.get());
}

// Without an issuer all of them.
inline QelStatus remove_cert(int repository, const char *name, const char *issuer = nullptr,
                             uint8_t number = 0) {
    const Library library;
    QelName *parsed = nullptr;
    if (issuer != nullptr) {
        EXPECT_EQ(qel_str2dn(library, issuer, &parsed), QEL_OK);
    }
    QelSerial serial = {};
    serial.value = &number;
    serial.length = number != 0 ? 1 : 0;
    const QelStatus status = __qel_remove_cert(library, repository, name, parsed, &serial);
    qel_free_dn(&parsed);
    return status;
}

// All values of an entry, none where there is no entry.
inline QelStatus read_values(const char *name, Values *values) {
    QelItemList *list = nullptr;
    uint32_t count = 0;
    const QelStatus status = dsv_get_certs_given_user_name(name, &list, &count);
    values->clear();
    for (const QelItemList *item = list; item != nullptr; item = item->next) {
        const auto *data = static_cast<const uint8_t *>(item->data);
        values->emplace_back(data, data + item->length);
    }
    __qel_free_item_list(&list);
    return status == QEL_ERR_NO_CERT || status == QEL_ERR_UNKNOWN_USER ? QelStatus{QEL_OK} : status;
}
inline QelStatus add_value(const char *name, const Bytes &value) {
    return dsv_add_attribute(name, certificates_attribute, value.data(), length_of(value));
}

// ---- As users of the host

// Runs check as a user; all handles of the naming service are new there.
inline void check_as(uid_t uid, const std::function<void()> &check) {
    const bool before = testing::Test::HasFailure();
    EXPECT_EQ(as_user(uid,
                      [&] {
                          check();
                          return testing::Test::HasFailure() && !before ? 1 : 0;
                      }),
              0);
}

struct Step {
    const char *why;
    uid_t uid;
    std::function<QelStatus()> call;
    QelStatus status;
    bool needs_users = false;
};

inline void walk(const std::vector<Step> &steps) {
    for (const Step &step : steps)
        if (has_users() || !step.needs_users)
            check_as(step.uid, [&] { EXPECT_EQ(step.call(), step.status) << step.why; });
}

inline int run(const std::string &command) {
    return WEXITSTATUS(std::system(command.c_str()));
}

inline Ran qel_as(uid_t uid, std::vector<std::string> words) {
    words[0] = std::string(QEL_COMMANDS) + "/" + words[0];
    if (uid != root) {
        const std::string id = std::to_string(uid);
        const std::vector<std::string> before = {"setpriv", "--reuid=" + id, "--regid=" + id,
                                                 "--clear-groups", "--reset-env"};
        words.insert(words.begin(), before.begin(), before.end());
    }
    return run_program(words);
}

// A file system of its own over a folder, for a while.
class Mounted {
public:
    Mounted(const char *place, const char *options) : place_(place) {
        EXPECT_EQ(mount("test", place, "tmpfs", 0, options), 0) << errno;
    }
    ~Mounted() { EXPECT_EQ(umount2(place_, MNT_DETACH), 0) << errno; }
    Mounted(const Mounted &) = delete;
    Mounted &operator=(const Mounted &) = delete;

    int again(unsigned long flags, const char *options) {
        return mount("test", place_, "tmpfs", MS_REMOUNT | flags, options);
    }

private:
    const char *place_;
};

// Stores without entries and files.
class Store : public testing::Test {
protected:
    static void SetUpTestSuite() {
        char name[64] = "";
        gethostname(name, sizeof name - 1);
        ASSERT_STREQ(name, "sandbox") << "run this with scripts/sandbox";
        key(); // children have the same
    }
    void SetUp() override {
        chmod(folder.path("").c_str(), 01777);
        forget();
    }
    void TearDown() override { forget(); }

    static void forget() {
        for (const char *entry : {"root", "alice", "bob", "carol", "127.0.0.1", ".../C=US"})
            as_user(root, [&] {
                dsv_delete_cn_name(entry, nullptr, 0);
                dsv_delete_certificates(entry, nullptr, 0);
                dsv_delete_key_pkg(entry, nullptr, 0);
                return 0;
            });
        std::filesystem::remove_all("/etc/qel/certs");
        std::filesystem::create_directory("/etc/qel/certs");
        for (const char *home : {"/home/root", "/home/alice"})
            if (std::filesystem::exists(home))
                for (const auto &file : std::filesystem::directory_iterator(home))
                    std::filesystem::remove_all(file);
    }

    // A file of the folder, which all may read.
    std::string file(const char *name, const Bytes &contents) const {
        write_file(folder.path(name), contents);
        chmod(folder.path(name).c_str(), 0644);
        return folder.path(name);
    }
    // A pass phrase for that user only.
    std::string phrase_file(uid_t uid) const {
        const std::string path = file("phrase", bytes_of(package().phrase + "\n"));
        EXPECT_EQ(chown(path.c_str(), uid, uid) | chmod(path.c_str(), 0600), 0);
        return path;
    }

    const uid_t alice = user("alice"), bob = user("bob");
    const char *const me = has_users() ? "alice" : "root"; // alice's entry
    const Bytes own = package().encoding(), cert = certificate(subject);
    const TemporaryFolder folder;
};

} // namespace stores

#endif
