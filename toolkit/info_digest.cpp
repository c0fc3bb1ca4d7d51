#include "info.h"
#include "oids.h"
#include "operations.h"

namespace toolkit {
namespace {

template <Primitive primitive>
constexpr Operation digest_operations[] = {{.use = Use::digest,
                                            .needs = {primitive},
                                            .init = init_digest,
                                            .update = update_digest,
                                            .final = finish_digest}};

constexpr Operation generic_operations[] = {{.use = Use::digest,
                                             .needs = {Primitive::generic_digest},
                                             .init = init_generic_digest,
                                             .update = update_digest,
                                             .final = finish_digest}};

constexpr Algorithm md2 = {.operations = digest_operations<Primitive::md2>,
                           .oid = oid_md2,
                           .read = read_null_parameters,
                           .write = write_null_parameters,
                           .name = "RSA-MD2"};
constexpr Algorithm md5 = {.operations = digest_operations<Primitive::md5>,
                           .oid = oid_md5,
                           .read = read_null_parameters,
                           .write = write_null_parameters,
                           .name = "RSA-MD5"};
constexpr Algorithm generic = {.operations = generic_operations};
constexpr Algorithm mac = {};

int set_generic(Parameters *parameters, const Algorithm &, POINTER info) {
    const auto *digest = static_cast<B_INFO_TYPE>(info);
    for (const B_INFO_TYPE known :
         {AI_MD2, AI_MD2_BER, AI_MD2_PEM, AI_MD5, AI_MD5_BER, AI_MD5_PEM}) {
        if (digest == known) {
            parameters->digest = digest;
            return BE_OK;
        }
    }
    return BE_ALGORITHM_INFO;
}

int get_generic(POINTER *info, AlgorithmObject *object, B_INFO_TYPE) {
    *info = object->parameters.digest;
    return BE_OK;
}

constexpr AlgorithmInfoType info_md2 = {&md2, set_nothing, get_nothing};
constexpr AlgorithmInfoType info_md2_ber = {&md2, set_ber, get_ber};
constexpr AlgorithmInfoType info_md2_pem = {&md2, set_text, get_text};
constexpr AlgorithmInfoType info_md5 = {&md5, set_nothing, get_nothing};
constexpr AlgorithmInfoType info_md5_ber = {&md5, set_ber, get_ber};
constexpr AlgorithmInfoType info_md5_pem = {&md5, set_text, get_text};
constexpr AlgorithmInfoType info_generic = {&generic, set_generic, get_generic};
constexpr AlgorithmInfoType info_mac = {&mac, set_unpublished, get_unpublished};

} // namespace

const B_INFO_TYPE AI_MD = &info_generic;
const B_INFO_TYPE AI_MD2 = &info_md2;
const B_INFO_TYPE AI_MD2_BER = &info_md2_ber;
const B_INFO_TYPE AI_MD2_PEM = &info_md2_pem;
const B_INFO_TYPE AI_MD5 = &info_md5;
const B_INFO_TYPE AI_MD5_BER = &info_md5_ber;
const B_INFO_TYPE AI_MD5_PEM = &info_md5_pem;
const B_INFO_TYPE AI_MAC = &info_mac;

} // namespace toolkit
