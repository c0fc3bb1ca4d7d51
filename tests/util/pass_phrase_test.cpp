#include "support/fault.h"
#include "support/files.h"
#include "support/memory_scan.h"
#include "support/secrets.h"
#include "support/terminal.h"

#include <qel/qelp.h>

#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <thread>
#include <vector>

namespace {

bool strikes_before_the_wait = false;

} // namespace

// The C library's, with a signal at the worst of moments if the test wants one.
extern "C" int ppoll(pollfd *files, nfds_t count, const timespec *, const sigset_t *mask) {
    if (strikes_before_the_wait)
        raise(SIGINT);
    constexpr std::size_t kernel_mask_size = 8;
    return static_cast<int>(syscall(SYS_ppoll, files, count, nullptr, mask, kernel_mask_size));
}

namespace {

// What the job tells of its call.
struct Report {
    QelStatus status;
    bool has_phrase;
    char phrase[256];
    bool handlers_are_back;
    int signals;         // that its own handler got
    bool echo_at_signal; // what that handler saw
    std::size_t secrets_freed, secrets_seen;
};

Report *report;

class PassPhrase : public ::testing::Test {
protected:
    PassPhrase() {
        void *shared = mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        report = new (shared) Report();
    }
    ~PassPhrase() override { munmap(report, sizeof(Report)); }
};

constexpr int watched[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGTSTP, SIGCONT};

void own_handler(int) {
    termios settings = {};
    tcgetattr(STDOUT_FILENO, &settings);
    report->echo_at_signal = (settings.c_lflag & ECHO) != 0;
    report->signals = report->signals + 1;
}

// The call in the job, with its outcome reported.
void ask(const char *program, int kind) {
    struct sigaction before[std::size(watched)];
    for (std::size_t i = 0; i < std::size(watched); ++i)
        sigaction(watched[i], nullptr, &before[i]);
    auto *phrase = reinterpret_cast<char *>(1);
    const QelStatus status = __qel_get_encryption_phrase(program, kind, &phrase);
    report->status = status;
    report->has_phrase = phrase != nullptr;
    if (phrase != nullptr)
        std::strncpy(report->phrase, phrase, sizeof report->phrase - 1);
    std::free(phrase);
    report->handlers_are_back = true;
    for (std::size_t i = 0; i < std::size(watched); ++i) {
        struct sigaction after;
        sigaction(watched[i], nullptr, &after);
        // The C library adds a flag of its own.
        if (after.sa_handler != before[i].sa_handler ||
            ((after.sa_flags ^ before[i].sa_flags) & (SA_RESTART | SA_SIGINFO)) != 0)
            report->handlers_are_back = false;
    }
}

void expect_phrase(const char *phrase) {
    EXPECT_EQ(report->status, phrase != nullptr ? QEL_OK : QEL_ERR_BAD_PASSWORD);
    EXPECT_EQ(report->has_phrase, phrase != nullptr);
    EXPECT_STREQ(report->phrase, phrase != nullptr ? phrase : "");
    EXPECT_TRUE(report->handlers_are_back);
}

void expect_exit(TerminalSession *session) {
    const int status = session->await_event();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << std::hex << status;
    EXPECT_TRUE(session->has_kept_settings());
}

void expect_death(TerminalSession *session, int signal) {
    const int status = session->await_event();
    EXPECT_TRUE(WIFSIGNALED(status)) << std::hex << status;
    EXPECT_EQ(WTERMSIG(status), signal);
    EXPECT_TRUE(session->has_kept_settings());
}

void expect_stop(TerminalSession *session, int signal) {
    const int status = session->await_event();
    ASSERT_TRUE(WIFSTOPPED(status)) << std::hex << status;
    EXPECT_EQ(WSTOPSIG(status), signal);
}

void expect_continued(TerminalSession *session) {
    EXPECT_TRUE(WIFCONTINUED(session->await_event()));
}

// ---- What is asked and typed --------------------------------------------------------------------

constexpr char enter_new[] = "qp: Enter your NEW key package password: ";
constexpr char reenter_new[] = "qp: Reenter your NEW key package password: ";
constexpr char enter_own[] = "qp: Enter your own key package password: ";
constexpr char enter_old[] = "qp: Enter your OLD key package password: ";
constexpr char enter_first[] = "qp: Enter key package password for new key packages: ";
constexpr char enter_host[] = "qp: Enter host key package password: ";
constexpr char enter[] = "Enter password: ";
constexpr char mismatch[] = "qp: No password or different passwords entered\r\n";

TEST_F(PassPhrase, prompts_and_phrases) {
    // The names "" and null leave no trace in the first prompt, and a colon in what follows it.
    const struct {
        const char *reason;
        const char *program;
        int kind;
        std::vector<std::pair<const char *, const char *>> entries; // prompts and what is typed
        const char *phrase;                                         // null: QEL_ERR_BAD_PASSWORD
        const char *message = "";
    } rows[] = {
        {"1", "qp", 1, {{enter_new, "abc\n"}, {reenter_new, "abc\n"}}, "abc"},
        {"2", "qp", 2, {{enter_old, "abc\n"}}, "abc"},
        {"3", "qp", 3, {{enter_own, "abc\n"}}, "abc"},
        {"4", "qp", 4, {{enter_first, "a\n"}}, "a"},
        {"5", "qp", 5, {{enter_host, "abc\n"}}, "abc"},
        {"another kind", "qp", 6, {{"qp: Enter password: ", "abc\n"}}, "abc"},
        {"no name", nullptr, 0, {{enter, "abc\n"}}, "abc"},
        {"an empty name", "", -1, {{enter, "abc\n"}}, "abc"},
        {"different", "qp", 1, {{enter_new, "abc\n"}, {reenter_new, "abd\n"}}, nullptr, mismatch},
        {"nothing then", "qp", 1, {{enter_new, "abc\n"}, {reenter_new, "\n"}}, nullptr, mismatch},
        {"nothing, and no second time", "qp", 1, {{enter_new, "\n"}}, nullptr},
        {"different, without a name",
         nullptr,
         1,
         {{enter_new + 4, "abc\n"}, {reenter_new + 2, "ab\n"}},
         nullptr,
         mismatch + 2},
        {"an end of file alone", "qp", 2, {{enter_old, "\x04"}}, nullptr},
        {"an end of file behind a phrase", nullptr, 0, {{enter, "abc\x04\x04"}}, "abc"},
        {"the terminal's erase character", nullptr, 0, {{enter, "abd\177c\n"}}, "abc"},
        {"blanks and bytes beyond ASCII", nullptr, 0, {{enter, " \xc3\xa4 \n"}}, " \xc3\xa4 "},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.reason);
        *report = {};
        TerminalSession session([&] { ask(row.program, row.kind); });
        std::string screen;
        for (const auto &[prompt, typed] : row.entries) {
            session.await_prompt(prompt);
            session.type(typed);
            screen += std::string(prompt) + "\r\n";
        }
        expect_exit(&session);
        expect_phrase(row.phrase);
        EXPECT_EQ(session.screen(), screen + row.message);
    }
}

