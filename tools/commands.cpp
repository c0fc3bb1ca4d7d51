// The table of commands.
#include "command.h"

namespace tool {
namespace {

#define ALGORITHM                                                                                  \
    { "algorithm", 'a', "NAME", "md2|md5", false, "message digest: md2 or md5 (default md5)" }

constexpr Option common[] = {
    {"json", 0, nullptr, nullptr, false, "print one JSON object"},
    {"batch", 0, nullptr, nullptr, false, "never prompt; fail instead"},
    {"help", 'h', nullptr, nullptr, false, "print this help"},
};

// Rows of commands that unlock key packages.
constexpr Option passin_option = {
    "passin", 0,     "SOURCE",
    nullptr,  false, "the pass phrase: fd:N, file:PATH, env:NAME or prompt (default)"};
constexpr Option max_iterations_option = {
    "max-iterations", 0,     "N",
    nullptr,          false, "most work that a pass phrase may cost (default 50000000)"};
constexpr Option package_id_option = {"id",    0,     "KEYPKGID",
                                      nullptr, false, "which key package, where there are several"};

// ---- digest, sign, verify ----------------------------------------------------------------------

constexpr Option digest_options[] = {ALGORITHM};
constexpr Example digest_examples[] = {
    {"qel digest report.txt", "MD5 of a file"},
    {"tar c folder | qel digest -a md2", "MD2 of standard input"},
};

constexpr Option sign_options[] = {
    {"key", 'k', "FILE", nullptr, false,
     "private key: key package, or unencrypted PKCS#8 or PKCS#1 (default: the key server's)"},
    ALGORITHM,
    {"output", 'o', "FILE", nullptr, false, "where the signature goes (default standard output)"},
    {"armor", 0, nullptr, nullptr, false, "write the signature as armoured text"},
    package_id_option,
    passin_option,
    max_iterations_option,
};
constexpr Example sign_examples[] = {
    {"qel sign -o report.sig report.txt", "sign a file with the key that you are logged in with"},
    {"qel sign -k my.key -o report.sig report.txt", "sign a file"},
    {"qel sign -k my.key --armor < report.txt", "sign standard input, print armoured text"},
};

constexpr Option verify_options[] = {
    {"signature", 's', "FILE", nullptr, true, "the signature, as bytes or armoured"},
    {"key", 'k', "FILE", nullptr, false,
     "the signer's public key (SubjectPublicKeyInfo or RSAPublicKey)"},
    {"cert", 'c', "FILE", nullptr, false, "the signer's certificate; only its key is used"},
    ALGORITHM,
};
constexpr Example verify_examples[] = {
    {"qel verify -s report.sig -c signer.pem report.txt", "verify with a certificate's key"},
    {"qel verify -s report.sig -k signer.pub -a md2 - < report.txt", "an MD2 signature, by key"},
};

// ---- encryption and keys -----------------------------------------------------------------------

#define CIPHER(WHEN)                                                                               \
    { "algorithm", 'a', "NAME", "des|rc2|rc4", false, "cipher: des, rc2 or rc4" WHEN }
#define EFFECTIVE_BITS(WHEN)                                                                       \
    { "effective-bits", 0, "N", nullptr, false, "effective key bits of RC2 (default 40)" WHEN }
#define KEY_HEX                                                                                    \
    { "key-hex", 0, nullptr, nullptr, false, "the key file holds hexadecimal digits" }
#define IV                                                                                         \
    { "iv", 0, "HEX", nullptr, false, "initialisation vector, 16 hexadecimal digits" }
#define PARAMETERS                                                                                 \
    { "parameters", 'p', "FILE", nullptr, false, "encoded parameters, as genkey writes them" }
#define FORCE                                                                                      \
    { "force", 0, nullptr, nullptr, false, "overwrite a file with a private key or key package" }
#define FORCE_SECRET                                                                               \
    { "force", 0, nullptr, nullptr, false, "overwrite a file" }
#define HEX                                                                                        \
    { "hex", 0, nullptr, nullptr, false, "write hexadecimal digits" }

constexpr Option encrypt_options[] = {
    {"to", 't', "FILE", nullptr, false,
     "a recipient's certificate, public key or key package; repeatable", true},
    {"key", 'k', "FILE", nullptr, false, "the session key, for those who have it already"},
    KEY_HEX,
    CIPHER(" (default des)"),
    EFFECTIVE_BITS(""),
    {"raw", 0, nullptr, nullptr, false, "write bare ciphertext, without container"},
    IV,
    PARAMETERS,
    {"output", 'o', "FILE", nullptr, false, "where the result goes (default standard output)"},
    FORCE,
};
constexpr Example encrypt_examples[] = {
    {"qel encrypt -t alice.pem -t bob.pem -o note.p7 note", "for two recipients"},
    {"qel encrypt -k session.key -o note.p7 note", "with a key that both sides have"},
    {"qel encrypt --raw -a rc4 -k session.key < in > out", "bare ciphertext"},
};

constexpr Option decrypt_options[] = {
    {"key", 'k', "FILE", nullptr, false,
     "a recipient's private key or key package (default: the key server's), or the session key"},
    {"cert", 'c', "FILE", nullptr, false, "the recipient's certificate, by which it is chosen"},
    KEY_HEX,
    {"raw", 0, nullptr, nullptr, false, "read bare ciphertext, without container"},
    CIPHER("; with --raw"),
    EFFECTIVE_BITS("; with --raw"),
    IV,
    PARAMETERS,
    {"output", 'o', "FILE", nullptr, false, "where the data goes (default standard output)"},
    FORCE,
    package_id_option,
    passin_option,
    max_iterations_option,
};
constexpr Example decrypt_examples[] = {
    {"qel decrypt -k alice.KEYPKG -o note note.p7", "with a recipient's key package"},
    {"qel decrypt -k session.key -o note note.p7", "with the session key"},
};

constexpr Option wrap_options[] = {
    {"to", 't', "FILE", nullptr, true, "the recipient's certificate, public key or key package"},
    KEY_HEX,
    {"output", 'o', "FILE", nullptr, false, "where the wrapped key goes (default standard output)"},
    FORCE,
};
constexpr Example wrap_examples[] = {
    {"qel wrap -t alice.pem -o session.wrapped session.key", "a session key for one recipient"},
};

constexpr Option unwrap_options[] = {
    {"key", 'k', "FILE", nullptr, false,
     "the recipient's private key or key package (default: the key server's)"},
    {"output", 'o', "FILE", nullptr, true, "where the session key goes"},
    HEX,
    FORCE_SECRET,
    package_id_option,
    passin_option,
    max_iterations_option,
};
constexpr Example unwrap_examples[] = {
    {"qel unwrap -o session.key session.wrapped", "with the key that you are logged in with"},
    {"qel unwrap -k my.key -o session.key session.wrapped", "the session key again"},
};

constexpr Option genkey_options[] = {
    {"bytes", 'n', "N", nullptr, false, "bytes of an RC2 or RC4 key (default 5)"},
    EFFECTIVE_BITS(""),
    {"output", 'o', "FILE", nullptr, true, "where the key goes"},
    {"parameters-out", 'p', "FILE", nullptr, false,
     "where encoded parameters for use with the key go"},
    HEX,
    FORCE_SECRET,
};
constexpr Example genkey_examples[] = {
    {"qel genkey des -o session.key", "a DES key"},
    {"qel genkey rc2 -o session.key -p session.par", "an RC2 key and parameters"},
};

constexpr Option random_options[] = {
    {"output", 'o', "FILE", nullptr, false, "where the bytes go (default standard output)"},
    HEX,
    FORCE_SECRET,
};
constexpr Example random_examples[] = {
    {"qel random 16 --hex", "prints 32 digits"},
    {"qel random 1000000 -o noise", "a million bytes"},
};

constexpr Option dh_start_options[] = {
    {"parameters", 'p', "FILE", nullptr, true, "prime and base (PKCS#3), DER or armoured"},
    {"seed-out", 's', "FILE", nullptr, true, "where our secret seed goes"},
    {"public-out", 'o', "FILE", nullptr, false,
     "where our public value goes (default standard output)"},
    {"raw", 0, nullptr, nullptr, false, "write the bare octets of the public value"},
    FORCE_SECRET,
};
constexpr Example dh_start_examples[] = {
    {"qel dh start -p group.pem -s my.seed -o my.pub", "what the other side gets is my.pub"},
};

constexpr Option dh_finish_options[] = {
    {"parameters", 'p', "FILE", nullptr, true, "the parameters of 'qel dh start'"},
    {"seed", 's', "FILE", nullptr, true, "the seed that 'qel dh start' wrote"},
    {"peer", 0, "FILE", nullptr, true, "the other side's public value"},
    {"output", 'o', "FILE", nullptr, true, "where the shared secret goes"},
    HEX,
    FORCE_SECRET,
};
constexpr Example dh_finish_examples[] = {
    {"qel dh finish -p group.pem -s my.seed --peer their.pub -o secret", "the shared secret"},
};

#undef CIPHER
#undef EFFECTIVE_BITS
#undef KEY_HEX
#undef IV
#undef PARAMETERS
#undef FORCE
#undef FORCE_SECRET
#undef HEX

// ---- certificates ------------------------------------------------------------------------------

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
    {"explain", 0, nullptr, nullptr, false, "tell of every certificate that was tried"},
};
constexpr Example cert_verify_examples[] = {
    {"qel cert verify root.pem", "a self-signed certificate"},
    {"qel cert verify user.pem -i root.pem --allow-expired", "an old certificate, by its issuer"},
    {"qel cert verify --chain --trust root.pem user.pem ca.pem", "a chain, up to a trusted key"},
    {"qel cert verify --establish --explain --trust root.pem user.pem",
     "issuers from the naming service"},
};

// ---- key packages ------------------------------------------------------------------------------

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

// ---- requests ----------------------------------------------------------------------------------

constexpr Option form_option = {"form",    0,     "FORM",
                                "pem|der", false, "pem (armoured, the default) or der"};
constexpr Option force_new_option = {"force", 0, nullptr, nullptr, false, "overwrite a file"};

constexpr Option request_new_options[] = {
    {"key", 'k', "FILE", nullptr, false,
     "key package, or unencrypted private key (default: the key server's)"},
    {"subject", 's', "NAME", nullptr, false,
     "distinguished name (default: of the key package's owner)"},
    ALGORITHM,
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

// ---- a certification authority -----------------------------------------------------------------

constexpr Option issue_options[] = {
    {"key", 'k', "FILE", nullptr, false,
     "the authority's key package or private key (default: the key server's)"},
    {"cert", 'c', "FILE", nullptr, false, "the authority's certificate, which names the issuer"},
    {"self", 0, nullptr, nullptr, false, "a certificate for the authority's own key"},
    {"subject", 's', "NAME", nullptr, false, "distinguished name (default: of the request)"},
    {"days", 'd', "N", nullptr, false, "how long it is valid (default 365)"},
    {"not-before", 0, "TIME", nullptr, false,
     "from when on, as 2026-01-31 or 2026-01-31T12:00:00Z (default: now)"},
    {"serial", 0, "HEX", nullptr, false, "serial number (default: a new one)"},
    ALGORITHM,
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

// ---- trusted keys ------------------------------------------------------------------------------

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

// ---- repositories ------------------------------------------------------------------------------

constexpr Option stored_package_id_option = {
    "id", 0, "KEYPKGID", nullptr, false, "which key package (default default_keyid)"};
constexpr Option package_get_repo_option = {
    "repo", 'r', "REPO", "naming|file|server|default", false, "where it is (default naming)"};
constexpr Option package_set_repo_option = {
    "repo",
    'r',
    "REPO",
    "naming|file|server|default",
    false,
    "where (default naming); server: in the naming service, and the key server kept in step"};
constexpr Option certificate_repo_option = {
    "repo", 'r', "REPO", "naming|file|default|stdin", false, "where they are (default naming)"};

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
    {"repo", 'r', "REPO", "naming|file|default", false, "where (default naming)"},
    {"to", 't', "NAME", nullptr, false, "user or host (default you), or file"},
};
constexpr Example cert_set_examples[] = {
    {"qel cert set alice.pem", "into your own entry of the naming service"},
    {"qel cert set --repo default root.pem", "into the certificate directory"},
};

constexpr Option cert_remove_options[] = {
    {"repo", 'r', "REPO", "naming|file", false, "where from (default naming)"},
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

constexpr Example naming_status_examples[] = {
    {"qel naming status", "the naming service, and your own entry in it"},
};
constexpr Example naming_setup_examples[] = {
    {"qel naming setup", "once on a new host, as the super-user"},
};
constexpr Example naming_who_examples[] = {
    {"qel naming who 'CN=Alice, O=Acme, C=US'", "prints alice"},
};

// ---- signed messages ---------------------------------------------------------------------------

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
    ALGORITHM,
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

// ---- names, armour, ASN.1 ----------------------------------------------------------------------

constexpr Option dn_options[] = {
    {"der", 0, nullptr, nullptr, false, "print the DER encoding in hexadecimal instead"},
    {"output", 'o', "FILE", nullptr, false, "write the DER encoding of the one name to a file"},
};
constexpr Example dn_examples[] = {
    {"qel dn 'cn=alice, o=acme, c=us'", "prints CN=ALICE, O=ACME, C=US"},
    {"qel dn --der 'CN=Alice'", "the encoded name"},
};

constexpr Option armor_options[] = {
    {"type", 't', "TYPE",
     "auto|none|certificate|keypkg|request|signature|signature-and-data|encrypted-data|"
     "encryption-info|encryption-info-and-data",
     false, "marker lines (default auto: by what the file holds, or none)"},
    {"output", 'o', "FILE", nullptr, false, "where the text goes (default standard output)"},
    {"force", 0, nullptr, nullptr, false, "overwrite a file with a key package"},
};
constexpr Example armor_examples[] = {
    {"qel armor cert.der > cert.pem", "a certificate between its marker lines"},
    {"qel armor -t none data.bin", "bare base 64 in lines of 64 characters"},
};

constexpr Option dearmor_options[] = {
    {"block", 'b', "N", nullptr, false, "which block, counted from 1, where there are several"},
    {"list", 'l', nullptr, nullptr, false, "list the blocks instead"},
    {"output", 'o', "FILE", nullptr, false, "where the bytes go (default standard output)"},
    {"force", 0, nullptr, nullptr, false, "overwrite a file with a private key or key package"},
};
constexpr Example dearmor_examples[] = {
    {"qel dearmor cert.pem > cert.der", "the bytes of a certificate"},
    {"qel dearmor -b 2 -o key.der server.pem", "the second block of a file"},
};

constexpr Option asn1_options[] = {
    {"list", 'l', nullptr, nullptr, false, "list the types and their numbers"},
    {"encode", 'e', "RULES", "der|ber|indefinite", false,
     "encode the value again instead of printing it"},
    {"output", 'o', "FILE", nullptr, false, "where the encoding goes (default standard output)"},
    {"force", 0, nullptr, nullptr, false, "overwrite a file with a private key or key package"},
};
constexpr Example asn1_examples[] = {
    {"qel asn1 Certificate server.pem", "a certificate's value"},
    {"qel asn1 ContentInfo -e indefinite -o out.ber in.p7", "with indefinite lengths"},
};

constexpr Example explain_examples[] = {
    {"qel explain 43", "by number"},
    {"qel explain key_expired", "by name"},
};

// ---- the key server ----------------------------------------------------------------------------

#define USER                                                                                       \
    { "user", 'u', "NAME", nullptr, false, "another user's, for the super-user" }

constexpr Option login_options[] = {
    package_id_option,
    {"repo", 'r', "REPO", "file|naming", false,
     "where your own package is: file, or naming (default: file, if there is one)"},
    {"lifetime", 'l', "TIME", nullptr, false,
     "how long the key stays: seconds, or 30m, 8h, 2d (default: the server's)"},
    {"usage", 0, "USAGE", "both|sign|decrypt", false,
     "what it may be used for (default: what the key package says)"},
    {"host", 0, "ADDRESS", nullptr, false,
     "host address under which programs look for it (default 0.0.0.0)"},
    passin_option,
    max_iterations_option,
};
constexpr Example login_examples[] = {
    {"qel login", "with your own key package, until you log out"},
    {"qel login --lifetime 8h --usage sign alice.KEYPKG", "for a day's work, for signing only"},
};

constexpr Option logout_options[] = {
    {"id", 0, "KEYPKGID", nullptr, false, "which key, where there are several"},
    {"all", 'a', nullptr, nullptr, false, "all keys"},
    USER,
};
constexpr Example logout_examples[] = {
    {"qel logout", "the key is gone"},
    {"qel logout --all --user alice", "root ends another user's logins"},
};

constexpr Option lock_options[] = {USER};
constexpr Example lock_examples[] = {{"qel lock", "until the next 'qel login'"}};

constexpr Option status_options[] = {
    {"all", 'a', nullptr, nullptr, false, "everybody's, for the super-user"},
    USER,
};
constexpr Example status_examples[] = {
    {"qel status", "your keys at the key server"},
    {"qel status --json", "for another program"},
};

#undef USER

// ---- about the program -------------------------------------------------------------------------

constexpr Option man_options[] = {
    {"directory", 'd', "FOLDER", nullptr, false, "write every page into a folder"},
};
constexpr Example help_examples[] = {{"qel help cert verify", "help of one command"}};
constexpr Example completion_examples[] = {
    {". <(qel completion bash)", "completion in this shell"},
};
constexpr Example man_examples[] = {
    {"qel man sign | man -l -", "one page"},
    {"qel man --directory man", "all pages, as files"},
};

#undef ALGORITHM

// What commands that unlock key packages say.
#define PASS_PHRASES                                                                               \
    "\n\nThe pass phrase of a key package comes from the terminal (prompt), from the next line "   \
    "of an open descriptor (fd:N), from the first line of a file that only its owner can open "    \
    "(file:PATH), or from an environment variable (env:NAME)."

constexpr Command all_commands[] = {
    {"login", "Log in: hand your key to the key server", "[FILE]", 0, 1,
     "Unlocks a key package, by default your own in its file or else in the naming service, with "
     "its pass phrase, and hands the private key to the key server of this host. Until you log "
     "out, or the key's time is over, your programs sign and unwrap there without key or pass "
     "phrase: 'qel sign', 'qel unwrap' and 'qel decrypt' where no --key is given. A key that was "
     "locked is unlocked.\n\n"
     "The key is registered for you as the system knows you, under the key package's identifier. "
     "The server must run as root or as the user qelserv. It takes private keys of up to 1024 "
     "bytes, which is about 1600 bits. 'qellogin' is the same command." PASS_PHRASES,
     login_options, login_examples, run_login},
    {"logout", "Log out: take your key from the key server", "", 0, 0,
     "Has the key server forget a key and its key package. 'qellogout' is the same command.",
     logout_options, logout_examples, run_logout},
    {"lock", "Lock your keys at the key server", "", 0, 0,
     "Has the key server forget your private keys and keep your key packages, for instance while "
     "you are away. 'qel login' unlocks them again.",
     lock_options, lock_examples, run_lock},
    {"status", "Tell what the key server holds", "", 0, 0,
     "Lists your keys at the key server: identifier, usage, time that is left, whether locked. "
     "Exits 0 if one can be used, 4 if none, 5 if the key server is out of reach.",
     status_options, status_examples, run_status},
    {"digest", "Print message digests of files", "[FILE]...", 0, any_type,
     "Prints the MD5 or MD2 digest of each file, or of standard input, one line each.\n\n"
     "Both digests are of historical use: collisions of MD5 can be made at will.",
     digest_options, digest_examples, run_digest},
    {"sign", "Sign a file with a private key", "[FILE]", 0, 1,
     "Makes an RSA signature (PKCS#1, md5WithRSAEncryption or md2WithRSAEncryption) over a file of "
     "any size, or standard input. The signature is as many bytes as the key's modulus; a terminal "
     "only gets it armoured. Without --key the key server signs: log in first." PASS_PHRASES,
     sign_options, sign_examples, run_sign},
    {"verify", "Verify a signature over a file", "[FILE]", 0, 1,
     "Exits 0 only when the signature was checked and is good for the file, or standard input, "
     "under the given key; 1 when it is not.\n\n"
     "Of a certificate only the key is used: 'qel cert verify' checks the certificate itself. A "
     "key under the old identifier 2.5.8.1.1 is used as an rsaEncryption key, which is said. "
     "Signatures under keys with small public exponents can be forged: below 65537 there is a "
     "warning.",
     verify_options, verify_examples, run_verify},
    {"encrypt", "Encrypt a file", "[FILE]", 0, 1,
     "Encrypts a file of any size, or standard input, with DES or RC2 in CBC mode or RC4, into "
     "PKCS#7: with --to into EnvelopedData, where a fresh session key is wrapped for each "
     "recipient (RSA, PKCS#1); with --key into EncryptedData. The initialisation vector is fresh "
     "unless it is given. A recipient's certificate is not verified: 'qel cert verify' does "
     "that.\n\n"
     "Keys have at most 40 effective bits, by the library's export policy: this protects nothing "
     "against an attacker of today, and nothing protects against changes of the data.",
     encrypt_options, encrypt_examples, run_encrypt},
    {"decrypt", "Decrypt a file", "[FILE]", 0, 1,
     "Decrypts PKCS#7 EnvelopedData with the private key of a recipient, or EncryptedData with the "
     "session key; BER, DER or armoured. Without --cert the wrapped keys that fit the private "
     "key's size are tried. Without --key a key at the key server is used: log in first.\n\n"
     "An output file takes its place only when all was decrypted and the padding at the end is "
     "right. What goes to standard output goes at once, so that data may have been written before "
     "a failure: look at the exit status. A wrong key passes for right once in 256 times, RC4 "
     "tells none from another, and changed data decrypt to something else: only a signature "
     "tells." PASS_PHRASES,
     decrypt_options, decrypt_examples, run_decrypt},
    {"wrap", "Wrap a session key for a recipient", "[FILE]", 0, 1,
     "Encrypts the key in a file, or standard input, under an RSA public key (PKCS#1, block type "
     "2). The result has as many bytes as the modulus.",
     wrap_options, wrap_examples, run_wrap},
    {"unwrap", "Unwrap a session key", "[FILE]", 0, 1,
     "Decrypts a wrapped key with the recipient's private key, which has at most 4096 bits, into a "
     "file of mode 0600. Without --key the key server unwraps: log in first." PASS_PHRASES,
     unwrap_options, unwrap_examples, run_unwrap},
    {"genkey", "Make a session key", "des|rc2|rc4", 1, 1,
     "Makes a random key within the library's export policy and writes its bytes to a file of mode "
     "0600: for DES 8 bytes, of which those at positions 1, 3, 5 and 7 have 4 bits; for RC2 and "
     "RC4 5 bytes. Longer keys can be made, but 'qel encrypt' and 'qel decrypt' refuse them.",
     genkey_options, genkey_examples, run_genkey},
    {"random", "Print random bytes", "COUNT", 1, 1,
     "Writes so many random bytes, to a file with mode 0600.", random_options, random_examples,
     run_random},
    {"dh start", "Begin a Diffie-Hellman key agreement", "", 0, 0,
     "Draws a secret seed, from which our private value comes, and writes it to a file of mode "
     "0600; and our public value, for the other side, as a SubjectPublicKeyInfo (dhKeyAgreement, "
     "PKCS#3). The prime has 256 to 512 bits.\n\n"
     "The agreement is not authenticated: sign what is exchanged.",
     dh_start_options, dh_start_examples, run_dh_start},
    {"dh finish", "Finish a Diffie-Hellman key agreement", "", 0, 0,
     "Computes the secret that both sides share, from our seed and the other side's public value "
     "(a SubjectPublicKeyInfo, or its octets), and writes it to a file of mode 0600: as many bytes "
     "as the prime has. Derive a key from it before use, and remove the seed.",
     dh_finish_options, dh_finish_examples, run_dh_finish},
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
     "--establish the issuers come from the naming service.",
     cert_verify_options, cert_verify_examples, run_cert_verify},
    {"cert get", "Get certificates from a repository", "[NAME]", 0, 1,
     "Writes the certificates of a subject, armoured: from the naming service, from the "
     "certificate directory (default), from a file of that name, or from standard input.",
     cert_get_options, cert_get_examples, run_cert_get},
    {"cert list", "Show the certificates in a repository", "[NAME]", 0, 1,
     "Shows what 'qel cert show' shows, of the certificates of a subject in a repository.",
     cert_list_options, cert_list_examples, run_cert_list},
    {"cert set", "Store a certificate in a repository", "[FILE]", 0, 1,
     "Stores a certificate in your own entry of the naming service, which is then registered under "
     "its subject, in the file of its subject in the certificate directory, or at the end of a "
     "file. Whether the certificate is good is not looked at.",
     cert_set_options, cert_set_examples, run_cert_set},
    {"cert remove", "Remove certificates from a repository", "NAME", 1, 1,
     "Removes one certificate of a subject, or all of them; with --repo file from the file of that "
     "name.",
     cert_remove_options, cert_remove_examples, run_cert_remove},
    {"cert chain", "Build the chain of a certificate from the naming service", "[FILE]", 0, 1,
     "Gets the issuers of a certificate from the naming service, up to a self-signed one or to a "
     "subject that --trusted names, each verified with the next one's key.",
     cert_chain_options, cert_chain_examples, run_cert_chain},
    {"naming status",
     "Tell the state of the naming service",
     "[USER]",
     0,
     1,
     "Tells whether the naming service is there, and what it holds of a user, by default of you. "
     "Exits 0 if there is an entry, 1 if not, 8 if there is no naming service.",
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
    {"keypkg get", "Get a key package from a repository", "[NAME]", 0, 1,
     "Writes the key package of that identifier to a file: from the naming service, where NAME is "
     "a user (default you) or a host's address, from a file, from the key server, or from your "
     "default file.",
     keypkg_get_options, keypkg_get_examples, run_keypkg_get},
    {"keypkg list", "Show the key packages in a repository", "[NAME]", 0, 1,
     "Shows what 'qel keypkg show' shows, of the packages in a repository.", keypkg_list_options,
     keypkg_list_examples, run_keypkg_list},
    {"keypkg set", "Store a key package in a repository", "[FILE]", 0, 1,
     "Stores a key package in the naming service, in place of the one that is there, or in a file, "
     "beside those with other identifiers. Your own entry of the naming service is yours to "
     "change, any entry the super-user's. A package whose signature is not good is refused.",
     keypkg_set_options, keypkg_set_examples, run_keypkg_set},
    {"keypkg remove", "Remove a key package from a repository", "[NAME]", 0, 1,
     "Removes the key package of that identifier. With --repo server it goes from the naming "
     "service, and its user is logged out.",
     keypkg_remove_options, keypkg_remove_examples, run_keypkg_remove},
    {"message sign", "Make a signed message", "[FILE]", 0, 1,
     "Makes PKCS#7 signed data, with the content and the signer's certificates inside. Without "
     "--key the key server signs; without --cert the key package comes from the key server, and "
     "its certificate and the issuers' from the naming service." PASS_PHRASES,
     message_sign_options, message_sign_examples, run_message_sign},
    {"message verify", "Verify a signed message", "[FILE]", 0, 1,
     "Exits 0 if the signatures are good and each signer's certificate leads to a trusted key: "
     "through the certificates in the message, or those in the naming service where the message "
     "has the signer's alone. The data is written only then.\n\n"
     "Messages with authenticated attributes, of several signers, or without their content "
     "(--content) are verified by the command itself, which says so.",
     message_verify_options, message_verify_examples, run_message_verify},
    {"message show", "Show a signed message", "[FILE]", 0, 1,
     "Shows the content's type and size, the signers and the certificates of PKCS#7 signed data. "
     "Nothing is verified.",
     message_show_options, message_show_examples, run_message_show},
    {"dn", "Parse a distinguished name and print it normalised", "NAME...", 1, any_type,
     "Reads printable names, TYPE=VALUE parts joined by commas, the most specific first, and "
     "prints their normalised form. Types: CN, SERIAL, C, L, O, OU, ST, EM, STREET. A plus sign "
     "joins parts of one level; a backslash keeps a comma inside a value.",
     dn_options, dn_examples, run_dn},
    {"armor", "Put bytes into printable armour", "[FILE]", 0, 1,
     "Writes base 64 in lines of 64 characters (RFC 1421), between marker lines for the type. Text "
     "that is armoured already is refused, except under the type none.",
     armor_options, armor_examples, run_armor},
    {"dearmor", "Take bytes out of printable armour", "[FILE]", 0, 1,
     "Finds armour under any label in a text, passes over what stands around it, and writes the "
     "bytes.",
     dearmor_options, dearmor_examples, run_dearmor},
    {"asn1", "Decode, print and encode ASN.1 values", "[TYPE [FILE]]", 0, 2,
     "Decodes a value of the named or numbered type and prints its fields. Private keys, and what "
     "encrypts them, are never printed, and taken for no other type than their own.\n\n"
     "With --encode the value is written again: under der where the library encodes the type so "
     "(Name, CertificateInfo, Certificate, KeyPkgInfo, DigestInfo, CertificationRequestInfo), "
     "under ber, or with indefinite lengths.",
     asn1_options, asn1_examples, run_asn1},
    {"explain",
     "Explain a status of the library",
     "[CODE]...",
     0,
     any_type,
     "Tells, for a number or a name with or without QEL_ERR_, what a status means and what to do. "
     "Without a code it lists them all.",
     {},
     explain_examples,
     run_explain},
    {"help",
     "Print help",
     "[COMMAND]...",
     0,
     2,
     "Prints the list of commands, or one command's help.",
     {},
     help_examples,
     run_help},
    {"completion",
     "Print a shell's completion script",
     "bash",
     1,
     1,
     "Prints a script that completes commands, options and their values.",
     {},
     completion_examples,
     run_completion},
    {"man", "Print manual pages", "[COMMAND]...", 0, 2,
     "Prints the manual page of the program or of a command, as roff.", man_options, man_examples,
     run_man},
};

} // namespace

std::span<const Command> commands() {
    return all_commands;
}

std::span<const Option> common_options() {
    return common;
}

const Command *find_command(std::string_view name) {
    for (const Command &command : all_commands)
        if (name == command.name)
            return &command;
    return nullptr;
}

} // namespace tool
