#include "loop.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <new>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <system_error>
#include <unistd.h>

#include "hardening.h"

namespace {

constexpr int accepted_at_once = 64;
constexpr int events_at_once = 256;
constexpr std::size_t received_at_once = 64 * 1024;
constexpr std::chrono::milliseconds accept_pause{100};

int checked(int result, const char *what) {
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
}

bool control(int epoll, int operation, int fd, uint32_t events) {
    epoll_event event = {};
    event.events = events;
    event.data.fd = fd;
    return epoll_ctl(epoll, operation, fd, &event) == 0;
}

itimerspec absolute(std::optional<Instant> instant) {
    itimerspec time = {};
    if (!instant)
        return time; // disarmed
    const auto since_boot = instant->time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(since_boot);
    time.it_value.tv_sec = static_cast<time_t>(seconds.count());
    time.it_value.tv_nsec = static_cast<long>((since_boot - seconds).count());
    return time;
}

} // namespace

Descriptor stop_signals() {
    signal(SIGPIPE, SIG_IGN);
    signal(SIGHUP, SIG_IGN);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    Descriptor descriptor(signalfd(-1, &signals, SFD_CLOEXEC));
    if (descriptor.get() < 0)
        throw std::system_error(errno, std::generic_category(), "signalfd");
    return descriptor;
}

Loop::Loop(LoopWork work, int listener, int stop, const LoopLimits &limits)
    : work_(std::move(work)), listener_(listener), stop_(stop), limits_(limits),
      epoll_(checked(epoll_create1(EPOLL_CLOEXEC), "epoll_create1")),
      timer_(checked(timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC | TFD_NONBLOCK), "timerfd_create")),
      room_(received_at_once) {
    for (const int fd : {listener_, stop_, timer_.get()})
        checked(control(epoll_.get(), EPOLL_CTL_ADD, fd, EPOLLIN) ? 0 : -1, "epoll_ctl");
}

void Loop::watch(int fd, std::function<bool()> on_readable) {
    checked(control(epoll_.get(), EPOLL_CTL_ADD, fd, EPOLLIN) ? 0 : -1, "epoll_ctl");
    watched_ = fd;
    on_watched_ = std::move(on_readable);
}

void Loop::run() {
    epoll_event events[events_at_once];
    for (;;) {
        arm_timer();
        const int count =
            epoll_wait(epoll_.get(), events, events_at_once, waiting_.empty() ? -1 : 0);
        if (count < 0 && errno != EINTR)
            checked(count, "epoll_wait");
        for (int i = 0; i < count; ++i) {
            if (events[i].data.fd == stop_)
                return;
            dispatch(events[i].data.fd, events[i].events);
        }
        serve_waiting();
        drop_late();
        resume_accepting();
    }
}

// A client for which there is no memory is dropped; the others stay.
void Loop::dispatch(int fd, uint32_t events) {
    if (fd == timer_.get()) {
        uint64_t times = 0;
        if (read(fd, &times, sizeof times) > 0)
            armed_.reset();
        return;
    }
    if (fd == watched_) {
        if (!on_watched_())
            control(epoll_.get(), EPOLL_CTL_DEL, fd, 0);
        return;
    }
    try {
        if (fd == listener_)
            return accept_clients();
        const auto client = clients_.find(fd); // an earlier event may have dropped it
        if (client != clients_.end())
            handle(client->second, events);
    } catch (const std::bad_alloc &) {
        log_error("no memory for a client");
        drop(fd);
    }
}

// Wakes the loop for the end of an entry and of a client's time.
void Loop::arm_timer() {
    std::optional<Instant> next = work_.tend ? work_.tend() : std::nullopt;
    if (!deadlines_.empty() && (!next || deadlines_.begin()->first < *next))
        next = deadlines_.begin()->first;
    if (accept_again_ && (!next || *accept_again_ < *next))
        next = accept_again_;
    if (next == armed_)
        return;
    const itimerspec time = absolute(next);
    timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &time, nullptr);
    armed_ = next;
}

