#include "objects.h"

namespace toolkit {

const AlgorithmMethod *choose(B_ALGORITHM_CHOOSER chooser, Primitive primitive) {
    for (; chooser != nullptr && *chooser != nullptr; ++chooser) {
        if ((*chooser)->provides == primitive)
            return *chooser;
    }
    return nullptr;
}

namespace {

const Operation *find_operation(const Algorithm &algorithm, Use use) {
    for (const Operation &operation : algorithm.operations) {
        if (operation.use == use)
            return &operation;
    }
    return nullptr;
}

int begin(AlgorithmObject *object, Use use, const KeyObject *key, B_ALGORITHM_CHOOSER chooser,
          const SurrenderContext *surrender) {
    if (object == nullptr)
        return BE_ALGORITHM_OBJ;
    end_operation(object);
    if (object->type == nullptr)
        return BE_ALGORITHM_NOT_SET;
    const Algorithm &algorithm = *object->type->algorithm;
    if (algorithm.operations.empty())
        return BE_NOT_SUPPORTED;
    const Operation *operation = find_operation(algorithm, use);
    if (operation == nullptr)
        return BE_ALG_OPERATION_UNKNOWN;
    Start start = {key, {nullptr, nullptr}, chooser, surrender};
    for (std::size_t i = 0; i < 2; ++i) {
        if (operation->needs[i] == Primitive::none)
            continue;
        start.methods[i] = choose(chooser, operation->needs[i]);
        if (start.methods[i] == nullptr)
            return BE_METHOD_NOT_IN_CHOOSER;
    }
    if (const int error = operation->init(object, start); error != BE_OK) {
        end_operation(object);
        return error;
    }
    object->operation = operation;
    return BE_OK;
}

int check_use(const AlgorithmObject *object, Use use) {
    if (object == nullptr)
        return BE_ALGORITHM_OBJ;
    return object->operation != nullptr && object->operation->use == use
               ? BE_OK
               : BE_ALGORITHM_NOT_INITIALIZED;
}

int check_input(Input input) {
    return input.data != nullptr || input.size == 0 ? BE_OK : BE_INPUT_LEN;
}

// What an update or final did: its output length, and the end of the use where bad data end it.
int settle(AlgorithmObject *object, int error, const Output &output, uint32_t *output_len) {
    *output_len = error == BE_OK ? output.size : 0;
    if (error == BE_DATA && object->operation->ends_on_bad_data)
        end_operation(object);
    return error;
}

Output output_of(uint8_t *data, uint32_t capacity) {
    return {data, data != nullptr ? capacity : 0, 0};
}

int update(AlgorithmObject *object, Use use, Input input, uint8_t *data, uint32_t *output_len,
           uint32_t capacity) {
    if (output_len == nullptr)
        return BE_OUTPUT_LEN;
    *output_len = 0;
    if (const int error = check_use(object, use); error != BE_OK)
        return error;
    if (const int error = check_input(input); error != BE_OK)
        return error;
    Output output = output_of(data, capacity);
    const int error = object->operation->update(object, input, &output);
    return settle(object, error, output, output_len);
}

// An update of a use that writes nothing before its end.
int update(AlgorithmObject *object, Use use, Input input) {
    uint32_t none;
    return update(object, use, input, nullptr, &none, 0);
}

int final(AlgorithmObject *object, Use use, uint8_t *data, uint32_t *output_len, uint32_t capacity,
          AlgorithmObject *random) {
    if (output_len == nullptr)
        return BE_OUTPUT_LEN;
    *output_len = 0;
    if (const int error = check_use(object, use); error != BE_OK)
        return error;
    Output output = output_of(data, capacity);
    const int error = object->operation->final(object, &output, random);
    return settle(object, error, output, output_len);
}

} // namespace

// ---- Encryption and decryption

int B_EncryptInit(B_ALGORITHM_OBJ object, B_KEY_OBJ key, B_ALGORITHM_CHOOSER chooser,
                  const SurrenderContext *surrender) {
    return begin(object, Use::encrypt, key, chooser, surrender);
}

int B_EncryptUpdate(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                    uint32_t maxOutputLen, const uint8_t *input, uint32_t inputLen, B_ALGORITHM_OBJ,
                    const SurrenderContext *) {
    return update(object, Use::encrypt, {input, inputLen}, output, outputLen, maxOutputLen);
}

int B_EncryptFinal(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                   uint32_t maxOutputLen, B_ALGORITHM_OBJ random, const SurrenderContext *) {
    return final(object, Use::encrypt, output, outputLen, maxOutputLen, random);
}

int B_DecryptInit(B_ALGORITHM_OBJ object, B_KEY_OBJ key, B_ALGORITHM_CHOOSER chooser,
                  const SurrenderContext *surrender) {
    return begin(object, Use::decrypt, key, chooser, surrender);
}

int B_DecryptUpdate(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                    uint32_t maxOutputLen, const uint8_t *input, uint32_t inputLen, B_ALGORITHM_OBJ,
                    const SurrenderContext *) {
    return update(object, Use::decrypt, {input, inputLen}, output, outputLen, maxOutputLen);
}

int B_DecryptFinal(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                   uint32_t maxOutputLen, B_ALGORITHM_OBJ random, const SurrenderContext *) {
    return final(object, Use::decrypt, output, outputLen, maxOutputLen, random);
}

// ---- Digests

int B_DigestInit(B_ALGORITHM_OBJ object, B_KEY_OBJ key, B_ALGORITHM_CHOOSER chooser,
                 const SurrenderContext *surrender) {
    return begin(object, Use::digest, key, chooser, surrender);
}

int B_DigestUpdate(B_ALGORITHM_OBJ object, const uint8_t *input, uint32_t inputLen,
                   const SurrenderContext *) {
    return update(object, Use::digest, {input, inputLen});
}

int B_DigestFinal(B_ALGORITHM_OBJ object, uint8_t *digest, uint32_t *digestLen,
                  uint32_t maxDigestLen, const SurrenderContext *) {
    return final(object, Use::digest, digest, digestLen, maxDigestLen, nullptr);
}

// ---- Signatures

int B_SignInit(B_ALGORITHM_OBJ object, B_KEY_OBJ key, B_ALGORITHM_CHOOSER chooser,
               const SurrenderContext *surrender) {
    return begin(object, Use::sign, key, chooser, surrender);
}

int B_SignUpdate(B_ALGORITHM_OBJ object, const uint8_t *input, uint32_t inputLen,
                 const SurrenderContext *) {
    return update(object, Use::sign, {input, inputLen});
}

int B_SignFinal(B_ALGORITHM_OBJ object, uint8_t *signature, uint32_t *signatureLen,
                uint32_t maxSignatureLen, B_ALGORITHM_OBJ random, const SurrenderContext *) {
    return final(object, Use::sign, signature, signatureLen, maxSignatureLen, random);
}

int B_VerifyInit(B_ALGORITHM_OBJ object, B_KEY_OBJ key, B_ALGORITHM_CHOOSER chooser,
                 const SurrenderContext *surrender) {
    return begin(object, Use::verify, key, chooser, surrender);
}

int B_VerifyUpdate(B_ALGORITHM_OBJ object, const uint8_t *input, uint32_t inputLen,
                   const SurrenderContext *) {
    return update(object, Use::verify, {input, inputLen});
}

int B_VerifyFinal(B_ALGORITHM_OBJ object, const uint8_t *signature, uint32_t signatureLen,
                  B_ALGORITHM_OBJ, const SurrenderContext *) {
    if (const int error = check_use(object, Use::verify); error != BE_OK)
        return error;
    if (const int error = check_input({signature, signatureLen}); error != BE_OK)
        return error;
    return object->operation->verify(object, {signature, signatureLen});
}

// ---- Random bytes

int B_RandomInit(B_ALGORITHM_OBJ object, B_ALGORITHM_CHOOSER chooser,
                 const SurrenderContext *surrender) {
    return begin(object, Use::random, nullptr, chooser, surrender);
}

int B_RandomUpdate(B_ALGORITHM_OBJ object, const uint8_t *input, uint32_t inputLen,
                   const SurrenderContext *) {
    return update(object, Use::random, {input, inputLen});
}

int B_GenerateRandomBytes(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t outputLen,
                          const SurrenderContext *) {
    if (const int error = check_use(object, Use::random); error != BE_OK)
        return error;
    if (output == nullptr && outputLen != 0)
        return BE_OUTPUT_LEN;
    RandomSource source;
    if (const int error = random_source(&source, object); error != BE_OK)
        return error;
    return source.fill(source.state, output, outputLen) ? BE_OK : BE_RANDOM_OBJ;
}

// ---- Generation

int B_GenerateInit(B_ALGORITHM_OBJ object, B_ALGORITHM_CHOOSER chooser,
                   const SurrenderContext *surrender) {
    return begin(object, Use::generate, nullptr, chooser, surrender);
}

int B_GenerateKeypair(B_ALGORITHM_OBJ object, B_KEY_OBJ publicKey, B_KEY_OBJ privateKey,
                      B_ALGORITHM_OBJ random, const SurrenderContext *surrender) {
    if (const int error = check_use(object, Use::generate); error != BE_OK)
        return error;
    if (object->operation->keypair == nullptr)
        return BE_ALG_OPERATION_UNKNOWN;
    if (publicKey == nullptr || privateKey == nullptr || publicKey == privateKey)
        return BE_KEY_OBJ;
    if (publicKey->kind != KeyKind::none || privateKey->kind != KeyKind::none)
        return BE_KEY_ALREADY_SET;
    RandomSource source;
    if (const int error = random_source(&source, random); error != BE_OK)
        return error;
    return object->operation->keypair(object, publicKey, privateKey, source, surrender);
}

int B_GenerateParameters(B_ALGORITHM_OBJ object, B_ALGORITHM_OBJ result, B_ALGORITHM_OBJ random,
                         const SurrenderContext *surrender) {
    if (const int error = check_use(object, Use::generate); error != BE_OK)
        return error;
    if (object->operation->parameters == nullptr)
        return BE_ALG_OPERATION_UNKNOWN;
    if (result == nullptr)
        return BE_ALGORITHM_OBJ;
    if (result->type != nullptr)
        return BE_ALGORITHM_ALREADY_SET;
    RandomSource source;
    if (const int error = random_source(&source, random); error != BE_OK)
        return error;
    return object->operation->parameters(object, result, source, surrender);
}

// ---- Key agreement

int B_KeyAgreeInit(B_ALGORITHM_OBJ object, B_KEY_OBJ key, B_ALGORITHM_CHOOSER chooser,
                   const SurrenderContext *surrender) {
    return begin(object, Use::agree, key, chooser, surrender);
}

int B_KeyAgreePhase1(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                     uint32_t maxOutputLen, B_ALGORITHM_OBJ random, const SurrenderContext *) {
    if (outputLen == nullptr)
        return BE_OUTPUT_LEN;
    *outputLen = 0;
    if (const int error = check_use(object, Use::agree); error != BE_OK)
        return error;
    RandomSource source;
    if (const int error = random_source(&source, random); error != BE_OK)
        return error;
    Output result = output_of(output, maxOutputLen);
    const int error = object->operation->phase1(object, &result, source);
    return settle(object, error, result, outputLen);
}

int B_KeyAgreePhase2(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                     uint32_t maxOutputLen, const uint8_t *input, uint32_t inputLen,
                     const SurrenderContext *) {
    if (outputLen == nullptr)
        return BE_OUTPUT_LEN;
    *outputLen = 0;
    if (const int error = check_use(object, Use::agree); error != BE_OK)
        return error;
    if (const int error = check_input({input, inputLen}); error != BE_OK)
        return error;
    Output result = output_of(output, maxOutputLen);
    const int error = object->operation->phase2(object, {input, inputLen}, &result);
    return settle(object, error, result, outputLen);
}

// ---- Recoding

int B_EncodeInit(B_ALGORITHM_OBJ object) {
    return begin(object, Use::encode, nullptr, nullptr, nullptr);
}

int B_EncodeUpdate(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                   uint32_t maxOutputLen, const uint8_t *input, uint32_t inputLen) {
    return update(object, Use::encode, {input, inputLen}, output, outputLen, maxOutputLen);
}

int B_EncodeFinal(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                  uint32_t maxOutputLen) {
    return final(object, Use::encode, output, outputLen, maxOutputLen, nullptr);
}

int B_DecodeInit(B_ALGORITHM_OBJ object) {
    return begin(object, Use::decode, nullptr, nullptr, nullptr);
}

int B_DecodeUpdate(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                   uint32_t maxOutputLen, const uint8_t *input, uint32_t inputLen) {
    return update(object, Use::decode, {input, inputLen}, output, outputLen, maxOutputLen);
}

int B_DecodeFinal(B_ALGORITHM_OBJ object, uint8_t *output, uint32_t *outputLen,
                  uint32_t maxOutputLen) {
    return final(object, Use::decode, output, outputLen, maxOutputLen, nullptr);
}

} // namespace toolkit
