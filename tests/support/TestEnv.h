// Process-level helpers: environment overrides that undo themselves, free ports, temporary directories, bounded waits.
#ifndef TEST_ENV_H
#define TEST_ENV_H

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>

namespace testsupport {

// Sets (or, with nullptr, unsets) a variable; restores the old state when destroyed.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value) : name_(name) {
        if (const char* old = std::getenv(name)) {
            old_ = old;
        }
        value != nullptr ? setenv(name, value, 1) : unsetenv(name);
    }
    ~ScopedEnv() { old_ ? setenv(name_.c_str(), old_->c_str(), 1) : unsetenv(name_.c_str()); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    std::string name_;
    std::optional<std::string> old_;
};

// A TCP port on 127.0.0.1 that was free a moment ago.
inline int FreeLoopbackPort() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t len = sizeof(addr);
    const bool bound = fd >= 0 && bind(fd, reinterpret_cast<sockaddr*>(&addr), len) == 0 &&
                       getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) == 0;
    close(fd);
    return bound ? ntohs(addr.sin_port) : throw std::runtime_error("no free loopback port");
}

// The transport SDK set to serve on a free loopback port for the scope.
struct LoopbackTransport {
    int port = FreeLoopbackPort();
    std::string portText = std::to_string(port);
    ScopedEnv ip{"TRANSPORT_SDK_IP", "127.0.0.1"}, portEnv{"TRANSPORT_SDK_PORT", portText.c_str()};
};

// A new empty directory under /tmp, removed with its contents when destroyed.
class TempDir {
public:
    TempDir() {
        char pattern[] = "/tmp/alarmsdk-test-XXXXXX";
        path_ = mkdtemp(pattern) != nullptr ? pattern : throw std::runtime_error("mkdtemp failed");
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

// Polls condition every 2 ms until it holds or timeoutMs passes.
inline bool WaitUntil(const std::function<bool()>& condition, int timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (; std::chrono::steady_clock::now() < deadline; std::this_thread::sleep_for(std::chrono::milliseconds(2))) {
        if (condition()) {
            return true;
        }
    }
    return condition();
}

// The values as words separated by spaces (integers as numbers, one-byte ones
// too), so that several fields are compared in one assertion.
template <typename... Values> std::string Words(Values... values) {
    std::ostringstream out;
    const auto put = [&out](const auto& value) {
        if constexpr (std::is_integral_v<std::decay_t<decltype(value)>>) {
            out << +value << ' ';
        } else {
            out << value << ' ';
        }
    };
    (put(values), ...);
    return out.str().substr(0, out.str().size() - 1);
}

}  // namespace testsupport

#endif
