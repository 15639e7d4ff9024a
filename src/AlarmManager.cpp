#include "AlarmManager.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include "AlarmAdapter.h"
#include "AlarmConfig.h"
#include "AlarmSendLoop.h"
#include "AlmJsonParser.h"
#include "AlmLog.h"
#include "AlmRukInterface.h"
#include "ForkSafety.h"
#include "NoThrow.h"
#include "bounded_string.h"

namespace {

const char kLogSource[] = "../src/AlarmManager";

constexpr std::size_t kServiceNameMax = 64;
constexpr std::size_t kAlarmIdSize = 10;
constexpr std::size_t kTextSize = ALM_JSON_PARA_TEXT_SIZE;

// The legacy delivery: AlarmSendLoop.h takes it from the queue to the agent.
const alarmsdk::Generation<_AlarmModel> kDelivery = {
    .logSource = kLogSource,
    .threadFunction = "AlarmManager::sendAlarmToFMThreadFun",
    .buildDocument = [](const std::list<_AlarmModel*>& batch) { return AlmJsonParser::GenRestDataJson(batch); },
    .buffers = alarmsdk::Buffers::Malloc,
    .allocFailure = "malloc error.......",
    .logAnswerBody = true,
    .readRetCode = &AlmJsonParser::GetRetCode,
    .successLevel = RUNLOG_LEVEL_INFO,
    .successText = "send alarmModels success!",
    .deleteBatch = &deleteAlarmModels,
};

// Two services' threads may call InitAlarm at once; the configuration load
// is not safe to run twice in parallel. Never destroyed: see DEVELOPERS.md.
std::mutex& InitMutex() {
    static std::mutex* mutex = new std::mutex();
    return *mutex;
}

std::mutex& SourceMutex() {
    static std::mutex* mutex = new std::mutex();
    return *mutex;
}

// A bounded copy of the field's full size: a text that would fill the field leaves it empty.
template <std::size_t N>
void CopyField(char (&field)[N], const char* text) {
    (void)strncpy_s(field, N, text, N);
    field[N - 1] = '\0';
}

void FillFromDefinition(_AlarmModel* model, Alarm* alarm, const stAlarmItems* def, const char* alarmId) {
    const int64_t now = static_cast<int64_t>(ALM_GetCurrMs());
    const bool generated = alarm->GetGenClearAlarmType() == ZEB_ALARM_GENERATE;
    model->reserved = 0;
    CopyField(model->serviceName, def->serviceType);
    CopyField(model->alarmId, alarmId);
    CopyField(model->nodeIp, AlmRukInterface::GetNodeIP().c_str());
    CopyField(model->serviceID, def->serviceId);
    CopyField(model->serviceInstID, def->serviceInsId);
    model->rsetClear = def->rsetClear;
    model->alarmEventType = def->alarmType;
    model->genClearAlarmType = generated ? 0 : 1;
    CopyField(model->alarmName, def->alarmName);
    model->alarmLevel = def->alarmLevel;
    model->alarmGenTime = generated ? now : -1;
    model->alarmClearTime = generated ? -1 : now;
    model->alarmClearType = generated ? 2 : 0;
    model->isCanAutoClearType = def->isAutoClean;
    model->eventType = def->eventType;
    CopyField(model->probableCause, "");
    std::memset(model->trailer, 0, sizeof(model->trailer));
}

// Copies a finished bilingual text into the model; a missing one (its buffer
// could not be allocated) becomes "".
void CopyText(char* field, const ALM_Json_Para_def* record, const char* missingMessage, const char* logFormat) {
    const char* text = record->Json_para_Value;
    if (text == nullptr) {
        ALM_LOG_ERROR("%s", missingMessage);
        text = "";
    }
    ALM_LOG_INFO(logFormat, text);
    (void)strncpy_s(field, kTextSize, text, kTextSize);
}

void FreeTextBuffer(char*& buffer, const char* missingMessage) {
    if (buffer == nullptr) {
        ALM_LOG_ERROR(missingMessage, "AlarmManager::deleteALM_Json_ParaPtr");
        return;
    }
    std::free(buffer);
    buffer = nullptr;
}

// Copies the environment variable `name` into `*out` with its log line; false,
// with `missingMessage`, when it is unset (start-up then stops short).
bool ReadIdentity(const char* name, const char* missingMessage, const char* gotFormat, std::string* out) {
    const char* value = std::getenv(name);
    if (value == nullptr) {
        ALM_LOG_ERROR("%s", missingMessage);
        return false;
    }
    *out = value;
    ALM_LOG_INFO(gotFormat, value);
    return true;
}

// Set in a forked child whose parent was sending: the child's first alarm starts its send thread.
std::atomic<bool> g_sendAfterFork{false};

}  // namespace

