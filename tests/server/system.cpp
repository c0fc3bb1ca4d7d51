// The key server as its users meet it: the daemon, rpcbind and the commands on a private host (see
// scripts/sandbox), which this program is to run on.
#include "server_host.h"

#include <qel/qelp.h>
#include <qellogin/session.h>

#include <functional>
#include <pwd.h>
#include <thread>

#include <rpc/rpcb_clnt.h>

namespace {

using namespace server_host;

constexpr uid_t nobody = 65534;

Ran qel_as(uid_t uid, std::vector<std::string> words, const How &how = {}) {
    words.insert(words.begin(), QEL_COMMAND);
    if (uid != root) {
        const std::string id = std::to_string(uid);
        const std::vector<std::string> before = {"setpriv", "--reuid=" + id, "--regid=" + id,
                                                 "--clear-groups"};
        words.insert(words.begin(), before.begin(), before.end());
    }
    return run_program(words, how);
}

// As the sandbox starts it: where there is one user only, without the change of groups.
pid_t start_rpcbind() {
    std::vector<std::string> words = {"rpcbind", "-f"};
    if (!has_users())
        words.insert(words.begin(), {"env", "LD_PRELOAD=/run/setgroups.so"});
    return start_program(words, "/run/rpcbind.log");
}

bool is_registered() {
    return run_program({"rpcinfo", "-T", "local", "127.0.0.1", "100255", "1"}).exit == 0;
}

// ---- Commands ----------------------------------------------------------------------------------

// A user's home with a key package, and what the commands say there.
class Life : public testing::Test {
protected:
    const uid_t me = user("alice");
    const TemporaryFolder folder;
    const std::string home = std::string(getpwuid(me)->pw_dir) + "/";
    const std::string package = home + getpwuid(me)->pw_name + ".KEYPKG";

