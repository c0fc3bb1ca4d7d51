// host.h: the addresses of hosts.
#ifndef UTIL_HOST_H
#define UTIL_HOST_H

#include <netinet/in.h>

namespace qel {

// The first IPv4 address of a host name; false when it cannot be resolved.
bool resolve_host(const char *name, in_addr *address_out);

} // namespace qel

#endif
