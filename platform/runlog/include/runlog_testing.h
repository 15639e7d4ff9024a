/* Run-log test hooks. Not part of the node's run-log interface: only tests of
 * this build of the library use them. */
#ifndef RUNLOG_TESTING_H
#define RUNLOG_TESTING_H

#ifdef __cplusplus
extern "C" {
#endif

/* The clock (monotonic milliseconds) by which the run-log decides when to look
 * at RUNLOG_FILE's name again, so a test moves time instead of waiting out the
 * second. NULL restores CLOCK_MONOTONIC. */
typedef long long (*Runlog_ClockFn)(void);
void Runlog_SetClock(Runlog_ClockFn fn);

#ifdef __cplusplus
}
#endif
#endif
