// remote_store.cpp: changes by way of fnsd, each a connection of its own. fnsd asks the kernel who calls,
// so that the actor is not looked at here.

#include "request.h"

#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using xfn::EntryName;
using xfn::Request;
using xfn::RequestKind;
using xfn::Store;

struct RemoteStore {
    Store store;    // first
    char *location; // of the store that is changed
};

RemoteStore *inside(Store *store) {
    return reinterpret_cast<RemoteStore *>(store);
}

// fnsd itself waits ten seconds for the database.
constexpr int64_t patience_ms = 15000;
constexpr int64_t retry_ms = 20;

int64_t now_ms() {
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1000000;
}

struct Socket {
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    int64_t end = now_ms() + patience_ms;

    Socket() = default;
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;
    ~Socket() {
        if (fd >= 0)
            close(fd);
    }

    // After a call that did not succeed: whether to try it again.
    bool wait(short events) const {
        if (errno == EINTR)
            return true;
        if (errno != EAGAIN && errno != EWOULDBLOCK)
            return false;
        pollfd state = {fd, events, 0};
        for (;;) {
            const int64_t left = end - now_ms();
            const int ready = left > 0 ? poll(&state, 1, static_cast<int>(left)) : 0;
            if (ready >= 0 || errno != EINTR)
                return ready > 0;
        }
    }
};

// A full queue of connections that nobody has accepted yet shows as EAGAIN, and poll does not tell when
// there is room.
bool connect_to(const Socket &socket, const char *path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    while (connect(socket.fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        if (errno != EINTR && errno != EAGAIN)
            return false;
        if (now_ms() >= socket.end)
            return false;
        poll(nullptr, 0, retry_ms);
    }
    return true;
}

// Whoever listens at the other end could have made the change in the database itself.
bool is_trustworthy(const Socket &socket, const char *location) {
    ucred peer = {};
    socklen_t size = sizeof peer;
    if (getsockopt(socket.fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
        return false;
    if (peer.uid == 0)
        return true;
    const char *path = std::strchr(location, ':');
    struct stat database = {};
    return path != nullptr && stat(path + 1, &database) == 0 && database.st_uid == peer.uid;
}

bool send_all(const Socket &socket, std::span<const uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t count = send(socket.fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count > 0)
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        else if (!socket.wait(POLLOUT))
            return false;
    }
    return true;
}

bool receive_all(const Socket &socket, std::span<uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t count = recv(socket.fd, bytes.data(), bytes.size(), 0);
        if (count > 0)
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        else if (count == 0 || !socket.wait(POLLIN))
            return false;
    }
    return true;
}

// Why this process cannot make the change itself, where there is no fnsd: to fnsd the file system may be
// another than to this process.
unsigned refusal(const char *location) {
    const char *path = std::strchr(location, ':');
    const bool read_only =
        path != nullptr && faccessat(AT_FDCWD, path + 1, W_OK, AT_EACCESS) != 0 && errno == EROFS;
    return read_only ? FN_E_OPERATION_NOT_SUPPORTED : FN_E_CTX_NO_PERMISSION;
}

unsigned ask(Request request, Store *store) {
    request.location = inside(store)->location;
    const xfn::Message message = encode_request(request);
    const Socket socket;
    if (message.bytes == nullptr || socket.fd < 0)
        return FN_E_INSUFFICIENT_RESOURCES;
    if (!connect_to(socket, xfn::fnsd_socket))
        return refusal(inside(store)->location);
    uint8_t reply[xfn::reply_size];
    unsigned status = FN_SUCCESS;
    if (!is_trustworthy(socket, request.location.data()) || !send_all(socket, message.span()) ||
        !receive_all(socket, reply) || !xfn::decode_reply(reply, &status))
        return FN_E_COMMUNICATION_FAILURE;
    return status;
}

unsigned create(Store *store, EntryName name, uid_t) {
    return ask({.kind = RequestKind::create, .location = {}, .name = name}, store);
}

unsigned destroy(Store *store, EntryName name, uid_t) {
    return ask({.kind = RequestKind::destroy, .location = {}, .name = name}, store);
}

unsigned modify(Store *store, EntryName name, unsigned operation, const FN_attribute_t *attribute,
                uid_t) {
    if (const unsigned code = xfn::check_attribute(attribute); code != FN_SUCCESS)
        return code;
    return ask({RequestKind::modify, {}, name, operation, attribute}, store);
}

// What reads never comes here.
unsigned lookup(Store *, EntryName) {
    return FN_E_OPERATION_NOT_SUPPORTED;
}
unsigned get(Store *, EntryName, const FN_attrset_t *, xfn::AttributeSet *) {
    return FN_E_OPERATION_NOT_SUPPORTED;
}
unsigned list(Store *, xfn::Area, const FN_string_t *, xfn::NamePage *) {
    return FN_E_OPERATION_NOT_SUPPORTED;
}
unsigned search(Store *, xfn::Area, const FN_attrset_t *, const FN_string_t *, xfn::NamePage *) {
    return FN_E_OPERATION_NOT_SUPPORTED;
}
bool writable(Store *) {
    return true;
}
void nothing(Store *) {}

void close_store(Store *store) {
    std::free(inside(store)->location);
    std::free(store);
}

constexpr xfn::StoreOperations operations = {lookup, create,   destroy, get,     modify,     list,
                                             search, writable, nothing, nothing, close_store};

} // namespace

unsigned xfn::open_remote_store(const char *location, Store **store) {
    qel::Owned<RemoteStore> opened(qel::allocate<RemoteStore>());
    if (opened == nullptr || (opened->location = strdup(location)) == nullptr)
        return FN_E_INSUFFICIENT_RESOURCES;
    opened->store.operations = &operations;
    *store = &opened.release()->store;
    return FN_SUCCESS;
}
