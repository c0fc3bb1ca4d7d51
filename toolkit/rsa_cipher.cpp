#include "bignum.h"
#include "operations.h"

#include <toolkit/pkcs1.h>

#include <cstring>

namespace toolkit {
namespace {

struct RsaCipher { // two blocks lie behind it: the input, and one to work in
    const RsaMethod *method;
    void *key;
    uint32_t size; // of a block
    uint32_t held; // bytes of input so far
};

RsaCipher *cipher_of(AlgorithmObject *object) {
    return static_cast<RsaCipher *>(object->state);
}

uint8_t *block_of(RsaCipher *cipher) {
    return reinterpret_cast<uint8_t *>(cipher + 1);
}

uint8_t *work_of(RsaCipher *cipher) {
    return block_of(cipher) + cipher->size;
}

void release(void *state) {
    auto *cipher = static_cast<RsaCipher *>(state);
    cipher->method->release(cipher->key);
}

void restart(RsaCipher *cipher) {
    explicit_bzero(block_of(cipher), std::size_t{2} * cipher->size);
    cipher->held = 0;
}

int update(RsaCipher *cipher, Input input, uint32_t limit) {
    if (input.size > limit - cipher->held)
        return BE_INPUT_LEN;
    if (input.size != 0)
        std::memcpy(block_of(cipher) + cipher->held, input.data, input.size);
    cipher->held += input.size;
    return BE_OK;
}

using Pad = int(uint8_t *block, uint32_t size, const uint8_t *data, uint32_t length,
                const RandomSource *random);

int pad_type1(uint8_t *block, uint32_t size, const uint8_t *data, uint32_t length,
              const RandomSource *) {
    return pkcs1_pad_type1(block, size, data, length);
}

int pad_type2(uint8_t *block, uint32_t size, const uint8_t *data, uint32_t length,
              const RandomSource *random) {
    return pkcs1_pad_type2(block, size, data, length, *random);
}

int finish_padding(RsaCipher *cipher, Output *output, Pad *pad, const RandomSource *random) {
    if (output->capacity < cipher->size)
        return BE_OUTPUT_LEN;
    uint8_t *block = block_of(cipher), *work = work_of(cipher);
    int error = pad(work, cipher->size, block, cipher->held, random);
    if (error == BE_OK)
        error = cipher->method->apply(cipher->key, work, block);
    if (error == BE_OK) {
        std::memcpy(output->data, block, cipher->size);
        output->size = cipher->size;
    }
    restart(cipher);
    return error;
}

using Open = int(const uint8_t *block, uint32_t size, uint32_t *start);

int open_raw(const uint8_t *, uint32_t, uint32_t *start) {
    *start = 0;
    return BE_OK;
}

// Leaves the block, bare of its encryption, in the work block.
int lay_bare(RsaCipher *cipher) {
    if (cipher->held != cipher->size)
        return BE_INPUT_LEN;
    return cipher->method->apply(cipher->key, block_of(cipher), work_of(cipher));
}

int finish_opening(RsaCipher *cipher, Output *output, Open *open) {
    uint32_t start = 0;
    int error = lay_bare(cipher);
    if (error == BE_OK)
        error = open(work_of(cipher), cipher->size, &start);
    if (error == BE_OK) {
        const uint32_t size = cipher->size - start;
        if (size > output->capacity)
            return BE_OUTPUT_LEN;
        if (size != 0)
            std::memcpy(output->data, work_of(cipher) + start, size);
        output->size = size;
    }
    restart(cipher);
    return error;
}

// Moves what begins at start to the front of a block, and zeros behind it. start is secret.
void bring_forward(uint8_t *block, uint32_t size, uint32_t start) {
    for (uint32_t step = 1; step <= size; step *= 2, start /= 2) {
        const auto moves = static_cast<uint8_t>(bn::mask_of_bit(start & 1));
        for (uint32_t at = 0; at < size - step; ++at)
            block[at] = static_cast<uint8_t>((block[at + step] & moves) | (block[at] & ~moves));
        for (uint32_t at = size - step; at < size; ++at)
            block[at] = static_cast<uint8_t>(block[at] & ~moves);
    }
}

// A block of type 2 in the work block becomes output. The same work is done whether it is good or
// bad and however long its data are: as many bytes are written as the longest have, which are zeros
// behind the data and in place of bad ones. Only an output that may be too short tells the length.
int open_secret(RsaCipher *cipher, Output *output) {
    uint8_t *work = work_of(cipher);
    uint32_t start = 0;
    const int error = pkcs1_open_type2(work, cipher->size, &start);
    const auto bad = static_cast<uint32_t>(~bn::mask_if_zero(static_cast<bn::Limb>(error)));
    start |= cipher->size & bad;
    const uint32_t longest = cipher->size - pkcs1_overhead;
    if (output->capacity < longest && cipher->size - start > output->capacity)
        return BE_OUTPUT_LEN;
    bring_forward(work, cipher->size, start);
    const uint32_t written = output->capacity < longest ? output->capacity : longest;
    if (written != 0)
        std::memcpy(output->data, work, written);
    output->size = cipher->size - start;
    restart(cipher);
    return error;
}

int finish_opening_secret(RsaCipher *cipher, Output *output) {
    if (const int error = lay_bare(cipher); error != BE_OK) {
        restart(cipher);
        return error;
    }
    return open_secret(cipher, output);
}

} // namespace

int init_rsa(AlgorithmObject *object, const Start &start) {
    if (start.key == nullptr)
        return BE_KEY_OBJ;
    if (start.key->kind == KeyKind::none)
        return BE_KEY_NOT_SET;
    const RsaMethod &method = *start.methods[0]->rsa;
    void *key = nullptr;
    if (const int error = method.make(&key, *start.key); error != BE_OK)
        return error;
    const uint32_t size = method.size(key);
    auto *cipher = static_cast<RsaCipher *>(
        new_state(object, sizeof(RsaCipher) + std::size_t{2} * size, release));
    if (cipher == nullptr) {
        method.release(key);
        return BE_ALLOC;
    }
    *cipher = {&method, key, size, 0};
    return BE_OK;
}

int update_rsa(AlgorithmObject *object, Input input, Output *) {
    RsaCipher *cipher = cipher_of(object);
    return update(cipher, input, cipher->size);
}

int update_rsa_padding(AlgorithmObject *object, Input input, Output *) {
    RsaCipher *cipher = cipher_of(object);
    return update(cipher, input, cipher->size - pkcs1_overhead);
}

int finish_rsa_raw(AlgorithmObject *object, Output *output, AlgorithmObject *) {
    return finish_opening(cipher_of(object), output, open_raw);
}

int finish_rsa_pad_type1(AlgorithmObject *object, Output *output, AlgorithmObject *) {
    return finish_padding(cipher_of(object), output, pad_type1, nullptr);
}

int finish_rsa_pad_type2(AlgorithmObject *object, Output *output, AlgorithmObject *random) {
    RandomSource source;
    if (const int error = random_source(&source, random); error != BE_OK)
        return error;
    return finish_padding(cipher_of(object), output, pad_type2, &source);
}

int finish_rsa_open_type1(AlgorithmObject *object, Output *output, AlgorithmObject *) {
    return finish_opening(cipher_of(object), output, pkcs1_open_type1);
}

int finish_rsa_open_type2(AlgorithmObject *object, Output *output, AlgorithmObject *) {
    return finish_opening_secret(cipher_of(object), output);
}

} // namespace toolkit
