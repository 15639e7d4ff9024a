// Push requests as a service sends them: recording, answers, strict decoding,
// transports.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "SimTestHelpers.h"
#include "TestEnv.h"

using namespace simtest;
using nodeward::Sim;

namespace {

const std::string kAlarm = CurrentAlarm("300012", 1);

TEST(SimPush, CurrentDocumentIsRecordedAndAnsweredRetCodeZero) {
    Sim sim(Loopback());
    std::string error;
    ASSERT_TRUE(sim.start(&error)) << error;
    ASSERT_GT(sim.port(), 0);
    EXPECT_EQ(sim.endpoint(), "127.0.0.1:" + std::to_string(sim.port()));

    const std::string body = Encode(CurrentDocument(kAlarm));
    const HttpResult answer = Post(PushUrl(sim), body);
    ASSERT_EQ(answer.code, CURLE_OK);
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, "eyJyZXRDb2RlIjowfQ==");  // {"retCode":0}

    const auto requests = sim.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].body, body);
    EXPECT_EQ(requests[0].json, CurrentDocument(kAlarm));
    EXPECT_FALSE(requests[0].legacy);
    EXPECT_TRUE(requests[0].accepted);
    ASSERT_EQ(requests[0].alarms.size(), 1u);

    const nodeward::ReceivedAlarm& alarm = requests[0].alarms[0];
    const std::vector<std::string> keys = {"alarmId",   "appId",         "occurTime", "serviceName", "serviceIp",
                                           "servicePort", "serviceLabel", "alarmType", "serviceId",
                                           "serviceInstId", "rsetClear",  "nodeIp",    "callBackInfo",
                                           "parameters"};
    EXPECT_EQ(alarm.keys, keys);
    EXPECT_EQ(alarm.alarmId, "300012");
    EXPECT_EQ(alarm.alarmType, 1);
    EXPECT_EQ(alarm.appId, "app-7");
    EXPECT_EQ(alarm.serviceName, "orders");
    EXPECT_EQ(alarm.serviceIp, "127.0.0.1");
    EXPECT_EQ(alarm.servicePort, 8080);
    EXPECT_EQ(alarm.occurTime, 1795784527123);
    EXPECT_EQ(alarm.rsetClear, 1);
    const std::vector<std::pair<std::string, std::string>> parameters = {{"disk", "sda"}, {"usage", "95"}};
    EXPECT_EQ(alarm.parameters, parameters);
    EXPECT_EQ(alarm.json, kAlarm);
    EXPECT_EQ(sim.acceptedAlarms().size(), 1u);
}

TEST(SimPush, CountingOnlyKeepsTheNumbersAndNoRecord) {
    nodeward::SimOptions options = Loopback();
    options.recordRequests = false;
    options.failFirst = 1;
    Sim sim(options);
    ASSERT_TRUE(sim.start(nullptr));
    const std::string body = Encode(CurrentDocument(CurrentAlarm("1", 1) + "," + CurrentAlarm("2", 2)));
    EXPECT_EQ(Decode(Post(PushUrl(sim), body).body), "{\"retCode\":1}");
    EXPECT_EQ(Decode(Post(PushUrl(sim), body).body), "{\"retCode\":0}");
    EXPECT_EQ(Post(PushUrl(sim), "not base64").status, 400);
    ASSERT_TRUE(sim.waitForAcceptedAlarms(2, 5000));
    const nodeward::SimCounts counts = sim.counts();
    EXPECT_EQ(counts.requests, 3u);
    EXPECT_EQ(counts.acceptedRequests, 1u);
    EXPECT_EQ(counts.acceptedAlarms, 2u);
    EXPECT_TRUE(sim.requests().empty());
    EXPECT_TRUE(sim.acceptedAlarms().empty());
}

