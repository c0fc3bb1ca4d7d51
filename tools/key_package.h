// key_package.h: key packages: making, finding, unlocking, and storing them.
//
// A key package is a user's RSA private key, encrypted under a pass phrase, with the owner's name, the
// public key, a usage, the keys that the owner trusts, and a signature by the key itself over all of
// it. The signature shows that the parts belong together and that whoever made the package had the
// private key; it says nothing of who that was.
#ifndef TOOLS_KEY_PACKAGE_H
#define TOOLS_KEY_PACKAGE_H

#include "credential.h"
#include "pass_phrase.h"

#include <string>
#include <vector>

namespace tool {

constexpr const char *default_package_id = "default_keyid";
constexpr const char *package_label = "KEYPKG";

// A package whose pass phrase costs more iterations than these is refused before the first, unless
// --max-iterations says more: its maker could otherwise keep a host busy for minutes.
constexpr uint32_t most_iterations = 50'000'000;

// Takes a secret over from the library; null gives no bytes.
Bytes taken(uint8_t *block, std::size_t length);

// ---- Where packages are ------------------------------------------------------------------------

// The file with the user's own packages: in the home folder, the login name and ".KEYPKG". Where there
// is only a hidden file of that name, with a dot before it, that is it. Throws Failure for a user whom
// the host does not know.
std::string default_package_file();

// The file that the operand names, or the user's own. Throws Failure, Exit::no_key, where there is no
// such file of the user's.
std::string package_path(const Arguments &arguments);

// A package in a file.
struct StoredPackage {
    std::string where; // file, and block where there are several; safe to print
    Bytes bytes;       // as they stand there
    Decoded<QelKeyPkg> record;
};
// All packages among what was read, DER or armoured. Throws Failure at one that cannot be decoded.
std::vector<StoredPackage> packages_of(QelContext *context, const Input &input);
// The packages of a file ("-" is standard input), at least one.
std::vector<StoredPackage> read_packages(QelContext *context, const std::string &path);

// The package with the identifier of --id, or the only one. Throws Failure, Exit::no_key, where there
// is none, and UsageError where --id has to choose.
//   where  safe to print.
StoredPackage choose_package(const Arguments &arguments, const std::string &where,
                             std::vector<StoredPackage> packages);
StoredPackage read_package(QelContext *context, const Arguments &arguments,
                           const std::string &path);

// ---- What a package holds ----------------------------------------------------------------------

// How the private key is encrypted.
struct Protection {
    std::string algorithm;
    bool readable = false; // the parameters could be decoded
    std::size_t salt_length = 0;
    uint32_t iterations = 0;
};
Protection protection_of(QelContext *context, const QelKeyPkg &package);

// "sign", "decrypt", "both", or the number of an unknown usage.
std::string usage_text(uint32_t usage);
// What --usage names.
uint32_t usage_named(const std::string &name);

// The library's verdict on the package's signature by its own key.
QelStatus signature_status(QelContext *context, const StoredPackage &package);

// What people and programs are told of a package, without any secret.
std::string package_text(QelContext *context, const StoredPackage &package);
Json package_json(QelContext *context, const StoredPackage &package);
// "'alice.KEYPKG': key package 'default_keyid'"
std::string named(const StoredPackage &package);
// The same of one of the keys that the owner trusts: lines for a label.
std::string trusted_text(QelContext *context, const QelTrustedKey &key);
Json trusted_json(QelContext *context, const QelTrustedKey &key);

// ---- Unlocking ---------------------------------------------------------------------------------

// A package with its private key.
struct UnlockedPackage {
    Decoded<QelKeyPkg> record;
    Bytes private_key; // PrivateKeyInfo (PKCS#8), DER
};

// Checks the package's signature and the work that its pass phrase costs (--max-iterations), then
// reads the pass phrase and unlocks the package. Throws Failure: Exit::input for a package that is
// damaged or costs too much, Exit::pass_phrase for a wrong pass phrase.
UnlockedPackage unlock(QelContext *context, const Arguments &arguments,
                       const StoredPackage &package, const PassPhraseSource &source);

// The package under another pass phrase, in DER, signed and proved again. Salt and number of iterations
// stay as they are.
Bytes with_new_phrase(QelContext *context, UnlockedPackage &unlocked, const PassPhrase &phrase);

// A package that was changed, signed by its own key again, in DER.
Bytes signed_again(QelContext *context, QelKeyPkg &package, const PrivateKey &key);

// The private key of a package, which goes with it.
PrivateKey private_key_of(QelContext *context, UnlockedPackage unlocked);

// A use that no usage of a package forbids.
constexpr uint32_t any_use = 0;
// A private key for qel_sign and the like, from a key package (--id, --passin, --max-iterations) or
// from a file with a private key that no pass phrase protects.
//   use  USAGE_SIGN, USAGE_ENCRYPT or any_use: what the key is for. Throws Failure, Exit::permission, where the
//        package's usage forbids it.
PrivateKey read_private_key(QelContext *context, const Arguments &arguments,
                            const std::string &path, uint32_t use);

// ---- Making ------------------------------------------------------------------------------------

// An RSA key pair.
struct KeyPair {
    Bytes private_key; // RSAPrivateKey (PKCS#1), DER
    Bytes public_key;  // RSAPublicKey (PKCS#1), DER
};

struct NewPackage {
    std::string id = default_package_id;
    const QelName *owner = nullptr;
    uint32_t usage = USAGE_SIGN_ENCRYPT;
    std::vector<const QelCert *> trusted; // whose keys the owner trusts
    uint32_t iterations = 0;              // 0: as many as take about a quarter of a second here
};

// A new package, in DER, with a random salt, signed with md5WithRSAEncryption, and proved by
// unlocking it.
Bytes make_package(QelContext *context, const NewPackage &plan, const KeyPair &key,
                   const PassPhrase &phrase);

// The number of iterations that take this host about a quarter of a second of computing, measured
// now; at least 100,000 and at most 10,000,000.
uint32_t measured_iterations(QelContext *context);

// ---- Storing -----------------------------------------------------------------------------------

// Tells, before any work is done, what store_package would refuse.
void check_place(const Arguments &arguments, const std::string &path);

// Writes a new package, armoured. A file that is there is kept unless --force replaces it, or --add
// adds the package to those that it holds, in place of one with the same identifier only if --force
// is given too. At no moment is there anything but the old file or the new one.
void store_package(const Arguments &arguments, const std::string &path,
                   std::span<const uint8_t> package, const std::string &id);

// Puts a package in the place of one that was read from path; everything else in the file stays as
// it is. Throws Failure where that package is no longer there.
void replace_package(const std::string &path, std::span<const uint8_t> old_package,
                     std::span<const uint8_t> package);

} // namespace tool

#endif
