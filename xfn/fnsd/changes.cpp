#include "changes.h"

namespace {

using xfn::Area;
using xfn::Request;
using xfn::RequestKind;

const char *verb(RequestKind kind) {
    switch (kind) {
    case RequestKind::create:
        return "create";
    case RequestKind::destroy:
        return "destroy";
    default:
        return "modify";
    }
}

std::string full_name(xfn::EntryName name) {
    const char *area = name.area == Area::users ? "user/" : name.area == Area::hosts ? "host/" : "";
    return area + std::string(name.text);
}

std::size_t bytes_of(const FN_attribute_t *attribute) {
    std::size_t bytes = 0;
    for (const FN_attrvalue_t &value : attribute->values)
        bytes += value.length;
    return bytes;
}

} // namespace

SecretBytes Changes::answer(const Caller &caller, std::span<const uint8_t> message) {
    xfn::DecodedRequest decoded = {};
    unsigned status = decode_request(message, &decoded);
    if (status == FN_E_UNSPECIFIED_ERROR)
        return {};
    if (status == FN_SUCCESS)
        status = change(caller.uid, decoded.request);
    if (status != FN_SUCCESS && status != FN_E_ATTR_CHANGED && status != FN_E_NAME_IN_USE)
        log_call(caller,
                 (std::string("refused to ") + verb(decoded.request.kind) + ", status " +
                  std::to_string(status))
                     .c_str(),
                 full_name(decoded.request.name));
    SecretBytes reply(xfn::reply_size);
    xfn::encode_reply(status, std::span<uint8_t, xfn::reply_size>(reply));
    return reply;
}

unsigned Changes::change(uid_t actor, const Request &request) {
    // The store of a client whose configuration names another one is none of ours.
    if (request.location != location_)
        return FN_E_CTX_NO_PERMISSION;
    const xfn::StoreOperations *operations = store_->operations;
    switch (request.kind) {
    case RequestKind::create:
        return operations->create(store_, request.name, actor);
    case RequestKind::destroy:
        return operations->destroy(store_, request.name, actor);
    default:
        return modify(actor, request);
    }
}

unsigned Changes::modify(uid_t actor, const Request &request) {
    unsigned code = xfn::may_change(request.name, actor);
    if (code == FN_SUCCESS && actor != 0)
        code = check_room(request);
    return code != FN_SUCCESS ? code
                              : store_->operations->modify(store_, request.name, request.operation,
                                                           request.attribute, actor);
}

// Nobody but root changes the entry at the same time, so that nothing is lost by looking first.
unsigned Changes::check_room(const Request &request) {
    if (request.operation == FN_ATTR_OP_REMOVE || request.operation == FN_ATTR_OP_REMOVE_VALUES)
        return FN_SUCCESS;
    xfn::AttributeSet found;
    const unsigned code = store_->operations->get(store_, request.name, nullptr, &found);
    if (code != FN_SUCCESS)
        return code;
    std::size_t bytes = bytes_of(request.attribute);
    for (const FN_attribute_t *attribute : found->attributes)
        if (request.operation == FN_ATTR_OP_ADD_VALUES ||
            !xfn::equal(attribute->identifier, request.attribute->identifier))
            bytes += bytes_of(attribute);
    return bytes <= limits_.bytes_per_entry ? FN_SUCCESS : FN_E_INSUFFICIENT_RESOURCES;
}
