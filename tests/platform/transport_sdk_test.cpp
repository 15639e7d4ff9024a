// The transport SDK as the library's alarm-check resource uses it: exact paths, the method mask, the body limit, the
// answer as the handler made it, and connections that never finish.
#include <poll.h>

#include <gtest/gtest.h>

#include <cstring>
#include <future>
#include <mutex>

#include "RestCall.h"
#include "TestEnv.h"
#include "transport_sdk_testing.h"

namespace {

// What the handler saw last (written on the server thread); LastSeen() reads and clears it.
std::string Seen(std::string seen) {
    static std::mutex mutex;
    static std::string last = "<none>";
    std::lock_guard<std::mutex> lock(mutex);
    return std::exchange(last, std::move(seen));
}
std::string LastSeen() { return Seen("<none>"); }

// Records "url|body|X-Custom|client ip" and echoes the body back with a counted trailing zero byte.
int Echo(stru_REST_REQUEST* req, stru_REST_RESPONSE* rsp) {
    req->body[req->bodyLen] = '\0';  // the room the alarm-check handler relies on
    const char* custom = zeb_restHeadContentFind(req->header, "X-Custom");
    Seen(std::string(req->url) + "|" + std::string(req->body, req->bodyLen) + "|" + (custom ? custom : "") + "|" +
         req->ip);
    if (rsp->status != 0 || rsp->body != nullptr || allocRspBody(&rsp->body, req->bodyLen + 1) != 0) {
        return -1;
    }
    std::memcpy(rsp->body, req->body, req->bodyLen);
    rsp->bodyLen = req->bodyLen + 1;
    return zeb_restHeadContentAdd(rsp->header, "Content-Type", "text/plain");
}

// Records the body's length and answers without a body (bodies above the client's answer cap).
int Takes(stru_REST_REQUEST* req, stru_REST_RESPONSE*) {
    Seen(std::to_string(req->bodyLen));
    return 0;
}

// Fills a whole answer, then reports failure: nothing of it may reach the client.
int Fails(stru_REST_REQUEST*, stru_REST_RESPONSE* rsp) {
    allocRspBody(&rsp->body, 10);
    rsp->bodyLen = 10;
    rsp->status = 201;
    return -1;
}

// Writes text on a new connection and reads until the server closes (or resets) it; what it answered.
std::string Exchange(const sockaddr_in& address, const std::string& text) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    EXPECT_EQ(0, connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)));
    std::string answers;
    std::size_t written = 0;
    char buffer[4096];
    for (bool open = true; open;) {
        pollfd p{fd, static_cast<short>(POLLIN | (written < text.size() ? POLLOUT : 0)), 0};
        open = poll(&p, 1, 20000) == 1;
        EXPECT_TRUE(open) << "no progress";
        if ((p.revents & POLLOUT) != 0) {
            const ssize_t n = send(fd, text.data() + written, text.size() - written, MSG_NOSIGNAL);
            written += n > 0 ? static_cast<std::size_t>(n) : 0;
        }
        if ((p.revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
            const ssize_t n = read(fd, buffer, sizeof(buffer));
            open = open && n > 0;
            answers.append(buffer, n > 0 ? static_cast<std::size_t>(n) : 0);
        }
    }
    close(fd);
    return answers;
}

class TransportSdk : public ::testing::Test {
protected:
    testsupport::RestAnswer Call(const std::string& path, const std::string& body, int type = REST_REQUEST_POST) {
        return testsupport::RestCall("http://127.0.0.1:" + transport_.portText + path, body, type, nullptr,
                                     {{"X-Custom", "c1"}});
    }

    testsupport::LoopbackTransport transport_;
    sockaddr_in address_{AF_INET, htons(static_cast<uint16_t>(transport_.port)), {htonl(INADDR_LOOPBACK)}, {}};
};