TEST(SimPush, LegacyDocumentIsAnsweredReturncodeOk) {
    Sim sim(Loopback());
    ASSERT_TRUE(sim.start(nullptr));
    const HttpResult answer =
        Post(PushUrl(sim), Encode(LegacyDocument(LegacyAlarm("1001", 0) + "," + LegacyAlarm("1001", 1))));
    ASSERT_EQ(answer.code, CURLE_OK);
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(Decode(answer.body), "{\"returncode\":\"OK\"}");

    const auto requests = sim.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_TRUE(requests[0].legacy);
    EXPECT_TRUE(requests[0].accepted);
    ASSERT_EQ(requests[0].alarms.size(), 2u);
    const auto& raised = requests[0].alarms[0];
    const auto& cleared = requests[0].alarms[1];
    EXPECT_TRUE(raised.legacy);
    EXPECT_EQ(raised.alarmId, "1001");
    EXPECT_EQ(raised.alarmType, 1);
    EXPECT_EQ(raised.occurTime, 1795784527123);
    EXPECT_EQ(raised.location, "EN:Disk=sda##ZH:Disk=sda##");
    EXPECT_EQ(raised.appendInfo, "EN:Usage=95##ZH:Usage=95##");
    EXPECT_EQ(raised.keys.front(), "alarmName");
    EXPECT_EQ(raised.servicePort, -1);
    EXPECT_EQ(cleared.alarmType, 2);
    EXPECT_EQ(cleared.occurTime, 1795784528000);  // a clear is dated by its clear time
}

// Each body is one the library's own decoder accepts or a sender could produce
// by mistake; the agent refuses all of them with a readable reason.
TEST(SimPush, MalformedBodiesAreRefusedWithAReason) {
    Sim sim(Loopback());
    ASSERT_TRUE(sim.start(nullptr));
    const std::string good = Encode(CurrentDocument(kAlarm));
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"whitespace", good.substr(0, 8) + "    " + good.substr(8)},
        {"line break", good.substr(0, 8) + "\r\n\r\n" + good.substr(8)},
        {"pad inside", "TQ==" + good},
        {"lone pad before last", good.substr(0, good.size() - 4) + "AA=A"},
        {"bad character", "TWF-" + good.substr(4)},
        {"length", good + "A"},
        {"empty", ""},
        {"not json", Encode("not json at all")},
        {"trailing text", Encode(CurrentDocument(kAlarm) + "xx")},
        {"no generation", Encode("{\"payload\":{\"alarmList\":[]}}")},
        {"no alarm list", Encode("{\"Receiver\":\"SendAlarm\"}")},
    };
    for (const auto& [name, body] : cases) {
        SCOPED_TRACE(name);
        const HttpResult answer = Post(PushUrl(sim), body);
        ASSERT_EQ(answer.code, CURLE_OK);
        EXPECT_EQ(answer.status, 400);
        const std::string decoded = Decode(answer.body);
        EXPECT_EQ(decoded.rfind("{\"retCode\":1,\"retDesc\":\"", 0), 0u) << decoded;
        EXPECT_GT(decoded.size(), std::string("{\"retCode\":1,\"retDesc\":\"\"}").size()) << decoded;
    }
    const auto requests = sim.requests();
    ASSERT_EQ(requests.size(), cases.size());
    for (const auto& request : requests) {
        EXPECT_FALSE(request.accepted);
    }
    EXPECT_TRUE(sim.acceptedAlarms().empty());
    EXPECT_EQ(requests[7].json, "not json at all");  // decoded text kept for diagnosis
    EXPECT_EQ(requests[0].json, "");
}

TEST(SimPush, OtherPathsAndMethodsAndOversizeBodies) {
    nodeward::SimOptions options = Loopback();
    options.maxBodyBytes = 64;
    Sim sim(options);
    ASSERT_TRUE(sim.start(nullptr));
    const std::string base = "http://127.0.0.1:" + std::to_string(sim.port());
    EXPECT_EQ(Post(base + "/om/v1/other", "TWFu").status, 404);
    EXPECT_EQ(Http(PushUrl(sim), nullptr).status, 405);

    const HttpResult big = Post(PushUrl(sim), Encode(CurrentDocument(kAlarm)));
    ASSERT_EQ(big.code, CURLE_OK);
    EXPECT_EQ(big.status, 413);
    const auto requests = sim.requests();
    ASSERT_EQ(requests.size(), 1u);  // the two misdirected requests are not pushes
    EXPECT_FALSE(requests[0].accepted);
    EXPECT_TRUE(requests[0].body.empty());
}

