// Help, completion and manual pages, all from the table of commands.
#include "command.h"

#include "text.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>

namespace tool {
namespace {

constexpr std::size_t line_width = 80;

// Text in lines of at most line_width characters, each after indent blanks.
std::string wrapped(std::string_view text, std::size_t indent) {
    std::string result, line(indent, ' ');
    std::size_t words = 0;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find_first_of(" \n"), text.size());
        const std::string_view word = text.substr(0, end);
        const bool paragraph = text.substr(end).starts_with("\n");
        if (words != 0 && line.size() + 1 + word.size() > line_width) {
            result += line + "\n";
            line.assign(indent, ' ');
            words = 0;
        }
        if (!word.empty())
            line += (words++ != 0 ? " " : "") + std::string(word);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (paragraph || text.empty()) {
            result += words != 0 ? line + "\n" : "\n";
            line.assign(indent, ' ');
            words = 0;
        }
    }
    return result;
}

std::string padded(std::string text, std::size_t width) {
    text.resize(std::max(width, text.size() + 1), ' ');
    return text;
}

// "-k, --key FILE"
std::string option_words(const Option &option) {
    std::string text = option.letter != 0 ? std::string("-") + option.letter + ", " : "    ";
    text += std::string("--") + option.name;
    if (option.value != nullptr)
        text += std::string(" ") + option.value;
    return text;
}

std::string option_lines(std::span<const Option> options) {
    std::string text;
    for (const Option &option : options)
        text += "  " + padded(option_words(option), 26) + option.text + "\n";
    return text;
}

std::string usage_of(const Command &command) {
    std::string text = std::string("qel ") + command.name;
    for (const Option &option : command.options)
        if (option.required)
            text += std::string(" --") + option.name + " " + option.value;
    text += " [OPTION]...";
    return *command.operands != 0 ? text + " " + command.operands : text;
}

std::string command_line(const Command &command) {
    return "  " + padded(command.name, 16) + command.summary + "\n";
}

std::string exit_lines() {
    std::string text;
    for (const ExitRow &row : exit_table())
        text += "  " + padded(std::to_string(static_cast<int>(row.exit)), 5) + row.meaning + "\n";
    return text;
}

std::string program_help() {
    std::string text =
        "Usage: qel COMMAND [OPTION]... [ARGUMENT]...\n\n"
        "Digests, signatures, encryption, keys, certificates and their encodings.\n\nCommands:\n";
    for (const Command &command : commands())
        text += command_line(command);
    text += "\nOptions of every command:\n" + option_lines(common_options());
    text += "\nA file named - is standard input or standard output; -- ends the options.\n\n"
            "Exit status:\n" +
            exit_lines();
    return text + "\n'qel help COMMAND' tells more about a command.\n";
}

