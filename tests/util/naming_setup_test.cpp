#include "support/naming_provider.h"
#include "support/process.h"
#include "support/resolver.h"

#include <util/naming_xfn.h>

#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <fcntl.h>
#include <rpc/rpc.h>
#include <rpcsvc/nis.h>
#include <rpcsvc/ypclnt.h>
#include <sstream>
#include <sys/mman.h>
#include <sys/stat.h>

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

namespace {

// A host without a naming service.
struct Host {
    bool presence_file = false;
    bool settings = false;  // /etc/fn.conf
    int failing_rename = 0; // the nth
    pid_t fork = 0;         // what it gives instead
    pid_t second_fork = 0;
    bool commands = true;     // they are there
    bool interrupted = false; // the first wait
    bool signalled = false;   // the first child, while it waits for the second
    const char *domain = "example";
    bool binds = false;
    bool has_map = false;
    int table = -1; // status of the NIS+ lookup; -1: no answer
} host;

// What was done, by any process.
struct Log {
    std::atomic<std::size_t> size;
    char text[8192];
};
Log *const events = static_cast<Log *>(
    mmap(nullptr, sizeof(Log), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

const int lock_file = memfd_create("lock", 0);

void record(const std::string &line) {
    const std::size_t at = events->size.fetch_add(line.size() + 1);
    ASSERT_LT(at + line.size() + 1, sizeof events->text);
    std::memcpy(events->text + at, (line + "\n").c_str(), line.size() + 1);
}

std::vector<std::string> recorded() {
    std::istringstream text(std::string(events->text, events->size));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    events->size = 0;
    return lines;
}

} // namespace

extern "C" {

pid_t __real_fork(void);
pid_t __real__Fork(void);
pid_t __real_waitpid(pid_t child, int *status, int options);
int __real_stat(const char *path, struct stat *found);
int __real_open(const char *path, int flags, ...);

pid_t __wrap_fork(void) {
    return host.fork != 0 ? host.fork : __real_fork();
}

pid_t __wrap__Fork(void) {
    return host.second_fork != 0 ? host.second_fork : __real__Fork();
}

pid_t __wrap_waitpid(pid_t child, int *status_out, int options) {
    if (std::exchange(host.interrupted, false)) {
        errno = EINTR;
        return -1;
    }
    int status = 0;
    const pid_t ended = __real_waitpid(child, &status, options);
    if (ended > 0)
        record("ended " + std::to_string(WEXITSTATUS(status)));
    if (status_out != nullptr)
        *status_out = status;
    return ended;
}

int __wrap_execl(const char *path, const char *argument, ...) {
    std::string line = std::string("run ") + path;
    va_list more;
    va_start(more, argument);
    for (; argument != nullptr; argument = va_arg(more, const char *))
        line += std::string(" ") + argument;
    va_end(more);
    record(line);
    if (host.signalled)
        kill(getppid(), SIGUSR1);
    if (host.commands)
        _exit(3);
    errno = ENOENT;
    return -1;
}

int __wrap_rename(const char *from, const char *to) {
    record(std::string("rename ") + from + " " + to);
    return --host.failing_rename == 0 ? -1 : 0;
}

int __wrap_unlink(const char *path) {
    record(std::string("unlink ") + path);
    return -1;
}

int __wrap_stat(const char *path, struct stat *found) {
    if (std::strcmp(path, "/var/fn/dsv_org.ctx.dir") == 0)
        return host.presence_file ? 0 : -1;
    if (std::strcmp(path, "/etc/fn.conf") == 0)
        return host.settings ? 0 : -1;
    return __real_stat(path, found);
}

int __wrap_open(const char *path, int flags, ...) {
    if (std::strcmp(path, "/run/fn.conf.lock") == 0)
        return __real_open(("/proc/self/fd/" + std::to_string(lock_file)).c_str(),
                           O_RDWR | O_CLOEXEC);
    va_list more;
    va_start(more, flags);
    const auto mode = (flags & O_CREAT) != 0 ? va_arg(more, mode_t) : 0;
    va_end(more);
    return __real_open(path, flags, mode);
}

int getdomainname(char *name, size_t size) noexcept {
    strncpy(name, host.domain, size);
    return 0;
}

int yp_bind(const char *domain) {
    record(std::string("bind ") + domain);
    return host.binds ? 0 : YPERR_YPBIND;
}

void yp_unbind(const char *domain) {
    record(std::string("unbind ") + domain);
}

int yp_master(const char *, const char *map, char **master) {
    record(std::string("master of ") + map);
    if (!host.has_map)
        return YPERR_MAP;
    *master = strdup("server");
    return 0;
}

nis_name nis_local_directory(void) {
    static char directory[] = "example.";
    return directory;
}

nis_result *nis_lookup(const char *name, unsigned flags) {
    record("lookup " + std::string(name) + " " + std::to_string(flags));
    if (host.table == -1)
        return nullptr;
    static nis_result answer;
    answer.status = static_cast<nis_error>(host.table);
    return &answer;
}

void nis_freeresult(nis_result *) {
    record("free");
}

} // extern "C"

namespace {

TEST(NamingSetup, KindsOfNames) {
    const struct {
        const char *name;
        NameKind kind;
    } rows[] = {
        {nullptr, NameKind::none},       {"", NameKind::user},
        {"alice", NameKind::user},       {"10.1.2.3", NameKind::host},
        {"10.1.2.3.4", NameKind::user},  {"256.1.2.3", NameKind::user},
        {".../o/alice", NameKind::full}, {"...", NameKind::user},
        {"../alice", NameKind::user},
    };
    for (const auto &row : rows)
        EXPECT_EQ(dsv_get_dsv_type(row.name), row.kind) << row.name;
}

TEST(NamingSetup, Addresses) {
    char *address = get_ip_from_hostname("host.example");
    EXPECT_STREQ(address, "192.0.2.7");
    std::free(address);
    EXPECT_EQ(get_ip_from_hostname("nowhere.example"), nullptr);
    EXPECT_EQ(get_ip_from_hostname(nullptr), nullptr);
    EXPECT_EQ(dsv_get_hostname_from_ip_address("host.example"), nullptr);
    EXPECT_EQ(dsv_get_hostname_from_ip_address(nullptr), nullptr);
}

const char kAside[] = "rename /etc/fn.conf /etc/fn.conf.bak";
const char kBack[] = "rename /etc/fn.conf.bak /etc/fn.conf";
const char kDelete[] = "unlink /etc/fn.conf";
const char kSelect[] = "run /usr/sbin/ctxselect ctxselect files";
const char kCreate[] = "run /usr/sbin/ctxcreate ctxcreate -t org -o org//";

TEST(NamingSetup, Install) {
    const struct {
        const char *reason;
        Host host;
        QelStatus status;
        std::vector<std::string> events;
    } rows[] = {
        {"without settings", {}, QEL_OK, {kSelect, "ended 3", kCreate, "ended 3", kDelete}},
        {"with settings",
         {.settings = true},
         QEL_OK,
         {kAside, kSelect, "ended 3", kCreate, "ended 3", kBack}},
        {"without commands",
         {.commands = false},
         QEL_OK,
         {kSelect, "ended 36", kCreate, "ended 36", kDelete}},
        {"a signal during the wait",
         {.interrupted = true},
         QEL_OK,
         {kSelect, "ended 3", kCreate, "ended 3", kDelete}},
        {"a signal that the application handles",
         {.signalled = true},
         QEL_OK,
         {kSelect, "ended 0", kDelete}},
        {"settings that stay", {.settings = true, .failing_rename = 1}, QEL_ERR_XFN, {kAside}},
        {"settings that do not come back",
         {.settings = true, .failing_rename = 2},
         QEL_ERR_XFN,
         {kAside, kSelect, "ended 3", kCreate, "ended 3", kBack}},
        {"no process", {.settings = true, .fork = -1}, QEL_ERR_XFN, {kAside, kBack}},
        {"no second process", {.second_fork = -1}, QEL_OK, {kCreate, "ended 3", kDelete}},
        {"a second process of number 1", {.second_fork = 1}, QEL_OK, {"ended 36", kDelete}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        in_child([&] {
            recorded();
            const pid_t other = __real_fork(); // a child of the application, which it will wait for
            if (other == 0)
                _exit(0);
            host = row.host;
            std::signal(SIGUSR1, [](int) { record("handled"); });
            EXPECT_EQ(install_dsv(), row.status);
            EXPECT_THAT(recorded(), ElementsAreArray(row.events));
            EXPECT_EQ(__real_waitpid(other, nullptr, 0), other);
        });
    }
}

TEST(NamingSetup, ProcessesInstallInTurn) {
    std::vector<std::string> expected;
    in_child([&] {
        recorded();
        host.settings = true;
        std::vector<pid_t> processes(4);
        for (pid_t &process : processes) {
            process = __real_fork();
            if (process == 0)
                _exit(install_dsv());
            for (const char *event : {kAside, kSelect, "ended 3", kCreate, "ended 3", kBack})
                expected.emplace_back(event);
        }
        for (const pid_t process : processes) {
            int status = -1;
            EXPECT_EQ(__real_waitpid(process, &status, 0), process);
            EXPECT_EQ(status, 0);
        }
        EXPECT_THAT(recorded(), ElementsAreArray(expected));
    });
}

TEST(NamingSetup, InstallNamesTheBackEnd) {
    for (const std::string word : {"nisplus", "nis", "files"})
        in_child([&] {
            recorded();
            ASSERT_EQ(dsv_set_naming_service(word.c_str()), QEL_OK);
            EXPECT_EQ(install_dsv(), QEL_OK);
            EXPECT_EQ(recorded()[0], "run /usr/sbin/ctxselect ctxselect " + word);
        });
    EXPECT_EQ(dsv_set_naming_service("ldap"), QEL_ERR_XFN);
    EXPECT_EQ(dsv_set_naming_service(nullptr), QEL_ERR_XFN);
}

struct PresenceCase {
    const char *reason;
    unsigned back_end;
    Host host;
    bool is_set_up;
    std::vector<std::string> events;
};

const char kMap[] = "master of dsv_org.ctx";
const char kTable[] = "lookup ctx_dir.example. 196608";

const PresenceCase kPresenceCases[] = {
    {"files", 3, {.presence_file = true}, true, {}},
    {"no files", 3, {}, false, {}},
    {"NIS", 2, {.binds = true, .has_map = true}, true, {"bind example", kMap, "unbind example"}},
    {"NIS, no map", 2, {.binds = true}, false, {"bind example", kMap, "unbind example"}},
    {"NIS, no server", 2, {}, false, {"bind example"}},
    {"NIS, no domain", 2, {.domain = "(none)"}, false, {}},
    {"NIS+", 1, {.table = 0}, true, {kTable, "free"}},
    {"NIS+, no table", 1, {.table = 2}, false, {kTable, "free"}},
    {"NIS+, no answer", 1, {}, false, {kTable}},
};

TEST(NamingSetup, WhetherABackEndIsSetUp) {
    for (const PresenceCase &row : kPresenceCases) {
        SCOPED_TRACE(row.reason);
        recorded();
        host = row.host;
        EXPECT_EQ(qel::is_set_up(row.back_end), row.is_set_up);
        EXPECT_THAT(recorded(), ElementsAreArray(row.events));
    }
    host = {};
}

TEST(NamingSetup, TheFirstUseGoesBackToFiles) {
    in_child([] {
        dsv_set_naming_service("nis"); // which also says that it is set up
        EXPECT_EQ(dsv_set_context(NameKind::full), QEL_OK);
        EXPECT_EQ(provider::initial, "3, 1; ");
    });
    in_child([] {
        host.presence_file = true;
        provider::failures["_fn_ctx_handle_from_initial_with_ns"] = FN_E_CTX_UNAVAILABLE;
        EXPECT_EQ(dsv_set_context(NameKind::full), QEL_ERR_XFN);
        provider::failures.clear();
        dsv_set_naming_service("nis");
        EXPECT_EQ(dsv_set_context(NameKind::user), QEL_OK);
        EXPECT_EQ(provider::initial, "3, 1; 2, 1; ");
    });
}

TEST(NamingSetup, ContextsAreMadeOnce) {
    in_child([] {
        host.presence_file = true;
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([i] {
                const NameKind kind = i % 2 == 0 ? NameKind::user : NameKind::host;
                EXPECT_EQ(dsv_set_context(kind), QEL_OK);
                EXPECT_EQ(qel::naming_context(kind)->path, i % 2 == 0 ? "user" : "host");
            });
        for (std::thread &thread : threads)
            thread.join();
        EXPECT_EQ(provider::initial, "3, 1; ");
        EXPECT_EQ(dsv_set_context(NameKind::full), QEL_OK);
        EXPECT_EQ(dsv_set_context(NameKind::none), QEL_ERR_BAD_PARAM);
        EXPECT_EQ(dsv_set_context(NameKind{4}), QEL_ERR_BAD_PARAM);
    });
}

// Where the commands changed nothing, each use that needs a new handle runs them again.
TEST(NamingSetup, ContextsOnAHostWithoutNamingService) {
    in_child([] {
        recorded();
        EXPECT_EQ(dsv_set_context(NameKind::user), QEL_OK);
        EXPECT_EQ(recorded().size(), 5u);
        EXPECT_EQ(dsv_set_context(NameKind::user), QEL_OK);
        EXPECT_THAT(recorded(), ElementsAre());
        EXPECT_EQ(dsv_set_context(NameKind::host), QEL_OK);
        EXPECT_EQ(recorded().size(), 5u);
    });
    in_child([] {
        host.fork = -1;
        EXPECT_EQ(dsv_set_context(NameKind::user), QEL_ERR_XFN);
        EXPECT_EQ(provider::initial, "");
    });
    for (const char *function : {"fn_ctx_lookup", "fn_ctx_handle_from_ref"})
        in_child([&] {
            host.presence_file = true;
            provider::failures[function] = FN_E_NAME_NOT_FOUND;
            EXPECT_EQ(dsv_set_context(NameKind::host), QEL_ERR_XFN);
            EXPECT_EQ(dsv_set_context(NameKind::full), QEL_OK);
        });
}

} // namespace
