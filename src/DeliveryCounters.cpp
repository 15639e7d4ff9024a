#include "DeliveryCounters.h"

#include <chrono>

namespace alarmsdk {

void DeliveryCounters::noteSettled(std::size_t size, bool accepted, int64_t nowMs) {
    if (accepted) {
        delivered_.fetch_add(size, std::memory_order_relaxed);
        batches_.fetch_add(1, std::memory_order_relaxed);
        lastDeliveryMs_.store(nowMs, std::memory_order_relaxed);
    } else {
        dropped_.fetch_add(size, std::memory_order_relaxed);
    }
    // Sequentially consistent with the waiter's count and test: either the
    // waiter sees the new total, or this thread sees the waiter and wakes it.
    settled_.fetch_add(size, std::memory_order_seq_cst);
    if (waiters_.load(std::memory_order_seq_cst) > 0) {
        { std::lock_guard<std::mutex> lock(flushMutex_); }
        settledChanged_.notify_all();
    }
}

DeliverySnapshot DeliveryCounters::snapshot() const {
    DeliverySnapshot s;
    // Settled first: every item it counts was queued before, so waiting never underflows.
    const uint64_t settled = settled_.load(std::memory_order_seq_cst);
    s.accepted = accepted_.load(std::memory_order_acquire);
    s.refused = refused_.load(std::memory_order_relaxed);
    s.delivered = delivered_.load(std::memory_order_relaxed);
    s.batches = batches_.load(std::memory_order_relaxed);
    s.retried = retried_.load(std::memory_order_relaxed);
    s.dropped = dropped_.load(std::memory_order_relaxed);
    s.waiting = s.accepted - settled;
    s.lastDeliveryMs = lastDeliveryMs_.load(std::memory_order_relaxed);
    return s;
}

FlushResult DeliveryCounters::waitSettled(uint32_t timeoutMs) {
    const uint64_t target = accepted_.load(std::memory_order_acquire);
    const uint64_t droppedBefore = dropped_.load(std::memory_order_relaxed);
    if (sendNow_ != nullptr && settled_.load(std::memory_order_seq_cst) < target) {
        sendNow_(sendNowContext_, target);
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    std::unique_lock<std::mutex> lock(flushMutex_);
    waiters_.fetch_add(1, std::memory_order_seq_cst);
    const bool settled =
        settledChanged_.wait_until(lock, deadline, [&] { return settled_.load(std::memory_order_seq_cst) >= target; });
    waiters_.fetch_sub(1, std::memory_order_seq_cst);
    if (!settled) {
        return FlushResult::TimedOut;
    }
    // Conservative: a drop of a later batch in the meantime also counts.
    return dropped_.load(std::memory_order_relaxed) == droppedBefore ? FlushResult::Delivered : FlushResult::Dropped;
}

}  // namespace alarmsdk
