/* Alarm SDK: the C interface.
 *
 * A service loads libalarmsdk.so into its own process to raise and clear
 * alarms. The library completes each alarm with the service's identity,
 * queues a copy (at most 1024 waiting per manager) and delivers the queue from
 * a thread of its own, in batches of up to 50, as base64-encoded JSON over
 * HTTP to the node's local agent; a batch the agent does not accept is sent
 * again every 3 seconds, without limit. Sending never waits for the agent.
 *
 * Order of calls
 *   1. ZEBInitAlarmSDK()                       once, before anything else
 *   2. ZEBRegisterRsetClearInfo(), ZEBRegisterInfo(),
 *      ZEBRegisterAlarmCheckCallBackFun()       optional, during start-up
 *   3. per alarm: ZEBAllocAlarm(), ZEBAppendAlarmParam() (repeated),
 *      optionally ZEBResetAlarmTime(), then ZEBSendAlarm(), ZEBFreeAlarm()
 * A process that speaks for further services ("co-processes") creates one
 * handle per service with ZEBInitAlarmSDK4CoProcess() and uses the
 * ...4CoProcess() functions with it; each handle has its own queue and thread.
 *
 * Results: 0 on success, -1 on failure, or NULL for a failed allocation or
 * handle, unless a function says otherwise. Arguments are checked first, in
 * order; the first bad one is logged at error level ("In <function>,
 * <argument> is null!" and similar) and the call ends without changing
 * anything.
 *
 * Memory: text arguments are copied; the caller keeps them. An alarm object
 * belongs to the caller from ZEBAllocAlarm() to ZEBFreeAlarm(). Whatever the
 * library queues it owns and releases itself.
 *
 * Threads: the library starts threads of its own and never stops them: one
 * send thread per manager (by ZEBInitAlarmSDK() and by each
 * ZEBInitAlarmSDK4CoProcess()), and with the first alarm-check registration an
 * HTTP server thread and one alarm-check thread. There is no shutdown call;
 * alarms still queued when the process ends are lost. Initialise and register
 * from one thread during start-up; afterwards alarm objects may be built and
 * sent from any number of threads, each object used by one thread at a time.
 *
 * Logging: through the node's run-log library (the SDK's own writes errors to
 * stderr, or every message to the file RUNLOG_FILE names); ZEBAllocAlarm() and
 * ZEBAppendAlarmParam() write an information line per call.
 *
 * Environment
 *   APPID, APPNAME          the service's identity, read by ZEBInitAlarmSDK()
 *   NODE_ID                 node identity of the alarms (ZEBInitAlarmSDK())
 *   HOSTING_SERVER_IP, SERVER_IP, PODNAME
 *                           when set, every alarm gets the parameters
 *                           "AlarmSourceLocation" (the node's address) and
 *                           "AlarmSource" (the pod)
 *   NODEWARD_ENDPOINT       the agent: HOST:PORT or unix:PATH (default
 *                           127.0.0.1:7888), read for every delivery
 *   TRANSPORT_SDK_IP, TRANSPORT_SDK_PORT
 *                           where this process serves alarm checks; every
 *                           alarm carries them as the service's address
 *
 * Failures inside: no function lets an exception (such as running out of
 * memory) reach the caller: it logs and returns its failure result. The
 * library stays loaded after dlclose, since its threads never end.
 *
 * Plain C (C99), usable from C and C++.
 */
#ifndef ALARM_SDK_H
#define ALARM_SDK_H

#include <stdint.h>

#include "AlarmSdkExport.h"
#include "AlarmSdkVersion.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Generate or clear, as the caller names it. */
typedef enum { ZEB_ALARM_GENERATE = 0, ZEB_ALARM_CLEAR = 1 } EU_GEN_CLEAR_TYPE;

#define ZEB_ALARM_ID_SIZE 10
#define ZEB_ALARM_SERVICE_NAME_SIZE 128
#define ZEB_ALARM_PARAM_TEXT_SIZE 128

