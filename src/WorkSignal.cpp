#include "WorkSignal.h"

#include <ctime>

namespace alarmsdk {

WorkSignal::WorkSignal(std::size_t fullPass) : fullPass_(fullPass > 0 ? fullPass : 1) {
    // Deadlines are taken on the monotonic clock, so setting the wall clock
    // neither stretches nor cuts a tick. (glibc's init cannot fail.)
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_init(&cond_, &attributes);
    pthread_condattr_destroy(&attributes);
}

WorkSignal::~WorkSignal() { pthread_cond_destroy(&cond_); }

timespec WorkSignal::EndOfTick(std::chrono::steady_clock::time_point start, std::chrono::nanoseconds tick) {
    using std::chrono::nanoseconds;
    if (tick <= nanoseconds::zero()) {
        tick = nanoseconds(1);
    }
    const nanoseconds elapsed = std::chrono::steady_clock::now() - start;
    const nanoseconds end = (start + (elapsed / tick + 1) * tick).time_since_epoch();
    timespec deadline{};
    deadline.tv_sec = static_cast<time_t>(end.count() / 1000000000);
    deadline.tv_nsec = static_cast<long>(end.count() % 1000000000);
    return deadline;
}

}  // namespace alarmsdk
