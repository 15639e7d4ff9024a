#include "Findings.h"

#include <cjson/cJSON.h>

#include <memory>
#include <new>

namespace alarmdef {

namespace {

const char* SeverityName(Severity severity) { return severity == Severity::Error ? "error" : "warning"; }

}  // namespace

int ExitCodeOf(const std::vector<Finding>& findings) {
    int code = 0;
    for (const Finding& finding : findings) {
        code = finding.severity == Severity::Error ? 3 : (code == 0 ? 1 : code);
        if (code == 3) {
            break;
        }
    }
    return code;
}

std::string FormatText(const std::vector<Finding>& findings) {
    std::string text;
    for (const Finding& finding : findings) {
        text += finding.file;
        if (finding.line > 0) {
            text += ":" + std::to_string(finding.line);
        }
        text += std::string(": ") + SeverityName(finding.severity) + ": " + finding.message + "\n";
    }
    return text;
}

std::string FormatJson(const std::vector<Finding>& findings) {
    std::unique_ptr<cJSON, void (*)(cJSON*)> array(cJSON_CreateArray(), cJSON_Delete);
    if (array == nullptr) {
        throw std::bad_alloc();
    }
    for (const Finding& finding : findings) {
        cJSON* item = cJSON_CreateObject();
        if (item == nullptr || !cJSON_AddItemToArray(array.get(), item) ||
            cJSON_AddStringToObject(item, "file", finding.file.c_str()) == nullptr ||
            cJSON_AddNumberToObject(item, "line", finding.line) == nullptr ||
            cJSON_AddStringToObject(item, "severity", SeverityName(finding.severity)) == nullptr ||
            cJSON_AddStringToObject(item, "message", finding.message.c_str()) == nullptr) {
            throw std::bad_alloc();
        }
    }
    char* printed = cJSON_PrintUnformatted(array.get());
    if (printed == nullptr) {
        throw std::bad_alloc();
    }
    std::string json = std::string(printed) + "\n";
    cJSON_free(printed);
    return json;
}

}  // namespace alarmdef
