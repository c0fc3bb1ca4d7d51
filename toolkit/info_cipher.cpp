#include "info.h"
#include "oids.h"
#include "operations.h"

#include <toolkit/rc2.h>

#include <cstdio>
#include <cstring>

namespace toolkit {
namespace {

constexpr uint32_t iv_size = 8;

// ---- The IV alone

int read_iv(BerReader *reader, Parameters *parameters) {
    return ber_read_octets(reader, parameters->block, iv_size) ? BE_OK : BE_DATA;
}

int write_iv(BerWriter *writer, const Parameters &parameters) {
    ber_write_octets(writer, parameters.block, iv_size);
    return BE_OK;
}

// Sixteen hexadecimal digits (RFC 1423, 1.1).
bool read_iv_text(const char *text, Parameters *parameters) {
    constexpr char digits[] = "0123456789ABCDEF0123456789abcdef";
    for (uint32_t i = 0; i < 2 * iv_size; ++i) {
        const char *digit = text[i] != '\0' ? std::strchr(digits, text[i]) : nullptr;
        if (digit == nullptr)
            return false;
        const auto value = static_cast<uint8_t>((digit - digits) & 15);
        uint8_t &byte = parameters->block[i / 2];
        byte = static_cast<uint8_t>(byte << 4 | value);
    }
    return text[2 * iv_size] == '\0';
}

void write_iv_text(char *text, const Parameters &parameters) {
    for (uint32_t i = 0; i < iv_size; ++i)
        std::snprintf(text + std::size_t{2} * i, 3, "%02X", unsigned{parameters.block[i]});
}

// ---- RC2

// RFC 2268, section 6: CHOICE { iv OCTET STRING, SEQUENCE { version INTEGER, iv OCTET STRING } };
// the IV alone means this many effective bits.
constexpr uint32_t default_effective_bits = 32;
constexpr uint32_t max_effective_bits = 1024;

int set_rc2(Parameters *parameters, const Algorithm &, POINTER info) {
    if (info == nullptr)
        return BE_ALGORITHM_INFO;
    const auto &record = *static_cast<const A_RC2_CBC_PARAMS *>(info);
    if (record.iv == nullptr || record.effectiveKeyBits == 0 ||
        record.effectiveKeyBits > max_effective_bits)
        return BE_ALGORITHM_INFO;
    parameters->effective_bits = record.effectiveKeyBits;
    std::memcpy(parameters->block, record.iv, iv_size);
    return BE_OK;
}

int get_rc2(POINTER *info, AlgorithmObject *object, B_INFO_TYPE type) {
    const A_RC2_CBC_PARAMS record = {object->parameters.effective_bits, object->parameters.block};
    return get_record(info, object, type, record);
}

int read_rc2(BerReader *reader, Parameters *parameters) {
    if (!ber_next_is(reader, ber_sequence)) {
        parameters->effective_bits = default_effective_bits;
        return read_iv(reader, parameters);
    }
    BerReader fields;
    uint32_t version;
    if (!ber_read(reader, ber_sequence, &fields) || !ber_read_small(&fields, &version) ||
        read_iv(&fields, parameters) != BE_OK || fields.left != 0)
        return BE_DATA;
    const uint32_t bits = rc2_bits_from_version(version);
    parameters->effective_bits = bits;
    return bits != 0 && bits <= max_effective_bits ? BE_OK : BE_DATA;
}

int write_rc2(BerWriter *writer, const Parameters &parameters) {
    const std::size_t mark = writer->used;
    ber_write_octets(writer, parameters.block, iv_size);
    ber_write_small(writer, rc2_version_from_bits(parameters.effective_bits));
    ber_write_header(writer, ber_sequence, mark);
    return BE_OK;
}

// The effective bits in decimal digits, a comma, the IV.
bool read_rc2_text(const char *text, Parameters *parameters) {
    uint32_t bits = 0;
    if (*text == '0')
        return false;
    for (; *text >= '0' && *text <= '9'; ++text) {
        bits = bits * 10 + static_cast<uint32_t>(*text - '0');
        if (bits > max_effective_bits)
            return false;
    }
    parameters->effective_bits = bits;
    return bits != 0 && *text == ',' && read_iv_text(text + 1, parameters);
}

void write_rc2_text(char *text, const Parameters &parameters) {
    const int size =
        std::snprintf(text, sizeof "1024,", "%u,", unsigned{parameters.effective_bits});
    write_iv_text(text + size, parameters);
}

// ---- Algorithms

template <Primitive forwards, Primitive backwards>
constexpr Operation whole_blocks[] = {
    {.use = Use::encrypt,
     .needs = {forwards},
     .init = init_cipher,
     .update = update_cipher,
     .final = finish_cipher},
    {.use = Use::decrypt,
     .needs = {backwards},
     .init = init_cipher,
     .update = update_cipher,
     .final = finish_cipher},
};

template <Primitive forwards, Primitive backwards>
constexpr Operation padded[] = {
    {.use = Use::encrypt,
     .needs = {forwards},
     .init = init_cipher,
     .update = update_cipher,
     .final = finish_padded_encryption},
    {.use = Use::decrypt,
     .needs = {backwards},
     .init = init_cipher,
     .update = update_padded_decryption,
     .final = finish_padded_decryption},
};

using enum Primitive;

constexpr Algorithm des = {.operations = whole_blocks<des_cbc_encrypt, des_cbc_decrypt>};
constexpr Algorithm des_pad = {.operations = padded<des_cbc_encrypt, des_cbc_decrypt>,
                               .oid = oid_des_cbc,
                               .read = read_iv,
                               .write = write_iv,
                               .name = "DES-CBC",
                               .read_text = read_iv_text,
                               .write_text = write_iv_text};
constexpr Algorithm des_ede3 = {.operations =
                                    whole_blocks<des_ede3_cbc_encrypt, des_ede3_cbc_decrypt>};
constexpr Algorithm des_ede3_pad = {.operations =
                                        padded<des_ede3_cbc_encrypt, des_ede3_cbc_decrypt>,
                                    .oid = oid_des_ede3_cbc,
                                    .read = read_iv,
                                    .write = write_iv};
constexpr Algorithm desx = {.operations = whole_blocks<desx_cbc_encrypt, desx_cbc_decrypt>};
constexpr Algorithm desx_pad = {.operations = padded<desx_cbc_encrypt, desx_cbc_decrypt>,
                                .oid = oid_desx_cbc,
                                .read = read_iv,
                                .write = write_iv};
constexpr Algorithm rc2 = {.operations = whole_blocks<rc2_cbc_encrypt, rc2_cbc_decrypt>};
constexpr Algorithm rc2_pad = {.operations = padded<rc2_cbc_encrypt, rc2_cbc_decrypt>,
                               .oid = oid_rc2_cbc,
                               .read = read_rc2,
                               .write = write_rc2,
                               .name = "RC2-CBC",
                               .read_text = read_rc2_text,
                               .write_text = write_rc2_text};
constexpr Algorithm rc4 = {.operations = whole_blocks<rc4_encrypt, rc4_decrypt>,
                           .oid = oid_rc4,
                           .read = read_null_parameters,
                           .write = write_null_parameters};
constexpr Algorithm rc4_with_mac = {};

// clang-format off
constexpr AlgorithmInfoType info_des             = {&des,          set_block, get_block};
constexpr AlgorithmInfoType info_des_pad         = {&des_pad,      set_block, get_block};
constexpr AlgorithmInfoType info_des_pad_ber     = {&des_pad,      set_ber,   get_ber};
constexpr AlgorithmInfoType info_des_pad_pem     = {&des_pad,      set_text,  get_text};
constexpr AlgorithmInfoType info_ede3            = {&des_ede3,     set_block, get_block};
constexpr AlgorithmInfoType info_ede3_pad        = {&des_ede3_pad, set_block, get_block};
constexpr AlgorithmInfoType info_ede3_pad_ber    = {&des_ede3_pad, set_ber,   get_ber};
constexpr AlgorithmInfoType info_desx            = {&desx,         set_block, get_block};
constexpr AlgorithmInfoType info_desx_pad        = {&desx_pad,     set_block, get_block};
constexpr AlgorithmInfoType info_desx_pad_ber    = {&desx_pad,     set_ber,   get_ber};
constexpr AlgorithmInfoType info_rc2             = {&rc2,          set_rc2,   get_rc2};
constexpr AlgorithmInfoType info_rc2_pad         = {&rc2_pad,      set_rc2,   get_rc2};
constexpr AlgorithmInfoType info_rc2_pad_ber     = {&rc2_pad,      set_ber,   get_ber};
constexpr AlgorithmInfoType info_rc2_pad_pem     = {&rc2_pad,      set_text,  get_text};
constexpr AlgorithmInfoType info_rc4             = {&rc4,          set_nothing, get_nothing};
constexpr AlgorithmInfoType info_rc4_ber         = {&rc4,          set_ber,   get_ber};
// clang-format on
constexpr AlgorithmInfoType info_rc4_mac = {&rc4_with_mac, set_unpublished, get_unpublished};
constexpr AlgorithmInfoType info_rc4_mac_ber = {&rc4_with_mac, set_unpublished, get_unpublished};

} // namespace

const B_INFO_TYPE AI_DES_CBC_IV8 = &info_des;
const B_INFO_TYPE AI_DES_CBCPadIV8 = &info_des_pad;
const B_INFO_TYPE AI_DES_CBCPadBER = &info_des_pad_ber;
const B_INFO_TYPE AI_DES_CBCPadPEM = &info_des_pad_pem;
const B_INFO_TYPE AI_DES_EDE3_CBC_IV8 = &info_ede3;
const B_INFO_TYPE AI_DES_EDE3_CBCPadIV8 = &info_ede3_pad;
const B_INFO_TYPE AI_DES_EDE3_CBCPadBER = &info_ede3_pad_ber;
const B_INFO_TYPE AI_DESX_CBC_IV8 = &info_desx;
const B_INFO_TYPE AI_DESX_CBCPadIV8 = &info_desx_pad;
const B_INFO_TYPE AI_DESX_CBCPadBER = &info_desx_pad_ber;
const B_INFO_TYPE AI_RC2_CBC = &info_rc2;
const B_INFO_TYPE AI_RC2_CBCPad = &info_rc2_pad;
const B_INFO_TYPE AI_RC2_CBCPadBER = &info_rc2_pad_ber;
const B_INFO_TYPE AI_RC2_CBCPadPEM = &info_rc2_pad_pem;
const B_INFO_TYPE AI_RC4 = &info_rc4;
const B_INFO_TYPE AI_RC4_BER = &info_rc4_ber;
const B_INFO_TYPE AI_RC4WithMAC = &info_rc4_mac;
const B_INFO_TYPE AI_RC4WithMAC_BER = &info_rc4_mac_ber;

} // namespace toolkit
