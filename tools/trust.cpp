// qel trust list, add, delete: the keys that the owner of a key package trusts.
#include "account.h"
#include "command.h"
#include "key_package.h"
#include "text.h"
#include "texts.h"

#include <functional>

namespace tool {
namespace {

std::size_t count_of(const QelTrustedKeys *list) {
    std::size_t count = 0;
    for (; list != nullptr; list = list->next)
        ++count;
    return count;
}

using Change = std::function<void(QelContext *, QelTrustedKeys **)>;

void apply(QelContext *context, QelKeyPkg &package, const Change &change) {
    package.mask |= QEL_KEYPKG_TKEYS; // whoever releases the package looks at the bit
    change(context, &package.tKeys);
    if (package.tKeys == nullptr)
        package.mask = static_cast<uint8_t>(package.mask & ~QEL_KEYPKG_TKEYS);
}

// Unlocks the package, lets change work on its list, signs the package and puts it in its place. The
// number of keys that the list has more or fewer is said.
Exit change_list(const Arguments &arguments, const std::vector<std::string> &inputs,
                 const Change &change) {
    const PassPhraseSource source(arguments, "passin", QEL_PHRASE_OWN);
    const std::string path = package_path(arguments);
    std::vector<std::string> all = inputs;
    all.insert(all.end(), {path, phrase_path(arguments, "passin")});
    arguments.check_stdin_once(all);
    if (path == "-")
        check_place(arguments, path);

    const Context context;
    const StoredPackage package = read_package(context, arguments, path);
    // What cannot be done is told before the pass phrase is asked for.
    apply(context, *decode<QelKeyPkg>(context, package.bytes, QEL_PDU_KeyPkg), change);
    const PrivateKey key = private_key_of(context, unlock(context, arguments, package, source));
    QelKeyPkg &record = *key.package;
    const std::size_t before = count_of(record.tKeys);
    apply(context, record, change);
    const Bytes changed = signed_again(context, record, key);
    if (path == "-")
        store_package(arguments, path, changed, record.keypkgId);
    else
        replace_package(path, package.bytes, changed);

    const std::size_t after = count_of(record.tKeys);
    if (arguments.json()) {
        Json json = arguments.report();
        json["file"] = utf8_or_latin1(path);
        json["id"] = utf8_or_latin1(record.keypkgId);
        json["added"] = after > before ? after - before : 0;
        json["deleted"] = before > after ? before - after : 0;
        json["trusted_keys"] = after;
        put_json(json);
    } else if (path != "-") {
        const std::size_t number = after > before ? after - before : before - after;
        put(text_of(after > before ? Text::trusted_added : Text::trusted_deleted,
                    {named(package), std::to_string(number), std::to_string(after)}) +
            "\n");
    }
    return Exit::yes;
}

void add_key(QelContext *context, const Certificate &certificate, QelTrustedKeys **list) {
    const QelCert &cert = *certificate.record;
    QelOctetString serial = {cert.serial.length, cert.serial.value};
    const QelTrustedKey key = {0,       cert.subject, cert.pubKeyInfo, cert.issuer, cert.validity,
                               &serial, nullptr};
    const QelStatus status = __qel_add_trusted_key(context, &key, list);
    if (status == QEL_ERR_ENTRY_EXISTS)
        throw Failure{Exit::no, text_of(Text::cannot_trust, {certificate.where}),
                      text_of(Text::trusted_already), text_of(Text::nothing_to_do), status};
    if (status != QEL_OK)
        throw library_failure(status, text_of(Text::cannot_trust, {certificate.where}));
}

// What is left of a trusted key where only some of its parts are known.
class Template {
public:
    Template(QelContext *context, const Arguments &arguments) {
        if (arguments.has("issuer") != arguments.has("serial"))
            arguments.misuse(text_of(Text::issuer_and_serial_together));
        if (!arguments.has("subject") && !arguments.has("issuer"))
            arguments.misuse(text_of(Text::subject_or_issuer_needed));
        if (arguments.has("subject"))
            owner_ = read_name(context, arguments.value("subject"), text_of(Text::subjects_name));
        record_.owner = owner_.get();
        if (!arguments.has("issuer"))
            return;
        issuer_ = read_name(context, arguments.value("issuer"), text_of(Text::issuers_name));
        uint8_t *bytes = nullptr;
        if (__qel_hex_2_binary(arguments.value("serial").c_str(), &bytes, &serial_.length) !=
            QEL_OK)
            arguments.misuse(text_of(Text::serial_takes));
        serial_bytes_.reset(bytes);
        serial_.value = bytes;
        record_.issuer = issuer_.get();
        record_.serial = &serial_;
    }
    Template(const Template &) = delete;
    Template &operator=(const Template &) = delete;
    const QelTrustedKey *record() const { return &record_; }

private:
    Name owner_, issuer_;
    LibraryBytes serial_bytes_;
    QelOctetString serial_ = {};
    QelTrustedKey record_ = {};
};

} // namespace

Exit run_trust_list(const Arguments &arguments) {
    const Context context;
    const std::string path = package_path(arguments);
    const StoredPackage package = read_package(context, arguments, path);
    Json json = arguments.report();
    json["file"] = utf8_or_latin1(path);
    json["id"] = utf8_or_latin1(package.record->keypkgId);
    json["trusted_keys"] = Json::array();
    if (!arguments.json())
        put(text_of(Text::trusted_count,
                    {named(package), std::to_string(count_of(package.record->tKeys))}) +
            "\n");
    for (const QelTrustedKeys *node = package.record->tKeys; node != nullptr; node = node->next) {
        if (arguments.json()) {
            json["trusted_keys"].push_back(trusted_json(context, *node->key));
            continue;
        }
        put(line("Subject", trusted_text(context, *node->key)));
        if (arguments.has("full"))
            put(account_or_reason([&] { return trusted_key_account(context, *node->key); }));
    }
    if (arguments.json())
        put_json(json);
    return Exit::yes;
}

Exit run_trust_add(const Arguments &arguments) {
    const Context context;
    const std::vector<std::string> paths = arguments.values("cert");
    std::vector<Certificate> certificates;
    arguments.check_stdin_once(paths);
    for (const std::string &path : paths)
        for (Certificate &certificate : read_certificates(context, path))
            certificates.push_back(std::move(certificate));
    for (const Certificate &certificate : certificates)
        if (const std::string state = validity_state(certificate.record->validity);
            state != "valid")
            warn(text_of(Text::certificate_is,
                         {certificate.where, validity_words(certificate.record->validity)}));
    return change_list(arguments, paths, [&](QelContext *its, QelTrustedKeys **list) {
        for (const Certificate &certificate : certificates)
            add_key(its, certificate, list);
    });
}

Exit run_trust_delete(const Arguments &arguments) {
    const Context context;
    const Template unwanted(context, arguments);
    return change_list(arguments, {}, [&](QelContext *its, QelTrustedKeys **list) {
        const QelStatus status = __qel_delete_trusted_key(its, unwanted.record(), list);
        if (status == QEL_ERR_NO_ENTRY)
            throw Failure{Exit::no, text_of(Text::no_such_trusted_key),
                          text_of(Text::trusts_none_of_name), text_of(Text::trust_list_shows),
                          status};
        if (status != QEL_OK)
            throw library_failure(status, text_of(Text::cannot_delete_trusted));
    });
}

} // namespace tool
