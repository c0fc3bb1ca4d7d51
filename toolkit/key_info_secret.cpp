#include "objects.h"

#include <bit>
#include <cstring>

namespace toolkit {
namespace {

int set_item(KeyObject *object, B_KEY_INFO_TYPE, POINTER info) {
    const ITEM &item = *static_cast<const ITEM *>(info);
    if (item.data == nullptr && item.len != 0)
        return BE_KEY_INFO;
    return set_secret_key(object, item.data, item.len);
}

int get_item(POINTER *info, KeyObject *object, B_KEY_INFO_TYPE) {
    if (object->kind != KeyKind::secret)
        return BE_KEY_OPERATION_UNKNOWN;
    *info = &object->item;
    return BE_OK;
}

int check_fixed(const KeyObject *object, B_KEY_INFO_TYPE type) {
    return object->kind == KeyKind::secret && object->item.len == type->size
               ? BE_OK
               : BE_KEY_OPERATION_UNKNOWN;
}

int set_fixed(KeyObject *object, B_KEY_INFO_TYPE type, POINTER info) {
    return set_secret_key(object, static_cast<const uint8_t *>(info), type->size);
}

int get_fixed(POINTER *info, KeyObject *object, B_KEY_INFO_TYPE type) {
    if (const int error = check_fixed(object, type); error != BE_OK)
        return error;
    *info = object->item.data;
    return BE_OK;
}

// Odd parity in the lowest bit of each byte (FIPS 46-3).
int get_des(POINTER *info, KeyObject *object, B_KEY_INFO_TYPE type) {
    if (const int error = check_fixed(object, type); error != BE_OK)
        return error;
    auto *key = static_cast<uint8_t *>(keep_record(&object->records, type, type->size));
    if (key == nullptr)
        return BE_ALLOC;
    for (uint32_t i = 0; i < type->size; ++i) {
        const uint8_t bits = object->item.data[i] & 0xfe;
        key[i] = static_cast<uint8_t>(bits | ((std::popcount(bits) + 1) & 1));
    }
    *info = key;
    return BE_OK;
}

int set_desx(KeyObject *object, B_KEY_INFO_TYPE type, POINTER info) {
    const auto &key = *static_cast<const A_DESX_KEY *>(info);
    if (key.key == nullptr || key.inputWhitener == nullptr || key.outputWhitener == nullptr)
        return BE_KEY_INFO;
    SecretArray<24> bytes;
    std::memcpy(bytes.bytes, key.key, 8);
    std::memcpy(bytes.bytes + 8, key.inputWhitener, 8);
    std::memcpy(bytes.bytes + 16, key.outputWhitener, 8);
    return set_secret_key(object, bytes.bytes, type->size);
}

int get_desx(POINTER *info, KeyObject *object, B_KEY_INFO_TYPE type) {
    if (const int error = check_fixed(object, type); error != BE_OK)
        return error;
    auto *key = static_cast<A_DESX_KEY *>(keep_record(&object->records, type, sizeof(A_DESX_KEY)));
    if (key == nullptr)
        return BE_ALLOC;
    const uint8_t *bytes = object->item.data;
    *key = {bytes, bytes + 8, bytes + 16};
    *info = key;
    return BE_OK;
}

constexpr KeyInfoType item = {set_item, get_item};
constexpr KeyInfoType bytes8 = {set_fixed, get_fixed, 8};
constexpr KeyInfoType des8 = {set_fixed, get_des, 8};
constexpr KeyInfoType bytes24 = {set_fixed, get_fixed, 24};
constexpr KeyInfoType desx = {set_desx, get_desx, 24};

} // namespace

const B_KEY_INFO_TYPE KI_Item = &item;
const B_KEY_INFO_TYPE KI_8Byte = &bytes8;
const B_KEY_INFO_TYPE KI_DES8 = &des8;
const B_KEY_INFO_TYPE KI_24Byte = &bytes24;
const B_KEY_INFO_TYPE KI_DESX = &desx;

} // namespace toolkit
