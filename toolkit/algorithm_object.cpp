#include "objects.h"

#include <cstdlib>
#include <cstring>

namespace toolkit {

// ---- Records handed out

void *kept_record(const KeptRecord *list, const void *type) {
    for (const KeptRecord *record = list; record != nullptr; record = record->next) {
        if (record->type == type)
            return const_cast<KeptRecord *>(record + 1);
    }
    return nullptr;
}

void *keep_record(KeptRecord **list, const void *type, std::size_t size) {
    if (size > SIZE_MAX - sizeof(KeptRecord))
        return nullptr;
    auto *record = static_cast<KeptRecord *>(std::calloc(1, sizeof(KeptRecord) + size));
    if (record == nullptr)
        return nullptr;
    *record = {*list, type, size};
    *list = record;
    return record + 1;
}

void drop_records(KeptRecord **list) {
    while (*list != nullptr) {
        KeptRecord *record = *list;
        *list = record->next;
        explicit_bzero(record, sizeof *record + record->size);
        std::free(record);
    }
}

// ---- Parameters

int set_parameter_numbers(Parameters *parameters, std::span<const ITEM> numbers) {
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        const ITEM digits = without_leading_zeros(numbers[i]);
        if (digits.len == 0)
            return BE_ALGORITHM_INFO;
        auto *copy = static_cast<uint8_t *>(std::malloc(digits.len));
        if (copy == nullptr)
            return BE_ALLOC;
        std::memcpy(copy, digits.data, digits.len);
        parameters->number[i] = {copy, digits.len};
    }
    return BE_OK;
}

void free_parameters(Parameters *parameters) {
    for (const ITEM &number : parameters->number)
        std::free(number.data);
    *parameters = {};
}

// ---- Objects

int B_CreateAlgorithmObject(B_ALGORITHM_OBJ *object) {
    if (object == nullptr)
        return BE_ALGORITHM_OBJ;
    *object = static_cast<AlgorithmObject *>(std::calloc(1, sizeof(AlgorithmObject)));
    return *object != nullptr ? BE_OK : BE_ALLOC;
}

void B_DestroyAlgorithmObject(B_ALGORITHM_OBJ *object) {
    if (object == nullptr || *object == nullptr)
        return;
    end_operation(*object);
    drop_records(&(*object)->records);
    free_parameters(&(*object)->parameters);
    explicit_bzero(*object, sizeof(AlgorithmObject));
    std::free(*object);
    *object = nullptr;
}

int B_SetAlgorithmInfo(B_ALGORITHM_OBJ object, B_INFO_TYPE type, POINTER info) {
    if (object == nullptr)
        return BE_ALGORITHM_OBJ;
    if (object->type != nullptr)
        return BE_ALGORITHM_ALREADY_SET;
    if (type == nullptr)
        return BE_ALGORITHM_INFO;
    if (const int error = type->set(&object->parameters, *type->algorithm, info); error != BE_OK) {
        free_parameters(&object->parameters);
        return error;
    }
    object->type = type;
    return BE_OK;
}

int B_GetAlgorithmInfo(POINTER *info, B_ALGORITHM_OBJ object, B_INFO_TYPE type) {
    if (info == nullptr)
        return BE_ALGORITHM_INFO;
    *info = nullptr;
    if (object == nullptr)
        return BE_ALGORITHM_OBJ;
    if (object->type == nullptr)
        return BE_ALGORITHM_NOT_SET;
    if (type == nullptr || type->algorithm != object->type->algorithm)
        return BE_ALGORITHM_INFO;
    *info = kept_record(object->records, type);
    return *info != nullptr ? static_cast<int>(BE_OK) : type->get(info, object, type);
}

void *new_state(AlgorithmObject *object, std::size_t size, void (*release)(void *state)) {
    object->state = std::calloc(1, size);
    if (object->state != nullptr) {
        object->state_size = size;
        object->release = release;
    }
    return object->state;
}

void end_operation(AlgorithmObject *object) {
    if (object->state != nullptr) {
        if (object->release != nullptr)
            object->release(object->state);
        explicit_bzero(object->state, object->state_size);
        std::free(object->state);
    }
    object->operation = nullptr;
    object->state = nullptr;
    object->state_size = 0;
    object->release = nullptr;
}

} // namespace toolkit
