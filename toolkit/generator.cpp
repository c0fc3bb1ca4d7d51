#include "operations.h"

namespace toolkit {
namespace {

struct Generator {
    DigestRandom random;
    bool seeded;
};

Generator *generator_of(AlgorithmObject *object) {
    return static_cast<Generator *>(object->state);
}

int init(AlgorithmObject *object, RandomDigest digest) {
    auto *generator = static_cast<Generator *>(new_state(object, sizeof(Generator), nullptr));
    if (generator == nullptr)
        return BE_ALLOC;
    digest_random_init(&generator->random, digest);
    return BE_OK;
}

} // namespace

int init_md2_random(AlgorithmObject *object, const Start &) {
    return init(object, RandomDigest::md2);
}

int init_md5_random(AlgorithmObject *object, const Start &) {
    return init(object, RandomDigest::md5);
}

int update_random(AlgorithmObject *object, Input input, Output *) {
    if (input.size == 0)
        return BE_OK;
    Generator *generator = generator_of(object);
    digest_random_seed(&generator->random, input.data, input.size);
    generator->seeded = true;
    return BE_OK;
}

int random_source(RandomSource *source, AlgorithmObject *random) {
    if (random == nullptr)
        return BE_RANDOM_OBJ;
    if (random->operation == nullptr || random->operation->use != Use::random ||
        !generator_of(random)->seeded)
        return BE_RANDOM_NOT_INITIALIZED;
    *source = digest_random_source(&generator_of(random)->random);
    return BE_OK;
}

} // namespace toolkit
