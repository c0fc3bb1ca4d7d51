// The store under several users and processes, killed writers, full disks and damaged files.
// QEL_XFN_SECONDS: how long the processes of the concurrency test work (2 by default).

#include "naming.h"

#include "sqlite_connection.h"
#include "support/process.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <pwd.h>
#include <random>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <thread>

using naming::attribute;
using naming::Store;
using naming::Values;

namespace {

// Users that every host has.
constexpr const char *kUser = "daemon", *kOther = "bin";

uid_t uid_of(const char *login_name) {
    return getpwnam(login_name)->pw_uid;
}

// For good: only in a child.
void become(const char *login_name) {
    const uid_t uid = uid_of(login_name);
    ASSERT_EQ(setresgid(65534, 65534, 65534), 0);
    ASSERT_EQ(setresuid(uid, uid, uid), 0);
}

#define NEEDS_ROOT()                                                                               \
    if (geteuid() != 0)                                                                            \
    GTEST_SKIP() << "only root can act as several users"

std::string user(const std::string &name) {
    return "user/" + name;
}

struct Pipe {
    int ends[2];
    Pipe() { EXPECT_EQ(pipe(ends), 0); }
    ~Pipe() {
        close(ends[0]);
        close(ends[1]);
    }
    void signal() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    void wait() const {
        char byte;
        EXPECT_EQ(read(ends[0], &byte, 1), 1);
    }
};

// A child that works until it is told to end or killed.
pid_t start(const std::function<void()> &work) {
    const pid_t child = fork();
    if (child == 0) {
        work();
        _exit(::testing::Test::HasFailure() ? 1 : 0);
    }
    return child;
}

void expect_good_end(pid_t child) {
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

void kill_now(pid_t child) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

Values code(unsigned status) {
    return {"status " + std::to_string(status)};
}

} // namespace

// ---- Who may do what ------------------------------------------------------------------------------

TEST(Owners, OfTheActingUser) {
    const TemporaryFolder folder;
    xfn::SharedStore *shared = nullptr;
    ASSERT_EQ(xfn::use_store(("sqlite:" + folder.path("names.db")).c_str(), &shared), FN_SUCCESS);
    const xfn::StoreUse use(shared);
    xfn::Store *store = shared->store;
    const uid_t own = uid_of(kUser), other = uid_of(kOther);
    const struct {
        const char *why;
        xfn::EntryName name;
        uid_t actor;
        unsigned code;
    } cases[] = {
        {"a user's own", {xfn::Area::users, kUser}, own, FN_SUCCESS},
        {"another user's", {xfn::Area::users, kUser}, other, FN_E_CTX_NO_PERMISSION},
        {"root's hand", {xfn::Area::users, kUser}, 0, FN_SUCCESS},
        {"nobody's", {xfn::Area::users, "no-such-user"}, own, FN_E_CTX_NO_PERMISSION},
        {"nobody's, by root", {xfn::Area::users, "no-such-user"}, 0, FN_SUCCESS},
        {"a host of the user's name", {xfn::Area::hosts, kUser}, own, FN_E_CTX_NO_PERMISSION},
        {"a host, by root", {xfn::Area::hosts, kUser}, 0, FN_SUCCESS},
        {"a global name", {xfn::Area::global, ".../x"}, own, FN_E_CTX_NO_PERMISSION},
        {"a global name, by root", {xfn::Area::global, ".../x"}, 0, FN_SUCCESS},
        {"a zero byte behind the own name",
         {xfn::Area::users, std::string_view("daemon\0x", 8)},
         own,
         FN_E_ILLEGAL_NAME},
        {"an empty name", {xfn::Area::users, ""}, 0, FN_E_ILLEGAL_NAME},
    };
    const xfn::StoreOperations &operations = *store->operations;
    for (const auto &row : cases) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(operations.create(store, row.name, row.actor), row.code);
        if (row.code == FN_E_CTX_NO_PERMISSION)
            operations.create(store, row.name, 0);
        EXPECT_EQ(operations.modify(store, row.name, FN_ATTR_OP_ADD, attribute("a", {"x"}).get(),
                                    row.actor),
                  row.code);
        EXPECT_EQ(operations.destroy(store, row.name, row.actor), row.code);
        if (row.code != FN_E_ILLEGAL_NAME) {
            EXPECT_EQ(operations.destroy(store, row.name, 0), FN_SUCCESS);
        }
    }
}

