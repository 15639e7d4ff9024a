// Drives either generation through its C interface the same way, so that
// the tests of the send cycle both share run on both.
#ifndef GENERATIONS_H
#define GENERATIONS_H

#include <ostream>
#include <string>

#include "AlarmSdk.h"
#include "AlarmSdkStats.h"
#include "LegacyFixtures.h"
#include "NodewardSim.h"
#include "SdkTestSupport.h"
#include "TestEnv.h"

namespace sdktest {

enum class Generation { Current, Legacy };

inline std::ostream& operator<<(std::ostream& out, Generation g) {
    return out << (g == Generation::Current ? "Current" : "Legacy");
}

// The legacy alarm the driver sends: id 7, one location parameter "seq".
inline stAlarmItems* SeqDefinition() {
    return legacytest::Definition(7, "orders", "Sequence", "序号告警", {{"seq", "Seq", "序号", "STRING", 0, 0, {}}});
}

class GenerationDriver {
public:
    explicit GenerationDriver(Generation generation) : generation_(generation) {}

    // Initialises the generation (the legacy one with SeqDefinition loaded).
    bool init() {
        if (generation_ == Generation::Current) {
            return ZEBInitAlarmSDK() == 0;
        }
        legacytest::InstallDefinitions({SeqDefinition()});
        const std::string xml = dir_.path() + "/alarms.xml";
        std::FILE* f = std::fopen(xml.c_str(), "w");
        if (f == nullptr) {
            return false;
        }
        std::fclose(f);
        return InitAlarm(xml.c_str(), "svc-1", "inst-1", 0) == 1;
    }

    // Sends alarm 7 carrying seq; true when the call succeeded (the legacy
    // SendAlarm reports success also for an alarm its manager refuses).
    bool send(const std::string& seq) {
        if (generation_ == Generation::Current) {
            return SendCAlarm([](_ZEBAlarm* a) { return ZEBSendAlarm(a); }, "7", ZEB_ALARM_GENERATE, {{"seq", seq}}) ==
                   0;
        }
        AlarmObject* object = AllocAlarmObject("7", 0, 1);
        if (object == nullptr || AppendParam(object, "seq", seq.c_str()) != 1) {
            FreeAlarmObject(object);
            return false;
        }
        const int result = SendAlarm(object);
        FreeAlarmObject(object);
        return result == 1;
    }

    // The generation's manager's counters and flush.
    alarmsdk_stats stats() const {
        alarmsdk_stats s = {};
        s.size = sizeof(s);
        const int result =
            generation_ == Generation::Current ? alarmsdk_get_process_stats(&s) : alarmsdk_get_legacy_stats(&s);
        EXPECT_EQ(0, result);
        return s;
    }
    int flush(uint32_t timeoutMs) const {
        return generation_ == Generation::Current ? alarmsdk_flush_process(timeoutMs)
                                                  : alarmsdk_flush_legacy(timeoutMs);
    }

    // The seq an arrived alarm carries.
    static std::string SeqOf(const nodeward::ReceivedAlarm& alarm) {
        if (!alarm.legacy) {
            return Param(alarm, "seq");
        }
        const std::string prefix = "EN:Seq=";
        const std::size_t end = alarm.location.find("##");
        return alarm.location.compare(0, prefix.size(), prefix) == 0 ? alarm.location.substr(prefix.size(), end - prefix.size())
                                                                      : "";
    }

    const char* successText() const {
        return generation_ == Generation::Current ? "send alarms success!" : "send alarmModels success!";
    }
    int successLevel() const { return generation_ == Generation::Current ? 5 : 2; }
    const char* logSource() const {
        return generation_ == Generation::Current ? "../src/AlarmManagerEx" : "../src/AlarmManager";
    }

private:
    Generation generation_;
    testsupport::TempDir dir_;
};

}  // namespace sdktest

#endif
