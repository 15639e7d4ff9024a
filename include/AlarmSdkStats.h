/* Alarm SDK extension: delivery counters and a bounded flush.
 *
 * Not part of the ZEB and legacy interfaces of AlarmSdk.h, and changing
 * nothing in them: these functions only read what a manager's queue and send
 * thread have done, and wait for it. Each comes in three forms: for a handle
 * from ZEBInitAlarmSDK4CoProcess(), for the process-wide manager of
 * ZEBInitAlarmSDK()/ZEBSendAlarm(), and for the legacy manager of
 * InitAlarm()/SendAlarm().
 *
 * Every counter counts from the start of the process and only grows (except
 * waiting). An item is an alarm, or a reset-clear announcement, which is
 * queued and delivered like one. Per manager:
 *
 *     accepted = delivered + dropped + waiting
 *
 * Plain C (C99), usable from C and C++.
 */
#ifndef ALARMSDK_STATS_H
#define ALARMSDK_STATS_H

#include <stdint.h>

#include "AlarmSdk.h"
#include "AlarmSdkExport.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The counters of one manager. The caller owns the struct and sets size
 * before the call (see alarmsdk_get_stats); fields may be added at the end in
 * later versions, never moved. */
typedef struct alarmsdk_stats {
    uint32_t size;            /* in: sizeof(alarmsdk_stats) as the caller was built;
                                 out: how many bytes the library filled */
    uint32_t reserved;        /* 0 */
    uint64_t accepted;        /* items queued */
    uint64_t refused;         /* alarms not queued because 1024 were waiting */
    uint64_t delivered;       /* items in batches the agent accepted ("OK") */
    uint64_t batches;         /* batches the agent accepted (up to 50 items each) */
    uint64_t retried;         /* attempts the agent did not accept; each batch is sent again after 3 s */
    uint64_t dropped;         /* items given up because the agent's answer could not be read (out of memory) */
    uint64_t waiting;         /* items queued and not yet delivered, the batch being sent included */
    int64_t last_delivery_ms; /* when the agent last accepted a batch, ms since the epoch; 0 never */
} alarmsdk_stats;

/* The size of the first version of the struct: the smallest size accepted. */
#define ALARMSDK_STATS_MIN_SIZE 72u

/* Results of the flush functions. */
#define ALARMSDK_FLUSH_DELIVERED 0 /* every item queued before the call was delivered */
#define ALARMSDK_FLUSH_TIMED_OUT 1 /* timeout_ms passed first; the items stay queued and keep being sent */
#define ALARMSDK_FLUSH_DROPPED 2   /* all settled, but some were dropped (see dropped) */

/* Fills *stats with the counters of manager (a handle from
 * ZEBInitAlarmSDK4CoProcess()). Set stats->size to sizeof(alarmsdk_stats)
 * first: the library fills the fields that lie within it and sets size to the
 * bytes it filled, so a caller built against a newer header can tell which
 * fields an older library left alone.
 * Returns 0; -1 for a NULL argument or a size below ALARMSDK_STATS_MIN_SIZE
 * (nothing is written then).
 * Any thread, any time (also before the manager is initialised, when
 * everything is 0); never blocks: the counters are read without the queue's
 * lock, so fields read at one moment may differ by the items of one batch. */
ALARMSDK_API int alarmsdk_get_stats(AlarmManagerEx* manager, alarmsdk_stats* stats);
/* The same for the process-wide manager (ZEBSendAlarm). */
ALARMSDK_API int alarmsdk_get_process_stats(alarmsdk_stats* stats);
/* The same for the legacy manager (SendAlarm). */
ALARMSDK_API int alarmsdk_get_legacy_stats(alarmsdk_stats* stats);

/* Waits until every item queued on manager before the call has been delivered
 * (the agent answered "OK" for its batch), or until timeout_ms milliseconds
 * have passed, whichever comes first. Items queued during the wait are not
 * waited for. Never cancels, drops or reorders anything: after a timeout the
 * send thread goes on as before. Those items are sent at once, without
 * waiting for the send thread's one-second gathering of a trickle.
 * Returns ALARMSDK_FLUSH_DELIVERED, ALARMSDK_FLUSH_TIMED_OUT or
 * ALARMSDK_FLUSH_DROPPED; -1 for a NULL manager or when waiting failed.
 * BLOCKS the calling thread up to timeout_ms (0 only looks); the send thread
 * wakes it as batches settle. Any thread, also several at once. A manager
 * never initialised has no send thread: its flush times out unless nothing
 * was queued. */
ALARMSDK_API int alarmsdk_flush(AlarmManagerEx* manager, uint32_t timeout_ms);
/* The same for the process-wide manager (ZEBSendAlarm). */
ALARMSDK_API int alarmsdk_flush_process(uint32_t timeout_ms);
/* The same for the legacy manager (SendAlarm). */
ALARMSDK_API int alarmsdk_flush_legacy(uint32_t timeout_ms);

#ifdef __cplusplus
}
#endif

#endif
