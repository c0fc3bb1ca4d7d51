// trust list, add, delete
#include "table.h"

namespace tool {
namespace {

constexpr Option trust_list_options[] = {
    {"full", 'f', nullptr, nullptr, false, "show every field"},
    package_id_option,
};
constexpr Example trust_list_examples[] = {
    {"qel trust list", "the keys that your own key package trusts"},
};

constexpr Option trust_add_options[] = {
    {"cert", 'c', "FILE", nullptr, true, "certificates whose keys to trust; repeatable", true},
    package_id_option,
    passin_option,
    max_iterations_option,
};
constexpr Example trust_add_examples[] = {
    {"qel trust add --cert root.pem", "in your own key package"},
};

constexpr Option trust_delete_options[] = {
    {"subject", 's', "NAME", nullptr, false, "every key of this owner"},
    {"issuer", 'i', "NAME", nullptr, false, "the key from the certificate of this issuer..."},
    {"serial", 0, "HEX", nullptr, false,
     "...with this serial number, as 'qel trust list' shows it"},
    package_id_option,
    passin_option,
    max_iterations_option,
};
constexpr Example trust_delete_examples[] = {
    {"qel trust delete --subject 'CN=Root, O=Acme'", "by its owner"},
    {"qel trust delete --issuer 'CN=Root, O=Acme' --serial 01", "by its certificate"},
};

constexpr Command trust_table[] = {
    {"trust list", "List the keys that a key package trusts", "[FILE]", 0, 1,
     "Shows the trusted keys of a key package, by default your own. --full adds what the library's "
     "printer makes of them.",
     trust_list_options, trust_list_examples, run_trust_list},
    {"trust add", "Trust the keys of certificates", "[FILE]", 0, 1,
     "Enters the keys of certificates into a key package, by default your own, with subject, "
     "issuer, serial number and validity, and signs the package again with its own key. All are "
     "entered, or none: a key of the same subject that is there already is refused. The "
     "certificates are not verified: look at 'qel cert show' and compare the fingerprints "
     "first." PASS_PHRASES,
     trust_add_options, trust_add_examples, run_trust_add},
    {"trust delete", "Trust a key no more", "[FILE]", 0, 1,
     "Removes trusted keys from a key package, by default your own: all of a subject, or the one "
     "of an issuer and serial number; with both options, what either names. The package is signed "
     "again with its own key. Exits 1 if there is no such key." PASS_PHRASES,
     trust_delete_options, trust_delete_examples, run_trust_delete},
};

} // namespace

std::span<const Command> trust_commands() {
    return trust_table;
}

} // namespace tool
