// Alarms of both generations through the bridge into one real Alertmanager,
// and documents the bridge must refuse without storing them.
#include <sys/resource.h>

#include <functional>

#include "BridgeFixture.h"
#include "Bridge.h"
#include "BridgeProgram.h"

namespace bridgetest {
namespace {

const std::string kDisk = "alarm_id=300012,alertname=Alarm 300012,app_id=app-7,disk=sda,node=10.0.0.1,service=orders";
const std::string kLink =
    "alarm_id=300020,alertname=Alarm 300020,app_id=app-7,interface=eth1,node=10.0.0.1,service=orders";
const std::string kLegacy =
    "alarm_id=300001,alertname=Disk usage high,app_id=app-7,location=Disk=sda,node=10.0.0.5,service=storage";

TEST_F(BridgeTest, RaisesAndClearsBothGenerationsAsTheirOwnAlerts) {
    Alertmanagers peers(dir, 1);
    BridgeRun bridge(dir, {peers.url(0)});
    bridge.start();
    struct Step {
        const char* what;
        std::string document, answer;
        std::vector<std::string> firing;
    };
    const Step steps[] = {
        {"two raises", CurrentDocument(CurrentAlarm("300012", 1, "disk=sda") + "," +
                                       CurrentAlarm("300020", 1, "interface=eth1")), "0", {kDisk, kLink}},
        {"a clear with the raise's parameters", CurrentDocument(CurrentAlarm("300020", 2, "interface=eth1")), "0",
         {kDisk}},
        {"a clear of another parameter resolves nothing", CurrentDocument(CurrentAlarm("300012", 2, "disk=sdb")), "0",
         {kDisk}},
        {"legacy raise", LegacyDocument(LegacyAlarm("300001", 0, "sda")), "OK", {kDisk, kLegacy}},
        {"legacy clear of another location", LegacyDocument(LegacyAlarm("300001", 1, "sdb")), "OK", {kDisk, kLegacy}},
        {"legacy clear", LegacyDocument(LegacyAlarm("300001", 1, "sda")), "OK", {kDisk}},
    };
    for (const Step& step : steps) {
        EXPECT_EQ(bridge.push(step.document), std::make_pair(200L, step.answer)) << step.what;
        auto firing = step.firing;
        std::sort(firing.begin(), firing.end());
        EXPECT_TRUE(WaitUntil([&] { return LabelTexts(peers, 0) == firing; }, 10000)) << step.what;
        if (std::count(firing.begin(), firing.end(), kLegacy) != 0) {
            const auto alerts = peers.alerts(0);
            const auto legacy = std::find_if(alerts.begin(), alerts.end(),
                                             [](const Alert& a) { return a.labels.at("alarm_id") == "300001"; });
            ASSERT_NE(legacy, alerts.end());
            auto a = legacy->annotations;
            EXPECT_EQ(testsupport::Words(a["name_en"], a["name_zh"], a["location_zh"], a["append_info_en"],
                                         a["append_info_zh"], a["severity"], a["service_instance"]),
                      "Disk usage high 磁盘使用率高 磁盘=sda Usage=95 使用率=95 major inst-s")
                << step.what;
        }
    }
    // Seven changes in six posts, one alert still firing.
    EXPECT_EQ(testsupport::Words(bridge.metric("alarm_bridge_alarms_stored_total"),
                                 bridge.metric("alarm_bridge_alerts_active"),
                                 bridge.metric("alarm_bridge_peer_up{peer=\"" + peers.url(0) + "\"}")),
              "7 1 1");
    std::string table, error;
    ASSERT_TRUE(bridge::StatusTable(bridge.state(), &table, &error)) << error;
    EXPECT_NE(table.find("300012    orders          app-7         10.0.0.1        Alarm 300012 disk=sda"),
              std::string::npos)
        << table;
    EXPECT_NE(table.find("\n1 active\n"), std::string::npos) << table;
}

TEST_F(BridgeTest, RefusesWhatIsNotADocumentAndStoresNothing) {
    Alertmanagers peers(dir, 1);
    BridgeRun bridge(dir, {peers.url(0)});
    bridge.start();
    const auto encode = nodeward::EncodeBase64;
    struct Bad {
        const char* what;
        std::string body;
        long status;
    };
    const Bad bad[] = {
        {"not base64", "%%%%", 400},
        {"whitespace in base64", encode(CurrentDocument(CurrentAlarm("1", 1, "a=b"))) + "\n", 400},
        {"not JSON", encode("{\"business\":"), 400},
        {"neither generation", encode("{\"payload\":{\"alarmList\":[]}}"), 400},
        {"alarm without an id", encode(CurrentDocument("{\"appId\":\"x\",\"alarmType\":1}")), 400},
        {"alarm list of texts", encode(CurrentDocument("\"x\"")), 400},
        {"body over the bound", std::string(5u << 20, 'A'), 413},
    };
    for (const Bad& b : bad) {
        EXPECT_EQ(bridge.push(b.body, true), std::make_pair(b.status, std::string("1"))) << b.what;
    }
    EXPECT_EQ(testsupport::Words(bridge.metric("alarm_bridge_requests_refused_total"),
                                 bridge.metric("alarm_bridge_alarms_stored_total")),
              "7 0");
    // The bridge still serves, and the first alert to arrive is the only one.
    EXPECT_EQ(bridge.push(CurrentDocument(CurrentAlarm("300012", 1, "disk=sda"))), std::make_pair(200L, std::string("0")));
    EXPECT_TRUE(WaitUntil([&] { return LabelTexts(peers, 0) == std::vector<std::string>{kDisk}; }, 10000));
}

}  // namespace
}  // namespace bridgetest

