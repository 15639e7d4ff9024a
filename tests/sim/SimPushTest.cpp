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
    EXPECT_EQ(requests[0].header("content-length"), std::to_string(body.size()));  // any case
    EXPECT_EQ(requests[0].header("X-None"), "");
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
