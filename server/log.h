// log.h: what the key server says in the system log. Never a secret.
#ifndef SERVER_LOG_H
#define SERVER_LOG_H

#include <string_view>
#include <sys/types.h>

// Who makes a call, by the kernel's word.
struct Caller {
    uid_t uid;
    pid_t pid;
};

// Opens the log; with to_terminal lines go to standard error too.
void open_log(bool to_terminal);
void log_notice(const char *format, ...) __attribute__((format(printf, 1, 2)));
void log_error(const char *format, ...) __attribute__((format(printf, 1, 2)));

// One line about a call: what was done or refused, for whom, about which key. The key identifier is the
// caller's text: only its printable characters are written, and not too many of them. Nor can a user
// fill the log: of many lines in a short time most are left out, which is said.
void log_call(const Caller &caller, const char *what, std::string_view keyid);

#endif