TEST_F(PassPhrase, the_first_100_characters_count) {
    // The terminal itself keeps 4095 characters of a line and drops the others.
    for (const std::size_t length : {1, 99, 100, 101, 150, 4095, 4096, 100000}) {
        SCOPED_TRACE(length);
        *report = {};
        std::string line;
        while (line.size() < length)
            line += static_cast<char>('a' + line.size() % 26);
        TerminalSession session([] { ask(nullptr, 0); });
        session.await_prompt(": ");
        session.type(line + "\n");
        expect_exit(&session);
        expect_phrase(line.substr(0, 100).c_str());
        EXPECT_EQ(session.screen(), "Enter password: \r\n");
    }
}

tcflag_t &input_modes(termios &settings) {
    return settings.c_iflag;
}
tcflag_t &local_modes(termios &settings) {
    return settings.c_lflag;
}

// The job stops before it asks, so that the terminal can be made ready.
void ask_after_a_stop() {
    raise(SIGSTOP);
    ask(nullptr, 0);
}

void continue_to_the_prompt(TerminalSession *session) {
    session->continue_in_foreground();
    expect_continued(session);
    session->await_prompt(": ");
}

TEST_F(PassPhrase, a_carriage_return_ends_the_line) {
    for (const tcflag_t cleared_modes : {tcflag_t{0}, tcflag_t{ICANON}}) {
        *report = {};
        TerminalSession session(ask_after_a_stop);
        expect_stop(&session, SIGSTOP);
        session.change_modes(input_modes, ICRNL, 0);
        session.change_modes(local_modes, cleared_modes, 0);
        session.keep_settings();
        continue_to_the_prompt(&session);
        session.type("abc\rdef\n");
        expect_exit(&session);
        expect_phrase("abc");
    }
}

