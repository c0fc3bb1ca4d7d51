// toolkit_binding.cpp: the methods that the library links, and the release of the key records that
// it hands to the toolkit.

#include <util/toolkit_binding.h>

#include <cstdio>
#include <cstdlib>
#include <string.h>
#include <time.h>

using namespace toolkit;

const AlgorithmMethod *const chooser[] = {
    &AM_RSA_KEY_GEN,
    &AM_MD2_RANDOM,
    &AM_MD5_RANDOM,
    &AM_MD2,
    &AM_MD5,
    &AM_RSA_ENCRYPT,
    &AM_RSA_DECRYPT,
    &AM_RSA_CRT_ENCRYPT,
    &AM_RSA_CRT_DECRYPT,
    &AM_DES_CBC_ENCRYPT,
    &AM_DES_CBC_DECRYPT,
    &AM_DES_EDE3_CBC_ENCRYPT,
    &AM_DES_EDE3_CBC_DECRYPT,
    &AM_RC2_CBC_ENCRYPT,
    &AM_RC2_CBC_DECRYPT,
    &AM_RC4_ENCRYPT,
    &AM_RC4_DECRYPT,
    &AM_DH_KEY_AGREE,
    &AM_DH_PARAM_GEN,
    nullptr,
};

namespace {

template <class T> void free_record(T **record, void (*free_contents)(T *)) {
    if (record == nullptr || *record == nullptr)
        return;
    free_contents(*record);
    std::free(*record);
    *record = nullptr;
}

} // namespace

void free2_ITEM(ITEM *item) {
    if (item == nullptr || item->len == 0)
        return;
    if (item->data != nullptr)
        explicit_bzero(item->data, item->len);
    std::free(item->data);
    *item = {};
}

void free_ITEM(ITEM **item) {
    free_record(item, free2_ITEM);
}

void free2_A_RSA_KEY(A_RSA_KEY *key) {
    if (key == nullptr)
        return;
    free2_ITEM(&key->modulus);
    free2_ITEM(&key->exponent);
}

void free_A_RSA_KEY(A_RSA_KEY **key) {
    free_record(key, free2_A_RSA_KEY);
}

void free2_A_RSA_CRT_KEY(A_RSA_CRT_KEY *key) {
    if (key == nullptr)
        return;
    free2_ITEM(&key->modulus);
    for (ITEM &prime : key->prime)
        free2_ITEM(&prime);
    for (ITEM &exponent : key->primeExponent)
        free2_ITEM(&exponent);
    free2_ITEM(&key->coefficient);
}

void free_A_RSA_CRT_KEY(A_RSA_CRT_KEY **key) {
    free_record(key, free2_A_RSA_CRT_KEY);
}

int32_t GenKeySurrenderFunction(void *handle) {
    if (handle == nullptr)
        return 0;
    auto *shown_at = static_cast<int32_t *>(handle);
    const auto now = static_cast<int32_t>(time(nullptr));
    if (now == *shown_at)
        return 0;
    static constexpr char spinner[] = {'\\', '|', '/', '-'};
    std::fputc('\b', stderr);
    if (const int32_t step = *shown_at % 4; step >= 0)
        std::fputc(spinner[step], stderr);
    std::fflush(stderr);
    *shown_at = now;
    return 0;
}