    std::string path(const std::string &name) const { return folder.path(name); }
    void SetUp() override {
        chmod(path("").c_str(), 0777);
        write_secret("phrase", "correct horse\n");
        write_secret("wrong", "correct house\n");
        write_file(path("message"), bytes_of("to be signed"));
        chmod(path("message").c_str(), 0644);
        if (access(package.c_str(), F_OK) != 0)
            expect(0, {"keygen", "--owner", "CN=Alice", "--iterations", "1000", "--passin",
                       phrase(), "--output", package});
        expect(0, {"keypkg", "export", "--public", "--output", path("public"), package});
    }
    void write_secret(const std::string &name, const std::string &text) {
        write_file(path(name), bytes_of(text));
        chmod(path(name).c_str(), 0600);
        EXPECT_EQ(chown(path(name).c_str(), me, me), 0);
    }
    std::string phrase(const char *name = "phrase") const { return "file:" + path(name); }
    std::vector<std::string> login() const { return {"login", "--passin", phrase()}; }
    Ran expect(int exit, const std::vector<std::string> &words, const char *told = "") const {
        const Ran ran = qel_as(me, words);
        EXPECT_EQ(ran.exit, exit) << words[0] << ": " << ran.out << ran.err;
        EXPECT_TRUE(holds(ran.out + ran.err, told)) << words[0] << ": " << ran.out << ran.err;
        return ran;
    }
};

TEST_F(Life, LoginSignUnwrapDecryptLogout) {
    const KeyServerProcess server;
    ASSERT_TRUE(server.wait_until_registered());
    const std::string signature = path("signature"), message = path("message");
    expect(4, {"status"}, "not logged in");
    expect(4, {"sign", message, "-o", signature}, "User has not done a qellogin");
    expect(6, {"login", "--passin", phrase("wrong")}, "the pass phrase is wrong");
    const Json entry =
        expect(0, {"login", "--json", "--lifetime", "8h", "--passin", phrase()}).json()["entry"];
    EXPECT_EQ(entry["seconds_left"], 8 * 3600);
    expect(1, login(), "logged in with it already");
    const Json told = expect(0, {"status", "--json"}).json();
    EXPECT_EQ(told["logged_in"], true);
    EXPECT_EQ(told["entries"].size(), 1U);
    EXPECT_EQ(told["entries"][0]["id"], "default_keyid");

    expect(0, {"sign", message, "-o", signature});
    expect(0, {"verify", "-k", path("public"), "-s", signature, message});
    expect(0, {"genkey", "des", "-o", path("session")});
    expect(0, {"wrap", "-t", path("public"), "-o", path("wrapped"), path("session")});
    expect(0, {"unwrap", "-o", path("unwrapped"), path("wrapped")});
    EXPECT_EQ(read_file(path("unwrapped")), read_file(path("session")));
    expect(0, {"encrypt", "-t", path("public"), "-o", path("enveloped"), message});
    expect(0, {"decrypt", "-o", path("decrypted"), path("enveloped")});
    EXPECT_EQ(read_file(path("decrypted")), read_file(message));
    expect(2, {"sign", "--passin", phrase(), message}, "'--passin' goes with '--key'");

    expect(0, {"lock"});
    expect(4, {"status"}, "locked");
    expect(4, {"sign", message, "-o", signature}, "locked");
    expect(0, login(), "unlocked");
    expect(0, {"sign", message, "-o", signature});
    expect(0, {"logout"});
    expect(4, {"logout"}, "User has not done a qellogin");
    expect(4, {"unwrap", "--force", "-o", path("unwrapped"), path("wrapped")},
           "User has not done a qellogin");

    expect(0, {"login", "--usage", "sign", "--passin", phrase()});
    expect(9, {"unwrap", "--force", "-o", path("unwrapped"), path("wrapped")}, "not decrypt");
    expect(0, {"logout", "--all"});
    expect(0, {"login", "--lifetime", "1", "--passin", phrase()});
    const auto begin = Clock::now();
    EXPECT_TRUE(within(3s, [&] { return qel_as(me, {"status"}).exit == 4; }));
    EXPECT_LT(Clock::now() - begin, 2s);
}

TEST_F(Life, MessagesAreVerifiedUpToTheKeysThatTheOwnPackageTrusts) {
    const KeyServerProcess server;
    ASSERT_TRUE(server.wait_until_registered());
    const std::string own = path("own.KEYPKG"), cert = path("own.pem"), signed_file = path("p7");
    write_secret("own.KEYPKG", text_of(read_file(package)));
    expect(0, {"login", "--passin", phrase(), own});
    expect(0, {"issue", "--self", "--log", path("log"), "--output", cert});
    expect(0, {"message", "sign", "--cert", cert, "--output", signed_file, path("message")});
    for (const char *form : {"--batch", "--json"})
        expect(1, {"message", "verify", form, signed_file},
               "the list of your key package is empty");
    expect(0, {"trust", "add", "--cert", cert, "--passin", phrase(), own});
    expect(0, {"logout"});
    expect(0, {"login", "--passin", phrase(), own});
    expect(0, {"message", "verify", signed_file}, "verified, signed by 'CN=Alice'");
    expect(0, {"logout"});
}

TEST_F(Life, WhatCannotBeLoggedInWithIsRefusedWithTheReason) {
    const KeyServerProcess server;
    ASSERT_TRUE(server.wait_until_registered());
    for (const char *bits : {"1024", "2048"}) {
        openssl({"genpkey", "-algorithm", "RSA", "-pkeyopt", std::string("rsa_keygen_bits:") + bits,
                 "-out", path(bits)});
        EXPECT_EQ(chown(path(bits).c_str(), me, me), 0);
        expect(0, {"keypkg", "import", path(bits), "--id", bits, "--owner", "CN=A", "--passin",
                   phrase(), "--iterations", "1000", "-o", path(std::string(bits) + ".KEYPKG")});
    }
    expect(3, {"login", "--passin", phrase("wrong"), path("2048.KEYPKG")},
           "too long for the key server, which takes 1024 bytes");
    expect(0, {"login", "--passin", phrase(), path("1024.KEYPKG")});
    expect(0, login());
    expect(0, {"sign", "--id", "1024", path("message"), "-o", path("large")});
    EXPECT_EQ(read_file(path("large")).size(), 128U);
    expect(0, {"sign", path("message"), "-o", path("small")}, "");
    EXPECT_EQ(read_file(path("small")).size(), 64U) << "the usual identifier needs no option";
    for (const char *time : {"0", "x", "1y", "-1", "3000000000", "99999999d", "8 h"})
        expect(2, {"login", "--lifetime", time}, "'--lifetime' takes");
    expect(2, {"login", "--host", "localhost"}, "IPv4 address");
    expect(0, {"logout", "--all"});
}

TEST_F(Life, ServerThatIsAwayIsToldAsSuch) {
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1); // the network configuration stays open
    const std::vector<std::vector<std::string>> commands = {
        {"status"}, {"status", "--json"},
        login(),    {"logout"},
        {"lock"},   {"sign", path("message"), "-o", path("signature")}};
    for (const auto &words : commands)
        expect(5, words, "cannot reach the key server");
    EXPECT_EQ(qel_as(me, {"status", "--json"}).json()["reachable"], false);
    {
        KeyServerProcess server;
        ASSERT_TRUE(server.wait_until_registered());
        expect(0, login());
        // Between a call and its answer.
        kill(server.pid(), SIGSTOP);
        const auto begin = Clock::now();
        std::thread killer([&] {
            std::this_thread::sleep_for(300ms);
            server.end(SIGKILL);
        });
        expect(5, {"sign", path("message"), "-o", path("signature")}, "the call failed");
        killer.join();
        EXPECT_LT(Clock::now() - begin, 5s);
        for (const auto &words : commands) // rpcbind still names it
            expect(5, words, "cannot reach the key server");
    }
    const KeyServerProcess next; // although the dead one has left its socket and its registration
    ASSERT_TRUE(next.wait_until_registered());
    expect(4, {"status"}, "not logged in");
}

