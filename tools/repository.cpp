#include "repository.h"

#include "text.h"
#include "texts.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace tool {
namespace {

Repository in_file(const Arguments &arguments, const std::string &name) {
    if (name.empty())
        arguments.misuse(text_of(Text::name_the_file));
    return {QEL_REPO_FILE, name == "-" ? "" : name, display_name(name)};
}

// Kinds of repositories that a status means the same in.
enum : unsigned {
    file = 1,
    directory = 2,
    entry = 4,
    subject = 8,
    naming = entry | subject,
    server = 16
};

unsigned place_of(const Repository &repository) {
    switch (repository.selector) {
    case QEL_REPO_DSV:
    case QEL_REPO_DSV_QELSERV:
        return repository.by_subject ? subject : entry;
    case QEL_REPO_DEFAULT:
        return directory;
    case QEL_REPO_QELSERV:
        return server;
    default:
        return file;
    }
}

// What a status means there, and what to do.
struct AdviceRow {
    QelStatus status;
    unsigned places;
    Text next;
    std::optional<Exit> exit = std::nullopt;
};
constexpr AdviceRow advice_rows[] = {
    {QEL_ERR_FILE_FORMAT, file | directory, Text::one_block_only},
    {QEL_ERR_UNKNOWN_USER, entry, Text::no_entry_yet},
    {QEL_ERR_UNKNOWN_USER, subject, Text::nobody_under_name},
    {QEL_ERR_GENERAL, file, Text::file_not_deleted, Exit::output},
    {QEL_ERR_GENERAL, subject, Text::anothers_certificate, Exit::input},
    {QEL_ERR_NO_ENTRY, file | subject, Text::no_such_certificate},
    {QEL_ERR_ENTRY_EXISTS, naming, Text::same_is_there},
    {QEL_ERR_BAD_PARAM, directory, Text::name_with_slash},
    {QEL_ERR_BAD_PARAM, naming, Text::check_registered_owner},
    {QEL_ERR_XFN, naming, Text::see_naming_status},
    {QEL_ERR_NO_DN, subject, Text::see_naming_status, Exit::naming}, // the search failed
    {QEL_ERR_SERV_UPDATE, entry, Text::server_keeps_old},
    {QEL_ERR_OPEN_FILE, directory, Text::directory_must_be_there},
};

} // namespace

Repository file_to_write(const Arguments &arguments, const std::string &name) {
    if (name == "-")
        arguments.misuse(text_of(Text::dash_keeps_nothing));
    return in_file(arguments, name);
}

std::string own_login() {
    const passwd *user = getpwuid(getuid());
    if (user == nullptr)
        throw library_failure(QEL_ERR_UNKNOWN_USER, text_of(Text::no_login_name));
    return user->pw_name;
}

Repository naming_entry(const std::string &user) {
    const std::string name = user.empty() ? own_login() : user;
    return {QEL_REPO_DSV, name, text_of(Text::naming_entry, {in_quotes(name)})};
}

Repository packages_to_read(const Arguments &arguments, const std::string &name) {
    const std::string repo = arguments.value("repo", "naming");
    if (repo == "file")
        return in_file(arguments, name);
    if (repo == "naming")
        return naming_entry(name);
    if (!name.empty())
        arguments.misuse(text_of(Text::repo_is_own, {repo}));
    if (repo == "server")
        return {QEL_REPO_QELSERV, "", text_of(Text::the_key_server)};
    return {QEL_REPO_FILE, default_package_file(), display_name(default_package_file())};
}

Repository packages_to_write(const Arguments &arguments, const std::string &name) {
    const std::string repo = arguments.value("repo", "naming");
    if (repo == "file")
        return file_to_write(arguments, name);
    if (repo != "server")
        return packages_to_read(arguments, name);
    Repository repository = naming_entry(name);
    repository.selector = QEL_REPO_DSV_QELSERV;
    repository.where = text_of(Text::naming_entry_and_server, {in_quotes(repository.name)});
    return repository;
}

