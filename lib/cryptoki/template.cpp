#include <cryptoki/template.h>

#include <cryptoki/session.h>

#include <cstring>
#include <span>

#include <lib/memory.h>
#include <util/toolkit_binding.h>

using namespace toolkit;

namespace {

constexpr uint32_t invalid_type = 0x80000000;

constexpr uint32_t public_numbers[] = {CKA_MODULUS, CKA_PUBLIC_EXPONENT};
constexpr uint32_t private_numbers[] = {CKA_MODULUS,    CKA_PUBLIC_EXPONENT, CKA_PRIVATE_EXPONENT,
                                        CKA_PRIME_1,    CKA_PRIME_2,         CKA_EXPONENT_1,
                                        CKA_EXPONENT_2, CKA_COEFFICIENT};
constexpr uint32_t secret_octets[] = {CKA_VALUE};

bool is_secret_key_type(uint32_t key_type) {
    return key_type >= CKK_RC2 && key_type <= CKK_DES3;
}

CK_RV from_toolkit(int error) {
    if (error == BE_OK)
        return CKR_OK;
    return error == BE_ALLOC ? CKR_HOST_MEMORY : CKR_DATA_INVALID;
}

// Sets a new key object to one form and reads another, which lives as long as the object.
CK_RV convert_key(B_KEY_INFO_TYPE from, POINTER key, B_KEY_INFO_TYPE to, OwnedKey *object,
                  POINTER *result_out) {
    B_KEY_OBJ created = nullptr;
    if (B_CreateKeyObject(&created) != BE_OK)
        return CKR_HOST_MEMORY;
    object->reset(created);
    const CK_RV result = from_toolkit(B_SetKeyInfo(created, from, key));
    if (result != CKR_OK)
        return result;
    return from_toolkit(B_GetKeyInfo(result_out, created, to));
}

CK_RV encode_key(B_KEY_INFO_TYPE from, POINTER key, B_KEY_INFO_TYPE to, uint8_t **ber_out,
                 uint32_t *length_out) {
    OwnedKey object;
    POINTER encoding = nullptr;
    const CK_RV result = convert_key(from, key, to, &object, &encoding);
    if (result != CKR_OK)
        return result;
    const auto *ber = static_cast<const ITEM *>(encoding);
    uint8_t *copy = qel::allocate_bytes(ber->len);
    if (copy == nullptr)
        return CKR_HOST_MEMORY;
    std::memcpy(copy, ber->data, ber->len);
    *ber_out = copy;
    *length_out = ber->len;
    return CKR_OK;
}

CK_RV store_number_in_template(uint32_t number, uint32_t type, CK_ATTRIBUTE *attributes,
                               uint32_t index) {
    uint8_t octets[sizeof number];
    std::memcpy(octets, &number, sizeof number);
    const ITEM item = {octets, sizeof octets};
    return store_item_in_template(&item, type, attributes, index);
}

CK_RV get_number_from_template(const CK_ATTRIBUTE *attributes, uint32_t count, uint32_t type,
                               uint32_t *number_out) {
    ITEM item = {};
    const CK_RV result = get_item_from_template(attributes, count, type, &item);
    if (result != CKR_OK)
        return result;
    if (item.len != sizeof *number_out)
        return CKR_DATA_INVALID;
    std::memcpy(number_out, item.data, sizeof *number_out);
    return CKR_OK;
}

// A key of one class and type with the items of these types, in order.
CK_RV make_template(uint32_t object_class, uint32_t key_type, std::span<const uint32_t> types,
                    std::span<const ITEM *const> items, CK_ATTRIBUTE **template_out,
                    uint32_t *count_out) {
    const auto count = static_cast<uint32_t>(types.size() + 2);
    OwnedTemplate made =
        own_template(static_cast<CK_ATTRIBUTE *>(std::calloc(count, sizeof(CK_ATTRIBUTE))), count);
    if (made == nullptr)
        return CKR_HOST_MEMORY;
    CK_RV result = store_number_in_template(object_class, CKA_CLASS, made.get(), 0);
    if (result == CKR_OK)
        result = store_number_in_template(key_type, CKA_KEY_TYPE, made.get(), 1);
    for (uint32_t i = 0; i < types.size() && result == CKR_OK; ++i)
        result = store_item_in_template(items[i], types[i], made.get(), i + 2);
    if (result != CKR_OK)
        return result;
    *template_out = made.release();
    *count_out = count;
    return CKR_OK;
}

bool clear_template_out(CK_ATTRIBUTE **template_out, uint32_t *count_out) {
    if (template_out == nullptr || count_out == nullptr)
        return false;
    *template_out = nullptr;
    *count_out = 0;
    return true;
}

// Class first, then key type.
CK_RV get_kind(const CK_ATTRIBUTE *attributes, uint32_t count, uint32_t first_class,
               uint32_t last_class, uint32_t *class_out) {
    uint32_t key_type = 0;
    CK_RV result = get_number_from_template(attributes, count, CKA_CLASS, class_out);
    if (result != CKR_OK)
        return result;
    if (*class_out < first_class || *class_out > last_class)
        return CKR_DATA_INVALID;
    result = get_number_from_template(attributes, count, CKA_KEY_TYPE, &key_type);
    if (result != CKR_OK)
        return result;
    const bool right =
        *class_out == CKO_SECRET_KEY ? is_secret_key_type(key_type) : key_type == CKK_RSA;
    return right ? CKR_OK : CKR_DATA_INVALID;
}

CK_RV check_kind(const CK_ATTRIBUTE *attributes, uint32_t count, uint32_t object_class) {
    uint32_t found = 0;
    return get_kind(attributes, count, object_class, object_class, &found);
}

CK_RV get_items(const CK_ATTRIBUTE *attributes, uint32_t count, std::span<const uint32_t> types,
                std::span<ITEM *const> items_out) {
    for (uint32_t i = 0; i < types.size(); ++i) {
        const CK_RV result = get_item_from_template(attributes, count, types[i], items_out[i]);
        if (result != CKR_OK)
            return result;
    }
    return CKR_OK;
}

CK_RV read_items(const CK_ATTRIBUTE *attributes, uint32_t count, std::span<const uint32_t> types,
                 std::span<ITEM *const> items_out) {
    for (uint32_t i = 0; i < types.size(); ++i) {
        const CK_RV result = read_item_from_template(attributes, count, types[i], items_out[i]);
        if (result != CKR_OK)
            return result;
    }
    return CKR_OK;
}

} // namespace

