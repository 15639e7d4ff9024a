#include "AlarmManagerEx.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include "AlarmConfig.h"
#include "AlarmSendLoop.h"
#include "AlmJsonParser.h"
#include "AlmLog.h"
#include "AlmRukInterface.h"
#include "ForkSafety.h"
#include "NoThrow.h"

namespace {

const char kLogSource[] = "../src/AlarmManagerEx";

// This generation's delivery: AlarmSendLoop.h takes it from the queue to the agent.
const alarmsdk::Generation<AlarmEx> kDelivery = {
    .logSource = kLogSource,
    .threadFunction = "AlarmManagerEx::SendAlarmToFMThreadFun",
    .buildDocument = [](const std::list<AlarmEx*>& batch) { return AlmJsonParser::GenRestDataJsonEx(batch); },
    .buffers = alarmsdk::Buffers::NewArray,
    .allocFailure = "new error.......",
    .logAnswerBody = false,
    .readRetCode = &AlmJsonParser::GetRetCodeEx,
    .successLevel = RUNLOG_LEVEL_ERROR,
    .successText = "send alarms success!",
    .deleteBatch = &deleteAlarms,
};

// A setter's text argument: NULL is refused with the setter's own message.
void StoreUnlessNull(std::string& target, const char* value, const char* nullMessage) {
    if (value == nullptr) {
        ALM_LOG_ERROR("%s", nullMessage);
        return;
    }
    target = value;
}

// Starts a library thread (default attributes, never joined) and records its
// id; both threads log the same texts.
int StartThread(void* (*body)(void*), void* argument, pthread_t* id) {
    pthread_t tid;
    if (pthread_create(&tid, nullptr, body, argument) != 0) {
        ALM_LOG_ERROR("create send alarm thread failed!");
        return -1;
    }
    *id = tid;
    ALM_LOG_INFO("create send alarm thread success!");
    return 0;
}

}  // namespace

// Created when the library is loaded, so the transport address is read before main.
AlarmManagerEx* AlarmManagerEx::m_pInstance = new AlarmManagerEx();

AlarmManagerEx* AlarmManagerEx::getInstance() {
    if (m_pInstance == nullptr) {
        m_pInstance = new AlarmManagerEx();
    }
    return m_pInstance;
}

AlarmManagerEx::AlarmManagerEx() : m_alarmQueue({kLogSource}) {
    initLocalMember();
    enlist();
}

AlarmManagerEx::AlarmManagerEx(int /*unused*/) : m_alarmQueue({kLogSource}) {
    initLocalMember();
    enlist();
}

namespace {
// The list of every manager, newest first; a manager leaves it when destroyed
// (only a co-process handle that could not start is). Never destroyed.
std::mutex& ManagersMutex() {
    static std::mutex* mutex = new std::mutex();
    return *mutex;
}
AlarmManagerEx* g_managers = nullptr;
}  // namespace

void AlarmManagerEx::enlist() {
    alarmsdk::GuardForks();
    std::lock_guard<std::mutex> lock(ManagersMutex());
    m_pNextManager = g_managers;
    g_managers = this;
}

void AlarmManagerEx::LockAllForFork() {
    ManagersMutex().lock();
    for (AlarmManagerEx* m = g_managers; m != nullptr; m = m->m_pNextManager) {
        m->m_alarmQueue.lock();
    }
}

void AlarmManagerEx::UnlockAllAfterFork() {
    for (AlarmManagerEx* m = g_managers; m != nullptr; m = m->m_pNextManager) {
        m->m_alarmQueue.unlock();
    }
    ManagersMutex().unlock();
}

void AlarmManagerEx::RestartAllInChild() {
    for (AlarmManagerEx* m = g_managers; m != nullptr; m = m->m_pNextManager) {
        m->m_alarmQueue.restartInChild(nullptr);
        if (m->m_iInitFlag == 1) {
            m->m_nSendThreadTid = static_cast<pthread_t>(-1);
            m->m_bSendAfterFork.store(true);
        }
    }
    ManagersMutex().unlock();
}

// The shared check queue is created once and never destroyed: managers come
// and go while the transport thread queues checks. The alarm queue's lock
// goes with the alarm queue.
AlarmManagerEx::~AlarmManagerEx() {
    std::lock_guard<std::mutex> lock(ManagersMutex());
    for (AlarmManagerEx** link = &g_managers; *link != nullptr; link = &(*link)->m_pNextManager) {
        if (*link == this) {
            *link = m_pNextManager;
            break;
        }
    }
}

void AlarmManagerEx::initLocalMember() {
    m_strAppId = "";
    m_strAppName = "";
    m_strServiceName = "";
    m_strServiceId = "";
    m_strServiceInsId = "";
    const char* sdkIp = GetSdkIP();
    m_strServiceIp = sdkIp != nullptr ? sdkIp : "";
    m_iInitFlag = 0;
    m_nSendThreadTid = static_cast<pthread_t>(-1);
    m_pAlarmCheckCallBack.store(nullptr, std::memory_order_release);
    m_lRsetClear = 0;
    m_bRsetClearDone = false;
    m_uServicePort = static_cast<uint16_t>(GetSdkPort());
    // The queue lock is set up by the queue itself.
}

