// changes.h: a request to fnsd becomes a change of the store, and a reply. No sockets, so tests and
// fuzzing begin here.
#ifndef FNSD_CHANGES_H
#define FNSD_CHANGES_H

#include "log.h"
#include "request.h"
#include "secret.h"

#include <string>

struct ChangeLimits {
    // What an ordinary user may keep in an entry, in all values together: what bounds the disk.
    std::size_t bytes_per_entry = std::size_t{4} << 20;
};

class Changes {
public:
    // store: kept at location, and open as long as this is.
    Changes(xfn::Store *store, std::string location, const ChangeLimits &limits)
        : store_(store), location_(std::move(location)), limits_(limits) {}

    // Answers one request with a complete record. An empty one means that this was no request.
    SecretBytes answer(const Caller &caller, std::span<const uint8_t> message);

private:
    unsigned change(uid_t actor, const xfn::Request &request);
    unsigned modify(uid_t actor, const xfn::Request &request);
    unsigned check_room(const xfn::Request &request);

    xfn::Store *store_;
    std::string location_;
    ChangeLimits limits_;
};

#endif
