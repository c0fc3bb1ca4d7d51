// request.h: what travels between a process that may not write the database and fnsd, which may.
//
// A message is a record (RFC 5531, section 11) of one or more fragments. Numbers have the highest byte
// first; "text" is a number of four bytes and that many bytes.
//
//   request                                            reply
//   4     version, 1                                   4  version
//   4     RequestKind                                  4  status of <xfn/xfn.h>
//   text  location of the store ("sqlite:/var/fn/...")
//   4     Area
//   text  name of the entry
//   what follows is there if an attribute is to be changed:
//   4     operation of fn_attr_modify
//   4     format of the identifier, and text
//   4     format of the syntax, and text
//   4     1 if the change has an expectation, else 0
//   8     expected version, 0 for no attribute
//   4     number of values, and a text for each
//
// Who asks does not stand in it: that is what the kernel says about the other end of the socket.
#ifndef XFN_REQUEST_H
#define XFN_REQUEST_H

#include "config.h"
#include "store.h"

#include <span>

namespace xfn {

constexpr char fnsd_socket[] = "/run/fnsd/socket";
constexpr uint32_t request_version = 1;

enum class RequestKind : uint32_t { create = 1, destroy = 2, modify = 3 };

struct Request {
    RequestKind kind;
    std::string_view location;
    EntryName name;
    unsigned operation = 0;                    // for modify
    const FN_attribute_t *attribute = nullptr; // for modify
};

// No sensible request is longer: every part at its bound.
constexpr std::size_t longest_request =
    max_attribute_bytes + 4 * max_values + max_name + 2 * max_identifier + max_location + 256;

// Bytes of a message, in storage of its own.
struct Message {
    qel::Owned<uint8_t> bytes;
    std::size_t size = 0;
    std::span<const uint8_t> span() const { return {bytes.get(), size}; }
};

// The record of a request; without bytes if memory runs out or the request is longer than any may be.
Message encode_request(const Request &request);

// What is in a request, without the mark. location and name point into the message. FN_SUCCESS;
// FN_E_OPERATION_NOT_SUPPORTED: another version or kind; FN_E_UNSPECIFIED_ERROR: no request;
// FN_E_INSUFFICIENT_RESOURCES.
struct DecodedRequest {
    Request request;
    Attribute attribute; // what request.attribute points to
};
unsigned decode_request(std::span<const uint8_t> message, DecodedRequest *decoded);

// The record of a reply, and what is in one.
constexpr std::size_t reply_size = 12;
void encode_reply(unsigned status, std::span<uint8_t, reply_size> record);
// False if this is none that this version understands.
bool decode_reply(std::span<const uint8_t, reply_size> record, unsigned *status);

} // namespace xfn

#endif
