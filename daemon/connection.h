// connection.h: one client's stream: records in (RFC 5531, section 11), replies out.
#ifndef DAEMON_CONNECTION_H
#define DAEMON_CONNECTION_H

#include <span>

#include "clock.h"
#include "descriptor.h"
#include "log.h"
#include "secret.h"

class Connection {
public:
    // longest_call: a client that announces a longer one is no client.
    Connection(Descriptor descriptor, const Caller &caller, std::size_t longest_call)
        : descriptor_(std::move(descriptor)), caller_(caller), longest_call_(longest_call) {}

    int fd() const { return descriptor_.get(); }
    const Caller &caller() const { return caller_; }

    // Each returns false when the connection is over: closed by the peer, failed, or no stream of
    // records that anybody would send. room is where bytes are received; it is left zeroed.
    bool receive(std::span<uint8_t> room);
    bool send();

    bool has_call() const { return complete_; }
    bool has_reply() const { return !reply_.empty(); }
    // Nothing is under way.
    bool idle() const { return held() == 0; }
    // Bytes that are kept for it.
    std::size_t held() const { return incoming_.size() + call_.size() + reply_.size(); }

    // The call that has come; taking it makes room for the next.
    SecretBytes take_call();
    void reply(SecretBytes record) { reply_ = std::move(record); }

    // When the present call or reply has begun to travel.
    Instant since() const { return since_; }

private:
    bool take_fragments();

    Descriptor descriptor_;
    Caller caller_;
    std::size_t longest_call_;
    SecretBytes incoming_; // received: what follows the fragments that are in call_
    SecretBytes call_;     // contents of the fragments so far
    bool complete_ = false;
    SecretBytes reply_;
    std::size_t sent_ = 0;
    Instant since_{};
};

#endif
