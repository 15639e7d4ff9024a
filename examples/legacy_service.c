/* A service on the legacy interface: its alarms are defined in an XML file
 * (examples/legacy/alarms.xml) with English and Chinese texts beside it, and
 * the agent receives them with bilingual location and additional-information
 * texts. Configure it through the environment:
 *   APPID, APPNAME           identity (required)
 *   NODEWARD_ENDPOINT        where the agent listens (default 127.0.0.1:7888)
 *   LEGACY_DEFINITIONS       the definition file (default examples/legacy/alarms.xml)
 */

#include <stdio.h>
#include <stdlib.h>

#include "AlarmSdk.h"
#include "AlarmSdkStats.h"

/* Raises (type 0) or clears (type 1) one defined alarm with name/value pairs ended by NULL. */
static int send_alarm(const char* id, int type, const char* const* params) {
    unsigned int count = 0;
    AlarmObject* alarm;
    int rc;
    while (params[2 * count] != NULL) {
        count++;
    }
    alarm = AllocAlarmObject(id, type, count);
    if (alarm == NULL) {
        return 0;
    }
    for (; params[0] != NULL; params += 2) {
        if (AppendParam(alarm, params[0], params[1]) != 1) {
            FreeAlarmObject(alarm);
            return 0;
        }
    }
    /* 1 means handed over: the definition check and delivery happen inside the library. */
    rc = SendAlarm(alarm);
    FreeAlarmObject(alarm);
    printf("legacy-service: %s alarm %s -> %d\n", type == 1 ? "cleared" : "raised", id, rc);
    return rc;
}

int main(void) {
    static const char* const disk_full[] = {"diskName", "sda", "usage", "95", NULL};
    static const char* const link_down[] = {"interface", "eth1", "reason", "1", NULL};
    static const char* const restarted[] = {"processName", "indexer", "restartCount", "3", "exitReason", "2", NULL};
    const char* definitions = getenv("LEGACY_DEFINITIONS");
    alarmsdk_stats stats;
    int flushed;

    if (definitions == NULL) {
        definitions = "examples/legacy/alarms.xml";
    }
    /* Registers for reset-clear (last argument 1): the agent may clear what a previous instance raised. */
    if (InitAlarm(definitions, "storage-svc", "storage-svc-0", 1) != 1) {
        fprintf(stderr, "legacy-service: InitAlarm refused its arguments\n");
        return 1;
    }
    send_alarm("300001", 0, disk_full);
    send_alarm("300002", 0, link_down);
    send_alarm("300003", 0, restarted);
    send_alarm("300002", 1, link_down);

    /* Delivery is asynchronous: wait (at most 5 s) for it, or what is queued is lost at exit. */
    flushed = alarmsdk_flush_legacy(5000);
    stats.size = sizeof(stats);
    if (alarmsdk_get_legacy_stats(&stats) == 0) {
        printf(
            "legacy-service: counters: accepted=%llu refused=%llu delivered=%llu batches=%llu retried=%llu "
            "waiting=%llu (%s)\n",
            (unsigned long long)stats.accepted, (unsigned long long)stats.refused, (unsigned long long)stats.delivered,
            (unsigned long long)stats.batches, (unsigned long long)stats.retried, (unsigned long long)stats.waiting,
            flushed == ALARMSDK_FLUSH_DELIVERED ? "all delivered" : "not all delivered in 5 s");
    }
    return 0;
}
