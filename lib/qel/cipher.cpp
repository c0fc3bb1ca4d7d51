#include <qel/qelp.h>

#include <cstring>

#include "decoded.h"
#include "operation.h"
#include <cryptoki/template.h>
#include <lib/memory.h>
#include <toolkit/traces.h>

namespace {

using qel::Decoded;

constexpr uint32_t block_size = 8; // of all the block ciphers, and of their initialisation vectors
constexpr uint32_t part_growth = 24;      // what a part's output may have more than its input
constexpr uint32_t largest_rc2_size = 40; // effective bits

// What makes an encryption or a decryption of the functions below.
struct Direction {
    CK_RV (*init)(CK_SESSION_HANDLE, const CK_MECHANISM *, CK_OBJECT_HANDLE);
    CK_RV (*single)(CK_SESSION_HANDLE, const uint8_t *, uint32_t, uint8_t *, uint32_t *);
    CK_RV (*update)(CK_SESSION_HANDLE, const uint8_t *, uint32_t, uint8_t *, uint32_t *);
    CK_RV (*finish)(CK_SESSION_HANDLE, uint8_t *, uint32_t *);
    bool pads;
    QelStatus failed;
};

constexpr Direction encryption = {C_EncryptInit,  C_Encrypt, C_EncryptUpdate,
                                  C_EncryptFinal, true,      QEL_ERR_ENCRYPT};
constexpr Direction decryption = {C_DecryptInit,  C_Decrypt, C_DecryptUpdate,
                                  C_DecryptFinal, false,     QEL_ERR_DECRYPT};

// The token's mechanism parameter. Initialisation vectors may be derived from a pass phrase, like
// the keys beside them.
struct Parameter {
    CK_RC2_CBC_PARAMS rc2 = {}; // of the other block ciphers the initialisation vector only
    void *value = nullptr;
    uint32_t length = 0;

