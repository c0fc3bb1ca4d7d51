// context.cpp: handles, references, and names that are looked up, made and removed.

#include "context.h"

#include <new>
#include <unistd.h>

namespace xfn {

namespace {

constexpr std::string_view global_prefix = "...";
constexpr std::string_view users_word = "user", hosts_word = "host";

FN_identifier_t word(std::string_view text) {
    return {FN_ID_STRING, text.size(), const_cast<char *>(text.data())};
}

bool set_entry(Place *place, Area area, std::string_view text) {
    place->kind = Kind::entry;
    place->area = area;
    place->text.reset(make_string(text));
    return place->text != nullptr;
}

bool copy_place(Place *copy, const Place &place) {
    copy->kind = place.kind;
    copy->area = place.area;
    if (place.text != nullptr)
        copy->text.reset(fn_string_copy(place.text.get()));
    return (copy->text == nullptr) == (place.text == nullptr);
}

// A walk over the components of a name; what is behind `done` is not resolved yet.
struct Walk {
    const FN_ctx_t *ctx;
    const FN_composite_name_t *name;
    Place *place;
    std::size_t done = 0;

    std::size_t left() const { return name->components.count - done; }
    std::string_view component() const { return view(name->components.items[done]); }

    // All components together are the name.
    unsigned take_global() {
        if (left() == 1)
            return FN_E_NAME_NOT_FOUND;
        const String text(fn_string_from_composite_name(name, nullptr));
        if (text == nullptr || !set_entry(place, Area::global, view(text.get())))
            return FN_E_INSUFFICIENT_RESOURCES;
        done = name->components.count;
        return check_name(place->entry());
    }

    unsigned step_from_initial() {
        if (component() == global_prefix && done == 0)
            return take_global();
        const bool is_user = component() == users_word;
        if (!is_user && component() != hosts_word)
            return component().empty() ? FN_E_ILLEGAL_NAME : FN_E_NAME_NOT_FOUND;
        place->kind = Kind::area;
        place->area = is_user ? Area::users : Area::hosts;
        ++done;
        return FN_SUCCESS;
    }

    unsigned step_from_area() {
        if (const unsigned code = check_name({place->area, component()}); code != FN_SUCCESS)
            return code;
        if (!set_entry(place, place->area, component()))
            return FN_E_INSUFFICIENT_RESOURCES;
        ++done;
        return FN_SUCCESS;
    }

    // There are no names below an entry; if it does not exist, that is what is wrong.
    unsigned refuse_below_entry() {
        Store *store = ctx->shared->store;
        const unsigned code = store->operations->lookup(store, place->entry());
        if (code == FN_E_NAME_NOT_FOUND && done != 0)
            --done;
        return code == FN_SUCCESS ? unsigned{FN_E_NOT_A_CONTEXT} : code;
    }

