// pass_phrase.cpp: pass phrases, typed at the terminal with the echo off.

#include <qel/qelp.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <lib/memory.h>
#include <toolkit/traces.h>

namespace {

constexpr std::size_t longest_phrase = 100;

// What would leave the terminal without echo, and what may turn the echo on (SIGCONT: others had the
// terminal while the process stood still).
constexpr int watched[] = {SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGTSTP, SIGCONT};
constexpr std::size_t continue_index = 5;
static_assert(watched[continue_index] == SIGCONT);

volatile sig_atomic_t intrupt; // signals that end the reading
volatile sig_atomic_t caught[NSIG];
volatile pid_t reader; // the thread that reads

bool ends_reading(int number) {
    return number != SIGTSTP && number != SIGCONT;
}

// Only the reader counts, so that whatever thread a signal meets, it wakes the reader.
void catch_signal(int number) {
    const int error = errno;
    if (gettid() != reader) {
        tgkill(getpid(), reader, number);
    } else {
        caught[number] = 1;
        if (ends_reading(number))
            intrupt = intrupt + 1;
    }
    errno = error;
}

struct Handlers {
    struct sigaction former[std::size(watched)];
};

void install(Handlers *handlers) {
    struct sigaction action = {};
    action.sa_handler = catch_signal; // without SA_RESTART: a signal ends a wait
    sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < std::size(watched); ++i) {
        struct sigaction *former = &handlers->former[i];
        sigaction(watched[i], nullptr, former);
        if (former->sa_handler != SIG_IGN || watched[i] == SIGINT || watched[i] == SIGCONT)
            sigaction(watched[i], &action, nullptr);
    }
}

void uninstall(const Handlers &handlers) {
    for (std::size_t i = 0; i < std::size(watched); ++i)
        sigaction(watched[i], &handlers.former[i], nullptr);
}

struct Terminal {
    int descriptor;
    termio attributes; // as they were

    // A read must not wait, since signals are watched in ppoll only.
    Terminal() : descriptor(open("/dev/tty", O_RDONLY | O_NONBLOCK | O_CLOEXEC)), attributes() {}
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;
    ~Terminal() {
        if (descriptor >= 0)
            close(descriptor);
    }
};

// request is TCSETAF, which discards pending input, or TCSETAW.
bool echo_off(const Terminal &terminal, unsigned long request) {
    termio silent = terminal.attributes;
    silent.c_lflag = static_cast<unsigned short>(silent.c_lflag & ~(ECHO | ECHOE | ECHOK | ECHONL));
    while (ioctl(terminal.descriptor, request, &silent) != 0) {
        if (errno != EINTR || intrupt != 0)
            return false;
    }
    return true;
}

// With SIGTTOU blocked this works from the background too, instead of stopping the process there.
void restore_echo(const Terminal &terminal) {
    sigset_t background;
    sigset_t former;
    sigemptyset(&background);
    sigaddset(&background, SIGTTOU);
    pthread_sigmask(SIG_BLOCK, &background, &former);
    while (ioctl(terminal.descriptor, TCSETAW, &terminal.attributes) != 0 && errno == EINTR)
        ;
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
}

// Stands still the way that SIGTSTP asks for. False: the echo cannot be turned off afterwards.
bool suspend(const Terminal &terminal, Handlers *handlers) {
    caught[SIGTSTP] = 0;
    restore_echo(terminal);
    uninstall(*handlers);
    raise(SIGTSTP);
    install(handlers);
    return echo_off(terminal, TCSETAW);
}

// After a stop that no signal foretold.
bool resume(const Terminal &terminal, const Handlers &handlers) {
    caught[SIGCONT] = 0;
    struct sigaction ours;
    sigaction(SIGCONT, &handlers.former[continue_index], &ours);
    raise(SIGCONT);
    sigaction(SIGCONT, &ours, nullptr);
    return echo_off(terminal, TCSETAW);
}

// Waits for a character or a watched signal. These come through nowhere but in ppoll, so that none
// slips in between its test and the wait.
bool wait_for_input(int descriptor) {
    sigset_t ours;
    sigset_t former;
    sigemptyset(&ours);
    for (const int number : watched)
        sigaddset(&ours, number);
    pthread_sigmask(SIG_BLOCK, &ours, &former);
    bool is_ready = false;
    if (intrupt == 0 && caught[SIGTSTP] == 0 && caught[SIGCONT] == 0) {
        sigset_t waiting = former;
        for (const int number : watched)
            sigdelset(&waiting, number);
        pollfd input = {descriptor, POLLIN, 0};
        is_ready = ppoll(&input, 1, nullptr, &waiting) >= 0 || errno != EINTR;
    }
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
    return is_ready;
}

