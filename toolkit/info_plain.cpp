#include "info.h"
#include "operations.h"

namespace toolkit {
namespace {

constexpr Operation md2_random_operations[] = {{.use = Use::random,
                                                .needs = {Primitive::md2_random},
                                                .init = init_md2_random,
                                                .update = update_random}};
constexpr Operation md5_random_operations[] = {{.use = Use::random,
                                                .needs = {Primitive::md5_random},
                                                .init = init_md5_random,
                                                .update = update_random}};
constexpr Operation recode_operations[] = {
    {.use = Use::encode,
     .init = init_encoding,
     .update = update_encoding,
     .final = finish_encoding},
    {.use = Use::decode,
     .init = init_decoding,
     .update = update_decoding,
     .final = finish_decoding,
     .ends_on_bad_data = true},
};

constexpr Algorithm md2_random = {.operations = md2_random_operations};
constexpr Algorithm md5_random = {.operations = md5_random_operations};
constexpr Algorithm recode = {.operations = recode_operations};

constexpr AlgorithmInfoType info_md2_random = {&md2_random, set_nothing, get_nothing};
constexpr AlgorithmInfoType info_md5_random = {&md5_random, set_nothing, get_nothing};
constexpr AlgorithmInfoType info_recode = {&recode, set_nothing, get_nothing};

} // namespace

const B_INFO_TYPE AI_MD2Random = &info_md2_random;
const B_INFO_TYPE AI_MD5Random = &info_md5_random;
const B_INFO_TYPE AI_RFC1113Recode = &info_recode;

} // namespace toolkit
