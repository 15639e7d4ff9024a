// The agent's side of an alarm check: one POST to the service's callback
// resource.
#include <cjson/cJSON.h>
#include <curl/curl.h>

#include <mutex>
#include <string>

#include "AgentDocument.h"
#include "AlarmCheckPost.h"

namespace nodeward {

namespace {

constexpr long kConnectTimeoutMs = 2000;
constexpr long kTotalTimeoutMs = 5000;
constexpr std::size_t kMaxAnswerBytes = 1u << 20;

std::size_t Collect(char* data, std::size_t size, std::size_t count, void* user) {
    auto* answer = static_cast<std::string*>(user);
    const std::size_t n = size * count;
    if (answer->size() + n > kMaxAnswerBytes) {
        return 0;  // makes curl fail the transfer rather than buffer without end
    }
    answer->append(data, n);
    return n;
}

// Builds {"callBackInfo":{"serviceName":..},"callBackAlarms":<json>}; false
// when callBackAlarmsJson is not JSON.
bool BuildCheck(const std::string& serviceName, const std::string& callBackAlarmsJson, std::string* text) {
    cJSON* alarms = cJSON_ParseWithOpts(callBackAlarmsJson.c_str(), nullptr, 1);
    if (alarms == nullptr) {
        return false;
    }
    cJSON* root = cJSON_CreateObject();
    cJSON* info = cJSON_AddObjectToObject(root, "callBackInfo");
    cJSON_AddStringToObject(info, "serviceName", serviceName.c_str());
    cJSON_AddItemToObject(root, "callBackAlarms", alarms);
    char* printed = cJSON_PrintUnformatted(root);
    cJSON_Delete(root);
    if (printed == nullptr) {
        return false;
    }
    *text = printed;
    cJSON_free(printed);
    return true;
}

}  // namespace

int PostAlarmCheck(const std::string& host, int port, const std::string& serviceName, const std::string& appId,
                   const std::string& callBackAlarmsJson, std::string* answer, std::string* error) {
    std::string ignoredError;
    if (error == nullptr) {
        error = &ignoredError;
    }
    std::string check;
    if (!BuildCheck(serviceName, callBackAlarmsJson, &check)) {
        *error = "callBackAlarms is not JSON";
        return -1;
    }
    static std::once_flag curlInit;
    std::call_once(curlInit, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });

    const std::string authority = host.find(':') != std::string::npos ? "[" + host + "]" : host;
    // The path is used as the service registered it, without escaping.
    const std::string url =
        "http://" + authority + ":" + std::to_string(port) + "/" + serviceName + "/" + appId + "/alarmCheck/callBack";
    const std::string body = EncodeBase64(check);

    CURL* curl = curl_easy_init();
    if (curl == nullptr) {
        *error = "curl_easy_init failed";
        return -1;
    }
    std::string received;
    curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_NOPROXY, "*");  // a proxy from the environment must not see loopback traffic
    curl_easy_setopt(curl, CURLOPT_POST, 1L);
    curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
    curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, kConnectTimeoutMs);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, kTotalTimeoutMs);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &received);
    const CURLcode code = curl_easy_perform(curl);
    long status = -1;
    if (code == CURLE_OK) {
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    } else {
        *error = std::string("POST ") + url + ": " + curl_easy_strerror(code);
    }
    curl_slist_free_all(headers);
    curl_easy_cleanup(curl);
    if (code != CURLE_OK) {
        return -1;
    }
    if (answer != nullptr) {
        *answer = received;
    }
    return static_cast<int>(status);
}

}  // namespace nodeward