/* The records below are part of the binary interface: packed, no gaps. */
#pragma pack(push, 1)

/* One parameter (264 bytes). */
typedef struct _ZEBAlarmParam {
    char paramName[ZEB_ALARM_PARAM_TEXT_SIZE];  /* at most 127 characters, terminated */
    char paramValue[ZEB_ALARM_PARAM_TEXT_SIZE]; /* at most 127 characters, terminated */
    struct _ZEBAlarmParam* next;                /* NULL at the end of the list */
} _ZEBAlarmParam;

/* One alarm (158 bytes). Owned by the caller from ZEBAllocAlarm to ZEBFreeAlarm.
 * Fill it through the functions below: ZEBFreeAlarm() releases the object and
 * every parameter node with free(). */
typedef struct _ZEBAlarm {
    char alarmId[ZEB_ALARM_ID_SIZE]; /* decimal text, at most 9 characters */
    int32_t alarmType;               /* 1 = clear, anything else = generate */
    int64_t alarmTime;               /* occurrence time in ms; 0 = stamped when sent */
    _ZEBAlarmParam* paramList;       /* parameters in the order appended */
    char serviceName[ZEB_ALARM_SERVICE_NAME_SIZE];
} _ZEBAlarm;

#pragma pack(pop)

/* A manager instance speaking for one co-process (opaque to C callers). */
#ifdef __cplusplus
class AlarmManagerEx;
#else
typedef struct AlarmManagerEx AlarmManagerEx;
#endif

/* An alarm-check callback. The agent can ask a service to re-examine alarms;
 * the library answers the agent at once and then calls the service's callback
 * with the compact JSON text of the alarms asked about (the request's
 * "callBackAlarms" value, for example [{"alarmId":"300012"}]).
 * Runs on the library's alarm-check thread, one call at a time for all
 * services of the process, in the order the requests arrived; a slow callback
 * delays later checks but never alarm delivery. The text belongs to the
 * library and is valid only during the call: copy what you keep. */
typedef void (*ZEBAlarmCheckCallBack)(char* callBackAlarms);

/* ---- Current generation, process-wide manager ---- */

/* Initialises the process-wide manager and starts its send thread.
 * Reads APPID and APPNAME (both required), NODE_ID, HOSTING_SERVER_IP,
 * SERVER_IP, TRANSPORT_SDK_IP and TRANSPORT_SDK_PORT from the environment.
 * Returns 0 on success; -1 when APPID or APPNAME is unset ("APPID is NULL",
 * "APPNAME EV is NULL") or the thread cannot be started.
 * After a success, further calls return 0 at once; after a failure, a later
 * call tries again with the environment then in force.
 * Does not contact the agent and does not block. Call it once, before the
 * other functions (except ZEBAllocAlarm and friends), from one thread: alarms
 * sent earlier are queued without the service's identity. */
ALARMSDK_API int ZEBInitAlarmSDK(void);

/* Stores the service's reset-clear identity on the process-wide manager: the
 * service name (which later alarms carry), service id and service instance id
 * (copied; no length limits here; later alarms carry the two ids once the
 * service's address and name are known). With rsetClear 1 the instance also
 * announces itself, as ZEBRegisterInfo() describes. Returns -1 for a NULL
 * text, otherwise 0 or, when it announces, the result of queueing the
 * announcement. Call after ZEBInitAlarmSDK(), during start-up; does not block. */
ALARMSDK_API int ZEBRegisterRsetClearInfo(const char* serviceName, const char* serviceId, const char* serviceInsId,
                                          int rsetClear);

