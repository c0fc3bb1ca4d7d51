// resolver.h: a name service of the test's own, for programs that include this once. It stands in
// for the C library's gethostbyname_r.
#ifndef TESTS_SUPPORT_RESOLVER_H
#define TESTS_SUPPORT_RESOLVER_H

#include <arpa/inet.h>
#include <cstring>
#include <map>
#include <netdb.h>
#include <string>
#include <vector>

namespace resolver {

inline std::map<std::string, std::vector<in_addr>> hosts = {
    {"host.example", {{inet_addr("192.0.2.7")}, {inet_addr("192.0.2.8")}}},
    {"addressless.example", {}},
};

} // namespace resolver

extern "C" int gethostbyname_r(const char *name, hostent *host, char *work, size_t size,
                               hostent **found, int *error) {
    *found = nullptr;
    *error = HOST_NOT_FOUND;
    const auto entry = resolver::hosts.find(name);
    if (entry == resolver::hosts.end())
        return 0;
    const std::vector<in_addr> &addresses = entry->second;
    const size_t pointers = (addresses.size() + 1) * sizeof(char *);
    const size_t misalignment = reinterpret_cast<uintptr_t>(work) % alignof(char *);
    const size_t padding = misalignment == 0 ? 0 : alignof(char *) - misalignment;
    if (size < padding + pointers + addresses.size() * sizeof(in_addr))
        return ERANGE;
    auto **list = reinterpret_cast<char **>(work + padding);
    char *at = work + padding + pointers;
    for (size_t i = 0; i < addresses.size(); ++i, at += sizeof(in_addr)) {
        std::memcpy(at, &addresses[i], sizeof(in_addr));
        list[i] = at;
    }
    list[addresses.size()] = nullptr;
    *host = {};
    host->h_addrtype = AF_INET;
    host->h_length = sizeof(in_addr);
    host->h_addr_list = list;
    *found = host;
    *error = 0;
    return 0;
}

#endif
