// env.cpp: the environment, and the entry points that find the type of a PDU.
#include "environment.h"

namespace dencoder {

bool fail(OssEnvironment &environment, OssStatus status, const char *reason, uint64_t offset) {
    environment.failure = {.status = status, .reason = reason, .offset = offset};
    return false;
}

bool fail_inside(OssEnvironment &environment, const char *name) {
    Failure &failure = environment.failure;
    if (name != nullptr && failure.depth < path_length)
        failure.path[failure.depth++] = name;
    return false;
}

namespace {

bool in_use(const OssEnvironment *environment) {
    return environment != nullptr && environment->table != nullptr;
}

OssStatus refuse(OssEnvironment *environment, OssStatus status, const char *reason) {
    if (in_use(environment))
        fail(*environment, status, reason);
    return status;
}

FILE *stream_or(FILE *stream, FILE *otherwise) {
    return stream != nullptr ? stream : otherwise;
}

// The row of a PDU, or null.
const Type *find_type(OssEnvironment *environment, int pdu) {
    if (!in_use(environment))
        return nullptr;
    environment->failure = {};
    const auto &pdus = environment->table->pdus;
    return pdu >= 1 && static_cast<std::size_t>(pdu) <= pdus.size() ? pdus[pdu - 1] : nullptr;
}

} // namespace
} // namespace dencoder

using namespace dencoder;

OssStatus ossinit(OssEnvironment *environment, const ControlTable *table) {
    if (environment == nullptr || table == nullptr)
        return OSS_BAD_ARGUMENT;
    *environment = {};
    environment->table = table;
    environment->rules = OSS_BER;
    if (table->link != nullptr)
        table->link(environment);
    return OSS_DONE;
}

void ossterm(OssEnvironment *environment) {
    if (environment == nullptr)
        return;
    while (environment->marked != nullptr)
        drop_marked(*environment, environment->marked);
    free_retired(*environment);
    explicit_bzero(environment, sizeof *environment);
}

void ossLinkBer(OssEnvironment *environment) {
    environment->decode = decode;
    environment->encode_ber = encode;
}

void ossLinkDer(OssEnvironment *environment) {
    environment->decode = decode;
    environment->encode_der = encode;
}

void ossLinkConstraint(OssEnvironment *environment) {
    environment->check = check_characters;
}

OssStatus ossSetEncodingRules(OssEnvironment *environment, OssRules rules) {
    if (!in_use(environment))
        return OSS_BAD_ARGUMENT;
    const bool linked = rules == OSS_BER   ? environment->encode_ber != nullptr
                        : rules == OSS_DER ? environment->encode_der != nullptr
                                           : false;
    if (!linked)
        return refuse(environment, OSS_NOT_LINKED, "no codec for these encoding rules");
    environment->rules = rules;
    return OSS_DONE;
}

OssRules ossGetEncodingRules(const OssEnvironment *environment) {
    return in_use(environment) ? environment->rules : OSS_BER;
}

OssStatus ossSetEncodingFlags(OssEnvironment *environment, uint32_t flags) {
    if (!in_use(environment) || (flags & ~OSS_INDEFINITE) != 0)
        return refuse(environment, OSS_BAD_ARGUMENT, "an unknown encoding flag");
    environment->encoding_flags = flags;
    return OSS_DONE;
}

OssStatus ossSetDecodingFlags(OssEnvironment *environment, uint32_t flags) {
    if (!in_use(environment) || (flags & ~OSS_TRACE) != 0)
        return refuse(environment, OSS_BAD_ARGUMENT, "an unknown decoding flag");
    environment->decoding_flags = flags;
    return OSS_DONE;
}

void ossSetPrintStream(OssEnvironment *environment, FILE *stream) {
    if (in_use(environment))
        environment->print_stream = stream;
}

void ossSetTraceStream(OssEnvironment *environment, FILE *stream) {
    if (in_use(environment))
        environment->trace_stream = stream;
}

const char *ossGetErrMsg(OssEnvironment *environment) {
    if (!in_use(environment))
        return "the environment is not in use";
    const Failure &failure = environment->failure;
    if (failure.reason == nullptr)
        return "no failure";
    char path[160] = "";
    for (unsigned i = failure.depth; i-- > 0;) {
        const std::size_t used = strlen(path);
        snprintf(path + used, sizeof path - used, "%s%s", failure.path[i], i > 0 ? "." : ": ");
    }
    snprintf(environment->message, sizeof environment->message, "%s%s (octet %llu)", path,
             failure.reason, static_cast<unsigned long long>(failure.offset));
    return environment->message;
}

OssStatus ossEncode(OssEnvironment *environment, int pdu, const void *value, OssBuf *output) {
    const Type *type = find_type(environment, pdu);
    if (type == nullptr || value == nullptr || output == nullptr)
        return refuse(environment, OSS_BAD_ARGUMENT, "no such PDU, or nothing to encode");
    const bool der = environment->rules == OSS_DER;
    const EncodeFunction function = der ? environment->encode_der : environment->encode_ber;
    if (function == nullptr)
        return refuse(environment, OSS_NOT_LINKED, "no codec for these encoding rules");
    return function(*environment, *type, value, der, *output);
}

OssStatus ossDecode(OssEnvironment *environment, const int *pdu, const OssBuf *input,
                    void **value_out) {
    if (value_out != nullptr)
        *value_out = nullptr;
    const Type *type = pdu != nullptr ? find_type(environment, *pdu) : nullptr;
    if (type == nullptr || input == nullptr || input->value == nullptr || value_out == nullptr)
        return refuse(environment, OSS_BAD_ARGUMENT, "no such PDU, or nothing to decode");
    if (environment->decode == nullptr)
        return refuse(environment, OSS_NOT_LINKED, "no codec for these encoding rules");
    const OssStatus status = environment->decode(*environment, *type, *input, value_out);
    if (status == OSS_DONE && (environment->decoding_flags & OSS_TRACE) != 0)
        print_value(*environment, stream_or(environment->trace_stream, stderr), *type, *value_out);
    return status;
}

OssStatus ossFreePDU(OssEnvironment *environment, int pdu, void *value) {
    const Type *type = find_type(environment, pdu);
    if (type == nullptr)
        return refuse(environment, OSS_BAD_ARGUMENT, "no such PDU");
    free_value(*environment, *type, value);
    return OSS_DONE;
}

OssStatus ossPrintPDU(OssEnvironment *environment, int pdu, const void *value) {
    const Type *type = find_type(environment, pdu);
    if (type == nullptr || value == nullptr)
        return refuse(environment, OSS_BAD_ARGUMENT, "no such PDU, or nothing to print");
    if (!print_value(*environment, stream_or(environment->print_stream, stdout), *type, value))
        return refuse(environment, OSS_FILE_ERROR, "the stream reports an error");
    return OSS_DONE;
}

void ossFreeBuf(OssEnvironment *, void *buffer) {
    std::free(buffer);
}
