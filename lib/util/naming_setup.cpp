// naming_setup.cpp: what a name stands for, the process-wide handles of the contexts that names are
// found in, and setting up the naming service on a host that has none.

#include <util/naming_xfn.h>

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <netdb.h>
#include <pthread.h>
#include <rpc/rpc.h>
#include <rpcsvc/nis.h>
#include <rpcsvc/ypclnt.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <lib/memory.h>
#include <util/host.h>

using qel::CompositeName;
using qel::Destroy;
using qel::XfnStatus;

namespace {

constexpr std::size_t work_size = 1024;
constexpr char presence_file[] = "/var/fn/dsv_org.ctx.dir";
constexpr char presence_map[] = "dsv_org.ctx";
constexpr char settings[] = "/etc/fn.conf";
constexpr char settings_aside[] = "/etc/fn.conf.bak";
constexpr char settings_turn[] = "/run/fn.conf.lock";

struct BackEnd {
    unsigned number;
    const char *word;
};
constexpr BackEnd back_ends[] = {
    {FN_NS_NISPLUS, "nisplus"}, {FN_NS_NIS, "nis"}, {FN_NS_FILES, "files"}};

// A handle is written once, under the lock, and never released. Who has seen dsv_set_context succeed
// may use it without the lock.
pthread_mutex_t user_context_lock = PTHREAD_MUTEX_INITIALIZER;
FN_ctx_t *initial_context;
FN_ctx_t *user_context;
FN_ctx_t *host_context;
unsigned source_ns = FN_NS_FILES;
bool source_ns_checked;
bool source_ns_installed;

class Locked {
public:
    Locked() { pthread_mutex_lock(&user_context_lock); }
    ~Locked() { pthread_mutex_unlock(&user_context_lock); }
    Locked(const Locked &) = delete;
    Locked &operator=(const Locked &) = delete;
};

// Processes take turns: what one has put aside another would find missing, and delete when it is back.
// Who cannot open the file is not root, and cannot move the settings either.
class Turn {
public:
    Turn() : file(open(settings_turn, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600)) {
        while (file != -1 && flock(file, LOCK_EX) == -1 && errno == EINTR)
            ;
    }
    ~Turn() {
        if (file != -1)
            close(file);
    }
    Turn(const Turn &) = delete;
    Turn &operator=(const Turn &) = delete;

private:
    int file;
};

FN_ctx_t **handle_of(NameKind kind) {
    switch (kind) {
    case NameKind::user:
        return &user_context;
    case NameKind::host:
        return &host_context;
    case NameKind::full:
        return &initial_context;
    case NameKind::none:
        break;
    }
    return nullptr;
}

bool exists(const char *path) {
    struct stat found;
    return stat(path, &found) == 0 || errno == EOVERFLOW; // in 32 bits: there, but not to be told
}

bool nis_is_set_up() {
    char domain[work_size] = "";
    if (getdomainname(domain, sizeof domain - 1) != 0 || domain[0] == '\0' ||
        std::strcmp(domain, "(none)") == 0) // no domain was set, and asking for one takes long
        return false;
    if (yp_bind(domain) != 0)
        return false;
    char *master = nullptr;
    const bool found = yp_master(domain, presence_map, &master) == 0;
    std::free(master);
    yp_unbind(domain);
    return found;
}

bool nisplus_is_set_up() {
    const char *directory = nis_local_directory();
    char name[work_size + sizeof "ctx_dir."];
    if (directory == nullptr ||
        std::snprintf(name, sizeof name, "ctx_dir.%s", directory) >= static_cast<int>(sizeof name))
        return false;
    nis_result *answer = nis_lookup(name, USE_DGRAM | NO_AUTHINFO);
    const bool found = answer != nullptr && answer->status == NIS_SUCCESS;
    if (answer != nullptr)
        nis_freeresult(answer);
    return found;
}

// This child and no other: the application's children are its own to wait for.
void wait_for(pid_t child) {
    while (waitpid(child, nullptr, 0) == -1 && errno == EINTR)
        ;
}

// In the child: a signal to the whole group has the application's handlers run in the application only.
void forget_handlers() {
    struct sigaction standard = {};
    standard.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction now;
        if (sigaction(number, nullptr, &now) == 0 && now.sa_handler != SIG_IGN)
            sigaction(number, &standard, nullptr);
    }
}

