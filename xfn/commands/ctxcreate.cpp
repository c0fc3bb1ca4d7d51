// ctxcreate: sets up the naming database of the host, or makes an entry in it.

#include "command.h"
#include "config.h"
#include "objects.h"
#include "sqlite_connection.h"
#include "store.h"

#include <cerrno>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char directory[] = "/var/fn";
constexpr char database_owner[] = "fnsd";
constexpr char sqlite_scheme[] = "sqlite:";

constexpr char help[] =
    "usage: ctxcreate -t org [-o org//]     set up the naming database of this host (root)\n"
    "       ctxcreate -t user LOGIN         make the entry of a user\n"
    "       ctxcreate -t host HOST          make the entry of a host (root)\n"
    "What is there already stays as it is.\n\n"
    "  --help      show this and end\n"
    "  --version   show the version and end";

xfn::Config read_config() {
    xfn::Config config;
    if (const unsigned code = xfn::read_config(xfn::config_path, &config); code != FN_SUCCESS)
        fail_with_code(xfn::config_path, code);
    return config;
}

void require_files(const xfn::Config &config) {
    if (config.initial == FN_NS_NIS)
        throw Failure(unavailable, "the host uses NIS, whose maps are made at the domain's master: "
                                   "see ctxexport(8)");
    if (config.initial != FN_NS_FILES)
        throw Failure(unavailable, "NIS+ is not available; see ctxselect(8)");
}

void make_directory() {
    if (mkdir(directory, 0755) != 0 && errno != EEXIST)
        fail_with_errno(directory);
    if (chmod(directory, 0755) != 0) // whatever the umask
        fail_with_errno(directory);
}

void give(const std::string &path, const passwd &owner) {
    const int file = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    const bool given = file >= 0 && fchown(file, owner.pw_uid, owner.pw_gid) == 0;
    const int error = errno;
    if (file >= 0)
        close(file);
    errno = error;
    if (!given)
        fail_with_errno(path);
}

// The log and the index of a database that came without them (from a backup) are made by the first
// change, which the daemon could not make; this one changes nothing.
void complete_database(const std::string &location) {
    constexpr char nothing[] = "ctxcreate";
    FN_identifier_t id = {FN_ID_STRING, sizeof nothing - 1, const_cast<char *>(nothing)};
    const xfn::Attribute attribute(fn_attribute_create(&id, &id));
    xfn::SharedStore *shared = nullptr;
    unsigned code = xfn::use_store(location.c_str(), &shared);
    if (code == FN_SUCCESS) {
        code = shared->store->operations->modify(shared->store, {xfn::Area::users, "root"},
                                                 FN_ATTR_OP_REMOVE, attribute.get(), geteuid());
        xfn::release_store(shared);
    }
    if (code != FN_SUCCESS && code != FN_E_NAME_NOT_FOUND)
        fail_with_code(location, code);
}

// The files belong to the daemon that changes them for others; the directory stays root's, so that
// nobody else puts anything in their place.
void make_database(const std::string &location) {
    if (!location.starts_with(sqlite_scheme))
        return; // kept by somebody else
    const std::string path = location.substr(sizeof sqlite_scheme - 1);
    if (const unsigned code = xfn::create_file(path.c_str()); code != FN_SUCCESS)
        fail_with_code("cannot make " + path, code);
    complete_database(location);
    if (const passwd *owner = getpwnam(database_owner))
        for (const char *end : {"", "-wal", "-shm"})
            give(path + end, *owner);
}

using Context = xfn::Object<FN_ctx_t, fn_ctx_handle_destroy>;

void require(const Context &context, const FN_status_t *status) {
    if (context == nullptr)
        fail_with_code("the naming service", fn_status_code(status));
}

// The contexts "user" and "host" are part of every database.
void check_contexts() {
    for (const char *name : {"user", "host"}) {
        const xfn::Object<FN_status_t, fn_status_destroy> status(fn_status_create());
        const Context initial(fn_ctx_handle_from_initial_with_ns(FN_NS_FILES, 1, status.get()));
        require(initial, status.get());
        const xfn::CompositeName composite(
            fn_composite_name_from_str(reinterpret_cast<const unsigned char *>(name)));
        const xfn::Reference found(fn_ctx_lookup(initial.get(), composite.get(), status.get()));
        if (found == nullptr)
            fail_with_code(std::string("the context \"") + name + "\"",
                           fn_status_code(status.get()));
    }
}

void make_presence_file() {
    const int file = open(presence_file, O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644);
    if (file < 0 || fchmod(file, 0644) != 0 || fsync(file) != 0 || close(file) != 0)
        fail_with_errno(presence_file);
}

void set_up(const CommandLine &line) {
    const auto organisation = line.options.find('o');
    if (organisation != line.options.end() && organisation->second != "org//")
        throw Failure(usage, "the host has one organisation, \"org//\"");
    if (!line.arguments.empty())
        throw Failure(usage, "unexpected argument: " + line.arguments[0]);
    const xfn::Config config = read_config();
    require_files(config);
    if (geteuid() != 0)
        throw Failure(permission, "only root can set up the naming database");
    make_directory();
    make_database(config.locations[FN_NS_FILES - 1]);
    check_contexts();
    make_presence_file();
}

void make_entry(const char *context, const CommandLine &line) {
    if (line.options.contains('o') || line.arguments.size() != 1 || line.arguments[0].empty())
        throw Failure(usage, "one name is needed");
    const xfn::Object<FN_status_t, fn_status_destroy> status(fn_status_create());
    const Context initial(fn_ctx_handle_from_initial(1, status.get()));
    require(initial, status.get());
    const xfn::CompositeName name(fn_composite_name_create());
    for (const std::string &component : {std::string(context), line.arguments[0]}) {
        const xfn::String text(xfn::make_string(component));
        if (text == nullptr || !fn_composite_name_append_comp(name.get(), text.get()))
            throw std::bad_alloc();
    }
    const xfn::Reference made(fn_ctx_create_subcontext(initial.get(), name.get(), status.get()));
    const unsigned code = fn_status_code(status.get());
    if (code != FN_SUCCESS && code != FN_E_NAME_IN_USE)
        fail_with_code(std::string("cannot make the entry ") + context + "/" + line.arguments[0],
                       code);
}

void run(const CommandLine &line) {
    const auto type = line.options.find('t');
    if (type == line.options.end())
        throw Failure(usage, "the type (-t) is missing");
    if (type->second == "org")
        set_up(line);
    else if (type->second == "user" || type->second == "host")
        make_entry(type->second.c_str(), line);
    else
        throw Failure(usage, "unknown type: " + type->second);
}

} // namespace

int main(int argc, char **argv) {
    umask(0022);
    return run_command({"ctxcreate", "t:o:", help, run}, argc, argv);
}
