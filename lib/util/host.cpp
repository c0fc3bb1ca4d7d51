#include <util/host.h>

#include <arpa/inet.h>
#include <cstring>
#include <netdb.h>
#include <unistd.h>

#include <qel/qelp.h>

constexpr std::size_t name_size = 1024;

bool qel::resolve_host(const char *name, in_addr *address_out) {
    hostent host;
    hostent *found = nullptr;
    char work[name_size];
    int error = 0;
    if (gethostbyname_r(name, &host, work, sizeof work, &found, &error) != 0 || found == nullptr)
        return false;
    if (found->h_length != sizeof *address_out || found->h_addr_list[0] == nullptr)
        return false;
    std::memcpy(address_out, found->h_addr_list[0], sizeof *address_out);
    return true;
}

char *__qel_getIPaddress(void) {
    char name[name_size] = "";
    in_addr address;
    if (gethostname(name, sizeof name - 1) != 0 || !qel::resolve_host(name, &address))
        return nullptr;
    return inet_ntoa(address);
}
