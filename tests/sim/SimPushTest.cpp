// Push requests as a service sends them: the agent's own strict base64,
// recording, answers and refusals.
#include <gtest/gtest.h>

#include "SimTestHelpers.h"

using namespace simtest;
using nodeward::Sim;

namespace {

const std::string kAlarm = CurrentAlarm("300012", 1);

TEST(SimBase64, EncodesByTheStandardAndDecodesOnlyCanonicalText) {
    const std::pair<std::string, std::string> vectors[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {std::string("\xff\xfe\x00", 3), "//4A"}};
    for (const auto& [plain, text] : vectors) {
        EXPECT_EQ(text, Encode(plain));
        std::string decoded = "<unset>";
        EXPECT_EQ(!text.empty(), nodeward::DecodeBase64(text, &decoded)) << text;
        EXPECT_EQ(text.empty() ? "<unset>" : plain, decoded);
    }
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
        std::string plain;
        std::string why;
        EXPECT_FALSE(nodeward::DecodeBase64(text, &plain, &why)) << text;
        EXPECT_EQ(reason, why);
    }
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

// What the stand-in reads from a document is what the library's tests check.
std::string Fields(const nodeward::ReceivedAlarm& a) {
    std::string text = a.alarmId + " type " + std::to_string(a.alarmType) + " " + a.appId + " " + a.serviceName +
                       " " + a.serviceIp + ":" + std::to_string(a.servicePort) + " at " + std::to_string(a.occurTime) +
                       " rsetClear " + std::to_string(a.rsetClear) + " " + a.location + " " + a.appendInfo;
    for (const auto& [name, value] : a.parameters) {
        text += " " + name + "=" + value;
    }
    return text;
}

TEST(SimPush, DocumentsOfBothGenerationsAreRecordedAndAnswered) {
    Sim sim(Loopback());
    ASSERT_TRUE(sim.start(nullptr));
    const std::string body = Encode(CurrentDocument(kAlarm));
    const HttpResult answer = Post(PushUrl(sim), body);
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, "eyJyZXRDb2RlIjowfQ==");  // {"retCode":0}
    const HttpResult legacy =
        Post(PushUrl(sim), Encode(LegacyDocument(LegacyAlarm("1001", 0) + "," + LegacyAlarm("1001", 1))));
    EXPECT_EQ(legacy.status, 200);
    EXPECT_EQ(Decode(legacy.body), "{\"returncode\":\"OK\"}");

    const auto requests = sim.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].body, body);
    EXPECT_EQ(requests[0].header("content-length"), std::to_string(body.size()));  // any case
    EXPECT_EQ(requests[0].header("X-None"), "");
    EXPECT_EQ(requests[0].json, CurrentDocument(kAlarm));
    EXPECT_TRUE(requests[0].accepted && requests[1].accepted && requests[1].legacy && !requests[0].legacy);
    ASSERT_EQ(requests[0].alarms.size(), 1u);
    ASSERT_EQ(requests[1].alarms.size(), 2u);
    EXPECT_EQ(requests[0].alarms[0].json, kAlarm);
    EXPECT_EQ(requests[0].alarms[0].keys.size(), 14u);
    EXPECT_EQ(Fields(requests[0].alarms[0]), "300012 type 1 app-7 orders 127.0.0.1:8080 at 1795784527123 rsetClear 1"
                                             "   disk=sda usage=95");
    // A legacy alarm is dated by its clear time when cleared.
    EXPECT_EQ(Fields(requests[1].alarms[0]), "1001 type 1 app-7 orders :-1 at 1795784527123 rsetClear 1 "
                                             "EN:Disk=sda##ZH:Disk=sda## EN:Usage=95##ZH:Usage=95##");
    EXPECT_EQ(Fields(requests[1].alarms[1]).substr(0, 45), "1001 type 2 app-7 orders :-1 at 1795784528000");
    EXPECT_EQ(sim.acceptedAlarms().size(), 3u);
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
        {"bits under the pad", "TR=="},
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
    EXPECT_EQ(requests[8].json, "not json at all");  // decoded text kept for diagnosis
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

}  // namespace
