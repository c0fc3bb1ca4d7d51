// status.cpp: status objects and the texts of the codes.

#include "objects.h"

namespace {

using xfn::CompositeName;
using xfn::String;

struct StatusText {
    unsigned int code;
    const char *text;
};

// clang-format off
constexpr StatusText status_texts[] = {
    {FN_SUCCESS,                    "Success"},
    {FN_E_LINK_ERROR,               "A link in the name could not be followed"},
    {FN_E_CONFIGURATION_ERROR,      "The configuration of the naming service is wrong"},
    {FN_E_NAME_NOT_FOUND,           "Name not found"},
    {FN_E_NOT_A_CONTEXT,            "There are no names below this one"},
    {FN_E_LINK_LOOP_LIMIT,          "Too many links in the name"},
    {FN_E_MALFORMED_LINK,           "A link in the name is malformed"},
    {FN_E_ILLEGAL_NAME,             "Illegal name"},
    {FN_E_CTX_NO_PERMISSION,        "Permission denied"},
    {FN_E_NAME_IN_USE,              "The name exists already"},
    {FN_E_OPERATION_NOT_SUPPORTED,  "Operation not supported"},
    {FN_E_COMMUNICATION_FAILURE,    "The naming service cannot be reached"},
    {FN_E_CTX_UNAVAILABLE,          "The naming service is not available"},
    {FN_E_NO_SUPPORTED_ADDRESS,     "The reference has no address of a known type"},
    {FN_E_MALFORMED_REFERENCE,      "The reference is malformed"},
    {FN_E_AUTHENTICATION_FAILURE,   "Authentication failed"},
    {FN_E_INSUFFICIENT_RESOURCES,   "Not enough memory or disk space"},
    {FN_E_CTX_NOT_EMPTY,            "The context is not empty"},
    {FN_E_NO_SUCH_ATTRIBUTE,        "No such attribute"},
    {FN_E_INVALID_ATTR_IDENTIFIER,  "Invalid attribute identifier"},
    {FN_E_INVALID_ATTR_VALUE,       "Invalid attribute value"},
    {FN_E_TOO_MANY_ATTR_VALUES,     "Too many attribute values"},
    {FN_E_ATTR_VALUE_REQUIRED,      "The attribute needs a value"},
    {FN_E_ATTR_NO_PERMISSION,       "Permission to the attribute denied"},
    {FN_E_PARTIAL_RESULT,           "The result is not complete"},
    {FN_E_INVALID_ENUM_HANDLE,      "The list cannot be continued"},
    {FN_E_SYNTAX_NOT_SUPPORTED,     "Name syntax not supported"},
    {FN_E_INVALID_SYNTAX_ATTRS,     "Invalid attributes of a name syntax"},
    {FN_E_INCOMPATIBLE_CODE_SETS,   "Incompatible code sets"},
    {FN_E_CONTINUE,                 "The operation is to be continued"},
    {FN_E_UNSPECIFIED_ERROR,        "Unspecified error"},
    {FN_E_NO_EQUIVALENT_NAME,       "There is no equivalent name"},
    {FN_E_ATTR_IN_USE,              "The attribute exists already"},
    {FN_E_ATTR_CHANGED,             "The attribute was changed by another"},
};
// clang-format on

const char *text_of(unsigned int code) {
    for (const StatusText &row : status_texts)
        if (row.code == code)
            return row.text;
    return "Unknown status";
}

void clear_names(FN_status_t *status) {
    fn_composite_name_destroy(status->remaining);
    fn_composite_name_destroy(status->resolved);
    status->remaining = status->resolved = nullptr;
}

} // namespace

bool xfn::set_status(FN_status_t *status, unsigned int code) {
    if (status != nullptr) {
        clear_names(status);
        status->code = code;
    }
    return code == FN_SUCCESS;
}

void xfn::set_failed_name(FN_status_t *status, unsigned int code, const FN_composite_name_t *name,
                          std::size_t resolved) {
    set_status(status, code);
    if (status == nullptr)
        return;
    const auto *position = reinterpret_cast<const void *>(resolved + 1);
    status->remaining = fn_composite_name_suffix(name, position);
    status->resolved = fn_composite_name_prefix(name, position);
}

FN_status_t *fn_status_create() {
    auto *status = qel::allocate<FN_status_t>();
    if (status != nullptr)
        status->code = FN_SUCCESS;
    return status;
}

FN_status_t *fn_status_copy(const FN_status_t *status) {
    FN_status_t *copy = status != nullptr ? fn_status_create() : nullptr;
    if (copy == nullptr)
        return nullptr;
    copy->code = status->code;
    copy->remaining = fn_composite_name_copy(status->remaining);
    copy->resolved = fn_composite_name_copy(status->resolved);
    if ((copy->remaining == nullptr) == (status->remaining == nullptr) &&
        (copy->resolved == nullptr) == (status->resolved == nullptr))
        return copy;
    fn_status_destroy(copy);
    return nullptr;
}

void fn_status_destroy(FN_status_t *status) {
    if (status == nullptr)
        return;
    clear_names(status);
    std::free(status);
}

unsigned int fn_status_code(const FN_status_t *status) {
    return status != nullptr ? status->code : static_cast<unsigned int>(FN_E_UNSPECIFIED_ERROR);
}

int fn_status_is_success(const FN_status_t *status) {
    return fn_status_code(status) == FN_SUCCESS;
}

int fn_status_set_success(FN_status_t *status) {
    return fn_status_set_code(status, FN_SUCCESS);
}

int fn_status_set_code(FN_status_t *status, unsigned int code) {
    xfn::set_status(status, code);
    return status != nullptr;
}

const FN_composite_name_t *fn_status_remaining_name(const FN_status_t *status) {
    return status != nullptr ? status->remaining : nullptr;
}

const FN_composite_name_t *fn_status_resolved_name(const FN_status_t *status) {
    return status != nullptr ? status->resolved : nullptr;
}

FN_string_t *fn_status_description(const FN_status_t *status, unsigned int detail,
                                   unsigned int *more_detail) {
    const FN_composite_name_t *name = status != nullptr ? status->remaining : nullptr;
    if (more_detail != nullptr)
        *more_detail = detail == 0 && name != nullptr;
    const std::string_view text = text_of(fn_status_code(status));
    if (detail == 0 || name == nullptr)
        return xfn::make_string(text);

    const String rest(fn_string_from_composite_name(name, nullptr));
    if (rest == nullptr)
        return nullptr;
    constexpr std::string_view between = ": ";
    const std::size_t size = text.size() + between.size() + rest->size;
    const qel::Owned<char> both(static_cast<char *>(std::malloc(size)));
    if (both == nullptr)
        return nullptr;
    char *at = both.get();
    for (const std::string_view part : {text, between, xfn::view(rest.get())}) {
        std::memcpy(at, part.data(), part.size());
        at += part.size();
    }
    return xfn::make_string({both.get(), size});
}
