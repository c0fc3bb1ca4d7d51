// qel keygen, qel keypkg import: everything that makes key packages.
#include "command.h"
#include "export_policy.h"
#include "key_package.h"
#include "text.h"
#include "texts.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace tool {
namespace {

constexpr uint32_t usual_bits = 512;
constexpr uint32_t least_bits = 360; // an MD5 signature's block has 45 bytes
constexpr uint32_t most_bits = 16384;
constexpr uint32_t usual_exponent = 65537;
constexpr uint32_t least_iterations = 1000;

// Everything about a new package but its key, from the command line.
class Plan {
public:
    Plan(const Context &context, const Arguments &arguments)
        : context_(context), arguments_(arguments), source_(arguments, "passin", QEL_PHRASE_NEW),
          path_(arguments.value("output")) {
        if (path_.empty())
            path_ = default_package_file();
        check_place(arguments, path_);
        std::vector<std::string> inputs = arguments.values("trust");
        inputs.insert(inputs.end(), arguments.operands().begin(), arguments.operands().end());
        inputs.push_back(phrase_path(arguments, "passin"));
        arguments.check_stdin_once(inputs);
        package_.id = arguments.value("id", default_package_id);
        if (!std::all_of(package_.id.begin(), package_.id.end(),
                         [](char c) { return c >= ' ' && c <= '~'; }))
            arguments.misuse(text_of(Text::id_takes_ascii));
        package_.usage = usage_named(arguments.value("usage", "both"));
        package_.iterations = static_cast<uint32_t>(
            arguments.number("iterations", 0, least_iterations, most_iterations));
        take_owner();
        take_trusted();
    }

    // Asks for the pass phrase, makes the package, and writes it.
    Exit finish(const KeyPair &key) {
        const Bytes package = make_package(context_, package_, key, source_.read());
        store_package(arguments_, path_, package, package_.id);
        if (path_ == "-")
            return Exit::yes;
        const StoredPackage stored = {display_name(path_), package,
                                      decode<QelKeyPkg>(context_, package, QEL_PDU_KeyPkg)};
        if (!arguments_.json()) {
            put(package_text(context_, stored));
            return Exit::yes;
        }
        Json json = arguments_.report();
        json["output"] = utf8_or_latin1(path_);
        json["package"] = package_json(context_, stored);
        put_json(json);
        return Exit::yes;
    }

private:
    void take_owner() {
        owner_ = read_name(context_, arguments_.value("owner"), text_of(Text::owners_name));
        package_.owner = owner_.get();
    }

    void take_trusted() {
        for (const std::string &path : arguments_.values("trust"))
            for (Certificate &certificate : read_certificates(context_, path)) {
                if (const std::string state = validity_state(certificate.record->validity);
                    state != "valid")
                    warn(
                        text_of(Text::certificate_is,
                                {certificate.where, validity_words(certificate.record->validity)}));
                package_.trusted.push_back(certificate.record.get());
                trusted_.push_back(std::move(certificate));
            }
    }

    const Context &context_;
    const Arguments &arguments_;
    const PassPhraseSource source_;
    std::string path_;
    Name owner_;
    std::vector<Certificate> trusted_;
    NewPackage package_;
};

// The library turns a spinner on standard error while it generates; only a terminal gets it.
class Spinner {
public:
    Spinner() {
        if (isatty(STDERR_FILENO))
            return;
        kept_ = dup(STDERR_FILENO);
        const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (kept_ >= 0 && nothing >= 0)
            dup2(nothing, STDERR_FILENO);
        if (nothing >= 0)
            close(nothing);
    }
    ~Spinner() {
        if (kept_ < 0) {
            std::fputs("\r\033[K", stderr);
            return;
        }
        dup2(kept_, STDERR_FILENO);
        close(kept_);
    }
    Spinner(const Spinner &) = delete;
    Spinner &operator=(const Spinner &) = delete;

private:
    int kept_ = -1;
};

Bytes big_endian(uint32_t number) {
    Bytes bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        if (number >> shift != 0)
            bytes.push_back(static_cast<uint8_t>(number >> shift));
    return bytes;
}

KeyPair generate(QelContext *context, uint32_t bits, uint32_t exponent) {
    Bytes exponent_bytes = big_endian(exponent);
    const QelRsaKeypairParams parameters = {
        bits, {static_cast<uint32_t>(exponent_bytes.size()), exponent_bytes.data()}};
    uint8_t *public_key = nullptr, *private_key = nullptr;
    uint32_t public_bits = 0, private_length = 0;
    QelStatus status;
    {
        const Spinner spinner;
        status = qel_gen_rsa_keypair(context, &parameters, &public_key, &public_bits, &private_key,
                                     &private_length);
    }
    const std::string what = text_of(Text::cannot_generate, {std::to_string(bits)});
    if (status != QEL_OK)
        throw policy_failure(status, what, generated_modulus_rule(bits));
    return {taken(private_key, private_length), taken(public_key, public_bits / 8)};
}

} // namespace

Exit run_keygen(const Arguments &arguments) {
    const auto bits =
        static_cast<uint32_t>(arguments.number("bits", usual_bits, least_bits, most_bits));
    const auto exponent =
        static_cast<uint32_t>(arguments.number("exponent", usual_exponent, 3, UINT32_MAX));
    if (exponent % 2 == 0)
        arguments.misuse(text_of(Text::exponent_takes_odd));
    const Context context;
    Plan plan(context, arguments);
    return plan.finish(generate(context, bits, exponent));
}

Exit run_keypkg_import(const Arguments &arguments) {
    const Context context;
    Plan plan(context, arguments);
    const std::string &path = arguments.operands()[0];
    const Input input = read_input(path);
    if (!packages_of(context, input).empty())
        throw Failure{Exit::input, text_of(Text::cannot_import, {display_name(path)}),
                      text_of(Text::in_package_already), text_of(Text::use_or_export)};
    const PrivateKey key = read_private_key(context, input);
    int difference = 1;
    __qel_cmp_oid(key.algorithm->algorithm, QEL_RSA_ENCR_OID, &difference);
    const KeyPair pair = {key.octets, public_part(key.octets)};
    if (difference != 0 || pair.public_key.empty())
        throw Failure{Exit::input, text_of(Text::cannot_import, {display_name(path)}),
                      text_of(Text::no_rsa_key, {algorithm_text(key.algorithm)}),
                      text_of(Text::packages_hold_rsa)};
    return plan.finish(pair);
}

} // namespace tool