TEST(Owners, OfTheProcess) {
    NEEDS_ROOT();
    const Store store;
    umask(077); // must not keep readers out
    for (const char *name : {kUser, kOther}) {
        ASSERT_EQ(store.create(user(name)), FN_SUCCESS);
        ASSERT_EQ(store.write(user(name), "a", {"x"}), FN_SUCCESS);
    }
    umask(022);
    in_child([&] {
        become(kUser);
        EXPECT_EQ(store.get(user(kOther), "a"), Values{"x"}) << "reading is open";
        EXPECT_EQ(store.write(user(kUser), "a", {"y"}), FN_E_CTX_NO_PERMISSION)
            << "the file is root's";
    });
    for (const char *suffix : {"", "-wal", "-shm"})
        ASSERT_EQ(chmod((store.file + suffix).c_str(), 0666), 0);
    in_child([&] {
        become(kUser);
        EXPECT_EQ(store.write(user(kUser), "a", {"y"}), FN_SUCCESS);
        EXPECT_EQ(store.write(user(kOther), "a", {"y"}), FN_E_CTX_NO_PERMISSION);
        EXPECT_EQ(store.destroy(user(kOther)), FN_E_CTX_NO_PERMISSION);
        EXPECT_EQ(store.create("host/x"), FN_E_CTX_NO_PERMISSION);
    });
    EXPECT_EQ(store.get(user(kUser), "a"), Values{"y"});
    EXPECT_EQ(store.get(user(kOther), "a"), Values{"x"});
}

// ---- Readers that cannot write --------------------------------------------------------------------

TEST(Readers, NeedNoWriter) {
    NEEDS_ROOT();
    Store store;
    ASSERT_EQ(store.create(user(kUser)), FN_SUCCESS);
    const auto as_reader = [&](const std::string &expected) {
        in_child([&] {
            become(kOther);
            const naming::Context fresh = store.open();
            EXPECT_EQ(store.get(user(kUser), "a"), Values{expected});
            EXPECT_EQ(store.list("user"), Values{kUser});
            EXPECT_EQ(store.search("user", {{"a", {expected}}}), Values{kUser});
        });
    };
    const auto write = [&](const std::string &value) {
        expect_good_end(start([&] {
            EXPECT_EQ(store.write(user(kUser), "a", {value}), FN_SUCCESS);
            store.initial.reset(); // closes the files
        }));
    };
    // Killed with the value in the log only, and something behind it that was not committed.
    const auto write_and_die = [&](const std::string &value) {
        const Pipe written;
        const pid_t writer = start([&] {
            EXPECT_EQ(store.write(user(kUser), "a", {value}), FN_SUCCESS);
            xfn::Connection connection = {};
            bool absent = false;
            EXPECT_EQ(xfn::connect(&connection, store.file.c_str(), xfn::Access::writing, &absent),
                      FN_SUCCESS);
            sqlite3_exec(connection.db,
                         "PRAGMA cache_size = 1; BEGIN IMMEDIATE; UPDATE value SET bytes = x'00';"
                         "INSERT INTO value SELECT -rowid, 0, 0, 0, zeroblob(1000000) FROM value",
                         nullptr, nullptr, nullptr);
            written.signal();
            pause();
        });
        written.wait();
        kill_now(writer);
    };
    const auto remove = [&](const char *suffix) {
        EXPECT_EQ(unlink((store.file + suffix).c_str()), 0);
    };
    {
        SCOPED_TRACE("after a clean end");
        write("1");
        as_reader("1");
    }
    {
        SCOPED_TRACE("after a writer was killed");
        write_and_die("2");
        as_reader("2");
    }
    {
        SCOPED_TRACE("the index is gone");
        remove("-shm");
        as_reader("2");
        write("3");
        as_reader("3");
    }
    {
        SCOPED_TRACE("index and log are gone after a clean end");
        remove("-shm");
        remove("-wal");
        as_reader("3");
        write("4");
        as_reader("4");
    }
    {
        SCOPED_TRACE("a writer died while it wrote the index, and another reader holds it");
        write_and_die("5");
        const Pipe ready, done;
        const pid_t idle = start([&] {
            become(kUser);
            EXPECT_EQ(store.get(user(kUser), "a"), Values{"5"});
            ready.signal();
            done.wait();
            EXPECT_EQ(store.get(user(kUser), "a"), Values{"5"});
        });
        ready.wait();
        const int index = open((store.file + "-shm").c_str(), O_WRONLY | O_CLOEXEC);
        EXPECT_EQ(pwrite(index, "garbage", 7, 20), 7);
        close(index);
        as_reader("5");
        done.signal();
        expect_good_end(idle);
    }
    {
        SCOPED_TRACE("and root puts it right");
        EXPECT_EQ(store.get(user(kUser), "a"), Values{"5"});
        write("6");
        as_reader("6");
    }
}

