/* What our run-log library offers beyond the node's logging interface, for
 * tests: a node's own run-log library has none of it. */
#ifndef RUNLOG_TESTING_H
#define RUNLOG_TESTING_H

/* The SDK itself must run on a node's own platform library, which has none of this. */
#ifdef ALARMSDK_NODE_INTERFACE_ONLY
#error "the SDK uses only the node's platform interface"
#endif

#include "runlog.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Every message, of every level, is also handed to fn (with the formatted
 * text as is) before it is written. fn runs on the logging thread under the
 * run-log's lock and must not log. NULL removes the hook; once
 * Runlog_SetCapture returns, the old fn is not called any more. */
typedef void (*Runlog_CaptureFn)(void* context, int level, const char* sourceFile, int line, const char* text);
void Runlog_SetCapture(Runlog_CaptureFn fn, void* context);

/* The clock (monotonic milliseconds) by which the run-log decides when to look
 * up RUNLOG_FILE and look at the file's name again, so a test moves time
 * instead of waiting out the second. NULL restores the monotonic clock. Setting
 * a clock (NULL too) makes the next message look RUNLOG_FILE up again. */
typedef long long (*Runlog_ClockFn)(void);
void Runlog_SetClock(Runlog_ClockFn fn);

#ifdef __cplusplus
}
#endif
#endif
