// The legacy generation's process-wide manager. It is created when the
// library is loaded and initialised by InitAlarm; from then on it checks each
// Alarm against its definition, turns it into an alarm model with bilingual
// texts, queues it (at most 1024) and delivers the models from its own send
// thread, in batches of up to 50, retrying every 3 seconds until the agent
// answers "OK".
//
// Services use GetInstance() and SetAlarmSource(); everything else is driven
// by the legacy C functions of AlarmSdk.h.
#ifndef ALARM_MANAGER_H
#define ALARM_MANAGER_H

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <list>
#include <string>

#include "Alarm.h"
#include "AlarmSdkExport.h"

struct _AlarmModel;
struct stru_REST_RESPONSE;
struct ALM_Json_Para_def;
namespace alarmsdk {
template <typename T>
class AlarmQueue;
class DeliveryCounters;
}

class AlarmManager {
public:
    // The instance created at load; never NULL, never destroyed.
    ALARMSDK_API static AlarmManager* GetInstance();

    // The alarm source of every later alarm whose service instance name is
    // empty (a source of 64 or more characters leaves that name empty). NULL
    // or "" clears it. Callable from any thread.
    ALARMSDK_API void SetAlarmSource(const char* source);

    // Loads the definitions beside xmlFilePath, stamps the service identity
    // into them, reads APPID, APPNAME and NODE_ID and starts the send thread.
    // Does nothing once it succeeded; a failed call is repeated in full by the next.
    void InitXML(const char* xmlFilePath, const char* serviceId, const char* serviceInsId, long rsetClear);
    // Checks alarm against its definition and queues its model (the caller keeps
    // alarm). 1 queued, 0 not (no definition, wrong parameter count, full queue).
    int SendAlarm(Alarm* alarm);
    // Queues the reset-clear registration (outside the queue bound). Always 0.
    int RegisterRsetClear();

    void AcquireLock();
    void ReleaseLock();
    int initSendThread();
    static void* sendAlarmToFMThreadFun(void* unused);
    void getSendAlarmDatas(std::list<_AlarmModel*>& batch);
    // body is released with cJSON_free, bodyEncode with free. 0, or -1 to build again.
    int getSendAlarmJsonData(std::list<_AlarmModel*> batch, char*& body, char*& bodyEncode, int& encodedLength);

    // fork() (src/ForkSafety.cpp): the legacy locks taken before a fork and
    // given back after it; in the child the queue starts afresh and the send
    // thread with the child's first alarm.
    void LockForFork();
    void UnlockAfterFork();
    void RestartInChild();

    // Models waiting in the queue (not counting a batch being sent).
    std::size_t queuedModelCount() const;
    // The queue's delivery counters (read through AlarmSdkStats.h).
    alarmsdk::DeliveryCounters& deliveryCounters();

private:
    static AlarmManager* m_pInstance;

    AlarmManager();
    ~AlarmManager();
    AlarmManager(const AlarmManager&) = delete;
    AlarmManager& operator=(const AlarmManager&) = delete;

    std::string alarmSource() const;

    std::atomic<uint32_t> m_uInitFlag;
    std::string m_strAppId;
    std::string m_strAppName;
    std::string m_strNodeId;
    alarmsdk::AlarmQueue<_AlarmModel>* m_pAlarmQueue;  // never destroyed: the send thread outlives everything
    pthread_t m_nSendThreadTid;
    pthread_mutexattr_t m_queueLockAttr;
    char m_szReserved[4096];
    std::string m_strAlarmSource;
};

// Decides on the agent's answer to a batch: 1 settles it (deleted on "OK"), -1 sends it again.
int processRestResponse(std::list<_AlarmModel*>& batch, stru_REST_RESPONSE* response);
void deleteAlarmModels(std::list<_AlarmModel*>& batch);
// Frees the record's three buffers and the record itself.
void deleteALM_Json_ParaPtr(ALM_Json_Para_def* record);

#endif