// ---- Many processes -------------------------------------------------------------------------------

namespace {

// Adds one to a counter, against whoever else does.
void count_up(const Store &store, const std::string &name) {
    for (;;) {
        unsigned status = 0;
        const xfn::Attribute found = store.read(name, "n", &status);
        ASSERT_EQ(status, FN_SUCCESS);
        const Values values = naming::values_of(found.get());
        ASSERT_EQ(values.size(), 2u);
        ASSERT_EQ("again " + values[0], values[1]) << "half of a change is seen";
        const std::string next = std::to_string(std::stol(values[0]) + 1);
        const xfn::Attribute changed = attribute("n", {next, "again " + next});
        fn_attribute_expect(changed.get(), found.get());
        status = store.write(name, changed);
        if (status == FN_SUCCESS)
            return;
        ASSERT_EQ(status, FN_E_ATTR_CHANGED);
    }
}

} // namespace

TEST(Processes, LoseNoUpdate) {
    const char *wanted = getenv("QEL_XFN_SECONDS");
    const auto seconds = std::chrono::seconds(wanted != nullptr ? atoi(wanted) : 2);
    constexpr int processes = 8;
    const Store store;
    ASSERT_EQ(store.create("host/shared"), FN_SUCCESS);
    ASSERT_EQ(store.write("host/shared", "n", {"0", "again 0"}), FN_SUCCESS);
    std::vector<pid_t> children;
    std::vector<std::unique_ptr<Pipe>> counts;
    for (int i = 0; i < processes; ++i) {
        counts.push_back(std::make_unique<Pipe>());
        children.push_back(start([&, i] {
            const std::string own = "host/h" + std::to_string(i);
            EXPECT_EQ(store.create(own), FN_SUCCESS);
            EXPECT_EQ(store.write(own, "n", {"0", "again 0"}), FN_SUCCESS);
            const auto end = std::chrono::steady_clock::now() + seconds;
            long count = 0;
            for (; std::chrono::steady_clock::now() < end && !::testing::Test::HasFailure();
                 ++count) {
                count_up(store, "host/shared");
                count_up(store, own);
            }
            EXPECT_EQ(store.get(own, "n")[0], std::to_string(count));
            EXPECT_EQ(write(counts.back()->ends[1], &count, sizeof count),
                      static_cast<ssize_t>(sizeof count));
        }));
    }
    long sum = 0;
    for (int i = 0; i < processes; ++i) {
        expect_good_end(children[i]);
        long count = 0;
        ASSERT_EQ(read(counts[i]->ends[0], &count, sizeof count),
                  static_cast<ssize_t>(sizeof count));
        EXPECT_GT(count, 0) << "starved";
        sum += count;
    }
    EXPECT_EQ(store.get("host/shared", "n")[0], std::to_string(sum));
    RecordProperty("updates", static_cast<int>(2 * sum));
}

