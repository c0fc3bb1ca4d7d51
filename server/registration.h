// registration.h: how clients find the server: rpcbind maps the program to the socket's path.
#ifndef SERVER_REGISTRATION_H
#define SERVER_REGISTRATION_H

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

// Keeps the program registered for every loopback stream transport, from a thread of its own, since
// rpcbind may be slow, or away, or start again without its memory. Ends with the registration
// withdrawn.
class Registration {
public:
    // path: the server's socket. when_done: called once, in the thread, when it is registered first.
    Registration(std::string path, std::function<void()> when_done);
    ~Registration();

    // Withdraws whatever is registered for the program, which for what another user has registered
    // only the super-user can do.
    static void clear();

private:
    void keep();
    bool wait();

    std::string path_;
    std::function<void()> when_done_;
    std::mutex mutex_;
    std::condition_variable ended_;
    bool end_ = false;
    std::thread thread_;
};

#endif
