// message sign, verify, show
#include "table.h"

namespace tool {
namespace {

constexpr Option message_sign_options[] = {
    {"key", 'k', "FILE", nullptr, false,
     "the private key, in a file or key package (default: the key that you are logged in with)"},
    {"cert", 'c', "FILE", nullptr, false,
     "certificates to send: the signer's first, then its issuers; may be repeated (default: your "
     "own, from the naming service)",
     true},
    {"trusted", 't', "NAME", nullptr, false,
     "without --cert: a subject where the chain may end; may be repeated", true},
    {"output", 'o', "FILE", nullptr, false, "where the message goes (default standard output)"},
    {"armor", 0, nullptr, nullptr, false, "write the message as armoured text"},
    algorithm_option,
    package_id_option,
    passin_option,
    max_iterations_option,
};
constexpr Example message_sign_examples[] = {
    {"qel message sign -o report.p7 report.txt", "with the key that you are logged in with"},
    {"qel message sign -k my.key -c my.pem -o report.p7 report.txt", "with what is in files"},
};

constexpr Option message_verify_options[] = {
    {"trust", 't', "FILE", nullptr, false,
     "certificates, or a key package's list, of trusted keys; may be repeated (default: the list "
     "of the key package that you are logged in with)",
     true},
    {"allowed", 0, "NAME", nullptr, false,
     "an issuer where the chain may end, if it comes from the naming service; may be repeated",
     true},
    {"content", 'c', "FILE", nullptr, false,
     "what was signed, where the message has it not inside"},
    {"output", 'o', "FILE", nullptr, false, "where the data goes, if all is good"},
    {"allow-expired", 0, nullptr, nullptr, false,
     "take good signatures outside the validity as yes"},
    {"id", 0, "KEYPKGID", nullptr, false, "which of the packages that you are logged in with"},
};
constexpr Example message_verify_examples[] = {
    {"qel message verify --trust root.pem -o report.txt report.p7", "and takes the data out"},
    {"qel message verify --content report.txt --trust root.pem report.p7s", "a detached signature"},
};

constexpr Option message_show_options[] = {
    {"full", 'f', nullptr, nullptr, false, "show every field of the certificates"},
    {"output", 'o', "FILE", nullptr, false, "where the data goes, which is not verified"},
};
constexpr Example message_show_examples[] = {
    {"qel message show report.p7", "who signed, and the certificates inside"},
};

constexpr Command message_table[] = {
    {"message sign", "Make a signed message", "[FILE]", 0, 1,
     "Makes PKCS#7 signed data, with the content and the signer's certificates inside. Without "
     "--key the key server signs; without --cert the key package comes from the key server, and "
     "its certificate and the issuers' from the naming service. An empty content needs --cert, and "
     "the first certificate must be that of the key." PASS_PHRASES,
     message_sign_options, message_sign_examples, run_message_sign},
    {"message verify", "Verify a signed message", "[FILE]", 0, 1,
     "Exits 0 if the signatures are good and each signer's certificate leads to a trusted key: "
     "through the certificates in the message, or those in the naming service where the message "
     "has the signer's alone. The data is written only then.\n\n"
     "Messages with authenticated attributes, of several signers, or without their content are "
     "verified by the command itself, which says so. --content is needed where the message has its "
     "content not inside, and refused where it has. So is a list of trusted keys that is empty: "
     "'qel trust add' enters keys into a key package.",
     message_verify_options, message_verify_examples, run_message_verify},
    {"message show", "Show a signed message", "[FILE]", 0, 1,
     "Shows the content's type and size, the signers and the certificates of PKCS#7 signed data. "
     "Nothing is verified.",
     message_show_options, message_show_examples, run_message_show},
};

} // namespace

std::span<const Command> message_commands() {
    return message_table;
}

} // namespace tool
