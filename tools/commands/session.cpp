// login, logout, lock, status
#include "table.h"

namespace tool {
namespace {

#define USER                                                                                       \
    { "user", 'u', "NAME", nullptr, false, "another user's, for the super-user" }

constexpr Option login_options[] = {
    package_id_option,
    {"repo", 'r', "REPO", "file|naming", false,
     "where your own package is: file, or naming (default: file, if there is one)"},
    {"lifetime", 'l', "TIME", nullptr, false,
     "how long the key stays: seconds, or 30m, 8h, 2d (default: the server's)"},
    {"usage", 0, "USAGE", "both|sign|decrypt", false,
     "what it may be used for (default: what the key package says)"},
    {"host", 0, "ADDRESS", nullptr, false,
     "host address under which programs look for it (default 0.0.0.0)"},
    passin_option,
    max_iterations_option,
};
constexpr Example login_examples[] = {
    {"qel login", "with your own key package, until you log out"},
    {"qel login --lifetime 8h --usage sign alice.KEYPKG", "for a day's work, for signing only"},
};

constexpr Option logout_options[] = {
    {"id", 0, "KEYPKGID", nullptr, false, "which key, where there are several"},
    {"all", 'a', nullptr, nullptr, false, "all keys"},
    USER,
};
constexpr Example logout_examples[] = {
    {"qel logout", "the key is gone"},
    {"qel logout --all --user alice", "root ends another user's logins"},
};

constexpr Option lock_options[] = {USER};
constexpr Example lock_examples[] = {{"qel lock", "until the next 'qel login'"}};

constexpr Option status_options[] = {
    {"all", 'a', nullptr, nullptr, false, "everybody's, for the super-user"},
    USER,
};
constexpr Example status_examples[] = {
    {"qel status", "your keys at the key server"},
    {"qel status --json", "for another program"},
};

#undef USER

constexpr Command session_table[] = {
    {"login", "Log in: hand your key to the key server", "[FILE]", 0, 1,
     "Unlocks a key package, by default your own in its file or else in the naming service, with "
     "its pass phrase, and hands the private key to the key server of this host. Until you log "
     "out, or the key's time is over, your programs sign and unwrap there without key or pass "
     "phrase: 'qel sign', 'qel unwrap' and 'qel decrypt' where no --key is given. A key that was "
     "locked is unlocked; one that is logged in already is refused, so log out first to change "
     "how.\n\n"
     "The key is registered for you as the system knows you, under the key package's identifier. "
     "The server must run as root or as the user qelserv. It takes private keys of up to 1024 "
     "bytes, which is about 1600 bits. 'qellogin' is the same command." PASS_PHRASES,
     login_options, login_examples, run_login},
    {"logout", "Log out: take your key from the key server", "", 0, 0,
     "Has the key server forget a key and its key package. 'qellogout' is the same command.",
     logout_options, logout_examples, run_logout},
    {"lock", "Lock your keys at the key server", "", 0, 0,
     "Has the key server forget your private keys and keep your key packages, for instance while "
     "you are away. 'qel login' unlocks them again.",
     lock_options, lock_examples, run_lock},
    {"status", "Tell what the key server holds", "", 0, 0,
     "Lists your keys at the key server: identifier, usage, time that is left, whether locked. "
     "Exits 0 if one can be used, 4 if none, 5 if the key server is out of reach.",
     status_options, status_examples, run_status},
};

} // namespace

std::span<const Command> session_commands() {
    return session_table;
}

} // namespace tool