TEST_F(TransportSdk, InitNeedsAPortRetriesAfterFailureThenStaysUp) {
    for (const char* bad : {static_cast<const char*>(nullptr), "", "0", "65536", "80x", "-1", " 80"}) {
        testsupport::ScopedEnv port("TRANSPORT_SDK_PORT", bad);
        EXPECT_EQ(0, GetSdkPort()) << (bad != nullptr ? bad : "unset");
        EXPECT_NE(0, TransportSdkInit());
    }
    EXPECT_EQ("127.0.0.1 " + transport_.portText, testsupport::Words(GetSdkIP(), GetSdkPort()));
    stru_REST_RESOURCE echo{0, Echo};
    EXPECT_NE(0, RegisterUrl("/echo", &echo));  // not running yet
    const int blocker = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(0, bind(blocker, reinterpret_cast<sockaddr*>(&address_), sizeof(address_)));
    ASSERT_EQ(0, listen(blocker, 1));
    EXPECT_NE(0, TransportSdkInit());  // port in use
    close(blocker);
    std::future<int> inits[4];
    for (auto& init : inits) {
        init = std::async(std::launch::async, TransportSdkInit);
    }
    for (auto& init : inits) {
        EXPECT_EQ(0, init.get());
    }
    testsupport::ScopedEnv unset("TRANSPORT_SDK_PORT", nullptr);
    EXPECT_EQ(0, TransportSdkInit());  // remembers the success
    EXPECT_EQ(0, RegisterUrl("/echo", &echo));
    EXPECT_EQ(200, Call("/echo", "hi").status);
}

TEST_F(TransportSdk, ServesExactPathsWithTheHandlersAnswerTheMethodMaskAndTheBodyLimit) {
    char* zeroed = nullptr;
    EXPECT_NE(0, allocRspBody(&zeroed, 0));
    ASSERT_EQ(0, allocRspBody(&zeroed, 4));
    EXPECT_EQ(0, std::memcmp(zeroed, "\0\0\0\0", 4));
    free(zeroed);
    ASSERT_EQ(0, TransportSdkInit());
    stru_REST_RESOURCE echo{0, Echo}, fails{0, Fails}, noHandler{0, nullptr};
    EXPECT_NE(0, RegisterUrl(nullptr, &echo));
    EXPECT_NE(0, RegisterUrl("/echo", nullptr));
    EXPECT_NE(0, RegisterUrl("echo", &echo));
    EXPECT_NE(0, RegisterUrl("/echo", &noHandler));
    ASSERT_EQ(0, RegisterUrl("/echo", &echo));
    ASSERT_EQ(0, RegisterUrl("/fails", &fails));
    stru_REST_RESOURCE postOnly{1u << REST_REQUEST_POST, Takes};
    ASSERT_EQ(0, RegisterUrl("/post", &postOnly));
    const std::string body("a\0b=c", 5), limit(TRANSPORT_SDK_MAX_BODY, 'z'), none = "<none>";
    const int post = REST_REQUEST_POST, put = REST_REQUEST_PUT;
    const struct {
        int method;
        std::string path, body;
        std::string answer;  // "status|Content-Type|body", or the status alone
        std::string seen;    // what the handler saw
    } calls[] = {
        // clang-format off
        {post, "/echo?x=1&y=%2F", body, "200|text/plain|" + body + '\0', "/echo?x=1&y=%2F|" + body + "|c1|127.0.0.1"},
        {put, "/echo", "", "200|text/plain|" + std::string(1, '\0'), "/echo||c1|127.0.0.1"},  // the zero as counted
        {post, "/fails", "x", "500||", none},
        {post, "/echo/more", "x", "404", none},
        {post, "/", "x", "404", none},
        {REST_REQUEST_GET, "/post", "", "405", none},  // the method mask
        {put, "/post", "x", "405", none},
        {post, "/post", limit, "200", std::to_string(TRANSPORT_SDK_MAX_BODY)},  // the body limit
        {post, "/post", limit + "z", "413", none},
        {post, "/post", "after", "200", "5"},  // the refused upload left no debris on the connection
        // clang-format on
    };
    for (const auto& call : calls) {
        const testsupport::RestAnswer answer = Call(call.path, call.body, call.method);
        const std::string shown = testsupport::Words(answer.status) + "|" + answer.contentType + "|" + answer.body;
        EXPECT_EQ(call.answer, call.answer.find('|') != std::string::npos ? shown : shown.substr(0, 3)) << call.path;
        EXPECT_EQ(call.seen, LastSeen()) << call.path;
    }
    // A refusal is answered once the announced body is read and dropped, so a request sent behind it is answered too.
    const struct {
        std::string request, body;
        const char* status;
    } refusals[] = {
        {"POST /nowhere", "hello", " 404 "}, {"PUT /post", "hello", " 405 "}, {"POST /post", limit + "z", " 413 "}};
    for (const auto& [request, body, status] : refusals) {
        const std::string text = request + " HTTP/1.1\r\nHost: x\r\nContent-Length: " + std::to_string(body.size()) +
                                 "\r\n\r\n" + body + "GET /echo HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n";
        const std::string answers = Exchange(address_, text);
        EXPECT_EQ(0u, answers.find(std::string("HTTP/1.1") + status)) << answers;
        EXPECT_NE(std::string::npos, answers.find("HTTP/1.1 200 ")) << request << ": " << answers;
    }
    ASSERT_EQ(0, RegisterUrl("/echo", &fails));  // replaces
    EXPECT_EQ(500, Call("/echo", "x").status);
    // Chunked upload: no length announced, the limit is found while reading.
    char size[32];
    std::snprintf(size, sizeof(size), "%x\r\n", 2 * TRANSPORT_SDK_MAX_BODY);
    EXPECT_EQ(0u,
              Exchange(address_, "POST /post HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n" +
                                     std::string(size) + std::string(2 * TRANSPORT_SDK_MAX_BODY, 'c') + "\r\n0\r\n\r\n")
                  .find("HTTP/1.1 413 "));
}

