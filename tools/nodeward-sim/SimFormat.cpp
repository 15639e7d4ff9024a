// The readable alarm lines the program prints.
#include <cstdio>
#include <ctime>
#include <string>

#include "NodewardSim.h"

namespace nodeward {

namespace {

std::string FormatTime(int64_t ms) {
    if (ms < 0) {
        return std::to_string(ms);
    }
    const std::time_t seconds = static_cast<std::time_t>(ms / 1000);
    std::tm utc{};
    if (gmtime_r(&seconds, &utc) == nullptr) {
        return std::to_string(ms);
    }
    char text[64];
    std::snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900, utc.tm_mon + 1,
                  utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, static_cast<int>(ms % 1000));
    return text;
}

std::string Kind(int64_t alarmType) {
    if (alarmType == 1) {
        return "generate";
    }
    if (alarmType == 2) {
        return "clear";
    }
    return "type=" + std::to_string(alarmType);
}

std::string From(const ReceivedAlarm& alarm) {
    if (alarm.servicePort < 0) {
        return alarm.serviceIp;
    }
    return alarm.serviceIp + ":" + std::to_string(alarm.servicePort);
}

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

// "EN:<english>##ZH:<chinese>##" reads better as [<english> | <chinese>]; any
// other text is shown quoted as it came.
std::string Bilingual(const std::string& text) {
    static const std::string kEn = "EN:";
    static const std::string kZh = "##ZH:";
    static const std::string kEnd = "##";
    const std::size_t zh = text.find(kZh);
    if (text.compare(0, kEn.size(), kEn) != 0 || zh == std::string::npos || text.size() < zh + kZh.size() + 2 ||
        text.compare(text.size() - kEnd.size(), kEnd.size(), kEnd) != 0) {
        return Quoted(text);
    }
    const std::string english = text.substr(kEn.size(), zh - kEn.size());
    const std::string chinese = text.substr(zh + kZh.size(), text.size() - kEnd.size() - zh - kZh.size());
    return "[" + english + " | " + chinese + "]";
}

std::string TimeOrDash(int64_t ms) { return ms < 0 ? "-" : FormatTime(ms); }

}  // namespace

std::string FormatAlarmLine(const ReceivedAlarm& alarm) {
    const std::string prefix = alarm.legacy ? "legacy " : "";
    const std::string rest = " app=" + alarm.appId + " time=" + FormatTime(alarm.occurTime);
    if (alarm.alarmId == "0") {
        // A restarted instance announcing itself so its stale alarms get cleared.
        std::string line = prefix + "announce service=" + alarm.serviceName;
        if (!alarm.legacy) {
            line += " label=" + alarm.serviceLabel;
        }
        line += rest;
        if (!alarm.serviceIp.empty() || alarm.servicePort >= 0) {
            line += " from=" + From(alarm);
        }
        if (alarm.legacy) {
            std::string ids;
            for (const auto& id : alarm.clearAlarmIds) {
                ids += (ids.empty() ? "" : ",") + id;
            }
            line += " clears=" + ids;
        }
        return line;
    }
    if (alarm.legacy) {
        // Both times: a legacy alarm carries -1 in the one that does not apply.
        return prefix + "alarm " + alarm.alarmId + " " + Kind(alarm.alarmType) + " service=" + alarm.serviceName +
               " app=" + alarm.appId + " raised=" + TimeOrDash(alarm.genTime) +
               " cleared=" + TimeOrDash(alarm.clearTime) + " name=" + Bilingual(alarm.alarmName) +
               " location=" + Bilingual(alarm.location) + " append=" + Bilingual(alarm.appendInfo);
    }
    std::string line =
        prefix + "alarm " + alarm.alarmId + " " + Kind(alarm.alarmType) + " service=" + alarm.serviceName + rest;
    if (!alarm.serviceIp.empty() || alarm.servicePort >= 0) {
        line += " from=" + From(alarm);
    }
    if (!alarm.parameters.empty()) {
        line += " params:";
        for (const auto& [name, value] : alarm.parameters) {
            line += " " + name + "=" + value;
        }
    }
    return line;
}

}  // namespace nodeward
