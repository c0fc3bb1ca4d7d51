// naming_xfn.h: naming.h in terms of the naming provider's objects.
#ifndef UTIL_NAMING_XFN_H
#define UTIL_NAMING_XFN_H

#include <memory>

#include <util/naming.h>
#include <xfn/xfn.h>

namespace qel {

template <auto destroy> struct Destroy {
    template <class T> void operator()(T *object) const { destroy(object); }
};

using XfnStatus = std::unique_ptr<FN_status_t, Destroy<fn_status_destroy>>;
using CompositeName = std::unique_ptr<FN_composite_name_t, Destroy<fn_composite_name_destroy>>;
using Attribute = std::unique_ptr<FN_attribute_t, Destroy<fn_attribute_destroy>>;

// The handle that dsv_set_context has made for names of this kind.
FN_ctx_t *naming_context(NameKind kind);

// What a name is called in the context of its kind. QEL_ERR_UNKNOWN_USER: nothing; a host without
// name. QEL_ERR_NO_MEMORY.
QelStatus make_composite_name(const char *name, NameKind kind, CompositeName *name_out);

// Whether the naming service was ever set up for a back end (FN_NS_...).
bool is_set_up(unsigned back_end);

} // namespace qel

// A new attribute with a value, or with none for null; null if it is none of the three or memory ran
// out. The caller destroys it.
FN_attribute_t *dsv_get_attribute(const char *attribute, const uint8_t *value, uint32_t length);

// Makes an entry for a user or host that has none; one for a full name comes with its first attribute.
// QEL_ERR_BAD_PARAM: no such kind. QEL_ERR_XFN, QEL_ERR_NO_MEMORY.
QelStatus dsv_create_context(const FN_composite_name_t *name, NameKind kind);

#endif
