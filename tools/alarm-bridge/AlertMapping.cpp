#include "AlertMapping.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <memory>
#include <set>

namespace bridge {

namespace {

struct JsonDeleter {
    void operator()(cJSON* item) const { cJSON_Delete(item); }
};
using JsonPtr = std::unique_ptr<cJSON, JsonDeleter>;

std::string Print(const cJSON* item) {
    char* text = cJSON_PrintUnformatted(item);
    std::string out = text != nullptr ? text : "{}";
    cJSON_free(text);
    return out;
}

// Empty values are left out: Alertmanager treats an empty label as absent.
void Put(cJSON* object, const char* key, const std::string& value) {
    if (!value.empty()) {
        cJSON_AddStringToObject(object, key, value.c_str());
    }
}

const std::set<std::string>& FixedLabels() {
    static const std::set<std::string> names{"alertname", "alarm_id", "app_id", "service", "node", "location"};
    return names;
}

// A parameter's name as a label name ([a-zA-Z_][a-zA-Z0-9_]*); one that
// would take a fixed label's place gets a prefix.
std::string LabelName(const std::string& name) {
    std::string out = name;
    for (char& c : out) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
        c = ok ? c : '_';
    }
    if (out.empty() || (out[0] >= '0' && out[0] <= '9') || FixedLabels().count(out) != 0 ||
        out.compare(0, 2, "__") == 0) {
        out = "param_" + out;
    }
    return out;
}

std::string Severity(int64_t level) {
    static const char* const kWords[] = {"critical", "major", "minor", "warning"};
    return level >= 1 && level <= 4 ? kWords[level - 1] : "level " + std::to_string(level);
}

std::string ServiceAddress(const nodeward::ReceivedAlarm& alarm) {
    if (alarm.serviceIp.empty()) {
        return std::string();
    }
    return alarm.servicePort >= 0 ? alarm.serviceIp + ":" + std::to_string(alarm.servicePort) : alarm.serviceIp;
}

void MapCurrent(const nodeward::ReceivedAlarm& alarm, AlertChange* change) {
    JsonPtr labels(cJSON_CreateObject());
    JsonPtr annotations(cJSON_CreateObject());
    JsonPtr checkAlarm(cJSON_CreateObject());
    Put(labels.get(), "alertname", "Alarm " + alarm.alarmId);
    Put(labels.get(), "alarm_id", alarm.alarmId);
    Put(labels.get(), "app_id", alarm.appId);
    Put(labels.get(), "service", alarm.serviceName);
    Put(labels.get(), "node", alarm.nodeIp);
    Put(checkAlarm.get(), "alarmId", alarm.alarmId);
    cJSON* checkParams = cJSON_AddObjectToObject(checkAlarm.get(), "parameters");
    auto parameters = alarm.parameters;
    std::sort(parameters.begin(), parameters.end());
    std::string listed;
    for (const auto& [name, value] : parameters) {
        Put(labels.get(), LabelName(name).c_str(), value);
        cJSON_AddStringToObject(checkParams, name.c_str(), value.c_str());
        listed += (listed.empty() ? "" : ", ") + name + "=" + value;
    }
    Put(annotations.get(), "summary",
        "alarm " + alarm.alarmId + " of " + alarm.serviceName + (listed.empty() ? "" : " (" + listed + ")"));
    Put(annotations.get(), "parameters", listed);
    Put(annotations.get(), "service_address", ServiceAddress(alarm));
    Put(annotations.get(), "service_label", alarm.serviceLabel);
    Put(annotations.get(), "service_id", alarm.serviceId);
    Put(annotations.get(), "service_instance", alarm.serviceInstId);
    change->labels = Print(labels.get());
    change->annotations = Print(annotations.get());
    change->checkAlarm = Print(checkAlarm.get());
    if (!alarm.serviceName.empty() && !alarm.serviceIp.empty() && alarm.servicePort > 0 && alarm.servicePort <= 65535) {
        change->checkTarget =
            alarm.serviceName + "\t" + alarm.appId + "\t" + alarm.serviceIp + "\t" + std::to_string(alarm.servicePort);
    }
}

void MapLegacy(const nodeward::ReceivedAlarm& alarm, AlertChange* change) {
    std::string nameEn, nameZh, locationEn, locationZh, appendEn, appendZh;
    SplitBilingual(alarm.alarmName, &nameEn, &nameZh);
    SplitBilingual(alarm.location, &locationEn, &locationZh);
    SplitBilingual(alarm.appendInfo, &appendEn, &appendZh);
    JsonPtr labels(cJSON_CreateObject());
    JsonPtr annotations(cJSON_CreateObject());
    Put(labels.get(), "alertname", nameEn.empty() ? "Alarm " + alarm.alarmId : nameEn);
    Put(labels.get(), "alarm_id", alarm.alarmId);
    Put(labels.get(), "app_id", alarm.appId);
    Put(labels.get(), "service", alarm.serviceName);
    Put(labels.get(), "node", alarm.nodeIp);
    Put(labels.get(), "location", locationEn);
    Put(annotations.get(), "summary", nameEn + (locationEn.empty() ? "" : " (" + locationEn + ")"));
    Put(annotations.get(), "name_en", nameEn);
    Put(annotations.get(), "name_zh", nameZh);
    Put(annotations.get(), "location_en", locationEn);
    Put(annotations.get(), "location_zh", locationZh);
    Put(annotations.get(), "append_info_en", appendEn);
    Put(annotations.get(), "append_info_zh", appendZh);
    if (alarm.alarmLevel >= 0) {
        Put(annotations.get(), "severity", Severity(alarm.alarmLevel));
    }
    if (alarm.eventType >= 0) {
        Put(annotations.get(), "alarm_type", std::to_string(alarm.eventType));
    }
    Put(annotations.get(), "service_id", alarm.serviceId);
    Put(annotations.get(), "service_instance", alarm.serviceInstId);
    change->labels = Print(labels.get());
    change->annotations = Print(annotations.get());
}

}  // namespace

