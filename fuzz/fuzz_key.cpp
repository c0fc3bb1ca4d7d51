// Key encodings as the toolkit reads them: SubjectPublicKeyInfo and PKCS#8.
#include <toolkit/toolkit.h>

#include <cstdlib>

using namespace toolkit;

static void read(B_KEY_INFO_TYPE encoded, B_KEY_INFO_TYPE numbers, const ITEM &item) {
    B_KEY_OBJ key = nullptr;
    if (B_CreateKeyObject(&key) != 0)
        std::abort();
    POINTER record = nullptr;
    // A key that was taken must be readable both ways.
    if (B_SetKeyInfo(key, encoded, &item) == 0 &&
        (B_GetKeyInfo(&record, key, numbers) != 0 || B_GetKeyInfo(&record, key, encoded) != 0))
        std::abort();
    B_DestroyKeyObject(&key);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const ITEM item = {const_cast<uint8_t *>(data), static_cast<uint32_t>(size)};
    read(KI_RSAPublicBER, KI_RSAPublic, item);
    read(KI_PKCS_RSAPrivateBER, KI_PKCS_RSAPrivate, item);
    return 0;
}
