// Internal to the sim: the wire side of a push request (strict base64, the two
// document generations, the answers) kept apart from the HTTP server.
#ifndef NODEWARD_SIM_DOCUMENT_H
#define NODEWARD_SIM_DOCUMENT_H

#include <cstddef>
#include <string>
#include <vector>

#include "NodewardSim.h"

namespace nodeward {

// Base64 of the agent's own, written apart from the library's codec so that a
// fault both of the library's halves share still shows at the agent.
// Encode never fails. Decode is strict: standard alphabet only, length a
// multiple of 4, '=' only as the last one or two characters, unused bits of
// the last group zero, no whitespace; false with a reason for people.
std::string EncodeBase64(const std::string& plain);
bool DecodeBase64(const std::string& text, std::string* plain, std::string* reason = nullptr);

struct PushDocument {
    bool ok = false;           // decoded, parsed and of a known generation
    std::string reason;        // why not, when !ok
    std::string decoded;       // the decoded text ("" when base64 failed)
    std::string compact;       // the document printed compactly, when it parsed and was asked for
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
