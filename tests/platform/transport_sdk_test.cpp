// Transport SDK server, driven over loopback TCP by the REST client (and by
// libcurl directly where the client cannot produce the request).
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "TestEnv.h"
#include "transport_sdk.h"

namespace {

// What the echo handler saw last; written on the server thread, read after the answer.
struct Seen {
    std::string url, body, custom, ip;
    size_t bodyLen = 0;
    bool terminated = false;
};
std::mutex g_seenMutex;
Seen g_seen;

Seen LastSeen() {
    std::lock_guard<std::mutex> lock(g_seenMutex);
    return g_seen;
}

void Remember(stru_REST_REQUEST* req) {
    req->body[req->bodyLen] = '\0';  // the room the alarm-check handler relies on
    const char* custom = zeb_restHeadContentFind(req->header, "X-Custom");
    std::lock_guard<std::mutex> lock(g_seenMutex);
    g_seen = {req->url, std::string(req->body, req->bodyLen), custom ? custom : "", req->ip ? req->ip : "",
              req->bodyLen, true};
}

// Takes the body and answers without one (bodies above the client's answer cap).
int Swallow(stru_REST_REQUEST* req, stru_REST_RESPONSE*) {
    Remember(req);
    return 0;
}

// Echoes the body back with a counted trailing zero byte and a Content-Type.
int Echo(stru_REST_REQUEST* req, stru_REST_RESPONSE* rsp) {
    Remember(req);
    if (rsp->status != 0 || rsp->body != nullptr || zeb_restHeadContentCount(rsp->header) != 0) {
        return -1;
    }
    if (allocRspBody(&rsp->body, req->bodyLen + 1) != 0) {
        return -1;
    }
    std::memcpy(rsp->body, req->body, req->bodyLen);
    rsp->bodyLen = req->bodyLen + 1;
    return zeb_restHeadContentAdd(rsp->header, "Content-Type", "text/plain");
}

// Fills a whole answer, then reports failure: nothing of it may reach the client.
int Fails(stru_REST_REQUEST*, stru_REST_RESPONSE* rsp) {
    allocRspBody(&rsp->body, 10);
    rsp->bodyLen = 10;
    rsp->status = 201;
    return -1;
}

int NoStatus(stru_REST_REQUEST*, stru_REST_RESPONSE*) {
    return 0;
}

stru_REST_RESOURCE g_late{0, NoStatus};
int RegistersFromHandler(stru_REST_REQUEST*, stru_REST_RESPONSE* rsp) {
    rsp->status = RegisterUrl("/late", &g_late) == 0 ? 204 : 500;
    return 0;
}

class TransportSdk : public ::testing::Test {
protected:
    void SetUp() override {
        port_ = testsupport::FreeLoopbackPort();
        ip_ = std::make_unique<testsupport::ScopedEnv>("TRANSPORT_SDK_IP", "127.0.0.1");
        portEnv_ = std::make_unique<testsupport::ScopedEnv>("TRANSPORT_SDK_PORT", std::to_string(port_).c_str());
    }

    // Sends to the SDK; returns the status, or -1 when the request failed. Body and bodyLen land in the out-params.
    int Call(const std::string& path, const std::string& body, int type = REST_REQUEST_POST,
             std::string* answer = nullptr, std::string* contentType = nullptr) {
        std::string url = "http://127.0.0.1:" + std::to_string(port_) + path;
        std::string copy = body;
        stru_REST_REQUEST req{};
        req.url = &url[0];
        req.body = copy.empty() ? nullptr : &copy[0];
        req.bodyLen = copy.size();
        req.header = zeb_restHeadContentCreate();
        zeb_restHeadContentAdd(req.header, "X-Custom", "c1");
        stru_REST_RESPONSE* rsp = nullptr;
        const int rc = sendRequest(nullptr, type, &req, &rsp);
        zeb_restHeadContentDestory(req.header);
        if (rc != 0) {
            return -1;
        }
        const int status = rsp->status;
        if (answer != nullptr) {
            answer->assign(rsp->body, rsp->bodyLen);
        }
        if (contentType != nullptr) {
            const char* v = zeb_restHeadContentFind(rsp->header, "Content-Type");
            *contentType = v ? v : "";
        }
        freeRestResponse(&rsp);
        return status;
    }