void Loop::accept_clients() {
    for (int i = 0; i < accepted_at_once; ++i) {
        Descriptor descriptor(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        const int fd = descriptor.get();
        if (fd < 0)
            return errno == ECONNABORTED || errno == EINTR || errno == EAGAIN ? void()
                                                                              : pause_accepting();
        ucred peer = {};
        socklen_t size = sizeof peer;
        if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
            continue;
        if (peer.uid == limits_.nameless_user) {
            log_call({peer.uid, peer.pid}, "refused: the kernel cannot tell who it is", "");
            continue;
        }
        if (!has_room(peer.uid))
            continue;
        if (!control(epoll_.get(), EPOLL_CTL_ADD, fd, EPOLLIN))
            continue;
        Client client = {{std::move(descriptor), {peer.uid, peer.pid}, work_.longest_call},
                         coming_++,
                         EPOLLIN,
                         {},
                         0};
        std::size_t &count = per_user_[peer.uid];
        clients_.emplace(fd, std::move(client));
        ++count;
    }
}

// Without a descriptor for it the client at the door stays there, and would wake the loop for ever.
void Loop::pause_accepting() {
    control(epoll_.get(), EPOLL_CTL_MOD, listener_, 0);
    accept_again_ = BootClock::now() + accept_pause;
}

void Loop::resume_accepting() {
    if (!accept_again_ || BootClock::now() < *accept_again_)
        return;
    accept_again_.reset();
    control(epoll_.get(), EPOLL_CTL_MOD, listener_, EPOLLIN);
}

// A user with too many connections gets no more. When the house is full, a user with clearly more
// connections than this one loses the oldest.
bool Loop::has_room(uid_t uid) {
    const auto own = per_user_.find(uid);
    const std::size_t count = own != per_user_.end() ? own->second : 0;
    if (count >= limits_.connections_per_user)
        return false;
    if (clients_.size() < limits_.connections)
        return true;
    const auto most = std::max_element(
        per_user_.begin(), per_user_.end(),
        [](const auto &one, const auto &other) { return one.second < other.second; });
    if (most == per_user_.end() || most->second <= count + 1)
        return false;
    const Client *oldest = nullptr;
    for (const auto &[fd, client] : clients_) {
        if (client.connection.caller().uid == most->first &&
            (oldest == nullptr || client.number < oldest->number))
            oldest = &client;
    }
    drop(oldest->connection.fd());
    return true;
}

void Loop::handle(Client &client, uint32_t events) {
    Connection &connection = client.connection;
    const bool waited = connection.has_call();
    // A client that is gone is written to as well, so that sending tells.
    const bool writable = (events & (EPOLLOUT | EPOLLHUP | EPOLLERR)) != 0;
    const bool alive =
        writable && connection.has_reply() ? connection.send() : connection.receive(room_);
    if (!alive)
        return drop(connection.fd());
    if (!connection.has_call() || connection.has_reply())
        return settle(client);
    if (!waited)
        waiting_.push_back(connection.fd());
}

// One call of each user that waits; the others stay for the next round.
void Loop::serve_waiting() {
    std::set<uid_t> served;
    std::list<int> round;
    round.swap(waiting_);
    while (!round.empty()) {
        const auto found = clients_.find(round.front());
        if (found == clients_.end() || !found->second.connection.has_call()) {
            round.pop_front();
            continue;
        }
        Client &client = found->second;
        const int fd = found->first;
        try {
            if (served.insert(client.connection.caller().uid).second) {
                round.pop_front();
                serve(client);
            } else {
                waiting_.splice(waiting_.end(), round, round.begin());
                settle(client);
            }
        } catch (const std::bad_alloc &) {
            log_call(client.connection.caller(), "no memory for a call", "");
            drop(fd);
        }
    }
}

// The call is gone when the client gets its reply, and what it has left on the stack, also when there was
// no memory for a reply.
SecretBytes Loop::answer(Connection &connection) {
    struct WipeStack {
        ~WipeStack() { wipe_stack(); }
    } last;
    SecretBytes call = connection.take_call();
    return work_.answer(connection.caller(), call);
}

void Loop::serve(Client &client) {
    Connection &connection = client.connection;
    SecretBytes reply = answer(connection);
    if (reply.empty())
        return drop(connection.fd());
    connection.reply(std::move(reply));
    if (!connection.send())
        return drop(connection.fd());
    if (connection.has_call() && !connection.has_reply())
        waiting_.push_back(connection.fd());
    settle(client);
}

// Brings what is known of a client in line with its state. A connection is read only when its last
// call is answered, so that nobody's calls pile up here.
void Loop::settle(Client &client) {
    const Connection &connection = client.connection;
    const bool waits = connection.has_call() && !connection.has_reply();
    const uint32_t events = connection.has_reply() ? uint32_t{EPOLLOUT}
                            : waits                ? 0
                                                   : uint32_t{EPOLLIN};
    if (events != client.events)
        control(epoll_.get(), EPOLL_CTL_MOD, connection.fd(), events);
    client.events = events;

    std::optional<Instant> deadline;
    if (!waits && !connection.idle())
        deadline = connection.since() + limits_.patience;
    if (deadline != client.deadline) {
        if (client.deadline)
            deadlines_.erase({*client.deadline, connection.fd()});
        client.deadline.reset();
        if (deadline)
            deadlines_.emplace(*deadline, connection.fd());
        client.deadline = deadline;
    }

    held_ += connection.held() - client.held;
    client.held = connection.held();
    if (held_ > limits_.bytes) {
        const auto most = std::max_element(
            clients_.begin(), clients_.end(),
            [](const auto &one, const auto &other) { return one.second.held < other.second.held; });
        drop(most->first);
    }
}

void Loop::drop(int fd) {
    const auto found = clients_.find(fd);
    if (found == clients_.end())
        return;
    const Client &client = found->second;
    const uid_t uid = client.connection.caller().uid;
    if (client.deadline)
        deadlines_.erase({*client.deadline, fd});
    held_ -= client.held;
    clients_.erase(found);
    if (--per_user_[uid] == 0)
        per_user_.erase(uid);
}

void Loop::drop_late() {
    if (deadlines_.empty())
        return;
    const Instant now = BootClock::now();
    while (!deadlines_.empty() && deadlines_.begin()->first <= now)
        drop(deadlines_.begin()->second);
}
