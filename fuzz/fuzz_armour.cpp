// Armoured text in memory: what decodes must come back from its own encoding.
#include "fuzz.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    uint8_t *bytes = nullptr;
    uint32_t length = 0;
    if (__qel_rfc1421_2_binary(reinterpret_cast<const char *>(data), static_cast<uint32_t>(size),
                               &bytes, &length) != QEL_OK)
        return 0;
    char *text = nullptr;
    uint32_t text_length = 0;
    if (length != 0) {
        must(__qel_binary_2_rfc1421(bytes, length, &text, &text_length) == QEL_OK);
        uint8_t *again = nullptr;
        uint32_t again_length = 0;
        must(__qel_rfc1421_2_binary(text, text_length, &again, &again_length) == QEL_OK);
        must(again_length == length && std::memcmp(again, bytes, length) == 0);
        std::free(again);
    }
    std::free(text);
    std::free(bytes);
    return 0;
}
