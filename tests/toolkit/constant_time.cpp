// Run under Valgrind: secrets are marked as undefined memory, and Memcheck reports every branch and
// every address that depends on them. constant_time.supp names the places that may: where a verdict
// is told.
#include <toolkit/dh.h>
#include <toolkit/pkcs1.h>
#include <toolkit/rsa.h>

#include "../../toolkit/montgomery.h"

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

void opening() {
    uint8_t block[64];
    memset(block, 7, sizeof block);
    block[0] = 0;
    block[1] = 2;
    block[40] = 0;
    VALGRIND_MAKE_MEM_UNDEFINED(block, sizeof block);
    uint32_t start;
    int verdict = pkcs1_open_type2(block, sizeof block, &start);
    VALGRIND_MAKE_MEM_DEFINED(&verdict, sizeof verdict);
    VALGRIND_MAKE_MEM_DEFINED(&start, sizeof start);
    require(verdict == BE_OK && start == 41, "opening");
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
    return 0;
}
