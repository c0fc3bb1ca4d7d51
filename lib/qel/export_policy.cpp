#include <qel/qelp.h>

#include <pthread.h>

#include <lib/context.h>
#include <toolkit/traces.h>

namespace {

constexpr uint32_t memory_size = 64;
constexpr uint32_t largest_key = 5;       // bytes, of RC2 and RC4
constexpr uint8_t largest_odd_byte = 0xF; // of a DES key

// The first 64 bytes of the fractional part of pi.
constexpr uint8_t mask[memory_size] = {
    0x24, 0x3f, 0x6a, 0x88, 0x85, 0xa3, 0x08, 0xd3, 0x13, 0x19, 0x8a, 0x2e, 0x03, 0x70, 0x73, 0x44,
    0xa4, 0x09, 0x38, 0x22, 0x29, 0x9f, 0x31, 0xd0, 0x08, 0x2e, 0xfa, 0x98, 0xec, 0x4e, 0x6c, 0x89,
    0x45, 0x28, 0x21, 0xe6, 0x38, 0xd0, 0x13, 0x77, 0xbe, 0x54, 0x66, 0xcf, 0x34, 0xe9, 0x0c, 0x6c,
    0xc0, 0xac, 0x29, 0xb7, 0xc9, 0x7c, 0x50, 0xdd, 0x3f, 0x84, 0xd5, 0xb5, 0xb5, 0x47, 0x09, 0x17,
};

// The head of the last long output of the process, under the mask: it may be what was decrypted.
pthread_mutex_t memory_lock = PTHREAD_MUTEX_INITIALIZER;
uint8_t memory[memory_size];
bool mask_counts = false;

// Only the first long input after a long output is held against that output, the next against its
// masked form, and so on in turn.
bool is_last_output(const uint8_t *data) {
    const toolkit::TracesWiped traces;
    uint8_t difference = 0;
    pthread_mutex_lock(&memory_lock);
    for (uint32_t i = 0; i < memory_size; ++i)
        difference |= memory[i] ^ data[i] ^ (mask_counts ? 0 : mask[i]);
    mask_counts = !mask_counts;
    pthread_mutex_unlock(&memory_lock);
    return difference == 0;
}

void remember(const uint8_t *output) {
    const toolkit::TracesWiped traces;
    pthread_mutex_lock(&memory_lock);
    for (uint32_t i = 0; i < memory_size; ++i)
        memory[i] = output[i] ^ mask[i];
    mask_counts = false;
    pthread_mutex_unlock(&memory_lock);
}

QelStatus refuse_always(const uint8_t *, uint32_t) {
    return QEL_ERR_EXPORT;
}

QelStatus check_length(const uint8_t *, uint32_t length) {
    return length > largest_key ? QEL_ERR_EXPORT : QEL_OK;
}

QelStatus check_odd_bytes(const uint8_t *key, uint32_t length) {
    for (uint32_t i = 1; i < length && i < 8; i += 2)
        if (key[i] > largest_odd_byte)
            return QEL_ERR_EXPORT;
    return QEL_OK;
}

// One rule of the policy for keys. Triple DES is refused by what it is to be used for, the others by
// what the key is.
struct KeyRule {
    const QelOid *const *algorithm;
    bool of_data;
    QelStatus (*check)(const uint8_t *key, uint32_t length);
};

constexpr KeyRule key_rules[] = {
    {&QEL_DES3_CBC_OID, true, refuse_always},
    {&QEL_RC2_CBC_OID, false, check_length},
    {&QEL_RC4_OID, false, check_length},
    {&QEL_DES_CBC_OID, false, check_odd_bytes},
};

QelStatus check_key(const QelAlgId *key_algorithm, const uint8_t *key, uint32_t key_length,
                    const QelAlgId *algorithm) {
    if (key_algorithm == nullptr || key == nullptr || key_length == 0 || algorithm == nullptr)
        return QEL_ERR_BAD_PARAM;
    for (const KeyRule &rule : key_rules) {
        const QelAlgId *judged = rule.of_data ? algorithm : key_algorithm;
        int difference = 0;
        QelStatus status = __qel_cmp_oid(judged->algorithm, *rule.algorithm, &difference);
        if (status == QEL_OK && difference == 0)
            status = rule.check(key, key_length);
        if (status != QEL_OK)
            return status;
    }
    return QEL_OK;
}

using Core = decltype(kvdsaivqa);

QelStatus crypt(Core *core, QelContext *context, const uint8_t *data, uint32_t length,
                uint32_t mode, const QelAlgId *key_algorithm, const uint8_t *key,
                uint32_t key_length, const QelAlgId *algorithm, uint8_t **output,
                uint32_t *output_length) {
    if (context == nullptr || output == nullptr || output_length == nullptr ||
        (mode != QEL_MODE_UPDATE && mode != QEL_MODE_FINAL))
        return QEL_ERR_BAD_PARAM;
    if (data != nullptr && length > memory_size && is_last_output(data))
        return QEL_ERR_DOUBLE_ENCRYPT;
    QelStatus status = QEL_OK;
    if (context->session == nullptr)
        status = check_key(key_algorithm, key, key_length, algorithm);
    if (status == QEL_OK)
        status = core(context, data, length, mode, key_algorithm, key, key_length, algorithm,
                      output, output_length);
    if (status == QEL_OK && *output_length > memory_size)
        remember(*output);
    return status;
}

} // namespace

QelStatus qel_encrypt(QelContext *context, const uint8_t *data, uint32_t length, uint32_t mode,
                      const QelAlgId *key_algorithm, const uint8_t *key, uint32_t key_length,
                      const QelAlgId *algorithm, uint8_t **output, uint32_t *output_length) {
    return crypt(kvdsaivqa, context, data, length, mode, key_algorithm, key, key_length, algorithm,
                 output, output_length);
}

QelStatus qel_decrypt(QelContext *context, const uint8_t *data, uint32_t length, uint32_t mode,
                      const QelAlgId *key_algorithm, const uint8_t *key, uint32_t key_length,
                      const QelAlgId *algorithm, uint8_t **output, uint32_t *output_length) {
    return crypt(kdlsdkspd, context, data, length, mode, key_algorithm, key, key_length, algorithm,
                 output, output_length);
}