    unsigned run() {
        while (left() != 0) {
            const unsigned code = place->kind == Kind::initial ? step_from_initial()
                                  : place->kind == Kind::area  ? step_from_area()
                                                               : refuse_below_entry();
            if (code != FN_SUCCESS)
                return code;
        }
        return FN_SUCCESS;
    }
};

} // namespace

bool resolve(const FN_ctx_t *ctx, const FN_composite_name_t *name, Place *place,
             FN_status_t *status) {
    if (ctx == nullptr || name == nullptr)
        return set_status(status, FN_E_UNSPECIFIED_ERROR);
    if (!copy_place(place, ctx->place))
        return set_status(status, FN_E_INSUFFICIENT_RESOURCES);
    Walk walk = {ctx, name, place};
    const unsigned code = walk.run();
    if (code == FN_SUCCESS)
        return set_status(status, FN_SUCCESS);
    set_failed_name(status, code, name, walk.done);
    return false;
}

bool finish(FN_status_t *status, unsigned code, const FN_composite_name_t *name) {
    if (code != FN_E_NAME_NOT_FOUND)
        return set_status(status, code);
    const std::size_t count = name->components.count;
    // A global name is one, however many components it has.
    const bool is_global = count != 0 && view(name->components.items[0]) == global_prefix;
    set_failed_name(status, code, name, is_global || count == 0 ? 0 : count - 1);
    return false;
}

// ---- References -----------------------------------------------------------------------------------

// The address of a context is the letter of what it is, the location of the store, a zero byte, and
// the text of an entry.
namespace {

constexpr std::string_view reference_type = "xfn_context", address_type = "xfn_store";

struct Letter {
    char letter;
    Kind kind;
    Area area;
};

constexpr Letter letters[] = {
    {'i', Kind::initial, Area::global}, {'U', Kind::area, Area::users},
    {'H', Kind::area, Area::hosts},     {'u', Kind::entry, Area::users},
    {'h', Kind::entry, Area::hosts},    {'g', Kind::entry, Area::global},
};

bool parse_address(std::string_view data, std::string_view *location, Place *place,
                   unsigned *code) {
    *code = FN_E_MALFORMED_REFERENCE;
    const std::size_t zero = data.find('\0');
    if (zero == std::string_view::npos || zero == 0)
        return false;
    const std::string_view text(data.data() + zero + 1, data.size() - zero - 1);
    *location = {data.data() + 1, zero - 1};
    for (const Letter &row : letters) {
        if (row.letter != data.front())
            continue;
        place->kind = row.kind;
        place->area = row.area;
        if (row.kind != Kind::entry)
            return text.empty();
        if (check_name({row.area, text}) != FN_SUCCESS)
            return false;
        *code = FN_E_INSUFFICIENT_RESOURCES;
        return set_entry(place, row.area, text);
    }
    return false;
}

} // namespace

FN_ref_t *make_reference(const SharedStore *shared, const Place &place) {
    const std::string_view text =
        place.kind == Kind::entry ? view(place.text.get()) : std::string_view();
    const std::string_view location = shared->location;
    const std::size_t size = 1 + location.size() + 1 + text.size();
    const qel::Owned<char> data(static_cast<char *>(std::malloc(size)));
    if (data == nullptr)
        return nullptr;
    for (const Letter &row : letters)
        if (row.kind == place.kind && row.area == place.area)
            data.get()[0] = row.letter;
    std::memcpy(data.get() + 1, location.data(), location.size());
    data.get()[1 + location.size()] = '\0';
    if (!text.empty())
        std::memcpy(data.get() + size - text.size(), text.data(), text.size());

    const FN_identifier_t type = word(reference_type), how = word(address_type);
    Reference ref(fn_ref_create(&type));
    const Address address(fn_ref_addr_create(&how, size, data.get()));
    if (ref == nullptr || address == nullptr || !fn_ref_append_addr(ref.get(), address.get()))
        return nullptr;
    return ref.release();
}

// ---- Handles --------------------------------------------------------------------------------------

namespace {

FN_ctx_t *make_context(const char *location, Place place, FN_status_t *status) {
    SharedStore *shared = nullptr;
    const unsigned code = use_store(location, &shared);
    if (!set_status(status, code))
        return nullptr;
    void *block = std::malloc(sizeof(FN_ctx_t));
    if (block == nullptr) {
        release_store(shared);
        set_status(status, FN_E_INSUFFICIENT_RESOURCES);
        return nullptr;
    }
    return new (block) FN_ctx_t{shared, std::move(place)};
}

} // namespace

FN_ctx_t *initial_context(const char *config_file, unsigned back_end, FN_status_t *status) {
    Config config;
    if (!set_status(status, read_config(config_file, &config)))
        return nullptr;
    if (back_end == 0)
        back_end = config.initial;
    if (back_end > back_end_count) {
        set_status(status, FN_E_CTX_UNAVAILABLE);
        return nullptr;
    }
    return make_context(config.locations[back_end - 1], {}, status);
}

} // namespace xfn

using xfn::finish;
using xfn::Kind;
using xfn::Place;
using xfn::resolve;
using xfn::set_status;

FN_ctx_t *_fn_ctx_handle_from_initial_with_ns(unsigned int back_end, unsigned int,
                                              FN_status_t *status) {
    // 0 would be the default of the configuration.
    return xfn::initial_context(xfn::config_path,
                                back_end != 0 ? back_end : xfn::back_end_count + 1, status);
}

