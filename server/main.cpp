// qelserv: keeps the unlocked keys of users who have logged in, and signs and decrypts for them.

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <exception>
#include <getopt.h>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "hardening.h"
#include "listener.h"
#include "loop.h"
#include "registration.h"
#include "rpc.h"

namespace {

constexpr int usage_error = 2;
constexpr const char *default_socket = "/run/qelserv/socket";

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Options {
    std::string socket = default_socket;
    std::string user = "qelserv";
    ServiceLimits service;
    LoopLimits loop;
    bool lock_memory = true;
    bool verbose = false;
};

enum OptionCode {
    help_option = 1,
    version_option,
    socket_option,
    user_option,
    lifetime_option,
    max_lifetime_option,
    max_entries_option,
    max_connections_option,
    no_lock_option,
    verbose_option
};

struct OptionRow {
    const char *name;
    const char *argument; // or null
    OptionCode code;
    const char *help;
};

constexpr OptionRow option_rows[] = {
    {"socket", "PATH", socket_option, "where to listen (default /run/qelserv/socket)"},
    {"user", "NAME", user_option, "who to be once started as root (default qelserv)"},
    {"lifetime", "SECONDS", lifetime_option,
     "how long keys stay when the login does not say (0: no limit)"},
    {"max-lifetime", "SECONDS", max_lifetime_option, "how long they stay at most (0: no limit)"},
    {"max-entries", "NUMBER", max_entries_option, "keys of one user at a time (default 16)"},
    {"max-connections", "NUMBER", max_connections_option,
     "connections of one user at a time (default 64)"},
    {"no-memory-lock", nullptr, no_lock_option, "run although memory may reach a swap device"},
    {"verbose", nullptr, verbose_option, "log to standard error as well"},
    {"help", nullptr, help_option, "show this and end"},
    {"version", nullptr, version_option, "show the version and end"},
};

void print_help() {
    std::puts("usage: qelserv [options]\n"
              "The key server: keeps the unlocked keys of users who have logged in, and signs and\n"
              "decrypts for them. It runs in the foreground.\n");
    for (const OptionRow &row : option_rows) {
        const std::string name =
            std::string("--") + row.name + (row.argument ? std::string(" ") + row.argument : "");
        std::printf("  %-26s %s\n", name.c_str(), row.help);
    }
}

template <class Number> Number number(const char *text) {
    Number value = 0;
    const std::string_view view = text;
    const auto [end, error] = std::from_chars(view.data(), view.data() + view.size(), value);
    if (error != std::errc() || end != view.data() + view.size())
        throw UsageError(std::string("not a number: ") + text);
    return value;
}

// True when the program is to go on.
bool read_options(int argc, char **argv, Options *options) {
    option table[std::size(option_rows) + 1] = {};
    std::transform(std::begin(option_rows), std::end(option_rows), table, [](const OptionRow &row) {
        return option{row.name, row.argument != nullptr, nullptr, row.code};
    });
    opterr = 0;
    for (int code; (code = getopt_long(argc, argv, "", table, nullptr)) != -1;) {
        switch (code) {
        case help_option:
            print_help();
            return false;
        case version_option:
            std::puts("qelserv " QEL_VERSION);
            return false;
        case socket_option:
            options->socket = optarg;
            break;
        case user_option:
            options->user = optarg;
            break;
        case lifetime_option:
            options->service.default_lifetime = number<uint32_t>(optarg);
            break;
        case max_lifetime_option:
            options->service.longest_lifetime = number<uint32_t>(optarg);
            break;
        case max_entries_option:
            options->service.entries_per_user = number<std::size_t>(optarg);
            break;
        case max_connections_option:
            options->loop.connections_per_user = number<std::size_t>(optarg);
            break;
        case no_lock_option:
            options->lock_memory = false;
            break;
        case verbose_option:
            options->verbose = true;
            break;
        default:
            throw UsageError("unknown option, or one without its value");
        }
    }
    if (optind < argc)
        throw UsageError(std::string("unexpected argument: ") + argv[optind]);
    return true;
}

// True while there can be more news.
bool heed(Registration::News news) {
    if (news == Registration::News::registered)
        notify_ready();
    if (news == Registration::News::lost)
        log_error("nobody keeps the registration any more");
    return news != Registration::News::lost;
}

int serve(Options options) {
    umask(0077);
    const Descriptor stop = stop_signals();
    options.loop.connections = room_for_connections(options.loop.connections);
    options.loop.nameless_user = nameless_user();
    std::optional<Descriptor> passed = inherited_listener();
    const bool own = !passed;
    const Descriptor listener = own ? make_listener(options.socket) : std::move(*passed);
    const std::string path = path_of(listener);
    protect_memory(options.lock_memory);
    {
        Registration registration(path); // of root's, where root has started the server
        if (geteuid() == 0 && options.user != "root")
            become_user(options.user, options.lock_memory);
        log_notice("started, listening at %s", path.c_str());
        Service service(options.service); // its keys are gone before the registration is
        const LoopWork work = {longest_call,
                               [&service](const Caller &caller, std::span<uint8_t> call) {
                                   return answer_call(&service, caller, call);
                               },
                               [&service] { return service.expire(); }};
        Loop loop(work, listener.get(), stop.get(), options.loop);
        loop.watch(registration.fd(), [&registration] { return heed(registration.news()); });
        loop.run();
        notify_stopping();
    }
    if (own)
        unlink(path.c_str());
    log_notice("stopped");
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    try {
        Options options;
        if (!read_options(argc, argv, &options))
            return 0;
        open_log("qelserv", "key", options.verbose);
        return serve(std::move(options));
    } catch (const UsageError &error) {
        std::fprintf(stderr, "qelserv: %s\nTry 'qelserv --help'.\n", error.what());
        return usage_error;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "qelserv: %s\n", error.what());
        log_error("ended: %s", error.what());
        return 1;
    }
}
