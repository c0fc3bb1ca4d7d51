// objects.h: what algorithm objects, key objects, info types and methods are made of.
//
// An algorithm is a row (Algorithm): its uses (Operation rows), its object identifier and the
// encodings of its parameters. An info type is a row that names an algorithm and sets and gets its
// parameters in one form. A method is a row that provides a primitive in one direction; an
// operation names the primitives it needs, and an Init takes each from the first method in the
// chooser that provides it. To add an algorithm, add these rows and the functions that they name.
#ifndef TOOLKIT_OBJECTS_H
#define TOOLKIT_OBJECTS_H

#include "ber.h"
#include "memory.h"

#include <toolkit/random.h>
#include <toolkit/toolkit.h>

#include <span>

namespace toolkit {

// ---- Methods

enum class Primitive : uint8_t {
    none,
    md2,
    md5,
    generic_digest,
    des_cbc_encrypt,
    des_cbc_decrypt,
    des_ede3_cbc_encrypt,
    des_ede3_cbc_decrypt,
    desx_cbc_encrypt,
    desx_cbc_decrypt,
    rc2_cbc_encrypt,
    rc2_cbc_decrypt,
    rc4_encrypt,
    rc4_decrypt,
    rsa_encrypt,
    rsa_decrypt,
    rsa_crt_encrypt,
    rsa_crt_decrypt,
    rsa_key_gen,
    md2_random,
    md5_random,
    dh_key_agree,
    dh_param_gen,
    rc4_with_mac_encrypt,
    rc4_with_mac_decrypt,
    mac,
};

struct DigestMethod {
    std::size_t state_size;
    void (*init)(void *state);
    void (*update)(void *state, const uint8_t *data, std::size_t size);
    void (*final)(void *state, uint8_t *digest); // 16 bytes; zeroes the state
    Oid oid;
};

constexpr uint32_t digest_size = 16; // of MD2 and of MD5

struct CipherMethod {
    uint32_t block_size; // 8, or 1 for a key stream
    uint32_t min_key_size, max_key_size;
    std::size_t schedule_size;
    bool (*set_key)(void *schedule, const uint8_t *key, uint32_t size, uint32_t effective_bits);
    // blocks of block_size; a key stream has no iv and moves on in its schedule.
    void (*crypt)(void *schedule, uint8_t *iv, const uint8_t *in, uint8_t *out, std::size_t blocks);
};

struct RsaMethod {
    int (*make)(void **key_out, const KeyObject &numbers);
    void (*release)(void *key);
    uint32_t (*size)(const void *key);
    int (*apply)(const void *key, const uint8_t *in, uint8_t *out);
};

struct AlgorithmMethod {
    Primitive provides;
    const DigestMethod *digest = nullptr;
    const CipherMethod *cipher = nullptr;
    const RsaMethod *rsa = nullptr;
};

// ---- Records handed out

// A record that Get made for a type, kept until the object changes: the payload follows.
struct alignas(std::max_align_t) KeptRecord {
    KeptRecord *next;
    const void *type;
    std::size_t size;
};

void *kept_record(const KeptRecord *list, const void *type); // null if there is none
// A zero-filled payload of size bytes, or null.
void *keep_record(KeptRecord **list, const void *type, std::size_t size);
void drop_records(KeptRecord **list); // zeroes them

// Keeps an ITEM with what write(&writer) writes. write is called twice: to count, then to write.
template <class Write>
int keep_encoding(POINTER *info, KeptRecord **list, const void *type, const Write &write) {
    BerWriter counter = {};
    if (const int error = write(&counter); error != BE_OK)
        return error;
    if (counter.used > UINT32_MAX)
        return BE_INTERNAL;
    void *payload = keep_record(list, type, sizeof(ITEM) + counter.used);
    if (payload == nullptr)
        return BE_ALLOC;
    auto *item = static_cast<ITEM *>(payload);
    item->data = static_cast<uint8_t *>(payload) + sizeof(ITEM);
    item->len = static_cast<uint32_t>(counter.used);
    BerWriter writer = {item->data + item->len, item->len, 0, false};
    if (write(&writer) != BE_OK || writer.failed)
        return BE_INTERNAL;
    *info = item;
    return BE_OK;
}

// ---- Algorithm objects

// What an info record said. Each algorithm uses what it needs; nothing of it is secret.
struct Parameters {
    uint8_t block[8];        // IV or salt
    uint32_t effective_bits; // RC2
    uint32_t iterations;     // password-based encryption
    uint32_t threshold, shares;
    uint32_t bits; // of the modulus or prime to generate
    uint32_t exponent_bits;
    ITEM number[2]; // the prime and base, or the public exponent; owned
    B_INFO_TYPE digest;
};

// Copies numbers without their leading zeros into parameters->number. BE_ALLOC.
int set_parameter_numbers(Parameters *parameters, std::span<const ITEM> numbers);
void free_parameters(Parameters *parameters);

enum class Use : uint8_t {
    encrypt,
    decrypt,
    digest,
    sign,
    verify,
    random,
    generate,
    agree,
    encode,
    decode,
};

struct Input {
    const uint8_t *data;
    uint32_t size;
};

struct Output {
    uint8_t *data;
    uint32_t capacity;
    uint32_t size; // written
};

struct Start { // what an Init was given
    const KeyObject *key;
    const AlgorithmMethod *methods[2]; // for each of the operation's needs
    B_ALGORITHM_CHOOSER chooser;
    const SurrenderContext *surrender;
};

// The first method of the chooser that provides the primitive, or null.
const AlgorithmMethod *choose(B_ALGORITHM_CHOOSER chooser, Primitive primitive);

// One use of an algorithm. A null function is a call that the use does not know.
struct Operation {
    Use use;
    Primitive needs[2] = {Primitive::none, Primitive::none};
    // Leaves object->state, by new_state, ready for a message.
    int (*init)(AlgorithmObject *object, const Start &start);
    int (*update)(AlgorithmObject *object, Input input, Output *output) = nullptr;
    int (*final)(AlgorithmObject *object, Output *output, AlgorithmObject *random) = nullptr;
    int (*verify)(AlgorithmObject *object, Input signature) = nullptr;
    int (*keypair)(AlgorithmObject *object, KeyObject *public_key, KeyObject *private_key,
                   const RandomSource &random, const SurrenderContext *surrender) = nullptr;
    int (*parameters)(AlgorithmObject *object, AlgorithmObject *result, const RandomSource &random,
                      const SurrenderContext *surrender) = nullptr;
    int (*phase1)(AlgorithmObject *object, Output *output, const RandomSource &random) = nullptr;
    int (*phase2)(AlgorithmObject *object, Input input, Output *output) = nullptr;
    bool ends_on_bad_data = false; // BE_DATA ends the use
};

struct Algorithm {
    std::span<const Operation> operations; // none: never published
    Oid oid = {};
    // The parameters field of an AlgorithmIdentifier; the reader holds no more than the field.
    int (*read)(BerReader *reader, Parameters *parameters) = nullptr;
    int (*write)(BerWriter *writer, const Parameters &parameters) = nullptr;
    // The name in texts after RFC 1423, and what follows its comma, if anything does.
    const char *name = nullptr;
    bool (*read_text)(const char *text, Parameters *parameters) = nullptr;
    void (*write_text)(char *text, const Parameters &parameters) = nullptr; // max_text characters
};

constexpr std::size_t max_text = 64;

struct AlgorithmInfoType {
    const Algorithm *algorithm;
    int (*set)(Parameters *parameters, const Algorithm &algorithm, POINTER info);
    int (*get)(POINTER *info, AlgorithmObject *object, B_INFO_TYPE type);
};

struct AlgorithmObject {
    B_INFO_TYPE type; // null until it is set
    Parameters parameters;
    KeptRecord *records;
    const Operation *operation; // null when in no use
    void *state;
    std::size_t state_size;
    void (*release)(void *state); // what the state owns
};

// Gives the object a zero-filled state of size bytes, or returns null. release may be null.
void *new_state(AlgorithmObject *object, std::size_t size, void (*release)(void *state));
void end_operation(AlgorithmObject *object);

// The source of random bytes that a random object stands for. BE_RANDOM_OBJ: null;
// BE_RANDOM_NOT_INITIALIZED: not in random use, or never seeded.
int random_source(RandomSource *source, AlgorithmObject *random);

// ---- Key objects

enum class KeyKind : uint8_t { none, secret, rsa };

enum RsaNumber {
    rsa_modulus,
    rsa_public_exponent,
    rsa_private_exponent,
    rsa_prime_1,
    rsa_prime_2,
    rsa_exponent_1,
    rsa_exponent_2,
    rsa_coefficient,
    rsa_numbers,
};

struct KeyObject {
    KeyKind kind;
    SecretBytes bytes;        // one block that all items below point into
    ITEM item;                // a secret key
    ITEM number[rsa_numbers]; // an RSA key, without leading zeros; those not known have length 0
    KeptRecord *records;
};

struct KeyInfoType {
    int (*set)(KeyObject *object, B_KEY_INFO_TYPE type, POINTER info);
    int (*get)(POINTER *info, KeyObject *object, B_KEY_INFO_TYPE type);
    uint32_t size = 0; // of a secret key of fixed length
};

// Fill an empty key object. Those numbers that are not known have a null data pointer.
int set_secret_key(KeyObject *object, const uint8_t *bytes, uint32_t size);
int set_rsa_key(KeyObject *object, const ITEM (&numbers)[rsa_numbers]);
void clear_key(KeyObject *object);

bool rsa_has(const KeyObject &key, std::span<const RsaNumber> names);

} // namespace toolkit

#endif
