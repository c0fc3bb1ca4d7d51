#include "info.h"

#include <cstring>
#include <span>

namespace toolkit {
namespace {

constexpr uint32_t max_shares = 255; // the elements of the field but 0, where the secret lies
constexpr uint32_t max_secret_size = 16384;

// The field of 256 elements, x^8 + x^4 + x^3 + x + 1; time does not depend on the elements.

uint8_t multiply(uint8_t a, uint8_t b) {
    uint32_t product = 0, shifted = a;
    for (uint32_t bits = b, i = 0; i < 8; ++i, bits >>= 1) {
        product ^= shifted & (0U - (bits & 1));
        shifted = (shifted << 1) ^ (0x11b & (0U - (shifted >> 7)));
    }
    return static_cast<uint8_t>(product);
}

uint8_t invert(uint8_t a) { // a to the power of 254
    uint8_t power = a, result = 1;
    for (int i = 1; i < 8; ++i) {
        power = multiply(power, power);
        result = multiply(result, power);
    }
    return result;
}

// What the updates brought; the bytes lie behind it.
struct Gathered {
    uint32_t size, share_size;
};

Gathered *gathered_of(AlgorithmObject *object) {
    return static_cast<Gathered *>(object->state);
}

uint8_t *bytes_of(Gathered *gathered) {
    return reinterpret_cast<uint8_t *>(gathered + 1);
}

void restart(Gathered *gathered) {
    explicit_bzero(bytes_of(gathered), gathered->size);
    *gathered = {};
}

int new_gathered(AlgorithmObject *object, std::size_t capacity) {
    return new_state(object, sizeof(Gathered) + capacity, nullptr) != nullptr ? BE_OK : BE_ALLOC;
}

void append(Gathered *gathered, Input input) {
    if (input.size != 0)
        std::memcpy(bytes_of(gathered) + gathered->size, input.data, input.size);
    gathered->size += input.size;
}

int init_sharing(AlgorithmObject *object, const Start &) {
    return new_gathered(object, max_secret_size);
}

int init_joining(AlgorithmObject *object, const Start &) {
    return new_gathered(object, (std::size_t{max_secret_size} + 1) * object->parameters.threshold);
}

// ---- Shares

// The value at x of the polynomial with the secret as its constant term; coefficients[0] is next.
uint8_t evaluate(uint8_t secret, const uint8_t *coefficients, uint32_t count, uint8_t x) {
    uint8_t value = 0;
    for (uint32_t i = count; i-- != 0;)
        value = multiply(static_cast<uint8_t>(value ^ coefficients[i]), x);
    return value ^ secret;
}

int make_shares(std::span<const uint8_t> secret, const Parameters &parameters, uint8_t *out,
                const RandomSource &random) {
    const std::size_t share_size = secret.size() + 1;
    const uint32_t degree = parameters.threshold - 1;
    SecretArray<max_shares> coefficients;
    for (uint32_t share = 0; share < parameters.shares; ++share)
        out[share * share_size] = static_cast<uint8_t>(share + 1);
    for (std::size_t i = 0; i < secret.size(); ++i) {
        if (!random.fill(random.state, coefficients.bytes, degree))
            return BE_RANDOM_OBJ;
        for (uint32_t share = 0; share < parameters.shares; ++share)
            out[share * share_size + 1 + i] =
                evaluate(secret[i], coefficients.bytes, degree, static_cast<uint8_t>(share + 1));
    }
    return BE_OK;
}

// What each share counts for at 0 (Lagrange). BE_DATA: a share number of 0, or one that comes
// twice.
int weigh_shares(uint8_t *weights, const uint8_t *shares, std::size_t share_size,
                 uint32_t threshold) {
    for (uint32_t i = 0; i < threshold; ++i) {
        const uint8_t x = shares[i * share_size];
        if (x == 0)
            return BE_DATA;
        weights[i] = 1;
        for (uint32_t j = 0; j < threshold; ++j) {
            const uint8_t other = shares[j * share_size];
            if (j == i)
                continue;
            if (other == x)
                return BE_DATA;
            const uint8_t distance = static_cast<uint8_t>(other ^ x);
            weights[i] = multiply(weights[i], multiply(other, invert(distance)));
        }
    }
    return BE_OK;
}

int join_shares(uint8_t *out, const uint8_t *shares, std::size_t share_size, uint32_t threshold) {
    uint8_t weights[max_shares];
    if (const int error = weigh_shares(weights, shares, share_size, threshold); error != BE_OK)
        return error;
    for (std::size_t i = 1; i < share_size; ++i) {
        uint8_t byte = 0;
        for (uint32_t share = 0; share < threshold; ++share)
            byte ^= multiply(shares[share * share_size + i], weights[share]);
        out[i - 1] = byte;
    }
    return BE_OK;
}

int update_sharing(AlgorithmObject *object, Input input, Output *) {
    Gathered *secret = gathered_of(object);
    if (input.size > max_secret_size - secret->size)
        return BE_INPUT_LEN;
    append(secret, input);
    return BE_OK;
}

// Each input is one share, so that shares too many and shares of two lengths are told apart.
int update_joining(AlgorithmObject *object, Input input, Output *) {
    Gathered *shares = gathered_of(object);
    if (input.size == 0)
        return BE_OK;
    const bool first = shares->size == 0;
    if (input.size < 2 || input.size > max_secret_size + 1 ||
        (!first && input.size != shares->share_size) ||
        shares->size == input.size * object->parameters.threshold)
        return BE_INPUT_LEN;
    shares->share_size = input.size;
    append(shares, input);
    return BE_OK;
}

int finish_sharing(AlgorithmObject *object, Output *output, AlgorithmObject *random) {
    Gathered *secret = gathered_of(object);
    const Parameters &parameters = object->parameters;
    if (secret->size == 0)
        return BE_INPUT_LEN;
    RandomSource source;
    if (const int error = random_source(&source, random); error != BE_OK)
        return error;
    const uint32_t size = (secret->size + 1) * parameters.shares;
    if (size > output->capacity)
        return BE_OUTPUT_LEN;
    const int error =
        make_shares({bytes_of(secret), secret->size}, parameters, output->data, source);
    output->size = size;
    restart(secret);
    return error;
}

int finish_joining(AlgorithmObject *object, Output *output, AlgorithmObject *) {
    Gathered *shares = gathered_of(object);
    const uint32_t threshold = object->parameters.threshold;
    if (shares->size == 0 || shares->size != shares->share_size * threshold) {
        restart(shares);
        return BE_INPUT_LEN;
    }
    const uint32_t size = shares->share_size - 1;
    if (size > output->capacity)
        return BE_OUTPUT_LEN;
    const int error = join_shares(output->data, bytes_of(shares), shares->share_size, threshold);
    output->size = size;
    restart(shares);
    return error;
}

// ---- The info type

int set_sharing(Parameters *parameters, const Algorithm &, POINTER info) {
    if (info == nullptr)
        return BE_ALGORITHM_INFO;
    const auto &record = *static_cast<const A_SECRET_SHARING_PARAMS *>(info);
    if (record.threshold == 0 || record.threshold > record.shares || record.shares > max_shares)
        return BE_ALGORITHM_INFO;
    parameters->threshold = record.threshold;
    parameters->shares = record.shares;
    return BE_OK;
}

int get_sharing(POINTER *info, AlgorithmObject *object, B_INFO_TYPE type) {
    const A_SECRET_SHARING_PARAMS record = {object->parameters.threshold,
                                            object->parameters.shares};
    return get_record(info, object, type, record);
}

constexpr Operation operations[] = {
    {.use = Use::encrypt, .init = init_sharing, .update = update_sharing, .final = finish_sharing},
    {.use = Use::decrypt, .init = init_joining, .update = update_joining, .final = finish_joining},
};
constexpr Algorithm sharing = {.operations = operations};
constexpr AlgorithmInfoType info_sharing = {&sharing, set_sharing, get_sharing};

} // namespace

const B_INFO_TYPE AI_BSSecretSharing = &info_sharing;

} // namespace toolkit
