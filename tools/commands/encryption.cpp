// encrypt, decrypt, wrap, unwrap, genkey, random, dh
#include "table.h"

namespace tool {
namespace {

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

constexpr Command encryption_table[] = {
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
};

} // namespace

std::span<const Command> encryption_commands() {
    return encryption_table;
}

} // namespace tool
