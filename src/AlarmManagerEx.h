// The current generation's manager: the identity of the calling service, the
// bounded queue of alarms, the send thread that delivers them in batches to
// the node's agent, reset-clear registration and the alarm-check service.
#ifndef ALARM_MANAGER_EX_H
#define ALARM_MANAGER_EX_H

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string>

#include "AlarmEx.h"
#include "AlarmQueue.h"
#include "rest_client.h"
#include "transport_sdk.h"

struct cJSON;

typedef void (*AlarmCheckCallBack)(char*);

class AlarmManagerEx {
public:
    // Alarm checks waiting for the callback thread: at most this many
    // requests and this many decoded bytes; a check beyond either is refused.
    // Real checks are a few KiB.
    static constexpr std::size_t kCheckQueueCapacity = 256;
    static constexpr std::size_t kCheckQueueBytes = 2u * 1024u * 1024u;

    static AlarmManagerEx* getInstance();

    AlarmManagerEx();
    explicit AlarmManagerEx(int unused);
    ~AlarmManagerEx();
    AlarmManagerEx(const AlarmManagerEx&) = delete;
    AlarmManagerEx& operator=(const AlarmManagerEx&) = delete;

    void initLocalMember();
    // The process-wide manager: identity from APPID, APPNAME, NODE_ID.
    int initManager();
    // A co-process manager: identity from the arguments.
    int initManager(char const* appId, char const* serviceName, char const* nodeIp, char const* serviceIp);

    // Queues a completed copy of alarm (the caller keeps alarm). -1 for NULL or a full queue.
    int sendAlarm(AlarmEx* alarm);
    // Completes and queues record itself, as sendAlarm does with its copy:
    // what the C interface uses for the record it has just built, saving the
    // copy. The record is the manager's either way; -1 for a full queue.
    int adoptAlarm(std::unique_ptr<AlarmEx> record);
    int addServiceInfo(char const* serviceName, char const* serviceId, char const* serviceInsId, long rsetClear);

    int InitSendThread();
    // Called only with the alarm-check start lock held (RegAlarmCheckInterface).
    int InitAlarmCheckThread();
    static void* SendAlarmToFMThreadFun(void* manager);
    void getSendAlarmDatas(std::list<AlarmEx*>& batch);
    // body is released with cJSON_free, bodyEncode with delete[].
    int getSendAlarmJsonData(std::list<AlarmEx*> batch, char*& body, char*& bodyEncode, int& encodedLength);
    void fillAlarmSouce2Alarm(AlarmEx* source, AlarmEx* target);
    void fillNodIp2Alarm(AlarmEx* alarm);
    void acquireLock();
    void releaseLock();

    void setServiceName(char const* serviceName);
    void setAppId(char const* appId);
    void setNodeIp(char const* nodeIp);
    void setServiceIp(char const* serviceIp);
    void setAlarmSource(std::string alarmSource);
    void setServiceLabel(std::string serviceLabel);
    std::string getServiceName() const;
    std::string getAppId() const;
    std::string getNodeIp() const;
    std::string getServiceIp() const;
    unsigned short getServicePort() const;
    std::string getServiceLabel() const;

    // Reset-clear: announce this service once; every later alarm carries rsetClear 1.
    int RegisterRsetClear();
    int RegisterInfo(std::string serviceName, std::string serviceLabel);
    int processRsetAction();

    // Alarm check: the agent posts checks on "/<service>/<appId>/alarmCheck/callBack".
    int RegAlarmCheckInterface(std::string serviceName, AlarmCheckCallBack callback);
    static int ProcessAlarmCheckInterface(stru_REST_REQUEST* request, stru_REST_RESPONSE* response);
    static int GenCallBackResponse(stru_REST_RESPONSE* response);
    static void* ProcessAlarmCheckToUsersThreadFun(void* unused);
    // One pass of that thread: hands the oldest queued check to its service's
    // callback. False when none is queued. Only one thread may call it.
    static bool DeliverNextAlarmCheck();
    static AlarmManagerEx* GetCallBackInstance(cJSON* root);
    static std::string GetAlarmCheckInfo(cJSON* root);
    static void AcquireAlarmCheckQueueLock();
    static void ReleaseAlarmCheckQueueLock();
    // Checks for serviceName go to manager (under the map's lock); what a
    // successful registration does, and how a test routes checks without
    // serving a path.
    static void RouteAlarmChecks(const std::string& serviceName, AlarmManagerEx* manager);

    // Alarms waiting in the queue (not counting a batch being sent).
    std::size_t queuedAlarmCount() const { return m_alarmQueue.size(); }
    alarmsdk::DeliveryCounters& deliveryCounters() { return m_alarmQueue.counters(); }
    AlarmCheckCallBack getAlarmCheckCallBack() const { return m_pAlarmCheckCallBack.load(std::memory_order_acquire); }
    static std::size_t pendingAlarmCheckCount() { return m_CheckList.size(); }
    // The alarm-check thread, 0 until it is started.
    static pthread_t alarmCheckThread() { return m_nAlarmCheckTid; }

    // fork() (src/ForkSafety.cpp): every manager's queue lock, and the
    // alarm-check locks, taken before a fork and given back after it; in the
    // child each manager starts afresh, its send thread with its first alarm.
    static void LockAllForFork();
    static void UnlockAllAfterFork();
    static void RestartAllInChild();
    static void LockChecksForFork();
    static void UnlockChecksAfterFork();

private:
    // Unless the queue is full: completes record (NULL: a copy of source) with
    // this manager's identity, the alarm source of source (the caller's
    // record) and the node address, and queues it.
    int completeAndQueue(std::unique_ptr<AlarmEx> record, AlarmEx* source);
    // Node and service addresses from the environment and the transport SDK.
    void adoptTransportAddress();
    // Starts the send thread and marks the manager initialised.
    int startSending();
    static int QueueAlarmCheck(stru_REST_REQUEST* request, stru_REST_RESPONSE* response);
    static void DeliverAlarmCheck(const std::string& request);

    int m_iInitFlag;
    std::string m_strAppId;
    std::string m_strAppName;
    std::string m_strAlarmSource;
    std::string m_strNodeIP;
    pthread_t m_nSendThreadTid;
    alarmsdk::AlarmQueue<AlarmEx> m_alarmQueue;
    std::string m_strServiceIp;
    std::string m_strServiceName;
    std::atomic<AlarmCheckCallBack> m_pAlarmCheckCallBack;
    int64_t m_lRsetClear;
    bool m_bRsetClearDone;
    std::string m_strServiceId;
    std::string m_strServiceInsId;
    uint16_t m_uServicePort;
    std::string m_strServiceLabel;
    // Every manager of the process in one list, for fork().
    AlarmManagerEx* m_pNextManager = nullptr;
    void enlist();
    // Set in a forked child whose parent's manager was sending.
    std::atomic<bool> m_bSendAfterFork{false};

    static AlarmManagerEx* m_pInstance;
    // The alarm-check service, shared by every manager; never destroyed,
    // since the alarm-check thread may still use it while the process exits.
    static alarmsdk::AlarmQueue<std::string>& m_CheckList;
    static std::map<std::string, AlarmManagerEx*>& alarmCheckMap;
    static stru_REST_RESOURCE* restResAlmSdk;
    static std::atomic<int> alarmCheckInitStatus;
    static pthread_t m_nAlarmCheckTid;
};

// Decides on the agent's answer: 1 settles the batch (freed on "OK"), -1 sends it again.
int processRestResponse(std::list<AlarmEx*>& batch, stru_REST_RESPONSE* response);
void deleteAlarms(std::list<AlarmEx*>& batch);

#endif
