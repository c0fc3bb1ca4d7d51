#include "repository.h"

#include "text.h"

#include <cstdlib>
#include <pwd.h>
#include <unistd.h>

namespace tool {
namespace {

Repository in_file(const Arguments &arguments, const std::string &name) {
    if (name.empty())
        arguments.misuse("name the file");
    return {QEL_REPO_FILE, name == "-" ? "" : name, display_name(name)};
}

} // namespace

Repository file_to_write(const Arguments &arguments, const std::string &name) {
    if (name == "-")
        arguments.misuse("'-' is no file that keeps anything: name the file");
    return in_file(arguments, name);
}

std::string own_login() {
    const passwd *user = getpwuid(getuid());
    if (user == nullptr)
        throw library_failure(QEL_ERR_UNKNOWN_USER, "cannot find your login name");
    return user->pw_name;
}

Repository naming_entry(const std::string &user) {
    const std::string name = user.empty() ? own_login() : user;
    return {QEL_REPO_DSV, name, "the naming service, entry " + in_quotes(name)};
}

Repository packages_to_read(const Arguments &arguments, const std::string &name) {
    const std::string repo = arguments.value("repo", "naming");
    if (repo == "file")
        return in_file(arguments, name);
    if (repo == "naming")
        return naming_entry(name);
    if (!name.empty())
        arguments.misuse("'--repo " + repo + "' takes no name: it is your own");
    if (repo == "server")
        return {QEL_REPO_QELSERV, "", "the key server"};
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
    repository.where += ", and the key server";
    return repository;
}

Repository certificates_to_read(const Arguments &arguments, const std::string &name) {
    const std::string repo = arguments.value("repo", "naming");
    if (repo == "stdin") {
        if (!name.empty())
            arguments.misuse("'--repo stdin' takes no name");
        return {QEL_REPO_STDIN, "", "standard input"};
    }
    if (repo == "file")
        return in_file(arguments, name);
    if (name.empty())
        arguments.misuse("name the subject, as in 'CN=Alice, O=Acme, C=US'");
    if (repo == "default")
        return {QEL_REPO_DEFAULT, name, "the certificate directory, file of " + in_quotes(name),
                true};
    return {QEL_REPO_DSV, name, "the naming service, subject " + in_quotes(name), true};
}

Failure store_failure(QelStatus status, const Repository &repository, const std::string &what) {
    Failure failure = library_failure(status, what + " in " + repository.where);
    const bool naming =
        repository.selector == QEL_REPO_DSV || repository.selector == QEL_REPO_DSV_QELSERV;
    if (status == QEL_ERR_FILE_FORMAT)
        failure.next = "The library reads files of one block of armour. 'qel keypkg show' and 'qel "
                       "cert show' read others.";
    if (status == QEL_ERR_XFN && geteuid() != 0)
        failure.next = "'qel naming status' tells whether it is set up. An entry is changed by its "
                       "own user and by the super-user.";
    if (status == QEL_ERR_UNKNOWN_USER && repository.by_subject)
        failure.next =
            "Nobody is registered under this name. 'qel naming status' tells under which "
            "name a user is.";
    if (status == QEL_ERR_GENERAL && naming && repository.by_subject) {
        failure.exit = Exit::input;
        failure.next = "A certificate of another subject is there, so that none is taken. 'qel "
                       "naming who' tells whose entry it is.";
    }
    if (status == QEL_ERR_GENERAL && repository.selector == QEL_REPO_FILE) {
        failure.exit = Exit::output;
        failure.next = "The file could not be deleted: check the permissions of its folder.";
    }
    if (status == QEL_ERR_BAD_PARAM && repository.selector == QEL_REPO_DEFAULT)
        failure.next = "Check the name; one with a slash has no file there.";
    if (status == QEL_ERR_OPEN_FILE && repository.selector == QEL_REPO_DEFAULT)
        failure.next = "The directory must be there; the super-user makes it, and writes there.";
    if (status == QEL_ERR_BAD_PARAM && naming)
        failure.next = "Check the name, and that the owner is the one that is registered for the "
                       "entry ('qel naming who' finds it).";
    if (status == QEL_ERR_ENTRY_EXISTS && naming)
        failure.next = "The same is there already, or another entry has this distinguished name.";
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
        throw store_failure(status, repository, "cannot read key packages");
    std::vector<StoredPackage> packages;
    for (uint32_t i = 0; i < count; ++i) {
        StoredPackage package;
        package.where =
            repository.where + (count > 1 ? ", package " + std::to_string(i + 1) : std::string());
        package.bytes.assign(items[i].data, items[i].data + items[i].length);
        packages.push_back(std::move(package));
        std::free(items[i].data);
    }
    std::free(items);
    for (StoredPackage &package : packages) {
        QelStatus decoded = QEL_OK;
        package.record = decode<QelKeyPkg>(context, package.bytes, QEL_PDU_KeyPkg, &decoded);
        if (!package.record)
            throw library_failure(decoded, "cannot read the key package of " + package.where);
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
            where + (count > 1 ? ", certificate " + std::to_string(i + 1) : std::string());
        certificate.bytes = encode(context, &array[i], QEL_PDU_Certificate, "a certificate");
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
