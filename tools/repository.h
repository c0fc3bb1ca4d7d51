// repository.h: the repositories that --repo names, for the commands that get, set, remove and list
// credentials.
#ifndef TOOLS_REPOSITORY_H
#define TOOLS_REPOSITORY_H

#include "command.h"
#include "credential.h"
#include "key_package.h"

#include <optional>
#include <string>
#include <vector>

namespace tool {

// The login name of the user who runs this program. Throws Failure for one whom the host does not
// know.
std::string own_login();

// What one call of the library's store is told.
struct Repository {
    int selector = QEL_REPO_FILE;
    std::string name;        // of a file, user or subject; empty: the caller's own
    std::string where;       // safe to print
    bool by_subject = false; // the name is a distinguished name

    const char *name_or_null() const { return name.empty() ? nullptr : name.c_str(); }
};

// Where --repo says that key packages are read, or written.
//   name  file or user, as the command line gives it; "" is the caller's own, which for a file is a
//         usage error. "-" is standard input, which is read only.
Repository packages_to_read(const Arguments &arguments, const std::string &name);
Repository packages_to_write(const Arguments &arguments, const std::string &name);

// The entry of a user in the naming service; "" is the caller.
Repository naming_entry(const std::string &user);

// Where --repo says that certificates are.
//   name  file ("-" is standard input) or subject.
Repository certificates_to_read(const Arguments &arguments, const std::string &name);

// A file that is changed.
Repository file_to_write(const Arguments &arguments, const std::string &name);

// Why the store could not do what was asked, with what its statuses mean there.
Failure store_failure(QelStatus status, const Repository &repository, const std::string &what);

// The same of a change: a file that cannot be written is a failed output.
Failure change_failure(QelStatus status, const Repository &repository, const std::string &what);

// Why the naming service is not available; nothing where it is.
std::optional<Failure> naming_failure();

// The key packages of a repository, one after another. Throws Failure where there is none, or one
// that cannot be decoded.
std::vector<StoredPackage> stored_packages(QelContext *context, const Repository &repository);

// An array of certificates from the library, which is released.
std::vector<Certificate> certificates_from(QelContext *context, QelCert *array, int count,
                                           const std::string &where);

// An array of printable names for the library, ended by a null; it lives as long as names.
std::vector<const char *> name_list(const std::vector<std::string> &names);

} // namespace tool

#endif
