// Real stores under many processes, killed writers, and disks that are full or cannot be written.
// With QEL_STORE_SECONDS in the environment processes that work at the same time do so that long.
#include "qel/store_host.h"

#include <algorithm>
#include <map>
#include <random>
#include <set>

namespace {

using namespace stores;

// A value that tells whether it is whole.
Bytes made_value(unsigned writer, unsigned number) {
    Bytes value(100 + (writer * 131 + number * 977) % 3000,
                static_cast<uint8_t>(writer * 16 + number));
    const std::string head = std::to_string(writer) + "." + std::to_string(number) + ".";
    std::copy(head.begin(), head.end(), value.begin());
    return value;
}
bool is_whole(const Bytes &value, unsigned *writer) {
    unsigned number = 0;
    return std::sscanf(text_of(value).c_str(), "%u.%u.", writer, &number) == 2 &&
           value == made_value(*writer, number);
}

// One of those who change the entries: knows what must be there of it.
class Writer {
public:
    Writer(unsigned number, std::vector<std::string> names)
        : number_(number), names_(std::move(names)), random_(number) {}

    void change() {
        const std::string &name = names_[random_() % names_.size()];
        Values &mine = mine_[name];
        const unsigned action = mine.empty() ? 0 : random_() % (mine.size() > 6 ? 3 : 4);
        Bytes &some = mine.empty() ? none_ : mine[random_() % mine.size()];
        const Bytes next = made_value(number_, ++count_);
        QelStatus status;
        if (action == 1)
            status = dsv_delete_certificates(name.c_str(), some.data(), length_of(some));
        else if (action == 2)
            status = dsv_modify_certificates(name.c_str(), next.data(), length_of(next),
                                             some.data(), length_of(some));
        else
            status = add_value(name.c_str(), next);
        EXPECT_EQ(status, QEL_OK);
        if (action == 1)
            mine.erase(std::find(mine.begin(), mine.end(), Bytes(some)));
        else if (action == 2)
            some = next;
        else
            mine.push_back(next);
    }
    void check() {
        for (const std::string &name : names_) {
            Values found, mine = mine_[name];
            ASSERT_EQ(read_values(name.c_str(), &found), QEL_OK);
            std::erase_if(found, [&](const Bytes &value) {
                unsigned writer = ~0u;
                EXPECT_TRUE(is_whole(value, &writer));
                return writer != number_;
            });
            std::sort(found.begin(), found.end());
            std::sort(mine.begin(), mine.end());
            ASSERT_EQ(found, mine) << name;
        }
    }

private:
    unsigned number_, count_ = 0;
    std::vector<std::string> names_;
    std::map<std::string, Values> mine_;
    Bytes none_;
    std::mt19937 random_;
};

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr unsigned processes = 4, kills = 25, rounds = 3;
#else
constexpr unsigned processes = 8, kills = 100, rounds = 10;
#endif

void wait_for_all(const std::vector<pid_t> &children) {
    for (const pid_t child : children)
        EXPECT_EQ(host::exit_of(child), 0);
}

// Each does its work again and again, until it is time.
void work_together(const std::vector<uid_t> &users,
                   const std::function<std::function<void()>(unsigned number)> &work_of) {
    const char *const given = std::getenv("QEL_STORE_SECONDS");
    const auto end = std::chrono::steady_clock::now() +
                     std::chrono::seconds(given != nullptr ? std::atoi(given) : 3);
    std::vector<pid_t> children;
    for (unsigned number = 0; number < users.size(); ++number)
        children.push_back(host::start_as(users[number], [&] {
            const auto work = work_of(number);
            unsigned count = 0;
            for (; std::chrono::steady_clock::now() < end && !testing::Test::HasFailure(); ++count)
                work();
            std::printf("%s: %u changes\n", users[number] == root ? "root" : "alice", count);
            std::fflush(stdout);
            return testing::Test::HasFailure() || count < 2 ? 1 : 0;
        }));
    wait_for_all(children);
}

TEST_F(Store, Together) {
    std::vector<uid_t> users;
    for (unsigned number = 0; number < processes; ++number)
        users.push_back(number % 2 != 0 ? alice : root);
    work_together(users, [&](unsigned number) {
        std::vector<std::string> names = {me};
        if (users[number] == root)
            names = {"alice", "root", "127.0.0.1"};
        return [writer = Writer(number, names)]() mutable {
            writer.change();
            writer.check();
        };
    });
}

// Root writes the database itself and never pauses; alice, who goes by way of fnsd, has her turns.
TEST_F(Store, TurnsOfRootAndAUser) {
    const std::vector<uid_t> users = {root, alice, root};
    work_together(users, [&](unsigned number) {
        return [count = 0u, writer = Writer(number, {me})]() mutable {
            writer.change();
            if (++count % 64 == 0)
                writer.check();
        };
    });
    work_together(users, [&](unsigned number) {
        return [&, count = number]() mutable {
            TestKeyPackage made = package();
            made.count = ++count % 1000 + 2;
            const QelStatus status = set(2, me, made.encoding());
            EXPECT_TRUE(status == QEL_OK || status == QEL_ERR_ENTRY_EXISTS) << status;
        };
    });
    check_as(root, [&] {
        Values all;
        EXPECT_EQ(get_all(2, me, &all), QEL_OK);
        EXPECT_EQ(all.size(), 1u);
    });
}

// Whoever comes first, an entry has one package of an identifier, and a name belongs to one entry.
TEST_F(Store, OneOfAKind) {
    std::vector<Bytes> packages;
    for (unsigned number = 0; number < processes; ++number) {
        TestKeyPackage made = package();
        made.count = number + 2;
        packages.push_back(made.encoding());
    }
    for (unsigned round = 0; round < rounds; ++round) {
        SCOPED_TRACE(round);
        forget();
        int gate[2];
        ASSERT_EQ(pipe(gate), 0);
        std::vector<pid_t> children;
        for (unsigned number = 0; number < processes; ++number)
            children.push_back(host::start_as(root, [&] {
                close(gate[1]);
                char byte;
                if (read(gate[0], &byte, 1) != 0)
                    return 1;
                for (int time = 0; time < 3; ++time) {
                    const QelStatus status = set(2, "root", packages[(number + time) % processes]);
                    if (status != QEL_OK && status != QEL_ERR_ENTRY_EXISTS)
                        return 2;
                    if (get(2, "root") != QEL_OK)
                        return 3;
                }
                const std::string entry = number % 2 == 0 ? "bob" : "carol";
                const QelStatus status = set_cert(2, entry.c_str(), certificate(other_subject));
                return status == QEL_OK || status == QEL_ERR_ENTRY_EXISTS ? 0 : 4;
            }));
        close(gate[0]);
        close(gate[1]);
        wait_for_all(children);
        check_as(root, [] {
            Values all;
            EXPECT_EQ(get_all(2, "root", &all), QEL_OK);
            EXPECT_EQ(all.size(), 1u);
            uint32_t owners = 0;
            for (const char *entry : {"bob", "carol"}) {
                QelItemList *names = nullptr;
                uint32_t count = 0;
                __dsv_get_dn_name_given_user_name(entry, &names, &count);
                __qel_free_item_list(&names);
                owners += count;
            }
            EXPECT_LE(owners, 1u); // each gave way to the other, or one was first
        });
    }
}

// What was acknowledged is there, whenever the writer was killed; the change under way is done or not.
TEST_F(Store, KilledWriters) {
    struct Note {
        unsigned number;
        bool adds, done;
    };
    const auto change = [&](unsigned number, bool adds) {
        const Bytes value = made_value(1, number);
        return adds ? add_value(me, value)
                    : dsv_delete_certificates(me, value.data(), length_of(value));
    };
    std::mt19937 random(1);
    std::set<unsigned> sure;
    unsigned next = 0;
    for (unsigned round = 0; round < kills; ++round) {
        SCOPED_TRACE(round);
        int pipes[2];
        ASSERT_EQ(pipe(pipes), 0);
        const pid_t writer = host::start_as(round % 2 != 0 ? alice : root, [&] {
            for (unsigned number = next;; ++number) // adds, and removes what is old
                for (const bool adds : {true, false}) {
                    Note note = {adds ? number : number - 5, adds, false};
                    if (write(pipes[1], &note, sizeof note) != sizeof note ||
                        change(note.number, adds) != QEL_OK)
                        return 1;
                    note.done = true;
                    if (write(pipes[1], &note, sizeof note) != sizeof note)
                        return 2;
                }
        });
        close(pipes[1]);
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 25000));
        kill(writer, SIGKILL);
        EXPECT_EQ(host::exit_of(writer), 1000 + SIGKILL);
        Note last = {0, false, true};
        while (read(pipes[0], &last, sizeof last) == sizeof last) {
            if (last.adds)
                next = last.number + 1;
            if (last.done && last.adds)
                sure.insert(last.number);
            else // or it may still be there
                sure.erase(last.number);
        }
        close(pipes[0]);
        check_as(root, [&] {
            Values found;
            EXPECT_EQ(read_values(me, &found), QEL_OK);
            std::multiset<Bytes> left(found.begin(), found.end());
            for (const unsigned number : sure)
                EXPECT_EQ(left.erase(made_value(1, number)), 1u) << number;
            if (!last.done)
                left.erase(made_value(1, last.number));
            EXPECT_TRUE(left.empty());
            EXPECT_EQ(change(last.number, false), QEL_OK);
        });
        sure.erase(last.number);
    }
    EXPECT_GT(next, kills / 5);
}

