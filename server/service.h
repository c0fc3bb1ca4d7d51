// service.h: the seven procedures of the key server.
#ifndef SERVER_SERVICE_H
#define SERVER_SERVICE_H

#include <qel/qelserv.h>

#include "log.h"
#include "vault.h"

struct ServiceLimits {
    std::size_t entries_per_user = 16;
    std::size_t bytes = std::size_t{64} << 20; // of all key packages
    uint32_t default_lifetime = 0;             // seconds; 0: no limit
    uint32_t longest_lifetime = 0;             // seconds; 0: no limit
};

// Each procedure answers one call. Results that are lists come in memory that the result's XDR routine
// releases; an answer without elements is a null pointer.
class Service {
public:
    explicit Service(const ServiceLimits &limits) : limits_(limits) {}

    qelserv_status set_key(const Caller &caller, const qelserv_keyinfo &argument);
    qelserv_keylist *list_keys(const Caller &caller, const qelserv_listinfo &argument) const;
    qelserv_keystat *stat_keys(const Caller &caller, const qelserv_statinfo &argument) const;
    qelserv_cryptdata *decrypt(const Caller &caller, const qelserv_cryptinfo &argument);
    qelserv_cryptdata *sign(const Caller &caller, const qelserv_cryptinfo &argument);
    qelserv_cryptdata *encrypt(const Caller &caller, const qelserv_cryptinfo &argument);
    qelserv_keypkglist *get_packages(const Caller &caller,
                                     const qelserv_keypkginfo &argument) const;

    // Drops the entries whose time is over. Returns when the next one's is.
    std::optional<Instant> expire();

private:
    qelserv_status register_key(const Caller &caller, const qelserv_keyinfo &argument);
    qelserv_status replace_package(Entry *entry, const qelserv_keyinfo &argument, int allowed);
    bool has_room_for(std::size_t package) const;
    qelserv_status unlock(Entry *entry, const qelserv_keyinfo &argument);
    qelserv_status drop_keys(const Caller &caller, const qelserv_keyinfo &argument);
    qelserv_status find_usable(const Caller &caller, const qelserv_cryptinfo &argument, int use,
                               const Entry **entry_out);
    template <class Operation>
    qelserv_cryptdata *work_with_entry(const Caller &caller, const qelserv_cryptinfo &argument,
                                       int use, const char *refused, Operation operation);
    uint32_t lifetime(int32_t asked) const;

    void set_end(Entry *entry, int32_t asked);

    ServiceLimits limits_;
    Vault vault_;
    std::optional<Instant> next_end_; // of an entry, or earlier
};

#endif
