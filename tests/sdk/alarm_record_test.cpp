#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "AlarmBuildAlarmConfInfo.h"
#include "AlarmEx.h"
#include "AlarmFixtures.h"

namespace {

EU_GEN_CLEAR_TYPE TypeFromInt(int value) { return static_cast<EU_GEN_CLEAR_TYPE>(value); }

TEST(AlarmExId, BoundedCopyKeepsNineCharactersAndEmptiesLongerIds) {
    EXPECT_STREQ("123456789", AlarmEx("123456789", ZEB_ALARM_GENERATE).getAlarmId());
    // Ten or more characters do not fit: the id is left empty, never cut.
    EXPECT_STREQ("", AlarmEx("1234567890", ZEB_ALARM_GENERATE).getAlarmId());
    EXPECT_STREQ("", AlarmEx("12345678901234567890", ZEB_ALARM_GENERATE).getAlarmId());
    EXPECT_STREQ("", AlarmEx("", ZEB_ALARM_GENERATE).getAlarmId());
    EXPECT_STREQ("", AlarmEx(nullptr, ZEB_ALARM_GENERATE).getAlarmId());
}

TEST(AlarmExId, SetterUsesTheSameBoundedCopy) {
    AlarmEx alarm("42", ZEB_ALARM_GENERATE);
    alarm.setAlarmId("987654321");
    EXPECT_STREQ("987654321", alarm.getAlarmId());
    // A failed copy empties the id rather than keeping the old one.
    alarm.setAlarmId("9876543210");
    EXPECT_STREQ("", alarm.getAlarmId());
    alarm.setAlarmId("7");
    EXPECT_STREQ("7", alarm.getAlarmId());
    // Copying the record's own id onto itself is harmless.
    alarm.setAlarmId(alarm.getAlarmId());
    EXPECT_STREQ("7", alarm.getAlarmId());
}

TEST(AlarmExType, StoresTheWireValue) {
    EXPECT_EQ(1, AlarmEx("1234", ZEB_ALARM_GENERATE).getAlarmType());
    EXPECT_EQ(2, AlarmEx("1234", ZEB_ALARM_CLEAR).getAlarmType());
    EXPECT_EQ(0, AlarmEx("1234", TypeFromInt(7)).getAlarmType());
    EXPECT_EQ(0, AlarmEx("1234", TypeFromInt(-1)).getAlarmType());
    EXPECT_EQ(-1, AlarmEx().getAlarmType());
}

TEST(AlarmExDefaults, ConstructorsGiveUnsetMarkers) {
    const AlarmEx withId("1", ZEB_ALARM_GENERATE);
    EXPECT_EQ(-1, withId.getRsetClear());
    EXPECT_EQ(0, withId.GetAlarmTime());
    EXPECT_EQ(0, withId.getServicePort());
    EXPECT_TRUE(withId.getParamMap().empty());
    EXPECT_EQ("", withId.getServiceName());
    EXPECT_EQ("", withId.GetServiceIp());

    const AlarmEx plain;
    const char zeros[ZEB_ALARM_ID_SIZE] = {};
    EXPECT_EQ(0, std::memcmp(zeros, plain.getAlarmId(), ZEB_ALARM_ID_SIZE));
    EXPECT_EQ(-1, plain.getRsetClear());
    EXPECT_EQ(0, plain.GetAlarmTime());
    EXPECT_EQ(0, plain.getServicePort());
    EXPECT_TRUE(plain.getParamMap().empty());
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

TEST(AlarmExParameters, MapIsInByteOrderOfNames) {
    AlarmEx alarm("1", ZEB_ALARM_GENERATE);
    for (const char* name : {"usage", "disk", "Zeta", "alpha", "_x", "\xc3\xa9t\xc3\xa9"}) {
        alarm.appendParameter(name, "v");
    }
    std::string order;
    for (const auto& p : alarm.getParamMap()) {
        order += p.first + ",";
    }
    EXPECT_EQ("Zeta,_x,alpha,disk,usage,\xc3\xa9t\xc3\xa9,", order);
}

TEST(AlarmExAccessors, SixtyFourBitScalarsRoundTrip) {
    AlarmEx alarm("1", ZEB_ALARM_GENERATE);
    alarm.setRsetClear(1L << 40);
    alarm.ResetAlarmTime(1700000000123L);
    alarm.setServicePort(65535);
    EXPECT_EQ(1L << 40, alarm.getRsetClear());
    EXPECT_EQ(1700000000123L, alarm.GetAlarmTime());
    EXPECT_EQ(65535, alarm.getServicePort());
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
