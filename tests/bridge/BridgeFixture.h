// Real Alertmanager instances on free loopback ports and the alarm-bridge
// program in front of them, started and stopped per case; documents of both
// generations built as the SDK sends them.
#ifndef TEST_BRIDGE_FIXTURE_H
#define TEST_BRIDGE_FIXTURE_H

#include <cjson/cJSON.h>
#include <curl/curl.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "AgentDocument.h"
#include "TestEnv.h"

extern char** environ;

namespace bridgetest {

using testsupport::FreeLoopbackPort;
using testsupport::TempDir;
using testsupport::WaitUntil;

constexpr char kAlertmanager[] = "/usr/bin/prometheus-alertmanager";

struct HttpResult {
    long status = 0;  // 0: no answer
    std::string body;
};

inline std::size_t CollectBody(char* data, std::size_t size, std::size_t count, void* out) {
    static_cast<std::string*>(out)->append(data, size * count);
    return size * count;
}

// One request; POST when body is given.
inline HttpResult Http(const std::string& url, const std::string* body = nullptr, long timeoutMs = 5000) {
    HttpResult result;
    CURL* curl = curl_easy_init();
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, timeoutMs);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, CollectBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &result.body);
    curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    if (body != nullptr) {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body->data());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body->size()));
    }
    if (curl_easy_perform(curl) == CURLE_OK) {
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &result.status);
    }
    curl_slist_free_all(headers);
    curl_easy_cleanup(curl);
    return result;
}

