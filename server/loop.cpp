#include "loop.h"

#include <algorithm>
#include <cerrno>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <system_error>

#include "rpc.h"

namespace {

constexpr int accepted_at_once = 64;
constexpr int events_at_once = 256;

int checked(int result, const char *what) {
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
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

Loop::Loop(Service *service, int listener, int stop, const LoopLimits &limits)
    : service_(service), listener_(listener), stop_(stop), limits_(limits),
      epoll_(checked(epoll_create1(EPOLL_CLOEXEC), "epoll_create1")),
      timer_(
          checked(timerfd_create(CLOCK_BOOTTIME, TFD_CLOEXEC | TFD_NONBLOCK), "timerfd_create")) {
    for (const int fd : {listener_, stop_, timer_.get()}) {
        epoll_event event = {};
        event.events = EPOLLIN;
        event.data.fd = fd;
        checked(epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event), "epoll_ctl");
    }
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
            const int fd = events[i].data.fd;
            if (fd == stop_)
                return;
            if (fd == listener_) {
                accept_clients();
                continue;
            }
            const auto found = by_descriptor_.find(fd);
            if (found != by_descriptor_.end())
                handle(found->second, events[i].events);
        }
        serve_waiting();
        if (!slow_.empty())
            drop_slow(BootClock::now());
    }
}

// Wakes the loop for the end of an entry and of a client's time.
void Loop::arm_timer() {
    std::optional<Instant> next = service_->expire();
    for (const int fd : slow_) {
        const Instant end = by_descriptor_.at(fd)->since() + limits_.patience;
        if (!next || end < *next)
            next = end;
    }
    const itimerspec time = absolute(next);
    timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &time, nullptr);
}

void Loop::accept_clients() {
    for (int i = 0; i < accepted_at_once; ++i) {
        Descriptor client(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (client.get() < 0)
            return;
        ucred peer = {};
        socklen_t size = sizeof peer;
        if (getsockopt(client.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0)
            continue;
        if (!has_room(peer.uid))
            continue;
        const int fd = client.get();
        epoll_event event = {};
        event.events = EPOLLIN;
        event.data.fd = fd;
        if (epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) != 0)
            continue;
        connections_.emplace_back(std::move(client), Caller{peer.uid, peer.pid});
        by_descriptor_[fd] = std::prev(connections_.end());
        ++per_user_[peer.uid];
    }
}

// A user with too many connections gets no more. When the house is full, the user with the most of
// them loses the oldest.
bool Loop::has_room(uid_t uid) {
    const auto own = per_user_.find(uid);
    if (own != per_user_.end() && own->second >= limits_.connections_per_user)
        return false;
    if (connections_.size() < limits_.connections)
        return true;
    const auto most = std::max_element(
        per_user_.begin(), per_user_.end(),
        [](const auto &one, const auto &other) { return one.second < other.second; });
    drop(std::find_if(connections_.begin(), connections_.end(), [&](const Connection &connection) {
        return connection.caller().uid == most->first;
    }));
    return true;
}

void Loop::handle(Connections::iterator connection, uint32_t events) {
    const bool waited = connection->has_call();
    const bool writable = (events & EPOLLOUT) != 0;
    const bool alive =
        writable && connection->has_reply() ? connection->send() : connection->receive();
    if (!alive)
        return drop(connection);
    if (connection->has_call() && !connection->has_reply() && !waited)
        waiting_.push_back(connection->fd());
    set_events(connection);
}

// A connection is read only when its last call is answered, so that nobody's calls pile up here.
void Loop::set_events(Connections::iterator connection) {
    epoll_event event = {};
    event.events = connection->has_reply()  ? uint32_t{EPOLLOUT}
                   : connection->has_call() ? 0
                                            : uint32_t{EPOLLIN};
    event.data.fd = connection->fd();
    epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, connection->fd(), &event);
    if (connection->idle() || (connection->has_call() && !connection->has_reply()))
        slow_.erase(connection->fd());
    else
        slow_.insert(connection->fd());
}

// One call of each user that waits; the others stay for the next round.
void Loop::serve_waiting() {
    std::set<uid_t> served;
    std::list<int> round;
    round.swap(waiting_);
    for (const int fd : round) {
        const auto found = by_descriptor_.find(fd);
        if (found == by_descriptor_.end() || !found->second->has_call())
            continue;
        if (served.insert(found->second->caller().uid).second)
            serve(found->second);
        else
            waiting_.push_back(fd);
    }
}

void Loop::serve(Connections::iterator connection) {
    SecretBytes call = connection->take_call();
    SecretBytes reply;
    try {
        reply = answer_call(service_, connection->caller(), call);
    } catch (const std::bad_alloc &) {
        log_error("no memory for a call of user %u", connection->caller().uid);
    }
    if (reply.empty())
        return drop(connection);
    connection->reply(std::move(reply));
    if (!connection->send())
        return drop(connection);
    if (connection->has_call() && !connection->has_reply())
        waiting_.push_back(connection->fd());
    set_events(connection);
}

void Loop::drop(Connections::iterator connection) {
    const uid_t uid = connection->caller().uid;
    by_descriptor_.erase(connection->fd());
    slow_.erase(connection->fd());
    connections_.erase(connection);
    if (--per_user_[uid] == 0)
        per_user_.erase(uid);
}

void Loop::drop_slow(Instant now) {
    const std::set<int> slow = slow_;
    for (const int fd : slow) {
        const auto connection = by_descriptor_.at(fd);
        if (now - connection->since() >= limits_.patience)
            drop(connection);
    }
}
