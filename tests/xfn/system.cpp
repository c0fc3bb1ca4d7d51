// The naming service as a host's users meet it: database, fnsd, commands and a NIS domain on a private
// host, which this program is to run on: scripts/sandbox --naming BIN --nis example.org xfn_system
#include "naming.h"

#include "request.h"
#include "server/peer.h"
#include "support/host.h"

#include <algorithm>
#include <utility>

#if defined(__SANITIZE_ADDRESS__)
// libtirpc loses a few bytes at every query that libnsl makes.
extern "C" const char *__lsan_default_suppressions() {
    return "leak:libtirpc.so";
}
#endif

namespace {

using namespace std::chrono_literals;
using host::as_user;
using host::has_users;
using host::root;
using host::user;
using naming::Values;

constexpr const char *log_path = "/run/fnsd.log", *socket_path = "/run/fnsd/socket";
const std::string dn = "onc_distinguished_name", certificates = "onc_certificates";

Values code(unsigned status) {
    return {"status " + std::to_string(status)};
}

// The store of the host, through the installed configuration.
struct Host : naming::Store {
    explicit Host(unsigned back_end = FN_NS_FILES) {
        naming::Status status;
        initial.reset(fn_ctx_handle_from_initial_with_ns(back_end, 1, status));
        EXPECT_EQ(status.code(), unsigned{FN_SUCCESS});
    }
};

int run(const std::string &command) {
    return WEXITSTATUS(std::system(command.c_str()));
}

class Fnsd {
public:
    Fnsd() {
        std::vector<std::string> words = {"fnsd", "--verbose"};
        if (!has_users())
            words.insert(words.end(), {"--user", "root"});
        pid_ = host::start_program(words, log_path);
        EXPECT_TRUE(host::within(10s, [] {
            return host::read_text(log_path).find("started") != std::string::npos;
        })) << host::read_text(log_path);
    }
    ~Fnsd() {
        if (pid_ > 0)
            end(SIGTERM);
    }
    Fnsd(const Fnsd &) = delete;
    Fnsd &operator=(const Fnsd &) = delete;

