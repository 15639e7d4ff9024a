// Reset-clear announcements and co-process managers, seen from the agent.
#include <map>

#include "SdkTestSupport.h"

using nodeward::ReceivedAlarm;

namespace {

class ResetClear : public sdktest::AgentTest {
protected:
    void SetUp() override {
        ASSERT_TRUE(StartAgent());
        ASSERT_EQ(0, ZEBInitAlarmSDK());
    }
    testsupport::ScopedEnv sdkIp_{"TRANSPORT_SDK_IP", "127.0.0.1"}, sdkPort_{"TRANSPORT_SDK_PORT", "8123"};
};

TEST_F(ResetClear, OneAnnouncementPerManagerAndEveryLaterAlarmCarriesTheMarker) {
    ASSERT_EQ(0, ZEBRegisterInfo("orders", "orders-label"));
    EXPECT_TRUE(log_.contains("AlarmManagerEx::processRsetAction", 2));
    // Later calls store the new name and label but announce nothing.
    EXPECT_EQ(0, ZEBRegisterInfo("orders2", "label2"));
    EXPECT_EQ(0, ZEBRegisterRsetClear(AlarmManagerEx::getInstance()));
    EXPECT_EQ(2u, log_.count("AlarmManagerEx::RegisterRsetClear Repeat process", 5));
    ASSERT_EQ(0, sdktest::SendSingleton("300012", "1"));
    ASSERT_TRUE(agent_->waitForAcceptedAlarms(2, 10000));
    const auto alarms = agent_->acceptedAlarms();
    ASSERT_EQ(2u, alarms.size());
    const ReceivedAlarm& announcement = alarms[0];
    EXPECT_EQ("0 orders 127.0.0.1 8123 app-7", testsupport::Words(announcement.alarmId, announcement.serviceName,
                                                                  announcement.serviceIp, announcement.servicePort,
                                                                  announcement.appId));
    EXPECT_NE(std::string::npos, announcement.json.find("\"serviceLabel\":\"orders-label\""));
    EXPECT_EQ("1 orders2", testsupport::Words(alarms[1].rsetClear, alarms[1].serviceName));
    EXPECT_NE(std::string::npos, alarms[1].json.find("\"serviceLabel\":\"label2\""));
}

TEST_F(ResetClear, RegisteringBeforeANameIsKnownSpendsTheAnnouncement) {
    EXPECT_EQ(0, ZEBRegisterRsetClear(AlarmManagerEx::getInstance()));
    EXPECT_EQ(0, ZEBRegisterInfo("orders", "label"));
    EXPECT_TRUE(log_.contains("AlarmManagerEx::RegisterRsetClear Repeat process", 5));
    ASSERT_EQ(0, sdktest::SendSingleton("1", "x"));
    const ReceivedAlarm alarm = OnlyAlarm();
    EXPECT_EQ("1 1", testsupport::Words(alarm.alarmId, alarm.rsetClear));
}

TEST_F(ResetClear, ServiceInfoWithMarkerOneRegistersAndIdentifiesLaterAlarms) {
    EXPECT_EQ(0, ZEBRegisterRsetClearInfo("orders", "svc-1", "inst-1", 1));
    ASSERT_EQ(0, sdktest::SendSingleton("2", "x"));
    ASSERT_TRUE(agent_->waitForAcceptedAlarms(2, 10000));
    const auto alarms = agent_->acceptedAlarms();
    EXPECT_EQ("0", alarms[0].alarmId);
    EXPECT_NE(std::string::npos, alarms[1].json.find("\"serviceId\":\"svc-1\",\"serviceInstId\":\"inst-1\""))
        << alarms[1].json;
}

// Run without and with a transport address: the address the service is served on replaces the one each co-process gave.
class CoProcess : public sdktest::AgentTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(CoProcess, HandlesKeepTheirAlarmsApart) {
    testsupport::ScopedEnv sdkIp("TRANSPORT_SDK_IP", GetParam());
    ASSERT_TRUE(StartAgent());
    AlarmManagerEx* first = ZEBInitAlarmSDK4CoProcess("app-a", "svc-a", "10.1.0.1", "10.1.0.5");
    AlarmManagerEx* second = ZEBInitAlarmSDK4CoProcess("app-b", "svc-b", "10.2.0.1", "10.2.0.5");
    ASSERT_TRUE(first != nullptr && second != nullptr && first != second);
    EXPECT_EQ(0, ZEBRegisterInfo4CoProcess(first, "label-a"));
    constexpr int kEach = 60;
    for (int i = 0; i < kEach; ++i) {
        ASSERT_EQ(0, sdktest::SendVia(first, "77", std::to_string(i)));
        ASSERT_EQ(0, sdktest::SendVia(second, "77", std::to_string(i)));
    }
    ASSERT_TRUE(agent_->waitForAcceptedAlarms(2 * kEach + 1, 20000));  // and app-a's announcement
    // Per co-process: its alarms in order, each "service ip rsetClear seq".
    std::map<std::string, std::string> seen, expected;
    const std::string ip = GetParam() != nullptr ? GetParam() : "";
    for (int i = 0; i < kEach; ++i) {
        expected["app-a"] += " svc-a " + (ip.empty() ? "10.1.0.5" : ip) + " 1 " + std::to_string(i);
        expected["app-b"] += " svc-b " + (ip.empty() ? "10.2.0.5" : ip) + " 0 " + std::to_string(i);
    }
    for (const auto& request : agent_->requests()) {
        for (const ReceivedAlarm& a : request.alarms) {
            ASSERT_EQ(request.alarms.front().appId, a.appId) << "one batch mixes two co-processes";
            if (a.alarmId != "0") {
                seen[a.appId] += " " + testsupport::Words(a.serviceName, a.serviceIp, a.rsetClear, sdktest::Param(a, "seq"));
            }
        }
    }
    EXPECT_EQ(expected, seen);
}

INSTANTIATE_TEST_SUITE_P(TransportAddress, CoProcess, ::testing::Values(nullptr, "127.0.0.1"));

}  // namespace
