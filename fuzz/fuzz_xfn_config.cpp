// /etc/fn.conf: whatever is in it, every location that comes out is one that a store takes.
#include "config.h"
#include "store.h"

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    xfn::Config config;
    if (!xfn::parse_config({reinterpret_cast<const char *>(data), size}, &config))
        return 0;
    if (config.initial == 0 || config.initial > xfn::back_end_count)
        std::abort();
    for (const char *location : config.locations)
        if (xfn::kind_of_location(location) == nullptr)
            std::abort();
    return 0;
}
