#include "registration.h"

#include <chrono>
#include <cstring>
#include <optional>
#include <sys/socket.h>
#include <sys/un.h>
#include <utility>
#include <vector>

#include <netconfig.h>
#include <rpc/rpcb_clnt.h>

#include <qel/qelserv.h>

#include "log.h"

namespace {

constexpr std::chrono::seconds between_looks{2};

// The loopback stream transports of the network configuration, for as long as it is open.
class Transports {
public:
    Transports() : configuration_(setnetconfig()) {
        while (netconfig *entry =
                   configuration_ != nullptr ? getnetconfig(configuration_) : nullptr) {
            if (std::strcmp(entry->nc_protofmly, NC_LOOPBACK) == 0 &&
                (entry->nc_semantics == NC_TPI_COTS || entry->nc_semantics == NC_TPI_COTS_ORD))
                entries_.push_back(entry);
        }
    }
    Transports(const Transports &) = delete;
    Transports &operator=(const Transports &) = delete;
    ~Transports() {
        if (configuration_ != nullptr)
            endnetconfig(configuration_);
    }
    const std::vector<netconfig *> &entries() const { return entries_; }

private:
    void *configuration_;
    std::vector<netconfig *> entries_;
};

struct Address {
    sockaddr_un socket = {};
    netbuf buffer = {};

    explicit Address(const std::string &path) {
        socket.sun_family = AF_UNIX;
        path.copy(socket.sun_path, sizeof socket.sun_path - 1);
        buffer = {sizeof socket, static_cast<unsigned>(SUN_LEN(&socket) + 1), &socket};
    }
};

bool is_registered(netconfig *transport, const std::string &path) {
    sockaddr_un found = {};
    netbuf buffer = {sizeof found, 0, &found};
    return rpcb_getaddr(QELSERV_PROG, QELSERV_VERS, transport, &buffer, "localhost") &&
           path == found.sun_path;
}

// Puts our registration in place of whatever was there, if it may.
bool set(netconfig *transport, const std::string &path) {
    Address address(path);
    rpcb_unset(QELSERV_PROG, QELSERV_VERS, transport);
    return rpcb_set(QELSERV_PROG, QELSERV_VERS, transport, &address.buffer);
}

bool ensure(const std::string &path) {
    const Transports transports;
    bool done = !transports.entries().empty();
    for (netconfig *transport : transports.entries())
        done = (is_registered(transport, path) || set(transport, path)) && done;
    return done;
}

void withdraw() {
    const Transports transports;
    for (netconfig *transport : transports.entries())
        rpcb_unset(QELSERV_PROG, QELSERV_VERS, transport);
}

} // namespace

Registration::Registration(std::string path, std::function<void()> when_done)
    : path_(std::move(path)), when_done_(std::move(when_done)), thread_([this] { keep(); }) {}

Registration::~Registration() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        end_ = true;
    }
    ended_.notify_one();
    thread_.join();
    withdraw();
}

void Registration::clear() {
    withdraw();
}

void Registration::keep() {
    std::optional<bool> known;
    do {
        const bool done = ensure(path_);
        if (done && when_done_)
            std::exchange(when_done_, nullptr)();
        if (done != known)
            log_notice(done ? "registered with rpcbind"
                            : "not registered: rpcbind is away or refuses");
        known = done;
    } while (!wait());
}

// True when it is time to end.
bool Registration::wait() {
    std::unique_lock<std::mutex> lock(mutex_);
    return ended_.wait_for(lock, between_looks, [this] { return end_; });
}
