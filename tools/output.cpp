#include "output.h"

#include "credential.h"
#include "input.h"
#include "status.h"
#include "text.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

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

Failure cannot_write(const std::string &path, int error) {
    return system_failure(Exit::output, "cannot write " + in_quotes(path), error);
}

Failure would_replace(const std::string &path, const std::string &what, const char *next) {
    return {Exit::output, "cannot write " + in_quotes(path), what, next};
}

// Whether a file holds a private key or a key package in any form that the commands read.
bool file_holds_key(const std::string &path) {
    try {
        const Context context;
        for (const Item &item : read_input(path).items)
            if (item.encrypted || holds_private_key(context, item.bytes))
                return true;
    } catch (const Failure &) {
        // not readable, or too large: no credential
    }
    return false;
}

mode_t mode_of_new_files() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

// Writes to what is no regular file, a device or a pipe.
void write_into(const std::string &path, std::span<const uint8_t> bytes) {
    const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (file < 0)
        throw cannot_write(path, errno);
    int error = write_all(file, bytes);
    if (close(file) != 0 && error == 0)
        error = errno;
    if (error != 0)
        throw cannot_write(path, error);
}

// A file beside the one to be written, under a name of its own; removed unless it took the place.
class NewFile {
public:
    explicit NewFile(const std::string &target) : target_(target), name_(target + ".XXXXXX") {
        descriptor_ = mkostemp(name_.data(), O_CLOEXEC);
        if (descriptor_ < 0)
            throw cannot_write(target_, errno);
    }
    NewFile(const NewFile &) = delete;
    NewFile &operator=(const NewFile &) = delete;
    ~NewFile() {
        if (descriptor_ >= 0)
            close(descriptor_);
        unlink(name_.c_str());
    }

    void fill(std::span<const uint8_t> bytes, mode_t mode) {
        int error = fchmod(descriptor_, mode) != 0 ? errno : write_all(descriptor_, bytes);
        if (error == 0 && fsync(descriptor_) != 0)
            error = errno;
        if (close(std::exchange(descriptor_, -1)) != 0 && error == 0)
            error = errno;
        if (error != 0)
            throw cannot_write(target_, error);
    }

    // exclusive: only where there is no file yet. False where there is.
    bool take_place(bool exclusive) {
        if (exclusive && link(name_.c_str(), target_.c_str()) == 0)
            return true;
        if (exclusive && errno == EEXIST)
            return false;
        if (rename(name_.c_str(), target_.c_str()) != 0)
            throw cannot_write(target_, errno);
        return true;
    }

private:
    std::string target_;
    std::string name_;
    int descriptor_ = -1;
};

// What the path leads to: symbolic links are followed to the file that is there.
std::string resolved(const std::string &path) {
    const std::unique_ptr<char, decltype(&std::free)> name(realpath(path.c_str(), nullptr),
                                                           std::free);
    return name != nullptr ? name.get() : path;
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
    struct stat about;
    const bool exists = stat(path.c_str(), &about) == 0;
    if (exists && !S_ISREG(about.st_mode))
        return write_into(path, bytes);
    if (exists && !options.force && !options.secret && file_holds_key(path))
        throw would_replace(path, "it holds a private key or key package, which would be lost",
                            "Give another name, or remove that file first.");
    const mode_t mode = options.secret ? 0600 : exists ? about.st_mode & 0777 : mode_of_new_files();
    NewFile file(resolved(path));
    file.fill(bytes, mode);
    if (!file.take_place(options.secret && !options.force))
        throw would_replace(path,
                            "it exists, and it would be replaced by a private key or key package",
                            "Give another name, or --force to replace it.");
}

void refuse_terminal(const std::string &command, const std::string &why) {
    if (isatty(STDOUT_FILENO))
        throw UsageError{"standard output is a terminal: " + why, command};
}

} // namespace tool
