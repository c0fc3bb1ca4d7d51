#include "log.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <map>
#include <new>
#include <syslog.h>

#include "clock.h"

namespace {

const char *program_name = "daemon";
const char *subject_of_calls = "subject";
int log_options = LOG_PID;
constexpr std::size_t longest_name = 64;

// Room for a name that is cut, for what says so, and for the end.
struct Printable {
    char text[longest_name + sizeof "..."] = {};

    explicit Printable(std::string_view name) {
        const std::string_view shown = name.substr(0, longest_name);
        std::transform(shown.begin(), shown.end(), text,
                       [](char c) { return c >= ' ' && c <= '~' && c != '"' ? c : '?'; });
        if (shown.size() < name.size())
            std::strcpy(text + shown.size(), "...");
    }
};

constexpr std::chrono::seconds period{10};
constexpr unsigned lines_in_period = 20;
constexpr std::size_t most_users = 4096;

// What a user has had of the log in the present period.
struct Share {
    Instant begin;
    unsigned lines = 0;
};
std::map<uid_t, Share> shares;

// Counts a line about a user.
bool may_log(uid_t uid) {
    if (shares.size() >= most_users && !shares.contains(uid))
        shares.clear();
    const Instant now = BootClock::now();
    Share &share = shares[uid];
    if (now - share.begin >= period) {
        if (share.lines > lines_in_period)
            log_notice("left out: %u lines about user %u", share.lines - lines_in_period, uid);
        share = {now, 0};
    }
    return ++share.lines <= lines_in_period;
}

} // namespace

void open_log(const char *program, const char *subject, bool to_terminal) {
    program_name = program;
    subject_of_calls = subject;
    log_options = LOG_PID | LOG_NDELAY | (to_terminal ? LOG_PERROR : 0);
    openlog(program, log_options, LOG_AUTH);
}

void reopen_log() {
    closelog();
    openlog(program_name, log_options, LOG_AUTH);
}

void log_notice(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vsyslog(LOG_NOTICE, format, arguments);
    va_end(arguments);
}

void log_error(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vsyslog(LOG_ERR, format, arguments);
    va_end(arguments);
}

void log_call(const Caller &caller, const char *what, std::string_view name) noexcept {
    try {
        if (!may_log(caller.uid))
            return;
    } catch (const std::bad_alloc &) { // a line too many is better than none
    }
    log_notice("%s: user %u, process %d, %s \"%s\"", what, caller.uid, caller.pid, subject_of_calls,
               Printable(name).text);
}
