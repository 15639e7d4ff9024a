// CPU the library's threads use with nothing to do: both generations' send
// threads and the alarm-check thread, over a ten-second window, in ms of CPU
// (and wake-ups) per minute. A program of its own, so that no other
// benchmark's threads are running.
#include <benchmark/benchmark.h>

#include <pthread.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "AlarmSdk.h"
#include "Pause.h"
#include "TestEnv.h"

namespace {

constexpr int kWindowSeconds = 10;

struct Idler {
    pid_t tid;
    clockid_t clock;
};

std::mutex& IdlersMutex() {
    static std::mutex* mutex = new std::mutex();
    return *mutex;
}
std::vector<Idler>& Idlers() {
    static auto* idlers = new std::vector<Idler>();
    return *idlers;
}

// Notes each thread that goes idle, then waits as production does.
void NotingWait(unsigned int seconds, alarmsdk::IdleWaitable& work) {
    const pid_t tid = static_cast<pid_t>(syscall(SYS_gettid));
    {
        std::lock_guard<std::mutex> lock(IdlersMutex());
        auto& idlers = Idlers();
        if (std::none_of(idlers.begin(), idlers.end(), [tid](const Idler& i) { return i.tid == tid; })) {
            Idler idler{tid, {}};
            pthread_getcpuclockid(pthread_self(), &idler.clock);
            idlers.push_back(idler);
        }
    }
    work.waitIdle(std::chrono::seconds(seconds));
}

double CpuMillis(const std::vector<Idler>& idlers) {
    double total = 0;
    for (const Idler& idler : idlers) {
        timespec used{};
        clock_gettime(idler.clock, &used);
        total += static_cast<double>(used.tv_sec) * 1e3 + static_cast<double>(used.tv_nsec) / 1e6;
    }
    return total;
}

// Context switches of the threads: each wake-up from a wait is one.
long Switches(const std::vector<Idler>& idlers) {
    long total = 0;
    for (const Idler& idler : idlers) {
        const std::string path = "/proc/self/task/" + std::to_string(idler.tid) + "/status";
        FILE* file = std::fopen(path.c_str(), "r");
        char line[256];
        while (file != nullptr && std::fgets(line, sizeof(line), file) != nullptr) {
            if (std::strstr(line, "ctxt_switches:") != nullptr) {
                total += std::strtol(std::strchr(line, ':') + 1, nullptr, 10);
            }
        }
        if (file != nullptr) {
            std::fclose(file);
        }
    }
    return total;
}

void NoCheck(char*) {}

void IdleThreads(benchmark::State& state) {
    const std::string port = std::to_string(testsupport::FreeLoopbackPort());
    setenv("APPID", "app-7", 1);
    setenv("APPNAME", "orders-app", 1);
    setenv("TRANSPORT_SDK_IP", "127.0.0.1", 1);
    setenv("TRANSPORT_SDK_PORT", port.c_str(), 1);
    setenv("RUNLOG_FILE", "/dev/null", 1);
    alarmsdk::SetIdleWaitFunction(&NotingWait);
    if (ZEBInitAlarmSDK() != 0 || InitAlarm(ALARMSDK_EXAMPLES_DIR "/legacy/alarms.xml", "storage-svc", "storage-0", 0) != 1 ||
        ZEBRegisterAlarmCheckCallBackFun("orders", &NoCheck) != 0) {
        state.SkipWithError("the library did not start");
        return;
    }
    std::vector<Idler> idlers;
    for (int waited = 0; waited < 100 && idlers.size() < 3; ++waited) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        std::lock_guard<std::mutex> lock(IdlersMutex());
        idlers = Idlers();
    }
    if (idlers.size() < 3) {
        state.SkipWithError("not every thread went idle");
        return;
    }
    std::this_thread::sleep_for(std::chrono::seconds(1));
    double cpu = 0;
    long switches = 0;
    for (auto _ : state) {
        const double cpu0 = CpuMillis(idlers);
        const long switches0 = Switches(idlers);
        std::this_thread::sleep_for(std::chrono::seconds(kWindowSeconds));
        cpu += CpuMillis(idlers) - cpu0;
        switches += Switches(idlers) - switches0;
    }
    const double minutes = static_cast<double>(state.iterations()) * kWindowSeconds / 60.0;
    state.counters["threads"] = static_cast<double>(idlers.size());
    state.counters["cpu_ms_per_minute"] = cpu / minutes;
    state.counters["wakeups_per_minute"] = static_cast<double>(switches) / minutes;
}
BENCHMARK(IdleThreads)->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
