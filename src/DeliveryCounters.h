// What one manager's delivery has done so far, for operators: counted where
// the shared queue and send loop see each event, so both generations count
// alike. Readers take no queue lock; the send path pays an atomic add or two.
#ifndef ALARMSDK_DELIVERY_COUNTERS_H
#define ALARMSDK_DELIVERY_COUNTERS_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>

namespace alarmsdk {

struct DeliverySnapshot {
    uint64_t accepted = 0;       // items queued
    uint64_t refused = 0;        // alarms turned away by a full queue
    uint64_t delivered = 0;      // items in batches the agent accepted
    uint64_t batches = 0;        // batches the agent accepted
    uint64_t retried = 0;        // attempts the agent did not accept, each followed by a resend
    uint64_t dropped = 0;        // items of batches abandoned because the answer could not be read
    uint64_t waiting = 0;        // queued and not yet settled (in the queue or in the batch being sent)
    int64_t lastDeliveryMs = 0;  // when the agent last accepted a batch; 0 never
};

enum class FlushResult { Delivered, TimedOut, Dropped };

class DeliveryCounters {
public:
    // Called with the queue lock held, once per item in queue order, so the
    // running count is each item's sequence number. Only lock holders write
    // it, which spares the enqueue path an atomic read-modify-write.
    void noteQueued() { accepted_.store(accepted_.load(std::memory_order_relaxed) + 1, std::memory_order_release); }
    void noteRefused() { refused_.fetch_add(1, std::memory_order_relaxed); }
    void noteRetry() { retried_.fetch_add(1, std::memory_order_relaxed); }
    // A batch of size items left the send loop: accepted by the agent, or
    // abandoned. Batches settle in queue order, one at a time per manager.
    void noteSettled(std::size_t size, bool accepted, int64_t nowMs);

    DeliverySnapshot snapshot() const;
    // Items queued so far; exact for a holder of the queue lock.
    uint64_t accepted() const { return accepted_.load(std::memory_order_acquire); }

    // What a flush calls first, with the count of queued items it waits for,
    // so the sender need not finish its wait. Set once, before any flush.
    void onFlush(void (*sendNow)(void* context, uint64_t upTo), void* context) {
        sendNow_ = sendNow;
        sendNowContext_ = context;
    }

    // Waits until every item queued before the call has settled, or timeoutMs
    // passes. Woken by noteSettled, never by polling.
    FlushResult waitSettled(uint32_t timeoutMs);

private:
    std::atomic<uint64_t> accepted_{0};
    std::atomic<uint64_t> refused_{0};
    std::atomic<uint64_t> delivered_{0};
    std::atomic<uint64_t> batches_{0};
    std::atomic<uint64_t> retried_{0};
    std::atomic<uint64_t> dropped_{0};
    std::atomic<uint64_t> settled_{0};
    std::atomic<int64_t> lastDeliveryMs_{0};
    // Flush waiters. The send thread takes the mutex only while someone waits.
    std::atomic<int> waiters_{0};
    std::mutex flushMutex_;
    std::condition_variable settledChanged_;
    void (*sendNow_)(void*, uint64_t) = nullptr;
    void* sendNowContext_ = nullptr;
};

}  // namespace alarmsdk

#endif
