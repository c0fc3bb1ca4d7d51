#include <qel/qelp.h>

#include <cstdlib>
#include <utility>

#include <lib/context.h>
#include <lib/memory.h>

namespace {

struct NameArray {
    QelName *names = nullptr;
    int count = 0;

    NameArray() = default;
    NameArray(const NameArray &) = delete;
    NameArray &operator=(const NameArray &) = delete;
    ~NameArray() {
        for (int i = 0; i < count; ++i)
            __qel_free2_dn(names + i);
        std::free(names);
    }
};

std::size_t count_strings(const char *const *strings) {
    std::size_t count = 0;
    while (strings[count] != nullptr && *strings[count] != '\0')
        ++count;
    return count;
}

QelStatus parse_names(QelContext *context, const char *const *strings, NameArray &array) {
    const std::size_t count = count_strings(strings);
    if (count > INT32_MAX)
        return QEL_ERR_BAD_PARAM;
    array.names = static_cast<QelName *>(std::calloc(count != 0 ? count : 1, sizeof(QelName)));
    if (array.names == nullptr)
        return QEL_ERR_NO_MEMORY;
    for (std::size_t i = 0; i < count; ++i) {
        QelName *name = nullptr;
        const QelStatus status = qel_str2dn(context, strings[i], &name);
        if (status != QEL_OK)
            return status;
        array.names[array.count++] = *name; // takes over what the record owns
        std::free(name);
    }
    return QEL_OK;
}

} // namespace

QelStatus __qel_strs2dns(const char *const *strings, QelName **names_out, int *count_out) {
    if (names_out == nullptr || count_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *names_out = nullptr;
    *count_out = 0;
    if (strings == nullptr || strings[0] == nullptr)
        return QEL_ERR_BAD_PARAM;

    QelContext *context = nullptr;
    QelStatus status = __qel_init(&context, nullptr, nullptr);
    const qel::OwnedContext context_owner(context);
    if (status != QEL_OK)
        return status;
    NameArray array;
    status = parse_names(context, strings, array);
    if (status != QEL_OK)
        return status;
    *names_out = std::exchange(array.names, nullptr);
    *count_out = std::exchange(array.count, 0);
    return QEL_OK;
}

QelStatus __qel_find_dn_in_list(const char *const *strings, const QelName *name) {
    if (strings == nullptr || strings[0] == nullptr || name == nullptr)
        return QEL_ERR_BAD_PARAM;

    QelContext *context = nullptr;
    QelStatus status = __qel_init(&context, nullptr, nullptr);
    const qel::OwnedContext context_owner(context);
    if (status != QEL_OK)
        return status;
    NameArray array;
    status = parse_names(context, strings, array);
    if (status != QEL_OK)
        return status;
    for (int i = 0; i < array.count; ++i) {
        int difference = 0;
        status = __qel_cmp_dn(context, array.names + i, name, &difference);
        if (status != QEL_OK || difference == 0)
            return status;
    }
    return QEL_ERR_NO_ENTRY;
}
