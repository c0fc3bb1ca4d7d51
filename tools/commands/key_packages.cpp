// keygen; keypkg show, verify, passwd, export, import, get, list, set, remove
#include "table.h"

namespace tool {
namespace {

constexpr Option owner_option = {"owner", 0,    "NAME",
                                 nullptr, true, "distinguished name of the key's owner"};
constexpr Option new_id_option = {
    "id", 0, "KEYPKGID", nullptr, false, "the package's identifier (default default_keyid)"};
constexpr Option usage_option = {
    "usage", 0, "USAGE", "both|sign|decrypt", false, "what the key may do (default both)"};
constexpr Option trust_option = {
    "trust", 0, "CERT", nullptr, false, "trust the keys of a file of certificates; may be repeated",
    true};
constexpr Option package_output_option = {
    "output", 'o', "FILE", nullptr, false, "where the package goes (default your own file)"};
constexpr Option add_option = {"add",   0,     nullptr,
                               nullptr, false, "keep the packages that the file holds"};
constexpr Option force_add_option = {
    "force", 0,     nullptr,
    nullptr, false, "replace the file; with --add, the package of the same identifier"};
constexpr Option iterations_option = {
    "iterations", 0,     "N",
    nullptr,      false, "what a guess at the pass phrase costs (default: 0.25 seconds)"};

constexpr Option keygen_options[] = {
    {"bits", 'b', "N", nullptr, false, "size of the modulus (default 512)"},
    {"exponent", 'e', "N", nullptr, false, "public exponent (default 65537)"},
    owner_option,
    new_id_option,
    usage_option,
    trust_option,
    package_output_option,
    add_option,
    force_add_option,
    passin_option,
    iterations_option,
};
constexpr Example keygen_examples[] = {
    {"qel keygen --owner 'CN=Alice, O=Acme, C=US'", "a key pair into your own key-package file"},
    {"qel keygen --owner 'CN=Host' --trust root.pem --passin fd:3 -o host.KEYPKG 3< phrase",
     "without a terminal"},
};

constexpr Option keypkg_show_options[] = {
    package_id_option,
    {"full", 'f', nullptr, nullptr, false, "show every field"},
};
constexpr Example keypkg_show_examples[] = {
    {"qel keypkg show", "your own key packages"},
    {"qel keypkg show --json alice.KEYPKG", "for another program"},
};

constexpr Option keypkg_verify_options[] = {
    package_id_option,
    {"passin", 0, "SOURCE", nullptr, false,
     "unlock the package, too: fd:N, file:PATH, env:NAME or prompt"},
    max_iterations_option,
};
constexpr Example keypkg_verify_examples[] = {
    {"qel keypkg verify alice.KEYPKG", "its signature"},
    {"qel keypkg verify --passin prompt", "that your pass phrase opens your own"},
};

constexpr Option keypkg_passwd_options[] = {
    package_id_option,
    passin_option,
    {"new-passin", 0, "SOURCE", nullptr, false, "the new pass phrase (default prompt)"},
    max_iterations_option,
    {"output", 'o', "FILE", nullptr, false, "write the package there, not in its place"},
    {"force", 0, nullptr, nullptr, false, "replace the file named with --output"},
};
constexpr Example keypkg_passwd_examples[] = {
    {"qel keypkg passwd", "asks for the old pass phrase, and twice for the new one"},
    {"qel keypkg passwd --passin fd:3 --new-passin fd:3 alice.KEYPKG 3< both",
     "from the two lines of a file"},
};

constexpr Option keypkg_export_options[] = {
    {"output", 'o', "FILE", nullptr, true, "where the key goes"},
    {"public", 0, nullptr, nullptr, false, "the public key"},
    {"unencrypted", 0, nullptr, nullptr, false, "the private key, and yes: without a pass phrase"},
    {"form", 0, "FORM", "der|pem", false, "der or pem (default der)"},
    package_id_option,
    passin_option,
    max_iterations_option,
    {"force", 0, nullptr, nullptr, false, "overwrite a file"},
};
constexpr Example keypkg_export_examples[] = {
    {"qel keypkg export --public --form pem -o alice.pub", "for those who encrypt to you"},
    {"qel keypkg export --unencrypted -o alice.p8", "your key, for a program that takes PKCS#8"},
};

constexpr Option keypkg_import_options[] = {
    owner_option, new_id_option,    usage_option,  trust_option,     package_output_option,
    add_option,   force_add_option, passin_option, iterations_option};
constexpr Example keypkg_import_examples[] = {
    {"qel keypkg import --owner 'CN=Alice' -o alice.KEYPKG alice.p8", "a key made elsewhere"},
};

// ---- in repositories ---------------------------------------------------------------------------

constexpr Option stored_package_id_option = {
    "id", 0, "KEYPKGID", nullptr, false, "which key package (default default_keyid)"};
constexpr Option package_get_repo_option = {
    "repo", 'r',
    "REPO", "naming|file|server|default",
    false,  "where it is: naming (if not said), file, server, or default (your own file)"};
constexpr Option package_set_repo_option = {
    "repo",
    'r',
    "REPO",
    "naming|file|server|default",
    false,
    "where: naming (if not said), file, default (your own file), or server (naming, and the key "
    "server kept in step)"};
constexpr Option keypkg_get_options[] = {
    package_get_repo_option,
    stored_package_id_option,
    {"output", 'o', "FILE", nullptr, true, "where the package goes"},
    add_option,
    force_add_option,
};
constexpr Example keypkg_get_examples[] = {
    {"qel keypkg get -o my.KEYPKG", "your own, from the naming service"},
    {"qel keypkg get --repo server -o my.KEYPKG", "the one that you are logged in with"},
};

constexpr Option keypkg_list_options[] = {package_get_repo_option};
constexpr Example keypkg_list_examples[] = {
    {"qel keypkg list", "your own in the naming service"},
    {"qel keypkg list bob", "another user's"},
};

constexpr Option keypkg_set_options[] = {
    package_set_repo_option,
    package_id_option,
    {"to", 't', "NAME", nullptr, false, "user (default you) or file"},
};
constexpr Example keypkg_set_examples[] = {
    {"qel keypkg set alice.KEYPKG", "into your own entry of the naming service"},
    {"qel keypkg set --to 10.0.0.5 host.KEYPKG", "into a host's, as the super-user"},
};

constexpr Option keypkg_remove_options[] = {package_set_repo_option, stored_package_id_option};
constexpr Example keypkg_remove_examples[] = {
    {"qel keypkg remove", "your own from the naming service"},
    {"qel keypkg remove --repo file old.KEYPKG", "from a file, which goes when it is empty"},
};

constexpr Command key_package_table[] = {
    {"keygen", "Generate an RSA key pair into a new key package", "", 0, 0,
     "Makes an RSA key pair and writes it as a key package: the owner's name, the public key, the "
     "private key encrypted under a pass phrase, the keys that the owner trusts, and a signature "
     "by the key itself. The export policy allows 512 bits at most.\n\n"
     "Without --output the package goes to your own file, which is named after you with .KEYPKG "
     "behind it, in your home folder. Other programs may read but one package from a file: with "
     "--add keep to files that these commands read.\n\n"
     "A guess at the pass phrase costs as many iterations of MD5 as take this host about a quarter "
     "of a second, measured at the time, at least 100000 and at most 10000000. A pass phrase has "
     "at most 100 bytes." PASS_PHRASES,
     keygen_options, keygen_examples, run_keygen},
    {"keypkg show", "Show key packages", "[FILE]", 0, 1,
     "Shows the key packages in a file, by default your own, and whether their signatures are "
     "good. With --full the library's own account follows, which has times in the local time zone. "
     "Secrets are never shown.",
     keypkg_show_options, keypkg_show_examples, run_keypkg_show},
    {"keypkg verify", "Verify a key package", "[FILE]", 0, 1,
     "Exits 0 if the package's signature by its own key is good, 1 if not. That shows that the "
     "package is whole, and says nothing of who made it.\n\n"
     "With --passin it is unlocked, too, and the private key is proved to belong to it: 6 for a "
     "wrong pass phrase." PASS_PHRASES,
     keypkg_verify_options, keypkg_verify_examples, run_keypkg_verify},
    {"keypkg passwd", "Change the pass phrase of a key package", "[FILE]", 0, 1,
     "Encrypts the private key under a new pass phrase and signs the package again. Salt and "
     "number of iterations stay. Other packages in the file stay as they are, and at no moment is "
     "there anything but the old file or the new one. Copies of the old package still open with "
     "the old pass phrase." PASS_PHRASES,
     keypkg_passwd_options, keypkg_passwd_examples, run_keypkg_passwd},
    {"keypkg export", "Take the key out of a key package", "[FILE]", 0, 1,
     "With --public writes the public key (SubjectPublicKeyInfo), which takes no pass phrase. With "
     "--unencrypted writes the private key (PKCS#8 PrivateKeyInfo) to a file that only you can "
     "read, and that no pass phrase protects." PASS_PHRASES,
     keypkg_export_options, keypkg_export_examples, run_keypkg_export},
    {"keypkg import", "Make a key package of an RSA private key", "KEY", 1, 1,
     "Reads an RSA private key, PKCS#8 or PKCS#1, unencrypted, DER or armoured, and makes a key "
     "package of it, as keygen does. The key may have any size. Encrypted keys are refused: "
     "decrypt them first with the program that made them." PASS_PHRASES,
     keypkg_import_options, keypkg_import_examples, run_keypkg_import},
};

constexpr Command stored_package_table[] = {
    {"keypkg get", "Get a key package from a repository", "[NAME]", 0, 1,
     "Writes the key package of that identifier to a file: from the naming service, where NAME is "
     "a user (default you) or a host's address, from a file, from the key server, or from your "
     "default file. A file that holds several is refused: 'qel keypkg show' reads it.",
     keypkg_get_options, keypkg_get_examples, run_keypkg_get},
    {"keypkg list", "Show the key packages in a repository", "[NAME]", 0, 1,
     "Shows what 'qel keypkg show' shows, of the packages in a repository. A file that holds "
     "several is refused: 'qel keypkg show' reads it.",
     keypkg_list_options, keypkg_list_examples, run_keypkg_list},
    {"keypkg set", "Store a key package in a repository", "[FILE]", 0, 1,
     "Stores a key package in the naming service, in place of the one that is there, or in a file, "
     "beside one with another identifier, after which --repo file does not read it. Your own entry "
     "of the naming service is yours to change, any entry the super-user's. A package whose "
     "signature is not good is refused.",
     keypkg_set_options, keypkg_set_examples, run_keypkg_set},
    {"keypkg remove", "Remove a key package from a repository", "[NAME]", 0, 1,
     "Removes the key package of that identifier. With --repo server it goes from the naming "
     "service, and its user is logged out. A file that holds several is refused.",
     keypkg_remove_options, keypkg_remove_examples, run_keypkg_remove},
};

} // namespace

std::span<const Command> key_package_commands() {
    return key_package_table;
}

std::span<const Command> stored_package_commands() {
    return stored_package_table;
}

} // namespace tool