TEST(Processes, SurviveKill) {
    const Store store;
    ASSERT_EQ(store.create("host/h"), FN_SUCCESS);
    ASSERT_EQ(store.write("host/h", "n", {"0", "again 0"}), FN_SUCCESS);
    std::mt19937 random(std::random_device{}());
    long last = 0;
    for (int round = 0; round < 100 && !HasFailure(); ++round) {
        const Pipe acknowledged;
        const pid_t writer = start([&] {
            for (long n = last + 1;; ++n) {
                count_up(store, "host/h");
                if (write(acknowledged.ends[1], &n, sizeof n) != sizeof n)
                    _exit(1);
            }
        });
        usleep(random() % 30000);
        kill_now(writer);
        fcntl(acknowledged.ends[0], F_SETFL, O_NONBLOCK);
        for (long n; read(acknowledged.ends[0], &n, sizeof n) == sizeof n;)
            last = n;
        const Values found = store.get("host/h", "n");
        ASSERT_EQ(found.size(), 2u) << found[0];
        const long stored = std::stol(found[0]);
        EXPECT_TRUE(stored == last || stored == last + 1) << stored << " after " << last;
        last = stored;
    }
    EXPECT_GT(last, 0);
}

TEST(Processes, ForkWithThreadsAtWork) {
    const Store store;
    ASSERT_EQ(store.create("host/h"), FN_SUCCESS);
    ASSERT_EQ(store.write("host/h", "n", {"0", "again 0"}), FN_SUCCESS);
    std::atomic<bool> is_over = false;
    std::atomic<long> sum = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&] {
            while (!is_over) {
                count_up(store, "host/h");
                ++sum;
            }
        });
    constexpr int forks = 20;
    for (int i = 0; i < forks; ++i)
        in_child([&] { count_up(store, "host/h"); });
    is_over = true;
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(store.get("host/h", "n")[0], std::to_string(sum + forks));
}

// ---- Disks and files that are not well ------------------------------------------------------------

namespace {

// Writes until the disk is full; what was written before is still there.
void fill(const Store &store) {
    ASSERT_EQ(store.create("host/h"), FN_SUCCESS);
    const std::string large(100000, 'x');
    unsigned status = FN_SUCCESS;
    int count = 0;
    for (; status == FN_SUCCESS && count < 60; ++count)
        status = store.write("host/h", std::to_string(count), {large});
    EXPECT_EQ(status, FN_E_INSUFFICIENT_RESOURCES);
    ASSERT_GT(count, 1);
    for (int i = 0; i < count - 1; ++i)
        EXPECT_EQ(store.get("host/h", std::to_string(i)), Values{large});
    EXPECT_EQ(store.get("host/h", std::to_string(count - 1)), code(FN_E_NO_SUCH_ATTRIBUTE));
}

} // namespace

TEST(Disk, FileSizeLimit) {
    const Store store;
    in_child([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {2000000, 2000000};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        fill(store);
    });
    EXPECT_EQ(store.write("host/h", "after", {"x"}), FN_SUCCESS);
}

TEST(Disk, FullAndReadOnly) {
    NEEDS_ROOT();
    in_child([] {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            GTEST_LOG_(INFO) << "not run: no mount namespace";
            return;
        }
        Store store;
        const std::string folder = store.folder.path("disk");
        ASSERT_EQ(mkdir(folder.c_str(), 0755), 0);
        ASSERT_EQ(mount("none", folder.c_str(), "tmpfs", 0, "size=2m"), 0);
        store.file = folder + "/names.db";
        write_file(store.config, bytes_of("files sqlite:" + store.file + "\n"));
        store.initial = store.open();
        fill(store);
        ASSERT_EQ(mount("none", folder.c_str(), nullptr, MS_REMOUNT, "size=4m"), 0);
        EXPECT_EQ(store.write("host/h", "last", {"x"}), FN_SUCCESS) << "there is room again";
        store.initial.reset(); // closes the files
        ASSERT_EQ(mount("none", folder.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, "size=4m"), 0);
        store.initial = store.open();
        EXPECT_EQ(store.get("host/h", "last"), Values{"x"});
        EXPECT_EQ(store.write("host/h", "last", {"y"}), FN_E_OPERATION_NOT_SUPPORTED);
        store.initial.reset();
        EXPECT_EQ(umount(folder.c_str()), 0);
    });
}

