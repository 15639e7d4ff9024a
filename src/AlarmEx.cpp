#include "AlarmEx.h"

#include <utility>

#include "bounded_string.h"

namespace {

// The record keeps the wire value: generate 1, clear 2, anything else 0.
int32_t WireAlarmType(EU_GEN_CLEAR_TYPE type) {
    switch (type) {
        case ZEB_ALARM_GENERATE:
            return 1;
        case ZEB_ALARM_CLEAR:
            return 2;
        default:
            return 0;
    }
}

// An id of ZEB_ALARM_ID_SIZE characters or more does not fit and, by the
// bounded-copy rule, leaves the id empty; the result is deliberately ignored.
void CopyAlarmId(char* dest, char const* src) {
    (void)strncpy_s(dest, ZEB_ALARM_ID_SIZE, src, ZEB_ALARM_ID_SIZE);
    dest[ZEB_ALARM_ID_SIZE - 1] = '\0';
}

}  // namespace

AlarmEx::AlarmEx(char const* alarmId, EU_GEN_CLEAR_TYPE type)
    : m_szAlarmId(), m_iAlarmType(WireAlarmType(type)), m_lRsetClear(-1), m_uServicePort(0), m_lAlarmTime(0) {
    CopyAlarmId(m_szAlarmId, alarmId);
}

AlarmEx::AlarmEx() : m_iAlarmType(-1), m_lRsetClear(-1), m_uServicePort(0), m_lAlarmTime(0) {
    (void)memset_s(m_szAlarmId, sizeof(m_szAlarmId), 0, sizeof(m_szAlarmId));
}

// nodeIp, alarm source and serviceIp stay empty and rsetClear unset: the
// manager fills them on its queue copy.
AlarmEx::AlarmEx(AlarmEx* source)
    : m_szAlarmId(), m_iAlarmType(-1), m_lRsetClear(-1), m_uServicePort(0), m_lAlarmTime(0) {
    if (source == nullptr) {
        return;
    }
    CopyAlarmId(m_szAlarmId, source->m_szAlarmId);
    m_iAlarmType = source->m_iAlarmType;
    m_mapParams = source->m_mapParams;
    m_strAppId = source->m_strAppId;
    m_strAppName = source->m_strAppName;
    m_strServiceId = source->m_strServiceId;
    m_strServiceInsId = source->m_strServiceInsId;
    m_uServicePort = source->m_uServicePort;
    m_strServiceLabel = source->m_strServiceLabel;
    m_strServiceName = source->m_strServiceName;
    m_lAlarmTime = source->m_lAlarmTime;
}

AlarmEx::~AlarmEx() { m_mapParams.clear(); }

void AlarmEx::appendParameter(char const* name, char const* value) {
    // emplace keeps the first value for a name, as the C layer expects.
    m_mapParams.emplace(name != nullptr ? name : "", value != nullptr ? value : "");
}

void AlarmEx::setAlarmId(char const* alarmId) { CopyAlarmId(m_szAlarmId, alarmId); }

char const* AlarmEx::getAlarmId() const { return m_szAlarmId; }

int32_t AlarmEx::getAlarmType() const { return m_iAlarmType; }

std::map<std::string, std::string> AlarmEx::getParamMap() const { return m_mapParams; }

void AlarmEx::setServiceId(std::string serviceId) { m_strServiceId = std::move(serviceId); }

std::string AlarmEx::getServiceId() const { return m_strServiceId; }

void AlarmEx::setServiceInsId(std::string serviceInsId) { m_strServiceInsId = std::move(serviceInsId); }

std::string AlarmEx::getServiceInsId() const { return m_strServiceInsId; }

void AlarmEx::setRsetClear(long rsetClear) { m_lRsetClear = rsetClear; }

long AlarmEx::getRsetClear() const { return static_cast<long>(m_lRsetClear); }

void AlarmEx::setAppId(std::string appId) { m_strAppId = std::move(appId); }

std::string AlarmEx::getAppId() const { return m_strAppId; }

void AlarmEx::setAppName(std::string appName) { m_strAppName = std::move(appName); }

std::string AlarmEx::getAppName() const { return m_strAppName; }

void AlarmEx::setServiceName(std::string serviceName) { m_strServiceName = std::move(serviceName); }

std::string AlarmEx::getServiceName() const { return m_strServiceName; }

void AlarmEx::setAlarmSource(std::string alarmSource) { m_strAlarmSource = std::move(alarmSource); }

std::string AlarmEx::getAlarmSource() const { return m_strAlarmSource; }

void AlarmEx::setNodeIp(std::string nodeIp) { m_strNodeIp = std::move(nodeIp); }

std::string AlarmEx::getNodeIp() const { return m_strNodeIp; }

void AlarmEx::setServiceLabel(std::string serviceLabel) { m_strServiceLabel = std::move(serviceLabel); }

std::string AlarmEx::getServiceLabel() const { return m_strServiceLabel; }

void AlarmEx::setServicePort(unsigned short servicePort) { m_uServicePort = servicePort; }

unsigned short AlarmEx::getServicePort() const { return m_uServicePort; }

void AlarmEx::SetServiceIp(std::string serviceIp) { m_strServiceIp = std::move(serviceIp); }

std::string AlarmEx::GetServiceIp() const { return m_strServiceIp; }

void AlarmEx::ResetAlarmTime(long alarmTime) { m_lAlarmTime = alarmTime; }

long AlarmEx::GetAlarmTime() const { return static_cast<long>(m_lAlarmTime); }
