// server_host.h: the key server's process on a private host (see scripts/sandbox), and calls to it.
#ifndef TESTS_SERVER_SERVER_HOST_H
#define TESTS_SERVER_SERVER_HOST_H

#include "peer.h"

#include "support/host.h"
#include "support/keypkg.h"
#include "tools/run.h"

#include <sys/stat.h>

namespace server_host {

using namespace std::chrono_literals;
using host::as_user;
using host::has_users;
using host::read_text;
using host::root;
using host::start_program;
using host::user;
using host::within;
using Clock = std::chrono::steady_clock;

constexpr const char *socket_path = "/run/qelserv/socket";
constexpr const char *log_path = "/run/qelserv.log";

class KeyServerProcess {
public:
    explicit KeyServerProcess(const std::vector<std::string> &options = {}) {
        RsaKey::of_512_bits(); // made here, all children have the same
        mkdir("/run/qelserv", 0755);
        std::vector<std::string> words = {QELSERV, "--verbose"};
        if (has_users()) {
            EXPECT_EQ(chown("/run/qelserv", user("qelserv"), root), 0);
        } else {
            words.insert(words.end(), {"--user", "root"});
        }
        if (!locks_memory())
            words.push_back("--no-memory-lock");
        words.insert(words.end(), options.begin(), options.end());
        pid_ = start_program(words, log_path);
        started_ = within(10s, [] { return holds(read_text(log_path), "started"); });
        EXPECT_TRUE(started_) << read_text(log_path);
    }
    ~KeyServerProcess() {
        if (pid_ > 0)
            end(SIGTERM);
    }
    KeyServerProcess(const KeyServerProcess &) = delete;
    KeyServerProcess &operator=(const KeyServerProcess &) = delete;

    // Sanitizers map more than can be locked.
    static bool locks_memory() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        return false;
#else
        return has_users();
#endif
    }
    pid_t pid() const {
        return pid_;
    }
    bool wait_until_registered() const {
        return within(10s, [] { return holds(read_text(log_path), "registered with rpcbind"); });
    }
    bool alive() const {
        return kill(pid_, 0) == 0 && waitpid(pid_, nullptr, WNOHANG) == 0;
    }
    int end(int signal) {
        int status = 0;
        const pid_t pid = std::exchange(pid_, 0);
        kill(pid, signal);
        waitpid(pid, &status, 0);
        return status;
    }

private:
    pid_t pid_ = 0;
    bool started_ = false;
};

inline KeyInfo login_info(uint8_t usage = 1) {
    KeyInfo info;
    info.private_key = RsaKey::of_512_bits().private_key_info();
    info.package = test_key_package(RsaKey::of_512_bits()).encoding();
    info.usage = usage;
    return info;
}

inline const Bytes digest_info = md5_digest_info(Bytes(16, 0x5a));

// The status of a call whose result begins with it, or stands in the first element; 200 without one.
inline int raw_status(const Call &call) {
    Peer peer(socket_path);
    peer.send(call.record());
    Reply reply = peer.receive();
    if (reply.none() || reply.accepted() != 0)
        return 200;
    return static_cast<int>(call.procedure == QELSERV_SETKEY ? reply.word() : reply.first_status());
}

} // namespace server_host

#endif
