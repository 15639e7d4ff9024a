// Push documents of both generations written by hand as the library writes them, for the stand-in and the bridge.
#ifndef TEST_PUSH_DOCUMENTS_H
#define TEST_PUSH_DOCUMENTS_H

#include <string>

namespace testsupport {

// A current-generation alarm; param is "name=value".
inline std::string CurrentAlarm(const std::string& id, int type, const std::string& param,
                                long long time = 1700000000000LL, const std::string& service = "orders",
                                int rsetClear = 0) {
    const std::size_t eq = param.find('=');
    return R"({"alarmId":")" + id + R"(","appId":"app-7","occurTime":)" + std::to_string(time) + R"(,"serviceName":")" +
           service + R"(","serviceIp":"127.0.0.1","servicePort":8080,"serviceLabel":")" + service +
           R"(-label","alarmType":)" + std::to_string(type) +
           R"(,"serviceId":"svc-1","serviceInstId":"inst-1","rsetClear":)" + std::to_string(rsetClear) +
           R"(,"nodeIp":"10.0.0.1","callBackInfo":{},"parameters":[{"paramName":")" + param.substr(0, eq) +
           R"(","paramValue":")" + param.substr(eq + 1) + R"("}]})";
}

inline std::string CurrentDocument(const std::string& alarms) {
    return R"({"business":{"name":"PushAlarm"},"payload":{"alarmList":[)" + alarms + R"(]},"Receiver":"SendAlarm"})";
}

// A legacy alarm: genClear 0 raises, 1 clears.
inline std::string LegacyAlarm(const std::string& id, int genClear, const std::string& location, int rsetClear = 0) {
    const bool clear = genClear == 1;
    return R"({"alarmName":"EN:Disk usage high##ZH:磁盘使用率高##","appId":"app-7","alarmId":")" + id +
           R"(","appName":"storage-app","serviceName":"storage","alarmEventType":1,"genClearAlarmType":)" +
           std::to_string(genClear) + ",\"alarmLevel\":2,\"alarmGenTime\":" + (clear ? "-1" : "1700000000000") +
           ",\"alarmClearTime\":" + (clear ? "1700000100000" : "-1") + ",\"alarmClearType\":" + (clear ? "0" : "2") +
           R"(,"isCanAutoClearType":1,"eventType":1,"probableCause":"","nodeID":"10.0.0.5","NodeIp":"10.0.0.5",)"
           R"("serviceID":"svc-s","serviceInstID":"inst-s","rsetClear":)" +
           std::to_string(rsetClear) + R"(,"location":"EN:Disk=)" + location + "##ZH:磁盘=" + location +
           R"(##","appendInfo":"EN:Usage=95##ZH:使用率=95##"})";
}

inline std::string LegacyDocument(const std::string& alarms) {
    return R"({"service":{"name":"szServiceName","appid":"app-7","ipaddress":"10.0.0.5","port":7888,"time_stamp":0},)"
           R"("business":{"name":"PushAlarm"},"payload":{"alarmList":[)" +
           alarms + "]}}";
}

}  // namespace testsupport

#endif
