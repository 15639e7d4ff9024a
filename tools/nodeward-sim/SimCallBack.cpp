// The call-back relay: the services' addresses learnt from their alarms, and
// alarm checks sent to them (one POST to the service's callback resource) on
// request, through /sim/callback, or once after a service's first alarm.
#include <cjson/cJSON.h>
#include <curl/curl.h>

#include <mutex>
#include <string>

#include "SimDocument.h"
#include "SimServer.h"

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

// "callback to NAME: status 200 answer <base64> (<decoded>)"
std::string DescribeCallBack(const std::string& name, int status, const std::string& answer,
                             const std::string& error) {
    if (status < 0) {
        return "callback to " + name + ": failed (" + error + ")";
    }
    // The library answers with a trailing zero byte; people see the text before it.
    const std::string text = answer.substr(0, answer.find('\0'));
    std::string decoded;
    const std::string shown = DecodeBase64(text, &decoded) ? decoded : std::string("not base64");
    return "callback to " + name + ": status " + std::to_string(status) + " answer " + text + " (" + shown + ")";
}

// The alarm-check POST itself (2 s to connect, 5 s in all). The HTTP status
// with the raw answer body, or -1 with *error set (invalid JSON, connection
// failure, timeout).
int PostAlarmCheck(const std::string& host, int port, const std::string& serviceName, const std::string& appId,
                   const std::string& callBackAlarmsJson, std::string* answer, std::string* error) {
    std::string check;
    if (!BuildCheck(serviceName, callBackAlarmsJson, &check)) {
        *error = "callBackAlarms is not JSON";
        return -1;
    }
    static std::once_flag curlInit;
    std::call_once(curlInit, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });

    const std::string authority = host.find(':') != std::string::npos ? "[" + host + "]" : host;
    // The path is used as the service registered it, without escaping.
    const std::string url = "http://" + authority + ":" + std::to_string(port) + "/" + serviceName + "/" + appId +
                            "/alarmCheck/callBack";
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

}  // namespace

void Sim::Impl::learn(const std::vector<ReceivedAlarm>& alarms) {
    for (const auto& alarm : alarms) {
        if (alarm.serviceName.empty() || alarm.serviceIp.empty() || alarm.servicePort < 0 ||
            alarm.servicePort > 65535) {
            continue;
        }
        ServiceAddress& known = services[alarm.serviceName];
        // Field by field: the strings keep their capacity, so a known service costs no allocation.
        known.ip = alarm.serviceIp;
        known.port = static_cast<int>(alarm.servicePort);
        known.appId = alarm.appId;
        for (const auto& [service, json] : options.callBackOnFirstAlarm) {
            if (service == alarm.serviceName && firstAlarmCallBacksDone.insert(service).second) {
                pendingCallBacks.emplace_back(service, json);
            }
        }
    }
}

MHD_Result Sim::Impl::answerCallBack(MHD_Connection* connection, Exchange* exchange) {
    exchange->route = Route::Answered;
    const char* service = MHD_lookup_connection_value(connection, MHD_GET_ARGUMENT_KIND, "service");
    if (service == nullptr || *service == '\0') {
        return Answer(connection, MHD_HTTP_BAD_REQUEST, "missing ?service=NAME\n");
    }
    std::string answer;
    std::string error;
    bool unknown = false;
    const int status = callBackLearnt(service, exchange->body, &answer, &error, &unknown);
    if (options.printAlarms) {
        print(DescribeCallBack(service, status, answer, error));
    }
    if (status < 0) {
        const unsigned int code = unknown ? MHD_HTTP_NOT_FOUND : MHD_HTTP_BAD_GATEWAY;
        return Answer(connection, code, error + "\n");
    }
    return Answer(connection, static_cast<unsigned int>(status), answer);
}

int Sim::Impl::callBackLearnt(const std::string& name, const std::string& json, std::string* answer,
                              std::string* error, bool* unknown) {
    ServiceAddress address;
    {
        std::lock_guard<std::mutex> lock(mu);
        const auto it = services.find(name);
        if (it == services.end()) {
            *unknown = true;
            *error = "no alarm with an address has come from service " + name;
            return -1;
        }
        address = it->second;
    }
    return PostAlarmCheck(address.ip, address.port, name, address.appId, json, answer, error);
}

void Sim::Impl::workerLoop() {
    for (;;) {
        std::pair<std::string, std::string> next;
        {
            std::unique_lock<std::mutex> lock(mu);
            changed.wait(lock, [this] { return stopping || !pendingCallBacks.empty(); });
            if (stopping) {
                return;
            }
            next = pendingCallBacks.front();
            pendingCallBacks.pop_front();
        }
        std::string answer;
        std::string error;
        bool unknown = false;
        const int status = callBackLearnt(next.first, next.second, &answer, &error, &unknown);
        const std::string line = DescribeCallBack(next.first, status, answer, error);
        if (options.printAlarms) {
            print(line);
        } else if (status < 0) {
            LogError(line);
        }
    }
}

int Sim::callBack(const std::string& serviceName, const std::string& callBackAlarmsJson, std::string* answer) {
    std::string error;
    bool unknown = false;
    return impl_->callBackLearnt(serviceName, callBackAlarmsJson, answer, &error, &unknown);
}

}  // namespace nodeward
