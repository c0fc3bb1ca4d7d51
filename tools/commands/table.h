// table.h: the commands' rows, group by group, and what several of them share.
#ifndef TOOLS_COMMANDS_TABLE_H
#define TOOLS_COMMANDS_TABLE_H

#include "command.h"

namespace tool {

std::span<const Command> session_commands();
std::span<const Command> signature_commands();
std::span<const Command> encryption_commands();
std::span<const Command> certificate_commands();
std::span<const Command> naming_commands();
std::span<const Command> key_package_commands();
std::span<const Command> request_commands();
std::span<const Command> trust_commands();
std::span<const Command> stored_package_commands();
std::span<const Command> message_commands();
std::span<const Command> encoding_commands();
std::span<const Command> program_commands();

inline constexpr Option algorithm_option = {
    "algorithm", 'a', "NAME", "md2|md5", false, "message digest: md2 or md5 (default md5)"};

// Options of commands that unlock key packages.
inline constexpr Option passin_option = {
    "passin", 0,     "SOURCE",
    nullptr,  false, "the pass phrase: fd:N, file:PATH, env:NAME or prompt (default)"};
inline constexpr Option max_iterations_option = {
    "max-iterations", 0,     "N",
    nullptr,          false, "most work that a pass phrase may cost (default 50000000)"};
inline constexpr Option package_id_option = {
    "id", 0, "KEYPKGID", nullptr, false, "which key package, where there are several"};

// What those commands say.
#define PASS_PHRASES                                                                               \
    "\n\nThe pass phrase of a key package comes from the terminal (prompt), from the next line "   \
    "of an open descriptor (fd:N), from the first line of a file that only its owner can open "    \
    "(file:PATH), or from an environment variable (env:NAME)."

} // namespace tool

#endif
