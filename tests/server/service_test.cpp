// The key server's answers, from message to message, without the way they travel.
#include "messages.h"

#include "support/fault.h"
#include "support/keypkg.h"
#include "support/secrets.h"

#include <gtest/gtest.h>

#include <chrono>
#include <new>
#include <thread>

#include "rpc.h"

// So that faults and watchers reach what the server allocates.
[[gnu::noinline]] void *operator new(std::size_t size) {
    if (void *block = std::malloc(size != 0 ? size : 1))
        return block;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void *block) noexcept {
    std::free(block);
}
[[gnu::noinline]] void operator delete(void *block, std::size_t) noexcept {
    std::free(block);
}

namespace {

constexpr uid_t root = 0, alice = 1000, bob = 1001, nobody = 65534;

const Bytes digest_info = md5_digest_info(Bytes(16, 0x5a));

KeyInfo login_of(const RsaKey &key, uint8_t usage = 1) {
    TestKeyPackage package = test_key_package(key);
    package.usage = usage;
    KeyInfo info;
    info.private_key = key.private_key_info();
    info.usage = usage;
    info.package = package.encoding();
    return info;
}

class Server : public testing::Test {
protected:
    Service service{ServiceLimits()};
    const RsaKey &key = RsaKey::of_512_bits();

    Reply ask(uid_t uid, const Call &call) {
        Bytes message = call.message();
        const SecretBytes reply = answer_call(&service, {uid, 1}, message);
        return Reply(Bytes(reply.begin(), reply.end()));
    }
    uint32_t set(uid_t uid, const KeyInfo &info) { return ask(uid, info.call()).result().word(); }
    uint32_t stat(uid_t uid, const std::string &id = "") {
        return ask(uid, stat_call(0, id)).first_status();
    }
    uint32_t sign(uid_t uid) {
        return ask(uid, crypt_call(QELSERV_SIGN, digest_info)).first_status();
    }
    Bytes data_of(Reply reply) {
        EXPECT_EQ(reply.first_status(), uint32_t{QELSERV_OK});
        return reply.array();
    }
};

// ---- Messages ----------------------------------------------------------------------------------

TEST_F(Server, MessagesThatAreNoCallsOfItsProceduresAreRefusedAsTheProtocolSays) {
    constexpr uint32_t dropped = 1000;
    const Call good = stat_call();
    const auto with = [&](auto change) {
        Call call = good;
        change(call);
        return call;
    };
    Words packed(0, 0, 0, "me", "0.0.0.0");
    packed.packed(rsa_encryption_id).packed(digest_info);
    const struct {
        const char *reason;
        Call call;
        uint32_t answer;
    } rows[] = {
        {"a good one", good, 0},
        {"the null procedure", {0, {}}, 0},
        {"forged credentials are looked over",
         with([](Call &c) { c.credentials = claim_to_be(0); }), 0},
        {"another program", with([](Call &c) { ++c.program; }), 1},
        {"another version", with([](Call &c) { ++c.version; }), 2},
        {"the first procedure that is not there", with([](Call &c) { c.procedure = 8; }), 3},
        {"a procedure far off", with([](Call &c) { c.procedure = UINT32_MAX; }), 3},
        {"no argument", with([](Call &c) { c.argument = {}; }), 4},
        {"bytes behind the argument", with([](Call &c) { c.argument.add(0); }), 4},
        {"packed bytes", {QELSERV_SIGN, packed}, 4},
        {"a string beyond its bound", stat_call(0, std::string(1025, 'x')), 4},
        {"data beyond their bound", crypt_call(QELSERV_SIGN, Bytes(8193)), 4},
        {"a reply", with([](Call &c) { c.direction = 1; }), dropped},
        {"credentials beyond their bound",
         with([](Call &c) { c.credentials = Words(1).packed(Bytes(404)); }), dropped},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        Reply reply = ask(alice, row.call);
        EXPECT_EQ(reply.none() ? dropped : reply.accepted(), row.answer);
    }
    Reply mismatch = ask(alice, with([](Call &c) { ++c.version; }));
    mismatch.accepted();
    EXPECT_EQ(mismatch.word(), 1U) << "lowest version";
    EXPECT_EQ(mismatch.word(), 1U) << "highest version";
    Reply denied = ask(alice, with([](Call &c) { c.rpc_version = 3; }));
    // mark, number, a reply, denied, for the version of RPC: 2 to 2
    for (const uint32_t word : {0x80000018U, 0x12345678U, 1U, 1U, 0U, 2U, 2U})
        EXPECT_EQ(denied.word(), word);
    EXPECT_TRUE(denied.at_end());
}

TEST_F(Server, SpoiledMessagesDoNoHarm) {
    ASSERT_EQ(set(alice, login_of(key)), 0U);
    for (const Call &call : {crypt_call(QELSERV_SIGN, digest_info), stat_call(), list_call(alice),
                             packages_call("me"), KeyInfo{.uids = {bob, bob}}.call()}) {
        each_spoiled(call.message(), [&](const Bytes &spoiled, const std::string &) {
            Bytes message = spoiled;
            answer_call(&service, {bob, 1}, message);
        });
    }
    EXPECT_EQ(sign(alice), 0U);
}

// ---- Life of an entry --------------------------------------------------------------------------

TEST_F(Server, KeyWorksFromLoginToLogout) {
    EXPECT_EQ(stat(alice), uint32_t{QELSERV_NOT_LOGGED_IN});
    EXPECT_EQ(sign(alice), uint32_t{QELSERV_NOT_LOGGED_IN});
    const KeyInfo login = login_of(key);
    ASSERT_EQ(set(alice, login), 0U);
    EXPECT_EQ(set(alice, login), uint32_t{QELSERV_KEY_EXISTS});

    EXPECT_EQ(data_of(ask(alice, crypt_call(QELSERV_SIGN, digest_info))), key.sign(digest_info));
    const Bytes session = from_hex("0102030405");
    EXPECT_EQ(data_of(ask(alice, crypt_call(QELSERV_DECRYPT, key.encrypt(session)))), session);
    EXPECT_EQ(key.decrypt(data_of(ask(alice, crypt_call(QELSERV_ENCRYPT, session)))), session);
    EXPECT_EQ(data_of(ask(alice, packages_call())), login.package);

    Reply state = ask(alice, stat_call());
    EXPECT_EQ(state.first_status(), 0U);
    EXPECT_EQ(state.text(), "me");
    EXPECT_EQ(state.text(), "0.0.0.0");
    EXPECT_EQ(state.word(), 0U) << "seconds left";
    EXPECT_EQ(state.word(), 1U) << "usage";
    EXPECT_NEAR(state.word(), time(nullptr), 5);
    EXPECT_EQ(state.word(), 0U) << "no other";
    EXPECT_TRUE(state.at_end());

    EXPECT_EQ(set(alice, {.id = "other", .uids = {alice}}), uint32_t{QELSERV_NO_KEY});
    EXPECT_EQ(set(alice, {.uids = {alice}, .host = "1.2.3.4"}), uint32_t{QELSERV_NO_KEY});
    EXPECT_EQ(set(alice, {.uids = {alice}}), 0U);
    EXPECT_EQ(sign(alice), uint32_t{QELSERV_NOT_LOGGED_IN});
}

TEST_F(Server, RegistrationsThatDoNotHoldAreRefused) {
    const KeyInfo good = login_of(key);
    const KeyInfo other = login_of(RsaKey::of_1024_bits());
    const auto with = [&](auto change) {
        KeyInfo info = good;
        change(info);
        return info;
    };
    const RsaKey large(3072);
    constexpr uint32_t bad_package = QELSERV_BAD_PACKAGE, bad_argument = QELSERV_BAD_ARGUMENT;
    const struct {
        const char *reason;
        KeyInfo info;
        uint32_t status;
    } rows[] = {
        {"no package", with([](KeyInfo &i) { i.package = {}; }), bad_package},
        {"a spoiled signature", with([](KeyInfo &i) { i.package.back() ^= 1; }), bad_package},
        {"a key that takes long",
         with([&](KeyInfo &i) { i.package = test_key_package(large).encoding(); }), bad_package},
        {"another's private key", with([&](KeyInfo &i) { i.private_key = other.private_key; }),
         QELSERV_BAD_KEY},
        {"a cut private key", with([](KeyInfo &i) { i.private_key.pop_back(); }), QELSERV_BAD_KEY},
        {"no private key, and no entry", with([](KeyInfo &i) { i.private_key = {}; }),
         QELSERV_NOT_LOGGED_IN},
        {"no identifier", with([](KeyInfo &i) { i.id = ""; }), bad_argument},
        {"a life-time below zero", with([](KeyInfo &i) { i.flags = 0x80000000; }), bad_argument},
        {"no usage", with([](KeyInfo &i) { i.usage = 0; }), bad_argument},
        {"a usage that the package forbids",
         with([&](KeyInfo &i) { i.package = login_of(key, 4).package, i.usage = 2; }),
         QELSERV_USAGE},
        {"all right", good, QELSERV_OK},
        {"another key on the same name, without private key",
         with([&](KeyInfo &i) { i.package = other.package, i.private_key = {}; }), QELSERV_BAD_KEY},
    };
    for (const auto &row : rows)
        EXPECT_EQ(set(alice, row.info), row.status) << row.reason;
}

TEST_F(Server, OnlyDigestsAreSignedAndOnlyWithRsa) {
    ASSERT_EQ(set(alice, login_of(key)), 0U);
    constexpr uint32_t bad = QELSERV_BAD_ARGUMENT;
    const auto sign_call = [](const Bytes &data) { return crypt_call(QELSERV_SIGN, data); };
    const auto info = [](const char *digits, std::size_t size) {
        return from_hex(digits) + Bytes(size);
    };
    const struct {
        const char *reason;
        Call call;
        uint32_t status;
    } rows[] = {
        {"a digest", sign_call(md2_digest_info(Bytes(16))), QELSERV_OK},
        {"nothing", sign_call({}), bad},
        {"bytes of another's choice", sign_call(Bytes(32, 1)), bad},
        {"a digest whose algorithm lacks its parameters",
         sign_call(info("301e300a06082a864886f70d02050410", 16)), bad},
        {"a digest of 15 bytes", sign_call(info("301f300c06082a864886f70d02050500040f", 15)), bad},
        {"a digest with a byte behind it", sign_call(digest_info + Bytes{0}), bad},
        {"another digest's algorithm", sign_call(info("3021300906052b0e03021a05000414", 20)), bad},
        {"another algorithm",
         crypt_call(QELSERV_SIGN, digest_info, "me", from_hex("300d06092a864886f70d0101040500")),
         bad},
        {"no algorithm", crypt_call(QELSERV_SIGN, digest_info, "me", {}), bad},
        {"another key's identifier", crypt_call(QELSERV_SIGN, digest_info, "you"),
         QELSERV_NOT_LOGGED_IN},
        {"nothing to open", crypt_call(QELSERV_DECRYPT, {}), bad},
        {"a block that does not open", crypt_call(QELSERV_DECRYPT, Bytes(64, 1)), QELSERV_FAILED},
        {"more than fits", crypt_call(QELSERV_ENCRYPT, Bytes(54, 1)), QELSERV_FAILED},
    };
    for (const auto &row : rows)
        EXPECT_EQ(ask(alice, row.call).first_status(), row.status) << row.reason;
}

TEST_F(Server, UsageHoldsAndOnlyTheKeyItselfWidensIt) {
    const struct {
        const char *reason;
        uint8_t package;
        uint32_t asked;
        uint32_t sign, decrypt;
    } rows[] = {
        {"both", 1, 1, QELSERV_OK, QELSERV_OK},
        {"a package for both, a login for signing", 1, 2, QELSERV_OK, QELSERV_USAGE},
        {"a package for both, a login for decryption", 1, 4, QELSERV_USAGE, QELSERV_OK},
        {"a package for signing", 2, 2, QELSERV_OK, QELSERV_USAGE},
        {"a package for decryption", 4, 4, QELSERV_USAGE, QELSERV_OK},
    };
    const Call decrypt = crypt_call(QELSERV_DECRYPT, key.encrypt({1}));
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        KeyInfo login = login_of(key, row.package);
        login.usage = row.asked;
        ASSERT_EQ(set(alice, login), 0U);
        KeyInfo replay = login_of(key);
        replay.private_key = {};
        EXPECT_EQ(set(alice, replay), 0U) << "the package of the same key, for both";
        EXPECT_EQ(sign(alice), row.sign);
        EXPECT_EQ(ask(alice, decrypt).first_status(), row.decrypt);
        EXPECT_EQ(ask(alice, crypt_call(QELSERV_ENCRYPT, {1})).first_status(), row.decrypt);
        ASSERT_EQ(set(alice, {.uids = {alice}}), 0U);
    }
}

