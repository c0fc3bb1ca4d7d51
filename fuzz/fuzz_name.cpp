// Printable names: what parses must print, and the print must be read again. Where no backslash is in
// play (it cannot be escaped, so that one at the end of a value joins what a comma parted), printing
// settles with the second time: the first sorts assertions before they are capitalised.
#include "fuzz.h"

#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    std::string name(reinterpret_cast<const char *>(data), size);
    const bool settles = name.find('\\') == std::string::npos;
    constexpr int rounds = 3;
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
    must(!settles);
    return 0;
}
