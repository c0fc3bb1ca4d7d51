#include "operations.h"

#include <toolkit/recode.h>

#include <algorithm>
#include <cstring>

namespace toolkit {
namespace {

constexpr std::size_t piece = 1024; // of input, decoded by way of the stack
constexpr uint32_t group = 4;

RecodeEncoder *encoder_of(AlgorithmObject *object) {
    return static_cast<RecodeEncoder *>(object->state);
}

RecodeDecoder *decoder_of(AlgorithmObject *object) {
    return static_cast<RecodeDecoder *>(object->state);
}

bool is_white_space(uint8_t character) {
    return character == ' ' || character == '\t' || character == '\r' || character == '\n';
}

// The exact number of bytes that well-formed input decodes to.
uint64_t decoded_size(const RecodeDecoder &decoder, Input input) {
    // A full group that is still held had padding, and nothing more comes.
    uint64_t characters = decoder.count % group, padding = 0;
    for (uint32_t i = 0; i < input.size; ++i) {
        characters += !is_white_space(input.data[i]);
        padding += input.data[i] == '=';
    }
    const uint64_t whole = characters / group * 3;
    if (characters % group != 0)
        return whole;
    padding = std::min<uint64_t>(padding + decoder.padding, 2);
    return whole - std::min(whole, padding);
}

// Decodes to where there is room for the result, but not for the groups that it may be made of.
bool decode_in_pieces(RecodeDecoder *decoder, Input input, Output *output) {
    SecretArray<piece> decoded;
    while (input.size != 0) {
        const auto size = static_cast<uint32_t>(std::min<std::size_t>(input.size, piece));
        std::size_t written = 0;
        if (!recode_decode_update(decoder, decoded.bytes, &written, input.data, size) ||
            written > output->capacity - output->size)
            return false;
        if (written != 0)
            std::memcpy(output->data + output->size, decoded.bytes, written);
        output->size += static_cast<uint32_t>(written);
        input = {input.data + size, input.size - size};
    }
    return true;
}

} // namespace

int init_encoding(AlgorithmObject *object, const Start &) {
    auto *encoder = static_cast<RecodeEncoder *>(new_state(object, sizeof(RecodeEncoder), nullptr));
    if (encoder == nullptr)
        return BE_ALLOC;
    recode_encode_init(encoder);
    return BE_OK;
}

int update_encoding(AlgorithmObject *object, Input input, Output *output) {
    RecodeEncoder *encoder = encoder_of(object);
    const uint64_t groups = (uint64_t{encoder->count} + input.size) / 3;
    if (groups * group > output->capacity)
        return BE_OUTPUT_LEN;
    output->size =
        static_cast<uint32_t>(recode_encode_update(encoder, output->data, input.data, input.size));
    return BE_OK;
}

int finish_encoding(AlgorithmObject *object, Output *output, AlgorithmObject *) {
    RecodeEncoder *encoder = encoder_of(object);
    if (encoder->count != 0 && output->capacity < group)
        return BE_OUTPUT_LEN;
    output->size = static_cast<uint32_t>(recode_encode_final(encoder, output->data));
    recode_encode_init(encoder);
    return BE_OK;
}

int init_decoding(AlgorithmObject *object, const Start &) {
    auto *decoder = static_cast<RecodeDecoder *>(new_state(object, sizeof(RecodeDecoder), nullptr));
    if (decoder == nullptr)
        return BE_ALLOC;
    recode_decode_init(decoder);
    return BE_OK;
}

int update_decoding(AlgorithmObject *object, Input input, Output *output) {
    RecodeDecoder *decoder = decoder_of(object);
    const uint64_t most = (uint64_t{decoder->count} + input.size) / group * 3;
    if (most <= output->capacity) {
        std::size_t written = 0;
        if (!recode_decode_update(decoder, output->data, &written, input.data, input.size))
            return BE_DATA;
        output->size = static_cast<uint32_t>(written);
        return BE_OK;
    }
    if (decoded_size(*decoder, input) > output->capacity)
        return BE_OUTPUT_LEN;
    return decode_in_pieces(decoder, input, output) ? BE_OK : BE_DATA;
}

int finish_decoding(AlgorithmObject *object, Output *, AlgorithmObject *) {
    RecodeDecoder *decoder = decoder_of(object);
    if (!recode_decode_final(decoder))
        return BE_DATA;
    recode_decode_init(decoder);
    return BE_OK;
}

} // namespace toolkit