    Parameter() = default;
    Parameter(const Parameter &) = delete;
    Parameter &operator=(const Parameter &) = delete;
    ~Parameter() { explicit_bzero(&rc2, sizeof rc2); }
};

template <class T>
QelStatus decode_parameters(QelContext *context, const QelOctetString *encoded, int pdu,
                            Decoded<T> *decoded_out) {
    void *value = nullptr;
    if (encoded == nullptr)
        return QEL_ERR_BAD_PARAM;
    const QelStatus status =
        __qel_asn1_decode(context, encoded->value, encoded->length, pdu, &value);
    *decoded_out = Decoded<T>(static_cast<T *>(value), {context, pdu});
    return status;
}

QelStatus copy_iv(const QelOctetString &iv, Parameter *parameter) {
    if (iv.length != block_size)
        return QEL_ERR_BAD_PARAM;
    std::memcpy(parameter->rc2.iv, iv.value, block_size);
    return QEL_OK;
}

using ReadParameters = QelStatus(QelContext *, const QelOctetString *, Parameter *);

QelStatus read_nothing(QelContext *, const QelOctetString *, Parameter *) {
    return QEL_OK;
}

QelStatus read_iv(QelContext *context, const QelOctetString *encoded, Parameter *parameter) {
    Decoded<QelOctetString> iv;
    QelStatus status = decode_parameters(context, encoded, QEL_PDU_OctetString, &iv);
    if (status == QEL_OK)
        status = copy_iv(*iv, parameter);
    parameter->value = parameter->rc2.iv;
    parameter->length = sizeof parameter->rc2.iv;
    return status;
}

QelStatus read_rc2_parameters(QelContext *context, const QelOctetString *encoded,
                              Parameter *parameter) {
    Decoded<QelRC2CBCParameter> rc2;
    QelStatus status = decode_parameters(context, encoded, QEL_PDU_RC2_CBCParameter, &rc2);
    if (status == QEL_OK)
        status = copy_iv(rc2->choice == QEL_RC2_IV ? rc2->u.iv : rc2->u.sequence.iv, parameter);
    if (status == QEL_OK)
        status = __qel_get_effective_keysize(context, encoded, &parameter->rc2.effective_bits);
    if (status == QEL_OK && parameter->rc2.effective_bits > largest_rc2_size)
        return QEL_ERR_EXPORT;
    parameter->value = &parameter->rc2;
    parameter->length = sizeof parameter->rc2;
    return status;
}

struct Cipher {
    const QelOid *const *algorithm;
    uint32_t mechanism;
    uint32_t key_type;
    uint32_t key_length; // bytes; 0 for any
    ReadParameters *read_parameters;
};

constexpr Cipher ciphers[] = {
    {&QEL_DES_CBC_OID, CKM_DES_CBC, CKK_DES, 8, read_iv},
    {&QEL_DES3_CBC_OID, CKM_DES3_CBC, CKK_DES3, 24, read_iv},
    {&QEL_RC2_CBC_OID, CKM_RC2_CBC, CKK_RC2, 0, read_rc2_parameters},
    {&QEL_RC4_OID, CKM_RC4, CKK_RC4, 0, read_nothing},
};

// The arguments of one call, and where its results go.
struct Call {
    QelContext *context;
    const uint8_t *data;
    uint32_t length;
    uint32_t mode;
    const QelAlgId *key_algorithm;
    const uint8_t *key;
    uint32_t key_length;
    const QelAlgId *algorithm;
    uint8_t **output;
    uint32_t *output_length;
};

QelStatus find_cipher(const Call &call, const Cipher **cipher_out) {
    int difference = 0;
    QelStatus status =
        __qel_cmp_oid(call.key_algorithm->algorithm, call.algorithm->algorithm, &difference);
    if (status == QEL_OK && difference != 0)
        return QEL_ERR_BAD_PARAM;
    for (const Cipher &row : ciphers) {
        if (status == QEL_OK)
            status = __qel_cmp_oid(call.algorithm->algorithm, *row.algorithm, &difference);
        if (status != QEL_OK)
            return status;
        if (difference == 0) {
            *cipher_out = &row;
            return QEL_OK;
        }
    }
    return QEL_ERR_UNSUPPORTED_ALG;
}

QelStatus open_session(const Direction &direction, const Cipher &cipher, const Parameter &parameter,
                       OwnedTemplate key, OwnedSession *session_out) {
    CK_SESSION_HANDLE session = nullptr;
    if (C_OpenSession(0, 0, nullptr, nullNotify, &session) != CKR_OK)
        return QEL_ERR_GENERAL;
    session_out->reset(session);
    OwnedObject object;
    if (make_object(session, std::move(key), &object) != CKR_OK)
        return QEL_ERR_GENERAL;
    const CK_MECHANISM mechanism = {cipher.mechanism, parameter.value, parameter.length};
    if (direction.init(session, &mechanism, object.get()) != CKR_OK)
        return direction.failed;
    return QEL_OK;
}

QelStatus start(const Direction &direction, const Call &call) {
    const Cipher *cipher = nullptr;
    QelStatus status = find_cipher(call, &cipher);
    if (status != QEL_OK)
        return status;
    if (cipher->key_length != 0 && call.key_length != cipher->key_length)
        return QEL_ERR_BAD_PARAM;
    CK_ATTRIBUTE *attributes = nullptr;
    uint32_t count = 0;
    if (secretKey_2_template(call.key, call.key_length, cipher->key_type, &attributes, &count) !=
        CKR_OK)
        return QEL_ERR_BAD_KEY;
    OwnedTemplate key = own_template(attributes, count);
    Parameter parameter;
    status = cipher->read_parameters(call.context, call.algorithm->parameters, &parameter);
    if (status != QEL_OK)
        return status;
    OwnedSession session;
    status = open_session(direction, *cipher, parameter, std::move(key), &session);
    if (status != QEL_OK)
        return status;
    call.context->session = session.release();
    call.context->multi_part = call.mode == QEL_MODE_UPDATE;
    return QEL_OK;
}

// Bytes that the call may write. The last call of several may still owe a block.
uint64_t room_for(const Direction &direction, const Call &call) {
    if (call.data == nullptr)
        return block_size;
    if (call.context->multi_part != 0)
        return uint64_t{call.length} + part_growth;
    const bool grows = direction.pads && call.context->session->mechanism != CKM_RC4;
    return uint64_t{call.length} + (grows ? block_size : 0);
}

CK_RV run_in_token(const Direction &direction, const Call &call, uint8_t *out, uint32_t *written) {
    const CK_SESSION_HANDLE session = call.context->session;
    if (call.data == nullptr)
        return direction.finish(session, out, written);
    if (call.context->multi_part == 0)
        return direction.single(session, call.data, call.length, out, written);
    const CK_RV result = direction.update(session, call.data, call.length, out, written);
    if (result != CKR_OK || call.mode == QEL_MODE_UPDATE)
        return result;
    uint32_t last = 0;
    const CK_RV finished = direction.finish(session, out + *written, &last);
    *written += last;
    return finished;
}

QelStatus run(const Direction &direction, const Call &call) {
    const uint64_t room = room_for(direction, call);
    qel::SecretBytes allocated;
    if (*call.output != nullptr) {
        if (*call.output_length < room)
            return QEL_ERR_BUFFER_SIZE;
    } else {
        if (room > UINT32_MAX)
            return direction.failed;
        allocated = qel::allocate_secret(static_cast<uint32_t>(room));
        if (allocated == nullptr)
            return QEL_ERR_NO_MEMORY;
    }
    uint8_t *out = allocated != nullptr ? allocated.get() : *call.output;
    uint32_t written = 0;
    if (run_in_token(direction, call, out, &written) != CKR_OK)
        return direction.failed;
    *call.output_length = written;
    if (allocated != nullptr)
        *call.output = allocated.release();
    return QEL_OK;
}

// A digest under way is left alone: no cipher got hold of its session.
void end_cipher(QelContext *context) {
    if (qel::digest_under_way(context))
        return;
    C_CloseSession(context->session);
    context->session = nullptr;
    context->multi_part = 0;
}

bool arguments_are_bad(const Call &call) {
    if (call.context == nullptr || call.output == nullptr || call.output_length == nullptr)
        return true;
    if (call.mode != QEL_MODE_UPDATE && call.mode != QEL_MODE_FINAL)
        return true;
    if ((call.data == nullptr) != (call.length == 0) ||
        (*call.output == nullptr) != (*call.output_length == 0))
        return true;
    if (call.data == nullptr && (call.mode == QEL_MODE_UPDATE || call.context->multi_part == 0))
        return true;
    return call.context->session == nullptr &&
           (call.key_algorithm == nullptr || call.key == nullptr || call.key_length == 0 ||
            call.algorithm == nullptr);
}

QelStatus crypt(const Direction &direction, const Call &call) {
    const toolkit::TracesWiped traces;
    if (arguments_are_bad(call))
        return QEL_ERR_BAD_PARAM;
    QelStatus status = QEL_OK;
    if (call.context->session == nullptr)
        status = start(direction, call);
    if (status == QEL_OK)
        status = run(direction, call);
    if (call.mode == QEL_MODE_FINAL || status != QEL_OK)
        end_cipher(call.context);
    return status;
}

QelStatus crypt_des3(const Direction &direction, QelContext *context, const uint8_t *data,
                     uint32_t length, const uint8_t *key, uint32_t key_length, const uint8_t *iv,
                     uint32_t iv_length, uint8_t **output, uint32_t *output_length) {
    if (context == nullptr || iv == nullptr || iv_length != block_size)
        return QEL_ERR_BAD_PARAM;
    const QelOctetString octets = {block_size, const_cast<uint8_t *>(iv)};
    qel::SecretArray<2 + block_size> encoding;
    uint8_t *out = encoding.bytes;
    uint32_t size = sizeof encoding.bytes;
    const QelStatus status = __qel_asn1_encode(context, &octets, QEL_PDU_OctetString, &out, &size);
    if (status != QEL_OK)
        return status;
    QelOctetString parameters = {size, encoding.bytes};
    const QelAlgId algorithm = {const_cast<QelOid *>(QEL_DES3_CBC_OID), &parameters};
    const qel::SetAside under_way(context);
    return crypt(direction, {context, data, length, QEL_MODE_FINAL, &algorithm, key, key_length,
                             &algorithm, output, output_length});
}

} // namespace

