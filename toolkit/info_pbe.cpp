#include "info.h"
#include "oids.h"
#include "operations.h"

#include <cstring>

namespace toolkit {
namespace {

constexpr uint32_t salt_size = 8;
constexpr uint32_t pkcs5_effective_bits = 64; // of RC2 in PKCS#5's own algorithms
constexpr uint32_t max_effective_bits = 1024;

int set_salt(Parameters *parameters, const uint8_t *salt, uint32_t iterations) {
    if (salt == nullptr || iterations == 0)
        return BE_ALGORITHM_INFO;
    std::memcpy(parameters->block, salt, salt_size);
    parameters->iterations = iterations;
    return BE_OK;
}

int set_des(Parameters *parameters, const Algorithm &, POINTER info) {
    if (info == nullptr)
        return BE_ALGORITHM_INFO;
    const auto &record = *static_cast<const A_PBE_PARAMS *>(info);
    return set_salt(parameters, record.salt, record.iterationCount);
}

int get_des(POINTER *info, AlgorithmObject *object, B_INFO_TYPE type) {
    const A_PBE_PARAMS record = {object->parameters.block, object->parameters.iterations};
    return get_record(info, object, type, record);
}

int set_rc2(Parameters *parameters, const Algorithm &, POINTER info) {
    if (info == nullptr)
        return BE_ALGORITHM_INFO;
    const auto &record = *static_cast<const A_RC2_PBE_PARAMS *>(info);
    if (record.effectiveKeyBits == 0 || record.effectiveKeyBits > max_effective_bits)
        return BE_ALGORITHM_INFO;
    parameters->effective_bits = record.effectiveKeyBits;
    return set_salt(parameters, record.salt, record.iterationCount);
}

int get_rc2(POINTER *info, AlgorithmObject *object, B_INFO_TYPE type) {
    const Parameters &parameters = object->parameters;
    const A_RC2_PBE_PARAMS record = {parameters.effective_bits, parameters.block,
                                     parameters.iterations};
    return get_record(info, object, type, record);
}

// PBEParameter ::= SEQUENCE { salt OCTET STRING (8), iterationCount INTEGER }.
int read_pbe(BerReader *reader, Parameters *parameters) {
    BerReader fields;
    if (!ber_read(reader, ber_sequence, &fields) ||
        !ber_read_octets(&fields, parameters->block, salt_size) ||
        !ber_read_small(&fields, &parameters->iterations) || fields.left != 0)
        return BE_DATA;
    parameters->effective_bits = pkcs5_effective_bits;
    return parameters->iterations != 0 ? BE_OK : BE_ALGORITHM_INFO;
}

int write_pbe(BerWriter *writer, const Parameters &parameters) {
    const std::size_t mark = writer->used;
    ber_write_small(writer, parameters.iterations);
    ber_write_octets(writer, parameters.block, salt_size);
    ber_write_header(writer, ber_sequence, mark);
    return BE_OK;
}

int write_rc2_pbe(BerWriter *writer, const Parameters &parameters) {
    return parameters.effective_bits == pkcs5_effective_bits ? write_pbe(writer, parameters)
                                                             : BE_ALGORITHM_INFO;
}

template <Primitive digest, Primitive forwards, Primitive backwards>
constexpr Operation operations[] = {
    {.use = Use::encrypt,
     .needs = {digest, forwards},
     .init = init_pbe,
     .update = update_cipher,
     .final = finish_padded_encryption},
    {.use = Use::decrypt,
     .needs = {digest, backwards},
     .init = init_pbe,
     .update = update_padded_decryption,
     .final = finish_padded_decryption},
};

using enum Primitive;

constexpr Algorithm md2_des = {.operations = operations<md2, des_cbc_encrypt, des_cbc_decrypt>,
                               .oid = oid_md2_with_des,
                               .read = read_pbe,
                               .write = write_pbe};
constexpr Algorithm md5_des = {.operations = operations<md5, des_cbc_encrypt, des_cbc_decrypt>,
                               .oid = oid_md5_with_des,
                               .read = read_pbe,
                               .write = write_pbe};
constexpr Algorithm md2_rc2 = {.operations = operations<md2, rc2_cbc_encrypt, rc2_cbc_decrypt>,
                               .oid = oid_md2_with_rc2,
                               .read = read_pbe,
                               .write = write_rc2_pbe};
constexpr Algorithm md5_rc2 = {.operations = operations<md5, rc2_cbc_encrypt, rc2_cbc_decrypt>,
                               .oid = oid_md5_with_rc2,
                               .read = read_pbe,
                               .write = write_rc2_pbe};
constexpr Algorithm md5_xor = {};

constexpr AlgorithmInfoType info_md2_des = {&md2_des, set_des, get_des};
constexpr AlgorithmInfoType info_md2_des_ber = {&md2_des, set_ber, get_ber};
constexpr AlgorithmInfoType info_md5_des = {&md5_des, set_des, get_des};
constexpr AlgorithmInfoType info_md5_des_ber = {&md5_des, set_ber, get_ber};
constexpr AlgorithmInfoType info_md2_rc2 = {&md2_rc2, set_rc2, get_rc2};
constexpr AlgorithmInfoType info_md2_rc2_ber = {&md2_rc2, set_ber, get_ber};
constexpr AlgorithmInfoType info_md5_rc2 = {&md5_rc2, set_rc2, get_rc2};
constexpr AlgorithmInfoType info_md5_rc2_ber = {&md5_rc2, set_ber, get_ber};
constexpr AlgorithmInfoType info_md5_xor = {&md5_xor, set_unpublished, get_unpublished};
constexpr AlgorithmInfoType info_md5_xor_ber = {&md5_xor, set_unpublished, get_unpublished};

} // namespace

const B_INFO_TYPE AI_MD2WithDES_CBCPad = &info_md2_des;
const B_INFO_TYPE AI_MD2WithDES_CBCPadBER = &info_md2_des_ber;
const B_INFO_TYPE AI_MD5WithDES_CBCPad = &info_md5_des;
const B_INFO_TYPE AI_MD5WithDES_CBCPadBER = &info_md5_des_ber;
const B_INFO_TYPE AI_MD2WithRC2_CBCPad = &info_md2_rc2;
const B_INFO_TYPE AI_MD2WithRC2_CBCPadBER = &info_md2_rc2_ber;
const B_INFO_TYPE AI_MD5WithRC2_CBCPad = &info_md5_rc2;
const B_INFO_TYPE AI_MD5WithRC2_CBCPadBER = &info_md5_rc2_ber;
const B_INFO_TYPE AI_MD5WithXOR = &info_md5_xor;
const B_INFO_TYPE AI_MD5WithXOR_BER = &info_md5_xor_ber;

} // namespace toolkit