// In the child: has a child of its own choose the back end, then makes the root. Other threads may
// have held any lock at the fork, so nothing is called here that a signal handler may not call; and a
// failure ends the process, in which the caller's program must not run on.
[[noreturn]] void set_up_in_child(const char *back_end) {
    char *const end = nullptr;
    const pid_t chooser = _Fork();
    if (chooser == 0) {
        execl("/usr/sbin/ctxselect", "ctxselect", back_end, end);
        _exit(QEL_ERR_XFN);
    }
    if (chooser == 1) // not -1: the root is made even where there was no process to choose
        _exit(QEL_ERR_XFN);
    wait_for(chooser);
    execl("/usr/sbin/ctxcreate", "ctxcreate", "-t", "org", "-o", "org//", end);
    _exit(QEL_ERR_XFN);
}

// -1: there can be no process.
pid_t start_set_up(const char *back_end) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before); // until the handlers are gone
    const pid_t child = fork();
    if (child == 0)
        forget_handlers();
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (child == 0)
        set_up_in_child(back_end);
    return child;
}

const char *word_of(unsigned back_end) {
    for (const BackEnd &row : back_ends)
        if (row.number == back_end)
            return row.word;
    return "";
}

QelStatus make_initial_context(const XfnStatus &status) {
    if (initial_context == nullptr)
        initial_context = _fn_ctx_handle_from_initial_with_ns(source_ns, 1, status.get());
    return initial_context == nullptr ? QEL_ERR_XFN : QEL_OK;
}

QelStatus make_context(const char *word, const XfnStatus &status, FN_ctx_t **handle) {
    const CompositeName name(
        fn_composite_name_from_str(reinterpret_cast<const unsigned char *>(word)));
    if (name == nullptr)
        return QEL_ERR_NO_MEMORY;
    const std::unique_ptr<FN_ref_t, Destroy<fn_ref_destroy>> reference(
        fn_ctx_lookup(initial_context, name.get(), status.get()));
    if (reference == nullptr)
        return QEL_ERR_XFN;
    *handle = fn_ctx_handle_from_ref(reference.get(), 1, status.get());
    return *handle == nullptr ? QEL_ERR_XFN : QEL_OK;
}

QelStatus find_host_name(const char *address, qel::Owned<char> *name_out) {
    const in_addr_t number = inet_addr(address);
    if (number == INADDR_NONE)
        return QEL_ERR_UNKNOWN_USER;
    hostent host;
    hostent *found = nullptr;
    char work[work_size];
    int error = 0;
    if (gethostbyaddr_r(&number, sizeof number, AF_INET, &host, work, sizeof work, &found,
                        &error) != 0 ||
        found == nullptr || found->h_name == nullptr)
        return QEL_ERR_UNKNOWN_USER;
    const std::size_t length = std::strcspn(found->h_name, ".");
    if (length == 0)
        return QEL_ERR_UNKNOWN_USER;
    name_out->reset(strndup(found->h_name, length));
    return *name_out == nullptr ? QEL_ERR_NO_MEMORY : QEL_OK;
}

} // namespace

NameKind dsv_get_dsv_type(const char *name) {
    if (name == nullptr)
        return NameKind::none;
    if (std::strncmp(name, ".../", 4) == 0)
        return NameKind::full;
    return inet_addr(name) != INADDR_NONE ? NameKind::host : NameKind::user;
}

char *dsv_get_hostname_from_ip_address(const char *address) {
    qel::Owned<char> name;
    if (address == nullptr || find_host_name(address, &name) != QEL_OK)
        return nullptr;
    return name.release();
}

char *get_ip_from_hostname(const char *name) {
    in_addr address;
    char text[INET_ADDRSTRLEN];
    if (name == nullptr || !qel::resolve_host(name, &address) ||
        inet_ntop(AF_INET, &address, text, sizeof text) == nullptr)
        return nullptr;
    return strdup(text);
}

