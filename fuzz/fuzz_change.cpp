// Requests to fnsd, one after the other, each behind two bytes for its length. Whatever comes, an answer
// is none or a whole reply, a request that is understood is what its encoding says, and a user changes
// no entry but the own one.
#include "fuzz.h"

#include <vector>

#include "changes.h"

namespace {

// A store without entries, which sees who would change what.
constexpr uid_t caller_uid = 1;

unsigned checked(xfn::EntryName name, uid_t actor) {
    must(actor == caller_uid);
    if (const unsigned code = xfn::check_name(name); code != FN_SUCCESS)
        return code;
    return xfn::may_change(name, actor);
}
unsigned create(xfn::Store *, xfn::EntryName name, uid_t actor) {
    return checked(name, actor);
}
unsigned get(xfn::Store *, xfn::EntryName name, const FN_attrset_t *, xfn::AttributeSet *found) {
    must(name.area == xfn::Area::users && name.text == "daemon");
    found->reset(fn_attrset_create());
    return FN_SUCCESS;
}
unsigned modify(xfn::Store *, xfn::EntryName name, unsigned operation,
                const FN_attribute_t *attribute, uid_t actor) {
    must(checked(name, actor) == FN_SUCCESS);
    xfn::Attribute result;
    return xfn::apply(operation, attribute, nullptr, &result);
}

constexpr xfn::StoreOperations operations = {
    .lookup = nullptr,
    .create = create,
    .destroy = create,
    .get = get,
    .modify = modify,
    .list = nullptr,
    .search = nullptr,
    .writable = nullptr,
    .before_fork = nullptr,
    .after_fork = nullptr,
    .close = nullptr,
};

void check_encoding(std::span<const uint8_t> message) {
    xfn::DecodedRequest decoded = {};
    if (xfn::decode_request(message, &decoded) != FN_SUCCESS)
        return;
    const xfn::Message again = encode_request(decoded.request);
    must(again.size == message.size() + 4 &&
         std::memcmp(again.bytes.get() + 4, message.data(), message.size()) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    xfn::Store store = {&operations};
    Changes changes(&store, "sqlite:/x", {});
    while (size > 2) {
        const std::size_t length =
            std::min<std::size_t>(std::size_t{data[0]} << 8 | data[1], size - 2);
        const std::vector<uint8_t> message(data + 2, data + 2 + length);
        check_encoding(message);
        const SecretBytes reply = changes.answer({caller_uid, 1}, message);
        must(reply.empty() || reply.size() == xfn::reply_size);
        data += 2 + length;
        size -= 2 + length;
    }
    return 0;
}
