#include "objects.h"
#include "oids.h"

#include <cstring>

namespace toolkit {
namespace {

constexpr RsaNumber public_numbers[] = {rsa_modulus, rsa_public_exponent};
constexpr RsaNumber private_numbers[] = {rsa_modulus, rsa_private_exponent};
constexpr RsaNumber crt_numbers[] = {rsa_modulus,    rsa_prime_1,    rsa_prime_2,
                                     rsa_exponent_1, rsa_exponent_2, rsa_coefficient};
// In the order of an RSAPrivateKey.
constexpr RsaNumber pkcs_numbers[] = {rsa_modulus,    rsa_public_exponent, rsa_private_exponent,
                                      rsa_prime_1,    rsa_prime_2,         rsa_exponent_1,
                                      rsa_exponent_2, rsa_coefficient};

// Records: the ITEMs of a record, in its field order, are the numbers named.

static_assert(sizeof(A_RSA_KEY) == std::size(public_numbers) * sizeof(ITEM));
static_assert(sizeof(A_RSA_CRT_KEY) == std::size(crt_numbers) * sizeof(ITEM));
static_assert(sizeof(A_PKCS_RSA_PRIVATE_KEY) == std::size(pkcs_numbers) * sizeof(ITEM));

int set_numbers(KeyObject *object, const ITEM *items, std::span<const RsaNumber> names) {
    ITEM numbers[rsa_numbers] = {};
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (items[i].data == nullptr || items[i].len == 0)
            return BE_KEY_INFO;
        numbers[names[i]] = items[i];
    }
    return set_rsa_key(object, numbers);
}

template <const auto &names> int set_record(KeyObject *object, B_KEY_INFO_TYPE, POINTER info) {
    ITEM items[std::size(names)];
    std::memcpy(items, info, sizeof items);
    return set_numbers(object, items, names);
}

template <const auto &names>
int get_record(POINTER *info, KeyObject *object, B_KEY_INFO_TYPE type) {
    if (!rsa_has(*object, names))
        return BE_KEY_OPERATION_UNKNOWN;
    ITEM items[std::size(names)];
    for (std::size_t i = 0; i < std::size(names); ++i)
        items[i] = object->number[names[i]];
    void *record = keep_record(&object->records, type, sizeof items);
    if (record == nullptr)
        return BE_ALLOC;
    std::memcpy(record, items, sizeof items);
    *info = record;
    return BE_OK;
}

// ---- SubjectPublicKeyInfo (X.509)

// SEQUENCE { algorithm AlgorithmIdentifier, subjectPublicKey BIT STRING }, the bits holding
// RSAPublicKey ::= SEQUENCE { modulus INTEGER, publicExponent INTEGER } (PKCS#1). Certificates of
// the 1990s are about whose modulus lacks the zero octet in front of a set top bit.

// The annex of X.509 gives its algorithm the key's size in bits as a parameter.
bool read_annex_parameters(BerReader *fields) {
    uint32_t key_size;
    return ber_next_is(fields, ber_integer) ? ber_read_small(fields, &key_size)
                                            : ber_read_null_or_nothing(fields);
}

bool read_public_algorithm(BerReader *reader) {
    BerReader fields;
    if (!ber_read(reader, ber_sequence, &fields))
        return false;
    BerReader annex = fields;
    if (ber_read_oid(&annex, oid_rsa_annex))
        return read_annex_parameters(&annex) && annex.left == 0;
    return ber_read_oid(&fields, oid_rsa) && ber_read_null_or_nothing(&fields) && fields.left == 0;
}

// The contents of a BIT STRING of whole octets.
bool read_bits(BerReader *reader, BerReader *octets) {
    if (!ber_read(reader, ber_bit_string, octets) || octets->left == 0 || octets->at[0] != 0)
        return false;
    ++octets->at;
    --octets->left;
    return true;
}

bool read_public_key(BerReader reader, ITEM (&numbers)[2]) {
    BerReader info, bits, key;
    return ber_read(&reader, ber_sequence, &info) && reader.left == 0 &&
           read_public_algorithm(&info) && read_bits(&info, &bits) && info.left == 0 &&
           ber_read(&bits, ber_sequence, &key) && bits.left == 0 &&
           ber_read_magnitude(&key, &numbers[0]) && ber_read_unsigned(&key, &numbers[1]) &&
           key.left == 0;
}

int set_public_ber(KeyObject *object, B_KEY_INFO_TYPE, POINTER info) {
    const ITEM &encoding = *static_cast<const ITEM *>(info);
    if (encoding.data == nullptr)
        return BE_KEY_INFO;
    ITEM numbers[2];
    if (!read_public_key(ber_reader(encoding), numbers))
        return BE_DATA;
    return set_numbers(object, numbers, public_numbers);
}

void write_algorithm(BerWriter *writer) {
    const std::size_t mark = writer->used;
    ber_write_null(writer);
    ber_write_oid(writer, oid_rsa);
    ber_write_header(writer, ber_sequence, mark);
}

void write_public_key(BerWriter *writer, const KeyObject &key) {
    constexpr uint8_t unused_bits = 0;
    ber_write_unsigned(writer, key.number[rsa_public_exponent]);
    ber_write_unsigned(writer, key.number[rsa_modulus]);
    ber_write_header(writer, ber_sequence, 0);
    ber_write_bytes(writer, &unused_bits, 1);
    ber_write_header(writer, ber_bit_string, 0);
    write_algorithm(writer);
    ber_write_header(writer, ber_sequence, 0);
}

int get_public_ber(POINTER *info, KeyObject *object, B_KEY_INFO_TYPE type) {
    if (!rsa_has(*object, public_numbers))
        return BE_KEY_OPERATION_UNKNOWN;
    return keep_encoding(info, &object->records, type, [&](BerWriter *writer) {
        write_public_key(writer, *object);
        return BE_OK;
    });
}

// ---- PrivateKeyInfo (PKCS#8)

// SEQUENCE { version INTEGER (0), algorithm AlgorithmIdentifier, privateKey OCTET STRING,
//            attributes [0] IMPLICIT Attributes OPTIONAL }, the octets holding
// RSAPrivateKey ::= SEQUENCE { version INTEGER (0), the eight numbers } (PKCS#1).

bool read_version_0(BerReader *reader) {
    uint32_t version;
    return ber_read_small(reader, &version) && version == 0;
}

bool read_private_algorithm(BerReader *reader) {
    BerReader fields;
    return ber_read(reader, ber_sequence, &fields) && ber_read_oid(&fields, oid_rsa) &&
           ber_read_null_or_nothing(&fields) && fields.left == 0;
}

bool read_attributes_or_nothing(BerReader *reader) {
    BerReader attributes;
    return reader->left == 0 || (ber_read(reader, ber_context_0, &attributes) && reader->left == 0);
}

bool read_numbers(BerReader *reader, ITEM (&numbers)[rsa_numbers]) {
    for (ITEM &number : numbers) {
        if (!ber_read_unsigned(reader, &number))
            return false;
    }
    return reader->left == 0;
}

bool read_private_key(BerReader reader, ITEM (&numbers)[rsa_numbers]) {
    BerReader info, octets, key;
    return ber_read(&reader, ber_sequence, &info) && reader.left == 0 && read_version_0(&info) &&
           read_private_algorithm(&info) && ber_read(&info, ber_octet_string, &octets) &&
           read_attributes_or_nothing(&info) && ber_read(&octets, ber_sequence, &key) &&
           octets.left == 0 && read_version_0(&key) && read_numbers(&key, numbers);
}

int set_private_ber(KeyObject *object, B_KEY_INFO_TYPE, POINTER info) {
    const ITEM &encoding = *static_cast<const ITEM *>(info);
    if (encoding.data == nullptr)
        return BE_KEY_INFO;
    ITEM numbers[rsa_numbers];
    if (!read_private_key(ber_reader(encoding), numbers))
        return BE_DATA;
    return set_numbers(object, numbers, pkcs_numbers);
}

void write_private_key(BerWriter *writer, const KeyObject &key) {
    for (std::size_t i = rsa_numbers; i-- != 0;)
        ber_write_unsigned(writer, key.number[pkcs_numbers[i]]);
    ber_write_small(writer, 0);
    ber_write_header(writer, ber_sequence, 0);
    ber_write_header(writer, ber_octet_string, 0);
    write_algorithm(writer);
    ber_write_small(writer, 0);
    ber_write_header(writer, ber_sequence, 0);
}

int get_private_ber(POINTER *info, KeyObject *object, B_KEY_INFO_TYPE type) {
    if (!rsa_has(*object, pkcs_numbers))
        return BE_KEY_OPERATION_UNKNOWN;
    return keep_encoding(info, &object->records, type, [&](BerWriter *writer) {
        write_private_key(writer, *object);
        return BE_OK;
    });
}

constexpr KeyInfoType rsa_public = {set_record<public_numbers>, get_record<public_numbers>};
constexpr KeyInfoType rsa_public_ber = {set_public_ber, get_public_ber};
constexpr KeyInfoType rsa_private = {set_record<private_numbers>, get_record<private_numbers>};
constexpr KeyInfoType rsa_crt = {set_record<crt_numbers>, get_record<crt_numbers>};
constexpr KeyInfoType pkcs_private = {set_record<pkcs_numbers>, get_record<pkcs_numbers>};
constexpr KeyInfoType pkcs_private_ber = {set_private_ber, get_private_ber};

} // namespace

const B_KEY_INFO_TYPE KI_RSAPublic = &rsa_public;
const B_KEY_INFO_TYPE KI_RSAPublicBER = &rsa_public_ber;
const B_KEY_INFO_TYPE KI_RSAPrivate = &rsa_private;
const B_KEY_INFO_TYPE KI_RSA_CRT = &rsa_crt;
const B_KEY_INFO_TYPE KI_PKCS_RSAPrivate = &pkcs_private;
const B_KEY_INFO_TYPE KI_PKCS_RSAPrivateBER = &pkcs_private_ber;

} // namespace toolkit
