#include "output.h"

#include "credential.h"
#include "input.h"
#include "status.h"
#include "text.h"
#include "texts.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

template class nlohmann::basic_json<nlohmann::ordered_map>;

namespace tool {
namespace {

constexpr std::size_t buffered = std::size_t{64} << 10;
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
        throw OutputLost{system_failure(Exit::output, text_of(Text::cannot_write_output), error)};
}

void flush() {
    const std::string text = std::move(waiting);
    waiting.clear();
    write_through(bytes_of(text));
}

Failure cannot_write(const std::string &path, int error) {
    return system_failure(Exit::output, text_of(Text::cannot_write, {in_quotes(path)}), error);
}

Failure would_replace(const std::string &path, Text why, Text next) {
    return {Exit::output, text_of(Text::cannot_write, {in_quotes(path)}), text_of(why),
            text_of(next)};
}

Failure would_lose(const std::string &path) {
    return would_replace(path, Text::exists, Text::name_or_force);
}

// Whether a file holds a private key or a key package in any form that the commands read.
bool file_holds_key(const std::string &path) {
    try {
        const Context context;
        for (const Item &item : read_input(path).items)
            if (is_secret(context, item))
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

// The file beside another that no one will need when a signal ends the program.
char unfinished[PATH_MAX];

void lose_unfinished(int signal) {
    unlink(unfinished);
    std::signal(signal, SIG_DFL);
    raise(signal);
}

// Makes the file, whose name ends with XXXXXX. Signals wait until it is known what they lose.
int make_unfinished(std::string &name) {
    constexpr int ending[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGXCPU};
    sigset_t waiting_signals, before;
    sigemptyset(&waiting_signals);
    for (const int signal : ending)
        sigaddset(&waiting_signals, signal);
    sigprocmask(SIG_BLOCK, &waiting_signals, &before);
    const int descriptor = mkostemp(name.data(), O_CLOEXEC);
    const int error = errno;
    if (descriptor >= 0 && name.size() < sizeof unfinished) {
        std::memcpy(unfinished, name.c_str(), name.size() + 1);
        struct sigaction present;
        for (const int signal : ending)
            if (sigaction(signal, nullptr, &present) == 0 && present.sa_handler == SIG_DFL)
                std::signal(signal, lose_unfinished);
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return descriptor;
}

// What the path leads to: symbolic links are followed to the file that is there.
std::string resolved(const std::string &path) {
    const std::unique_ptr<char, decltype(&std::free)> name(realpath(path.c_str(), nullptr),
                                                           std::free);
    return name != nullptr ? name.get() : path;
}

// After a crash of the host the folder knows the new file, not the old one.
void keep_folder(const std::string &file) {
    const std::size_t slash = file.rfind('/');
    const std::string folder = slash == file.npos ? "." : file.substr(0, slash + 1);
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        return;
    fsync(descriptor); // some file systems cannot
    close(descriptor);
}

} // namespace

void put(std::string_view text) {
    waiting += text;
    if (waiting.size() >= buffered)
        flush();
}

void put_json(const Json &object) {
    put(object.dump(2, ' ', true, Json::error_handler_t::replace));
    put("\n");
}

void finish_output() {
    flush();
    if (close(STDOUT_FILENO) != 0 && errno != EBADF)
        throw OutputLost{system_failure(Exit::output, text_of(Text::cannot_write_output), errno)};
}

void say(const std::string &text) {
    flush();
    std::fputs(text.c_str(), stderr);
}

void warn(const std::string &text) {
    say(text_of(Text::warning, {text}) + "\n");
}

void print_failure(const std::string &command, const Failure &failure) {
    const std::string prefix = command.empty() ? "qel: " : "qel: " + command + ": ";
    std::string text =
        prefix + failure.what + (failure.why.empty() ? "" : ": ") + failure.why + "\n";
    if (!failure.next.empty())
        text += prefix + failure.next + "\n";
    say(text);
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

Output::Output(const std::string &path, const FileOptions &options)
    : path_(path), options_(options) {
    if (path == "-") {
        flush();
        return;
    }
    struct stat about;
    const bool exists = stat(path.c_str(), &about) == 0;
    if (exists && !S_ISREG(about.st_mode)) {
        descriptor_ = open(path.c_str(), O_WRONLY | O_CLOEXEC);
        if (descriptor_ < 0)
            throw cannot_write(path, errno);
        if (options.secret && isatty(descriptor_))
            throw would_replace(path, Text::is_terminal, Text::give_file);
        return;
    }
    if (exists && keeps_old())
        throw would_lose(path);
    if (exists && !options.force && file_holds_key(path))
        throw would_replace(path, Text::holds_key, Text::name_or_remove);
    const bool narrow = options.secret || (options.owner_only && !exists);
    const mode_t mode = narrow ? 0600 : exists ? about.st_mode & 0777 : mode_of_new_files();
    target_ = resolved(path);
    temporary_ = target_ + ".XXXXXX";
    descriptor_ = make_unfinished(temporary_);
    if (descriptor_ < 0)
        throw cannot_write(path, errno);
    const bool foreign = exists && options.keep_owner && about.st_uid != geteuid();
    if ((foreign && fchown(descriptor_, about.st_uid, about.st_gid) != 0) ||
        fchmod(descriptor_, mode) != 0) {
        const int error = errno;
        unlink(temporary_.c_str());
        close(descriptor_);
        throw cannot_write(path, error);
    }
}

Output::~Output() {
    if (descriptor_ >= 0)
        close(descriptor_);
    if (!temporary_.empty())
        unlink(temporary_.c_str());
    unfinished[0] = 0;
}

void Output::write(std::span<const uint8_t> bytes) {
    written_ += bytes.size();
    if (path_ == "-")
        return write_through(bytes);
    if (const int error = write_all(descriptor_, bytes); error != 0)
        throw cannot_write(path_, error);
}

void Output::finish() {
    if (path_ == "-")
        return;
    int error = !temporary_.empty() && fsync(descriptor_) != 0 ? errno : 0;
    if (close(std::exchange(descriptor_, -1)) != 0 && error == 0)
        error = errno;
    if (error != 0)
        throw cannot_write(path_, error);
    if (temporary_.empty())
        return;
    take_place();
    keep_folder(target_);
}

void Output::take_place() {
    if (keeps_old() && link(temporary_.c_str(), target_.c_str()) == 0)
        return; // the other name goes with this
    if (keeps_old() && errno == EEXIST)
        throw would_lose(path_);
    if (rename(temporary_.c_str(), target_.c_str()) != 0)
        throw cannot_write(path_, errno);
    temporary_.clear();
}

void write_file(const std::string &path, std::span<const uint8_t> bytes,
                const FileOptions &options) {
    Output output(path, options);
    output.write(bytes);
    output.finish();
}

void refuse_existing(const std::string &path, bool force) {
    struct stat about;
    if (path != "-" && !force && stat(path.c_str(), &about) == 0 && S_ISREG(about.st_mode))
        throw would_lose(path);
}

void refuse_terminal(const std::string &command, const std::string &why) {
    if (isatty(STDOUT_FILENO))
        throw UsageError{text_of(Text::output_is_terminal, {why}), command};
}

} // namespace tool
