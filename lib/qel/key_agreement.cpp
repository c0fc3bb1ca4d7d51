#include <cryptoki/session.h>
#include <lib/context.h>
#include <qel/qelp.h>
#include <toolkit/traces.h>
#include <util/toolkit_binding.h>

using namespace toolkit;

namespace {

constexpr uint32_t most_prime_bytes = 64;

int make_random(const uint8_t *seed, uint32_t seed_length, OwnedAlgorithm *random_out) {
    B_ALGORITHM_OBJ created = nullptr;
    if (const int error = B_CreateAlgorithmObject(&created); error != BE_OK)
        return error;
    random_out->reset(created);
    if (const int error = B_SetAlgorithmInfo(created, AI_MD5Random, nullptr); error != BE_OK)
        return error;
    if (const int error = B_RandomInit(created, chooser, nullptr); error != BE_OK)
        return error;
    return B_RandomUpdate(created, seed, seed_length, nullptr);
}

int make_agreement(const A_DH_KEY_AGREE_PARAMS &parameters, OwnedAlgorithm *agreement_out) {
    B_ALGORITHM_OBJ created = nullptr;
    if (const int error = B_CreateAlgorithmObject(&created); error != BE_OK)
        return error;
    agreement_out->reset(created);
    if (const int error = B_SetAlgorithmInfo(created, AI_DHKeyAgree, &parameters); error != BE_OK)
        return error;
    return B_KeyAgreeInit(created, nullptr, chooser, nullptr);
}

} // namespace

QelStatus __qel_dh_part1(QelContext *context, uint32_t exponent_bits, uint32_t prime_length,
                         const uint8_t *prime, uint32_t base_length, const uint8_t *base,
                         const uint8_t *seed, uint32_t seed_length, uint8_t *public_value,
                         uint32_t public_value_capacity) {
    const toolkit::TracesWiped traces;
    if (context == nullptr || context->key_agreement != nullptr)
        return QEL_ERR_BAD_PARAM;
    if (prime == nullptr || prime_length == 0 || seed == nullptr || seed_length == 0 ||
        public_value == nullptr)
        return QEL_ERR_BAD_PARAM;
    if (seed_length <= exponent_bits / 8 || prime_length > most_prime_bytes)
        return QEL_ERR_BAD_PARAM;

    const A_DH_KEY_AGREE_PARAMS parameters = {{const_cast<uint8_t *>(prime), prime_length},
                                              {const_cast<uint8_t *>(base), base_length},
                                              exponent_bits};
    OwnedAlgorithm random;
    OwnedAlgorithm agreement;
    uint32_t length = 0;
    if (make_random(seed, seed_length, &random) != BE_OK ||
        make_agreement(parameters, &agreement) != BE_OK ||
        B_KeyAgreePhase1(agreement.get(), public_value, &length, public_value_capacity,
                         random.get(), nullptr) != BE_OK)
        return QEL_ERR_DH_PHASE1;
    context->key_agreement = agreement.release();
    return QEL_OK;
}

QelStatus __qel_dh_part2(QelContext *context, uint8_t *secret, uint32_t *secret_length,
                         uint32_t secret_capacity, const uint8_t *other_public_value,
                         uint32_t other_length) {
    const toolkit::TracesWiped traces;
    if (secret_length != nullptr)
        *secret_length = 0;
    if (context == nullptr || context->key_agreement == nullptr || secret == nullptr ||
        secret_length == nullptr || other_public_value == nullptr || other_length == 0)
        return QEL_ERR_BAD_PARAM;
    auto *const agreement = static_cast<B_ALGORITHM_OBJ>(context->key_agreement);
    if (B_KeyAgreePhase2(agreement, secret, secret_length, secret_capacity, other_public_value,
                         other_length, nullptr) != BE_OK)
        return QEL_ERR_DH_PHASE2;
    return QEL_OK;
}
