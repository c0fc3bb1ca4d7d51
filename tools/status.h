// status.h: exit statuses, the library's statuses in words, and failures on their way to the user.
#ifndef TOOLS_STATUS_H
#define TOOLS_STATUS_H

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <qel/qel.h>

namespace tool {

// How every command ends; the numbers are part of the interface (see exit_table).
enum class Exit {
    yes = 0,
    no = 1,
    usage = 2,
    input = 3,
    no_key = 4,
    server = 5,
    pass_phrase = 6,
    output = 7,
    naming = 8,
    permission = 9,
    internal = 70
};

struct ExitRow {
    Exit exit;
    const char *meaning;
};
std::span<const ExitRow> exit_table();

// One library status: how a command that stops at it exits, what it means, what to do.
struct StatusRow {
    QelStatus status;
    const char *name;
    Exit exit;
    const char *meaning;
    const char *advice;
};
std::span<const StatusRow> status_table();
// Its meaning and advice in the user's language; in the table they are in English.
std::string meaning_of(const StatusRow &row);
std::string advice_of(const StatusRow &row);
// Null for a number that the library does not define.
const StatusRow *find_status(QelStatus status);
// By number, or by name in either case, with or without "QEL_" or "QEL_ERR_". Null if there is
// none.
const StatusRow *find_status(std::string_view number_or_name);

// "status 10 QEL_ERR_ASN1_DECODE: ASN1 Decoding error"
std::string status_words(QelStatus status);

// How a verification ends that the library answered with status: yes only for QEL_OK; no for what
// says that signature, key or algorithm are not good; else as any command that stops at it.
Exit verdict_exit(QelStatus status);

// A command cannot go on. Thrown; main prints it and exits with exit.
struct Failure {
    Exit exit = Exit::internal;
    std::string what; // what failed, on which file or name
    std::string why;
    std::string next; // what the user can do, or empty
    std::optional<QelStatus> status = std::nullopt;
};

// Standard output is gone: nothing more can be said on it.
struct OutputLost : Failure {};

// A failure of the library: exit status and, unless next is given, advice come from the table.
Failure library_failure(QelStatus status, std::string what, std::string next = "");

// A failure of a system call, told by errno.
Failure system_failure(Exit exit, std::string what, int error);

// The command line is wrong: two lines on standard error, exit status 2.
struct UsageError {
    std::string what;
    std::string command; // whose help is to be read; empty for the program's
};

} // namespace tool

#endif
