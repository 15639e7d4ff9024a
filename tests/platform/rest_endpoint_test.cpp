// The endpoint grammar the REST client and the programs share.
#include <gtest/gtest.h>

#include <string>

#include "LogCapture.h"
#include "RestCall.h"
#include "TestEnv.h"
#include "rest_endpoint.h"

namespace {

struct EndpointCase {
    std::string text;
    unsigned flags;
    const char* refusal;  // nullptr: accepted as host:port, or path when host is ""
    std::string host;
    int port;
    std::string path;
};

TEST(RestEndpoint, OneGrammarForTheClientAndTheTools) {
    const std::string longest(107, 'p');
    const std::string longestHost(255, 'h');
    const EndpointCase cases[] = {
        {"127.0.0.1:7888", 0, nullptr, "127.0.0.1", 7888, ""},
        {"agent.local:00080", 0, nullptr, "agent.local", 80, ""},
        {"h:65535", 0, nullptr, "h", 65535, ""},
        {"[::1]:80", 0, nullptr, "::1", 80, ""},
        {"[fe80::1%eth0]:80", 0, nullptr, "fe80::1%eth0", 80, ""},
        {longestHost + ":1", 0, nullptr, longestHost, 1, ""},
        {"unix:/run/agent.sock", 0, nullptr, "", 0, "/run/agent.sock"},
        {"unix:" + longest, 0, nullptr, "", 0, longest},
        {"127.0.0.1:0", REST_ENDPOINT_LISTEN, nullptr, "127.0.0.1", 0, ""},
        {"", 0, "no endpoint given", "", 0, ""},
        {"127.0.0.1", 0, "no port: want HOST:PORT or unix:PATH", "", 0, ""},
        {"127.0.0.1:0", 0, "port 0 is no agent's port", "", 0, ""},
        {"127.0.0.1:00000", 0, "port 0 is no agent's port", "", 0, ""},
        {"127.0.0.1:65536", REST_ENDPOINT_LISTEN, "port is not a number from 1 to 65535", "", 0, ""},
        {"127.0.0.1:100000", 0, "port is not a number from 1 to 65535", "", 0, ""},
        {"127.0.0.1:", 0, "port is not a number from 1 to 65535", "", 0, ""},
        {"h:8x", 0, "port is not a number from 1 to 65535", "", 0, ""},
        {"h:+80", 0, "port is not a number from 1 to 65535", "", 0, ""},
        {"h:-1", 0, "port is not a number from 1 to 65535", "", 0, ""},
        {":80", 0, "no host before the port", "", 0, ""},
        {"a b:80", 0, "host holds a space, control character or one of / @ ? #", "", 0, ""},
        {"user@h:80", 0, "host holds a space, control character or one of / @ ? #", "", 0, ""},
        {longestHost + "h:1", 0, "host longer than 255 characters", "", 0, ""},
        {"::1:80", 0, "an IPv6 address goes in brackets: [IPV6]:PORT", "", 0, ""},
        {"[::1]", 0, "want [IPV6]:PORT", "", 0, ""},
        {"[::1:80", 0, "want [IPV6]:PORT", "", 0, ""},
        {"[]:80", 0, "brackets hold an IPv6 address", "", 0, ""},
        {"[host]:80", 0, "brackets hold an IPv6 address", "", 0, ""},
        {"unix:", REST_ENDPOINT_LISTEN, "unix: needs a socket path", "", 0, ""},
        {"unix:" + longest + "p", 0, "socket path longer than 107 bytes", "", 0, ""},
    };
    for (const EndpointCase& c : cases) {
        rest_endpoint parsed;
        const char* refusal = restParseEndpoint(c.text.c_str(), c.flags, &parsed);
        if (c.refusal != nullptr) {
            EXPECT_STREQ(c.refusal, refusal) << c.text;
            continue;
        }
        ASSERT_EQ(nullptr, refusal) << c.text << ": " << refusal;
        EXPECT_EQ(testsupport::Words(!c.path.empty(), c.host, c.port, c.path),
                  testsupport::Words(parsed.isUnix != 0, parsed.host, parsed.port, parsed.path));
    }
    rest_endpoint unused;
    EXPECT_STREQ("no endpoint given", restParseEndpoint(nullptr, 0, &unused));
}

// The library only sees a failed send; the run log says which endpoint and why.
TEST(RestEndpoint, AnEndpointTheClientRefusesIsLoggedWithTheReason) {
    testsupport::LogCapture log;
    testsupport::ScopedEnv agent(REST_AGENT_ENDPOINT_ENV, "127.0.0.1:0");
    for (const char* endpoint : {static_cast<const char*>(nullptr), "unix:"}) {  // nullptr: the variable's
        EXPECT_EQ(-1,
                  testsupport::RestCall("http://" REST_LOCAL_ENDPOINT "/x", "x", REST_REQUEST_POST, endpoint).result);
    }
    EXPECT_EQ(
        "sendRequest, agent endpoint \"127.0.0.1:0\" refused: port 0 is no agent's port\n"
        "sendRequest, agent endpoint \"unix:\" refused: unix: needs a socket path\n",
        log.texts());
    for (const testsupport::LogLine& line : log.lines()) {
        EXPECT_EQ(RUNLOG_LEVEL_ERROR, line.level) << line.text;
    }
}

}  // namespace
