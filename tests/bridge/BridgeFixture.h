// Real Alertmanager instances on free loopback ports and the alarm-bridge program in front of them, started and
// stopped per case.
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
#include <set>
#include <string>
#include <vector>

#include "../sim/PushDocuments.h"
#include "AgentDocument.h"
#include "TestEnv.h"

extern char** environ;

namespace bridgetest {

using namespace testsupport;

constexpr char kAlertmanager[] = "/usr/bin/prometheus-alertmanager";
using Json = std::unique_ptr<cJSON, void (*)(cJSON*)>;

struct HttpResult {
    long status = 0;  // 0: no answer
    std::string body;
};

// One request; POST when body is given.
inline HttpResult Http(const std::string& url, const std::string* body = nullptr) {
    HttpResult result;
    CURL* curl = curl_easy_init();
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, 5000L);
    curl_easy_setopt(
        curl, CURLOPT_WRITEFUNCTION, +[](char* data, std::size_t size, std::size_t count, void* out) {
            static_cast<std::string*>(out)->append(data, size * count);
            return size * count;
        });
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

// A program started in the background, its output appended to log; SIGTERM and reaped when destroyed.
class Process {
public:
    Process(const std::vector<std::string>& args, const std::string& log) {
        std::vector<char*> argv;
        for (const auto& arg : args) {
            argv.push_back(const_cast<char*>(arg.c_str()));
        }
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
        EXPECT_EQ(posix_spawnp(&pid_, argv[0], &actions, nullptr, argv.data(), environ), 0) << argv[0];
        posix_spawn_file_actions_destroy(&actions);
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

// Alertmanagers on loopback: one alone, or peers of one cluster; uiPath: the folder served as its web page.
class Alertmanagers {
public:
    Alertmanagers(const TempDir& dir, int count, std::string uiPath) : dir_(dir), uiPath_(std::move(uiPath)) {
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
        const std::string at = dir_.path() + "/am" + std::to_string(i);
        const auto gossip = [&](std::size_t j) { return "127.0.0.1:" + std::to_string(gossip_[j]); };
        std::vector<std::string> args{kAlertmanager, "--config.file=" + dir_.path() + "/am.yml", "--storage.path=" + at,
                                      "--web.listen-address=" + url(i).substr(7),
                                      "--cluster.listen-address=" + (web_.size() > 1 ? gossip(i) : "")};
        if (!uiPath_.empty()) {
            args.push_back("--web.ui-path=" + uiPath_);
        }
        for (std::size_t j = 0; web_.size() > 1 && j < web_.size(); ++j) {
            if (j != std::size_t(i)) {
                args.push_back("--cluster.peer=" + gossip(j));
            }
        }
        processes_[i] = std::make_unique<Process>(args, at + ".log");
        ASSERT_TRUE(WaitUntil([&] { return Http(url(i) + "/-/ready").status == 200; }, 30000)) << url(i);
    }
    void stop(int i) { processes_[i].reset(); }
    std::string url(int i) const { return "http://127.0.0.1:" + std::to_string(web_[i]); }
    std::vector<Alert> alerts(int i) const {
        std::vector<Alert> out;
        Json root(cJSON_Parse(Http(url(i) + "/api/v2/alerts").body.c_str()), cJSON_Delete);
        for (const cJSON* item = root ? root->child : nullptr; item != nullptr; item = item->next) {
            out.push_back(
                {Strings(cJSON_GetObjectItem(item, "labels")), Strings(cJSON_GetObjectItem(item, "annotations"))});
        }
        return out;
    }
    // Peer i's alerts, sorted: each "k=v,k=v" of all labels when full, else "alarm_id:its parameter or location".
    std::vector<std::string> firing(int i = 0, bool full = false) const {
        static const std::set<std::string> kCommon{"alarm_id", "alertname", "app_id", "node", "service"};
        std::vector<std::string> out;
        for (const Alert& alert : alerts(i)) {
            std::string text = full ? "" : alert.labels.at("alarm_id") + ":";
            for (const auto& [key, value] : alert.labels) {
                text += full ? (text.empty() ? "" : ",") + key + "=" + value : kCommon.count(key) ? "" : value;
            }
            out.push_back(text);
        }
        std::sort(out.begin(), out.end());
        return out;
    }

private:
    const TempDir& dir_;
    std::string uiPath_;
    std::vector<int> web_, gossip_;
    std::vector<std::unique_ptr<Process>> processes_;
};

// The bridge program in front of the given Alertmanager URLs, on a free port.
class BridgeRun {
public:
    BridgeRun(const TempDir& dir, std::vector<std::string> args) : dir_(dir), args_(std::move(args)) {}
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
        args.insert(args.end(), {(self.parent_path() / ".." / "tools/alarm-bridge/alarm-bridge").string(), "--listen",
                                 url().substr(7), "--state", state()});
        args.insert(args.end(), args_.begin(), args_.end());
        process_ = std::make_unique<Process>(args, dir_.path() + "/bridge.log");
        ASSERT_TRUE(WaitUntil([&] { return Http(url() + "/metrics").status == 200; }, 10000))
            << std::ifstream(dir_.path() + "/bridge.log").rdbuf();
    }
    void stop(int signal = SIGTERM) {
        if (process_) {
            process_->stop(signal);
        }
        process_.reset();
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
    std::string state() const { return dir_.path() + "/state.db"; }
    // Posts a document (already base64 when raw) and reads the answer's code: "0" / "OK" when accepted.
    std::pair<long, std::string> push(const std::string& document, bool raw = false) const {
        const std::string body = raw ? document : nodeward::EncodeBase64(document);
        const HttpResult got = Http(url() + "/om/v1/request", &body);
        std::string plain;
        nodeward::DecodeBase64(got.body, &plain);
        Json root(cJSON_Parse(plain.c_str()), cJSON_Delete);
        const cJSON* code = cJSON_GetObjectItem(root.get(), "retCode");
        const cJSON* legacy = cJSON_GetObjectItem(root.get(), "returncode");
        return {got.status, cJSON_IsNumber(code) ? std::to_string(code->valueint)
                                                 : (cJSON_IsString(legacy) ? legacy->valuestring : plain)};
    }
    // One value of GET /metrics.
    std::string metric(const std::string& name) const {
        const std::string text = Http(url() + "/metrics").body;
        const std::size_t at = text.find("\n" + name + " "), from = at + name.size() + 2;
        return at == std::string::npos ? "" : text.substr(from, text.find('\n', from) - from);
    }

private:
    const TempDir& dir_;
    std::vector<std::string> args_;
    int port_ = FreeLoopbackPort();
    std::unique_ptr<Process> process_;
};

// Start() runs count Alertmanagers and the bridge in front of all of them, with args added to its command line.
class BridgeTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (access(kAlertmanager, X_OK) != 0) {
            GTEST_SKIP() << kAlertmanager << " is not installed (Debian package prometheus-alertmanager)";
        }
    }
    void Start(int count = 1, std::vector<std::string> args = {}, const std::string& uiPath = "") {
        peers = std::make_unique<Alertmanagers>(dir, count, uiPath);
        for (int i = 0; i < count; ++i) {
            args.insert(args.end(), {"--alertmanager", peers->url(i)});
        }
        bridge = std::make_unique<BridgeRun>(dir, args);
        bridge->start();
    }
    TempDir dir;
    std::unique_ptr<Alertmanagers> peers;
    std::unique_ptr<BridgeRun> bridge;
};

}  // namespace bridgetest

#endif
