// digest, sign, verify
#include "table.h"

namespace tool {
namespace {

constexpr Option digest_options[] = {algorithm_option};
constexpr Example digest_examples[] = {
    {"qel digest report.txt", "MD5 of a file"},
    {"tar c folder | qel digest -a md2", "MD2 of standard input"},
};

constexpr Option sign_options[] = {
    {"key", 'k', "FILE", nullptr, false,
     "private key: key package, or unencrypted PKCS#8 or PKCS#1 (default: the key server's)"},
    algorithm_option,
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
    algorithm_option,
};
constexpr Example verify_examples[] = {
    {"qel verify -s report.sig -c signer.pem report.txt", "verify with a certificate's key"},
    {"qel verify -s report.sig -k signer.pub -a md2 - < report.txt", "an MD2 signature, by key"},
};

constexpr Command signature_table[] = {
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
     "warning. A key of more than 4096 bits is refused if its exponent has more than 64.",
     verify_options, verify_examples, run_verify},
};

} // namespace

std::span<const Command> signature_commands() {
    return signature_table;
}

} // namespace tool
