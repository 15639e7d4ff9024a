// Alarm check: the agent posts a check to the service; the transport
// thread only decodes, queues and answers, and one thread of ours hands each
// check to the callback of the service it names.
#include "AlarmManagerEx.h"

#include <cjson/cJSON.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include "AlmLog.h"
#include "Base64.h"
#include "NoThrow.h"
#include "Pause.h"
#include "bounded_string.h"

namespace {

const char kLogSource[] = "../src/AlarmManagerEx";

const char kCallBackPathFormat[] = "/%s/%s/alarmCheck/callBack";
constexpr std::size_t kCallBackPathSize = 1024;
constexpr int kRegisterAttempts = 5;

// The answer every queued check gets, before its callback runs.
const char kCallBackAnswer[] = "{\"retCode\": \"0\",\"retDesc\": \"success\"}";

// The service map is read by the alarm-check thread while services register.
std::mutex& CallBackMapMutex() {
    static std::mutex* mutex = new std::mutex();
    return *mutex;
}

// Makes starting the alarm-check service one step: registrations on several
// threads at once start exactly one thread and set up the resource once.
std::mutex& CheckStartMutex() {
    static std::mutex* mutex = new std::mutex();
    return *mutex;
}

// The decoded checks waiting for the alarm-check thread, bounded in
// requests and bytes. One check is a full pass: the thread is woken as soon
// as one is queued.
const alarmsdk::QueueLimits<std::string> kCheckQueueLimits = {
    .logSource = kLogSource,
    .lockFailure = "AlarmManger::AcquireAlarmCheckQueueLock, pthread_mutex_lock failed.",
    .unlockFailure = "AlarmManger::ReleaseAlarmCheckQueueLock, pthread_mutex_unlock failed.",
    .capacity = AlarmManagerEx::kCheckQueueCapacity,
    .batch = 1,
    .byteBound = AlarmManagerEx::kCheckQueueBytes,
    .bytesOf = [](const std::string& check) { return check.size(); },
    .refusal = "AlarmManagerEx::ProcessAlarmCheckInterface, alarm check queue is full (%zu requests, %zu bytes), "
               "request of %zu bytes refused.",
};

// True when text can be one segment of the callback path that every client
// sends byte for byte: RFC 3986 unreserved characters, sub-delimiters, ':'
// and '@'. Anything else ('?', '#', '%', '/', blanks, controls, non-ASCII) is
// encoded, cut or normalised by some client and would never match.
bool IsVerbatimSegment(const std::string& text) {
    static const char kPunctuation[] = "-._~!$&'()*+,;=:@";
    if (text == "." || text == "..") {
        return false;
    }
    for (char c : text) {
        const bool alnum = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        if (!alnum && (c == '\0' || std::strchr(kPunctuation, c) == nullptr)) {
            return false;
        }
    }
    return true;
}

}  // namespace

// Shared by all managers, and deliberately never destroyed.
alarmsdk::AlarmQueue<std::string>& AlarmManagerEx::m_CheckList =
    *new alarmsdk::AlarmQueue<std::string>(kCheckQueueLimits);
std::map<std::string, AlarmManagerEx*>& AlarmManagerEx::alarmCheckMap = *new std::map<std::string, AlarmManagerEx*>();
stru_REST_RESOURCE* AlarmManagerEx::restResAlmSdk =
    static_cast<stru_REST_RESOURCE*>(std::calloc(1, sizeof(stru_REST_RESOURCE)));
std::atomic<int> AlarmManagerEx::alarmCheckInitStatus{0};
pthread_t AlarmManagerEx::m_nAlarmCheckTid = 0;

// fork(): AcquireAlarmCheckQueueLock and its release are defined below.
void AlarmManagerEx::LockChecksForFork() {
    CheckStartMutex().lock();
    CallBackMapMutex().lock();
    AcquireAlarmCheckQueueLock();
}

