/* A service built outside the SDK's source tree, against an installed SDK:
 * it raises one alarm and then keeps running, as a service does, while the
 * library's own thread delivers the alarm to the agent.
 *
 *   usage: alarm-consumer [ALARM_ID [SECONDS]]   (defaults: 300012, run 30 s)
 *   environment: APPID, APPNAME (required); NODEWARD_ENDPOINT (default 127.0.0.1:7888)
 *
 * Build it with CMake (CMakeLists.txt here uses find_package(AlarmSdk)):
 *   cmake -S . -B build && cmake --build build
 * or with pkg-config:
 *   cc -std=c99 -o alarm-consumer consumer.c $(pkg-config --cflags --libs alarmsdk)
 * For an SDK installed under a prefix of your own, add -DCMAKE_PREFIX_PATH=PREFIX to
 * cmake, or PKG_CONFIG_PATH=PREFIX/lib/<arch>/pkgconfig and -Wl,-rpath,PREFIX/lib/<arch> to cc.
 */
#define _POSIX_C_SOURCE 200809L /* sleep() in strict C99 */

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "AlarmSdk.h"
/* The other include form a service may use; both work with CMake and pkg-config. */
#include <alarmsdk/AlarmSdkStats.h>

int main(int argc, char** argv) {
    const char* alarm_id = argc > 1 ? argv[1] : "300012";
    int seconds = argc > 2 ? atoi(argv[2]) : 30;
    _ZEBAlarm* alarm;
    int sent;

    /* Headers and library of one major version share their binary interface. */
    printf("alarm-consumer: built with Alarm SDK %s, running with %s\n", ALARMSDK_VERSION, alarmsdk_version());
    if (atoi(alarmsdk_version()) != ALARMSDK_VERSION_MAJOR) {
        fprintf(stderr, "alarm-consumer: the library's major version differs from the headers'\n");
        return 1;
    }
    if (ZEBInitAlarmSDK() != 0) {
        fprintf(stderr, "alarm-consumer: ZEBInitAlarmSDK failed (are APPID and APPNAME set?)\n");
        return 1;
    }
    alarm = ZEBAllocAlarm(alarm_id, ZEB_ALARM_GENERATE);
    if (alarm == NULL) {
        return 1;
    }
    sent = ZEBAppendAlarmParam(alarm, "disk", "sda") == 0 ? ZEBSendAlarm(alarm) : -1;
    ZEBFreeAlarm(alarm);
    printf("alarm-consumer: alarm %s %s\n", alarm_id, sent == 0 ? "queued" : "refused");
    fflush(stdout);
    if (sent != 0) {
        return 1;
    }
    for (; seconds > 0; --seconds) {
        sleep(1);
    }
    return 0;
}
