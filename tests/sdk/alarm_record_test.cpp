#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "AlarmBuildAlarmConfInfo.h"
#include "AlarmEx.h"
#include "SdkTestSupport.h"

namespace {

EU_GEN_CLEAR_TYPE TypeFromInt(int value) { return static_cast<EU_GEN_CLEAR_TYPE>(value); }

TEST(AlarmExId, BoundedCopyKeepsNineCharactersAndEmptiesLongerIds) {
    AlarmEx alarm("42", ZEB_ALARM_GENERATE);
    // Ten or more characters do not fit: the id is left empty, never cut or kept.
    for (const char* id : {"123456789", "1234567890", "12345678901234567890", "", "7"}) {
        const std::string expected = std::strlen(id) < 10 ? id : "";
        EXPECT_EQ(expected, AlarmEx(id, ZEB_ALARM_GENERATE).getAlarmId());
        alarm.setAlarmId(id);
        EXPECT_EQ(expected, alarm.getAlarmId());
    }
    alarm.setAlarmId(alarm.getAlarmId());  // onto itself
    EXPECT_STREQ("7", alarm.getAlarmId());
    EXPECT_STREQ("", AlarmEx(nullptr, ZEB_ALARM_GENERATE).getAlarmId());
}

TEST(AlarmExType, StoresTheWireValueAndUnsetMarkers) {
    EXPECT_EQ((std::vector<int>{1, 2, 0, 0, -1}),
              (std::vector<int>{AlarmEx("1", ZEB_ALARM_GENERATE).getAlarmType(),
                                AlarmEx("1", ZEB_ALARM_CLEAR).getAlarmType(), AlarmEx("1", TypeFromInt(7)).getAlarmType(),
                                AlarmEx("1", TypeFromInt(-1)).getAlarmType(), AlarmEx().getAlarmType()}));
    const AlarmEx plain;
    const char zeros[ZEB_ALARM_ID_SIZE] = {};
    EXPECT_EQ(0, std::memcmp(zeros, plain.getAlarmId(), ZEB_ALARM_ID_SIZE));
    EXPECT_EQ(-1, plain.getRsetClear());
}

TEST(AlarmExParameters, FirstValueWinsAndNullIsEmpty) {
    AlarmEx alarm("1", ZEB_ALARM_GENERATE);
    alarm.appendParameter("p1", "a");
    alarm.appendParameter("p1", "b");
    alarm.appendParameter("p2", nullptr);
    alarm.appendParameter(nullptr, "x");
    alarm.appendParameter(nullptr, "y");
    const std::map<std::string, std::string> expected{{"", "x"}, {"p1", "a"}, {"p2", ""}};
    EXPECT_EQ(expected, alarm.getParamMap());
}

int64_t WallMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

TEST(AlarmClock, WholeMillisecondsOfTheWallClock) {
    // Sample across several millisecond boundaries so that every part of a
    // millisecond is seen; truncated, not rounded, the value is never ahead
    // of the truncated wall clock.
    const int64_t start = WallMs();
    for (int i = 0; i < 2000000 && WallMs() < start + 10; ++i) {
        const int64_t before = WallMs();
        const uint64_t now = ALM_GetCurrMs();
        const int64_t after = WallMs();
        ASSERT_LE(static_cast<uint64_t>(before), now);
        ASSERT_LE(now, static_cast<uint64_t>(after));
    }
}

}  // namespace