// In the child too: its checks stay with the parent's server, but the locks must be free.
void AlarmManagerEx::UnlockChecksAfterFork() {
    ReleaseAlarmCheckQueueLock();
    CallBackMapMutex().unlock();
    CheckStartMutex().unlock();
}

void AlarmManagerEx::AcquireAlarmCheckQueueLock() { m_CheckList.lock(); }

void AlarmManagerEx::ReleaseAlarmCheckQueueLock() { m_CheckList.unlock(); }

void AlarmManagerEx::RouteAlarmChecks(const std::string& serviceName, AlarmManagerEx* manager) {
    std::lock_guard<std::mutex> lock(CallBackMapMutex());
    alarmCheckMap[serviceName] = manager;
}

int AlarmManagerEx::RegAlarmCheckInterface(std::string serviceName, AlarmCheckCallBack callback) {
    {
        std::lock_guard<std::mutex> lock(CheckStartMutex());
        if (alarmCheckInitStatus.load(std::memory_order_acquire) == 0) {
            ALM_LOG_INFO("AlarmManagerEx::ResitAlarmCheckInterface Start to init alarm check.");
            (void)TransportSdkInit();
            if (restResAlmSdk != nullptr) {
                std::memset(restResAlmSdk, 0, sizeof(*restResAlmSdk));
                restResAlmSdk->handler = &AlarmManagerEx::ProcessAlarmCheckInterface;
                // Checks are posted; any other method is answered 405 by the transport.
                restResAlmSdk->methods = 1u << REST_REQUEST_POST;
            }
            if (InitAlarmCheckThread() != 0) {
                ALM_LOG_ERROR("AlarmManagerEx::ResitAlarmCheckInterface Alarm Check Thread start failed.");
                return -1;
            }
            ALM_LOG_INFO("AlarmManagerEx::ResitAlarmCheckInterface Alarm Check Thread start success");
            alarmCheckInitStatus.store(1, std::memory_order_release);
        } else {
            // Idempotent once the server runs; a start that failed (no memory,
            // address not configured yet) is tried again by the next registration.
            (void)TransportSdkInit();
        }
    }

    if (serviceName.empty()) {
        m_strServiceName.clear();
        ALM_LOG_ERROR("AlarmManagerEx::ResitAlarmCheckInterface szServiceName Is empty");
        return 0;
    }
    char path[kCallBackPathSize] = {0};
    if (!IsVerbatimSegment(serviceName) || !IsVerbatimSegment(m_strAppId) ||
        snprintf_s(path, sizeof(path), sizeof(path) - 1, kCallBackPathFormat, serviceName.c_str(),
                   m_strAppId.c_str()) < 0) {
        // Registering would succeed, but no agent request could ever match the path.
        ALM_LOG_ERROR("AlarmManagerEx::ResitAlarmCheckInterface serviceName %s with appId %s cannot be reached "
                      "in a URL path, refused",
                      serviceName.c_str(), m_strAppId.c_str());
        return -1;
    }
    m_strServiceName = serviceName;

    int result = -1;
    for (int attempt = 0; attempt < kRegisterAttempts; ++attempt) {
        result = RegisterUrl(path, restResAlmSdk);
        if (result == 0) {
            RouteAlarmChecks(m_strServiceName, this);
            ALM_LOG_INFO("RegResource success,iret=%d, url=%s, serviceName=%s", result, path,
                         m_strServiceName.c_str());
            break;
        }
        alarmsdk::Pause(1);
        ALM_LOG_ERROR("RegResource failed,iret=%d, url=%s", result, path);
    }
    if (result == 0) {
        m_pAlarmCheckCallBack.store(callback, std::memory_order_release);
    }
    return result;
}

int AlarmManagerEx::ProcessAlarmCheckInterface(stru_REST_REQUEST* request, stru_REST_RESPONSE* response) {
    // Called by the transport through a C function pointer: nothing may escape.
    return alarmsdk::NoThrow(ALM_CALL_SITE("AlarmManagerEx::ProcessAlarmCheckInterface"), -1,
                             [&] { return QueueAlarmCheck(request, response); });
}

