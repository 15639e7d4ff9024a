// What the SDK's protocol means at the bridge: reset-clear announcements of both generations, and alarm checks sent
// to a real service using the SDK.
#include "AlarmSdk.h"
#include "BridgeFixture.h"

namespace bridgetest {
namespace {

TEST_F(BridgeTest, ResetClearResolvesTheInstancesEarlierAlarmsOfTheScheme) {
    Start();
    constexpr long long t0 = 1700000000000LL;
    const std::string announce =
        R"({"alarmId":"0","appId":"app-7","occurTime":1700000001000,"serviceName":"orders","serviceIp":"127.0.0.1",)"
        R"("servicePort":8080,"serviceLabel":"l"})";
    const std::string legacyAnnounce =
        R"({"alarmName":"","appId":"app-7","alarmId":"0","serviceName":"storage","serviceIp":"",)"
        R"("restClearAlarmList":[{"alarmId":"300001"}],"occurTime":1700000001000})";
    // clang-format off
    const struct {
        std::string document;
        std::vector<std::string> firing;
    } steps[] = {
        {CurrentDocument(CurrentAlarm("300012", 1, "disk=sda", t0, "orders", 1) + "," +
                         CurrentAlarm("300013", 1, "disk=sdb", t0, "orders", 0) + "," +
                         CurrentAlarm("300014", 1, "disk=sdc", t0, "billing", 1) + "," +
                         CurrentAlarm("300015", 1, "disk=sdd", t0 + 2000, "orders", 1)),
         {"300012:sda", "300013:sdb", "300014:sdc", "300015:sdd"}},
        // Not 300013 (not in the scheme), 300014 (another service), 300015 (raised later).
        {CurrentDocument(announce), {"300013:sdb", "300014:sdc", "300015:sdd"}},
        {LegacyDocument(LegacyAlarm("300001", 0, "sda", 1) + "," + LegacyAlarm("300003", 0, "sdb", 1)),
         {"300001:Disk=sda", "300003:Disk=sdb", "300013:sdb", "300014:sdc", "300015:sdd"}},
        {LegacyDocument(legacyAnnounce), {"300003:Disk=sdb", "300013:sdb", "300014:sdc", "300015:sdd"}},
    };
    // clang-format on
    for (const auto& step : steps) {
        EXPECT_EQ(Push(step.document).first, 200) << step.document;
        EXPECT_TRUE(WaitUntil([&] { return Firing() == step.firing; }, 10000)) << step.document << "\n"
                                                                               << testing::PrintToString(Firing());
    }
}

std::atomic<int> g_checks{0};
bool g_clear = false;

// The service's answer to a check: every alarm it is asked about is gone (g_clear), or all are still there.
void OnCheck(char* alarms) {
    Json list(cJSON_Parse(alarms), cJSON_Delete);
    for (const cJSON* item = g_clear && list ? list->child : nullptr; item != nullptr; item = item->next) {
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

const std::vector<std::string> kBoth{"300012:sda", "300012:sdb"};

// The bridge (with args) and a service using the SDK with it as its agent, answering checks with OnCheck, with
// alarms 300012 on sda and sdb firing at Alertmanager.
class CheckedService : public BridgeTest {
protected:
    void Serve(bool clear, const std::vector<std::string>& args = {}) {
        g_clear = clear;
        Start(1, args);
        EXPECT_EQ(0, ZEBInitAlarmSDK());
        EXPECT_EQ(0, ZEBRegisterInfo("orders", "orders-label"));
        EXPECT_EQ(0, ZEBRegisterAlarmCheckCallBackFun("orders", &OnCheck));
        for (const char* disk : {"sda", "sdb"}) {
            _ZEBAlarm* alarm = ZEBAllocAlarm("300012", ZEB_ALARM_GENERATE);
            ZEBAppendAlarmParam(alarm, "disk", disk);
            ZEBSendAlarm(alarm);
            ZEBFreeAlarm(alarm);
        }
        EXPECT_TRUE(WaitUntil([&] { return Firing() == kBoth; }, 15000)) << testing::PrintToString(Firing());
    }
    LoopbackTransport transport_;
    ScopedEnv app_{"APPID", "app-7"}, name_{"APPNAME", "orders-app"};
    ScopedEnv agent_{"NODEWARD_ENDPOINT", BridgeUrl().substr(7).c_str()};
};

TEST_F(CheckedService, RestartedWithAlarmsItAsksTheServiceToCheckThemAndTheClearsResolve) {
    Serve(true);
    EXPECT_EQ(g_checks, 0);
    StopBridge();
    StartBridge();
    EXPECT_TRUE(WaitUntil([&] { return Firing().empty(); }, 15000)) << testing::PrintToString(Firing());
    EXPECT_EQ(Words(g_checks.load(), Metric("alarm_bridge_checks_sent_total")), "1 1");
}

// Without a restart: the interval's checks keep coming while the alarms stay, as a check alone resolves nothing.
TEST_F(CheckedService, CheckIntervalAsksTheServiceAgainAndAgain) {
    Serve(false, {"--check-interval", "1"});
    EXPECT_TRUE(WaitUntil([&] { return g_checks >= 2; }, 15000)) << g_checks;
    EXPECT_EQ(Firing(), kBoth);
}

}  // namespace
}  // namespace bridgetest