sockaddr_un address_of(const std::string &path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

// For every loopback transport; whether rpcbind agreed.
bool for_transports(const std::function<bool(netconfig *)> &change) {
    void *configuration = setnetconfig();
    bool done = true;
    while (netconfig *entry = getnetconfig(configuration))
        if (std::string(entry->nc_protofmly) == NC_LOOPBACK)
            done = change(entry) && done;
    endnetconfig(configuration);
    return done;
}
bool register_at(const std::string &path) {
    sockaddr_un address = address_of(path);
    netbuf buffer = {sizeof address, sizeof address, &address};
    return for_transports([&](netconfig *transport) {
        return rpcb_set(QELSERV_PROG, QELSERV_VERS, transport, &buffer);
    });
}
bool withdraw_all() {
    return for_transports(
        [](netconfig *transport) { return rpcb_unset(QELSERV_PROG, QELSERV_VERS, transport); });
}

// The owners of the server's rows, one for each transport.
std::vector<std::string> owners() {
    netconfig *transport = getnetconfigent("local");
    rpcblist *list = rpcb_getmaps(transport, "localhost");
    std::vector<std::string> found;
    for (const rpcblist *at = list; at != nullptr; at = at->rpcb_next)
        if (at->rpcb_map.r_prog == QELSERV_PROG)
            found.push_back(at->rpcb_map.r_owner);
    xdr_free(reinterpret_cast<xdrproc_t>(xdr_rpcblist_ptr), &list);
    freenetconfigent(transport);
    return found;
}

const std::vector<std::string> of_root(2, "superuser");

// Listens in the server's place as a user and registers; whatever comes goes into a file.
class Impostor {
public:
    explicit Impostor(uid_t uid, const std::string &path) : heard_(path + ".heard") {
        process_ = fork();
        if (process_ == 0) {
            host::become_user(uid);
            const sockaddr_un address = address_of(path);
            const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
            bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address);
            chmod(path.c_str(), 0666);
            listen(listener, 10);
            register_at(path);
            const int heard = open(heard_.c_str(), O_WRONLY | O_CREAT, 0600);
            char byte;
            for (;;)
                if (recv(accept(listener, nullptr, nullptr), &byte, 1, 0) == 1 &&
                    write(heard, &byte, 1) != 1)
                    _exit(2);
        }
        EXPECT_TRUE(within(5s, [&] { return access(heard_.c_str(), F_OK) == 0; }));
    }
    ~Impostor() {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    std::string heard() const { return read_text(heard_); }

private:
    pid_t process_;
    std::string heard_;
};

TEST_F(Life, ImpostorHearsNothingAndKeepsNoRegistration) {
    if (!has_users())
        GTEST_SKIP() << "there is one user only";
    const uid_t bob = user("bob");
    withdraw_all(); // what the server before may have left
    const Impostor impostor(bob, "/home/bob/socket");
    chmod("/home/bob", 0711);
    ASSERT_EQ(owners(), std::vector<std::string>(2, std::to_string(bob)));
    expect(5, login(), "cannot reach the key server");
    expect(5, {"sign", path("message"), "-o", path("signature")}, "cannot reach the key server");
    expect(5, {"unwrap", "-o", path("key"), path("message")}, "cannot reach the key server");
    EXPECT_EQ(impostor.heard(), "");
    // Some other program of root's is no key server either.
    as_user(bob, [] { return withdraw_all() && register_at("/run/rpcbind.sock") ? 1 : 0; });
    expect(5, login(), "another user has registered what answers in its place");
    expect(5, {"unwrap", "-o", path("key"), path("message")}, "cannot trust the key server");
    KeyServerProcess server; // takes the place that is its own
    ASSERT_TRUE(server.wait_until_registered());
    EXPECT_TRUE(holds(read_text(log_path), "took the place of what another user"));
    EXPECT_EQ(owners(), of_root);
    expect(0, login());
    EXPECT_NE(as_user(bob, withdraw_all), 1);
    EXPECT_NE(as_user(user("qelserv"), withdraw_all), 1) << "nor its own user";
    EXPECT_EQ(owners(), of_root);
    // It comes first after rpcbind has started anew.
    withdraw_all();
    ASSERT_EQ(as_user(bob, [] { return register_at("/home/bob/socket") ? 1 : 0; }), 1);
    EXPECT_TRUE(within(5s, [] { return owners() == of_root; }));
    expect(0, {"status"});
    server.end(SIGKILL);
    EXPECT_EQ(owners(), of_root) << "nobody takes the place of a server that has crashed";
}

TEST_F(Life, ServerWithoutRightsSaysWhoseRegistrationStandsInItsWay) {
    if (!has_users())
        GTEST_SKIP() << "there is one user only";
    withdraw_all();
    mkdir("/run/qelserv", 0755);
    ASSERT_EQ(chown("/run/qelserv", user("qelserv"), root), 0);
    ASSERT_EQ(as_user(user("bob"), [] { return register_at("/home/bob/socket") ? 1 : 0; }), 1);
    const std::string id = std::to_string(user("qelserv"));
    const pid_t server = start_program({"setpriv", "--reuid=" + id, "--regid=" + id,
                                        "--clear-groups", QELSERV, "--verbose", "--no-memory-lock"},
                                       log_path);
    EXPECT_TRUE(within(10s, [] {
        return holds(read_text(log_path),
                     "not registered: it is registered by another user (60003)");
    })) << read_text(log_path);
    withdraw_all();
    EXPECT_TRUE(within(5s, [&] { return owners() == std::vector<std::string>(2, id); }));
    expect(4, {"status"}, "not logged in");
    kill(server, SIGTERM);
    waitpid(server, nullptr, 0);
    EXPECT_EQ(owners(), std::vector<std::string>());
}

TEST_F(Life, RegistrationFollowsRpcbind) {
    KeyServerProcess server;
    ASSERT_TRUE(server.wait_until_registered());
    expect(0, login());
    const pid_t first = std::stoi(read_text("/run/rpcbind.process"));
    kill(first, SIGKILL);
    EXPECT_TRUE(within(5s, [] { return !is_registered(); }));
    expect(5, {"status"}, "cannot reach the key server");
    const pid_t second = start_rpcbind();
    EXPECT_TRUE(within(6s, is_registered)) << read_text(log_path);
    expect(0, {"status"});
    EXPECT_EQ(server.end(SIGTERM), 0) << "a clean end";
    EXPECT_EQ(owners(), std::vector<std::string>()) << "withdrawn";
    EXPECT_NE(access(socket_path, F_OK), 0) << "the socket is gone";
    EXPECT_TRUE(holds(read_text(log_path), "stopped"));
    kill(second, SIGKILL);
    waitpid(second, nullptr, 0);
    const pid_t third = start_rpcbind();
    write_file("/run/rpcbind.process", bytes_of(std::to_string(third)));
    EXPECT_TRUE(within(5s, [] {
        return run_program({"rpcinfo", "-T", "local", "127.0.0.1", "100000"}).exit == 0;
    }));
}

// ---- Statuses ----------------------------------------------------------------------------------

// The library's side of a session, as the user who runs it.
struct Session {
    QelContext *context = nullptr;
    QelStatus opened;

    explicit Session(bool connected = true)
        : opened(connected ? qel_init(&context, "me", "0.0.0.0")
                           : __qel_init(&context, "me", "0.0.0.0")) {}
    ~Session() {
        if (context != nullptr)
            qel_end(context);
    }
    Session(const Session &) = delete;

    QelStatus stat() { return __qel_rpc_stat(context); }
    QelStatus fetch() {
        QelItemList *list = nullptr;
        uint32_t count = 0;
        const QelStatus status = __qel_get_qelserv_keypkg(context, nullptr, &list, &count);
        __qel_free_item_list(&list);
        return status;
    }
    QelStatus save(const Bytes &key, const Bytes &package) {
        return __qel_save_key_under_uid(context, nullptr, USAGE_SIGN_ENCRYPT, 0,
                                        key.empty() ? nullptr : key.data(),
                                        static_cast<uint32_t>(key.size()), nullptr, 0,
                                        package.data(), static_cast<uint32_t>(package.size()));
    }
    QelStatus log_in() {
        const KeyInfo info = login_info();
        return save(info.private_key, info.package);
    }
    QelStatus send_much() { return save({}, Bytes(QELSERV_MAX_KEYPKG)); }
    QelStatus use(decltype(rpc_sign) call, const Bytes &data) {
        uint8_t *result = nullptr;
        const auto length = static_cast<uint32_t>(data.size());
        uint32_t result_length = 0;
        const QelStatus status =
            call(context, data.data(), &length, QEL_RSA_ENCR_AID, &result, &result_length);
        free(result);
        return status;
    }
    QelStatus sign() { return use(rpc_sign, digest_info); }
    QelStatus unwrap() { return use(rpc_unwrap, RsaKey::of_512_bits().encrypt({1, 2, 3})); }
};

// What each call returns.
struct Statuses {
    QelStatus stat, fetch, log_in, send_much, sign, unwrap;
    bool operator==(const Statuses &) const = default;
};

// All calls at once, each on a connection of its own.
Statuses all_calls(
    bool connected, const std::function<void()> &between = [] {}) {
    const std::function<QelStatus(Session &)> calls[] = {&Session::stat,   &Session::fetch,
                                                         &Session::log_in, &Session::send_much,
                                                         &Session::sign,   &Session::unwrap};
    std::vector<std::unique_ptr<Session>> sessions;
    for (std::size_t i = 0; i < std::size(calls); ++i) {
        sessions.push_back(std::make_unique<Session>(connected));
        EXPECT_EQ(sessions.back()->opened, QEL_OK);
    }
    between();
    QelStatus found[std::size(calls)];
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < std::size(calls); ++i)
        threads.emplace_back([&, i] { found[i] = calls[i](*sessions[i]); });
    for (std::thread &thread : threads)
        thread.join();
    return {found[0], found[1], found[2], found[3], found[4], found[5]};
}

