/* Alarm SDK: the C interface.
 *
 * A service initialises the library once, then per alarm allocates a
 * _ZEBAlarm, fills it, hands it over with ZEBSendAlarm (which copies it and
 * returns at once) and frees it with ZEBFreeAlarm. Delivery to the node's agent
 * happens on the library's own thread, retried until the agent accepts.
 *
 * Results: 0 success, -1 failure; NULL for a failed allocation or handle.
 * No function lets an exception (such as running out of memory) reach the
 * caller: it logs and returns its failure result. The library stays loaded
 * after dlclose, since its threads never end.
 * Plain C (C99), usable from C and C++.
 */
#ifndef ALARM_SDK_H
#define ALARM_SDK_H

#include <stdint.h>

#include "AlarmSdkExport.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Generate or clear, as the caller names it. */
typedef enum {
    ZEB_ALARM_GENERATE = 0,
    ZEB_ALARM_CLEAR = 1
} EU_GEN_CLEAR_TYPE;

#define ZEB_ALARM_ID_SIZE 10
#define ZEB_ALARM_SERVICE_NAME_SIZE 128
#define ZEB_ALARM_PARAM_TEXT_SIZE 128

/* The records below are part of the binary interface: packed, no gaps. */
#pragma pack(push, 1)

/* One parameter (264 bytes). */
typedef struct _ZEBAlarmParam {
    char paramName[ZEB_ALARM_PARAM_TEXT_SIZE];   /* at most 127 characters, terminated */
    char paramValue[ZEB_ALARM_PARAM_TEXT_SIZE];  /* at most 127 characters, terminated */
    struct _ZEBAlarmParam* next;                 /* NULL at the end of the list */
} _ZEBAlarmParam;

/* One alarm (158 bytes). Owned by the caller from ZEBAllocAlarm to ZEBFreeAlarm. */
typedef struct _ZEBAlarm {
    char alarmId[ZEB_ALARM_ID_SIZE];       /* decimal text, at most 9 characters */
    int32_t alarmType;                     /* 1 = clear, anything else = generate */
    int64_t alarmTime;                     /* occurrence time in ms; 0 = stamped when sent */
    _ZEBAlarmParam* paramList;             /* parameters in the order appended */
    char serviceName[ZEB_ALARM_SERVICE_NAME_SIZE];
} _ZEBAlarm;

#pragma pack(pop)

/* A manager instance speaking for one co-process (opaque to C callers). */
#ifdef __cplusplus
class AlarmManagerEx;
#else
typedef struct AlarmManagerEx AlarmManagerEx;
#endif

/* Called on the library's alarm-check thread with the compact JSON text of the
 * alarms the agent asks about; the text is valid only during the call. */
typedef void (*ZEBAlarmCheckCallBack)(char* callBackAlarms);

/* ---- Current generation, process-wide manager ---- */

/* Reads APPID and APPNAME (required) and NODE_ID, and starts the send thread. */
ALARMSDK_API int ZEBInitAlarmSDK(void);
ALARMSDK_API int ZEBRegisterRsetClearInfo(const char* serviceName, const char* serviceId, const char* serviceInsId,
                                          int rsetClear);
/* Service name 1..64 characters, label 1..256; announces the service for reset-clear. */
ALARMSDK_API int ZEBRegisterInfo(const char* serviceName, const char* serviceLabel);
/* alarmId: at most 9 characters (a longer id leaves the id empty). */
ALARMSDK_API _ZEBAlarm* ZEBAllocAlarm(const char* alarmId, int type);
ALARMSDK_API int ZEBSetAlarmServiceName(_ZEBAlarm* alarm, const char* serviceName);
/* Name and value are cut to 127 characters. */
ALARMSDK_API int ZEBAppendAlarmParam(_ZEBAlarm* alarm, const char* name, const char* value);
/* Queues a copy; never waits for the agent. -1 when the queue (1024) is full. */
ALARMSDK_API int ZEBSendAlarm(_ZEBAlarm* alarm);
/* time: milliseconds, at least 1000000000. */
ALARMSDK_API int ZEBResetAlarmTime(_ZEBAlarm* alarm, long time);
ALARMSDK_API int ZEBFreeAlarm(_ZEBAlarm* alarm);
/* Serves POST /<serviceName>/<appId>/alarmCheck/callBack; other methods are
 * answered 405. serviceName (and appId) must stand in a URL path unchanged:
 * letters, digits and - . _ ~ ! $ & ' ( ) * + , ; = : @ only, not "." or "..";
 * any other name is refused with -1. At most 256 checks (2 MiB) wait for the
 * callback; a check beyond that is answered with an error status and dropped,
 * none already waiting is lost. The port holds at most 64 connections (8 per
 * client address) and closes idle or slow ones within seconds. */
ALARMSDK_API int ZEBRegisterAlarmCheckCallBackFun(const char* serviceName, void (*callback)(char*));
ALARMSDK_API int ZEBRegisterRsetClear(AlarmManagerEx* manager);

/* ---- Current generation, one manager per co-process ---- */

/* Limits: appId 64, serviceName 64, nodeIp 256, serviceIp 64 characters.
 * The handle lives until the process ends. */
ALARMSDK_API AlarmManagerEx* ZEBInitAlarmSDK4CoProcess(const char* appId, const char* serviceName, const char* nodeIp,
                                                       const char* serviceIp);
ALARMSDK_API int ZEBRegisterRsetClearInfo4CoProcess(AlarmManagerEx* manager, const char* serviceName,
                                                    const char* serviceId, const char* serviceInsId, int rsetClear);
ALARMSDK_API int ZEBRegisterInfo4CoProcess(AlarmManagerEx* manager, const char* serviceLabel);
ALARMSDK_API int ZEBSendAlarm4CoProcess(AlarmManagerEx* manager, _ZEBAlarm* alarm);
ALARMSDK_API int ZEBRegisterAlarmCheckCallBackFun4CoProcess(AlarmManagerEx* manager, void (*callback)(char*));

#ifdef __cplusplus
}

class AlarmEx;
/* Builds a new record from a C alarm; the caller owns (deletes) it. */
ALARMSDK_API AlarmEx* ZEBConvert2AlarmEx(_ZEBAlarm* alarm);
#endif

#endif
