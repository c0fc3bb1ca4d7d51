#include "hardening.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <grp.h>
#include <linux/capability.h>
#include <pwd.h>
#include <sstream>
#include <stdexcept>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

namespace {

void check(int result, const char *what) {
    if (result != 0)
        throw std::system_error(errno, std::generic_category(), what);
}

void keep_capabilities(uint32_t kept) {
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3] = {};
    sets[0].effective = sets[0].permitted = kept;
    check(static_cast<int>(syscall(SYS_capset, &header, sets)), "capset");
}

std::size_t raise_descriptor_limit(std::size_t wanted) {
    rlimit limit = {};
    check(getrlimit(RLIMIT_NOFILE, &limit), "getrlimit");
    if (limit.rlim_cur >= wanted)
        return static_cast<std::size_t>(limit.rlim_cur);
    rlimit higher = {wanted, std::max<rlim_t>(limit.rlim_max, wanted)};
    if (setrlimit(RLIMIT_NOFILE, &higher) != 0) {
        higher = {std::min<rlim_t>(limit.rlim_max, wanted), limit.rlim_max};
        check(setrlimit(RLIMIT_NOFILE, &higher), "setrlimit");
    }
    return static_cast<std::size_t>(higher.rlim_cur);
}

} // namespace

void protect_memory(bool lock_memory) {
    const rlimit none = {0, 0};
    check(setrlimit(RLIMIT_CORE, &none), "cannot switch core files off");
    check(prctl(PR_SET_DUMPABLE, 0), "cannot switch tracing off");
    check(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), "cannot give up new privileges");
    if (!lock_memory)
        return;
    check(mlockall(MCL_CURRENT | MCL_FUTURE), "cannot lock memory");
}

[[gnu::noinline]] void wipe_stack() {
    uint8_t used[64 * 1024];
    explicit_bzero(used, sizeof used);
}

std::optional<uid_t> nameless_user(const std::string &uid_map) {
    constexpr uint64_t all = UINT32_MAX; // the last number is nobody's
    uint64_t named = 0;
    std::istringstream rows(uid_map);
    for (uint64_t inside, outside, count; rows >> inside >> outside >> count;)
        named += count;
    if (named >= all)
        return std::nullopt;
    uid_t overflow = 65534;
    std::ifstream("/proc/sys/kernel/overflowuid") >> overflow;
    return overflow;
}

std::optional<uid_t> nameless_user() {
    std::stringstream map;
    map << std::ifstream("/proc/self/uid_map").rdbuf();
    return nameless_user(map.str());
}

std::size_t room_for_connections(std::size_t wanted) {
    constexpr std::size_t files = 64;
    const std::size_t descriptors = raise_descriptor_limit(wanted + files);
    return std::min(wanted, descriptors - std::min(descriptors, files));
}

void drop_capabilities() {
    keep_capabilities(0);
}

void become_user(const std::string &name, bool keep_memory_lock) {
    errno = 0;
    const passwd *user = getpwnam(name.c_str());
    if (user == nullptr)
        throw std::runtime_error("there is no user " + name);
    check(prctl(PR_SET_KEEPCAPS, 1), "cannot keep a capability");
    check(setgroups(0, nullptr), "setgroups");
    check(setresgid(user->pw_gid, user->pw_gid, user->pw_gid), "setresgid");
    check(setresuid(user->pw_uid, user->pw_uid, user->pw_uid), "setresuid");
    // To lock memory, whatever the limit: what is allocated later must be locked, too.
    keep_capabilities(keep_memory_lock ? 1U << CAP_IPC_LOCK : 0);
    check(prctl(PR_SET_DUMPABLE, 0), "cannot switch tracing off"); // a change of user may set it
}
