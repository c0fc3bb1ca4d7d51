// explain, help, completion, man
#include "table.h"

namespace tool {
namespace {

constexpr Example explain_examples[] = {
    {"qel explain 43", "by number"},
    {"qel explain key_expired", "by name"},
};
constexpr Example help_examples[] = {{"qel help cert verify", "help of one command"}};
constexpr Example completion_examples[] = {
    {". <(qel completion bash)", "completion in this shell"},
};

constexpr Option man_options[] = {
    {"directory", 'd', "FOLDER", nullptr, false, "write every page into a folder"},
};
constexpr Example man_examples[] = {
    {"qel man sign | man -l -", "one page"},
    {"qel man --directory man", "all pages, as files"},
};

constexpr Command program_table[] = {
    {"explain",
     "Explain a status of the library",
     "[CODE]...",
     0,
     any_type,
     "Tells, for a number or a name with or without QEL_ERR_, what a status means and what to do. "
     "Without a code it lists them all.",
     {},
     explain_examples,
     run_explain},
    {"help",
     "Print help",
     "[COMMAND]...",
     0,
     2,
     "Prints the list of commands, or one command's help.",
     {},
     help_examples,
     run_help},
    {"completion",
     "Print a shell's completion script",
     "bash",
     1,
     1,
     "Prints a script that completes commands, options and their values.",
     {},
     completion_examples,
     run_completion},
    {"man", "Print manual pages", "[COMMAND]...", 0, 2,
     "Prints the manual page of the program or of a command, as roff.", man_options, man_examples,
     run_man},
};

} // namespace

std::span<const Command> program_commands() {
    return program_table;
}

} // namespace tool
