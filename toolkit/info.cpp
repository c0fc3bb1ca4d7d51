#include "info.h"

namespace toolkit {

int set_nothing(Parameters *, const Algorithm &, POINTER) {
    return BE_OK;
}

int get_nothing(POINTER *, AlgorithmObject *, B_INFO_TYPE) {
    return BE_OK;
}

int set_unpublished(Parameters *, const Algorithm &, POINTER) {
    return BE_OK;
}

int get_unpublished(POINTER *, AlgorithmObject *, B_INFO_TYPE) {
    return BE_NOT_SUPPORTED;
}

int set_block(Parameters *parameters, const Algorithm &, POINTER info) {
    if (info == nullptr)
        return BE_ALGORITHM_INFO;
    std::memcpy(parameters->block, info, sizeof parameters->block);
    return BE_OK;
}

int get_block(POINTER *info, AlgorithmObject *object, B_INFO_TYPE) {
    *info = object->parameters.block;
    return BE_OK;
}

int set_ber(Parameters *parameters, const Algorithm &algorithm, POINTER info) {
    if (info == nullptr)
        return BE_ALGORITHM_INFO;
    const ITEM &encoding = *static_cast<const ITEM *>(info);
    if (encoding.data == nullptr)
        return BE_ALGORITHM_INFO;
    BerReader reader = ber_reader(encoding);
    BerReader fields;
    if (!ber_read(&reader, ber_sequence, &fields) || reader.left != 0 ||
        !ber_read_oid(&fields, algorithm.oid))
        return BE_DATA;
    if (const int error = algorithm.read(&fields, parameters); error != BE_OK)
        return error;
    return fields.left == 0 ? BE_OK : BE_DATA;
}

int get_ber(POINTER *info, AlgorithmObject *object, B_INFO_TYPE type) {
    const Algorithm &algorithm = *type->algorithm;
    return keep_encoding(info, &object->records, type, [&](BerWriter *writer) {
        const int error = algorithm.write(writer, object->parameters);
        ber_write_oid(writer, algorithm.oid);
        ber_write_header(writer, ber_sequence, 0);
        return error;
    });
}

int set_text(Parameters *parameters, const Algorithm &algorithm, POINTER info) {
    if (info == nullptr)
        return BE_ALGORITHM_INFO;
    const auto *text = static_cast<const char *>(info);
    const std::size_t name = std::strlen(algorithm.name);
    if (std::strncmp(text, algorithm.name, name) != 0)
        return BE_DATA;
    text += name;
    if (algorithm.read_text == nullptr)
        return *text == '\0' ? BE_OK : BE_DATA;
    return *text == ',' && algorithm.read_text(text + 1, parameters) ? BE_OK : BE_DATA;
}

int get_text(POINTER *info, AlgorithmObject *object, B_INFO_TYPE type) {
    const Algorithm &algorithm = *type->algorithm;
    auto *text = static_cast<char *>(keep_record(&object->records, type, max_text));
    if (text == nullptr)
        return BE_ALLOC;
    const std::size_t name = std::strlen(algorithm.name);
    std::memcpy(text, algorithm.name, name + 1);
    if (algorithm.write_text != nullptr) {
        text[name] = ',';
        algorithm.write_text(text + name + 1, object->parameters);
    }
    *info = text;
    return BE_OK;
}

int read_null_parameters(BerReader *reader, Parameters *) {
    return ber_read_null_or_nothing(reader) ? BE_OK : BE_DATA;
}

int write_null_parameters(BerWriter *writer, const Parameters &) {
    ber_write_null(writer);
    return BE_OK;
}

} // namespace toolkit
