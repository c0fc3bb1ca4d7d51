#include "log.h"

#include <cstdarg>
#include <string>
#include <syslog.h>

namespace {

constexpr std::size_t longest_name = 64;

std::string printable(std::string_view text) {
    std::string result;
    for (const char c : text.substr(0, longest_name))
        result += c >= ' ' && c <= '~' && c != '"' ? c : '?';
    if (text.size() > longest_name)
        result += "...";
    return result;
}

} // namespace

void open_log(bool to_terminal) {
    openlog("qelserv", LOG_PID | LOG_NDELAY | (to_terminal ? LOG_PERROR : 0), LOG_AUTH);
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

void log_call(const Caller &caller, const char *what, std::string_view keyid) {
    log_notice("%s: user %u, process %d, key \"%s\"", what, caller.uid, caller.pid,
               printable(keyid).c_str());
}
