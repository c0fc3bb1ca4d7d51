#include "log.h"

#include <cstdarg>
#include <map>
#include <string>
#include <syslog.h>

#include "clock.h"

namespace {

const char *program_name = "daemon";
const char *subject_of_calls = "subject";
int log_options = LOG_PID;
constexpr std::size_t longest_name = 64;

std::string printable(std::string_view text) {
    std::string result;
    for (const char c : text.substr(0, longest_name))
        result += c >= ' ' && c <= '~' && c != '"' ? c : '?';
    if (text.size() > longest_name)
        result += "...";
    return result;
}

constexpr std::chrono::seconds period{10};
constexpr unsigned lines_in_period = 20;
constexpr std::size_t most_users = 4096;

// What a user has had of the log in the present period.
struct Share {
    Instant begin;
    unsigned lines = 0;
};
std::map<uid_t, Share> shares;

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

void log_call(const Caller &caller, const char *what, std::string_view name) {
    if (!may_log(caller.uid))
        return;
    log_notice("%s: user %u, process %d, %s \"%s\"", what, caller.uid, caller.pid, subject_of_calls,
               printable(name).c_str());
}
