#include "vault.h"

#include <algorithm>
#include <ctime>

Entry *Vault::find(const EntryName &name, Instant now) {
    const auto at = entries_.find(name);
    return at == entries_.end() || has_ended(at->second, now) ? nullptr : &at->second;
}

void Vault::put(EntryName name, Entry entry) {
    entries_.insert_or_assign(std::move(name), std::move(entry));
}

std::size_t Vault::withdraw_all(uid_t uid) {
    std::size_t count = 0;
    for (auto at = first_of(uid); at != entries_.end() && at->first.uid == uid; ++count)
        at = entries_.erase(at);
    return count;
}

std::size_t Vault::lock_all(uid_t uid) {
    std::size_t count = 0;
    for (auto at = first_of(uid); at != entries_.end() && at->first.uid == uid; ++at, ++count)
        SecretBytes().swap(at->second.private_key);
    return count;
}

std::size_t Vault::count(uid_t uid) const {
    std::size_t count = 0;
    for (auto at = entries_.lower_bound({uid, "", ""});
         at != entries_.end() && at->first.uid == uid; ++at)
        ++count;
    return count;
}

std::optional<Instant> Vault::next_end() const {
    std::optional<Instant> next;
    for (const auto &[name, entry] : entries_) {
        if (entry.end && (!next || *entry.end < *next))
            next = entry.end;
    }
    return next;
}