int AlarmManagerEx::QueueAlarmCheck(stru_REST_REQUEST* request, stru_REST_RESPONSE* response) {
    ALM_LOG_INFO("AlarmManagerEx::ProcessAlarmCheckInterface,func in.");
    if (response == nullptr) {
        ALM_LOG_ERROR("In %s, response is null!", "AlarmManagerEx::ProcessAlarmCheckInterface");
        return -1;
    }
    if (request == nullptr) {
        ALM_LOG_ERROR("In %s, request is null!", "AlarmManagerEx::ProcessAlarmCheckInterface");
        return -1;
    }
    if (request->body == nullptr) {
        ALM_LOG_ERROR("In %s, request->body is null!", "AlarmManagerEx::ProcessAlarmCheckInterface");
        return -1;
    }
    if (request->bodyLen == 0) {
        ALM_LOG_ERROR("AlarmManagerEx::ProcessAlarmCheckInterface,request body is empty.");
        return -1;
    }
    // The transport leaves room for a terminator at index bodyLen.
    request->body[request->bodyLen] = '\0';
    if (request->body[0] == '\0') {
        ALM_LOG_ERROR("AlarmCheck response body is NULL");
        return -1;
    }
    std::unique_ptr<char[]> decodedBuffer(new (std::nothrow) char[request->bodyLen + 1]());
    if (decodedBuffer == nullptr) {
        ALM_LOG_ERROR("In %s, reqBodyDecode is null!", "AlarmManagerEx::ProcessAlarmCheckInterface");
        return -1;
    }
    if (zeb_alm_base64_decode(request->body, static_cast<int>(request->bodyLen), decodedBuffer.get(), nullptr) ==
        -1) {
        ALM_LOG_ERROR("decode request body error");
        return -1;
    }
    std::unique_ptr<std::string> decoded(new std::string(decodedBuffer.get()));
    decodedBuffer.reset();
    if (!m_CheckList.pushWithinLimits(std::move(decoded))) {
        return -1;
    }
    return GenCallBackResponse(response) == 0 ? 0 : -1;
}

int AlarmManagerEx::GenCallBackResponse(stru_REST_RESPONSE* response) {
    if (response == nullptr) {
        ALM_LOG_ERROR("In %s, response is null!", "AlarmManagerEx::GenCallBackResponse");
        return -1;
    }
    const std::size_t plainLength = sizeof(kCallBackAnswer) - 1;
    char* encoded = new (std::nothrow) char[2 * plainLength]();
    if (encoded == nullptr) {
        ALM_LOG_ERROR("In %s, retInfoEncode is null!", "AlarmManagerEx::ProcessAlarmCheckInterface");
        return -1;
    }
    char plain[sizeof(kCallBackAnswer)];
    std::memcpy(plain, kCallBackAnswer, sizeof(kCallBackAnswer));
    unsigned int encodedLength = 0;
    if (zeb_alm_base64_encode(plain, static_cast<int>(plainLength), encoded, &encodedLength) == -1 ||
        encoded[0] == '\0') {
        ALM_LOG_ERROR("decode request body error");
        delete[] encoded;
        return -1;
    }
    // The zero byte after the text is part of the body and of its length.
    const std::size_t size = encodedLength + 1;
    if (allocRspBody(&response->body, size) != 0) {
        delete[] encoded;
        return -1;
    }
    (void)memset_s(response->body, size, 0, size);
    (void)strncpy_s(response->body, size, encoded, size - 1);
    response->body[size - 1] = '\0';
    delete[] encoded;
    response->bodyLen = size;
    response->status = 200;
    int ret = zeb_restHeadContentAdd(response->header, "Content-Type", "text/plain");
    if (ret != 0) {
        ALM_LOG_ERROR("Call zeb_restHeadContentAdd fail, errno: %d", ret);
        return -1;
    }
    return 0;
}

