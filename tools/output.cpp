#include "output.h"

#include "status.h"
#include "text.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {
namespace {

constexpr std::size_t kBuffered = std::size_t{64} << 10;
std::string waiting; // for standard output

// 0, or the error of the write that failed.
int write_all(int descriptor, std::span<const uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(descriptor, bytes.data(), bytes.size());
        if (count >= 0)
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        else if (errno != EINTR)
            return errno;
    }
    return 0;
}

// Past the buffer, which keeps no copy of what may be secret.
void write_through(std::span<const uint8_t> bytes) {
    if (const int error = write_all(STDOUT_FILENO, bytes); error != 0)
        throw OutputLost{system_failure(Exit::output, "cannot write to standard output", error)};
}

void flush() {
    const std::string text = std::move(waiting);
    waiting.clear();
    write_through(bytes_of(text));
}

int open_for_writing(const std::string &path, const FileOptions &options) {
    const int exclusive = options.secret && !options.force ? O_EXCL : O_TRUNC;
    const mode_t mode = options.secret ? 0600 : 0666;
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | exclusive, mode);
    if (file >= 0)
        return file;
    if (errno == EEXIST)
        throw Failure{Exit::output, "cannot write " + in_quotes(path),
                      "it exists, and it would be replaced by a private key or key package",
                      "Give another name, or --force to replace it."};
    throw system_failure(Exit::output, "cannot write " + in_quotes(path), errno);
}

} // namespace

void put(std::string_view text) {
    waiting += text;
    if (waiting.size() >= kBuffered)
        flush();
}

void put_json(const Json &object) {
    put(object.dump(2, ' ', true, Json::error_handler_t::replace));
    put("\n");
}

void finish_output() {
    flush();
    if (close(STDOUT_FILENO) != 0 && errno != EBADF)
        throw OutputLost{system_failure(Exit::output, "cannot write to standard output", errno)};
}

void warn(const std::string &text) {
    std::fprintf(stderr, "qel: warning: %s\n", text.c_str());
}

void print_failure(const std::string &command, const Failure &failure) {
    const std::string prefix = command.empty() ? "qel: " : "qel: " + command + ": ";
    std::fprintf(stderr, "%s%s%s%s\n", prefix.c_str(), failure.what.c_str(),
                 failure.why.empty() ? "" : ": ", failure.why.c_str());
    if (!failure.next.empty())
        std::fprintf(stderr, "%s%s\n", prefix.c_str(), failure.next.c_str());
}

Json status_json(QelStatus status) {
    const StatusRow *row = find_status(status);
    Json json;
    json["number"] = status;
    json["name"] = row != nullptr ? Json(row->name) : Json(nullptr);
    json["text"] = utf8_or_latin1(qel_strerror(nullptr, status));
    return json;
}

Json failure_json(const Failure &failure) {
    Json json;
    json["exit_status"] = static_cast<int>(failure.exit);
    json["what"] = failure.what;
    json["why"] = failure.why;
    json["next_step"] = failure.next;
    if (failure.status)
        json["status"] = status_json(*failure.status);
    return json;
}

void write_file(const std::string &path, std::span<const uint8_t> bytes,
                const FileOptions &options) {
    if (path == "-") {
        flush();
        write_through(bytes);
        return;
    }
    const int file = open_for_writing(path, options);
    struct stat about;
    const bool regular = fstat(file, &about) == 0 && S_ISREG(about.st_mode);
    int error = options.secret && regular && fchmod(file, 0600) != 0 ? errno : 0;
    if (error == 0)
        error = write_all(file, bytes);
    if (close(file) != 0 && error == 0)
        error = errno;
    if (error == 0)
        return;
    if (regular)
        unlink(path.c_str());
    throw system_failure(Exit::output, "cannot write " + in_quotes(path), error);
}

void refuse_terminal(const std::string &command, const std::string &why) {
    if (isatty(STDOUT_FILENO))
        throw UsageError{"standard output is a terminal: " + why, command};
}

} // namespace tool
