// The bridge killed under load, and one Alertmanager of two stopped: what was accepted still arrives, once.
#include <atomic>
#include <mutex>
#include <thread>

#include "BridgeFixture.h"

namespace bridgetest {
namespace {

TEST_F(BridgeTest, KilledUnderLoadEveryAcceptedAlarmArrivesAndNoneTwice) {
    Start(1, {"--resend", "2"});
    // Alertmanager down meanwhile: what the bridge accepted reaches it only through the state.
    StopPeer(0);
    constexpr int kBatches = 60;
    std::mutex mu;
    std::set<std::string> accepted;  // as the peer shows them, "300100:n"
    std::atomic<int> acceptedBatches{0};
    std::thread sender([&] {
        for (int b = 0; b < kBatches; ++b) {
            std::string alarms;  // 50 raises, each its own alert (parameter n)
            for (int k = 0; k < 50; ++k) {
                alarms += (k == 0 ? "" : ",") + CurrentAlarm("300100", 1, "n=" + std::to_string(b * 50 + k));
            }
            // Sent again until accepted, as the SDK does (bounded here).
            int tries = 0;
            for (; tries < 1000 && Push(CurrentDocument(alarms)).second != "0"; ++tries) {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
            std::lock_guard<std::mutex> lock(mu);
            for (int k = 0; tries < 1000 && k < 50; ++k) {
                accepted.insert("300100:" + std::to_string(b * 50 + k));
            }
            acceptedBatches += tries < 1000;
        }
    });
    ASSERT_TRUE(WaitUntil([&] { return acceptedBatches >= 20; }, 30000));
    StopBridge(SIGKILL);  // while the sender is posting
    StartBridge();
    sender.join();
    EXPECT_EQ(acceptedBatches, kBatches);
    StartPeer(0);
    std::vector<std::string> shown;  // sorted, so a duplicate is next to its twin
    EXPECT_TRUE(WaitUntil(
        [&] {
            shown = Firing(0);
            return std::includes(shown.begin(), shown.end(), accepted.begin(), accepted.end());
        },
        20000));
    EXPECT_EQ(std::adjacent_find(shown.begin(), shown.end()), shown.end()) << "an alarm arrived as two alerts";
}

TEST_F(BridgeTest, PeerThatWasDownGetsTheCurrentStateWhenItReturns) {
    Start(2, {"--resend", "2"});
    const std::vector<std::string> sda{"300012:sda"}, now{"300012:sdb", "300012:sdc"};
    EXPECT_EQ(Push(CurrentDocument(CurrentAlarm("300012", 1, "disk=sda"))).second, "0");
    EXPECT_TRUE(WaitUntil([&] { return Firing(0) == sda && Firing(1) == sda; }, 10000));
    StopPeer(1);
    const std::string later = CurrentAlarm("300012", 1, "disk=sdb") + "," + CurrentAlarm("300012", 1, "disk=sdc");
    EXPECT_EQ(Push(CurrentDocument(CurrentAlarm("300012", 2, "disk=sda") + "," + later)).second, "0");
    EXPECT_TRUE(WaitUntil([&] { return Firing(0) == now; }, 10000));
    // The stopped peer is reported down, with its failed posts counted; the other is not.
    const std::string down = "{peer=\"" + PeerUrl(1) + "\"}", running = "{peer=\"" + PeerUrl(0) + "\"}";
    EXPECT_TRUE(WaitUntil([&] { return Metric("alarm_bridge_peer_up" + down) == "0"; }, 10000));
    EXPECT_GT(std::stoll("0" + Metric("alarm_bridge_peer_failures_total" + down)), 0);
    EXPECT_EQ(Words(Metric("alarm_bridge_peer_up" + running), Metric("alarm_bridge_peer_failures_total" + running)),
              "1 0");
    StartPeer(1);
    EXPECT_TRUE(WaitUntil([&] { return Firing(1) == now; }, 20000)) << testing::PrintToString(Firing(1));
    EXPECT_TRUE(WaitUntil([&] { return Metric("alarm_bridge_peer_up" + down) == "1"; }, 10000));
}

}  // namespace
}  // namespace bridgetest
