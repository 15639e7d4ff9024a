#include "Alarm.h"

#include "bounded_string.h"

Alarm::Alarm(char const* alarmId, EU_GEN_CLEAR_TYPE type) : m_eGenClearType(type) {
    // Count equal to the limit: an id that does not fit is refused and left empty, never cut.
    (void)strncpy_s(m_szAlarmId, sizeof(m_szAlarmId), alarmId, sizeof(m_szAlarmId));
    m_szAlarmId[sizeof(m_szAlarmId) - 1] = '\0';
    (void)memset_s(m_szServiceInsName, sizeof(m_szServiceInsName), 0, sizeof(m_szServiceInsName));
}

Alarm::~Alarm() { m_mapParams.clear(); }

void Alarm::SetServiceInsName(char const* name) {
    (void)strncpy_s(m_szServiceInsName, sizeof(m_szServiceInsName), name, sizeof(m_szServiceInsName));
    m_szServiceInsName[sizeof(m_szServiceInsName) - 1] = '\0';
}

void Alarm::AppendParameter(char const* name, char const* value) {
    m_mapParams.insert(
        std::make_pair(std::string(name != nullptr ? name : ""), std::string(value != nullptr ? value : "")));
}

std::map<std::string, std::string> Alarm::GetParamMap() { return m_mapParams; }

char* Alarm::GetServiceName() { return m_szServiceInsName; }

char* Alarm::GetAlarmId() { return m_szAlarmId; }

EU_GEN_CLEAR_TYPE Alarm::GetGenClearAlarmType() { return m_eGenClearType; }
