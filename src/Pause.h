// The library's only ways to wait. Production sleeps exactly the seconds asked
// for, and an idle thread waits on its own work; tests install substitutes so
// fixed pauses cost them nothing.
#ifndef ALARMSDK_PAUSE_H
#define ALARMSDK_PAUSE_H

#include <chrono>

namespace alarmsdk {

using PauseFunction = void (*)(unsigned int seconds);

// Waits `seconds` through the installed function (sleep(3) by default).
void Pause(unsigned int seconds);

// Installs fn (nullptr restores sleep) and returns the previous one.
PauseFunction SetPauseFunction(PauseFunction fn);

// What an idle library thread waits on: its queue.
class IdleWaitable {
public:
    // Returns once a tick (counted from the call, in whole ticks) has passed
    // with work waiting, or at once when enough work for a full pass waits.
    // With nothing queued it sleeps without waking.
    virtual void waitIdle(std::chrono::nanoseconds tick) = 0;

protected:
    ~IdleWaitable() = default;
};

using IdleWaitFunction = void (*)(unsigned int seconds, IdleWaitable& work);

// The idle wait of a thread that found nothing to do: work.waitIdle with a
// tick of `seconds` unless a substitute is installed.
void IdleWait(unsigned int seconds, IdleWaitable& work);

// Installs fn (nullptr restores the default) and returns the previous one.
IdleWaitFunction SetIdleWaitFunction(IdleWaitFunction fn);

}  // namespace alarmsdk

#endif
