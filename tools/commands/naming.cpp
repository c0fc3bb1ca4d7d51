// naming status, setup, who
#include "table.h"

namespace tool {
namespace {

constexpr Example naming_status_examples[] = {
    {"qel naming status", "the naming service, and your own entry and the host's in it"},
    {"qel naming status 10.0.0.5", "what it holds of another host"},
};
constexpr Example naming_setup_examples[] = {
    {"qel naming setup", "once on a new host, as the super-user"},
};
constexpr Example naming_who_examples[] = {
    {"qel naming who 'CN=Alice, O=Acme, C=US'", "prints alice"},
};

constexpr Command naming_table[] = {
    {"naming status",
     "Tell the state of the naming service",
     "[NAME]",
     0,
     1,
     "Tells whether the naming service is there, and what it holds: of a user (alice or "
     "user/alice), of a host, by its address or its name (10.0.0.5, host/mars), or of a global "
     "name (.../C=US/O=Acme). Without a name, of you and this host. Exits 0 if there is an entry "
     "(without a name: yours), 1 if not, 8 if there is no naming service.",
     {},
     naming_status_examples,
     run_naming_status},
    {"naming setup",
     "Set up the naming service of this host",
     "",
     0,
     0,
     "Makes the naming service's store on this host, if it is not there, with ctxselect and "
     "ctxcreate.",
     {},
     naming_setup_examples,
     run_naming_setup},
    {"naming who",
     "Find whose a distinguished name is",
     "NAME",
     1,
     1,
     "Prints the login name of the user, or the address of the host, that is registered in the "
     "naming service under a distinguished name.",
     {},
     naming_who_examples,
     run_naming_who},
};

} // namespace

std::span<const Command> naming_commands() {
    return naming_table;
}

} // namespace tool
