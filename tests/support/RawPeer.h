// A peer on a loopback port that reads one request and answers with exactly the given bytes: answers no HTTP library
// would send. Held open, it then keeps the connection without a word until it is destroyed (or for 5 s).
#ifndef TEST_RAW_PEER_H
#define TEST_RAW_PEER_H

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

namespace testsupport {

class RawPeer {
public:
    enum class After { Close, HoldOpen };

    explicit RawPeer(std::string answer, After after = After::Close) : fd_(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in addr{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
        socklen_t len = sizeof(addr);
        EXPECT_EQ(0, bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)));
        EXPECT_EQ(0, listen(fd_, 1));
        getsockname(fd_, reinterpret_cast<sockaddr*>(&addr), &len);
        endpoint_ = "127.0.0.1:" + std::to_string(ntohs(addr.sin_port));
        peer_ = std::thread([this, answer, after] {
            pollfd p{fd_, POLLIN, 0};
            if (poll(&p, 1, 5000) != 1) {
                return;
            }
            const int c = accept(fd_, nullptr, nullptr);
            char buf[4096];
            (void)!read(c, buf, sizeof(buf));
            (void)!send(c, answer.data(), answer.size(), MSG_NOSIGNAL);
            // At most 5 s: a client that does not give up on its own fails its case instead of hanging it.
            for (int held = 0; after == After::HoldOpen && !done_.load() && held < 1000; ++held) {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
            close(c);
        });
    }
    ~RawPeer() {
        done_.store(true);
        peer_.join();
        close(fd_);
    }
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;
    const char* endpoint() const { return endpoint_.c_str(); }

private:
    int fd_;
    std::string endpoint_;
    std::atomic<bool> done_{false};
    std::thread peer_;
};

}  // namespace testsupport

#endif
