// Helpers for the sim's tests: plain libcurl posts and small documents.
#ifndef SIM_TEST_HELPERS_H
#define SIM_TEST_HELPERS_H

#include <curl/curl.h>

#include <string>

#include "NodewardSim.h"
#include "SimDocument.h"

namespace simtest {

struct HttpResult {
    CURLcode code = CURLE_OK;
    long status = 0;
    std::string body;
};

inline std::size_t AppendBody(char* data, std::size_t size, std::size_t count, void* user) {
    static_cast<std::string*>(user)->append(data, size * count);
    return size * count;
}

// One POST (or GET when body is null); unixPath routes it over a unix socket.
inline HttpResult Http(const std::string& url, const std::string* body, const std::string& unixPath = "",
                       long timeoutMs = 5000) {
    HttpResult result;
    CURL* curl = curl_easy_init();
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, timeoutMs);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, AppendBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &result.body);
    if (body != nullptr) {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body->data());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body->size()));
    }
    if (!unixPath.empty()) {
        curl_easy_setopt(curl, CURLOPT_UNIX_SOCKET_PATH, unixPath.c_str());
    }
    result.code = curl_easy_perform(curl);
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &result.status);
    curl_easy_cleanup(curl);
    return result;
}

inline HttpResult Post(const std::string& url, const std::string& body, const std::string& unixPath = "") {
    return Http(url, &body, unixPath);
}

inline std::string PushUrl(const nodeward::Sim& sim) {
    return "http://127.0.0.1:" + std::to_string(sim.port()) + "/om/v1/request";
}

inline std::string Encode(const std::string& text) { return nodeward::EncodeBase64(text); }

inline std::string Decode(const std::string& text) {
    std::string plain;
    return nodeward::DecodeBase64(text, &plain) ? plain : "<not base64: " + text + ">";
}

inline nodeward::SimOptions Loopback() {
    nodeward::SimOptions options;
    options.endpoint = "127.0.0.1:0";
    return options;
}

// A current alarm object as the library writes it.
inline std::string CurrentAlarm(const std::string& id, int type, const std::string& service = "orders",
                                int port = 8080, const std::string& appId = "app-7") {
    return "{\"alarmId\":\"" + id + "\",\"appId\":\"" + appId +
           "\",\"occurTime\":1795784527123,\"serviceName\":\"" + service +
           "\",\"serviceIp\":\"127.0.0.1\",\"servicePort\":" + std::to_string(port) +
           ",\"serviceLabel\":\"orders-label\",\"alarmType\":" + std::to_string(type) +
           ",\"serviceId\":\"svc-1\",\"serviceInstId\":\"inst-1\",\"rsetClear\":1,\"nodeIp\":\"10.0.0.1\","
           "\"callBackInfo\":{\"serviceName\":\"" + service + "\",\"registerName\":\"" + service +
           "\",\"serviceIp\":\"127.0.0.1\"},"
           "\"parameters\":[{\"paramName\":\"disk\",\"paramValue\":\"sda\"},"
           "{\"paramName\":\"usage\",\"paramValue\":\"95\"}]}";
}

inline std::string CurrentDocument(const std::string& alarms) {
    return "{\"business\":{\"name\":\"PushAlarm\"},\"payload\":{\"alarmList\":[" + alarms +
           "]},\"Receiver\":\"SendAlarm\"}";
}

inline std::string LegacyDocument(const std::string& alarms) {
    return "{\"service\":{\"name\":\"szServiceName\",\"appid\":\"app-7\",\"ipaddress\":\"10.0.0.1\",\"port\":7888,"
           "\"time_stamp\":0},\"business\":{\"name\":\"PushAlarm\"},\"payload\":{\"alarmList\":[" +
           alarms + "]}}";
}

inline std::string LegacyAlarm(const std::string& id, int genClear) {
    return "{\"alarmName\":\"EN:Disk full##ZH:disk##\",\"appId\":\"app-7\",\"alarmId\":\"" + id +
           "\",\"appName\":\"shop\",\"serviceName\":\"orders\",\"alarmEventType\":3,\"genClearAlarmType\":" +
           std::to_string(genClear) +
           ",\"alarmLevel\":2,\"alarmGenTime\":1795784527123,\"alarmClearTime\":1795784528000,"
           "\"alarmClearType\":2,\"isCanAutoClearType\":1,\"eventType\":0,\"probableCause\":\"\","
           "\"nodeID\":\"10.0.0.1\",\"NodeIp\":\"10.0.0.1\",\"serviceID\":\"svc-1\",\"serviceInstID\":\"inst-1\","
           "\"rsetClear\":1,\"location\":\"EN:Disk=sda##ZH:Disk=sda##\",\"appendInfo\":\"EN:Usage=95##ZH:Usage=95##\"}";
}

}  // namespace simtest

#endif
