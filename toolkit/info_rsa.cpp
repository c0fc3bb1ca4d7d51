#include "info.h"
#include "oids.h"
#include "operations.h"

namespace toolkit {
namespace {

// ---- RSA on one block

template <Primitive forwards, Primitive backwards>
constexpr Operation raw[] = {
    {.use = Use::encrypt,
     .needs = {forwards},
     .init = init_rsa,
     .update = update_rsa,
     .final = finish_rsa_raw},
    {.use = Use::decrypt,
     .needs = {backwards},
     .init = init_rsa,
     .update = update_rsa,
     .final = finish_rsa_raw},
};

constexpr Operation pkcs_public[] = {
    {.use = Use::encrypt,
     .needs = {Primitive::rsa_encrypt},
     .init = init_rsa,
     .update = update_rsa_padding,
     .final = finish_rsa_pad_type2},
    {.use = Use::decrypt,
     .needs = {Primitive::rsa_decrypt},
     .init = init_rsa,
     .update = update_rsa,
     .final = finish_rsa_open_type1},
};

constexpr Operation pkcs_private[] = {
    {.use = Use::encrypt,
     .needs = {Primitive::rsa_crt_encrypt},
     .init = init_rsa,
     .update = update_rsa_padding,
     .final = finish_rsa_pad_type1},
    {.use = Use::decrypt,
     .needs = {Primitive::rsa_crt_decrypt},
     .init = init_rsa,
     .update = update_rsa,
     .final = finish_rsa_open_type2},
};

constexpr Algorithm raw_public = {.operations =
                                      raw<Primitive::rsa_encrypt, Primitive::rsa_decrypt>};
constexpr Algorithm raw_private = {.operations =
                                       raw<Primitive::rsa_crt_encrypt, Primitive::rsa_crt_decrypt>};
constexpr Algorithm pkcs_rsa_public = {.operations = pkcs_public,
                                       .oid = oid_rsa,
                                       .read = read_null_parameters,
                                       .write = write_null_parameters,
                                       .name = "RSA"};
constexpr Algorithm pkcs_rsa_private = {.operations = pkcs_private,
                                        .oid = oid_rsa,
                                        .read = read_null_parameters,
                                        .write = write_null_parameters,
                                        .name = "RSA"};

// ---- Signatures

template <Primitive digest>
constexpr Operation signature_operations[] = {
    {.use = Use::sign,
     .needs = {digest, Primitive::rsa_crt_encrypt},
     .init = init_signature,
     .update = update_signature,
     .final = finish_signing},
    {.use = Use::verify,
     .needs = {digest, Primitive::rsa_decrypt},
     .init = init_signature,
     .update = update_signature,
     .verify = verify_signature},
};

constexpr Algorithm md2_with_rsa = {.operations = signature_operations<Primitive::md2>,
                                    .oid = oid_md2_with_rsa,
                                    .read = read_null_parameters,
                                    .write = write_null_parameters};
constexpr Algorithm md5_with_rsa = {.operations = signature_operations<Primitive::md5>,
                                    .oid = oid_md5_with_rsa,
                                    .read = read_null_parameters,
                                    .write = write_null_parameters};

// clang-format off
constexpr AlgorithmInfoType info_raw_public       = {&raw_public,       set_nothing, get_nothing};
constexpr AlgorithmInfoType info_raw_private      = {&raw_private,      set_nothing, get_nothing};
constexpr AlgorithmInfoType info_pkcs_public      = {&pkcs_rsa_public,  set_nothing, get_nothing};
constexpr AlgorithmInfoType info_pkcs_public_ber  = {&pkcs_rsa_public,  set_ber,     get_ber};
constexpr AlgorithmInfoType info_pkcs_public_pem  = {&pkcs_rsa_public,  set_text,    get_text};
constexpr AlgorithmInfoType info_pkcs_private     = {&pkcs_rsa_private, set_nothing, get_nothing};
constexpr AlgorithmInfoType info_pkcs_private_ber = {&pkcs_rsa_private, set_ber,     get_ber};
constexpr AlgorithmInfoType info_pkcs_private_pem = {&pkcs_rsa_private, set_text,    get_text};
constexpr AlgorithmInfoType info_md2_rsa          = {&md2_with_rsa,     set_nothing, get_nothing};
constexpr AlgorithmInfoType info_md2_rsa_ber      = {&md2_with_rsa,     set_ber,     get_ber};
constexpr AlgorithmInfoType info_md5_rsa          = {&md5_with_rsa,     set_nothing, get_nothing};
constexpr AlgorithmInfoType info_md5_rsa_ber      = {&md5_with_rsa,     set_ber,     get_ber};
// clang-format on

} // namespace

const B_INFO_TYPE AI_RSAPublic = &info_raw_public;
const B_INFO_TYPE AI_RSAPrivate = &info_raw_private;
const B_INFO_TYPE AI_PKCS_RSAPublic = &info_pkcs_public;
const B_INFO_TYPE AI_PKCS_RSAPublicBER = &info_pkcs_public_ber;
const B_INFO_TYPE AI_PKCS_RSAPublicPEM = &info_pkcs_public_pem;
const B_INFO_TYPE AI_PKCS_RSAPrivate = &info_pkcs_private;
const B_INFO_TYPE AI_PKCS_RSAPrivateBER = &info_pkcs_private_ber;
const B_INFO_TYPE AI_PKCS_RSAPrivatePEM = &info_pkcs_private_pem;
const B_INFO_TYPE AI_MD2WithRSAEncryption = &info_md2_rsa;
const B_INFO_TYPE AI_MD2WithRSAEncryptionBER = &info_md2_rsa_ber;
const B_INFO_TYPE AI_MD5WithRSAEncryption = &info_md5_rsa;
const B_INFO_TYPE AI_MD5WithRSAEncryptionBER = &info_md5_rsa_ber;

} // namespace toolkit
