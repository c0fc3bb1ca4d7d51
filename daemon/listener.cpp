#include "listener.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>

namespace {

constexpr int first_inherited = 3;
constexpr int backlog = 256;

[[noreturn]] void fail(const std::string &what) {
    throw std::system_error(errno, std::generic_category(), what);
}

sockaddr_un address_of(const std::string &path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path)
        throw std::runtime_error("the path of the socket is too long: " + path);
    std::memcpy(address.sun_path, path.data(), path.size());
    return address;
}

Descriptor local_socket(int type) {
    Descriptor made(socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (made.get() < 0)
        fail("socket");
    return made;
}

bool option_is(int fd, int option, int value) {
    int found = -1;
    socklen_t size = sizeof found;
    return getsockopt(fd, SOL_SOCKET, option, &found, &size) == 0 && found == value;
}

void notify(const char *state) {
    const char *name = getenv("NOTIFY_SOCKET");
    if (name == nullptr || (*name != '/' && *name != '@'))
        return;
    sockaddr_un address = address_of(name);
    if (*name == '@')
        address.sun_path[0] = '\0'; // an abstract one
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + std::strlen(name));
    const Descriptor socket = local_socket(SOCK_DGRAM);
    sendto(socket.get(), state, std::strlen(state), MSG_NOSIGNAL,
           reinterpret_cast<const sockaddr *>(&address), size);
}

} // namespace

std::optional<Descriptor> inherited_listener() {
    const char *process = getenv("LISTEN_PID");
    const char *count = getenv("LISTEN_FDS");
    if (process == nullptr || count == nullptr || std::atol(process) != getpid() ||
        std::atoi(count) < 1)
        return std::nullopt;
    if (std::atoi(count) > 1)
        throw std::runtime_error("the service manager passed more than one socket");
    Descriptor passed(first_inherited);
    if (!option_is(first_inherited, SO_DOMAIN, AF_UNIX) ||
        !option_is(first_inherited, SO_TYPE, SOCK_STREAM) ||
        !option_is(first_inherited, SO_ACCEPTCONN, 1))
        throw std::runtime_error("the service manager passed no listening local stream socket");
    for (const char *name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"})
        unsetenv(name);
    if (fcntl(first_inherited, F_SETFD, FD_CLOEXEC) != 0 ||
        fcntl(first_inherited, F_SETFL, fcntl(first_inherited, F_GETFL) | O_NONBLOCK) != 0)
        fail("fcntl");
    return passed;
}

Descriptor make_listener(const std::string &path) {
    const sockaddr_un address = address_of(path);
    const auto *generic = reinterpret_cast<const sockaddr *>(&address);
    const Descriptor probe = local_socket(SOCK_STREAM);
    if (connect(probe.get(), generic, sizeof address) == 0 || errno == EAGAIN)
        throw std::runtime_error("another server listens at " + path);
    struct stat present = {};
    if (lstat(path.c_str(), &present) == 0 && !S_ISSOCK(present.st_mode))
        throw std::runtime_error("there is something else than a socket at " + path);
    unlink(path.c_str());
    Descriptor listener = local_socket(SOCK_STREAM);
    if (bind(listener.get(), generic, sizeof address) != 0)
        fail("cannot make the socket " + path);
    if (chmod(path.c_str(), 0666) != 0 || listen(listener.get(), backlog) != 0)
        fail("cannot listen at " + path);
    return listener;
}

std::string path_of(const Descriptor &listener) {
    sockaddr_un address = {};
    socklen_t size = sizeof address;
    if (getsockname(listener.get(), reinterpret_cast<sockaddr *>(&address), &size) != 0)
        fail("getsockname");
    if (size <= offsetof(sockaddr_un, sun_path) || address.sun_path[0] != '/')
        throw std::runtime_error("the socket has no path");
    return address.sun_path;
}

void notify_ready() {
    notify("READY=1");
}

void notify_stopping() {
    notify("STOPPING=1");
}