std::string joined(const std::vector<std::string> &words) {
    std::string text;
    for (const std::string &word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

// Prints text, or the same as the one member of the report.
Exit deliver(const Arguments &arguments, const std::string &text) {
    if (!arguments.json()) {
        put(text);
        return Exit::yes;
    }
    Json json = arguments.report();
    json["text"] = text;
    put_json(json);
    return Exit::yes;
}

} // namespace

std::string help_text(const Command *command) {
    if (command == nullptr)
        return program_help();
    std::string text = "Usage: " + usage_of(*command) + "\n\n" + command->summary + ".\n\n" +
                       wrapped(command->description, 0);
    if (!command->options.empty())
        text += "\nOptions:\n" + option_lines(command->options);
    text += "\nOptions of every command:\n" + option_lines(common_options()) + "\nExamples:\n";
    for (const Example &example : command->examples)
        text += std::string("  ") + example.command + "\n      " + example.text + "\n";
    return text;
}

std::string group_help(const std::string &word) {
    std::string text;
    for (const Command &command : commands())
        if (std::string_view(command.name).starts_with(word + " "))
            text += command_line(command);
    return text.empty() ? "" : "Commands:\n" + text;
}

Exit run_help(const Arguments &arguments) {
    const std::string name = joined(arguments.operands());
    const Command *command = find_command(name);
    const std::string members = name.empty() || command != nullptr ? "" : group_help(name);
    if (!name.empty() && command == nullptr && members.empty())
        throw UsageError{"unknown command " + in_quotes(name), ""};
    return deliver(arguments, members.empty() ? help_text(command) : members);
}

// ---- Manual pages ------------------------------------------------------------------------------

namespace {

// Text of a manual page: nothing in it is taken for a request.
std::string roff(std::string_view text) {
    std::string result;
    bool line_start = true;
    for (const char c : text) {
        if (line_start && (c == '.' || c == '\''))
            result += "\\&";
        if (c == '\\')
            result += "\\e";
        else if (c == '-')
            result += "\\-";
        else
            result += c;
        line_start = c == '\n';
    }
    return result;
}

std::string paragraphs(std::string_view text) {
    std::string result;
    for (;;) {
        const std::size_t end = text.find("\n\n");
        result += ".PP\n" + roff(text.substr(0, end)) + "\n";
        if (end == text.npos)
            return result;
        text.remove_prefix(end + 2);
    }
}

std::string roff_options(std::span<const Option> options) {
    std::string text;
    for (const Option &option : options) {
        std::string words = option_words(option);
        words.erase(0, words.find_first_not_of(' '));
        text += ".TP\n.B " + roff(words) + "\n" + roff(option.text) + ".\n";
    }
    return text;
}

std::string page_name(const Command *command) {
    std::string name = command != nullptr ? std::string("qel-") + command->name : "qel";
    std::replace(name.begin(), name.end(), ' ', '-');
    return name;
}

std::string page_head(const Command *command, const char *summary) {
    std::string title = page_name(command);
    std::transform(title.begin(), title.end(), title.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
    return ".TH " + roff(title) + " 1 \"\" \"qel " QEL_VERSION "\" \"User Commands\"\n.SH NAME\n" +
           roff(page_name(command)) + " \\- " + roff(summary) + "\n.SH SYNOPSIS\n.B ";
}

std::string exit_section() {
    std::string text = ".SH EXIT STATUS\n";
    for (const ExitRow &row : exit_table())
        text += ".TP\n.B " + std::to_string(static_cast<int>(row.exit)) + "\n" + roff(row.meaning) +
                ".\n";
    return text;
}

std::string command_page(const Command &command) {
    std::string text = page_head(&command, command.summary) + roff(usage_of(command)) +
                       "\n.SH DESCRIPTION\n" + paragraphs(command.description);
    text += ".SH OPTIONS\n" + roff_options(command.options) + roff_options(common_options());
    text += ".SH EXAMPLES\n";
    for (const Example &example : command.examples)
        text += ".TP\n.B " + roff(example.command) + "\n" + roff(example.text) + ".\n";
    return text + exit_section() + ".SH SEE ALSO\n.BR qel (1),\n.BR qelserv (8)\n";
}

std::string program_page() {
    std::string text =
        page_head(nullptr,
                  "digests, signatures, encryption, keys, certificates and their encodings") +
        "qel\nCOMMAND [OPTION]... [ARGUMENT]...\n.SH COMMANDS\n";
    for (const Command &command : commands())
        text += ".TP\n.BR " + roff(page_name(&command)) + " (1)\n" + roff(command.summary) + ".\n";
    text += ".SH OPTIONS\n" + roff_options(common_options()) +
            ".TP\n.B \\-\\-version\nprint the version.\n.PP\nA file named \\- is standard input or "
            "standard output; \\-\\- ends the options.\n";
    text +=
        ".SH OUTPUT\n.PP\nData goes to standard output, words about it to standard error. "
        "Names and texts from outside are escaped: control characters and characters that "
        "hide others appear as \\exNN or \\eu{N}.\n.PP\nWith \\-\\-json the output is one "
        "object: \"schema\" is 1, times are RFC 3339 in UTC, and \"error\" holds what failed, "
        "why, the next step, and the library's status by number, name and text. Standard output has "
        "room for that object or for data, not for both: name a file with "
        "\\-\\-output.\n";
    return text + exit_section();
}

std::string page(const Command *command) {
    return command != nullptr ? command_page(*command) : program_page();
}

} // namespace

Exit run_man(const Arguments &arguments) {
    const std::string name = joined(arguments.operands());
    if (!arguments.has("directory")) {
        const Command *command = find_command(name);
        if (!name.empty() && command == nullptr)
            throw UsageError{"unknown command " + in_quotes(name), "man"};
        return deliver(arguments, page(command));
    }
    if (!name.empty())
        arguments.misuse("--directory writes every page; no command is named with it");
    const std::string folder = arguments.value("directory");
    std::vector<std::string> files;
    const auto write_page = [&](const Command *command) {
        files.push_back(folder + "/" + page_name(command) + ".1");
        write_file(files.back(), bytes_of(page(command)));
    };
    write_page(nullptr);
    for (const Command &command : commands())
        write_page(&command);
    for (const Link &link : links) {
        files.push_back(folder + "/" + link.name + ".1");
        write_file(files.back(),
                   bytes_of(".so man1/" + page_name(find_command(link.command)) + ".1\n"));
    }
    if (arguments.json()) {
        Json json = arguments.report();
        json["files"] = files;
        put_json(json);
    }
    return Exit::yes;
}

// ---- Completion --------------------------------------------------------------------------------

namespace {

std::string blanks_for_bars(std::string choices) {
    std::replace(choices.begin(), choices.end(), '|', ' ');
    return choices;
}

// First words of all commands, or second words of those that begin with first.
std::string completion_words(const std::string &first) {
    std::string text, last;
    for (const Command &command : commands()) {
        const std::string name = command.name;
        const std::size_t blank = name.find(' ');
        if (!first.empty() && (blank == name.npos || name.substr(0, blank) != first))
            continue;
        const std::string word = first.empty() ? name.substr(0, blank) : name.substr(blank + 1);
        if (word != last)
            text += (text.empty() ? "" : " ") + word;
        last = word;
    }
    return text;
}

std::string completion_case(const Command &command) {
    std::string options, text = std::string("    '") + command.name + "')\n        case $prev in\n";
    for (const auto &list : {command.options, common_options()})
        for (const Option &option : list) {
            options += std::string(options.empty() ? "" : " ") + "--" + option.name;
            if (option.choices == nullptr)
                continue;
            text += std::string("        --") + option.name;
            if (option.letter != 0)
                text += std::string("|-") + option.letter;
            text += ") words='" + blanks_for_bars(option.choices) + "' ;;\n";
        }
    return text + "        *) words='" + options + "' ;;\n        esac ;;\n";
}

std::string bash_completion() {
    std::string groups, cases;
    for (const Command &command : commands()) {
        const std::string name = command.name;
        const std::string first = name.substr(0, name.find(' '));
        if (first != name && groups.find("'" + first + "'") == groups.npos)
            groups += "    '" + first + "') words='" + completion_words(first) + "' ;;\n";
        cases += completion_case(command);
    }
    return "_qel() {\n"
           "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} words= name\n"
           "    COMPREPLY=()\n"
           "    if ((COMP_CWORD == 1)); then\n"
           "        COMPREPLY=($(compgen -W '" +
           completion_words("") +
           "' -- \"$cur\"))\n        return\n    fi\n"
           "    name=${COMP_WORDS[1]}\n"
           "    if ((COMP_CWORD == 2)); then\n        case $name in\n" +
           groups +
           "        esac\n        if [[ $words ]]; then\n"
           "            COMPREPLY=($(compgen -W \"$words\" -- \"$cur\"))\n            return\n"
           "        fi\n    else\n        case \"$name ${COMP_WORDS[2]}\" in\n        " +
           [] {
               std::string names;
               for (const Command &command : commands())
                   if (std::string_view(command.name).find(' ') != std::string_view::npos)
                       names += (names.empty() ? "'" : "|'") + std::string(command.name) + "'";
               return names;
           }() +
           ") name=\"$name ${COMP_WORDS[2]}\" ;;\n        esac\n    fi\n"
           "    case $name in\n" +
           cases +
           "    esac\n"
           "    if [[ $cur == -* || $words != --* ]]; then\n"
           "        COMPREPLY=($(compgen -W \"$words\" -- \"$cur\"))\n"
           "    else\n        mapfile -t COMPREPLY < <(compgen -f -- \"$cur\")\n    fi\n}\n"
           "complete -o filenames -F _qel qel\n";
}

} // namespace

Exit run_completion(const Arguments &arguments) {
    const std::string &shell = arguments.operands()[0];
    if (shell != "bash")
        arguments.misuse("there is completion for bash only, not for " + in_quotes(shell));
    return deliver(arguments, bash_completion());
}

} // namespace tool
