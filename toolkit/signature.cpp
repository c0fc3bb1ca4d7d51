#include "operations.h"

#include <toolkit/pkcs1.h>

#include <cstring>

namespace toolkit {
namespace {

// The encoded DigestInfo of MD2 and MD5: 18 bytes stand before the digest.
constexpr uint32_t digest_info_size = 18 + digest_size;

// Behind it lie the digest method's state and two blocks of the key's size.
struct alignas(std::max_align_t) Signature {
    const DigestMethod *digest;
    const RsaMethod *rsa;
    void *key;
    uint32_t size; // of a block
};

Signature *signature_of(AlgorithmObject *object) {
    return static_cast<Signature *>(object->state);
}

void *digest_state(Signature *signature) {
    return signature + 1;
}

uint8_t *block_of(Signature *signature) {
    return reinterpret_cast<uint8_t *>(signature + 1) + signature->digest->state_size;
}

uint8_t *work_of(Signature *signature) {
    return block_of(signature) + signature->size;
}

void release(void *state) {
    auto *signature = static_cast<Signature *>(state);
    signature->rsa->release(signature->key);
}

// Ends the digest and leaves in block the type 1 block that it makes.
int make_block(Signature *signature, uint8_t *block) {
    uint8_t digest[digest_size];
    signature->digest->final(digest_state(signature), digest);
    signature->digest->init(digest_state(signature));
    uint8_t digest_info[digest_info_size];
    BerWriter writer = {digest_info + sizeof digest_info, sizeof digest_info, 0, false};
    write_digest_info(&writer, signature->digest->oid, digest);
    if (writer.failed || writer.used != digest_info_size)
        return BE_INTERNAL;
    return pkcs1_pad_type1(block, signature->size, digest_info, digest_info_size);
}

} // namespace

int init_signature(AlgorithmObject *object, const Start &start) {
    if (start.key == nullptr)
        return BE_KEY_OBJ;
    if (start.key->kind == KeyKind::none)
        return BE_KEY_NOT_SET;
    const DigestMethod &digest = *start.methods[0]->digest;
    const RsaMethod &rsa = *start.methods[1]->rsa;
    void *key = nullptr;
    if (const int error = rsa.make(&key, *start.key); error != BE_OK)
        return error;
    const uint32_t size = rsa.size(key);
    auto *signature = static_cast<Signature *>(
        new_state(object, sizeof(Signature) + digest.state_size + std::size_t{2} * size, release));
    if (signature == nullptr) {
        rsa.release(key);
        return BE_ALLOC;
    }
    *signature = {&digest, &rsa, key, size};
    digest.init(digest_state(signature));
    return size < digest_info_size + pkcs1_overhead ? BE_MODULUS_LEN : BE_OK;
}

int update_signature(AlgorithmObject *object, Input input, Output *) {
    Signature *signature = signature_of(object);
    signature->digest->update(digest_state(signature), input.data, input.size);
    return BE_OK;
}

int finish_signing(AlgorithmObject *object, Output *output, AlgorithmObject *) {
    Signature *signature = signature_of(object);
    if (output->capacity < signature->size)
        return BE_OUTPUT_LEN;
    uint8_t *block = block_of(signature), *work = work_of(signature);
    if (const int error = make_block(signature, block); error != BE_OK)
        return error;
    if (const int error = signature->rsa->apply(signature->key, block, work); error != BE_OK)
        return error;
    std::memcpy(output->data, work, signature->size);
    output->size = signature->size;
    return BE_OK;
}

// The opened block is compared whole with the one that signing makes, so that there is nothing in
// it to be read leniently: no padding, header or parameters but the right ones.
int verify_signature(AlgorithmObject *object, Input given) {
    Signature *signature = signature_of(object);
    uint8_t *block = block_of(signature), *opened = work_of(signature);
    if (const int error = make_block(signature, block); error != BE_OK)
        return error;
    if (given.size != signature->size)
        return BE_SIGNATURE;
    const int error = signature->rsa->apply(signature->key, given.data, opened);
    if (error == BE_DATA) // a number not below the modulus
        return BE_SIGNATURE;
    if (error != BE_OK)
        return error;
    return std::memcmp(block, opened, signature->size) == 0 ? BE_OK : BE_SIGNATURE;
}

} // namespace toolkit
