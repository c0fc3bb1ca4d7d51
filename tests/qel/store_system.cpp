// Certificates and key packages in real stores: files, the naming service with its daemon, and the key
// server, on a private host, which this program is to run on:
//   scripts/sandbox --server BIN/qelserv --naming BIN qel_store_system
// With QEL_STORE_SECONDS in the environment the processes of Together run that long.
#include "support/certificate.h"
#include "support/host.h"
#include "support/keypkg.h"
#include "tools/run.h"

#include <qel/store.h>
#include <util/naming.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <sys/mount.h>
#include <sys/stat.h>

namespace {

using namespace std::chrono_literals;
using host::as_user;
using host::has_users;
using host::root;
using host::user;
using Values = std::vector<Bytes>;

const char *const subject = "CN=Alice, O=Acme, C=US";
const char *const other_subject = "CN=Bob, O=Acme, C=US";

const RsaKey &key() {
    return RsaKey::of_512_bits();
}
TestKeyPackage package(const std::string &id = "default_keyid") {
    TestKeyPackage made = test_key_package(key());
    made.owner = subject;
    made.id = id;
    return made;
}
Bytes certificate(const std::string &of, uint8_t serial = 1, const std::string &issuer = subject) {
    return TestCertificate{of, issuer, &key(), &key(), serial}.encoding();
}
Bytes armoured(const Bytes &encoding, const char *begin, const char *end) {
    const TemporaryFolder folder;
    const std::string file = folder.path("x");
    EXPECT_EQ(__qel_dump_append_and_delimit(QEL_ITEM_KEYPKG, file.c_str(), QEL_FORM_ARMOUR,
                                            encoding.data(),
                                            static_cast<uint32_t>(encoding.size())),
              QEL_OK);
    std::string text = text_of(read_file(file));
    const std::string marker = "-----BEGIN KEYPKG-----", end_marker = "-----END KEYPKG-----";
    text.replace(text.find(end_marker), end_marker.size(), end);
    return bytes_of(text.replace(0, marker.size(), begin));
}

// ---- The library, each call in a context of its own

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

Library for_repository(int repository, const char *id = nullptr) {
    return Library(repository == QEL_REPO_QELSERV || repository == QEL_REPO_DSV_QELSERV, id);
}

QelStatus get(int repository, const char *name, const Bytes &expected = {},
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

Values take(QelDataSetItem *items, uint32_t count) {
    Values values;
    for (uint32_t i = 0; i < count; ++i) {
        values.emplace_back(items[i].data, items[i].data + items[i].length);
        std::free(items[i].data);
    }
    std::free(items);
    return values;
}

QelStatus get_all(int repository, const char *name, Values *values = nullptr) {
    const Library library = for_repository(repository);
    QelDataSetItem *items = nullptr;
    uint32_t count = 0;
    const QelStatus status = __qel_get_keypkg_data_set(library, repository, name, &items, &count);
    const Values found = take(items, count);
    if (values != nullptr)
        *values = found;
    return status;
}

QelStatus set(int repository, const char *name, const Bytes &encoding) {
    const Library decoder;
    const auto record = asn1_decode<QelKeyPkg>(decoder, encoding, QEL_PDU_KeyPkg);
    const Library library = for_repository(repository, record->keypkgId);
    return __qel_set_keypkg(library, repository, name, record.get());
}

QelStatus remove(int repository, const char *name, const char *id = nullptr) {
    return __qel_remove_keypkg(for_repository(repository, id), repository, name);
}

QelStatus presence(int repository, const char *name, bool expected) {
    int found = -1;
    const QelStatus status = __qel_check_keypkg_presence(for_repository(repository),
                                                         "default_keyid", repository, name, &found);
    EXPECT_EQ(found, status == QEL_OK && expected ? 1 : 0);
    return status;
}

QelStatus get_certs(int repository, const char *name, const Values &expected) {
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

QelStatus get_all_certs(int repository, const char *name, const Values &expected) {
    QelDataSetItem *items = nullptr;
    uint32_t count = 0;
    const QelStatus status = __qel_get_cert_data_set(Library(), repository, name, &items, &count);
    EXPECT_EQ(take(items, count), status == QEL_OK ? expected : Values());
    return status;
}

QelStatus set_cert(int repository, const char *name, const Bytes &encoding) {
    const Library library;
    const auto record = asn1_decode<QelCert>(library, encoding, QEL_PDU_Certificate);
    return __qel_set_cert(library, repository, name, record.get());
}

// Without an issuer all of them.
QelStatus remove_cert(int repository, const char *name, const char *issuer = nullptr,
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

QelStatus chain(const Bytes &encoding) {
    const Library library;
    const auto record = asn1_decode<QelCert>(library, encoding, QEL_PDU_Certificate);
    QelCert *found = nullptr;
    int count = 0;
    const QelStatus status = qel_get_cert_chain(library, record.get(), nullptr, 0, &found, &count);
    qel_free_cert_list(&found, count);
    return status;
}

// Runs check as a user; all handles of the naming service are new there.
void check_as(uid_t uid, const std::function<void()> &check) {
    const bool before = testing::Test::HasFailure();
    EXPECT_EQ(as_user(uid,
                      [&] {
                          check();
                          return testing::Test::HasFailure() && !before ? 1 : 0;
                      }),
              0);
}

int run(const std::string &command) {
    return WEXITSTATUS(std::system(command.c_str()));
}

// What has the input of a file, or of a text, on standard input.
template <class Work> QelStatus with_stdin(const Bytes &input, const Work &work) {
    const TemporaryFolder folder;
    write_file(folder.path("in"), input);
    const int kept = dup(STDIN_FILENO), file = open(folder.path("in").c_str(), O_RDONLY);
    dup2(file, STDIN_FILENO);
    const QelStatus status = work();
    dup2(kept, STDIN_FILENO);
    close(file);
    close(kept);
    return status;
}

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

    const TemporaryFolder folder;
};

// ---- Repositories and statuses

// Every operation with every selector, one after the other in real stores.
TEST_F(Store, Selectors) {
    const std::string file = folder.path("x.KEYPKG"), cert_file = folder.path("x.pem");
    const Bytes own = package().encoding(), cert = certificate(subject);
    const Bytes input = armoured(cert, "-----BEGIN CERTIFICATE-----", "-----END CERTIFICATE-----");
    const auto place = [&](int repository) {
        return repository == QEL_REPO_FILE ? file.c_str() : "root";
    };
    const auto cert_place = [&](int repository) {
        return repository == QEL_REPO_FILE ? cert_file.c_str() : subject;
    };
    const struct {
        const char *operation;
        std::map<int, QelStatus> known;
        std::function<QelStatus(int)> call;
    } rows[] = {
        {"set_keypkg",
         {{1, QEL_OK}, {2, QEL_OK}, {8, QEL_ERR_ENTRY_EXISTS}, {16, QEL_OK}},
         [&](int repository) { return set(repository, place(repository), own); }},
        {"get_keypkg",
         {{1, QEL_OK}, {2, QEL_OK}, {4, QEL_ERR_NOT_LOGGED_IN}, {16, QEL_OK}},
         [&](int repository) { return get(repository, place(repository), own); }},
        {"get_keypkg_data_set",
         {{1, QEL_OK}, {2, QEL_OK}, {4, QEL_ERR_NOT_LOGGED_IN}, {16, QEL_OK}},
         [&](int repository) { return get_all(repository, place(repository)); }},
        {"check_keypkg_presence",
         {{1, QEL_OK}, {2, QEL_OK}, {4, QEL_ERR_NOT_LOGGED_IN}, {16, QEL_OK}},
         [&](int repository) { return presence(repository, place(repository), true); }},
        {"remove_keypkg", // without hidden file
         {{1, QEL_OK}, {2, QEL_OK}, {8, QEL_ERR_NO_KEYPKG}, {16, QEL_ERR_GENERAL}},
         [&](int repository) { return remove(repository, place(repository)); }},
        {"set_cert",
         {{1, QEL_OK}, {2, QEL_OK}, {16, QEL_OK}},
         [&](int repository) {
             return set_cert(repository, repository == 2 ? "root" : cert_place(repository), cert);
         }},
        {"get_cert",
         {{1, QEL_OK}, {2, QEL_OK}, {16, QEL_OK}, {32, QEL_OK}},
         [&](int repository) {
             return with_stdin(
                 input, [&] { return get_certs(repository, cert_place(repository), {cert}); });
         }},
        {"get_cert_data_set",
         {{1, QEL_OK}, {2, QEL_OK}, {16, QEL_OK}, {32, QEL_OK}},
         [&](int repository) {
             return with_stdin(
                 input, [&] { return get_all_certs(repository, cert_place(repository), {cert}); });
         }},
        {"remove_cert",
         {{1, QEL_OK}, {2, QEL_OK}},
         [&](int repository) {
             return remove_cert(repository, cert_place(repository), subject, 1);
         }},
    };
    std::vector<int> selectors = {INT32_MIN, INT32_MIN + 2, INT32_MIN + 4, 0x40000002, -1, 128,
                                  256};
    for (int selector = 0; selector <= 64; ++selector)
        selectors.push_back(selector);
    check_as(root, [&] {
        for (const auto &row : rows)
            for (const int selector : selectors) {
                const auto known = row.known.find(selector);
                EXPECT_EQ(row.call(selector),
                          known != row.known.end() ? known->second : QelStatus{QEL_ERR_BAD_PARAM})
                    << row.operation << " " << selector;
            }
    });
    EXPECT_NE(access(file.c_str(), F_OK), 0);
    EXPECT_NE(access(cert_file.c_str(), F_OK), 0);
    EXPECT_EQ(access("/home/root/root.KEYPKG", F_OK), 0);
    EXPECT_EQ(access("/etc/qel/certs/CN=ALICE, O=ACME, C=US", F_OK), 0);
}

struct Step {
    const char *why;
    uid_t uid;
    std::function<QelStatus()> call;
    QelStatus status;
    bool needs_users = false;
};

void walk(const std::vector<Step> &steps) {
    for (const Step &step : steps)
        if (has_users() || !step.needs_users)
            check_as(step.uid, [&] { EXPECT_EQ(step.call(), step.status) << step.why; });
}

TEST_F(Store, Files) {
    const std::string good = folder.path("good"), two = folder.path("two"),
                      crossed = folder.path("crossed"), late = folder.path("late"),
                      open_end = folder.path("open-end"), bare = folder.path("bare"),
                      closed = folder.path("closed"), made = folder.path("made"),
                      hidden = "/home/root/.root.KEYPKG";
    const Bytes own = package().encoding(), cert = certificate(subject);
    const char *begin = "-----BEGIN KEYPKG-----", *end = "-----END KEYPKG-----";
    const Bytes text = armoured(own, begin, end);
    write_file(good, text);
    write_file(two, text + text);
    write_file(crossed, armoured(own, begin, "-----END CERTIFICATE-----"));
    write_file(late, bytes_of("\n") + text);
    write_file(open_end, armoured(own, begin, "-----END-----"));
    write_file(bare, bytes_of("-----BEGIN KEYPKG-----\n*\n-----END KEYPKG-----\n"));
    write_file(closed, text);
    chmod(good.c_str(), 0644);
    chmod(closed.c_str(), 0600);
    const uid_t alice = user("alice"), stranger = 65000;
    walk({
        {"one item", root, [&] { return get(1, good.c_str(), own); }, QEL_OK},
        {"two items", root, [&] { return get(1, two.c_str()); }, QEL_ERR_FILE_FORMAT},
        {"either end", root, [&] { return get(1, crossed.c_str(), own); }, QEL_OK},
        {"does not begin", root, [&] { return get(1, late.c_str()); }, QEL_ERR_FILE_FORMAT},
        {"does not end", root, [&] { return get(1, open_end.c_str()); }, QEL_ERR_FILE_FORMAT},
        {"no armour", root, [&] { return get(1, bare.c_str()); }, QEL_ERR_FROM_RFC1421},
        {"no file", root, [&] { return get(1, made.c_str()); }, QEL_ERR_NO_FILE},
        {"no certificates", root, [&] { return get_certs(1, made.c_str(), {}); }, QEL_ERR_NO_FILE},
        {"no default file", root, [] { return get(16, nullptr); }, QEL_ERR_NO_FILE},
        {"no file name", root, [&] { return set(1, "", own); }, QEL_ERR_NO_FILE},
        {"a folder", root, [] { return get(1, "/etc"); }, QEL_ERR_FILE_IO},
        {"writing fails", root, [&] { return set_cert(1, "/dev/full", cert); }, QEL_ERR_FILE_IO},
        {"a private file", alice, [&] { return get(1, closed.c_str()); }, QEL_ERR_OPEN_FILE, true},
        {"a file of root", alice, [&] { return set(1, good.c_str(), package("b").encoding()); },
         QEL_ERR_OPEN_FILE, true},
        {"deleting it", alice, [&] { return remove(1, good.c_str()); }, QEL_ERR_GENERAL, true},
        {"the certificates of root", alice, [&] { return set_cert(16, nullptr, cert); },
         QEL_ERR_OPEN_FILE, true},
        {"another identifier", root, [&] { return get(1, good.c_str(), {}, "other"); },
         QEL_ERR_NO_KEYPKG},
        {"to remove", root, [&] { return remove(1, good.c_str(), "other"); }, QEL_ERR_NO_KEYPKG},
        {"no account, no home", stranger, [] { return get(16, nullptr); }, QEL_ERR_UNKNOWN_USER,
         true},
        {"to set", stranger, [&] { return set(16, nullptr, own); }, QEL_ERR_UNKNOWN_USER, true},
        {"a package", root, [&] { return set(1, made.c_str(), own); }, QEL_OK},
        {"beside another", root, [&] { return set(1, made.c_str(), package("b").encoding()); },
         QEL_OK},
        {"which is too many", root, [&] { return get(1, made.c_str()); }, QEL_ERR_FILE_FORMAT},
        {"to change too", root, [&] { return set(1, made.c_str(), own); }, QEL_ERR_FILE_FORMAT},
        {"a package is no certificate", root, [&] { return get_certs(1, good.c_str(), {}); },
         QEL_ERR_ASN1_DECODE},
        {"no such serial", root,
         [&] {
             set_cert(1, folder.path("c").c_str(), cert);
             return remove_cert(1, folder.path("c").c_str(), subject, 2);
         },
         QEL_ERR_NO_ENTRY},
        {"no such issuer", root,
         [&] { return remove_cert(1, folder.path("c").c_str(), other_subject, 1); },
         QEL_ERR_NO_ENTRY},
        {"without serial", root, [&] { return remove_cert(1, folder.path("c").c_str(), subject); },
         QEL_ERR_BAD_PARAM},
        {"all", root, [&] { return remove_cert(1, folder.path("c").c_str()); }, QEL_OK},
        {"again", root, [&] { return remove_cert(1, folder.path("c").c_str()); }, QEL_ERR_GENERAL},
        {"the default file", root, [&] { return set(16, nullptr, own); }, QEL_OK},
        {"removed into the hidden one", root,
         [&] {
             write_file(hidden, text);
             return remove(16, "");
         },
         QEL_OK},
        {"which is gone, and the default file not", root,
         [&] {
             EXPECT_NE(access(hidden.c_str(), F_OK), 0);
             return get(16, nullptr, own);
         },
         QEL_OK},
        {"expired", root,
         [&] {
             return chain(
                 TestCertificate{subject, subject, &key(), &key(), 1, "970101000000Z"}.encoding());
         },
         QEL_ERR_KEY_EXPIRED},
    });
}

TEST_F(Store, NamingService) {
    const uid_t alice = user("alice"), bob = user("bob");
    const char *const me = has_users() ? "alice" : "root", *const he =
                                                               has_users() ? "bob" : "carol";
    const Bytes own = package().encoding(), next = [] {
        TestKeyPackage made = package();
        made.usage = 2;
        return made.encoding();
    }();
    TestKeyPackage others = package();
    others.owner = other_subject;
    const Bytes cert = certificate(subject), second = certificate(subject, 2);
    const auto expect_certs = [&](const Values &expected) {
        return [=] { return get_certs(2, subject, expected); };
    };
    walk({
        {"nothing yet", alice, [&] { return presence(2, me, false); }, QEL_OK},
        {"an unknown entry", alice, [] { return get(2, "nobody"); }, QEL_ERR_UNKNOWN_USER},
        {"is not there", alice, [] { return presence(2, "nobody", false); }, QEL_OK},
        {"unknown subject", alice, expect_certs({}), QEL_ERR_UNKNOWN_USER},
        {"no name at all", alice, [] { return get_certs(2, "Alice", {}); }, QEL_ERR_DN_NO_EQUALS},
        {"no account", 65000, [&] { return set(2, nullptr, own); }, QEL_ERR_UNKNOWN_USER, true},
        {"the first", alice, [&] { return set(2, nullptr, own); }, QEL_OK},
        {"again", alice, [&] { return set(2, me, own); }, QEL_ERR_ENTRY_EXISTS},
        {"everybody reads", bob, [&] { return get(2, me, own); }, QEL_OK},
        {"in its place", alice, [&] { return set(2, me, next); }, QEL_OK},
        {"one only", bob,
         [&] {
             Values all;
             const QelStatus status = get_all(2, me, &all);
             EXPECT_EQ(all, Values{next});
             return status;
         },
         QEL_OK},
        {"a certificate, with its subject", alice, [&] { return set_cert(2, nullptr, cert); },
         QEL_OK},
        {"and another", alice, [&] { return set_cert(2, me, second); }, QEL_OK},
        {"for all", bob, expect_certs({cert, second}), QEL_OK},
        {"in the owner's words", bob,
         [&] {
             return get_certs(2, "cn=alice,o=ACME,c=us", {cert, second});
         },
         QEL_OK},
        {"bob changes alice", bob, [&] { return set(2, me, own); }, QEL_ERR_XFN, true},
        {"bob removes alice's", bob, [&] { return remove(2, me); }, QEL_ERR_XFN, true},
        {"and her certificates", bob, [&] { return remove_cert(2, subject); }, QEL_ERR_XFN, true},
        {"or one", bob, [&] { return remove_cert(2, subject, subject, 1); }, QEL_ERR_XFN, true},
        {"or adds one", bob, [&] { return set_cert(2, me, second); }, QEL_ERR_XFN, true},
        {"a host, by a user", alice,
         [&] { return set_cert(2, "127.0.0.1", certificate("CN=localhost")); }, QEL_ERR_XFN, true},
        {"a host", root, [&] { return set_cert(2, "127.0.0.1", certificate("CN=localhost")); },
         QEL_OK},
        {"which all read", bob,
         [&] { return get_certs(2, "CN=localhost", {certificate("CN=localhost")}); }, QEL_OK},
        {"and alice does not change", alice, [] { return remove_cert(2, "CN=localhost"); },
         QEL_ERR_XFN, true},
        {"root changes alice", root, [&] { return set(2, me, own); }, QEL_OK},
        {"bob as alice", bob, [&] { return set_cert(2, he, cert); }, QEL_ERR_ENTRY_EXISTS},
        {"alice as bob", alice, [&] { return set_cert(2, me, certificate(other_subject)); },
         QEL_ERR_ENTRY_EXISTS},
        {"of another owner", alice, [&] { return set(2, me, others.encoding()); },
         QEL_ERR_BAD_PARAM},
        {"nothing was changed", bob, expect_certs({cert, second}), QEL_OK},
        {"another identifier", bob, [&] { return get(2, me, {}, "other"); }, QEL_ERR_NO_KEYPKG},
        {"to remove", alice, [&] { return remove(2, me, "other"); }, QEL_ERR_NO_KEYPKG},
        {"no such serial", alice, [] { return remove_cert(2, subject, subject, 3); },
         QEL_ERR_NO_ENTRY},
        {"without serial", alice, [] { return remove_cert(2, subject, subject); },
         QEL_ERR_BAD_PARAM},
        {"the first", alice, [] { return remove_cert(2, subject, subject, 1); }, QEL_OK},
        {"leaves the second", bob, expect_certs({second}), QEL_OK},
        {"of another", alice,
         [&] {
             return dsv_add_attribute(me, certificates_attribute, others.encoding().data(), 10);
         },
         QEL_OK},
        {"that is none", bob, expect_certs({}), QEL_ERR_ASN1_DECODE},
        {"all", alice, [] { return remove_cert(2, subject); }, QEL_OK},
        {"there are none", bob, expect_certs({}), QEL_ERR_NO_CERT},
        {"somebody else's", alice,
         [&] {
             const Bytes bad = certificate(other_subject);
             return dsv_add_attribute(me, certificates_attribute, bad.data(),
                                      static_cast<uint32_t>(bad.size()));
         },
         QEL_OK},
        {"is not believed", bob, expect_certs({}), QEL_ERR_GENERAL},
        {"the package", alice, [&] { return remove(2, me); }, QEL_OK},
        {"there is none", alice, [&] { return remove(2, me); }, QEL_ERR_NO_KEYPKG},
        {"to get", bob, [&] { return get(2, me); }, QEL_ERR_NO_KEYPKG},
        {"no name is registered", bob,
         [&] {
             QelItemList *names = nullptr;
             uint32_t count = 0;
             return __dsv_get_dn_name_given_user_name("nobody", &names, &count);
         },
         QEL_ERR_NO_DN},
    });
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

// The first program of root that needs the naming service sets it up, and leaves the settings alone.
TEST_F(Store, FirstUseSetsTheNamingServiceUp) {
    const std::string settings = "files sqlite:/var/fn/dsv_org.db # ours\n";
    const Bytes own = package().encoding();
    for (const bool has_settings : {true, false}) {
        const Mounted empty("/var/fn", "mode=0755");
        if (has_settings)
            write_file("/etc/fn.conf", bytes_of(settings));
        walk({{"a user cannot", user("alice"), [&] { return set(2, nullptr, own); }, QEL_ERR_XFN,
               true},
              {"root can", root, [&] { return set(2, "alice", own); }, QEL_OK},
              {"and all read", user("alice"), [&] { return get(2, "alice", own); }, QEL_OK}});
        EXPECT_EQ(access("/var/fn/dsv_org.ctx.dir", F_OK), 0);
        EXPECT_EQ(host::read_text("/etc/fn.conf"), has_settings ? settings : "");
        EXPECT_NE(access("/etc/fn.conf.bak", F_OK), 0);
        unlink("/etc/fn.conf");
    }
}

// ---- The key server in step

Ran qel_as(uid_t uid, std::vector<std::string> words, const How &how = {}) {
    words[0] = std::string(QEL_COMMANDS) + "/" + words[0];
    if (uid != root) {
        const std::string id = std::to_string(uid);
        const std::vector<std::string> before = {"setpriv", "--reuid=" + id, "--regid=" + id,
                                                 "--clear-groups", "--reset-env"};
        words.insert(words.begin(), before.begin(), before.end());
    }
    return run_program(words, how);
}

void end_key_server() {
    const std::string pid = host::read_text("/run/qelserv.pid");
    ASSERT_FALSE(pid.empty());
    kill(std::stoi(pid), SIGKILL);
    unlink("/run/qelserv.pid");
}
void start_key_server() {
    const char *const as = has_users() ? "qelserv" : "root";
    std::vector<std::string> words = {QELSERV, "--verbose", "--user", as};
    if (!has_users())
        words.push_back("--no-memory-lock");
    const std::string log = "/run/qelserv.log";
    const pid_t pid = host::start_program(words, log);
    EXPECT_TRUE(host::within(10s, [&] {
        return holds(host::read_text(log), "registered with rpcbind");
    })) << host::read_text(log);
    std::ofstream("/run/qelserv.pid") << pid;
}

TEST_F(Store, TheKeyServerKeepsInStep) {
    const uid_t alice = user("alice");
    const char *const me = has_users() ? "alice" : "root";
    const std::string phrase = folder.path("phrase");
    write_file(phrase, bytes_of(package().phrase + "\n"));
    const Bytes own = package().encoding();
    TestKeyPackage changed = package(), strange = package();
    changed.usage = 2;
    strange.key = &RsaKey::of_1024_bits();
    const Bytes next = changed.encoding(), of_another_key = strange.encoding();
    ASSERT_EQ(chown(phrase.c_str(), alice, alice) | chmod(phrase.c_str(), 0600), 0);
    const auto login = [&] {
        return qel_as(alice, {"qellogin", "--passin", "file:" + phrase}).exit;
    };
    walk({{"nobody is logged in", alice, [&] { return set(8, nullptr, own); }, QEL_OK},
          {"there is no key", alice, [] { return get(4, nullptr); }, QEL_ERR_NOT_LOGGED_IN}});
    EXPECT_EQ(login(), 0); // with the package that is in the naming service only
    walk({
        {"the same", alice, [&] { return get(4, nullptr, own); }, QEL_OK},
        {"again", alice, [&] { return set(8, me, own); }, QEL_ERR_ENTRY_EXISTS},
        {"another in its place", alice, [&] { return set(8, me, next); }, QEL_OK},
        {"in the naming service", alice, [&] { return get(2, me, next); }, QEL_OK},
        {"and in the key server", alice, [&] { return get(4, nullptr, next); }, QEL_OK},
        {"of another key", alice, [&] { return set(8, me, of_another_key); }, QEL_ERR_SERV_UPDATE},
        {"the naming service has it", alice, [&] { return get(2, me, of_another_key); }, QEL_OK},
        {"the key server not", alice, [&] { return get(4, nullptr, next); }, QEL_OK},
        {"bob withdraws it", user("bob"), [&] { return remove(8, me); }, QEL_ERR_XFN, true},
        {"there it is", alice, [&] { return presence(4, nullptr, true); }, QEL_OK},
        {"alice withdraws it", alice, [&] { return remove(8, me); }, QEL_OK},
        {"it is gone", alice, [&] { return get(4, nullptr); }, QEL_ERR_NOT_LOGGED_IN},
        {"from both", alice, [&] { return get(2, me); }, QEL_ERR_NO_KEYPKG},
        {"no account to withdraw a key of", root, [&] { return set(2, "nobody-here", own); },
         QEL_OK},
        {"is found out late", root, [&] { return remove(8, "nobody-here"); }, QEL_ERR_UNKNOWN_USER},
        {"without a key server", alice,
         [] {
             const Library library;
             QelKeyPkg *found = nullptr;
             return __qel_get_keypkg(library, 4, nullptr, &found);
         },
         QEL_ERR_SERV_CONNECT},
        {"one that went away", root,
         [&] {
             const Library library(true);
             end_key_server();
             const auto record = asn1_decode<QelKeyPkg>(library, own, QEL_PDU_KeyPkg);
             return __qel_set_keypkg(library, 8, "root", record.get());
         },
         QEL_ERR_SERV_UPDATE},
        {"the naming service has it", root, [&] { return get(2, "root", own); }, QEL_OK},
    });
    start_key_server();
}

// ---- Many processes

// A value that tells whether it is whole.
Bytes made_value(unsigned writer, unsigned number) {
    Bytes value(100 + (writer * 131 + number * 977) % 3000,
                static_cast<uint8_t>(writer * 16 + number));
    const std::string head = std::to_string(writer) + "." + std::to_string(number) + ".";
    std::copy(head.begin(), head.end(), value.begin());
    return value;
}
bool is_whole(const Bytes &value, unsigned *writer) {
    unsigned number = 0;
    return std::sscanf(text_of(value).c_str(), "%u.%u.", writer, &number) == 2 &&
           value == made_value(*writer, number);
}

QelStatus read_values(const char *name, Values *values) {
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

// One of those who change the entries: knows what must be there of it.
class Writer {
public:
    Writer(unsigned number, bool is_alice)
        : number_(number), names_(is_alice ? Names{"alice"} : Names{"alice", "root", "127.0.0.1"}),
          random_(number) {}

    void change() {
        const std::string &name = names_[random_() % names_.size()];
        Values &mine = mine_[name];
        const unsigned action = mine.empty() ? 0 : random_() % (mine.size() > 6 ? 3 : 4);
        Bytes &some = mine.empty() ? none_ : mine[random_() % mine.size()];
        const Bytes next = made_value(number_, ++count_);
        const auto size = [](const Bytes &bytes) { return static_cast<uint32_t>(bytes.size()); };
        QelStatus status;
        if (action == 1)
            status = dsv_delete_certificates(name.c_str(), some.data(), size(some));
        else if (action == 2)
            status = dsv_modify_certificates(name.c_str(), next.data(), size(next), some.data(),
                                             size(some));
        else
            status =
                dsv_add_attribute(name.c_str(), certificates_attribute, next.data(), size(next));
        if (status == QEL_ERR_XFN) { // others were faster each time; nothing was done
            ++refused_;
            return;
        }
        EXPECT_EQ(status, QEL_OK);
        if (action == 1)
            mine.erase(std::find(mine.begin(), mine.end(), Bytes(some)));
        else if (action == 2)
            some = next;
        else
            mine.push_back(next);
    }
    void check() {
        for (const std::string &name : names_) {
            Values found, mine = mine_[name];
            ASSERT_EQ(read_values(name.c_str(), &found), QEL_OK);
            std::erase_if(found, [&](const Bytes &value) {
                unsigned writer = ~0u;
                EXPECT_TRUE(is_whole(value, &writer));
                return writer != number_;
            });
            std::sort(found.begin(), found.end());
            std::sort(mine.begin(), mine.end());
            ASSERT_EQ(found, mine) << name;
        }
    }
    unsigned changes() const { return count_; }
    unsigned refused() const { return refused_; }

private:
    using Names = std::vector<std::string>;
    unsigned number_, count_ = 0, refused_ = 0;
    Names names_;
    std::map<std::string, Values> mine_;
    Bytes none_;
    std::mt19937 random_;
};

constexpr unsigned processes = 8;

void wait_for_all(const std::vector<pid_t> &children) {
    for (const pid_t child : children)
        EXPECT_EQ(host::exit_of(child), 0);
}

TEST_F(Store, Together) {
    const char *const given = std::getenv("QEL_STORE_SECONDS");
    const std::chrono::seconds time(given != nullptr ? std::atoi(given) : 3);
    const std::string counts = folder.path("counts");
    write_file(counts, {});
    chmod(counts.c_str(), 0666);
    std::vector<pid_t> children;
    for (unsigned number = 0; number < processes; ++number) {
        const bool is_alice = has_users() && number % 2 != 0;
        children.push_back(host::start_as(is_alice ? user("alice") : root, [&] {
            Writer writer(number, is_alice);
            const auto end = std::chrono::steady_clock::now() + time;
            while (std::chrono::steady_clock::now() < end && !HasFailure()) {
                writer.change();
                writer.check();
            }
            std::ofstream(counts, std::ios::app)
                << writer.changes() << " " << writer.refused() << "\n";
            return HasFailure() || writer.changes() < 2 ? 1 : 0;
        }));
    }
    wait_for_all(children);
    std::istringstream all(host::read_text(counts));
    unsigned changes = 0, refused = 0;
    for (unsigned one, two; all >> one >> two;) {
        changes += one;
        refused += two;
    }
    std::printf("%u changes by %u processes, %u refused\n", changes, processes, refused);
    EXPECT_LE(refused * 100, changes);
}

// Whoever comes first, an entry has one package of an identifier, and a name belongs to one entry.
TEST_F(Store, OneOfAKind) {
    std::vector<Bytes> packages;
    for (unsigned number = 0; number < processes; ++number) {
        TestKeyPackage made = package();
        made.count = number + 2;
        packages.push_back(made.encoding());
    }
    for (int round = 0; round < 10; ++round) {
        SCOPED_TRACE(round);
        forget();
        int gate[2];
        ASSERT_EQ(pipe(gate), 0);
        std::vector<pid_t> children;
        for (unsigned number = 0; number < processes; ++number)
            children.push_back(host::start_as(root, [&] {
                close(gate[1]);
                char byte;
                if (read(gate[0], &byte, 1) != 0)
                    return 1;
                for (int time = 0; time < 3; ++time) {
                    const QelStatus status = set(2, "root", packages[(number + time) % processes]);
                    if (status != QEL_OK && status != QEL_ERR_ENTRY_EXISTS)
                        return 2;
                    if (get(2, "root") != QEL_OK)
                        return 3;
                }
                const std::string entry = number % 2 == 0 ? "bob" : "carol";
                const QelStatus status = set_cert(2, entry.c_str(), certificate(other_subject));
                return status == QEL_OK || status == QEL_ERR_ENTRY_EXISTS ? 0 : 4;
            }));
        close(gate[0]);
        close(gate[1]);
        wait_for_all(children);
        check_as(root, [] {
            Values all;
            EXPECT_EQ(get_all(2, "root", &all), QEL_OK);
            EXPECT_EQ(all.size(), 1u);
            uint32_t owners = 0;
            for (const char *entry : {"bob", "carol"}) {
                QelItemList *names = nullptr;
                uint32_t count = 0;
                __dsv_get_dn_name_given_user_name(entry, &names, &count);
                __qel_free_item_list(&names);
                owners += count;
            }
            EXPECT_LE(owners, 1u); // each gave way to the other, or one was first
        });
    }
}

// What was acknowledged is there, whenever the writer was killed; the change under way is done or not.
TEST_F(Store, KilledWriters) {
    struct Note {
        unsigned number;
        bool adds, done;
    };
    const char *const name = has_users() ? "alice" : "root";
    const auto change = [&](unsigned number, bool adds) {
        const Bytes value = made_value(1, number);
        const auto size = static_cast<uint32_t>(value.size());
        return adds ? dsv_add_attribute(name, certificates_attribute, value.data(), size)
                    : dsv_delete_certificates(name, value.data(), size);
    };
    std::mt19937 random(1);
    std::set<unsigned> sure;
    unsigned next = 0;
    for (int round = 0; round < 100; ++round) {
        SCOPED_TRACE(round);
        int pipes[2];
        ASSERT_EQ(pipe(pipes), 0);
        const pid_t writer = host::start_as(round % 2 != 0 ? user("alice") : root, [&] {
            for (unsigned number = next;; ++number) // adds, and removes what is old
                for (const bool adds : {true, false}) {
                    Note note = {adds ? number : number - 5, adds, false};
                    if (write(pipes[1], &note, sizeof note) != sizeof note ||
                        change(note.number, adds) != QEL_OK)
                        return 1;
                    note.done = true;
                    if (write(pipes[1], &note, sizeof note) != sizeof note)
                        return 2;
                }
        });
        close(pipes[1]);
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 25000));
        kill(writer, SIGKILL);
        EXPECT_EQ(host::exit_of(writer), 1000 + SIGKILL);
        Note last = {0, false, true};
        while (read(pipes[0], &last, sizeof last) == sizeof last) {
            if (last.adds)
                next = last.number + 1;
            if (last.done && last.adds)
                sure.insert(last.number);
            else // or it may still be there
                sure.erase(last.number);
        }
        close(pipes[0]);
        check_as(root, [&] {
            Values found;
            EXPECT_EQ(read_values(name, &found), QEL_OK);
            std::multiset<Bytes> left(found.begin(), found.end());
            for (const unsigned number : sure)
                EXPECT_EQ(left.erase(made_value(1, number)), 1u) << number;
            if (!last.done)
                left.erase(made_value(1, last.number));
            EXPECT_TRUE(left.empty());
            EXPECT_EQ(change(last.number, false), QEL_OK);
        });
        sure.erase(last.number);
    }
    EXPECT_GT(next, 20u);
}

TEST_F(Store, FullAndReadOnlyDisks) {
    Mounted disk("/var/fn", "mode=0755,size=512k");
    const auto add = [](unsigned number) {
        Bytes value = made_value(2, number);
        value.resize(20000, 1);
        return dsv_add_attribute("root", certificates_attribute, value.data(), 20000);
    };
    const auto expect_values = [](unsigned count) {
        return [=] {
            Values values;
            const QelStatus status = read_values("root", &values);
            EXPECT_EQ(values.size(), count);
            for (unsigned number = 0; number < values.size(); ++number) {
                Bytes value = made_value(2, number);
                value.resize(20000, 1);
                EXPECT_EQ(values[number], value);
            }
            return status;
        };
    };
    const unsigned count = static_cast<unsigned>(as_user(root, [&] {
        for (unsigned number = 0; number < 100; ++number)
            if (const QelStatus status = add(number); status != QEL_OK)
                return status == QEL_ERR_XFN ? static_cast<int>(number) : 200;
        return 201;
    }));
    EXPECT_GE(count, 2u);
    EXPECT_LT(count, 100u);
    walk({{"what was acknowledged", root, expect_values(count), QEL_OK},
          {"for all", user("alice"), expect_values(count), QEL_OK}});
    EXPECT_EQ(disk.again(0, "size=8m"), 0);
    walk({{"there is room", root, [&] { return add(count); }, QEL_OK}});
    EXPECT_EQ(disk.again(MS_RDONLY, "size=8m"), 0) << errno;
    walk({{"nothing is written", root, [&] { return add(count + 1); }, QEL_ERR_XFN},
          {"nothing is lost", root, expect_values(count + 1), QEL_OK},
          {"for all", user("alice"), expect_values(count + 1), QEL_OK}});
    EXPECT_EQ(disk.again(0, "size=8m"), 0);
    walk({{"again", root, [&] { return add(count + 1); }, QEL_OK},
          {"all of it", user("alice"), expect_values(count + 2), QEL_OK}});
}

// ---- Names

std::set<std::string> files_below(const std::string &folder) {
    std::set<std::string> names;
    for (const auto &file : std::filesystem::recursive_directory_iterator(folder))
        names.insert(file.path().lexically_relative(folder));
    return names;
}

// Values that mean something to a shell, a query, a format, a path, or a name's own syntax.
const char *const awkward[] = {
    "x'; DROP TABLE entries; --",
    "x\" OR 1=1",
    "%s%n%x",
    "%25%00",
    "*",
    "?",
    "_%",
    "[a-z]",
    "a b",
    "-rf",
    "~",
    "$(id)",
    "`id`",
    "a;b",
    "a|b&c",
    "<a>",
    "#x",
    "!",
    ".",
    "..",
    "...",
    "\\",
    "a\\b",
    "a'b",
    "\xc3\xa4\xe2\x82\xac",
    "\x7f",
    "NULL",
    ":",
    "a:b",
    "@",
    "{}",
    "(|(a=*))",
};

// The entry of each name has what was put there, and is found under its subject; none has another's.
TEST_F(Store, AwkwardEntries) {
    std::vector<std::string> names;
    for (const std::string name : awkward)
        if (name != "\\") // quotes nothing, and so is no name
            names.push_back(name);
    names.push_back(std::string(300, 'n'));
    check_as(root, [&] {
        for (std::size_t i = 0; i < names.size(); ++i) {
            SCOPED_TRACE(names[i]);
            const std::string dn = "CN=ENTRY " + std::to_string(i);
            EXPECT_EQ(set_cert(2, names[i].c_str(), certificate(dn)), QEL_OK);
            char *found = nullptr;
            EXPECT_EQ(__dsv_get_user_name_given_cn_name(dn.c_str(), &found), QEL_OK);
            EXPECT_STREQ(found, names[i].c_str());
            std::free(found);
        }
    });
    check_as(user("alice"), [&] {
        EXPECT_EQ(set_cert(2, "\\", certificate(subject)), QEL_ERR_UNKNOWN_USER);
        for (std::size_t i = 0; i < names.size(); ++i) {
            SCOPED_TRACE(names[i]);
            const std::string dn = "CN=ENTRY " + std::to_string(i);
            EXPECT_EQ(get_certs(2, dn.c_str(), {certificate(dn)}), QEL_OK);
            Values values;
            EXPECT_EQ(read_values(names[i].c_str(), &values), QEL_OK);
            EXPECT_EQ(values, Values{certificate(dn)});
        }
        EXPECT_EQ(get_certs(2, "CN=ENTRY *", {}), QEL_ERR_UNKNOWN_USER);
        EXPECT_EQ(get_certs(2, "CN=ENTRY _", {}), QEL_ERR_UNKNOWN_USER);
    });
}

// Subjects in the naming service and as names of files, which stay in the certificate directory.
TEST_F(Store, AwkwardSubjects) {
    std::vector<std::string> values;
    for (std::string value : awkward)
        if (value.find('"') == value.npos) { // which a printable name has no way to say
            if (const std::size_t at = value.find_first_of(",+"); at != value.npos)
                value.insert(at, 1, '\\');
            values.push_back(value);
        }
    values.insert(values.end(), {"a/b", "../../../etc/x", "/etc/x", "a\\,b", "a=b"});
    check_as(root, [&] {
        const auto before = files_below("/etc/qel");
        std::size_t expected = 0;
        for (const std::string &value : values) {
            const std::string name = "CN=" + value;
            SCOPED_TRACE(name);
            const Bytes cert = certificate(name);
            const bool has_slash = value.find('/') != value.npos;
            const QelStatus status = has_slash ? QEL_ERR_BAD_PARAM : QEL_OK;
            expected += has_slash ? 0 : 1;
            EXPECT_EQ(set_cert(16, nullptr, cert), status);
            EXPECT_EQ(get_certs(16, name.c_str(), {cert}), status);
            EXPECT_EQ(set_cert(2, "carol", cert), QEL_OK);
            EXPECT_EQ(get_certs(2, name.c_str(), {cert}), QEL_OK);
            EXPECT_EQ(remove_cert(2, name.c_str()), QEL_OK);
            EXPECT_EQ(dsv_delete_cn_name("carol", nullptr, 0), QEL_OK);
        }
        EXPECT_EQ(files_below("/etc/qel").size(), before.size() + expected);
        EXPECT_NE(access("/etc/x", F_OK), 0);
        // A link of the name leads nowhere, whether there is something behind it or not.
        for (const char *behind : {"/etc/hosts", "/etc/new"}) {
            const std::string link = "/etc/qel/certs/CN=BOB, O=ACME, C=US";
            const std::string text = host::read_text(behind);
            ASSERT_EQ(symlink(behind, link.c_str()), 0);
            EXPECT_EQ(set_cert(16, nullptr, certificate(other_subject)), QEL_ERR_OPEN_FILE);
            EXPECT_EQ(host::read_text(behind), text);
            unlink(link.c_str());
        }
        EXPECT_NE(access("/etc/new", F_OK), 0);
    });
}

TEST_F(Store, AwkwardFiles) {
    const Bytes own = package().encoding(), cert = certificate(subject);
    ASSERT_EQ(mkdir(folder.path("in").c_str(), 0700), 0);
    const std::string in = folder.path("in");
    ASSERT_EQ(chdir(in.c_str()), 0);
    std::vector<std::string> names(std::begin(awkward), std::end(awkward));
    names.insert(names.end(), {"-", "a\nb", "\x01", std::string(200, 'f')});
    for (const std::string &name : names) {
        if (name == "." || name == "..")
            continue;
        SCOPED_TRACE(name);
        EXPECT_EQ(set(1, name.c_str(), own), QEL_OK);
        EXPECT_EQ(files_below(in), std::set<std::string>{name});
        EXPECT_EQ(get(1, name.c_str(), own), QEL_OK);
        EXPECT_EQ(remove(1, name.c_str()), QEL_OK);
        EXPECT_EQ(set_cert(1, name.c_str(), cert), QEL_OK);
        EXPECT_EQ(get_certs(1, name.c_str(), {cert}), QEL_OK);
        EXPECT_EQ(remove_cert(1, name.c_str(), subject, 1), QEL_OK);
        EXPECT_EQ(files_below(in), std::set<std::string>());
    }
    ASSERT_EQ(chdir("/"), 0);
}

// ---- Commands

struct Line {
    std::vector<std::string> words; // "$x" is a file of the folder
    int exit;
    const char *text; // of it, on one of the outputs
    uid_t uid = root;
    bool needs_users = false;
};

void expect_lines(const TemporaryFolder &folder, const std::vector<Line> &lines) {
    for (const Line &line : lines) {
        if (line.needs_users && !has_users())
            continue;
        std::vector<std::string> words = line.words;
        std::string all;
        for (std::string &word : words) {
            if (const std::size_t at = word.find('$'); at != word.npos)
                word = word.substr(0, at) + folder.path(word.substr(at + 1));
            all += word + " ";
        }
        const Ran ran = qel_as(line.uid, words);
        EXPECT_EQ(ran.exit, line.exit) << all << "\n" << ran.out << ran.err;
        EXPECT_TRUE(holds(ran.out + ran.err, line.text)) << all << "\n" << ran.out << ran.err;
        if (std::find(words.begin(), words.end(), "--json") == words.end())
            continue;
        for (const std::string &output : {ran.out, ran.err})
            if (!output.empty() && output[0] == '{') {
                const Json json = Json::parse(output, nullptr, false);
                EXPECT_TRUE(json.is_object() && json["schema"] == 1) << all << "\n" << output;
            }
        EXPECT_TRUE(holds(ran.out + ran.err, "{")) << all;
    }
}

TEST_F(Store, Commands) {
    const uid_t alice = user("alice"), bob = user("bob");
    const std::string me = has_users() ? "alice" : "root";
    write_file(folder.path("phrase"), bytes_of(package().phrase + "\n"));
    ASSERT_EQ(chown(folder.path("phrase").c_str(), alice, alice), 0);
    chmod(folder.path("phrase").c_str(), 0600);
    const auto armour = [](const Bytes &encoding, const std::string &kind) {
        return armoured(encoding, ("-----BEGIN " + kind + "-----").c_str(),
                        ("-----END " + kind + "-----").c_str());
    };
    Bytes forged = package().encoding();
    forged.back() ^= 1;
    write_file(folder.path("p"), armour(package().encoding(), "KEYPKG"));
    write_file(folder.path("other"), armour(package("other").encoding(), "KEYPKG"));
    write_file(folder.path("forged"), armour(forged, "KEYPKG"));
    write_file(folder.path("c"), armour(certificate(subject), "CERTIFICATE"));
    write_file(folder.path("c2"), armour(certificate(subject, 2), "CERTIFICATE"));
    write_file(folder.path("bob"), armour(certificate(other_subject), "CERTIFICATE"));
    for (const char *name : {"p", "other", "forged", "c", "c2", "bob"})
        chmod(folder.path(name).c_str(), 0644);
    expect_lines(
        folder,
        {
            {{"qel", "naming", "status", "nobody"}, 1, "no entry", alice},
            {{"qel", "naming", "status", "--json", "nobody"}, 1, "\"entry\": false", alice},
            {{"qel", "naming", "setup"}, 0, "already", alice},
            {{"qel", "naming", "who", subject}, 1, "nobody is registered", alice},
            {{"qel", "naming", "who", "--json", subject}, 1, "", alice},
            {{"qel", "naming", "who"}, 2, "NAME is needed", alice},
            {{"qel", "naming", "who", "Alice"}, 3, "Equals missing", alice},
            {{"qel", "keypkg", "get", "--json", "-o", "$x", "nobody"}, 1, "UNKNOWN_USER", alice},
            {{"qel", "keypkg", "set", "$forged"}, 1, "signature", alice},
            {{"qel", "keypkg", "set", "$missing"}, 3, "missing", alice},
            {{"qel", "keypkg", "set", "$c"}, 3, "", alice},
            {{"qel", "keypkg", "set", "--repo", "default", "--to", "x", "$p"}, 2, "", alice},
            {{"qel", "keypkg", "set", "--json", "$p"}, 0, "\"default_keyid\"", alice},
            {{"qel", "keypkg", "set", "$p"}, 1, "already", alice},
            {{"qel", "keypkg", "set", "--to", me, "$other"}, 8, "own user", bob, true},
            {{"qel", "keypkg", "set", "--json", "--to", me, "$other"}, 8, "QEL_ERR_XFN", bob, true},
            {{"qel", "keypkg", "remove", me}, 8, "own user", bob, true},
            {{"qel", "keypkg", "list", me}, 0, "default_keyid", bob},
            {{"qel", "keypkg", "list", "--json", me}, 0, "\"packages\"", bob},
            {{"qel", "keypkg", "get", "--id", "other", "-o", "$x", me}, 4, "other", bob},
            {{"qel", "cert", "set", "$c"}, 0, "is stored", alice},
            {{"qel", "cert", "set", "--json", "$c2"}, 0, "\"subject\"", alice},
            {{"qel", "cert", "set", "$bob"}, 1, "already", alice},
            {{"qel", "cert", "get", subject}, 0, "-----BEGIN CERTIFICATE-----", bob},
            {{"qel", "cert", "list", "--json", subject}, 0, "\"certificates\"", bob},
            {{"qel", "cert", "list", other_subject}, 1, "Unknown user", bob},
            {{"qel", "cert", "list", "--repo", "file", "$missing"}, 3, "missing", bob},
            {{"qel", "cert", "list", "--repo", "printer", subject}, 2, "--repo", bob},
            {{"qel", "cert", "chain", "$c"}, 0, "Alice", bob},
            {{"qel", "cert", "chain", "--json", "--trusted", other_subject, "$c"}, 1, "", bob},
            {{"qel", "cert", "set", "--repo", "default", "$c"}, 7, "OPEN_FILE", alice, true},
            {{"qel", "cert", "set", "--repo", "default", "$c"}, 0, "certificate directory"},
            {{"qel", "cert", "get", "--repo", "default", subject}, 0, "BEGIN"},
            {{"qel", "cert", "remove", subject}, 2, "--all", alice},
            {{"qel", "cert", "remove", "--all", subject}, 8, "own user", bob, true},
            {{"qel", "cert", "remove", "--cert", "$c2", subject}, 0, "no longer", alice},
            {{"qel", "cert", "remove", "--cert", "$c2", subject}, 1, "does not exist", alice},
            {{"qel", "naming", "who", subject}, 0, me.c_str(), bob},
            {{"qel", "naming", "who", "--json", subject}, 0, me.c_str(), bob},
            {{"qel", "naming", "status", me}, 0, "1 certificate, 1 key package", bob},
            {{"qel", "naming", "status", "--json", me}, 0, "\"certificates\": 1", bob},
            // With the package nowhere but in the naming service.
            {{"qellogin", "--passin", "file:$phrase"}, 0, "", alice},
            {{"qel", "keypkg", "list", "--repo", "server"}, 0, "default_keyid", alice},
            {{"qel", "keypkg", "list", "--repo", "server"}, 4, "not done a qellogin", bob, true},
            {{"qel", "keypkg", "get", "--repo", "server", "-o", "/home/" + me + "/got"},
             0,
             "",
             alice},
            {{"qel", "keypkg", "set", "--repo", "server", "$p"}, 1, "already", alice},
            {{"qel", "keypkg", "remove", "--repo", "server"}, 0, "no longer", alice},
            {{"qel", "keypkg", "list", "--repo", "server", "--json"}, 4, "NOT_LOGGED_IN", alice},
            {{"qellogin", "--passin", "file:$phrase"}, 4, "", alice},
            {{"qel", "cert", "remove", "--all", "--json", subject}, 0, "", alice},
            {{"qel", "cert", "get", subject}, 1, "Certificate not found", alice},
        });
    EXPECT_EQ(
        as_user(alice,
                [&] { return get(1, ("/home/" + me + "/got").c_str(), package().encoding()); }),
        0);
    const Mounted nothing("/var/fn", "mode=0755");
    expect_lines(folder,
                 {
                     {{"qel", "naming", "status"}, 8, "not available", alice},
                     {{"qel", "naming", "status", "--json"}, 8, "\"available\": false", alice},
                     {{"qel", "naming", "who", subject}, 8, "not available", alice},
                     {{"qel", "naming", "setup"}, 9, "super-user", alice, true},
                     {{"qel", "keypkg", "list"}, 1, "Unknown user", alice, true},
                     {{"qel", "keypkg", "set", "$p"}, 8, "naming status", alice, true},
                     {{"qel", "cert", "get", subject}, 1, "Unknown user", alice, true},
                     {{"qel", "naming", "setup", "--json"}, 0, "\"changed\": true"},
                     {{"qel", "naming", "setup", "--json"}, 0, "\"changed\": false"},
                     {{"qel", "keypkg", "list"}, 1, "Unknown user", alice},
                 });
}

// ---- Where a NIS domain serves the files back end

TEST(Nis, IsReadAndNotChanged) {
    key();
    const Bytes own = package().encoding(), cert = certificate(subject);
    check_as(root, [&] {
        EXPECT_EQ(set_cert(2, "alice", cert), QEL_OK);
        EXPECT_EQ(set(2, "alice", own), QEL_OK);
        EXPECT_EQ(set_cert(2, "127.0.0.1", certificate("CN=localhost")), QEL_OK);
    });
    ASSERT_EQ(run("publish-naming"), 0);
    write_file("/etc/fn.conf", bytes_of("files nis:\n"));
    for (const uid_t uid : {user("alice"), root})
        walk({{"a package", uid, [&] { return get(2, "alice", own); }, QEL_OK},
              {"certificates", uid, [&] { return get_certs(2, subject, {cert}); }, QEL_OK},
              {"of a host", uid,
               [] { return get_certs(2, "CN=localhost", {certificate("CN=localhost")}); }, QEL_OK},
              {"nobody", uid, [] { return get(2, "nobody"); }, QEL_ERR_UNKNOWN_USER},
              {"no subject", uid, [] { return get_certs(2, other_subject, {}); },
               QEL_ERR_UNKNOWN_USER},
              {"a change", uid, [&] { return set(2, "alice", package("b").encoding()); },
               QEL_ERR_XFN},
              {"a new entry", uid, [&] { return set_cert(2, "bob", certificate(other_subject)); },
               QEL_ERR_XFN},
              {"a removal", uid, [] { return remove(2, "alice"); }, QEL_ERR_XFN},
              {"of certificates", uid, [] { return remove_cert(2, subject); }, QEL_ERR_XFN},
              {"all is there", uid, [&] { return get(2, "alice", own); }, QEL_OK}});
    ASSERT_EQ(run("rm /var/yp/$(domainname)/dsv_org.ctx && makedbm -c"), 0);
    walk({{"no map", user("alice"), [&] { return get(2, "alice"); }, QEL_ERR_XFN},
          {"no search", user("alice"), [&] { return get_certs(2, subject, {}); }, QEL_ERR_NO_DN}});
    unlink("/etc/fn.conf");
}

} // namespace
