// output.h: standard output, files that are written, JSON, and words on standard error.
#ifndef TOOLS_OUTPUT_H
#define TOOLS_OUTPUT_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include <qel/qel.h>

extern template class nlohmann::basic_json<nlohmann::ordered_map>; // in output.cpp

namespace tool {

struct Failure;

using Json = nlohmann::ordered_json; // members stay in the order in which they were set

// Standard output, buffered. Every write that fails throws Failure, Exit::output.
void put(std::string_view text);
// Writes what is buffered and closes standard output; must be called before the program says yes.
void finish_output();
// One JSON object, in ASCII, as the whole of the output.
void put_json(const Json &object);

// Words on standard error, behind everything that was put before: where both lead to one terminal
// or file, they stand in order. text is safe to print.
void say(const std::string &text);
// "qel: warning: ..."
void warn(const std::string &text);
// "qel: COMMAND: what: why" and the next step.
void print_failure(const std::string &command, const Failure &failure);

// {"number": 10, "name": "QEL_ERR_ASN1_DECODE", "text": "..."}
Json status_json(QelStatus status);
// The failure as the value of "error".
Json failure_json(const Failure &failure);

struct FileOptions {
    bool secret = false;     // create with mode 0600, and refuse to overwrite
    bool force = false;      // overwrite all the same
    bool fresh = false;      // refuse to overwrite
    bool owner_only = false; // create with mode 0600
    // The new file belongs to whom the old one belonged: root may change what is another's.
    bool keep_owner = false;
};
// A file that is written piece by piece; "-" is standard output. The file takes its place only when
// it is complete: a write that fails, a signal that ends the program, or an Output that goes without
// finish leaves what was there, and nothing else.
// What goes to standard output, a device or a pipe goes at once. A file that holds a private key or
// key package is replaced with force only. Throws Failure.
class Output {
public:
    explicit Output(const std::string &path, const FileOptions &options = {});
    ~Output();
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    void write(std::span<const uint8_t> bytes);
    void finish();
    uint64_t written() const { return written_; }

private:
    bool keeps_old() const { return (options_.secret || options_.fresh) && !options_.force; }
    void take_place();

    std::string path_;
    FileOptions options_;
    std::string target_;    // the file that path leads to
    std::string temporary_; // the file beside it, or empty
    int descriptor_ = -1;
    uint64_t written_ = 0;
};

// Writes a whole file, as an Output does.
void write_file(const std::string &path, std::span<const uint8_t> bytes,
                const FileOptions &options = {});
// Tells, before any work is done, that path cannot be written without force: a file is there.
void refuse_existing(const std::string &path, bool force);
// Throws UsageError where standard output is a terminal. why names the option to give instead.
void refuse_terminal(const std::string &command, const std::string &why);

inline std::span<const uint8_t> bytes_of(std::string_view text) {
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

} // namespace tool

#endif