// One connection that never completes a request: it trickles a byte of an endless header every 200 ms (never idle,
// only the request deadline ends it) or stays silent (the idle timeout ends it). True once the server closed it.
bool ClosedByTheServer(const sockaddr_in& address, bool trickle) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        close(fd);
        return false;
    }
    (void)!write(fd, "POST /echo HTTP/1.1\r\nX-Slow: ", 29);
    bool closed = false;
    for (int round = 0; round < 100 && !closed; ++round) {
        pollfd p{fd, POLLIN, 0};
        char c;
        closed = (poll(&p, 1, 200) == 1 && read(fd, &c, 1) <= 0) || (trickle && write(fd, "s", 1) != 1);
    }
    close(fd);
    return closed;
}

// With no connection open the server thread sleeps; the first connection and one after the server slept are each held
// to the limit of the row, the other limit far off (a trickling one is never idle).
struct Limits {
    const char* what;
    unsigned idleSeconds, requestSeconds;
    bool trickle;
};

void PrintTo(const Limits& row, std::ostream* out) { *out << row.what; }

class TransportLimits : public TransportSdk, public ::testing::WithParamInterface<Limits> {};

TEST_P(TransportLimits, AConnectionThatNeverFinishesItsRequestIsClosedAlsoAfterTheServerSlept) {
    transportSdkSetTimeouts(GetParam().idleSeconds, GetParam().requestSeconds);
    ASSERT_EQ(0, TransportSdkInit());
    EXPECT_TRUE(ClosedByTheServer(address_, GetParam().trickle)) << "the first";
    EXPECT_TRUE(ClosedByTheServer(address_, GetParam().trickle)) << "one after the server slept";
}

INSTANTIATE_TEST_SUITE_P(Rows, TransportLimits,
                         ::testing::Values(Limits{"SilentPastItsRequestDeadline", 60, 1, false},
                                           Limits{"TricklingPastItsRequestDeadline", 1, 2, true},
                                           Limits{"SilentPastTheIdleTimeout", 1, 60, false}),
                         [](const ::testing::TestParamInfo<Limits>& row) { return std::string(row.param.what); });

}  // namespace
