// The HTTP pair. The transport SDK as the library's alarm-check resource uses it: exact paths, the method mask, the
// body limit, the answer as the handler made it, and connections that never finish. The REST client as the library
// uses it: where it connects, what it puts on the wire, and the failure results (the agent stand-in plays the server).
#include <poll.h>

#include <curl/curl.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <mutex>

#include "Agent.h"
#include "RawPeer.h"
#include "RestCall.h"
#include "TestEnv.h"
#include "rest_client_testing.h"
#include "transport_sdk_testing.h"

namespace {

// What the handler saw last; written on the server thread, read after the answer.
std::mutex g_seenMutex;
std::string g_seen = "<none>";

std::string LastSeen() {
    std::lock_guard<std::mutex> lock(g_seenMutex);
    return std::exchange(g_seen, "<none>");
}
void See(const std::string& seen) {
    std::lock_guard<std::mutex> lock(g_seenMutex);
    g_seen = seen;
}

// Records "url|body|X-Custom|client ip" and echoes the body back with a counted trailing zero byte.
int Echo(stru_REST_REQUEST* req, stru_REST_RESPONSE* rsp) {
    req->body[req->bodyLen] = '\0';  // the room the alarm-check handler relies on
    const char* custom = zeb_restHeadContentFind(req->header, "X-Custom");
    See(std::string(req->url) + "|" + std::string(req->body, req->bodyLen) + "|" + (custom ? custom : "") + "|" + req->ip);
    if (rsp->status != 0 || rsp->body != nullptr || allocRspBody(&rsp->body, req->bodyLen + 1) != 0) {
        return -1;
    }
    std::memcpy(rsp->body, req->body, req->bodyLen);
    rsp->bodyLen = req->bodyLen + 1;
    return zeb_restHeadContentAdd(rsp->header, "Content-Type", "text/plain");
}

// Records the body's length and answers without a body (bodies above the client's answer cap).
int Takes(stru_REST_REQUEST* req, stru_REST_RESPONSE*) {
    See(std::to_string(req->bodyLen));
    return 0;
}

// Fills a whole answer, then reports failure: nothing of it may reach the client.
int Fails(stru_REST_REQUEST*, stru_REST_RESPONSE* rsp) {
    allocRspBody(&rsp->body, 10);
    rsp->bodyLen = 10;
    rsp->status = 201;
    return -1;
}

class TransportSdk : public ::testing::Test {
protected:
    testsupport::RestAnswer Call(const std::string& path, const std::string& body, int type = REST_REQUEST_POST) {
        return testsupport::RestCall("http://127.0.0.1:" + transport_.portText + path, body, type, nullptr, {{"X-Custom", "c1"}});
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
    std::atomic<int> ok{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&ok] { ok += TransportSdkInit() == 0 ? 1 : 0; });
    }
    for (auto& t : threads) {
        t.join();
    }
    EXPECT_EQ(4, ok.load());
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
    const std::string body("a\0b=c", 5);
    testsupport::RestAnswer answer = Call("/echo?x=1&y=%2F", body);
    EXPECT_EQ("/echo?x=1&y=%2F|" + body + "|c1|127.0.0.1", LastSeen());
    EXPECT_EQ(body + '\0' + "|text/plain|200", answer.body + "|" + answer.contentType + "|" +  // the zero as counted
                                                 std::to_string(answer.status));
    answer = Call("/echo", "", REST_REQUEST_PUT);
    EXPECT_EQ(std::string(1, '\0') + "|text/plain|200", answer.body + "|" + answer.contentType + "|" +
                                                          std::to_string(answer.status));
    EXPECT_EQ("/echo||c1|127.0.0.1", LastSeen());
    answer = Call("/fails", "x");
    EXPECT_EQ("500||", std::to_string(answer.status) + "|" + answer.body + "|" + answer.contentType);
    for (const char* path : {"/echo/more", "/"}) {
        EXPECT_EQ(404, Call(path, "x").status) << path;
    }
    ASSERT_EQ(0, RegisterUrl("/echo", &fails));  // replaces
    EXPECT_EQ(500, Call("/echo", "x").status);
    // The method mask and the body limit.
    stru_REST_RESOURCE postOnly{1u << REST_REQUEST_POST, Takes};
    ASSERT_EQ(0, RegisterUrl("/post", &postOnly));
    EXPECT_EQ(405, Call("/post", "", REST_REQUEST_GET).status);
    EXPECT_EQ(405, Call("/post", "x", REST_REQUEST_PUT).status);
    EXPECT_EQ("<none>", LastSeen());
    const std::string limit(TRANSPORT_SDK_MAX_BODY, 'z');
    EXPECT_EQ(200, Call("/post", limit).status);
    EXPECT_EQ(std::to_string(TRANSPORT_SDK_MAX_BODY), LastSeen());
    EXPECT_EQ(413, Call("/post", limit + "z").status);
    EXPECT_EQ("<none>", LastSeen());  // the handler never ran
    EXPECT_EQ(200, Call("/post", "after").status);  // the refused upload left no debris on the connection

