// Shared set-up of the fuzz targets: the library's log lines go nowhere (a
// fuzzer makes millions) and its fixed pauses return at once.
#ifndef ALARMSDK_FUZZ_SUPPORT_H
#define ALARMSDK_FUZZ_SUPPORT_H

#include <cstdlib>

#include "Pause.h"

namespace fuzzsupport {

inline void QuietAndUnpaused() {
    setenv("RUNLOG_FILE", "/dev/null", 1);
    alarmsdk::SetPauseFunction([](unsigned int) {});
}

}  // namespace fuzzsupport

#endif
