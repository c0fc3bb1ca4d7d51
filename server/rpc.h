// rpc.h: from a call message to a reply message (RFC 5531), without the way they travel.
#ifndef SERVER_RPC_H
#define SERVER_RPC_H

#include <span>

#include "service.h"

// The longest call that makes sense: every field at its bound, and room for the header.
constexpr std::size_t longest_call = 320 * 1024;

// Answers one call message. The reply is a complete record of one fragment, with its mark. An empty
// one means that this was no call, and that nothing can be answered.
SecretBytes answer_call(Service *service, const Caller &caller, std::span<uint8_t> message);

#endif
