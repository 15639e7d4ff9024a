// What the SDK's protocol means at the bridge: reset-clear announcements of
// both generations, and alarm checks sent to a real service using the SDK.
#include <cstring>

#include "AlarmSdk.h"
#include "BridgeFixture.h"

namespace bridgetest {
namespace {

// Each firing alert as "alarm_id:the parameter or location", sorted.
std::vector<std::string> Firing(const Alertmanagers& peers) {
    std::vector<std::string> out;
    for (const Alert& alert : peers.alerts(0)) {
        const auto& l = alert.labels;
        out.push_back(l.at("alarm_id") + ":" +
                      (l.count("disk") != 0 ? l.at("disk") : l.count("location") != 0 ? l.at("location") : "-"));
    }
    std::sort(out.begin(), out.end());
    return out;
}

TEST_F(BridgeTest, ResetClearResolvesTheInstancesEarlierAlarmsOfTheScheme) {
    Alertmanagers peers(dir, 1);
    BridgeRun bridge(dir, {peers.url(0)});
    bridge.start();
    constexpr long long t0 = 1700000000000LL;
    const std::string announce =
        "{\"alarmId\":\"0\",\"appId\":\"app-7\",\"occurTime\":" + std::to_string(t0 + 1000) +
        ",\"serviceName\":\"orders\",\"serviceIp\":\"127.0.0.1\",\"servicePort\":8080,\"serviceLabel\":\"l\"}";
    const std::string legacyAnnounce =
        "{\"alarmName\":\"\",\"appId\":\"app-7\",\"alarmId\":\"0\",\"serviceName\":\"storage\",\"serviceIp\":\"\","
        "\"restClearAlarmList\":[{\"alarmId\":\"300001\"}],\"occurTime\":" + std::to_string(t0 + 1000) + "}";
    struct Step {
        const char* what;
        std::string document;
        std::vector<std::string> firing;
    };
    const Step steps[] = {
        {"raised before the announcement",
         CurrentDocument(CurrentAlarm("300012", 1, "disk=sda", t0, "orders", 1) + "," +
                         CurrentAlarm("300013", 1, "disk=sdb", t0, "orders", 0) + "," +
                         CurrentAlarm("300014", 1, "disk=sdc", t0, "billing", 1) + "," +
                         CurrentAlarm("300015", 1, "disk=sdd", t0 + 2000, "orders", 1)),
         {"300012:sda", "300013:sdb", "300014:sdc", "300015:sdd"}},
        // Not 300013 (not in the scheme), 300014 (another service), 300015 (raised later).
        {"current announcement", CurrentDocument(announce), {"300013:sdb", "300014:sdc", "300015:sdd"}},
        {"legacy raises",
         LegacyDocument(LegacyAlarm("300001", 0, "sda", 1) + "," + LegacyAlarm("300003", 0, "sdb", 1)),
         {"300001:Disk=sda", "300003:Disk=sdb", "300013:sdb", "300014:sdc", "300015:sdd"}},
        {"legacy announcement naming 300001", LegacyDocument(legacyAnnounce),
         {"300003:Disk=sdb", "300013:sdb", "300014:sdc", "300015:sdd"}},
    };
    for (const Step& step : steps) {
        EXPECT_EQ(bridge.push(step.document).first, 200) << step.what;
        EXPECT_TRUE(WaitUntil([&] { return Firing(peers) == step.firing; }, 10000))
            << step.what << ": " << testing::PrintToString(Firing(peers));
    }
}

std::atomic<int> g_checks{0};

// The service's answer to a check: every alarm it is asked about is gone.
void ClearChecked(char* alarms) {
    std::unique_ptr<cJSON, void (*)(cJSON*)> list(cJSON_Parse(alarms), cJSON_Delete);
    for (const cJSON* item = list ? list->child : nullptr; item != nullptr; item = item->next) {
        const cJSON* id = cJSON_GetObjectItem(item, "alarmId");
        _ZEBAlarm* alarm = ZEBAllocAlarm(cJSON_IsString(id) ? id->valuestring : "?", ZEB_ALARM_CLEAR);
        for (const cJSON* p = cJSON_GetObjectItem(item, "parameters")->child; p != nullptr; p = p->next) {
            ZEBAppendAlarmParam(alarm, p->string, p->valuestring);
        }
        ZEBSendAlarm(alarm);
        ZEBFreeAlarm(alarm);
    }
    ++g_checks;
}

// Another answer: the alarms asked about are still there, so nothing is sent.
void KeepChecked(char*) { ++g_checks; }

const std::vector<std::string> kBoth{"300012:sda", "300012:sdb"};

// A service using the SDK with the bridge as its agent, answering checks with
// onCheck, with alarms 300012 on sda and sdb firing at Alertmanager.
class CheckedService {
public:
    CheckedService(const BridgeRun& bridge, const Alertmanagers& peers, void (*onCheck)(char*))
        : agent_("NODEWARD_ENDPOINT", bridge.url().substr(7).c_str()) {
        EXPECT_EQ(0, ZEBInitAlarmSDK());
        EXPECT_EQ(0, ZEBRegisterInfo("orders", "orders-label"));
        EXPECT_EQ(0, ZEBRegisterAlarmCheckCallBackFun("orders", onCheck));
        for (const char* disk : {"sda", "sdb"}) {
            _ZEBAlarm* alarm = ZEBAllocAlarm("300012", ZEB_ALARM_GENERATE);
            ZEBAppendAlarmParam(alarm, "disk", disk);
            ZEBSendAlarm(alarm);
            ZEBFreeAlarm(alarm);
        }
        EXPECT_TRUE(WaitUntil([&] { return Firing(peers) == kBoth; }, 15000)) << testing::PrintToString(Firing(peers));
    }

private:
    testsupport::LoopbackTransport transport_;
    testsupport::ScopedEnv app_{"APPID", "app-7"}, name_{"APPNAME", "orders-app"}, agent_;
};

TEST_F(BridgeTest, RestartedWithAlarmsItAsksTheServiceToCheckThemAndTheClearsResolve) {
    Alertmanagers peers(dir, 1);
    BridgeRun bridge(dir, {peers.url(0)});
    bridge.start();
    CheckedService service(bridge, peers, &ClearChecked);
    EXPECT_EQ(g_checks, 0);
    bridge.stop();
    bridge.start();
    EXPECT_TRUE(WaitUntil([&] { return Firing(peers).empty(); }, 15000)) << testing::PrintToString(Firing(peers));
    EXPECT_EQ(g_checks, 1);
    EXPECT_EQ(bridge.metric("alarm_bridge_checks_sent_total"), "1");
}

// Without a restart: the interval's checks keep coming while the alarms stay.
TEST_F(BridgeTest, CheckIntervalAsksTheServiceAgainAndAgain) {
    Alertmanagers peers(dir, 1);
    BridgeRun bridge(dir, {peers.url(0)}, 60, {"--check-interval", "1"});
    bridge.start();
    CheckedService service(bridge, peers, &KeepChecked);
    EXPECT_TRUE(WaitUntil([&] { return g_checks >= 2; }, 15000)) << g_checks;
    // A check alone resolves nothing.
    EXPECT_EQ(Firing(peers), kBoth);
}

}  // namespace
}  // namespace bridgetest
