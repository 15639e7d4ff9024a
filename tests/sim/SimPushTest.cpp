// The agent stand-in as services and scripts meet it: its own strict base64,
// recording, answers and refusals, each failure mode, and the program.
#include <gtest/gtest.h>

#include <algorithm>

#include "Agent.h"
#include "ProgramRun.h"
#include "RestCall.h"
#include "SimDocument.h"

using nodeward::FailMode;
using nodeward::Sim;

namespace {

// Pushes go through the REST client; the documents are written by hand, as the library writes them.
testsupport::RestAnswer Push(const nodeward::Sim& sim, const std::string& body) {
    return testsupport::RestCall("http://127.0.0.1:" + std::to_string(sim.port()) + "/om/v1/request", body);
}

std::string Encode(const std::string& text) { return nodeward::EncodeBase64(text); }

std::string Decode(const std::string& text) {
    std::string plain;
    return nodeward::DecodeBase64(text, &plain) ? plain : "<not base64: " + text + ">";
}

// Alarm objects and documents as the library writes them, cut down to what these cases read.
std::string CurrentAlarm(const std::string& id, int type) {
    return R"({"alarmId":")" + id +
           R"(","appId":"app-7","occurTime":1795784527123,"serviceName":"orders","alarmType":)" + std::to_string(type) +
           R"(,"parameters":[{"paramName":"disk","paramValue":"sda"}]})";
}
std::string CurrentDocument(const std::string& alarms) {
    return R"({"business":{"name":"PushAlarm"},"payload":{"alarmList":[)" + alarms + R"(]},"Receiver":"SendAlarm"})";
}
std::string LegacyAlarm(const std::string& id, int genClear) {
    return R"({"alarmId":")" + id + R"(","appId":"app-7","genClearAlarmType":)" + std::to_string(genClear) +
           R"(,"alarmGenTime":1795784527123,"alarmClearTime":1795784528000,"location":"EN:Disk=sda##ZH:Disk=sda##"})";
}
std::string LegacyDocument(const std::string& alarms) {
    return R"({"service":{"name":"szServiceName","appid":"app-7","ipaddress":"10.0.0.1","port":7888,"time_stamp":0},)"
           R"("business":{"name":"PushAlarm"},"payload":{"alarmList":[)" +
           alarms + "]}}";
}

const std::string kAlarm = CurrentAlarm("300012", 1);
const std::string kCurrent = Encode(CurrentDocument(kAlarm));
const std::string kLegacy = Encode(LegacyDocument(LegacyAlarm("1001", 0)));

// The stand-in's encoder, and its decoder on canonical text, meet the library's codec in every end-to-end case and
// in the base64 cases; what only it does is refusing everything else.
TEST(SimBase64, DecodesOnlyCanonicalText) {
    const std::pair<std::string, std::string> refused[] = {
        {"", "body is empty"},
        {"Zm9vY", "body length 5 is not a multiple of 4"},
        {"Zm 9v", "body length 5 is not a multiple of 4"},
        {"Zm9v\r\nZg", "byte 0x0d at offset 4 is not base64"},
        {"Zm9-", "byte 0x2d at offset 3 is not base64"},
        {"Zg==Zm9v", "padding '=' before the end at offset 2"},
        {"Zm=v", "padding '=' before the end at offset 2"},
        {"Zh==", "nonzero bits under the padding at offset 3"},
        {"Zm9=", "nonzero bits under the padding at offset 3"},
    };
    for (const auto& [text, reason] : refused) {
        std::string plain, why;
        EXPECT_FALSE(nodeward::DecodeBase64(text, &plain, &why)) << text;
        EXPECT_EQ(reason, why);
    }
}