// A program started in the background; SIGTERM and reaped when destroyed.
class Process {
public:
    bool start(const std::vector<std::string>& args, const std::string& log) {
        std::vector<char*> argv;
        for (const auto& arg : args) {
            argv.push_back(const_cast<char*>(arg.c_str()));
        }
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
        const int rc = posix_spawnp(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        return rc == 0 || (pid_ = 0);
    }
    void stop(int signal = SIGTERM) {
        if (pid_ > 0) {
            kill(pid_, signal);
            waitpid(pid_, nullptr, 0);
            pid_ = 0;
        }
    }
    ~Process() { stop(); }

private:
    pid_t pid_ = 0;
};

struct Alert {
    std::map<std::string, std::string> labels, annotations;
};

inline std::map<std::string, std::string> Strings(const cJSON* object) {
    std::map<std::string, std::string> out;
    for (const cJSON* item = object != nullptr ? object->child : nullptr; item != nullptr; item = item->next) {
        out[item->string] = cJSON_IsString(item) ? item->valuestring : "";
    }
    return out;
}

// Alertmanagers on loopback: one alone, or peers of one cluster; uiPath: the
// folder served as its web page.
class Alertmanagers {
public:
    Alertmanagers(const TempDir& dir, int count, std::string uiPath = "") : dir_(dir), uiPath_(std::move(uiPath)) {
        std::ofstream(dir.path() + "/am.yml") << "route: {receiver: default}\nreceivers: [{name: default}]\n";
        for (int i = 0; i < count; ++i) {
            web_.push_back(FreeLoopbackPort());
            gossip_.push_back(FreeLoopbackPort());
        }
        processes_.resize(count);
        for (int i = 0; i < count; ++i) {
            start(i);
        }
    }
    void start(int i) {
        std::vector<std::string> args{kAlertmanager, "--config.file=" + dir_.path() + "/am.yml",
                                      "--storage.path=" + dir_.path() + "/am" + std::to_string(i),
                                      "--web.listen-address=127.0.0.1:" + std::to_string(web_[i])};
        if (!uiPath_.empty()) {
            args.push_back("--web.ui-path=" + uiPath_);
        }
        if (web_.size() == 1) {
            args.push_back("--cluster.listen-address=");
        } else {
            args.push_back("--cluster.listen-address=127.0.0.1:" + std::to_string(gossip_[i]));
            for (std::size_t j = 0; j < web_.size(); ++j) {
                if (static_cast<int>(j) != i) {
                    args.push_back("--cluster.peer=127.0.0.1:" + std::to_string(gossip_[j]));
                }
            }
        }
        processes_[i] = std::make_unique<Process>();
        ASSERT_TRUE(processes_[i]->start(args, dir_.path() + "/am" + std::to_string(i) + ".log"));
        ASSERT_TRUE(WaitUntil([&] { return Http(url(i) + "/-/ready").status == 200; }, 30000)) << url(i);
    }
    void stop(int i) { processes_[i].reset(); }
    std::string url(int i) const { return "http://127.0.0.1:" + std::to_string(web_[i]); }
    // The active alerts of peer i.
    std::vector<Alert> alerts(int i) const {
        std::vector<Alert> out;
        const HttpResult got = Http(url(i) + "/api/v2/alerts");
        std::unique_ptr<cJSON, void (*)(cJSON*)> root(cJSON_Parse(got.body.c_str()), cJSON_Delete);
        for (const cJSON* item = root ? root->child : nullptr; item != nullptr; item = item->next) {
            out.push_back(
                {Strings(cJSON_GetObjectItem(item, "labels")), Strings(cJSON_GetObjectItem(item, "annotations"))});
        }
        return out;
    }

private:
    const TempDir& dir_;
    std::string uiPath_;
    std::vector<int> web_, gossip_;
    std::vector<std::unique_ptr<Process>> processes_;
};

// A current-generation alarm object; params as name=value pairs.
inline std::string CurrentAlarm(const std::string& id, int type, const std::string& params, long long time = 0,
                                const std::string& service = "orders", int rsetClear = 0) {
    std::string list;
    for (std::size_t at = 0; at < params.size();) {
        const std::size_t end = std::min(params.find(' ', at), params.size());
        const std::string pair = params.substr(at, end - at);
        const std::size_t eq = pair.find('=');
        list += (list.empty() ? "" : ",") + std::string("{\"paramName\":\"") + pair.substr(0, eq) +
                "\",\"paramValue\":\"" + pair.substr(eq + 1) + "\"}";
        at = end + 1;
    }
    return "{\"alarmId\":\"" + id +
           "\",\"appId\":\"app-7\",\"occurTime\":" + std::to_string(time != 0 ? time : 1700000000000LL) +
           ",\"serviceName\":\"" + service + "\",\"serviceIp\":\"127.0.0.1\",\"servicePort\":8080,\"serviceLabel\":\"" +
           service + "-label\",\"alarmType\":" + std::to_string(type) +
           ",\"serviceId\":\"svc-1\",\"serviceInstId\":\"inst-1\","
           "\"rsetClear\":" +
           std::to_string(rsetClear) +
           ",\"nodeIp\":\"10.0.0.1\",\"callBackInfo\":{},"
           "\"parameters\":[" +
           list + "]}";
}

inline std::string CurrentDocument(const std::string& alarms) {
    return "{\"business\":{\"name\":\"PushAlarm\"},\"payload\":{\"alarmList\":[" + alarms +
           "]},\"Receiver\":\"SendAlarm\"}";
}

// A legacy alarm object: genClear 0 raises, 1 clears.
inline std::string LegacyAlarm(const std::string& id, int genClear, const std::string& location, int rsetClear = 0) {
    const bool clear = genClear == 1;
    return "{\"alarmName\":\"EN:Disk usage high##ZH:磁盘使用率高##\",\"appId\":\"app-7\",\"alarmId\":\"" + id +
           "\",\"appName\":\"storage-app\",\"serviceName\":\"storage\",\"alarmEventType\":1,\"genClearAlarmType\":" +
           std::to_string(genClear) + ",\"alarmLevel\":2,\"alarmGenTime\":" + (clear ? "-1" : "1700000000000") +
           ",\"alarmClearTime\":" + (clear ? "1700000100000" : "-1") + ",\"alarmClearType\":" + (clear ? "0" : "2") +
           ",\"isCanAutoClearType\":1,\"eventType\":1,\"probableCause\":\"\",\"nodeID\":\"10.0.0.5\","
           "\"NodeIp\":\"10.0.0.5\",\"serviceID\":\"svc-s\",\"serviceInstID\":\"inst-s\",\"rsetClear\":" +
           std::to_string(rsetClear) + ",\"location\":\"EN:Disk=" + location + "##ZH:磁盘=" + location +
           "##\",\"appendInfo\":\"EN:Usage=95##ZH:使用率=95##\"}";
}

inline std::string LegacyDocument(const std::string& alarms) {
    return "{\"service\":{\"name\":\"szServiceName\",\"appid\":\"app-7\",\"ipaddress\":\"10.0.0.5\",\"port\":7888,"
           "\"time_stamp\":0},\"business\":{\"name\":\"PushAlarm\"},\"payload\":{\"alarmList\":[" +
           alarms + "]}}";
}

// The bridge program in front of the given Alertmanager URLs, on a free port.
class BridgeRun {
public:
    BridgeRun(const TempDir& dir, std::vector<std::string> alertmanagers, int resendSeconds = 60,
              std::vector<std::string> moreArgs = {})
        : dir_(dir), alertmanagers_(std::move(alertmanagers)), resend_(resendSeconds), moreArgs_(std::move(moreArgs)) {}
    void start() {
        const auto self = std::filesystem::read_symlink("/proc/self/exe");
        // A cross build runs the program through the emulator the tests are run with (words separated by commas).
        std::vector<std::string> args;
        if (const char* emulator = std::getenv("ALARMSDK_TEST_EMULATOR"); emulator != nullptr && *emulator != '\0') {
            std::stringstream words(emulator);
            for (std::string word; std::getline(words, word, ',');) {
                args.push_back(word);
            }
        }
        args.insert(args.end(),
                    {(self.parent_path() / ".." / "tools/alarm-bridge/alarm-bridge").string(), "--listen",
                     "127.0.0.1:" + std::to_string(port_), "--state", state(), "--resend", std::to_string(resend_)});
        for (const auto& url : alertmanagers_) {
            args.insert(args.end(), {"--alertmanager", url});
        }
        args.insert(args.end(), moreArgs_.begin(), moreArgs_.end());
        process_ = std::make_unique<Process>();
        ASSERT_TRUE(process_->start(args, dir_.path() + "/bridge.log"));
        ASSERT_TRUE(WaitUntil([&] { return Http(url() + "/metrics").status == 200; }, 10000)) << log();
    }
    void stop(int signal = SIGTERM) {
        if (process_) {
            process_->stop(signal);
        }
        process_.reset();
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
    std::string state() const { return dir_.path() + "/state.db"; }
    std::string log() const {
        std::stringstream text;
        text << std::ifstream(dir_.path() + "/bridge.log").rdbuf();
        return text.str();
    }
    // Posts a document (already base64 when raw) and reads the answer's code:
    // "0" / "OK" when accepted.
    std::pair<long, std::string> push(const std::string& document, bool raw = false) const {
        const std::string body = raw ? document : nodeward::EncodeBase64(document);
        const HttpResult got = Http(url() + "/om/v1/request", &body);
        std::string plain;
        nodeward::DecodeBase64(got.body, &plain);
        std::unique_ptr<cJSON, void (*)(cJSON*)> root(cJSON_Parse(plain.c_str()), cJSON_Delete);
        const cJSON* code = cJSON_GetObjectItem(root.get(), "retCode");
        const cJSON* legacy = cJSON_GetObjectItem(root.get(), "returncode");
        return {got.status, cJSON_IsNumber(code) ? std::to_string(code->valueint)
                                                 : (cJSON_IsString(legacy) ? legacy->valuestring : plain)};
    }
    // One value of GET /metrics.
    std::string metric(const std::string& name) const {
        const std::string text = Http(url() + "/metrics").body;
        const std::size_t at = text.find("\n" + name + " ");
        return at == std::string::npos
                   ? ""
                   : text.substr(at + name.size() + 2, text.find('\n', at + 1) - at - name.size() - 2);
    }

private:
    const TempDir& dir_;
    std::vector<std::string> alertmanagers_;
    int resend_;
    std::vector<std::string> moreArgs_;
    int port_ = FreeLoopbackPort();
    std::unique_ptr<Process> process_;
};

class BridgeTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (access(kAlertmanager, X_OK) != 0) {
            GTEST_SKIP() << kAlertmanager << " is not installed (Debian package prometheus-alertmanager)";
        }
    }
    // Labels of peer i's alerts, one "k=v,k=v" text each, sorted.
    std::vector<std::string> LabelTexts(const Alertmanagers& peers, int i) const {
        std::vector<std::string> out;
        for (const Alert& alert : peers.alerts(i)) {
            std::string text;
            for (const auto& [key, value] : alert.labels) {
                text += (text.empty() ? "" : ",") + key + "=" + value;
            }
            out.push_back(text);
        }
        std::sort(out.begin(), out.end());
        return out;
    }
    TempDir dir;
};

}  // namespace bridgetest

#endif
