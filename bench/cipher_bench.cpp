// The ciphers, on whole blocks and with the key schedule ready (for RC4: made for every message, since
// a key stream serves one message).
#include "bench.h"

#include <gnutls/crypto.h>
#include <openssl/evp.h>
#include <tomcrypt.h>

// Nettle renames its functions by macros; the names are others' too.
#include <nettle/arcfour.h>
#include <nettle/arctwo.h>
#include <nettle/cbc.h>
#include <nettle/des.h>
#undef cbc_encrypt
#undef cbc_decrypt
#undef des_set_key

#include <toolkit/des.h>
#include <toolkit/rc2.h>
#include <toolkit/rc4.h>

#include <memory>

namespace {

const Bytes key_bytes = sample(24);
uint8_t chain[8];

// ---- Ours ----

template <class Key, class Set, class Run>
void ours(const std::string &name, std::size_t size, Set set, Run run) {
    auto key = std::make_shared<Key>();
    set(key.get());
    row(name + "qel", size, [key, run, data = sample(size), out = Bytes(size)]() mutable {
        run(key.get(), chain, data.data(), out.data(), data.size() / 8);
    });
}

// ---- OpenSSL ----

void openssl(const std::string &name, std::size_t size, const char *cipher, bool encrypt,
             std::size_t key_size) {
    EVP_CIPHER_CTX *context = EVP_CIPHER_CTX_new();
    EVP_CIPHER *fetched = EVP_CIPHER_fetch(nullptr, cipher, nullptr);
    require(fetched != nullptr, cipher);
    require(EVP_CipherInit_ex(context, fetched, nullptr, nullptr, nullptr, encrypt) == 1, cipher);
    EVP_CIPHER_CTX_set_key_length(context, static_cast<int>(key_size));
    require(EVP_CipherInit_ex(context, nullptr, nullptr, key_bytes.data(), chain, encrypt) == 1,
            cipher);
    EVP_CIPHER_CTX_set_padding(context, 0);
    row(name + "openssl", size, [context, data = sample(size), out = Bytes(size + 8)]() mutable {
        int written = 0;
        EVP_CipherUpdate(context, out.data(), &written, data.data(), static_cast<int>(data.size()));
    });
}

// ---- Nettle ----

template <class Context, class Set>
void nettle(const std::string &name, std::size_t size, bool encrypt, Set set,
            nettle_cipher_func *block) {
    auto context = std::make_shared<Context>();
    set(context.get());
    row(name + "nettle", size,
        [context, encrypt, block, data = sample(size), out = Bytes(size)]() mutable {
            if (encrypt)
                nettle_cbc_encrypt(context.get(), block, 8, chain, data.size(), out.data(),
                                   data.data());
            else
                nettle_cbc_decrypt(context.get(), block, 8, chain, data.size(), out.data(),
                                   data.data());
        });
}

// ---- LibTomCrypt ----

void tomcrypt(const std::string &name, std::size_t size, const ltc_cipher_descriptor &cipher,
              bool encrypt, int key_size) {
    auto state = std::make_shared<symmetric_CBC>();
    const int index = register_cipher(&cipher);
    require(cbc_start(index, chain, key_bytes.data(), key_size, 0, state.get()) == CRYPT_OK,
            "cbc_start");
    row(name + "libtomcrypt", size,
        [state, encrypt, data = sample(size), out = Bytes(size)]() mutable {
            if (encrypt)
                cbc_encrypt(data.data(), out.data(), data.size(), state.get());
            else
                cbc_decrypt(data.data(), out.data(), data.size(), state.get());
        });
}

// ---- GnuTLS ----

void gnutls(const std::string &name, std::size_t size, gnutls_cipher_algorithm_t cipher,
            bool encrypt, unsigned key_size) {
    gnutls_cipher_hd_t handle;
    gnutls_datum_t key = {const_cast<uint8_t *>(key_bytes.data()), key_size};
    gnutls_datum_t iv = {chain, 8};
    if (gnutls_cipher_init(&handle, cipher, &key, &iv) != 0)
        return; // it does not carry this cipher
    row(name + "gnutls", size, [handle, encrypt, data = sample(size), out = Bytes(size)]() mutable {
        if (encrypt)
            gnutls_cipher_encrypt2(handle, data.data(), data.size(), out.data(), out.size());
        else
            gnutls_cipher_decrypt2(handle, data.data(), data.size(), out.data(), out.size());
    });
}

std::string name_of(const char *cipher, bool encrypt, std::size_t size) {
    return std::string(cipher) + (encrypt ? "-encrypt/" : "-decrypt/") + std::to_string(size) + "/";
}

void des_rows(bool encrypt, std::size_t size) {
    const std::string name = name_of("des-cbc", encrypt, size);
    ours<toolkit::DesKey>(
        name, size, [](toolkit::DesKey *key) { toolkit::des_set_key(key, key_bytes.data()); },
        encrypt ? toolkit::des_cbc_encrypt : toolkit::des_cbc_decrypt);
    openssl(name, size, "DES-CBC", encrypt, 8);
    nettle<des_ctx>(
        name, size, encrypt, [](des_ctx *key) { nettle_des_set_key(key, key_bytes.data()); },
        reinterpret_cast<nettle_cipher_func *>(encrypt ? nettle_des_encrypt : nettle_des_decrypt));
    tomcrypt(name, size, des_desc, encrypt, 8);
}

void des3_rows(bool encrypt, std::size_t size) {
    const std::string name = name_of("des3-cbc", encrypt, size);
    ours<toolkit::DesEde3Key>(
        name, size,
        [](toolkit::DesEde3Key *key) { toolkit::des_ede3_set_key(key, key_bytes.data()); },
        encrypt ? toolkit::des_ede3_cbc_encrypt : toolkit::des_ede3_cbc_decrypt);
    openssl(name, size, "DES-EDE3-CBC", encrypt, 24);
    nettle<des3_ctx>(
        name, size, encrypt, [](des3_ctx *key) { nettle_des3_set_key(key, key_bytes.data()); },
        reinterpret_cast<nettle_cipher_func *>(encrypt ? nettle_des3_encrypt
                                                       : nettle_des3_decrypt));
    tomcrypt(name, size, des3_desc, encrypt, 24);
    gnutls(name, size, GNUTLS_CIPHER_3DES_CBC, encrypt, 24);
}

void rc2_rows(bool encrypt, std::size_t size) {
    const std::string name = name_of("rc2-cbc", encrypt, size);
    ours<toolkit::Rc2Key>(
        name, size,
        [](toolkit::Rc2Key *key) { toolkit::rc2_set_key(key, key_bytes.data(), 16, 128); },
        encrypt ? toolkit::rc2_cbc_encrypt : toolkit::rc2_cbc_decrypt);
    openssl(name, size, "RC2-CBC", encrypt, 16);
    nettle<arctwo_ctx>(
        name, size, encrypt,
        [](arctwo_ctx *key) { nettle_arctwo_set_key_ekb(key, 16, key_bytes.data(), 128); },
        reinterpret_cast<nettle_cipher_func *>(encrypt ? nettle_arctwo_encrypt
                                                       : nettle_arctwo_decrypt));
    tomcrypt(name, size, rc2_desc, encrypt, 16);
}

void rc4_rows(std::size_t size) {
    const std::string name = "rc4/" + std::to_string(size) + "/";
    row(name + "qel", size, [data = sample(size), out = Bytes(size)]() mutable {
        toolkit::Rc4 rc4;
        toolkit::rc4_set_key(&rc4, key_bytes.data(), 16);
        toolkit::rc4_crypt(&rc4, data.data(), out.data(), data.size());
    });
    EVP_CIPHER *fetched = EVP_CIPHER_fetch(nullptr, "RC4", nullptr);
    row(name + "openssl", size,
        [context = EVP_CIPHER_CTX_new(), fetched, data = sample(size),
         out = Bytes(size)]() mutable {
            int written = 0;
            EVP_EncryptInit_ex(context, fetched, nullptr, key_bytes.data(), nullptr);
            EVP_EncryptUpdate(context, out.data(), &written, data.data(),
                              static_cast<int>(data.size()));
        });
    row(name + "nettle", size, [data = sample(size), out = Bytes(size)]() mutable {
        arcfour_ctx context;
        nettle_arcfour_set_key(&context, 16, key_bytes.data());
        nettle_arcfour_crypt(&context, data.size(), out.data(), data.data());
    });
    row(name + "libtomcrypt", size, [data = sample(size), out = Bytes(size)]() mutable {
        rc4_state state;
        rc4_stream_setup(&state, key_bytes.data(), 16);
        rc4_stream_crypt(&state, data.data(), data.size(), out.data());
    });
    row(name + "gnutls", size, [data = sample(size), out = Bytes(size)]() mutable {
        gnutls_cipher_hd_t handle;
        gnutls_datum_t key = {const_cast<uint8_t *>(key_bytes.data()), 16};
        if (gnutls_cipher_init(&handle, GNUTLS_CIPHER_ARCFOUR_128, &key, nullptr) != 0)
            return;
        gnutls_cipher_encrypt2(handle, data.data(), data.size(), out.data(), out.size());
        gnutls_cipher_deinit(handle);
    });
}

} // namespace

void register_ciphers() {
    for (const std::size_t size : message_sizes) {
        for (const bool encrypt : {true, false}) {
            des_rows(encrypt, size);
            des3_rows(encrypt, size);
            rc2_rows(encrypt, size);
        }
        rc4_rows(size);
    }
}
