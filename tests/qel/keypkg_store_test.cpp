#include "qel/repositories.h"
#include "support/fault.h"
#include "support/keypkg.h"
#include "support/process.h"
#include "support/secrets.h"

#include <filesystem>

namespace {

using Items = std::vector<Bytes>;
using Owned = qel::Record<QelKeyPkg, qel_free_keypkg>;

TestKeyPackage package_of(const std::string &id, uint8_t usage = 1) {
    TestKeyPackage made = test_key_package(RsaKey::of_512_bits());
    made.id = id;
    made.usage = usage;
    return made;
}

Bytes with_bad_signature(Bytes package) {
    package.back() ^= 1;
    return package;
}

class KeyPkgStore : public RepositoriesTest {
protected:
    // Puts items where a repository keeps those of alice.
    void put(int repository, const Items &items) {
        switch (repository) {
        case QEL_REPO_FILE:
            return write_set(file, QEL_ITEM_KEYPKG, items);
        case QEL_REPO_DEFAULT:
            return write_set(default_file, QEL_ITEM_KEYPKG, items);
        case QEL_REPO_QELSERV:
            key_server.packages = items;
            return;
        default:
            naming.entries["alice"].packages = items;
        }
    }
    // "o" is alice's own, "s" the same for signing only, "x" of another identifier, "f" forged, "-"
    // no key package.
    Items items(const std::string &letters) const {
        const std::map<char, Bytes> meanings = {
            {'o', own}, {'s', own_for_signing}, {'x', other}, {'f', forged}, {'-', {5, 0}}};
        Items made;
        for (const char letter : letters)
            made.push_back(meanings.at(letter));
        return made;
    }
    void put(int repository, const char *letters) { put(repository, items(letters)); }
    // The encoding of what is got; empty when nothing is.
    QelStatus get(int repository, const char *name, Bytes *encoding) {
        QelKeyPkg *package = reinterpret_cast<QelKeyPkg *>(this);
        const QelStatus status = __qel_get_keypkg(context, repository, name, &package);
        EXPECT_EQ(package != nullptr, status == QEL_OK);
        const Owned owner(package);
        *encoding = package != nullptr ? context.encode(package, QEL_PDU_KeyPkg) : Bytes();
        return status;
    }
    QelStatus set(int repository, const char *name, const Bytes &encoding) {
        const auto package = context.decode<QelKeyPkg>(encoding, QEL_PDU_KeyPkg);
        EXPECT_NE(package, nullptr);
        return __qel_set_keypkg(context, repository, name, package.get());
    }
    QelStatus remove(int repository, const char *name) {
        return __qel_remove_keypkg(context, repository, name);
    }
    const char *name_in(int repository) const {
        return repository == QEL_REPO_FILE ? file.c_str() : "alice";
    }

