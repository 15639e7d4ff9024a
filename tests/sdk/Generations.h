// Drives either generation through its C interface the same way: the tests of the shared send cycle run on both.
#ifndef GENERATIONS_H
#define GENERATIONS_H

#include <cstdio>
#include <cstdlib>

#include "AlarmConfig.h"
#include "AlarmSdkStats.h"
#include "SdkTestSupport.h"

// Legacy alarm definitions built in memory, as the loader leaves them: the model, texts and delivery apart from XML.
namespace legacytest {

struct EnumSpec {
    int64_t value;
    const char* en;
    const char* ch;
};

struct ParamDef {
    const char *name, *en, *ch, *type;
    int64_t len;
    int64_t cls;  // 0 location, 1 append information
    std::vector<EnumSpec> enums;
};

template <std::size_t N> void Set(char (&field)[N], const char* text) { std::snprintf(field, N, "%s", text); }

// A definition like the loader's (the numbers no case reads left zero), reachable until the process ends.
inline stAlarmItems* Definition(int64_t id, const char* serviceType, const char* en, const char* ch,
                                const std::vector<ParamDef>& params) {
    static auto* kept = new std::vector<stAlarmItems*>();
    stAlarmItems* item = kept->emplace_back(static_cast<stAlarmItems*>(std::calloc(1, sizeof(stAlarmItems))));
    item->alarmId = id;
    std::snprintf(item->alarmName, sizeof(item->alarmName), "EN:%s##ZH:%s##", en, ch);
    Set(item->serviceType, serviceType);
    item->paramNum = static_cast<int64_t>(params.size());
    item->params = static_cast<stParaDef*>(std::calloc(params.size() + 1, sizeof(stParaDef)));
    for (std::size_t i = 0; i < params.size(); ++i) {
        const ParamDef& param = params[i];
        stParaDef& p = item->params[i];
        Set(p.paramName, param.name);
        Set(p.paramEnName, param.en);
        Set(p.paramChName, param.ch);
        Set(p.paramType, param.type);
        p.paramLen = param.len;
        p.paramClass = param.cls;
        p.enumNum = static_cast<int64_t>(param.enums.size());
        if (!param.enums.empty()) {
            p.enumValues = static_cast<stEnumBitDef*>(std::calloc(param.enums.size(), sizeof(stEnumBitDef)));
        }
        for (std::size_t e = 0; e < param.enums.size(); ++e) {
            p.enumValues[e].value = param.enums[e].value;
            Set(p.enumValues[e].enName, param.enums[e].en);
            Set(p.enumValues[e].chName, param.enums[e].ch);
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

namespace sdktest {

// Allocates a legacy alarm with room for slots parameters, fills, sends and frees it; SendAlarm's result.
inline int SendLegacy(const char* id, int type, const std::vector<std::pair<const char*, const char*>>& params,
                      unsigned int slots) {
    AlarmObject* object = AllocAlarmObject(id, type, slots);
    for (const auto& p : params) {
        AppendParam(object, p.first, p.second);
    }
    const int result = SendAlarm(object);
    FreeAlarmObject(object);
    return result;
}

enum class Generation { Current, Legacy };

inline std::ostream& operator<<(std::ostream& out, Generation g) {
    return out << (g == Generation::Current ? "Current" : "Legacy");
}

class GenerationDriver {
public:
    explicit GenerationDriver(Generation generation) : legacy_(generation == Generation::Legacy) {}

    // Initialises the generation; the legacy one with alarm 7 defined (one location parameter "seq").
    bool init() {
        if (!legacy_) {
            return ZEBInitAlarmSDK() == 0;
        }
        legacytest::InstallDefinitions({legacytest::Definition(7, "orders", "Sequence", "序号告警",
                                                               {{"seq", "Seq", "序号", "STRING", 0, 0, {}}})});
        return InitAlarm(ExistingFile(dir_).c_str(), "svc-1", "inst-1", 0) == 1;
    }

    // Sends alarm 7 carrying seq, or seq "0" to "count - 1"; true when every call succeeded.
    bool send(const std::string& seq) {
        return legacy_ ? SendLegacy("7", 0, {{"seq", seq.c_str()}}, 1) == 1 : SendSeq("7", seq) == 0;
    }
    bool send(int count) {
        bool ok = true;
        for (int i = 0; i < count; ++i) {
            ok = send(std::to_string(i)) && ok;
        }
        return ok;
    }

    alarmsdk_stats stats() const {
        alarmsdk_stats s = {};
        s.size = sizeof(s);
        EXPECT_EQ(0, legacy_ ? alarmsdk_get_legacy_stats(&s) : alarmsdk_get_process_stats(&s));
        return s;
    }
    int flush(uint32_t timeoutMs) const {
        return legacy_ ? alarmsdk_flush_legacy(timeoutMs) : alarmsdk_flush_process(timeoutMs);
    }

    // The seq an arrived alarm carries (legacy: location "EN:Seq=<seq>##ZH:序号=<seq>##").
    static std::string SeqOf(const nodeward::ReceivedAlarm& alarm) {
        const std::string& at = alarm.location;
        return !alarm.legacy ? Param(alarm, "seq") : at.rfind("EN:Seq=", 0) == 0 ? at.substr(7, at.find("##") - 7) : "";
    }
    // The seqs the alarms carry, and the seqs "0" to "count - 1", as words.
    static std::string SeqsOf(const std::vector<nodeward::ReceivedAlarm>& alarms) {
        std::string seqs;
        for (std::size_t i = 0; i < alarms.size(); ++i) {
            seqs += (i > 0 ? " " : "") + SeqOf(alarms[i]);
        }
        return seqs;
    }
    static std::string Counting(int count) {
        std::string seqs;
        for (int i = 0; i < count; ++i) {
            seqs += (i > 0 ? " " : "") + std::to_string(i);
        }
        return seqs;
    }
    // An existing, empty alarms.xml in dir, for InitAlarm's path check when the definitions are in memory.
    static std::string ExistingFile(const testsupport::TempDir& dir) {
        const std::string xml = dir.path() + "/alarms.xml";
        std::fclose(std::fopen(xml.c_str(), "w"));
        return xml;
    }

    const char* successText() const { return legacy_ ? "send alarmModels success!" : "send alarms success!"; }
    int successLevel() const { return legacy_ ? 2 : 5; }
    const char* logSource() const { return legacy_ ? "../src/AlarmManager" : "../src/AlarmManagerEx"; }

private:
    bool legacy_;
    testsupport::TempDir dir_;
};

}  // namespace sdktest

#endif