AlarmManager* AlarmManager::m_pInstance = new AlarmManager();

// In the order InitXML takes them: initialisation, loading, then the queue.
void AlarmManager::LockForFork() {
    InitMutex().lock();
    ALM_LockLoadsForFork();
    SourceMutex().lock();
    m_pAlarmQueue->lock();
}

void AlarmManager::UnlockAfterFork() {
    m_pAlarmQueue->unlock();
    SourceMutex().unlock();
    ALM_UnlockLoadsAfterFork();
    InitMutex().unlock();
}

void AlarmManager::RestartInChild() {
    m_pAlarmQueue->restartInChild(&m_queueLockAttr);
    if (m_nSendThreadTid != 0) {
        m_nSendThreadTid = 0;
        g_sendAfterFork.store(true);
    }
    SourceMutex().unlock();
    ALM_UnlockLoadsAfterFork();
    InitMutex().unlock();
}

AlarmManager* AlarmManager::GetInstance() {
    if (m_pInstance == nullptr) {
        m_pInstance = new AlarmManager();
    }
    return m_pInstance;
}

AlarmManager::AlarmManager() : m_uInitFlag(0), m_pAlarmQueue(nullptr), m_nSendThreadTid(0) {
    m_strAppId = "";
    m_strAppName = "";
    int ret = pthread_mutexattr_init(&m_queueLockAttr);
    if (ret != 0) {
        ALM_LOG_ERROR("AlarmManger::Initialize, pthread_mutexattr_init failed, iRet=%d.", ret);
    }
    ret = pthread_mutexattr_settype(&m_queueLockAttr, PTHREAD_MUTEX_NORMAL);
    if (ret != 0) {
        ALM_LOG_ERROR("AlarmManger::Initialize, pthread_mutexattr_settype failed, iRet=%d.", ret);
    }
    m_pAlarmQueue = new alarmsdk::AlarmQueue<_AlarmModel>({kLogSource}, &m_queueLockAttr);
    alarmsdk::GuardForks();
    std::memset(m_szReserved, 0, sizeof(m_szReserved));
}

AlarmManager::~AlarmManager() = default;

void AlarmManager::InitXML(const char* xmlFilePath, const char* serviceId, const char* serviceInsId,
                           long rsetClear) {
    std::lock_guard<std::mutex> initLock(InitMutex());
    if (m_uInitFlag.load(std::memory_order_acquire) == 1) {
        return;
    }
    ALM_LOG_INFO("input xmlfilePath is : %s", xmlFilePath != nullptr ? xmlFilePath : "");
    char resolved[PATH_MAX] = {0};
    if (xmlFilePath == nullptr || realpath(xmlFilePath, resolved) == nullptr) {
        ALM_LOG_ERROR("input xmlFilePath is not realpath!");
        return;
    }
    ALM_LOG_INFO("xmlfile realpath is : %s", resolved);
    ALM_SetConfFilePath(resolved);
    ALM_LOG_INFO("set xml file success!");
    ALM_ConfInit();
    ALM_LOG_INFO("init xml success!");
    ALM_RsetConf(serviceId, serviceInsId, rsetClear);

    {
        // Released on every path: copying the identity can run out of memory.
        AcquireLock();
        const alarmsdk::ScopeExit unlock([this] { ReleaseLock(); });
        const char* nodeId = std::getenv("NODE_ID");
        if (nodeId != nullptr) {
            m_strNodeId = nodeId;
        }
        AlmRukInterface::InitAllIp();
        if (!ReadIdentity("APPID", "APPID is NULL", "Get AppId %s", &m_strAppId) ||
            !ReadIdentity("APPNAME", "APPNAME is NULL", "Get AppName %s", &m_strAppName)) {
            return;
        }
        if (initSendThread() == 1) {
            m_uInitFlag.store(1, std::memory_order_release);
        }
    }
    if (rsetClear == 1) {
        (void)RegisterRsetClear();
    }
}

