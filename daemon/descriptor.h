// descriptor.h: a file descriptor that is closed with its owner.
#ifndef DAEMON_DESCRIPTOR_H
#define DAEMON_DESCRIPTOR_H

#include <unistd.h>
#include <utility>

class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor() {
        if (fd_ >= 0)
            close(fd_);
    }
    int get() const { return fd_; }

private:
    int fd_;
};

#endif
