// memory.h: owners for the library's heap storage.
//
// Everything comes from the malloc family, because callers free results with free(). Inside a
// function an owner below holds what is not handed over yet, so that every early return is right.
#ifndef LIB_MEMORY_H
#define LIB_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string.h>

namespace qel {

struct Free {
    void operator()(void *block) const { std::free(block); }
};

// A block that free() releases.
template <class T> using Owned = std::unique_ptr<T, Free>;

// A record with its contents, released by its free function: Record<QelCert, qel_free_cert>.
template <auto release> struct Release {
    template <class T> void operator()(T *record) const { release(&record); }
};
template <class T, auto release> using Record = std::unique_ptr<T, Release<release>>;

// Secret bytes: zeroed before they are freed.
struct ZeroAndFree {
    std::size_t size = 0;
    void operator()(void *bytes) const {
        explicit_bzero(bytes, size);
        std::free(bytes);
    }
};
using SecretBytes = std::unique_ptr<uint8_t, ZeroAndFree>;

// Secret bytes on the stack: zeroed when they go out of scope.
template <std::size_t size> struct SecretArray {
    uint8_t bytes[size] = {};
    SecretArray() = default;
    SecretArray(const SecretArray &) = delete;
    SecretArray &operator=(const SecretArray &) = delete;
    ~SecretArray() { explicit_bzero(bytes, size); }
};

// A zero-filled T, or null.
template <class T> T *allocate() {
    return static_cast<T *>(std::calloc(1, sizeof(T)));
}

// size zero-filled bytes (at least one is allocated), or null.
inline uint8_t *allocate_bytes(std::size_t size) {
    return static_cast<uint8_t *>(std::calloc(size != 0 ? size : 1, 1));
}

inline SecretBytes allocate_secret(std::size_t size) {
    return SecretBytes(allocate_bytes(size), ZeroAndFree{size});
}

} // namespace qel

#endif
