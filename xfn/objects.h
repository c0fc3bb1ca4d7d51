// objects.h: what stands behind the types of <xfn/xfn.h>, and how the library makes them.
#ifndef XFN_OBJECTS_H
#define XFN_OBJECTS_H

#include <xfn/xfn.h>

#include <cstdint>
#include <string_view>

#include "array.h"
#include <lib/memory.h>

struct FN_string {
    char *bytes; // NUL-terminated
    std::size_t size;
};

struct FN_composite_name {
    xfn::Array<FN_string_t *> components;
};

struct FN_ref_addr {
    FN_identifier_t type;
    FN_attrvalue_t data;
};

struct FN_ref {
    FN_identifier_t type;
    xfn::Array<FN_ref_addr_t *> addresses;
};

struct FN_attribute {
    FN_identifier_t identifier;
    FN_identifier_t syntax;
    xfn::Array<FN_attrvalue_t> values;
    int64_t version;  // of the stored attribute that this one was read as; 0: it was not read
    int64_t expected; // with guarded: the version that must be stored, 0 for none
    bool guarded;
};

struct FN_attrset {
    xfn::Array<FN_attribute_t *> attributes;
};

struct FN_status {
    unsigned int code;
    FN_composite_name_t *remaining; // or null
    FN_composite_name_t *resolved;
};

namespace xfn {

template <auto release> struct Destroy {
    template <class T> void operator()(T *object) const { release(object); }
};
template <class T, auto release> using Object = std::unique_ptr<T, Destroy<release>>;
using String = Object<FN_string_t, fn_string_destroy>;
using CompositeName = Object<FN_composite_name_t, fn_composite_name_destroy>;
using Reference = Object<FN_ref_t, fn_ref_destroy>;
using Address = Object<FN_ref_addr_t, fn_ref_addr_destroy>;
using Attribute = Object<FN_attribute_t, fn_attribute_destroy>;
using AttributeSet = Object<FN_attrset_t, fn_attrset_destroy>;

inline std::string_view view(const FN_string_t *string) {
    return {string->bytes, string->size};
}
inline std::string_view view(const FN_identifier_t &id) {
    return {static_cast<const char *>(id.contents), id.length};
}
inline std::string_view view(const FN_attrvalue_t &value) {
    return {static_cast<const char *>(value.contents), value.length};
}

// A string of any bytes; null if memory runs out.
FN_string_t *make_string(std::string_view bytes);

// Copies of bytes, with a zero behind them. False if memory runs out; copy is as before then.
bool copy_bytes(FN_attrvalue_t *copy, std::string_view bytes);
bool copy_identifier(FN_identifier_t *copy, const FN_identifier_t &id);
bool equal(const FN_identifier_t &first, const FN_identifier_t &second);

// Adds a value without looking whether it is there already.
bool append_value(FN_attribute_t *attribute, std::string_view bytes);
bool has_value(const FN_attribute_t *attribute, std::string_view bytes);
// Moves an attribute into a set that has none of its identifier.
bool move_into(FN_attrset_t *set, Attribute *attribute);

// Sets a status that may be null, and returns whether the code is FN_SUCCESS.
bool set_status(FN_status_t *status, unsigned int code);
// The same, with the components of name from the given one on as what was not resolved.
void set_failed_name(FN_status_t *status, unsigned int code, const FN_composite_name_t *name,
                     std::size_t resolved);

} // namespace xfn

#endif
