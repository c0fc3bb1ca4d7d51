// lists.cpp: listing and searching the names of a context, page by page as the store gives them, so
// that neither memory nor a transaction of the store is held for long.

#include "context.h"

#include <new>

namespace {

using xfn::AttributeSet;
using xfn::set_status;
using xfn::String;

constexpr const char *words_of_initial[] = {"host", "user"};

// The names of an area, or those that match.
struct Names {
    xfn::StoreUse shared;
    xfn::Area area = xfn::Area::global;
    AttributeSet match;      // null: all names
    unsigned words_left = 0; // of the initial context, before the global names
    xfn::NamePage page;
    std::size_t next = 0; // in the page

    unsigned fetch(const FN_string_t *cursor) {
        xfn::Store *store = shared->store;
        const xfn::StoreOperations *operations = store->operations;
        xfn::NamePage fresh;
        const unsigned code = match != nullptr
                                  ? operations->search(store, area, match.get(), cursor, &fresh)
                                  : operations->list(store, area, cursor, &fresh);
        if (code == FN_SUCCESS) {
            std::swap(page.names, fresh.names);
            std::swap(page.cursor, fresh.cursor);
            next = 0;
        }
        return code;
    }

    // Null with FN_SUCCESS behind the last.
    String take(unsigned *code) {
        *code = FN_SUCCESS;
        if (words_left != 0) {
            String name(xfn::make_string(words_of_initial[words_left - 1]));
            if (name == nullptr)
                *code = FN_E_INSUFFICIENT_RESOURCES;
            else
                --words_left;
            return name;
        }
        while (next == page.names.count) {
            if (page.cursor == nullptr || (*code = fetch(page.cursor.get())) != FN_SUCCESS)
                return nullptr;
        }
        FN_string_t *&name = page.names.items[next++];
        String taken(name);
        name = nullptr;
        return taken;
    }
};

// The names of a context; match may be null.
bool begin(Names *names, FN_ctx_t *ctx, const FN_composite_name_t *name, const FN_attrset_t *match,
           FN_status_t *status) {
    xfn::Place place;
    if (!xfn::resolve(ctx, name, &place, status))
        return false;
    xfn::Store *store = ctx->shared->store;
    if (place.kind == xfn::Kind::entry) {
        const unsigned code = store->operations->lookup(store, place.entry());
        return xfn::finish(status, code == FN_SUCCESS ? unsigned{FN_E_NOT_A_CONTEXT} : code, name);
    }
    names->shared.reset(xfn::use_again(ctx->shared));
    names->area = place.area;
    if (fn_attrset_count(match) != 0) {
        names->match.reset(fn_attrset_copy(match));
        if (names->match == nullptr)
            return set_status(status, FN_E_INSUFFICIENT_RESOURCES);
    }
    return set_status(status, names->fetch(nullptr));
}

template <class List> struct DestroyList {
    void operator()(List *list) const {
        list->~List();
        std::free(list);
    }
};
template <class List> using OwnedList = std::unique_ptr<List, DestroyList<List>>;

template <class List> OwnedList<List> make_list() {
    void *block = std::malloc(sizeof(List));
    return OwnedList<List>(block != nullptr ? new (block) List : nullptr);
}

} // namespace

struct FN_namelist {
    Names names;
};

struct FN_searchlist {
    Names names;
    bool wants_references = false;
    AttributeSet wanted; // null: all
    String found;        // a name whose attributes are still to be got
};

// ---- Listing --------------------------------------------------------------------------------------

FN_namelist_t *fn_ctx_list_names(FN_ctx_t *ctx, const FN_composite_name_t *name,
                                 FN_status_t *status) {
    OwnedList<FN_namelist_t> list = make_list<FN_namelist_t>();
    if (list == nullptr) {
        set_status(status, FN_E_INSUFFICIENT_RESOURCES);
        return nullptr;
    }
    if (!begin(&list->names, ctx, name, nullptr, status))
        return nullptr;
    if (list->names.area == xfn::Area::global)
        list->names.words_left = sizeof words_of_initial / sizeof *words_of_initial;
    return list.release();
}

