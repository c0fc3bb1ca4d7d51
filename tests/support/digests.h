// digests.h: other libraries' digests, as the oracle.
#ifndef TESTS_SUPPORT_DIGESTS_H
#define TESTS_SUPPORT_DIGESTS_H

#include "support/files.h"

#include <nettle/md2.h>
#include <openssl/evp.h>

inline Bytes md2(const Bytes &data) {
    md2_ctx context;
    md2_init(&context);
    md2_update(&context, data.size(), data.data());
    Bytes digest(16);
    md2_digest(&context, 16, digest.data());
    return digest;
}
// The peer renames its functions by macros that would catch ours.
#undef md2_init
#undef md2_update

inline Bytes md5(const Bytes &data) {
    Bytes digest(16);
    unsigned length = 0;
    EVP_Digest(data.data(), data.size(), digest.data(), &length, EVP_md5(), nullptr);
    return digest;
}

#endif
