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
#include <iostream>
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

// Starts a program in the background, its output appended to log.
inline pid_t Spawn(const std::vector<std::string>& args, const std::string& log) {
    std::vector<char*> argv;
    for (const auto& arg : args) {
        argv.push_back(const_cast<char*>(arg.c_str()));
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    pid_t pid = 0;
    EXPECT_EQ(posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ), 0) << argv[0];
    posix_spawn_file_actions_destroy(&actions);
    return pid;
}

// Stops a program started by Spawn, if it runs, and reaps it.
inline void Reap(pid_t& pid, int signal = SIGTERM) {
    if (pid > 0) {
        kill(pid, signal);
        waitpid(pid, nullptr, 0);
    }
    pid = 0;
}

struct Alert {
    std::map<std::string, std::string> labels, annotations;
};

// Start() runs Alertmanagers on loopback (one alone, or peers of one cluster) and the bridge program in front of all
// of them, with args added to its command line; uiPath: the folder served as the peers' web page.
class BridgeTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (access(kAlertmanager, X_OK) != 0) {
            GTEST_SKIP() << kAlertmanager << " is not installed (Debian package prometheus-alertmanager)";
        }
    }
    void TearDown() override {
        StopBridge();
        for (pid_t& peer : peers_) {
            Reap(peer);
        }
        if (HasFailure()) {  // what the bridge said explains most failures seen only under load
            std::cerr << "bridge log:\n" << std::ifstream(dir.path() + "/bridge.log").rdbuf();
        }
    }
    void Start(int count = 1, const std::vector<std::string>& args = {}, const std::string& uiPath = "") {
        std::ofstream(dir.path() + "/am.yml") << "route: {receiver: default}\nreceivers: [{name: default}]\n";
        uiPath_ = uiPath;
        bridgeArgs_ = args;
        for (int i = 0; i < count; ++i) {
            web_.push_back(FreeLoopbackPort());
            gossip_.push_back(FreeLoopbackPort());
            bridgeArgs_.insert(bridgeArgs_.end(), {"--alertmanager", PeerUrl(i)});
        }
        peers_.resize(count, 0);
        for (int i = 0; i < count; ++i) {
            StartPeer(i);
        }
        StartBridge();
    }
    void StartPeer(int i) {
        const std::string at = dir.path() + "/am" + std::to_string(i);
        const auto gossip = [&](std::size_t j) { return "127.0.0.1:" + std::to_string(gossip_[j]); };
        std::vector<std::string> args{kAlertmanager, "--config.file=" + dir.path() + "/am.yml", "--storage.path=" + at,
                                      "--web.listen-address=" + PeerUrl(i).substr(7),
                                      "--cluster.listen-address=" + (web_.size() > 1 ? gossip(i) : "")};
        if (!uiPath_.empty()) {
            args.push_back("--web.ui-path=" + uiPath_);
        }
        for (std::size_t j = 0; web_.size() > 1 && j < web_.size(); ++j) {
            if (j != std::size_t(i)) {
                args.push_back("--cluster.peer=" + gossip(j));
            }
        }
        peers_[i] = Spawn(args, at + ".log");
        ASSERT_TRUE(WaitUntil([&] { return Http(PeerUrl(i) + "/-/ready").status == 200; }, 30000)) << PeerUrl(i);
    }
    void StopPeer(int i) { Reap(peers_[i]); }
    std::string PeerUrl(int i) const { return "http://127.0.0.1:" + std::to_string(web_[i]); }
    std::vector<Alert> Alerts(int i) const {
        const auto strings = [](const cJSON* object) {
            std::map<std::string, std::string> out;
            for (const cJSON* item = object != nullptr ? object->child : nullptr; item != nullptr; item = item->next) {
                out[item->string] = cJSON_IsString(item) ? item->valuestring : "";
            }
            return out;
        };
        std::vector<Alert> out;
        Json root(cJSON_Parse(Http(PeerUrl(i) + "/api/v2/alerts").body.c_str()), cJSON_Delete);
        for (const cJSON* item = root ? root->child : nullptr; item != nullptr; item = item->next) {
            out.push_back(
                {strings(cJSON_GetObjectItem(item, "labels")), strings(cJSON_GetObjectItem(item, "annotations"))});
        }
        return out;
    }
    // Peer i's alerts, sorted: each "k=v,k=v" of all labels when full, else "alarm_id:its parameter or location".
    std::vector<std::string> Firing(int i = 0, bool full = false) const {
        static const std::set<std::string> kCommon{"alarm_id", "alertname", "app_id", "node", "service"};
        std::vector<std::string> out;
        for (const Alert& alert : Alerts(i)) {
            std::string text = full ? "" : alert.labels.at("alarm_id") + ":";
            for (const auto& [key, value] : alert.labels) {
                text += full ? (text.empty() ? "" : ",") + key + "=" + value : kCommon.count(key) ? "" : value;
            }
            out.push_back(text);
        }
        std::sort(out.begin(), out.end());
        return out;
    }

    void StartBridge() {
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
                                 BridgeUrl().substr(7), "--state", State()});
        args.insert(args.end(), bridgeArgs_.begin(), bridgeArgs_.end());
        bridge_ = Spawn(args, dir.path() + "/bridge.log");
        ASSERT_TRUE(WaitUntil([&] { return Http(BridgeUrl() + "/metrics").status == 200; }, 10000))
            << std::ifstream(dir.path() + "/bridge.log").rdbuf();
    }
    void StopBridge(int signal = SIGTERM) { Reap(bridge_, signal); }
    std::string BridgeUrl() const { return "http://127.0.0.1:" + std::to_string(bridgePort_); }
    std::string State() const { return dir.path() + "/state.db"; }
    // Posts a document (already base64 when raw) and reads the answer's code: "0" / "OK" when accepted.
    std::pair<long, std::string> Push(const std::string& document, bool raw = false) const {
        const std::string body = raw ? document : nodeward::EncodeBase64(document);
        const HttpResult got = Http(BridgeUrl() + "/om/v1/request", &body);
        std::string plain;
        nodeward::DecodeBase64(got.body, &plain);
        Json root(cJSON_Parse(plain.c_str()), cJSON_Delete);
        const cJSON* code = cJSON_GetObjectItem(root.get(), "retCode");
        const cJSON* legacy = cJSON_GetObjectItem(root.get(), "returncode");
        return {got.status, cJSON_IsNumber(code) ? std::to_string(code->valueint)
                                                 : (cJSON_IsString(legacy) ? legacy->valuestring : plain)};
    }
    // One value of the bridge's GET /metrics.
    std::string Metric(const std::string& name) const {
        const std::string text = Http(BridgeUrl() + "/metrics").body;
        const std::size_t at = text.find("\n" + name + " "), from = at + name.size() + 2;
        return at == std::string::npos ? "" : text.substr(from, text.find('\n', from) - from);
    }

    TempDir dir;

private:
    std::string uiPath_;
    std::vector<std::string> bridgeArgs_;
    std::vector<int> web_, gossip_;
    int bridgePort_ = FreeLoopbackPort();
    std::vector<pid_t> peers_;
    pid_t bridge_ = 0;
};

}  // namespace bridgetest

#endif