namespace bridgetest {
namespace {

// A state that cannot be written is answered failure, so the service sends
// the batch again, and nothing of it is stored; once writes work again the
// same batch is accepted.
TEST(BridgeState, UnwritableStateIsAnsweredFailureNotAccepted) {
    sqlite3* other = nullptr;
    rlimit saved{};
    struct Way {
        const char* what;
        std::function<void(const std::string& state)> block;
        std::function<void()> unblock;
    };
    const Way ways[] = {
        {"another writer holds it past the bridge's wait",
         [&](const std::string& state) {
             ASSERT_EQ(sqlite3_open(state.c_str(), &other), SQLITE_OK);
             ASSERT_EQ(sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
         },
         [&] {
             sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr);
             sqlite3_close(other);
         }},
        // No file of this process may grow: every write fails as on a full disk.
        {"full disk",
         [&](const std::string&) {
             signal(SIGXFSZ, SIG_IGN);
             ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
             const rlimit none{0, saved.rlim_max};
             ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
         },
         [&] { setrlimit(RLIMIT_FSIZE, &saved); }},
    };
    for (const Way& way : ways) {
        TempDir dir;
        bridge::BridgeOptions options;
        options.state = dir.path() + "/state.db";
        bridge::Bridge core(options);
        std::string error, before, after;
        ASSERT_TRUE(core.start(&error, false)) << error;
        const std::string body = nodeward::EncodeBase64(LegacyDocument(LegacyAlarm("300001", 0, "sda")));
        way.block(options.state);
        const bridge::HttpAnswer refused = core.push(body);
        way.unblock();
        ASSERT_TRUE(bridge::StatusTable(options.state, &before, &error)) << error;
        const bridge::HttpAnswer accepted = core.push(body);
        ASSERT_TRUE(bridge::StatusTable(options.state, &after, &error)) << error;
        EXPECT_EQ(testsupport::Words(refused.status, refused.body, accepted.status, accepted.body),
                  testsupport::Words(503, nodeward::FailureAnswer(true), 200, nodeward::SuccessAnswer(true)))
            << way.what;
        EXPECT_NE(before.find("\n0 active\n"), std::string::npos) << way.what << "\n" << before;
        EXPECT_NE(after.find("\n1 active\n"), std::string::npos) << way.what << "\n" << after;
    }
}

}  // namespace
}  // namespace bridgetest
