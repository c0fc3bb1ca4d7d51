// string.cpp: strings.

#include "objects.h"

namespace {

uint8_t folded(char byte) {
    const auto value = static_cast<uint8_t>(byte);
    return value >= 'A' && value <= 'Z' ? static_cast<uint8_t>(value + ('a' - 'A')) : value;
}

} // namespace

FN_string_t *xfn::make_string(std::string_view bytes) {
    String string(qel::allocate<FN_string_t>());
    if (string == nullptr)
        return nullptr;
    string->bytes = static_cast<char *>(std::malloc(bytes.size() + 1));
    if (string->bytes == nullptr)
        return nullptr;
    if (!bytes.empty())
        std::memcpy(string->bytes, bytes.data(), bytes.size());
    string->bytes[bytes.size()] = '\0';
    string->size = bytes.size();
    return string.release();
}

FN_string_t *fn_string_create() {
    return xfn::make_string({});
}

FN_string_t *fn_string_from_str(const unsigned char *str) {
    return str != nullptr ? xfn::make_string(reinterpret_cast<const char *>(str)) : nullptr;
}

FN_string_t *fn_string_from_str_n(const unsigned char *str, size_t n) {
    if (str == nullptr)
        return nullptr;
    const auto *text = reinterpret_cast<const char *>(str);
    return xfn::make_string({text, strnlen(text, n)});
}

FN_string_t *fn_string_copy(const FN_string_t *str) {
    return str != nullptr ? xfn::make_string(xfn::view(str)) : nullptr;
}

void fn_string_destroy(FN_string_t *str) {
    if (str == nullptr)
        return;
    std::free(str->bytes);
    std::free(str);
}

const unsigned char *fn_string_str(const FN_string_t *str, unsigned int *status) {
    if (status != nullptr)
        *status = str != nullptr ? FN_SUCCESS : FN_E_UNSPECIFIED_ERROR;
    return str != nullptr ? reinterpret_cast<const unsigned char *>(str->bytes) : nullptr;
}

size_t fn_string_bytecount(const FN_string_t *str) {
    return str != nullptr ? str->size : 0;
}

int fn_string_is_empty(const FN_string_t *str) {
    return fn_string_bytecount(str) == 0;
}

int fn_string_compare(const FN_string_t *first, const FN_string_t *second, unsigned int string_case,
                      unsigned int *status) {
    if (status != nullptr)
        *status = FN_SUCCESS;
    const std::string_view one = first != nullptr ? xfn::view(first) : std::string_view();
    const std::string_view two = second != nullptr ? xfn::view(second) : std::string_view();
    if (string_case == FN_STRING_CASE_SENSITIVE)
        return one.compare(two);
    for (std::size_t i = 0; i < one.size() && i < two.size(); ++i)
        if (const int order = folded(one[i]) - folded(two[i]); order != 0)
            return order;
    return one.size() < two.size() ? -1 : one.size() > two.size();
}
