#include <cryptoki/return_values.h>

#include <cstddef>
#include <cstdio>

// The spelling of CKR_USER_PIN_NOT_INITIALIZED's text is what programs compare with.
constexpr ReturnValue return_values[] = {
    {CKR_OK, "function has completed successfully"},
    {CKR_CANCEL, "function should be canceled"},
    {CKR_HOST_MEMORY, "not enough memory on host"},
    {CKR_SLOT_ID_INVALID, "slot ID is invalid"},
    {CKR_FLAGS_INVALID, "flags are invalid"},
    {CKR_ATTRIBUTE_READ_ONLY, "attribute cannot be modified"},
    {CKR_ATTRIBUTE_SENSITIVE, "attribute is sensitive and cannot be revealed"},
    {CKR_ATTRIBUTE_TYPE_INVALID, "attribute type is invalid"},
    {CKR_ATTRIBUTE_VALUE_INVALID, "attribute value is invalid"},
    {CKR_DATA_INVALID, "data is invalid"},
    {CKR_DATA_LEN_RANGE, "data length is out of range"},
    {CKR_DEVICE_ERROR, "device error"},
    {CKR_DEVICE_MEMORY, "not enough memory on device"},
    {CKR_DEVICE_REMOVED, "device has been removed"},
    {CKR_ENCRYPTED_DATA_INVALID, "encrypted data is invalid"},
    {CKR_ENCRYPTED_DATA_LEN_RANGE, "encrypted data length is out of range"},
    {CKR_FUNCTION_CANCELED, "function has been canceled"},
    {CKR_FUNCTION_NOT_PARALLEL, "no function is executing in parallel"},
    {CKR_FUNCTION_PARALLEL, "function is executing in parallel"},
    {CKR_KEY_HANDLE_INVALID, "key handle is invalid"},
    {CKR_KEY_SENSITIVE, "key is sensitive and cannot be revealed"},
    {CKR_KEY_SIZE_RANGE, "key size is out of range"},
    {CKR_KEY_TYPE_INCONSISTENT, "key type is inconsistent with mechanism"},
    {CKR_MECHANISM_INVALID, "mechanism is invalid"},
    {CKR_MECHANISM_PARAM_INVALID, "mechanism parameter is invalid"},
    {CKR_OBJECT_CLASS_INCONSISTENT, "object class is inconsistent with mechanism"},
    {CKR_OBJECT_CLASS_INVALID, "object class is invalid"},
    {CKR_OBJECT_HANDLE_INVALID, "object handle is invalid"},
    {CKR_OPERATION_ACTIVE, "another operation is already active"},
    {CKR_OPERATION_NOT_INITIALIZED, "operation has not been initialized"},
    {CKR_PIN_INCORRECT, "PIN is incorrect"},
    {CKR_PIN_INVALID, "new PIN contains invalid characters"},
    {CKR_PIN_LEN_RANGE, "new PIN length is out of range (assuming token specifies range)"},
    {CKR_SESSION_CLOSED, "session has been closed"},
    {CKR_SESSION_COUNT, "session limits have been reached"},
    {CKR_SESSION_EXCLUSIVE_EXISTS, "an exclusive session already exists"},
    {CKR_SESSION_HANDLE_INVALID, "session handle is invalid"},
    {CKR_SESSION_PARALLEL_NOT_SUPPORTED, "parallel execution is not supported"},
    {CKR_SESSION_READ_ONLY, "session is read-only"},
    {CKR_SIGNATURE_INVALID, "signature is invalid"},
    {CKR_SIGNATURE_LEN_RANGE, "signature length is out of range"},
    {CKR_TEMPLATE_INCOMPLETE, "template is incomplete"},
    {CKR_TEMPLATE_INCONSISTENT, "template is inconsistent"},
    {CKR_TOKEN_NOT_PRESENT, "slot does not contain a token"},
    {CKR_TOKEN_NOT_RECOGNIZED, "the token was not recognized"},
    {CKR_TOKEN_WRITE_PROTECTED, "token is write-protected"},
    {CKR_UNWRAPPING_KEY_HANDLE_INVALID, "unwrapping key handle is invalid"},
    {CKR_UNWRAPPING_KEY_SIZE_RANGE, "unwrapping key size is out of range"},
    {CKR_UNWRAPPING_KEY_TYPE_INCONSISTENT, "unwrapping key type is inconsistent"},
    {CKR_USER_ALREADY_LOGGED_IN, "a user is already logged in"},
    {CKR_USER_NOT_LOGGED_IN, "a user is not logged in"},
    {CKR_USER_PIN_NOT_INITIALIZED, "the user's PIN has not been intialized"},
    {CKR_USER_TYPE_INVALID, "user type is invalid"},
    {CKR_WRAPPED_KEY_INVALID, "wrapped key is invalid"},
    {CKR_WRAPPED_KEY_LEN_RANGE, "wrapped key length is out of range"},
    {CKR_WRAPPING_KEY_HANDLE_INVALID, "wrapping key handle is invalid"},
    {CKR_WRAPPING_KEY_SIZE_RANGE, "wrapping key size is out of range"},
    {CKR_WRAPPING_KEY_TYPE_INCONSISTENT, "wrapping key type is inconsistent with mechanism"},
    {0, "Unknown return code"},
};

namespace {

constexpr std::size_t rows = sizeof(return_values) / sizeof(return_values[0]) - 1;

constexpr bool ascending() {
    for (std::size_t i = 1; i < rows; ++i)
        if (return_values[i - 1].value >= return_values[i].value)
            return false;
    return true;
}
static_assert(rows == 58 && ascending());

} // namespace

int print_CK_RV(CK_RV value) {
    if (value == CKR_OK)
        return std::fprintf(stderr, "%s\n", return_values[0].text);
    const ReturnValue *row = &return_values[1];
    while (row->value != value && row->value != 0)
        ++row;
    const char *text = row->value != 0 ? row->text : "Unrecognized error code";
    return std::fprintf(stderr, "%s (%x)\n", text, static_cast<unsigned>(value));
}
