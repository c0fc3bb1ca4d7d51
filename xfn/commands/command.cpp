#include "command.h"

#include "objects.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <getopt.h>

namespace {

Exit exit_of_errno(int error) {
    return error == EACCES || error == EPERM || error == EROFS ? permission : output_failed;
}

Exit exit_of_code(unsigned code) {
    switch (code) {
    case FN_E_CTX_NO_PERMISSION:
        return permission;
    case FN_E_CONFIGURATION_ERROR:
        return malformed;
    default:
        return unavailable;
    }
}

// False: the command has been answered.
bool read_line(const Command &command, int argc, char **argv, CommandLine *line) {
    constexpr option table[] = {
        {"help", no_argument, nullptr, 1}, {"version", no_argument, nullptr, 2}, {}};
    opterr = 0;
    for (int code; (code = getopt_long(argc, argv, command.options, table, nullptr)) != -1;) {
        if (code == 1) {
            std::puts(command.help);
            return false;
        }
        if (code == 2) {
            std::printf("%s %s\n", command.name, QEL_VERSION);
            return false;
        }
        if (code == '?')
            throw Failure(usage, "unknown option, or one without its value");
        line->options[static_cast<char>(code)] = optarg != nullptr ? optarg : "";
    }
    line->arguments.assign(argv + optind, argv + argc);
    return true;
}

} // namespace

void fail_with_errno(const std::string &what) {
    const int error = errno;
    throw Failure(exit_of_errno(error), what + ": " + std::strerror(error));
}

void fail_with_code(const std::string &what, unsigned code) {
    const xfn::Object<FN_status_t, fn_status_destroy> status(fn_status_create());
    fn_status_set_code(status.get(), code);
    const xfn::String text(fn_status_description(status.get(), 0, nullptr));
    throw Failure(exit_of_code(code),
                  what + ": " + (text != nullptr ? text->bytes : "no memory") +
                      (code == FN_E_CONFIGURATION_ERROR ? " (see /etc/fn.conf)" : ""));
}

int run_command(const Command &command, int argc, char **argv) {
    Exit status = done;
    try {
        CommandLine line;
        if (read_line(command, argc, argv, &line))
            command.run(line);
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
            throw Failure(output_failed, "cannot write to standard output");
    } catch (const Failure &failure) {
        std::fprintf(stderr, "%s: %s\n", command.name, failure.what());
        status = failure.status;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s: %s\n", command.name, error.what());
        status = internal;
    }
    if (status == usage)
        std::fprintf(stderr, "Try '%s --help'.\n", command.name);
    return status;
}