TEST(SimPush, CountingOnlyKeepsTheNumbersAndNoRecord) {
    const auto sim = testsupport::StartedAgent([](nodeward::SimOptions& o) {
        o.recordRequests = false;
        o.failFirst = 1;
    });
    const std::string body = Encode(CurrentDocument(CurrentAlarm("1", 1) + "," + CurrentAlarm("2", 2)));
    EXPECT_EQ(Decode(Push(*sim, body).body), "{\"retCode\":1}");
    EXPECT_EQ(Decode(Push(*sim, body).body), "{\"retCode\":0}");
    EXPECT_EQ(Push(*sim, "not base64").status, 400);
    ASSERT_TRUE(sim->waitForAcceptedAlarms(2, 5000));
    const nodeward::SimCounts counts = sim->counts();
    EXPECT_EQ("3 1 2", testsupport::Words(counts.requests, counts.acceptedRequests, counts.acceptedAlarms));
    EXPECT_TRUE(sim->requests().empty() && sim->acceptedAlarms().empty());
}

// The fields the stand-in reads are what the library's end-to-end tests check; here what those do not show: exact
// answers, headers found in any case, a legacy alarm dated by its clear time when cleared and without a port.
TEST(SimPush, DocumentsOfBothGenerationsAreRecordedAndAnswered) {
    const auto sim = testsupport::StartedAgent();
    const testsupport::RestAnswer answer = Push(*sim, kCurrent);
    EXPECT_EQ("200 eyJyZXRDb2RlIjowfQ==", testsupport::Words(answer.status, answer.body));  // {"retCode":0}
    const std::string legacy = Encode(LegacyDocument(LegacyAlarm("1001", 0) + "," + LegacyAlarm("1001", 1)));
    EXPECT_EQ(Decode(Push(*sim, legacy).body), "{\"returncode\":\"OK\"}");
    const auto requests = sim->requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].header("content-length"), std::to_string(kCurrent.size()));
    EXPECT_EQ(requests[0].header("X-None"), "");
    EXPECT_EQ(requests[0].json, CurrentDocument(kAlarm));
    EXPECT_TRUE(requests[0].accepted && requests[1].accepted && requests[1].legacy && !requests[0].legacy);
    ASSERT_EQ(requests[1].alarms.size(), 2u);
    const nodeward::ReceivedAlarm &raised = requests[1].alarms[0], &cleared = requests[1].alarms[1];
    EXPECT_EQ("1795784527123 1795784528000 -1 2",
              testsupport::Words(raised.occurTime, cleared.occurTime, raised.servicePort, cleared.alarmType));
    EXPECT_EQ(sim->acceptedAlarms().size(), 3u);
}

// Bodies a sender could produce by mistake, refused with a readable reason (those
// that are no canonical base64: SimBase64 above, and SimFault's first row).
TEST(SimPush, MalformedBodiesAreRefusedWithAReason) {
    const auto sim = testsupport::StartedAgent();
    const std::string bodies[] = {"", Encode("not json at all"), Encode(CurrentDocument(kAlarm) + "xx"),
                                  Encode("{\"payload\":{\"alarmList\":[]}}"), Encode("{\"Receiver\":\"SendAlarm\"}")};
    for (const std::string& body : bodies) {
        SCOPED_TRACE(body.substr(0, 20));
        const testsupport::RestAnswer answer = Push(*sim, body);
        EXPECT_EQ(answer.status, 400);
        const std::string decoded = Decode(answer.body);
        EXPECT_EQ(decoded.rfind("{\"retCode\":1,\"retDesc\":\"", 0), 0u) << decoded;
        EXPECT_GT(decoded.size(), std::string("{\"retCode\":1,\"retDesc\":\"\"}").size()) << decoded;
    }
    const auto requests = sim->requests();
    ASSERT_EQ(requests.size(), std::size(bodies));
    for (const auto& request : requests) {
        EXPECT_FALSE(request.accepted);
    }
    EXPECT_TRUE(sim->acceptedAlarms().empty());
    EXPECT_EQ(requests[1].json, "not json at all");  // decoded text kept for diagnosis
    EXPECT_EQ(requests[0].json, "");
}

