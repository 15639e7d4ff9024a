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
    const AlarmEx withId("1", ZEB_ALARM_GENERATE);
    EXPECT_EQ((std::vector<long>{-1, 0, -1, 0}), (std::vector<long>{plain.getRsetClear(), plain.GetAlarmTime(),
                                                                   withId.getRsetClear(), withId.GetAlarmTime()}));
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

TEST(AlarmExCopy, QueueCopyLeavesManagerFieldsForTheManager) {
    std::unique_ptr<AlarmEx> source = sdktest::FullAlarm("300012", ZEB_ALARM_CLEAR);
    const AlarmEx copy(source.get());

    EXPECT_STREQ("300012", copy.getAlarmId());
    EXPECT_NE(source->getAlarmId(), copy.getAlarmId());
    EXPECT_EQ(2, copy.getAlarmType());
    EXPECT_EQ(source->getParamMap(), copy.getParamMap());
    EXPECT_EQ("orders", copy.getServiceName());
    EXPECT_EQ("svc-1", copy.getServiceId());
    EXPECT_EQ("inst-1", copy.getServiceInsId());
    EXPECT_EQ("app-7", copy.getAppId());
    EXPECT_EQ("shop", copy.getAppName());
    EXPECT_EQ(8080, copy.getServicePort());
    EXPECT_EQ(1700000000123L, copy.GetAlarmTime());
    EXPECT_EQ("orders-label", copy.getServiceLabel());

    // Not copied: the manager stamps these on its own copy.
    EXPECT_EQ(-1, copy.getRsetClear());
    EXPECT_EQ("", copy.getNodeIp());
    EXPECT_EQ("", copy.getAlarmSource());
    EXPECT_EQ("", copy.GetServiceIp());

    // The copy outlives its source, as queued records do.
    source.reset();
    EXPECT_STREQ("300012", copy.getAlarmId());
    EXPECT_EQ(2u, copy.getParamMap().size());
}

TEST(AlarmExCopy, CopyOfDefaultRecordAndOfNull) {
    AlarmEx plain;
    const AlarmEx fromDefault(&plain);
    EXPECT_STREQ("", fromDefault.getAlarmId());
    EXPECT_EQ(-1, fromDefault.getAlarmType());

    const AlarmEx fromNull(static_cast<AlarmEx*>(nullptr));
    EXPECT_STREQ("", fromNull.getAlarmId());
    EXPECT_EQ(-1, fromNull.getAlarmType());
    EXPECT_EQ(-1, fromNull.getRsetClear());
    EXPECT_EQ(0, fromNull.GetAlarmTime());
    EXPECT_EQ(0, fromNull.getServicePort());
    EXPECT_TRUE(fromNull.getParamMap().empty());
    EXPECT_EQ("", fromNull.getServiceName());
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
