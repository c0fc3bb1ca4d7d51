#include "operations.h"

#include <toolkit/des.h>

namespace toolkit {
namespace {

constexpr uint32_t salt_size = 8;
constexpr uint32_t key_size = 8; // and as many bytes of IV behind it
constexpr uint32_t iterations_between_surrenders = 1 << 16;

bool is_stopped(const SurrenderContext *surrender, uint32_t iteration) {
    return iteration % iterations_between_surrenders == 0 && surrender != nullptr &&
           surrender->surrender != nullptr && surrender->surrender(surrender->handle) != 0;
}

} // namespace

int pbkdf1(uint8_t output[digest_size], const DigestMethod &digest, Input password, Input salt,
           uint32_t iterations, const SurrenderContext *surrender) {
    const SecretBytes state = allocate_secret(digest.state_size);
    if (state == nullptr)
        return BE_ALLOC;
    digest.init(state.get());
    digest.update(state.get(), password.data, password.size);
    digest.update(state.get(), salt.data, salt.size);
    digest.final(state.get(), output);
    for (uint32_t i = 1; i < iterations; ++i) {
        if (is_stopped(surrender, i))
            return BE_CANCEL;
        digest.init(state.get());
        digest.update(state.get(), output, digest_size);
        digest.final(state.get(), output);
    }
    return BE_OK;
}

int init_pbe(AlgorithmObject *object, const Start &start) {
    if (start.key == nullptr)
        return BE_KEY_OBJ;
    if (start.key->kind == KeyKind::none)
        return BE_KEY_NOT_SET;
    if (start.key->kind != KeyKind::secret)
        return BE_KEY_OPERATION_UNKNOWN;
    const ITEM &password = start.key->item;
    const Parameters &parameters = object->parameters;
    SecretArray<digest_size> derived;
    if (const int error =
            pbkdf1(derived.bytes, *start.methods[0]->digest, {password.data, password.len},
                   {parameters.block, salt_size}, parameters.iterations, start.surrender);
        error != BE_OK)
        return error;
    return start_cipher(object, *start.methods[1]->cipher, derived.bytes, key_size,
                        parameters.effective_bits, derived.bytes + key_size);
}

} // namespace toolkit
