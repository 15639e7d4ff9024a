// Builds the JSON documents pushed to the node's agent and reads its answers.
// Every call builds and frees its own tree: safe on any thread.
#ifndef ALM_JSON_PARSER_H
#define ALM_JSON_PARSER_H

#include <cjson/cJSON.h>

#include <list>
#include <string>

class AlarmEx;

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
    // alarm with the id "0" carries only its first seven keys.
    static cJSON* GenAlarmEx(AlarmEx* pAlarm);
    // The agent's answer: "OK" when "retCode" reads as integer 0 (which
    // includes strings, false, null, arrays and objects), "Failed" for any
    // other value, "" when the text is not JSON or has no "retCode".
    static std::string GetRetCodeEx(const char* json);

    // The legacy envelope (GenRestDataJson, GenPayloadNode, GenServiceNode,
    // GetRetCode) and its time stamp m_lTimeStamp join this class with the
    // legacy alarm model.
};

#endif