int AlarmManagerEx::initManager() {
    if (m_iInitFlag == 1) {
        return 0;
    }
    ALM_LOG_INFO("TransportSdkInit success in AlarmSdk");
    const char* nodeId = std::getenv("NODE_ID");
    if (nodeId != nullptr) {
        m_strNodeIP = nodeId;
    }
    adoptTransportAddress();
    ALM_LOG_ERROR("Get servicePort %d", static_cast<int>(m_uServicePort));

    const char* appId = std::getenv("APPID");
    if (appId == nullptr) {
        ALM_LOG_ERROR("APPID is NULL");
        return -1;
    }
    m_strAppId = appId;
    ALM_LOG_INFO("Get AppId %s", m_strAppId.c_str());

    const char* appName = std::getenv("APPNAME");
    if (appName == nullptr) {
        ALM_LOG_ERROR("APPNAME EV is NULL");
        return -1;
    }
    m_strAppName = appName;
    ALM_LOG_INFO("Get AppName %s", m_strAppName.c_str());
    return startSending();
}

int AlarmManagerEx::initManager(char const* appId, char const* serviceName, char const* nodeIp, char const* serviceIp) {
    if (m_iInitFlag == 1) {
        return 0;
    }
    ALM_LOG_INFO("TransportSdkInit success in AlarmSdk");
    setAppId(appId);
    setServiceName(serviceName);
    setNodeIp(nodeIp);
    setServiceIp(serviceIp);
    adoptTransportAddress();
    return startSending();
}

void AlarmManagerEx::adoptTransportAddress() {
    AlmRukInterface::InitAllIp();
    // The address the service is served on wins over one given by the caller.
    const char* sdkIp = GetSdkIP();
    if (sdkIp != nullptr && sdkIp[0] != '\0') {
        m_strServiceIp = sdkIp;
        ALM_LOG_ERROR("Get ServiceIp %s", m_strServiceIp.c_str());
    }
    m_uServicePort = static_cast<uint16_t>(GetSdkPort());
}

int AlarmManagerEx::startSending() {
    if (InitSendThread() != 0) {
        ALM_LOG_ERROR("InitSendThread error");
        return -1;
    }
    m_iInitFlag = 1;
    return 0;
}

int AlarmManagerEx::sendAlarm(AlarmEx* alarm) {
    if (alarm == nullptr) {
        return -1;
    }
    return completeAndQueue(nullptr, alarm);
}

int AlarmManagerEx::adoptAlarm(std::unique_ptr<AlarmEx> record) {
    if (record == nullptr) {
        return -1;
    }
    AlarmEx* own = record.get();
    return completeAndQueue(std::move(record), own);
}

int AlarmManagerEx::completeAndQueue(std::unique_ptr<AlarmEx> record, AlarmEx* source) {
    // Deliberately unlocked: a caller is never held up by the send thread.
    if (m_alarmQueue.refuseIfFull()) {
        ALM_LOG_ERROR("the alarm queue is full, this alarm has been removed !");
        return -1;
    }
    // Owned here until it is queued, so a record that cannot be completed is not leaked.
    if (record == nullptr) {
        record.reset(new AlarmEx(source));
    }
    // Assigned in place: each setter's by-value copy would cost the caller's thread.
    AlarmEx& queued = *record;
    queued.m_strServiceName = m_strServiceName;
    queued.m_strAppId = m_strAppId;
    queued.m_lRsetClear = m_lRsetClear;
    queued.m_strServiceIp = m_strServiceIp;
    queued.m_strNodeIp = m_strNodeIP;
    queued.m_strServiceLabel = m_strServiceLabel;
    queued.m_uServicePort = m_uServicePort;
    if (!m_strServiceIp.empty() && !m_strServiceName.empty()) {
        queued.m_strServiceId = m_strServiceId;
        queued.m_strServiceInsId = m_strServiceInsId;
    }
    if (queued.m_lAlarmTime == 0) {
        queued.m_lAlarmTime = static_cast<int64_t>(ALM_GetCurrMs());
    }
    fillAlarmSouce2Alarm(source, record.get());
    fillNodIp2Alarm(record.get());
    m_alarmQueue.push(std::move(record));
    // A forked child's first alarm starts the child's own send thread.
    if (m_bSendAfterFork.load(std::memory_order_relaxed) && m_bSendAfterFork.exchange(false)) {
        (void)InitSendThread();
    }
    return 0;
}

int AlarmManagerEx::addServiceInfo(char const* serviceName, char const* serviceId, char const* serviceInsId,
                                   long rsetClear) {
    m_lRsetClear = rsetClear;
    m_strServiceId = serviceId;
    m_strServiceInsId = serviceInsId;
    m_strServiceName = serviceName;
    if (rsetClear == 1) {
        return RegisterRsetClear();
    }
    return 0;
}

int AlarmManagerEx::InitSendThread() {
    // The handle starts at -1, so the first call always creates the thread.
    if (m_nSendThreadTid != 0) {
        return StartThread(&AlarmManagerEx::SendAlarmToFMThreadFun, this, &m_nSendThreadTid);
    }
    return 0;
}

