#include "AgentEndpoint.h"

#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "rest_endpoint.h"

namespace nodeward {

namespace {

std::string SysError(const std::string& what) { return what + ": " + std::strerror(errno); }

bool OpenUnix(const std::string& path, ListenSocket* out, std::string* error) {
    struct stat st {};
    if (lstat(path.c_str(), &st) == 0) {
        if (!S_ISSOCK(st.st_mode)) {
            *error = path + " exists and is not a socket";
            return false;
        }
        unlink(path.c_str());  // left behind by an earlier run
    }
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        *error = SysError("socket");
        return false;
    }
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0 || listen(fd, 64) != 0) {
        *error = SysError("bind/listen " + path);
        close(fd);
        return false;
    }
    out->fd = fd;
    out->port = 0;
    out->unixPath = path;
    out->unixInode = lstat(path.c_str(), &st) == 0 ? st.st_ino : 0;
    return true;
}

}  // namespace

bool OpenListenSocket(const std::string& endpoint, ListenSocket* out, std::string* error) {
    rest_endpoint parsed;
    if (const char* why = restParseEndpoint(endpoint.c_str(), REST_ENDPOINT_LISTEN, &parsed)) {
        *error = "endpoint \"" + endpoint + "\": " + why;
        return false;
    }
    if (parsed.isUnix) {
        return OpenUnix(parsed.path, out, error);
    }
    const std::string host = parsed.host;
    const int port = parsed.port;
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const int rc = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found);
    if (rc != 0) {
        *error = "cannot resolve " + host + ": " + gai_strerror(rc);
        return false;
    }
    *error = "no address for " + host;
    for (addrinfo* a = found; a != nullptr; a = a->ai_next) {
        const int s = socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC, a->ai_protocol);
        if (s < 0) {
            *error = SysError("socket");
            continue;
        }
        const int on = 1;
        setsockopt(s, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
        sockaddr_storage bound{};
        socklen_t len = sizeof(bound);
        if (bind(s, a->ai_addr, a->ai_addrlen) != 0 || listen(s, 64) != 0 ||
            getsockname(s, reinterpret_cast<sockaddr*>(&bound), &len) != 0) {
            *error = SysError("bind/listen " + endpoint);
            close(s);
            continue;
        }
        out->fd = s;
        out->port = bound.ss_family == AF_INET6 ? ntohs(reinterpret_cast<sockaddr_in6*>(&bound)->sin6_port)
                                                : ntohs(reinterpret_cast<sockaddr_in*>(&bound)->sin_port);
        freeaddrinfo(found);
        return true;
    }
    freeaddrinfo(found);
    return false;
}

void RemoveSocketFile(const ListenSocket& socket) {
    struct stat st {};
    if (!socket.unixPath.empty() && socket.unixInode != 0 && lstat(socket.unixPath.c_str(), &st) == 0 &&
        st.st_ino == socket.unixInode) {
        unlink(socket.unixPath.c_str());
    }
}

sigset_t BlockStopSignals() {
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    signal(SIGPIPE, SIG_IGN);
    return stopSignals;
}

}  // namespace nodeward
