/* Run-log: the node's single logging entry.
 *
 * Runlog_TextAdapt formats one message printf-style and writes it as one line.
 * With RUNLOG_FILE set, every level is appended to that file as
 *   "<time> <level> <sourceFile>:<line> <text>"
 * Without it, messages of level RUNLOG_LEVEL_ERROR and above go to stderr in the
 * same form and lower levels are dropped, as they are when RUNLOG_FILE cannot
 * be opened. <time> is UTC with milliseconds ("2026-01-02T03:04:05.678Z").
 * Texts are cut at 8 KiB (never inside a UTF-8 character), and line breaks in
 * them are written as spaces.
 * Safe to call from several threads at once; each line is one write() to a
 * file opened with O_APPEND, so lines of threads and processes never mix.
 * The file stays open. RUNLOG_FILE is looked up at the first message and then
 * at most once a second, so another RUNLOG_FILE is opened within a second, and
 * a file that was removed, renamed away or replaced is opened (created) again
 * within a second.
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

#ifdef __cplusplus
}
#endif
#endif
