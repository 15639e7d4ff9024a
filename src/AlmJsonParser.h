// Builds the JSON documents pushed to the node's agent and reads its answers.
// Every call builds and frees its own tree: safe on any thread.
#ifndef ALM_JSON_PARSER_H
#define ALM_JSON_PARSER_H

#include <cjson/cJSON.h>

#include <cstdint>
#include <list>
#include <string>

class AlarmEx;
struct _AlarmModel;

class AlmJsonParser {
public:
    AlmJsonParser() = default;
    ~AlmJsonParser() = default;

    // The current push document, printed compactly:
    //   {"business":{"name":"PushAlarm"},"payload":{"alarmList":[...]},"Receiver":"SendAlarm"}
    // Null records in the list are left out. The text comes from cJSON's
    // allocator: release it with cJSON_free. NULL on failure.
    static char* GenRestDataJsonEx(const std::list<AlarmEx*>& alarms);
    // The "payload" object of that document (caller deletes it), or NULL.
    static cJSON* GenPayloadNodeEx(const std::list<AlarmEx*>& alarms);
    // One alarm object (caller deletes it), or NULL for a null record. An
    // alarm with the id "0" carries only its first seven keys. The object
    // refers to the record's texts: print it while the record lives.
    static cJSON* GenAlarmEx(AlarmEx* pAlarm);
    // The agent's answer: "OK" when "retCode" reads as integer 0 (which
    // includes strings, false, null, arrays and objects), "Failed" for any
    // other value, "" when the text is not JSON or has no "retCode".
    static std::string GetRetCodeEx(const char* json);

    // The legacy push document, printed compactly:
    //   {"service":{...},"business":{"name":"PushAlarm"},"payload":{"alarmList":[...]}}
    // Release with cJSON_free. NULL on failure (APPID unset among others).
    static char* GenRestDataJson(const std::list<_AlarmModel*>& models);
    // The "payload" object of that document (caller deletes it), or NULL.
    static cJSON* GenPayloadNode(const std::list<_AlarmModel*>& models);
    // The "service" node: "name" (the argument), "appid" (APPID), "ipaddress",
    // "port", "time_stamp"; NULL when APPID is unset or the port is 65535.
    static cJSON* GenServiceNode(const char* name);
    // One legacy alarm object (caller deletes it). Alarm id "0" gives the
    // reset-clear registration object. Like GenAlarmEx, it refers to the
    // model's texts.
    static cJSON* GenAlarmModel(_AlarmModel* alarmModel);
    // The legacy answer's "returncode" string, or "".
    static std::string GetRetCode(const char* json);

    // Written into the legacy service node as "time_stamp"; nothing assigns it.
    static int64_t m_lTimeStamp;
};

#endif
