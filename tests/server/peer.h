// peer.h: a client of the key server that may send whatever it likes.
#ifndef TESTS_SERVER_PEER_H
#define TESTS_SERVER_PEER_H

#include "messages.h"

#include <arpa/inet.h>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

class Peer {
public:
    explicit Peer(const std::string &path) : fd_(socket(AF_UNIX, SOCK_STREAM, 0)) {
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        connected_ = connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    }
    ~Peer() { close(fd_); }
    Peer(Peer &&other) noexcept : fd_(std::exchange(other.fd_, -1)), connected_(other.connected_) {}

    bool connected() const { return connected_; }
    void send(const Bytes &bytes) {
        for (std::size_t at = 0; at < bytes.size();) {
            const ssize_t count = ::send(fd_, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
            if (count <= 0)
                return;
            at += static_cast<std::size_t>(count);
        }
    }
    // What does not go at once is not sent.
    void make_impatient() {
        const timeval time = {0, 1000};
        setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &time, sizeof time);
    }
    void shut(int how) { shutdown(fd_, how); }
    // A whole record; none where the server has ended the connection.
    Reply receive() {
        Bytes record(4);
        if (recv(fd_, record.data(), 4, MSG_WAITALL) != 4)
            return {};
        uint32_t mark = 0;
        std::memcpy(&mark, record.data(), 4);
        const std::size_t size = ntohl(mark) & 0x7fffffff;
        record.resize(4 + size);
        if (recv(fd_, record.data() + 4, size, MSG_WAITALL) != static_cast<ssize_t>(size))
            return {};
        return Reply(record);
    }
    bool is_closed_within(std::chrono::milliseconds time) {
        pollfd state = {fd_, POLLIN, 0};
        char byte;
        return poll(&state, 1, static_cast<int>(time.count())) == 1 && recv(fd_, &byte, 1, 0) <= 0;
    }

private:
    int fd_;
    bool connected_ = false;
};

#endif
