// Records and key lists shared by the tests of the record, the encoder and delivery.
#ifndef ALARM_FIXTURES_H
#define ALARM_FIXTURES_H

#include <memory>
#include <string>
#include <vector>

#include "AlarmEx.h"

namespace sdktest {

// The keys of a full alarm object, and of a reset-clear announcement (id "0"), in document order.
inline const std::vector<std::string> kAllAlarmKeys{
    "alarmId",     "appId",        "occurTime", "serviceName", "serviceIp",     "servicePort", "serviceLabel",
    "alarmType",   "serviceId",    "serviceInstId", "rsetClear", "nodeIp",     "callBackInfo", "parameters"};
inline const std::vector<std::string> kAnnouncementKeys{"alarmId",   "appId",       "occurTime",   "serviceName",
                                                        "serviceIp", "servicePort", "serviceLabel"};

// A record with every field set; parameters appended out of name order.
inline std::unique_ptr<AlarmEx> FullAlarm(const char* id = "300012", EU_GEN_CLEAR_TYPE type = ZEB_ALARM_GENERATE) {
    std::unique_ptr<AlarmEx> alarm(new AlarmEx(id, type));
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