    // Chunked upload: no length announced, the limit is found while reading.
    CURL* curl = curl_easy_init();
    const std::string url = "http://127.0.0.1:" + transport_.portText + "/post";
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

// A refusal is answered once the announced body is read and dropped, so the
// connection stays whole: a request sent behind it is answered as well.
TEST_F(TransportSdk, RefusalsReadTheAnnouncedBodyBeforeTheyAnswer) {
    ASSERT_EQ(0, TransportSdkInit());
    stru_REST_RESOURCE echo{0, Echo}, postOnly{1u << REST_REQUEST_POST, Takes};
    ASSERT_EQ(0, RegisterUrl("/echo", &echo));
    ASSERT_EQ(0, RegisterUrl("/post", &postOnly));
    const struct {
        std::string request, body;
        const char* status;
    } rows[] = {{"POST /nowhere", "hello", " 404 "}, {"PUT /post", "hello", " 405 "},
                {"POST /post", std::string(TRANSPORT_SDK_MAX_BODY + 1, 'z'), " 413 "}};
    for (const auto& [request, body, status] : rows) {
        const std::string text = request + " HTTP/1.1\r\nHost: x\r\nContent-Length: " + std::to_string(body.size()) +
                                 "\r\n\r\n" + body + "GET /echo HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n";
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        ASSERT_EQ(0, connect(fd, reinterpret_cast<sockaddr*>(&address_), sizeof(address_)));
        std::string answers;
        std::size_t written = 0;
        char buffer[4096];
        for (bool open = true; open;) {  // writes and reads until the server closes (or resets) the connection
            pollfd p{fd, static_cast<short>(POLLIN | (written < text.size() ? POLLOUT : 0)), 0};
            ASSERT_EQ(1, poll(&p, 1, 20000)) << "no progress";
            if ((p.revents & POLLOUT) != 0) {
                const ssize_t n = send(fd, text.data() + written, text.size() - written, MSG_NOSIGNAL);
                written += n > 0 ? static_cast<std::size_t>(n) : 0;
            }
            if ((p.revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
                const ssize_t n = read(fd, buffer, sizeof(buffer));
                open = n > 0;
                answers.append(buffer, n > 0 ? static_cast<std::size_t>(n) : 0);
            }
        }
        close(fd);
        EXPECT_EQ(0u, answers.find(std::string("HTTP/1.1") + status)) << answers;
        EXPECT_NE(std::string::npos, answers.find("HTTP/1.1 200 ")) << request << ": " << answers;
    }
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

// With no connection open the server thread sleeps until one arrives. Each connection in turn, the first and one that
// comes after the server slept, is held to the limit of its row: a silent one past its request deadline (the idle
// timeout being far off, only the server's own watch can close it), a trickling one (never idle), a silent one past
// the idle timeout (the request deadline far off).
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

const char* kAgentUrl = "http://" REST_LOCAL_ENDPOINT "/om/v1/request";

using testsupport::RestRequest;

// Sends and releases the response; true when there was one (and the result was 0).
bool Sent(RestRequest& req, const char* endpoint = "", int type = REST_REQUEST_POST, unsigned* bodyLen = nullptr) {
    stru_REST_RESPONSE* response = reinterpret_cast<stru_REST_RESPONSE*>(0x1);
    const int result = sendRequest(endpoint, type, &req.rec, &response);
    EXPECT_EQ(result == 0, response != nullptr);
    if (bodyLen != nullptr && response != nullptr) {
        *bodyLen = static_cast<unsigned>(response->bodyLen);
    }
    freeRestResponse(&response);
    return result == 0;
}

using testsupport::RawPeer;

TEST(RestClient, InvalidArgumentsAndFailuresGiveNoResponse) {
    auto agent = testsupport::StartedAgent();
    testsupport::TempDir dir;
    RawPeer garbled("garbage garbage\r\n\r\n");
    const std::string refused = "127.0.0.1:" + std::to_string(testsupport::FreeLoopbackPort());
    const std::string noSocket = "unix:" + dir.path() + "/none.sock";
    testsupport::ScopedEnv env("NODEWARD_ENDPOINT", agent->endpoint().c_str());
    RestRequest ok(kAgentUrl);
    stru_REST_RESPONSE* response = reinterpret_cast<stru_REST_RESPONSE*>(0x1);
    EXPECT_NE(0, sendRequest("", REST_REQUEST_POST, nullptr, &response));
    EXPECT_EQ(nullptr, response);
    EXPECT_NE(0, sendRequest("", REST_REQUEST_POST, &ok.rec, nullptr));
    EXPECT_FALSE(Sent(ok, "", 9));
    for (const char* url : {"https://" REST_LOCAL_ENDPOINT "/x", "nodeward.local/x", "http:///x", ""}) {
        RestRequest bad(url);
        EXPECT_FALSE(Sent(bad)) << url;
    }
    for (const char* endpoint : {"127.0.0.1", "127.0.0.1:0", "127.0.0.1:70000", ":80", "unix:", "::1:80", "h:8x",
                                 refused.c_str(), noSocket.c_str(), garbled.endpoint()}) {
        EXPECT_FALSE(Sent(ok, endpoint)) << endpoint;
    }
    RestRequest noBody(kAgentUrl);
    noBody.rec.bodyLen = 4;
    EXPECT_FALSE(Sent(noBody));
    RestRequest injected(kAgentUrl);
    zeb_restHeadContentAdd(injected.rec.header, "X-Custom", "v\r\nX-Evil: 1");
    EXPECT_FALSE(Sent(injected));
    EXPECT_TRUE(agent->requests().empty());
}

TEST(RestClient, PostCarriesHeadersBodyAndCookieExactlyToTheChosenEndpoint) {
    auto agent = testsupport::StartedAgent();
    testsupport::ScopedEnv env("NODEWARD_ENDPOINT", agent->endpoint().c_str());
    testsupport::ScopedEnv proxy("http_proxy", "http://127.0.0.1:1");  // must be ignored
    RestRequest req(kAgentUrl, std::string("a\0b\0", 4));
    zeb_restHeadContentAdd(req.rec.header, "X-Custom", "v1");
    zeb_restHeadContentAdd(req.rec.header, "Content-Length", "999");  // framing follows bodyLen
    char cookie[] = "k=v";
    req.rec.cookie = cookie;
    unsigned answerLength = 0;
    ASSERT_TRUE(Sent(req, "", REST_REQUEST_POST, &answerLength));  // the agent refuses the body: 400
    ASSERT_EQ(1u, agent->requests().size());
    const nodeward::ReceivedRequest seen = agent->requests()[0];
    EXPECT_EQ(std::string("a\0b\0", 4), seen.body);
    EXPECT_GT(answerLength, 0u);
    EXPECT_EQ("4|v1|k=v|" REST_LOCAL_ENDPOINT "||", seen.header("Content-Length") + "|" + seen.header("X-Custom") +
                                                        "|" + seen.header("Cookie") + "|" + seen.header("Host") + "|" +
                                                        seen.header("Expect") + "|" + seen.header("Content-Type"));
    // Where it connects.
    testsupport::TempDir dir;
    auto viaEnv = testsupport::StartedAgent(nullptr, "unix:" + dir.path() + "/agent.sock");
    auto viaArg = testsupport::StartedAgent(), named = testsupport::StartedAgent();
    testsupport::ScopedEnv viaEnvEndpoint("NODEWARD_ENDPOINT", viaEnv->endpoint().c_str());
    RestRequest local(kAgentUrl), other("http://" + named->endpoint() + "/om/v1/request");
    // Alternating unix and TCP on one thread: a kept connection must not be reused for the wrong target.
    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(Sent(local) && Sent(local, viaArg->endpoint().c_str()) && Sent(other) &&
                    Sent(other, viaArg->endpoint().c_str()));
    }
    EXPECT_EQ("2 4 2", testsupport::Words(viaEnv->requests().size(), viaArg->requests().size(), named->requests().size()));
}

}  // namespace