TEST_F(PassPhrase, what_was_typed_before_the_prompt_does_not_count) {
    TerminalSession session(ask_after_a_stop);
    expect_stop(&session, SIGSTOP);
    session.type("early\n");
    session.await_screen("early\r\n");
    continue_to_the_prompt(&session);
    session.type("late\n");
    expect_exit(&session);
    expect_phrase("late");
}

// A terminal whose echo is off already stays like that.
TEST_F(PassPhrase, settings_come_back_whatever_they_were) {
    TerminalSession session(ask_after_a_stop);
    expect_stop(&session, SIGSTOP);
    session.change_modes(local_modes, ECHO | ECHOK, ECHONL);
    session.keep_settings();
    continue_to_the_prompt(&session);
    session.type("abc\n");
    expect_exit(&session);
    expect_phrase("abc");
    EXPECT_EQ(session.screen(), "Enter password: \r\n");
}

TEST_F(PassPhrase, without_a_terminal_there_is_none) {
    int errors[2];
    ASSERT_EQ(pipe(errors), 0);
    const pid_t child = fork();
    if (child == 0) {
        setsid();
        dup2(errors[1], STDERR_FILENO);
        ask("qp", QEL_PHRASE_NEW);
        _exit(0);
    }
    close(errors[1]);
    waitpid(child, nullptr, 0);
    expect_phrase(nullptr);
    char text[256] = "";
    EXPECT_GT(read(errors[0], text, sizeof text - 1), 0);
    EXPECT_STREQ(text, "qp: Enter your NEW key package password: ");
    close(errors[0]);
}

TEST_F(PassPhrase, refuses_a_missing_argument) {
    EXPECT_EQ(__qel_get_encryption_phrase("qp", 1, nullptr), QEL_ERR_BAD_PARAM);
}

// ---- Signals ------------------------------------------------------------------------------------

struct SignalCase {
    const char *reason;
    int signal;
    const char *key; // typed, or null: sent
};

const SignalCase ending_signals[] = {
    {"SIGINT from the keyboard", SIGINT, "\x03"},
    {"SIGINT", SIGINT, nullptr},
    {"SIGQUIT from the keyboard", SIGQUIT, "\x1c"},
    {"SIGTERM", SIGTERM, nullptr},
    {"SIGHUP", SIGHUP, nullptr},
};

void strike(TerminalSession *session, const SignalCase &row) {
    session->await_prompt(": ");
    session->type("ab");
    if (row.key != nullptr)
        session->type(row.key);
    else
        session->send(row.signal);
}

TEST_F(PassPhrase, signals_take_their_usual_effect_with_the_echo_on) {
    for (const SignalCase &row : ending_signals) {
        SCOPED_TRACE(row.reason);
        *report = {};
        TerminalSession session([] { ask(nullptr, 0); });
        strike(&session, row);
        expect_death(&session, row.signal);
        EXPECT_EQ(session.screen(), "Enter password: \r\n");
    }
}

TEST_F(PassPhrase, the_programs_own_handler_is_called_with_the_echo_on) {
    for (const SignalCase &row : ending_signals) {
        SCOPED_TRACE(row.reason);
        *report = {};
        TerminalSession session([&] {
            signal(row.signal, own_handler);
            ask(nullptr, QEL_PHRASE_NEW);
        });
        strike(&session, row);
        expect_exit(&session);
        expect_phrase(nullptr);
        EXPECT_EQ(report->signals, 1);
        EXPECT_TRUE(report->echo_at_signal);
        EXPECT_EQ(session.screen(), "Enter your NEW key package password: \r\n");
    }
}

