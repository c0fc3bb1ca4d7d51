#include "program.h"

#include <cstdio>
#include <getopt.h>

#include "hardening.h"
#include "listener.h"
#include "log.h"

namespace {

constexpr int failure = 1;
constexpr int usage_error = 2;

// The options of all daemons stand around its own.
std::vector<DaemonOption> with_common_options(Daemon *daemon, std::vector<DaemonOption> own) {
    const std::string most = std::to_string(daemon->limits.connections_per_user);
    own.insert(
        own.begin(),
        {{"socket", "PATH", "where to listen (default " + daemon->socket + ")",
          [=](const char *value) { daemon->socket = value; }},
         {"user", "NAME", "who to be once started as root (default " + daemon->user + ")",
          [=](const char *value) { daemon->user = value; }},
         {"max-connections", "NUMBER", "connections of one user at a time (default " + most + ")",
          [=](const char *value) {
              daemon->limits.connections_per_user = number<std::size_t>(value);
          }}});
    own.push_back({"verbose", nullptr, "log to standard error as well",
                   [=](const char *) { daemon->verbose = true; }});
    own.push_back({"help", nullptr, "show this and end", nullptr});
    own.push_back({"version", nullptr, "show the version and end", nullptr});
    return own;
}

void print_help(const Daemon &daemon, const std::vector<DaemonOption> &options) {
    std::printf("usage: %s [options]\n%s It runs in the foreground.\n\n", daemon.name,
                daemon.purpose);
    for (const DaemonOption &row : options) {
        const std::string name =
            std::string("--") + row.name + (row.argument ? std::string(" ") + row.argument : "");
        std::printf("  %-26s %s\n", name.c_str(), row.help.c_str());
    }
}

// True when the program is to go on.
bool read_options(int argc, char **argv, Daemon *daemon, const std::vector<DaemonOption> &options) {
    std::vector<option> table;
    for (const DaemonOption &row : options)
        table.push_back({row.name, row.argument != nullptr, nullptr, 0});
    table.push_back({});
    opterr = 0;
    int row = 0;
    for (int code; (code = getopt_long(argc, argv, "", table.data(), &row)) != -1;) {
        if (code != 0)
            throw UsageError("unknown option, or one without its value");
        const DaemonOption &given = options[static_cast<std::size_t>(row)];
        if (given.take) {
            given.take(optarg);
            continue;
        }
        if (std::string_view("help") == given.name)
            print_help(*daemon, options);
        else
            std::printf("%s %s\n", daemon->name, QEL_VERSION);
        if (std::fflush(stdout) != 0)
            throw std::runtime_error("cannot write to standard output");
        return false;
    }
    if (optind < argc)
        throw UsageError(std::string("unexpected argument: ") + argv[optind]);
    return true;
}

void serve_until_stopped(Daemon *daemon, const std::function<void()> &serve) {
    daemon->stop = stop_signals();
    daemon->limits.connections = room_for_connections(daemon->limits.connections);
    daemon->limits.nameless_user = nameless_user();
    std::optional<Descriptor> passed = inherited_listener();
    const bool own = !passed;
    daemon->listener = own ? make_listener(daemon->socket) : std::move(*passed);
    daemon->path = path_of(daemon->listener);
    protect_memory(daemon->lock_memory);
    serve();
    if (own)
        unlink(daemon->path.c_str());
    log_notice("stopped");
}

} // namespace

void Daemon::become_user() const {
    if (geteuid() == 0 && user != "root")
        ::become_user(user, lock_memory);
}

int run_daemon(int argc, char **argv, Daemon *daemon, std::vector<DaemonOption> options,
               const std::function<void()> &serve) {
    try {
        options = with_common_options(daemon, std::move(options));
        if (!read_options(argc, argv, daemon, options))
            return 0;
        open_log(daemon->name, daemon->subject, daemon->verbose);
        serve_until_stopped(daemon, serve);
        return 0;
    } catch (const UsageError &error) {
        std::fprintf(stderr, "%s: %s\nTry '%s --help'.\n", daemon->name, error.what(),
                     daemon->name);
        return usage_error;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s: %s\n", daemon->name, error.what());
        log_error("ended: %s", error.what());
        return failure;
    }
}
