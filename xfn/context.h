// context.h: contexts, and what names in them lead to.
#ifndef XFN_CONTEXT_H
#define XFN_CONTEXT_H

#include "config.h"
#include "store.h"

namespace xfn {

// What a name leads to: a context of names, or an entry.
enum class Kind : uint8_t { initial, area, entry };

struct Place {
    Kind kind = Kind::initial;
    Area area =
        Area::global; // of an area and an entry; for the initial context that of global names
    String text;      // of an entry

    EntryName entry() const { return {area, view(text.get())}; }
};

// Where a name leads, from a context. On failure the status is set. An entry need not exist.
bool resolve(const FN_ctx_t *ctx, const FN_composite_name_t *name, Place *place,
             FN_status_t *status);
// Ends an operation on a name that was resolved: sets the status, and the name if there is no such.
bool finish(FN_status_t *status, unsigned code, const FN_composite_name_t *name);

FN_ref_t *make_reference(const SharedStore *shared, const Place &place);

// fn_ctx_handle_from_initial_with_ns with the configuration in another file. back_end 0: the default.
FN_ctx_t *initial_context(const char *config_file, unsigned back_end, FN_status_t *status);

} // namespace xfn

struct FN_ctx {
    xfn::SharedStore *shared;
    xfn::Place place;
};

#endif
