// fnsd: changes entries of the naming database for users who may not write it themselves.
//
// It runs as a user of its own, to whom the database belongs. What reads bytes from all users of a host
// then has no rights but over this one file: whoever takes it over can forge entries, and do nothing
// else. As root it would gain nothing, since it asks for nothing that needs root.

#include "changes.h"
#include "hardening.h"
#include "listener.h"
#include "loop.h"

#include <charconv>
#include <cstdio>
#include <exception>
#include <getopt.h>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int usage_error = 2;
constexpr unsigned files_back_end = FN_NS_FILES;

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Options {
    std::string socket = xfn::fnsd_socket;
    std::string user = "fnsd";
    LoopLimits loop = {.nameless_user = nameless_user(),
                       .connections_per_user = 16,
                       .connections = 1024,
                       .bytes = std::size_t{32} << 20,
                       .patience = std::chrono::seconds(10)};
    ChangeLimits changes;
    bool verbose = false;
};

constexpr option option_table[] = {{"socket", required_argument, nullptr, 's'},
                                   {"user", required_argument, nullptr, 'u'},
                                   {"max-connections", required_argument, nullptr, 'c'},
                                   {"max-entry-bytes", required_argument, nullptr, 'b'},
                                   {"verbose", no_argument, nullptr, 'v'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {"version", no_argument, nullptr, 'V'},
                                   {}};

constexpr const char *help =
    "usage: fnsd [options]\n"
    "Changes entries of the naming database for users who may not write it themselves. It runs\n"
    "in the foreground.\n\n"
    "  --socket PATH              where to listen (default /run/fnsd/socket)\n"
    "  --user NAME                who to be once started as root (default fnsd)\n"
    "  --max-connections NUMBER   connections of one user at a time (default 16)\n"
    "  --max-entry-bytes NUMBER   what an ordinary user may keep in an entry (default 4194304)\n"
    "  --verbose                  log to standard error as well\n"
    "  --help                     show this and end\n"
    "  --version                  show the version and end";

std::size_t number(const char *text) {
    std::size_t value = 0;
    const std::string_view view = text;
    const auto [end, error] = std::from_chars(view.data(), view.data() + view.size(), value);
    if (error != std::errc() || end != view.data() + view.size())
        throw UsageError(std::string("not a number: ") + text);
    return value;
}

// True when the program is to go on.
bool read_options(int argc, char **argv, Options *options) {
    opterr = 0;
    for (int code; (code = getopt_long(argc, argv, "", option_table, nullptr)) != -1;) {
        switch (code) {
        case 's':
            options->socket = optarg;
            break;
        case 'u':
            options->user = optarg;
            break;
        case 'c':
            options->loop.connections_per_user = number(optarg);
            break;
        case 'b':
            options->changes.bytes_per_entry = number(optarg);
            break;
        case 'v':
            options->verbose = true;
            break;
        case 'h':
            std::puts(help);
            return false;
        case 'V':
            std::puts("fnsd " QEL_VERSION);
            return false;
        default:
            throw UsageError("unknown option, or one without its value");
        }
    }
    if (optind < argc)
        throw UsageError(std::string("unexpected argument: ") + argv[optind]);
    return true;
}

std::string configured_location() {
    xfn::Config config;
    if (xfn::read_config(xfn::config_path, &config) != FN_SUCCESS)
        throw std::runtime_error(std::string("cannot make sense of ") + xfn::config_path);
    return config.locations[files_back_end - 1];
}

struct Release {
    void operator()(xfn::SharedStore *shared) const { xfn::release_store(shared); }
};
using OpenStore = std::unique_ptr<xfn::SharedStore, Release>;

OpenStore open_store(const std::string &location) {
    xfn::SharedStore *shared = nullptr;
    if (xfn::use_store(location.c_str(), &shared) != FN_SUCCESS)
        throw std::runtime_error("cannot open " + location);
    OpenStore store(shared);
    // An interrupted change of another process is taken back now, before anybody reads.
    const unsigned found =
        store->store->operations->lookup(store->store, {xfn::Area::users, "root"});
    if (found != FN_SUCCESS && found != FN_E_NAME_NOT_FOUND)
        log_error("%s cannot be read yet (status %u); see ctxcreate(8)", location.c_str(), found);
    else if (!store->store->operations->writable(store->store))
        log_error("%s is not ours to change", location.c_str());
    return store;
}

int serve(Options options) {
    umask(0022); // the database is there to be read
    const Descriptor stop = stop_signals();
    options.loop.connections = room_for_connections(options.loop.connections);
    std::optional<Descriptor> passed = inherited_listener();
    const bool own = !passed;
    const Descriptor listener = own ? make_listener(options.socket) : std::move(*passed);
    protect_memory(false);
    if (geteuid() == 0 && options.user != "root")
        become_user(options.user, false);
    const std::string location = configured_location();
    const OpenStore store = open_store(location);
    Changes changes(store->store, location, options.changes);
    const LoopWork work = {xfn::longest_request,
                           [&changes](const Caller &caller, std::span<uint8_t> call) {
                               return changes.answer(caller, call);
                           },
                           {}};
    log_notice("started, listening at %s, for %s", path_of(listener).c_str(), location.c_str());
    Loop loop(work, listener.get(), stop.get(), options.loop);
    notify_ready();
    loop.run();
    notify_stopping();
    if (own)
        unlink(options.socket.c_str());
    log_notice("stopped");
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    try {
        Options options;
        if (!read_options(argc, argv, &options))
            return 0;
        open_log("fnsd", "entry", options.verbose);
        return serve(std::move(options));
    } catch (const UsageError &error) {
        std::fprintf(stderr, "fnsd: %s\nTry 'fnsd --help'.\n", error.what());
        return usage_error;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "fnsd: %s\n", error.what());
        log_error("ended: %s", error.what());
        return 1;
    }
}
