// cert show, verify, get, list, set, remove, chain
#include "table.h"

namespace tool {
namespace {

constexpr Option cert_show_options[] = {
    {"full", 'f', nullptr, nullptr, false, "show every field"},
    {"log", 0, nullptr, nullptr, false, "print the entry for a log of issued certificates"},
};
constexpr Example cert_show_examples[] = {
    {"qel cert show server.pem", "what matters of each certificate in a file"},
    {"qel cert show --log server.pem >> issued.log", "note that it was issued, and when"},
    {"qel cert show --full --json server.pem", "everything, for another program"},
};

constexpr Option cert_verify_options[] = {
    {"issuer", 'i', "FILE", nullptr, false,
     "the issuer's certificate or public key, or several (default: the certificate's own key)"},
    {"allow-expired", 0, nullptr, nullptr, false,
     "take a good signature outside the validity as yes"},
    {"signature-only", 0, nullptr, nullptr, false,
     "look at the signature alone, not at validity and extensions"},
    {"chain", 0, nullptr, nullptr, false,
     "verify the certificates, each issued by the next, up to a trusted key"},
    {"establish", 0, nullptr, nullptr, false,
     "verify the certificate up to a trusted key, with issuers from the naming service"},
    {"trust", 't', "FILE", nullptr, false,
     "certificates, or a key package's list, of trusted keys; may be repeated", true},
    {"allowed", 0, "NAME", nullptr, false,
     "with --establish: an issuer where the chain may end; may be repeated", true},
    {"explain", 0, nullptr, nullptr, false,
     "with --chain or --establish: tell of every certificate that was tried"},
};
constexpr Example cert_verify_examples[] = {
    {"qel cert verify root.pem", "a self-signed certificate"},
    {"qel cert verify user.pem -i root.pem --allow-expired", "an old certificate, by its issuer"},
    {"qel cert verify --chain --trust root.pem user.pem ca.pem", "a chain, up to a trusted key"},
    {"qel cert verify --establish --explain --trust root.pem user.pem",
     "issuers from the naming service"},
};

constexpr Option certificate_repo_option = {
    "repo",
    'r',
    "REPO",
    "naming|file|default|stdin",
    false,
    "where they are: naming (if not said), file, stdin, or default (the certificate directory)"};

constexpr Option cert_get_options[] = {
    certificate_repo_option,
    {"output", 'o', "FILE", nullptr, false, "where they go (default standard output)"},
    {"full", 'f', nullptr, nullptr, false, "with --json: every field"},
};
constexpr Example cert_get_examples[] = {
    {"qel cert get 'CN=Bob, O=Acme, C=US' -o bob.pem", "from the naming service"},
    {"qel cert get --repo default 'CN=Bob'", "from the certificate directory"},
};

constexpr Option cert_list_options[] = {
    certificate_repo_option,
    {"full", 'f', nullptr, nullptr, false, "show every field"},
};
constexpr Example cert_list_examples[] = {
    {"qel cert list 'CN=Bob, O=Acme, C=US'", "what the naming service has of a subject"},
};

constexpr Option cert_set_options[] = {
    {"repo", 'r', "REPO", "naming|file|default", false,
     "where: naming (if not said), file, or default (the certificate directory)"},
    {"to", 't', "NAME", nullptr, false, "user or host (default you), or file"},
};
constexpr Example cert_set_examples[] = {
    {"qel cert set alice.pem", "into your own entry of the naming service"},
    {"qel cert set --repo default root.pem", "into the certificate directory"},
};

constexpr Option cert_remove_options[] = {
    {"repo", 'r', "REPO", "naming|file", false, "where from: naming (if not said) or file"},
    {"cert", 'c', "FILE", nullptr, false, "the certificate, by its issuer and serial number"},
    {"all", 0, nullptr, nullptr, false, "all of the subject, or the whole file"},
};
constexpr Example cert_remove_examples[] = {
    {"qel cert remove --cert old.pem 'CN=Alice, O=Acme, C=US'", "one certificate"},
    {"qel cert remove --all --repo file old.pem", "a file of certificates"},
};

constexpr Option cert_chain_options[] = {
    {"trusted", 't', "NAME", nullptr, false, "a subject where the chain may end; may be repeated",
     true},
    {"output", 'o', "FILE", nullptr, false, "where the certificates go (default: they are shown)"},
    {"full", 'f', nullptr, nullptr, false, "show every field"},
};
constexpr Example cert_chain_examples[] = {
    {"qel cert chain -o chain.pem alice.pem", "the certificate and its issuers"},
};

constexpr Command certificate_table[] = {
    {"cert show", "Show certificates", "[FILE]...", 0, any_type,
     "Shows every certificate in the files, DER or armoured. Names are shown in their own letters, "
     "the most specific part first, with all attribute and string types, also those that the "
     "library's printer refuses; --full says what that printer makes of them. Fingerprints are of "
     "the bytes as they were read.\n\n"
     "With --full the library's own account of the certificate follows, which has times in the "
     "local time zone and fingerprints of the DER encoding. The entry for a log is in that form, "
     "too.\n\n"
     "Other times are in UTC. The library's own test of validity reads a time with an offset as if "
     "it had none; where that matters, it is shown.",
     cert_show_options, cert_show_examples, run_cert_show},
    {"cert verify", "Verify a certificate", "FILE...", 1, any_type,
     "Gives the library's verdict on the first certificate in the file: its signature under the "
     "issuer's key, its validity now, and that no extension is marked critical. Exits 0 for yes, 1 "
     "for no. Trust in the issuer is not looked at. Where a file holds several issuers, all are "
     "tried that bear the issuer's name.\n\n"
     "With --signature-only the verdict is on the signature alone. A key under the old identifier "
     "2.5.8.1.1, which the library refuses, is then used as an rsaEncryption key, which is "
     "said.\n\n"
     "With --chain the certificates of all files are a chain: each is verified with the key of the "
     "next, until one is a trusted key. A single certificate must be a trusted key itself. With "
     "--establish the issuers of one certificate come from the naming service, 10000 at most. "
     "Either needs --trust, and a key package that it names must list a key; neither goes with "
     "--issuer or --signature-only.\n\n"
     "A key of more than 4096 bits is refused if its public exponent has more than 64.",
     cert_verify_options, cert_verify_examples, run_cert_verify},
    {"cert get", "Get certificates from a repository", "[NAME]", 0, 1,
     "Writes the certificates of a subject, armoured: from the naming service, from the "
     "certificate directory (default), from a file of that name, or from standard input. A file "
     "that holds several is refused: 'qel cert show' reads it.",
     cert_get_options, cert_get_examples, run_cert_get},
    {"cert list", "Show the certificates in a repository", "[NAME]", 0, 1,
     "Shows what 'qel cert show' shows, of the certificates of a subject in a repository. A file "
     "that holds several is refused: 'qel cert show' reads it.",
     cert_list_options, cert_list_examples, run_cert_list},
    {"cert set", "Store a certificate in a repository", "[FILE]", 0, 1,
     "Stores a certificate in your own entry of the naming service, which is then registered under "
     "its subject, in the file of its subject in the certificate directory, or at the end of a "
     "file. Whether the certificate is good is not looked at. With --repo file a file is made "
     "for its owner alone.\n\n"
     "The certificate directory must be there, and is its owner's to write. A second certificate "
     "of a subject is refused there: with two in its file none could be got. With --repo file a "
     "file of several can be made, which --repo file does not read.",
     cert_set_options, cert_set_examples, run_cert_set},
    {"cert remove", "Remove certificates from a repository", "NAME", 1, 1,
     "Removes one certificate of a subject, or all of them; with --repo file from the file of that "
     "name. With --all that file is deleted, unless it also holds a private key or key package.",
     cert_remove_options, cert_remove_examples, run_cert_remove},
    {"cert chain", "Build the chain of a certificate from the naming service", "[FILE]", 0, 1,
     "Gets the issuers of a certificate from the naming service, up to a self-signed one or to a "
     "subject that --trusted names, each verified with the next one's key. A chain has at most "
     "1000 certificates, out of at most 10000 issuers.",
     cert_chain_options, cert_chain_examples, run_cert_chain},
};

} // namespace

std::span<const Command> certificate_commands() {
    return certificate_table;
}

} // namespace tool
