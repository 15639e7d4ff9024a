// The wire side of a push request to the node agent (strict base64, the two
// document generations, the answers), shared by the agent stand-in and the
// bridge and kept apart from any HTTP server.
#ifndef AGENT_DOCUMENT_H
#define AGENT_DOCUMENT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace nodeward {

// One alarm as it arrived, taken from a decoded document.
struct ReceivedAlarm {
    bool legacy = false;
    std::string alarmId;
    int64_t alarmType = -1;  // -1 when the key is absent
    std::string appId;
    std::string serviceName;
    std::string serviceIp;
    int64_t servicePort = -1;
    int64_t occurTime = 0;
    int64_t rsetClear = -1;
    std::vector<std::pair<std::string, std::string>> parameters;  // in document order
    std::vector<std::string> keys;                                // the alarm object's keys, in order
    std::string json;                                             // the alarm object, compact
    std::string serviceLabel;                                     // current documents
    std::string serviceId;                                        // current: "serviceId"; legacy: "serviceID"
    std::string serviceInstId;                                    // current: "serviceInstId"; legacy: "serviceInstID"
    std::string nodeIp;                                           // current: "nodeIp"; legacy: "NodeIp"
    std::string alarmName;                                        // legacy: the bilingual "alarmName"
    std::string location;                                         // legacy: "location"
    std::string appendInfo;                                       // legacy: "appendInfo"
    std::vector<std::string> clearAlarmIds;                       // legacy announcement: ids of "restClearAlarmList"
    int64_t genTime = -1;                                         // legacy: "alarmGenTime"
    int64_t clearTime = -1;                                       // legacy: "alarmClearTime"
    int64_t alarmLevel = -1;                                      // legacy: "alarmLevel"
    int64_t eventType = -1;                                       // legacy: "alarmEventType"
};
// Legacy alarm objects carry no "alarmType"/"parameters"/"servicePort": alarmType
// is taken from "genClearAlarmType" in the current wire form (0 -> 1 generate,
// 1 -> 2 clear, others 0), occurTime from "occurTime" (announcement) or else
// "alarmGenTime" / "alarmClearTime" (clear), servicePort stays -1, parameters
// stay empty (their text is in location/appendInfo).

// Base64 of the agent's own, written apart from the library's codec so that a
// fault both of the library's halves share still shows at the agent.
// Encode never fails. Decode is strict: standard alphabet only, length a
// multiple of 4, '=' only as the last one or two characters, unused bits of
// the last group zero, no whitespace; false with a reason for people.
std::string EncodeBase64(const std::string& plain);
bool DecodeBase64(const std::string& text, std::string* plain, std::string* reason = nullptr);

struct PushDocument {
    bool ok = false;      // decoded, parsed and of a known generation
    std::string reason;   // why not, when !ok
    std::string decoded;  // the decoded text ("" when base64 failed)
    std::string compact;  // the document printed compactly, when it parsed and was asked for
    bool legacy = false;
    std::size_t alarmCount = 0;         // objects in "alarmList"
    std::vector<ReceivedAlarm> alarms;  // each in full, or only each run of alarms from one sender (see PushReading)
};

// What a reading costs beyond validating and counting: printing the document
// again, and reading every alarm in full rather than only its sender's
// address (serviceName, serviceIp, servicePort, appId), kept once for each
// run of alarms from the same sender.
struct PushReading {
    bool compact = true;
    bool fullAlarms = true;
};

PushDocument ReadPushBody(const std::string& body, PushReading reading = PushReading());

// Answer documents, already base64-encoded.
std::string SuccessAnswer(bool legacy);
std::string FailureAnswer(bool legacy);
std::string RefusalAnswer(const std::string& reason);

}  // namespace nodeward

#endif
