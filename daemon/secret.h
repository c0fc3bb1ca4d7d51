// secret.h: bytes that are zeroed before their memory is released.
#ifndef DAEMON_SECRET_H
#define DAEMON_SECRET_H

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string.h>
#include <vector>

template <class T> struct ZeroingAllocator {
    using value_type = T;

    ZeroingAllocator() = default;
    template <class U> ZeroingAllocator(const ZeroingAllocator<U> &) {}

    T *allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
    void deallocate(T *block, std::size_t count) {
        explicit_bzero(block, count * sizeof(T));
        std::allocator<T>().deallocate(block, count);
    }
    bool operator==(const ZeroingAllocator &) const = default;
};

using Bytes = std::vector<uint8_t>;
using SecretBytes = std::vector<uint8_t, ZeroingAllocator<uint8_t>>;

// Storage that the library handed out.
struct FreeLibraryBytes {
    std::size_t length = 0;
    void operator()(uint8_t *bytes) const {
        explicit_bzero(bytes, length);
        std::free(bytes);
    }
};
using LibraryBytes = std::unique_ptr<uint8_t, FreeLibraryBytes>;

#endif