TEST_F(PassPhrase, of_ignored_signals_only_an_interrupt_ends_the_line) {
    for (const SignalCase &row : ending_signals) {
        SCOPED_TRACE(row.reason);
        *report = {};
        TerminalSession session([&] {
            signal(row.signal, SIG_IGN);
            ask(nullptr, 0);
        });
        strike(&session, row);
        const bool ends = row.signal == SIGINT;
        // A key flushes what was typed before it, a signal does not.
        if (!ends)
            session.type("c\n");
        expect_exit(&session);
        expect_phrase(ends ? nullptr : row.key != nullptr ? "c" : "abc");
    }
}

// Other handlers may interrupt the wait; the line goes on.
TEST_F(PassPhrase, other_signals_do_not_end_the_line) {
    TerminalSession session([] {
        struct sigaction action = {};
        action.sa_handler = own_handler;
        sigaction(SIGUSR1, &action, nullptr);
        ask(nullptr, 0);
    });
    strike(&session, {"SIGUSR1", SIGUSR1, nullptr});
    session.type("c\n");
    expect_exit(&session);
    expect_phrase("abc");
    EXPECT_EQ(report->signals, 1);
    EXPECT_FALSE(report->echo_at_signal);
}

TEST_F(PassPhrase, a_signal_that_meets_another_thread_ends_the_line) {
    for (const SignalCase &row : ending_signals) {
        SCOPED_TRACE(row.reason);
        TerminalSession session([] { std::thread([] { ask(nullptr, 0); }).join(); });
        strike(&session, row);
        expect_death(&session, row.signal);
    }
}

TEST_F(PassPhrase, an_interrupt_just_before_the_wait_is_not_missed) {
    TerminalSession session([] {
        strikes_before_the_wait = true;
        ask(nullptr, 0);
    });
    expect_death(&session, SIGINT);
}

TEST_F(PassPhrase, interrupts_at_any_time) {
    for (unsigned delay = 0; delay < 30; ++delay) {
        SCOPED_TRACE(delay);
        TerminalSession session([] { ask(nullptr, 0); });
        session.await_screen("Enter password: ");
        usleep(delay * 10);
        session.send(SIGINT);
        expect_death(&session, SIGINT);
    }
}

const SignalCase stops[] = {
    {"SIGTSTP from the keyboard", SIGTSTP, "\x1a"},
    {"SIGTSTP", SIGTSTP, nullptr},
};

TEST_F(PassPhrase, a_stop_has_the_echo_on_and_the_line_goes_on_afterwards) {
    for (const SignalCase &row : stops) {
        SCOPED_TRACE(row.reason);
        *report = {};
        TerminalSession session([] { ask(nullptr, 0); });
        for (int round = 0; round < 2; ++round) {
            strike(&session, row);
            expect_stop(&session, SIGTSTP);
            EXPECT_TRUE(session.has_kept_settings());
            session.continue_in_foreground();
            expect_continued(&session);
            session.await_echo(false);
        }
        session.type("c\n");
        expect_exit(&session);
        expect_phrase(row.key != nullptr ? "c" : "ababc");
        EXPECT_EQ(session.screen(), "Enter password: \r\n");
    }
}

TEST_F(PassPhrase, the_programs_own_stop_handler_is_called_with_the_echo_on) {
    TerminalSession session([] {
        signal(SIGTSTP, own_handler);
        ask(nullptr, 0);
    });
    strike(&session, stops[0]);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (report->signals == 0 && std::chrono::steady_clock::now() < deadline)
        usleep(1000);
    EXPECT_TRUE(report->echo_at_signal);
    session.await_echo(false);
    session.type("abc\n");
    expect_exit(&session);
    expect_phrase("abc");
    EXPECT_EQ(report->signals, 1);
}

TEST_F(PassPhrase, in_the_background_the_echo_stays_on) {
    TerminalSession session([] { ask(nullptr, 0); });
    strike(&session, stops[0]);
    expect_stop(&session, SIGTSTP);
    session.continue_in_background();
    expect_continued(&session);
    expect_stop(&session, SIGTTOU);
    EXPECT_TRUE(session.has_kept_settings());
    session.continue_in_foreground();
    expect_continued(&session);
    session.await_echo(false);
    session.type("abc\n");
    expect_exit(&session);
    expect_phrase("abc");
}

