// qelserv: keeps the unlocked keys of users who have logged in, and signs and decrypts for them.

#include <sys/stat.h>

#include "listener.h"
#include "program.h"
#include "registration.h"
#include "rpc.h"

namespace {

constexpr char purpose[] =
    "The key server: keeps the unlocked keys of users who have logged in, and signs and\n"
    "decrypts for them.";

// True while there can be more news.
bool heed(Registration::News news) {
    if (news == Registration::News::registered)
        notify_ready();
    if (news == Registration::News::lost)
        log_error("nobody keeps the registration any more");
    return news != Registration::News::lost;
}

void serve(const Daemon &daemon, const ServiceLimits &limits) {
    Registration registration(daemon.path); // of root's, where root has started the server
    daemon.become_user();
    log_notice("started, listening at %s", daemon.path.c_str());
    Service service(limits); // its keys are gone before the registration is
    const LoopWork work = {longest_call,
                           [&service](const Caller &caller, std::span<uint8_t> call) {
                               return answer_call(&service, caller, call);
                           },
                           [&service] { return service.expire(); }};
    Loop loop(work, daemon.listener.get(), daemon.stop.get(), daemon.limits);
    loop.watch(registration.fd(), [&registration] { return heed(registration.news()); });
    loop.run();
    notify_stopping();
}

} // namespace

int main(int argc, char **argv) {
    umask(0077);
    ServiceLimits limits;
    Daemon daemon = {.name = "qelserv",
                     .subject = "key",
                     .purpose = purpose,
                     .socket = "/run/qelserv/socket",
                     .user = "qelserv",
                     .lock_memory = true};
    return run_daemon(
        argc, argv, &daemon,
        {{"lifetime", "SECONDS", "how long keys stay when the login does not say (0: no limit)",
          [&](const char *value) { limits.default_lifetime = number<uint32_t>(value); }},
         {"max-lifetime", "SECONDS", "how long they stay at most (0: no limit)",
          [&](const char *value) { limits.longest_lifetime = number<uint32_t>(value); }},
         {"max-entries", "NUMBER", "keys of one user at a time (default 16)",
          [&](const char *value) { limits.entries_per_user = number<std::size_t>(value); }},
         {"no-memory-lock", nullptr, "run although memory may reach a swap device",
          [&](const char *) { daemon.lock_memory = false; }}},
        [&] { serve(daemon, limits); });
}