Repository certificates_to_read(const Arguments &arguments, const std::string &name) {
    const std::string repo = arguments.value("repo", "naming");
    if (repo == "stdin") {
        if (!name.empty())
            arguments.misuse(text_of(Text::repo_takes_no_name, {repo}));
        return {QEL_REPO_STDIN, "", text_of(Text::standard_input)};
    }
    if (repo == "file")
        return in_file(arguments, name);
    if (name.empty())
        arguments.misuse(text_of(Text::name_the_subject));
    if (repo == "default")
        return {QEL_REPO_DEFAULT, name,
                text_of(Text::certificate_directory_file, {in_quotes(name)}), true};
    return {QEL_REPO_DSV, name, text_of(Text::naming_subject, {in_quotes(name)}), true};
}

Failure store_failure(QelStatus status, const Repository &repository, const std::string &what) {
    Failure failure = library_failure(status, text_of(Text::failed_in, {what, repository.where}));
    const unsigned place = place_of(repository);
    for (const AdviceRow &row : advice_rows)
        if (row.status == status && (row.places & place) != 0) {
            failure.next = text_of(row.next);
            failure.exit = row.exit.value_or(failure.exit);
            break;
        }
    const bool is_answer =
        status == QEL_ERR_UNKNOWN_USER || status == QEL_ERR_NO_DN || status == QEL_ERR_XFN;
    if ((place & naming) == 0 || !is_answer)
        return failure;
    if (const auto cause = naming_failure()) { // which the library does not tell from an answer
        failure.exit = cause->exit;
        failure.why += " (" + cause->what + ": " + cause->why + ")";
        failure.next = cause->next;
    }
    return failure;
}

Failure change_failure(QelStatus status, const Repository &repository, const std::string &what) {
    Failure failure = store_failure(status, repository, what);
    if (status == QEL_ERR_OPEN_FILE || status == QEL_ERR_FILE_IO)
        failure.exit = Exit::output;
    return failure;
}

std::vector<StoredPackage> stored_packages(QelContext *context, const Repository &repository) {
    QelDataSetItem *items = nullptr;
    uint32_t count = 0;
    const QelStatus status = __qel_get_keypkg_data_set(context, repository.selector,
                                                       repository.name_or_null(), &items, &count);
    if (status != QEL_OK)
        throw store_failure(status, repository, text_of(Text::cannot_read_packages));
    std::vector<StoredPackage> packages;
    for (uint32_t i = 0; i < count; ++i) {
        StoredPackage package;
        package.where =
            count > 1 ? text_of(Text::package_number, {repository.where, std::to_string(i + 1)})
                      : repository.where;
        package.bytes.assign(items[i].data, items[i].data + items[i].length);
        packages.push_back(std::move(package));
        std::free(items[i].data);
    }
    std::free(items);
    for (StoredPackage &package : packages) {
        QelStatus decoded = QEL_OK;
        package.record = decode<QelKeyPkg>(context, package.bytes, QEL_PDU_KeyPkg, &decoded);
        if (!package.record)
            throw library_failure(decoded, text_of(Text::cannot_read_package_of, {package.where}));
    }
    return packages;
}

std::vector<Certificate> certificates_from(QelContext *context, QelCert *array, int count,
                                           const std::string &where) {
    struct Release {
        QelCert *array;
        int count;
        ~Release() { qel_free_cert_list(&array, count); }
    } const release{array, count};
    std::vector<Certificate> certificates;
    for (int i = 0; i < count; ++i) {
        Certificate certificate;
        certificate.where =
            count > 1 ? text_of(Text::certificate_number, {where, std::to_string(i + 1)}) : where;
        certificate.bytes =
            encode(context, &array[i], QEL_PDU_Certificate, text_of(Text::a_certificate));
        certificate.record = decode<QelCert>(context, certificate.bytes, QEL_PDU_Certificate);
        certificates.push_back(std::move(certificate));
    }
    return certificates;
}

std::vector<const char *> name_list(const std::vector<std::string> &names) {
    std::vector<const char *> list;
    for (const std::string &name : names)
        list.push_back(name.c_str());
    list.push_back(nullptr);
    return list;
}

} // namespace tool
