// alarm-bridge: durable ingest against the same bridge with its state in
// memory, over HTTP and without; resident memory with 100,000 active alarms;
// one full resend round to a local Alertmanager against posting the same
// alerts directly; wake-ups while idle. A program of its own, so its memory
// and threads are the bridge's alone.
#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "AgentDocument.h"
#include "BenchSmoke.h"
#include "Bridge.h"
#include "BridgeServer.h"
#include "TestEnv.h"

extern char** environ;

namespace {

constexpr int kBatch = 50;
constexpr char kAlertmanager[] = "/usr/bin/prometheus-alertmanager";

// A batch as the SDK sends it: 50 raises from one service, parameter n making each its own alert.
std::string Body(int batch) {
    std::string alarms;
    for (int k = 0; k < kBatch; ++k) {
        const int n = batch * kBatch + k;
        alarms += (k == 0 ? "" : ",") + std::string("{\"alarmId\":\"300012\",\"appId\":\"app-7\",\"occurTime\":") +
                  std::to_string(1700000000000LL + n) +
                  ",\"serviceName\":\"orders\",\"serviceIp\":\"127.0.0.1\",\"servicePort\":9,\"serviceLabel\":"
                  "\"orders-label\",\"alarmType\":1,\"serviceId\":\"svc-1\",\"serviceInstId\":\"inst-1\","
                  "\"rsetClear\":1,\"nodeIp\":\"10.0.0.1\",\"callBackInfo\":{\"serviceName\":\"orders\","
                  "\"registerName\":\"orders\",\"serviceIp\":\"127.0.0.1\"},\"parameters\":[{\"paramName\":\"disk\","
                  "\"paramValue\":\"sda\"},{\"paramName\":\"n\",\"paramValue\":\"" +
                  std::to_string(n) + "\"}]}";
    }
    return nodeward::EncodeBase64("{\"business\":{\"name\":\"PushAlarm\"},\"payload\":{\"alarmList\":[" + alarms +
                                  "]},\"Receiver\":\"SendAlarm\"}");
}

const std::vector<std::string>& Bodies() {
    static const std::vector<std::string> bodies = [] {
        std::vector<std::string> out;
        for (int b = 0; b < 400; ++b) {
            out.push_back(Body(b));
        }
        return out;
    }();
    return bodies;
}

// One "Name:  N kB" line of /proc/self/status.
long StatusKb(const std::string& name = "VmRSS") {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.compare(0, name.size() + 1, name + ":") == 0) {
            return std::stol(line.substr(name.size() + 1));
        }
    }
    return 0;
}
long RssKb() { return StatusKb(); }

// Ingest: arg 0 the state in a file (durable), 1 in memory (the baseline).
void Ingest(benchmark::State& state) {
    testsupport::TempDir dir;
    bridge::BridgeOptions options;
    options.state = state.range(0) == 0 ? dir.path() + "/state.db" : ":memory:";
    bridge::Bridge core(options);
    std::string error;
    if (!core.start(&error, false)) {
        state.SkipWithError(error.c_str());
        return;
    }
    const auto& bodies = Bodies();
    std::size_t i = 0;
    for (auto _ : state) {
        const bridge::HttpAnswer answer = core.push(bodies[i++ % bodies.size()]);
        if (answer.status != 200) {
            state.SkipWithError("refused");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations() * kBatch);
    state.SetLabel(state.range(0) == 0 ? "durable" : "in memory");
}
BENCHMARK(Ingest)
    ->Arg(0)
    ->Arg(1)
    ->MinTime(benchsmoke::Scaled(2.0, 0.01))
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMicrosecond);

std::size_t Discard(char*, std::size_t size, std::size_t count, void*) { return size * count; }

