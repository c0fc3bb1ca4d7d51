// reference.cpp: identifiers, references and their addresses.

#include "objects.h"

bool xfn::copy_bytes(FN_attrvalue_t *copy, std::string_view bytes) {
    auto *block = static_cast<char *>(std::malloc(bytes.size() + 1));
    if (block == nullptr)
        return false;
    if (!bytes.empty())
        std::memcpy(block, bytes.data(), bytes.size());
    block[bytes.size()] = '\0';
    *copy = {bytes.size(), block};
    return true;
}

bool xfn::copy_identifier(FN_identifier_t *copy, const FN_identifier_t &id) {
    FN_attrvalue_t contents;
    if (!copy_bytes(&contents, view(id)))
        return false;
    *copy = {id.format, contents.length, contents.contents};
    return true;
}

bool xfn::equal(const FN_identifier_t &first, const FN_identifier_t &second) {
    return first.format == second.format && view(first) == view(second);
}

FN_ref_addr_t *fn_ref_addr_create(const FN_identifier_t *type, size_t length, const void *data) {
    xfn::Address addr(qel::allocate<FN_ref_addr_t>());
    if (type == nullptr || (data == nullptr && length != 0) || addr == nullptr ||
        !xfn::copy_identifier(&addr->type, *type) ||
        !xfn::copy_bytes(&addr->data, {static_cast<const char *>(data), length}))
        return nullptr;
    return addr.release();
}

FN_ref_addr_t *fn_ref_addr_copy(const FN_ref_addr_t *addr) {
    return addr != nullptr ? fn_ref_addr_create(&addr->type, addr->data.length, addr->data.contents)
                           : nullptr;
}

void fn_ref_addr_destroy(FN_ref_addr_t *addr) {
    if (addr == nullptr)
        return;
    std::free(addr->type.contents);
    std::free(addr->data.contents);
    std::free(addr);
}

const FN_identifier_t *fn_ref_addr_type(const FN_ref_addr_t *addr) {
    return &addr->type;
}

size_t fn_ref_addr_length(const FN_ref_addr_t *addr) {
    return addr->data.length;
}

const void *fn_ref_addr_data(const FN_ref_addr_t *addr) {
    return addr->data.contents;
}

FN_ref_t *fn_ref_create(const FN_identifier_t *ref_type) {
    xfn::Reference ref(qel::allocate<FN_ref_t>());
    if (ref_type == nullptr || ref == nullptr || !xfn::copy_identifier(&ref->type, *ref_type))
        return nullptr;
    return ref.release();
}

FN_ref_t *fn_ref_copy(const FN_ref_t *ref) {
    if (ref == nullptr)
        return nullptr;
    xfn::Reference copy(fn_ref_create(&ref->type));
    if (copy == nullptr)
        return nullptr;
    for (const FN_ref_addr_t *addr : ref->addresses)
        if (!fn_ref_append_addr(copy.get(), addr))
            return nullptr;
    return copy.release();
}

void fn_ref_destroy(FN_ref_t *ref) {
    if (ref == nullptr)
        return;
    for (FN_ref_addr_t *addr : ref->addresses)
        fn_ref_addr_destroy(addr);
    std::free(ref->addresses.items);
    std::free(ref->type.contents);
    std::free(ref);
}

const FN_identifier_t *fn_ref_type(const FN_ref_t *ref) {
    return &ref->type;
}

unsigned int fn_ref_addrcount(const FN_ref_t *ref) {
    return static_cast<unsigned int>(ref->addresses.count);
}

const FN_ref_addr_t *fn_ref_first(const FN_ref_t *ref, void **iter_pos) {
    FN_ref_addr_t **addr = ref->addresses.first(iter_pos);
    return addr != nullptr ? *addr : nullptr;
}

const FN_ref_addr_t *fn_ref_next(const FN_ref_t *ref, void **iter_pos) {
    FN_ref_addr_t **addr = ref->addresses.next(iter_pos);
    return addr != nullptr ? *addr : nullptr;
}

int fn_ref_append_addr(FN_ref_t *ref, const FN_ref_addr_t *addr) {
    xfn::Address copy(fn_ref_addr_copy(addr));
    if (copy == nullptr || !ref->addresses.append(copy.get()))
        return 0;
    copy.release();
    return 1;
}
