// qel keypkg show, verify, passwd, export
#include "account.h"
#include "armour.h"
#include "command.h"
#include "key_package.h"
#include "text.h"
#include "texts.h"

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace tool {
namespace {} // namespace

std::string package_path(const Arguments &arguments) {
    if (!arguments.operands().empty())
        return arguments.operands()[0];
    const std::string own = default_package_file();
    if (access(own.c_str(), F_OK) != 0 && errno == ENOENT)
        throw Failure{Exit::no_key, text_of(Text::no_own_package_file),
                      text_of(Text::no_file, {in_quotes(own)}), text_of(Text::make_or_name_package),
                      QEL_ERR_NO_KEYPKG};
    return own;
}

namespace {

std::string protection_text(const Protection &protection) {
    if (!protection.readable)
        return "encrypted with " + protection.algorithm + " in an unknown way";
    return "encrypted with " + protection.algorithm + ", " + std::to_string(protection.iterations) +
           " iterations, " + std::to_string(protection.salt_length) + " bytes of salt";
}

} // namespace

std::string trusted_text(QelContext *context, const QelTrustedKey &key) {
    std::string text = name_text(key.owner) + "\n";
    text += line("", key_text(key.pubKeyInfo) + ", MD5 fingerprint " +
                         key_fingerprint(context, key.pubKeyInfo));
    if (key.issuer != nullptr && key.serial != nullptr)
        text += line("", "certificate " + hex({key.serial->value, key.serial->length}) + " of " +
                             name_text(key.issuer));
    if (key.validity != nullptr)
        text += line("", time_text(key.validity->notBefore) + " to " +
                             time_text(key.validity->notAfter) + " (" +
                             validity_words(key.validity) + ")");
    text.pop_back();
    return text;
}

Json trusted_json(QelContext *context, const QelTrustedKey &key) {
    Json json;
    json["owner"] = name_text(key.owner, Charset::utf8);
    json["issuer"] =
        key.issuer != nullptr ? Json(name_text(key.issuer, Charset::utf8)) : Json(nullptr);
    json["serial"] =
        key.serial != nullptr ? Json(hex({key.serial->value, key.serial->length})) : Json(nullptr);
    json["public_key"] = key_json(context, key.pubKeyInfo);
    json["validity"] = nullptr;
    if (key.validity != nullptr)
        json["validity"] = {{"not_before", time_text(key.validity->notBefore)},
                            {"not_after", time_text(key.validity->notAfter)},
                            {"state", validity_state(key.validity)}};
    return json;
}

std::string named(const StoredPackage &package) {
    return text_of(Text::package_named, {package.where, in_quotes(package.record->keypkgId)});
}

std::string package_text(QelContext *context, const StoredPackage &package) {
    const QelKeyPkg &record = *package.record;
    const QelStatus status = signature_status(context, package);
    std::string text = named(package) + "\n" + line("Owner", name_text(record.owner)) +
                       line("Usage", usage_text(record.usage)) +
                       line("Key", key_text(record.pubKeyInfo)) +
                       line("MD5 fingerprint", key_fingerprint(context, record.pubKeyInfo)) +
                       line("Private key", protection_text(protection_of(context, record)));
    const char *label = "Trusted keys";
    for (const QelTrustedKeys *node = record.tKeys; node != nullptr; node = node->next) {
        text += line(label, trusted_text(context, *node->key));
        label = "";
    }
    return text + line("Version", escaped(record.version)) +
           line("Signature",
                algorithm_text(record.algorithm) +
                    (status == QEL_OK ? ", good" : ", NOT good: " + status_words(status)));
}

Json package_json(QelContext *context, const StoredPackage &package) {
    const QelKeyPkg &record = *package.record;
    const QelStatus status = signature_status(context, package);
    const Protection protection = protection_of(context, record);
    Json json;
    json["id"] = utf8_or_latin1(record.keypkgId);
    json["version"] = utf8_or_latin1(record.version);
    json["owner"] = name_text(record.owner, Charset::utf8);
    json["owner_name"] = name_json(context, record.owner);
    json["usage"] = usage_text(record.usage);
    json["public_key"] = key_json(context, record.pubKeyInfo);
    json["private_key"]["algorithm"] = protection.algorithm;
    json["private_key"]["iterations"] =
        protection.readable ? Json(protection.iterations) : Json(nullptr);
    json["private_key"]["salt_length"] =
        protection.readable ? Json(protection.salt_length) : Json(nullptr);
    json["trusted_keys"] = Json::array();
    for (const QelTrustedKeys *node = record.tKeys; node != nullptr; node = node->next)
        json["trusted_keys"].push_back(trusted_json(context, *node->key));
    json["signature"]["algorithm"] = algorithm_text(record.algorithm);
    json["signature"]["verified"] = status == QEL_OK;
    json["signature"]["status"] = status_json(status);
    return json;
}

Exit run_keypkg_show(const Arguments &arguments) {
    const Context context;
    const std::string path = package_path(arguments);
    std::vector<StoredPackage> packages;
    if (arguments.has("id"))
        packages.push_back(read_package(context, arguments, path));
    else
        packages = read_packages(context, path);
    Json json = arguments.report();
    json["file"] = utf8_or_latin1(path);
    json["packages"] = Json::array();
    for (const StoredPackage &package : packages) {
        if (arguments.json()) {
            json["packages"].push_back(package_json(context, package));
            continue;
        }
        put(package_text(context, package));
        if (arguments.has("full"))
            put(account_or_reason([&] { return keypkg_account(context, *package.record); }));
    }
    if (arguments.json())
        put_json(json);
    return Exit::yes;
}

Exit run_keypkg_verify(const Arguments &arguments) {
    const Context context;
    const std::string path = package_path(arguments);
    const bool with_phrase = arguments.has("passin");
    std::optional<PassPhraseSource> source;
    if (with_phrase) {
        source.emplace(arguments, "passin", QEL_PHRASE_OWN);
        arguments.check_stdin_once({path, phrase_path(arguments, "passin")});
    }
    const StoredPackage package = read_package(context, arguments, path);
    const QelStatus status = signature_status(context, package);
    const Exit exit = verdict_exit(status);
    if (exit == Exit::yes && with_phrase)
        unlock(context, arguments, package, *source);
    if (arguments.json()) {
        Json json = arguments.report();
        json["file"] = utf8_or_latin1(path);
        json["id"] = utf8_or_latin1(package.record->keypkgId);
        json["verified"] = exit == Exit::yes;
        json["unlocked"] = exit == Exit::yes && with_phrase;
        json["status"] = status_json(status);
        put_json(json);
        return exit;
    }
    if (exit == Exit::yes)
        put(text_of(with_phrase ? Text::package_good_unlocked : Text::package_good,
                    {named(package)}) +
            "\n");
    else
        put(text_of(Text::not_verified, {named(package), status_words(status)}) + "\n");
    if (exit != Exit::yes)
        print_failure(arguments.command().name,
                      library_failure(status, text_of(Text::signature_of, {named(package)}),
                                      text_of(Text::get_package_again)));
    return exit;
}

Exit run_keypkg_passwd(const Arguments &arguments) {
    const PassPhraseSource old_source(arguments, "passin", QEL_PHRASE_OLD);
    const PassPhraseSource new_source(arguments, "new-passin", QEL_PHRASE_NEW);
    const std::string path = package_path(arguments);
    const std::string output = arguments.value("output", path.c_str());
    // Both phrases may be lines of one stream.
    for (const char *option : {"passin", "new-passin"})
        arguments.check_stdin_once({path, phrase_path(arguments, option)});
    if (output != path || path == "-")
        check_place(arguments, output);

    const Context context;
    const StoredPackage package = read_package(context, arguments, path);
    UnlockedPackage unlocked = unlock(context, arguments, package, old_source);
    const Bytes changed = with_new_phrase(context, unlocked, new_source.read());
    if (output == path && path != "-")
        replace_package(path, package.bytes, changed);
    else
        store_package(arguments, output, changed, package.record->keypkgId);
    if (arguments.json()) {
        Json json = arguments.report();
        json["file"] = utf8_or_latin1(path);
        json["output"] = utf8_or_latin1(output);
        json["id"] = utf8_or_latin1(package.record->keypkgId);
        put_json(json);
    } else if (output != "-") {
        put((output == path
                 ? text_of(Text::phrase_changed, {named(package)})
                 : text_of(Text::phrase_changed_in, {named(package), display_name(output)})) +
            "\n");
    }
    return Exit::yes;
}

namespace {

void write_key(const Arguments &arguments, const std::string &output, const Bytes &der,
               const char *label, const FileOptions &options = {}) {
    const bool pem = arguments.value("form", "der") == "pem";
    write_file(output, pem ? armoured(der, label) : der, options);
}

void export_private(const Arguments &arguments, const Context &context,
                    const StoredPackage &package, const PassPhraseSource &source,
                    const std::string &output) {
    const UnlockedPackage unlocked = unlock(context, arguments, package, source);
    write_key(arguments, output, unlocked.private_key, "PRIVATE KEY",
              {.secret = true, .force = arguments.has("force")});
    warn(text_of(Text::key_unprotected, {display_name(output)}));
}

} // namespace

Exit run_keypkg_export(const Arguments &arguments) {
    const bool secret = !arguments.has("public");
    if (secret != arguments.has("unencrypted"))
        arguments.misuse(text_of(Text::public_or_unencrypted));
    const std::string path = package_path(arguments);
    const std::string output = arguments.value("output");
    std::optional<PassPhraseSource> source;
    struct stat about;
    if (secret) {
        source.emplace(arguments, "passin", QEL_PHRASE_OWN);
        arguments.check_stdin_once({path, phrase_path(arguments, "passin")});
        if (output == "-" || (stat(output.c_str(), &about) == 0 && !S_ISREG(about.st_mode)))
            arguments.misuse(text_of(Text::key_to_own_file));
    } else {
        arguments.check_output(output, arguments.value("form", "der") == "der", false);
    }
    const Context context;
    const StoredPackage package = read_package(context, arguments, path);
    const Bytes public_key = encode(context, package.record->pubKeyInfo,
                                    QEL_PDU_SubjectPublicKeyInfo, text_of(Text::the_public_key));
    const bool to_json = arguments.json() && output == "-";
    if (secret)
        export_private(arguments, context, package, *source, output);
    else if (!to_json)
        write_key(arguments, output, public_key, "PUBLIC KEY");
    if (arguments.json()) {
        Json json = arguments.report();
        json["file"] = utf8_or_latin1(path);
        json["id"] = utf8_or_latin1(package.record->keypkgId);
        json["key"] = secret ? "private" : "public";
        json["output"] = to_json ? Json(nullptr) : Json(utf8_or_latin1(output));
        if (to_json)
            json["hex"] = hex(public_key);
        json["form"] = arguments.value("form", "der");
        put_json(json);
    }
    return Exit::yes;
}

} // namespace tool