void* AlarmManagerEx::ProcessAlarmCheckToUsersThreadFun(void* /*unused*/) {
    (void)pthread_setname_np(pthread_self(), "alarmsdk-check");
    for (;;) {
        if (!DeliverNextAlarmCheck()) {
            alarmsdk::IdleWait(alarmsdk::kIdlePollSeconds, m_CheckList);
        }
    }
    return nullptr;
}

bool AlarmManagerEx::DeliverNextAlarmCheck() {
    // Unlocked emptiness test: the caller is the only consumer.
    if (m_CheckList.size() == 0) {
        return false;
    }
    // A check that fails (no memory, a callback that throws) is dropped with
    // a log line; the next one is handled as usual.
    alarmsdk::NoThrow(ALM_CALL_SITE("AlarmManagerEx::ProcessAlarmCheckToUsersThreadFun"), 0, [] {
        const std::unique_ptr<std::string> check = m_CheckList.pop();
        if (check != nullptr) {
            DeliverAlarmCheck(*check);
        }
        return 0;
    });
    return true;
}

void AlarmManagerEx::DeliverAlarmCheck(const std::string& request) {
    // Released also when copying a text runs out of memory.
    const std::unique_ptr<cJSON, void (*)(cJSON*)> root(cJSON_Parse(request.c_str()), &cJSON_Delete);
    if (root == nullptr) {
        ALM_LOG_ERROR("The response body convert to json failed.");
        return;
    }
    AlarmManagerEx* manager = GetCallBackInstance(root.get());
    if (manager == nullptr) {
        ALM_LOG_ERROR("Can not find the AlarmManager Instance point.");
        return;
    }
    std::string alarms = GetAlarmCheckInfo(root.get());
    if (alarms.empty()) {
        ALM_LOG_ERROR("Get empty call back info, callBackInfo is %s", request.c_str());
        return;
    }
    AlarmCheckCallBack callback = manager->getAlarmCheckCallBack();
    if (callback != nullptr) {
        callback(&alarms[0]);
    }
}

AlarmManagerEx* AlarmManagerEx::GetCallBackInstance(cJSON* root) {
    cJSON* info = cJSON_GetObjectItem(root, "callBackInfo");
    if (info == nullptr) {
        ALM_LOG_ERROR("In %s, pJsonCallBackInfo is null!", "AlarmManagerEx::GetCallBackInstance");
        return nullptr;
    }
    cJSON* serviceName = cJSON_GetObjectItem(info, "serviceName");
    // Only a JSON string names a service.
    if (serviceName == nullptr || !cJSON_IsString(serviceName) || serviceName->valuestring == nullptr) {
        ALM_LOG_ERROR("In %s, pJsonServiceName is null!", "AlarmManagerEx::GetCallBackInstance");
        return nullptr;
    }
    ALM_LOG_INFO("Alarm Call Back Service is %s", serviceName->valuestring);
    std::lock_guard<std::mutex> lock(CallBackMapMutex());
    auto found = alarmCheckMap.find(serviceName->valuestring);
    if (found == alarmCheckMap.end()) {
        ALM_LOG_ERROR("There is no service %s", serviceName->valuestring);
        return nullptr;
    }
    return found->second;
}

std::string AlarmManagerEx::GetAlarmCheckInfo(cJSON* root) {
    cJSON* alarms = cJSON_GetObjectItem(root, "callBackAlarms");
    if (alarms == nullptr) {
        ALM_LOG_ERROR("In %s, pJsonCheckInfo is null!", "AlarmManagerEx::GetAlarmCheckInfo");
        return std::string();
    }
    const std::unique_ptr<char, void (*)(void*)> printed(cJSON_PrintUnformatted(alarms), &cJSON_free);
    if (printed == nullptr) {
        ALM_LOG_ERROR("In %s, alarmCheckInfo is null!", "AlarmManagerEx::GetAlarmCheckInfo");
        return std::string();
    }
    return std::string(printed.get());
}
