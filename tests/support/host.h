// host.h: users and daemons on a private host (see scripts/sandbox), for tests that run there.
#ifndef TESTS_SUPPORT_HOST_H
#define TESTS_SUPPORT_HOST_H

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <grp.h>
#include <pwd.h>
#include <sstream>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace host {

constexpr uid_t root = 0;

inline bool within(std::chrono::milliseconds time, const std::function<bool()> &condition) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + time;
    while (!condition()) {
        if (Clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

inline std::string read_text(const std::string &path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

// A user whom the sandbox of root has; for anybody else there is one user only, who is root there.
inline uid_t user(const char *name) {
    const passwd *entry = getpwnam(name);
    return entry != nullptr ? entry->pw_uid : root;
}
inline bool has_users() {
    return user("alice") != root;
}

// In a child: becomes the user for good.
inline void become_user(uid_t uid) {
    if (uid != root && (setgroups(0, nullptr) != 0 || setresgid(uid, uid, uid) != 0 ||
                        setresuid(uid, uid, uid) != 0))
        _exit(255);
    prctl(PR_SET_PDEATHSIG, SIGKILL); // which a change of user has undone
}

inline int exit_of(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

// Does work as another user, in a process of its own.
inline pid_t start_as(uid_t uid, const std::function<int()> &work) {
    const pid_t child = fork();
    if (child == 0) {
        become_user(uid);
        _exit(work());
    }
    return child;
}
// What it returns, one byte of it.
inline int as_user(uid_t uid, const std::function<int()> &work) {
    return exit_of(start_as(uid, work));
}

// A program with its standard error in a log.
inline pid_t start_program(std::vector<std::string> words, const std::string &log) {
    unlink(log.c_str()); // nothing of an earlier run is taken for this one's
    const pid_t child = fork();
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        setenv("ASAN_OPTIONS", "detect_leaks=0", 1); // which would have to trace it
        dup2(open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
        closefrom(STDERR_FILENO + 1);
        std::vector<char *> arguments;
        for (std::string &word : words)
            arguments.push_back(word.data());
        arguments.push_back(nullptr);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    return child;
}

} // namespace host

#endif
