// qel: one command over the library, with a sub-command for each piece of work.
#include "command.h"
#include "text.h"
#include "texts.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <new>
#include <unistd.h>

using namespace tool;

namespace {

// A standard descriptor that is closed would be given to the next file that is opened. The other
// direction of /dev/null takes its place, so that using it is still the error that it was.
void keep_standard_descriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) >= 0)
            continue;
        const int flags = descriptor == STDOUT_FILENO ? O_RDONLY : O_WRONLY;
        if (open("/dev/null", flags) != descriptor)
            std::_Exit(static_cast<int>(Exit::internal));
    }
}

// Distance in letters between two words, for "did you mean".
std::size_t distance(std::string_view a, std::string_view b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t corner = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t changed = corner + (a[i - 1] != b[j - 1] ? 1 : 0);
            corner = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, changed});
        }
    }
    return row[b.size()];
}

// The command whose name is nearest, or null where none is near.
const Command *nearest(const std::string &word) {
    const Command *best = nullptr;
    std::size_t least = 3;
    for (const Command &command : commands()) {
        const bool begun = std::string_view(command.name).starts_with(word);
        const std::size_t away = begun ? 0 : distance(word, command.name);
        if (away < least) {
            least = away;
            best = &command;
        }
    }
    return best;
}

std::string unknown_command(const std::string &word) {
    const Command *meant = nearest(word);
    return meant != nullptr ? text_of(Text::did_you_mean, {in_quotes(word), meant->name})
                            : text_of(Text::unknown_command, {in_quotes(word)});
}

Exit print(const std::string &text) {
    put(text);
    return Exit::yes;
}

// The command's name is one word or two; words loses it.
const Command *take_command(std::vector<std::string> &words) {
    if (words.size() >= 2) {
        if (const Command *command = find_command(words[0] + " " + words[1])) {
            words.erase(words.begin(), words.begin() + 2);
            return command;
        }
    }
    const Command *command = find_command(words[0]);
    if (command != nullptr)
        words.erase(words.begin());
    return command;
}

Exit run_command(const Arguments &arguments) {
    if (arguments.wants_help())
        return print(help_text(&arguments.command()));
    try {
        return arguments.command().run(arguments);
    } catch (const OutputLost &) {
        throw;
    } catch (const Failure &failure) {
        if (arguments.json()) {
            Json json = arguments.report();
            json["error"] = failure_json(failure);
            put_json(json);
        }
        print_failure(arguments.command().name, failure);
        return failure.exit;
    }
}

Exit run_words(std::vector<std::string> words) {
    if (words.empty())
        throw UsageError{text_of(Text::no_command), ""};
    if (words[0] == "--help" || words[0] == "-h")
        return print(help_text(nullptr));
    if (words[0] == "--version")
        return print("qel " QEL_VERSION "\n");
    if (words[0].size() > 1 && words[0][0] == '-')
        throw UsageError{text_of(Text::option_before_command, {in_quotes(words[0])}), ""};
    const std::string first = words[0];
    if (const Command *command = take_command(words))
        return run_command(Arguments(*command, words));

    const std::string members = group_help(first);
    if (members.empty())
        throw UsageError{unknown_command(first), ""};
    if (words.size() > 1 && (words[1] == "--help" || words[1] == "-h"))
        return print(members);
    throw UsageError{words.size() < 2
                         ? text_of(Text::needs_second_word, {first})
                         : text_of(Text::unknown_command, {in_quotes(first + " " + words[1])}),
                     first};
}

// Whether a command line that may be wrong asks for JSON, if by a beginning of the option.
bool asks_for_json(const std::vector<std::string> &words) {
    const auto end = std::find(words.begin(), words.end(), "--");
    return std::any_of(words.begin(), end, [](const std::string &word) {
        return word.size() > 2 && std::string_view("--json").starts_with(word);
    });
}

Exit run(const std::vector<std::string> &words) {
    if (asks_for_json(words))
        speak_english();
    try {
        return run_words(words);
    } catch (const UsageError &error) {
        const std::string &name = error.command;
        const std::string next =
            name.empty() ? text_of(Text::try_help) : text_of(Text::try_help_of, {name});
        if (asks_for_json(words)) {
            Json json;
            json["schema"] = 1;
            json["command"] = name.empty() ? Json(nullptr) : Json(name);
            json["error"] = failure_json({Exit::usage, error.what, "", next});
            put_json(json);
        }
        say("qel: " + (name.empty() ? "" : name + ": ") + error.what + "\n" + next + "\n");
        return Exit::usage;
    }
}

Exit guarded(const std::vector<std::string> &words) {
    try {
        const Exit exit = run(words);
        finish_output();
        return exit;
    } catch (const Failure &failure) {
        print_failure("", failure);
        return failure.exit;
    } catch (const std::bad_alloc &) {
        std::fputs("qel: out of memory\n", stderr);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "qel: internal failure: %s\n", printable(error.what()).c_str());
    }
    return Exit::internal;
}

// The command line; under the name of a link the command that it stands for is put first.
std::vector<std::string> words_of(int argc, char **argv) {
    std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
    const std::string_view path = argc > 0 ? argv[0] : "";
    const std::string_view name = path.substr(path.rfind('/') + 1);
    const bool version = !words.empty() && words[0] == "--version";
    for (const Link &link : links)
        if (name == link.name && !version)
            words.insert(words.begin(), link.command);
    return words;
}

} // namespace

int main(int argc, char **argv) {
    keep_standard_descriptors();
    std::signal(SIGXFSZ, SIG_IGN); // the write fails instead, and is reported
    read_locale();
    return static_cast<int>(guarded(words_of(argc, argv)));
}
