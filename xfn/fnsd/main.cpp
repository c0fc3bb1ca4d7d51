// fnsd: changes entries of the naming database for users who may not write it themselves.
//
// It runs as a user of its own, to whom the database belongs. What reads bytes from all users of a host
// then has no rights but over this one file: whoever takes it over can forge entries, and do nothing
// else. As root it would gain nothing, since it asks for nothing that needs root.

#include "changes.h"
#include "listener.h"
#include "program.h"

#include <sys/stat.h>

namespace {

constexpr unsigned files_back_end = FN_NS_FILES;

constexpr char purpose[] =
    "Changes entries of the naming database for users who may not write it\nthemselves.";

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

void serve(const Daemon &daemon, const ChangeLimits &limits) {
    daemon.become_user();
    const std::string location = configured_location();
    const OpenStore store = open_store(location);
    Changes changes(store->store, location, limits);
    const LoopWork work = {xfn::longest_request,
                           [&changes](const Caller &caller, std::span<uint8_t> call) {
                               return changes.answer(caller, call);
                           },
                           {}};
    log_notice("started, listening at %s, for %s", daemon.path.c_str(), location.c_str());
    Loop loop(work, daemon.listener.get(), daemon.stop.get(), daemon.limits);
    notify_ready();
    loop.run();
    notify_stopping();
}

} // namespace

int main(int argc, char **argv) {
    umask(0022); // the database is there to be read
    ChangeLimits limits;
    Daemon daemon = {.name = "fnsd",
                     .subject = "entry",
                     .purpose = purpose,
                     .socket = xfn::fnsd_socket,
                     .user = "fnsd",
                     .limits = {.nameless_user = {},
                                .connections_per_user = 16,
                                .connections = 1024,
                                .bytes = std::size_t{32} << 20,
                                .patience = std::chrono::seconds(10)}};
    const DaemonOption bytes = {
        "max-entry-bytes", "NUMBER", "what an ordinary user may keep in an entry (default 4194304)",
        [&](const char *value) { limits.bytes_per_entry = number<std::size_t>(value); }};
    return run_daemon(argc, argv, &daemon, {bytes}, [&] { serve(daemon, limits); });
}