QelStatus kvdsaivqa(QelContext *context, const uint8_t *data, uint32_t length, uint32_t mode,
                    const QelAlgId *key_algorithm, const uint8_t *key, uint32_t key_length,
                    const QelAlgId *algorithm, uint8_t **output, uint32_t *output_length) {
    return crypt(encryption, {context, data, length, mode, key_algorithm, key, key_length,
                              algorithm, output, output_length});
}

QelStatus kdlsdkspd(QelContext *context, const uint8_t *data, uint32_t length, uint32_t mode,
                    const QelAlgId *key_algorithm, const uint8_t *key, uint32_t key_length,
                    const QelAlgId *algorithm, uint8_t **output, uint32_t *output_length) {
    return crypt(decryption, {context, data, length, mode, key_algorithm, key, key_length,
                              algorithm, output, output_length});
}

QelStatus aksksfdq(QelContext *context, const uint8_t *data, uint32_t length, const uint8_t *key,
                   uint32_t key_length, const uint8_t *iv, uint32_t iv_length, uint8_t **output,
                   uint32_t *output_length) {
    return crypt_des3(encryption, context, data, length, key, key_length, iv, iv_length, output,
                      output_length);
}

QelStatus glhrahhi(QelContext *context, const uint8_t *data, uint32_t length, const uint8_t *key,
                   uint32_t key_length, const uint8_t *iv, uint32_t iv_length, uint8_t **output,
                   uint32_t *output_length) {
    return crypt_des3(decryption, context, data, length, key, key_length, iv, iv_length, output,
                      output_length);
}
