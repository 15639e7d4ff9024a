// Legacy alarm definitions built in memory, as the loader leaves them, so the
// model, the texts and delivery can be tested apart from the XML files.
#ifndef LEGACY_FIXTURES_H
#define LEGACY_FIXTURES_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "AlarmConfig.h"

namespace legacytest {

struct EnumSpec {
    int64_t value;
    const char* en;
    const char* ch;
};

struct ParamSpec {
    const char* name;
    const char* en;
    const char* ch;
    const char* type;
    int64_t len;
    int64_t cls;  // 0 location, 1 append information
    std::vector<EnumSpec> enums;
};

// Keeps every definition reachable: like the loader's, they live until the process ends.
inline stAlarmItems* Keep(stAlarmItems* item) {
    static std::vector<stAlarmItems*>* kept = new std::vector<stAlarmItems*>();
    kept->push_back(item);
    return item;
}

// A definition like the loader's (zero-filled).
inline stAlarmItems* Definition(int64_t id, const char* serviceType, const char* en, const char* ch,
                                const std::vector<ParamSpec>& params) {
    stAlarmItems* item = Keep(static_cast<stAlarmItems*>(std::calloc(1, sizeof(stAlarmItems))));
    item->alarmId = id;
    std::snprintf(item->alarmName, sizeof(item->alarmName), "EN:%s##ZH:%s##", en, ch);
    std::snprintf(item->serviceType, sizeof(item->serviceType), "%s", serviceType);
    item->alarmType = 1;
    item->alarmLevel = 2;
    item->eventType = 3;
    item->isAutoClean = 1;
    item->paramNum = static_cast<int64_t>(params.size());
    item->params = static_cast<stParaDef*>(std::calloc(params.size() + 1, sizeof(stParaDef)));
    for (std::size_t i = 0; i < params.size(); ++i) {
        stParaDef& p = item->params[i];
        std::snprintf(p.paramName, sizeof(p.paramName), "%s", params[i].name);
        std::snprintf(p.paramEnName, sizeof(p.paramEnName), "%s", params[i].en);
        std::snprintf(p.paramChName, sizeof(p.paramChName), "%s", params[i].ch);
        std::snprintf(p.paramType, sizeof(p.paramType), "%s", params[i].type);
        p.paramLen = params[i].len;
        p.paramClass = params[i].cls;
        p.enumNum = static_cast<int64_t>(params[i].enums.size());
        if (!params[i].enums.empty()) {
            p.enumValues = static_cast<stEnumBitDef*>(std::calloc(params[i].enums.size(), sizeof(stEnumBitDef)));
            for (std::size_t e = 0; e < params[i].enums.size(); ++e) {
                p.enumValues[e].value = params[i].enums[e].value;
                std::snprintf(p.enumValues[e].enName, sizeof(p.enumValues[e].enName), "%s", params[i].enums[e].en);
                std::snprintf(p.enumValues[e].chName, sizeof(p.enumValues[e].chName), "%s", params[i].enums[e].ch);
            }
        }
    }
    return item;
}

// Two definitions: 300012 (disk usage: location disk, append usage and state) and 300020 (no parameters).
inline stAlarmItems* DiskDefinition() {
    return Definition(300012, "storage", "Disk usage high", "磁盘使用率高",
                      {{"disk", "Disk", "磁盘", "STRING", 0, 0, {}},
                       {"usage", "Usage", "使用率", "UINT", 1, 1, {}},
                       {"state", "State", "状态", "ENUM", 1, 1, {{0, "normal", "正常"}, {-1, "failed", "故障"}}}});
}

// Makes items the loaded definitions (linked in order) and marks them loaded.
inline void InstallDefinitions(const std::vector<stAlarmItems*>& items) {
    for (std::size_t i = 0; i + 1 < items.size(); ++i) {
        items[i]->next = items[i + 1];
    }
    g_stCfgParaInfo.head = items.empty() ? nullptr : items.front();
    g_uiInitFlag = 1;
}

}  // namespace legacytest

#endif
