// RSA on a key that is ready: the bare private and public operation. And key generation.
#include "bench.h"
#include "keys.h"

#include <gmp.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <tomcrypt.h>

#include <nettle/rsa.h>

#include <toolkit/random.h>
#include <toolkit/rsa.h>

#include <memory>

namespace {

// ---- Ours ----

void ours(unsigned bits, const std::string &name_private, const std::string &name_public) {
    const BenchKey &key = bench_key(bits);
    toolkit::RsaPrivate *private_key = nullptr;
    toolkit::RsaPublic *public_key = nullptr;
    require(toolkit::rsa_private_new(&private_key, key.private_numbers(), {}) == 0, "private key");
    require(toolkit::rsa_public_new(&public_key, key.public_numbers()) == 0, "public key");
    Bytes block = sample(bits / 8);
    block[0] = 0;
    row(name_private + "qel", 0, [private_key, block, out = Bytes(bits / 8)]() mutable {
        require(toolkit::rsa_private_apply(private_key, block.data(), out.data()) == 0, "private");
    });
    row(name_public + "qel", 0, [public_key, block, out = Bytes(bits / 8)]() mutable {
        require(toolkit::rsa_public_apply(public_key, block.data(), out.data()) == 0, "public");
    });
}

// ---- OpenSSL ----

void openssl(unsigned bits, const std::string &name_private, const std::string &name_public) {
    const BenchKey &key = bench_key(bits);
    Bytes block = sample(bits / 8);
    block[0] = 0;
    EVP_PKEY_CTX *decrypt = EVP_PKEY_CTX_new(key.openssl, nullptr);
    EVP_PKEY_decrypt_init(decrypt);
    EVP_PKEY_CTX_set_rsa_padding(decrypt, RSA_NO_PADDING);
    row(name_private + "openssl", 0, [decrypt, block, out = Bytes(bits / 8)]() mutable {
        std::size_t size = out.size();
        require(EVP_PKEY_decrypt(decrypt, out.data(), &size, block.data(), block.size()) == 1,
                "openssl private");
    });
    EVP_PKEY_CTX *encrypt = EVP_PKEY_CTX_new(key.openssl, nullptr);
    EVP_PKEY_encrypt_init(encrypt);
    EVP_PKEY_CTX_set_rsa_padding(encrypt, RSA_NO_PADDING);
    row(name_public + "openssl", 0, [encrypt, block, out = Bytes(bits / 8)]() mutable {
        std::size_t size = out.size();
        require(EVP_PKEY_encrypt(encrypt, out.data(), &size, block.data(), block.size()) == 1,
                "openssl public");
    });
}

// ---- Nettle ----

void set(mpz_t number, const Bytes &bytes) {
    mpz_import(number, bytes.size(), 1, 1, 0, 0, bytes.data());
}

void random_bytes(void *, size_t size, uint8_t *out) {
    toolkit::RandomSource source = toolkit::system_random();
    source.fill(source.state, out, size);
}

void nettle(unsigned bits, const std::string &name_private, const std::string &name_public) {
    const BenchKey &key = bench_key(bits);
    auto *public_key = new rsa_public_key;
    auto *private_key = new rsa_private_key;
    nettle_rsa_public_key_init(public_key);
    nettle_rsa_private_key_init(private_key);
    set(public_key->n, key.modulus);
    set(public_key->e, key.exponent);
    set(private_key->p, key.prime[0]);
    set(private_key->q, key.prime[1]);
    set(private_key->a, key.prime_exponent[0]);
    set(private_key->b, key.prime_exponent[1]);
    set(private_key->c, key.coefficient);
    set(private_key->d, key.private_exponent);
    require(nettle_rsa_public_key_prepare(public_key) == 1, "nettle public key");
    require(nettle_rsa_private_key_prepare(private_key) == 1, "nettle private key");
    Bytes block = sample(bits / 8);
    block[0] = 0;
    auto *number = new mpz_t[2];
    mpz_inits(number[0], number[1], nullptr);
    set(number[0], block);
    row(name_private + "nettle", 0, [=] {
        // The timing-resistant form with its check of the result, as ours.
        require(nettle_rsa_compute_root_tr(public_key, private_key, nullptr, random_bytes,
                                           number[1], number[0]) == 1,
                "nettle private");
    });
    row(name_public + "nettle", 0,
        [=] { mpz_powm(number[1], number[0], public_key->e, public_key->n); });
}

// ---- LibTomCrypt ----

void tomcrypt(unsigned bits, const std::string &name_private, const std::string &name_public) {
    const BenchKey &key = bench_key(bits);
    auto *parsed = new rsa_key;
    require(rsa_import(key.pkcs1.data(), key.pkcs1.size(), parsed) == CRYPT_OK, "tomcrypt key");
    Bytes block = sample(bits / 8);
    block[0] = 0;
    auto apply = [parsed, block, out = Bytes(bits / 8)](int which) mutable {
        unsigned long size = out.size();
        require(rsa_exptmod(block.data(), block.size(), out.data(), &size, which, parsed) ==
                    CRYPT_OK,
                "tomcrypt");
    };
    row(name_private + "libtomcrypt", 0, [apply]() mutable { apply(PK_PRIVATE); });
    row(name_public + "libtomcrypt", 0, [apply]() mutable { apply(PK_PUBLIC); });
}

// ---- Key generation ----

void generation(unsigned bits) {
    const std::string name = "rsa-generate/" + std::to_string(bits) + "/";
    row(name + "qel", 0, [bits] {
        static uint8_t f4[] = {1, 0, 1};
        toolkit::A_PKCS_RSA_PRIVATE_KEY key = {};
        require(toolkit::rsa_generate(&key, bits, {f4, 3}, toolkit::system_random(), nullptr) == 0,
                "generation");
        toolkit::rsa_key_free(&key);
    });
    row(name + "openssl", 0, [bits] { EVP_PKEY_free(EVP_RSA_gen(bits)); });
    row(name + "nettle", 0, [bits] {
        rsa_public_key public_key;
        rsa_private_key private_key;
        nettle_rsa_public_key_init(&public_key);
        nettle_rsa_private_key_init(&private_key);
        mpz_set_ui(public_key.e, 65537);
        nettle_rsa_generate_keypair(&public_key, &private_key, nullptr, random_bytes, nullptr,
                                    nullptr, bits, 0);
        nettle_rsa_public_key_clear(&public_key);
        nettle_rsa_private_key_clear(&private_key);
    });
    // LibTomCrypt makes no RSA key below 1024 bits.
}

} // namespace

void register_rsa() {
    for (const unsigned bits : {512u, 1024u, 2048u, 4096u}) {
        const std::string size = "/" + std::to_string(bits) + "/";
        const std::string name_private = "rsa-private" + size, name_public = "rsa-public" + size;
        ours(bits, name_private, name_public);
        openssl(bits, name_private, name_public);
        nettle(bits, name_private, name_public);
        tomcrypt(bits, name_private, name_public);
    }
    generation(512);
}