int AlarmManager::SendAlarm(Alarm* alarm) {
    if (alarm == nullptr) {
        ALM_LOG_ERROR("AlarmManager::SendAlarm alarm IS NULL!\n");
        return 0;
    }
    // Deliberately unlocked: a caller is never held up by the send thread.
    if (m_pAlarmQueue->refuseIfFull()) {
        ALM_LOG_ERROR("the alarm queue is full, this alarm has been removed !");
        return 0;
    }
    const std::string source = alarmSource();
    if (alarm->GetServiceName()[0] == '\0' && !source.empty()) {
        alarm->SetServiceInsName(source.c_str());
    }
    ALM_LOG_INFO("start to send alarm %s", alarm->GetAlarmId());
    char alarmId[kAlarmIdSize] = {0};
    (void)strncpy_s(alarmId, sizeof(alarmId), alarm->GetAlarmId(), sizeof(alarmId) - 1);

    stAlarmItems* definition = nullptr;
    (void)ALM_GetAlarmConfigInfo(std::atoi(alarmId), &definition);
    if (definition == nullptr) {
        ALM_LOG_ERROR("Get alarm %s failed, there is not this alarm!", alarmId);
        return 0;
    }
    ALM_LOG_INFO("Get alarm %s success", alarmId);
    if (CHECK_ALARMODEL(alarm, definition) != 1) {
        ALM_LOG_ERROR("alarmid is %s, check alarmmodel failed!", alarmId);
        return 0;
    }

    std::unique_ptr<_AlarmModel> model(new (std::nothrow) _AlarmModel());
    if (model == nullptr) {
        ALM_LOG_ERROR("In %s, alarmModel is null!", "alarmModel");
        return 0;
    }
    CopyField(model->appId, m_strAppId.c_str());
    CopyField(model->appName, m_strAppName.c_str());
    FillFromDefinition(model.get(), alarm, definition, alarmId);

    // Released also when building the texts runs out of memory.
    using Texts = std::unique_ptr<ALM_Json_Para_def, void (*)(ALM_Json_Para_def*)>;
    const Texts location(new (std::nothrow) ALM_Json_Para_def(), &deleteALM_Json_ParaPtr);
    if (location == nullptr) {
        ALM_LOG_ERROR("In %s, locationJson is null!", "locationJson");
        return 0;
    }
    const Texts appendInfo(new (std::nothrow) ALM_Json_Para_def(), &deleteALM_Json_ParaPtr);
    if (appendInfo == nullptr) {
        ALM_LOG_ERROR("In %s, appendInfoJson is null!", "appendInfoJson");
        return 0;
    }
    ALM_ContructLocationAndAppendParainfo(alarm, definition, location.get(), appendInfo.get());
    CopyText(model->location, location.get(), "build location failed", "location is %s");
    CopyText(model->appendInfo, appendInfo.get(), "build appendInfo failed", "appendInfo is %s");

    m_pAlarmQueue->push(std::move(model));
    if (g_sendAfterFork.load(std::memory_order_relaxed) && g_sendAfterFork.exchange(false)) {
        (void)initSendThread();
    }
    return 1;
}

