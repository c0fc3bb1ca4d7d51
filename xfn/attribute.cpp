// attribute.cpp: attributes and sets of them.

#include "objects.h"

namespace {

using xfn::Attribute;
using xfn::view;

constexpr std::size_t none = SIZE_MAX;

std::size_t place_of(const FN_attribute_t *attr, std::string_view bytes) {
    for (std::size_t i = 0; i < attr->values.count; ++i)
        if (view(attr->values.items[i]) == bytes)
            return i;
    return none;
}

std::size_t place_of(const FN_attrset_t *attrs, const FN_identifier_t &id) {
    for (std::size_t i = 0; i < attrs->attributes.count; ++i)
        if (xfn::equal(attrs->attributes.items[i]->identifier, id))
            return i;
    return none;
}

} // namespace

// ---- Attributes -----------------------------------------------------------------------------------

bool xfn::append_value(FN_attribute_t *attribute, std::string_view bytes) {
    FN_attrvalue_t copy;
    if (!copy_bytes(&copy, bytes))
        return false;
    if (attribute->values.append(copy))
        return true;
    std::free(copy.contents);
    return false;
}

bool xfn::has_value(const FN_attribute_t *attribute, std::string_view bytes) {
    return place_of(attribute, bytes) != none;
}

FN_attribute_t *fn_attribute_create(const FN_identifier_t *attribute_id,
                                    const FN_identifier_t *attribute_syntax) {
    Attribute attr(qel::allocate<FN_attribute_t>());
    if (attribute_id == nullptr || attribute_syntax == nullptr || attr == nullptr ||
        !xfn::copy_identifier(&attr->identifier, *attribute_id) ||
        !xfn::copy_identifier(&attr->syntax, *attribute_syntax))
        return nullptr;
    return attr.release();
}

FN_attribute_t *fn_attribute_copy(const FN_attribute_t *attr) {
    if (attr == nullptr)
        return nullptr;
    Attribute copy(fn_attribute_create(&attr->identifier, &attr->syntax));
    if (copy == nullptr)
        return nullptr;
    for (const FN_attrvalue_t &value : attr->values)
        if (!xfn::append_value(copy.get(), view(value)))
            return nullptr;
    copy->version = attr->version;
    copy->expected = attr->expected;
    copy->guarded = attr->guarded;
    return copy.release();
}

void fn_attribute_destroy(FN_attribute_t *attr) {
    if (attr == nullptr)
        return;
    for (const FN_attrvalue_t &value : attr->values)
        std::free(value.contents);
    std::free(attr->values.items);
    std::free(attr->identifier.contents);
    std::free(attr->syntax.contents);
    std::free(attr);
}

const FN_identifier_t *fn_attribute_identifier(const FN_attribute_t *attr) {
    return &attr->identifier;
}

const FN_identifier_t *fn_attribute_syntax(const FN_attribute_t *attr) {
    return &attr->syntax;
}

unsigned int fn_attribute_valuecount(const FN_attribute_t *attr) {
    return attr != nullptr ? static_cast<unsigned int>(attr->values.count) : 0;
}

const FN_attrvalue_t *fn_attribute_first(const FN_attribute_t *attr, void **iter_pos) {
    return attr->values.first(iter_pos);
}

const FN_attrvalue_t *fn_attribute_next(const FN_attribute_t *attr, void **iter_pos) {
    return attr->values.next(iter_pos);
}

int fn_attribute_add(FN_attribute_t *attr, const FN_attrvalue_t *value, unsigned int exclusive) {
    if (attr == nullptr || value == nullptr || (value->contents == nullptr && value->length != 0))
        return 0;
    if (xfn::has_value(attr, view(*value)))
        return exclusive == 0;
    return xfn::append_value(attr, view(*value));
}

int fn_attribute_remove(FN_attribute_t *attr, const FN_attrvalue_t *value) {
    if (attr == nullptr || value == nullptr)
        return 0;
    if (const std::size_t place = place_of(attr, view(*value)); place != none) {
        std::free(attr->values.items[place].contents);
        attr->values.erase(place);
    }
    return 1;
}

void fn_attribute_expect(FN_attribute_t *attr, const FN_attribute_t *found) {
    attr->guarded = true;
    attr->expected = found != nullptr ? found->version : 0;
}

// ---- Sets of attributes ---------------------------------------------------------------------------

bool xfn::move_into(FN_attrset_t *set, Attribute *attribute) {
    if (!set->attributes.append(attribute->get()))
        return false;
    attribute->release();
    return true;
}

FN_attrset_t *fn_attrset_create() {
    return qel::allocate<FN_attrset_t>();
}

FN_attrset_t *fn_attrset_copy(const FN_attrset_t *attrs) {
    xfn::AttributeSet copy(fn_attrset_create());
    if (attrs == nullptr || copy == nullptr)
        return nullptr;
    for (const FN_attribute_t *attr : attrs->attributes)
        if (!fn_attrset_add(copy.get(), attr, 0))
            return nullptr;
    return copy.release();
}

void fn_attrset_destroy(FN_attrset_t *attrs) {
    if (attrs == nullptr)
        return;
    for (FN_attribute_t *attr : attrs->attributes)
        fn_attribute_destroy(attr);
    std::free(attrs->attributes.items);
    std::free(attrs);
}

unsigned int fn_attrset_count(const FN_attrset_t *attrs) {
    return attrs != nullptr ? static_cast<unsigned int>(attrs->attributes.count) : 0;
}

const FN_attribute_t *fn_attrset_get(const FN_attrset_t *attrs,
                                     const FN_identifier_t *attribute_id) {
    const std::size_t place = place_of(attrs, *attribute_id);
    return place != none ? attrs->attributes.items[place] : nullptr;
}

const FN_attribute_t *fn_attrset_first(const FN_attrset_t *attrs, void **iter_pos) {
    FN_attribute_t **attr = attrs->attributes.first(iter_pos);
    return attr != nullptr ? *attr : nullptr;
}

const FN_attribute_t *fn_attrset_next(const FN_attrset_t *attrs, void **iter_pos) {
    FN_attribute_t **attr = attrs->attributes.next(iter_pos);
    return attr != nullptr ? *attr : nullptr;
}

int fn_attrset_add(FN_attrset_t *attrs, const FN_attribute_t *attr, unsigned int exclusive) {
    if (attrs == nullptr || attr == nullptr)
        return 0;
    const std::size_t place = place_of(attrs, attr->identifier);
    if (place != none && exclusive != 0)
        return 0;
    Attribute copy(fn_attribute_copy(attr));
    if (copy == nullptr)
        return 0;
    if (place == none)
        return xfn::move_into(attrs, &copy);
    fn_attribute_destroy(attrs->attributes.items[place]);
    attrs->attributes.items[place] = copy.release();
    return 1;
}

int fn_attrset_remove(FN_attrset_t *attrs, const FN_identifier_t *attribute_id) {
    if (attrs == nullptr || attribute_id == nullptr)
        return 0;
    if (const std::size_t place = place_of(attrs, *attribute_id); place != none) {
        fn_attribute_destroy(attrs->attributes.items[place]);
        attrs->attributes.erase(place);
    }
    return 1;
}
