// pipe_signal.h: libtirpc's writes to a peer that is gone must not end the program.
#ifndef QELLOGIN_PIPE_SIGNAL_H
#define QELLOGIN_PIPE_SIGNAL_H

#include <cerrno>
#include <csignal>
#include <ctime>

// While it lives, this thread gets no SIGPIPE; what has come until then is forgotten.
class WithoutPipeSignal {
public:
    WithoutPipeSignal() {
        sigemptyset(&pipe_);
        sigaddset(&pipe_, SIGPIPE);
        sigset_t pending;
        sigemptyset(&pending);
        sigpending(&pending);
        waits_already_ = sigismember(&pending, SIGPIPE) == 1; // it is the program's, and blocked
        pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
    }
    WithoutPipeSignal(const WithoutPipeSignal &) = delete;
    WithoutPipeSignal &operator=(const WithoutPipeSignal &) = delete;
    ~WithoutPipeSignal() {
        constexpr timespec at_once = {};
        while (!waits_already_ && sigtimedwait(&pipe_, nullptr, &at_once) < 0 && errno == EINTR)
            ;
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }

private:
    sigset_t pipe_;
    sigset_t before_;
    bool waits_already_;
};

#endif
