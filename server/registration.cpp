#include "registration.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

#include <netconfig.h>
#include <rpc/rpcb_clnt.h>

#include <qel/qelserv.h>

#include "hardening.h"
#include "log.h"

namespace {

constexpr std::chrono::milliseconds between_looks{2000};
constexpr timeval patience = {5, 0}; // for the withdrawal
constexpr int channel_of_process = STDERR_FILENO + 1;
constexpr const char *root_as_owner = "superuser";

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

// All that rpcbind maps.
class Rows {
public:
    explicit Rows(const netconfig *transport) : list_(rpcb_getmaps(transport, "localhost")) {}
    Rows(const Rows &) = delete;
    Rows &operator=(const Rows &) = delete;
    ~Rows() { xdr_free(reinterpret_cast<xdrproc_t>(xdr_rpcblist_ptr), &list_); }

    const rpcb *ours(const netconfig *transport) const {
        for (const rpcblist *at = list_; at != nullptr; at = at->rpcb_next) {
            const rpcb &row = at->rpcb_map;
            if (row.r_prog == QELSERV_PROG && row.r_vers == QELSERV_VERS &&
                std::strcmp(row.r_netid, transport->nc_netid) == 0)
                return &row;
        }
        return nullptr;
    }

private:
    rpcblist *list_;
};

// Whom rpcbind says a row of this process belongs to.
std::string own_name() {
    return geteuid() == 0 ? root_as_owner : std::to_string(geteuid());
}

bool is_own(const rpcb &row, const std::string &path) {
    return row.r_owner == own_name() && row.r_addr == path;
}

// Has the program registered under one transport. Returns an empty text, or what stands in the way.
std::string ensure(const Rows &rows, netconfig *transport, const std::string &path) {
    const rpcb *present = rows.ours(transport);
    if (present != nullptr && is_own(*present, path))
        return {};
    Address address(path);
    rpcb_unset(QELSERV_PROG, QELSERV_VERS, transport);
    const bool done = rpcb_set(QELSERV_PROG, QELSERV_VERS, transport, &address.buffer);
    if (present == nullptr || present->r_owner == own_name())
        return done ? "" : "rpcbind is away or refuses";
    if (!done)
        return std::string("it is registered by another user (") + present->r_owner + ")";
    log_error("took the place of what another user (%s) had registered", present->r_owner);
    return {};
}

std::string ensure_all(const std::string &path) {
    const Transports transports;
    if (transports.entries().empty())
        return "there is no loopback stream transport in the network configuration";
    const Rows rows(transports.entries().front());
    std::string obstacle;
    for (netconfig *transport : transports.entries()) {
        const std::string found = ensure(rows, transport, path);
        obstacle = obstacle.empty() ? found : obstacle;
    }
    return obstacle;
}

void withdraw(const std::string &path) {
    const Transports transports;
    if (transports.entries().empty())
        return;
    const Rows rows(transports.entries().front());
    for (netconfig *transport : transports.entries()) {
        const rpcb *present = rows.ours(transport);
        if (present != nullptr && is_own(*present, path))
            rpcb_unset(QELSERV_PROG, QELSERV_VERS, transport);
    }
}

// Waits for a word of the server's until the next look. None: it is time to look.
std::optional<bool> told_to_withdraw() {
    pollfd server = {channel_of_process, POLLIN, 0};
    if (poll(&server, 1, static_cast<int>(between_looks.count())) <= 0)
        return std::nullopt;
    char word = 0;
    return read(channel_of_process, &word, 1) == 1;
}

void keep_registered(const std::string &path) {
    std::optional<std::string> known;
    bool told = false;
    for (;;) {
        const std::string obstacle = ensure_all(path);
        if (obstacle != known)
            obstacle.empty() ? log_notice("registered with rpcbind")
                             : log_error("not registered: %s", obstacle.c_str());
        known = obstacle;
        if (obstacle.empty() && !told)
            told = send(channel_of_process, "", 1, MSG_NOSIGNAL) == 1;
        if (const std::optional<bool> end = told_to_withdraw()) {
            if (*end)
                withdraw(path);
            return;
        }
    }
}

// The process: of the server's descriptors it keeps none but the standard ones, lest a client be
// connected to a server that is gone.
[[noreturn]] void run_process(const std::string &path, int channel) {
    try {
        if (dup2(channel, channel_of_process) < 0)
            throw std::system_error(errno, std::generic_category(), "dup2");
        close_range(channel_of_process + 1, ~0U, 0);
        reopen_log();
        drop_capabilities();
        keep_registered(path);
        _exit(0);
    } catch (const std::exception &error) {
        log_error("registration ended: %s", error.what());
        _exit(1);
    }
}

} // namespace

Registration::Registration(const std::string &path) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        throw std::system_error(errno, std::generic_category(), "socketpair");
    channel_ = Descriptor(ends[0]);
    const Descriptor other(ends[1]);
    process_ = fork();
    if (process_ < 0)
        throw std::system_error(errno, std::generic_category(), "fork");
    if (process_ == 0)
        run_process(path, other.get());
}

Registration::~Registration() {
    send(fd(), "", 1, MSG_NOSIGNAL);
    setsockopt(fd(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    char word = 0;
    ssize_t count = 1;
    while (count > 0)
        count = recv(fd(), &word, 1, 0);
    const bool ended = count == 0 || errno == ECONNRESET;
    waitpid(process_, nullptr, ended ? 0 : WNOHANG);
}

Registration::News Registration::news() {
    char word = 0;
    const ssize_t count = recv(fd(), &word, 1, MSG_DONTWAIT);
    if (count > 0)
        return News::registered;
    return count < 0 && (errno == EAGAIN || errno == EINTR) ? News::none : News::lost;
}