// The same over loopback HTTP from one client with keep-alive, as one SDK send thread posts.
void IngestOverHttp(benchmark::State& state) {
    testsupport::TempDir dir;
    bridge::BridgeOptions options;
    options.state = state.range(0) == 0 ? dir.path() + "/state.db" : ":memory:";
    bridge::Bridge core(options);
    bridge::BridgeServer server(core);
    std::string error;
    if (!core.start(&error, false) || !server.start("127.0.0.1:0", &error)) {
        state.SkipWithError(error.c_str());
        return;
    }
    const std::string url = "http://127.0.0.1:" + std::to_string(server.port()) + "/om/v1/request";
    CURL* curl = curl_easy_init();
    curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Discard);
    const auto& bodies = Bodies();
    std::size_t i = 0;
    for (auto _ : state) {
        const std::string& body = bodies[i++ % bodies.size()];
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
        long status = 0;
        if (curl_easy_perform(curl) != CURLE_OK ||
            (curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status), status != 200)) {
            state.SkipWithError("post failed");
            break;
        }
    }
    curl_slist_free_all(headers);
    curl_easy_cleanup(curl);
    state.SetItemsProcessed(state.iterations() * kBatch);
    state.SetLabel(state.range(0) == 0 ? "durable" : "in memory");
}
// Process CPU: the server thread's work counts, and other load on a shared machine does not.
BENCHMARK(IngestOverHttp)
    ->Arg(0)
    ->Arg(1)
    ->MinTime(benchsmoke::Scaled(2.0, 0.01))
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMicrosecond);

struct Alertmanager {
    Alertmanager(const testsupport::TempDir& dir) : port(testsupport::FreeLoopbackPort()) {
        std::ofstream(dir.path() + "/am.yml") << "route: {receiver: default}\nreceivers: [{name: default}]\n";
        const std::string config = "--config.file=" + dir.path() + "/am.yml";
        const std::string storage = "--storage.path=" + dir.path() + "/am";
        const std::string web = "--web.listen-address=127.0.0.1:" + std::to_string(port);
        char* argv[] = {const_cast<char*>(kAlertmanager),
                        const_cast<char*>(config.c_str()),
                        const_cast<char*>(storage.c_str()),
                        const_cast<char*>(web.c_str()),
                        const_cast<char*>("--cluster.listen-address="),
                        const_cast<char*>("--log.level=error"),
                        nullptr};
        if (posix_spawn(&pid, kAlertmanager, nullptr, nullptr, argv, environ) != 0) {
            pid = 0;
        }
        testsupport::WaitUntil([this] { return Get("/-/ready") == 200; }, 30000);
    }
    ~Alertmanager() {
        if (pid > 0) {
            kill(pid, SIGTERM);
            waitpid(pid, nullptr, 0);
        }
    }
    long Get(const std::string& path) const {
        CURL* curl = curl_easy_init();
        curl_easy_setopt(curl, CURLOPT_URL, (url() + path).c_str());
        curl_easy_setopt(curl, CURLOPT_NOPROXY, "*");
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Discard);
        long status = 0;
        if (curl_easy_perform(curl) == CURLE_OK) {
            curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
        }
        curl_easy_cleanup(curl);
        return status;
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port); }
    int port;
    pid_t pid = 0;
};

std::string Metric(const std::string& text, const std::string& name) {
    const std::size_t at = text.find("\n" + name + " ");
    return at == std::string::npos ? ""
                                   : text.substr(at + name.size() + 2, text.find('\n', at + 1) - at - name.size() - 2);
}

const int kActive = benchsmoke::Scaled(100000, 1000);

