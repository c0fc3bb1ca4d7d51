// vault.h: the entries of the key server. They live in memory only.
#ifndef SERVER_VAULT_H
#define SERVER_VAULT_H

#include <map>
#include <optional>
#include <string>
#include <sys/types.h>

#include "clock.h"
#include "secret.h"

struct EntryName {
    uid_t uid;
    std::string keyid;
    std::string hostaddr;
    auto operator<=>(const EntryName &) const = default;
};

struct Entry {
    Bytes package;           // encoded key package
    SecretBytes private_key; // octets as in a PrivateKeyInfo; none while the entry is locked
    int usage = 0;           // USAGE_...
    uint32_t registered = 0; // seconds since 1970
    std::optional<Instant> end;

    bool locked() const { return private_key.empty(); }
};

class Vault {
public:
    using Entries = std::map<EntryName, Entry>;

    // The entry of this name that has not ended by now, or null.
    Entry *find(const EntryName &name, Instant now);
    void put(EntryName name, Entry entry);
    bool withdraw(const EntryName &name) { return entries_.erase(name) != 0; }
    // How many entries of a user there were.
    std::size_t withdraw_all(uid_t uid);
    std::size_t lock_all(uid_t uid);
    std::size_t count(uid_t uid) const;

    // All entries, by user. Those that have ended are among them until the next expire().
    const Entries &entries() const { return entries_; }
    // Drops what has ended by now and calls report for each name.
    template <class Report> void expire(Instant now, Report report);
    // When the next entry ends.
    std::optional<Instant> next_end() const;

private:
    Entries::iterator first_of(uid_t uid) { return entries_.lower_bound({uid, "", ""}); }

    Entries entries_;
};

inline bool has_ended(const Entry &entry, Instant now) {
    return entry.end && *entry.end <= now;
}

template <class Report> void Vault::expire(Instant now, Report report) {
    for (auto at = entries_.begin(); at != entries_.end();) {
        if (!has_ended(at->second, now)) {
            ++at;
            continue;
        }
        report(at->first);
        at = entries_.erase(at);
    }
}

#endif