/* Announces this service instance to the agent, so that alarms left standing
 * by an earlier instance can be cleared ("reset-clear"). serviceName: 1 to 64
 * characters; it becomes the service name every later alarm carries.
 * serviceLabel: 1 to 256 characters. From now on every alarm is marked for
 * reset-clear.
 * The announcement is an alarm with id "0", queued and delivered like any
 * other. It is sent once per manager, by the first ZEBRegisterInfo(),
 * ZEBRegisterRsetClearInfo(..., 1) or ZEBRegisterRsetClear(); it is sent only
 * if the manager knows the service's address at that moment (TRANSPORT_SDK_IP,
 * or the serviceIp of a co-process handle), and that first attempt uses up the
 * announcement either way. Later calls store
 * the new name and label, log "AlarmManagerEx::RegisterRsetClear Repeat
 * process" and return 0.
 * Returns -1 for a NULL, empty or too long text (nothing changes), otherwise 0
 * or the result of queueing the announcement (-1 on a full queue).
 * Call after ZEBInitAlarmSDK(), during start-up; does not block. */
ALARMSDK_API int ZEBRegisterInfo(const char* serviceName, const char* serviceLabel);

/* Allocates an alarm object: id alarmId, type ZEB_ALARM_GENERATE or
 * ZEB_ALARM_CLEAR (1 means clear, any other value generate), no parameters,
 * time 0 ("now" when sent). alarmId should be decimal text of at most 9
 * characters: a longer id does not fit and leaves the id empty (the object is
 * still returned). Returns NULL for a NULL alarmId or when memory runs out.
 * The caller owns the object and releases it with ZEBFreeAlarm(). Any thread;
 * does not need ZEBInitAlarmSDK(). */
ALARMSDK_API _ZEBAlarm* ZEBAllocAlarm(const char* alarmId, int type);

/* Stores a service name (at most 127 characters; a longer or NULL name leaves
 * it empty) in the object. Returns -1 only for a NULL alarm.
 * The name does not reach the agent: when the alarm is queued, the manager's
 * own service name replaces it. */
ALARMSDK_API int ZEBSetAlarmServiceName(_ZEBAlarm* alarm, const char* serviceName);

/* Appends a parameter (name and value, each cut to 127 characters) at the end
 * of the object's list. There is no limit on the number of parameters; of two
 * with the same name, the first one is delivered. Returns -1 for a NULL
 * argument or when memory runs out (the list is then unchanged). */
ALARMSDK_API int ZEBAppendAlarmParam(_ZEBAlarm* alarm, const char* name, const char* value);

/* Hands the alarm to the process-wide manager: a copy, completed with the
 * service's identity and stamped with the current time if its time is 0, is
 * queued for the send thread. Returns at once, never waits for the agent, and
 * delivery failures never come back here: the library retries them.
 * Returns 0 when queued; -1 for a NULL alarm, when memory runs out, or when
 * 1024 alarms are already waiting ("the alarm queue is full, this alarm has
 * been removed !"): that alarm is dropped, the queue is kept.
 * The caller still owns the object: free it (or send it again) afterwards.
 * Any thread, also several at once. */
ALARMSDK_API int ZEBSendAlarm(_ZEBAlarm* alarm);

/* Sets the alarm's occurrence time, in milliseconds since the epoch. Returns
 * -1, without logging or changing anything, for a NULL alarm or a time below
 * 1000000000 (nine digits or fewer cannot be milliseconds). */
ALARMSDK_API int ZEBResetAlarmTime(_ZEBAlarm* alarm, long time);

/* Releases the object and all its parameters. Returns -1 for NULL. The
 * caller's pointer is left dangling: do not use or free it again. */
ALARMSDK_API int ZEBFreeAlarm(_ZEBAlarm* alarm);

