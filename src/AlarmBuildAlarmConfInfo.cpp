#include "AlarmBuildAlarmConfInfo.h"

#include <sys/time.h>

uint64_t ALM_GetCurrMs() {
    struct timeval now = {};
    (void)gettimeofday(&now, nullptr);
    return static_cast<uint64_t>(now.tv_sec) * 1000u + static_cast<uint64_t>(now.tv_usec) / 1000u;
}
