// request new, show, verify; issue
#include "table.h"

namespace tool {
namespace {

constexpr Option form_option = {"form",    0,     "FORM",
                                "pem|der", false, "pem (armoured, the default) or der"};
constexpr Option force_new_option = {"force", 0, nullptr, nullptr, false, "overwrite a file"};

constexpr Option request_new_options[] = {
    {"key", 'k', "FILE", nullptr, false,
     "key package, or unencrypted private key (default: the key server's)"},
    {"subject", 's', "NAME", nullptr, false,
     "distinguished name (default: of the key package's owner)"},
    algorithm_option,
    {"challenge", 0, "SOURCE", nullptr, false,
     "ask for revocation by a challenge password: fd:N, file:PATH, env:NAME or prompt"},
    {"output", 'o', "FILE", nullptr, false, "where the request goes (default standard output)"},
    form_option,
    force_new_option,
    package_id_option,
    passin_option,
    max_iterations_option,
};
constexpr Example request_new_examples[] = {
    {"qel request new -k alice.KEYPKG -o alice.req", "in the name of the package's owner"},
    {"qel request new -k key.p8 -s 'CN=Host, O=Acme' > host.req", "for a key without a package"},
};

constexpr Option request_show_options[] = {
    {"full", 'f', nullptr, nullptr, false, "show every field, a challenge password too"},
};
constexpr Example request_show_examples[] = {
    {"qel request show alice.req", "who asks, with which key"},
};

constexpr Example request_verify_examples[] = {
    {"qel request verify alice.req", "exits 0 if whoever asks has the private key"},
    {"qel request verify < browser.spkac", "a browser's"},
};

constexpr Option issue_options[] = {
    {"key", 'k', "FILE", nullptr, false,
     "the authority's key package or private key (default: the key server's)"},
    {"cert", 'c', "FILE", nullptr, false, "the authority's certificate, which names the issuer"},
    {"self", 0, nullptr, nullptr, false, "a certificate for the authority's own key"},
    {"subject", 's', "NAME", nullptr, false, "distinguished name (default: of the request)"},
    {"days", 'd', "N", nullptr, false, "how long it is valid (default 365)"},
    {"not-before", 0, "TIME", nullptr, false,
     "from when on, as 2026-01-31 or 2026-01-31T12:00:00Z (default: now)"},
    {"serial", 0, "HEX", nullptr, false, "serial number (default: 16 random bytes)"},
    algorithm_option,
    {"ca", 0, nullptr, nullptr, false, "say that the subject is an authority (basicConstraints)"},
    {"key-usage", 0, "USE",
     "digitalSignature|nonRepudiation|keyEncipherment|dataEncipherment|keyAgreement|keyCertSign|"
     "cRLSign",
     false, "what the key is for (keyUsage); repeatable", true},
    {"critical", 0, nullptr, nullptr, false, "mark these extensions critical"},
    {"log", 'l', "FILE", nullptr, false, "the log of issued certificates (default your own file)"},
    {"output", 'o', "FILE", nullptr, false, "where the certificate goes (default standard output)"},
    form_option,
    force_new_option,
    package_id_option,
    passin_option,
    max_iterations_option,
};
constexpr Example issue_examples[] = {
    {"qel issue --self -k ca.KEYPKG --ca -l ca.log -o ca.pem", "the authority's own certificate"},
    {"qel issue -k ca.KEYPKG -c ca.pem -l ca.log -o alice.pem alice.req", "one for a request"},
};

constexpr Command request_table[] = {
    {"request new", "Make a request for a certificate", "", 0, 0,
     "Writes a request (PKCS#10) that an authority issue a certificate for a key and a name, "
     "signed with the key's private half. Without --key the key server signs: log in first.\n\n"
     "A challenge password lets you ask for revocation later. It stands in the request for "
     "everyone to read, so do not use the pass phrase of a key package; the file gets mode "
     "0600." PASS_PHRASES,
     request_new_options, request_new_examples, run_request_new},
    {"request show", "Show requests for certificates", "[FILE]", 0, 1,
     "Shows every request in a file, or standard input: PKCS#10 or a browser's signed key and "
     "challenge, DER or armoured, the latter also as the value of a line SPKAC=; and whether its "
     "signature is good. --full adds what the library's printer makes of it, which refuses names "
     "with attributes or string types other than those of 'qel dn'.",
     request_show_options, request_show_examples, run_request_show},
    {"request verify",
     "Verify requests for certificates",
     "[FILE]",
     0,
     1,
     "Exits 0 if the signature of every request in a file, or standard input, is good under the "
     "request's own key: whoever made it has the private key. That says nothing of who that was. "
     "Takes what 'qel request show' takes.",
     {},
     request_verify_examples,
     run_request_verify},
    {"issue", "Issue a certificate", "[FILE]", 0, 1,
     "Signs a certificate for a request (PKCS#10 or a browser's) or a bare public key in a file, "
     "or standard input, with the authority's key; with --self and without a file, for that key "
     "and its owner. A request whose signature is not good is refused, and so is a name that the "
     "library cannot write, or that could be taken for another.\n\n"
     "The certificate is of version 1, or of version 3 where extensions are asked for. Mark them "
     "critical only for other programs: the library's own verification refuses such certificates, "
     "'qel cert verify' says 43.\n\n"
     "Every certificate is entered in the log before it leaves; its serial number is none that the "
     "log has. Several may be issued at a time. Without --log it is your own file, which is named "
     "after you with .CERTLOG behind it, beside your key package. The validity begins a minute "
     "ago, so that it holds at once, and must end by 2049.\n\n"
     "MD5 and MD2 make certificates that can be forged: certificates for keys and names that you "
     "do not know help whoever wants that." PASS_PHRASES,
     issue_options, issue_examples, run_issue},
};

} // namespace

std::span<const Command> request_commands() {
    return request_table;
}

} // namespace tool
