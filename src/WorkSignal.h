// Wakes the one thread that consumes a queue. The consumer sleeps while the
// queue is empty; once something is queued it goes on sleeping to the end of
// the current tick, as if it had slept tick after tick, unless a full pass of
// work (a whole batch) is waiting sooner. So a trickle is still gathered once
// a tick, a storm is taken as fast as it comes, and an idle thread never wakes.
#ifndef ALARMSDK_WORK_SIGNAL_H
#define ALARMSDK_WORK_SIGNAL_H

#include <pthread.h>

#include <chrono>
#include <cstddef>

namespace alarmsdk {

class WorkSignal {
public:
    // fullPass: the number of queued items that ends a wait at once.
    explicit WorkSignal(std::size_t fullPass);
    ~WorkSignal();
    WorkSignal(const WorkSignal&) = delete;
    WorkSignal& operator=(const WorkSignal&) = delete;

    // A producer, with the queue's mutex held, after adding: the queue now
    // holds `queued`. Signals only when that ends the consumer's wait, so a
    // push costs one comparison otherwise.
    void added(std::size_t queued) {
        if (wakeAt_ != 0 && queued >= wakeAt_) {
            pthread_cond_signal(&cond_);
        }
    }

    // With the queue's mutex held: someone wants what is queued now (a
    // flush). Ends the consumer's wait if it is in one; the consumer then
    // finds its `urgent` condition true.
    void wake() {
        if (wakeAt_ != 0) {
            pthread_cond_signal(&cond_);
        }
    }

    // The consumer, with mutex held (released while it sleeps); queued()
    // reads the queue's size under that mutex, urgent() (under it too) ends
    // the wait before the tick once something is queued.
    template <typename Queued, typename Urgent>
    void wait(pthread_mutex_t& mutex, std::chrono::nanoseconds tick, Queued queued, Urgent urgent) {
        const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
        wakeAt_ = 1;
        while (queued() == 0) {
            pthread_cond_wait(&cond_, &mutex);
        }
        const timespec deadline = EndOfTick(start, tick);
        wakeAt_ = fullPass_;
        while (queued() < fullPass_ && !urgent() && pthread_cond_timedwait(&cond_, &mutex, &deadline) == 0) {
        }
        wakeAt_ = 0;
    }
    template <typename Queued> void wait(pthread_mutex_t& mutex, std::chrono::nanoseconds tick, Queued queued) {
        wait(mutex, tick, queued, [] { return false; });
    }

private:
    // The first tick boundary after now, counted from start, on the
    // condition's clock.
    static timespec EndOfTick(std::chrono::steady_clock::time_point start, std::chrono::nanoseconds tick);

    pthread_cond_t cond_;
    const std::size_t fullPass_;
    std::size_t wakeAt_ = 0;  // what ends the current wait; 0 while nobody waits
};

}  // namespace alarmsdk

#endif
