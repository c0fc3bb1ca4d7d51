// Printable names: what parses must print, and the normalised form must be its own normalised form.
#include <qel/qelp.h>

#include <cstdlib>
#include <cstring>
#include <string>

static QelContext *context() {
    static QelContext *made = [] {
        QelContext *fresh = nullptr;
        if (__qel_init(&fresh, nullptr, nullptr) != QEL_OK)
            std::abort();
        return fresh;
    }();
    return made;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const std::string name(reinterpret_cast<const char *>(data), size);
    char *once = nullptr;
    if (__qel_normalize_DN(context(), name.c_str(), 1, &once) != QEL_OK)
        return 0;
    char *twice = nullptr;
    if (*once != '\0' && __qel_normalize_DN(context(), once, 1, &twice) == QEL_OK &&
        std::strcmp(once, twice) != 0)
        std::abort();
    std::free(once);
    std::free(twice);
    return 0;
}
