#include "pass_phrase.h"

#include "text.h"
#include "texts.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {
namespace {

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() {
        if (number_ >= 0)
            close(number_);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    operator int() const { return number_; }

private:
    int number_;
};

// A process that dies with a pass phrase or a private key in its memory leaves none of it on disk.
void forbid_core_dumps() {
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
}

// One line without its end, which is a line feed, a carriage return and a line feed, or the end of
// the data. Byte by byte: the next line may be another's.
Bytes read_line(int descriptor, const std::string &from) {
    Bytes line;
    line.reserve(longest_phrase + 2);
    for (;;) {
        uint8_t byte = 0;
        const ssize_t count = read(descriptor, &byte, 1);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throw system_failure(Exit::input, text_of(Text::cannot_read_phrase, {from}), errno);
        if (count == 0 || byte == '\n')
            break;
        if (line.size() > longest_phrase)
            break;
        line.push_back(byte);
        explicit_bzero(&byte, 1);
    }
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return line;
}

Bytes read_file_line(const std::string &path) {
    const std::string from = in_quotes(path);
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat about;
    if (file < 0 || fstat(file, &about) != 0)
        throw system_failure(Exit::input, text_of(Text::cannot_read_phrase, {from}), errno);
    if ((about.st_mode & 077) != 0) {
        char mode[8];
        std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(about.st_mode & 07777));
        throw Failure{Exit::permission, text_of(Text::cannot_use_phrase_in, {from}),
                      text_of(Text::file_open_to_others, {mode}), text_of(Text::change_phrase)};
    }
    return read_line(file, from);
}

Bytes take_variable(const std::string &name) {
    char *value = std::getenv(name.c_str());
    if (value == nullptr)
        throw Failure{Exit::input, text_of(Text::cannot_read_phrase_environment),
                      text_of(Text::no_variable, {in_quotes(name)}),
                      text_of(Text::export_variable)};
    const std::size_t size = std::strlen(value);
    const Bytes text(value, value + size);
    explicit_bzero(value, size);
    return text;
}

bool read_number(std::string_view text, int &number) {
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    return read.ec == std::errc() && read.ptr == text.data() + text.size() && number >= 0;
}

} // namespace

PassPhraseSource::PassPhraseSource(const Arguments &arguments, const char *option, int kind)
    : arguments_(arguments), option_(option), phrase_(kind) {
    const std::string value = arguments.value(option, "prompt");
    const std::size_t colon = std::min(value.find(':'), value.size());
    const std::string_view scheme = std::string_view(value).substr(0, colon);
    name_ = value.substr(std::min(colon + 1, value.size()));
    if (value == "prompt") {
        if (arguments.has("batch"))
            arguments.misuse(text_of(Text::batch_needs_source, {option}));
    } else if (scheme == "fd" && read_number(name_, descriptor_)) {
        kind_ = Kind::descriptor;
    } else if (scheme == "file" && !name_.empty() && name_ != "-") {
        kind_ = Kind::file;
    } else if (scheme == "env" && !name_.empty() && name_.find('=') == name_.npos) {
        kind_ = Kind::environment;
    } else {
        // The value is not repeated: it may be the phrase itself.
        arguments.misuse(text_of(Text::option_takes_source, {option}));
    }
}

std::string phrase_path(const Arguments &arguments, const char *option) {
    const std::string value = arguments.value(option);
    int descriptor = -1;
    return value.starts_with("fd:") && read_number(value.substr(3), descriptor) &&
                   descriptor == STDIN_FILENO
               ? "-"
               : "";
}

PassPhrase PassPhraseSource::read() const {
    forbid_core_dumps();
    switch (kind_) {
    case Kind::descriptor: {
        const std::string from = text_of(Text::descriptor, {std::to_string(descriptor_)});
        return accept(read_line(descriptor_, from), from);
    }
    case Kind::file:
        return accept(read_file_line(name_), in_quotes(name_));
    case Kind::environment:
        return accept(take_variable(name_), text_of(Text::variable, {in_quotes(name_)}));
    default:
        return ask();
    }
}

PassPhrase PassPhraseSource::ask() const {
    if (Descriptor(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)) < 0)
        arguments_.misuse(text_of(Text::no_terminal, {option_}));
    char *phrase = nullptr;
    const QelStatus status = __qel_get_encryption_phrase("qel", phrase_, &phrase);
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::no_phrase));
    const std::size_t size = std::strlen(phrase);
    const Bytes text(phrase, phrase + size);
    explicit_bzero(phrase, size);
    std::free(phrase);
    return accept(text, text_of(Text::the_terminal));
}

PassPhrase PassPhraseSource::accept(Bytes text, const std::string &from) const {
    const std::string what = text_of(Text::cannot_use_phrase_from, {from});
    if (text.empty())
        throw Failure{Exit::pass_phrase, what, text_of(Text::phrase_is_empty),
                      text_of(Text::first_line)};
    if (std::find(text.begin(), text.end(), 0) != text.end())
        throw Failure{Exit::input, what, text_of(Text::holds_zero), text_of(Text::give_text)};
    const bool fresh = phrase_ == QEL_PHRASE_NEW || phrase_ == QEL_PHRASE_PACKAGES;
    const std::size_t most = fresh ? longest_typed : longest_phrase;
    if (text.size() > most)
        throw Failure{Exit::input, what,
                      text_of(fresh ? Text::phrase_too_long_to_type : Text::phrase_too_long,
                              {std::to_string(most)}),
                      text_of(Text::give_shorter)};
    return PassPhrase(std::move(text));
}

} // namespace tool
