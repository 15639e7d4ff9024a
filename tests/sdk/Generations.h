// Drives either generation through its C interface the same way, so that the tests of the shared send cycle run on both.
#ifndef GENERATIONS_H
#define GENERATIONS_H

#include <cstdio>

#include "AlarmSdkStats.h"
#include "LegacyFixtures.h"
#include "SdkTestSupport.h"

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
        if (!legacy_) {
            return SendSingleton("7", seq) == 0;
        }
        return SendLegacy("7", 0, {{"seq", seq.c_str()}}, 1) == 1;
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
        const std::string prefix = "EN:Seq=";
        if (!alarm.legacy) {
            return Param(alarm, "seq");
        }
        return alarm.location.rfind(prefix, 0) == 0
                   ? alarm.location.substr(prefix.size(), alarm.location.find("##") - prefix.size()) : "";
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
