// Shared pieces of the library's end-to-end tests: an agent on loopback that
// the process's REST client reaches, and shortcuts for building C alarms.
#ifndef SDK_TEST_SUPPORT_H
#define SDK_TEST_SUPPORT_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "AlarmSdk.h"
#include "NodewardSim.h"
#include "TestEnv.h"

namespace sdktest {

// Starts an agent on a free loopback port and points NODEWARD_ENDPOINT at it.
inline std::unique_ptr<nodeward::Sim> StartAgent(nodeward::SimOptions options = nodeward::SimOptions()) {
    if (options.endpoint == nodeward::SimOptions().endpoint) {
        options.endpoint = "127.0.0.1:0";
    }
    auto sim = std::make_unique<nodeward::Sim>(options);
    std::string error;
    if (!sim->start(&error)) {
        ADD_FAILURE() << "agent did not start: " << error;
        return nullptr;
    }
    setenv("NODEWARD_ENDPOINT", sim->endpoint().c_str(), 1);
    return sim;
}

// Sends one C alarm with the given parameters through send (ZEBSendAlarm or a
// co-process variant) and frees it. Returns the send result.
template <typename SendFn>
int SendCAlarm(SendFn send, const char* alarmId, int type,
               const std::vector<std::pair<std::string, std::string>>& params) {
    _ZEBAlarm* alarm = ZEBAllocAlarm(alarmId, type);
    if (alarm == nullptr) {
        return -2;
    }
    for (const auto& p : params) {
        if (ZEBAppendAlarmParam(alarm, p.first.c_str(), p.second.c_str()) != 0) {
            ZEBFreeAlarm(alarm);
            return -2;
        }
    }
    int result = send(alarm);
    ZEBFreeAlarm(alarm);
    return result;
}

inline int SendSingleton(const char* alarmId, const std::string& seq) {
    return SendCAlarm([](_ZEBAlarm* a) { return ZEBSendAlarm(a); }, alarmId, ZEB_ALARM_GENERATE, {{"seq", seq}});
}

// The value of parameter name in alarm, or "" when absent.
inline std::string Param(const nodeward::ReceivedAlarm& alarm, const std::string& name) {
    for (const auto& p : alarm.parameters) {
        if (p.first == name) {
            return p.second;
        }
    }
    return "";
}

// Identity for the process-wide manager.
struct SingletonEnv {
    testsupport::ScopedEnv appId{"APPID", "app-7"};
    testsupport::ScopedEnv appName{"APPNAME", "orders-app"};
};

}  // namespace sdktest

#endif