TEST_F(Server, LockedKeyComesBackWithItsPrivateKeyOnly) {
    const KeyInfo login = login_of(key);
    ASSERT_EQ(set(alice, login), 0U);
    EXPECT_EQ(set(alice, {.uids = {alice}, .flags = QELSERV_LOCK}), 0U);
    EXPECT_EQ(stat(alice), uint32_t{QELSERV_LOCKED});
    EXPECT_EQ(sign(alice), uint32_t{QELSERV_LOCKED});
    EXPECT_EQ(ask(alice, packages_call()).first_status(), 0U);
    KeyInfo without = login;
    without.private_key = {};
    EXPECT_EQ(set(alice, without), 0U);
    EXPECT_EQ(sign(alice), uint32_t{QELSERV_LOCKED});
    EXPECT_EQ(set(alice, login_of(RsaKey::of_1024_bits())), uint32_t{QELSERV_BAD_KEY});
    EXPECT_EQ(set(alice, login), 0U);
    EXPECT_EQ(sign(alice), 0U);
    EXPECT_EQ(set(alice, {.uids = {alice}, .flags = 3}), uint32_t{QELSERV_BAD_ARGUMENT});
    EXPECT_EQ(set(alice, {.uids = {alice}, .flags = QELSERV_WITHDRAW_ALL}), 0U);
    EXPECT_EQ(set(alice, {.uids = {alice}, .flags = QELSERV_LOCK}), uint32_t{QELSERV_NO_KEY});
}