    int end(int signal) {
        const pid_t pid = std::exchange(pid_, 0);
        kill(pid, signal);
        return host::exit_of(pid);
    }
    bool alive() const { return waitpid(pid_, nullptr, WNOHANG) == 0; }

private:
    pid_t pid_ = 0;
};

class Naming : public testing::Test {
protected:
    // The daemon of the sandbox makes room for the tests' own.
    static void SetUpTestSuite() {
        const std::string pid = host::read_text("/run/fnsd.pid");
        if (pid.empty())
            return;
        kill(std::stoi(pid), SIGTERM);
        unlink("/run/fnsd.pid");
        EXPECT_TRUE(host::within(10s, [] { return access(socket_path, F_OK) != 0; }));
    }
    void SetUp() override {
        for (const char *name : {"user/root", "user/alice", "user/bob", "host/h", ".../C=US"})
            Host().destroy(name);
    }
};

int write_as(uid_t uid, const std::string &name, const Values &values,
             const std::string &id = certificates) {
    return as_user(uid, [&] {
        const Host store;
        const auto made = static_cast<int>(store.create(name));
        return made == FN_SUCCESS || made == FN_E_NAME_IN_USE
                   ? static_cast<int>(store.write(name, id, values))
                   : made;
    });
}

TEST_F(Naming, EverybodyReadsAndChangesTheOwnEntry) {
    const Fnsd daemon;
    const uid_t alice = user("alice"), bob = user("bob");
    const struct {
        const char *why;
        uid_t uid;
        const char *name;
        int status;
        bool needs_users = true;
    } rows[] = {
        {"root", root, "user/root", FN_SUCCESS, false},
        {"a host, by root", root, "host/h", FN_SUCCESS, false},
        {"alice", alice, "user/alice", FN_SUCCESS},
        {"bob", bob, "user/bob", FN_SUCCESS},
        {"alice changes bob", alice, "user/bob", FN_E_CTX_NO_PERMISSION},
        {"bob changes alice", bob, "user/alice", FN_E_CTX_NO_PERMISSION},
        {"alice changes root", alice, "user/root", FN_E_CTX_NO_PERMISSION},
        {"alice changes a host", alice, "host/h", FN_E_CTX_NO_PERMISSION},
        {"alice makes a host", alice, "host/alice", FN_E_CTX_NO_PERMISSION},
        {"root changes bob", root, "user/bob", FN_SUCCESS},
    };
    for (const auto &row : rows)
        if (has_users() || !row.needs_users) {
            EXPECT_EQ(write_as(row.uid, row.name, {row.why}), row.status) << row.why;
        }
    const auto reads = [](const char *name, const char *value) {
        return Host().get(name, certificates) == Values{value};
    };
    for (const uid_t reader : {alice, bob, root}) {
        EXPECT_EQ(as_user(reader, [&] { return reads("host/h", "a host, by root"); }), 1);
        if (!has_users())
            continue;
        EXPECT_EQ(as_user(reader, [&] { return reads("user/alice", "alice"); }), 1);
        EXPECT_EQ(as_user(reader, [&] { return reads("user/bob", "root changes bob"); }), 1);
    }
    if (has_users()) {
        const auto destroy = [](const char *name) {
            return [=] { return static_cast<int>(Host().destroy(name)); };
        };
        EXPECT_EQ(as_user(alice, destroy("user/bob")), FN_E_CTX_NO_PERMISSION);
        EXPECT_EQ(as_user(alice, destroy("user/alice")), FN_SUCCESS);
        EXPECT_NE(host::read_text(log_path).find("refused"), std::string::npos);
    }
}

TEST_F(Naming, OthersWaitForFnsdAndRootDoesNot) {
    if (!has_users())
        GTEST_SKIP() << "there is one user";
    const uid_t alice = user("alice");
    EXPECT_EQ(write_as(alice, "user/alice", {"a"}), FN_E_CTX_NO_PERMISSION);
    EXPECT_EQ(write_as(root, "user/alice", {"by root"}), FN_SUCCESS);
    EXPECT_EQ(
        as_user(alice,
                [] { return Host().get("user/alice", certificates) == Values{"by root"} ? 0 : 1; }),
        0);
    {
        Fnsd daemon;
        EXPECT_EQ(write_as(alice, "user/alice", {"b"}), FN_SUCCESS);
        EXPECT_EQ(daemon.end(SIGKILL), 1000 + SIGKILL);
    }
    EXPECT_EQ(write_as(alice, "user/alice", {"c"}), FN_E_CTX_NO_PERMISSION);
    Fnsd daemon;
    EXPECT_EQ(write_as(alice, "user/alice", {"d"}), FN_SUCCESS);
    EXPECT_EQ(Host().get("user/alice", certificates), Values{"d"});
    EXPECT_EQ(daemon.end(SIGTERM), 0);
    EXPECT_NE(access(socket_path, F_OK), 0);
}

// What was said to be done is there, and nothing is half there.
TEST_F(Naming, ChangesSurviveADaemonThatIsKilled) {
    if (!has_users())
        GTEST_SKIP() << "there is one user";
    int pipes[2];
    ASSERT_EQ(pipe(pipes), 0);
    for (int round = 0; round < 5; ++round) {
        Fnsd daemon;
        const pid_t writer = host::start_as(user("alice"), [&] {
            const Host store;
            store.create("user/alice");
            for (char number = 0;; ++number) {
                const std::string half(3000, static_cast<char>('a' + number % 26));
                if (store.write("user/alice", certificates, {half, half + "2"}) != FN_SUCCESS)
                    return 0;
                if (write(pipes[1], &half[0], 1) != 1)
                    return 1;
            }
        });
        std::this_thread::sleep_for(100ms + round * 17ms);
        daemon.end(SIGKILL);
        EXPECT_EQ(host::exit_of(writer), 0);
        char acknowledged[4096] = {};
        const ssize_t count = read(pipes[0], acknowledged, sizeof acknowledged);
        ASSERT_GT(count, 0);
        const char last = acknowledged[count - 1];
        const Values found = Host().get("user/alice", certificates);
        ASSERT_EQ(found.size(), 2u);
        EXPECT_EQ(found[1], found[0] + "2");
        const char next = last == 'z' ? 'a' : static_cast<char>(last + 1);
        EXPECT_TRUE(found[0][0] == last || found[0][0] == next) << found[0][0] << last;
    }
    close(pipes[0]);
    close(pipes[1]);
}

TEST_F(Naming, AnImpostorIsToldNothing) {
    if (!has_users())
        GTEST_SKIP() << "there is one user";
    unlink(socket_path); // of a daemon that was killed
    ASSERT_EQ(chmod("/run/fnsd", 0777), 0);
    const pid_t impostor = host::start_as(user("bob"), [] {
        const int listener = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address = {AF_UNIX, {}};
        std::strcpy(address.sun_path, socket_path);
        if (bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
            chmod(socket_path, 0666) != 0 || listen(listener, 5) != 0)
            return 1;
        char byte = 0;
        return recv(accept(listener, nullptr, nullptr), &byte, 1, 0) == 0 ? 0 : 2;
    });
    ASSERT_TRUE(host::within(5s, [] { return access(socket_path, W_OK) == 0; }));
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(write_as(user("alice"), "user/alice", {"a"}), FN_E_COMMUNICATION_FAILURE);
    EXPECT_EQ(host::exit_of(impostor), 0);
    unlink(socket_path);
    ASSERT_EQ(chmod("/run/fnsd", 0755), 0);
}

Bytes record_of(const xfn::Request &request) {
    const xfn::Message message = encode_request(request);
    return {message.bytes.get(), message.bytes.get() + message.size};
}

TEST_F(Naming, BadClientsHarmNobody) {
    Fnsd daemon;
    const uid_t alice = user("alice"), bob = user("bob");
    const auto own = [] {
        return record_of({xfn::RequestKind::create,
                          "sqlite:/var/fn/dsv_org.db",
                          {xfn::Area::users, has_users() ? "alice" : "root"}});
    };
    const pid_t bad = host::start_as(alice, [&] {
        Peer garbage(socket_path), greedy(socket_path), gone(socket_path);
        garbage.send(from_hex("80000008 00000001 00000001"));
        greedy.send(from_hex("ffffffff"));
        if (!garbage.is_closed_within(5s) || !greedy.is_closed_within(5s))
            return 1;
        gone.send(own());
        { const Peer closed = std::move(gone); }
        std::vector<Peer> stalled; // as many as one user may have
        for (int i = 0; i < 16; ++i) {
            stalled.emplace_back(socket_path);
            stalled.back().send(from_hex("80000100 0000"));
        }
        Peer one_more(socket_path);
        one_more.send(own());
        if (!one_more.receive().none())
            return 2;
        raise(SIGSTOP);
        return 0;
    });
    int status = 0;
    ASSERT_EQ(waitpid(bad, &status, WUNTRACED), bad);
    ASSERT_TRUE(WIFSTOPPED(status)) << WEXITSTATUS(status);
    EXPECT_EQ(write_as(bob, has_users() ? "user/bob" : "user/root", {"b"}), FN_SUCCESS);
    kill(bad, SIGCONT);
    EXPECT_EQ(host::exit_of(bad), 0);
    if (has_users()) {
        EXPECT_EQ(write_as(alice, "user/alice", {"a"}), FN_SUCCESS);
    }
    EXPECT_TRUE(daemon.alive());
}

TEST_F(Naming, Commands) {
    const std::string as_alice = "setpriv --reuid=alice --regid=alice --clear-groups ",
                      create = "ctxcreate -t org -o org//";
    const struct {
        std::string command;
        int status;
        bool needs_users = false;
    } rows[] = {
        {"rm /var/fn/* && " + create, 0},
        {create, 0},
        {"test -e /var/fn/dsv_org.ctx.dir", 0},
        {"rm /var/fn/dsv_org.db-wal /var/fn/dsv_org.db-shm && " + create, 0},
        {as_alice + create, 9, true},
        {"ctxcreate", 2},
        {"ctxcreate -t printer x", 2},
        {"ctxcreate -t org -o elsewhere//", 2},
        {"ctxcreate -t user", 2},
        {"ctxcreate -t host h && ctxcreate -t host h", 0},
        {as_alice + "ctxcreate -t user bob", 9, true},
        {"ctxcreate --help && ctxselect --help && ctxexport --help && fnsd --help", 0},
        {"ctxcreate --version >/dev/full", 7},
        {"test $(ctxselect) = files", 0},
        {"echo 'files sqlite:/var/fn/dsv_org.db # ours' >/etc/fn.conf && umask 077 && "
         "ctxselect nis",
         0},
        {"test $(ctxselect) = nis && grep -q ours /etc/fn.conf && "
         "test $(stat -c %a /etc/fn.conf) = 644",
         0},
        {create, 8},
        {"ctxselect files && ctxselect nis && ctxselect files && "
         "grep -c default /etc/fn.conf | grep -qx 1",
         0},
        {"ctxselect nis 2>&1 | grep -q \"line 'files nis:'\"", 0},
        {"echo 'files nis:' >/etc/fn.conf && ! ctxselect nis 2>&1 | grep .", 0},
        {as_alice + "ctxselect nis", 9, true},
        {"ctxselect ldap", 2},
        {"echo nonsense >/etc/fn.conf; ctxselect", 3},
        {"ctxselect nis", 3},
        {"ctxcreate -t user x", 3},
        {"rm /etc/fn.conf", 0},
        {"ls -a /etc | grep -c 'fn.conf.' | grep -qx 0", 0},
    };
    for (const auto &row : rows)
        if (has_users() || !row.needs_users) {
            EXPECT_EQ(run("( " + row.command + " ) >/dev/null 2>&1"), row.status) << row.command;
        }
    if (has_users()) {
        struct stat file = {};
        for (const char *end : {"", "-wal", "-shm"}) {
            ASSERT_EQ(stat((std::string("/var/fn/dsv_org.db") + end).c_str(), &file), 0) << end;
            EXPECT_EQ(file.st_uid, user("fnsd")) << end;
            EXPECT_EQ(file.st_mode & 07777, 0644u) << end;
        }
        ASSERT_EQ(stat("/var/fn", &file), 0);
        EXPECT_EQ(file.st_uid, root);
    }
}

// ---- NIS ------------------------------------------------------------------------------------------

TEST_F(Naming, WhatIsInTheDatabaseIsPublishedInTheDomain) {
    const Host files;
    std::string all_bytes;
    for (int byte = 0; byte < 256; ++byte)
        all_bytes += static_cast<char>(byte);
    const std::string long_name(3000, 'x');
    const Values names = {"user/root",
                          "host/h",
                          ".../C=US",
                          "host/a b+c%2f\xc3\xa4",
                          "host/*",
                          ".../" + long_name + "1",
                          ".../" + long_name + "2"};
    for (const std::string &name : names) {
        if (name[0] != '.') {
            ASSERT_EQ(files.create(name), unsigned{FN_SUCCESS}) << name;
        }
        ASSERT_EQ(files.write(name, dn, {"CN=" + name + ", O=Acme", "O=Acme"}),
                  unsigned{FN_SUCCESS});
        ASSERT_EQ(files.write(name, certificates, {std::string(20000, 'c') + name, all_bytes, ""}),
                  unsigned{FN_SUCCESS});
        ASSERT_EQ(files.write(name, "an id/with +signs", {name}), unsigned{FN_SUCCESS});
    }
    for (int i = 0; i < 200; ++i)
        ASSERT_EQ(files.create("host/many" + std::to_string(i)), unsigned{FN_SUCCESS});
    ASSERT_EQ(run("publish-naming"), 0);

    const Host nis(FN_NS_NIS);
    const auto sorted = [](Values values) {
        std::sort(values.begin(), values.end());
        return values;
    };
    for (const char *context : {"user", "host"})
        EXPECT_EQ(sorted(nis.list(context)), sorted(files.list(context))) << context;
    for (const std::string &name : names) {
        for (const std::string &id : {dn, certificates, std::string("an id/with +signs")})
            EXPECT_EQ(nis.get(name, id), files.get(name, id)) << name << id;
        EXPECT_EQ(nis.get(name, "other"), code(FN_E_NO_SUCH_ATTRIBUTE));
    }
    EXPECT_EQ(nis.get("user/nobody", dn), code(FN_E_NAME_NOT_FOUND));
    EXPECT_EQ(nis.lookup("host/many199"), unsigned{FN_SUCCESS});
    EXPECT_EQ(nis.lookup("host/many200"), unsigned{FN_E_NAME_NOT_FOUND});

    EXPECT_EQ(nis.search("user", {{dn, {"CN=user/root, O=Acme"}}}), Values{"root"});
    EXPECT_EQ(nis.search("host", {{dn, {"CN=user/root, O=Acme"}}}), Values{});
    EXPECT_EQ(sorted(nis.search("host", {{dn, {"O=Acme"}}})),
              sorted({"h", "a b+c%2f\xc3\xa4", "*"}));
    EXPECT_EQ(nis.search("host",
                         {{dn, {"O=Acme"}}, {certificates, {std::string(20000, 'c') + "host/h"}}}),
              Values{"h"});
    EXPECT_EQ(sorted(nis.search("host", {{certificates, {}}})),
              sorted({"h", "a b+c%2f\xc3\xa4", "*"}));

    EXPECT_EQ(nis.write("user/root", dn, {"CN=x"}), unsigned{FN_E_OPERATION_NOT_SUPPORTED});
    EXPECT_EQ(nis.create("user/x"), unsigned{FN_E_OPERATION_NOT_SUPPORTED});
    EXPECT_EQ(nis.destroy("user/root"), unsigned{FN_E_OPERATION_NOT_SUPPORTED});
    for (const std::string &name : files.list("host"))
        files.destroy("host/" + name);
}

TEST_F(Naming, AMapInPiecesIsNotBelieved) {
    const Host files;
    ASSERT_EQ(files.create("user/root"), unsigned{FN_SUCCESS});
    ASSERT_EQ(files.write("user/root", certificates, {std::string(2000, 'c')}),
              unsigned{FN_SUCCESS});
    ASSERT_EQ(run("publish-naming"), 0);
    const Host nis(FN_NS_NIS);
    const struct {
        const char *why, *edit;
    } rows[] = {
        {"a part of another text", "s/^\\(au.*+1 ....\\)./\\1-/"},
        {"a part that is missing", "/^au.*+2 /d"},
        {"a number of parts that is none", "s/^\\(au[^+]* [0-9a-f]*\\),[0-9]*,/\\1,x,/"},
        {"too many parts", "s/^\\(au[^+]* [0-9a-f]*\\),[0-9]*,/\\1,99999999999,/"},
    };
    for (const auto &row : rows) {
        const std::string edit =
            std::string("cd /var/yp/$(domainname) && sed '") + row.edit +
            "' /run/dsv_org.text >/run/edited && ! cmp -s /run/edited /run/dsv_org.text && "
            "makedbm /run/edited dsv_org.ctx.new && mv dsv_org.ctx.new dsv_org.ctx && makedbm -c";
        ASSERT_EQ(run(edit), 0) << row.why;
        EXPECT_EQ(nis.get("user/root", certificates), code(FN_E_CTX_UNAVAILABLE)) << row.why;
    }
    ASSERT_EQ(run("rm /var/yp/$(domainname)/dsv_org.ctx && makedbm -c"), 0);
    EXPECT_EQ(nis.lookup("user/root"), unsigned{FN_E_CTX_UNAVAILABLE});
    ASSERT_EQ(run("publish-naming"), 0);
    EXPECT_EQ(nis.get("user/root", certificates), Values{std::string(2000, 'c')});
}

} // namespace
