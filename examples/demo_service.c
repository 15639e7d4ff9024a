/* A small service using the Alarm SDK from C: it registers itself, raises and
 * clears alarms, speaks for one co-process, and answers the agent's alarm
 * checks. Configure it through the environment:
 *   APPID, APPNAME           identity (required)
 *   NODEWARD_ENDPOINT        where the agent listens (default 127.0.0.1:7888)
 *   TRANSPORT_SDK_IP/PORT    where this service serves alarm checks
 *   DEMO_WAIT_SECONDS        how long to wait for an alarm check (default 10)
 */
#define _POSIX_C_SOURCE 200809L /* nanosleep in strict C99 */

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "AlarmSdk.h"
#include "AlarmSdkStats.h"

static volatile int g_checks_received = 0;

/* Runs on the library's alarm-check thread; the text is valid during the call only. */
static void on_alarm_check(char* alarms) {
    printf("demo-service: alarm check received: %s\n", alarms);
    fflush(stdout);
    g_checks_received++;
}

static void pause_ms(long ms) {
    struct timespec ts;
    ts.tv_sec = ms / 1000;
    ts.tv_nsec = (ms % 1000) * 1000000L;
    nanosleep(&ts, NULL);
}

/* Waits (at most 5 s) until the agent has accepted everything queued so far,
 * then prints the manager's delivery counters. */
static void flush_and_report(const char* who, AlarmManagerEx* coprocess) {
    alarmsdk_stats s;
    int flushed = coprocess != NULL ? alarmsdk_flush(coprocess, 5000) : alarmsdk_flush_process(5000);
    s.size = sizeof(s);
    if ((coprocess != NULL ? alarmsdk_get_stats(coprocess, &s) : alarmsdk_get_process_stats(&s)) != 0) {
        return;
    }
    printf(
        "demo-service: %s counters: accepted=%llu refused=%llu delivered=%llu batches=%llu retried=%llu "
        "waiting=%llu (%s)\n",
        who, (unsigned long long)s.accepted, (unsigned long long)s.refused, (unsigned long long)s.delivered,
        (unsigned long long)s.batches, (unsigned long long)s.retried, (unsigned long long)s.waiting,
        flushed == ALARMSDK_FLUSH_DELIVERED ? "all delivered" : "not all delivered in 5 s");
}

/* Raises (or clears) one alarm with name/value pairs ended by NULL. */
static int raise_alarm(AlarmManagerEx* coprocess, const char* id, EU_GEN_CLEAR_TYPE type, const char* const* params) {
    _ZEBAlarm* alarm = ZEBAllocAlarm(id, (int)type);
    int rc;
    if (alarm == NULL) {
        return -1;
    }
    for (; params != NULL && params[0] != NULL; params += 2) {
        if (ZEBAppendAlarmParam(alarm, params[0], params[1]) != 0) {
            ZEBFreeAlarm(alarm);
            return -1;
        }
    }
    rc = coprocess != NULL ? ZEBSendAlarm4CoProcess(coprocess, alarm) : ZEBSendAlarm(alarm);
    ZEBFreeAlarm(alarm);
    printf("demo-service: %s alarm %s%s -> %d\n", type == ZEB_ALARM_CLEAR ? "cleared" : "raised", id,
           coprocess != NULL ? " (co-process)" : "", rc);
    return rc;
}

int main(void) {
    static const char* const disk_full[] = {"disk", "sda", "usage", "95", NULL};
    static const char* const link_down[] = {"interface", "eth1", "peer", "10.0.0.2", NULL};
    static const char* const cert_expiry[] = {"certificate", "api-gateway", "daysLeft", "3", NULL};
    static const char* const queue_stuck[] = {"queue", "invoices", NULL};
    const char* wait_env = getenv("DEMO_WAIT_SECONDS");
    long wait_ms = (wait_env != NULL ? atol(wait_env) : 10) * 1000;
    AlarmManagerEx* billing;
    long waited;

    if (ZEBInitAlarmSDK() != 0) {
        fprintf(stderr, "demo-service: ZEBInitAlarmSDK failed (are APPID and APPNAME set?)\n");
        return 1;
    }
    /* Announce this instance so that alarms left by a previous one can be cleared. */
    if (ZEBRegisterRsetClearInfo("orders", "svc-orders", "orders-0", 0) != 0 ||
        ZEBRegisterInfo("orders", "orders-label") != 0) {
        fprintf(stderr, "demo-service: registration failed\n");
        return 1;
    }
    if (ZEBRegisterAlarmCheckCallBackFun("orders", on_alarm_check) != 0) {
        fprintf(stderr, "demo-service: alarm-check registration failed (is TRANSPORT_SDK_PORT set?)\n");
    }

    raise_alarm(NULL, "300012", ZEB_ALARM_GENERATE, disk_full);
    raise_alarm(NULL, "300020", ZEB_ALARM_GENERATE, link_down);
    raise_alarm(NULL, "300031", ZEB_ALARM_GENERATE, cert_expiry);
    raise_alarm(NULL, "300020", ZEB_ALARM_CLEAR, link_down);

    /* A second, independent identity in the same process. */
    billing = ZEBInitAlarmSDK4CoProcess("billing-app", "billing", "10.0.0.9", "127.0.0.1");
    if (billing == NULL) {
        fprintf(stderr, "demo-service: co-process initialisation failed\n");
        return 1;
    }
    raise_alarm(billing, "410001", ZEB_ALARM_GENERATE, queue_stuck);

    for (waited = 0; waited < wait_ms && g_checks_received == 0; waited += 50) {
        pause_ms(50);
    }
    if (g_checks_received == 0) {
        printf("demo-service: no alarm check arrived within %ld s\n", wait_ms / 1000);
    }
    /* Delivery is asynchronous: what is still queued when the process ends is lost. */
    flush_and_report("process-wide manager", NULL);
    flush_and_report("co-process billing", billing);
    return 0;
}