// 100,000 active alarms: the bridge's resident memory, and one full resend
// round (a start with them in the state sends them all) to a local
// Alertmanager. The baseline posts the same alerts to it directly, 1000 per post.
void ActiveAlarms(benchmark::State& state) {
    if (access(kAlertmanager, X_OK) != 0) {
        state.SkipWithError("prometheus-alertmanager is not installed");
        return;
    }
    testsupport::TempDir dir;
    const long rssBefore = RssKb();
    bridge::BridgeOptions options;
    options.state = dir.path() + "/state.db";
    {
        bridge::Bridge filler(options);
        std::string error;
        filler.start(&error, false);
        for (int b = 0; b < kActive / kBatch; ++b) {
            filler.push(Body(b));
        }
    }
    const long rssFilled = RssKb();
    Alertmanager am(dir);
    options.alertmanagers = {am.url()};
    const bool direct = state.range(0) == 1;
    for (auto _ : state) {
        if (direct) {
            state.PauseTiming();
            std::vector<std::string> posts;
            for (int p = 0; p < kActive / 1000; ++p) {
                std::string body = "[";
                for (int k = 0; k < 1000; ++k) {
                    const int n = p * 1000 + k;
                    body +=
                        std::string(k == 0 ? "" : ",") +
                        "{\"labels\":{\"alertname\":\"Alarm 300012\",\"alarm_id\":\"300012\",\"app_id\":\"app-7\","
                        "\"service\":\"orders\",\"node\":\"10.0.0.1\",\"disk\":\"sda\",\"n\":\"" +
                        std::to_string(n) +
                        "\"},\"annotations\":{\"summary\":\"alarm 300012 of orders (disk=sda, n=" + std::to_string(n) +
                        ")\"},\"startsAt\":\"2023-11-14T22:13:20.000Z\"}";
                }
                posts.push_back(body + "]");
            }
            state.ResumeTiming();
            CURL* curl = curl_easy_init();
            curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
            const std::string url = am.url() + "/api/v2/alerts";
            curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
            curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
            curl_easy_setopt(curl, CURLOPT_NOPROXY, "*");
            curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Discard);
            for (const std::string& body : posts) {
                curl_easy_setopt(curl, CURLOPT_POSTFIELDS, body.data());
                curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
                curl_easy_perform(curl);
            }
            curl_slist_free_all(headers);
            curl_easy_cleanup(curl);
            continue;
        }
        bridge::Bridge core(options);
        std::string error;
        core.start(&error, true);
        // Polled slowly: each look counts the active alerts.
        bool done = false;
        for (int waited = 0; waited < 60000 && !done; waited += 50) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            done = Metric(core.metrics(), "alarm_bridge_alerts_forwarded_total") == std::to_string(kActive);
        }
        state.PauseTiming();
        state.counters["rss_mb"] = static_cast<double>(RssKb()) / 1024.0;
        state.counters["rss_added_mb"] = static_cast<double>(RssKb() - rssBefore) / 1024.0;
        state.counters["rss_filled_mb"] = static_cast<double>(rssFilled - rssBefore) / 1024.0;
        state.counters["rss_anon_mb"] = static_cast<double>(StatusKb("RssAnon")) / 1024.0;
        state.counters["rss_file_mb"] = static_cast<double>(StatusKb("RssFile") + StatusKb("RssShmem")) / 1024.0;
        if (!done) {
            state.SkipWithError("not every alert was forwarded within 60 s");
        }
        core.stop();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * kActive);
    state.SetLabel(direct ? "posted directly" : "bridge resend round");
}
BENCHMARK(ActiveAlarms)->Arg(0)->Arg(1)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

long WakeUps() {
    long total = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream status(task.path() / "status");
        std::string line;
        while (std::getline(status, line)) {
            if (line.compare(0, 24, "voluntary_ctxt_switches:") == 0 ||
                line.compare(0, 27, "nonvoluntary_ctxt_switches:") == 0) {
                total += std::stol(line.substr(line.find(':') + 1));
            }
        }
    }
    return total;
}

// A bridge with alarms in its state and a peer, left alone for 5 s between
// resend rounds: its threads' context switches (this thread's own sleep
// counts a few). Baseline: the same window with no bridge.
void Idle(benchmark::State& state) {
    if (access(kAlertmanager, X_OK) != 0) {
        state.SkipWithError("prometheus-alertmanager is not installed");
        return;
    }
    testsupport::TempDir dir;
    Alertmanager am(dir);
    bridge::BridgeOptions options;
    options.state = dir.path() + "/state.db";
    options.alertmanagers = {am.url()};
    std::unique_ptr<bridge::Bridge> core;
    std::unique_ptr<bridge::BridgeServer> server;
    if (state.range(0) == 0) {
        core = std::make_unique<bridge::Bridge>(options);
        server = std::make_unique<bridge::BridgeServer>(*core);
        std::string error;
        core->start(&error, true);
        server->start("127.0.0.1:0", &error);
        for (int b = 0; b < 4; ++b) {
            core->push(Body(b));
        }
        std::this_thread::sleep_for(std::chrono::seconds(1));  // forwarded, checks sent
    }
    for (auto _ : state) {
        const long before = WakeUps();
        std::this_thread::sleep_for(std::chrono::seconds(benchsmoke::Scaled(5, 1)));
        state.counters["wakeups"] = static_cast<double>(WakeUps() - before);
    }
    state.SetLabel(state.range(0) == 0 ? "bridge idle" : "no bridge");
}
BENCHMARK(Idle)->Arg(0)->Arg(1)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    curl_global_init(CURL_GLOBAL_DEFAULT);
    signal(SIGPIPE, SIG_IGN);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