// ---- Entries

CK_RV bundle_attr(uint32_t type, void *value, uint32_t length, CK_ATTRIBUTE *attribute_out) {
    if ((type & invalid_type) != 0 || value == nullptr || length == 0 || attribute_out == nullptr)
        return CKR_DATA_INVALID;
    *attribute_out = {type, value, length};
    return CKR_OK;
}

CK_RV store_attr_in_template(CK_ATTRIBUTE *attributes, uint32_t index,
                             const CK_ATTRIBUTE *attribute) {
    if (attributes == nullptr || attribute == nullptr)
        return CKR_DATA_INVALID;
    attributes[index] = *attribute;
    return CKR_OK;
}

CK_RV store_item_in_template(const ITEM *item, uint32_t type, CK_ATTRIBUTE *attributes,
                             uint32_t index) {
    CK_ATTRIBUTE attribute = {};
    if (item == nullptr || attributes == nullptr ||
        bundle_attr(type, item->data, item->len, &attribute) != CKR_OK)
        return CKR_DATA_INVALID;
    attribute.value = std::malloc(item->len);
    if (attribute.value == nullptr)
        return CKR_HOST_MEMORY;
    std::memcpy(attribute.value, item->data, item->len);
    return store_attr_in_template(attributes, index, &attribute);
}

CK_RV get_attr_from_template(const CK_ATTRIBUTE *attributes, uint32_t count,
                             CK_ATTRIBUTE *attribute) {
    if (attributes == nullptr || count == 0 || attribute == nullptr ||
        (attribute->type & invalid_type) != 0)
        return CKR_DATA_INVALID;
    for (const CK_ATTRIBUTE &entry : std::span(attributes, count)) {
        if (entry.type == attribute->type) {
            *attribute = entry;
            return CKR_OK;
        }
    }
    return CKR_ATTRIBUTE_TYPE_INVALID;
}

CK_RV get_item_from_template(const CK_ATTRIBUTE *attributes, uint32_t count, uint32_t type,
                             ITEM *item_out) {
    if (item_out == nullptr)
        return CKR_DATA_INVALID;
    *item_out = {};
    CK_ATTRIBUTE attribute = {type, nullptr, 0};
    const CK_RV result = get_attr_from_template(attributes, count, &attribute);
    if (result == CKR_OK)
        *item_out = {static_cast<uint8_t *>(attribute.value), attribute.value_length};
    return result;
}

CK_RV read_item_from_template(const CK_ATTRIBUTE *attributes, uint32_t count, uint32_t type,
                              ITEM *item_out) {
    const CK_RV result = get_item_from_template(attributes, count, type, item_out);
    if (result != CKR_OK)
        return result;
    const ITEM found = *item_out;
    *item_out = {};
    if (found.len == 0)
        return CKR_OK;
    uint8_t *copy = qel::allocate_bytes(found.len);
    if (copy == nullptr)
        return CKR_HOST_MEMORY;
    std::memcpy(copy, found.data, found.len);
    *item_out = {copy, found.len};
    return CKR_OK;
}