    int port_ = 0;
    std::unique_ptr<testsupport::ScopedEnv> ip_, portEnv_;
};

TEST(TransportSdkConfig, ReportsConfiguredAddressWithoutServer) {
    {
        testsupport::ScopedEnv ip("TRANSPORT_SDK_IP", nullptr);
        testsupport::ScopedEnv port("TRANSPORT_SDK_PORT", nullptr);
        EXPECT_STREQ("", GetSdkIP());
        EXPECT_EQ(0, GetSdkPort());
        EXPECT_NE(0, TransportSdkInit());
    }
    testsupport::ScopedEnv ip("TRANSPORT_SDK_IP", "10.1.2.3");
    for (const char* bad : {"", "0", "65536", "80x", "-1", " 80"}) {
        testsupport::ScopedEnv port("TRANSPORT_SDK_PORT", bad);
        EXPECT_EQ(0, GetSdkPort()) << bad;
    }
    testsupport::ScopedEnv port("TRANSPORT_SDK_PORT", "65535");
    EXPECT_STREQ("10.1.2.3", GetSdkIP());
    EXPECT_EQ(65535, GetSdkPort());
    char* body = nullptr;
    EXPECT_NE(0, allocRspBody(nullptr, 4));
    EXPECT_NE(0, allocRspBody(&body, 0));
    ASSERT_EQ(0, allocRspBody(&body, 4));
    EXPECT_EQ(0, std::memcmp(body, "\0\0\0\0", 4));
    free(body);
}

TEST_F(TransportSdk, InitRetriesAfterFailureThenStaysUp) {
    stru_REST_RESOURCE echo{0, Echo};
    EXPECT_NE(0, RegisterUrl("/echo", &echo));  // not running yet
    const int blocker = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port_));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(0, bind(blocker, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)));
    ASSERT_EQ(0, listen(blocker, 1));
    EXPECT_NE(0, TransportSdkInit());  // port in use
    close(blocker);
    {
        testsupport::ScopedEnv badIp("TRANSPORT_SDK_IP", "localhost");
        EXPECT_NE(0, TransportSdkInit());
    }
    std::vector<std::thread> threads;
    std::atomic<int> ok{0};
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&ok] { ok += TransportSdkInit() == 0 ? 1 : 0; });
    }
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(4, ok.load());
    {
        testsupport::ScopedEnv unset("TRANSPORT_SDK_PORT", nullptr);
        EXPECT_EQ(0, TransportSdkInit());  // remembers the success
    }
    EXPECT_EQ(0, RegisterUrl("/echo", &echo));
    EXPECT_EQ(200, Call("/echo", "hi"));
}

TEST_F(TransportSdk, RoundTripKeepsBytesHeadersAndStatus) {
    ASSERT_EQ(0, TransportSdkInit());
    stru_REST_RESOURCE echo{0, Echo};
    stru_REST_RESOURCE fails{0, Fails};
    stru_REST_RESOURCE noStatus{0, NoStatus};
    EXPECT_NE(0, RegisterUrl(nullptr, &echo));
    EXPECT_NE(0, RegisterUrl("/echo", nullptr));
    EXPECT_NE(0, RegisterUrl("echo", &echo));
    stru_REST_RESOURCE noHandler{0, nullptr};
    EXPECT_NE(0, RegisterUrl("/echo", &noHandler));
    ASSERT_EQ(0, RegisterUrl("/echo", &echo));
    ASSERT_EQ(0, RegisterUrl("/fails", &fails));
    ASSERT_EQ(0, RegisterUrl("/nostatus", &noStatus));

    std::string answer, type;
    const std::string body("a\0b=c", 5);
    EXPECT_EQ(200, Call("/echo?x=1&y=%2F", body, REST_REQUEST_POST, &answer, &type));
    Seen seen = LastSeen();
    EXPECT_EQ("/echo?x=1&y=%2F", seen.url);
    EXPECT_EQ(body, seen.body);
    EXPECT_EQ(5u, seen.bodyLen);
    EXPECT_EQ("c1", seen.custom);
    EXPECT_EQ("127.0.0.1", seen.ip);
    EXPECT_EQ(body + std::string(1, '\0'), answer);  // bodyLen as counted, trailing zero included
    EXPECT_EQ("text/plain", type);

    EXPECT_EQ(200, Call("/echo", "", REST_REQUEST_PUT, &answer));
    EXPECT_EQ(0u, LastSeen().bodyLen);
    EXPECT_EQ(std::string(1, '\0'), answer);

    EXPECT_EQ(500, Call("/fails", "x", REST_REQUEST_POST, &answer));
    EXPECT_EQ("", answer);
    EXPECT_EQ(200, Call("/nostatus", "", REST_REQUEST_GET, &answer));
    EXPECT_EQ("", answer);
    EXPECT_EQ(404, Call("/echo/more", "x"));
    EXPECT_EQ(404, Call("/", ""));

    ASSERT_EQ(0, RegisterUrl("/echo", &fails));  // replaces
    EXPECT_EQ(500, Call("/echo", "x"));
}