FN_string_t *fn_namelist_next(FN_namelist_t *list, FN_status_t *status) {
    unsigned code = FN_E_INVALID_ENUM_HANDLE;
    FN_string_t *name = list != nullptr ? list->names.take(&code).release() : nullptr;
    set_status(status, code);
    return name;
}

void fn_namelist_destroy(FN_namelist_t *list) {
    if (list != nullptr)
        DestroyList<FN_namelist_t>()(list);
}

// ---- Searching ------------------------------------------------------------------------------------

FN_searchlist_t *prelim_fn_attr_search(FN_ctx_t *ctx, const FN_composite_name_t *name,
                                       const FN_attrset_t *match_attrs, unsigned int return_ref,
                                       const FN_attrset_t *return_attr_ids, FN_status_t *status) {
    OwnedList<FN_searchlist_t> list = make_list<FN_searchlist_t>();
    if (list != nullptr && return_attr_ids != nullptr)
        list->wanted.reset(fn_attrset_copy(return_attr_ids));
    if (list == nullptr || (list->wanted == nullptr) != (return_attr_ids == nullptr)) {
        set_status(status, FN_E_INSUFFICIENT_RESOURCES);
        return nullptr;
    }
    list->wants_references = return_ref != 0;
    return begin(&list->names, ctx, name, match_attrs, status) ? list.release() : nullptr;
}

namespace {

// The attributes that are wanted of the name that was found.
unsigned get_wanted(FN_searchlist_t *list, AttributeSet *attributes) {
    xfn::Store *store = list->names.shared->store;
    if (list->wanted != nullptr && list->wanted->attributes.count == 0)
        return FN_SUCCESS;
    return store->operations->get(store, {list->names.area, xfn::view(list->found.get())},
                                  list->wanted.get(), attributes);
}

unsigned next_hit(FN_searchlist_t *list, bool with_attributes, xfn::Reference *ref,
                  AttributeSet *attributes) {
    for (;;) {
        unsigned code = FN_SUCCESS;
        if (list->found == nullptr)
            list->found = list->names.take(&code);
        if (list->found == nullptr)
            return code;
        if (with_attributes)
            code = get_wanted(list, attributes);
        if (code == FN_E_NAME_NOT_FOUND) { // it has gone meanwhile
            list->found.reset();
            continue;
        }
        if (code != FN_SUCCESS || !list->wants_references || ref == nullptr)
            return code;
        xfn::Place place;
        place.kind = xfn::Kind::entry;
        place.area = list->names.area;
        std::swap(place.text, list->found);
        ref->reset(xfn::make_reference(list->names.shared.get(), place));
        std::swap(place.text, list->found);
        return *ref != nullptr ? FN_SUCCESS : FN_E_INSUFFICIENT_RESOURCES;
    }
}

} // namespace

FN_string_t *prelim_fn_searchlist_next(FN_searchlist_t *list, FN_ref_t **returned_ref,
                                       FN_attrset_t **returned_attrs, FN_status_t *status) {
    if (returned_ref != nullptr)
        *returned_ref = nullptr;
    if (returned_attrs != nullptr)
        *returned_attrs = nullptr;
    if (list == nullptr) {
        set_status(status, FN_E_INVALID_ENUM_HANDLE);
        return nullptr;
    }
    xfn::Reference ref;
    AttributeSet attributes;
    const unsigned code = next_hit(list, returned_attrs != nullptr,
                                   returned_ref != nullptr ? &ref : nullptr, &attributes);
    if (!set_status(status, code))
        return nullptr;
    if (returned_ref != nullptr)
        *returned_ref = ref.release();
    if (returned_attrs != nullptr)
        *returned_attrs = attributes.release();
    return list->found.release();
}

void prelim_fn_searchlist_destroy(FN_searchlist_t *list) {
    if (list != nullptr)
        DestroyList<FN_searchlist_t>()(list);
}
