// Printable names: what parses must print, and printing must settle. The first printing may change
// what the next one makes of a name (white space before an escaped comma vanishes, assertions are
// sorted before they are capitalised), but a few must reach a text that stays.
#include <qel/qelp.h>

#include <cstdlib>
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
    std::string name(reinterpret_cast<const char *>(data), size);
    constexpr int rounds = 4;
    for (int round = 0; round < rounds; ++round) {
        char *normal = nullptr;
        if (__qel_normalize_DN(context(), name.c_str(), 1, &normal) != QEL_OK)
            return 0;
        const bool settled = name == normal;
        name = normal;
        std::free(normal);
        if (settled)
            return 0;
    }
    std::abort();
}
