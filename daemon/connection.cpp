#include "connection.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>

namespace {

constexpr uint32_t last_fragment = 0x80000000;
constexpr std::size_t mark_size = sizeof(uint32_t);

bool would_block() {
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

} // namespace

bool Connection::receive(std::span<uint8_t> room) {
    if (complete_ || has_reply())
        return true;
    const ssize_t count = recv(fd(), room.data(), room.size(), MSG_DONTWAIT);
    if (count < 0)
        return would_block();
    if (count == 0)
        return false;
    if (idle())
        since_ = BootClock::now();
    const std::span<uint8_t> received = room.first(static_cast<std::size_t>(count));
    incoming_.insert(incoming_.end(), received.begin(), received.end());
    explicit_bzero(received.data(), received.size());
    return take_fragments();
}

// Moves whole fragments from what was received to the call, until it is complete.
bool Connection::take_fragments() {
    std::size_t at = 0;
    while (!complete_ && incoming_.size() - at >= mark_size) {
        uint32_t mark = 0;
        std::memcpy(&mark, &incoming_[at], mark_size);
        mark = ntohl(mark);
        const std::size_t length = mark & ~last_fragment;
        if (length > longest_call_ - call_.size() || (length == 0 && mark == 0))
            return false;
        if (incoming_.size() - at - mark_size < length)
            break;
        const auto begin = incoming_.begin() + static_cast<std::ptrdiff_t>(at + mark_size);
        call_.insert(call_.end(), begin, begin + static_cast<std::ptrdiff_t>(length));
        at += mark_size + length;
        complete_ = (mark & last_fragment) != 0;
    }
    if (at == 0)
        return true;
    SecretBytes rest(incoming_.begin() + static_cast<std::ptrdiff_t>(at), incoming_.end());
    incoming_.swap(rest);
    return true;
}

SecretBytes Connection::take_call() {
    SecretBytes call = std::exchange(call_, {});
    complete_ = false;
    since_ = BootClock::now();
    return call;
}

bool Connection::send() {
    while (sent_ < reply_.size()) {
        const ssize_t count =
            ::send(fd(), &reply_[sent_], reply_.size() - sent_, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0)
            return would_block();
        sent_ += static_cast<std::size_t>(count);
    }
    SecretBytes().swap(reply_);
    sent_ = 0;
    // A client that has sent its next call already is not kept waiting for more bytes.
    return take_fragments();
}
