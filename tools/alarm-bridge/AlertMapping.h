// From one alarm of the agent protocol to what the bridge stores: an alert's
// identity (its labels), its annotations and times, and the scope a
// reset-clear announcement applies to.
#ifndef ALARM_BRIDGE_ALERT_MAPPING_H
#define ALARM_BRIDGE_ALERT_MAPPING_H

#include <cstdint>
#include <string>
#include <vector>

#include "AgentDocument.h"

namespace bridge {

struct AlertChange {
    enum class Kind { Raise, Clear, ResetCurrent, ResetLegacy, Ignored };
    Kind kind = Kind::Ignored;
    std::string labels;       // compact JSON object; also the alert's identity
    std::string annotations;  // compact JSON object
    int64_t atMs = 0;         // raise: startsAt; clear: endsAt; announcement: its time
    std::string instance;     // the service instance a reset-clear announcement names
    bool legacy = false;
    bool resetClear = false;  // the alarm belongs to the reset-clear scheme
    std::string alarmId;
    std::vector<std::string> clearIds;  // legacy announcement: the alarm ids it covers
    std::string checkTarget;            // "service\tappId\tip\tport" of a current alarm, where checks go; "" for none
    std::string checkAlarm;             // {"alarmId":..,"parameters":{..}}: the alarm as a check names it
    std::string why;                    // Ignored: for the log
};

// Milliseconds since the epoch; a time below 10^11 is taken as seconds, and
// one that is missing or not positive as nowMs.
int64_t AlarmTimeMs(int64_t value, int64_t nowMs);

AlertChange MapAlarm(const nodeward::ReceivedAlarm& alarm, int64_t nowMs);

// "EN:<english>##ZH:<chinese>##" -> the two texts; false (both = text) for any other form.
bool SplitBilingual(const std::string& text, std::string* english, std::string* chinese);

}  // namespace bridge

#endif
