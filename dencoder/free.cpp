// free.cpp: releases values by walking the control table.
#include "environment.h"

namespace dencoder {
namespace {

void free_bytes(uint8_t *bytes, std::size_t size) {
    if (bytes != nullptr)
        explicit_bzero(bytes, size);
    std::free(bytes);
}

void free_contents(OssEnvironment &environment, const Type &type, void *record);

void free_component(OssEnvironment &environment, const Component &component, void *record) {
    uint8_t *place = member(record, component);
    if (component.owned)
        free_value(environment, *component.type, *reinterpret_cast<Slot *>(place));
    else
        free_contents(environment, *component.type, place);
}

void free_nodes(OssEnvironment &environment, const Component &element, Node *node) {
    while (node != nullptr) {
        Node *next = node->next;
        free_component(environment, element, node);
        std::free(node);
        node = next;
    }
}

void free_octets(OssEnvironment &environment, const Type &type, CountedBytes &record) {
    if (!type.in_file) {
        const uint32_t size = type.kind == Kind::bit_string
                                  ? record.length / 8 + (record.length % 8 != 0)
                                  : record.length;
        free_bytes(record.value, size);
        return;
    }
    MarkedFile *marked = find_marked(environment, record.value);
    if (marked != nullptr && marked->temporary)
        drop_marked(environment, marked);
}

// What the record owns, not the record itself.
void free_contents(OssEnvironment &environment, const Type &type, void *record) {
    switch (type.kind) {
    case Kind::boolean:
    case Kind::integer:
    case Kind::utc_time:
        break;
    case Kind::short_big_integer: {
        const ShortCountedBytes &bytes = *static_cast<ShortCountedBytes *>(record);
        free_bytes(bytes.value, bytes.length);
        break;
    }
    case Kind::big_integer:
    case Kind::bit_string:
    case Kind::octet_string:
    case Kind::any:
        free_octets(environment, type, *static_cast<CountedBytes *>(record));
        break;
    case Kind::object_identifier:
        std::free(static_cast<Identifier *>(record)->value);
        break;
    case Kind::character_string:
        explicit_bzero(record, strlen(static_cast<char *>(record)));
        break;
    case Kind::choice:
        if (const Component *alternative = chosen(type, record))
            free_component(environment, *alternative, record);
        break;
    case Kind::sequence:
        for (const Component &component : type.components)
            if (is_present(record, component))
                free_component(environment, component, record);
        break;
    case Kind::sequence_of:
    case Kind::set_of:
        free_nodes(environment, type.components[0], load<Node *>(record));
        break;
    }
}

} // namespace

void free_value(OssEnvironment &environment, const Type &type, void *record) {
    if (record == nullptr)
        return;
    free_contents(environment, type, record);
    std::free(record);
}

} // namespace dencoder