int AlarmManagerEx::InitAlarmCheckThread() {
    if (m_nAlarmCheckTid != 0) {
        return -1;
    }
    return StartThread(&AlarmManagerEx::ProcessAlarmCheckToUsersThreadFun, nullptr, &m_nAlarmCheckTid);
}

void* AlarmManagerEx::SendAlarmToFMThreadFun(void* manager) {
    if (manager == nullptr) {
        ALM_LOG_ERROR("AlarmManagerEx::SendAlarmToFMThreadFun pParam is NULL");
        return nullptr;
    }
    // Named, so that a service's operators (top, gdb) and the tests can tell the library's threads.
    (void)pthread_setname_np(pthread_self(), "alarmsdk-send");
    alarmsdk::RunSendLoop(kDelivery, static_cast<AlarmManagerEx*>(manager)->m_alarmQueue);
    return nullptr;
}

// The send loop's steps, one at a time, for callers that drive them by hand.
void AlarmManagerEx::getSendAlarmDatas(std::list<AlarmEx*>& batch) { m_alarmQueue.takeBatch(batch); }

int AlarmManagerEx::getSendAlarmJsonData(std::list<AlarmEx*> batch, char*& body, char*& bodyEncode,
                                         int& encodedLength) {
    if (batch.empty()) {
        return -1;
    }
    return alarmsdk::BuildRequest(kDelivery, batch, body, bodyEncode, encodedLength);
}

int processRestResponse(std::list<AlarmEx*>& batch, stru_REST_RESPONSE* response) {
    return alarmsdk::Settle(kDelivery, batch, response) == alarmsdk::AgentVerdict::Retry ? -1 : 1;
}

void deleteAlarms(std::list<AlarmEx*>& batch) {
    for (AlarmEx* alarm : batch) {
        if (alarm == nullptr) {
            ALM_LOG_ERROR("In %s, pAlarmTemp is null!", "AlarmManagerEx::deleteAlarms");
            continue;
        }
        delete alarm;
    }
    batch.clear();
}

void AlarmManagerEx::fillAlarmSouce2Alarm(AlarmEx* source, AlarmEx* target) {
    if (source == nullptr || target == nullptr) {
        ALM_LOG_ERROR("AlarmManagerEx::fillAlarmSouce2Alarm pAlarmSrc is Null!");
        return;
    }
    const char* value = !source->m_strAlarmSource.empty() ? source->m_strAlarmSource.c_str() : m_strAlarmSource.c_str();
    if (value[0] == '\0') {
        const char* podName = std::getenv("PODNAME");
        if (podName != nullptr) {
            value = podName;
        }
    }
    if (value[0] != '\0') {
        target->appendParameter("AlarmSource", value);
    }
}

void AlarmManagerEx::fillNodIp2Alarm(AlarmEx* alarm) {
    if (alarm == nullptr) {
        ALM_LOG_ERROR("AlarmManagerEx::fillNodIp2Alarm pAlarm is Null!");
        return;
    }
    if (AlmRukInterface::GetAlarmSourceAddress(alarm->m_strNodeIp)) {
        alarm->appendParameter("AlarmSourceLocation", alarm->m_strNodeIp.c_str());
    }
}

void AlarmManagerEx::acquireLock() { m_alarmQueue.lock(); }

void AlarmManagerEx::releaseLock() { m_alarmQueue.unlock(); }

void AlarmManagerEx::setServiceName(char const* serviceName) {
    StoreUnlessNull(m_strServiceName, serviceName, "AlarmManagerEx::setServiceName pStrServiceName is NULL");
}

void AlarmManagerEx::setAppId(char const* appId) {
    StoreUnlessNull(m_strAppId, appId, "AlarmManagerEx::setAppId pStrAppId is NULL");
}

void AlarmManagerEx::setNodeIp(char const* nodeIp) {
    StoreUnlessNull(m_strNodeIP, nodeIp, "AlarmManagerEx::setNodeIp pStrNodeIp is NULL");
}

void AlarmManagerEx::setServiceIp(char const* serviceIp) {
    StoreUnlessNull(m_strServiceIp, serviceIp, "AlarmManagerEx::setServiceId pStrServiceIp is NULL");
}

void AlarmManagerEx::setAlarmSource(std::string alarmSource) { m_strAlarmSource = std::move(alarmSource); }

void AlarmManagerEx::setServiceLabel(std::string serviceLabel) { m_strServiceLabel = std::move(serviceLabel); }

std::string AlarmManagerEx::getServiceName() const { return m_strServiceName; }

std::string AlarmManagerEx::getAppId() const { return m_strAppId; }

std::string AlarmManagerEx::getNodeIp() const { return m_strNodeIP; }

std::string AlarmManagerEx::getServiceIp() const { return m_strServiceIp; }

unsigned short AlarmManagerEx::getServicePort() const { return m_uServicePort; }

std::string AlarmManagerEx::getServiceLabel() const { return m_strServiceLabel; }