FN_ctx_t *fn_ctx_handle_from_initial_with_ns(unsigned int back_end, unsigned int authoritative,
                                             FN_status_t *status) {
    return _fn_ctx_handle_from_initial_with_ns(back_end, authoritative, status);
}

FN_ctx_t *fn_ctx_handle_from_initial(unsigned int, FN_status_t *status) {
    return xfn::initial_context(xfn::config_path, 0, status);
}

FN_ctx_t *fn_ctx_handle_from_ref(const FN_ref_t *ref, unsigned int, FN_status_t *status) {
    if (ref == nullptr) {
        set_status(status, FN_E_UNSPECIFIED_ERROR);
        return nullptr;
    }
    if (xfn::view(ref->type) != xfn::reference_type) {
        set_status(status, FN_E_MALFORMED_REFERENCE);
        return nullptr;
    }
    for (const FN_ref_addr_t *address : ref->addresses) {
        if (xfn::view(address->type) != xfn::address_type)
            continue;
        Place place;
        std::string_view location;
        unsigned code = FN_SUCCESS;
        if (!xfn::parse_address(xfn::view(address->data), &location, &place, &code)) {
            set_status(status, code);
            return nullptr;
        }
        return xfn::make_context(location.data(), std::move(place), status);
    }
    set_status(status, FN_E_NO_SUPPORTED_ADDRESS);
    return nullptr;
}

FN_ref_t *fn_ctx_get_ref(const FN_ctx_t *ctx, FN_status_t *status) {
    FN_ref_t *ref = ctx != nullptr ? xfn::make_reference(ctx->shared, ctx->place) : nullptr;
    set_status(status, ref != nullptr   ? FN_SUCCESS
                       : ctx != nullptr ? FN_E_INSUFFICIENT_RESOURCES
                                        : FN_E_UNSPECIFIED_ERROR);
    return ref;
}

void fn_ctx_handle_destroy(FN_ctx_t *ctx) {
    if (ctx == nullptr)
        return;
    xfn::release_store(ctx->shared);
    ctx->~FN_ctx();
    std::free(ctx);
}

// ---- Names ----------------------------------------------------------------------------------------

FN_ref_t *fn_ctx_lookup(FN_ctx_t *ctx, const FN_composite_name_t *name, FN_status_t *status) {
    Place place;
    if (!resolve(ctx, name, &place, status))
        return nullptr;
    xfn::Store *store = ctx->shared->store;
    if (place.kind == Kind::entry &&
        !finish(status, store->operations->lookup(store, place.entry()), name))
        return nullptr;
    FN_ref_t *ref = xfn::make_reference(ctx->shared, place);
    set_status(status, ref != nullptr ? FN_SUCCESS : FN_E_INSUFFICIENT_RESOURCES);
    return ref;
}

FN_ref_t *fn_ctx_create_subcontext(FN_ctx_t *ctx, const FN_composite_name_t *name,
                                   FN_status_t *status) {
    Place place;
    if (!resolve(ctx, name, &place, status))
        return nullptr;
    if (place.kind != Kind::entry) {
        set_status(status, FN_E_NAME_IN_USE);
        return nullptr;
    }
    // The reference comes first: once the entry is made, nothing may fail.
    xfn::Reference ref(xfn::make_reference(ctx->shared, place));
    xfn::Store *store = xfn::changing_store(ctx->shared);
    const unsigned code = ref != nullptr
                              ? store->operations->create(store, place.entry(), geteuid())
                              : unsigned{FN_E_INSUFFICIENT_RESOURCES};
    return finish(status, code, name) ? ref.release() : nullptr;
}

int fn_ctx_destroy_subcontext(FN_ctx_t *ctx, const FN_composite_name_t *name, FN_status_t *status) {
    Place place;
    if (!resolve(ctx, name, &place, status))
        return 0;
    if (place.kind != Kind::entry)
        return set_status(status, FN_E_OPERATION_NOT_SUPPORTED);
    xfn::Store *store = xfn::changing_store(ctx->shared);
    return finish(status, store->operations->destroy(store, place.entry(), geteuid()), name);
}
