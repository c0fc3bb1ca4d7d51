// Hexadecimal text.
#include <qel/qelp.h>

#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    uint8_t *bytes = nullptr;
    uint32_t length = 0;
    if (__qel_hex_2_binary(text.c_str(), &bytes, &length) == QEL_OK &&
        (bytes == nullptr || bytes[length] != 0))
        std::abort();
    std::free(bytes);
    return 0;
}
