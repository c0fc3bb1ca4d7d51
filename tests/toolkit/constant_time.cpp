// Run under Valgrind: secrets are marked as undefined memory, and Memcheck reports every branch and
// every address that depends on them. constant_time.supp names the places that may: where a verdict
// is told.
#include <toolkit/dh.h>
#include <toolkit/rsa.h>

#include "../../toolkit/montgomery.h"
#include "../../toolkit/objects.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <valgrind/memcheck.h>

using namespace toolkit;

namespace {

void require(bool condition, const char *what) {
    if (!condition) {
        std::fprintf(stderr, "constant_time: %s\n", what);
        std::exit(1);
    }
}

// The ends of a number tell its length and that it is odd, which is public.
void make_secret(const ITEM &item) {
    if (item.len > 2)
        VALGRIND_MAKE_MEM_UNDEFINED(item.data + 1, item.len - 2);
}

RsaPrivate *prepared(const A_PKCS_RSA_PRIVATE_KEY &made, bool with_primes) {
    RsaPrivate *key = nullptr;
    const int error = with_primes ? rsa_private_new(&key,
                                                    {made.modulus,
                                                     {made.prime[0], made.prime[1]},
                                                     {made.primeExponent[0], made.primeExponent[1]},
                                                     made.coefficient},
                                                    made.publicExponent)
                                  : rsa_private_new(&key, {made.modulus, made.privateExponent});
    require(error == BE_OK, "preparation");
    return key;
}

// uses: how often the key is used; 0: it is prepared only.
void private_operations(uint32_t bits, ITEM exponent, int uses, bool with_primes = true) {
    A_PKCS_RSA_PRIVATE_KEY made = {};
    require(rsa_generate(&made, bits, exponent, system_random(), nullptr) == BE_OK, "key");
    for (const ITEM &each : {made.privateExponent, made.prime[0], made.prime[1],
                             made.primeExponent[0], made.primeExponent[1], made.coefficient})
        make_secret(each);
    RsaPrivate *const key = prepared(made, with_primes);
    uint8_t block[512] = {}, result[512];
    block[rsa_private_size(key) - 1] = 2;
    for (int i = 0; i < uses; ++i)
        require(rsa_private_apply(key, block, result) == BE_OK, "private operation");
    rsa_private_free(key);
    VALGRIND_MAKE_MEM_DEFINED(&made, sizeof made);
    rsa_key_free(&made);
}

void agreement() {
    uint8_t prime[64], base = 2, secret[64], value[64], shared[64];
    memset(prime, 0xff, sizeof prime);
    DhGroup *group = nullptr;
    require(dh_group_new(&group, {prime, sizeof prime}, {&base, 1}, 0) == BE_OK, "group");
    const RandomSource random = {[](void *, uint8_t *output, std::size_t size) {
                                     memset(output, 0x5a, size);
                                     VALGRIND_MAKE_MEM_UNDEFINED(output, size);
                                     return true;
                                 },
                                 nullptr};
    require(dh_generate(group, secret, value, random) == BE_OK, "key pair");
    VALGRIND_MAKE_MEM_DEFINED(value, sizeof value);
    require(dh_agree(group, secret, value, sizeof value, shared) == BE_OK, "agreement");
    dh_group_free(group);
}

// A key whose private operation changes nothing: what is encrypted is the block itself.
constexpr uint32_t block_size = 64;
constexpr RsaMethod unchanging = {
    .make = [](void **key, const KeyObject &) { return *key = nullptr, int{BE_OK}; },
    .release = [](void *) {},
    .size = [](const void *) { return block_size; },
    .apply = [](const void *, const uint8_t *in,
                uint8_t *out) { return memcpy(out, in, block_size), int{BE_OK}; }};
constexpr AlgorithmMethod unchanging_decryption = {.provides = Primitive::rsa_crt_decrypt,
                                                   .rsa = &unchanging};

// Decrypts a block whose contents are secret. Its length of data; block_size: it does not open.
uint32_t opened(const uint8_t *contents) {
    const AlgorithmMethod *const methods[] = {&unchanging_decryption, nullptr};
    const ITEM any_key = {const_cast<uint8_t *>(contents), 1};
    uint8_t block[block_size], out[block_size];
    uint32_t size = 0;
    memcpy(block, contents, block_size);
    VALGRIND_MAKE_MEM_UNDEFINED(block, block_size);
    B_ALGORITHM_OBJ algorithm = nullptr;
    B_KEY_OBJ key = nullptr;
    require(B_CreateAlgorithmObject(&algorithm) == 0 && B_CreateKeyObject(&key) == 0 &&
                B_SetAlgorithmInfo(algorithm, AI_PKCS_RSAPrivate, nullptr) == 0 &&
                B_SetKeyInfo(key, KI_Item, &any_key) == 0 &&
                B_DecryptInit(algorithm, key, methods, nullptr) == 0 &&
                B_DecryptUpdate(algorithm, out, &size, block_size, block, block_size, nullptr,
                                nullptr) == 0,
            "beginning to open");
    int verdict = B_DecryptFinal(algorithm, out, &size, block_size, nullptr, nullptr);
    VALGRIND_MAKE_MEM_DEFINED(&verdict, sizeof verdict);
    VALGRIND_MAKE_MEM_DEFINED(&size, sizeof size);
    B_DestroyKeyObject(&key);
    B_DestroyAlgorithmObject(&algorithm);
    return verdict == BE_OK ? size : block_size;
}

// Good blocks and bad ones, by one way up to the verdict.
void opening() {
    uint8_t block[block_size];
    memset(block, 7, sizeof block);
    block[0] = 0;
    block[1] = 2;
    require(opened(block) == block_size, "no end of the padding");
    block[40] = 0;
    require(opened(block) == 23, "opening");
    block[63] = 0;
    require(opened(block) == 23, "opening with a later zero");
    block[9] = 0;
    require(opened(block) == block_size, "short padding");
    block[1] = 1;
    require(opened(block) == block_size, "another type");
}

// A block cipher that changes nothing, and whose blocks do not hang together.
constexpr CipherMethod unchanging_blocks = {
    .block_size = 8,
    .min_key_size = 8,
    .max_key_size = 8,
    .schedule_size = 1,
    .set_key = [](void *, const uint8_t *, uint32_t, uint32_t) { return true; },
    .crypt = [](void *, uint8_t *, const uint8_t *in, uint8_t *out,
                std::size_t blocks) { memcpy(out, in, 8 * blocks); }};
constexpr AlgorithmMethod unchanging_des = {.provides = Primitive::des_cbc_decrypt,
                                            .cipher = &unchanging_blocks};

// Decrypts a text of two blocks, the last of them as given. Whether its padding is good.
bool unpadded(const char *last_block) {
    const AlgorithmMethod *const methods[] = {&unchanging_des, nullptr};
    uint8_t text[16] = {}, out[16];
    uint32_t size = 0;
    memcpy(text + 8, last_block, 8);
    VALGRIND_MAKE_MEM_UNDEFINED(text, sizeof text);
    B_ALGORITHM_OBJ algorithm = nullptr;
    B_KEY_OBJ key = nullptr;
    require(B_CreateAlgorithmObject(&algorithm) == 0 && B_CreateKeyObject(&key) == 0 &&
                B_SetAlgorithmInfo(algorithm, AI_DES_CBCPadIV8, "initial") == 0 &&
                B_SetKeyInfo(key, KI_DES8, "any key") == 0 &&
                B_DecryptInit(algorithm, key, methods, nullptr) == 0 &&
                B_DecryptUpdate(algorithm, out, &size, 16, text, 16, nullptr, nullptr) == 0,
            "beginning to decrypt");
    int verdict = B_DecryptFinal(algorithm, out, &size, 16, nullptr, nullptr);
    VALGRIND_MAKE_MEM_DEFINED(&verdict, sizeof verdict);
    B_DestroyKeyObject(&key);
    B_DestroyAlgorithmObject(&algorithm);
    return verdict == BE_OK;
}

// Whatever is wrong with a padding is found out by one way up to the verdict. Of a good one the
// length is told too.
void unpadding() {
    require(!unpadded("\7\7\7\7\7\7\7\0"), "no padding");
    require(!unpadded("\x9\x9\x9\x9\x9\x9\x9\x9"), "more padding than a block");
    require(!unpadded("\1\3\3\3\3\4\3\3"), "a byte of it is another");
    require(!unpadded("\7\x8\x8\x8\x8\x8\x8\x8"), "the first byte of it is another");
    require(!unpadded("\x83\x83\x83\x83\x83\x83\x83\x83"), "a high bit");
    require(unpadded("\x8\x8\x8\x8\x8\x8\x8\x8"), "nothing but padding");
}

// Valgrind executes ADX, although the processor that it shows has none; AVX-512 it does not.
const Arithmetic *const valgrind_can[] = {
    &portable_arithmetic,
#ifdef TOOLKIT_MULX
    &mulx_arithmetic,
#endif
};

// What this program is for: that Memcheck sees a branch on a secret at all.
int careless(const uint8_t *secret) {
    return secret[3] == 7 ? std::puts("seven") : 0;
}

} // namespace

int main(int count, char **arguments) {
    require(RUNNING_ON_VALGRIND != 0, "runs under Valgrind only");
    if (count > 1 && strcmp(arguments[1], "careless") == 0) {
        uint8_t secret[8] = {};
        VALGRIND_MAKE_MEM_UNDEFINED(secret, sizeof secret);
        return careless(secret);
    }
    uint8_t small[] = {3}, odd[60];
    memset(odd, 0x55, sizeof odd);
    for (const Arithmetic *each : valgrind_can) {
        std::printf("%s\n", each->name);
        prefer_arithmetic(each);
        private_operations(512, {small, 1}, 2); // with new blinding, and with squared
        private_operations(1100, {small, 1}, 2);
        private_operations(512, {odd, sizeof odd}, 2); // longer than the primes
        private_operations(512, {small, 1}, 2, false);
        agreement();
    }
    opening();
    unpadding();
    return 0;
}
