// The bounded queue in front of one library thread: producers append one item
// at a time, the thread takes the oldest and waits on the queue while it is
// empty. Each manager keeps one for its alarms, the alarm-check service one
// for its requests. The queue owns what it holds: a pushed item is the
// queue's until a take hands it to the consumer.
#ifndef ALARM_QUEUE_H
#define ALARM_QUEUE_H

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <list>
#include <memory>
#include <new>
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

// What a queue is for: where it logs, and how much it holds and hands on.
template <typename T>
struct QueueLimits {
    const char* logSource;  // the owner's source file, for the lock lines
    const char* lockFailure = "AlarmManger::AcquireLock, pthread_mutex_lock failed, iRet=%d.";
    const char* unlockFailure = "AlarmManger::ReleaseLock, pthread_mutex_unlock failed, iRet=%d.";
    std::size_t capacity = kQueueCapacity;
    // The most items one take moves; so many waiting end an idle wait at once.
    std::size_t batch = kBatchSize;
    // With bytesOf: the most bytes the queued items may hold together.
    std::size_t byteBound = 0;
    std::size_t (*bytesOf)(const T& item) = nullptr;
    // Logged when pushWithinLimits refuses, with the items and bytes held and the item's bytes.
    const char* refusal = "queue full (%zu items, %zu bytes), item of %zu bytes refused.";
};

template <typename T>
class AlarmQueue : public IdleWaitable {
public:
    // attributes may be NULL for a default mutex.
    explicit AlarmQueue(const QueueLimits<T>& limits, const pthread_mutexattr_t* attributes = nullptr)
        : limits_(limits) {
        counters_.onFlush(&AlarmQueue::SendNow, this);
        const int ret = pthread_mutex_init(&mutex_, attributes);
        if (ret != 0) {
            Runlog_TextAdapt(RUNLOG_LEVEL_ERROR, limits_.logSource, __LINE__,
                             "AlarmManger::Initialize, pthread_rwlock_init failed, iRet=%d.", ret);
        }
    }
    // Items still queued are not freed: a queue is only destroyed with a
    // manager that never sent (the library's own queues are never destroyed).
    ~AlarmQueue() { pthread_mutex_destroy(&mutex_); }
    AlarmQueue(const AlarmQueue&) = delete;
    AlarmQueue& operator=(const AlarmQueue&) = delete;

    // True, and counted, when the queue is full and the caller must turn its
    // item away. Read without the lock on purpose: a caller is never held up
    // by the consumer. Concurrent callers may therefore overshoot by a few.
    bool refuseIfFull() {
        if (size() > limits_.capacity - 1) {
            counters_.noteRefused();
            return true;
        }
        return false;
    }
    // Items waiting (a batch being sent is not counted).
    std::size_t size() const { return count_.load(std::memory_order_acquire); }

    void lock() {
        const int ret = pthread_mutex_lock(&mutex_);
        if (ret != 0) {
            Runlog_TextAdapt(RUNLOG_LEVEL_ERROR, limits_.logSource, __LINE__, limits_.lockFailure, ret);
        }
    }
    void unlock() {
        const int ret = pthread_mutex_unlock(&mutex_);
        if (ret != 0) {
            Runlog_TextAdapt(RUNLOG_LEVEL_ERROR, limits_.logSource, __LINE__, limits_.unlockFailure, ret);
        }
    }

    // Appends under the lock, whatever the size: the bound is the caller's
    // test. The queue holds the item from here on; if it cannot grow
    // (std::bad_alloc) the item is freed on the way out, never leaked.
    void push(std::unique_ptr<T> item) {
        lock();
        ScopeExit unlockAtEnd([this] { publishAndUnlock(); });
        append(std::move(item));
    }

    // Appends unless the queue holds its capacity, or the item's bytes would
    // pass the byte bound, tested under the lock: a flood is refused item by
    // item and never costs one already queued. A refused item is freed.
    bool pushWithinLimits(std::unique_ptr<T> item) {
        lock();
        ScopeExit unlockAtEnd([this] { publishAndUnlock(); });
        const std::size_t bytes = bytesOf(item.get());
        if (items_.size() >= limits_.capacity || bytes > limits_.byteBound - bytes_) {
            Runlog_TextAdapt(RUNLOG_LEVEL_ERROR, limits_.logSource, __LINE__, limits_.refusal, items_.size(), bytes_,
                             bytes);
            return false;
        }
        append(std::move(item));
        return true;
    }

    // Moves the oldest items to the end of batch until it holds a full batch.
    // An item leaves the queue only once it is in the batch, so an
    // allocation failure part way loses nothing.
    void takeBatch(std::list<T*>& batch) {
        lock();
        ScopeExit unlockAtEnd([this] { publishAndUnlock(); });
        while (!items_.empty() && batch.size() < limits_.batch) {
            batch.push_back(items_.front());
            bytes_ -= bytesOf(items_.front());
            items_.pop();
        }
    }

    // The oldest item, or NULL when none is queued.
    std::unique_ptr<T> pop() {
        lock();
        ScopeExit unlockAtEnd([this] { publishAndUnlock(); });
        std::unique_ptr<T> item;
        if (!items_.empty()) {
            item.reset(items_.front());
            bytes_ -= bytesOf(item.get());
            items_.pop();
        }
        return item;
    }

    DeliveryCounters& counters() { return counters_; }

    // In a child after fork(), called with the lock the fork handler took:
    // the items are the parent's to hand on and are freed; the lock, the
    // wake-up and the counters start afresh (the threads that waited on them
    // do not exist in the child, so they are built again, not destroyed).
    void restartInChild(const pthread_mutexattr_t* attributes) {
        while (!items_.empty()) {
            delete items_.front();
            items_.pop();
        }
        bytes_ = 0;
        count_.store(0, std::memory_order_release);
        flushUpTo_ = 0;
        new (&signal_) WorkSignal(limits_.batch);
        new (&counters_) DeliveryCounters();
        counters_.onFlush(&AlarmQueue::SendNow, this);
        pthread_mutex_init(&mutex_, attributes);
    }

    // The consumer's idle wait: ends at the next tick with items waiting, or
    // at once when a full batch waits or a flush wants a waiting item.
    void waitIdle(std::chrono::nanoseconds tick) override {
        lock();
        signal_.wait(
            mutex_, tick, [this] { return items_.size(); },
            // Some item still queued was accepted before a flush asked.
            [this] { return flushUpTo_ + items_.size() > counters_.accepted(); });
        unlock();
    }

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

    std::size_t bytesOf(const T* item) const { return limits_.bytesOf != nullptr ? limits_.bytesOf(*item) : 0; }

    // With the lock held.
    void append(std::unique_ptr<T> item) {
        const std::size_t bytes = bytesOf(item.get());
        items_.push(item.get());
        item.release();
        bytes_ += bytes;
        counters_.noteQueued();
        signal_.added(items_.size());
    }

    void publishAndUnlock() {
        count_.store(items_.size(), std::memory_order_release);
        unlock();
    }

    const QueueLimits<T> limits_;
    pthread_mutex_t mutex_;
    std::queue<T*, std::deque<T*>> items_;
    std::size_t bytes_ = 0;  // of the items queued, under the lock
    WorkSignal signal_{limits_.batch};
    // Kept beside the queue so the unlocked tests read a value never torn.
    std::atomic<std::size_t> count_{0};
    DeliveryCounters counters_;
    uint64_t flushUpTo_ = 0;  // the last item a flush waits for; under mutex_
};

}  // namespace alarmsdk

#endif
