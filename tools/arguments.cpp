// The command line, checked against a row of the table.
#include "command.h"

#include "text.h"
#include "texts.h"

#include <algorithm>
#include <charconv>
#include <getopt.h>

namespace tool {
namespace {

constexpr int first_code = 256; // getopt_long's codes of long options, beyond every letter

std::vector<const Option *> options_of(const Command &command) {
    std::vector<const Option *> all;
    for (const Option &option : command.options)
        all.push_back(&option);
    for (const Option &option : common_options())
        all.push_back(&option);
    return all;
}

bool allowed(const std::string &choices, const std::string &value) {
    return ("|" + choices + "|").find("|" + value + "|") != std::string::npos &&
           value.find('|') == value.npos;
}

std::string words_of(std::string choices) {
    const std::size_t last = choices.rfind('|');
    if (last != choices.npos)
        choices = text_of(Text::one_or_other, {choices.substr(0, last), choices.substr(last + 1)});
    for (std::size_t at; (at = choices.find('|')) != choices.npos;)
        choices.replace(at, 1, ", ");
    return choices;
}

// What getopt_long needs to know of a command's options.
struct Grammar {
    std::vector<const Option *> options;
    std::vector<option> longs;
    std::string shorts = ":";

    explicit Grammar(const Command &command) : options(options_of(command)) {
        for (const Option *row : options) {
            const int takes = row->value != nullptr ? required_argument : no_argument;
            const int code = first_code + static_cast<int>(longs.size());
            longs.push_back({row->name, takes, nullptr, code});
            if (row->letter != 0) {
                shorts += row->letter;
                shorts += row->value != nullptr ? ":" : "";
            }
        }
        longs.push_back({nullptr, 0, nullptr, 0});
    }

    const Option *with_code(int code) const {
        for (std::size_t i = 0; i < options.size(); ++i)
            if (code == first_code + static_cast<int>(i) ||
                (code != 0 && code == options[i]->letter))
                return options[i];
        return nullptr;
    }
};

} // namespace

Arguments::Arguments(const Command &command, const std::vector<std::string> &words)
    : command_(&command) {
    const Grammar grammar(command);
    std::vector<std::string> copies = {"qel"};
    copies.insert(copies.end(), words.begin(), words.end());
    std::vector<char *> argv;
    for (std::string &word : copies)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    const int argc = static_cast<int>(copies.size());

    optind = 0;
    opterr = 0;
    int code;
    while ((code = getopt_long(argc, argv.data(), grammar.shorts.c_str(), grammar.longs.data(),
                               nullptr)) != -1) {
        if (code == ':')
            misuse(text_of(Text::option_needs_value, {grammar.with_code(optopt)->name}));
        if (code == '?') {
            const Option *known = grammar.with_code(optopt);
            if (known != nullptr)
                misuse(text_of(Text::option_takes_no_value, {known->name}));
            const std::string word = optopt != 0 ? std::string("-") + static_cast<char>(optopt)
                                                 : argv[static_cast<std::size_t>(optind - 1)];
            misuse(text_of(Text::unknown_option, {in_quotes(word)}));
        }
        take_option(*grammar.with_code(code), optarg);
    }
    operands_.assign(argv.begin() + optind, argv.begin() + argc);
    if (!wants_help())
        check();
}

void Arguments::take_option(const Option &option, const char *value) {
    const std::string text = value != nullptr ? value : "";
    if (option.choices != nullptr && !allowed(option.choices, text))
        misuse(
            text_of(Text::option_takes, {option.name, words_of(option.choices), in_quotes(text)}));
    if (option.value != nullptr && text.empty())
        misuse(text_of(Text::option_not_empty, {option.name}));
    std::vector<std::string> &given = values_[option.name];
    if (!given.empty() && option.value != nullptr && !option.repeats)
        misuse(text_of(Text::option_twice, {option.name}));
    given.push_back(text);
}

void Arguments::check() const {
    for (const Option &option : command_->options)
        if (option.required && !has(option.name))
            misuse(text_of(Text::option_is_needed, {option.name}));
    if (operands_.size() < command_->least)
        misuse(text_of(Text::too_few_arguments, {command_->operands}));
    if (operands_.size() > command_->most)
        misuse(text_of(Text::unexpected_argument, {in_quotes(operands_[command_->most])}));
    for (const std::string &operand : operands_)
        if (operand.empty())
            misuse(text_of(Text::empty_argument));
}

std::string Arguments::value(const char *option, const char *otherwise) const {
    const auto found = values_.find(option);
    return found != values_.end() ? found->second.front() : otherwise;
}

std::vector<std::string> Arguments::values(const char *option) const {
    const auto found = values_.find(option);
    return found != values_.end() ? found->second : std::vector<std::string>();
}

uint64_t Arguments::number(const char *option, uint64_t otherwise, uint64_t least,
                           uint64_t most) const {
    if (!has(option))
        return otherwise;
    const std::string text = value(option);
    uint64_t number = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    if (read.ec != std::errc() || read.ptr != text.data() + text.size() || number < least ||
        number > most)
        misuse(text_of(Text::option_takes_number,
                       {option, std::to_string(least), std::to_string(most), in_quotes(text)}));
    return number;
}

std::string Arguments::operand_or_stdin(std::size_t index) const {
    return index < operands_.size() ? operands_[index] : "-";
}

std::vector<std::string> Arguments::operands_or_stdin() const {
    return operands_.empty() ? std::vector<std::string>{"-"} : operands_;
}

void Arguments::misuse(const std::string &what) const {
    throw UsageError{what, command_->name};
}

void Arguments::check_stdin_once(const std::vector<std::string> &paths) const {
    if (std::count(paths.begin(), paths.end(), "-") > 1)
        misuse(text_of(Text::stdin_once));
}

void Arguments::check_output(const std::string &path, bool binary, bool secret) const {
    if (path != "-")
        return;
    if (secret && json())
        misuse(text_of(Text::key_not_printed));
    if (!json() && (binary || secret))
        refuse_terminal(command_->name, text_of(secret ? Text::key_not_printed : Text::binary));
}

Json Arguments::report() const {
    Json json;
    json["schema"] = 1;
    json["command"] = command_->name;
    return json;
}

void Outcome::fail(const Failure &failure) {
    print_failure(command_.name, failure);
    answer(failure.exit);
}

void Outcome::answer(Exit exit) {
    if (exit_ == Exit::yes || (exit_ == Exit::no && exit != Exit::yes))
        exit_ = exit;
}

} // namespace tool