void PrintTo(const Statuses &s, std::ostream *out) {
    *out << s.stat << ' ' << s.fetch << ' ' << s.log_in << ' ' << s.send_much << ' ' << s.sign
         << ' ' << s.unwrap;
}

TEST(Statuses, ComeFromTheirRealCausesInTime) {
    withdraw_all();
    // In processes of their own: the network configuration stays open.
    EXPECT_EQ(as_user(root, [] { return static_cast<int>(Session().opened); }), QEL_ERR_GENERAL);
    const auto get_handle = [] {
        CLIENT *client = nullptr;
        return static_cast<int>(__qel_get_client_handle(&client));
    };
    EXPECT_EQ(as_user(root, get_handle), QEL_ERR_SERV_CONNECT) << "no server";
    KeyServerProcess server;
    ASSERT_TRUE(server.wait_until_registered());
    const Statuses without_connection = {28, 28, 19, 19, 28, 28};
    EXPECT_EQ(all_calls(false), without_connection);
    {
        Session session;
        EXPECT_EQ(session.stat(), QEL_ERR_NOT_LOGGED_IN);
        EXPECT_EQ(session.fetch(), QEL_ERR_NOT_LOGGED_IN);
        EXPECT_EQ(session.sign(), QEL_ERR_SERV_SIGN);
        EXPECT_EQ(session.unwrap(), QEL_ERR_SERV_DECRYPT);
        EXPECT_EQ(session.send_much(), QEL_ERR_LOGIN) << "refused";
        EXPECT_EQ(session.log_in(), QEL_OK);
        EXPECT_EQ(session.log_in(), QEL_ERR_ENTRY_EXISTS);
        EXPECT_EQ(session.stat() | session.fetch() | session.sign() | session.unwrap(), QEL_OK);
    }
    const Statuses out_of_reach = {52, 19, 21, 21, 26, 25};
    const auto begin = Clock::now();
    EXPECT_EQ(all_calls(true, [&] { kill(server.pid(), SIGSTOP); }), out_of_reach) << "it hangs";
    EXPECT_GT(Clock::now() - begin, 24s);
    EXPECT_LT(Clock::now() - begin, 27s);
    kill(server.pid(), SIGCONT);
    EXPECT_EQ(all_calls(true, [&] { server.end(SIGKILL); }), out_of_reach) << "it is gone";
}

