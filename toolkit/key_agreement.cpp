#include "info.h"
#include "oids.h"

#include <toolkit/dh.h>

namespace toolkit {
namespace {

struct Agreement { // the private value lies behind it
    DhGroup *group;
    bool has_private_value;
};

Agreement *agreement_of(AlgorithmObject *object) {
    return static_cast<Agreement *>(object->state);
}

uint8_t *private_value_of(Agreement *agreement) {
    return reinterpret_cast<uint8_t *>(agreement + 1);
}

void release(void *state) {
    dh_group_free(static_cast<Agreement *>(state)->group);
}

int init_agreement(AlgorithmObject *object, const Start &) {
    const Parameters &parameters = object->parameters;
    DhGroup *group = nullptr;
    if (const int error = dh_group_new(&group, parameters.number[0], parameters.number[1],
                                       parameters.exponent_bits);
        error != BE_OK)
        return error;
    auto *agreement = static_cast<Agreement *>(
        new_state(object, sizeof(Agreement) + dh_private_size(group), release));
    if (agreement == nullptr) {
        dh_group_free(group);
        return BE_ALLOC;
    }
    agreement->group = group;
    return BE_OK;
}

int agree_phase1(AlgorithmObject *object, Output *output, const RandomSource &random) {
    Agreement *agreement = agreement_of(object);
    const uint32_t size = dh_group_size(agreement->group);
    if (output->capacity < size)
        return BE_OUTPUT_LEN;
    const int error =
        dh_generate(agreement->group, private_value_of(agreement), output->data, random);
    agreement->has_private_value = error == BE_OK;
    output->size = size;
    return error;
}

int agree_phase2(AlgorithmObject *object, Input input, Output *output) {
    Agreement *agreement = agreement_of(object);
    const uint32_t size = dh_group_size(agreement->group);
    if (!agreement->has_private_value)
        return BE_ALGORITHM_NOT_INITIALIZED;
    if (output->capacity < size)
        return BE_OUTPUT_LEN;
    output->size = size;
    return dh_agree(agreement->group, private_value_of(agreement), input.data, input.size,
                    output->data);
}

int init_dh_generation(AlgorithmObject *object, const Start &) {
    return new_state(object, 1, nullptr) != nullptr ? BE_OK : BE_ALLOC;
}

int generate_dh_parameters(AlgorithmObject *object, AlgorithmObject *result,
                           const RandomSource &random, const SurrenderContext *surrender) {
    const Parameters &parameters = object->parameters;
    A_DH_KEY_AGREE_PARAMS made = {};
    int error = dh_generate_parameters(&made.prime, &made.base, parameters.bits,
                                       parameters.exponent_bits, random, surrender);
    made.exponentBits = parameters.exponent_bits;
    if (error == BE_OK)
        error = B_SetAlgorithmInfo(result, AI_DHKeyAgree, &made);
    std::free(made.prime.data);
    std::free(made.base.data);
    return error;
}

// ---- Info types

int set_agreement(Parameters *parameters, const Algorithm &, POINTER info) {
    if (info == nullptr)
        return BE_ALGORITHM_INFO;
    const auto &record = *static_cast<const A_DH_KEY_AGREE_PARAMS *>(info);
    if (record.prime.data == nullptr || record.base.data == nullptr)
        return BE_ALGORITHM_INFO;
    const ITEM numbers[] = {record.prime, record.base};
    parameters->exponent_bits = record.exponentBits;
    return set_parameter_numbers(parameters, numbers);
}

int get_agreement(POINTER *info, AlgorithmObject *object, B_INFO_TYPE type) {
    const Parameters &parameters = object->parameters;
    const A_DH_KEY_AGREE_PARAMS record = {parameters.number[0], parameters.number[1],
                                          parameters.exponent_bits};
    return get_record(info, object, type, record);
}

// PKCS#3: SEQUENCE { prime INTEGER, base INTEGER, privateValueLength INTEGER OPTIONAL }.
int read_agreement(BerReader *reader, Parameters *parameters) {
    BerReader fields;
    ITEM numbers[2];
    if (!ber_read(reader, ber_sequence, &fields) || !ber_read_unsigned(&fields, &numbers[0]) ||
        !ber_read_unsigned(&fields, &numbers[1]))
        return BE_DATA;
    if (fields.left != 0 &&
        (!ber_read_small(&fields, &parameters->exponent_bits) || fields.left != 0))
        return BE_DATA;
    return set_parameter_numbers(parameters, numbers);
}

int write_agreement(BerWriter *writer, const Parameters &parameters) {
    const std::size_t mark = writer->used;
    if (parameters.exponent_bits != 0)
        ber_write_small(writer, parameters.exponent_bits);
    ber_write_unsigned(writer, parameters.number[1]);
    ber_write_unsigned(writer, parameters.number[0]);
    ber_write_header(writer, ber_sequence, mark);
    return BE_OK;
}

int set_generation(Parameters *parameters, const Algorithm &, POINTER info) {
    if (info == nullptr)
        return BE_ALGORITHM_INFO;
    const auto &record = *static_cast<const A_DH_PARAM_GEN_PARAMS *>(info);
    parameters->bits = record.primeBits;
    parameters->exponent_bits = record.exponentBits;
    return BE_OK;
}

int get_generation(POINTER *info, AlgorithmObject *object, B_INFO_TYPE type) {
    const A_DH_PARAM_GEN_PARAMS record = {object->parameters.bits,
                                          object->parameters.exponent_bits};
    return get_record(info, object, type, record);
}

constexpr Operation agreement_operations[] = {{.use = Use::agree,
                                               .needs = {Primitive::dh_key_agree},
                                               .init = init_agreement,
                                               .phase1 = agree_phase1,
                                               .phase2 = agree_phase2}};
constexpr Operation generation_operations[] = {{.use = Use::generate,
                                                .needs = {Primitive::dh_param_gen},
                                                .init = init_dh_generation,
                                                .parameters = generate_dh_parameters}};

constexpr Algorithm agreement = {.operations = agreement_operations,
                                 .oid = oid_dh,
                                 .read = read_agreement,
                                 .write = write_agreement};
constexpr Algorithm generation = {.operations = generation_operations};

constexpr AlgorithmInfoType info_agreement = {&agreement, set_agreement, get_agreement};
constexpr AlgorithmInfoType info_agreement_ber = {&agreement, set_ber, get_ber};
constexpr AlgorithmInfoType info_generation = {&generation, set_generation, get_generation};

} // namespace

const B_INFO_TYPE AI_DHKeyAgree = &info_agreement;
const B_INFO_TYPE AI_DHKeyAgreeBER = &info_agreement_ber;
const B_INFO_TYPE AI_DHParamGen = &info_generation;

constexpr AlgorithmMethod AM_DH_KEY_AGREE = {.provides = Primitive::dh_key_agree};
constexpr AlgorithmMethod AM_DH_PARAM_GEN = {.provides = Primitive::dh_param_gen};

} // namespace toolkit
