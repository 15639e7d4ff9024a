// One Alertmanager peer: a thread that posts every stored change to it, in
// order, from a cursor of its own, and the whole state again at each resend
// round and after any failure (a peer that was down may have lost its alerts).
#ifndef ALARM_BRIDGE_PEER_FORWARDER_H
#define ALARM_BRIDGE_PEER_FORWARDER_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "AlarmStore.h"

namespace bridge {

// Shared by the peers: what at least one of them has accepted.
class Delivered {
public:
    // Rows up to seq were accepted by a peer; count those no peer had yet.
    void accepted(int64_t seq, const std::vector<StoredAlert>& rows);
    int64_t seq() const { return seq_.load(); }
    uint64_t forwarded() const { return forwarded_.load(); }

private:
    std::mutex mu_;
    std::atomic<int64_t> seq_{0};
    std::atomic<uint64_t> forwarded_{0};
};

struct PeerStats {
    uint64_t posts = 0, alerts = 0, failures = 0, refused = 0;
    int64_t acked = 0;  // highest seq this peer accepted
    bool up = false;
};

class PeerForwarder {
public:
    PeerForwarder(std::string url, const AlarmStore& store, Delivered& delivered, int resendSeconds);
    ~PeerForwarder();
    PeerForwarder(const PeerForwarder&) = delete;
    PeerForwarder& operator=(const PeerForwarder&) = delete;

    void start();
    void stop();
    // Something was committed: look for it now.
    void wake();
    const std::string& url() const { return url_; }
    PeerStats stats() const;

private:
    void run();
    // One post of rows; 0 accepted, 1 refused as bad (not retried), -1 failed.
    int post(const std::vector<StoredAlert>& rows, int64_t nowMs, std::string* error);
    void waitFor(std::chrono::steady_clock::time_point until, int64_t seenSeq);

    std::string url_;
    const AlarmStore& store_;
    Delivered& delivered_;
    int resendSeconds_;
    void* curl_ = nullptr;
    std::thread thread_;
    mutable std::mutex mu_;
    std::condition_variable cv_;
    bool stopping_ = false;
    PeerStats stats_;
};

// Alertmanager's time form: 2024-01-02T03:04:05.678Z.
std::string Rfc3339(int64_t ms);

}  // namespace bridge

#endif
