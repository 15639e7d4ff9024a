// The agent stand-in as services and scripts meet it: its own strict base64, recording, answers and refusals, each
// failure mode, and the program.
#include <gtest/gtest.h>

#include <algorithm>

#include "Agent.h"
#include "ProgramRun.h"
#include "PushDocuments.h"
#include "RestCall.h"
#include "SimDocument.h"

using nodeward::FailMode;
using nodeward::Sim;
using namespace testsupport;

namespace {

// Pushes go through the REST client.
RestAnswer Push(const nodeward::Sim& sim, const std::string& body) {
    return RestCall("http://127.0.0.1:" + std::to_string(sim.port()) + "/om/v1/request", body);
}

std::string Encode(const std::string& text) { return nodeward::EncodeBase64(text); }

std::string Decode(const std::string& text) {
    std::string plain;
    return nodeward::DecodeBase64(text, &plain) ? plain : "<not base64: " + text + ">";
}

const std::string kAlarm = CurrentAlarm("300012", 1, "disk=sda");
const std::string kCurrent = Encode(CurrentDocument(kAlarm));
const std::string kLegacy = Encode(LegacyDocument(LegacyAlarm("1001", 0, "sda")));
const std::string kTwo =
    Encode(CurrentDocument(CurrentAlarm("1", 1, "disk=sda") + "," + CurrentAlarm("2", 2, "disk=sda")));

TEST(SimPush, CountingOnlyKeepsTheNumbersAndNoRecord) {
    const auto sim = StartedAgent([](nodeward::SimOptions& o) {
        o.recordRequests = false;
        o.failFirst = 1;
    });
    EXPECT_EQ(Decode(Push(*sim, kTwo).body), "{\"retCode\":1}");
    EXPECT_EQ(Decode(Push(*sim, kTwo).body), "{\"retCode\":0}");
    EXPECT_EQ(Push(*sim, "not base64").status, 400);
    ASSERT_TRUE(sim->waitForAcceptedAlarms(2, 5000));
    const nodeward::SimCounts counts = sim->counts();
    EXPECT_EQ("3 1 2", Words(counts.requests, counts.acceptedRequests, counts.acceptedAlarms));
    EXPECT_TRUE(sim->requests().empty() && sim->acceptedAlarms().empty());
}

// The fields the stand-in reads are what the library's end-to-end tests check; here what those do not show: exact
// answers, headers found in any case, a legacy alarm dated by its clear time when cleared and without a port.
TEST(SimPush, DocumentsOfBothGenerationsAreRecordedAndAnswered) {
    const auto sim = StartedAgent();
    const RestAnswer answer = Push(*sim, kCurrent);
    EXPECT_EQ("200 eyJyZXRDb2RlIjowfQ==", Words(answer.status, answer.body));  // {"retCode":0}
    const std::string legacy = LegacyDocument(LegacyAlarm("1001", 0, "sda") + "," + LegacyAlarm("1001", 1, "sda"));
    EXPECT_EQ(Decode(Push(*sim, Encode(legacy)).body), "{\"returncode\":\"OK\"}");
    const auto requests = sim->requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(Words(requests[0].header("content-length"), requests[0].header("X-None") + "-"),
              Words(kCurrent.size(), "-"));
    EXPECT_EQ(requests[0].json, CurrentDocument(kAlarm));
    EXPECT_TRUE(requests[0].accepted && requests[1].accepted && requests[1].legacy && !requests[0].legacy);
    ASSERT_EQ(requests[1].alarms.size(), 2u);
    const nodeward::ReceivedAlarm &raised = requests[1].alarms[0], &cleared = requests[1].alarms[1];
    EXPECT_EQ("1700000000000 1700000100000 -1 2",
              Words(raised.occurTime, cleared.occurTime, raised.servicePort, cleared.alarmType));
    EXPECT_EQ(sim->acceptedAlarms().size(), 3u);
}

TEST(SimPush, OtherPathsAndMethodsAndOversizeBodies) {
    const auto sim = StartedAgent([](nodeward::SimOptions& o) { o.maxBodyBytes = 64; });
    const std::string base = "http://127.0.0.1:" + std::to_string(sim->port());
    EXPECT_EQ(RestCall(base + "/om/v1/other", "TWFu").status, 404);
    EXPECT_EQ(RestCall(base + "/om/v1/request", "", REST_REQUEST_GET).status, 405);
    EXPECT_EQ(Push(*sim, kCurrent).status, 413);
    const auto requests = sim->requests();
    ASSERT_EQ(requests.size(), 1u);  // the two misdirected requests are not pushes
    EXPECT_TRUE(!requests[0].accepted && requests[0].body.empty());
}

// Bodies a sender could produce by mistake (no JSON document, or no canonical base64: the stand-in's own strict
// decoder) are refused with their reason; failures answer in the document's own generation, and only a success is
// accepted. The other failure modes (empty, garbled, closed answers) are the library's retry cases.
TEST(SimFault, RefusalsAndFailuresAnswerInTheirGenerationsFormAndOnlySuccessIsAccepted) {
    const auto sim = StartedAgent([](nodeward::SimOptions& o) {
        o.failFirst = 1;
        o.status = 503;  // for success answers only
    });
    const auto bad = [](const std::string& why) { return R"({"retCode":1,"retDesc":")" + why + "\"}"; };
    // clang-format off
    const struct {
        std::string body, answer;  // the answer decoded
        int status;
    } rows[] = {
        {"", bad("body is empty"), 400},
        {Encode("not json at all"), bad("decoded text is not JSON"), 400},
        {Encode(CurrentDocument(kAlarm) + "xx"), bad("decoded text is not JSON"), 400},
        {Encode(R"({"payload":{"alarmList":[]}})"), bad(R"(document has neither \"Receiver\" nor \"service\")"), 400},
        {Encode(R"({"Receiver":"SendAlarm"})"), bad(R"(document has no \"payload\".\"alarmList\" array)"), 400},
        {"Zm9vY", bad("body length 5 is not a multiple of 4"), 400},
        {"Zm 9v", bad("body length 5 is not a multiple of 4"), 400},
        {"Zm9v\r\nZg", bad("byte 0x0d at offset 4 is not base64"), 400},
        {"Zm9-", bad("byte 0x2d at offset 3 is not base64"), 400},
        {"Zg==Zm9v", bad("padding '=' before the end at offset 2"), 400},
        {"Zm=v", bad("padding '=' before the end at offset 2"), 400},
        {"Zh==", bad("nonzero bits under the padding at offset 3"), 400},
        {"Zm9=", bad("nonzero bits under the padding at offset 3"), 400},
        {kCurrent, R"({"retCode":1})", 200},  // refused bodies do not use up failFirst
        {kCurrent, R"({"retCode":0})", 503},
        {kLegacy, R"({"returncode":"Failed"})", 200},  // failNext(1)
        {kLegacy, R"({"returncode":"OK"})", 503},
    };
    // clang-format on
    for (const auto& row : rows) {
        sim->failNext(row.answer == R"({"returncode":"Failed"})" ? 1 : 0, FailMode::RetCode);
        const RestAnswer answer = Push(*sim, row.body);
        EXPECT_EQ(Words(row.status, row.answer), Words(answer.status, Decode(answer.body)));
    }
    const auto requests = sim->requests();
    ASSERT_EQ(requests.size(), std::size(rows));
    for (std::size_t i = 0; i < requests.size(); ++i) {
        EXPECT_EQ(rows[i].status == 503, requests[i].accepted) << "request " << i + 1;
    }
    EXPECT_EQ(Words(requests[0].json + "-", requests[1].json), "- not json at all");  // decoded text kept
    EXPECT_EQ(requests[std::size(rows) - 4].alarms.size(), 1u);  // failed requests still show what was sent
    EXPECT_EQ(sim->acceptedAlarms().size(), 2u);
}

