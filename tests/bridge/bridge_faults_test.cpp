// The bridge killed under load, and one Alertmanager of two stopped: what
// was accepted still arrives, once.
#include <atomic>
#include <cstdio>
#include <mutex>
#include <set>
#include <thread>

#include "BridgeFixture.h"

namespace bridgetest {
namespace {

// 50 raises, each its own alert (parameter n).
std::string Batch(int batch) {
    std::string alarms;
    for (int k = 0; k < 50; ++k) {
        alarms += (k == 0 ? "" : ",") + CurrentAlarm("300100", 1, "n=" + std::to_string(batch * 50 + k));
    }
    return CurrentDocument(alarms);
}

std::set<std::string> Ns(const std::vector<Alert>& alerts) {
    std::set<std::string> out;
    for (const Alert& alert : alerts) {
        out.insert(alert.labels.count("n") != 0 ? alert.labels.at("n") : "?");
    }
    return out;
}

TEST_F(BridgeTest, KilledUnderLoadEveryAcceptedAlarmArrivesAndNoneTwice) {
    Alertmanagers peers(dir, 1);
    BridgeRun bridge(dir, {peers.url(0)}, 2);
    bridge.start();
    // Alertmanager down meanwhile: what the bridge accepted reaches it only through the state.
    peers.stop(0);
    constexpr int kBatches = 60;
    std::mutex mu;
    std::set<std::string> accepted;
    std::atomic<int> retries{0}, acceptedBatches{0};
    std::thread sender([&] {
        for (int b = 0; b < kBatches; ++b) {
            // Sent again until accepted, as the SDK does (bounded here).
            int tries = 0;
            for (; tries < 1000 && bridge.push(Batch(b)).second != "0"; ++tries) {
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
            retries += tries;
            if (tries == 1000) {
                continue;
            }
            ++acceptedBatches;
            std::lock_guard<std::mutex> lock(mu);
            for (int k = 0; k < 50; ++k) {
                accepted.insert(std::to_string(b * 50 + k));
            }
        }
    });
    ASSERT_TRUE(WaitUntil([&] { return acceptedBatches >= 20; }, 30000));
    bridge.stop(SIGKILL);  // while the sender is posting
    const int atKill = acceptedBatches;
    bridge.start();
    sender.join();
    peers.start(0);
    std::lock_guard<std::mutex> lock(mu);
    std::set<std::string> shown;
    EXPECT_TRUE(WaitUntil(
        [&] {
            shown = Ns(peers.alerts(0));
            return std::includes(shown.begin(), shown.end(), accepted.begin(), accepted.end());
        },
        20000));
    const auto alerts = peers.alerts(0);
    EXPECT_EQ(alerts.size(), Ns(alerts).size()) << "an alarm arrived as two alerts";
    EXPECT_LE(alerts.size(), static_cast<std::size_t>(kBatches * 50));
    EXPECT_EQ(acceptedBatches, kBatches);
    std::printf(
        "crash-restart: %d batches of 50 sent, %d accepted before SIGKILL, %d in all after %d posts sent "
        "again; %zu alarms accepted, %zu alerts in Alertmanager, every accepted one among them: %s\n",
        kBatches, atKill, acceptedBatches.load(), retries.load(), accepted.size(), alerts.size(),
        std::includes(shown.begin(), shown.end(), accepted.begin(), accepted.end()) ? "yes" : "no");
}

TEST_F(BridgeTest, PeerThatWasDownGetsTheCurrentStateWhenItReturns) {
    Alertmanagers peers(dir, 2);
    BridgeRun bridge(dir, {peers.url(0), peers.url(1)}, 2);
    bridge.start();
    const auto firing = [&](int i) {
        std::set<std::string> ids;
        for (const Alert& alert : peers.alerts(i)) {
            ids.insert(alert.labels.at("alarm_id") + ":" + alert.labels.at("disk"));
        }
        return std::string(testsupport::Words(ids.size())) + " " + (ids.empty() ? "" : *ids.begin()) +
               (ids.size() > 1 ? " " + *ids.rbegin() : "");
    };
    EXPECT_EQ(bridge.push(CurrentDocument(CurrentAlarm("300012", 1, "disk=sda"))).second, "0");
    EXPECT_TRUE(WaitUntil([&] { return firing(0) == "1 300012:sda" && firing(1) == "1 300012:sda"; }, 10000));
    peers.stop(1);
    EXPECT_EQ(
        bridge
            .push(CurrentDocument(CurrentAlarm("300012", 2, "disk=sda") + "," + CurrentAlarm("300012", 1, "disk=sdb") +
                                  "," + CurrentAlarm("300012", 1, "disk=sdc")))
            .second,
        "0");
    EXPECT_TRUE(WaitUntil([&] { return firing(0) == "2 300012:sdb 300012:sdc"; }, 10000)) << firing(0);
    const std::string whileDown = firing(0);
    peers.start(1);
    EXPECT_TRUE(WaitUntil([&] { return firing(1) == "2 300012:sdb 300012:sdc"; }, 20000)) << firing(1);
    std::printf(
        "peer outage: while peer 2 was down peer 1 showed [%s]; peer 2 after its return [%s]; "
        "failed posts to peer 2: %s\n",
        whileDown.c_str(), firing(1).c_str(),
        bridge.metric("alarm_bridge_peer_failures_total{peer=\"" + peers.url(1) + "\"}").c_str());
}

}  // namespace
}  // namespace bridgetest
