#include "operations.h"

namespace toolkit {
namespace {

struct alignas(std::max_align_t) Digest { // the method's state lies behind it
    const DigestMethod *method;
};

Digest *digest_of(AlgorithmObject *object) {
    return static_cast<Digest *>(object->state);
}

int init(AlgorithmObject *object, const DigestMethod &method) {
    auto *digest =
        static_cast<Digest *>(new_state(object, sizeof(Digest) + method.state_size, nullptr));
    if (digest == nullptr)
        return BE_ALLOC;
    digest->method = &method;
    method.init(digest + 1);
    return BE_OK;
}

} // namespace

int init_digest(AlgorithmObject *object, const Start &start) {
    return init(object, *start.methods[0]->digest);
}

int init_generic_digest(AlgorithmObject *object, const Start &start) {
    const Operation &operation = object->parameters.digest->algorithm->operations[0];
    const AlgorithmMethod *method = choose(start.chooser, operation.needs[0]);
    return method != nullptr ? init(object, *method->digest) : BE_METHOD_NOT_IN_CHOOSER;
}

int update_digest(AlgorithmObject *object, Input input, Output *) {
    Digest *digest = digest_of(object);
    digest->method->update(digest + 1, input.data, input.size);
    return BE_OK;
}

int finish_digest(AlgorithmObject *object, Output *output, AlgorithmObject *) {
    Digest *digest = digest_of(object);
    if (output->capacity < digest_size)
        return BE_OUTPUT_LEN;
    digest->method->final(digest + 1, output->data);
    digest->method->init(digest + 1);
    output->size = digest_size;
    return BE_OK;
}

} // namespace toolkit