int64_t AlarmTimeMs(int64_t value, int64_t nowMs) {
    if (value <= 0) {
        return nowMs;
    }
    return value < 100000000000LL ? value * 1000 : value;
}

bool SplitBilingual(const std::string& text, std::string* english, std::string* chinese) {
    static const std::string kEn = "EN:", kZh = "##ZH:", kEnd = "##";
    const std::size_t zh = text.find(kZh);
    if (text.compare(0, kEn.size(), kEn) != 0 || zh == std::string::npos || text.size() < zh + kZh.size() + 2 ||
        text.compare(text.size() - kEnd.size(), kEnd.size(), kEnd) != 0) {
        *english = *chinese = text;
        return false;
    }
    *english = text.substr(kEn.size(), zh - kEn.size());
    *chinese = text.substr(zh + kZh.size(), text.size() - kEnd.size() - zh - kZh.size());
    return true;
}

AlertChange MapAlarm(const nodeward::ReceivedAlarm& alarm, int64_t nowMs) {
    AlertChange change;
    change.legacy = alarm.legacy;
    change.alarmId = alarm.alarmId;
    change.resetClear = alarm.rsetClear == 1;
    change.instance = alarm.legacy ? alarm.appId : alarm.appId + "\t" + alarm.serviceName + "\t" + alarm.serviceIp;
    if (alarm.alarmId == "0") {
        change.kind = alarm.legacy ? AlertChange::Kind::ResetLegacy : AlertChange::Kind::ResetCurrent;
        change.atMs = AlarmTimeMs(alarm.occurTime, nowMs);
        change.clearIds = alarm.clearAlarmIds;
        return change;
    }
    if (alarm.alarmType != 1 && alarm.alarmType != 2) {
        change.why =
            "alarm " + alarm.alarmId + " is neither raised nor cleared (type " + std::to_string(alarm.alarmType) + ")";
        return change;
    }
    change.kind = alarm.alarmType == 1 ? AlertChange::Kind::Raise : AlertChange::Kind::Clear;
    const int64_t own =
        !alarm.legacy ? alarm.occurTime : (change.kind == AlertChange::Kind::Raise ? alarm.genTime : alarm.clearTime);
    change.atMs = AlarmTimeMs(own, nowMs);
    alarm.legacy ? MapLegacy(alarm, &change) : MapCurrent(alarm, &change);
    return change;
}

}  // namespace bridge
