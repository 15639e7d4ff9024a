/* Compiled as strict C99: the public headers must be plain C, with the packed
 * layout of the interface, and a C caller links against the shared library
 * (tests/abi checks that it exports exactly the listed symbols). */
#include <stddef.h>
#include <stdio.h>
#include <string.h>

#include "AlarmConfig.h"
#include "AlarmSdk.h"
#include "AlarmSdkStats.h"

/* The packed records are part of the binary interface (C99 has no static assertion: a negative array size fails). */
#define CHECK(name, holds) typedef char name[(holds) ? 1 : -1]
CHECK(check_alarm_layout, sizeof(_ZEBAlarm) == 158 && offsetof(_ZEBAlarm, alarmType) == 10 &&
                              offsetof(_ZEBAlarm, alarmTime) == 14 && offsetof(_ZEBAlarm, paramList) == 22 &&
                              offsetof(_ZEBAlarm, serviceName) == 30);
CHECK(check_param_layout, sizeof(_ZEBAlarmParam) == 264 && offsetof(_ZEBAlarmParam, paramValue) == 128 &&
                              offsetof(_ZEBAlarmParam, next) == 256);
CHECK(check_legacy_header_size, sizeof(AlarmObject) == 22 && offsetof(AlarmObject, params) == 22);
CHECK(check_legacy_param_size, sizeof(AlarmParam) == 256);
CHECK(check_stats_size, sizeof(alarmsdk_stats) == ALARMSDK_STATS_MIN_SIZE);

int main(void) {
    /* The library linked is the one these headers describe. */
    if (strcmp(alarmsdk_version(), ALARMSDK_VERSION) != 0) {
        fprintf(stderr, "library %s, headers %s\n", alarmsdk_version(), ALARMSDK_VERSION);
        return 1;
    }
    /* A C caller's round trip on one alarm object, without the agent. */
    _ZEBAlarm* alarm = ZEBAllocAlarm("1001", ZEB_ALARM_GENERATE);
    if (alarm == NULL || ZEBAppendAlarmParam(alarm, "disk", "sda") != 0 || ZEBFreeAlarm(alarm) != 0) {
        fprintf(stderr, "alarm object round trip failed\n");
        return 1;
    }
    printf("1 passed, 0 failed\n");
    return 0;
}
