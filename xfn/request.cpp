// request.cpp: messages to fnsd and back.

#include "request.h"

namespace {

using xfn::RequestKind;

constexpr uint32_t last_fragment = 0x80000000;
constexpr uint32_t reply_contents = 8;

// Writes where there is room, and counts what there would have to be.
struct Writer {
    uint8_t *bytes; // null: count only
    std::size_t size = 0;

    void number(uint64_t value, unsigned length) {
        for (unsigned i = length; i-- != 0; ++size)
            if (bytes != nullptr)
                bytes[size] = static_cast<uint8_t>(value >> (8 * i));
    }
    void word(uint32_t value) { number(value, 4); }
    void text(std::string_view value) {
        word(static_cast<uint32_t>(value.size()));
        if (bytes != nullptr && !value.empty())
            std::memcpy(bytes + size, value.data(), value.size());
        size += value.size();
    }
    void identifier(const FN_identifier_t &id) {
        word(id.format);
        text(xfn::view(id));
    }
};

// Reads while there is something; after the first thing that is missing or too long all is zero.
struct Reader {
    std::span<const uint8_t> rest;
    bool failed = false;

    std::span<const uint8_t> take(std::size_t length) {
        if (failed || length > rest.size()) {
            failed = true;
            return {};
        }
        const auto taken = rest.first(length);
        rest = rest.subspan(length);
        return taken;
    }
    uint64_t number(unsigned length) {
        uint64_t value = 0;
        for (const uint8_t byte : take(length))
            value = value << 8 | byte;
        return value;
    }
    uint32_t word() { return static_cast<uint32_t>(number(4)); }
    std::string_view text(std::size_t longest) {
        const std::size_t length = word();
        failed = failed || length > longest;
        const auto bytes = take(length);
        return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
    }
    FN_identifier_t identifier() {
        const uint32_t format = word();
        const std::string_view name = text(xfn::max_identifier);
        failed = failed || format > FN_ID_ISO_OID_BER;
        return {format, name.size(), const_cast<char *>(name.data())};
    }
};

void write_attribute(Writer *writer, const FN_attribute_t &attribute) {
    writer->identifier(attribute.identifier);
    writer->identifier(attribute.syntax);
    writer->word(attribute.guarded ? 1 : 0);
    writer->number(static_cast<uint64_t>(attribute.expected), 8);
    writer->word(static_cast<uint32_t>(attribute.values.count));
    for (const FN_attrvalue_t &value : attribute.values)
        writer->text(xfn::view(value));
}

void write_request(Writer *writer, const xfn::Request &request, std::size_t size) {
    writer->word(last_fragment | static_cast<uint32_t>(size));
    writer->word(xfn::request_version);
    writer->word(static_cast<uint32_t>(request.kind));
    writer->text(request.location);
    writer->word(static_cast<uint32_t>(request.name.area));
    writer->text(request.name.text);
    if (request.kind != RequestKind::modify)
        return;
    writer->word(request.operation);
    write_attribute(writer, *request.attribute);
}

// Null with reader->failed if this is no attribute, without if memory ran out. Storage is taken for
// bytes that have come only.
xfn::Attribute read_attribute(Reader *reader) {
    const FN_identifier_t identifier = reader->identifier();
    const FN_identifier_t syntax = reader->identifier();
    const uint32_t guarded = reader->word();
    const uint64_t expected = reader->number(8);
    const uint32_t count = reader->word();
    if (guarded > 1 || expected > INT64_MAX || count > xfn::max_values)
        reader->failed = true;
    if (reader->failed)
        return nullptr;
    xfn::Attribute attribute(fn_attribute_create(&identifier, &syntax));
    if (attribute == nullptr)
        return nullptr;
    attribute->guarded = guarded != 0;
    attribute->expected = static_cast<int64_t>(expected);
    for (uint32_t i = 0; i < count; ++i) {
        const std::string_view value = reader->text(xfn::max_value);
        if (reader->failed || xfn::has_value(attribute.get(), value)) {
            reader->failed = true; // values are a set
            return nullptr;
        }
        if (!xfn::append_value(attribute.get(), value))
            return nullptr;
    }
    return attribute;
}

bool is_kind(uint32_t kind) {
    return kind >= static_cast<uint32_t>(RequestKind::create) &&
           kind <= static_cast<uint32_t>(RequestKind::modify);
}

} // namespace

xfn::Message xfn::encode_request(const Request &request) {
    Writer counter = {nullptr};
    write_request(&counter, request, 0);
    Message message;
    if (counter.size > longest_request)
        return message;
    message.bytes.reset(qel::allocate_bytes(counter.size));
    if (message.bytes == nullptr)
        return message;
    message.size = counter.size;
    Writer writer = {message.bytes.get()};
    write_request(&writer, request, counter.size - sizeof(uint32_t));
    return message;
}

unsigned xfn::decode_request(std::span<const uint8_t> message, DecodedRequest *decoded) {
    Reader reader = {message};
    const uint32_t version = reader.word();
    const uint32_t kind = reader.word();
    if (reader.failed)
        return FN_E_UNSPECIFIED_ERROR;
    if (version != request_version || !is_kind(kind))
        return FN_E_OPERATION_NOT_SUPPORTED;
    Request *request = &decoded->request;
    request->kind = static_cast<RequestKind>(kind);
    request->location = reader.text(max_location);
    const uint32_t area = reader.word();
    request->name = {static_cast<Area>(area), reader.text(max_name)};
    if (reader.failed || area > static_cast<uint32_t>(Area::hosts))
        return FN_E_UNSPECIFIED_ERROR;
    if (request->kind == RequestKind::modify) {
        request->operation = reader.word();
        decoded->attribute = read_attribute(&reader);
        request->attribute = decoded->attribute.get();
        if (request->attribute == nullptr)
            return reader.failed ? FN_E_UNSPECIFIED_ERROR : FN_E_INSUFFICIENT_RESOURCES;
    }
    return reader.rest.empty() ? FN_SUCCESS : FN_E_UNSPECIFIED_ERROR;
}

void xfn::encode_reply(unsigned status, std::span<uint8_t, reply_size> record) {
    Writer writer = {record.data()};
    writer.word(last_fragment | reply_contents);
    writer.word(request_version);
    writer.word(status);
}

bool xfn::decode_reply(std::span<const uint8_t, reply_size> record, unsigned *status) {
    Reader reader = {record};
    if (reader.word() != (last_fragment | reply_contents) || reader.word() != request_version)
        return false;
    *status = reader.word();
    return true;
}