TEST_F(Server, TimeOfAKeyEnds) {
    KeyInfo login = login_of(key);
    login.flags = 1;
    ASSERT_EQ(set(alice, login), 0U);
    login.id = std::string(100, 'x');
    ASSERT_EQ(set(alice, login), 0U);
    login.id = "second";
    login.flags = 60;
    ASSERT_EQ(set(alice, login), 0U);
    EXPECT_EQ(sign(alice), 0U);
    std::this_thread::sleep_for(std::chrono::milliseconds(1005));
    EXPECT_EQ(sign(alice), uint32_t{QELSERV_NOT_LOGGED_IN}) << "although nobody has tidied up";
    EXPECT_EQ(stat(alice, "me"), uint32_t{QELSERV_NOT_LOGGED_IN});
    EXPECT_EQ(stat(alice, "second"), 0U);
    fault::fail_always(fault::Call::allocate); // which the loop would not survive
    const auto next = service.expire();
    fault::clear(fault::Call::allocate);
    ASSERT_TRUE(next);
    EXPECT_GT(*next, BootClock::now() + std::chrono::seconds(55));
}

TEST_F(Server, LifetimesStayWithinTheServersLimits) {
    const struct {
        const char *reason;
        uint32_t usual, longest, asked, left;
    } rows[] = {
        {"no limit", 0, 0, 0, 0},
        {"the login's", 0, 0, 50, 50},
        {"the server's", 40, 0, 0, 40},
        {"the login's before the server's", 40, 0, 50, 50},
        {"no more than the longest", 0, 30, 50, 30},
        {"the longest where none is asked for", 0, 30, 0, 30},
        {"the longest time there is", 0, 0, INT32_MAX, INT32_MAX},
    };
    KeyInfo login = login_of(key);
    for (const auto &row : rows) {
        ServiceLimits limits;
        limits.default_lifetime = row.usual;
        limits.longest_lifetime = row.longest;
        service = Service(limits);
        login.flags = row.asked;
        ASSERT_EQ(set(alice, login), 0U);
        Reply state = ask(alice, stat_call());
        EXPECT_EQ(state.first_status(), 0U);
        state.text();
        state.text();
        EXPECT_EQ(state.word(), row.left) << row.reason;
    }
}

