// The lines people read and the endpoint syntax.
#include <gtest/gtest.h>

#include "SimTestHelpers.h"

using namespace simtest;
using nodeward::FormatAlarmLine;
using nodeward::ReceivedAlarm;

namespace {

ReceivedAlarm OnlyAlarm(const std::string& document) {
    const nodeward::PushDocument doc = nodeward::ReadPushBody(Encode(document));
    EXPECT_TRUE(doc.ok) << doc.reason;
    EXPECT_EQ(doc.alarms.size(), 1u);
    return doc.alarms.empty() ? ReceivedAlarm() : doc.alarms[0];
}

TEST(SimFormat, CurrentAlarmLines) {
    ReceivedAlarm alarm = OnlyAlarm(CurrentDocument(CurrentAlarm("300012", 1)));
    alarm.serviceIp = "10.0.0.5";
    EXPECT_EQ(FormatAlarmLine(alarm),
              "alarm 300012 generate service=orders app=app-7 time=2026-11-27T13:02:07.123Z from=10.0.0.5:8080 "
              "params: disk=sda usage=95");
    alarm.alarmType = 2;
    alarm.parameters.clear();
    EXPECT_EQ(FormatAlarmLine(alarm),
              "alarm 300012 clear service=orders app=app-7 time=2026-11-27T13:02:07.123Z from=10.0.0.5:8080");
    alarm.alarmType = 0;
    EXPECT_EQ(FormatAlarmLine(alarm).rfind("alarm 300012 type=0 service=orders", 0), 0u);
}

TEST(SimFormat, AnnouncementLines) {
    // A reset-clear announcement carries the first seven keys only.
    const std::string announce =
        "{\"alarmId\":\"0\",\"appId\":\"app-7\",\"occurTime\":0,\"serviceName\":\"orders\","
        "\"serviceIp\":\"10.0.0.5\",\"servicePort\":8080,\"serviceLabel\":\"orders-label\"}";
    const ReceivedAlarm alarm = OnlyAlarm(CurrentDocument(announce));
    EXPECT_EQ(alarm.keys.size(), 7u);
    EXPECT_EQ(alarm.alarmType, -1);
    EXPECT_EQ(FormatAlarmLine(alarm),
              "announce service=orders label=orders-label app=app-7 time=1970-01-01T00:00:00.000Z "
              "from=10.0.0.5:8080");

    const std::string legacyAnnounce =
        "{\"alarmName\":\"\",\"appId\":\"app-7\",\"alarmId\":\"0\",\"serviceName\":\"orders\","
        "\"serviceIp\":\"10.0.0.5\",\"restClearAlarmList\":[{\"alarmId\":\"1001\"},{\"alarmId\":\"1002\"}],"
        "\"occurTime\":1795784527123}";
    const ReceivedAlarm legacy = OnlyAlarm(LegacyDocument(legacyAnnounce));
    EXPECT_EQ(legacy.clearAlarmIds, (std::vector<std::string>{"1001", "1002"}));
    EXPECT_EQ(FormatAlarmLine(legacy),
              "legacy announce service=orders app=app-7 time=2026-11-27T13:02:07.123Z from=10.0.0.5 "
              "clears=1001,1002");
}

TEST(SimFormat, LegacyAlarmLine) {
    const ReceivedAlarm alarm = OnlyAlarm(LegacyDocument(LegacyAlarm("1001", 1)));
    EXPECT_EQ(FormatAlarmLine(alarm),
              "legacy alarm 1001 clear service=orders app=app-7 raised=2026-11-27T13:02:07.123Z "
              "cleared=2026-11-27T13:02:08.000Z "
              "name=[Disk full | disk] location=[Disk=sda | Disk=sda] append=[Usage=95 | Usage=95]");
}

TEST(SimFormat, ParseEndpoint) {
    std::string host;
    std::string path;
    int port = -1;
    ASSERT_TRUE(nodeward::ParseEndpoint("127.0.0.1:7888", &host, &port, &path));
    EXPECT_EQ(host, "127.0.0.1");
    EXPECT_EQ(port, 7888);
    EXPECT_EQ(path, "");
    ASSERT_TRUE(nodeward::ParseEndpoint("[::1]:0", &host, &port, &path));
    EXPECT_EQ(host, "::1");
    EXPECT_EQ(port, 0);
    ASSERT_TRUE(nodeward::ParseEndpoint("unix:/run/agent.sock", &host, &port, &path));
    EXPECT_EQ(path, "/run/agent.sock");
    EXPECT_EQ(host, "");

    for (const char* bad : {"", "7888", ":7888", "host:", "host:65536", "host:-1", "host:80x", "::1:80",
                                  "unix:", "[::1:80"}) {
        EXPECT_FALSE(nodeward::ParseEndpoint(bad, &host, &port, &path)) << bad;
    }
    EXPECT_FALSE(nodeward::ParseEndpoint("unix:/" + std::string(200, 'a'), &host, &port, &path));
}

}  // namespace
