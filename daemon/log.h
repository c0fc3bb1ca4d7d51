// log.h: what a daemon says in the system log. Never a secret.
#ifndef DAEMON_LOG_H
#define DAEMON_LOG_H

#include <string_view>
#include <sys/types.h>

// Who makes a call, by the kernel's word.
struct Caller {
    uid_t uid;
    pid_t pid;
};

// Opens the log of a program; with to_terminal lines go to standard error too. subject is what calls
// are about ("key"). Both are literals.
void open_log(const char *program, const char *subject, bool to_terminal);
// The same in a process that has closed its descriptors.
void reopen_log();
void log_notice(const char *format, ...) __attribute__((format(printf, 1, 2)));
void log_error(const char *format, ...) __attribute__((format(printf, 1, 2)));

// One line about a call: what was done or refused, for whom, about what. The name is the
// caller's text: only its printable characters are written, and not too many of them. Nor can a user
// fill the log: of many lines in a short time most are left out, which is said. It does without memory.
void log_call(const Caller &caller, const char *what, std::string_view name) noexcept;

#endif