// ---- Users -------------------------------------------------------------------------------------

TEST_F(Server, NobodySeesUsesOrWithdrawsAnothersKey) {
    ASSERT_EQ(set(alice, login_of(key)), 0U);
    constexpr uint32_t none = QELSERV_NOT_LOGGED_IN, denied = QELSERV_DENIED;
    const struct {
        const char *reason;
        Call call;
        uint32_t another, super_user;
    } rows[] = {
        {"sign", crypt_call(QELSERV_SIGN, digest_info), none, none},
        {"decrypt", crypt_call(QELSERV_DECRYPT, key.encrypt({1})), none, none},
        {"encrypt", crypt_call(QELSERV_ENCRYPT, {1}), none, none},
        {"packages", packages_call("me"), none, none},
        {"state", stat_call(), none, none},
        {"state of a user", stat_call(alice), none, QELSERV_OK},
        {"list of a user", list_call(alice), denied, QELSERV_OK},
        {"list of everybody", list_call(UINT32_MAX), denied, QELSERV_OK},
    };
    for (const auto &row : rows) {
        for (const uid_t uid : {bob, nobody, root}) {
            for (const uint32_t claimed : {alice, root}) {
                Call call = row.call;
                call.credentials = claim_to_be(claimed);
                EXPECT_EQ(ask(uid, call).first_status(), uid == root ? row.super_user : row.another)
                    << row.reason << ", user " << uid;
            }
        }
    }
    for (const uint32_t how : {QELSERV_WITHDRAW, QELSERV_LOCK, QELSERV_WITHDRAW_ALL}) {
        for (const uid_t uid : {bob, nobody}) {
            EXPECT_EQ(set(uid, {.uids = {alice}, .flags = how}), denied);
            EXPECT_EQ(set(uid, {.uids = {uid, alice}, .flags = how}), denied) << "behind its own";
        }
    }
    EXPECT_EQ(sign(alice), 0U);
    EXPECT_EQ(set(bob, login_of(key)), 0U) << "the same names, for another user";
    EXPECT_EQ(set(bob, {.uids = {bob}, .flags = QELSERV_WITHDRAW_ALL}), 0U);
    EXPECT_EQ(sign(alice), 0U);
    EXPECT_EQ(set(root, {.uids = {bob, alice}}), 0U) << "root for anybody";
    EXPECT_EQ(sign(alice), none);
}