int AlarmManager::RegisterRsetClear() {
    std::unique_ptr<_AlarmModel> model(new (std::nothrow) _AlarmModel());
    if (model == nullptr) {
        ALM_LOG_ERROR("In %s, alarmModel is null!", "alarmModel");
        return 0;
    }
    // Only the identity: the JSON builder turns id "0" into the registration object.
    CopyField(model->alarmId, "0");
    CopyField(model->appId, m_strAppId.c_str());
    CopyField(model->appName, m_strAppName.c_str());
    m_pAlarmQueue->push(std::move(model));
    return 0;
}

void AlarmManager::SetAlarmSource(const char* source) {
    std::lock_guard<std::mutex> lock(SourceMutex());
    if (source != nullptr && strnlen(source, kServiceNameMax) > 0) {
        m_strAlarmSource = source;
    } else {
        m_strAlarmSource = "";
    }
}

std::string AlarmManager::alarmSource() const {
    std::lock_guard<std::mutex> lock(SourceMutex());
    return m_strAlarmSource;
}

void AlarmManager::AcquireLock() { m_pAlarmQueue->lock(); }

void AlarmManager::ReleaseLock() { m_pAlarmQueue->unlock(); }

int AlarmManager::initSendThread() {
    if (m_nSendThreadTid != 0) {
        return 0;
    }
    pthread_t tid;
    if (pthread_create(&tid, nullptr, &AlarmManager::sendAlarmToFMThreadFun, this) != 0) {
        ALM_LOG_ERROR("create send alarm thread failed!");
        return 0;
    }
    m_nSendThreadTid = tid;
    ALM_LOG_INFO("create send alarm thread success!");
    return 1;
}

void* AlarmManager::sendAlarmToFMThreadFun(void* /*unused*/) {
    (void)pthread_setname_np(pthread_self(), "alarmsdk-legacy");
    alarmsdk::RunSendLoop(kDelivery, *GetInstance()->m_pAlarmQueue);
    return nullptr;
}

// The send loop's steps, one at a time, for callers that drive them by hand.
void AlarmManager::getSendAlarmDatas(std::list<_AlarmModel*>& batch) { m_pAlarmQueue->takeBatch(batch); }

int AlarmManager::getSendAlarmJsonData(std::list<_AlarmModel*> batch, char*& body, char*& bodyEncode,
                                       int& encodedLength) {
    return alarmsdk::BuildRequest(kDelivery, batch, body, bodyEncode, encodedLength);
}

std::size_t AlarmManager::queuedModelCount() const { return m_pAlarmQueue->size(); }

alarmsdk::DeliveryCounters& AlarmManager::deliveryCounters() { return m_pAlarmQueue->counters(); }

int processRestResponse(std::list<_AlarmModel*>& batch, stru_REST_RESPONSE* response) {
    return alarmsdk::Settle(kDelivery, batch, response) == alarmsdk::AgentVerdict::Retry ? -1 : 1;
}

void deleteAlarmModels(std::list<_AlarmModel*>& batch) {
    for (_AlarmModel* model : batch) {
        if (model == nullptr) {
            ALM_LOG_ERROR("In %s, pAlarmModel is null!", "AlarmManager::deleteAlarmModels");
            continue;
        }
        delete model;
    }
    batch.clear();
}

void deleteALM_Json_ParaPtr(ALM_Json_Para_def* record) {
    if (record == nullptr) {
        return;
    }
    FreeTextBuffer(record->Json_para_Value, "In %s, pJson->Json_para_Value is null!");
    FreeTextBuffer(record->Json_para_Value_En, "In %s, pJson->Json_para_Value_En is null!");
    FreeTextBuffer(record->Json_para_Value_Ch, "In %s, pJson->Json_para_Value_Ch is null!");
    delete record;
}