    const std::string file = folder.path("packages");
    const std::string default_file = folder.path("alice.KEYPKG");
    const std::string hidden_file = folder.path(".alice.KEYPKG");
    const Bytes own = package_of("default_keyid").encoding();
    const Bytes own_for_signing = package_of("default_keyid", 2).encoding();
    const Bytes other = package_of("other_keyid").encoding();
    const Bytes forged = with_bad_signature(own);
};

TEST_F(KeyPkgStore, GettingChoosesByIdentifierAndSignature) {
    const struct {
        const char *reason, *items;
        Bytes got; // none: QEL_ERR_NO_KEYPKG
    } rows[] = {
        {"its own", "o", own},
        {"another identifier, though its signature is good", "x", {}},
        {"a bad signature", "f", {}},
        {"no key package at all", "-", {}},
        {"others are passed over", "-fxo", own},
        {"the first counts", "so", own_for_signing},
    };
    for (const auto &row : rows)
        for (const int repository :
             {QEL_REPO_FILE, QEL_REPO_DSV, QEL_REPO_QELSERV, QEL_REPO_DEFAULT}) {
            SCOPED_TRACE(std::string(row.reason) + " in " + std::to_string(repository));
            const bool is_file = repository == QEL_REPO_FILE || repository == QEL_REPO_DEFAULT;
            const Items stored = items(row.items);
            if (is_file && stored.size() > 1)
                continue;
            put(repository, stored);
            Bytes got;
            EXPECT_EQ(get(repository, name_in(repository), &got),
                      row.got.empty() ? QEL_ERR_NO_KEYPKG : QEL_OK);
            EXPECT_EQ(got, row.got);
            QelDataSetItem *set = nullptr;
            uint32_t count = 0;
            EXPECT_EQ(
                __qel_get_keypkg_data_set(context, repository, name_in(repository), &set, &count),
                QEL_OK);
            ASSERT_EQ(count, stored.size());
            for (uint32_t i = 0; i < count; ++i) {
                EXPECT_EQ(Bytes(set[i].data, set[i].data + set[i].length), stored[i]);
                std::free(set[i].data);
            }
            std::free(set);
        }
}

TEST_F(KeyPkgStore, GettingFails) {
    const struct {
        const char *reason;
        int repository;
        const char *name;
        std::function<void()> prepare;
        QelStatus status;
    } rows[] = {
        {"no file", QEL_REPO_FILE, file.c_str(), [] {}, QEL_ERR_NO_FILE},
        {"no default file", QEL_REPO_DEFAULT, nullptr, [] {}, QEL_ERR_NO_FILE},
        {"two items", QEL_REPO_FILE, file.c_str(), [&] { put(QEL_REPO_FILE, "oo"); },
         QEL_ERR_FILE_FORMAT},
        {"a file that cannot be opened", QEL_REPO_FILE, file.c_str(),
         [] { fault::fail(fault::Call::open, 1); }, QEL_ERR_OPEN_FILE},
        {"a folder", QEL_REPO_FILE, users.home.c_str(), [] {}, QEL_ERR_FILE_IO},
        {"no armour", QEL_REPO_FILE, file.c_str(),
         [&] { write_file(file, bytes_of("-----BEGIN KEYPKG-----\n*\n-----END KEYPKG-----\n")); },
         QEL_ERR_FROM_RFC1421},
        {"no such user", QEL_REPO_DSV, "bob", [] {}, QEL_ERR_UNKNOWN_USER},
        {"a user without", QEL_REPO_DSV, nullptr, [&] { put(QEL_REPO_DSV, ""); },
         QEL_ERR_NO_KEYPKG},
        {"no naming service", QEL_REPO_DSV, nullptr, [] { naming.failure = QEL_ERR_XFN; },
         QEL_ERR_XFN},
        {"not logged in", QEL_REPO_QELSERV, nullptr, [] {}, QEL_ERR_NOT_LOGGED_IN},
        {"no key server", QEL_REPO_QELSERV, nullptr, [&] { context->key_server = nullptr; },
         QEL_ERR_SERV_CONNECT},
        {"an unknown caller, who has no home", QEL_REPO_DEFAULT, "alice",
         [] { users.caller_is_known = false; }, QEL_ERR_UNKNOWN_USER},
        {"nor a login name", QEL_REPO_QELSERV, nullptr, [] { users.caller_is_known = false; },
         QEL_ERR_UNKNOWN_USER},
        {"for the naming service neither", QEL_REPO_DSV, nullptr,
         [] { users.caller_is_known = false; }, QEL_ERR_UNKNOWN_USER},
        {"no such repository", 0, file.c_str(), [] {}, QEL_ERR_BAD_PARAM},
        {"two at once", 3, file.c_str(), [] {}, QEL_ERR_BAD_PARAM},
        {"not for reading", QEL_REPO_DSV_QELSERV, nullptr, [] {}, QEL_ERR_BAD_PARAM},
        {"not for key packages", QEL_REPO_STDIN, nullptr, [] {}, QEL_ERR_BAD_PARAM},
    };
    for (const auto &row : rows) {
        users.caller_is_known = true;
        naming = {};
        context->key_server = &key_server;
        row.prepare();
        Bytes got;
        EXPECT_EQ(get(row.repository, row.name, &got), row.status) << row.reason;
        fault::clear(fault::Call::open);
    }
}

TEST_F(KeyPkgStore, WithoutANameStandardInputIsTheFile) {
    put(QEL_REPO_FILE, "o");
    for (const char *name : {static_cast<const char *>(nullptr), ""}) {
        Bytes got;
        with_input(text_of(read_file(file)),
                   [&] { EXPECT_EQ(get(QEL_REPO_FILE, name, &got), QEL_OK); });
        EXPECT_EQ(got, own);
    }
}

TEST_F(KeyPkgStore, ThePassPhraseGivesThePrivateKey) {
    const std::string phrase = package_of("").phrase;
    put(QEL_REPO_DSV, "xfo");
    for (const std::string &typed : {phrase, std::string("wrong")}) {
        QelKeyPkg *package = nullptr;
        uint8_t *key = nullptr;
        uint32_t length = 99;
        EXPECT_EQ(__qel_get_keypkg_with_pwd(context, QEL_REPO_DSV, nullptr, typed.c_str(), &package,
                                            &key, &length),
                  typed == phrase ? QEL_OK : QEL_ERR_NO_KEYPKG);
        EXPECT_EQ(package != nullptr, typed == phrase);
        EXPECT_EQ(Bytes(key, key + length),
                  typed == phrase ? RsaKey::of_512_bits().private_key_info() : Bytes());
        qel_free_keypkg(&package);
        std::free(key);
    }
    QelKeyPkg *package = nullptr;
    uint8_t *key = nullptr;
    uint32_t length = 0;
    each_missing(QEL_ERR_BAD_PARAM, __qel_get_keypkg_with_pwd, {2, 3, 4}, context, QEL_REPO_DSV,
                 "alice", phrase.c_str(), &package, &key, &length);
}

// A private key that was opened and is not asked for is gone.
TEST_F(KeyPkgStore, SecretsAreZeroed) {
    const TestKeyPackage made = package_of("other_keyid");
    put(QEL_REPO_DSV, {made.encoding()});
    SecretWatch watch;
    watch.add(*made.key);
    watch.add("pass phrase", bytes_of(made.phrase));
    QelKeyPkg *package = nullptr;
    uint8_t *key = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(__qel_get_keypkg_with_pwd(context, QEL_REPO_DSV, nullptr, made.phrase.c_str(),
                                        &package, &key, &length),
              QEL_ERR_NO_KEYPKG);
    EXPECT_EQ(watch.take_found(), std::set<std::string>());
}

TEST_F(KeyPkgStore, SettingInTheNamingService) {
    naming.entries["bob"].dn = "cn=alice,o=acme,c=us";
    naming.entries["carol"].dn = "CN=CAROL, O=ACME, C=US";
    EXPECT_EQ(set(QEL_REPO_DSV, nullptr, own), QEL_OK) << "nobody has registered a name";
    EXPECT_EQ(naming.entries["alice"].packages, Items{own});
    EXPECT_EQ(naming.entries["alice"].dn, "");
    EXPECT_EQ(set(QEL_REPO_DSV, nullptr, own), QEL_ERR_ENTRY_EXISTS);
    EXPECT_EQ(set(QEL_REPO_DSV, nullptr, own_for_signing), QEL_OK);
    EXPECT_EQ(naming.entries["alice"].packages, Items{own_for_signing});
    EXPECT_EQ(set(QEL_REPO_DSV, nullptr, other), QEL_OK) << "chosen by the context's identifier";
    EXPECT_EQ(naming.entries["alice"].packages, Items{other});
    EXPECT_EQ(set(QEL_REPO_DSV, nullptr, own), QEL_OK) << "beside another";
    EXPECT_EQ(naming.entries["alice"].packages, (Items{other, own}));

    EXPECT_EQ(set(QEL_REPO_DSV, "bob", own), QEL_OK) << "registered under another form of the name";
    EXPECT_EQ(set(QEL_REPO_DSV, "carol", own), QEL_ERR_BAD_PARAM) << "not the owner";
    EXPECT_EQ(set(QEL_REPO_DSV, ".../dave", own), QEL_ERR_BAD_PARAM) << "a full name is its own";
    EXPECT_EQ(naming.entries["carol"].packages, Items{});
    EXPECT_TRUE(key_server.packages.empty());
    users.caller_is_known = false;
    EXPECT_EQ(set(QEL_REPO_DSV, nullptr, own), QEL_ERR_UNKNOWN_USER);
    naming.failure = QEL_ERR_XFN;
    EXPECT_EQ(set(QEL_REPO_DSV, "alice", own), QEL_ERR_XFN);
}

TEST_F(KeyPkgStore, SettingKeepsTheKeyServerInStep) {
    const struct {
        const char *reason;
        std::function<void()> prepare;
        QelStatus status;
        const char *before, *registered;
    } rows[] = {
        {"nothing is registered", [] {}, QEL_OK, "", ""},
        {"the new one is registered", [] {}, QEL_OK, "x", "o"},
        {"the server cannot be asked", [] { key_server.stat_outcome = RPC_FAILED; },
         QEL_ERR_SERV_UPDATE, "", ""},
        {"the server refuses", [] { key_server.verdict = QELSERV_KEY_EXISTS; }, QEL_ERR_SERV_UPDATE,
         "x", "x"},
        {"no key server", [&] { context->key_server = nullptr; }, QEL_ERR_SERV_UPDATE, "", ""},
        {"the naming service has it already", [&] { put(QEL_REPO_DSV, "o"); }, QEL_ERR_ENTRY_EXISTS,
         "x", "x"},
    };
    for (const auto &row : rows) {
        naming = {};
        key_server = {};
        key_server.packages = items(row.before);
        row.prepare();
        const auto package = context.decode<QelKeyPkg>(own, QEL_PDU_KeyPkg);
        EXPECT_EQ(qel_set_keypkg(context, "alice", package.get()), row.status) << row.reason;
        EXPECT_EQ(naming.entries["alice"].packages, Items{own}) << row.reason;
        EXPECT_EQ(key_server.packages, items(row.registered)) << row.reason;
        context->key_server = &key_server;
    }
}

TEST_F(KeyPkgStore, SettingInAFile) {
    for (const int repository : {QEL_REPO_FILE, QEL_REPO_DEFAULT}) {
        SCOPED_TRACE(repository);
        const char *name = repository == QEL_REPO_FILE ? file.c_str() : nullptr;
        Bytes got;
        EXPECT_EQ(set(repository, name, own), QEL_OK);
        EXPECT_EQ(get(repository, name, &got), QEL_OK);
        EXPECT_EQ(got, own);
        EXPECT_EQ(set(repository, name, own), QEL_OK) << "the same once more";
        EXPECT_EQ(set(repository, name, own_for_signing), QEL_OK);
        EXPECT_EQ(get(repository, name, &got), QEL_OK);
        EXPECT_EQ(got, own_for_signing);
        put(repository, "x");
        EXPECT_EQ(set(repository, name, own), QEL_OK) << "beside a package that is not replaced";
        EXPECT_EQ(get(repository, name, &got), QEL_ERR_FILE_FORMAT);
        EXPECT_EQ(set(repository, name, own), QEL_ERR_FILE_FORMAT);
        EXPECT_EQ(std::filesystem::status(repository == QEL_REPO_FILE ? file : default_file)
                      .permissions(),
                  std::filesystem::perms(0600));
    }
    EXPECT_FALSE(std::filesystem::exists(hidden_file));
    EXPECT_EQ(set(QEL_REPO_FILE, nullptr, own), QEL_ERR_BAD_PARAM);
    EXPECT_EQ(set(QEL_REPO_FILE, "", own), QEL_ERR_NO_FILE);
    EXPECT_EQ(set(QEL_REPO_FILE, folder.path("no/file").c_str(), own), QEL_ERR_OPEN_FILE);
    for (const int repository : {0, int{QEL_REPO_QELSERV}, int{QEL_REPO_STDIN}, 3})
        EXPECT_EQ(set(repository, file.c_str(), own), QEL_ERR_BAD_PARAM) << repository;
    const auto package = context.decode<QelKeyPkg>(own, QEL_PDU_KeyPkg);
    each_missing(QEL_ERR_BAD_PARAM, __qel_set_keypkg, {3}, context, QEL_REPO_DSV, "alice",
                 package.get());
    package->keypkgId[0] = '\x80';
    EXPECT_EQ(__qel_set_keypkg(context, QEL_REPO_DSV, "alice", package.get()), QEL_ERR_ASN1_ENCODE);
}

TEST_F(KeyPkgStore, RemovingFromTheNamingService) {
    for (const int repository : {QEL_REPO_DSV, QEL_REPO_DSV_QELSERV}) {
        put(repository, "ofxs");
        key_server.verdict = QELSERV_NO_KEY; // which does not count
        EXPECT_EQ(remove(repository, "alice"), QEL_OK);
        EXPECT_EQ(naming.entries["alice"].packages, (Items{forged, other}));
        EXPECT_EQ(key_server.withdrawn.value_or(-1), repository == QEL_REPO_DSV ? -1 : 4711);
        key_server.withdrawn.reset();
        EXPECT_EQ(remove(repository, "alice"), QEL_ERR_NO_KEYPKG);
        EXPECT_EQ(remove(repository, "bob"), QEL_ERR_UNKNOWN_USER);
        EXPECT_FALSE(key_server.withdrawn);
    }
    naming.entries["bob"].packages = {own};
    EXPECT_EQ(remove(QEL_REPO_DSV_QELSERV, "bob"), QEL_ERR_UNKNOWN_USER) << "no such account";
    EXPECT_EQ(naming.entries["bob"].packages, Items{});
    for (const int repository : {0, int{QEL_REPO_QELSERV}, int{QEL_REPO_STDIN}})
        EXPECT_EQ(remove(repository, file.c_str()), QEL_ERR_BAD_PARAM) << repository;
    each_missing(QEL_ERR_BAD_PARAM, __qel_remove_keypkg, {}, context, QEL_REPO_DSV, "alice");
}

TEST_F(KeyPkgStore, RemovingFromAFile) {
    put(QEL_REPO_FILE, "x");
    EXPECT_EQ(remove(QEL_REPO_FILE, file.c_str()), QEL_ERR_NO_KEYPKG);
    put(QEL_REPO_FILE, "o");
    EXPECT_EQ(remove(QEL_REPO_FILE, file.c_str()), QEL_OK);
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_EQ(remove(QEL_REPO_FILE, file.c_str()), QEL_ERR_NO_FILE);

    // Two items, which only one more dash makes readable: the one that stays is written alone.
    put(QEL_REPO_FILE, "o");
    const std::string first = text_of(read_file(file));
    put(QEL_REPO_FILE, "x");
    const Bytes both = bytes_of(first + "-") + read_file(file);
    write_file(file, both);
    EXPECT_EQ(remove(QEL_REPO_FILE, file.c_str()), QEL_OK);
    std::strcpy(context->key_identifier, "other_keyid");
    Bytes got;
    EXPECT_EQ(get(QEL_REPO_FILE, file.c_str(), &got), QEL_OK);
    EXPECT_EQ(got, other);
    std::strcpy(context->key_identifier, "default_keyid");
}

TEST_F(KeyPkgStore, RemovingWithoutAFileNameWritesTheHiddenFile) {
    put(QEL_REPO_DEFAULT, "o");
    const Bytes before = read_file(default_file);
    EXPECT_EQ(remove(QEL_REPO_DEFAULT, "alice"), QEL_ERR_GENERAL) << "no hidden file to delete";
    write_file(hidden_file, {});
    EXPECT_EQ(remove(QEL_REPO_DEFAULT, "alice"), QEL_OK);
    EXPECT_FALSE(std::filesystem::exists(hidden_file));
    write_file(hidden_file, {});
    with_input(text_of(before), [&] { EXPECT_EQ(remove(QEL_REPO_FILE, ""), QEL_OK); });
    EXPECT_FALSE(std::filesystem::exists(hidden_file));
    EXPECT_EQ(read_file(default_file), before);
}

TEST_F(KeyPkgStore, Presence) {
    const struct {
        const char *reason, *items, *id;
        QelStatus status;
        int found;
    } rows[] = {
        {"there", "o", "default_keyid", QEL_OK, 1},
        {"another than the context's", "ox", "other_keyid", QEL_OK, 1},
        {"not there", "o", "other_keyid", QEL_OK, 0},
        {"none at all", "", "default_keyid", QEL_OK, 0},
        {"a bad one before it", "fo", "default_keyid", QEL_ERR_VERIFY, 0},
        {"a bad one behind it", "of", "default_keyid", QEL_ERR_VERIFY, 0},
        {"what is no key package", "-", "default_keyid", QEL_ERR_ASN1_DECODE, 0},
    };
    for (const auto &row : rows) {
        put(QEL_REPO_DSV, row.items);
        int found = 7;
        EXPECT_EQ(__qel_check_keypkg_presence(context, row.id, QEL_REPO_DSV, nullptr, &found),
                  row.status)
            << row.reason;
        EXPECT_EQ(found, row.found) << row.reason;
    }
    int found = 7;
    EXPECT_EQ(__qel_check_keypkg_presence(context, "x", QEL_REPO_DSV, "bob", &found), QEL_OK);
    EXPECT_EQ(found, 0);
    EXPECT_EQ(__qel_check_keypkg_presence(context, "x", QEL_REPO_QELSERV, nullptr, &found),
              QEL_ERR_NOT_LOGGED_IN);
    EXPECT_EQ(__qel_check_keypkg_presence(context, "x", QEL_REPO_FILE, file.c_str(), &found),
              QEL_ERR_NO_FILE);
    each_missing(QEL_ERR_BAD_PARAM, __qel_check_keypkg_presence, {3, 4}, context, "x", QEL_REPO_DSV,
                 "alice", &found);
}

// A failure may hide a package, but never half changes or hands out anything.
TEST_F(KeyPkgStore, EachAllocation) {
    const std::string phrase = package_of("").phrase;
    const auto package = context.decode<QelKeyPkg>(own, QEL_PDU_KeyPkg);
    fault::each_allocation([&] {
        put(QEL_REPO_DSV, "xs");
        QelKeyPkg *got = nullptr;
        uint8_t *key = nullptr;
        uint32_t length = 0;
        const QelStatus status = __qel_get_keypkg_with_pwd(context, QEL_REPO_DSV, "alice",
                                                           phrase.c_str(), &got, &key, &length);
        EXPECT_TRUE(status == QEL_OK || fault::met());
        EXPECT_TRUE((got != nullptr) == (status == QEL_OK) && (key != nullptr) == (got != nullptr));
        __qel_asn1_free(context, got, QEL_PDU_KeyPkg);
        std::free(key);
    });
    fault::each_allocation([&] {
        naming = {};
        put(QEL_REPO_DSV, "s");
        key_server.packages = {other};
        EXPECT_TRUE(qel_set_keypkg(context, "alice", package.get()) == QEL_OK || fault::met());
    });
    fault::each_allocation([&] {
        naming = {};
        put(QEL_REPO_DSV, "o");
        EXPECT_TRUE(remove(QEL_REPO_DSV, "alice") == QEL_OK || fault::met());
    });
    fault::each_allocation([&] {
        std::filesystem::remove(file);
        const QelStatus status =
            __qel_set_keypkg(context, QEL_REPO_FILE, file.c_str(), package.get());
        EXPECT_EQ(status == QEL_OK, std::filesystem::exists(file));
        EXPECT_TRUE(status == QEL_OK || fault::met());
    });
}

} // namespace
