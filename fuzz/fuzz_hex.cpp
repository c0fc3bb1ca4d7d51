// Hexadecimal text: as it stands, and with prefixes and separators, from which digits must come that
// can be read.
#include <qel/qelp.h>

#include <cstdlib>
#include <cstring>
#include <string>

static void clean(const uint8_t *data, std::size_t size) {
    char *digits = nullptr;
    uint8_t *bytes = nullptr;
    uint32_t length = 0;
    if (__qel_parse_hex(reinterpret_cast<const char *>(data), static_cast<uint32_t>(size),
                        &digits) == QEL_OK &&
        (__qel_hex_2_binary(digits, &bytes, &length) != QEL_OK ||
         length != (std::strlen(digits) + 1) / 2))
        std::abort();
    std::free(digits);
    std::free(bytes);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    uint8_t *bytes = nullptr;
    uint32_t length = 0;
    if (__qel_hex_2_binary(text.c_str(), &bytes, &length) == QEL_OK &&
        (bytes == nullptr || bytes[length] != 0))
        std::abort();
    std::free(bytes);
    clean(data, size);
    return 0;
}
