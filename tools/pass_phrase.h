// pass_phrase.h: pass phrases, from the terminal or from where an option says.
#ifndef TOOLS_PASS_PHRASE_H
#define TOOLS_PASS_PHRASE_H

#include "command.h"
#include "input.h"

#include <string>

#include <qel/qelp.h>

namespace tool {

// A pass phrase, never empty. Its bytes are zeroed when it goes.
class PassPhrase {
public:
    // text is what stands before the NUL.
    explicit PassPhrase(Bytes text) : text_(std::move(text)) { text_.push_back(0); }
    const char *text() const { return reinterpret_cast<const char *>(text_.data()); }
    std::size_t size() const { return text_.size() - 1; }

private:
    Bytes text_;
};

// Where an option says that a pass phrase is to come from:
//
//   prompt       the terminal, without echo; also where the option is left out
//   fd:N         the next line of an open descriptor; what follows the line is left there
//   file:PATH    the first line of a file that only its owner can open
//   env:NAME     an environment variable, which is zeroed once it was read
//
// One source gives one phrase. No source falls back on another.
class PassPhraseSource {
public:
    // Checks the option's value, so that a mistake is told before any work is done: throws UsageError
    // where it is none of the above, and with --batch where it is the terminal.
    //   option  name of the option, without dashes.
    //   kind    which phrase the user is asked for: QEL_PHRASE_...; QEL_PHRASE_NEW asks twice.
    PassPhraseSource(const Arguments &arguments, const char *option, int kind);

    // Throws Failure: Exit::pass_phrase for an empty phrase, and for two that differ;
    // Exit::permission for a file that is open to others; Exit::input where none can be read.
    // Throws UsageError where there is no terminal.
    PassPhrase read() const;

private:
    PassPhrase ask() const;
    PassPhrase accept(Bytes text, const std::string &from) const;

    enum class Kind { prompt, descriptor, file, environment };
    const Arguments &arguments_;
    const char *option_;
    int phrase_;
    Kind kind_ = Kind::prompt;
    int descriptor_ = -1;
    std::string name_; // of the file or the variable
};

// "-" where an option says that its phrase comes from standard input, for
// Arguments::check_stdin_once; else empty.
std::string phrase_path(const Arguments &arguments, const char *option);

// The longest phrase that can be typed at the terminal, in bytes. A new one must not be longer.
constexpr std::size_t longest_typed = 100;
// The longest phrase that any source gives.
constexpr std::size_t longest_phrase = 1023;

} // namespace tool

#endif