/* Registers callback to receive the agent's alarm checks for serviceName,
 * served at "/<serviceName>/<APPID>/alarmCheck/callBack" on
 * TRANSPORT_SDK_IP:TRANSPORT_SDK_PORT (see ZEBAlarmCheckCallBack).
 * serviceName, even an empty one, also becomes the service name later alarms
 * carry.
 * The first registration of the process starts the HTTP server and the
 * alarm-check thread.
 * BLOCKS: when the resource cannot be registered (for example
 * TRANSPORT_SDK_PORT unset or the port taken) it tries 5 times with a
 * 1-second pause before each failure's log line, so the call can take 5
 * seconds; call it during start-up, not on a latency-sensitive thread.
 * Returns 0 on success; 0 also for an empty serviceName, which registers
 * nothing ("szServiceName Is empty" is logged); -1 for a NULL argument or
 * when the alarm-check thread cannot be started; otherwise the registration's
 * last non-zero result, and an earlier callback stays in place.
 * Registering the same serviceName again (from any manager) replaces the
 * earlier registration. Call after ZEBInitAlarmSDK() (the path carries
 * APPID), and before the agent can send checks.
 * Only POST reaches the callback; other methods are answered 405.
 * serviceName (and APPID) must stand in a URL path unchanged: letters,
 * digits and - . _ ~ ! $ & ' ( ) * + , ; = : @ only, not "." or "..";
 * any other name is refused with -1. At most 256 checks (2 MiB) wait for the
 * callback; a check beyond that is answered with an error status and dropped,
 * none already waiting is lost. The port holds at most 64 connections (8 per
 * client address) and closes idle or slow ones within seconds. */
ALARMSDK_API int ZEBRegisterAlarmCheckCallBackFun(const char* serviceName, void (*callback)(char*));

/* Switches reset-clear on for a manager and announces it, as described at
 * ZEBRegisterInfo(). manager: a handle from ZEBInitAlarmSDK4CoProcess().
 * Returns -1 for NULL, otherwise 0 or the result of queueing the announcement.
 * Does not block. */
ALARMSDK_API int ZEBRegisterRsetClear(AlarmManagerEx* manager);

/* ---- Current generation, one manager per co-process ---- */

/* Creates a manager for one more service of this process, with the given
 * identity instead of the environment's, and starts its send thread.
 * Limits: appId and serviceName at most 64 characters, nodeIp 256, serviceIp
 * 64 (empty texts are accepted). A configured TRANSPORT_SDK_IP replaces
 * serviceIp.
 * Returns the handle, or NULL for a NULL or too long text or when the thread
 * cannot be started. The handle and its thread live until the process ends;
 * there is no call to release them. Does not block.
 * Create all handles during start-up, before the first alarm-check
 * registration: creating one while alarm checks arrive is not safe. */
ALARMSDK_API AlarmManagerEx* ZEBInitAlarmSDK4CoProcess(const char* appId, const char* serviceName, const char* nodeIp,
                                                       const char* serviceIp);

/* ZEBRegisterRsetClearInfo() for a handle, with limits: serviceName at most 64
 * characters, serviceId and serviceInsId at most 256; with rsetClear 1 none of
 * the three may be empty either. Returns -1 for a NULL handle or a bad text
 * (nothing changes), otherwise as ZEBRegisterRsetClearInfo(). */
ALARMSDK_API int ZEBRegisterRsetClearInfo4CoProcess(AlarmManagerEx* manager, const char* serviceName,
                                                    const char* serviceId, const char* serviceInsId, int rsetClear);

/* ZEBRegisterInfo() for a handle: the service name is the handle's own (from
 * ZEBInitAlarmSDK4CoProcess()); serviceLabel 1 to 256 characters. Returns -1
 * for a NULL handle or a bad label, otherwise as ZEBRegisterInfo(). */
ALARMSDK_API int ZEBRegisterInfo4CoProcess(AlarmManagerEx* manager, const char* serviceLabel);

/* ZEBSendAlarm() on the handle's own queue (1024 alarms) and thread. Returns
 * -1 for a NULL handle or alarm or a full queue, otherwise 0. Never waits for
 * the agent; any thread. The caller still frees the alarm. */
