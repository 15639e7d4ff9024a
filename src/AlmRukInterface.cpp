#include "AlmRukInterface.h"

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#include "AlmLog.h"
#include "bounded_string.h"

namespace {

const char kLogSource[] = "../src/AlmRukInterface";

const char kAgentUrl[] = "http://" REST_LOCAL_ENDPOINT "/om/v1/request";

constexpr size_t kIpSize = 16;
constexpr size_t kUrlSize = 43;
constexpr size_t kCookieSize = 1025;
constexpr size_t kContentLengthSize = 21;

static_assert(sizeof(kAgentUrl) <= kUrlSize, "the agent URL must fit its buffer");

// A co-process manager may re-read the environment while other managers'
// send threads read the addresses, so access is serialised.
std::mutex& AddressMutex() {
    static std::mutex* mutex = new std::mutex();
    return *mutex;
}

void StoreIfLongerThanOne(const char* variable, std::string& target) {
    const char* value = std::getenv(variable);
    if (value != nullptr && std::strlen(value) > 1) {
        std::lock_guard<std::mutex> lock(AddressMutex());
        target = value;
    }
}

char* NewZeroed(size_t size) { return new (std::nothrow) char[size](); }

}  // namespace

const uint16_t AlmRukInterface::m_uLocalPort = 7888;
std::string& AlmRukInterface::m_strNodeIP = *new std::string();
std::string& AlmRukInterface::m_strServiceIp = *new std::string();

void AlmRukInterface::InitNodeIP() { StoreIfLongerThanOne("HOSTING_SERVER_IP", m_strNodeIP); }

void AlmRukInterface::InitServiceIp() { StoreIfLongerThanOne("SERVER_IP", m_strServiceIp); }

void AlmRukInterface::InitAllIp() {
    InitNodeIP();
    InitServiceIp();
}

std::string AlmRukInterface::GetNodeIP() {
    std::lock_guard<std::mutex> lock(AddressMutex());
    return m_strNodeIP;
}

void AlmRukInterface::LockAddressesForFork() { AddressMutex().lock(); }

void AlmRukInterface::UnlockAddressesAfterFork() { AddressMutex().unlock(); }

std::string AlmRukInterface::GetServiceIp() {
    std::lock_guard<std::mutex> lock(AddressMutex());
    return m_strServiceIp;
}

bool AlmRukInterface::GetAlarmSourceAddress(std::string& address) {
    {
        std::lock_guard<std::mutex> lock(AddressMutex());
        if (!m_strNodeIP.empty()) {
            address = m_strNodeIP;
            return true;
        }
    }
    const char* serverIp = std::getenv("SERVER_IP");
    if (serverIp == nullptr || serverIp[0] == '\0') {
        return false;
    }
    address = serverIp;
    return true;
}

unsigned short AlmRukInterface::GetLocalPort() { return m_uLocalPort; }

stru_REST_REQUEST* AlmRukInterface::AllocRestRequest(size_t bodyLength) {
    stru_REST_REQUEST* request = new (std::nothrow) stru_REST_REQUEST();
    if (request == nullptr) {
        ALM_LOG_ERROR("In %s, pRequest is null!", "AlmRukInterface::AllocRestRequest");
        return nullptr;
    }
    // Releases what exists so far and names the part that could not be made.
    auto abandon = [request](const char* part) -> stru_REST_REQUEST* {
        FreeRestRequest(request);
        ALM_LOG_ERROR("AlmRukInterface::AllocRestRequest, request->%s is NULL", part);
        return nullptr;
    };
    if ((request->ip = NewZeroed(kIpSize)) == nullptr) {
        return abandon("ip");
    }
    if ((request->url = NewZeroed(kUrlSize)) == nullptr) {
        return abandon("url");
    }
    if ((request->header = zeb_restHeadContentCreate()) == nullptr) {
        return abandon("header");
    }
    if ((request->body = NewZeroed(bodyLength + 1)) == nullptr) {
        return abandon("body");
    }
    if ((request->cookie = NewZeroed(kCookieSize)) == nullptr) {
        return abandon("cookie");
    }
    return request;
}

void AlmRukInterface::FreeRestRequest(stru_REST_REQUEST* request) {
    if (request == nullptr) {
        ALM_LOG_ERROR("In %s, pRequest is null!", "AlmRukInterface::FreeRestRequest");
        return;
    }
    delete[] request->ip;
    request->ip = nullptr;
    delete[] request->url;
    request->url = nullptr;
    delete[] request->body;
    request->body = nullptr;
    if (request->header != nullptr) {
        zeb_restHeadContentClear(request->header);
        zeb_restHeadContentDestory(request->header);
        request->header = nullptr;
    }
    delete[] request->cookie;
    request->cookie = nullptr;
    delete request;
}

stru_REST_REQUEST* AlmRukInterface::BuildPushRequest(const char* body, size_t bodyLength) {
    stru_REST_REQUEST* request = AllocRestRequest(bodyLength);
    if (request == nullptr) {
        ALM_LOG_ERROR("In %s, pRequest is null!", "AlmRukInterface::SendRestRequest");
        return nullptr;
    }
    (void)strncpy_s(request->url, kUrlSize, kAgentUrl, kUrlSize - 1);

    if (zeb_restHeadContentAdd(request->header, "Content-Type", "application/json") != 0) {
        FreeRestRequest(request);
        ALM_LOG_ERROR("AlmRukInterface::SendRestRequest, restHeadContentAdd failed.");
        return nullptr;
    }
    char contentLength[kContentLengthSize] = {0};
    (void)snprintf_s(contentLength, sizeof(contentLength), sizeof(contentLength) - 1, "%zu", bodyLength);
    if (zeb_restHeadContentAdd(request->header, "Content-Length", contentLength) != 0) {
        FreeRestRequest(request);
        ALM_LOG_ERROR("AlmRukInterface::SendRestRequest, restHeadContentAdd failed.");
        return nullptr;
    }

    if (body != nullptr && bodyLength > 0) {
        (void)memcpy_s(request->body, bodyLength + 1, body, bodyLength);
    }
    request->bodyLen = bodyLength;
    return request;
}

stru_REST_RESPONSE* AlmRukInterface::SendRestRequest(const char* body, size_t bodyLength) {
    stru_REST_REQUEST* request = BuildPushRequest(body, bodyLength);
    if (request == nullptr) {
        return nullptr;
    }
    stru_REST_RESPONSE* response = nullptr;
    int ret = sendRequest("", REST_REQUEST_POST, request, &response);
    if (ret != 0) {
        // The client may not have produced a response record on failure.
        ALM_LOG_ERROR("AlmRukInterface::SendRestRequest, sendRequest failed,retcode(%d).",
                      response != nullptr ? response->status : ret);
        FreeRestRequest(request);
        freeRestResponse(&response);
        return nullptr;
    }
    FreeRestRequest(request);
    return response;
}
