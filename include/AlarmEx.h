// The current generation's alarm record: a plain value holder, no checks.
#ifndef ALARM_EX_H
#define ALARM_EX_H

#include <cstdint>
#include <map>
#include <string>

#include "AlarmSdk.h"

class ALARMSDK_API AlarmEx {
public:
    AlarmEx(char const* alarmId, EU_GEN_CLEAR_TYPE type);
    AlarmEx();
    // Queue copy: rsetClear, nodeIp, alarm source and serviceIp are not copied.
    explicit AlarmEx(AlarmEx* source);
    ~AlarmEx();

    AlarmEx(const AlarmEx&) = delete;
    AlarmEx& operator=(const AlarmEx&) = delete;

    // The first value given for a name stays; NULL counts as "".
    void appendParameter(char const* name, char const* value);

    void setAlarmId(char const* alarmId);
    char const* getAlarmId() const;
    int32_t getAlarmType() const;
    std::map<std::string, std::string> getParamMap() const;

    void setServiceId(std::string serviceId);
    std::string getServiceId() const;
    void setServiceInsId(std::string serviceInsId);
    std::string getServiceInsId() const;
    void setRsetClear(long rsetClear);
    long getRsetClear() const;
    void setAppId(std::string appId);
    std::string getAppId() const;
    void setAppName(std::string appName);
    std::string getAppName() const;
    void setServiceName(std::string serviceName);
    std::string getServiceName() const;
    void setAlarmSource(std::string alarmSource);
    std::string getAlarmSource() const;
    void setNodeIp(std::string nodeIp);
    std::string getNodeIp() const;
    void setServiceLabel(std::string serviceLabel);
    std::string getServiceLabel() const;
    void setServicePort(unsigned short servicePort);
    unsigned short getServicePort() const;
    void SetServiceIp(std::string serviceIp);
    std::string GetServiceIp() const;
    void ResetAlarmTime(long alarmTime);
    long GetAlarmTime() const;

private:
    char m_szAlarmId[ZEB_ALARM_ID_SIZE];
    int32_t m_iAlarmType;
    std::map<std::string, std::string> m_mapParams;
    std::string m_strServiceName;
    std::string m_strServiceId;
    std::string m_strServiceInsId;
    int64_t m_lRsetClear;
    std::string m_strAppId;
    std::string m_strAppName;
    std::string m_strNodeIp;
    std::string m_strAlarmSource;
    std::string m_strServiceIp;
    uint16_t m_uServicePort;
    int64_t m_lAlarmTime;
    std::string m_strServiceLabel;
};

#endif