QelStatus qel::make_composite_name(const char *name, NameKind kind, CompositeName *name_out) {
    Owned<char> host;
    if (kind == NameKind::host) {
        const QelStatus status = find_host_name(name, &host);
        if (status != QEL_OK)
            return status;
        name = host.get();
    }
    if (*name == '\0') // would be the context itself
        return QEL_ERR_UNKNOWN_USER;
    errno = 0;
    name_out->reset(fn_composite_name_from_str(reinterpret_cast<const unsigned char *>(name)));
    if (*name_out != nullptr)
        return QEL_OK;
    return errno == ENOMEM ? QEL_ERR_NO_MEMORY : QEL_ERR_UNKNOWN_USER; // or malformed
}

FN_ctx_t *qel::naming_context(NameKind kind) {
    FN_ctx_t *const *handle = handle_of(kind);
    return handle == nullptr ? nullptr : *handle;
}

QelStatus dsv_set_naming_service(const char *word) {
    const Locked locked;
    for (const BackEnd &row : back_ends)
        if (word != nullptr && std::strcmp(word, row.word) == 0) {
            source_ns = row.number;
            source_ns_installed = true;
            return QEL_OK;
        }
    return QEL_ERR_XFN;
}

bool qel::is_set_up(unsigned back_end) {
    switch (back_end) {
    case FN_NS_FILES:
        return exists(presence_file);
    case FN_NS_NIS:
        return nis_is_set_up();
    case FN_NS_NISPLUS:
        return nisplus_is_set_up();
    }
    return false;
}

QelStatus install_dsv() {
    const Turn turn;
    const bool had_settings = exists(settings);
    if (had_settings && rename(settings, settings_aside) != 0)
        return QEL_ERR_XFN;
    const pid_t child = start_set_up(word_of(source_ns));
    if (child != -1)
        wait_for(child);
    if (had_settings && rename(settings_aside, settings) != 0)
        return QEL_ERR_XFN;
    if (child == -1)
        return QEL_ERR_XFN;
    if (!had_settings)
        unlink(settings);
    return QEL_OK;
}

QelStatus dsv_set_context(NameKind kind) {
    FN_ctx_t **handle = handle_of(kind);
    if (handle == nullptr)
        return QEL_ERR_BAD_PARAM;
    const Locked locked;
    if (*handle != nullptr)
        return QEL_OK;
    if (!source_ns_checked) {
        source_ns = FN_NS_FILES;
        source_ns_checked = true;
    }
    if (!source_ns_installed)
        source_ns_installed = qel::is_set_up(source_ns);
    if (!source_ns_installed) {
        const QelStatus installed = install_dsv();
        if (installed != QEL_OK)
            return installed;
    }
    const XfnStatus status(fn_status_create());
    if (status == nullptr)
        return QEL_ERR_NO_MEMORY;
    const QelStatus made = make_initial_context(status);
    if (made != QEL_OK || kind == NameKind::full)
        return made;
    return make_context(kind == NameKind::user ? "user" : "host", status, handle);
}

QelStatus dsv_create_context(const FN_composite_name_t *name, NameKind kind) {
    const QelStatus ready = dsv_set_context(kind);
    if (ready != QEL_OK)
        return ready;
    const XfnStatus status(fn_status_create());
    if (status == nullptr)
        return QEL_ERR_NO_MEMORY;
    using Reference = std::unique_ptr<FN_ref_t, Destroy<fn_ref_destroy>>;
    FN_ctx_t *const context = qel::naming_context(kind);
    if (Reference(fn_ctx_lookup(context, name, status.get())) != nullptr || kind == NameKind::full)
        return QEL_OK;
    const Reference made(fn_ctx_create_subcontext(context, name, status.get()));
    if (fn_status_code(status.get()) == FN_SUCCESS)
        return QEL_OK;
    // Someone else may have made it in between.
    const bool found = fn_status_code(status.get()) == FN_E_NAME_IN_USE &&
                       Reference(fn_ctx_lookup(context, name, status.get())) != nullptr;
    return found ? QEL_OK : QEL_ERR_XFN;
}
