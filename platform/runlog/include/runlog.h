/* Run-log: the node's single logging entry.
 *
 * Runlog_TextAdapt formats one message printf-style and writes it as one line.
 * With RUNLOG_FILE set, every level is appended to that file as
 *   "<time> <level> <sourceFile>:<line> <text>"
 * Without it, messages of level RUNLOG_LEVEL_ERROR and above go to stderr in the
 * same form and lower levels are dropped.
 * Safe to call from several threads at once; a line is never interleaved.
 */
#ifndef RUNLOG_H
#define RUNLOG_H

#ifdef __cplusplus
extern "C" {
#endif

#define RUNLOG_LEVEL_INFO 2
#define RUNLOG_LEVEL_ERROR 5

#if defined(__GNUC__)
#define RUNLOG_PRINTF_LIKE __attribute__((format(printf, 4, 5)))
#else
#define RUNLOG_PRINTF_LIKE
#endif

/* A conversion the C library does not know ("%," for example) is written out
 * literally instead of being handed to vsnprintf. */
void Runlog_TextAdapt(int level, const char* sourceFile, int line, const char* format, ...) RUNLOG_PRINTF_LIKE;

/* Test hook: every message, of every level, is also handed to fn (with the
 * formatted text, no line break) before it is written. fn runs on the logging
 * thread and must not log. NULL removes the hook. */
typedef void (*Runlog_CaptureFn)(void* context, int level, const char* sourceFile, int line, const char* text);
void Runlog_SetCapture(Runlog_CaptureFn fn, void* context);

#ifdef __cplusplus
}
#endif
#endif
