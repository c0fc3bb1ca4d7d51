// loop.h: serves all clients from one thread.
//
// Nobody waits for a client: what has not come, or is not taken, stays in that connection's own
// bounded buffers. Among calls that wait, each user has one served in turn.
#ifndef DAEMON_LOOP_H
#define DAEMON_LOOP_H

#include <functional>
#include <list>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>
#include <vector>

#include "connection.h"

// What a daemon does for its clients.
struct LoopWork {
    std::size_t longest_call;
    // Answers a call. The reply is a complete record with its mark; an empty one ends the connection.
    std::function<SecretBytes(const Caller &caller, std::span<uint8_t> call)> answer;
    // Does what time demands, and says when it next has to. May be none.
    std::function<std::optional<Instant>()> tend;
};

struct LoopLimits {
    // Whom the kernel names in place of users that it cannot name here, where there are such.
    std::optional<uid_t> nameless_user;
    std::size_t connections_per_user = 64;
    std::size_t connections = 4096;
    // Of calls that have not come whole and replies that are not taken; above it the connection with
    // the most goes.
    std::size_t bytes = std::size_t{64} << 20;
    std::chrono::seconds patience{30}; // for the rest of a call, or for a reply to be taken
};

// SIGTERM and SIGINT become readable on this descriptor, in all threads; SIGHUP and SIGPIPE are ignored.
Descriptor stop_signals();

class Loop {
public:
    // listener: a listening stream socket of the local domain that does not block. stop: readable
    // when it is time to end.
    Loop(LoopWork work, int listener, int stop, const LoopLimits &limits);
    // Calls on_readable whenever a descriptor of somebody else's is readable, until it returns false.
    void watch(int fd, std::function<bool()> on_readable);
    // Until stop becomes readable. Throws std::system_error when the system refuses what any process
    // may have.
    void run();

private:
    struct Client {
        Connection connection;
        uint64_t number;                 // in the order of their coming
        uint32_t events;                 // that are waited for
        std::optional<Instant> deadline; // as in deadlines_
        std::size_t held = 0;            // as counted in held_
    };

    void dispatch(int fd, uint32_t events);
    void accept_clients();
    void pause_accepting();
    void resume_accepting();
    bool has_room(uid_t uid);
    void handle(Client &client, uint32_t events);
    void serve_waiting();
    void serve(Client &client);
    SecretBytes answer(Connection &connection);
    void settle(Client &client);
    void drop(int fd);
    void drop_late();
    void arm_timer();

    LoopWork work_;
    int listener_;
    int stop_;
    LoopLimits limits_;
    Descriptor epoll_;
    Descriptor timer_;
    int watched_ = -1;
    std::function<bool()> on_watched_;
    std::optional<Instant> armed_;            // what the timer is set to
    std::optional<Instant> accept_again_;     // while no descriptors are left
    std::unordered_map<int, Client> clients_; // by descriptor
    std::map<uid_t, std::size_t> per_user_;   // how many
    std::list<int> waiting_;                  // those with a call
    std::set<std::pair<Instant, int>> deadlines_;
    std::size_t held_ = 0;
    uint64_t coming_ = 0;
    std::vector<uint8_t> room_; // where bytes are received
};

#endif
