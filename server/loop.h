// loop.h: serves all clients from one thread.
//
// Nobody waits for a client: what has not come, or is not taken, stays in that connection's own
// bounded buffers. Among calls that wait, each user has one served in turn.
#ifndef SERVER_LOOP_H
#define SERVER_LOOP_H

#include <list>
#include <map>
#include <set>
#include <unordered_map>
#include <vector>

#include "connection.h"
#include "service.h"

struct LoopLimits {
    std::size_t connections_per_user = 64;
    std::size_t connections = 4096;
    std::chrono::seconds patience{30}; // for the rest of a call, or for a reply to be taken
};

class Loop {
public:
    // listener: a listening stream socket of the local domain. stop: readable when it is time to end.
    Loop(Service *service, int listener, int stop, const LoopLimits &limits);
    // Until stop becomes readable. Throws std::system_error when the system refuses what any process
    // may have.
    void run();

private:
    using Connections = std::list<Connection>;

    void watch(int fd, uint32_t events, void *tag);
    void set_events(Connections::iterator connection);
    void accept_clients();
    bool has_room(uid_t uid);
    void handle(Connections::iterator connection, uint32_t events);
    void serve_waiting();
    void serve(Connections::iterator connection);
    void drop(Connections::iterator connection);
    void drop_slow(Instant now);
    void arm_timer();

    Service *service_;
    int listener_;
    int stop_;
    LoopLimits limits_;
    Descriptor epoll_;
    Descriptor timer_;
    Connections connections_;
    std::unordered_map<int, Connections::iterator> by_descriptor_;
    std::map<uid_t, std::size_t> per_user_;
    std::list<int> waiting_; // descriptors of connections with a call
    std::set<int> slow_; // descriptors of connections from which, or by which, more must be taken
};

#endif
