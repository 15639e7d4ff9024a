// The bridge's core, apart from HTTP: a push request in, its answer out
// (after the alarms are committed), forwarders for the peers, and the
// housekeeping thread (resolved rows purged, alarm checks sent).
#ifndef ALARM_BRIDGE_BRIDGE_H
#define ALARM_BRIDGE_BRIDGE_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "AlarmStore.h"
#include "BridgeOptions.h"
#include "PeerForwarder.h"

namespace bridge {

struct HttpAnswer {
    unsigned int status = 200;
    std::string body;  // base64 of the answer document, as the agent answers
};

class Bridge {
public:
    explicit Bridge(BridgeOptions options);
    ~Bridge();
    Bridge(const Bridge&) = delete;
    Bridge& operator=(const Bridge&) = delete;

    // Opens the state and starts forwarding; forward=false keeps the peers
    // and checks idle (the benchmarks measure ingest alone).
    bool start(std::string* error, bool forward = true);
    void stop();

    // One POST /om/v1/request body: answered "accepted" only once committed.
    HttpAnswer push(const std::string& body);
    // A body over the bound, dropped unread.
    HttpAnswer tooLarge(std::size_t limit);
    // GET /metrics, the Prometheus text format.
    std::string metrics();

private:
    void housekeeping();
    void sendChecks();

    BridgeOptions options_;
    AlarmStore store_;
    Delivered delivered_;
    std::vector<std::unique_ptr<PeerForwarder>> peers_;
    StoreConnection metricsReader_;
    std::atomic<uint64_t> received_{0}, stored_{0}, ignored_{0}, refused_{0}, storeFailures_{0};
    std::atomic<uint64_t> checks_{0}, checkFailures_{0};
    std::thread housekeeper_;
    std::mutex mu_;
    std::condition_variable cv_;
    bool stopping_ = false;
};

int64_t WallMs();

}  // namespace bridge

#endif