TEST(SimFault, FailRatioIsRepeatableForASeed) {
    std::string patterns[2];  // '1' for each accepted push
    for (std::string& pattern : patterns) {
        const auto sim = StartedAgent([](nodeward::SimOptions& o) {
            o.failRatio = 0.5;
            o.seed = 7;
        });
        for (int i = 0; i < 24; ++i) {
            pattern += Decode(Push(*sim, kCurrent).body) == "{\"retCode\":0}" ? '1' : '0';
        }
    }
    EXPECT_EQ(patterns[0], patterns[1]);
    const auto accepted = std::count(patterns[0].begin(), patterns[0].end(), '1');
    EXPECT_TRUE(accepted > 3 && accepted < 21) << patterns[0];
}

// The program as scripts run it: it stops once enough alarms arrived, with every answer out before it stops.
TEST(SimProgram, ExitsAfterTheRequestedNumberOfAlarms) {
    TempDir dir;
    const std::string path = dir.path() + "/agent.sock";
    ProgramResult result;
    std::thread program([&] {
        result = RunProgram(
            "nodeward-sim",
            {"--listen", "unix:" + path, "--ready-file", dir.path() + "/ready", "--exit-after-alarms", "2", "--quiet"},
            10000);
    });
    EXPECT_TRUE(WaitUntil([&] { return std::filesystem::exists(dir.path() + "/ready"); }, 10000));
    EXPECT_EQ(200,
              RestCall("http://localhost/om/v1/request", kTwo, REST_REQUEST_POST, ("unix:" + path).c_str()).status);
    program.join();
    EXPECT_EQ(0, result.exitCode);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(result.out.find("alarm 1 "), std::string::npos) << "--quiet prints no alarm lines";
    EXPECT_NE(result.out.find("1 requests, 1 accepted, 2 alarms"), std::string::npos) << result.out;
}

}  // namespace