TEST_F(PassPhrase, a_stopped_process_can_be_ended) {
    TerminalSession session([] { ask(nullptr, 0); });
    strike(&session, stops[0]);
    expect_stop(&session, SIGTSTP);
    session.send(SIGTERM);
    session.continue_in_background();
    // Whether it is seen to continue before it dies is open.
    const int status = session.await_event();
    if (WIFCONTINUED(status))
        expect_death(&session, SIGTERM);
    else
        EXPECT_EQ(WTERMSIG(status), SIGTERM);
    EXPECT_TRUE(session.has_kept_settings());
}

// SIGSTOP cannot be caught. Whoever had the terminal meanwhile may have turned its echo on.
TEST_F(PassPhrase, after_any_stop_the_echo_goes_off_again) {
    TerminalSession session([] {
        signal(SIGCONT, own_handler);
        ask(nullptr, 0);
    });
    strike(&session, {"SIGSTOP", SIGSTOP, nullptr});
    expect_stop(&session, SIGSTOP);
    session.change_modes(local_modes, 0, ECHO);
    session.continue_in_foreground();
    expect_continued(&session);
    session.await_echo(false);
    session.type("c\n");
    expect_exit(&session);
    expect_phrase("abc");
    EXPECT_EQ(report->signals, 1) << "the program's own handler";
}

// ---- Memory -------------------------------------------------------------------------------------

TEST_F(PassPhrase, without_memory_there_is_none) {
    for (const std::size_t nth : {1, 2}) {
        SCOPED_TRACE(nth);
        *report = {};
        TerminalSession session([&] {
            fault::fail(fault::Call::allocate, nth);
            ask("qp", QEL_PHRASE_NEW);
        });
        for (std::size_t i = 0; i < nth; ++i) {
            session.await_prompt(i == 0 ? enter_new : reenter_new);
            session.type("abc\n");
        }
        expect_exit(&session);
        expect_phrase(nullptr);
    }
}

TEST_F(PassPhrase, copies_are_zeroed) {
    for (const char *second : {"open sesame", "open sesames"}) {
        *report = {};
        TerminalSession session([] {
            SecretWatch watch;
            watch.add("phrase", bytes_of("open sesame"));
            char *phrase = nullptr;
            report->status = __qel_get_encryption_phrase(nullptr, QEL_PHRASE_NEW, &phrase);
            report->secrets_freed = watch.take_found().size();
            report->has_phrase = phrase != nullptr;
            std::free(phrase);
            report->secrets_seen = watch.take_found().size();
        });
        session.await_prompt(enter_new + 4);
        session.type("open sesame\n");
        session.await_prompt(reenter_new + 4);
        session.type(std::string(second) + "\n");
        expect_exit(&session);
        EXPECT_EQ(report->secrets_freed, 0U);
        EXPECT_EQ(report->secrets_seen, report->has_phrase ? 1U : 0U) << "it is looked for";
        EXPECT_EQ(report->has_phrase, std::strcmp(second, "open sesame") == 0);
    }
}

// The job does not know what it will read before it is typed.
TEST_F(PassPhrase, no_copy_is_left_but_the_callers) {
    if (!memory_can_be_scanned)
        GTEST_SKIP();
    TerminalSession session([] {
        const std::string found = scan_after([](Holder &holder) {
            char *phrase = nullptr;
            report->status = __qel_get_encryption_phrase(nullptr, QEL_PHRASE_NEW, &phrase);
            report->has_phrase = phrase != nullptr && std::strlen(phrase) == 20;
            if (report->has_phrase)
                holder.made(reinterpret_cast<uint8_t *>(phrase), 20);
            std::free(phrase);
        });
        std::strncpy(report->phrase, found.c_str(), sizeof report->phrase - 1);
    });
    std::string phrase;
    while (phrase.size() < 20)
        phrase += static_cast<char>('a' + (phrase.size() * 7 + phrase.size() * phrase.size()) % 26);
    for (const char *prompt : {"Enter", "Reenter"}) {
        session.await_prompt(prompt + std::string(" your NEW key package password: "));
        session.type(phrase + "\n");
    }
    expect_exit(&session);
    EXPECT_TRUE(report->has_phrase);
    EXPECT_STREQ(report->phrase, "") << "where copies are";
}

} // namespace
