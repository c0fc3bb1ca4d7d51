#include <cryptoki/session.h>
#include <cryptoki/template.h>

#include <cstring>

#include <lib/memory.h>

CK_RV C_CreateObject(CK_SESSION_HANDLE session, CK_ATTRIBUTE *attributes, uint32_t count,
                     CK_OBJECT_HANDLE *object_out) {
    if (session == nullptr)
        return CKR_SESSION_HANDLE_INVALID;
    if (attributes == nullptr || count == 0)
        return CKR_TEMPLATE_INCOMPLETE;
    if (object_out == nullptr)
        return CKR_DATA_INVALID;
    *object_out = qel::allocate<CK_OBJECT>();
    if (*object_out == nullptr)
        return CKR_HOST_MEMORY;
    **object_out = {attributes, count};
    return CKR_OK;
}

CK_RV make_object(CK_SESSION_HANDLE session, OwnedTemplate attributes, OwnedObject *object_out) {
    CK_OBJECT_HANDLE object = nullptr;
    const auto count = static_cast<uint32_t>(attributes.get_deleter().count);
    const CK_RV result = C_CreateObject(session, attributes.get(), count, &object);
    if (result != CKR_OK)
        return result;
    static_cast<void>(attributes.release());
    *object_out = OwnedObject(object, DestroyObject{session});
    return CKR_OK;
}

CK_RV C_DestroyObject(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object) {
    if (session == nullptr)
        return CKR_SESSION_HANDLE_INVALID;
    if (object == nullptr || object->attributes == nullptr || object->count == 0)
        return CKR_OBJECT_HANDLE_INVALID;
    for (uint32_t i = 0; i < object->count; ++i) { // an empty value is the maker's
        if (object->attributes[i].value_length == 0)
            object->attributes[i].value = nullptr;
    }
    free_template(&object->attributes, static_cast<int32_t>(object->count));
    std::free(object);
    return CKR_OK;
}

CK_RV C_GetAttributeValue(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                          CK_ATTRIBUTE *attributes, uint32_t count) {
    if (session == nullptr)
        return CKR_SESSION_HANDLE_INVALID;
    if (object == nullptr || object->attributes == nullptr || object->count == 0)
        return CKR_OBJECT_HANDLE_INVALID;
    if (attributes == nullptr || count == 0)
        return CKR_ATTRIBUTE_TYPE_INVALID;
    for (uint32_t i = 0; i < count; ++i) {
        CK_ATTRIBUTE &wanted = attributes[i];
        CK_ATTRIBUTE found = {wanted.type, nullptr, 0};
        const CK_RV result = get_attr_from_template(object->attributes, object->count, &found);
        if (result != CKR_OK)
            return result;
        if (wanted.value == nullptr) {
            wanted.value_length = found.value_length;
            continue;
        }
        if (wanted.value_length != found.value_length)
            return CKR_DATA_INVALID;
        if (found.value_length != 0)
            std::memcpy(wanted.value, found.value, found.value_length);
    }
    return CKR_OK;
}
