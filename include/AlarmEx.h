// Alarm SDK: AlarmEx, the C++ record of one alarm (C++17).
//
// The library keeps every queued alarm as an AlarmEx; ZEBConvert2AlarmEx()
// (AlarmSdk.h) builds one from a C alarm object. It is a plain value holder:
// setters store what they are given without checks or logging, getters return
// copies (getAlarmId() a pointer into the record, valid while it lives).
// Whoever creates a record owns it and deletes it. A record is not locked:
// use one from one thread at a time; distinct records are independent.
#ifndef ALARM_EX_H
#define ALARM_EX_H

#include <cstdint>
#include <map>
#include <string>

#include "AlarmSdk.h"

class ALARMSDK_API AlarmEx {
public:
    // alarmId: at most 9 characters (a longer one leaves the id empty).
    // type is stored as its wire value: generate 1, clear 2, anything else 0.
    // Texts and parameters start empty, rsetClear -1, time 0.
    AlarmEx(char const* alarmId, EU_GEN_CLEAR_TYPE type);
    // Empty id, alarm type -1, rsetClear -1, time 0.
    AlarmEx();
    // The copy the manager queues: everything but rsetClear (-1 in the copy),
    // nodeIp, alarm source and serviceIp (empty), which the manager fills.
    // A NULL source gives the same as AlarmEx().
    explicit AlarmEx(AlarmEx* source);
    ~AlarmEx();

    AlarmEx(const AlarmEx&) = delete;
    AlarmEx& operator=(const AlarmEx&) = delete;

    // The first value given for a name stays; NULL counts as "". No limits.
    void appendParameter(char const* name, char const* value);

    // Same rule as the constructor: at most 9 characters, else empty.
    void setAlarmId(char const* alarmId);
    char const* getAlarmId() const;
    // 1 generate, 2 clear, 0 other, -1 default-constructed.
    int32_t getAlarmType() const;
    // Parameters by name, in ascending byte order of the names.
    std::map<std::string, std::string> getParamMap() const;

    // Identity and location of the sender; the manager sets these on its copy.
    void setServiceId(std::string serviceId);
    std::string getServiceId() const;
    void setServiceInsId(std::string serviceInsId);
    std::string getServiceInsId() const;
    // 1 when the alarm belongs to a service registered for reset-clear; -1 unset.
    void setRsetClear(long rsetClear);
    long getRsetClear() const;
    void setAppId(std::string appId);
    std::string getAppId() const;
    void setAppName(std::string appName);
    std::string getAppName() const;
    void setServiceName(std::string serviceName);
    std::string getServiceName() const;
    // Becomes the "AlarmSource" parameter when the alarm is queued (else PODNAME).
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
    // Occurrence time in milliseconds since the epoch; 0 = stamped when queued.
    void ResetAlarmTime(long alarmTime);
    long GetAlarmTime() const;

private:
    // The library fills and reads its records in place rather than through
    // the setters' and getters' copies: the C conversion, the manager that
    // completes what it queues, and the push-document encoder.
    friend AlarmEx* ZEBConvert2AlarmEx(_ZEBAlarm* alarm);
    friend class AlarmManagerEx;
    friend class AlmJsonParser;

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
