// qel keypkg get, set, remove, list
#include "command.h"
#include "key_package.h"
#include "key_server.h"
#include "repository.h"
#include "text.h"
#include "texts.h"

namespace tool {
namespace {

std::string operand(const Arguments &arguments) {
    return arguments.operands().empty() ? "" : arguments.operands().front();
}

// A context for the package of this identifier; with the key server where the repository needs it.
std::unique_ptr<Context> context_for(const Repository &repository, const std::string &id) {
    const bool server =
        repository.selector == QEL_REPO_QELSERV || repository.selector == QEL_REPO_DSV_QELSERV;
    return server ? std::make_unique<Context>(id, default_host) : std::make_unique<Context>(id);
}

void tell(const Arguments &arguments, const Repository &repository, const std::string &id,
          const std::string &words) {
    if (arguments.json()) {
        Json json = arguments.report();
        json["repository"] = arguments.value("repo", "naming");
        json["name"] =
            repository.name.empty() ? Json(nullptr) : Json(utf8_or_latin1(repository.name));
        json["id"] = utf8_or_latin1(id);
        put_json(json);
    } else if (arguments.value("output") != "-") { // where the package is
        put(words + "\n");
    }
}

} // namespace

Exit run_keypkg_get(const Arguments &arguments) {
    const Repository repository = packages_to_read(arguments, operand(arguments));
    const std::string id = arguments.value("id", default_package_id);
    const std::string output = arguments.value("output");
    check_place(arguments, output);
    const auto context = context_for(repository, id);
    QelKeyPkg *record = nullptr;
    const QelStatus status =
        __qel_get_keypkg(*context, repository.selector, repository.name_or_null(), &record);
    if (status != QEL_OK)
        throw store_failure(status, repository, text_of(Text::cannot_get_package, {in_quotes(id)}));
    const Decoded<QelKeyPkg> package(record, ReleasePdu{*context, QEL_PDU_KeyPkg});
    store_package(arguments, output,
                  encode(*context, package.get(), QEL_PDU_KeyPkg, text_of(Text::the_key_package)),
                  id);
    tell(arguments, repository, id,
         text_of(Text::package_is_in, {in_quotes(id), display_name(output), repository.where}));
    return Exit::yes;
}

Exit run_keypkg_list(const Arguments &arguments) {
    const Repository repository = packages_to_read(arguments, operand(arguments));
    const auto context = context_for(repository, default_package_id);
    Json json = arguments.report();
    json["repository"] = arguments.value("repo", "naming");
    json["packages"] = Json::array();
    for (const StoredPackage &package : stored_packages(*context, repository))
        if (arguments.json())
            json["packages"].push_back(package_json(*context, package));
        else
            put(package_text(*context, package));
    if (arguments.json())
        put_json(json);
    return Exit::yes;
}

Exit run_keypkg_set(const Arguments &arguments) {
    const std::string path = arguments.operand_or_stdin();
    const Repository repository = packages_to_write(arguments, arguments.value("to"));
    const Context reader;
    const StoredPackage package = read_package(reader, arguments, path);
    const QelStatus good = signature_status(reader, package);
    if (good != QEL_OK)
        throw library_failure(good, text_of(Text::signature_of_package_in, {package.where}),
                              text_of(Text::get_package_again));
    const std::string id = package.record->keypkgId;
    const auto context = context_for(repository, id);
    const QelStatus status = __qel_set_keypkg(*context, repository.selector,
                                              repository.name_or_null(), package.record.get());
    if (status != QEL_OK)
        throw change_failure(status, repository,
                             text_of(Text::cannot_store_package, {in_quotes(id)}));
    tell(arguments, repository, id,
         text_of(Text::package_stored, {in_quotes(id), repository.where}));
    return Exit::yes;
}

Exit run_keypkg_remove(const Arguments &arguments) {
    const Repository repository = packages_to_write(arguments, operand(arguments));
    const std::string id = arguments.value("id", default_package_id);
    const auto context = context_for(repository, id);
    const QelStatus status =
        __qel_remove_keypkg(*context, repository.selector, repository.name.c_str());
    if (status != QEL_OK)
        throw change_failure(status, repository,
                             text_of(Text::cannot_remove_package, {in_quotes(id)}));
    tell(arguments, repository, id,
         text_of(Text::package_removed, {in_quotes(id), repository.where}));
    return Exit::yes;
}

} // namespace tool
