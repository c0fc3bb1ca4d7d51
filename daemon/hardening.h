// hardening.h: what keeps a daemon's memory from others, and the daemon from what it does not need.
#ifndef DAEMON_HARDENING_H
#define DAEMON_HARDENING_H

#include <cstddef>
#include <optional>
#include <string>
#include <sys/types.h>

// No core file, no tracing by the same user, and with lock_memory no page on a swap device. Throws
// std::system_error when the system refuses.
void protect_memory(bool lock_memory);

// Zeroes the part of the stack that calls have used and left: vector registers are saved there, with
// what was copied through them.
void wipe_stack();

// Whom the kernel names in place of every user who has no number in our user namespace. None where all
// users have one.
//   uid_map  as in /proc/self/uid_map
std::optional<uid_t> nameless_user(const std::string &uid_map);
std::optional<uid_t> nameless_user();

// Raises the limit of descriptors for so many connections and some files beside them. Returns how many
// connections the system lets us have, up to wanted.
std::size_t room_for_connections(std::size_t wanted);

// Gives up all capabilities for good. Throws std::system_error.
void drop_capabilities();

// Becomes another user for good, with no other group, and of the super-user's capabilities at most with
// the one to lock memory. Throws std::runtime_error when there is no such user, std::system_error when the
// system refuses.
void become_user(const std::string &name, bool keep_memory_lock);

#endif