ALARMSDK_API int ZEBSendAlarm4CoProcess(AlarmManagerEx* manager, _ZEBAlarm* alarm);

/* ZEBRegisterAlarmCheckCallBackFun() for a handle, under the handle's service
 * name and application id. BLOCKS up to 5 seconds when registration fails, as
 * described there. Returns -1 for a NULL handle or callback, otherwise as
 * ZEBRegisterAlarmCheckCallBackFun(). */
ALARMSDK_API int ZEBRegisterAlarmCheckCallBackFun4CoProcess(AlarmManagerEx* manager, void (*callback)(char*));

/* ---- Legacy generation ----
 *
 * Driven by an XML alarm definition file with two language files beside it
 * ("<dir>/zh_CN/language.properties", "<dir>/en_US/language.properties"):
 * only alarms defined there can be sent, each with exactly its defined
 * parameters, and the agent receives them with bilingual location and
 * append-information texts. Results: 1 success, 0 failure.
 */

#pragma pack(push, 1)

/* One parameter slot (256 bytes). */
typedef struct AlarmParam {
    char paramName[128];  /* at most 127 characters, terminated */
    char paramValue[128]; /* at most 127 characters, terminated */
} AlarmParam;

/* One legacy alarm: a single malloc block of 22 + 256 * n bytes for n
 * parameters. Owned by the caller from AllocAlarmObject to FreeAlarmObject;
 * not to be used by two threads at once. */
typedef struct AlarmObject {
    char alarmId[10];       /* decimal text, at most 9 characters */
    int32_t genClearType;   /* 1 = clear, anything else = generate */
    uint32_t paramCapacity; /* n, as allocated */
    uint32_t paramCount;    /* slots filled so far */
    AlarmParam params[];    /* filled in order by AppendParam */
} AlarmObject;

#pragma pack(pop)

/* Loads the definitions from xmlFile (and the language files beside it), stamps
 * serviceId and serviceInsId into them, reads APPID and APPNAME (required) and
 * NODE_ID from the environment, and starts the legacy send thread; with
 * rsetClear 1 the service also registers for reset-clear. Returns 1 when the
 * arguments were accepted (NULL or empty xmlFile, NULL ids: 0); what loading
 * achieved is only logged. Once it succeeded, later calls do nothing; a failed
 * one is repeated in full by the next. Blocks while the files are read. */
ALARMSDK_API int InitAlarm(const char* xmlFile, const char* serviceId, const char* serviceInsId, int rsetClear);
/* A new alarm for paramNum parameters (1 or more), id at most 9 characters;
 * NULL on bad arguments or no memory. Release with FreeAlarmObject. */
ALARMSDK_API AlarmObject* AllocAlarmObject(const char* alarmId, int genClearType, unsigned int paramNum);
/* Fills the next slot; name and value are cut to 127 characters. 0 when the
 * object is full or an argument is NULL. */
ALARMSDK_API int AppendParam(AlarmObject* object, const char* paramName, const char* paramValue);
/* Hands a copy to the legacy manager, which checks it against its definition
 * (the parameter count and names must match) and queues it; never waits for
 * the agent. Returns 1 for any non-NULL object: a refusal is only logged.
 * Safe from several threads at once. The object stays the caller's. */
ALARMSDK_API int SendAlarm(AlarmObject* object);
/* Releases the object (NULL is allowed). */
ALARMSDK_API void FreeAlarmObject(AlarmObject* object);

#ifdef __cplusplus
}

class AlarmEx;
/* C++ only: builds a new AlarmEx record (AlarmEx.h) from a C alarm object:
 * id, type, service name, time and parameters (the first of equal names).
 * Returns NULL for a NULL alarm or when memory runs out. The caller owns the
 * record (delete it); the C object is not changed. Any thread. */
ALARMSDK_API AlarmEx* ZEBConvert2AlarmEx(_ZEBAlarm* alarm);
#endif

#endif