TEST(Disk, DamagedFiles) {
    Store store;
    ASSERT_EQ(store.create("host/h"), FN_SUCCESS);
    for (int i = 0; i < 20; ++i)
        ASSERT_EQ(store.write("host/h", std::to_string(i), {std::string(500, 'x')}), FN_SUCCESS);
    store.initial.reset();
    const Bytes good = read_file(store.file);
    ASSERT_GT(good.size(), 4096u);
    const auto damaged = [&](const Bytes &contents) {
        store.initial.reset();
        unlink((store.file + "-wal").c_str());
        unlink((store.file + "-shm").c_str());
        write_file(store.file, contents);
        store.initial = store.open();
    };
    const struct {
        const char *why;
        Bytes contents;
    } useless[] = {
        {"no database", bytes_of(std::string(5000, 'x'))},
        {"an empty file", {}},
        {"cut in the header", Bytes(good.begin(), good.begin() + 50)},
        {"cut in the middle", Bytes(good.begin(), good.begin() + 4096)},
    };
    for (const auto &row : useless) {
        SCOPED_TRACE(row.why);
        damaged(row.contents);
        EXPECT_EQ(store.get("host/h", "1"), code(FN_E_CTX_UNAVAILABLE));
        EXPECT_EQ(store.write("host/h", "1", {"y"}), FN_E_CTX_UNAVAILABLE);
        store.initial.reset();
        EXPECT_EQ(read_file(store.file), row.contents) << "it is not ours to mend";
    }
    std::mt19937 random(7);
    for (int round = 0; round < 60; ++round) {
        Bytes contents = good;
        for (int i = 0; i < 30; ++i)
            contents[100 + random() % (contents.size() - 100)] = static_cast<uint8_t>(random());
        damaged(contents);
        store.get("host/h", "1");
        store.list("host");
        store.search("host", {{"1", {"y"}}});
        store.write("host/h", "1", {"y"});
        store.destroy("host/h");
    }
    damaged(good);
    EXPECT_EQ(store.get("host/h", "1")[0].size(), 500u);
}

TEST(Disk, AnotherFileAtTheSamePlace) {
    const Store store;
    ASSERT_EQ(store.create("host/old"), FN_SUCCESS);
    for (const char *suffix : {"", "-wal", "-shm"})
        unlink((store.file + suffix).c_str());
    EXPECT_EQ(store.lookup("host/old"), FN_E_NAME_NOT_FOUND);
    EXPECT_EQ(store.create("host/new"), FN_SUCCESS);
    EXPECT_EQ(store.list("host"), Values{"new"});
}

// ---- Indices --------------------------------------------------------------------------------------

TEST(Statements, UseIndices) {
    const Store store;
    ASSERT_EQ(store.create("host/h"), FN_SUCCESS);
    xfn::Connection connection = {};
    bool absent = false;
    ASSERT_EQ(xfn::connect(&connection, store.file.c_str(), xfn::Access::writing, &absent),
              FN_SUCCESS);
    for (unsigned i = 0; i < static_cast<unsigned>(xfn::Sql::count); ++i) {
        const auto sql = static_cast<xfn::Sql>(i);
        { ASSERT_EQ(xfn::Query(&connection, sql).status(), FN_SUCCESS) << i; }
        const std::string text = sqlite3_sql(connection.statements[i]);
        sqlite3_stmt *plan = nullptr;
        ASSERT_EQ(sqlite3_prepare_v2(connection.db, ("EXPLAIN QUERY PLAN " + text).c_str(), -1,
                                     &plan, nullptr),
                  SQLITE_OK);
        while (sqlite3_step(plan) == SQLITE_ROW) {
            const std::string step = reinterpret_cast<const char *>(sqlite3_column_text(plan, 3));
            EXPECT_EQ(step.find("SCAN"), std::string::npos) << text << ": " << step;
            EXPECT_EQ(step.find("TEMP B-TREE"), std::string::npos) << text << ": " << step;
        }
        sqlite3_finalize(plan);
    }
    xfn::disconnect(&connection);
}
