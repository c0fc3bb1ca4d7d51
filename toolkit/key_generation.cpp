#include "info.h"

#include <toolkit/rsa.h>

namespace toolkit {
namespace {

struct FreeNumbers {
    A_PKCS_RSA_PRIVATE_KEY numbers = {};
    ~FreeNumbers() { rsa_key_free(&numbers); }
};

int init_rsa_generation(AlgorithmObject *object, const Start &) {
    return new_state(object, 1, nullptr) != nullptr ? BE_OK : BE_ALLOC;
}

int generate_rsa_keypair(AlgorithmObject *object, KeyObject *public_key, KeyObject *private_key,
                         const RandomSource &random, const SurrenderContext *surrender) {
    FreeNumbers key;
    const Parameters &parameters = object->parameters;
    if (const int error =
            rsa_generate(&key.numbers, parameters.bits, parameters.number[0], random, surrender);
        error != BE_OK)
        return error;
    const A_RSA_KEY public_numbers = {key.numbers.modulus, key.numbers.publicExponent};
    int error = B_SetKeyInfo(private_key, KI_PKCS_RSAPrivate, &key.numbers);
    if (error == BE_OK)
        error = B_SetKeyInfo(public_key, KI_RSAPublic, &public_numbers);
    if (error != BE_OK) {
        clear_key(private_key);
        clear_key(public_key);
    }
    return error;
}

int set_generation(Parameters *parameters, const Algorithm &, POINTER info) {
    if (info == nullptr)
        return BE_ALGORITHM_INFO;
    const auto &record = *static_cast<const A_RSA_KEY_GEN_PARAMS *>(info);
    const ITEM &exponent = record.publicExponent;
    if (!rsa_can_generate(record.modulusBits, exponent))
        return BE_ALGORITHM_INFO;
    parameters->bits = record.modulusBits;
    return set_parameter_numbers(parameters, {&exponent, 1});
}

int get_generation(POINTER *info, AlgorithmObject *object, B_INFO_TYPE type) {
    const A_RSA_KEY_GEN_PARAMS record = {object->parameters.bits, object->parameters.number[0]};
    return get_record(info, object, type, record);
}

constexpr Operation generation_operations[] = {{.use = Use::generate,
                                                .needs = {Primitive::rsa_key_gen},
                                                .init = init_rsa_generation,
                                                .keypair = generate_rsa_keypair}};

constexpr Algorithm key_generation = {.operations = generation_operations};

constexpr AlgorithmInfoType info_generation = {&key_generation, set_generation, get_generation};

} // namespace

const B_INFO_TYPE AI_RSAKeyGen = &info_generation;

constexpr AlgorithmMethod AM_RSA_KEY_GEN = {.provides = Primitive::rsa_key_gen};

} // namespace toolkit
