// memory.h: owners for the toolkit's heap and stack storage.
//
// Memory comes from the malloc family. Inside a function an owner below holds what is not handed
// over yet, so that every early return is right. Whatever may be secret is zeroed before it is
// released.
#ifndef TOOLKIT_MEMORY_H
#define TOOLKIT_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string.h>

namespace toolkit {

struct ZeroAndFree {
    std::size_t size = 0;
    void operator()(void *block) const {
        explicit_bzero(block, size);
        std::free(block);
    }
};
using SecretBytes = std::unique_ptr<uint8_t, ZeroAndFree>;

// Zero-filled bytes (at least one is allocated), or null.
inline SecretBytes allocate_secret(std::size_t size) {
    return SecretBytes(static_cast<uint8_t *>(std::calloc(size != 0 ? size : 1, 1)),
                       ZeroAndFree{size});
}

// Secret bytes on the stack: zeroed when they go out of scope.
template <std::size_t size> struct SecretArray {
    uint8_t bytes[size] = {};
    SecretArray() = default;
    SecretArray(const SecretArray &) = delete;
    SecretArray &operator=(const SecretArray &) = delete;
    ~SecretArray() { explicit_bzero(bytes, size); }
};

// The same for a record.
template <class T> struct SecretRecord {
    T record = {};
    SecretRecord() = default;
    SecretRecord(const SecretRecord &) = delete;
    SecretRecord &operator=(const SecretRecord &) = delete;
    ~SecretRecord() { explicit_bzero(&record, sizeof record); }
};

// A record that its own function releases: Handle<RsaPublic, rsa_public_free>.
template <auto release> struct Release {
    template <class T> void operator()(T *record) const { release(record); }
};
template <class T, auto release> using Handle = std::unique_ptr<T, Release<release>>;

} // namespace toolkit

#endif
