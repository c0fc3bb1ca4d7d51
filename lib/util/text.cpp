#include <qel/qelp.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <unistd.h>

#include <lib/memory.h>

namespace {

void reverse(char *string) {
    std::reverse(string, string + std::strlen(string));
}

} // namespace

int __qel_snprintf(char *buffer, size_t size, const char *format, ...) {
    if (buffer == nullptr || format == nullptr || size == 0 || size > INT32_MAX)
        return 1;
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    if (length >= 0)
        return 0;
    buffer[0] = '\0';
    return 1;
}

QelStatus __qel_str_up(const char *string, int mode, char **result_out) {
    if (result_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *result_out = nullptr;
    if (string == nullptr || *string == '\0' || (mode != 1 && mode != 2))
        return QEL_ERR_BAD_PARAM;

    const std::size_t length = std::strlen(string);
    const std::size_t escapes = mode == 1 ? std::count(string, string + length, ',') : 0;
    if (length > SIZE_MAX - 1 - escapes)
        return QEL_ERR_NO_MEMORY;
    char *result = static_cast<char *>(std::malloc(length + escapes + 1));
    if (result == nullptr)
        return QEL_ERR_NO_MEMORY;

    char *to = result;
    for (const char *c = string; *c != '\0'; ++c) {
        if (mode == 1 && *c == ',')
            *to++ = '\\';
        *to++ = *c >= 'a' && *c <= 'z' ? static_cast<char>(*c - 'a' + 'A') : *c;
    }
    *to = '\0';
    *result_out = result;
    return QEL_OK;
}

QelStatus __qel_get_fname(const char *name, char **result_out) {
    if (result_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *result_out = nullptr;
    if (name == nullptr)
        return QEL_ERR_BAD_PARAM;
    if (*name == '/') {
        *result_out = strdup(name);
        return *result_out != nullptr ? QEL_OK : QEL_ERR_NO_MEMORY;
    }

    char folder[1024];
    if (getcwd(folder, sizeof folder) == nullptr)
        return QEL_ERR_GENERAL;
    const std::size_t size = std::strlen(folder) + 1 + std::strlen(name) + 1;
    qel::Owned<char> path(static_cast<char *>(std::malloc(size)));
    if (path == nullptr)
        return QEL_ERR_NO_MEMORY;
    if (__qel_snprintf(path.get(), size, "%s/%s", folder, name) != 0)
        return QEL_ERR_GENERAL;
    *result_out = path.release();
    return QEL_OK;
}

void __qel_itoa(int32_t number, char *text) {
    if (text == nullptr)
        return;
    uint32_t rest = number < 0 ? 0U - static_cast<uint32_t>(number) : static_cast<uint32_t>(number);
    char *to = text;
    do
        *to++ = static_cast<char>('0' + rest % 10);
    while ((rest /= 10) != 0);
    if (number < 0)
        *to++ = '-';
    *to = '\0';
    reverse(text);
}
