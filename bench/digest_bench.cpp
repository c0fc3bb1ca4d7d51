// MD2 and MD5: a digest of one message, from nothing to the 16 bytes.
#include "bench.h"

#include <gnutls/crypto.h>
#include <openssl/evp.h>
#include <tomcrypt.h>

// Nettle renames its functions by macros; the names are others' too.
#include <nettle/md2.h>
#include <nettle/md5.h>
#undef md2_init
#undef md2_update
#undef md5_init
#undef md5_update

#include <toolkit/md2.h>
#include <toolkit/md5.h>

namespace {

uint8_t digest[16];

void md5_rows(std::size_t size) {
    const std::string work = "md5/" + std::to_string(size) + "/";
    const Bytes data = sample(size);
    row(work + "qel", size, [data] {
        toolkit::Md5 md5;
        toolkit::md5_init(&md5);
        toolkit::md5_update(&md5, data.data(), data.size());
        toolkit::md5_final(&md5, digest);
    });
    row(work + "openssl", size,
        [data, context = EVP_MD_CTX_new(), md5 = EVP_MD_fetch(nullptr, "MD5", nullptr)] {
            EVP_DigestInit_ex(context, md5, nullptr);
            EVP_DigestUpdate(context, data.data(), data.size());
            EVP_DigestFinal_ex(context, digest, nullptr);
        });
    row(work + "nettle", size, [data] {
        md5_ctx context;
        nettle_md5_init(&context);
        nettle_md5_update(&context, data.size(), data.data());
        nettle_md5_digest(&context, sizeof digest, digest);
    });
    row(work + "libtomcrypt", size, [data] {
        hash_state state;
        md5_init(&state);
        md5_process(&state, data.data(), data.size());
        md5_done(&state, digest);
    });
    row(work + "gnutls", size,
        [data] { gnutls_hash_fast(GNUTLS_DIG_MD5, data.data(), data.size(), digest); });
}

void md2_rows(std::size_t size) {
    const std::string work = "md2/" + std::to_string(size) + "/";
    const Bytes data = sample(size);
    row(work + "qel", size, [data] {
        toolkit::Md2 md2;
        toolkit::md2_init(&md2);
        toolkit::md2_update(&md2, data.data(), data.size());
        toolkit::md2_final(&md2, digest);
    });
    row(work + "nettle", size, [data] {
        md2_ctx context;
        nettle_md2_init(&context);
        nettle_md2_update(&context, data.size(), data.data());
        nettle_md2_digest(&context, sizeof digest, digest);
    });
    row(work + "libtomcrypt", size, [data] {
        hash_state state;
        md2_init(&state);
        md2_process(&state, data.data(), data.size());
        md2_done(&state, digest);
    });
}

} // namespace

void register_digests() {
    for (const std::size_t size : message_sizes) {
        md2_rows(size);
        md5_rows(size);
    }
}
