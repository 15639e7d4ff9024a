// Logging for the library's sources: each source names itself with the
// literal the run-log expects (for example "../src/AlarmManagerEx"), kept in
// a file-local kLogSource, and passes the calling line.
#ifndef ALM_LOG_H
#define ALM_LOG_H

#include "runlog.h"

#define ALM_LOG_INFO(...) Runlog_TextAdapt(RUNLOG_LEVEL_INFO, kLogSource, __LINE__, __VA_ARGS__)
#define ALM_LOG_ERROR(...) Runlog_TextAdapt(RUNLOG_LEVEL_ERROR, kLogSource, __LINE__, __VA_ARGS__)

#endif
