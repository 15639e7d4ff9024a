// One alarm of each generation through the C interface (its objects come from malloc, only the hand-over allocates).
#ifndef NOTHROW_SENDERS_H
#define NOTHROW_SENDERS_H

#include "AlarmSdk.h"

// A current-generation alarm for the process's manager (handle nullptr) or a co-process handle; its texts are too
// long for a string's inline buffer, so copying them allocates.
inline int SendCurrent(AlarmManagerEx* handle, const char* value = "sda-on-the-node") {
    _ZEBAlarm* alarm = ZEBAllocAlarm("300012", ZEB_ALARM_GENERATE);
    ZEBAppendAlarmParam(alarm, "disk-of-the-service", value);
    const int result = handle != nullptr ? ZEBSendAlarm4CoProcess(handle, alarm) : ZEBSendAlarm(alarm);
    ZEBFreeAlarm(alarm);
    return result;
}

// Alarm 300001 of the shipped legacy definitions.
inline int SendLegacy(const char* usage = "95") {
    AlarmObject* alarm = AllocAlarmObject("300001", 0, 2);
    AppendParam(alarm, "diskName", "sda-on-the-node");
    AppendParam(alarm, "usage", usage);
    const int result = SendAlarm(alarm);
    FreeAlarmObject(alarm);
    return result;
}

#endif