// ---- Users -------------------------------------------------------------------------------------

// Who may do what is tried in service_test.cpp.
TEST(Users, KernelSaysWhoCallsWhateverTheMessageClaims) {
    if (!has_users())
        GTEST_SKIP() << "there is one user only";
    const KeyServerProcess server;
    const uid_t alice = user("alice"), bob = user("bob");
    ASSERT_EQ(as_user(alice, [] { return raw_status(login_info().call()); }), QELSERV_OK);
    constexpr int none = QELSERV_NOT_LOGGED_IN, denied = QELSERV_DENIED, good = QELSERV_OK;
    const struct {
        const char *reason;
        Call call;
        int owner, another, super_user;
    } rows[] = {
        {"state of the owner", stat_call(alice), good, none, good},
        {"list of everybody", list_call(UINT32_MAX), denied, denied, good},
        {"signature", crypt_call(QELSERV_SIGN, digest_info), good, none, none},
        {"withdrawal", KeyInfo{.uids = {alice}}.call(), good, denied, good},
    };
    const auto log_in_again = [&] {
        as_user(alice, [] { return raw_status(login_info().call()); });
    };
    for (const auto &row : rows) {
        for (const uint32_t claimed : {alice, bob, root}) {
            Call call = row.call;
            call.credentials = claim_to_be(claimed);
            const auto ask = [&] { return raw_status(call); };
            for (const auto &[caller, status] : {std::pair(bob, row.another),
                                                 {nobody, row.another},
                                                 {root, row.super_user},
                                                 {alice, row.owner}}) {
                EXPECT_EQ(as_user(caller, ask), status)
                    << row.reason << " by " << caller << " as " << claimed;
                log_in_again();
            }
        }
    }
}

} // namespace
