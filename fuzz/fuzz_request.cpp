// Requests to the key server: calls of several users, one after the other, as the connections hand
// them over. Each begins with a byte for the user and two for the length. Whatever comes, a reply is a
// whole record, and a user who has not logged in has no key that signs.
#include "fuzz.h"

#include <cstring>
#include <vector>

#include <arpa/inet.h>

#include "rpc.h"

static void check_reply(const SecretBytes &reply) {
    uint32_t mark = 0;
    must(reply.size() >= sizeof mark);
    std::memcpy(&mark, reply.data(), sizeof mark);
    must(ntohl(mark) == (0x80000000 | static_cast<uint32_t>(reply.size() - sizeof mark)));
}

// A user that no call is made for.
static void check_stranger(const Service &service) {
    constexpr uid_t stranger = 1000;
    char any[] = "";
    qelserv_keystat *state = service.stat_keys({stranger, 1}, {0, any, any, 0});
    must(state->status == QELSERV_NOT_LOGGED_IN && state->next == nullptr);
    xdr_free(reinterpret_cast<xdrproc_t>(xdr_qelserv_keystatp), &state);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    constexpr std::size_t head = 3;
    Service service{ServiceLimits()};
    while (size > head) {
        const uid_t uid = data[0] % 4;
        const std::size_t length =
            std::min<std::size_t>(std::size_t{data[1]} << 8 | data[2], size - head);
        std::vector<uint8_t> message(data + head, data + head + length);
        const SecretBytes reply = answer_call(&service, {uid, 1}, message);
        if (!reply.empty())
            check_reply(reply);
        data += head + length;
        size -= head + length;
    }
    check_stranger(service);
    return 0;
}
