// The legacy generation's alarm record: an id, a generate/clear type, the
// service instance it speaks for, and named parameters. The legacy C
// functions build one per SendAlarm; services may build and send one directly
// through AlarmManager.
#ifndef ALARM_H
#define ALARM_H

#include <map>
#include <string>

#include "AlarmSdk.h"

class ALARMSDK_API Alarm {
public:
    // alarmId must not be NULL; an id of 10 or more characters leaves the id empty.
    Alarm(char const* alarmId, EU_GEN_CLEAR_TYPE type);
    ~Alarm();

    // A name of 64 or more characters leaves the field empty.
    void SetServiceInsName(char const* name);
    // NULL counts as ""; a name already present keeps its first value.
    void AppendParameter(char const* name, char const* value);
    // A copy of the parameters, ordered by name.
    std::map<std::string, std::string> GetParamMap();
    // The service instance name field ("" when unset); never NULL.
    char* GetServiceName();
    char* GetAlarmId();
    EU_GEN_CLEAR_TYPE GetGenClearAlarmType();

private:
    char m_szAlarmId[10];
    char m_szServiceInsName[64];
    EU_GEN_CLEAR_TYPE m_eGenClearType;
    std::map<std::string, std::string> m_mapParams;
};

#endif
