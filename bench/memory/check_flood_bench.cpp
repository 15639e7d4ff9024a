// Memory of a service whose alarm-check port is flooded: 1,000 posts of
// 1 MiB each while its callback is busy with the first check. Peak RSS is
// reported beside the RSS the same process had just before the flood. It is
// a program of its own because peak RSS is per process.
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "AlarmSdk.h"
#include "Base64.h"
#include "RestCall.h"
#include "TestEnv.h"
#include "transport_sdk_testing.h"

namespace {

constexpr int kPosts = 1000;
constexpr std::size_t kPostBytes = TRANSPORT_SDK_MAX_BODY;  // 1 MiB of base64 text

std::atomic<bool> g_floodOver{false};
void BusyCallback(char*) {
    for (int waited = 0; !g_floodOver.load() && waited < 600000; ++waited) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// A field of /proc/self/status in kB ("VmRSS", "VmHWM").
long StatusKb(const char* field) {
    FILE* file = std::fopen("/proc/self/status", "r");
    char line[256];
    long value = -1;
    while (file != nullptr && std::fgets(line, sizeof(line), file) != nullptr) {
        if (std::strncmp(line, field, std::strlen(field)) == 0 && line[std::strlen(field)] == ':') {
            value = std::strtol(line + std::strlen(field) + 1, nullptr, 10);
        }
    }
    if (file != nullptr) {
        std::fclose(file);
    }
    return value;
}

// A check whose base64 text is exactly kPostBytes long.
std::string FloodBody() {
    const std::string head = "{\"callBackInfo\":{\"serviceName\":\"orders\"},\"callBackAlarms\":\"";
    const std::size_t plain = kPostBytes / 4 * 3;
    std::string doc = head + std::string(plain - head.size() - 2, 'p') + "\"}";
    std::string encoded(kPostBytes + 1, '\0');
    zeb_alm_base64_encode(&doc[0], static_cast<int>(doc.size()), &encoded[0], nullptr);
    encoded.resize(kPostBytes);
    return encoded;
}

void BM_CheckFlood(benchmark::State& state) {
    setenv("APPID", "app-7", 1);
    setenv("APPNAME", "orders-app", 1);
    setenv("TRANSPORT_SDK_IP", "127.0.0.1", 1);
    const std::string port = std::to_string(testsupport::FreeLoopbackPort());
    setenv("TRANSPORT_SDK_PORT", port.c_str(), 1);
    setenv("RUNLOG_FILE", "/dev/null", 1);
    if (ZEBInitAlarmSDK() != 0 || ZEBRegisterAlarmCheckCallBackFun("orders", &BusyCallback) != 0) {
        state.SkipWithError("service did not start");
        return;
    }
    const std::string url = "http://127.0.0.1:" + port + "/orders/app-7/alarmCheck/callBack";
    const std::string body = FloodBody();
    long baseline = 0;
    int refused = 0;
    for (auto _ : state) {
        baseline = StatusKb("VmRSS");
        for (int i = 0; i < kPosts; ++i) {
            refused += testsupport::RestCall(url, body).status == 200 ? 0 : 1;
        }
    }
    g_floodOver = true;
    const long peak = StatusKb("VmHWM");
    state.counters["baseline_MB"] = baseline / 1024.0;
    state.counters["peak_MB"] = peak / 1024.0;
    state.counters["peak_per_baseline"] = static_cast<double>(peak) / static_cast<double>(baseline);
    state.counters["refused"] = refused;
}
BENCHMARK(BM_CheckFlood)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
