// The call-back relay: the services' addresses learnt from their alarms, and
// alarm checks sent to them (one POST to the service's callback resource) on
// request, through /sim/callback, or once after a service's first alarm.
#include <mutex>
#include <string>

#include "AlarmCheckPost.h"
#include "SimDocument.h"
#include "SimServer.h"

namespace nodeward {

namespace {

// "callback to NAME: status 200 answer <base64> (<decoded>)"
std::string DescribeCallBack(const std::string& name, int status, const std::string& answer, const std::string& error) {
    if (status < 0) {
        return "callback to " + name + ": failed (" + error + ")";
    }
    // The library answers with a trailing zero byte; people see the text before it.
    const std::string text = answer.substr(0, answer.find('\0'));
    std::string decoded;
    const std::string shown = DecodeBase64(text, &decoded) ? decoded : std::string("not base64");
    return "callback to " + name + ": status " + std::to_string(status) + " answer " + text + " (" + shown + ")";
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

int Sim::Impl::callBackLearnt(const std::string& name, const std::string& json, std::string* answer, std::string* error,
                              bool* unknown) {
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
