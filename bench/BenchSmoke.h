// Every benchmark program also runs once in the test suite, with
// ALARMSDK_BENCH_SMOKE set, only to show that it still builds and runs: there
// its long windows and minimum times shrink to a token.
#ifndef ALARMSDK_BENCH_SMOKE_H
#define ALARMSDK_BENCH_SMOKE_H

#include <cstdlib>

namespace benchsmoke {

inline bool Smoke() {
    static const bool smoke = std::getenv("ALARMSDK_BENCH_SMOKE") != nullptr;
    return smoke;
}

// full in a measuring run, token in a smoke run.
template <typename T> T Scaled(T full, T token) { return Smoke() ? token : full; }

}  // namespace benchsmoke

#endif
