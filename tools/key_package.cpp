#include "key_package.h"

#include "text.h"
#include "texts.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>

namespace tool {

Bytes taken(uint8_t *block, std::size_t length) {
    if (block == nullptr)
        return {};
    Bytes bytes(block, block + length);
    explicit_bzero(block, length);
    std::free(block);
    return bytes;
}

namespace {

constexpr uint32_t least_made = 100'000;
constexpr uint32_t most_made = 10'000'000;
constexpr double usual_seconds = 0.25; // what unlocking a new package takes its owner

void check(QelStatus status, Text what) {
    if (status != QEL_OK)
        throw library_failure(status, text_of(what));
}

std::string in_words(const StoredPackage &package) {
    return text_of(Text::package_in, {in_quotes(package.record->keypkgId), package.where});
}

// ---- Derivation --------------------------------------------------------------------------------

using Salt = std::array<uint8_t, 8>;

struct DerivedKey {
    Bytes key, iv;
};

DerivedKey derive(QelContext *context, Salt salt, uint32_t iterations, const char *phrase) {
    PassPhraseKeyInput input = {salt.data(), salt.size(), const_cast<char *>(phrase), iterations};
    uint8_t *key = nullptr, *iv = nullptr;
    uint32_t key_length = 0, iv_length = 0;
    const QelStatus status =
        __qel_gen_des3_key_from_pwd(context, &input, &key, &key_length, &iv, &iv_length);
    DerivedKey derived = {taken(key, key_length), taken(iv, iv_length)};
    check(status, Text::cannot_derive);
    return derived;
}

// The derivation begins from one half for most of the key and from the other for the rest.
Salt fresh_salt() {
    Salt salt;
    const auto middle = salt.begin() + salt.size() / 2;
    do {
        uint8_t *bytes = salt.data();
        check(qel_random(static_cast<uint16_t>(salt.size()), &bytes), Text::cannot_make_salt);
    } while (std::equal(salt.begin(), middle, middle));
    return salt;
}

// Computing time, which other programs on the host do not change.
double seconds_of_computing() {
    timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// ---- The parts of a new package ----------------------------------------------------------------

// Constants of the library stand in records that are encoded and never freed.
QelAlgId *borrowed(const QelAlgId *algorithm) {
    return const_cast<QelAlgId *>(algorithm);
}

QelOctetString octets(Bytes &bytes) {
    return {static_cast<uint32_t>(bytes.size()), bytes.data()};
}

Bytes private_key_info(QelContext *context, const KeyPair &key) {
    Bytes numbers = key.private_key;
    const QelPrivateKeyInfo info = {0, 0, borrowed(QEL_RSA_ENCR_AID), octets(numbers), nullptr};
    return encode(context, &info, QEL_PDU_PrivateKeyInfo, text_of(Text::the_private_key));
}

struct EncryptedKey {
    Bytes parameters, data;
};

EncryptedKey encrypt_key(QelContext *context, const Bytes &plain, uint32_t iterations,
                         const PassPhrase &phrase) {
    Salt salt = fresh_salt();
    const DerivedKey derived = derive(context, salt, iterations, phrase.text());
    uint8_t *data = nullptr;
    uint32_t length = 0;
    check(aksksfdq(context, plain.data(), static_cast<uint32_t>(plain.size()), derived.key.data(),
                   static_cast<uint32_t>(derived.key.size()), derived.iv.data(),
                   static_cast<uint32_t>(derived.iv.size()), &data, &length),
          Text::cannot_encrypt_key);
    const QelPBEParameter parameters = {{static_cast<uint32_t>(salt.size()), salt.data()},
                                        iterations};
    return {encode(context, &parameters, QEL_PDU_PBEParameter, text_of(Text::the_salt)),
            taken(data, length)};
}

// The keys of certificates as a list of trusted keys; names, keys and times stay theirs.
class TrustedKeys {
public:
    explicit TrustedKeys(const std::vector<const QelCert *> &certificates)
        : serials_(certificates.size()), keys_(certificates.size()), nodes_(certificates.size()) {
        for (std::size_t i = 0; i < certificates.size(); ++i) {
            const QelCert &cert = *certificates[i];
            serials_[i] = {cert.serial.length, cert.serial.value};
            keys_[i] = {0,           cert.subject,  cert.pubKeyInfo,
                        cert.issuer, cert.validity, &serials_[i],
                        nullptr};
            nodes_[i] = {i + 1 < nodes_.size() ? &nodes_[i + 1] : nullptr, &keys_[i]};
        }
    }
    QelTrustedKeys *list() { return nodes_.empty() ? nullptr : nodes_.data(); }

private:
    std::vector<QelOctetString> serials_;
    std::vector<QelTrustedKey> keys_;
    std::vector<QelTrustedKeys> nodes_;
};

// Signs the package and encodes it with its signature.
Bytes signed_package(QelContext *context, QelKeyPkg &package, const KeyPair &key) {
    const QelStatus status =
        __qel_sign_keypkg(context, &package, QEL_RSA_ENCR_AID, key.private_key.data(),
                          static_cast<uint32_t>(key.private_key.size()), package.algorithm);
    const LibraryBytes signature(package.signature.value);
    check(status, Text::cannot_sign_package);
    return encode(context, &package, QEL_PDU_KeyPkg, text_of(Text::the_key_package));
}

UnlockedPackage validate(QelContext *context, const Bytes &package, const PassPhrase &phrase,
                         QelStatus &status) {
    QelKeyPkg *record = nullptr;
    uint8_t *key = nullptr;
    uint32_t length = 0;
    status = __qel_validate_keypkg_with_pwd(context, package.data(),
                                            static_cast<uint32_t>(package.size()), phrase.text(),
                                            &record, &key, &length);
    return {{record, ReleasePdu{context, QEL_PDU_KeyPkg}}, taken(key, length)};
}

void prove(QelContext *context, const Bytes &package, const PassPhrase &phrase,
           const Bytes &private_key) {
    const std::string what = text_of(Text::cannot_make_package);
    QelStatus status = QEL_OK;
    const UnlockedPackage unlocked = validate(context, package, phrase, status);
    if (status == QEL_ERR_VERIFY)
        throw Failure{Exit::input, what, text_of(Text::numbers_do_not_belong),
                      text_of(Text::get_key_from_source), status};
    check(status, Text::cannot_make_package);
    if (unlocked.private_key != private_key)
        throw Failure{Exit::internal, what, text_of(Text::holds_another_key),
                      text_of(Text::nothing_written)};
}

} // namespace

uint32_t measured_iterations(QelContext *context) {
    constexpr double enough = 0.02; // seconds that can be told from the clock's own steps
    for (uint32_t count = least_made / 8;; count *= 4) {
        const double begin = seconds_of_computing();
        derive(context, {1, 2, 3, 4, 5, 6, 7, 8}, count, "a pass phrase of usual length");
        const double seconds = seconds_of_computing() - begin;
        if (seconds >= enough || count >= most_made)
            return static_cast<uint32_t>(
                std::clamp(count * (usual_seconds / std::max(seconds, 1e-9)), double{least_made},
                           double{most_made}));
    }
}

Bytes make_package(QelContext *context, const NewPackage &plan, const KeyPair &key,
                   const PassPhrase &phrase) {
    const uint32_t iterations =
        plan.iterations != 0 ? plan.iterations : measured_iterations(context);
    const Bytes plain = private_key_info(context, key);
    EncryptedKey encrypted = encrypt_key(context, plain, iterations, phrase);

    QelOctetString parameters = octets(encrypted.parameters);
    QelAlgId encryption = {const_cast<QelOid *>(QEL_PbeWithMD5AndDES3_CBC_OID), &parameters};
    QelEncryptedPrivateKeyInfo private_info = {&encryption, octets(encrypted.data)};
    Bytes public_bits = key.public_key;
    QelKeyInfo public_info = {borrowed(QEL_RSA_ENCR_AID),
                              {static_cast<uint32_t>(public_bits.size()) * 8, public_bits.data()}};
    TrustedKeys trusted(plan.trusted);
    std::string version = "1.0", id = plan.id;

    QelKeyPkg package = {};
    package.version = version.data();
    package.keypkgId = id.data();
    package.owner = const_cast<QelName *>(plan.owner);
    package.pubKeyInfo = &public_info;
    package.encrPrivKeyInfo = &private_info;
    package.usage = plan.usage;
    package.tKeys = trusted.list();
    package.algorithm = borrowed(QEL_MD5WithRSAEncryption_AID);
    const Bytes encoded = signed_package(context, package, key);
    prove(context, encoded, phrase, plain);
    return encoded;
}

// ---- What a package holds ----------------------------------------------------------------------

Protection protection_of(QelContext *context, const QelKeyPkg &package) {
    Protection protection;
    const QelAlgId *algorithm = package.encrPrivKeyInfo->encryptionAlgorithm;
    protection.algorithm = algorithm_text(algorithm);
    if (algorithm == nullptr || algorithm->parameters == nullptr)
        return protection;
    const auto parameters = decode<QelPBEParameter>(
        context, {algorithm->parameters->value, algorithm->parameters->length},
        QEL_PDU_PBEParameter);
    if (parameters) {
        protection.readable = true;
        protection.salt_length = parameters->salt.length;
        protection.iterations = parameters->iterationCount;
    }
    return protection;
}

namespace {

struct UsageRow {
    const char *name;
    uint32_t usage;
};

constexpr UsageRow usages[] = {
    {"both", USAGE_SIGN_ENCRYPT},
    {"sign", USAGE_SIGN},
    {"decrypt", USAGE_ENCRYPT},
};

} // namespace

std::string usage_text(uint32_t usage) {
    for (const UsageRow &row : usages)
        if (usage == row.usage)
            return row.name;
    return "unknown (" + std::to_string(usage) + ")";
}

uint32_t usage_named(const std::string &name) {
    for (const UsageRow &row : usages)
        if (name == row.name)
            return row.usage;
    return USAGE_SIGN_ENCRYPT;
}

// ---- Unlocking ---------------------------------------------------------------------------------

namespace {

void check_cost(QelContext *context, const Arguments &arguments, const StoredPackage &package) {
    const Protection protection = protection_of(context, *package.record);
    const uint64_t most = arguments.number("max-iterations", most_iterations, 1, UINT32_MAX);
    const std::string what = text_of(Text::cannot_unlock, {in_words(package)});
    if (!protection.readable)
        throw Failure{Exit::input, what, text_of(Text::encrypted_unknown_way),
                      text_of(Text::get_package_again)};
    if (protection.salt_length % 2 != 0)
        throw Failure{Exit::input, what,
                      text_of(Text::odd_salt, {std::to_string(protection.salt_length)}),
                      text_of(Text::get_package_again)};
    if (protection.iterations > most)
        throw Failure{Exit::input, what,
                      text_of(Text::too_many_iterations,
                              {std::to_string(protection.iterations), std::to_string(most)}),
                      text_of(Text::allow_iterations, {std::to_string(protection.iterations)})};
}

} // namespace

QelStatus signature_status(QelContext *context, const StoredPackage &package) {
    QelKeyPkg *record = nullptr;
    const QelStatus status = __qel_verify_keypkg_sig(
        context, package.bytes.data(), static_cast<uint32_t>(package.bytes.size()), &record);
    const Decoded<QelKeyPkg> owner(record, ReleasePdu{context, QEL_PDU_KeyPkg});
    return status;
}

UnlockedPackage unlock(QelContext *context, const Arguments &arguments,
                       const StoredPackage &package, const PassPhraseSource &source) {
    const std::string what = text_of(Text::cannot_unlock, {in_words(package)});
    QelStatus status = signature_status(context, package);
    if (status != QEL_OK) {
        Failure failure = library_failure(status, what, text_of(Text::get_package_again));
        failure.exit = verdict_exit(status) == Exit::no ? Exit::input : failure.exit;
        throw failure;
    }
    check_cost(context, arguments, package);
    UnlockedPackage unlocked = validate(context, package.bytes, source.read(), status);
    if (status == QEL_ERR_DECRYPT || status == QEL_ERR_ASN1_DECODE)
        throw Failure{Exit::pass_phrase, what, text_of(Text::phrase_is_wrong),
                      text_of(Text::try_right_phrase), status};
    if (status != QEL_OK) {
        Failure failure = library_failure(status, what);
        failure.exit = verdict_exit(status) == Exit::no ? Exit::input : failure.exit;
        throw failure;
    }
    return unlocked;
}

Bytes with_new_phrase(QelContext *context, UnlockedPackage &unlocked, const PassPhrase &phrase) {
    check(__qel_change_pass_phrase(context, phrase.text(), unlocked.private_key.data(),
                                   static_cast<uint32_t>(unlocked.private_key.size()),
                                   unlocked.record.get()),
          Text::cannot_change_phrase);
    const Bytes package =
        encode(context, unlocked.record.get(), QEL_PDU_KeyPkg, text_of(Text::the_key_package));
    prove(context, package, phrase, unlocked.private_key);
    return package;
}

Bytes signed_again(QelContext *context, QelKeyPkg &package, const PrivateKey &key) {
    check(__qel_sign_keypkg(context, &package, key.algorithm, key.data(), key.size(),
                            package.algorithm),
          Text::cannot_sign_package);
    check(__qel_verify_keypkg(context, &package, package.pubKeyInfo),
          Text::cannot_sign_package_itself);
    return encode(context, &package, QEL_PDU_KeyPkg, text_of(Text::the_key_package));
}

PrivateKey private_key_of(QelContext *context, UnlockedPackage unlocked) {
    PrivateKey key;
    QelStatus status = QEL_OK;
    key.record =
        decode<QelPrivateKeyInfo>(context, unlocked.private_key, QEL_PDU_PrivateKeyInfo, &status);
    check(status, Text::cannot_read_packages_key);
    QelOctetString &octets = key.record->privateKey;
    key.octets.assign(octets.value, octets.value + octets.length);
    explicit_bzero(octets.value, octets.length);
    key.algorithm = key.record->privateKeyAlgorithm;
    key.package = std::move(unlocked.record);
    return key;
}

PrivateKey read_private_key(QelContext *context, const Arguments &arguments,
                            const std::string &path, uint32_t use) {
    const Input input = read_input(path);
    std::vector<StoredPackage> packages = packages_of(context, input);
    if (packages.empty())
        return read_private_key(context, input);
    const PassPhraseSource source(arguments, "passin", QEL_PHRASE_OWN);
    const StoredPackage package =
        choose_package(arguments, display_name(path), std::move(packages));
    const uint32_t usage = package.record->usage;
    if (use != any_use && usage != USAGE_SIGN_ENCRYPT && usage != use)
        throw Failure{Exit::permission, text_of(Text::cannot_use, {in_words(package)}),
                      text_of(Text::usage_is, {usage_text(usage), usage_text(use)}),
                      text_of(Text::use_another_package)};
    return private_key_of(context, unlock(context, arguments, package, source));
}

} // namespace tool
