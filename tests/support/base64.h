// base64.h: an unrelated library's encoding, as the oracle.
#ifndef TESTS_SUPPORT_BASE64_H
#define TESTS_SUPPORT_BASE64_H

#include "support/files.h"

#include <openssl/evp.h>

inline std::string base64(const Bytes &bytes) {
    Bytes text((bytes.size() + 2) / 3 * 4 + 1);
    EVP_EncodeBlock(text.data(), bytes.data(), static_cast<int>(bytes.size()));
    text.pop_back();
    return text_of(text);
}

#endif
