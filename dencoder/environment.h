// environment.h: what an environment block holds, and what the runtime's sources share.
#ifndef DENCODER_ENVIRONMENT_H
#define DENCODER_ENVIRONMENT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string.h>

#include <dencoder/oss.h>
#include <dencoder/schema.h>

namespace dencoder {

// ---- Failures -----------------------------------------------------------------------------------

constexpr unsigned path_length = 8;

// The first failure of a call. The path names components, the innermost first.
struct Failure {
    OssStatus status = OSS_DONE;
    const char *reason = nullptr;
    uint64_t offset = 0; // in the encoding
    unsigned depth = 0;
    const char *path[path_length] = {};
};

// Records a failure; always false, so that a caller can return it.
bool fail(OssEnvironment &environment, OssStatus status, const char *reason, uint64_t offset = 0);
// Adds a component's name while a failure is on its way out; always false.
bool fail_inside(OssEnvironment &environment, const char *name);

// ---- Marked files -------------------------------------------------------------------------------

struct MarkedFile {
    MarkedFile *next;
    char *name;
    bool temporary; // made by the decoder, to be removed with its value
};

// The marked file that a pointer is a handle of, or null.
MarkedFile *find_marked(const OssEnvironment &environment, const void *handle);
// Takes the handle out of the environment, with its file if that is temporary.
void drop_marked(OssEnvironment &environment, MarkedFile *marked);
void free_retired(OssEnvironment &environment);

// ---- Environment --------------------------------------------------------------------------------

using EncodeFunction = OssStatus (*)(OssEnvironment &, const Type &, const void *value, bool der,
                                     OssBuf &output);
using DecodeFunction = OssStatus (*)(OssEnvironment &, const Type &, const OssBuf &input,
                                     void **value_out);
enum class Direction { encoding, decoding };
using CheckFunction = bool (*)(Alphabet, const uint8_t *characters, uint32_t length, Direction);

OssStatus encode(OssEnvironment &environment, const Type &type, const void *value, bool der,
                 OssBuf &output);
OssStatus decode(OssEnvironment &environment, const Type &type, const OssBuf &input,
                 void **value_out);
bool check_characters(Alphabet alphabet, const uint8_t *characters, uint32_t length, Direction);

// Releases what the record owns, and the record (free.cpp).
void free_value(OssEnvironment &environment, const Type &type, void *record);
// Writes a value (print.cpp).
bool print_value(OssEnvironment &environment, FILE *stream, const Type &type, const void *record);

// Enough for all lengths of an ordinary certificate.
constexpr unsigned lengths_at_hand = 200;

} // namespace dencoder

struct OssEnvironment {
    const dencoder::ControlTable *table; // null: not in use
    dencoder::DecodeFunction decode;     // what has been linked
    dencoder::EncodeFunction encode_ber;
    dencoder::EncodeFunction encode_der;
    dencoder::CheckFunction check;
    OssRules rules;
    uint32_t encoding_flags;
    uint32_t decoding_flags;
    FILE *print_stream;
    FILE *trace_stream;
    dencoder::MarkedFile *marked;
    // Unmarked handles: kept to the end, so that none of their addresses comes to stand for another
    // file while a record still holds it.
    dencoder::MarkedFile *retired;
    dencoder::Failure failure;
    char message[256];
    uint32_t lengths[dencoder::lengths_at_hand];
};

static_assert(sizeof(OssEnvironment) <= OSS_ENVIRONMENT_SIZE);

namespace dencoder {

// ---- Memory -------------------------------------------------------------------------------------

// Bytes that are zeroed before they are freed.
struct ZeroAndFree {
    std::size_t size = 0;
    void operator()(uint8_t *bytes) const {
        explicit_bzero(bytes, size);
        std::free(bytes);
    }
};
using OwnedBytes = std::unique_ptr<uint8_t, ZeroAndFree>;

inline OwnedBytes allocate_bytes(std::size_t size) {
    return OwnedBytes(static_cast<uint8_t *>(std::malloc(size)), ZeroAndFree{size});
}

// A zero-filled block. malloc with memset beats calloc for blocks of this size.
inline void *allocate_record(std::size_t size) {
    void *record = std::malloc(size);
    return record != nullptr ? memset(record, 0, size) : nullptr;
}

// ---- Components in records ----------------------------------------------------------------------

using Slot [[gnu::may_alias]] = void *;

template <class T> T load(const void *place) {
    T value;
    memcpy(&value, place, sizeof value);
    return value;
}

template <class T> void store(void *place, T value) {
    memcpy(place, &value, sizeof value);
}

inline const uint8_t *member(const void *record, const Component &component) {
    return static_cast<const uint8_t *>(record) + component.offset;
}

inline uint8_t *member(void *record, const Component &component) {
    return static_cast<uint8_t *>(record) + component.offset;
}

// The record that holds the component's value: the member, or what the member points to.
inline const void *held_record(const void *record, const Component &component) {
    const uint8_t *place = member(record, component);
    return component.owned ? load<const void *>(place) : place;
}

// A boolean's or integer's value.
inline int64_t number_in(const Type &type, const void *record) {
    if (type.kind == Kind::boolean)
        return *static_cast<const uint8_t *>(record) != 0;
    return type.lowest < 0 ? load<int32_t>(record) : int64_t{load<uint32_t>(record)};
}

// Whether a component of the record is to be encoded, freed, printed.
inline bool is_present(const void *record, const Component &component) {
    if (component.presence == Presence::required)
        return true;
    if (component.mask_bit != 0 &&
        (*static_cast<const uint8_t *>(record) & component.mask_bit) != 0)
        return true;
    if (component.presence == Presence::defaulted)
        return number_in(*component.type, member(record, component)) != component.default_value;
    return component.mask_bit == 0 && load<const void *>(member(record, component)) != nullptr;
}

// The alternative that a CHOICE record names, or null.
inline const Component *chosen(const Type &type, const void *record) {
    const uint16_t number = load<uint16_t>(record);
    return number >= 1 && number <= type.components.size() ? &type.components[number - 1] : nullptr;
}

constexpr bool is_list(Kind kind) {
    return kind == Kind::sequence_of || kind == Kind::set_of;
}

constexpr bool is_constructed(Kind kind) {
    return kind == Kind::sequence || is_list(kind);
}

} // namespace dencoder

#endif
