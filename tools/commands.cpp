// The table of commands: the groups in the order in which help names them.
#include "command.h"

#include "commands/table.h"

namespace tool {
namespace {

constexpr std::span<const Command> (*groups[])() = {
    session_commands,        signature_commands,   encryption_commands, certificate_commands,
    naming_commands,         key_package_commands, request_commands,    trust_commands,
    stored_package_commands, message_commands,     encoding_commands,   program_commands,
};

std::vector<Command> joined() {
    std::vector<Command> all;
    for (const auto group : groups)
        all.insert(all.end(), group().begin(), group().end());
    return all;
}

constexpr Option common[] = {
    {"json", 0, nullptr, nullptr, false, "print one JSON object"},
    {"batch", 0, nullptr, nullptr, false, "never prompt; fail instead"},
    {"help", 'h', nullptr, nullptr, false, "print this help"},
};

} // namespace

std::span<const Command> commands() {
    static const std::vector<Command> all = joined();
    return all;
}

std::span<const Option> common_options() {
    return common;
}

const Command *find_command(std::string_view name) {
    for (const Command &command : commands())
        if (name == command.name)
            return &command;
    return nullptr;
}

} // namespace tool
