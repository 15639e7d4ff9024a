// Shared pieces of the library's tests: the end-to-end fixture (an agent on loopback), C send shortcuts, a full record.
#ifndef SDK_TEST_SUPPORT_H
#define SDK_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>

#include "Agent.h"
#include "AlarmEx.h"
#include "AlarmManagerEx.h"
#include "AlarmSdk.h"
#include "LogCapture.h"
#include "PauseRecorder.h"
#include "SimDocument.h"

namespace sdktest {

// Sends one C alarm with parameter "seq" through send (ZEBSendAlarm by default), frees it; the send result.
inline int SendSeq(const char* alarmId, const std::string& seq,
                   const std::function<int(_ZEBAlarm*)>& send = ZEBSendAlarm) {
    _ZEBAlarm* alarm = ZEBAllocAlarm(alarmId, ZEB_ALARM_GENERATE);
    ZEBAppendAlarmParam(alarm, "seq", seq.c_str());
    const int result = send(alarm);
    ZEBFreeAlarm(alarm);
    return result;
}
inline int SendVia(AlarmManagerEx* manager, const char* alarmId, const std::string& seq) {
    return SendSeq(alarmId, seq, [manager](_ZEBAlarm* a) { return ZEBSendAlarm4CoProcess(manager, a); });
}

// The value of parameter name in alarm, or "<absent>".
inline std::string Param(const nodeward::ReceivedAlarm& alarm, const std::string& name) {
    const auto& all = alarm.parameters;
    const auto found = std::find_if(all.begin(), all.end(), [&name](const auto& p) { return p.first == name; });
    return found != all.end() ? found->second : "<absent>";
}

// The node's address variables for one case, each set or (nullptr) unset.
struct NodeEnv {
    NodeEnv(const char* nodeId, const char* hostingServerIp, const char* serverIp, const char* podName)
        : node{"NODE_ID", nodeId},
          hosting{"HOSTING_SERVER_IP", hostingServerIp},
          server{"SERVER_IP", serverIp},
          pod{"PODNAME", podName} {}
    testsupport::ScopedEnv node, hosting, server, pod;
};

// Pauses recorded, the run log captured, the singleton's identity set; the agent starts when a case asks for it.
class AgentTest : public ::testing::Test {
protected:
    bool StartAgent(const testsupport::SimSetup& setup = nullptr) {
        agent_ = testsupport::StartedAgent(setup);
        setenv("NODEWARD_ENDPOINT", agent_->endpoint().c_str(), 1);
        return !HasFailure();
    }
    // Runs init with the send thread it starts parked in its first idle pause,
    // then queue, then lets the thread go: everything queued leaves together.
    template <typename Init, typename Queue> void WhileParked(Init init, Queue queue) {
        pauses_.hold();
        ASSERT_TRUE(init());
        ASSERT_TRUE(Idle());
        queue();
        pauses_.release();
    }
    // True once the library's threads have begun waits idle waits in all.
    bool Idle(std::size_t waits = 1) {
        return testsupport::WaitUntil([this, waits] { return pauses_.count(1) >= waits; }, 5000);
    }
    // The accepted alarms once at least count arrived.
    std::vector<nodeward::ReceivedAlarm> Arrived(std::size_t count) {
        EXPECT_TRUE(agent_->waitForAcceptedAlarms(count, 20000));
        return agent_->acceptedAlarms();
    }
    nodeward::ReceivedAlarm OnlyAlarm() {
        const auto alarms = Arrived(1);
        EXPECT_EQ(1u, alarms.size());
        return alarms.empty() ? nodeward::ReceivedAlarm() : alarms[0];
    }

    testsupport::PauseRecorder pauses_;
    testsupport::LogCapture log_;
    testsupport::ScopedEnv appId_{"APPID", "app-7"}, appName_{"APPNAME", "orders-app"};
    std::unique_ptr<nodeward::Sim> agent_;
};

// A record with every field set; parameters appended out of name order.
inline std::unique_ptr<AlarmEx> FullAlarm(const char* id = "300012", EU_GEN_CLEAR_TYPE type = ZEB_ALARM_GENERATE) {
    auto alarm = std::make_unique<AlarmEx>(id, type);
    alarm->appendParameter("usage", "95");
    alarm->appendParameter("disk", "sda");
    alarm->setServiceName("orders");
    alarm->setServiceId("svc-1");
    alarm->setServiceInsId("inst-1");
    alarm->setRsetClear(1);
    alarm->setAppId("app-7");
    alarm->setAppName("shop");
    alarm->setNodeIp("10.0.0.1");
    alarm->setAlarmSource("source-a");
    alarm->SetServiceIp("10.0.0.5");
    alarm->setServicePort(8080);
    alarm->ResetAlarmTime(1700000000123L);
    alarm->setServiceLabel("orders-label");
    return alarm;
}

}  // namespace sdktest

#endif
