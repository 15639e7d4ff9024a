// The bridge's web page in a real browser: Alertmanager serves it, headless Chromium runs its script, and the alarms
// the services raised are on it.
#include <cstdlib>
#include <regex>

#include "AlarmSdk.h"
#include "AlarmSdkStats.h"
#include "BridgeFixture.h"

namespace bridgetest {
namespace {

constexpr char kChromium[] = "/usr/bin/chromium";

TEST_F(BridgeTest, WebPageShowsTheAlarmsOfBothGenerationsWithTheirTexts) {
    if (access(kChromium, X_OK) != 0) {
        GTEST_SKIP() << kChromium << " is not installed (Debian package chromium)";
    }
    Start(1, {}, ALARM_BRIDGE_UI_DIR);
    LoopbackTransport transport;
    ScopedEnv app("APPID", "demo-app"), name("APPNAME", "orders-app"),
        agent("NODEWARD_ENDPOINT", BridgeUrl().substr(7).c_str()), server("HOSTING_SERVER_IP", "10.0.0.5");
    // A current alarm whose parameter is markup: the page must show it as text.
    ASSERT_EQ(0, ZEBInitAlarmSDK());
    ASSERT_EQ(0, ZEBRegisterInfo("orders", "orders-label"));
    _ZEBAlarm* alarm = ZEBAllocAlarm("300012", ZEB_ALARM_GENERATE);
    ZEBAppendAlarmParam(alarm, "disk", "<i>sda</i>");
    ZEBSendAlarm(alarm);
    ZEBFreeAlarm(alarm);
    // A legacy alarm with its texts from the example definitions, as the demo's legacy service raises it.
    ASSERT_EQ(1, InitAlarm(ALARMSDK_EXAMPLES_DIR "/legacy/alarms.xml", "storage-svc", "storage-svc-0", 1));
    AlarmObject* legacy = AllocAlarmObject("300001", 0, 2);
    AppendParam(legacy, "diskName", "sdb");
    AppendParam(legacy, "usage", "95");
    EXPECT_EQ(1, SendAlarm(legacy));
    FreeAlarmObject(legacy);
    EXPECT_EQ(ALARMSDK_FLUSH_DELIVERED, alarmsdk_flush_legacy(10000));
    ASSERT_TRUE(WaitUntil([&] { return Alerts(0).size() == 2; }, 15000)) << Alerts(0).size();

    // The page after its script ran, as the browser's DOM serialises it.
    const std::string command =
        std::string("timeout -k 5 60 ") + kChromium +
        " --headless --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking"
        " --disable-component-update --disable-sync --user-data-dir=" +
        dir.path() + "/profile --virtual-time-budget=3000 --dump-dom '" + PeerUrl(0) + "/' >" + dir.path() +
        "/dom.html 2>" + dir.path() + "/chromium.log";
    ASSERT_EQ(std::system(command.c_str()), 0) << "chromium did not finish";
    std::stringstream dom;
    dom << std::ifstream(dir.path() + "/dom.html").rdbuf();
    const std::string page = dom.str();
    const char* expected[] = {
        "2 active",         // the status line: the script read the alerts
        "<h2>orders</h2>",  // one table per service
        "<h2>storage</h2>",
        ">Alarm 300012 (300012)<",         // alert name and alarm id
        ">Disk usage too high (300001)<",  // the legacy alarm's English name names it
        "name_zh: 磁盘使用率过高",         // and its Chinese name is among the texts
        "location_en: Disk=sdb",
        "location_zh: 磁盘=sdb",
        ">major<",  // the legacy alarm's level
        ">demo-app<",
        "disk=&lt;i&gt;sda&lt;/i&gt;",  // markup in data stays text
    };
    for (const char* piece : expected) {
        EXPECT_NE(page.find(piece), std::string::npos) << piece << "\n" << page;
    }
    EXPECT_EQ(page.find("<i>sda"), std::string::npos) << "data became markup";
    const std::regex row("<tr class=\"alert\">");
    EXPECT_EQ(std::distance(std::sregex_iterator(page.begin(), page.end(), row), std::sregex_iterator()), 2);
}

}  // namespace
}  // namespace bridgetest
