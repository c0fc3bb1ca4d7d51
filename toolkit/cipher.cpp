#include "operations.h"

#include <cstring>

namespace toolkit {
namespace {

constexpr uint32_t cbc_block = 8;

// Behind it lies the method's key schedule, and for a key stream a second one, as it began.
struct alignas(std::max_align_t) Cipher {
    const CipherMethod *method;
    uint32_t held_size;
    uint8_t held[cbc_block]; // input that no block was made of yet
    uint8_t iv[cbc_block];
    uint8_t first_iv[cbc_block];
};

Cipher *cipher_of(AlgorithmObject *object) {
    return static_cast<Cipher *>(object->state);
}

uint8_t *schedule_of(Cipher *cipher) {
    return reinterpret_cast<uint8_t *>(cipher + 1);
}

bool is_stream(const CipherMethod &method) {
    return method.block_size == 1;
}

std::size_t padded_schedule_size(const CipherMethod &method) {
    return (method.schedule_size + alignof(std::max_align_t) - 1) &
           ~(alignof(std::max_align_t) - 1);
}

void crypt(Cipher *cipher, uint8_t *iv, const uint8_t *in, uint8_t *out, std::size_t blocks) {
    cipher->method->crypt(schedule_of(cipher), iv, in, out, blocks);
}

void restart(Cipher *cipher) {
    uint8_t *schedule = schedule_of(cipher);
    if (is_stream(*cipher->method))
        std::memcpy(schedule, schedule + padded_schedule_size(*cipher->method),
                    cipher->method->schedule_size);
    std::memcpy(cipher->iv, cipher->first_iv, sizeof cipher->iv);
    explicit_bzero(cipher->held, sizeof cipher->held);
    cipher->held_size = 0;
}

bool overlap(const uint8_t *a, std::size_t a_size, const uint8_t *b, std::size_t b_size) {
    const auto a_at = reinterpret_cast<uintptr_t>(a), b_at = reinterpret_cast<uintptr_t>(b);
    return a_at < b_at + b_size && b_at < a_at + a_size;
}

// Runs the first size bytes of what is held and the input through the cipher, whole blocks all, and
// holds the rest. Where the output would run into input not read yet, the input is first moved to
// where its result belongs.
void run(Cipher *cipher, Input input, Output *output, uint32_t size) {
    const uint32_t held = cipher->held_size, block = cipher->method->block_size;
    const uint32_t taken = size - held;
    SecretArray<cbc_block> rest;
    const uint32_t rest_size = input.size - taken;
    std::memcpy(rest.bytes, input.data + taken, rest_size);

    uint8_t *out = output->data;
    if (held == 0 && (out == input.data || !overlap(out, size, input.data, size))) {
        crypt(cipher, cipher->iv, input.data, out, size / block);
    } else if (overlap(out, size, input.data, taken)) {
        std::memmove(out + held, input.data, taken);
        std::memcpy(out, cipher->held, held);
        crypt(cipher, cipher->iv, out, out, size / block);
    } else {
        const uint32_t fill = block - held;
        std::memcpy(cipher->held + held, input.data, fill);
        crypt(cipher, cipher->iv, cipher->held, out, 1);
        crypt(cipher, cipher->iv, input.data + fill, out + block, size / block - 1);
    }
    std::memcpy(cipher->held, rest.bytes, rest_size);
    cipher->held_size = rest_size;
    output->size = size;
}

// keep_last_block: a block that may turn out to be the last, and so to hold padding, stays behind.
int update(AlgorithmObject *object, Input input, Output *output, bool keep_last_block) {
    Cipher *cipher = cipher_of(object);
    const uint32_t block = cipher->method->block_size;
    const uint64_t total = uint64_t{cipher->held_size} + input.size;
    uint64_t blocks = total / block;
    if (keep_last_block && blocks != 0 && total % block == 0)
        --blocks;
    const uint64_t size = blocks * block;
    if (size > output->capacity)
        return BE_OUTPUT_LEN;
    if (size != 0) {
        run(cipher, input, output, static_cast<uint32_t>(size));
    } else if (input.size != 0) {
        std::memcpy(cipher->held + cipher->held_size, input.data, input.size);
        cipher->held_size += input.size;
    }
    return BE_OK;
}

// How many bytes of the block are padding (PKCS#5: so many bytes of that value), or 0 if it is not
// well formed. Neither time nor memory access depends on the block.
uint32_t padding_size(const uint8_t block[cbc_block]) {
    const uint32_t last = block[cbc_block - 1];
    // Of the difference of two small numbers the upper bits are set when it is negative.
    uint32_t wrong = (cbc_block - last) >> 8;
    for (uint32_t i = 1; i < cbc_block; ++i) {
        const uint32_t inside = (i - last) >> 8; // all ones from the last'th byte from the end on
        wrong |= inside & (block[cbc_block - 1 - i] ^ last);
    }
    const uint32_t is_wrong = 0U - ((wrong | (0U - wrong)) >> 31);
    return last & ~is_wrong;
}

} // namespace

int start_cipher(AlgorithmObject *object, const CipherMethod &method, const uint8_t *key,
                 uint32_t key_size, uint32_t effective_bits, const uint8_t iv[8]) {
    if (key_size < method.min_key_size || key_size > method.max_key_size)
        return BE_KEY_LEN;
    const std::size_t schedule_size = padded_schedule_size(method);
    auto *cipher = static_cast<Cipher *>(
        new_state(object, sizeof(Cipher) + schedule_size * (is_stream(method) ? 2 : 1), nullptr));
    if (cipher == nullptr)
        return BE_ALLOC;
    cipher->method = &method;
    std::memcpy(cipher->first_iv, iv, sizeof cipher->first_iv);
    uint8_t *schedule = schedule_of(cipher);
    if (!method.set_key(schedule, key, key_size, effective_bits))
        return BE_KEY_LEN;
    if (is_stream(method))
        std::memcpy(schedule + schedule_size, schedule, method.schedule_size);
    restart(cipher);
    return BE_OK;
}

int init_cipher(AlgorithmObject *object, const Start &start) {
    if (start.key == nullptr)
        return BE_KEY_OBJ;
    if (start.key->kind == KeyKind::none)
        return BE_KEY_NOT_SET;
    if (start.key->kind != KeyKind::secret)
        return BE_KEY_OPERATION_UNKNOWN;
    const ITEM &key = start.key->item;
    return start_cipher(object, *start.methods[0]->cipher, key.data, key.len,
                        object->parameters.effective_bits, object->parameters.block);
}

int update_cipher(AlgorithmObject *object, Input input, Output *output) {
    return update(object, input, output, false);
}

int update_padded_decryption(AlgorithmObject *object, Input input, Output *output) {
    return update(object, input, output, true);
}

int finish_cipher(AlgorithmObject *object, Output *, AlgorithmObject *) {
    Cipher *cipher = cipher_of(object);
    const bool whole = cipher->held_size == 0;
    restart(cipher);
    return whole ? BE_OK : BE_INPUT_LEN;
}

int finish_padded_encryption(AlgorithmObject *object, Output *output, AlgorithmObject *) {
    Cipher *cipher = cipher_of(object);
    if (output->capacity < cbc_block)
        return BE_OUTPUT_LEN;
    const uint32_t padding = cbc_block - cipher->held_size;
    std::memset(cipher->held + cipher->held_size, static_cast<int>(padding), padding);
    crypt(cipher, cipher->iv, cipher->held, output->data, 1);
    output->size = cbc_block;
    restart(cipher);
    return BE_OK;
}

// Text that is cut takes the same road as text whose padding is wrong.
int finish_padded_decryption(AlgorithmObject *object, Output *output, AlgorithmObject *) {
    Cipher *cipher = cipher_of(object);
    SecretArray<cbc_block> plain;
    uint8_t iv[cbc_block]; // the object keeps its own, in case the output has no room
    std::memcpy(iv, cipher->iv, sizeof iv);
    crypt(cipher, iv, cipher->held, plain.bytes, 1);
    const bool whole = cipher->held_size == cbc_block;
    const uint32_t padding = padding_size(plain.bytes);
    if (!whole || padding == 0) {
        restart(cipher);
        return whole ? BE_PADDING : BE_INPUT_LEN;
    }
    const uint32_t size = cbc_block - padding;
    if (size > output->capacity)
        return BE_OUTPUT_LEN;
    if (size != 0)
        std::memcpy(output->data, plain.bytes, size);
    output->size = size;
    restart(cipher);
    return BE_OK;
}

} // namespace toolkit
