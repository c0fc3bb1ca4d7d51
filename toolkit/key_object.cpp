#include "objects.h"

#include <bit>
#include <cstring>
#include <new>

namespace toolkit {
namespace {

constexpr uint32_t min_modulus_bits = 256;
constexpr uint32_t max_modulus_bits = 16384;

uint32_t bits_of(const ITEM &digits) {
    if (digits.len == 0)
        return 0;
    return (digits.len - 1) * 8 + static_cast<uint32_t>(std::bit_width(digits.data[0]));
}

bool is_odd(const ITEM &digits) {
    return digits.len != 0 && (digits.data[digits.len - 1] & 1) != 0;
}

} // namespace

int B_CreateKeyObject(B_KEY_OBJ *object) {
    if (object == nullptr)
        return BE_KEY_OBJ;
    void *block = std::calloc(1, sizeof(KeyObject));
    *object = block != nullptr ? new (block) KeyObject{} : nullptr;
    return block != nullptr ? BE_OK : BE_ALLOC;
}

void B_DestroyKeyObject(B_KEY_OBJ *object) {
    if (object == nullptr || *object == nullptr)
        return;
    clear_key(*object);
    explicit_bzero(*object, sizeof(KeyObject)); // it owns nothing any more
    std::free(*object);
    *object = nullptr;
}

int B_SetKeyInfo(B_KEY_OBJ object, B_KEY_INFO_TYPE type, POINTER info) {
    if (object == nullptr)
        return BE_KEY_OBJ;
    if (object->kind != KeyKind::none)
        return BE_KEY_ALREADY_SET;
    if (type == nullptr || info == nullptr)
        return BE_KEY_INFO;
    return type->set(object, type, info);
}

int B_GetKeyInfo(POINTER *info, B_KEY_OBJ object, B_KEY_INFO_TYPE type) {
    if (info == nullptr)
        return BE_KEY_INFO;
    *info = nullptr;
    if (object == nullptr)
        return BE_KEY_OBJ;
    if (object->kind == KeyKind::none)
        return BE_KEY_NOT_SET;
    if (type == nullptr)
        return BE_KEY_INFO;
    *info = kept_record(object->records, type);
    return *info != nullptr ? static_cast<int>(BE_OK) : type->get(info, object, type);
}

int set_secret_key(KeyObject *object, const uint8_t *bytes, uint32_t size) {
    SecretBytes copy = allocate_secret(size);
    if (copy == nullptr)
        return BE_ALLOC;
    if (size != 0)
        std::memcpy(copy.get(), bytes, size);
    object->item = {copy.get(), size};
    object->bytes = std::move(copy);
    object->kind = KeyKind::secret;
    return BE_OK;
}

// The rest of what makes a key is checked when it is prepared for use.
int set_rsa_key(KeyObject *object, const ITEM (&numbers)[rsa_numbers]) {
    ITEM digits[rsa_numbers];
    std::size_t size = 0;
    const uint32_t modulus_size = without_leading_zeros(numbers[rsa_modulus]).len;
    for (std::size_t i = 0; i < rsa_numbers; ++i) {
        digits[i] = without_leading_zeros(numbers[i]);
        if (numbers[i].data != nullptr && (digits[i].len == 0 || digits[i].len > modulus_size))
            return BE_KEY_INFO;
        size += digits[i].len;
    }
    const uint32_t bits = bits_of(digits[rsa_modulus]);
    if (modulus_size > max_modulus_bits / 8 || bits < min_modulus_bits || bits > max_modulus_bits)
        return BE_MODULUS_LEN;
    const ITEM &exponent = digits[rsa_public_exponent];
    if (!is_odd(digits[rsa_modulus]) ||
        (exponent.len != 0 && (!is_odd(exponent) || bits_of(exponent) < 2)))
        return BE_KEY_INFO;

    SecretBytes block = allocate_secret(size);
    if (block == nullptr)
        return BE_ALLOC;
    uint8_t *at = block.get();
    for (std::size_t i = 0; i < rsa_numbers; ++i) {
        if (digits[i].len != 0)
            std::memcpy(at, digits[i].data, digits[i].len);
        object->number[i] = {digits[i].len != 0 ? at : nullptr, digits[i].len};
        at += digits[i].len;
    }
    object->bytes = std::move(block);
    object->kind = KeyKind::rsa;
    return BE_OK;
}

void clear_key(KeyObject *object) {
    drop_records(&object->records);
    *object = KeyObject{};
}

bool rsa_has(const KeyObject &key, std::span<const RsaNumber> names) {
    if (key.kind != KeyKind::rsa)
        return false;
    for (const RsaNumber name : names) {
        if (key.number[name].len == 0)
            return false;
    }
    return true;
}

} // namespace toolkit