TEST_F(TransportSdk, MethodMaskAndBodyLimit) {
    ASSERT_EQ(0, TransportSdkInit());
    stru_REST_RESOURCE postOnly{1u << REST_REQUEST_POST, Swallow};
    ASSERT_EQ(0, RegisterUrl("/post", &postOnly));
    EXPECT_EQ(405, Call("/post", "", REST_REQUEST_GET));
    EXPECT_EQ(405, Call("/post", "x", REST_REQUEST_PUT));

    const std::string limit(TRANSPORT_SDK_MAX_BODY, 'z');
    EXPECT_EQ(200, Call("/post", limit));
    EXPECT_EQ(TRANSPORT_SDK_MAX_BODY, LastSeen().bodyLen);
    {
        std::lock_guard<std::mutex> lock(g_seenMutex);
        g_seen = {};
    }
    EXPECT_EQ(413, Call("/post", limit + "z"));
    EXPECT_EQ(0u, LastSeen().bodyLen);  // the handler never ran
    EXPECT_EQ(200, Call("/post", "after"));  // the refused upload left no debris on the connection

    // Chunked upload: no length announced, the limit is found while reading.
    CURL* curl = curl_easy_init();
    const std::string url = "http://127.0.0.1:" + std::to_string(port_) + "/post";
    size_t sent = 0;
    curl_slist* headers = curl_slist_append(nullptr, "Transfer-Encoding: chunked");
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_POST, 1L);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, 10000L);
    curl_easy_setopt(curl, CURLOPT_READDATA, &sent);
    curl_easy_setopt(curl, CURLOPT_READFUNCTION, +[](char* buf, size_t size, size_t n, void* ud) -> size_t {
        auto* total = static_cast<size_t*>(ud);
        const size_t chunk = std::min(size * n, 2 * TRANSPORT_SDK_MAX_BODY - *total);
        std::memset(buf, 'c', chunk);
        *total += chunk;
        return chunk;
    });
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, +[](char*, size_t size, size_t n, void*) { return size * n; });
    EXPECT_EQ(CURLE_OK, curl_easy_perform(curl));
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    EXPECT_EQ(413, status);
    curl_slist_free_all(headers);
    curl_easy_cleanup(curl);
}

TEST_F(TransportSdk, ServesConcurrentClientsAndHandlersMayRegister) {
    ASSERT_EQ(0, TransportSdkInit());
    stru_REST_RESOURCE registers{0, RegistersFromHandler};
    ASSERT_EQ(0, RegisterUrl("/register", &registers));
    EXPECT_EQ(204, Call("/register", ""));  // no self-deadlock on the registry lock
    EXPECT_EQ(200, Call("/late", ""));

    stru_REST_RESOURCE echo{0, Echo};
    ASSERT_EQ(0, RegisterUrl("/echo", &echo));
    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([this, t, &good] {
            for (int i = 0; i < 25; ++i) {
                const std::string body = "t" + std::to_string(t) + "-" + std::to_string(i);
                std::string answer;
                if (Call("/echo", body, REST_REQUEST_POST, &answer) == 200 && answer == body + '\0') {
                    ++good;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(100, good.load());
}

TEST_F(TransportSdk, AConnectionThatNeverFinishesItsRequestIsClosed) {
    transportSdkSetTimeouts(1, 2);
    ASSERT_EQ(0, TransportSdkInit());
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{AF_INET, htons(static_cast<uint16_t>(port_)), {htonl(INADDR_LOOPBACK)}, {}};
    ASSERT_EQ(0, connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)));
    // One byte of an endless header every 200 ms: never idle, never complete.
    (void)!write(fd, "POST /echo HTTP/1.1\r\nX-Slow: ", 29);
    bool closed = false;
    for (int round = 0; round < 100 && !closed; ++round) {
        pollfd p{fd, POLLIN, 0};
        char c;
        closed = (poll(&p, 1, 200) == 1 && read(fd, &c, 1) <= 0) || write(fd, "s", 1) != 1;
    }
    EXPECT_TRUE(closed);
    close(fd);
}

}  // namespace
