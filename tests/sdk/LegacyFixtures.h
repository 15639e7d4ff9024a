// Legacy alarm definitions built in memory, as the loader leaves them: the model, texts and delivery apart from XML.
#ifndef LEGACY_FIXTURES_H
#define LEGACY_FIXTURES_H

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "AlarmConfig.h"

namespace legacytest {

struct EnumSpec {
    int64_t value;
    const char* en;
    const char* ch;
};

struct ParamSpec {
    const char *name, *en, *ch, *type;
    int64_t len;
    int64_t cls;  // 0 location, 1 append information
    std::vector<EnumSpec> enums;
};

template <std::size_t N> void Set(char (&field)[N], const char* text) {
    std::snprintf(field, N, "%s", text);
}

// A definition like the loader's: zero-filled, and reachable until the process ends.
inline stAlarmItems* Definition(int64_t id, const char* serviceType, const char* en, const char* ch,
                                const std::vector<ParamSpec>& params) {
    static auto* kept = new std::vector<stAlarmItems*>();
    stAlarmItems* item = kept->emplace_back(static_cast<stAlarmItems*>(std::calloc(1, sizeof(stAlarmItems))));
    item->alarmId = id;
    std::snprintf(item->alarmName, sizeof(item->alarmName), "EN:%s##ZH:%s##", en, ch);
    Set(item->serviceType, serviceType);
    item->alarmType = 1;
    item->alarmLevel = 2;
    item->eventType = 3;
    item->isAutoClean = 1;
    item->paramNum = static_cast<int64_t>(params.size());
    item->params = static_cast<stParaDef*>(std::calloc(params.size() + 1, sizeof(stParaDef)));
    for (std::size_t i = 0; i < params.size(); ++i) {
        const ParamSpec& spec = params[i];
        stParaDef& p = item->params[i];
        Set(p.paramName, spec.name);
        Set(p.paramEnName, spec.en);
        Set(p.paramChName, spec.ch);
        Set(p.paramType, spec.type);
        p.paramLen = spec.len;
        p.paramClass = spec.cls;
        p.enumNum = static_cast<int64_t>(spec.enums.size());
        if (!spec.enums.empty()) {
            p.enumValues = static_cast<stEnumBitDef*>(std::calloc(spec.enums.size(), sizeof(stEnumBitDef)));
        }
        for (std::size_t e = 0; e < spec.enums.size(); ++e) {
            p.enumValues[e].value = spec.enums[e].value;
            Set(p.enumValues[e].enName, spec.enums[e].en);
            Set(p.enumValues[e].chName, spec.enums[e].ch);
        }
    }
    return item;
}

// 300012, disk usage: location disk, append usage and state.
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
