#include "Pause.h"

#include <unistd.h>

#include <atomic>

namespace alarmsdk {
namespace {

void SleepSeconds(unsigned int seconds) {
    // sleep() returns early when a signal arrives; finish the pause anyway.
    unsigned int left = seconds;
    while (left > 0) {
        left = sleep(left);
    }
}

void WaitOnWork(unsigned int seconds, IdleWaitable& work) { work.waitIdle(std::chrono::seconds(seconds)); }

std::atomic<PauseFunction> g_pause{&SleepSeconds};
std::atomic<IdleWaitFunction> g_idleWait{&WaitOnWork};

}  // namespace

void Pause(unsigned int seconds) { g_pause.load(std::memory_order_acquire)(seconds); }

PauseFunction SetPauseFunction(PauseFunction fn) {
    return g_pause.exchange(fn != nullptr ? fn : &SleepSeconds, std::memory_order_acq_rel);
}

void IdleWait(unsigned int seconds, IdleWaitable& work) { g_idleWait.load(std::memory_order_acquire)(seconds, work); }

IdleWaitFunction SetIdleWaitFunction(IdleWaitFunction fn) {
    return g_idleWait.exchange(fn != nullptr ? fn : &WaitOnWork, std::memory_order_acq_rel);
}

}  // namespace alarmsdk