TEST_F(Store, FullAndReadOnlyDisks) {
    Mounted disk("/var/fn", "mode=0755,size=512k");
    const auto large_value = [](unsigned number) {
        Bytes value = made_value(2, number);
        value.resize(20000, 1);
        return value;
    };
    const auto add = [&](unsigned number) { return add_value("root", large_value(number)); };
    const auto expect_values = [&](unsigned count) {
        return [&, count] {
            Values values, expected;
            const QelStatus status = read_values("root", &values);
            for (unsigned number = 0; number < count; ++number)
                expected.push_back(large_value(number));
            EXPECT_EQ(values, expected);
            return status;
        };
    };
    const unsigned count = static_cast<unsigned>(as_user(root, [&] {
        for (unsigned number = 0; number < 100; ++number)
            if (const QelStatus status = add(number); status != QEL_OK)
                return status == QEL_ERR_XFN ? static_cast<int>(number) : 200;
        return 201;
    }));
    EXPECT_GE(count, 2u);
    EXPECT_LT(count, 100u);
    walk({{"what was acknowledged", root, expect_values(count), QEL_OK},
          {"for all", alice, expect_values(count), QEL_OK}});
    EXPECT_EQ(disk.again(0, "size=8m"), 0);
    walk({{"there is room", root, [&] { return add(count); }, QEL_OK}});
    EXPECT_EQ(disk.again(MS_RDONLY, "size=8m"), 0) << errno;
    walk({{"nothing is written", root, [&] { return add(count + 1); }, QEL_ERR_XFN},
          {"nothing is lost", root, expect_values(count + 1), QEL_OK},
          {"for all", alice, expect_values(count + 1), QEL_OK}});
    EXPECT_EQ(disk.again(0, "size=8m"), 0);
    walk({{"again", root, [&] { return add(count + 1); }, QEL_OK},
          {"all of it", alice, expect_values(count + 2), QEL_OK}});
}

} // namespace
