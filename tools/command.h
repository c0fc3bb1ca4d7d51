// command.h: what a command is. Every command is a row of a table in commands/, and commands.cpp
// joins these tables; the parser, help, completion and the manual pages read nothing else.
#ifndef TOOLS_COMMAND_H
#define TOOLS_COMMAND_H

#include "output.h"
#include "status.h"

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tool {

struct Option {
    const char *name;    // without its dashes
    char letter;         // of the short form, or 0
    const char *value;   // what its value is called; null for an option without one
    const char *choices; // the values that are allowed, separated by '|'; null for any
    bool required;
    const char *text;
    bool repeats = false; // may be given several times
};

struct Example {
    const char *command;
    const char *text;
};

class Arguments;

struct Command {
    const char *name;        // one word or two
    const char *summary;     // one line, without a full stop
    const char *operands;    // as the usage line shows them
    std::size_t least, most; // how many operands
    const char *description; // paragraphs, separated by empty lines
    std::span<const Option> options;
    std::span<const Example> examples;
    Exit (*run)(const Arguments &);
};

constexpr std::size_t any_type = static_cast<std::size_t>(-1);

std::span<const Command> commands();
std::span<const Option> common_options(); // every command has them
const Command *find_command(std::string_view name);

// A name of the program under which it is one command.
struct Link {
    const char *name, *command;
};
constexpr Link links[] = {{"qellogin", "login"}, {"qellogout", "logout"}};

// The command line of one command, checked against its row.
class Arguments {
public:
    // words: what follows the command's name. Throws UsageError.
    Arguments(const Command &command, const std::vector<std::string> &words);

    const Command &command() const { return *command_; }
    const std::vector<std::string> &operands() const { return operands_; }
    bool has(const char *option) const { return values_.count(option) != 0; }
    std::string value(const char *option, const char *otherwise = "") const;
    // Every value of an option that may be given several times, in order.
    std::vector<std::string> values(const char *option) const;
    // The value as a decimal number. Throws a UsageError unless it is one from least to most.
    uint64_t number(const char *option, uint64_t otherwise, uint64_t least, uint64_t most) const;
    bool json() const { return has("json"); }
    bool wants_help() const { return has("help"); }

    // The operand, or "-" (standard input) where it was left out.
    std::string operand_or_stdin(std::size_t index = 0) const;
    // All operands, or "-".
    std::vector<std::string> operands_or_stdin() const;

    // Throws a UsageError of this command.
    [[noreturn]] void misuse(const std::string &what) const;
    // At most one of these inputs may be standard input.
    void check_stdin_once(const std::vector<std::string> &paths) const;
    // A result that goes to path ("-" is standard output): no terminal gets bytes or a secret, and
    // no JSON a secret. "give '--output FILE'" is the advice.
    void check_output(const std::string &path, bool binary, bool secret) const;

    // {"schema": 1, "command": name}
    Json report() const;

private:
    void take_option(const Option &option, const char *value);
    void check() const;

    const Command *command_;
    std::vector<std::string> operands_;
    std::map<std::string, std::vector<std::string>> values_; // of options that were given
};

// Collects what failed for one of several inputs, so that the others are still worked on: prints
// each failure and keeps the first one's exit status.
class Outcome {
public:
    explicit Outcome(const Command &command) : command_(command) {}
    void fail(const Failure &failure);
    void answer(Exit exit);
    Exit exit() const { return exit_; }

private:
    const Command &command_;
    Exit exit_ = Exit::yes;
};

Exit run_digest(const Arguments &arguments);
Exit run_sign(const Arguments &arguments);
Exit run_verify(const Arguments &arguments);
Exit run_cert_show(const Arguments &arguments);
Exit run_cert_verify(const Arguments &arguments);
Exit run_cert_get(const Arguments &arguments);
Exit run_cert_set(const Arguments &arguments);
Exit run_cert_remove(const Arguments &arguments);
Exit run_cert_list(const Arguments &arguments);
Exit run_cert_chain(const Arguments &arguments);
Exit run_message_sign(const Arguments &arguments);
Exit run_message_verify(const Arguments &arguments);
Exit run_message_show(const Arguments &arguments);
Exit run_naming_status(const Arguments &arguments);
Exit run_naming_setup(const Arguments &arguments);
Exit run_naming_who(const Arguments &arguments);
Exit run_keygen(const Arguments &arguments);
Exit run_keypkg_show(const Arguments &arguments);
Exit run_keypkg_verify(const Arguments &arguments);
Exit run_keypkg_passwd(const Arguments &arguments);
Exit run_keypkg_export(const Arguments &arguments);
Exit run_keypkg_import(const Arguments &arguments);
Exit run_request_new(const Arguments &arguments);
Exit run_request_show(const Arguments &arguments);
Exit run_request_verify(const Arguments &arguments);
Exit run_issue(const Arguments &arguments);
Exit run_trust_list(const Arguments &arguments);
Exit run_trust_add(const Arguments &arguments);
Exit run_trust_delete(const Arguments &arguments);
Exit run_keypkg_get(const Arguments &arguments);
Exit run_keypkg_set(const Arguments &arguments);
Exit run_keypkg_remove(const Arguments &arguments);
Exit run_keypkg_list(const Arguments &arguments);
Exit run_dn(const Arguments &arguments);
Exit run_armor(const Arguments &arguments);
Exit run_dearmor(const Arguments &arguments);
Exit run_asn1(const Arguments &arguments);
Exit run_encrypt(const Arguments &arguments);
Exit run_decrypt(const Arguments &arguments);
Exit run_wrap(const Arguments &arguments);
Exit run_unwrap(const Arguments &arguments);
Exit run_genkey(const Arguments &arguments);
Exit run_random(const Arguments &arguments);
Exit run_login(const Arguments &arguments);
Exit run_logout(const Arguments &arguments);
Exit run_lock(const Arguments &arguments);
Exit run_status(const Arguments &arguments);
Exit run_dh_start(const Arguments &arguments);
Exit run_dh_finish(const Arguments &arguments);
Exit run_explain(const Arguments &arguments);
Exit run_help(const Arguments &arguments);
Exit run_completion(const Arguments &arguments);
Exit run_man(const Arguments &arguments);

// Help of the program (null) or of a command, of the commands that begin with a word ("cert").
std::string help_text(const Command *command);
std::string group_help(const std::string &word);

} // namespace tool

#endif
