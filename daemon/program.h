// program.h: a daemon as a program: its command line, how it comes to serve, and how it ends.
#ifndef DAEMON_PROGRAM_H
#define DAEMON_PROGRAM_H

#include <charconv>
#include <stdexcept>

#include "loop.h"

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The value of an option. Throws UsageError.
template <class Number> Number number(const std::string &text) {
    Number value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size())
        throw UsageError("not a number: " + text);
    return value;
}

struct DaemonOption {
    const char *name;
    const char *argument; // or null
    std::string help;
    std::function<void(const char *value)> take;
};

struct Daemon {
    const char *name;
    const char *subject; // of calls, in the log
    const char *purpose; // for --help
    std::string socket;  // where to listen, unless the service manager passes a socket
    std::string user;    // who to be once started as root
    LoopLimits limits = {};
    bool lock_memory = false;
    bool verbose = false;

    // What serving finds; the path is that of the listener.
    Descriptor stop = Descriptor(), listener = Descriptor();
    std::string path = {};

    // Gives up what root may do, for good. Throws as the function of that name in hardening.h.
    void become_user() const;
};

// Reads options, those of all daemons and the given ones, into the daemon; opens log and listener,
// protects the memory, and lets it serve until it is stopped. Returns what main returns: what serve
// throws is told and logged.
int run_daemon(int argc, char **argv, Daemon *daemon, std::vector<DaemonOption> options,
               const std::function<void()> &serve);

#endif