TEST(SimPush, UnixSocketEndpointReplacesAStaleSocketAndRemovesItOnStop) {
    testsupport::TempDir dir;
    const std::string path = dir.path() + "/agent.sock";
    {  // a socket file left by a crashed agent
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        std::snprintf(addr.sun_path, sizeof(addr.sun_path), "%s", path.c_str());
        ASSERT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)), 0);
        close(fd);
    }
    nodeward::SimOptions options;
    options.endpoint = "unix:" + path;
    Sim sim(options);
    std::string error;
    ASSERT_TRUE(sim.start(&error)) << error;
    EXPECT_EQ(sim.port(), 0);
    EXPECT_EQ(sim.endpoint(), "unix:" + path);

    const HttpResult answer = Post("http://localhost/om/v1/request", Encode(CurrentDocument(kAlarm)), path);
    ASSERT_EQ(answer.code, CURLE_OK);
    EXPECT_EQ(Decode(answer.body), "{\"retCode\":0}");
    EXPECT_EQ(sim.acceptedAlarms().size(), 1u);
    sim.stop();
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(SimPush, StartFailsOnABadOrBusyEndpoint) {
    testsupport::TempDir dir;
    const std::string regular = dir.path() + "/not-a-socket";
    std::ofstream(regular) << "keep me";
    for (const std::string& endpoint : {std::string("nonsense"), "unix:" + regular, std::string("127.0.0.1:99999")}) {
        nodeward::SimOptions options;
        options.endpoint = endpoint;
        Sim sim(options);
        std::string error;
        EXPECT_FALSE(sim.start(&error)) << endpoint;
        EXPECT_FALSE(error.empty()) << endpoint;
    }
    EXPECT_TRUE(std::filesystem::exists(regular));  // never deletes what is not a socket

    Sim first(Loopback());
    ASSERT_TRUE(first.start(nullptr));
    nodeward::SimOptions busy;
    busy.endpoint = first.endpoint();
    Sim second(busy);
    std::string error;
    EXPECT_FALSE(second.start(&error));
}

TEST(SimPush, WaitsWakeWhenAnotherThreadPosts) {
    Sim sim(Loopback());
    ASSERT_TRUE(sim.start(nullptr));
    EXPECT_FALSE(sim.waitForRequests(1, 20));
    std::thread sender([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        Post(PushUrl(sim), Encode(CurrentDocument(kAlarm + "," + CurrentAlarm("300013", 2))));
    });
    EXPECT_TRUE(sim.waitForAcceptedAlarms(2, 5000));
    EXPECT_TRUE(sim.waitForRequests(1, 0));
    EXPECT_FALSE(sim.waitForAcceptedAlarms(3, 50));
    sender.join();
}

TEST(SimPush, JsonlGetsEveryDecodedDocumentAsOneCompactLine) {
    testsupport::TempDir dir;
    nodeward::SimOptions options = Loopback();
    options.jsonlPath = dir.path() + "/docs.jsonl";
    options.failFirst = 1;
    Sim sim(options);
    ASSERT_TRUE(sim.start(nullptr));
    const std::string pretty = "{\n  \"Receiver\": \"SendAlarm\",\n  \"payload\": {\"alarmList\": []}\n}";
    Post(PushUrl(sim), Encode(pretty));                           // failed on purpose, still logged
    Post(PushUrl(sim), Encode(LegacyDocument(LegacyAlarm("7", 0))));
    Post(PushUrl(sim), "%%%%");                                    // never decoded: not logged
    sim.stop();

    std::ifstream in(options.jsonlPath);
    std::vector<std::string> lines;
    for (std::string line; lines.size() < 10 && std::getline(in, line);) {
        lines.push_back(line);
    }
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "{\"Receiver\":\"SendAlarm\",\"payload\":{\"alarmList\":[]}}");
    EXPECT_EQ(lines[1], LegacyDocument(LegacyAlarm("7", 0)));
}

}  // namespace