TEST(SimPush, OtherPathsAndMethodsAndOversizeBodies) {
    const auto sim = testsupport::StartedAgent([](nodeward::SimOptions& o) { o.maxBodyBytes = 64; });
    const std::string base = "http://127.0.0.1:" + std::to_string(sim->port());
    EXPECT_EQ(testsupport::RestCall(base + "/om/v1/other", "TWFu").status, 404);
    EXPECT_EQ(testsupport::RestCall(base + "/om/v1/request", "", REST_REQUEST_GET).status, 405);
    EXPECT_EQ(Push(*sim, kCurrent).status, 413);
    const auto requests = sim->requests();
    ASSERT_EQ(requests.size(), 1u);  // the two misdirected requests are not pushes
    EXPECT_FALSE(requests[0].accepted);
    EXPECT_TRUE(requests[0].body.empty());
}

// Failures answer in the document's own generation, only a success is accepted; the other failure modes (empty,
// garbled, closed answers) are the library's retry cases, one per mode.
TEST(SimFault, FailuresAnswerInTheirGenerationsFormAndOnlySuccessIsAccepted) {
    const auto sim = testsupport::StartedAgent([](nodeward::SimOptions& o) {
        o.failFirst = 1;
        o.status = 503;  // for success answers only
    });
    const struct {
        std::string body, answer;  // the answer decoded
        int status;
    } rows[] = {
        {"bad!", "{\"retCode\":1,\"retDesc\":\"byte 0x21 at offset 3 is not base64\"}", 400},
        {kCurrent, "{\"retCode\":1}", 200},  // refused bodies do not use up failFirst
        {kCurrent, "{\"retCode\":0}", 503},
        {kLegacy, "{\"returncode\":\"Failed\"}", 200},  // failNext(1)
        {kLegacy, "{\"returncode\":\"OK\"}", 503},
    };
    for (const auto& row : rows) {
        sim->failNext(row.answer == "{\"returncode\":\"Failed\"}" ? 1 : 0, FailMode::RetCode);
        const testsupport::RestAnswer answer = Push(*sim, row.body);
        EXPECT_EQ(testsupport::Words(row.status, row.answer), testsupport::Words(answer.status, Decode(answer.body)));
    }
    const auto requests = sim->requests();
    ASSERT_EQ(requests.size(), std::size(rows));
    for (std::size_t i = 0; i < requests.size(); ++i) {
        EXPECT_EQ(rows[i].status == 503, requests[i].accepted) << "request " << i + 1;
    }
    EXPECT_EQ(requests[1].alarms.size(), 1u);  // failed requests still show what was sent
    EXPECT_EQ(sim->acceptedAlarms().size(), 2u);
}

TEST(SimFault, FailRatioIsRepeatableForASeed) {
    std::string patterns[2];  // '1' for each accepted push
    for (std::string& pattern : patterns) {
        const auto sim = testsupport::StartedAgent([](nodeward::SimOptions& o) {
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
    testsupport::TempDir dir;
    const std::string path = dir.path() + "/agent.sock";
    testsupport::ProgramResult result;
    std::thread program([&] {
        result = testsupport::RunProgram(
            "nodeward-sim",
            {"--listen", "unix:" + path, "--ready-file", dir.path() + "/ready", "--exit-after-alarms", "2", "--quiet"},
            10000);
    });
    EXPECT_TRUE(testsupport::WaitUntil([&] { return std::filesystem::exists(dir.path() + "/ready"); }, 10000));
    const std::string body = Encode(CurrentDocument(CurrentAlarm("1", 1) + "," + CurrentAlarm("2", 2)));
    EXPECT_EQ(200,
              testsupport::RestCall("http://localhost/om/v1/request", body, REST_REQUEST_POST, ("unix:" + path).c_str())
                  .status);
    program.join();
    EXPECT_EQ(0, result.exitCode);
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(result.out.find("alarm 1 "), std::string::npos) << "--quiet prints no alarm lines";
    EXPECT_NE(result.out.find("1 requests, 1 accepted, 2 alarms"), std::string::npos) << result.out;
}

}  // namespace
