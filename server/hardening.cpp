#include "hardening.h"

#include <algorithm>
#include <cerrno>
#include <grp.h>
#include <pwd.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <system_error>
#include <unistd.h>

namespace {

void check(int result, const char *what) {
    if (result != 0)
        throw std::system_error(errno, std::generic_category(), what);
}

} // namespace

void protect_memory(bool lock_memory) {
    const rlimit none = {0, 0};
    check(setrlimit(RLIMIT_CORE, &none), "cannot switch core files off");
    check(prctl(PR_SET_DUMPABLE, 0), "cannot switch tracing off");
    check(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), "cannot give up new privileges");
    if (!lock_memory)
        return;
    // What is allocated after the change of user counts against the limit of an ordinary process.
    const rlimit unlimited = {RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_MEMLOCK, &unlimited);
    check(mlockall(MCL_CURRENT | MCL_FUTURE), "cannot lock memory");
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

void become_user(const std::string &name) {
    errno = 0;
    const passwd *user = getpwnam(name.c_str());
    if (user == nullptr)
        throw std::runtime_error("there is no user " + name);
    check(setgroups(0, nullptr), "setgroups");
    check(setresgid(user->pw_gid, user->pw_gid, user->pw_gid), "setresgid");
    check(setresuid(user->pw_uid, user->pw_uid, user->pw_uid), "setresuid");
    check(prctl(PR_SET_DUMPABLE, 0), "cannot switch tracing off"); // a change of user may set it
}
