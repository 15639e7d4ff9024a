// Alarms of both generations through the bridge into one real Alertmanager; documents the bridge must refuse and a
// state it cannot write store nothing.
#include <sys/resource.h>

#include <functional>

#include "Bridge.h"
#include "BridgeFixture.h"
#include "BridgeProgram.h"

namespace bridgetest {
namespace {

const std::string kDisk = "alarm_id=300012,alertname=Alarm 300012,app_id=app-7,disk=sda,node=10.0.0.1,service=orders";
const std::string kLink =
    "alarm_id=300020,alertname=Alarm 300020,app_id=app-7,interface=eth1,node=10.0.0.1,service=orders";
const std::string kLegacy =
    "alarm_id=300001,alertname=Disk usage high,app_id=app-7,location=Disk=sda,node=10.0.0.5,service=storage";

// Documents the bridge must refuse store nothing; then raises and clears of both generations, each its own alert.
TEST_F(BridgeTest, RefusesWhatIsNotADocumentAndRaisesAndClearsBothGenerationsAsTheirOwnAlerts) {
    Start();
    const auto encode = nodeward::EncodeBase64;
    const std::pair<std::string, long> bad[] = {
        {"%%%%", 400},                                                        // not base64
        {encode(CurrentDocument(CurrentAlarm("1", 1, "a=b"))) + "\n", 400},   // whitespace in base64
        {encode("{\"business\":"), 400},                                      // not JSON
        {encode("{\"payload\":{\"alarmList\":[]}}"), 400},                    // neither generation
        {encode(CurrentDocument("{\"appId\":\"x\",\"alarmType\":1}")), 400},  // an alarm without an id
        {encode(CurrentDocument("\"x\"")), 400},                              // an alarm list of texts
        {std::string(5u << 20, 'A'), 413},                                    // over the bound
    };
    for (const auto& [body, status] : bad) {
        EXPECT_EQ(Push(body, true), std::make_pair(status, std::string("1"))) << body.substr(0, 40);
    }
    // clang-format off
    const struct {
        const char* what;
        std::string document, answer;
        std::vector<std::string> firing;  // sorted
    } steps[] = {
        {"two raises", CurrentDocument(CurrentAlarm("300012", 1, "disk=sda") + "," +
                                       CurrentAlarm("300020", 1, "interface=eth1")), "0", {kDisk, kLink}},
        {"a clear with the raise's parameters", CurrentDocument(CurrentAlarm("300020", 2, "interface=eth1")), "0",
         {kDisk}},
        {"a clear of another parameter", CurrentDocument(CurrentAlarm("300012", 2, "disk=sdb")), "0", {kDisk}},
        {"legacy raise", LegacyDocument(LegacyAlarm("300001", 0, "sda")), "OK", {kLegacy, kDisk}},
        {"legacy clear of another location", LegacyDocument(LegacyAlarm("300001", 1, "sdb")), "OK", {kLegacy, kDisk}},
        {"legacy clear", LegacyDocument(LegacyAlarm("300001", 1, "sda")), "OK", {kDisk}},
    };
    // clang-format on
    for (const auto& step : steps) {
        SCOPED_TRACE(step.what);
        EXPECT_EQ(Push(step.document), std::make_pair(200L, step.answer));
        EXPECT_TRUE(WaitUntil([&] { return Firing(0, true) == step.firing; }, 10000));
        for (const Alert& alert : Alerts(0)) {
            if (auto a = alert.annotations; alert.labels.at("alarm_id") == "300001") {
                EXPECT_EQ(Words(a["name_en"], a["name_zh"], a["location_zh"], a["append_info_en"], a["append_info_zh"],
                                a["severity"], a["service_instance"]),
                          "Disk usage high 磁盘使用率高 磁盘=sda Usage=95 使用率=95 major inst-s");
            }
        }
    }
    // Seven refusals; seven changes in six posts, one alert still firing.
    EXPECT_EQ(Words(Metric("alarm_bridge_requests_refused_total"), Metric("alarm_bridge_alarms_stored_total"),
                    Metric("alarm_bridge_alerts_active"), Metric("alarm_bridge_peer_up{peer=\"" + PeerUrl(0) + "\"}")),
              "7 7 1 1");
    std::string table, error;
    ASSERT_TRUE(bridge::StatusTable(State(), &table, &error)) << error;
    EXPECT_NE(table.find("300012    orders          app-7         10.0.0.1        Alarm 300012 disk=sda\n1 active\n"),
              std::string::npos)
        << table;
}

// A state that cannot be written is answered failure, so the service sends the batch again, and nothing of it is
// stored; once writes work again the same batch is accepted.
TEST(BridgeState, UnwritableStateIsAnsweredFailureNotAccepted) {
    sqlite3* other = nullptr;
    rlimit saved{};
    const struct {
        const char* what;
        std::function<void(const std::string& state)> block;
        std::function<void()> unblock;
    } ways[] = {
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
    for (const auto& way : ways) {
        SCOPED_TRACE(way.what);
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
        EXPECT_EQ(Words(refused.status, refused.body, accepted.status, accepted.body),
                  Words(503, nodeward::FailureAnswer(true), 200, nodeward::SuccessAnswer(true)));
        EXPECT_NE(before.find("\n0 active\n"), std::string::npos) << before;
        EXPECT_NE(after.find("\n1 active\n"), std::string::npos) << after;
    }
}

}  // namespace
}  // namespace bridgetest
