// The REST client as the library uses it: where it connects, what it puts on
// the wire, and the failure results. The agent stand-in plays the server.
#include <poll.h>

#include <gtest/gtest.h>

#include <memory>

#include "Agent.h"
#include "TestEnv.h"
#include "rest_client.h"

namespace {

const char* kAgentUrl = "http://" REST_LOCAL_ENDPOINT "/om/v1/request";

struct Request {
    explicit Request(std::string u, std::string b = "") : url(std::move(u)), body(std::move(b)) {
        rec.url = &url[0];
        rec.body = body.empty() ? nullptr : &body[0];
        rec.bodyLen = body.size();
        rec.header = zeb_restHeadContentCreate();
    }
    ~Request() { zeb_restHeadContentDestory(rec.header); }
    std::string url, body;
    stru_REST_REQUEST rec{};
};

// Sends and releases the response; true when there was one (and the result was 0).
bool Sent(Request& req, const char* endpoint = "", int type = REST_REQUEST_POST, unsigned* bodyLen = nullptr) {
    stru_REST_RESPONSE* response = reinterpret_cast<stru_REST_RESPONSE*>(0x1);
    const int result = sendRequest(endpoint, type, &req.rec, &response);
    EXPECT_EQ(result == 0, response != nullptr);
    if (bodyLen != nullptr && response != nullptr) {
        *bodyLen = static_cast<unsigned>(response->bodyLen);
    }
    freeRestResponse(&response);
    return result == 0;
}

// A peer on a loopback port that reads one request and answers with exactly these bytes.
class RawPeer {
public:
    explicit RawPeer(std::string answer) : fd_(socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in addr{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
        socklen_t len = sizeof(addr);
        EXPECT_EQ(0, bind(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)));
        EXPECT_EQ(0, listen(fd_, 1));
        getsockname(fd_, reinterpret_cast<sockaddr*>(&addr), &len);
        endpoint_ = "127.0.0.1:" + std::to_string(ntohs(addr.sin_port));
        peer_ = std::thread([this, answer] {
            pollfd p{fd_, POLLIN, 0};
            if (poll(&p, 1, 5000) == 1) {
                const int c = accept(fd_, nullptr, nullptr);
                char buf[4096];
                (void)!read(c, buf, sizeof(buf));
                (void)!send(c, answer.data(), answer.size(), MSG_NOSIGNAL);
                close(c);
            }
        });
    }
    ~RawPeer() {
        peer_.join();
        close(fd_);
    }
    const char* endpoint() const { return endpoint_.c_str(); }

private:
    int fd_;
    std::string endpoint_;
    std::thread peer_;
};

TEST(RestClient, InvalidArgumentsAndFailuresGiveNoResponse) {
    auto agent = testsupport::StartedAgent();
    testsupport::TempDir dir;
    RawPeer garbled("garbage garbage\r\n\r\n");
    const std::string refused = "127.0.0.1:" + std::to_string(testsupport::FreeLoopbackPort());
    const std::string noSocket = "unix:" + dir.path() + "/none.sock";
    testsupport::ScopedEnv env("NODEWARD_ENDPOINT", agent->endpoint().c_str());
    Request ok(kAgentUrl);
    stru_REST_RESPONSE* response = reinterpret_cast<stru_REST_RESPONSE*>(0x1);
    EXPECT_NE(0, sendRequest("", REST_REQUEST_POST, nullptr, &response));
    EXPECT_EQ(nullptr, response);
    EXPECT_NE(0, sendRequest("", REST_REQUEST_POST, &ok.rec, nullptr));
    EXPECT_FALSE(Sent(ok, "", 9));
    for (const char* url : {"https://" REST_LOCAL_ENDPOINT "/x", "nodeward.local/x", "http:///x", ""}) {
        Request bad(url);
        EXPECT_FALSE(Sent(bad)) << url;
    }
    for (const char* endpoint : {"127.0.0.1", "127.0.0.1:0", "127.0.0.1:70000", ":80", "unix:", "::1:80", "h:8x",
                                 refused.c_str(), noSocket.c_str(), garbled.endpoint()}) {
        EXPECT_FALSE(Sent(ok, endpoint)) << endpoint;
    }
    Request noBody(kAgentUrl);
    noBody.rec.bodyLen = 4;
    EXPECT_FALSE(Sent(noBody));
    Request injected(kAgentUrl);
    zeb_restHeadContentAdd(injected.rec.header, "X-Custom", "v\r\nX-Evil: 1");
    EXPECT_FALSE(Sent(injected));
    EXPECT_TRUE(agent->requests().empty());
}

TEST(RestClient, PostCarriesHeadersBodyAndCookieExactly) {
    auto agent = testsupport::StartedAgent();
    testsupport::ScopedEnv env("NODEWARD_ENDPOINT", agent->endpoint().c_str());
    testsupport::ScopedEnv proxy("http_proxy", "http://127.0.0.1:1");  // must be ignored
    Request req(kAgentUrl, std::string("a\0b\0", 4));
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
}

TEST(RestClient, ChoosesWhereToConnect) {
    testsupport::TempDir dir;
    auto viaEnv = testsupport::StartedAgent(nullptr, "unix:" + dir.path() + "/agent.sock");
    auto viaArg = testsupport::StartedAgent(), named = testsupport::StartedAgent();
    testsupport::ScopedEnv env("NODEWARD_ENDPOINT", viaEnv->endpoint().c_str());
    Request local(kAgentUrl), other("http://" + named->endpoint() + "/om/v1/request");
    // Alternating unix and TCP on one thread: a kept connection must not be reused for the wrong target.
    for (int round = 0; round < 2; ++round) {
        EXPECT_TRUE(Sent(local) && Sent(local, viaArg->endpoint().c_str()) && Sent(other) &&
                    Sent(other, viaArg->endpoint().c_str()));
    }
    EXPECT_EQ("2 4 2", testsupport::Words(viaEnv->requests().size(), viaArg->requests().size(), named->requests().size()));
}

// An answer sent without its length is counted while it arrives.
TEST(RestClient, ChunkedAnswersAreCapped) {
    for (unsigned size : {REST_MAX_ANSWER_BODY, REST_MAX_ANSWER_BODY + 1}) {
        char head[32];
        std::snprintf(head, sizeof(head), "%x\r\n", size);
        RawPeer peer("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + std::string(head) +
                     std::string(size, 'x') + "\r\n0\r\n\r\n");
        Request req(kAgentUrl);
        unsigned answerLength = 0;
        EXPECT_EQ(size == REST_MAX_ANSWER_BODY, Sent(req, peer.endpoint(), REST_REQUEST_POST, &answerLength));
        EXPECT_EQ(size == REST_MAX_ANSWER_BODY ? size : 0u, answerLength);
    }
}

}  // namespace