TEST_F(Server, EntriesHaveLimits) {
    ServiceLimits limits;
    limits.entries_per_user = 2;
    KeyInfo login = login_of(key);
    limits.bytes = 3 * login.package.size();
    service = Service(limits);
    const struct {
        const char *reason;
        uid_t uid;
        const char *id;
        uint32_t status;
    } rows[] = {
        {"first", alice, "1", QELSERV_OK},
        {"second", alice, "2", QELSERV_OK},
        {"one too many of a user", alice, "3", QELSERV_LIMIT},
        {"another user's", bob, "1", QELSERV_OK},
        {"one too many in all", bob, "2", QELSERV_LIMIT},
    };
    for (const auto &row : rows) {
        login.id = row.id;
        EXPECT_EQ(set(row.uid, login), row.status) << row.reason;
    }
}

// ---- Memory ------------------------------------------------------------------------------------

TEST_F(Server, NothingOfAKeyIsLeftInMemoryThatIsFreed) {
    const KeyInfo login = login_of(key);
    Bytes messages[] = {login.call().message(), crypt_call(QELSERV_SIGN, digest_info).message(),
                        crypt_call(QELSERV_DECRYPT, key.encrypt(Bytes(16, 0x77))).message()};
    SecretWatch watch;
    watch.add(key);
    watch.add("session key", Bytes(16, 0x77));
    watch.take_found(); // of what the test itself has freed
    for (Bytes &message : messages)
        ASSERT_FALSE(answer_call(&service, {alice, 1}, message).empty());
    EXPECT_EQ(watch.take_found(), std::set<std::string>()) << "in use";
    service = Service(ServiceLimits());
    EXPECT_EQ(watch.take_found(), std::set<std::string>()) << "at the end";
}

TEST_F(Server, EveryAllocationMayFail) {
    const KeyInfo login = login_of(key);
    ASSERT_EQ(set(alice, login), 0U);
    KeyInfo another = login;
    another.id = "another";
    for (const Call &call : {another.call(), crypt_call(QELSERV_SIGN, digest_info), stat_call(),
                             packages_call(), list_call(alice)}) {
        const Bytes good = call.message();
        fault::each_allocation([&] {
            Bytes message;
            try {
                message = good;
                answer_call(&service, {alice, 1}, message);
            } catch (const std::bad_alloc &) {
            }
        });
        EXPECT_EQ(sign(alice), 0U);
    }
    EXPECT_EQ(stat(alice, "another"), 0U);
}

} // namespace
