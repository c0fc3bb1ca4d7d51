// ctxselect: says, or shows, which back end the naming interface uses by default.

#include "command.h"
#include "config.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char help[] =
    "usage: ctxselect [files|nis|nisplus]\n"
    "Selects the back end of the naming interface, in /etc/fn.conf; without an\n"
    "argument says which is selected.\n\n"
    "  --help      show this and end\n"
    "  --version   show the version and end";

constexpr const char *back_ends[] = {"nisplus", "nis", "files"}; // by number less one

std::string read_text() {
    std::ifstream file(xfn::config_path);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool is_selection(const std::string &line) {
    std::istringstream words(line);
    std::string first;
    words >> first;
    return first == "default";
}

// What else the file says stays.
std::string with_selection(const std::string &text, const std::string &back_end) {
    std::istringstream lines(text);
    std::string result;
    for (std::string line; std::getline(lines, line);)
        if (!is_selection(line))
            result += line + "\n";
    return result + "default " + back_end + "\n";
}

bool write_all(int file, const std::string &text) {
    return write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// A reader sees the old file or the new one.
void replace_config(const std::string &text) {
    std::string fresh = std::string(xfn::config_path) + ".XXXXXX";
    const int file = mkostemp(fresh.data(), O_CLOEXEC);
    if (file < 0)
        fail_with_errno(fresh);
    const bool written = write_all(file, text) && fchmod(file, 0644) == 0 && fsync(file) == 0;
    if (!written || rename(fresh.c_str(), xfn::config_path) != 0) {
        const int error = errno;
        close(file);
        unlink(fresh.c_str());
        errno = error;
        fail_with_errno(xfn::config_path);
    }
    close(file);
}

// Programs that keep credentials ask for the files by name, whatever the default is.
void tell_of_files(const xfn::Config &config) {
    const bool reads_nis = std::strcmp(config.locations[FN_NS_FILES - 1], "nis:") == 0;
    if (!reads_nis || access(presence_file, F_OK) != 0)
        std::fprintf(stderr,
                     "ctxselect: programs that ask for the back end files, as qel does, need the "
                     "line 'files nis:' in %s, and the empty file %s\n",
                     xfn::config_path, presence_file);
}

void run(const CommandLine &line) {
    if (line.arguments.size() > 1)
        throw Failure(usage, "unexpected argument: " + line.arguments[1]);
    xfn::Config config;
    const unsigned code = xfn::read_config(xfn::config_path, &config);
    if (line.arguments.empty()) {
        if (code != FN_SUCCESS)
            fail_with_code(xfn::config_path, code);
        std::puts(back_ends[config.initial - 1]);
        return;
    }
    const std::string &wanted = line.arguments[0];
    bool known = false;
    for (const char *back_end : back_ends)
        known = known || wanted == back_end;
    if (!known)
        throw Failure(usage, "unknown back end: " + wanted);
    const std::string text = with_selection(read_text(), wanted);
    if (!xfn::parse_config(text, &config))
        throw Failure(malformed, std::string(xfn::config_path) + " is malformed");
    replace_config(text);
    if (wanted == "nis")
        tell_of_files(config);
}

} // namespace

int main(int argc, char **argv) {
    return run_command({"ctxselect", "", help, run}, argc, argv);
}
