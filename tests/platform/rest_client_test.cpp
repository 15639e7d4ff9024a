// The REST client as the library uses it (where it connects, what it puts on the wire, the failure results) and against
// answers the agent should never give: redirects are not followed; bodies and header blocks above their caps fail,
// announced or not; a peer that stops talking runs into the time limit; interim answers and folded header lines are
// read as HTTP says. And unix-socket endpoints up to the longest path a socket address holds.
#include <curl/curl.h>
#include <gtest/gtest.h>

#include <string>

#include "Agent.h"
#include "RawPeer.h"
#include "RestCall.h"
#include "TestEnv.h"
#include "rest_client_testing.h"

namespace {

using testsupport::RawPeer;
using testsupport::RestRequest;

const char* kAgentUrl = "http://" REST_LOCAL_ENDPOINT "/om/v1/request";

// "result|status|body length|X-A" of one request, only "result" when there is no response.
std::string Outcome(RestRequest& request, const char* endpoint = "", int type = REST_REQUEST_POST) {
    stru_REST_RESPONSE* response = reinterpret_cast<stru_REST_RESPONSE*>(0x1);
    const int result = sendRequest(endpoint, type, &request.rec, &response);
    EXPECT_EQ(result == 0, response != nullptr);
    std::string outcome = std::to_string(result);
    if (response != nullptr) {
        const char* header = zeb_restHeadContentFind(response->header, "X-A");
        outcome += "|" + std::to_string(response->status) + "|" + std::to_string(response->bodyLen) + "|" +
                   (header != nullptr ? header : "");
        freeRestResponse(&response);
    }
    return outcome;
}
std::string Outcome(const char* endpoint, const std::string& url = kAgentUrl) {
    RestRequest request(url, "x");
    return Outcome(request, endpoint);
}
bool Failed(const std::string& outcome) { return outcome.find('|') == std::string::npos; }

// A 200 answer of length bytes, announced by Content-Length or chunked.
std::string Answer(size_t length, bool chunked = false) {
    char size[32];
    std::snprintf(size, sizeof(size), "%zx\r\n", length);
    return chunked
               ? "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + std::string(size) +
                     std::string(length, 'x') + "\r\n0\r\n\r\n"
               : "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n" + std::string(length, 'x');
}

TEST(RestClientAnswers, OnlyWhatFitsTheLimitsIsTakenAndNothingIsFollowed) {
    auto elsewhere = testsupport::StartedAgent();
    std::string headers = "HTTP/1.1 200 OK\r\n";
    while (headers.size() <= 256 * 1024) {
        headers += "X-Pad: " + std::string(1000, 'p') + "\r\n";
    }
    const std::string cap = std::to_string(REST_MAX_ANSWER_BODY);
    const struct {
        const char* what;
        std::string answer;
        std::string outcome;
    } rows[] = {
        // clang-format off
        {"body of the cap, announced", Answer(REST_MAX_ANSWER_BODY), "0|200|" + cap + "|"},
        {"one byte more, announced", Answer(REST_MAX_ANSWER_BODY + 1), std::to_string(CURLE_FILESIZE_EXCEEDED)},
        {"body of the cap, chunked", Answer(REST_MAX_ANSWER_BODY, true), "0|200|" + cap + "|"},
        {"one byte more, chunked", Answer(REST_MAX_ANSWER_BODY + 1, true), std::to_string(CURLE_WRITE_ERROR)},
        {"header block above 256 KiB", headers + "Content-Length: 0\r\n\r\n", std::to_string(CURLE_WRITE_ERROR)},
        {"redirect", "HTTP/1.1 307 Temporary Redirect\r\nLocation: http://" + elsewhere->endpoint() +
                     "/om/v1/request\r\nContent-Length: 0\r\n\r\n", "0|307|0|"},
        {"interim answer, then a folded header", "HTTP/1.1 100 Continue\r\nX-A: interim\r\n\r\nHTTP/1.1 200 OK\r\n"
                     "X-A: one\r\n \t two \r\nContent-Length: 2\r\n\r\nok", "0|200|2|one two"},
        {"closed without a word", "", std::to_string(CURLE_GOT_NOTHING)},
        // clang-format on
    };
    for (const auto& row : rows) {
        RawPeer peer(row.answer);
        EXPECT_EQ(row.outcome, Outcome(peer.endpoint())) << row.what;
    }
    EXPECT_TRUE(elsewhere->requests().empty()) << "a redirect was followed";
}

TEST(RestClientAnswers, APeerThatStopsTalkingRunsIntoTheTimeLimit) {
    restClientSetTimeouts(2000, 300);
    for (const char* answer : {"", "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc"}) {
        RawPeer peer(answer, RawPeer::After::HoldOpen);
        EXPECT_EQ(std::to_string(CURLE_OPERATION_TIMEDOUT), Outcome(peer.endpoint())) << answer;
    }
}

// A unix path of 107 bytes fits a socket address with its terminator.
TEST(RestClientEndpoints, UnixSocketsUpToTheLongestPathAndTheUrlKeepsItsAuthority) {
    testsupport::TempDir dir;
    const std::string base = dir.path() + "/";
    const std::string longest = base + std::string(107 - base.size(), 's');
    auto agent = testsupport::StartedAgent(nullptr, "unix:" + longest);
    const std::string via = "unix:" + longest;  // one byte more is the endpoint grammar's refusal
    EXPECT_EQ(0u, Outcome(via.c_str()).find("0|400|"));
    EXPECT_EQ(0u, Outcome(via.c_str(), "http://example.invalid:81/om/v1/request").find("0|400|"));
    ASSERT_EQ(2u, agent->requests().size());
    EXPECT_EQ(REST_LOCAL_ENDPOINT " example.invalid:81",
              testsupport::Words(agent->requests()[0].header("Host"), agent->requests()[1].header("Host")));
}

TEST(RestClient, InvalidArgumentsAndFailuresGiveNoResponse) {
    auto agent = testsupport::StartedAgent();
    testsupport::TempDir dir;
    RawPeer garbled("garbage garbage\r\n\r\n");
    const std::string refused = "127.0.0.1:" + std::to_string(testsupport::FreeLoopbackPort());
    const std::string noSocket = "unix:" + dir.path() + "/none.sock";
    testsupport::ScopedEnv env("NODEWARD_ENDPOINT", agent->endpoint().c_str());
    RestRequest ok(kAgentUrl), noBody(kAgentUrl), injected(kAgentUrl);
    stru_REST_RESPONSE* response = reinterpret_cast<stru_REST_RESPONSE*>(0x1);
    EXPECT_NE(0, sendRequest("", REST_REQUEST_POST, nullptr, &response));
    EXPECT_EQ(nullptr, response);
    EXPECT_NE(0, sendRequest("", REST_REQUEST_POST, &ok.rec, nullptr));
    EXPECT_TRUE(Failed(Outcome(ok, "", 9)));
    for (const char* url : {"https://" REST_LOCAL_ENDPOINT "/x", "nodeward.local/x", "http:///x", ""}) {
        EXPECT_TRUE(Failed(Outcome("", url))) << url;
    }
    // The endpoint grammar is rest_endpoint_test's; here only that a refused endpoint fails.
    for (const char* endpoint : {"127.0.0.1:0", "unix:", refused.c_str(), noSocket.c_str(), garbled.endpoint()}) {
        EXPECT_TRUE(Failed(Outcome(endpoint))) << endpoint;
    }
    noBody.rec.bodyLen = 4;
    zeb_restHeadContentAdd(injected.rec.header, "X-Custom", "v\r\nX-Evil: 1");
    EXPECT_TRUE(Failed(Outcome(noBody)) && Failed(Outcome(injected)));
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
    const std::string outcome = Outcome(req);
    ASSERT_TRUE(outcome.rfind("0|400|", 0) == 0 && outcome.rfind("0|400|0|", 0) != 0)
        << outcome;  // refused, saying why
    ASSERT_EQ(1u, agent->requests().size());
    const nodeward::ReceivedRequest seen = agent->requests()[0];
    EXPECT_EQ(std::string("a\0b\0", 4), seen.body);
    EXPECT_EQ("4|v1|k=v|" REST_LOCAL_ENDPOINT "||", seen.header("Content-Length") + "|" + seen.header("X-Custom") +
                                                        "|" + seen.header("Cookie") + "|" + seen.header("Host") + "|" +
                                                        seen.header("Expect") + "|" + seen.header("Content-Type"));
    // Where it connects; alternating unix and TCP on one thread: a kept connection is never reused for another target.
    testsupport::TempDir dir;
    auto viaEnv = testsupport::StartedAgent(nullptr, "unix:" + dir.path() + "/agent.sock");
    auto viaArg = testsupport::StartedAgent(), named = testsupport::StartedAgent();
    testsupport::ScopedEnv viaEnvEndpoint("NODEWARD_ENDPOINT", viaEnv->endpoint().c_str());
    const std::string other = "http://" + named->endpoint() + "/om/v1/request";
    for (int round = 0; round < 2; ++round) {
        EXPECT_FALSE(Failed(Outcome("")) || Failed(Outcome(viaArg->endpoint().c_str())) || Failed(Outcome("", other)) ||
                     Failed(Outcome(viaArg->endpoint().c_str(), other)));
    }
    EXPECT_EQ("2 4 2",
              testsupport::Words(viaEnv->requests().size(), viaArg->requests().size(), named->requests().size()));
}

}  // namespace
