// Helpers for the agent stand-in's tests: pushes through the REST client and
// small documents written by hand, as the library writes them.
#ifndef SIM_TEST_HELPERS_H
#define SIM_TEST_HELPERS_H

#include <gtest/gtest.h>

#include "NodewardSim.h"
#include "RestCall.h"
#include "SimDocument.h"
#include "TestEnv.h"

namespace simtest {

inline testsupport::RestAnswer Push(const nodeward::Sim& sim, const std::string& body) {
    return testsupport::RestCall("http://127.0.0.1:" + std::to_string(sim.port()) + "/om/v1/request", body);
}

inline std::string Encode(const std::string& text) { return nodeward::EncodeBase64(text); }

inline std::string Decode(const std::string& text) {
    std::string plain;
    return nodeward::DecodeBase64(text, &plain) ? plain : "<not base64: " + text + ">";
}

inline nodeward::SimOptions Loopback() {
    nodeward::SimOptions options;
    options.endpoint = "127.0.0.1:0";
    return options;
}

// A current alarm object as the library writes it.
inline std::string CurrentAlarm(const std::string& id, int type) {
    return R"({"alarmId":")" + id + R"(","appId":"app-7","occurTime":1795784527123,"serviceName":"orders",)"
           R"("serviceIp":"127.0.0.1","servicePort":8080,"serviceLabel":"orders-label","alarmType":)" +
           std::to_string(type) +
           R"(,"serviceId":"svc-1","serviceInstId":"inst-1","rsetClear":1,"nodeIp":"10.0.0.1","callBackInfo":)"
           R"({"serviceName":"orders","registerName":"orders","serviceIp":"127.0.0.1"},"parameters":)"
           R"([{"paramName":"disk","paramValue":"sda"},{"paramName":"usage","paramValue":"95"}]})";
}

inline std::string CurrentDocument(const std::string& alarms) {
    return R"({"business":{"name":"PushAlarm"},"payload":{"alarmList":[)" + alarms + R"(]},"Receiver":"SendAlarm"})";
}

inline std::string LegacyDocument(const std::string& alarms) {
    return R"({"service":{"name":"szServiceName","appid":"app-7","ipaddress":"10.0.0.1","port":7888,)"
           R"("time_stamp":0},"business":{"name":"PushAlarm"},"payload":{"alarmList":[)" + alarms + "]}}";
}

inline std::string LegacyAlarm(const std::string& id, int genClear) {
    return R"({"alarmName":"EN:Disk full##ZH:disk##","appId":"app-7","alarmId":")" + id +
           R"(","appName":"shop","serviceName":"orders","alarmEventType":3,"genClearAlarmType":)" +
           std::to_string(genClear) +
           R"(,"alarmLevel":2,"alarmGenTime":1795784527123,"alarmClearTime":1795784528000,"alarmClearType":2,)"
           R"("isCanAutoClearType":1,"eventType":0,"probableCause":"","nodeID":"10.0.0.1","NodeIp":"10.0.0.1",)"
           R"("serviceID":"svc-1","serviceInstID":"inst-1","rsetClear":1,"location":"EN:Disk=sda##ZH:Disk=sda##",)"
           R"("appendInfo":"EN:Usage=95##ZH:Usage=95##"})";
}

}  // namespace simtest

#endif