using Line = qel::SecretArray<longest_phrase + 1>;

void read_line(const Terminal &terminal, Handlers *handlers, Line *line) {
    std::size_t length = 0;
    qel::SecretArray<1> next;
    while (intrupt == 0) {
        const bool is_ready = wait_for_input(terminal.descriptor);
        if (intrupt != 0)
            return;
        if (caught[SIGTSTP] != 0 || caught[SIGCONT] != 0) {
            if (!(caught[SIGTSTP] != 0 ? suspend(terminal, handlers) : resume(terminal, *handlers)))
                return;
            continue;
        }
        if (!is_ready)
            continue;
        const ssize_t count = read(terminal.descriptor, next.bytes, 1);
        if (count < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (count <= 0 || next.bytes[0] == '\n' || next.bytes[0] == '\r')
            return;
        if (length < longest_phrase)
            line->bytes[length++] = next.bytes[0];
    }
}

// False: there is no terminal, or its echo cannot be turned off.
bool read_silently(Line *line) {
    Terminal terminal;
    if (terminal.descriptor < 0)
        return false;
    Handlers handlers;
    reader = gettid();
    install(&handlers);
    bool is_silent = false;
    if (ioctl(terminal.descriptor, TCGETA, &terminal.attributes) == 0) {
        is_silent = echo_off(terminal, TCSETAF);
        if (is_silent)
            read_line(terminal, &handlers, line);
        restore_echo(terminal);
        std::fputc('\n', stderr);
    }
    uninstall(handlers);
    return is_silent;
}

struct ZeroAndFreeText {
    void operator()(char *text) const {
        explicit_bzero(text, std::strlen(text));
        std::free(text);
    }
};
using OwnedPhrase = std::unique_ptr<char, ZeroAndFreeText>;

struct PhraseText {
    int kind;
    const char *text;
};

constexpr PhraseText phrase_texts[] = {
    {QEL_PHRASE_NEW, "your NEW key package password"},
    {QEL_PHRASE_OLD, "your OLD key package password"},
    {QEL_PHRASE_OWN, "your own key package password"},
    {QEL_PHRASE_PACKAGES, "key package password for new key packages"},
    {QEL_PHRASE_HOST, "host key package password"},
};

const char *phrase_text(int kind) {
    for (const PhraseText &row : phrase_texts) {
        if (row.kind == kind)
            return row.text;
    }
    return "password";
}

OwnedPhrase ask(const char *format, const char *program_name, const char *text) {
    std::fprintf(stderr, format, program_name, text);
    std::fflush(stderr);
    return OwnedPhrase(__qel_getpass());
}

} // namespace

QelStatus __qel_get_encryption_phrase(const char *program_name, int kind, char **phrase_out) {
    const toolkit::TracesWiped traces;
    if (phrase_out == nullptr)
        return QEL_ERR_BAD_PARAM;
    *phrase_out = nullptr;
    const char *text = phrase_text(kind);
    const char *name = program_name != nullptr ? program_name : "";
    OwnedPhrase phrase = ask(*name != '\0' ? "%s: Enter %s: " : "%sEnter %s: ", name, text);
    if (phrase == nullptr || *phrase == '\0')
        return QEL_ERR_BAD_PASSWORD;
    if (kind == QEL_PHRASE_NEW) { // here without a name, too
        const OwnedPhrase again = ask("%s: Reenter %s: ", name, text);
        if (again == nullptr || std::strcmp(phrase.get(), again.get()) != 0) {
            std::fprintf(stderr, "%s: No password or different passwords entered\n", name);
            return QEL_ERR_BAD_PASSWORD;
        }
    }
    *phrase_out = phrase.release();
    return QEL_OK;
}

char *__qel_getpass(void) {
    const toolkit::TracesWiped traces;
    intrupt = 0;
    for (const int number : watched)
        caught[number] = 0;
    Line line;
    const bool has_line = read_silently(&line);
    for (const int number : watched) {
        if (caught[number] != 0)
            kill(getpid(), number);
    }
    return has_line ? strdup(reinterpret_cast<const char *>(line.bytes)) : nullptr;
}
