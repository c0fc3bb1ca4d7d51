// listener.h: where clients come in, and how the service manager hands it over.
#ifndef DAEMON_LISTENER_H
#define DAEMON_LISTENER_H

#include <optional>
#include <string>

#include "descriptor.h"

// A socket that the service manager has opened for us (LISTEN_FDS), or none. Throws std::runtime_error
// when what it passed is no listening stream socket of the local domain.
std::optional<Descriptor> inherited_listener();

// A socket of our own at path, which anybody may connect to. The socket that a server that is gone has
// left there is replaced. Throws std::runtime_error when another server listens there or what is there
// is no socket, or std::system_error.
Descriptor make_listener(const std::string &path);

// The path that a listening socket is bound to.
std::string path_of(const Descriptor &listener);

// Tells the service manager (NOTIFY_SOCKET) that the server is ready, or is about to end. Without one
// nothing happens.
void notify_ready();
void notify_stopping();

#endif
