// The REST client against answers the agent should never give: redirects are answers, not followed; bodies above the
// cap and header blocks above theirs fail without a response, announced or not; a peer that stops talking runs into
// the time limit; interim answers and folded header lines are read as HTTP says. And unix-socket endpoints up to the
// longest path a socket address holds.
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

// "result|status|body length|X-A" of one POST to url through endpoint.
std::string Outcome(const char* endpoint, const std::string& url = kAgentUrl) {
    RestRequest request(url, "x");
    stru_REST_RESPONSE* response = nullptr;
    const int result = sendRequest(endpoint, REST_REQUEST_POST, &request.rec, &response);
    std::string outcome = std::to_string(result);
    if (response != nullptr) {
        const char* header = zeb_restHeadContentFind(response->header, "X-A");
        outcome += "|" + std::to_string(response->status) + "|" + std::to_string(response->bodyLen) + "|" +
                   (header != nullptr ? header : "");
        freeRestResponse(&response);
    }
    return outcome;
}

std::string Announced(size_t length) {
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n" + std::string(length, 'x');
}

std::string Chunked(size_t length) {
    char size[32];
    std::snprintf(size, sizeof(size), "%zx\r\n", length);
    return "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + std::string(size) + std::string(length, 'x') +
           "\r\n0\r\n\r\n";
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
        {"body of the cap, announced", Announced(REST_MAX_ANSWER_BODY), "0|200|" + cap + "|"},
        {"one byte more, announced", Announced(REST_MAX_ANSWER_BODY + 1), std::to_string(CURLE_FILESIZE_EXCEEDED)},
        {"body of the cap, chunked", Chunked(REST_MAX_ANSWER_BODY), "0|200|" + cap + "|"},
        {"one byte more, chunked", Chunked(REST_MAX_ANSWER_BODY + 1), std::to_string(CURLE_WRITE_ERROR)},
        {"header block above 256 KiB", headers + "Content-Length: 0\r\n\r\n", std::to_string(CURLE_WRITE_ERROR)},
        {"redirect",
         "HTTP/1.1 307 Temporary Redirect\r\nLocation: http://" + elsewhere->endpoint() +
             "/om/v1/request\r\nContent-Length: 0\r\n\r\n",
         "0|307|0|"},
        {"interim answer, then a folded header",
         "HTTP/1.1 100 Continue\r\nX-A: interim\r\n\r\nHTTP/1.1 200 OK\r\nX-A: one\r\n \t two \r\nContent-Length: "
         "2\r\n\r\nok",
         "0|200|2|one two"},
        {"closed without a word", "", std::to_string(CURLE_GOT_NOTHING)},
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

// A unix path fits a socket address with its terminator: 107 bytes do, 108 are refused before connecting.
TEST(RestClientEndpoints, UnixSocketsUpToTheLongestPathAndTheUrlKeepsItsAuthority) {
    testsupport::TempDir dir;
    const std::string base = dir.path() + "/";
    const std::string longest = base + std::string(107 - base.size(), 's');
    auto agent = testsupport::StartedAgent(nullptr, "unix:" + longest);
    const std::string viaLongest = "unix:" + longest, tooLong = "unix:" + longest + "s";
    const struct {
        const char* endpoint;
        std::string url;
        std::string outcome;
    } rows[] = {
        {viaLongest.c_str(), kAgentUrl, "0|400|"},
        {viaLongest.c_str(), "http://example.invalid:81/om/v1/request", "0|400|"},
        {tooLong.c_str(), kAgentUrl, "-1"},
    };
    for (const auto& row : rows) {
        const std::string outcome = Outcome(row.endpoint, row.url);
        EXPECT_EQ(row.outcome, outcome.substr(0, row.outcome.size())) << row.endpoint << " " << row.url;
    }
    ASSERT_EQ(2u, agent->requests().size());
    EXPECT_EQ(REST_LOCAL_ENDPOINT " example.invalid:81",
              testsupport::Words(agent->requests()[0].header("Host"), agent->requests()[1].header("Host")));
}

}  // namespace
