// registration.h: how clients find the server: rpcbind maps the program to the socket's path.
#ifndef SERVER_REGISTRATION_H
#define SERVER_REGISTRATION_H

#include <string>
#include <sys/types.h>

#include "connection.h"

// Keeps the program registered for every loopback stream transport, from a process of its own, since
// rpcbind may be slow, or away, or start again without its memory. The process stays the user who
// started the server, without any capability: what root has registered nobody else can take away, and
// what somebody else has registered only root can.
class Registration {
public:
    // path: the server's socket. To be made before there are keys, other threads, or another user.
    explicit Registration(const std::string &path);
    // Withdraws what was registered. When the server ends otherwise it stays, so that nobody takes
    // the place.
    ~Registration();
    Registration(const Registration &) = delete;
    Registration &operator=(const Registration &) = delete;

    // Readable when there is news.
    int fd() const { return channel_.get(); }
    enum class News { none, registered, lost };
    News news();

private:
    Descriptor channel_;
    pid_t process_ = 0;
};

#endif
