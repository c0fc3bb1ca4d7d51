// Certificates and key packages in real stores, on a private host, which this program is to run on:
//   scripts/sandbox --server BIN/qelserv --naming BIN qel_store_system
// Here: every repository with every operation, and the statuses that they give.
#include "qel/store_host.h"

#include "support/process.h"

#include <map>

namespace {

using namespace stores;

template <class Work> QelStatus with_input_of(const std::string &file, const Work &work) {
    return with_descriptor(STDIN_FILENO, open(file.c_str(), O_RDONLY), work);
}

// Every operation with every selector, one after the other in real stores.
TEST_F(Store, Selectors) {
    const std::string package_file = folder.path("x.KEYPKG"), cert_file = folder.path("x.pem");
    const std::string input = file("in", armoured(cert, QEL_ITEM_CERTIFICATE));
    const auto place = [&](int repository) {
        return repository == QEL_REPO_FILE ? package_file.c_str() : "root";
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
             return with_input_of(
                 input, [&] { return get_certs(repository, cert_place(repository), {cert}); });
         }},
        {"get_cert_data_set",
         {{1, QEL_OK}, {2, QEL_OK}, {16, QEL_OK}, {32, QEL_OK}},
         [&](int repository) {
             return with_input_of(
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
    EXPECT_NE(access(package_file.c_str(), F_OK), 0);
    EXPECT_NE(access(cert_file.c_str(), F_OK), 0);
    EXPECT_EQ(access("/home/root/root.KEYPKG", F_OK), 0);
    EXPECT_EQ(access("/etc/qel/certs/CN=ALICE, O=ACME, C=US", F_OK), 0);
}

// What only users, devices and homes of a host bring about.
TEST_F(Store, Files) {
    const std::string good = file("good", armoured(own, QEL_ITEM_KEYPKG)),
                      closed = file("closed", armoured(own, QEL_ITEM_KEYPKG)),
                      hidden = "/home/root/.root.KEYPKG";
    chmod(closed.c_str(), 0600);
    const uid_t stranger = 65000;
    walk({
        {"writing fails", root, [&] { return set_cert(1, "/dev/full", cert); }, QEL_ERR_FILE_IO},
        {"everybody's file", alice, [&] { return get(1, good.c_str(), own); }, QEL_OK},
        {"a private file", alice, [&] { return get(1, closed.c_str()); }, QEL_ERR_OPEN_FILE, true},
        {"a file of root", alice, [&] { return set(1, good.c_str(), package("b").encoding()); },
         QEL_ERR_OPEN_FILE, true},
        {"deleting it", alice, [&] { return remove(1, good.c_str()); }, QEL_ERR_GENERAL, true},
        {"the certificates of root", alice, [&] { return set_cert(16, nullptr, cert); },
         QEL_ERR_OPEN_FILE, true},
        {"no account, no home", stranger, [] { return get(16, nullptr); }, QEL_ERR_UNKNOWN_USER,
         true},
        {"to set", stranger, [&] { return set(16, nullptr, own); }, QEL_ERR_UNKNOWN_USER, true},
        {"no default file", root, [] { return get(16, nullptr); }, QEL_ERR_NO_FILE},
        {"the default file", root, [&] { return set(16, nullptr, own); }, QEL_OK},
        {"removed into the hidden one", root,
         [&] {
             write_file(hidden, {});
             return remove(16, "");
         },
         QEL_OK},
        {"which is gone, and the default file not", root,
         [&] {
             EXPECT_NE(access(hidden.c_str(), F_OK), 0);
             return get(16, nullptr, own);
         },
         QEL_OK},
    });
}

TEST_F(Store, NamingService) {
    const char *const he = has_users() ? "bob" : "carol";
    TestKeyPackage changed = package(), others = package();
    changed.usage = 2;
    others.owner = other_subject;
    const Bytes next = changed.encoding(), second = certificate(subject, 2);
    const auto expect_certs = [&](const Values &expected) {
        return [=] { return get_certs(2, subject, expected); };
    };
    walk({
        {"nothing yet", alice, [&] { return presence(2, me, false); }, QEL_OK},
        {"an unknown entry", alice, [] { return get(2, "nobody"); }, QEL_ERR_UNKNOWN_USER},
        {"is not there", alice, [] { return presence(2, "nobody", false); }, QEL_OK},
        {"unknown subject", alice, expect_certs({}), QEL_ERR_UNKNOWN_USER},
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
        {"the first", alice, [] { return remove_cert(2, subject, subject, 1); }, QEL_OK},
        {"leaves the second", bob, expect_certs({second}), QEL_OK},
        {"of another", alice, [&] { return add_value(me, Bytes(10, 1)); }, QEL_OK},
        {"that is none", bob, expect_certs({}), QEL_ERR_ASN1_DECODE},
        {"all", alice, [] { return remove_cert(2, subject); }, QEL_OK},
        {"there are none", bob, expect_certs({}), QEL_ERR_NO_CERT},
        {"somebody else's", alice, [&] { return add_value(me, certificate(other_subject)); },
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

// The first program of root that needs the naming service sets it up, and leaves the settings alone.
TEST_F(Store, FirstUseSetsTheNamingServiceUp) {
    const std::string settings = "files sqlite:/var/fn/dsv_org.db # ours\n";
    for (const bool has_settings : {true, false}) {
        const Mounted empty("/var/fn", "mode=0755");
        if (has_settings)
            write_file("/etc/fn.conf", bytes_of(settings));
        walk({{"a user cannot", alice, [&] { return set(2, nullptr, own); }, QEL_ERR_XFN, true},
              {"root can", root, [&] { return set(2, "alice", own); }, QEL_OK},
              {"and all read", alice, [&] { return get(2, "alice", own); }, QEL_OK}});
        EXPECT_EQ(access("/var/fn/dsv_org.ctx.dir", F_OK), 0);
        EXPECT_EQ(host::read_text("/etc/fn.conf"), has_settings ? settings : "");
        EXPECT_NE(access("/etc/fn.conf.bak", F_OK), 0);
        unlink("/etc/fn.conf");
    }
}

// ---- The key server in step

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
    const std::string phrase = "file:" + phrase_file(alice);
    TestKeyPackage changed = package(), strange = package();
    changed.usage = 2;
    strange.key = &RsaKey::of_1024_bits();
    const Bytes next = changed.encoding(), of_another_key = strange.encoding();
    walk({{"nobody is logged in", alice, [&] { return set(8, nullptr, own); }, QEL_OK},
          {"there is no key", alice, [] { return get(4, nullptr); }, QEL_ERR_NOT_LOGGED_IN}});
    EXPECT_EQ(qel_as(alice, {"qellogin", "--passin", phrase}).exit,
              0); // with the package that is in the naming service only
    walk({
        {"the same", alice, [&] { return get(4, nullptr, own); }, QEL_OK},
        {"again", alice, [&] { return set(8, me, own); }, QEL_ERR_ENTRY_EXISTS},
        {"another in its place", alice, [&] { return set(8, me, next); }, QEL_OK},
        {"in the naming service", alice, [&] { return get(2, me, next); }, QEL_OK},
        {"and in the key server", alice, [&] { return get(4, nullptr, next); }, QEL_OK},
        {"of another key", alice, [&] { return set(8, me, of_another_key); }, QEL_ERR_SERV_UPDATE},
        {"the naming service has it", alice, [&] { return get(2, me, of_another_key); }, QEL_OK},
        {"the key server not", alice, [&] { return get(4, nullptr, next); }, QEL_OK},
        {"bob withdraws it", bob, [&] { return remove(8, me); }, QEL_ERR_XFN, true},
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
    for (const auto &words : {std::vector<std::string>{"qel", "naming", "status", "alice"},
                              {"qel", "cert", "get", subject}})
        EXPECT_EQ(qel_as(user("alice"), words).exit, 8) << words[2];
    unlink("/etc/fn.conf");
}

} // namespace
