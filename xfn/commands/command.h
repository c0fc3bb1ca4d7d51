// command.h: what the naming commands share: how they end, and their options.
#ifndef XFN_COMMAND_H
#define XFN_COMMAND_H

#include <xfn/xfn.h>

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

// Tells that the host is set up.
constexpr char presence_file[] = "/var/fn/dsv_org.ctx.dir";

// Exit statuses, as of qel(1).
enum Exit {
    done = 0,
    usage = 2,
    malformed = 3,
    output_failed = 7,
    unavailable = 8,
    permission = 9,
    internal = 70
};

struct Failure : std::runtime_error {
    Exit status;
    Failure(Exit ended, const std::string &text) : std::runtime_error(text), status(ended) {}
};
// The same with the words of errno behind it.
[[noreturn]] void fail_with_errno(const std::string &what);
// A failure in the words of a status code.
[[noreturn]] void fail_with_code(const std::string &what, unsigned code);

struct CommandLine {
    std::map<char, std::string> options;
    std::vector<std::string> arguments;
};

struct Command {
    const char *name;
    const char *options; // as getopt takes them
    const char *help;
    std::function<void(const CommandLine &)> run;
};
// Reads the command line, answers --help and --version, runs the command, and says what failed.
int run_command(const Command &command, int argc, char **argv);

#endif
