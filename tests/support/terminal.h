// terminal.h: a pseudo-terminal with a job in its foreground, and what a user and a shell do to both.
// For programs that include this once.
#ifndef TESTS_SUPPORT_TERMINAL_H
#define TESTS_SUPPORT_TERMINAL_H

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

// The terminal has a session of its own, whose leader does what a shell does: it starts the job, takes
// the terminal when the job stops, and then waits for what is asked of it. The job's standard input is
// /dev/null; its output and errors go to the terminal.
class TerminalSession {
public:
    // What happened to the job, as waitpid tells.
    struct Event {
        pid_t job;
        int status;
    };

    explicit TerminalSession(const std::function<void()> &job) {
        EXPECT_EQ(pipe2(events_, O_CLOEXEC), 0);
        EXPECT_EQ(pipe2(requests_, O_CLOEXEC), 0);
        leader_ = forkpty(&master_, nullptr, nullptr, nullptr);
        if (leader_ == 0)
            lead(job);
        close(events_[1]);
        close(requests_[0]);
        fcntl(master_, F_SETFL, O_NONBLOCK);
        keep_settings();
        request('g');
        Event started{};
        EXPECT_EQ(read(events_[0], &started, sizeof started), ssize_t{sizeof started});
        job_ = started.job;
    }
    TerminalSession(const TerminalSession &) = delete;
    TerminalSession &operator=(const TerminalSession &) = delete;
    ~TerminalSession() {
        if (!ended_)
            kill(job_, SIGKILL);
        kill(leader_, SIGKILL);
        waitpid(leader_, nullptr, 0);
        for (const int descriptor : {master_, events_[0], requests_[1]})
            close(descriptor);
    }

    void send(int signal) const { kill(job_, signal); }

    // Types text, however long it takes the terminal to swallow it.
    void type(const std::string &text) {
        std::size_t typed = 0;
        until("the terminal takes all that is typed", [&] {
            const ssize_t count = write(master_, text.data() + typed, text.size() - typed);
            typed += count > 0 ? static_cast<std::size_t>(count) : 0;
            return typed == text.size();
        });
    }

    // Waits until the screen ends with text and the echo is off.
    void await_prompt(const std::string &text) {
        until("prompt " + text, [&] { return screen_.ends_with(text) && !has_echo(); });
    }
    void await_screen(const std::string &text) {
        until("screen " + text, [&] { return screen_ == text; });
    }
    void await_echo(bool on) {
        until(on ? "echo on" : "echo off", [&] { return has_echo() == on; });
    }

    // The next event of the job.
    int await_event() {
        Event event{};
        until("an event", [&] {
            pollfd events = {events_[0], POLLIN, 0};
            return poll(&events, 1, 0) == 1 &&
                   read(events_[0], &event, sizeof event) == ssize_t{sizeof event};
        });
        ended_ = ended_ || WIFEXITED(event.status) || WIFSIGNALED(event.status);
        return event.status;
    }

    // Of the leader, after the job has stopped: to continue the job in the foreground or behind.
    void continue_in_foreground() { request('f'); }
    void continue_in_background() { request('b'); }

    // Of characters or at least of line ends.
    bool has_echo() const { return (settings().c_lflag & (ECHO | ECHONL)) != 0; }
    // What a program changes that has the terminal for a while.
    void change_modes(tcflag_t &(*modes)(termios &), tcflag_t clear, tcflag_t set) {
        termios now = settings();
        modes(now) = (modes(now) & ~clear) | set;
        EXPECT_EQ(tcsetattr(master_, TCSANOW, &now), 0);
    }
    void keep_settings() { settings_ = settings(); }
    // Whether all settings are as when they were kept, or at the start.
    bool has_kept_settings() const {
        const termios now = settings();
        return now.c_lflag == settings_.c_lflag && now.c_iflag == settings_.c_iflag &&
               now.c_oflag == settings_.c_oflag && now.c_cflag == settings_.c_cflag;
    }

    // Everything that was shown, after a moment for what may still come.
    std::string screen() {
        usleep(20000);
        pump();
        return screen_;
    }

private:
    [[noreturn]] void lead(const std::function<void()> &work) {
        signal(SIGTTOU, SIG_IGN);
        char go = 0;
        const pid_t job = read(requests_[0], &go, 1) == 1 ? fork() : -1;
        if (job == 0) {
            setpgid(0, 0);
            tcsetpgrp(STDOUT_FILENO, getpid());
            signal(SIGTTOU, SIG_DFL);
            dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
            work();
            _exit(0);
        }
        setpgid(job, job);
        tcsetpgrp(STDOUT_FILENO, job);
        Event event = {job, 0};
        while (job > 0 && write(events_[1], &event, sizeof event) == ssize_t{sizeof event} &&
               waitpid(job, &event.status, WUNTRACED | WCONTINUED) == job) {
            if (!WIFSTOPPED(event.status))
                continue;
            tcsetpgrp(STDOUT_FILENO, getpgrp());
            // The report comes first, so that the stop can be looked at.
            if (write(events_[1], &event, sizeof event) != ssize_t{sizeof event})
                break;
            char request = 0;
            if (read(requests_[0], &request, 1) != 1)
                break;
            if (request == 'f')
                tcsetpgrp(STDOUT_FILENO, job);
            kill(job, SIGCONT);
            if (waitpid(job, &event.status, WUNTRACED | WCONTINUED) != job)
                break;
        }
        for (;;)
            pause();
    }

    void request(char what) const { EXPECT_EQ(write(requests_[1], &what, 1), 1); }

    termios settings() const {
        termios now = {};
        EXPECT_EQ(tcgetattr(master_, &now), 0);
        return now;
    }

    void pump() {
        char shown[4096];
        for (ssize_t count; (count = read(master_, shown, sizeof shown)) > 0;)
            screen_.append(shown, static_cast<std::size_t>(count));
    }

    void until(const std::string &what, const std::function<bool()> &holds) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        for (;;) {
            pump();
            if (holds())
                return;
            if (std::chrono::steady_clock::now() > deadline) {
                ADD_FAILURE() << "still waiting for: " << what << "\nscreen: " << screen_;
                return;
            }
            pollfd shown = {master_, POLLIN, 0};
            poll(&shown, 1, 2);
        }
    }

    int master_ = -1;
    pid_t leader_ = -1;
    pid_t job_ = -1;
    int events_[2] = {-1, -1};
    int requests_[2] = {-1, -1};
    bool ended_ = false;
    termios settings_ = {};
    std::string screen_;
};

#endif
