// naming_attributes.cpp: the attributes of names.

#include "context.h"

#include <unistd.h>

using xfn::AttributeSet;
using xfn::finish;
using xfn::Kind;
using xfn::Place;
using xfn::resolve;
using xfn::set_status;

struct FN_multigetlist {
    FN_attrset_t *left; // given out from the end
};

namespace {

// The attributes of a name; contexts of names have none. wanted is null for all.
bool get_attributes(FN_ctx_t *ctx, const FN_composite_name_t *name, const FN_attrset_t *wanted,
                    AttributeSet *found, FN_status_t *status) {
    Place place;
    if (!resolve(ctx, name, &place, status))
        return false;
    if (place.kind != Kind::entry) {
        found->reset(fn_attrset_create());
        return set_status(status, *found != nullptr ? FN_SUCCESS : FN_E_INSUFFICIENT_RESOURCES);
    }
    xfn::Store *store = ctx->shared->store;
    return finish(status, store->operations->get(store, place.entry(), wanted, found), name);
}

// A set of one attribute without values, to ask for it.
bool make_wanted(const FN_identifier_t *id, AttributeSet *wanted) {
    const FN_identifier_t no_syntax = {FN_ID_STRING, 0, nullptr};
    xfn::Attribute attribute(fn_attribute_create(id, &no_syntax));
    wanted->reset(fn_attrset_create());
    return attribute != nullptr && *wanted != nullptr && move_into(wanted->get(), &attribute);
}

void drop_values(FN_attribute_t *attribute) {
    for (const FN_attrvalue_t &value : attribute->values)
        std::free(value.contents);
    attribute->values.count = 0;
}

} // namespace

FN_attribute_t *fn_attr_get(FN_ctx_t *ctx, const FN_composite_name_t *name,
                            const FN_identifier_t *attribute_id, unsigned int,
                            FN_status_t *status) {
    if (attribute_id == nullptr) {
        set_status(status, FN_E_UNSPECIFIED_ERROR);
        return nullptr;
    }
    AttributeSet wanted, found;
    if (!make_wanted(attribute_id, &wanted)) {
        set_status(status, FN_E_INSUFFICIENT_RESOURCES);
        return nullptr;
    }
    if (!get_attributes(ctx, name, wanted.get(), &found, status))
        return nullptr;
    if (found->attributes.count == 0) {
        set_status(status, FN_E_NO_SUCH_ATTRIBUTE);
        return nullptr;
    }
    FN_attribute_t *attribute = found->attributes.items[0];
    found->attributes.erase(0);
    return attribute;
}

int fn_attr_modify(FN_ctx_t *ctx, const FN_composite_name_t *name, unsigned int mod_op,
                   const FN_attribute_t *attr, unsigned int, FN_status_t *status) {
    if (attr == nullptr)
        return set_status(status, FN_E_UNSPECIFIED_ERROR);
    Place place;
    if (!resolve(ctx, name, &place, status))
        return 0;
    if (place.kind != Kind::entry)
        return set_status(status, FN_E_OPERATION_NOT_SUPPORTED);
    xfn::Store *store = xfn::changing_store(ctx->shared);
    return finish(status, store->operations->modify(store, place.entry(), mod_op, attr, geteuid()),
                  name);
}

FN_attrset_t *fn_attr_get_ids(FN_ctx_t *ctx, const FN_composite_name_t *name, unsigned int,
                              FN_status_t *status) {
    AttributeSet found;
    if (!get_attributes(ctx, name, nullptr, &found, status))
        return nullptr;
    for (FN_attribute_t *attribute : found->attributes)
        drop_values(attribute);
    return found.release();
}

FN_multigetlist_t *fn_attr_multi_get(FN_ctx_t *ctx, const FN_composite_name_t *name,
                                     const FN_attrset_t *attr_ids, unsigned int,
                                     FN_status_t *status) {
    qel::Owned<FN_multigetlist_t> list(qel::allocate<FN_multigetlist_t>());
    AttributeSet found;
    if (list == nullptr) {
        set_status(status, FN_E_INSUFFICIENT_RESOURCES);
        return nullptr;
    }
    if (!get_attributes(ctx, name, attr_ids, &found, status))
        return nullptr;
    list->left = found.release();
    return list.release();
}

FN_attribute_t *fn_multigetlist_next(FN_multigetlist_t *list, FN_status_t *status) {
    if (list == nullptr) {
        set_status(status, FN_E_INVALID_ENUM_HANDLE);
        return nullptr;
    }
    set_status(status, FN_SUCCESS);
    xfn::Array<FN_attribute_t *> &left = list->left->attributes;
    return left.count != 0 ? left.items[--left.count] : nullptr;
}

void fn_multigetlist_destroy(FN_multigetlist_t *list) {
    if (list == nullptr)
        return;
    fn_attrset_destroy(list->left);
    std::free(list);
}
