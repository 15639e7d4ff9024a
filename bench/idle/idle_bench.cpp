// What the library's threads cost a process that has nothing to report: both
// generations and a co-process handle initialised, the alarm-check callback
// registered (so the alarm-check server runs), nothing sent. Every thread but
// the main one is the library's; over a window of a minute they should
// neither wake nor use CPU. Reported per minute; the baseline is the main
// thread over the same window, which only sleeps. A program of its own, so
// that no other benchmark's threads are running.
#include <benchmark/benchmark.h>

#include <dirent.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "AlarmSdk.h"
#include "BenchSmoke.h"
#include "TestEnv.h"

namespace {

const int kWindowSeconds = benchsmoke::Scaled(60, 1);
// Two send threads of the process-wide managers, the handle's, the
// alarm-check thread and the alarm-check server.
constexpr std::size_t kLibraryThreads = 5;

pid_t Tid() { return static_cast<pid_t>(syscall(SYS_gettid)); }

std::vector<pid_t> OtherThreads() {
    std::vector<pid_t> tids;
    DIR* tasks = opendir("/proc/self/task");
    for (dirent* entry = tasks != nullptr ? readdir(tasks) : nullptr; entry != nullptr; entry = readdir(tasks)) {
        const pid_t tid = static_cast<pid_t>(std::atol(entry->d_name));
        if (tid > 0 && tid != Tid()) {
            tids.push_back(tid);
        }
    }
    if (tasks != nullptr) {
        closedir(tasks);
    }
    return tids;
}

// The kernel's CPU clock of any thread of this process, by id (the encoding
// pthread_getcpuclockid uses).
double CpuMillis(pid_t tid) {
    const clockid_t clock = static_cast<clockid_t>((~static_cast<unsigned>(tid) << 3) | 6);
    timespec used{};
    clock_gettime(clock, &used);
    return static_cast<double>(used.tv_sec) * 1e3 + static_cast<double>(used.tv_nsec) / 1e6;
}

// Context switches of the thread: each wake-up from a wait is one.
long Switches(pid_t tid) {
    const std::string path = "/proc/self/task/" + std::to_string(tid) + "/status";
    FILE* file = std::fopen(path.c_str(), "r");
    long total = 0;
    char line[256];
    while (file != nullptr && std::fgets(line, sizeof(line), file) != nullptr) {
        if (std::strstr(line, "ctxt_switches:") != nullptr) {
            total += std::strtol(std::strchr(line, ':') + 1, nullptr, 10);
        }
    }
    if (file != nullptr) {
        std::fclose(file);
    }
    return total;
}

struct Usage {
    double cpuMs = 0;
    long switches = 0;
};

Usage UsageOf(const std::vector<pid_t>& tids) {
    Usage usage;
    for (pid_t tid : tids) {
        usage.cpuMs += CpuMillis(tid);
        usage.switches += Switches(tid);
    }
    return usage;
}

void NoCheck(char*) {}

void IdleThreads(benchmark::State& state) {
    const std::string port = std::to_string(testsupport::FreeLoopbackPort());
    setenv("APPID", "app-7", 1);
    setenv("APPNAME", "orders-app", 1);
    setenv("TRANSPORT_SDK_IP", "127.0.0.1", 1);
    setenv("TRANSPORT_SDK_PORT", port.c_str(), 1);
    setenv("RUNLOG_FILE", "/dev/null", 1);
    if (ZEBInitAlarmSDK() != 0 ||
        InitAlarm(ALARMSDK_EXAMPLES_DIR "/legacy/alarms.xml", "storage-svc", "storage-0", 0) != 1 ||
        ZEBInitAlarmSDK4CoProcess("app-8", "billing", "10.0.0.1", "127.0.0.1") == nullptr ||
        ZEBRegisterAlarmCheckCallBackFun("orders", &NoCheck) != 0) {
        state.SkipWithError("the library did not start");
        return;
    }
    std::vector<pid_t> library;
    for (int waited = 0; waited < 100 && library.size() < kLibraryThreads; ++waited) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        library = OtherThreads();
    }
    if (library.size() != kLibraryThreads) {
        state.SkipWithError("not every library thread started");
        return;
    }
    // Settled: every thread has reached its wait.
    std::this_thread::sleep_for(std::chrono::seconds(2));
    Usage spent;
    Usage mainThread;
    for (auto _ : state) {
        const Usage before = UsageOf(library);
        const Usage mainBefore = UsageOf({Tid()});
        std::this_thread::sleep_for(std::chrono::seconds(kWindowSeconds));
        const Usage mainAfter = UsageOf({Tid()});
        const Usage after = UsageOf(library);
        spent.cpuMs += after.cpuMs - before.cpuMs;
        spent.switches += after.switches - before.switches;
        mainThread.cpuMs += mainAfter.cpuMs - mainBefore.cpuMs;
        mainThread.switches += mainAfter.switches - mainBefore.switches;
    }
    const double minutes = static_cast<double>(state.iterations()) * kWindowSeconds / 60.0;
    state.counters["threads"] = static_cast<double>(library.size());
    state.counters["cpu_ms_per_minute"] = spent.cpuMs / minutes;
    state.counters["wakeups_per_minute"] = static_cast<double>(spent.switches) / minutes;
    // The baseline: one sleep of the main thread over the same window.
    state.counters["baseline_cpu_ms_per_minute"] = mainThread.cpuMs / minutes;
    state.counters["baseline_wakeups_per_minute"] = static_cast<double>(mainThread.switches) / minutes;
}
BENCHMARK(IdleThreads)->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