void free2_template(CK_ATTRIBUTE *attributes, int32_t count) {
    if (attributes == nullptr)
        return;
    for (int32_t i = 0; i < count; ++i) {
        if (attributes[i].value != nullptr)
            explicit_bzero(attributes[i].value, attributes[i].value_length);
        std::free(attributes[i].value);
        attributes[i] = {};
    }
}

void free_template(CK_ATTRIBUTE **attributes, int32_t count) {
    if (attributes == nullptr || *attributes == nullptr || count <= 0)
        return;
    free2_template(*attributes, count);
    std::free(*attributes);
    *attributes = nullptr;
}

// ---- Keys to templates

CK_RV hKey_2_template(CK_OBJECT_HANDLE object, CK_ATTRIBUTE **template_out, uint32_t *count_out) {
    if (!clear_template_out(template_out, count_out))
        return CKR_DATA_INVALID;
    if (object == nullptr || object->attributes == nullptr || object->count == 0)
        return CKR_KEY_HANDLE_INVALID;
    *template_out = object->attributes;
    *count_out = object->count;
    return CKR_OK;
}

CK_RV privateKeyInfoBer_2_template(const uint8_t *ber, uint32_t length, CK_ATTRIBUTE **template_out,
                                   uint32_t *count_out) {
    if (!clear_template_out(template_out, count_out) || ber == nullptr || length == 0)
        return CKR_DATA_INVALID;
    const ITEM encoding = {const_cast<uint8_t *>(ber), length};
    OwnedKey object;
    POINTER key = nullptr;
    const CK_RV result =
        convert_key(KI_PKCS_RSAPrivateBER, &encoding, KI_PKCS_RSAPrivate, &object, &key);
    if (result != CKR_OK)
        return result;
    return pkcsRsaPrivate_2_PkcsRsaPrivateTemplate(static_cast<const A_PKCS_RSA_PRIVATE_KEY *>(key),
                                                   template_out, count_out);
}

CK_RV subjectPublicKeyInfoBer_2_template(const uint8_t *ber, uint32_t length,
                                         CK_ATTRIBUTE **template_out, uint32_t *count_out) {
    if (!clear_template_out(template_out, count_out) || ber == nullptr || length == 0)
        return CKR_DATA_INVALID;
    const ITEM encoding = {const_cast<uint8_t *>(ber), length};
    OwnedKey object;
    POINTER key = nullptr;
    const CK_RV result = convert_key(KI_RSAPublicBER, &encoding, KI_RSAPublic, &object, &key);
    if (result != CKR_OK)
        return result;
    return rsaKey_2_RsaKeyTemplate(static_cast<const A_RSA_KEY *>(key), template_out, count_out);
}

CK_RV pkcsRsaPrivate_2_PkcsRsaPrivateTemplate(const A_PKCS_RSA_PRIVATE_KEY *key,
                                              CK_ATTRIBUTE **template_out, uint32_t *count_out) {
    if (!clear_template_out(template_out, count_out) || key == nullptr)
        return CKR_DATA_INVALID;
    const ITEM *const numbers[] = {
        &key->modulus,  &key->publicExponent,   &key->privateExponent,  &key->prime[0],
        &key->prime[1], &key->primeExponent[0], &key->primeExponent[1], &key->coefficient};
    return make_template(CKO_PRIVATE_KEY, CKK_RSA, private_numbers, numbers, template_out,
                         count_out);
}

CK_RV rsaKey_2_RsaKeyTemplate(const A_RSA_KEY *key, CK_ATTRIBUTE **template_out,
                              uint32_t *count_out) {
    if (!clear_template_out(template_out, count_out) || key == nullptr)
        return CKR_DATA_INVALID;
    const ITEM *const numbers[] = {&key->modulus, &key->exponent};
    return make_template(CKO_PUBLIC_KEY, CKK_RSA, public_numbers, numbers, template_out, count_out);
}

CK_RV secretKey_2_template(const uint8_t *octets, uint32_t length, uint32_t key_type,
                           CK_ATTRIBUTE **template_out, uint32_t *count_out) {
    if (!clear_template_out(template_out, count_out) || octets == nullptr || length == 0 ||
        !is_secret_key_type(key_type))
        return CKR_DATA_INVALID;
    const ITEM value = {const_cast<uint8_t *>(octets), length};
    const ITEM *const items[] = {&value};
    return make_template(CKO_SECRET_KEY, key_type, secret_octets, items, template_out, count_out);
}

// ---- Templates to keys

