// Replaces the library's pauses for one test: each pause (and each idle wait of a library thread) is counted and lasts
// a scaled-down moment, so "waited 3 s before resending" is asserted without waiting 3 s. One recorder at a time.
#ifndef TEST_PAUSE_RECORDER_H
#define TEST_PAUSE_RECORDER_H

#include <atomic>
#include <chrono>
#include <thread>

#include "Pause.h"

namespace testsupport {

class PauseRecorder {
public:
    // Each requested second lasts 2 ms.
    PauseRecorder() {
        for (auto& count : counts_) {
            count.store(0);
        }
        previous_ = alarmsdk::SetPauseFunction(&PauseRecorder::Record);
        previousIdle_ = alarmsdk::SetIdleWaitFunction(&PauseRecorder::RecordIdle);
    }
    ~PauseRecorder() {
        release();
        wakeTickMillis_.store(0);
        alarmsdk::SetIdleWaitFunction(previousIdle_);
        alarmsdk::SetPauseFunction(previous_);
    }
    PauseRecorder(const PauseRecorder&) = delete;
    PauseRecorder& operator=(const PauseRecorder&) = delete;

    // How many pauses of exactly this many seconds were requested so far.
    std::size_t count(unsigned int seconds) const { return seconds < kLengths ? counts_[seconds].load() : 0; }
    // While held, every pause lasts until release() (at most 30 s), so a test
    // can park a library thread in its idle pause.
    void hold() { held_.store(true); }
    void release() { held_.store(false); }
    // From now on idle waits are still counted but wait on the library's queue as production does, with a tick of
    // tickMillis instead of each second: only a full pass of work (or the tick) ends them.
    void wakeOnWork(long tickMillis) { wakeTickMillis_.store(tickMillis); }

private:
    static void Note(unsigned int seconds) { counts_[seconds < kLengths ? seconds : 0].fetch_add(1); }
    static void Record(unsigned int seconds) {
        Note(seconds);
        std::this_thread::sleep_for(std::chrono::milliseconds(2 * seconds));
        for (int waited = 0; held_.load() && waited < 30000; ++waited) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    static void RecordIdle(unsigned int seconds, alarmsdk::IdleWaitable& work) {
        const long tick = wakeTickMillis_.load();
        if (tick <= 0) {
            return Record(seconds);
        }
        Note(seconds);
        work.waitIdle(std::chrono::milliseconds(tick * seconds));
    }
    static constexpr unsigned int kLengths = 16;  // pauses of 16 s or more are counted as 0 s
    static inline std::atomic<std::size_t> counts_[kLengths];
    static inline std::atomic<bool> held_{false};
    static inline std::atomic<long> wakeTickMillis_{0};
    alarmsdk::PauseFunction previous_ = nullptr;
    alarmsdk::IdleWaitFunction previousIdle_ = nullptr;
};

}  // namespace testsupport

#endif
