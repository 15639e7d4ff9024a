// Alarm SDK, legacy generation: the alarm model the legacy manager sends, and
// the adapter that turns an Alarm and its definition into the model's two
// bilingual texts, "location" and "appendInfo" ("EN:<english>##ZH:<chinese>##").
//
// Every text is assembled in 1024-byte buffers with the bounded appends of
// the platform: an append that would pass 1023 characters empties the buffer,
// and later appends continue into the emptied buffer.
#ifndef ALARM_ADAPTER_H
#define ALARM_ADAPTER_H

#include <cstdint>

#include "Alarm.h"
#include "AlarmConfig.h"
#include "AlarmSdkExport.h"

#pragma pack(push, 1)
// One legacy alarm ready to send (5954 bytes, packed). Allocated with new by
// the legacy manager and deleted once the agent accepted its batch. Text
// fields are filled by bounded copies of their full size: a text that would
// fill a field leaves it empty.
struct _AlarmModel {
    int64_t reserved;      // 0, never read
    char appId[64];        // APPID
    char appName[64];      // APPNAME
    char serviceName[64];  // the definition's ServiceType
    char alarmId[10];      // "0": a reset-clear registration
    char nodeIp[256];
    char serviceID[256];
    char serviceInstID[256];
    int64_t rsetClear;
    int64_t alarmEventType;     // the definition's AlarmType
    int64_t genClearAlarmType;  // 0 generate, 1 clear
    char alarmName[256];        // "EN:...##ZH:...##"
    int64_t alarmLevel;
    int64_t alarmGenTime;    // ms, or -1 for a cleared alarm
    int64_t alarmClearTime;  // ms, or -1 for a generated alarm
    int64_t alarmClearType;  // 2 generated, 0 cleared
    int64_t isCanAutoClearType;
    int64_t spare;  // not used
    int64_t eventType;
    char probableCause[512];  // always ""
    char location[2048];      // at most 1023 characters are stored
    char appendInfo[2048];    // likewise
    int64_t trailer[4];       // 0, never read
};
#pragma pack(pop)

// One bilingual text under construction.
struct ALM_Json_Para_def {
    ALM_Json_Para_def() : Json_para_Value(nullptr), Json_para_Value_En(nullptr), Json_para_Value_Ch(nullptr) {}

    char Json_para_Name[128];  // the JSON key: "location" or "appendInfo"
    uint32_t Json_para_Type;   // 4 string, 16 64-bit integer
    uint32_t Json_para_Len;
    char* Json_para_Value;     // 1024 bytes (malloc): the finished "EN:...##ZH:...##" text
    char* Json_para_Value_En;  // 1024 bytes (malloc): the English text being assembled
    char* Json_para_Value_Ch;  // 1024 bytes (malloc): the Chinese text being assembled
};

#define ALM_JSON_PARA_TYPE_STRING 4u
#define ALM_JSON_PARA_TYPE_INT64 16u
#define ALM_JSON_PARA_TEXT_SIZE 1024

extern "C" {

// 1 when the alarm has exactly as many parameters as its definition, else 0.
ALARMSDK_API unsigned int CHECK_ALARMODEL(Alarm* alarm, stAlarmItems* item);

// Fills both records: allocates their three buffers (released by the caller,
// see AlarmManager's deleteALM_Json_ParaPtr), appends every defined parameter
// to the location (class 0) or append-information (class 1) texts, then the
// alarm source and its location, and writes the finished bilingual texts.
ALARMSDK_API void ALM_ContructLocationAndAppendParainfo(Alarm* alarm, stAlarmItems* item, ALM_Json_Para_def* location,
                                                        ALM_Json_Para_def* appendInfo);

// The steps of ALM_ContructLocationAndAppendParainfo.
ALARMSDK_API void ALM_InitAlarmLocationInfo(ALM_Json_Para_def*& p);
ALARMSDK_API void ALM_InitAlarmAppendInfo(ALM_Json_Para_def*& p);
ALARMSDK_API void ALM_AddAlarmCruxInfo(Alarm* alarm, stAlarmItems*& item, ALM_Json_Para_def*& location,
                                       ALM_Json_Para_def*& appendInfo);
ALARMSDK_API void ALM_PieceAlarmParTogether(stParaDef* def, char* value, ALM_Json_Para_def* target);
// Drops the last character of both texts; len: the length before, Json_para_Len: after.
ALARMSDK_API void ALM_AddAlarmPasramLen(ALM_Json_Para_def*& p, unsigned long& len);
ALARMSDK_API void ALM_AddAlarmSourceInfo(Alarm* alarm, ALM_Json_Para_def*& appendInfo);
ALARMSDK_API void ALM_AddAlarmSourcePosition(Alarm* alarm, ALM_Json_Para_def*& appendInfo, unsigned long& len);

// The integer of paraLen bytes (1, 2 or 4) at data: unsigned, resp. 1 and 2
// bytes sign-extended. 0 (and a log line) for NULL data or another length.
ALARMSDK_API unsigned long ALM_GetIntValue(unsigned long paraLen, unsigned long* data);
ALARMSDK_API unsigned int ALM_GetEnumValue(unsigned long paraLen, unsigned int* data);

// Setters for services that fill records themselves; the library never calls them.
ALARMSDK_API void ALM_ContructOnlineSetBigIntPara(char* name, long value, ALM_Json_Para_def* p);
// Note: a non-empty data does not fit the bounded copy this setter makes and
// leaves the value empty; the setter has always behaved so.
ALARMSDK_API void ALM_ContructOnlineSetStringPara(char* name, char* data, ALM_Json_Para_def* p);
}

#endif