CK_RV template_2_subjectPublicKeyInfoBer(const CK_ATTRIBUTE *attributes, uint32_t count,
                                         uint8_t **ber_out, uint32_t *length_out) {
    if (ber_out == nullptr || length_out == nullptr)
        return CKR_DATA_INVALID;
    *ber_out = nullptr;
    *length_out = 0;
    CK_RV result = check_kind(attributes, count, CKO_PUBLIC_KEY);
    if (result != CKR_OK)
        return result;
    A_RSA_KEY key = {};
    ITEM *const numbers[] = {&key.modulus, &key.exponent};
    result = get_items(attributes, count, public_numbers, numbers);
    if (result != CKR_OK)
        return result;
    return encode_key(KI_RSAPublic, &key, KI_RSAPublicBER, ber_out, length_out);
}

CK_RV template_2_privateKeyInfoBer(const CK_ATTRIBUTE *attributes, uint32_t count,
                                   uint8_t **ber_out, uint32_t *length_out) {
    if (ber_out == nullptr || length_out == nullptr)
        return CKR_DATA_INVALID;
    *ber_out = nullptr;
    *length_out = 0;
    CK_RV result = check_kind(attributes, count, CKO_PRIVATE_KEY);
    if (result != CKR_OK)
        return result;
    A_PKCS_RSA_PRIVATE_KEY key = {};
    ITEM *const numbers[] = {&key.modulus,          &key.publicExponent, &key.privateExponent,
                             &key.prime[0],         &key.prime[1],       &key.primeExponent[0],
                             &key.primeExponent[1], &key.coefficient};
    result = get_items(attributes, count, private_numbers, numbers);
    if (result != CKR_OK)
        return result;
    return encode_key(KI_PKCS_RSAPrivate, &key, KI_PKCS_RSAPrivateBER, ber_out, length_out);
}

CK_RV template_2_RsaCrtKey(const CK_ATTRIBUTE *attributes, uint32_t count,
                           A_RSA_CRT_KEY **key_out) {
    constexpr uint32_t types[] = {CKA_MODULUS,    CKA_PRIME_1,    CKA_PRIME_2,
                                  CKA_EXPONENT_1, CKA_EXPONENT_2, CKA_COEFFICIENT};
    if (key_out == nullptr)
        return CKR_DATA_INVALID;
    *key_out = nullptr;
    CK_RV result = check_kind(attributes, count, CKO_PRIVATE_KEY);
    if (result != CKR_OK)
        return result;
    qel::Record<A_RSA_CRT_KEY, free_A_RSA_CRT_KEY> key(qel::allocate<A_RSA_CRT_KEY>());
    if (key == nullptr)
        return CKR_HOST_MEMORY;
    ITEM *const numbers[] = {&key->modulus,          &key->prime[0],         &key->prime[1],
                             &key->primeExponent[0], &key->primeExponent[1], &key->coefficient};
    result = read_items(attributes, count, types, numbers);
    if (result != CKR_OK)
        return result;
    *key_out = key.release();
    return CKR_OK;
}

CK_RV template_2_RsaKey(const CK_ATTRIBUTE *attributes, uint32_t count, A_RSA_KEY **key_out) {
    if (key_out == nullptr)
        return CKR_DATA_INVALID;
    *key_out = nullptr;
    uint32_t object_class = 0;
    CK_RV result = get_kind(attributes, count, CKO_PUBLIC_KEY, CKO_PRIVATE_KEY, &object_class);
    if (result != CKR_OK)
        return result;
    const uint32_t types[] = {CKA_MODULUS, object_class == CKO_PUBLIC_KEY
                                               ? uint32_t{CKA_PUBLIC_EXPONENT}
                                               : uint32_t{CKA_PRIVATE_EXPONENT}};
    qel::Record<A_RSA_KEY, free_A_RSA_KEY> key(qel::allocate<A_RSA_KEY>());
    if (key == nullptr)
        return CKR_HOST_MEMORY;
    ITEM *const numbers[] = {&key->modulus, &key->exponent};
    result = read_items(attributes, count, types, numbers);
    if (result != CKR_OK)
        return result;
    *key_out = key.release();
    return CKR_OK;
}

CK_RV template_2_KeyItem(const CK_ATTRIBUTE *attributes, uint32_t count, ITEM **item_out) {
    if (item_out == nullptr)
        return CKR_DATA_INVALID;
    *item_out = nullptr;
    CK_RV result = check_kind(attributes, count, CKO_SECRET_KEY);
    if (result != CKR_OK)
        return result;
    qel::Record<ITEM, free_ITEM> item(qel::allocate<ITEM>());
    if (item == nullptr)
        return CKR_HOST_MEMORY;
    result = read_item_from_template(attributes, count, CKA_VALUE, item.get());
    if (result != CKR_OK)
        return result;
    *item_out = item.release();
    return CKR_OK;
}
