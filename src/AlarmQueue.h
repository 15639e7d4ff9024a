// The bounded queue of one manager (either generation): service threads
// append one alarm at a time, the manager's send thread takes the oldest in
// batches, and waits on the queue while it is empty. An item belongs to the
// queue from push until takeBatch hands it to the send thread's batch.
#ifndef ALARM_QUEUE_H
#define ALARM_QUEUE_H

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <memory>
#include <queue>

#include "DeliveryCounters.h"
#include "NoThrow.h"
#include "Pause.h"
#include "WorkSignal.h"
#include "runlog.h"

namespace alarmsdk {

constexpr std::size_t kQueueCapacity = 1024;
constexpr std::size_t kBatchSize = 50;
constexpr unsigned int kIdlePollSeconds = 1;
constexpr unsigned int kRetryPauseSeconds = 3;

template <typename T>
class AlarmQueue : public IdleWaitable {
public:
    // logSource names the owning manager's source file in lock failure
    // messages; attributes may be NULL for a default mutex.
    AlarmQueue(const char* logSource, const pthread_mutexattr_t* attributes) : logSource_(logSource) {
        counters_.onFlush(&AlarmQueue::SendNow, this);
        const int ret = pthread_mutex_init(&mutex_, attributes);
        if (ret != 0) {
            Runlog_TextAdapt(RUNLOG_LEVEL_ERROR, logSource_, __LINE__,
                             "AlarmManger::Initialize, pthread_rwlock_init failed, iRet=%d.", ret);
        }
    }
    ~AlarmQueue() { pthread_mutex_destroy(&mutex_); }
    AlarmQueue(const AlarmQueue&) = delete;
    AlarmQueue& operator=(const AlarmQueue&) = delete;

    // Read without the lock on purpose: a caller is never held up by the
    // send thread. Concurrent callers may therefore overshoot by a few.
    bool full() const { return size() > kCapacity - 1; }
    // full(), counting the alarm the caller then turns away.
    bool refuseIfFull() {
        if (!full()) {
            return false;
        }
        counters_.noteRefused();
        return true;
    }
    // Items waiting (a batch being sent is not counted).
    std::size_t size() const { return count_.load(std::memory_order_acquire); }

    void lock() {
        const int ret = pthread_mutex_lock(&mutex_);
        if (ret != 0) {
            Runlog_TextAdapt(RUNLOG_LEVEL_ERROR, logSource_, __LINE__,
                             "AlarmManger::AcquireLock, pthread_mutex_lock failed, iRet=%d.", ret);
        }
    }
    void unlock() {
        const int ret = pthread_mutex_unlock(&mutex_);
        if (ret != 0) {
            Runlog_TextAdapt(RUNLOG_LEVEL_ERROR, logSource_, __LINE__,
                             "AlarmManger::ReleaseLock, pthread_mutex_unlock failed, iRet=%d.", ret);
        }
    }

    // Appends under the lock, whatever the size: the bound is the caller's
    // test. The queue holds the item from here on; if it cannot grow
    // (std::bad_alloc) the item is freed on the way out, never leaked.
    void push(std::unique_ptr<T> item) {
        lock();
        ScopeExit unlockAtEnd([this] { publishAndUnlock(); });
        items_.push(item.get());
        item.release();
        counters_.noteQueued();
        signal_.added(items_.size());
    }

    // Moves the oldest items to the end of batch until it holds kBatchSize.
    // An item leaves the queue only once it is in the batch, so an
    // allocation failure part way loses nothing.
    void takeBatch(std::list<T*>& batch) {
        lock();
        ScopeExit unlockAtEnd([this] { publishAndUnlock(); });
        while (!items_.empty() && batch.size() < kBatchSize) {
            batch.push_back(items_.front());
            items_.pop();
        }
    }

    DeliveryCounters& counters() { return counters_; }

    // The send thread's idle wait: ends at the next tick with alarms waiting,
    // or at once when a full batch waits or a flush wants a waiting alarm.
    void waitIdle(std::chrono::nanoseconds tick) override {
        lock();
        signal_.wait(
            mutex_, tick, [this] { return items_.size(); },
            // Some item still queued was accepted before a flush asked.
            [this] { return flushUpTo_ + items_.size() > counters_.accepted(); });
        unlock();
    }

    static constexpr std::size_t kCapacity = kQueueCapacity;

private:
    // A flush waits for the first `upTo` items: they leave without waiting for
    // the end of the send thread's tick; later ones still wait for it.
    static void SendNow(void* queue, uint64_t upTo) {
        auto* self = static_cast<AlarmQueue*>(queue);
        self->lock();
        if (upTo > self->flushUpTo_) {
            self->flushUpTo_ = upTo;
        }
        self->signal_.wake();
        self->unlock();
    }

    void publishAndUnlock() {
        count_.store(items_.size(), std::memory_order_release);
        unlock();
    }

    const char* logSource_;
    pthread_mutex_t mutex_;
    std::queue<T*, std::deque<T*>> items_;
    WorkSignal signal_{kBatchSize};
    // Kept beside the queue so the unlocked tests read a value never torn.
    std::atomic<std::size_t> count_{0};
    DeliveryCounters counters_;
    uint64_t flushUpTo_ = 0;  // the last item a flush waits for; under mutex_
};

}  // namespace alarmsdk

#endif
