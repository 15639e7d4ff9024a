// A listening socket where the agent listens, in the endpoint form of rest_endpoint.h.
#ifndef AGENT_ENDPOINT_H
#define AGENT_ENDPOINT_H

#include <signal.h>
#include <sys/types.h>

#include <string>

namespace nodeward {

struct ListenSocket {
    int fd = -1;
    int port = 0;          // the TCP port bound (0 for a unix socket)
    std::string unixPath;  // the socket file, for a unix endpoint
    ino_t unixInode = 0;   // so that only our own socket file is removed later
};

// Binds and listens (backlog 64; port 0: any free one). A stale socket file at a unix path is
// replaced; any other file there is an error.
bool OpenListenSocket(const std::string& endpoint, ListenSocket* out, std::string* error);

// Removes the unix socket file if it is still the one OpenListenSocket made.
void RemoveSocketFile(const ListenSocket& socket);

// For a program serving the agent protocol until it is told to stop: blocks
// SIGINT and SIGTERM in the calling thread and every thread it starts later,
// so that the caller takes them with sigwait and no handler interrupts a
// thread, and ignores SIGPIPE (a peer that goes away must not end it).
// Returns the set to wait on.
sigset_t BlockStopSignals();

}  // namespace nodeward

#endif
