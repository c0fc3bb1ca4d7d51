#include "info.h"

#include <algorithm>
#include <cstring>

namespace toolkit {
namespace {

constexpr uint32_t max_shares = 255; // the elements of the field but 0, where the secret lies

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

// What the updates brought.

struct Gathered {
    uint8_t *bytes;
    uint32_t size, capacity;
};

Gathered *gathered_of(AlgorithmObject *object) {
    return static_cast<Gathered *>(object->state);
}

void release(void *state) {
    auto *gathered = static_cast<Gathered *>(state);
    const SecretBytes owner(gathered->bytes, ZeroAndFree{gathered->capacity});
}

void restart(Gathered *gathered) {
    if (gathered->size != 0)
        explicit_bzero(gathered->bytes, gathered->size);
    gathered->size = 0;
}

int grow(Gathered *gathered, uint32_t more) {
    const uint64_t needed = uint64_t{gathered->size} + more;
    if (needed > UINT32_MAX)
        return BE_INPUT_LEN;
    if (needed <= gathered->capacity)
        return BE_OK;
    const auto capacity = static_cast<uint32_t>(std::min<uint64_t>(
        std::max<uint64_t>(needed, uint64_t{gathered->capacity} * 2), UINT32_MAX));
    SecretBytes larger = allocate_secret(capacity);
    if (larger == nullptr)
        return BE_ALLOC;
    if (gathered->size != 0)
        std::memcpy(larger.get(), gathered->bytes, gathered->size);
    release(gathered);
    gathered->bytes = larger.release();
    gathered->capacity = capacity;
    return BE_OK;
}

int init_sharing(AlgorithmObject *object, const Start &) {
    return new_state(object, sizeof(Gathered), release) != nullptr ? BE_OK : BE_ALLOC;
}

// Shares.

// The value at x of the polynomial with the secret as its constant term; coefficients[0] is next.
uint8_t evaluate(uint8_t secret, const uint8_t *coefficients, uint32_t count, uint8_t x) {
    uint8_t value = 0;
    for (uint32_t i = count; i-- != 0;)
        value = multiply(static_cast<uint8_t>(value ^ coefficients[i]), x);
    return value ^ secret;
}

int make_shares(const Gathered &secret, const Parameters &parameters, uint8_t *out,
                const RandomSource &random) {
    const std::size_t share_size = std::size_t{secret.size} + 1;
    const uint32_t degree = parameters.threshold - 1;
    SecretArray<max_shares> coefficients;
    for (uint32_t share = 0; share < parameters.shares; ++share)
        out[share * share_size] = static_cast<uint8_t>(share + 1);
    for (uint32_t i = 0; i < secret.size; ++i) {
        if (!random.fill(random.state, coefficients.bytes, degree))
            return BE_RANDOM_OBJ;
        for (uint32_t share = 0; share < parameters.shares; ++share)
            out[share * share_size + 1 + i] = evaluate(secret.bytes[i], coefficients.bytes, degree,
                                                       static_cast<uint8_t>(share + 1));
    }
    return BE_OK;
}

// What each share counts for at 0 (Lagrange). BE_DATA: a share number of 0, or one that comes
// twice.
int weigh_shares(uint8_t *weights, const Gathered &shares, uint32_t threshold) {
    const std::size_t share_size = shares.size / threshold;
    for (uint32_t i = 0; i < threshold; ++i) {
        const uint8_t x = shares.bytes[i * share_size];
        if (x == 0)
            return BE_DATA;
        weights[i] = 1;
        for (uint32_t j = 0; j < threshold; ++j) {
            const uint8_t other = shares.bytes[j * share_size];
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

int join_shares(uint8_t *out, const Gathered &shares, uint32_t threshold) {
    uint8_t weights[max_shares];
    if (const int error = weigh_shares(weights, shares, threshold); error != BE_OK)
        return error;
    const std::size_t share_size = shares.size / threshold;
    for (std::size_t i = 1; i < share_size; ++i) {
        uint8_t byte = 0;
        for (uint32_t share = 0; share < threshold; ++share)
            byte ^= multiply(shares.bytes[share * share_size + i], weights[share]);
        out[i - 1] = byte;
    }
    return BE_OK;
}

int update_sharing(AlgorithmObject *object, Input input, Output *) {
    Gathered *gathered = gathered_of(object);
    if (const int error = grow(gathered, input.size); error != BE_OK)
        return error;
    if (input.size != 0)
        std::memcpy(gathered->bytes + gathered->size, input.data, input.size);
    gathered->size += input.size;
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
    const uint64_t size = (uint64_t{secret->size} + 1) * parameters.shares;
    if (size > output->capacity)
        return BE_OUTPUT_LEN;
    const int error = make_shares(*secret, parameters, output->data, source);
    output->size = static_cast<uint32_t>(size);
    restart(secret);
    return error;
}

int finish_joining(AlgorithmObject *object, Output *output, AlgorithmObject *) {
    Gathered *shares = gathered_of(object);
    const uint32_t threshold = object->parameters.threshold;
    if (shares->size % threshold != 0 || shares->size / threshold < 2) {
        restart(shares);
        return BE_INPUT_LEN;
    }
    const uint32_t size = shares->size / threshold - 1;
    if (size > output->capacity)
        return BE_OUTPUT_LEN;
    const int error = join_shares(output->data, *shares, threshold);
    output->size = size;
    restart(shares);
    return error;
}

// The info type.

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
    {.use = Use::decrypt, .init = init_sharing, .update = update_sharing, .final = finish_joining},
};
constexpr Algorithm sharing = {.operations = operations};
constexpr AlgorithmInfoType info_sharing = {&sharing, set_sharing, get_sharing};

} // namespace

const B_INFO_TYPE AI_BSSecretSharing = &info_sharing;

} // namespace toolkit
